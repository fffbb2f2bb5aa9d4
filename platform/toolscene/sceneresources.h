// The compiled assets a scene draws: models (".zmdl_c"), their materials (".zmat_c") and the
// textures these name (".ztex_c"), read with the one loader of compiledassets and kept while
// anything uses them.
//
// Resource paths are relative to the game root ("models/editor/camera.zmdl"); a path that does
// not end in "_c" names its source, and the compiled file beside it is read
// ("models/editor/camera.zmdl_c"). They resolve, in this order: an absolute path as it stands;
// under the game root set with SetGameRoot; through the tool file system's "GAME" search path
// when one is installed; as it stands. A cached asset is read again when its file changed (time
// or size), so a recompiled model shows on its next load.
//
// Materials are handed out as counted references (CToolSceneMaterialRef): the render layer
// holds them across frames, so the count is atomic.
#pragma once

#include <atomic>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "compiledassets/compiledassets.h"
#include "core/logging.h"
#include "core/mathtypes.h"
#include "core/utlstring.h"

DECLARE_LOGGING_CHANNEL(LOG_TOOLSCENE);

class CToolSceneResources;

// A compiled texture in memory. The renderer uploads it once per GL context.
class CToolSceneTexture
{
public:
	const CUtlString &GetPath() const { return m_Path; }
	const CCompiledTexture &GetData() const { return m_Data; }
	// Distinct for every texture loaded in this process (the renderer's cache key).
	uint64 GetSerial() const { return m_nSerial; }
	bool IsSRGB() const { return (m_Data.m_nFlags & COMPILED_TEXTURE_FLAG_SRGB) != 0; }
	bool IsYCoCg() const { return (m_Data.m_nFlags & COMPILED_TEXTURE_FLAG_YCOCG) != 0; }

private:
	friend class CToolSceneResources;
	CUtlString m_Path;
	CCompiledTexture m_Data;
	uint64 m_nSerial = 0;
};

// A material as the scene draws it: a colour texture or a constant colour, a normal map, a
// translucency texture for alpha testing, and the flags of the compiled material.
class CToolSceneMaterial
{
public:
	// The material keys the scene reads.
	static constexpr const char *KEY_COLOR = "TextureColor";
	static constexpr const char *KEY_NORMAL = "TextureNormal";
	static constexpr const char *KEY_TRANSLUCENCY = "TextureTranslucency";
	static constexpr const char *KEY_ALPHA_TEST = "F_ALPHA_TEST";

	void AddRef() const { m_nRefCount.fetch_add(1, std::memory_order_relaxed); }
	// Deletes the material when the last reference goes.
	void Release() const;
	int GetRefCount() const { return m_nRefCount.load(std::memory_order_acquire); }

	const CUtlString &GetPath() const { return m_Path; }
	// False when the file was missing or damaged: the material draws as plain grey.
	bool IsLoaded() const { return m_bLoaded; }
	const CCompiledMaterial &GetData() const { return m_Data; }

	const CToolSceneTexture *GetColorTexture() const { return m_pColor.get(); }
	const CToolSceneTexture *GetNormalTexture() const { return m_pNormal.get(); }
	const CToolSceneTexture *GetTranslucencyTexture() const { return m_pTranslucency.get(); }
	// The colour where no colour texture is given, as stored (sRGB, 0 to 1): a constant in
	// brackets in the source material, otherwise grey.
	const Vector4D &GetColorConstant() const { return m_vColorConstant; }

	// Alpha testing comes from the translucency texture (its red channel) or, without one,
	// from the colour's alpha; pixels under one half are dropped.
	bool IsAlphaTested() const { return m_bAlphaTest; }
	bool IsTranslucent() const { return (m_Data.m_nFlags & COMPILED_MATERIAL_FLAG_TRANSLUCENT) != 0; }
	bool IsAdditive() const { return (m_Data.m_nFlags & COMPILED_MATERIAL_FLAG_ADDITIVE) != 0; }
	bool IsTwoSided() const { return (m_Data.m_nFlags & COMPILED_MATERIAL_FLAG_TWO_SIDED) != 0; }

private:
	friend class CToolSceneResources;
	CToolSceneMaterial() = default;
	~CToolSceneMaterial() = default;

	mutable std::atomic<int> m_nRefCount { 0 };
	CUtlString m_Path;
	bool m_bLoaded = false;
	bool m_bAlphaTest = false;
	CCompiledMaterial m_Data;
	std::shared_ptr<const CToolSceneTexture> m_pColor;
	std::shared_ptr<const CToolSceneTexture> m_pNormal;
	std::shared_ptr<const CToolSceneTexture> m_pTranslucency;
	Vector4D m_vColorConstant = Vector4D(0.5f, 0.5f, 0.5f, 1.0f);
	uint64 m_nStamp = 0;
};

// A counted reference to a material; empty when null.
class CToolSceneMaterialRef
{
public:
	CToolSceneMaterialRef() = default;
	explicit CToolSceneMaterialRef(const CToolSceneMaterial *pMaterial) : m_pMaterial(pMaterial)
	{
		if (m_pMaterial)
			m_pMaterial->AddRef();
	}
	CToolSceneMaterialRef(const CToolSceneMaterialRef &other) : CToolSceneMaterialRef(other.m_pMaterial) {}
	CToolSceneMaterialRef(CToolSceneMaterialRef &&other) noexcept : m_pMaterial(other.m_pMaterial) { other.m_pMaterial = nullptr; }
	CToolSceneMaterialRef &operator=(const CToolSceneMaterialRef &other)
	{
		CToolSceneMaterialRef copy(other);
		std::swap(m_pMaterial, copy.m_pMaterial);
		return *this;
	}
	CToolSceneMaterialRef &operator=(CToolSceneMaterialRef &&other) noexcept
	{
		std::swap(m_pMaterial, other.m_pMaterial);
		return *this;
	}
	~CToolSceneMaterialRef()
	{
		if (m_pMaterial)
			m_pMaterial->Release();
	}

	const CToolSceneMaterial *Get() const { return m_pMaterial; }
	const CToolSceneMaterial *operator->() const { return m_pMaterial; }
	explicit operator bool() const { return m_pMaterial != nullptr; }

private:
	const CToolSceneMaterial *m_pMaterial = nullptr;
};

// A compiled model with its materials.
class CToolSceneModel
{
public:
	const CUtlString &GetPath() const { return m_Path; }
	const CCompiledModel &GetData() const { return m_Data; }
	uint64 GetSerial() const { return m_nSerial; }
	int GetMaterialCount() const { return (int)m_Materials.size(); }
	// The material of an index of the model's list (a material that failed to load draws grey).
	const CToolSceneMaterial *GetMaterial(int nIndex) const;

private:
	friend class CToolSceneResources;
	CUtlString m_Path;
	CCompiledModel m_Data;
	std::vector<CToolSceneMaterialRef> m_Materials;
	uint64 m_nSerial = 0;
};

class CToolSceneResources
{
public:
	CToolSceneResources() = default;
	~CToolSceneResources();
	CToolSceneResources(const CToolSceneResources &) = delete;
	CToolSceneResources &operator=(const CToolSceneResources &) = delete;

	// The resources that scenes use unless they are given others.
	static CToolSceneResources &Default();

	// The folder that holds the compiled assets ("<root>/game/<mod>"); empty goes through the
	// tool file system's "GAME" search path.
	void SetGameRoot(const char *pszFolder);
	const CUtlString &GetGameRoot() const { return m_GameRoot; }

	// The compiled file a resource path names, resolved to a file path (see the top of this file).
	CUtlString ResolvePath(std::string_view path) const;

	// Null with a message when the file is missing or damaged.
	std::shared_ptr<const CToolSceneModel> LoadModel(const char *pszPath, CUtlString *pError = nullptr);
	std::shared_ptr<const CToolSceneTexture> LoadTexture(const char *pszPath, CUtlString *pError = nullptr);
	// Always a material: one that failed to load is empty (IsLoaded false) and draws grey.
	CToolSceneMaterialRef LoadMaterial(const char *pszPath, CUtlString *pError = nullptr);

	// Forgets every cached asset (those in use stay alive with their users).
	void Flush();
	int GetCachedMaterialCount() const { return (int)m_Materials.size(); }

private:
	template<typename T>
	struct CacheEntry_t
	{
		std::weak_ptr<const T> m_pAsset;
		uint64 m_nStamp = 0;
	};
	// The asset of a file from the cache while the file is unchanged, otherwise read by `load`.
	template<typename T, typename Load>
	std::shared_ptr<const T> LoadThroughCache(std::unordered_map<CUtlString, CacheEntry_t<T>> &cache, const char *pszPath, const char *pszKind,
		CUtlString *pError, Load load);
	// Time and size of a file, folded into one number (0 when it does not exist).
	static uint64 FileStamp(const CUtlString &path);
	// Drops materials that only the cache holds.
	void PurgeMaterials();

	CUtlString m_GameRoot;
	std::unordered_map<CUtlString, CacheEntry_t<CToolSceneModel>> m_Models;
	std::unordered_map<CUtlString, CacheEntry_t<CToolSceneTexture>> m_Textures;
	std::unordered_map<CUtlString, const CToolSceneMaterial *> m_Materials; // the cache holds one reference
};
