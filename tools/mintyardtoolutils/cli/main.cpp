// `mintyard`: the import core without the user interface.
//
//   mintyard <command> [options]
//   mintyard help
#include <cstdio>
#include <cstring>

#include "core/logging.h"
#include "core/strtools.h"
#include "filesystem/filesystem.h"
#include "mintyardcommands.h"
#include "toolframework/toolframework.h"

const MintyardCommand_t g_MintyardCommands[] = {
	{ "templates", "--game DIR [--built]", "list the template catalogue of a game folder and its warnings", Command_Templates },
	{ "validate", "--game DIR [--tokens] [--relaxed] SESSION", "print the validation messages of a session file; exit code 1 on errors", Command_Validate },
	{ "zip", "--game DIR SESSION", "build the submission zip of a session file and print its path", Command_Zip },
	{ "unzip", "--game DIR ZIP", "load a submission zip, write it back as a session file and print its path", Command_Unzip },
	{ "import", "--game DIR [--tokens] [--relaxed] SESSION", "import a session file: place, compile and check its files; exit code 1 on errors",
		Command_Import },
	{ "portrait", "--game DIR SESSION --out FILE.png [--size N] [--model N] [--transparent]",
		"draw the icon of an imported session's model from its portrait block (needs a display; --help)", Command_Portrait },
	{ "render", "--game DIR (--model COMPILED | --session SESSION [--index N]) --out FILE.png [--size WxH] [--sequence NAME] [--frame N] [--yaw DEG] [--pitch DEG] [--problems]",
		"draw what the import preview shows into a PNG (needs a display: run it under xvfb-run on a console)", Command_Render },
	{ nullptr, nullptr, nullptr, nullptr },
};

namespace
{
void PrintUsage(FILE *out)
{
	fprintf(out, "usage: mintyard <command> [options]\n\ncommands:\n");
	for (const MintyardCommand_t *pCommand = g_MintyardCommands; pCommand->name; ++pCommand)
		fprintf(out, "  %s %s\n      %s\n", pCommand->name, pCommand->usage, pCommand->summary);
}
} // namespace

bool FindOption(const CUtlVector<CUtlString> &args, const char *name, CUtlString &value, bool *pbMissingValue)
{
	if (pbMissingValue)
		*pbMissingValue = false;
	for (size_t i = 0; i < args.size(); ++i)
	{
		if (args[i] != name)
			continue;
		if (i + 1 >= args.size())
		{
			if (pbMissingValue)
				*pbMissingValue = true;
			return false;
		}
		value = args[i + 1];
		return true;
	}
	return false;
}

bool ParseInt(const CUtlString &text, int &out)
{
	int64 value = 0;
	if (!V_ParseInt(text, -1000000, 1000000, value))
		return false;
	out = (int)value;
	return true;
}

bool HasFlag(const CUtlVector<CUtlString> &args, const char *name)
{
	for (const CUtlString &arg : args)
	{
		if (arg == name)
			return true;
	}
	return false;
}

bool StartGameServices(CToolFrameworkHost &host, const CUtlString &gameDirectory)
{
	ToolFrameworkConfig_t config;
	config.m_GameDirectory = gameDirectory;
	CUtlString error;
	if (!host.Init(config, &error))
	{
		fprintf(stderr, "mintyard: %s\n", error.c_str());
		return false;
	}
	// No tool connects here, so the command hands the file system to the import core itself.
	g_pFullFileSystem = host.FileSystem();
	return true;
}

int main(int argc, char **argv)
{
	if (argc < 2)
	{
		PrintUsage(stderr);
		return 2;
	}
	const char *name = argv[1];
	if (strcmp(name, "help") == 0 || strcmp(name, "--help") == 0 || strcmp(name, "-h") == 0)
	{
		PrintUsage(stdout);
		return 0;
	}
	for (const MintyardCommand_t *pCommand = g_MintyardCommands; pCommand->name; ++pCommand)
	{
		if (strcmp(pCommand->name, name) != 0)
			continue;
		CUtlVector<CUtlString> args;
		for (int i = 2; i < argc; ++i)
			args.push_back(argv[i]);
		const int result = pCommand->run(args);
		g_pFullFileSystem = nullptr;
		return result;
	}
	fprintf(stderr, "mintyard: unknown command '%s'\n\n", name);
	PrintUsage(stderr);
	return 2;
}
