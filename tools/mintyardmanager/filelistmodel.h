// The tree of files collected for a BDL: folders and files relative to the current directory,
// each level sorted by name without regard to case.
#pragma once

#include <QAbstractItemModel>
#include <QFileIconProvider>
#include <QIcon>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVector>

// One row of the tree. Owned by its parent; the root owns everything.
class CFileListItem
{
public:
	explicit CFileListItem(const QVector<QVariant> &data, CFileListItem *parent = nullptr);
	~CFileListItem();

	CFileListItem *Child(int row) const { return m_listChildren.value(row); }
	int ChildCount() const { return m_listChildren.count(); }
	int ColumnCount() const { return m_vecData.count(); }
	QVariant Data(int column) const { return m_vecData.value(column); }
	bool SetData(int column, const QVariant &value);
	CFileListItem *Parent() const { return m_pParent; }
	// The row of this item under its parent (0 for the root).
	int Row() const;

	// Inserts `count` blank children (as many columns as this item) at `position`.
	bool InsertChildren(int position, int count);
	// Frees `count` children from `position`.
	bool RemoveChildren(int position, int count);

	const QIcon &Icon() const { return m_icon; }
	void SetIcon(const QIcon &icon) { m_icon = icon; }
	const QString &FullPath() const { return m_sFullPath; }
	void SetFullPath(const QString &path) { m_sFullPath = path; }
	bool IsFile() const { return m_bIsFile; }
	void SetIsFile(bool bIsFile) { m_bIsFile = bIsFile; }
	int Depth() const { return m_nDepth; }

private:
	QList<CFileListItem *> m_listChildren;
	QVector<QVariant> m_vecData;
	CFileListItem *m_pParent;
	QIcon m_icon;
	QString m_sFullPath;
	bool m_bIsFile = false;
	int m_nDepth;
};

class CFileListModel : public QAbstractItemModel
{
	Q_OBJECT

public:
	enum EColumn
	{
		COLUMN_NAME = 0,
		COLUMN_TYPE = 1,
		COLUMN_SIZE = 2,
		COLUMN_COUNT = 3,
	};

	explicit CFileListModel(QObject *parent = nullptr);
	~CFileListModel() override;

	QVariant data(const QModelIndex &index, int role) const override;
	QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
	QModelIndex index(int row, int column, const QModelIndex &parent = QModelIndex()) const override;
	QModelIndex parent(const QModelIndex &index) const override;
	int rowCount(const QModelIndex &parent = QModelIndex()) const override;
	int columnCount(const QModelIndex &parent = QModelIndex()) const override;
	Qt::ItemFlags flags(const QModelIndex &index) const override;
	bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;
	bool setHeaderData(int section, Qt::Orientation orientation, const QVariant &value, int role = Qt::EditRole) override;
	bool insertRows(int position, int rows, const QModelIndex &parent = QModelIndex()) override;
	bool removeRows(int position, int rows, const QModelIndex &parent = QModelIndex()) override;

	// Adds a file with a row for every folder on its way from the current directory. Adding a
	// path that is already there adds nothing. Returns false when the path was refused.
	bool AddPath(const QString &path);
	// Takes the current directory's last component as the name of the tree.
	void InitRootFromCurrentDir();
	// The path of `absolutePath` below the components it shares with the current directory,
	// joined with "/": "sub/a.txt" for a file in "<cwd>/sub".
	static QString MakeTreePath(const QString &absolutePath);

	// Every file of the tree, depth first, in the tree's order (absolute paths).
	QStringList CollectFiles() const;
	// The item behind an index; the root for an invalid one.
	CFileListItem *ItemFromIndex(const QModelIndex &index) const;
	// Rewrites a folder's "N Items" text after its children changed.
	void UpdateItemCount(const QModelIndex &folder);

	bool IsEmpty() const { return m_bEmpty; }
	const CFileListItem *RootItem() const { return m_pRootItem; }
	// The colour of folders that hold nothing.
	static const QColor &EmptyFolderColor();

private:
	void CollectFiles(const CFileListItem *item, QStringList &out) const;

	QFileIconProvider m_iconProvider;
	bool m_bEmpty = true;
	CFileListItem *m_pRootItem;
};

// "1 Item", "3 Items".
QString FormatItemCount(int count);
