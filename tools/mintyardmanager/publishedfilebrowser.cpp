#include "mintyardmanager/publishedfilebrowser.h"

#include <algorithm>

#include <QDateTime>
#include <QHeaderView>
#include <QMessageBox>
#include <QMouseEvent>
#include <QProgressDialog>
#include <QTimer>

#include "brume/brume_api.h"
#include "core/strtools.h"

namespace
{
const char *const kNoConnection =
	"Could not find connection to Brume. Please make sure that Brume is running and that you are logged in. Restart the app to try again.";
const int kDetailsTimeoutMs = 15000;

bool LessNoCase(const CUtlString &a, const CUtlString &b)
{
	return V_stricmp(a.c_str(), b.c_str()) < 0;
}
} // namespace

// ---------------------------------------------------------------------------------------------
// CPublishedFileListModel

CPublishedFileListModel::CPublishedFileListModel(QObject *parent) : QAbstractTableModel(parent)
{
}

CPublishedFileListModel::~CPublishedFileListModel()
{
	qDeleteAll(m_Records);
}

int CPublishedFileListModel::rowCount(const QModelIndex &parent) const
{
	return parent.isValid() ? 0 : m_Records.size();
}

int CPublishedFileListModel::columnCount(const QModelIndex &) const
{
	return COLUMN_COUNT;
}

QString CPublishedFileListModel::FormatTime(uint32 secondsSinceEpoch)
{
	return QDateTime::fromSecsSinceEpoch(secondsSinceEpoch).toLocalTime().toString("MM/dd/yyyy hh:mm:ss AP");
}

QVariant CPublishedFileListModel::data(const QModelIndex &index, int role) const
{
	if (role != Qt::DisplayRole || !index.isValid() || index.row() >= m_Records.size() || index.column() >= COLUMN_COUNT)
		return QVariant();
	const PublishedFileInfo_t *record = m_Records[index.row()];
	if (!record)
		return QVariant();
	switch (index.column())
	{
	case COLUMN_TITLE:
		return QString::fromUtf8(record->m_sTitle.c_str());
	case COLUMN_TAGS:
		return QString::fromUtf8(record->m_sTagsText.c_str());
	case COLUMN_DESCRIPTION:
		return QString::fromUtf8(record->m_sDescription.c_str());
	case COLUMN_UPDATED:
		return FormatTime(record->m_rtimeUpdated);
	case COLUMN_CREATED:
		return FormatTime(record->m_rtimeCreated);
	case COLUMN_OWNER:
		return QString::fromLatin1(record->m_sOwnerText.c_str()); // as it stands, not from UTF-8
	default:
		return QVariant();
	}
}

QVariant CPublishedFileListModel::headerData(int section, Qt::Orientation orientation, int role) const
{
	if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
		return QVariant();
	static const char *const s_Headers[COLUMN_COUNT] = { "Title", "Tags", "Description", "Last Updated", "Date Created", "Owner" };
	if (section < 0 || section >= COLUMN_COUNT)
		return QVariant();
	return QString(s_Headers[section]);
}

bool CPublishedFileListModel::insertRows(int row, int count, const QModelIndex &parent)
{
	if (parent.isValid() || row < 0 || row > m_Records.size() || count < 1)
		return false;
	beginInsertRows(parent, row, row + count - 1);
	for (int i = 0; i < count; ++i)
		m_Records.insert(row, nullptr);
	endInsertRows();
	return true;
}

bool CPublishedFileListModel::removeRows(int row, int count, const QModelIndex &parent)
{
	if (parent.isValid() || row < 0 || count < 1 || row + count > m_Records.size())
		return false;
	beginRemoveRows(parent, row, row + count - 1);
	for (int i = 0; i < count; ++i)
		delete m_Records.takeAt(row);
	endRemoveRows();
	return true;
}

void CPublishedFileListModel::sort(int column, Qt::SortOrder order)
{
	auto key = [column](const PublishedFileInfo_t *record) -> const CUtlString & {
		switch (column)
		{
		case COLUMN_TAGS:
			return record->m_sTagsText;
		case COLUMN_DESCRIPTION:
			return record->m_sDescription;
		case COLUMN_OWNER:
			return record->m_sOwnerText;
		default:
			return record->m_sTitle;
		}
	};
	auto less = [&](const PublishedFileInfo_t *a, const PublishedFileInfo_t *b) {
		if (!a || !b)
			return a < b;
		switch (column)
		{
		case COLUMN_UPDATED:
			return a->m_rtimeUpdated < b->m_rtimeUpdated;
		case COLUMN_CREATED:
			return a->m_rtimeCreated < b->m_rtimeCreated;
		default:
			return LessNoCase(key(a), key(b));
		}
	};
	if (column >= 0 && column < COLUMN_COUNT)
	{
		// Unstable on purpose: rows with equal keys may change places.
		if (order == Qt::AscendingOrder)
			std::sort(m_Records.begin(), m_Records.end(), less);
		else
			std::sort(m_Records.begin(), m_Records.end(), [&](const PublishedFileInfo_t *a, const PublishedFileInfo_t *b) { return less(b, a); });
	}
	// The signal names column 6, one past the last: that index is invalid, and the views
	// refresh all the same.
	emit dataChanged(index(0, 0), index(m_Records.size() - 1, COLUMN_COUNT));
}

PublishedFileInfo_t *CPublishedFileListModel::Record(int row) const
{
	return (row >= 0 && row < m_Records.size()) ? m_Records[row] : nullptr;
}

void CPublishedFileListModel::SetRecord(int row, PublishedFileInfo_t *record)
{
	if (row < 0 || row >= m_Records.size())
	{
		delete record;
		return;
	}
	delete m_Records[row];
	m_Records[row] = record;
	emit dataChanged(index(row, 0), index(row, COLUMN_COUNT - 1));
}

void CPublishedFileListModel::Clear()
{
	beginResetModel();
	qDeleteAll(m_Records);
	m_Records.clear();
	endResetModel();
}

// ---------------------------------------------------------------------------------------------
// CPublishedFileBrowser

CPublishedFileBrowser::CPublishedFileBrowser(QWidget *parent) : QTableView(parent)
{
	m_pTimeoutTimer = new QTimer(this);
	m_pTimeoutTimer->setSingleShot(true);
	m_pTimeoutTimer->setInterval(kDetailsTimeoutMs);
	connect(m_pTimeoutTimer, SIGNAL(timeout()), this, SLOT(QueryTimedOut()));

	setModel(&m_Model);
	setContextMenuPolicy(Qt::CustomContextMenu);
	setAlternatingRowColors(true);
	verticalHeader()->setEnabled(false);
	setSelectionBehavior(QAbstractItemView::SelectRows);
	setSelectionMode(QAbstractItemView::SingleSelection);
	setShowGrid(false);
}

CPublishedFileBrowser::~CPublishedFileBrowser()
{
	if (m_pProgress)
		m_pProgress->close();
	m_Model.Clear();
}

void CPublishedFileBrowser::mousePressEvent(QMouseEvent *event)
{
	QTableView::mousePressEvent(event);
	if (!indexAt(event->pos()).isValid())
		clearSelection();
}

void CPublishedFileBrowser::QueryTimedOut()
{
	m_bTimedOut = true;
}

void CPublishedFileBrowser::ResetQuery()
{
	m_listPendingIds.clear();
	if (m_pProgress)
	{
		m_pProgress->close();
		m_pProgress->deleteLater();
		m_pProgress = nullptr;
	}
}

void CPublishedFileBrowser::SetFetchingResizeModes()
{
	QHeaderView *header = horizontalHeader();
	for (int column : { 0, 1, 3, 4, 5 })
		header->setSectionResizeMode(column, QHeaderView::ResizeToContents);
	header->setSectionResizeMode(2, QHeaderView::Stretch);
	header->setStretchLastSection(false);
}

bool CPublishedFileBrowser::StartFileQuery(bool bShared)
{
	SetFetchingResizeModes();
	m_listPendingIds.clear();
	if (!RequestPage(0, bShared))
		return false;
	if (m_pProgress)
	{
		m_pProgress->setLabelText("Retrieving files from Brume Cloud, please wait...");
		m_pProgress->setValue(m_nTotalFiles - m_listPendingIds.size());
	}
	else
	{
		m_pProgress = new QProgressDialog(this, Qt::WindowTitleHint | Qt::WindowSystemMenuHint);
		m_pProgress->setWindowTitle("Downloading mintyard info...");
		m_pProgress->setLabelText("Retrieving files from Brume Cloud, please wait...");
		m_pProgress->show();
	}
	m_pTimeoutTimer->start();
	return true;
}

bool CPublishedFileBrowser::RequestPage(uint32, bool)
{
	if (!BrumeAPIContext()->BrumeRemoteStorage())
	{
		ShowError(kNoConnection);
		return false;
	}
	// The client of this build offers no remote storage yet, so a connected client never
	// reaches here; paging through the service's listing comes with its operations.
	return false;
}

void CPublishedFileBrowser::DeleteSelectedFile()
{
	PublishedFileInfo_t *record = CurrentRecord();
	if (!record)
		return;
	if (!BrumeAPIContext()->BrumeRemoteStorage())
		ShowError("Unable to delete the file from Brume!");
}

PublishedFileInfo_t *CPublishedFileBrowser::CurrentRecord() const
{
	const QModelIndex current = currentIndex();
	if (!current.isValid())
		return nullptr;
	return m_Model.Record(current.row());
}

void CPublishedFileBrowser::ShowError(const QString &text)
{
	if (m_pProgress)
	{
		m_pProgress->close();
		m_pProgress->deleteLater();
		m_pProgress = nullptr;
	}
	QMessageBox::critical(this, "Error", text, QMessageBox::Ok);
}
