// The pack window: the user collects files and folders in a tree, and the packer program
// ("bin/bdl", relative to the working directory) builds a BDL from them.
#pragma once

#include <QMainWindow>
#include <QString>
#include <QStringList>

#include "mintyardmanager/filelistmodel.h"

class QAction;
class QCloseEvent;
class QContextMenuEvent;
class QItemSelection;
class QMenu;
class QModelIndex;
class QProcess;
class QProgressDialog;
class QTreeView;

class CCreateBDLDialog : public QMainWindow
{
	Q_OBJECT

public:
	explicit CCreateBDLDialog(QWidget *parent = nullptr);
	~CCreateBDLDialog() override;

	CFileListModel &Model() { return m_model; }
	QTreeView *TreeView() const { return m_pTreeView; }
	bool IsModified() const { return m_bModified; }
	const QString &LastDir() const { return m_sLastDir; }
	const QString &TargetPath() const { return m_sTargetPath; }
	// The packer run under way, or null.
	QProcess *Process() const { return m_pProcess; }

	QAction *NewAction() const { return m_pNewAction; }
	QAction *ExitAction() const { return m_pExitAction; }
	QAction *SaveAction() const { return m_pSaveAction; }
	QAction *SaveAsAction() const { return m_pSaveAsAction; }
	QAction *OpenAction() const { return m_pOpenAction; }
	QAction *CloseAction() const { return m_pCloseAction; }
	QAction *AddFileAction() const { return m_pAddFileAction; }
	QAction *AddFolderAction() const { return m_pAddFolderAction; }
	QAction *RemoveAction() const { return m_pRemoveAction; }
	QAction *LaunchAction() const { return m_pLaunchAction; }
	QAction *ShowAction() const { return m_pShowAction; }
	QAction *OptionsAction() const { return m_pOptionsAction; }
	QAction *FindAction() const { return m_pFindAction; }
	QAction *SelectAllAction() const { return m_pSelectAllAction; }
	QAction *InvertAction() const { return m_pInvertAction; }
	QAction *AboutAction() const { return m_pAboutAction; }
	QAction *CollapseAction() const { return m_pCollapseAction; }
	QAction *ExpandAction() const { return m_pExpandAction; }

	// Adds one file (with its folders) to the tree.
	bool AddPath(const QString &path);
	// Packs the tree into "marrow2/addons/testaddon.bdl" under the current directory.
	void CreateFixedTarget();
	// Starts the packer on the files and waits, behind a busy progress box, for its end.
	void RunPacker(const QString &target, const QStringList &files);
	// The "file:///" text of the current item.
	QString CurrentItemUrlText() const;

public slots:
	void closeEvent(QCloseEvent *event) override;
	void AddButtonClicked();
	void RemoveButtonClicked();
	void CreateButtonClicked();
	void CancelButtonClicked();
	void BDLFinished(int nExitCode);
	void NewSlot();
	void OpenSlot();
	void CloseSlot();
	void ExitSlot();
	void AddFileSlot();
	void AddFolderSlot();
	void SaveSlot();
	void SaveAsSlot();
	void RemoveSlot();
	void LaunchFileSlot();
	void ShowInExplorerSlot();
	void OptionsSlot();
	void SearchSlot();
	void SelectAllSlot();
	void InvertSelectionSlot();
	void AboutSlot();
	void TreeSelectionChangedSlot(const QItemSelection &newSelection, const QItemSelection &oldSelection);
	void ItemDoubleClickedSlot(const QModelIndex &index);

protected:
	void contextMenuEvent(QContextMenuEvent *event) override;

private:
	void CreateActions();
	void CreateMenusAndToolbar();
	// The menu for the current selection (the caller owns it).
	QMenu *BuildContextMenu();
	// The item of the one selected row, or null when not exactly one row is selected.
	CFileListItem *SingleSelectedItem(int *pSelectedRows = nullptr) const;
	void AddFolderContents(const QString &folder);

	CFileListModel m_model;
	QTreeView *m_pTreeView = nullptr;
	bool m_bModified = false;
	QString m_sLastDir;
	QProcess *m_pProcess = nullptr;
	QProgressDialog *m_pProgress = nullptr;
	QString m_sTargetPath;

	QAction *m_pNewAction = nullptr;
	QAction *m_pExitAction = nullptr;
	QAction *m_pSaveAction = nullptr;
	QAction *m_pSaveAsAction = nullptr;
	QAction *m_pOpenAction = nullptr;
	QAction *m_pCloseAction = nullptr;
	QAction *m_pAddFileAction = nullptr;
	QAction *m_pAddFolderAction = nullptr;
	QAction *m_pRemoveAction = nullptr;
	QAction *m_pLaunchAction = nullptr;
	QAction *m_pShowAction = nullptr;
	QAction *m_pOptionsAction = nullptr;
	QAction *m_pFindAction = nullptr;
	QAction *m_pSelectAllAction = nullptr;
	QAction *m_pInvertAction = nullptr;
	QAction *m_pAboutAction = nullptr;
	QAction *m_pCollapseAction = nullptr;
	QAction *m_pExpandAction = nullptr;
};
