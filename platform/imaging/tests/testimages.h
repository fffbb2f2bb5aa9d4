// Deterministic images for the imaging tests and benchmarks, made by code so that every run
// sees the same pixels: a photograph-like picture (smooth light, grain, hard-edged shapes and
// thin lines) and a variant with an alpha channel of soft and cut-out regions.
#pragma once

#include <cmath>

#include "imaging/image.h"

class CTestImageRandom
{
public:
	explicit CTestImageRandom(uint64 nSeed) : m_nState(nSeed * 0x9e3779b97f4a7c15ull + 1) {}
	uint32 Next()
	{
		m_nState ^= m_nState << 13;
		m_nState ^= m_nState >> 7;
		m_nState ^= m_nState << 17;
		return (uint32)(m_nState >> 16);
	}
	int Range(int nLow, int nHigh) { return nLow + (int)(Next() % (uint32)(nHigh - nLow + 1)); }

private:
	uint64 m_nState;
};

inline uint8 TestImageClamp(float v)
{
	return (uint8)(v < 0.0f ? 0.0f : v > 255.0f ? 255.0f : v + 0.5f);
}

// Smooth gradients + grain + edges, opaque.
inline CImageRGBA8 MakePhotoLikeImage(int nWidth, int nHeight, uint64 nSeed = 1)
{
	CImageRGBA8 image;
	image.Init(nWidth, nHeight);
	CTestImageRandom random(nSeed);
	const float fx = 6.2831853f / (float)nWidth, fy = 6.2831853f / (float)nHeight;
	for (int y = 0; y < nHeight; ++y)
	{
		for (int x = 0; x < nWidth; ++x)
		{
			uint8 *p = image.Pixel(x, y);
			const float light = 0.5f + 0.5f * std::sin(x * fx * 0.7f + 0.3f) * std::cos(y * fy * 1.3f);
			const float grain = (float)((int)(random.Next() % 13) - 6);
			p[0] = TestImageClamp(40.0f + 170.0f * light + 30.0f * std::sin(y * fy * 3.0f) + grain);
			p[1] = TestImageClamp(60.0f + 120.0f * light + 40.0f * std::cos(x * fx * 2.0f + y * fy) + grain);
			p[2] = TestImageClamp(90.0f + 80.0f * (1.0f - light) + 25.0f * std::sin((x + y) * fx * 1.7f) + grain);
			p[3] = 255;
		}
	}
	// Hard-edged shapes: rectangles and discs of flat colour with a little grain.
	const int nShapes = 12 + (nWidth * nHeight) / 65536;
	for (int s = 0; s < nShapes; ++s)
	{
		const int cx = random.Range(0, nWidth - 1), cy = random.Range(0, nHeight - 1);
		const int radius = random.Range(2, std::max(3, std::min(nWidth, nHeight) / 8));
		const uint8 color[3] = { (uint8)random.Range(0, 255), (uint8)random.Range(0, 255), (uint8)random.Range(0, 255) };
		const bool bDisc = (s & 1) != 0;
		for (int y = std::max(0, cy - radius); y < std::min(nHeight, cy + radius); ++y)
		{
			for (int x = std::max(0, cx - radius); x < std::min(nWidth, cx + radius); ++x)
			{
				if (bDisc && (x - cx) * (x - cx) + (y - cy) * (y - cy) > radius * radius)
					continue;
				uint8 *p = image.Pixel(x, y);
				const int grain = (int)(random.Next() % 5) - 2;
				for (int c = 0; c < 3; ++c)
					p[c] = TestImageClamp((float)(color[c] + grain));
			}
		}
	}
	// Thin lines, one and two pixels wide.
	for (int l = 0; l < 8; ++l)
	{
		const int y0 = random.Range(0, nHeight - 1);
		const int width = 1 + (l & 1);
		const uint8 value = (l & 2) ? 250 : 10;
		for (int x = 0; x < nWidth; ++x)
		{
			const int y = (y0 + x / 3) % nHeight;
			for (int w = 0; w < width && y + w < nHeight; ++w)
			{
				uint8 *p = image.Pixel(x, y + w);
				p[0] = p[1] = p[2] = value;
			}
		}
	}
	return image;
}

// The photograph-like picture with alpha: a soft vignette, cut-out holes (alpha 0), opaque
// shapes and a band of fine alpha noise.
inline CImageRGBA8 MakePhotoLikeImageWithAlpha(int nWidth, int nHeight, uint64 nSeed = 2)
{
	CImageRGBA8 image = MakePhotoLikeImage(nWidth, nHeight, nSeed);
	CTestImageRandom random(nSeed + 100);
	for (int y = 0; y < nHeight; ++y)
	{
		for (int x = 0; x < nWidth; ++x)
		{
			const float dx = (float)x / (float)nWidth - 0.5f, dy = (float)y / (float)nHeight - 0.5f;
			const float r = std::sqrt(dx * dx + dy * dy);
			image.Pixel(x, y)[3] = TestImageClamp(255.0f * (1.2f - 1.6f * r));
		}
	}
	for (int s = 0; s < 10; ++s)
	{
		const int cx = random.Range(0, nWidth - 1), cy = random.Range(0, nHeight - 1);
		const int radius = random.Range(2, std::max(3, std::min(nWidth, nHeight) / 10));
		const uint8 alpha = (s & 1) ? 0 : 255;
		for (int y = std::max(0, cy - radius); y < std::min(nHeight, cy + radius); ++y)
			for (int x = std::max(0, cx - radius); x < std::min(nWidth, cx + radius); ++x)
				image.Pixel(x, y)[3] = alpha;
	}
	for (int y = nHeight / 3; y < nHeight / 3 + std::max(1, nHeight / 16); ++y)
		for (int x = 0; x < nWidth; ++x)
			image.Pixel(x, y)[3] = (uint8)(128 + (int)(random.Next() % 64) - 32);
	return image;
}
