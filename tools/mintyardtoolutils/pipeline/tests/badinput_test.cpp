// Sources that are hostile, cut off, unreadable or of the wrong kind. What the checks of the inputs
// see (no file there, an image that is no image) stops the run before it writes anything; what
// only a reader finds (noise or a cut file named as a mesh, pixels cut off) ends its own model or
// image set with a message naming it, the run goes on, and what was good is imported.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include "compiledassets/compiledassets.h"
#include "importtestgame.h"
#include "modelart.h"
#include "testsupport/test_images.h"

namespace
{
using namespace modelart;

// A template of one-level models (each level named after its model), then a loading screen and a
// cursor pack.
std::unique_ptr<CMintyardTemplate> MixedTemplate(const std::vector<std::string> &models)
{
	auto t = std::make_unique<CMintyardTemplate>();
	t->Init("mixed", "#Mixed", "", false);
	t->directory = "tests";
	for (const std::string &id : models)
	{
		CMintyardTemplate_ZarnModel &model = t->models.emplace_back();
		model.Init(id.c_str(), ("#" + id).c_str(), "", false);
		model.model_name_suffix = "_" + id;
		CMintyardTemplate_ZarnMesh &lod = model.lod_list.emplace_back();
		lod.Init("lod0", ("#" + id + "_lod0").c_str(), "", false);
		lod.max_polygons = 10000;
		lod.max_bones = 60;
	}
	CMintyardTemplate_ZarnImageSet &screen = t->image_sets.emplace_back();
	screen.Init("screen", "#Screen", "", false);
	screen.image_set_type = MINTYARD_IMAGE_SET_LOADING_SCREEN;
	screen.image_list.emplace_back().Init("screen_image", "#ScreenImage", "", false);
	CMintyardTemplate_ZarnImageSet &cursors = t->image_sets.emplace_back();
	cursors.Init("cursors", "#Cursors", "", false);
	cursors.image_set_type = MINTYARD_IMAGE_SET_CURSOR_PACK;
	CMintyardTemplate_ZarnImageSet::CImage &cursor = cursors.image_list.emplace_back();
	cursor.Init("default", "#Cursor", "", false);
	cursor.image_type = MINTYARD_IMAGE_TYPE_BMP;
	return t;
}

std::string Messages(const ImportMessageList &list)
{
	std::string out;
	for (int i = 0; i < list.Count(); ++i)
	{
		out += (list[i].isError ? "error " : "warning ") + list[i].Message();
		for (int a = 1; a <= 4; ++a)
			out += list[i].HasArg(a) ? " [" + list[i].Arg(a) + "]" : "";
		out += "\n";
	}
	return out;
}

// True when an entry of the list names the text in one of its arguments.
bool Names(const ImportMessageList &list, const std::string &text)
{
	for (int i = 0; i < list.Count(); ++i)
		for (int a = 1; a <= 4; ++a)
			if (list[i].HasArg(a) && list[i].Arg(a).find(text) != std::string::npos)
				return true;
	return false;
}
} // namespace

TEST(BadInput, EachBadSourceEndsItsOwnElementAndTheRestIsImported)
{
	CImportTestGame game;
	CMintyardImportSession &session = game.NewSession(MixedTemplate({ "noise", "cut", "picture", "good" }), "mixed");
	// Noise with an FBX name; a real binary FBX cut in its middle, so that the reader fails on it;
	// a picture named as a mesh; and a model that is fine.
	std::string noise(6000, '\0');
	for (size_t i = 0; i < noise.size(); ++i)
		noise[i] = char((i * 2654435761u) >> 13);
	session.m_Models[0]->m_Lods[0]->SetValue(game.WriteArt("noise.fbx", noise).c_str());
	const std::string fbx = SkinnedFbx(BoneNames(4), 12);
	session.m_Models[1]->m_Lods[0]->SetValue(game.WriteArt("cut.fbx", fbx.substr(0, fbx.size() / 2)).c_str());
	session.m_Models[2]->m_Lods[0]->SetValue(game.WriteArt("picture.fbx", testimages::MakePng(64, 64)).c_str());
	session.m_Models[3]->m_Lods[0]->SetValue(game.WriteArt("good.fbx", fbx).c_str());
	// A loading screen whose PNG header is whole and whose pixels are cut off, which the checks of
	// the inputs cannot see; a cursor that is fine.
	session.m_ImageSets[0]->m_Images[0]->SetValue(game.WriteArt("screen.png", testimages::MakePng(300, 100).substr(0, 60)).c_str());
	session.m_ImageSets[1]->m_Images[0]->SetValue(game.WriteArt("default.bmp", testimages::MakeBmp(32, 32)).c_str());

	ImportMessageList list = game.Run();
	const std::string all = Messages(list) + game.m_Log.m_Text;
	// Each bad model fails its own compile and is not checked; the compiler's lines say why.
	EXPECT_EQ(list.CountMessage("#ZARN_Mintyard_Err_FailedToCompile"), 3) << all;
	EXPECT_EQ(list.Find("#ZARN_Mintyard_Error_FailedToLoadCompiledModel"), nullptr) << all;
	for (const char *name : { "noise", "cut", "picture" })
	{
		EXPECT_TRUE(Names(list, std::string("mixed_") + name)) << name << "\n" << all;
		EXPECT_FALSE(std::filesystem::exists(game.Game(std::string("models/items/tests/mixed/mixed_") + name + ".zmdl_c"))) << name;
	}
	for (const char *source : { "noise.fbx", "cut.fbx", "picture.fbx" })
		EXPECT_NE(game.m_Log.m_Text.find(source), std::string::npos) << source << "\n" << all;
	// The good model is compiled whole.
	CCompiledModel model;
	CUtlString error;
	ASSERT_TRUE(LoadCompiledModel(game.Game("models/items/tests/mixed/mixed_good.zmdl_c").c_str(), model, &error)) << error << "\n" << all;
	ASSERT_FALSE(model.m_Meshes.empty());
	EXPECT_EQ(model.GetMeshPrimitiveCount(0), (uint64)ColumnTriangles(12));
	// The loading screen ends with its element's name; the cursor pack after it is placed.
	const MintyardImportMessageEntry_t *pScreen = list.Find("#ZARN_Mintyard_Err_BadCfg", "Image");
	ASSERT_NE(pScreen, nullptr) << all;
	EXPECT_EQ(pScreen->Arg(2), "#ScreenImage");
	EXPECT_FALSE(std::filesystem::exists(game.Game("canopy/images/loadingscreens/mixed/loadingscreen.ztex_c")));
	EXPECT_EQ(game.ReadFile(game.Game("resource/cursor/mintyard/mixed/default.bmp")), testimages::MakeBmp(32, 32));
}

TEST(BadInput, AnInputThatIsNoFileOrOfTheWrongKindStopsTheRunBeforeItWrites)
{
	CImportTestGame game;
	CMintyardImportSession &session = game.NewSession(MixedTemplate({ "folder", "gone" }), "unread");
	// A folder that carries a mesh's name, and a file that went away after the author chose it.
	const std::string folder = game.Art("folder.fbx");
	std::filesystem::create_directories(folder);
	session.m_Models[0]->m_Lods[0]->SetValue(folder.c_str());
	const std::string gone = game.WriteArt("gone.fbx", SkinnedFbx(BoneNames(2), 4));
	session.m_Models[1]->m_Lods[0]->SetValue(gone.c_str());
	// A mesh named as the loading screen's picture.
	session.m_ImageSets[0]->m_Images[0]->SetValue(game.WriteArt("screen.png", SkinnedFbx(BoneNames(2), 4)).c_str());
	session.m_ImageSets[1]->m_Images[0]->SetValue(game.WriteArt("default.bmp", testimages::MakeBmp(32, 32)).c_str());
	std::filesystem::remove(gone);

	ImportMessageList list = game.Run();
	const std::string all = Messages(list) + game.m_Log.m_Text;
	// Each is named by its input, the one the author fixes.
	EXPECT_EQ(list.CountMessage("#ZARN_Mintyard_Err_NonexistentFile"), 2) << all;
	EXPECT_TRUE(Names(list, "#folder_lod0")) << all;
	EXPECT_TRUE(Names(list, "#gone_lod0")) << all;
	const MintyardImportMessageEntry_t *pScreen = list.Find("#ZARN_Mintyard_Err_BadImageFile");
	ASSERT_NE(pScreen, nullptr) << all;
	EXPECT_EQ(pScreen->Arg(2), game.Art("screen.png"));
	// The inputs are checked before anything is written: the content tree stays empty.
	EXPECT_FALSE(std::filesystem::exists(game.Content("models"))) << all;
	EXPECT_FALSE(std::filesystem::exists(game.Game("resource/cursor/mintyard/unread"))) << all;
}
