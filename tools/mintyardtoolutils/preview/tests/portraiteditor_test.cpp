// The portrait page on the sample game: the page the wizard makes for its step 6, the views
// showing the preview model set (a hero with its wearables, a courier, a ward), the plain
// controls, every panel control writing its key and its text form, copy and paste (all, and the
// look alone keeping the framing and the light's placement), the gizmo modes of the scene
// (the spot marker clicked twice, scale held at 0.01, the clone camera given up by modes 0 and
// 1), the loading screen's picture taking ".tga" over ".png", the summons widget, and the
// not-edited rule.
#include <gtest/gtest.h>

#include <memory>

#include <QApplication>
#include <QGroupBox>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalSpy>
#include <QSlider>

#include "core/keyvalues.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "imaging/image.h"
#include "imaging/imagewrite.h"
#include "mintyardtoolutils/preview/animpreviewwidget.h"
#include "mintyardtoolutils/preview/portraitcontrols.h"
#include "mintyardtoolutils/preview/portraiteditor.h"
#include "mintyardtoolutils/preview/portraitoverlay.h"
#include "mintyardtoolutils/preview/portraitpanel.h"
#include "mintyardtoolutils/preview/portraitscene.h"
#include "mintyardtoolutils/preview/portraitsubject.h"
#include "mintyardtoolutils/preview/portraitviewer.h"
#include "mintyardtoolutils/preview/previewscene.h"
#include "mintyardtoolutils/preview/summonseditor.h"
#include "mintyardtoolutils/wizard/wizardpage.h"
#include "mintyardtoolutils/wizard/wizardutils.h"
#include "toolscene/scenemath.h"
#include "portraittestgame.h"

namespace
{
const char *const BRIAR_CROWN = "models/items/bramble/briar_crown/briar_crown.zmdl";
const char *const SAMPLE_COURIER = "models/items/courier/sample_courier/sample_courier.zmdl";
const char *const SAMPLE_WARD = "models/items/ward/sample_owl_ward/sample_owl_ward.zmdl";
const char *const SPIRIT_UNIT = "npc_zarn_tidewarden_spirit";

class CReleaseGame : public testing::Environment
{
public:
	void TearDown() override { CPortraitTestGame::Release(); }
};
testing::Environment *const s_pReleaseGame = testing::AddGlobalTestEnvironment(new CReleaseGame);

// The record's text form, as the item keys hold it.
std::unique_ptr<KeyValues> TextForm(const CZarnPortraitRecord &record)
{
	auto pKeys = std::make_unique<KeyValues>("portrait");
	record.WriteKeys(pKeys.get());
	return pKeys;
}

// A value typed into a slider edit and confirmed.
void TypeValue(CQSliderLineEditFloat *pEdit, const char *pszText)
{
	pEdit->LineEdit()->setText(pszText);
	Q_EMIT pEdit->LineEdit()->editingFinished();
}

bool HasWearable(const CZarnPortraitSubject &subject, const char *pszModel)
{
	for (const CToolSceneModelNode *pNode : subject.Preview().GetWearableNodes())
	{
		if (pNode->GetModelPath() == pszModel)
			return true;
	}
	return false;
}

class PortraitEditorTest : public testing::Test
{
protected:
	void SetUp() override { ASSERT_TRUE(CPortraitTestGame::Game().m_bReady); }

	// A page on a session, as the wizard shows it.
	std::unique_ptr<CQZarnPortraitEditor> MakePage(CMintyardImportSession *pSession)
	{
		auto pPage = std::make_unique<CQZarnPortraitEditor>();
		pPage->resize(1200, 900);
		pPage->AttachSession(pSession);
		return pPage;
	}
};
} // namespace

// ---------------------------------------------------------------------------------------------
// The plain controls

TEST(PortraitControlsTest, SliderEditClampsAndSignalsOnlyChanges)
{
	CQSliderLineEditFloat edit(1.0f, 10.0f);
	QSignalSpy spy(&edit, SIGNAL(valueChanged(float)));
	TypeValue(&edit, "4.5");
	ASSERT_EQ(spy.count(), 1);
	EXPECT_FLOAT_EQ(spy[0][0].toFloat(), 4.5f);
	EXPECT_FLOAT_EQ(edit.GetValue(), 4.5f);
	// Past the range: clamped, and the field shows the clamped value.
	TypeValue(&edit, "25");
	ASSERT_EQ(spy.count(), 2);
	EXPECT_FLOAT_EQ(spy[1][0].toFloat(), 10.0f);
	EXPECT_EQ(edit.LineEdit()->text(), "10.00");
	TypeValue(&edit, "-3");
	EXPECT_FLOAT_EQ(edit.GetValue(), 1.0f);
	EXPECT_EQ(edit.Slider()->value(), 0);
	// The same value again says nothing; a value set by code says nothing either.
	const int nSignals = spy.count();
	TypeValue(&edit, "1.0");
	edit.SetValue(7.0f);
	EXPECT_EQ(spy.count(), nSignals);
	EXPECT_EQ(edit.Slider()->value(), (int)std::lround((7.0f - 1.0f) / 9.0f * CQSliderLineEditFloat::SLIDER_STEPS));
	// The slider dragged to its end.
	edit.Slider()->setValue(CQSliderLineEditFloat::SLIDER_STEPS);
	Q_EMIT edit.Slider()->sliderMoved(CQSliderLineEditFloat::SLIDER_STEPS);
	EXPECT_FLOAT_EQ(edit.GetValue(), 10.0f);
	// Text that is no number keeps the value.
	TypeValue(&edit, "abc");
	EXPECT_FLOAT_EQ(edit.GetValue(), 10.0f);
}

TEST(PortraitControlsTest, ColorSwatchSizeAndSignal)
{
	CQColorSwatch swatch;
	EXPECT_EQ(swatch.sizeHint(), QSize(73, 21));
	QSignalSpy spy(&swatch, SIGNAL(ColorChanged()));
	swatch.SetColor(QColor(1, 2, 3));
	EXPECT_EQ(spy.count(), 0);
	swatch.PickColor(QColor(10, 20, 30));
	EXPECT_EQ(spy.count(), 1);
	EXPECT_EQ(swatch.GetColor(), QColor(10, 20, 30));
	EXPECT_EQ(swatch.property("color").value<QColor>(), QColor(10, 20, 30));
	swatch.PickColor(QColor(10, 20, 30));
	EXPECT_EQ(spy.count(), 1);
}

TEST(PortraitControlsTest, ConnectHelperMapsItsInteger)
{
	QObject owner;
	CQConnectHelper_int helper(&owner, 7);
	QSignalSpy spy(&helper, SIGNAL(mapped(int)));
	QMetaObject::invokeMethod(&helper, "map");
	ASSERT_EQ(spy.count(), 1);
	EXPECT_EQ(spy[0][0].toInt(), 7);
}

// ---------------------------------------------------------------------------------------------
// The page and its views

TEST_F(PortraitEditorTest, TheWizardMakesThePortraitPageForStepSix)
{
	RegisterZarnPortraitEditorPage();
	std::unique_ptr<IMintyardWizardPage> pPage(CreateMintyardWizardPage(MINTYARD_WIZARD_PAGE_PORTRAIT_EDITOR, nullptr));
	ASSERT_NE(pPage, nullptr);
	EXPECT_NE(dynamic_cast<CQZarnPortraitEditor *>(pPage.get()), nullptr);
	// Without a session the rule says so.
	ImportMessageList list;
	pPage->Validate(list);
	ASSERT_EQ(list.Count(), 1);
	EXPECT_EQ(list[0].Message(), "Internal Error: Portrait editor with no session");
}

TEST_F(PortraitEditorTest, AWearableIsShownOnItsHeroWithTheOtherSlots)
{
	CMintyardImportSession *pSession = CPortraitTestGame::Session("wearable_bramble_head");
	ASSERT_NE(pSession, nullptr);
	auto pPage = MakePage(pSession);
	ASSERT_EQ(pPage->ModelCombo()->count(), 1);
	EXPECT_EQ(pPage->ModelCombo()->itemText(0), "briar_crown");
	EXPECT_EQ(pPage->GetCurrentModelIndex(), 0);
	const CZarnPreviewModelSet *pSet = pPage->Model().GetModelSet();
	EXPECT_EQ(pPage->Model().GetPortraitRecord(), &pSession->m_Models[0]->m_PortraitRecord);
	EXPECT_EQ(pPage->Model().GetModelPath(), BRIAR_CROWN);
	// The hero stands in the middle with the crown among its wearables, in both views.
	EXPECT_NE(pSet->GetSubjectModel(), BRIAR_CROWN);
	EXPECT_FALSE(pSet->GetSubjectModel().empty());
	for (const CZarnPortraitSubject *pSubject : { &pPage->Viewer()->Subject(), &pPage->Scene()->Subject() })
	{
		ASSERT_NE(pSubject->GetModelNode(), nullptr);
		EXPECT_EQ(pSubject->GetModelNode()->GetModelPath(), pSet->GetSubjectModel());
		EXPECT_TRUE(HasWearable(*pSubject, BRIAR_CROWN));
		EXPECT_GT(pSubject->Preview().GetWearableNodes().size(), 1u);
	}
}

TEST_F(PortraitEditorTest, ACourierIsShownByTypeAndTeamAndAWardByKind)
{
	CMintyardImportSession *pCourier = CPortraitTestGame::Session("courier");
	ASSERT_NE(pCourier, nullptr);
	auto pPage = MakePage(pCourier);
	CZarnPortraitEditorModel &model = pPage->Model();
	EXPECT_EQ(model.GetPreviewMode(), ZARN_PREVIEW_MODE_COURIER);
	EXPECT_TRUE(pPage->Panel()->CourierGroup()->isVisibleTo(pPage->Panel()));
	EXPECT_FALSE(pPage->Panel()->WardGroup()->isVisibleTo(pPage->Panel()));
	EXPECT_FALSE(pPage->Panel()->BackgroundColorGroup()->isVisibleTo(pPage->Panel()));
	ASSERT_NE(pPage->Viewer()->Subject().GetModelNode(), nullptr);
	EXPECT_EQ(pPage->Viewer()->Subject().GetModelNode()->GetModelPath(), SAMPLE_COURIER);
	EXPECT_TRUE(pPage->Viewer()->Subject().Preview().GetWearableNodes().empty());
	// The flying form, chosen with the radio button, shows the flying model.
	pPage->Panel()->CourierFlyingRadio()->click();
	EXPECT_EQ(model.GetCourierType(), 1);
	const CUtlString flying = model.GetModelSet()->GetSubjectModel();
	EXPECT_NE(flying, SAMPLE_COURIER);
	EXPECT_NE(flying.find("flying"), CUtlString::npos) << flying;
	EXPECT_EQ(pPage->Viewer()->Subject().GetModelNode()->GetModelPath(), flying);
	pPage->Panel()->CourierMoonwardRadio()->click();
	EXPECT_EQ(model.GetCourierTeam(), 1);
	EXPECT_EQ(model.GetModelSet()->GetCourierTeam(), 1);

	CMintyardImportSession *pWard = CPortraitTestGame::Session("ward");
	ASSERT_NE(pWard, nullptr);
	pPage->AttachSession(pWard);
	EXPECT_EQ(model.GetPreviewMode(), ZARN_PREVIEW_MODE_WARD);
	EXPECT_TRUE(pPage->Panel()->WardGroup()->isVisibleTo(pPage->Panel()));
	EXPECT_FALSE(pPage->Panel()->CourierGroup()->isVisibleTo(pPage->Panel()));
	ASSERT_NE(pPage->Scene()->Subject().GetModelNode(), nullptr);
	EXPECT_EQ(pPage->Scene()->Subject().GetModelNode()->GetModelPath(), SAMPLE_WARD);
	pPage->Panel()->WardSentryRadio()->click();
	EXPECT_EQ(model.GetWardType(), 1);
	EXPECT_EQ(model.GetModelSet()->GetWardType(), 1);
}

// ---------------------------------------------------------------------------------------------
// Controls writing the record

TEST_F(PortraitEditorTest, EveryControlWritesItsKey)
{
	CMintyardImportSession *pSession = CPortraitTestGame::Session("courier");
	ASSERT_NE(pSession, nullptr);
	CPortraitRecordsGuard guard(pSession);
	auto pPage = MakePage(pSession);
	CQZarnPortraitEditorPanel *pPanel = pPage->Panel();
	const CZarnPortraitRecord &record = pSession->m_Models[0]->m_PortraitRecord;

	struct Slider_t
	{
		CQSliderLineEditFloat *m_pEdit;
		float m_flMin, m_flMax;
		const char *m_pszKey; // under the text form; "cameras/default/..." for the camera
	};
	const Slider_t sliders[] = {
		{ pPanel->LightScaleEdit(), 1.0f, 10.0f, "PortraitLightScale" },
		{ pPanel->AmbientScaleEdit(), 1.0f, 10.0f, "PortraitAmbientScale" },
		{ pPanel->EntityShadowScaleEdit(), 1.0f, 10.0f, "PortraitShadowScale" },
		{ pPanel->LightDistanceEdit(), 10.0f, 2000.0f, "PortraitLightDistance" },
		{ pPanel->LightFOVEdit(), 1.0f, 120.0f, "PortraitLightFOV" },
		{ pPanel->CameraFOVEdit(), 1.0f, 90.0f, "cameras/default/PortraitFOV" },
		{ pPanel->CameraFarZEdit(), 10.0f, 5000.0f, "cameras/default/PortraitFar" },
	};
	for (const Slider_t &slider : sliders)
	{
		SCOPED_TRACE(slider.m_pszKey);
		EXPECT_FLOAT_EQ(slider.m_pEdit->GetMinimum(), slider.m_flMin);
		EXPECT_FLOAT_EQ(slider.m_pEdit->GetMaximum(), slider.m_flMax);
		const float flValue = slider.m_flMin + (slider.m_flMax - slider.m_flMin) * 0.37f;
		TypeValue(slider.m_pEdit, QString::number(flValue, 'f', 2).toUtf8().constData());
		EXPECT_NEAR(TextForm(record)->GetFloat(slider.m_pszKey), flValue, 0.01f);
		// Beyond the top: held at the maximum.
		TypeValue(slider.m_pEdit, QString::number(slider.m_flMax * 3.0f).toUtf8().constData());
		EXPECT_NEAR(TextForm(record)->GetFloat(slider.m_pszKey), slider.m_flMax, 0.001f);
	}

	// The roll turns the current camera: its angles' roll in the text form.
	EXPECT_FLOAT_EQ(pPanel->CameraRollEdit()->GetMinimum(), -180.0f);
	EXPECT_FLOAT_EQ(pPanel->CameraRollEdit()->GetMaximum(), 180.0f);
	TypeValue(pPanel->CameraRollEdit(), "25");
	EXPECT_NEAR(pPage->Model().GetCameraRoll(), 25.0f, 0.01f);
	EXPECT_NEAR(record.CameraOrFirst("default").m_Angles.z, 25.0f, 0.01f);
	float flPitch = 0, flYaw = 0, flRoll = 0;
	ASSERT_EQ(sscanf(TextForm(record)->GetString("cameras/default/PortraitAngles"), "%f %f %f", &flPitch, &flYaw, &flRoll), 3);
	EXPECT_NEAR(flRoll, 25.0f, 0.01f);

	// Swatches: 8-bit colours, "r g b" in the text form.
	struct Swatch_t
	{
		CQColorSwatch *m_pSwatch;
		const char *m_pszKey;
	};
	const Swatch_t swatches[] = {
		{ pPanel->LightColorSwatch(), "PortraitLightColor" },
		{ pPanel->AmbientColorSwatch(), "PortraitAmbientColor" },
		{ pPanel->ShadowColorSwatch(), "PortraitShadowColor" },
	};
	int nShade = 10;
	for (const Swatch_t &swatch : swatches)
	{
		SCOPED_TRACE(swatch.m_pszKey);
		EXPECT_EQ(swatch.m_pSwatch->sizeHint(), QSize(73, 21));
		swatch.m_pSwatch->PickColor(QColor(nShade, nShade + 1, nShade + 2));
		EXPECT_STREQ(TextForm(record)->GetString(swatch.m_pszKey), QString("%1 %2 %3").arg(nShade).arg(nShade + 1).arg(nShade + 2).toUtf8().constData());
		nShade += 40;
	}
	// The animation control: the sequence, the rate and a held frame as the cycle.
	CQAnimPreviewWidget *pAnimation = pPanel->AnimationWidget();
	ASSERT_NE(pAnimation, nullptr);
	QComboBox *pSequences = pAnimation->AnimationCombo();
	const int nOther = pSequences->findText("run");
	ASSERT_GE(nOther, 0);
	ASSERT_NE(nOther, pSequences->currentIndex());
	const QString sequence = pSequences->itemText(nOther);
	pSequences->setCurrentIndex(nOther);
	Q_EMIT pSequences->activated(nOther);
	EXPECT_STREQ(TextForm(record)->GetString("PortraitAnimationSequence"), sequence.toUtf8().constData());
	EXPECT_EQ(pPage->Model().GetModelSet()->GetSequence(), sequence.toUtf8().constData());
	pAnimation->SpeedBox()->setValue(2.5);
	EXPECT_FLOAT_EQ(TextForm(record)->GetFloat("PortraitAnimationRate"), 2.5f);
	const int nFrames = pAnimation->FrameCount();
	ASSERT_GT(nFrames, 2);
	pAnimation->FrameSlider()->setValue(nFrames - 1);
	EXPECT_FLOAT_EQ(TextForm(record)->GetFloat("PortraitAnimationCycle"), 1.0f);
	EXPECT_EQ(pPage->Model().GetModelSet()->GetFrame(), nFrames - 1);
	pAnimation->FrameSlider()->setValue(0);
	EXPECT_FLOAT_EQ(TextForm(record)->GetFloat("PortraitAnimationCycle"), 0.0f);

	// Background colours: the four swatches as floats of 0 to 1.
	pPanel->BackgroundColorSwatch(2)->PickColor(QColor(255, 0, 51));
	float r = 0, g = 0, b = 0;
	ASSERT_EQ(sscanf(TextForm(record)->GetString("PortraitBackgroundColor3"), "%f %f %f", &r, &g, &b), 3);
	EXPECT_NEAR(r, 1.0f, 0.001f);
	EXPECT_NEAR(g, 0.0f, 0.001f);
	EXPECT_NEAR(b, 0.2f, 0.001f);

	// The background list: the icon backgrounds of the sample game in this mode, and a choice
	// sets the texture.
	QComboBox *pBackgrounds = pPanel->BackgroundCombo();
	ASSERT_GE(pBackgrounds->count(), 3);
	bool bGold = false;
	for (int i = 0; i < pBackgrounds->count(); ++i)
		bGold |= pBackgrounds->itemText(i) == "gold";
	EXPECT_TRUE(bGold);
	for (int i = 0; i < pBackgrounds->count(); ++i)
	{
		if (pBackgrounds->itemText(i) == "gold")
			pBackgrounds->setCurrentIndex(i);
	}
	EXPECT_STREQ(TextForm(record)->GetString("PortraitBackgroundTexture"), "materials/vgui/econ/item_icon_bg_gold.zmat");
	// Hero portraits offer the portrait backgrounds instead.
	pPage->Model().SetPreviewMode(ZARN_PREVIEW_MODE_HERO);
	bool bForest = false;
	for (int i = 0; i < pBackgrounds->count(); ++i)
	{
		bForest |= pBackgrounds->itemText(i) == "forest";
		EXPECT_NE(pBackgrounds->itemText(i), "gold");
	}
	EXPECT_TRUE(bForest);
	EXPECT_TRUE(pPanel->BackgroundColorGroup()->isVisibleTo(pPanel));
}

// ---------------------------------------------------------------------------------------------
// Copy and paste

TEST_F(PortraitEditorTest, CopyAndPasteBetweenModels)
{
	CMintyardImportSession *pSession = CPortraitTestGame::Session("courier");
	ASSERT_NE(pSession, nullptr);
	ASSERT_GE(pSession->m_Models.size(), 2u);
	CPortraitRecordsGuard guard(pSession);
	CZarnPortraitRecord &first = pSession->m_Models[0]->m_PortraitRecord;
	CZarnPortraitRecord &second = pSession->m_Models[1]->m_PortraitRecord;
	first.CameraOrFirst("default").m_Position = Vector(150.0f, 20.0f, 60.0f);
	first.CameraOrFirst("default").m_flFOV = 33.0f;
	first.m_LightPosition = Vector(10.0f, 20.0f, 300.0f);
	first.m_flLightDistance = 700.0f;
	first.m_LightColor = Color(200, 100, 50);
	first.m_flAmbientScale = 4.0f;
	first.m_BackgroundTexture = "materials/vgui/econ/item_icon_bg_dark.zmat";
	second.CameraOrFirst("default").m_Position = Vector(-90.0f, 5.0f, 40.0f);
	second.CameraOrFirst("default").m_flFOV = 21.0f;
	second.m_LightPosition = Vector(-50.0f, 0.0f, 100.0f);
	second.m_flLightDistance = 333.0f;
	second.m_LightColor = Color(1, 2, 3);
	const CZarnPortraitRecord secondBefore = second;

	auto pPage = MakePage(pSession);
	CQZarnPortraitEditorPanel *pPanel = pPage->Panel();
	pPanel->CopyButton()->click();
	EXPECT_TRUE(QApplication::clipboard()->text().contains("PortraitLightColor"));

	// Paste the look alone onto the second model: framing and light placement stay.
	pPage->ModelCombo()->setCurrentIndex(1);
	ASSERT_EQ(pPage->Model().GetPortraitRecord(), &second);
	const Vector targetBefore = pPage->Model().GetCameraTarget();
	pPanel->PasteVisualsButton()->click();
	EXPECT_EQ(second.m_LightColor, Color(200, 100, 50));
	EXPECT_FLOAT_EQ(second.m_flAmbientScale, 4.0f);
	EXPECT_EQ(second.m_BackgroundTexture, "materials/vgui/econ/item_icon_bg_dark.zmat");
	EXPECT_NEAR(second.CameraOrFirst("default").m_Position.x, -90.0f, 0.01f);
	EXPECT_NEAR(second.CameraOrFirst("default").m_Position.z, 40.0f, 0.01f);
	EXPECT_FLOAT_EQ(second.CameraOrFirst("default").m_flFOV, 21.0f);
	EXPECT_NEAR(SceneLength(pPage->Model().GetCameraTarget() - targetBefore), 0.0f, 0.01f);
	EXPECT_EQ(second.m_LightPosition, secondBefore.m_LightPosition);
	EXPECT_FLOAT_EQ(second.m_flLightDistance, 333.0f);
	// The panel shows the pasted values.
	EXPECT_EQ(pPanel->LightColorSwatch()->GetColor(), QColor(200, 100, 50));
	EXPECT_FLOAT_EQ(pPanel->AmbientScaleEdit()->GetValue(), 4.0f);

	// Paste all takes the framing too.
	pPanel->PasteAllButton()->click();
	EXPECT_NEAR(second.CameraOrFirst("default").m_Position.x, 150.0f, 0.01f);
	EXPECT_FLOAT_EQ(second.CameraOrFirst("default").m_flFOV, 33.0f);
	EXPECT_NEAR(second.m_LightPosition.z, 300.0f, 0.01f);
	EXPECT_FLOAT_EQ(second.m_flLightDistance, 700.0f);
	EXPECT_FLOAT_EQ(pPanel->CameraFOVEdit()->GetValue(), 33.0f);

	// Text that is no portrait changes nothing.
	const CUtlString before = PortraitRecordToClipboardText(second);
	QApplication::clipboard()->setText("\"portrait_copy_paste\" { \"unclosed");
	pPanel->PasteAllButton()->click();
	EXPECT_EQ(PortraitRecordToClipboardText(second), before);
	QApplication::clipboard()->setText("x");
	pPanel->PasteVisualsButton()->click();
	EXPECT_EQ(PortraitRecordToClipboardText(second), before);
}

// ---------------------------------------------------------------------------------------------
// Gizmo modes

TEST_F(PortraitEditorTest, GizmoModesFromMarkersAndButtons)
{
	CMintyardImportSession *pSession = CPortraitTestGame::Session("courier");
	ASSERT_NE(pSession, nullptr);
	CPortraitRecordsGuard guard(pSession);
	auto pPage = MakePage(pSession);
	CZarnPortraitEditorModel &model = pPage->Model();
	CQZarnPortraitEditorScene *pScene = pPage->Scene();
	CQZarnPortraitEditorPanel *pPanel = pPage->Panel();
	CZarnPortraitRecord *pRecord = model.GetPortraitRecord();
	ASSERT_NE(pRecord, nullptr);

	auto click = [&](int nMarker)
	{
		ToolSceneTraceResult_t hit;
		hit.m_pNode = pScene->GetMarker(nMarker);
		pScene->OnSceneNodeClicked(&hit, Qt::LeftButton, Qt::NoModifier);
	};
	// The spot marker: position first, angles when clicked again.
	click(CQZarnPortraitEditorScene::MARKER_SPOT);
	EXPECT_EQ(model.GetGizmoMode(), PORTRAIT_GIZMO_LIGHT_POSITION);
	click(CQZarnPortraitEditorScene::MARKER_SPOT);
	EXPECT_EQ(model.GetGizmoMode(), PORTRAIT_GIZMO_LIGHT_ANGLES);
	// The panel's buttons follow: the active one is disabled.
	for (int i = 0; i < CQZarnPortraitEditorPanel::PANEL_GIZMO_BUTTON_COUNT; ++i)
		EXPECT_EQ(pPanel->GizmoButton(i)->isEnabled(), i != PORTRAIT_GIZMO_LIGHT_ANGLES) << i;
	click(CQZarnPortraitEditorScene::MARKER_AMBIENT);
	EXPECT_EQ(model.GetGizmoMode(), PORTRAIT_GIZMO_AMBIENT_POSITION);
	click(CQZarnPortraitEditorScene::MARKER_CAMERA_TARGET);
	EXPECT_EQ(model.GetGizmoMode(), PORTRAIT_GIZMO_CAMERA_TARGET);
	// Nothing hit ends the edit.
	ToolSceneTraceResult_t nothing;
	pScene->OnSceneNodeClicked(&nothing, Qt::LeftButton, Qt::NoModifier);
	EXPECT_EQ(model.GetGizmoMode(), PORTRAIT_GIZMO_NONE);

	// A drag in mode 2 starts from the light's position and adds the gizmo's move.
	pPanel->GizmoButton(PORTRAIT_GIZMO_LIGHT_POSITION)->click();
	EXPECT_EQ(model.GetGizmoMode(), PORTRAIT_GIZMO_LIGHT_POSITION);
	const Vector lightStart = pRecord->m_LightPosition;
	pScene->OnGizmoStart(pScene->GetGizmo());
	EXPECT_EQ(pScene->GetStartTransform().m_vPosition, lightStart);
	ToolSceneTransform_t move;
	move.m_vPosition = Vector(5.0f, -7.0f, 11.0f);
	pScene->OnGizmoMoved(pScene->GetGizmo(), move);
	pScene->OnGizmoReleased(pScene->GetGizmo(), move);
	EXPECT_NEAR(SceneLength(pRecord->m_LightPosition - (lightStart + Vector(5.0f, -7.0f, 11.0f))), 0.0f, 0.001f);

	// Mode 0 starts from the camera's position; the camera keeps looking at its target.
	pPanel->GizmoButton(PORTRAIT_GIZMO_CAMERA_POSITION)->click();
	const Vector cameraStart = model.GetCameraPosition();
	const Vector target = model.GetCameraTarget();
	pScene->OnGizmoStart(pScene->GetGizmo());
	EXPECT_EQ(pScene->GetStartTransform().m_vPosition, cameraStart);
	move.m_vPosition = Vector(0.0f, 40.0f, 0.0f);
	pScene->OnGizmoReleased(pScene->GetGizmo(), move);
	EXPECT_NEAR(SceneLength(model.GetCameraPosition() - (cameraStart + Vector(0.0f, 40.0f, 0.0f))), 0.0f, 0.001f);
	EXPECT_NEAR(SceneLength(model.GetCameraTarget() - target), 0.0f, 0.01f);

	// A summon's scale: a drag that would shrink it under 0.01 holds it at 0.01.
	ASSERT_EQ(model.AddSummon(SPIRIT_UNIT), 0);
	pPanel->SummonsWidget()->GizmoButton(PORTRAIT_GIZMO_SUMMON_SCALE)->click();
	EXPECT_EQ(model.GetGizmoMode(), PORTRAIT_GIZMO_SUMMON_SCALE);
	pScene->OnGizmoStart(pScene->GetGizmo());
	EXPECT_FLOAT_EQ(pScene->GetStartTransform().m_vScale.x, 1.0f);
	ToolSceneTransform_t shrink;
	shrink.m_vScale = Vector(0.5f, 1.0f, 1.0f);
	pScene->OnGizmoMoved(pScene->GetGizmo(), shrink);
	EXPECT_FLOAT_EQ(pRecord->m_Summons[0].m_flScale, 0.5f);
	shrink.m_vScale = Vector(0.0001f, 1.0f, 1.0f);
	pScene->OnGizmoReleased(pScene->GetGizmo(), shrink);
	EXPECT_FLOAT_EQ(pRecord->m_Summons[0].m_flScale, 0.01f);
	model.SetSummonScale(-4.0f);
	EXPECT_FLOAT_EQ(pRecord->m_Summons[0].m_flScale, 0.01f);

	// The clone camera: on, the scene looks through the portrait camera and moving the view
	// moves it; modes 0 and 1 uncheck the box without a signal and end it.
	pPanel->GizmoButton(PORTRAIT_GIZMO_LIGHT_ANGLES)->click();
	pPanel->CloneCameraCheck()->setChecked(true);
	EXPECT_TRUE(pScene->IsCloneCameraEnabled());
	EXPECT_NEAR(SceneLength(pScene->Camera().GetPosition() - model.GetCameraPosition()), 0.0f, 0.01f);
	pScene->Camera().SetPositionAndTarget(Vector(300.0f, 0.0f, 80.0f), Vector(0.0f, 0.0f, 40.0f));
	Q_EMIT pScene->SceneCameraChanged();
	EXPECT_NEAR(SceneLength(model.GetCameraPosition() - Vector(300.0f, 0.0f, 80.0f)), 0.0f, 0.01f);
	QSignalSpy cloneSpy(pPanel, SIGNAL(CloneCameraToggled(bool)));
	pPanel->GizmoButton(PORTRAIT_GIZMO_CAMERA_TARGET)->click();
	EXPECT_FALSE(pPanel->CloneCameraCheck()->isChecked());
	EXPECT_FALSE(pScene->IsCloneCameraEnabled());
	EXPECT_EQ(cloneSpy.count(), 0);
	pPanel->CloneCameraCheck()->setChecked(true);
	EXPECT_TRUE(pScene->IsCloneCameraEnabled());
	pPanel->GizmoButton(PORTRAIT_GIZMO_CAMERA_POSITION)->click();
	EXPECT_FALSE(pPanel->CloneCameraCheck()->isChecked());
	EXPECT_FALSE(pScene->IsCloneCameraEnabled());
	// Other modes leave it on.
	pPanel->CloneCameraCheck()->setChecked(true);
	pPanel->GizmoButton(PORTRAIT_GIZMO_AMBIENT_ANGLES)->click();
	EXPECT_TRUE(pPanel->CloneCameraCheck()->isChecked());
	EXPECT_TRUE(pScene->IsCloneCameraEnabled());
}

// ---------------------------------------------------------------------------------------------
// Summons

TEST_F(PortraitEditorTest, SummonsArePlacedAndSavedInTheRecord)
{
	CMintyardImportSession *pSession = CPortraitTestGame::Session("wearable_tidewarden_weapon");
	ASSERT_NE(pSession, nullptr);
	CPortraitRecordsGuard guard(pSession);
	auto pPage = MakePage(pSession);
	CZarnPortraitEditorModel &model = pPage->Model();
	CQSummonsEditorWidget *pSummons = pPage->Panel()->SummonsWidget();
	CZarnPortraitRecord *pRecord = model.GetPortraitRecord();
	ASSERT_NE(pRecord, nullptr);
	ASSERT_TRUE(pRecord->m_Summons.empty());
	EXPECT_EQ(pSummons->UnitCombo()->count(), 1);
	EXPECT_FALSE(pSummons->RemoveButton()->isEnabled());

	// Add: the picker offers what the hero's slots generate.
	pSummons->AddButton()->click();
	CQSummonPickerDialog *pPicker = pSummons->OpenPicker();
	ASSERT_NE(pPicker, nullptr);
	ASSERT_GE(pPicker->UnitCombo()->findText(SPIRIT_UNIT), 0);
	pPicker->UnitCombo()->setCurrentIndex(pPicker->UnitCombo()->findText(SPIRIT_UNIT));
	pPicker->OkClicked();
	ASSERT_EQ(pRecord->m_Summons.size(), 1u);
	EXPECT_EQ(pRecord->m_Summons[0].m_Unit, SPIRIT_UNIT);
	EXPECT_EQ(model.GetSelectedSummon(), 0);
	EXPECT_EQ(pSummons->UnitCombo()->count(), 2);
	EXPECT_EQ(pSummons->UnitCombo()->currentIndex(), 1);
	EXPECT_TRUE(pSummons->RemoveButton()->isEnabled());

	// The same name in other letters finds its row: nothing added.
	model.SetSelectedSummon(-1);
	pSummons->OnNewUnitSelected(QString(SPIRIT_UNIT).toUpper());
	EXPECT_EQ(pRecord->m_Summons.size(), 1u);
	EXPECT_EQ(model.GetSelectedSummon(), 0);

	// Placed through the model (what the gizmo does), shown, and saved in the text form.
	model.SetSummonPosition(Vector(30.0f, -20.0f, 0.0f));
	model.SetSummonAngles(QAngle(0.0f, 90.0f, 0.0f));
	model.SetSummonScale(1.5f);
	pSummons->DisplayCheck()->setChecked(true);
	EXPECT_TRUE(model.GetDisplaySummons());
	ASSERT_EQ(pPage->Scene()->Subject().GetSummonCount(), 1);
	ASSERT_EQ(pPage->Viewer()->Subject().GetSummonCount(), 1);
	std::unique_ptr<KeyValues> pText = TextForm(*pRecord);
	KeyValues *pUnit = pText->FindKey("summons")->FindKey(SPIRIT_UNIT);
	ASSERT_NE(pUnit, nullptr);
	float x = 0, y = 0, z = 0;
	ASSERT_EQ(sscanf(pUnit->GetString("Position"), "%f %f %f", &x, &y, &z), 3);
	EXPECT_FLOAT_EQ(x, 30.0f);
	EXPECT_FLOAT_EQ(y, -20.0f);
	EXPECT_FLOAT_EQ(pUnit->GetFloat("Scale"), 1.5f);
	// And read back the same.
	CZarnPortraitRecord reread;
	reread.ReadKeys(pText.get());
	ASSERT_EQ(reread.m_Summons.size(), 1u);
	EXPECT_EQ(reread.m_Summons[0].m_Unit, SPIRIT_UNIT);
	EXPECT_FLOAT_EQ(reread.m_Summons[0].m_flScale, 1.5f);

	// Removing the last one returns to the base unit and leaves no `summons` key.
	pSummons->RemoveButton()->click();
	EXPECT_TRUE(pRecord->m_Summons.empty());
	EXPECT_EQ(model.GetSelectedSummon(), -1);
	EXPECT_EQ(pSummons->UnitCombo()->count(), 1);
	EXPECT_EQ(TextForm(*pRecord)->FindKey("summons"), nullptr);
	EXPECT_EQ(pPage->Scene()->Subject().GetSummonCount(), 0);
}

// ---------------------------------------------------------------------------------------------
// The not-edited rule

TEST_F(PortraitEditorTest, ANewPortraitIsNotEditedUntilItsCameraMoves)
{
	CMintyardImportSession *pSession = CPortraitTestGame::Session("courier");
	ASSERT_NE(pSession, nullptr);
	ASSERT_GE(pSession->m_Models.size(), 2u);
	CPortraitRecordsGuard guard(pSession);
	// Seeded from the game's portraits: nothing to say.
	auto pPage = MakePage(pSession);
	ImportMessageList list;
	pPage->Validate(list);
	EXPECT_EQ(list.Count(), 0);

	// Fresh records: one message per model, naming it.
	for (CMintyardCfg_ZarnModel *pModel : pSession->m_Models)
		pModel->m_PortraitRecord = CZarnPortraitRecord();
	pPage->AttachSession(pSession);
	list.Clear();
	pPage->Validate(list);
	ASSERT_EQ(list.Count(), (int)pSession->m_Models.size());
	EXPECT_NE(list.Find("#ZARN_Mintyard_Err_Model_Portrait_NotEdited", "sample_courier"), nullptr);
	EXPECT_NE(list.Find("#ZARN_Mintyard_Err_Model_Portrait_NotEdited", "sample_courier_flying"), nullptr);

	// Moving the first model's camera clears its message, and says the step may have changed.
	QSignalSpy ready(pPage.get(), SIGNAL(ReadyStatusChanged()));
	pPage->Model().SetCameraPosition(Vector(120.0f, 0.0f, 50.0f));
	EXPECT_GE(ready.count(), 1);
	list.Clear();
	pPage->Validate(list);
	ASSERT_EQ(list.Count(), 1);
	EXPECT_NE(list.Find("#ZARN_Mintyard_Err_Model_Portrait_NotEdited", "sample_courier_flying"), nullptr);

	// With the summons camera in use the rule looks at "summons", which stands at the origin.
	pPage->Panel()->SummonsWidget()->SummonCameraCheck()->setChecked(true);
	EXPECT_TRUE(pPage->Model().IsEditingSummons());
	EXPECT_NE(pSession->m_Models[0]->m_PortraitRecord.FindCamera("summons"), nullptr);
	list.Clear();
	pPage->Validate(list);
	EXPECT_EQ(list.Count(), 2);
	pPage->Model().SetCameraPosition(Vector(0.0f, 150.0f, 60.0f));
	list.Clear();
	pPage->Validate(list);
	EXPECT_EQ(list.Count(), 1);
	EXPECT_NE(list.Find("#ZARN_Mintyard_Err_Model_Portrait_NotEdited", "sample_courier_flying"), nullptr);
}

// ---------------------------------------------------------------------------------------------
// Loading screens

TEST_F(PortraitEditorTest, ALoadingScreenTakesTheTgaOverThePng)
{
	CPreviewTestGame &game = CPortraitTestGame::Game();
	CImageRGBA8 red, blue;
	red.Init(32, 18);
	blue.Init(32, 18);
	for (int y = 0; y < 18; ++y)
	{
		for (int x = 0; x < 32; ++x)
		{
			uint8 *r = red.Pixel(x, y);
			r[0] = 255, r[1] = 0, r[2] = 0, r[3] = 255;
			uint8 *b = blue.Pixel(x, y);
			b[0] = 0, b[1] = 0, b[2] = 255, b[3] = 255;
		}
	}
	const std::string folder = game.Content("materials/loadingscreens/test");
	std::filesystem::create_directories(folder);
	ASSERT_TRUE(Image_WritePNGFile((folder + "/screen.png").c_str(), red));
	CImageRGBA8 image;
	CUtlString found;
	ASSERT_TRUE(LoadPortraitLoadingScreenImage("materials/loadingscreens/test/screen.zmat", image, &found));
	EXPECT_EQ(found, "materials/loadingscreens/test/screen.png");
	EXPECT_EQ(image.Pixel(5, 5)[0], 255);
	ASSERT_TRUE(Image_WriteTGAFile((folder + "/screen.tga").c_str(), blue));
	ASSERT_TRUE(LoadPortraitLoadingScreenImage("materials/loadingscreens/test/screen.zmat", image, &found));
	EXPECT_EQ(found, "materials/loadingscreens/test/screen.tga");
	EXPECT_EQ(image.Pixel(5, 5)[2], 255);
	EXPECT_EQ(image.Pixel(5, 5)[0], 0);
	EXPECT_FALSE(LoadPortraitLoadingScreenImage("materials/loadingscreens/test/none.zmat", image, &found));

	// The viewer in mode 5 shows that picture alone, without the icon overlays.
	CZarnPortraitEditorModel model;
	CZarnPortraitRecord record;
	record.m_BackgroundTexture = "materials/loadingscreens/test/screen.zmat";
	model.SetPreviewMode(ZARN_PREVIEW_MODE_LOADING_SCREEN);
	model.SetPortraitRecord(&record);
	CQZarnPortraitViewer viewer(&model);
	EXPECT_EQ(viewer.GetPreviewMode(), ZARN_PREVIEW_MODE_LOADING_SCREEN);
	EXPECT_NE(viewer.GetLoadingScreenOverlay(), nullptr);
	EXPECT_EQ(viewer.Look().GetLoadingScreenFile(), "materials/loadingscreens/test/screen.tga");
	EXPECT_EQ(viewer.GetForegroundOverlay(), nullptr);
	EXPECT_EQ(viewer.GetSquareOverlay(), nullptr);
	// Modes 2 to 4 have the two overlays and no picture.
	model.SetPreviewMode(ZARN_PREVIEW_MODE_ITEM);
	EXPECT_EQ(viewer.GetLoadingScreenOverlay(), nullptr);
	ASSERT_NE(viewer.GetForegroundOverlay(), nullptr);
	ASSERT_NE(viewer.GetSquareOverlay(), nullptr);
}

// ---------------------------------------------------------------------------------------------
// The game's portraits

TEST_F(PortraitEditorTest, ANewModelStartsFromTheGamesPortraitOfItsTemplate)
{
	CPreviewTestGame &game = CPortraitTestGame::Game();
	ASSERT_TRUE(EnsureGameDataLoaded());
	// The courier's walking and flying models start from the default courier's two portraits.
	CMintyardImportSession courier;
	std::string messages;
	ASSERT_TRUE(game.LoadSession(courier, "courier", &messages)) << messages;
	ASSERT_EQ(courier.m_Models.size(), 2u);
	const char *const defaults[] = { "models/props/courier/courier.zmdl", "models/props/courier/courier_flying.zmdl" };
	for (size_t i = 0; i < 2; ++i)
	{
		SCOPED_TRACE(defaults[i]);
		KeyValues *pGame = FindGamePortrait(defaults[i]);
		ASSERT_NE(pGame, nullptr);
		CZarnPortraitRecord expected;
		expected.ReadKeys(pGame);
		EXPECT_EQ(PortraitRecordToClipboardText(courier.m_Models[i]->m_PortraitRecord), PortraitRecordToClipboardText(expected));
		EXPECT_NE(courier.m_Models[i]->m_PortraitRecord.CameraOrFirst("default").m_Position, Vector());
	}
	EXPECT_NE(courier.m_Models[0]->m_PortraitRecord.CameraOrFirst("default").m_Position,
		courier.m_Models[1]->m_PortraitRecord.CameraOrFirst("default").m_Position);
	// Case does not matter in the path.
	EXPECT_EQ(FindGamePortrait("MODELS/props/Courier/courier.zmdl"), FindGamePortrait(defaults[0]));
	EXPECT_EQ(FindGamePortrait("models/props/courier/no_such.zmdl"), nullptr);

	// A wearable's template names none: a new portrait, which the not-edited rule catches.
	CMintyardImportSession wearable;
	ASSERT_TRUE(game.LoadSession(wearable, "wearable_bramble_head", &messages)) << messages;
	ASSERT_EQ(wearable.m_Models.size(), 1u);
	EXPECT_EQ(PortraitRecordToClipboardText(wearable.m_Models[0]->m_PortraitRecord), PortraitRecordToClipboardText(CZarnPortraitRecord()));
}

TEST_F(PortraitEditorTest, TheAnimationControlFollowsThePlayingFrame)
{
	CMintyardImportSession *pSession = CPortraitTestGame::Session("courier");
	ASSERT_NE(pSession, nullptr);
	CPortraitRecordsGuard guard(pSession);
	auto pPage = MakePage(pSession);
	CQAnimPreviewWidget *pAnimation = pPage->Panel()->AnimationWidget();
	ASSERT_TRUE(pPage->Model().GetModelSet()->IsPlaying());
	ASSERT_GT(pAnimation->FrameCount(), 4);
	QSignalSpy frames(pAnimation, SIGNAL(CurrentFrameChanged(int)));
	const float flCycle = pSession->m_Models[0]->m_PortraitRecord.m_flAnimationCycle;
	int nMoved = 0;
	for (int i = 0; i < 8; ++i)
	{
		CPortraitTestGame::Game().RunFrames(0.05f);
		nMoved += pAnimation->CurrentFrame() > 0 ? 1 : 0;
	}
	EXPECT_GT(nMoved, 0);
	// Following it says nothing back, and the record keeps its cycle.
	EXPECT_EQ(frames.count(), 0);
	EXPECT_FLOAT_EQ(pSession->m_Models[0]->m_PortraitRecord.m_flAnimationCycle, flCycle);
}

TEST_F(PortraitEditorTest, AModelNotCompiledWarnsAndStaysUnselected)
{
	// The ward session loaded but never imported: its model has no compiled file.
	CMintyardImportSession ward;
	std::string messages;
	ASSERT_TRUE(CPortraitTestGame::Game().LoadSession(ward, "ward", &messages)) << messages;
	QStringList boxes;
	MintyardWizardMessageHook() = [&](QMessageBox::Icon, const QString &title, const QString &text, int, int)
	{
		boxes << title + ": " + text;
		return (int)QMessageBox::Ok;
	};
	auto pPage = MakePage(&ward);
	MintyardWizardMessageHook() = nullptr;
	ASSERT_EQ(boxes.size(), 1);
	EXPECT_TRUE(boxes[0].startsWith("Invalid Model: Could not find compiled model: ")) << boxes[0].toStdString();
	EXPECT_TRUE(boxes[0].contains("sample_owl_ward.zmdl_c")) << boxes[0].toStdString();
	EXPECT_EQ(pPage->GetCurrentModelIndex(), -1);
	EXPECT_EQ(pPage->Model().GetPortraitRecord(), nullptr);
	EXPECT_EQ(pPage->ModelCombo()->count(), (int)ward.m_Models.size());
}
