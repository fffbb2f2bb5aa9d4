#include <gtest/gtest.h>

#include "toolframework/commandline.h"

namespace
{
void SetCommandLine(std::initializer_list<const char *> args)
{
	std::vector<const char *> argv(args);
	CommandLine()->CreateCmdLine((int)argv.size(), argv.data());
}

TEST(CommandLine, FindsOptionsWithoutCase)
{
	SetCommandLine({ "host", "-game", "/x/game/zarn", "-Mintyard_Items" });
	EXPECT_EQ(CommandLine()->FindParm("-game"), 1);
	EXPECT_EQ(CommandLine()->FindParm("-MINTYARD_ITEMS"), 3);
	EXPECT_TRUE(CommandLine()->HasParm("-mintyard_items"));
	EXPECT_FALSE(CommandLine()->HasParm("-quern_mintyard"));
	// The program's own name is no option.
	EXPECT_EQ(CommandLine()->FindParm("host"), 0);
	EXPECT_EQ(CommandLine()->ParmCount(), 4);
	EXPECT_STREQ(CommandLine()->GetParm(2), "/x/game/zarn");
	EXPECT_EQ(CommandLine()->GetParm(4), nullptr);
}

TEST(CommandLine, ValueOrDefault)
{
	SetCommandLine({ "host", "-game", "/x/game/zarn", "-item_file", "-mintyard_items", "-flag", "+cvar", "1", "-last" });
	EXPECT_STREQ(CommandLine()->ParmValue("-GAME"), "/x/game/zarn");
	// Followed by another option: no value.
	EXPECT_STREQ(CommandLine()->ParmValue("-item_file", "none"), "none");
	EXPECT_EQ(CommandLine()->ParmValue("-item_file"), nullptr);
	EXPECT_STREQ(CommandLine()->ParmValue("-flag", "d"), "d");
	// Last on the line: no value.
	EXPECT_STREQ(CommandLine()->ParmValue("-last", "d"), "d");
	// Absent.
	EXPECT_STREQ(CommandLine()->ParmValue("-absent", "d"), "d");
}

TEST(CommandLine, IntegerValues)
{
	SetCommandLine({ "host", "-width", "1280", "-height", "12px", "-depth" });
	EXPECT_EQ(CommandLine()->ParmValueInt("-width", 5), 1280);
	EXPECT_EQ(CommandLine()->ParmValueInt("-height", 5), 5);
	EXPECT_EQ(CommandLine()->ParmValueInt("-depth", 7), 7);
	EXPECT_EQ(CommandLine()->ParmValueInt("-absent", -3), -3);
}

TEST(CommandLine, RepeatedOptions)
{
	SetCommandLine({ "host", "-addon", "first", "-game", "g", "-ADDON", "second", "-addon", "-addon", "third" });
	CUtlVector<CUtlString> values;
	CommandLine()->ParmValues("-addon", values);
	ASSERT_EQ(values.size(), 3u);
	EXPECT_EQ(values[0], "first");
	EXPECT_EQ(values[1], "second");
	EXPECT_EQ(values[2], "third");
	// The single-value reader takes the first occurrence.
	EXPECT_STREQ(CommandLine()->ParmValue("-addon"), "first");
}

TEST(CommandLine, ConsoleCommandsInOrder)
{
	SetCommandLine({ "host", "+zarn_b", "2", "-game", "g", "+zarn_a", "+zarn_c", "-1", "+zarn_d", "-flag", "+zarn_e", "text" });
	CUtlVector<CUtlString> names, values;
	CommandLine()->GetConsoleCommands(names, values);
	ASSERT_EQ(names.size(), 5u);
	ASSERT_EQ(values.size(), 5u);
	EXPECT_EQ(names[0], "zarn_b");
	EXPECT_EQ(values[0], "2");
	EXPECT_EQ(names[1], "zarn_a");
	EXPECT_EQ(values[1], "");
	EXPECT_EQ(names[2], "zarn_c");
	EXPECT_EQ(values[2], "-1");
	EXPECT_EQ(names[3], "zarn_d");
	EXPECT_EQ(values[3], "");
	EXPECT_EQ(names[4], "zarn_e");
	EXPECT_EQ(values[4], "text");
	EXPECT_TRUE(CommandLine()->HasParm("-flag"));
}
} // namespace
