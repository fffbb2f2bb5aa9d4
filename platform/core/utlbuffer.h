// CUtlBuffer: a growing byte buffer with a put position and a get position. Reads past the end
// fail and mark the buffer invalid instead of reading outside it. A text buffer keeps a
// terminating zero after its last byte, so Base() can be read as a C string.
#pragma once

#include <cstdarg>
#include <string_view>
#include <vector>

#include "core/platform.h"
#include "core/utlstring.h"

class CUtlBuffer
{
public:
	enum BufferFlags_t
	{
		TEXT_BUFFER = 0x1,
	};

	explicit CUtlBuffer(int flags = 0);
	// A buffer holding a copy of the bytes, ready to be read.
	CUtlBuffer(const void *data, size_t size, int flags = 0);

	bool IsText() const { return (m_nFlags & TEXT_BUFFER) != 0; }
	void SetBigEndian(bool bBigEndian) { m_bBigEndian = bBigEndian; }
	bool IsBigEndian() const { return m_bBigEndian; }

	// Whole contents, from 0 to the highest put position.
	const char *Base() const { return m_Memory.data(); }
	char *Base() { return m_Memory.data(); }
	size_t Size() const { return m_nMaxPut; }
	std::string_view View() const { return std::string_view(m_Memory.data(), m_nMaxPut); }

	void Clear();	  // positions to 0, keeps the memory
	void Purge();	  // positions to 0, frees the memory
	void EnsureCapacity(size_t size);
	void SetSize(size_t size); // sets the highest put position (bytes past the old end are zero)

	// Writing at the put position.
	void Put(const void *data, size_t size);
	void PutChar(char c) { Put(&c, 1); }
	// Text buffers write the characters only; binary buffers add the terminating zero.
	void PutString(const char *text);
	void PutString(std::string_view text);
	void PutUint8(uint8 v) { Put(&v, 1); }
	void PutUint16(uint16 v);
	void PutUint32(uint32 v);
	void PutUint64(uint64 v);
	void PutInt32(int32 v) { PutUint32((uint32)v); }
	void PutFloat(float v);
	void Printf(const char *fmt, ...) FMTFUNCTION(2, 3);
	void VaPrintf(const char *fmt, va_list args);
	size_t TellPut() const { return m_nPut; }
	void SeekPut(size_t position); // may not pass the end

	// Reading at the get position. A read past the end reads nothing, returns false (or 0) and
	// leaves IsValid() false.
	bool Get(void *data, size_t size);
	uint8 GetUint8();
	uint16 GetUint16();
	uint32 GetUint32();
	uint64 GetUint64();
	int32 GetInt32() { return (int32)GetUint32(); }
	float GetFloat();
	// Reads a zero-terminated string (binary buffers) into out; false when no terminator is left.
	bool GetString(CUtlString &out);
	size_t TellGet() const { return m_nGet; }
	bool SeekGet(size_t position);
	size_t GetBytesRemaining() const { return m_nMaxPut > m_nGet ? m_nMaxPut - m_nGet : 0; }
	// The next `size` bytes without moving, or null when fewer remain.
	const char *PeekGet(size_t size = 0) const;
	bool IsValid() const { return !m_bOverrun; }

private:
	void Terminate();

	std::vector<char> m_Memory;
	size_t m_nPut = 0;
	size_t m_nMaxPut = 0;
	size_t m_nGet = 0;
	int m_nFlags = 0;
	bool m_bBigEndian = false;
	bool m_bOverrun = false;
};
