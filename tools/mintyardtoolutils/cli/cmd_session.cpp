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
#include "sessioncommand.h"
#include "mintyardtoolutils/core/importmessages.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/core/sessionfile.h"
#include "mintyardtoolutils/pipeline/importdriver.h"
#include "toolframework/localize.h"
#include "toolframework/toolframework.h"


int Command_Validate(const CUtlVector<CUtlString> &args)
{
	SessionCommand_t command("validate", "--game DIR [--tokens] [--relaxed] SESSION");
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
	SessionCommand_t command("import", "--game DIR [--tokens] [--relaxed] SESSION");
	if (int nResult = command.Start(args))
		return nResult;
	const bool bTokens = HasFlag(args, "--tokens");
	if (!command.LoadSession(bTokens))
		return 1;
	command.SetSearchPathsFromGame();
	CStandardErrorImportLog log;
	ImportMessageList list;
	list.SetLog(&log);
	RunImport(&command.session, false, list, HasFlag(args, "--relaxed"));
	PrintEntries(stdout, list, bTokens);
	return list.GetErrorCount() > 0 ? 1 : 0;
}

int Command_Zip(const CUtlVector<CUtlString> &args)
{
	SessionCommand_t command("zip", "--game DIR SESSION");
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
	SessionCommand_t command("unzip", "--game DIR ZIP");
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
