#include "core/utlvector.h"

CUtlScratchMemoryPool::CUtlScratchMemoryPool(size_t initialSize) : m_nNextChunkSize(initialSize < 64 ? 64 : initialSize)
{
}

CUtlScratchMemoryPool::~CUtlScratchMemoryPool()
{
	FreeAll();
}

void CUtlScratchMemoryPool::FreeAll()
{
	while (m_pChunks)
	{
		Chunk_t *next = m_pChunks->pNext;
		::operator delete(m_pChunks, std::align_val_t(16));
		m_pChunks = next;
	}
	m_pCursor = m_pEnd = nullptr;
	m_nBytesAllocated = m_nBytesReserved = 0;
	m_nChunks = 0;
}

void CUtlScratchMemoryPool::AddChunk(size_t minimum)
{
	// The chunk's header takes 32 bytes (keeping 16-byte alignment) beyond the usable size.
	size_t usable = m_nNextChunkSize;
	while (usable < minimum)
		usable *= 2;
	const size_t size = usable + 32;
	Chunk_t *chunk = static_cast<Chunk_t *>(::operator new(size, std::align_val_t(16)));
	chunk->pNext = m_pChunks;
	chunk->size = size;
	m_pChunks = chunk;
	m_pCursor = reinterpret_cast<char *>(chunk) + 32; // the header padded to keep 16-byte alignment
	m_pEnd = reinterpret_cast<char *>(chunk) + size;
	m_nBytesReserved += size;
	++m_nChunks;
	m_nNextChunkSize = usable * 2;
}

void *CUtlScratchMemoryPool::Alloc(size_t size, size_t alignment)
{
	if (size == 0)
		size = 1;
	uintptr_t cursor = reinterpret_cast<uintptr_t>(m_pCursor);
	uintptr_t aligned = (cursor + alignment - 1) & ~(uintptr_t)(alignment - 1);
	if (!m_pCursor || aligned + size > reinterpret_cast<uintptr_t>(m_pEnd))
	{
		AddChunk(alignment <= 16 ? size : size + alignment - 1); // chunks start 16-aligned
		cursor = reinterpret_cast<uintptr_t>(m_pCursor);
		aligned = (cursor + alignment - 1) & ~(uintptr_t)(alignment - 1);
	}
	m_pCursor = reinterpret_cast<char *>(aligned + size);
	m_nBytesAllocated += (aligned - cursor) + size;
	return reinterpret_cast<void *>(aligned);
}
