#include <gtest/gtest.h>

#include "testsupport/test_support.h"
#include "elements_test_support.h"
#include "mintyardtoolutils/core/imageinfo.h"

using namespace elementstest;

TEST(ImageInfo, PngSizeFromHeader)
{
	CTempDirectory dir;
	const std::string path = dir.Path("a.png");
	ASSERT_TRUE(WriteFile(path, MakePng(96, 32)));
	MintyardImageInfo_t info;
	CUtlString error;
	ASSERT_TRUE(ReadImageInfo(path.c_str(), info, &error)) << error;
	EXPECT_EQ(info.kind, MINTYARD_IMAGE_PNG);
	EXPECT_EQ(info.width, 96);
	EXPECT_EQ(info.height, 32);
}

TEST(ImageInfo, BmpBottomUpAndTopDown)
{
	std::string bmp = MakeBmp(7, 5);
	MintyardImageInfo_t info;
	ASSERT_TRUE(ReadImageInfoFromMemory(bmp.data(), bmp.size(), info));
	EXPECT_EQ(info.kind, MINTYARD_IMAGE_BMP);
	EXPECT_EQ(info.width, 7);
	EXPECT_EQ(info.height, 5);
	// A negative height marks rows stored top-down; the size is its magnitude.
	const int32_t negative = -5;
	memcpy(&bmp[22], &negative, 4);
	ASSERT_TRUE(ReadImageInfoFromMemory(bmp.data(), bmp.size(), info));
	EXPECT_EQ(info.height, 5);
}

TEST(ImageInfo, OnlyTheHeaderIsNeeded)
{
	// The first 33 bytes of a PNG hold the size; the pixel data is never touched.
	const std::string png = MakePng(2048, 1024);
	MintyardImageInfo_t info;
	ASSERT_TRUE(ReadImageInfoFromMemory(png.data(), 33, info));
	EXPECT_EQ(info.width, 2048);
	EXPECT_EQ(info.height, 1024);
	EXPECT_FALSE(ReadImageInfoFromMemory(png.data(), 32, info));
}

TEST(ImageInfo, JpegFrameAfterOtherSegments)
{
	// SOI, an APP0 segment of 16 bytes, then a baseline frame header of 300 x 200.
	std::string jpeg = "\xFF\xD8";
	jpeg += std::string("\xFF\xE0\x00\x10", 4) + std::string(14, 'j');
	jpeg += std::string("\xFF\xC0\x00\x11\x08\x00\xC8\x01\x2C\x03", 10) + std::string(9, '\0');
	MintyardImageInfo_t info;
	CUtlString error;
	ASSERT_TRUE(ReadImageInfoFromMemory(jpeg.data(), jpeg.size(), info, &error)) << error;
	EXPECT_EQ(info.kind, MINTYARD_IMAGE_JPEG);
	EXPECT_EQ(info.width, 300);
	EXPECT_EQ(info.height, 200);
}

TEST(ImageInfo, TgaAndGifAndPsd)
{
	uint8_t tga[18] = {};
	tga[2] = 2;
	tga[12] = 0x00;
	tga[13] = 0x01; // 256 wide
	tga[14] = 0x40; // 64 high
	tga[16] = 32;
	MintyardImageInfo_t info;
	ASSERT_TRUE(ReadImageInfoFromMemory(tga, sizeof(tga), info));
	EXPECT_EQ(info.kind, MINTYARD_IMAGE_TGA);
	EXPECT_EQ(info.width, 256);
	EXPECT_EQ(info.height, 64);

	const char gif[] = "GIF89a\x20\x00\x10\x00";
	ASSERT_TRUE(ReadImageInfoFromMemory(gif, 10, info));
	EXPECT_EQ(info.width, 32);
	EXPECT_EQ(info.height, 16);

	std::string psd = "8BPS";
	psd += std::string("\x00\x01", 2) + std::string(6, '\0') + std::string("\x00\x03", 2);
	psd += std::string("\x00\x00\x00\x30", 4) + std::string("\x00\x00\x00\x40", 4) + std::string("\x00\x08\x00\x03", 4);
	ASSERT_TRUE(ReadImageInfoFromMemory(psd.data(), psd.size(), info));
	EXPECT_EQ(info.kind, MINTYARD_IMAGE_PSD);
	EXPECT_EQ(info.width, 64);
	EXPECT_EQ(info.height, 48);
}

TEST(ImageInfo, DamagedFilesAreRefusedWithTheirName)
{
	CTempDirectory dir;
	MintyardImageInfo_t info;
	CUtlString error;
	const std::string text = dir.Write("notes.png", "this is not a picture");
	EXPECT_FALSE(ReadImageInfo(text.c_str(), info, &error));
	EXPECT_NE(error.find("notes.png"), std::string::npos) << error;

	const std::string empty = dir.Write("empty.png", "");
	EXPECT_FALSE(ReadImageInfo(empty.c_str(), info, &error));

	EXPECT_FALSE(ReadImageInfo(dir.Path("missing.png").c_str(), info, &error));
	EXPECT_NE(error.find("missing.png"), std::string::npos);

	// A PNG signature followed by a chunk that is not IHDR.
	std::string png = MakePng(4, 4);
	png[12] = 'X';
	EXPECT_FALSE(ReadImageInfoFromMemory(png.data(), png.size(), info));
	// A PNG whose IHDR says 0 wide.
	png = MakePng(4, 4);
	png[16] = png[17] = png[18] = png[19] = 0;
	EXPECT_FALSE(ReadImageInfoFromMemory(png.data(), png.size(), info));
	// A JPEG that ends inside its segments, and one whose segment length is 0.
	const std::string jpegShort("\xFF\xD8\xFF\xE0\x00\x40", 6);
	EXPECT_FALSE(ReadImageInfoFromMemory(jpegShort.data(), jpegShort.size(), info));
	const std::string jpegZero("\xFF\xD8\xFF\xE0\x00\x00\xFF\xC0", 8);
	EXPECT_FALSE(ReadImageInfoFromMemory(jpegZero.data(), jpegZero.size(), info));
}

TEST(ImageInfo, JpegFrameFarIntoTheFile)
{
	// An APP1 segment of 3000 bytes before the frame header: the reader skips it by its length.
	std::string jpeg = "\xFF\xD8";
	jpeg += std::string("\xFF\xE1\x0B\xB8", 4) + std::string(3000 - 2, 'x');
	jpeg += std::string("\xFF\xC2\x00\x11\x08\x04\x00\x08\x00\x03", 10) + std::string(9, '\0'); // progressive, 2048 x 1024
	CTempDirectory dir;
	const std::string path = dir.Path("photo.jpg");
	ASSERT_TRUE(WriteFile(path, jpeg));
	MintyardImageInfo_t info;
	CUtlString error;
	ASSERT_TRUE(ReadImageInfo(path.c_str(), info, &error)) << error;
	EXPECT_EQ(info.kind, MINTYARD_IMAGE_JPEG);
	EXPECT_EQ(info.width, 2048);
	EXPECT_EQ(info.height, 1024);
	// Cut inside the long segment: refused.
	ASSERT_TRUE(WriteFile(path, jpeg.substr(0, 1500)));
	EXPECT_FALSE(ReadImageInfo(path.c_str(), info, &error));
	// A small file that is whole within the first bytes read.
	ASSERT_TRUE(WriteFile(path, MakePng(3, 2)));
	ASSERT_TRUE(ReadImageInfo(path.c_str(), info, &error)) << error;
	EXPECT_EQ(info.width, 3);
}

TEST(ImageInfo, EveryByteOfEveryHeaderMutated)
{
	// Each header byte takes every value, and each header is cut at every length: the reader
	// must answer every time, and a size it gives is always a sane one.
	std::string jpeg = "\xFF\xD8";
	jpeg += std::string("\xFF\xE0\x00\x10", 4) + std::string(14, 'j');
	jpeg += std::string("\xFF\xC0\x00\x11\x08\x00\xC8\x01\x2C\x03", 10) + std::string(9, '\0');
	const std::string samples[] = { MakePng(9, 7), MakeBmp(5, 3), jpeg, std::string("GIF89a\x20\x00\x10\x00", 10),
		std::string("8BPS\x00\x01\0\0\0\0\0\0\x00\x03\x00\x00\x00\x30\x00\x00\x00\x40\x00\x08\x00\x03", 26) };
	int nAccepted = 0;
	for (const std::string &sample : samples)
	{
		const size_t nBytes = std::min<size_t>(sample.size(), 48);
		for (size_t i = 0; i < nBytes; ++i)
		{
			std::string mutated = sample;
			for (int v = 0; v < 256; ++v)
			{
				mutated[i] = (char)v;
				MintyardImageInfo_t info;
				if (ReadImageInfoFromMemory(mutated.data(), mutated.size(), info))
				{
					++nAccepted;
					ASSERT_GT(info.width, 0);
					ASSERT_GT(info.height, 0);
					ASSERT_LE(info.width, 65536);
					ASSERT_LE(info.height, 65536);
				}
			}
		}
		for (size_t length = 0; length < sample.size(); ++length)
		{
			MintyardImageInfo_t info;
			ReadImageInfoFromMemory(sample.data(), length, info);
		}
	}
	EXPECT_GT(nAccepted, 0);
}
