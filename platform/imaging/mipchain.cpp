#include "imaging/mipchain.h"

#include <cmath>
#include <new>

#include "core/strtools.h"
#include "imaging/parallel.h"

namespace
{
// Levels are filtered in 16 bits a channel: linear light for colour (8-bit sRGB has too little
// precision in the darks to be averaged as linear 8-bit values), the values times 257 for data.
struct ConversionTables_t
{
	uint16 srgbToLinear[256];
	uint8 linearToSRGB[65536];

	ConversionTables_t()
	{
		for (int i = 0; i < 256; ++i)
			srgbToLinear[i] = (uint16)std::lround(Texture_SRGBToLinear((float)i / 255.0f) * 65535.0f);
		for (int i = 0; i < 65536; ++i)
			linearToSRGB[i] = (uint8)std::lround(Texture_LinearToSRGB((float)i / 65535.0f) * 255.0f);
	}
};

const ConversionTables_t &Tables()
{
	static const ConversionTables_t s_Tables;
	return s_Tables;
}

// One level at 16 bits a channel.
struct Level16_t
{
	int nWidth = 0;
	int nHeight = 0;
	std::vector<uint16> pixels;
};

// The source pixels of a filter pass: the 8-bit base (converted as it is read) or a 16-bit level.
struct BaseReader_t
{
	const CImageRGBA8 &image;
	const uint16 *pToLinear; // null for data
	void Read(int x, int y, uint32 *pOut) const
	{
		const uint8 *p = image.Pixel(x, y);
		if (pToLinear)
		{
			pOut[0] = pToLinear[p[0]];
			pOut[1] = pToLinear[p[1]];
			pOut[2] = pToLinear[p[2]];
		}
		else
		{
			pOut[0] = p[0] * 257u;
			pOut[1] = p[1] * 257u;
			pOut[2] = p[2] * 257u;
		}
		pOut[3] = p[3] * 257u;
	}
};

struct LevelReader_t
{
	const Level16_t &level;
	void Read(int x, int y, uint32 *pOut) const
	{
		const uint16 *p = level.pixels.data() + ((size_t)y * (size_t)level.nWidth + (size_t)x) * 4;
		pOut[0] = p[0];
		pOut[1] = p[1];
		pOut[2] = p[2];
		pOut[3] = p[3];
	}
};

// The source pixels and weights of one destination pixel along one axis.
struct Taps_t
{
	int source[3];
	float weight[3];
	int nCount;
};

std::vector<Taps_t> AxisTaps(int nSource, int nDest)
{
	std::vector<Taps_t> taps((size_t)nDest);
	for (int x = 0; x < nDest; ++x)
	{
		Taps_t &tap = taps[(size_t)x];
		if (nSource == 1)
		{
			tap = { { 0, 0, 0 }, { 1.0f, 0, 0 }, 1 };
		}
		else if (nSource % 2 == 0)
		{
			tap = { { 2 * x, 2 * x + 1, 0 }, { 0.5f, 0.5f, 0 }, 2 };
		}
		else
		{
			// 2n+1 pixels to n: each destination pixel covers (2n+1)/n source pixels.
			const int n = nDest;
			const float flScale = 1.0f / (float)(2 * n + 1);
			tap = { { 2 * x, 2 * x + 1, 2 * x + 2 }, { (float)(n - x) * flScale, (float)n * flScale, (float)(x + 1) * flScale }, 3 };
		}
	}
	return taps;
}

inline uint8 ToByte(uint32 nValue16)
{
	return (uint8)((nValue16 + 128) / 257);
}

// Writes one filtered pixel (16-bit sums already divided) to both outputs.
inline void StorePixel(const uint32 *pSum, uint16 *pOut, uint8 *pOut8, const uint8 *pToSRGB)
{
	for (int ch = 0; ch < 4; ++ch)
		pOut[ch] = (uint16)pSum[ch];
	if (pToSRGB)
	{
		pOut8[0] = pToSRGB[pSum[0]];
		pOut8[1] = pToSRGB[pSum[1]];
		pOut8[2] = pToSRGB[pSum[2]];
	}
	else
	{
		pOut8[0] = ToByte(pSum[0]);
		pOut8[1] = ToByte(pSum[1]);
		pOut8[2] = ToByte(pSum[2]);
	}
	pOut8[3] = ToByte(pSum[3]);
}

// The 2x2 box of even sizes, from the 8-bit base (through the table, or times 257 for data).
void FilterEvenFromBase(const CImageRGBA8 &base, const uint16 *pToLinear, int y, Level16_t &dest, CImageRGBA8 &dest8,
	const uint8 *pToSRGB)
{
	const uint8 *p0 = base.Pixel(0, 2 * y);
	const uint8 *p1 = base.Pixel(0, 2 * y + 1);
	uint16 *pOut = dest.pixels.data() + (size_t)y * (size_t)dest.nWidth * 4;
	uint8 *pOut8 = dest8.Pixel(0, y);
	for (int x = 0; x < dest.nWidth; ++x, p0 += 8, p1 += 8, pOut += 4, pOut8 += 4)
	{
		uint32 sum[4];
		for (int ch = 0; ch < 3; ++ch)
		{
			const uint32 v = pToLinear ? (uint32)pToLinear[p0[ch]] + pToLinear[p0[ch + 4]] + pToLinear[p1[ch]] + pToLinear[p1[ch + 4]]
									   : ((uint32)p0[ch] + p0[ch + 4] + p1[ch] + p1[ch + 4]) * 257u;
			sum[ch] = (v + 2) >> 2;
		}
		sum[3] = (((uint32)p0[3] + p0[7] + p1[3] + p1[7]) * 257u + 2) >> 2;
		StorePixel(sum, pOut, pOut8, pToSRGB);
	}
}

// The 2x2 box of even sizes, from a 16-bit level.
void FilterEvenFromLevel(const Level16_t &source, int y, Level16_t &dest, CImageRGBA8 &dest8, const uint8 *pToSRGB)
{
	const uint16 *p0 = source.pixels.data() + (size_t)(2 * y) * (size_t)source.nWidth * 4;
	const uint16 *p1 = p0 + (size_t)source.nWidth * 4;
	uint16 *pOut = dest.pixels.data() + (size_t)y * (size_t)dest.nWidth * 4;
	uint8 *pOut8 = dest8.Pixel(0, y);
	for (int x = 0; x < dest.nWidth; ++x, p0 += 8, p1 += 8, pOut += 4, pOut8 += 4)
	{
		uint32 sum[4];
		for (int ch = 0; ch < 4; ++ch)
			sum[ch] = ((uint32)p0[ch] + p0[ch + 4] + p1[ch] + p1[ch + 4] + 2) >> 2;
		StorePixel(sum, pOut, pOut8, pToSRGB);
	}
}

// Any size: the taps of each axis (two for even sizes, three for odd ones, one for a side of 1).
template <typename Reader>
void FilterAnyRow(const Reader &reader, const std::vector<Taps_t> &tapsX, const Taps_t &ty, int y, Level16_t &dest,
	CImageRGBA8 &dest8, const uint8 *pToSRGB)
{
	uint16 *pOut = dest.pixels.data() + (size_t)y * (size_t)dest.nWidth * 4;
	uint8 *pOut8 = dest8.Pixel(0, y);
	for (int x = 0; x < dest.nWidth; ++x, pOut += 4, pOut8 += 4)
	{
		float acc[4] = {};
		const Taps_t &tx = tapsX[(size_t)x];
		for (int j = 0; j < ty.nCount; ++j)
		{
			for (int i = 0; i < tx.nCount; ++i)
			{
				uint32 v[4];
				reader.Read(tx.source[i], ty.source[j], v);
				const float w = tx.weight[i] * ty.weight[j];
				for (int ch = 0; ch < 4; ++ch)
					acc[ch] += w * (float)v[ch];
			}
		}
		uint32 sum[4];
		for (int ch = 0; ch < 4; ++ch)
			sum[ch] = (uint32)std::min(65535.0f, acc[ch] + 0.5f);
		StorePixel(sum, pOut, pOut8, pToSRGB);
	}
}

// Filters the source (the base when pPrevious is null) down to `dest`, and writes the 8-bit
// level too.
void FilterLevel(const CImageRGBA8 &base, const Level16_t *pPrevious, Level16_t &dest, CImageRGBA8 &dest8, bool bSRGB,
	int nThreads)
{
	const uint8 *pToSRGB = bSRGB ? Tables().linearToSRGB : nullptr;
	const uint16 *pToLinear = bSRGB ? Tables().srgbToLinear : nullptr;
	const int nSourceWidth = pPrevious ? pPrevious->nWidth : base.Width();
	const int nSourceHeight = pPrevious ? pPrevious->nHeight : base.Height();
	const bool bEven = nSourceWidth % 2 == 0 && nSourceHeight % 2 == 0;
	const std::vector<Taps_t> tapsX = AxisTaps(nSourceWidth, dest.nWidth);
	const std::vector<Taps_t> tapsY = AxisTaps(nSourceHeight, dest.nHeight);
	Imaging_ParallelRanges((size_t)dest.nHeight, nThreads, 64, [&](size_t nBegin, size_t nEnd) {
		for (size_t y = nBegin; y < nEnd; ++y)
		{
			if (bEven && pPrevious)
				FilterEvenFromLevel(*pPrevious, (int)y, dest, dest8, pToSRGB);
			else if (bEven)
				FilterEvenFromBase(base, pToLinear, (int)y, dest, dest8, pToSRGB);
			else if (pPrevious)
				FilterAnyRow(LevelReader_t{ *pPrevious }, tapsX, tapsY[y], (int)y, dest, dest8, pToSRGB);
			else
				FilterAnyRow(BaseReader_t{ base, pToLinear }, tapsX, tapsY[y], (int)y, dest, dest8, pToSRGB);
		}
	});
}
} // namespace

float Texture_SRGBToLinear(float flValue)
{
	if (flValue <= 0.04045f)
		return flValue / 12.92f;
	return std::pow((flValue + 0.055f) / 1.055f, 2.4f);
}

float Texture_LinearToSRGB(float flValue)
{
	if (flValue <= 0.0031308f)
		return flValue * 12.92f;
	return 1.055f * std::pow(flValue, 1.0f / 2.4f) - 0.055f;
}

int Texture_MipLevelCount(int nWidth, int nHeight)
{
	int nSize = std::max(nWidth, nHeight);
	if (nSize < 1)
		return 0;
	int nCount = 1;
	while (nSize > 1)
	{
		nSize >>= 1;
		++nCount;
	}
	return nCount;
}

void Texture_MipLevelSize(int nWidth, int nHeight, int nLevel, int &nLevelWidth, int &nLevelHeight)
{
	nLevelWidth = std::max(1, nLevel >= 31 ? 0 : nWidth >> nLevel);
	nLevelHeight = std::max(1, nLevel >= 31 ? 0 : nHeight >> nLevel);
}

bool Texture_BuildMipLevels(const CImageRGBA8 &base, MipFilterSpace_t space, std::vector<CImageRGBA8> &levels,
	CUtlString *pError, int nLevels, int nThreads)
{
	levels.clear();
	if (base.IsEmpty())
	{
		if (pError)
			*pError = "cannot make mip levels of an empty image";
		return false;
	}
	const int nFull = Texture_MipLevelCount(base.Width(), base.Height());
	if (nLevels <= 0 || nLevels > nFull)
		nLevels = nFull;
	nThreads = Imaging_ThreadCount(nThreads);
	const bool bSRGB = space == MIP_FILTER_SRGB;
	try
	{
		levels.resize((size_t)(nLevels - 1));
		Level16_t previous, current;
		for (int nLevel = 1; nLevel < nLevels; ++nLevel)
		{
			Texture_MipLevelSize(base.Width(), base.Height(), nLevel, current.nWidth, current.nHeight);
			current.pixels.resize((size_t)current.nWidth * (size_t)current.nHeight * 4);
			CImageRGBA8 &level8 = levels[(size_t)(nLevel - 1)];
			if (!level8.Init(current.nWidth, current.nHeight))
				throw std::bad_alloc();
			FilterLevel(base, nLevel == 1 ? nullptr : &previous, current, level8, bSRGB, nThreads);
			std::swap(previous, current);
		}
	}
	catch (const std::bad_alloc &)
	{
		levels.clear();
		if (pError)
			*pError = V_Format("out of memory for the mip levels of %dx%d pixels", base.Width(), base.Height());
		return false;
	}
	return true;
}
