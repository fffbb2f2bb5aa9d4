// Models through the whole import run with the real resource compiler: levels of detail, the
// document's nodes (animations, blends, run bundles, names), the checks of the compiled model
// against the budgets and bone rules, the topology findings of each mesh, and failures that end
// one model while the run goes on.
#include <gtest/gtest.h>

#include "compiledassets/compiledassets.h"
#include "importtestgame.h"
#include "modelart.h"
#include "modeldoc/modeldoc.h"
#include "testsupport/test_images.h"

namespace
{
using namespace modelart;

// A model template "model" (directory "tests") with the given levels; every level optional so
// that an empty one is allowed.
std::unique_ptr<CMintyardTemplate> ModelTemplate(int nLods, int nMaxPolygons = 10000, int nMaxBones = 60)
{
	auto t = std::make_unique<CMintyardTemplate>();
	t->Init("model_test", "#ModelTest", "", false);
	t->directory = "tests";
	CMintyardTemplate_ZarnModel &model = t->models.emplace_back();
	model.Init("model", "#Model", "", false);
	for (int i = 0; i < nLods; ++i)
	{
		CMintyardTemplate_ZarnMesh &lod = model.lod_list.emplace_back();
		lod.Init(("lod" + std::to_string(i)).c_str(), ("#LOD" + std::to_string(i)).c_str(), "", true);
		lod.max_polygons = nMaxPolygons;
		lod.max_bones = nMaxBones;
	}
	return t;
}

CMintyardTemplate_ZarnModel::CAnim &AddAnim(CMintyardTemplate_ZarnModel &model, const char *pszId, const char *pszSequence, bool bOptional = true)
{
	CMintyardTemplate_ZarnModel::CAnim &anim = model.anim_list.emplace_back();
	anim.Init(pszId, "#Anim", "", bOptional);
	anim.sequence_name = pszSequence;
	anim.suffix = std::string("_") + pszId;
	return anim;
}

class ModelImportTest : public ::testing::Test
{
protected:
	std::unique_ptr<CModelDoc> LoadDocument(const CMintyardCfg_ZarnModel *pModel)
	{
		auto doc = std::make_unique<CModelDoc>();
		CUtlString error;
		EXPECT_TRUE(doc->LoadFromFile(m_Game.Content(pModel->GetZmdlName().c_str()).c_str(), nullptr, &error)) << error;
		return doc;
	}
	bool LoadCompiled(const CMintyardCfg_ZarnModel *pModel, CCompiledModel &out)
	{
		CUtlString error;
		const bool bOk = LoadCompiledModel(m_Game.Game((pModel->GetZmdlName() + "_c").c_str()).c_str(), out, &error);
		EXPECT_TRUE(bOk) << error;
		return bOk;
	}
	std::string Column(const char *pszName, int nBones, int nSegments)
	{
		return m_Game.WriteArt(pszName, SkinnedFbx(BoneNames(nBones), nSegments));
	}
	std::string Messages(const ImportMessageList &list)
	{
		std::string out;
		for (int i = 0; i < list.Count(); ++i)
		{
			out += (list[i].isError ? "error " : "warning ") + list[i].Message();
			for (int a = 1; a <= 4; ++a)
				out += list[i].HasArg(a) ? " [" + list[i].Arg(a) + "]" : "";
			out += "\n";
		}
		return out + m_Game.m_Log.m_Text;
	}

	CImportTestGame m_Game;
};
} // namespace

TEST_F(ModelImportTest, TwoLevelsImportAndAThirdIsTooMany)
{
	CMintyardImportSession &session = m_Game.NewSession(ModelTemplate(2), "pillar");
	session.m_Models[0]->m_Lods[0]->SetValue(Column("lod0.fbx", 3, 6).c_str());
	session.m_Models[0]->m_Lods[1]->SetValue(Column("lod1.fbx", 3, 2).c_str());
	ImportMessageList list = m_Game.Run();
	ASSERT_EQ(list.GetErrorCount(), 0) << Messages(list);
	CCompiledModel model;
	ASSERT_TRUE(LoadCompiled(session.m_Models[0], model));
	ASSERT_EQ(model.GetMeshCount(), 2);
	uint64 lod0 = 0, lod1 = 0;
	for (int m = 0; m < model.GetMeshCount(); ++m)
	{
		lod0 += (model.GetMeshLodMask(m) & 1) ? model.GetMeshPrimitiveCount(m) : 0;
		lod1 += (model.GetMeshLodMask(m) & 2) ? model.GetMeshPrimitiveCount(m) : 0;
	}
	EXPECT_EQ(lod0, (uint64)ColumnTriangles(6));
	EXPECT_EQ(lod1, (uint64)ColumnTriangles(2));
	EXPECT_TRUE(std::filesystem::exists(m_Game.Content("models/items/tests/pillar/pillar_lod1.fbx")));

	CMintyardImportSession &three = m_Game.NewSession(ModelTemplate(3), "pillar");
	for (int i = 0; i < 3; ++i)
		three.m_Models[0]->m_Lods[i]->SetValue(Column(("three" + std::to_string(i) + ".fbx").c_str(), 2, 1).c_str());
	std::filesystem::remove(m_Game.Game("models/items/tests/pillar/pillar.zmdl_c"));
	list = m_Game.Run();
	const MintyardImportMessageEntry_t *pTooMany = list.Find("#ZARN_Mintyard_Err_BadCfg", "Too Many LODs");
	ASSERT_NE(pTooMany, nullptr) << Messages(list);
	EXPECT_EQ(pTooMany->Arg(2), "lod2");
	EXPECT_FALSE(std::filesystem::exists(m_Game.Game("models/items/tests/pillar/pillar.zmdl_c"))); // nothing compiled
	EXPECT_EQ(list.Find("#ZARN_Mintyard_Error_FailedToLoadCompiledModel"), nullptr);	 // and not checked either
}

TEST_F(ModelImportTest, AnEmptyLevelUsesNoOutputNumber)
{
	CMintyardImportSession &session = m_Game.NewSession(ModelTemplate(2), "gap");
	session.m_Models[0]->m_Lods[1]->SetValue(Column("far.fbx", 2, 1).c_str());
	ImportMessageList list = m_Game.Run();
	ASSERT_EQ(list.GetErrorCount(), 0) << Messages(list);
	std::unique_ptr<CModelDoc> pDoc = LoadDocument(session.m_Models[0]);
	CUtlVector<CModelDocNode *> groups;
	pDoc->FindNodes("LODGroup", groups);
	ASSERT_EQ(groups.size(), 1u);
	EXPECT_EQ(groups[0]->GetStringArray("meshes"), CUtlVector<CUtlString>{ "gap" }); // output number 0: no "_lod"
	EXPECT_FLOAT_EQ(groups[0]->GetFloat("switch_threshold"), 1.0f);					 // by the element's index
	EXPECT_TRUE(std::filesystem::exists(m_Game.Content("models/items/tests/gap/gap.fbx")));
}

TEST_F(ModelImportTest, BlendKeysSpreadFromMinusOneToOne)
{
	for (int nKeys : { 3, 2, 1 })
	{
		auto t = ModelTemplate(1);
		CMintyardTemplate_ZarnModel &model = t->models[0];
		CMintyardTemplate_ZarnModel::CAnimBundle &bundle = model.anim_bundle_list.emplace_back();
		bundle.Init("lean", "#Lean", "", true);
		bundle.bundle_type = MINTYARD_ANIM_BUNDLE_MULTIBLEND;
		bundle.compound_sequence_name = "lean_blend";
		bundle.pose_param_name = "lean";
		for (int k = 0; k < nKeys; ++k)
		{
			CMintyardTemplate_ZarnModel::CAnim &anim = bundle.anim_list.emplace_back();
			anim.Init(("lean" + std::to_string(k)).c_str(), "#Anim", "", true);
			anim.sequence_name = "lean_" + std::to_string(k);
			anim.suffix = "_lean" + std::to_string(k);
		}
		CMintyardImportSession &session = m_Game.NewSession(std::move(t), "leaner");
		const std::vector<std::string> bones = BoneNames(2);
		session.m_Models[0]->m_Lods[0]->SetValue(m_Game.WriteArt("leaner.fbx", SkinnedFbx(bones, 2)).c_str());
		for (int k = 0; k < nKeys; ++k)
			session.m_Models[0]->m_Bundles[0]->m_Anims[k]->SetValue(
				m_Game.WriteArt("lean" + std::to_string(k) + ".fbx", AnimationFbx(bones, 4)).c_str());
		ImportMessageList list = m_Game.Run();
		ASSERT_EQ(list.GetErrorCount(), 0) << nKeys << " keys\n" << Messages(list);
		std::unique_ptr<CModelDoc> pDoc = LoadDocument(session.m_Models[0]);
		CModelDocNode *blend = pDoc->FindNode("sequence", "lean_blend");
		ASSERT_NE(blend, nullptr);
		const CUtlVector<ModelDocBlendKey_t> &keys = blend->GetBlendKeys("blend_keys");
		ASSERT_EQ(keys.size(), (size_t)nKeys);
		const std::vector<std::vector<float>> expected = { {}, { 1.0f }, { -1.0f, 1.0f }, { -1.0f, 0.0f, 1.0f } };
		for (int k = 0; k < nKeys; ++k)
			EXPECT_FLOAT_EQ(keys[k].m_flValue, expected[nKeys][k]) << nKeys << " keys, key " << k;
		EXPECT_NE(pDoc->FindNode("poseparam", "lean"), nullptr);
		CCompiledModel compiled;
		ASSERT_TRUE(LoadCompiled(session.m_Models[0], compiled));
		EXPECT_GE(compiled.FindSequence("lean_blend"), 0);
	}
}

TEST_F(ModelImportTest, RunBundlesWithAndWithoutTurnPoses)
{
	auto MakeRunTemplate = []() {
		auto t = ModelTemplate(1);
		CMintyardTemplate_ZarnModel &model = t->models[0];
		model.root_bone_name = "bone_0";
		CMintyardTemplate_ZarnModel::CAnimBundle &bundle = model.anim_bundle_list.emplace_back();
		bundle.Init("run", "#Run", "", true);
		bundle.bundle_type = MINTYARD_ANIM_BUNDLE_RUN;
		bundle.compound_sequence_name = "run_turns";
		for (const char *id : { "run_anim_base", "run_anim_base2", "run_anim_turnpose_center", "run_anim_turnpose_left", "run_anim_turnpose_right" })
		{
			CMintyardTemplate_ZarnModel::CAnim &anim = bundle.anim_list.emplace_back();
			anim.Init(id, "#Anim", "", true);
			anim.sequence_name = std::string("seq_") + id;
			anim.suffix = std::string("_") + id;
			anim.activity_name = "ACT_RUN";
		}
		bundle.anim_list[1].suppress_run_motion_extraction = true;
		return t;
	};
	const std::vector<std::string> bones = BoneNames(2);
	const std::string animation = m_Game.WriteArt("run.fbx", AnimationFbx(bones, 6));

	// With the three turn poses: poses, their delta sequences, the turn blend, and the bases with
	// motion extraction (unless suppressed) and the blend as an added layer.
	CMintyardImportSession &session = m_Game.NewSession(MakeRunTemplate(), "runner");
	session.m_Models[0]->m_Lods[0]->SetValue(m_Game.WriteArt("runner.fbx", SkinnedFbx(bones, 2)).c_str());
	for (CMintyardCfg_ZarnModel::CAnim *pAnim : session.m_Models[0]->m_Bundles[0]->m_Anims)
		pAnim->SetValue(animation.c_str());
	ImportMessageList list = m_Game.Run();
	ASSERT_EQ(list.GetErrorCount(), 0) << Messages(list);
	std::unique_ptr<CModelDoc> pDoc = LoadDocument(session.m_Models[0]);
	for (const char *pose : { "center_pose", "left_pose", "right_pose" })
		EXPECT_NE(pDoc->FindNode("sequence", pose), nullptr) << pose;
	CModelDocNode *turns = pDoc->FindNode("sequence", "run_turns");
	ASSERT_NE(turns, nullptr);
	EXPECT_TRUE(turns->IsClass("1DBlend"));
	EXPECT_TRUE(turns->GetBool("delta"));
	EXPECT_STREQ(turns->GetString("blend_pose_param"), "turn");
	ASSERT_EQ(turns->GetBlendKeys("blend_keys").size(), 3u);
	EXPECT_EQ(turns->GetBlendKeys("blend_keys")[0].m_ChildName, "seq_run_anim_turnpose_left");
	CModelDocNode *base = pDoc->FindNode("sequence", "seq_run_anim_base");
	ASSERT_NE(base, nullptr);
	ASSERT_NE(base->FindChild("ExtractMotion"), nullptr);
	EXPECT_STREQ(base->FindChild("ExtractMotion")->GetString("root_bone_name"), "bone_0");
	ASSERT_NE(base->FindChild("AnimAddLayer"), nullptr);
	EXPECT_STREQ(base->FindChild("AnimAddLayer")->GetString("anim_name"), "run_turns");
	CModelDocNode *suppressed = pDoc->FindNode("sequence", "seq_run_anim_base2");
	ASSERT_NE(suppressed, nullptr);
	EXPECT_EQ(suppressed->FindChild("ExtractMotion"), nullptr);
	CCompiledModel compiled;
	ASSERT_TRUE(LoadCompiled(session.m_Models[0], compiled));
	EXPECT_GE(compiled.FindSequence("run_turns"), 0);

	// Without turn poses only the plain run sequences; a base without an element still imports.
	auto plain = MakeRunTemplate();
	CMintyardImportSession &second = m_Game.NewSession(std::move(plain), "walker");
	second.m_Models[0]->m_Lods[0]->SetValue(m_Game.WriteArt("walker.fbx", SkinnedFbx(bones, 2)).c_str());
	second.m_Models[0]->m_Bundles[0]->m_Anims[0]->SetValue(animation.c_str());
	list = m_Game.Run();
	ASSERT_EQ(list.GetErrorCount(), 0) << Messages(list);
	std::unique_ptr<CModelDoc> pPlainDoc = LoadDocument(second.m_Models[0]);
	EXPECT_EQ(pPlainDoc->FindNode("sequence", "run_turns"), nullptr);
	CModelDocNode *run = pPlainDoc->FindNode("sequence", "seq_run_anim_base");
	ASSERT_NE(run, nullptr);
	EXPECT_TRUE(run->GetBool("looping"));
	EXPECT_STREQ(run->GetString("activity_name"), "ACT_RUN");
	EXPECT_EQ(pPlainDoc->FindNode("sequence", "seq_run_anim_base2"), nullptr);
}

TEST_F(ModelImportTest, ASequenceNameTwiceIsRefusedOnTheSecond)
{
	auto t = ModelTemplate(1);
	AddAnim(t->models[0], "idle", "idle");
	AddAnim(t->models[0], "idle2", "IDLE"); // names compare without case
	CMintyardImportSession &session = m_Game.NewSession(std::move(t), "twice");
	const std::vector<std::string> bones = BoneNames(2);
	session.m_Models[0]->m_Lods[0]->SetValue(m_Game.WriteArt("twice.fbx", SkinnedFbx(bones, 2)).c_str());
	const std::string animation = m_Game.WriteArt("idle.fbx", AnimationFbx(bones, 3));
	session.m_Models[0]->m_Anims[0]->SetValue(animation.c_str());
	session.m_Models[0]->m_Anims[1]->SetValue(animation.c_str());
	ImportMessageList list = m_Game.Run();
	const MintyardImportMessageEntry_t *pRefused = list.Find("#ZARN_Mintyard_Err_BadCfg", "Bad or duplicate anim name");
	ASSERT_NE(pRefused, nullptr) << Messages(list);
	EXPECT_EQ(pRefused->Arg(2), "IDLE");
	EXPECT_FALSE(std::filesystem::exists(m_Game.Content("models/items/tests/twice/twice.zmdl")));
}

TEST_F(ModelImportTest, TheWrittenDocumentHoldsExactlyTheImportsNodes)
{
	auto t = ModelTemplate(1);
	CMintyardTemplate_ZarnModel &model = t->models[0];
	CMintyardTemplate_ZarnModel::CAnim &idle = AddAnim(model, "idle", "idle");
	idle.looping = true;
	idle.activity_name = "ACT_IDLE";
	idle.modifiers.push_back({ "calm", 2 });
	idle.bone_weight_list.push_back({ "bone_1", 0.5f });
	idle.add_motion_extraction = true;
	CMintyardTemplate_ZarnModel::CAttach &attach = model.attach_list.emplace_back();
	attach.Init("attach_tip", "#Tip", "", true);
	attach.attach_name = "tip";
	attach.attach_joint = "bone_1";
	attach.default_offset = Vector(0, 0, 2);
	model.auto_hitbox_set_name = "auto";
	model.hitbox_list.push_back({ "default", "body", "bone_0", Vector(-1, -1, 0), Vector(1, 1, 2) });
	CMintyardImportSession &session = m_Game.NewSession(std::move(t), "stave");
	const std::vector<std::string> bones = BoneNames(2);
	session.m_Models[0]->m_Lods[0]->SetValue(m_Game.WriteArt("stave.fbx", SkinnedFbx(bones, 2)).c_str());
	session.m_Models[0]->m_Anims[0]->SetValue(m_Game.WriteArt("stave_idle.fbx", AnimationFbx(bones, 5)).c_str());
	ImportMessageList list = m_Game.Run();
	ASSERT_EQ(list.GetErrorCount(), 0) << Messages(list);

	const std::string written = m_Game.ReadFile(m_Game.Content("models/items/tests/stave/stave.zmdl"));
	const std::string expected = m_Game.ReadFile(std::string(MINTYARD_SOURCE_DIR) + "/tools/mintyardtoolutils/pipeline/tests/expected/stave.zmdl");
	EXPECT_EQ(written, expected);
	CCompiledModel compiled;
	ASSERT_TRUE(LoadCompiled(session.m_Models[0], compiled));
	EXPECT_GE(compiled.FindSequence("idle"), 0);
	EXPECT_GE(compiled.FindAttachment("tip"), 0);
	EXPECT_EQ(compiled.m_HitboxSets.size(), 2u);
}

TEST_F(ModelImportTest, AModelThatFailsToCompileIsNotCheckedAndTheNextGoesOn)
{
	auto t = ModelTemplate(1);
	CMintyardTemplate_ZarnModel second = t->models[0];
	second.id = "model_b";
	second.model_name_suffix = "_b";
	t->models.push_back(second);
	CMintyardImportSession &session = m_Game.NewSession(std::move(t), "pair");
	// The first model's source is noise with an FBX name: it places, and the compile fails.
	session.m_Models[0]->m_Lods[0]->SetValue(m_Game.WriteArt("noise.fbx", std::string(4000, '\x2a')).c_str());
	session.m_Models[1]->m_Lods[0]->SetValue(Column("fine.fbx", 70, 70).c_str()); // 70 bones over a budget of 60
	ImportMessageList list = m_Game.Run();
	EXPECT_EQ(list.CountMessage("#ZARN_Mintyard_Err_FailedToCompile"), 1) << Messages(list);
	EXPECT_EQ(list.Find("#ZARN_Mintyard_Error_FailedToLoadCompiledModel"), nullptr) << Messages(list);
	// The second was imported and checked: its bone count is reported.
	const MintyardImportMessageEntry_t *pBones = list.Find("#ZARN_Mintyard_Error_TooManyBones");
	ASSERT_NE(pBones, nullptr) << Messages(list);
	EXPECT_EQ(pBones->Arg(2), "70");
	EXPECT_TRUE(std::filesystem::exists(m_Game.Game("models/items/tests/pair/pair_b.zmdl_c")));
	EXPECT_NE(m_Game.m_Log.m_Text.find("noise.fbx"), std::string::npos); // the compiler said why
}
