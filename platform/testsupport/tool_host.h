// The tool framework started on a game folder for a test, a benchmark or a picture program: its
// file system and framework stand as the process's globals while it lives, and the ones before
// come back when it goes. A target that includes it links mintyard_toolframework and
// mintyard_filesystem.
#pragma once

#include <string>

#include "filesystem/filesystem.h"
#include "toolframework/toolframework.h"

class CTestToolHost
{
public:
	CTestToolHost() = default;
	~CTestToolHost()
	{
		if (!m_bStarted)
			return;
		g_pFullFileSystem = m_pPreviousFileSystem;
		g_pToolFramework = m_pPreviousFramework;
	}
	CTestToolHost(const CTestToolHost &) = delete;
	CTestToolHost &operator=(const CTestToolHost &) = delete;

	// Starts the framework on the game folder (which must exist) with its settings in
	// settingsFolder; false, with *pError saying why, when it does not start.
	bool Start(const std::string &gameFolder, const std::string &settingsFolder, CUtlString *pError = nullptr)
	{
		ToolFrameworkConfig_t config;
		config.m_GameDirectory = gameFolder;
		config.m_SettingsFolder = settingsFolder;
		CUtlString message;
		const bool bReady = m_Host.Init(config, &message);
		if (pError)
			*pError = message;
		if (!m_bStarted)
		{
			m_pPreviousFileSystem = g_pFullFileSystem;
			m_pPreviousFramework = g_pToolFramework;
			m_bStarted = true;
		}
		g_pFullFileSystem = m_Host.FileSystem();
		g_pToolFramework = m_Host.Framework();
		return bReady;
	}

	CToolFrameworkHost &Host() { return m_Host; }

private:
	CToolFrameworkHost m_Host;
	bool m_bStarted = false;
	IFileSystem *m_pPreviousFileSystem = nullptr;
	IToolFramework *m_pPreviousFramework = nullptr;
};
