#include "imaging/image.h"

#include <cmath>
#include <cstring>
#include <new>

bool CImageRGBA8::Init(int nWidth, int nHeight)
{
	Clear();
	if (nWidth < 1 || nHeight < 1)
		return false;
	try
	{
		m_Pixels.assign((size_t)nWidth * (size_t)nHeight * 4, 0);
	}
	catch (const std::bad_alloc &)
	{
		return false;
	}
	m_nWidth = nWidth;
	m_nHeight = nHeight;
	return true;
}

bool CImageRGBA8::Assign(int nWidth, int nHeight, std::vector<uint8> &&pixels)
{
	if (nWidth < 1 || nHeight < 1 || pixels.size() != (size_t)nWidth * (size_t)nHeight * 4)
		return false;
	m_Pixels = std::move(pixels);
	m_nWidth = nWidth;
	m_nHeight = nHeight;
	return true;
}

void CImageRGBA8::Clear()
{
	std::vector<uint8>().swap(m_Pixels);
	m_nWidth = 0;
	m_nHeight = 0;
}

bool CImageRGBA8::IsOpaque() const
{
	const size_t nCount = PixelCount();
	const uint8 *p = m_Pixels.data();
	for (size_t i = 0; i < nCount; ++i)
	{
		if (p[i * 4 + 3] != 255)
			return false;
	}
	return true;
}

bool CImageRGBA8::operator==(const CImageRGBA8 &other) const
{
	return m_nWidth == other.m_nWidth && m_nHeight == other.m_nHeight && m_Pixels == other.m_Pixels;
}

double Image_MeanSquaredError(const CImageRGBA8 &a, const CImageRGBA8 &b, int nChannelMask)
{
	if (a.Width() != b.Width() || a.Height() != b.Height() || a.IsEmpty())
		return -1.0;
	uint64 nSum = 0;
	uint64 nSamples = 0;
	const size_t nCount = a.PixelCount();
	const uint8 *pa = a.Pixels();
	const uint8 *pb = b.Pixels();
	for (int c = 0; c < 4; ++c)
	{
		if (!(nChannelMask & (1 << c)))
			continue;
		for (size_t i = 0; i < nCount; ++i)
		{
			const int d = (int)pa[i * 4 + c] - (int)pb[i * 4 + c];
			nSum += (uint64)(d * d);
		}
		nSamples += nCount;
	}
	if (nSamples == 0)
		return -1.0;
	return (double)nSum / (double)nSamples;
}

double Image_PSNR(const CImageRGBA8 &a, const CImageRGBA8 &b, int nChannelMask)
{
	const double flMSE = Image_MeanSquaredError(a, b, nChannelMask);
	if (flMSE < 0.0)
		return -1.0;
	if (flMSE == 0.0)
		return IMAGE_PSNR_IDENTICAL;
	return 10.0 * std::log10(255.0 * 255.0 / flMSE);
}
