// `mintyard templates --game DIR [--built]`: the template catalogue of a game folder, one line per
// template (id, display name, tags), then the warnings met while loading it. With --built the
// wearable and ability icon templates that the catalogue builds for every hero follow.
#include <cstdio>

#include "core/strtools.h"
#include "mintyardcommands.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/core/importmessages.h"
#include "mintyardtoolutils/core/templatecatalogue.h"
#include "toolframework/localize.h"
#include "toolframework/toolframework.h"

namespace
{
void PrintTemplate(const CMintyardTemplate &tmpl)
{
	CUtlString tags;
	for (const CUtlString &tag : tmpl.mintyard_tags)
		tags += (tags.empty() ? "" : ", ") + tag;
	printf("%s\t%s\t[%s]\n", tmpl.id.c_str(), Localize()->Translate(tmpl.name.c_str()), tags.c_str());
}
// The message in English; a token the game's texts lack shows with its arguments, so that nothing
// the loader said is lost.
CUtlString MessageText(const MintyardImportMessageEntry_t &entry)
{
	if (entry.Message().empty() || entry.Message()[0] != '#' || Localize()->Find(entry.Message().c_str()))
		return FormatImportMessage(entry, Localize());
	CUtlString text = entry.Message();
	for (int i = 1; i <= 4; ++i)
	{
		if (entry.HasArg(i))
			text += (i == 1 ? ": " : "; ") + entry.Arg(i);
	}
	return text;
}
} // namespace

int Command_Templates(const CUtlVector<CUtlString> &args)
{
	CUtlString gameDirectory;
	bool bMissingValue = false;
	if (!FindOption(args, "--game", gameDirectory, &bMissingValue))
	{
		fprintf(stderr, "mintyard templates: %s\nusage: mintyard templates --game DIR [--built]\n",
			bMissingValue ? "--game needs a folder" : "the game folder is missing (--game DIR)");
		return 2;
	}
	CToolFrameworkHost host;
	if (!StartGameServices(host, gameDirectory))
		return 1;

	CMintyardTemplateCatalogue catalogue;
	ImportMessageList messages;
	const bool bLoaded = catalogue.LoadTemplates(messages);
	if (!EnsureGameDataLoaded())
		fprintf(stderr, "mintyard templates: game data: %s\n", GetGameDataLastError().c_str());

	printf("%d templates\n", catalogue.GetFileTemplates());
	for (int i = 0; i < catalogue.GetFileTemplates(); ++i)
		PrintTemplate(*catalogue.GetFileTemplate(i));

	if (HasFlag(args, "--built"))
	{
		const HeroTable &heroes = GetHeroTable();
		for (int h = 0; h < heroes.Count(); ++h)
		{
			const hero_t *pHero = heroes.GetHero(h);
			if (!pHero)
				continue;
			for (int s = 0; s < (int)pHero->slots.size(); ++s)
			{
				if (const CMintyardTemplate *pTemplate = catalogue.GetWearableTemplate(pHero, s))
					PrintTemplate(*pTemplate);
			}
			if (const CMintyardTemplate *pTemplate = catalogue.GetAbilityIconsTemplate(pHero))
				PrintTemplate(*pTemplate);
		}
	}

	if (messages.Count() > 0)
	{
		printf("%d warnings, %d errors\n", messages.GetWarningCount(), messages.GetErrorCount());
		for (int i = 0; i < messages.Count(); ++i)
		{
			const MintyardImportMessageEntry_t &entry = messages[i];
			printf("%s: %s\n", entry.isError ? "error" : "warning", MessageText(entry).c_str());
		}
	}
	return bLoaded ? 0 : 1;
}
