#include "allocationtracker.h"

#include <cstdlib>

extern "C"
{
	void *__libc_malloc(size_t size);
	void *__libc_calloc(size_t count, size_t size);
	void *__libc_realloc(void *p, size_t size);
}

namespace
{
thread_local bool t_bWatching = false;
thread_local size_t t_nLargest = 0;
thread_local size_t t_nCount = 0;

inline void Note(size_t nSize)
{
	if (!t_bWatching)
		return;
	++t_nCount;
	if (nSize > t_nLargest)
		t_nLargest = nSize;
}
} // namespace

extern "C"
{
	void *malloc(size_t size)
	{
		Note(size);
		return __libc_malloc(size);
	}

	void *calloc(size_t count, size_t size)
	{
		size_t nTotal;
		Note(__builtin_mul_overflow(count, size, &nTotal) ? (size_t)-1 : nTotal);
		return __libc_calloc(count, size);
	}

	void *realloc(void *p, size_t size)
	{
		Note(size);
		return __libc_realloc(p, size);
	}
}

CAllocationWatch::CAllocationWatch()
{
	t_nLargest = 0;
	t_nCount = 0;
	t_bWatching = true;
}

CAllocationWatch::~CAllocationWatch()
{
	t_bWatching = false;
}

size_t CAllocationWatch::LargestRequest() const
{
	return t_nLargest;
}

size_t CAllocationWatch::RequestCount() const
{
	return t_nCount;
}
