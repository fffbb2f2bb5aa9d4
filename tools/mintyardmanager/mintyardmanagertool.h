// The tool object of the Mintyard Manager: the plug-in that the tool host loads.
#pragma once

#include "core/logging.h"
#include "mintyardtoolutils/core/toolmode.h"
#include "toolframework/toolsystem.h"

class CMainWindow;
class KeyValues3;
class CKeyValues3Context;

DECLARE_LOGGING_CHANNEL(LOG_MINTYARD_MANAGER);

// The mode for a game directory name (the last component of the first "MOD" path) and the two
// command-line flags, in the order of the tests: "-quern_mintyard", the "quern" directory
// (without case), the "tolva" prefix, then the default.
EMintyardToolMode DetectMintyardToolMode(const char *gameDirectory, bool bQuernFlag, bool bItemsFlag);

// The game directory name from a search path text ("a/b/game/zarn/;..."): the last component
// of the first path, without its trailing slash.
CUtlString GameDirectoryFromSearchPath(const char *searchPath);

// Static texts of the tool.
extern const char *const g_pszBDLPackerPath;	  // "bin/bdl"
extern const char *const g_pszDownloadedPreview; // "downloaded_preview.jpg"
extern const char *const g_pszTempPreview;		  // "temp_preview.png"

class CMintyardManagerTool : public CBaseToolSystem2
{
public:
	const AppSystemInfo_t *GetDependencies() override;
	void PreShutdown() override {}
	bool IsSingleton() override { return false; }
	int GetBuildType() override { return 2; }

	bool InitTool(CreateInterfaceFn factory, uint8 toolIndex) override;
	void PostInitTool() override;
	void RunToolFrame() override;
	bool VetoToolQuit() override;

	CMainWindow *GetMainWindow() const { return m_pMainWindow; }
	int GetGameMode() const { return m_nGameMode; }
	bool IsViewLoaded() const { return m_bViewLoaded; }
	void SetViewLoaded(bool bLoaded) { m_bViewLoaded = bLoaded; }
	// The tool's settings document, read from the framework into `out`.
	void ReadSettings(KeyValues3 *out);
	bool WriteSettings(const KeyValues3 *settings);

private:
	CMainWindow *m_pMainWindow = nullptr;
	bool m_bViewLoaded = false;
	int m_nGameMode = -1;
};

CMintyardManagerTool *MintyardManagerTool();
