// The control panel of the portrait editor: the preview style, the animation, the summons, the
// camera (gizmo buttons, clone camera, roll, FOV, far Z), the spot light, the ambient light, the
// shadow, the background (texture list and colours), the courier and ward choices, and copy and
// paste of the whole portrait.
//
// The panel writes every change through the editor model and shows the model's values with the
// controls' signals blocked, so that nothing echoes back.
#pragma once

#include <memory>

#include <QWidget>

#include "core/utlstring.h"
#include "core/utlvector.h"
#include "mintyardtoolutils/preview/portraiteditormodel.h"
#include "mintyardtoolutils/preview/portraittext.h"

class CQAnimPreviewWidget;
class CQColorSwatch;
class CQSliderLineEditFloat;
class CQSummonsEditorWidget;
class CZarnPortraitBackgroundImages;
class QCheckBox;
class QComboBox;
class QGroupBox;
class QPushButton;
class QRadioButton;

// One background texture the panel offers: a material path, the name shown, and the preview
// modes it is offered in (bit m: mode m).
struct ZarnPortraitBackgroundEntry_t
{
	CUtlString m_Path;
	CUtlString m_DisplayName;
	uint32 m_nFlags = 0;
};

// The background textures of the game: materials in "materials/vgui/hud/heroportraits" named
// "portraitbackground[_name]" (modes 0 and 1) and in "materials/vgui/econ" named
// "item_icon_bg[_name]" (modes 2 to 4), found by their compiled files through the file system's
// "GAME" path. Empty without "scripts/itemtest_manifest.txt".
void BuildPortraitBackgroundList(CUtlVector<ZarnPortraitBackgroundEntry_t> &out);


class CQZarnPortraitEditorPanel : public QWidget, public IZarnPortraitEditorListener
{
	Q_OBJECT

public:
	// The buttons of the gizmo modes 0 to 5 (6 to 8 are the summons widget's).
	enum { PANEL_GIZMO_BUTTON_COUNT = 6 };

	CQZarnPortraitEditorPanel(CZarnPortraitEditorModel *pModel, QWidget *pParent = nullptr);
	~CQZarnPortraitEditorPanel() override;

	// IZarnPortraitEditorListener
	void OnPortraitChanged() override;
	void OnPortraitCameraChanged() override;
	void OnPortraitLightChanged() override;
	void OnPortraitBackgroundChanged() override;
	void OnPortraitStyleChanged() override;
	void OnPortraitPreviewModeChanged() override;
	void OnPortraitGizmoModeChanged() override;

	// The background textures found when the panel was made.
	const CUtlVector<ZarnPortraitBackgroundEntry_t> &GetBackgroundList() const { return m_BackgroundList; }
	// The preview mode the panel shows.
	int GetPreviewMode() const { return m_nPreviewMode; }

	// The controls, for the page and for tests.
	QComboBox *StyleCombo() const { return m_pStyleCombo; }
	CQAnimPreviewWidget *AnimationWidget() const { return m_pAnimation; }
	CQSummonsEditorWidget *SummonsWidget() const { return m_pSummons; }
	QPushButton *GizmoButton(int nMode) const { return nMode >= 0 && nMode < PANEL_GIZMO_BUTTON_COUNT ? m_pGizmoButtons[nMode] : nullptr; }
	QPushButton *FrameButton() const { return m_pFrameButton; }
	QCheckBox *CloneCameraCheck() const { return m_pCloneCamera; }
	CQSliderLineEditFloat *CameraRollEdit() const { return m_pCameraRoll; }
	CQSliderLineEditFloat *CameraFOVEdit() const { return m_pCameraFOV; }
	CQSliderLineEditFloat *CameraFarZEdit() const { return m_pCameraFarZ; }
	CQColorSwatch *LightColorSwatch() const { return m_pLightColor; }
	CQSliderLineEditFloat *LightScaleEdit() const { return m_pLightScale; }
	CQSliderLineEditFloat *LightFOVEdit() const { return m_pLightFOV; }
	CQSliderLineEditFloat *LightDistanceEdit() const { return m_pLightDistance; }
	CQColorSwatch *AmbientColorSwatch() const { return m_pAmbientColor; }
	CQSliderLineEditFloat *AmbientScaleEdit() const { return m_pAmbientScale; }
	CQColorSwatch *ShadowColorSwatch() const { return m_pShadowColor; }
	CQSliderLineEditFloat *EntityShadowScaleEdit() const { return m_pEntityShadowScale; }
	QComboBox *BackgroundCombo() const { return m_pBackgroundCombo; }
	QWidget *BackgroundTextureGroup() const { return m_pBackgroundTextureGroup; }
	QGroupBox *BackgroundColorGroup() const { return m_pBackgroundColorGroup; }
	CQColorSwatch *BackgroundColorSwatch(int n) const { return n >= 0 && n < 4 ? m_pBackgroundColors[n] : nullptr; }
	QGroupBox *CourierGroup() const { return m_pCourierGroup; }
	QRadioButton *CourierWalkingRadio() const { return m_pCourierWalking; }
	QRadioButton *CourierFlyingRadio() const { return m_pCourierFlying; }
	QRadioButton *CourierSunwardRadio() const { return m_pCourierSunward; }
	QRadioButton *CourierMoonwardRadio() const { return m_pCourierMoonward; }
	QGroupBox *WardGroup() const { return m_pWardGroup; }
	QRadioButton *WardObserverRadio() const { return m_pWardObserver; }
	QRadioButton *WardSentryRadio() const { return m_pWardSentry; }
	QPushButton *CopyButton() const { return m_pCopy; }
	QPushButton *PasteAllButton() const { return m_pPasteAll; }
	QPushButton *PasteVisualsButton() const { return m_pPasteVisuals; }

Q_SIGNALS:
	void CloneCameraToggled(bool bClone);
	// The Frame button: the page places the camera around what the viewer shows.
	void FrameRequested();

public Q_SLOTS:
	void OnAnimationControlAnimationChanged(QString sequence);
	void OnAnimationControlPlaybackSpeedChanged(float flSpeed);
	void OnAnimationControlFrameChanged(int nFrame);
	// The frame a playing animation shows (the control follows it, saying nothing).
	void OnPlayingFrameChanged(int nFrame);
	void OnChangeGizmoEditMode(int nPortraitEditMode);
	void OnCameraRollChanged(float flRoll);
	void OnCameraFOVChanged(float flFOV);
	void OnCameraFarZChanged(float flFarZ);
	void OnLightColorChanged();
	void OnLightScaleChanged(float flScale);
	void OnAmbientColorChanged();
	void OnAmbientScaleChanged(float flScale);
	void OnShadowColorChanged();
	void OnEntityShadowScaleChanged(float flScale);
	void OnLightDistanceChanged(float flDistance);
	void OnLightFOVChanged(float flFOV);
	void OnBackgroundImageChanged(int nIndex);
	void OnBackgroundColorsChanged();
	void OnCourierTypeChange();
	void OnCourierTeamChange();
	void OnWardTypeChange();
	void OnCurrentStyleChanged(int nStyle);
	void OnCopy();
	void OnPasteAll();
	void OnPasteVisuals();

private:
	void BuildLayout();
	// Every value from the model, with the controls' signals blocked.
	void RefreshValues();
	void RefreshCamera();
	void RefreshLight();
	void RefreshBackgroundColors();
	void RefreshCourierAndWard();
	void RefreshStyles();
	void RefreshAnimations();
	// The background combo for the current mode, with the record's texture selected.
	void RebuildBackgroundCombo();
	void RefreshGizmoButtons();
	void Paste(bool bVisualsOnly);

	CZarnPortraitEditorModel *m_pModel;
	int m_nPreviewMode = -1;
	CUtlVector<ZarnPortraitBackgroundEntry_t> m_BackgroundList;
	std::unique_ptr<CZarnPortraitBackgroundImages> m_pBackgroundImages;

	QComboBox *m_pStyleCombo = nullptr;
	CQAnimPreviewWidget *m_pAnimation = nullptr;
	CQSummonsEditorWidget *m_pSummons = nullptr;
	QPushButton *m_pGizmoButtons[PANEL_GIZMO_BUTTON_COUNT] = {};
	QPushButton *m_pFrameButton = nullptr;
	QCheckBox *m_pCloneCamera = nullptr;
	CQSliderLineEditFloat *m_pCameraRoll = nullptr;
	CQSliderLineEditFloat *m_pCameraFOV = nullptr;
	CQSliderLineEditFloat *m_pCameraFarZ = nullptr;
	CQColorSwatch *m_pLightColor = nullptr;
	CQSliderLineEditFloat *m_pLightScale = nullptr;
	CQSliderLineEditFloat *m_pLightFOV = nullptr;
	CQSliderLineEditFloat *m_pLightDistance = nullptr;
	CQColorSwatch *m_pAmbientColor = nullptr;
	CQSliderLineEditFloat *m_pAmbientScale = nullptr;
	CQColorSwatch *m_pShadowColor = nullptr;
	CQSliderLineEditFloat *m_pEntityShadowScale = nullptr;
	QWidget *m_pBackgroundTextureGroup = nullptr;
	QComboBox *m_pBackgroundCombo = nullptr;
	QGroupBox *m_pBackgroundColorGroup = nullptr;
	CQColorSwatch *m_pBackgroundColors[4] = {};
	QGroupBox *m_pCourierGroup = nullptr;
	QRadioButton *m_pCourierWalking = nullptr;
	QRadioButton *m_pCourierFlying = nullptr;
	QRadioButton *m_pCourierSunward = nullptr;
	QRadioButton *m_pCourierMoonward = nullptr;
	QGroupBox *m_pWardGroup = nullptr;
	QRadioButton *m_pWardObserver = nullptr;
	QRadioButton *m_pWardSentry = nullptr;
	QPushButton *m_pCopy = nullptr;
	QPushButton *m_pPasteAll = nullptr;
	QPushButton *m_pPasteVisuals = nullptr;
};
