#include "mintyardtoolutils/preview/previewrender.h"

#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

#include "compiledassets/compiledassets.h"
#include "mintyardtoolutils/preview/previewmodelset.h"
#include "mintyardtoolutils/preview/previewscene.h"
#include "toolscene/sceneoffscreen.h"
#include "toolscene/toolscene.h"

CZarnPreviewRenderer::CZarnPreviewRenderer(CToolSceneResources *pResources)
	: m_pScene(std::make_unique<CToolScene>(pResources)), m_pOffscreen(std::make_unique<CToolSceneOffscreenRenderer>())
{
	m_pPreview = std::make_unique<CZarnPreviewScene>(m_pScene.get());
	m_pScene->SetGroundEnabled(true);
	m_pScene->SetGridEnabled(true);
}

CZarnPreviewRenderer::~CZarnPreviewRenderer()
{
	m_pPreview.reset();
	m_pScene.reset();
}

bool CZarnPreviewRenderer::Init(CUtlString *pError)
{
	return m_pOffscreen->Init(pError);
}

void CZarnPreviewRenderer::ShowSet(const CZarnPreviewModelSet &set)
{
	m_Problems.RemoveNodes(*m_pScene);
	m_Problems.Clear();
	m_bProblems = false;
	m_pPreview->Build(set);
}

bool CZarnPreviewRenderer::ShowModel(const char *pszModelPath, const char *pszSequence, CUtlString *pError)
{
	CZarnPreviewModelSet set(&m_pScene->Resources());
	set.SetPreviewMode(ZARN_PREVIEW_MODE_ITEM);
	if (!set.SetModel(pszModelPath, -1, -1))
	{
		CUtlString error;
		m_pScene->Resources().LoadModel(pszModelPath, &error);
		if (pError)
			*pError = error.empty() ? CUtlString("no compiled model at ") + (pszModelPath ? pszModelPath : "") : error;
		return false;
	}
	if (pszSequence)
		set.SetSequence(pszSequence);
	ShowSet(set);
	if (!m_pPreview->GetSubjectNode() || !m_pPreview->GetSubjectNode()->HasModel())
	{
		if (pError)
			*pError = m_pPreview->GetLoadErrors().empty() ? CUtlString("the model does not load") : m_pPreview->GetLoadErrors()[0];
		return false;
	}
	return true;
}

void CZarnPreviewRenderer::SetFrame(int nFrame)
{
	if (CToolSceneModelNode *pSubject = m_pPreview->GetSubjectNode())
	{
		pSubject->SetPlaying(false);
		pSubject->SetFrame((float)nFrame);
	}
}

bool CZarnPreviewRenderer::ShowMeshProblems(const char *pszContentRoot, const char *pszModelDocument, CUtlString *pError)
{
	m_Problems.RemoveNodes(*m_pScene);
	m_bProblems = false;
	const CToolSceneModelNode *pNode = m_pPreview->GetModelNode();
	if (!pNode || !pNode->HasModel())
	{
		if (pError)
			*pError = "no model to check";
		return false;
	}
	if (!m_Problems.Load(pszContentRoot, pszModelDocument, *pNode->GetCompiledModel(), pError))
		return false;
	m_bProblems = true;
	m_Problems.UpdateNodes(*m_pScene, *pNode);
	return true;
}

bool CZarnPreviewRenderer::Render(const ZarnPreviewRenderView_t &view, QImage &out, CUtlString *pError)
{
	if (view.m_nWidth < 1 || view.m_nHeight < 1)
	{
		if (pError)
			*pError = "the picture needs a size of at least 1x1";
		return false;
	}
	if (m_bProblems && m_pPreview->GetModelNode())
		m_Problems.UpdateNodes(*m_pScene, *m_pPreview->GetModelNode());
	m_pPreview->FrameCamera(m_pScene->Camera(), (float)view.m_nWidth / (float)view.m_nHeight, view.m_flYaw, view.m_flPitch);
	return m_pOffscreen->Render(*m_pScene, view.m_nWidth, view.m_nHeight, out, pError);
}

bool CZarnPreviewRenderer::RenderFrame(int nWidth, int nHeight, CUtlString *pError)
{
	if (m_bProblems && m_pPreview->GetModelNode())
		m_Problems.UpdateNodes(*m_pScene, *m_pPreview->GetModelNode());
	return m_pOffscreen->RenderWithoutReadback(*m_pScene, nWidth, nHeight, pError);
}

void CZarnPreviewRenderer::Advance(float flSeconds)
{
	m_pScene->Advance(flSeconds);
}

bool ZarnPreviewHasDisplay()
{
	if (const char *pszWayland = getenv("WAYLAND_DISPLAY"); pszWayland && *pszWayland)
		return true;
	const char *pszDisplay = getenv("DISPLAY");
	if (!pszDisplay || !*pszDisplay)
		return false;
	// A local display ":N" (or ":N.S") listens on its socket; without it Qt would end the process.
	if (pszDisplay[0] == ':')
	{
		const int nDisplay = atoi(pszDisplay + 1);
		char socket[64];
		snprintf(socket, sizeof(socket), "/tmp/.X11-unix/X%d", nDisplay);
		struct stat info;
		return stat(socket, &info) == 0;
	}
	return true;
}
