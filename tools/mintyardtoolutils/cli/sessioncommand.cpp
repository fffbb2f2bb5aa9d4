#include "sessioncommand.h"

#include <filesystem>

#include "mintyardcommands.h"
#include "mintyardtoolutils/core/sessionfile.h"
#include "toolframework/localize.h"

bool FindOperand(const CUtlVector<CUtlString> &args, CUtlString &operand, const std::vector<const char *> &optionsWithValue)
{
	int nFound = 0;
	for (size_t i = 0; i < args.size(); ++i)
	{
		bool bTakesValue = false;
		for (const char *pszOption : optionsWithValue)
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

namespace
{
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
} // namespace

void PrintEntries(FILE *out, const ImportMessageList &list, bool bTokens)
{
	for (int i = 0; i < list.Count(); ++i)
		PrintEntry(out, list[i], bTokens);
}

SessionCommand_t::SessionCommand_t(const char *pszCommandName, const char *pszCommandUsage, std::initializer_list<const char *> extraOptionsWithValue)
	: pszName(pszCommandName), pszUsage(pszCommandUsage)
{
	optionsWithValue.insert(optionsWithValue.end(), extraOptionsWithValue.begin(), extraOptionsWithValue.end());
}

int SessionCommand_t::Start(const CUtlVector<CUtlString> &args)
{
	bool bMissingValue = false;
	if (!FindOption(args, "--game", gameDirectory, &bMissingValue))
	{
		fprintf(stderr, "mintyard %s: %s\nusage: mintyard %s %s\n", pszName,
			bMissingValue ? "--game needs a folder" : "the game folder is missing (--game DIR)", pszName, pszUsage);
		return 2;
	}
	if (!FindOperand(args, operand, optionsWithValue))
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

bool SessionCommand_t::LoadSession(bool bTokens)
{
	return LoadCommandSession(session, pszName, operand, bTokens);
}

void SessionCommand_t::SetSearchPathsFromGame()
{
	SetCommandSearchPaths(session, gameDirectory);
}

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
