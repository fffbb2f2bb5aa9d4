// DMX meshes: the topology check on the same meshes as the FBX tests (same findings), the
// scene read by the schema, the conversion of a scene to DMX, and the mesh preparation.
#include <cmath>
#include <functional>

#include <gtest/gtest.h>

#include "datamodel/dmxio.h"
#include "meshio/dmxmesh.h"
#include "meshio/fbxdocument.h"
#include "meshio/fbxscene.h"
#include "meshio/meshsource.h"
#include "meshio/meshtopology.h"
#include "testsupport/test_meshes.h"
#include "testsupport/test_support.h"

namespace
{
CDmElement *NewDag(CDmxDocument &doc, const char *type, const std::string &name, const Vector &position = Vector())
{
	CDmElement *dag = doc.CreateElement(type, name);
	CDmElement *transform = doc.CreateElement("DmeTransform", name);
	transform->SetValue("position", position);
	transform->SetValue("orientation", Quaternion());
	dag->SetValue("transform", transform);
	dag->GetArrayForEdit<CDmElement *>("children", true);
	return dag;
}

// A DMX of the test mesh written element by element as an exporter would: every polygon
// corner is a corner of the vertex data, positions shared through "position$0Indices",
// UVs (when the mesh has them) likewise per corner.
CDmElement *AddTestMesh(CDmxDocument &doc, CDmElement *parent, const FbxTestMesh_t &source)
{
	CDmElement *dag = NewDag(doc, "DmeDag", source.name);
	parent->GetArrayForEdit<CDmElement *>("children")->push_back(dag);
	CDmElement *mesh = doc.CreateElement("DmeMesh", source.name);
	dag->SetValue("shape", mesh);
	CDmElement *data = doc.CreateElement("DmeVertexData", "bind");
	mesh->SetValue("bindState", data);
	mesh->SetValue("currentState", data);
	mesh->SetArray("baseStates", std::vector<CDmElement *>{ data });
	std::vector<CUtlString> format = { "position$0" };
	data->SetArray("position$0", source.positions);
	std::vector<int32> positionIndices, faces;
	std::vector<Vector2D> uvs;
	for (const std::vector<int> &polygon : source.polygons)
	{
		for (int p : polygon)
		{
			faces.push_back((int32)positionIndices.size());
			positionIndices.push_back(p);
		}
		faces.push_back(-1);
	}
	for (size_t i = 0; i + 1 < source.uvs.size(); i += 2)
		uvs.push_back(Vector2D(source.uvs[i], source.uvs[i + 1]));
	data->SetArray("position$0Indices", positionIndices);
	if (!uvs.empty())
	{
		format.push_back("texcoord$0");
		std::vector<int32> uvIndices(uvs.size());
		for (size_t i = 0; i < uvIndices.size(); ++i)
			uvIndices[i] = (int32)i;
		data->SetArray("texcoord$0", uvs);
		data->SetArray("texcoord$0Indices", uvIndices);
	}
	data->SetArray("vertexFormat", format);
	data->SetValue("jointCount", (int32)0);
	CDmElement *faceSet = doc.CreateElement("DmeFaceSet", source.material);
	CDmElement *material = doc.CreateElement("DmeMaterial", source.material);
	material->SetValue("mtlName", CUtlString(source.material));
	faceSet->SetValue("material", material);
	faceSet->SetArray("faces", faces);
	mesh->SetArray("faceSets", std::vector<CDmElement *>{ faceSet });
	return data;
}

CDmElement *NewModelDocument(CDmxDocument &doc)
{
	CDmElement *root = doc.CreateElement("DmElement", "root");
	doc.SetRoot(root);
	CDmElement *model = NewDag(doc, "DmeModel", "model");
	root->SetValue("model", model);
	root->SetValue("skeleton", model);
	model->SetValue("upAxis", "Y");
	return model;
}

std::string SaveDocument(const CTempDirectory &folder, const CDmxDocument &doc, const char *encoding, const char *name = "mesh.dmx")
{
	const std::string path = folder.Path(name);
	CUtlString error;
	EXPECT_TRUE(DmxSaveFile(path.c_str(), doc.GetRoot(), encoding, "model", DMX_CURRENT_FORMAT_VERSION, &error)) << error;
	return path;
}

MeshTopologyReport_t CheckPath(const std::string &path, SourceScene_t *pScene = nullptr)
{
	SourceScene_t scene;
	CUtlString error;
	EXPECT_TRUE(LoadSourceScene(path.c_str(), scene, error)) << error;
	MeshTopologyReport_t report;
	CheckSourceTopology(scene, report);
	if (pScene)
		*pScene = std::move(scene);
	return report;
}

void ExpectSameFindings(const MeshTopologyReport_t &a, const MeshTopologyReport_t &b)
{
	EXPECT_EQ(a.bHasPositions, b.bHasPositions);
	EXPECT_EQ(a.nIsolatedEdges, b.nIsolatedEdges);
	EXPECT_EQ(a.nNonManifoldEdges, b.nNonManifoldEdges);
	EXPECT_EQ(a.nBorderEdges, b.nBorderEdges);
	EXPECT_EQ(a.bUnwelded, b.bUnwelded);
	EXPECT_EQ(a.bFlipped, b.bFlipped);
	EXPECT_EQ(a.isolatedEdges, b.isolatedEdges);
	EXPECT_EQ(a.nonManifoldEdges, b.nonManifoldEdges);
	EXPECT_EQ(a.borderEdges, b.borderEdges);
	EXPECT_EQ(a.unweldedVertices, b.unweldedVertices);
	EXPECT_EQ(a.flippedFaces, b.flippedFaces);
	EXPECT_EQ(a.flippedEdge, b.flippedEdge);
}
} // namespace

TEST(DmxMesh, TopologyFindingsOfEachTestMesh)
{
	CTempDirectory folder;
	struct Case_t
	{
		FbxTestMesh_t mesh;
		int border, nonManifold;
		bool bUnwelded, bFlipped;
	};
	const Case_t cases[] = {
		{ testmeshes::Cube(), 0, 0, false, false },
		{ testmeshes::OpenQuad(), 4, 0, false, false },
		{ testmeshes::TwoUnweldedQuads(), 8, 0, true, false },
		{ testmeshes::ThreeFacesOnOneEdge(), 6, 1, false, false },
		{ testmeshes::FlippedCube(), 0, 0, false, true },
		{ testmeshes::CubeWithUVSeam(), 0, 0, false, false },
	};
	for (const Case_t &test : cases)
	{
		SCOPED_TRACE(test.mesh.name);
		for (const char *encoding : { "binary", "keyvalues2" })
		{
			CDmxDocument doc;
			AddTestMesh(doc, NewModelDocument(doc), test.mesh);
			const std::string dmx = SaveDocument(folder, doc, encoding);
			SourceScene_t scene;
			const MeshTopologyReport_t report = CheckPath(dmx, &scene);
			EXPECT_EQ(scene.format, CUtlString("dmx-") + encoding);
			EXPECT_EQ(report.nBorderEdges, test.border);
			EXPECT_EQ(report.nNonManifoldEdges, test.nonManifold);
			EXPECT_EQ(report.bUnwelded, test.bUnwelded);
			EXPECT_EQ(report.bFlipped, test.bFlipped);
			EXPECT_EQ(report.nIsolatedEdges, 0);

			// The FBX of the same mesh gives the very same findings, elements included.
			FbxTestScene_t fbx;
			fbx.meshes.push_back(test.mesh);
			const std::string text = WriteAsciiFbx(fbx);
			const std::string fbxPath = folder.Write("mesh.fbx", text);
			ExpectSameFindings(report, CheckPath(fbxPath));
		}
	}
	// The seam is really there in the DMX: one position, two UVs.
	CDmxDocument doc;
	AddTestMesh(doc, NewModelDocument(doc), testmeshes::CubeWithUVSeam());
	SourceScene_t scene;
	CheckPath(SaveDocument(folder, doc, "binary"), &scene);
	ASSERT_TRUE(scene.meshes[0].HasUVs());
	EXPECT_EQ(scene.meshes[0].m_CornerPosition[0], scene.meshes[0].m_CornerPosition[8]);
	EXPECT_NE(scene.meshes[0].m_CornerUVs[0], scene.meshes[0].m_CornerUVs[8]);
}

TEST(DmxMesh, ReadsJointsWeightsAndMeshPlacementByTheSchema)
{
	CDmxDocument doc;
	CDmElement *model = NewModelDocument(doc);
	CDmElement *root = NewDag(doc, "DmeJoint", "root");
	CDmElement *arm = NewDag(doc, "DmeJoint", "arm", Vector(0, 2, 0));
	model->GetArrayForEdit<CDmElement *>("children")->push_back(root);
	root->GetArrayForEdit<CDmElement *>("children")->push_back(arm);
	// Skinning order differs from the hierarchy's: arm first.
	model->SetArray("jointList", std::vector<CDmElement *>{ arm, root });
	CDmElement *bind = doc.CreateElement("DmeTransformsList", "bind");
	CDmElement *armBind = doc.CreateElement("DmeTransform", "arm");
	armBind->SetValue("position", Vector(0, 3, 0));
	armBind->SetValue("orientation", Quaternion());
	CDmElement *rootBind = doc.CreateElement("DmeTransform", "root");
	rootBind->SetValue("orientation", Quaternion());
	bind->SetArray("transforms", std::vector<CDmElement *>{ armBind, rootBind });
	model->SetArray("baseStates", std::vector<CDmElement *>{ bind });
	CDmElement *data = AddTestMesh(doc, arm, testmeshes::OpenQuad());
	data->SetValue("jointCount", (int32)2);
	data->SetArray("blendweights$0", std::vector<float>{ 1, 0, 0.5f, 0.5f, 0, 1, 0.25f, 0.75f });
	data->SetArray("blendindices$0", std::vector<int32>{ 0, 1, 0, 1, 0, 1, 1, 0 });

	CTempDirectory folder;
	SourceScene_t scene;
	CUtlString error;
	ASSERT_TRUE(LoadSourceScene(SaveDocument(folder, doc, "keyvalues2").c_str(), scene, error)) << error;
	ASSERT_EQ(scene.joints.size(), 2u);
	EXPECT_EQ(scene.joints[0].name, "root"); // parents first
	EXPECT_EQ(scene.joints[1].name, "arm");
	EXPECT_EQ(scene.joints[1].nParent, 0);
	EXPECT_EQ(scene.joints[1].bindLocal.position, Vector(0, 3, 0)); // the base state "bind", not the current transform
	EXPECT_DOUBLE_EQ(scene.joints[1].inverseBind.m[1][3], -3.0);
	ASSERT_EQ(scene.meshes.size(), 1u);
	const CSourceMesh &mesh = scene.meshes[0];
	EXPECT_EQ(mesh.m_nParentJoint, 1);
	EXPECT_DOUBLE_EQ(mesh.m_MeshToModel.m[1][3], 3.0); // under the arm at its bind place
	EXPECT_EQ(mesh.m_Materials, (std::vector<CUtlString>{ "material" }));
	ASSERT_TRUE(mesh.IsSkinned());
	// jointList index 0 (arm) is scene joint 1.
	ASSERT_EQ(mesh.PositionWeights(0).size(), 1u);
	EXPECT_EQ(mesh.PositionWeights(0)[0], (SkinWeight_t{ 1, 1.0f }));
	ASSERT_EQ(mesh.PositionWeights(3).size(), 2u);
	EXPECT_EQ(mesh.PositionWeights(3)[0], (SkinWeight_t{ 0, 0.25f }));
	EXPECT_EQ(mesh.PositionWeights(3)[1], (SkinWeight_t{ 1, 0.75f }));
}

TEST(DmxMesh, AnimationsAreSampledAtEveryFrame)
{
	CDmxDocument doc;
	CDmElement *model = NewModelDocument(doc);
	CDmElement *joint = NewDag(doc, "DmeJoint", "bone");
	model->GetArrayForEdit<CDmElement *>("children")->push_back(joint);
	model->SetArray("jointList", std::vector<CDmElement *>{ joint });
	CDmElement *list = doc.CreateElement("DmeAnimationList", "animations");
	doc.GetRoot()->SetValue("animationList", list);
	CDmElement *clip = doc.CreateElement("DmeChannelsClip", "run");
	list->SetArray("animations", std::vector<CDmElement *>{ clip });
	CDmElement *timeFrame = doc.CreateElement("DmeTimeFrame", "timeFrame");
	timeFrame->SetValue("duration", DmeTime_t::FromSeconds(0.5));
	timeFrame->SetValue("scale", 1.0f);
	clip->SetValue("timeFrame", timeFrame);
	clip->SetValue("frameRate", (int32)10);
	CDmElement *channel = doc.CreateElement("DmeChannel", "bone_p");
	channel->SetValue("toElement", joint->GetElement("transform"));
	channel->SetValue("toAttribute", "position");
	CDmElement *log = doc.CreateElement("DmeVector3Log", "bone_p");
	CDmElement *layer = doc.CreateElement("DmeVector3LogLayer", "bone_p");
	layer->SetArray("times", std::vector<DmeTime_t>{ DmeTime_t::FromSeconds(0), DmeTime_t::FromSeconds(0.4) });
	layer->SetArray("values", std::vector<Vector>{ Vector(0, 0, 0), Vector(4, 0, 0) });
	log->SetArray("layers", std::vector<CDmElement *>{ layer });
	channel->SetValue("log", log);
	CDmElement *turn = doc.CreateElement("DmeChannel", "bone_o");
	turn->SetValue("toElement", joint->GetElement("transform"));
	turn->SetValue("toAttribute", "orientation");
	CDmElement *turnLog = doc.CreateElement("DmeQuaternionLog", "bone_o");
	CDmElement *turnLayer = doc.CreateElement("DmeQuaternionLogLayer", "bone_o");
	const float half = std::sqrt(0.5f);
	turnLayer->SetArray("times", std::vector<DmeTime_t>{ DmeTime_t::FromSeconds(0), DmeTime_t::FromSeconds(0.5) });
	turnLayer->SetArray("values", std::vector<Quaternion>{ Quaternion(), Quaternion(0, 0, half, half) });
	turnLog->SetArray("layers", std::vector<CDmElement *>{ turnLayer });
	turn->SetValue("log", turnLog);
	clip->SetArray("channels", std::vector<CDmElement *>{ channel, turn });

	SourceScene_t scene;
	CUtlString error;
	ASSERT_TRUE(LoadDmxScene(doc, scene, error)) << error;
	ASSERT_EQ(scene.animations.size(), 1u);
	const SourceAnimation_t &run = scene.animations[0];
	EXPECT_EQ(run.name, "run");
	EXPECT_EQ(run.flFps, 10.0f);
	EXPECT_EQ(run.nFrameCount, 6);
	EXPECT_FLOAT_EQ(run.Pose(2, 0, 1).position.x, 2.0f);
	EXPECT_FLOAT_EQ(run.Pose(5, 0, 1).position.x, 4.0f); // past the last key it holds
	EXPECT_NEAR(run.Pose(5, 0, 1).orientation.z, half, 1e-6);
	EXPECT_NEAR(run.Pose(0, 0, 1).orientation.w, 1.0f, 1e-6);
}

TEST(DmxMesh, FbxSceneConvertsToDmxAndBack)
{
	FbxTestScene_t source;
	source.joints = { "root", "tip" };
	FbxTestMesh_t mesh = testmeshes::CubeWithUVSeam();
	for (int p = 0; p < 8; ++p)
		mesh.weights.push_back({ { 0, 0.75 }, { 1, 0.25 } });
	source.meshes.push_back(mesh);
	CFbxDocument fbx;
	SourceScene_t scene;
	CUtlString error;
	ASSERT_TRUE(fbx.Parse("skin.fbx", WriteAsciiFbx(source), error)) << error;
	ASSERT_TRUE(LoadFbxScene(fbx, scene, error)) << error;
	SourceAnimation_t wave;
	wave.name = "wave";
	wave.flFps = 24.0f;
	wave.nFrameCount = 3;
	for (int f = 0; f < 3; ++f)
	{
		for (const SourceJoint_t &joint : scene.joints)
		{
			SourceTransform_t pose = joint.bindLocal;
			pose.position.x = (float)f;
			wave.frames.push_back(pose);
		}
	}
	scene.animations.push_back(wave);

	CDmxDocument doc;
	ASSERT_TRUE(BuildDmxScene(scene, "skin", doc, error)) << error;
	CTempDirectory folder;
	// (keyvalues2_noids writes every reference as a copy of its own: a joint in "jointList" would
	// no longer be the one of the hierarchy, so models are written with ids.)
	for (const char *encoding : { "binary", "keyvalues2" })
	{
		SCOPED_TRACE(encoding);
		SourceScene_t back;
		ASSERT_TRUE(LoadSourceScene(SaveDocument(folder, doc, encoding).c_str(), back, error)) << error;
		ASSERT_EQ(back.joints.size(), 2u);
		EXPECT_EQ(back.joints[1].name, "tip");
		EXPECT_EQ(back.joints[1].nParent, 0);
		EXPECT_EQ(back.joints[1].bindLocal.position, scene.joints[1].bindLocal.position);
		ASSERT_EQ(back.meshes.size(), 1u);
		const CSourceMesh &a = scene.meshes[0], &b = back.meshes[0];
		EXPECT_EQ(b.m_Positions, a.m_Positions);
		EXPECT_EQ(b.m_CornerPosition, a.m_CornerPosition);
		EXPECT_EQ(b.m_PolygonStart, a.m_PolygonStart);
		EXPECT_EQ(b.m_CornerNormals, a.m_CornerNormals);
		EXPECT_EQ(b.m_CornerUVs, a.m_CornerUVs);
		EXPECT_EQ(b.m_Materials, a.m_Materials);
		EXPECT_EQ(b.m_PolygonMaterial, a.m_PolygonMaterial);
		EXPECT_EQ(b.m_Weights, a.m_Weights);
		EXPECT_EQ(b.m_WeightStart, a.m_WeightStart);
		ASSERT_EQ(back.animations.size(), 1u);
		EXPECT_EQ(back.animations[0].name, "wave");
		EXPECT_EQ(back.animations[0].nFrameCount, 3);
		EXPECT_EQ(back.animations[0].flFps, 24.0f);
		EXPECT_FLOAT_EQ(back.animations[0].Pose(2, 1, 2).position.x, 2.0f);
		MeshTopologyReport_t before, after;
		CheckSourceTopology(scene, before);
		CheckSourceTopology(back, after);
		ExpectSameFindings(before, after);
	}
}

TEST(DmxMesh, PreparationLiftsNamesMaterialsWeightsAndCapturesTheBind)
{
	CDmxDocument doc;
	CDmElement *model = NewModelDocument(doc);
	CDmElement *a = NewDag(doc, "DmeJoint", "a", Vector(1, 0, 0));
	CDmElement *b = NewDag(doc, "DmeJoint", "b", Vector(0, 5, 0));
	model->GetArrayForEdit<CDmElement *>("children")->push_back(a);
	a->GetArrayForEdit<CDmElement *>("children")->push_back(b);
	model->SetArray("jointList", std::vector<CDmElement *>{ a, b });
	CDmElement *data = AddTestMesh(doc, model, testmeshes::OpenQuad());
	// A previous-generation mesh.
	data->RenameAttribute("position$0", "positions");
	data->RenameAttribute("position$0Indices", "positionsIndices");
	data->SetArray("vertexFormat", std::vector<CUtlString>{ "positions", "jointWeights", "jointIndices", "texcoord$0", "normals" });
	data->SetValue("jointCount", (int32)3);
	data->SetArray("jointWeights", std::vector<float>{
									   0.2f, 0.3f, 0.5f, // joint 1 twice: merged to 0.8 against 0.2
									   0.0f, 0.0f, 2.0f, // one weight, not normalised
									   0.000001f, 0.6f, 0.2f, // a tiny weight goes
									   0.5f, 0.5f, 0.5f,	  // one names no joint
								   });
	data->SetArray("jointIndices", std::vector<int32>{ 0, 1, 1, 0, 1, 1, 0, 1, 0, 0, 1, 7 });
	CDmElement *material = doc.CreateElement("DmeMaterial", "skin");
	material->SetValue("mtlName", "models\\hero\\skin");
	CDmElement *ready = doc.CreateElement("DmeMaterial", "ready");
	ready->SetValue("mtlName", "materials/models/items/x/x.zmat");
	CDmElement *faceSet = doc.CreateElement("DmeFaceSet", "set");
	faceSet->SetValue("material", material);
	CDmElement *other = doc.CreateElement("DmeFaceSet", "other");
	other->SetValue("material", ready);
	doc.GetRoot()->SetArray("extra", std::vector<CDmElement *>{ faceSet, other });
	// The joints move after an old bind was taken.
	CDmElement *oldBind = doc.CreateElement("DmeTransformsList", "bind");
	model->SetArray("baseStates", std::vector<CDmElement *>{ oldBind });

	DmxMeshPreparation_t stats;
	CUtlString error;
	ASSERT_TRUE(PrepareDmxMesh(doc, &stats, error)) << error;
	EXPECT_EQ(stats.nLiftedAttributes, 4);
	EXPECT_TRUE(data->HasAttribute("position$0"));
	EXPECT_TRUE(data->HasAttribute("position$0Indices"));
	EXPECT_TRUE(data->HasAttribute("blendweights$0"));
	EXPECT_EQ(data->GetArray<CUtlString>("vertexFormat"),
		(std::vector<CUtlString>{ "position$0", "blendweights$0", "blendindices$0", "texcoord$0", "normals" })); // stops at the first "$"
	EXPECT_STREQ(material->GetString("mtlName"), "materials/models/hero/skin.zmat");
	EXPECT_STREQ(ready->GetString("mtlName"), "materials/models/items/x/x.zmat");
	EXPECT_EQ(stats.nMaterialsRenamed, 2); // "skin" and the mesh's own "material"

	const std::vector<float> &weights = data->GetArray<float>("blendweights$0");
	const std::vector<int32> &joints = data->GetArray<int32>("blendindices$0");
	ASSERT_EQ(weights.size(), 12u);
	EXPECT_EQ(joints[0], 1);
	EXPECT_FLOAT_EQ(weights[0], 0.8f);
	EXPECT_EQ(joints[1], 0);
	EXPECT_FLOAT_EQ(weights[1], 0.2f);
	EXPECT_EQ(weights[2], 0.0f);
	EXPECT_EQ(joints[3], 1);
	EXPECT_FLOAT_EQ(weights[3], 1.0f);
	EXPECT_EQ(weights[4], 0.0f);
	EXPECT_EQ(joints[6], 1);
	EXPECT_FLOAT_EQ(weights[6], 0.75f);
	EXPECT_EQ(joints[7], 0);
	EXPECT_FLOAT_EQ(weights[7], 0.25f);
	EXPECT_EQ(weights[8], 0.0f);
	EXPECT_FLOAT_EQ(weights[9], 0.5f); // joint 0 and 1 merged from the two valid pairs
	EXPECT_FLOAT_EQ(weights[10], 0.5f);
	EXPECT_EQ(stats.nWeightedPositions, 4);
	for (size_t p = 0; p < 4; ++p)
		EXPECT_NEAR(weights[p * 3] + weights[p * 3 + 1] + weights[p * 3 + 2], 1.0f, 1e-6);

	ASSERT_EQ(model->GetArray<CDmElement *>("baseStates").size(), 1u);
	const CDmElement *bind = model->GetArray<CDmElement *>("baseStates")[0];
	EXPECT_EQ(bind->GetName(), "bind");
	const std::vector<CDmElement *> &transforms = bind->GetArray<CDmElement *>("transforms");
	ASSERT_EQ(transforms.size(), 2u);
	EXPECT_EQ(transforms[1]->GetValue<Vector>("position"), Vector(0, 5, 0));
	EXPECT_NE(transforms[1], b->GetElement("transform")); // a copy, not the joint's own
	EXPECT_EQ(stats.nBindTransforms, 2);

	// The prepared mesh reads as the current schema.
	SourceScene_t scene;
	ASSERT_TRUE(LoadDmxScene(doc, scene, error)) << error;
	EXPECT_EQ(scene.meshes[0].PositionWeights(0)[0], (SkinWeight_t{ 1, 0.8f }));
}

TEST(DmxMesh, DamagedMeshesGiveAMessage)
{
	CTempDirectory folder;
	auto refuse = [&](const std::function<void(CDmElement *)> &damage, const char *expected) {
		CDmxDocument doc;
		CDmElement *data = AddTestMesh(doc, NewModelDocument(doc), testmeshes::Cube());
		damage(data);
		const std::string path = SaveDocument(folder, doc, "binary", "damaged.dmx");
		SourceScene_t scene;
		CUtlString error;
		EXPECT_FALSE(LoadSourceScene(path.c_str(), scene, error));
		EXPECT_NE(error.find("damaged.dmx"), CUtlString::npos) << error;
		EXPECT_NE(error.find(expected), CUtlString::npos) << error;
	};
	refuse([](CDmElement *data) { (*data->GetArrayForEdit<int32>("position$0Indices"))[3] = 99; }, "names position 99 of 8");
	refuse([](CDmElement *data) { data->GetArrayForEdit<int32>("position$0Indices")->resize(10); }, "names corner 10 of 10");
	refuse(
		[](CDmElement *data) {
			data->SetValue("jointCount", (int32)1);
			data->SetArray("blendweights$0", std::vector<float>(8, 1.0f));
			data->SetArray("blendindices$0", std::vector<int32>(8, 3));
		},
		"joint index 3 is not one of the 0");
	refuse(
		[](CDmElement *data) {
			data->SetArray("texcoord$0", std::vector<Vector2D>{ { 0, 0 } });
			data->SetArray("texcoord$0Indices", std::vector<int32>{ 0 });
		},
		"1 texture coordinate indices for 24 corners");
	refuse(
		[](CDmElement *data) {
			data->SetArray("normal$0", std::vector<Vector>{ { 0, 0, 1 } });
			data->SetArray("normal$0Indices", std::vector<int32>(24, 1));
		},
		"\"normal$0Indices\" entry 0 is 1, of 1 normals");

	// Not a DMX at all, and a DMX cut short.
	const std::string junk = folder.Write("junk.dmx", "hello");
	SourceScene_t scene;
	CUtlString error;
	EXPECT_FALSE(LoadSourceScene(junk.c_str(), scene, error));
	EXPECT_NE(error.find("neither an FBX nor a DMX"), CUtlString::npos) << error;
	CDmxDocument doc;
	AddTestMesh(doc, NewModelDocument(doc), testmeshes::Cube());
	CUtlBuffer bytes;
	ASSERT_TRUE(DmxSaveBuffer(bytes, doc.GetRoot(), "binary", "model", DMX_CURRENT_FORMAT_VERSION, &error));
	const std::string cut = folder.Write("cut.dmx", std::string(bytes.View().substr(0, bytes.Size() / 2)));
	EXPECT_FALSE(LoadSourceScene(cut.c_str(), scene, error));
	EXPECT_NE(error.find("cut.dmx"), CUtlString::npos) << error;
}
