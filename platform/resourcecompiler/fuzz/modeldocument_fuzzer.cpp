// Compiles arbitrary model documents against a small content tree made at start: a skinned,
// animated creature as DMX (made through the data model) and as ASCII FBX, and a material of
// constants. Whatever the document says (names, references, frame ranges and rates, LODs, blends,
// weights, remaps, hitboxes, snapshots), the compile must end with a result and messages, never a
// crash, a hang or memory without bound, and what it writes must load back.
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "compiledassets/compiledassets.h"
#include "core/fileio.h"
#include "core/logging.h"
#include "datamodel/dmxio.h"
#include "meshio/dmxmesh.h"
#include "meshio/meshsource.h"
#include "resourcecompiler/resourcecompiler.h"
#include "testsupport/fbx_scene_writer.h"

namespace
{
class CQuiet : public ILoggingListener
{
public:
	void Log(const LoggingContext_t &, const char *) override {}
};

struct Tree_t
{
	std::string root;
	std::string content;
	std::string game;
	~Tree_t()
	{
		std::error_code ignored;
		if (!root.empty())
			std::filesystem::remove_all(root, ignored);
	}
};

void Write(const std::string &path, const std::string &text)
{
	std::filesystem::create_directories(std::filesystem::path(path).parent_path());
	Plat_WriteFileAtomic(path.c_str(), text.data(), text.size());
}

void MakeTree(Tree_t &made)
{
	{
		// tmpfs where there is one: every compile writes its output whole and flushes it.
		const char *base = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
		std::string pattern = std::string(base) + "/modeldocument_fuzzer_XXXXXX";
		made.root = mkdtemp(pattern.data()) ? pattern : std::string(base) + "/modeldocument_fuzzer";
		made.content = made.root + "/content/zarn";
		made.game = made.root + "/game/zarn";
		std::filesystem::create_directories(made.game);

		FbxWriterScene_t fbx;
		fbx.joints = { { "root", -1, Vector(0, 0, 0), Vector(0, 0, 0) }, { "spine", 0, Vector(0, 10, 0), Vector(0, 0, 15) },
			{ "head", 1, Vector(0, 8, 0), Vector(0, 0, 0) } };
		FbxWriterMesh_t mesh;
		mesh.name = "body";
		mesh.materials = { "body", "cap" };
		mesh.positions = { { -2, 0, -2 }, { 2, 0, -2 }, { 2, 0, 2 }, { -2, 0, 2 }, { -2, 18, -2 }, { 2, 18, -2 }, { 2, 18, 2 }, { -2, 18, 2 }, { 0, 22, 0 } };
		mesh.polygons = { { 0, 1, 2, 3 }, { 0, 4, 5, 1 }, { 1, 5, 6, 2 }, { 2, 6, 7, 3 }, { 3, 7, 4, 0 }, { 4, 8, 5 }, { 5, 8, 6 }, { 6, 8, 7 }, { 7, 8, 4 } };
		mesh.polygonMaterial = { 1, 0, 0, 0, 0, 1, 1, 1, 1 };
		for (size_t p = 0; p < mesh.positions.size(); ++p)
			mesh.weights.push_back(p < 4 ? std::vector<std::pair<int, double>>{ { 0, 1.0 } }
										 : std::vector<std::pair<int, double>>{ { 1, 0.5 }, { 2, 0.5 } });
		fbx.meshes.push_back(mesh);
		Write(made.content + "/models/body.fbx", WriteFbxScene(fbx));

		SourceScene_t scene;
		CUtlString error;
		LoadSourceScene((made.content + "/models/body.fbx").c_str(), scene, error);
		SourceAnimation_t animation;
		animation.name = "sway";
		animation.flFps = 30.0f;
		animation.nFrameCount = 6;
		for (int f = 0; f < animation.nFrameCount; ++f)
		{
			for (const SourceJoint_t &joint : scene.joints)
			{
				SourceTransform_t pose = joint.bindLocal;
				pose.position.x += 0.5f * f;
				animation.frames.push_back(pose);
			}
		}
		scene.animations.push_back(animation);
		CDmxDocument document;
		if (BuildDmxScene(scene, "body", document, error))
			DmxSaveFile((made.content + "/models/body.dmx").c_str(), document.GetRoot(), DMX_ENCODING_BINARY, "model", DMX_CURRENT_FORMAT_VERSION, &error);
		const std::string material = "\"Layer0\"\n{\n\t\"Shader\"\t\"hero.zfx\"\n\t\"TextureColor\"\t\"[1 0.5 0.25 1]\"\n}\n";
		for (const char *name : { "/materials/body.zmat", "/materials/cap.zmat", "/materials/gold.zmat" })
			Write(made.content + name, material);
	}
}

const Tree_t &Tree()
{
	static Tree_t tree;
	static const bool bMade = (MakeTree(tree), true);
	(void)bMade;
	return tree;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	static CQuiet quiet;
	static const bool bQuiet = [] {
		LoggingSystem_PushLoggingState(true);
		LoggingSystem_RegisterLoggingListener(&quiet);
		return true;
	}();
	(void)bQuiet;
	const Tree_t &tree = Tree();
	const std::string document = tree.content + "/models/x.zmdl";
	const std::string output = tree.game + "/models/x.zmdl_c";
	Plat_WriteFileAtomic(document.c_str(), data, size);
	std::error_code ignored;
	std::filesystem::remove(output, ignored);

	// MODELDOCUMENT_FUZZER_VERBOSE=1 shows the compile's lines (to see what a seed reaches).
	static const bool bVerbose = getenv("MODELDOCUMENT_FUZZER_VERBOSE") != nullptr;
	CCompileLog log(bVerbose ? stderr : nullptr, bVerbose ? stderr : nullptr);
	ResourceCompilerOptions_t options;
	options.nThreads = 1;
	CResourceCompiler compiler(log, options);
	const bool bCompiled = compiler.CompileFile(document.c_str());
	if (bCompiled != (log.ErrorCount() == 0))
		__builtin_trap();
	if (bCompiled)
	{
		CCompiledModel model;
		CUtlString error;
		if (!LoadCompiledModel(output.c_str(), model, &error))
			__builtin_trap();
	}
	else if (Plat_FileExists(output.c_str()))
		__builtin_trap();
	return 0;
}
