// Item definition keys: the KeyValues block of a finished import as the game defines items, made
// from scratch for a new item or changed in place for an update, with the wearable keys, the
// visuals, the portraits and the set keys of the template, and the payment rule.
#pragma once

#include <functional>

#include "core/utlstring.h"
#include "core/utlvector.h"

class KeyValues;
class CMintyardCfg_ZarnItemDef;
class QWidget;

enum ItemDefinitionKeyValuesTemplateBlock_t
{
	ITEM_KV_BLOCK_ADD_ITEM_ID = 0,
	ITEM_KV_BLOCK_ADD_NAME,
	ITEM_KV_BLOCK_ADD_DESCRIPTION,
	ITEM_KV_BLOCK_ADD_RARITY,
	ITEM_KV_BLOCK_ADD_QUALITY,
	ITEM_KV_BLOCK_ADD_PREFAB,
	ITEM_KV_BLOCK_ADD_CREATION_DATE,
	ITEM_KV_BLOCK_ADD_LOCALIZATION,
	ITEM_KV_BLOCK_ADD_NEVER_DROP_AS_LOOT,
	ITEM_KV_BLOCK_ADD_DEVELOPER,
	ITEM_KV_BLOCK_REMOVE_BASEITEM,
	ITEM_KV_BLOCK_COUNT,
};

enum
{
	ITEM_KV_RUN_ON_NEW = 1 << 0,
	ITEM_KV_RUN_ON_UPDATE = 1 << 1,
};

typedef bool (*ItemKeysStepFn_t)(CMintyardCfg_ZarnItemDef *pItemDef, KeyValues *pKeys);

// One row of the step table.
struct ItemDefinitionKeyValuesTemplateInfo_t
{
	ItemDefinitionKeyValuesTemplateBlock_t m_eBlock;
	int m_nFlags;
	const char *m_pszLabel;
	const char *m_pszName;
	const char *m_pszPrefabFilter; // null matches every prefab, else a substring of prefab_type
	ItemKeysStepFn_t m_pfnStep;
};

// The eleven rows, in order.
const CUtlVector<ItemDefinitionKeyValuesTemplateInfo_t> &GetItemDefinitionKeyValuesTemplates();

// The keys of a new item (owned by the caller), or null when they could not be made.
KeyValues *CreateKVForItem(CMintyardCfg_ZarnItemDef *pItemDef);
// A changed copy of `pExistingKeys` (owned by the caller), or null. Only the rows whose block is
// in `tickedBlocks` run (none has an update flag, so in practice none).
KeyValues *UpdateKVForItem(CMintyardCfg_ZarnItemDef *pItemDef, const KeyValues *pExistingKeys,
	const CUtlVector<ItemDefinitionKeyValuesTemplateBlock_t> &tickedBlocks);
// Runs the rows, then the wearable keys, visuals, portraits and set keys of the template.
bool ProcessItemKeys(CMintyardCfg_ZarnItemDef *pItemDef, const CUtlVector<const ItemDefinitionKeyValuesTemplateInfo_t *> &steps,
	KeyValues *pKeys);

// The payment rule of a new item: `payment_rules` cleared, with the rule "0" giving the session's
// file a quarter.
void SetNewItemPaymentRule(KeyValues *pKeys, uint64 nPublishedFileId);
// Asks whether a rule's target may change from one file to another (null: a message box).
typedef std::function<bool(uint64 nFrom, uint64 nTo)> PaymentRuleAskDelegate_t;
// Brings the payment rule of an existing item to the session's file.
void UpdatePaymentRules(QWidget *pParent, uint64 nPublishedFileId, KeyValues *pKeys, const PaymentRuleAskDelegate_t &ask);

// Where the item's ".item" file goes (through the item tool model); `nPrefabOverride` 43 keeps it.
CUtlString GetItemDirectory(KeyValues *pKeys, int nPrefabOverride);
CUtlString GetItemFileName(KeyValues *pKeys, int nPrefabOverride);
