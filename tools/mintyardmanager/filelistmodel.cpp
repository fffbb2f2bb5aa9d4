#include "mintyardmanager/filelistmodel.h"

#include <QColor>
#include <QDir>
#include <QFileInfo>

#include "bdllib/formatfilesize.h"

namespace
{
#ifdef Q_OS_WIN
const Qt::CaseSensitivity kPathCase = Qt::CaseInsensitive;
#else
const Qt::CaseSensitivity kPathCase = Qt::CaseSensitive;
#endif

// An absolute path, cleaned, with forward slashes, split into its components. The first
// component of a Unix path is empty (the part before the leading "/").
QStringList PathComponents(const QString &absolutePath)
{
	return QDir::cleanPath(QDir::fromNativeSeparators(absolutePath)).split('/');
}

// How many leading components two paths share.
int SharedComponentCount(const QStringList &a, const QStringList &b)
{
	int shared = 0;
	while (shared < a.size() && shared < b.size() && a[shared].compare(b[shared], kPathCase) == 0)
		++shared;
	return shared;
}

// The folder that `absolutePath` shares with the current directory, ending with "/".
QString SharedBase(const QString &absolutePath)
{
	const QStringList file = PathComponents(absolutePath);
	const QStringList cwd = PathComponents(QDir::currentPath());
	const int shared = SharedComponentCount(file, cwd);
	QString base = QStringList(file.mid(0, shared)).join('/');
	if (!base.endsWith('/'))
		base += '/';
	return base;
}
} // namespace

QString FormatItemCount(int count)
{
	return QString::number(count) + (count == 1 ? " Item" : " Items");
}

// -------------------------------------------------------------------------------------------
// CFileListItem

CFileListItem::CFileListItem(const QVector<QVariant> &data, CFileListItem *parent)
	: m_vecData(data), m_pParent(parent), m_nDepth(parent ? parent->m_nDepth + 1 : 0)
{
}

CFileListItem::~CFileListItem()
{
	qDeleteAll(m_listChildren);
}

bool CFileListItem::SetData(int column, const QVariant &value)
{
	if (column < 0 || column >= m_vecData.size())
		return false;
	m_vecData[column] = value;
	return true;
}

int CFileListItem::Row() const
{
	return m_pParent ? m_pParent->m_listChildren.indexOf(const_cast<CFileListItem *>(this)) : 0;
}

bool CFileListItem::InsertChildren(int position, int count)
{
	if (position < 0 || position > m_listChildren.size() || count < 0)
		return false;
	for (int i = 0; i < count; ++i)
		m_listChildren.insert(position, new CFileListItem(QVector<QVariant>(m_vecData.size()), this));
	return true;
}

bool CFileListItem::RemoveChildren(int position, int count)
{
	if (position < 0 || count < 0 || position + count > m_listChildren.size())
		return false;
	for (int i = 0; i < count; ++i)
		delete m_listChildren.takeAt(position);
	return true;
}

// -------------------------------------------------------------------------------------------
// CFileListModel

CFileListModel::CFileListModel(QObject *parent) : QAbstractItemModel(parent)
{
	m_pRootItem = new CFileListItem(QVector<QVariant>{ "Name", "Type", "Size" });
}

CFileListModel::~CFileListModel()
{
	delete m_pRootItem;
}

const QColor &CFileListModel::EmptyFolderColor()
{
	static const QColor s_color(0xf6, 0xe3, 0xb4);
	return s_color;
}

CFileListItem *CFileListModel::ItemFromIndex(const QModelIndex &index) const
{
	if (index.isValid())
	{
		if (CFileListItem *item = static_cast<CFileListItem *>(index.internalPointer()))
			return item;
	}
	return m_pRootItem;
}

QVariant CFileListModel::data(const QModelIndex &index, int role) const
{
	if (!index.isValid())
		return QVariant();
	const CFileListItem *item = ItemFromIndex(index);
	switch (role)
	{
	case Qt::DisplayRole:
		return item->Data(index.column());
	case Qt::DecorationRole:
		return index.column() == COLUMN_NAME ? QVariant(item->Icon()) : QVariant();
	case Qt::BackgroundRole:
		if (!item->IsFile() && item->ChildCount() == 0)
			return EmptyFolderColor();
		return QVariant();
	default:
		return QVariant();
	}
}

QVariant CFileListModel::headerData(int section, Qt::Orientation orientation, int role) const
{
	if (orientation == Qt::Horizontal && role == Qt::DisplayRole)
		return m_pRootItem->Data(section);
	return QVariant();
}

QModelIndex CFileListModel::index(int row, int column, const QModelIndex &parent) const
{
	if (parent.isValid() && parent.column() != 0)
		return QModelIndex();
	if (row < 0 || column < 0 || column >= COLUMN_COUNT)
		return QModelIndex();
	CFileListItem *child = ItemFromIndex(parent)->Child(row);
	return child ? createIndex(row, column, child) : QModelIndex();
}

QModelIndex CFileListModel::parent(const QModelIndex &index) const
{
	if (!index.isValid())
		return QModelIndex();
	CFileListItem *parentItem = ItemFromIndex(index)->Parent();
	if (!parentItem || parentItem == m_pRootItem)
		return QModelIndex();
	return createIndex(parentItem->Row(), 0, parentItem);
}

int CFileListModel::rowCount(const QModelIndex &parent) const
{
	if (parent.isValid() && parent.column() != 0)
		return 0;
	return ItemFromIndex(parent)->ChildCount();
}

int CFileListModel::columnCount(const QModelIndex &) const
{
	return m_pRootItem->ColumnCount();
}

Qt::ItemFlags CFileListModel::flags(const QModelIndex &index) const
{
	if (!index.isValid())
		return Qt::NoItemFlags;
	return Qt::ItemIsEnabled | Qt::ItemIsSelectable;
}

bool CFileListModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
	if (role != Qt::EditRole || !index.isValid())
		return false;
	if (!ItemFromIndex(index)->SetData(index.column(), value))
		return false;
	emit dataChanged(index, index, { Qt::DisplayRole, Qt::EditRole });
	return true;
}

bool CFileListModel::setHeaderData(int section, Qt::Orientation orientation, const QVariant &value, int role)
{
	if (role != Qt::EditRole || orientation != Qt::Horizontal)
		return false;
	if (!m_pRootItem->SetData(section, value))
		return false;
	emit headerDataChanged(orientation, section, section);
	return true;
}

bool CFileListModel::insertRows(int position, int rows, const QModelIndex &parent)
{
	CFileListItem *parentItem = ItemFromIndex(parent);
	if (position < 0 || position > parentItem->ChildCount() || rows <= 0)
		return false;
	beginInsertRows(parent, position, position + rows - 1);
	const bool bDone = parentItem->InsertChildren(position, rows);
	endInsertRows();
	return bDone;
}

bool CFileListModel::removeRows(int position, int rows, const QModelIndex &parent)
{
	CFileListItem *parentItem = ItemFromIndex(parent);
	if (position < 0 || rows <= 0 || position + rows > parentItem->ChildCount())
		return false;
	beginRemoveRows(parent, position, position + rows - 1);
	const bool bDone = parentItem->RemoveChildren(position, rows);
	endRemoveRows();
	if (m_pRootItem->ChildCount() == 0)
		m_bEmpty = true;
	return bDone;
}

void CFileListModel::InitRootFromCurrentDir()
{
	QString name = QDir::current().dirName();
	if (name.isEmpty())
		name = "/";
	setHeaderData(COLUMN_NAME, Qt::Horizontal, name, Qt::EditRole);
	m_pRootItem->SetFullPath(name);
	m_bEmpty = false;
}

QString CFileListModel::MakeTreePath(const QString &absolutePath)
{
	const QStringList file = PathComponents(absolutePath);
	const QStringList cwd = PathComponents(QDir::currentPath());
	const int shared = SharedComponentCount(file, cwd);
	// What the file does not share with the current directory stays, one row per component;
	// the tree has no ".." rows.
	QStringList kept;
	for (int i = shared; i < file.size(); ++i)
	{
		if (!file[i].isEmpty())
			kept << file[i];
	}
	return kept.join('/');
}

void CFileListModel::UpdateItemCount(const QModelIndex &folder)
{
	if (!folder.isValid())
		return;
	CFileListItem *item = ItemFromIndex(folder);
	if (item->IsFile())
		return;
	const QModelIndex sizeIndex = index(folder.row(), COLUMN_SIZE, folder.parent());
	setData(sizeIndex, FormatItemCount(item->ChildCount()), Qt::EditRole);
	// An emptied folder changes its colour on every column.
	emit dataChanged(index(folder.row(), 0, folder.parent()), sizeIndex, { Qt::BackgroundRole });
}

bool CFileListModel::AddPath(const QString &path)
{
	if (path.isEmpty())
		return false;
	const QFileInfo info(QDir::current().absoluteFilePath(path));
	const QString absolutePath = QDir::cleanPath(QDir::fromNativeSeparators(info.absoluteFilePath()));
	// Only files whose folder is there and that are files themselves make rows.
	if (!info.absoluteDir().exists() || !info.exists() || info.isDir())
		return false;
	const QString treePath = MakeTreePath(absolutePath);
	if (treePath.isEmpty())
		return false;

	if (m_bEmpty)
		InitRootFromCurrentDir();

	const QStringList pieces = treePath.split('/', Qt::SkipEmptyParts);
	QString accumulated = SharedBase(absolutePath);
	QModelIndex parentIndex;
	for (int i = 0; i < pieces.size(); ++i)
	{
		const QString &piece = pieces[i];
		const bool bLast = i == pieces.size() - 1;
		const QString fullPath = accumulated + piece;
		accumulated = fullPath + "/";

		CFileListItem *parentItem = ItemFromIndex(parentIndex);
		// An existing row of the same name (without case) and the same kind is followed.
		int position = 0;
		int found = -1;
		for (; position < parentItem->ChildCount(); ++position)
		{
			const CFileListItem *child = parentItem->Child(position);
			const int order = child->Data(COLUMN_NAME).toString().compare(piece, Qt::CaseInsensitive);
			if (order == 0 && child->IsFile() == bLast)
			{
				found = position;
				break;
			}
			if (order > 0)
				break;
		}
		if (found >= 0)
		{
			parentIndex = index(found, 0, parentIndex);
			continue;
		}

		insertRows(position, 1, parentIndex);
		if (parentIndex.isValid())
			UpdateItemCount(parentIndex);
		CFileListItem *item = parentItem->Child(position);
		item->SetFullPath(fullPath);
		item->SetData(COLUMN_NAME, piece);
		if (bLast)
		{
			item->SetIcon(m_iconProvider.icon(info));
			item->SetData(COLUMN_TYPE, m_iconProvider.type(info));
			item->SetData(COLUMN_SIZE, QString::fromUtf8(FormatFileSize(info.size()).c_str()));
			item->SetIsFile(true);
		}
		else if (piece.contains(':'))
		{
			item->SetIcon(m_iconProvider.icon(QFileIconProvider::Drive));
			item->SetData(COLUMN_TYPE, QString("Drive"));
		}
		else
		{
			item->SetIcon(m_iconProvider.icon(QFileIconProvider::Folder));
			item->SetData(COLUMN_TYPE, QString("File Folder"));
		}
		const QModelIndex newIndex = index(position, 0, parentIndex);
		emit dataChanged(newIndex, index(position, COLUMN_COUNT - 1, parentIndex));
		parentIndex = newIndex;
	}
	return true;
}

QStringList CFileListModel::CollectFiles() const
{
	QStringList files;
	CollectFiles(m_pRootItem, files);
	return files;
}

void CFileListModel::CollectFiles(const CFileListItem *item, QStringList &out) const
{
	for (int i = 0; i < item->ChildCount(); ++i)
	{
		const CFileListItem *child = item->Child(i);
		if (child->IsFile())
			out << child->FullPath();
		CollectFiles(child, out);
	}
}
