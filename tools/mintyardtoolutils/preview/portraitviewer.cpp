#include "mintyardtoolutils/preview/portraitviewer.h"

#include "mintyardtoolutils/preview/portraitoverlay.h"
#include "mintyardtoolutils/preview/portraitsubject.h"

CQZarnPortraitViewer::CQZarnPortraitViewer(CZarnPortraitEditorModel *pModel, QWidget *pParent, CToolSceneResources *pResources)
	: CQToolSceneWidgetAutoUpdate(pParent, pResources), m_pModel(pModel)
{
	setFixedSize(VIEWER_WIDTH, VIEWER_HEIGHT);
	m_pLight = ToolScene_FindGlobalLight();
	if (!m_pLight)
		m_pLight = &m_OwnLight;
	GetScene()->SetGlobalLight(m_pLight);
	GetScene()->SetClearColor(Color(24, 26, 30, 255));
	m_pLook = std::make_unique<CZarnPortraitLook>(GetScene());
	m_pSubject = std::make_unique<CZarnPortraitSubject>(GetScene());
	m_pModel->AddListener(this);
	m_pModel->GetModelSet()->AddListener(this);
	OnPortraitPreviewModeChanged();
	OnPortraitChanged();
}

CQZarnPortraitViewer::~CQZarnPortraitViewer()
{
	m_pModel->GetModelSet()->RemoveListener(this);
	m_pModel->RemoveListener(this);
}

CToolScenePortraitOverlay *CQZarnPortraitViewer::GetForegroundOverlay() const
{
	return m_pLook->GetForeground();
}

CToolScenePortraitOverlay *CQZarnPortraitViewer::GetSquareOverlay() const
{
	return m_pLook->GetSquare();
}

CToolSceneBitmapOverlay *CQZarnPortraitViewer::GetLoadingScreenOverlay() const
{
	return m_pLook->GetLoadingScreen();
}

void CQZarnPortraitViewer::OnToolFrame(float flFrameTime)
{
	UpdateCameraAndLight();
	CQToolSceneWidgetAutoUpdate::OnToolFrame(flFrameTime);
	// The frame the playing animation has reached, for the animation control.
	const CToolSceneModelNode *pNode = m_pSubject->GetModelNode();
	const int nFrame = pNode && m_pModel->GetModelSet()->IsPlaying() ? (int)pNode->GetFrame() : -1;
	if (nFrame >= 0 && nFrame != m_nPlayingFrame)
	{
		m_nPlayingFrame = nFrame;
		Q_EMIT PlayingFrameChanged(nFrame);
	}
}

void CQZarnPortraitViewer::UpdateCameraAndLight()
{
	const CZarnPortraitRecord *pRecord = m_pModel->GetPortraitRecord();
	if (!pRecord)
		return;
	ApplyPortraitCamera(*pRecord, m_pModel->GetCameraName(), Camera());
	ApplyPortraitLight(*pRecord, *m_pLight);
}

void CQZarnPortraitViewer::UpdateSubject()
{
	const CZarnPortraitRecord *pRecord = m_pModel->GetPortraitRecord();
	if (!pRecord)
	{
		// Nothing to show without a record.
		m_pSubject->Clear();
		m_pLook->UpdateBackground(nullptr);
		RequestRender();
		return;
	}
	m_pSubject->Sync(*m_pModel->GetModelSet());
	m_pSubject->SetSummons(pRecord, m_pModel->GetDisplaySummons(), m_pModel->GetModelSet());
	m_pLook->UpdateBackground(pRecord);
	UpdateCameraAndLight();
	RequestRender();
}

void CQZarnPortraitViewer::OnPortraitChanged()
{
	UpdateSubject();
}

void CQZarnPortraitViewer::OnPortraitCameraChanged()
{
	UpdateCameraAndLight();
	RequestRender();
}

void CQZarnPortraitViewer::OnPortraitLightChanged()
{
	UpdateCameraAndLight();
	RequestRender();
}

void CQZarnPortraitViewer::OnPortraitBackgroundChanged()
{
	m_pLook->UpdateBackground(m_pModel->GetPortraitRecord());
	RequestRender();
}

void CQZarnPortraitViewer::OnPortraitStyleChanged()
{
	UpdateSubject();
}

void CQZarnPortraitViewer::OnPortraitPreviewModeChanged()
{
	m_nPreviewMode = m_pModel->GetPreviewMode();
	m_pLook->SetPreviewMode(m_nPreviewMode, m_pModel->GetPortraitRecord());
	RequestRender();
}

void CQZarnPortraitViewer::OnPortraitSummonsChanged()
{
	UpdateSubject();
}

void CQZarnPortraitViewer::OnPreviewModelSetChanged(CZarnPreviewModelSet *)
{
	UpdateSubject();
}
