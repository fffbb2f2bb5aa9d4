#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "testsupport/test_support.h"
#include "filesystem/filesystem.h"
#include "toolframework/toolservices.h"
#include "toolframework/toolsystem.h"

namespace
{
class CTestTool : public CBaseToolSystem2
{
};

// The services a test factory offers, and the names it hides.
struct TestServices_t
{
	TestServices_t() : m_Settings("/nonexistent", {}), m_Framework(nullptr, {}), m_Addons("/r", "m", {}), m_pFileSystem(CreateFileSystem()) {}
	~TestServices_t() { DestroyFileSystem(m_pFileSystem); }

	CToolSettings m_Settings;
	CToolFrameworkService m_Framework;
	CAddonService m_Addons;
	IFileSystem *m_pFileSystem;
	std::set<std::string> m_Hidden;
	bool m_bOptional = true;
};
TestServices_t *s_pServices = nullptr;

void *TestFactory(const char *name, int *returnCode)
{
	void *object = nullptr;
	if (s_pServices && !s_pServices->m_Hidden.count(name))
	{
		if (strcmp(name, TOOLSETTINGS_INTERFACE_VERSION) == 0)
			object = static_cast<IToolSettings *>(&s_pServices->m_Settings);
		else if (strcmp(name, FILESYSTEM_INTERFACE_VERSION) == 0)
			object = s_pServices->m_pFileSystem;
		else if (strcmp(name, TOOLFRAMEWORK_INTERFACE_VERSION) == 0)
			object = static_cast<IToolFramework *>(&s_pServices->m_Framework);
		else if (strcmp(name, ADDONSERVICE_INTERFACE_VERSION) == 0 && s_pServices->m_bOptional)
			object = static_cast<IAddonService *>(&s_pServices->m_Addons);
	}
	if (returnCode)
		*returnCode = object ? IFACE_OK : IFACE_FAILED;
	return object;
}

class ToolSystemTest : public testing::Test
{
protected:
	ToolSystemTest() { s_pServices = &m_Services; }
	~ToolSystemTest() override { s_pServices = nullptr; }

	TestServices_t m_Services;
};

TEST_F(ToolSystemTest, ConnectNeedsAllThreeServices)
{
	for (const char *missing : { TOOLSETTINGS_INTERFACE_VERSION, FILESYSTEM_INTERFACE_VERSION, TOOLFRAMEWORK_INTERFACE_VERSION })
	{
		m_Services.m_Hidden = { missing };
		CTestTool tool;
		CCaptureLog log;
		EXPECT_FALSE(tool.Connect(TestFactory)) << missing;
		EXPECT_NE(log.m_Text.find(missing), std::string::npos) << log.m_Text;
		EXPECT_EQ(g_pToolSettings, nullptr);
		EXPECT_EQ(g_pFullFileSystem, nullptr);
		EXPECT_EQ(g_pToolFramework, nullptr);
	}
	CTestTool tool;
	CCaptureLog log;
	EXPECT_FALSE(tool.Connect(nullptr));
}

TEST_F(ToolSystemTest, ConnectSetsTheGlobalsAndDisconnectClearsThem)
{
	CTestTool tool;
	ASSERT_TRUE(tool.Connect(TestFactory));
	EXPECT_EQ(g_pToolSettings, &m_Services.m_Settings);
	EXPECT_EQ(g_pFullFileSystem, m_Services.m_pFileSystem);
	EXPECT_EQ(g_pToolFramework, &m_Services.m_Framework);
	EXPECT_EQ(g_pAddonService, &m_Services.m_Addons);
	// Services the factory does not have stay null.
	EXPECT_EQ(g_pAssetBrowser, nullptr);
	EXPECT_EQ(g_pInputBindingManager, nullptr);
	tool.Disconnect();
	EXPECT_EQ(g_pToolSettings, nullptr);
	EXPECT_EQ(g_pFullFileSystem, nullptr);
	EXPECT_EQ(g_pToolFramework, nullptr);
	EXPECT_EQ(g_pAddonService, nullptr);
}

TEST_F(ToolSystemTest, GlobalsStayWhileAnotherToolIsConnected)
{
	CTestTool first, second;
	ASSERT_TRUE(first.Connect(TestFactory));
	ASSERT_TRUE(second.Connect(TestFactory));
	first.Disconnect();
	first.Disconnect(); // a second disconnect of the same tool changes nothing
	EXPECT_EQ(g_pToolFramework, &m_Services.m_Framework);
	second.Disconnect();
	EXPECT_EQ(g_pToolFramework, nullptr);
}

TEST_F(ToolSystemTest, ReconnectLooksUpTheServicesAgain)
{
	CTestTool tool;
	ASSERT_TRUE(tool.Connect(TestFactory));
	EXPECT_EQ(g_pAddonService, &m_Services.m_Addons);
	m_Services.m_bOptional = false;
	tool.Reconnect(TestFactory, ADDONSERVICE_INTERFACE_VERSION);
	EXPECT_EQ(g_pAddonService, nullptr);
	EXPECT_EQ(g_pToolSettings, &m_Services.m_Settings);
	tool.Disconnect();
	EXPECT_EQ(g_pToolSettings, nullptr);
}

TEST(ToolSystem, QueryInterfaceGivesTheDictionary)
{
	CTestTool tool;
	void *dictionary = tool.QueryInterface(TOOLDICTIONARY_INTERFACE_VERSION);
	ASSERT_NE(dictionary, nullptr);
	IToolDictionary *pDictionary = static_cast<IToolDictionary *>(dictionary);
	EXPECT_EQ(pDictionary, static_cast<IToolDictionary *>(&tool));
	EXPECT_EQ(pDictionary->GetToolCount(), 1);
	EXPECT_EQ(pDictionary->GetTool(0), static_cast<IToolSystem2 *>(&tool));
	EXPECT_EQ(pDictionary->GetTool(1), nullptr);
	EXPECT_EQ(tool.QueryInterface("VTOOLDICTIONARY002"), nullptr);
	EXPECT_EQ(tool.QueryInterface("vtooldictionary003"), nullptr);
	EXPECT_EQ(tool.QueryInterface(nullptr), nullptr);
}

TEST(ToolSystem, FixedAnswers)
{
	CTestTool tool;
	EXPECT_EQ(tool.GetTier(), APP_SYSTEM_TIER3);
	EXPECT_EQ(tool.Init(), INIT_OK);
	const AppSystemInfo_t *dependencies = tool.GetDependencies();
	ASSERT_NE(dependencies, nullptr);
	EXPECT_EQ(dependencies[0].m_pModuleName, nullptr);
	EXPECT_EQ(dependencies[0].m_pInterfaceName, nullptr);
	EXPECT_EQ(tool.GetToolIndex(), 0);
	EXPECT_TRUE(tool.InitTool(TestFactory, 5));
	EXPECT_EQ(tool.GetToolIndex(), 5);
}

TEST(ToolSystem, ShutdownRunsTheListBackwards)
{
	CTestTool tool;
	std::string order;
	tool.AddShutdownFunction([&] { order += "a"; });
	tool.AddShutdownFunction([&] { order += "b"; });
	tool.AddShutdownFunction([&] {
		order += "c";
		// Added while the list runs: kept for the next shutdown.
		tool.AddShutdownFunction([&] { order += "d"; });
	});
	tool.Shutdown();
	EXPECT_EQ(order, "cba");
	tool.Shutdown();
	EXPECT_EQ(order, "cbad");
	tool.Shutdown();
	EXPECT_EQ(order, "cbad");
}
} // namespace
