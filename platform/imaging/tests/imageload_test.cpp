// Decoding: each format to known pixels, files made by other tools against a second reading,
// oversized headers refused before any pixel is decoded, truncated and noisy files.
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <stb_image_write.h>

#include "allocationtracker.h"
#include "imagefiles.h"
#include "imaging/imageload.h"
#include "referencedecoders.h"
#include "testimages.h"
#include "testsupport/test_support.h"

namespace
{
// A small picture with a colour of its own in every pixel, and some alpha.
CImageRGBA8 MakeDistinctPixels(int w, int h, bool bAlpha)
{
	CImageRGBA8 image;
	image.Init(w, h);
	for (int y = 0; y < h; ++y)
	{
		for (int x = 0; x < w; ++x)
		{
			uint8 *p = image.Pixel(x, y);
			p[0] = (uint8)(x * 37 + y * 11);
			p[1] = (uint8)(y * 53 + 7);
			p[2] = (uint8)(x * 5 + y * 71 + 100);
			p[3] = bAlpha ? (uint8)(255 - x * 9 - y * 3) : 255;
		}
	}
	return image;
}

// A picture of few colours, for the palettised formats.
CImageRGBA8 MakeFewColors(int w, int h, int nColors, bool bAlpha)
{
	CImageRGBA8 image;
	image.Init(w, h);
	for (int y = 0; y < h; ++y)
	{
		for (int x = 0; x < w; ++x)
		{
			const int c = (x / 2 + y * 3) % nColors;
			uint8 *p = image.Pixel(x, y);
			p[0] = (uint8)(c * 255 / std::max(1, nColors - 1));
			p[1] = (uint8)(255 - c * 17);
			p[2] = (uint8)(c * 91);
			p[3] = bAlpha ? (uint8)(c == 0 ? 0 : 255 - c) : 255;
		}
	}
	return image;
}

CImageRGBA8 Opaque(CImageRGBA8 image)
{
	for (size_t i = 0; i < image.PixelCount(); ++i)
		image.Pixels()[i * 4 + 3] = 255;
	return image;
}

CImageRGBA8 GreyFromRed(CImageRGBA8 image)
{
	for (size_t i = 0; i < image.PixelCount(); ++i)
	{
		uint8 *p = image.Pixels() + i * 4;
		p[1] = p[2] = p[0];
		p[3] = 255;
	}
	return image;
}

bool Decode(const Bytes_t &file, CImageRGBA8 &out, CUtlString *pError = nullptr, const char *pName = "test",
	ImageFileInfo_t *pInfo = nullptr)
{
	return Image_Load(file.data(), file.size(), pName, out, pError, ImageLoadLimits_t(), pInfo);
}

void ExpectDecodesTo(const Bytes_t &file, const CImageRGBA8 &expected, ImageFileFormat_t format, int nTolerance = 0)
{
	CImageRGBA8 decoded;
	CUtlString error;
	ImageFileInfo_t info;
	ASSERT_TRUE(Decode(file, decoded, &error, "test", &info)) << error;
	EXPECT_EQ(info.format, format);
	EXPECT_EQ(info.nWidth, expected.Width());
	EXPECT_EQ(info.nHeight, expected.Height());
	ASSERT_EQ(decoded.Width(), expected.Width());
	ASSERT_EQ(decoded.Height(), expected.Height());
	for (int y = 0; y < expected.Height(); ++y)
	{
		for (int x = 0; x < expected.Width(); ++x)
		{
			const uint8 *a = decoded.Pixel(x, y), *b = expected.Pixel(x, y);
			bool bClose = true;
			for (int c = 0; c < 4; ++c)
				bClose = bClose && std::abs(a[c] - b[c]) <= nTolerance;
			ASSERT_TRUE(bClose) << "pixel " << x << "," << y << ": " << (int)a[0] << " " << (int)a[1] << " "
											  << (int)a[2] << " " << (int)a[3] << " expected " << (int)b[0] << " "
											  << (int)b[1] << " " << (int)b[2] << " " << (int)b[3];
		}
	}
}

Bytes_t MakeJPEG(const CImageRGBA8 &image, int nQuality)
{
	Bytes_t out;
	stbi_write_jpg_to_func([](void *pContext, void *pData, int nSize) { PutBytes(*(Bytes_t *)pContext, pData, (size_t)nSize); },
		&out, image.Width(), image.Height(), 4, image.Pixels(), nQuality);
	return out;
}

Bytes_t MakeGIFOfImage(const CImageRGBA8 &image, int nTransparent)
{
	// Palette from the distinct colours; index nTransparent is the transparent one.
	std::vector<uint32> colors;
	Bytes_t palette, frame, second;
	for (size_t i = 0; i < image.PixelCount(); ++i)
	{
		const uint8 *p = image.Pixels() + i * 4;
		const uint32 c = p[0] | (p[1] << 8) | (p[2] << 16);
		auto it = std::find(colors.begin(), colors.end(), c);
		if (it == colors.end())
		{
			colors.push_back(c);
			palette.insert(palette.end(), { p[0], p[1], p[2] });
			it = colors.end() - 1;
		}
		frame.push_back((uint8)(it - colors.begin()));
		second.push_back(0);
	}
	return MakeGIF(image.Width(), image.Height(), palette, { frame, second }, nTransparent);
}

// Every format once, for the tests that damage files.
struct SampleFile_t
{
	const char *pName;
	Bytes_t bytes;
};

std::vector<SampleFile_t> SampleFiles()
{
	const CImageRGBA8 image = MakeDistinctPixels(23, 17, true);
	const CImageRGBA8 few = MakeFewColors(23, 17, 12, false);
	return {
		{ "tga24", MakeTGA(image, TEST_TGA_RGB24) },
		{ "tga32", MakeTGA(image, TEST_TGA_RGBA32_TOP) },
		{ "tgarle", MakeTGA(few, TEST_TGA_RLE24) },
		{ "tgamapped", MakeTGA(few, TEST_TGA_COLORMAPPED) },
		{ "png", MakePNG(image, TEST_PNG_RGBA8) },
		{ "pngadam7", MakePNG(image, TEST_PNG_RGBA8_ADAM7) },
		{ "pngpalette", MakePNG(few, TEST_PNG_PALETTE) },
		{ "bmp24", MakeBMP(image, 24) },
		{ "bmp8", MakeBMP(few, 8) },
		{ "bmp4", MakeBMP(few, 4) },
		{ "psd", MakePSD(image, false) },
		{ "psdrle", MakePSD(few, true) },
		{ "jpeg", MakeJPEG(MakePhotoLikeImage(40, 24), 90) },
		{ "gif", MakeGIFOfImage(few, -1) },
	};
}
} // namespace

TEST(ImageLoad, TGAOfEveryKindDecodesToItsPixels)
{
	const CImageRGBA8 image = MakeDistinctPixels(13, 7, true);
	const CImageRGBA8 few = MakeFewColors(13, 7, 9, false);
	ExpectDecodesTo(MakeTGA(image, TEST_TGA_RGB24), Opaque(image), IMAGE_FILE_TGA);
	ExpectDecodesTo(MakeTGA(image, TEST_TGA_RGBA32_TOP), image, IMAGE_FILE_TGA);
	ExpectDecodesTo(MakeTGA(image, TEST_TGA_GREY), GreyFromRed(image), IMAGE_FILE_TGA);
	ExpectDecodesTo(MakeTGA(few, TEST_TGA_RLE24), few, IMAGE_FILE_TGA);
	ExpectDecodesTo(MakeTGA(few, TEST_TGA_COLORMAPPED), few, IMAGE_FILE_TGA);
}

TEST(ImageLoad, PNGOfEveryKindDecodesToItsPixels)
{
	const CImageRGBA8 image = MakeDistinctPixels(19, 11, true);
	ExpectDecodesTo(MakePNG(image, TEST_PNG_RGBA8), image, IMAGE_FILE_PNG);
	ExpectDecodesTo(MakePNG(image, TEST_PNG_RGB8), Opaque(image), IMAGE_FILE_PNG);
	ExpectDecodesTo(MakePNG(image, TEST_PNG_GREY16), GreyFromRed(image), IMAGE_FILE_PNG);
	ExpectDecodesTo(MakePNG(image, TEST_PNG_RGBA8_ADAM7), image, IMAGE_FILE_PNG);
	const CImageRGBA8 few = MakeFewColors(19, 11, 40, true);
	ExpectDecodesTo(MakePNG(few, TEST_PNG_PALETTE), few, IMAGE_FILE_PNG);
}

TEST(ImageLoad, BMPOfEveryDepthDecodesToItsPixels)
{
	const CImageRGBA8 image = MakeDistinctPixels(7, 5, true); // 7 wide: every row is padded
	ExpectDecodesTo(MakeBMP(image, 24), Opaque(image), IMAGE_FILE_BMP);
	ExpectDecodesTo(MakeBMP(image, 24, true), Opaque(image), IMAGE_FILE_BMP);
	ExpectDecodesTo(MakeBMP(image, 32), image, IMAGE_FILE_BMP);
	ExpectDecodesTo(MakeBMP(MakeFewColors(9, 6, 200, false), 8), MakeFewColors(9, 6, 200, false), IMAGE_FILE_BMP);
	ExpectDecodesTo(MakeBMP(MakeFewColors(9, 6, 16, false), 4), MakeFewColors(9, 6, 16, false), IMAGE_FILE_BMP);
	ExpectDecodesTo(MakeBMP(MakeFewColors(11, 6, 2, false), 1), MakeFewColors(11, 6, 2, false), IMAGE_FILE_BMP);
}

TEST(ImageLoad, PSDRawAndPackBitsDecodeToTheirPixels)
{
	// Partial alpha: the white matte is taken out again, within its rounding.
	const CImageRGBA8 image = MakeDistinctPixels(10, 6, true);
	ExpectDecodesTo(MakePSD(image, false), image, IMAGE_FILE_PSD, 2);
	const CImageRGBA8 opaque = MakeDistinctPixels(10, 6, false);
	ExpectDecodesTo(MakePSD(opaque, false), opaque, IMAGE_FILE_PSD);
	const CImageRGBA8 few = MakeFewColors(30, 8, 5, false); // runs and literals
	ExpectDecodesTo(MakePSD(few, true), few, IMAGE_FILE_PSD);
}

TEST(ImageLoad, GIFGivesItsFirstFrameWithTransparency)
{
	const CImageRGBA8 few = MakeFewColors(21, 13, 7, false);
	// Index 0 is the first pixel's colour; transparent, it becomes alpha 0.
	CImageRGBA8 expected = few;
	for (size_t i = 0; i < expected.PixelCount(); ++i)
	{
		uint8 *p = expected.Pixels() + i * 4;
		if (memcmp(p, few.Pixels(), 3) == 0)
			p[0] = p[1] = p[2] = p[3] = 0;
	}
	CImageRGBA8 decoded;
	CUtlString error;
	ASSERT_TRUE(Decode(MakeGIFOfImage(few, 0), decoded, &error)) << error;
	ASSERT_EQ(decoded.Width(), 21);
	for (size_t i = 0; i < expected.PixelCount(); ++i)
	{
		const uint8 *a = decoded.Pixels() + i * 4, *b = expected.Pixels() + i * 4;
		if (b[3] == 0)
			EXPECT_EQ(a[3], 0) << i;
		else
			EXPECT_TRUE(memcmp(a, b, 4) == 0) << i;
	}
	ExpectDecodesTo(MakeGIFOfImage(few, -1), few, IMAGE_FILE_GIF);
	// Long frames cross the clear codes of the encoder.
	const CImageRGBA8 large = MakeFewColors(64, 40, 60, false);
	ExpectDecodesTo(MakeGIFOfImage(large, -1), large, IMAGE_FILE_GIF);
}

TEST(ImageLoad, JPEGDecodesCloseToItsSource)
{
	const CImageRGBA8 image = MakePhotoLikeImage(96, 64);
	const Bytes_t file = MakeJPEG(image, 95);
	CImageRGBA8 decoded;
	CUtlString error;
	ImageFileInfo_t info;
	ASSERT_TRUE(Decode(file, decoded, &error, "photo.jpg", &info)) << error;
	EXPECT_EQ(info.format, IMAGE_FILE_JPEG);
	EXPECT_EQ(info.nChannels, 3);
	ASSERT_EQ(decoded.Width(), 96);
	ASSERT_EQ(decoded.Height(), 64);
	EXPECT_TRUE(decoded.IsOpaque());
	// Quality 95 on a picture with grain and hard edges: well above 30 dB; a wrong colour
	// conversion or a shifted block gives less than 20.
	EXPECT_GT(Image_PSNR(image, decoded), 30.0);
	// A plain colour comes back within the rounding of the colour conversion.
	CImageRGBA8 flat;
	flat.Init(16, 16);
	for (size_t i = 0; i < flat.PixelCount(); ++i)
		memcpy(flat.Pixels() + i * 4, "\x50\xa0\x30\xff", 4);
	ASSERT_TRUE(Decode(MakeJPEG(flat, 100), decoded, &error)) << error;
	for (size_t i = 0; i < decoded.PixelCount(); ++i)
	{
		EXPECT_NEAR(decoded.Pixels()[i * 4 + 0], 0x50, 2);
		EXPECT_NEAR(decoded.Pixels()[i * 4 + 1], 0xa0, 2);
		EXPECT_NEAR(decoded.Pixels()[i * 4 + 2], 0x30, 2);
	}
}

TEST(ImageLoad, InfoReadsOnlyTheHeader)
{
	CTempDirectory folder;
	const Bytes_t file = MakePNG(MakeDistinctPixels(300, 200, true), TEST_PNG_RGB8);
	const std::string path = folder.Write("wide.png", std::string(file.begin(), file.end()));
	ImageFileInfo_t info;
	CUtlString error;
	ASSERT_TRUE(Image_ReadFileInfo(path.c_str(), info, &error)) << error;
	EXPECT_EQ(info.format, IMAGE_FILE_PNG);
	EXPECT_EQ(info.nWidth, 300);
	EXPECT_EQ(info.nHeight, 200);
	EXPECT_EQ(info.nChannels, 3);
	// The header alone is enough: a file cut after its first chunk still gives its size.
	const std::string cut = folder.Write("cut.png", std::string(file.begin(), file.begin() + 40));
	ASSERT_TRUE(Image_ReadFileInfo(cut.c_str(), info, &error)) << error;
	EXPECT_EQ(info.nWidth, 300);
	CImageRGBA8 decoded;
	EXPECT_FALSE(Image_LoadFile(cut.c_str(), decoded, &error));
	EXPECT_NE(error.find("cut.png"), std::string::npos) << error;
	// A missing file names itself.
	EXPECT_FALSE(Image_ReadFileInfo(folder.Path("absent.tga").c_str(), info, &error));
	EXPECT_NE(error.find("absent.tga"), std::string::npos) << error;
}

TEST(ImageLoad, LoadFileReadsFromDisk)
{
	CTempDirectory folder;
	const CImageRGBA8 image = MakeDistinctPixels(33, 9, true);
	const Bytes_t file = MakeTGA(image, TEST_TGA_RGBA32_TOP);
	const std::string path = folder.Write("x.tga", std::string(file.begin(), file.end()));
	CImageRGBA8 decoded;
	CUtlString error;
	ASSERT_TRUE(Image_LoadFile(path.c_str(), decoded, &error)) << error;
	EXPECT_TRUE(decoded == image);
}

TEST(ImageLoad, UnknownFormatsAreNamed)
{
	CImageRGBA8 decoded;
	CUtlString error;
	const std::string ppm = "P6\n2 2\n255\n............";
	EXPECT_FALSE(Image_Load(ppm.data(), ppm.size(), "picture.ppm", decoded, &error));
	EXPECT_NE(error.find("picture.ppm"), std::string::npos) << error;
	EXPECT_NE(error.find("not an image of a known format"), std::string::npos) << error;
	EXPECT_FALSE(Image_Load("", 0, "empty.png", decoded, &error));
	EXPECT_NE(error.find("empty"), std::string::npos) << error;
}

// ---------------------------------------------------------------------------------------------
// Oversized headers

namespace
{
// Loads under a watch of the heap: returns the message and the largest single allocation.
size_t LoadWatched(const Bytes_t &file, CUtlString &error)
{
	CImageRGBA8 decoded;
	CAllocationWatch watch;
	EXPECT_FALSE(Image_Load(file.data(), file.size(), "huge", decoded, &error));
	return watch.LargestRequest();
}

Bytes_t HugePNG(uint32 w, uint32 h)
{
	// A few rows of real data; the header claims far more.
	return MakePNGFromScanlines(w, h, 8, 6, 0, Bytes_t(1024, 0));
}

Bytes_t HugeBMP(uint32 w, uint32 h)
{
	Bytes_t file = MakeBMP(MakeDistinctPixels(4, 4, false), 24);
	for (int i = 0; i < 4; ++i)
	{
		file[18 + i] = (uint8)(w >> (8 * i));
		file[22 + i] = (uint8)(h >> (8 * i));
	}
	return file;
}

Bytes_t HugeTGA(uint32 w, uint32 h)
{
	Bytes_t file = MakeTGA(MakeDistinctPixels(4, 4, false), TEST_TGA_RGB24);
	file[12] = (uint8)w;
	file[13] = (uint8)(w >> 8);
	file[14] = (uint8)h;
	file[15] = (uint8)(h >> 8);
	return file;
}

Bytes_t HugePSD(uint32 w, uint32 h)
{
	Bytes_t file = MakePSD(MakeDistinctPixels(4, 4, false), false);
	for (int i = 0; i < 4; ++i)
	{
		file[14 + i] = (uint8)(h >> (24 - 8 * i));
		file[18 + i] = (uint8)(w >> (24 - 8 * i));
	}
	return file;
}

Bytes_t HugeGIF(uint32 w, uint32 h)
{
	Bytes_t file = MakeGIFOfImage(MakeFewColors(4, 4, 3, false), -1);
	file[6] = (uint8)w;
	file[7] = (uint8)(w >> 8);
	file[8] = (uint8)h;
	file[9] = (uint8)(h >> 8);
	return file;
}

Bytes_t HugeJPEG(uint32 w, uint32 h)
{
	Bytes_t file = MakeJPEG(MakePhotoLikeImage(16, 16), 80);
	for (size_t i = 2; i + 8 < file.size(); ++i)
	{
		if (file[i] == 0xff && file[i + 1] == 0xc0)
		{
			file[i + 5] = (uint8)(h >> 8);
			file[i + 6] = (uint8)h;
			file[i + 7] = (uint8)(w >> 8);
			file[i + 8] = (uint8)w;
			return file;
		}
	}
	ADD_FAILURE() << "no frame header in the JPEG";
	return file;
}
} // namespace

TEST(ImageLoad, OversizedHeadersAreRefusedBeforeDecoding)
{
	struct Case_t
	{
		const char *pFormat;
		Bytes_t file;
		const char *pSize;
	};
	const Case_t cases[] = {
		{ "PNG", HugePNG(100000, 100000), "100000x100000" },
		{ "BMP", HugeBMP(100000, 100000), "100000x100000" },
		{ "PSD", HugePSD(100000, 100000), "100000x100000" },
		{ "TGA", HugeTGA(65535, 65535), "65535x65535" },
		{ "GIF", HugeGIF(65535, 65535), "65535x65535" },
		{ "JPEG", HugeJPEG(65535, 65535), "65535x65535" },
		// Within 16384 a side, but 1 GiB decoded.
		{ "PNG", HugePNG(16384, 16384), "16384x16384" },
		{ "BMP", HugeBMP(16384, 16385), "16384x16385" },
	};
	for (const Case_t &c : cases)
	{
		CUtlString error;
		const size_t nLargest = LoadWatched(c.file, error);
		EXPECT_NE(error.find(c.pSize), std::string::npos) << c.pFormat << ": " << error;
		EXPECT_NE(error.find(c.pFormat), std::string::npos) << error;
		EXPECT_NE(error.find("huge"), std::string::npos) << error;
		// Reading a header needs a few kilobytes; decoding even one row would need far more.
		EXPECT_LT(nLargest, 256u * 1024u) << c.pFormat << " " << c.pSize;
	}
	// The watch sees the decoder's allocations: a real 512x512 image needs a megabyte at once.
	{
		const Bytes_t file = MakePNG(MakePhotoLikeImage(512, 512), TEST_PNG_RGB8);
		CImageRGBA8 decoded;
		CAllocationWatch watch;
		ASSERT_TRUE(Image_Load(file.data(), file.size(), "real", decoded));
		EXPECT_GE(watch.LargestRequest(), 512u * 512u * 4u);
	}
	// The 256 MiB limit names itself.
	CUtlString error;
	LoadWatched(HugePNG(16384, 16384), error);
	EXPECT_NE(error.find("1024.0 MiB"), std::string::npos) << error;
	EXPECT_NE(error.find("256.0 MiB"), std::string::npos) << error;
}

TEST(ImageLoad, LimitsCanBeTightened)
{
	const Bytes_t file = MakePNG(MakeDistinctPixels(64, 32, false), TEST_PNG_RGB8);
	ImageLoadLimits_t limits;
	limits.nMaxSide = 48;
	CImageRGBA8 decoded;
	CUtlString error;
	EXPECT_FALSE(Image_Load(file.data(), file.size(), "small.png", decoded, &error, limits));
	EXPECT_NE(error.find("64x32"), std::string::npos) << error;
	limits.nMaxSide = 64;
	EXPECT_TRUE(Image_Load(file.data(), file.size(), "small.png", decoded, &error, limits)) << error;
	limits.nMaxFileBytes = 100;
	EXPECT_FALSE(Image_Load(file.data(), file.size(), "small.png", decoded, &error, limits));
	EXPECT_NE(error.find("bytes"), std::string::npos) << error;
}

TEST(ImageLoad, APNGThatInflatesPastItsHeaderIsRefused)
{
	// 16x16 RGBA needs 16 * 65 bytes of scanlines; this stream inflates to 8 MiB of zeros.
	const Bytes_t bomb = MakePNGFromScanlines(16, 16, 8, 6, 0, Bytes_t(8u << 20, 0));
	EXPECT_LT(bomb.size(), 64u * 1024u);
	CImageRGBA8 decoded;
	CUtlString error;
	size_t nLargest;
	{
		CAllocationWatch watch;
		EXPECT_FALSE(Image_Load(bomb.data(), bomb.size(), "bomb.png", decoded, &error));
		nLargest = watch.LargestRequest();
	}
	EXPECT_NE(error.find("inflates to more than"), std::string::npos) << error;
	EXPECT_NE(error.find("bomb.png"), std::string::npos) << error;
	EXPECT_LT(nLargest, 1u << 20);
	// Padding after the rows within reason is accepted, as decoders do.
	CImageRGBA8 image = MakeDistinctPixels(16, 16, true);
	Bytes_t scanlines;
	for (int y = 0; y < 16; ++y)
	{
		scanlines.push_back(0);
		PutBytes(scanlines, image.Pixel(0, y), 64);
	}
	scanlines.resize(scanlines.size() + 100, 0);
	ExpectDecodesTo(MakePNGFromScanlines(16, 16, 8, 6, 0, scanlines), image, IMAGE_FILE_PNG);
}

// ---------------------------------------------------------------------------------------------
// Damaged files

TEST(ImageLoad, TruncatedFilesOfEveryFormatGiveAMessage)
{
	for (const SampleFile_t &sample : SampleFiles())
	{
		CImageRGBA8 decoded;
		CUtlString error;
		ASSERT_TRUE(Decode(sample.bytes, decoded, &error, sample.pName)) << sample.pName << ": " << error;
		const size_t nSize = sample.bytes.size();
		for (size_t nCut : { (size_t)1, (size_t)2, (size_t)5, nSize / 4, nSize / 2, nSize * 3 / 4, nSize - 4 })
		{
			const Bytes_t cut(sample.bytes.begin(), sample.bytes.end() - (long)nCut);
			error.clear();
			EXPECT_FALSE(Decode(cut, decoded, &error, sample.pName)) << sample.pName << " without its last " << nCut << " bytes";
			EXPECT_NE(error.find(sample.pName), std::string::npos) << error;
		}
	}
}

TEST(ImageLoad, NoisyFilesNeverCrashAndAlwaysSayWhy)
{
	CTestImageRandom random(7);
	int nRefused = 0, nDecoded = 0;
	for (const SampleFile_t &sample : SampleFiles())
	{
		for (int nRound = 0; nRound < 150; ++nRound)
		{
			Bytes_t noisy = sample.bytes;
			// A few bytes changed: in the header for the first rounds, anywhere after that.
			const int nChanges = 1 + (int)(random.Next() % 4);
			for (int i = 0; i < nChanges; ++i)
			{
				const size_t nLimit = nRound < 50 ? std::min<size_t>(noisy.size(), 64) : noisy.size();
				noisy[random.Next() % nLimit] = (uint8)random.Next();
			}
			CImageRGBA8 decoded;
			CUtlString error;
			if (Decode(noisy, decoded, &error, sample.pName))
			{
				++nDecoded;
				EXPECT_FALSE(decoded.IsEmpty());
				EXPECT_LE(decoded.Width(), 16384);
			}
			else
			{
				++nRefused;
				EXPECT_NE(error.find(sample.pName), std::string::npos) << error;
			}
		}
	}
	// Noise in pixel data of the uncompressed formats cannot be seen; noise in headers is.
	EXPECT_GT(nRefused, 300);
	EXPECT_GT(nDecoded, 50);
	// Pure noise.
	for (int nRound = 0; nRound < 300; ++nRound)
	{
		Bytes_t noise((size_t)(1 + random.Next() % 2000));
		for (uint8 &b : noise)
			b = (uint8)random.Next();
		if (nRound % 3 == 0)
			noise[0] = 0; // may pass for a TGA header
		CImageRGBA8 decoded;
		CUtlString error;
		if (!Decode(noise, decoded, &error, "noise"))
		{
			EXPECT_NE(error.find("noise"), std::string::npos) << error;
		}
	}
}

// ---------------------------------------------------------------------------------------------
// Files made by other tools

namespace
{
std::vector<std::string> ThirdPartyImages()
{
	std::vector<std::string> paths;
	std::error_code ignored;
	const std::filesystem::path root = "/usr/share/assimp/models";
	for (auto it = std::filesystem::recursive_directory_iterator(root, ignored); it != std::filesystem::recursive_directory_iterator();
		 it.increment(ignored))
	{
		std::string extension = it->path().extension().string();
		for (char &c : extension)
			c = (char)tolower(c);
		if (extension == ".png" || extension == ".jpg" || extension == ".jpeg" || extension == ".tga" || extension == ".bmp")
			paths.push_back(it->path().string());
	}
	std::sort(paths.begin(), paths.end());
	return paths;
}

Bytes_t ReadAll(const std::string &path)
{
	std::ifstream in(path, std::ios::binary);
	return Bytes_t((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}
} // namespace

TEST(ImageLoad, FilesOfOtherToolsMatchASecondReading)
{
	const std::vector<std::string> paths = ThirdPartyImages();
	if (paths.empty())
		GTEST_SKIP() << "assimp's test models are not installed";
	int nCompared = 0, nJPEG = 0;
	for (const std::string &path : paths)
	{
		CImageRGBA8 decoded;
		CUtlString error;
		ImageFileInfo_t info;
		ASSERT_TRUE(Image_LoadFile(path.c_str(), decoded, &error, ImageLoadLimits_t(), &info)) << error;
		ASSERT_EQ(decoded.Width(), info.nWidth);
		const Bytes_t file = ReadAll(path);
		CImageRGBA8 reference;
		std::string why;
		bool bReference = false;
		if (info.format == IMAGE_FILE_PNG)
			bReference = ReferenceDecodePNG(file, reference, why);
		else if (info.format == IMAGE_FILE_TGA)
			bReference = ReferenceDecodeTGA(file, reference, why);
		if (bReference)
		{
			EXPECT_TRUE(decoded == reference) << path << ": PSNR " << Image_PSNR(decoded, reference, IMAGE_CHANNELS_RGBA);
			++nCompared;
		}
		if (info.format == IMAGE_FILE_JPEG)
		{
			// No second decoder: a JPEG must at least decode to a picture, not to a flat or black field.
			++nJPEG;
			double flMean = 0.0, flVariance = 0.0;
			for (size_t i = 0; i < decoded.PixelCount(); ++i)
				flMean += decoded.Pixels()[i * 4 + 1];
			flMean /= (double)decoded.PixelCount();
			for (size_t i = 0; i < decoded.PixelCount(); ++i)
				flVariance += (decoded.Pixels()[i * 4 + 1] - flMean) * (decoded.Pixels()[i * 4 + 1] - flMean);
			EXPECT_GT(flVariance / (double)decoded.PixelCount(), 4.0) << path;
		}
	}
	EXPECT_GT(nCompared, 30);
	EXPECT_GT(nJPEG, 10);
}
