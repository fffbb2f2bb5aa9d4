// The budget of a model's meshes on the input page, before any import: as soon as a mesh file is
// chosen it is read on a worker thread (the source's geometry and skins only) and a small table
// shows, per level of detail, its triangles and bones against the template's limits. A level
// over budget is marked red. Results reach the page through queued signals only, so typing a
// path never waits for a file.
#pragma once

#include <QHash>
#include <QObject>
#include <QStringList>
#include <QTableWidget>

#include "core/utlvector.h"

class CMintyardCfg_ZarnModel;
class CMintyardCfg_ZarnMesh;
class QThread;

// What one source file holds, as the budget counts it.
struct MeshBudgetFile_t
{
	QString m_Path;
	qint64 m_nTriangles = 0;
	QStringList m_Bones; // names of the joints that a skin binds vertices to
	QString m_Error;	 // why the file could not be read; empty when it was
};

// Reads a file now (the worker's work; also for tests).
MeshBudgetFile_t ReadMeshBudgetFile(const QString &path);

// Lives on the worker thread: reads what it is asked for and answers with the result. Answers
// are remembered by path, size and time, so a file is read again only when it changed.
class CMeshBudgetWorker : public QObject
{
	Q_OBJECT

public Q_SLOTS:
	void Read(int nRequest, const QString &path);

Q_SIGNALS:
	void Done(int nRequest, const QString &path, qint64 nTriangles, const QStringList &bones, const QString &error);

private:
	struct Cached_t
	{
		qint64 m_nSize;
		qint64 m_nTime;
		MeshBudgetFile_t m_Result;
	};
	QHash<QString, Cached_t> m_Cache;
};

// The worker thread and its queue, shared by the tables of one input page.
class CMeshBudgetService : public QObject
{
	Q_OBJECT

public:
	explicit CMeshBudgetService(QObject *pParent = nullptr);
	~CMeshBudgetService() override;

	// Queues a read; the answer comes as ResultReady with the same number.
	int Request(const QString &path);
	QThread *WorkerThread() const { return m_pThread; }

Q_SIGNALS:
	void RequestRead(int nRequest, const QString &path);
	void ResultReady(int nRequest, const QString &path, qint64 nTriangles, const QStringList &bones, const QString &error);

private Q_SLOTS:
	void OnDone(int nRequest, const QString &path, qint64 nTriangles, const QStringList &bones, const QString &error);

private:
	QThread *m_pThread = nullptr;
	CMeshBudgetWorker *m_pWorker = nullptr;
	int m_nNextRequest = 1;
};

// One row per level: its files, triangles against max_polygons, bones against max_bones.
class CQMeshBudgetTable : public QTableWidget
{
	Q_OBJECT

public:
	enum
	{
		COLUMN_LEVEL = 0,
		COLUMN_TRIANGLES,
		COLUMN_BONES,
		COLUMN_COUNT,
	};

	// A level as the table sees it.
	struct LevelState_t
	{
		qint64 m_nTriangles = 0;
		int m_nBones = 0;
		int m_nMaxTriangles = 0; // 0: no limit
		int m_nMaxBones = 0;
		bool m_bPending = false;  // a file is still being read
		bool m_bKnown = false;	  // every named file has been read
		bool m_bHasFile = false;  // some file is named
		QString m_Error;		  // a file that could not be read
		bool OverTriangles() const { return m_bKnown && m_nMaxTriangles > 0 && m_nTriangles > m_nMaxTriangles; }
		bool OverBones() const { return m_bKnown && m_nBones > m_nMaxBones; }
	};

	CQMeshBudgetTable(QWidget *pParent, CMintyardCfg_ZarnModel *pModel, CMeshBudgetService *pService);

	int LevelCount() const { return (int)m_Levels.size(); }
	LevelState_t Level(int nLevel) const;

public Q_SLOTS:
	// Looks at the files the model names now and asks for what changed.
	void Refresh();

Q_SIGNALS:
	// The table shows new results.
	void BudgetUpdated();

private Q_SLOTS:
	void OnResult(int nRequest, const QString &path, qint64 nTriangles, const QStringList &bones, const QString &error);

private:
	struct FileSlot_t
	{
		CMintyardCfg_ZarnMesh *m_pElement = nullptr;
		QString m_Path;
		int m_nRequest = 0; // the read in flight, 0 when none
		bool m_bRead = false;
		MeshBudgetFile_t m_Result;
	};
	struct LevelRow_t
	{
		CUtlVector<FileSlot_t> m_Files; // the level's mesh, then its extra meshes
		int m_nMaxTriangles = 0;
		int m_nMaxBones = 0;
	};
	void UpdateRow(int nLevel);

	CMintyardCfg_ZarnModel *m_pModel;
	CMeshBudgetService *m_pService;
	CUtlVector<LevelRow_t> m_Levels;
};
