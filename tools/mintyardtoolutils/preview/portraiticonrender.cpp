#include "mintyardtoolutils/preview/portraiticonrender.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include <QGuiApplication>

#include "core/strtools.h"
#include "imaging/imagewrite.h"
#include "mintyardtoolutils/preview/portraitoverlay.h"
#include "mintyardtoolutils/preview/portraitsubject.h"
#include "mintyardtoolutils/preview/previewrender.h"
#include "toolscene/sceneoffscreen.h"
#include "toolscene/toolscene.h"

namespace
{
const Color ICON_CLEAR_COLOR = Color(24, 26, 30, 255);
const char *const ICON_FOLDER = "resource/flash3/images/econ";

// The model path without "models/" and the extension.
CUtlString ModelStem(const char *pszModelPath)
{
	CUtlString stem = pszModelPath ? pszModelPath : "";
	for (char &c : stem)
	{
		if (c == '\\')
			c = '/';
	}
	if (stem.compare(0, 7, "models/") == 0)
		stem = stem.substr(7);
	const size_t nSlash = stem.find_last_of('/');
	const size_t nDot = stem.find_last_of('.');
	if (nDot != CUtlString::npos && (nSlash == CUtlString::npos || nDot > nSlash))
		stem = stem.substr(0, nDot);
	return stem;
}

// Coverage and colour from the same picture over black and over white.
void CombineOverBlackAndWhite(const CImageRGBA8 &black, const CImageRGBA8 &white, CImageRGBA8 &out)
{
	out.Init(black.Width(), black.Height());
	for (int y = 0; y < black.Height(); ++y)
	{
		for (int x = 0; x < black.Width(); ++x)
		{
			const uint8 *b = black.Pixel(x, y);
			const uint8 *w = white.Pixel(x, y);
			uint8 *o = out.Pixel(x, y);
			// What shows of the background is the difference between the two pictures.
			const float flShown = ((float)(w[0] - b[0]) + (float)(w[1] - b[1]) + (float)(w[2] - b[2])) / (3.0f * 255.0f);
			const float flAlpha = std::clamp(1.0f - flShown, 0.0f, 1.0f);
			const int nAlpha = (int)std::lround(flAlpha * 255.0f);
			if (nAlpha == 0)
			{
				o[0] = o[1] = o[2] = o[3] = 0;
				continue;
			}
			for (int c = 0; c < 3; ++c)
				o[c] = (uint8)std::clamp((int)std::lround((float)b[c] / flAlpha), 0, 255);
			o[3] = (uint8)nAlpha;
		}
	}
}
} // namespace

const CUtlVector<int> &GetZarnPortraitIconSizes()
{
	static const CUtlVector<int> s_Sizes = { 256, 128 };
	return s_Sizes;
}

CUtlString GetZarnPortraitIconPath(const char *pszModelPath, int nSize)
{
	return V_Format("%s/%s_%d.png", ICON_FOLDER, ModelStem(pszModelPath).c_str(), nSize);
}

CUtlString GetZarnPortraitImageInventory(const char *pszModelPath)
{
	return V_Format("econ/%s", ModelStem(pszModelPath).c_str());
}

CUtlString GetPortraitDisplayProblem()
{
	if (QGuiApplication::instance() || ZarnPreviewHasDisplay())
		return CUtlString();
	return "drawing needs OpenGL on a display, and there is no display here (DISPLAY is empty or names no running display): run it "
		   "under one, for instance with \"xvfb-run -a\"";
}

CZarnPortraitIconRenderer::CZarnPortraitIconRenderer(CToolSceneResources *pResources)
	: m_pResources(pResources ? pResources : &CToolSceneResources::Default())
{
}

CZarnPortraitIconRenderer::~CZarnPortraitIconRenderer() = default;

bool CZarnPortraitIconRenderer::Init(CUtlString *pError)
{
	if (m_pRenderer && m_pRenderer->IsInitialized())
		return true;
	if (!QGuiApplication::instance())
	{
		if (pError)
			*pError = "drawing icons needs the application's interface (no QGuiApplication)";
		return false;
	}
	m_pRenderer = std::make_unique<CToolSceneOffscreenRenderer>();
	CUtlString error;
	if (!m_pRenderer->Init(&error))
	{
		m_pRenderer.reset();
		if (pError)
			*pError = V_Format("cannot draw: %s (OpenGL 3.3 needs a display; run under one, for instance with \"xvfb-run -a\")", error.c_str());
		return false;
	}
	return true;
}

bool CZarnPortraitIconRenderer::RenderIcon(const char *pszModelPath, const CZarnPortraitRecord &record, const ZarnPortraitIconOptions_t &options,
	CImageRGBA8 &out, CUtlString *pError)
{
	out.Clear();
	if (options.m_nSize < ZarnPortraitIconOptions_t::MIN_SIZE || options.m_nSize > ZarnPortraitIconOptions_t::MAX_SIZE)
	{
		if (pError)
			*pError = V_Format("icon size %d is outside %d to %d", options.m_nSize, (int)ZarnPortraitIconOptions_t::MIN_SIZE,
				(int)ZarnPortraitIconOptions_t::MAX_SIZE);
		return false;
	}
	CUtlString error;
	if (!m_pResources->LoadModel(pszModelPath ? pszModelPath : "", &error))
	{
		if (pError)
			*pError = V_Format("cannot load the model %s: %s", pszModelPath ? pszModelPath : "", error.c_str());
		return false;
	}
	if (!Init(pError))
		return false;
	m_pRenderer->SetSamples(options.m_nSamples);

	CToolScene scene(m_pResources);
	ApplyPortraitCamera(record, options.m_CameraName.c_str(), scene.Camera());
	ApplyPortraitLight(record, scene.DefaultLight());
	CZarnPortraitSubject subject(&scene);
	subject.SetModel(pszModelPath);
	subject.ApplyAnimation(&record, false);
	CZarnPortraitLook look(&scene);
	look.SetBackdropEnabled(!options.m_bTransparentBackground);
	look.SetPreviewMode(options.m_nPreviewMode, &record);

	const int nSize = options.m_nSize;
	if (!options.m_bTransparentBackground)
	{
		scene.SetClearColor(ICON_CLEAR_COLOR);
		if (!m_pRenderer->Render(scene, nSize, nSize, out, &error))
		{
			if (pError)
				*pError = V_Format("drawing the icon of %s failed: %s", pszModelPath, error.c_str());
			return false;
		}
		return true;
	}
	CImageRGBA8 overBlack, overWhite;
	scene.SetClearColor(Color(0, 0, 0, 255));
	bool bOk = m_pRenderer->Render(scene, nSize, nSize, overBlack, &error);
	scene.SetClearColor(Color(255, 255, 255, 255));
	bOk = bOk && m_pRenderer->Render(scene, nSize, nSize, overWhite, &error);
	if (!bOk)
	{
		if (pError)
			*pError = V_Format("drawing the icon of %s failed: %s", pszModelPath, error.c_str());
		return false;
	}
	CombineOverBlackAndWhite(overBlack, overWhite, out);
	return true;
}

bool CZarnPortraitIconRenderer::WriteIcon(const char *pszModelPath, const CZarnPortraitRecord &record, const ZarnPortraitIconOptions_t &options,
	const char *pszOutputPath, CUtlString *pError)
{
	CImageRGBA8 image;
	if (!RenderIcon(pszModelPath, record, options, image, pError))
		return false;
	std::error_code ignored;
	const std::filesystem::path folder = std::filesystem::path(pszOutputPath).parent_path();
	if (!folder.empty())
		std::filesystem::create_directories(folder, ignored);
	return Image_WritePNGFile(pszOutputPath, image, pError, IMAGE_PNG_RGBA);
}
