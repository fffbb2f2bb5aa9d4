// Listing 500 files from a local brume_service through the browser's own chain: the listing pages,
// then the details of one file at a time, each answer delivered by BrumeAPI_RunCallbacks in a loop
// that stands for the host's frames. Reports the time per file.
//
// Frames run back to back here; the host runs one every 16 ms, and one details answer comes per
// frame at most, so there a file costs at least a frame.
//
//   build/bench/publishedfilebrowser_bench [--benchmark_repetitions=N]
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include <benchmark/benchmark.h>
#include <httplib.h>

#include <QApplication>
#include <QMessageBox>

#include "brume/brume_api.h"
#include "mintyardmanager/publishedfilebrowser.h"
#include "testsupport/service_process.h"

namespace
{
const int kFiles = 500;

// A fresh folder under /tmp for the service's data, removed at the end.
struct CScratchFolder
{
	CScratchFolder()
	{
		char pattern[] = "/tmp/mintyard_bench_XXXXXX";
		if (mkdtemp(pattern))
			m_Path = pattern;
	}
	~CScratchFolder()
	{
		std::error_code ignored;
		if (!m_Path.empty())
			std::filesystem::remove_all(m_Path, ignored);
	}
	std::string Path(const char *relative) const { return m_Path + "/" + relative; }
	std::string m_Path;
};

bool SeedFiles(int port, int count)
{
	httplib::Client http("127.0.0.1", port);
	for (int i = 0; i < count; ++i)
	{
		auto r = http.Post("/api/v1/files", "{\"file_type\":0}", "application/json");
		if (!r || r->status != 200)
			return false;
		const std::string id = r->body.substr(r->body.find("\"publishedfileid\":") + 18);
		const std::string meta = "{\"title\":\"Item " + std::to_string(i) +
								 "\",\"file_description\":\"A description of some length.\",\"tags\":[\"Wearable\",\"Hero\"]}";
		httplib::MultipartFormDataItems items = { { "meta", meta, "", "application/json" } };
		auto u = http.Post(("/api/v1/files/" + std::to_string(std::stoull(id)) + "/update").c_str(), items);
		if (!u || u->status != 200)
			return false;
	}
	return true;
}

void BM_ListFiles(benchmark::State &state)
{
	CScratchFolder data;
	CServiceProcess service;
	if (!service.Start(data.Path("service")))
	{
		state.SkipWithError("brume_service did not start");
		return;
	}
	if (!SeedFiles(service.Port(), kFiles))
	{
		state.SkipWithError("seeding the service failed");
		return;
	}
	setenv("BRUME_SERVICE", service.Address().c_str(), 1);
	setenv("BRUME_DATA_DIR", data.Path("client").c_str(), 1);
	if (!BrumeAPI_Init() || !BrumeAPIContext()->Init())
	{
		state.SkipWithError("the client could not connect");
		return;
	}

	int64_t nListed = 0;
	{
		// Shown, as in the main window: the columns that size to their contents measure the rows
		// in sight, not all of them.
		CPublishedFileBrowser browser;
		browser.resize(1200, 700);
		browser.show();
		// Argument 0: the view does not repaint, which leaves the chain and the model's work.
		browser.setUpdatesEnabled(state.range(0) != 0);
		for (auto _ : state)
		{
			browser.Model().Clear();
			browser.ResetQuery();
			if (!browser.StartFileQuery(false))
			{
				state.SkipWithError("the listing did not start");
				break;
			}
			while (browser.IsBusy())
			{
				BrumeAPI_RunCallbacks();
				QCoreApplication::processEvents();
				std::this_thread::yield();
			}
			if (browser.Model().rowCount() != kFiles)
			{
				state.SkipWithError("not every file was listed");
				break;
			}
			nListed += browser.Model().rowCount();
		}
	}
	state.SetItemsProcessed(nListed);
	state.counters["ms_per_file"] = benchmark::Counter((double)nListed / 1000.0, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
	BrumeAPIContext()->Clear();
	BrumeAPI_Shutdown();
}
BENCHMARK(BM_ListFiles)->ArgName("painting")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
} // namespace

int main(int argc, char **argv)
{
	if (!getenv("QT_QPA_PLATFORM"))
		setenv("QT_QPA_PLATFORM", "offscreen", 1);
	QApplication app(argc, argv);
	benchmark::Initialize(&argc, argv);
	benchmark::RunSpecifiedBenchmarks();
	benchmark::Shutdown();
	return 0;
}
