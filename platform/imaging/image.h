// The pixel type of the imaging module: an 8-bit RGBA image, rows from the top, four bytes a
// pixel and no padding. Every decoder produces one and every encoder takes one.
#pragma once

#include <vector>

#include "core/platform.h"
#include "core/utlstring.h"

class CImageRGBA8
{
public:
	CImageRGBA8() = default;

	// Makes a w x h image of transparent black. Both sides must be at least 1; false (and an
	// empty image) when they are not or when the pixels cannot be allocated.
	bool Init(int nWidth, int nHeight);
	// Takes over pixels of the right size (w * h * 4 bytes).
	bool Assign(int nWidth, int nHeight, std::vector<uint8> &&pixels);
	void Clear();

	bool IsEmpty() const { return m_Pixels.empty(); }
	int Width() const { return m_nWidth; }
	int Height() const { return m_nHeight; }
	size_t PixelCount() const { return (size_t)m_nWidth * (size_t)m_nHeight; }
	size_t SizeInBytes() const { return m_Pixels.size(); }
	size_t RowBytes() const { return (size_t)m_nWidth * 4; }

	uint8 *Pixels() { return m_Pixels.data(); }
	const uint8 *Pixels() const { return m_Pixels.data(); }
	uint8 *Pixel(int x, int y) { return m_Pixels.data() + ((size_t)y * (size_t)m_nWidth + (size_t)x) * 4; }
	const uint8 *Pixel(int x, int y) const { return m_Pixels.data() + ((size_t)y * (size_t)m_nWidth + (size_t)x) * 4; }

	// True when every pixel's alpha is 255.
	bool IsOpaque() const;

	bool operator==(const CImageRGBA8 &other) const;
	bool operator!=(const CImageRGBA8 &other) const { return !(*this == other); }

private:
	int m_nWidth = 0;
	int m_nHeight = 0;
	std::vector<uint8> m_Pixels;
};

// Channels of a comparison, as a mask.
enum ImageChannelMask_t
{
	IMAGE_CHANNEL_R = 1,
	IMAGE_CHANNEL_G = 2,
	IMAGE_CHANNEL_B = 4,
	IMAGE_CHANNEL_A = 8,
	IMAGE_CHANNELS_RGB = 7,
	IMAGE_CHANNELS_RGBA = 15,
};

// Peak signal-to-noise ratio in dB of two images of the same size over the channels of the
// mask (peak 255, mean squared error over every chosen sample). Identical images give
// IMAGE_PSNR_IDENTICAL; images of different sizes give a negative value.
enum { IMAGE_PSNR_IDENTICAL = 999 };
double Image_PSNR(const CImageRGBA8 &a, const CImageRGBA8 &b, int nChannelMask = IMAGE_CHANNELS_RGB);
// Mean squared error over the chosen channels (negative for images of different sizes).
double Image_MeanSquaredError(const CImageRGBA8 &a, const CImageRGBA8 &b, int nChannelMask = IMAGE_CHANNELS_RGB);
