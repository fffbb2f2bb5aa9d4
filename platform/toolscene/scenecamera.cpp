#include "toolscene/scenecamera.h"

#include <algorithm>
#include <cmath>

#include "toolscene/scenelight.h"
#include "toolframework/toolframework.h"

void CToolSceneGlobalLight::SetUnlit()
{
	m_vColor = Vector();
	m_flScale = 0.0f;
	m_vAmbientColor = Vector(1.0f, 1.0f, 1.0f);
	m_flAmbientScale = 1.0f;
	m_vAmbientDirection = Vector();
	m_vSpecularColor = Vector();
}

CToolSceneGlobalLight *ToolScene_FindGlobalLight()
{
	if (!g_pToolFramework)
		return nullptr;
	return static_cast<CToolSceneGlobalLight *>(g_pToolFramework->FindGlobalObject(TOOLSCENE_GLOBAL_LIGHT_NAME));
}

bool ToolScene_RegisterGlobalLight(CToolSceneGlobalLight *pLight)
{
	if (!g_pToolFramework)
		return false;
	g_pToolFramework->SetGlobalObject(TOOLSCENE_GLOBAL_LIGHT_NAME, pLight);
	return true;
}

CToolSceneCamera::CToolSceneCamera()
{
	SetPositionAndTarget(Vector(180.0f, -120.0f, 110.0f), Vector(0.0f, 0.0f, 40.0f));
}

Vector CToolSceneCamera::GetForward() const
{
	return SceneMatrixFromAngles(m_Angles).GetColumn(0);
}

Vector CToolSceneCamera::GetLeft() const
{
	return SceneMatrixFromAngles(m_Angles).GetColumn(1);
}

Vector CToolSceneCamera::GetUp() const
{
	return SceneMatrixFromAngles(m_Angles).GetColumn(2);
}

void CToolSceneCamera::SetPositionAndTarget(const Vector &position, const Vector &target)
{
	m_vPosition = position;
	const Vector direction = target - position;
	const float distance = SceneLength(direction);
	if (distance > 1e-4f)
	{
		m_Angles = SceneAnglesFromDirection(direction);
		m_vTarget = target;
		m_flDistance = distance;
	}
	else
		m_vTarget = position + GetForward() * m_flDistance;
}

void CToolSceneCamera::SetPositionAndAngles(const Vector &position, const QAngle &angles)
{
	m_vPosition = position;
	m_Angles = angles;
	m_vTarget = position + GetForward() * m_flDistance;
}

void CToolSceneCamera::SetFOV(float flDegrees)
{
	if (std::isfinite(flDegrees))
		m_flFOV = std::clamp(flDegrees, 1.0f, 170.0f);
}

void CToolSceneCamera::SetNearFar(float flNear, float flFar)
{
	if (!std::isfinite(flNear) || !std::isfinite(flFar))
		return;
	m_flNear = std::max(flNear, 0.01f);
	m_flFar = std::max(flFar, m_flNear * 1.01f);
}

void CToolSceneCamera::UpdatePositionFromOrbit()
{
	m_vPosition = m_vTarget - GetForward() * m_flDistance;
}

void CToolSceneCamera::Orbit(float flYawDegrees, float flPitchDegrees)
{
	if (!std::isfinite(flYawDegrees) || !std::isfinite(flPitchDegrees))
		return;
	m_Angles.y = std::remainder(m_Angles.y + flYawDegrees, 360.0f);
	m_Angles.x = std::clamp(m_Angles.x + flPitchDegrees, -89.0f, 89.0f);
	UpdatePositionFromOrbit();
}

void CToolSceneCamera::Pan(float flPixelsX, float flPixelsY, int nViewHeight)
{
	if (nViewHeight <= 0 || !std::isfinite(flPixelsX) || !std::isfinite(flPixelsY))
		return;
	float tanX, tanY;
	GetFrustumSlopes(1.0f, tanX, tanY);
	const float unitsPerPixel = 2.0f * m_flDistance * tanY / (float)nViewHeight;
	// Dragging right moves the scene right, so the camera goes left.
	const Vector move = GetLeft() * (flPixelsX * unitsPerPixel) + GetUp() * (flPixelsY * unitsPerPixel);
	m_vPosition += move;
	m_vTarget += move;
}

void CToolSceneCamera::Zoom(float flFactor)
{
	if (!std::isfinite(flFactor) || flFactor <= 0.0f)
		return;
	m_flDistance = std::clamp(m_flDistance * flFactor, 1.0f, m_flFar * 0.9f);
	UpdatePositionFromOrbit();
}

void CToolSceneCamera::FrameBounds(const Vector &mins, const Vector &maxs, float flAspect)
{
	const Vector centre = (mins + maxs) * 0.5f;
	const float radius = std::max(SceneLength(maxs - mins) * 0.5f, 1.0f);
	float tanX, tanY;
	GetFrustumSlopes(flAspect > 0.0f ? flAspect : 1.0f, tanX, tanY);
	const float slope = std::min(tanX, tanY);
	// The sphere around the box touches the narrower side of the view.
	const float distance = radius / std::sin(std::atan(slope));
	m_vTarget = centre;
	m_flDistance = distance;
	UpdatePositionFromOrbit();
	if (m_flFar < distance + radius * 2.0f)
		m_flFar = distance + radius * 2.0f;
}

void CToolSceneCamera::GetFrustumSlopes(float flAspect, float &flTanX, float &flTanY) const
{
	flTanX = std::tan(SceneRadians(m_flFOV) * 0.5f);
	flTanY = flTanX / (flAspect > 0.0f ? flAspect : 1.0f);
}

SceneMatrix_t CToolSceneCamera::GetViewMatrix() const
{
	const SceneMatrix_t frame = SceneMatrixFromAngles(m_Angles);
	const Vector forward = frame.GetColumn(0), left = frame.GetColumn(1), up = frame.GetColumn(2);
	SceneMatrix_t view;
	const Vector rows[3] = { -left, up, -forward };
	for (int r = 0; r < 3; ++r)
	{
		view.m[r][0] = rows[r].x;
		view.m[r][1] = rows[r].y;
		view.m[r][2] = rows[r].z;
		view.m[r][3] = -SceneDot(rows[r], m_vPosition);
	}
	return view;
}

SceneMatrix_t CToolSceneCamera::GetProjectionMatrix(float flAspect) const
{
	float tanX, tanY;
	GetFrustumSlopes(flAspect, tanX, tanY);
	SceneMatrix_t projection;
	projection.m[0][0] = 1.0f / tanX;
	projection.m[1][1] = 1.0f / tanY;
	projection.m[2][2] = -(m_flFar + m_flNear) / (m_flFar - m_flNear);
	projection.m[2][3] = -2.0f * m_flFar * m_flNear / (m_flFar - m_flNear);
	projection.m[3][2] = -1.0f;
	projection.m[3][3] = 0.0f;
	return projection;
}

SceneMatrix_t CToolSceneCamera::GetViewProjectionMatrix(float flAspect) const
{
	return GetProjectionMatrix(flAspect) * GetViewMatrix();
}

void CToolSceneCamera::BuildRay(float x, float y, int nWidth, int nHeight, Vector &origin, Vector &direction) const
{
	const float w = (float)std::max(nWidth, 1), h = (float)std::max(nHeight, 1);
	float tanX, tanY;
	GetFrustumSlopes(w / h, tanX, tanY);
	const float nx = 2.0f * x / w - 1.0f;
	const float ny = 1.0f - 2.0f * y / h;
	const SceneMatrix_t frame = SceneMatrixFromAngles(m_Angles);
	origin = m_vPosition;
	direction = SceneNormalize(frame.GetColumn(0) - frame.GetColumn(1) * (nx * tanX) + frame.GetColumn(2) * (ny * tanY));
}

bool CToolSceneCamera::ProjectToScreen(const Vector &point, int nWidth, int nHeight, float &x, float &y) const
{
	const float w = (float)std::max(nWidth, 1), h = (float)std::max(nHeight, 1);
	const SceneMatrix_t frame = SceneMatrixFromAngles(m_Angles);
	const Vector d = point - m_vPosition;
	const float depth = SceneDot(d, frame.GetColumn(0));
	if (depth <= 1e-6f)
		return false;
	float tanX, tanY;
	GetFrustumSlopes(w / h, tanX, tanY);
	const float nx = -SceneDot(d, frame.GetColumn(1)) / (depth * tanX);
	const float ny = SceneDot(d, frame.GetColumn(2)) / (depth * tanY);
	x = (nx + 1.0f) * 0.5f * w;
	y = (1.0f - ny) * 0.5f * h;
	return true;
}

float CToolSceneCamera::WorldUnitsPerPixel(const Vector &point, int nWidth) const
{
	const float depth = std::max(SceneDot(point - m_vPosition, GetForward()), m_flNear);
	float tanX, tanY;
	GetFrustumSlopes(1.0f, tanX, tanY);
	return 2.0f * depth * tanX / (float)std::max(nWidth, 1);
}
