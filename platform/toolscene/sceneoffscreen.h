// Drawing a tool scene without a window: an OpenGL 3.3 core context on an offscreen surface and
// a framebuffer of any size, read back as an image. Used for `mintyard render`, icon images and
// the tests. Needs a QGuiApplication (and, on X11, a display: tests run under Xvfb).
#pragma once

#include <QImage>

#include <memory>

#include "core/utlstring.h"
#include "imaging/image.h"
#include "toolscene/scenerenderer.h"

class QOffscreenSurface;
class QOpenGLContext;
class QOpenGLFramebufferObject;

class CToolSceneOffscreenRenderer
{
public:
	// Sides above this are refused.
	enum { MAX_SIZE = 8192 };

	CToolSceneOffscreenRenderer();
	~CToolSceneOffscreenRenderer();

	// Makes the context and the renderer. False with a message when no 3.3 core context can be
	// made (no display, no GL).
	bool Init(CUtlString *pError = nullptr);
	bool IsInitialized() const { return m_pContext != nullptr; }
	// Multisampling of the framebuffer (0: none). Takes effect at the next render.
	void SetSamples(int nSamples);

	// Draws the scene (through its own camera, or `pCamera`) into a w x h picture.
	bool Render(const CToolScene &scene, int nWidth, int nHeight, QImage &out, CUtlString *pError = nullptr,
		const CToolSceneCamera *pCamera = nullptr);
	// The same as 8-bit RGBA (rows from the top).
	bool Render(const CToolScene &scene, int nWidth, int nHeight, CImageRGBA8 &out, CUtlString *pError = nullptr,
		const CToolSceneCamera *pCamera = nullptr);
	// Draws without reading back (waits for the GL to finish): what a frame costs.
	bool RenderWithoutReadback(const CToolScene &scene, int nWidth, int nHeight, CUtlString *pError = nullptr);

	// With the context current, for callers that draw with it themselves.
	bool MakeCurrent();
	void DoneCurrent();
	CToolSceneRenderer &Renderer() { return m_Renderer; }
	QOpenGLContext *Context() const { return m_pContext.get(); }
	// The framebuffer of the last render (bound by Render), or null.
	QOpenGLFramebufferObject *Framebuffer() const { return m_pFramebuffer.get(); }

private:
	bool Draw(const CToolScene &scene, int nWidth, int nHeight, CUtlString *pError, const CToolSceneCamera *pCamera);

	std::unique_ptr<QOpenGLContext> m_pContext;
	std::unique_ptr<QOffscreenSurface> m_pSurface;
	std::unique_ptr<QOpenGLFramebufferObject> m_pFramebuffer;
	CToolSceneRenderer m_Renderer;
	int m_nSamples = 0;
};
