// What a portrait shows around its model, as tool scene nodes: the foreground and square-frame
// overlays of item, courier and ward icons (CToolScenePortraitOverlay), the backdrop behind the
// model (the record's background texture, or its four background colours), and the 16:9
// picture of a loading screen. CZarnPortraitLook keeps them in a scene for a preview mode and
// a portrait record, and copies the record's camera and light into a scene camera and light;
// the portrait viewer and the icon renderer both draw through it.
#pragma once

#include "core/mathtypes.h"
#include "core/utlstring.h"
#include "imaging/image.h"
#include "mintyardtoolutils/core/portraitrecord.h"
#include "toolscene/toolscene.h"

class CToolSceneGlobalLight;

// Overlay resources, loaded with the look.
#define PORTRAIT_FOREGROUND_MATERIAL "materials/vgui/econ/item_icon_fg.zmat"
#define PORTRAIT_SQUARE_MATERIAL "materials/vgui/econ/item_icon_square.zmat"
#define PORTRAIT_OVERLAY_LAYER_NAME "ToolScene Portrait Overlay"
#define PORTRAIT_BACKDROP_LAYER_NAME "ToolScene Portrait Backdrop"
// The aspect of a loading screen's picture.
#define PORTRAIT_LOADING_SCREEN_ASPECT 1.7777778f

// Draws one quad over the whole target with a material (null: the corner colours alone), each
// corner's colour multiplied in: the vertices are VGuiPaintSurfaceLayout (position, texture
// coordinate, colour), corners top left, top right, bottom right, bottom left.
class CZarnMaterialQuadRenderer
{
public:
	static void Draw(const ToolSceneLayerContext_t &context, const CToolSceneMaterial *pMaterial, const Color corners[4]);
	// One colour at every corner, its alpha the opacity.
	static void Draw(const ToolSceneLayerContext_t &context, const CToolSceneMaterial *pMaterial, float flOpacity);
};

// The renderer of a portrait overlay: a counted reference to its material and an opacity (the
// tool scene's material quad), drawn through CZarnMaterialQuadRenderer.
class CPotraitBackgroundRenderer : public CToolSceneMaterialQuadRenderer
{
public:
	using CToolSceneMaterialQuadRenderer::CToolSceneMaterialQuadRenderer;

	void RenderLayer(const ToolSceneLayerContext_t &context) override;
};

// A material drawn over the whole view, on top of the scene, into the scene's own target: the
// layer "ToolScene Portrait Overlay". Hidden, it draws nothing.
class CToolScenePortraitOverlay : public CToolSceneNodeScreenLayer
{
public:
	explicit CToolScenePortraitOverlay(CToolSceneMaterialRef material);

	const CToolSceneMaterialRef &GetMaterial() const { return m_Renderer.GetMaterial(); }
	CPotraitBackgroundRenderer &Renderer() { return m_Renderer; }

private:
	CPotraitBackgroundRenderer m_Renderer;
};

// The backdrop behind a portrait's model, drawn under the scene: a material over the whole view
// or, without one, the four background colours at the corners (colour 1 top left, 2 top right,
// 3 bottom left, 4 bottom right), blended across the view.
class CZarnPortraitBackdrop : public CToolSceneNodeScreenLayer, public IProceduralLayerRenderer
{
public:
	CZarnPortraitBackdrop();

	void SetMaterial(CToolSceneMaterialRef material) { m_Material = std::move(material); }
	const CToolSceneMaterialRef &GetMaterial() const { return m_Material; }
	void SetColors(const Vector colors[4]);
	const Color &GetCornerColor(int nCorner) const { return m_Corners[nCorner]; }

	void RenderLayer(const ToolSceneLayerContext_t &context) override;

private:
	CToolSceneMaterialRef m_Material;
	Color m_Corners[4]; // top left, top right, bottom right, bottom left
};

// The loading-screen picture of a background texture: its extension stripped, ".tga" and then
// ".png" tried on the "CONTENT" search path, the first found loaded as 8-bit RGBA. False when
// neither exists or the file does not load; `pFound` receives the file tried last.
bool LoadPortraitLoadingScreenImage(const char *pszTexturePath, CImageRGBA8 &out, CUtlString *pFound = nullptr);

// The scene camera and light of a portrait record.
void ApplyPortraitCamera(const CZarnPortraitRecord &record, const char *pszCameraName, CToolSceneCamera &camera);
void ApplyPortraitLight(const CZarnPortraitRecord &record, CToolSceneGlobalLight &light);

// The nodes around a portrait's model in one scene, by preview mode:
// - modes 0 and 1: the backdrop of the background texture, or of the colours without one;
// - modes 2 to 4: the backdrop of the background texture (none without one: the scene's clear
//   colour), and the foreground and square overlays above the scene;
// - mode 5: the 16:9 bitmap of the loading screen, nothing else.
class CZarnPortraitLook
{
public:
	explicit CZarnPortraitLook(CToolScene *pScene);
	~CZarnPortraitLook();
	CZarnPortraitLook(const CZarnPortraitLook &) = delete;
	CZarnPortraitLook &operator=(const CZarnPortraitLook &) = delete;

	// Removes and makes again only the nodes the mode changes.
	void SetPreviewMode(int nMode, const CZarnPortraitRecord *pRecord);
	int GetPreviewMode() const { return m_nMode; }
	// The backdrop (and in mode 5 the bitmap) from the record's background.
	void UpdateBackground(const CZarnPortraitRecord *pRecord);
	// Without a backdrop: only the scene's clear colour behind the model.
	void SetBackdropEnabled(bool bEnabled);
	// Removes every node of the look.
	void Clear();

	CToolScenePortraitOverlay *GetForeground() const { return m_pForeground; }
	CToolScenePortraitOverlay *GetSquare() const { return m_pSquare; }
	CZarnPortraitBackdrop *GetBackdrop() const { return m_pBackdrop; }
	CToolSceneBitmapOverlay *GetLoadingScreen() const { return m_pLoadingScreen; }
	// The file the loading screen was read from (empty when none).
	const CUtlString &GetLoadingScreenFile() const { return m_LoadingScreenFile; }

private:
	void RemoveOverlays();
	void RemoveLoadingScreen();
	void RemoveBackdrop();

	CToolScene *m_pScene;
	int m_nMode = -1;
	bool m_bBackdrop = true;
	CToolScenePortraitOverlay *m_pForeground = nullptr;
	CToolScenePortraitOverlay *m_pSquare = nullptr;
	CZarnPortraitBackdrop *m_pBackdrop = nullptr;
	CToolSceneBitmapOverlay *m_pLoadingScreen = nullptr;
	CUtlString m_LoadedTexture;
	CUtlString m_LoadingScreenFile;
};
