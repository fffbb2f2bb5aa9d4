// The large working view of the portrait editor: the model with the portrait's camera, its
// target, the spot light and the ambient direction standing as markers that the author clicks
// and drags with the gizmo, and the frustums of the camera and the light.
//
// Clicking a marker picks the gizmo mode (camera 0, target 1, spot 2 and, clicked again, 3,
// ambient 4; anything else ends the edit). A drag composes the gizmo's delta with the value the
// mode edits as it stood when the drag began, and sets it through the editor model. With the
// clone camera on, the scene's own camera is the portrait's: moving the view moves the portrait
// camera.
#pragma once

#include <memory>

#include "mintyardtoolutils/preview/portraiteditormodel.h"
#include "toolscene/scenegizmo.h"
#include "toolscene/scenelight.h"
#include "toolscene/toolscenewidget.h"

class CZarnPortraitSubject;

class CQZarnPortraitEditorScene : public CQToolSceneWidgetAutoUpdate,
								  public IGizmoListener,
								  public IZarnPortraitEditorListener,
								  public IZarnPreviewModelSetListener
{
	Q_OBJECT

public:
	enum EMarker
	{
		MARKER_CAMERA = 0,
		MARKER_CAMERA_TARGET,
		MARKER_SPOT,
		MARKER_AMBIENT,
		MARKER_COUNT,
	};
	static const char *const s_pszMarkerModels[MARKER_COUNT];
	// The aspect of the camera frustum: the portrait viewer's.
	static constexpr float CAMERA_FRUSTUM_ASPECT = 242.0f / 285.0f;

	CQZarnPortraitEditorScene(CZarnPortraitEditorModel *pModel, QWidget *pParent = nullptr, CToolSceneResources *pResources = nullptr);
	~CQZarnPortraitEditorScene() override;

	// IZarnPortraitEditorListener: every change places the markers, frustums and gizmo again.
	void OnPortraitChanged() override;
	void OnPortraitCameraChanged() override;
	void OnPortraitLightChanged() override;
	void OnPortraitStyleChanged() override;
	void OnPortraitPreviewModeChanged() override;
	void OnPortraitGizmoModeChanged() override;
	void OnPortraitSummonsChanged() override;
	// IZarnPreviewModelSetListener: what the set shows changed.
	void OnPreviewModelSetChanged(CZarnPreviewModelSet *pSet) override;

	// IGizmoListener
	void OnGizmoStart(CToolSceneGizmo *pGizmo) override;
	void OnGizmoMoved(CToolSceneGizmo *pGizmo, const ToolSceneTransform_t &delta) override;
	void OnGizmoReleased(CToolSceneGizmo *pGizmo, const ToolSceneTransform_t &delta) override;

	CToolSceneModelNode *GetMarker(int nMarker) const { return nMarker >= 0 && nMarker < MARKER_COUNT ? m_pMarkers[nMarker] : nullptr; }
	CToolSceneFrustumNode *GetCameraFrustum() const { return m_pCameraFrustum; }
	CToolSceneFrustumNode *GetLightFrustum() const { return m_pLightFrustum; }
	CToolSceneGizmo *GetGizmo() const { return m_pGizmo; }
	CZarnPortraitSubject &Subject() const { return *m_pSubject; }
	bool IsCloneCameraEnabled() const { return m_bCloneCamera; }
	// The transform a drag started from.
	const ToolSceneTransform_t &GetStartTransform() const { return m_Start; }

public Q_SLOTS:
	void SetCloneCameraEnabled(bool bCloneCameraToPortrait);
	void OnCameraChanged();
	void OnSceneNodeClicked(ToolSceneTraceResult_t *pResult, Qt::MouseButton button, Qt::KeyboardModifiers modifiers);

private:
	// Markers, frustums, light and model from the editor model.
	void ShowModel();
	// The scene's view on the model in the middle and the portrait's camera, from where it looks.
	void FrameView();
	void PlaceGizmo();
	// The start transform of a drag in the current mode.
	ToolSceneTransform_t TakeStartTransform() const;
	// The delta composed with the start, handed to the setter of the mode.
	void ApplyDelta(const ToolSceneTransform_t &delta);

	CZarnPortraitEditorModel *m_pModel;
	CToolSceneModelNode *m_pMarkers[MARKER_COUNT] = {};
	CToolSceneFrustumNode *m_pCameraFrustum = nullptr;
	CToolSceneFrustumNode *m_pLightFrustum = nullptr;
	CToolSceneGizmo *m_pGizmo = nullptr;
	CToolSceneGlobalLight m_OwnLight;
	CToolSceneGlobalLight *m_pLight = nullptr;
	std::unique_ptr<CZarnPortraitSubject> m_pSubject;
	bool m_bCloneCamera = false;
	bool m_bDragging = false;
	bool m_bCopyingCamera = false;
	float m_flSceneFOV = 60.0f;
	ToolSceneTransform_t m_Start;
	// The model the view was last framed on.
	CUtlString m_FramedModel;
};
