#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <sys/wait.h>
#include <vector>

#include "core/keyvalues3.h"
#include "core/kv3text.h"
#include "testsupport/test_support.h"

namespace
{
// Runs the host with the environment and arguments given, offscreen, with no content service.
CommandResult_t RunHost(const std::string &environment, const std::string &arguments)
{
	return RunCommand("env QT_QPA_PLATFORM=offscreen BRUME_SERVICE=127.0.0.1:1 " + environment + " timeout 60 " HOST_PATH " " + arguments);
}

std::vector<std::string> Lines(const std::string &path)
{
	std::vector<std::string> lines;
	CUtlBuffer text;
	if (!Plat_ReadFile(path.c_str(), text))
		return lines;
	std::string all(text.View());
	size_t start = 0;
	while (start < all.size())
	{
		const size_t end = all.find('\n', start);
		lines.push_back(all.substr(start, end - start));
		start = end == std::string::npos ? all.size() : end + 1;
	}
	return lines;
}

class HostTest : public testing::Test
{
protected:
	void SetUp() override
	{
		m_Temp.Write("game/zarn/resource/localization/mintyard_english.txt",
			"\"lang\" { \"Language\" \"English\" \"Tokens\" { \"#ZARN_Mintyard_CreateNewItem\" \"Create a new item\" } }\n");
		m_Temp.Write("content/zarn/readme.txt", "sources");
	}
	std::string Environment() const { return "XDG_CONFIG_HOME=" + m_Temp.Path("config") + " MINTYARD_RECORD_FILE=" + m_Temp.Path("calls.txt"); }
	std::string Game() const { return "-game " + m_Temp.Path("game/zarn"); }
	CTempDirectory m_Temp;
};
} // namespace

TEST_F(HostTest, CallsTheToolInTheOrderOfItsLife)
{
	const CommandResult_t run = RunHost(Environment(), Game() + " -tool " RECORDING_TOOL_PATH " -quit_after_startup +recording_tool_variable changed");
	ASSERT_EQ(0, run.exitCode) << run.output;
	const std::vector<std::string> expected = {
		"CreateInterface ToolSystem2_001",
		"Connect ok",
		"Init",
		"InitTool variable=changed", // console variables are set before the tool starts
		"PostInitTool",
		"VetoToolQuit no",
		"WindowDestroyed", // the window goes before the tool shuts down
		"Shutdown",
		"Disconnect",
	};
	std::vector<std::string> calls = Lines(m_Temp.Path("calls.txt"));
	// Frames run between the start and the quit when the machine is slow enough; they are
	// not part of the fixed order.
	std::erase(calls, std::string("RunToolFrame"));
	EXPECT_EQ(expected, calls) << run.output;
}

TEST_F(HostTest, AToolThatVetoesTheQuitKeepsRunningUntilItsWindowCloses)
{
	const CommandResult_t run = RunHost(Environment() + " MINTYARD_RECORD_VETO=1", Game() + " -tool " RECORDING_TOOL_PATH " -quit_after_startup");
	ASSERT_EQ(0, run.exitCode) << run.output;
	const std::vector<std::string> calls = Lines(m_Temp.Path("calls.txt"));
	const auto veto = std::find(calls.begin(), calls.end(), "VetoToolQuit yes");
	ASSERT_NE(calls.end(), veto) << run.output;
	EXPECT_NE(calls.end(), std::find(veto, calls.end(), "RunToolFrame")); // frames went on after the veto
	EXPECT_EQ("Disconnect", calls.back());
	EXPECT_NE(std::string::npos, run.output.find("the tool keeps running"));
}

TEST_F(HostTest, TheToolStartsAndQuitsLeavingItsWindowGeometry)
{
	const CommandResult_t run = RunHost(Environment(), Game() + " -tool " TOOL_LIBRARY_PATH " -quit_after_startup");
	ASSERT_EQ(0, run.exitCode) << run.output;
	EXPECT_NE(std::string::npos, run.output.find("Host: started in")) << run.output;
	CKeyValues3Context settings;
	CUtlString error;
	ASSERT_TRUE(LoadKV3FromFile(&settings, &error, m_Temp.Path("config/mintyard/mintyardmanager.kv3").c_str(), nullptr, KV3_FORMAT_GENERIC)) << error;
	EXPECT_GT(strlen(GetMemberString(settings.Root(), "geometry")), 20u);
	EXPECT_GT(strlen(GetMemberString(settings.Root(), "state")), 20u);
}

TEST_F(HostTest, CommandLineMistakesAreTold)
{
	CommandResult_t run = RunHost(Environment(), "-tool " RECORDING_TOOL_PATH);
	EXPECT_EQ(2, run.exitCode);
	EXPECT_NE(std::string::npos, run.output.find("-game is required")) << run.output;
	run = RunHost(Environment(), "-game " + m_Temp.Path("game/missing") + " -tool " RECORDING_TOOL_PATH);
	EXPECT_EQ(1, run.exitCode);
	EXPECT_NE(std::string::npos, run.output.find("missing")) << run.output;
	run = RunHost(Environment(), Game() + " -tool " + m_Temp.Path("nolib.so"));
	EXPECT_EQ(1, run.exitCode);
	EXPECT_NE(std::string::npos, run.output.find("cannot load")) << run.output;
}
