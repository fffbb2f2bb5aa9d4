// Load speed of a compiled model: a generated skinned model of 100,000 triangles (one mesh,
// four bone weights a vertex, tangents) with one 60-frame animation of 50 bones.
//
//   build/bench/compiledassets_bench --benchmark_counters_tabular=true
//
// "LoadFromMemory" is the loader alone on bytes already in memory; "LoadFile" adds the read of
// the file (from the page cache after the first run). bytes_per_second is the file's size over
// the time of one load.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <unistd.h>

#include "compiledassets/compiledassets.h"
#include "core/fileio.h"
#include "../tests/compiledtestmodels.h"

namespace
{
const int kTriangles = 100000;
const int kBones = 50;
const int kFrames = 60;

const CUtlBuffer &ModelBytes()
{
	static CUtlBuffer s_Bytes;
	if (s_Bytes.Size() == 0)
	{
		CUtlString error;
		if (!SerializeCompiledModel(MakeSkinnedGridModel(kTriangles, kBones, kFrames), s_Bytes, &error))
			fprintf(stderr, "%s\n", error.c_str());
	}
	return s_Bytes;
}

const std::string &ModelPath()
{
	static std::string s_Path;
	if (s_Path.empty())
	{
		s_Path = "/tmp/compiledassets_bench_" + std::to_string(getpid()) + ".zmdl_c";
		const CUtlBuffer &bytes = ModelBytes();
		Plat_WriteFileAtomic(s_Path.c_str(), bytes.Base(), bytes.Size());
	}
	return s_Path;
}

void SetCounters(benchmark::State &state, const CCompiledModel &model)
{
	state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)ModelBytes().Size());
	state.counters["file_MB"] = (double)ModelBytes().Size() / (1024.0 * 1024.0);
	state.counters["triangles"] = (double)model.GetMeshPrimitiveCount(0);
	state.counters["vertices"] = (double)model.m_Meshes[0].VertexCount();
}

void LoadFromMemory(benchmark::State &state)
{
	const CUtlBuffer &bytes = ModelBytes();
	CCompiledModel model;
	for (auto _ : state)
	{
		CUtlString error;
		if (!LoadCompiledModelFromMemory(bytes.Base(), bytes.Size(), "bench", model, &error))
			state.SkipWithError(error.c_str());
		benchmark::DoNotOptimize(model.m_Meshes.data());
	}
	SetCounters(state, model);
}

void LoadFile(benchmark::State &state)
{
	const std::string &path = ModelPath();
	CCompiledModel model;
	for (auto _ : state)
	{
		CUtlString error;
		if (!LoadCompiledModel(path.c_str(), model, &error))
			state.SkipWithError(error.c_str());
		benchmark::DoNotOptimize(model.m_Meshes.data());
	}
	SetCounters(state, model);
}

void Write(benchmark::State &state)
{
	const CCompiledModel model = MakeSkinnedGridModel(kTriangles, kBones, kFrames);
	for (auto _ : state)
	{
		CUtlBuffer bytes;
		SerializeCompiledModel(model, bytes);
		benchmark::DoNotOptimize(bytes.Base());
	}
	SetCounters(state, model);
}
} // namespace

BENCHMARK(LoadFromMemory)->Unit(benchmark::kMillisecond);
BENCHMARK(LoadFile)->Unit(benchmark::kMillisecond);
BENCHMARK(Write)->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
	benchmark::Initialize(&argc, argv);
	benchmark::RunSpecifiedBenchmarks();
	benchmark::Shutdown();
	if (!ModelPath().empty())
		unlink(ModelPath().c_str());
	return 0;
}
