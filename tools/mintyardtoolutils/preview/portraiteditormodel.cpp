#include "mintyardtoolutils/preview/portraiteditormodel.h"

#include <algorithm>
#include <cmath>

#include "core/keyvalues.h"
#include "mintyardtoolutils/core/cfgelements.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/preview/previewsession.h"
#include "toolscene/scenemath.h"
#include "toolscene/sceneresources.h"

namespace
{
// How far ahead of the camera a target stays at least.
const float MIN_TARGET_DISTANCE = 16.0f;
// How far from the origin the ambient marker stands, towards where the ambient light comes from.
const float AMBIENT_GIZMO_DISTANCE = 120.0f;

bool IsZeroVector(const Vector &v)
{
	return v.x == 0.0f && v.y == 0.0f && v.z == 0.0f;
}
} // namespace

CZarnPortraitEditorModel::CZarnPortraitEditorModel() : m_pModelSet(std::make_unique<CZarnPreviewModelSet>())
{
	m_pModelSet->SetPreviewMode(m_nPreviewMode);
}

CZarnPortraitEditorModel::~CZarnPortraitEditorModel() = default;

void CZarnPortraitEditorModel::AddListener(IZarnPortraitEditorListener *pListener)
{
	if (pListener && std::find(m_Listeners.begin(), m_Listeners.end(), pListener) == m_Listeners.end())
		m_Listeners.push_back(pListener);
}

void CZarnPortraitEditorModel::RemoveListener(IZarnPortraitEditorListener *pListener)
{
	std::erase(m_Listeners, pListener);
}

template<typename F>
void CZarnPortraitEditorModel::Notify(F &&fn)
{
	// A listener may add or remove listeners while it is told: walk a copy.
	const CUtlVector<IZarnPortraitEditorListener *> listeners = m_Listeners;
	for (IZarnPortraitEditorListener *pListener : listeners)
	{
		if (std::find(m_Listeners.begin(), m_Listeners.end(), pListener) != m_Listeners.end())
			fn(pListener);
	}
}

void CZarnPortraitEditorModel::NotifyPortraitChanged()
{
	Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitChanged(); });
}

Vector CZarnPortraitEditorModel::DefaultCameraTarget(const Vector &position, const QAngle &angles)
{
	const Vector forward = SceneAnglesForward(angles);
	const float flAlong = std::max(SceneDot(Vector() - position, forward), MIN_TARGET_DISTANCE);
	return position + forward * flAlong;
}

void CZarnPortraitEditorModel::ResetEditingState()
{
	for (int i = 0; i < CAMERA_COUNT; ++i)
	{
		const CZarnPortraitRecord::Camera_t *pCamera = nullptr;
		if (m_pRecord)
			pCamera = &m_pRecord->CameraOrFirst(i == CAMERA_SUMMONS ? CAMERA_NAME_SUMMONS : CAMERA_NAME_DEFAULT);
		const Vector position = pCamera ? pCamera->m_Position : Vector();
		const QAngle angles = pCamera ? pCamera->m_Angles : QAngle();
		m_CameraTarget[i] = DefaultCameraTarget(position, angles);
		m_flCameraRoll[i] = angles.z;
	}
	const Vector direction = m_pRecord ? m_pRecord->m_AmbientDirection : Vector();
	m_AmbientGizmoPosition = IsZeroVector(direction) ? Vector(0.0f, 0.0f, AMBIENT_GIZMO_DISTANCE)
													 : SceneNormalize(-direction) * AMBIENT_GIZMO_DISTANCE;
	if (m_pRecord && m_nSelectedSummon >= (int)m_pRecord->m_Summons.size())
		m_nSelectedSummon = -1;
	if (!m_pRecord)
		m_nSelectedSummon = -1;
}

void CZarnPortraitEditorModel::SetPortraitRecord(CZarnPortraitRecord *pRecord)
{
	m_pRecord = pRecord;
	m_nSelectedSummon = -1;
	if (m_pRecord && m_bEditingSummons)
		m_pRecord->AddCamera(CAMERA_NAME_SUMMONS);
	ResetEditingState();
	ApplyRecordToModelSet();
	NotifyPortraitChanged();
}

void CZarnPortraitEditorModel::ApplyRecordToModelSet()
{
	// What the record says of the scene: a hidden hero, hidden particles, its animation.
	m_pModelSet->SetHideHero(m_pRecord && m_pRecord->m_bHideHero);
	m_pModelSet->SetHideParticles(m_pRecord && m_pRecord->m_bHideParticles);
	const CUtlString sequence = m_pRecord ? m_pRecord->m_AnimationSequence : CUtlString();
	m_pModelSet->SetSequence(sequence.empty() ? ZARN_PREVIEW_DEFAULT_SEQUENCE : sequence.c_str());
	m_pModelSet->SetPlaybackSpeed(m_pRecord ? m_pRecord->m_flAnimationRate : 1.0f);
	m_pModelSet->SetFrame(-1);
}

void CZarnPortraitEditorModel::ReplaceRecord(const CZarnPortraitRecord &record, bool bKeepEditingState)
{
	if (!m_pRecord)
		return;
	*m_pRecord = record;
	if (m_bEditingSummons)
		m_pRecord->AddCamera(CAMERA_NAME_SUMMONS);
	if (m_nSelectedSummon >= (int)m_pRecord->m_Summons.size())
		m_nSelectedSummon = -1;
	if (!bKeepEditingState)
		ResetEditingState();
	ApplyRecordToModelSet();
}

bool CZarnPortraitEditorModel::SetModel(const char *pszModelPath, float flScale, const CMintyardCfg_BaseZarnModel *pElement)
{
	m_ModelPath = pszModelPath ? pszModelPath : "";
	m_flModelScale = flScale;
	m_pModelElement = pElement;
	int nElement = -1;
	if (m_pSession && pElement)
	{
		for (size_t i = 0; i < m_pSession->m_Models.size(); ++i)
		{
			if (m_pSession->m_Models[i] == pElement)
				nElement = (int)i;
		}
	}
	bool bOk = false;
	ZarnSessionPreview_t preview;
	if (nElement >= 0 && GetSessionPreview(m_pSession, nElement, preview) && preview.m_ModelPath == m_ModelPath)
	{
		// The page's mode stands; the courier's type comes with the model (a flying model flies).
		preview.m_nMode = m_nPreviewMode;
		bOk = ApplySessionPreview(preview, *m_pModelSet);
	}
	else
	{
		m_pModelSet->SetPreviewMode(m_nPreviewMode);
		m_pModelSet->SetPreviewItemKeys(nullptr, m_nCourierType == 1, -1);
		bOk = !m_ModelPath.empty() && m_pModelSet->SetModel(m_ModelPath.c_str(), -1, -1, 0);
	}
	// A variant stands alone: the set may have changed the mode.
	m_nPreviewMode = m_pModelSet->GetPreviewMode();
	m_nCourierType = m_pModelSet->GetCourierType();
	m_pModelSet->SetCourierTeam(m_nCourierTeam);
	m_pModelSet->SetWardType(m_nWardType);
	ApplyRecordToModelSet();
	Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitPreviewModeChanged(); });
	NotifyPortraitChanged();
	return bOk;
}

// ---------------------------------------------------------------------------------------------
// Camera

CZarnPortraitRecord::Camera_t *CZarnPortraitEditorModel::GetCurrentCamera() const
{
	return m_pRecord ? &m_pRecord->CameraOrFirst(GetCameraName()) : nullptr;
}

Vector CZarnPortraitEditorModel::GetCameraPosition() const
{
	const CZarnPortraitRecord::Camera_t *pCamera = GetCurrentCamera();
	return pCamera ? pCamera->m_Position : Vector();
}

QAngle CZarnPortraitEditorModel::GetCameraAngles() const
{
	const CZarnPortraitRecord::Camera_t *pCamera = GetCurrentCamera();
	return pCamera ? pCamera->m_Angles : QAngle();
}

float CZarnPortraitEditorModel::GetCameraFOV() const
{
	const CZarnPortraitRecord::Camera_t *pCamera = GetCurrentCamera();
	return pCamera ? pCamera->m_flFOV : 15.0f;
}

float CZarnPortraitEditorModel::GetCameraFarZ() const
{
	const CZarnPortraitRecord::Camera_t *pCamera = GetCurrentCamera();
	return pCamera ? pCamera->m_flFar : 1000.0f;
}

QAngle CZarnPortraitEditorModel::LookAngles(const Vector &position, const Vector &target, float flRoll, const QAngle &current) const
{
	const Vector direction = target - position;
	if (SceneLength(direction) < 1e-4f)
		return QAngle(current.x, current.y, flRoll);
	QAngle angles = SceneAnglesFromDirection(direction);
	angles.z = flRoll;
	return angles;
}

void CZarnPortraitEditorModel::SetCameraPosition(const Vector &position)
{
	CZarnPortraitRecord::Camera_t *pCamera = GetCurrentCamera();
	if (!pCamera)
		return;
	pCamera->m_Position = position;
	pCamera->m_Angles = LookAngles(position, GetCameraTarget(), GetCameraRoll(), pCamera->m_Angles);
	Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitCameraChanged(); });
}

void CZarnPortraitEditorModel::SetCameraTarget(const Vector &target)
{
	CZarnPortraitRecord::Camera_t *pCamera = GetCurrentCamera();
	if (!pCamera)
		return;
	m_CameraTarget[GetCameraIndex()] = target;
	pCamera->m_Angles = LookAngles(pCamera->m_Position, target, GetCameraRoll(), pCamera->m_Angles);
	Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitCameraChanged(); });
}

void CZarnPortraitEditorModel::SetCameraAngles(const QAngle &angles)
{
	CZarnPortraitRecord::Camera_t *pCamera = GetCurrentCamera();
	if (!pCamera)
		return;
	pCamera->m_Angles = angles;
	const Vector forward = SceneAnglesForward(angles);
	const float flDistance = std::max(SceneLength(GetCameraTarget() - pCamera->m_Position), MIN_TARGET_DISTANCE);
	m_CameraTarget[GetCameraIndex()] = pCamera->m_Position + forward * flDistance;
	m_flCameraRoll[GetCameraIndex()] = angles.z;
	Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitCameraChanged(); });
}

void CZarnPortraitEditorModel::SetCameraPositionAndTarget(const Vector &position, const Vector &target)
{
	CZarnPortraitRecord::Camera_t *pCamera = GetCurrentCamera();
	if (!pCamera)
		return;
	pCamera->m_Position = position;
	m_CameraTarget[GetCameraIndex()] = target;
	pCamera->m_Angles = LookAngles(position, target, GetCameraRoll(), pCamera->m_Angles);
	Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitCameraChanged(); });
}

void CZarnPortraitEditorModel::SetCameraRoll(float flRoll)
{
	CZarnPortraitRecord::Camera_t *pCamera = GetCurrentCamera();
	if (!pCamera)
		return;
	m_flCameraRoll[GetCameraIndex()] = flRoll;
	pCamera->m_Angles.z = flRoll;
	Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitCameraChanged(); });
}

void CZarnPortraitEditorModel::SetCameraFOV(float flFOV)
{
	CZarnPortraitRecord::Camera_t *pCamera = GetCurrentCamera();
	if (!pCamera)
		return;
	pCamera->m_flFOV = flFOV;
	Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitCameraChanged(); });
}

void CZarnPortraitEditorModel::SetCameraFarZ(float flFarZ)
{
	CZarnPortraitRecord::Camera_t *pCamera = GetCurrentCamera();
	if (!pCamera)
		return;
	pCamera->m_flFar = flFarZ;
	Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitCameraChanged(); });
}

bool CZarnPortraitEditorModel::FrameBounds(const Vector &mins, const Vector &maxs, float flAspect, float flMargin)
{
	CZarnPortraitRecord::Camera_t *pCamera = GetCurrentCamera();
	if (!pCamera)
		return false;
	QAngle angles = pCamera->m_Angles;
	if (IsZeroVector(pCamera->m_Position) && angles == QAngle())
		angles = PORTRAIT_DEFAULT_FRAMING_ANGLES;
	Vector position, target;
	if (!ComputePortraitFraming(mins, maxs, angles, pCamera->m_flFOV, flAspect, flMargin, position, target))
		return false;
	const float flReach = SceneLength(target - position) + SceneLength(maxs - mins);
	if (pCamera->m_flFar < flReach)
		pCamera->m_flFar = std::ceil(flReach);
	SetCameraPositionAndTarget(position, target);
	return true;
}

bool ComputePortraitFraming(const Vector &mins, const Vector &maxs, const QAngle &angles, float flFOV, float flAspect, float flMargin,
	Vector &outPosition, Vector &outTarget)
{
	if (!(maxs.x >= mins.x && maxs.y >= mins.y && maxs.z >= mins.z))
		return false;
	const SceneMatrix_t frame = SceneMatrixFromAngles(QAngle(angles.x, angles.y, angles.z));
	const Vector forward = frame.GetColumn(0), left = frame.GetColumn(1), up = frame.GetColumn(2);
	const float flFill = std::clamp(1.0f - 2.0f * flMargin, 0.05f, 1.0f);
	const float flTanX = std::tan(SceneRadians(std::clamp(flFOV, 1.0f, 170.0f) * 0.5f)) * flFill;
	const float flTanY = flTanX / std::max(flAspect, 0.01f);
	const Vector center = (mins + maxs) * 0.5f;
	// The distance from the centre at which each corner lies inside both slopes.
	float flDistance = 0.0f;
	for (int i = 0; i < 8; ++i)
	{
		const Vector corner((i & 1) ? maxs.x : mins.x, (i & 2) ? maxs.y : mins.y, (i & 4) ? maxs.z : mins.z);
		const Vector offset = corner - center;
		const float flDepth = SceneDot(offset, forward);
		flDistance = std::max(flDistance, std::fabs(SceneDot(offset, left)) / flTanX - flDepth);
		flDistance = std::max(flDistance, std::fabs(SceneDot(offset, up)) / flTanY - flDepth);
	}
	// Never inside the box.
	float flNearest = 0.0f;
	for (int i = 0; i < 8; ++i)
	{
		const Vector corner((i & 1) ? maxs.x : mins.x, (i & 2) ? maxs.y : mins.y, (i & 4) ? maxs.z : mins.z);
		flNearest = std::max(flNearest, -SceneDot(corner - center, forward));
	}
	flDistance = std::max(flDistance, flNearest + MIN_TARGET_DISTANCE);
	outTarget = center;
	outPosition = center - forward * flDistance;
	return true;
}

// ---------------------------------------------------------------------------------------------
// Light

#define PORTRAIT_LIGHT_SETTER(Name, Type, Field) \
	void CZarnPortraitEditorModel::Name(Type value) \
	{ \
		if (!m_pRecord) \
			return; \
		m_pRecord->Field = value; \
		Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitLightChanged(); }); \
	}

PORTRAIT_LIGHT_SETTER(SetLightPosition, const Vector &, m_LightPosition)
PORTRAIT_LIGHT_SETTER(SetLightAngles, const QAngle &, m_LightAngles)
PORTRAIT_LIGHT_SETTER(SetLightFOV, float, m_flLightFOV)
PORTRAIT_LIGHT_SETTER(SetLightDistance, float, m_flLightDistance)
PORTRAIT_LIGHT_SETTER(SetLightColor, const Color &, m_LightColor)
PORTRAIT_LIGHT_SETTER(SetLightScale, float, m_flLightScale)
PORTRAIT_LIGHT_SETTER(SetAmbientColor, const Color &, m_AmbientColor)
PORTRAIT_LIGHT_SETTER(SetAmbientScale, float, m_flAmbientScale)
PORTRAIT_LIGHT_SETTER(SetShadowColor, const Color &, m_ShadowColor)
PORTRAIT_LIGHT_SETTER(SetEntityShadowScale, float, m_flShadowScale)
PORTRAIT_LIGHT_SETTER(SetAmbientDirection, const Vector &, m_AmbientDirection)

#undef PORTRAIT_LIGHT_SETTER

void CZarnPortraitEditorModel::SetAmbientGizmoPosition(const Vector &position)
{
	m_AmbientGizmoPosition = position;
	Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitLightChanged(); });
}

QAngle CZarnPortraitEditorModel::GetAmbientAngles() const
{
	const Vector direction = m_pRecord ? m_pRecord->m_AmbientDirection : Vector();
	if (IsZeroVector(direction))
		return QAngle();
	return SceneAnglesFromDirection(-direction);
}

void CZarnPortraitEditorModel::SetAmbientAngles(const QAngle &angles)
{
	if (!m_pRecord)
		return;
	float flLength = SceneLength(m_pRecord->m_AmbientDirection);
	if (flLength <= 0.0f)
		flLength = 1.0f;
	SetAmbientDirection(-SceneAnglesForward(angles) * flLength);
}

// ---------------------------------------------------------------------------------------------
// Background

void CZarnPortraitEditorModel::SetBackgroundTexture(const char *pszPath)
{
	if (!m_pRecord)
		return;
	m_pRecord->m_BackgroundTexture = pszPath ? pszPath : "";
	Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitBackgroundChanged(); });
}

void CZarnPortraitEditorModel::SetBackgroundColors(const Vector colors[4])
{
	if (!m_pRecord)
		return;
	for (int i = 0; i < 4; ++i)
		m_pRecord->m_BackgroundColor[i] = colors[i];
	Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitBackgroundChanged(); });
}

// ---------------------------------------------------------------------------------------------
// Preview

void CZarnPortraitEditorModel::SetPreviewMode(int nMode)
{
	m_nPreviewMode = std::clamp(nMode, 0, ZARN_PREVIEW_MODE_COUNT - 1);
	m_pModelSet->SetPreviewMode(m_nPreviewMode);
	Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitPreviewModeChanged(); });
}

void CZarnPortraitEditorModel::SetCourierType(int nType)
{
	m_nCourierType = nType ? 1 : 0;
	m_pModelSet->SetCourierType(m_nCourierType);
	Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitPreviewModeChanged(); });
}

void CZarnPortraitEditorModel::SetCourierTeam(int nTeam)
{
	m_nCourierTeam = nTeam ? 1 : 0;
	m_pModelSet->SetCourierTeam(m_nCourierTeam);
	Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitPreviewModeChanged(); });
}

void CZarnPortraitEditorModel::SetWardType(int nType)
{
	m_nWardType = nType ? 1 : 0;
	m_pModelSet->SetWardType(m_nWardType);
	Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitPreviewModeChanged(); });
}

int CZarnPortraitEditorModel::GetStyleCount() const
{
	return m_pModelSet->GetStyleCount();
}

int CZarnPortraitEditorModel::GetCurrentStyle() const
{
	return m_pModelSet->GetCurrentStyle();
}

void CZarnPortraitEditorModel::SetCurrentStyle(int nStyle)
{
	m_pModelSet->SetCurrentStyle(nStyle);
	Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitStyleChanged(); });
}

void CZarnPortraitEditorModel::SetAnimationSequence(const char *pszSequence)
{
	m_pModelSet->SetSequence(pszSequence);
	if (m_pRecord)
		m_pRecord->m_AnimationSequence = pszSequence ? pszSequence : "";
}

void CZarnPortraitEditorModel::SetAnimationSpeed(float flSpeed)
{
	m_pModelSet->SetPlaybackSpeed(flSpeed);
	if (m_pRecord)
		m_pRecord->m_flAnimationRate = flSpeed;
}

void CZarnPortraitEditorModel::SetAnimationFrame(int nFrame)
{
	m_pModelSet->SetFrame(nFrame);
	if (!m_pRecord || nFrame < 0)
		return;
	// The cycle is the frame's share of the sequence.
	const int nFrames = GetAnimationFrameCount();
	m_pRecord->m_flAnimationCycle = nFrames > 1 ? std::clamp((float)nFrame / (float)(nFrames - 1), 0.0f, 1.0f) : 0.0f;
}

int CZarnPortraitEditorModel::GetAnimationFrameCount() const
{
	if (m_pModelSet->GetSubjectModel().empty())
		return 0;
	std::shared_ptr<const CToolSceneModel> pModel = CToolSceneResources::Default().LoadModel(m_pModelSet->GetSubjectModel().c_str());
	const CCompiledModel *pData = pModel ? &pModel->GetData() : nullptr;
	const int nSequence = pData ? pData->FindSequence(m_pModelSet->GetSequence().c_str()) : -1;
	return nSequence >= 0 ? (int)pData->m_Sequences[nSequence].m_nFrameCount : 0;
}

// ---------------------------------------------------------------------------------------------
// Summons

void CZarnPortraitEditorModel::SetSelectedSummon(int nSummon)
{
	if (!m_pRecord || nSummon < 0 || nSummon >= (int)m_pRecord->m_Summons.size())
		nSummon = -1;
	m_nSelectedSummon = nSummon;
	if (nSummon < 0 && m_nGizmoMode >= PORTRAIT_GIZMO_SUMMON_POSITION)
		SetGizmoMode(PORTRAIT_GIZMO_NONE);
	Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitSummonsChanged(); });
}

int CZarnPortraitEditorModel::AddSummon(const char *pszUnit)
{
	if (!m_pRecord || !pszUnit || !*pszUnit)
		return -1;
	CZarnPortraitRecord::Summon_t summon;
	summon.m_Unit = pszUnit;
	m_pRecord->m_Summons.push_back(summon);
	m_nSelectedSummon = (int)m_pRecord->m_Summons.size() - 1;
	Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitSummonsChanged(); });
	return m_nSelectedSummon;
}

void CZarnPortraitEditorModel::RemoveSummon(int nSummon)
{
	if (!m_pRecord || nSummon < 0 || nSummon >= (int)m_pRecord->m_Summons.size())
		return;
	m_pRecord->m_Summons.erase(m_pRecord->m_Summons.begin() + nSummon);
	SetSelectedSummon(-1);
}

CZarnPortraitRecord::Summon_t *CZarnPortraitEditorModel::GetSelectedSummonRecord() const
{
	if (!m_pRecord || m_nSelectedSummon < 0 || m_nSelectedSummon >= (int)m_pRecord->m_Summons.size())
		return nullptr;
	return &m_pRecord->m_Summons[m_nSelectedSummon];
}

void CZarnPortraitEditorModel::SetSummonPosition(const Vector &position)
{
	if (CZarnPortraitRecord::Summon_t *pSummon = GetSelectedSummonRecord())
	{
		pSummon->m_Position = position;
		Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitSummonsChanged(); });
	}
}

void CZarnPortraitEditorModel::SetSummonAngles(const QAngle &angles)
{
	if (CZarnPortraitRecord::Summon_t *pSummon = GetSelectedSummonRecord())
	{
		pSummon->m_Angles = angles;
		Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitSummonsChanged(); });
	}
}

void CZarnPortraitEditorModel::SetSummonScale(float flScale)
{
	if (CZarnPortraitRecord::Summon_t *pSummon = GetSelectedSummonRecord())
	{
		pSummon->m_flScale = std::isnan(flScale) ? MIN_SUMMON_SCALE : std::max(flScale, MIN_SUMMON_SCALE);
		Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitSummonsChanged(); });
	}
}

void CZarnPortraitEditorModel::SetDisplaySummons(bool bDisplay)
{
	m_bDisplaySummons = bDisplay;
	Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitSummonsChanged(); });
}

void CZarnPortraitEditorModel::SetEditingSummons(bool bEditing)
{
	m_bEditingSummons = bEditing;
	if (m_pRecord && bEditing && !m_pRecord->FindCamera(CAMERA_NAME_SUMMONS))
	{
		m_pRecord->AddCamera(CAMERA_NAME_SUMMONS);
		m_CameraTarget[CAMERA_SUMMONS] = DefaultCameraTarget(Vector(), QAngle());
		m_flCameraRoll[CAMERA_SUMMONS] = 0.0f;
	}
	Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitCameraChanged(); });
}

// ---------------------------------------------------------------------------------------------
// Gizmo

void CZarnPortraitEditorModel::SetGizmoMode(int nMode)
{
	if (nMode < 0 || nMode >= PORTRAIT_GIZMO_MODE_COUNT)
		nMode = PORTRAIT_GIZMO_NONE;
	m_nGizmoMode = nMode;
	Notify([](IZarnPortraitEditorListener *p) { p->OnPortraitGizmoModeChanged(); });
}
