// The main window: the browser of the author's submissions and the actions that start
// everything else.
#pragma once

#include <QMainWindow>
#include <QPointer>

#include "mintyardtoolutils/core/publishedfileinfo.h"
#include "toolframework/toolframework.h"

class CMintyardManagerTool;
class CQMintyardImportDialog;
class CPublishedFileBrowser;
class CPublishFileDialog;
class QAction;
class QItemSelection;
class QModelIndex;
struct PreparedMintyardSubmission_t;

class CMainWindow : public QMainWindow, public IBindTarget
{
	Q_OBJECT

public:
	explicit CMainWindow(CMintyardManagerTool *tool);
	~CMainWindow() override;

	// Built by the tool's start-up, in this order.
	void CreateActions();
	void CreateCentralWidget();

	const char *GetBindTargetName() const override { return "MintyardManagerMainWindow"; }

	CPublishedFileBrowser *Browser() const { return m_pBrowser; }
	QAction *NewAction() const { return m_pNewAction; }
	QAction *ReUploadAction() const { return m_pReUploadAction; }
	QAction *EditAction() const { return m_pEditAction; }
	QAction *DeleteAction() const { return m_pDeleteAction; }
	QAction *ViewAction() const { return m_pViewAction; }
	QAction *RefreshAction() const { return m_pRefreshAction; }
	QAction *CreatePackAction() const { return m_pCreatePackAction; }

	// The question to ask before quitting while a publish form is dirty: true keeps the tool.
	bool VetoQuitForPublishDialog();
	// "-item_file": opens the import wizard, and the file when a path is given.
	void OpenImportWizardAtStart(const char *path);
	// The import wizards this window opened that are still open.
	QList<CQMintyardImportDialog *> ImportWizards() const;

	// The page of a submission on the service's website.
	static QString BuildMintyardFileUrl(int universe, const QString &communityHost, uint64 publishedFileId);
	// The website host: $MINTYARD_COMMUNITY_HOST, else the address of the content service.
	static QString CommunityHost();

public slots:
	void RefreshFileBrowser();
	void ExitSlot();
	void NewSubmissionSlot();
	void ReUploadSubmissionSlot();
	void EditSubmissionSlot();
	void DeleteSubmissionSlot();
	void PublishDialogAcceptedSlot();
	void PublishDialogRejectedSlot();
	void QueueRefreshView();
	void ViewInMintyardSlot();
	void BDLCreatorSlot();
	void AboutSlot();
	void OnShowAssetBrowser();
	void PublishedFileSelectionChangedSlot(const QItemSelection &selected, const QItemSelection &deselected);
	void PublishedFileDoubleClickedSlot(const QModelIndex &index);
	void PublishedFileBrowserContextMenu(const QPoint &position);
	void OnReadyToSubmit(PreparedMintyardSubmission_t *submission);

private slots:
	// A wizard went: its setting (the automation flag) goes into the tool's settings document.
	void ImportWizardDestroyedSlot();

protected:
	void closeEvent(QCloseEvent *event) override;
	void contextMenuEvent(QContextMenuEvent *event) override;

private:
	// Selection-dependent enablement and the status text.
	void UpdateActionsForSelection();
	bool OpenPublishDialog(PublishedFileInfo_t *record, bool bEditOnly);
	// A wizard in mode 0 (new submission) or 1 (update of `record`), started, connected and
	// shown; null when its start failed (it is destroyed then).
	CQMintyardImportDialog *OpenImportWizard(bool bUpdate, const PublishedFileInfo_t *record);

	CPublishFileDialog *m_pPublishDialog = nullptr;
	CPublishedFileBrowser *m_pBrowser = nullptr;
	QAction *m_pNewAction = nullptr;
	QAction *m_pReUploadAction = nullptr;
	QAction *m_pEditAction = nullptr;
	QAction *m_pDeleteAction = nullptr;
	QAction *m_pViewAction = nullptr;
	QAction *m_pRefreshAction = nullptr;
	CMintyardManagerTool *m_pTool;
	QAction *m_pCreatePackAction = nullptr; // made and connected, but in no menu or toolbar
	// The settings document the wizards read and change; written back when one goes.
	CKeyValues3Context m_WizardSettings;
	bool m_bWizardSettingsRead = false;
	QList<QPointer<CQMintyardImportDialog>> m_ImportWizards;
};
