// The small live picture of the portrait editor: the model seen through the portrait's own
// camera and light, as the game shows it, with what surrounds it by preview mode (backdrop,
// icon overlays, or the loading screen's picture).
#pragma once

#include <memory>

#include "mintyardtoolutils/preview/portraiteditormodel.h"
#include "toolscene/scenelight.h"
#include "toolscene/toolscenewidget.h"

class CToolSceneBitmapOverlay;
class CToolScenePortraitOverlay;
class CZarnPortraitLook;
class CZarnPortraitSubject;

class CQZarnPortraitViewer : public CQToolSceneWidgetAutoUpdate, public IZarnPortraitEditorListener, public IZarnPreviewModelSetListener
{
	Q_OBJECT

public:
	enum { VIEWER_WIDTH = 242, VIEWER_HEIGHT = 285 };

	CQZarnPortraitViewer(CZarnPortraitEditorModel *pModel, QWidget *pParent = nullptr, CToolSceneResources *pResources = nullptr);
	~CQZarnPortraitViewer() override;

	// Each frame: the camera and light from the model, then the picture.
	void OnToolFrame(float flFrameTime) override;

	// IZarnPortraitEditorListener
	void OnPortraitChanged() override;
	void OnPortraitCameraChanged() override;
	void OnPortraitLightChanged() override;
	void OnPortraitBackgroundChanged() override;
	void OnPortraitStyleChanged() override;
	void OnPortraitPreviewModeChanged() override;
	void OnPortraitSummonsChanged() override;
	// IZarnPreviewModelSetListener
	void OnPreviewModelSetChanged(CZarnPreviewModelSet *pSet) override;

	int GetPreviewMode() const { return m_nPreviewMode; }
	CToolScenePortraitOverlay *GetForegroundOverlay() const;
	CToolScenePortraitOverlay *GetSquareOverlay() const;
	CToolSceneBitmapOverlay *GetLoadingScreenOverlay() const;
	CZarnPortraitLook &Look() const { return *m_pLook; }
	CZarnPortraitSubject &Subject() const { return *m_pSubject; }
	// The light the viewer's scene shades with: the framework's global light, or its own.
	CToolSceneGlobalLight *GetLight() const { return m_pLight; }

	// The camera and light of the model's portrait into the scene (what every frame does).
	void UpdateCameraAndLight();

Q_SIGNALS:
	// While the animation plays: the frame shown, when it changes.
	void PlayingFrameChanged(int nFrame);

private:
	// The model and summons from the editor model.
	void UpdateSubject();

	CZarnPortraitEditorModel *m_pModel;
	CToolSceneGlobalLight m_OwnLight;
	CToolSceneGlobalLight *m_pLight = nullptr;
	std::unique_ptr<CZarnPortraitLook> m_pLook;
	std::unique_ptr<CZarnPortraitSubject> m_pSubject;
	int m_nPreviewMode = -1;
	int m_nPlayingFrame = -1;
};
