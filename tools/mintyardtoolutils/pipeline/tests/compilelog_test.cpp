// The compile log listener: the compiler's lines go to the import log once, also when the log
// echoes them to the console (the echo comes back to the listener, the only one while it lives).
#include <gtest/gtest.h>

#include "core/logging.h"
#include "mintyardtoolutils/core/importmessages.h"
#include "mintyardtoolutils/pipeline/importdriver.h"

namespace
{
class CLines : public IMintyardImportLog
{
public:
	void LogMessage(int nSeverity, const char *pszText) override { m_Lines.push_back(std::to_string(nSeverity) + ":" + pszText); }
	std::vector<std::string> m_Lines;
};
} // namespace

TEST(CompileLog, LinesReachTheImportLogOnceWithTheConsoleEcho)
{
	for (bool bEcho : { false, true })
	{
		CLines lines;
		ImportMessageList list;
		list.SetLog(&lines);
		list.SetEchoToConsole(bEcho);
		{
			CImportLogMessageScopeGuard guard(list, "test");
			const LoggingContext_t context{ LOG_GENERAL, "General", LS_MESSAGE, true };
			guard.Log(context, "Compiling material a.zmat\n");
			const LoggingContext_t warning{ LOG_GENERAL, "General", LS_WARNING, true };
			guard.Log(warning, "warning: b\n");
		}
		ASSERT_EQ(lines.m_Lines.size(), 2u) << "echo " << bEcho;
		EXPECT_EQ(lines.m_Lines[0], "0:Compiling material a.zmat\n");
		EXPECT_EQ(lines.m_Lines[1], "1:warning: b\n");
	}
}
