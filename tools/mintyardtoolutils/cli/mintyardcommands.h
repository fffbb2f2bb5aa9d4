// The subcommands of the `mintyard` command. Each takes the arguments after its name and returns
// the process exit code: 0 on success, 1 when the job failed, 2 for a usage error.
#pragma once

#include "core/utlstring.h"
#include "core/utlvector.h"

struct MintyardCommand_t
{
	const char *name;
	const char *usage;	 // the argument synopsis
	const char *summary; // one line for the command list
	int (*run)(const CUtlVector<CUtlString> &args);
};

// Every subcommand, ended by an entry with a null name. A new subcommand is one line here and
// one function in its own file.
extern const MintyardCommand_t g_MintyardCommands[];

int Command_Templates(const CUtlVector<CUtlString> &args);
int Command_Validate(const CUtlVector<CUtlString> &args);
int Command_Zip(const CUtlVector<CUtlString> &args);
int Command_Unzip(const CUtlVector<CUtlString> &args);
int Command_Import(const CUtlVector<CUtlString> &args);
int Command_Portrait(const CUtlVector<CUtlString> &args);
int Command_Render(const CUtlVector<CUtlString> &args);

// Helpers shared by the subcommands.
class CToolFrameworkHost;
// Brings up the file system and the localisation of a game folder (<root>/game/<mod>) for a
// command. False, with a message on standard error, when that fails.
bool StartGameServices(CToolFrameworkHost &host, const CUtlString &gameDirectory);
// Finds "--name value" in the arguments; false when absent. A name without a value is a usage
// error reported through pbMissingValue.
bool FindOption(const CUtlVector<CUtlString> &args, const char *name, CUtlString &value, bool *pbMissingValue = nullptr);
bool HasFlag(const CUtlVector<CUtlString> &args, const char *name);
// The whole text as a whole number within +-1,000,000 (an option's count or size); false otherwise.
bool ParseInt(const CUtlString &text, int &out);
class CMintyardImportSession;
// Loads a session file into `session` (whose catalogue is loaded), its relative file names taken
// relative to the file's folder. False, with the messages on standard error under the command's
// name, when it fails.
bool LoadCommandSession(CMintyardImportSession &session, const char *pszCommand, const CUtlString &sessionPath, bool bTokens);
// Points a session at a game folder <root>/game/<mod> and its content folder <root>/content/<mod>.
void SetCommandSearchPaths(CMintyardImportSession &session, const CUtlString &gameDirectory);
