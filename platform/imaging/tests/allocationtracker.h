// Watches the heap of the test process: while a CAllocationWatch lives on a thread, the largest
// single request that thread makes of malloc, calloc or realloc is recorded (the test binary
// replaces those three; every library of the process, stb included, goes through them).
#pragma once

#include <cstddef>

class CAllocationWatch
{
public:
	CAllocationWatch();
	~CAllocationWatch();
	CAllocationWatch(const CAllocationWatch &) = delete;
	CAllocationWatch &operator=(const CAllocationWatch &) = delete;

	size_t LargestRequest() const;
	size_t RequestCount() const;
};
