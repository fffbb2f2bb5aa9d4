// The gizmo: handles drawn over the scene that the user drags to move, turn or scale something.
// It does not move anything itself: it tells its listener where a drag started, the transform
// the drag has made so far (the delta, from the start of the drag) and where it ended; the
// listener composes the delta with its own start values (ToolScene_ComposeTransform).
//
// Handles: one per axis (X red, Y green, Z blue) and a centre handle. Translate: arrows; the
// centre moves in the plane of the screen. Rotate: rings about each axis. Scale: axes ending in
// boxes; the centre scales all three alike. The axes are the world's, or the placement's own
// with SetLocalSpace. The gizmo keeps its size on screen.
#pragma once

#include <vector>

#include "toolscene/scenecamera.h"

class CToolSceneGizmo;
class CToolSceneModelNode;
class CToolSceneNode;

enum EToolSceneGizmoMode
{
	GIZMO_MODE_TRANSLATE = 0,
	GIZMO_MODE_ROTATE,
	GIZMO_MODE_SCALE,
};

enum EToolSceneGizmoHandle
{
	GIZMO_HANDLE_NONE = -1,
	GIZMO_HANDLE_X = 0,
	GIZMO_HANDLE_Y,
	GIZMO_HANDLE_Z,
	GIZMO_HANDLE_CENTER,
};

// A transform as edits see it. As a delta: a translation in world units, a rotation about the
// gizmo's centre in world space (angles), and scale factors along the gizmo's axes.
struct ToolSceneTransform_t
{
	Vector m_vPosition;
	QAngle m_Angles;
	Vector m_vScale = Vector(1.0f, 1.0f, 1.0f);

	bool IsIdentity() const;
};

// The start transform with a gizmo's delta applied: positions add, the delta's rotation turns
// the start's orientation in world space, scales multiply.
ToolSceneTransform_t ToolScene_ComposeTransform(const ToolSceneTransform_t &start, const ToolSceneTransform_t &delta);

// What a gizmo tells. Every operation has an empty default, so a listener answers only those
// it needs.
class IGizmoListener
{
public:
	// A handle was grabbed; the delta is the identity.
	virtual void OnGizmoStart(CToolSceneGizmo *pGizmo) { (void)pGizmo; }
	// The drag moved: the delta from the start of the drag.
	virtual void OnGizmoMoved(CToolSceneGizmo *pGizmo, const ToolSceneTransform_t &delta) { (void)pGizmo; (void)delta; }
	// The handle was let go: the final delta.
	virtual void OnGizmoReleased(CToolSceneGizmo *pGizmo, const ToolSceneTransform_t &delta) { (void)pGizmo; (void)delta; }
	// The mouse came over a handle or left it (GIZMO_HANDLE_NONE).
	virtual void OnGizmoHoverChanged(CToolSceneGizmo *pGizmo, EToolSceneGizmoHandle eHandle) { (void)pGizmo; (void)eHandle; }
	virtual void OnGizmoModeChanged(CToolSceneGizmo *pGizmo, EToolSceneGizmoMode eMode) { (void)pGizmo; (void)eMode; }
	virtual void OnGizmoShown(CToolSceneGizmo *pGizmo) { (void)pGizmo; }
	virtual void OnGizmoHidden(CToolSceneGizmo *pGizmo) { (void)pGizmo; }

protected:
	~IGizmoListener() = default;
};

// A coloured line of the gizmo's drawing, in world space.
struct ToolSceneGizmoLine_t
{
	Vector m_vStart;
	Vector m_vEnd;
	Color m_Color;
};

class CToolSceneGizmo
{
public:
	explicit CToolSceneGizmo(IGizmoListener *pListener);

	void SetListener(IGizmoListener *pListener) { m_pListener = pListener; }
	IGizmoListener *GetListener() const { return m_pListener; }

	void SetMode(EToolSceneGizmoMode eMode);
	EToolSceneGizmoMode GetMode() const { return m_eMode; }

	void SetVisible(bool bVisible);
	void Show() { SetVisible(true); }
	void Hide() { SetVisible(false); }
	bool IsVisible() const { return m_bVisible; }

	// Where the gizmo stands, when not on a node.
	void SetPlacement(const Vector &position, const QAngle &angles);
	// Places the gizmo on a node (and an attachment of a model node, -1 for its origin); it
	// follows the node from then on. Null goes back to the placement.
	void AttachToNode(CToolSceneNode *pNode, int nAttachment = -1);
	CToolSceneNode *GetAttachedNode() const { return m_pNode; }
	// Axes along the placement's (or node's) own axes rather than the world's.
	void SetLocalSpace(bool bLocal) { m_bLocalSpace = bLocal; }
	bool IsLocalSpace() const { return m_bLocalSpace; }
	// Length of the axes on screen, in pixels.
	void SetSizePixels(float flPixels) { m_flSizePixels = flPixels > 4.0f ? flPixels : 4.0f; }
	float GetSizePixels() const { return m_flSizePixels; }

	// The gizmo's own transform: the delta of the current (or last) drag. A gizmo that stands
	// on its placement is drawn moved by it; ResetTransform makes it the identity again.
	const ToolSceneTransform_t &GetDeltaTransform() const { return m_Delta; }
	void ResetTransform() { m_Delta = ToolSceneTransform_t(); }

	// The centre and axes the gizmo is drawn with.
	Vector GetCenter() const;
	void GetAxes(Vector axes[3]) const;

	// Mouse handling (pixels of a w x h view of `camera`). HitTest gives the handle under the
	// point; BeginDrag grabs it (false when none is there); UpdateDrag and EndDrag follow.
	EToolSceneGizmoHandle HitTest(const CToolSceneCamera &camera, int nWidth, int nHeight, float x, float y) const;
	bool BeginDrag(const CToolSceneCamera &camera, int nWidth, int nHeight, float x, float y);
	void UpdateDrag(const CToolSceneCamera &camera, int nWidth, int nHeight, float x, float y);
	void EndDrag();
	void CancelDrag();
	bool IsDragging() const { return m_eActiveHandle != GIZMO_HANDLE_NONE; }
	EToolSceneGizmoHandle GetActiveHandle() const { return m_eActiveHandle; }
	// Hover highlight; tells the listener when it changes.
	void SetHoverHandle(EToolSceneGizmoHandle eHandle);
	EToolSceneGizmoHandle GetHoverHandle() const { return m_eHoverHandle; }

	// The lines that draw the gizmo for this view.
	void BuildLines(const CToolSceneCamera &camera, int nWidth, std::vector<ToolSceneGizmoLine_t> &lines) const;

	// Called by the scene when a node goes away.
	void OnNodeRemoved(const CToolSceneNode *pNode);

private:
	SceneMatrix_t GetFrame() const;
	float HandleLength(const CToolSceneCamera &camera, int nWidth) const;
	// Where the mouse ray meets the drag's axis line (a parameter along the axis) or plane.
	bool AxisParameter(const Vector &origin, const Vector &direction, const Vector &axis, float &t) const;
	bool PlanePoint(const Vector &origin, const Vector &direction, const Vector &normal, Vector &point) const;

	IGizmoListener *m_pListener;
	EToolSceneGizmoMode m_eMode = GIZMO_MODE_TRANSLATE;
	bool m_bVisible = false;
	bool m_bLocalSpace = false;
	float m_flSizePixels = 90.0f;
	Vector m_vPosition;
	QAngle m_Angles;
	CToolSceneNode *m_pNode = nullptr;
	int m_nAttachment = -1;
	ToolSceneTransform_t m_Delta;

	EToolSceneGizmoHandle m_eHoverHandle = GIZMO_HANDLE_NONE;
	EToolSceneGizmoHandle m_eActiveHandle = GIZMO_HANDLE_NONE;
	// The drag: where it started, in the gizmo's frame at that moment.
	Vector m_vDragCenter;
	Vector m_vDragAxes[3];
	Vector m_vDragPlaneNormal;
	Vector m_vDragStartPoint;
	float m_flDragStartParameter = 0.0f;
	float m_flDragLength = 1.0f;
	float m_flDragStartX = 0.0f;
	float m_flDragStartY = 0.0f;
	float m_flDragAngle = 0.0f;		// accumulated rotation in radians
	float m_flDragLastAngle = 0.0f; // the angle of the previous step, to unwrap turns past 180
	bool m_bDragEdgeOn = false;		// the rotation plane is seen edge on: turns follow the mouse's x
};
