#include "toolscene/scenegizmo.h"

#include <algorithm>
#include <cmath>

#include "toolscene/toolscene.h"

namespace
{
constexpr float HIT_PIXELS = 7.0f;
constexpr float CENTER_HIT_PIXELS = 8.0f;
constexpr int RING_SEGMENTS = 48;
constexpr float MIN_SCALE = 0.001f;

const Color AXIS_COLORS[3] = { Color(230, 64, 64), Color(80, 200, 80), Color(72, 112, 240) };
const Color CENTER_COLOR = Color(235, 235, 235);
const Color HIGHLIGHT_COLOR = Color(255, 220, 40);

float DistanceToSegment(float px, float py, float ax, float ay, float bx, float by)
{
	const float dx = bx - ax, dy = by - ay;
	const float lengthSquared = dx * dx + dy * dy;
	float t = lengthSquared > 0.0f ? ((px - ax) * dx + (py - ay) * dy) / lengthSquared : 0.0f;
	t = std::clamp(t, 0.0f, 1.0f);
	const float cx = ax + dx * t - px, cy = ay + dy * t - py;
	return std::sqrt(cx * cx + cy * cy);
}

// Two unit vectors across an axis.
void Perpendiculars(const Vector &axis, Vector &u, Vector &v)
{
	const Vector helper = std::fabs(axis.z) < 0.9f ? Vector(0.0f, 0.0f, 1.0f) : Vector(1.0f, 0.0f, 0.0f);
	u = SceneNormalize(SceneCross(axis, helper));
	v = SceneCross(axis, u);
}

float WrapAngle(float radians)
{
	return std::remainder(radians, 2.0f * SCENE_PI);
}
} // namespace

bool ToolSceneTransform_t::IsIdentity() const
{
	return m_vPosition == Vector() && m_Angles == QAngle() && m_vScale == Vector(1.0f, 1.0f, 1.0f);
}

ToolSceneTransform_t ToolScene_ComposeTransform(const ToolSceneTransform_t &start, const ToolSceneTransform_t &delta)
{
	ToolSceneTransform_t out;
	out.m_vPosition = start.m_vPosition + delta.m_vPosition;
	if (delta.m_Angles == QAngle())
		out.m_Angles = start.m_Angles;
	else
		out.m_Angles = SceneMatrixToAngles(SceneMatrixFromAngles(delta.m_Angles) * SceneMatrixFromAngles(start.m_Angles));
	out.m_vScale = SceneMultiply(start.m_vScale, delta.m_vScale);
	return out;
}

CToolSceneGizmo::CToolSceneGizmo(IGizmoListener *pListener) : m_pListener(pListener)
{
}

void CToolSceneGizmo::SetMode(EToolSceneGizmoMode eMode)
{
	if (eMode == m_eMode)
		return;
	CancelDrag();
	m_eMode = eMode;
	if (m_pListener)
		m_pListener->OnGizmoModeChanged(this, eMode);
}

void CToolSceneGizmo::SetVisible(bool bVisible)
{
	if (bVisible == m_bVisible)
		return;
	if (!bVisible)
		CancelDrag();
	m_bVisible = bVisible;
	if (!bVisible)
		SetHoverHandle(GIZMO_HANDLE_NONE);
	if (m_pListener)
	{
		if (bVisible)
			m_pListener->OnGizmoShown(this);
		else
			m_pListener->OnGizmoHidden(this);
	}
}

void CToolSceneGizmo::SetPlacement(const Vector &position, const QAngle &angles)
{
	m_vPosition = position;
	m_Angles = angles;
}

void CToolSceneGizmo::AttachToNode(CToolSceneNode *pNode, int nAttachment)
{
	m_pNode = pNode;
	m_nAttachment = pNode ? nAttachment : -1;
}

void CToolSceneGizmo::OnNodeRemoved(const CToolSceneNode *pNode)
{
	if (m_pNode == pNode)
	{
		CancelDrag();
		m_pNode = nullptr;
		m_nAttachment = -1;
	}
}

SceneMatrix_t CToolSceneGizmo::GetFrame() const
{
	SceneMatrix_t frame;
	if (m_pNode)
	{
		bool bDone = false;
		if (m_nAttachment >= 0 && m_pNode->GetType() == TOOLSCENE_NODE_MODEL)
			bDone = static_cast<const CToolSceneModelNode *>(m_pNode)->GetAttachmentTransform(m_nAttachment, frame);
		if (!bDone)
			frame = m_pNode->GetWorldTransform();
		for (int c = 0; c < 3; ++c)
			frame.SetColumn(c, SceneNormalize(frame.GetColumn(c)));
		return frame;
	}
	frame = SceneMatrixFromAngles(m_Angles, m_vPosition + m_Delta.m_vPosition);
	if (!(m_Delta.m_Angles == QAngle()))
	{
		const SceneMatrix_t rotated = SceneMatrixFromAngles(m_Delta.m_Angles) * SceneMatrixFromAngles(m_Angles);
		for (int c = 0; c < 3; ++c)
			frame.SetColumn(c, rotated.GetColumn(c));
	}
	return frame;
}

Vector CToolSceneGizmo::GetCenter() const
{
	return GetFrame().GetTranslation();
}

void CToolSceneGizmo::GetAxes(Vector axes[3]) const
{
	if (m_bLocalSpace)
	{
		const SceneMatrix_t frame = GetFrame();
		for (int c = 0; c < 3; ++c)
			axes[c] = frame.GetColumn(c);
		return;
	}
	axes[0] = Vector(1.0f, 0.0f, 0.0f);
	axes[1] = Vector(0.0f, 1.0f, 0.0f);
	axes[2] = Vector(0.0f, 0.0f, 1.0f);
}

float CToolSceneGizmo::HandleLength(const CToolSceneCamera &camera, int nWidth) const
{
	return camera.WorldUnitsPerPixel(GetCenter(), nWidth) * m_flSizePixels;
}

EToolSceneGizmoHandle CToolSceneGizmo::HitTest(const CToolSceneCamera &camera, int nWidth, int nHeight, float x, float y) const
{
	if (!m_bVisible)
		return GIZMO_HANDLE_NONE;
	const Vector center = GetCenter();
	float cx, cy;
	if (!camera.ProjectToScreen(center, nWidth, nHeight, cx, cy))
		return GIZMO_HANDLE_NONE;
	if (m_eMode != GIZMO_MODE_ROTATE && std::hypot(x - cx, y - cy) <= CENTER_HIT_PIXELS)
		return GIZMO_HANDLE_CENTER;

	Vector axes[3];
	GetAxes(axes);
	const float length = HandleLength(camera, nWidth);
	EToolSceneGizmoHandle best = GIZMO_HANDLE_NONE;
	float bestDistance = HIT_PIXELS;
	for (int a = 0; a < 3; ++a)
	{
		float distance = 3.0e38f;
		if (m_eMode == GIZMO_MODE_ROTATE)
		{
			Vector u, v;
			Perpendiculars(axes[a], u, v);
			float px = 0.0f, py = 0.0f;
			bool bPrevious = false;
			for (int s = 0; s <= RING_SEGMENTS; ++s)
			{
				const float angle = 2.0f * SCENE_PI * (float)s / (float)RING_SEGMENTS;
				const Vector point = center + (u * std::cos(angle) + v * std::sin(angle)) * length;
				float sx, sy;
				const bool bVisible = camera.ProjectToScreen(point, nWidth, nHeight, sx, sy);
				if (bVisible && bPrevious)
					distance = std::min(distance, DistanceToSegment(x, y, px, py, sx, sy));
				px = sx;
				py = sy;
				bPrevious = bVisible;
			}
		}
		else
		{
			float ex, ey;
			if (camera.ProjectToScreen(center + axes[a] * length, nWidth, nHeight, ex, ey))
				distance = DistanceToSegment(x, y, cx, cy, ex, ey);
		}
		if (distance <= bestDistance)
		{
			bestDistance = distance;
			best = (EToolSceneGizmoHandle)(GIZMO_HANDLE_X + a);
		}
	}
	return best;
}

bool CToolSceneGizmo::AxisParameter(const Vector &origin, const Vector &direction, const Vector &axis, float &t) const
{
	// The point of the line (centre + axis * t) nearest the ray.
	const Vector w = m_vDragCenter - origin;
	const float b = SceneDot(axis, direction);
	const float d = SceneDot(axis, w);
	const float e = SceneDot(direction, w);
	const float denominator = 1.0f - b * b;
	if (denominator < 1e-5f)
		return false;
	t = (b * e - d) / denominator;
	return std::isfinite(t);
}

bool CToolSceneGizmo::PlanePoint(const Vector &origin, const Vector &direction, const Vector &normal, Vector &point) const
{
	const float facing = SceneDot(direction, normal);
	if (std::fabs(facing) < 1e-6f)
		return false;
	const float t = SceneDot(m_vDragCenter - origin, normal) / facing;
	if (!std::isfinite(t) || t < 0.0f)
		return false;
	point = origin + direction * t;
	return true;
}

bool CToolSceneGizmo::BeginDrag(const CToolSceneCamera &camera, int nWidth, int nHeight, float x, float y)
{
	const EToolSceneGizmoHandle handle = HitTest(camera, nWidth, nHeight, x, y);
	if (handle == GIZMO_HANDLE_NONE)
		return false;
	m_Delta = ToolSceneTransform_t();
	m_vDragCenter = GetCenter();
	GetAxes(m_vDragAxes);
	m_flDragLength = std::max(HandleLength(camera, nWidth), 1e-4f);
	m_flDragStartX = x;
	m_flDragStartY = y;
	m_flDragStartParameter = 0.0f;
	m_flDragAngle = 0.0f;
	m_flDragLastAngle = 0.0f;
	m_bDragEdgeOn = false;

	Vector origin, direction;
	camera.BuildRay(x, y, nWidth, nHeight, origin, direction);
	if (handle == GIZMO_HANDLE_CENTER)
	{
		m_vDragPlaneNormal = camera.GetForward();
		if (!PlanePoint(origin, direction, m_vDragPlaneNormal, m_vDragStartPoint))
			m_vDragStartPoint = m_vDragCenter;
	}
	else if (m_eMode == GIZMO_MODE_ROTATE)
	{
		m_vDragPlaneNormal = m_vDragAxes[handle];
		m_bDragEdgeOn = std::fabs(SceneDot(direction, m_vDragPlaneNormal)) < 0.1f ||
			!PlanePoint(origin, direction, m_vDragPlaneNormal, m_vDragStartPoint);
	}
	else if (!AxisParameter(origin, direction, m_vDragAxes[handle], m_flDragStartParameter))
		m_flDragStartParameter = 0.0f;

	m_eActiveHandle = handle;
	if (m_pListener)
		m_pListener->OnGizmoStart(this);
	return true;
}

void CToolSceneGizmo::UpdateDrag(const CToolSceneCamera &camera, int nWidth, int nHeight, float x, float y)
{
	if (m_eActiveHandle == GIZMO_HANDLE_NONE)
		return;
	Vector origin, direction;
	camera.BuildRay(x, y, nWidth, nHeight, origin, direction);
	ToolSceneTransform_t delta;
	const int axis = m_eActiveHandle == GIZMO_HANDLE_CENTER ? -1 : (int)m_eActiveHandle;

	if (m_eMode == GIZMO_MODE_TRANSLATE)
	{
		if (axis < 0)
		{
			Vector point;
			if (!PlanePoint(origin, direction, m_vDragPlaneNormal, point))
				return;
			delta.m_vPosition = point - m_vDragStartPoint;
		}
		else
		{
			float t;
			if (!AxisParameter(origin, direction, m_vDragAxes[axis], t))
				return;
			delta.m_vPosition = m_vDragAxes[axis] * (t - m_flDragStartParameter);
		}
	}
	else if (m_eMode == GIZMO_MODE_ROTATE)
	{
		if (axis < 0)
			return;
		float angle;
		if (m_bDragEdgeOn)
			angle = SceneRadians((x - m_flDragStartX) * 0.5f);
		else
		{
			Vector point;
			if (!PlanePoint(origin, direction, m_vDragPlaneNormal, point))
				return;
			const Vector from = m_vDragStartPoint - m_vDragCenter;
			const Vector to = point - m_vDragCenter;
			const float current = std::atan2(SceneDot(SceneCross(from, to), m_vDragPlaneNormal), SceneDot(from, to));
			m_flDragAngle += WrapAngle(current - m_flDragLastAngle);
			m_flDragLastAngle = current;
			angle = m_flDragAngle;
		}
		delta.m_Angles = SceneQuaternionToAngles(SceneQuaternionFromAxisAngle(m_vDragAxes[axis], angle));
	}
	else
	{
		float factor;
		if (axis < 0)
			factor = 1.0f + ((x - m_flDragStartX) - (y - m_flDragStartY)) / m_flSizePixels;
		else
		{
			float t;
			if (!AxisParameter(origin, direction, m_vDragAxes[axis], t))
				return;
			factor = 1.0f + (t - m_flDragStartParameter) / m_flDragLength;
		}
		factor = std::max(factor, MIN_SCALE);
		if (axis < 0)
			delta.m_vScale = Vector(factor, factor, factor);
		else
			delta.m_vScale[axis] = factor;
	}
	m_Delta = delta;
	if (m_pListener)
		m_pListener->OnGizmoMoved(this, m_Delta);
}

void CToolSceneGizmo::EndDrag()
{
	if (m_eActiveHandle == GIZMO_HANDLE_NONE)
		return;
	m_eActiveHandle = GIZMO_HANDLE_NONE;
	const ToolSceneTransform_t delta = m_Delta;
	if (m_pListener)
		m_pListener->OnGizmoReleased(this, delta);
}

void CToolSceneGizmo::CancelDrag()
{
	m_eActiveHandle = GIZMO_HANDLE_NONE;
}

void CToolSceneGizmo::SetHoverHandle(EToolSceneGizmoHandle eHandle)
{
	if (eHandle == m_eHoverHandle)
		return;
	m_eHoverHandle = eHandle;
	if (m_pListener)
		m_pListener->OnGizmoHoverChanged(this, eHandle);
}

void CToolSceneGizmo::BuildLines(const CToolSceneCamera &camera, int nWidth, std::vector<ToolSceneGizmoLine_t> &lines) const
{
	if (!m_bVisible)
		return;
	const Vector center = GetCenter();
	Vector axes[3];
	GetAxes(axes);
	const float length = HandleLength(camera, nWidth);
	const EToolSceneGizmoHandle lit = m_eActiveHandle != GIZMO_HANDLE_NONE ? m_eActiveHandle : m_eHoverHandle;
	auto add = [&lines](const Vector &a, const Vector &b, const Color &color) { lines.push_back({ a, b, color }); };

	for (int a = 0; a < 3; ++a)
	{
		const Color color = lit == (EToolSceneGizmoHandle)(GIZMO_HANDLE_X + a) ? HIGHLIGHT_COLOR : AXIS_COLORS[a];
		Vector u, v;
		Perpendiculars(axes[a], u, v);
		if (m_eMode == GIZMO_MODE_ROTATE)
		{
			Vector previous = center + u * length;
			for (int s = 1; s <= RING_SEGMENTS; ++s)
			{
				const float angle = 2.0f * SCENE_PI * (float)s / (float)RING_SEGMENTS;
				const Vector point = center + (u * std::cos(angle) + v * std::sin(angle)) * length;
				add(previous, point, color);
				previous = point;
			}
			continue;
		}
		const Vector tip = center + axes[a] * length;
		add(center, tip, color);
		if (m_eMode == GIZMO_MODE_TRANSLATE)
		{
			const Vector base = tip - axes[a] * (length * 0.2f);
			const float radius = length * 0.07f;
			const Vector spokes[4] = { u, v, -u, -v };
			for (int s = 0; s < 4; ++s)
			{
				add(tip, base + spokes[s] * radius, color);
				add(base + spokes[s] * radius, base + spokes[(s + 1) % 4] * radius, color);
			}
		}
		else
		{
			const float half = length * 0.06f;
			Vector corners[8];
			for (int c = 0; c < 8; ++c)
				corners[c] = tip + axes[a] * ((c & 1) ? half : -half) + u * ((c & 2) ? half : -half) + v * ((c & 4) ? half : -half);
			const int edges[12][2] = { { 0, 1 }, { 2, 3 }, { 4, 5 }, { 6, 7 }, { 0, 2 }, { 1, 3 }, { 4, 6 }, { 5, 7 }, { 0, 4 }, { 1, 5 },
				{ 2, 6 }, { 3, 7 } };
			for (const auto &edge : edges)
				add(corners[edge[0]], corners[edge[1]], color);
		}
	}
	if (m_eMode != GIZMO_MODE_ROTATE)
	{
		const Color color = lit == GIZMO_HANDLE_CENTER ? HIGHLIGHT_COLOR : CENTER_COLOR;
		const float half = length * 0.06f;
		const Vector left = camera.GetLeft() * half, up = camera.GetUp() * half;
		const Vector corners[4] = { center + left + up, center - left + up, center - left - up, center + left - up };
		for (int c = 0; c < 4; ++c)
			add(corners[c], corners[(c + 1) % 4], color);
	}
}
