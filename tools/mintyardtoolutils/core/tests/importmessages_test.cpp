#include <gtest/gtest.h>

#include "core/logging.h"
#include "mintyardtoolutils/core/importmessages.h"
#include "toolframework/localize.h"

namespace
{
class CRecordingLog : public IMintyardImportLog
{
public:
	void LogMessage(int nSeverity, const char *pszText) override { m_Lines.emplace_back(nSeverity, pszText); }
	std::vector<std::pair<int, std::string>> m_Lines;
};
} // namespace

TEST(ImportMessages, EntriesKeepTheirOrderFlagsAndKind)
{
	ImportMessageList list;
	list.AddError("#A", "one");
	list.AddWarning("#B", nullptr, "two");
	MintyardImportMessageEntry_t &entry = list.AddError("#C");
	entry.isError = false; // a step that warns clears the flag right after adding
	ASSERT_EQ(list.Count(), 3);
	EXPECT_EQ(list.GetErrorCount(), 1);
	EXPECT_EQ(list.GetWarningCount(), 2);
	EXPECT_TRUE(list[0].HasArg(1));
	EXPECT_FALSE(list[0].HasArg(2));
	EXPECT_EQ(list[0].ArgCount(), 1);
	// A null argument stays unset even when a later one is set.
	EXPECT_FALSE(list[1].HasArg(1));
	EXPECT_TRUE(list[1].HasArg(2));
	EXPECT_EQ(list[1].Arg(2), "two");
	EXPECT_EQ(list[1].Arg(0), "");
	EXPECT_EQ(list[1].Arg(5), "");
	// An empty text is still a set argument.
	list.AddError("#D", "");
	EXPECT_TRUE(list[3].HasArg(1));
	list.Clear();
	EXPECT_EQ(list.Count(), 0);
}

TEST(ImportMessages, ProgressLinesGoToTheSinkNotTheList)
{
	ImportMessageList list;
	CRecordingLog log;
	list.Log(0, "dropped %d\n", 1); // no sink yet
	list.SetLog(&log);
	list.Log(1, "Copying from '%s' to '%s'\n", "a", "b");
	ASSERT_EQ(log.m_Lines.size(), 1u);
	EXPECT_EQ(log.m_Lines[0].first, 1);
	EXPECT_EQ(log.m_Lines[0].second, "Copying from 'a' to 'b'\n");
	EXPECT_EQ(list.Count(), 0);
}

// A logging listener that hands every line back to the list, as a compile's scope guard does.
class CHandBack : public ILoggingListener
{
public:
	explicit CHandBack(ImportMessageList &list) : m_List(list)
	{
		LoggingSystem_PushLoggingState(true);
		LoggingSystem_RegisterLoggingListener(this);
	}
	~CHandBack() { LoggingSystem_PopLoggingState(); }
	void Log(const LoggingContext_t &, const char *pszMessage) override { m_List.Log(MINTYARD_IMPORT_LOG_INFO, "%s", pszMessage); }
	ImportMessageList &m_List;
};

TEST(ImportMessages, AnEchoedLineHandedBackByAListenerIsTakenOnce)
{
	CRecordingLog log;
	ImportMessageList list;
	list.SetLog(&log);
	list.SetEchoToConsole(true);
	{
		CHandBack handBack(list);
		list.Log(MINTYARD_IMPORT_LOG_WARNING, "compiling %s\n", "x.zmat");
		// A line logged by someone else while the listener lives still arrives.
		Log_Msg(LOG_GENERAL, "from the compiler\n");
	}
	ASSERT_EQ(2u, log.m_Lines.size());
	EXPECT_EQ(std::make_pair(1, std::string("compiling x.zmat\n")), log.m_Lines[0]);
	EXPECT_EQ(std::make_pair(0, std::string("from the compiler\n")), log.m_Lines[1]);
}

TEST(ImportMessages, FormattingFillsOnlySetArguments)
{
	ImportMessageList list;
	list.AddError("Failed %1 of %2", "3");
	// Without texts: the literal with the set argument filled in, the other left as it is.
	EXPECT_EQ(FormatImportMessage(list[0], nullptr), "Failed 3 of ");
	list.AddWarning("%1%1", "x");
	EXPECT_EQ(FormatImportMessage(list[1], nullptr), "xx");
	// An argument that itself holds a placeholder is not filled again.
	list.AddWarning("%1 and %2", "%2", "y");
	EXPECT_EQ(FormatImportMessage(list[2], nullptr), "%2 and y");
}
