#include <gtest/gtest.h>

#include "brume/brume_api.h"
#include "mintyardmanager/mainwindow.h"
#include "mintyardmanager/mintyardmanagertool.h"

TEST(MintyardToolMode, TheTestsRunInTheirOrder)
{
	// No flags: the directory decides.
	EXPECT_EQ(MINTYARD_MODE_ZARN_ADDON, DetectMintyardToolMode("zarn", false, false));
	EXPECT_EQ(MINTYARD_MODE_ZARN_ITEMS, DetectMintyardToolMode("zarn", false, true));
	EXPECT_EQ(MINTYARD_MODE_QUERN_ADDON, DetectMintyardToolMode("quern", false, false));
	EXPECT_EQ(MINTYARD_MODE_TOLVA_MAP, DetectMintyardToolMode("tolva", false, false));
	EXPECT_EQ(MINTYARD_MODE_TOLVA_ITEMS, DetectMintyardToolMode("tolva", false, true));
	// "-quern_mintyard" comes first, even on a tolva directory.
	EXPECT_EQ(MINTYARD_MODE_QUERN_ADDON, DetectMintyardToolMode("tolva", true, false));
	EXPECT_EQ(MINTYARD_MODE_QUERN_ADDON, DetectMintyardToolMode("zarn", true, true));
	// "-mintyard_items" on quern is still quern.
	EXPECT_EQ(MINTYARD_MODE_QUERN_ADDON, DetectMintyardToolMode("quern", false, true));
	// The quern test ignores case; the tolva prefix goes on whatever follows.
	EXPECT_EQ(MINTYARD_MODE_QUERN_ADDON, DetectMintyardToolMode("QUERN", false, false));
	EXPECT_EQ(MINTYARD_MODE_TOLVA_MAP, DetectMintyardToolMode("tolva_workshop", false, false));
	EXPECT_EQ(MINTYARD_MODE_TOLVA_ITEMS, DetectMintyardToolMode("tolvanext", false, true));
	EXPECT_EQ(MINTYARD_MODE_ZARN_ADDON, DetectMintyardToolMode("quernish", false, false));
}

TEST(MintyardToolMode, AddonModesAreBelowFourAndNotOne)
{
	EXPECT_TRUE(IsAddonMode(MINTYARD_MODE_ZARN_ADDON));
	EXPECT_FALSE(IsAddonMode(MINTYARD_MODE_ZARN_ITEMS));
	EXPECT_TRUE(IsAddonMode(MINTYARD_MODE_QUERN_ADDON));
	EXPECT_TRUE(IsAddonMode(MINTYARD_MODE_TOLVA_MAP));
	EXPECT_FALSE(IsAddonMode(MINTYARD_MODE_TOLVA_ITEMS));
}

TEST(MintyardToolMode, GameDirectoryIsTheLastComponentOfTheFirstModPath)
{
	EXPECT_EQ("zarn", GameDirectoryFromSearchPath("/work/sample/game/zarn/;/work/sample/game/core/"));
	EXPECT_EQ("tolva", GameDirectoryFromSearchPath("/a/game/tolva//"));
	EXPECT_EQ("quern", GameDirectoryFromSearchPath("quern"));
	EXPECT_EQ("", GameDirectoryFromSearchPath(""));
}

TEST(MainWindowUrls, TheDetailPageOfAFile)
{
	EXPECT_EQ("http://www.mintyard.example/sharedfiles/filedetails/?id=123456789012",
		CMainWindow::BuildMintyardFileUrl(k_EUniversePublic, "mintyard.example", 123456789012ull));
	EXPECT_EQ("http://beta.mintyard.example/sharedfiles/filedetails/?id=5", CMainWindow::BuildMintyardFileUrl(k_EUniverseBeta, "mintyard.example", 5));
	// The local service is reached by its address as it stands.
	EXPECT_EQ("http://127.0.0.1:27080/sharedfiles/filedetails/?id=5", CMainWindow::BuildMintyardFileUrl(k_EUniverseBeta, "127.0.0.1:27080", 5));
	EXPECT_EQ("http://localhost:8080/sharedfiles/filedetails/?id=7", CMainWindow::BuildMintyardFileUrl(k_EUniversePublic, "localhost:8080", 7));
}
