#include "mintyardtoolutils/core/cfgelements.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>

#include "core/fileio.h"
#include "core/keyvalues.h"
#include "core/logging.h"
#include "core/strtools.h"
#include "filesystem/filesystem.h"
#include "imaging/imageload.h"
#include "toolframework/convar.h"
#include "mintyardtoolutils/core/cfgelementlists.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/core/templateaccess.h"

int CMintyardCfgElement::s_nSuppressNotifications = 0;

namespace
{
bool FileExistsOnDisk(const CUtlString &path)
{
	return CoreFileSystem()->FileExists(path.c_str(), nullptr);
}

// The path to open: an absolute path as it stands, a relative one as the file system finds it.
CUtlString ResolveForReading(const CUtlString &path)
{
	if (path.empty() || path[0] == '/')
		return path;
	if (IFileSystem *pFileSystem = dynamic_cast<IFileSystem *>(CoreFileSystem()))
	{
		char buffer[4096];
		if (pFileSystem->RelativePathToFullPath(path.c_str(), nullptr, buffer, sizeof(buffer)))
			return buffer;
	}
	return path;
}

// Size in bytes, 0 when the file is missing.
uint64 FileSizeOnDisk(const CUtlString &path)
{
	struct stat st;
	if (stat(ResolveForReading(path).c_str(), &st) != 0 || !S_ISREG(st.st_mode))
		return 0;
	return (uint64)st.st_size;
}

bool IsMeshExtension(const CUtlString &ext)
{
	return V_StrEqualNoCase(ext, "fbx") || V_StrEqualNoCase(ext, "dmx");
}

bool ReadFloat3(const KeyValues3 *pTable, const char *pszKey, float *pOut, ImportMessageList &list)
{
	const KeyValues3 *pValue = FindMember(pTable, pszKey);
	if (!pValue)
	{
		list.AddError("#ZARN_Mintyard_Err_Misc", pszKey);
		return false;
	}
	ReadFloats(pValue, 3, pOut);
	return true;
}

// Pushes an id on the context's stack for the life of the object.
class CIdStackScope
{
public:
	CIdStackScope(SaveContext &ctx, const CUtlString &id) : m_Ctx(ctx), m_nDepth(ctx.idStack.size())
	{
		ctx.idStack.push_back(id);
	}
	~CIdStackScope() { m_Ctx.idStack.resize(m_nDepth); }

private:
	SaveContext &m_Ctx;
	size_t m_nDepth;
};

template <typename T> void DeleteAll(CUtlVector<T *> &elements)
{
	for (T *p : elements)
		delete p;
	elements.clear();
}
} // namespace

CUtlString GetPathExtension(const char *pszPath)
{
	if (!pszPath)
		return CUtlString();
	const char *pszSlash = strrchr(pszPath, '/');
	const char *pszBackslash = strrchr(pszPath, '\\');
	const char *pszName = pszPath;
	if (pszSlash && pszSlash + 1 > pszName)
		pszName = pszSlash + 1;
	if (pszBackslash && pszBackslash + 1 > pszName)
		pszName = pszBackslash + 1;
	const char *pszDot = strrchr(pszName, '.');
	return pszDot ? CUtlString(pszDot + 1) : CUtlString();
}

// ---------------------------------------------------------------------------------------------
// CMintyardCfgElement

CMintyardCfgElement::CMintyardCfgElement(CMintyardCfgElementContainer *pParent, const CMintyardTemplateElement *pTemplateElement)
	: m_pParent(pParent), m_pTemplateElement(pTemplateElement)
{
	if (m_pParent)
		m_pParent->m_Children.push_back(this);
}

CMintyardCfgElement::~CMintyardCfgElement()
{
	if (m_pParent)
	{
		CUtlVector<CMintyardCfgElement *> &siblings = m_pParent->m_Children;
		auto it = std::find(siblings.begin(), siblings.end(), this);
		if (it != siblings.end())
			siblings.erase(it);
	}
}

bool CMintyardCfgElement::GetExpressionProperty(const char *, CUtlString &out) const
{
	out.clear();
	return false;
}

const CUtlString &CMintyardCfgElement::GetTemplateId() const
{
	return TemplateId(m_pTemplateElement);
}

const char *CMintyardCfgElement::TemplateName() const
{
	return TemplateNameToken(m_pTemplateElement).c_str();
}

CMintyardImportSession *CMintyardCfgElement::GetRootSession() const
{
	const CMintyardCfgElement *pTop = this;
	while (pTop->m_pParent)
		pTop = pTop->m_pParent;
	return const_cast<CMintyardCfgElement *>(pTop)->AsSession();
}

CMintyardCfg_ZarnModel *CMintyardCfgElement::GetParentModel() const
{
	for (CMintyardCfgElementContainer *p = m_pParent; p; p = p->GetParent())
	{
		if (CMintyardCfg_ZarnModel *pModel = dynamic_cast<CMintyardCfg_ZarnModel *>(p))
			return pModel;
	}
	return nullptr;
}

void CMintyardCfgElement::ReportChange()
{
	if (s_nSuppressNotifications >= 1)
		return;
	for (CMintyardCfgElementContainer *p = m_pParent; p; p = p->GetParent())
		p->OnChildChanged(this);
}

void CMintyardCfgElement::SetChangeNotificationsSuppressed(bool bSuppressed)
{
	s_nSuppressNotifications += bSuppressed ? 1 : -1;
}

bool CMintyardCfgElement::AreChangeNotificationsSuppressed()
{
	return s_nSuppressNotifications >= 1;
}

int CMintyardCfgElement::GetSuppressionCount()
{
	return s_nSuppressNotifications;
}

bool CMintyardCfgElement::IsExcusedByOptional() const
{
	for (const CMintyardCfgElement *p = this; p && p->m_pParent; p = p->m_pParent)
	{
		if (p->IsEmpty() && TemplateOptional(p->m_pTemplateElement))
			return true;
	}
	return false;
}

// ---------------------------------------------------------------------------------------------
// Containers

CMintyardCfgElementContainer::CMintyardCfgElementContainer(CMintyardCfgElementContainer *pParent, const CMintyardTemplateElement *pTemplateElement)
	: CMintyardCfgElement(pParent, pTemplateElement)
{
}

CMintyardCfgElementContainer::~CMintyardCfgElementContainer()
{
	// Children still listed belong to typed lists that were not freed; detach them so that
	// they do not reach back into a destroyed parent.
	for (CMintyardCfgElement *pChild : m_Children)
		pChild->m_pParent = nullptr;
	m_Children.clear();
}

bool CMintyardCfgElementContainer::IsEmpty() const
{
	for (const CMintyardCfgElement *pChild : m_Children)
	{
		if (!pChild->IsEmpty())
			return false;
	}
	return true;
}
// ---------------------------------------------------------------------------------------------
// Strings

void CMintyardCfgString::SetValue(const char *pszText)
{
	m_Value = pszText ? pszText : "";
	ReportChange();
}

void CMintyardCfgString::Validate(ImportMessageList &list, bool) const
{
	if (!m_Value.empty())
		return;
	if (IsExcusedByOptional())
		return;
	list.AddWarning("#ZARN_Mintyard_Err_MissingInput", TemplateName());
}

bool CMintyardCfgSafeString::IsSafeText(const char *pszText)
{
	if (!pszText || !*pszText)
		return false;
	for (const char *p = pszText; *p; ++p)
	{
		const char c = *p;
		if (!((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_'))
			return false;
	}
	return true;
}

void CMintyardCfgSafeString::Validate(ImportMessageList &list, bool bRelaxed) const
{
	CMintyardCfgString::Validate(list, bRelaxed);
	if (!IsSafeText(m_Value.c_str()))
		list.AddError("#ZARN_Mintyard_Err_InvalidChars", TemplateName());
}

// ---------------------------------------------------------------------------------------------
// File inputs

void CMintyardCfgFilename::SetValue(const char *pszText)
{
	m_Value = pszText ? pszText : "";
	ReportChange();
}

void CMintyardCfgFilename::ValidateFile(ImportMessageList &list) const
{
	if (!m_Value.empty())
	{
		if (!FileExistsOnDisk(m_Value))
			list.AddError("#ZARN_Mintyard_Err_NonexistentFile", TemplateName());
		const int nLimitKB = TemplateMaxFileSizeKB(GetTemplateElement());
		if (nLimitKB >= 1)
		{
			const uint64 nSizeKB = FileSizeOnDisk(m_Value) / 1024;
			if (nSizeKB >= (uint64)nLimitKB)
			{
				list.AddWarning("#ZARN_Mintyard_Err_FileTooBig", TemplateName(), V_Format("%llu", (unsigned long long)nSizeKB).c_str(),
					V_Format("%d", nLimitKB).c_str());
			}
		}
		return;
	}
	if (IsExcusedByOptional())
		return;
	if (IsHardRequired())
		list.AddError("#ZARN_Mintyard_Err_MissingInput", TemplateName());
	else
		list.AddWarning("#ZARN_Mintyard_Err_MissingInput", TemplateName());
}

void CMintyardCfgFilename::Validate(ImportMessageList &list, bool) const
{
	ValidateFile(list);
}

void CMintyardCfgFilename::SaveFileKey(SaveContext &ctx, KeyValues3 *pTable, const char *pszKey) const
{
	if (!ctx.isZip || m_Value.empty())
	{
		SetMemberString(pTable, pszKey, ctx.isZip ? "" : m_Value);
		return;
	}
	CUtlString zipName;
	for (const CUtlString &id : ctx.idStack)
	{
		zipName += id;
		zipName += "/";
	}
	zipName += GetTemplateId();
	zipName += ".";
	zipName += GetPathExtension(m_Value.c_str());
	ctx.files.push_back(MintyardSubmitFile_t{ m_Value, zipName });
	SetMemberString(pTable, pszKey, zipName);
}

void CMintyardCfgFilename::LoadFileKey(const LoadContext &ctx, const KeyValues3 *pTable, const char *pszKey)
{
	CUtlString text;
	ReadString(FindMember(pTable, pszKey), text);
	// Made absolute against the base path: a path that is absolute already stays as it is.
	if (ctx.rewritePaths && !text.empty() && text[0] != '/')
	{
		CUtlString joined = ctx.basePath;
		if (!joined.empty() && joined.back() != '/')
			joined += "/";
		joined += text;
		text = std::filesystem::path(joined).lexically_normal().string();
	}
	m_Value = text;
	ReportChange();
}

bool CMintyardCfgFilename::SaveToKV3(SaveContext &ctx, KeyValues3 *pTable, ImportMessageList &) const
{
	SaveFileKey(ctx, pTable, "source_filename");
	return true;
}

bool CMintyardCfgFilename::LoadFromKV3(const LoadContext &ctx, const KeyValues3 *pTable, ImportMessageList &)
{
	LoadFileKey(ctx, pTable, "source_filename");
	return true;
}

// ---------------------------------------------------------------------------------------------
// Meshes

CMintyardCfg_ZarnMesh::~CMintyardCfg_ZarnMesh()
{
	DeleteAll(m_ExtraMeshes);
}

void CMintyardCfg_ZarnMesh::Validate(ImportMessageList &list, bool bRelaxed) const
{
	if (!bRelaxed && !m_Value.empty() && !IsMeshExtension(GetPathExtension(m_Value.c_str())))
		list.AddError("#ZARN_Mintyard_Err_InvalidFileType", TemplateName());
	ValidateFile(list);
}

bool CMintyardCfg_ZarnMesh::SaveToKV3(SaveContext &ctx, KeyValues3 *pTable, ImportMessageList &list) const
{
	SaveFileKey(ctx, pTable, "source_filename");
	return SaveCfgElementList(ctx, pTable, "extra_meshes", m_ExtraMeshes, list);
}

bool CMintyardCfg_ZarnMesh::LoadFromKV3(const LoadContext &ctx, const KeyValues3 *pTable, ImportMessageList &list)
{
	LoadFileKey(ctx, pTable, "source_filename");
	return LoadCfgElementList(ctx, pTable, "extra_meshes", m_ExtraMeshes, list);
}

// ---------------------------------------------------------------------------------------------
// Animations

void CMintyardCfg_ZarnModel::CAnim::Validate(ImportMessageList &list, bool bRelaxed) const
{
	if (!m_Value.empty())
	{
		if (!FileExistsOnDisk(m_Value))
			list.AddError("#ZARN_Mintyard_Err_NonexistentFile", TemplateName());
		else if (!bRelaxed && !IsMeshExtension(GetPathExtension(m_Value.c_str())))
			list.AddError("#ZARN_Mintyard_Err_InvalidFileType", TemplateName());
		return;
	}
	if (GetDefaultFile(this, nullptr))
		return;
	if (IsExcusedByOptional())
		return;
	list.AddWarning("#ZARN_Mintyard_Err_MissingInput", TemplateName());
}

bool GetDefaultFile(const CMintyardCfg_ZarnModel::CAnim *pAnim, CUtlString *pOut)
{
	if (pOut)
		pOut->clear();
	if (!pAnim)
		return false;
	const CUtlString &def = AnimDefault(pAnim->GetAnimTemplate());
	if (def.empty())
		return false;
	const CMintyardCfg_ZarnModel *pModel = pAnim->GetParentModel();
	if (pModel && pModel->m_bHasCustomSkeleton)
		return false;
	if (pOut)
		*pOut = def;
	return true;
}

bool IsAnimAbsent(const CMintyardCfg_ZarnModel::CAnim *pAnim)
{
	if (!pAnim)
		return true;
	if (!pAnim->Value().empty())
		return false;
	const CUtlString &fallback = AnimFallbackId(pAnim->GetAnimTemplate());
	if (!fallback.empty())
	{
		if (CMintyardImportSession *pSession = pAnim->GetRootSession())
		{
			const auto *pOther = dynamic_cast<const CMintyardCfg_ZarnModel::CAnim *>(FindElement(pSession, fallback.c_str()));
			if (pOther && !pOther->Value().empty())
				return false;
		}
	}
	// A default applies without a model above as well as under one without its own skeleton.
	if (!AnimDefault(pAnim->GetAnimTemplate()).empty())
	{
		const CMintyardCfg_ZarnModel *pModel = pAnim->GetParentModel();
		if (!pModel || !pModel->m_bHasCustomSkeleton)
			return false;
	}
	return true;
}

bool IsBundleAbsent(const CMintyardCfg_ZarnModel::CAnimBundle *pBundle)
{
	if (!pBundle)
		return true;
	for (const CMintyardCfg_ZarnModel::CAnim *pAnim : pBundle->m_Anims)
	{
		if (!IsAnimAbsent(pAnim))
			return false;
	}
	return true;
}

CMintyardCfg_ZarnModel::CAnimBundle::CAnimBundle(CMintyardCfgElementContainer *pParent, const CMintyardTemplate_ZarnModel::CAnimBundle *pTemplate)
	: CMintyardCfgElementContainer(pParent, pTemplate)
{
}

CMintyardCfg_ZarnModel::CAnimBundle::~CAnimBundle()
{
	DeleteAll(m_Anims);
}

bool CMintyardCfg_ZarnModel::CAnimBundle::SaveToKV3(SaveContext &ctx, KeyValues3 *pTable, ImportMessageList &list) const
{
	CIdStackScope scope(ctx, GetTemplateId());
	return SaveCfgElementList(ctx, pTable, "anim_list", m_Anims, list);
}

bool CMintyardCfg_ZarnModel::CAnimBundle::LoadFromKV3(const LoadContext &ctx, const KeyValues3 *pTable, ImportMessageList &list)
{
	return LoadCfgElementList(ctx, pTable, "anim_list", m_Anims, list);
}

// ---------------------------------------------------------------------------------------------
// Attachments

CMintyardCfg_ZarnModel::CAttach::CAttach(CMintyardCfgElementContainer *pParent, const CMintyardTemplate_ZarnModel::CAttach *pTemplate)
	: CMintyardCfgString(pParent, pTemplate)
{
	m_Value = AttachDefaultJoint(pTemplate);
	AttachDefaultOffset(pTemplate, m_flOffset);
	AttachDefaultRotation(pTemplate, m_flRotation);
}

bool CMintyardCfg_ZarnModel::CAttach::SaveToKV3(SaveContext &, KeyValues3 *pTable, ImportMessageList &) const
{
	SetMemberString(pTable, "attach_joint", m_Value);
	SetFloats(AddMember(pTable, "attach_offset"), 3, m_flOffset);
	SetFloats(AddMember(pTable, "attach_rotation"), 3, m_flRotation);
	return true;
}

bool CMintyardCfg_ZarnModel::CAttach::LoadFromKV3(const LoadContext &, const KeyValues3 *pTable, ImportMessageList &list)
{
	ReadString(FindMember(pTable, "attach_joint"), m_Value);
	if (!ReadFloat3(pTable, "attach_offset", m_flOffset, list))
		return false;
	if (!ReadFloat3(pTable, "attach_rotation", m_flRotation, list))
		return false;
	ReportChange();
	return true;
}

// ---------------------------------------------------------------------------------------------
// Materials

CMintyardCfg_ZarnMaterial::CMintyardCfg_ZarnMaterial(CMintyardCfgElementContainer *pParent, const CMintyardTemplate_ZarnMaterial *pTemplate)
	: CMintyardCfgElementContainer(pParent, pTemplate)
{
	for (int i = 0; i < TEXTURE_COUNT; ++i)
		m_pTextures[i] = new CMintyardCfgFilename(this, MaterialTexture(pTemplate, i));
}

CMintyardCfg_ZarnMaterial::~CMintyardCfg_ZarnMaterial()
{
	for (CMintyardCfgFilename *&pTexture : m_pTextures)
	{
		delete pTexture;
		pTexture = nullptr;
	}
}

bool CMintyardCfg_ZarnMaterial::SaveToKV3(SaveContext &ctx, KeyValues3 *pTable, ImportMessageList &) const
{
	CIdStackScope scope(ctx, GetTemplateId());
	for (const CMintyardCfgFilename *pTexture : m_pTextures)
		pTexture->SaveFileKey(ctx, pTable, V_Format("texture_%s", pTexture->GetTemplateId().c_str()).c_str());
	return true;
}

bool CMintyardCfg_ZarnMaterial::LoadFromKV3(const LoadContext &ctx, const KeyValues3 *pTable, ImportMessageList &)
{
	for (CMintyardCfgFilename *pTexture : m_pTextures)
		pTexture->LoadFileKey(ctx, pTable, V_Format("texture_%s", pTexture->GetTemplateId().c_str()).c_str());
	return true;
}

// ---------------------------------------------------------------------------------------------
// Models

CMintyardCfg_BaseZarnModel::CMintyardCfg_BaseZarnModel(CMintyardCfgElementContainer *pParent, const CMintyardTemplate_BaseZarnModel *pTemplate)
	: CMintyardCfgElementContainer(pParent, pTemplate)
{
	// A template may start the portrait from one the game has for a model of the kind.
	if (pTemplate && !pTemplate->default_portrait_model.empty())
	{
		if (KeyValues *pPortrait = FindGamePortrait(pTemplate->default_portrait_model.c_str()))
			m_PortraitRecord.ReadKeys(pPortrait);
	}
}

CUtlString CMintyardCfg_BaseZarnModel::GetModelBasePath() const
{
	CMintyardImportSession *pSession = GetRootSession();
	const CUtlString name = pSession ? pSession->GetNameElement()->GetValue() : CUtlString();
	const CMintyardTemplate *pTemplate = pSession ? pSession->GetTemplate() : nullptr;
	const CUtlString directory = pTemplate ? TemplateDirectory(pTemplate) : CUtlString();
	return V_Format("items/%s/%s/%s%s", directory.c_str(), name.c_str(), name.c_str(), GetModelNameSuffix());
}

CUtlString CMintyardCfg_BaseZarnModel::GetZmdlName() const
{
	return V_Format("models/%s.zmdl", GetModelBasePath().c_str());
}

bool CMintyardCfg_BaseZarnModel::GetExpressionProperty(const char *pszName, CUtlString &out) const
{
	if (V_stricmp(pszName, "zmdl_name") == 0)
	{
		out = GetZmdlName();
		return true;
	}
	if (V_stricmp(pszName, "zmdl_name_or_empty") == 0)
	{
		if (IsEmpty())
			out.clear();
		else
			out = GetZmdlName();
		return true;
	}
	return CMintyardCfgElementContainer::GetExpressionProperty(pszName, out);
}

CMintyardCfg_ZarnModel::CMintyardCfg_ZarnModel(CMintyardCfgElementContainer *pParent, const CMintyardTemplate_ZarnModel *pTemplate)
	: CMintyardCfg_BaseZarnModel(pParent, pTemplate)
{
}

CMintyardCfg_ZarnModel::~CMintyardCfg_ZarnModel()
{
	DeleteAll(m_Lods);
	DeleteAll(m_Materials);
	DeleteAll(m_Anims);
	DeleteAll(m_Bundles);
	DeleteAll(m_Attaches);
	DeleteAll(m_Snapshots);
}

const char *CMintyardCfg_ZarnModel::GetModelNameSuffix() const
{
	return ModelNameSuffix(GetModelTemplate()).c_str();
}

CUtlString CMintyardCfg_ZarnModel::GetMeshName(int nLevel, int nExtraIndex) const
{
	const ConVar *pVar = CVar() ? CVar()->FindVar("zarn_mintyard_legacy_model_import") : nullptr;
	const bool bLegacy = pVar && pVar->GetString()[0] != '\0';
	CUtlString out;
	if (!bLegacy)
	{
		CMintyardImportSession *pSession = GetRootSession();
		out = pSession ? pSession->GetNameElement()->GetValue() : CUtlString();
		out += GetModelNameSuffix();
		if (nLevel != 0)
			V_AppendFormat(out, "_lod%d", nLevel);
		if (nExtraIndex >= 0)
			V_AppendFormat(out, "_extra%d", nExtraIndex);
		return out;
	}
	if (nLevel != 0)
		out = V_Format("models/%s_lod%d", GetModelBasePath().c_str(), nLevel);
	else
		out = V_Format("models/%s", GetModelBasePath().c_str());
	if (nExtraIndex >= 0)
		V_AppendFormat(out, "_extra%d", nExtraIndex);
	out += ".zmesh";
	return out;
}

bool CMintyardCfg_ZarnModel::GetExpressionProperty(const char *pszName, CUtlString &out) const
{
	const bool bPortrait = V_stricmp(pszName, "portrait_lod_mesh") == 0;
	const bool bPortraitExtra = V_stricmp(pszName, "portrait_lod_mesh_extra0") == 0;
	if (bPortrait || bPortraitExtra)
	{
		if (m_Lods.empty() || m_Lods[0]->IsEmpty())
			out.clear();
		else
			out = GetMeshName(0, bPortraitExtra ? 0 : -1);
		return true;
	}
	const bool bGame = V_stricmp(pszName, "game_lod_mesh") == 0;
	const bool bGameExtra = V_stricmp(pszName, "game_lod_mesh_extra0") == 0;
	if (bGame || bGameExtra)
	{
		if (m_Lods.size() < 2 || m_Lods[1]->IsEmpty())
			out.clear();
		else
			out = GetMeshName(m_Lods[0]->IsEmpty() ? 0 : 1, bGameExtra ? 0 : -1); // empty levels are not compiled
		return true;
	}
	return CMintyardCfg_BaseZarnModel::GetExpressionProperty(pszName, out);
}

bool CMintyardCfg_ZarnModel::SaveToKV3(SaveContext &ctx, KeyValues3 *pTable, ImportMessageList &list) const
{
	CIdStackScope scope(ctx, GetTemplateId());
	if (!SaveCfgElementList(ctx, pTable, "lod_list", m_Lods, list))
		return false;
	if (!SaveCfgElementList(ctx, pTable, "animation_list", m_Anims, list))
		return false;
	if (!SaveCfgElementList(ctx, pTable, "attach_list", m_Attaches, list))
		return false;
	if (!SaveCfgElementList(ctx, pTable, "material_list", m_Materials, list))
		return false;
	if (!SaveCfgElementList(ctx, pTable, "anim_bundles", m_Bundles, list))
		return false;
	if (!SaveCfgElementList(ctx, pTable, "particle_snapshots", m_Snapshots, list))
		return false;
	SetMemberBool(pTable, "has_custom_skeleton", m_bHasCustomSkeleton);
	m_PortraitRecord.WriteSession(AddMember(pTable, "portrait"));
	KeyValues3 *pWearables = AddMember(pTable, "selected_wearables");
	const size_t nWearables = std::min(m_WearableSlots.size(), m_WearableModels.size());
	ArrayResize(pWearables, (uint32)nWearables);
	for (size_t i = 0; i < nWearables; ++i)
	{
		KeyValues3 *pEntry = ArrayElement(pWearables, (uint32)i);
		MakeTable(pEntry);
		SetMemberString(pEntry, "slot", m_WearableSlots[i]);
		SetMemberString(pEntry, "model", m_WearableModels[i]);
	}
	return true;
}

bool CMintyardCfg_ZarnModel::LoadFromKV3(const LoadContext &ctx, const KeyValues3 *pTable, ImportMessageList &list)
{
	if (!LoadCfgElementList(ctx, pTable, "lod_list", m_Lods, list))
		return false;
	if (!LoadCfgElementList(ctx, pTable, "animation_list", m_Anims, list))
		return false;
	if (!LoadCfgElementList(ctx, pTable, "attach_list", m_Attaches, list))
		return false;
	if (!LoadCfgElementList(ctx, pTable, "material_list", m_Materials, list))
		return false;
	if (!LoadCfgElementList(ctx, pTable, "anim_bundles", m_Bundles, list))
		return false;
	if (!LoadCfgElementList(ctx, pTable, "particle_snapshots", m_Snapshots, list))
		return false;
	m_bHasCustomSkeleton = GetMemberBool(pTable, "has_custom_skeleton", false);
	if (const KeyValues3 *pPortrait = FindMember(pTable, "portrait"))
		m_PortraitRecord.ReadSession(pPortrait, list);
	if (const KeyValues3 *pWearables = FindMember(pTable, "selected_wearables"))
	{
		m_WearableSlots.clear();
		m_WearableModels.clear();
		const uint32 nCount = ArrayLength(pWearables);
		for (uint32 i = 0; i < nCount; ++i)
		{
			const KeyValues3 *pEntry = ArrayElement(pWearables, i);
			if (!pEntry || pEntry->IsNull())
				continue;
			m_WearableSlots.push_back(GetMemberString(pEntry, "slot", ""));
			m_WearableModels.push_back(GetMemberString(pEntry, "model", ""));
		}
	}
	return true;
}

// ---------------------------------------------------------------------------------------------
// Particle snapshots

CUtlString CMintyardCfg_ZarnModel::CParticleSnapshot::GetSnapshotPath() const
{
	const CMintyardCfg_ZarnModel *pModel = GetParentModel();
	const CUtlString base = pModel ? pModel->GetModelBasePath() : CUtlString();
	return V_Format("particles/models/%s%s.zsnap", base.c_str(), SnapshotFileSuffix(GetSnapshotTemplate()).c_str());
}

bool CMintyardCfg_ZarnModel::CParticleSnapshot::GetExpressionProperty(const char *pszName, CUtlString &out) const
{
	if (V_stricmp(pszName, "psf_name") == 0)
	{
		out = GetSnapshotPath();
		return true;
	}
	return CMintyardCfgFilename::GetExpressionProperty(pszName, out);
}

// ---------------------------------------------------------------------------------------------
// Image sets

CMintyardCfg_ZarnImageSet::CMintyardCfg_ZarnImageSet(CMintyardCfgElementContainer *pParent, const CMintyardTemplate_ZarnImageSet *pTemplate)
	: CMintyardCfgElementContainer(pParent, pTemplate)
{
}

CMintyardCfg_ZarnImageSet::~CMintyardCfg_ZarnImageSet()
{
	DeleteAll(m_Images);
	DeleteAll(m_Emoticons);
}

bool CMintyardCfg_ZarnImageSet::GetExpressionProperty(const char *pszName, CUtlString &out) const
{
	const bool bMin = V_stricmp(pszName, "emoticon_min_id") == 0;
	if (bMin || V_stricmp(pszName, "emoticon_max_id") == 0)
	{
		if (ImageSetType(GetImageSetTemplate()) != 2)
		{
			out.clear();
			return false;
		}
		out = V_Format("%d", bMin ? m_nEmoticonMinId : m_nEmoticonMaxId);
		return true;
	}
	if (V_stricmp(pszName, "cursor_output_dir") == 0)
	{
		CMintyardImportSession *pSession = GetRootSession();
		out = V_Format("resource/cursor/mintyard/%s", pSession ? pSession->GetNameElement()->GetValue().c_str() : "");
		return true;
	}
	return CMintyardCfgElementContainer::GetExpressionProperty(pszName, out);
}

bool CMintyardCfg_ZarnImageSet::SaveToKV3(SaveContext &ctx, KeyValues3 *pTable, ImportMessageList &list) const
{
	CIdStackScope scope(ctx, GetTemplateId());
	if (!SaveCfgElementList(ctx, pTable, "image_list", m_Images, list))
		return false;
	return SaveCfgElementList(ctx, pTable, "emoticon_image_list", m_Emoticons, list);
}

bool CMintyardCfg_ZarnImageSet::LoadFromKV3(const LoadContext &ctx, const KeyValues3 *pTable, ImportMessageList &list)
{
	if (!LoadCfgElementList(ctx, pTable, "image_list", m_Images, list))
		return false;
	return LoadCfgElementList(ctx, pTable, "emoticon_image_list", m_Emoticons, list);
}

bool CMintyardCfg_ZarnImageSet::CImage::GetExpressionProperty(const char *pszName, CUtlString &out) const
{
	if (V_stricmp(pszName, "canopy_name") == 0)
	{
		CMintyardImportSession *pSession = GetRootSession();
		out = V_Format("loadingscreens/%s/loadingscreen.ztex", pSession ? pSession->GetNameElement()->GetValue().c_str() : "");
		return true;
	}
	return CMintyardCfgFilename::GetExpressionProperty(pszName, out);
}

void CMintyardCfg_ZarnImageSet::CImage::Validate(ImportMessageList &list, bool) const
{
	ValidateFile(list);
	if (m_Value.empty())
		return;
	const CMintyardTemplate_ZarnImageSet::CImage *pTemplate = GetImageTemplate();
	const char *pszWanted = ImageType(pTemplate) == 1 ? "bmp" : "png";
	const CUtlString ext = GetPathExtension(m_Value.c_str());
	if (ext != pszWanted)
		list.AddError("#ZARN_Mintyard_Err_BadExtension", TemplateName(), ext.c_str(), pszWanted);
	ImageFileInfo_t info;
	if (!Image_ReadFileDeclaredSize(ResolveForReading(m_Value).c_str(), info))
	{
		list.AddError("#ZARN_Mintyard_Err_BadImageFile", TemplateName(), m_Value.c_str());
		return;
	}
	const int nWidth = ImageExactWidth(pTemplate), nHeight = ImageExactHeight(pTemplate);
	if (nWidth != -1 && info.nWidth != nWidth)
		list.AddWarning("#ZARN_Mintyard_Error_ImageExactWidth", TemplateName(), V_Format("%d", info.nWidth).c_str(), V_Format("%d", nWidth).c_str());
	if (nHeight != -1 && info.nHeight != nHeight)
		list.AddWarning("#ZARN_Mintyard_Error_ImageExactHeight", TemplateName(), V_Format("%d", info.nHeight).c_str(), V_Format("%d", nHeight).c_str());
}

void CMintyardCfg_ZarnImageSet::CEmoticonImage::Validate(ImportMessageList &list, bool) const
{
	ValidateFile(list);
	if (m_Value.empty())
		return;
	ImageFileInfo_t info;
	if (!Image_ReadFileDeclaredSize(ResolveForReading(m_Value).c_str(), info))
	{
		list.AddError("#ZARN_Mintyard_Err_BadImageFile", TemplateName(), m_Value.c_str());
		return;
	}
	if (info.nHeight != 32)
		list.AddWarning("#ZARN_Mintyard_Error_EmoticonHeight", TemplateName(), V_Format("%d", info.nHeight).c_str(), "32");
	if (info.nWidth % 32 != 0)
		list.AddWarning("#ZARN_Mintyard_Error_EmoticonWidth", TemplateName(), V_Format("%d", info.nWidth).c_str(), "32");
}

CMintyardCfg_ZarnImageSet::CEmoticon::CEmoticon(CMintyardCfgElementContainer *pParent, const CMintyardTemplate_ZarnImageSet::CEmoticon *pTemplate)
	: CMintyardCfgElementContainer(pParent, pTemplate)
{
	m_pImage = new CEmoticonImage(this, EmoticonImageTemplate(pTemplate));
	m_pKeyword = new CMintyardCfgString(this, EmoticonKeywordTemplate(pTemplate));
	m_pDefaultFrame = new CMintyardCfgString(this, EmoticonDefaultFrameTemplate(pTemplate));
}

CMintyardCfg_ZarnImageSet::CEmoticon::~CEmoticon()
{
	delete m_pImage;
	delete m_pKeyword;
	delete m_pDefaultFrame;
}

bool CMintyardCfg_ZarnImageSet::CEmoticon::SaveToKV3(SaveContext &ctx, KeyValues3 *pTable, ImportMessageList &) const
{
	// The image is named after the emoticon inside the zip: "<set>/<emoticon>.<ext>".
	if (!ctx.isZip || m_pImage->Value().empty())
		SetMemberString(pTable, "emoticon_image", ctx.isZip ? "" : m_pImage->Value());
	else
	{
		CUtlString zipName;
		for (const CUtlString &id : ctx.idStack)
			zipName += id + "/";
		zipName += GetTemplateId() + "." + GetPathExtension(m_pImage->Value().c_str());
		ctx.files.push_back(MintyardSubmitFile_t{ m_pImage->Value(), zipName });
		SetMemberString(pTable, "emoticon_image", zipName);
	}
	SetMemberString(pTable, "emoticon_keyword", m_pKeyword->Value());
	SetMemberString(pTable, "emoticon_default_frame", m_pDefaultFrame->Value());
	return true;
}

bool CMintyardCfg_ZarnImageSet::CEmoticon::LoadFromKV3(const LoadContext &ctx, const KeyValues3 *pTable, ImportMessageList &)
{
	m_pImage->LoadFileKey(ctx, pTable, "emoticon_image");
	m_pKeyword->SetValue(GetMemberString(pTable, "emoticon_keyword", ""));
	m_pDefaultFrame->SetValue(GetMemberString(pTable, "emoticon_default_frame", ""));
	return true;
}

// ---------------------------------------------------------------------------------------------
// Sound sets, loose strings, item definitions

CMintyardCfg_ZarnSoundSet::CMintyardCfg_ZarnSoundSet(CMintyardCfgElementContainer *pParent, const CMintyardTemplate_ZarnSoundSet *pTemplate)
	: CMintyardCfgElementContainer(pParent, pTemplate)
{
}

CMintyardCfg_ZarnSoundSet::~CMintyardCfg_ZarnSoundSet()
{
	DeleteAll(m_Sounds);
}

bool CMintyardCfg_ZarnSoundSet::SaveToKV3(SaveContext &ctx, KeyValues3 *pTable, ImportMessageList &list) const
{
	CIdStackScope scope(ctx, GetTemplateId());
	return SaveCfgElementList(ctx, pTable, "sound_list", m_Sounds, list);
}

bool CMintyardCfg_ZarnSoundSet::LoadFromKV3(const LoadContext &ctx, const KeyValues3 *pTable, ImportMessageList &list)
{
	return LoadCfgElementList(ctx, pTable, "sound_list", m_Sounds, list);
}

bool CMintyardCfg_MiscData::SaveToKV3(SaveContext &, KeyValues3 *pTable, ImportMessageList &) const
{
	SetMemberString(pTable, "value", m_Value);
	return true;
}

bool CMintyardCfg_MiscData::LoadFromKV3(const LoadContext &, const KeyValues3 *pTable, ImportMessageList &)
{
	SetValue(GetMemberString(pTable, "value", ""));
	return true;
}

CMintyardCfg_ZarnItemDef::CMintyardCfg_ZarnItemDef(CMintyardCfgElementContainer *pParent, const CMintyardTemplate_ZarnItemDef *pTemplate)
	: CMintyardCfgElementContainer(pParent, pTemplate)
{
}

CMintyardCfg_ZarnItemDef::~CMintyardCfg_ZarnItemDef()
{
	ResetRequest();
}

void CMintyardCfg_ZarnItemDef::ResetRequest()
{
	delete m_pSourceKeys;
	m_pSourceKeys = nullptr;
	delete m_pResultKeys;
	m_pResultKeys = nullptr;
	m_nDefIndex = 0;
	m_ItemName.clear();
	m_ItemDescription.clear();
	m_bIsNewItem = true;
	m_bReserveFromGC = false;
	m_bSetPaymentRule = false;
}

// ---------------------------------------------------------------------------------------------
// Walks

CMintyardCfgElement *FindElement(CMintyardCfgElement *pRoot, const char *pszId)
{
	if (!pRoot || !pszId)
		return nullptr;
	if (V_StrEqualNoCase(pRoot->GetTemplateId(), pszId))
		return pRoot;
	CMintyardCfgElementContainer *pContainer = pRoot->AsContainer();
	if (!pContainer)
		return nullptr;
	for (CMintyardCfgElement *pChild : pContainer->GetChildren())
	{
		if (pChild->AsContainer())
		{
			if (CMintyardCfgElement *pFound = FindElement(pChild, pszId))
				return pFound;
		}
		else if (V_StrEqualNoCase(pChild->GetTemplateId(), pszId))
			return pChild;
	}
	return nullptr;
}

void ValidateElements(const CMintyardCfgElement *pElement, ImportMessageList &list, bool bRelaxed)
{
	if (!pElement)
		return;
	pElement->Validate(list, bRelaxed);
	const CMintyardCfgElementContainer *pContainer = pElement->AsContainer();
	if (!pContainer)
		return;
	for (const CMintyardCfgElement *pChild : pContainer->GetChildren())
	{
		if (pChild->AsContainer())
			ValidateElements(pChild, list, bRelaxed);
		else
			pChild->Validate(list, bRelaxed);
	}
}
