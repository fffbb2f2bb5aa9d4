// The tool scene without GL: math conventions, animation playback of compiled sequences,
// attachments, bone merging, picking against the current pose, the gizmo's drag math, model
// options, resources and overlays.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <thread>

#include "testsupport/test_support.h"
#include "toolscene/scenegizmo.h"
#include "toolscene/toolscene.h"
#include "toolscenetestassets.h"

namespace
{
void ExpectNear(const Vector &actual, const Vector &expected, float tolerance = 1e-3f)
{
	EXPECT_NEAR(actual.x, expected.x, tolerance);
	EXPECT_NEAR(actual.y, expected.y, tolerance);
	EXPECT_NEAR(actual.z, expected.z, tolerance);
}

// The world position of vertex `index` of mesh 0 of a node in its current pose.
Vector SkinnedVertex(const CToolSceneModelNode &node, uint32 index)
{
	const CompiledMesh_t &mesh = node.GetCompiledModel()->m_Meshes[0];
	const std::vector<SceneMatrix_t> &skinning = node.GetSkinningMatrices();
	Vector sum;
	for (int k = 0; k < 4; ++k)
	{
		const float weight = mesh.m_BoneWeights[index].m_nWeight[k] / 255.0f;
		const uint32 bone = mesh.m_Bones[mesh.m_BoneIndices[index].m_nIndex[k]];
		sum += SceneTransformPoint(skinning[bone], mesh.m_Positions[index]) * weight;
	}
	return SceneTransformPoint(node.GetWorldTransform(), sum);
}

// The strip's top right vertex (0, 10, 100) with "upper" turned by `degrees` about x.
Vector StripTop(float degrees)
{
	const float radians = SceneRadians(degrees);
	// Relative to "upper" the vertex is (0, 10, 50).
	return Vector(0.0f, 10.0f * std::cos(radians) - 50.0f * std::sin(radians), 50.0f + 10.0f * std::sin(radians) + 50.0f * std::cos(radians));
}

constexpr uint32 TOP_VERTEX = 9; // row 4, column 1: (0, 10, 100)

class CRecordingListener : public IGizmoListener
{
public:
	void OnGizmoStart(CToolSceneGizmo *) override { ++m_nStarts; }
	void OnGizmoMoved(CToolSceneGizmo *, const ToolSceneTransform_t &delta) override
	{
		++m_nMoves;
		m_LastDelta = delta;
	}
	void OnGizmoReleased(CToolSceneGizmo *, const ToolSceneTransform_t &delta) override
	{
		++m_nReleases;
		m_ReleasedDelta = delta;
	}
	void OnGizmoHoverChanged(CToolSceneGizmo *, EToolSceneGizmoHandle eHandle) override { m_eHover = eHandle; }
	void OnGizmoModeChanged(CToolSceneGizmo *, EToolSceneGizmoMode eMode) override { m_eMode = eMode; }
	void OnGizmoShown(CToolSceneGizmo *) override { ++m_nShown; }
	void OnGizmoHidden(CToolSceneGizmo *) override { ++m_nHidden; }

	int m_nStarts = 0, m_nMoves = 0, m_nReleases = 0, m_nShown = 0, m_nHidden = 0;
	EToolSceneGizmoHandle m_eHover = GIZMO_HANDLE_NONE;
	EToolSceneGizmoMode m_eMode = GIZMO_MODE_TRANSLATE;
	ToolSceneTransform_t m_LastDelta, m_ReleasedDelta;
};

class ToolSceneLogic : public testing::Test
{
protected:
	void SetUp() override
	{
		ASSERT_FALSE(m_Game.Root().empty());
		m_Resources.SetGameRoot(m_Game.Root().c_str());
		ASSERT_TRUE(m_Game.WriteModel("models/strip.zmdl_c", TestModel_SkinnedStrip("materials/strip.zmat_c")));
	}

	CTestGameFolder m_Game;
	CToolSceneResources m_Resources;
};
} // namespace

TEST(ToolSceneMath, AnglesFollowTheZUpConvention)
{
	ExpectNear(SceneAnglesForward(QAngle(0, 0, 0)), Vector(1, 0, 0));
	ExpectNear(SceneAnglesForward(QAngle(0, 90, 0)), Vector(0, 1, 0));
	// A positive pitch looks down.
	ExpectNear(SceneAnglesForward(QAngle(90, 0, 0)), Vector(0, 0, -1));
	// Roll turns the left axis up.
	ExpectNear(SceneMatrixFromAngles(QAngle(0, 0, 90)).GetColumn(1), Vector(0, 0, 1));

	const QAngle angles(20.0f, -135.0f, 30.0f);
	const QAngle back = SceneMatrixToAngles(SceneMatrixFromAngles(angles));
	EXPECT_NEAR(back.x, angles.x, 1e-3f);
	EXPECT_NEAR(back.y, angles.y, 1e-3f);
	EXPECT_NEAR(back.z, angles.z, 1e-3f);
	const QAngle fromQuaternion = SceneQuaternionToAngles(SceneQuaternionFromAngles(angles));
	EXPECT_NEAR(fromQuaternion.x, angles.x, 1e-2f);
	EXPECT_NEAR(fromQuaternion.y, angles.y, 1e-2f);
	EXPECT_NEAR(fromQuaternion.z, angles.z, 1e-2f);

	SceneMatrix_t inverse;
	const SceneMatrix_t m = SceneMatrixFromPositionAnglesScale(Vector(5, -3, 2), angles, Vector(2, 2, 2));
	ASSERT_TRUE(SceneMatrixInverse(m, inverse));
	ExpectNear(SceneTransformPoint(inverse * m, Vector(7, 8, 9)), Vector(7, 8, 9));
}

TEST(ToolSceneMath, CameraRaysAndProjectionAgree)
{
	CToolSceneCamera camera;
	camera.SetPositionAndTarget(Vector(300, -200, 150), Vector(0, 0, 40));
	Vector origin, direction;
	camera.BuildRay(320.0f, 240.0f, 640, 480, origin, direction);
	ExpectNear(direction, SceneNormalize(Vector(0, 0, 40) - Vector(300, -200, 150)));

	const Vector point(30, 40, 10);
	float x, y;
	ASSERT_TRUE(camera.ProjectToScreen(point, 640, 480, x, y));
	camera.BuildRay(x, y, 640, 480, origin, direction);
	const Vector toPoint = SceneNormalize(point - origin);
	ExpectNear(direction, toPoint);
	EXPECT_FALSE(camera.ProjectToScreen(Vector(600, -400, 260), 640, 480, x, y)) << "behind the camera";

	// Framing puts every corner of the box inside the view.
	camera.FrameBounds(Vector(-50, -20, 0), Vector(50, 20, 180), 640.0f / 480.0f);
	for (int c = 0; c < 8; ++c)
	{
		const Vector corner((c & 1) ? 50.0f : -50.0f, (c & 2) ? 20.0f : -20.0f, (c & 4) ? 180.0f : 0.0f);
		ASSERT_TRUE(camera.ProjectToScreen(corner, 640, 480, x, y));
		EXPECT_GE(x, 0.0f);
		EXPECT_LE(x, 640.0f);
		EXPECT_GE(y, 0.0f);
		EXPECT_LE(y, 480.0f);
	}
	ExpectNear(camera.GetTarget(), Vector(0, 0, 90));

	// Orbit keeps the distance to the target; zoom changes it.
	const float distance = SceneLength(camera.GetPosition() - camera.GetTarget());
	camera.Orbit(35.0f, -10.0f);
	EXPECT_NEAR(SceneLength(camera.GetPosition() - camera.GetTarget()), distance, 1e-2f);
	camera.Zoom(0.5f);
	EXPECT_NEAR(SceneLength(camera.GetPosition() - camera.GetTarget()), distance * 0.5f, 1e-2f);
}

TEST_F(ToolSceneLogic, PlainSequencesInterpolateBetweenStoredFramesAndLoop)
{
	CToolScene scene(&m_Resources);
	CToolSceneModelNode *pNode = scene.CreateModelNode("models/strip.zmdl");
	ASSERT_TRUE(pNode->HasModel());
	ExpectNear(SkinnedVertex(*pNode, TOP_VERTEX), StripTop(0.0f));

	ASSERT_TRUE(pNode->SetSequence("bend"));
	EXPECT_EQ(pNode->GetFrameCount(), 2);
	ExpectNear(SkinnedVertex(*pNode, TOP_VERTEX), StripTop(0.0f));
	pNode->SetFrame(1.0f);
	ExpectNear(SkinnedVertex(*pNode, TOP_VERTEX), StripTop(90.0f));
	pNode->SetFrame(0.5f);
	ExpectNear(SkinnedVertex(*pNode, TOP_VERTEX), StripTop(45.0f));
	// Not looping: held at the last frame.
	pNode->SetFrame(7.0f);
	EXPECT_FLOAT_EQ(pNode->GetFrame(), 1.0f);

	// 10 frames a second at half speed: 0.1 s is half a frame.
	pNode->SetFrame(0.0f);
	pNode->SetPlaybackRate(0.5f);
	scene.Advance(0.1f);
	EXPECT_NEAR(pNode->GetFrame(), 0.5f, 1e-5f);
	pNode->SetPlaying(false);
	scene.Advance(0.1f);
	EXPECT_NEAR(pNode->GetFrame(), 0.5f, 1e-5f);

	// Looping: "wave" has 5 frames, the last equal to the first, so it wraps at frame 4.
	ASSERT_TRUE(pNode->SetSequence("wave"));
	pNode->SetFrame(5.0f);
	EXPECT_NEAR(pNode->GetFrame(), 1.0f, 1e-5f);
	ExpectNear(SkinnedVertex(*pNode, TOP_VERTEX), StripTop(30.0f));
	pNode->SetFrame(-1.0f);
	EXPECT_NEAR(pNode->GetFrame(), 3.0f, 1e-5f);
	pNode->SetFrame(1.5f);
	ExpectNear(SkinnedVertex(*pNode, TOP_VERTEX), StripTop(45.0f));
}

TEST_F(ToolSceneLogic, DeltaSequencesAndAddLayersApplyOnTop)
{
	CToolScene scene(&m_Resources);
	CToolSceneModelNode *pNode = scene.CreateModelNode("models/strip.zmdl");
	ASSERT_TRUE(pNode->SetSequence("lean_delta"));
	ExpectNear(SkinnedVertex(*pNode, TOP_VERTEX), StripTop(90.0f));
	ASSERT_TRUE(pNode->SetSequence("bind_layered"));
	ExpectNear(SkinnedVertex(*pNode, TOP_VERTEX), StripTop(90.0f));

	// A delta on a moving base adds its turn to the base's: the wave at 30 plus 90.
	CCompiledModel model = TestModel_SkinnedStrip("materials/strip.zmat_c");
	model.m_Sequences[8].m_AddLayers = { 2 };
	ASSERT_TRUE(m_Game.WriteModel("models/strip_wave_layer.zmdl_c", model));
	CToolSceneModelNode *pLayered = scene.CreateModelNode("models/strip_wave_layer.zmdl");
	ASSERT_TRUE(pLayered->SetSequence("wave"));
	pLayered->SetFrame(1.0f);
	ExpectNear(SkinnedVertex(*pLayered, TOP_VERTEX), StripTop(120.0f));

	// A weight list that leaves out "upper" keeps the layer off it.
	model = TestModel_SkinnedStrip("materials/strip.zmat_c");
	model.m_WeightLists = { { "root_only", { 1.0f, 0.0f } } };
	model.m_Sequences[2].m_nWeightList = 0;
	// And a layer that names itself is evaluated once per level, without hanging.
	model.m_Sequences[3].m_AddLayers = { 2, 3 };
	ASSERT_TRUE(m_Game.WriteModel("models/strip_weights.zmdl_c", model));
	CToolSceneModelNode *pWeighted = scene.CreateModelNode("models/strip_weights.zmdl");
	ASSERT_TRUE(pWeighted->SetSequence("bind_layered"));
	ExpectNear(SkinnedVertex(*pWeighted, TOP_VERTEX), StripTop(0.0f));
}

TEST_F(ToolSceneLogic, BlendsFollowTheirPoseParameter)
{
	CToolScene scene(&m_Resources);
	CToolSceneModelNode *pNode = scene.CreateModelNode("models/strip.zmdl");
	ASSERT_TRUE(pNode->SetSequence("lean_blend"));
	EXPECT_EQ(pNode->GetFrameCount(), 1) << "a blend takes its timing from its first key";
	ExpectNear(SkinnedVertex(*pNode, TOP_VERTEX), StripTop(0.0f));
	ASSERT_TRUE(pNode->SetPoseParameter("lean", 1.0f));
	ExpectNear(SkinnedVertex(*pNode, TOP_VERTEX), StripTop(90.0f));
	ASSERT_TRUE(pNode->SetPoseParameter("LEAN", -1.0f));
	ExpectNear(SkinnedVertex(*pNode, TOP_VERTEX), StripTop(-90.0f));
	ASSERT_TRUE(pNode->SetPoseParameter("lean", 0.5f));
	ExpectNear(SkinnedVertex(*pNode, TOP_VERTEX), StripTop(45.0f));
	ASSERT_TRUE(pNode->SetPoseParameter("lean", -0.25f));
	ExpectNear(SkinnedVertex(*pNode, TOP_VERTEX), StripTop(-22.5f));
	// Held inside the parameter's range.
	ASSERT_TRUE(pNode->SetPoseParameter("lean", 7.0f));
	EXPECT_FLOAT_EQ(pNode->Animator().GetPoseParameter(0), 1.0f);
	EXPECT_FALSE(pNode->SetPoseParameter("no_such_parameter", 1.0f));
}

TEST_F(ToolSceneLogic, ActivitiesFindTheirSequence)
{
	CToolScene scene(&m_Resources);
	CToolSceneModelNode *pNode = scene.CreateModelNode("models/strip.zmdl");
	const CCompiledModel &model = *pNode->GetCompiledModel();
	EXPECT_EQ(ToolScene_FindSequenceForActivity(model, "ACT_ZARN_IDLE"), 1);
	EXPECT_EQ(ToolScene_FindSequenceForActivity(model, "act_zarn_idle"), 1);
	EXPECT_EQ(ToolScene_FindSequenceForActivity(model, "ACT_ZARN_RUN"), -1);
	ASSERT_TRUE(pNode->SetActivity("ACT_ZARN_IDLE"));
	EXPECT_EQ(pNode->Animator().GetSequence(), 1);
	EXPECT_FALSE(pNode->SetActivity("ACT_ZARN_RUN"));
	EXPECT_EQ(pNode->Animator().GetSequence(), 1);

	// The greatest weight wins.
	CCompiledModel weighted = model;
	weighted.m_Sequences[8].m_Activities = { { "ACT_ZARN_IDLE", 5 } };
	EXPECT_EQ(ToolScene_FindSequenceForActivity(weighted, "ACT_ZARN_IDLE"), 8);
}

TEST_F(ToolSceneLogic, AttachmentsFollowTheAnimatedSkeleton)
{
	CToolScene scene(&m_Resources);
	CToolSceneModelNode *pNode = scene.CreateModelNode("models/strip.zmdl");
	pNode->SetTransform(Vector(10, 0, 0), QAngle(0, 0, 0));
	const int tip = pNode->FindAttachment("TIP");
	ASSERT_EQ(tip, 0);
	Vector position;
	QAngle angles;
	ASSERT_TRUE(pNode->GetAttachment(tip, position, angles));
	ExpectNear(position, Vector(10, 0, 100));
	pNode->SetSequence("bend");
	pNode->SetFrame(1.0f);
	ASSERT_TRUE(pNode->GetAttachment(tip, position, angles));
	ExpectNear(position, Vector(10, -50, 50));
	EXPECT_NEAR(angles.z, 90.0f, 1e-2f);
	EXPECT_FALSE(pNode->GetAttachment(5, position, angles));

	// A node hanging on the attachment goes with it.
	CToolSceneModelNode *pChild = scene.CreateModelNode("models/strip.zmdl");
	ASSERT_TRUE(pChild->SetParent(pNode, "tip"));
	pChild->SetPosition(Vector(0, 0, 5));
	ExpectNear(pChild->GetWorldTransform().GetTranslation(), Vector(10, -55, 50));
	EXPECT_FALSE(pNode->SetParent(pChild)) << "a node cannot hang under its own child";
	scene.RemoveNode(pNode);
	EXPECT_EQ(pChild->GetParent(), nullptr);
	ExpectNear(pChild->GetWorldTransform().GetTranslation(), Vector(0, 0, 5));
}

TEST_F(ToolSceneLogic, BoneMergedModelsFollowTheirParentsBones)
{
	CToolScene scene(&m_Resources);
	CToolSceneModelNode *pHero = scene.CreateModelNode("models/strip.zmdl");
	CToolSceneModelNode *pWearable = scene.CreateModelNode("models/strip.zmdl");
	pHero->SetSequence("bend");
	pHero->SetFrame(1.0f);
	EXPECT_NE(SkinnedVertex(*pWearable, TOP_VERTEX).y, SkinnedVertex(*pHero, TOP_VERTEX).y);
	pWearable->SetBoneMergeParent(pHero);
	ExpectNear(SkinnedVertex(*pWearable, TOP_VERTEX), StripTop(90.0f));
	pHero->SetFrame(0.5f);
	ExpectNear(SkinnedVertex(*pWearable, TOP_VERTEX), StripTop(45.0f));
	pHero->SetBoneMergeParent(pWearable);
	EXPECT_EQ(pHero->GetBoneMergeParent(), nullptr) << "a merge back onto itself is refused";
	scene.RemoveNode(pHero);
	EXPECT_EQ(pWearable->GetBoneMergeParent(), nullptr);
}

TEST_F(ToolSceneLogic, PickingUsesTheCurrentPose)
{
	CToolScene scene(&m_Resources);
	CToolSceneModelNode *pNode = scene.CreateModelNode("models/strip.zmdl");
	ToolSceneTraceResult_t result;
	ASSERT_TRUE(scene.TraceRay(Vector(200, 0, 75), Vector(-1, 0, 0), result));
	EXPECT_EQ(result.m_pNode, pNode);
	EXPECT_NEAR(result.m_flDistance, 200.0f, 1e-3f);
	ExpectNear(result.m_vHitPosition, Vector(0, 0, 75));
	ExpectNear(result.m_vHitNormal, Vector(1, 0, 0));
	EXPECT_EQ(result.m_nMesh, 0);
	EXPECT_FALSE(scene.TraceRay(Vector(200, 40, 75), Vector(-1, 0, 0), result));
	EXPECT_EQ(result.m_pNode, nullptr);

	// Bent, the upper half has gone: the same ray misses, one where it went hits.
	pNode->SetSequence("bend");
	pNode->SetFrame(1.0f);
	EXPECT_FALSE(scene.TraceRay(Vector(200, 0, 75), Vector(-1, 0, 0), result));
	EXPECT_TRUE(scene.TraceRay(Vector(200, -40, 52), Vector(-1, 0, 0), result));

	// Hidden or unselectable nodes are not found (unless asked).
	pNode->SetFrame(0.0f);
	pNode->SetSelectable(false);
	EXPECT_FALSE(scene.TraceRay(Vector(200, 0, 75), Vector(-1, 0, 0), result));
	EXPECT_TRUE(scene.TraceRay(Vector(200, 0, 75), Vector(-1, 0, 0), result, false));
	pNode->SetSelectable(true);
	pNode->SetVisible(false);
	EXPECT_FALSE(scene.TraceRay(Vector(200, 0, 75), Vector(-1, 0, 0), result, false));
	pNode->SetVisible(true);

	// The nearest of two.
	CToolSceneModelNode *pFront = scene.CreateModelNode("models/strip.zmdl");
	pFront->SetPosition(Vector(50, 0, 0));
	ASSERT_TRUE(scene.TraceRay(Vector(200, 0, 75), Vector(-1, 0, 0), result));
	EXPECT_EQ(result.m_pNode, pFront);
	EXPECT_NEAR(result.m_flDistance, 150.0f, 1e-3f);

	// Through the camera's centre pixel.
	scene.Camera().SetPositionAndTarget(Vector(300, 0, 50), Vector(0, 0, 50));
	ASSERT_TRUE(scene.TracePixel(320.0f, 240.0f, 640, 480, result));
	EXPECT_EQ(result.m_pNode, pFront);
}

TEST_F(ToolSceneLogic, MaterialGroupsBodyGroupsAndLods)
{
	CCompiledModel model = TestModel_Quad("materials/red.zmat_c");
	model.m_Materials.push_back("materials/blue.zmat_c");
	model.m_MaterialGroups.push_back({ "Blue_Skin", { { 0, 1 } } });
	model.m_LodSwitchThresholds = { 0.0f, 50.0f };
	model.m_Meshes[0].m_nLodMask = 1;
	CompiledMesh_t low = TestMesh_Quad(100.0f, 0.0f, 0.0f);
	low.m_nLodMask = 2;
	model.m_Meshes.push_back(low);
	model.m_Meshes.push_back(TestMesh_Quad(20.0f, 60.0f, 0.0f));
	model.m_Meshes.back().m_nLodMask = 3;
	model.m_Meshes.push_back(TestMesh_Quad(20.0f, -60.0f, 0.0f));
	model.m_Meshes.back().m_nLodMask = 3;
	model.m_BodyGroups = { { "side", { { "right", { 2 } }, { "left", { 3 } }, { "none", {} } } } };
	ASSERT_TRUE(m_Game.WriteModel("models/options.zmdl_c", model));

	CToolScene scene(&m_Resources);
	CToolSceneModelNode *pNode = scene.CreateModelNode("models/options.zmdl");
	ASSERT_TRUE(pNode->HasModel());
	EXPECT_EQ(pNode->RemapMaterial(0), 0);
	EXPECT_TRUE(pNode->SetMaterialGroup("blue_skin"));
	EXPECT_EQ(pNode->GetMaterialGroup(), 1);
	EXPECT_EQ(pNode->RemapMaterial(0), 1);
	EXPECT_FALSE(pNode->SetMaterialGroup("gold"));
	EXPECT_EQ(pNode->GetMaterialGroup(), 1);
	EXPECT_TRUE(pNode->SetMaterialGroupIndex(0));
	EXPECT_FALSE(pNode->SetMaterialGroupIndex(2));

	EXPECT_TRUE(pNode->IsMeshDrawn(0));
	EXPECT_FALSE(pNode->IsMeshDrawn(1));
	EXPECT_TRUE(pNode->IsMeshDrawn(2));
	EXPECT_FALSE(pNode->IsMeshDrawn(3));
	pNode->SetShowLod1(true);
	EXPECT_FALSE(pNode->IsMeshDrawn(0));
	EXPECT_TRUE(pNode->IsMeshDrawn(1));
	pNode->SetLod(9);
	EXPECT_TRUE(pNode->IsMeshDrawn(1)) << "past the last LOD the last one is drawn";
	pNode->SetLod(0);

	ASSERT_TRUE(pNode->SetBodyGroupChoiceByName("SIDE", "left"));
	EXPECT_FALSE(pNode->IsMeshDrawn(2));
	EXPECT_TRUE(pNode->IsMeshDrawn(3));
	ASSERT_TRUE(pNode->SetBodyGroupChoice(0, 2));
	EXPECT_FALSE(pNode->IsMeshDrawn(2));
	EXPECT_FALSE(pNode->IsMeshDrawn(3));
	EXPECT_FALSE(pNode->SetBodyGroupChoice(0, 3));
	EXPECT_FALSE(pNode->SetBodyGroupChoiceByName("side", "middle"));
	EXPECT_EQ(pNode->GetBodyGroupChoice(0), 2);
}

TEST_F(ToolSceneLogic, MissingOrDamagedModelsLeaveAnEmptyNode)
{
	CToolScene scene(&m_Resources);
	CCaptureLog log;
	CUtlString error;
	CToolSceneModelNode *pNode = scene.CreateModelNode();
	EXPECT_FALSE(pNode->SetModel("models/editor/camera.zmdl", &error));
	EXPECT_FALSE(pNode->HasModel());
	EXPECT_NE(error.find("camera.zmdl_c"), CUtlString::npos) << error;

	std::ofstream(m_Game.Path("models/broken.zmdl_c"), std::ios::binary) << "ZMDL and nothing else";
	EXPECT_FALSE(pNode->SetModel("models/broken.zmdl_c", &error));
	EXPECT_NE(error.find("broken.zmdl_c"), CUtlString::npos) << error;
	ToolSceneTraceResult_t result;
	EXPECT_FALSE(scene.TraceRay(Vector(200, 0, 0), Vector(-1, 0, 0), result));
	Vector mins, maxs;
	EXPECT_FALSE(scene.GetVisibleBounds(mins, maxs));
}

TEST_F(ToolSceneLogic, ResourcesAreSharedCountedAndReadAgainWhenChanged)
{
	ASSERT_TRUE(m_Game.WriteTexture("materials/red_png.ztex_c", TestTexture_Solid(200, 40, 30, 255, COMPILED_TEXTURE_BC1)));
	ASSERT_TRUE(m_Game.WriteMaterial("materials/strip.zmat_c", TestMaterial("materials/red_png.ztex_c")));

	auto pFirst = m_Resources.LoadModel("models/strip.zmdl");
	auto pSecond = m_Resources.LoadModel("models/strip.zmdl_c");
	ASSERT_TRUE(pFirst);
	EXPECT_EQ(pFirst, pSecond);
	const CToolSceneMaterial *pMaterial = pFirst->GetMaterial(0);
	ASSERT_TRUE(pMaterial);
	EXPECT_TRUE(pMaterial->IsLoaded());
	ASSERT_TRUE(pMaterial->GetColorTexture());
	EXPECT_EQ(pMaterial->GetColorTexture()->GetData().m_eFormat, COMPILED_TEXTURE_BC1);

	{
		CToolSceneMaterialRef handle = m_Resources.LoadMaterial("materials/strip.zmat");
		EXPECT_EQ(handle.Get(), pMaterial);
		// The cache, the model and this handle.
		EXPECT_EQ(pMaterial->GetRefCount(), 3);
		CToolSceneMaterialRef copy = handle;
		EXPECT_EQ(pMaterial->GetRefCount(), 4);
	}
	EXPECT_EQ(pMaterial->GetRefCount(), 2);

	// A missing material is a grey one, not a failure.
	CToolSceneMaterialRef missing = m_Resources.LoadMaterial("materials/vgui/econ/item_icon_fg.zmat");
	ASSERT_TRUE(missing);
	EXPECT_FALSE(missing->IsLoaded());

	// Recompiled: the next load reads the new file.
	std::this_thread::sleep_for(std::chrono::milliseconds(20));
	CCompiledModel changed = TestModel_SkinnedStrip("materials/strip.zmat_c");
	changed.m_Attachments.clear();
	ASSERT_TRUE(m_Game.WriteModel("models/strip.zmdl_c", changed));
	auto pThird = m_Resources.LoadModel("models/strip.zmdl");
	ASSERT_TRUE(pThird);
	EXPECT_NE(pThird, pFirst);
	EXPECT_TRUE(pThird->GetData().m_Attachments.empty());
	EXPECT_EQ(pFirst->GetData().m_Attachments.size(), 1u) << "the old model stays whole for its users";
}

TEST(ToolSceneGizmo, TranslateDragGivesTheDistanceAlongTheAxis)
{
	CToolSceneCamera camera;
	camera.SetPositionAndTarget(Vector(0, -300, 0), Vector(0, 0, 0));
	CRecordingListener listener;
	CToolSceneGizmo gizmo(&listener);
	gizmo.Show();
	EXPECT_EQ(listener.m_nShown, 1);
	gizmo.SetPlacement(Vector(0, 0, 0), QAngle());
	const int w = 640, h = 480;

	float cx, cy, ex, ey;
	ASSERT_TRUE(camera.ProjectToScreen(gizmo.GetCenter(), w, h, cx, cy));
	EXPECT_NEAR(cx, 320.0f, 1e-3f);
	const float length = camera.WorldUnitsPerPixel(Vector(), w) * gizmo.GetSizePixels();
	ASSERT_TRUE(camera.ProjectToScreen(Vector(length * 0.6f, 0, 0), w, h, ex, ey));
	EXPECT_GT(ex, cx) << "x runs to the right of this view";
	EXPECT_EQ(gizmo.HitTest(camera, w, h, ex, ey), GIZMO_HANDLE_X);
	EXPECT_EQ(gizmo.HitTest(camera, w, h, cx, cy), GIZMO_HANDLE_CENTER);
	EXPECT_EQ(gizmo.HitTest(camera, w, h, cx + 200.0f, cy + 150.0f), GIZMO_HANDLE_NONE);

	ASSERT_TRUE(gizmo.BeginDrag(camera, w, h, ex, ey));
	EXPECT_EQ(listener.m_nStarts, 1);
	gizmo.UpdateDrag(camera, w, h, ex + 50.0f, ey);
	const float expected = 50.0f * camera.WorldUnitsPerPixel(Vector(), w);
	EXPECT_NEAR(listener.m_LastDelta.m_vPosition.x, expected, 1e-3f);
	EXPECT_NEAR(listener.m_LastDelta.m_vPosition.y, 0.0f, 1e-4f);
	EXPECT_NEAR(listener.m_LastDelta.m_vPosition.z, 0.0f, 1e-4f);
	EXPECT_TRUE(listener.m_LastDelta.m_Angles == QAngle());
	// The gizmo is drawn moved with the drag until its transform is reset.
	EXPECT_NEAR(gizmo.GetCenter().x, expected, 1e-3f);
	gizmo.EndDrag();
	EXPECT_EQ(listener.m_nReleases, 1);
	EXPECT_NEAR(listener.m_ReleasedDelta.m_vPosition.x, expected, 1e-3f);
	gizmo.ResetTransform();
	ExpectNear(gizmo.GetCenter(), Vector());

	// The centre moves in the plane of the screen.
	ASSERT_TRUE(gizmo.BeginDrag(camera, w, h, cx, cy));
	gizmo.UpdateDrag(camera, w, h, cx - 10.0f, cy - 30.0f);
	const float unit = camera.WorldUnitsPerPixel(Vector(), w);
	ExpectNear(listener.m_LastDelta.m_vPosition, Vector(-10.0f * unit, 0.0f, 30.0f * unit));
	gizmo.EndDrag();

	gizmo.SetHoverHandle(GIZMO_HANDLE_Z);
	EXPECT_EQ(listener.m_eHover, GIZMO_HANDLE_Z);
	gizmo.Hide();
	EXPECT_EQ(listener.m_nHidden, 1);
	EXPECT_EQ(listener.m_eHover, GIZMO_HANDLE_NONE);
	EXPECT_FALSE(gizmo.BeginDrag(camera, w, h, ex, ey)) << "a hidden gizmo has no handles";
}

TEST(ToolSceneGizmo, RotateAndScaleDrags)
{
	// Looking straight down: screen up is +x, screen right is -y.
	CToolSceneCamera camera;
	camera.SetPositionAndTarget(Vector(0, 0, 400), Vector(0, 0, 0));
	CRecordingListener listener;
	CToolSceneGizmo gizmo(&listener);
	gizmo.Show();
	gizmo.SetMode(GIZMO_MODE_ROTATE);
	EXPECT_EQ(listener.m_eMode, GIZMO_MODE_ROTATE);
	const int w = 600, h = 600;
	const float length = camera.WorldUnitsPerPixel(Vector(), w) * gizmo.GetSizePixels();
	// Points of the ring about z at 45, -45 and -135 degrees from +x.
	auto ringPoint = [&](float degrees, float &x, float &y) {
		const float radians = SceneRadians(degrees);
		return camera.ProjectToScreen(Vector(std::cos(radians) * length, std::sin(radians) * length, 0.0f), w, h, x, y);
	};
	float x0, y0, x1, y1, x2, y2;
	ASSERT_TRUE(ringPoint(45.0f, x0, y0));
	ASSERT_TRUE(ringPoint(-45.0f, x1, y1));
	ASSERT_TRUE(ringPoint(-135.0f, x2, y2));
	EXPECT_LT(y0, 300.0f) << "+x is up on the screen";
	EXPECT_GT(x1, x0) << "-y is to the right";
	EXPECT_EQ(gizmo.HitTest(camera, w, h, x0, y0), GIZMO_HANDLE_Z);
	ASSERT_TRUE(gizmo.BeginDrag(camera, w, h, x0, y0));
	// A quarter turn clockwise seen from above, then on to a half turn.
	gizmo.UpdateDrag(camera, w, h, x1, y1);
	EXPECT_NEAR(listener.m_LastDelta.m_Angles.y, -90.0f, 0.5f);
	EXPECT_NEAR(listener.m_LastDelta.m_Angles.x, 0.0f, 0.5f);
	gizmo.UpdateDrag(camera, w, h, x2, y2);
	EXPECT_NEAR(std::fabs(listener.m_LastDelta.m_Angles.y), 180.0f, 0.5f);
	gizmo.EndDrag();

	const ToolSceneTransform_t start = { Vector(1, 2, 3), QAngle(0, 30, 0), Vector(2, 2, 2) };
	const ToolSceneTransform_t composed = ToolScene_ComposeTransform(start, { Vector(1, 0, 0), QAngle(0, -90, 0), Vector(1, 3, 1) });
	ExpectNear(composed.m_vPosition, Vector(2, 2, 3));
	EXPECT_NEAR(composed.m_Angles.y, -60.0f, 1e-3f);
	ExpectNear(composed.m_vScale, Vector(2, 6, 2));

	gizmo.SetMode(GIZMO_MODE_SCALE);
	float ex, ey, fx, fy;
	ASSERT_TRUE(camera.ProjectToScreen(Vector(length * 0.7f, 0, 0), w, h, ex, ey));
	ASSERT_TRUE(camera.ProjectToScreen(Vector(length * 1.7f, 0, 0), w, h, fx, fy));
	EXPECT_EQ(gizmo.HitTest(camera, w, h, ex, ey), GIZMO_HANDLE_X);
	ASSERT_TRUE(gizmo.BeginDrag(camera, w, h, ex, ey));
	gizmo.UpdateDrag(camera, w, h, fx, fy);
	// One handle length further: twice the size along x.
	ExpectNear(listener.m_LastDelta.m_vScale, Vector(2, 1, 1), 1e-3f);
	gizmo.EndDrag();
}

TEST(ToolSceneNodes, FrustumsOverlaysAndLines)
{
	CToolScene scene;
	CToolSceneFrustumNode *pFrustum = scene.CreateFrustumNode();
	pFrustum->SetTransform(Vector(0, 0, 0), QAngle(0, 0, 0));
	pFrustum->SetProjection(90.0f, 10.0f, 100.0f, 2.0f, -1.0f, -1.0f);
	Vector corners[8];
	pFrustum->GetWorldCorners(corners);
	ExpectNear(corners[0], Vector(10, 10, 5));
	ExpectNear(corners[2], Vector(10, -10, -5));
	ExpectNear(corners[6], Vector(100, -100, -50));
	pFrustum->SetProjection(90.0f, 10.0f, 100.0f, 1.0f, 40.0f, 20.0f);
	pFrustum->GetWorldCorners(corners);
	ExpectNear(corners[4], Vector(100, 20, 10)); // orthographic with both extra values set

	CToolSceneBitmapOverlay *pOverlay = scene.CreateBitmapOverlay(1.7777778f);
	float x, y, w, h;
	pOverlay->GetLetterbox(1000, 1000, x, y, w, h);
	EXPECT_NEAR(w, 1000.0f, 1e-2f);
	EXPECT_NEAR(h, 562.5f, 1e-1f);
	EXPECT_NEAR(y, 218.75f, 1e-1f);
	pOverlay->GetLetterbox(400, 100, x, y, w, h);
	EXPECT_NEAR(h, 100.0f, 1e-3f);
	EXPECT_NEAR(x, (400.0f - 177.77778f) * 0.5f, 1e-2f);
	const uint64 version = pOverlay->GetPixelsVersion();
	const std::vector<uint8> pixels(4 * 3 * 4, 255);
	EXPECT_FALSE(pOverlay->SetPixels(4, 4, pixels.data(), pixels.size())) << "the wrong number of bytes";
	EXPECT_EQ(pOverlay->GetPixelsVersion(), version);
	EXPECT_TRUE(pOverlay->SetPixels(4, 3, pixels.data(), pixels.size()));
	EXPECT_NE(pOverlay->GetPixelsVersion(), version);

	CToolSceneLineSetNode *pLines = scene.CreateLineSetNode();
	pLines->AddLine(Vector(), Vector(1, 0, 0), Color(255, 0, 0));
	EXPECT_EQ(pLines->GetLines().size(), 1u);
	EXPECT_EQ(scene.GetNodeCount(), 3);
	scene.RemoveNode(pLines);
	EXPECT_EQ(scene.GetNodeCount(), 2);
	EXPECT_FALSE(scene.ContainsNode(pLines));

	CRecordingListener listener;
	CToolSceneGizmo *pGizmo = scene.CreateGizmo(&listener);
	pGizmo->AttachToNode(pFrustum);
	pFrustum->SetPosition(Vector(5, 6, 7));
	ExpectNear(pGizmo->GetCenter(), Vector(5, 6, 7));
	scene.RemoveNode(pFrustum);
	EXPECT_EQ(pGizmo->GetAttachedNode(), nullptr);
}
