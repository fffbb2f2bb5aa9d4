// CQImportPreviewEditor: the wizard's preview page for model submissions (step 5). The author
// sees the compiled model on its hero (with the hero's other wearables) or alone (a courier, a
// ward, a model of no hero), plays its animations, picks a texture group, chooses other wearables
// to show beside it, moves the model's attachment points with the gizmo, sees the topology
// findings of its mesh sources, and can send the item to the running game.
//
// Left the tool scene, right a column: the preview's description; the model and texture combos;
// "select wearables" (with a hero only); the attachment group (combo, offset, angles, reset); the
// animation control; the display check boxes and "Show mesh problems" with the findings' counts;
// "preview in game".
//
// It can't exist outside the tool framework: without one it logs an error and ends the process.
// The wizard gets it through the page seam (RegisterImportPreviewEditorPage).
#pragma once

#include <QPointer>
#include <QWidget>

#include <memory>

#include "core/mathtypes.h"
#include "core/utlstring.h"
#include "core/utlvector.h"
#include "mintyardtoolutils/core/cfgelements.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/preview/meshproblems.h"
#include "mintyardtoolutils/preview/previewpages.h"
#include "mintyardtoolutils/preview/wearablepicker.h"
#include "mintyardtoolutils/preview/previewmodelset.h"
#include "mintyardtoolutils/wizard/wizardpage.h"
#include "toolframework/toolframework.h"
#include "toolscene/scenegizmo.h"
#include "toolscene/sceneresources.h"
#include "toolscene/toolscene.h"

class CQAnimPreviewWidget;
class CQToolSceneWidget;
class CToolSceneModelNode;
class CZarnPreviewScene;
class QCheckBox;
class QComboBox;
class QGroupBox;
class QLabel;
class QPushButton;

// Edit modes of the attachments.
enum EZarnAttachmentEditMode
{
	ZARN_ATTACHMENT_EDIT_NONE = 0,
	ZARN_ATTACHMENT_EDIT_OFFSET = 1,
	ZARN_ATTACHMENT_EDIT_ANGLES = 2,
};

class CQImportPreviewEditor : public QWidget,
							  public IMintyardWizardPage,
							  public IToolFrameListener,
							  public IGizmoListener,
							  public IZarnPreviewModelSetListener,
							  public IMintyardImportSessionListener
{
	Q_OBJECT

public:
	// One attachment point of the session's model: the element that holds its offset and angles,
	// the marker node that stands at it, and the template's default offset and angles.
	struct Attachment_t
	{
		CUtlString m_Name;
		CMintyardCfg_ZarnModel::CAttach *m_pElement = nullptr;
		CToolSceneModelNode *m_pNode = nullptr;
		Vector m_vDefaultOffset;
		QAngle m_DefaultAngles;
	};

	explicit CQImportPreviewEditor(QWidget *pParent = nullptr);
	~CQImportPreviewEditor() override;

	// IMintyardWizardPage
	QWidget *GetWidget() override { return this; }
	void AttachSession(CMintyardImportSession *pSession) override;
	// The page asks nothing beyond the models' validity.
	void Validate(ImportMessageList &) override {}

	// IToolFrameListener: moves the animation on, follows it with the attachment markers and the
	// mesh problems, and draws.
	void OnToolFrame(float flFrameTime) override;
	// IGizmoListener: the drag's delta goes into the current attachment's element.
	void OnGizmoStart(CToolSceneGizmo *pGizmo) override;
	void OnGizmoMoved(CToolSceneGizmo *pGizmo, const ToolSceneTransform_t &delta) override;
	void OnGizmoReleased(CToolSceneGizmo *pGizmo, const ToolSceneTransform_t &delta) override;
	// IZarnPreviewModelSetListener
	void OnPreviewModelSetChanged(CZarnPreviewModelSet *pSet) override;
	// IMintyardImportSessionListener
	void OnSessionChanged() override;

	// State, for the wizard and the tests.
	CZarnPreviewModelSet &ModelSet() { return m_Set; }
	CQToolSceneWidget *SceneWidget() const { return m_pSceneWidget; }
	CZarnPreviewScene &PreviewScene() { return *m_pPreview; }
	CQWearablePicker *WearablePicker() const { return m_pPicker; }
	CQAnimPreviewWidget *AnimationControl() const { return m_pAnimation; }
	CToolSceneGizmo *Gizmo() const { return m_pGizmo; }
	const CUtlVector<Attachment_t> &Attachments() const { return m_Attachments; }
	int CurrentAttachment() const { return m_nCurrentAttachment; }
	int EditMode() const { return m_nEditMode; }
	int CurrentModelIndex() const { return m_nCurrentModel; }
	CMintyardImportSession *Session() const { return m_pSession; }
	const CZarnMeshProblems &MeshProblems() const { return m_Problems; }
	// The text last shown for "preview in game" (empty when it went through).
	const QString &LastPreviewInGameMessage() const { return m_LastPreviewMessage; }

	QLabel *DescriptionLabel() const { return m_pDescription; }
	QComboBox *ModelCombo() const { return m_pModelCombo; }
	QComboBox *TextureCombo() const { return m_pTextureCombo; }
	QPushButton *SelectWearablesButton() const { return m_pSelectWearables; }
	QComboBox *AttachmentCombo() const { return m_pAttachmentCombo; }
	QPushButton *EditOffsetButton() const { return m_pEditOffset; }
	QPushButton *EditAnglesButton() const { return m_pEditAngles; }
	QPushButton *ResetAttachmentButton() const { return m_pResetAttachment; }
	QCheckBox *ShowLowResCheck() const { return m_pShowLowRes; }
	QCheckBox *ShowParticlesCheck() const { return m_pShowParticles; }
	QCheckBox *ShowDefaultParticlesCheck() const { return m_pShowDefaultParticles; }
	QCheckBox *ShowReferenceModelCheck() const { return m_pShowReference; }
	QCheckBox *ShowMeshProblemsCheck() const { return m_pShowProblems; }
	QLabel *MeshProblemsLabel() const { return m_pProblemsLabel; }
	QPushButton *PreviewInGameButton() const { return m_pPreviewInGame; }

Q_SIGNALS:
	void ReadyStatusChanged();

public Q_SLOTS:
	void OnChangePreviewMode(int nMode);
	void OnPreviewInGame();
	void OnEditAttachmentOffset();
	void OnEditAttachmentAngles();
	void OnResetAttachmentToDefault();
	void SetCurrentAttachmentPoint(int nIndex);
	void OnSelectWearables();
	void OnSlotModelsSelected();
	void ResetSlotModelsToDefault();
	void OnPreviewSettingsChanged();
	void OnSelectedAnimationChanged(const QString seqName);
	void OnPlaybackSpeedChanged(float flSpeed);
	void OnAnimationControlFrameChanged(int nFrame);
	void SetModelBySessionIndex(int nIndex);
	void OnTextureComboChanged(int nIndex);
	void OnSceneNodeClicked(ToolSceneTraceResult_t *pResult, Qt::MouseButton button, Qt::KeyboardModifiers modifiers);
	// Beyond the preview's own controls: the topology findings of the model's mesh sources.
	void OnShowMeshProblemsChanged();
	void OnSceneCameraChanged();

protected:
	// The scene widget's resizes: the camera frames the models anew until the author moves it.
	bool eventFilter(QObject *pWatched, QEvent *pEvent) override;

private:
	// The scene anew from the set, when what stands in it changed; otherwise its animation and
	// display options.
	void RefreshScene(bool bForce);
	void RefreshAttachments();
	void PlaceAttachmentMarkers();
	void RefreshAnimationControls();
	void RefreshTextureCombo();
	void RefreshMeshProblems();
	void UpdateAttachmentButtons();
	void StartEdit(int nMode);
	void FrameCamera();
	// The attachment's bone in the world: the marker's attachment with the compiled local
	// transform taken off (the model's origin when the compiled model lacks the attachment).
	SceneMatrix_t AttachmentBoneWorld(int nAttachment) const;
	void ApplyGizmoDelta(const ToolSceneTransform_t &delta);
	CMintyardCfg_ZarnModel *CurrentModelElement() const;

	CToolSceneResources m_Resources;
	CMintyardImportSession *m_pSession = nullptr;
	CZarnPreviewModelSet m_Set;
	std::unique_ptr<CZarnPreviewScene> m_pPreview;
	CZarnMeshProblems m_Problems;
	CUtlString m_SceneSignature;
	CUtlVector<Attachment_t> m_Attachments;
	int m_nCurrentAttachment = -1;
	int m_nEditMode = ZARN_ATTACHMENT_EDIT_NONE;
	int m_nCurrentModel = -1;
	CToolSceneGizmo *m_pGizmo = nullptr;
	// The drag: the attachment's values and its bone at the start.
	Vector m_vDragStartOffset;
	QAngle m_DragStartAngles;
	SceneMatrix_t m_DragBone;
	bool m_bDragging = false;
	bool m_bFramed = false;
	bool m_bCameraMoved = false;
	bool m_bApplyingPreview = false;
	QString m_LastPreviewMessage;

	CQToolSceneWidget *m_pSceneWidget;
	QPointer<CQWearablePicker> m_pPicker;
	QLabel *m_pDescription;
	QComboBox *m_pModelCombo;
	QComboBox *m_pTextureCombo;
	QPushButton *m_pSelectWearables;
	QGroupBox *m_pAttachmentGroup;
	QComboBox *m_pAttachmentCombo;
	QPushButton *m_pEditOffset;
	QPushButton *m_pEditAngles;
	QPushButton *m_pResetAttachment;
	CQAnimPreviewWidget *m_pAnimation;
	QCheckBox *m_pShowLowRes;
	QCheckBox *m_pShowParticles;
	QCheckBox *m_pShowDefaultParticles;
	QCheckBox *m_pShowReference;
	QCheckBox *m_pShowProblems;
	QLabel *m_pProblemsLabel;
	QPushButton *m_pPreviewInGame;
};
