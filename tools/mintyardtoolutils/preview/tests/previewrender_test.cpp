// `mintyard render` as a user runs it, on a copy of the sample tree under the virtual display:
// a compiled sample model alone, an imported sample session on its hero, a session not yet
// imported, --problems on a box with an open side, usage errors and a console without a display.
// The pictures are checked on their pixels: the background in the corners, the models' colours
// where they stand, red lines where the findings are.
#include <gtest/gtest.h>

#include <QImage>

#include <string>

#include "previewtestboxes.h"
#include "previewtestgame.h"
#include "testsupport/test_support.h"

namespace
{
const std::string MINTYARD = std::string(MINTYARD_BINARY_DIR) + "/bin/mintyard";

struct PixelCounts_t
{
	int m_nBackground = 0; // like the corner pixel
	int m_nRed = 0;		   // the problems' red
	int m_nOther = 0;
	int m_nGreen = 0;  // clearly green (the hero's tunic; the grid's Y axis is green too)
	int m_nOrange = 0; // clearly orange-brown (the courier's coat)
	int m_nReddish = 0; // red over green and blue by far: the red edges and the faces tinted red
};

bool IsRed(QRgb pixel)
{
	return qRed(pixel) > 200 && qGreen(pixel) < 70 && qBlue(pixel) < 70;
}

bool Near(QRgb a, QRgb b, int nTolerance)
{
	return std::abs(qRed(a) - qRed(b)) <= nTolerance && std::abs(qGreen(a) - qGreen(b)) <= nTolerance && std::abs(qBlue(a) - qBlue(b)) <= nTolerance;
}

// Counts the pixels of a rectangle (fractions of the picture) by kind.
PixelCounts_t CountPixels(const QImage &image, double x0, double y0, double x1, double y1)
{
	PixelCounts_t counts;
	const QRgb background = image.pixel(0, 0);
	for (int y = (int)(y0 * image.height()); y < (int)(y1 * image.height()); ++y)
	{
		for (int x = (int)(x0 * image.width()); x < (int)(x1 * image.width()); ++x)
		{
			const QRgb pixel = image.pixel(x, y);
			if (IsRed(pixel))
				++counts.m_nRed;
			else if (Near(pixel, background, 6))
				++counts.m_nBackground;
			else
				++counts.m_nOther;
			const int r = qRed(pixel), g = qGreen(pixel), b = qBlue(pixel);
			if (g > r + 15 && g > b + 15)
				++counts.m_nGreen;
			if (r > g + 30 && g > b && r > 90)
				++counts.m_nOrange;
			if (r > g + 70 && r > b + 70)
				++counts.m_nReddish;
		}
	}
	return counts;
}

class PreviewRenderTest : public testing::Test
{
protected:
	void SetUp() override { ASSERT_TRUE(m_Game.m_bReady); }

	CommandResult_t Render(const std::string &arguments)
	{
		return RunCommand(MINTYARD + " render --game " + m_Game.Game("") + " " + arguments);
	}

	QImage Load(const std::string &path)
	{
		QImage image;
		EXPECT_TRUE(image.load(QString::fromStdString(path))) << path;
		return image.convertToFormat(QImage::Format_RGB32);
	}

	// Writes and compiles a test box as models/tests/<name>.zmdl and draws it from the front,
	// with its mesh problems when asked; the command's output goes to *pOutput.
	QImage DrawTestBox(const std::string &name, ETestBox eKind, bool bProblems, std::string *pOutput = nullptr)
	{
		const std::string document = WriteTestBoxModel(m_Game.Content(""), name, eKind);
		const CommandResult_t compile = RunCommand(std::string(MINTYARD_BINARY_DIR) + "/bin/resourcecompiler " + m_Game.Content(document));
		EXPECT_EQ(compile.exitCode, 0) << compile.output;
		const std::string out = m_Game.Root("out/" + name + (bProblems ? "_problems.png" : ".png"));
		const CommandResult_t drawn =
			Render("--model models/tests/" + name + ".zmdl_c --size 320x240" + (bProblems ? " --problems" : "") + " --out " + out);
		EXPECT_EQ(drawn.exitCode, 0) << drawn.output;
		if (pOutput)
			*pOutput = drawn.output;
		return Load(out);
	}

	CPreviewTestGame m_Game;
};
} // namespace

TEST_F(PreviewRenderTest, ACompiledModelAloneIsFramedInThePicture)
{
	const std::string out = m_Game.Root("out/hero.png");
	const CommandResult_t result = Render("--model models/heroes/bramble/bramble.zmdl_c --size 320x240 --out " + out);
	ASSERT_EQ(result.exitCode, 0) << result.output;
	const QImage image = Load(out);
	ASSERT_EQ(image.size(), QSize(320, 240));
	// The corners are background; the middle is the hero, not background.
	const PixelCounts_t corner = CountPixels(image, 0.0, 0.0, 0.08, 0.08);
	EXPECT_EQ(corner.m_nOther + corner.m_nRed, 0);
	const PixelCounts_t middle = CountPixels(image, 0.45, 0.4, 0.55, 0.6);
	EXPECT_GT(middle.m_nOther, middle.m_nBackground * 4) << "the hero does not stand in the middle";
	// Framed: it reaches up into the picture's upper part.
	EXPECT_GT(CountPixels(image, 0.0, 0.12, 1.0, 0.3).m_nOther, 0);
	EXPECT_EQ(CountPixels(image, 0.0, 0.0, 1.0, 1.0).m_nRed, 0) << "no problems asked for";

	// An absolute path works too, and another yaw draws another picture.
	const std::string turned = m_Game.Root("out/hero_turned.png");
	const CommandResult_t second =
		Render("--model " + m_Game.Game("models/heroes/bramble/bramble.zmdl_c") + " --size 320x240 --yaw 90 --out " + turned);
	ASSERT_EQ(second.exitCode, 0) << second.output;
	EXPECT_NE(Load(turned), image);
}

TEST_F(PreviewRenderTest, AnImportedSessionShowsItsModelOnItsHero)
{
	// Imported as an author does it, with the command.
	const CommandResult_t import = RunCommand(MINTYARD + " import --game " + m_Game.Game("") + " " + m_Game.Session("wearable_bramble_head"));
	ASSERT_EQ(import.exitCode, 0) << import.output;
	const std::string withHero = m_Game.Root("out/crown.png");
	const CommandResult_t result = Render("--session " + m_Game.Session("wearable_bramble_head") + " --size 320x320 --out " + withHero);
	ASSERT_EQ(result.exitCode, 0) << result.output;
	const QImage image = Load(withHero);
	// The hero stands in the middle, taller than wide.
	const PixelCounts_t middle = CountPixels(image, 0.4, 0.3, 0.6, 0.7);
	EXPECT_GT(middle.m_nOther, middle.m_nBackground);
	// Its green tunic in the middle of the picture, none in the corners.
	EXPECT_GT(CountPixels(image, 0.4, 0.3, 0.6, 0.5).m_nGreen, 100);
	EXPECT_EQ(CountPixels(image, 0.0, 0.0, 0.15, 0.25).m_nGreen, 0);
	// Above the ground's horizon, beside the hero, the background.
	EXPECT_EQ(CountPixels(image, 0.0, 0.0, 0.15, 0.25).m_nOther, 0);
	EXPECT_EQ(CountPixels(image, 0.85, 0.0, 1.0, 0.25).m_nOther, 0);
	// The hero's default weapon stands beside it, to its right (the picture's left): the
	// column between the hero's side and the picture's edge holds more than ground.
	EXPECT_GT(CountPixels(image, 0.28, 0.15, 0.38, 0.35).m_nOther, 0);

	// The crown alone, as a compiled model, is a much smaller thing in a picture of its own: the
	// session's picture holds more than the crown.
	const std::string crownAlone = m_Game.Root("out/crown_alone.png");
	const CommandResult_t alone =
		Render("--model models/items/bramble/briar_crown/briar_crown.zmdl_c --size 320x320 --out " + crownAlone);
	ASSERT_EQ(alone.exitCode, 0) << alone.output;
	EXPECT_NE(Load(crownAlone), image);

	// A courier session, imported, shows the courier alone; --index past its models is an error.
	const CommandResult_t courier = RunCommand(MINTYARD + " import --game " + m_Game.Game("") + " " + m_Game.Session("courier"));
	ASSERT_EQ(courier.exitCode, 0) << courier.output;
	const std::string courierPicture = m_Game.Root("out/courier.png");
	const CommandResult_t drawn = Render("--session " + m_Game.Session("courier") + " --size 320x240 --out " + courierPicture);
	ASSERT_EQ(drawn.exitCode, 0) << drawn.output;
	const QImage courierImage = Load(courierPicture);
	EXPECT_GT(CountPixels(courierImage, 0.4, 0.35, 0.6, 0.65).m_nOrange, 100) << "the courier's coat is not in the middle";
	EXPECT_EQ(CountPixels(courierImage, 0.0, 0.0, 0.15, 0.2).m_nOther, 0);
	const CommandResult_t past = Render("--session " + m_Game.Session("courier") + " --index 9 --out " + courierPicture);
	EXPECT_EQ(past.exitCode, 1);
	EXPECT_NE(past.output.find("--index 9 is not one of them"), std::string::npos) << past.output;
}

TEST_F(PreviewRenderTest, ASessionNotImportedIsRefusedWithAMessage)
{
	const std::string out = m_Game.Root("out/ward.png");
	const CommandResult_t result = Render("--session " + m_Game.Session("ward") + " --out " + out);
	EXPECT_EQ(result.exitCode, 1) << result.output;
	EXPECT_NE(result.output.find("has not been imported"), std::string::npos) << result.output;
	EXPECT_NE(result.output.find("mintyard import"), std::string::npos) << result.output;
	EXPECT_FALSE(Plat_FileExists(out.c_str()));
}

TEST_F(PreviewRenderTest, ProblemsOfAMeshWithABorderAreRed)
{
	// Seen from the front, where the box is open.
	std::string output;
	EXPECT_EQ(CountPixels(DrawTestBox("open_box", TEST_BOX_OPEN, false), 0, 0, 1, 1).m_nRed, 0);
	EXPECT_GT(CountPixels(DrawTestBox("open_box", TEST_BOX_OPEN, true, &output), 0, 0, 1, 1).m_nRed, 100);
	EXPECT_NE(output.find("4 border edges, 0 non-manifold edges, 0 flipped faces"), std::string::npos) << output;

	// A closed box has nothing to show.
	EXPECT_EQ(CountPixels(DrawTestBox("closed_box", TEST_BOX_CLOSED, true, &output), 0, 0, 1, 1).m_nRed, 0);
	EXPECT_NE(output.find("0 border edges, 0 non-manifold edges, 0 flipped faces"), std::string::npos) << output;
}

TEST_F(PreviewRenderTest, AFlippedFaceIsTintedAndAFinsEdgesAreRed)
{
	// The front face wound the other way: the check stops at the first pair of neighbours that
	// disagree and reports both, and they are tinted red. Without --problems the front face is
	// culled, as the game would, and the upper left of the picture (above the grid's red axis)
	// shows the grid through it; with them, the tinted face.
	std::string output;
	EXPECT_EQ(CountPixels(DrawTestBox("flipped_box", TEST_BOX_FLIPPED, false), 0.25, 0.25, 0.45, 0.45).m_nReddish, 0);
	const PixelCounts_t front = CountPixels(DrawTestBox("flipped_box", TEST_BOX_FLIPPED, true, &output), 0.25, 0.25, 0.45, 0.45);
	EXPECT_NE(output.find("0 border edges, 0 non-manifold edges, 2 flipped faces"), std::string::npos) << output;
	EXPECT_GT(front.m_nReddish, front.m_nOther * 9 / 10) << "the front face is not tinted";

	// A fin on an edge of the front face: the edge it shares is non-manifold, its own two edges
	// are borders, all three drawn red; the front face beside the fin stays untinted.
	const QImage fin = DrawTestBox("fin_box", TEST_BOX_FIN, true, &output);
	EXPECT_NE(output.find("2 border edges, 1 non-manifold edges, 0 flipped faces"), std::string::npos) << output;
	EXPECT_GT(CountPixels(fin, 0, 0, 1, 1).m_nRed, 100);
	const PixelCounts_t beside = CountPixels(fin, 0.55, 0.55, 0.6, 0.65);
	EXPECT_GT(beside.m_nOther, 0);
	EXPECT_EQ(beside.m_nReddish, 0);
}

TEST_F(PreviewRenderTest, UsageErrorsAndNoDisplay)
{
	EXPECT_EQ(RunCommand(MINTYARD + " render --help").exitCode, 0);
	EXPECT_EQ(Render("--out x.png").exitCode, 2);
	EXPECT_EQ(Render("--model a --session b --out x.png").exitCode, 2);
	EXPECT_EQ(Render("--model a --out x.png --size 0x10").exitCode, 2);
	EXPECT_EQ(Render("--model a --out x.png --bogus").exitCode, 2);
	const CommandResult_t missing = Render("--model models/none.zmdl_c --out " + m_Game.Root("out/none.png"));
	EXPECT_EQ(missing.exitCode, 1) << missing.output;

	// A console with no display: a message that says what to do, no crash.
	const CommandResult_t console = RunCommand("env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM " + MINTYARD + " render --game " +
											   m_Game.Game("") + " --model models/heroes/bramble/bramble.zmdl_c --out " + m_Game.Root("out/c.png"));
	EXPECT_EQ(console.exitCode, 1) << console.output;
	EXPECT_NE(console.output.find("xvfb-run"), std::string::npos) << console.output;
	// The other subcommands still work there.
	EXPECT_EQ(RunCommand("env -u DISPLAY -u WAYLAND_DISPLAY " + MINTYARD + " templates --game " + m_Game.Game("")).exitCode, 0);
}

TEST_F(PreviewRenderTest, AWardAndAModelOfNoHeroStandAlone)
{
	for (const char *pszSession : { "ward", "bramble_thorn_volley" })
	{
		const CommandResult_t import = RunCommand(MINTYARD + " import --game " + m_Game.Game("") + " " + m_Game.Session(pszSession));
		ASSERT_EQ(import.exitCode, 0) << import.output;
		const std::string out = m_Game.Root(std::string("out/") + pszSession + ".png");
		const CommandResult_t result = Render("--session " + m_Game.Session(pszSession) + " --size 320x240 --out " + out);
		ASSERT_EQ(result.exitCode, 0) << result.output;
		const QImage image = Load(out);
		EXPECT_GT(CountPixels(image, 0.4, 0.35, 0.6, 0.65).m_nOther, 200) << pszSession;
		EXPECT_EQ(CountPixels(image, 0.0, 0.0, 0.12, 0.15).m_nOther, 0) << pszSession;
	}
}
