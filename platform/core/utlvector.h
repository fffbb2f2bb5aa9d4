// CUtlVector: the growing array of the core. It is a std::vector whose allocator can draw its
// storage from a CUtlScratchMemoryPool: such a list does not own its storage (freeing it does
// nothing; the pool releases everything at once). Lists made by copying always own their
// storage, so a copy may outlive the pool.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <new>
#include <vector>

#include "core/platform.h"

// A bump allocator in chunks. Memory is released only when the pool is destroyed or cleared.
class CUtlScratchMemoryPool
{
public:
	// The first chunk holds initialSize usable bytes; later chunks double.
	explicit CUtlScratchMemoryPool(size_t initialSize = 64 * 1024);
	~CUtlScratchMemoryPool();
	CUtlScratchMemoryPool(const CUtlScratchMemoryPool &) = delete;
	CUtlScratchMemoryPool &operator=(const CUtlScratchMemoryPool &) = delete;

	void *Alloc(size_t size, size_t alignment);
	void FreeAll();

	size_t BytesAllocated() const { return m_nBytesAllocated; } // handed out, with padding
	size_t BytesReserved() const { return m_nBytesReserved; }	// taken from the system
	int ChunkCount() const { return m_nChunks; }

private:
	struct Chunk_t
	{
		Chunk_t *pNext;
		size_t size;
	};
	void AddChunk(size_t minimum);

	Chunk_t *m_pChunks = nullptr;
	char *m_pCursor = nullptr;
	char *m_pEnd = nullptr;
	size_t m_nNextChunkSize;
	size_t m_nBytesAllocated = 0;
	size_t m_nBytesReserved = 0;
	int m_nChunks = 0;
};

template <typename T> class CUtlMemoryAllocator
{
public:
	typedef T value_type;
	typedef std::true_type propagate_on_container_move_assignment;
	typedef std::true_type propagate_on_container_swap;
	typedef std::false_type propagate_on_container_copy_assignment;
	typedef std::false_type is_always_equal;

	CUtlMemoryAllocator() noexcept = default;
	explicit CUtlMemoryAllocator(CUtlScratchMemoryPool *pPool) noexcept : m_pPool(pPool) {}
	template <typename U> CUtlMemoryAllocator(const CUtlMemoryAllocator<U> &other) noexcept : m_pPool(other.Pool()) {}

	// Storage from a pool is aligned to 8 for elements below 16 bytes and to 16 otherwise.
	static constexpr size_t PoolAlignment()
	{
		return std::max<size_t>(alignof(T), sizeof(T) < 16 ? 8 : 16);
	}

	T *allocate(size_t n)
	{
		if (m_pPool)
			return static_cast<T *>(m_pPool->Alloc(n * sizeof(T), PoolAlignment()));
		return static_cast<T *>(::operator new(n * sizeof(T), std::align_val_t(alignof(T))));
	}
	void deallocate(T *p, size_t) noexcept
	{
		if (!m_pPool)
			::operator delete(p, std::align_val_t(alignof(T)));
	}

	CUtlMemoryAllocator select_on_container_copy_construction() const { return CUtlMemoryAllocator(); }
	CUtlScratchMemoryPool *Pool() const { return m_pPool; }
	bool OwnsStorage() const { return m_pPool == nullptr; }

	template <typename U> bool operator==(const CUtlMemoryAllocator<U> &other) const { return m_pPool == other.Pool(); }

private:
	CUtlScratchMemoryPool *m_pPool = nullptr;
};

template <typename T> using CUtlVector = std::vector<T, CUtlMemoryAllocator<T>>;

// Moves the list's storage into the pool: afterwards the list does not own its storage.
template <typename T> void UtlVectorUsePool(CUtlVector<T> &list, CUtlScratchMemoryPool *pPool, size_t capacity)
{
	CUtlVector<T> pooled{ CUtlMemoryAllocator<T>(pPool) };
	pooled.reserve(std::max(capacity, list.size()));
	for (T &element : list)
		pooled.push_back(std::move(element));
	list = std::move(pooled);
}
