#include "imaging/ycocg.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace
{
inline uint8 ClampByte(int nValue)
{
	return (uint8)std::clamp(nValue, 0, 255);
}
} // namespace

void Image_ConvertToYCoCg(CImageRGBA8 &image)
{
	const int nWidth = image.Width(), nHeight = image.Height();
	for (int by = 0; by < nHeight; by += 4)
	{
		for (int bx = 0; bx < nWidth; bx += 4)
		{
			const int nEndX = std::min(bx + 4, nWidth), nEndY = std::min(by + 4, nHeight);
			int co[16], cg[16], luma[16];
			int nLargest = 0;
			for (int y = by; y < nEndY; ++y)
			{
				for (int x = bx; x < nEndX; ++x)
				{
					const uint8 *p = image.Pixel(x, y);
					const int r = p[0], g = p[1], b = p[2];
					const int i = (y - by) * 4 + (x - bx);
					luma[i] = (r + 2 * g + b + 2) >> 2;
					co[i] = (2 * r - 2 * b + 2) >> 2;
					cg[i] = (-r + 2 * g - b + 2) >> 2;
					nLargest = std::max(nLargest, std::max(std::abs(co[i]), std::abs(cg[i])));
				}
			}
			// A block of weak colour is stretched over more of the range.
			const int nScale = nLargest < 32 ? 4 : nLargest < 64 ? 2 : 1;
			for (int y = by; y < nEndY; ++y)
			{
				for (int x = bx; x < nEndX; ++x)
				{
					uint8 *p = image.Pixel(x, y);
					const int i = (y - by) * 4 + (x - bx);
					p[0] = ClampByte(co[i] * nScale + 128);
					p[1] = ClampByte(cg[i] * nScale + 128);
					p[2] = (uint8)((nScale - 1) << 3);
					p[3] = (uint8)luma[i];
				}
			}
		}
	}
}

void Image_ConvertFromYCoCg(CImageRGBA8 &image)
{
	const size_t nCount = image.PixelCount();
	uint8 *p = image.Pixels();
	for (size_t i = 0; i < nCount; ++i, p += 4)
	{
		// The scale comes back from the block's 5-bit blue: 0, 8 or 24, read to the nearest step.
		const float flScale = (float)(((p[2] + 4) >> 3) + 1);
		const float co = ((float)p[0] - 128.0f) / flScale;
		const float cg = ((float)p[1] - 128.0f) / flScale;
		const float y = (float)p[3];
		p[0] = ClampByte((int)std::lround(y + co - cg));
		p[1] = ClampByte((int)std::lround(y + cg));
		p[2] = ClampByte((int)std::lround(y - co - cg));
		p[3] = 255;
	}
}
