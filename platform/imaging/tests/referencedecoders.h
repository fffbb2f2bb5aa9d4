// Small decoders of our own for the tests, independent of stb: they read the common cases of
// files made by other tools (8-bit non-interlaced PNG of any colour type through zlib, and
// uncompressed true-colour TGA), so that what the module decodes from those files can be
// compared pixel by pixel with a second reading.
#pragma once

#include <string>
#include <vector>

#include <zlib.h>

#include "imaging/image.h"

inline uint32 ReferenceU32BE(const uint8 *p)
{
	return ((uint32)p[0] << 24) | ((uint32)p[1] << 16) | ((uint32)p[2] << 8) | (uint32)p[3];
}

// False (with a reason) for what it does not read: other depths, interlacing, damaged files.
inline bool ReferenceDecodePNG(const std::vector<uint8> &file, CImageRGBA8 &out, std::string &why)
{
	if (file.size() < 8)
	{
		why = "short";
		return false;
	}
	size_t nOffset = 8;
	uint32 w = 0, h = 0;
	int nColorType = -1;
	std::vector<uint8> compressed, palette, transparency;
	while (nOffset + 12 <= file.size())
	{
		const uint32 nLength = ReferenceU32BE(&file[nOffset]);
		const std::string type((const char *)&file[nOffset + 4], 4);
		if (nOffset + 12 + nLength > file.size())
		{
			why = "chunk past the end";
			return false;
		}
		const uint8 *pData = &file[nOffset + 8];
		if (type == "IHDR")
		{
			w = ReferenceU32BE(pData);
			h = ReferenceU32BE(pData + 4);
			if (pData[8] != 8 || pData[12] != 0)
			{
				why = "not 8-bit non-interlaced";
				return false;
			}
			nColorType = pData[9];
		}
		else if (type == "PLTE")
			palette.assign(pData, pData + nLength);
		else if (type == "tRNS")
			transparency.assign(pData, pData + nLength);
		else if (type == "IDAT")
			compressed.insert(compressed.end(), pData, pData + nLength);
		else if (type == "IEND")
			break;
		nOffset += 12 + nLength;
	}
	const int nChannels = nColorType == 0 ? 1 : nColorType == 2 ? 3 : nColorType == 3 ? 1 : nColorType == 4 ? 2 : nColorType == 6 ? 4 : 0;
	if (!nChannels || !w || !h)
	{
		why = "unknown colour type";
		return false;
	}
	const size_t nStride = (size_t)w * (size_t)nChannels;
	std::vector<uint8> raw((nStride + 1) * h);
	uLongf nRawSize = (uLongf)raw.size();
	if (uncompress(raw.data(), &nRawSize, compressed.data(), (uLong)compressed.size()) != Z_OK || nRawSize != raw.size())
	{
		why = "zlib";
		return false;
	}
	std::vector<uint8> previous(nStride, 0), row(nStride);
	out.Init((int)w, (int)h);
	for (uint32 y = 0; y < h; ++y)
	{
		const uint8 *pLine = &raw[y * (nStride + 1)];
		const uint8 nFilter = pLine[0];
		for (size_t i = 0; i < nStride; ++i)
		{
			const int a = i >= (size_t)nChannels ? row[i - nChannels] : 0;
			const int b = previous[i];
			const int c = i >= (size_t)nChannels ? previous[i - nChannels] : 0;
			int predicted = 0;
			if (nFilter == 1)
				predicted = a;
			else if (nFilter == 2)
				predicted = b;
			else if (nFilter == 3)
				predicted = (a + b) / 2;
			else if (nFilter == 4)
			{
				const int p = a + b - c, pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
				predicted = pa <= pb && pa <= pc ? a : pb <= pc ? b : c;
			}
			row[i] = (uint8)(pLine[1 + i] + predicted);
		}
		for (uint32 x = 0; x < w; ++x)
		{
			uint8 *p = out.Pixel((int)x, (int)y);
			const uint8 *s = &row[x * (size_t)nChannels];
			switch (nColorType)
			{
			case 0: p[0] = p[1] = p[2] = s[0]; p[3] = 255; break;
			case 4: p[0] = p[1] = p[2] = s[0]; p[3] = s[1]; break;
			case 2: p[0] = s[0]; p[1] = s[1]; p[2] = s[2]; p[3] = 255; break;
			case 6: p[0] = s[0]; p[1] = s[1]; p[2] = s[2]; p[3] = s[3]; break;
			case 3:
				if ((size_t)s[0] * 3 + 2 >= palette.size())
				{
					why = "index outside the palette";
					return false;
				}
				p[0] = palette[s[0] * 3u];
				p[1] = palette[s[0] * 3u + 1];
				p[2] = palette[s[0] * 3u + 2];
				p[3] = s[0] < transparency.size() ? transparency[s[0]] : 255;
				break;
			}
		}
		previous = row;
	}
	return true;
}

// Uncompressed true-colour TGA (type 2) of 24 or 32 bits, either origin.
inline bool ReferenceDecodeTGA(const std::vector<uint8> &file, CImageRGBA8 &out, std::string &why)
{
	if (file.size() < 18 || file[2] != 2 || file[1] != 0 || (file[16] != 24 && file[16] != 32))
	{
		why = "not an uncompressed 24/32-bit TGA";
		return false;
	}
	const int w = file[12] | (file[13] << 8), h = file[14] | (file[15] << 8);
	const int nBytes = file[16] / 8;
	const bool bTop = (file[17] & 0x20) != 0;
	const size_t nStart = 18 + file[0];
	if (nStart + (size_t)w * h * nBytes > file.size())
	{
		why = "short";
		return false;
	}
	out.Init(w, h);
	for (int row = 0; row < h; ++row)
	{
		const int y = bTop ? row : h - 1 - row;
		for (int x = 0; x < w; ++x)
		{
			const uint8 *s = &file[nStart + ((size_t)row * w + x) * nBytes];
			uint8 *p = out.Pixel(x, y);
			p[0] = s[2];
			p[1] = s[1];
			p[2] = s[0];
			p[3] = nBytes == 4 ? s[3] : 255;
		}
	}
	return true;
}
