// Block compression, mip chains, YCoCg and whole textures.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include <gtest/gtest.h>

#include "imaging/blockcompress.h"
#include "imaging/mipchain.h"
#include "imaging/texturebuild.h"
#include "imaging/ycocg.h"
#include "testimages.h"

namespace
{
CImageRGBA8 RoundTrip(const CImageRGBA8 &image, TextureFormat_t format, BlockEncoder_t encoder = BLOCK_ENCODER_DEFAULT)
{
	std::vector<uint8> data;
	CUtlString error;
	EXPECT_TRUE(Texture_EncodeImage(image, format, data, &error, encoder)) << error;
	EXPECT_EQ(data.size(), Texture_ImageBytes(format, image.Width(), image.Height()));
	CImageRGBA8 decoded;
	EXPECT_TRUE(Texture_DecodeImage(format, data.data(), data.size(), image.Width(), image.Height(), decoded, &error)) << error;
	return decoded;
}

CImageRGBA8 Filled(int w, int h, const uint8 *pColor)
{
	CImageRGBA8 image;
	image.Init(w, h);
	for (size_t i = 0; i < image.PixelCount(); ++i)
		memcpy(image.Pixels() + i * 4, pColor, 4);
	return image;
}

// The PSNR of a trivial encoder: the block's bounding box corners as endpoints. Any encoder
// worth keeping does better.
double BoundingBoxPSNR(const CImageRGBA8 &image)
{
	CImageRGBA8 decoded;
	decoded.Init(image.Width(), image.Height());
	const int nBlocksWide = (image.Width() + 3) / 4, nBlocksHigh = (image.Height() + 3) / 4;
	for (int by = 0; by < nBlocksHigh; ++by)
	{
		for (int bx = 0; bx < nBlocksWide; ++bx)
		{
			uint8 pixels[64];
			Texture_GatherBlock(image, bx, by, pixels);
			int lo[3] = { 255, 255, 255 }, hi[3] = { 0, 0, 0 };
			for (int i = 0; i < 16; ++i)
				for (int c = 0; c < 3; ++c)
					lo[c] = std::min(lo[c], (int)pixels[i * 4 + c]), hi[c] = std::max(hi[c], (int)pixels[i * 4 + c]);
			const uint32 c0 = ((uint32)(hi[0] >> 3) << 11) | ((uint32)(hi[1] >> 2) << 5) | (uint32)(hi[2] >> 3);
			const uint32 c1 = ((uint32)(lo[0] >> 3) << 11) | ((uint32)(lo[1] >> 2) << 5) | (uint32)(lo[2] >> 3);
			uint8 block[8] = { (uint8)c0, (uint8)(c0 >> 8), (uint8)c1, (uint8)(c1 >> 8), 0, 0, 0, 0 };
			uint8 entries[4][4];
			for (int k = 0; k < 4; ++k)
			{
				uint8 probe[8];
				memcpy(probe, block, 4);
				memset(probe + 4, k * 0x55, 4);
				uint8 out[64];
				BC1_DecodeBlock(probe, out);
				memcpy(entries[k], out, 4);
			}
			for (int i = 0; i < 16; ++i)
			{
				int nBest = 1 << 30, nIndex = 0;
				for (int k = 0; k < 4; ++k)
				{
					int d = 0;
					for (int c = 0; c < 3; ++c)
						d += (pixels[i * 4 + c] - entries[k][c]) * (pixels[i * 4 + c] - entries[k][c]);
					if (d < nBest)
						nBest = d, nIndex = k;
				}
				const int x = bx * 4 + i % 4, y = by * 4 + i / 4;
				if (x < image.Width() && y < image.Height())
					memcpy(decoded.Pixel(x, y), entries[nIndex], 4);
			}
		}
	}
	return Image_PSNR(image, decoded);
}
} // namespace

TEST(BlockCompress, SizesInWholeBlocks)
{
	EXPECT_EQ(Texture_ImageBytes(TEXTURE_FORMAT_BC1, 4, 4), 8u);
	EXPECT_EQ(Texture_ImageBytes(TEXTURE_FORMAT_BC1, 5, 3), 16u);
	EXPECT_EQ(Texture_ImageBytes(TEXTURE_FORMAT_BC3, 1, 1), 16u);
	EXPECT_EQ(Texture_ImageBytes(TEXTURE_FORMAT_BC3, 2048, 2048), 2048u * 2048u);
	EXPECT_EQ(Texture_ImageBytes(TEXTURE_FORMAT_RGBA8888, 3, 5), 60u);
	EXPECT_EQ(Texture_ImageBytes(TEXTURE_FORMAT_BC1, 0, 5), 0u);
}

TEST(BlockCompress, BC1RoundTripOfAPhotograph)
{
	const CImageRGBA8 image = MakePhotoLikeImage(256, 256);
	const CImageRGBA8 decoded = RoundTrip(image, TEXTURE_FORMAT_BC1);
	const double flPSNR = Image_PSNR(image, decoded);
	// BC1 holds four colours on a line per 4x4 block in 5:6:5: on smooth light the error is the
	// quantisation of 5 bits (steps of 8, noise 8/sqrt(12) = 2.3, about 41 dB). The grain of +-6
	// and the edges and lines of this picture, dense at 256x256, cost more: 36.1 dB measured
	// (43.7 on the 2048x2048 picture of the benchmark). 34 dB leaves room for the encoder's
	// choices; a broken palette, swapped endpoints or misplaced blocks fall under 25.
	EXPECT_GT(flPSNR, 34.0);
	// Never worse than stb_dxt on the same pixels, and better than the trivial encoder.
	const double flStb = Image_PSNR(image, RoundTrip(image, TEXTURE_FORMAT_BC1, BLOCK_ENCODER_STB));
	EXPECT_GE(flPSNR, flStb);
	EXPECT_GT(flPSNR, BoundingBoxPSNR(image) + 1.0);
	// BC1 stores no alpha: opaque in, opaque out.
	EXPECT_TRUE(decoded.IsOpaque());
}

TEST(BlockCompress, BC3KeepsAlpha)
{
	const CImageRGBA8 image = MakePhotoLikeImageWithAlpha(256, 256);
	const CImageRGBA8 decoded = RoundTrip(image, TEXTURE_FORMAT_BC3);
	EXPECT_GT(Image_PSNR(image, decoded), 34.0); // as BC1 (37.1 dB measured)
	// Eight alpha values per block from two 8-bit endpoints: on a soft vignette the steps are
	// tiny; cut-outs of 0 and 255 are exact (six-value mode or endpoints). Over 45 dB.
	const double flAlpha = Image_PSNR(image, decoded, IMAGE_CHANNEL_A);
	EXPECT_GT(flAlpha, 45.0);
	const double flStbAlpha = Image_PSNR(image, RoundTrip(image, TEXTURE_FORMAT_BC3, BLOCK_ENCODER_STB), IMAGE_CHANNEL_A);
	EXPECT_GE(flAlpha, flStbAlpha);
	// Pure cut-outs stay exact.
	for (size_t i = 0; i < image.PixelCount(); ++i)
	{
		const uint8 a = image.Pixels()[i * 4 + 3];
		if (a == 0 || a == 255)
		{
			// Only where the whole block is cut out is exactness certain; check those blocks.
			const int x = (int)(i % 256), y = (int)(i / 256);
			bool bBlockBinary = true;
			for (int j = 0; j < 16 && bBlockBinary; ++j)
			{
				const uint8 b = image.Pixel(x / 4 * 4 + j % 4, y / 4 * 4 + j / 4)[3];
				bBlockBinary = b == 0 || b == 255;
			}
			if (bBlockBinary)
			{
				EXPECT_EQ(decoded.Pixels()[i * 4 + 3], a) << x << "," << y;
			}
		}
	}
}

TEST(BlockCompress, BlocksOfOneColourAndTwoAlphas)
{
	// A single colour comes back within the rounding of its best interpolation.
	for (int v = 0; v < 256; v += 5)
	{
		const uint8 color[4] = { (uint8)v, (uint8)(255 - v), (uint8)(v / 2), 255 };
		const CImageRGBA8 decoded = RoundTrip(Filled(4, 4, color), TEXTURE_FORMAT_BC1);
		for (int c = 0; c < 3; ++c)
			EXPECT_NEAR(decoded.Pixels()[c], color[c], 1) << v;
	}
	// Two alphas per block, 0 and 255 and values between: all exact or within a step.
	CImageRGBA8 image;
	image.Init(4, 4);
	for (int i = 0; i < 16; ++i)
		memcpy(image.Pixels() + i * 4, i < 8 ? "\x10\x20\x30\x00" : "\x10\x20\x30\xff", 4);
	CImageRGBA8 decoded = RoundTrip(image, TEXTURE_FORMAT_BC3);
	for (int i = 0; i < 16; ++i)
		EXPECT_EQ(decoded.Pixels()[i * 4 + 3], i < 8 ? 0 : 255);
	for (int i = 0; i < 16; ++i)
		image.Pixels()[i * 4 + 3] = (uint8)(i % 4 == 0 ? 0 : i % 4 == 1 ? 255 : 100 + i);
	decoded = RoundTrip(image, TEXTURE_FORMAT_BC3);
	for (int i = 0; i < 16; ++i)
		EXPECT_NEAR(decoded.Pixels()[i * 4 + 3], image.Pixels()[i * 4 + 3], 2) << i;
}

TEST(BlockCompress, EveryAlphaTakesTheNearestValueOfItsBlocksPalette)
{
	// Random blocks of every kind: spread, narrow, with cut-outs (which the six-value mode with
	// its explicit 0 and 255 serves) and of one value. Whatever endpoints the encoder chose, each
	// pixel's alpha must be the palette's nearest to the source, found here by trying all eight.
	uint32 seed = 12345;
	auto next = [&seed]() {
		seed = seed * 1664525u + 1013904223u;
		return seed >> 8;
	};
	int nSixValueBlocks = 0, nEightValueBlocks = 0;
	for (int nBlock = 0; nBlock < 20000; ++nBlock)
	{
		uint8 pixels[64];
		const int nKind = nBlock % 4;
		const int nBase = (int)(next() % 256), nSpread = nKind == 1 ? 6 : 256;
		for (int i = 0; i < 16; ++i)
		{
			int a = nKind == 3 ? nBase : (nBase + (int)(next() % nSpread)) % 256;
			if (nKind == 2 && i % 5 == 0)
				a = (i / 5) % 2 ? 255 : 0;
			pixels[i * 4 + 0] = pixels[i * 4 + 1] = pixels[i * 4 + 2] = 128;
			pixels[i * 4 + 3] = (uint8)a;
		}
		uint8 block[16], decoded[64];
		BC3_EncodeBlock(pixels, block);
		BC3_DecodeBlock(block, decoded);
		const int a0 = block[0], a1 = block[1];
		(a0 > a1 ? nEightValueBlocks : nSixValueBlocks)++;
		int palette[8] = { a0, a1 };
		for (int k = 1; k <= 6; ++k)
			palette[1 + k] = a0 > a1 ? ((7 - k) * a0 + k * a1 + 3) / 7 : (k <= 4 ? ((5 - k) * a0 + k * a1 + 2) / 5 : (k == 5 ? 0 : 255));
		for (int i = 0; i < 16; ++i)
		{
			int nBest = 256;
			for (int k = 0; k < 8; ++k)
				nBest = std::min(nBest, std::abs(palette[k] - pixels[i * 4 + 3]));
			ASSERT_EQ(std::abs(decoded[i * 4 + 3] - pixels[i * 4 + 3]), nBest) << "block " << nBlock << " pixel " << i << " endpoints " << a0 << ", " << a1;
		}
	}
	EXPECT_GT(nSixValueBlocks, 1000);
	EXPECT_GT(nEightValueBlocks, 1000);
}

TEST(BlockCompress, PartialBlocksArePadded)
{
	const CImageRGBA8 image = MakePhotoLikeImageWithAlpha(13, 7);
	for (TextureFormat_t format : { TEXTURE_FORMAT_BC1, TEXTURE_FORMAT_BC3, TEXTURE_FORMAT_RGBA8888 })
	{
		const CImageRGBA8 decoded = RoundTrip(image, format);
		ASSERT_EQ(decoded.Width(), 13);
		ASSERT_EQ(decoded.Height(), 7);
		// 13x7 of lines and shapes: 29.8 dB measured; misplaced edge blocks give under 20.
		EXPECT_GT(Image_PSNR(image, decoded), 26.0) << TextureFormatName(format);
	}
	EXPECT_TRUE(RoundTrip(image, TEXTURE_FORMAT_RGBA8888) == image);
	// A 1x1 image is one block.
	const uint8 color[4] = { 200, 100, 50, 255 };
	const CImageRGBA8 one = RoundTrip(Filled(1, 1, color), TEXTURE_FORMAT_BC1);
	EXPECT_NEAR(one.Pixels()[0], 200, 2);
}

TEST(BlockCompress, DecodingChecksItsInput)
{
	std::vector<uint8> data(8);
	CImageRGBA8 out;
	CUtlString error;
	EXPECT_FALSE(Texture_DecodeImage(TEXTURE_FORMAT_BC1, data.data(), data.size(), 8, 8, out, &error));
	EXPECT_NE(error.find("32 bytes"), std::string::npos) << error;
	EXPECT_FALSE(Texture_DecodeImage(TEXTURE_FORMAT_BC3, data.data(), data.size(), 0, 8, out, &error));
	EXPECT_FALSE(Texture_DecodeImage(TEXTURE_FORMAT_BC1, nullptr, 0, 4, 4, out, &error));
	EXPECT_TRUE(Texture_DecodeImage(TEXTURE_FORMAT_BC1, data.data(), data.size(), 4, 4, out, &error)) << error;
}

TEST(BlockCompress, TheThreeColourModeOfBC1Decodes)
{
	// First colour not above the second: entry 2 is the mean, entry 3 transparent black.
	const uint8 block[8] = { 0x00, 0x00, 0xff, 0xff, 0xe4, 0xe4, 0xe4, 0xe4 }; // indices 0,1,2,3 per row
	uint8 pixels[64];
	BC1_DecodeBlock(block, pixels);
	EXPECT_EQ(pixels[0], 0);
	EXPECT_EQ(pixels[4], 255);
	EXPECT_EQ(pixels[8], 127);
	EXPECT_EQ(pixels[15], 0); // alpha of entry 3
	EXPECT_EQ(pixels[12], 0);
}

TEST(BlockCompress, ThreadsGiveTheSameBytes)
{
	const CImageRGBA8 image = MakePhotoLikeImageWithAlpha(200, 120);
	std::vector<uint8> one, two;
	ASSERT_TRUE(Texture_EncodeImage(image, TEXTURE_FORMAT_BC3, one, nullptr, BLOCK_ENCODER_DEFAULT, 1));
	ASSERT_TRUE(Texture_EncodeImage(image, TEXTURE_FORMAT_BC3, two, nullptr, BLOCK_ENCODER_DEFAULT, 2));
	EXPECT_EQ(one, two);
}

// ---------------------------------------------------------------------------------------------
// Mip chains

TEST(MipChain, LevelCountsAndSizes)
{
	EXPECT_EQ(Texture_MipLevelCount(1, 1), 1);
	EXPECT_EQ(Texture_MipLevelCount(2048, 2048), 12);
	EXPECT_EQ(Texture_MipLevelCount(256, 64), 9);
	EXPECT_EQ(Texture_MipLevelCount(37, 11), 6);
	const CImageRGBA8 image = MakePhotoLikeImage(37, 11);
	std::vector<CImageRGBA8> levels;
	CUtlString error;
	ASSERT_TRUE(Texture_BuildMipLevels(image, MIP_FILTER_SRGB, levels, &error)) << error;
	ASSERT_EQ(levels.size(), 5u);
	const int sizes[5][2] = { { 18, 5 }, { 9, 2 }, { 4, 1 }, { 2, 1 }, { 1, 1 } };
	for (size_t i = 0; i < levels.size(); ++i)
	{
		EXPECT_EQ(levels[i].Width(), sizes[i][0]) << i;
		EXPECT_EQ(levels[i].Height(), sizes[i][1]) << i;
		int w, h;
		Texture_MipLevelSize(37, 11, (int)i + 1, w, h);
		EXPECT_EQ(w, sizes[i][0]);
		EXPECT_EQ(h, sizes[i][1]);
	}
	ASSERT_TRUE(Texture_BuildMipLevels(image, MIP_FILTER_SRGB, levels, &error, 3)) << error;
	EXPECT_EQ(levels.size(), 2u);
}

TEST(MipChain, ACheckerAveragesInLinearLight)
{
	// Black and white pixels average to half the light: linear 0.5 is sRGB 0.735, 188 of 255,
	// not the 128 of averaging the stored values (which data textures do).
	CImageRGBA8 checker;
	checker.Init(64, 64);
	for (int y = 0; y < 64; ++y)
		for (int x = 0; x < 64; ++x)
			memset(checker.Pixel(x, y), ((x + y) & 1) ? 255 : 0, 3), checker.Pixel(x, y)[3] = ((x + y) & 1) ? 255 : 0;
	const float flExpected = 255.0f * Texture_LinearToSRGB(0.5f);
	EXPECT_NEAR(flExpected, 188.0f, 0.5f);
	std::vector<CImageRGBA8> levels;
	ASSERT_TRUE(Texture_BuildMipLevels(checker, MIP_FILTER_SRGB, levels));
	for (const CImageRGBA8 &level : levels)
	{
		for (size_t i = 0; i < level.PixelCount(); ++i)
		{
			const uint8 *p = level.Pixels() + i * 4;
			ASSERT_NEAR(p[0], 188, 1) << level.Width();
			ASSERT_EQ(p[0], p[1]);
			ASSERT_EQ(p[0], p[2]);
			ASSERT_NEAR(p[3], 128, 1); // alpha is filtered as it stands
		}
	}
	ASSERT_TRUE(Texture_BuildMipLevels(checker, MIP_FILTER_DATA, levels));
	for (const CImageRGBA8 &level : levels)
		for (size_t i = 0; i < level.PixelCount(); ++i)
			ASSERT_NEAR(level.Pixels()[i * 4], 128, 1);
}

TEST(MipChain, OddSizesAreCoveredExactly)
{
	// Three pixels to one: each weighs a third (a 2x2 box would drop one).
	CImageRGBA8 row;
	row.Init(3, 1);
	memcpy(row.Pixel(0, 0), "\x00\x00\x00\xff", 4);
	memcpy(row.Pixel(1, 0), "\xff\xff\xff\xff", 4);
	memcpy(row.Pixel(2, 0), "\x00\x00\x00\x00", 4);
	std::vector<CImageRGBA8> levels;
	ASSERT_TRUE(Texture_BuildMipLevels(row, MIP_FILTER_DATA, levels));
	ASSERT_EQ(levels.size(), 1u);
	EXPECT_EQ(levels[0].Pixel(0, 0)[0], 85);
	EXPECT_EQ(levels[0].Pixel(0, 0)[3], 170);
	ASSERT_TRUE(Texture_BuildMipLevels(row, MIP_FILTER_SRGB, levels));
	EXPECT_NEAR(levels[0].Pixel(0, 0)[0], 255.0f * Texture_LinearToSRGB(1.0f / 3.0f), 1.0f);
	// A 5-wide ramp to 2: weights 2/5, 2/5, 1/5 and 1/5, 2/5, 2/5.
	CImageRGBA8 ramp;
	ramp.Init(5, 1);
	for (int x = 0; x < 5; ++x)
		memcpy(ramp.Pixel(x, 0), std::array<uint8, 4>{ (uint8)(x * 50), 0, 0, 255 }.data(), 4);
	ASSERT_TRUE(Texture_BuildMipLevels(ramp, MIP_FILTER_DATA, levels, nullptr, 2));
	EXPECT_NEAR(levels[0].Pixel(0, 0)[0], (0 * 2 + 50 * 2 + 100 * 1) / 5.0, 0.6);
	EXPECT_NEAR(levels[0].Pixel(1, 0)[0], (100 * 1 + 150 * 2 + 200 * 2) / 5.0, 0.6);
	// Constant images stay constant, at every size.
	const uint8 color[4] = { 13, 200, 77, 90 };
	ASSERT_TRUE(Texture_BuildMipLevels(Filled(23, 9, color), MIP_FILTER_SRGB, levels));
	for (const CImageRGBA8 &level : levels)
		for (size_t i = 0; i < level.PixelCount(); ++i)
			ASSERT_EQ(memcmp(level.Pixels() + i * 4, color, 4), 0) << level.Width() << "x" << level.Height();
}

TEST(MipChain, SRGBConversionsAreInverse)
{
	for (int i = 0; i <= 255; ++i)
	{
		const float v = (float)i / 255.0f;
		EXPECT_NEAR(Texture_LinearToSRGB(Texture_SRGBToLinear(v)), v, 1e-5f);
	}
	EXPECT_FLOAT_EQ(Texture_SRGBToLinear(1.0f), 1.0f);
	EXPECT_FLOAT_EQ(Texture_SRGBToLinear(0.0f), 0.0f);
}

// ---------------------------------------------------------------------------------------------
// YCoCg

TEST(YCoCg, ConversionAndItsInverse)
{
	CImageRGBA8 image = MakePhotoLikeImage(64, 64);
	const CImageRGBA8 source = image;
	Image_ConvertToYCoCg(image);
	// Luma in alpha, the scale in blue.
	for (size_t i = 0; i < image.PixelCount(); ++i)
	{
		const uint8 *s = source.Pixels() + i * 4, *p = image.Pixels() + i * 4;
		EXPECT_NEAR(p[3], (s[0] + 2 * s[1] + s[2]) / 4.0, 1.0);
		EXPECT_TRUE(p[2] == 0 || p[2] == 8 || p[2] == 24);
	}
	Image_ConvertFromYCoCg(image);
	// Exact up to the rounding of the halved and quartered chroma.
	EXPECT_GT(Image_PSNR(source, image), 45.0);
	for (size_t i = 0; i < image.PixelCount() * 4; ++i)
	{
		if (i % 4 != 3)
		{
			ASSERT_NEAR(image.Pixels()[i], source.Pixels()[i], 2) << i;
		}
	}
	// A grey block gets the largest scale.
	const uint8 grey[4] = { 90, 92, 91, 255 };
	CImageRGBA8 flat = Filled(8, 8, grey);
	Image_ConvertToYCoCg(flat);
	EXPECT_EQ(flat.Pixels()[2], 24);
}

TEST(YCoCg, BC3YCoCgBeatsBC1OnColour)
{
	const CImageRGBA8 image = MakePhotoLikeImage(256, 256);
	TextureBuildOptions_t options;
	options.format = TEXTURE_FORMAT_BC3;
	options.bYCoCg = true;
	options.bMipmaps = false;
	BuiltTexture_t texture;
	CUtlString error;
	ASSERT_TRUE(Texture_Build(image, options, texture, &error)) << error;
	CImageRGBA8 decoded;
	ASSERT_TRUE(Texture_DecodeLevel(texture, 0, decoded, &error)) << error;
	const double flYCoCg = Image_PSNR(image, decoded);
	const double flBC1 = Image_PSNR(image, RoundTrip(image, TEXTURE_FORMAT_BC1));
	// Luma gets the 8-bit alpha block of its own, the reason for the format: 41.1 dB against
	// 36.1 measured. Swapped channels or a lost block scale would give less than BC1.
	EXPECT_GT(flYCoCg, flBC1 + 3.0) << flYCoCg << " " << flBC1;
	options.format = TEXTURE_FORMAT_BC1;
	EXPECT_FALSE(Texture_Build(image, options, texture, &error));
	EXPECT_NE(error.find("BC3"), std::string::npos) << error;
}

// ---------------------------------------------------------------------------------------------
// Whole textures

TEST(TextureBuild, AChainOfEveryLevelCompressed)
{
	const CImageRGBA8 image = MakePhotoLikeImageWithAlpha(128, 32);
	EXPECT_EQ(Texture_ChooseFormat(image), TEXTURE_FORMAT_BC3);
	EXPECT_EQ(Texture_ChooseFormat(MakePhotoLikeImage(8, 8)), TEXTURE_FORMAT_BC1);
	TextureBuildOptions_t options;
	options.format = TEXTURE_FORMAT_BC3;
	BuiltTexture_t texture;
	CUtlString error;
	ASSERT_TRUE(Texture_Build(image, options, texture, &error)) << error;
	ASSERT_EQ(texture.levels.size(), 8u);
	size_t nOffset = 0;
	std::vector<CImageRGBA8> mips;
	ASSERT_TRUE(Texture_BuildMipLevels(image, MIP_FILTER_SRGB, mips));
	for (size_t i = 0; i < texture.levels.size(); ++i)
	{
		const TextureLevel_t &level = texture.levels[i];
		EXPECT_EQ(level.nWidth, std::max(1, 128 >> i));
		EXPECT_EQ(level.nHeight, std::max(1, 32 >> i));
		EXPECT_EQ(level.nOffset, nOffset);
		EXPECT_EQ(level.nSize, Texture_ImageBytes(TEXTURE_FORMAT_BC3, level.nWidth, level.nHeight));
		nOffset += level.nSize;
		CImageRGBA8 decoded;
		ASSERT_TRUE(Texture_DecodeLevel(texture, (int)i, decoded, &error)) << error;
		const CImageRGBA8 &expected = i == 0 ? image : mips[i - 1];
		// Small levels of a dense picture: 21.5 dB at the worst measured. A level decoded from
		// another level's bytes, or with the wrong size, gives under 15.
		EXPECT_GT(Image_PSNR(expected, decoded, IMAGE_CHANNELS_RGBA), 20.0) << i;
	}
	EXPECT_EQ(texture.data.size(), nOffset);
	CImageRGBA8 decoded;
	EXPECT_FALSE(Texture_DecodeLevel(texture, 8, decoded, &error));
	// Without mips, one level; uncompressed, the pixels themselves.
	options.bMipmaps = false;
	options.format = TEXTURE_FORMAT_RGBA8888;
	ASSERT_TRUE(Texture_Build(image, options, texture, &error)) << error;
	ASSERT_EQ(texture.levels.size(), 1u);
	ASSERT_TRUE(Texture_DecodeLevel(texture, 0, decoded, &error));
	EXPECT_TRUE(decoded == image);
}

TEST(TextureBuild, ThreadCountDoesNotChangeTheResult)
{
	const CImageRGBA8 image = MakePhotoLikeImage(300, 200);
	TextureBuildOptions_t options;
	BuiltTexture_t one, two;
	options.nThreads = 1;
	ASSERT_TRUE(Texture_Build(image, options, one));
	options.nThreads = 2;
	ASSERT_TRUE(Texture_Build(image, options, two));
	EXPECT_EQ(one.data, two.data);
	EXPECT_EQ(one.levels.size(), 9u);
}
