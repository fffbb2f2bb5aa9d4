// The window of the import wizard. It owns the import session and one page per step, decides
// which steps a session has, runs the import when the log page is entered, builds the submission
// zip when the submit page is entered, keeps the messages of the last run and the last
// validation, shows what blocks the next step, saves and loads sessions at any step, and hands
// the finished zip to its caller through ReadyToSubmit().
#pragma once

#include <QPointer>
#include <QWidget>

#include "core/utlstring.h"
#include "core/utlvector.h"
#include "mintyardtoolutils/core/importmessages.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/core/preparedsubmission.h"

class KeyValues3;
class CMintyardTemplate;
class CQImportImagePreview;
class CQImportInputPicker;
class CQMintyardImportLogWidget;
class CQMintyardSubmitWidget;
class CQMintyardTypePickWidget;
class IMintyardWizardPage;
class QCheckBox;
class QLabel;
class QPushButton;
class QScrollArea;
class QTimer;
class QVBoxLayout;

// A minimal stack of pages: the first page added is shown, setting a page hides the old one.
class CQStackedWidget : public QWidget
{
	Q_OBJECT

public:
	explicit CQStackedWidget(QWidget *pParent = nullptr);
	void AddPage(QWidget *pPage);
	void SetCurrentPage(QWidget *pPage);
	QWidget *CurrentPage() const { return m_pCurrent; }
	int PageCount() const { return (int)m_Pages.size(); }

private:
	CUtlVector<QPointer<QWidget>> m_Pages;
	QPointer<QWidget> m_pCurrent;
	QVBoxLayout *m_pLayout;
};

// The steps of the wizard, by index.
enum EMintyardWizardStep
{
	MINTYARD_STEP_ITEM_ID = 0,		   // only in mode 2, with an Item ID page registered
	MINTYARD_STEP_TYPE_PICK = 1,	   // not in mode 2
	MINTYARD_STEP_INPUTS = 2,		   // always
	MINTYARD_STEP_LOG = 3,			   // always
	MINTYARD_STEP_IMAGE_PREVIEW = 4,   // image sets with a preview
	MINTYARD_STEP_PREVIEW_EDITOR = 5,  // at least one model
	MINTYARD_STEP_PORTRAIT_EDITOR = 6, // an item with a portrait
	MINTYARD_STEP_SUBMIT = 7,		   // always
	MINTYARD_STEP_COUNT = 8,
};

// The wizard's modes.
enum EMintyardWizardMode
{
	MINTYARD_WIZARD_NEW_SUBMISSION = 0,
	MINTYARD_WIZARD_UPDATE_SUBMISSION = 1,
	MINTYARD_WIZARD_ITEM_DEFINITION = 2,
};

// The Item ID page of mode 2 (choosing or creating the item in the game's own item tree) comes
// from the items module, through this factory; without one mode 2 has no step 0.
typedef IMintyardWizardPage *(*MintyardItemIdPageFactory_t)(QWidget *pParent);
void SetMintyardItemIdPageFactory(MintyardItemIdPageFactory_t pFactory);

class CQMintyardImportDialog : public QWidget, public IMintyardImportSessionListener
{
	Q_OBJECT

public:
	// `pSettings` is the tool's settings document (a table, not owned, may be null).
	CQMintyardImportDialog(int nMode, KeyValues3 *pSettings, QWidget *pParent = nullptr);
	~CQMintyardImportDialog() override;

	// Called right after construction, with the published record for an update (null for a new
	// submission). Always true.
	bool Start(const PublishedFileInfo_t *pExistingRecord);
	// A session file, or a submission zip (".zip", case ignored).
	void OpenFile(const QString &path);

	void OnSessionChanged() override;

	bool IsPageEnabled(int nStep) const;
	void ShowPage(int nStep);
	void ChangePage(int nFrom, int nDelta);

	// State, for the caller and for tests.
	int CurrentPage() const { return m_nCurrentPage; }
	int Mode() const { return m_nMode; }
	CMintyardImportSession &Session() { return m_Session; }
	const CUtlVector<MintyardImportMessageEntry_t> &RunMessages() const { return m_RunMessages; }
	const CUtlVector<MintyardImportMessageEntry_t> &ValidationMessages() const { return m_ValidationMessages; }
	const CUtlString &ZipPath() const { return m_ZipPath; }
	uint32 ZipSize() const { return m_nZipSize; }
	uint64 ZipTime() const { return m_nZipTime; }
	bool IsSubmitted() const { return m_bSubmitted; }
	bool IsAutomated() const { return m_bAutomation; }

	QPushButton *PrevButton() const { return m_pPrevButton; }
	QPushButton *NextButton() const { return m_pNextButton; }
	QPushButton *SaveButton() const { return m_pSaveButton; }
	QLabel *StatusLabel() const { return m_pStatusLabel; }
	QLabel *TemplateLabel() const { return m_pTemplateLabel; }
	QLabel *NameLabel() const { return m_pNameLabel; }
	QWidget *UnresolvedWidget() const { return m_pUnresolvedWidget; }
	QCheckBox *AutomationCheck() const { return m_pAutomationCheck; }
	QLabel *StepLabel(int nStep) const { return m_pStepLabels[nStep]; }
	QLabel *StepSeparator(int nStep) const { return m_pStepSeparators[nStep]; }
	QWidget *Page(int nStep) const { return m_pPages[nStep]; }
	CQMintyardTypePickWidget *TypePick() const { return m_pTypePick; }
	CQImportInputPicker *InputPicker() const { return m_pInputPicker; }
	CQMintyardImportLogWidget *Log() const { return m_pLog; }
	CQImportImagePreview *ImagePreview() const { return m_pImagePreview; }
	IMintyardWizardPage *PreviewEditor() const { return m_pPreviewEditor; }
	IMintyardWizardPage *PortraitEditor() const { return m_pPortraitEditor; }
	CQMintyardSubmitWidget *SubmitPage() const { return m_pSubmit; }

	// FormatMessages and FormatErrors of the window: the shared display form of message lists.
	static QString FormatMessages(const CUtlVector<MintyardImportMessageEntry_t> &list);
	static QString FormatErrors(const CUtlVector<MintyardImportMessageEntry_t> &list);

public Q_SLOTS:
	void OnTemplatePicked(const CMintyardTemplate *pTemplate);
	void OnNextClicked();
	void OnPrevClicked();
	void OnReadyStatusChanged();
	bool OnSaveSession();
	void OnLoadSession();
	void OnLoadZip();
	void OnSubmit();
	void OnSubmitAccepted();
	void OnSubmitRejected();
	void OnShowUnresolvedErrors();
	void OnAutomationChanged();
	void OnCheckAutomaticAdvance();
	void OnReturnPressedItemName();

Q_SIGNALS:
	void ReadyToSubmit(PreparedMintyardSubmission_t *pSubmission);

protected:
	void closeEvent(QCloseEvent *pEvent) override;

private:
	void CreatePages();
	void CreateLayout();
	void UpdateButtons();
	void Validate();
	void RunImportStep(int nDelta);
	bool BuildZipStep();
	// The two roads of a load; false (after telling the author) when it failed.
	bool LoadSessionRoad(const QString &path);
	bool LoadZipRoad(const QString &path);
	void FinishLoad(bool bOk, const ImportMessageList &list, const CUtlString &snapshot, const CUtlString &snapshotTemplate);
	QString SessionFilter() const;

	KeyValues3 *m_pSettings;
	int m_nCurrentPage = -1;
	QLabel *m_pStepLabels[MINTYARD_STEP_COUNT] = {};
	QLabel *m_pStepSeparators[MINTYARD_STEP_COUNT] = {};
	QPushButton *m_pPrevButton = nullptr;
	QPushButton *m_pNextButton = nullptr;
	QPushButton *m_pSaveButton = nullptr;
	QLabel *m_pStatusLabel = nullptr;
	QLabel *m_pTemplateLabel = nullptr;
	QLabel *m_pNameLabel = nullptr;
	QWidget *m_pUnresolvedWidget = nullptr;
	QCheckBox *m_pAutomationCheck = nullptr;
	QScrollArea *m_pScrollArea = nullptr;
	CQStackedWidget *m_pStack = nullptr;
	IMintyardWizardPage *m_pItemIdPage = nullptr;
	CQMintyardTypePickWidget *m_pTypePick = nullptr;
	CQImportInputPicker *m_pInputPicker = nullptr;
	CQImportImagePreview *m_pImagePreview = nullptr;
	CQMintyardImportLogWidget *m_pLog = nullptr;
	IMintyardWizardPage *m_pPreviewEditor = nullptr;
	IMintyardWizardPage *m_pPortraitEditor = nullptr;
	CQMintyardSubmitWidget *m_pSubmit = nullptr;
	QWidget *m_pPages[MINTYARD_STEP_COUNT] = {};
	CMintyardImportSession m_Session;
	CUtlString m_ZipPath;
	uint32 m_nZipSize = 0;
	uint64 m_nZipTime = 0;
	int m_nMode;
	CUtlVector<MintyardImportMessageEntry_t> m_RunMessages;
	CUtlVector<MintyardImportMessageEntry_t> m_ValidationMessages;
	bool m_bSubmitted = false;
	bool m_bAutomation = false;
	QTimer *m_pAutomationTimer = nullptr;
};
