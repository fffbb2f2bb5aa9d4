#include "mintyardmanager/publishedfilebrowser.h"

#include <algorithm>

#include <QDateTime>
#include <QHash>
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
	// The view asks for the same cells again and again (sizing columns to their contents, sorting),
	// and each local-time conversion makes the C library look at the time zone file: the texts
	// are kept. Views live on the GUI thread only.
	static QHash<uint32, QString> s_Texts;
	auto found = s_Texts.constFind(secondsSinceEpoch);
	if (found != s_Texts.constEnd())
		return *found;
	if (s_Texts.size() >= 4096)
		s_Texts.clear();
	const QString text = QDateTime::fromSecsSinceEpoch(secondsSinceEpoch).toLocalTime().toString("MM/dd/yyyy hh:mm:ss AP");
	s_Texts.insert(secondsSinceEpoch, text);
	return text;
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

namespace
{
const char *const kAddonTags[] = { "Custom Game", "Destination", "Asset Pack", "Mirel Addon", "Map" };

bool IsAddonTag(const QString &tag)
{
	for (const char *addonTag : kAddonTags)
		if (tag == QLatin1String(addonTag))
			return true;
	return false;
}
} // namespace

bool CPublishedFileListModel::AddRecord(const RemoteStorageGetPublishedFileDetailsResult_t &result, bool bAddonMode)
{
	char tagText[k_cchTagListMax];
	V_strncpy(tagText, result.m_rgchTags, sizeof(tagText));
	QStringList pieces = QString::fromUtf8(tagText).split(",", Qt::SkipEmptyParts);

	bool bHasAddonTag = false;
	for (const QString &piece : pieces)
		bHasAddonTag = bHasAddonTag || IsAddonTag(piece);
	if (bHasAddonTag != bAddonMode)
		return false;

	if (pieces.size() >= 2)
	{
		std::sort(pieces.begin(), pieces.end(), [](const QString &a, const QString &b) { return a.toUtf8() < b.toUtf8(); });
	}

	const int row = m_Records.size();
	insertRows(row, 1);
	PublishedFileInfo_t *record = new PublishedFileInfo_t;
	char text[k_cchPublishedDocumentDescriptionMax];
	record->m_nPublishedFileId = result.m_nPublishedFileId;
	V_strncpy(text, result.m_rgchTitle, k_cchPublishedDocumentTitleMax);
	record->m_sTitle = text;
	V_strncpy(text, result.m_rgchDescription, sizeof(text));
	record->m_sDescription = text;
	record->m_hFile = result.m_hFile;
	record->m_hPreviewFile = result.m_hPreviewFile;
	record->m_rtimeCreated = result.m_rtimeCreated;
	record->m_rtimeUpdated = result.m_rtimeUpdated;
	record->m_eVisibility = result.m_eVisibility;
	V_strncpy(text, result.m_pchFileName, k_cchFilenameMax);
	record->m_sFileName = text;
	record->m_nFileSize = result.m_nFileSize;
	record->m_nPreviewFileSize = result.m_nPreviewFileSize;
	record->m_eFileType = result.m_eFileType;

	CBrumeAPIContext *context = BrumeAPIContext();
	const char *persona = context->BrumeFriends() ? context->BrumeFriends()->GetFriendPersonaName(result.m_ulBrumeIDOwner) : "";
	record->m_sOwnerText = CUtlString(persona ? persona : "") + " " + CPublishedFileBrowser::RenderAccountID(result.m_ulBrumeIDOwner);
	record->m_bOwnedByMe = context->BrumeUser() && result.m_ulBrumeIDOwner == context->BrumeUser()->GetBrumeID();

	CUtlString joined;
	for (const QString &piece : pieces)
	{
		const QByteArray utf8 = piece.toUtf8();
		record->m_vecTags.push_back(CUtlString(utf8.constData(), utf8.size()));
		if (!joined.empty())
			joined += ", ";
		joined.append(utf8.constData(), utf8.size());
	}
	record->m_sTagsText = joined;
	SetRecord(row, record);
	return true;
}

int CPublishedFileListModel::RemoveFile(uint64 nPublishedFileId)
{
	int nRemoved = 0;
	for (int row = m_Records.size() - 1; row >= 0; --row)
	{
		if (m_Records[row] && m_Records[row]->m_nPublishedFileId == nPublishedFileId)
		{
			removeRows(row, 1);
			++nRemoved;
		}
	}
	return nRemoved;
}

// ---------------------------------------------------------------------------------------------
// CPublishedFileBrowser

CPublishedFileBrowser::CPublishedFileBrowser(QWidget *parent) : QTableView(parent)
{
	m_pTimeoutTimer = new QTimer(this);
	m_pTimeoutTimer->setSingleShot(true);
	m_pTimeoutTimer->setInterval(kDetailsTimeoutMs);
	connect(m_pTimeoutTimer, SIGNAL(timeout()), this, SLOT(QueryTimedOut()));

	setModel(&m_model);
	setContextMenuPolicy(Qt::CustomContextMenu);
	setAlternatingRowColors(true);
	verticalHeader()->setEnabled(false);
	setSelectionBehavior(QAbstractItemView::SelectRows);
	setSelectionMode(QAbstractItemView::SingleSelection);
	setShowGrid(false);
	// Columns that size to their contents measure the rows in sight only: measuring every row
	// after each record that arrives would make a long listing quadratic.
	horizontalHeader()->setResizeContentsPrecision(0);
}

CPublishedFileBrowser::~CPublishedFileBrowser()
{
	if (m_pProgress)
		m_pProgress->close();
	m_model.Clear();
	m_callDelete.Cancel();
	m_callFileDetails.Cancel();
	m_callEnumerateShared.Cancel();
	m_callEnumerateUser.Cancel();
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

bool CPublishedFileBrowser::IsBusy() const
{
	return m_callEnumerateUser.IsActive() || m_callEnumerateShared.IsActive() || m_callFileDetails.IsActive() ||
		   m_callDelete.IsActive();
}

void CPublishedFileBrowser::ResetQuery()
{
	m_listPendingIds.clear();
	CloseProgress();
}

void CPublishedFileBrowser::CloseProgress()
{
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

void CPublishedFileBrowser::ShowProgress(const char *label)
{
	if (m_pProgress)
	{
		m_pProgress->setLabelText(label);
		m_pProgress->setValue(m_nTotalFiles - m_listPendingIds.size());
	}
	else
	{
		m_pProgress = new QProgressDialog(this, Qt::WindowTitleHint | Qt::WindowSystemMenuHint);
		m_pProgress->setWindowTitle("Downloading mintyard info...");
		m_pProgress->setLabelText(label);
		m_pProgress->show();
	}
}

bool CPublishedFileBrowser::StartFileQuery(bool bShared)
{
	SetFetchingResizeModes();
	m_listPendingIds.clear();
	m_bAddonMode = bShared;
	if (!RequestPage(0, bShared))
		return false;
	ShowProgress("Retrieving files from Brume Cloud, please wait...");
	m_pTimeoutTimer->start();
	return true;
}

bool CPublishedFileBrowser::RequestPage(uint32 startIndex, bool bShared)
{
	CBrumeAPIContext *context = BrumeAPIContext();
	IBrumeRemoteStorage *storage = context->BrumeRemoteStorage();
	if (!storage)
	{
		ShowError(kNoConnection);
		return false;
	}
	if (bShared)
	{
		const BrumeID_t me = context->BrumeUser() ? context->BrumeUser()->GetBrumeID() : 0;
		BrumeParamStringArray_t required, excluded;
		const BrumeAPICall_t hCall = storage->EnumerateUserSharedMintyardFiles(me, startIndex, &required, &excluded);
		if (hCall != k_uAPICallInvalid)
			m_callEnumerateShared.Set(hCall, this, &CPublishedFileBrowser::OnEnumerateShared);
	}
	else
	{
		const BrumeAPICall_t hCall = storage->EnumerateUserPublishedFiles(startIndex);
		if (hCall != k_uAPICallInvalid)
			m_callEnumerateUser.Set(hCall, this, &CPublishedFileBrowser::OnEnumerateUser);
	}
	return true;
}

void CPublishedFileBrowser::OnEnumerateUser(RemoteStorageEnumerateUserPublishedFilesResult_t *pResult, bool bIOFailure)
{
	OnPageAnswer(pResult->m_eResult, pResult->m_nResultsReturned, pResult->m_nTotalResultCount, pResult->m_rgPublishedFileId,
		bIOFailure, false);
}

void CPublishedFileBrowser::OnEnumerateShared(RemoteStorageEnumerateUserSharedMintyardFilesResult_t *pResult, bool bIOFailure)
{
	OnPageAnswer(pResult->m_eResult, pResult->m_nResultsReturned, pResult->m_nTotalResultCount, pResult->m_rgPublishedFileId,
		bIOFailure, true);
}

void CPublishedFileBrowser::OnPageAnswer(EResult eResult, int32 nReturned, int32 nTotal, const PublishedFileId_t *pIds,
	bool bIOFailure, bool bShared)
{
	if (bIOFailure || eResult != k_EResultOK)
	{
		ShowError("Unable to enumerate user's published files!\n");
		return;
	}
	nReturned = std::clamp<int32>(nReturned, 0, k_nEnumeratePublishedFilesMaxResults);
	for (int32 i = 0; i < nReturned; ++i)
		m_listPendingIds.append(pIds[i]);
	// A page that adds nothing would ask for the same page for ever.
	if (m_listPendingIds.size() < nTotal && nReturned > 0)
	{
		RequestPage(m_listPendingIds.size(), bShared);
		return;
	}
	if (m_pProgress)
		m_pProgress->setMaximum(m_listPendingIds.size());
	m_nTotalFiles = m_listPendingIds.size();
	m_bDetailsFailed = false;
	m_bTimedOut = false;
	FetchNextDetails();
}

void CPublishedFileBrowser::FetchNextDetails()
{
	if (m_bTimedOut || (m_pProgress && m_pProgress->wasCanceled()))
	{
		m_listPendingIds.clear();
		CloseProgress();
		m_pTimeoutTimer->stop();
		return;
	}
	if (!m_listPendingIds.isEmpty())
	{
		m_pTimeoutTimer->start();
		m_nCurrentFileId = m_listPendingIds.takeFirst();
		IBrumeRemoteStorage *storage = BrumeAPIContext()->BrumeRemoteStorage();
		const BrumeAPICall_t hCall = storage ? storage->GetPublishedFileDetails(m_nCurrentFileId, 0) : k_uAPICallInvalid;
		if (hCall == k_uAPICallInvalid)
		{
			ShowError(QString("Failed to retrieve published file details!\nFile ID: %1").arg(m_nCurrentFileId));
			return;
		}
		m_callFileDetails.Set(hCall, this, &CPublishedFileBrowser::OnFileDetails);
		return;
	}
	CloseProgress();
	QHeaderView *header = horizontalHeader();
	for (int column = 0; column < CPublishedFileListModel::COLUMN_COUNT; ++column)
		header->setSectionResizeMode(column, QHeaderView::Interactive);
	header->setStretchLastSection(true);
	header->setSortIndicator(CPublishedFileListModel::COLUMN_CREATED, Qt::DescendingOrder);
	setSortingEnabled(true);
	m_pTimeoutTimer->stop();
	if (m_bDetailsFailed)
		ShowError("An error occurred while retrieving file information.\nSome files will not be shown!");
}

void CPublishedFileBrowser::OnFileDetails(RemoteStorageGetPublishedFileDetailsResult_t *pResult, bool bIOFailure)
{
	if (!bIOFailure && pResult->m_eResult == k_EResultOK)
	{
		m_model.AddRecord(*pResult, m_bAddonMode);
		SetFetchingResizeModes();
		ShowProgress("Retrieving files from Brume Cloud, please wait...");
	}
	else if (pResult->m_eResult != k_EResultFileNotFound)
	{
		ShowError(QString("An error occurred retrieving details for a published file!\nFile ID: %1").arg(m_nCurrentFileId));
		m_bDetailsFailed = true;
	}
	FetchNextDetails();
}

const char *CPublishedFileBrowser::RenderAccountID(uint64 ulBrumeID)
{
	static char s_buffers[4][37];
	static int s_nNext = 0;
	char *out = s_buffers[s_nNext];
	s_nNext = (s_nNext + 1) % 4;

	const uint32 account = (uint32)(ulBrumeID & 0xFFFFFFFFu);
	const uint32 instance = (uint32)((ulBrumeID >> 32) & 0xFFFFFu);
	const uint32 type = (uint32)((ulBrumeID >> 52) & 0xFu);
	const uint32 universe = (uint32)(ulBrumeID >> 56);
	const size_t size = sizeof(s_buffers[0]);
	switch (type)
	{
	case 0: snprintf(out, size, "[I:%u:%u]", universe, account); break;
	case 1:
		if (instance == 1)
			snprintf(out, size, "[U:%u:%u]", universe, account);
		else
			snprintf(out, size, "[U:%u:%u:%u]", universe, account, instance);
		break;
	case 2: snprintf(out, size, "[M:%u:%u:%u]", universe, account, instance); break;
	case 3: snprintf(out, size, "[G:%u:%u]", universe, account); break;
	case 4: snprintf(out, size, "[A:%u:%u:%u]", universe, account, instance); break;
	case 5: snprintf(out, size, "[P:%u:%u]", universe, account); break;
	case 6: snprintf(out, size, "[C:%u:%u]", universe, account); break;
	case 7: snprintf(out, size, "[g:%u:%u]", universe, account); break;
	case 8:
		if (instance & (1u << 19))
			snprintf(out, size, "[c:%u:%u]", universe, account);
		else if (instance & (1u << 18))
			snprintf(out, size, "[L:%u:%u]", universe, account);
		else
			snprintf(out, size, "[T:%u:%u]", universe, account);
		break;
	case 10: snprintf(out, size, "[a:%u:%u]", universe, account); break;
	default: snprintf(out, size, "[i:%u:%u]", universe, account); break;
	}
	return out;
}

void CPublishedFileBrowser::DeleteSelectedFile()
{
	PublishedFileInfo_t *record = CurrentRecord();
	if (!record)
		return;
	IBrumeRemoteStorage *storage = BrumeAPIContext()->BrumeRemoteStorage();
	const BrumeAPICall_t hCall = storage ? storage->DeletePublishedFile(record->m_nPublishedFileId) : k_uAPICallInvalid;
	if (hCall == k_uAPICallInvalid)
	{
		ShowError("Unable to delete the file from Brume!");
		return;
	}
	ShowProgress("Deleting selected file");
	m_callDelete.Set(hCall, this, &CPublishedFileBrowser::OnDeleteFile);
}

void CPublishedFileBrowser::OnDeleteFile(RemoteStorageDeletePublishedFileResult_t *pResult, bool bIOFailure)
{
	CloseProgress();
	if (bIOFailure)
		return;
	// The row goes whatever the service said; the next refresh shows what is really there.
	m_model.RemoveFile(pResult->m_nPublishedFileId);
}

PublishedFileInfo_t *CPublishedFileBrowser::CurrentRecord() const
{
	const QModelIndex current = currentIndex();
	if (!current.isValid())
		return nullptr;
	return m_model.Record(current.row());
}

void CPublishedFileBrowser::ShowError(const QString &text)
{
	CloseProgress();
	QMessageBox::critical(this, "Error", text, QMessageBox::Ok);
}
