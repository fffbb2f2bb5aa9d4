// Runs the tool in the test's own process as the host would: connect, init, the tool's init,
// the post-init (which shows the window), and at the end close, shutdown and disconnect.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QEvent>
#include <QApplication>
#include <QMessageBox>
#include <QPointer>
#include <QTimer>

#include "mintyardmanager/mainwindow.h"
#include "mintyardmanager/mintyardmanagertool.h"
#include "toolframework/toolframework.h"

// Closes the next modal message box as soon as it is up (the listing's no-connection error at
// start, when no content service answers).
inline void CloseModalsSoon()
{
	QTimer::singleShot(10, [] {
		if (QMessageBox *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget()))
			box->done(QMessageBox::Ok);
		else
			CloseModalsSoon();
	});
}

class CToolInProcess
{
public:
	~CToolInProcess() { Stop(); }

	// `beforePostInit` runs just before the window is shown (to arm answers to its boxes).
	CMainWindow *Start(const std::string &gamePath, const std::string &settingsFolder, const std::vector<const char *> &options,
		const char *pszIcon, const std::function<void()> &beforePostInit = {})
	{
		m_GamePath = gamePath;
		std::vector<const char *> argv = { "mintyard_host", "-game", m_GamePath.c_str() };
		argv.insert(argv.end(), options.begin(), options.end());
		CommandLine()->CreateCmdLine((int)argv.size(), argv.data());

		ToolFrameworkConfig_t config;
		config.m_GameDirectory = m_GamePath;
		config.m_SettingsFolder = settingsFolder;
		config.m_Tools.push_back({ "mintyardmanager", "Mintyard Manager", pszIcon });
		m_pHost = std::make_unique<CToolFrameworkHost>();
		CUtlString error;
		EXPECT_TRUE(m_pHost->Init(config, &error)) << error;

		CMintyardManagerTool *tool = MintyardManagerTool();
		EXPECT_TRUE(tool->Connect(CToolFrameworkHost::Factory));
		EXPECT_EQ(INIT_OK, tool->Init());
		EXPECT_TRUE(tool->InitTool(CToolFrameworkHost::Factory, 0));
		m_bStarted = true;
		if (beforePostInit)
			beforePostInit();
		tool->PostInitTool();
		m_pWindow = tool->GetMainWindow();
		return m_pWindow;
	}

	// The tool keeps its pointer after the window is gone; the guarded one knows.
	void Stop()
	{
		if (m_pWindow)
		{
			m_pWindow->close();
			QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
		}
		if (m_bStarted)
		{
			CMintyardManagerTool *tool = MintyardManagerTool();
			tool->Shutdown();
			tool->Disconnect();
			m_bStarted = false;
		}
		m_pHost.reset();
	}

	CMainWindow *Window() const { return m_pWindow; }

private:
	std::string m_GamePath;
	std::unique_ptr<CToolFrameworkHost> m_pHost;
	bool m_bStarted = false;
	QPointer<CMainWindow> m_pWindow;
};
