#include "mintyardtoolutils/preview/importprevieweditor.h"

#include <QCheckBox>
#include <QComboBox>
#include <QEvent>
#include <QFileInfo>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

#include "core/fileio.h"
#include "core/keyvalues.h"
#include "core/logging.h"
#include "core/strtools.h"
#include "itemtool/itemtoolmodel.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/preview/animpreviewwidget.h"
#include "mintyardtoolutils/preview/previewscene.h"
#include "mintyardtoolutils/preview/previewsession.h"
#include "mintyardtoolutils/preview/wearablepicker.h"
#include "mintyardtoolutils/wizard/gamechannel.h"
#include "mintyardtoolutils/wizard/wizardutils.h"
#include "toolscene/toolscene.h"
#include "toolscene/toolscenewidget.h"

namespace
{
// The marker of an attachment point.
const char *const ATTACHMENT_MARKER_MODEL = "models/editor/axis_helper_thick.zmdl";
// The marker's length on a model, as a share of the model's size (its model is 16 units long).
const float ATTACHMENT_MARKER_SHARE = 0.08f;
const float ATTACHMENT_MARKER_LENGTH = 16.0f;
const int RIGHT_COLUMN_WIDTH = 320;

// A wrapped text in the fixed-width column keeps the height of all its lines when the window is
// short of room.
void KeepWholeText(QLabel *pLabel)
{
	// A label's height for a width is never below its minimum height: clear the minimum that the
	// previous text set, or a shorter text keeps the longer one's height.
	pLabel->setMinimumHeight(0);
	pLabel->setMinimumHeight(pLabel->heightForWidth(RIGHT_COLUMN_WIDTH - 8));
}

SceneMatrix_t AttachmentLocal(const Vector &offset, const QAngle &angles)
{
	return SceneMatrixFromAngles(angles, offset);
}

QString ModelDisplayName(const CMintyardCfg_ZarnModel *pModel)
{
	return QFileInfo(QString::fromUtf8(pModel->GetZmdlName().c_str())).completeBaseName();
}

IMintyardWizardPage *CreateImportPreviewEditorPage(QWidget *pParent)
{
	return new CQImportPreviewEditor(pParent);
}
} // namespace

void RegisterImportPreviewEditorPage()
{
	SetMintyardWizardPageFactory(MINTYARD_WIZARD_PAGE_PREVIEW_EDITOR, &CreateImportPreviewEditorPage);
}

CQImportPreviewEditor::CQImportPreviewEditor(QWidget *pParent) : QWidget(pParent), m_Set(&m_Resources)
{
	if (!g_pToolFramework)
		Plat_FatalError("ERROR: Cannot use CQImportPreviewEditor outside of Toolframework2!\n");
	setObjectName("mintyard_import_preview_editor");

	m_pSceneWidget = new CQToolSceneWidget(this, &m_Resources);
	m_pSceneWidget->setObjectName("mintyard_preview_scene");
	m_pSceneWidget->SetGroundEnabled(true);
	m_pSceneWidget->SetGridEnabled(true);
	m_pSceneWidget->setMinimumSize(320, 320);
	m_pPreview = std::make_unique<CZarnPreviewScene>(m_pSceneWidget->GetScene());
	m_pGizmo = m_pSceneWidget->GetScene()->CreateGizmo(this);
	m_pGizmo->Hide();

	// The right column.
	QWidget *pColumn = new QWidget(this);
	pColumn->setFixedWidth(RIGHT_COLUMN_WIDTH);
	QVBoxLayout *pRight = new QVBoxLayout(pColumn);
	pRight->setContentsMargins(8, 0, 0, 0);

	m_pDescription = new CQSafeWordWrapLabel(MintyardTranslate("#ZARN_Mintyard_Preview_Desc_Default"), pColumn);
	m_pDescription->setObjectName("mintyard_preview_description");
	KeepWholeText(m_pDescription);
	pRight->addWidget(m_pDescription);

	QFormLayout *pForm = new QFormLayout();
	m_pModelCombo = new QComboBox(pColumn);
	m_pModelCombo->setObjectName("mintyard_preview_model");
	m_pTextureCombo = new QComboBox(pColumn);
	m_pTextureCombo->setObjectName("mintyard_preview_texture");
	pForm->addRow(MintyardTranslate("#ZARN_Mintyard_Model"), m_pModelCombo);
	pForm->addRow(MintyardTranslate("#ZARN_Mintyard_Texture"), m_pTextureCombo);
	pRight->addLayout(pForm);

	m_pSelectWearables = new QPushButton(MintyardTranslate("#ZARN_Mintyard_SelectWearables"), pColumn);
	m_pSelectWearables->setObjectName("mintyard_preview_select_wearables");
	pRight->addWidget(m_pSelectWearables);

	m_pAttachmentGroup = new QGroupBox(MintyardTranslate("#ZARN_Mintyard_EditAttachments"), pColumn);
	QVBoxLayout *pAttachments = new QVBoxLayout(m_pAttachmentGroup);
	m_pAttachmentCombo = new QComboBox(m_pAttachmentGroup);
	m_pAttachmentCombo->setObjectName("mintyard_preview_attachment");
	pAttachments->addWidget(m_pAttachmentCombo);
	QHBoxLayout *pAttachmentButtons = new QHBoxLayout();
	m_pEditOffset = new QPushButton(MintyardTranslate("#ZARN_Mintyard_EditOrigin"), m_pAttachmentGroup);
	m_pEditAngles = new QPushButton(MintyardTranslate("#ZARN_Mintyard_EditAngles"), m_pAttachmentGroup);
	m_pResetAttachment = new QPushButton(MintyardTranslate("#ZARN_Mintyard_Attachment_Reset"), m_pAttachmentGroup);
	m_pEditOffset->setCheckable(true);
	m_pEditAngles->setCheckable(true);
	pAttachmentButtons->addWidget(m_pEditOffset);
	pAttachmentButtons->addWidget(m_pEditAngles);
	pAttachmentButtons->addWidget(m_pResetAttachment);
	pAttachments->addLayout(pAttachmentButtons);
	pRight->addWidget(m_pAttachmentGroup);

	m_pAnimation = new CQAnimPreviewWidget(pColumn);
	pRight->addWidget(m_pAnimation);

	m_pShowLowRes = new QCheckBox(MintyardTranslate("#ZARN_Mintyard_ShowLowResModel"), pColumn);
	m_pShowParticles = new QCheckBox(MintyardTranslate("#ZARN_Mintyard_ShowParticles"), pColumn);
	m_pShowDefaultParticles = new QCheckBox(MintyardTranslate("#ZARN_Mintyard_ShowDefaultParticles"), pColumn);
	m_pShowReference = new QCheckBox(MintyardTranslate("#ZARN_Mintyard_ShowReferenceModel"), pColumn);
	m_pShowParticles->setChecked(m_Set.IsShowingParticles());
	m_pShowDefaultParticles->setChecked(m_Set.IsShowingDefaultParticles());
	for (QCheckBox *pCheck : { m_pShowLowRes, m_pShowParticles, m_pShowDefaultParticles, m_pShowReference })
	{
		pRight->addWidget(pCheck);
		connect(pCheck, SIGNAL(stateChanged(int)), this, SLOT(OnPreviewSettingsChanged()));
	}
	QHBoxLayout *pProblems = new QHBoxLayout();
	m_pShowProblems = new QCheckBox(MintyardTranslate("#ZARN_Mintyard_ShowMeshProblems"), pColumn);
	m_pShowProblems->setObjectName("mintyard_preview_mesh_problems");
	m_pProblemsLabel = new QLabel(pColumn);
	m_pProblemsLabel->setObjectName("mintyard_preview_mesh_problem_counts");
	m_pProblemsLabel->setWordWrap(true);
	pProblems->addWidget(m_pShowProblems);
	pProblems->addWidget(m_pProblemsLabel, 1);
	pRight->addLayout(pProblems);

	m_pPreviewInGame = new QPushButton(MintyardTranslate("#ZARN_Mintyard_PreviewInGame"), pColumn);
	m_pPreviewInGame->setObjectName("mintyard_preview_in_game");
	pRight->addWidget(m_pPreviewInGame);
	pRight->addStretch(1);

	QHBoxLayout *pLayout = new QHBoxLayout(this);
	pLayout->setContentsMargins(0, 0, 0, 0);
	pLayout->addWidget(m_pSceneWidget, 1);
	pLayout->addWidget(pColumn);

	connect(m_pModelCombo, SIGNAL(currentIndexChanged(int)), this, SLOT(SetModelBySessionIndex(int)));
	connect(m_pTextureCombo, SIGNAL(currentIndexChanged(int)), this, SLOT(OnTextureComboChanged(int)));
	connect(m_pSelectWearables, SIGNAL(clicked()), this, SLOT(OnSelectWearables()));
	connect(m_pAttachmentCombo, SIGNAL(currentIndexChanged(int)), this, SLOT(SetCurrentAttachmentPoint(int)));
	connect(m_pEditOffset, SIGNAL(clicked()), this, SLOT(OnEditAttachmentOffset()));
	connect(m_pEditAngles, SIGNAL(clicked()), this, SLOT(OnEditAttachmentAngles()));
	connect(m_pResetAttachment, SIGNAL(clicked()), this, SLOT(OnResetAttachmentToDefault()));
	connect(m_pAnimation, SIGNAL(SelectedAnimationChanged(const QString)), this, SLOT(OnSelectedAnimationChanged(const QString)));
	connect(m_pAnimation, SIGNAL(PlaybackSpeedChanged(float)), this, SLOT(OnPlaybackSpeedChanged(float)));
	connect(m_pAnimation, SIGNAL(CurrentFrameChanged(int)), this, SLOT(OnAnimationControlFrameChanged(int)));
	connect(m_pShowProblems, SIGNAL(stateChanged(int)), this, SLOT(OnShowMeshProblemsChanged()));
	connect(m_pPreviewInGame, SIGNAL(clicked()), this, SLOT(OnPreviewInGame()));
	connect(m_pSceneWidget, SIGNAL(OnNodeClicked(ToolSceneTraceResult_t *, Qt::MouseButton, Qt::KeyboardModifiers)), this,
		SLOT(OnSceneNodeClicked(ToolSceneTraceResult_t *, Qt::MouseButton, Qt::KeyboardModifiers)));

	connect(m_pSceneWidget, SIGNAL(SceneCameraChanged()), this, SLOT(OnSceneCameraChanged()));
	m_pSceneWidget->installEventFilter(this);

	m_Set.AddListener(this);
	g_pToolFramework->AddFrameListener(this);
	m_pSelectWearables->hide();
	UpdateAttachmentButtons();
}

CQImportPreviewEditor::~CQImportPreviewEditor()
{
	if (g_pToolFramework)
		g_pToolFramework->RemoveFrameListener(this);
	if (m_pSession)
		m_pSession->RemoveListener(this);
	m_Set.RemoveListener(this);
	m_pPreview.reset();
}

CMintyardCfg_ZarnModel *CQImportPreviewEditor::CurrentModelElement() const
{
	if (!m_pSession || m_nCurrentModel < 0 || m_nCurrentModel >= (int)m_pSession->m_Models.size())
		return nullptr;
	return m_pSession->m_Models[(size_t)m_nCurrentModel];
}

void CQImportPreviewEditor::AttachSession(CMintyardImportSession *pSession)
{
	if (m_pSession != pSession)
	{
		if (m_pSession)
			m_pSession->RemoveListener(this);
		m_pSession = pSession;
		if (m_pSession)
			m_pSession->AddListener(this);
		m_nCurrentModel = -1;
	}
	m_Resources.SetGameRoot(m_pSession ? m_pSession->GetGameRoot().c_str() : "");
	const int nWanted = m_nCurrentModel;
	{
		const QSignalBlocker blocker(m_pModelCombo);
		m_pModelCombo->clear();
		if (m_pSession)
		{
			for (size_t i = 0; i < m_pSession->m_Models.size(); ++i)
				m_pModelCombo->addItem(ModelDisplayName(m_pSession->m_Models[i]), (int)i);
		}
	}
	m_nCurrentModel = -1;
	if (!m_pSession || m_pSession->m_Models.empty())
	{
		m_pPreview->Clear();
		m_Problems.RemoveNodes(*m_pSceneWidget->GetScene());
		m_SceneSignature.clear();
		RefreshAttachments();
		return;
	}
	// Entering the page again after an import shows what was just compiled.
	m_bFramed = false;
	SetModelBySessionIndex(nWanted >= 0 && nWanted < (int)m_pSession->m_Models.size() ? nWanted : 0);
}

void CQImportPreviewEditor::SetModelBySessionIndex(int nIndex)
{
	if (!m_pSession || nIndex < 0 || nIndex >= (int)m_pSession->m_Models.size())
		return;
	ZarnSessionPreview_t preview;
	if (!GetSessionPreview(m_pSession, nIndex, preview))
		return;
	const CUtlString compiled = m_Resources.ResolvePath(preview.m_ModelPath);
	if (compiled.empty() || !Plat_FileExists(compiled.c_str()))
	{
		ShowWizardMessage(this, QMessageBox::Warning, "Invalid Model",
			QString("Could not find compiled model: ") + QString::fromUtf8(preview.m_ModelPath.c_str()));
		const QSignalBlocker blocker(m_pModelCombo);
		m_pModelCombo->setCurrentIndex(m_nCurrentModel);
		return;
	}
	m_nCurrentModel = nIndex;
	{
		const QSignalBlocker blocker(m_pModelCombo);
		m_pModelCombo->setCurrentIndex(nIndex);
	}
	SetCurrentAttachmentPoint(-1);
	m_bFramed = false;
	m_SceneSignature.clear();
	// The set changes several times on the way; the scene is made once at the end.
	m_bApplyingPreview = true;
	ApplySessionPreview(preview, m_Set);
	m_bApplyingPreview = false;

	const hero_t *pHero = m_Set.GetHero();
	m_pSelectWearables->setVisible(pHero != nullptr);
	// The hero's particles and the slot's stock model mean nothing for a model shown alone.
	m_pShowDefaultParticles->setVisible(pHero != nullptr);
	m_pShowReference->setVisible(pHero != nullptr);
	if (pHero)
	{
		QString heroPath;
		if (!pHero->personaModels.empty() && !pHero->personaModels[0].empty())
			heroPath = QFileInfo(QString::fromUtf8(pHero->personaModels[0][0].model.c_str())).path() + "/";
		if (!m_pPicker)
		{
			m_pPicker = new CQWearablePicker(this);
			connect(m_pPicker, SIGNAL(SlotModelsSelected()), this, SLOT(OnSlotModelsSelected()));
			connect(m_pPicker, SIGNAL(ResetToDefault()), this, SLOT(ResetSlotModelsToDefault()));
		}
		m_pPicker->SetHeroPath(heroPath);
		m_pPicker->Fill(m_Set);
	}
	else if (m_pPicker)
	{
		m_pPicker->close();
	}

	const CMintyardTemplate_ZarnModel *pTemplate = m_pSession->m_Models[(size_t)nIndex]->GetModelTemplate();
	m_pDescription->setText(
		MintyardTranslate(pTemplate && !pTemplate->preview_desc.empty() ? pTemplate->preview_desc.c_str() : "#ZARN_Mintyard_Preview_Desc_Default"));
	KeepWholeText(m_pDescription);
	RefreshScene(true);
	RefreshTextureCombo();
	RefreshAnimationControls();
}

void CQImportPreviewEditor::OnPreviewModelSetChanged(CZarnPreviewModelSet *)
{
	if (!m_bApplyingPreview)
		RefreshScene(false);
}

void CQImportPreviewEditor::RefreshScene(bool bForce)
{
	// What stands in the scene; anything else is animation and display options.
	CUtlString signature = V_Format("%d|%s|%d|%d|", m_Set.GetPreviewMode(), m_Set.GetSubjectModel().c_str(), m_Set.GetSubjectSkin(),
		m_Set.IsShowingReferenceModel() ? 1 : 0);
	for (const ZarnPreviewWearableModel_t &wearable : m_Set.GetWearableModels())
		V_AppendFormat(signature, "%s:%s:%d|", wearable.m_Name.c_str(), wearable.m_ModelPath.c_str(), wearable.m_nSkin);
	for (const ZarnPreviewSummonModel_t &summon : m_Set.GetSummonModels())
		V_AppendFormat(signature, "%s:%s|", summon.m_Unit.c_str(), summon.m_ModelPath.c_str());
	if (!bForce && signature == m_SceneSignature)
	{
		m_pPreview->ApplyAnimation(m_Set);
		m_pPreview->ApplyDisplayOptions(m_Set);
		m_pSceneWidget->RequestRender();
		return;
	}
	m_SceneSignature = signature;
	m_pPreview->Build(m_Set);
	for (const CUtlString &error : m_pPreview->GetLoadErrors())
		Log_Warning(LOG_MINTYARD_PREVIEW, "%s\n", error.c_str());
	if (!m_bFramed)
	{
		FrameCamera();
		m_bFramed = true;
		m_bCameraMoved = false;
	}
	RefreshAttachments();
	RefreshMeshProblems();
	RefreshTextureCombo();
	m_pSceneWidget->RequestRender();
}

void CQImportPreviewEditor::FrameCamera()
{
	const int nWidth = std::max(1, m_pSceneWidget->width()), nHeight = std::max(1, m_pSceneWidget->height());
	m_pPreview->FrameCamera(m_pSceneWidget->Camera(), (float)nWidth / (float)nHeight);
	m_pSceneWidget->RequestRender();
}

void CQImportPreviewEditor::OnSceneCameraChanged()
{
	m_bCameraMoved = true;
}

bool CQImportPreviewEditor::eventFilter(QObject *pWatched, QEvent *pEvent)
{
	// The page is laid out after the scene was framed: the view's shape is known only now.
	if (pWatched == m_pSceneWidget && pEvent->type() == QEvent::Resize && m_bFramed && !m_bCameraMoved)
		FrameCamera();
	return QWidget::eventFilter(pWatched, pEvent);
}

// ---------------------------------------------------------------------------------------------
// Attachments

void CQImportPreviewEditor::RefreshAttachments()
{
	CToolScene *pScene = m_pSceneWidget->GetScene();
	for (Attachment_t &attachment : m_Attachments)
	{
		if (attachment.m_pNode && pScene->ContainsNode(attachment.m_pNode))
			pScene->RemoveNode(attachment.m_pNode);
	}
	m_Attachments.clear();
	CMintyardCfg_ZarnModel *pModel = CurrentModelElement();
	if (pModel)
	{
		for (CMintyardCfg_ZarnModel::CAttach *pAttach : pModel->m_Attaches)
		{
			const CMintyardTemplate_ZarnModel::CAttach *pTemplate = pAttach->GetAttachTemplate();
			Attachment_t &attachment = m_Attachments.emplace_back();
			attachment.m_Name = pTemplate ? pTemplate->attach_name : CUtlString();
			attachment.m_pElement = pAttach;
			if (pTemplate)
			{
				attachment.m_vDefaultOffset = pTemplate->default_offset;
				attachment.m_DefaultAngles = QAngle(pTemplate->default_rotation.x, pTemplate->default_rotation.y, pTemplate->default_rotation.z);
			}
			attachment.m_pNode = pScene->CreateModelNode(ATTACHMENT_MARKER_MODEL);
			attachment.m_pNode->SetName(V_Format("attachment %s", attachment.m_Name.c_str()).c_str());
			attachment.m_pNode->SetSelectable(true);
		}
	}
	{
		const QSignalBlocker blocker(m_pAttachmentCombo);
		m_pAttachmentCombo->clear();
		for (const Attachment_t &attachment : m_Attachments)
			m_pAttachmentCombo->addItem(QString::fromUtf8(attachment.m_Name.c_str()));
		m_pAttachmentCombo->setCurrentIndex(-1);
	}
	if (m_nCurrentAttachment >= (int)m_Attachments.size())
		m_nCurrentAttachment = -1;
	if (m_nCurrentAttachment < 0)
	{
		m_nEditMode = ZARN_ATTACHMENT_EDIT_NONE;
		m_pGizmo->Hide();
	}
	else
	{
		const QSignalBlocker blocker(m_pAttachmentCombo);
		m_pAttachmentCombo->setCurrentIndex(m_nCurrentAttachment);
		if (m_nEditMode != ZARN_ATTACHMENT_EDIT_NONE)
			m_pGizmo->AttachToNode(m_Attachments[(size_t)m_nCurrentAttachment].m_pNode);
	}
	PlaceAttachmentMarkers();
	UpdateAttachmentButtons();
}

void CQImportPreviewEditor::PlaceAttachmentMarkers()
{
	CToolSceneModelNode *pModel = m_pPreview->GetModelNode();
	float flScale = 0.25f;
	Vector mins, maxs;
	if (pModel && pModel->HasModel() && pModel->GetWorldBounds(mins, maxs))
		flScale = std::max(0.05f, SceneLength(maxs - mins) * ATTACHMENT_MARKER_SHARE / ATTACHMENT_MARKER_LENGTH);
	for (Attachment_t &attachment : m_Attachments)
	{
		if (!attachment.m_pNode || !attachment.m_pElement)
			continue;
		const Vector offset(attachment.m_pElement->m_flOffset[0], attachment.m_pElement->m_flOffset[1], attachment.m_pElement->m_flOffset[2]);
		const QAngle angles(attachment.m_pElement->m_flRotation[0], attachment.m_pElement->m_flRotation[1], attachment.m_pElement->m_flRotation[2]);
		SceneMatrix_t local = AttachmentLocal(offset, angles);
		const int nCompiled = (pModel && pModel->HasModel()) ? pModel->FindAttachment(attachment.m_Name.c_str()) : -1;
		if (nCompiled >= 0)
		{
			// The compiled attachment stands where the last import put it; the marker stands where
			// the element says, on the same bone.
			const CompiledAttachment_t &compiled = pModel->GetCompiledModel()->m_Attachments[(size_t)nCompiled];
			local = SceneAffineInverse(AttachmentLocal(compiled.m_vOrigin, compiled.m_Angles)) * local;
			attachment.m_pNode->SetParent(pModel, attachment.m_Name.c_str());
		}
		else
		{
			attachment.m_pNode->SetParent(pModel);
		}
		attachment.m_pNode->SetTransform(local.GetTranslation(), SceneMatrixToAngles(local), flScale);
	}
	m_pSceneWidget->RequestRender();
}

SceneMatrix_t CQImportPreviewEditor::AttachmentBoneWorld(int nAttachment) const
{
	const CToolSceneModelNode *pModel = m_pPreview->GetModelNode();
	if (!pModel)
		return SceneMatrix_t();
	const int nCompiled = pModel->HasModel() ? pModel->FindAttachment(m_Attachments[(size_t)nAttachment].m_Name.c_str()) : -1;
	SceneMatrix_t world;
	if (nCompiled < 0 || !pModel->GetAttachmentTransform(nCompiled, world))
		return pModel->GetWorldTransform();
	const CompiledAttachment_t &compiled = pModel->GetCompiledModel()->m_Attachments[(size_t)nCompiled];
	return world * SceneAffineInverse(AttachmentLocal(compiled.m_vOrigin, compiled.m_Angles));
}

void CQImportPreviewEditor::UpdateAttachmentButtons()
{
	const bool bAny = !m_Attachments.empty();
	m_pAttachmentCombo->setEnabled(bAny);
	m_pEditOffset->setEnabled(bAny);
	m_pEditAngles->setEnabled(bAny);
	m_pEditOffset->setChecked(m_nEditMode == ZARN_ATTACHMENT_EDIT_OFFSET);
	m_pEditAngles->setChecked(m_nEditMode == ZARN_ATTACHMENT_EDIT_ANGLES);
	m_pResetAttachment->setEnabled(m_nEditMode != ZARN_ATTACHMENT_EDIT_NONE && m_nCurrentAttachment >= 0);
}

void CQImportPreviewEditor::SetCurrentAttachmentPoint(int nIndex)
{
	if (nIndex < 0 || nIndex >= (int)m_Attachments.size())
	{
		m_nCurrentAttachment = -1;
		m_nEditMode = ZARN_ATTACHMENT_EDIT_NONE;
		m_pGizmo->Hide();
		m_pGizmo->AttachToNode(nullptr);
		const QSignalBlocker blocker(m_pAttachmentCombo);
		m_pAttachmentCombo->setCurrentIndex(-1);
	}
	else
	{
		m_nCurrentAttachment = nIndex;
		const QSignalBlocker blocker(m_pAttachmentCombo);
		m_pAttachmentCombo->setCurrentIndex(nIndex);
		if (m_nEditMode != ZARN_ATTACHMENT_EDIT_NONE)
		{
			m_pGizmo->AttachToNode(m_Attachments[(size_t)nIndex].m_pNode);
			m_pGizmo->Show();
		}
	}
	UpdateAttachmentButtons();
	m_pSceneWidget->RequestRender();
}

void CQImportPreviewEditor::StartEdit(int nMode)
{
	if (m_Attachments.empty())
	{
		UpdateAttachmentButtons();
		return;
	}
	m_nEditMode = nMode;
	m_pGizmo->SetMode(nMode == ZARN_ATTACHMENT_EDIT_OFFSET ? GIZMO_MODE_TRANSLATE : GIZMO_MODE_ROTATE);
	SetCurrentAttachmentPoint(m_nCurrentAttachment < 0 ? 0 : m_nCurrentAttachment);
}

void CQImportPreviewEditor::OnEditAttachmentOffset()
{
	StartEdit(ZARN_ATTACHMENT_EDIT_OFFSET);
}

void CQImportPreviewEditor::OnEditAttachmentAngles()
{
	StartEdit(ZARN_ATTACHMENT_EDIT_ANGLES);
}

void CQImportPreviewEditor::OnResetAttachmentToDefault()
{
	if (m_nCurrentAttachment < 0 || m_nCurrentAttachment >= (int)m_Attachments.size())
		return;
	Attachment_t &attachment = m_Attachments[(size_t)m_nCurrentAttachment];
	if (!attachment.m_pElement)
		return;
	for (int i = 0; i < 3; ++i)
	{
		attachment.m_pElement->m_flOffset[i] = attachment.m_vDefaultOffset[i];
		attachment.m_pElement->m_flRotation[i] = attachment.m_DefaultAngles[i];
	}
	attachment.m_pElement->ReportChange();
	PlaceAttachmentMarkers();
}

void CQImportPreviewEditor::OnSceneNodeClicked(ToolSceneTraceResult_t *pResult, Qt::MouseButton button, Qt::KeyboardModifiers)
{
	if (button != Qt::LeftButton)
		return;
	const CToolSceneNode *pNode = pResult ? pResult->m_pNode : nullptr;
	for (size_t i = 0; pNode && i < m_Attachments.size(); ++i)
	{
		if (m_Attachments[i].m_pNode == pNode)
		{
			SetCurrentAttachmentPoint((int)i);
			return;
		}
	}
	SetCurrentAttachmentPoint(-1);
}

void CQImportPreviewEditor::OnGizmoStart(CToolSceneGizmo *)
{
	if (m_nCurrentAttachment < 0 || !m_Attachments[(size_t)m_nCurrentAttachment].m_pElement)
		return;
	const CMintyardCfg_ZarnModel::CAttach *pElement = m_Attachments[(size_t)m_nCurrentAttachment].m_pElement;
	m_vDragStartOffset = Vector(pElement->m_flOffset[0], pElement->m_flOffset[1], pElement->m_flOffset[2]);
	m_DragStartAngles = QAngle(pElement->m_flRotation[0], pElement->m_flRotation[1], pElement->m_flRotation[2]);
	m_DragBone = AttachmentBoneWorld(m_nCurrentAttachment);
	m_bDragging = true;
}

void CQImportPreviewEditor::ApplyGizmoDelta(const ToolSceneTransform_t &delta)
{
	if (!m_bDragging || m_nCurrentAttachment < 0)
		return;
	CMintyardCfg_ZarnModel::CAttach *pElement = m_Attachments[(size_t)m_nCurrentAttachment].m_pElement;
	if (!pElement)
		return;
	// The delta is in the world; the element's values are in its bone's space.
	const SceneMatrix_t startWorld = m_DragBone * AttachmentLocal(m_vDragStartOffset, m_DragStartAngles);
	ToolSceneTransform_t start;
	start.m_vPosition = startWorld.GetTranslation();
	start.m_Angles = SceneMatrixToAngles(startWorld);
	const ToolSceneTransform_t moved = ToolScene_ComposeTransform(start, delta);
	const SceneMatrix_t local = SceneAffineInverse(m_DragBone) * SceneMatrixFromAngles(moved.m_Angles, moved.m_vPosition);
	if (m_nEditMode == ZARN_ATTACHMENT_EDIT_OFFSET)
	{
		const Vector offset = local.GetTranslation();
		for (int i = 0; i < 3; ++i)
			pElement->m_flOffset[i] = offset[i];
	}
	else if (m_nEditMode == ZARN_ATTACHMENT_EDIT_ANGLES)
	{
		const QAngle angles = SceneMatrixToAngles(local);
		for (int i = 0; i < 3; ++i)
			pElement->m_flRotation[i] = angles[i];
	}
	// The session hears of it as of any input.
	pElement->ReportChange();
	PlaceAttachmentMarkers();
}

void CQImportPreviewEditor::OnGizmoMoved(CToolSceneGizmo *, const ToolSceneTransform_t &delta)
{
	ApplyGizmoDelta(delta);
}

void CQImportPreviewEditor::OnGizmoReleased(CToolSceneGizmo *pGizmo, const ToolSceneTransform_t &delta)
{
	ApplyGizmoDelta(delta);
	m_bDragging = false;
	pGizmo->ResetTransform();
	PlaceAttachmentMarkers();
}

// ---------------------------------------------------------------------------------------------
// Wearables, textures, animation, display

void CQImportPreviewEditor::OnSelectWearables()
{
	if (!m_pPicker || !m_Set.GetHero())
		return;
	m_pPicker->Fill(m_Set);
	if (m_pPicker->SlotCount() == 0)
		return;
	m_pPicker->show();
	m_pPicker->raise();
	m_pPicker->activateWindow();
	m_pPicker->setFocus();
}

void CQImportPreviewEditor::OnSlotModelsSelected()
{
	if (!m_pPicker)
		return;
	CUtlVector<CUtlString> slots, models;
	m_pPicker->GetSlotModels(slots, models);
	m_Set.SelectWearables(slots, models);
}

void CQImportPreviewEditor::ResetSlotModelsToDefault()
{
	m_Set.SelectWearables(CUtlVector<CUtlString>(), CUtlVector<CUtlString>());
	if (m_pPicker)
		m_pPicker->Fill(m_Set);
}

void CQImportPreviewEditor::RefreshTextureCombo()
{
	const QSignalBlocker blocker(m_pTextureCombo);
	m_pTextureCombo->clear();
	const CToolSceneModelNode *pModel = m_pPreview->GetModelNode();
	if (!pModel || !pModel->HasModel())
		return;
	for (int g = 0; g < pModel->GetMaterialGroupCount(); ++g)
		m_pTextureCombo->addItem(QString::fromUtf8(pModel->GetMaterialGroupName(g)));
	m_pTextureCombo->setCurrentIndex(pModel->GetMaterialGroup());
}

void CQImportPreviewEditor::OnTextureComboChanged(int nIndex)
{
	CToolSceneModelNode *pModel = m_pPreview->GetModelNode();
	if (!pModel || nIndex < 0)
		return;
	pModel->SetMaterialGroup(m_pTextureCombo->itemText(nIndex).toUtf8().constData());
	m_pSceneWidget->RequestRender();
}

void CQImportPreviewEditor::RefreshAnimationControls()
{
	CUtlVector<CUtlString> sequences;
	m_Set.GetAnimationList(sequences);
	QStringList names;
	for (const CUtlString &sequence : sequences)
		names << QString::fromUtf8(sequence.c_str());
	const CToolSceneModelNode *pSubject = m_pPreview->GetSubjectNode();
	QString current = QString::fromUtf8(m_Set.GetSequence().c_str());
	if (pSubject && pSubject->HasModel())
	{
		const int nSequence = pSubject->Animator().GetSequence();
		if (nSequence >= 0)
			current = QString::fromUtf8(pSubject->GetCompiledModel()->m_Sequences[(size_t)nSequence].m_Name.c_str());
	}
	m_pAnimation->SetAnimationList(names, current);
	m_pAnimation->SetFrameCount(pSubject ? pSubject->GetFrameCount() : 0);
	m_pAnimation->SetPlaybackSpeed(m_Set.GetPlaybackSpeed());
	m_pAnimation->SetPlaying(m_Set.IsPlaying());
	m_pAnimation->SetCurrentFrame(pSubject ? (int)pSubject->GetFrame() : 0);
}

void CQImportPreviewEditor::OnSelectedAnimationChanged(const QString seqName)
{
	m_Set.SetFrame(-1);
	m_Set.SetSequence(seqName.toUtf8().constData());
	RefreshAnimationControls();
}

void CQImportPreviewEditor::OnPlaybackSpeedChanged(float flSpeed)
{
	m_Set.SetPlaybackSpeed(flSpeed);
}

void CQImportPreviewEditor::OnAnimationControlFrameChanged(int nFrame)
{
	m_Set.SetFrame(nFrame);
	m_pSceneWidget->RequestRender();
}

void CQImportPreviewEditor::OnPreviewSettingsChanged()
{
	m_Set.SetShowLod1(m_pShowLowRes->isChecked());
	m_Set.SetShowParticles(m_pShowParticles->isChecked());
	m_Set.SetShowDefaultParticles(m_pShowDefaultParticles->isChecked());
	m_Set.SetShowReferenceModel(m_pShowReference->isChecked());
}

void CQImportPreviewEditor::OnChangePreviewMode(int nMode)
{
	m_Set.SetPreviewMode(nMode);
}

void CQImportPreviewEditor::OnShowMeshProblemsChanged()
{
	RefreshMeshProblems();
}

void CQImportPreviewEditor::RefreshMeshProblems()
{
	CToolScene *pScene = m_pSceneWidget->GetScene();
	const CToolSceneModelNode *pModel = m_pPreview->GetModelNode();
	CMintyardCfg_ZarnModel *pElement = CurrentModelElement();
	if (!m_pShowProblems->isChecked() || !pModel || !pModel->HasModel() || !pElement)
	{
		m_Problems.RemoveNodes(*pScene);
		m_Problems.Clear();
		m_pProblemsLabel->clear();
		m_pSceneWidget->RequestRender();
		return;
	}
	const CUtlString document = V_Format("%s/%s", m_pSession->GetContentRoot().c_str(), pElement->GetZmdlName().c_str());
	CUtlString error;
	if (!m_Problems.Load(m_pSession->GetContentRoot().c_str(), document.c_str(), *pModel->GetCompiledModel(), &error))
	{
		m_Problems.RemoveNodes(*pScene);
		m_pProblemsLabel->setText(QString::fromUtf8(error.c_str()));
		return;
	}
	if (!error.empty())
		Log_Warning(LOG_MINTYARD_PREVIEW, "%s\n", error.c_str());
	m_Problems.UpdateNodes(*pScene, *pModel);
	const ZarnMeshProblemCounts_t &counts = m_Problems.GetCounts();
	m_pProblemsLabel->setText(MintyardTranslate("#ZARN_Mintyard_MeshProblemCounts")
								  .arg(counts.m_nBorderEdges)
								  .arg(counts.m_nNonManifoldEdges)
								  .arg(counts.m_nFlippedFaces));
	SetWidgetTextColor(m_pProblemsLabel, QPalette::WindowText, counts.Total() ? QColor(240, 80, 80) : QColor(120, 200, 120));
	m_pSceneWidget->RequestRender();
}

void CQImportPreviewEditor::OnSessionChanged()
{
	// An attachment's values may have changed; the models may be others.
	PlaceAttachmentMarkers();
	if (m_pSession && (int)m_pSession->m_Models.size() != m_pModelCombo->count())
		Q_EMIT ReadyStatusChanged();
}

void CQImportPreviewEditor::OnToolFrame(float flFrameTime)
{
	if (!isVisible())
		return;
	m_pSceneWidget->GetScene()->Advance(flFrameTime);
	if (const CToolSceneModelNode *pSubject = m_pPreview->GetSubjectNode(); pSubject && m_Set.IsPlaying())
		m_pAnimation->SetCurrentFrame((int)pSubject->GetFrame());
	if (m_pShowProblems->isChecked() && m_pPreview->GetModelNode())
		m_Problems.UpdateNodes(*m_pSceneWidget->GetScene(), *m_pPreview->GetModelNode());
	m_pSceneWidget->RequestRender();
}

// ---------------------------------------------------------------------------------------------
// Preview in game

void CQImportPreviewEditor::OnPreviewInGame()
{
	m_LastPreviewMessage.clear();
	auto fail = [this](const QString &text) {
		m_LastPreviewMessage = text;
		ShowWizardMessage(this, QMessageBox::Warning, MintyardTranslate("#ZARN_Mintyard_ImportError"), text);
	};
	if (!m_pSession || m_pSession->m_ItemDefs.size() != 1)
	{
		Log_Warning(LOG_MINTYARD_PREVIEW, "Import session item def count (%d) != 1\n", m_pSession ? (int)m_pSession->m_ItemDefs.size() : 0);
		fail(QString("Import session item def count (%1) != 1").arg(m_pSession ? (int)m_pSession->m_ItemDefs.size() : 0));
		return;
	}
	CMintyardCfg_ZarnItemDef *pItemDef = m_pSession->m_ItemDefs[0];

	// The author's wearables in the other slots, then the submission's own item.
	const hero_t *pHero = m_Set.GetHero();
	CUtlVector<ZarnPreviewSlotChoice_t> choices;
	const CUtlVector<CUtlString> &chosenSlots = m_Set.GetChosenSlots();
	const CUtlVector<CUtlString> &chosenModels = m_Set.GetChosenModels();
	for (size_t i = 0; i < chosenSlots.size(); ++i)
		choices.push_back({ -1, chosenSlots[i], chosenModels[i] });
	CUtlVector<std::unique_ptr<CZarnPreviewItem>> items;
	CZarnPreviewModelSet::BuildPreviewItems(pHero, choices, nullptr, pItemDef, items);
	std::unique_ptr<CZarnPreviewItem> pTestItem = CZarnPreviewModelSet::BuildSubmissionTestItem(pItemDef, (int)items.size());
	if (!pTestItem)
	{
		fail(MintyardTranslate("#ZARN_Mintyard_PreviewInGame_NoKeys"));
		return;
	}
	items.erase(std::remove_if(items.begin(), items.end(),
					[&](const std::unique_ptr<CZarnPreviewItem> &pItem) { return pItem->m_SlotKey == pTestItem->m_SlotKey; }),
		items.end());
	items.push_back(std::move(pTestItem));

	KeyValues tree("Mint Yard Test Items");
	tree.SetInt("hero_id", pHero ? pHero->heroID : 0);
	tree.SetString("hero_name", pHero ? pHero->name.c_str() : "");
	const CMintyardTemplate *pTemplate = m_pSession->GetTemplate();
	if (!pTemplate || !pTemplate->ingame_preview_no_item_set)
	{
		const CUtlString name = m_pSession->GetNameElement() ? m_pSession->GetNameElement()->Value() : CUtlString();
		KeyValues *pSet = tree.FindKey("test_item_set", true);
		pSet->SetString("name", V_Format("<MINTYARD IMPORT: %s>", name.c_str()).c_str());
		pSet->SetString("key", V_Format("new_%s_item", name.c_str()).c_str());
	}
	for (const std::unique_ptr<CZarnPreviewItem> &pItem : items)
	{
		KeyValues *pEntry = pItem->GetKeys()->MakeCopy();
		pEntry->SetName(pItem->m_SlotKey.c_str());
		pEntry->SetInt("test_existing_item", 1);
		pEntry->SetInt("item_def", (int)pItem->m_nItemNumber);
		tree.AddSubKey(pEntry);
		// The tool's own schema knows the item by its number too.
		if (IEconItemToolModel *pModel = EconItemToolModel())
		{
			std::unique_ptr<KeyValues> pCopy(pItem->GetKeys()->MakeCopy());
			pCopy->SetName(V_Format("%u", pItem->m_nItemNumber).c_str());
			pModel->SaveItem(pCopy.get(), false);
		}
	}

	const QString channel = MintyardGameChannelName(QString::fromUtf8(m_pSession->GetGameRoot().c_str()));
	QString error;
	if (!SendTreeToGame(channel, &tree, true, &error))
	{
		Log_Warning(LOG_MINTYARD_PREVIEW, "%s\n", error.toUtf8().constData());
		fail(MintyardTranslate("#ZARN_Mintyard_PreviewInGame_NoGame").arg(channel, error));
	}
}
