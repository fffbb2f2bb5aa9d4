#include "imaging/imageload.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stb_image.h>
#include <zlib.h>

#include "core/strtools.h"

namespace
{
// Random access to the bytes of an image, held in memory or read from an open file.
class IByteSource
{
public:
	virtual uint64 Size() const = 0;
	// Reads up to nCount bytes at nOffset and returns how many were read (fewer at the end).
	virtual size_t ReadAt(uint64 nOffset, void *pOut, size_t nCount) = 0;

protected:
	~IByteSource() = default;
};

class CMemorySource final : public IByteSource
{
public:
	CMemorySource(const void *pData, size_t nSize) : m_pData((const uint8 *)pData), m_nSize(pData ? nSize : 0) {}

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

class CFileSource final : public IByteSource
{
public:
	~CFileSource()
	{
		if (m_nFD >= 0)
			close(m_nFD);
	}

	bool Open(const char *pPath, CUtlString &error)
	{
		m_nFD = open(pPath, O_RDONLY | O_CLOEXEC);
		if (m_nFD < 0)
		{
			error = V_Format("%s: cannot open file (%s)", pPath, strerror(errno));
			return false;
		}
		struct stat info;
		if (fstat(m_nFD, &info) != 0 || !S_ISREG(info.st_mode))
		{
			error = V_Format("%s: not a regular file", pPath);
			return false;
		}
		m_nSize = (uint64)info.st_size;
		return true;
	}

	uint64 Size() const override { return m_nSize; }
	size_t ReadAt(uint64 nOffset, void *pOut, size_t nCount) override
	{
		size_t nDone = 0;
		while (nDone < nCount && nOffset + nDone < m_nSize)
		{
			const ssize_t nRead = pread(m_nFD, (char *)pOut + nDone, nCount - nDone, (off_t)(nOffset + nDone));
			if (nRead < 0 && errno == EINTR)
				continue;
			if (nRead <= 0)
				break;
			nDone += (size_t)nRead;
		}
		return nDone;
	}

private:
	int m_nFD = -1;
	uint64 m_nSize = 0;
};

// stb reads through these callbacks. Where a file ends early stb goes on with zero bytes; the
// reader notes every request past the end, which is how a truncated file is told from a whole one.
struct StbReader_t
{
	IByteSource *pSource = nullptr;
	uint64 nPosition = 0;
	bool bReadPastEnd = false;
};

int StbRead(void *pUser, char *pData, int nSize)
{
	StbReader_t &reader = *(StbReader_t *)pUser;
	if (nSize <= 0)
		return 0;
	const size_t nRead = reader.pSource->ReadAt(reader.nPosition, pData, (size_t)nSize);
	if (nRead == 0)
		reader.bReadPastEnd = true;
	reader.nPosition += nRead;
	return (int)nRead;
}

void StbSkip(void *pUser, int n)
{
	StbReader_t &reader = *(StbReader_t *)pUser;
	if (n < 0)
		reader.nPosition = (uint64)-n > reader.nPosition ? 0 : reader.nPosition - (uint64)-n;
	else
		reader.nPosition += (uint64)n;
}

int StbEof(void *pUser)
{
	const StbReader_t &reader = *(const StbReader_t *)pUser;
	return reader.nPosition >= reader.pSource->Size();
}

const stbi_io_callbacks s_StbCallbacks = { StbRead, StbSkip, StbEof };

const char *NameOr(const char *pName)
{
	return (pName && *pName) ? pName : "(memory)";
}

void SetError(CUtlString *pError, CUtlString &&text)
{
	if (pError)
		*pError = std::move(text);
}

uint32 GetU16LE(const uint8 *p) { return (uint32)p[0] | ((uint32)p[1] << 8); }
uint32 GetU16BE(const uint8 *p) { return ((uint32)p[0] << 8) | (uint32)p[1]; }
uint32 GetU32LE(const uint8 *p) { return (uint32)p[0] | ((uint32)p[1] << 8) | ((uint32)p[2] << 16) | ((uint32)p[3] << 24); }
uint32 GetU32BE(const uint8 *p) { return ((uint32)p[0] << 24) | ((uint32)p[1] << 16) | ((uint32)p[2] << 8) | (uint32)p[3]; }

const uint8 s_PNGSignature[8] = { 0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n' };

// The TGA header has no signature; these are the header values that a TGA reader takes.
bool LooksLikeTGAHeader(const uint8 *p, size_t nSize)
{
	if (nSize < 18)
		return false;
	const uint8 nColorMapType = p[1];
	const uint8 nImageType = p[2];
	const uint8 nColorMapBits = p[7];
	const uint8 nPixelBits = p[16];
	if (nColorMapType > 1)
		return false;
	if (nColorMapType == 1)
	{
		if (nImageType != 1 && nImageType != 9)
			return false;
		if (nColorMapBits != 8 && nColorMapBits != 15 && nColorMapBits != 16 && nColorMapBits != 24 && nColorMapBits != 32)
			return false;
		return nPixelBits == 8 || nPixelBits == 16;
	}
	if (nImageType != 2 && nImageType != 3 && nImageType != 10 && nImageType != 11)
		return false;
	return nPixelBits == 8 || nPixelBits == 15 || nPixelBits == 16 || nPixelBits == 24 || nPixelBits == 32;
}

ImageFileFormat_t IdentifyPrefix(const uint8 *p, size_t nSize)
{
	if (nSize >= 8 && memcmp(p, s_PNGSignature, 8) == 0)
		return IMAGE_FILE_PNG;
	if (nSize >= 3 && p[0] == 0xff && p[1] == 0xd8 && p[2] == 0xff)
		return IMAGE_FILE_JPEG;
	if (nSize >= 6 && (memcmp(p, "GIF87a", 6) == 0 || memcmp(p, "GIF89a", 6) == 0))
		return IMAGE_FILE_GIF;
	if (nSize >= 2 && p[0] == 'B' && p[1] == 'M')
		return IMAGE_FILE_BMP;
	if (nSize >= 4 && memcmp(p, "8BPS", 4) == 0)
		return IMAGE_FILE_PSD;
	if (LooksLikeTGAHeader(p, nSize))
		return IMAGE_FILE_TGA;
	return IMAGE_FILE_UNKNOWN;
}

bool ReadExactly(IByteSource &source, uint64 nOffset, void *pOut, size_t nCount)
{
	return source.ReadAt(nOffset, pOut, nCount) == nCount;
}

// Finds the first frame header of a JPEG: walks the marker segments from the start.
bool ReadJPEGSize(IByteSource &source, uint64 &nWidth, uint64 &nHeight, CUtlString &why)
{
	uint64 nOffset = 2;
	for (;;)
	{
		uint8 marker[2];
		if (!ReadExactly(source, nOffset, marker, 2))
		{
			why = V_Format("the file ends at byte %llu before a frame header", (unsigned long long)source.Size());
			return false;
		}
		if (marker[0] != 0xff)
		{
			why = V_Format("expected a marker at offset %llu, found byte 0x%02x", (unsigned long long)nOffset, marker[0]);
			return false;
		}
		if (marker[1] == 0xff)
		{
			++nOffset; // fill byte
			continue;
		}
		const uint8 nCode = marker[1];
		if (nCode == 0x01 || nCode == 0xd8 || (nCode >= 0xd0 && nCode <= 0xd7))
		{
			nOffset += 2; // markers without a segment
			continue;
		}
		if (nCode == 0xd9 || nCode == 0xda)
		{
			why = V_Format("marker 0x%02x at offset %llu comes before any frame header", nCode, (unsigned long long)nOffset);
			return false;
		}
		uint8 length[2];
		if (!ReadExactly(source, nOffset + 2, length, 2))
		{
			why = V_Format("the file ends inside the segment at offset %llu", (unsigned long long)nOffset);
			return false;
		}
		const uint32 nLength = GetU16BE(length);
		if (nLength < 2)
		{
			why = V_Format("segment 0x%02x at offset %llu has the length %u", nCode, (unsigned long long)nOffset, nLength);
			return false;
		}
		const bool bFrameHeader = nCode >= 0xc0 && nCode <= 0xcf && nCode != 0xc4 && nCode != 0xc8 && nCode != 0xcc;
		if (bFrameHeader)
		{
			uint8 frame[5];
			if (nLength < 7 || !ReadExactly(source, nOffset + 4, frame, 5))
			{
				why = V_Format("the frame header at offset %llu is cut off", (unsigned long long)nOffset);
				return false;
			}
			nHeight = GetU16BE(frame + 1);
			nWidth = GetU16BE(frame + 3);
			return true;
		}
		nOffset += 2 + nLength;
	}
}

// Reads the declared size from the format's own header.
bool ReadHeaderSize(IByteSource &source, ImageFileFormat_t format, uint64 &nWidth, uint64 &nHeight, CUtlString &why)
{
	uint8 header[32] = {};
	const size_t nHave = source.ReadAt(0, header, sizeof(header));
	switch (format)
	{
	case IMAGE_FILE_PNG:
	{
		uint64 nOffset = 8;
		for (int nChunk = 0; nChunk < 2; ++nChunk)
		{
			uint8 chunk[16];
			if (!ReadExactly(source, nOffset, chunk, 16))
			{
				why = "the file ends before the IHDR chunk";
				return false;
			}
			if (memcmp(chunk + 4, "CgBI", 4) == 0 && nChunk == 0)
			{
				nOffset += 12 + (uint64)GetU32BE(chunk);
				continue;
			}
			if (memcmp(chunk + 4, "IHDR", 4) != 0 || GetU32BE(chunk) != 13)
			{
				why = "the first chunk is not a 13-byte IHDR";
				return false;
			}
			nWidth = GetU32BE(chunk + 8);
			nHeight = GetU32BE(chunk + 12);
			return true;
		}
		why = "the first chunk is not a 13-byte IHDR";
		return false;
	}
	case IMAGE_FILE_JPEG:
		return ReadJPEGSize(source, nWidth, nHeight, why);
	case IMAGE_FILE_GIF:
		if (nHave < 10)
			break;
		nWidth = GetU16LE(header + 6);
		nHeight = GetU16LE(header + 8);
		return true;
	case IMAGE_FILE_BMP:
	{
		if (nHave < 26)
			break;
		const uint32 nHeaderSize = GetU32LE(header + 14);
		if (nHeaderSize == 12)
		{
			nWidth = GetU16LE(header + 18);
			nHeight = GetU16LE(header + 20);
			return true;
		}
		if (nHeaderSize < 16)
		{
			why = V_Format("unknown BMP header size %u", nHeaderSize);
			return false;
		}
		const int64 nSignedWidth = (int32)GetU32LE(header + 18);
		const int64 nSignedHeight = (int32)GetU32LE(header + 22);
		nWidth = (uint64)(nSignedWidth < 0 ? -nSignedWidth : nSignedWidth);
		nHeight = (uint64)(nSignedHeight < 0 ? -nSignedHeight : nSignedHeight); // negative: rows from the top
		return true;
	}
	case IMAGE_FILE_PSD:
		if (nHave < 22)
			break;
		nHeight = GetU32BE(header + 14);
		nWidth = GetU32BE(header + 18);
		return true;
	case IMAGE_FILE_TGA:
		if (nHave < 18)
			break;
		nWidth = GetU16LE(header + 12);
		nHeight = GetU16LE(header + 14);
		return true;
	case IMAGE_FILE_UNKNOWN:
		break;
	}
	why = "the header is cut off";
	return false;
}

bool ReadDeclaredSize(IByteSource &source, const char *pName, ImageFileInfo_t &info, CUtlString &error, const ImageLoadLimits_t &limits)
{
	info = ImageFileInfo_t();
	pName = NameOr(pName);
	if (source.Size() > limits.nMaxFileBytes)
	{
		error = V_Format("%s: the file holds %llu bytes, more than the %llu that an image may have", pName,
			(unsigned long long)source.Size(), (unsigned long long)limits.nMaxFileBytes);
		return false;
	}
	uint8 prefix[32] = {};
	const size_t nPrefix = source.ReadAt(0, prefix, sizeof(prefix));
	info.format = IdentifyPrefix(prefix, nPrefix);
	if (info.format == IMAGE_FILE_UNKNOWN)
	{
		if (nPrefix == 0)
			error = V_Format("%s: the file is empty", pName);
		else
			error = V_Format("%s: not an image of a known format (TGA, PNG, PSD, BMP, JPEG or GIF)", pName);
		return false;
	}
	const char *pFormat = ImageFileFormatName(info.format);

	uint64 nWidth = 0, nHeight = 0;
	CUtlString why;
	if (!ReadHeaderSize(source, info.format, nWidth, nHeight, why))
	{
		error = V_Format("%s: damaged %s header: %s", pName, pFormat, why.c_str());
		return false;
	}
	if (nWidth <= (uint64)INT_MAX && nHeight <= (uint64)INT_MAX)
	{
		info.nWidth = (int)nWidth;
		info.nHeight = (int)nHeight;
	}
	if (nWidth == 0 || nHeight == 0)
	{
		error = V_Format("%s: the %s header declares an empty image of %llux%llu pixels", pName, pFormat,
			(unsigned long long)nWidth, (unsigned long long)nHeight);
		return false;
	}
	if (nWidth > (uint64)limits.nMaxSide || nHeight > (uint64)limits.nMaxSide)
	{
		error = V_Format("%s: the %s header declares %llux%llu pixels, more than %d pixels a side", pName, pFormat,
			(unsigned long long)nWidth, (unsigned long long)nHeight, limits.nMaxSide);
		return false;
	}
	const uint64 nDecodedBytes = nWidth * nHeight * 4;
	if (nDecodedBytes > limits.nMaxDecodedBytes)
	{
		error = V_Format("%s: the %s header declares %llux%llu pixels, %.1f MiB decoded, more than %.1f MiB", pName, pFormat,
			(unsigned long long)nWidth, (unsigned long long)nHeight, (double)nDecodedBytes / 1048576.0,
			(double)limits.nMaxDecodedBytes / 1048576.0);
		return false;
	}
	return true;
}

bool ReadInfo(IByteSource &source, const char *pName, ImageFileInfo_t &info, CUtlString &error, const ImageLoadLimits_t &limits)
{
	pName = NameOr(pName);
	if (!ReadDeclaredSize(source, pName, info, error, limits))
		return false;
	const char *pFormat = ImageFileFormatName(info.format);
	const uint64 nWidth = (uint64)info.nWidth, nHeight = (uint64)info.nHeight;

	// The decoder's own reading of the header has to agree with ours.
	StbReader_t reader;
	reader.pSource = &source;
	int nStbWidth = 0, nStbHeight = 0, nChannels = 0;
	if (!stbi_info_from_callbacks(&s_StbCallbacks, &reader, &nStbWidth, &nStbHeight, &nChannels))
	{
		const char *pReason = stbi_failure_reason();
		error = V_Format("%s: cannot read the %s header: %s", pName, pFormat, pReason ? pReason : "unknown reason");
		return false;
	}
	if ((uint64)nStbWidth != nWidth || (uint64)nStbHeight != nHeight)
	{
		error = V_Format("%s: the %s header is inconsistent: %llux%llu pixels, decodes as %dx%d", pName, pFormat,
			(unsigned long long)nWidth, (unsigned long long)nHeight, nStbWidth, nStbHeight);
		return false;
	}
	info.nChannels = nChannels;
	return true;
}

// Size in bytes of the filtered scanlines that a PNG's zlib stream holds.
uint64 PNGScanlineBytes(uint64 nWidth, uint64 nHeight, uint32 nBitsPerPixel, bool bInterlaced)
{
	auto passBytes = [&](uint64 w, uint64 h) -> uint64 {
		if (w == 0 || h == 0)
			return 0;
		return h * (1 + (w * nBitsPerPixel + 7) / 8);
	};
	if (!bInterlaced)
		return passBytes(nWidth, nHeight);
	static const int s_Adam7[7][4] = { { 0, 0, 8, 8 }, { 4, 0, 8, 8 }, { 0, 4, 4, 8 }, { 2, 0, 4, 4 }, { 0, 2, 2, 4 },
		{ 1, 0, 2, 2 }, { 0, 1, 1, 2 } };
	uint64 nTotal = 0;
	for (const auto &pass : s_Adam7)
	{
		const uint64 w = nWidth > (uint64)pass[0] ? (nWidth - pass[0] + pass[2] - 1) / pass[2] : 0;
		const uint64 h = nHeight > (uint64)pass[1] ? (nHeight - pass[1] + pass[3] - 1) / pass[3] : 0;
		nTotal += passBytes(w, h);
	}
	return nTotal;
}

// Walks every chunk of a PNG before it is decoded: lengths inside the file, checksums, a valid
// IHDR, an IEND at the end, and the pixel data inflated once (into a small window that is thrown
// away) to make sure it holds no more than the header declares. So a truncated or damaged file
// gets a precise message, and a small file that would inflate to gigabytes is refused.
class CPNGCheck
{
public:
	CPNGCheck(IByteSource &source, const char *pName) : m_Source(source), m_pName(pName) {}
	~CPNGCheck()
	{
		if (m_bInflating)
			inflateEnd(&m_Stream);
	}

	bool Run(CUtlString &error)
	{
		const uint64 nSize = m_Source.Size();
		uint64 nOffset = 8;
		bool bSeenHeader = false;
		bool bSeenData = false;
		bool bRawDeflate = false;
		for (int nChunk = 0;; ++nChunk)
		{
			if (nOffset == nSize)
			{
				error = V_Format("%s: the PNG ends after %llu bytes without its IEND chunk (truncated file?)", m_pName,
					(unsigned long long)nSize);
				return false;
			}
			uint8 head[8];
			if (!ReadExactly(m_Source, nOffset, head, 8))
			{
				error = V_Format("%s: the PNG chunk at offset %llu is cut off (truncated file?)", m_pName, (unsigned long long)nOffset);
				return false;
			}
			const uint32 nLength = GetU32BE(head);
			char type[5] = { (char)head[4], (char)head[5], (char)head[6], (char)head[7], 0 };
			for (int i = 0; i < 4; ++i)
			{
				if (!((type[i] >= 'a' && type[i] <= 'z') || (type[i] >= 'A' && type[i] <= 'Z')))
				{
					error = V_Format("%s: the PNG chunk at offset %llu has no valid type", m_pName, (unsigned long long)nOffset);
					return false;
				}
			}
			if (nLength > 0x7fffffffu || nOffset + 12 + nLength > nSize)
			{
				error = V_Format("%s: the PNG chunk \"%s\" at offset %llu declares %u bytes and runs past the end of the file (truncated file?)",
					m_pName, type, (unsigned long long)nOffset, nLength);
				return false;
			}
			const bool bHeader = memcmp(type, "IHDR", 4) == 0;
			const bool bData = memcmp(type, "IDAT", 4) == 0;
			if (nChunk == 0 && memcmp(type, "CgBI", 4) == 0)
				bRawDeflate = true; // Apple's variant: raw deflate data without the zlib wrapper
			else if (!bSeenHeader && !bHeader)
			{
				error = V_Format("%s: the PNG's first chunk is \"%s\", not IHDR", m_pName, type);
				return false;
			}
			if (bHeader && bSeenHeader)
			{
				error = V_Format("%s: the PNG has a second IHDR chunk at offset %llu", m_pName, (unsigned long long)nOffset);
				return false;
			}
			if (bData && !m_bInflating && !StartInflate(bRawDeflate, error))
				return false;

			// Checksum over type and data; the pixel data goes through the inflate check as it is read.
			uLong nCRC = crc32(0L, Z_NULL, 0);
			nCRC = crc32(nCRC, head + 4, 4);
			uint8 buffer[16384];
			uint8 headerData[13] = {};
			for (uint64 nDone = 0; nDone < nLength;)
			{
				const size_t nPiece = (size_t)std::min<uint64>(sizeof(buffer), nLength - nDone);
				if (!ReadExactly(m_Source, nOffset + 8 + nDone, buffer, nPiece))
				{
					error = V_Format("%s: cannot read the PNG chunk at offset %llu", m_pName, (unsigned long long)nOffset);
					return false;
				}
				nCRC = crc32(nCRC, buffer, (uInt)nPiece);
				if (bHeader && nDone == 0 && nPiece >= 13)
					memcpy(headerData, buffer, 13);
				if (bData && !Inflate(buffer, nPiece, error))
					return false;
				nDone += nPiece;
			}
			uint8 stored[4];
			if (!ReadExactly(m_Source, nOffset + 8 + nLength, stored, 4) || GetU32BE(stored) != (uint32)nCRC)
			{
				error = V_Format("%s: the PNG chunk \"%s\" at offset %llu fails its checksum (damaged file)", m_pName, type,
					(unsigned long long)nOffset);
				return false;
			}
			if (bHeader)
			{
				if (nLength != 13 || !ReadHeader(headerData, error))
				{
					if (error.empty())
						error = V_Format("%s: the PNG's IHDR chunk has %u bytes, not 13", m_pName, nLength);
					return false;
				}
				bSeenHeader = true;
			}
			if (bData)
				bSeenData = true;
			nOffset += 12 + (uint64)nLength;
			if (memcmp(type, "IEND", 4) == 0)
				break;
		}
		if (!bSeenData)
		{
			error = V_Format("%s: the PNG has no pixel data (no IDAT chunk)", m_pName);
			return false;
		}
		if (!m_bStreamEnded)
		{
			error = V_Format("%s: the PNG's pixel data stops in the middle of its compressed stream (damaged file)", m_pName);
			return false;
		}
		if (m_nInflated < m_nExpected)
		{
			error = V_Format("%s: the PNG's pixel data inflates to %llu bytes, its header needs %llu (damaged file)", m_pName,
				(unsigned long long)m_nInflated, (unsigned long long)m_nExpected);
			return false;
		}
		return true;
	}

private:
	bool ReadHeader(const uint8 *p, CUtlString &error)
	{
		const uint64 nWidth = GetU32BE(p);
		const uint64 nHeight = GetU32BE(p + 4);
		const uint32 nDepth = p[8];
		const uint32 nColorType = p[9];
		const uint32 nInterlace = p[12];
		int nChannels = 0;
		bool bDepthOk = false;
		switch (nColorType)
		{
		case 0: nChannels = 1; bDepthOk = nDepth == 1 || nDepth == 2 || nDepth == 4 || nDepth == 8 || nDepth == 16; break;
		case 2: nChannels = 3; bDepthOk = nDepth == 8 || nDepth == 16; break;
		case 3: nChannels = 1; bDepthOk = nDepth == 1 || nDepth == 2 || nDepth == 4 || nDepth == 8; break;
		case 4: nChannels = 2; bDepthOk = nDepth == 8 || nDepth == 16; break;
		case 6: nChannels = 4; bDepthOk = nDepth == 8 || nDepth == 16; break;
		default: break;
		}
		if (!nChannels || !bDepthOk || nInterlace > 1 || p[10] != 0 || p[11] != 0)
		{
			error = V_Format("%s: the PNG's IHDR declares an invalid format (colour type %u, depth %u, interlace %u)", m_pName,
				nColorType, nDepth, nInterlace);
			return false;
		}
		m_nExpected = PNGScanlineBytes(nWidth, nHeight, nChannels * nDepth, nInterlace == 1);
		// Some writers leave padding after the last row; far more than the rows is not pixel data.
		m_nInflateLimit = m_nExpected * 2 + (1u << 20);
		return true;
	}

	bool StartInflate(bool bRawDeflate, CUtlString &error)
	{
		memset(&m_Stream, 0, sizeof(m_Stream));
		if (inflateInit2(&m_Stream, bRawDeflate ? -15 : 15) != Z_OK)
		{
			error = V_Format("%s: cannot start inflating the PNG's pixel data", m_pName);
			return false;
		}
		m_bInflating = true;
		return true;
	}

	bool Inflate(const uint8 *pData, size_t nSize, CUtlString &error)
	{
		m_Stream.next_in = const_cast<Bytef *>(pData);
		m_Stream.avail_in = (uInt)nSize;
		for (;;)
		{
			if (m_bStreamEnded)
				return true; // bytes after the end of the zlib stream are ignored by decoders; so here
			uint8 window[32768];
			m_Stream.next_out = window;
			m_Stream.avail_out = sizeof(window);
			const int nResult = inflate(&m_Stream, Z_NO_FLUSH);
			m_nInflated += sizeof(window) - m_Stream.avail_out;
			if (nResult == Z_STREAM_END)
				m_bStreamEnded = true;
			else if (nResult != Z_OK && nResult != Z_BUF_ERROR)
			{
				error = V_Format("%s: the PNG's compressed pixel data is damaged (%s)", m_pName,
					m_Stream.msg ? m_Stream.msg : "inflate failed");
				return false;
			}
			if (m_nInflated > m_nInflateLimit)
			{
				error = V_Format("%s: the PNG's pixel data inflates to more than %llu bytes, its header declares %llu",
					m_pName, (unsigned long long)m_nInflateLimit, (unsigned long long)m_nExpected);
				return false;
			}
			if (m_Stream.avail_out != 0)
				return true; // all input taken; a full window may have more waiting, so only then go on
		}
	}

	IByteSource &m_Source;
	const char *m_pName;
	z_stream m_Stream;
	bool m_bInflating = false;
	bool m_bStreamEnded = false;
	uint64 m_nInflated = 0;
	uint64 m_nExpected = 0;
	uint64 m_nInflateLimit = 0;
};

bool Load(IByteSource &source, const char *pName, CImageRGBA8 &out, CUtlString &error, const ImageLoadLimits_t &limits,
	ImageFileInfo_t *pInfo)
{
	out.Clear();
	pName = NameOr(pName);
	ImageFileInfo_t info;
	const bool bInfo = ReadInfo(source, pName, info, error, limits);
	if (pInfo)
		*pInfo = info;
	if (!bInfo)
		return false;
	const char *pFormat = ImageFileFormatName(info.format);

	if (info.format == IMAGE_FILE_PNG)
	{
		CPNGCheck check(source, pName);
		if (!check.Run(error))
			return false;
	}

	StbReader_t reader;
	reader.pSource = &source;
	int nWidth = 0, nHeight = 0, nChannels = 0;
	stbi_uc *pPixels = stbi_load_from_callbacks(&s_StbCallbacks, &reader, &nWidth, &nHeight, &nChannels, 4);
	if (!pPixels)
	{
		const char *pReason = stbi_failure_reason();
		error = V_Format("%s: cannot decode the %s image: %s", pName, pFormat, pReason ? pReason : "unknown reason");
		return false;
	}
	bool bOk = true;
	if (nWidth != info.nWidth || nHeight != info.nHeight)
	{
		error = V_Format("%s: the %s image decodes as %dx%d pixels, its header declares %dx%d", pName, pFormat, nWidth,
			nHeight, info.nWidth, info.nHeight);
		bOk = false;
	}
	else if (reader.bReadPastEnd)
	{
		error = V_Format("%s: the %s data ends early, after %llu bytes (truncated file?)", pName, pFormat,
			(unsigned long long)source.Size());
		bOk = false;
	}
	else if (!out.Init(nWidth, nHeight))
	{
		error = V_Format("%s: out of memory for %dx%d pixels", pName, nWidth, nHeight);
		bOk = false;
	}
	else
	{
		memcpy(out.Pixels(), pPixels, out.SizeInBytes());
	}
	stbi_image_free(pPixels);
	return bOk;
}
} // namespace

const char *ImageFileFormatName(ImageFileFormat_t format)
{
	switch (format)
	{
	case IMAGE_FILE_TGA: return "TGA";
	case IMAGE_FILE_PNG: return "PNG";
	case IMAGE_FILE_PSD: return "PSD";
	case IMAGE_FILE_BMP: return "BMP";
	case IMAGE_FILE_JPEG: return "JPEG";
	case IMAGE_FILE_GIF: return "GIF";
	case IMAGE_FILE_UNKNOWN: break;
	}
	return "unknown";
}

ImageFileFormat_t Image_IdentifyFormat(const void *pData, size_t nSize)
{
	if (!pData)
		return IMAGE_FILE_UNKNOWN;
	return IdentifyPrefix((const uint8 *)pData, nSize);
}

bool Image_ReadInfo(const void *pData, size_t nSize, const char *pName, ImageFileInfo_t &info, CUtlString *pError,
	const ImageLoadLimits_t &limits)
{
	CMemorySource source(pData, nSize);
	CUtlString error;
	if (ReadInfo(source, pName, info, error, limits))
		return true;
	SetError(pError, std::move(error));
	return false;
}

bool Image_ReadDeclaredSize(const void *pData, size_t nSize, const char *pName, ImageFileInfo_t &info, CUtlString *pError,
	const ImageLoadLimits_t &limits)
{
	CMemorySource source(pData, nSize);
	CUtlString error;
	if (ReadDeclaredSize(source, pName, info, error, limits))
		return true;
	SetError(pError, std::move(error));
	return false;
}

bool Image_ReadFileDeclaredSize(const char *pPath, ImageFileInfo_t &info, CUtlString *pError, const ImageLoadLimits_t &limits)
{
	info = ImageFileInfo_t();
	CFileSource source;
	CUtlString error;
	if (source.Open(pPath, error) && ReadDeclaredSize(source, pPath, info, error, limits))
		return true;
	SetError(pError, std::move(error));
	return false;
}

bool Image_ReadFileInfo(const char *pPath, ImageFileInfo_t &info, CUtlString *pError, const ImageLoadLimits_t &limits)
{
	info = ImageFileInfo_t();
	CFileSource source;
	CUtlString error;
	if (source.Open(pPath, error) && ReadInfo(source, pPath, info, error, limits))
		return true;
	SetError(pError, std::move(error));
	return false;
}

bool Image_Load(const void *pData, size_t nSize, const char *pName, CImageRGBA8 &out, CUtlString *pError,
	const ImageLoadLimits_t &limits, ImageFileInfo_t *pInfo)
{
	CMemorySource source(pData, nSize);
	CUtlString error;
	if (Load(source, pName, out, error, limits, pInfo))
		return true;
	SetError(pError, std::move(error));
	return false;
}

bool Image_LoadFile(const char *pPath, CImageRGBA8 &out, CUtlString *pError, const ImageLoadLimits_t &limits,
	ImageFileInfo_t *pInfo)
{
	out.Clear();
	if (pInfo)
		*pInfo = ImageFileInfo_t();
	CFileSource source;
	CUtlString error;
	if (source.Open(pPath, error) && Load(source, pPath, out, error, limits, pInfo))
		return true;
	SetError(pError, std::move(error));
	return false;
}
