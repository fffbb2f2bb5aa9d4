// Icon images of a portrait, drawn without a window: the model of a portrait record seen
// through the record's camera and light, over its background, with the foreground and square
// overlays of item icons above (preview mode 2), square, read back as 8-bit RGBA.
//
// With a transparent background the picture is drawn twice, over black and over white and
// without the backdrop; the two give each pixel's coverage (what the model and overlays hide of
// the background) and its colour, so the icon's alpha is exact for edges and translucent
// overlays alike.
//
// Where the tool writes them: "<game>/resource/flash3/images/econ/<model>_<size>.png", <model>
// being the model's path without "models/" and ".zmdl"; for every model of an item, at 256 and
// 128 pixels a side.
#pragma once

#include <memory>

#include "core/utlstring.h"
#include "core/utlvector.h"
#include "imaging/image.h"
#include "mintyardtoolutils/core/portraitrecord.h"

class CToolSceneOffscreenRenderer;
class CToolSceneResources;
class KeyValues;

struct ZarnPortraitIconOptions_t
{
	enum { MIN_SIZE = 16, MAX_SIZE = 2048 };

	int m_nSize = 256;
	// The preview mode: 2 to 4 draw the icon overlays; the background follows the mode.
	int m_nPreviewMode = 2;
	// No background: the picture's alpha is what the model and the overlays cover.
	bool m_bTransparentBackground = false;
	// The portrait camera of that name (the first one when the record has none of it).
	CUtlString m_CameraName = "default";
	// Multisampling of the picture (0 none).
	int m_nSamples = 4;
};

// The icon sizes written for every model of an item, largest first.
const CUtlVector<int> &GetZarnPortraitIconSizes();
// Where the icon of a model goes, relative to the game folder:
// "resource/flash3/images/econ/items/x/y_256.png" for "models/items/x/y.zmdl" at 256.
CUtlString GetZarnPortraitIconPath(const char *pszModelPath, int nSize);
// The item's image name for a model ("econ/items/x/y"), as the game's `image_inventory` names it.
CUtlString GetZarnPortraitImageInventory(const char *pszModelPath);

class CZarnPortraitIconRenderer
{
public:
	// Loads through `pResources` (null: the resources every scene shares).
	explicit CZarnPortraitIconRenderer(CToolSceneResources *pResources = nullptr);
	~CZarnPortraitIconRenderer();
	CZarnPortraitIconRenderer(const CZarnPortraitIconRenderer &) = delete;
	CZarnPortraitIconRenderer &operator=(const CZarnPortraitIconRenderer &) = delete;

	// The OpenGL context, made on first use. False with a message when there is none (no
	// display: run under one, such as xvfb-run).
	bool Init(CUtlString *pError = nullptr);

	// Draws the icon of a model (a resource path, "models/x.zmdl") framed by the record. False
	// with a message when the model does not load, the size is out of range or drawing fails.
	bool RenderIcon(const char *pszModelPath, const CZarnPortraitRecord &record, const ZarnPortraitIconOptions_t &options, CImageRGBA8 &out,
		CUtlString *pError = nullptr);

	// Draws the icon and writes it as a PNG with alpha, atomically, making its folders.
	bool WriteIcon(const char *pszModelPath, const CZarnPortraitRecord &record, const ZarnPortraitIconOptions_t &options,
		const char *pszOutputPath, CUtlString *pError = nullptr);

private:
	CToolSceneResources *m_pResources;
	std::unique_ptr<CToolSceneOffscreenRenderer> m_pRenderer;
};

// A message for a command or tool that has no display to draw on, or empty when drawing may
// work (an application is running, or a display that answers is named).
CUtlString GetPortraitDisplayProblem();
