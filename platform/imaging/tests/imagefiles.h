// Image files written byte by byte for the tests, so that the decoders are checked against
// files whose every byte is known: TGA (true colour, grey, colour-mapped, run-length), BMP
// (1, 4, 8, 24 and 32 bits), PNG (any colour type, interlaced too), PSD (raw and PackBits) and
// GIF (LZW with literal codes). Each builder takes the RGBA pixels it is to hold.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <zlib.h>

#include "imaging/image.h"

typedef std::vector<uint8> Bytes_t;

inline void PutU16LE(Bytes_t &out, uint32 v)
{
	out.push_back((uint8)(v & 0xff));
	out.push_back((uint8)((v >> 8) & 0xff));
}
inline void PutU32LE(Bytes_t &out, uint32 v)
{
	PutU16LE(out, v & 0xffff);
	PutU16LE(out, v >> 16);
}
inline void PutU16BE(Bytes_t &out, uint32 v)
{
	out.push_back((uint8)((v >> 8) & 0xff));
	out.push_back((uint8)(v & 0xff));
}
inline void PutU32BE(Bytes_t &out, uint32 v)
{
	PutU16BE(out, v >> 16);
	PutU16BE(out, v & 0xffff);
}
inline void PutBytes(Bytes_t &out, const void *p, size_t n)
{
	out.insert(out.end(), (const uint8 *)p, (const uint8 *)p + n);
}

// ---------------------------------------------------------------------------------------------
// TGA

enum TestTGAKind_t
{
	TEST_TGA_RGB24,		   // type 2, 24 bits, rows from the bottom
	TEST_TGA_RGBA32_TOP,   // type 2, 32 bits, rows from the top (descriptor bit 5)
	TEST_TGA_GREY,		   // type 3, 8 bits (takes the red channel)
	TEST_TGA_RLE24,		   // type 10, 24 bits, run-length packets
	TEST_TGA_COLORMAPPED,  // type 1, 8-bit indices into a 24-bit map; pixels must use few colours
};

inline Bytes_t MakeTGA(const CImageRGBA8 &image, TestTGAKind_t kind)
{
	const int w = image.Width(), h = image.Height();
	Bytes_t out;
	std::vector<uint32> palette;
	if (kind == TEST_TGA_COLORMAPPED)
	{
		for (size_t i = 0; i < image.PixelCount(); ++i)
		{
			const uint8 *p = image.Pixels() + i * 4;
			const uint32 c = p[0] | (p[1] << 8) | (p[2] << 16);
			if (std::find(palette.begin(), palette.end(), c) == palette.end())
				palette.push_back(c);
		}
	}
	const char id[] = "mintyard";
	out.push_back((uint8)(sizeof(id) - 1)); // image ID length
	out.push_back(kind == TEST_TGA_COLORMAPPED ? 1 : 0);
	out.push_back(kind == TEST_TGA_RGB24 || kind == TEST_TGA_RGBA32_TOP ? 2 : kind == TEST_TGA_GREY ? 3 : kind == TEST_TGA_RLE24 ? 10 : 1);
	PutU16LE(out, 0);
	PutU16LE(out, (uint32)palette.size());
	out.push_back(kind == TEST_TGA_COLORMAPPED ? 24 : 0);
	PutU16LE(out, 0);
	PutU16LE(out, 0);
	PutU16LE(out, (uint32)w);
	PutU16LE(out, (uint32)h);
	out.push_back(kind == TEST_TGA_RGBA32_TOP ? 32 : kind == TEST_TGA_GREY || kind == TEST_TGA_COLORMAPPED ? 8 : 24);
	out.push_back(kind == TEST_TGA_RGBA32_TOP ? (0x20 | 8) : 0);
	PutBytes(out, id, sizeof(id) - 1);
	for (uint32 c : palette)
	{
		out.push_back((uint8)((c >> 16) & 0xff));
		out.push_back((uint8)((c >> 8) & 0xff));
		out.push_back((uint8)(c & 0xff));
	}
	const bool bTop = kind == TEST_TGA_RGBA32_TOP;
	for (int row = 0; row < h; ++row)
	{
		const int y = bTop ? row : h - 1 - row;
		if (kind == TEST_TGA_RLE24)
		{
			// Runs of equal pixels as run packets, everything else as raw packets of one pixel.
			for (int x = 0; x < w;)
			{
				int n = 1;
				while (x + n < w && n < 128 && memcmp(image.Pixel(x + n, y), image.Pixel(x, y), 3) == 0)
					++n;
				const uint8 *p = image.Pixel(x, y);
				out.push_back(n > 1 ? (uint8)(0x80 | (n - 1)) : 0);
				out.push_back(p[2]);
				out.push_back(p[1]);
				out.push_back(p[0]);
				x += n;
			}
			continue;
		}
		for (int x = 0; x < w; ++x)
		{
			const uint8 *p = image.Pixel(x, y);
			if (kind == TEST_TGA_GREY)
				out.push_back(p[0]);
			else if (kind == TEST_TGA_COLORMAPPED)
				out.push_back((uint8)(std::find(palette.begin(), palette.end(), (uint32)(p[0] | (p[1] << 8) | (p[2] << 16))) - palette.begin()));
			else
			{
				out.push_back(p[2]);
				out.push_back(p[1]);
				out.push_back(p[0]);
				if (kind == TEST_TGA_RGBA32_TOP)
					out.push_back(p[3]);
			}
		}
	}
	return out;
}

// ---------------------------------------------------------------------------------------------
// BMP

// 1, 4, 8 bits: palettised (the pixels must use at most 2, 16, 256 colours); 24: BGR; 32: BGRA
// with bit-field masks. bTopDown stores a negative height and rows from the top.
inline Bytes_t MakeBMP(const CImageRGBA8 &image, int nBits, bool bTopDown = false)
{
	const int w = image.Width(), h = image.Height();
	std::vector<uint32> palette;
	if (nBits <= 8)
	{
		for (size_t i = 0; i < image.PixelCount(); ++i)
		{
			const uint8 *p = image.Pixels() + i * 4;
			const uint32 c = p[2] | (p[1] << 8) | (p[0] << 16);
			if (std::find(palette.begin(), palette.end(), c) == palette.end())
				palette.push_back(c);
		}
	}
	const uint32 nHeaderSize = nBits == 32 ? 108 : 40;
	const uint32 nPaletteBytes = (uint32)palette.size() * 4;
	const uint32 nRowBytes = (uint32)((w * nBits + 31) / 32 * 4);
	const uint32 nDataOffset = 14 + nHeaderSize + nPaletteBytes;
	Bytes_t out;
	out.push_back('B');
	out.push_back('M');
	PutU32LE(out, nDataOffset + nRowBytes * (uint32)h);
	PutU32LE(out, 0);
	PutU32LE(out, nDataOffset);
	PutU32LE(out, nHeaderSize);
	PutU32LE(out, (uint32)w);
	PutU32LE(out, bTopDown ? (uint32)-h : (uint32)h);
	PutU16LE(out, 1);
	PutU16LE(out, (uint32)nBits);
	PutU32LE(out, nBits == 32 ? 3 : 0); // BI_BITFIELDS for 32 bits
	PutU32LE(out, nRowBytes * (uint32)h);
	PutU32LE(out, 2835);
	PutU32LE(out, 2835);
	PutU32LE(out, (uint32)palette.size());
	PutU32LE(out, 0);
	if (nBits == 32)
	{
		PutU32LE(out, 0x00ff0000); // red
		PutU32LE(out, 0x0000ff00);
		PutU32LE(out, 0x000000ff);
		PutU32LE(out, 0xff000000); // alpha
		PutU32LE(out, 0x73524742); // "sRGB"
		for (int i = 0; i < 12; ++i)
			PutU32LE(out, 0); // end points and gamma
	}
	for (uint32 c : palette)
		PutU32LE(out, c);
	for (int row = 0; row < h; ++row)
	{
		const int y = bTopDown ? row : h - 1 - row;
		Bytes_t line(nRowBytes, 0);
		for (int x = 0; x < w; ++x)
		{
			const uint8 *p = image.Pixel(x, y);
			if (nBits <= 8)
			{
				const uint32 nIndex = (uint32)(std::find(palette.begin(), palette.end(), (uint32)(p[2] | (p[1] << 8) | (p[0] << 16))) - palette.begin());
				const int nBit = x * nBits;
				line[(size_t)(nBit / 8)] |= (uint8)(nIndex << (8 - nBits - nBit % 8));
			}
			else
			{
				const size_t o = (size_t)x * (size_t)(nBits / 8);
				line[o] = p[2];
				line[o + 1] = p[1];
				line[o + 2] = p[0];
				if (nBits == 32)
					line[o + 3] = p[3];
			}
		}
		PutBytes(out, line.data(), line.size());
	}
	return out;
}

// ---------------------------------------------------------------------------------------------
// PNG

inline void PutPNGChunk(Bytes_t &out, const char *pType, const Bytes_t &data)
{
	PutU32BE(out, (uint32)data.size());
	const size_t nStart = out.size();
	PutBytes(out, pType, 4);
	PutBytes(out, data.data(), data.size());
	const uLong crc = crc32(0, out.data() + nStart, (uInt)(out.size() - nStart));
	PutU32BE(out, (uint32)crc);
}

inline Bytes_t Deflate(const Bytes_t &raw)
{
	uLongf nSize = compressBound((uLong)raw.size());
	Bytes_t out(nSize);
	compress2(out.data(), &nSize, raw.data(), (uLong)raw.size(), 6);
	out.resize(nSize);
	return out;
}

// A PNG with the given IHDR fields and raw (filtered) scanlines; for tests that forge headers.
inline Bytes_t MakePNGFromScanlines(uint32 w, uint32 h, uint8 nDepth, uint8 nColorType, uint8 nInterlace, const Bytes_t &scanlines,
	const Bytes_t *pPalette = nullptr, const Bytes_t *pTransparency = nullptr)
{
	static const uint8 s_Signature[8] = { 0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n' };
	Bytes_t out(s_Signature, s_Signature + 8);
	Bytes_t header;
	PutU32BE(header, w);
	PutU32BE(header, h);
	header.push_back(nDepth);
	header.push_back(nColorType);
	header.push_back(0);
	header.push_back(0);
	header.push_back(nInterlace);
	PutPNGChunk(out, "IHDR", header);
	if (pPalette)
		PutPNGChunk(out, "PLTE", *pPalette);
	if (pTransparency)
		PutPNGChunk(out, "tRNS", *pTransparency);
	const Bytes_t compressed = Deflate(scanlines);
	// Two IDAT chunks, as the data may be split anywhere.
	const size_t nHalf = compressed.size() / 2;
	PutPNGChunk(out, "IDAT", Bytes_t(compressed.begin(), compressed.begin() + (long)nHalf));
	PutPNGChunk(out, "IDAT", Bytes_t(compressed.begin() + (long)nHalf, compressed.end()));
	PutPNGChunk(out, "IEND", Bytes_t());
	return out;
}

enum TestPNGKind_t
{
	TEST_PNG_RGBA8,		  // colour type 6, filters Sub/Up/Average/Paeth row by row
	TEST_PNG_RGB8,		  // colour type 2
	TEST_PNG_GREY16,	  // colour type 0, 16 bits (takes the red channel)
	TEST_PNG_PALETTE,	  // colour type 3 with tRNS; pixels must use at most 256 RGBA colours
	TEST_PNG_RGBA8_ADAM7, // colour type 6, interlaced
};

inline uint8 PaethPredictor(int a, int b, int c)
{
	const int p = a + b - c;
	const int pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
	return (uint8)(pa <= pb && pa <= pc ? a : pb <= pc ? b : c);
}

// Filters the raw rows of one pass (each nRowBytes long) with filter type (row % 5).
inline void FilterRows(const std::vector<Bytes_t> &rows, size_t nBytesPerPixel, Bytes_t &out)
{
	Bytes_t previous;
	for (size_t r = 0; r < rows.size(); ++r)
	{
		const Bytes_t &row = rows[r];
		if (previous.empty())
			previous.assign(row.size(), 0);
		const uint8 nFilter = (uint8)(r % 5);
		out.push_back(nFilter);
		for (size_t i = 0; i < row.size(); ++i)
		{
			const int a = i >= nBytesPerPixel ? row[i - nBytesPerPixel] : 0;
			const int b = previous[i];
			const int c = i >= nBytesPerPixel ? previous[i - nBytesPerPixel] : 0;
			int predicted = 0;
			switch (nFilter)
			{
			case 1: predicted = a; break;
			case 2: predicted = b; break;
			case 3: predicted = (a + b) / 2; break;
			case 4: predicted = PaethPredictor(a, b, c); break;
			default: break;
			}
			out.push_back((uint8)(row[i] - predicted));
		}
		previous = row;
	}
}

inline Bytes_t MakePNG(const CImageRGBA8 &image, TestPNGKind_t kind)
{
	const int w = image.Width(), h = image.Height();
	Bytes_t palette, transparency;
	std::vector<uint32> colors;
	if (kind == TEST_PNG_PALETTE)
	{
		for (size_t i = 0; i < image.PixelCount(); ++i)
		{
			uint32 c;
			memcpy(&c, image.Pixels() + i * 4, 4);
			if (std::find(colors.begin(), colors.end(), c) == colors.end())
				colors.push_back(c);
		}
		for (uint32 c : colors)
		{
			const uint8 *p = (const uint8 *)&c;
			palette.insert(palette.end(), { p[0], p[1], p[2] });
			transparency.push_back(p[3]);
		}
	}
	const size_t nBytesPerPixel = kind == TEST_PNG_RGB8 ? 3 : kind == TEST_PNG_GREY16 ? 2 : kind == TEST_PNG_PALETTE ? 1 : 4;
	auto pixelBytes = [&](int x, int y, Bytes_t &row) {
		const uint8 *p = image.Pixel(x, y);
		switch (kind)
		{
		case TEST_PNG_RGB8: row.insert(row.end(), { p[0], p[1], p[2] }); break;
		case TEST_PNG_GREY16: row.insert(row.end(), { p[0], (uint8)(255 - p[0]) }); break; // low byte: noise that 8 bits drop
		case TEST_PNG_PALETTE:
		{
			uint32 c;
			memcpy(&c, p, 4);
			row.push_back((uint8)(std::find(colors.begin(), colors.end(), c) - colors.begin()));
			break;
		}
		default: row.insert(row.end(), { p[0], p[1], p[2], p[3] }); break;
		}
	};
	Bytes_t scanlines;
	if (kind == TEST_PNG_RGBA8_ADAM7)
	{
		static const int s_Adam7[7][4] = { { 0, 0, 8, 8 }, { 4, 0, 8, 8 }, { 0, 4, 4, 8 }, { 2, 0, 4, 4 }, { 0, 2, 2, 4 }, { 1, 0, 2, 2 }, { 0, 1, 1, 2 } };
		for (const auto &pass : s_Adam7)
		{
			std::vector<Bytes_t> rows;
			for (int y = pass[1]; y < h; y += pass[3])
			{
				Bytes_t row;
				for (int x = pass[0]; x < w; x += pass[2])
					pixelBytes(x, y, row);
				if (!row.empty())
					rows.push_back(row);
			}
			FilterRows(rows, nBytesPerPixel, scanlines);
		}
	}
	else
	{
		std::vector<Bytes_t> rows((size_t)h);
		for (int y = 0; y < h; ++y)
			for (int x = 0; x < w; ++x)
				pixelBytes(x, y, rows[(size_t)y]);
		FilterRows(rows, nBytesPerPixel, scanlines);
	}
	const uint8 nColorType = kind == TEST_PNG_RGB8 ? 2 : kind == TEST_PNG_GREY16 ? 0 : kind == TEST_PNG_PALETTE ? 3 : 6;
	return MakePNGFromScanlines((uint32)w, (uint32)h, kind == TEST_PNG_GREY16 ? 16 : 8, nColorType,
		kind == TEST_PNG_RGBA8_ADAM7 ? 1 : 0, scanlines, kind == TEST_PNG_PALETTE ? &palette : nullptr,
		kind == TEST_PNG_PALETTE ? &transparency : nullptr);
}

// ---------------------------------------------------------------------------------------------
// PSD

// RGB with alpha as the fourth channel, 8 bits, raw (compression 0) or PackBits (1). As
// Photoshop does, the composite colour is stored matted against white where alpha is partial.
inline Bytes_t MakePSD(const CImageRGBA8 &source, bool bPackBits)
{
	CImageRGBA8 image = source;
	for (size_t i = 0; i < image.PixelCount(); ++i)
	{
		uint8 *p = image.Pixels() + i * 4;
		for (int c = 0; c < 3; ++c)
			p[c] = (uint8)((p[c] * p[3] + 255 * (255 - p[3]) + 127) / 255);
	}
	const int w = image.Width(), h = image.Height();
	Bytes_t out;
	PutBytes(out, "8BPS", 4);
	PutU16BE(out, 1);
	for (int i = 0; i < 6; ++i)
		out.push_back(0);
	PutU16BE(out, 4); // channels
	PutU32BE(out, (uint32)h);
	PutU32BE(out, (uint32)w);
	PutU16BE(out, 8);
	PutU16BE(out, 3); // RGB
	PutU32BE(out, 0); // colour mode data
	PutU32BE(out, 0); // image resources
	PutU32BE(out, 0); // layers and masks
	PutU16BE(out, bPackBits ? 1 : 0);
	if (!bPackBits)
	{
		for (int c = 0; c < 4; ++c)
			for (int y = 0; y < h; ++y)
				for (int x = 0; x < w; ++x)
					out.push_back(image.Pixel(x, y)[c]);
		return out;
	}
	std::vector<Bytes_t> rows;
	for (int c = 0; c < 4; ++c)
	{
		for (int y = 0; y < h; ++y)
		{
			// PackBits: runs of 2..128 equal bytes as (1 - n, byte), the rest as literals (n - 1, bytes).
			Bytes_t packed;
			for (int x = 0; x < w;)
			{
				int n = 1;
				while (x + n < w && n < 128 && image.Pixel(x + n, y)[c] == image.Pixel(x, y)[c])
					++n;
				if (n >= 2)
				{
					packed.push_back((uint8)(1 - n));
					packed.push_back(image.Pixel(x, y)[c]);
					x += n;
					continue;
				}
				int m = 1;
				while (x + m < w && m < 128 && (x + m + 1 >= w || image.Pixel(x + m + 1, y)[c] != image.Pixel(x + m, y)[c]))
					++m;
				packed.push_back((uint8)(m - 1));
				for (int i = 0; i < m; ++i)
					packed.push_back(image.Pixel(x + i, y)[c]);
				x += m;
			}
			rows.push_back(packed);
		}
	}
	for (const Bytes_t &row : rows)
		PutU16BE(out, (uint32)row.size());
	for (const Bytes_t &row : rows)
		PutBytes(out, row.data(), row.size());
	return out;
}

// ---------------------------------------------------------------------------------------------
// GIF

// Packs LZW codes of nWidth bits, least significant bit first.
class CTestBitWriter
{
public:
	void Put(uint32 nCode, int nWidth)
	{
		m_nBits |= nCode << m_nCount;
		m_nCount += nWidth;
		while (m_nCount >= 8)
		{
			m_Bytes.push_back((uint8)(m_nBits & 0xff));
			m_nBits >>= 8;
			m_nCount -= 8;
		}
	}
	Bytes_t Finish()
	{
		if (m_nCount > 0)
			m_Bytes.push_back((uint8)(m_nBits & 0xff));
		return m_Bytes;
	}

private:
	Bytes_t m_Bytes;
	uint32 m_nBits = 0;
	int m_nCount = 0;
};

// Frames of indices into one global palette of up to 256 colours (RGB, 3 bytes each). The LZW
// data holds only literal codes, with a clear code before the decoder's table would widen the
// codes, which every decoder reads. A transparent index < 0 means none.
inline Bytes_t MakeGIF(int w, int h, const Bytes_t &palette, const std::vector<Bytes_t> &frames, int nTransparent = -1)
{
	Bytes_t out;
	PutBytes(out, "GIF89a", 6);
	PutU16LE(out, (uint32)w);
	PutU16LE(out, (uint32)h);
	int nTableBits = 1;
	while ((3u << nTableBits) < palette.size())
		++nTableBits;
	out.push_back((uint8)(0x80 | 0x70 | (nTableBits - 1)));
	out.push_back(0);
	out.push_back(0);
	Bytes_t table = palette;
	table.resize(3u << nTableBits, 0);
	PutBytes(out, table.data(), table.size());
	for (const Bytes_t &frame : frames)
	{
		if (nTransparent >= 0)
		{
			const uint8 gce[] = { 0x21, 0xf9, 4, 1, 10, 0, (uint8)nTransparent, 0 };
			PutBytes(out, gce, sizeof(gce));
		}
		out.push_back(0x2c);
		PutU16LE(out, 0);
		PutU16LE(out, 0);
		PutU16LE(out, (uint32)w);
		PutU16LE(out, (uint32)h);
		out.push_back(0);
		const int nCodeSize = 8;
		out.push_back((uint8)nCodeSize);
		CTestBitWriter bits;
		const uint32 nClear = 1u << nCodeSize, nEnd = nClear + 1;
		bits.Put(nClear, nCodeSize + 1);
		int nSinceClear = 0;
		for (uint8 index : frame)
		{
			if (nSinceClear == 250)
			{
				bits.Put(nClear, nCodeSize + 1);
				nSinceClear = 0;
			}
			bits.Put(index, nCodeSize + 1);
			++nSinceClear;
		}
		bits.Put(nEnd, nCodeSize + 1);
		const Bytes_t data = bits.Finish();
		for (size_t i = 0; i < data.size(); i += 255)
		{
			const size_t n = std::min<size_t>(255, data.size() - i);
			out.push_back((uint8)n);
			PutBytes(out, data.data() + i, n);
		}
		out.push_back(0);
	}
	out.push_back(0x3b);
	return out;
}
