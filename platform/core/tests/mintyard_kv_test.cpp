#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "testsupport/test_support.h"

namespace
{
CommandResult_t RunTool(const std::string &arguments)
{
	return RunCommand(std::string(MINTYARD_KV_PATH) + " " + arguments);
}

class MintyardKVCommand : public testing::Test
{
protected:
	std::string Write(const char *name, const std::string &text) { return m_Directory.Write(name, text); }
	CTempDirectory m_Directory;
};

const char *kHeader =
	"<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n";
} // namespace

TEST_F(MintyardKVCommand, CheckReportsEachBadFileAndExitsOne)
{
	const std::string good3 = Write("good.kv3", std::string(kHeader) + "{ a = 1 // note\n}\n");
	const std::string good1 = Write("good.txt", "\"root\" { \"a\" \"1\" }\n");
	const std::string bad3 = Write("bad.kv3", std::string(kHeader) + "{\n\ta = \"x\n}\n");
	const std::string bad1 = Write("bad.txt", "\"root\"\n{\n\t\"a\" \"1\"\n");

	CommandResult_t result = RunTool("check " + good3 + " " + good1);
	EXPECT_EQ(0, result.exitCode);
	EXPECT_EQ("", result.output);

	result = RunTool("check " + good3 + " " + bad3 + " " + good1 + " " + bad1 + " " + m_Directory.Path("missing.txt"));
	EXPECT_EQ(1, result.exitCode);
	EXPECT_NE(std::string::npos, result.output.find(bad3 + "(3,8): Newline in string literal\n")) << result.output;
	EXPECT_NE(std::string::npos, result.output.find(bad1 + "(")) << result.output;
	EXPECT_NE(std::string::npos, result.output.find("missing.txt: cannot open file")) << result.output;
	EXPECT_EQ(std::string::npos, result.output.find(good3)) << result.output;
}

TEST_F(MintyardKVCommand, FormatRewritesWithTheProjectWriterKeepingTheFormat)
{
	const std::string kv3 = Write("doc.kv3",
		"<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:modeldoc32:version{01020304-0506-0708-090a-0b0c0d0e0f10} -->\n"
		"{ rootNode = { _class = 'RootNode' children = [] } /* gone */ }");
	CommandResult_t result = RunTool("format " + kv3);
	EXPECT_EQ(0, result.exitCode);
	EXPECT_EQ("<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:modeldoc32:version{01020304-0506-0708-090a-0b0c0d0e0f10} -->\n"
			  "{\n\trootNode =\n\t{\n\t\t_class = \"RootNode\"\n\t\tchildren = []\n\t}\n}\n",
		result.output);

	const std::string kv1 = Write("doc.txt", "root { key value [$WIN32] other \"two words\" }");
	result = RunTool("format " + kv1);
	EXPECT_EQ(0, result.exitCode);
	EXPECT_NE(std::string::npos, result.output.find("[$WIN32]")) << result.output; // nothing dropped
	EXPECT_NE(std::string::npos, result.output.find("\"two words\"")) << result.output;

	EXPECT_EQ(2, RunTool("").exitCode);
	EXPECT_EQ(2, RunTool("format").exitCode);
	EXPECT_EQ(1, RunTool("format " + m_Directory.Path("missing.txt")).exitCode);
}
