// Damaged inputs: every loader of this library takes mutated copies of the sample files without
// crashing, and reports a problem or loads what it can.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "core/kv3text.h"
#include "testsupport/test_support.h"
#include "gamefixture.h"
#include "mintyardtoolutils/core/templatecatalogue.h"

namespace
{
std::string ReadText(const std::string &path)
{
	std::ifstream in(path, std::ios::binary);
	std::stringstream text;
	text << in.rdbuf();
	return text.str();
}

// A copy with a few bytes changed, deleted, duplicated, or the end cut off.
std::string Mutate(const std::string &text, std::mt19937 &random)
{
	std::string out = text;
	const int edits = 1 + (int)(random() % 4);
	for (int i = 0; i < edits && !out.empty(); ++i)
	{
		const size_t at = random() % out.size();
		switch (random() % 5)
		{
		case 0:
			out[at] = (char)(random() % 256);
			break;
		case 1:
			out.erase(at, 1 + random() % 8);
			break;
		case 2:
			out.insert(at, out.substr(at, 1 + random() % 32));
			break;
		case 3:
			out.resize(at);
			break;
		default:
			out[at] = "{}[]\"=,/*\n"[random() % 10];
			break;
		}
	}
	return out;
}
} // namespace

TEST(Robustness, MutatedTemplatesNeverCrash)
{
	std::mt19937 random(1234);
	const std::string folder = SampleGameFolder() + "/scripts/mintyard_import_templates/";
	int loaded = 0, refused = 0;
	for (const auto &entry : std::filesystem::directory_iterator(folder))
	{
		const std::string text = ReadText(entry.path().string());
		for (int i = 0; i < 150; ++i)
		{
			const std::string mutated = Mutate(text, random);
			CKeyValues3Context document;
			CUtlString error;
			if (!LoadKV3(document.Root(), &error, mutated, KV3_FORMAT_GENERIC, "mutated.txt"))
			{
				EXPECT_NE(error.find("mutated.txt"), CUtlString::npos) << error;
				++refused;
				continue;
			}
			CMintyardTemplate tmpl;
			CCaptureLog log;
			CUtlString transferText;
			if (LoadKV3ObjectInPlace(tmpl, document.Root(), &transferText, "mutated.txt"))
			{
				ImportMessageList list;
				ValidateTemplate(tmpl, list);
				// What loaded saves again.
				CKeyValues3Context saved;
				EXPECT_TRUE(SaveKV3Object(tmpl, saved.Root()));
				++loaded;
			}
			else
				++refused;
		}
	}
	RecordProperty("loaded", loaded);
	RecordProperty("refused", refused);
	// Both roads were taken.
	EXPECT_GT(loaded, 0);
	EXPECT_GT(refused, 0);
}

TEST(Robustness, MutatedGameScriptsNeverCrash)
{
	std::mt19937 random(99);
	const std::string sample = SampleGameFolder() + "/scripts/";
	const char *const files[] = { "npc/npc_heroes.txt", "npc/npc_heroes_staging.txt", "npc/npc_units.txt", "itemtest_manifest.txt",
		"items/items_game.txt" };
	CTempDirectory folder;
	for (const char *file : files)
		folder.Write(std::string("scripts/") + file, ReadText(sample + file));
	CGameFolderScope game(folder.Path());
	int failures = 0;
	for (int round = 0; round < 60; ++round)
	{
		const char *file = files[round % 5];
		const std::string original = ReadText(sample + file);
		folder.Write(std::string("scripts/") + file, Mutate(original, random));
		CCaptureLog log;
		HeroTable heroes;
		GameUnitTable units;
		// A failure always says why.
		if (!LoadHeroData(heroes))
		{
			++failures;
			EXPECT_FALSE(GetGameDataLastError().empty()) << file;
		}
		if (!LoadUnitData(units))
		{
			++failures;
			EXPECT_FALSE(GetGameDataLastError().empty()) << file;
		}
		ReloadGameData();
		FindItemsGameEntry(596);
		CMintyardTemplateCatalogue catalogue;
		const HeroTable &table = GetHeroTable();
		for (int h = 0; h < table.Count(); ++h)
		{
			const hero_t *pHero = table.GetHero(h);
			if (!pHero)
				continue;
			for (int s = 0; s < (int)pHero->slots.size(); ++s)
				catalogue.GetWearableTemplate(pHero, s);
			catalogue.GetAbilityIconsTemplate(pHero);
		}
		folder.Write(std::string("scripts/") + file, original);
	}
	EXPECT_GT(failures, 0);
}
