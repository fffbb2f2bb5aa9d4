#include "core/utlbuffer.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "core/strtools.h"

CUtlBuffer::CUtlBuffer(int flags) : m_nFlags(flags)
{
	Terminate();
}

CUtlBuffer::CUtlBuffer(const void *data, size_t size, int flags) : m_nFlags(flags)
{
	Put(data, size);
}

void CUtlBuffer::Terminate()
{
	// One byte past the highest put position always exists and is zero.
	if (m_Memory.size() < m_nMaxPut + 1)
		m_Memory.resize(m_nMaxPut + 1);
	m_Memory[m_nMaxPut] = 0;
}

void CUtlBuffer::Clear()
{
	m_nPut = m_nMaxPut = m_nGet = 0;
	m_bOverrun = false;
	Terminate();
}

void CUtlBuffer::Purge()
{
	std::vector<char>().swap(m_Memory);
	Clear();
}

void CUtlBuffer::EnsureCapacity(size_t size)
{
	m_Memory.reserve(size + 1);
}

void CUtlBuffer::SetSize(size_t size)
{
	if (size > m_nMaxPut)
	{
		m_Memory.resize(size + 1, 0);
	}
	m_nMaxPut = size;
	if (m_nPut > size)
		m_nPut = size;
	if (m_nGet > size)
		m_nGet = size;
	Terminate();
}

void CUtlBuffer::Put(const void *data, size_t size)
{
	if (size == 0)
		return;
	const size_t end = m_nPut + size;
	if (m_Memory.size() < end + 1)
	{
		size_t capacity = m_Memory.capacity();
		if (capacity < end + 1)
			m_Memory.reserve(std::max(end + 1, capacity * 2));
		m_Memory.resize(end + 1);
	}
	memmove(m_Memory.data() + m_nPut, data, size);
	m_nPut = end;
	if (end > m_nMaxPut)
	{
		m_nMaxPut = end;
		m_Memory[m_nMaxPut] = 0;
	}
}

void CUtlBuffer::PutString(const char *text)
{
	PutString(std::string_view(text ? text : ""));
}

void CUtlBuffer::PutString(std::string_view text)
{
	Put(text.data(), text.size());
	if (!IsText())
		PutChar(0);
}

namespace
{
template <typename T> T Swapped(T value, bool bBigEndian)
{
	if (bBigEndian == (std::endian::native == std::endian::big))
		return value;
	T out;
	const char *src = (const char *)&value;
	char *dst = (char *)&out;
	for (size_t i = 0; i < sizeof(T); ++i)
		dst[i] = src[sizeof(T) - 1 - i];
	return out;
}
} // namespace

void CUtlBuffer::PutUint16(uint16 v)
{
	v = Swapped(v, m_bBigEndian);
	Put(&v, sizeof(v));
}

void CUtlBuffer::PutUint32(uint32 v)
{
	v = Swapped(v, m_bBigEndian);
	Put(&v, sizeof(v));
}

void CUtlBuffer::PutUint64(uint64 v)
{
	v = Swapped(v, m_bBigEndian);
	Put(&v, sizeof(v));
}

void CUtlBuffer::PutFloat(float v)
{
	PutUint32(std::bit_cast<uint32>(v));
}

void CUtlBuffer::VaPrintf(const char *fmt, va_list args)
{
	CUtlString text = V_FormatV(fmt, args);
	Put(text.data(), text.size());
}

void CUtlBuffer::Printf(const char *fmt, ...)
{
	va_list args;
	va_start(args, fmt);
	VaPrintf(fmt, args);
	va_end(args);
}

void CUtlBuffer::SeekPut(size_t position)
{
	m_nPut = position <= m_nMaxPut ? position : m_nMaxPut;
}

bool CUtlBuffer::Get(void *data, size_t size)
{
	if (size > GetBytesRemaining())
	{
		m_bOverrun = true;
		return false;
	}
	memcpy(data, m_Memory.data() + m_nGet, size);
	m_nGet += size;
	return true;
}

uint8 CUtlBuffer::GetUint8()
{
	uint8 v = 0;
	Get(&v, 1);
	return v;
}

uint16 CUtlBuffer::GetUint16()
{
	uint16 v = 0;
	return Get(&v, sizeof(v)) ? Swapped(v, m_bBigEndian) : 0;
}

uint32 CUtlBuffer::GetUint32()
{
	uint32 v = 0;
	return Get(&v, sizeof(v)) ? Swapped(v, m_bBigEndian) : 0;
}

uint64 CUtlBuffer::GetUint64()
{
	uint64 v = 0;
	return Get(&v, sizeof(v)) ? Swapped(v, m_bBigEndian) : 0;
}

float CUtlBuffer::GetFloat()
{
	return std::bit_cast<float>(GetUint32());
}

bool CUtlBuffer::GetString(CUtlString &out)
{
	const char *start = m_Memory.data() + m_nGet;
	const size_t remaining = GetBytesRemaining();
	const void *terminator = memchr(start, 0, remaining);
	if (!terminator)
	{
		m_bOverrun = true;
		out.clear();
		return false;
	}
	const size_t length = (size_t)((const char *)terminator - start);
	out.assign(start, length);
	m_nGet += length + 1;
	return true;
}

bool CUtlBuffer::SeekGet(size_t position)
{
	if (position > m_nMaxPut)
	{
		m_bOverrun = true;
		return false;
	}
	m_nGet = position;
	return true;
}

const char *CUtlBuffer::PeekGet(size_t size) const
{
	if (size > GetBytesRemaining())
		return nullptr;
	return m_Memory.data() + m_nGet;
}
