// A copy of the sample game for the preview tests: <root>/game/zarn with its compiled assets,
// <root>/game/core, <root>/content/zarn, the sample art and sessions. The framework's services
// are started on it and the scene's resources read its game folder. Sessions import into it
// with the real resource compiler, as `mintyard import` does.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "core/fileio.h"
#include "filesystem/filesystem.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/core/sessionfile.h"
#include "mintyardtoolutils/pipeline/importdriver.h"
#include "testsupport/test_support.h"
#include "testsupport/tool_host.h"
#include "toolscene/sceneresources.h"

class CPreviewTestGame
{
public:
	CPreviewTestGame()
	{
		const std::filesystem::path sample = std::filesystem::path(MINTYARD_SOURCE_DIR) / "sample";
		std::error_code error;
		for (const char *folder : { "game", "content", "art", "sessions" })
			std::filesystem::copy(sample / folder, m_Temp.Path(folder), std::filesystem::copy_options::recursive, error);
		EXPECT_FALSE(error) << error.message();
		std::filesystem::create_directories(m_Temp.Path("scratch"), error);
		setenv("MINTYARD_SCRATCH_DIR", m_Temp.Path("scratch").c_str(), 1);

		CUtlString message;
		m_bReady = m_Host.Start(Game(""), m_Temp.Path("settings"), &message);
		EXPECT_TRUE(m_bReady) << message;
		ReloadGameData();
		CToolSceneResources::Default().SetGameRoot(Game("").c_str());
		CToolSceneResources::Default().Flush();
	}

	~CPreviewTestGame()
	{
		CToolSceneResources::Default().Flush();
		CToolSceneResources::Default().SetGameRoot("");
		unsetenv("MINTYARD_SCRATCH_DIR");
	}
	CPreviewTestGame(const CPreviewTestGame &) = delete;
	CPreviewTestGame &operator=(const CPreviewTestGame &) = delete;

	std::string Root(const std::string &relative) const { return m_Temp.Path(relative); }
	std::string Game(const std::string &relative) const { return m_Temp.Path("game/zarn/" + relative); }
	std::string Content(const std::string &relative) const { return m_Temp.Path("content/zarn/" + relative); }
	std::string Session(const std::string &name) const { return m_Temp.Path("sessions/" + name + ".session.txt"); }
	std::string Write(const std::string &relative, const std::string &text) const { return m_Temp.Write(relative, text); }

	// Loads a sample session (its files named relative to its folder) with the catalogue of the
	// game; false with the messages when it does not load.
	bool LoadSession(CMintyardImportSession &session, const std::string &name, std::string *pMessages = nullptr) const
	{
		ImportMessageList list;
		if (!session.GetCatalogue().LoadTemplates(list))
		{
			if (pMessages)
				*pMessages = "the catalogue does not load";
			return false;
		}
		LoadContext ctx;
		ctx.rewritePaths = true;
		ctx.basePath = m_Temp.Path("sessions");
		list.Clear();
		const bool bOk = LoadSessionFile(session, ctx, Session(name).c_str(), list);
		session.SetSearchPaths(Game("").c_str(), m_Temp.Path("content/zarn").c_str());
		if (!bOk && pMessages)
		{
			for (int i = 0; i < list.Count(); ++i)
				*pMessages += list[i].Message() + "\n";
		}
		return bOk;
	}

	// Loads and imports a sample session; false with the errors when the import has any.
	bool ImportSession(CMintyardImportSession &session, const std::string &name, std::string *pMessages = nullptr) const
	{
		if (!LoadSession(session, name, pMessages))
			return false;
		ImportMessageList list;
		RunImport(&session, false, list);
		CToolSceneResources::Default().Flush();
		if (list.GetErrorCount() == 0)
			return true;
		if (pMessages)
		{
			for (int i = 0; i < list.Count(); ++i)
				*pMessages += list[i].Message() + " " + list[i].Arg(1) + "\n";
		}
		return false;
	}

	// One host frame: the framework's frame listeners (the scenes that draw every frame).
	void RunFrames(float flFrameTime) { m_Host.Host().RunFrameListeners(flFrameTime); }

	bool m_bReady = false;

private:
	CTempDirectory m_Temp;
	CTestToolHost m_Host;
};
