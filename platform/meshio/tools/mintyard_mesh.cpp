// mintyard_mesh: describes and converts the mesh sources that authors give the importer.
//
//   mintyard_mesh info [--json] SOURCE      what the source holds and its topology findings
//   mintyard_mesh convert IN OUT [--text|--binary]
//                                           FBX to DMX, or a DMX between its text and binary
//                                           encodings (binary unless --text)
//
// Exit status: 0 done, 1 a file that cannot be read or written, 2 a usage error.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include "core/fileio.h"
#include "core/strtools.h"
#include "datamodel/dmxio.h"
#include "meshio/assimp/assimpscene.h"
#include "meshio/dmxmesh.h"
#include "meshio/meshsource.h"
#include "meshio/meshtopology.h"

namespace
{
const char s_Usage[] = "usage: mintyard_mesh info [--json] SOURCE\n"
					   "       mintyard_mesh convert IN OUT [--text|--binary]\n"
					   "\n"
					   "info     describes a mesh source (FBX, binary or ASCII, or DMX): its format, control points\n"
					   "         (\"vertices\"), polygons, triangles (each polygon fanned), bones, animations and the\n"
					   "         findings of the topology check on the source's own connectivity, with the vertices,\n"
					   "         edges and faces concerned. --json writes the same as one JSON object.\n"
					   "convert  writes an FBX as DMX (model, joints, bind pose, meshes, materials, animations), or a\n"
					   "         DMX again in the other encoding; OUT is a .dmx file, binary unless --text.\n"
					   "\n"
					   "Exit status: 0 done, 1 a file that cannot be read or written, 2 a usage error.\n";

int Usage(const char *message = nullptr)
{
	if (message)
		fprintf(stderr, "mintyard_mesh: %s\n", message);
	fputs(s_Usage, stderr);
	return 2;
}

struct SourceInfo_t
{
	CUtlString format;
	std::vector<CUtlString> warnings;
	SourceScene_t scene;
	MeshTopologyReport_t report;
	SourceMeshMap_t map;
};

bool LoadInfo(const char *path, SourceInfo_t &info, CUtlString &error)
{
	CUtlBuffer bytes;
	if (!Plat_ReadFile(path, bytes, &error))
		return false;
	info.format = SourceFormatToken(bytes.View());
	if (!LoadSourceSceneForCompile(path, info.scene, error))
	{
		// An FBX that our reader takes and assimp does not (FBX 6, say): what our reader sees,
		// without animations, and a warning that the compiler will not read it.
		CUtlString ourError;
		if (!info.format.starts_with("fbx-") || !LoadSourceScene(path, bytes.View(), info.scene, ourError))
			return false;
		info.warnings.push_back("assimp cannot read it, so it will not compile and its animations are not shown: " + error);
	}
	CheckSourceTopology(info.scene, info.report, &info.map);
	return true;
}

typedef rapidjson::PrettyWriter<rapidjson::StringBuffer> JsonWriter_t;

void WriteEdges(JsonWriter_t &json, const char *key, const std::vector<MeshEdge_t> &edges)
{
	json.Key(key);
	json.StartArray();
	for (const MeshEdge_t &edge : edges)
	{
		json.StartArray();
		json.Int(edge.nVertex0);
		json.Int(edge.nVertex1);
		json.EndArray();
	}
	json.EndArray();
}

void WriteInts(JsonWriter_t &json, const char *key, const std::vector<int32> &values)
{
	json.Key(key);
	json.StartArray();
	for (int32 value : values)
		json.Int(value);
	json.EndArray();
}

void WriteString(JsonWriter_t &json, const CUtlString &text)
{
	json.String(text.c_str(), (rapidjson::SizeType)text.size());
}

void PrintJson(const char *path, const SourceInfo_t &info)
{
	const SourceScene_t &scene = info.scene;
	const MeshTopologyReport_t &report = info.report;
	rapidjson::StringBuffer buffer;
	JsonWriter_t json(buffer);
	json.StartObject();
	json.Key("file");
	json.String(path);
	json.Key("format");
	WriteString(json, info.format);
	json.Key("format_version");
	json.Int(scene.nFormatVersion);
	json.Key("warnings");
	json.StartArray();
	for (const CUtlString &warning : info.warnings)
		WriteString(json, warning);
	json.EndArray();
	json.Key("vertices");
	json.Int64(scene.PositionCount());
	json.Key("polygons");
	json.Int64(scene.PolygonCount());
	json.Key("triangles");
	json.Int64(scene.TriangleCount());
	json.Key("bones");
	json.StartArray();
	for (const SourceJoint_t &joint : scene.joints)
		WriteString(json, joint.name);
	json.EndArray();
	json.Key("skinned_bones");
	json.StartArray();
	for (const SourceJoint_t &joint : scene.joints)
	{
		if (joint.bSkinned)
			WriteString(json, joint.name);
	}
	json.EndArray();
	json.Key("animations");
	json.StartArray();
	for (const SourceAnimation_t &animation : scene.animations)
	{
		json.StartObject();
		json.Key("name");
		WriteString(json, animation.name);
		json.Key("frames");
		json.Int(animation.nFrameCount);
		json.Key("fps");
		json.Double(animation.flFps);
		json.EndObject();
	}
	json.EndArray();
	json.Key("meshes");
	json.StartArray();
	for (size_t m = 0; m < scene.meshes.size(); ++m)
	{
		const CSourceMesh &mesh = scene.meshes[m];
		json.StartObject();
		json.Key("name");
		WriteString(json, mesh.m_Name);
		json.Key("vertices");
		json.Int(mesh.PositionCount());
		json.Key("polygons");
		json.Int(mesh.PolygonCount());
		json.Key("triangles");
		json.Int64(mesh.TriangleCount());
		json.Key("first_vertex");
		json.Int(info.map.meshFirstVertex[m]);
		json.Key("first_polygon");
		json.Int(info.map.meshFirstPolygon[m]);
		json.Key("skinned");
		json.Bool(mesh.IsSkinned());
		json.Key("materials");
		json.StartArray();
		for (const CUtlString &material : mesh.m_Materials)
			WriteString(json, material);
		json.EndArray();
		json.EndObject();
	}
	json.EndArray();
	json.Key("topology");
	json.StartObject();
	json.Key("isolated_edges");
	json.Int(report.nIsolatedEdges);
	json.Key("nonmanifold_edges");
	json.Int(report.nNonManifoldEdges);
	json.Key("border_edges");
	json.Int(report.nBorderEdges);
	json.Key("unwelded");
	json.Bool(report.bUnwelded);
	json.Key("flipped");
	json.Bool(report.bFlipped);
	WriteEdges(json, "isolated_edge_list", report.isolatedEdges);
	WriteEdges(json, "nonmanifold_edge_list", report.nonManifoldEdges);
	WriteEdges(json, "border_edge_list", report.borderEdges);
	WriteInts(json, "unwelded_vertices", report.unweldedVertices);
	WriteInts(json, "flipped_faces", report.flippedFaces);
	json.Key("flipped_edge");
	if (report.bFlipped)
	{
		json.StartArray();
		json.Int(report.flippedEdge.nVertex0);
		json.Int(report.flippedEdge.nVertex1);
		json.EndArray();
	}
	else
		json.Null();
	json.Key("degenerate_polygons");
	json.Int(info.map.nDegeneratePolygons);
	json.EndObject();
	json.EndObject();
	fwrite(buffer.GetString(), 1, buffer.GetSize(), stdout);
	fputc('\n', stdout);
}

// Up to `limit` entries of a list, then how many more.
template <typename T, typename Print> void PrintList(const char *label, const std::vector<T> &values, Print print, size_t limit = 12)
{
	if (values.empty())
		return;
	printf("    %s:", label);
	for (size_t i = 0; i < values.size() && i < limit; ++i)
	{
		printf(" ");
		print(values[i]);
	}
	if (values.size() > limit)
		printf(" ... (%zu more)", values.size() - limit);
	printf("\n");
}

void PrintText(const char *path, const SourceInfo_t &info)
{
	const SourceScene_t &scene = info.scene;
	const MeshTopologyReport_t &report = info.report;
	printf("file: %s\n", path);
	for (const CUtlString &warning : info.warnings)
		printf("warning: %s\n", warning.c_str());
	printf("format: %s (version %d)\n", info.format.c_str(), scene.nFormatVersion);
	printf("vertices: %lld\n", (long long)scene.PositionCount());
	printf("polygons: %lld\n", (long long)scene.PolygonCount());
	printf("triangles: %lld\n", (long long)scene.TriangleCount());
	printf("meshes: %zu\n", scene.meshes.size());
	for (const CSourceMesh &mesh : scene.meshes)
	{
		printf("  %s: %d vertices, %d polygons, %lld triangles%s", mesh.m_Name.c_str(), mesh.PositionCount(), mesh.PolygonCount(),
			(long long)mesh.TriangleCount(), mesh.IsSkinned() ? ", skinned" : "");
		for (size_t i = 0; i < mesh.m_Materials.size(); ++i)
			printf("%s%s", i ? ", " : "; materials: ", mesh.m_Materials[i].c_str());
		printf("\n");
	}
	printf("bones: %zu\n", scene.joints.size());
	for (const SourceJoint_t &joint : scene.joints)
		printf("  %s%s%s\n", joint.name.c_str(), joint.nParent >= 0 ? " (parent " : "",
			joint.nParent >= 0 ? (scene.joints[joint.nParent].name + ")").c_str() : "");
	printf("animations: %zu\n", scene.animations.size());
	for (const SourceAnimation_t &animation : scene.animations)
		printf("  %s: %d frames at %g fps\n", animation.name.c_str(), animation.nFrameCount, animation.flFps);
	auto printEdge = [](const MeshEdge_t &edge) { printf("%d-%d", edge.nVertex0, edge.nVertex1); };
	auto printInt = [](int32 value) { printf("%d", value); };
	printf("topology:\n");
	printf("  isolated edges: %d\n", report.nIsolatedEdges);
	PrintList("edges", report.isolatedEdges, printEdge);
	printf("  non-manifold edges: %d\n", report.nNonManifoldEdges);
	PrintList("edges", report.nonManifoldEdges, printEdge);
	printf("  border edges: %d\n", report.nBorderEdges);
	PrintList("edges", report.borderEdges, printEdge);
	printf("  unwelded: %s\n", report.bUnwelded ? "yes" : "no");
	PrintList("vertices", report.unweldedVertices, printInt);
	printf("  flipped: %s\n", report.bFlipped ? "yes" : "no");
	PrintList("faces", report.flippedFaces, printInt);
	if (info.map.nDegeneratePolygons)
		printf("  degenerate polygons: %d\n", info.map.nDegeneratePolygons);
}

int Info(int argc, char **argv)
{
	bool bJson = false;
	const char *path = nullptr;
	for (int i = 0; i < argc; ++i)
	{
		if (strcmp(argv[i], "--json") == 0)
			bJson = true;
		else if (argv[i][0] == '-' && argv[i][1])
			return Usage(V_Format("unknown option %s", argv[i]).c_str());
		else if (path)
			return Usage("info takes one SOURCE");
		else
			path = argv[i];
	}
	if (!path)
		return Usage("info needs a SOURCE");
	SourceInfo_t info;
	CUtlString error;
	if (!LoadInfo(path, info, error))
	{
		fprintf(stderr, "mintyard_mesh: %s\n", error.c_str());
		return 1;
	}
	for (const CUtlString &warning : info.warnings)
		fprintf(stderr, "mintyard_mesh: warning: %s\n", warning.c_str());
	if (bJson)
		PrintJson(path, info);
	else
		PrintText(path, info);
	return fflush(stdout) == 0 ? 0 : 1;
}

int Convert(int argc, char **argv)
{
	const char *encoding = DMX_ENCODING_BINARY;
	const char *paths[2] = { nullptr, nullptr };
	int count = 0;
	for (int i = 0; i < argc; ++i)
	{
		if (strcmp(argv[i], "--text") == 0)
			encoding = DMX_ENCODING_KEYVALUES2;
		else if (strcmp(argv[i], "--binary") == 0)
			encoding = DMX_ENCODING_BINARY;
		else if (argv[i][0] == '-' && argv[i][1])
			return Usage(V_Format("unknown option %s", argv[i]).c_str());
		else if (count < 2)
			paths[count++] = argv[i];
		else
			return Usage("convert takes IN and OUT");
	}
	if (count != 2)
		return Usage("convert needs IN and OUT");
	const std::filesystem::path out(paths[1]);
	if (!V_StrEqualNoCase(out.extension().string(), ".dmx"))
		return Usage("OUT must be a .dmx file: meshes are converted to DMX");

	CUtlBuffer bytes;
	CUtlString error;
	if (!Plat_ReadFile(paths[0], bytes, &error))
	{
		fprintf(stderr, "mintyard_mesh: %s\n", error.c_str());
		return 1;
	}
	CDmxDocument document;
	const SourceFormat_t format = DetectSourceFormat(bytes.View());
	bool bOk = false;
	const char *formatName = "model";
	if (format == SOURCE_FORMAT_DMX)
	{
		bOk = DmxLoadBuffer(bytes.Base(), bytes.Size(), paths[0], document, &error);
		if (bOk && !document.GetFormatName().empty())
			formatName = document.GetFormatName().c_str();
	}
	else if (format == SOURCE_FORMAT_FBX_BINARY || format == SOURCE_FORMAT_FBX_ASCII)
	{
		SourceScene_t scene;
		bOk = LoadFbxSourceScene(paths[0], scene, error) &&
			  BuildDmxScene(scene, std::filesystem::path(paths[0]).stem().string().c_str(), document, error);
	}
	else
		error = CUtlString(paths[0]) + ": neither an FBX nor a DMX file";
	if (!bOk)
	{
		fprintf(stderr, "mintyard_mesh: %s\n", error.c_str());
		return 1;
	}
	if (!DmxSaveFile(paths[1], document.GetRoot(), encoding, formatName, DMX_CURRENT_FORMAT_VERSION, &error))
	{
		fprintf(stderr, "mintyard_mesh: %s\n", error.c_str());
		return 1;
	}
	return 0;
}
} // namespace

int main(int argc, char **argv)
{
	if (argc < 2)
		return Usage();
	if (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0 || strcmp(argv[1], "help") == 0)
	{
		fputs(s_Usage, stdout);
		return 0;
	}
	if (strcmp(argv[1], "info") == 0)
		return Info(argc - 2, argv + 2);
	if (strcmp(argv[1], "convert") == 0)
		return Convert(argc - 2, argv + 2);
	return Usage(V_Format("unknown command %s", argv[1]).c_str());
}
