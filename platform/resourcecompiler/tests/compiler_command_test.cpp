// The command as a user and ResourceCompilerSystem001 run it: usage and exit statuses, where
// sources and outputs lie, info and export of damaged files, and a compile that hangs past its
// time limit in the child.
#include <chrono>
#include <cstdlib>
#include <filesystem>

#include <unistd.h>

#include "imaging/imagewrite.h"
#include "resourcecompiler/materialsource.h"
#include "resourcecompiler/resourcecompilersystem.h"
#include "resourcecompiler/texturerecipe.h"
#include "resourcecompiler/tests/compiler_test_support.h"
#include "imagefiles.h"
#include "testimages.h"

TEST(ResourceCompilerCommand, UsageHelpAndExitStatuses)
{
	CommandResult_t result = RunCompiler("--help");
	EXPECT_EQ(result.exitCode, 0);
	EXPECT_NE(result.output.find("usage: resourcecompiler"), std::string::npos);
	EXPECT_EQ(RunCompiler("").exitCode, 2);
	EXPECT_EQ(RunCompiler("--frobnicate x.zmat").exitCode, 2);
	EXPECT_EQ(RunCompiler("-game").exitCode, 2);
	result = RunCompiler("-game /tmp/not_a_game_dir x.zmat");
	EXPECT_EQ(result.exitCode, 2);
	EXPECT_NE(result.output.find("<root>/game/<mod>"), std::string::npos) << result.output;
	EXPECT_EQ(RunCompiler("--threads 0 x.zmat").exitCode, 2);
	EXPECT_EQ(RunCompiler("info").exitCode, 2);
	EXPECT_EQ(RunCompiler("info a b").exitCode, 2);
	EXPECT_EQ(RunCompiler("info --help").exitCode, 0);
	EXPECT_EQ(RunCompiler("export a.ztex_c").exitCode, 2);
	EXPECT_EQ(RunCompiler("export a b --mip x").exitCode, 2);
	EXPECT_EQ(RunCompiler("export --help").exitCode, 0);
}

TEST(ResourceCompilerCommand, SourcesAndOutputsLieWhereTheRootsSay)
{
	CContentTree tree;
	tree.Write("materials/plain.zmat", MaterialDocument());
	// From the source's own path, absolute or relative to the working folder.
	CommandResult_t result = RunCompiler(tree.Content("materials/plain.zmat"));
	ASSERT_EQ(result.exitCode, 0) << result.output;
	EXPECT_TRUE(Plat_FileExists(tree.Game("materials/plain.zmat_c").c_str()));
	std::filesystem::remove(tree.Game("materials/plain.zmat_c"));
	result = RunCommand("cd " + tree.Content("materials") + " && " + CompilerPath() + " plain.zmat");
	ASSERT_EQ(result.exitCode, 0) << result.output;
	EXPECT_TRUE(Plat_FileExists(tree.Game("materials/plain.zmat_c").c_str()));

	// With -game the content root is <root>/content/<mod>, whatever the source's path says.
	CTempDirectory other;
	std::filesystem::create_directories(other.Path("game/mod"));
	const std::string source = other.Write("content/mod/materials/m.zmat", MaterialDocument());
	result = RunCompiler("-game " + other.Path("game/mod") + " " + source);
	ASSERT_EQ(result.exitCode, 0) << result.output;
	EXPECT_TRUE(Plat_FileExists(other.Path("game/mod/materials/m.zmat_c").c_str()));
	// A source outside that content root, or in no content tree, is refused.
	result = RunCompiler("-game " + other.Path("game/mod") + " " + tree.Content("materials/plain.zmat"));
	EXPECT_EQ(result.exitCode, 1);
	EXPECT_NE(result.output.find("lies outside the content root"), std::string::npos) << result.output;
	const std::string loose = other.Write("loose/m.zmat", MaterialDocument());
	result = RunCompiler(loose);
	EXPECT_EQ(result.exitCode, 1);
	EXPECT_NE(result.output.find("lies in no content tree"), std::string::npos) << result.output;

	// Unknown kinds and missing files fail; the others of the run still compile.
	tree.Write("materials/notes.txt", "hello");
	tree.Write("materials/second.zmat", MaterialDocument("[0 0 0 1]"));
	result = RunCompiler(tree.Content("materials/notes.txt") + " " + tree.Content("materials/gone.zmat") + " " + tree.Content("materials/second.zmat"));
	EXPECT_EQ(result.exitCode, 1);
	EXPECT_NE(result.output.find("not a source the compiler knows"), std::string::npos) << result.output;
	EXPECT_NE(result.output.find("error: materials/gone.zmat: the file does not exist"), std::string::npos) << result.output;
	EXPECT_TRUE(Plat_FileExists(tree.Game("materials/second.zmat_c").c_str()));
	EXPECT_NE(result.output.find("1 of 3 compiled"), std::string::npos) << result.output;
}

TEST(ResourceCompilerCommand, InfoAndExportRefuseDamagedFiles)
{
	CContentTree tree;
	tree.WriteBytes("materials/t.png", MakePNG(MakePhotoLikeImage(32, 32, 1), TEST_PNG_RGB8));
	ASSERT_EQ(RunCompiler(tree.Content("materials/t.png")).exitCode, 0);
	const std::string compiled = tree.Game("materials/t_png.ztex_c");
	CommandResult_t result = RunCompiler("info " + compiled);
	EXPECT_EQ(result.exitCode, 0);
	EXPECT_NE(result.output.find("texture: 32x32 BC1, 6 mips, sRGB"), std::string::npos) << result.output;
	result = RunCompiler("export " + compiled + " " + tree.Root() + "/x.png --mip 6");
	EXPECT_EQ(result.exitCode, 1);
	EXPECT_NE(result.output.find("there is no mip 6"), std::string::npos) << result.output;

	std::string bytes = tree.ReadGame("materials/t_png.ztex_c");
	bytes[bytes.size() / 2] ^= 0x55;
	const std::string damaged = tree.Root() + "/damaged.ztex_c";
	ASSERT_TRUE(Plat_WriteFileAtomic(damaged.c_str(), bytes.data(), bytes.size()));
	result = RunCompiler("info --json " + damaged);
	EXPECT_EQ(result.exitCode, 1);
	EXPECT_NE(result.output.find("checksum"), std::string::npos) << result.output;
	EXPECT_EQ(RunCompiler("export " + damaged + " " + tree.Root() + "/y.png").exitCode, 1);
	EXPECT_EQ(RunCompiler("info " + tree.Root() + "/nothing.zmdl_c").exitCode, 1);
}

namespace
{
class CLines : public ILoggingListener
{
public:
	void Log(const LoggingContext_t &, const char *message) override { m_Text += message; }
	std::string m_Text;
};

bool CompileThroughTheSystem(const std::string &source, CLines &lines, int timeLimit = 0)
{
	setenv("MINTYARD_RESOURCECOMPILER", CompilerPath().c_str(), 1);
	ResourceCompileParams_t params;
	params.m_pListener = &lines;
	params.m_pszName = "test item";
	params.m_nTimeLimitSeconds = timeLimit;
	const bool bResult = ResourceCompilerSystem()->CompileResource(source.c_str(), params);
	unsetenv("MINTYARD_RESOURCECOMPILER");
	return bResult;
}
} // namespace

TEST(ResourceCompilerCommand, TheSystemRunsTheCommandAndReportsItsLines)
{
	CContentTree tree;
	tree.WriteBytes("materials/t_color.png", MakePNG(MakePhotoLikeImage(32, 32, 1), TEST_PNG_RGB8));
	tree.Write("materials/t.zmat", MaterialDocument("materials/t_color.png"));
	CLines lines;
	EXPECT_TRUE(CompileThroughTheSystem(tree.Content("materials/t.zmat"), lines)) << lines.m_Text;
	EXPECT_NE(lines.m_Text.find("Compiling texture materials/t_color.png"), std::string::npos) << lines.m_Text;
	EXPECT_TRUE(Plat_FileExists(tree.Game("materials/t.zmat_c").c_str()));

	tree.Write("materials/t.zmat", MaterialDocument("materials/gone.png"));
	CLines failed;
	EXPECT_FALSE(CompileThroughTheSystem(tree.Content("materials/t.zmat"), failed));
	EXPECT_NE(failed.m_Text.find("error: materials/t.zmat(4): TextureColor: the texture file materials/gone.png does not exist"), std::string::npos)
		<< failed.m_Text;
}

TEST(ResourceCompilerCommand, ACompilePastItsTimeLimitIsEndedAndThePreviousOutputStays)
{
	CContentTree tree;
	tree.Write("materials/huge.zmat", MaterialDocument());
	CLines first;
	ASSERT_TRUE(CompileThroughTheSystem(tree.Content("materials/huge.zmat"), first)) << first.m_Text;
	const std::string before = tree.ReadGame("materials/huge.zmat_c");
	ASSERT_FALSE(before.empty());

	// A big source: 32 textures of 8192 x 4096 (one uncompressed file under 32 names), many
	// seconds of work even on many cores.
	CImageRGBA8 image;
	ASSERT_TRUE(image.Init(8192, 4096));
	for (size_t p = 0; p < image.PixelCount(); ++p)
	{
		uint8 *pixel = image.Pixels() + p * 4;
		pixel[0] = (uint8)(p * 7);
		pixel[1] = (uint8)(p >> 5);
		pixel[2] = (uint8)(p >> 13);
		pixel[3] = 255;
	}
	const Bytes_t bmp = MakeBMP(image, 24);
	image.Clear();
	tree.WriteBytes("materials/huge_0.bmp", bmp);
	std::string keys;
	for (int i = 0; i < 32; ++i)
	{
		const std::string name = "materials/huge_" + std::to_string(i) + ".bmp";
		if (i)
			std::filesystem::create_hard_link(tree.Content("materials/huge_0.bmp"), tree.Content(name));
		keys += "\t\"TextureLayer" + std::to_string(i) + "\"\t\"" + name + "\"\n";
	}
	tree.Write("materials/huge.zmat", "\"Layer0\"\n{\n\t\"Shader\"\t\"hero.zfx\"\n" + keys + "}\n");

	CLines lines;
	const auto start = std::chrono::steady_clock::now();
	EXPECT_FALSE(CompileThroughTheSystem(tree.Content("materials/huge.zmat"), lines, 1));
	EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
	EXPECT_NE(lines.m_Text.find("did not finish within 1 seconds"), std::string::npos) << lines.m_Text;
	EXPECT_EQ(tree.ReadGame("materials/huge.zmat_c"), before);
}

// ---------------------------------------------------------------------------------------------
// The library's parts in-process

TEST(ResourceCompilerNames, CompiledNamesAndRoots)
{
	EXPECT_EQ(ResourceCompiler_CompiledName("models/x.zmdl"), "models/x.zmdl_c");
	EXPECT_EQ(ResourceCompiler_CompiledName("materials/x.zmat"), "materials/x.zmat_c");
	EXPECT_EQ(ResourceCompiler_CompiledName("materials/x.png"), "materials/x_png.ztex_c");
	EXPECT_EQ(ResourceCompiler_CompiledName("materials/x.TGA"), "materials/x_tga.ztex_c");
	EXPECT_EQ(ResourceCompiler_CompiledName("canopy/a/loadingscreen.ztex"), "canopy/a/loadingscreen.ztex_c");
	EXPECT_EQ(ResourceCompiler_CompiledName("particles/models/x.dmx"), "particles/models/x.zsnap");
	EXPECT_EQ(ResourceCompiler_CompiledName("notes.txt"), "");

	CompileRoots_t roots;
	ASSERT_TRUE(ResourceCompiler_RootsFromSource("/r/content/zarn/models/x.zmdl", roots));
	EXPECT_EQ(roots.m_Content, "/r/content/zarn");
	EXPECT_EQ(roots.m_Game, "/r/game/zarn");
	CUtlString relative;
	EXPECT_TRUE(roots.ContentRelative("/r/content/zarn/models/./x.zmdl", relative));
	EXPECT_EQ(relative, "models/x.zmdl");
	EXPECT_FALSE(roots.ContentRelative("/r/content/zarnish/x.zmdl", relative));
	EXPECT_FALSE(ResourceCompiler_RootsFromSource("/r/elsewhere/x.zmdl", roots));
	CUtlString error;
	ASSERT_TRUE(ResourceCompiler_RootsFromGameDirectory("/r/game/zarn/", roots, error)) << error;
	EXPECT_EQ(roots.m_Content, "/r/content/zarn");
	EXPECT_FALSE(ResourceCompiler_RootsFromGameDirectory("/r/games/zarn", roots, error));
}

TEST(MaterialSource, ConstantsFlagsTexturesAndLines)
{
	MaterialSource_t material;
	ASSERT_TRUE(ReadMaterialSource("// a comment\n\"Layer0\"\n{\n\t\"shader\" \"Hero.zfx\"\n\tF_TRANSLUCENT 1\n\t\"TextureColor\" \"a/b.png\"\n"
								   "\t\"TextureMask\" \"[0.5 0.25 1]\"\n\t\"g_vTint\" \"[1, 2, 3, 4]\"\n\t\"g_flScale\" \" 2 \"\n}\n",
		"m.zmat", material));
	EXPECT_EQ(material.m_Shader, "Hero.zfx");
	EXPECT_EQ(material.m_nFlags, (uint32)COMPILED_MATERIAL_FLAG_TRANSLUCENT);
	ASSERT_EQ(material.m_Textures.size(), 1u);
	EXPECT_EQ(material.m_Textures[0].m_nLine, 6);
	ASSERT_EQ(material.m_Constants.size(), 4u);
	EXPECT_EQ(material.m_Constants[1].m_Key, "TextureMask");
	EXPECT_EQ(material.m_Constants[1].m_flValues[3], 1.0f);
	EXPECT_EQ(material.m_Constants[2].m_flValues[3], 4.0f);
	EXPECT_EQ(material.m_Constants[3].m_flValues[0], 2.0f);

	// A repeated key: the last value holds, with a warning.
	ASSERT_TRUE(ReadMaterialSource("Layer0 { Shader hero.zfx TextureColor a.png TextureColor \"[1 1 1 1]\" }", "m.zmat", material));
	EXPECT_TRUE(material.m_Textures.empty());
	ASSERT_EQ(material.m_Constants.size(), 1u);
	EXPECT_EQ(material.m_Messages.size(), 1u);

	float values[4];
	EXPECT_TRUE(Material_ParseConstant("[1]", values));
	EXPECT_EQ(values[3], 1.0f);
	EXPECT_FALSE(Material_ParseConstant("[1 2]", values));
	EXPECT_FALSE(Material_ParseConstant("[1 2 3 4 5]", values));
	EXPECT_FALSE(Material_ParseConstant("[1 x 3]", values));
	EXPECT_FALSE(Material_ParseConstant("[1 nan 3]", values));
	EXPECT_FALSE(Material_ParseConstant("1 2 3", values));
	EXPECT_EQ(Material_ConstantText(values), "[1.000000 1.000000 1.000000 1.000000]");
}

TEST(TextureRecipe, PlansChannelsFormatsAndProcessors)
{
	TextureRecipe_t recipe;
	recipe.m_OutputFormat = "DXT5";
	recipe.m_Inputs.push_back(TextureRecipeInput_t{ "color", "a.png", "srgb", "2D", {} });
	recipe.m_Inputs.push_back(TextureRecipeInput_t{ "mask", "b.png", "linear", "2D", { "ConvertToYCoCg" } });
	recipe.m_Channels.push_back(TextureRecipeChannel_t{ { "color" }, "rgb", "rgb", "Box", "srgb" });
	recipe.m_Channels.push_back(TextureRecipeChannel_t{ { "mask" }, "r", "a", "None", "linear" });
	TextureRecipePlan_t plan;
	std::vector<CUtlString> warnings;
	CUtlString error;
	ASSERT_TRUE(PlanTextureRecipe(recipe, plan, warnings, error)) << error;
	EXPECT_EQ(plan.format, TEXTURE_FORMAT_BC3);
	EXPECT_TRUE(plan.bMipmaps);
	EXPECT_TRUE(plan.bSRGB);
	EXPECT_TRUE(plan.bYCoCg);
	EXPECT_EQ(plan.mipSpace, MIP_FILTER_SRGB);
	EXPECT_EQ(plan.inputs, (std::vector<int>{ 0, 1 }));
	ASSERT_EQ(plan.copies.size(), 2u);
	EXPECT_EQ(plan.copies[1].nSrc[0], 0);
	EXPECT_EQ(plan.copies[1].nDst[0], 3);
	EXPECT_EQ(warnings.size(), 2u); // the second channel's mip algorithm and colour space

	recipe.m_Channels[1].m_DstChannels = "g";
	EXPECT_FALSE(PlanTextureRecipe(recipe, plan, warnings, error));
	EXPECT_NE(error.find("writes the channel 'g'"), CUtlString::npos) << error;
	recipe.m_Channels[1].m_DstChannels = "ab";
	EXPECT_FALSE(PlanTextureRecipe(recipe, plan, warnings, error));
	recipe.m_Channels[1].m_DstChannels = "q";
	EXPECT_FALSE(PlanTextureRecipe(recipe, plan, warnings, error));
	recipe.m_Channels[1].m_DstChannels = "a";
	recipe.m_Channels[1].m_Inputs = { "nothing" };
	EXPECT_FALSE(PlanTextureRecipe(recipe, plan, warnings, error));
	EXPECT_NE(error.find("\"nothing\""), CUtlString::npos) << error;
	recipe.m_Channels.clear();
	EXPECT_FALSE(PlanTextureRecipe(recipe, plan, warnings, error));
}
