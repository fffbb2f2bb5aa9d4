// Time to draw one item icon offscreen, as the host tool "portraitEditor" draws them for the
// wizard: the sample game's default courier framed by its game portrait, in preview mode 2 with
// the background and the foreground and square overlays, read back as RGBA; at 128, 256 and 512
// pixels a side, opaque (one picture) and transparent (two pictures, over black and white,
// combined). The model and materials are loaded before the first iteration, so this is the
// drawing and the read-back alone.
//
//   platform/testsupport/run-with-display.sh build/bench/portraiticon_bench
#include <benchmark/benchmark.h>

#include <QGuiApplication>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "core/keyvalues.h"
#include "filesystem/filesystem.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/preview/portraiticonrender.h"
#include "testsupport/tool_host.h"
#include "toolframework/toolframework.h"
#include "toolscene/sceneresources.h"

namespace
{
const char *const COURIER = "models/props/courier/courier.zmdl";

struct Bench_t
{
	CTestToolHost m_Host;
	CZarnPortraitRecord m_Record;
	std::unique_ptr<CZarnPortraitIconRenderer> m_pRenderer;
	bool m_bReady = false;
};
Bench_t *s_pBench = nullptr;

bool MakeBench(const std::string &settings, CUtlString &error)
{
	s_pBench = new Bench_t;
	const std::string game = std::string(MINTYARD_SOURCE_DIR) + "/sample/game/zarn";
	if (!s_pBench->m_Host.Start(game, settings, &error))
		return false;
	ReloadGameData();
	KeyValues *pPortrait = FindGamePortrait(COURIER);
	if (!pPortrait)
	{
		error = "the sample game has no portrait of " + CUtlString(COURIER);
		return false;
	}
	s_pBench->m_Record.ReadKeys(pPortrait);
	CToolSceneResources::Default().SetGameRoot(game.c_str());
	s_pBench->m_pRenderer = std::make_unique<CZarnPortraitIconRenderer>();
	CImageRGBA8 first;
	ZarnPortraitIconOptions_t options;
	if (!s_pBench->m_pRenderer->RenderIcon(COURIER, s_pBench->m_Record, options, first, &error))
		return false;
	s_pBench->m_bReady = true;
	return true;
}

void BM_PortraitIcon(benchmark::State &state)
{
	if (!s_pBench || !s_pBench->m_bReady)
	{
		state.SkipWithError("no drawing context or no sample game");
		return;
	}
	ZarnPortraitIconOptions_t options;
	options.m_nSize = (int)state.range(0);
	options.m_bTransparentBackground = state.range(1) != 0;
	CImageRGBA8 image;
	CUtlString error;
	for (auto _ : state)
	{
		if (!s_pBench->m_pRenderer->RenderIcon(COURIER, s_pBench->m_Record, options, image, &error))
		{
			state.SkipWithError(error.c_str());
			return;
		}
		benchmark::DoNotOptimize(image.Pixel(0, 0));
	}
}
BENCHMARK(BM_PortraitIcon)
	->ArgsProduct({ { 128, 256, 512 }, { 0, 1 } })
	->ArgNames({ "size", "transparent" })
	->Unit(benchmark::kMillisecond)
	->UseRealTime()
	->MinTime(0.5)
	->Repetitions(3)
	->ReportAggregatesOnly(true);
} // namespace

int main(int argc, char **argv)
{
	QGuiApplication app(argc, argv);
	char pattern[] = "/tmp/mintyard_portraiticon_bench_XXXXXX";
	const std::string settings = mkdtemp(pattern) ? pattern : "/tmp/mintyard_portraiticon_bench";
	CUtlString error;
	if (!MakeBench(settings, error))
		fprintf(stderr, "portraiticon_bench: %s\n", error.c_str());
	benchmark::Initialize(&argc, argv);
	benchmark::RunSpecifiedBenchmarks();
	delete s_pBench;
	s_pBench = nullptr;
	g_pFullFileSystem = nullptr;
	g_pToolFramework = nullptr;
	std::error_code ignored;
	std::filesystem::remove_all(settings, ignored);
	return 0;
}
