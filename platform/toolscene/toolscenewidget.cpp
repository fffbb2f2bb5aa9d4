#include "toolscene/toolscenewidget.h"

#include <QMouseEvent>
#include <QOpenGLContext>
#include <QWheelEvent>

#include <cmath>

#include "core/logging.h"
#include "toolscene/scenegizmo.h"

namespace
{
constexpr float ORBIT_DEGREES_PER_PIXEL = 0.4f;
constexpr int CLICK_SLOP_PIXELS = 3;

QSurfaceFormat SceneSurfaceFormat()
{
	QSurfaceFormat format;
	format.setVersion(3, 3);
	format.setProfile(QSurfaceFormat::CoreProfile);
	format.setDepthBufferSize(24);
	format.setStencilBufferSize(8);
	return format;
}
} // namespace

CQToolSceneWidget::CQToolSceneWidget(QWidget *pParent, CToolSceneResources *pResources)
	: QOpenGLWidget(pParent), m_pScene(std::make_unique<CToolScene>(pResources))
{
	setFormat(SceneSurfaceFormat());
	setMouseTracking(true);
	setFocusPolicy(Qt::StrongFocus);
	setMinimumSize(64, 64);
}

CQToolSceneWidget::~CQToolSceneWidget()
{
	// The base class destroys the context after this object's members are gone.
	if (context())
	{
		disconnect(context(), nullptr, this, nullptr);
		if (m_Renderer.IsInitialized())
		{
			makeCurrent();
			m_Renderer.Shutdown();
			doneCurrent();
		}
	}
}

void CQToolSceneWidget::SetGroundEnabled(bool bEnabled)
{
	m_pScene->SetGroundEnabled(bEnabled);
	RequestRender();
}

void CQToolSceneWidget::SetGridEnabled(bool bEnabled)
{
	m_pScene->SetGridEnabled(bEnabled);
	RequestRender();
}

void CQToolSceneWidget::SetSelectionEnabled(bool bEnabled)
{
	m_pScene->SetSelectionEnabled(bEnabled);
	RequestRender();
}

void CQToolSceneWidget::RequestRender()
{
	update();
}

void CQToolSceneWidget::FrameScene()
{
	Vector mins, maxs;
	if (m_pScene->GetVisibleBounds(mins, maxs))
	{
		m_pScene->Camera().FrameBounds(mins, maxs, height() > 0 ? (float)width() / (float)height() : 1.0f);
		RequestRender();
	}
}

void CQToolSceneWidget::initializeGL()
{
	connect(context(), SIGNAL(aboutToBeDestroyed()), this, SLOT(OnContextAboutToBeDestroyed()), Qt::UniqueConnection);
	m_RendererError.clear();
	if (!m_Renderer.Init(&m_RendererError))
		Log_Warning(LOG_TOOLSCENE, "The tool scene cannot draw: %s\n", m_RendererError.c_str());
	if (!m_bSceneInitialized)
	{
		m_bSceneInitialized = true;
		InitializeScene();
	}
}

void CQToolSceneWidget::OnContextAboutToBeDestroyed()
{
	makeCurrent();
	m_Renderer.Shutdown();
	doneCurrent();
}

void CQToolSceneWidget::paintGL()
{
	if (!m_Renderer.IsInitialized())
		return;
	const qreal ratio = devicePixelRatioF();
	m_Renderer.Render(*m_pScene, m_pScene->Camera(), (int)std::lround(width() * ratio), (int)std::lround(height() * ratio),
		defaultFramebufferObject());
}

void CQToolSceneWidget::mousePressEvent(QMouseEvent *pEvent)
{
	m_PressPosition = pEvent->pos();
	m_LastPosition = pEvent->pos();
	m_ePressButton = pEvent->button();
	m_bMoved = false;
	m_pDragGizmo = nullptr;
	if (pEvent->button() == Qt::LeftButton)
	{
		for (int g = 0; g < m_pScene->GetGizmoCount(); ++g)
		{
			CToolSceneGizmo *pGizmo = m_pScene->GetGizmo(g);
			if (pGizmo->IsVisible() &&
				pGizmo->BeginDrag(m_pScene->Camera(), width(), height(), (float)pEvent->pos().x(), (float)pEvent->pos().y()))
			{
				m_pDragGizmo = pGizmo;
				RequestRender();
				break;
			}
		}
	}
	pEvent->accept();
}

void CQToolSceneWidget::mouseMoveEvent(QMouseEvent *pEvent)
{
	const QPoint position = pEvent->pos();
	if (m_ePressButton == Qt::NoButton)
	{
		UpdateGizmoHover(position);
		return;
	}
	if ((position - m_PressPosition).manhattanLength() > CLICK_SLOP_PIXELS)
		m_bMoved = true;
	const QPoint delta = position - m_LastPosition;
	m_LastPosition = position;
	if (m_pDragGizmo)
	{
		m_pDragGizmo->UpdateDrag(m_pScene->Camera(), width(), height(), (float)position.x(), (float)position.y());
		RequestRender();
		return;
	}
	if (!m_bMoved || delta.isNull())
		return;
	CToolSceneCamera &camera = m_pScene->Camera();
	if (m_ePressButton == Qt::LeftButton)
		camera.Orbit(-(float)delta.x() * ORBIT_DEGREES_PER_PIXEL, (float)delta.y() * ORBIT_DEGREES_PER_PIXEL);
	else if (m_ePressButton == Qt::RightButton || m_ePressButton == Qt::MiddleButton)
		camera.Pan((float)delta.x(), (float)delta.y(), height());
	else
		return;
	RequestRender();
	Q_EMIT SceneCameraChanged();
}

void CQToolSceneWidget::mouseReleaseEvent(QMouseEvent *pEvent)
{
	if (pEvent->button() != m_ePressButton)
		return;
	const Qt::MouseButton button = m_ePressButton;
	m_ePressButton = Qt::NoButton;
	if (m_pDragGizmo)
	{
		CToolSceneGizmo *pGizmo = m_pDragGizmo;
		m_pDragGizmo = nullptr;
		pGizmo->EndDrag();
		RequestRender();
		return;
	}
	if (m_bMoved)
		return;
	ToolSceneTraceResult_t result;
	m_pScene->TracePixel((float)pEvent->pos().x(), (float)pEvent->pos().y(), width(), height(), result);
	if (m_pScene->IsSelectionEnabled() && button == Qt::LeftButton)
	{
		const bool bAdd = (pEvent->modifiers() & Qt::ControlModifier) != 0;
		if (result.m_pNode)
			m_pScene->SelectNode(result.m_pNode, bAdd);
		else if (!bAdd)
			m_pScene->ClearSelection();
		RequestRender();
	}
	Q_EMIT OnNodeClicked(&result, button, pEvent->modifiers());
}

void CQToolSceneWidget::wheelEvent(QWheelEvent *pEvent)
{
	const int steps = pEvent->angleDelta().y();
	if (steps == 0)
		return;
	// One notch (120) brings the camera 15% closer.
	m_pScene->Camera().Zoom(std::pow(0.85f, (float)steps / 120.0f));
	RequestRender();
	Q_EMIT SceneCameraChanged();
	pEvent->accept();
}

void CQToolSceneWidget::leaveEvent(QEvent *pEvent)
{
	for (int g = 0; g < m_pScene->GetGizmoCount(); ++g)
		m_pScene->GetGizmo(g)->SetHoverHandle(GIZMO_HANDLE_NONE);
	RequestRender();
	QOpenGLWidget::leaveEvent(pEvent);
}

void CQToolSceneWidget::UpdateGizmoHover(const QPoint &position)
{
	bool bChanged = false;
	for (int g = 0; g < m_pScene->GetGizmoCount(); ++g)
	{
		CToolSceneGizmo *pGizmo = m_pScene->GetGizmo(g);
		const EToolSceneGizmoHandle handle = pGizmo->HitTest(m_pScene->Camera(), width(), height(), (float)position.x(), (float)position.y());
		if (handle != pGizmo->GetHoverHandle())
		{
			pGizmo->SetHoverHandle(handle);
			bChanged = true;
		}
	}
	if (bChanged)
		RequestRender();
}

// ---------------------------------------------------------------------------------------------

CQToolSceneWidgetAutoUpdate::CQToolSceneWidgetAutoUpdate(QWidget *pParent, CToolSceneResources *pResources)
	: CQToolSceneWidget(pParent, pResources)
{
	if (!g_pToolFramework)
		Plat_FatalError("ERROR: Cannot use CQToolSceneWidgetAutoUpdate outside of Toolframework2!\n");
	g_pToolFramework->AddFrameListener(this);
}

CQToolSceneWidgetAutoUpdate::~CQToolSceneWidgetAutoUpdate()
{
	if (g_pToolFramework)
		g_pToolFramework->RemoveFrameListener(this);
}

void CQToolSceneWidgetAutoUpdate::OnToolFrame(float flFrameTime)
{
	++m_nFrames;
	if (m_bAdvanceAnimation)
		GetScene()->Advance(flFrameTime);
	RequestRender();
}
