#include "imaging/imagestructure.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include <zlib.h>

#include "core/strtools.h"

namespace
{
// Reads a source byte by byte through a window, for the checks that walk a whole file.
class CByteCursor
{
public:
	explicit CByteCursor(IImageByteSource &source) : m_Source(source), m_Window(65536) {}

	uint64 Size() const { return m_Source.Size(); }
	// False past the end.
	bool Byte(uint64 nOffset, uint8 &nOut)
	{
		if (nOffset < m_nStart || nOffset >= m_nStart + m_nFilled)
		{
			m_nStart = nOffset;
			m_nFilled = m_Source.ReadAt(nOffset, m_Window.data(), m_Window.size());
			if (m_nFilled == 0)
				return false;
		}
		nOut = m_Window[(size_t)(nOffset - m_nStart)];
		return true;
	}

private:
	IImageByteSource &m_Source;
	std::vector<uint8> m_Window;
	uint64 m_nStart = 0;
	size_t m_nFilled = 0;
};

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
	CPNGCheck(IImageByteSource &source, const char *pName) : m_Source(source), m_pName(pName) {}
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
			if (!ImageReadExactly(m_Source, nOffset, head, 8))
			{
				error = V_Format("%s: the PNG chunk at offset %llu is cut off (truncated file?)", m_pName, (unsigned long long)nOffset);
				return false;
			}
			const uint32 nLength = ImageGetU32BE(head);
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
				if (!ImageReadExactly(m_Source, nOffset + 8 + nDone, buffer, nPiece))
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
			if (!ImageReadExactly(m_Source, nOffset + 8 + nLength, stored, 4) || ImageGetU32BE(stored) != (uint32)nCRC)
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
		const uint64 nWidth = ImageGetU32BE(p);
		const uint64 nHeight = ImageGetU32BE(p + 4);
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

	IImageByteSource &m_Source;
	const char *m_pName;
	z_stream m_Stream;
	bool m_bInflating = false;
	bool m_bStreamEnded = false;
	uint64 m_nInflated = 0;
	uint64 m_nExpected = 0;
	uint64 m_nInflateLimit = 0;
};


// BMP: the rows of an uncompressed bitmap, each padded to four bytes, must be in the file.
bool CheckBMP(IImageByteSource &source, const char *pName, CUtlString &error)
{
	uint8 header[34] = {};
	if (!ImageReadExactly(source, 0, header, 26))
	{
		error = V_Format("%s: the BMP header is cut off", pName);
		return false;
	}
	const uint64 nDataOffset = ImageGetU32LE(header + 10);
	const uint32 nHeaderSize = ImageGetU32LE(header + 14);
	uint64 nWidth, nHeight;
	uint32 nBits, nCompression = 0;
	if (nHeaderSize == 12)
	{
		nWidth = ImageGetU16LE(header + 18);
		nHeight = ImageGetU16LE(header + 20);
		nBits = ImageGetU16LE(header + 24);
	}
	else
	{
		if (!ImageReadExactly(source, 26, header + 26, 8))
		{
			error = V_Format("%s: the BMP header is cut off", pName);
			return false;
		}
		const int64 nSignedWidth = (int32)ImageGetU32LE(header + 18);
		const int64 nSignedHeight = (int32)ImageGetU32LE(header + 22);
		nWidth = (uint64)(nSignedWidth < 0 ? -nSignedWidth : nSignedWidth);
		nHeight = (uint64)(nSignedHeight < 0 ? -nSignedHeight : nSignedHeight);
		nBits = ImageGetU16LE(header + 28);
		nCompression = ImageGetU32LE(header + 30);
	}
	// BI_RGB, BI_BITFIELDS, BI_ALPHABITFIELDS store plain rows; the decoder refuses the others.
	if ((nCompression != 0 && nCompression != 3 && nCompression != 6) || nWidth == 0 || nHeight == 0 || nBits == 0 || nBits > 32)
		return true;
	const uint64 nRowBytes = (nWidth * nBits + 31) / 32 * 4;
	const uint64 nNeeded = nDataOffset + nRowBytes * nHeight;
	if (nNeeded > source.Size())
	{
		error = V_Format("%s: the BMP's pixel rows need %llu bytes from offset %llu, the file ends at %llu (truncated file?)", pName,
			(unsigned long long)(nNeeded - nDataOffset), (unsigned long long)nDataOffset, (unsigned long long)source.Size());
		return false;
	}
	return true;
}

// TGA: the image ID, the colour map and, when not run-length coded, the pixels must be in the
// file. Run-length data is at least one packet of a header and a pixel per 128 pixels.
bool CheckTGA(IImageByteSource &source, const char *pName, CUtlString &error)
{
	uint8 header[18];
	if (!ImageReadExactly(source, 0, header, sizeof(header)))
	{
		error = V_Format("%s: the TGA header is cut off", pName);
		return false;
	}
	const uint64 nColorMapBytes = header[1] == 1 ? (uint64)ImageGetU16LE(header + 5) * ((header[7] + 7u) / 8u) : 0;
	const uint64 nPixelStart = 18 + (uint64)header[0] + nColorMapBytes;
	const uint8 nType = header[2];
	uint64 nNeeded = nPixelStart;
	const uint64 nPixels = (uint64)ImageGetU16LE(header + 12) * ImageGetU16LE(header + 14);
	const uint64 nPixelBytes = (header[16] + 7u) / 8u;
	if (nType == 1 || nType == 2 || nType == 3)
		nNeeded += nPixels * nPixelBytes;
	else
		nNeeded += (nPixels + 127) / 128 * (1 + nPixelBytes);
	if (nNeeded > source.Size())
	{
		error = V_Format("%s: the TGA needs %llu bytes, the file ends at %llu (truncated file?)", pName, (unsigned long long)nNeeded,
			(unsigned long long)source.Size());
		return false;
	}
	return true;
}

// PSD: the three sections before the image data, and the image data itself (raw, or the
// run-length byte counts and what they count).
bool CheckPSD(IImageByteSource &source, const char *pName, CUtlString &error)
{
	uint8 header[26];
	if (!ImageReadExactly(source, 0, header, sizeof(header)))
	{
		error = V_Format("%s: the PSD header is cut off", pName);
		return false;
	}
	const uint64 nChannels = ImageGetU16BE(header + 12);
	const uint64 nHeight = ImageGetU32BE(header + 14);
	const uint64 nWidth = ImageGetU32BE(header + 18);
	const uint64 nDepth = ImageGetU16BE(header + 22);
	uint64 nOffset = 26;
	static const char *const s_Sections[3] = { "colour mode data", "image resources", "layer and mask information" };
	for (const char *pSection : s_Sections)
	{
		uint8 length[4];
		if (!ImageReadExactly(source, nOffset, length, 4))
		{
			error = V_Format("%s: the PSD ends at %llu, before its %s section (truncated file?)", pName,
				(unsigned long long)source.Size(), pSection);
			return false;
		}
		nOffset += 4 + (uint64)ImageGetU32BE(length);
		if (nOffset > source.Size())
		{
			error = V_Format("%s: the PSD's %s section runs past the end of the file (truncated file?)", pName, pSection);
			return false;
		}
	}
	uint8 compression[2];
	if (!ImageReadExactly(source, nOffset, compression, 2))
	{
		error = V_Format("%s: the PSD ends at %llu, before its image data (truncated file?)", pName, (unsigned long long)source.Size());
		return false;
	}
	nOffset += 2;
	const uint32 nCompression = ImageGetU16BE(compression);
	uint64 nNeeded = 0;
	if (nCompression == 0)
	{
		nNeeded = nOffset + nChannels * nWidth * nHeight * ((nDepth + 7) / 8);
	}
	else if (nCompression == 1)
	{
		// One 16-bit byte count per row of every channel, then the rows.
		const uint64 nRows = nChannels * nHeight;
		nNeeded = nOffset + nRows * 2;
		if (nNeeded > source.Size())
		{
			error = V_Format("%s: the PSD's table of row sizes runs past the end of the file (truncated file?)", pName);
			return false;
		}
		uint8 counts[8192];
		for (uint64 nRow = 0; nRow < nRows;)
		{
			const size_t nBatch = (size_t)std::min<uint64>(sizeof(counts) / 2, nRows - nRow);
			if (!ImageReadExactly(source, nOffset + nRow * 2, counts, nBatch * 2))
				break;
			for (size_t i = 0; i < nBatch; ++i)
				nNeeded += ImageGetU16BE(counts + 2 * i);
			nRow += nBatch;
		}
	}
	else
	{
		return true; // the decoder names what it does not read
	}
	if (nNeeded > source.Size())
	{
		error = V_Format("%s: the PSD's image data needs %llu bytes, the file ends at %llu (truncated file?)", pName,
			(unsigned long long)nNeeded, (unsigned long long)source.Size());
		return false;
	}
	return true;
}

// GIF: every block from the screen descriptor to the trailer.
bool CheckGIF(IImageByteSource &source, const char *pName, CUtlString &error)
{
	CByteCursor cursor(source);
	auto cutOff = [&](uint64 nOffset, const char *pWhat) {
		error = V_Format("%s: the GIF ends at %llu inside %s at offset %llu (truncated file?)", pName,
			(unsigned long long)cursor.Size(), pWhat, (unsigned long long)nOffset);
		return false;
	};
	uint8 nFlags;
	if (!cursor.Byte(10, nFlags))
		return cutOff(6, "the screen descriptor");
	uint64 nOffset = 13;
	if (nFlags & 0x80)
		nOffset += 3ull << ((nFlags & 7) + 1); // global colour table
	// Sub-blocks: a length byte and that many bytes, up to a length of 0.
	auto skipSubBlocks = [&](uint64 &nAt, const char *pWhat) {
		for (;;)
		{
			uint8 nLength;
			if (!cursor.Byte(nAt, nLength))
				return cutOff(nAt, pWhat);
			++nAt;
			if (nLength == 0)
				return true;
			nAt += nLength;
		}
	};
	bool bSeenImage = false;
	for (;;)
	{
		uint8 nBlock;
		if (!cursor.Byte(nOffset, nBlock))
			return cutOff(nOffset, bSeenImage ? "the blocks before the trailer" : "the blocks before the first image");
		if (nBlock == 0x3b)
			break; // trailer
		if (nBlock == 0x21)
		{
			uint64 nAt = nOffset + 2;
			if (!skipSubBlocks(nAt, "an extension"))
				return false;
			nOffset = nAt;
		}
		else if (nBlock == 0x2c)
		{
			uint8 nImageFlags;
			if (!cursor.Byte(nOffset + 9, nImageFlags))
				return cutOff(nOffset, "an image descriptor");
			uint64 nAt = nOffset + 10;
			if (nImageFlags & 0x80)
				nAt += 3ull << ((nImageFlags & 7) + 1); // local colour table
			++nAt; // LZW code size
			if (!skipSubBlocks(nAt, "an image's data"))
				return false;
			nOffset = nAt;
			bSeenImage = true;
		}
		else
		{
			error = V_Format("%s: the GIF has an unknown block 0x%02x at offset %llu", pName, nBlock, (unsigned long long)nOffset);
			return false;
		}
	}
	if (!bSeenImage)
	{
		error = V_Format("%s: the GIF holds no image", pName);
		return false;
	}
	return true;
}

// JPEG: every marker segment and the entropy-coded data after each scan, up to the end marker.
bool CheckJPEG(IImageByteSource &source, const char *pName, CUtlString &error)
{
	CByteCursor cursor(source);
	uint64 nOffset = 2;
	bool bInScan = false;
	for (;;)
	{
		uint8 b0, b1;
		if (!cursor.Byte(nOffset, b0) || !cursor.Byte(nOffset + 1, b1))
		{
			error = V_Format("%s: the JPEG ends at %llu without its end marker (truncated file?)", pName,
				(unsigned long long)cursor.Size());
			return false;
		}
		if (bInScan)
		{
			// Entropy-coded bytes: 0xff is followed by a stuffed 0, a restart marker or a real marker.
			if (b0 != 0xff || b1 == 0x00 || (b1 >= 0xd0 && b1 <= 0xd7))
			{
				nOffset += b0 == 0xff ? 2 : 1;
				continue;
			}
			if (b1 == 0xff)
			{
				++nOffset;
				continue;
			}
			bInScan = false;
		}
		if (b0 != 0xff)
		{
			error = V_Format("%s: the JPEG has no marker at offset %llu (byte 0x%02x)", pName, (unsigned long long)nOffset, b0);
			return false;
		}
		if (b1 == 0xff)
		{
			++nOffset; // fill byte
			continue;
		}
		if (b1 == 0xd9)
			return true;
		if (b1 == 0x01 || b1 == 0xd8 || (b1 >= 0xd0 && b1 <= 0xd7))
		{
			nOffset += 2;
			continue;
		}
		uint8 l0, l1;
		if (!cursor.Byte(nOffset + 2, l0) || !cursor.Byte(nOffset + 3, l1))
		{
			error = V_Format("%s: the JPEG ends inside the segment at offset %llu (truncated file?)", pName, (unsigned long long)nOffset);
			return false;
		}
		const uint32 nLength = ((uint32)l0 << 8) | l1;
		if (nLength < 2)
		{
			error = V_Format("%s: the JPEG segment 0x%02x at offset %llu has the length %u", pName, b1, (unsigned long long)nOffset, nLength);
			return false;
		}
		nOffset += 2 + (uint64)nLength;
		if (nOffset > cursor.Size())
		{
			error = V_Format("%s: the JPEG segment 0x%02x runs past the end of the file (truncated file?)", pName, b1);
			return false;
		}
		bInScan = b1 == 0xda;
	}
}
} // namespace

bool Image_CheckStructure(IImageByteSource &source, ImageFileFormat_t format, const char *pName, CUtlString &error)
{
	switch (format)
	{
	case IMAGE_FILE_PNG:
	{
		CPNGCheck check(source, pName);
		return check.Run(error);
	}
	case IMAGE_FILE_BMP: return CheckBMP(source, pName, error);
	case IMAGE_FILE_TGA: return CheckTGA(source, pName, error);
	case IMAGE_FILE_PSD: return CheckPSD(source, pName, error);
	case IMAGE_FILE_GIF: return CheckGIF(source, pName, error);
	case IMAGE_FILE_JPEG: return CheckJPEG(source, pName, error);
	case IMAGE_FILE_UNKNOWN: break;
	}
	error = V_Format("%s: not an image of a known format", pName);
	return false;
}
