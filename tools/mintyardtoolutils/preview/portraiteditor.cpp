#include "mintyardtoolutils/preview/portraiteditor.h"

#include <QComboBox>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include "core/fileio.h"
#include "core/strtools.h"
#include "mintyardtoolutils/core/cfgelements.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/core/mintyardtemplate.h"
#include "mintyardtoolutils/pipeline/importdriver.h"
#include "mintyardtoolutils/preview/portraitpanel.h"
#include "mintyardtoolutils/preview/portraitscene.h"
#include "mintyardtoolutils/preview/portraitviewer.h"
#include "mintyardtoolutils/preview/previewsession.h"
#include "mintyardtoolutils/wizard/wizardutils.h"

namespace
{
// The name a model goes by in the combo and in messages: its document's file name without the
// extension.
QString ModelBaseName(const CMintyardCfg_BaseZarnModel *pModel)
{
	return QFileInfo(QString::fromUtf8(pModel->GetZmdlName().c_str())).completeBaseName();
}

} // namespace

CQZarnPortraitEditor::CQZarnPortraitEditor(QWidget *pParent) : QWidget(pParent)
{
	QHBoxLayout *pLayout = new QHBoxLayout(this);
	pLayout->setContentsMargins(6, 6, 6, 6);
	m_pScene = new CQZarnPortraitEditorScene(&m_Model, this);
	m_pScene->setMinimumSize(320, 320);
	pLayout->addWidget(m_pScene, 1);

	QVBoxLayout *pRight = new QVBoxLayout;
	pRight->setSpacing(6);
	m_pViewer = new CQZarnPortraitViewer(&m_Model, this);
	pRight->addWidget(m_pViewer, 0, Qt::AlignHCenter);
	QHBoxLayout *pModelRow = new QHBoxLayout;
	pModelRow->addWidget(new QLabel(MintyardTranslate("#ZARN_Mintyard_Model"), this));
	m_pModelCombo = new QComboBox(this);
	m_pModelCombo->setFixedWidth(200);
	pModelRow->addWidget(m_pModelCombo);
	pModelRow->addStretch(1);
	pRight->addLayout(pModelRow);
	m_pPanel = new CQZarnPortraitEditorPanel(&m_Model, this);
	pRight->addWidget(m_pPanel);
	pRight->addStretch(1);
	QWidget *pColumn = new QWidget(this);
	pColumn->setLayout(pRight);
	pColumn->setFixedWidth(std::max(pColumn->sizeHint().width(), 380));
	pLayout->addWidget(pColumn);

	connect(m_pModelCombo, SIGNAL(currentIndexChanged(int)), this, SLOT(OnModelSelected(int)));
	connect(m_pPanel, SIGNAL(CloneCameraToggled(bool)), m_pScene, SLOT(SetCloneCameraEnabled(bool)));
	connect(m_pPanel, SIGNAL(FrameRequested()), this, SLOT(OnFrameModel()));
	connect(m_pViewer, SIGNAL(PlayingFrameChanged(int)), m_pPanel, SLOT(OnPlayingFrameChanged(int)));
	m_Model.AddListener(this);
}

CQZarnPortraitEditor::~CQZarnPortraitEditor()
{
	m_Model.RemoveListener(this);
}

void CQZarnPortraitEditor::AttachSession(CMintyardImportSession *pSession)
{
	m_pSession = pSession;
	m_Model.SetSession(pSession);
	{
		const QSignalBlocker block(m_pModelCombo);
		m_pModelCombo->clear();
		if (pSession)
		{
			for (const CMintyardCfg_ZarnModel *pModel : pSession->m_Models)
				m_pModelCombo->addItem(ModelBaseName(pModel));
		}
	}
	// A session given again may hold other records: the first model is taken anew.
	m_nCurrentModel = -1;
	m_Model.SetPreviewMode(GetSessionPreviewMode(pSession));
	if (!pSession || pSession->m_Models.empty())
	{
		m_Model.SetPortraitRecord(nullptr);
		m_Model.SetModel("", 1.0f);
		return;
	}
	OnModelSelected(0);
}

void CQZarnPortraitEditor::OnModelSelected(int nIndex)
{
	if (nIndex == m_nCurrentModel || !m_pSession || nIndex < 0 || nIndex >= (int)m_pSession->m_Models.size())
		return;
	CMintyardCfg_ZarnModel *pElement = m_pSession->m_Models[nIndex];
	const CUtlString zmdl = pElement->GetZmdlName();
	const CUtlString compiled = GamePath(m_pSession, (zmdl + "_c").c_str());
	if (compiled.empty() || !Plat_FileExists(compiled.c_str()))
	{
		ShowWizardMessage(this, QMessageBox::Warning, "Invalid Model",
			QString("Could not find compiled model: ") + QString::fromUtf8((compiled.empty() ? zmdl : compiled).c_str()));
		const QSignalBlocker block(m_pModelCombo);
		m_pModelCombo->setCurrentIndex(m_nCurrentModel);
		return;
	}
	m_Model.SetPortraitRecord(&pElement->m_PortraitRecord);
	// A courier's flying model is seen flying (the model set takes that from the path).
	m_Model.SetModel(zmdl.c_str(), 1.0f, pElement);
	{
		const QSignalBlocker block(m_pModelCombo);
		m_pModelCombo->setCurrentIndex(nIndex);
	}
	m_nCurrentModel = nIndex;
	Q_EMIT ReadyStatusChanged();
}

void CQZarnPortraitEditor::Validate(ImportMessageList &list)
{
	if (!m_pSession)
	{
		list.AddError("Internal Error: Portrait editor with no session");
		return;
	}
	for (const CMintyardCfg_ZarnModel *pModel : m_pSession->m_Models)
	{
		const CZarnPortraitRecord::Camera_t &camera = pModel->m_PortraitRecord.CameraOrFirst(m_Model.GetCameraName());
		if (camera.m_Position == Vector() && camera.m_Angles == QAngle())
			list.AddError("#ZARN_Mintyard_Err_Model_Portrait_NotEdited", ModelBaseName(pModel).toUtf8().constData());
	}
}

void CQZarnPortraitEditor::OnPortraitChanged()
{
	Q_EMIT ReadyStatusChanged();
}

void CQZarnPortraitEditor::OnPortraitCameraChanged()
{
	Q_EMIT ReadyStatusChanged();
}

void CQZarnPortraitEditor::OnFrameModel()
{
	Vector mins, maxs;
	if (!m_pViewer->GetScene()->GetVisibleBounds(mins, maxs))
		return;
	// Icons are square; portraits have the viewer's shape.
	const int nMode = m_Model.GetPreviewMode();
	const float flAspect = nMode >= ZARN_PREVIEW_MODE_ITEM && nMode <= ZARN_PREVIEW_MODE_WARD
		? 1.0f
		: (float)CQZarnPortraitViewer::VIEWER_WIDTH / (float)CQZarnPortraitViewer::VIEWER_HEIGHT;
	m_Model.FrameBounds(mins, maxs, flAspect, FRAME_MARGIN);
}

// ---------------------------------------------------------------------------------------------
// The wizard's step 6

namespace
{
IMintyardWizardPage *CreatePortraitEditorPage(QWidget *pParent)
{
	return new CQZarnPortraitEditor(pParent);
}
} // namespace

void RegisterZarnPortraitEditorPage()
{
	SetMintyardWizardPageFactory(MINTYARD_WIZARD_PAGE_PORTRAIT_EDITOR, &CreatePortraitEditorPage);
}
