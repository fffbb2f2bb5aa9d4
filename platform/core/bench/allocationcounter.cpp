// The global allocation functions of a benchmark binary, counting bytes in use and the peak.
#include "core/bench/allocationcounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace
{
std::atomic<int64_t> g_nCurrentBytes{ 0 };
std::atomic<int64_t> g_nPeakBytes{ 0 };

void *CountedAlloc(size_t size, size_t alignment)
{
	// A header in front of every block remembers its size.
	const size_t header = alignment > 16 ? alignment : 16;
	void *raw = nullptr;
	if (posix_memalign(&raw, header, size + header) != 0)
		throw std::bad_alloc();
	*static_cast<size_t *>(raw) = size;
	const int64_t now = g_nCurrentBytes += (int64_t)size;
	int64_t peak = g_nPeakBytes.load();
	while (now > peak && !g_nPeakBytes.compare_exchange_weak(peak, now))
	{
	}
	char *block = static_cast<char *>(raw) + header;
	*reinterpret_cast<size_t *>(block - sizeof(size_t)) = header;
	return block;
}

void CountedFree(void *p)
{
	if (!p)
		return;
	char *block = static_cast<char *>(p);
	const size_t header = *reinterpret_cast<size_t *>(block - sizeof(size_t));
	void *raw = block - header;
	g_nCurrentBytes -= (int64_t) * static_cast<size_t *>(raw);
	free(raw);
}
} // namespace

void *operator new(size_t size) { return CountedAlloc(size, 16); }
void *operator new[](size_t size) { return CountedAlloc(size, 16); }
void *operator new(size_t size, std::align_val_t alignment) { return CountedAlloc(size, (size_t)alignment); }
void *operator new[](size_t size, std::align_val_t alignment) { return CountedAlloc(size, (size_t)alignment); }
void operator delete(void *p) noexcept { CountedFree(p); }
void operator delete[](void *p) noexcept { CountedFree(p); }
void operator delete(void *p, size_t) noexcept { CountedFree(p); }
void operator delete[](void *p, size_t) noexcept { CountedFree(p); }
void operator delete(void *p, std::align_val_t) noexcept { CountedFree(p); }
void operator delete[](void *p, std::align_val_t) noexcept { CountedFree(p); }
void operator delete(void *p, size_t, std::align_val_t) noexcept { CountedFree(p); }
void operator delete[](void *p, size_t, std::align_val_t) noexcept { CountedFree(p); }


int64_t AllocationCounter_Current()
{
	return g_nCurrentBytes.load();
}

int64_t AllocationCounter_Peak()
{
	return g_nPeakBytes.load();
}

void AllocationCounter_ResetPeak()
{
	g_nPeakBytes = g_nCurrentBytes.load();
}
