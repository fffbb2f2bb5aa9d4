// Boxes with topology problems for the preview's tests: a cube of 40 units written as ASCII FBX
// (Y up, as exporters write it) that is open on its front (four border edges), has one face wound
// the wrong way (a flipped pair), or carries a fin on one edge (a non-manifold edge). Either as a
// model document of its own under the content tree, or as the art of a session of a small
// template added to the game's catalogue.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

#include "testsupport/fbx_test_writer.h"
#include "testsupport/test_meshes.h"

enum ETestBox
{
	TEST_BOX_CLOSED = 0,
	TEST_BOX_OPEN,	  // no front face: its four edges are border edges
	TEST_BOX_FLIPPED, // the front face wound the other way
	TEST_BOX_FIN,	  // closed, with a triangle on an edge of the front face
};

// The session that imports the box of WriteTestBoxGame, relative to the root.
#define TEST_BOX_SESSION "sessions/test_box.session.txt"
// The model the session's import compiles.
#define TEST_BOX_SESSION_MODEL "models/items/box/test_box/test_box.zmdl"

inline FbxTestMesh_t MakeTestBoxMesh(ETestBox eKind)
{
	FbxTestMesh_t mesh = eKind == TEST_BOX_FLIPPED ? testmeshes::FlippedCube() : testmeshes::Cube();
	mesh.name = "box";
	for (Vector &position : mesh.positions)
		position = Vector(position.x * 40.0f, position.y * 40.0f, position.z * 40.0f);
	// Polygon 1 lies at z = 1 of the file, which becomes the front (-Y) once turned to Z up.
	if (eKind == TEST_BOX_OPEN)
		mesh.polygons.erase(mesh.polygons.begin() + 1);
	if (eKind == TEST_BOX_FIN)
	{
		mesh.positions.push_back(Vector(20.0f, 60.0f, 40.0f));
		mesh.polygons.push_back({ 4, 5, 8 });
	}
	return mesh;
}

inline bool WriteTestText(const std::string &path, const std::string &text)
{
	std::filesystem::create_directories(std::filesystem::path(path).parent_path());
	std::ofstream out(path, std::ios::binary);
	out << text;
	return (bool)out;
}

// The box as a model document of its own: "<content>/models/tests/<name>.zmdl" naming
// "models/tests/<name>.fbx". Gives the document's content-relative path.
inline std::string WriteTestBoxModel(const std::string &contentRoot, const std::string &name, ETestBox eKind)
{
	FbxTestScene_t scene;
	scene.meshes.push_back(MakeTestBoxMesh(eKind));
	WriteTestText(contentRoot + "/models/tests/" + name + ".fbx", WriteAsciiFbx(scene));
	const std::string document = "models/tests/" + name + ".zmdl";
	WriteTestText(contentRoot + "/" + document,
		"<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:modeldoc32:version{8ba9eb32-178d-4b95-a5d4-53826fa12ff1} -->\n"
		"{\n\trootNode =\n\t{\n\t\t_class = \"RootNode\"\n\t\tchildren =\n\t\t[\n\t\t\t{\n\t\t\t\t_class = \"RenderMeshList\"\n"
		"\t\t\t\tchildren =\n\t\t\t\t[\n\t\t\t\t\t{ _class = \"RenderMeshFile\" name = \"" +
			name + "\" filename = \"models/tests/" + name +
			".fbx\" },\n\t\t\t\t]\n\t\t\t},\n\t\t]\n\t}\n}\n");
	return document;
}

// A template "test_box" with one model of one level and no hero, added to the catalogue of the
// game under `root` (<root>/game/zarn), and a session that imports the box from <root>/art/box/.
inline void WriteTestBoxGame(const std::string &root, ETestBox eKind)
{
	FbxTestScene_t scene;
	scene.meshes.push_back(MakeTestBoxMesh(eKind));
	WriteTestText(root + "/art/box/box.fbx", WriteAsciiFbx(scene));
	const std::string templates = root + "/game/zarn/scripts/mintyard_import_templates/";
	WriteTestText(templates + "template_test_box.txt",
		"<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n"
		"{\n\tid = \"test_box\"\n\tname = \"Box\"\n\tdirectory = \"box\"\n\tmodels =\n\t[\n\t\t{\n\t\t\tid = \"model_box\"\n"
		"\t\t\tname = \"Box\"\n\t\t\tlod_list = [ { id = \"lod0\" name = \"Box\" max_polygons = 100 max_bones = 0 } ]\n\t\t},\n\t]\n"
		"\tmintyard_tags = [ \"Box\" ]\n}\n");
	// The catalogue names it after the others.
	std::ifstream in(templates + "templates.txt");
	std::string catalogue((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
	const size_t end = catalogue.rfind(']');
	if (end != std::string::npos)
		catalogue.insert(end, "\t\t\"scripts/mintyard_import_templates/template_test_box.txt\",\n\t");
	WriteTestText(templates + "templates.txt", catalogue);
	WriteTestText(root + "/" + TEST_BOX_SESSION,
		"<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n"
		"{\n\ttemplate_name = \"test_box\"\n\timport_name = \"test_box\"\n\tmodel_list =\n\t[\n\t\t{\n\t\t\tid = \"model_box\"\n"
		"\t\t\tlod_list = [ { id = \"lod0\" source_filename = \"../art/box/box.fbx\" extra_meshes = [ ] } ]\n\t\t},\n\t]\n}\n");
}
