#include "mintyardtoolutils/preview/previewmodelset.h"

#include <cstdio>
#include <cstdlib>

#include "core/fileio.h"
#include "core/keyvalues.h"
#include "core/logging.h"
#include "core/strtools.h"
#include "itemtool/itemtoolmodel.h"
#include "mintyardtoolutils/core/cfgelements.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/pipeline/itemkeys.h"
#include "toolscene/sceneresources.h"

DEFINE_LOGGING_CHANNEL(LOG_MINTYARD_PREVIEW, "MintyardManager");

namespace
{
const char *const s_AssetListTypes[ZARN_PREVIEW_ASSET_LIST_COUNT] = {
	"entity_model", "hero_model_change", "additional_wearable", "courier", "courier_flying", "pet", "activity",
};

const char *const s_TeamWords[2] = { "sunward", "moonward" };
const char *const s_WardUnits[2] = { "npc_zarn_observer_wards", "npc_zarn_sentry_wards" };

enum EVisualKind
{
	VISUAL_UNKNOWN = 0,
	VISUAL_ASSET,
	VISUAL_PARTICLE,
	VISUAL_CONTROL_POINT,
	VISUAL_SKIN,
};

EVisualKind VisualKind(const char *pszType, int &nAssetList)
{
	nAssetList = -1;
	for (int i = 0; i < ZARN_PREVIEW_ASSET_LIST_COUNT; ++i)
	{
		if (V_stricmp(pszType, s_AssetListTypes[i]) == 0)
		{
			nAssetList = i;
			return VISUAL_ASSET;
		}
	}
	if (V_stricmp(pszType, "particle") == 0 || V_stricmp(pszType, "particle_create") == 0 || V_stricmp(pszType, "particle_snapshot") == 0)
		return VISUAL_PARTICLE;
	if (V_stricmp(pszType, "particle_control_point") == 0)
		return VISUAL_CONTROL_POINT;
	if (V_stricmp(pszType, "model_skin") == 0)
		return VISUAL_SKIN;
	return VISUAL_UNKNOWN;
}

Vector ParseVector(const char *pszText)
{
	Vector v;
	if (pszText)
		sscanf(pszText, "%f %f %f", &v.x, &v.y, &v.z);
	return v;
}

// The model of an item's keys for a model index: "model_player" for 0, "model_player%i" otherwise.
CUtlString ModelPlayerKey(int nModelIndex)
{
	return nModelIndex <= 0 ? CUtlString("model_player") : V_Format("model_player%i", nModelIndex);
}

// The "model_player%i" value of an item equal to the path (case ignored): true with the index.
bool FindModelPlayerKey(KeyValues *pItem, const char *pszPath, int &nIndex)
{
	for (KeyValues *pKey = pItem->GetFirstValue(); pKey; pKey = pKey->GetNextValue())
	{
		const char *pszName = pKey->GetName();
		if (V_strnicmp(pszName, "model_player", 12) != 0 || V_stricmp(pKey->GetString(), pszPath) != 0)
			continue;
		nIndex = atoi(pszName + 12);
		return true;
	}
	return false;
}

// An item of items_game that shows a model: one that names it under a "model_player%i" key,
// preferring one the hero uses.
KeyValues *FindRepresentativeItem(const hero_t *pHero, const char *pszModelPath, int &nModelIndex)
{
	KeyValues *pItems = GetItemsGameItems();
	if (!pItems || !pszModelPath || !*pszModelPath)
		return nullptr;
	KeyValues *pAny = nullptr;
	int nAnyIndex = 0;
	for (KeyValues *pItem = pItems->GetFirstTrueSubKey(); pItem; pItem = pItem->GetNextTrueSubKey())
	{
		int nIndex = 0;
		if (!FindModelPlayerKey(pItem, pszModelPath, nIndex))
			continue;
		KeyValues *pHeroes = pItem->FindKey("used_by_heroes");
		if (pHero && pHeroes && pHeroes->GetInt(pHero->name.c_str(), 0) != 0)
		{
			nModelIndex = nIndex;
			return pItem;
		}
		if (!pAny)
		{
			pAny = pItem;
			nAnyIndex = nIndex;
		}
	}
	nModelIndex = nAnyIndex;
	return pAny;
}

// A copy of an item's keys without its inventory image, named by the test item number.
std::unique_ptr<KeyValues> CopyItemKeys(const KeyValues *pSource, uint32 nNumber)
{
	std::unique_ptr<KeyValues> pKeys = std::make_unique<KeyValues>(V_Format("%u", nNumber).c_str());
	pSource->CopySubkeys(pKeys.get());
	pKeys->FindAndDeleteSubKey("image_inventory");
	return pKeys;
}

// Keys made by the item key generation with a name, a description and a number of the caller's;
// the item definition keeps its own afterwards.
std::unique_ptr<KeyValues> CreateKeysWithNames(CMintyardCfg_ZarnItemDef *pItemDef, uint32 nNumber, const char *pszName, const char *pszDescription)
{
	if (!pItemDef)
		return nullptr;
	const uint32 nSavedIndex = pItemDef->m_nDefIndex;
	const CUtlString savedName = pItemDef->m_ItemName, savedDescription = pItemDef->m_ItemDescription;
	pItemDef->m_nDefIndex = nNumber;
	pItemDef->m_ItemName = pszName;
	pItemDef->m_ItemDescription = pszDescription;
	std::unique_ptr<KeyValues> pKeys(CreateKVForItem(pItemDef));
	pItemDef->m_nDefIndex = nSavedIndex;
	pItemDef->m_ItemName = savedName;
	pItemDef->m_ItemDescription = savedDescription;
	return pKeys;
}

// The slot of the template of an item definition, or null.
const hero_slot_t *TemplateSlot(const CMintyardCfg_ZarnItemDef *pItemDef)
{
	const CMintyardTemplate_ZarnItemDef *pTemplate = pItemDef ? pItemDef->GetItemDefTemplate() : nullptr;
	if (!pTemplate || pTemplate->hero_name < 0 || pTemplate->loadout_slot < 0)
		return nullptr;
	const hero_t *pHero = GetHeroTable().GetHero(pTemplate->hero_name);
	if (!pHero || pTemplate->loadout_slot >= (int)pHero->slots.size())
		return nullptr;
	return &pHero->slots[pTemplate->loadout_slot];
}

// Adds an item, replacing the one of the same slot key.
void PutItem(CUtlVector<std::unique_ptr<CZarnPreviewItem>> &items, std::unique_ptr<CZarnPreviewItem> pItem)
{
	for (std::unique_ptr<CZarnPreviewItem> &pExisting : items)
	{
		if (pExisting->m_SlotKey == pItem->m_SlotKey)
		{
			pExisting = std::move(pItem);
			return;
		}
	}
	items.push_back(std::move(pItem));
}

// The persona a slot belongs to (0 for the hero's own slots); -1 for slots of no persona.
int SlotPersona(const hero_slot_t &slot)
{
	return slot.persona == 255 ? -1 : slot.persona;
}
} // namespace

const char *ZarnPreviewAssetListType(int nList)
{
	return nList >= 0 && nList < ZARN_PREVIEW_ASSET_LIST_COUNT ? s_AssetListTypes[nList] : "";
}

// ---------------------------------------------------------------------------------------------
// Styles and items

const ZarnPreviewAssetModifier_t *CZarnPreviewStyle::FindAsset(int nList, const char *pszAsset) const
{
	if (nList < 0 || nList >= ZARN_PREVIEW_ASSET_LIST_COUNT || !pszAsset)
		return nullptr;
	for (const ZarnPreviewAssetModifier_t &modifier : m_AssetModifiers[nList])
	{
		if (V_stricmp(modifier.m_Asset.c_str(), pszAsset) == 0)
			return &modifier;
	}
	return nullptr;
}

const char *CZarnPreviewStyle::FirstReplacement(int nList) const
{
	if (nList < 0 || nList >= ZARN_PREVIEW_ASSET_LIST_COUNT || m_AssetModifiers[nList].empty())
		return "";
	return m_AssetModifiers[nList][0].m_Replacement.c_str();
}

CZarnPreviewItem::CZarnPreviewItem() = default;
CZarnPreviewItem::~CZarnPreviewItem() = default;

void CZarnPreviewItem::SetKeys(const KeyValues *pKeys)
{
	m_Styles.clear();
	m_pKeys.reset(pKeys ? pKeys->MakeCopy() : new KeyValues("0"));
	KeyValues *pVisuals = m_pKeys->FindKey("visuals");

	// The styles the item declares; one unnamed style without them.
	KeyValues *pStyles = pVisuals ? pVisuals->FindKey("styles") : nullptr;
	if (pStyles)
	{
		for (KeyValues *pStyle = pStyles->GetFirstTrueSubKey(); pStyle; pStyle = pStyle->GetNextTrueSubKey())
			m_Styles.emplace_back().m_Name = pStyle->GetString("name", ZARN_PREVIEW_DEFAULT_STYLE_NAME);
	}
	if (m_Styles.empty())
		m_Styles.emplace_back().m_Name = m_bDefault ? ZARN_PREVIEW_STOCK_ITEM_SET : ZARN_PREVIEW_DEFAULT_STYLE_NAME;
	if (!pVisuals)
		return;

	for (KeyValues *pEntry = pVisuals->GetFirstTrueSubKey(); pEntry; pEntry = pEntry->GetNextTrueSubKey())
	{
		if (pEntry == pStyles)
			continue;
		int nList = -1;
		const EVisualKind eKind = VisualKind(pEntry->GetString("type"), nList);
		if (eKind == VISUAL_UNKNOWN)
			continue;
		// An entry with a "style" applies to that style alone, others to every style.
		const bool bOneStyle = pEntry->FindKey("style") != nullptr;
		const int nOnlyStyle = pEntry->GetInt("style", -1);
		for (int s = 0; s < (int)m_Styles.size(); ++s)
		{
			if (bOneStyle && s != nOnlyStyle)
				continue;
			CZarnPreviewStyle &style = m_Styles[s];
			switch (eKind)
			{
			case VISUAL_ASSET:
			{
				ZarnPreviewAssetModifier_t &modifier = style.m_AssetModifiers[nList].emplace_back();
				modifier.m_Asset = pEntry->GetString("asset");
				modifier.m_Replacement = pEntry->GetString("modifier");
				break;
			}
			case VISUAL_PARTICLE:
			{
				ZarnPreviewParticleSystem_t &particle = style.m_Particles.emplace_back();
				particle.m_Type = pEntry->GetString("type");
				const char *pszAsset = pEntry->GetString("asset");
				const char *pszModifier = pEntry->GetString("modifier");
				particle.m_Particle = *pszModifier ? pszModifier : pszAsset;
				particle.m_Replaces = *pszModifier ? pszAsset : "";
				particle.m_Attachment = pEntry->GetString("attachment");
				particle.m_bDefaultItem = m_bDefault;
				if (KeyValues *pPreview = pEntry->FindKey("preview"))
				{
					int nPlace = 0;
					for (KeyValues *pTarget = pPreview->GetFirstSubKey(); pTarget; pTarget = pTarget->GetNextKey(), ++nPlace)
					{
						ZarnPreviewParticleTarget_t &target = particle.m_Targets.emplace_back();
						target.m_Name = pTarget->GetName();
						target.m_nType = pTarget->GetInt("type", 0);
						target.m_nControlPoint = pTarget->GetInt("control_point", nPlace);
					}
				}
				break;
			}
			case VISUAL_CONTROL_POINT:
			{
				ZarnPreviewControlPointModifier_t &point = style.m_ControlPoints.emplace_back();
				point.m_Particle = pEntry->GetString("asset");
				point.m_nControlPoint = pEntry->GetInt("control_point_number", 0);
				point.m_vValue = ParseVector(pEntry->GetString("cp_position"));
				break;
			}
			case VISUAL_SKIN:
				style.m_Skins.emplace_back().m_nSkin = pEntry->GetInt("skin", atoi(pEntry->GetString("modifier", "0")));
				break;
			case VISUAL_UNKNOWN:
				break;
			}
		}
	}
}

const CZarnPreviewStyle &CZarnPreviewItem::GetStyle(int nStyle) const
{
	return m_Styles[(nStyle >= 0 && nStyle < (int)m_Styles.size()) ? (size_t)nStyle : 0];
}

bool CZarnPreviewItem::HasVariantEntity() const
{
	for (const CZarnPreviewStyle &style : m_Styles)
	{
		for (const ZarnPreviewAssetModifier_t &modifier : style.m_AssetModifiers[ZARN_PREVIEW_ASSET_ENTITY_MODEL])
		{
			if (V_stristr(modifier.m_Asset.c_str(), "_variant_"))
				return true;
		}
	}
	return false;
}

// ---------------------------------------------------------------------------------------------
// Building items

void CZarnPreviewModelSet::BuildPreviewItems(const hero_t *pHero, const CUtlVector<ZarnPreviewSlotChoice_t> &choices,
	const KeyValues *pSubmissionKeys, CMintyardCfg_ZarnItemDef *pItemDef, CUtlVector<std::unique_ptr<CZarnPreviewItem>> &items)
{
	if (!pHero)
		return;
	for (const ZarnPreviewSlotChoice_t &choice : choices)
	{
		const int nHeroSlot = pHero->FindSlot(choice.m_SlotName.c_str());
		if (nHeroSlot < 0)
			continue;
		const hero_slot_t &slot = pHero->slots[nHeroSlot];
		const uint32 nNumber = ECON_TEST_ITEM_INDEX_BASE + (uint32)items.size();
		std::unique_ptr<KeyValues> pKeys;
		CUtlString modelPath;
		int nModelIndex = 0;
		bool bDefault = false;
		if (choice.m_nSlotIndex < 0 && !choice.m_ModelPath.empty())
		{
			// The author's choice: an item of the game that shows the model.
			KeyValues *pRepresentative = FindRepresentativeItem(pHero, choice.m_ModelPath.c_str(), nModelIndex);
			if (!pRepresentative)
			{
				Log_Warning(LOG_MINTYARD_PREVIEW, "Failed to get representative item details for '%s'\n", choice.m_ModelPath.c_str());
				continue;
			}
			pKeys = CopyItemKeys(pRepresentative, nNumber);
			pKeys->SetString("name", V_Format("preview_item_%s", slot.slotName.c_str()).c_str());
			modelPath = choice.m_ModelPath;
		}
		else if (choice.m_nSlotIndex < 0)
		{
			KeyValues *pDefault = FindHeroDefaultItem(*pHero, slot.slotName.c_str());
			if (!pDefault)
			{
				Log_Warning(LOG_MINTYARD_PREVIEW, "Failed to find default item for '%s'\n", slot.slotName.c_str());
				continue;
			}
			pKeys = CopyItemKeys(pDefault, nNumber);
			pKeys->SetString("name", V_Format("preview_item_%s", slot.slotName.c_str()).c_str());
			pKeys->SetInt("baseitem", 0);
			modelPath = pKeys->GetString("model_player");
			bDefault = true;
		}
		else if (pSubmissionKeys)
		{
			pKeys.reset(pSubmissionKeys->MakeCopy());
			pKeys->SetName(V_Format("%u", nNumber).c_str());
			modelPath = choice.m_ModelPath;
		}
		else
		{
			const hero_slot_t *pItemSlot = TemplateSlot(pItemDef);
			pKeys = CreateKeysWithNames(pItemDef, nNumber,
				V_Format("preview_%s_item_%s", pItemSlot ? pItemSlot->slotName.c_str() : slot.slotName.c_str(), slot.slotName.c_str()).c_str(),
				V_Format("user selected preview item for hero slot %s", slot.slotName.c_str()).c_str());
			modelPath = choice.m_ModelPath.empty() && pKeys ? CUtlString(pKeys->GetString("model_player")) : choice.m_ModelPath;
		}
		if (!pKeys)
		{
			Log_Warning(LOG_MINTYARD_PREVIEW, "Error creating test keyvalues for '%s'\n", slot.slotName.c_str());
			continue;
		}
		pKeys->FindAndDeleteSubKey("item_set");
		std::unique_ptr<CZarnPreviewItem> pItem = std::make_unique<CZarnPreviewItem>();
		pItem->m_bDefault = bDefault;
		pItem->m_bSubmission = choice.m_nSlotIndex >= 0;
		pItem->SetKeys(pKeys.get());
		pItem->m_SlotName = slot.slotName;
		pItem->m_SlotKey = V_Format("Item%d", slot.slotIndex);
		pItem->m_nItemNumber = nNumber;
		pItem->m_ModelPath = modelPath;
		pItem->m_nModelIndex = nModelIndex;
		PutItem(items, std::move(pItem));
	}
}

std::unique_ptr<CZarnPreviewItem> CZarnPreviewModelSet::BuildSubmissionTestItem(CMintyardCfg_ZarnItemDef *pItemDef, int nItemCount)
{
	if (!pItemDef)
		return nullptr;
	const hero_slot_t *pSlot = TemplateSlot(pItemDef);
	const char *pszSlotName = pSlot ? pSlot->slotName.c_str() : "any";
	const uint32 nNumber = ECON_TEST_ITEM_INDEX_BASE + (uint32)(nItemCount < 0 ? 0 : nItemCount);
	std::unique_ptr<KeyValues> pKeys = CreateKeysWithNames(pItemDef, nNumber, V_Format("new_%s_item", pszSlotName).c_str(), "shiz shiz");
	if (!pKeys)
	{
		Log_Warning(LOG_MINTYARD_PREVIEW, "Don't have test item keyvalues factory for '%s' yet\n",
			pItemDef->GetItemDefTemplate() ? pItemDef->GetItemDefTemplate()->prefab_type.c_str() : "");
		return nullptr;
	}
	std::unique_ptr<CZarnPreviewItem> pItem = std::make_unique<CZarnPreviewItem>();
	pItem->m_bSubmission = true;
	pItem->SetKeys(pKeys.get());
	pItem->m_SlotName = pSlot ? pSlot->slotName : CUtlString();
	pItem->m_SlotKey = pSlot ? V_Format("Item%d", pSlot->slotIndex) : CUtlString("ItemSlotAny");
	pItem->m_nItemNumber = nNumber;
	pItem->m_ModelPath = pKeys->GetString("model_player");
	return pItem;
}

void CZarnPreviewModelSet::WritePreviewItems(const CUtlVector<std::unique_ptr<CZarnPreviewItem>> &items, KeyValues *pOut)
{
	if (!pOut)
		return;
	for (const std::unique_ptr<CZarnPreviewItem> &pItem : items)
	{
		KeyValues *pEntry = pItem->GetKeys()->MakeCopy();
		pEntry->SetName(pItem->m_SlotKey.c_str());
		pOut->AddSubKey(pEntry);
	}
}

// ---------------------------------------------------------------------------------------------
// The set

CZarnPreviewModelSet::CZarnPreviewModelSet(CToolSceneResources *pResources)
	: m_pResources(pResources ? pResources : &CToolSceneResources::Default())
{
}

CZarnPreviewModelSet::~CZarnPreviewModelSet() = default;

bool CZarnPreviewModelSet::ModelExists(const char *pszPath) const
{
	if (!pszPath || !*pszPath)
		return false;
	const CUtlString file = m_pResources->ResolvePath(pszPath);
	return !file.empty() && Plat_FileExists(file.c_str());
}

bool CZarnPreviewModelSet::SetModel(const char *pszModelPath, int nHeroIndex, int nSlot, int nStyle)
{
	if (!ModelExists(pszModelPath))
		return false;
	m_ModelPath = pszModelPath;
	m_nRequestedHeroIndex = nHeroIndex;
	m_nSlot = nSlot;
	m_nStyle = nStyle < 0 ? 0 : nStyle;
	m_ChosenSlots.clear();
	m_ChosenModels.clear();
	Rebuild();
	Notify();
	return true;
}

void CZarnPreviewModelSet::SetPreviewItemKeys(const KeyValues *pItemKeys, bool bFlyingCourier, int nModelIndex)
{
	m_pSubmissionKeys.reset(pItemKeys ? pItemKeys->MakeCopy() : nullptr);
	m_nCourierType = bFlyingCourier ? 1 : 0;
	m_nModelIndex = nModelIndex;
	Rebuild();
	Notify();
}

void CZarnPreviewModelSet::SelectWearables(const CUtlVector<CUtlString> &slots, const CUtlVector<CUtlString> &models)
{
	m_ChosenSlots.clear();
	m_ChosenModels.clear();
	for (size_t i = 0; i < slots.size(); ++i)
	{
		m_ChosenSlots.push_back(slots[i]);
		m_ChosenModels.push_back(i < models.size() ? models[i] : CUtlString());
	}
	Rebuild();
	Notify();
}

void CZarnPreviewModelSet::ResetWearablesToDefault()
{
	SelectWearables(CUtlVector<CUtlString>(), CUtlVector<CUtlString>());
}

void CZarnPreviewModelSet::SetPreviewMode(int nMode)
{
	m_nMode = (nMode >= 0 && nMode < ZARN_PREVIEW_MODE_COUNT) ? nMode : ZARN_PREVIEW_MODE_HERO;
	Rebuild();
	Notify();
}

void CZarnPreviewModelSet::SetCourierTeam(int nTeam)
{
	m_nCourierTeam = nTeam == 1 ? 1 : 0;
	Rebuild();
	Notify();
}

void CZarnPreviewModelSet::SetCourierType(int nType)
{
	m_nCourierType = nType == 1 ? 1 : 0;
	Rebuild();
	Notify();
}

void CZarnPreviewModelSet::SetWardType(int nType)
{
	m_nWardType = nType == 1 ? 1 : 0;
	Rebuild();
	Notify();
}

void CZarnPreviewModelSet::SetCurrentStyle(int nStyle)
{
	m_nStyle = (nStyle >= 0 && nStyle < GetStyleCount()) ? nStyle : 0;
	Rebuild();
	Notify();
}

int CZarnPreviewModelSet::GetStyleCount() const
{
	const CZarnPreviewItem *pItem = GetSubmissionItem();
	return pItem ? pItem->GetStyleCount() : 1;
}

const char *CZarnPreviewModelSet::GetStyleName(int nStyle) const
{
	const CZarnPreviewItem *pItem = GetSubmissionItem();
	return pItem ? pItem->GetStyle(nStyle).m_Name.c_str() : ZARN_PREVIEW_DEFAULT_STYLE_NAME;
}

#define PREVIEW_SET_FLAG(function, member)                                                                                               \
	void CZarnPreviewModelSet::function(bool bValue)                                                                                    \
	{                                                                                                                                   \
		if (member == bValue)                                                                                                           \
			return;                                                                                                                     \
		member = bValue;                                                                                                                \
		Notify();                                                                                                                       \
	}
PREVIEW_SET_FLAG(SetShowLod1, m_bShowLod1)
PREVIEW_SET_FLAG(SetShowParticles, m_bShowParticles)
PREVIEW_SET_FLAG(SetShowDefaultParticles, m_bShowDefaultParticles)
PREVIEW_SET_FLAG(SetShowReferenceModel, m_bShowReferenceModel)
PREVIEW_SET_FLAG(SetHideHero, m_bHideHero)
PREVIEW_SET_FLAG(SetHideParticles, m_bHideParticles)
PREVIEW_SET_FLAG(SetShowSummons, m_bShowSummons)
#undef PREVIEW_SET_FLAG

void CZarnPreviewModelSet::GetAnimationList(CUtlVector<CUtlString> &out) const
{
	out.clear();
	if (m_SubjectModel.empty())
		return;
	std::shared_ptr<const CToolSceneModel> pModel = m_pResources->LoadModel(m_SubjectModel.c_str());
	if (!pModel)
		return;
	for (const CompiledSequence_t &sequence : pModel->GetData().m_Sequences)
		out.push_back(sequence.m_Name);
}

void CZarnPreviewModelSet::SetSequence(const char *pszSequence)
{
	m_Sequence = pszSequence ? pszSequence : "";
	Notify();
}

void CZarnPreviewModelSet::SetPlaybackSpeed(float flSpeed)
{
	m_flSpeed = flSpeed;
	Notify();
}

void CZarnPreviewModelSet::SetFrame(int nFrame)
{
	m_nFrame = nFrame < 0 ? -1 : nFrame;
	Notify();
}

bool CZarnPreviewModelSet::FindDefaultAttachmentOffset(int nAttachment, Vector &offset, QAngle &angles) const
{
	if (m_ModelPath.empty() || nAttachment < 0)
		return false;
	std::shared_ptr<const CToolSceneModel> pModel = m_pResources->LoadModel(m_ModelPath.c_str());
	if (!pModel || nAttachment >= (int)pModel->GetData().m_Attachments.size())
		return false;
	const CompiledAttachment_t &attachment = pModel->GetData().m_Attachments[(size_t)nAttachment];
	offset = attachment.m_vOrigin;
	angles = attachment.m_Angles;
	return true;
}

void CZarnPreviewModelSet::AddListener(IZarnPreviewModelSetListener *pListener)
{
	if (pListener && std::find(m_Listeners.begin(), m_Listeners.end(), pListener) == m_Listeners.end())
		m_Listeners.push_back(pListener);
}

void CZarnPreviewModelSet::RemoveListener(IZarnPreviewModelSetListener *pListener)
{
	auto it = std::find(m_Listeners.begin(), m_Listeners.end(), pListener);
	if (it != m_Listeners.end())
		m_Listeners.erase(it);
}

void CZarnPreviewModelSet::Notify()
{
	// A listener may add or remove listeners from its call.
	const CUtlVector<IZarnPreviewModelSetListener *> listeners = m_Listeners;
	for (IZarnPreviewModelSetListener *pListener : listeners)
	{
		if (std::find(m_Listeners.begin(), m_Listeners.end(), pListener) != m_Listeners.end())
			pListener->OnPreviewModelSetChanged(this);
	}
}

const hero_t *CZarnPreviewModelSet::GetHero() const
{
	return m_nHeroIndex >= 0 ? GetHeroTable().GetHero(m_nHeroIndex) : nullptr;
}

const CZarnPreviewItem *CZarnPreviewModelSet::GetItem(int nIndex) const
{
	return nIndex >= 0 && nIndex < (int)m_Items.size() ? m_Items[(size_t)nIndex].get() : nullptr;
}

const CZarnPreviewItem *CZarnPreviewModelSet::GetSubmissionItem() const
{
	for (const std::unique_ptr<CZarnPreviewItem> &pItem : m_Items)
	{
		if (pItem->m_bSubmission)
			return pItem.get();
	}
	return nullptr;
}

void CZarnPreviewModelSet::GetWearableSlots(CUtlVector<const hero_slot_t *> &out) const
{
	out.clear();
	const hero_t *pHero = GetHero();
	if (!pHero)
		return;
	// The slots of the persona the model under preview belongs to.
	const int nPersona = (m_nSlot >= 0 && m_nSlot < (int)pHero->slots.size()) ? SlotPersona(pHero->slots[m_nSlot]) : 0;
	for (const hero_slot_t &slot : pHero->slots)
	{
		if (slot.hideInMintyardTools || SlotPersona(slot) != (nPersona < 0 ? 0 : nPersona))
			continue;
		out.push_back(&slot);
	}
}

void CZarnPreviewModelSet::GetSlotChoices(CUtlVector<ZarnPreviewSlotChoice_t> &out) const
{
	out.clear();
	const hero_t *pHero = GetHero();
	CUtlVector<const hero_slot_t *> slots;
	GetWearableSlots(slots);
	for (const hero_slot_t *pSlot : slots)
	{
		ZarnPreviewSlotChoice_t &choice = out.emplace_back();
		choice.m_SlotName = pSlot->slotName;
		const int nHeroSlot = (int)(pSlot - pHero->slots.data());
		if (nHeroSlot == m_nSlot)
		{
			choice.m_nSlotIndex = nHeroSlot;
			choice.m_ModelPath = m_ModelPath;
			continue;
		}
		for (size_t i = 0; i < m_ChosenSlots.size(); ++i)
		{
			if (V_stricmp(m_ChosenSlots[i].c_str(), pSlot->slotName.c_str()) == 0)
				choice.m_ModelPath = m_ChosenModels[i];
		}
	}
}

void CZarnPreviewModelSet::GetSlotModels(const char *pszSlotName, CUtlVector<CUtlString> &out) const
{
	out.clear();
	const hero_t *pHero = GetHero();
	KeyValues *pItems = GetItemsGameItems();
	if (!pHero || !pItems || !pszSlotName)
		return;
	auto add = [&out](const char *pszModel) {
		if (!pszModel || !*pszModel)
			return;
		for (const CUtlString &existing : out)
		{
			if (V_stricmp(existing.c_str(), pszModel) == 0)
				return;
		}
		out.push_back(pszModel);
	};
	if (KeyValues *pDefault = FindHeroDefaultItem(*pHero, pszSlotName))
		add(pDefault->GetString("model_player"));
	for (KeyValues *pItem = pItems->GetFirstTrueSubKey(); pItem; pItem = pItem->GetNextTrueSubKey())
	{
		KeyValues *pHeroes = pItem->FindKey("used_by_heroes");
		if (V_stricmp(pItem->GetString("item_slot"), pszSlotName) != 0 || !pHeroes || pHeroes->GetInt(pHero->name.c_str(), 0) == 0)
			continue;
		add(pItem->GetString("model_player"));
	}
}

CUtlString CZarnPreviewModelSet::ChooseSubjectModel(const CZarnPreviewItem *pItem) const
{
	const CUtlString own = pItem && !pItem->m_ModelPath.empty() ? pItem->m_ModelPath : m_ModelPath;
	if (!pItem)
		return own;
	const CZarnPreviewStyle &style = pItem->GetStyle(m_nStyle);
	const ZarnPreviewAssetModifier_t *pFound = nullptr;
	switch (m_nMode)
	{
	case ZARN_PREVIEW_MODE_ITEM:
	{
		for (int nList : { ZARN_PREVIEW_ASSET_HERO_MODEL_CHANGE, ZARN_PREVIEW_ASSET_ENTITY_MODEL, ZARN_PREVIEW_ASSET_PET })
		{
			const char *pszReplacement = style.FirstReplacement(nList);
			if (*pszReplacement)
				return pszReplacement;
		}
		const hero_t *pHero = GetHero();
		if (pHero && !pHero->personaModels.empty() && !pHero->personaModels[0].empty() && !pHero->personaModels[0][0].model.empty())
			return pHero->personaModels[0][0].model;
		return own;
	}
	case ZARN_PREVIEW_MODE_COURIER:
		pFound = style.FindAsset(m_nCourierType == 1 ? ZARN_PREVIEW_ASSET_COURIER_FLYING : ZARN_PREVIEW_ASSET_COURIER, s_TeamWords[m_nCourierTeam]);
		break;
	case ZARN_PREVIEW_MODE_WARD:
		pFound = style.FindAsset(ZARN_PREVIEW_ASSET_ENTITY_MODEL, s_WardUnits[m_nWardType]);
		break;
	default:
		break;
	}
	return pFound && !pFound->m_Replacement.empty() ? pFound->m_Replacement : own;
}

void CZarnPreviewModelSet::Rebuild()
{
	EnsureGameDataLoaded();
	m_Items.clear();
	m_Wearables.clear();
	m_Summons.clear();
	m_Particles.clear();
	m_ControlPoints.clear();
	m_SubjectModel.clear();
	m_nSubjectSkin = 0;
	m_bSubjectIsModel = false;

	// The submission's own item, to look at before anything else: a variant stands alone.
	CZarnPreviewItem submission;
	submission.m_bSubmission = true;
	submission.SetKeys(m_pSubmissionKeys.get());
	if (submission.HasVariantEntity())
	{
		m_nMode = ZARN_PREVIEW_MODE_ITEM;
		m_nRequestedHeroIndex = -1;
	}
	const hero_t *pHero = GetHeroTable().GetHero(m_nRequestedHeroIndex);
	m_nHeroIndex = pHero ? m_nRequestedHeroIndex : -1;
	m_HeroName = pHero ? pHero->name : CUtlString();
	if (m_ModelPath.empty())
		return;

	const bool bHeroScene = pHero && (m_nMode == ZARN_PREVIEW_MODE_HERO || m_nMode == ZARN_PREVIEW_MODE_UNIT);
	if (bHeroScene)
	{
		CUtlVector<ZarnPreviewSlotChoice_t> choices;
		GetSlotChoices(choices);
		// A submission without keys of its own shows its model in its slot all the same.
		std::unique_ptr<KeyValues> pPlainKeys;
		if (!m_pSubmissionKeys)
		{
			pPlainKeys = std::make_unique<KeyValues>("0");
			pPlainKeys->SetString(ModelPlayerKey(m_nModelIndex).c_str(), m_ModelPath.c_str());
		}
		BuildPreviewItems(pHero, choices, m_pSubmissionKeys ? m_pSubmissionKeys.get() : pPlainKeys.get(), nullptr, m_Items);
		// The submission's slot shows the model under preview whatever its keys say.
		for (std::unique_ptr<CZarnPreviewItem> &pItem : m_Items)
		{
			if (pItem->m_bSubmission)
			{
				pItem->m_ModelPath = m_ModelPath;
				pItem->m_nModelIndex = m_nModelIndex < 0 ? 0 : m_nModelIndex;
			}
		}
	}
	else
	{
		std::unique_ptr<CZarnPreviewItem> pItem = std::make_unique<CZarnPreviewItem>();
		pItem->m_bSubmission = true;
		pItem->SetKeys(m_pSubmissionKeys.get());
		pItem->m_SlotKey = "ItemSlotAny";
		pItem->m_nItemNumber = ECON_TEST_ITEM_INDEX_BASE;
		pItem->m_ModelPath = m_ModelPath;
		pItem->m_nModelIndex = m_nModelIndex < 0 ? 0 : m_nModelIndex;
		m_Items.push_back(std::move(pItem));
	}

	// The subject and its skin.
	const CZarnPreviewItem *pSubmission = GetSubmissionItem();
	if (bHeroScene)
	{
		const int nPersona = (m_nSlot >= 0 && m_nSlot < (int)pHero->slots.size()) ? SlotPersona(pHero->slots[m_nSlot]) : 0;
		const CUtlVector<ModelEntry_t> *pModels = pHero->personaModels.empty() ? nullptr : &pHero->personaModels[0];
		if (pModels && nPersona > 0 && nPersona < (int)pModels->size() && !(*pModels)[nPersona].model.empty())
			m_SubjectModel = (*pModels)[nPersona].model;
		else if (pModels && !pModels->empty())
			m_SubjectModel = (*pModels)[0].model;
		// A hero model change of an item; the submission's own has the last word.
		for (int nPass = 0; nPass < 2; ++nPass)
		{
			for (const std::unique_ptr<CZarnPreviewItem> &pItem : m_Items)
			{
				if (pItem->m_bSubmission != (nPass == 1))
					continue;
				const char *pszChange = pItem->GetStyle(pItem->m_bSubmission ? m_nStyle : 0).FirstReplacement(ZARN_PREVIEW_ASSET_HERO_MODEL_CHANGE);
				if (*pszChange)
					m_SubjectModel = pszChange;
			}
		}
		if (m_SubjectModel.empty())
			m_SubjectModel = m_ModelPath;
	}
	else
	{
		m_SubjectModel = ChooseSubjectModel(pSubmission);
		if (pSubmission && !pSubmission->GetStyle(m_nStyle).m_Skins.empty())
			m_nSubjectSkin = pSubmission->GetStyle(m_nStyle).m_Skins[0].m_nSkin;
	}
	m_bSubjectIsModel = V_stricmp(m_SubjectModel.c_str(), m_ModelPath.c_str()) == 0;

	// Wearables on the hero, with their additional wearables.
	int nAdditional = 0;
	if (bHeroScene)
	{
		for (size_t i = 0; i < m_Items.size(); ++i)
		{
			const CZarnPreviewItem &item = *m_Items[i];
			const CZarnPreviewStyle &style = item.GetStyle(item.m_bSubmission ? m_nStyle : 0);
			const int nSkin = style.m_Skins.empty() ? 0 : style.m_Skins[0].m_nSkin;
			if (!item.m_ModelPath.empty())
			{
				ZarnPreviewWearableModel_t &wearable = m_Wearables.emplace_back();
				wearable.m_Name = item.m_SlotName;
				wearable.m_ModelPath = item.m_ModelPath;
				wearable.m_nItem = (int)i;
				wearable.m_nSkin = nSkin;
				wearable.m_bSubmission = item.m_bSubmission;
			}
			for (const ZarnPreviewAssetModifier_t &modifier : style.m_AssetModifiers[ZARN_PREVIEW_ASSET_ADDITIONAL_WEARABLE])
			{
				const CUtlString &model = modifier.m_Replacement.empty() ? modifier.m_Asset : modifier.m_Replacement;
				if (model.empty())
					continue;
				ZarnPreviewWearableModel_t &wearable = m_Wearables.emplace_back();
				wearable.m_Name = V_Format("additional_wearable%i", nAdditional++);
				wearable.m_ModelPath = model;
				wearable.m_nItem = (int)i;
				wearable.m_nSkin = nSkin;
			}
		}

		// Units the hero's slots summon, with the models the items give them.
		for (const hero_slot_t &slot : pHero->slots)
		{
			for (const CUtlString &unitName : slot.generatesUnits)
			{
				const ZARNGameUnitData_t *pUnit = unitName.empty() ? nullptr : GetGameUnitTable().FindUnit(unitName.c_str());
				if (!pUnit)
					continue;
				// The submission's own item has the last word.
				CUtlString model = pUnit->model;
				for (int nPass = 0; nPass < 2; ++nPass)
				{
					for (const std::unique_ptr<CZarnPreviewItem> &pItem : m_Items)
					{
						if (pItem->m_bSubmission != (nPass == 1))
							continue;
						const ZarnPreviewAssetModifier_t *pChange =
							pItem->GetStyle(pItem->m_bSubmission ? m_nStyle : 0).FindAsset(ZARN_PREVIEW_ASSET_ENTITY_MODEL, unitName.c_str());
						if (pChange && !pChange->m_Replacement.empty())
							model = pChange->m_Replacement;
					}
				}
				if (model.empty())
					continue;
				ZarnPreviewSummonModel_t &summon = m_Summons.emplace_back();
				summon.m_Unit = unitName;
				summon.m_ModelPath = model;
			}
		}
	}

	// Particles and control points of every item's current style, with their targets bound.
	for (const std::unique_ptr<CZarnPreviewItem> &pItem : m_Items)
	{
		const CZarnPreviewStyle &style = pItem->GetStyle(pItem->m_bSubmission ? m_nStyle : 0);
		const CUtlString &owner = bHeroScene ? pItem->m_ModelPath : m_SubjectModel;
		for (const ZarnPreviewParticleSystem_t &particle : style.m_Particles)
		{
			ZarnPreviewParticleSystem_t &out = m_Particles.emplace_back(particle);
			out.m_OwnerModel = owner;
			for (ZarnPreviewParticleTarget_t &target : out.m_Targets)
			{
				target.m_eTarget = ZARN_PARTICLE_TARGET_NONE;
				if (target.m_nType == 2 || target.m_nType == 8)
					continue;
				if (V_stricmp(target.m_Name.c_str(), "parent") == 0)
				{
					target.m_eTarget = ZARN_PARTICLE_TARGET_PARENT;
					continue;
				}
				bool bKnown = V_stricmp(target.m_Name.c_str(), m_HeroName.c_str()) == 0;
				for (const ZarnPreviewWearableModel_t &wearable : m_Wearables)
					bKnown = bKnown || V_stricmp(target.m_Name.c_str(), wearable.m_Name.c_str()) == 0;
				for (const ZarnPreviewSummonModel_t &summon : m_Summons)
					bKnown = bKnown || V_stricmp(target.m_Name.c_str(), summon.m_Unit.c_str()) == 0;
				if (bKnown)
					target.m_eTarget = ZARN_PARTICLE_TARGET_NAMED_MODEL;
			}
		}
		for (const ZarnPreviewControlPointModifier_t &point : style.m_ControlPoints)
			m_ControlPoints.push_back(point);
	}
}
