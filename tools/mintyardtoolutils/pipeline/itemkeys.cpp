#include "mintyardtoolutils/pipeline/itemkeys.h"

#include <ctime>
#include <memory>
#include <set>

#include "core/keyvalues.h"
#include "core/logging.h"
#include "core/strtools.h"
#include "itemtool/itemtoolmodel.h"
#include "mintyardtoolutils/core/cfgelements.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/core/portraitrecord.h"
#include "toolframework/convar.h"

namespace
{
DEFINE_LOGGING_CHANNEL(LOG_ITEM_KEYS, "MintyardManager");

ConVar zarn_mintyard_dump_item_kv("zarn_mintyard_dump_item_kv", "", "Print the key values of every item definition the import makes");

const CMintyardTemplate_ZarnItemDef *Template(const CMintyardCfg_ZarnItemDef *pItemDef)
{
	return pItemDef ? pItemDef->GetItemDefTemplate() : nullptr;
}

const CMintyardImportSession *Session(const CMintyardCfg_ZarnItemDef *pItemDef)
{
	return pItemDef ? pItemDef->GetRootSession() : nullptr;
}

// The template's hero and slot, both resolved; false when the template has not both.
bool TemplateHeroAndSlot(const CMintyardTemplate_ZarnItemDef *pTemplate, const hero_t *&pHero, const hero_slot_t *&pSlot)
{
	pHero = nullptr;
	pSlot = nullptr;
	if (!pTemplate || pTemplate->hero_name < 0 || pTemplate->loadout_slot < 0)
		return false;
	pHero = GetHeroTable().GetHero(pTemplate->hero_name);
	if (!pHero || pTemplate->loadout_slot >= (int)pHero->slots.size())
		return false;
	pSlot = &pHero->slots[pTemplate->loadout_slot];
	return true;
}

// "#ZARN" + "_" + prefix + text + suffix, with every character dropped that is no letter, digit,
// "_" or "#".
CUtlString LocalizationToken(const char *pszPrefix, const char *pszText, const char *pszSuffix)
{
	const CUtlString raw = V_Format("#ZARN_%s%s%s", pszPrefix ? pszPrefix : "", pszText ? pszText : "", pszSuffix ? pszSuffix : "");
	CUtlString out;
	for (const char c : raw)
	{
		if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '#')
			out += c;
	}
	return out;
}

bool StepAddItemId(CMintyardCfg_ZarnItemDef *pItemDef, KeyValues *pKeys)
{
	pKeys->SetName(V_Format("%u", pItemDef->m_nDefIndex).c_str());
	return true;
}
bool StepAddName(CMintyardCfg_ZarnItemDef *pItemDef, KeyValues *pKeys)
{
	pKeys->SetString("name", pItemDef->m_ItemName.c_str());
	return true;
}
bool StepAddDescription(CMintyardCfg_ZarnItemDef *pItemDef, KeyValues *pKeys)
{
	pKeys->FindKey("localization", true)->SetString("item_description", pItemDef->m_ItemDescription.c_str());
	return true;
}
bool StepAddRarity(CMintyardCfg_ZarnItemDef *, KeyValues *pKeys)
{
	pKeys->SetString("item_rarity", "common");
	return true;
}
bool StepAddQuality(CMintyardCfg_ZarnItemDef *, KeyValues *pKeys)
{
	pKeys->SetString("item_quality", "unique");
	return true;
}
bool StepAddPrefab(CMintyardCfg_ZarnItemDef *pItemDef, KeyValues *pKeys)
{
	pKeys->SetString("prefab", Template(pItemDef) ? Template(pItemDef)->prefab_type.c_str() : "");
	return true;
}
bool StepAddCreationDate(CMintyardCfg_ZarnItemDef *, KeyValues *pKeys)
{
	const time_t now = time(nullptr);
	struct tm local;
	localtime_r(&now, &local);
	pKeys->SetString("creation_date", V_Format("%i-%02i-%02i", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday).c_str());
	return true;
}
bool StepAddLocalization(CMintyardCfg_ZarnItemDef *pItemDef, KeyValues *pKeys)
{
	const CMintyardTemplate_ZarnItemDef *pTemplate = Template(pItemDef);
	const CUtlString typeName = pTemplate ? pTemplate->item_type_name : CUtlString();
	pKeys->SetString("item_name", LocalizationToken(pTemplate ? pTemplate->localization_prefix.c_str() : "", pItemDef->m_ItemName.c_str(),
									  pTemplate ? pTemplate->localization_suffix.c_str() : "")
									  .c_str());
	pKeys->SetString("item_description",
		pItemDef->m_ItemDescription.empty() ? "" : LocalizationToken("Item_Desc_", pItemDef->m_ItemName.c_str(), "").c_str());
	pKeys->SetString("item_type_name", typeName.empty() ? "" : LocalizationToken("WearableType_", typeName.c_str(), "").c_str());
	KeyValues *pTexts = pKeys->FindKey("localization", true);
	pTexts->SetString("item_type_name", typeName.c_str());
	pTexts->SetString("item_name", pItemDef->m_ItemName.c_str());
	pTexts->SetString("item_description", pItemDef->m_ItemDescription.c_str());
	return true;
}
bool StepAddNeverDropAsLoot(CMintyardCfg_ZarnItemDef *, KeyValues *pKeys)
{
	pKeys->SetInt("never_drop_as_loot", 1);
	return true;
}
bool StepAddDeveloper(CMintyardCfg_ZarnItemDef *, KeyValues *pKeys)
{
	pKeys->SetInt("developer", 1);
	return true;
}
bool StepRemoveBaseItem(CMintyardCfg_ZarnItemDef *, KeyValues *pKeys)
{
	pKeys->FindAndDeleteSubKey("baseitem");
	return true;
}

bool PrefabMatches(const ItemDefinitionKeyValuesTemplateInfo_t &row, const CMintyardCfg_ZarnItemDef *pItemDef)
{
	return !row.m_pszPrefabFilter || (Template(pItemDef) && V_stristr(Template(pItemDef)->prefab_type.c_str(), row.m_pszPrefabFilter));
}

CUtlVector<const ItemDefinitionKeyValuesTemplateInfo_t *> CollectSteps(const CMintyardCfg_ZarnItemDef *pItemDef, int nFlag)
{
	CUtlVector<const ItemDefinitionKeyValuesTemplateInfo_t *> steps;
	for (const ItemDefinitionKeyValuesTemplateInfo_t &row : GetItemDefinitionKeyValuesTemplates())
	{
		if ((row.m_nFlags & nFlag) && PrefabMatches(row, pItemDef))
			steps.push_back(&row);
	}
	return steps;
}

// `import_session_name` and `import_session_file_id` of the session.
void SetSessionKeys(const CMintyardCfg_ZarnItemDef *pItemDef, KeyValues *pKeys)
{
	const CMintyardImportSession *pSession = Session(pItemDef);
	const CUtlString name = pSession && pSession->GetNameElement() ? pSession->GetNameElement()->Value() : CUtlString();
	const uint64 fileId = pSession ? pSession->GetSubmissionDetails()->m_nPublishedFileId : 0;
	pKeys->SetString("import_session_name", name.c_str());
	pKeys->SetString("import_session_file_id", V_Format("%llu", (unsigned long long)fileId).c_str());
}

bool ProcessWearableKeys(const CMintyardCfg_ZarnItemDef *pItemDef, KeyValues *pKeys)
{
	const CMintyardTemplate_ZarnItemDef *pTemplate = Template(pItemDef);
	const hero_t *pHero;
	const hero_slot_t *pSlot;
	if (!TemplateHeroAndSlot(pTemplate, pHero, pSlot))
		return true;
	const CMintyardImportSession *pSession = Session(pItemDef);
	pKeys->SetString("item_slot", pSlot->slotName.c_str());
	struct
	{
		const CUtlString &expression;
		const char *key;
		const char *failure;
	} models[] = {
		{ pTemplate->model_player_expr, "model_player", "Failed to evaluate player model experession: %s\n" },
		{ pTemplate->model_player1_expr, "model_player1", "Failed to evaluate player model 1 experession: %s\n" },
	};
	for (const auto &model : models)
	{
		if (model.expression.empty())
			continue;
		CUtlString value;
		if (!ResolveExpression(pSession, model.expression.c_str(), value))
		{
			Log_Warning(LOG_ITEM_KEYS, model.failure, model.expression.c_str());
			return false;
		}
		pKeys->SetString(model.key, value.c_str());
	}
	KeyValues *pHeroes = pKeys->FindKey("used_by_heroes", true);
	pHeroes->Clear();
	pHeroes->SetInt(pHero->name.c_str(), 1);
	return true;
}

bool ProcessVisuals(const CMintyardCfg_ZarnItemDef *pItemDef, KeyValues *pKeys)
{
	const CMintyardTemplate_ZarnItemDef *pTemplate = Template(pItemDef);
	const CMintyardImportSession *pSession = Session(pItemDef);
	KeyValues *pVisuals = pKeys->FindKey("visuals", true);
	if (pTemplate->clear_visuals)
		pVisuals->Clear();
	for (const CMintyardTemplate_ZarnItemDef::Visual_t &row : pTemplate->visuals)
	{
		CUtlString asset, modifier;
		if (!ResolveExpression(pSession, row.asset_expr.c_str(), asset))
		{
			Log_Warning(LOG_ITEM_KEYS, "Failed to evaluate asset experession: %s\n", row.asset_expr.c_str());
			return false;
		}
		if (!ResolveExpression(pSession, row.modifier_expr.c_str(), modifier))
		{
			Log_Warning(LOG_ITEM_KEYS, "Failed to evaluate modifier experession: %s\n", row.modifier_expr.c_str());
			return false;
		}
		if (asset.empty() && row.skip_if_asset_empty)
			continue;
		KeyValues *pEntry = nullptr;
		for (KeyValues *pSub = pVisuals->GetFirstSubKey(); pSub && !pEntry; pSub = pSub->GetNextKey())
		{
			if (V_strnicmp(pSub->GetName(), "asset_modifier", 14) != 0 || !V_StrEqualNoCase(pSub->GetString("type"), row.type))
				continue;
			if (row.replace_by_type || asset == pSub->GetString("asset"))
				pEntry = pSub;
		}
		if (!pEntry)
			pEntry = pVisuals->AddKey("asset_modifier");
		pEntry->SetString("type", row.type.c_str());
		pEntry->SetString("asset", asset.c_str());
		pEntry->SetString("modifier", modifier.c_str());
		if (!row.frequency.empty())
			pEntry->SetString("frequency", row.frequency.c_str());
	}
	return true;
}

void ProcessPortraits(const CMintyardCfg_ZarnItemDef *pItemDef, KeyValues *pKeys)
{
	if (!Template(pItemDef)->has_portrait)
		return;
	KeyValues *pPortraits = pKeys->FindKey("portraits", true);
	pPortraits->Clear();
	const CMintyardImportSession *pSession = Session(pItemDef);
	for (const CMintyardCfg_ZarnModel *pModel : pSession ? pSession->m_Models : CUtlVector<CMintyardCfg_ZarnModel *>())
		pModel->m_PortraitRecord.WriteKeys(pPortraits->AddKey(pModel->GetZmdlName().c_str()));
}

bool ProcessSetKeys(const CMintyardCfg_ZarnItemDef *pItemDef, KeyValues *pKeys)
{
	const CMintyardImportSession *pSession = Session(pItemDef);
	for (const CMintyardTemplate_ZarnItemDef::KeyExpr_t &pair : Template(pItemDef)->set_keys)
	{
		CUtlString key, value;
		if (!ResolveExpression(pSession, pair.key_expr.c_str(), key) || !ResolveExpression(pSession, pair.value_expr.c_str(), value) ||
			key.empty())
			return false;
		pKeys->FindKey(key.c_str(), true)->SetString(nullptr, value.c_str());
	}
	return true;
}

void DumpKeys(const KeyValues *pKeys)
{
	if (!zarn_mintyard_dump_item_kv.GetString()[0])
		return;
	Msg("------------------------------------ FINAL KEY VALUES ------------------------------------\n");
	CUtlBuffer text(CUtlBuffer::TEXT_BUFFER);
	pKeys->SaveToBuffer(text);
	Msg("%.*s\n", (int)text.Size(), (const char *)text.Base());
}
} // namespace

const CUtlVector<ItemDefinitionKeyValuesTemplateInfo_t> &GetItemDefinitionKeyValuesTemplates()
{
	static const CUtlVector<ItemDefinitionKeyValuesTemplateInfo_t> rows = {
		{ ITEM_KV_BLOCK_ADD_ITEM_ID, ITEM_KV_RUN_ON_NEW, "add item id", "process_item_kv_template_add_item_id", nullptr, StepAddItemId },
		{ ITEM_KV_BLOCK_ADD_NAME, ITEM_KV_RUN_ON_NEW, "add name", "process_item_kv_template_add_name", nullptr, StepAddName },
		{ ITEM_KV_BLOCK_ADD_DESCRIPTION, ITEM_KV_RUN_ON_NEW, "add description", "process_item_kv_template_add_description", nullptr,
			StepAddDescription },
		{ ITEM_KV_BLOCK_ADD_RARITY, ITEM_KV_RUN_ON_NEW, "add rarity", "process_item_kv_template_add_rarity", nullptr, StepAddRarity },
		{ ITEM_KV_BLOCK_ADD_QUALITY, ITEM_KV_RUN_ON_NEW, "add quality", "process_item_kv_template_add_quality", nullptr, StepAddQuality },
		{ ITEM_KV_BLOCK_ADD_PREFAB, ITEM_KV_RUN_ON_NEW, "add prefab", "process_item_kv_template_add_prefab", nullptr, StepAddPrefab },
		{ ITEM_KV_BLOCK_ADD_CREATION_DATE, ITEM_KV_RUN_ON_NEW, "add creation date", "process_item_kv_template_add_creation_date", nullptr,
			StepAddCreationDate },
		{ ITEM_KV_BLOCK_ADD_LOCALIZATION, ITEM_KV_RUN_ON_NEW, "add localization", "process_item_kv_template_add_localization", nullptr,
			StepAddLocalization },
		{ ITEM_KV_BLOCK_ADD_NEVER_DROP_AS_LOOT, ITEM_KV_RUN_ON_NEW, "add never drop as loot",
			"process_item_kv_template_add_never_drop_as_loot", nullptr, StepAddNeverDropAsLoot },
		{ ITEM_KV_BLOCK_ADD_DEVELOPER, ITEM_KV_RUN_ON_NEW, "add developer", "process_item_kv_template_add_developer", nullptr,
			StepAddDeveloper },
		{ ITEM_KV_BLOCK_REMOVE_BASEITEM, ITEM_KV_RUN_ON_NEW, "remove baseitem", "process_item_kv_template_remove_baseitem", nullptr,
			StepRemoveBaseItem },
	};
	return rows;
}

bool ProcessItemKeys(CMintyardCfg_ZarnItemDef *pItemDef, const CUtlVector<const ItemDefinitionKeyValuesTemplateInfo_t *> &steps,
	KeyValues *pKeys)
{
	if (!pItemDef || !pKeys || !Template(pItemDef))
		return false;
	for (const ItemDefinitionKeyValuesTemplateInfo_t *pRow : steps)
	{
		Log_Msg(LOG_ITEM_KEYS, "Running '%s'\n", pRow->m_pszName);
		if (!pRow->m_pfnStep(pItemDef, pKeys))
			return false;
	}
	if (!ProcessWearableKeys(pItemDef, pKeys))
	{
		Log_Warning(LOG_ITEM_KEYS, "Failed to update wearable keys.\n");
		return false;
	}
	if (!ProcessVisuals(pItemDef, pKeys))
	{
		Log_Warning(LOG_ITEM_KEYS, "Failed to add visuals from template.\n");
		return false;
	}
	ProcessPortraits(pItemDef, pKeys);
	if (!ProcessSetKeys(pItemDef, pKeys))
	{
		Log_Warning(LOG_ITEM_KEYS, "Failed to update generic set keys.\n");
		return false;
	}
	return true;
}

KeyValues *CreateKVForItem(CMintyardCfg_ZarnItemDef *pItemDef)
{
	const CMintyardTemplate_ZarnItemDef *pTemplate = Template(pItemDef);
	if (!pTemplate)
		return nullptr;
	std::unique_ptr<KeyValues> pKeys(new KeyValues(V_Format("%u", pItemDef->m_nDefIndex).c_str()));
	const KeyValues *pStart = pItemDef->m_pSourceKeys ? pItemDef->m_pSourceKeys : pTemplate->FindDefaultItem();
	if (pStart)
	{
		pStart->CopySubkeys(pKeys.get());
		pKeys->FindAndDeleteSubKey("image_inventory");
	}
	if (!ProcessItemKeys(pItemDef, CollectSteps(pItemDef, ITEM_KV_RUN_ON_NEW), pKeys.get()))
		return nullptr;
	pKeys->FindAndDeleteSubKey("item_set");
	SetSessionKeys(pItemDef, pKeys.get());
	DumpKeys(pKeys.get());
	return pKeys.release();
}

KeyValues *UpdateKVForItem(CMintyardCfg_ZarnItemDef *pItemDef, const KeyValues *pExistingKeys,
	const CUtlVector<ItemDefinitionKeyValuesTemplateBlock_t> &tickedBlocks)
{
	if (!pItemDef || !pExistingKeys || !Template(pItemDef))
		return nullptr;
	std::unique_ptr<KeyValues> pKeys(pExistingKeys->MakeCopy());
	CUtlVector<const ItemDefinitionKeyValuesTemplateInfo_t *> steps;
	for (const ItemDefinitionKeyValuesTemplateInfo_t *pRow : CollectSteps(pItemDef, ITEM_KV_RUN_ON_UPDATE))
	{
		if (std::find(tickedBlocks.begin(), tickedBlocks.end(), pRow->m_eBlock) == tickedBlocks.end())
			Log_Msg(LOG_ITEM_KEYS, "Removing %s\n", pRow->m_pszLabel);
		else
			steps.push_back(pRow);
	}
	if (!ProcessItemKeys(pItemDef, steps, pKeys.get()))
		return nullptr;
	SetSessionKeys(pItemDef, pKeys.get());
	return pKeys.release();
}

void SetNewItemPaymentRule(KeyValues *pKeys, uint64 nPublishedFileId)
{
	if (!pKeys || nPublishedFileId == 0 || nPublishedFileId == PUBLISHED_FILE_ID_INVALID)
		return;
	KeyValues *pRules = pKeys->FindKey("payment_rules", true);
	pRules->Clear();
	KeyValues *pRule = pRules->AddKey("0");
	pRule->SetFloat("mintyard_revenue_share", 0.25f);
	pRule->FindKey("targets", true)->SetInt(V_Format("%llu", (unsigned long long)nPublishedFileId).c_str(), 1);
}

void UpdatePaymentRules(QWidget *, uint64 nPublishedFileId, KeyValues *pKeys, const PaymentRuleAskDelegate_t &ask)
{
	if (!pKeys || nPublishedFileId == 0 || nPublishedFileId == PUBLISHED_FILE_ID_INVALID)
		return;
	KeyValues *pRules = pKeys->FindKey("payment_rules", true);
	std::vector<CUtlString> targets;
	for (KeyValues *pRule = pRules->GetFirstTrueSubKey(); pRule; pRule = pRule->GetNextTrueSubKey())
	{
		if (!pRule->FindKey("mintyard_revenue_share"))
			continue;
		if (KeyValues *pTargets = pRule->FindKey("targets"))
		{
			for (KeyValues *pTarget = pTargets->GetFirstSubKey(); pTarget; pTarget = pTarget->GetNextKey())
				targets.push_back(pTarget->GetName());
		}
	}
	const CUtlString id = V_Format("%llu", (unsigned long long)nPublishedFileId);
	if (targets.empty())
	{
		int n = 0;
		while (pRules->FindKey(V_Format("%d", n).c_str()))
			++n;
		KeyValues *pRule = pRules->AddKey(V_Format("%d", n).c_str());
		pRule->SetFloat("mintyard_revenue_share", 0.25f);
		pRule->FindKey("targets", true)->SetInt(id.c_str(), 1);
		return;
	}
	if (targets.size() > 1)
	{
		Log_Warning(LOG_ITEM_KEYS, "CMintyardCfg_ZarnItemDef::UpdatePaymentRules:  can't update mintyard_revenue_share because item has complex "
								   "payment rules (multiple targets, etc.)\n");
		return;
	}
	if (targets[0] == id)
	{
		Log_Msg(LOG_ITEM_KEYS, "CMintyardCfg_ZarnItemDef::UpdatePaymentRules:  not changing payment rule for %llu, it's up to date\n",
			(unsigned long long)nPublishedFileId);
		return;
	}
	const uint64 from = strtoull(targets[0].c_str(), nullptr, 10);
	if (!ask || !ask(from, nPublishedFileId))
		return;
	// The new id stands beside the old entries in every rule that has both keys.
	for (KeyValues *pRule = pRules->GetFirstTrueSubKey(); pRule; pRule = pRule->GetNextTrueSubKey())
	{
		KeyValues *pTargets = pRule->FindKey("targets");
		if (!pRule->FindKey("mintyard_revenue_share") || !pTargets)
			continue;
		pTargets->SetInt(id.c_str(), 1);
	}
}

CUtlString GetItemDirectory(KeyValues *pKeys, int nPrefabOverride)
{
	return EconItemToolModel()->GetItemDirectory(pKeys, nPrefabOverride);
}

CUtlString GetItemFileName(KeyValues *pKeys, int nPrefabOverride)
{
	return EconItemToolModel()->GetItemFileName(pKeys, nPrefabOverride);
}
