// Tools: plug-in libraries that the host loads and drives, one call per host frame.
#pragma once

#include <functional>
#include <vector>

#include "toolframework/appsystem.h"

#define TOOLSYSTEM2_INTERFACE_VERSION "ToolSystem2_001"
#define TOOLDICTIONARY_INTERFACE_VERSION "VTOOLDICTIONARY003"

class IToolSystem2 : public IAppSystem
{
public:
	// Starts the tool: `toolIndex` is the key of its settings and identity in the framework.
	virtual bool InitTool(CreateInterfaceFn factory, uint8 toolIndex) = 0;
	// Shows the tool once the host has finished starting it.
	virtual void PostInitTool() = 0;
	// Once per host frame.
	virtual void RunToolFrame() = 0;
	// Asked before the host quits; true keeps the tool (and the host) alive.
	virtual bool VetoToolQuit() = 0;
	// Further notifications of the host that a tool may ignore.
	virtual void OnToolActivate() = 0;
	virtual void OnToolDeactivate() = 0;
	// A request from another tool or the host: a verb and its text arguments ("open" with a
	// path). Returns false when the tool does not understand it.
	virtual bool HandleToolRequest(const char *verb, const std::vector<const char *> &arguments) = 0;
};

// The tools of one library, for the host's tool registry.
class IToolDictionary
{
public:
	virtual int GetToolCount() const = 0;
	virtual IToolSystem2 *GetTool(int index) const = 0;

protected:
	~IToolDictionary() = default;
};

// The base of every tool. Connect finds the framework's settings, file system and tool
// framework services (and fails unless all three are there) and makes them available through
// the globals of toolframework.h; Shutdown runs the functions added to the shutdown list, last
// added first.
class CBaseToolSystem2 : public IToolSystem2, public IToolDictionary
{
public:
	bool Connect(CreateInterfaceFn factory) override;
	void Disconnect() override;
	void *QueryInterface(const char *interfaceName) override;
	InitReturnVal_t Init() override;
	void Shutdown() override;
	void PreShutdown() override {}
	const AppSystemInfo_t *GetDependencies() override;
	AppSystemTier_t GetTier() override { return APP_SYSTEM_TIER3; }
	void Reconnect(CreateInterfaceFn factory, const char *interfaceName) override;
	bool IsSingleton() override { return true; }
	int GetBuildType() override { return 0; }

	bool InitTool(CreateInterfaceFn factory, uint8 toolIndex) override;
	void PostInitTool() override {}
	void RunToolFrame() override {}
	bool VetoToolQuit() override { return false; }
	void OnToolActivate() override {}
	void OnToolDeactivate() override {}
	bool HandleToolRequest(const char *, const std::vector<const char *> &) override { return false; }

	// IToolDictionary: this tool alone.
	int GetToolCount() const override { return 1; }
	IToolSystem2 *GetTool(int index) const override;

	uint8 GetToolIndex() const { return m_nToolIndex; }
	void AddShutdownFunction(std::function<void()> fn);

protected:
	uint8 m_nToolIndex = 0;

private:
	std::vector<std::function<void()>> m_ShutdownList;
	bool m_bConnected = false;
};

// Tools that a library offers the registry when it loads: a static CLibraryToolRegistration
// adds its tool to a list of the process under a name, and takes it out again when the library
// unloads. No host starts these tools; other tools find them by name (the framework's
// FindToolByName looks here after the tools registered with it), as the wizard finds the
// portrait editor's icon maker.
class CLibraryToolRegistration
{
public:
	CLibraryToolRegistration(const char *pszName, IToolSystem2 *pTool);
	~CLibraryToolRegistration();
	CLibraryToolRegistration(const CLibraryToolRegistration &) = delete;
	CLibraryToolRegistration &operator=(const CLibraryToolRegistration &) = delete;

	const char *GetName() const { return m_pszName; }
	IToolSystem2 *GetTool() const { return m_pTool; }

private:
	const char *m_pszName;
	IToolSystem2 *m_pTool;
};

// The tool a library registered under the name (compared without case; the most recent
// registration wins), or null.
IToolSystem2 *FindLibraryTool(const char *pszName);
