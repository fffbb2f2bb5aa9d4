// Splitting work between threads: the imaging module's long loops (block compression, mip
// filtering) hand contiguous ranges to std::threads and take the first range themselves.
#pragma once

#include <algorithm>
#include <system_error>
#include <thread>
#include <vector>

#include "core/platform.h"

// The number of threads for a request: 0 means one per core.
inline int Imaging_ThreadCount(int nRequested)
{
	if (nRequested > 0)
		return std::min(nRequested, 64);
	const unsigned nCores = std::thread::hardware_concurrency();
	return nCores ? (int)std::min(nCores, 64u) : 1;
}

// Calls fn(begin, end) over [0, nCount) in up to nThreads contiguous ranges, each of at least
// nMinPerThread items. When a thread cannot be started its range runs on the calling thread.
template <typename Fn>
void Imaging_ParallelRanges(size_t nCount, int nThreads, size_t nMinPerThread, Fn &&fn)
{
	if (nCount == 0)
		return;
	size_t nParts = (size_t)std::max(1, nThreads);
	if (nMinPerThread > 0)
		nParts = std::min(nParts, std::max<size_t>(1, nCount / nMinPerThread));
	if (nParts <= 1)
	{
		fn((size_t)0, nCount);
		return;
	}
	std::vector<std::thread> threads;
	threads.reserve(nParts - 1);
	for (size_t nPart = 1; nPart < nParts; ++nPart)
	{
		const size_t nBegin = nCount * nPart / nParts;
		const size_t nEnd = nCount * (nPart + 1) / nParts;
		try
		{
			threads.emplace_back([&fn, nBegin, nEnd]() { fn(nBegin, nEnd); });
		}
		catch (const std::system_error &)
		{
			fn(nBegin, nEnd);
		}
	}
	fn((size_t)0, nCount / nParts);
	for (std::thread &thread : threads)
		thread.join();
}
