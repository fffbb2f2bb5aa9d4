#include "toolscene/sceneresources.h"

#include <sys/stat.h>

#include <cmath>

#include "core/pathutils.h"
#include "core/strtools.h"
#include "filesystem/filesystem.h"
#include "toolframework/toolframework.h"

DEFINE_LOGGING_CHANNEL(LOG_TOOLSCENE, "ToolScene");

namespace
{
std::atomic<uint64> s_nNextSerial { 1 };

bool EndsWith(std::string_view text, std::string_view suffix)
{
	return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

float SRGBChannel(float value)
{
	return std::isfinite(value) ? std::fmin(std::fmax(value, 0.0f), 1.0f) : 0.0f;
}
} // namespace

void CToolSceneMaterial::Release() const
{
	if (m_nRefCount.fetch_sub(1, std::memory_order_acq_rel) == 1)
		delete this;
}

const CToolSceneMaterial *CToolSceneModel::GetMaterial(int nIndex) const
{
	if (nIndex < 0 || (size_t)nIndex >= m_Materials.size())
		return nullptr;
	return m_Materials[(size_t)nIndex].Get();
}

CToolSceneResources::~CToolSceneResources()
{
	for (auto &entry : m_Materials)
		entry.second->Release();
}

CToolSceneResources &CToolSceneResources::Default()
{
	static CToolSceneResources *s_pResources = new CToolSceneResources;
	return *s_pResources;
}

void CToolSceneResources::SetGameRoot(const char *pszFolder)
{
	m_GameRoot = pszFolder ? pszFolder : "";
}

CUtlString CToolSceneResources::ResolvePath(std::string_view path) const
{
	CUtlString compiled(path);
	for (char &c : compiled)
	{
		if (c == '\\')
			c = '/';
	}
	if (!EndsWith(compiled, "_c"))
		compiled += "_c";
	if (V_IsAbsolutePath(compiled))
		return compiled;
	if (!m_GameRoot.empty())
		return V_JoinPath(m_GameRoot, compiled);
	if (g_pFullFileSystem)
	{
		char full[4096];
		if (g_pFullFileSystem->RelativePathToFullPath(compiled.c_str(), "GAME", full, (int)sizeof(full)))
			return full;
	}
	return compiled;
}

uint64 CToolSceneResources::FileStamp(const CUtlString &path)
{
	struct stat info;
	if (stat(path.c_str(), &info) != 0)
		return 0;
	const uint64 nanoseconds = (uint64)info.st_mtim.tv_sec * 1000000000ull + (uint64)info.st_mtim.tv_nsec;
	return (nanoseconds * 1099511628211ull) ^ (uint64)info.st_size ^ ((uint64)info.st_ino << 32);
}

template<typename T, typename Load>
std::shared_ptr<const T> CToolSceneResources::LoadThroughCache(std::unordered_map<CUtlString, CacheEntry_t<T>> &cache, const char *pszPath,
	const char *pszKind, CUtlString *pError, Load load)
{
	if (!pszPath || !*pszPath)
	{
		if (pError)
			*pError = V_Format("no %s named", pszKind);
		return nullptr;
	}
	const CUtlString file = ResolvePath(pszPath);
	const uint64 stamp = FileStamp(file);
	if (auto it = cache.find(file); it != cache.end())
	{
		if (std::shared_ptr<const T> pCached = it->second.m_pAsset.lock(); pCached && it->second.m_nStamp == stamp)
			return pCached;
	}
	auto pAsset = std::make_shared<T>();
	CUtlString error;
	if (!load(file.c_str(), *pAsset, &error))
	{
		cache.erase(file);
		Log_Warning(LOG_TOOLSCENE, "Cannot load %s '%s': %s\n", pszKind, pszPath, error.c_str());
		if (pError)
			*pError = error;
		return nullptr;
	}
	pAsset->m_Path = pszPath;
	pAsset->m_nSerial = s_nNextSerial.fetch_add(1);
	CacheEntry_t<T> &entry = cache[file];
	entry.m_pAsset = pAsset;
	entry.m_nStamp = stamp;
	return pAsset;
}

std::shared_ptr<const CToolSceneModel> CToolSceneResources::LoadModel(const char *pszPath, CUtlString *pError)
{
	return LoadThroughCache(m_Models, pszPath, "model", pError, [this](const char *pszFile, CToolSceneModel &model, CUtlString *pLoadError) {
		if (!LoadCompiledModel(pszFile, model.m_Data, pLoadError))
			return false;
		for (const CUtlString &material : model.m_Data.m_Materials)
			model.m_Materials.push_back(LoadMaterial(material.c_str()));
		return true;
	});
}

std::shared_ptr<const CToolSceneTexture> CToolSceneResources::LoadTexture(const char *pszPath, CUtlString *pError)
{
	return LoadThroughCache(m_Textures, pszPath, "texture", pError, [](const char *pszFile, CToolSceneTexture &texture, CUtlString *pLoadError) {
		return LoadCompiledTexture(pszFile, texture.m_Data, pLoadError);
	});
}

CToolSceneMaterialRef CToolSceneResources::LoadMaterial(const char *pszPath, CUtlString *pError)
{
	PurgeMaterials();
	const CUtlString file = ResolvePath(pszPath ? pszPath : "");
	const uint64 stamp = FileStamp(file);
	if (auto it = m_Materials.find(file); it != m_Materials.end())
	{
		if (it->second->m_nStamp == stamp && it->second->m_bLoaded)
			return CToolSceneMaterialRef(it->second);
		it->second->Release();
		m_Materials.erase(it);
	}

	CToolSceneMaterial *pMaterial = new CToolSceneMaterial;
	pMaterial->m_Path = pszPath ? pszPath : "";
	pMaterial->m_nStamp = stamp;
	CUtlString error;
	if (!pszPath || !*pszPath)
		error = "no material named";
	else if (!LoadCompiledMaterial(file.c_str(), pMaterial->m_Data, &error))
		Log_Warning(LOG_TOOLSCENE, "Cannot load material '%s': %s\n", pszPath, error.c_str());
	else
	{
		pMaterial->m_bLoaded = true;
		const CCompiledMaterial &data = pMaterial->m_Data;
		if (const char *pColor = data.FindTexture(CToolSceneMaterial::KEY_COLOR))
			pMaterial->m_pColor = LoadTexture(pColor);
		if (const char *pNormal = data.FindTexture(CToolSceneMaterial::KEY_NORMAL))
			pMaterial->m_pNormal = LoadTexture(pNormal);
		if (const char *pTranslucency = data.FindTexture(CToolSceneMaterial::KEY_TRANSLUCENCY))
			pMaterial->m_pTranslucency = LoadTexture(pTranslucency);
		if (const CompiledMaterialConstant_t *pConstant = data.FindConstant(CToolSceneMaterial::KEY_COLOR))
		{
			if (pConstant->m_eType == COMPILED_CONSTANT_FLOAT)
			{
				pMaterial->m_vColorConstant = Vector4D(SRGBChannel(pConstant->m_flValues[0]), SRGBChannel(pConstant->m_flValues[1]),
					SRGBChannel(pConstant->m_flValues[2]), 1.0f);
			}
		}
		bool bAlphaTest = (data.m_nFlags & COMPILED_MATERIAL_FLAG_ALPHA_TEST) != 0;
		if (const CompiledMaterialConstant_t *pFlag = data.FindConstant(CToolSceneMaterial::KEY_ALPHA_TEST))
		{
			bAlphaTest = bAlphaTest ||
				(pFlag->m_eType == COMPILED_CONSTANT_INT ? pFlag->m_nValues[0] != 0 : pFlag->m_flValues[0] != 0.0f);
		}
		pMaterial->m_bAlphaTest = bAlphaTest;
	}
	if (pError)
		*pError = error;
	pMaterial->AddRef(); // the cache's reference
	m_Materials[file] = pMaterial;
	return CToolSceneMaterialRef(pMaterial);
}

void CToolSceneResources::PurgeMaterials()
{
	for (auto it = m_Materials.begin(); it != m_Materials.end();)
	{
		if (it->second->GetRefCount() == 1)
		{
			it->second->Release();
			it = m_Materials.erase(it);
		}
		else
			++it;
	}
}

void CToolSceneResources::Flush()
{
	m_Models.clear();
	m_Textures.clear();
	for (auto &entry : m_Materials)
		entry.second->Release();
	m_Materials.clear();
}
