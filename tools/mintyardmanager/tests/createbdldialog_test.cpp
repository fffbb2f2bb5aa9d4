#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <functional>
#include <memory>
#include <string>

#include <QAction>
#include <QApplication>
#include <QContextMenuEvent>
#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QFileIconProvider>
#include <QHeaderView>
#include <QImage>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMetaMethod>
#include <QMessageBox>
#include <QProgressDialog>
#include <QPushButton>
#include <QStatusBar>
#include <QTimer>
#include <QToolBar>
#include <QTreeView>
#include <QUrl>

#include "testsupport/test_support.h"
#include "mintyardmanager/createbdldialog.h"
#include "mintyardmanager/filelistmodel.h"
#include "mintyardmanager/resources.h"
#include "toolframework/toolframework.h"

// Readable failures for Qt strings.
void PrintTo(const QString &text, std::ostream *out)
{
	*out << '"' << text.toStdString() << '"';
}
void PrintTo(const QStringList &list, std::ostream *out)
{
	*out << '[' << list.join(", ").toStdString() << ']';
}

namespace
{
// Waits for a modal widget of type T and hands it to `answer`. The polling stops once the
// returned flag is cleared (done by the guard at the end of each test) or after one answer.
struct ModalWatch_t
{
	std::shared_ptr<bool> m_pActive = std::make_shared<bool>(true);
	~ModalWatch_t() { *m_pActive = false; }
};

template <typename T>
void WhenModal(const ModalWatch_t &watch, std::function<void(T *)> answer)
{
	std::shared_ptr<bool> active = watch.m_pActive;
	QTimer::singleShot(10, [active, answer, &watch] {
		if (!*active)
			return;
		T *widget = qobject_cast<T *>(QApplication::activeModalWidget());
		if (!widget || !widget->isVisible())
		{
			WhenModal<T>(watch, answer); // not up yet
			return;
		}
		answer(widget);
	});
}

// What a message box said, and the button the test pressed.
struct BoxSeen_t
{
	bool bSeen = false;
	QMessageBox::Icon icon = QMessageBox::NoIcon;
	QString title, text, informative, detailed;
	QStringList buttons;
};

void AnswerBox(const ModalWatch_t &watch, BoxSeen_t *seen, QMessageBox::StandardButton press, std::function<void()> then = {},
	const QString &pressText = QString())
{
	WhenModal<QMessageBox>(watch, [seen, press, then, pressText](QMessageBox *box) {
		if (then)
			then(); // the next watch starts before this box goes
		seen->bSeen = true;
		seen->icon = box->icon();
		seen->title = box->windowTitle();
		seen->text = box->text();
		seen->informative = box->informativeText();
		seen->detailed = box->detailedText();
		for (QAbstractButton *button : box->buttons())
			seen->buttons << button->text();
		QAbstractButton *button = box->button(press);
		for (QAbstractButton *other : box->buttons())
		{
			if (!pressText.isEmpty() && other->text() == pressText)
				button = other;
		}
		if (button)
			button->click();
		else
			box->done(press);
	});
}

// Answers the next file dialog with `path`, remembering its title.
void AnswerFileDialog(const ModalWatch_t &watch, const QString &path, QString *title = nullptr, QString *directory = nullptr)
{
	WhenModal<QFileDialog>(watch, [path, title, directory](QFileDialog *dialog) {
		if (title)
			*title = dialog->windowTitle();
		if (directory)
			*directory = dialog->directory().absolutePath();
		// Typed as the user would: selectFile leaves a focused name field as it is.
		if (QLineEdit *edit = dialog->findChild<QLineEdit *>("fileNameEdit"))
			edit->setText(path);
		else
			dialog->selectFile(path);
		QMetaObject::invokeMethod(dialog, "accept");
	});
}

// Catches what the dialog hands to the desktop for "file" addresses.
class CUrlCatcher : public QObject
{
	Q_OBJECT
public:
	CUrlCatcher() { QDesktopServices::setUrlHandler("file", this, "Open"); }
	~CUrlCatcher() override { QDesktopServices::unsetUrlHandler("file"); }
	QStringList m_Opened;
public slots:
	void Open(const QUrl &url) { m_Opened << url.toString(); }
};

std::string ReadFile(const char *path)
{
	std::ifstream in(path, std::ios::binary);
	return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

QStringList ActionTexts(const QList<QAction *> &actions)
{
	QStringList texts;
	for (QAction *action : actions)
		texts << (action->isSeparator() ? QString("|") : action->text());
	return texts;
}

QStringList Names(const QAbstractItemModel &model, const QModelIndex &parent = QModelIndex())
{
	QStringList names;
	for (int row = 0; row < model.rowCount(parent); ++row)
		names << model.index(row, 0, parent).data().toString();
	return names;
}

// Every test runs in a fresh working directory that holds the packer as "bin/bdl".
class CreateBDLTest : public testing::Test
{
protected:
	void SetUp() override
	{
		char previous[4096];
		ASSERT_NE(nullptr, getcwd(previous, sizeof(previous)));
		m_PreviousDir = previous;
		m_Work = m_Temp.Path("work");
		std::filesystem::create_directories(m_Work + "/bin");
		std::filesystem::create_symlink(MINTYARD_BINARY_DIR "/bin/bdl", m_Work + "/bin/bdl");
		ASSERT_EQ(0, chdir(m_Work.c_str()));
	}

	void TearDown() override
	{
		EXPECT_EQ(0, chdir(m_PreviousDir.c_str()));
	}

	// Writes a file of `size` bytes under the working directory; returns its absolute path.
	QString MakeFile(const std::string &relative, size_t size, char fill = 'x')
	{
		return QString::fromStdString(m_Temp.Write("work/" + relative, std::string(size, fill)));
	}

	CTempDirectory m_Temp;
	std::string m_PreviousDir;
	std::string m_Work;
	ModalWatch_t m_Watch;
};
} // namespace

// -------------------------------------------------------------------------------------------
// The file tree

TEST_F(CreateBDLTest, AnEmptyModelHasThreeHeadedColumns)
{
	CFileListModel model;
	EXPECT_TRUE(model.IsEmpty());
	EXPECT_EQ(0, model.rowCount());
	EXPECT_EQ(3, model.columnCount());
	EXPECT_EQ("Name", model.headerData(0, Qt::Horizontal).toString());
	EXPECT_EQ("Type", model.headerData(1, Qt::Horizontal).toString());
	EXPECT_EQ("Size", model.headerData(2, Qt::Horizontal).toString());
	EXPECT_TRUE(model.CollectFiles().isEmpty());
}

TEST_F(CreateBDLTest, AddingBuildsFoldersSortedWithoutCaseAndFillsTheColumns)
{
	const QString b = MakeFile("sub/B.txt", 10);
	const QString a = MakeFile("sub/a.txt", 2000);
	const QString zeta = MakeFile("Zeta.dat", 3 * 1024 * 1024);
	const QString alpha = MakeFile("alpha.txt", 1);
	const QString deep = MakeFile("sub/deeper/c.bin", 1024);

	CFileListModel model;
	for (const QString &path : { b, zeta, a, deep, alpha })
		EXPECT_TRUE(model.AddPath(path)) << path.toStdString();
	EXPECT_FALSE(model.IsEmpty());
	EXPECT_EQ("work", model.headerData(0, Qt::Horizontal).toString()); // the current directory's name
	EXPECT_EQ("work", model.RootItem()->FullPath());

	EXPECT_EQ((QStringList{ "alpha.txt", "sub", "Zeta.dat" }), Names(model));
	const QModelIndex sub = model.index(1, 0);
	EXPECT_EQ((QStringList{ "a.txt", "B.txt", "deeper" }), Names(model, sub));
	EXPECT_EQ("File Folder", model.index(1, 1).data().toString());
	EXPECT_EQ("3 Items", model.index(1, 2).data().toString());
	const QModelIndex deeper = model.index(2, 0, sub);
	EXPECT_EQ("1 Item", model.index(2, 2, sub).data().toString());
	EXPECT_EQ(sub, deeper.parent());

	// Files: the provider's type, the formatted size, an icon in the first column only.
	QFileIconProvider provider;
	EXPECT_EQ(provider.type(QFileInfo(a)), model.index(0, 1, sub).data().toString());
	EXPECT_EQ("1.95 KB", model.index(0, 2, sub).data().toString());
	EXPECT_EQ("10 Bytes", model.index(1, 2, sub).data().toString());
	EXPECT_EQ("1 Bytes", model.index(0, 2).data().toString());
	EXPECT_EQ("3.00 MB", model.index(2, 2).data().toString());
	EXPECT_EQ("1.00 KB", model.index(0, 2, deeper).data().toString());
	EXPECT_FALSE(model.index(0, 0, sub).data(Qt::DecorationRole).value<QIcon>().isNull());
	EXPECT_FALSE(model.index(1, 0).data(Qt::DecorationRole).value<QIcon>().isNull());
	EXPECT_FALSE(model.index(0, 1, sub).data(Qt::DecorationRole).isValid());

	const CFileListItem *item = model.ItemFromIndex(model.index(0, 0, deeper));
	EXPECT_TRUE(item->IsFile());
	EXPECT_EQ(deep, item->FullPath());
	EXPECT_EQ(3, item->Depth());
	const CFileListItem *folder = model.ItemFromIndex(sub);
	EXPECT_FALSE(folder->IsFile());
	EXPECT_EQ(QString::fromStdString(m_Work) + "/sub", folder->FullPath());
	EXPECT_EQ(1, folder->Depth());

	// Every file, depth first in the tree's order, not in the order of adding.
	EXPECT_EQ((QStringList{ alpha, a, b, deep, zeta }), model.CollectFiles());
}

TEST_F(CreateBDLTest, TheSameFileTwiceMakesOneRow)
{
	const QString file = MakeFile("dir/one.txt", 5);
	CFileListModel model;
	EXPECT_TRUE(model.AddPath(file));
	EXPECT_TRUE(model.AddPath("dir/one.txt"));	   // relative to the current directory
	EXPECT_TRUE(model.AddPath("./dir/../dir/one.txt")); // not cleaned by the caller
	EXPECT_EQ(1, model.rowCount());
	EXPECT_EQ(1, model.rowCount(model.index(0, 0)));
	EXPECT_EQ("1 Item", model.index(0, 2).data().toString());
	EXPECT_EQ(QStringList{ file }, model.CollectFiles());
}

TEST_F(CreateBDLTest, NamesThatDifferOnlyInCaseShareTheirRow)
{
	const QString lower = MakeFile("Folder/x.txt", 1);
	const QString upper = MakeFile("FOLDER/y.txt", 2);
	CFileListModel model;
	EXPECT_TRUE(model.AddPath(lower));
	EXPECT_TRUE(model.AddPath(upper));
	EXPECT_EQ(QStringList{ "Folder" }, Names(model));
	EXPECT_EQ((QStringList{ "x.txt", "y.txt" }), Names(model, model.index(0, 0)));
}

TEST_F(CreateBDLTest, PathsThatAreNoFilesAddNothing)
{
	MakeFile("real/file.txt", 3);
	CFileListModel model;
	EXPECT_FALSE(model.AddPath(""));
	EXPECT_FALSE(model.AddPath("missing_folder/file.txt"));
	EXPECT_FALSE(model.AddPath("real/missing.txt"));
	EXPECT_FALSE(model.AddPath("real")); // a folder is not a file
	EXPECT_FALSE(model.AddPath(QString::fromStdString(m_Work)));
	EXPECT_TRUE(model.IsEmpty());
	EXPECT_EQ(0, model.rowCount());
	EXPECT_EQ("Name", model.headerData(0, Qt::Horizontal).toString());
}

TEST_F(CreateBDLTest, APieceWithAColonIsADrive)
{
	const QString file = MakeFile("D:/data/file.txt", 4);
	CFileListModel model;
	ASSERT_TRUE(model.AddPath(file));
	EXPECT_EQ(QStringList{ "D:" }, Names(model));
	EXPECT_EQ("Drive", model.index(0, 1).data().toString());
	EXPECT_EQ("File Folder", model.index(0, 1, model.index(0, 0)).data().toString());
}

TEST_F(CreateBDLTest, AFileOutsideTheCurrentDirectoryKeepsARowPerComponent)
{
	// m_Temp/outside/pack/me.txt, seen from m_Temp/work: "outside", "pack", "me.txt".
	const std::string outside = m_Temp.Write("outside/pack/me.txt", "abc");
	EXPECT_EQ("outside/pack/me.txt", CFileListModel::MakeTreePath(QString::fromStdString(outside)));
	EXPECT_EQ("sub/a.txt", CFileListModel::MakeTreePath(QString::fromStdString(m_Work + "/sub/a.txt")));
	CFileListModel model;
	ASSERT_TRUE(model.AddPath(QString::fromStdString(outside)));
	EXPECT_EQ(QStringList{ "outside" }, Names(model));
	EXPECT_EQ(QStringList{ QString::fromStdString(outside) }, model.CollectFiles());
}

TEST_F(CreateBDLTest, RemovingTheLastRowEmptiesTheModelAndTheNextAddNamesTheRootAgain)
{
	const QString file = MakeFile("f/g.txt", 4);
	CFileListModel model;
	ASSERT_TRUE(model.AddPath(file));
	// Removing the file leaves its folder, now empty and coloured.
	const QModelIndex folder = model.index(0, 0);
	EXPECT_FALSE(folder.data(Qt::BackgroundRole).isValid());
	ASSERT_TRUE(model.removeRows(0, 1, folder));
	model.UpdateItemCount(folder);
	EXPECT_EQ("0 Items", model.index(0, 2).data().toString());
	EXPECT_EQ(CFileListModel::EmptyFolderColor(), folder.data(Qt::BackgroundRole).value<QColor>());
	EXPECT_EQ(CFileListModel::EmptyFolderColor(), model.index(0, 1).data(Qt::BackgroundRole).value<QColor>());
	EXPECT_FALSE(model.IsEmpty());

	ASSERT_TRUE(model.removeRows(0, 1));
	EXPECT_TRUE(model.IsEmpty());
	EXPECT_FALSE(model.removeRows(0, 1)); // nothing left to remove

	ASSERT_TRUE(model.setHeaderData(0, Qt::Horizontal, "renamed"));
	EXPECT_EQ("renamed", model.headerData(0, Qt::Horizontal).toString());
	ASSERT_TRUE(model.AddPath(file));
	EXPECT_EQ("work", model.headerData(0, Qt::Horizontal).toString());
	EXPECT_EQ(QStringList{ file }, model.CollectFiles());
}

TEST_F(CreateBDLTest, OnlyTheEditRoleChangesData)
{
	const QString file = MakeFile("x.txt", 4);
	CFileListModel model;
	ASSERT_TRUE(model.AddPath(file));
	const QModelIndex name = model.index(0, 0);
	EXPECT_FALSE(model.setData(name, "other", Qt::DisplayRole));
	EXPECT_FALSE(model.setHeaderData(1, Qt::Horizontal, "other", Qt::DisplayRole));
	EXPECT_EQ("x.txt", name.data().toString());
	EXPECT_EQ("Type", model.headerData(1, Qt::Horizontal).toString());
	EXPECT_TRUE(model.setData(name, "other", Qt::EditRole));
	EXPECT_EQ("other", name.data().toString());
	EXPECT_FALSE(model.flags(name) & Qt::ItemIsEditable);
	EXPECT_FALSE(model.index(5, 0).isValid());
	EXPECT_FALSE(model.index(0, 3).isValid());
}

// -------------------------------------------------------------------------------------------
// The window

TEST_F(CreateBDLTest, TheWindowStartsWithItsActionsMenusAndToolbar)
{
	CCreateBDLDialog dialog;
	EXPECT_EQ("Untitled BDL File", dialog.windowTitle());
	EXPECT_EQ(QSize(800, 600), dialog.minimumSize());
	EXPECT_EQ("Ready", dialog.statusBar()->currentMessage());
	EXPECT_EQ(QDir::currentPath(), dialog.LastDir());
	EXPECT_FALSE(dialog.IsModified());
	EXPECT_FALSE(dialog.testAttribute(Qt::WA_DeleteOnClose));

	QTreeView *view = dialog.TreeView();
	EXPECT_EQ(&dialog.Model(), view->model());
	EXPECT_FALSE(view->header()->stretchLastSection());
	EXPECT_EQ(QHeaderView::Stretch, view->header()->sectionResizeMode(0));
	EXPECT_EQ(QHeaderView::Fixed, view->header()->sectionResizeMode(1));
	EXPECT_EQ(QHeaderView::Fixed, view->header()->sectionResizeMode(2));
	EXPECT_EQ(QAbstractItemView::ExtendedSelection, view->selectionMode());
	EXPECT_EQ(QAbstractItemView::SelectRows, view->selectionBehavior());
	EXPECT_TRUE(view->uniformRowHeights());

	const QList<QAction *> menus = dialog.menuBar()->actions();
	ASSERT_EQ(3, menus.size());
	EXPECT_EQ("&File", menus[0]->text());
	EXPECT_EQ((QStringList{ "&New BDL", "&Open BDL", "|", "Add File", "Add Folder", "|", "&Save", "Save As", "|", "&Close BDL", "|", "E&xit" }),
		ActionTexts(menus[0]->menu()->actions()));
	EXPECT_EQ("&Edit", menus[1]->text());
	EXPECT_EQ((QStringList{ "&LaunchFile", "&ShowInExplorer", "|", "&Remove", "|", "&Find", "|", "Select All", "Invert Selection", "|",
				  "Expand All", "Collapse All", "|", "Options" }),
		ActionTexts(menus[1]->menu()->actions()));
	EXPECT_EQ("&Help", menus[2]->text());
	EXPECT_EQ(QStringList{ "&About" }, ActionTexts(menus[2]->menu()->actions()));

	QToolBar *toolbar = dialog.findChild<QToolBar *>("createbdl_top_toolbar");
	ASSERT_NE(nullptr, toolbar);
	EXPECT_EQ("Top", toolbar->windowTitle());
	EXPECT_EQ((QStringList{ "Add File", "Add Folder", "|", "&Remove", "|", "&Save", "|", "&LaunchFile", "&ShowInExplorer", "|", "Expand All",
				  "Collapse All", "|", "Options", "|", "&Find" }),
		ActionTexts(toolbar->actions()));

	EXPECT_EQ(QKeySequence(QKeySequence::New), dialog.NewAction()->shortcut());
	EXPECT_EQ(QKeySequence("Alt+F4"), dialog.ExitAction()->shortcut());
	EXPECT_EQ("Exit the BDL manager", dialog.ExitAction()->statusTip());
	EXPECT_EQ(QKeySequence(QKeySequence::Save), dialog.SaveAction()->shortcut());
	EXPECT_EQ(QKeySequence("Ctrl+Shift+S"), dialog.SaveAsAction()->shortcut());
	EXPECT_EQ("Save the BDL", dialog.SaveAsAction()->statusTip());
	EXPECT_EQ(QKeySequence("Ctrl+J"), dialog.AddFileAction()->shortcut());
	EXPECT_EQ("Add file(s) to the BDL", dialog.AddFileAction()->statusTip());
	EXPECT_EQ(QKeySequence("Ctrl+K"), dialog.AddFolderAction()->shortcut());
	EXPECT_EQ(QKeySequence(QKeySequence::Delete), dialog.RemoveAction()->shortcut());
	EXPECT_EQ(QKeySequence("F6"), dialog.LaunchAction()->shortcut());
	EXPECT_EQ(QKeySequence("Ctrl+E"), dialog.ShowAction()->shortcut());
	EXPECT_EQ("Show the file/folder in explorer", dialog.ShowAction()->statusTip());
	EXPECT_EQ(QKeySequence("Ctrl+P"), dialog.OptionsAction()->shortcut());
	EXPECT_EQ(QKeySequence(QKeySequence::StandardKey(22)), dialog.FindAction()->shortcut());
	EXPECT_EQ(QKeySequence(QKeySequence::StandardKey(26)), dialog.SelectAllAction()->shortcut());
	EXPECT_EQ("Select all the files", dialog.InvertAction()->statusTip());
	EXPECT_EQ(QKeySequence("Ctrl+I"), dialog.InvertAction()->shortcut());
	EXPECT_EQ(QKeySequence("Ctrl+-"), dialog.CollapseAction()->shortcut());
	EXPECT_EQ(QKeySequence("Ctrl++"), dialog.ExpandAction()->shortcut());
	EXPECT_EQ("Expands all the nodes in the tree view", dialog.ExpandAction()->statusTip());
	for (QAction *action : { dialog.SaveAction(), dialog.AddFileAction(), dialog.RemoveAction(), dialog.FindAction(), dialog.AboutAction() })
		EXPECT_FALSE(action->icon().isNull()) << action->text().toStdString();

	EXPECT_FALSE(dialog.RemoveAction()->isEnabled());
	EXPECT_FALSE(dialog.LaunchAction()->isEnabled());
	EXPECT_FALSE(dialog.ShowAction()->isEnabled());
	EXPECT_TRUE(dialog.AddFileAction()->isEnabled());
}

namespace
{
QStringList s_Warnings;
void CollectWarnings(QtMsgType type, const QMessageLogContext &, const QString &message)
{
	if (type == QtWarningMsg)
		s_Warnings << message;
}
} // namespace

TEST_F(CreateBDLTest, NewIsConnectedToASlotThatDoesNotExist)
{
	s_Warnings.clear();
	QtMessageHandler previous = qInstallMessageHandler(CollectWarnings);
	std::unique_ptr<CCreateBDLDialog> dialog = std::make_unique<CCreateBDLDialog>();
	qInstallMessageHandler(previous);
	bool bFound = false;
	for (const QString &warning : s_Warnings)
		bFound = bFound || (warning.contains("No such slot") && warning.contains("NewBDLSlot()"));
	EXPECT_TRUE(bFound) << s_Warnings.join("\n").toStdString();
	// Every other action is connected.
	EXPECT_EQ(1, s_Warnings.filter("No such slot").size()) << s_Warnings.join("\n").toStdString();

	const QString file = MakeFile("kept.txt", 3);
	ASSERT_TRUE(dialog->AddPath(file));
	dialog->NewAction()->trigger();
	EXPECT_EQ(QStringList{ file }, dialog->Model().CollectFiles());
}

TEST_F(CreateBDLTest, SelectionDecidesRemoveLaunchAndShow)
{
	CCreateBDLDialog dialog;
	dialog.AddPath(MakeFile("folder/one.txt", 1));
	dialog.AddPath(MakeFile("two.txt", 2));
	QItemSelectionModel *selection = dialog.TreeView()->selectionModel();
	CFileListModel &model = dialog.Model();

	selection->select(model.index(1, 0), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
	EXPECT_TRUE(dialog.RemoveAction()->isEnabled());
	EXPECT_TRUE(dialog.ShowAction()->isEnabled());
	EXPECT_TRUE(dialog.LaunchAction()->isEnabled());

	selection->select(model.index(0, 0), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
	EXPECT_TRUE(dialog.RemoveAction()->isEnabled());
	EXPECT_TRUE(dialog.ShowAction()->isEnabled());
	EXPECT_FALSE(dialog.LaunchAction()->isEnabled()); // a folder

	selection->select(model.index(1, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
	EXPECT_TRUE(dialog.RemoveAction()->isEnabled());
	EXPECT_FALSE(dialog.ShowAction()->isEnabled());
	EXPECT_FALSE(dialog.LaunchAction()->isEnabled());

	selection->clearSelection();
	EXPECT_FALSE(dialog.RemoveAction()->isEnabled());
	EXPECT_FALSE(dialog.ShowAction()->isEnabled());
	EXPECT_FALSE(dialog.LaunchAction()->isEnabled());
}

TEST_F(CreateBDLTest, RemoveTakesEverySelectedRangeAndUpdatesTheCounts)
{
	CCreateBDLDialog dialog;
	const QString keep = MakeFile("dir/b.txt", 1);
	for (const char *name : { "dir/a.txt", "dir/c.txt", "dir/d.txt", "top.txt" })
		dialog.AddPath(MakeFile(name, 1));
	dialog.AddPath(keep);
	CFileListModel &model = dialog.Model();
	const QModelIndex dir = model.index(0, 0);
	ASSERT_EQ((QStringList{ "a.txt", "b.txt", "c.txt", "d.txt" }), Names(model, dir));
	EXPECT_EQ("4 Items", model.index(0, 2).data().toString());

	// a, c and d in two ranges, selected in an order other than the rows'.
	QItemSelectionModel *selection = dialog.TreeView()->selectionModel();
	selection->select(model.index(2, 0, dir), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
	selection->select(model.index(3, 0, dir), QItemSelectionModel::Select | QItemSelectionModel::Rows);
	selection->select(model.index(0, 0, dir), QItemSelectionModel::Select | QItemSelectionModel::Rows);
	selection->select(model.index(1, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows); // top.txt
	dialog.RemoveAction()->trigger();
	EXPECT_EQ(QStringList{ "b.txt" }, Names(model, model.index(0, 0)));
	EXPECT_EQ(QStringList{ "dir" }, Names(model));
	EXPECT_EQ("1 Item", model.index(0, 2).data().toString());
	EXPECT_EQ(QStringList{ keep }, model.CollectFiles());
	EXPECT_FALSE(model.IsEmpty());
	EXPECT_FALSE(dialog.RemoveAction()->isEnabled());

	// A folder and its own child together: the folder goes, the child with it.
	selection->select(model.index(0, 0, model.index(0, 0)), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
	selection->select(model.index(0, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
	dialog.RemoveSlot();
	EXPECT_EQ(0, model.rowCount());
	EXPECT_TRUE(model.IsEmpty());
	EXPECT_TRUE(model.CollectFiles().isEmpty());
}

TEST_F(CreateBDLTest, LaunchAndDoubleClickOpenFilesOnly)
{
	CUrlCatcher catcher;
	CCreateBDLDialog dialog;
	const QString file = MakeFile("docs/readme.txt", 3);
	dialog.AddPath(file);
	CFileListModel &model = dialog.Model();
	const QModelIndex folder = model.index(0, 0);
	const QModelIndex leaf = model.index(0, 0, folder);

	emit dialog.TreeView()->doubleClicked(folder);
	EXPECT_TRUE(catcher.m_Opened.isEmpty());
	emit dialog.TreeView()->doubleClicked(leaf);
	ASSERT_EQ(1, catcher.m_Opened.size());
	EXPECT_EQ("file://" + file, catcher.m_Opened[0]);

	dialog.TreeView()->setCurrentIndex(leaf);
	EXPECT_EQ("file://" + file, dialog.CurrentItemUrlText());
	dialog.LaunchFileSlot();
	EXPECT_EQ(2, catcher.m_Opened.size());
	// Show builds the same text and opens nothing.
	dialog.ShowInExplorerSlot();
	EXPECT_EQ(2, catcher.m_Opened.size());
}

TEST_F(CreateBDLTest, TheContextMenuFollowsTheSelection)
{
	CCreateBDLDialog dialog;
	dialog.AddPath(MakeFile("folder/one.txt", 1));
	dialog.AddPath(MakeFile("two.txt", 2));
	dialog.show();
	CFileListModel &model = dialog.Model();
	QItemSelectionModel *selection = dialog.TreeView()->selectionModel();

	auto menuFor = [&dialog]() {
		QStringList texts;
		QTimer::singleShot(10, [&texts] {
			QMenu *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
			if (!menu)
				return;
			texts = ActionTexts(menu->actions());
			menu->close();
		});
		QContextMenuEvent event(QContextMenuEvent::Mouse, QPoint(20, 20), dialog.mapToGlobal(QPoint(20, 20)));
		QApplication::sendEvent(&dialog, &event);
		EXPECT_TRUE(event.isAccepted());
		return texts;
	};

	EXPECT_EQ((QStringList{ "Add File", "Add Folder", "|", "Select All", "Invert Selection" }), menuFor());
	selection->select(model.index(1, 0), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
	EXPECT_EQ((QStringList{ "&LaunchFile", "&ShowInExplorer", "|", "&Remove" }), menuFor());
	selection->select(model.index(0, 0), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
	EXPECT_EQ((QStringList{ "&ShowInExplorer", "|", "&Remove" }), menuFor());
	selection->select(model.index(1, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
	EXPECT_EQ((QStringList{ "&Remove" }), menuFor());
}

TEST_F(CreateBDLTest, PackingNothingSaysSo)
{
	CCreateBDLDialog dialog;
	BoxSeen_t create;
	AnswerBox(m_Watch, &create, QMessageBox::Ok);
	dialog.CreateButtonClicked();
	EXPECT_TRUE(create.bSeen);
	EXPECT_EQ(QMessageBox::Critical, create.icon);
	EXPECT_EQ("Error", create.title);
	EXPECT_EQ("Please select at least 1 file to add to the BDL.", create.text);

	BoxSeen_t save;
	AnswerBox(m_Watch, &save, QMessageBox::Ok);
	dialog.SaveAction()->trigger();
	EXPECT_TRUE(save.bSeen);
	EXPECT_EQ("Error", save.title);
	EXPECT_EQ("Please select at least 1 file to add to the BDL.", save.text);
	EXPECT_EQ(nullptr, dialog.Process());
}

TEST_F(CreateBDLTest, AddFileAndAddFolderGoThroughTheirDialogs)
{
	CCreateBDLDialog dialog;
	const QString single = MakeFile("picked/single.txt", 7);
	MakeFile("tree/a.txt", 1);
	MakeFile("tree/inner/b.txt", 2);
	MakeFile("tree/inner/deepest/c.txt", 3);

	QString title, directory;
	AnswerFileDialog(m_Watch, single, &title, &directory);
	dialog.AddFileAction()->trigger();
	EXPECT_EQ("Select one or more files to add", title);
	EXPECT_EQ(QString::fromStdString(m_Work), directory); // the current directory at first
	EXPECT_EQ(QStringList{ single }, dialog.Model().CollectFiles());
	EXPECT_TRUE(dialog.IsModified());
	EXPECT_EQ(QString::fromStdString(m_Work) + "/picked", dialog.LastDir());

	AnswerFileDialog(m_Watch, QString::fromStdString(m_Work) + "/tree", &title, &directory);
	dialog.AddFolderAction()->trigger();
	EXPECT_EQ("Select a folder to add", title);
	EXPECT_EQ(QString::fromStdString(m_Work) + "/picked", directory);
	EXPECT_EQ(QString::fromStdString(m_Work), dialog.LastDir()); // the folder's parent
	const QString work = QString::fromStdString(m_Work);
	EXPECT_EQ((QStringList{ work + "/picked/single.txt", work + "/tree/a.txt", work + "/tree/inner/b.txt", work + "/tree/inner/deepest/c.txt" }),
		dialog.Model().CollectFiles());
	EXPECT_EQ(QStringList({ "picked", "tree" }), Names(dialog.Model()));
}

namespace
{
// The lines "added <name> (...)" of the packer's output, in order.
QStringList AddedNames(const QString &output)
{
	QStringList names;
	for (const QString &line : output.split('\n'))
	{
		if (line.startsWith("added "))
			names << line.mid(6).section(" (", 0, 0);
	}
	return names;
}
} // namespace

TEST_F(CreateBDLTest, SavingRunsThePackerAndThePackChecksOut)
{
	CCreateBDLDialog dialog;
	dialog.show();
	// Added in an order other than the tree's.
	dialog.AddPath(MakeFile("models/Zed.txt", 300, 'z'));
	dialog.AddPath(MakeFile("models/alpha.bin", 5000, 'a'));
	dialog.AddPath(MakeFile("Readme.txt", 40, 'r'));
	dialog.AddPath(MakeFile("materials/b/c.txt", 12, 'c'));
	QDir().mkpath("out");
	const QString target = QString::fromStdString(m_Work) + "/out/pack.bdl";

	QString title;
	AnswerFileDialog(m_Watch, target, &title);
	BoxSeen_t result;
	AnswerBox(m_Watch, &result, QMessageBox::Ok);
	dialog.SaveAction()->trigger();
	EXPECT_EQ("Name of the BDL file to save", title);
	ASSERT_TRUE(result.bSeen);
	EXPECT_EQ(QMessageBox::Information, result.icon);
	EXPECT_EQ("Success!", result.text);
	EXPECT_EQ("BDL file was created successfully", result.informative);
	EXPECT_TRUE(result.buttons.contains("Show File")) << result.buttons.join(",").toStdString();
	// The packer got the files in the tree's order.
	EXPECT_EQ((QStringList{ "materials/b/c.txt", "models/alpha.bin", "models/Zed.txt", "Readme.txt" }), AddedNames(result.detailed))
		<< result.detailed.toStdString();
	EXPECT_EQ(target, dialog.TargetPath());
	EXPECT_FALSE(dialog.IsModified());
	EXPECT_FALSE(dialog.isVisible()); // the window closed after the success
	EXPECT_EQ(nullptr, dialog.Process());

	const CommandResult_t test = RunCommand("bin/bdl t out/pack.bdl");
	EXPECT_EQ(0, test.exitCode) << test.output;
	EXPECT_NE(std::string::npos, test.output.find("4 files OK")) << test.output;
	const CommandResult_t list = RunCommand("bin/bdl l out/pack.bdl");
	ASSERT_EQ(0, list.exitCode) << list.output;
	// The pack keeps its names in lower case.
	for (const char *name : { "materials/b/c.txt", "models/alpha.bin", "models/zed.txt", "readme.txt" })
		EXPECT_NE(std::string::npos, list.output.find(name)) << name << "\n" << list.output;
	EXPECT_NE(std::string::npos, list.output.find("4 files")) << list.output;

	const CommandResult_t unpack = RunCommand("bin/bdl x out/pack.bdl unpacked");
	ASSERT_EQ(0, unpack.exitCode) << unpack.output;
	EXPECT_EQ(std::string(5000, 'a'), ReadFile("unpacked/models/alpha.bin"));
}

TEST_F(CreateBDLTest, AFailingPackerShowsTheErrorAndKeepsTheList)
{
	CCreateBDLDialog dialog;
	dialog.show();
	const QString file = MakeFile("keep/me.txt", 9);
	dialog.AddPath(file);
	// marrow2/addons is not there, so the packer cannot write "testaddon.bdl".
	BoxSeen_t result;
	AnswerBox(m_Watch, &result, QMessageBox::Ok);
	dialog.CreateButtonClicked();
	ASSERT_TRUE(result.bSeen);
	EXPECT_EQ(QMessageBox::Critical, result.icon);
	EXPECT_EQ("Error!", result.text);
	EXPECT_EQ("Could not create the BDL file.", result.informative);
	EXPECT_TRUE(result.detailed.contains("bdl:")) << result.detailed.toStdString();
	EXPECT_EQ(QString::fromStdString(m_Work) + "/marrow2/addons/testaddon.bdl", dialog.TargetPath());
	EXPECT_TRUE(dialog.isVisible());
	EXPECT_EQ(QStringList{ file }, dialog.Model().CollectFiles());
	EXPECT_EQ(nullptr, dialog.Process());
	EXPECT_FALSE(QFileInfo::exists("marrow2/addons/testaddon.bdl"));
}

TEST_F(CreateBDLTest, CreateAsksBeforeOverwritingAndPacksIntoTheAddonsFolder)
{
	CCreateBDLDialog dialog;
	dialog.show();
	dialog.AddPath(MakeFile("content/one.txt", 100));
	dialog.AddPath(MakeFile("content/two.txt", 200));
	QDir().mkpath("marrow2/addons");
	m_Temp.Write("work/marrow2/addons/testaddon.bdl", "old bytes");

	BoxSeen_t question;
	AnswerBox(m_Watch, &question, QMessageBox::No);
	dialog.CreateButtonClicked();
	ASSERT_TRUE(question.bSeen);
	EXPECT_EQ(QMessageBox::Warning, question.icon);
	EXPECT_EQ("Warning", question.title);
	EXPECT_EQ("A BDL file with the specified name already exists, do you want to overwrite the file?", question.text);
	EXPECT_EQ("old bytes", ReadFile("marrow2/addons/testaddon.bdl"));
	EXPECT_TRUE(dialog.TargetPath().isEmpty()); // no run

	BoxSeen_t again, result;
	AnswerBox(m_Watch, &again, QMessageBox::Yes, [this, &result] { AnswerBox(m_Watch, &result, QMessageBox::Ok, {}, "Show File"); });
	dialog.CreateButtonClicked();
	ASSERT_TRUE(again.bSeen);
	ASSERT_TRUE(result.bSeen);
	EXPECT_EQ("Success!", result.text);
	EXPECT_FALSE(dialog.isVisible()); // closed after "Show File" as after OK
	EXPECT_EQ(QString::fromStdString(m_Work) + "/marrow2/addons/testaddon.bdl", dialog.TargetPath());
	const CommandResult_t test = RunCommand("bin/bdl t marrow2/addons/testaddon.bdl");
	EXPECT_EQ(0, test.exitCode) << test.output;
	const CommandResult_t list = RunCommand("bin/bdl l marrow2/addons/testaddon.bdl");
	EXPECT_NE(std::string::npos, list.output.find("content/one.txt")) << list.output;
	EXPECT_NE(std::string::npos, list.output.find("content/two.txt")) << list.output;
}

TEST_F(CreateBDLTest, APackerThatCannotStartLeavesTheBusyBoxUntilCancelled)
{
	std::filesystem::remove(m_Work + "/bin/bdl");
	CCreateBDLDialog dialog;
	dialog.show();
	dialog.AddPath(MakeFile("a.txt", 1));
	QString label;
	bool bBusy = false;
	WhenModal<QProgressDialog>(m_Watch, [&](QProgressDialog *progress) {
		label = progress->labelText();
		bBusy = progress->minimum() == 0 && progress->maximum() == 0;
		progress->cancel();
	});
	BoxSeen_t box;
	AnswerBox(m_Watch, &box, QMessageBox::Ok);
	CCaptureLog log;
	dialog.CreateButtonClicked(); // marrow2/addons need not exist: nothing runs
	EXPECT_EQ("Creating BDL file", label);
	EXPECT_TRUE(bBusy);
	QApplication::processEvents();
	EXPECT_FALSE(box.bSeen); // no end, so no message
	EXPECT_EQ(nullptr, dialog.Process());
	EXPECT_NE(std::string::npos, log.m_Text.find("bin/bdl")) << log.m_Text;
	EXPECT_EQ(1, dialog.Model().CollectFiles().size());
}

TEST_F(CreateBDLTest, ClosingAModifiedWindowAsksFirst)
{
	CCreateBDLDialog dialog;
	dialog.show();
	// Unmodified: closes without a question.
	EXPECT_TRUE(dialog.close());

	dialog.show();
	const QString file = MakeFile("picked.txt", 7);
	AnswerFileDialog(m_Watch, file);
	dialog.AddFileSlot();
	ASSERT_TRUE(dialog.IsModified());

	BoxSeen_t no;
	AnswerBox(m_Watch, &no, QMessageBox::No);
	EXPECT_FALSE(dialog.close());
	ASSERT_TRUE(no.bSeen);
	EXPECT_EQ("Cancel BDL creation?", no.title);
	EXPECT_EQ("Are you sure you want to cancel BDL creation", no.text);
	EXPECT_TRUE(dialog.isVisible());

	BoxSeen_t yes;
	AnswerBox(m_Watch, &yes, QMessageBox::Yes);
	dialog.CancelButtonClicked();
	EXPECT_TRUE(yes.bSeen);
	EXPECT_FALSE(dialog.isVisible());
	EXPECT_EQ(QStringList{ file }, dialog.Model().CollectFiles()); // the window keeps its list
}

TEST_F(CreateBDLTest, TheWindowsImagesLieInTheSampleGameTree)
{
	CToolFrameworkHost host;
	ToolFrameworkConfig_t config;
	config.m_GameDirectory = MINTYARD_SOURCE_DIR "/sample/game/zarn";
	config.m_SettingsFolder = m_Temp.Path("settings").c_str();
	CUtlString error;
	ASSERT_TRUE(host.Init(config, &error)) << error;
	// What a connected tool sees; cleared again before the host goes.
	struct FrameworkGuard_t
	{
		~FrameworkGuard_t() { g_pToolFramework = nullptr; }
	} guard;
	g_pToolFramework = static_cast<IToolFramework *>(CToolFrameworkHost::Factory(TOOLFRAMEWORK_INTERFACE_VERSION, nullptr));
	ASSERT_NE(nullptr, g_pToolFramework);
	for (const char *name : { "Save.png", "AddFile.png", "AddFolder.png", "Delete.png", "LaunchFile.png", "ShowInExplorer.png", "Options.png",
			 "Search.png", "About.png", "CollapseAll.png", "ExpandAll.png" })
	{
		const CUtlString path = CUtlString("game:tools/images/mintyardmanager/") + name;
		const QString file = QString::fromUtf8(g_pToolFramework->ResolveResourcePath(path.c_str()).c_str());
		EXPECT_TRUE(QFileInfo::exists(file)) << name;
		EXPECT_FALSE(QImage(file).isNull()) << name;
		// Listed in the tool's resource manifest.
		bool bListed = false;
		for (int i = 0; i < g_nToolImageCount; ++i)
			bListed = bListed || path == g_ppszToolImages[i];
		EXPECT_TRUE(bListed) << name;
	}
	CCreateBDLDialog dialog;
	const QImage shown = dialog.SaveAction()->icon().pixmap(32, 32).toImage().convertToFormat(QImage::Format_ARGB32);
	const QImage drawn = QImage(QString::fromUtf8(g_pToolFramework->ResolveResourcePath("game:tools/images/mintyardmanager/Save.png").c_str()))
							 .convertToFormat(QImage::Format_ARGB32);
	EXPECT_EQ(drawn, shown); // the sample's picture, not a stand-in icon
}

TEST_F(CreateBDLTest, TheSlotsStandInTheirOrder)
{
	CCreateBDLDialog dialog;
	const QMetaObject *meta = dialog.metaObject();
	QStringList names;
	for (int i = meta->methodOffset(); i < meta->methodCount(); ++i)
	{
		if (meta->method(i).methodType() == QMetaMethod::Slot)
			names << QString::fromLatin1(meta->method(i).methodSignature());
	}
	EXPECT_EQ((QStringList{ "closeEvent(QCloseEvent*)", "AddButtonClicked()", "RemoveButtonClicked()", "CreateButtonClicked()",
				  "CancelButtonClicked()", "BDLFinished(int)", "NewSlot()", "OpenSlot()", "CloseSlot()", "ExitSlot()", "AddFileSlot()",
				  "AddFolderSlot()", "SaveSlot()", "SaveAsSlot()", "RemoveSlot()", "LaunchFileSlot()", "ShowInExplorerSlot()", "OptionsSlot()",
				  "SearchSlot()", "SelectAllSlot()", "InvertSelectionSlot()", "AboutSlot()", "TreeSelectionChangedSlot(QItemSelection,QItemSelection)",
				  "ItemDoubleClickedSlot(QModelIndex)" }),
		names);
	// The button slots, called by name as a connection would call them.
	dialog.show();
	dialog.AddPath(MakeFile("one.txt", 1));
	const QString file = MakeFile("two.txt", 1);
	AnswerFileDialog(m_Watch, file);
	ASSERT_TRUE(QMetaObject::invokeMethod(&dialog, "AddButtonClicked")); // as Add File
	EXPECT_TRUE(dialog.IsModified());
	BoxSeen_t box;
	AnswerBox(m_Watch, &box, QMessageBox::No);
	ASSERT_TRUE(QMetaObject::invokeMethod(&dialog, "CancelButtonClicked"));
	EXPECT_TRUE(box.bSeen);
	EXPECT_EQ("Cancel BDL creation?", box.title);
	EXPECT_TRUE(dialog.isVisible());
	ASSERT_TRUE(QMetaObject::invokeMethod(&dialog, "RemoveButtonClicked")); // does nothing
	EXPECT_EQ(2, dialog.Model().CollectFiles().size());
}

#include "createbdldialog_test.moc"
