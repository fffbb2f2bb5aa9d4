// The game data loaders on the sample game's scripts and on small files with problems.
#include <gtest/gtest.h>

#include "core/keyvalues.h"
#include "testsupport/test_support.h"
#include "gamefixture.h"
#include "mintyardtoolutils/core/gamedata.h"

namespace
{
const char *const MANIFEST_OK = R"("itemtest_manifest"
{
	"classes"
	{
		"alpha"	{ "heroID" "10" "tag" "Alpha" }
	}
	"zmt_templates"
	{
		"classes"	{ "alpha" "materials/alpha.zmat" }
	}
})";

const char *const HEROES_ALPHA = R"("ZARNHeroes"
{
	"Version"	"1"
	"VersionExtra"	{ "HeroID" "99" }
	"npc_zarn_hero_base"	{ "HeroID" "0" }
	"npc_zarn_hero_alpha"
	{
		"HeroID"	"10"
		"Model"		"models/alpha.zmdl"
		"Model2"	"models/alpha_p2.zmdl"
		"ModelScale"	"1.2"
		"Modelx1"	"models/skipped.zmdl"
		"Model-1"	"models/skipped_too.zmdl"
		"Ability1"	"alpha_strike"
		"Ability3"	"special_bonus_attribute_agility"
		"Ability32"	"alpha_last"
		"Ability33"	"alpha_beyond"
		"ItemSlots"
		{
			"0"	{ "SlotName" "weapon" }
			"1"	{ "SlotName" "not_a_slot" "MaxBonesLOD0" "12" }
		}
	}
})";

const hero_slot_t *FindSlot(const hero_t *pHero, const char *name)
{
	if (!pHero)
		return nullptr;
	const int index = pHero->FindSlot(name);
	return index < 0 ? nullptr : &pHero->slots[index];
}
} // namespace

TEST(GameData, SlotTable)
{
	EXPECT_EQ((int)LOADOUT_SLOT_COUNT, 97);
	EXPECT_STREQ(GetLoadoutSlotName(0), "weapon");
	EXPECT_STREQ(GetLoadoutSlotName(37), "voice");
	EXPECT_STREQ(GetLoadoutSlotName(38), "weapon_persona_1");
	EXPECT_STREQ(GetLoadoutSlotName(65), "voice_persona_1");
	EXPECT_STREQ(GetLoadoutSlotName(66), "persona_selector");
	EXPECT_STREQ(GetLoadoutSlotName(96), "none");
	EXPECT_EQ(GetLoadoutSlotName(97), nullptr);
	EXPECT_EQ(GetLoadoutSlotName(-1), nullptr);
	EXPECT_EQ(GetLoadoutSlotIndex("Cursor_Pack"), 77);
	EXPECT_EQ(GetLoadoutSlotIndex("ironback"), 95);
	EXPECT_EQ(GetLoadoutSlotIndex("no_such_slot"), -1);
	EXPECT_EQ(GetLoadoutSlotPersona(37), 0);
	EXPECT_EQ(GetLoadoutSlotPersona(38), 1);
	EXPECT_EQ(GetLoadoutSlotPersona(65), 1);
	EXPECT_EQ(GetLoadoutSlotPersona(66), 255);
	EXPECT_EQ(GetLoadoutSlotPersona(67), 0);
	EXPECT_EQ(GetLoadoutSlotPersona(-1), 0);
	// Every name is distinct and maps back to its index.
	for (int i = 0; i < LOADOUT_SLOT_COUNT; ++i)
		EXPECT_EQ(GetLoadoutSlotIndex(GetLoadoutSlotName(i)), i) << i;
}

TEST(GameData, HeroShortName)
{
	EXPECT_STREQ(GetHeroShortName("npc_zarn_hero_bramble"), "bramble");
	EXPECT_STREQ(GetHeroShortName("NPC_ZARN_HERO_bramble"), "NPC_ZARN_HERO_bramble"); // case kept
	EXPECT_STREQ(GetHeroShortName("bramble"), "bramble");
	EXPECT_STREQ(GetHeroShortName("npc_zarn_hero_"), "");
}

TEST(GameData, SampleHeroes)
{
	CGameFolderScope game(SampleGameFolder());
	HeroTable heroes;
	ASSERT_TRUE(LoadHeroData(heroes)) << GetGameDataLastError();

	EXPECT_EQ(heroes.FindHero("npc_zarn_hero_base"), nullptr);
	EXPECT_EQ(heroes.FindHero("Version"), nullptr);
	int count = 0;
	for (int i = 0; i < heroes.Count(); ++i)
		count += heroes.GetHero(i) ? 1 : 0;
	EXPECT_EQ(count, 3);

	const hero_t *pBramble = heroes.FindHero("NPC_ZARN_HERO_BRAMBLE");
	ASSERT_NE(pBramble, nullptr);
	EXPECT_EQ(pBramble->name, "npc_zarn_hero_bramble");
	EXPECT_EQ(pBramble->heroID, 1);
	EXPECT_EQ(pBramble->className, "bramble");
	EXPECT_EQ(pBramble->tag, "Bramble");
	EXPECT_TRUE(pBramble->useSlotItems);
	EXPECT_EQ(pBramble->zmtTemplate, "materials/models/heroes/bramble/bramble_item_template.zmat");
	EXPECT_EQ(heroes.GetHero(pBramble->symbol), pBramble);
	EXPECT_EQ(heroes.FindHeroByID(1), pBramble);
	const char *tags[] = { "Wearable", "Bramble" };
	EXPECT_EQ(heroes.FindHeroByTags(2, tags), pBramble);

	// Models: the hero's own list (Model, Model1; ModelScale is no model), then the persona's.
	ASSERT_EQ(pBramble->personaModels.size(), 2u);
	ASSERT_EQ(pBramble->personaModels[0].size(), 2u);
	EXPECT_EQ(pBramble->personaModels[0][0].model, "models/heroes/bramble/bramble.zmdl");
	EXPECT_EQ(pBramble->personaModels[0][1].model, "models/heroes/bramble/bramble_persona_1.zmdl");
	EXPECT_EQ(pBramble->personaModels[0][1].persona, 1);
	ASSERT_EQ(pBramble->personaModels[1].size(), 2u);
	EXPECT_EQ(pBramble->personaModels[1][1].model, "models/heroes/bramble/persona/bramble_elder_alt.zmdl");

	// Slots with every field.
	ASSERT_EQ(pBramble->slots.size(), 8u);
	const hero_slot_t *pHead = FindSlot(pBramble, "head");
	ASSERT_NE(pHead, nullptr);
	EXPECT_EQ(pHead->slotIndex, 4);
	EXPECT_EQ(pHead->slotText, "#LoadoutSlot_Head");
	EXPECT_EQ(pHead->persona, 0);
	EXPECT_EQ(pHead->textureWidth, 512);
	EXPECT_EQ(pHead->maxPolygonsLOD0, 1500);
	EXPECT_EQ(pHead->maxPolygonsLOD1, 700);
	EXPECT_EQ(pHead->maxBonesLOD0, 60); // absent
	EXPECT_EQ(pHead->maxBonesLOD1, 24);
	EXPECT_EQ(pHead->bodygroupName, "hair");
	EXPECT_FALSE(pHead->meshesEnabledByDefault);
	EXPECT_EQ(pHead->snapshotMaxVerts, -1); // no particle block

	const hero_slot_t *pBack = FindSlot(pBramble, "back");
	ASSERT_NE(pBack, nullptr);
	EXPECT_TRUE(pBack->slotText.empty());
	ASSERT_EQ(pBack->attachments.size(), 2u);
	EXPECT_EQ(pBack->attachments[0].internal_name, "attach_cape_left");
	EXPECT_EQ(pBack->attachments[0].name, "#ZARN_Mintyard_Attach_CapeLeft");
	EXPECT_EQ(pBack->attachments[0].bone_name, "spine_2");
	EXPECT_EQ(pBack->attachments[0].default_pos, Vector(-6.5f, 12.0f, 48.25f));
	EXPECT_EQ(pBack->attachments[1].default_rot, Vector(0, -90, 0));

	EXPECT_TRUE(FindSlot(pBramble, "misc")->noImport);
	EXPECT_TRUE(FindSlot(pBramble, "taunt")->hideInMintyardTools);
	EXPECT_EQ(FindSlot(pBramble, "weapon_persona_1")->persona, 1);
	EXPECT_EQ(FindSlot(pBramble, "persona_selector")->persona, 255);

	// Abilities, in order, with the hidden flag; they stay in the list.
	ASSERT_EQ(pBramble->abilities.size(), 7u);
	EXPECT_EQ(pBramble->abilities[0].name, "bramble_thorn_volley");
	EXPECT_EQ(pBramble->abilities[0].abilitySlot, 0);
	EXPECT_EQ(pBramble->abilities[0].tooltip, "#ZARN_Tooltip_ability_bramble_thorn_volley");
	EXPECT_EQ(pBramble->abilities[0].description, "#ZARN_Tooltip_ability_bramble_thorn_volley_Description");
	EXPECT_FALSE(pBramble->abilities[0].hidden);
	EXPECT_TRUE(pBramble->abilities[3].hidden); // bramble_empty1
	EXPECT_TRUE(pBramble->abilities[4].hidden); // bramble_hidden_regrowth
	EXPECT_EQ(pBramble->abilities[6].abilitySlot, 9);
	EXPECT_TRUE(pBramble->abilities[6].hidden); // special_bonus_attribute_...

	// Cinder: the particle block of the manifest, and the staging file's changes.
	const hero_t *pCinder = heroes.FindHero("npc_zarn_hero_cinder");
	ASSERT_NE(pCinder, nullptr);
	const hero_slot_t *pWeapon = FindSlot(pCinder, "weapon");
	EXPECT_EQ(pWeapon->snapshotLocalBone, "staff_tip");
	EXPECT_EQ(pWeapon->snapshotOriginal, "particles/heroes/cinder/cinder_staff_flame.zsnap");
	EXPECT_EQ(pWeapon->snapshotMaxVerts, 2000);
	EXPECT_EQ(pWeapon->extraPreviewSystem, "particles/heroes/cinder/cinder_staff_ambient.zpcf");
	EXPECT_EQ(pWeapon->maxBonesLOD0, 40);
	const hero_slot_t *pAbility = FindSlot(pCinder, "ability1");
	EXPECT_EQ(pAbility->snapshotMaxVerts, 0); // a block without the key
	ASSERT_EQ(pAbility->particleReplacements.size(), 2u);
	EXPECT_EQ(pAbility->particleReplacements[0].replace, "particles/heroes/cinder/cinder_fireball.zpcf");
	EXPECT_EQ(pAbility->particleReplacements[0].with, "$(import_name)_fireball.zpcf");
	ASSERT_EQ(pCinder->abilities.size(), 5u);
	EXPECT_EQ(pCinder->abilities[4].name, "cinder_flashfire");

	const hero_t *pTide = heroes.FindHero("npc_zarn_hero_tidewarden");
	ASSERT_NE(pTide, nullptr);
	EXPECT_FALSE(pTide->useSlotItems);
	const hero_slot_t *pSummon = FindSlot(pTide, "summon");
	ASSERT_EQ(pSummon->generatesUnits.size(), 1u); // the empty value is left out
	EXPECT_EQ(pSummon->generatesUnits[0], "npc_zarn_tidewarden_spirit");
}

TEST(GameData, SampleUnits)
{
	CGameFolderScope game(SampleGameFolder());
	GameUnitTable units;
	ASSERT_TRUE(LoadUnitData(units)) << GetGameDataLastError();
	EXPECT_EQ(units.FindUnit("npc_zarn_units_base"), nullptr);
	const ZARNGameUnitData_t *pSpirit = units.FindUnit("npc_zarn_tidewarden_spirit");
	ASSERT_NE(pSpirit, nullptr);
	EXPECT_EQ(pSpirit->model, "models/heroes/tidewarden/spirit.zmdl");
	EXPECT_FLOAT_EQ(pSpirit->attackAnimationPoint, 0.25f);
	EXPECT_EQ(pSpirit->wearable, 7);
	EXPECT_EQ(units.FindUnit("npc_zarn_courier")->wearable, -1);
	// Heroes are units too, with the staging file merged in.
	const ZARNGameUnitData_t *pCinder = units.FindUnit("npc_zarn_hero_cinder");
	ASSERT_NE(pCinder, nullptr);
	EXPECT_FLOAT_EQ(pCinder->attackAnimationPoint, 0.45f);
	EXPECT_EQ(pCinder->model, "models/heroes/cinder/cinder.zmdl");
	EXPECT_EQ(pCinder->wearable, -1);
}

TEST(GameData, ItemsGameEntries)
{
	CGameFolderScope game(SampleGameFolder());
	ReloadGameData();
	KeyValues *pItem = FindItemsGameEntry(596);
	ASSERT_NE(pItem, nullptr);
	EXPECT_STREQ(pItem->GetString("prefab"), "courier");
	EXPECT_EQ(FindItemsGameEntry(123456), nullptr);
	// Every slot of every sample hero has its default item.
	const HeroTable &heroes = GetHeroTable();
	KeyValues *pItems = GetItemsGameItems();
	ASSERT_NE(pItems, nullptr);
	for (int h = 0; h < heroes.Count(); ++h)
	{
		const hero_t *pHero = heroes.GetHero(h);
		if (!pHero)
			continue;
		for (const hero_slot_t &slot : pHero->slots)
		{
			bool bFound = false;
			for (KeyValues *p = pItems->GetFirstTrueSubKey(); p && !bFound; p = p->GetNextTrueSubKey())
			{
				KeyValues *pUsedBy = p->FindKey("used_by_heroes");
				bFound = strcmp(p->GetString("prefab"), "default_item") == 0 && slot.slotName == p->GetString("item_slot") && pUsedBy &&
						 pUsedBy->GetInt(pHero->name.c_str()) == 1;
			}
			EXPECT_TRUE(bFound) << pHero->name << " " << slot.slotName;
		}
	}
}

TEST(GameData, ItemsGameFailureIsRemembered)
{
	CTempDirectory folder;
	folder.Write("scripts/items/items_game.txt", "\"items_game\" { \"items\" { \"5\" { \"name\" \"x\" ");
	{
		CGameFolderScope game(folder.Path());
		CCaptureLog log;
		ReloadGameData();
		EXPECT_EQ(FindItemsGameEntry(5), nullptr);
		EXPECT_NE(log.m_Text.find("items_game.txt"), std::string::npos) << log.m_Text;
		// Fixing the file does not bring it back: the failure is not retried.
		folder.Write("scripts/items/items_game.txt", "\"items_game\" { \"items\" { \"5\" { \"name\" \"x\" } } }");
		EXPECT_EQ(FindItemsGameEntry(5), nullptr);
		ReloadGameData();
		EXPECT_NE(FindItemsGameEntry(5), nullptr);
	}
}

TEST(GameData, SmallFilesAndTheirRules)
{
	CTempDirectory folder;
	folder.Write("scripts/npc/npc_heroes.txt", HEROES_ALPHA);
	folder.Write("scripts/itemtest_manifest.txt", MANIFEST_OK);
	CGameFolderScope game(folder.Path());
	HeroTable heroes;
	ASSERT_TRUE(LoadHeroData(heroes)) << GetGameDataLastError();
	EXPECT_EQ(heroes.FindHero("VersionExtra"), nullptr); // a longer key that begins with "Version"
	const hero_t *pAlpha = heroes.FindHero("npc_zarn_hero_alpha");
	ASSERT_NE(pAlpha, nullptr);
	ASSERT_EQ(pAlpha->personaModels.size(), 1u);
	ASSERT_EQ(pAlpha->personaModels[0].size(), 3u); // Model and Model2; Model1 stays empty
	EXPECT_EQ(pAlpha->personaModels[0][0].model, "models/alpha.zmdl");
	EXPECT_TRUE(pAlpha->personaModels[0][1].model.empty());
	EXPECT_EQ(pAlpha->personaModels[0][2].model, "models/alpha_p2.zmdl");
	EXPECT_EQ(pAlpha->personaModels[0][2].persona, 2);
	ASSERT_EQ(pAlpha->abilities.size(), 3u); // Ability33 is past the last
	EXPECT_EQ(pAlpha->abilities[2].abilitySlot, 31);
	ASSERT_EQ(pAlpha->slots.size(), 2u);
	EXPECT_EQ(pAlpha->slots[1].slotIndex, -1);
	EXPECT_EQ(pAlpha->slots[1].maxBonesLOD0, 12);
	EXPECT_EQ(pAlpha->slots[1].maxBonesLOD1, 60);
	EXPECT_EQ(pAlpha->zmtTemplate, "materials/alpha.zmat");
	EXPECT_EQ(pAlpha->slots[0].snapshotMaxVerts, -1);

	// Loading again starts from an empty table.
	folder.Write("scripts/npc/npc_heroes.txt", "\"ZARNHeroes\" { \"npc_zarn_hero_beta\" { \"HeroID\" \"10\" } }");
	ASSERT_TRUE(LoadHeroData(heroes));
	EXPECT_EQ(heroes.FindHero("npc_zarn_hero_alpha"), nullptr);
	EXPECT_NE(heroes.FindHero("npc_zarn_hero_beta"), nullptr);
}

TEST(GameData, StagingReplacesKeysOfAHero)
{
	CTempDirectory folder;
	folder.Write("scripts/npc/npc_heroes.txt", HEROES_ALPHA);
	folder.Write("scripts/npc/npc_heroes_staging.txt",
		"\"ZARNHerosStaging\" { \"npc_zarn_hero_alpha\" { \"HeroID\" \"11\" \"ItemSlots\" { \"0\" { \"SlotName\" \"head\" } } }"
		" \"npc_zarn_hero_gamma\" { \"HeroID\" \"12\" } }");
	folder.Write("scripts/itemtest_manifest.txt", MANIFEST_OK);
	CGameFolderScope game(folder.Path());
	HeroTable heroes;
	CCaptureLog log;
	LoggingSystem_SetChannelVerbosity(LoggingSystem_FindChannel("MintyardManager"), LS_DETAILED);
	ASSERT_TRUE(LoadHeroData(heroes)) << GetGameDataLastError();
	const hero_t *pAlpha = heroes.FindHero("npc_zarn_hero_alpha");
	ASSERT_NE(pAlpha, nullptr);
	EXPECT_EQ(pAlpha->heroID, 11);
	ASSERT_EQ(pAlpha->slots.size(), 2u);
	EXPECT_EQ(pAlpha->slots[0].slotName, "head");
	EXPECT_EQ(pAlpha->abilities.size(), 3u); // the keys staging does not name stay
	EXPECT_NE(heroes.FindHero("npc_zarn_hero_gamma"), nullptr);
	// Neither 11 nor 12 is in the manifest.
	EXPECT_NE(log.m_Text.find("Hero ID 11 npc_zarn_hero_alpha missing from itemtest_manifest!"), std::string::npos) << log.m_Text;
	EXPECT_TRUE(pAlpha->className.empty());
}

TEST(GameData, BrokenFilesGiveClearMessages)
{
	CTempDirectory folder;
	CGameFolderScope game(folder.Path());
	HeroTable heroes;
	{
		CCaptureLog log;
		EXPECT_FALSE(LoadHeroData(heroes)); // no hero file at all
		EXPECT_NE(GetGameDataLastError().find("npc_heroes.txt"), CUtlString::npos) << GetGameDataLastError();
	}

	folder.Write("scripts/npc/npc_heroes.txt", "\"ZARNHeroes\"\n{\n\t\"npc_zarn_hero_alpha\"\n\t{\n\t\t\"HeroID\" \"10\"\n");
	{
		CCaptureLog log;
		EXPECT_FALSE(LoadHeroData(heroes));
		EXPECT_NE(GetGameDataLastError().find("npc_heroes.txt("), CUtlString::npos) << GetGameDataLastError();
		EXPECT_EQ(heroes.Count(), 0);
	}

	// A good hero file and no manifest: false, and the heroes are kept.
	folder.Write("scripts/npc/npc_heroes.txt", HEROES_ALPHA);
	{
		CCaptureLog log;
		EXPECT_FALSE(LoadHeroData(heroes));
		EXPECT_NE(heroes.FindHero("npc_zarn_hero_alpha"), nullptr);
		EXPECT_NE(GetGameDataLastError().find("itemtest_manifest.txt"), CUtlString::npos);
	}

	// A manifest without "classes".
	folder.Write("scripts/itemtest_manifest.txt", "\"itemtest_manifest\" { \"zmt_templates\" { \"classes\" { } } }");
	{
		CCaptureLog log;
		EXPECT_FALSE(LoadHeroData(heroes));
		EXPECT_NE(GetGameDataLastError().find("\"classes\""), CUtlString::npos) << GetGameDataLastError();
		EXPECT_NE(heroes.FindHero("npc_zarn_hero_alpha"), nullptr);
	}

	// A manifest without "zmt_templates": the classes are read, the result is false.
	folder.Write("scripts/itemtest_manifest.txt", "\"itemtest_manifest\" { \"classes\" { \"alpha\" { \"heroID\" \"10\" \"tag\" \"A\" } } }");
	{
		CCaptureLog log;
		EXPECT_FALSE(LoadHeroData(heroes));
		EXPECT_EQ(heroes.FindHero("npc_zarn_hero_alpha")->tag, "A");
	}

	// A broken staging file is reported and left out; the heroes still load.
	folder.Write("scripts/itemtest_manifest.txt", MANIFEST_OK);
	folder.Write("scripts/npc/npc_heroes_staging.txt", "\"ZARNHerosStaging\" { \"npc_zarn_hero_alpha\" { \"HeroID\" }");
	{
		CCaptureLog log;
		EXPECT_TRUE(LoadHeroData(heroes));
		EXPECT_NE(log.m_Text.find("npc_heroes_staging.txt"), std::string::npos) << log.m_Text;
		EXPECT_EQ(heroes.FindHero("npc_zarn_hero_alpha")->heroID, 10);
	}

	// Units: a missing unit file, then a broken hero file.
	GameUnitTable units;
	{
		CCaptureLog log;
		EXPECT_FALSE(LoadUnitData(units));
		EXPECT_NE(GetGameDataLastError().find("npc_units.txt"), CUtlString::npos);
	}
	folder.Write("scripts/npc/npc_units.txt", "\"ZARNUnits\" { \"npc_zarn_hero_alpha\" { \"Model\" \"models/own.zmdl\" \"wearable\" \"3\" } }");
	{
		CCaptureLog log;
		EXPECT_TRUE(LoadUnitData(units));
		// The unit of the hero's name keeps its own entry.
		EXPECT_EQ(units.FindUnit("npc_zarn_hero_alpha")->model, "models/own.zmdl");
		EXPECT_EQ(units.FindUnit("npc_zarn_hero_alpha")->wearable, 3);
	}
	folder.Write("scripts/npc/npc_heroes.txt", "{ broken");
	{
		CCaptureLog log;
		EXPECT_FALSE(LoadUnitData(units));
	}

	// Loading the game data reads the broken hero file once for heroes and units, and says so once;
	// the tables of the last good load are emptied.
	{
		CCaptureLog log;
		EXPECT_FALSE(ReloadGameData());
		const size_t nFirst = log.m_Text.find("npc_heroes.txt(");
		ASSERT_NE(nFirst, std::string::npos) << log.m_Text;
		EXPECT_EQ(log.m_Text.find("npc_heroes.txt(", nFirst + 1), std::string::npos) << log.m_Text;
		EXPECT_NE(GetGameDataLastError().find("npc_heroes.txt("), CUtlString::npos) << GetGameDataLastError();
		EXPECT_EQ(GetHeroTable().Count(), 0);
		EXPECT_EQ(GetGameUnitTable().FindUnit("npc_zarn_hero_alpha"), nullptr);
	}
}
