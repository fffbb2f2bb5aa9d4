#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <unistd.h>

#include "testsupport/pathnames.h"
#include "testsupport/test_support.h"
#include "filesystem/filesystem.h"
#include "toolframework/toolframework.h"
#include "toolframework/toolsystem.h"

namespace
{
// A game tree: <root>/game/zarn, the shared <root>/game/core, <root>/content/zarn.
class ToolFrameworkHostTest : public testing::Test
{
protected:
	void SetUp() override
	{
		m_Temp.Write("game/zarn/resource/localization/mintyard_english.txt",
			"\"lang\"\n{\n\t\"Language\" \"English\"\n\t\"Tokens\"\n\t{\n\t\t\"#HostTest_Title\" \"Mintyard Manager\"\n\t}\n}\n");
		m_Temp.Write("game/zarn/tools/images/own.png", "png");
		m_Temp.Write("game/zarn/tools/images/shared.png", "the game's own copy");
		m_Temp.Write("game/core/tools/images/shared.png", "shared copy");
		m_Temp.Write("game/core/tools/images/core_only.png", "png");
		m_Temp.Write("content/zarn/models/a.fbx", "fbx");
		m_Config.m_GameDirectory = m_Temp.Path("game/zarn");
		m_Config.m_SettingsFolder = m_Temp.Path("settings");
		m_Config.m_Tools.push_back({ "mintyardmanager", "Mintyard Manager", "game:tools/images/own.png" });
		m_Config.m_MountedAddons.push_back("arena_lights");
	}

	std::string SearchPath(IFileSystem *fs, const char *pathID)
	{
		char text[4096];
		fs->GetSearchPath(pathID, false, text, sizeof(text));
		return text;
	}

	CTempDirectory m_Temp;
	ToolFrameworkConfig_t m_Config;
};

TEST_F(ToolFrameworkHostTest, SearchPathsOfTheGameTree)
{
	CToolFrameworkHost host;
	CUtlString error;
	ASSERT_TRUE(host.Init(m_Config, &error)) << error;
	IFileSystem *fs = host.FileSystem();
	ASSERT_NE(fs, nullptr);
	const std::string game = m_Temp.Path("game/zarn/");
	EXPECT_EQ(SearchPath(fs, "MOD"), game);
	EXPECT_EQ(SearchPath(fs, "GAME"), game + ";" + m_Temp.Path("game/core/"));
	EXPECT_EQ(SearchPath(fs, "DEFAULT_WRITE_PATH"), game);
	EXPECT_EQ(SearchPath(fs, "CONTENT"), m_Temp.Path("content/zarn/"));
	EXPECT_EQ(SearchPath(fs, "CONTENTROOT"), m_Temp.Path("content/"));
	// The game and content folders take writes; the shared folder does not.
	CUtlString where;
	ASSERT_TRUE(fs->GetWritePath("scripts/new.txt", "GAME", where));
	EXPECT_EQ(where, game + "scripts/new.txt");
	ASSERT_TRUE(fs->GetWritePath("models/b.fbx", "CONTENT", where));
	EXPECT_EQ(where, m_Temp.Path("content/zarn/models/b.fbx"));
}

TEST_F(ToolFrameworkHostTest, GameDirectoryIsMadeAbsolute)
{
	char cwd[4096];
	ASSERT_NE(getcwd(cwd, sizeof(cwd)), nullptr);
	ASSERT_EQ(chdir(m_Temp.Path("content").c_str()), 0);
	m_Config.m_GameDirectory = "../game/./zarn//";
	CToolFrameworkHost host;
	CUtlString error;
	const bool bOk = host.Init(m_Config, &error);
	ASSERT_EQ(chdir(cwd), 0);
	ASSERT_TRUE(bOk) << error;
	EXPECT_EQ(SearchPath(host.FileSystem(), "MOD"), m_Temp.Path("game/zarn/"));
	EXPECT_EQ(SearchPath(host.FileSystem(), "CONTENT"), m_Temp.Path("content/zarn/"));
}

TEST_F(ToolFrameworkHostTest, CoreFileSystemWhileTheHostLives)
{
	IBaseFileSystem *before = CoreFileSystem();
	{
		CToolFrameworkHost host;
		ASSERT_TRUE(host.Init(m_Config, nullptr));
		EXPECT_EQ(CoreFileSystem(), static_cast<IBaseFileSystem *>(host.FileSystem()));
		EXPECT_TRUE(CoreFileSystem()->FileExists("models/a.fbx", "CONTENT"));
	}
	EXPECT_EQ(CoreFileSystem(), before);
}

TEST_F(ToolFrameworkHostTest, LocalizationIsLoaded)
{
	CToolFrameworkHost host;
	ASSERT_TRUE(host.Init(m_Config, nullptr));
	EXPECT_STREQ(Localize()->Translate("#HostTest_Title"), "Mintyard Manager");
	ILocalize *localize = static_cast<ILocalize *>(CToolFrameworkHost::Factory(LOCALIZE_INTERFACE_VERSION, nullptr));
	EXPECT_EQ(localize, Localize());
}

TEST_F(ToolFrameworkHostTest, MissingOrBrokenLocalizationIsAWarning)
{
	std::filesystem::remove(m_Temp.Path("game/zarn/resource/localization/mintyard_english.txt"));
	{
		CCaptureLog log;
		CToolFrameworkHost host;
		ASSERT_TRUE(host.Init(m_Config, nullptr));
		EXPECT_NE(log.m_Text.find("resource/localization/mintyard_english.txt"), std::string::npos) << log.m_Text;
		EXPECT_EQ(log.m_LastSeverity, LS_WARNING);
	}
	m_Temp.Write("game/core/resource/localization/mintyard_english.txt", "\"lang\"\n{\n\t\"Tokens\"\n\t{\n\t\t\"#HostTest_Broken\" \"x\"\n");
	{
		CCaptureLog log;
		CToolFrameworkHost host;
		ASSERT_TRUE(host.Init(m_Config, nullptr));
		EXPECT_NE(log.m_Text.find("mintyard_english.txt("), std::string::npos) << log.m_Text;
		EXPECT_EQ(Localize()->Find("#HostTest_Broken"), nullptr);
	}
}

TEST_F(ToolFrameworkHostTest, ResolveResourcePath)
{
	CToolFrameworkHost host;
	ASSERT_TRUE(host.Init(m_Config, nullptr));
	IToolFramework *framework = host.Framework();
	EXPECT_EQ(framework->ResolveResourcePath("game:tools/images/own.png"), m_Temp.Path("game/zarn/tools/images/own.png"));
	// The game's own file comes before the shared one; the shared one fills in.
	EXPECT_EQ(framework->ResolveResourcePath("game:tools/images/shared.png"), m_Temp.Path("game/zarn/tools/images/shared.png"));
	EXPECT_EQ(framework->ResolveResourcePath("game:tools/images/core_only.png"), m_Temp.Path("game/core/tools/images/core_only.png"));
	EXPECT_EQ(framework->ResolveResourcePath("game:tools/images/missing.png"), "");
	// The name stays inside the game tree.
	EXPECT_EQ(framework->ResolveResourcePath("game:../zarn/tools/images/own.png"), "");
	EXPECT_EQ(framework->ResolveResourcePath(("game:" + m_Temp.Path("game/zarn/tools/images/own.png")).c_str()), "");
	// Anything else stands as it is.
	EXPECT_EQ(framework->ResolveResourcePath("tools/images/own.png"), "tools/images/own.png");
	EXPECT_EQ(framework->ResolveResourcePath(":/qt/resource.png"), ":/qt/resource.png");
	EXPECT_EQ(framework->ResolveResourcePath(nullptr), "");
}

TEST_F(ToolFrameworkHostTest, MissingGameDirectory)
{
	m_Config.m_GameDirectory = m_Temp.Path("game/nothere");
	CToolFrameworkHost host;
	CUtlString error;
	EXPECT_FALSE(host.Init(m_Config, &error));
	EXPECT_NE(error.find(m_Temp.Path("game/nothere")), CUtlString::npos) << error;
	EXPECT_NE(error.find("does not exist"), CUtlString::npos) << error;
	EXPECT_EQ(host.FileSystem(), nullptr);
	EXPECT_EQ(CToolFrameworkHost::Factory(TOOLFRAMEWORK_INTERFACE_VERSION, nullptr), nullptr);

	// Without a place for the message it goes to the log.
	CCaptureLog log;
	EXPECT_FALSE(host.Init(m_Config, nullptr));
	EXPECT_NE(log.m_Text.find("does not exist"), std::string::npos);

	m_Config.m_GameDirectory = "";
	EXPECT_FALSE(host.Init(m_Config, &error));
	EXPECT_NE(error.find("-game"), CUtlString::npos) << error;
}

TEST_F(ToolFrameworkHostTest, FactoryServesTheLiveHost)
{
	int returnCode = IFACE_OK;
	EXPECT_EQ(CToolFrameworkHost::Factory(TOOLSETTINGS_INTERFACE_VERSION, &returnCode), nullptr);
	EXPECT_EQ(returnCode, IFACE_FAILED);
	{
		CToolFrameworkHost host;
		ASSERT_TRUE(host.Init(m_Config, nullptr));
		for (const char *name : { TOOLSETTINGS_INTERFACE_VERSION, FILESYSTEM_INTERFACE_VERSION, TOOLFRAMEWORK_INTERFACE_VERSION,
				 ADDONSERVICE_INTERFACE_VERSION, ASSETBROWSER_INTERFACE_VERSION, INPUTBINDING_INTERFACE_VERSION, CVAR_INTERFACE_VERSION,
				 LOCALIZE_INTERFACE_VERSION })
		{
			returnCode = IFACE_FAILED;
			EXPECT_NE(CToolFrameworkHost::Factory(name, &returnCode), nullptr) << name;
			EXPECT_EQ(returnCode, IFACE_OK) << name;
		}
		EXPECT_EQ(CToolFrameworkHost::Factory(FILESYSTEM_INTERFACE_VERSION, nullptr), host.FileSystem());
		EXPECT_EQ(CToolFrameworkHost::Factory(TOOLFRAMEWORK_INTERFACE_VERSION, nullptr), host.Framework());
		EXPECT_EQ(CToolFrameworkHost::Factory("VToolFramework002", &returnCode), nullptr);
		EXPECT_EQ(returnCode, IFACE_FAILED);
		// Names compare exactly.
		EXPECT_EQ(CToolFrameworkHost::Factory("vtoolsettings001", nullptr), nullptr);

		// One host at a time.
		CToolFrameworkHost second;
		CUtlString error;
		EXPECT_FALSE(second.Init(m_Config, &error));
		EXPECT_NE(error.find("another"), CUtlString::npos) << error;
		EXPECT_EQ(CToolFrameworkHost::Factory(FILESYSTEM_INTERFACE_VERSION, nullptr), host.FileSystem());
	}
	EXPECT_EQ(CToolFrameworkHost::Factory(FILESYSTEM_INTERFACE_VERSION, nullptr), nullptr);
}

TEST_F(ToolFrameworkHostTest, ConsoleVariablesThroughTheFactory)
{
	ConVar var("host_test_var", "1");
	CToolFrameworkHost host;
	ASSERT_TRUE(host.Init(m_Config, nullptr));
	ICvar *cvar = static_cast<ICvar *>(CToolFrameworkHost::Factory(CVAR_INTERFACE_VERSION, nullptr));
	ASSERT_EQ(cvar, CVar());
	EXPECT_TRUE(cvar->SetValue("host_test_var", "0.5"));
	EXPECT_FLOAT_EQ(var.GetFloat(), 0.5f);
	EXPECT_EQ(cvar->FindVar("HOST_TEST_VAR"), &var);
}

class CHostedTool : public CBaseToolSystem2
{
};

TEST_F(ToolFrameworkHostTest, ToolConnectsAndUsesTheServices)
{
	CToolFrameworkHost host;
	ASSERT_TRUE(host.Init(m_Config, nullptr));
	CHostedTool tool;
	ASSERT_TRUE(tool.Connect(CToolFrameworkHost::Factory));
	ASSERT_TRUE(tool.InitTool(CToolFrameworkHost::Factory, 0));
	EXPECT_EQ(g_pFullFileSystem, host.FileSystem());
	EXPECT_EQ(g_pToolFramework, host.Framework());
	ASSERT_NE(g_pAddonService, nullptr);
	ASSERT_NE(g_pAssetBrowser, nullptr);
	ASSERT_NE(g_pInputBindingManager, nullptr);

	const ToolIdentity_t *identity = g_pToolFramework->GetToolIdentity(tool.GetToolIndex());
	ASSERT_NE(identity, nullptr);
	EXPECT_EQ(identity->m_Name, "mintyardmanager");
	EXPECT_EQ(g_pToolSettings->GetToolSettingsPath(tool.GetToolIndex()), m_Temp.Path("settings/mintyardmanager.kv3"));
	EXPECT_EQ(g_pAssetBrowser->GetContentFolder(), m_Temp.Path("content/zarn"));
	EXPECT_EQ(g_pAddonService->GetAddonsGameRoot(), m_Temp.Path("game/zarn_addons"));
	CUtlVector<CUtlString> mounted;
	g_pAddonService->GetMountedAddons(mounted);
	ASSERT_EQ(mounted.size(), 1u);
	EXPECT_EQ(mounted[0], "arena_lights");

	CKeyValues3Context context;
	context.Root()->MakeTable();
	SetMemberString(context.Root(), "geometry", "AdnQyw");
	ASSERT_TRUE(g_pToolSettings->WriteToolSettings(tool.GetToolIndex(), context.Root()));
	EXPECT_TRUE(Plat_FileExists(m_Temp.Path("settings/mintyardmanager.kv3").c_str()));

	// Frame listeners registered through the tool's global run with the host's frames.
	struct CListener : IToolFrameListener
	{
		void OnToolFrame(float) override { ++m_nFrames; }
		int m_nFrames = 0;
	} listener;
	g_pToolFramework->AddFrameListener(&listener);
	host.RunFrameListeners(0.016f);
	host.RunFrameListeners(0.016f);
	EXPECT_EQ(listener.m_nFrames, 2);
	g_pToolFramework->RemoveFrameListener(&listener);

	tool.Shutdown();
	tool.Disconnect();
	EXPECT_EQ(g_pToolFramework, nullptr);
}
} // namespace

// "game:" names come from files; they resolve inside the game tree or not at all.
TEST_F(ToolFrameworkHostTest, ResourceNamesFollowThePathRule)
{
	m_Temp.Write("game/secret.txt", "outside");
	CToolFrameworkHost host;
	ASSERT_TRUE(host.Init(m_Config, nullptr));
	IToolFramework *framework = host.Framework();
	for (const PathRuleName_t &name : HostilePathNames())
		EXPECT_EQ(framework->ResolveResourcePath(("game:" + name.name).c_str()), "") << name.what;
	for (const PathRuleName_t &name : LegitimatePathNames())
	{
		m_Temp.Write("game/zarn/" + PathRuleLanding(name.name), "inside");
		EXPECT_EQ(framework->ResolveResourcePath(("game:" + name.name).c_str()), m_Temp.Path("game/zarn/" + PathRuleLanding(name.name)))
			<< name.what;
	}
}
