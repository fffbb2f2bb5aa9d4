#include "mintyardtoolutils/wizard/meshbudget.h"

#include <QDateTime>
#include <QFileInfo>
#include <QHeaderView>
#include <QSet>
#include <QThread>

#include "meshio/meshsource.h"
#include "mintyardtoolutils/core/cfgelements.h"
#include "mintyardtoolutils/wizard/wizardutils.h"

MeshBudgetFile_t ReadMeshBudgetFile(const QString &path)
{
	MeshBudgetFile_t result;
	result.m_Path = path;
	SourceScene_t scene;
	CUtlString error;
	if (!LoadSourceScene(path.toUtf8().constData(), scene, error))
	{
		result.m_Error = QString::fromUtf8(error.c_str());
		return result;
	}
	result.m_nTriangles = scene.TriangleCount();
	for (const SourceJoint_t &joint : scene.joints)
	{
		if (joint.bSkinned)
			result.m_Bones << QString::fromUtf8(joint.name.c_str());
	}
	return result;
}

// ---------------------------------------------------------------------------------------------

void CMeshBudgetWorker::Read(int nRequest, const QString &path)
{
	const QFileInfo info(path);
	MeshBudgetFile_t result;
	if (!info.isFile())
	{
		result.m_Path = path;
		result.m_Error = QString("%1: no such file").arg(path);
	}
	else
	{
		const qint64 nSize = info.size();
		const qint64 nTime = info.lastModified().toMSecsSinceEpoch();
		auto it = m_Cache.find(path);
		if (it != m_Cache.end() && it->m_nSize == nSize && it->m_nTime == nTime)
			result = it->m_Result;
		else
		{
			result = ReadMeshBudgetFile(path);
			m_Cache.insert(path, Cached_t{ nSize, nTime, result });
		}
	}
	Q_EMIT Done(nRequest, path, result.m_nTriangles, result.m_Bones, result.m_Error);
}

CMeshBudgetService::CMeshBudgetService(QObject *pParent) : QObject(pParent)
{
	m_pThread = new QThread(this);
	m_pThread->setObjectName("mintyard mesh budget");
	m_pWorker = new CMeshBudgetWorker;
	m_pWorker->moveToThread(m_pThread);
	connect(m_pThread, SIGNAL(finished()), m_pWorker, SLOT(deleteLater()));
	connect(this, SIGNAL(RequestRead(int, const QString &)), m_pWorker, SLOT(Read(int, const QString &)), Qt::QueuedConnection);
	connect(m_pWorker, SIGNAL(Done(int, const QString &, qint64, const QStringList &, const QString &)), this,
		SLOT(OnDone(int, const QString &, qint64, const QStringList &, const QString &)), Qt::QueuedConnection);
	m_pThread->start(QThread::LowPriority);
}

CMeshBudgetService::~CMeshBudgetService()
{
	m_pThread->quit();
	m_pThread->wait();
}

int CMeshBudgetService::Request(const QString &path)
{
	const int nRequest = m_nNextRequest++;
	Q_EMIT RequestRead(nRequest, path);
	return nRequest;
}

void CMeshBudgetService::OnDone(int nRequest, const QString &path, qint64 nTriangles, const QStringList &bones, const QString &error)
{
	Q_EMIT ResultReady(nRequest, path, nTriangles, bones, error);
}

// ---------------------------------------------------------------------------------------------

CQMeshBudgetTable::CQMeshBudgetTable(QWidget *pParent, CMintyardCfg_ZarnModel *pModel, CMeshBudgetService *pService)
	: QTableWidget(pParent), m_pModel(pModel), m_pService(pService)
{
	setObjectName("mintyard_mesh_budget");
	setColumnCount(COLUMN_COUNT);
	setHorizontalHeaderLabels({ MintyardTranslate("#ZARN_Mintyard_Budget_Level"), MintyardTranslate("#ZARN_Mintyard_Budget_Triangles"),
		MintyardTranslate("#ZARN_Mintyard_Budget_Bones") });
	verticalHeader()->hide();
	horizontalHeader()->setSectionResizeMode(COLUMN_LEVEL, QHeaderView::Stretch);
	horizontalHeader()->setSectionResizeMode(COLUMN_TRIANGLES, QHeaderView::ResizeToContents);
	horizontalHeader()->setSectionResizeMode(COLUMN_BONES, QHeaderView::ResizeToContents);
	setEditTriggers(QAbstractItemView::NoEditTriggers);
	setSelectionMode(QAbstractItemView::NoSelection);
	setFocusPolicy(Qt::NoFocus);
	setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
	setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);

	for (CMintyardCfg_ZarnMesh *pLevel : pModel->m_Lods)
	{
		LevelRow_t row;
		const CMintyardTemplate_ZarnMesh *pTemplate = pLevel->GetMeshTemplate();
		row.m_nMaxTriangles = pTemplate->max_polygons;
		row.m_nMaxBones = pTemplate->max_bones;
		FileSlot_t slot;
		slot.m_pElement = pLevel;
		row.m_Files.push_back(slot);
		for (CMintyardCfg_ZarnMesh *pExtra : pLevel->m_ExtraMeshes)
		{
			slot.m_pElement = pExtra;
			row.m_Files.push_back(slot);
		}
		m_Levels.push_back(row);
	}
	setRowCount((int)m_Levels.size());
	for (int i = 0; i < (int)m_Levels.size(); ++i)
	{
		setItem(i, COLUMN_LEVEL, new QTableWidgetItem(MintyardTranslate(m_pModel->m_Lods[i]->GetTemplateElement()->name)));
		setItem(i, COLUMN_TRIANGLES, new QTableWidgetItem());
		setItem(i, COLUMN_BONES, new QTableWidgetItem());
		UpdateRow(i);
	}
	const int nHeight = horizontalHeader()->sizeHint().height() + rowCount() * verticalHeader()->defaultSectionSize() + 2 * frameWidth();
	setFixedHeight(nHeight);
	connect(pService, SIGNAL(ResultReady(int, const QString &, qint64, const QStringList &, const QString &)), this,
		SLOT(OnResult(int, const QString &, qint64, const QStringList &, const QString &)));
	Refresh();
}

void CQMeshBudgetTable::Refresh()
{
	for (int nLevel = 0; nLevel < (int)m_Levels.size(); ++nLevel)
	{
		bool bChanged = false;
		for (FileSlot_t &slot : m_Levels[nLevel].m_Files)
		{
			const CUtlString &value = slot.m_pElement->Value();
			const QString path = value.empty() ? QString() : QFileInfo(QString::fromUtf8(value.c_str())).absoluteFilePath();
			if (path == slot.m_Path && (path.isEmpty() || slot.m_bRead || slot.m_nRequest))
				continue;
			slot.m_Path = path;
			slot.m_bRead = false;
			slot.m_Result = MeshBudgetFile_t();
			slot.m_nRequest = path.isEmpty() ? 0 : m_pService->Request(path);
			bChanged = true;
		}
		if (bChanged)
			UpdateRow(nLevel);
	}
}

void CQMeshBudgetTable::OnResult(int nRequest, const QString &path, qint64 nTriangles, const QStringList &bones, const QString &error)
{
	for (int nLevel = 0; nLevel < (int)m_Levels.size(); ++nLevel)
	{
		for (FileSlot_t &slot : m_Levels[nLevel].m_Files)
		{
			// An answer for a path the author has typed over since is dropped.
			if (slot.m_nRequest != nRequest || slot.m_Path != path)
				continue;
			slot.m_nRequest = 0;
			slot.m_bRead = true;
			slot.m_Result.m_Path = path;
			slot.m_Result.m_nTriangles = nTriangles;
			slot.m_Result.m_Bones = bones;
			slot.m_Result.m_Error = error;
			UpdateRow(nLevel);
			Q_EMIT BudgetUpdated();
			return;
		}
	}
}

CQMeshBudgetTable::LevelState_t CQMeshBudgetTable::Level(int nLevel) const
{
	LevelState_t state;
	if (nLevel < 0 || nLevel >= (int)m_Levels.size())
		return state;
	const LevelRow_t &row = m_Levels[nLevel];
	state.m_nMaxTriangles = row.m_nMaxTriangles;
	state.m_nMaxBones = row.m_nMaxBones;
	QSet<QString> bones;
	bool bAllRead = true;
	for (const FileSlot_t &slot : row.m_Files)
	{
		if (slot.m_Path.isEmpty())
			continue;
		state.m_bHasFile = true;
		if (slot.m_nRequest)
		{
			state.m_bPending = true;
			bAllRead = false;
			continue;
		}
		if (!slot.m_Result.m_Error.isEmpty())
		{
			if (!state.m_Error.isEmpty())
				state.m_Error += "\n";
			state.m_Error += slot.m_Result.m_Error;
			bAllRead = false;
			continue;
		}
		state.m_nTriangles += slot.m_Result.m_nTriangles;
		for (const QString &bone : slot.m_Result.m_Bones)
			bones.insert(bone);
	}
	state.m_nBones = bones.size();
	state.m_bKnown = state.m_bHasFile && bAllRead;
	return state;
}

void CQMeshBudgetTable::UpdateRow(int nLevel)
{
	const LevelState_t state = Level(nLevel);
	QTableWidgetItem *pTriangles = item(nLevel, COLUMN_TRIANGLES);
	QTableWidgetItem *pBones = item(nLevel, COLUMN_BONES);
	const QString triangleLimit = state.m_nMaxTriangles > 0 ? QString::number(state.m_nMaxTriangles) : QString::fromUtf8("\u2013");
	const QString boneLimit = QString::number(state.m_nMaxBones);
	QString trianglesText, bonesText;
	QColor trianglesColor, bonesColor;
	if (!state.m_bHasFile)
	{
		trianglesText = QString("- / %1").arg(triangleLimit);
		bonesText = QString("- / %1").arg(boneLimit);
	}
	else if (state.m_bPending)
	{
		trianglesText = QString("%1 / %2").arg(MintyardTranslate("#ZARN_Mintyard_Budget_Reading"), triangleLimit);
		bonesText = QString("%1 / %2").arg(MintyardTranslate("#ZARN_Mintyard_Budget_Reading"), boneLimit);
	}
	else if (!state.m_Error.isEmpty())
	{
		trianglesText = QString("? / %1").arg(triangleLimit);
		bonesText = QString("? / %1").arg(boneLimit);
		trianglesColor = bonesColor = QColor(224, 150, 58);
	}
	else
	{
		trianglesText = QString("%1 / %2").arg(state.m_nTriangles).arg(triangleLimit);
		bonesText = QString("%1 / %2").arg(state.m_nBones).arg(boneLimit);
		if (state.OverTriangles())
			trianglesColor = Qt::red;
		if (state.OverBones())
			bonesColor = Qt::red;
	}
	pTriangles->setText(trianglesText);
	pBones->setText(bonesText);
	pTriangles->setData(Qt::ForegroundRole, trianglesColor.isValid() ? QVariant(trianglesColor) : QVariant());
	pBones->setData(Qt::ForegroundRole, bonesColor.isValid() ? QVariant(bonesColor) : QVariant());
	QString tip = state.m_Error;
	if (state.OverTriangles())
		tip += MintyardTranslate("#ZARN_Mintyard_Budget_OverTriangles").arg(state.m_nTriangles).arg(state.m_nMaxTriangles);
	if (state.OverBones())
	{
		if (!tip.isEmpty())
			tip += "\n";
		tip += MintyardTranslate("#ZARN_Mintyard_Budget_OverBones").arg(state.m_nBones).arg(state.m_nMaxBones);
	}
	for (int nColumn = 0; nColumn < COLUMN_COUNT; ++nColumn)
		item(nLevel, nColumn)->setToolTip(tip);
}
