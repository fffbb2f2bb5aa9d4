// The resource compiler's speed, in one run:
// - compiling a 100,000-triangle skinned model with one animation (ASCII FBX written here),
//   against assimp's own import of the same file with the flags the compiler gives it;
// - loading the compiled model, against that same import;
// - compiling a material with eleven 2048 x 2048 textures limited to 1024 (wall time).
// Goals: the compile within 1.5 times the import, the load at least 20 times faster than the
// import, the material under 1.5 s on two cores.
#include <cmath>
#include <filesystem>
#include <memory>

#include <assimp/cimport.h>
#include <assimp/config.h>
#include <assimp/scene.h>
#include <benchmark/benchmark.h>

#include "compiledassets/compiledassets.h"
#include "core/fileio.h"
#include "imaging/imagewrite.h"
#include "meshio/assimp/assimpscene.h"
#include "resourcecompiler/resourcecompiler.h"
#include "testsupport/fbx_scene_writer.h"
#include "testimages.h"

namespace
{
const int kSegments = 250; // around the tube
const int kRings = 201;	   // along it: 250 x 200 quads = 100,000 triangles
const int kBones = 50;
const int kFrames = 30;

// <temp>/content/bench and <temp>/game/bench with the sources, made once.
class CBenchTree
{
public:
	static CBenchTree &Get()
	{
		static CBenchTree tree;
		return tree;
	}
	~CBenchTree()
	{
		std::error_code ignored;
		std::filesystem::remove_all(m_Root, ignored);
	}
	std::string Content(const std::string &relative) const { return m_Root + "/content/bench/" + relative; }
	std::string Game(const std::string &relative) const { return m_Root + "/game/bench/" + relative; }

	void MakeModel()
	{
		if (m_bModel)
			return;
		m_bModel = true;
		FbxWriterScene_t scene;
		for (int b = 0; b < kBones; ++b)
			scene.joints.push_back(FbxWriterJoint_t{ "bone" + std::to_string(b), b - 1, Vector(0, b ? 4.0f : 0.0f, 0), Vector() });
		FbxWriterMesh_t mesh;
		mesh.name = "tube";
		mesh.bSmoothNormals = true;
		const double height = 4.0 * (kBones - 1);
		for (int r = 0; r < kRings; ++r)
		{
			const double y = height * r / (kRings - 1);
			for (int s = 0; s < kSegments; ++s)
			{
				const double angle = 6.283185307179586 * s / kSegments;
				mesh.positions.push_back(Vector((float)(10.0 * std::cos(angle)), (float)y, (float)(10.0 * std::sin(angle))));
				const double along = y / 4.0;
				const int bone = std::min(kBones - 1, (int)along);
				const double t = along - bone;
				if (bone + 1 < kBones && t > 0.0)
					mesh.weights.push_back({ { bone, 1.0 - t }, { bone + 1, t } });
				else
					mesh.weights.push_back({ { bone, 1.0 } });
			}
		}
		for (int r = 0; r + 1 < kRings; ++r)
		{
			for (int s = 0; s < kSegments; ++s)
			{
				const int a = r * kSegments + s, b = r * kSegments + (s + 1) % kSegments;
				const int c = (r + 1) * kSegments + (s + 1) % kSegments, d = (r + 1) * kSegments + s;
				mesh.polygons.push_back({ a, d, c, b });
				// Texture coordinates around the tube, with the seam where they wrap.
				const float u0 = (float)s / kSegments, u1 = (float)(s + 1) / kSegments;
				const float v0 = (float)r / (kRings - 1), v1 = (float)(r + 1) / (kRings - 1);
				mesh.cornerUVs.insert(mesh.cornerUVs.end(), { Vector2D(u0, v0), Vector2D(u0, v1), Vector2D(u1, v1), Vector2D(u1, v0) });
			}
		}
		scene.meshes.push_back(std::move(mesh));
		FbxWriterAnimation_t animation;
		animation.name = "bend";
		animation.frameCount = kFrames;
		for (int f = 0; f < kFrames; ++f)
		{
			for (const FbxWriterJoint_t &joint : scene.joints)
			{
				animation.translations.push_back(joint.translation);
				animation.rotations.push_back(Vector(0, 0, (float)(10.0 * std::sin(f * 0.2))));
			}
		}
		scene.animations.push_back(std::move(animation));
		Write("models/tube.fbx", WriteFbxScene(scene));
		Write("materials/tube.zmat", "\"Layer0\"\n{\n\t\"Shader\"\t\"hero.zfx\"\n\t\"TextureColor\"\t\"[1 1 1 1]\"\n}\n");
		Write("models/tube.zmdl",
			"<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:modeldoc32:version{8ba9eb32-178d-4b95-a5d4-53826fa12ff1} -->\n"
			"{ rootNode = { _class = \"RootNode\" children = [\n"
			"\t{ _class = \"RenderMeshList\" children = [ { _class = \"RenderMeshFile\" name = \"tube\" filename = \"models/tube.fbx\" } ] },\n"
			"\t{ _class = \"MaterialGroupList\" children = [ { _class = \"DefaultMaterialGroup\" use_global_default = true "
			"global_default_material = \"materials/tube.zmat\" } ] },\n"
			"\t{ _class = \"AnimationList\" children = [ { _class = \"AnimFile\" name = \"bend\" source_filename = \"models/tube.fbx\" looping = true } ] },\n"
			"\t{ _class = \"HitboxSetList\" children = [ { _class = \"HitboxSet_Auto\" name = \"default\" } ] },\n"
			"] } }\n");
	}

	void MakeMaterial()
	{
		if (m_bMaterial)
			return;
		m_bMaterial = true;
		const char *names[11] = { "color", "trans", "normal", "detailmask", "diffusemask", "metalnessmask", "selfillummask", "specmask", "rimmask",
			"basetintmask", "specexp" };
		const char *keys[11] = { "TextureColor", "TextureTranslucency", "TextureNormal", "TextureDetailMask", "TextureDiffuseWarpMask",
			"TextureMetalnessMask", "TextureSelfIllumMask", "TextureSpecularMask", "TextureRimMask", "TextureTintByBaseMask",
			"TextureSpecularExponent" };
		std::string material = "\"Layer0\"\n{\n\t\"Shader\"\t\"hero.zfx\"\n";
		for (int t = 0; t < 11; ++t)
		{
			const std::string file = std::string("materials/hero/hat_") + names[t] + ".png";
			const CImageRGBA8 image = t == 1 ? MakePhotoLikeImageWithAlpha(2048, 2048, (uint64)t + 1) : MakePhotoLikeImage(2048, 2048, (uint64)t + 1);
			std::filesystem::create_directories(std::filesystem::path(Content(file)).parent_path());
			Image_WritePNGFile(Content(file).c_str(), image);
			Write(std::string("materials/hero/hat_") + names[t] + ".txt", "\"settings\"\n{\n\t\"maxres\"\t\"1024\"\n}\n");
			material += std::string("\t\"") + keys[t] + "\"\t\"" + file + "\"\n";
		}
		material += "}\n";
		Write("materials/hero/hat.zmat", material);
	}

private:
	CBenchTree()
	{
		char pattern[] = "/tmp/resourcecompiler_bench_XXXXXX";
		m_Root = mkdtemp(pattern) ? pattern : "/tmp/resourcecompiler_bench";
		std::filesystem::create_directories(Game(""));
	}
	void Write(const std::string &relative, const std::string &text)
	{
		const std::string path = Content(relative);
		std::filesystem::create_directories(std::filesystem::path(path).parent_path());
		Plat_WriteFileAtomic(path.c_str(), text.data(), text.size());
	}

	std::string m_Root;
	bool m_bModel = false;
	bool m_bMaterial = false;
};

bool Compile(const std::string &path)
{
	CCompileLog log(nullptr, nullptr);
	CResourceCompiler compiler(log);
	return compiler.CompileFile(path.c_str());
}

// assimp's import as the compiler asks for it.
const aiScene *AssimpImport(const std::string &path)
{
	aiPropertyStore *store = aiCreatePropertyStore();
	aiSetImportPropertyInteger(store, AI_CONFIG_IMPORT_FBX_PRESERVE_PIVOTS, 0);
	const aiScene *scene = aiImportFileExWithProperties(path.c_str(), MeshioAssimpFlags(), nullptr, store);
	aiReleasePropertyStore(store);
	return scene;
}

void BM_AssimpImport(benchmark::State &state)
{
	CBenchTree &tree = CBenchTree::Get();
	tree.MakeModel();
	const std::string path = tree.Content("models/tube.fbx");
	for (auto _ : state)
	{
		const aiScene *scene = AssimpImport(path);
		if (!scene)
		{
			state.SkipWithError(aiGetErrorString());
			return;
		}
		benchmark::DoNotOptimize(scene->mNumMeshes);
		aiReleaseImport(scene);
	}
	state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)std::filesystem::file_size(path));
}

void BM_CompileModel(benchmark::State &state)
{
	CBenchTree &tree = CBenchTree::Get();
	tree.MakeModel();
	const std::string path = tree.Content("models/tube.zmdl");
	for (auto _ : state)
	{
		if (!Compile(path))
		{
			state.SkipWithError("the model did not compile");
			return;
		}
	}
	CCompiledModel model;
	LoadCompiledModel(tree.Game("models/tube.zmdl_c").c_str(), model);
	state.counters["triangles"] = model.m_Meshes.empty() ? 0.0 : (double)model.m_Meshes[0].PrimitiveCount();
	state.counters["vertices"] = model.m_Meshes.empty() ? 0.0 : (double)model.m_Meshes[0].VertexCount();
	state.counters["frames"] = model.m_Sequences.empty() ? 0.0 : (double)model.m_Sequences[0].m_nFrameCount;
}

void BM_LoadCompiledModel(benchmark::State &state)
{
	CBenchTree &tree = CBenchTree::Get();
	tree.MakeModel();
	const std::string compiled = tree.Game("models/tube.zmdl_c");
	if (!Plat_FileExists(compiled.c_str()) && !Compile(tree.Content("models/tube.zmdl")))
	{
		state.SkipWithError("the model did not compile");
		return;
	}
	for (auto _ : state)
	{
		CCompiledModel model;
		CUtlString error;
		if (!LoadCompiledModel(compiled.c_str(), model, &error))
		{
			state.SkipWithError(error.c_str());
			return;
		}
		benchmark::DoNotOptimize(model.m_Meshes.data());
	}
	state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)std::filesystem::file_size(compiled));
}

void BM_CompileMaterialWithElevenTextures(benchmark::State &state)
{
	CBenchTree &tree = CBenchTree::Get();
	tree.MakeMaterial();
	const std::string path = tree.Content("materials/hero/hat.zmat");
	for (auto _ : state)
	{
		if (!Compile(path))
		{
			state.SkipWithError("the material did not compile");
			return;
		}
	}
}
} // namespace

BENCHMARK(BM_AssimpImport)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_CompileModel)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_LoadCompiledModel)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_CompileMaterialWithElevenTextures)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

BENCHMARK_MAIN();
