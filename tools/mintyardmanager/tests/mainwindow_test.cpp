#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QScreen>

#include <functional>
#include <memory>
#include <string>

#include <QAction>
#include <QApplication>
#include <QMenuBar>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QStatusBar>
#include <QTimer>
#include <QToolBar>

#include "core/keyvalues3.h"
#include "core/kv3text.h"
#include "testsupport/test_support.h"
#include "toolinprocess.h"
#include "mintyardmanager/createbdldialog.h"
#include "mintyardmanager/mainwindow.h"
#include "mintyardmanager/mintyardmanagertool.h"
#include "mintyardmanager/publishedfilebrowser.h"

namespace
{
// Answers the next modal box with OK, remembering its title and text.
struct ModalAnswer_t
{
	QString title;
	QString text;
	bool bSeen = false;
};

void AnswerNextModal(ModalAnswer_t *answer)
{
	QTimer::singleShot(10, [answer] {
		QWidget *modal = QApplication::activeModalWidget();
		QMessageBox *box = qobject_cast<QMessageBox *>(modal);
		if (!box)
		{
			AnswerNextModal(answer); // not up yet
			return;
		}
		answer->bSeen = true;
		answer->title = box->windowTitle();
		answer->text = box->text();
		box->done(QMessageBox::Ok);
	});
}

// Starts the tool in this process on a temporary game tree, as the host would.
class MainWindowTest : public testing::Test
{
protected:
	void SetUp() override
	{
		setenv("BRUME_SERVICE", "127.0.0.1:1", 1); // nothing answers there
		m_Temp.Write("game/zarn/resource/localization/mintyard_english.txt",
			"\"lang\" { \"Language\" \"English\" \"Tokens\" { \"#ZARN_Mintyard_CreateNewItem\" \"Create a new item\" } }\n");
		m_Temp.Write("content/zarn/readme.txt", "sources");
	}

	void TearDown() override { m_Tool.Stop(); }

	CMainWindow *Start(const std::vector<const char *> &options = {}, const std::string &savedSettings = "")
	{
		if (!savedSettings.empty())
			m_Temp.Write("settings/mintyardmanager.kv3", savedSettings);
		// The listing finds no service and says so.
		return m_Tool.Start(m_Temp.Path("game/zarn"), m_Temp.Path("settings"), options,
			"game:tools/images/mintyardmanager/mintyardmanager.png", [this] { AnswerNextModal(&m_StartBox); });
	}

	// Fills the browser with records as a listing would.
	void AddRecords(CMainWindow *window, int count)
	{
		CPublishedFileListModel &model = window->Browser()->Model();
		for (int i = 0; i < count; ++i)
		{
			model.insertRows(model.rowCount(), 1);
			PublishedFileInfo_t *record = new PublishedFileInfo_t;
			record->m_sTitle = "Submission " + std::to_string(i);
			record->m_hFile = 1000 + (uint64)i;
			record->m_nPublishedFileId = 77 + (uint64)i;
			model.SetRecord(model.rowCount() - 1, record);
		}
	}

	CTempDirectory m_Temp;
	CToolInProcess m_Tool;
	ModalAnswer_t m_StartBox;
};

QStringList ActionTexts(const QList<QAction *> &actions)
{
	QStringList texts;
	for (QAction *action : actions)
		texts << (action->isSeparator() ? QString("|") : action->text());
	return texts;
}
} // namespace

TEST_F(MainWindowTest, WithoutAServiceTheListingSaysSoAndNewGoesOff)
{
	CMainWindow *window = Start();
	ASSERT_NE(nullptr, window);
	EXPECT_TRUE(m_StartBox.bSeen);
	EXPECT_EQ("Error", m_StartBox.title);
	EXPECT_EQ("Could not find connection to Brume. Please make sure that Brume is running and that you are logged in. Restart the app to try again.",
		m_StartBox.text);
	EXPECT_FALSE(window->NewAction()->isEnabled());
	EXPECT_EQ(QKeySequence(QKeySequence::New), window->NewAction()->shortcut()); // the shortcut stays
	EXPECT_EQ("Ready", window->statusBar()->currentMessage());
	EXPECT_EQ("Mintyard Manager", window->windowTitle());
	EXPECT_TRUE(window->acceptDrops());
	EXPECT_TRUE(window->isVisible());
	EXPECT_TRUE(MintyardManagerTool()->IsViewLoaded());
	// Refreshing again leaves New off.
	ModalAnswer_t again;
	AnswerNextModal(&again);
	window->RefreshFileBrowser();
	EXPECT_TRUE(again.bSeen);
	EXPECT_FALSE(window->NewAction()->isEnabled());
}

TEST_F(MainWindowTest, ActionsStandInTheirToolbarAndMenus)
{
	CMainWindow *window = Start();
	QToolBar *toolbar = window->findChild<QToolBar *>("mintyard_top_toolbar");
	ASSERT_NE(nullptr, toolbar);
	EXPECT_EQ("Top", toolbar->windowTitle());
	EXPECT_EQ((QStringList{ "&New Submission", "|", "&Re-Upload", "&Edit Mintyard Info", "&View in Mintyard", "|", "&Delete Submission", "|",
				  "&Refresh View", "|", "Asset &Browser" }),
		ActionTexts(toolbar->actions()));
	const QList<QAction *> menus = window->menuBar()->actions();
	ASSERT_EQ(3, menus.size());
	EXPECT_EQ("&File", menus[0]->text());
	EXPECT_EQ((QStringList{ "&New Submission", "|", "Asset &Browser", "|", "E&xit" }), ActionTexts(menus[0]->menu()->actions()));
	EXPECT_EQ((QStringList{ "&Re-Upload", "&Edit Mintyard Info", "&View in Mintyard", "|", "&Delete Submission", "|", "&Refresh View" }),
		ActionTexts(menus[1]->menu()->actions()));
	EXPECT_EQ((QStringList{ "About Qt", "&About" }), ActionTexts(menus[2]->menu()->actions()));

	EXPECT_EQ(QKeySequence("Ctrl+U"), window->ReUploadAction()->shortcut());
	EXPECT_EQ("Upload a new version of an existing entry", window->ReUploadAction()->statusTip());
	EXPECT_EQ("View this submission on the Brume Mintyard website", window->ViewAction()->statusTip());
	EXPECT_FALSE(window->NewAction()->isIconVisibleInMenu());
	// The pack dialog's action exists and is connected, but nothing shows it.
	QAction *pack = window->CreatePackAction();
	EXPECT_EQ("&Create BDL", pack->text());
	EXPECT_EQ(QKeySequence("Ctrl+C"), pack->shortcut());
	EXPECT_TRUE(pack->associatedWidgets().isEmpty());
	// Row actions start off.
	for (QAction *action : { window->DeleteAction(), window->ReUploadAction(), window->EditAction(), window->ViewAction() })
		EXPECT_FALSE(action->isEnabled()) << action->text().toStdString();
	EXPECT_EQ(nullptr, window->findChild<QPushButton *>("mintyard_create_new_item")); // mode 0 has no big button
}

TEST_F(MainWindowTest, SelectionDecidesTheRowActionsAndTheStatusText)
{
	CMainWindow *window = Start();
	AddRecords(window, 3);
	CPublishedFileBrowser *browser = window->Browser();
	browser->selectRow(1);
	for (QAction *action : { window->DeleteAction(), window->ReUploadAction(), window->EditAction(), window->ViewAction() })
		EXPECT_TRUE(action->isEnabled()) << action->text().toStdString();
	EXPECT_EQ("Title: \"Submission 1\"\tFileID: 1001", window->statusBar()->currentMessage());

	// Two ranges: only Delete stays on.
	QItemSelection two;
	two.select(browser->model()->index(0, 0), browser->model()->index(0, 5));
	two.select(browser->model()->index(2, 0), browser->model()->index(2, 5));
	browser->selectionModel()->select(two, QItemSelectionModel::ClearAndSelect);
	EXPECT_TRUE(window->DeleteAction()->isEnabled());
	EXPECT_FALSE(window->ReUploadAction()->isEnabled());
	EXPECT_FALSE(window->EditAction()->isEnabled());
	EXPECT_FALSE(window->ViewAction()->isEnabled());
	EXPECT_EQ("Multiple selected", window->statusBar()->currentMessage());

	browser->clearSelection();
	EXPECT_FALSE(window->DeleteAction()->isEnabled());
	EXPECT_EQ("Ready", window->statusBar()->currentMessage());

	// A double click changes nothing.
	browser->selectRow(0);
	const QString before = window->statusBar()->currentMessage();
	emit browser->doubleClicked(browser->model()->index(0, 0));
	EXPECT_EQ(before, window->statusBar()->currentMessage());
	EXPECT_TRUE(window->EditAction()->isEnabled());
}

TEST_F(MainWindowTest, SmallSavedGeometryComesUpAtTheMinimumSize)
{
	QMainWindow shape;
	shape.resize(300, 200);
	const std::string settings = KV3HeaderLine(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC) + "\n{ geometry = \"" +
		shape.saveGeometry().toBase64().toStdString() + "\" other = 1 }\n";
	CMainWindow *window = Start({}, settings);
	EXPECT_EQ(640, window->width());
	EXPECT_EQ(360, window->height());
}

TEST_F(MainWindowTest, AFirstStartWithNothingSavedComesUpAtTwoThirdsOfTheScreenCentred)
{
	CMainWindow *window = Start({}, "");
	ASSERT_TRUE(window->isVisible());
	const QRect available = QGuiApplication::primaryScreen()->availableGeometry();
	EXPECT_EQ(window->width(), std::max(640, available.width() * 2 / 3));
	EXPECT_EQ(window->height(), std::max(360, available.height() * 2 / 3));
	const QPoint centre = window->frameGeometry().center();
	EXPECT_LE(std::abs(centre.x() - available.center().x()), std::max(2, (window->width() - available.width() * 2 / 3) / 2 + 2));
	EXPECT_LE(std::abs(centre.y() - available.center().y()), std::max(2, (window->height() - available.height() * 2 / 3) / 2 + 2));
}

TEST_F(MainWindowTest, ClosingSavesGeometryAndStateBesideTheOtherSettings)
{
	const std::string settings = KV3HeaderLine(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC) +
		"\n{ mintyard_import_dialog = { automation = true } }\n";
	CMainWindow *window = Start({}, settings);
	window->resize(900, 500);
	window->close();
	QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
	EXPECT_FALSE(MintyardManagerTool()->IsViewLoaded());

	CKeyValues3Context saved;
	CUtlString error;
	ASSERT_TRUE(LoadKV3FromFile(&saved, &error, m_Temp.Path("settings/mintyardmanager.kv3").c_str(), nullptr, KV3_FORMAT_GENERIC)) << error;
	const QByteArray geometry = QByteArray::fromBase64(GetMemberString(saved.Root(), "geometry"));
	EXPECT_FALSE(QByteArray::fromBase64(GetMemberString(saved.Root(), "state")).isEmpty());
	EXPECT_TRUE(GetMemberBool(FindMember(saved.Root(), "mintyard_import_dialog"), "automation"));
	QMainWindow restored;
	ASSERT_TRUE(restored.restoreGeometry(geometry));
	EXPECT_EQ(900, restored.width());
	EXPECT_EQ(500, restored.height());
}

TEST_F(MainWindowTest, ItemModeShowsTheBigNewButton)
{
	CMainWindow *window = Start({ "-mintyard_items" });
	EXPECT_EQ(MINTYARD_MODE_ZARN_ITEMS, MintyardManagerTool()->GetGameMode());
	QPushButton *button = window->findChild<QPushButton *>("mintyard_create_new_item");
	ASSERT_NE(nullptr, button);
	EXPECT_EQ("Create a new item", button->text());
	EXPECT_TRUE(button->isDefault());
	EXPECT_EQ(QSizePolicy::Minimum, button->sizePolicy().horizontalPolicy());
	EXPECT_TRUE(button->styleSheet().startsWith("QPushButton { \tbackground-color : rgb( 49, 69, 80 );"));
	EXPECT_TRUE(button->parentWidget()->autoFillBackground());
}

TEST_F(MainWindowTest, DeletingAsksFirstAndNoAnswersNothing)
{
	CMainWindow *window = Start();
	AddRecords(window, 1);
	window->Browser()->selectRow(0);
	QString question;
	QTimer::singleShot(10, [&] {
		QMessageBox *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
		ASSERT_NE(nullptr, box);
		question = box->windowTitle() + "|" + box->text();
		box->done(QMessageBox::No);
	});
	window->DeleteSubmissionSlot();
	EXPECT_TRUE(question.startsWith("Delete submission?|This will delete the submission from the mintyard"));
	EXPECT_EQ(1, window->Browser()->Model().rowCount());
}

TEST_F(MainWindowTest, CreateBDLOpensThePackWindowCentredOnTheMainWindow)
{
	CMainWindow *window = Start();
	window->move(100, 80);
	window->resize(1000, 700);
	window->BDLCreatorSlot();
	const QList<CCreateBDLDialog *> dialogs = window->findChildren<CCreateBDLDialog *>();
	ASSERT_EQ(1, dialogs.size());
	CCreateBDLDialog *dialog = dialogs.first();
	EXPECT_TRUE(dialog->isVisible());
	EXPECT_TRUE(dialog->isWindow());
	EXPECT_EQ(Qt::NonModal, dialog->windowModality());
	EXPECT_EQ(nullptr, QApplication::activeModalWidget());
	EXPECT_EQ("Untitled BDL File", dialog->windowTitle());
	EXPECT_EQ(window->pos().x() + window->width() / 2 - dialog->width() / 2, dialog->pos().x());
	EXPECT_EQ(window->pos().y() + window->height() / 2 - dialog->height() / 2, dialog->pos().y());
	// Closed, it stays a child of the window; the next request makes another one.
	EXPECT_TRUE(dialog->close());
	window->CreatePackAction()->trigger();
	EXPECT_EQ(2, window->findChildren<CCreateBDLDialog *>().size());
}
