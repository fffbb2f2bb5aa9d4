// The classes behind the services of toolframework.h. CToolFrameworkHost makes one of each; they
// are declared here so that the host code and the tests can build them on their own.
#pragma once

#include <mutex>
#include <unordered_map>
#include <vector>

#include "toolframework/toolframework.h"

// The folder that holds the settings files when the host names none: $XDG_CONFIG_HOME/mintyard
// (only an absolute XDG_CONFIG_HOME counts, as the XDG rules say), else $HOME/.config/mintyard,
// else the home folder of the user's account. Empty when none of them is known.
CUtlString ToolSettings_DefaultFolder();

class CToolSettings final : public IToolSettings
{
public:
	// `settingsFolder` empty: ToolSettings_DefaultFolder(), looked up on every use, so that a
	// changed environment is honoured. `tools` names the files.
	CToolSettings(const CUtlString &settingsFolder, const CUtlVector<ToolIdentity_t> &tools);

	void ReadToolSettings(uint8 toolIndex, KeyValues3 *out) override;
	bool WriteToolSettings(uint8 toolIndex, const KeyValues3 *settings) override;
	CUtlString GetToolSettingsPath(uint8 toolIndex) override;

	CUtlString GetSettingsFolder() const;

private:
	// The file name of a tool: its identity name made safe for a file name, or "tool<N>".
	CUtlString ToolFileName(uint8 toolIndex) const;
	// Keeps the bytes of a file that failed to parse beside it before it is replaced.
	static bool KeepBrokenCopy(const CUtlString &path, const CUtlBuffer &contents);

	CUtlString m_SettingsFolder;
	CUtlVector<ToolIdentity_t> m_Tools;
	std::mutex m_Mutex;
};

class CToolFrameworkService final : public IToolFramework
{
public:
	CToolFrameworkService(IFileSystem *pFileSystem, const CUtlVector<ToolIdentity_t> &tools);

	const ToolIdentity_t *GetToolIdentity(uint8 toolIndex) override;
	IToolSystem2 *FindToolByName(const char *name) override;
	void RegisterTool(const char *name, IToolSystem2 *tool) override;
	void UnregisterTool(const char *name) override;
	void AddFrameListener(IToolFrameListener *listener) override;
	void RemoveFrameListener(IToolFrameListener *listener) override;
	void *FindGlobalObject(const char *name) override;
	void SetGlobalObject(const char *name, void *object) override;
	CUtlString ResolveResourcePath(const char *path) override;

	void RunFrameListeners(float frameTime);
	int FrameListenerCount() const;

private:
	struct RegisteredTool_t
	{
		CUtlString m_Name;
		IToolSystem2 *m_pTool;
	};

	IFileSystem *m_pFileSystem;
	CUtlVector<ToolIdentity_t> m_Tools;
	std::vector<RegisteredTool_t> m_Registry;
	// Listeners removed while the list is being walked become null and are dropped afterwards.
	std::vector<IToolFrameListener *> m_FrameListeners;
	int m_nFrameDepth = 0;
	std::unordered_map<CUtlString, void *> m_GlobalObjects;
};

class CAddonService final : public IAddonService
{
public:
	// `root` is the folder that holds game/ and content/; `mod` the game's folder name.
	CAddonService(const CUtlString &root, const CUtlString &mod, const CUtlVector<CUtlString> &mountedAddons);

	void GetAddonList(CUtlVector<CUtlString> &out) override;
	void GetMountedAddons(CUtlVector<CUtlString> &out) override;
	CUtlString GetAddonGamePath(const char *addon) override;
	CUtlString GetAddonContentPath(const char *addon) override;
	CUtlString GetAddonsGameRoot() override;
	CUtlString GetAddonsContentRoot() override;

private:
	CUtlString m_Root;
	CUtlString m_Mod;
	CUtlVector<CUtlString> m_MountedAddons;
};

class CAssetBrowserService final : public IAssetBrowserService
{
public:
	CAssetBrowserService(const CUtlString &root, const CUtlString &mod);

	// Logs the folder, then opens it in the desktop's file manager when a QGuiApplication runs.
	bool ShowAssetBrowser() override;
	CUtlString GetContentFolder() override;

private:
	CUtlString m_Root;
	CUtlString m_Mod;
};

class CInputBindingManager final : public IInputBindingManager
{
public:
	bool RegisterBindTarget(IBindTarget *target, const char *name, const char *className) override;
	void UnregisterBindTarget(IBindTarget *target) override;
	IBindTarget *FindBindTarget(const char *name) override;

	// The class a target was registered with under `name` (null when none).
	const char *FindBindTargetClass(const char *name);
	int BindTargetCount() const { return (int)m_Targets.size(); }

private:
	struct BindTarget_t
	{
		IBindTarget *m_pTarget;
		CUtlString m_Name;
		CUtlString m_ClassName;
	};
	std::vector<BindTarget_t> m_Targets;
};
