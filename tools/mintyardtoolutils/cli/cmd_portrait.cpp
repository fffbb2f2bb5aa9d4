// `mintyard portrait --game DIR SESSION --out FILE.png [--size N] [--model N] [--transparent]`:
// the icon of one model of an imported session, drawn without a window from the session's
// portrait block as the portrait editor's tool draws an item's icons (its camera, light and
// background, the foreground and square overlays above), written as a PNG with alpha. The
// session must have been imported (its compiled model exists under the game folder). Drawing
// needs OpenGL on a display: without one the command says so (run it under xvfb-run).
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <QGuiApplication>

#include "core/fileio.h"
#include "core/pathutils.h"
#include "core/strtools.h"
#include "mintyardcommands.h"
#include "mintyardtoolutils/core/cfgelements.h"
#include "mintyardtoolutils/pipeline/importdriver.h"
#include "mintyardtoolutils/preview/portraiticonrender.h"
#include "sessioncommand.h"

namespace
{
const char *const PORTRAIT_USAGE = "--game DIR SESSION --out FILE.png [--size N] [--model N] [--transparent]";

void PrintPortraitHelp(FILE *out)
{
	fprintf(out,
		"usage: mintyard portrait %s\n"
		"\n"
		"Draws the icon of a model of an imported session from its portrait block: the portrait's\n"
		"camera, light and background, with the item icon's foreground and square frame above.\n"
		"\n"
		"  --game DIR      the game folder (<root>/game/<mod>) the session was imported into\n"
		"  --out FILE.png  where the picture goes (PNG with alpha, written whole or not at all)\n"
		"  --size N        the picture's side in pixels, %d to %d (default 256)\n"
		"  --model N       the session's model to draw, from 0 (default 0)\n"
		"  --transparent   no background: alpha only where the model and the overlays are\n"
		"\n"
		"Drawing needs OpenGL on a display; on a machine without one run it under xvfb-run -a.\n"
		"Exit code 0 when the picture was written, 1 when it could not be, 2 for a usage error.\n",
		PORTRAIT_USAGE, (int)ZarnPortraitIconOptions_t::MIN_SIZE, (int)ZarnPortraitIconOptions_t::MAX_SIZE);
}

} // namespace

int Command_Portrait(const CUtlVector<CUtlString> &args)
{
	if (HasFlag(args, "--help") || HasFlag(args, "-h"))
	{
		PrintPortraitHelp(stdout);
		return 0;
	}
	SessionCommand_t command("portrait", PORTRAIT_USAGE, { "--out", "--size", "--model" });
	// Usage first, before any service starts.
	CUtlString outPath, sizeText, modelText;
	bool bMissing = false;
	if (!FindOption(args, "--out", outPath, &bMissing) || outPath.empty())
	{
		fprintf(stderr, "mintyard portrait: %s\nusage: mintyard portrait %s\n", bMissing ? "--out needs a file" : "the picture's file is missing (--out FILE.png)",
			PORTRAIT_USAGE);
		return 2;
	}
	ZarnPortraitIconOptions_t options;
	if (FindOption(args, "--size", sizeText, &bMissing) || bMissing)
	{
		if (!ParseInt(sizeText, options.m_nSize) || options.m_nSize < ZarnPortraitIconOptions_t::MIN_SIZE ||
			options.m_nSize > ZarnPortraitIconOptions_t::MAX_SIZE)
		{
			fprintf(stderr, "mintyard portrait: --size takes a number from %d to %d, not \"%s\"\nusage: mintyard portrait %s\n",
				(int)ZarnPortraitIconOptions_t::MIN_SIZE, (int)ZarnPortraitIconOptions_t::MAX_SIZE, sizeText.c_str(), PORTRAIT_USAGE);
			return 2;
		}
	}
	int nModel = 0;
	if (FindOption(args, "--model", modelText, &bMissing) || bMissing)
	{
		if (!ParseInt(modelText, nModel) || nModel < 0)
		{
			fprintf(stderr, "mintyard portrait: --model takes a model's number from 0, not \"%s\"\nusage: mintyard portrait %s\n", modelText.c_str(),
				PORTRAIT_USAGE);
			return 2;
		}
	}
	options.m_bTransparentBackground = HasFlag(args, "--transparent");
	if (int nResult = command.Start(args))
		return nResult;
	if (!command.LoadSession(false))
		return 1;
	command.SetSearchPathsFromGame();

	CMintyardImportSession &session = command.session;
	if (session.m_Models.empty())
	{
		fprintf(stderr, "mintyard portrait: the session %s has no model, so no portrait\n", command.operand.c_str());
		return 1;
	}
	if (nModel >= (int)session.m_Models.size())
	{
		fprintf(stderr, "mintyard portrait: the session has %d model(s); --model %d is not one of them\n", (int)session.m_Models.size(), nModel);
		return 1;
	}
	const CMintyardCfg_ZarnModel *pModel = session.m_Models[nModel];
	const CUtlString zmdl = pModel->GetZmdlName();
	const CUtlString compiled = GamePath(&session, (zmdl + "_c").c_str());
	if (compiled.empty() || !Plat_FileExists(compiled.c_str()))
	{
		fprintf(stderr,
			"mintyard portrait: the session is not imported: its compiled model %s does not exist; import it first "
			"(mintyard import --game %s %s)\n",
			compiled.empty() ? zmdl.c_str() : compiled.c_str(), command.gameDirectory.c_str(), command.operand.c_str());
		return 1;
	}

	const CUtlString displayProblem = GetPortraitDisplayProblem();
	if (!displayProblem.empty())
	{
		fprintf(stderr, "mintyard portrait: %s\n", displayProblem.c_str());
		return 1;
	}
	int argc = 1;
	char name[] = "mintyard";
	char *argv[] = { name, nullptr };
	QGuiApplication application(argc, argv);
	CZarnPortraitIconRenderer renderer;
	CUtlString error;
	if (!renderer.WriteIcon(zmdl.c_str(), pModel->m_PortraitRecord, options, outPath.c_str(), &error))
	{
		fprintf(stderr, "mintyard portrait: %s\n", error.c_str());
		return 1;
	}
	printf("%s\n", outPath.c_str());
	return 0;
}
