// Packing and looking up BDL packs.
//
//   build/bench/bdl_bench --benchmark_counters_tabular=true
//
// BM_PackAddonFolder_1GiB: a generated addon folder of 10,000 files totalling 1 GiB (9,900 files
// of 1 to 100 KiB and 100 larger ones, in 100 folders, with five extensions) is packed with
// PackAddonFolder, and in the same iteration archived with "tar cf" (no compression). The
// folder is generated once under /tmp, read from the page cache by both, and removed at the
// end. Reported: pack_MBps and tar_MBps (input bytes per second), ratio = pack / tar, and
// tar_sync_MBps, the tar followed by an fsync of its archive: the file system's writes are
// durable (a pack is flushed to disk before it replaces the old one), tar's are not.
//
// BM_Lookup/1000 and BM_Lookup/100000: FindFile on packs of 1,000 and 100,000 files (100 files
// per folder and extension, five extensions, so 2 and 200 folders), by names in random order;
// ns_per_lookup should stay flat. build_ms is the time to add all files (the index is kept up
// to date on every add).
//
// BM_CoreMD5: the MD5 of the core over 64 MiB, for reference: every pack's self hash covers the
// whole directory file, so it bounds how fast a pack can be written.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "bdllib/packaddonfolder.h"
#include "bdllib/packedstore.h"
#include "core/fileio.h"
#include "core/hashes.h"
#include "core/strtools.h"
#include "filesystem/filesystem.h"

namespace
{
const char *const kExtensions[] = { "vmat", "vtex", "vmdl", "txt", "wav" };

std::string BenchFolder()
{
	static const std::string s_folder = V_Format("/tmp/bdl_bench_%d", (int)getpid());
	return s_folder;
}

void Fill(std::vector<char> &buffer, size_t size, uint64 seed)
{
	buffer.resize(size);
	uint64 state = seed * 0x9E3779B97F4A7C15ull + 1;
	size_t i = 0;
	for (; i + 8 <= size; i += 8)
	{
		state ^= state << 13;
		state ^= state >> 7;
		state ^= state << 17;
		memcpy(buffer.data() + i, &state, 8);
	}
	for (; i < size; ++i)
		buffer[i] = (char)(state >> (8 * (i & 7)));
}

// The addon folder, made on first use: returns its path and total size.
const std::string &AddonFolder(int64_t &totalBytes)
{
	static int64_t s_nTotal = 0;
	static const std::string s_addon = [] {
		const std::string addon = BenchFolder() + "/addon";
		std::filesystem::create_directories(addon);
		const int64_t kTarget = 1ll << 30;
		std::mt19937_64 random(7);
		std::vector<int64_t> sizes;
		int64_t sum = 0;
		for (int i = 0; i < 9900; ++i)
		{
			sizes.push_back(1024 + (int64_t)(random() % (100 * 1024)));
			sum += sizes.back();
		}
		const int64_t bigEach = (kTarget - sum) / 100;
		for (int i = 0; i < 100; ++i)
		{
			sizes.push_back(i < 99 ? bigEach : kTarget - sum);
			sum += sizes.back();
		}
		std::vector<char> data;
		for (size_t i = 0; i < sizes.size(); ++i)
		{
			const std::string folder = V_Format("%s/folder_%02zu/sub_%zu", addon.c_str(), i % 100, (i / 100) % 3);
			std::filesystem::create_directories(folder);
			const std::string path = V_Format("%s/file_%05zu.%s", folder.c_str(), i, kExtensions[i % 5]);
			Fill(data, (size_t)sizes[i], i);
			FILE *fp = fopen(path.c_str(), "wb");
			if (!fp || fwrite(data.data(), 1, data.size(), fp) != data.size())
				abort();
			fclose(fp);
		}
		s_nTotal = sum;
		return addon;
	}();
	totalBytes = s_nTotal;
	return s_addon;
}

double Seconds(std::chrono::steady_clock::time_point start)
{
	return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void BM_PackAddonFolder_1GiB(benchmark::State &state)
{
	int64_t totalBytes = 0;
	const std::string &addon = AddonFolder(totalBytes);
	const std::string pack = BenchFolder() + "/addon.bdl";
	const std::string tar = BenchFolder() + "/addon.tar";
	double packSeconds = 0, tarSeconds = 0, tarSyncSeconds = 0;
	IFileSystem *pFileSystem = CreateFileSystem();
	for (auto _ : state)
	{
		std::filesystem::remove(pack);
		auto start = std::chrono::steady_clock::now();
		if (!PackAddonFolder(addon.c_str(), pack.c_str(), pFileSystem))
		{
			state.SkipWithError("PackAddonFolder failed");
			break;
		}
		const double seconds = Seconds(start);
		packSeconds += seconds;
		state.SetIterationTime(seconds);

		std::filesystem::remove(tar);
		start = std::chrono::steady_clock::now();
		if (system(("tar cf '" + tar + "' -C '" + addon + "' .").c_str()) != 0)
		{
			state.SkipWithError("tar failed");
			break;
		}
		tarSeconds += Seconds(start);
		const int fd = open(tar.c_str(), O_RDONLY);
		if (fd >= 0)
		{
			fsync(fd);
			close(fd);
		}
		tarSyncSeconds += Seconds(start);
	}
	DestroyFileSystem(pFileSystem);
	std::filesystem::remove(pack);
	std::filesystem::remove(tar);
	const double megabytes = (double)totalBytes * (double)state.iterations() / (1 << 20);
	state.SetBytesProcessed(totalBytes * (int64_t)state.iterations());
	state.counters["files"] = 10000;
	state.counters["input_MB"] = (double)totalBytes / (1 << 20);
	state.counters["pack_MBps"] = megabytes / packSeconds;
	state.counters["tar_MBps"] = megabytes / tarSeconds;
	state.counters["tar_sync_MBps"] = megabytes / tarSyncSeconds;
	state.counters["ratio"] = tarSeconds / packSeconds;
	state.counters["ratio_vs_tar_sync"] = tarSyncSeconds / packSeconds;
}

void BM_Lookup(benchmark::State &state)
{
	const int count = (int)state.range(0);
	IFileSystem *pFileSystem = CreateFileSystem();
	std::vector<std::string> names;
	names.reserve((size_t)count);
	const auto buildStart = std::chrono::steady_clock::now();
	CPackedStore store((BenchFolder() + "/lookup_never_written.bdl").c_str(), pFileSystem,
		PACKEDSTORE_FLAG_READ_EMBEDDED | PACKEDSTORE_FLAG_WRITABLE);
	const int perGroup = 100;
	for (int i = 0; i < count; ++i)
	{
		const int group = i / perGroup;
		names.push_back(V_Format("materials/models/folder_%d/file_%d.%s", group / 5, i, kExtensions[group % 5]));
		store.AddFile(names.back().c_str(), 0, "x", 1, false);
	}
	const double buildMs = Seconds(buildStart) * 1000;
	std::shuffle(names.begin(), names.end(), std::mt19937(1));

	PackedStoreFileInfo_t info;
	size_t next = 0;
	int64_t found = 0;
	for (auto _ : state)
	{
		found += store.FindFile(names[next].c_str(), info) ? 1 : 0;
		if (++next == names.size())
			next = 0;
	}
	if (found != (int64_t)state.iterations())
		state.SkipWithError("a lookup missed");
	state.counters["files"] = count;
	state.counters["build_ms"] = buildMs;
	state.counters["ns_per_lookup"] = benchmark::Counter((double)state.iterations() / 1e9, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
	DestroyFileSystem(pFileSystem);
}

void BM_CoreMD5(benchmark::State &state)
{
	std::vector<char> data;
	Fill(data, 64u << 20, 3);
	for (auto _ : state)
	{
		MD5Value_t value;
		MD5_ProcessSingleBuffer(data.data(), data.size(), value);
		benchmark::DoNotOptimize(value);
	}
	state.SetBytesProcessed((int64_t)data.size() * (int64_t)state.iterations());
}
} // namespace

BENCHMARK(BM_PackAddonFolder_1GiB)->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Lookup)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kNanosecond);
BENCHMARK(BM_CoreMD5)->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
	benchmark::Initialize(&argc, argv);
	if (benchmark::ReportUnrecognizedArguments(argc, argv))
		return 1;
	benchmark::RunSpecifiedBenchmarks();
	benchmark::Shutdown();
	std::error_code error;
	std::filesystem::remove_all(BenchFolder(), error);
	return 0;
}
