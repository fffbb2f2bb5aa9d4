#include "mintyardmanager/mainwindow.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QHBoxLayout>
#include <QRegularExpression>
#include <QItemSelectionModel>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QStatusBar>
#include <QTimer>
#include <QToolBar>
#include <QUrl>
#include <QUrlQuery>
#include <QVBoxLayout>

#include "brume/brume_api.h"
#include "mintyardmanager/createbdldialog.h"
#include "core/keyvalues3.h"
#include "mintyardmanager/mintyardmanagertool.h"
#include "mintyardmanager/publishedfilebrowser.h"
#include "mintyardmanager/publishfiledialog.h"
#include "mintyardtoolutils/core/mintyardtemplate.h"
#include "mintyardtoolutils/wizard/importdialog.h"
#include "bdllib/formatfilesize.h"
#include <QFileInfo>
#include "mintyardmanager/resources.h"

namespace
{
const char *const kNewItemButtonStyle =
	"QPushButton { \tbackground-color : rgb( 49, 69, 80 ); \tborder: 2px solid rgb( 143, 171, 187 ); \tborder-radius: 5px; "
	"\tpadding-left: 16px;\tpadding-right: 16px;\tpadding-top: 4px;\tpadding-bottom: 4px;\tfont: bold 20px; } "
	"QPushButton:hover:!pressed { \tbackground-color : rgb( 100, 140, 160 ); }";

const char *const kRightsLine = "\u00A9 2026 The Mintyard Manager developers";
} // namespace

CMainWindow::CMainWindow(CMintyardManagerTool *tool) : QMainWindow(nullptr), m_pTool(tool)
{
	setObjectName("MintyardManagerMainWindow");
	// The window is destroyed when it closes; the tool's pointer to it is not used after that,
	// as the host runs no more frames.
	setAttribute(Qt::WA_DeleteOnClose);
}

CMainWindow::~CMainWindow()
{
	// Wizards still open go with the window, before the services they use.
	for (const QPointer<CQMintyardImportDialog> &wizard : m_ImportWizards)
	{
		if (wizard)
			wizard->disconnect(this);
		delete wizard.data();
	}
	m_ImportWizards.clear();
	BrumeAPIContext()->Clear();
	BrumeAPI_Shutdown();
	if (g_pInputBindingManager)
		g_pInputBindingManager->UnregisterBindTarget(this);
}

void CMainWindow::CreateActions()
{
	QAction *exitAction = new QAction("E&xit", this);
	exitAction->setObjectName("mintyard_action_exit");
	exitAction->setShortcut(QKeySequence("Alt+F4"));
	exitAction->setStatusTip("Exit the mintyard manager");
	connect(exitAction, SIGNAL(triggered()), this, SLOT(ExitSlot()));

	// Every action has an object name, by which scripts and the tests that drive the running tool find it.
	auto makeAction = [this](const char *name, const char *text, const QKeySequence &shortcut, const char *tip, const QIcon &icon,
						  bool bIconInMenu, const char *slot) {
		QAction *action = new QAction(icon, text, this);
		action->setObjectName(name);
		if (!shortcut.isEmpty())
			action->setShortcut(shortcut);
		if (tip)
			action->setStatusTip(tip);
		action->setIconVisibleInMenu(bIconInMenu);
		connect(action, SIGNAL(triggered()), this, slot);
		return action;
	};

	m_pNewAction = makeAction("mintyard_action_new", "&New Submission", QKeySequence::New, "Publish a new mintyard submission",
		LoadTwoStateIcon("icon_add.png", QStyle::SP_FileDialogNewFolder), false, SLOT(NewSubmissionSlot()));
	m_pReUploadAction = makeAction("mintyard_action_reupload", "&Re-Upload", QKeySequence("Ctrl+U"), "Upload a new version of an existing entry",
		LoadTwoStateIcon("icon_reupload.png", QStyle::SP_ArrowUp), false, SLOT(ReUploadSubmissionSlot()));
	m_pEditAction = makeAction("mintyard_action_edit", "&Edit Mintyard Info", QKeySequence("Ctrl+E"), "Edit mintyard name or description",
		LoadTwoStateIcon("icon_edit.png", QStyle::SP_FileDialogDetailedView), false, SLOT(EditSubmissionSlot()));
	m_pDeleteAction = makeAction("mintyard_action_delete", "&Delete Submission", QKeySequence::Delete, "Delete the submission",
		LoadTwoStateIcon("icon_delete.png", QStyle::SP_TrashIcon), false, SLOT(DeleteSubmissionSlot()));
	m_pRefreshAction = makeAction("mintyard_action_refresh", "&Refresh View", QKeySequence::Refresh, "Refresh the view of published submissions",
		LoadTwoStateIcon("icon_refresh.png", QStyle::SP_BrowserReload), false, SLOT(RefreshFileBrowser()));
	m_pViewAction = makeAction("mintyard_action_view", "&View in Mintyard", QKeySequence("Ctrl+V"), "View this submission on the Brume Mintyard website",
		LoadTwoStateIcon("icon_view.png", QStyle::SP_FileDialogContentsView), false, SLOT(ViewInMintyardSlot()));
	m_pCreatePackAction = makeAction("mintyard_action_createbdl", "&Create BDL", QKeySequence("Ctrl+C"), "Create BDL",
		LoadToolIcon("game:tools/images/mintyardmanager/bdlmanager.png", QStyle::SP_DriveHDIcon), false, SLOT(BDLCreatorSlot()));
	QAction *assetBrowserAction = makeAction("mintyard_action_assetbrowser", "Asset &Browser", QKeySequence(), "Show the Asset Browser",
		LoadToolIcon("game:tools/images/assetbrowser/appicon.ico", QStyle::SP_DirOpenIcon), true, SLOT(OnShowAssetBrowser()));
	QAction *aboutAction = makeAction("mintyard_action_about", "&About", QKeySequence::HelpContents, "About this application",
		LoadToolIcon("game:tools/images/mintyardmanager/icon_help.png", QStyle::SP_MessageBoxQuestion), true, SLOT(AboutSlot()));
	QAction *aboutQtAction = new QAction(LoadToolIcon("game:tools/images/mintyardmanager/icon_help.png", QStyle::SP_MessageBoxQuestion), "About Qt", this);
	aboutQtAction->setIconVisibleInMenu(true);
	connect(aboutQtAction, SIGNAL(triggered()), qApp, SLOT(aboutQt()));

	QToolBar *toolbar = addToolBar("Top");
	toolbar->setObjectName("mintyard_top_toolbar");
	toolbar->addAction(m_pNewAction);
	toolbar->addSeparator();
	toolbar->addAction(m_pReUploadAction);
	toolbar->addAction(m_pEditAction);
	toolbar->addAction(m_pViewAction);
	toolbar->addSeparator();
	toolbar->addAction(m_pDeleteAction);
	toolbar->addSeparator();
	toolbar->addAction(m_pRefreshAction);
	toolbar->addSeparator();
	toolbar->addAction(assetBrowserAction);

	QMenu *fileMenu = menuBar()->addMenu("&File");
	fileMenu->addAction(m_pNewAction);
	fileMenu->addSeparator();
	fileMenu->addAction(assetBrowserAction);
	fileMenu->addSeparator();
	fileMenu->addAction(exitAction);

	QMenu *editMenu = menuBar()->addMenu("&Edit");
	editMenu->addAction(m_pReUploadAction);
	editMenu->addAction(m_pEditAction);
	editMenu->addAction(m_pViewAction);
	editMenu->addSeparator();
	editMenu->addAction(m_pDeleteAction);
	editMenu->addSeparator();
	editMenu->addAction(m_pRefreshAction);

	QMenu *helpMenu = menuBar()->addMenu("&Help");
	helpMenu->addAction(aboutQtAction);
	helpMenu->addAction(aboutAction);

	m_pDeleteAction->setEnabled(false);
	m_pReUploadAction->setEnabled(false);
	m_pEditAction->setEnabled(false);
	m_pViewAction->setEnabled(false);
}

void CMainWindow::CreateCentralWidget()
{
	QWidget *central = new QWidget(this);
	QVBoxLayout *layout = new QVBoxLayout(central);
	if (m_pTool->GetGameMode() == MINTYARD_MODE_ZARN_ITEMS)
	{
		QPalette palette = central->palette();
		palette.setColor(QPalette::Window, palette.color(QPalette::Window).darker(150));
		central->setPalette(palette);
		central->setAutoFillBackground(true);

		QHBoxLayout *buttonRow = new QHBoxLayout();
		buttonRow->setSpacing(10);
		layout->addLayout(buttonRow);
		buttonRow->addStretch();
		QPushButton *button = new QPushButton(Translate("#ZARN_Mintyard_CreateNewItem"), central);
		button->setObjectName("mintyard_create_new_item");
		button->setDefault(true);
		button->setSizePolicy(QSizePolicy::Minimum, QSizePolicy::Minimum);
		button->setStyleSheet(kNewItemButtonStyle);
		connect(button, SIGNAL(clicked()), this, SLOT(NewSubmissionSlot()));
		buttonRow->addWidget(button);
		buttonRow->addStretch();
	}

	m_pBrowser = new CPublishedFileBrowser(central);
	m_pBrowser->setObjectName("mintyard_published_files");
	layout->addWidget(m_pBrowser);
	connect(m_pBrowser->selectionModel(), SIGNAL(selectionChanged(const QItemSelection &, const QItemSelection &)), this,
		SLOT(PublishedFileSelectionChangedSlot(const QItemSelection &, const QItemSelection &)));
	connect(m_pBrowser, SIGNAL(doubleClicked(const QModelIndex &)), this, SLOT(PublishedFileDoubleClickedSlot(const QModelIndex &)));
	connect(m_pBrowser, SIGNAL(customContextMenuRequested(const QPoint &)), this, SLOT(PublishedFileBrowserContextMenu(const QPoint &)));
	setCentralWidget(central);
}

void CMainWindow::RefreshFileBrowser()
{
	if (!m_pBrowser)
		return;
	m_pBrowser->Model().Clear();
	m_pBrowser->ResetQuery();
	// Without a connection New goes off for the life of the window.
	if (!m_pBrowser->StartFileQuery(IsAddonMode(m_pTool->GetGameMode())))
		m_pNewAction->setEnabled(false);
}

void CMainWindow::ExitSlot()
{
	close();
}

CQMintyardImportDialog *CMainWindow::OpenImportWizard(bool bUpdate, const PublishedFileInfo_t *record)
{
	if (!m_bWizardSettingsRead)
	{
		m_pTool->ReadSettings(m_WizardSettings.Root());
		m_bWizardSettingsRead = true;
	}
	CQMintyardImportDialog *wizard = new CQMintyardImportDialog(bUpdate ? MINTYARD_WIZARD_UPDATE_SUBMISSION : MINTYARD_WIZARD_NEW_SUBMISSION,
		m_WizardSettings.Root());
	if (!wizard->Start(record))
	{
		delete wizard;
		return nullptr;
	}
	connect(wizard, SIGNAL(ReadyToSubmit(PreparedMintyardSubmission_t *)), this, SLOT(OnReadyToSubmit(PreparedMintyardSubmission_t *)));
	connect(wizard, SIGNAL(destroyed()), this, SLOT(ImportWizardDestroyedSlot()));
	m_ImportWizards.append(wizard);
	wizard->raise();
	wizard->show();
	return wizard;
}

QList<CQMintyardImportDialog *> CMainWindow::ImportWizards() const
{
	QList<CQMintyardImportDialog *> out;
	for (const QPointer<CQMintyardImportDialog> &wizard : m_ImportWizards)
		if (wizard)
			out << wizard.data();
	return out;
}

void CMainWindow::ImportWizardDestroyedSlot()
{
	m_ImportWizards.removeAll(QPointer<CQMintyardImportDialog>());
	const KeyValues3 *table = FindMember(m_WizardSettings.Root(), "mintyard_import_dialog");
	if (!table)
		return;
	CKeyValues3Context settings;
	settings.Root()->MakeTable();
	CopyValue(AddMember(settings.Root(), "mintyard_import_dialog"), table);
	if (!m_pTool->WriteSettings(settings.Root()))
		Log_Warning(LOG_MINTYARD_MANAGER, "The import wizard's settings could not be saved in the tool's settings\n");
}

bool CMainWindow::OpenPublishDialog(PublishedFileInfo_t *record, bool bEditOnly)
{
	if (m_pPublishDialog)
	{
		if (m_pPublishDialog->IsDirty() && !CPublishFileDialog::AskCancelPublish(this))
			return false;
		m_pPublishDialog->SetDirty(false);
		CPublishFileDialog *old = m_pPublishDialog;
		old->reject(); // its rejected signal clears m_pPublishDialog
		m_pPublishDialog = nullptr;
	}
	m_pPublishDialog = new CPublishFileDialog(record, this, bEditOnly, m_pTool->GetGameMode());
	m_pPublishDialog->setAttribute(Qt::WA_DeleteOnClose);
	connect(m_pPublishDialog, SIGNAL(accepted()), this, SLOT(PublishDialogAcceptedSlot()));
	connect(m_pPublishDialog, SIGNAL(rejected()), this, SLOT(PublishDialogRejectedSlot()));
	return true;
}

void CMainWindow::NewSubmissionSlot()
{
	if (IsAddonMode(m_pTool->GetGameMode()))
	{
		if (OpenPublishDialog(nullptr, false))
			m_pPublishDialog->show();
	}
	else
		OpenImportWizard(false, nullptr); // a failed start is silent
}

void CMainWindow::ReUploadSubmissionSlot()
{
	PublishedFileInfo_t *record = m_pBrowser ? m_pBrowser->CurrentRecord() : nullptr;
	if (IsAddonMode(m_pTool->GetGameMode()))
	{
		if (OpenPublishDialog(record, false))
			m_pPublishDialog->show();
	}
	else if (!OpenImportWizard(true, record))
		QApplication::beep();
}

void CMainWindow::EditSubmissionSlot()
{
	if (OpenPublishDialog(m_pBrowser ? m_pBrowser->CurrentRecord() : nullptr, true))
		m_pPublishDialog->show();
}

void CMainWindow::DeleteSubmissionSlot()
{
	// A child of the window, kept until the window goes.
	QMessageBox *box = new QMessageBox(QMessageBox::Critical, "Delete submission?",
		"This will delete the submission from the mintyard and users subscribed to it will no longer be able to access it.\n"
		"This action cannot be undone!\n\nAre you sure you want to delete the submission?",
		QMessageBox::Yes | QMessageBox::No, this);
	const QPixmap pixmap = LoadToolPixmap("game:tools/images/mintyardmanager/icon_critical.png");
	if (!pixmap.isNull())
		box->setIconPixmap(pixmap);
	if (box->exec() == QMessageBox::Yes)
		m_pBrowser->DeleteSelectedFile();
}

void CMainWindow::PublishDialogAcceptedSlot()
{
	m_pPublishDialog = nullptr;
	QTimer::singleShot(10, this, SLOT(RefreshFileBrowser()));
}

void CMainWindow::PublishDialogRejectedSlot()
{
	m_pPublishDialog = nullptr;
}

void CMainWindow::QueueRefreshView()
{
	QTimer::singleShot(10, this, SLOT(RefreshFileBrowser()));
}

QString CMainWindow::CommunityHost()
{
	const QByteArray fromEnvironment = qgetenv("MINTYARD_COMMUNITY_HOST");
	if (!fromEnvironment.isEmpty())
		return QString::fromUtf8(fromEnvironment);
	if (IBrumeUtils *utils = BrumeAPIContext()->BrumeUtils())
		return QString::fromUtf8(utils->GetServiceAddress());
	const QByteArray service = qgetenv("BRUME_SERVICE");
	return service.isEmpty() ? QString("127.0.0.1:27080") : QString::fromUtf8(service);
}

QString CMainWindow::BuildMintyardFileUrl(int universe, const QString &communityHost, uint64 publishedFileId)
{
	// A named host gets the sub-domain of the universe; an address (the local service) does not.
	const QString hostOnly = communityHost.section(':', 0, 0);
	static const QRegularExpression s_Address("^[0-9.]+$|^\\[.*\\]$");
	const bool bAddress = s_Address.match(hostOnly).hasMatch() || hostOnly.compare("localhost", Qt::CaseInsensitive) == 0;
	QUrl url;
	url.setScheme("http");
	const QString subdomain = universe == k_EUniverseBeta ? "beta" : "www";
	const QString authority = bAddress ? communityHost : subdomain + "." + communityHost;
	url.setAuthority(authority);
	url.setPath("/sharedfiles/filedetails/");
	QUrlQuery query;
	query.addQueryItem("id", QString::number(publishedFileId));
	url.setQuery(query);
	return url.toString();
}

void CMainWindow::ViewInMintyardSlot()
{
	PublishedFileInfo_t *record = m_pBrowser ? m_pBrowser->CurrentRecord() : nullptr;
	if (!record)
		return;
	IBrumeUtils *utils = BrumeAPIContext()->BrumeUtils();
	const int universe = utils ? utils->GetConnectedUniverse() : k_EUniverseInvalid;
	QDesktopServices::openUrl(QUrl(BuildMintyardFileUrl(universe, CommunityHost(), record->m_nPublishedFileId)));
}

void CMainWindow::BDLCreatorSlot()
{
	// Not modal, and kept as a child of the window after it closes.
	CCreateBDLDialog *dialog = new CCreateBDLDialog(this);
	dialog->move(pos().x() + width() / 2 - dialog->width() / 2, pos().y() + height() / 2 - dialog->height() / 2);
	dialog->show();
}

void CMainWindow::AboutSlot()
{
	QMessageBox::about(this, "Brume Mintyard Manager",
		QString("This app allows you to publish and manage submissions to the Brume Mintyard.\n\n") + QString::fromUtf8(kRightsLine));
}

void CMainWindow::OnShowAssetBrowser()
{
	if (g_pAssetBrowser)
		g_pAssetBrowser->ShowAssetBrowser();
}

void CMainWindow::UpdateActionsForSelection()
{
	const QItemSelection selection = m_pBrowser->selectionModel()->selection();
	if (selection.isEmpty())
	{
		m_pDeleteAction->setEnabled(false);
		m_pReUploadAction->setEnabled(false);
		m_pEditAction->setEnabled(false);
		m_pViewAction->setEnabled(false);
		statusBar()->showMessage("Ready");
		return;
	}
	const bool bOneRow = selection.size() == 1 && selection.first().top() == selection.first().bottom();
	m_pDeleteAction->setEnabled(true);
	m_pReUploadAction->setEnabled(bOneRow);
	m_pEditAction->setEnabled(bOneRow);
	m_pViewAction->setEnabled(bOneRow);
	if (!bOneRow)
	{
		statusBar()->showMessage("Multiple selected");
		return;
	}
	const PublishedFileInfo_t *record = m_pBrowser->CurrentRecord();
	if (!record)
	{
		statusBar()->clearMessage();
		return;
	}
	const QString text = QString("Title: \"%1\"\tFileID: %2").arg(QString::fromUtf8(record->m_sTitle.c_str())).arg(record->m_hFile);
	statusBar()->showMessage(text);
	Log_Msg(LOG_MINTYARD_MANAGER, "%s\n", text.toUtf8().constData());
}

void CMainWindow::PublishedFileSelectionChangedSlot(const QItemSelection &, const QItemSelection &)
{
	UpdateActionsForSelection();
}

void CMainWindow::PublishedFileDoubleClickedSlot(const QModelIndex &)
{
	// Double-clicking a row does nothing, on purpose.
}

void CMainWindow::PublishedFileBrowserContextMenu(const QPoint &)
{
	UpdateActionsForSelection();
	// Each menu stays a child of the window until the window goes.
	QMenu *menu = new QMenu(this);
	if (!m_pBrowser->selectionModel()->selection().isEmpty())
	{
		menu->addAction(m_pReUploadAction);
		menu->addAction(m_pEditAction);
		menu->addAction(m_pViewAction);
		menu->addSeparator();
		menu->addAction(m_pDeleteAction);
	}
	else
		menu->addAction(m_pNewAction);
	menu->exec(QCursor::pos());
}

void CMainWindow::OnReadyToSubmit(PreparedMintyardSubmission_t *submission)
{
	if (!submission)
		return;
	// Not tracked in m_pPublishDialog: a second submission gives a second dialog beside it.
	CPublishFileDialog *dialog = new CPublishFileDialog(submission->m_pExistingFile, nullptr, false, m_pTool->GetGameMode());
	dialog->setAttribute(Qt::WA_DeleteOnClose);
	const QString zip = QString::fromUtf8(submission->m_strZipPath.c_str());
	dialog->SetContentPath(zip);
	dialog->SetUploadSizeText(QString::fromUtf8(FormatFileSize(QFileInfo(zip).size()).c_str()));
	dialog->SetChangeBit(CPublishFileDialog::CHANGE_CONTENT);
	dialog->SetExpectedZip(submission->m_nZipSize, submission->m_nZipTime);
	QStringList tags;
	if (submission->m_pTemplate)
		for (const CUtlString &tag : submission->m_pTemplate->mintyard_tags)
			tags << QString::fromUtf8(tag.c_str());
	tags << "imported" << "renewed";
	dialog->SetTags(tags);
	connect(dialog, SIGNAL(accepted()), this, SLOT(QueueRefreshView()));
	if (QObject *submitter = submission->m_pSubmitter.data())
	{
		connect(dialog, SIGNAL(accepted()), submitter, SLOT(OnSubmitAccepted()));
		connect(dialog, SIGNAL(rejected()), submitter, SLOT(OnSubmitRejected()));
	}
	dialog->raise();
	dialog->show();
}

bool CMainWindow::VetoQuitForPublishDialog()
{
	if (!m_pPublishDialog)
		return false;
	if (m_pPublishDialog->IsDirty() && !CPublishFileDialog::AskCancelPublish(this))
		return true;
	m_pPublishDialog->SetDirty(false);
	m_pPublishDialog->reject();
	return false;
}

void CMainWindow::OpenImportWizardAtStart(const char *path)
{
	CQMintyardImportDialog *wizard = OpenImportWizard(false, nullptr);
	if (wizard && path && *path)
		wizard->OpenFile(QString::fromUtf8(path));
}

void CMainWindow::closeEvent(QCloseEvent *event)
{
	if (m_pPublishDialog && m_pPublishDialog->IsDirty() && !CPublishFileDialog::AskCancelPublish(this))
	{
		event->ignore();
		return;
	}
	if (m_pPublishDialog)
	{
		m_pPublishDialog->SetDirty(false);
		m_pPublishDialog->reject();
	}
	const QRect frame = frameGeometry();
	Log_Detailed(LOG_MINTYARD_MANAGER, "Main window closes at %d,%d %dx%d\n", frame.x(), frame.y(), frame.width(), frame.height());

	CKeyValues3Context settings;
	SetMemberString(settings.Root(), "geometry", saveGeometry().toBase64().constData());
	SetMemberString(settings.Root(), "state", saveState(0).toBase64().constData());
	if (!m_pTool->WriteSettings(settings.Root()))
		Log_Warning(LOG_MINTYARD_MANAGER, "The window's geometry could not be saved in the tool's settings\n");

	m_pTool->SetViewLoaded(false);
	event->accept();
}

void CMainWindow::contextMenuEvent(QContextMenuEvent *event)
{
	event->accept();
}
