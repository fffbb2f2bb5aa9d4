// The whole import run of the largest sample session, the courier, with every input filled: all
// eleven texture slots of its material at 2048 by 2048, and its idle and portrait pose given
// animations of their own. Each iteration imports into a fresh copy of the sample game trees (the
// copy is not timed), through the real resource compiler, and reports the time of each stage of
// the run beside the wall time.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "core/fileio.h"
#include "filesystem/filesystem.h"
#include "imaging/imageload.h"
#include "imaging/imageresize.h"
#include "imaging/imagewrite.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/core/importmessages.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/core/sessionfile.h"
#include "mintyardtoolutils/pipeline/importdriver.h"
#include "mintyardtoolutils/pipeline/importstages.h"
#include "toolframework/toolframework.h"

namespace fs = std::filesystem;

namespace
{
const fs::path kSample = fs::path(MINTYARD_SOURCE_DIR) / "sample";
constexpr int kTextureSide = 2048;

// The texture slots of the courier's material and the sample picture each empty one is made from.
struct Slot_t
{
	const char *m_pszKey;
	const char *m_pszFrom;
};
const Slot_t kSlots[] = {
	{ "texture_color", "courier_color" },
	{ "texture_trans", "courier_specmask" },
	{ "texture_normal", "courier_normal" },
	{ "texture_detailmask", "courier_specmask" },
	{ "texture_diffusemask", "courier_specmask" },
	{ "texture_metalnessmask", "courier_specmask" },
	{ "texture_selfillummask", "courier_specmask" },
	{ "texture_specmask", "courier_specmask" },
	{ "texture_rimmask", "courier_specmask" },
	{ "texture_basetintmask", "courier_color" },
	{ "texture_specexp", "courier_specmask" },
};

void ReplaceAll(std::string &text, const std::string &from, const std::string &to)
{
	for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
		text.replace(at, from.size(), to);
}

bool WriteText(const fs::path &path, const std::string &text)
{
	FILE *f = fopen(path.c_str(), "wb");
	if (!f)
		return false;
	const bool bOk = fwrite(text.data(), 1, text.size(), f) == text.size();
	return fclose(f) == 0 && bOk;
}

// A folder of its own with the courier's art, every texture rescaled to 2048 by 2048 and one
// for every slot, and the session naming them all. Made once for the whole run.
class CCourierArt
{
public:
	CCourierArt()
	{
		char pattern[] = "/tmp/mintyard_import_bench_XXXXXX";
		m_Root = mkdtemp(pattern) ? fs::path(pattern) : fs::path();
		if (m_Root.empty())
		{
			m_Error = "cannot make a temporary folder";
			return;
		}
		const fs::path art = m_Root / "art/courier";
		std::error_code ec;
		fs::create_directories(art, ec);
		fs::copy(kSample / "art/courier", art, fs::copy_options::recursive, ec);
		for (const Slot_t &slot : kSlots)
		{
			CImageRGBA8 source, scaled;
			CUtlString error;
			const fs::path from = kSample / "art/courier" / (std::string(slot.m_pszFrom) + ".png");
			if (!Image_LoadFile(from.c_str(), source, &error) || !Image_Resize(source, kTextureSide, kTextureSide, scaled, &error) ||
				!Image_WritePNGFile((art / (std::string(slot.m_pszKey) + ".png")).c_str(), scaled, &error, IMAGE_PNG_RGB))
			{
				m_Error = error.c_str();
				return;
			}
		}

		CUtlBuffer data;
		if (!Plat_ReadFile((kSample / "sessions/courier.session.txt").c_str(), data))
		{
			m_Error = "cannot read the courier session";
			return;
		}
		std::string session(data.View());
		for (const Slot_t &slot : kSlots)
		{
			const std::string key = std::string(slot.m_pszKey) + " = ";
			const size_t at = session.find(key);
			const size_t end = at == std::string::npos ? at : session.find('\n', at);
			if (end == std::string::npos)
			{
				m_Error = std::string("the courier session has no ") + slot.m_pszKey;
				return;
			}
			session.replace(at, end - at, key + "\"../art/courier/" + slot.m_pszKey + ".png\"");
		}
		ReplaceAll(session, "{ id = \"idle\" source_filename = \"\" }", "{ id = \"idle\" source_filename = \"../art/courier/courier_run.fbx\" }");
		ReplaceAll(session, "{ id = \"portrait_pose\" source_filename = \"\" }",
			"{ id = \"portrait_pose\" source_filename = \"../art/courier/courier_spawn.fbx\" }");
		fs::create_directories(m_Root / "sessions", ec);
		m_Session = m_Root / "sessions/courier.session.txt";
		if (!WriteText(m_Session, session))
			m_Error = "cannot write the session";
	}
	~CCourierArt()
	{
		std::error_code ec;
		if (!m_Root.empty())
			fs::remove_all(m_Root, ec);
	}

	fs::path m_Root;
	fs::path m_Session;
	std::string m_Error;
};

// With MINTYARD_IMPORT_BENCH_LOG set, the runs' progress and compiler lines go to standard error.
class CStandardErrorLog : public IMintyardImportLog
{
public:
	void LogMessage(int, const char *pszText) override { fputs(pszText ? pszText : "", stderr); }
};

// One import into a fresh copy of the sample trees, <root>/runN/{game,content}; false with a message when the run
// does not import every input without an error.
bool ImportOnce(benchmark::State &state, const CCourierArt &art, int nRun, std::string &error)
{
	state.PauseTiming();
	const fs::path root = art.m_Root / ("run" + std::to_string(nRun));
	const fs::path game = root / "game/zarn", content = root / "content/zarn";
	std::error_code ec;
	for (const char *tree : { "game", "content" })
	{
		fs::create_directories(root / tree, ec);
		fs::copy(kSample / tree, root / tree, fs::copy_options::recursive, ec);
	}
	bool bOk = true;
	{
		CToolFrameworkHost host;
		ToolFrameworkConfig_t config;
		config.m_GameDirectory = game.string().c_str();
		config.m_SettingsFolder = (root / "settings").string().c_str();
		CUtlString message;
		if (!host.Init(config, &message))
		{
			error = message.c_str();
			state.ResumeTiming();
			return false;
		}
		IFileSystem *pPrevious = g_pFullFileSystem;
		g_pFullFileSystem = host.FileSystem();
		ReloadGameData();

		state.ResumeTiming();
		// Loading the session is part of what the author waits for.
		CMintyardImportSession session;
		ImportMessageList list;
		CStandardErrorLog log;
		if (getenv("MINTYARD_IMPORT_BENCH_LOG"))
			list.SetLog(&log);
		LoadContext ctx;
		ctx.rewritePaths = true;
		ctx.basePath = art.m_Session.parent_path().string();
		bOk = session.GetCatalogue().LoadTemplates(list) && LoadSessionFile(session, ctx, art.m_Session.c_str(), list);
		if (bOk)
		{
			session.SetSearchPaths(game.string().c_str(), content.string().c_str());
			RunImport(&session, false, list);
		}
		state.PauseTiming();
		if (!bOk || list.GetErrorCount() > 0)
		{
			bOk = false;
			error = "the import failed:";
			for (int i = 0; i < list.Count(); ++i)
				error += std::string(" ") + FormatImportMessage(list[i], nullptr).c_str();
		}
		g_pFullFileSystem = pPrevious;
	}
	fs::remove_all(root, ec);
	state.ResumeTiming();
	return bOk;
}

void BM_ImportLargestSampleSession(benchmark::State &state)
{
	static CCourierArt art;
	if (!art.m_Error.empty())
	{
		state.SkipWithError(art.m_Error.c_str());
		return;
	}
	double stages[MINTYARD_STAGE_COUNT] = {};
	int nRun = 0;
	for (auto _ : state)
	{
		std::string error;
		if (!ImportOnce(state, art, nRun++, error))
		{
			state.SkipWithError(error.c_str());
			return;
		}
		for (int i = 0; i < MINTYARD_STAGE_COUNT; ++i)
			stages[i] += GetImportStageTimes().m_flSeconds[i];
	}
	for (int i = 0; i < MINTYARD_STAGE_COUNT; ++i)
		state.counters[std::string(GetImportStageName(EMintyardImportStage(i))) + "_s"] =
			benchmark::Counter(stages[i] / std::max(nRun, 1));
}
BENCHMARK(BM_ImportLargestSampleSession)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
} // namespace

BENCHMARK_MAIN();
