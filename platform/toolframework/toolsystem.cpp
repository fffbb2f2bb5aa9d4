#include "toolframework/toolsystem.h"

#include <algorithm>
#include <cstring>

#include "core/logging.h"
#include "core/strtools.h"
#include "filesystem/filesystem.h"
#include "toolframework/toolframework.h"

IToolSettings *g_pToolSettings = nullptr;
IFileSystem *g_pFullFileSystem = nullptr;
IToolFramework *g_pToolFramework = nullptr;
IAddonService *g_pAddonService = nullptr;
IAssetBrowserService *g_pAssetBrowser = nullptr;
IInputBindingManager *g_pInputBindingManager = nullptr;

namespace
{
// The globals are shared by every tool of the process; they stay set while any tool is
// connected, so that one tool disconnecting does not pull the services from under another.
int s_nConnectedTools = 0;

void ClearGlobals()
{
	g_pToolSettings = nullptr;
	g_pFullFileSystem = nullptr;
	g_pToolFramework = nullptr;
	g_pAddonService = nullptr;
	g_pAssetBrowser = nullptr;
	g_pInputBindingManager = nullptr;
}
} // namespace

bool CBaseToolSystem2::Connect(CreateInterfaceFn factory)
{
	if (!factory)
	{
		Warning("Tool: Connect was given no factory\n");
		return false;
	}

	auto *pSettings = static_cast<IToolSettings *>(factory(TOOLSETTINGS_INTERFACE_VERSION, nullptr));
	auto *pFileSystem = static_cast<IFileSystem *>(factory(FILESYSTEM_INTERFACE_VERSION, nullptr));
	auto *pFramework = static_cast<IToolFramework *>(factory(TOOLFRAMEWORK_INTERFACE_VERSION, nullptr));
	if (!pSettings || !pFileSystem || !pFramework)
	{
		CUtlString missing;
		for (const auto &[pInterface, pName] : { std::pair<void *, const char *>{ pSettings, TOOLSETTINGS_INTERFACE_VERSION },
				 { pFileSystem, FILESYSTEM_INTERFACE_VERSION }, { pFramework, TOOLFRAMEWORK_INTERFACE_VERSION } })
		{
			if (pInterface)
				continue;
			if (!missing.empty())
				missing += ", ";
			missing += pName;
		}
		Warning("Tool: the host does not provide %s; the tool cannot connect\n", missing.c_str());
		return false;
	}

	g_pToolSettings = pSettings;
	g_pFullFileSystem = pFileSystem;
	g_pToolFramework = pFramework;
	// Optional services: a host without them leaves the globals null and the tool does without.
	g_pAddonService = static_cast<IAddonService *>(factory(ADDONSERVICE_INTERFACE_VERSION, nullptr));
	g_pAssetBrowser = static_cast<IAssetBrowserService *>(factory(ASSETBROWSER_INTERFACE_VERSION, nullptr));
	g_pInputBindingManager = static_cast<IInputBindingManager *>(factory(INPUTBINDING_INTERFACE_VERSION, nullptr));

	if (!m_bConnected)
	{
		m_bConnected = true;
		++s_nConnectedTools;
	}
	return true;
}

void CBaseToolSystem2::Disconnect()
{
	if (!m_bConnected)
		return;
	m_bConnected = false;
	if (--s_nConnectedTools <= 0)
	{
		s_nConnectedTools = 0;
		ClearGlobals();
	}
}

void *CBaseToolSystem2::QueryInterface(const char *interfaceName)
{
	if (interfaceName && strcmp(interfaceName, TOOLDICTIONARY_INTERFACE_VERSION) == 0)
		return static_cast<IToolDictionary *>(this);
	return nullptr;
}

InitReturnVal_t CBaseToolSystem2::Init()
{
	return INIT_OK;
}

void CBaseToolSystem2::Shutdown()
{
	// Taken out first: a function that adds another while the list runs adds it for the next
	// shutdown rather than to a list being walked.
	std::vector<std::function<void()>> list;
	list.swap(m_ShutdownList);
	for (auto it = list.rbegin(); it != list.rend(); ++it)
	{
		if (*it)
			(*it)();
	}
}

const AppSystemInfo_t *CBaseToolSystem2::GetDependencies()
{
	static const AppSystemInfo_t s_NoDependencies[] = { { nullptr, nullptr } };
	return s_NoDependencies;
}

void CBaseToolSystem2::Reconnect(CreateInterfaceFn factory, const char *)
{
	// Every service is looked up again; the name of the one that changed does not matter.
	Connect(factory);
}

bool CBaseToolSystem2::InitTool(CreateInterfaceFn, uint8 toolIndex)
{
	m_nToolIndex = toolIndex;
	return true;
}

IToolSystem2 *CBaseToolSystem2::GetTool(int index) const
{
	return index == 0 ? const_cast<CBaseToolSystem2 *>(this) : nullptr;
}

void CBaseToolSystem2::AddShutdownFunction(std::function<void()> fn)
{
	if (fn)
		m_ShutdownList.push_back(std::move(fn));
}

// ---------------------------------------------------------------------------------------------
// Tools registered by libraries

namespace
{
// Made on first use, so that registrations of libraries initialised before this one find it.
std::vector<CLibraryToolRegistration *> &LibraryTools()
{
	static std::vector<CLibraryToolRegistration *> s_Tools;
	return s_Tools;
}
} // namespace

CLibraryToolRegistration::CLibraryToolRegistration(const char *pszName, IToolSystem2 *pTool)
	: m_pszName(pszName ? pszName : ""), m_pTool(pTool)
{
	LibraryTools().push_back(this);
}

CLibraryToolRegistration::~CLibraryToolRegistration()
{
	std::erase(LibraryTools(), this);
}

IToolSystem2 *FindLibraryTool(const char *pszName)
{
	const std::vector<CLibraryToolRegistration *> &tools = LibraryTools();
	for (auto it = tools.rbegin(); it != tools.rend(); ++it)
	{
		if ((*it)->GetTool() && V_stricmp((*it)->GetName(), pszName ? pszName : "") == 0)
			return (*it)->GetTool();
	}
	return nullptr;
}
