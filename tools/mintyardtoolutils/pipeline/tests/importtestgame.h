// A game tree of its own for the tests of the import run: <root>/game/zarn with the sample game's
// scripts, <root>/content/zarn, and a folder of art; the tool framework's services started on it,
// and a session whose roots are the two trees.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "core/fileio.h"
#include "filesystem/filesystem.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/core/mintyardtemplate.h"
#include "mintyardtoolutils/pipeline/importdriver.h"
#include "testsupport/test_support.h"
#include "testsupport/tool_host.h"

class CImportTestGame
{
public:
	CImportTestGame()
	{
		const std::filesystem::path sample = std::filesystem::path(MINTYARD_SOURCE_DIR) / "sample/game/zarn";
		std::error_code error;
		std::filesystem::create_directories(Game(""), error);
		for (const char *folder : { "scripts", "resource" })
			std::filesystem::copy(sample / folder, Game(folder), std::filesystem::copy_options::recursive, error);
		std::filesystem::create_directories(Content(""), error);
		CUtlString message;
		m_bReady = m_Host.Start(Game(""), m_Temp.Path("settings"), &message);
		EXPECT_TRUE(m_bReady) << message;
		ReloadGameData();
	}
	~CImportTestGame()
	{
		m_Session.reset();
	}
	CImportTestGame(const CImportTestGame &) = delete;
	CImportTestGame &operator=(const CImportTestGame &) = delete;

	// Paths of the trees.
	std::string Game(const std::string &relative) const { return m_Temp.Path("game/zarn/" + relative); }
	std::string Content(const std::string &relative) const { return m_Temp.Path("content/zarn/" + relative); }
	std::string Art(const std::string &relative) const { return m_Temp.Path("art/" + relative); }
	// Writes a file of art (an author's source) and gives its path.
	std::string WriteArt(const std::string &relative, const std::string &bytes) const { return m_Temp.Write("art/" + relative, bytes); }
	std::string WriteGame(const std::string &relative, const std::string &bytes) const { return m_Temp.Write("game/zarn/" + relative, bytes); }
	std::string WriteContent(const std::string &relative, const std::string &bytes) const
	{
		return m_Temp.Write("content/zarn/" + relative, bytes);
	}
	std::string ReadFile(const std::string &path) const
	{
		CUtlBuffer data;
		return Plat_ReadFile(path.c_str(), data) ? std::string(data.View()) : std::string("<missing>");
	}

	// A new session on a template (kept alive with it) and an import name.
	CMintyardImportSession &NewSession(std::unique_ptr<CMintyardTemplate> pTemplate, const char *pszImportName = "tester")
	{
		m_Session.reset();
		m_pTemplate = std::move(pTemplate);
		m_Session = std::make_unique<CMintyardImportSession>();
		m_Session->SetTemplate(m_pTemplate.get());
		m_Session->SetSearchPaths(Game("").c_str(), Content("").c_str());
		m_Session->GetNameElement()->SetValue(pszImportName);
		return *m_Session;
	}
	CMintyardImportSession &Session() { return *m_Session; }

	ImportMessageList Run(bool bItemMode = false)
	{
		ImportMessageList list;
		list.SetLog(&m_Log);
		RunImport(m_Session.get(), bItemMode, list);
		return list;
	}

	// Every progress line of the runs, for messages that are no entries.
	class CCollectedLog : public IMintyardImportLog
	{
	public:
		void LogMessage(int, const char *pszText) override { m_Text += pszText ? pszText : ""; }
		std::string m_Text;
	};
	CCollectedLog m_Log;
	bool m_bReady = false;

private:
	CTempDirectory m_Temp;
	CTestToolHost m_Host;
	std::unique_ptr<CMintyardTemplate> m_pTemplate;
	std::unique_ptr<CMintyardImportSession> m_Session;
};
