// The camera of a tool scene: a position and angles with a horizontal field of view and near
// and far planes, kept together with an orbit target so that the widget can turn around it,
// pan and zoom.
//
// The camera looks along the forward axis of its angles (see scenemath.h); the field of view
// is the full horizontal angle in degrees, the vertical one follows from the aspect ratio of
// the picture. Screen coordinates are pixels from the top-left corner.
#pragma once

#include "toolscene/scenemath.h"

class CToolSceneCamera
{
public:
	CToolSceneCamera();

	// Places the camera at `position` looking at `target` (roll 0); the target becomes the
	// orbit centre. A target at the position keeps the current angles.
	void SetPositionAndTarget(const Vector &position, const Vector &target);
	// Places the camera with its angles; the orbit centre stays at the current distance ahead.
	void SetPositionAndAngles(const Vector &position, const QAngle &angles);
	const Vector &GetPosition() const { return m_vPosition; }
	const QAngle &GetAngles() const { return m_Angles; }
	const Vector &GetTarget() const { return m_vTarget; }
	float GetDistance() const { return m_flDistance; }
	Vector GetForward() const;
	Vector GetLeft() const;
	Vector GetUp() const;

	void SetFOV(float flDegrees);
	float GetFOV() const { return m_flFOV; }
	void SetNearFar(float flNear, float flFar);
	float GetNear() const { return m_flNear; }
	float GetFar() const { return m_flFar; }

	// User moves. Orbit turns around the target by degrees (pitch held short of straight up
	// and down); Pan moves camera and target across the view by pixels of a view of that
	// height; Zoom multiplies the distance to the target (held above a small minimum).
	void Orbit(float flYawDegrees, float flPitchDegrees);
	void Pan(float flPixelsX, float flPixelsY, int nViewHeight);
	void Zoom(float flFactor);

	// Moves the camera back along its view direction until the box fits the view.
	void FrameBounds(const Vector &mins, const Vector &maxs, float flAspect);

	// World to eye space (GL: looking down -Z, Y up).
	SceneMatrix_t GetViewMatrix() const;
	SceneMatrix_t GetProjectionMatrix(float flAspect) const;
	SceneMatrix_t GetViewProjectionMatrix(float flAspect) const;
	// Tangents of half the horizontal and vertical field of view.
	void GetFrustumSlopes(float flAspect, float &flTanX, float &flTanY) const;

	// The ray through a pixel (x, y from the top left of a w x h view): origin and unit direction.
	void BuildRay(float x, float y, int nWidth, int nHeight, Vector &origin, Vector &direction) const;
	// The pixel of a world point; false when it lies behind the camera.
	bool ProjectToScreen(const Vector &point, int nWidth, int nHeight, float &x, float &y) const;
	// World units per pixel at the depth of a point (along the view direction).
	float WorldUnitsPerPixel(const Vector &point, int nWidth) const;

private:
	void UpdatePositionFromOrbit();

	Vector m_vPosition;
	QAngle m_Angles;
	Vector m_vTarget;
	float m_flDistance = 200.0f;
	float m_flFOV = 60.0f;
	float m_flNear = 2.0f;
	float m_flFar = 20000.0f;
};
