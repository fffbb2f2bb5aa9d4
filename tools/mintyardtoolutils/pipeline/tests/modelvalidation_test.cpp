// The checks of a compiled model against its template (bones, names, budgets, the hero's
// skeleton) and of each source mesh's topology, through the whole run with the real compiler.
#include <gtest/gtest.h>

#include "importtestgame.h"
#include "mintyardtoolutils/pipeline/modelvalidation.h"
#include "modelart.h"

namespace
{
using namespace modelart;

std::unique_ptr<CMintyardTemplate> OneModel(int nMaxPolygons, int nMaxBones, bool bExtraMesh = false)
{
	auto t = std::make_unique<CMintyardTemplate>();
	t->Init("check_test", "#CheckTest", "", false);
	t->directory = "checks";
	CMintyardTemplate_ZarnModel &model = t->models.emplace_back();
	model.Init("model", "#Model", "", false);
	CMintyardTemplate_ZarnMesh &lod = model.lod_list.emplace_back();
	lod.Init("lod0", "#LOD0", "", false);
	lod.max_polygons = nMaxPolygons;
	lod.max_bones = nMaxBones;
	if (bExtraMesh)
		lod.extra_meshes.emplace_back().Init("lod0_extra", "#Extra", "", true);
	return t;
}

class ModelValidationTest : public ::testing::Test
{
protected:
	ImportMessageList Import(std::unique_ptr<CMintyardTemplate> t, const std::string &fbx, const std::string &extra = "")
	{
		CMintyardImportSession &session = m_Game.NewSession(std::move(t), "checked");
		session.m_Models[0]->m_Lods[0]->SetValue(m_Game.WriteArt("checked.fbx", fbx).c_str());
		if (!extra.empty())
			session.m_Models[0]->m_Lods[0]->m_ExtraMeshes[0]->SetValue(m_Game.WriteArt("checked_extra.fbx", extra).c_str());
		ImportMessageList list = m_Game.Run();
		EXPECT_EQ(list.GetErrorCount(), 0) << Describe(list);
		return list;
	}
	std::string Describe(const ImportMessageList &list)
	{
		std::string out;
		for (int i = 0; i < list.Count(); ++i)
		{
			out += list[i].Message();
			for (int a = 1; a <= 4; ++a)
				out += list[i].HasArg(a) ? " [" + list[i].Arg(a) + "]" : "";
			out += "\n";
		}
		return out + m_Game.m_Log.m_Text;
	}
	CImportTestGame m_Game;
};
} // namespace

TEST(BoneNames, TheGamesRule)
{
	EXPECT_TRUE(IsValidBoneName("spine_1"));
	EXPECT_TRUE(IsValidBoneName("_root"));
	EXPECT_TRUE(IsValidBoneName("a123"));
	EXPECT_FALSE(IsValidBoneName("1spine"));
	EXPECT_FALSE(IsValidBoneName("spine.1"));
	EXPECT_FALSE(IsValidBoneName("spine 1"));
	EXPECT_FALSE(IsValidBoneName(""));
}

TEST_F(ModelValidationTest, BonesAtTheLimitPassAndOneMoreWarns)
{
	ImportMessageList list = Import(OneModel(10000, 60), SkinnedFbx(BoneNames(60), 60));
	EXPECT_EQ(list.Find("#ZARN_Mintyard_Error_TooManyBones"), nullptr) << Describe(list);
	list = Import(OneModel(10000, 60), SkinnedFbx(BoneNames(61), 61));
	const MintyardImportMessageEntry_t *pBones = list.Find("#ZARN_Mintyard_Error_TooManyBones");
	ASSERT_NE(pBones, nullptr) << Describe(list);
	EXPECT_EQ(pBones->Arg(1), "checked.fbx");
	EXPECT_EQ(pBones->Arg(2), "61");
	EXPECT_EQ(pBones->Arg(3), "60");
	EXPECT_FALSE(pBones->isError);
}

TEST_F(ModelValidationTest, ABoneOfTwoMeshesOfALevelCountsOnce)
{
	// The level and its extra mesh use the same 40 bones: 40, not 80, against a limit of 50.
	ImportMessageList list = Import(OneModel(10000, 50, true), SkinnedFbx(BoneNames(40), 40), SkinnedFbx(BoneNames(40), 40));
	EXPECT_EQ(list.Find("#ZARN_Mintyard_Error_TooManyBones"), nullptr) << Describe(list);
	// 40 of one and 20 others of the other: 60 over 50.
	list = Import(OneModel(10000, 50, true), SkinnedFbx(BoneNames(40), 40), SkinnedFbx(BoneNames(20, "other_"), 20));
	ASSERT_NE(list.Find("#ZARN_Mintyard_Error_TooManyBones"), nullptr) << Describe(list);
	EXPECT_EQ(list.Find("#ZARN_Mintyard_Error_TooManyBones")->Arg(2), "60");
}

TEST_F(ModelValidationTest, SevenBadNamesAreListedNineGiveEightAndASummary)
{
	std::vector<std::string> seven = BoneNames(7, "7bad_");
	ImportMessageList list = Import(OneModel(10000, 60), SkinnedFbx(seven, 7));
	EXPECT_EQ(list.CountMessage("#ZARN_Mintyard_Error_InvalidBoneName"), 7) << Describe(list);
	EXPECT_EQ(list.Find("#ZARN_Mintyard_Error_ManyInvalidBoneNames"), nullptr);
	EXPECT_NE(list.Find("#ZARN_Mintyard_Error_InvalidBoneName", "7bad_0"), nullptr);

	list = Import(OneModel(10000, 60), SkinnedFbx(BoneNames(9, "9bad."), 9));
	EXPECT_EQ(list.CountMessage("#ZARN_Mintyard_Error_InvalidBoneName"), 8) << Describe(list);
	ASSERT_EQ(list.CountMessage("#ZARN_Mintyard_Error_ManyInvalidBoneNames"), 1);
	EXPECT_EQ(list.Find("#ZARN_Mintyard_Error_ManyInvalidBoneNames")->Arg(1), "9");
}

TEST_F(ModelValidationTest, BudgetsAreStrict)
{
	const int nTriangles = ColumnTriangles(5);
	ImportMessageList list = Import(OneModel(nTriangles, 60), SkinnedFbx(BoneNames(2), 5));
	EXPECT_EQ(list.Find("#ZARN_Mintyard_OutOfBudget"), nullptr) << Describe(list);
	list = Import(OneModel(nTriangles - 1, 60), SkinnedFbx(BoneNames(2), 5));
	const MintyardImportMessageEntry_t *pBudget = list.Find("#ZARN_Mintyard_OutOfBudget");
	ASSERT_NE(pBudget, nullptr) << Describe(list);
	EXPECT_EQ(pBudget->Arg(1), "#LOD0");
	EXPECT_EQ(pBudget->Arg(2), "checked.fbx");
	EXPECT_EQ(pBudget->Arg(3), std::to_string(nTriangles));
	EXPECT_EQ(pBudget->Arg(4), std::to_string(nTriangles - 1));
	// With extra meshes the level's meshes count together.
	list = Import(OneModel(nTriangles, 60, true), SkinnedFbx(BoneNames(2), 5), SkinnedFbx(BoneNames(2), 1));
	const MintyardImportMessageEntry_t *pCombined = list.Find("#ZARN_Mintyard_CombinedOutOfBudget");
	ASSERT_NE(pCombined, nullptr) << Describe(list);
	EXPECT_EQ(pCombined->Arg(1), "0");
	EXPECT_EQ(pCombined->Arg(2), std::to_string(nTriangles + ColumnTriangles(1)));
}

TEST_F(ModelValidationTest, EachTopologyFindingOnAMeshMadeForIt)
{
	struct Case_t
	{
		const char *what;
		FbxTestMesh_t mesh;
		const char *expected; // null: no finding
	};
	const Case_t cases[] = {
		{ "closed", testmeshes::Cube(), nullptr },
		{ "UV seam", testmeshes::CubeWithUVSeam(), nullptr },
		{ "open quad", testmeshes::OpenQuad(), "#ZARN_Mintyard_Err_BorderEdges" },
		{ "unwelded", testmeshes::TwoUnweldedQuads(), "#ZARN_Mintyard_Err_UnweldedVertices" },
		{ "three faces", testmeshes::ThreeFacesOnOneEdge(), "#ZARN_Mintyard_Err_NonManifoldEdges" },
		{ "flipped", testmeshes::FlippedCube(), "#ZARN_Mintyard_Err_FlippedNormals" },
	};
	for (const Case_t &c : cases)
	{
		ImportMessageList list = Import(OneModel(10000, 60), MeshFbx(c.mesh));
		int nFindings = 0;
		for (const char *token : { "#ZARN_Mintyard_Err_IsolatedEdges", "#ZARN_Mintyard_Err_NonManifoldEdges", "#ZARN_Mintyard_Err_UnweldedVertices",
				 "#ZARN_Mintyard_Err_BorderEdges", "#ZARN_Mintyard_Err_FlippedNormals" })
			nFindings += list.CountMessage(token);
		if (!c.expected)
		{
			EXPECT_EQ(nFindings, 0) << c.what << "\n" << Describe(list);
			continue;
		}
		const MintyardImportMessageEntry_t *pFinding = list.Find(c.expected);
		ASSERT_NE(pFinding, nullptr) << c.what << "\n" << Describe(list);
		EXPECT_FALSE(pFinding->isError);
		EXPECT_NE(pFinding->Arg(1).find("models/items/checks/checked/checked.fbx"), std::string::npos) << c.what;
		if (std::string(c.expected) == "#ZARN_Mintyard_Err_BorderEdges")
		{
			EXPECT_EQ(pFinding->Arg(2), "4");
		}
		if (std::string(c.expected) == "#ZARN_Mintyard_Err_UnweldedVertices")
		{
			EXPECT_EQ(list.Find("#ZARN_Mintyard_Err_BorderEdges"), nullptr);
		}
		// A finding is a warning: the model is imported and compiled all the same.
		EXPECT_TRUE(std::filesystem::exists(m_Game.Game("models/items/checks/checked/checked.zmdl_c"))) << c.what;
	}
}

TEST_F(ModelValidationTest, AWearableThatIsNotSkinnedToTheHeroWarns)
{
	auto t = OneModel(10000, 60);
	CMintyardTemplate_ZarnItemDef &item = t->item_defs.emplace_back();
	item.Init("item", "", "", false);
	item.hero_name = GetHeroTable().FindHeroIndex("npc_zarn_hero_bramble");
	item.loadout_slot = GetHeroTable().FindHero("npc_zarn_hero_bramble")->FindSlot("head");
	// The hero's compiled model, the reference skeleton, is needed in the game tree.
	const hero_t *pHero = GetHeroTable().FindHero("npc_zarn_hero_bramble");
	ASSERT_NE(pHero, nullptr);
	const std::string heroModel = pHero->personaModels[0][0].model.c_str();
	const std::string compiled = std::string(MINTYARD_SOURCE_DIR) + "/sample/game/zarn/" + heroModel + "_c";
	ASSERT_TRUE(std::filesystem::exists(compiled)) << "the sample game is compiled by the build: " << compiled;
	std::filesystem::create_directories(std::filesystem::path(m_Game.Game(heroModel + "_c")).parent_path());
	std::filesystem::copy_file(compiled, m_Game.Game(heroModel + "_c"));

	// Bones of its own, none of the hero's: unskinned.
	ImportMessageList list = Import(std::move(t), SkinnedFbx(BoneNames(3, "own_"), 3));
	ASSERT_NE(list.Find("#ZARN_Mintyard_Error_Unskinned"), nullptr) << Describe(list);
	EXPECT_EQ(list.Find("#ZARN_Mintyard_Error_Unskinned")->Arg(1), "checked.fbx");

	// Skinned to the hero's head: fine.
	auto skinned = OneModel(10000, 60);
	CMintyardTemplate_ZarnItemDef &item2 = skinned->item_defs.emplace_back();
	item2.Init("item", "", "", false);
	item2.hero_name = GetHeroTable().FindHeroIndex("npc_zarn_hero_bramble");
	item2.loadout_slot = pHero->FindSlot("head");
	list = Import(std::move(skinned), SkinnedFbx({ "head" }, 2));
	EXPECT_EQ(list.Find("#ZARN_Mintyard_Error_Unskinned"), nullptr) << Describe(list);
}
