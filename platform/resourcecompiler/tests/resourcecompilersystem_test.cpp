// The compile call runs the command it finds as a child and reports what happens to it: lines
// with their severity, the exit status, a crash, a hang past the time limit, runaway memory.
#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "resourcecompiler/resourcecompilersystem.h"
#include "testsupport/test_support.h"

namespace
{
class CLines : public ILoggingListener
{
public:
	void Log(const LoggingContext_t &context, const char *message) override
	{
		m_Lines.push_back({ context.severity, message });
		m_All += message;
	}
	std::vector<std::pair<LoggingSeverity_t, std::string>> m_Lines;
	std::string m_All;
};

class ResourceCompilerSystemTest : public ::testing::Test
{
protected:
	// Makes a stand-in compiler from a shell script and points the system at it.
	void UseScript(const std::string &body)
	{
		const std::string path = m_Temp.Write("bin/resourcecompiler", "#!/bin/sh\n" + body);
		chmod(path.c_str(), 0755);
		setenv("MINTYARD_RESOURCECOMPILER", path.c_str(), 1);
	}
	void TearDown() override { unsetenv("MINTYARD_RESOURCECOMPILER"); }
	bool Compile(const std::string &source, int timeLimit = 0, int memoryMiB = 0, const char *game = nullptr)
	{
		ResourceCompileParams_t params;
		params.m_pListener = &m_Lines;
		params.m_pszName = "hat";
		params.m_nTimeLimitSeconds = timeLimit;
		params.m_nMemoryLimitMiB = memoryMiB;
		params.m_pszGameDirectory = game;
		return ResourceCompilerSystem()->CompileResource(source.c_str(), params);
	}

	CTempDirectory m_Temp;
	CLines m_Lines;
};
} // namespace

TEST_F(ResourceCompilerSystemTest, LinesKeepTheirSeverityAndTheExitStatusIsTheResult)
{
	UseScript("echo \"compiling $*\"\necho 'warning: texture is large' >&2\necho 'error: no shader'\nprintf 'last line without end'\nexit 0\n");
	EXPECT_TRUE(Compile("/root/content/zarn/models/hat.zmdl"));
	ASSERT_EQ(m_Lines.m_Lines.size(), 4u) << m_Lines.m_All;
	EXPECT_EQ(m_Lines.m_Lines[0].second, "compiling -game /root/game/zarn /root/content/zarn/models/hat.zmdl\n");
	EXPECT_EQ(m_Lines.m_Lines[0].first, LS_MESSAGE);
	EXPECT_EQ(m_Lines.m_Lines[1].first, LS_WARNING);
	EXPECT_EQ(m_Lines.m_Lines[2].first, LS_ERROR);
	EXPECT_EQ(m_Lines.m_Lines[3].second, "last line without end\n");

	UseScript("echo \"$*\"\nexit 1\n");
	EXPECT_FALSE(Compile("/elsewhere/hat.zmdl")); // no content tree: no game directory given
	EXPECT_NE(m_Lines.m_All.find("\n/elsewhere/hat.zmdl\n"), std::string::npos) << m_Lines.m_All;
	EXPECT_TRUE(Compile("/elsewhere/hat.zmdl", 0, 0, "/games/mine") == false);
	EXPECT_NE(m_Lines.m_All.find("-game /games/mine /elsewhere/hat.zmdl"), std::string::npos) << m_Lines.m_All;
}

TEST_F(ResourceCompilerSystemTest, ACrashIsAFailedCompileWithAReason)
{
	UseScript("echo 'reading'\nkill -SEGV $$\n");
	EXPECT_FALSE(Compile("/root/content/zarn/a.png"));
	EXPECT_NE(m_Lines.m_All.find("error: hat: the resource compiler crashed"), std::string::npos) << m_Lines.m_All;
	EXPECT_EQ(m_Lines.m_Lines.back().first, LS_ERROR);
}

TEST_F(ResourceCompilerSystemTest, AHangIsEndedAtTheTimeLimit)
{
	// One that keeps printing and one that closes its output and only sleeps; both end, with
	// whatever they started.
	for (const char *body : { "while true; do echo busy; sleep 0.1; done\n", "exec >/dev/null 2>&1\nsleep 61.25 &\nsleep 61.5\n" })
	{
		UseScript(body);
		const auto start = std::chrono::steady_clock::now();
		EXPECT_FALSE(Compile("/root/content/zarn/a.png", 1));
		EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
		EXPECT_NE(m_Lines.m_All.find("did not finish within 1 seconds"), std::string::npos) << m_Lines.m_All;
	}
	// Nothing the stand-in started is left running.
	EXPECT_EQ(RunCommand("pgrep -f 'sleep 61[.]'").exitCode, 1);
}

TEST_F(ResourceCompilerSystemTest, RunawayMemoryEndsTheCompile)
{
	// Python asks for 2 GiB under a limit of 256 MiB.
	UseScript("exec python3 -c 'x = bytearray(2 << 30)'\n");
	EXPECT_FALSE(Compile("/root/content/zarn/a.png", 30, 256));
	EXPECT_NE(m_Lines.m_All.find("MemoryError"), std::string::npos) << m_Lines.m_All;
}

TEST_F(ResourceCompilerSystemTest, AMissingCompilerOrARelativePathIsReported)
{
	setenv("MINTYARD_RESOURCECOMPILER", m_Temp.Path("nowhere").c_str(), 1);
	EXPECT_FALSE(Compile("/root/content/zarn/a.png"));
	EXPECT_NE(m_Lines.m_All.find("error: hat: the resource compiler was not found"), std::string::npos) << m_Lines.m_All;
	UseScript("exit 0\n");
	EXPECT_FALSE(Compile("relative/a.png"));
	EXPECT_NE(m_Lines.m_All.find("takes an absolute path"), std::string::npos) << m_Lines.m_All;
}
