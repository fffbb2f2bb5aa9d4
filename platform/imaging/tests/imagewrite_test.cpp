// Writers and rescaling: PNG and TGA read back, files replaced whole, smooth rescaling to any
// size, and the SDL road for BMP cursors.
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "imagefiles.h"
#include "imaging/imageload.h"
#include "imaging/imageresize.h"
#include "imaging/imagewrite.h"
#include "testimages.h"
#include "testsupport/test_support.h"

namespace
{
Bytes_t ReadBytes(const std::string &path)
{
	std::ifstream in(path, std::ios::binary);
	return Bytes_t((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void WriteBytes(const std::string &path, const Bytes_t &bytes)
{
	std::ofstream out(path, std::ios::binary);
	out.write((const char *)bytes.data(), (std::streamsize)bytes.size());
}

CImageRGBA8 Quadrants(int w, int h, bool bAlpha)
{
	static const uint8 s_Colors[4][4] = { { 255, 0, 0, 255 }, { 0, 255, 0, 128 }, { 0, 0, 255, 255 }, { 255, 255, 0, 0 } };
	CImageRGBA8 image;
	image.Init(w, h);
	for (int y = 0; y < h; ++y)
	{
		for (int x = 0; x < w; ++x)
		{
			const uint8 *c = s_Colors[(y >= h / 2 ? 2 : 0) + (x >= w / 2 ? 1 : 0)];
			uint8 *p = image.Pixel(x, y);
			memcpy(p, c, 4);
			if (!bAlpha)
				p[3] = 255;
		}
	}
	return image;
}

CImageRGBA8 LoadOrFail(const Bytes_t &bytes)
{
	CImageRGBA8 image;
	CUtlString error;
	EXPECT_TRUE(Image_Load(bytes.data(), bytes.size(), "written", image, &error)) << error;
	return image;
}
} // namespace

TEST(ImageWrite, PNGReadsBackExactly)
{
	const CImageRGBA8 image = MakePhotoLikeImageWithAlpha(67, 45);
	CUtlBuffer png;
	CUtlString error;
	ASSERT_TRUE(Image_EncodePNG(image, png, &error)) << error;
	EXPECT_EQ(Image_IdentifyFormat(png.Base(), png.Size()), IMAGE_FILE_PNG);
	EXPECT_TRUE(LoadOrFail(Bytes_t(png.Base(), png.Base() + png.Size())) == image);

	ASSERT_TRUE(Image_EncodePNG(image, png, &error, IMAGE_PNG_RGB)) << error;
	ImageFileInfo_t info;
	ASSERT_TRUE(Image_ReadInfo(png.Base(), png.Size(), "rgb.png", info, &error)) << error;
	EXPECT_EQ(info.nChannels, 3);
	CImageRGBA8 opaque = image;
	for (size_t i = 0; i < opaque.PixelCount(); ++i)
		opaque.Pixels()[i * 4 + 3] = 255;
	EXPECT_TRUE(LoadOrFail(Bytes_t(png.Base(), png.Base() + png.Size())) == opaque);

	CImageRGBA8 empty;
	EXPECT_FALSE(Image_EncodePNG(empty, png, &error));
	EXPECT_FALSE(error.empty());
}

TEST(ImageWrite, TGAIs24BitUncompressedFromTheBottom)
{
	const CImageRGBA8 image = MakePhotoLikeImageWithAlpha(9, 5);
	CUtlBuffer tga;
	CUtlString error;
	ASSERT_TRUE(Image_EncodeTGA(image, tga, &error)) << error;
	const uint8 *p = (const uint8 *)tga.Base();
	ASSERT_EQ(tga.Size(), 18u + 9 * 5 * 3);
	EXPECT_EQ(p[1], 0);	 // no colour map
	EXPECT_EQ(p[2], 2);	 // uncompressed true colour
	EXPECT_EQ(p[12], 9); // width
	EXPECT_EQ(p[14], 5); // height
	EXPECT_EQ(p[16], 24);
	EXPECT_EQ(p[17], 0); // no alpha bits, origin at the bottom
	// The first stored pixel is the bottom left one, as blue, green, red.
	const uint8 *pBottomLeft = image.Pixel(0, 4);
	EXPECT_EQ(p[18], pBottomLeft[2]);
	EXPECT_EQ(p[19], pBottomLeft[1]);
	EXPECT_EQ(p[20], pBottomLeft[0]);
	CImageRGBA8 opaque = image;
	for (size_t i = 0; i < opaque.PixelCount(); ++i)
		opaque.Pixels()[i * 4 + 3] = 255;
	EXPECT_TRUE(LoadOrFail(Bytes_t(p, p + tga.Size())) == opaque);

	ASSERT_TRUE(Image_EncodeTGA(image, tga, &error, IMAGE_TGA_32)) << error;
	p = (const uint8 *)tga.Base();
	EXPECT_EQ(p[16], 32);
	EXPECT_EQ(p[17], 8);
	EXPECT_TRUE(LoadOrFail(Bytes_t(p, p + tga.Size())) == image);
}

TEST(ImageWrite, FilesAreReplacedWhole)
{
	CTempDirectory folder;
	const std::string png = folder.Path("out.png"), tga = folder.Path("out.tga");
	const CImageRGBA8 image = MakePhotoLikeImage(40, 30);
	CUtlString error;
	ASSERT_TRUE(Image_WritePNGFile(png.c_str(), image, &error)) << error;
	ASSERT_TRUE(Image_WriteTGAFile(tga.c_str(), image, &error)) << error;
	CImageRGBA8 back;
	ASSERT_TRUE(Image_LoadFile(png.c_str(), back, &error)) << error;
	EXPECT_TRUE(back == image);
	ASSERT_TRUE(Image_LoadFile(tga.c_str(), back, &error)) << error;
	EXPECT_TRUE(back == image);
	// No temporary files stay behind.
	int nFiles = 0;
	for (const auto &entry : std::filesystem::directory_iterator(folder.Path()))
	{
		(void)entry;
		++nFiles;
	}
	EXPECT_EQ(nFiles, 2);
	// A failed write leaves the old file as it was.
	const Bytes_t before = ReadBytes(png);
	CImageRGBA8 empty;
	EXPECT_FALSE(Image_WritePNGFile(png.c_str(), empty, &error));
	EXPECT_NE(error.find("out.png"), std::string::npos) << error;
	EXPECT_EQ(ReadBytes(png), before);
	EXPECT_FALSE(Image_WriteTGAFile(folder.Path("missing/dir/x.tga").c_str(), image, &error));
	EXPECT_NE(error.find("x.tga"), std::string::npos) << error;
}

TEST(ImageResize, AnySizeWithTheAspectIgnored)
{
	// A horizontal ramp, rescaled to a different aspect: sizes as asked, ramp kept monotonic and
	// its ends near their values, rows identical.
	CImageRGBA8 ramp;
	ramp.Init(64, 32);
	for (int y = 0; y < 32; ++y)
		for (int x = 0; x < 64; ++x)
			memcpy(ramp.Pixel(x, y), std::array<uint8, 4>{ (uint8)(x * 4), 100, 200, 255 }.data(), 4);
	CImageRGBA8 out;
	CUtlString error;
	ASSERT_TRUE(Image_Resize(ramp, 150, 7, out, &error)) << error;
	ASSERT_EQ(out.Width(), 150);
	ASSERT_EQ(out.Height(), 7);
	for (int y = 0; y < 7; ++y)
	{
		for (int x = 0; x < 150; ++x)
		{
			EXPECT_EQ(memcmp(out.Pixel(x, y), out.Pixel(x, 0), 4), 0);
			if (x > 0)
			{
				EXPECT_GE(out.Pixel(x, y)[0], out.Pixel(x - 1, y)[0]);
			}
			EXPECT_EQ(out.Pixel(x, y)[1], 100);
		}
	}
	EXPECT_LE(out.Pixel(0, 0)[0], 4);
	EXPECT_GE(out.Pixel(149, 0)[0], 248);
	// Downscaling smooths: the average of a fine checker comes out grey, not black or white.
	CImageRGBA8 checker;
	checker.Init(256, 256);
	for (int y = 0; y < 256; ++y)
		for (int x = 0; x < 256; ++x)
			memset(checker.Pixel(x, y), ((x + y) & 1) ? 255 : 0, 3), checker.Pixel(x, y)[3] = 255;
	ASSERT_TRUE(Image_Resize(checker, 32, 16, out, &error)) << error;
	for (size_t i = 0; i < out.PixelCount(); ++i)
		EXPECT_NEAR(out.Pixels()[i * 4], 128, 3);
	// In linear light the same checker averages to 0.5 of the light: sRGB 188.
	ASSERT_TRUE(Image_Resize(checker, 32, 16, out, &error, IMAGE_COLORSPACE_SRGB)) << error;
	EXPECT_NEAR(out.Pixel(10, 10)[0], 188, 3);
}

TEST(ImageResize, LoadingScreenIntoItsBuffer)
{
	const CImageRGBA8 image = MakePhotoLikeImage(300, 170);
	std::vector<uint8> buffer(8388608);
	CUtlString error;
	ASSERT_TRUE(Image_ResizeInto(image, 2048, 1024, buffer.data(), buffer.size(), &error)) << error;
	// Rescaled back down it is close to the source (smooth filters, one way and back).
	CImageRGBA8 large, back;
	ASSERT_TRUE(large.Assign(2048, 1024, std::move(buffer)));
	ASSERT_TRUE(Image_Resize(large, 300, 170, back, &error)) << error;
	EXPECT_GT(Image_PSNR(image, back), 24.0);
	// A buffer too small, or a size out of range, is refused with a message.
	std::vector<uint8> small(100);
	EXPECT_FALSE(Image_ResizeInto(image, 2048, 1024, small.data(), small.size(), &error));
	EXPECT_FALSE(error.empty());
	EXPECT_FALSE(Image_Resize(image, 0, 10, back, &error));
	EXPECT_NE(error.find("0x10"), std::string::npos) << error;
	EXPECT_FALSE(Image_Resize(image, 20000, 10, back, &error));
}

TEST(ImageResize, TransparentPixelsDoNotBleed)
{
	// Left half opaque blue, right half transparent red: the blue edge stays blue.
	CImageRGBA8 image;
	image.Init(16, 4);
	for (int y = 0; y < 4; ++y)
		for (int x = 0; x < 16; ++x)
			memcpy(image.Pixel(x, y), x < 8 ? "\x00\x00\xff\xff" : "\xff\x00\x00\x00", 4);
	CImageRGBA8 out;
	ASSERT_TRUE(Image_Resize(image, 6, 2, out));
	for (int x = 0; x < 6; ++x)
	{
		const uint8 *p = out.Pixel(x, 0);
		if (p[3] > 16)
		{
			EXPECT_LT(p[0], 16) << x;
		}
	}
}

// ---------------------------------------------------------------------------------------------
// The BMP road

TEST(BMPResize, A24BitBMPIsRescaledInPlace)
{
	CTempDirectory folder;
	const std::string path = folder.Path("cursor.bmp");
	WriteBytes(path, MakeBMP(Quadrants(4, 4, false), 24));
	CUtlString error;
	ASSERT_TRUE(Image_ResizeBMPFile(path.c_str(), 8, 6, &error)) << error;
	CImageRGBA8 out;
	ASSERT_TRUE(Image_LoadFile(path.c_str(), out, &error)) << error;
	ASSERT_EQ(out.Width(), 8);
	ASSERT_EQ(out.Height(), 6);
	// Each quadrant keeps its colour exactly.
	const CImageRGBA8 expected = Quadrants(8, 6, false);
	EXPECT_TRUE(out == expected);
	const Bytes_t bytes = ReadBytes(path);
	EXPECT_EQ(bytes[28], 24); // bits per pixel kept
}

TEST(BMPResize, APalettisedBMPKeepsItsPalette)
{
	CTempDirectory folder;
	const std::string path = folder.Path("cursor8.bmp");
	WriteBytes(path, MakeBMP(Quadrants(6, 6, false), 8));
	CUtlString error;
	ASSERT_TRUE(Image_ResizeBMPFile(path.c_str(), 12, 12, &error)) << error;
	const Bytes_t bytes = ReadBytes(path);
	ASSERT_GT(bytes.size(), 30u);
	EXPECT_EQ(bytes[28], 8); // still 8 bits per pixel
	CImageRGBA8 out;
	ASSERT_TRUE(Image_LoadFile(path.c_str(), out, &error)) << error;
	EXPECT_TRUE(out == Quadrants(12, 12, false));
}

TEST(BMPResize, A32BitBMPKeepsItsAlpha)
{
	CTempDirectory folder;
	const std::string path = folder.Path("alpha.bmp");
	WriteBytes(path, MakeBMP(Quadrants(4, 4, true), 32));
	CUtlString error;
	ASSERT_TRUE(Image_ResizeBMPFile(path.c_str(), 2, 2, &error)) << error;
	CImageRGBA8 out;
	ASSERT_TRUE(Image_LoadFile(path.c_str(), out, &error)) << error;
	EXPECT_TRUE(out == Quadrants(2, 2, true));
}

TEST(BMPResize, TheSameSizeOrNoSurfaceLeavesTheFile)
{
	CTempDirectory folder;
	const std::string path = folder.Path("same.bmp");
	const Bytes_t original = MakeBMP(Quadrants(4, 4, false), 24);
	WriteBytes(path, original);
	CUtlString error;
	EXPECT_TRUE(Image_ResizeBMPFile(path.c_str(), 4, 4, &error)) << error;
	EXPECT_EQ(ReadBytes(path), original);
	// No surface of that size can be made: true, and nothing changes.
	EXPECT_TRUE(Image_ResizeBMPFile(path.c_str(), 0, 4, &error));
	EXPECT_TRUE(Image_ResizeBMPFile(path.c_str(), 100000, 100000, &error));
	EXPECT_EQ(ReadBytes(path), original);
}

TEST(BMPResize, FilesThatDoNotLoadFail)
{
	CTempDirectory folder;
	CUtlString error;
	EXPECT_FALSE(Image_ResizeBMPFile(folder.Path("absent.bmp").c_str(), 8, 8, &error));
	EXPECT_NE(error.find("absent.bmp"), std::string::npos) << error;
	const std::string png = folder.Path("really.bmp");
	CUtlBuffer data;
	ASSERT_TRUE(Image_EncodePNG(Quadrants(4, 4, false), data));
	WriteBytes(png, Bytes_t(data.Base(), data.Base() + data.Size()));
	EXPECT_FALSE(Image_ResizeBMPFile(png.c_str(), 8, 8, &error));
	EXPECT_NE(error.find("not a BMP"), std::string::npos) << error;
	// A header that claims a huge bitmap is refused before SDL reads it.
	Bytes_t huge = MakeBMP(Quadrants(4, 4, false), 24);
	huge[20] = 0x10; // width 0x100004
	const std::string hugePath = folder.Path("huge.bmp");
	WriteBytes(hugePath, huge);
	EXPECT_FALSE(Image_ResizeBMPFile(hugePath.c_str(), 8, 8, &error));
	EXPECT_NE(error.find("1048580x4"), std::string::npos) << error;
	// A truncated BMP: SDL's own message.
	Bytes_t cut = MakeBMP(Quadrants(16, 16, false), 24);
	cut.resize(cut.size() / 2);
	const std::string cutPath = folder.Path("cut.bmp");
	WriteBytes(cutPath, cut);
	EXPECT_FALSE(Image_ResizeBMPFile(cutPath.c_str(), 8, 8, &error));
	EXPECT_NE(error.find("cut.bmp"), std::string::npos) << error;
}

TEST(BMPResize, InMemory)
{
	const Bytes_t bmp = MakeBMP(Quadrants(4, 4, false), 24);
	CUtlBuffer out;
	CUtlString error;
	ASSERT_EQ(Image_ResizeBMP(bmp.data(), bmp.size(), "memory.bmp", 16, 8, out, &error), BMP_RESIZE_DONE) << error;
	const Bytes_t bytes(out.Base(), out.Base() + out.Size());
	EXPECT_TRUE(LoadOrFail(bytes) == Quadrants(16, 8, false));
	EXPECT_EQ(Image_ResizeBMP(bmp.data(), bmp.size(), "memory.bmp", 4, 4, out, &error), BMP_RESIZE_UNCHANGED);
}
