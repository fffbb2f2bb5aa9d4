// Writing a 1 GiB zip through the disk cache: throughput and peak memory.
//
//   build/bench/zip_bench --benchmark_counters_tabular=true
//
// The zip gets 1 GiB of generated files (48 of 16 MiB, one of 32 MiB and 4096 small ones of
// 56 KiB), through a disk cache under /tmp, and is written with SaveToDisk to a file under /tmp.
// Both files are removed afterwards. Memory is measured two ways:
//   peak_alloc_MB  the peak of bytes held through operator new while the zip works, above what
//                  was held before it started (the global allocation functions are replaced in
//                  this binary, so the zip library's allocations are counted too);
//   vm_hwm_MB      the process's resident high-water mark (VmHWM of /proc/self/status), which
//                  also sees malloc and stdio buffers.
// The goal is a peak below 64 MiB plus the largest file (32 MiB).
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include <unistd.h>

#include "core/bench/allocationcounter.h"
#include "core/strtools.h"
#include "zip/zip_utils.h"


namespace
{
int64_t ReadVmHWMKiB()
{
	FILE *fp = fopen("/proc/self/status", "r");
	if (!fp)
		return -1;
	char line[256];
	int64_t value = -1;
	while (fgets(line, sizeof(line), fp))
	{
		if (strncmp(line, "VmHWM:", 6) == 0)
		{
			value = strtoll(line + 6, nullptr, 10);
			break;
		}
	}
	fclose(fp);
	return value;
}

void ResetVmHWM()
{
	// Writing 5 to clear_refs resets the high-water mark to the current RSS.
	if (FILE *fp = fopen("/proc/self/clear_refs", "w"))
	{
		fputs("5", fp);
		fclose(fp);
	}
}

struct FilePlan_t
{
	int count;
	size_t size;
};
const FilePlan_t kPlan[] = { { 48, 16u << 20 }, { 1, 32u << 20 }, { 4096, 56u << 10 } };

void Fill(std::vector<char> &buffer, size_t size, uint32 seed)
{
	buffer.resize(size);
	uint64 state = seed * 0x9E3779B97F4A7C15ull + 1;
	uint64 *words = reinterpret_cast<uint64 *>(buffer.data());
	for (size_t i = 0; i < size / 8; ++i)
	{
		state ^= state << 13;
		state ^= state >> 7;
		state ^= state << 17;
		words[i] = state;
	}
}

void BM_ZipWrite1GiBWithDiskCache(benchmark::State &state)
{
	const std::string archive = V_Format("/tmp/zip_bench_%d.zip", (int)getpid());
	std::vector<char> source;
	source.reserve(32u << 20);
	int64_t totalBytes = 0;
	int64_t peakAbove = 0;
	int64_t hwmKiB = 0;
	int64_t archiveSize = 0;
	for (auto _ : state)
	{
		ResetVmHWM();
		const int64_t baseline = AllocationCounter_Current();
		AllocationCounter_ResetPeak();
		IZip *pZip = IZip::CreateZip("/tmp");
		totalBytes = 0;
		uint32 seed = 1;
		for (const FilePlan_t &plan : kPlan)
		{
			for (int i = 0; i < plan.count; ++i)
			{
				Fill(source, plan.size, seed);
				const CUtlString name = V_Format("content/%u/file_%05u.bin", seed % 16, seed);
				if (!pZip->AddBufferToZip(name.c_str(), source.data(), (int64)source.size(), false))
				{
					state.SkipWithError("AddBufferToZip failed");
					break;
				}
				totalBytes += (int64_t)source.size();
				++seed;
			}
		}
		FILE *fp = fopen(archive.c_str(), "wb+");
		if (!fp || !pZip->SaveToDisk(fp))
			state.SkipWithError("SaveToDisk failed");
		if (fp)
		{
			archiveSize = (int64_t)ftello(fp);
			fclose(fp);
		}
		IZip::ReleaseZip(pZip);
		peakAbove = AllocationCounter_Peak() - baseline;
		hwmKiB = ReadVmHWMKiB();
		remove(archive.c_str());
	}
	state.SetBytesProcessed(totalBytes * (int64_t)state.iterations());
	state.counters["archive_MB"] = (double)archiveSize / (1 << 20);
	state.counters["peak_alloc_MB"] = (double)peakAbove / (1 << 20);
	state.counters["vm_hwm_MB"] = (double)hwmKiB / 1024;
	state.counters["largest_file_MB"] = 32;
}
} // namespace

BENCHMARK(BM_ZipWrite1GiBWithDiskCache)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK_MAIN();
