// Icons drawn from the portraits of the sample game, checked on their pixels: the square frame's
// colour at the border, the model inside, the background elsewhere; two framings give two
// pictures; the transparent option; the host tool "portraitEditor" found by name writing the
// item's icon files where its keys say; and the Frame button filling the picture with the model.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>

#include <QPushButton>

#include "core/keyvalues.h"
#include "core/utlbuffer.h"
#include "core/fileio.h"
#include "imaging/image.h"
#include "imaging/imageload.h"
#include "mintyardtoolutils/preview/portraiteditor.h"
#include "mintyardtoolutils/preview/portraiticonrender.h"
#include "mintyardtoolutils/preview/portraitpanel.h"
#include "mintyardtoolutils/preview/portraittool.h"
#include "mintyardtoolutils/wizard/portraiticons.h"
#include "portraittestgame.h"
#include "toolframework/toolframework.h"
#include "toolscene/scenemath.h"

namespace
{
const char *const SAMPLE_COURIER = "models/items/courier/sample_courier/sample_courier.zmdl";
const int ICON_SIZE = 128;

class CReleaseGame : public testing::Environment
{
public:
	void TearDown() override { CPortraitTestGame::Release(); }
};
testing::Environment *const s_pReleaseGame = testing::AddGlobalTestEnvironment(new CReleaseGame);

bool LoadImageFile(const std::string &path, CImageRGBA8 &out)
{
	CUtlBuffer data;
	if (!Plat_ReadFile(path.c_str(), data))
		return false;
	return Image_Load(data.Base(), data.Size(), path.c_str(), out);
}

int ColorDistance(const uint8 *a, const uint8 *b)
{
	return std::max({ std::abs(a[0] - b[0]), std::abs(a[1] - b[1]), std::abs(a[2] - b[2]) });
}

// The share of the pixels of a box (fractions of the picture) that are the courier's orange.
float OrangeShare(const CImageRGBA8 &image, float x0, float y0, float x1, float y1)
{
	int nOrange = 0, nAll = 0;
	for (int y = (int)(y0 * image.Height()); y < (int)(y1 * image.Height()); ++y)
	{
		for (int x = (int)(x0 * image.Width()); x < (int)(x1 * image.Width()); ++x)
		{
			const uint8 *p = image.Pixel(x, y);
			nOrange += p[0] > p[1] + 30 && p[0] > p[2] + 60 ? 1 : 0;
			++nAll;
		}
	}
	return nAll ? (float)nOrange / (float)nAll : 0.0f;
}

double MeanDifference(const CImageRGBA8 &a, const CImageRGBA8 &b)
{
	double flSum = 0.0;
	for (int y = 0; y < a.Height(); ++y)
	{
		for (int x = 0; x < a.Width(); ++x)
			flSum += ColorDistance(a.Pixel(x, y), b.Pixel(x, y));
	}
	return flSum / (a.Width() * a.Height());
}

class PortraitIconTest : public testing::Test
{
protected:
	void SetUp() override
	{
		ASSERT_TRUE(CPortraitTestGame::Game().m_bReady);
		m_pSession = CPortraitTestGame::Session("courier");
		ASSERT_NE(m_pSession, nullptr);
		// The courier's portrait as the game's portraits seeded it.
		m_Record = m_pSession->m_Models[0]->m_PortraitRecord;
		ASSERT_NE(m_Record.CameraOrFirst("default").m_Position, Vector());
		CUtlString error;
		ASSERT_TRUE(m_Renderer.Init(&error)) << error;
	}

	CImageRGBA8 Render(const CZarnPortraitRecord &record, const ZarnPortraitIconOptions_t &options)
	{
		CImageRGBA8 image;
		CUtlString error;
		EXPECT_TRUE(m_Renderer.RenderIcon(SAMPLE_COURIER, record, options, image, &error)) << error;
		return image;
	}

	CMintyardImportSession *m_pSession = nullptr;
	CZarnPortraitRecord m_Record;
	CZarnPortraitIconRenderer m_Renderer;
};
} // namespace

TEST_F(PortraitIconTest, TheIconShowsTheModelInsideTheFrameOverItsBackground)
{
	ZarnPortraitIconOptions_t options;
	options.m_nSize = ICON_SIZE;
	// Without a background texture the background is the icon's own colour.
	CZarnPortraitRecord record = m_Record;
	record.m_BackgroundTexture = "";
	const CImageRGBA8 icon = Render(record, options);
	ASSERT_EQ(icon.Width(), ICON_SIZE);
	ASSERT_EQ(icon.Height(), ICON_SIZE);

	// The border is the square frame's gold, where the frame's own picture is.
	CImageRGBA8 frame;
	ASSERT_TRUE(LoadImageFile(CPortraitTestGame::Game().Content("materials/vgui/econ/item_icon_square_color.png"), frame));
	const int nScale = frame.Width() / ICON_SIZE;
	for (const auto &[x, y] : { std::pair(2, ICON_SIZE / 2), std::pair(ICON_SIZE / 2, 2), std::pair(ICON_SIZE - 3, ICON_SIZE / 3) })
	{
		const uint8 *pFrame = frame.Pixel(x * nScale + nScale / 2, y * nScale + nScale / 2);
		const uint8 *pIcon = icon.Pixel(x, y);
		ASSERT_EQ(pFrame[3], 255);
		EXPECT_LE(ColorDistance(pIcon, pFrame), 48) << x << "," << y << ": " << (int)pIcon[0] << " " << (int)pIcon[1] << " " << (int)pIcon[2]
													<< " against the frame's " << (int)pFrame[0] << " " << (int)pFrame[1] << " " << (int)pFrame[2];
		EXPECT_GT(pIcon[0], pIcon[2] + 30);
	}
	// The courier's orange fills the middle, and none of it is at the top corner inside the frame.
	EXPECT_GT(OrangeShare(icon, 0.35f, 0.35f, 0.65f, 0.65f), 0.2f);
	EXPECT_EQ(OrangeShare(icon, 0.08f, 0.08f, 0.18f, 0.18f), 0.0f);
	// Elsewhere inside the frame, the background: dark and neutral, as the icon's colour is.
	const uint8 *pCorner = icon.Pixel(ICON_SIZE / 7, ICON_SIZE / 7);
	EXPECT_LT(std::max({ pCorner[0], pCorner[1], pCorner[2] }), 60) << (int)pCorner[0] << " " << (int)pCorner[1] << " " << (int)pCorner[2];
	EXPECT_LE(std::abs(pCorner[0] - pCorner[2]), 12);

	// With the record's background texture the same place shows that texture instead.
	record.m_BackgroundTexture = "materials/vgui/econ/item_icon_bg_gold.zmat";
	const CImageRGBA8 gold = Render(record, options);
	EXPECT_GT(ColorDistance(gold.Pixel(ICON_SIZE / 7, ICON_SIZE / 7), pCorner), 20);
	EXPECT_GT(OrangeShare(gold, 0.35f, 0.35f, 0.65f, 0.65f), 0.2f);
}

TEST_F(PortraitIconTest, TwoFramingsGiveTwoIcons)
{
	ZarnPortraitIconOptions_t options;
	options.m_nSize = ICON_SIZE;
	const CImageRGBA8 first = Render(m_Record, options);
	const CImageRGBA8 again = Render(m_Record, options);
	EXPECT_LT(MeanDifference(first, again), 0.5);
	CZarnPortraitRecord moved = m_Record;
	CZarnPortraitRecord::Camera_t &camera = moved.CameraOrFirst("default");
	// Twice as far: the model is smaller, its orange less of the middle.
	camera.m_Position = camera.m_Position * 2.0f;
	const CImageRGBA8 second = Render(moved, options);
	EXPECT_GT(MeanDifference(first, second), 5.0);
	EXPECT_LT(OrangeShare(second, 0.35f, 0.35f, 0.65f, 0.65f), OrangeShare(first, 0.35f, 0.35f, 0.65f, 0.65f));
}

TEST_F(PortraitIconTest, TransparentIconsHaveAlphaOnlyWhereTheModelAndFrameAre)
{
	ZarnPortraitIconOptions_t options;
	options.m_nSize = ICON_SIZE;
	options.m_bTransparentBackground = true;
	const CImageRGBA8 icon = Render(m_Record, options);
	// The frame is opaque, the model too; the background between them lets through.
	EXPECT_EQ(icon.Pixel(2, ICON_SIZE / 2)[3], 255);
	int nOpaqueOrange = 0;
	for (int y = ICON_SIZE * 2 / 5; y < ICON_SIZE * 3 / 5; ++y)
	{
		for (int x = ICON_SIZE * 2 / 5; x < ICON_SIZE * 3 / 5; ++x)
		{
			const uint8 *p = icon.Pixel(x, y);
			nOpaqueOrange += p[3] > 240 && p[0] > p[2] + 60 ? 1 : 0;
		}
	}
	EXPECT_GT(nOpaqueOrange, 20);
	EXPECT_LT(icon.Pixel(ICON_SIZE / 7, ICON_SIZE / 7)[3], 128);
}

TEST_F(PortraitIconTest, BadInputGivesAMessage)
{
	ZarnPortraitIconOptions_t options;
	CImageRGBA8 image;
	CUtlString error;
	options.m_nSize = 4;
	EXPECT_FALSE(m_Renderer.RenderIcon(SAMPLE_COURIER, m_Record, options, image, &error));
	EXPECT_NE(error.find("size"), CUtlString::npos) << error;
	options.m_nSize = 64;
	EXPECT_FALSE(m_Renderer.RenderIcon("models/nothing/here.zmdl", m_Record, options, image, &error));
	EXPECT_NE(error.find("models/nothing/here.zmdl"), CUtlString::npos) << error;
}

TEST_F(PortraitIconTest, ThePortraitEditorToolFoundByNameWritesTheItemsIcons)
{
	ASSERT_NE(g_pToolFramework, nullptr);
	IToolSystem2 *pTool = g_pToolFramework->FindToolByName(MINTYARD_PORTRAIT_EDITOR_TOOL_NAME);
	ASSERT_NE(pTool, nullptr);
	auto *pIcons = static_cast<IMintyardPortraitIcons *>(pTool->QueryInterface(MINTYARD_PORTRAIT_ICONS_INTERFACE_VERSION));
	ASSERT_NE(pIcons, nullptr);

	// Keys with the courier's two models under `portraits`.
	KeyValues keys("9001");
	KeyValues *pPortraits = keys.FindKey("portraits", true);
	for (const CMintyardCfg_ZarnModel *pModel : m_pSession->m_Models)
		pModel->m_PortraitRecord.WriteKeys(pPortraits->AddKey(pModel->GetZmdlName().c_str()));
	ASSERT_EQ(m_pSession->m_Models.size(), 2u);

	// Another kind, or no portraits: nothing.
	EXPECT_FALSE(pIcons->GenerateIcons("other", &keys, 0));
	KeyValues bare("9002");
	EXPECT_FALSE(pIcons->GenerateIcons("mintyard", &bare, 0));

	ASSERT_TRUE(pIcons->GenerateIcons("mintyard", &keys, 0));
	EXPECT_STREQ(keys.GetString("image_inventory"), "econ/items/courier/sample_courier/sample_courier");
	pIcons->FinishIcons();
	pIcons->ReleaseIcons();

	CPreviewTestGame &game = CPortraitTestGame::Game();
	for (const char *pszStem : { "sample_courier", "sample_courier_flying" })
	{
		for (int nSize : GetZarnPortraitIconSizes())
		{
			const std::string path = game.Game(std::string("resource/flash3/images/econ/items/courier/sample_courier/") + pszStem + "_" +
											   std::to_string(nSize) + ".png");
			SCOPED_TRACE(path);
			CImageRGBA8 icon;
			ASSERT_TRUE(LoadImageFile(path, icon));
			EXPECT_EQ(icon.Width(), nSize);
			EXPECT_EQ(icon.Height(), nSize);
			EXPECT_GT(OrangeShare(icon, 0.3f, 0.3f, 0.7f, 0.7f), 0.1f);
			// Nothing half-written is left beside it.
			for (const auto &entry : std::filesystem::directory_iterator(std::filesystem::path(path).parent_path()))
				EXPECT_EQ(entry.path().extension(), ".png") << entry.path();
		}
	}

	// Opaque icons: the background fills the frame.
	CImageRGBA8 opaque;
	ASSERT_TRUE(LoadImageFile(game.Game("resource/flash3/images/econ/items/courier/sample_courier/sample_courier_128.png"), opaque));
	EXPECT_EQ(opaque.Pixel(20, 20)[3], 255);
	// The transparent flag: the same icons without their background.
	ASSERT_TRUE(pIcons->GenerateIcons("mintyard", &keys, MINTYARD_PORTRAIT_ICONS_TRANSPARENT));
	pIcons->FinishIcons();
	CImageRGBA8 clear;
	ASSERT_TRUE(LoadImageFile(game.Game("resource/flash3/images/econ/items/courier/sample_courier/sample_courier_128.png"), clear));
	EXPECT_LT(clear.Pixel(20, 20)[3], 128);
	EXPECT_EQ(clear.Pixel(1, 64)[3], 255);
	// The flag holds for its batch alone.
	ASSERT_TRUE(pIcons->GenerateIcons("mintyard", &keys, 0));
	pIcons->FinishIcons();
	pIcons->ReleaseIcons();
	ASSERT_TRUE(LoadImageFile(game.Game("resource/flash3/images/econ/items/courier/sample_courier/sample_courier_128.png"), opaque));
	EXPECT_EQ(opaque.Pixel(20, 20)[3], 255);

	// The wizard's own call goes through the registry the same way.
	std::filesystem::remove_all(game.Game("resource/flash3/images/econ/items"));
	ASSERT_TRUE(GenerateMintyardItemIcons(&keys));
	EXPECT_TRUE(std::filesystem::exists(game.Game("resource/flash3/images/econ/items/courier/sample_courier/sample_courier_256.png")));
}

TEST_F(PortraitIconTest, FrameFillsThePictureWithTheModel)
{
	CPortraitRecordsGuard guard(m_pSession);
	m_pSession->m_Models[0]->m_PortraitRecord = CZarnPortraitRecord();
	CQZarnPortraitEditor page;
	page.resize(1200, 900);
	page.AttachSession(m_pSession);
	ASSERT_EQ(page.Model().GetCameraPosition(), Vector());
	page.Panel()->FrameButton()->click();
	const CZarnPortraitRecord &record = m_pSession->m_Models[0]->m_PortraitRecord;
	EXPECT_NE(record.CameraOrFirst("default").m_Position, Vector());
	// The rule is satisfied by it.
	ImportMessageList list;
	page.Validate(list);
	EXPECT_EQ(list.Find("#ZARN_Mintyard_Err_Model_Portrait_NotEdited", "sample_courier"), nullptr);

	// Drawn alone (no backdrop, no overlays: mode 0, transparent), the model's coverage spans most
	// of the picture, leaves the margin free and stands in the middle.
	ZarnPortraitIconOptions_t options;
	options.m_nSize = ICON_SIZE;
	options.m_nPreviewMode = 0;
	options.m_bTransparentBackground = true;
	const CImageRGBA8 icon = Render(record, options);
	int nMinX = ICON_SIZE, nMinY = ICON_SIZE, nMaxX = -1, nMaxY = -1;
	for (int y = 0; y < ICON_SIZE; ++y)
	{
		for (int x = 0; x < ICON_SIZE; ++x)
		{
			if (icon.Pixel(x, y)[3] < 32)
				continue;
			nMinX = std::min(nMinX, x), nMaxX = std::max(nMaxX, x);
			nMinY = std::min(nMinY, y), nMaxY = std::max(nMaxY, y);
		}
	}
	ASSERT_GE(nMaxX, 0) << "nothing drawn";
	const int nExtent = std::max(nMaxX - nMinX, nMaxY - nMinY) + 1;
	EXPECT_GT(nExtent, ICON_SIZE * 0.55) << nMinX << "," << nMinY << " to " << nMaxX << "," << nMaxY;
	EXPECT_GE(std::min(nMinX, nMinY), 2);
	EXPECT_LE(std::max(nMaxX, nMaxY), ICON_SIZE - 3);
	EXPECT_NEAR((nMinX + nMaxX) * 0.5, ICON_SIZE * 0.5, ICON_SIZE * 0.15);
	EXPECT_NEAR((nMinY + nMaxY) * 0.5, ICON_SIZE * 0.5, ICON_SIZE * 0.15);
}

// ---------------------------------------------------------------------------------------------
// `mintyard portrait`

namespace
{
const std::string MINTYARD_COMMAND = MINTYARD_BINARY_DIR "/bin/mintyard";

CommandResult_t RunPortraitCommand(const std::string &args, const std::string &environment = "")
{
	CPreviewTestGame &game = CPortraitTestGame::Game();
	return RunCommand("env " + environment + " MINTYARD_SCRATCH_DIR=" + game.Root("scratch") + " " + MINTYARD_COMMAND + " portrait " + args +
		" 2>&1");
}
} // namespace

TEST_F(PortraitIconTest, ThePortraitCommandDrawsAnImportedSessionsIcon)
{
	CPreviewTestGame &game = CPortraitTestGame::Game();
	const std::string gameArg = "--game " + game.Game("");
	const std::string out = game.Root("icons/courier.png");

	CommandResult_t result = RunPortraitCommand("--help");
	EXPECT_EQ(result.exitCode, 0);
	EXPECT_NE(result.output.find("usage: mintyard portrait"), std::string::npos) << result.output;
	result = RunPortraitCommand(gameArg + " " + game.Session("courier"));
	EXPECT_EQ(result.exitCode, 2) << result.output;
	EXPECT_NE(result.output.find("--out"), std::string::npos) << result.output;
	result = RunPortraitCommand(gameArg + " " + game.Session("courier") + " --out " + out + " --size 3");
	EXPECT_EQ(result.exitCode, 2) << result.output;
	EXPECT_NE(result.output.find("--size takes a number"), std::string::npos) << result.output;

	// The courier session was imported by the fixture: its icon, at the size asked.
	result = RunPortraitCommand(gameArg + " " + game.Session("courier") + " --out " + out + " --size 96");
	ASSERT_EQ(result.exitCode, 0) << result.output;
	CImageRGBA8 icon;
	ASSERT_TRUE(LoadImageFile(out, icon));
	EXPECT_EQ(icon.Width(), 96);
	EXPECT_GT(OrangeShare(icon, 0.35f, 0.35f, 0.65f, 0.65f), 0.2f);
	// The same picture as the renderer draws here.
	ZarnPortraitIconOptions_t options;
	options.m_nSize = 96;
	EXPECT_LT(MeanDifference(icon, Render(m_Record, options)), 2.0);
	// Its second model, transparent.
	result = RunPortraitCommand(gameArg + " " + game.Session("courier") + " --out " + out + " --size 64 --model 1 --transparent");
	ASSERT_EQ(result.exitCode, 0) << result.output;
	ASSERT_TRUE(LoadImageFile(out, icon));
	EXPECT_LT(icon.Pixel(10, 10)[3], 128);
	result = RunPortraitCommand(gameArg + " " + game.Session("courier") + " --out " + out + " --model 2");
	EXPECT_EQ(result.exitCode, 1) << result.output;
	EXPECT_NE(result.output.find("--model 2 is not one of them"), std::string::npos) << result.output;

	// A session never imported says so.
	result = RunPortraitCommand(gameArg + " " + game.Session("ward") + " --out " + out);
	EXPECT_EQ(result.exitCode, 1) << result.output;
	EXPECT_NE(result.output.find("the session is not imported"), std::string::npos) << result.output;

	// Without a display: a message, no crash.
	result = RunPortraitCommand(gameArg + " " + game.Session("courier") + " --out " + out, "-u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM");
	EXPECT_EQ(result.exitCode, 1) << result.output;
	EXPECT_NE(result.output.find("no display"), std::string::npos) << result.output;
	// A display named that nothing answers on is none either.
	result = RunPortraitCommand(gameArg + " " + game.Session("courier") + " --out " + out, "-u WAYLAND_DISPLAY -u QT_QPA_PLATFORM DISPLAY=:987");
	EXPECT_EQ(result.exitCode, 1) << result.output;
	EXPECT_NE(result.output.find("no display"), std::string::npos) << result.output;
}
