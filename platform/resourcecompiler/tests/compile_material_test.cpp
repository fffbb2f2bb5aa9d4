// Materials through the command: constants and textures, texture references checked, each
// texture compiled once, errors that name the file and the line.
#include "imaging/imagewrite.h"
#include "resourcecompiler/tests/compiler_test_support.h"
#include "imagefiles.h"
#include "testimages.h"

namespace
{
// The material that the import writes for a colour, a translucency and a normal map.
const char s_Material[] = "\"Layer0\"\n"
						  "{\n"
						  "\t\"Shader\"\t\"hero.zfx\"\n"
						  "\t\"TextureColor\"\t\"materials/models/items/x/hat_color.png\"\n"
						  "\t\"F_ALPHA_TEST\"\t\"1\"\n"
						  "\t\"TextureTranslucency\"\t\"materials/models/items/x/hat_trans.png\"\n"
						  "\t\"TextureNormal\"\t\"materials/models/items/x/hat_normal.tga\"\n"
						  "\t\"F_MASKS_1\"\t\"1\"\n"
						  "\t\"TextureDetailMask\"\t\"[0.000000 0.000000 0.000000 0.000000]\"\n"
						  "\t\"TextureDiffuseWarpMask\"\t\"[0.000000 0.000000 0.000000 0.000000]\"\n"
						  "\t\"TextureMetalnessMask\"\t\"[0.000000 0.000000 0.000000 0.000000]\"\n"
						  "\t\"TextureSelfIllumMask\"\t\"[0.000000 0.000000 0.000000 0.000000]\"\n"
						  "\t\"F_MASKS_2\"\t\"1\"\n"
						  "\t\"TextureRimMask\"\t\"[1.000000 1.000000 1.000000 0.000000]\"\n"
						  "\t\"TextureSpecularMask\"\t\"materials/models/items/x/hat_color.png\"\n"
						  "\t\"TextureTintByBaseMask\"\t\"[1.000000 1.000000 1.000000 0.000000]\"\n"
						  "\t\"TextureSpecularExponent\"\t\"[1.000000 1.000000 1.000000 0.000000]\"\n"
						  "\t\"g_flSpecularScale\"\t\"2.5\"\n"
						  "}\n";

void WriteTextures(const CContentTree &tree)
{
	tree.WriteBytes("materials/models/items/x/hat_color.png", MakePNG(MakePhotoLikeImage(64, 64, 1), TEST_PNG_RGB8));
	tree.WriteBytes("materials/models/items/x/hat_trans.png", MakePNG(MakePhotoLikeImageWithAlpha(32, 32, 2), TEST_PNG_RGBA8));
	tree.WriteBytes("materials/models/items/x/hat_normal.tga", MakeTGA(MakePhotoLikeImage(64, 64, 3), TEST_TGA_RGB24));
}
} // namespace

TEST(CompileMaterial, ConstantsAndTexturesComeOutByKey)
{
	CContentTree tree;
	WriteTextures(tree);
	tree.Write("materials/models/items/x/hat.zmat", s_Material);
	const CommandResult_t result = RunCompiler(tree.Content("materials/models/items/x/hat.zmat"));
	ASSERT_EQ(result.exitCode, 0) << result.output;
	// The colour map serves two keys and is compiled once.
	size_t compiles = 0;
	for (size_t at = result.output.find("Compiling texture materials/models/items/x/hat_color.png"); at != std::string::npos;
		 at = result.output.find("Compiling texture materials/models/items/x/hat_color.png", at + 1))
		++compiles;
	EXPECT_EQ(compiles, 1u) << result.output;

	rapidjson::Document info;
	ASSERT_TRUE(CompiledInfo(tree.Game("materials/models/items/x/hat.zmat_c"), info));
	EXPECT_STREQ(info["type"].GetString(), "material");
	EXPECT_STREQ(info["shader"].GetString(), "hero.zfx");
	EXPECT_EQ(Strings(info["flags"]), std::vector<std::string>{ "alpha_test" });
	const rapidjson::Value &textures = info["textures"];
	EXPECT_STREQ(textures["TextureColor"].GetString(), "materials/models/items/x/hat_color_png.ztex_c");
	EXPECT_STREQ(textures["TextureSpecularMask"].GetString(), "materials/models/items/x/hat_color_png.ztex_c");
	EXPECT_STREQ(textures["TextureTranslucency"].GetString(), "materials/models/items/x/hat_trans_png.ztex_c");
	EXPECT_STREQ(textures["TextureNormal"].GetString(), "materials/models/items/x/hat_normal_tga.ztex_c");
	EXPECT_STREQ(textures["TextureDetailMask"].GetString(), "[0.000000 0.000000 0.000000 0.000000]");
	EXPECT_STREQ(textures["TextureRimMask"].GetString(), "[1.000000 1.000000 1.000000 0.000000]");
	EXPECT_EQ(textures.MemberCount(), 11u);
	EXPECT_EQ(info["constants"]["F_ALPHA_TEST"].GetInt(), 1);
	EXPECT_EQ(info["constants"]["F_MASKS_2"].GetInt(), 1);
	EXPECT_EQ(info["constants"]["g_flSpecularScale"][0].GetDouble(), 2.5);

	// Each texture's compiled file, of the kind its name says.
	rapidjson::Document texture;
	ASSERT_TRUE(CompiledInfo(tree.Game("materials/models/items/x/hat_normal_tga.ztex_c"), texture));
	EXPECT_FALSE(texture["srgb"].GetBool());
	EXPECT_STREQ(texture["format"].GetString(), "BC1");
	ASSERT_TRUE(CompiledInfo(tree.Game("materials/models/items/x/hat_trans_png.ztex_c"), texture));
	EXPECT_STREQ(texture["format"].GetString(), "BC3");
	ASSERT_TRUE(CompiledInfo(tree.Game("materials/models/items/x/hat_color_png.ztex_c"), texture));
	EXPECT_TRUE(texture["srgb"].GetBool());
}

TEST(CompileMaterial, TheTexturesFollowTheSettingsBesideThem)
{
	CContentTree tree;
	tree.WriteBytes("materials/big_color.png", MakePNG(MakePhotoLikeImage(256, 256, 4), TEST_PNG_RGB8));
	tree.Write("materials/big_color.txt", "\"settings\"\n{\n\t\"maxres\"\t\"64\"\n}\n");
	tree.Write("materials/big.zmat", MaterialDocument("materials/big_color.png"));
	ASSERT_EQ(RunCompiler(tree.Content("materials/big.zmat")).exitCode, 0);
	rapidjson::Document texture;
	ASSERT_TRUE(CompiledInfo(tree.Game("materials/big_color_png.ztex_c"), texture));
	EXPECT_EQ(texture["width"].GetInt(), 64);
	EXPECT_EQ(texture["mips"].GetInt(), 7);
}

TEST(CompileMaterial, AMissingTextureIsAnErrorThatNamesItAndItsLine)
{
	CContentTree tree;
	WriteTextures(tree);
	std::string text = s_Material;
	text.replace(text.find("hat_normal.tga"), 14, "hat_nrm.tga");
	tree.Write("materials/models/items/x/hat.zmat", text);
	const CommandResult_t result = RunCompiler(tree.Content("materials/models/items/x/hat.zmat"));
	EXPECT_EQ(result.exitCode, 1) << result.output;
	EXPECT_NE(result.output.find("error: materials/models/items/x/hat.zmat(7): TextureNormal: the texture file materials/models/items/x/hat_nrm.tga "
								 "does not exist"),
		std::string::npos)
		<< result.output;
	EXPECT_FALSE(Plat_FileExists(tree.Game("materials/models/items/x/hat.zmat_c").c_str()));
}

TEST(CompileMaterial, WhatAMaterialCannotHoldIsAnError)
{
	const std::pair<std::string, const char *> cases[] = {
		{ "\"Layer0\"\n{\n\t\"TextureColor\"\t\"[1 1 1 1]\"\n}\n", "names no shader" },
		{ "\"Layer0\"\n{\n\t\"Shader\"\t\"hero.vmt\"\n}\n", "no shader file" },
		{ "\"Layer1\"\n{\n\t\"Shader\"\t\"hero.zfx\"\n}\n", "not \"Layer0\"" },
		{ "\"Layer0\"\n{\n\t\"Shader\"\t\"hero.zfx\"\n\t\"TextureRimMask\"\t\"[1 2]\"\n}\n", "x.zmat(4): \"TextureRimMask\" has the value \"[1 2]\"" },
		{ "\"Layer0\"\n{\n\t\"Shader\"\t\"hero.zfx\"\n\t\"F_ALPHA_TEST\"\t\"yes\"\n}\n", "x.zmat(4): the switch \"F_ALPHA_TEST\"" },
		{ "\"Layer0\"\n{\n\t\"Shader\"\t\"hero.zfx\"\n\t\"TextureColor\"\t\"../../../etc/passwd.png\"\n}\n", "climbs" },
		{ "\"Layer0\"\n{\n\t\"Shader\"\t\"hero.zfx\"\n\t\"TextureColor\"\t\"materials/x.zmat\"\n}\n", "no texture source" },
		{ "\"Layer0\"\n{\n\t\"Shader\"\t\"hero.zfx\"\n", "x.zmat(" },
	};
	for (const auto &[text, message] : cases)
	{
		SCOPED_TRACE(message);
		CContentTree tree;
		tree.Write("materials/x.zmat", text);
		const CommandResult_t result = RunCompiler(tree.Content("materials/x.zmat"));
		EXPECT_EQ(result.exitCode, 1) << result.output;
		EXPECT_NE(result.output.find("error: "), std::string::npos) << result.output;
		EXPECT_NE(result.output.find(message), std::string::npos) << result.output;
		EXPECT_FALSE(Plat_FileExists(tree.Game("materials/x.zmat_c").c_str()));
	}
}
