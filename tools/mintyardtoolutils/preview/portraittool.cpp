#include "mintyardtoolutils/preview/portraittool.h"

#include <cstring>

#include "core/keyvalues.h"
#include "core/logging.h"
#include "core/pathutils.h"
#include "core/strtools.h"
#include "filesystem/filesystem.h"
#include "mintyardtoolutils/preview/portraiticonrender.h"
#include "toolframework/toolframework.h"

DEFINE_LOGGING_CHANNEL(LOG_PORTRAIT_EDITOR, "PortraitEditor");

CZarnPortraitEditorTool::CZarnPortraitEditorTool() = default;
CZarnPortraitEditorTool::~CZarnPortraitEditorTool() = default;

void *CZarnPortraitEditorTool::QueryInterface(const char *pszInterfaceName)
{
	if (pszInterfaceName && strcmp(pszInterfaceName, MINTYARD_PORTRAIT_ICONS_INTERFACE_VERSION) == 0)
		return static_cast<IMintyardPortraitIcons *>(this);
	return CBaseToolSystem2::QueryInterface(pszInterfaceName);
}

CUtlString CZarnPortraitEditorTool::OutputRoot() const
{
	if (!m_OutputRoot.empty())
		return m_OutputRoot;
	CUtlVector<CUtlString> paths;
	if (g_pFullFileSystem)
		g_pFullFileSystem->GetSearchPathList("GAME", paths);
	return paths.empty() ? CUtlString() : paths[0];
}

bool CZarnPortraitEditorTool::GenerateIcons(const char *pszKind, KeyValues *pItemKeys, int nFlags)
{
	m_Jobs.clear();
	if (!pszKind || strcmp(pszKind, "mintyard") != 0)
	{
		Log_Warning(LOG_PORTRAIT_EDITOR, "Portrait editor: no icons of the kind '%s'\n", pszKind ? pszKind : "");
		return false;
	}
	KeyValues *pPortraits = pItemKeys ? pItemKeys->FindKey("portraits") : nullptr;
	if (!pPortraits || !pPortraits->GetFirstTrueSubKey())
	{
		Log_Warning(LOG_PORTRAIT_EDITOR, "Portrait editor: item %s has no portraits, so no icons\n", pItemKeys ? pItemKeys->GetName() : "(none)");
		return false;
	}
	const CUtlString root = OutputRoot();
	if (root.empty())
	{
		Log_Warning(LOG_PORTRAIT_EDITOR, "Portrait editor: no game folder to write icons into\n");
		return false;
	}
	for (KeyValues *pPortrait = pPortraits->GetFirstTrueSubKey(); pPortrait; pPortrait = pPortrait->GetNextTrueSubKey())
	{
		CZarnPortraitRecord record;
		record.ReadKeys(pPortrait);
		for (int nSize : GetZarnPortraitIconSizes())
		{
			IconJob_t job;
			job.m_ModelPath = pPortrait->GetName();
			job.m_Record = record;
			job.m_nSize = nSize;
			job.m_bTransparent = m_bTransparent || (nFlags & MINTYARD_PORTRAIT_ICONS_TRANSPARENT) != 0;
			job.m_OutputPath = V_NormalizePath(V_JoinPath(root, GetZarnPortraitIconPath(job.m_ModelPath.c_str(), nSize)));
			m_Jobs.push_back(job);
		}
	}
	// The item names its picture: the first model's.
	pItemKeys->SetString("image_inventory", GetZarnPortraitImageInventory(pPortraits->GetFirstTrueSubKey()->GetName()).c_str());
	return true;
}

void CZarnPortraitEditorTool::FinishIcons()
{
	m_Written.clear();
	m_Errors.clear();
	if (m_Jobs.empty())
		return;
	if (!m_pRenderer)
		m_pRenderer = std::make_unique<CZarnPortraitIconRenderer>();
	for (const IconJob_t &job : m_Jobs)
	{
		ZarnPortraitIconOptions_t options;
		options.m_nSize = job.m_nSize;
		options.m_nPreviewMode = 2;
		options.m_bTransparentBackground = job.m_bTransparent;
		CUtlString error;
		if (m_pRenderer->WriteIcon(job.m_ModelPath.c_str(), job.m_Record, options, job.m_OutputPath.c_str(), &error))
		{
			m_Written.push_back(job.m_OutputPath);
			Log_Msg(LOG_PORTRAIT_EDITOR, "Portrait editor: wrote %s\n", job.m_OutputPath.c_str());
		}
		else
		{
			m_Errors.push_back(error);
			Log_Warning(LOG_PORTRAIT_EDITOR, "Portrait editor: no icon %s: %s\n", job.m_OutputPath.c_str(), error.c_str());
		}
	}
	m_Jobs.clear();
}

void CZarnPortraitEditorTool::ReleaseIcons()
{
	m_Jobs.clear();
	m_pRenderer.reset();
}

// ---------------------------------------------------------------------------------------------
// The tool offered by name when the library loads.

namespace
{
CZarnPortraitEditorTool s_PortraitEditorTool;
CLibraryToolRegistration s_PortraitEditorRegistration(MINTYARD_PORTRAIT_EDITOR_TOOL_NAME, &s_PortraitEditorTool);
} // namespace

CZarnPortraitEditorTool &GetZarnPortraitEditorTool()
{
	return s_PortraitEditorTool;
}
