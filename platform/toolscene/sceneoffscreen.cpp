#include "toolscene/sceneoffscreen.h"

#include <QGuiApplication>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QOpenGLFramebufferObject>
#include <QOpenGLFunctions_3_3_Core>

#include <cstring>

#include "core/strtools.h"

CToolSceneOffscreenRenderer::CToolSceneOffscreenRenderer() = default;

CToolSceneOffscreenRenderer::~CToolSceneOffscreenRenderer()
{
	if (m_pContext && MakeCurrent())
	{
		m_pFramebuffer.reset();
		m_Renderer.Shutdown();
		DoneCurrent();
	}
}

bool CToolSceneOffscreenRenderer::Init(CUtlString *pError)
{
	if (m_pContext)
		return true;
	if (!QGuiApplication::instance())
	{
		if (pError)
			*pError = "drawing needs a QGuiApplication";
		return false;
	}
	QSurfaceFormat format;
	format.setVersion(3, 3);
	format.setProfile(QSurfaceFormat::CoreProfile);
	format.setDepthBufferSize(24);
	auto pContext = std::make_unique<QOpenGLContext>();
	pContext->setFormat(format);
	if (!pContext->create())
	{
		if (pError)
			*pError = V_Format("cannot make an OpenGL 3.3 core context on the \"%s\" platform", qPrintable(QGuiApplication::platformName()));
		return false;
	}
	auto pSurface = std::make_unique<QOffscreenSurface>();
	pSurface->setFormat(pContext->format());
	pSurface->create();
	if (!pSurface->isValid() || !pContext->makeCurrent(pSurface.get()))
	{
		if (pError)
			*pError = "cannot make the OpenGL context current on an offscreen surface";
		return false;
	}
	m_pContext = std::move(pContext);
	m_pSurface = std::move(pSurface);
	if (!m_Renderer.Init(pError))
	{
		m_pContext->doneCurrent();
		m_pSurface.reset();
		m_pContext.reset();
		return false;
	}
	m_pContext->doneCurrent();
	return true;
}

void CToolSceneOffscreenRenderer::SetSamples(int nSamples)
{
	nSamples = nSamples < 0 ? 0 : nSamples;
	if (nSamples != m_nSamples)
	{
		m_nSamples = nSamples;
		if (m_pFramebuffer && MakeCurrent())
			m_pFramebuffer.reset();
	}
}

bool CToolSceneOffscreenRenderer::MakeCurrent()
{
	return m_pContext && m_pContext->makeCurrent(m_pSurface.get());
}

void CToolSceneOffscreenRenderer::DoneCurrent()
{
	if (m_pContext)
		m_pContext->doneCurrent();
}

bool CToolSceneOffscreenRenderer::Draw(const CToolScene &scene, int nWidth, int nHeight, CUtlString *pError, const CToolSceneCamera *pCamera)
{
	if (nWidth < 1 || nHeight < 1 || nWidth > MAX_SIZE || nHeight > MAX_SIZE)
	{
		if (pError)
			*pError = V_Format("a picture of %d x %d pixels cannot be drawn (1 to %d a side)", nWidth, nHeight, (int)MAX_SIZE);
		return false;
	}
	if (!Init(pError))
		return false;
	if (!MakeCurrent())
	{
		if (pError)
			*pError = "cannot make the OpenGL context current";
		return false;
	}
	if (!m_pFramebuffer || m_pFramebuffer->size() != QSize(nWidth, nHeight))
	{
		m_pFramebuffer.reset();
		QOpenGLFramebufferObjectFormat format;
		format.setAttachment(QOpenGLFramebufferObject::CombinedDepthStencil);
		format.setInternalTextureFormat(GL_RGBA8);
		format.setSamples(m_nSamples);
		m_pFramebuffer = std::make_unique<QOpenGLFramebufferObject>(nWidth, nHeight, format);
		if (!m_pFramebuffer->isValid())
		{
			m_pFramebuffer.reset();
			if (pError)
				*pError = V_Format("cannot make a framebuffer of %d x %d pixels", nWidth, nHeight);
			return false;
		}
	}
	m_Renderer.Render(scene, pCamera ? *pCamera : scene.Camera(), nWidth, nHeight, m_pFramebuffer->handle());
	return true;
}

bool CToolSceneOffscreenRenderer::Render(const CToolScene &scene, int nWidth, int nHeight, QImage &out, CUtlString *pError,
	const CToolSceneCamera *pCamera)
{
	if (!Draw(scene, nWidth, nHeight, pError, pCamera))
		return false;
	out = m_pFramebuffer->toImage().convertToFormat(QImage::Format_RGBA8888);
	DoneCurrent();
	if (out.isNull())
	{
		if (pError)
			*pError = "the picture could not be read back";
		return false;
	}
	return true;
}

bool CToolSceneOffscreenRenderer::Render(const CToolScene &scene, int nWidth, int nHeight, CImageRGBA8 &out, CUtlString *pError,
	const CToolSceneCamera *pCamera)
{
	QImage image;
	if (!Render(scene, nWidth, nHeight, image, pError, pCamera))
		return false;
	if (!out.Init(image.width(), image.height()))
	{
		if (pError)
			*pError = "out of memory for the picture";
		return false;
	}
	for (int y = 0; y < image.height(); ++y)
		memcpy(out.Pixel(0, y), image.constScanLine(y), (size_t)image.width() * 4);
	return true;
}

bool CToolSceneOffscreenRenderer::RenderWithoutReadback(const CToolScene &scene, int nWidth, int nHeight, CUtlString *pError)
{
	if (!Draw(scene, nWidth, nHeight, pError, nullptr))
		return false;
	m_Renderer.GL()->glFinish();
	DoneCurrent();
	return true;
}
