// The tool framework proper (identities, tool registry, frame listeners, global objects,
// resource paths), the addon service, the asset browser and the input-binding manager.
#include <algorithm>
#include <cstring>
#include <dirent.h>
#include <set>

#include <QDesktopServices>
#include <QGuiApplication>
#include <QUrl>

#include "core/fileio.h"
#include "core/logging.h"
#include "core/pathutils.h"
#include "core/strtools.h"
#include "filesystem/filesystem.h"
#include "toolframework/toolservices.h"
#include "toolframework/toolsystem.h"

// ---------------------------------------------------------------------------------------------
// CToolFrameworkService

CToolFrameworkService::CToolFrameworkService(IFileSystem *pFileSystem, const CUtlVector<ToolIdentity_t> &tools)
	: m_pFileSystem(pFileSystem), m_Tools(tools)
{
}

const ToolIdentity_t *CToolFrameworkService::GetToolIdentity(uint8 toolIndex)
{
	return toolIndex < m_Tools.size() ? &m_Tools[toolIndex] : nullptr;
}

IToolSystem2 *CToolFrameworkService::FindToolByName(const char *name)
{
	for (const RegisteredTool_t &entry : m_Registry)
	{
		if (V_stricmp(entry.m_Name.c_str(), name ? name : "") == 0)
			return entry.m_pTool;
	}
	// Then the tools that loaded libraries offer.
	return FindLibraryTool(name);
}

void CToolFrameworkService::RegisterTool(const char *name, IToolSystem2 *tool)
{
	if (!name || !*name)
	{
		Warning("Tool framework: a tool was registered without a name; ignored\n");
		return;
	}
	if (!tool)
	{
		UnregisterTool(name);
		return;
	}
	// A name is one tool: registering it again replaces the earlier one (a reloaded library).
	for (RegisteredTool_t &entry : m_Registry)
	{
		if (V_stricmp(entry.m_Name.c_str(), name) == 0)
		{
			entry.m_pTool = tool;
			return;
		}
	}
	m_Registry.push_back({ name, tool });
}

void CToolFrameworkService::UnregisterTool(const char *name)
{
	std::erase_if(m_Registry, [&](const RegisteredTool_t &entry) { return V_stricmp(entry.m_Name.c_str(), name ? name : "") == 0; });
}

void CToolFrameworkService::AddFrameListener(IToolFrameListener *listener)
{
	if (listener && std::find(m_FrameListeners.begin(), m_FrameListeners.end(), listener) == m_FrameListeners.end())
		m_FrameListeners.push_back(listener);
}

void CToolFrameworkService::RemoveFrameListener(IToolFrameListener *listener)
{
	if (!listener)
		return;
	auto it = std::find(m_FrameListeners.begin(), m_FrameListeners.end(), listener);
	if (it == m_FrameListeners.end())
		return;
	// While the listeners are being called the list must keep its shape: the entry becomes
	// null and goes when the walk is over.
	if (m_nFrameDepth > 0)
		*it = nullptr;
	else
		m_FrameListeners.erase(it);
}

void CToolFrameworkService::RunFrameListeners(float frameTime)
{
	++m_nFrameDepth;
	// Listeners added during the walk are called from the next frame on.
	const size_t count = m_FrameListeners.size();
	for (size_t i = 0; i < count && i < m_FrameListeners.size(); ++i)
	{
		if (IToolFrameListener *listener = m_FrameListeners[i])
			listener->OnToolFrame(frameTime);
	}
	if (--m_nFrameDepth == 0)
		std::erase(m_FrameListeners, nullptr);
}

int CToolFrameworkService::FrameListenerCount() const
{
	return (int)std::count_if(m_FrameListeners.begin(), m_FrameListeners.end(), [](IToolFrameListener *p) { return p != nullptr; });
}

void *CToolFrameworkService::FindGlobalObject(const char *name)
{
	auto it = m_GlobalObjects.find(name ? name : "");
	return it == m_GlobalObjects.end() ? nullptr : it->second;
}

void CToolFrameworkService::SetGlobalObject(const char *name, void *object)
{
	if (!name || !*name)
		return;
	if (object)
		m_GlobalObjects[name] = object;
	else
		m_GlobalObjects.erase(name);
}

CUtlString CToolFrameworkService::ResolveResourcePath(const char *path)
{
	if (!path)
		return CUtlString();
	if (!V_StrBeginsWithNoCase(path, "game:"))
		return path;

	// A resource lies inside the game tree and may not climb out of it.
	CUtlString relative;
	if (!V_IsSafeRelativePath(path + 5, &relative))
		return CUtlString();
	if (!m_pFileSystem)
		return CUtlString();
	char full[4096];
	if (!m_pFileSystem->RelativePathToFullPath(relative.c_str(), "GAME", full, sizeof(full)))
		return CUtlString();
	return full;
}

// ---------------------------------------------------------------------------------------------
// CAddonService

CAddonService::CAddonService(const CUtlString &root, const CUtlString &mod, const CUtlVector<CUtlString> &mountedAddons)
	: m_Root(root), m_Mod(mod), m_MountedAddons(mountedAddons)
{
}

void CAddonService::GetAddonList(CUtlVector<CUtlString> &out)
{
	out.clear();
	// Byte order keeps "Arena" and "arena" apart, as the file system does.
	std::set<CUtlString> names;
	for (const CUtlString &folder : { GetAddonsGameRoot(), GetAddonsContentRoot() })
	{
		// A game without addons has no such folder; that is no error.
		DIR *dir = opendir(folder.c_str());
		if (!dir)
			continue;
		while (const dirent *entry = readdir(dir))
		{
			if (entry->d_name[0] == '.')
				continue;
			if (Plat_IsDirectory((folder + "/" + entry->d_name).c_str()))
				names.insert(entry->d_name);
		}
		closedir(dir);
	}
	out.assign(names.begin(), names.end());
}

void CAddonService::GetMountedAddons(CUtlVector<CUtlString> &out)
{
	out = m_MountedAddons;
}

CUtlString CAddonService::GetAddonGamePath(const char *addon)
{
	return GetAddonsGameRoot() + "/" + (addon ? addon : "");
}

CUtlString CAddonService::GetAddonContentPath(const char *addon)
{
	return GetAddonsContentRoot() + "/" + (addon ? addon : "");
}

CUtlString CAddonService::GetAddonsGameRoot()
{
	return m_Root + "/game/" + m_Mod + "_addons";
}

CUtlString CAddonService::GetAddonsContentRoot()
{
	return m_Root + "/content/" + m_Mod + "_addons";
}

// ---------------------------------------------------------------------------------------------
// CAssetBrowserService

CAssetBrowserService::CAssetBrowserService(const CUtlString &root, const CUtlString &mod) : m_Root(root), m_Mod(mod)
{
}

CUtlString CAssetBrowserService::GetContentFolder()
{
	return m_Root + "/content/" + m_Mod;
}

bool CAssetBrowserService::ShowAssetBrowser()
{
	const CUtlString folder = GetContentFolder();
	Msg("Asset browser: %s\n", folder.c_str());
	if (!Plat_IsDirectory(folder.c_str()))
	{
		Warning("Asset browser: the content folder %s does not exist\n", folder.c_str());
		return false;
	}
	// Opening a folder needs the desktop's services, which only a GUI application reaches.
	if (!qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
		return false;
	return QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromUtf8(folder.c_str())));
}

// ---------------------------------------------------------------------------------------------
// CInputBindingManager

bool CInputBindingManager::RegisterBindTarget(IBindTarget *target, const char *name, const char *className)
{
	if (!target || !name || !*name)
		return false;
	if (FindBindTarget(name))
	{
		Warning("Input binding: a target named \"%s\" is registered already\n", name);
		return false;
	}
	m_Targets.push_back({ target, name, className ? className : "" });
	return true;
}

void CInputBindingManager::UnregisterBindTarget(IBindTarget *target)
{
	std::erase_if(m_Targets, [&](const BindTarget_t &entry) { return entry.m_pTarget == target; });
}

IBindTarget *CInputBindingManager::FindBindTarget(const char *name)
{
	for (const BindTarget_t &entry : m_Targets)
	{
		if (V_stricmp(entry.m_Name.c_str(), name ? name : "") == 0)
			return entry.m_pTarget;
	}
	return nullptr;
}

const char *CInputBindingManager::FindBindTargetClass(const char *name)
{
	for (const BindTarget_t &entry : m_Targets)
	{
		if (V_stricmp(entry.m_Name.c_str(), name ? name : "") == 0)
			return entry.m_ClassName.c_str();
	}
	return nullptr;
}
