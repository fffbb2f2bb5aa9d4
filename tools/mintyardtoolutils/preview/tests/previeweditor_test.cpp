// The import preview editor on the virtual display, on sample sessions imported with the real
// resource compiler: registered as the wizard's preview page, clicks that pick attachment markers,
// the gizmo dragged with the mouse moving an attachment (its element's values change and the
// session is told), a click on empty space ending the edit, the attachment buttons of a model
// without attachments doing nothing, the animation control and the mesh problems' counts.
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <QThread>

#include <cmath>

#include "core/strtools.h"
#include "mintyardtoolutils/core/cfgelements.h"
#include "mintyardtoolutils/preview/animpreviewwidget.h"
#include "mintyardtoolutils/preview/importprevieweditor.h"
#include "mintyardtoolutils/preview/previewpages.h"
#include "mintyardtoolutils/preview/previewscene.h"
#include "mintyardtoolutils/wizard/gamechannel.h"
#include "mintyardtoolutils/wizard/gamemessage.h"
#include "mintyardtoolutils/wizard/wizardpage.h"
#include "previewtestboxes.h"
#include "previewtestgame.h"
#include "testsupport/game_listener.h"
#include "toolscene/scenegizmo.h"
#include "toolscene/toolscenewidget.h"

namespace
{
class CSessionListener : public IMintyardImportSessionListener
{
public:
	void OnSessionChanged() override { ++m_nCalls; }
	int m_nCalls = 0;
};

// A mouse move with the buttons held, delivered now (QTest's warps the real pointer on xcb).
void MouseMove(QWidget *pWidget, const QPoint &position, Qt::MouseButtons buttons)
{
	QMouseEvent event(QEvent::MouseMove, QPointF(position), QPointF(pWidget->mapToGlobal(position)), Qt::NoButton, buttons, Qt::NoModifier);
	QApplication::sendEvent(pWidget, &event);
}


Vector NodeWorldPosition(const CToolSceneNode *pNode)
{
	return pNode->GetWorldTransform().GetTranslation();
}

class PreviewEditorTest : public testing::Test
{
protected:
	void SetUp() override { ASSERT_TRUE(m_Game.m_bReady); }

	// Imports a sample session and shows it in an editor on screen.
	void Open(const char *pszSession)
	{
		std::string messages;
		ASSERT_TRUE(m_Game.ImportSession(m_Session, pszSession, &messages)) << messages;
		m_pEditor = std::make_unique<CQImportPreviewEditor>();
		m_pEditor->resize(1000, 700);
		m_pEditor->show();
		ASSERT_TRUE(QTest::qWaitForWindowExposed(m_pEditor.get()));
		m_pEditor->AttachSession(&m_Session);
		QCoreApplication::processEvents();
		ASSERT_NE(m_pEditor->PreviewScene().GetModelNode(), nullptr);
		ASSERT_TRUE(m_pEditor->PreviewScene().GetModelNode()->HasModel());
	}

	// Where a world point stands in the scene widget, in pixels.
	QPoint Project(const Vector &world) const
	{
		CQToolSceneWidget *pWidget = m_pEditor->SceneWidget();
		float fx = 0.0f, fy = 0.0f;
		EXPECT_TRUE(pWidget->Camera().ProjectToScreen(world, pWidget->width(), pWidget->height(), fx, fy));
		return QPoint((int)std::lround(fx), (int)std::lround(fy));
	}

	void TearDown() override
	{
		m_pEditor.reset();
		CToolSceneResources::Default().Flush();
	}

	CPreviewTestGame m_Game;
	CMintyardImportSession m_Session;
	std::unique_ptr<CQImportPreviewEditor> m_pEditor;
};
} // namespace

TEST_F(PreviewEditorTest, IsTheWizardsPreviewPageOnceRegistered)
{
	RegisterImportPreviewEditorPage();
	IMintyardWizardPage *pPage = CreateMintyardWizardPage(MINTYARD_WIZARD_PAGE_PREVIEW_EDITOR, nullptr);
	ASSERT_NE(pPage, nullptr);
	EXPECT_NE(dynamic_cast<CQImportPreviewEditor *>(pPage), nullptr);
	delete pPage->GetWidget();
}

TEST_F(PreviewEditorTest, ClicksPickAttachmentMarkersAndEmptySpaceEndsTheEdit)
{
	ASSERT_NO_FATAL_FAILURE(Open("courier"));
	// The courier's shorter description does not keep the room of the longer default text.
	QLabel *pDescription = m_pEditor->findChild<QLabel *>("mintyard_preview_description");
	ASSERT_NE(pDescription, nullptr);
	QCoreApplication::processEvents();
	const QFontMetrics metrics = pDescription->fontMetrics();
	const int nTextHeight = metrics.boundingRect(QRect(0, 0, pDescription->width(), 10000), Qt::TextWordWrap, pDescription->text()).height();
	EXPECT_GE(pDescription->height(), nTextHeight);
	EXPECT_LT(pDescription->height(), nTextHeight + metrics.lineSpacing()) << pDescription->text().toStdString();
	CQImportPreviewEditor &editor = *m_pEditor;
	ASSERT_EQ(editor.Attachments().size(), 2u);
	EXPECT_TRUE(editor.EditOffsetButton()->isEnabled());
	EXPECT_EQ(editor.EditMode(), ZARN_ATTACHMENT_EDIT_NONE);

	editor.EditOffsetButton()->click();
	EXPECT_EQ(editor.EditMode(), ZARN_ATTACHMENT_EDIT_OFFSET);
	EXPECT_EQ(editor.CurrentAttachment(), 0);
	EXPECT_TRUE(editor.Gizmo()->IsVisible());
	EXPECT_EQ(editor.Gizmo()->GetAttachedNode(), editor.Attachments()[0].m_pNode);

	// The combo picks the second one; the marker of the first (over the courier's head, in
	// sight), clicked where it stands, becomes the current one again.
	editor.AttachmentCombo()->setCurrentIndex(1);
	EXPECT_EQ(editor.CurrentAttachment(), 1);
	EXPECT_EQ(editor.Gizmo()->GetAttachedNode(), editor.Attachments()[1].m_pNode);
	CQToolSceneWidget *pWidget = editor.SceneWidget();
	const CToolSceneNode *pMarker = editor.Attachments()[0].m_pNode;
	// A pixel near where the marker stands that the scene's own trace finds it under.
	const QPoint centre = Project(NodeWorldPosition(pMarker));
	QPoint onMarker(-1, -1);
	for (int r = 0; r <= 12 && onMarker.x() < 0; ++r)
	{
		for (int dy = -r; dy <= r && onMarker.x() < 0; ++dy)
		{
			for (int dx = -r; dx <= r; ++dx)
			{
				ToolSceneTraceResult_t trace;
				const QPoint p = centre + QPoint(dx, dy);
				if (pWidget->GetScene()->TracePixel((float)p.x(), (float)p.y(), pWidget->width(), pWidget->height(), trace) &&
					trace.m_pNode == pMarker)
				{
					onMarker = p;
					break;
				}
			}
		}
	}
	ASSERT_GE(onMarker.x(), 0) << "the marker is nowhere near where it stands";
	// The gizmo lies on the first marker; hide it so that the click is not a drag of it.
	editor.Gizmo()->Hide();
	QTest::mouseClick(pWidget, Qt::LeftButton, Qt::NoModifier, onMarker);
	EXPECT_EQ(editor.CurrentAttachment(), 0);
	EXPECT_EQ(editor.AttachmentCombo()->currentIndex(), 0);
	EXPECT_EQ(editor.EditMode(), ZARN_ATTACHMENT_EDIT_OFFSET);
	EXPECT_TRUE(editor.Gizmo()->IsVisible());
	EXPECT_EQ(editor.Gizmo()->GetAttachedNode(), pMarker);

	// The courier's body is picked too, but it is no attachment: a click on it ends the edit,
	// as one on empty space does.
	QTest::mouseClick(pWidget, Qt::LeftButton, Qt::NoModifier, QPoint(3, 3));
	EXPECT_EQ(editor.CurrentAttachment(), -1);
	EXPECT_EQ(editor.EditMode(), ZARN_ATTACHMENT_EDIT_NONE);
	EXPECT_FALSE(editor.Gizmo()->IsVisible());
	EXPECT_FALSE(editor.EditOffsetButton()->isChecked());
	EXPECT_FALSE(editor.ResetAttachmentButton()->isEnabled());
}

TEST_F(PreviewEditorTest, TheGizmoMovesAnAttachmentAndTheSessionIsTold)
{
	ASSERT_NO_FATAL_FAILURE(Open("courier"));
	CQImportPreviewEditor &editor = *m_pEditor;
	ASSERT_FALSE(editor.Attachments().empty());
	CSessionListener listener;
	m_Session.AddListener(&listener);
	editor.EditOffsetButton()->click();
	ASSERT_EQ(editor.CurrentAttachment(), 0);
	const CMintyardCfg_ZarnModel::CAttach *pElement = editor.Attachments()[0].m_pElement;
	ASSERT_NE(pElement, nullptr);
	const Vector offsetBefore(pElement->m_flOffset[0], pElement->m_flOffset[1], pElement->m_flOffset[2]);
	const Vector markerBefore = NodeWorldPosition(editor.Attachments()[0].m_pNode);

	// Grab the gizmo's X handle and drag it 40 pixels along the axis on screen.
	CQToolSceneWidget *pWidget = editor.SceneWidget();
	CToolSceneGizmo *pGizmo = editor.Gizmo();
	const Vector centre = pGizmo->GetCenter();
	Vector axes[3];
	pGizmo->GetAxes(axes);
	const float unit = pWidget->Camera().WorldUnitsPerPixel(centre, pWidget->width());
	const float length = unit * pGizmo->GetSizePixels();
	const QPoint origin = Project(centre);
	const QPoint grab = Project(centre + axes[0] * (length * 0.6f));
	ASSERT_EQ(pGizmo->HitTest(pWidget->Camera(), pWidget->width(), pWidget->height(), (float)grab.x(), (float)grab.y()), GIZMO_HANDLE_X);
	const QPoint along = grab - origin;
	const float flAlong = std::sqrt((float)QPoint::dotProduct(along, along));
	ASSERT_GT(flAlong, 4.0f);
	const QPoint target = grab + QPoint((int)std::lround(along.x() * 40.0f / flAlong), (int)std::lround(along.y() * 40.0f / flAlong));
	QTest::mousePress(pWidget, Qt::LeftButton, Qt::NoModifier, grab);
	MouseMove(pWidget, (grab + target) / 2, Qt::LeftButton);
	MouseMove(pWidget, target, Qt::LeftButton);
	QTest::mouseRelease(pWidget, Qt::LeftButton, Qt::NoModifier, target);

	const Vector offsetAfter(pElement->m_flOffset[0], pElement->m_flOffset[1], pElement->m_flOffset[2]);
	EXPECT_GT(SceneLength(offsetAfter - offsetBefore), 1.0f) << "the element's offset did not change";
	EXPECT_GE(listener.m_nCalls, 1) << "the session was not told";
	// The marker went along the world's X axis, as far as the gizmo was dragged.
	const Vector markerAfter = NodeWorldPosition(editor.Attachments()[0].m_pNode);
	const Vector moved = markerAfter - markerBefore;
	EXPECT_GT(moved.x, 20.0f * unit);
	EXPECT_NEAR(moved.y, 0.0f, 0.05f * std::fabs(moved.x) + 0.01f);
	EXPECT_NEAR(moved.z, 0.0f, 0.05f * std::fabs(moved.x) + 0.01f);
	EXPECT_TRUE(pGizmo->GetDeltaTransform().IsIdentity());

	// Reset puts the template's default back, and the session hears of that too.
	const int nCalls = listener.m_nCalls;
	editor.ResetAttachmentButton()->click();
	EXPECT_GT(listener.m_nCalls, nCalls);
	for (int i = 0; i < 3; ++i)
		EXPECT_FLOAT_EQ(pElement->m_flOffset[i], editor.Attachments()[0].m_vDefaultOffset[i]);
	m_Session.RemoveListener(&listener);
}

TEST_F(PreviewEditorTest, WithoutAttachmentsTheButtonsDoNothing)
{
	ASSERT_NO_FATAL_FAILURE(Open("ward"));
	CQImportPreviewEditor &editor = *m_pEditor;
	ASSERT_TRUE(editor.Attachments().empty());
	EXPECT_FALSE(editor.EditOffsetButton()->isEnabled());
	EXPECT_FALSE(editor.EditAnglesButton()->isEnabled());
	EXPECT_FALSE(editor.ResetAttachmentButton()->isEnabled());
	CSessionListener listener;
	m_Session.AddListener(&listener);
	// The slots themselves, as a shortcut would call them.
	editor.OnEditAttachmentOffset();
	editor.OnEditAttachmentAngles();
	editor.OnResetAttachmentToDefault();
	editor.SetCurrentAttachmentPoint(0);
	EXPECT_EQ(editor.EditMode(), ZARN_ATTACHMENT_EDIT_NONE);
	EXPECT_EQ(editor.CurrentAttachment(), -1);
	EXPECT_FALSE(editor.Gizmo()->IsVisible());
	EXPECT_EQ(listener.m_nCalls, 0);
	EXPECT_FALSE(editor.SelectWearablesButton()->isVisible()) << "a ward has no hero to dress";
	EXPECT_FALSE(editor.ShowDefaultParticlesCheck()->isVisible());
	EXPECT_FALSE(editor.ShowReferenceModelCheck()->isVisible());
	m_Session.RemoveListener(&listener);
}

TEST_F(PreviewEditorTest, AWearableStandsOnItsHeroAndTheAnimationControlDrivesIt)
{
	ASSERT_NO_FATAL_FAILURE(Open("wearable_bramble_head"));
	CQImportPreviewEditor &editor = *m_pEditor;
	EXPECT_NE(editor.ModelSet().GetHero(), nullptr);
	EXPECT_TRUE(editor.SelectWearablesButton()->isVisible());
	EXPECT_TRUE(editor.ShowDefaultParticlesCheck()->isVisible());
	ASSERT_NE(editor.PreviewScene().GetSubjectNode(), nullptr);
	EXPECT_NE(editor.PreviewScene().GetSubjectNode(), editor.PreviewScene().GetModelNode()) << "the hero is the subject";

	CQAnimPreviewWidget *pAnimation = editor.AnimationControl();
	int nFrames = 0;
	QObject::connect(pAnimation, &CQAnimPreviewWidget::CurrentFrameChanged, [&nFrames](int) { ++nFrames; });
	const CToolSceneModelNode *pSubject = editor.PreviewScene().GetSubjectNode();
	ASSERT_GT(pSubject->GetFrameCount(), 3);
	pAnimation->SetCurrentFrame(3);
	Q_EMIT pAnimation->CurrentFrameChanged(3);
	EXPECT_EQ(editor.ModelSet().GetFrame(), 3);
	EXPECT_FALSE(editor.ModelSet().IsPlaying()) << "the frame control stops playback at the frame";
	EXPECT_GE(nFrames, 1);
}

TEST_F(PreviewEditorTest, MeshProblemsShowTheirCounts)
{
	WriteTestBoxGame(m_Game.Root(""), TEST_BOX_OPEN);
	ASSERT_NO_FATAL_FAILURE(Open("test_box"));
	CQImportPreviewEditor &editor = *m_pEditor;
	EXPECT_TRUE(editor.MeshProblemsLabel()->text().isEmpty());
	editor.ShowMeshProblemsCheck()->setChecked(true);
	EXPECT_EQ(editor.MeshProblems().GetCounts().m_nBorderEdges, 4);
	EXPECT_EQ(editor.MeshProblems().GetCounts().m_nFlippedFaces, 0);
	EXPECT_TRUE(editor.MeshProblemsLabel()->text().startsWith("4 border, 0 non-manifold, 0 flipped")) << editor.MeshProblemsLabel()->text().toStdString();
	editor.ShowMeshProblemsCheck()->setChecked(false);
	EXPECT_TRUE(editor.MeshProblemsLabel()->text().isEmpty());
}

TEST_F(PreviewEditorTest, PreviewInGameSendsTheHeroItemsToTheListeningGame)
{
	ASSERT_NO_FATAL_FAILURE(Open("wearable_bramble_head"));
	// A game folder name of this run's own for the channel, so that no other run shares it; the
	// scene keeps the folder it loaded from.
	const std::string mod = "zarn_preview_" + std::to_string(getpid());
	m_Session.SetSearchPaths(m_Game.Root("game/" + mod).c_str(), m_Game.Content("").c_str());
	const QString channel = MintyardGameChannelName(QString::fromStdString(m_Game.Root("game/" + mod)));
	// The author chose a wearable for another slot: it goes along with the submission.
	CUtlVector<CUtlString> slots, models;
	slots.push_back("weapon");
	models.push_back("models/heroes/bramble/bramble_weapon.zmdl");
	m_pEditor->ModelSet().SelectWearables(slots, models);
	CTestGameListener listener(channel);
	ASSERT_TRUE(listener.Listen());
	m_pEditor->PreviewInGameButton()->click();
	ASSERT_TRUE(listener.wait(15000));
	EXPECT_TRUE(m_pEditor->LastPreviewInGameMessage().isEmpty()) << m_pEditor->LastPreviewInGameMessage().toStdString();

	size_t nConsumed = 0;
	MintyardGameMessage_t message;
	CUtlString error;
	ASSERT_EQ(MINTYARD_GAME_MESSAGE_COMPLETE, DecodeMintyardGameMessage(listener.m_Bytes, nConsumed, message, error)) << error;
	EXPECT_TRUE(message.m_bFlag);
	EXPECT_STREQ("Mint Yard Test Items", message.m_pTree->GetName());
	EXPECT_STREQ("npc_zarn_hero_bramble", message.m_pTree->GetString("hero_name"));
	EXPECT_NE(0, message.m_pTree->GetInt("hero_id"));
	// The submission in its slot and the chosen wearable, each by its slot key.
	int nItems = 0;
	bool bCrown = false, bWeapon = false;
	for (KeyValues *pItem = message.m_pTree->GetFirstTrueSubKey(); pItem; pItem = pItem->GetNextTrueSubKey())
	{
		if (V_stricmp(pItem->GetName(), "test_item_set") == 0)
			continue;
		++nItems;
		EXPECT_EQ(1, pItem->GetInt("test_existing_item")) << pItem->GetName();
		EXPECT_NE(0, pItem->GetInt("item_def")) << pItem->GetName();
		if (V_stristr(pItem->GetString("model_player"), "briar_crown"))
			bCrown = true;
		if (V_stristr(pItem->GetString("model_player"), "bramble_weapon"))
			bWeapon = true;
	}
	EXPECT_EQ(nItems, 2);
	EXPECT_TRUE(bCrown) << "the submission's item is not among them";
	EXPECT_TRUE(bWeapon) << "the chosen weapon is not among them";
	KeyValues *pSet = message.m_pTree->FindKey("test_item_set");
	ASSERT_NE(pSet, nullptr);
	EXPECT_STREQ("new_briar_crown_item", pSet->GetString("key"));
}
