// What the resource compiler's tests share: a content tree and its game tree in a temporary
// folder, running the command, reading `info --json`, and the sources the tests write (a
// creature as ASCII FBX with a skeleton, skin, two materials and animations; the same kind of
// creature as DMX made through the data model; model documents).
#pragma once

#include <cmath>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include "core/fileio.h"
#include "core/strtools.h"
#include "datamodel/dmxio.h"
#include "meshio/dmxmesh.h"
#include "resourcecompiler/resourcecompiler.h"
#include "testsupport/fbx_scene_writer.h"
#include "testsupport/test_support.h"

#ifndef RESOURCECOMPILER_PATH
#error "the tests need the path of the resourcecompiler command"
#endif

// <temp>/content/zarn and <temp>/game/zarn.
class CContentTree
{
public:
	CContentTree()
	{
		std::filesystem::create_directories(Content(""));
		std::filesystem::create_directories(Game(""));
	}
	std::string Root() const { return m_Temp.Path(); }
	std::string Content(const std::string &relative) const { return m_Temp.Path("content/zarn/" + relative); }
	std::string Game(const std::string &relative) const { return m_Temp.Path("game/zarn/" + relative); }
	std::string GameDir() const { return m_Temp.Path("game/zarn"); }
	// The path of a content file that is about to be written by other means; its folders made.
	std::string NewContent(const std::string &relative) const
	{
		const std::string path = Content(relative);
		std::filesystem::create_directories(std::filesystem::path(path).parent_path());
		return path;
	}
	std::string Write(const std::string &relative, const std::string &text) const { return m_Temp.Write("content/zarn/" + relative, text); }
	std::string WriteBytes(const std::string &relative, const std::vector<uint8> &bytes) const
	{
		return Write(relative, std::string(bytes.begin(), bytes.end()));
	}
	std::string ReadGame(const std::string &relative) const
	{
		CUtlBuffer buffer;
		if (!Plat_ReadFile(Game(relative).c_str(), buffer))
			return std::string();
		return std::string(buffer.View());
	}

private:
	CTempDirectory m_Temp;
};

inline std::string CompilerPath()
{
	return RESOURCECOMPILER_PATH;
}

// Runs the command with the arguments (paths without blanks); standard output and error together.
inline CommandResult_t RunCompiler(const std::string &arguments)
{
	return RunCommand(CompilerPath() + " " + arguments);
}

// `info --json` of a compiled file into `json`; false (with the output in the failure) when it
// does not describe it.
inline ::testing::AssertionResult CompiledInfo(const std::string &path, rapidjson::Document &json)
{
	CommandResult_t result = RunCompiler("info --json " + path + " 2>/dev/null");
	if (result.exitCode != 0)
		return ::testing::AssertionFailure() << "info of " << path << " exited " << result.exitCode << ": " << result.output;
	json.Parse(result.output.c_str());
	if (json.HasParseError() || !json.IsObject())
		return ::testing::AssertionFailure() << "info of " << path << " gave no JSON object: " << result.output;
	return ::testing::AssertionSuccess();
}

inline const rapidjson::Value *FindNamed(const rapidjson::Value &array, const char *name)
{
	if (!array.IsArray())
		return nullptr;
	for (const rapidjson::Value &entry : array.GetArray())
	{
		if (entry.IsObject() && entry.HasMember("name") && entry["name"].IsString() && std::string(entry["name"].GetString()) == name)
			return &entry;
	}
	return nullptr;
}

inline std::vector<std::string> Strings(const rapidjson::Value &array)
{
	std::vector<std::string> out;
	if (array.IsArray())
	{
		for (const rapidjson::Value &entry : array.GetArray())
			out.push_back(entry.IsString() ? entry.GetString() : "?");
	}
	return out;
}

// ---------------------------------------------------------------------------------------------
// Model documents

inline const char *ModelDocHeader()
{
	return "<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} "
		   "format:modeldoc32:version{8ba9eb32-178d-4b95-a5d4-53826fa12ff1} -->\n";
}

// A document from the texts of its list nodes, e.g. ListNode("RenderMeshList", "{ _class = ... }").
inline std::string ListNode(const std::string &listClass, const std::string &children)
{
	return "\t\t\t{\n\t\t\t\t_class = \"" + listClass + "\"\n\t\t\t\tchildren =\n\t\t\t\t[\n" + children + "\n\t\t\t\t]\n\t\t\t},\n";
}

inline std::string ModelDocument(const std::string &lists)
{
	return std::string(ModelDocHeader()) + "{\n\trootNode =\n\t{\n\t\t_class = \"RootNode\"\n\t\tchildren =\n\t\t[\n" + lists + "\t\t]\n\t}\n}\n";
}

inline std::string MaterialDocument(const std::string &color = "", const std::string &extra = "")
{
	std::string text = "\"Layer0\"\n{\n\t\"Shader\"\t\"hero.zfx\"\n";
	text += "\t\"TextureColor\"\t\"" + (color.empty() ? std::string("[1.000000 1.000000 1.000000 1.000000]") : color) + "\"\n";
	text += "\t\"F_ALPHA_TEST\"\t\"0\"\n\t\"TextureTranslucency\"\t\"\"\n";
	text += extra;
	text += "}\n";
	return text;
}

// ---------------------------------------------------------------------------------------------
// The creature: a column of rings around the up axis with a hexagon at the bottom and a fan of
// triangles at the top, skinned to root, spine and head (an arm joint weights nothing), its sides
// of one material and its caps of another.

struct CreatureShape_t
{
	int segments = 6;
	int rings = 6; // rings of positions from the bottom, 5 units apart
	bool bSmoothNormals = false;
	bool bUVs = true;
};

inline FbxWriterScene_t MakeCreatureFbx(const CreatureShape_t &shape = {})
{
	FbxWriterScene_t scene;
	scene.joints = {
		{ "root", -1, Vector(0, 0, 0), Vector(0, 0, 0) },
		{ "spine", 0, Vector(0, 10, 0), Vector(0, 0, 0) },
		{ "head", 1, Vector(0, 10, 0), Vector(0, 0, 10) },
		{ "arm", 1, Vector(4, 5, 0), Vector(0, 0, -90) },
	};
	FbxWriterMesh_t mesh;
	mesh.name = "creature";
	mesh.materials = { "creature_body", "creature_cap" };
	mesh.bSmoothNormals = shape.bSmoothNormals;
	const int n = shape.segments;
	for (int r = 0; r < shape.rings; ++r)
	{
		for (int s = 0; s < n; ++s)
		{
			const double angle = 6.283185307179586 * s / n;
			mesh.positions.push_back(Vector((float)(3.0 * std::cos(angle)), (float)(5.0 * r), (float)(3.0 * std::sin(angle))));
			const double height = 5.0 * r;
			std::vector<std::pair<int, double>> weights;
			if (height <= 5.0)
				weights = { { 0, 1.0 - height / 10.0 }, { 1, height / 10.0 } };
			else if (height < 20.0)
				weights = { { 1, (20.0 - height) / 10.0 }, { 2, (height - 10.0) / 10.0 } };
			else
				weights = { { 2, 1.0 } };
			for (auto it = weights.begin(); it != weights.end();)
				it = it->second <= 0.0 ? weights.erase(it) : it + 1;
			mesh.weights.push_back(weights);
		}
	}
	const int top = (int)mesh.positions.size();
	mesh.positions.push_back(Vector(0, (float)(5.0 * (shape.rings - 1) + 2.0), 0));
	mesh.weights.push_back({ { 2, 1.0 } });
	auto uv = [&](int position) {
		const Vector &p = mesh.positions[(size_t)position];
		return Vector2D(0.5f + p.x / 8.0f, p.y / (5.0f * shape.rings));
	};
	// Sides: quads, counter-clockwise seen from outside.
	for (int r = 0; r + 1 < shape.rings; ++r)
	{
		for (int s = 0; s < n; ++s)
		{
			const int a = r * n + s, b = r * n + (s + 1) % n, c = (r + 1) * n + (s + 1) % n, d = (r + 1) * n + s;
			mesh.polygons.push_back({ a, d, c, b });
			mesh.polygonMaterial.push_back(0);
		}
	}
	// Bottom: one polygon of n corners.
	std::vector<int> bottom;
	for (int s = 0; s < n; ++s)
		bottom.push_back(s);
	mesh.polygons.push_back(bottom);
	mesh.polygonMaterial.push_back(1);
	// Top: a fan of triangles to the tip.
	const int last = (shape.rings - 1) * n;
	for (int s = 0; s < n; ++s)
	{
		mesh.polygons.push_back({ last + s, last + (s + 1) % n, top });
		mesh.polygonMaterial.push_back(1);
	}
	if (shape.bUVs)
	{
		for (const std::vector<int> &polygon : mesh.polygons)
		{
			for (int position : polygon)
				mesh.cornerUVs.push_back(uv(position));
		}
	}
	scene.meshes.push_back(mesh);
	return scene;
}

// Polygons fanned: what the compiled mesh must draw.
inline long long FanTriangles(const FbxWriterMesh_t &mesh)
{
	long long count = 0;
	for (const std::vector<int> &polygon : mesh.polygons)
		count += polygon.size() >= 3 ? (long long)polygon.size() - 2 : 0;
	return count;
}

// An animation of the creature: the root walks along +X, the spine sways about Z.
inline FbxWriterAnimation_t MakeCreatureAnimation(const FbxWriterScene_t &scene, const char *name, int frames, double sway)
{
	FbxWriterAnimation_t animation;
	animation.name = name;
	animation.frameCount = frames;
	for (int f = 0; f < frames; ++f)
	{
		for (const FbxWriterJoint_t &joint : scene.joints)
		{
			Vector translation = joint.translation;
			Vector rotation = joint.rotation;
			if (joint.name == "root")
				translation.x += 2.0f * f;
			if (joint.name == "spine")
				rotation.z += (float)(sway * std::sin(f * 0.7));
			animation.translations.push_back(translation);
			animation.rotations.push_back(rotation);
		}
	}
	return animation;
}

// A smaller creature as a source scene, written as DMX through the data model: the same joints,
// a column of four segments, skinned, with an animation of its own.
inline SourceScene_t MakeCreatureDmxScene(int frames)
{
	SourceScene_t scene;
	scene.upAxis = 'Y';
	const FbxWriterScene_t fbx = MakeCreatureFbx();
	std::vector<Matrix4_t> globals;
	for (const FbxWriterJoint_t &joint : fbx.joints)
	{
		SourceJoint_t out;
		out.name = joint.name.c_str();
		out.nParent = joint.parent;
		const Matrix4_t local = fbxwriter::JointLocal(joint);
		globals.push_back(joint.parent >= 0 ? MatrixMultiply(globals[(size_t)joint.parent], local) : local);
		out.bindLocal = TransformFromMatrix(local);
		MatrixInverse(globals.back(), out.inverseBind);
		out.bSkinned = joint.name != "arm";
		scene.joints.push_back(out);
	}
	CreatureShape_t shape;
	shape.segments = 4;
	shape.rings = 3;
	const FbxWriterMesh_t source = MakeCreatureFbx(shape).meshes[0];
	CSourceMesh mesh;
	mesh.m_Name = "creature_lod1";
	mesh.m_Positions = source.positions;
	mesh.m_Materials = { "creature_body", "creature_cap" };
	mesh.m_WeightStart.push_back(0);
	for (const auto &weights : source.weights)
	{
		for (const auto &[joint, weight] : weights)
			mesh.m_Weights.push_back(SkinWeight_t{ joint, (float)weight });
		mesh.m_WeightStart.push_back((int32)mesh.m_Weights.size());
	}
	size_t corner = 0;
	for (size_t p = 0; p < source.polygons.size(); ++p)
	{
		std::vector<int32> corners(source.polygons[p].begin(), source.polygons[p].end());
		mesh.AddPolygon(corners, source.polygonMaterial[p]);
		for (size_t c = 0; c < corners.size(); ++c, ++corner)
		{
			mesh.m_CornerUVs.push_back(source.cornerUVs[corner]);
			mesh.m_CornerNormals.push_back(Vector(0, 1, 0));
		}
	}
	scene.meshes.push_back(mesh);
	SourceAnimation_t animation;
	animation.name = "wave";
	animation.flFps = 30.0f;
	animation.nFrameCount = frames;
	for (int f = 0; f < frames; ++f)
	{
		for (const SourceJoint_t &joint : scene.joints)
		{
			SourceTransform_t pose = joint.bindLocal;
			if (joint.name == "head")
				pose.position.x += 0.5f * f;
			animation.frames.push_back(pose);
		}
	}
	scene.animations.push_back(animation);
	return scene;
}

inline bool WriteDmxScene(const SourceScene_t &scene, const std::string &path, CUtlString &error)
{
	CDmxDocument document;
	return BuildDmxScene(scene, "creature", document, error) &&
		   DmxSaveFile(path.c_str(), document.GetRoot(), DMX_ENCODING_BINARY, "model", DMX_CURRENT_FORMAT_VERSION, &error);
}
