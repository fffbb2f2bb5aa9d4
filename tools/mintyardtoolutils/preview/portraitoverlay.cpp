#include "mintyardtoolutils/preview/portraitoverlay.h"

#include <algorithm>
#include <cmath>

#include "core/strtools.h"
#include "filesystem/filesystem.h"
#include "imaging/imageload.h"
#include "toolframework/toolframework.h"
#include "toolscene/scenelight.h"
#include "toolscene/scenerenderer.h"

// ---------------------------------------------------------------------------------------------
// Quads

void CZarnMaterialQuadRenderer::Draw(const ToolSceneLayerContext_t &context, const CToolSceneMaterial *pMaterial, const Color corners[4])
{
	if (!context.m_pRenderer)
		return;
	const float w = (float)context.m_nWidth, h = (float)context.m_nHeight;
	VGuiPaintSurfaceLayout vertices[4] = {
		{ { 0.0f, 0.0f, 0.0f }, { 0.0f, 0.0f }, {} },
		{ { w, 0.0f, 0.0f }, { 1.0f, 0.0f }, {} },
		{ { w, h, 0.0f }, { 1.0f, 1.0f }, {} },
		{ { 0.0f, h, 0.0f }, { 0.0f, 1.0f }, {} },
	};
	for (int i = 0; i < 4; ++i)
	{
		vertices[i].color[0] = corners[i].r;
		vertices[i].color[1] = corners[i].g;
		vertices[i].color[2] = corners[i].b;
		vertices[i].color[3] = corners[i].a;
	}
	context.m_pRenderer->DrawScreenQuad(vertices, pMaterial);
}

void CZarnMaterialQuadRenderer::Draw(const ToolSceneLayerContext_t &context, const CToolSceneMaterial *pMaterial, float flOpacity)
{
	const uint8 alpha = (uint8)std::lround(std::clamp(flOpacity, 0.0f, 1.0f) * 255.0f);
	const Color white(255, 255, 255, alpha);
	const Color corners[4] = { white, white, white, white };
	Draw(context, pMaterial, corners);
}

void CPotraitBackgroundRenderer::RenderLayer(const ToolSceneLayerContext_t &context)
{
	if (GetMaterial())
		CZarnMaterialQuadRenderer::Draw(context, GetMaterial().Get(), GetOpacity());
}

CToolScenePortraitOverlay::CToolScenePortraitOverlay(CToolSceneMaterialRef material) : m_Renderer(std::move(material))
{
	SetLayer(PORTRAIT_OVERLAY_LAYER_NAME, &m_Renderer, true);
}

// ---------------------------------------------------------------------------------------------
// Backdrop

CZarnPortraitBackdrop::CZarnPortraitBackdrop()
{
	SetLayer(PORTRAIT_BACKDROP_LAYER_NAME, this, true);
	SetDrawnUnderScene(true);
	for (Color &corner : m_Corners)
		corner = Color(255, 255, 255, 255);
}

void CZarnPortraitBackdrop::SetColors(const Vector colors[4])
{
	auto Byte = [](float f) { return (uint8)std::lround(std::clamp(f, 0.0f, 1.0f) * 255.0f); };
	// Colours 1 to 4 read left to right, top to bottom; the quad's corners go round.
	static const int s_CornerOfColor[4] = { 0, 1, 3, 2 };
	for (int i = 0; i < 4; ++i)
		m_Corners[s_CornerOfColor[i]] = Color(Byte(colors[i].x), Byte(colors[i].y), Byte(colors[i].z), 255);
}

void CZarnPortraitBackdrop::RenderLayer(const ToolSceneLayerContext_t &context)
{
	if (m_Material)
		CZarnMaterialQuadRenderer::Draw(context, m_Material.Get(), 1.0f);
	else
		CZarnMaterialQuadRenderer::Draw(context, nullptr, m_Corners);
}

// ---------------------------------------------------------------------------------------------
// Loading screens

bool LoadPortraitLoadingScreenImage(const char *pszTexturePath, CImageRGBA8 &out, CUtlString *pFound)
{
	out.Clear();
	if (pFound)
		pFound->clear();
	if (!pszTexturePath || !*pszTexturePath)
		return false;
	CUtlString base = pszTexturePath;
	const size_t nSlash = base.find_last_of("/\\");
	const size_t nDot = base.find_last_of('.');
	if (nDot != CUtlString::npos && (nSlash == CUtlString::npos || nDot > nSlash))
		base = base.substr(0, nDot);
	IBaseFileSystem *pFileSystem = g_pFullFileSystem ? static_cast<IBaseFileSystem *>(g_pFullFileSystem) : CoreFileSystem();
	for (const char *pszExtension : { ".tga", ".png" })
	{
		const CUtlString path = base + pszExtension;
		if (!pFileSystem->FileExists(path.c_str(), "CONTENT"))
			continue;
		if (pFound)
			*pFound = path;
		CUtlBuffer data;
		if (!pFileSystem->ReadFile(path.c_str(), "CONTENT", data))
			return false;
		return Image_Load(data.Base(), data.Size(), path.c_str(), out);
	}
	return false;
}

// ---------------------------------------------------------------------------------------------
// Camera and light

void ApplyPortraitCamera(const CZarnPortraitRecord &record, const char *pszCameraName, CToolSceneCamera &camera)
{
	const CZarnPortraitRecord::Camera_t &entry = record.CameraOrFirst(pszCameraName);
	camera.SetPositionAndAngles(entry.m_Position, entry.m_Angles);
	camera.SetFOV(std::clamp(entry.m_flFOV, 1.0f, 170.0f));
	const float flFar = std::max(entry.m_flFar, 10.0f);
	camera.SetNearFar(std::clamp(flFar / 5000.0f, 0.5f, 4.0f), flFar);
}

void ApplyPortraitLight(const CZarnPortraitRecord &record, CToolSceneGlobalLight &light)
{
	light.m_vPosition = record.m_LightPosition;
	light.m_Angles = record.m_LightAngles;
	light.m_vColor = CToolSceneGlobalLight::ColorFromBytes(record.m_LightColor);
	light.m_flScale = record.m_flLightScale;
	light.m_flFOV = record.m_flLightFOV;
	light.m_flDistance = record.m_flLightDistance;
	light.m_vAmbientColor = CToolSceneGlobalLight::ColorFromBytes(record.m_AmbientColor);
	light.m_flAmbientScale = record.m_flAmbientScale;
	light.m_vAmbientDirection = record.m_AmbientDirection;
	light.m_vShadowColor = CToolSceneGlobalLight::ColorFromBytes(record.m_ShadowColor);
	light.m_flShadowScale = record.m_flShadowScale;
	light.m_vSpecularColor = CToolSceneGlobalLight::ColorFromBytes(record.m_SpecularColor);
	light.m_flSpecularPower = record.m_flSpecularPower;
}

// ---------------------------------------------------------------------------------------------
// The look

CZarnPortraitLook::CZarnPortraitLook(CToolScene *pScene) : m_pScene(pScene)
{
}

CZarnPortraitLook::~CZarnPortraitLook() = default;

void CZarnPortraitLook::RemoveOverlays()
{
	for (CToolScenePortraitOverlay **ppOverlay : { &m_pForeground, &m_pSquare })
	{
		if (*ppOverlay)
			m_pScene->RemoveNode(*ppOverlay);
		*ppOverlay = nullptr;
	}
}

void CZarnPortraitLook::RemoveLoadingScreen()
{
	if (m_pLoadingScreen)
		m_pScene->RemoveNode(m_pLoadingScreen);
	m_pLoadingScreen = nullptr;
	m_LoadingScreenFile.clear();
}

void CZarnPortraitLook::RemoveBackdrop()
{
	if (m_pBackdrop)
		m_pScene->RemoveNode(m_pBackdrop);
	m_pBackdrop = nullptr;
	m_LoadedTexture.clear();
}

void CZarnPortraitLook::Clear()
{
	RemoveOverlays();
	RemoveLoadingScreen();
	RemoveBackdrop();
	m_nMode = -1;
}

void CZarnPortraitLook::SetBackdropEnabled(bool bEnabled)
{
	m_bBackdrop = bEnabled;
	if (!bEnabled)
		RemoveBackdrop();
}

void CZarnPortraitLook::SetPreviewMode(int nMode, const CZarnPortraitRecord *pRecord)
{
	m_nMode = nMode;
	if (nMode == 5)
	{
		RemoveOverlays();
		RemoveBackdrop();
		if (!m_pLoadingScreen)
			m_pLoadingScreen = m_pScene->CreateBitmapOverlay(PORTRAIT_LOADING_SCREEN_ASPECT);
	}
	else if (nMode >= 2 && nMode <= 4)
	{
		RemoveLoadingScreen();
		CToolSceneResources &resources = m_pScene->Resources();
		if (!m_pForeground)
			m_pForeground = m_pScene->AddNode(std::make_unique<CToolScenePortraitOverlay>(resources.LoadMaterial(PORTRAIT_FOREGROUND_MATERIAL)));
		if (!m_pSquare)
			m_pSquare = m_pScene->AddNode(std::make_unique<CToolScenePortraitOverlay>(resources.LoadMaterial(PORTRAIT_SQUARE_MATERIAL)));
	}
	else
	{
		RemoveOverlays();
		RemoveLoadingScreen();
	}
	UpdateBackground(pRecord);
}

void CZarnPortraitLook::UpdateBackground(const CZarnPortraitRecord *pRecord)
{
	if (m_nMode == 5)
	{
		if (!m_pLoadingScreen)
			return;
		CImageRGBA8 image;
		CUtlString found;
		if (pRecord && LoadPortraitLoadingScreenImage(pRecord->m_BackgroundTexture.c_str(), image, &found))
		{
			m_pLoadingScreen->SetImage(image);
			m_LoadingScreenFile = found;
		}
		else
		{
			m_pLoadingScreen->ClearPixels();
			m_LoadingScreenFile.clear();
		}
		return;
	}
	const CUtlString texture = pRecord ? pRecord->m_BackgroundTexture : CUtlString();
	// Icons (modes 2 to 4) have no background colours: without a texture the clear colour shows.
	if (!m_bBackdrop || !pRecord || m_nMode < 0 || (m_nMode >= 2 && texture.empty()))
	{
		RemoveBackdrop();
		return;
	}
	if (!m_pBackdrop)
	{
		// Under the scene, so first among the screen layers; its place in the list does not matter.
		m_pBackdrop = m_pScene->AddNode(std::make_unique<CZarnPortraitBackdrop>());
		m_LoadedTexture.clear();
	}
	m_pBackdrop->SetColors(pRecord->m_BackgroundColor);
	if (texture.empty())
	{
		m_pBackdrop->SetMaterial(CToolSceneMaterialRef());
		m_LoadedTexture.clear();
	}
	else if (texture != m_LoadedTexture)
	{
		m_pBackdrop->SetMaterial(m_pScene->Resources().LoadMaterial(texture.c_str()));
		m_LoadedTexture = texture;
	}
}
