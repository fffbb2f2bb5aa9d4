// The widgets that show a tool scene.
//
// CQToolSceneWidget draws its scene when Qt asks (RequestRender asks for a new picture) and
// turns the mouse into camera moves, clicks and gizmo drags:
// - left drag orbits around the camera's target, right or middle drag pans, the wheel zooms;
//   each user move emits SceneCameraChanged();
// - a left drag that starts on a gizmo handle drags the gizmo instead;
// - a click (press and release without moving) traces the scene under the mouse and emits
//   OnNodeClicked with the result (its node is null over empty space); with selection enabled
//   the clicked node becomes the selection (Ctrl adds to it).
//
// CQToolSceneWidgetAutoUpdate also draws every host frame: it is a frame listener of the tool
// framework, moves the scene's animations on by the frame time and asks for a picture. It can't
// exist outside the tool framework: without it, it logs an error and ends the process.
#pragma once

#include <QOpenGLWidget>
#include <QPoint>

#include <memory>

#include "toolframework/toolframework.h"
#include "toolscene/scenerenderer.h"
#include "toolscene/toolscene.h"

class CToolSceneGizmo;

class CQToolSceneWidget : public QOpenGLWidget
{
	Q_OBJECT

public:
	// The scene loads through `pResources` (null: CToolSceneResources::Default()).
	explicit CQToolSceneWidget(QWidget *pParent = nullptr, CToolSceneResources *pResources = nullptr);
	~CQToolSceneWidget() override;

	CToolScene *GetScene() const { return m_pScene.get(); }
	CToolSceneCamera &Camera() { return m_pScene->Camera(); }
	CToolSceneRenderer &Renderer() { return m_Renderer; }

	void SetGroundEnabled(bool bEnabled);
	void SetGridEnabled(bool bEnabled);
	void SetSelectionEnabled(bool bEnabled);

	// Asks for a new picture (drawn at the next paint).
	void RequestRender();
	// Moves the camera so that every visible model is in view.
	void FrameScene();
	// The message of a failed GL start (empty when drawing works).
	const CUtlString &GetRendererError() const { return m_RendererError; }

Q_SIGNALS:
	void OnNodeClicked(ToolSceneTraceResult_t *pResult, Qt::MouseButton button, Qt::KeyboardModifiers modifiers);
	void SceneCameraChanged();

protected:
	// Called once, after the GL context exists and before the first picture: the place to make
	// the scene's objects.
	virtual void InitializeScene() {}

	void initializeGL() override;
	void paintGL() override;
	void mousePressEvent(QMouseEvent *pEvent) override;
	void mouseMoveEvent(QMouseEvent *pEvent) override;
	void mouseReleaseEvent(QMouseEvent *pEvent) override;
	void wheelEvent(QWheelEvent *pEvent) override;
	void leaveEvent(QEvent *pEvent) override;

private Q_SLOTS:
	void OnContextAboutToBeDestroyed();

private:
	void UpdateGizmoHover(const QPoint &position);

	std::unique_ptr<CToolScene> m_pScene;
	CToolSceneRenderer m_Renderer;
	CUtlString m_RendererError;
	bool m_bSceneInitialized = false;
	QPoint m_PressPosition;
	QPoint m_LastPosition;
	Qt::MouseButton m_ePressButton = Qt::NoButton;
	bool m_bMoved = false;
	CToolSceneGizmo *m_pDragGizmo = nullptr;
};

class CQToolSceneWidgetAutoUpdate : public CQToolSceneWidget, public IToolFrameListener
{
	Q_OBJECT

public:
	explicit CQToolSceneWidgetAutoUpdate(QWidget *pParent = nullptr, CToolSceneResources *pResources = nullptr);
	~CQToolSceneWidgetAutoUpdate() override;

	void OnToolFrame(float flFrameTime) override;

	// Whether each frame moves the scene's animations on (on at first). Off when the owner
	// advances them itself.
	void SetAdvanceAnimation(bool bAdvance) { m_bAdvanceAnimation = bAdvance; }
	bool IsAdvancingAnimation() const { return m_bAdvanceAnimation; }
	// Host frames received so far.
	int GetFrameCount() const { return m_nFrames; }

private:
	bool m_bAdvanceAnimation = true;
	int m_nFrames = 0;
};
