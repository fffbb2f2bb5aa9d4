// The import log, the image previews (loading screen shapes, emoticon frames, the cursor pack's
// preview in the game) and the channel to a running game, with a listener of the test's own.
#include <gtest/gtest.h>

#include <thread>
#include <unistd.h>

#include <QLocalServer>
#include <QLocalSocket>
#include <QPushButton>
#include <QRadioButton>
#include <QSemaphore>
#include <QTextEdit>
#include <QThread>

#include "core/keyvalues.h"
#include "core/logging.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/core/templatecatalogue.h"
#include "mintyardtoolutils/pipeline/importdriver.h"
#include "mintyardtoolutils/wizard/gamechannel.h"
#include "mintyardtoolutils/wizard/gamemessage.h"
#include "mintyardtoolutils/wizard/imagepreview.h"
#include "mintyardtoolutils/wizard/importlogwidget.h"
#include "testsupport/test_images.h"
#include "wizardtestgame.h"

namespace
{
// Stands for a game: listens on a channel on a thread of its own and keeps the bytes of the
// first connection.
class CTestGameListener : public QThread
{
public:
	explicit CTestGameListener(const QString &name) : m_Name(name) {}

	// Starts and returns once the channel listens.
	bool Listen()
	{
		start();
		m_Ready.acquire();
		return m_bListening;
	}

	std::string m_Bytes;

protected:
	void run() override
	{
		QLocalServer::removeServer(m_Name);
		QLocalServer server;
		m_bListening = server.listen(m_Name);
		m_Ready.release();
		if (!m_bListening || !server.waitForNewConnection(10000))
			return;
		QLocalSocket *pSocket = server.nextPendingConnection();
		while (pSocket->state() == QLocalSocket::ConnectedState || pSocket->bytesAvailable() > 0)
		{
			if (pSocket->bytesAvailable() == 0 && !pSocket->waitForReadyRead(5000))
				break;
			m_Bytes += pSocket->readAll().toStdString();
		}
		m_Bytes += pSocket->readAll().toStdString();
	}

private:
	QString m_Name;
	QSemaphore m_Ready;
	bool m_bListening = false;
};

class PreviewTest : public testing::Test
{
protected:
	void SetUp() override
	{
		ImportMessageList list;
		ASSERT_TRUE(m_Session.GetCatalogue().LoadTemplates(list));
	}

	CWizardTestGame m_Game;
	CMintyardImportSession m_Session;
};
} // namespace

TEST(ImportLogTest, LinesBecomeRichTextInTheirColours)
{
	CQMintyardImportLogWidget log;
	log.LogMessage(MINTYARD_IMPORT_LOG_INFO, "one\ntwo\n");
	EXPECT_EQ("one<br>two<br>", log.Buffer());
	EXPECT_EQ(std::string::npos, log.Buffer().find('\n'));
	log.LogMessage(MINTYARD_IMPORT_LOG_WARNING, "careful");
	log.LogMessage(MINTYARD_IMPORT_LOG_ERROR, "broken <file>");
	EXPECT_NE(std::string::npos, log.Buffer().find("<font color='#ffff00'>careful</font>"));
	EXPECT_NE(std::string::npos, log.Buffer().find("<font color='#ff0000'>broken &lt;file&gt;</font>"));
	log.FlushToEdit();
	EXPECT_TRUE(log.Buffer().empty());
	EXPECT_EQ("one\ntwo\ncarefulbroken <file>", log.PlainText());
	EXPECT_TRUE(log.Edit()->isReadOnly());
	EXPECT_EQ(QTextEdit::NoWrap, log.Edit()->lineWrapMode());
	log.Clear();
	EXPECT_TRUE(log.PlainText().isEmpty());
}

TEST(ImportLogTest, TheCompilersLinesReachTheLogFromTheMainThreadOnly)
{
	CQMintyardImportLogWidget log;
	ImportMessageList list;
	list.SetLog(&log);
	{
		CImportLogMessageScopeGuard guard(list, "test");
		Log_Warning(LOG_GENERAL, "from the main thread\n");
		std::thread worker([] { Log_Warning(LOG_GENERAL, "from a worker\n"); });
		worker.join();
	}
	EXPECT_NE(std::string::npos, log.Buffer().find("<font color='#ffff00'>from the main thread<br></font>")) << log.Buffer();
	EXPECT_EQ(std::string::npos, log.Buffer().find("from a worker"));

	// A list without a log swallows nothing and writes nothing.
	ImportMessageList silent;
	{
		CCaptureLog capture;
		CImportLogMessageScopeGuard guard(silent, "quiet");
		Log_Msg(LOG_GENERAL, "nobody hears this\n");
	}
	EXPECT_EQ(0, silent.Count());
}

TEST(LoadingScreenTest, ShapesOfScreensCutTheSidesEqually)
{
	// At 16:9 nothing is cut, and the frame stands around the whole image.
	LoadingScreenLayout_t wide = ComputeLoadingScreenLayout(QSize(807, 457), 0);
	EXPECT_EQ(QRectF(4, 4, 800, 450), wide.m_Image);
	EXPECT_EQ(wide.m_Image, wide.m_Visible);
	EXPECT_TRUE(wide.m_LeftShade.isEmpty());
	EXPECT_TRUE(wide.m_RightShade.isEmpty());

	// At 4:3 the strips cover both sides, equally.
	LoadingScreenLayout_t square = ComputeLoadingScreenLayout(QSize(807, 457), 2);
	EXPECT_DOUBLE_EQ(600.0, square.m_Visible.width());
	EXPECT_DOUBLE_EQ(104.0, square.m_Visible.left());
	EXPECT_DOUBLE_EQ(square.m_LeftShade.width(), square.m_RightShade.width());
	EXPECT_DOUBLE_EQ(99.0, square.m_LeftShade.width());
	EXPECT_DOUBLE_EQ(4.0, square.m_LeftShade.left());
	EXPECT_DOUBLE_EQ(804.0, square.m_RightShade.right());

	// A tall widget: the width fills and the spare room is above and below.
	LoadingScreenLayout_t tall = ComputeLoadingScreenLayout(QSize(327, 807), 1);
	EXPECT_DOUBLE_EQ(320.0, tall.m_Image.width());
	EXPECT_DOUBLE_EQ(180.0, tall.m_Image.height());
	EXPECT_DOUBLE_EQ((800.0 - 180.0) / 2 + 4.0, tall.m_Image.top());
	EXPECT_DOUBLE_EQ(288.0, tall.m_Visible.width());
}

TEST_F(PreviewTest, EmoticonStripsPlayTenFramesASecond)
{
	const std::string strip = m_Game.WriteArt("strip.png", testimages::MakePng(320, 32));
	CQEmoticonPreview preview(nullptr, QString::fromStdString(strip));
	EXPECT_EQ(10, preview.FrameCount());
	EXPECT_EQ(0, preview.FrameAt(0));
	EXPECT_EQ(9, preview.FrameAt(999));
	EXPECT_EQ(0, preview.FrameAt(1000));
	EXPECT_EQ(3, preview.FrameAt(12345));
	CQEmoticonPreview narrow(nullptr, QString::fromStdString(m_Game.WriteArt("narrow.png", testimages::MakePng(20, 32))));
	EXPECT_EQ(0, narrow.FrameCount());
	EXPECT_EQ(-1, narrow.FrameAt(500));
	narrow.grab(); // paints black, without frames
}

TEST_F(PreviewTest, ThePageFollowsTheTypeOfTheFirstImageSet)
{
	CQImportImagePreview page;
	m_Session.SetTemplate(m_Session.GetCatalogue().FindTemplate("emoticons"));
	m_Session.m_ImageSets[0]->m_Emoticons[0]->m_pImage->SetValue(m_Game.WriteArt("a.png", testimages::MakePng(64, 32)).c_str());
	page.AttachSession(&m_Session);
	ASSERT_EQ(1, (int)page.Children().size()); // the second emoticon has no image
	EXPECT_EQ(2, static_cast<CQEmoticonPreview *>(page.Children()[0])->FrameCount());

	CMintyardImportSession screen;
	ImportMessageList list;
	screen.GetCatalogue().LoadTemplates(list);
	screen.SetTemplate(screen.GetCatalogue().FindTemplate("loading_screen"));
	screen.m_ImageSets[0]->m_Images[0]->SetValue(m_Game.WriteArt("screen.png", testimages::MakePng(160, 90)).c_str());
	page.AttachSession(&screen);
	ASSERT_EQ(1, (int)page.Children().size());
	CQImportLoadingScreenPreview *pScreen = dynamic_cast<CQImportLoadingScreenPreview *>(page.Children()[0]);
	ASSERT_NE(nullptr, pScreen);
	EXPECT_EQ(QSize(160, 90), pScreen->Preview()->Pixmap().size());
	EXPECT_TRUE(pScreen->RadioButton(0)->isChecked());
	pScreen->RadioButton(2)->setChecked(true);
	EXPECT_EQ(2, pScreen->Preview()->AspectRatioIndex());
	EXPECT_EQ("4:3", pScreen->RadioButton(2)->text());

	// Marketing images have no preview: the page stays empty.
	CMintyardImportSession marketing;
	marketing.GetCatalogue().LoadTemplates(list);
	marketing.SetTemplate(marketing.GetCatalogue().FindTemplate("marketing_images"));
	page.AttachSession(&marketing);
	EXPECT_TRUE(page.Children().empty());
	page.AttachSession(nullptr);
}

TEST_F(PreviewTest, PreviewInGameSendsTheTestItemToTheListeningGame)
{
	m_Session.SetTemplate(m_Session.GetCatalogue().FindTemplate("cursor_pack"));
	m_Session.GetNameElement()->SetValue("my_cursors");
	// A game folder of this test's own, so that its channel is not shared with another run.
	const std::string mod = "zarn_" + std::to_string(getpid());
	m_Session.SetSearchPaths(m_Game.Root("game/" + mod).c_str(), m_Game.Content("").c_str());
	const QString channel = MintyardGameChannelName(QString::fromStdString(m_Game.Root("game/" + mod + "/")));
	EXPECT_EQ(QString::fromStdString("mintyard-game-" + mod), channel);

	CQImportImagePreview page;
	page.AttachSession(&m_Session);
	ASSERT_EQ(1, (int)page.Children().size());
	QPushButton *pButton = qobject_cast<QPushButton *>(page.Children()[0]);
	ASSERT_NE(nullptr, pButton);
	EXPECT_EQ("Preview in Game", pButton->text());

	CTestGameListener listener(channel);
	ASSERT_TRUE(listener.Listen());
	pButton->click();
	ASSERT_TRUE(listener.wait(15000));
	EXPECT_TRUE(page.LastPreviewMessage().isEmpty()) << page.LastPreviewMessage().toStdString();
	EXPECT_TRUE(m_Game.m_Messages.empty());

	size_t nConsumed = 0;
	MintyardGameMessage_t message;
	CUtlString error;
	ASSERT_EQ(MINTYARD_GAME_MESSAGE_COMPLETE, DecodeMintyardGameMessage(listener.m_Bytes, nConsumed, message, error)) << error;
	EXPECT_EQ(listener.m_Bytes.size(), nConsumed);
	EXPECT_TRUE(message.m_bFlag);
	EXPECT_STREQ("Mintyard Test Items", message.m_pTree->GetName());
	KeyValues *pItem = message.m_pTree->FindKey("ItemSlotAny");
	ASSERT_NE(nullptr, pItem);
	EXPECT_EQ(1, pItem->GetInt("test_existing_item"));
	EXPECT_EQ(900000, pItem->GetInt("item_def"));
	EXPECT_STREQ("new_test_item", pItem->GetString("name"));
	// The record keeps its own name.
	EXPECT_TRUE(m_Session.m_ItemDefs[0]->m_ItemName.empty());
}

TEST_F(PreviewTest, WithNoGameListeningThePageSaysSo)
{
	m_Session.SetTemplate(m_Session.GetCatalogue().FindTemplate("cursor_pack"));
	m_Session.GetNameElement()->SetValue("my_cursors");
	const std::string mod = "nobody_" + std::to_string(getpid());
	m_Session.SetSearchPaths(m_Game.Root("game/" + mod).c_str(), m_Game.Content("").c_str());
	CQImportImagePreview page;
	page.AttachSession(&m_Session);
	page.OnPreviewInGame();
	ASSERT_EQ(1u, m_Game.m_Messages.size());
	EXPECT_EQ("Preview in Game", m_Game.m_Messages[0].m_Title);
	EXPECT_TRUE(m_Game.m_Messages[0].m_Text.contains(QString::fromStdString("mintyard-game-" + mod))) << m_Game.m_Messages[0].m_Text.toStdString();
	EXPECT_FALSE(page.LastPreviewMessage().isEmpty());

	// Without exactly one item record nothing is sent and nothing is asked.
	m_Game.m_Messages.clear();
	CMintyardImportSession contract;
	ImportMessageList list;
	contract.GetCatalogue().LoadTemplates(list);
	contract.SetTemplate(contract.GetCatalogue().FindTemplate("contract_only"));
	page.AttachSession(&contract);
	page.OnPreviewInGame();
	EXPECT_TRUE(m_Game.m_Messages.empty());
	EXPECT_EQ("Import session item def count != 1", page.LastPreviewMessage());
}

TEST(GameMessageTest, MessagesRoundTripAndBadBytesAreRefusedWithTheirOffset)
{
	KeyValues tree("Mintyard Test Items");
	KeyValues *pItem = tree.AddKey("ItemSlotAny");
	pItem->SetString("name", "quote \" and tab\t");
	pItem->SetInt("item_def", 900000);
	const std::string bytes = EncodeMintyardGameMessage(&tree, false);
	size_t nConsumed = 0;
	MintyardGameMessage_t message;
	CUtlString error;
	// Every prefix is incomplete, never bad.
	for (size_t n = 0; n < bytes.size(); n += 7)
		EXPECT_EQ(MINTYARD_GAME_MESSAGE_INCOMPLETE, DecodeMintyardGameMessage(std::string_view(bytes).substr(0, n), nConsumed, message, error)) << n;
	const std::string two = bytes + bytes;
	ASSERT_EQ(MINTYARD_GAME_MESSAGE_COMPLETE, DecodeMintyardGameMessage(two, nConsumed, message, error)) << error;
	EXPECT_EQ(bytes.size(), nConsumed);
	EXPECT_FALSE(message.m_bFlag);
	EXPECT_STREQ("quote \" and tab\t", message.m_pTree->FindKey("ItemSlotAny")->GetString("name"));

	std::string huge = bytes;
	huge[0] = '\x7f';
	EXPECT_EQ(MINTYARD_GAME_MESSAGE_BAD, DecodeMintyardGameMessage(huge, nConsumed, message, error));
	EXPECT_NE(std::string::npos, error.find("offset 0"));
	std::string wrong = bytes;
	wrong[4] = 'X';
	EXPECT_EQ(MINTYARD_GAME_MESSAGE_BAD, DecodeMintyardGameMessage(wrong, nConsumed, message, error));
	EXPECT_NE(std::string::npos, error.find("offset 4"));
	std::string flag = bytes;
	flag[4 + strlen("mintyard_game_message 1 flag=")] = '7';
	EXPECT_EQ(MINTYARD_GAME_MESSAGE_BAD, DecodeMintyardGameMessage(flag, nConsumed, message, error));
	std::string text = EncodeMintyardGameMessage(nullptr, true);
	text += "{";
	text[3] = (char)(text.size() - 4);
	EXPECT_EQ(MINTYARD_GAME_MESSAGE_BAD, DecodeMintyardGameMessage(text, nConsumed, message, error));
	EXPECT_NE(std::string::npos, error.find("tree cannot be read")) << error;
	EXPECT_EQ(0u, nConsumed);
}
