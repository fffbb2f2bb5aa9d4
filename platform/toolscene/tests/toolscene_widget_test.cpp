// The scene widgets on the virtual display: drawing, mouse clicks, camera moves, gizmo drags
// with QTest's mouse events, and the frame-driven widget of the tool framework.
#include <gtest/gtest.h>

#include <QTest>
#include <QWheelEvent>

#include <cmath>

#include "testsupport/test_support.h"
#include "toolframework/toolservices.h"
#include "toolscene/scenegizmo.h"
#include "toolscene/toolscenewidget.h"
#include "toolscenetestassets.h"

namespace
{
class CDragListener : public IGizmoListener
{
public:
	void OnGizmoStart(CToolSceneGizmo *) override { ++m_nStarts; }
	void OnGizmoMoved(CToolSceneGizmo *, const ToolSceneTransform_t &delta) override
	{
		++m_nMoves;
		m_Moved = delta;
	}
	void OnGizmoReleased(CToolSceneGizmo *pGizmo, const ToolSceneTransform_t &delta) override
	{
		++m_nReleases;
		m_Released = delta;
		pGizmo->ResetTransform();
	}
	void OnGizmoHoverChanged(CToolSceneGizmo *, EToolSceneGizmoHandle eHandle) override { m_eHover = eHandle; }

	int m_nStarts = 0, m_nMoves = 0, m_nReleases = 0;
	ToolSceneTransform_t m_Moved, m_Released;
	EToolSceneGizmoHandle m_eHover = GIZMO_HANDLE_NONE;
};

// A mouse move with the buttons held. QTest's own mouseMove warps the real pointer on xcb,
// whose motion arrives whenever the X server sends it; this event arrives now, as QTest's
// press and release do.
void MouseMove(QWidget *pWidget, const QPoint &position, Qt::MouseButtons buttons = Qt::NoButton)
{
	QMouseEvent event(QEvent::MouseMove, QPointF(position), QPointF(pWidget->mapToGlobal(position)), Qt::NoButton, buttons, Qt::NoModifier);
	QApplication::sendEvent(pWidget, &event);
}

class ToolSceneWidget : public testing::Test
{
protected:
	void SetUp() override
	{
		ASSERT_FALSE(m_Game.Root().empty());
		CToolSceneResources::Default().SetGameRoot(m_Game.Root().c_str());
		ASSERT_TRUE(m_Game.WriteTexture("materials/red_png.ztex_c", TestTexture_Solid(220, 30, 30, 255, COMPILED_TEXTURE_BC1)));
		ASSERT_TRUE(m_Game.WriteMaterial("materials/red.zmat_c", TestMaterial("materials/red_png.ztex_c")));
		ASSERT_TRUE(m_Game.WriteModel("models/quad.zmdl_c", TestModel_Quad("materials/red.zmat_c")));
		ASSERT_TRUE(m_Game.WriteModel("models/strip.zmdl_c", TestModel_SkinnedStrip("materials/red.zmat_c")));
	}
	void TearDown() override { CToolSceneResources::Default().SetGameRoot(""); }

	// Shows the widget and waits until it can be drawn.
	static void Show(CQToolSceneWidget &widget)
	{
		widget.resize(320, 240);
		widget.show();
		ASSERT_TRUE(QTest::qWaitForWindowExposed(&widget));
	}

	CTestGameFolder m_Game;
};
} // namespace

TEST_F(ToolSceneWidget, DrawsItsScene)
{
	CQToolSceneWidget widget;
	CToolScene *pScene = widget.GetScene();
	pScene->DefaultLight().SetUnlit();
	pScene->CreateModelNode("models/quad.zmdl");
	widget.Camera().SetPositionAndTarget(Vector(200, 0, 0), Vector(0, 0, 0));
	Show(widget);
	const QImage image = widget.grabFramebuffer();
	EXPECT_TRUE(widget.GetRendererError().empty()) << widget.GetRendererError();
	const QRgb centre = image.pixel(image.width() / 2, image.height() / 2);
	EXPECT_GT(qRed(centre), 200);
	EXPECT_LT(qGreen(centre), 60);
	const QRgb corner = image.pixel(2, 2);
	EXPECT_EQ(qRed(corner), pScene->GetClearColor().r);
	EXPECT_EQ(qBlue(corner), pScene->GetClearColor().b);

	// Framing the scene brings the quad (100 units) into a view from far away.
	widget.Camera().SetPositionAndTarget(Vector(5000, 0, 0), Vector(4000, 0, 0));
	widget.FrameScene();
	float x, y;
	ASSERT_TRUE(widget.Camera().ProjectToScreen(Vector(0, 0, 0), widget.width(), widget.height(), x, y));
	EXPECT_NEAR(x, widget.width() / 2.0f, 1.0f);
	EXPECT_NEAR(y, widget.height() / 2.0f, 1.0f);
}

TEST_F(ToolSceneWidget, GizmoDragWithTheMouseCallsTheListener)
{
	CQToolSceneWidget widget;
	CToolScene *pScene = widget.GetScene();
	CDragListener listener;
	CToolSceneGizmo *pGizmo = pScene->CreateGizmo(&listener);
	pGizmo->SetPlacement(Vector(0, 0, 0), QAngle());
	pGizmo->Show();
	widget.Camera().SetPositionAndTarget(Vector(0, -300, 0), Vector(0, 0, 0));
	Show(widget);
	int clicks = 0, cameraMoves = 0;
	QObject::connect(&widget, &CQToolSceneWidget::OnNodeClicked, [&clicks](ToolSceneTraceResult_t *, Qt::MouseButton, Qt::KeyboardModifiers) { ++clicks; });
	QObject::connect(&widget, &CQToolSceneWidget::SceneCameraChanged, [&cameraMoves]() { ++cameraMoves; });

	const int w = widget.width(), h = widget.height();
	const float unit = widget.Camera().WorldUnitsPerPixel(Vector(), w);
	const float length = unit * pGizmo->GetSizePixels();
	float fx, fy;
	ASSERT_TRUE(widget.Camera().ProjectToScreen(Vector(length * 0.6f, 0, 0), w, h, fx, fy));
	const QPoint grab((int)std::lround(fx), (int)std::lround(fy));
	const Vector cameraBefore = widget.Camera().GetPosition();

	// Hovering lights the handle up.
	MouseMove(&widget, grab);
	EXPECT_EQ(listener.m_eHover, GIZMO_HANDLE_X);

	QTest::mousePress(&widget, Qt::LeftButton, Qt::NoModifier, grab);
	EXPECT_EQ(listener.m_nStarts, 1);
	MouseMove(&widget, grab + QPoint(20, 0), Qt::LeftButton);
	MouseMove(&widget, grab + QPoint(40, 0), Qt::LeftButton);
	QTest::mouseRelease(&widget, Qt::LeftButton, Qt::NoModifier, grab + QPoint(40, 0));
	EXPECT_GE(listener.m_nMoves, 1);
	EXPECT_EQ(listener.m_nReleases, 1);
	// The axis lies at a constant depth in this view: pixels map to units exactly.
	const float expected = ((float)(grab.x() + 40) - (float)grab.x()) * unit;
	EXPECT_NEAR(listener.m_Released.m_vPosition.x, expected, 1e-2f);
	EXPECT_NEAR(listener.m_Released.m_vPosition.y, 0.0f, 1e-3f);
	EXPECT_NEAR(listener.m_Released.m_vPosition.z, 0.0f, 1e-3f);
	EXPECT_TRUE(listener.m_Released.m_vScale == Vector(1, 1, 1));
	EXPECT_TRUE(pGizmo->GetDeltaTransform().IsIdentity()) << "the listener reset it";
	EXPECT_EQ(clicks, 0) << "a drag is not a click";
	EXPECT_EQ(cameraMoves, 0) << "a gizmo drag does not move the camera";
	EXPECT_TRUE(widget.Camera().GetPosition() == cameraBefore);

	// Rotate mode on the same handle point misses (the rings lie elsewhere): the drag orbits.
	pGizmo->SetMode(GIZMO_MODE_ROTATE);
	QTest::mousePress(&widget, Qt::LeftButton, Qt::NoModifier, QPoint(10, 10));
	MouseMove(&widget, QPoint(40, 12), Qt::LeftButton);
	QTest::mouseRelease(&widget, Qt::LeftButton, Qt::NoModifier, QPoint(40, 12));
	EXPECT_EQ(listener.m_nStarts, 1);
	EXPECT_GE(cameraMoves, 1);
}

TEST_F(ToolSceneWidget, ClicksPickNodesAndCameraMovesAreReported)
{
	CQToolSceneWidget widget;
	widget.SetSelectionEnabled(true);
	CToolScene *pScene = widget.GetScene();
	CToolSceneModelNode *pNode = pScene->CreateModelNode("models/quad.zmdl");
	widget.Camera().SetPositionAndTarget(Vector(200, 0, 0), Vector(0, 0, 0));
	Show(widget);

	CToolSceneNode *pClicked = reinterpret_cast<CToolSceneNode *>(1);
	Qt::MouseButton clickedButton = Qt::NoButton;
	Vector hit;
	int clicks = 0, cameraMoves = 0;
	QObject::connect(&widget, &CQToolSceneWidget::OnNodeClicked,
		[&](ToolSceneTraceResult_t *pResult, Qt::MouseButton button, Qt::KeyboardModifiers) {
			++clicks;
			pClicked = pResult->m_pNode;
			clickedButton = button;
			hit = pResult->m_vHitPosition;
		});
	QObject::connect(&widget, &CQToolSceneWidget::SceneCameraChanged, [&cameraMoves]() { ++cameraMoves; });

	const QPoint centre(widget.width() / 2, widget.height() / 2);
	QTest::mouseClick(&widget, Qt::LeftButton, Qt::NoModifier, centre);
	EXPECT_EQ(clicks, 1);
	EXPECT_EQ(pClicked, pNode);
	EXPECT_EQ(clickedButton, Qt::LeftButton);
	EXPECT_NEAR(hit.x, 0.0f, 1e-3f);
	EXPECT_TRUE(pNode->IsSelected());

	QTest::mouseClick(&widget, Qt::RightButton, Qt::NoModifier, QPoint(3, 3));
	EXPECT_EQ(clicks, 2);
	EXPECT_EQ(pClicked, nullptr);
	EXPECT_EQ(clickedButton, Qt::RightButton);
	EXPECT_TRUE(pNode->IsSelected()) << "only left clicks select";
	QTest::mouseClick(&widget, Qt::LeftButton, Qt::NoModifier, QPoint(3, 3));
	EXPECT_EQ(pClicked, nullptr);
	EXPECT_FALSE(pNode->IsSelected());
	EXPECT_EQ(cameraMoves, 0);

	// A left drag orbits around the target and keeps the distance.
	const Vector target = widget.Camera().GetTarget();
	const float distance = widget.Camera().GetDistance();
	const float yaw = widget.Camera().GetAngles().y;
	QTest::mousePress(&widget, Qt::LeftButton, Qt::NoModifier, centre);
	MouseMove(&widget, centre + QPoint(50, 0), Qt::LeftButton);
	QTest::mouseRelease(&widget, Qt::LeftButton, Qt::NoModifier, centre + QPoint(50, 0));
	EXPECT_GE(cameraMoves, 1);
	EXPECT_EQ(clicks, 3);
	EXPECT_NE(widget.Camera().GetAngles().y, yaw);
	EXPECT_NEAR(SceneLength(widget.Camera().GetPosition() - target), distance, 1e-2f);

	// A right drag pans: the target moves.
	QTest::mousePress(&widget, Qt::RightButton, Qt::NoModifier, centre);
	MouseMove(&widget, centre + QPoint(0, 30), Qt::RightButton);
	QTest::mouseRelease(&widget, Qt::RightButton, Qt::NoModifier, centre + QPoint(0, 30));
	EXPECT_GT(SceneLength(widget.Camera().GetTarget() - target), 1.0f);

	// The wheel zooms in.
	const int before = cameraMoves;
	QWheelEvent wheel(QPointF(centre), QPointF(widget.mapToGlobal(centre)), QPoint(), QPoint(0, 120), Qt::NoButton, Qt::NoModifier,
		Qt::NoScrollPhase, false);
	QApplication::sendEvent(&widget, &wheel);
	EXPECT_NEAR(widget.Camera().GetDistance(), distance * 0.85f, 1e-2f);
	EXPECT_EQ(cameraMoves, before + 1);
}

TEST_F(ToolSceneWidget, AutoUpdateDrawsAndAnimatesEveryHostFrame)
{
	CUtlVector<ToolIdentity_t> tools;
	CToolFrameworkService framework(nullptr, tools);
	g_pToolFramework = &framework;
	{
		CQToolSceneWidgetAutoUpdate widget;
		EXPECT_EQ(framework.FrameListenerCount(), 1);
		CToolSceneModelNode *pNode = widget.GetScene()->CreateModelNode("models/strip.zmdl");
		ASSERT_TRUE(pNode->SetSequence("wave"));
		Show(widget);
		framework.RunFrameListeners(0.1f);
		EXPECT_EQ(widget.GetFrameCount(), 1);
		EXPECT_NEAR(pNode->GetFrame(), 1.0f, 1e-4f) << "10 frames a second";
		widget.SetAdvanceAnimation(false);
		framework.RunFrameListeners(0.1f);
		EXPECT_EQ(widget.GetFrameCount(), 2);
		EXPECT_NEAR(pNode->GetFrame(), 1.0f, 1e-4f);
		const QImage image = widget.grabFramebuffer();
		EXPECT_FALSE(image.isNull());
	}
	EXPECT_EQ(framework.FrameListenerCount(), 0);
	g_pToolFramework = nullptr;
}

TEST_F(ToolSceneWidget, AutoUpdateOutsideTheToolFrameworkEndsTheProcess)
{
	GTEST_FLAG_SET(death_test_style, "threadsafe");
	ASSERT_EQ(g_pToolFramework, nullptr);
	EXPECT_EXIT({ CQToolSceneWidgetAutoUpdate widget; }, testing::ExitedWithCode(1),
		"ERROR: Cannot use CQToolSceneWidgetAutoUpdate outside of Toolframework2!");
}
