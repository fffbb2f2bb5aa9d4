// Reading the geometry of a 100,000-triangle FBX: our reader against assimp's import with the
// flags the compiler uses, on the same files (ASCII and binary) written here first.
//
//   build/bench/meshio_bench
#include <cstdio>
#include <filesystem>
#include <string>
#include <unistd.h>

#include <assimp/cimport.h>
#include <assimp/scene.h>
#include <benchmark/benchmark.h>

#include "core/fileio.h"
#include "meshio/assimp/assimpscene.h"
#include "meshio/fbxscene.h"
#include "meshio/meshtopology.h"
#include "meshio/tests/fbx_binary_builder.h"
#include "testsupport/fbx_test_writer.h"

namespace
{
constexpr int GRID_X = 250;
constexpr int GRID_Y = 200; // 250 x 200 quads: 100,000 triangles

// A rolling grid of quads with normals and UVs.
FbxTestMesh_t GridMesh()
{
	FbxTestMesh_t mesh;
	mesh.name = "grid";
	for (int y = 0; y <= GRID_Y; ++y)
	{
		for (int x = 0; x <= GRID_X; ++x)
			mesh.positions.push_back(Vector(x * 0.01f, y * 0.01f, 0.05f * std::sin(x * 0.1f) * std::cos(y * 0.13f)));
	}
	for (int y = 0; y < GRID_Y; ++y)
	{
		for (int x = 0; x < GRID_X; ++x)
		{
			const int a = y * (GRID_X + 1) + x;
			mesh.polygons.push_back({ a, a + 1, a + GRID_X + 2, a + GRID_X + 1 });
			const float u0 = (float)x / GRID_X, u1 = (float)(x + 1) / GRID_X, v0 = (float)y / GRID_Y, v1 = (float)(y + 1) / GRID_Y;
			const float uv[8] = { u0, v0, u1, v0, u1, v1, u0, v1 };
			mesh.uvs.insert(mesh.uvs.end(), uv, uv + 8);
		}
	}
	return mesh;
}

std::string BinaryGrid(const FbxTestMesh_t &mesh)
{
	using namespace fbxbinary;
	std::vector<double> vertices, normals, uvs;
	std::vector<int32> indices;
	for (const Vector &p : mesh.positions)
		vertices.insert(vertices.end(), { p.x, p.y, p.z });
	for (const std::vector<int> &polygon : mesh.polygons)
	{
		for (size_t i = 0; i < polygon.size(); ++i)
		{
			indices.push_back(i + 1 == polygon.size() ? ~polygon[i] : polygon[i]);
			normals.insert(normals.end(), { 0.0, 0.0, 1.0 });
		}
	}
	uvs.assign(mesh.uvs.begin(), mesh.uvs.end());
	std::vector<FbxBinaryNode_t> top;
	FbxBinaryNode_t header{ "FBXHeaderExtension", {}, {} };
	header.Add("FBXVersion").properties = { Int32(7500) };
	top.push_back(header);
	FbxBinaryNode_t objects{ "Objects", {}, {} };
	FbxBinaryNode_t &geometry = objects.Add("Geometry");
	geometry.properties = { Int64(10), ObjectName("grid", "Geometry"), String("Mesh") };
	geometry.Add("Vertices").properties = { Array('d', vertices, true) };
	geometry.Add("PolygonVertexIndex").properties = { Array('i', indices, true) };
	FbxBinaryNode_t &normal = geometry.Add("LayerElementNormal");
	normal.properties = { Int32(0) };
	normal.Add("MappingInformationType").properties = { String("ByPolygonVertex") };
	normal.Add("ReferenceInformationType").properties = { String("Direct") };
	normal.Add("Normals").properties = { Array('d', normals, true) };
	FbxBinaryNode_t &uv = geometry.Add("LayerElementUV");
	uv.properties = { Int32(0) };
	uv.Add("MappingInformationType").properties = { String("ByPolygonVertex") };
	uv.Add("ReferenceInformationType").properties = { String("Direct") };
	uv.Add("UV").properties = { Array('d', uvs, true) };
	FbxBinaryNode_t &model = objects.Add("Model");
	model.properties = { Int64(20), ObjectName("grid", "Model"), String("Mesh") };
	model.Add("Version").properties = { Int32(232) };
	top.push_back(objects);
	FbxBinaryNode_t connections{ "Connections", {}, {} };
	connections.Add("C").properties = { String("OO"), Int64(20), Int64(0) };
	connections.Add("C").properties = { String("OO"), Int64(10), Int64(20) };
	top.push_back(connections);
	return WriteBinaryFbx(top, 7500);
}

struct BenchFiles_t
{
	std::string ascii, binary;
	BenchFiles_t()
	{
		const std::string folder = "/tmp/meshio_bench_" + std::to_string(getpid());
		std::filesystem::create_directories(folder);
		FbxTestScene_t scene;
		scene.meshes.push_back(GridMesh());
		const std::string text = WriteAsciiFbx(scene);
		const std::string bytes = BinaryGrid(scene.meshes[0]);
		ascii = folder + "/grid_ascii.fbx";
		binary = folder + "/grid_binary.fbx";
		Plat_WriteFileAtomic(ascii.c_str(), text.data(), text.size());
		Plat_WriteFileAtomic(binary.c_str(), bytes.data(), bytes.size());
	}
	~BenchFiles_t()
	{
		std::error_code ignored;
		std::filesystem::remove_all(std::filesystem::path(ascii).parent_path(), ignored);
	}
};

const BenchFiles_t &Files()
{
	static BenchFiles_t s_Files;
	return s_Files;
}

void OurReader(benchmark::State &state, const std::string &path)
{
	int64 triangles = 0;
	for (auto _ : state)
	{
		SourceScene_t scene;
		CUtlString error;
		if (!LoadFbxSceneFile(path.c_str(), scene, error))
		{
			state.SkipWithError(error.c_str());
			return;
		}
		triangles = scene.TriangleCount();
		benchmark::DoNotOptimize(scene.meshes.data());
	}
	state.counters["triangles"] = (double)triangles;
}

void Assimp(benchmark::State &state, const std::string &path)
{
	int64 triangles = 0;
	for (auto _ : state)
	{
		const aiScene *scene = aiImportFile(path.c_str(), MeshioAssimpFlags());
		if (!scene)
		{
			state.SkipWithError(aiGetErrorString());
			return;
		}
		triangles = 0;
		for (unsigned m = 0; m < scene->mNumMeshes; ++m)
			triangles += scene->mMeshes[m]->mNumFaces;
		aiReleaseImport(scene);
	}
	state.counters["triangles"] = (double)triangles;
}

void BM_OurFbxGeometry_Ascii(benchmark::State &state)
{
	OurReader(state, Files().ascii);
}
void BM_AssimpImport_Ascii(benchmark::State &state)
{
	Assimp(state, Files().ascii);
}
void BM_OurFbxGeometry_Binary(benchmark::State &state)
{
	OurReader(state, Files().binary);
}
void BM_AssimpImport_Binary(benchmark::State &state)
{
	Assimp(state, Files().binary);
}

// The tool's whole check of the same file: read, build the half-edge mesh, check.
void BM_OurTopologyCheck_Binary(benchmark::State &state)
{
	for (auto _ : state)
	{
		SourceScene_t scene;
		CUtlString error;
		LoadFbxSceneFile(Files().binary.c_str(), scene, error);
		MeshTopologyReport_t report;
		CheckSourceTopology(scene, report);
		benchmark::DoNotOptimize(report.nBorderEdges);
	}
}
} // namespace

BENCHMARK(BM_OurFbxGeometry_Ascii)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AssimpImport_Ascii)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OurFbxGeometry_Binary)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AssimpImport_Binary)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OurTopologyCheck_Binary)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
