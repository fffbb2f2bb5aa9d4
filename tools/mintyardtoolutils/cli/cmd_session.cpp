// The session subcommands:
//
// A session file may name its files relative to its own folder.
//
//   mintyard validate --game DIR [--tokens] [--relaxed] SESSION
//       every validation message of a session file, one per line, "error: TEXT" or
//       "warning: TEXT"; with --tokens the untranslated token and its set arguments, separated
//       by tabs. Exit code 1 when any message is an error.
//   mintyard zip --game DIR SESSION
//       builds the submission zip of a session file and prints its path.
//   mintyard unzip --game DIR ZIP
//       loads a submission zip, writes it back as a session file beside the unpacked folder and
//       prints that file's path.
//   mintyard import --game DIR [--tokens] [--relaxed] SESSION
//       the import run of the wizard on a session file: files placed under <root>/content/<mod>
//       and compiled into <root>/game/<mod>; its messages as validate prints them, its progress
//       and the compiler's lines on standard error. Exit code 1 when any message is an error.
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "core/strtools.h"
#include "mintyardcommands.h"
#include "mintyardtoolutils/core/importmessages.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/core/sessionfile.h"
#include "mintyardtoolutils/pipeline/importdriver.h"
#include "toolframework/localize.h"
#include "toolframework/toolframework.h"

namespace
{
// The one argument that is neither an option nor an option's value.
bool FindOperand(const CUtlVector<CUtlString> &args, CUtlString &operand)
{
	static const char *const s_OptionsWithValue[] = { "--game" };
	int nFound = 0;
	for (size_t i = 0; i < args.size(); ++i)
	{
		bool bTakesValue = false;
		for (const char *pszOption : s_OptionsWithValue)
			bTakesValue = bTakesValue || args[i] == pszOption;
		if (bTakesValue)
		{
			++i;
			continue;
		}
		if (args[i].compare(0, 2, "--") == 0)
			continue;
		operand = args[i];
		++nFound;
	}
	return nFound == 1;
}

void PrintEntry(FILE *out, const MintyardImportMessageEntry_t &entry, bool bTokens)
{
	const char *pszKind = entry.isError ? "error" : "warning";
	if (!bTokens)
	{
		fprintf(out, "%s: %s\n", pszKind, FormatImportMessage(entry, Localize()).c_str());
		return;
	}
	CUtlString line = entry.Message();
	for (int i = 1; i < MintyardImportMessageEntry_t::SLOT_COUNT; ++i)
	{
		if (entry.HasArg(i))
			line += "\t" + entry.Arg(i);
	}
	fprintf(out, "%s: %s\n", pszKind, line.c_str());
}

void PrintEntries(FILE *out, const ImportMessageList &list, bool bTokens)
{
	for (int i = 0; i < list.Count(); ++i)
		PrintEntry(out, list[i], bTokens);
}

// Parses the common arguments, starts the game's services and loads the catalogue.
struct SessionCommand_t
{
	const char *pszName;
	const char *pszUsage;
	CUtlString operand;
	CUtlString gameDirectory;
	CToolFrameworkHost host;
	CMintyardImportSession session;

	// 0 when ready, otherwise the exit code.
	int Start(const CUtlVector<CUtlString> &args)
	{
		bool bMissingValue = false;
		if (!FindOption(args, "--game", gameDirectory, &bMissingValue))
		{
			fprintf(stderr, "mintyard %s: %s\nusage: mintyard %s %s\n", pszName,
				bMissingValue ? "--game needs a folder" : "the game folder is missing (--game DIR)", pszName, pszUsage);
			return 2;
		}
		if (!FindOperand(args, operand))
		{
			fprintf(stderr, "mintyard %s: give exactly one file\nusage: mintyard %s %s\n", pszName, pszName, pszUsage);
			return 2;
		}
		if (!StartGameServices(host, gameDirectory))
			return 1;
		ImportMessageList list;
		if (!session.GetCatalogue().LoadTemplates(list))
		{
			PrintEntries(stderr, list, false);
			return 1;
		}
		return 0;
	}

	// Relative file names in the session are taken relative to the session file's folder.
	bool LoadSession(bool bTokens)
	{
		return LoadCommandSession(session, pszName, operand, bTokens);
	}
};
} // namespace

bool LoadCommandSession(CMintyardImportSession &session, const char *pszCommand, const CUtlString &sessionFile, bool bTokens)
{
	ImportMessageList list;
	const std::filesystem::path sessionPath = std::filesystem::absolute(std::filesystem::path(sessionFile.c_str())).lexically_normal();
	LoadContext ctx;
	ctx.rewritePaths = true;
	ctx.basePath = sessionPath.parent_path().string();
	if (LoadSessionFile(session, ctx, sessionPath.c_str(), list))
		return true;
	fprintf(stderr, "mintyard %s: cannot load the session %s\n", pszCommand, sessionFile.c_str());
	PrintEntries(stderr, list, bTokens);
	return false;
}

void SetCommandSearchPaths(CMintyardImportSession &session, const CUtlString &gameDirectory)
{
	// The game folder <root>/game/<mod> goes with the content root <root>/content/<mod>.
	std::filesystem::path game = std::filesystem::absolute(gameDirectory.c_str()).lexically_normal();
	// "zarn/" as a shell completes it names the same folder as "zarn".
	if (!game.has_filename() && game.has_parent_path())
		game = game.parent_path();
	const std::filesystem::path content = game.parent_path().parent_path() / "content" / game.filename();
	session.SetSearchPaths(game.string().c_str(), content.string().c_str());
}

int Command_Validate(const CUtlVector<CUtlString> &args)
{
	SessionCommand_t command{ "validate", "--game DIR [--tokens] [--relaxed] SESSION", {}, {}, {}, {} };
	if (int nResult = command.Start(args))
		return nResult;
	const bool bTokens = HasFlag(args, "--tokens");
	if (!command.LoadSession(bTokens))
		return 1;
	ImportMessageList list;
	command.session.ValidateAll(list, HasFlag(args, "--relaxed"));
	PrintEntries(stdout, list, bTokens);
	return list.GetErrorCount() > 0 ? 1 : 0;
}

namespace
{
// The run's progress lines (and the compiler's) go to standard error as they come.
class CStandardErrorImportLog : public IMintyardImportLog
{
public:
	void LogMessage(int, const char *pszText) override
	{
		fputs(pszText ? pszText : "", stderr);
		fflush(stderr);
	}
};
} // namespace

int Command_Import(const CUtlVector<CUtlString> &args)
{
	SessionCommand_t command{ "import", "--game DIR [--tokens] [--relaxed] SESSION", {}, {}, {}, {} };
	if (int nResult = command.Start(args))
		return nResult;
	const bool bTokens = HasFlag(args, "--tokens");
	if (!command.LoadSession(bTokens))
		return 1;
	SetCommandSearchPaths(command.session, command.gameDirectory);
	CStandardErrorImportLog log;
	ImportMessageList list;
	list.SetLog(&log);
	RunImport(&command.session, false, list, HasFlag(args, "--relaxed"));
	PrintEntries(stdout, list, bTokens);
	return list.GetErrorCount() > 0 ? 1 : 0;
}

int Command_Zip(const CUtlVector<CUtlString> &args)
{
	SessionCommand_t command{ "zip", "--game DIR SESSION", {}, {}, {}, {} };
	if (int nResult = command.Start(args))
		return nResult;
	if (!command.LoadSession(false))
		return 1;
	ImportMessageList list;
	CUtlString zipPath;
	const bool bOk = SaveSubmissionZip(command.session, zipPath, list);
	PrintEntries(stderr, list, false);
	if (!bOk)
		return 1;
	printf("%s\n", zipPath.c_str());
	return 0;
}

int Command_Unzip(const CUtlVector<CUtlString> &args)
{
	SessionCommand_t command{ "unzip", "--game DIR ZIP", {}, {}, {}, {} };
	if (int nResult = command.Start(args))
		return nResult;
	ImportMessageList list;
	CUtlString folder;
	if (!LoadSubmissionZip(command.session, command.operand.c_str(), list, &folder))
	{
		fprintf(stderr, "mintyard unzip: cannot load %s\n", command.operand.c_str());
		PrintEntries(stderr, list, false);
		return 1;
	}
	PrintEntries(stderr, list, false);
	list.Clear();
	const CUtlString sessionPath = folder + ".session.txt";
	if (!SaveSessionFile(command.session, sessionPath.c_str(), list))
	{
		PrintEntries(stderr, list, false);
		return 1;
	}
	printf("%s\n", sessionPath.c_str());
	return 0;
}
