#include "imaging/blockencoder.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace
{
// How much work a block gets, chosen with imaging_bench on a photograph-like texture: a second
// colour refinement gains 0.07 dB for 15% more time, which the budget of a whole mip chain does
// not allow; the alpha search is cheap and gains 1.5 dB over the range endpoints.
enum
{
	COLOR_REFINEMENTS = 1,
	ALPHA_REFINEMENTS = 3,
	ALPHA_SEARCH_ROUNDS = 2,
};

// Lookup tables, built once.
struct EncoderTables_t
{
	uint8 expand5[32];
	uint8 expand6[64];
	uint8 quantize5[256]; // the 5-bit code whose expansion is nearest to the value
	uint8 quantize6[256];
	uint8 floor5[256]; // the largest 5-bit code whose expansion is not above the value
	uint8 floor6[256];
	// For a block of one colour: per channel value, the codes (first, second endpoint) whose
	// two-thirds interpolation (palette entry 2) comes nearest to the value.
	uint8 single5[256][2];
	uint8 single6[256][2];

	EncoderTables_t()
	{
		for (int i = 0; i < 32; ++i)
			expand5[i] = (uint8)((i << 3) | (i >> 2));
		for (int i = 0; i < 64; ++i)
			expand6[i] = (uint8)((i << 2) | (i >> 4));
		BuildQuantize(expand5, 32, quantize5);
		BuildQuantize(expand6, 64, quantize6);
		BuildFloor(expand5, 32, floor5);
		BuildFloor(expand6, 64, floor6);
		BuildSingle(expand5, 32, single5);
		BuildSingle(expand6, 64, single6);
	}

	static void BuildQuantize(const uint8 *pExpand, int nCodes, uint8 *pOut)
	{
		for (int v = 0; v < 256; ++v)
		{
			int nBest = 0, nBestError = 1 << 30;
			for (int c = 0; c < nCodes; ++c)
			{
				const int nError = std::abs((int)pExpand[c] - v);
				if (nError < nBestError)
				{
					nBestError = nError;
					nBest = c;
				}
			}
			pOut[v] = (uint8)nBest;
		}
	}

	static void BuildFloor(const uint8 *pExpand, int nCodes, uint8 *pOut)
	{
		for (int v = 0; v < 256; ++v)
		{
			int nCode = 0;
			while (nCode + 1 < nCodes && pExpand[nCode + 1] <= v)
				++nCode;
			pOut[v] = (uint8)nCode;
		}
	}

	static void BuildSingle(const uint8 *pExpand, int nCodes, uint8 (*pOut)[2])
	{
		for (int v = 0; v < 256; ++v)
		{
			int nBestError = 1 << 30, nBestSpread = 1 << 30;
			for (int a = 0; a < nCodes; ++a)
			{
				for (int b = 0; b < nCodes; ++b)
				{
					const int nValue = (2 * pExpand[a] + pExpand[b]) / 3;
					const int nError = std::abs(nValue - v);
					const int nSpread = std::abs(a - b);
					if (nError < nBestError || (nError == nBestError && nSpread < nBestSpread))
					{
						nBestError = nError;
						nBestSpread = nSpread;
						pOut[v][0] = (uint8)a;
						pOut[v][1] = (uint8)b;
					}
				}
			}
		}
	}
};

const EncoderTables_t s_Tables;

inline const EncoderTables_t &Tables()
{
	return s_Tables;
}

struct ColorBlock_t
{
	int r[16], g[16], b[16];
};

inline uint32 Pack565(int r, int g, int b)
{
	return ((uint32)r << 11) | ((uint32)g << 5) | (uint32)b;
}

// Squared error of the block against the four-colour palette of two 5:6:5 colours, as the
// decoder forms it, and the nearest palette entry of every pixel.
__attribute__((always_inline)) inline uint32 EvaluateColors(const ColorBlock_t &block, uint32 c0, uint32 c1, int *pIndex)
{
	const EncoderTables_t &tables = Tables();
	int pr[4], pg[4], pb[4];
	pr[0] = tables.expand5[(c0 >> 11) & 31];
	pg[0] = tables.expand6[(c0 >> 5) & 63];
	pb[0] = tables.expand5[c0 & 31];
	pr[1] = tables.expand5[(c1 >> 11) & 31];
	pg[1] = tables.expand6[(c1 >> 5) & 63];
	pb[1] = tables.expand5[c1 & 31];
	pr[2] = (2 * pr[0] + pr[1]) / 3;
	pg[2] = (2 * pg[0] + pg[1]) / 3;
	pb[2] = (2 * pb[0] + pb[1]) / 3;
	pr[3] = (pr[0] + 2 * pr[1]) / 3;
	pg[3] = (pg[0] + 2 * pg[1]) / 3;
	pb[3] = (pb[0] + 2 * pb[1]) / 3;

	int best[16];
	for (int i = 0; i < 16; ++i)
	{
		const int dr = block.r[i] - pr[0], dg = block.g[i] - pg[0], db = block.b[i] - pb[0];
		best[i] = dr * dr + dg * dg + db * db;
		pIndex[i] = 0;
	}
	for (int k = 1; k < 4; ++k)
	{
		for (int i = 0; i < 16; ++i)
		{
			const int dr = block.r[i] - pr[k], dg = block.g[i] - pg[k], db = block.b[i] - pb[k];
			const int d = dr * dr + dg * dg + db * db;
			const bool bCloser = d < best[i];
			best[i] = bCloser ? d : best[i];
			pIndex[i] = bCloser ? k : pIndex[i];
		}
	}
	uint32 nError = 0;
	for (int i = 0; i < 16; ++i)
		nError += (uint32)best[i];
	return nError;
}

// For fixed indices the squared error splits by channel, so each channel's pair of codes is
// chosen on its own: the least-squares values of the channel, then the codes just below and
// just above each value, all four pairs measured against the decoder's integer palette.
// False when the indices do not determine the endpoints (every pixel on one entry).
__attribute__((always_inline)) inline bool FitQuantizedEndpoints(const ColorBlock_t &block, const int *pIndex, uint32 &c0, uint32 &c1)
{
	const EncoderTables_t &tables = Tables();
	static const int s_Weight[4] = { 3, 0, 2, 1 }; // of the first endpoint, in thirds
	int count[4], sum[3][4];
	for (int k = 0; k < 4; ++k)
	{
		int n = 0, sr = 0, sg = 0, sb = 0;
		for (int i = 0; i < 16; ++i)
		{
			const int m = pIndex[i] == k ? -1 : 0;
			n -= m;
			sr += block.r[i] & m;
			sg += block.g[i] & m;
			sb += block.b[i] & m;
		}
		count[k] = n;
		sum[0][k] = sr;
		sum[1][k] = sg;
		sum[2][k] = sb;
	}
	int aa = 0, bb = 0, ab = 0;
	for (int k = 0; k < 4; ++k)
	{
		const int a = s_Weight[k], b = 3 - a;
		aa += count[k] * a * a;
		bb += count[k] * b * b;
		ab += count[k] * a * b;
	}
	const int nDet = aa * bb - ab * ab;
	if (nDet == 0)
		return false;
	const float flInvDet = 3.0f / (float)nDet;
	int codes[2][3];
	for (int c = 0; c < 3; ++c)
	{
		int ax = 0, bx = 0;
		for (int k = 0; k < 4; ++k)
		{
			ax += s_Weight[k] * sum[c][k];
			bx += (3 - s_Weight[k]) * sum[c][k];
		}
		const float flValue[2] = { std::clamp((float)(ax * bb - bx * ab) * flInvDet, 0.0f, 255.0f),
			std::clamp((float)(bx * aa - ax * ab) * flInvDet, 0.0f, 255.0f) };
		const bool bGreen = c == 1;
		const uint8 *pFloor = bGreen ? tables.floor6 : tables.floor5;
		const uint8 *pExpand = bGreen ? tables.expand6 : tables.expand5;
		const int nMaxCode = bGreen ? 63 : 31;
		int low[2], high[2];
		for (int e = 0; e < 2; ++e)
		{
			low[e] = pFloor[(int)flValue[e]];
			high[e] = std::min(low[e] + 1, nMaxCode);
		}
		// Error of a pair up to a constant: sum over entries of v (n v - 2 S). Chosen without
		// branches: which pair wins is as good as random.
		int nError[4];
		for (int nPair = 0; nPair < 4; ++nPair)
		{
			const int A = pExpand[(nPair & 1) ? high[0] : low[0]], B = pExpand[(nPair & 2) ? high[1] : low[1]];
			const int value[4] = { A, B, (2 * A + B) / 3, (A + 2 * B) / 3 };
			nError[nPair] = 0;
			for (int k = 0; k < 4; ++k)
				nError[nPair] += value[k] * (count[k] * value[k] - 2 * sum[c][k]);
		}
		int nBest = 0;
		for (int nPair = 1; nPair < 4; ++nPair)
			nBest = nError[nPair] < nError[nBest] ? nPair : nBest;
		codes[0][c] = (nBest & 1) ? high[0] : low[0];
		codes[1][c] = (nBest & 2) ? high[1] : low[1];
	}
	c0 = Pack565(codes[0][0], codes[0][1], codes[0][2]);
	c1 = Pack565(codes[1][0], codes[1][1], codes[1][2]);
	return true;
}

__attribute__((always_inline)) inline void WriteColorBlock(uint32 c0, uint32 c1, const int *pIndex, uint8 *pBlock)
{
	uint32 nIndices = 0;
	for (int i = 0; i < 16; ++i)
		nIndices |= (uint32)pIndex[i] << (2 * i);
	if (c0 < c1)
	{
		std::swap(c0, c1);
		nIndices ^= 0x55555555u; // entries 0<->1 and 2<->3
	}
	else if (c0 == c1)
	{
		nIndices = 0; // every entry is the same colour; entry 0 is it in either mode
	}
	pBlock[0] = (uint8)(c0 & 0xff);
	pBlock[1] = (uint8)(c0 >> 8);
	pBlock[2] = (uint8)(c1 & 0xff);
	pBlock[3] = (uint8)(c1 >> 8);
	pBlock[4] = (uint8)(nIndices & 0xff);
	pBlock[5] = (uint8)((nIndices >> 8) & 0xff);
	pBlock[6] = (uint8)((nIndices >> 16) & 0xff);
	pBlock[7] = (uint8)(nIndices >> 24);
}

// Built for AVX2 as well as the baseline: the per-pixel loops over 16 pixels are where the time
// goes, and they vectorise. (Internal functions: clang makes multi-versioned functions callable
// only from their own file.)
__attribute__((target_clones("avx2", "default"))) void EncodeColorBlockImpl(const uint8 *pPixels, uint8 *pBlock)
{
	const EncoderTables_t &tables = Tables();
	ColorBlock_t block;
	for (int i = 0; i < 16; ++i)
	{
		block.r[i] = pPixels[i * 4 + 0];
		block.g[i] = pPixels[i * 4 + 1];
		block.b[i] = pPixels[i * 4 + 2];
	}
	int nSingle = 0;
	for (int i = 0; i < 16; ++i)
		nSingle |= (block.r[i] ^ block.r[0]) | (block.g[i] ^ block.g[0]) | (block.b[i] ^ block.b[0]);
	int index[16];
	if (nSingle == 0)
	{
		const uint32 c0 = Pack565(tables.single5[block.r[0]][0], tables.single6[block.g[0]][0], tables.single5[block.b[0]][0]);
		const uint32 c1 = Pack565(tables.single5[block.r[0]][1], tables.single6[block.g[0]][1], tables.single5[block.b[0]][1]);
		for (int &i : index)
			i = 2;
		WriteColorBlock(c0, c1, index, pBlock);
		return;
	}

	// Principal axis of the colours: covariance from integer sums, then power iteration from
	// the row of the largest variance (never orthogonal to the axis).
	int sr = 0, sg = 0, sb = 0, srr = 0, srg = 0, srb = 0, sgg = 0, sgb = 0, sbb = 0;
	for (int i = 0; i < 16; ++i)
	{
		const int r = block.r[i], g = block.g[i], b = block.b[i];
		sr += r;
		sg += g;
		sb += b;
		srr += r * r;
		srg += r * g;
		srb += r * b;
		sgg += g * g;
		sgb += g * b;
		sbb += b * b;
	}
	const float cov[6] = { (float)srr - (float)(sr * sr) / 16.0f, (float)srg - (float)(sr * sg) / 16.0f,
		(float)srb - (float)(sr * sb) / 16.0f, (float)sgg - (float)(sg * sg) / 16.0f, (float)sgb - (float)(sg * sb) / 16.0f,
		(float)sbb - (float)(sb * sb) / 16.0f };
	float axis[3];
	if (cov[0] >= cov[3] && cov[0] >= cov[5])
		axis[0] = cov[0], axis[1] = cov[1], axis[2] = cov[2];
	else if (cov[3] >= cov[5])
		axis[0] = cov[1], axis[1] = cov[3], axis[2] = cov[4];
	else
		axis[0] = cov[2], axis[1] = cov[4], axis[2] = cov[5];
	// Unnormalised: the covariance is at most about 1e6 per entry, so four steps stay far inside
	// the float range, and only the direction matters.
	for (int nIteration = 0; nIteration < 4; ++nIteration)
	{
		const float x = axis[0] * cov[0] + axis[1] * cov[1] + axis[2] * cov[2];
		const float y = axis[0] * cov[1] + axis[1] * cov[3] + axis[2] * cov[4];
		const float z = axis[0] * cov[2] + axis[1] * cov[4] + axis[2] * cov[5];
		axis[0] = x;
		axis[1] = y;
		axis[2] = z;
	}
	const float flMax = std::max(std::fabs(axis[0]), std::max(std::fabs(axis[1]), std::fabs(axis[2])));
	const float flScale = flMax > 0.0f ? 1024.0f / flMax : 0.0f;

	// The pixels at both ends of the axis are the first endpoints.
	int axisScaled[3];
	for (int c = 0; c < 3; ++c)
	{
		const float flValue = axis[c] * flScale;
		axisScaled[c] = (int)(flValue + (flValue >= 0.0f ? 0.5f : -0.5f));
	}
	int dot[16];
	for (int i = 0; i < 16; ++i)
		dot[i] = block.r[i] * axisScaled[0] + block.g[i] * axisScaled[1] + block.b[i] * axisScaled[2];
	int nMinDot = dot[0], nMaxDot = dot[0];
	for (int i = 1; i < 16; ++i)
	{
		nMinDot = std::min(nMinDot, dot[i]);
		nMaxDot = std::max(nMaxDot, dot[i]);
	}
	uint32 nMinMask = 0, nMaxMask = 0; // the first pixel of each extreme, found without a scan
	for (int i = 0; i < 16; ++i)
	{
		nMinMask |= (uint32)(dot[i] == nMinDot) << i;
		nMaxMask |= (uint32)(dot[i] == nMaxDot) << i;
	}
	const int nMin = __builtin_ctz(nMinMask), nMax = __builtin_ctz(nMaxMask);
	uint32 nBestC0 = Pack565(tables.quantize5[block.r[nMax]], tables.quantize6[block.g[nMax]], tables.quantize5[block.b[nMax]]);
	uint32 nBestC1 = Pack565(tables.quantize5[block.r[nMin]], tables.quantize6[block.g[nMin]], tables.quantize5[block.b[nMin]]);
	int bestIndex[16];
	uint32 nBestError = EvaluateColors(block, nBestC0, nBestC1, bestIndex);

	// Refinement: endpoints fitted to the indices, indices chosen again, while the error falls.
	for (int nIteration = 0; nIteration < COLOR_REFINEMENTS && nBestError > 0; ++nIteration)
	{
		uint32 c0, c1;
		if (!FitQuantizedEndpoints(block, bestIndex, c0, c1) || (c0 == nBestC0 && c1 == nBestC1))
			break;
		const uint32 nError = EvaluateColors(block, c0, c1, index);
		if (nError >= nBestError)
			break;
		nBestError = nError;
		nBestC0 = c0;
		nBestC1 = c1;
		memcpy(bestIndex, index, sizeof(index));
	}
	WriteColorBlock(nBestC0, nBestC1, bestIndex, pBlock);
}

// The eight alpha values of a block's palette, as the decoder forms them.
__attribute__((always_inline)) inline void AlphaPalette(int a0, int a1, int *pPalette)
{
	pPalette[0] = a0;
	pPalette[1] = a1;
	if (a0 > a1)
	{
		for (int k = 1; k <= 6; ++k)
			pPalette[1 + k] = ((7 - k) * a0 + k * a1 + 3) / 7;
	}
	else
	{
		for (int k = 1; k <= 4; ++k)
			pPalette[1 + k] = ((5 - k) * a0 + k * a1 + 2) / 5;
		pPalette[6] = 0;
		pPalette[7] = 255;
	}
}

// Nearest palette entry by absolute difference, which picks the same entry as the squared
// difference; kept in bytes so that the sixteen pixels of a block fill one vector register.
__attribute__((always_inline)) inline uint32 EvaluateAlpha(const uint8 *pAlpha, int a0, int a1, uint8 *pIndices)
{
	int palette[8];
	AlphaPalette(a0, a1, palette);
	uint8 best[16], index[16];
	for (int i = 0; i < 16; ++i)
	{
		const uint8 p = (uint8)palette[0];
		best[i] = pAlpha[i] > p ? (uint8)(pAlpha[i] - p) : (uint8)(p - pAlpha[i]);
		index[i] = 0;
	}
	for (int k = 1; k < 8; ++k)
	{
		const uint8 p = (uint8)palette[k];
		for (int i = 0; i < 16; ++i)
		{
			const uint8 d = pAlpha[i] > p ? (uint8)(pAlpha[i] - p) : (uint8)(p - pAlpha[i]);
			const bool bCloser = d < best[i];
			best[i] = bCloser ? d : best[i];
			index[i] = bCloser ? (uint8)k : index[i];
		}
	}
	uint32 nError = 0;
	for (int i = 0; i < 16; ++i)
		nError += (uint32)best[i] * best[i];
	memcpy(pIndices, index, 16);
	return nError;
}

// Least-squares endpoints for fixed indices of one mode; false when they are not determined.
__attribute__((always_inline)) inline bool FitAlphaEndpoints(const uint8 *pAlpha, const uint8 *pIndices, bool bEightValues, int &a0, int &a1)
{
	// Weight of the first endpoint per palette entry; the six-value mode's explicit 0 and 255
	// do not depend on the endpoints and take no part.
	static const float s_Weight[2][8] = { { 1.0f, 0.0f, 4.0f / 5.0f, 3.0f / 5.0f, 2.0f / 5.0f, 1.0f / 5.0f, 0.0f, 0.0f },
		{ 1.0f, 0.0f, 6.0f / 7.0f, 5.0f / 7.0f, 4.0f / 7.0f, 3.0f / 7.0f, 2.0f / 7.0f, 1.0f / 7.0f } };
	static const float s_Takes[2][8] = { { 1, 1, 1, 1, 1, 1, 0, 0 }, { 1, 1, 1, 1, 1, 1, 1, 1 } };
	const float *pWeight = s_Weight[bEightValues], *pTakes = s_Takes[bEightValues];
	float aa = 0, bb = 0, ab = 0, ax = 0, bx = 0;
	for (int i = 0; i < 16; ++i)
	{
		const float w = pWeight[pIndices[i]], t = pTakes[pIndices[i]];
		const float v = t - w;
		const float x = (float)pAlpha[i] * t;
		aa += w * w;
		bb += v * v;
		ab += w * v;
		ax += w * x;
		bx += v * x;
	}
	const float flDet = aa * bb - ab * ab;
	if (std::fabs(flDet) < 1e-6f)
		return false;
	a0 = (int)(std::clamp((ax * bb - bx * ab) / flDet, 0.0f, 255.0f) + 0.5f);
	a1 = (int)(std::clamp((bx * aa - ax * ab) / flDet, 0.0f, 255.0f) + 0.5f);
	return true;
}

struct AlphaFit_t
{
	int a0, a1;
	uint32 nError;
	uint8 indices[16];
};

// Best endpoints of one mode, starting from the range of the values that the mode interpolates.
__attribute__((always_inline)) inline void FitAlphaMode(const uint8 *pAlpha, int nLow, int nHigh, bool bEightValues, AlphaFit_t &fit)
{
	// Eight values: first above second. Six values: first at most second.
	auto order = [bEightValues](int &a0, int &a1) {
		if (bEightValues ? a0 < a1 : a0 > a1)
			std::swap(a0, a1);
		if (bEightValues && a0 == a1)
		{
			if (a0 < 255)
				++a0;
			else
				--a1;
		}
	};
	fit.a0 = bEightValues ? nHigh : nLow;
	fit.a1 = bEightValues ? nLow : nHigh;
	order(fit.a0, fit.a1);
	fit.nError = EvaluateAlpha(pAlpha, fit.a0, fit.a1, fit.indices);
	for (int nIteration = 0; nIteration < ALPHA_REFINEMENTS && fit.nError > 0; ++nIteration)
	{
		int a0, a1;
		if (!FitAlphaEndpoints(pAlpha, fit.indices, bEightValues, a0, a1))
			break;
		order(a0, a1);
		if (a0 == fit.a0 && a1 == fit.a1)
			break;
		uint8 indices[16];
		const uint32 nError = EvaluateAlpha(pAlpha, a0, a1, indices);
		if (nError >= fit.nError)
			break;
		fit.a0 = a0;
		fit.a1 = a1;
		fit.nError = nError;
		memcpy(fit.indices, indices, 16);
	}
	// One step of each endpoint either way.
	for (int nRound = 0; nRound < ALPHA_SEARCH_ROUNDS && fit.nError > 0; ++nRound)
	{
		bool bImproved = false;
		for (int nCandidate = 0; nCandidate < 4; ++nCandidate)
		{
			int a0 = fit.a0 + (nCandidate == 0 ? 1 : nCandidate == 1 ? -1 : 0);
			int a1 = fit.a1 + (nCandidate == 2 ? 1 : nCandidate == 3 ? -1 : 0);
			if (a0 < 0 || a0 > 255 || a1 < 0 || a1 > 255)
				continue;
			if (bEightValues ? a0 <= a1 : a0 > a1)
				continue;
			uint8 indices[16];
			const uint32 nError = EvaluateAlpha(pAlpha, a0, a1, indices);
			if (nError < fit.nError)
			{
				fit.a0 = a0;
				fit.a1 = a1;
				fit.nError = nError;
				memcpy(fit.indices, indices, 16);
				bImproved = true;
			}
		}
		if (!bImproved)
			break;
	}
}
__attribute__((target_clones("avx2", "default"))) void EncodeAlphaBlockImpl(const uint8 *pPixels, uint8 *pBlock)
{
	uint8 alpha[16];
	int nMin = 255, nMax = 0;
	int nInnerMin = 255, nInnerMax = 0; // without the values 0 and 255
	for (int i = 0; i < 16; ++i)
	{
		alpha[i] = pPixels[i * 4 + 3];
		nMin = std::min(nMin, (int)alpha[i]);
		nMax = std::max(nMax, (int)alpha[i]);
		if (alpha[i] != 0 && alpha[i] != 255)
		{
			nInnerMin = std::min(nInnerMin, (int)alpha[i]);
			nInnerMax = std::max(nInnerMax, (int)alpha[i]);
		}
	}
	AlphaFit_t best;
	if (nMin == nMax)
	{
		best.a0 = best.a1 = nMin; // six-value mode with equal endpoints: entry 0 is exact
		best.nError = 0;
		memset(best.indices, 0, sizeof(best.indices));
	}
	else
	{
		FitAlphaMode(alpha, nMin, nMax, true, best);
		if (best.nError > 0 && (nMin == 0 || nMax == 255))
		{
			AlphaFit_t six;
			if (nInnerMin > nInnerMax)
			{
				nInnerMin = nMin; // only 0 and 255: any endpoints will do
				nInnerMax = nMin;
			}
			FitAlphaMode(alpha, nInnerMin, nInnerMax, false, six);
			if (six.nError < best.nError)
				best = six;
		}
	}
	pBlock[0] = (uint8)best.a0;
	pBlock[1] = (uint8)best.a1;
	uint64 nBits = 0;
	for (int i = 0; i < 16; ++i)
		nBits |= (uint64)best.indices[i] << (3 * i);
	for (int i = 0; i < 6; ++i)
		pBlock[2 + i] = (uint8)(nBits >> (8 * i));
}
} // namespace

void CBlockEncoder::EncodeColorBlock(const uint8 *pPixels, uint8 *pBlock)
{
	EncodeColorBlockImpl(pPixels, pBlock);
}

void CBlockEncoder::EncodeAlphaBlock(const uint8 *pPixels, uint8 *pBlock)
{
	EncodeAlphaBlockImpl(pPixels, pBlock);
}
