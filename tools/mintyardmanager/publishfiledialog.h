// The publish form: title, description, preview image, tags, visibility and, in the addon
// modes, the addon folder; and the steps that pack, create, upload and report a submission.
#pragma once

#include <QDialog>
#include <QLabel>
#include <QPointer>
#include <QStringList>
#include <QTextEdit>
#include <QVBoxLayout>
#include <functional>

#include "brume/brume_api.h"
#include "mintyardmanager/ugcfilerequest.h"
#include "mintyardtoolutils/core/preparedsubmission.h"
#include "mintyardtoolutils/core/publishedfileinfo.h"

class QCheckBox;
class QComboBox;
class QGroupBox;
class QLineEdit;
class QMimeData;
class QProgressDialog;
class QPushButton;
class QRadioButton;
class QTimer;
class QUrl;
class CMintyardTemplate;

// The preview: draws a placeholder with the wanted size until an image is set, then the image
// letterboxed to the target aspect.
class CLabelCustomPaint : public QLabel
{
	Q_OBJECT
public:
	CLabelCustomPaint(int targetWidth, int targetHeight, QWidget *parent = nullptr);
	int TargetWidth() const { return m_nTargetWidth; }
	int TargetHeight() const { return m_nTargetHeight; }
	// The size the form asks for the preview (it may be made smaller, down to its minimum).
	void SetDisplaySize(const QSize &size) { m_DisplaySize = size; }
	QSize sizeHint() const override { return m_DisplaySize.isValid() ? m_DisplaySize : QLabel::sizeHint(); }

protected:
	void paintEvent(QPaintEvent *event) override;

private:
	int m_nTargetWidth;
	int m_nTargetHeight;
	QSize m_DisplaySize;
};

// The change note: shows an instruction until first clicked or typed into.
class CTextEditCustomPaint : public QTextEdit
{
	Q_OBJECT
public:
	CTextEditCustomPaint(int targetWidth, QWidget *parent = nullptr);
	bool IsActive() const { return m_bActive; }
	void SetActive(bool bActive) { m_bActive = bActive; }

protected:
	void paintEvent(QPaintEvent *event) override;
	void mousePressEvent(QMouseEvent *event) override;

private:
	bool m_bActive = false;
	int m_nTargetWidth;
};

// A vertical layout that will not grow past a size set once the form is built.
class CVBoxLayoutMaxSize : public QVBoxLayout
{
public:
	using QVBoxLayout::QVBoxLayout;
	QSize maximumSize() const override { return m_MaxSize; }
	void SetMaxSize(const QSize &size) { m_MaxSize = size; }

private:
	QSize m_MaxSize = QSize(-1, -1);
};

// Paints the placeholder of the preview and of the change note inside `rect`.
void PaintPublishPlaceholder(QPainter &painter, const QRect &rect, int inset, const QString &text);

class CPublishFileDialog : public QDialog
{
	Q_OBJECT

public:
	enum EPublishState
	{
		PUBLISH_STATE_START = 0,
		PUBLISH_STATE_PACK = 1,
		PUBLISH_STATE_SUBMIT = 2,
		PUBLISH_STATE_WAIT = 3,
	};
	enum EChangeBits
	{
		CHANGE_TITLE = 1,
		CHANGE_DESCRIPTION = 2,
		CHANGE_CONTENT = 4,
		CHANGE_PREVIEW = 8,
		CHANGE_TAGS = 16,
		CHANGE_VISIBILITY = 32,
		CHANGE_FOLDER = 64,
		CHANGE_CHANGELOG = 128,
	};

	CPublishFileDialog(const PublishedFileInfo_t *record, QWidget *parent, bool bEditOnly, int mode);
	~CPublishFileDialog() override;

	virtual uint32 GetAppID();
	// Called just before the final submit.
	virtual void OnBeforeSubmitItem(UGCUpdateHandle_t) {}

	// The question asked before a dirty form is thrown away: true on Yes.
	static bool AskCancelPublish(QWidget *parent);

	bool IsDirty() const { return m_bDirty; }
	void SetDirty(bool bDirty);
	void SetChangeBit(uint32 bit);
	uint32 ChangeBits() const { return m_nChangeBits; }
	void SetTags(const QStringList &tags);
	void SetContentPath(const QString &path);
	void SetUploadSizeText(const QString &text);
	void SetExpectedZip(uint32 size, uint64 time)
	{
		m_nExpectedZipSize = size;
		m_nExpectedZipTime = time;
	}
	const PublishedFileInfo_t &Record() const { return m_record; }
	PublishedFileInfo_t &Record() { return m_record; }
	int PublishState() const { return m_nPublishState; }

	bool Validate();
	void SetPreviewImage(const QString &path, bool bMarkChanged);
	static QString FindDroppedImage(const QMimeData *mimeData);
	// Applies the extra-tag boxes to a tag list: a ticked box's tag is added at the end when
	// absent, an unticked box's tag loses its first occurrence.
	void ApplyTagBoxes(CUtlVector<CUtlString> &tags) const;

	// Widgets, for the main window and for tests.
	QLineEdit *TitleEdit() const { return m_pTitleEdit; }
	QTextEdit *DescriptionEdit() const { return m_pDescriptionEdit; }
	CTextEditCustomPaint *ChangeNoteEdit() const { return m_pChangeNoteEdit; }
	CLabelCustomPaint *PreviewLabel() const { return m_pPreviewLabel; }
	QLabel *UploadSizeLabel() const { return m_pUploadSizeLabel; }
	QComboBox *AddonCombo() const { return m_pAddonCombo; }
	QRadioButton *RadioPublic() const { return m_pRadioPublic; }
	QRadioButton *RadioFriends() const { return m_pRadioFriends; }
	QRadioButton *RadioHidden() const { return m_pRadioHidden; }
	QPushButton *SubmitButton() const { return m_pSubmitButton; }
	QPushButton *BrowseButton() const { return m_pBrowseButton; }
	const QList<QCheckBox *> &TagBoxes() const { return m_vecTagBoxes; }
	QProgressDialog *Progress() const { return m_pProgress; }

	// Every page the dialog opens goes through this; tests replace it to watch.
	static std::function<void(const QUrl &)> &UrlOpener();
	// When set, every message box of the dialog goes to it instead (icon, title, text) and its
	// answer is taken as the button pressed; tests use it so that nothing waits for a click.
	static std::function<int(int, const QString &, const QString &)> &MessageHook();
	static int ShowMessage(QWidget *parent, int icon, const QString &title, const QString &text, bool bYesNo);

	// The call-result handlers, public so that a result can be handed in directly.
	void OnCreateItem(CreateItemResult_t *pResult, bool bIOFailure);
	void OnSubmitItemUpdate(SubmitItemUpdateResult_t *pResult, bool bIOFailure);
	void ReportFailure(int result);

public slots:
	void reject() override;
	void BrowseImageButtonClicked();
	void TitleTextEdited(const QString &strText);
	void DescriptionTextChanged();
	void ChangelogTextChanged();
	void CustomGameFolderChanged(int nindex);
	void VisibilityChanged(int nindex = 0);
	void SubmitButtonClicked();
	void CancelButtonClicked();
	void PreviewDownloadTimerUpdate();
	void OnTagToggled();
	void OnItemTypeChanged();

protected:
	void timerEvent(QTimerEvent *event) override;
	void dragEnterEvent(QDragEnterEvent *event) override;
	void dropEvent(QDropEvent *event) override;

private:
	void BuildAddonList();
	void BuildForm();
	void AddTagSections(class QFormLayout *form);
	void LoadRecord();
	void ShowProgress(const char *token);
	void CloseProgress();
	void StopTimer();
	void ShowError(const QString &text);
	int VisibilityFromRadios() const;

	// The flow (publishflow.cpp).
	bool PublishStep();
	bool ConfirmFolderUnchanged();
	bool PackAddon(CUtlString &outPath);
	bool PrepareContent(CUtlString &outFolder, bool bNew);
	bool WritePreview(const QString &path);
	bool WritePublishData(const CUtlString &folder);
	void SubmitItem(bool bNew);
	void SubmitEditOnly();
	void SetTagsOnUpdate(IBrumeUGC *ugc, UGCUpdateHandle_t handle);
	QString MakePreviewPath() const;
	CUtlString AddonsRoot() const;

	QString m_sContentPath;
	uint32 m_nExpectedZipSize = 0;
	uint64 m_nExpectedZipTime = 0;
	QLineEdit *m_pTitleEdit = nullptr;
	QTextEdit *m_pDescriptionEdit = nullptr;
	QLabel *m_pUploadSizeLabel = nullptr;
	CLabelCustomPaint *m_pPreviewLabel = nullptr;
	QGroupBox *m_pVisibilityGroup = nullptr;
	QRadioButton *m_pRadioPublic = nullptr;
	QRadioButton *m_pRadioFriends = nullptr;
	QRadioButton *m_pRadioHidden = nullptr;
	QPushButton *m_pSubmitButton = nullptr;
	CTextEditCustomPaint *m_pChangeNoteEdit = nullptr;
	bool m_bDirty = false;
	QProgressDialog *m_pProgress = nullptr;
	QStringList m_listAddonFolders;
	int32 m_nDefaultAddon = -1;
	QComboBox *m_pAddonCombo = nullptr;
	QString m_sTempPreviewPath;
	// Files the dialog made for an upload (fetched and written previews), removed when it goes.
	QStringList m_listTempFiles;
	// The addon packed next to its folder and not yet moved into the upload folder; a flow that
	// stops before the move removes it.
	QString m_sPackedAddonPath;
	void DiscardPackedAddon();
	QList<QCheckBox *> m_vecTagBoxes;
	CCallResult<CPublishFileDialog, RemoteStoragePublishFileResult_t> m_callPublish; // never armed
	CCallResult<CPublishFileDialog, SubmitItemUpdateResult_t> m_callSubmitUpdate;
	CCallResult<CPublishFileDialog, BrumeUGCQueryCompleted_t> m_callQuery; // never armed
	CUGCFileRequest m_previewRequest;
	QTimer *m_pPreviewTimer = nullptr;
	PublishedFileInfo_t m_record;
	uint32 m_nChangeBits = 0;
	bool m_bExisting = false;
	CCallResult<CPublishFileDialog, CreateItemResult_t> m_callCreate;
	int m_eMode;
	bool m_bEditOnly;
	int32 m_nPublishState = PUBLISH_STATE_START;
	uint64 m_hUpdate = 0;
	int32 m_nTimerId = 0;

	QPushButton *m_pBrowseButton = nullptr;
	QPushButton *m_pLockButton = nullptr;
	QString m_sBaseTitle;
};
