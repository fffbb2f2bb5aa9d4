// Textures through the command: each image kind compiled and exported back, compared with its
// source by PSNR; formats by alpha and size; maxres; texture recipes with YCoCg; damaged and
// hostile sources that fail with the file's name and leave the previous output whole.
#include <cstdio>
#include <cstring>
#include <filesystem>

#include <stb_image_write.h>

#include "compiledassets/compiledassets.h"
#include "imaging/imageload.h"
#include "imaging/imagewrite.h"
#include "imaging/mipchain.h"
#include "resourcecompiler/tests/compiler_test_support.h"
#include "imagefiles.h"
#include "testimages.h"

namespace
{
Bytes_t MakeJPEG(const CImageRGBA8 &image)
{
	Bytes_t out;
	auto write = [](void *context, void *data, int size) {
		Bytes_t &bytes = *(Bytes_t *)context;
		bytes.insert(bytes.end(), (const uint8 *)data, (const uint8 *)data + size);
	};
	stbi_write_jpg_to_func(write, &out, image.Width(), image.Height(), 4, image.Pixels(), 95);
	return out;
}

// Exports a mip of a compiled texture and loads the PNG back.
::testing::AssertionResult Export(const std::string &compiled, const std::string &png, CImageRGBA8 &image, int mip = 0)
{
	const CommandResult_t result = RunCompiler("export " + compiled + " " + png + " --mip " + std::to_string(mip));
	if (result.exitCode != 0)
		return ::testing::AssertionFailure() << "export exited " << result.exitCode << ": " << result.output;
	CUtlString error;
	if (!Image_LoadFile(png.c_str(), image, &error))
		return ::testing::AssertionFailure() << error;
	return ::testing::AssertionSuccess();
}

// Level n of an image's mip chain, as the compiler's filter makes it.
CImageRGBA8 MipOf(const CImageRGBA8 &image, int level, MipFilterSpace_t space)
{
	std::vector<CImageRGBA8> levels;
	EXPECT_TRUE(Texture_BuildMipLevels(image, space, levels, nullptr, level + 1));
	return levels.at((size_t)level - 1);
}

std::string Settings(int maxres)
{
	return "\"settings\"\n{\n\t\"maxres\"\t\"" + std::to_string(maxres) + "\"\n}\n";
}

std::string Recipe(const std::string &file, const std::string &format, const std::string &processor, const std::string &mip,
	const std::string &colorSpace = "linear")
{
	std::string text = "<!-- dmx encoding keyvalues2_noids 1 format ztex 1 -->\n\"CDmeZtex\"\n{\n"
					   "\t\"m_inputTextureArray\" \"element_array\" \n\t[\n\t\t\"CDmeInputTexture\"\n\t\t{\n"
					   "\t\t\t\"m_name\" \"string\" \"0\"\n\t\t\t\"m_fileName\" \"string\" \"" +
					   file + "\"\n\t\t\t\"m_colorSpace\" \"string\" \"" + colorSpace +
					   "\"\n\t\t\t\"m_typeString\" \"string\" \"2D\"\n"
					   "\t\t\t\"m_imageProcessorArray\" \"element_array\"\n\t\t\t[\n";
	if (!processor.empty())
		text += "\t\t\t\t\"CDmeImageProcessor\"\n\t\t\t\t{\n\t\t\t\t\t\"m_algorithm\" \"string\" \"" + processor + "\"\n\t\t\t\t}\n";
	text += "\t\t\t]\n\t\t}\n\t]\n\t\"m_outputTypeString\" \"string\" \"2D\"\n\t\"m_outputFormat\" \"string\" \"" + format +
			"\"\n\t\"m_textureOutputChannelArray\" \"element_array\"\n\t[\n\t\t\"CDmeTextureOutputChannel\"\n\t\t{\n"
			"\t\t\t\"m_inputTextureArray\" \"string_array\"\n\t\t\t\t[\n\t\t\t\t\t\"0\"\n\t\t\t\t]\n"
			"\t\t\t\"m_srcChannels\" \"string\" \"rgba\"\n\t\t\t\"m_dstChannels\" \"string\" \"rgba\"\n"
			"\t\t\t\"m_mipAlgorithm\" \"CDmeImageProcessor\"\n\t\t\t{\n\t\t\t\t\"m_algorithm\" \"string\" \"" +
			mip + "\"\n\t\t\t}\n\t\t\t\"m_outputColorSpace\" \"string\" \"" + colorSpace + "\"\n\t\t}\n\t]\n}\n";
	return text;
}
} // namespace

TEST(CompileTexture, EveryImageKindCompilesAndExportsBackToItsSource)
{
	const CImageRGBA8 source = MakePhotoLikeImage(128, 96, 7);
	struct Kind_t
	{
		const char *file;
		Bytes_t bytes;
		double minPSNR;
	};
	// BC1 keeps four colours a block of this grainy picture: about 32 dB at the top level and 28
	// at the next, where the grain is denser. A picture upside down or with channels swapped
	// scores below 15.
	const std::vector<Kind_t> kinds = {
		{ "materials/photo.png", MakePNG(source, TEST_PNG_RGB8), 30.0 },
		{ "materials/photo.tga", MakeTGA(source, TEST_TGA_RGB24), 30.0 },
		{ "materials/photo_rle.tga", MakeTGA(source, TEST_TGA_RLE24), 30.0 },
		{ "materials/photo.bmp", MakeBMP(source, 24), 30.0 },
		{ "materials/photo.psd", MakePSD(source, true), 30.0 },
		{ "materials/photo.jpg", MakeJPEG(source), 30.0 },
	};
	CContentTree tree;
	for (const Kind_t &kind : kinds)
	{
		SCOPED_TRACE(kind.file);
		tree.WriteBytes(kind.file, kind.bytes);
		const CommandResult_t result = RunCompiler(tree.Content(kind.file));
		ASSERT_EQ(result.exitCode, 0) << result.output;
		const std::string compiled = tree.Game(ResourceCompiler_CompiledName(kind.file));
		rapidjson::Document info;
		ASSERT_TRUE(CompiledInfo(compiled, info));
		EXPECT_STREQ(info["format"].GetString(), "BC1");
		EXPECT_EQ(info["width"].GetInt(), 128);
		EXPECT_EQ(info["height"].GetInt(), 96);
		EXPECT_EQ(info["mips"].GetInt(), 8);
		EXPECT_TRUE(info["srgb"].GetBool());

		// The source as a decoder reads it (JPEG is lossy of its own).
		CImageRGBA8 decoded;
		ASSERT_TRUE(Image_LoadFile(tree.Content(kind.file).c_str(), decoded));
		CImageRGBA8 exported;
		ASSERT_TRUE(Export(compiled, tree.Root() + "/out.png", exported));
		EXPECT_GE(Image_PSNR(exported, decoded), kind.minPSNR);
		CImageRGBA8 flipped = decoded;
		for (int y = 0; y < flipped.Height(); ++y)
			memcpy(flipped.Pixel(0, y), decoded.Pixel(0, decoded.Height() - 1 - y), flipped.RowBytes());
		EXPECT_LT(Image_PSNR(exported, flipped), 15.0);
		// The next mip is the source filtered in linear light.
		ASSERT_TRUE(Export(compiled, tree.Root() + "/mip1.png", exported, 1));
		EXPECT_GE(Image_PSNR(exported, MipOf(decoded, 1, MIP_FILTER_SRGB)), kind.minPSNR - 4.0);
	}
}

TEST(CompileTexture, AlphaBelowOpaqueTakesBC3)
{
	const CImageRGBA8 source = MakePhotoLikeImageWithAlpha(64, 64, 3);
	CContentTree tree;
	for (const auto &[file, bytes] : { std::pair<const char *, Bytes_t>{ "materials/cut.png", MakePNG(source, TEST_PNG_RGBA8) },
			 std::pair<const char *, Bytes_t>{ "materials/cut.tga", MakeTGA(source, TEST_TGA_RGBA32_TOP) } })
	{
		SCOPED_TRACE(file);
		tree.WriteBytes(file, bytes);
		ASSERT_EQ(RunCompiler(tree.Content(file)).exitCode, 0);
		const std::string compiled = tree.Game(ResourceCompiler_CompiledName(file));
		rapidjson::Document info;
		ASSERT_TRUE(CompiledInfo(compiled, info));
		EXPECT_STREQ(info["format"].GetString(), "BC3");
		EXPECT_EQ(info["mips"].GetInt(), 7);
		CImageRGBA8 exported;
		ASSERT_TRUE(Export(compiled, tree.Root() + "/cut.png", exported));
		EXPECT_GE(Image_PSNR(exported, source, IMAGE_CHANNELS_RGBA), 27.0);
	}
}

TEST(CompileTexture, SidesThatAreNotWholeBlocksStayRGBA8)
{
	const CImageRGBA8 source = MakePhotoLikeImage(30, 18, 5);
	CContentTree tree;
	tree.WriteBytes("materials/odd.png", MakePNG(source, TEST_PNG_RGB8));
	ASSERT_EQ(RunCompiler(tree.Content("materials/odd.png")).exitCode, 0);
	rapidjson::Document info;
	ASSERT_TRUE(CompiledInfo(tree.Game("materials/odd_png.ztex_c"), info));
	EXPECT_STREQ(info["format"].GetString(), "RGBA8");
	EXPECT_EQ(info["mips"].GetInt(), 5);
	CImageRGBA8 exported;
	ASSERT_TRUE(Export(tree.Game("materials/odd_png.ztex_c"), tree.Root() + "/odd.png", exported));
	EXPECT_EQ(Image_PSNR(exported, source, IMAGE_CHANNELS_RGBA), (double)IMAGE_PSNR_IDENTICAL);
}

TEST(CompileTexture, MaxresHalvesA2048TextureTo1024)
{
	const CImageRGBA8 source = MakePhotoLikeImage(2048, 2048, 11);
	CContentTree tree;
	ASSERT_TRUE(Image_WritePNGFile(tree.NewContent("materials/big_color.png").c_str(), source));
	tree.Write("materials/big_color.txt", Settings(1024));
	const CommandResult_t result = RunCompiler(tree.Content("materials/big_color.png"));
	ASSERT_EQ(result.exitCode, 0) << result.output;
	rapidjson::Document info;
	ASSERT_TRUE(CompiledInfo(tree.Game("materials/big_color_png.ztex_c"), info));
	EXPECT_EQ(info["width"].GetInt(), 1024);
	EXPECT_EQ(info["height"].GetInt(), 1024);
	EXPECT_EQ(info["mips"].GetInt(), 11);
	CImageRGBA8 exported;
	ASSERT_TRUE(Export(tree.Game("materials/big_color_png.ztex_c"), tree.Root() + "/big.png", exported));
	EXPECT_GE(Image_PSNR(exported, MipOf(source, 1, MIP_FILTER_SRGB)), 32.0);

	// A limit the texture already keeps changes nothing; 0 is no limit.
	tree.Write("materials/big_color.txt", Settings(4096));
	ASSERT_EQ(RunCompiler(tree.Content("materials/big_color.png")).exitCode, 0);
	ASSERT_TRUE(CompiledInfo(tree.Game("materials/big_color_png.ztex_c"), info));
	EXPECT_EQ(info["width"].GetInt(), 2048);
	// A settings file that does not parse is an error that names it.
	tree.Write("materials/big_color.txt", "\"settings\"\n{\n\t\"maxres\" \"lots\"\n}\n");
	const CommandResult_t bad = RunCompiler(tree.Content("materials/big_color.png"));
	EXPECT_EQ(bad.exitCode, 1);
	EXPECT_NE(bad.output.find("error: materials/big_color.txt"), std::string::npos) << bad.output;
}

TEST(CompileTexture, NormalsAndMasksAreDataColourIsSRGB)
{
	const CImageRGBA8 source = MakePhotoLikeImage(64, 64, 9);
	CContentTree tree;
	for (const auto &[file, bSRGB] : { std::pair<const char *, bool>{ "materials/x_normal.png", false }, { "materials/x_specmask.png", false },
			 { "materials/x_color.png", true }, { "materials/x.png", true } })
	{
		SCOPED_TRACE(file);
		tree.WriteBytes(file, MakePNG(source, TEST_PNG_RGB8));
		ASSERT_EQ(RunCompiler(tree.Content(file)).exitCode, 0);
		rapidjson::Document info;
		const std::string compiled = tree.Game(ResourceCompiler_CompiledName(file));
		ASSERT_TRUE(CompiledInfo(compiled, info));
		EXPECT_EQ(info["srgb"].GetBool(), bSRGB);
		// Their mips are filtered in their own space.
		CImageRGBA8 exported;
		ASSERT_TRUE(Export(compiled, tree.Root() + "/m.png", exported, 2));
		const CImageRGBA8 own = MipOf(source, 2, bSRGB ? MIP_FILTER_SRGB : MIP_FILTER_DATA);
		const CImageRGBA8 other = MipOf(source, 2, bSRGB ? MIP_FILTER_DATA : MIP_FILTER_SRGB);
		EXPECT_GT(Image_PSNR(exported, own), Image_PSNR(exported, other));
	}
}

TEST(CompileTexture, ARecipeWithYCoCgAndDXT5)
{
	const CImageRGBA8 source = MakePhotoLikeImage(256, 128, 13);
	CContentTree tree;
	ASSERT_TRUE(Image_WritePNGFile(tree.NewContent("canopy/images/loadingscreens/x/loadingscreen.png").c_str(), source));
	tree.Write("canopy/images/loadingscreens/x/loadingscreen.ztex", Recipe("canopy/images/loadingscreens/x/loadingscreen.png", "DXT5", "ConvertToYCoCg", "None"));
	const CommandResult_t result = RunCompiler(tree.Content("canopy/images/loadingscreens/x/loadingscreen.ztex"));
	ASSERT_EQ(result.exitCode, 0) << result.output;
	const std::string compiled = tree.Game("canopy/images/loadingscreens/x/loadingscreen.ztex_c");
	rapidjson::Document info;
	ASSERT_TRUE(CompiledInfo(compiled, info));
	EXPECT_STREQ(info["format"].GetString(), "BC3");
	EXPECT_TRUE(info["ycocg"].GetBool());
	EXPECT_FALSE(info["srgb"].GetBool());
	EXPECT_EQ(info["mips"].GetInt(), 1);
	EXPECT_EQ(info["width"].GetInt(), 256);
	CImageRGBA8 exported;
	ASSERT_TRUE(Export(compiled, tree.Root() + "/screen.png", exported));
	EXPECT_GE(Image_PSNR(exported, source), 34.0);

	// DXT1 with box mips in sRGB; RGBA8888 kept as it is.
	tree.Write("materials/plain.ztex", Recipe("canopy/images/loadingscreens/x/loadingscreen.png", "DXT1", "", "Box", "srgb"));
	ASSERT_EQ(RunCompiler(tree.Content("materials/plain.ztex")).exitCode, 0);
	ASSERT_TRUE(CompiledInfo(tree.Game("materials/plain.ztex_c"), info));
	EXPECT_STREQ(info["format"].GetString(), "BC1");
	EXPECT_EQ(info["mips"].GetInt(), 9);
	EXPECT_TRUE(info["srgb"].GetBool());
	tree.Write("materials/raw.ztex", Recipe("canopy/images/loadingscreens/x/loadingscreen.png", "RGBA8888", "", "None"));
	ASSERT_EQ(RunCompiler(tree.Content("materials/raw.ztex")).exitCode, 0);
	ASSERT_TRUE(Export(tree.Game("materials/raw.ztex_c"), tree.Root() + "/raw.png", exported));
	EXPECT_EQ(Image_PSNR(exported, source, IMAGE_CHANNELS_RGBA), (double)IMAGE_PSNR_IDENTICAL);

	// What a recipe cannot do is an error that says what.
	const std::pair<std::string, const char *> bad[] = {
		{ Recipe("canopy/images/loadingscreens/x/loadingscreen.png", "DXT5", "Sharpen", "None"), "\"Sharpen\" is not supported" },
		{ Recipe("canopy/images/loadingscreens/x/none.png", "DXT5", "", "None"), "canopy/images/loadingscreens/x/none.png does not exist" },
		{ Recipe("canopy/images/loadingscreens/x/loadingscreen.png", "ETC2", "", "None"), "\"ETC2\"" },
		{ Recipe("canopy/images/loadingscreens/x/loadingscreen.png", "DXT1", "ConvertToYCoCg", "None"), "needs the output format" },
		{ Recipe("../../outside.png", "DXT5", "", "None"), "climbs" },
		{ "<!-- dmx encoding keyvalues2_noids 1 format ztex 1 -->\n\"CDmeZtex\"\n{\n\t\"m_outputFormat\" \"string\" \"DXT5\"\n", "materials/bad.ztex" },
	};
	for (const auto &[text, message] : bad)
	{
		SCOPED_TRACE(message);
		tree.Write("materials/bad.ztex", text);
		const CommandResult_t failed = RunCompiler(tree.Content("materials/bad.ztex"));
		EXPECT_EQ(failed.exitCode, 1) << failed.output;
		EXPECT_NE(failed.output.find("error: "), std::string::npos) << failed.output;
		EXPECT_NE(failed.output.find(message), std::string::npos) << failed.output;
		EXPECT_FALSE(Plat_FileExists(tree.Game("materials/bad.ztex_c").c_str()));
	}
}

TEST(CompileTexture, BadSourcesFailWithTheirNameAndLeaveThePreviousTextureWhole)
{
	const CImageRGBA8 source = MakePhotoLikeImage(64, 64, 17);
	const Bytes_t good = MakePNG(source, TEST_PNG_RGB8);
	CContentTree tree;
	tree.WriteBytes("materials/skin.png", good);
	ASSERT_EQ(RunCompiler(tree.Content("materials/skin.png")).exitCode, 0);
	const std::string before = tree.ReadGame("materials/skin_png.ztex_c");
	ASSERT_FALSE(before.empty());

	// A PNG whose header claims 100000 x 100000 pixels, with its checksum right.
	Bytes_t huge(good.begin(), good.begin() + 33);
	for (int i = 0; i < 2; ++i)
	{
		huge[16 + (size_t)i * 4] = 0x00;
		huge[17 + (size_t)i * 4] = 0x01;
		huge[18 + (size_t)i * 4] = 0x86;
		huge[19 + (size_t)i * 4] = 0xA0;
	}
	const uLong crc = crc32(0, huge.data() + 12, 17);
	huge[29] = (uint8)(crc >> 24);
	huge[30] = (uint8)(crc >> 16);
	huge[31] = (uint8)(crc >> 8);
	huge[32] = (uint8)crc;
	huge.insert(huge.end(), good.begin() + 33, good.end());
	Bytes_t noise(4096);
	CTestImageRandom random(99);
	for (uint8 &byte : noise)
		byte = (uint8)random.Next();

	const std::pair<const char *, Bytes_t> cases[] = {
		{ "truncated", Bytes_t(good.begin(), good.begin() + (std::ptrdiff_t)good.size() / 2) },
		{ "noise", noise },
		{ "100000 x 100000", huge },
		{ "missing", Bytes_t() },
	};
	for (const auto &[what, bytes] : cases)
	{
		SCOPED_TRACE(what);
		if (std::string(what) == "missing")
			std::filesystem::remove(tree.Content("materials/skin.png"));
		else
			tree.WriteBytes("materials/skin.png", bytes);
		const CommandResult_t result = RunCompiler(tree.Content("materials/skin.png"));
		EXPECT_EQ(result.exitCode, 1) << result.output;
		EXPECT_NE(result.output.find("error: materials/skin.png"), std::string::npos) << result.output;
		EXPECT_EQ(tree.ReadGame("materials/skin_png.ztex_c"), before);
		// Nothing else is left beside it (no temporary file).
		size_t files = 0;
		for (const auto &entry : std::filesystem::directory_iterator(tree.Game("materials")))
			files += entry.is_regular_file() ? 1 : 0;
		EXPECT_EQ(files, 1u);
	}
}
