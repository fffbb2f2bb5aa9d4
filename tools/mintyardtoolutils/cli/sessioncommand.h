// What the subcommands that work on one session file share: the argument that names the file,
// the game's services and catalogue, the session loaded with its file names taken relative to
// its own folder, and the messages printed one per line.
#pragma once

#include <cstdio>
#include <initializer_list>
#include <vector>

#include "core/utlstring.h"
#include "core/utlvector.h"
#include "mintyardtoolutils/core/importmessages.h"
#include "mintyardtoolutils/core/importsession.h"
#include "toolframework/toolframework.h"

// The one argument that is neither an option nor the value of one of `optionsWithValue`.
bool FindOperand(const CUtlVector<CUtlString> &args, CUtlString &operand, const std::vector<const char *> &optionsWithValue);

// "error: TEXT" or "warning: TEXT"; with bTokens the untranslated token and its set arguments,
// separated by tabs.
void PrintEntries(FILE *out, const ImportMessageList &list, bool bTokens);

// Parses the common arguments, starts the game's services and loads the catalogue.
struct SessionCommand_t
{
	const char *pszName;
	const char *pszUsage;
	// Options of the command that take a value ("--game" always does).
	std::vector<const char *> optionsWithValue = { "--game" };
	CUtlString operand;
	CUtlString gameDirectory;
	CToolFrameworkHost host;
	CMintyardImportSession session;

	SessionCommand_t(const char *pszCommandName, const char *pszCommandUsage, std::initializer_list<const char *> extraOptionsWithValue = {});

	// 0 when ready, otherwise the exit code.
	int Start(const CUtlVector<CUtlString> &args);
	// Relative file names in the session are taken relative to the session file's folder.
	bool LoadSession(bool bTokens);
	// The game folder <root>/game/<mod> and its content root <root>/content/<mod> as the
	// session's search paths.
	void SetSearchPathsFromGame();
};
