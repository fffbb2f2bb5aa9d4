// resourcecompiler: compiles the sources of the content tree into the game tree, and describes
// and exports compiled files.
//
//   resourcecompiler [-game DIR] [--threads N] FILE...
//   resourcecompiler info [--json] FILE
//   resourcecompiler export TEXTURE OUT.png [--mip N]
//
// Exit status: 0 when everything compiled (or the command did its work), 1 when anything
// failed, 2 for a usage error.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "core/logging.h"
#include "core/strtools.h"
#include "resourcecompiler/resourcecompiler.h"

namespace
{
const char s_Usage[] =
	"usage: resourcecompiler [-game DIR] [--threads N] FILE...\n"
	"       resourcecompiler info [--json] FILE\n"
	"       resourcecompiler export TEXTURE OUT.png [--mip N]\n"
	"\n"
	"Compiles each source FILE (absolute, or relative to the working folder) from the content tree\n"
	"<root>/content/<mod> into the game tree <root>/game/<mod>: -game names <root>/game/<mod>; without it\n"
	"the game is found from the source's path. A compiled file lies at the source's content-relative path\n"
	"with \"_c\" appended (\"models/x.zmdl\" -> \"models/x.zmdl_c\"); an image takes its extension into the\n"
	"name (\"materials/x.png\" -> \"materials/x_png.ztex_c\"); a mesh given directly (.fbx, .dmx) becomes a\n"
	"particle snapshot (\"particles/x.fbx\" -> \"particles/x.zsnap\"). Sources:\n"
	"  .zmat   material (KeyValues \"Layer0\"): its textures are compiled too\n"
	"  .tga .png .psd .bmp .jpg   image: BC1, BC3 or RGBA8 with mips, limited by \"maxres\" of the .txt beside it\n"
	"  .ztex   texture recipe (DMX)\n"
	"  .zmdl   model document (KV3 modeldoc32): meshes, skeleton, sequences; its materials are compiled too\n"
	"Every compiled file is written whole or not at all. Lines starting with \"warning: \" and \"error: \"\n"
	"name the file and, where there is one, the line.\n"
	"\n"
	"info     describes a compiled file (model, texture, material, particle snapshot); --json as JSON\n"
	"export   decodes a mip of a compiled texture to a PNG\n"
	"\n"
	"Exit status: 0 when everything compiled, 1 when anything failed, 2 for a usage error.\n";

int Usage(const char *message)
{
	fprintf(stderr, "resourcecompiler: %s\n%s", message, s_Usage);
	return 2;
}

// What the platform's libraries log while compiling (a model document's ignored attributes, say)
// goes into the compile's lines with the same prefixes.
class CLogForwarder : public ILoggingListener
{
public:
	explicit CLogForwarder(CCompileLog &log) : m_Log(log) {}
	void Log(const LoggingContext_t &context, const char *message) override
	{
		CUtlString text = message ? message : "";
		while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
			text.pop_back();
		if (text.empty())
			return;
		if (context.severity >= LS_ERROR)
			m_Log.Error("", 0, "%s", text.c_str());
		else if (context.severity >= LS_WARNING)
			m_Log.Warning("", 0, "%s", text.c_str());
		else
			m_Log.Progress("%s", text.c_str());
	}

private:
	CCompileLog &m_Log;
};
} // namespace

int main(int argc, char **argv)
{
	setvbuf(stdout, nullptr, _IOLBF, 0);
	if (argc < 2)
		return Usage("no file to compile");
	if (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0 || strcmp(argv[1], "help") == 0)
	{
		fputs(s_Usage, stdout);
		return 0;
	}
	if (strcmp(argv[1], "info") == 0)
		return ResourceCompiler_InfoCommand(argc - 2, argv + 2);
	if (strcmp(argv[1], "export") == 0)
		return ResourceCompiler_ExportCommand(argc - 2, argv + 2);

	const char *game = nullptr;
	ResourceCompilerOptions_t options;
	std::vector<const char *> files;
	for (int i = 1; i < argc; ++i)
	{
		if (strcmp(argv[i], "-game") == 0 || strcmp(argv[i], "--game") == 0)
		{
			if (i + 1 >= argc || !*argv[i + 1])
				return Usage("-game needs a directory <root>/game/<mod>");
			game = argv[++i];
		}
		else if (strcmp(argv[i], "--threads") == 0)
		{
			int64 threads = 0;
			if (i + 1 >= argc || !V_ParseInt(argv[i + 1], 1, 64, threads))
				return Usage("--threads takes a number from 1 to 64");
			options.nThreads = (int)threads;
			++i;
		}
		else if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0)
		{
			fputs(s_Usage, stdout);
			return 0;
		}
		else if (argv[i][0] == '-' && argv[i][1])
			return Usage(V_Format("unknown option %s", argv[i]).c_str());
		else
			files.push_back(argv[i]);
	}
	if (files.empty())
		return Usage("no file to compile");
	if (game)
	{
		CompileRoots_t roots;
		CUtlString error;
		if (!ResourceCompiler_RootsFromGameDirectory(game, roots, error))
			return Usage(error.c_str());
	}

	CCompileLog log;
	CLogForwarder forwarder(log);
	LoggingSystem_PushLoggingState(true);
	LoggingSystem_RegisterLoggingListener(&forwarder);
	CResourceCompiler compiler(log, options);
	int failed = 0;
	for (const char *file : files)
	{
		if (!compiler.CompileFile(file, game))
			++failed;
	}
	LoggingSystem_PopLoggingState();
	if (files.size() > 1 || failed)
		log.Progress("%zu of %zu compiled, %d warnings", files.size() - (size_t)failed, files.size(), log.WarningCount());
	return failed ? 1 : 0;
}
