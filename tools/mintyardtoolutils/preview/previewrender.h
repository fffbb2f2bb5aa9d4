// Drawing a preview without a window: the scene of a preview model set (or of one compiled model
// alone), framed by the camera, with the mesh problems over it when asked for, into a picture.
// `mintyard render`, the benchmark and the drawing tests use it. Needs a QGuiApplication and an
// OpenGL 3.3 core context (on X11, a display; Xvfb does).
#pragma once

#include <QImage>

#include <memory>

#include "core/utlstring.h"
#include "mintyardtoolutils/preview/meshproblems.h"
#include "mintyardtoolutils/preview/previewscene.h"

class CToolScene;
class CToolSceneOffscreenRenderer;
class CToolSceneResources;
class CZarnPreviewModelSet;
class CZarnPreviewScene;

struct ZarnPreviewRenderView_t
{
	int m_nWidth = 1280;
	int m_nHeight = 720;
	float m_flYaw = ZARN_PREVIEW_CAMERA_YAW;	 // degrees about the models, from their front
	float m_flPitch = ZARN_PREVIEW_CAMERA_PITCH; // degrees above them
};

class CZarnPreviewRenderer
{
public:
	// Models load through `pResources` (null: the scene's default resources).
	explicit CZarnPreviewRenderer(CToolSceneResources *pResources = nullptr);
	~CZarnPreviewRenderer();
	CZarnPreviewRenderer(const CZarnPreviewRenderer &) = delete;
	CZarnPreviewRenderer &operator=(const CZarnPreviewRenderer &) = delete;

	// Makes the GL context. False with a message when there is none to be had.
	bool Init(CUtlString *pError = nullptr);

	// The scene of a set: its subject, wearables and the rest (see previewscene.h).
	void ShowSet(const CZarnPreviewModelSet &set);
	// One compiled model alone, playing `pszSequence` (its idle activity when null or unknown).
	// False with the loader's message when it cannot be loaded.
	bool ShowModel(const char *pszModelPath, const char *pszSequence, CUtlString *pError = nullptr);
	// Stops the animation at a frame (of the subject; wearables follow).
	void SetFrame(int nFrame);

	// The findings of the mesh sources of the model under preview, from its model document, drawn
	// over it. False with a message when the document cannot be read.
	bool ShowMeshProblems(const char *pszContentRoot, const char *pszModelDocument, CUtlString *pError = nullptr);
	const CZarnMeshProblems &GetMeshProblems() const { return m_Problems; }

	// Frames the camera and draws.
	bool Render(const ZarnPreviewRenderView_t &view, QImage &out, CUtlString *pError = nullptr);
	// Draws again without reading back (the camera as it stands): a frame of the benchmark.
	bool RenderFrame(int nWidth, int nHeight, CUtlString *pError = nullptr);
	// Moves the animations on.
	void Advance(float flSeconds);

	CToolScene &Scene() { return *m_pScene; }
	CZarnPreviewScene &PreviewScene() { return *m_pPreview; }
	CToolSceneOffscreenRenderer &Offscreen() { return *m_pOffscreen; }

private:
	std::unique_ptr<CToolScene> m_pScene;
	std::unique_ptr<CZarnPreviewScene> m_pPreview;
	std::unique_ptr<CToolSceneOffscreenRenderer> m_pOffscreen;
	CZarnMeshProblems m_Problems;
	bool m_bProblems = false;
};

// True when a GL context can be had here: a display to draw on (DISPLAY or WAYLAND_DISPLAY set,
// or a Qt platform named that needs none). Without one `mintyard render` says so.
bool ZarnPreviewHasDisplay();
