#include "mintyardmanager/createbdldialog.h"

#include <QAction>
#include <QCloseEvent>
#include <QContextMenuEvent>
#include <QDesktopServices>
#include <QDir>
#include <QDirIterator>
#include <QFileDialog>
#include <QFileInfo>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QProcess>
#include <QProgressDialog>
#include <QPushButton>
#include <QStatusBar>
#include <QToolBar>
#include <QTreeView>
#include <QUrl>

#include "mintyardmanager/mintyardmanagertool.h"
#include "mintyardmanager/resources.h"

#define BDL_IMAGES "game:tools/images/mintyardmanager/"

namespace
{
const char *const kNoFilesMessage = "Please select at least 1 file to add to the BDL.";
const char *const kFixedTargetName = "testaddon";
} // namespace

CCreateBDLDialog::CCreateBDLDialog(QWidget *parent) : QMainWindow(parent), m_sLastDir(QDir::currentPath())
{
	setObjectName("CreateBDLDialog");
	setWindowTitle("Untitled BDL File");
	setMinimumSize(800, 600);

	m_pTreeView = new QTreeView(this);
	m_pTreeView->setModel(&m_model);
	m_pTreeView->header()->setStretchLastSection(false);
	m_pTreeView->header()->setSectionResizeMode(CFileListModel::COLUMN_NAME, QHeaderView::Stretch);
	m_pTreeView->header()->setSectionResizeMode(CFileListModel::COLUMN_TYPE, QHeaderView::Fixed);
	m_pTreeView->header()->setSectionResizeMode(CFileListModel::COLUMN_SIZE, QHeaderView::Fixed);
	m_pTreeView->setSelectionMode(QAbstractItemView::ExtendedSelection);
	m_pTreeView->setSelectionBehavior(QAbstractItemView::SelectRows);
	m_pTreeView->setUniformRowHeights(true);
	setCentralWidget(m_pTreeView);
	connect(m_pTreeView->selectionModel(), SIGNAL(selectionChanged(const QItemSelection &, const QItemSelection &)), this,
		SLOT(TreeSelectionChangedSlot(const QItemSelection &, const QItemSelection &)));
	connect(m_pTreeView, SIGNAL(doubleClicked(const QModelIndex &)), this, SLOT(ItemDoubleClickedSlot(const QModelIndex &)));

	CreateActions();
	CreateMenusAndToolbar();
	statusBar()->showMessage("Ready");
}

CCreateBDLDialog::~CCreateBDLDialog()
{
	// The view goes before the model it shows.
	delete m_pTreeView;
	m_pTreeView = nullptr;
}

void CCreateBDLDialog::CreateActions()
{
	auto makeAction = [this](const char *text, const QKeySequence &shortcut, const char *tip, const char *icon, QStyle::StandardPixmap fallback) {
		QAction *action = icon ? new QAction(LoadToolIcon(icon, fallback), text, this) : new QAction(text, this);
		action->setShortcut(shortcut);
		action->setStatusTip(tip);
		return action;
	};

	m_pNewAction = makeAction("&New BDL", QKeySequence::New, "Create a new BDL", nullptr, QStyle::SP_FileIcon);
	// The action names a slot this class does not have (its slot is NewSlot): the connection
	// fails with a warning and New stays without effect.
	connect(m_pNewAction, SIGNAL(triggered()), this, SLOT(NewBDLSlot()));

	m_pExitAction = makeAction("E&xit", QKeySequence("Alt+F4"), "Exit the BDL manager", nullptr, QStyle::SP_FileIcon);
	connect(m_pExitAction, SIGNAL(triggered()), this, SLOT(ExitSlot()));
	m_pSaveAction = makeAction("&Save", QKeySequence::Save, "Save the BDL", BDL_IMAGES "Save.png", QStyle::SP_DialogSaveButton);
	connect(m_pSaveAction, SIGNAL(triggered()), this, SLOT(SaveSlot()));
	m_pSaveAsAction = makeAction("Save As", QKeySequence("Ctrl+Shift+S"), "Save the BDL", nullptr, QStyle::SP_FileIcon);
	connect(m_pSaveAsAction, SIGNAL(triggered()), this, SLOT(SaveAsSlot()));
	m_pOpenAction = makeAction("&Open BDL", QKeySequence::Open, "Open an existing BDL file", nullptr, QStyle::SP_FileIcon);
	connect(m_pOpenAction, SIGNAL(triggered()), this, SLOT(OpenSlot()));
	m_pCloseAction = makeAction("&Close BDL", QKeySequence::Close, "Close the open BDL file", nullptr, QStyle::SP_FileIcon);
	connect(m_pCloseAction, SIGNAL(triggered()), this, SLOT(CloseSlot()));
	m_pAddFileAction = makeAction("Add File", QKeySequence("Ctrl+J"), "Add file(s) to the BDL", BDL_IMAGES "AddFile.png", QStyle::SP_FileIcon);
	connect(m_pAddFileAction, SIGNAL(triggered()), this, SLOT(AddFileSlot()));
	m_pAddFolderAction =
		makeAction("Add Folder", QKeySequence("Ctrl+K"), "Add a folder to the BDL", BDL_IMAGES "AddFolder.png", QStyle::SP_FileDialogNewFolder);
	connect(m_pAddFolderAction, SIGNAL(triggered()), this, SLOT(AddFolderSlot()));
	m_pRemoveAction = makeAction("&Remove", QKeySequence::Delete, "Remove from the BDL", BDL_IMAGES "Delete.png", QStyle::SP_TrashIcon);
	connect(m_pRemoveAction, SIGNAL(triggered()), this, SLOT(RemoveSlot()));
	m_pLaunchAction = makeAction("&LaunchFile", QKeySequence("F6"), "Launch the file", BDL_IMAGES "LaunchFile.png", QStyle::SP_MediaPlay);
	connect(m_pLaunchAction, SIGNAL(triggered()), this, SLOT(LaunchFileSlot()));
	m_pShowAction = makeAction("&ShowInExplorer", QKeySequence("Ctrl+E"), "Show the file/folder in explorer", BDL_IMAGES "ShowInExplorer.png",
		QStyle::SP_DirOpenIcon);
	connect(m_pShowAction, SIGNAL(triggered()), this, SLOT(ShowInExplorerSlot()));
	m_pOptionsAction = makeAction("Options", QKeySequence("Ctrl+P"), "Options", BDL_IMAGES "Options.png", QStyle::SP_FileDialogDetailedView);
	connect(m_pOptionsAction, SIGNAL(triggered()), this, SLOT(OptionsSlot()));
	m_pFindAction =
		makeAction("&Find", QKeySequence::Find, "Search for files within the BDL", BDL_IMAGES "Search.png", QStyle::SP_FileDialogContentsView);
	connect(m_pFindAction, SIGNAL(triggered()), this, SLOT(SearchSlot()));
	m_pSelectAllAction = makeAction("Select All", QKeySequence::SelectAll, "Select all the files", nullptr, QStyle::SP_FileIcon);
	connect(m_pSelectAllAction, SIGNAL(triggered()), this, SLOT(SelectAllSlot()));
	m_pInvertAction = makeAction("Invert Selection", QKeySequence("Ctrl+I"), "Select all the files", nullptr, QStyle::SP_FileIcon);
	connect(m_pInvertAction, SIGNAL(triggered()), this, SLOT(InvertSelectionSlot()));
	m_pAboutAction =
		makeAction("&About", QKeySequence::HelpContents, "About this application", BDL_IMAGES "About.png", QStyle::SP_MessageBoxInformation);
	connect(m_pAboutAction, SIGNAL(triggered()), this, SLOT(AboutSlot()));
	m_pCollapseAction = makeAction("Collapse All", QKeySequence("Ctrl+-"), "Collapses all the nodes in the tree view", BDL_IMAGES "CollapseAll.png",
		QStyle::SP_ArrowUp);
	connect(m_pCollapseAction, SIGNAL(triggered()), m_pTreeView, SLOT(collapseAll()));
	m_pExpandAction =
		makeAction("Expand All", QKeySequence("Ctrl++"), "Expands all the nodes in the tree view", BDL_IMAGES "ExpandAll.png", QStyle::SP_ArrowDown);
	connect(m_pExpandAction, SIGNAL(triggered()), m_pTreeView, SLOT(expandAll()));

	m_pRemoveAction->setEnabled(false);
	m_pLaunchAction->setEnabled(false);
	m_pShowAction->setEnabled(false);
}

void CCreateBDLDialog::CreateMenusAndToolbar()
{
	QMenu *fileMenu = menuBar()->addMenu("&File");
	fileMenu->addAction(m_pNewAction);
	fileMenu->addAction(m_pOpenAction);
	fileMenu->addSeparator();
	fileMenu->addAction(m_pAddFileAction);
	fileMenu->addAction(m_pAddFolderAction);
	fileMenu->addSeparator();
	fileMenu->addAction(m_pSaveAction);
	fileMenu->addAction(m_pSaveAsAction);
	fileMenu->addSeparator();
	fileMenu->addAction(m_pCloseAction);
	fileMenu->addSeparator();
	fileMenu->addAction(m_pExitAction);

	QMenu *editMenu = menuBar()->addMenu("&Edit");
	editMenu->addAction(m_pLaunchAction);
	editMenu->addAction(m_pShowAction);
	editMenu->addSeparator();
	editMenu->addAction(m_pRemoveAction);
	editMenu->addSeparator();
	editMenu->addAction(m_pFindAction);
	editMenu->addSeparator();
	editMenu->addAction(m_pSelectAllAction);
	editMenu->addAction(m_pInvertAction);
	editMenu->addSeparator();
	editMenu->addAction(m_pExpandAction);
	editMenu->addAction(m_pCollapseAction);
	editMenu->addSeparator();
	editMenu->addAction(m_pOptionsAction);

	QMenu *helpMenu = menuBar()->addMenu("&Help");
	helpMenu->addAction(m_pAboutAction);

	QToolBar *toolbar = addToolBar("Top");
	toolbar->setObjectName("createbdl_top_toolbar");
	toolbar->addAction(m_pAddFileAction);
	toolbar->addAction(m_pAddFolderAction);
	toolbar->addSeparator();
	toolbar->addAction(m_pRemoveAction);
	toolbar->addSeparator();
	toolbar->addAction(m_pSaveAction);
	toolbar->addSeparator();
	toolbar->addAction(m_pLaunchAction);
	toolbar->addAction(m_pShowAction);
	toolbar->addSeparator();
	toolbar->addAction(m_pExpandAction);
	toolbar->addAction(m_pCollapseAction);
	toolbar->addSeparator();
	toolbar->addAction(m_pOptionsAction);
	toolbar->addSeparator();
	toolbar->addAction(m_pFindAction);
}

// -------------------------------------------------------------------------------------------
// Slots

void CCreateBDLDialog::closeEvent(QCloseEvent *event)
{
	if (!m_bModified)
	{
		event->accept();
		return;
	}
	const QMessageBox::StandardButton answer = QMessageBox::warning(this, "Cancel BDL creation?", "Are you sure you want to cancel BDL creation",
		QMessageBox::Yes | QMessageBox::No);
	if (answer == QMessageBox::Yes)
		event->accept();
	else
		event->ignore();
}

void CCreateBDLDialog::AddButtonClicked()
{
	AddFileSlot();
}

void CCreateBDLDialog::RemoveButtonClicked()
{
}

void CCreateBDLDialog::CreateButtonClicked()
{
	CreateFixedTarget();
}

void CCreateBDLDialog::CancelButtonClicked()
{
	close();
}

void CCreateBDLDialog::NewSlot()
{
}

void CCreateBDLDialog::OpenSlot()
{
}

void CCreateBDLDialog::CloseSlot()
{
}

void CCreateBDLDialog::ExitSlot()
{
	close();
}

void CCreateBDLDialog::SaveAsSlot()
{
}

void CCreateBDLDialog::OptionsSlot()
{
}

void CCreateBDLDialog::SearchSlot()
{
}

void CCreateBDLDialog::SelectAllSlot()
{
}

void CCreateBDLDialog::InvertSelectionSlot()
{
}

void CCreateBDLDialog::AboutSlot()
{
}

bool CCreateBDLDialog::AddPath(const QString &path)
{
	return m_model.AddPath(path);
}

void CCreateBDLDialog::AddFileSlot()
{
	const QStringList files = QFileDialog::getOpenFileNames(this, "Select one or more files to add", m_sLastDir, "Any files (*)");
	if (!files.isEmpty())
	{
		const QFileInfo first(files.first());
		if (first.exists())
			m_sLastDir = first.absolutePath();
	}
	m_bModified = true;
	for (const QString &file : files)
		AddPath(file);
}

void CCreateBDLDialog::AddFolderSlot()
{
	const QString folder = QFileDialog::getExistingDirectory(this, "Select a folder to add", m_sLastDir);
	if (folder.isEmpty())
		return;
	QDir parent(folder);
	parent.cdUp();
	m_sLastDir = parent.absolutePath();
	m_bModified = true;
	AddFolderContents(folder);
}

void CCreateBDLDialog::AddFolderContents(const QString &folder)
{
	QDirIterator it(folder, QDirIterator::Subdirectories);
	while (it.hasNext())
	{
		it.next();
		if (!it.fileInfo().isDir())
			AddPath(it.filePath());
	}
}

void CCreateBDLDialog::RemoveSlot()
{
	const QItemSelection selection = m_pTreeView->selectionModel()->selection();
	for (const QItemSelectionRange &range : selection)
	{
		Log_Detailed(LOG_MINTYARD_MANAGER, "Remove Top: %d Bottom: %d Count: %d\n", range.top(), range.bottom(), range.height());
	}
	// From the last range to the first; the ranges follow the rows as they move, and a range
	// whose rows went with a folder removed before it is no longer valid.
	for (int i = selection.size() - 1; i >= 0; --i)
	{
		const QItemSelectionRange &range = selection[i];
		if (!range.isValid())
			continue;
		const QModelIndex parent = range.parent();
		m_model.removeRows(range.top(), range.height(), parent);
		if (parent.isValid())
			m_model.UpdateItemCount(parent);
	}
	TreeSelectionChangedSlot(QItemSelection(), QItemSelection());
}

QString CCreateBDLDialog::CurrentItemUrlText() const
{
	const QModelIndex current = m_pTreeView->currentIndex();
	if (!current.isValid())
		return QString();
	QString path = m_model.ItemFromIndex(current)->FullPath();
	// A Unix path brings its own leading slash.
	if (path.startsWith('/'))
		path.remove(0, 1);
	return "file:///" + path;
}

void CCreateBDLDialog::LaunchFileSlot()
{
	const QString url = CurrentItemUrlText();
	if (!url.isEmpty())
		QDesktopServices::openUrl(QUrl(url));
}

void CCreateBDLDialog::ShowInExplorerSlot()
{
	// There is no file manager to hand the location to: the text is built and left at that.
	const QString url = CurrentItemUrlText();
	(void)url;
}

CFileListItem *CCreateBDLDialog::SingleSelectedItem(int *pSelectedRows) const
{
	const QModelIndexList rows = m_pTreeView->selectionModel()->selectedRows(0);
	if (pSelectedRows)
		*pSelectedRows = rows.size();
	if (rows.size() != 1)
		return nullptr;
	return m_model.ItemFromIndex(rows.first());
}

void CCreateBDLDialog::TreeSelectionChangedSlot(const QItemSelection &, const QItemSelection &)
{
	int selectedRows = 0;
	CFileListItem *item = SingleSelectedItem(&selectedRows);
	m_pRemoveAction->setEnabled(selectedRows > 0);
	m_pShowAction->setEnabled(selectedRows == 1);
	m_pLaunchAction->setEnabled(selectedRows == 1 && item && item->IsFile());
}

void CCreateBDLDialog::ItemDoubleClickedSlot(const QModelIndex &index)
{
	if (!index.isValid() || !m_model.ItemFromIndex(index)->IsFile())
		return;
	m_pTreeView->setCurrentIndex(index);
	LaunchFileSlot();
}

QMenu *CCreateBDLDialog::BuildContextMenu()
{
	QMenu *menu = new QMenu(this);
	int selectedRows = 0;
	CFileListItem *item = SingleSelectedItem(&selectedRows);
	if (selectedRows == 1 && item)
	{
		if (item->IsFile())
			menu->addAction(m_pLaunchAction);
		menu->addAction(m_pShowAction);
		menu->addSeparator();
		menu->addAction(m_pRemoveAction);
	}
	else if (selectedRows > 1)
		menu->addAction(m_pRemoveAction);
	else
	{
		menu->addAction(m_pAddFileAction);
		menu->addAction(m_pAddFolderAction);
		menu->addSeparator();
		menu->addAction(m_pSelectAllAction);
		menu->addAction(m_pInvertAction);
	}
	return menu;
}

void CCreateBDLDialog::contextMenuEvent(QContextMenuEvent *event)
{
	QMenu *menu = BuildContextMenu();
	menu->exec(event->globalPos());
	menu->deleteLater();
	event->accept();
}

// -------------------------------------------------------------------------------------------
// Packing

void CCreateBDLDialog::CreateFixedTarget()
{
	const QStringList files = m_model.CollectFiles();
	const QString name = kFixedTargetName;
	if (name.isEmpty())
	{
		QMessageBox::critical(this, "Error", "Please enter a name for the BDL file.");
		return;
	}
	if (files.isEmpty())
	{
		QMessageBox::critical(this, "Error", kNoFilesMessage);
		return;
	}
	QString target = QDir::current().filePath("marrow2/addons/" + name);
	if (QFileInfo(target).suffix() != "bdl")
		target += ".bdl";
	if (QFileInfo::exists(target))
	{
		const QMessageBox::StandardButton answer = QMessageBox::warning(this, "Warning",
			"A BDL file with the specified name already exists, do you want to overwrite the file?", QMessageBox::Yes | QMessageBox::No,
			QMessageBox::No);
		if (answer == QMessageBox::No)
			return;
	}
	RunPacker(target, files);
}

void CCreateBDLDialog::SaveSlot()
{
	const QStringList files = m_model.CollectFiles();
	if (files.isEmpty())
	{
		QMessageBox::critical(this, "Error", kNoFilesMessage);
		return;
	}
	const QString target = QFileDialog::getSaveFileName(this, "Name of the BDL file to save", m_sLastDir, "BDL files (*.bdl)");
	if (!target.isEmpty())
		RunPacker(target, files);
}

void CCreateBDLDialog::RunPacker(const QString &target, const QStringList &files)
{
	QStringList arguments;
	arguments << "a" << target << files;
	m_sTargetPath = target;

	m_pProcess = new QProcess(this);
	connect(m_pProcess, SIGNAL(finished(int)), this, SLOT(BDLFinished(int)));
	QProcess *process = m_pProcess;
	connect(process, &QProcess::errorOccurred, this, [process](QProcess::ProcessError error) {
		if (error == QProcess::FailedToStart)
			Log_Warning(LOG_MINTYARD_MANAGER, "The packer \"%s\" could not be started from %s: %s\n", g_pszBDLPackerPath,
				QDir::currentPath().toUtf8().constData(), process->errorString().toUtf8().constData());
	});
	m_pProcess->start(g_pszBDLPackerPath, arguments, QIODevice::ReadWrite);

	m_pProgress = new QProgressDialog(this);
	m_pProgress->setRange(0, 0);
	m_pProgress->setLabelText("Creating BDL file");
	m_pProgress->exec();
	if (m_pProgress)
	{
		m_pProgress->deleteLater();
		m_pProgress = nullptr;
	}
	// A packer that never started sends no end: once the user gave up waiting it is let go.
	if (m_pProcess && m_pProcess == process && process->state() == QProcess::NotRunning && process->error() == QProcess::FailedToStart)
	{
		process->deleteLater();
		m_pProcess = nullptr;
	}
}

void CCreateBDLDialog::BDLFinished(int nExitCode)
{
	if (m_pProgress)
	{
		m_pProgress->close();
		m_pProgress->deleteLater();
		m_pProgress = nullptr;
	}
	// The run that ended: a run the user stopped waiting for may end after another started.
	QProcess *process = qobject_cast<QProcess *>(sender());
	if (!process)
		process = m_pProcess;
	if (!process)
		return;

	const QString output = QString::fromLocal8Bit(process->readAllStandardOutput());
	const QString error = QString::fromLocal8Bit(process->readAllStandardError());
	// The streams were read above; what these second reads log is empty.
	Log_Detailed(LOG_MINTYARD_MANAGER, "BDL Output\n%s", process->readAllStandardOutput().constData());
	Log_Detailed(LOG_MINTYARD_MANAGER, "BDL Error\n%s", process->readAllStandardError().constData());

	process->close();
	process->deleteLater();
	if (process == m_pProcess)
		m_pProcess = nullptr;

	if (nExitCode != 0)
	{
		QMessageBox box(this);
		box.setIcon(QMessageBox::Critical);
		box.setText("Error!");
		box.setInformativeText("Could not create the BDL file.");
		box.setDetailedText(output + error);
		box.setStandardButtons(QMessageBox::Ok);
		box.exec();
		return;
	}

	QMessageBox box(this);
	box.setIcon(QMessageBox::Information);
	box.setText("Success!");
	box.setInformativeText("BDL file was created successfully");
	box.setDetailedText(output);
	box.setStandardButtons(QMessageBox::Ok);
	box.setDefaultButton(QMessageBox::Ok);
	QPushButton *showButton = box.addButton("Show File", QMessageBox::ActionRole);
	box.exec();
	m_bModified = false;
	close();
	if (box.clickedButton() == showButton)
	{
		// There is no file manager to show it in: the path is made ready and left at that.
		const QString nativePath = QDir::toNativeSeparators(m_sTargetPath);
		(void)nativePath;
	}
}
