#include "mintyardtoolutils/pipeline/materialimport.h"

#include <algorithm>
#include <filesystem>

#include "core/keyvalues.h"
#include "core/strtools.h"
#include "filesystem/filesystem.h"
#include "imaging/imageload.h"
#include "mintyardtoolutils/core/cfgelements.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/pipeline/importdriver.h"
#include "mintyardtoolutils/pipeline/importstages.h"
#include "toolframework/toolframework.h"

namespace
{
struct MaterialTexture_t
{
	const char *m_pszName;
	const char *m_pszKey;
	const char *m_pszDefault;
};

const MaterialTexture_t s_Textures[CMintyardCfg_ZarnMaterial::TEXTURE_COUNT] = {
	{ "color", "TextureColor", "" },
	{ "trans", "TextureTranslucency", "" },
	{ "normal", "TextureNormal", "" },
	{ "detailmask", "TextureDetailMask", "[0.000000 0.000000 0.000000 0.000000]" },
	{ "diffusemask", "TextureDiffuseWarpMask", "[0.000000 0.000000 0.000000 0.000000]" },
	{ "metalnessmask", "TextureMetalnessMask", "[0.000000 0.000000 0.000000 0.000000]" },
	{ "selfillummask", "TextureSelfIllumMask", "[0.000000 0.000000 0.000000 0.000000]" },
	{ "specmask", "TextureSpecularMask", "[1.000000 1.000000 1.000000 0.000000]" },
	{ "rimmask", "TextureRimMask", "[1.000000 1.000000 1.000000 0.000000]" },
	{ "basetintmask", "TextureTintByBaseMask", "[1.000000 1.000000 1.000000 0.000000]" },
	{ "specexp", "TextureSpecularExponent", "[1.000000 1.000000 1.000000 0.000000]" },
};

bool IsPowerOfTwo(int n)
{
	return n > 0 && (n & (n - 1)) == 0;
}

CUtlString WithoutExtension(const CUtlString &path)
{
	const size_t slash = path.find_last_of("/\\");
	const size_t dot = path.rfind('.');
	return dot == CUtlString::npos || (slash != CUtlString::npos && dot < slash) ? path : path.substr(0, dot);
}
} // namespace

const char *GetMaterialTextureName(int nIndex)
{
	return nIndex >= 0 && nIndex < CMintyardCfg_ZarnMaterial::TEXTURE_COUNT ? s_Textures[nIndex].m_pszName : "";
}

const char *GetMaterialTextureKey(int nIndex)
{
	return nIndex >= 0 && nIndex < CMintyardCfg_ZarnMaterial::TEXTURE_COUNT ? s_Textures[nIndex].m_pszKey : "";
}

const char *GetMaterialTextureDefault(int nIndex)
{
	return nIndex >= 0 && nIndex < CMintyardCfg_ZarnMaterial::TEXTURE_COUNT ? s_Textures[nIndex].m_pszDefault : "";
}

void CheckTextureSize(const CMintyardImportSession *pSession, const CMintyardTemplate_ZarnMaterial *pTemplate,
	const char *pszContentRelativeTexture, ImportMessageList &list)
{
	CImportStageTimer timer(MINTYARD_STAGE_CHECKS);
	const CUtlString absolute = ContentPath(pSession, pszContentRelativeTexture);
	CImageRGBA8 image;
	CUtlString error;
	if (!Image_LoadFile(absolute.c_str(), image, &error))
	{
		list.Log(MINTYARD_IMPORT_LOG_ERROR, "%s\n", error.c_str());
		list.AddError("#ZARN_Mintyard_Error_FailedToLoadTexture", absolute.c_str());
		return;
	}
	const int w = image.Width(), h = image.Height();
	const int W = pTemplate ? pTemplate->max_tex_width : 0, H = pTemplate ? pTemplate->max_tex_height : 0;
	const bool bPasses = W >= 1 && H >= 1 && w >= W && h >= H && IsPowerOfTwo(w) && IsPowerOfTwo(h) && w / W == h / H;
	if (!bPasses)
		list.AddWarning("#ZARN_Mintyard_Error_ImageSize", absolute.c_str(), V_Format("%ix%i", w, h).c_str(), V_Format("%ix%i", W, H).c_str());
}

bool MaterialImport(CMintyardCfg_ZarnMaterial *pMaterial, const char *pszMaterialPath, ImportMessageList &list)
{
	CMintyardImportSession *pSession = pMaterial ? pMaterial->GetRootSession() : nullptr;
	const CMintyardTemplate_ZarnMaterial *pTemplate = pMaterial ? pMaterial->GetMaterialTemplate() : nullptr;
	if (!pSession || !pTemplate || !pszMaterialPath)
		return false;
	list.Log(MINTYARD_IMPORT_LOG_INFO, "Importing material: %s\n", pMaterial->GetTemplateId().c_str());
	const CUtlString stem = WithoutExtension(pszMaterialPath);

	CUtlString destinations[CMintyardCfg_ZarnMaterial::TEXTURE_COUNT];
	for (int i = 0; i < CMintyardCfg_ZarnMaterial::TEXTURE_COUNT; ++i)
	{
		const CMintyardCfgFilename *pTexture = pMaterial->m_pTextures[i];
		if (!pTexture || pTexture->IsEmpty())
			continue;
		const CUtlString destination =
			V_Format("%s_%s.%s", stem.c_str(), s_Textures[i].m_pszName, GetPathExtension(pTexture->Value().c_str()).c_str());
		if (!CopyToContent(MINTYARD_COPY_VERBATIM, pSession, pTexture->Value().c_str(), destination.c_str(), list))
			return false;
		// The destination as it was placed: CopyToContent writes the extension in lower case.
		const size_t dot = destination.rfind('.');
		CUtlString placed = destination;
		for (size_t c = dot + 1; c < placed.size(); ++c)
			placed[c] = V_tolower(placed[c]);
		CheckTextureSize(pSession, pTemplate, placed.c_str(), list);
		destinations[i] = placed;
	}

	// The template material first, so that every key of it survives unless set below.
	KeyValues layer("Layer0");
	if (!pTemplate->template_zmat.empty())
	{
		CUtlString error;
		if (!layer.LoadFromFile(g_pFullFileSystem, pTemplate->template_zmat.c_str(), "CONTENT", KV1LoadOptions_t(), &error))
		{
			list.Log(MINTYARD_IMPORT_LOG_ERROR, "%s\n", error.c_str());
			list.AddError("#ZARN_Mintyard_Err_FailedToLoadMaterialTemplate", pTemplate->template_zmat.c_str());
			return false;
		}
		layer.SetName("Layer0");
	}
	auto Texture = [&](int i) { return destinations[i].empty() ? s_Textures[i].m_pszDefault : destinations[i].c_str(); };
	layer.SetString("Shader", "hero.zfx");
	layer.SetString("TextureColor", Texture(0));
	layer.SetInt("F_ALPHA_TEST", destinations[1].empty() ? 0 : 1);
	layer.SetString("TextureTranslucency", destinations[1].c_str());
	layer.SetString("TextureNormal", Texture(2));
	layer.SetInt("F_MASKS_1", 1);
	for (int i : { 3, 4, 5, 6 })
		layer.SetString(s_Textures[i].m_pszKey, Texture(i));
	layer.SetInt("F_MASKS_2", 1);
	for (int i : { 8, 7, 9, 10 })
		layer.SetString(s_Textures[i].m_pszKey, Texture(i));

	// Each texture's settings: its largest side after the compile.
	KeyValues settings("settings");
	settings.SetInt("maxres", std::max(pTemplate->max_tex_width, pTemplate->max_tex_height));
	for (const CUtlString &destination : destinations)
	{
		if (destination.empty())
			continue;
		const CUtlString path = WithoutExtension(ContentPath(pSession, destination.c_str())) + ".txt";
		SourceControlGuard guard(path.c_str());
		settings.SaveToFile(nullptr, path.c_str(), nullptr); // a failure here is not an import problem
	}

	const CUtlString materialAbsolute = ContentPath(pSession, pszMaterialPath);
	{
		SourceControlGuard guard(materialAbsolute.c_str());
		CUtlString error;
		std::error_code ignored;
		std::filesystem::create_directories(std::filesystem::path(materialAbsolute.c_str()).parent_path(), ignored);
		if (!layer.SaveToFile(nullptr, materialAbsolute.c_str(), nullptr, &error))
		{
			list.Log(MINTYARD_IMPORT_LOG_ERROR, "%s\n", error.c_str());
			list.AddError("#ZARN_Mintyard_Err_FailedToWrite", materialAbsolute.c_str());
			return false;
		}
	}
	list.Log(MINTYARD_IMPORT_LOG_INFO, "Compiling material: %s\n", pszMaterialPath);
	if (!CompileAsset(pSession, materialAbsolute.c_str(), list))
	{
		list.AddError("#ZARN_Mintyard_Err_FailedToCompile", materialAbsolute.c_str());
		return false;
	}
	return true;
}
