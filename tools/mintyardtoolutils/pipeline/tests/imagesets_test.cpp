// Image sets without a compile: emoticons into the content tree and the game's list, cursors
// into the game tree with a copy of its cursor list, ability icons by hero, and the item mode.
#include <gtest/gtest.h>

#include "compiledassets/compiledassets.h"
#include "core/keyvalues.h"
#include "imaging/imageload.h"
#include "importtestgame.h"
#include "testsupport/test_images.h"

namespace
{
std::unique_ptr<CMintyardTemplate> EmoticonTemplate(int nEmoticons)
{
	auto t = std::make_unique<CMintyardTemplate>();
	t->Init("emoticon", "#Emoticons", "", false);
	t->directory = "emoticons";
	CMintyardTemplate_ZarnImageSet &set = t->image_sets.emplace_back();
	set.Init("emoticons", "#Emoticons", "", false);
	set.image_set_type = MINTYARD_IMAGE_SET_EMOTICON;
	for (int i = 0; i < nEmoticons; ++i)
	{
		CMintyardTemplate_ZarnImageSet::CEmoticon &emoticon = set.emoticon_image_list.emplace_back();
		emoticon.Init(("emoticon_" + std::to_string(i)).c_str(), "#Emoticon", "", true);
		emoticon.image.optional = true;
		emoticon.keyword.optional = true;
		emoticon.default_frame.optional = true;
	}
	return t;
}

int HighestEmoticonId(const std::string &path)
{
	KeyValues list("emoticons");
	EXPECT_TRUE(list.LoadFromFile(nullptr, path.c_str()));
	int highest = 0;
	for (KeyValues *k = list.GetFirstSubKey(); k; k = k->GetNextKey())
		highest = std::max(highest, atoi(k->GetName()));
	return highest;
}
} // namespace

TEST(ImageSets, EmoticonsTakeConsecutiveIdsAndNamesOnlyInTheItemMode)
{
	CImportTestGame game;
	const int nFirstFree = HighestEmoticonId(game.Game("scripts/emoticons.txt")) + 1;
	CMintyardImportSession &session = game.NewSession(EmoticonTemplate(3), "grins");
	CMintyardCfg_ZarnImageSet *pSet = session.m_ImageSets[0];
	const std::string strip = game.WriteArt("grin.png", testimages::MakePng(96, 32));
	pSet->m_Emoticons[0]->m_pImage->SetValue(strip.c_str());
	pSet->m_Emoticons[0]->m_pKeyword->SetValue(":grin:");
	pSet->m_Emoticons[0]->m_pDefaultFrame->SetValue("2");
	pSet->m_Emoticons[2]->m_pImage->SetValue(strip.c_str());
	pSet->m_Emoticons[2]->m_pKeyword->SetValue(":grin2:");

	// Outside the item mode nothing is placed and no id assigned.
	ImportMessageList list = game.Run(false);
	EXPECT_EQ(list.GetErrorCount(), 0);
	EXPECT_FALSE(std::filesystem::exists(game.Content("canopy/images/emoticons/grins.png")));
	EXPECT_EQ(pSet->m_nEmoticonMinId, -1);

	list = game.Run(true);
	EXPECT_EQ(list.GetErrorCount(), 0);
	EXPECT_TRUE(std::filesystem::exists(game.Content("canopy/images/emoticons/grins.png")));
	EXPECT_TRUE(std::filesystem::exists(game.Content("canopy/images/emoticons/grins_1.png"))); // element 2 is the second with an image
	EXPECT_EQ(pSet->m_nEmoticonMinId, nFirstFree);
	EXPECT_EQ(pSet->m_nEmoticonMaxId, nFirstFree + 1);
	KeyValues emoticons("emoticons");
	ASSERT_TRUE(emoticons.LoadFromFile(nullptr, game.Game("scripts/emoticons.txt").c_str()));
	KeyValues *first = emoticons.FindKey(std::to_string(nFirstFree).c_str());
	ASSERT_NE(first, nullptr);
	EXPECT_STREQ(first->GetString("image_name"), "grins.png");
	EXPECT_EQ(first->GetInt("ms_per_frame"), 100);
	EXPECT_EQ(first->GetInt("default_frame"), 2);
	EXPECT_STREQ(first->GetString("aliases/0"), ":grin:");
	KeyValues *second = emoticons.FindKey(std::to_string(nFirstFree + 1).c_str());
	ASSERT_NE(second, nullptr);
	EXPECT_STREQ(second->GetString("image_name"), "grins_1.png");
	EXPECT_EQ(second->FindKey("default_frame"), nullptr); // none given
	EXPECT_NE(emoticons.FindKey("1"), nullptr);				 // the game's own entries stay
}

TEST(ImageSets, AnEmptyEmoticonListStartsAtOne)
{
	CImportTestGame game;
	game.WriteGame("scripts/emoticons.txt", "\"emoticons\"\n{\n}\n");
	CMintyardImportSession &session = game.NewSession(EmoticonTemplate(1), "none");
	ImportMessageList list = game.Run(true);
	EXPECT_EQ(list.GetErrorCount(), 0);
	EXPECT_EQ(session.m_ImageSets[0]->m_nEmoticonMinId, 1);
	EXPECT_EQ(session.m_ImageSets[0]->m_nEmoticonMaxId, 1);

	// A list that does not load ends the set with its message.
	game.WriteGame("scripts/emoticons.txt", "\"emoticons\"\n{\n");
	list = game.Run(true);
	EXPECT_NE(list.Find("Failed to load emoticons.txt"), nullptr);
}

TEST(ImageSets, CursorsGoToTheGameWithACopyOfItsCursorList)
{
	CImportTestGame game;
	auto t = std::make_unique<CMintyardTemplate>();
	t->Init("cursor_pack", "#Cursors", "", false);
	t->directory = "cursors";
	CMintyardTemplate_ZarnImageSet &set = t->image_sets.emplace_back();
	set.Init("cursors", "#Cursors", "", false);
	set.image_set_type = MINTYARD_IMAGE_SET_CURSOR_PACK;
	for (const char *id : { "default", "busy" })
	{
		CMintyardTemplate_ZarnImageSet::CImage &image = set.image_list.emplace_back();
		image.Init(id, "#Cursor", "", true);
		image.image_type = MINTYARD_IMAGE_TYPE_BMP;
	}
	CMintyardImportSession &session = game.NewSession(std::move(t), "arrows");
	session.m_ImageSets[0]->m_Images[0]->SetValue(game.WriteArt("default.bmp", testimages::MakeBmp(32, 32)).c_str());
	ImportMessageList list = game.Run(false);
	EXPECT_EQ(list.GetErrorCount(), 0);
	const std::string folder = game.Game("resource/cursor/mintyard/arrows/");
	EXPECT_EQ(game.ReadFile(folder + "default.bmp"), testimages::MakeBmp(32, 32));
	EXPECT_FALSE(std::filesystem::exists(folder + "busy.bmp"));
	EXPECT_EQ(game.ReadFile(folder + "cursor.res"), game.ReadFile(game.Game("resource/cursor/cursor.res")));
}

TEST(ImageSets, AbilityIconsGoUnderTheirHero)
{
	CImportTestGame game;
	auto t = std::make_unique<CMintyardTemplate>();
	t->Init("abilityicons.npc_zarn_hero_bramble", "#Icons", "", false);
	t->directory = "icons";
	CMintyardTemplate_ZarnImageSet &set = t->image_sets.emplace_back();
	set.Init("icons", "#Icons", "", false);
	set.image_set_type = MINTYARD_IMAGE_SET_ABILITY_ICONS;
	set.image_list.emplace_back().Init("bramble_thorn_volley", "#Icon", "", false);
	CMintyardImportSession &session = game.NewSession(std::move(t), "thorns");
	session.m_ImageSets[0]->m_Images[0]->SetValue(game.WriteArt("thorn.png", testimages::MakePng(128, 128)).c_str());
	ImportMessageList list = game.Run(true);
	EXPECT_EQ(list.GetErrorCount(), 0);
	const hero_t *pHero = GetHeroTable().FindHero("npc_zarn_hero_bramble");
	ASSERT_NE(pHero, nullptr);
	EXPECT_TRUE(std::filesystem::exists(game.Content("canopy/images/spellicons/" + std::string(pHero->className.c_str()) + "/thorns/bramble_thorn_volley.png")));

	auto unknown = std::make_unique<CMintyardTemplate>();
	unknown->Init("abilityicons.nobody", "#Icons", "", false);
	unknown->directory = "icons";
	CMintyardTemplate_ZarnImageSet &other = unknown->image_sets.emplace_back();
	other.Init("icons", "#Icons", "", false);
	other.image_set_type = MINTYARD_IMAGE_SET_ABILITY_ICONS;
	game.NewSession(std::move(unknown), "thorns");
	list = game.Run(true);
	ASSERT_NE(list.Find("Unrecognized abilityicons template name: %1"), nullptr);
	EXPECT_EQ(list.Find("Unrecognized abilityicons template name: %1")->Arg(1), "abilityicons.nobody");
}

TEST(ImageSets, ALoadingScreenComesOut2048By1024WithItsRecipeCompiled)
{
	CImportTestGame game;
	auto t = std::make_unique<CMintyardTemplate>();
	t->Init("loading_screen", "#LoadingScreen", "", false);
	t->directory = "loading";
	CMintyardTemplate_ZarnImageSet &set = t->image_sets.emplace_back();
	set.Init("screen", "#Screen", "", false);
	set.image_set_type = MINTYARD_IMAGE_SET_LOADING_SCREEN;
	set.image_list.emplace_back().Init("screen_image", "#Image", "", false);
	CMintyardImportSession &session = game.NewSession(std::move(t), "sunrise");
	session.m_ImageSets[0]->m_Images[0]->SetValue(game.WriteArt("sunrise.png", testimages::MakePng(300, 100, 250, 180, 40)).c_str());
	ImportMessageList list = game.Run();
	ASSERT_EQ(list.GetErrorCount(), 0) << game.m_Log.m_Text;
	CImageRGBA8 screen;
	CUtlString error;
	ASSERT_TRUE(Image_LoadFile(game.Content("canopy/images/loadingscreens/sunrise/loadingscreen.png").c_str(), screen, &error)) << error;
	EXPECT_EQ(screen.Width(), 2048);
	EXPECT_EQ(screen.Height(), 1024);
	const std::string recipe = game.ReadFile(game.Content("canopy/images/loadingscreens/sunrise/loadingscreen.ztex"));
	EXPECT_EQ(recipe.rfind("<!-- dmx encoding keyvalues2_noids 1 format ztex 1 -->\n", 0), 0u);
	EXPECT_NE(recipe.find("\"m_fileName\" \"string\" \"canopy/images/loadingscreens/sunrise/loadingscreen.png\""), std::string::npos);
	CCompiledTexture texture;
	ASSERT_TRUE(LoadCompiledTexture(game.Game("canopy/images/loadingscreens/sunrise/loadingscreen.ztex_c").c_str(), texture, &error)) << error;
	EXPECT_EQ(texture.m_nWidth, 2048u);
	EXPECT_EQ(texture.m_nHeight, 1024u);
	EXPECT_NE(game.m_Log.m_Text.find("Compiling ztex: canopy/images/loadingscreens/sunrise/loadingscreen.ztex"), std::string::npos);

	// A PNG whose header is whole but whose pixels are cut off passes the checks of the inputs and
	// fails to decode: the set ends with the element's name.
	session.m_ImageSets[0]->m_Images[0]->SetValue(game.WriteArt("cut.png", testimages::MakePng(300, 100).substr(0, 60)).c_str());
	list = game.Run();
	ASSERT_NE(list.Find("#ZARN_Mintyard_Err_BadCfg", "Image"), nullptr) << game.m_Log.m_Text;
	EXPECT_EQ(list.Find("#ZARN_Mintyard_Err_BadCfg", "Image")->Arg(2), "#Image");
}
