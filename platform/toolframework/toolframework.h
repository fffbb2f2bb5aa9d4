// The services of the tool framework that the host provides to its tools: the settings document
// per tool, the tool registry and identity records, the command line, console variables,
// localisation of "#" tokens, the addon service, the asset browser, the input-binding manager,
// per-frame listeners and named global objects.
//
// The host creates one CToolFrameworkHost (below); its factory hands the services out by the
// interface names of this file. A tool's CBaseToolSystem2::Connect fills the globals.
#pragma once

#include <functional>
#include <memory>

#include "core/keyvalues3.h"
#include "core/utlstring.h"
#include "core/utlvector.h"
#include "toolframework/appsystem.h"
#include "toolframework/commandline.h"
#include "toolframework/convar.h"
#include "toolframework/localize.h"

class IFileSystem;
class IToolSystem2;

#define TOOLSETTINGS_INTERFACE_VERSION "VToolSettings001"
#define TOOLFRAMEWORK_INTERFACE_VERSION "VToolFramework003"
#define ADDONSERVICE_INTERFACE_VERSION "VAddonService001"
#define ASSETBROWSER_INTERFACE_VERSION "VAssetBrowser001"
#define INPUTBINDING_INTERFACE_VERSION "VInputBindingManager001"

// The settings document of each tool: a KV3 table kept in a file per tool under
// $XDG_CONFIG_HOME/mintyard/ (~/.config/mintyard/ when unset), named by the tool.
class IToolSettings
{
public:
	// Copies the tool's document into `out` (an empty table when there is none yet).
	virtual void ReadToolSettings(uint8 toolIndex, KeyValues3 *out) = 0;
	// Merges the members of `settings` into the tool's document (members it does not name
	// stay) and writes the file, atomically. False when the file cannot be written.
	virtual bool WriteToolSettings(uint8 toolIndex, const KeyValues3 *settings) = 0;
	// The file that holds the tool's document.
	virtual CUtlString GetToolSettingsPath(uint8 toolIndex) = 0;

protected:
	~IToolSettings() = default;
};

// What the host knows of a tool.
struct ToolIdentity_t
{
	CUtlString m_Name;	   // registry name: "mintyardmanager"
	CUtlString m_Title;	   // window title
	CUtlString m_IconPath; // "game:tools/images/..."
};

class IToolFrameListener
{
public:
	virtual void OnToolFrame(float frameTime) = 0;

protected:
	~IToolFrameListener() = default;
};

class IToolFramework
{
public:
	// The identity record of a tool by its index (null when unknown).
	virtual const ToolIdentity_t *GetToolIdentity(uint8 toolIndex) = 0;
	// The tool registry: tools by name ("portraitEditor", "item_editor"). Null when absent.
	virtual IToolSystem2 *FindToolByName(const char *name) = 0;
	virtual void RegisterTool(const char *name, IToolSystem2 *tool) = 0;
	virtual void UnregisterTool(const char *name) = 0;

	// Per-frame listeners, called once per host frame after the tools' frames.
	virtual void AddFrameListener(IToolFrameListener *listener) = 0;
	virtual void RemoveFrameListener(IToolFrameListener *listener) = 0;

	// Named global objects ("ToolObjects/GlobalLight"); null when none is registered.
	virtual void *FindGlobalObject(const char *name) = 0;
	virtual void SetGlobalObject(const char *name, void *object) = 0;

	// "game:relative/path" through the "GAME" search path, other paths as they stand. Empty
	// when a "game:" file does not exist.
	virtual CUtlString ResolveResourcePath(const char *path) = 0;

protected:
	~IToolFramework() = default;
};

// Addons: folders under <root>/game/<mod>_addons/ and <root>/content/<mod>_addons/.
class IAddonService
{
public:
	// Every addon, by folder name, sorted, each once.
	virtual void GetAddonList(CUtlVector<CUtlString> &out) = 0;
	// The addons mounted with the host's "-addon NAME" option, in the order given.
	virtual void GetMountedAddons(CUtlVector<CUtlString> &out) = 0;
	virtual CUtlString GetAddonGamePath(const char *addon) = 0;	  // <root>/game/<mod>_addons/<addon>
	virtual CUtlString GetAddonContentPath(const char *addon) = 0; // <root>/content/<mod>_addons/<addon>
	virtual CUtlString GetAddonsGameRoot() = 0;					  // <root>/game/<mod>_addons
	virtual CUtlString GetAddonsContentRoot() = 0;				  // <root>/content/<mod>_addons

protected:
	~IAddonService() = default;
};

// The asset browser: shows the content folder of the game.
class IAssetBrowserService
{
public:
	virtual bool ShowAssetBrowser() = 0;
	virtual CUtlString GetContentFolder() = 0;

protected:
	~IAssetBrowserService() = default;
};

// Input binding: windows register as targets of key bindings under a name and a class.
class IBindTarget
{
public:
	virtual const char *GetBindTargetName() const = 0;

protected:
	~IBindTarget() = default;
};

class IInputBindingManager
{
public:
	virtual bool RegisterBindTarget(IBindTarget *target, const char *name, const char *className) = 0;
	virtual void UnregisterBindTarget(IBindTarget *target) = 0;
	virtual IBindTarget *FindBindTarget(const char *name) = 0;

protected:
	~IInputBindingManager() = default;
};

// The services a connected tool reaches (set by CBaseToolSystem2::Connect; null before).
extern IToolSettings *g_pToolSettings;
extern IFileSystem *g_pFullFileSystem;
extern IToolFramework *g_pToolFramework;
extern IAddonService *g_pAddonService;
extern IAssetBrowserService *g_pAssetBrowser;
extern IInputBindingManager *g_pInputBindingManager;

// Everything the host needs to give its tools the framework.
struct ToolFrameworkConfig_t
{
	CUtlString m_GameDirectory;	 // <root>/game/<mod>
	CUtlVector<CUtlString> m_MountedAddons;
	CUtlString m_SettingsFolder; // empty: $XDG_CONFIG_HOME/mintyard or ~/.config/mintyard
	CUtlVector<ToolIdentity_t> m_Tools; // by tool index
};

class CToolFrameworkHost
{
public:
	CToolFrameworkHost();
	// Gives the core back the file system it had before Init, then destroys this one.
	~CToolFrameworkHost();
	// Creates the file system with the search paths of the game tree, sets it as the core's
	// file system, loads the localisation and makes every service. False with a message when
	// the game directory is missing or another host is running.
	bool Init(const ToolFrameworkConfig_t &config, CUtlString *pError);

	// The factory to hand to tools: every service of this file, the file system and the cvar
	// system by their interface names, then the services platform libraries registered
	// (platformservices.h), which are found even before a host is initialised.
	static void *Factory(const char *name, int *returnCode);

	IFileSystem *FileSystem();
	IToolFramework *Framework();
	// Calls the frame listeners.
	void RunFrameListeners(float frameTime);

private:
	struct Impl;
	std::unique_ptr<Impl> m_pImpl;
};
