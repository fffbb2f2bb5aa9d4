// Item definition keys: a new item from its template's default item, an update that runs no
// step, the wearable keys, visuals, portraits, set keys, payment rules and file names.
#include <gtest/gtest.h>

#include "core/keyvalues.h"
#include "importtestgame.h"
#include "mintyardtoolutils/pipeline/itemkeys.h"

namespace
{
// A head wearable of Bramble with one model whose path the item's model_player takes.
std::unique_ptr<CMintyardTemplate> WearableTemplate()
{
	auto t = std::make_unique<CMintyardTemplate>();
	t->Init("wearable.npc_zarn_hero_bramble.head", "#Wearable", "", false);
	t->directory = "bramble";
	CMintyardTemplate_ZarnModel &model = t->models.emplace_back();
	model.Init("model_head", "#Model", "", false);
	model.lod_list.emplace_back().Init("lod0", "#LOD0", "", false);
	CMintyardTemplate_ZarnItemDef &item = t->item_defs.emplace_back();
	item.Init("item", "", "", false);
	item.prefab_type = "wearable";
	item.localization_prefix = "Bramble_";
	item.localization_suffix = "_Hat";
	item.item_type_name = "Hat";
	item.model_player_expr = "$(model_head:zmdl_name)";
	item.has_portrait = true;
	item.hero_name = GetHeroTable().FindHeroIndex("npc_zarn_hero_bramble");
	item.loadout_slot = GetHeroTable().FindHero("npc_zarn_hero_bramble")->FindSlot("head");
	return t;
}

CMintyardCfg_ZarnItemDef *ItemDef(CMintyardImportSession &session)
{
	return session.m_ItemDefs.empty() ? nullptr : session.m_ItemDefs[0];
}
} // namespace

TEST(ItemKeys, ANewWearableStartsFromTheSlotsDefaultItem)
{
	CImportTestGame game;
	CMintyardImportSession &session = game.NewSession(WearableTemplate(), "leaf_crown");
	session.m_Submission.m_nPublishedFileId = 4217;
	CMintyardCfg_ZarnItemDef *pItem = ItemDef(session);
	ASSERT_NE(pItem, nullptr);
	pItem->m_nDefIndex = 900123;
	pItem->m_ItemName = "Leaf & Bark Crown!";
	pItem->m_ItemDescription = "";
	session.m_Models[0]->m_PortraitRecord.m_Cameras[0].m_flFOV = 33.0f;

	std::unique_ptr<KeyValues> keys(CreateKVForItem(pItem));
	ASSERT_NE(keys, nullptr);
	EXPECT_STREQ(keys->GetName(), "900123");
	EXPECT_STREQ(keys->GetString("name"), "Leaf & Bark Crown!");
	EXPECT_STREQ(keys->GetString("prefab"), "wearable");
	EXPECT_STREQ(keys->GetString("item_rarity"), "common");
	EXPECT_STREQ(keys->GetString("item_quality"), "unique");
	EXPECT_EQ(keys->GetInt("never_drop_as_loot"), 1);
	EXPECT_EQ(keys->GetInt("developer"), 1);
	EXPECT_EQ(keys->FindKey("baseitem"), nullptr);	// the default item's flag is gone
	EXPECT_EQ(keys->FindKey("item_set"), nullptr);
	EXPECT_EQ(keys->FindKey("image_inventory"), nullptr);
	EXPECT_EQ(std::string(keys->GetString("creation_date")).size(), 10u);
	// Tokens in the keys, the plain texts under "localization"; no description: "" in both.
	EXPECT_STREQ(keys->GetString("item_name"), "#ZARN_Bramble_LeafBarkCrown_Hat");
	EXPECT_STREQ(keys->GetString("item_type_name"), "#ZARN_WearableType_Hat");
	EXPECT_STREQ(keys->GetString("item_description"), "");
	EXPECT_STREQ(keys->GetString("localization/item_name"), "Leaf & Bark Crown!");
	EXPECT_STREQ(keys->GetString("localization/item_description"), "");
	EXPECT_STREQ(keys->GetString("localization/item_type_name"), "Hat");
	// The wearable keys: the slot, the model, exactly one hero.
	EXPECT_STREQ(keys->GetString("item_slot"), "head");
	EXPECT_STREQ(keys->GetString("model_player"), session.m_Models[0]->GetZmdlName().c_str());
	KeyValues *heroes = keys->FindKey("used_by_heroes");
	ASSERT_NE(heroes, nullptr);
	int nHeroes = 0;
	for (KeyValues *k = heroes->GetFirstSubKey(); k; k = k->GetNextKey())
		++nHeroes;
	EXPECT_EQ(nHeroes, 1);
	EXPECT_EQ(heroes->GetInt("npc_zarn_hero_bramble"), 1);
	// The session's keys and the portrait of the model under its path.
	EXPECT_STREQ(keys->GetString("import_session_name"), "leaf_crown");
	EXPECT_STREQ(keys->GetString("import_session_file_id"), "4217");
	KeyValues *portraits = keys->FindKey("portraits");
	ASSERT_NE(portraits, nullptr);
	ASSERT_NE(portraits->GetFirstSubKey(), nullptr);
	EXPECT_STREQ(portraits->GetFirstSubKey()->GetName(), session.m_Models[0]->GetZmdlName().c_str());
	EXPECT_FLOAT_EQ(portraits->GetFirstSubKey()->GetFloat("cameras/default/PortraitFOV"), 33.0f);

	// Its file goes with the wearable's hero: blanks to '_', '&' to "and", the rest dropped.
	EXPECT_EQ(GetItemFileName(keys.get(), 43), "items/item_definitions/wearable/bramble/leaf_and_bark_crown.item");
}

TEST(ItemKeys, AnUpdateRunsNoStepAndKeepsTheItemsOwnKeys)
{
	CImportTestGame game;
	CMintyardImportSession &session = game.NewSession(WearableTemplate(), "leaf_crown");
	CMintyardCfg_ZarnItemDef *pItem = ItemDef(session);
	KeyValues existing("5000");
	existing.SetString("name", "Old Crown");
	existing.SetString("prefab", "wearable");
	existing.SetString("creation_date", "2024-01-02");
	existing.FindKey("item_set", true)->SetString("name", "kept");
	pItem->m_ItemName = "New Name";
	std::unique_ptr<KeyValues> keys(UpdateKVForItem(pItem, &existing, {}));
	ASSERT_NE(keys, nullptr);
	EXPECT_STREQ(keys->GetName(), "5000");
	EXPECT_STREQ(keys->GetString("name"), "Old Crown");
	EXPECT_STREQ(keys->GetString("creation_date"), "2024-01-02");
	EXPECT_STREQ(keys->GetString("prefab"), "wearable");
	EXPECT_STREQ(keys->GetString("item_set/name"), "kept");
	EXPECT_STREQ(keys->GetString("import_session_name"), "leaf_crown");
	EXPECT_STREQ(keys->GetString("model_player"), session.m_Models[0]->GetZmdlName().c_str()); // the common tail runs
	EXPECT_STREQ(existing.GetString("name"), "Old Crown"); // the existing keys are not touched
}

TEST(ItemKeys, VisualsAreFoundByTypeOrByTypeAndAsset)
{
	CImportTestGame game;
	auto t = WearableTemplate();
	CMintyardTemplate_ZarnItemDef &item = t->item_defs[0];
	item.visuals.push_back({ "particle", "particles/a.zpcf", "mod_a", "", false, false });
	item.visuals.push_back({ "particle", "particles/b.zpcf", "mod_b", "2", false, false });
	item.visuals.push_back({ "entity_model", "", "x", "", true, false }); // empty asset: skipped
	CMintyardImportSession &session = game.NewSession(std::move(t));
	std::unique_ptr<KeyValues> keys(CreateKVForItem(ItemDef(session)));
	ASSERT_NE(keys, nullptr);
	int nParticles = 0;
	for (KeyValues *k = keys->FindKey("visuals")->GetFirstSubKey(); k; k = k->GetNextKey())
		nParticles += std::string(k->GetString("type")) == "particle" ? 1 : 0;
	EXPECT_EQ(nParticles, 2);

	auto replacing = WearableTemplate();
	replacing->item_defs[0].visuals.push_back({ "particle", "particles/a.zpcf", "mod_a", "", false, true });
	replacing->item_defs[0].visuals.push_back({ "particle", "particles/b.zpcf", "mod_b", "", false, true });
	CMintyardImportSession &second = game.NewSession(std::move(replacing));
	keys.reset(CreateKVForItem(ItemDef(second)));
	ASSERT_NE(keys, nullptr);
	nParticles = 0;
	for (KeyValues *k = keys->FindKey("visuals")->GetFirstSubKey(); k; k = k->GetNextKey())
	{
		if (std::string(k->GetString("type")) != "particle")
			continue;
		++nParticles;
		EXPECT_STREQ(k->GetString("asset"), "particles/b.zpcf");
		EXPECT_STREQ(k->GetString("modifier"), "mod_b");
	}
	EXPECT_EQ(nParticles, 1);

	// An expression that names nothing ends the keys.
	auto broken = WearableTemplate();
	broken->item_defs[0].visuals.push_back({ "particle", "$(no_such_element:zmdl_name)", "", "", false, false });
	CMintyardImportSession &third = game.NewSession(std::move(broken));
	CCaptureLog log;
	EXPECT_EQ(CreateKVForItem(ItemDef(third)), nullptr);
	EXPECT_NE(log.m_Text.find("Failed to evaluate asset experession: $(no_such_element:zmdl_name)"), std::string::npos) << log.m_Text;
	EXPECT_NE(log.m_Text.find("Failed to add visuals from template."), std::string::npos);
}

TEST(ItemKeys, PaymentRules)
{
	KeyValues keys("1");
	SetNewItemPaymentRule(&keys, 777);
	EXPECT_FLOAT_EQ(keys.GetFloat("payment_rules/0/mintyard_revenue_share"), 0.25f);
	EXPECT_EQ(keys.GetInt("payment_rules/0/targets/777"), 1);

	// No target yet: the rule goes under the first free number.
	KeyValues other("2");
	other.FindKey("payment_rules/0", true)->SetFloat("partner_revenue_share", 0.1f);
	other.FindKey("payment_rules/1", true)->SetFloat("partner_revenue_share", 0.2f);
	UpdatePaymentRules(nullptr, 888, &other, nullptr);
	EXPECT_FLOAT_EQ(other.GetFloat("payment_rules/2/mintyard_revenue_share"), 0.25f);
	EXPECT_EQ(other.GetInt("payment_rules/2/targets/888"), 1);

	// Up to date: nothing changes and nobody is asked.
	bool bAsked = false;
	UpdatePaymentRules(nullptr, 888, &other, [&](uint64, uint64) { return bAsked = true; });
	EXPECT_FALSE(bAsked);

	// Another target: asked; "no" keeps it, "yes" puts the new file beside the old one.
	uint64 from = 0, to = 0;
	UpdatePaymentRules(nullptr, 999, &other, [&](uint64 a, uint64 b) { from = a, to = b; return false; });
	EXPECT_EQ(from, 888u);
	EXPECT_EQ(to, 999u);
	EXPECT_EQ(other.FindKey("payment_rules/2/targets/999"), nullptr);
	UpdatePaymentRules(nullptr, 999, &other, [](uint64, uint64) { return true; });
	EXPECT_EQ(other.GetInt("payment_rules/2/targets/999"), 1);
	EXPECT_EQ(other.GetInt("payment_rules/2/targets/888"), 1);

	// Several targets: left alone.
	CCaptureLog log;
	UpdatePaymentRules(nullptr, 1234, &other, [](uint64, uint64) { return true; });
	EXPECT_EQ(other.FindKey("payment_rules/2/targets/1234"), nullptr);
	EXPECT_NE(log.m_Text.find("complex payment rules"), std::string::npos);
}
