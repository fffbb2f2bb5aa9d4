// Byte sources of the image readers (internal to the imaging module): random access to an
// image held in memory or in an open file, and the byte-order helpers of the header readers.
#pragma once

#include "core/platform.h"
#include "core/utlstring.h"

#include <algorithm>
#include <cstring>

// Random access to the bytes of an image, held in memory or read from an open file.
class IImageByteSource
{
public:
	virtual uint64 Size() const = 0;
	// Reads up to nCount bytes at nOffset and returns how many were read (fewer at the end).
	virtual size_t ReadAt(uint64 nOffset, void *pOut, size_t nCount) = 0;

protected:
	~IImageByteSource() = default;
};

class CImageMemorySource final : public IImageByteSource
{
public:
	CImageMemorySource(const void *pData, size_t nSize) : m_pData((const uint8 *)pData), m_nSize(pData ? nSize : 0) {}

	uint64 Size() const override { return m_nSize; }
	size_t ReadAt(uint64 nOffset, void *pOut, size_t nCount) override
	{
		if (nOffset >= m_nSize)
			return 0;
		const size_t nRead = (size_t)std::min<uint64>(nCount, m_nSize - nOffset);
		memcpy(pOut, m_pData + nOffset, nRead);
		return nRead;
	}

private:
	const uint8 *m_pData;
	size_t m_nSize;
};

class CImageFileSource final : public IImageByteSource
{
public:
	CImageFileSource() = default;
	CImageFileSource(const CImageFileSource &) = delete;
	CImageFileSource &operator=(const CImageFileSource &) = delete;
	~CImageFileSource();

	bool Open(const char *pPath, CUtlString &error);

	uint64 Size() const override { return m_nSize; }
	size_t ReadAt(uint64 nOffset, void *pOut, size_t nCount) override;

private:
	int m_nFD = -1;
	uint64 m_nSize = 0;
};

// Big- and little-endian values of a header.
inline uint32 ImageGetU16LE(const uint8 *p) { return (uint32)p[0] | ((uint32)p[1] << 8); }
inline uint32 ImageGetU16BE(const uint8 *p) { return ((uint32)p[0] << 8) | (uint32)p[1]; }
inline uint32 ImageGetU32LE(const uint8 *p) { return (uint32)p[0] | ((uint32)p[1] << 8) | ((uint32)p[2] << 16) | ((uint32)p[3] << 24); }
inline uint32 ImageGetU32BE(const uint8 *p) { return ((uint32)p[0] << 24) | ((uint32)p[1] << 16) | ((uint32)p[2] << 8) | (uint32)p[3]; }
inline bool ImageReadExactly(IImageByteSource &source, uint64 nOffset, void *pOut, size_t nCount)
{
	return source.ReadAt(nOffset, pOut, nCount) == nCount;
}

