#include "mintyardtoolutils/preview/portraitscene.h"

#include <algorithm>
#include <cmath>

#include "mintyardtoolutils/preview/portraitoverlay.h"
#include "mintyardtoolutils/preview/portraitsubject.h"
#include "toolscene/scenemath.h"

const char *const CQZarnPortraitEditorScene::s_pszMarkerModels[MARKER_COUNT] = {
	"models/editor/camera.zmdl",
	"models/editor/axis_helper_thick.zmdl",
	"models/editor/spot.zmdl",
	"models/editor/arrow.zmdl",
};

namespace
{
// The light frustum's near plane.
const float LIGHT_FRUSTUM_NEAR = 10.0f;
const float CAMERA_FRUSTUM_NEAR = 4.0f;
} // namespace

CQZarnPortraitEditorScene::CQZarnPortraitEditorScene(CZarnPortraitEditorModel *pModel, QWidget *pParent, CToolSceneResources *pResources)
	: CQToolSceneWidgetAutoUpdate(pParent, pResources), m_pModel(pModel)
{
	SetGroundEnabled(true);
	SetSelectionEnabled(true);
	SetGridEnabled(true);
	CToolScene *pScene = GetScene();
	m_pGizmo = pScene->CreateGizmo(this);
	m_pGizmo->Hide();
	connect(this, SIGNAL(OnNodeClicked(ToolSceneTraceResult_t *, Qt::MouseButton, Qt::KeyboardModifiers)), this,
		SLOT(OnSceneNodeClicked(ToolSceneTraceResult_t *, Qt::MouseButton, Qt::KeyboardModifiers)));
	connect(this, SIGNAL(SceneCameraChanged()), this, SLOT(OnCameraChanged()));

	static const char *const s_pszMarkerNames[MARKER_COUNT] = { "portrait camera", "portrait camera target", "portrait spot light",
		"portrait ambient light" };
	for (int i = 0; i < MARKER_COUNT; ++i)
	{
		m_pMarkers[i] = pScene->CreateModelNode(s_pszMarkerModels[i]);
		m_pMarkers[i]->SetName(s_pszMarkerNames[i]);
		m_pMarkers[i]->SetVisible(true);
		m_pMarkers[i]->SetSelectable(true);
	}
	m_pCameraFrustum = pScene->CreateFrustumNode();
	m_pCameraFrustum->SetColor(Color(120, 200, 255));
	m_pLightFrustum = pScene->CreateFrustumNode();
	m_pLightFrustum->SetColor(Color(255, 220, 64));

	m_pLight = ToolScene_FindGlobalLight();
	if (!m_pLight)
		m_pLight = &m_OwnLight;
	pScene->SetGlobalLight(m_pLight);
	m_pSubject = std::make_unique<CZarnPortraitSubject>(pScene);

	// A view from the front and above, out far enough for a hero and the portrait's camera.
	Camera().SetPositionAndTarget(Vector(420.0f, 260.0f, 260.0f), Vector(0.0f, 0.0f, 60.0f));
	Camera().SetFOV(m_flSceneFOV);

	m_pModel->AddListener(this);
	m_pModel->GetModelSet()->AddListener(this);
	OnPortraitChanged();
}

CQZarnPortraitEditorScene::~CQZarnPortraitEditorScene()
{
	m_pModel->GetModelSet()->RemoveListener(this);
	m_pModel->RemoveListener(this);
}

// ---------------------------------------------------------------------------------------------
// Model to scene

void CQZarnPortraitEditorScene::ShowModel()
{
	const CZarnPortraitRecord *pRecord = m_pModel->GetPortraitRecord();
	for (CToolSceneModelNode *pMarker : m_pMarkers)
		pMarker->SetVisible(pRecord != nullptr);
	m_pCameraFrustum->SetVisible(pRecord != nullptr);
	m_pLightFrustum->SetVisible(pRecord != nullptr);
	if (!pRecord)
	{
		m_pSubject->Clear();
		m_pGizmo->Hide();
		RequestRender();
		return;
	}

	// 1. The camera and its target.
	const CZarnPortraitRecord::Camera_t &camera = pRecord->CameraOrFirst(m_pModel->GetCameraName());
	m_pMarkers[MARKER_CAMERA]->SetTransform(camera.m_Position, camera.m_Angles);
	m_pMarkers[MARKER_CAMERA_TARGET]->SetTransform(m_pModel->GetCameraTarget(), QAngle());
	m_pMarkers[MARKER_CAMERA]->SetVisible(!m_bCloneCamera);
	m_pMarkers[MARKER_CAMERA_TARGET]->SetVisible(!m_bCloneCamera);
	const float flTargetDistance = SceneLength(m_pModel->GetCameraTarget() - camera.m_Position);
	const float flCameraFar = std::clamp(flTargetDistance * 1.25f, CAMERA_FRUSTUM_NEAR + 1.0f, std::max(camera.m_flFar, CAMERA_FRUSTUM_NEAR + 1.0f));
	m_pCameraFrustum->SetTransform(camera.m_Position, camera.m_Angles);
	m_pCameraFrustum->SetProjection(camera.m_flFOV, CAMERA_FRUSTUM_NEAR, flCameraFar, CAMERA_FRUSTUM_ASPECT);
	m_pCameraFrustum->SetVisible(!m_bCloneCamera);

	// 2. The light's frustum; 3. the spot marker.
	m_pLightFrustum->SetTransform(pRecord->m_LightPosition, pRecord->m_LightAngles);
	m_pLightFrustum->SetProjection(pRecord->m_flLightFOV, LIGHT_FRUSTUM_NEAR, std::max(pRecord->m_flLightDistance, LIGHT_FRUSTUM_NEAR + 1.0f), 1.0f,
		-1.0f, -1.0f);
	m_pMarkers[MARKER_SPOT]->SetTransform(pRecord->m_LightPosition, pRecord->m_LightAngles);

	// 4. The ambient marker, pointing along the negated ambient direction.
	m_pMarkers[MARKER_AMBIENT]->SetTransform(m_pModel->GetAmbientGizmoPosition(), m_pModel->GetAmbientAngles());

	// 5. The light, and what the model set shows.
	ApplyPortraitLight(*pRecord, *m_pLight);
	m_pSubject->Sync(*m_pModel->GetModelSet());
	m_pSubject->SetSummons(pRecord, m_pModel->GetDisplaySummons(), m_pModel->GetModelSet());
	for (int i = 0; i < m_pSubject->GetSummonCount(); ++i)
		m_pSubject->GetSummonNode(i)->SetSelectable(true);

	if (!m_bDragging)
		PlaceGizmo();
	RequestRender();
}

void CQZarnPortraitEditorScene::PlaceGizmo()
{
	const CZarnPortraitRecord *pRecord = m_pModel->GetPortraitRecord();
	const int nMode = m_pModel->GetGizmoMode();
	const CZarnPortraitRecord::Summon_t *pSummon = m_pModel->GetSelectedSummonRecord();
	const bool bSummonMode = nMode >= PORTRAIT_GIZMO_SUMMON_POSITION && nMode <= PORTRAIT_GIZMO_SUMMON_SCALE;
	if (!pRecord || nMode == PORTRAIT_GIZMO_NONE || (bSummonMode && !pSummon))
	{
		m_pGizmo->Hide();
		return;
	}
	Vector position;
	QAngle angles;
	EToolSceneGizmoMode eGizmoMode = GIZMO_MODE_TRANSLATE;
	switch (nMode)
	{
	case PORTRAIT_GIZMO_CAMERA_POSITION:
		position = m_pModel->GetCameraPosition();
		break;
	case PORTRAIT_GIZMO_CAMERA_TARGET:
		position = m_pModel->GetCameraTarget();
		break;
	case PORTRAIT_GIZMO_LIGHT_POSITION:
		position = pRecord->m_LightPosition;
		break;
	case PORTRAIT_GIZMO_LIGHT_ANGLES:
		position = pRecord->m_LightPosition;
		angles = pRecord->m_LightAngles;
		eGizmoMode = GIZMO_MODE_ROTATE;
		break;
	case PORTRAIT_GIZMO_AMBIENT_POSITION:
		position = m_pModel->GetAmbientGizmoPosition();
		break;
	case PORTRAIT_GIZMO_AMBIENT_ANGLES:
		position = m_pModel->GetAmbientGizmoPosition();
		angles = m_pModel->GetAmbientAngles();
		eGizmoMode = GIZMO_MODE_ROTATE;
		break;
	case PORTRAIT_GIZMO_SUMMON_POSITION:
		position = pSummon->m_Position;
		break;
	case PORTRAIT_GIZMO_SUMMON_ANGLES:
		position = pSummon->m_Position;
		angles = pSummon->m_Angles;
		eGizmoMode = GIZMO_MODE_ROTATE;
		break;
	case PORTRAIT_GIZMO_SUMMON_SCALE:
		position = pSummon->m_Position;
		angles = pSummon->m_Angles;
		eGizmoMode = GIZMO_MODE_SCALE;
		break;
	}
	m_pGizmo->AttachToNode(nullptr);
	m_pGizmo->ResetTransform();
	m_pGizmo->SetMode(eGizmoMode);
	// Rotations and scales along the object's own axes; moves along the world's.
	m_pGizmo->SetLocalSpace(eGizmoMode != GIZMO_MODE_TRANSLATE);
	m_pGizmo->SetPlacement(position, angles);
	m_pGizmo->Show();
}

void CQZarnPortraitEditorScene::OnPortraitChanged()
{
	ShowModel();
	// Another model: the view takes it in with the portrait's camera.
	const CToolSceneModelNode *pSubject = m_pSubject->GetModelNode();
	const CUtlString shown = pSubject ? pSubject->GetModelPath() : CUtlString();
	if (shown != m_FramedModel && !m_bCloneCamera)
	{
		m_FramedModel = shown;
		FrameView();
	}
}

void CQZarnPortraitEditorScene::FrameView()
{
	const CToolSceneModelNode *pSubject = m_pSubject->GetModelNode();
	Vector mins, maxs;
	if (!pSubject || !pSubject->GetWorldBounds(mins, maxs))
		return;
	if (m_pModel->GetPortraitRecord())
	{
		const Vector camera = m_pModel->GetCameraPosition();
		for (int i = 0; i < 3; ++i)
		{
			mins[i] = std::min(mins[i], camera[i]);
			maxs[i] = std::max(maxs[i], camera[i]);
		}
	}
	Camera().FrameBounds(mins, maxs, height() > 0 ? (float)width() / (float)height() : 1.0f);
	RequestRender();
}

void CQZarnPortraitEditorScene::OnPortraitCameraChanged()
{
	ShowModel();
}

void CQZarnPortraitEditorScene::OnPortraitLightChanged()
{
	ShowModel();
}

void CQZarnPortraitEditorScene::OnPortraitStyleChanged()
{
	ShowModel();
}

void CQZarnPortraitEditorScene::OnPortraitPreviewModeChanged()
{
	ShowModel();
}

void CQZarnPortraitEditorScene::OnPortraitGizmoModeChanged()
{
	m_bDragging = false;
	// Moving the camera or its target takes their markers: the view is the scene's own again
	// (the panel unchecks its clone box without a signal).
	const int nMode = m_pModel->GetGizmoMode();
	if (m_bCloneCamera && (nMode == PORTRAIT_GIZMO_CAMERA_POSITION || nMode == PORTRAIT_GIZMO_CAMERA_TARGET))
		SetCloneCameraEnabled(false);
	PlaceGizmo();
	RequestRender();
}

void CQZarnPortraitEditorScene::OnPortraitSummonsChanged()
{
	ShowModel();
}

void CQZarnPortraitEditorScene::OnPreviewModelSetChanged(CZarnPreviewModelSet *)
{
	ShowModel();
}

// ---------------------------------------------------------------------------------------------
// Clicks

void CQZarnPortraitEditorScene::OnSceneNodeClicked(ToolSceneTraceResult_t *pResult, Qt::MouseButton button, Qt::KeyboardModifiers)
{
	if (button != Qt::LeftButton)
		return;
	const CToolSceneNode *pNode = pResult ? pResult->m_pNode : nullptr;
	int nMode = PORTRAIT_GIZMO_NONE;
	if (pNode == m_pMarkers[MARKER_CAMERA])
		nMode = PORTRAIT_GIZMO_CAMERA_POSITION;
	else if (pNode == m_pMarkers[MARKER_CAMERA_TARGET])
		nMode = PORTRAIT_GIZMO_CAMERA_TARGET;
	else if (pNode == m_pMarkers[MARKER_SPOT])
		nMode = m_pModel->GetGizmoMode() == PORTRAIT_GIZMO_LIGHT_POSITION ? PORTRAIT_GIZMO_LIGHT_ANGLES : PORTRAIT_GIZMO_LIGHT_POSITION;
	else if (pNode == m_pMarkers[MARKER_AMBIENT])
		nMode = PORTRAIT_GIZMO_AMBIENT_POSITION;
	m_pModel->SetGizmoMode(nMode);
}

// ---------------------------------------------------------------------------------------------
// Gizmo drags

ToolSceneTransform_t CQZarnPortraitEditorScene::TakeStartTransform() const
{
	ToolSceneTransform_t start;
	const CZarnPortraitRecord *pRecord = m_pModel->GetPortraitRecord();
	if (!pRecord)
		return start;
	const CZarnPortraitRecord::Summon_t *pSummon = m_pModel->GetSelectedSummonRecord();
	switch (m_pModel->GetGizmoMode())
	{
	case PORTRAIT_GIZMO_CAMERA_POSITION:
		start.m_vPosition = m_pModel->GetCameraPosition();
		break;
	case PORTRAIT_GIZMO_CAMERA_TARGET:
		start.m_vPosition = m_pModel->GetCameraTarget();
		break;
	case PORTRAIT_GIZMO_LIGHT_POSITION:
		start.m_vPosition = pRecord->m_LightPosition;
		break;
	case PORTRAIT_GIZMO_LIGHT_ANGLES:
		start.m_Angles = pRecord->m_LightAngles;
		break;
	case PORTRAIT_GIZMO_AMBIENT_POSITION:
		start.m_vPosition = m_pModel->GetAmbientGizmoPosition();
		break;
	case PORTRAIT_GIZMO_AMBIENT_ANGLES:
		start.m_Angles = m_pModel->GetAmbientAngles();
		break;
	case PORTRAIT_GIZMO_SUMMON_POSITION:
		if (pSummon)
			start.m_vPosition = pSummon->m_Position;
		break;
	case PORTRAIT_GIZMO_SUMMON_ANGLES:
		if (pSummon)
			start.m_Angles = pSummon->m_Angles;
		break;
	case PORTRAIT_GIZMO_SUMMON_SCALE:
		if (pSummon)
			start.m_vScale = Vector(pSummon->m_flScale, pSummon->m_flScale, pSummon->m_flScale);
		break;
	}
	return start;
}

void CQZarnPortraitEditorScene::OnGizmoStart(CToolSceneGizmo *pGizmo)
{
	if (pGizmo != m_pGizmo)
		return;
	m_Start = TakeStartTransform();
	m_bDragging = true;
}

void CQZarnPortraitEditorScene::OnGizmoMoved(CToolSceneGizmo *pGizmo, const ToolSceneTransform_t &delta)
{
	if (pGizmo != m_pGizmo)
		return;
	if (!m_bDragging)
	{
		m_Start = TakeStartTransform();
		m_bDragging = true;
	}
	ApplyDelta(delta);
}

void CQZarnPortraitEditorScene::OnGizmoReleased(CToolSceneGizmo *pGizmo, const ToolSceneTransform_t &delta)
{
	if (pGizmo != m_pGizmo)
		return;
	if (m_bDragging)
		ApplyDelta(delta);
	m_bDragging = false;
	PlaceGizmo();
	RequestRender();
}

void CQZarnPortraitEditorScene::ApplyDelta(const ToolSceneTransform_t &delta)
{
	const ToolSceneTransform_t result = ToolScene_ComposeTransform(m_Start, delta);
	switch (m_pModel->GetGizmoMode())
	{
	case PORTRAIT_GIZMO_CAMERA_POSITION:
		m_pModel->SetCameraPosition(result.m_vPosition);
		break;
	case PORTRAIT_GIZMO_CAMERA_TARGET:
		m_pModel->SetCameraTarget(result.m_vPosition);
		break;
	case PORTRAIT_GIZMO_LIGHT_POSITION:
		m_pModel->SetLightPosition(result.m_vPosition);
		break;
	case PORTRAIT_GIZMO_LIGHT_ANGLES:
		m_pModel->SetLightAngles(result.m_Angles);
		break;
	case PORTRAIT_GIZMO_AMBIENT_POSITION:
		m_pModel->SetAmbientGizmoPosition(result.m_vPosition);
		break;
	case PORTRAIT_GIZMO_AMBIENT_ANGLES:
		m_pModel->SetAmbientAngles(result.m_Angles);
		break;
	case PORTRAIT_GIZMO_SUMMON_POSITION:
		m_pModel->SetSummonPosition(result.m_vPosition);
		break;
	case PORTRAIT_GIZMO_SUMMON_ANGLES:
		m_pModel->SetSummonAngles(result.m_Angles);
		break;
	case PORTRAIT_GIZMO_SUMMON_SCALE:
	{
		// The first of the three factors that is not 1, held at 0.01 at least, times the scale
		// the drag started from.
		float flFactor = 1.0f;
		for (int i = 0; i < 3; ++i)
		{
			if (delta.m_vScale[i] != 1.0f)
			{
				flFactor = delta.m_vScale[i];
				break;
			}
		}
		m_pModel->SetSummonScale(std::max(flFactor, CZarnPortraitEditorModel::MIN_SUMMON_SCALE) * m_Start.m_vScale.x);
		break;
	}
	}
}

// ---------------------------------------------------------------------------------------------
// Clone camera

void CQZarnPortraitEditorScene::SetCloneCameraEnabled(bool bCloneCameraToPortrait)
{
	m_bCloneCamera = bCloneCameraToPortrait;
	if (m_bCloneCamera && m_pModel->GetPortraitRecord())
	{
		m_flSceneFOV = Camera().GetFOV();
		m_bCopyingCamera = true;
		Camera().SetPositionAndTarget(m_pModel->GetCameraPosition(), m_pModel->GetCameraTarget());
		Camera().SetFOV(m_pModel->GetCameraFOV());
		m_bCopyingCamera = false;
	}
	else if (!m_bCloneCamera)
		Camera().SetFOV(m_flSceneFOV);
	ShowModel();
}

void CQZarnPortraitEditorScene::OnCameraChanged()
{
	if (!m_bCloneCamera || m_bCopyingCamera || !m_pModel->GetPortraitRecord())
		return;
	m_pModel->SetCameraPositionAndTarget(Camera().GetPosition(), Camera().GetTarget());
}
