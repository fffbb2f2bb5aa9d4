#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "core/logging.h"

namespace
{
struct LogLine_t
{
	std::string channel;
	LoggingSeverity_t severity;
	bool bMainThread;
	std::string text;
};

class CRecorder : public ILoggingListener
{
public:
	void Log(const LoggingContext_t &context, const char *message) override
	{
		m_Lines.push_back({ context.channelName, context.severity, context.bMainThread, message });
	}
	std::vector<LogLine_t> m_Lines;
};

DEFINE_LOGGING_CHANNEL(LOG_TEST_CHANNEL, "MintyardManager");
} // namespace

TEST(Logging, ChannelsAreFoundByNameWithoutCase)
{
	EXPECT_EQ(LOG_TEST_CHANNEL, LoggingSystem_FindChannel("mintyardmanager"));
	EXPECT_EQ(LOG_TEST_CHANNEL, LoggingSystem_RegisterLoggingChannel("MINTYARDMANAGER"));
	EXPECT_STREQ("MintyardManager", LoggingSystem_GetChannelName(LOG_TEST_CHANNEL));
	EXPECT_EQ(INVALID_LOGGING_CHANNEL, LoggingSystem_FindChannel("NoSuchChannel"));
}

TEST(Logging, StatesStackAndListenersSeeChannelSeverityAndThread)
{
	const int depth = LoggingSystem_GetStateDepth();
	CRecorder outer, inner;
	LoggingSystem_PushLoggingState(true);
	LoggingSystem_RegisterLoggingListener(&outer);
	LoggingSystem_RegisterLoggingListener(&outer); // once only
	Log_Msg(LOG_TEST_CHANNEL, "one %d\n", 1);

	LoggingSystem_PushLoggingState(); // keeps the outer listener
	LoggingSystem_RegisterLoggingListener(&inner);
	Warning("two\n");
	std::thread([] { Log_Error(LOG_TEST_CHANNEL, "three\n"); }).join();
	LoggingSystem_PopLoggingState();

	Msg("four\n");
	LoggingSystem_PopLoggingState();
	EXPECT_EQ(depth, LoggingSystem_GetStateDepth());

	ASSERT_EQ(4u, outer.m_Lines.size());
	EXPECT_EQ("one 1\n", outer.m_Lines[0].text);
	EXPECT_EQ("MintyardManager", outer.m_Lines[0].channel);
	EXPECT_EQ(LS_MESSAGE, outer.m_Lines[0].severity);
	EXPECT_TRUE(outer.m_Lines[0].bMainThread);
	EXPECT_EQ("Warning", outer.m_Lines[1].channel);
	EXPECT_EQ(LS_WARNING, outer.m_Lines[1].severity);
	EXPECT_EQ(LS_ERROR, outer.m_Lines[2].severity);
	EXPECT_FALSE(outer.m_Lines[2].bMainThread);
	EXPECT_EQ("four\n", outer.m_Lines[3].text);
	ASSERT_EQ(2u, inner.m_Lines.size()); // only while its state was current
	EXPECT_EQ("three\n", inner.m_Lines[1].text);

	// The first state cannot be popped.
	for (int i = 0; i < 5; ++i)
		LoggingSystem_PopLoggingState();
	EXPECT_EQ(1, LoggingSystem_GetStateDepth());
}

TEST(Logging, VerbosityDropsMessagesBelowTheChannelMinimum)
{
	CRecorder recorder;
	LoggingSystem_PushLoggingState(true);
	LoggingSystem_RegisterLoggingListener(&recorder);
	const LoggingChannelID_t channel = LoggingSystem_RegisterLoggingChannel("VerbosityTest", LS_WARNING);
	Log_Msg(channel, "dropped\n");
	Log_Warning(channel, "kept\n");
	LoggingSystem_SetChannelVerbosity(channel, LS_DETAILED);
	Log_Detailed(channel, "kept too\n");
	Log_Msg(INVALID_LOGGING_CHANNEL, "no channel\n");
	LoggingSystem_UnregisterLoggingListener(&recorder);
	Log_Warning(channel, "after unregistering\n");
	LoggingSystem_PopLoggingState();
	ASSERT_EQ(2u, recorder.m_Lines.size());
	EXPECT_EQ("kept\n", recorder.m_Lines[0].text);
	EXPECT_EQ("kept too\n", recorder.m_Lines[1].text);
}

TEST(Logging, ListenersMayLogFromInsideTheirCallback)
{
	struct CEcho : ILoggingListener
	{
		void Log(const LoggingContext_t &context, const char *message) override
		{
			m_Text += message;
			if (context.severity == LS_WARNING)
				Msg("echo\n");
		}
		std::string m_Text;
	} echo;
	LoggingSystem_PushLoggingState(true);
	LoggingSystem_RegisterLoggingListener(&echo);
	Warning("original\n");
	LoggingSystem_PopLoggingState();
	EXPECT_EQ("original\necho\n", echo.m_Text);
}

namespace
{
void RecordFatal(const char *message)
{
	fprintf(stderr, "handler saw: %s", message);
}
} // namespace

TEST(LoggingDeathTest, FatalErrorsLogRunTheHandlerAndExitWithCodeOne)
{
	EXPECT_EXIT(Plat_FatalError("FATAL: %s broke\n", "something"), testing::ExitedWithCode(1), "FATAL: something broke");
	EXPECT_EXIT(
		{
			SetFatalErrorHandler(RecordFatal);
			Plat_FatalError("FATAL: pack corrupt\n");
		},
		testing::ExitedWithCode(1), "handler saw: FATAL: pack corrupt");
}
