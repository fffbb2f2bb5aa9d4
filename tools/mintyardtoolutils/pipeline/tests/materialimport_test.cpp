// Materials through the run with the real compiler: the size test of each texture, the keys of the
// material file and their order, the settings beside each texture, a template material under
// the keys, and a material with no texture at all.
#include <gtest/gtest.h>

#include "compiledassets/compiledassets.h"
#include "core/keyvalues.h"
#include "importtestgame.h"
#include "mintyardtoolutils/pipeline/materialimport.h"
#include "modelart.h"
#include "testsupport/test_images.h"

namespace
{
std::unique_ptr<CMintyardTemplate> MaterialTemplate(int nWidth, int nHeight, const char *pszTemplateMaterial = "")
{
	auto t = std::make_unique<CMintyardTemplate>();
	t->Init("material_test", "#MaterialTest", "", false);
	t->directory = "materials";
	CMintyardTemplate_ZarnModel &model = t->models.emplace_back();
	model.Init("model", "#Model", "", false);
	CMintyardTemplate_ZarnMesh &lod = model.lod_list.emplace_back();
	lod.Init("lod0", "#LOD0", "", false);
	lod.max_polygons = 10000;
	CMintyardTemplate_ZarnMaterial &material = model.material_list.emplace_back();
	material.Init("material_body", "#Body", "", true);
	material.max_tex_width = nWidth;
	material.max_tex_height = nHeight;
	material.template_zmat = pszTemplateMaterial;
	material.material_name_suffix = "_body";
	return t;
}

std::string KeyOrder(KeyValues &keys)
{
	std::string order;
	for (KeyValues *k = keys.GetFirstSubKey(); k; k = k->GetNextKey())
		order += std::string(order.empty() ? "" : ",") + k->GetName();
	return order;
}
} // namespace

TEST(MaterialImport, TheSizeTestKeepsProportionsAndAtLeastTheTemplatesSize)
{
	CImportTestGame game;
	struct Case_t
	{
		int w, h, W, H;
		bool bPasses;
	};
	const Case_t cases[] = {
		{ 2048, 2048, 1024, 1024, true },  // larger, same proportions
		{ 1024, 1024, 1024, 1024, true },
		{ 512, 512, 1024, 1024, false },   // smaller
		{ 1024, 512, 1024, 1024, false },  // another shape
		{ 2048, 1024, 1024, 1024, false }, // the quotients differ
		{ 1000, 1000, 500, 500, false },   // no power of two
		{ 512, 512, 0, 512, false },	   // a template without a width warns on everything
	};
	CMintyardImportSession &session = game.NewSession(MaterialTemplate(1024, 1024));
	for (const Case_t &c : cases)
	{
		const std::string name = "tex_" + std::to_string(c.w) + "x" + std::to_string(c.h) + ".png";
		game.WriteContent("materials/" + name, testimages::MakePng(c.w, c.h));
		CMintyardTemplate_ZarnMaterial limits;
		limits.max_tex_width = c.W;
		limits.max_tex_height = c.H;
		ImportMessageList list;
		CheckTextureSize(&session, &limits, ("materials/" + name).c_str(), list);
		EXPECT_EQ(list.Count(), c.bPasses ? 0 : 1) << c.w << "x" << c.h << " against " << c.W << "x" << c.H;
		if (!c.bPasses && list.Count() == 1)
		{
			EXPECT_EQ(list[0].Message(), "#ZARN_Mintyard_Error_ImageSize");
			EXPECT_FALSE(list[0].isError);
			EXPECT_EQ(list[0].Arg(1), game.Content("materials/" + name));
			EXPECT_EQ(list[0].Arg(2), std::to_string(c.w) + "x" + std::to_string(c.h));
			EXPECT_EQ(list[0].Arg(3), std::to_string(c.W) + "x" + std::to_string(c.H));
		}
	}
	// A file that is no image is an error.
	game.WriteContent("materials/broken.png", "not a png");
	CMintyardTemplate_ZarnMaterial limits;
	ImportMessageList list;
	CheckTextureSize(&session, &limits, "materials/broken.png", list);
	ASSERT_EQ(list.Count(), 1);
	EXPECT_EQ(list[0].Message(), "#ZARN_Mintyard_Error_FailedToLoadTexture");
	EXPECT_TRUE(list[0].isError);
}

TEST(MaterialImport, TheMaterialFileItsSettingsAndItsCompile)
{
	CImportTestGame game;
	// The template material sets keys of its own, and an alpha test that the import overrides.
	game.WriteContent("materials/models/template.zmat", "\"Layer0\"\n{\n\t\"Shader\" \"generic.zfx\"\n\t\"F_ALPHA_TEST\" \"1\"\n\t\"g_flCustom\" \"0.5\"\n}\n");
	CMintyardImportSession &session = game.NewSession(MaterialTemplate(512, 1024, "materials/models/template.zmat"), "robe");
	CMintyardCfg_ZarnModel *pModel = session.m_Models[0];
	pModel->m_Lods[0]->SetValue(game.WriteArt("robe.fbx", modelart::MeshFbx(testmeshes::Cube())).c_str());
	CMintyardCfg_ZarnMaterial *pMaterial = pModel->m_Materials[0];
	pMaterial->m_pTextures[0]->SetValue(game.WriteArt("robe_color.PNG", testimages::MakePng(512, 1024, 200, 40, 40)).c_str());
	pMaterial->m_pTextures[2]->SetValue(game.WriteArt("robe_normal.png", testimages::MakePng(512, 1024, 128, 128, 255)).c_str());
	ImportMessageList list = game.Run();
	ASSERT_EQ(list.GetErrorCount(), 0) << game.m_Log.m_Text;

	const std::string stem = "materials/models/items/materials/robe/robe_body";
	KeyValues layer("Layer0");
	ASSERT_TRUE(layer.LoadFromFile(nullptr, game.Content(stem + ".zmat").c_str()));
	EXPECT_STREQ(layer.GetName(), "Layer0");
	EXPECT_EQ(KeyOrder(layer), "Shader,F_ALPHA_TEST,g_flCustom,TextureColor,TextureTranslucency,TextureNormal,F_MASKS_1,"
							   "TextureDetailMask,TextureDiffuseWarpMask,TextureMetalnessMask,TextureSelfIllumMask,F_MASKS_2,"
							   "TextureRimMask,TextureSpecularMask,TextureTintByBaseMask,TextureSpecularExponent");
	EXPECT_STREQ(layer.GetString("Shader"), "hero.zfx");
	EXPECT_EQ(layer.GetInt("F_ALPHA_TEST"), 0); // no translucency texture, whatever the template said
	EXPECT_STREQ(layer.GetString("g_flCustom"), "0.5");
	EXPECT_EQ(std::string(layer.GetString("TextureColor")), stem + "_color.png");
	EXPECT_STREQ(layer.GetString("TextureTranslucency"), "");
	EXPECT_STREQ(layer.GetString("TextureDetailMask"), "[0.000000 0.000000 0.000000 0.000000]");
	EXPECT_STREQ(layer.GetString("TextureSpecularMask"), "[1.000000 1.000000 1.000000 0.000000]");
	// The settings beside each texture: the larger of the template's sides.
	KeyValues settings("settings");
	ASSERT_TRUE(settings.LoadFromFile(nullptr, game.Content(stem + "_color.txt").c_str()));
	EXPECT_EQ(settings.GetInt("maxres"), 1024);
	EXPECT_TRUE(std::filesystem::exists(game.Content(stem + "_normal.txt")));
	EXPECT_FALSE(std::filesystem::exists(game.Content(stem + "_trans.txt")));
	// Compiled: the material with its textures.
	CCompiledMaterial compiled;
	CUtlString error;
	ASSERT_TRUE(LoadCompiledMaterial(game.Game(stem + ".zmat_c").c_str(), compiled, &error)) << error;
	EXPECT_NE(compiled.FindTexture("TextureColor"), nullptr);
	EXPECT_TRUE(std::filesystem::exists(game.Game(stem + "_color_png.ztex_c")));
	EXPECT_NE(game.m_Log.m_Text.find("Compiling material: " + stem + ".zmat"), std::string::npos);
}

TEST(MaterialImport, AMaterialWithoutTexturesIsStillWrittenAndCompiled)
{
	CImportTestGame game;
	CMintyardImportSession &session = game.NewSession(MaterialTemplate(512, 512), "bare");
	session.m_Models[0]->m_Lods[0]->SetValue(game.WriteArt("bare.fbx", modelart::MeshFbx(testmeshes::Cube())).c_str());
	// In a model, a material element with no texture is passed over: no material group, no file.
	ImportMessageList list = game.Run();
	ASSERT_EQ(list.GetErrorCount(), 0) << game.m_Log.m_Text;
	EXPECT_FALSE(std::filesystem::exists(game.Content("materials/models/items/materials/bare/bare_body.zmat")));

	// Imported on its own, it is still written, with every texture at its constant, and compiled.
	CMintyardImportSession &again = game.NewSession(MaterialTemplate(512, 512), "plain");
	again.m_Models[0]->m_Lods[0]->SetValue(game.WriteArt("plain.fbx", modelart::MeshFbx(testmeshes::Cube())).c_str());
	ImportMessageList direct;
	ASSERT_TRUE(MaterialImport(again.m_Models[0]->m_Materials[0], "materials/models/plain.zmat", direct)) << game.m_Log.m_Text;
	KeyValues layer("Layer0");
	ASSERT_TRUE(layer.LoadFromFile(nullptr, game.Content("materials/models/plain.zmat").c_str()));
	EXPECT_STREQ(layer.GetString("TextureColor"), "");
	EXPECT_STREQ(layer.GetString("TextureRimMask"), "[1.000000 1.000000 1.000000 0.000000]");
	EXPECT_TRUE(std::filesystem::exists(game.Game("materials/models/plain.zmat_c")));
	for (const auto &entry : std::filesystem::directory_iterator(game.Content("materials/models")))
		EXPECT_NE(entry.path().extension(), ".txt") << entry.path();

	// A template material that cannot be read ends the material.
	CMintyardImportSession &broken = game.NewSession(MaterialTemplate(512, 512, "materials/missing_template.zmat"), "broken");
	broken.m_Models[0]->m_Lods[0]->SetValue(game.WriteArt("broken.fbx", modelart::MeshFbx(testmeshes::Cube())).c_str());
	broken.m_Models[0]->m_Materials[0]->m_pTextures[0]->SetValue(game.WriteArt("broken_color.png", testimages::MakePng(512, 512)).c_str());
	list = game.Run();
	ASSERT_NE(list.Find("#ZARN_Mintyard_Err_FailedToLoadMaterialTemplate", "materials/missing_template.zmat"), nullptr);
	EXPECT_FALSE(std::filesystem::exists(game.Game("models/items/materials/broken/broken.zmdl_c")));
}
