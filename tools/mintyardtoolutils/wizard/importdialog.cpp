#include "mintyardtoolutils/wizard/importdialog.h"

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QDateTime>
#include <QFileInfo>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QTimer>
#include <QVBoxLayout>

#include "core/keyvalues3.h"
#include "core/kv3text.h"
#include "core/strtools.h"
#include "core/utlbuffer.h"
#include "filesystem/filesystem.h"
#include "mintyardtoolutils/core/sessionfile.h"
#include "mintyardtoolutils/pipeline/importdriver.h"
#include "mintyardtoolutils/wizard/imagepreview.h"
#include "mintyardtoolutils/wizard/importlogwidget.h"
#include "mintyardtoolutils/wizard/inputwidgets.h"
#include "mintyardtoolutils/wizard/submitwidget.h"
#include "mintyardtoolutils/wizard/typepickwidget.h"
#include "mintyardtoolutils/wizard/wizardpage.h"
#include "mintyardtoolutils/wizard/wizardutils.h"
#include "toolframework/toolframework.h"

namespace
{
MintyardItemIdPageFactory_t s_pItemIdPageFactory = nullptr;

const char *const s_pszStepCaptions[MINTYARD_STEP_COUNT] = {
	"#ZARN_Mintyard_HaldenSelectItemID",
	"#ZARN_Mintyard_PickType",
	"#ZARN_Mintyard_SelectInputs",
	"#ZARN_Mintyard_ImportLog",
	"#ZARN_Mintyard_ImagePreview",
	"#ZARN_Mintyard_EditGeneric",
	"#ZARN_Mintyard_EditPortrait",
	"#ZARN_Mintyard_Submit",
};

const QColor STEP_CURRENT_COLOR(51, 144, 192);
// Red that stays readable on the dark look's buttons.
const QColor WIZARD_RED(255, 80, 80);

// The first path of a search path, or "".
CUtlString FirstSearchPath(const char *pszPathID)
{
	if (!g_pFullFileSystem)
		return CUtlString();
	CUtlVector<CUtlString> paths;
	g_pFullFileSystem->GetSearchPathList(pszPathID, paths);
	return paths.empty() ? CUtlString() : paths[0];
}

// A load that fails with one of these left the session as it was.
bool FailedBeforeChange(const ImportMessageList &list)
{
	for (const char *pszToken : { "#ZARN_Mintyard_Err_SessionLoadKV3", "#ZARN_Mintyard_Err_SessionLoadBadTemplate",
			 "#ZARN_Mintyard_Err_SessionLoadCannotChangeTemplate", "#ZARN_Mintyard_Err_ZipCannotCreate", "#ZARN_Mintyard_Err_ZipWithoutManifest",
			 "Internal Error: Unzip lost manifest" })
	{
		if (list.Find(pszToken))
			return true;
	}
	return false;
}

QPushButton *MakeBarButton(const QString &text, QWidget *pParent)
{
	QPushButton *pButton = new QPushButton(text, pParent);
	pButton->setFont(MakeWizardFont(16, true));
	return pButton;
}
} // namespace

void SetMintyardItemIdPageFactory(MintyardItemIdPageFactory_t pFactory)
{
	s_pItemIdPageFactory = pFactory;
}

// ---------------------------------------------------------------------------------------------

CQStackedWidget::CQStackedWidget(QWidget *pParent) : QWidget(pParent)
{
	m_pLayout = new QVBoxLayout(this);
	m_pLayout->setContentsMargins(0, 0, 0, 0);
}

void CQStackedWidget::AddPage(QWidget *pPage)
{
	if (!pPage)
		return;
	m_Pages.push_back(pPage);
	m_pLayout->addWidget(pPage);
	pPage->hide();
	if (!m_pCurrent)
	{
		m_pCurrent = pPage;
		pPage->show();
	}
}

void CQStackedWidget::SetCurrentPage(QWidget *pPage)
{
	if (m_pCurrent == pPage)
	{
		if (pPage)
			pPage->show();
		return;
	}
	if (m_pCurrent)
		m_pCurrent->hide();
	m_pCurrent = pPage;
	if (pPage)
		pPage->show();
}

// ---------------------------------------------------------------------------------------------

QString CQMintyardImportDialog::FormatMessages(const CUtlVector<MintyardImportMessageEntry_t> &list)
{
	return FormatImportMessages(list);
}

QString CQMintyardImportDialog::FormatErrors(const CUtlVector<MintyardImportMessageEntry_t> &list)
{
	return FormatImportErrors(list);
}

CQMintyardImportDialog::CQMintyardImportDialog(int nMode, KeyValues3 *pSettings, QWidget *pParent)
	: QWidget(pParent, Qt::Window), m_pSettings(pSettings), m_nMode(nMode)
{
	setAttribute(Qt::WA_DeleteOnClose);
	setObjectName("mintyard_import_dialog");
	ApplyMintyardWizardLook(this);

	ImportMessageList templateProblems;
	m_Session.GetCatalogue().LoadTemplates(templateProblems);
	if (templateProblems.Count() > 0)
		ShowWizardMessage(this, QMessageBox::Warning, MintyardTranslate("Problems Initializing Mintyard Import Templates"),
			FormatImportMessages(templateProblems));

	setWindowIcon(LoadWizardIcon("game:tools/images/mintyardmanager/mintyard_import.ico", QStyle::SP_FileDialogNewFolder));
	setWindowTitle(MintyardTranslate("#ZARN_Mintyard_MintyardImportDialog"));
	m_Session.AddListener(this);

	m_pScrollArea = new QScrollArea(this);
	m_pScrollArea->setWidgetResizable(true);
	m_pScrollArea->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
	m_pScrollArea->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
	m_pScrollArea->setMinimumWidth(1);
	m_pStack = new CQStackedWidget(m_pScrollArea);
	m_pScrollArea->setWidget(m_pStack);

	CreatePages();
	CreateLayout();

	if (m_pSettings && m_pAutomationCheck)
	{
		if (GetMemberBool(FindMember(m_pSettings, "mintyard_import_dialog"), "automation", false))
			m_pAutomationCheck->setChecked(true);
	}
	resize(800, 800);
}

CQMintyardImportDialog::~CQMintyardImportDialog()
{
	if (m_pAutomationTimer)
		m_pAutomationTimer->stop();
	if (m_pItemIdPage)
		m_pItemIdPage->AttachSession(nullptr);
	if (m_pInputPicker)
		m_pInputPicker->DetachSession();
	m_Session.RemoveListener(this);
	// The pages go before the session they show.
	delete m_pScrollArea;
	m_pScrollArea = nullptr;
}

void CQMintyardImportDialog::CreatePages()
{
	m_pTypePick = new CQMintyardTypePickWidget(m_pStack, &m_Session.GetCatalogue());
	connect(m_pTypePick, SIGNAL(TemplatePicked(const CMintyardTemplate *)), this, SLOT(OnTemplatePicked(const CMintyardTemplate *)));
	connect(m_pTypePick, SIGNAL(LoadZipClicked()), this, SLOT(OnLoadZip()));
	connect(m_pTypePick, SIGNAL(LoadSessionClicked()), this, SLOT(OnLoadSession()));
	if (m_nMode == MINTYARD_WIZARD_ITEM_DEFINITION && s_pItemIdPageFactory)
	{
		m_pItemIdPage = s_pItemIdPageFactory(m_pStack);
		if (m_pItemIdPage)
		{
			connect(m_pItemIdPage->GetWidget(), SIGNAL(ReadyStatusChanged()), this, SLOT(OnReadyStatusChanged()));
			connect(m_pItemIdPage->GetWidget(), SIGNAL(OnReturnPressedItemName()), this, SLOT(OnReturnPressedItemName()));
		}
	}
	m_pInputPicker = new CQImportInputPicker(m_pStack);
	m_pLog = new CQMintyardImportLogWidget(m_pStack);
	m_pPreviewEditor = CreateMintyardWizardPage(MINTYARD_WIZARD_PAGE_PREVIEW_EDITOR, m_pStack);
	m_pImagePreview = new CQImportImagePreview(m_pStack);
	m_pPortraitEditor = CreateMintyardWizardPage(MINTYARD_WIZARD_PAGE_PORTRAIT_EDITOR, m_pStack);
	m_pSubmit = new CQMintyardSubmitWidget(m_pStack);
	connect(m_pLog, SIGNAL(ReadyStatusChanged()), this, SLOT(OnReadyStatusChanged()));
	connect(m_pPreviewEditor->GetWidget(), SIGNAL(ReadyStatusChanged()), this, SLOT(OnReadyStatusChanged()));
	connect(m_pImagePreview, SIGNAL(ReadyStatusChanged()), this, SLOT(OnReadyStatusChanged()));
	connect(m_pPortraitEditor->GetWidget(), SIGNAL(ReadyStatusChanged()), this, SLOT(OnReadyStatusChanged()));
	connect(m_pSubmit, SIGNAL(SubmitPressed()), this, SLOT(OnSubmit()));

	if (m_pItemIdPage)
		m_pStack->AddPage(m_pItemIdPage->GetWidget());
	m_pStack->AddPage(m_pTypePick);
	m_pStack->AddPage(m_pInputPicker);
	m_pStack->AddPage(m_pLog);
	m_pStack->AddPage(m_pPreviewEditor->GetWidget());
	m_pStack->AddPage(m_pImagePreview);
	m_pStack->AddPage(m_pPortraitEditor->GetWidget());
	m_pStack->AddPage(m_pSubmit);

	m_pPages[MINTYARD_STEP_ITEM_ID] = m_pItemIdPage ? m_pItemIdPage->GetWidget() : nullptr;
	m_pPages[MINTYARD_STEP_TYPE_PICK] = m_pTypePick;
	m_pPages[MINTYARD_STEP_INPUTS] = m_pInputPicker;
	m_pPages[MINTYARD_STEP_LOG] = m_pLog;
	m_pPages[MINTYARD_STEP_IMAGE_PREVIEW] = m_pImagePreview;
	m_pPages[MINTYARD_STEP_PREVIEW_EDITOR] = m_pPreviewEditor->GetWidget();
	m_pPages[MINTYARD_STEP_PORTRAIT_EDITOR] = m_pPortraitEditor->GetWidget();
	m_pPages[MINTYARD_STEP_SUBMIT] = m_pSubmit;
}

void CQMintyardImportDialog::CreateLayout()
{
	m_pNextButton = MakeBarButton(MintyardTranslate("#ZARN_Mintyard_Next"), this);
	m_pNextButton->setObjectName("mintyard_next");
	m_pPrevButton = MakeBarButton(MintyardTranslate("#ZARN_Mintyard_Prev"), this);
	m_pPrevButton->setObjectName("mintyard_prev");
	m_pSaveButton = MakeBarButton(MintyardTranslate("#ZARN_Mintyard_SaveSession"), this);
	m_pSaveButton->setObjectName("mintyard_save_session");
	m_pSaveButton->setIcon(LoadWizardIcon("game:tools/images/common/save_sm.png", QStyle::SP_DialogSaveButton));
	connect(m_pNextButton, SIGNAL(clicked()), this, SLOT(OnNextClicked()));
	connect(m_pPrevButton, SIGNAL(clicked()), this, SLOT(OnPrevClicked()));
	connect(m_pSaveButton, SIGNAL(clicked()), this, SLOT(OnSaveSession()));
	if (m_nMode == MINTYARD_WIZARD_ITEM_DEFINITION)
	{
		m_pAutomationCheck = new QCheckBox(MintyardTranslate("#ZARN_Mintyard_Automate"), this);
		connect(m_pAutomationCheck, SIGNAL(toggled(bool)), this, SLOT(OnAutomationChanged()));
	}
	m_pStatusLabel = new QLabel(this);
	m_pStatusLabel->setObjectName("mintyard_status");
	m_pStatusLabel->setWordWrap(true);
	m_pStatusLabel->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
	SetWidgetTextColor(m_pStatusLabel, QPalette::WindowText, Qt::red);
	m_pNameLabel = new QLabel(this);
	m_pNameLabel->setFont(MakeWizardFont(24, true));
	m_pTemplateLabel = new QLabel(this);
	m_pTemplateLabel->setFont(MakeWizardFont(24, true));
	SetWidgetTextColor(m_pTemplateLabel, QPalette::WindowText, STEP_CURRENT_COLOR);

	m_pUnresolvedWidget = new QWidget(this);
	QHBoxLayout *pUnresolved = new QHBoxLayout(m_pUnresolvedWidget);
	pUnresolved->setContentsMargins(0, 0, 0, 0);
	QPushButton *pUnresolvedButton = new QPushButton(MintyardTranslate("#ZARN_Mintyard_UnresolvedErrors"), m_pUnresolvedWidget);
	pUnresolvedButton->setObjectName("mintyard_unresolved");
	SetWidgetTextColor(pUnresolvedButton, QPalette::ButtonText, WIZARD_RED);
	const QPixmap warning = LoadWizardPixmap("game:tools/images/common/icon_warning_sm.png");
	if (!warning.isNull())
	{
		pUnresolvedButton->setIcon(QIcon(warning));
		pUnresolvedButton->setIconSize(warning.size());
	}
	connect(pUnresolvedButton, SIGNAL(clicked()), this, SLOT(OnShowUnresolvedErrors()));
	pUnresolved->addWidget(pUnresolvedButton);
	m_pUnresolvedWidget->hide();

	QVBoxLayout *pLayout = new QVBoxLayout(this);
	QHBoxLayout *pTop = new QHBoxLayout();
	pTop->addSpacing(25);
	pTop->addWidget(m_pSaveButton);
	pTop->addStretch(1);
	pTop->addWidget(m_pTemplateLabel);
	pTop->addSpacing(25);
	pTop->addWidget(m_pNameLabel);
	pTop->addStretch(1);
	pLayout->addLayout(pTop);

	QHBoxLayout *pSteps = new QHBoxLayout();
	pSteps->addStretch(1);
	const QPixmap separator = LoadWizardPixmap("game:tools/images/mintyardmanager/step_separator.png");
	for (int i = 0; i < MINTYARD_STEP_COUNT; ++i)
	{
		m_pStepSeparators[i] = new QLabel(this);
		if (!separator.isNull())
			m_pStepSeparators[i]->setPixmap(separator);
		else
			m_pStepSeparators[i]->setText(QString::fromUtf8("\u203a"));
		m_pStepLabels[i] = new QLabel(MintyardTranslate(s_pszStepCaptions[i]), this);
		m_pStepLabels[i]->setFont(MakeWizardFont(12, true));
		pSteps->addWidget(m_pStepSeparators[i]);
		pSteps->addWidget(m_pStepLabels[i]);
	}
	pSteps->addStretch(1);
	pLayout->addLayout(pSteps);

	QFrame *pLine = new QFrame(this);
	pLine->setFixedHeight(2);
	pLine->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
	pLine->setStyleSheet("background-color: #c0c0c0;");
	pLayout->addWidget(pLine);
	pLayout->addWidget(m_pScrollArea, 1);

	QHBoxLayout *pBottom = new QHBoxLayout();
	pBottom->addWidget(m_pPrevButton);
	if (m_pAutomationCheck)
		pBottom->addWidget(m_pAutomationCheck);
	pBottom->addStretch(1);
	pBottom->addWidget(m_pUnresolvedWidget);
	pBottom->addStretch(1);
	pBottom->addWidget(m_pStatusLabel, 2);
	pBottom->addWidget(m_pNextButton);
	pLayout->addLayout(pBottom);
}

// ---------------------------------------------------------------------------------------------

bool CQMintyardImportDialog::Start(const PublishedFileInfo_t *pExistingRecord)
{
	m_Session.SetSubmissionDetails(pExistingRecord);
	m_Session.m_bSourceControlEdit = false;
	m_Session.SetSearchPaths(FirstSearchPath("GAME").c_str(), FirstSearchPath("CONTENT").c_str());
	if (m_nMode == MINTYARD_WIZARD_NEW_SUBMISSION)
	{
		ShowPage(MINTYARD_STEP_TYPE_PICK);
		return true;
	}
	ImportMessageList list;
	const CMintyardTemplate *pFound = m_Session.GetCatalogue().FindTemplateForRecord(pExistingRecord, list);
	const QString path = AskWizardFileName(this, MINTYARD_FILE_DIALOG_OPEN, MintyardTranslate("#ZARN_Mintyard_BrowseForPreviousSessionCaption"),
		MintyardDialogFolder(), SessionFilter());
	if (!path.isEmpty())
	{
		MintyardDialogFolder() = QFileInfo(path).absolutePath();
		OpenFile(path);
		const CMintyardTemplate *pLoaded = m_Session.GetTemplate();
		if (pLoaded != pFound)
		{
			const QString loadedId = pLoaded ? QString::fromUtf8(pLoaded->id.c_str()) : QString("UNKNOWN");
			const QString foundId = pFound ? QString::fromUtf8(pFound->id.c_str()) : QString("UNKNOWN");
			ShowWizardMessage(this, QMessageBox::Warning, MintyardTranslate("#ZARN_Mintyard_DifferentTemplate_Title"),
				MintyardTranslate("#ZARN_Mintyard_DifferentTemplate_Text").arg(loadedId, foundId));
		}
		if (m_nCurrentPage < 0)
			ShowPage(pLoaded ? MINTYARD_STEP_INPUTS : MINTYARD_STEP_TYPE_PICK);
		return true;
	}
	if (pFound)
	{
		{
			CMintyardSuppressChangeNotifications suppress;
			m_Session.ClearElements();
			m_Session.SetTemplate(pFound);
		}
		m_pInputPicker->AttachSession(&m_Session);
		ShowPage(MINTYARD_STEP_INPUTS);
		return true;
	}
	ShowWizardMessage(this, QMessageBox::Warning, MintyardTranslate("#ZARN_Mintyard_UnrecognizedTemplate"), FormatImportMessages(list));
	ShowPage(MINTYARD_STEP_TYPE_PICK);
	return true;
}

QString CQMintyardImportDialog::SessionFilter() const
{
	return MintyardTranslate("#ZARN_Mintyard_BrowseForSessionFilter") + (IsDevelopmentUniverse() ? "(*.txt *.zip)" : "(*.txt)");
}

void CQMintyardImportDialog::OpenFile(const QString &path)
{
	if (path.endsWith(".zip", Qt::CaseInsensitive))
		LoadZipRoad(path);
	else
		LoadSessionRoad(path);
}

namespace
{
// The session as it stands, as session document text, to put back after a load that failed
// half-way. Empty without a template.
CUtlString SnapshotSession(const CMintyardImportSession &session)
{
	if (!session.GetTemplate())
		return CUtlString();
	CKeyValues3Context document;
	SaveContext ctx;
	ctx.pContext = &document;
	ImportMessageList ignored;
	if (!BuildSessionDocument(session, ctx, ignored))
		return CUtlString();
	CUtlBuffer buffer(CUtlBuffer::TEXT_BUFFER);
	CUtlString error;
	if (!SaveKV3(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC, document.Root(), &error, &buffer))
		return CUtlString();
	return CUtlString(buffer.View());
}
} // namespace

bool CQMintyardImportDialog::LoadSessionRoad(const QString &path)
{
	const CUtlString snapshot = SnapshotSession(m_Session);
	const CUtlString snapshotTemplate = m_Session.GetTemplate() ? m_Session.GetTemplate()->id : CUtlString();
	const QFileInfo info(path);
	// Hand-written sessions may name their files relative to the session's folder.
	LoadContext ctx;
	ctx.rewritePaths = true;
	ctx.basePath = info.absolutePath().toUtf8().constData();
	ImportMessageList list;
	bool bOk;
	{
		QApplication::setOverrideCursor(Qt::WaitCursor);
		bOk = LoadSessionFile(m_Session, ctx, info.absoluteFilePath().toUtf8().constData(), list);
		QApplication::restoreOverrideCursor();
	}
	FinishLoad(bOk, list, snapshot, snapshotTemplate);
	return bOk;
}

bool CQMintyardImportDialog::LoadZipRoad(const QString &path)
{
	const CUtlString snapshot = SnapshotSession(m_Session);
	const CUtlString snapshotTemplate = m_Session.GetTemplate() ? m_Session.GetTemplate()->id : CUtlString();
	ImportMessageList list;
	QApplication::setOverrideCursor(Qt::WaitCursor);
	const bool bOk = LoadSubmissionZip(m_Session, QFileInfo(path).absoluteFilePath().toUtf8().constData(), list);
	QApplication::restoreOverrideCursor();
	FinishLoad(bOk, list, snapshot, snapshotTemplate);
	return bOk;
}

void CQMintyardImportDialog::FinishLoad(bool bOk, const ImportMessageList &list, const CUtlString &snapshot, const CUtlString &snapshotTemplate)
{
	if (bOk)
	{
		m_pInputPicker->AttachSession(&m_Session);
		ShowPage(MINTYARD_STEP_INPUTS);
		return;
	}
	// A load that got past its checks has begun to change the session: what the author had is
	// put back, so that a bad file never costs the inputs.
	if (!snapshot.empty() && !FailedBeforeChange(list))
	{
		CKeyValues3Context document;
		CUtlString error;
		ImportMessageList restoreList;
		if (LoadKV3(document.Root(), &error, snapshot, KV3_FORMAT_GENERIC, "the session before the load"))
		{
			CMintyardSuppressChangeNotifications suppress;
			if (!m_Session.GetTemplate() || m_Session.GetTemplate()->id != snapshotTemplate)
				m_Session.SetTemplate(m_Session.GetCatalogue().FindTemplate(snapshotTemplate.c_str()));
			ApplySessionDocument(m_Session, LoadContext(), document.Root(), restoreList);
		}
		if (m_pInputPicker->Session())
			m_pInputPicker->AttachSession(&m_Session);
	}
	ShowWizardMessage(this, QMessageBox::Warning, MintyardTranslate("#ZARN_Mintyard_LoadSessionError"), FormatImportMessages(list));
	Validate();
	UpdateButtons();
}

// ---------------------------------------------------------------------------------------------

bool CQMintyardImportDialog::IsPageEnabled(int nStep) const
{
	switch (nStep)
	{
	case MINTYARD_STEP_ITEM_ID:
		return m_nMode == MINTYARD_WIZARD_ITEM_DEFINITION && m_pItemIdPage;
	case MINTYARD_STEP_TYPE_PICK:
		return m_nMode != MINTYARD_WIZARD_ITEM_DEFINITION;
	case MINTYARD_STEP_INPUTS:
	case MINTYARD_STEP_LOG:
	case MINTYARD_STEP_SUBMIT:
		return true;
	case MINTYARD_STEP_IMAGE_PREVIEW:
		return m_Session.HasPreviewImageSets();
	case MINTYARD_STEP_PREVIEW_EDITOR:
		return !m_Session.m_Models.empty();
	case MINTYARD_STEP_PORTRAIT_EDITOR:
		return m_Session.HasPortraitPage();
	default:
		return false;
	}
}

void CQMintyardImportDialog::Validate()
{
	ImportMessageList list;
	m_Session.ValidateAll(list, IsDevelopmentUniverse());
	m_ValidationMessages = list.Entries();
}

void CQMintyardImportDialog::ShowPage(int nStep)
{
	if (nStep < 0 || nStep >= MINTYARD_STEP_COUNT)
		return;
	m_nCurrentPage = nStep;
	bool bFirstShown = true;
	for (int i = 0; i < MINTYARD_STEP_COUNT; ++i)
	{
		const bool bEnabled = IsPageEnabled(i);
		m_pStepLabels[i]->setVisible(bEnabled);
		m_pStepSeparators[i]->setVisible(bEnabled && !bFirstShown);
		if (bEnabled)
			bFirstShown = false;
		if (i == nStep)
			SetWidgetTextColor(m_pStepLabels[i], QPalette::WindowText, STEP_CURRENT_COLOR);
		else
			m_pStepLabels[i]->setPalette(QPalette());
	}
	m_pStack->SetCurrentPage(m_pPages[nStep]);
	m_pScrollArea->verticalScrollBar()->setValue(0);
	Validate();
	UpdateButtons();
}

void CQMintyardImportDialog::ChangePage(int nFrom, int nDelta)
{
	int nStep = nFrom + nDelta;
	while (nStep >= 0 && nStep < MINTYARD_STEP_COUNT && !IsPageEnabled(nStep))
		nStep += nDelta;
	if (nStep < 0 || nStep >= MINTYARD_STEP_COUNT)
		return;
	switch (nStep)
	{
	case MINTYARD_STEP_ITEM_ID:
		if (m_pItemIdPage)
		{
			m_pItemIdPage->AttachSession(&m_Session);
			ShowPage(MINTYARD_STEP_ITEM_ID);
		}
		break;
	case MINTYARD_STEP_TYPE_PICK:
		break;
	case MINTYARD_STEP_INPUTS:
		m_pInputPicker->AttachSession(&m_Session);
		ShowPage(MINTYARD_STEP_INPUTS);
		break;
	case MINTYARD_STEP_LOG:
		RunImportStep(nDelta);
		break;
	case MINTYARD_STEP_IMAGE_PREVIEW:
		m_pImagePreview->AttachSession(&m_Session);
		ShowPage(nStep);
		break;
	case MINTYARD_STEP_PREVIEW_EDITOR:
		m_pPreviewEditor->AttachSession(&m_Session);
		ShowPage(nStep);
		break;
	case MINTYARD_STEP_PORTRAIT_EDITOR:
		m_pPortraitEditor->AttachSession(&m_Session);
		ShowPage(nStep);
		break;
	case MINTYARD_STEP_SUBMIT:
		BuildZipStep();
		break;
	}
}

void CQMintyardImportDialog::RunImportStep(int nDelta)
{
	QApplication::setOverrideCursor(Qt::WaitCursor);
	ShowPage(MINTYARD_STEP_LOG);
	if (nDelta <= 0)
	{
		// Coming back to the log does not import again.
		UpdateButtons();
		QApplication::restoreOverrideCursor();
		return;
	}
	m_pLog->Clear();
	m_pLog->AddLine(MintyardTranslate("Starting import...\n"));
	m_pLog->AddLine(MintyardTranslate("Importing files...\n"));
	ImportMessageList list;
	list.SetLog(m_pLog);
	list.SetEchoToConsole(true);
	RunImport(&m_Session, m_nMode == MINTYARD_WIZARD_ITEM_DEFINITION, list);
	m_RunMessages = list.Entries();
	Validate();
	if (list.GetErrorCount() > 0)
	{
		const QString text = FormatImportMessages(list);
		ShowWizardMessage(this, QMessageBox::Warning, MintyardTranslate("#ZARN_Mintyard_ImportError"), text);
		m_pLog->AddLine("Error: ", Qt::red);
		m_pLog->AddLine(text, Qt::red);
		UpdateButtons();
	}
	else if (list.Count() == 0)
		m_pLog->AddLine(MintyardTranslate("Import successful!\n"), Qt::green);
	else
	{
		const QColor orange(224, 150, 58);
		m_pLog->AddLine(MintyardTranslate("Import complete, with problems:\n"), orange);
		m_pLog->AddLine(FormatImportMessages(list), orange);
	}
	m_pLog->FlushToEdit();
	UpdateButtons();
	QApplication::restoreOverrideCursor();
}

bool CQMintyardImportDialog::BuildZipStep()
{
	if (m_nMode != MINTYARD_WIZARD_ITEM_DEFINITION)
	{
		m_ZipPath.clear();
		m_nZipSize = 0;
		m_nZipTime = 0;
		ImportMessageList list;
		QApplication::setOverrideCursor(Qt::WaitCursor);
		const bool bOk = SaveSubmissionZip(m_Session, m_ZipPath, list);
		QApplication::restoreOverrideCursor();
		if (!bOk)
		{
			ShowWizardMessage(this, QMessageBox::Warning, MintyardTranslate("#ZARN_Mintyard_ImportError"), FormatImportMessages(list));
			return false;
		}
		const QFileInfo info(QString::fromUtf8(m_ZipPath.c_str()));
		m_nZipSize = (uint32)info.size();
		m_nZipTime = (uint64)info.lastModified().toSecsSinceEpoch();
	}
	m_pSubmit->SetZip(m_ZipPath, m_nZipSize);
	m_pSubmit->Prepare(m_nMode, &m_Session, !m_RunMessages.empty() || !m_ValidationMessages.empty());
	ShowPage(MINTYARD_STEP_SUBMIT);
	return true;
}

void CQMintyardImportDialog::UpdateButtons()
{
	bool bPrevVisible = true, bNextVisible = true, bNextEnabled = true, bSaveVisible = true;
	ImportMessageList blocking;
	switch (m_nCurrentPage)
	{
	case MINTYARD_STEP_ITEM_ID:
		bPrevVisible = false;
		bSaveVisible = false;
		if (m_pItemIdPage)
		{
			m_pItemIdPage->Validate(blocking);
			bNextEnabled = blocking.GetErrorCount() == 0;
		}
		else
			bNextEnabled = false;
		break;
	case MINTYARD_STEP_TYPE_PICK:
		bPrevVisible = bNextVisible = bSaveVisible = false;
		break;
	case MINTYARD_STEP_INPUTS:
		bPrevVisible = m_nMode == MINTYARD_WIZARD_ITEM_DEFINITION;
		ValidateElements(&m_Session, blocking, IsDevelopmentUniverse());
		bNextEnabled = blocking.GetErrorCount() == 0;
		break;
	case MINTYARD_STEP_LOG:
		bNextEnabled = !HasImportError(m_RunMessages) && !HasImportError(m_ValidationMessages);
		break;
	case MINTYARD_STEP_PORTRAIT_EDITOR:
		m_pPortraitEditor->Validate(blocking);
		bNextEnabled = blocking.GetErrorCount() == 0;
		break;
	case MINTYARD_STEP_SUBMIT:
		bNextVisible = false;
		break;
	default:
		break;
	}
	m_pPrevButton->setVisible(bPrevVisible);
	m_pNextButton->setVisible(bNextVisible);
	m_pNextButton->setEnabled(bNextEnabled);
	m_pSaveButton->setVisible(bSaveVisible);

	const CMintyardTemplate *pTemplate = m_Session.GetTemplate();
	m_pTemplateLabel->setText(pTemplate ? MintyardTranslate(pTemplate->name) : QString());
	m_pNameLabel->setText(QString::fromUtf8(m_Session.GetNameElement()->Value().c_str()));
	const bool bAnyMessage = !m_RunMessages.empty() || !m_ValidationMessages.empty();
	const bool bAnyError = HasImportError(m_RunMessages) || HasImportError(m_ValidationMessages);
	m_pUnresolvedWidget->setVisible(m_nCurrentPage != MINTYARD_STEP_ITEM_ID && bAnyMessage && !bAnyError);
	m_pStatusLabel->setText(FormatImportErrors(blocking));
	if (bNextEnabled)
		m_pNextButton->setPalette(QPalette());
	else
		SetWidgetTextColor(m_pNextButton, QPalette::ButtonText, WIZARD_RED);
}

// ---------------------------------------------------------------------------------------------
// Slots

void CQMintyardImportDialog::OnSessionChanged()
{
	Validate();
	UpdateButtons();
}

void CQMintyardImportDialog::OnReadyStatusChanged()
{
	Validate();
	UpdateButtons();
}

void CQMintyardImportDialog::OnTemplatePicked(const CMintyardTemplate *pTemplate)
{
	{
		CMintyardSuppressChangeNotifications suppress;
		m_Session.ClearElements();
		m_Session.SetTemplate(pTemplate);
	}
	m_pInputPicker->AttachSession(&m_Session);
	ShowPage(MINTYARD_STEP_INPUTS);
}

void CQMintyardImportDialog::OnNextClicked()
{
	if (m_nCurrentPage == MINTYARD_STEP_ITEM_ID && m_pItemIdPage)
		m_pItemIdPage->Commit();
	ChangePage(m_nCurrentPage, +1);
}

void CQMintyardImportDialog::OnPrevClicked()
{
	if (m_pAutomationCheck)
		m_pAutomationCheck->setChecked(false);
	ChangePage(m_nCurrentPage, -1);
}

bool CQMintyardImportDialog::OnSaveSession()
{
	QString path = AskWizardFileName(this, MINTYARD_FILE_DIALOG_SAVE, MintyardTranslate("#ZARN_Mintyard_BrowseForSessionCaption"), MintyardDialogFolder(),
		MintyardTranslate("#ZARN_Mintyard_BrowseForSessionFilter") + "(*.txt)");
	if (path.isEmpty())
		return false;
	MintyardDialogFolder() = QFileInfo(path).absolutePath();
	if (QFileInfo(path).suffix().isEmpty())
		path += ".txt";
	ImportMessageList list;
	if (!SaveSessionFile(m_Session, path.toUtf8().constData(), list))
	{
		ShowWizardMessage(this, QMessageBox::Warning, MintyardTranslate("#ZARN_Mintyard_SaveSessionError"), FormatImportMessages(list));
		return false;
	}
	return true;
}

void CQMintyardImportDialog::OnLoadSession()
{
	const QString path = AskWizardFileName(this, MINTYARD_FILE_DIALOG_OPEN, MintyardTranslate("#ZARN_Mintyard_BrowseForSessionCaption"),
		MintyardDialogFolder(), SessionFilter());
	if (path.isEmpty())
		return;
	MintyardDialogFolder() = QFileInfo(path).absolutePath();
	OpenFile(path);
}

void CQMintyardImportDialog::OnLoadZip()
{
	const QString path = AskWizardFileName(this, MINTYARD_FILE_DIALOG_OPEN, MintyardTranslate("#ZARN_Mintyard_BrowseForZipCaption"),
		MintyardDialogFolder(), MintyardTranslate("#ZARN_Mintyard_BrowseForZipFilter") + "(*.zip)");
	if (path.isEmpty())
		return;
	MintyardDialogFolder() = QFileInfo(path).absolutePath();
	LoadZipRoad(path);
}

void CQMintyardImportDialog::OnSubmit()
{
	PreparedMintyardSubmission_t submission;
	submission.m_strZipPath = m_ZipPath;
	submission.m_nZipSize = m_nZipSize;
	submission.m_nZipTime = m_nZipTime;
	submission.m_pTemplate = m_Session.GetTemplate();
	submission.m_pExistingFile = m_nMode != MINTYARD_WIZARD_NEW_SUBMISSION ? m_Session.GetSubmissionDetails() : nullptr;
	submission.m_pSubmitter = this;
	Q_EMIT ReadyToSubmit(&submission);
}

void CQMintyardImportDialog::OnSubmitAccepted()
{
	m_bSubmitted = true;
	close();
}

void CQMintyardImportDialog::OnSubmitRejected()
{
	raise();
	activateWindow();
}

void CQMintyardImportDialog::OnShowUnresolvedErrors()
{
	ShowWizardMessage(this, QMessageBox::Warning, MintyardTranslate("#ZARN_Mintyard_UnresolvedErrors_Title"),
		FormatImportMessages(m_ValidationMessages) + FormatImportMessages(m_RunMessages));
}

void CQMintyardImportDialog::OnAutomationChanged()
{
	m_bAutomation = m_pAutomationCheck && m_pAutomationCheck->isChecked();
	if (m_bAutomation)
	{
		if (!m_pAutomationTimer)
		{
			m_pAutomationTimer = new QTimer(this);
			connect(m_pAutomationTimer, SIGNAL(timeout()), this, SLOT(OnCheckAutomaticAdvance()));
		}
		m_pAutomationTimer->start(0);
	}
	else if (m_pAutomationTimer)
	{
		m_pAutomationTimer->stop();
		m_pAutomationTimer->deleteLater();
		m_pAutomationTimer = nullptr;
	}
}

void CQMintyardImportDialog::OnCheckAutomaticAdvance()
{
	if (m_bAutomation && m_nCurrentPage != MINTYARD_STEP_ITEM_ID && !m_pNextButton->isHidden())
		ChangePage(m_nCurrentPage, +1);
}

void CQMintyardImportDialog::OnReturnPressedItemName()
{
	if (m_bAutomation && !m_pNextButton->isHidden())
		OnNextClicked();
}

void CQMintyardImportDialog::closeEvent(QCloseEvent *pEvent)
{
	if (m_pSettings)
	{
		KeyValues3 *pTable = FindMember(m_pSettings, "mintyard_import_dialog");
		if (!pTable || !pTable->IsTable())
		{
			pTable = AddMember(m_pSettings, "mintyard_import_dialog");
			pTable->MakeTable();
		}
		SetMemberBool(pTable, "automation", m_bAutomation);
	}
	if (m_nCurrentPage == MINTYARD_STEP_TYPE_PICK || m_bAutomation)
	{
		pEvent->accept();
		return;
	}
	const int nButtons = m_bSubmitted ? (QMessageBox::Yes | QMessageBox::No) : (QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel);
	const int nAnswer = ShowWizardMessage(this, QMessageBox::Question, MintyardTranslate("#ZARN_Mintyard_SaveSessionPrompt_Title"),
		MintyardTranslate(m_bSubmitted ? "#ZARN_Mintyard_SaveSessionPrompt_Text_PostSubmit" : "#ZARN_Mintyard_SaveSessionPrompt_Text"), nButtons,
		QMessageBox::Yes);
	if (nAnswer == QMessageBox::Yes)
	{
		if (OnSaveSession())
			pEvent->accept();
		else
			pEvent->ignore();
	}
	else if (nAnswer == QMessageBox::No)
		pEvent->accept();
	else
		pEvent->ignore();
}
