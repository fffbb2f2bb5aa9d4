// Our FBX reader against assimp on files made by other tools, against files built here byte by
// byte, and on damaged files.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <random>

#include <assimp/cimport.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>
#include <gtest/gtest.h>

#include "meshio/assimp/assimpscene.h"
#include "meshio/fbxdocument.h"
#include "meshio/fbxscene.h"
#include "meshio/tests/fbx_binary_builder.h"
#include "testsupport/fbx_test_writer.h"
#include "testsupport/test_meshes.h"
#include "testsupport/test_support.h"

namespace
{
const char *const ASSIMP_FBX_MODELS = "/usr/share/assimp/models/FBX";

std::vector<std::string> AssimpModelFiles()
{
	std::vector<std::string> files;
	std::error_code ignored;
	for (const auto &entry : std::filesystem::recursive_directory_iterator(ASSIMP_FBX_MODELS, ignored))
	{
		std::string extension = entry.path().extension().string();
		std::transform(extension.begin(), extension.end(), extension.begin(), ::tolower);
		if (entry.is_regular_file() && extension == ".fbx")
			files.push_back(entry.path().string());
	}
	std::sort(files.begin(), files.end());
	return files;
}

std::string ReadBytes(const std::string &path)
{
	CUtlBuffer buffer;
	EXPECT_TRUE(Plat_ReadFile(path.c_str(), buffer)) << path;
	return std::string(buffer.View());
}

struct AssimpCounts_t
{
	bool bLoaded = false;
	long long faces = 0;	 // polygons as the file has them
	long long triangles = 0; // after triangulation
	std::vector<Vector> positions;
};

AssimpCounts_t AssimpView(const std::string &path)
{
	AssimpCounts_t counts;
	const aiScene *polygons = aiImportFile(path.c_str(), 0);
	if (!polygons)
		return counts;
	for (unsigned m = 0; m < polygons->mNumMeshes; ++m)
	{
		counts.faces += polygons->mMeshes[m]->mNumFaces;
		for (unsigned v = 0; v < polygons->mMeshes[m]->mNumVertices; ++v)
		{
			const aiVector3D &p = polygons->mMeshes[m]->mVertices[v];
			counts.positions.push_back(Vector(p.x, p.y, p.z));
		}
	}
	aiReleaseImport(polygons);
	const aiScene *triangles = aiImportFile(path.c_str(), MeshioAssimpFlags());
	if (!triangles)
		return counts;
	for (unsigned m = 0; m < triangles->mNumMeshes; ++m)
		counts.triangles += triangles->mMeshes[m]->mNumFaces;
	aiReleaseImport(triangles);
	counts.bLoaded = true;
	return counts;
}

bool Near(const Vector &a, const Vector &b)
{
	const float scale = std::max({ 1.0f, std::fabs(a.x), std::fabs(a.y), std::fabs(a.z) });
	return std::fabs(a.x - b.x) <= 1e-5f * scale && std::fabs(a.y - b.y) <= 1e-5f * scale && std::fabs(a.z - b.z) <= 1e-5f * scale;
}

// Every point of `a` has a point of `b` at its place.
bool Covers(const std::vector<Vector> &a, const std::vector<Vector> &b, Vector &missing)
{
	for (const Vector &p : a)
	{
		if (std::none_of(b.begin(), b.end(), [&](const Vector &q) { return Near(p, q); }))
		{
			missing = p;
			return false;
		}
	}
	return true;
}

bool LoadText(const std::string &text, SourceScene_t &scene, CUtlString &error, const char *name = "test.fbx")
{
	CFbxDocument document;
	if (!document.Parse(name, text, error))
		return false;
	return LoadFbxScene(document, scene, error);
}
} // namespace

TEST(FbxReader, AgreesWithAssimpOnTheAssimpTestModels)
{
	const std::vector<std::string> files = AssimpModelFiles();
	ASSERT_GE(files.size(), 10u) << "the assimp test models are missing from " << ASSIMP_FBX_MODELS;
	int binary32 = 0, binary64 = 0, ascii = 0;
	for (const std::string &path : files)
	{
		SCOPED_TRACE(path);
		SourceScene_t scene;
		CUtlString error;
		const bool bOurs = LoadFbxSceneFile(path.c_str(), scene, error);
		const AssimpCounts_t theirs = AssimpView(path);
		// A file one reader refuses, the other refuses too (the damaged transparentTest.fbx).
		ASSERT_EQ(bOurs, theirs.bLoaded) << error;
		if (!bOurs)
		{
			EXPECT_NE(error.find(path), CUtlString::npos) << error;
			continue;
		}
		EXPECT_EQ(scene.PolygonCount(), theirs.faces);
		EXPECT_EQ(scene.TriangleCount(), theirs.triangles);
		// assimp splits control points per corner: the places must be the same as sets.
		std::vector<Vector> used;
		for (const CSourceMesh &mesh : scene.meshes)
		{
			for (int32 position : mesh.m_CornerPosition)
				used.push_back(mesh.m_Positions[position]);
		}
		Vector missing;
		EXPECT_TRUE(Covers(theirs.positions, used, missing)) << "assimp has a vertex at " << missing.x << " " << missing.y << " " << missing.z;
		EXPECT_TRUE(Covers(used, theirs.positions, missing)) << "we have a control point at " << missing.x << " " << missing.y << " " << missing.z;
		EXPECT_LE((size_t)scene.PositionCount(), theirs.positions.size());
		if (scene.format == "fbx-ascii")
			++ascii;
		else if (scene.nFormatVersion >= 7500)
			++binary64;
		else
			++binary32;
	}
	EXPECT_GT(ascii, 0);
	EXPECT_GT(binary32, 0);
	EXPECT_GT(binary64, 0);
}

TEST(FbxReader, SkeletonAndTransformsAgreeWithAssimp)
{
	for (const char *name : { "huesitos.fbx", "animation_with_skeleton.fbx", "cubes_with_mirroring_and_pivot.fbx" })
	{
		const std::string path = std::string(ASSIMP_FBX_MODELS) + "/" + name;
		SCOPED_TRACE(path);
		SourceScene_t ours, theirs;
		CUtlString error;
		ASSERT_TRUE(LoadFbxSceneFile(path.c_str(), ours, error)) << error;
		ASSERT_TRUE(LoadAssimpScene(path.c_str(), theirs, error)) << error;
		for (const SourceJoint_t &joint : ours.joints)
		{
			const int other = theirs.FindJoint(joint.name.c_str());
			if (other < 0)
				continue; // a leaf that no bone names and nothing animates
			const SourceJoint_t &their = theirs.joints[other];
			EXPECT_NEAR(joint.bindLocal.position.x, their.bindLocal.position.x, 1e-4) << joint.name;
			EXPECT_NEAR(joint.bindLocal.position.y, their.bindLocal.position.y, 1e-4) << joint.name;
			EXPECT_NEAR(joint.bindLocal.position.z, their.bindLocal.position.z, 1e-4) << joint.name;
			const Quaternion &a = joint.bindLocal.orientation, &b = their.bindLocal.orientation;
			EXPECT_NEAR(std::fabs(a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w), 1.0, 1e-4) << joint.name;
			if (joint.bSkinned && their.bSkinned)
			{
				for (int r = 0; r < 4; ++r)
				{
					for (int c = 0; c < 4; ++c)
						EXPECT_NEAR(joint.inverseBind.m[r][c], their.inverseBind.m[r][c], 1e-3) << joint.name << " " << r << c;
				}
			}
		}
		// The same meshes, placed the same way.
		ASSERT_LE(ours.meshes.size(), theirs.meshes.size());
		for (size_t m = 0; m < ours.meshes.size(); ++m)
		{
			for (int r = 0; r < 4; ++r)
			{
				for (int c = 0; c < 4; ++c)
					EXPECT_NEAR(ours.meshes[m].m_MeshToModel.m[r][c], theirs.meshes[m].m_MeshToModel.m[r][c], 1e-4) << ours.meshes[m].m_Name;
			}
		}
	}
}

TEST(FbxReader, SkinnedFileHasItsWeightsPerControlPoint)
{
	const std::string path = std::string(ASSIMP_FBX_MODELS) + "/huesitos.fbx";
	SourceScene_t scene;
	CUtlString error;
	ASSERT_TRUE(LoadFbxSceneFile(path.c_str(), scene, error)) << error;
	ASSERT_EQ(scene.meshes.size(), 1u);
	const CSourceMesh &mesh = scene.meshes[0];
	ASSERT_TRUE(mesh.IsSkinned());
	// assimp's weights per split vertex, gathered back by place, must match ours per control point.
	const aiScene *ai = aiImportFile(path.c_str(), MeshioAssimpFlags());
	ASSERT_NE(ai, nullptr);
	const aiMesh *am = ai->mMeshes[0];
	int checked = 0;
	for (unsigned b = 0; b < am->mNumBones; ++b)
	{
		const aiBone *bone = am->mBones[b];
		const int joint = scene.FindJoint(bone->mName.C_Str());
		ASSERT_GE(joint, 0) << bone->mName.C_Str();
		EXPECT_TRUE(scene.joints[joint].bSkinned);
		for (unsigned w = 0; w < bone->mNumWeights; ++w)
		{
			const aiVector3D &v = am->mVertices[bone->mWeights[w].mVertexId];
			bool bFound = false;
			for (int p = 0; p < mesh.PositionCount() && !bFound; ++p)
			{
				if (!Near(mesh.m_Positions[p], Vector(v.x, v.y, v.z)))
					continue;
				for (const SkinWeight_t &weight : mesh.PositionWeights(p))
					bFound |= weight.nJoint == joint && std::fabs(weight.flWeight - bone->mWeights[w].mWeight) < 1e-5f;
			}
			EXPECT_TRUE(bFound) << bone->mName.C_Str() << " weight " << bone->mWeights[w].mWeight;
			++checked;
		}
	}
	aiReleaseImport(ai);
	EXPECT_GT(checked, 100);
}

TEST(FbxReader, LayerMappingsResolvePerCorner)
{
	// Two triangles over four control points: normals by control point (direct), UVs by
	// polygon vertex (index to direct), materials by polygon.
	const std::string text = R"(; FBX 7.4.0 project file
FBXHeaderExtension:  {
	FBXVersion: 7400
}
Objects:  {
	Geometry: 10, "Geometry::g", "Mesh" {
		Vertices: *12 {
			a: 0,0,0, 1,0,0, 1,1,0,
			0,1,0
		}
		PolygonVertexIndex: *6 {
			a: 0,1,-3,0,2,-4
		}
		LayerElementNormal: 0 {
			MappingInformationType: "ByVertice"
			ReferenceInformationType: "Direct"
			Normals: *12 {
				a: 0,0,1,0,0,2,0,0,3,0,0,4
			}
		}
		LayerElementUV: 0 {
			MappingInformationType: "ByPolygonVertex"
			ReferenceInformationType: "IndexToDirect"
			UV: *4 {
				a: 0.25,0.5,0.75,1
			}
			UVIndex: *6 {
				a: 0,1,0,1,-1,0
			}
		}
		LayerElementMaterial: 0 {
			MappingInformationType: "ByPolygon"
			ReferenceInformationType: "IndexToDirect"
			Materials: *2 {
				a: 1,0
			}
		}
	}
	Model: 20, "Model::thing", "Mesh" {
	}
	Material: 30, "Material::first", "" {
	}
	Material: 31, "Material::second", "" {
	}
}
Connections:  {
	C: "OO",20,0
	C: "OO",10,20
	C: "OO",30,20
	C: "OO",31,20
}
)";
	SourceScene_t scene;
	CUtlString error;
	ASSERT_TRUE(LoadText(text, scene, error)) << error;
	EXPECT_EQ(scene.format, "fbx-ascii");
	EXPECT_EQ(scene.nFormatVersion, 7400);
	ASSERT_EQ(scene.meshes.size(), 1u);
	const CSourceMesh &mesh = scene.meshes[0];
	EXPECT_EQ(mesh.m_Name, "thing");
	EXPECT_EQ(mesh.PositionCount(), 4);
	EXPECT_EQ(mesh.PolygonCount(), 2);
	EXPECT_EQ(mesh.m_CornerPosition, (std::vector<int32>{ 0, 1, 2, 0, 2, 3 }));
	ASSERT_TRUE(mesh.HasNormals());
	EXPECT_EQ(mesh.m_CornerNormals[4].z, 3.0f); // corner 4 is control point 2
	EXPECT_EQ(mesh.m_CornerNormals[5].z, 4.0f);
	ASSERT_TRUE(mesh.HasUVs());
	EXPECT_EQ(mesh.m_CornerUVs[1], Vector2D(0.75f, 1.0f));
	EXPECT_EQ(mesh.m_CornerUVs[4], Vector2D(0.0f, 0.0f)); // index -1: no UV
	EXPECT_EQ(mesh.m_Materials, (std::vector<CUtlString>{ "first", "second" }));
	EXPECT_EQ(mesh.m_PolygonMaterial, (std::vector<int32>{ 1, 0 }));
}

TEST(FbxReader, ReadsFbx6AsciiWithGeometryInsideTheModel)
{
	const std::string text = R"(; FBX 6.1.0 project file
FBXHeaderExtension:  {
	FBXVersion: 6100
}
Objects:  {
	Model: "Model::tri", "Mesh" {
		Version: 232
		Properties60:  {
			Property: "Lcl Translation", "Lcl Translation", "A+",5,0,0
		}
		Vertices: 0,0,0,1,0,0,
		 0,1,0,0,0,1
		PolygonVertexIndex: 0,1,-3,0,2,-4
		LayerElementMaterial: 0 {
			MappingInformationType: "AllSame"
			ReferenceInformationType: "IndexToDirect"
			Materials: 0
		}
	}
	Material: "Material::paint", "" {
	}
}
Connections:  {
	Connect: "OO", "Model::tri", "Model::Scene"
	Connect: "OO", "Material::paint", "Model::tri"
}
)";
	SourceScene_t scene;
	CUtlString error;
	ASSERT_TRUE(LoadText(text, scene, error)) << error;
	EXPECT_EQ(scene.nFormatVersion, 6100);
	ASSERT_EQ(scene.meshes.size(), 1u);
	const CSourceMesh &mesh = scene.meshes[0];
	EXPECT_EQ(mesh.m_Name, "tri");
	EXPECT_EQ(mesh.PositionCount(), 4);
	EXPECT_EQ(mesh.PolygonCount(), 2);
	EXPECT_EQ(mesh.m_Materials, (std::vector<CUtlString>{ "paint" }));
	EXPECT_EQ(mesh.m_PolygonMaterial, (std::vector<int32>{ 0, 0 }));
	EXPECT_DOUBLE_EQ(mesh.m_MeshToModel.m[0][3], 5.0);
}

TEST(FbxReader, SkinFromClustersOverLimbNodes)
{
	FbxTestScene_t source;
	source.joints = { "root", "spine", "head" };
	FbxTestMesh_t mesh = testmeshes::Cube();
	for (int p = 0; p < 8; ++p)
	{
		if (p < 4)
			mesh.weights.push_back({ { 0, 1.0 } });
		else
			mesh.weights.push_back({ { 1, 0.25 }, { 2, 0.75 } });
	}
	source.meshes.push_back(mesh);
	SourceScene_t scene;
	CUtlString error;
	ASSERT_TRUE(LoadText(WriteAsciiFbx(source), scene, error)) << error;
	ASSERT_EQ(scene.joints.size(), 3u);
	EXPECT_EQ(scene.joints[0].name, "root");
	EXPECT_EQ(scene.joints[1].nParent, 0);
	EXPECT_EQ(scene.joints[2].nParent, 1);
	EXPECT_FLOAT_EQ(scene.joints[1].bindLocal.position.y, 1.0f);
	EXPECT_TRUE(scene.joints[2].bSkinned);
	EXPECT_DOUBLE_EQ(scene.joints[2].inverseBind.m[1][3], -2.0); // the inverse of the link, two units up
	const CSourceMesh &out = scene.meshes[0];
	ASSERT_TRUE(out.IsSkinned());
	ASSERT_EQ(out.PositionWeights(0).size(), 1u);
	EXPECT_EQ(out.PositionWeights(0)[0], (SkinWeight_t{ 0, 1.0f }));
	ASSERT_EQ(out.PositionWeights(5).size(), 2u);
	EXPECT_EQ(out.PositionWeights(5)[0], (SkinWeight_t{ 1, 0.25f }));
	EXPECT_EQ(out.PositionWeights(5)[1], (SkinWeight_t{ 2, 0.75f }));
}

namespace
{
std::vector<FbxBinaryNode_t> BinaryTriangleFile(bool bCompress)
{
	using namespace fbxbinary;
	std::vector<FbxBinaryNode_t> top;
	FbxBinaryNode_t header{ "FBXHeaderExtension", {}, {} };
	header.Add("FBXVersion").properties = { Int32(7400) };
	top.push_back(header);
	FbxBinaryNode_t objects{ "Objects", {}, {} };
	FbxBinaryNode_t &geometry = objects.Add("Geometry");
	geometry.properties = { Int64(10), ObjectName("g", "Geometry"), String("Mesh") };
	geometry.Add("Vertices").properties = { Array('d', std::vector<double>{ 0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0.5, 0.5, 1 }, bCompress) };
	geometry.Add("PolygonVertexIndex").properties = { Array('i', std::vector<int32>{ 0, 1, 2, ~3, 0, 1, ~4 }, bCompress) };
	FbxBinaryNode_t &normals = geometry.Add("LayerElementNormal");
	normals.properties = { Int32(0) };
	normals.Add("MappingInformationType").properties = { String("AllSame") };
	normals.Add("ReferenceInformationType").properties = { String("Direct") };
	normals.Add("Normals").properties = { Array('f', std::vector<float>{ 0, 0, 1 }, bCompress) };
	FbxBinaryNode_t &model = objects.Add("Model");
	model.properties = { Int64(20), ObjectName("shape", "Model"), String("Mesh") };
	model.Add("Version").properties = { Int32(232) }; // assimp wants a model's child list
	top.push_back(objects);
	FbxBinaryNode_t connections{ "Connections", {}, {} };
	connections.Add("C").properties = { String("OO"), Int64(20), Int64(0) };
	connections.Add("C").properties = { String("OO"), Int64(10), Int64(20) };
	top.push_back(connections);
	return top;
}
} // namespace

TEST(FbxReader, BinaryRecordsOfBothSizesPlainAndDeflated)
{
	CTempDirectory folder;
	for (uint32 version : { 7400u, 7500u, 7700u })
	{
		for (bool bCompress : { false, true })
		{
			SCOPED_TRACE(testing::Message() << version << (bCompress ? " deflated" : " plain"));
			const std::string bytes = WriteBinaryFbx(BinaryTriangleFile(bCompress), version);
			const std::string path = folder.Write("built.fbx", bytes);
			SourceScene_t scene;
			CUtlString error;
			ASSERT_TRUE(LoadFbxSceneFile(path.c_str(), scene, error)) << error;
			EXPECT_EQ(scene.format, "fbx-binary");
			EXPECT_EQ(scene.nFormatVersion, (int)version);
			ASSERT_EQ(scene.meshes.size(), 1u);
			const CSourceMesh &mesh = scene.meshes[0];
			EXPECT_EQ(mesh.m_Name, "shape");
			EXPECT_EQ(mesh.PositionCount(), 5);
			EXPECT_EQ(mesh.m_Positions[4], Vector(0.5f, 0.5f, 1.0f));
			EXPECT_EQ(mesh.PolygonCount(), 2);
			EXPECT_EQ(mesh.TriangleCount(), 3);
			ASSERT_TRUE(mesh.HasNormals());
			EXPECT_EQ(mesh.m_CornerNormals[6], Vector(0, 0, 1));
			// assimp reads what we built the same way.
			const AssimpCounts_t theirs = AssimpView(path);
			ASSERT_TRUE(theirs.bLoaded);
			EXPECT_EQ(theirs.faces, 2);
			EXPECT_EQ(theirs.triangles, 3);
		}
	}
}

TEST(FbxReader, DamagedBinaryFilesGiveAMessageWithTheOffset)
{
	using namespace fbxbinary;
	CUtlString error;
	auto refuse = [&](const std::string &bytes, const char *expected) {
		CFbxDocument document;
		SourceScene_t scene;
		const bool bOk = document.Parse("bad.fbx", bytes, error) && LoadFbxScene(document, scene, error);
		EXPECT_FALSE(bOk);
		EXPECT_NE(error.find("bad.fbx: offset "), CUtlString::npos) << error;
		EXPECT_NE(error.find(expected), CUtlString::npos) << error;
	};
	const std::string good = WriteBinaryFbx(BinaryTriangleFile(true), 7400);

	// Cut anywhere after the header and before the end of the node list.
	for (size_t cut = 27; cut + 200 < good.size(); cut += 7)
	{
		SCOPED_TRACE(cut);
		CFbxDocument document;
		EXPECT_FALSE(document.Parse("bad.fbx", std::string_view(good).substr(0, cut), error));
		EXPECT_NE(error.find("bad.fbx: offset "), CUtlString::npos) << error;
	}
	refuse(good.substr(0, 25), "header is cut off");
	refuse(good.substr(0, 27), "the file ends inside a node record");

	// An array that claims more elements than its compressed bytes can hold.
	{
		std::vector<FbxBinaryNode_t> top = BinaryTriangleFile(true);
		std::string &vertices = top[1].children[0].children[0].properties[0];
		const uint32 huge = 2000000000u;
		memcpy(&vertices[1], &huge, 4);
		refuse(WriteBinaryFbx(top, 7400), "more than its");
	}
	// An array that inflates to fewer bytes than declared.
	{
		std::vector<FbxBinaryNode_t> top = BinaryTriangleFile(true);
		std::string &vertices = top[1].children[0].children[0].properties[0];
		const uint32 more = 16;
		memcpy(&vertices[1], &more, 4);
		refuse(WriteBinaryFbx(top, 7400), "inflates to 120 bytes, 128 were declared");
	}
	// Damaged deflate data.
	{
		std::vector<FbxBinaryNode_t> top = BinaryTriangleFile(true);
		std::string &vertices = top[1].children[0].children[0].properties[0];
		for (size_t i = 16; i < vertices.size(); ++i)
			vertices[i] = (char)(vertices[i] ^ 0x5a);
		refuse(WriteBinaryFbx(top, 7400), "is damaged");
	}
	// A plain array whose stored size does not match its count.
	{
		std::vector<FbxBinaryNode_t> top = BinaryTriangleFile(false);
		std::string &indices = top[1].children[0].children[1].properties[0];
		const uint32 count = 6;
		memcpy(&indices[1], &count, 4);
		refuse(WriteBinaryFbx(top, 7400), "should take 24 bytes");
	}
	// An unknown property type.
	{
		std::vector<FbxBinaryNode_t> top = BinaryTriangleFile(false);
		top[1].children[0].properties[2][0] = 'Q';
		refuse(WriteBinaryFbx(top, 7500), "unknown property type 0x51");
	}
	// Nesting beyond the bound.
	{
		FbxBinaryNode_t deep{ "n", { Int32(1) }, {} };
		for (int i = 0; i < 100; ++i)
			deep = FbxBinaryNode_t{ "n", { Int32(i) }, { deep } };
		refuse(WriteBinaryFbx({ deep }, 7400), "nest deeper than 64");
	}
	// A polygon that names a control point the geometry lacks.
	{
		std::vector<FbxBinaryNode_t> top = BinaryTriangleFile(false);
		top[1].children[0].children[1].properties[0] = Array('i', std::vector<int32>{ 0, 1, ~9 }, false);
		refuse(WriteBinaryFbx(top, 7400), "names control point 9 of 5");
	}
	// The last polygon left open.
	{
		std::vector<FbxBinaryNode_t> top = BinaryTriangleFile(false);
		top[1].children[0].children[1].properties[0] = Array('i', std::vector<int32>{ 0, 1, 2 }, false);
		refuse(WriteBinaryFbx(top, 7400), "last polygon is not closed");
	}
}

TEST(FbxReader, NoisyFilesNeverCrashAndAlwaysSayWhy)
{
	std::mt19937 random(1234);
	for (const char *name : { "box.fbx", "boxWithCompressedCTypeArray.FBX", "cubes_with_names.fbx" })
	{
		const std::string good = ReadBytes(std::string(ASSIMP_FBX_MODELS) + "/" + name);
		for (int trial = 0; trial < 60; ++trial)
		{
			std::string bytes = good;
			const int flips = 1 + (int)(random() % 8);
			for (int i = 0; i < flips; ++i)
				bytes[random() % bytes.size()] = (char)(random() & 0xff);
			CFbxDocument document;
			SourceScene_t scene;
			CUtlString error;
			if (!document.Parse("noisy.fbx", bytes, error) || !LoadFbxScene(document, scene, error))
				EXPECT_EQ(error.rfind("noisy.fbx", 0), 0u) << error;
			else
				EXPECT_TRUE(scene.Validate(error)) << error;
		}
	}
}

TEST(FbxReader, DamagedAsciiFilesGiveAMessageWithTheLine)
{
	FbxTestScene_t source;
	source.meshes.push_back(testmeshes::Cube());
	const std::string good = WriteAsciiFbx(source);
	SourceScene_t scene;
	CUtlString error;
	ASSERT_TRUE(LoadText(good, scene, error, "text.fbx")) << error;

	// Cut inside the objects: a '}' is missing.
	const size_t objects = good.find("Objects:");
	for (size_t cut = objects + 12; cut < good.find("Connections:"); cut += 13)
	{
		SCOPED_TRACE(cut);
		EXPECT_FALSE(LoadText(good.substr(0, cut), scene, error, "text.fbx"));
		EXPECT_NE(error.find("text.fbx: line "), CUtlString::npos) << error;
	}
	auto refuse = [&](const std::string &text, const char *expected, int line) {
		EXPECT_FALSE(LoadText(text, scene, error, "text.fbx"));
		EXPECT_NE(error.find(expected), CUtlString::npos) << error;
		EXPECT_NE(error.find("text.fbx: line " + std::to_string(line) + ":"), CUtlString::npos) << error;
	};
	refuse("A: 1\nB: 2 3\n", "expected ','", 2);
	refuse("A: {\n B: \"open\n", "not closed", 2);
	refuse("A: 1\n}\n", "closes no node", 2);
	refuse("Objects: {\n Geometry: 1, \"Geometry::g\", \"Mesh\" {\n  Vertices: *4 {\n   a: 1,2,3\n  }\n }\n}\n", "declares 4 values and holds 3", 3);
	refuse("Objects: {\n Geometry: 1, \"Geometry::g\", \"Mesh\" {\n  Vertices: *3 {\n   a: 1,2,x\n  }\n }\n}\n", "not a valid number", 4);
	refuse("Objects: {\n Geometry: 1, \"Geometry::g\", \"Mesh\" {\n  Vertices: *3 {\n   a: 1,2,3\n  }\n  PolygonVertexIndex: *3 {\n   a: 0,0,2.5\n  }\n }\n}\n",
		"not a valid integer", 7);
	refuse("Objects: {\n Geometry: 1, \"Geometry::g\", \"Mesh\" {\n  Vertices: *1000000 {\n   a: 1\n  }\n }\n}\n", "cannot hold that many", 3);
	std::string deep;
	for (int i = 0; i < 80; ++i)
		deep += "N: {\n";
	refuse(deep, "nest deeper than 64", 64);
}
