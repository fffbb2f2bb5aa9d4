// The content service under load: several clients asking for file details at once, and the
// search over every file of the service.
//
//   build/bench/brume_service_bench
//
// Counters: requests per second over all threads, and the 50th and 99th percentile of the
// latency of one request in microseconds; for the search, the files it looked through; for an
// upload, its rate and the service's peak resident memory while taking it.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>
#include <httplib.h>

#include "testsupport/service_process.h"

namespace
{
struct Fixture_t
{
	std::string m_sDataDir;
	CServiceProcess m_Service;
	std::vector<uint64_t> m_Ids;

	// `files` files; every third one is a public courier, the rest are private wearables.
	bool Start(int files = 200, bool bContent = true)
	{
		char pattern[] = "/tmp/brume_bench_XXXXXX";
		if (!mkdtemp(pattern))
			return false;
		m_sDataDir = pattern;
		if (!m_Service.Start(m_sDataDir))
			return false;
		httplib::Client http("127.0.0.1", m_Service.Port());
		for (int i = 0; i < files; ++i)
		{
			auto r = http.Post("/api/v1/files", "{\"file_type\":1}", "application/json");
			if (!r || r->status != 200)
				return false;
			const uint64_t id = std::stoull(r->body.substr(r->body.find("\"publishedfileid\":") + 18));
			const bool bCourier = i % 3 == 0;
			httplib::MultipartFormDataItems items = {
				{"meta", "{\"title\":\"Item " + std::to_string(i) + "\",\"file_description\":\"A description of some length.\",\"visibility\":" +
							 (bCourier ? "0" : "2") + ",\"tags\":[" + (bCourier ? "\"Courier\"" : "\"Wearable\",\"Hero\"") + "]}",
					"", "application/json"}};
			if (bContent)
				items.push_back({"content", std::string(4096, 'c'), "item.zip", "application/zip"});
			http.Post(("/api/v1/files/" + std::to_string(id) + "/update").c_str(), items);
			m_Ids.push_back(id);
		}
		return true;
	}
	~Fixture_t()
	{
		m_Service.Stop();
		std::error_code ec;
		if (!m_sDataDir.empty())
			std::filesystem::remove_all(m_sDataDir, ec);
	}
};

void BM_ServiceDetailsUnderLoad(benchmark::State &state)
{
	const int threads = (int)state.range(0);
	const int perThread = (int)state.range(1);
	Fixture_t fixture;
	if (!fixture.Start())
	{
		state.SkipWithError("cannot start brume_service");
		return;
	}
	std::vector<double> latencies;
	std::atomic<int> failures{0};
	double seconds = 0;
	for (auto _ : state)
	{
		std::vector<std::vector<double>> perThreadLatencies(threads);
		const auto start = std::chrono::steady_clock::now();
		std::vector<std::thread> workers;
		for (int t = 0; t < threads; ++t)
		{
			workers.emplace_back([&, t]() {
				httplib::Client http("127.0.0.1", fixture.m_Service.Port());
				http.set_keep_alive(true);
				http.set_tcp_nodelay(true);
				perThreadLatencies[t].reserve(perThread);
				for (int i = 0; i < perThread; ++i)
				{
					const uint64_t id = fixture.m_Ids[(size_t)(t * 7919 + i) % fixture.m_Ids.size()];
					const auto begin = std::chrono::steady_clock::now();
					auto r = http.Get(("/api/v1/files/" + std::to_string(id)).c_str());
					const auto end = std::chrono::steady_clock::now();
					if (!r || r->status != 200)
						++failures;
					perThreadLatencies[t].push_back(std::chrono::duration<double, std::micro>(end - begin).count());
				}
			});
		}
		for (std::thread &w : workers)
			w.join();
		seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
		for (auto &l : perThreadLatencies)
			latencies.insert(latencies.end(), l.begin(), l.end());
	}
	std::sort(latencies.begin(), latencies.end());
	auto percentile = [&](double p) { return latencies.empty() ? 0.0 : latencies[std::min(latencies.size() - 1, (size_t)(p * latencies.size()))]; };
	state.counters["requests_per_s"] = seconds > 0 ? latencies.size() / seconds : 0.0;
	state.counters["p50_us"] = percentile(0.50);
	state.counters["p99_us"] = percentile(0.99);
	state.counters["failures"] = failures.load();
}
BENCHMARK(BM_ServiceDetailsUnderLoad)->Args({8, 2000})->Args({1, 2000})->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

// One search as the submissions filters make it, over a service of `files` files.
void BM_ServiceQuery(benchmark::State &state)
{
	Fixture_t fixture;
	if (!fixture.Start((int)state.range(0), false))
	{
		state.SkipWithError("cannot start brume_service");
		return;
	}
	httplib::Client http("127.0.0.1", fixture.m_Service.Port());
	http.set_keep_alive(true);
	const std::string query = "/api/v1/files/query?search_text=Item&solr_filter_queries%5B0%5D=" +
							  httplib::detail::encode_query_param("tags:(\"Wearable\" OR \"Courier\") AND NOT tags:(\"Bundle\")") +
							  "&solr_filter_queries%5B1%5D=" + httplib::detail::encode_query_param("filetype:(1)");
	for (auto _ : state)
	{
		auto r = http.Get(query.c_str());
		if (!r || r->status != 200)
		{
			state.SkipWithError("the search failed");
			return;
		}
		benchmark::DoNotOptimize(r->body);
	}
	state.counters["files"] = (double)state.range(0);
}
// The service's peak resident memory (VmHWM) in MiB.
double PeakMemoryMiB(pid_t pid)
{
	std::ifstream status("/proc/" + std::to_string(pid) + "/status");
	for (std::string line; std::getline(status, line);)
		if (line.rfind("VmHWM:", 0) == 0)
			return std::stod(line.substr(6)) / 1024.0;
	return 0;
}

// One upload of a content file of `range(0)` MiB, streamed from disk as the client sends it.
void BM_ServiceUpload(benchmark::State &state)
{
	Fixture_t fixture;
	if (!fixture.Start(1, false))
	{
		state.SkipWithError("cannot start brume_service");
		return;
	}
	const size_t size = (size_t)state.range(0) << 20;
	const std::string source = fixture.m_sDataDir + "/source.bin";
	{
		std::ofstream out(source, std::ios::binary);
		std::string block(1 << 20, '\0');
		for (size_t i = 0; i < block.size(); ++i)
			block[i] = (char)(i * 131 + 7);
		for (size_t left = size; left > 0; left -= block.size())
			out.write(block.data(), (std::streamsize)block.size());
	}
	httplib::Client http("127.0.0.1", fixture.m_Service.Port());
	http.set_write_timeout(600);
	http.set_read_timeout(600);
	const std::string path = "/api/v1/files/" + std::to_string(fixture.m_Ids[0]) + "/update";
	for (auto _ : state)
	{
		auto in = std::make_shared<std::ifstream>(source, std::ios::binary);
		httplib::MultipartFormDataItems items = {{"meta", "{\"change_note\":\"bench\"}", "", "application/json"}};
		httplib::MultipartFormDataProviderItems files = {{"content",
			[in](size_t, httplib::DataSink &sink) {
				char buffer[1 << 16];
				in->read(buffer, sizeof(buffer));
				if (in->gcount() > 0 && !sink.write(buffer, (size_t)in->gcount()))
					return false;
				if (in->eof())
					sink.done();
				return true;
			},
			"pack.bdl", "application/octet-stream"}};
		auto r = http.Post(path.c_str(), httplib::Headers(), items, files);
		if (!r || r->status != 200)
		{
			state.SkipWithError("the upload failed");
			return;
		}
	}
	state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)size);
	state.counters["service_peak_MiB"] = PeakMemoryMiB(fixture.m_Service.Pid());
}
BENCHMARK(BM_ServiceUpload)->Arg(256)->Iterations(2)->UseRealTime()->Unit(benchmark::kMillisecond);

BENCHMARK(BM_ServiceQuery)->Arg(1000)->Arg(5000)->UseRealTime()->Unit(benchmark::kMillisecond);
} // namespace

BENCHMARK_MAIN();
