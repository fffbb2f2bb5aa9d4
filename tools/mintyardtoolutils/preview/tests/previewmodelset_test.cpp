// The preview model set on the sample game: what stands in the preview of each kind of sample
// session once imported (a wearable on its hero with the other slots' defaults, a courier by team
// and flying type, a ward by type, a model of no hero alone), variants, slots without a default
// item, items of one slot replacing each other, styles and modifier lists from `visuals`,
// particles and their targets, summons, the picker's models, animation and listeners.
#include <gtest/gtest.h>

#include <memory>

#include "core/keyvalues.h"
#include "core/strtools.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/preview/previewmodelset.h"
#include "mintyardtoolutils/preview/previewsession.h"
#include "itemtool/itemtoolmodel.h"
#include "previewtestgame.h"

namespace
{
const char *const BRAMBLE = "npc_zarn_hero_bramble";
const char *const BRIAR_CROWN = "models/items/bramble/briar_crown/briar_crown.zmdl";
const char *const SAMPLE_COURIER = "models/items/courier/sample_courier/sample_courier.zmdl";
const char *const SAMPLE_COURIER_FLYING = "models/items/courier/sample_courier/sample_courier_flying.zmdl";
const char *const SAMPLE_WARD = "models/items/ward/sample_owl_ward/sample_owl_ward.zmdl";

class CCountingListener : public IZarnPreviewModelSetListener
{
public:
	void OnPreviewModelSetChanged(CZarnPreviewModelSet *pSet) override
	{
		++m_nCalls;
		m_pLastSet = pSet;
	}
	int m_nCalls = 0;
	CZarnPreviewModelSet *m_pLastSet = nullptr;
};

// The wearables of a set as "slot=model" lines, in order.
std::string WearableList(const CZarnPreviewModelSet &set)
{
	std::string out;
	for (const ZarnPreviewWearableModel_t &wearable : set.GetWearableModels())
		out += wearable.m_Name + "=" + wearable.m_ModelPath + (wearable.m_bSubmission ? " (submission)" : "") + "\n";
	return out;
}

std::unique_ptr<KeyValues> ItemsGameCopy(int nIndex)
{
	KeyValues *pEntry = FindItemsGameEntry(nIndex);
	return std::unique_ptr<KeyValues>(pEntry ? pEntry->MakeCopy() : nullptr);
}

// Sets the value of the first "asset_modifier" of `type` whose asset is `asset`.
void SetModifier(KeyValues *pKeys, const char *pszType, const char *pszAsset, const char *pszModifier)
{
	KeyValues *pVisuals = pKeys->FindKey("visuals");
	ASSERT_NE(pVisuals, nullptr);
	for (KeyValues *pEntry = pVisuals->GetFirstTrueSubKey(); pEntry; pEntry = pEntry->GetNextTrueSubKey())
	{
		if (V_stricmp(pEntry->GetString("type"), pszType) == 0 && V_stricmp(pEntry->GetString("asset"), pszAsset) == 0)
		{
			pEntry->SetString("modifier", pszModifier);
			return;
		}
	}
	FAIL() << "no " << pszType << " entry for " << pszAsset;
}

class PreviewModelSetTest : public testing::Test
{
protected:
	void SetUp() override
	{
		ASSERT_TRUE(m_Game.m_bReady);
		ASSERT_TRUE(EnsureGameDataLoaded());
		m_nBramble = GetHeroTable().FindHeroIndex(BRAMBLE);
		ASSERT_GE(m_nBramble, 0);
	}

	// Imports a sample session and hands its model `nModel` to the set.
	void ShowSession(const char *pszSession, int nModel, ZarnSessionPreview_t &preview)
	{
		std::string messages;
		ASSERT_TRUE(m_Game.ImportSession(m_Session, pszSession, &messages)) << messages;
		ASSERT_TRUE(GetSessionPreview(&m_Session, nModel, preview));
		ASSERT_TRUE(ApplySessionPreview(preview, m_Set)) << preview.m_ModelPath;
	}

	CPreviewTestGame m_Game;
	CMintyardImportSession m_Session;
	CZarnPreviewModelSet m_Set;
	int m_nBramble = -1;
};
} // namespace

TEST_F(PreviewModelSetTest, AHeroWearableStandsOnItsHeroWithTheOtherSlotsDefaults)
{
	ZarnSessionPreview_t preview;
	ShowSession("wearable_bramble_head", 0, preview);
	EXPECT_EQ(BRIAR_CROWN, preview.m_ModelPath);
	EXPECT_EQ(m_nBramble, preview.m_nHeroIndex);
	EXPECT_EQ(GetHeroTable().GetHero(m_nBramble)->FindSlot("head"), preview.m_nSlot);
	EXPECT_EQ(ZARN_PREVIEW_MODE_HERO, preview.m_nMode);
	EXPECT_EQ(0, preview.m_nModelIndex); // the item's "model_player"
	EXPECT_FALSE(preview.m_bFlying);

	EXPECT_EQ(BRAMBLE, m_Set.GetHeroName());
	EXPECT_EQ("models/heroes/bramble/bramble.zmdl", m_Set.GetSubjectModel());
	EXPECT_FALSE(m_Set.IsSubjectTheModel());
	// Every slot of the hero's own persona that the tools show, in the hero's order: the crown in
	// the head slot, the default items elsewhere. The taunt is hidden from the tools; the persona
	// slots belong to the other persona; the taunt's and selector's items have no model anyway.
	EXPECT_EQ("weapon=models/heroes/bramble/bramble_weapon.zmdl\n"
			  "head=models/items/bramble/briar_crown/briar_crown.zmdl (submission)\n"
			  "back=models/heroes/bramble/bramble_back.zmdl\n"
			  "misc=models/heroes/bramble/bramble_misc.zmdl\n",
		WearableList(m_Set));

	// The items as the game takes them: one per slot under "Item<slot index>", numbered from the
	// test item base, without their set and inventory image; defaults are no base items.
	ASSERT_EQ(4, m_Set.GetItemCount());
	const char *const keys[] = { "Item0", "Item4", "Item10", "Item14" };
	for (int i = 0; i < 4; ++i)
	{
		const CZarnPreviewItem *pItem = m_Set.GetItem(i);
		EXPECT_EQ(keys[i], pItem->m_SlotKey);
		EXPECT_EQ(ECON_TEST_ITEM_INDEX_BASE + (uint32)i, pItem->m_nItemNumber);
		EXPECT_EQ(V_Format("%u", pItem->m_nItemNumber), pItem->GetKeys()->GetName());
		EXPECT_EQ(nullptr, pItem->GetKeys()->FindKey("item_set"));
		EXPECT_EQ(nullptr, pItem->GetKeys()->FindKey("image_inventory"));
	}
	EXPECT_TRUE(m_Set.GetItem(1)->m_bSubmission);
	EXPECT_EQ(std::string("preview_item_weapon"), m_Set.GetItem(0)->GetKeys()->GetString("name"));
	EXPECT_EQ(0, m_Set.GetItem(0)->GetKeys()->GetInt("baseitem", -1));
	EXPECT_TRUE(m_Set.GetItem(0)->m_bDefault);
	EXPECT_EQ(std::string(BRIAR_CROWN), m_Set.GetItem(1)->GetKeys()->GetString("model_player"));
	EXPECT_EQ(ZARN_PREVIEW_STOCK_ITEM_SET, m_Set.GetItem(0)->GetStyle(0).m_Name);

	// The hero's animations, and the crown's own attachment-free model.
	CUtlVector<CUtlString> sequences;
	m_Set.GetAnimationList(sequences);
	EXPECT_NE(std::find(sequences.begin(), sequences.end(), CUtlString("idle")), sequences.end());
	EXPECT_NE(std::find(sequences.begin(), sequences.end(), CUtlString("run")), sequences.end());
	EXPECT_EQ(ZARN_PREVIEW_DEFAULT_SEQUENCE, m_Set.GetSequence());
}

TEST_F(PreviewModelSetTest, TheAuthorsChoiceInAnotherSlotReplacesItsDefaultAndResetGoesBack)
{
	ZarnSessionPreview_t preview;
	ShowSession("wearable_bramble_head", 0, preview);
	CCountingListener listener;
	m_Set.AddListener(&listener);
	CUtlVector<CUtlString> slots, models;
	slots.push_back("weapon");
	models.push_back("models/heroes/bramble/bramble_weapon_persona_1.zmdl");
	m_Set.SelectWearables(slots, models);
	EXPECT_EQ(1, listener.m_nCalls);
	EXPECT_EQ(&m_Set, listener.m_pLastSet);
	EXPECT_NE(std::string::npos, WearableList(m_Set).find("weapon=models/heroes/bramble/bramble_weapon_persona_1.zmdl\n"));
	// A chosen model takes the keys of an item that shows it.
	EXPECT_EQ(std::string("preview_item_weapon"), m_Set.GetItem(0)->GetKeys()->GetString("name"));
	EXPECT_EQ(std::string("#ZARN_Item_Default_bramble_weapon_persona_1"), m_Set.GetItem(0)->GetKeys()->GetString("item_name"));
	EXPECT_FALSE(m_Set.GetItem(0)->m_bDefault);

	m_Set.ResetWearablesToDefault();
	EXPECT_EQ(2, listener.m_nCalls);
	EXPECT_NE(std::string::npos, WearableList(m_Set).find("weapon=models/heroes/bramble/bramble_weapon.zmdl\n"));

	// A model no item of the game shows is left out, with the message.
	CCaptureLog log;
	models[0] = "models/nowhere/unknown.zmdl";
	m_Set.SelectWearables(slots, models);
	EXPECT_EQ(std::string::npos, WearableList(m_Set).find("weapon="));
	EXPECT_NE(std::string::npos, log.m_Text.find("Failed to get representative item details for 'models/nowhere/unknown.zmdl'"));
	m_Set.RemoveListener(&listener);
	m_Set.ResetWearablesToDefault();
	EXPECT_EQ(3, listener.m_nCalls);

	// The picker's models of a slot: the default first.
	CUtlVector<CUtlString> offered;
	m_Set.GetSlotModels("weapon", offered);
	ASSERT_FALSE(offered.empty());
	EXPECT_EQ("models/heroes/bramble/bramble_weapon.zmdl", offered[0]);
}

TEST_F(PreviewModelSetTest, ACourierShowsItsModelByTeamAndItsFlyingFormByThePath)
{
	ZarnSessionPreview_t preview;
	ShowSession("courier", 0, preview);
	EXPECT_EQ(ZARN_PREVIEW_MODE_COURIER, preview.m_nMode);
	EXPECT_EQ(-1, preview.m_nHeroIndex);
	EXPECT_FALSE(preview.m_bFlying);
	// A courier's keys keep the stock courier's model_player: the path is under no such key.
	EXPECT_EQ(-1, preview.m_nModelIndex);
	EXPECT_EQ(ZARN_PREVIEW_MODE_COURIER, m_Set.GetPreviewMode());
	EXPECT_TRUE(m_Set.GetHeroName().empty());
	EXPECT_EQ(SAMPLE_COURIER, m_Set.GetSubjectModel());
	EXPECT_TRUE(m_Set.IsSubjectTheModel());
	EXPECT_TRUE(m_Set.GetWearableModels().empty());
	m_Set.SetCourierTeam(1);
	EXPECT_EQ(SAMPLE_COURIER, m_Set.GetSubjectModel());

	// The second model's path says "_flying": the same item seen flying.
	ZarnSessionPreview_t flying;
	ASSERT_TRUE(GetSessionPreview(&m_Session, 1, flying));
	EXPECT_EQ(SAMPLE_COURIER_FLYING, flying.m_ModelPath);
	EXPECT_TRUE(flying.m_bFlying);
	ASSERT_TRUE(ApplySessionPreview(flying, m_Set));
	EXPECT_EQ(1, m_Set.GetCourierType());
	EXPECT_EQ(SAMPLE_COURIER_FLYING, m_Set.GetSubjectModel());
	m_Set.SetCourierType(0);
	EXPECT_EQ(SAMPLE_COURIER, m_Set.GetSubjectModel());

	// The team word picks the entry: a courier whose moonward form is another model.
	std::unique_ptr<KeyValues> pKeys = ItemsGameCopy(595);
	ASSERT_NE(pKeys, nullptr);
	SetModifier(pKeys.get(), "courier", "moonward", "models/items/courier/moss_tortoise/moss_tortoise.zmdl");
	m_Set.SetPreviewItemKeys(pKeys.get(), false, 0);
	ASSERT_TRUE(m_Set.SetModel("models/props/courier/courier.zmdl", -1, -1));
	m_Set.SetCourierTeam(0);
	EXPECT_EQ("models/props/courier/courier.zmdl", m_Set.GetSubjectModel());
	m_Set.SetCourierTeam(1);
	EXPECT_EQ("models/items/courier/moss_tortoise/moss_tortoise.zmdl", m_Set.GetSubjectModel());
	m_Set.SetCourierType(1);
	EXPECT_EQ("models/props/courier/courier_flying.zmdl", m_Set.GetSubjectModel());
	// A team with no entry falls back to the item's own model.
	KeyValues *pVisuals = pKeys->FindKey("visuals");
	for (KeyValues *pEntry = pVisuals->GetFirstTrueSubKey(); pEntry; pEntry = pEntry->GetNextTrueSubKey())
		pEntry->SetString("asset", "nobody");
	m_Set.SetPreviewItemKeys(pKeys.get(), true, 0);
	EXPECT_EQ("models/props/courier/courier.zmdl", m_Set.GetSubjectModel());
}

TEST_F(PreviewModelSetTest, AWardShowsTheModelOfItsType)
{
	ZarnSessionPreview_t preview;
	ShowSession("ward", 0, preview);
	EXPECT_EQ(ZARN_PREVIEW_MODE_WARD, preview.m_nMode);
	EXPECT_EQ(SAMPLE_WARD, m_Set.GetSubjectModel());
	m_Set.SetWardType(1);
	EXPECT_EQ(SAMPLE_WARD, m_Set.GetSubjectModel());
	EXPECT_TRUE(m_Set.GetWearableModels().empty());

	// The stock ward: observer and sentry have models of their own.
	std::unique_ptr<KeyValues> pKeys = ItemsGameCopy(597);
	ASSERT_NE(pKeys, nullptr);
	m_Set.SetPreviewItemKeys(pKeys.get(), false, 0);
	ASSERT_TRUE(m_Set.SetModel("models/props/ward/ward.zmdl", -1, -1));
	m_Set.SetWardType(0);
	EXPECT_EQ("models/props/ward/ward.zmdl", m_Set.GetSubjectModel());
	m_Set.SetWardType(1);
	EXPECT_EQ("models/props/ward/ward_sentry.zmdl", m_Set.GetSubjectModel());
}

TEST_F(PreviewModelSetTest, AModelWithNoHeroStandsAlone)
{
	ZarnSessionPreview_t preview;
	ShowSession("bramble_thorn_volley", 0, preview);
	// The ability effect names a hero but no slot: nothing to wear it.
	EXPECT_EQ(-1, preview.m_nHeroIndex);
	EXPECT_EQ(ZARN_PREVIEW_MODE_ITEM, preview.m_nMode);
	EXPECT_TRUE(m_Set.GetHeroName().empty());
	EXPECT_EQ(nullptr, m_Set.GetHero());
	EXPECT_EQ(preview.m_ModelPath, m_Set.GetSubjectModel());
	EXPECT_TRUE(m_Set.IsSubjectTheModel());
	EXPECT_TRUE(m_Set.GetWearableModels().empty());
	ASSERT_EQ(1, m_Set.GetItemCount());
	EXPECT_EQ("ItemSlotAny", m_Set.GetItem(0)->m_SlotKey);
	// Its particle is listed (not drawn), owned by the model.
	ASSERT_EQ(1, m_Set.GetParticleSystems().size());
	EXPECT_EQ("particle", m_Set.GetParticleSystems()[0].m_Type);
	EXPECT_EQ("particles/heroes/bramble/thorn_volley_projectile.zpcf", m_Set.GetParticleSystems()[0].m_Replaces);
	EXPECT_EQ(preview.m_ModelPath, m_Set.GetParticleSystems()[0].m_OwnerModel);

	// A set with no keys at all and no hero shows the model by itself too.
	CZarnPreviewModelSet plain;
	plain.SetPreviewMode(ZARN_PREVIEW_MODE_HERO);
	ASSERT_TRUE(plain.SetModel("models/props/ward/ward.zmdl", -1, -1));
	EXPECT_EQ("models/props/ward/ward.zmdl", plain.GetSubjectModel());
	EXPECT_TRUE(plain.GetWearableModels().empty());
}

TEST_F(PreviewModelSetTest, AVariantItemLosesItsHero)
{
	ZarnSessionPreview_t preview;
	ShowSession("wearable_bramble_head", 0, preview);
	ASSERT_EQ(BRAMBLE, m_Set.GetHeroName());
	KeyValues *pEntry = preview.m_pItemKeys->FindKey("visuals", true)->AddKey("asset_modifier");
	pEntry->SetString("type", "Entity_Model");
	pEntry->SetString("asset", "npc_zarn_hero_bramble_VARIANT_elder");
	pEntry->SetString("modifier", BRIAR_CROWN);
	ASSERT_TRUE(ApplySessionPreview(preview, m_Set));
	EXPECT_EQ(ZARN_PREVIEW_MODE_ITEM, m_Set.GetPreviewMode());
	EXPECT_TRUE(m_Set.GetHeroName().empty());
	EXPECT_EQ(-1, m_Set.GetHeroIndex());
	EXPECT_TRUE(m_Set.GetWearableModels().empty());
	EXPECT_EQ(BRIAR_CROWN, m_Set.GetSubjectModel());
	// Whatever hero is asked for again.
	ASSERT_TRUE(m_Set.SetModel(BRIAR_CROWN, m_nBramble, preview.m_nSlot));
	EXPECT_TRUE(m_Set.GetHeroName().empty());
}

TEST_F(PreviewModelSetTest, ASlotWithoutADefaultItemIsLeftOutAndLogged)
{
	// A staging file gives Bramble a neck slot that no item of items_game fills.
	m_Game.Write("game/zarn/scripts/npc/npc_heroes_staging.txt",
		"\"ZARNHerosStaging\"\n{\n\t\"npc_zarn_hero_bramble\"\n\t{\n\t\t\"ItemSlots\"\n\t\t{\n\t\t\t\"8\"\n\t\t\t{\n"
		"\t\t\t\t\"SlotName\"\t\"neck\"\n\t\t\t\t\"MaxPolygonsLOD0\"\t\"500\"\n\t\t\t}\n\t\t}\n\t}\n}\n");
	ASSERT_TRUE(ReloadGameData());
	const hero_t *pBramble = GetHeroTable().FindHero(BRAMBLE);
	ASSERT_NE(pBramble, nullptr);
	ASSERT_GE(pBramble->FindSlot("neck"), 0);
	CCaptureLog log;
	ASSERT_TRUE(m_Set.SetModel("models/heroes/bramble/bramble_head.zmdl", GetHeroTable().FindHeroIndex(BRAMBLE), pBramble->FindSlot("head")));
	EXPECT_NE(std::string::npos, log.m_Text.find("Failed to find default item for 'neck'\n")) << log.m_Text;
	EXPECT_EQ(std::string::npos, WearableList(m_Set).find("neck"));
	EXPECT_NE(std::string::npos, WearableList(m_Set).find("back="));
	for (int i = 0; i < m_Set.GetItemCount(); ++i)
		EXPECT_NE("neck", m_Set.GetItem(i)->m_SlotName);
}

TEST_F(PreviewModelSetTest, TwoItemsOfOneSlotReplaceEachOther)
{
	const hero_t *pBramble = GetHeroTable().FindHero(BRAMBLE);
	CUtlVector<ZarnPreviewSlotChoice_t> choices;
	choices.push_back({ -1, "head", "" });
	choices.push_back({ -1, "back", "" });
	choices.push_back({ -1, "head", "models/heroes/bramble/bramble_head_persona_1.zmdl" });
	CUtlVector<std::unique_ptr<CZarnPreviewItem>> items;
	CZarnPreviewModelSet::BuildPreviewItems(pBramble, choices, nullptr, nullptr, items);
	ASSERT_EQ(2, items.size());
	EXPECT_EQ("Item4", items[0]->m_SlotKey);
	EXPECT_EQ("models/heroes/bramble/bramble_head_persona_1.zmdl", items[0]->m_ModelPath);
	EXPECT_EQ("Item10", items[1]->m_SlotKey);
	KeyValues tree("preview");
	CZarnPreviewModelSet::WritePreviewItems(items, &tree);
	int nHeads = 0;
	for (KeyValues *pEntry = tree.GetFirstTrueSubKey(); pEntry; pEntry = pEntry->GetNextTrueSubKey())
		nHeads += V_stricmp(pEntry->GetName(), "Item4") == 0;
	EXPECT_EQ(1, nHeads);
	EXPECT_EQ(std::string("models/heroes/bramble/bramble_head_persona_1.zmdl"), tree.FindKey("Item4")->GetString("model_player"));
	// A slot the hero does not have is skipped.
	choices.clear();
	choices.push_back({ -1, "courier", "" });
	items.clear();
	CZarnPreviewModelSet::BuildPreviewItems(pBramble, choices, nullptr, nullptr, items);
	EXPECT_TRUE(items.empty());
}

TEST_F(PreviewModelSetTest, StylesAndModifierListsComeFromVisuals)
{
	KeyValues keys("1");
	keys.SetString("model_player", "models/heroes/bramble/bramble_head.zmdl");
	KeyValues *pVisuals = keys.FindKey("visuals", true);
	KeyValues *pStyles = pVisuals->FindKey("styles", true);
	pStyles->FindKey("0", true)->SetString("name", "Green");
	pStyles->FindKey("1", true)->SetString("name", "Red");
	auto add = [&](const char *pszType, const char *pszAsset, const char *pszModifier, int nStyle = -1) {
		KeyValues *pEntry = pVisuals->AddKey("asset_modifier");
		pEntry->SetString("type", pszType);
		pEntry->SetString("asset", pszAsset);
		pEntry->SetString("modifier", pszModifier);
		if (nStyle >= 0)
			pEntry->SetInt("style", nStyle);
		return pEntry;
	};
	add("ENTITY_MODEL", "npc_zarn_tidewarden_spirit", "models/heroes/tidewarden/spirit.zmdl");
	add("hero_model_change", "npc_zarn_hero_bramble", "models/heroes/bramble/persona/bramble_elder.zmdl", 1);
	add("additional_wearable", "models/heroes/bramble/bramble_back.zmdl", "");
	add("courier", "sunward", "models/props/courier/courier.zmdl");
	add("courier_flying", "sunward", "models/props/courier/courier_flying.zmdl");
	add("pet", "pet", "models/props/ward/ward.zmdl", 0);
	add("activity", "ACT_ZARN_IDLE", "ACT_ZARN_IDLE_RARE");
	add("no_such_type", "a", "b");
	KeyValues *pParticle = add("particle_create", "particles/a.zpcf", "");
	pParticle->SetString("attachment", "attach_head");
	KeyValues *pPreview = pParticle->FindKey("preview", true);
	pPreview->FindKey("parent", true)->SetInt("type", 1);
	pPreview->FindKey("back", true)->SetInt("type", 1);
	pPreview->FindKey("somebody_else", true)->SetInt("type", 1);
	KeyValues *pFixed = pPreview->FindKey("world", true);
	pFixed->SetInt("type", 8);
	pFixed->SetInt("control_point", 5);
	add("particle", "particles/old.zpcf", "particles/new.zpcf", 1);
	add("particle_snapshot", "particles/snap.zsnap", "particles/mine.zsnap");
	KeyValues *pPoint = add("particle_control_point", "particles/a.zpcf", "");
	pPoint->SetInt("control_point_number", 3);
	pPoint->SetString("cp_position", "255 128 0");
	KeyValues *pSkin = add("model_skin", "", "", 1);
	pSkin->SetInt("skin", 2);

	CZarnPreviewItem item;
	item.SetKeys(&keys);
	ASSERT_EQ(2, item.GetStyleCount());
	const CZarnPreviewStyle &green = item.GetStyle(0);
	const CZarnPreviewStyle &red = item.GetStyle(1);
	EXPECT_EQ("Green", green.m_Name);
	EXPECT_EQ("Red", red.m_Name);
	for (const CZarnPreviewStyle *pStyle : { &green, &red })
	{
		EXPECT_EQ(1, pStyle->m_AssetModifiers[ZARN_PREVIEW_ASSET_ENTITY_MODEL].size());
		EXPECT_EQ(1, pStyle->m_AssetModifiers[ZARN_PREVIEW_ASSET_ADDITIONAL_WEARABLE].size());
		EXPECT_EQ(1, pStyle->m_AssetModifiers[ZARN_PREVIEW_ASSET_COURIER].size());
		EXPECT_EQ(1, pStyle->m_AssetModifiers[ZARN_PREVIEW_ASSET_COURIER_FLYING].size());
		EXPECT_EQ(1, pStyle->m_AssetModifiers[ZARN_PREVIEW_ASSET_ACTIVITY].size());
		ASSERT_EQ(1, pStyle->m_ControlPoints.size());
		EXPECT_EQ(3, pStyle->m_ControlPoints[0].m_nControlPoint);
		EXPECT_FLOAT_EQ(128.0f, pStyle->m_ControlPoints[0].m_vValue.y);
	}
	EXPECT_EQ(0, green.m_AssetModifiers[ZARN_PREVIEW_ASSET_HERO_MODEL_CHANGE].size());
	EXPECT_EQ(1, red.m_AssetModifiers[ZARN_PREVIEW_ASSET_HERO_MODEL_CHANGE].size());
	EXPECT_EQ(1, green.m_AssetModifiers[ZARN_PREVIEW_ASSET_PET].size());
	EXPECT_EQ(0, red.m_AssetModifiers[ZARN_PREVIEW_ASSET_PET].size());
	EXPECT_EQ(2, green.m_Particles.size());
	EXPECT_EQ(3, red.m_Particles.size());
	EXPECT_EQ("particles/new.zpcf", red.m_Particles[1].m_Particle);
	EXPECT_EQ("particles/old.zpcf", red.m_Particles[1].m_Replaces);
	EXPECT_EQ("attach_head", green.m_Particles[0].m_Attachment);
	EXPECT_TRUE(green.m_Skins.empty());
	ASSERT_EQ(1, red.m_Skins.size());
	EXPECT_EQ(2, red.m_Skins[0].m_nSkin);
	EXPECT_EQ("models/props/courier/courier_flying.zmdl", green.FindAsset(ZARN_PREVIEW_ASSET_COURIER_FLYING, "SUNWARD")->m_Replacement);
	EXPECT_EQ(nullptr, green.FindAsset(ZARN_PREVIEW_ASSET_COURIER, "moonward"));
	EXPECT_FALSE(item.HasVariantEntity());

	// On the hero: the style decides the hero's model, the skin and the particles; the targets of
	// a particle bind to the owner, to a model of the set, or to nothing.
	ASSERT_TRUE(m_Set.SetModel("models/heroes/bramble/bramble_head.zmdl", m_nBramble, GetHeroTable().GetHero(m_nBramble)->FindSlot("head")));
	m_Set.SetPreviewItemKeys(&keys, false, 0);
	EXPECT_EQ(2, m_Set.GetStyleCount());
	EXPECT_STREQ("Red", m_Set.GetStyleName(1));
	EXPECT_EQ("models/heroes/bramble/bramble.zmdl", m_Set.GetSubjectModel());
	EXPECT_NE(std::string::npos, WearableList(m_Set).find("additional_wearable0=models/heroes/bramble/bramble_back.zmdl\n"));
	m_Set.SetCurrentStyle(1);
	EXPECT_EQ("models/heroes/bramble/persona/bramble_elder.zmdl", m_Set.GetSubjectModel());
	const ZarnPreviewWearableModel_t *pHead = nullptr;
	for (const ZarnPreviewWearableModel_t &wearable : m_Set.GetWearableModels())
		pHead = wearable.m_bSubmission ? &wearable : pHead;
	ASSERT_NE(pHead, nullptr);
	EXPECT_EQ(2, pHead->m_nSkin);
	const ZarnPreviewParticleSystem_t *pCreated = nullptr;
	for (const ZarnPreviewParticleSystem_t &particle : m_Set.GetParticleSystems())
		pCreated = particle.m_Type == "particle_create" ? &particle : pCreated;
	ASSERT_NE(pCreated, nullptr);
	ASSERT_EQ(4, pCreated->m_Targets.size());
	EXPECT_EQ(ZARN_PARTICLE_TARGET_PARENT, pCreated->m_Targets[0].m_eTarget);
	EXPECT_EQ(ZARN_PARTICLE_TARGET_NAMED_MODEL, pCreated->m_Targets[1].m_eTarget);
	EXPECT_EQ(ZARN_PARTICLE_TARGET_NONE, pCreated->m_Targets[2].m_eTarget);
	EXPECT_EQ(ZARN_PARTICLE_TARGET_NONE, pCreated->m_Targets[3].m_eTarget);
	EXPECT_EQ(5, pCreated->m_Targets[3].m_nControlPoint);
	EXPECT_EQ(1, pCreated->m_Targets[1].m_nControlPoint);
	ASSERT_EQ(1, m_Set.GetControlPointModifiers().size());
	// A style out of range goes back to the first.
	m_Set.SetCurrentStyle(7);
	EXPECT_EQ(0, m_Set.GetCurrentStyle());
}

TEST_F(PreviewModelSetTest, SummonsComeFromTheSlotsWithTheModelsTheItemsGive)
{
	const int nTidewarden = GetHeroTable().FindHeroIndex("npc_zarn_hero_tidewarden");
	ASSERT_GE(nTidewarden, 0);
	const hero_t *pHero = GetHeroTable().GetHero(nTidewarden);
	std::unique_ptr<KeyValues> pKeys = ItemsGameCopy(112);
	m_Set.SetPreviewItemKeys(pKeys.get(), false, 0);
	ASSERT_TRUE(m_Set.SetModel("models/heroes/tidewarden/tidewarden_weapon.zmdl", nTidewarden, pHero->FindSlot("weapon")));
	ASSERT_EQ(1, m_Set.GetSummonModels().size());
	EXPECT_EQ("npc_zarn_tidewarden_spirit", m_Set.GetSummonModels()[0].m_Unit);
	EXPECT_EQ("models/heroes/tidewarden/spirit.zmdl", m_Set.GetSummonModels()[0].m_ModelPath);
	// An entity_model entry of an item in the scene replaces the unit's model.
	KeyValues *pEntry = pKeys->FindKey("visuals", true)->AddKey("asset_modifier");
	pEntry->SetString("type", "entity_model");
	pEntry->SetString("asset", "npc_zarn_tidewarden_spirit");
	pEntry->SetString("modifier", "models/props/ward/ward.zmdl");
	m_Set.SetPreviewItemKeys(pKeys.get(), false, 0);
	ASSERT_EQ(1, m_Set.GetSummonModels().size());
	EXPECT_EQ("models/props/ward/ward.zmdl", m_Set.GetSummonModels()[0].m_ModelPath);
}

TEST_F(PreviewModelSetTest, AMissingCompiledModelIsRefusedAndChangesNothing)
{
	ASSERT_TRUE(m_Set.SetModel("models/props/ward/ward.zmdl", -1, -1));
	CCountingListener listener;
	m_Set.AddListener(&listener);
	EXPECT_FALSE(m_Set.SetModel("models/props/ward/no_such_ward.zmdl", m_nBramble, 0));
	EXPECT_FALSE(m_Set.SetModel("", -1, -1));
	EXPECT_EQ(0, listener.m_nCalls);
	EXPECT_EQ("models/props/ward/ward.zmdl", m_Set.GetModelPath());
	// Attachments of the compiled model, by index.
	Vector offset;
	QAngle angles;
	EXPECT_FALSE(m_Set.FindDefaultAttachmentOffset(99, offset, angles));
	m_Set.SetSequence("idle");
	m_Set.SetPlaybackSpeed(0.5f);
	m_Set.SetFrame(4);
	EXPECT_EQ(3, listener.m_nCalls);
	EXPECT_FALSE(m_Set.IsPlaying());
	m_Set.SetFrame(-3);
	EXPECT_TRUE(m_Set.IsPlaying());
	m_Set.RemoveListener(&listener);
}

TEST_F(PreviewModelSetTest, AttachmentOffsetsAreThoseOfTheCompiledModel)
{
	ZarnSessionPreview_t preview;
	ShowSession("courier", 0, preview);
	Vector offset;
	QAngle angles;
	ASSERT_TRUE(m_Set.FindDefaultAttachmentOffset(0, offset, angles));
	// The template's attach_head: 12 units above the head bone.
	EXPECT_NEAR(12.0f, offset.z, 1e-3f);
}
