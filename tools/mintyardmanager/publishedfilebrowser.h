// The table of the author's submissions on the Mintyard service.
#pragma once

#include <QAbstractTableModel>
#include <QList>
#include <QTableView>

#include "brume/brume_api.h"
#include "mintyardtoolutils/core/publishedfileinfo.h"

class QProgressDialog;
class QTimer;

class CPublishedFileListModel : public QAbstractTableModel
{
	Q_OBJECT

public:
	enum EColumn
	{
		COLUMN_TITLE = 0,
		COLUMN_TAGS,
		COLUMN_DESCRIPTION,
		COLUMN_UPDATED,
		COLUMN_CREATED,
		COLUMN_OWNER,
		COLUMN_COUNT,
	};

	explicit CPublishedFileListModel(QObject *parent = nullptr);
	~CPublishedFileListModel() override;

	int rowCount(const QModelIndex &parent = QModelIndex()) const override;
	int columnCount(const QModelIndex &parent = QModelIndex()) const override;
	QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
	QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
	// New rows hold no record; removed rows free theirs.
	bool insertRows(int row, int count, const QModelIndex &parent = QModelIndex()) override;
	bool removeRows(int row, int count, const QModelIndex &parent = QModelIndex()) override;
	void sort(int column, Qt::SortOrder order = Qt::AscendingOrder) override;

	// The record of a row, or null when the row is out of range.
	PublishedFileInfo_t *Record(int row) const;
	// Puts a record into a row that insertRows made (the model owns it then).
	void SetRecord(int row, PublishedFileInfo_t *record);
	// Frees every record, inside a model reset.
	void Clear();
	// Appends a row for a file's details. Addon modes keep only files that carry one of the
	// addon tags, item modes only files without one; false when the file was dropped.
	bool AddRecord(const RemoteStorageGetPublishedFileDetailsResult_t &result, bool bAddonMode);
	// Removes every row of the file; the count removed.
	int RemoveFile(uint64 nPublishedFileId);

	// "MM/dd/yyyy hh:mm:ss AP" in local time.
	static QString FormatTime(uint32 secondsSinceEpoch);

private:
	QList<PublishedFileInfo_t *> m_Records;
};

class CPublishedFileBrowser : public QTableView
{
	Q_OBJECT

public:
	explicit CPublishedFileBrowser(QWidget *parent = nullptr);
	~CPublishedFileBrowser() override;

	// First page of a new listing: the author's shared Mintyard files (addon modes) or all
	// his published files (item modes). False when there is no service connection.
	bool StartFileQuery(bool bShared);
	void DeleteSelectedFile();
	PublishedFileInfo_t *CurrentRecord() const;
	CPublishedFileListModel &Model() { return m_model; }
	// Empties the list of ids still to fetch and closes an open progress dialog.
	void ResetQuery();

	// The account id in its bracketed text form ("[U:1:1234]"), in one of four rotating buffers.
	static const char *RenderAccountID(uint64 ulBrumeID);

	// For tests and diagnostics.
	QProgressDialog *ProgressDialog() const { return m_pProgress; }
	QTimer *TimeoutTimer() const { return m_pTimeoutTimer; }
	int PendingCount() const { return m_listPendingIds.size(); }
	int TotalFiles() const { return m_nTotalFiles; }
	bool IsBusy() const;

public slots:
	void QueryTimedOut();

protected:
	void mousePressEvent(QMouseEvent *event) override;

private:
	bool RequestPage(uint32 startIndex, bool bShared);
	void OnEnumerateUser(RemoteStorageEnumerateUserPublishedFilesResult_t *pResult, bool bIOFailure);
	void OnEnumerateShared(RemoteStorageEnumerateUserSharedMintyardFilesResult_t *pResult, bool bIOFailure);
	void OnPageAnswer(EResult eResult, int32 nReturned, int32 nTotal, const PublishedFileId_t *pIds, bool bIOFailure, bool bShared);
	void FetchNextDetails();
	void OnFileDetails(RemoteStorageGetPublishedFileDetailsResult_t *pResult, bool bIOFailure);
	void OnDeleteFile(RemoteStorageDeletePublishedFileResult_t *pResult, bool bIOFailure);
	// Label and value of the progress dialog, which is made when none is open.
	void ShowProgress(const char *label);
	void CloseProgress();
	void SetFetchingResizeModes();
	// Closes the progress dialog, then a critical box titled "Error" with an OK button.
	void ShowError(const QString &text);

	CCallResult<CPublishedFileBrowser, RemoteStorageEnumerateUserPublishedFilesResult_t> m_callEnumerateUser;
	CCallResult<CPublishedFileBrowser, RemoteStorageEnumerateUserSharedMintyardFilesResult_t> m_callEnumerateShared;
	CCallResult<CPublishedFileBrowser, RemoteStorageGetPublishedFileDetailsResult_t> m_callFileDetails;
	CCallResult<CPublishedFileBrowser, RemoteStorageDeletePublishedFileResult_t> m_callDelete;
	int m_nTotalFiles = 0;
	QList<uint64> m_listPendingIds;
	uint64 m_nCurrentFileId = 0;
	bool m_bDetailsFailed = false;
	bool m_bTimedOut = false;
	QProgressDialog *m_pProgress = nullptr;
	QTimer *m_pTimeoutTimer = nullptr;
	CPublishedFileListModel m_model;
	bool m_bAddonMode = false; // the listing is the shared one, and the filter keeps addons
};
