// The render subcommand: what the import preview shows, drawn without a window into a PNG.
//
//   mintyard render --game DIR (--model COMPILED | --session SESSION [--index N]) --out FILE.png
//                   [--size WxH] [--sequence NAME] [--frame N] [--yaw DEG] [--pitch DEG] [--problems]
//
// With --session, model element N (0 by default) of an imported session, on its hero with the
// hero's default wearables when it is a wearable, or alone (a courier, a ward, a model of no
// hero); a session that has not been imported has no compiled model to show. With --model, one
// compiled model alone ("models/x.zmdl_c" under the game folder, or an absolute path). The camera
// frames what stands in the scene; the picture shows frame N (0 by default) of the sequence
// ("idle", or the model's idle activity). --problems draws the topology findings of the model's
// mesh sources over it and prints their counts.
//
// Drawing needs an OpenGL context, which needs a display: on a console without one, run it
// under xvfb-run.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <QBuffer>
#include <QGuiApplication>
#include <QImage>

#include "core/fileio.h"
#include "core/keyvalues.h"
#include "core/logging.h"
#include "core/strtools.h"
#include "mintyardcommands.h"
#include "mintyardtoolutils/core/importmessages.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/preview/previewmodelset.h"
#include "mintyardtoolutils/preview/previewrender.h"
#include "mintyardtoolutils/preview/previewscene.h"
#include "mintyardtoolutils/preview/previewsession.h"
#include "toolframework/toolframework.h"
#include "toolscene/sceneresources.h"
#include "toolscene/toolscene.h"

namespace
{
const char *const RENDER_USAGE = "--game DIR (--model COMPILED | --session SESSION [--index N]) --out FILE.png [--size WxH] "
								 "[--sequence NAME] [--frame N] [--yaw DEG] [--pitch DEG] [--problems]";

int UsageError(const char *pszMessage)
{
	fprintf(stderr, "mintyard render: %s\nusage: mintyard render %s\n", pszMessage, RENDER_USAGE);
	return 2;
}

bool ParseFloat(const CUtlString &text, float &out)
{
	double value = 0.0;
	if (!V_ParseDouble(text, 3.0e38, value))
		return false;
	out = (float)value;
	return true;
}

bool ParseSize(const CUtlString &text, int &nWidth, int &nHeight)
{
	const size_t x = text.find_first_of("xX");
	if (x == CUtlString::npos)
		return false;
	return ParseInt(text.substr(0, x), nWidth) && ParseInt(text.substr(x + 1), nHeight) && nWidth >= 1 && nHeight >= 1 &&
		   nWidth <= 8192 && nHeight <= 8192;
}

// A folder path without trailing slashes.
CUtlString TrimFolder(CUtlString folder)
{
	while (folder.size() > 1 && folder.back() == '/')
		folder.pop_back();
	return folder;
}

// The model document of a compiled model: under the content root by the same relative path for a
// model of the game folder, otherwise beside the compiled file.
CUtlString ModelDocumentOf(const CUtlString &gameDirectory, const CUtlString &contentRoot, const CUtlString &model)
{
	CUtlString source = model;
	if (source.size() > 2 && source.compare(source.size() - 2, 2, "_c") == 0)
		source.resize(source.size() - 2);
	const std::filesystem::path game = std::filesystem::absolute(gameDirectory.c_str()).lexically_normal();
	std::filesystem::path path(source.c_str());
	if (path.is_absolute())
	{
		const std::filesystem::path relative = path.lexically_normal().lexically_relative(game);
		if (relative.empty() || *relative.begin() == "..")
			return path.string();
		path = relative;
	}
	return (std::filesystem::path(contentRoot.c_str()) / path).lexically_normal().string();
}

// The options this command knows, with whether each takes a value.
bool CheckOptions(const CUtlVector<CUtlString> &args, CUtlString &problem)
{
	static const char *const s_WithValue[] = { "--game", "--model", "--session", "--index", "--out", "--size", "--sequence", "--frame", "--yaw",
		"--pitch" };
	for (size_t i = 0; i < args.size(); ++i)
	{
		bool bKnown = false;
		for (const char *pszOption : s_WithValue)
		{
			if (args[i] == pszOption)
			{
				bKnown = true;
				if (i + 1 >= args.size())
				{
					problem = V_Format("%s needs a value", pszOption);
					return false;
				}
				++i;
			}
		}
		if (!bKnown && args[i] != "--problems")
		{
			problem = V_Format("unknown argument '%s'", args[i].c_str());
			return false;
		}
	}
	return true;
}
} // namespace

int Command_Render(const CUtlVector<CUtlString> &args)
{
	if (HasFlag(args, "--help") || HasFlag(args, "-h"))
	{
		printf("usage: mintyard render %s\n\n"
			   "Draws what the import preview shows into a PNG, without a window: model N (--index, 0 by default) of an\n"
			   "imported session on its hero with the hero's default wearables (or alone: a courier, a ward, a model of\n"
			   "no hero), or one compiled model alone (--model, relative to the game folder or absolute). The camera\n"
			   "frames the scene from the models' front, turned by --yaw (25) and raised by --pitch (12) degrees; the picture holds frame --frame (0) of\n"
			   "--sequence (the idle animation). --problems draws the topology findings of the model's mesh sources:\n"
			   "red lines for border and non-manifold edges, tinted faces for flipped ones. --size is 1280x720 by default.\n"
			   "Drawing needs OpenGL on a display; on a console without one, run it under xvfb-run -a.\n",
			RENDER_USAGE);
		return 0;
	}
	CUtlString problem;
	if (!CheckOptions(args, problem))
		return UsageError(problem.c_str());
	CUtlString gameDirectory, model, session, out, value;
	if (!FindOption(args, "--game", gameDirectory))
		return UsageError("the game folder is missing (--game DIR)");
	const bool bModel = FindOption(args, "--model", model);
	const bool bSession = FindOption(args, "--session", session);
	if (bModel == bSession)
		return UsageError("give either --model or --session");
	if (!FindOption(args, "--out", out))
		return UsageError("the picture to write is missing (--out FILE.png)");
	ZarnPreviewRenderView_t view;
	int nIndex = 0, nFrame = 0;
	if (FindOption(args, "--size", value) && !ParseSize(value, view.m_nWidth, view.m_nHeight))
		return UsageError("--size takes WxH, each from 1 to 8192");
	if (FindOption(args, "--index", value) && (!ParseInt(value, nIndex) || nIndex < 0))
		return UsageError("--index takes a number from 0");
	if (bModel && FindOption(args, "--index", value))
		return UsageError("--index goes with --session");
	if (FindOption(args, "--frame", value) && (!ParseInt(value, nFrame) || nFrame < 0))
		return UsageError("--frame takes a number from 0");
	if (FindOption(args, "--yaw", value) && !ParseFloat(value, view.m_flYaw))
		return UsageError("--yaw takes degrees");
	if (FindOption(args, "--pitch", value) && (!ParseFloat(value, view.m_flPitch) || view.m_flPitch < -89.0f || view.m_flPitch > 89.0f))
		return UsageError("--pitch takes degrees from -89 to 89");
	CUtlString sequence;
	const bool bSequence = FindOption(args, "--sequence", sequence);
	const bool bProblems = HasFlag(args, "--problems");

	if (!ZarnPreviewHasDisplay())
	{
		fprintf(stderr, "mintyard render: drawing needs OpenGL on a display, and there is none here (DISPLAY is not set or names no "
						"running X server); run it under xvfb-run, e.g. xvfb-run -a mintyard render ...\n");
		return 1;
	}
	gameDirectory = TrimFolder(gameDirectory);
	// The item key generation's progress lines are not this command's business.
	LoggingSystem_SetChannelVerbosity(LoggingSystem_FindChannel("MintyardManager"), LS_WARNING);
	CToolFrameworkHost host;
	if (!StartGameServices(host, gameDirectory))
		return 1;
	g_pToolFramework = host.Framework();
	CMintyardImportSession importSession;
	ImportMessageList messages;
	if (!importSession.GetCatalogue().LoadTemplates(messages))
	{
		fprintf(stderr, "mintyard render: cannot read the template catalogue of %s\n", gameDirectory.c_str());
		return 1;
	}
	SetCommandSearchPaths(importSession, gameDirectory);
	const CUtlString contentRoot = importSession.GetContentRoot();
	CToolSceneResources &resources = CToolSceneResources::Default();
	resources.SetGameRoot(importSession.GetGameRoot().c_str());

	// Qt's own arguments are not ours.
	static int s_nArgc = 1;
	static char s_Name[] = "mintyard";
	static char *s_Argv[] = { s_Name, nullptr };
	QGuiApplication app(s_nArgc, s_Argv);
	CZarnPreviewRenderer renderer(&resources);
	CUtlString error;
	if (!renderer.Init(&error))
	{
		fprintf(stderr, "mintyard render: no OpenGL 3.3 context: %s\n", error.c_str());
		return 1;
	}

	CUtlString modelPath, document;
	if (bSession)
	{
		if (!LoadCommandSession(importSession, "render", session, false))
			return 1;
		SetCommandSearchPaths(importSession, gameDirectory);
		if (importSession.m_Models.empty())
		{
			fprintf(stderr, "mintyard render: the session %s has no model to show\n", session.c_str());
			return 1;
		}
		if (nIndex >= (int)importSession.m_Models.size())
		{
			fprintf(stderr, "mintyard render: the session %s has %d models; --index %d is not one of them\n", session.c_str(),
				(int)importSession.m_Models.size(), nIndex);
			return 1;
		}
		ZarnSessionPreview_t preview;
		GetSessionPreview(&importSession, nIndex, preview);
		modelPath = preview.m_ModelPath;
		CZarnPreviewModelSet set(&resources);
		if (!ApplySessionPreview(preview, set))
		{
			fprintf(stderr,
				"mintyard render: the session %s has not been imported: there is no compiled model %s_c in %s; import it first "
				"(mintyard import --game %s %s)\n",
				session.c_str(), modelPath.c_str(), gameDirectory.c_str(), gameDirectory.c_str(), session.c_str());
			return 1;
		}
		if (bSequence)
			set.SetSequence(sequence.c_str());
		renderer.ShowSet(set);
		document = V_Format("%s/%s", contentRoot.c_str(), modelPath.c_str());
	}
	else
	{
		modelPath = model;
		if (!renderer.ShowModel(model.c_str(), bSequence ? sequence.c_str() : nullptr, &error))
		{
			fprintf(stderr, "mintyard render: cannot show %s: %s\n", model.c_str(), error.c_str());
			return 1;
		}
		document = ModelDocumentOf(gameDirectory, contentRoot, model);
	}
	for (const CUtlString &loadError : renderer.PreviewScene().GetLoadErrors())
		fprintf(stderr, "mintyard render: warning: %s\n", loadError.c_str());

	CToolSceneModelNode *pSubject = renderer.PreviewScene().GetSubjectNode();
	if (bSequence && pSubject && pSubject->HasModel() && pSubject->GetCompiledModel()->FindSequence(sequence) < 0)
	{
		fprintf(stderr, "mintyard render: %s has no sequence '%s'; it has:", pSubject->GetModelPath().c_str(), sequence.c_str());
		for (const CompiledSequence_t &known : pSubject->GetCompiledModel()->m_Sequences)
			fprintf(stderr, " %s", known.m_Name.c_str());
		fprintf(stderr, "\n");
		return 1;
	}
	renderer.SetFrame(nFrame);

	if (bProblems)
	{
		if (!renderer.ShowMeshProblems(contentRoot.c_str(), document.c_str(), &error))
		{
			fprintf(stderr, "mintyard render: cannot check the mesh sources of %s: %s\n", modelPath.c_str(), error.c_str());
			return 1;
		}
		if (!error.empty())
			fprintf(stderr, "mintyard render: warning: %s\n", error.c_str());
		const ZarnMeshProblemCounts_t &counts = renderer.GetMeshProblems().GetCounts();
		printf("mesh problems of %s: %d border edges, %d non-manifold edges, %d flipped faces (%d sources checked)\n", modelPath.c_str(),
			counts.m_nBorderEdges, counts.m_nNonManifoldEdges, counts.m_nFlippedFaces, counts.m_nSources);
	}

	QImage picture;
	if (!renderer.Render(view, picture, &error))
	{
		fprintf(stderr, "mintyard render: drawing failed: %s\n", error.c_str());
		return 1;
	}
	// Written whole or not at all.
	QByteArray bytes;
	QBuffer buffer(&bytes);
	buffer.open(QIODevice::WriteOnly);
	const std::filesystem::path outPath(out.c_str());
	std::error_code ignored;
	if (outPath.has_parent_path())
		std::filesystem::create_directories(outPath.parent_path(), ignored);
	if (!picture.save(&buffer, "PNG") || !Plat_WriteFileAtomic(out.c_str(), bytes.constData(), (size_t)bytes.size()))
	{
		fprintf(stderr, "mintyard render: cannot write %s\n", out.c_str());
		return 1;
	}
	printf("%s\n", out.c_str());
	return 0;
}
