#include "mintyardtoolutils/core/importsession.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "core/strtools.h"
#include "mintyardtoolutils/core/templateaccess.h"

namespace
{
// The session and its name instantiate these: no id, no tokens, not optional.
const CMintyardTemplateElement &EmptyTemplateElement()
{
	static const CMintyardTemplateElement s_Empty;
	return s_Empty;
}

const CMintyardTemplateElement &NameTemplateElement()
{
	static const CMintyardTemplateElement s_Name;
	return s_Name;
}

template <typename T> void DeleteList(CUtlVector<T *> &list)
{
	for (T *p : list)
		delete p;
	list.clear();
}

enum { MAX_IMPORT_NAME_BYTES = 50 };
} // namespace

CMintyardImportSession::CMintyardImportSession() : CMintyardCfgElementContainer(nullptr, &EmptyTemplateElement())
{
	m_pName = new CMintyardCfgSafeString(this, &NameTemplateElement());
	ClearElements();
}

CMintyardImportSession::~CMintyardImportSession()
{
	DeleteList(m_Models);
	DeleteList(m_ImageSets);
	DeleteList(m_ItemDefs);
	DeleteList(m_SoundSets);
	DeleteList(m_MiscData);
	delete m_pName;
	m_pName = nullptr;
}

void CMintyardImportSession::Validate(ImportMessageList &list, bool) const
{
	CheckImportName(m_pName->Value().c_str(), list);
}

void CMintyardImportSession::OnChildChanged(CMintyardCfgElement *)
{
	for (size_t i = 0; i < m_Listeners.size(); ++i)
		m_Listeners[i]->OnSessionChanged();
}

void CMintyardImportSession::ClearElements()
{
	DeleteList(m_Models);
	DeleteList(m_ImageSets);
	DeleteList(m_ItemDefs);
	m_pName->SetValue("");
	m_ScratchDir = GetMintyardScratchDir();
}

void CMintyardImportSession::SetTemplate(const CMintyardTemplate *pTemplate)
{
	CMintyardSuppressChangeNotifications suppress;
	ClearElements();
	m_pCurrentTemplate = pTemplate;
	if (!pTemplate)
		return;

	// Image sets, with their images and emoticons.
	for (const CMintyardTemplate_ZarnImageSet *pSetTemplate : TemplateImageSets(pTemplate))
	{
		CMintyardCfg_ZarnImageSet *pSet = new CMintyardCfg_ZarnImageSet(this, pSetTemplate);
		m_ImageSets.push_back(pSet);
		for (const CMintyardTemplate_ZarnImageSet::CImage *pImage : ImageSetImages(pSetTemplate))
			pSet->m_Images.push_back(new CMintyardCfg_ZarnImageSet::CImage(pSet, pImage));
		for (const CMintyardTemplate_ZarnImageSet::CEmoticon *pEmoticon : ImageSetEmoticons(pSetTemplate))
			pSet->m_Emoticons.push_back(new CMintyardCfg_ZarnImageSet::CEmoticon(pSet, pEmoticon));
	}
	// Sound sets.
	for (const CMintyardTemplate_ZarnSoundSet *pSetTemplate : TemplateSoundSets(pTemplate))
	{
		CMintyardCfg_ZarnSoundSet *pSet = new CMintyardCfg_ZarnSoundSet(this, pSetTemplate);
		m_SoundSets.push_back(pSet);
		for (const CMintyardTemplate_ZarnSoundSet::CSound *pSound : SoundSetSounds(pSetTemplate))
			pSet->m_Sounds.push_back(new CMintyardCfg_ZarnSoundSet::CSound(pSet, pSound));
	}
	// Loose strings.
	for (const CMintyardTemplate_MiscData *pMisc : TemplateMiscData(pTemplate))
		m_MiscData.push_back(new CMintyardCfg_MiscData(this, pMisc));
	// Item definitions.
	for (const CMintyardTemplate_ZarnItemDef *pItemDef : TemplateItemDefs(pTemplate))
		m_ItemDefs.push_back(new CMintyardCfg_ZarnItemDef(this, pItemDef));
	// Models.
	for (const CMintyardTemplate_ZarnModel *pModelTemplate : TemplateModels(pTemplate))
	{
		CMintyardCfg_ZarnModel *pModel = new CMintyardCfg_ZarnModel(this, pModelTemplate);
		m_Models.push_back(pModel);
		for (const CMintyardTemplate_ZarnMesh *pMesh : ModelLods(pModelTemplate))
		{
			CMintyardCfg_ZarnMesh *pLevel = new CMintyardCfg_ZarnMesh(pModel, pMesh);
			pModel->m_Lods.push_back(pLevel);
			for (const CMintyardTemplate_ZarnMesh *pExtra : MeshExtraMeshes(pMesh))
				pLevel->m_ExtraMeshes.push_back(new CMintyardCfg_ZarnMesh(pModel, pExtra));
		}
		for (const CMintyardTemplate_ZarnMaterial *pMaterial : ModelMaterials(pModelTemplate))
			pModel->m_Materials.push_back(new CMintyardCfg_ZarnMaterial(pModel, pMaterial));
		for (const CMintyardTemplate_ZarnModel::CAnim *pAnim : ModelAnims(pModelTemplate))
			pModel->m_Anims.push_back(new CMintyardCfg_ZarnModel::CAnim(pModel, pAnim));
		for (const CMintyardTemplate_ZarnModel::CAnimBundle *pBundleTemplate : ModelBundles(pModelTemplate))
		{
			CMintyardCfg_ZarnModel::CAnimBundle *pBundle = new CMintyardCfg_ZarnModel::CAnimBundle(pModel, pBundleTemplate);
			pModel->m_Bundles.push_back(pBundle);
			for (const CMintyardTemplate_ZarnModel::CAnim *pAnim : BundleAnims(pBundleTemplate))
				pBundle->m_Anims.push_back(new CMintyardCfg_ZarnModel::CAnim(pBundle, pAnim));
		}
		for (const CMintyardTemplate_ZarnModel::CAttach *pAttach : ModelAttaches(pModelTemplate))
			pModel->m_Attaches.push_back(new CMintyardCfg_ZarnModel::CAttach(pModel, pAttach));
		for (const CMintyardTemplate_ZarnModel::CParticleSnapshot *pSnapshot : ModelSnapshots(pModelTemplate))
			pModel->m_Snapshots.push_back(new CMintyardCfg_ZarnModel::CParticleSnapshot(pModel, pSnapshot));
	}
}

void CMintyardImportSession::SetSearchPaths(const char *pszGameRoot, const char *pszContentRoot)
{
	m_GameRoot = pszGameRoot ? pszGameRoot : "";
	m_ContentRoot = pszContentRoot ? pszContentRoot : "";
}

void CMintyardImportSession::SetSubmissionDetails(const PublishedFileInfo_t *pDetails)
{
	if (pDetails)
		m_Submission = *pDetails;
}

void CMintyardImportSession::AddListener(IMintyardImportSessionListener *pListener)
{
	m_Listeners.push_back(pListener);
}

void CMintyardImportSession::RemoveListener(IMintyardImportSessionListener *pListener)
{
	auto it = std::find(m_Listeners.begin(), m_Listeners.end(), pListener);
	if (it != m_Listeners.end())
		m_Listeners.erase(it);
}

void CMintyardImportSession::ValidateAll(ImportMessageList &list, bool bRelaxed) const
{
	list.Clear();
	ValidateElements(this, list, bRelaxed);
}

CMintyardCfg_ZarnModel *CMintyardImportSession::FindModelById(const char *pszId) const
{
	if (!pszId)
		return nullptr;
	for (CMintyardCfg_ZarnModel *pModel : m_Models)
	{
		if (V_StrEqualNoCase(pModel->GetTemplateId(), pszId))
			return pModel;
	}
	return nullptr;
}

const CMintyardTemplate_ZarnModel *CMintyardImportSession::GetModelTemplate(int nIndex) const
{
	if (nIndex < 0 || nIndex >= (int)m_Models.size() || !m_pCurrentTemplate)
		return nullptr;
	const CUtlString &id = m_Models[nIndex]->GetTemplateId();
	for (const CMintyardTemplate_ZarnModel *pModel : TemplateModels(m_pCurrentTemplate))
	{
		if (V_StrEqualNoCase(TemplateId(pModel), id))
			return pModel;
	}
	return nullptr;
}

void CMintyardImportSession::GetModelZmdlName(int nIndex, CUtlString &out) const
{
	out.clear();
	if (!GetModelTemplate(nIndex))
		return;
	out = m_Models[nIndex]->GetZmdlName();
}

bool CMintyardImportSession::HasPortraitPage() const
{
	return !m_ItemDefs.empty() && ItemDefHasPortrait(m_ItemDefs[0]->GetItemDefTemplate());
}

bool CMintyardImportSession::HasPreviewImageSets() const
{
	for (const CMintyardCfg_ZarnImageSet *pSet : m_ImageSets)
	{
		const int nType = ImageSetType(pSet->GetImageSetTemplate());
		if (nType != 1 && nType != 3)
			return true;
	}
	return false;
}

bool CheckImportName(const char *pszName, ImportMessageList &list)
{
	const size_t nLength = pszName ? strlen(pszName) : 0;
	if (nLength == 0)
	{
		list.AddError("#ZARN_Mintyard_Items_Err_EmptyName");
		return false;
	}
	if (nLength > MAX_IMPORT_NAME_BYTES)
	{
		list.AddError("#ZARN_Mintyard_Items_Err_LongName");
		return false;
	}
	return true;
}

CUtlString GetMintyardScratchDir()
{
	CUtlString dir;
	if (const char *pszScratch = getenv("MINTYARD_SCRATCH_DIR"); pszScratch && *pszScratch)
		dir = pszScratch;
	else
	{
		const char *pszTmp = getenv("TMPDIR");
		dir = (pszTmp && *pszTmp) ? pszTmp : "/tmp";
		if (dir.back() != '/')
			dir += "/";
		dir += "mintyard_submissions_g2";
	}
	if (dir.back() != '/')
		dir += "/";
	return dir;
}

// ---------------------------------------------------------------------------------------------
// Expressions

bool ParseExpression(const char *pszText, CUtlString &id, CUtlString &property)
{
	if (!pszText)
		return false;
	const size_t nLength = strlen(pszText);
	if (nLength < 3 || pszText[0] != '$' || pszText[1] != '(' || pszText[nLength - 1] != ')')
		return false;
	const char *pszColon = strchr(pszText, ':');
	if (!pszColon)
		return false;
	id.assign(pszText + 2, pszColon - (pszText + 2));
	property.assign(pszColon + 1, (pszText + nLength - 1) - (pszColon + 1));
	return true;
}

bool ResolveExpression(const CMintyardImportSession *pSession, const char *pszText, CUtlString &out)
{
	CUtlString id, property;
	if (!ParseExpression(pszText, id, property))
	{
		out = pszText ? pszText : "";
		return true;
	}
	const CMintyardCfgElement *pElement = FindElement(const_cast<CMintyardImportSession *>(pSession), id.c_str());
	if (!pElement)
		return false;
	return pElement->GetExpressionProperty(property.c_str(), out);
}
