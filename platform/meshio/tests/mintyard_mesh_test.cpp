// The mintyard_mesh command: JSON names and values, readable output, conversion, exit codes.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include "testsupport/test_meshes.h"
#include "testsupport/test_support.h"

namespace
{
const std::string s_Tool = MINTYARD_MESH_PATH;
const std::string s_Models = "/usr/share/assimp/models/FBX";

std::string Quote(const std::string &text)
{
	return "'" + text + "'";
}

// Runs the tool with standard output only (standard error dropped).
CommandResult_t RunQuiet(const std::string &arguments)
{
	return RunCommand("(" + s_Tool + " " + arguments + " 2>/dev/null)");
}

bool ParseJson(const std::string &text, rapidjson::Document &json)
{
	json.Parse(text.c_str());
	return !json.HasParseError() && json.IsObject();
}

std::string WriteQuadFbx(const CTempDirectory &folder)
{
	FbxTestScene_t scene;
	scene.meshes.push_back(testmeshes::OpenQuad());
	return folder.Write("quad.fbx", WriteAsciiFbx(scene));
}
} // namespace

TEST(MintyardMesh, InfoJsonHasTheNamedCountsAndFindings)
{
	CTempDirectory folder;
	const CommandResult_t result = RunQuiet("info --json " + Quote(WriteQuadFbx(folder)));
	ASSERT_EQ(result.exitCode, 0) << result.output;
	rapidjson::Document json;
	ASSERT_TRUE(ParseJson(result.output, json)) << result.output;
	EXPECT_STREQ(json["format"].GetString(), "fbx-ascii");
	EXPECT_EQ(json["vertices"].GetInt(), 4);
	EXPECT_EQ(json["polygons"].GetInt(), 1);
	EXPECT_EQ(json["triangles"].GetInt(), 2);
	ASSERT_TRUE(json["bones"].IsArray());
	EXPECT_EQ(json["bones"].Size(), 0u);
	ASSERT_TRUE(json["animations"].IsArray());
	EXPECT_EQ(json["animations"].Size(), 0u);
	const rapidjson::Value &topology = json["topology"];
	EXPECT_EQ(topology["isolated_edges"].GetInt(), 0);
	EXPECT_EQ(topology["nonmanifold_edges"].GetInt(), 0);
	EXPECT_EQ(topology["border_edges"].GetInt(), 4);
	EXPECT_FALSE(topology["unwelded"].GetBool());
	EXPECT_FALSE(topology["flipped"].GetBool());
	ASSERT_EQ(topology["border_edge_list"].Size(), 4u);
	EXPECT_EQ(topology["border_edge_list"][3][0].GetInt(), 3);
	EXPECT_EQ(topology["border_edge_list"][3][1].GetInt(), 0);
	EXPECT_EQ(topology["nonmanifold_edge_list"].Size(), 0u);
	EXPECT_EQ(topology["isolated_edge_list"].Size(), 0u);
	EXPECT_EQ(topology["unwelded_vertices"].Size(), 0u);
	EXPECT_EQ(topology["flipped_faces"].Size(), 0u);
}

TEST(MintyardMesh, InfoJsonListsTheElementsOfEachFinding)
{
	CTempDirectory folder;
	FbxTestScene_t scene;
	scene.meshes = { testmeshes::TwoUnweldedQuads(), testmeshes::ThreeFacesOnOneEdge(), testmeshes::FlippedCube() };
	for (Vector &p : scene.meshes[1].positions)
		p.z += 5.0f; // apart from the quads, whose border it would touch
	const std::string path = folder.Write("problems.fbx", WriteAsciiFbx(scene));
	const CommandResult_t result = RunQuiet("info --json " + Quote(path));
	ASSERT_EQ(result.exitCode, 0) << result.output;
	rapidjson::Document json;
	ASSERT_TRUE(ParseJson(result.output, json)) << result.output;
	const rapidjson::Value &topology = json["topology"];
	EXPECT_TRUE(topology["unwelded"].GetBool());
	EXPECT_EQ(topology["unwelded_vertices"].Size(), 4u);
	EXPECT_EQ(topology["nonmanifold_edges"].GetInt(), 1);
	ASSERT_EQ(topology["nonmanifold_edge_list"].Size(), 1u);
	EXPECT_EQ(topology["nonmanifold_edge_list"][0][0].GetInt(), 8); // the second mesh starts at vertex 8
	EXPECT_EQ(topology["nonmanifold_edge_list"][0][1].GetInt(), 9);
	EXPECT_TRUE(topology["flipped"].GetBool());
	EXPECT_EQ(topology["flipped_faces"].Size(), 2u);
	EXPECT_EQ(json["meshes"].Size(), 3u);
	EXPECT_EQ(json["meshes"][2]["first_vertex"].GetInt(), 13);
	EXPECT_EQ(json["meshes"][2]["first_polygon"].GetInt(), 5);
}

TEST(MintyardMesh, InfoOfASkinnedAnimatedFbx)
{
	const CommandResult_t result = RunQuiet("info --json " + Quote(s_Models + "/huesitos.fbx"));
	ASSERT_EQ(result.exitCode, 0) << result.output;
	rapidjson::Document json;
	ASSERT_TRUE(ParseJson(result.output, json)) << result.output;
	EXPECT_STREQ(json["format"].GetString(), "fbx-binary");
	EXPECT_EQ(json["vertices"].GetInt(), 62);
	bool bBone = false;
	for (const rapidjson::Value &bone : json["bones"].GetArray())
		bBone |= std::string(bone.GetString()) == "Bone.001";
	EXPECT_TRUE(bBone);
	ASSERT_EQ(json["animations"].Size(), 1u);
	const rapidjson::Value &animation = json["animations"][0];
	EXPECT_TRUE(animation["name"].IsString());
	EXPECT_GT(animation["frames"].GetInt(), 1);
	EXPECT_EQ(animation["fps"].GetDouble(), 25.0);
}

TEST(MintyardMesh, ReadableInfo)
{
	CTempDirectory folder;
	const CommandResult_t result = RunQuiet("info " + Quote(WriteQuadFbx(folder)));
	ASSERT_EQ(result.exitCode, 0) << result.output;
	EXPECT_NE(result.output.find("format: fbx-ascii"), std::string::npos) << result.output;
	EXPECT_NE(result.output.find("triangles: 2\n"), std::string::npos) << result.output;
	EXPECT_NE(result.output.find("border edges: 4\n"), std::string::npos) << result.output;
	EXPECT_NE(result.output.find("edges: 0-1 1-2 2-3 3-0\n"), std::string::npos) << result.output;
	EXPECT_NE(result.output.find("unwelded: no"), std::string::npos) << result.output;
}

TEST(MintyardMesh, ConvertsFbxToDmxAndBetweenItsEncodings)
{
	CTempDirectory folder;
	const std::string binary = folder.Path("huesitos.dmx"), text = folder.Path("huesitos_text.dmx"), again = folder.Path("again.dmx");
	ASSERT_EQ(RunQuiet("convert " + Quote(s_Models + "/huesitos.fbx") + " " + Quote(binary)).exitCode, 0);
	ASSERT_EQ(RunQuiet("convert " + Quote(binary) + " " + Quote(text) + " --text").exitCode, 0);
	ASSERT_EQ(RunQuiet("convert " + Quote(text) + " " + Quote(again) + " --binary").exitCode, 0);

	rapidjson::Document fbx, dmx;
	ASSERT_TRUE(ParseJson(RunQuiet("info --json " + Quote(s_Models + "/huesitos.fbx")).output, fbx));
	for (const auto &[path, format] : { std::pair{ binary, "dmx-binary" }, std::pair{ text, "dmx-keyvalues2" }, std::pair{ again, "dmx-binary" } })
	{
		SCOPED_TRACE(path);
		ASSERT_TRUE(ParseJson(RunQuiet("info --json " + Quote(path)).output, dmx));
		EXPECT_STREQ(dmx["format"].GetString(), format);
		for (const char *key : { "vertices", "polygons", "triangles" })
			EXPECT_EQ(dmx[key].GetInt(), fbx[key].GetInt()) << key;
		EXPECT_EQ(dmx["bones"], fbx["bones"]);
		EXPECT_EQ(dmx["animations"][0]["frames"], fbx["animations"][0]["frames"]);
		EXPECT_EQ(dmx["topology"], fbx["topology"]);
	}
	CUtlBuffer bytes;
	ASSERT_TRUE(Plat_ReadFile(text.c_str(), bytes));
	EXPECT_EQ(bytes.View().rfind("<!-- dmx encoding keyvalues2 ", 0), 0u);
}

TEST(MintyardMesh, ExitCodes)
{
	CTempDirectory folder;
	EXPECT_EQ(RunQuiet("--help").exitCode, 0);
	EXPECT_NE(RunQuiet("--help").output.find("usage: mintyard_mesh info"), std::string::npos);
	EXPECT_EQ(RunQuiet("").exitCode, 2);
	EXPECT_EQ(RunQuiet("frobnicate x").exitCode, 2);
	EXPECT_EQ(RunQuiet("info").exitCode, 2);
	EXPECT_EQ(RunQuiet("info --yaml x.fbx").exitCode, 2);
	EXPECT_EQ(RunQuiet("convert only.fbx").exitCode, 2);
	EXPECT_EQ(RunQuiet("convert a.fbx b.obj").exitCode, 2);

	// Files it cannot read: a message on standard error naming the file.
	const CommandResult_t missing = RunCommand("(" + s_Tool + " info " + Quote(folder.Path("missing.fbx")) + " 2>&1 >/dev/null)");
	EXPECT_EQ(missing.exitCode, 1);
	EXPECT_NE(missing.output.find("missing.fbx"), std::string::npos) << missing.output;
	CUtlBuffer box;
	ASSERT_TRUE(Plat_ReadFile((s_Models + "/box.fbx").c_str(), box));
	const std::string cut = folder.Write("cut.fbx", std::string(box.View().substr(0, 3000)));
	const CommandResult_t damaged = RunCommand("(" + s_Tool + " info " + Quote(cut) + " 2>&1 >/dev/null)");
	EXPECT_EQ(damaged.exitCode, 1);
	EXPECT_NE(damaged.output.find("cut.fbx: offset "), std::string::npos) << damaged.output;
	const std::string junk = folder.Write("junk.dmx", "not a mesh");
	EXPECT_EQ(RunQuiet("info " + Quote(junk)).exitCode, 1);
	EXPECT_EQ(RunQuiet("convert " + Quote(junk) + " " + Quote(folder.Path("out.dmx"))).exitCode, 1);
	EXPECT_EQ(RunQuiet("convert " + Quote(WriteQuadFbx(folder)) + " " + Quote(folder.Path("no/such/folder/out.dmx"))).exitCode, 1);
}

TEST(MintyardMesh, AnFbxThatOnlyOurReaderTakesIsDescribedWithAWarning)
{
	// FBX 6 keeps the geometry in the model; assimp refuses files that old.
	CTempDirectory folder;
	const std::string path = folder.Write("old.fbx", R"(; FBX 6.1.0 project file
FBXHeaderExtension:  {
	FBXVersion: 6100
}
Objects:  {
	Model: "Model::tri", "Mesh" {
		Vertices: 0,0,0,1,0,0,0,1,0,0,0,1
		PolygonVertexIndex: 0,1,-3,0,2,-4
	}
}
Connections:  {
	Connect: "OO", "Model::tri", "Model::Scene"
}
)");
	const CommandResult_t result = RunQuiet("info --json " + Quote(path));
	ASSERT_EQ(result.exitCode, 0) << result.output;
	rapidjson::Document json;
	ASSERT_TRUE(ParseJson(result.output, json)) << result.output;
	EXPECT_EQ(json["vertices"].GetInt(), 4);
	EXPECT_EQ(json["triangles"].GetInt(), 2);
	EXPECT_EQ(json["topology"]["border_edges"].GetInt(), 4);
	ASSERT_EQ(json["warnings"].Size(), 1u);
	EXPECT_NE(std::string(json["warnings"][0].GetString()).find("assimp cannot read it"), std::string::npos);
	// Converting needs the whole scene: that fails with assimp's message.
	EXPECT_EQ(RunQuiet("convert " + Quote(path) + " " + Quote(folder.Path("old.dmx"))).exitCode, 1);
}
