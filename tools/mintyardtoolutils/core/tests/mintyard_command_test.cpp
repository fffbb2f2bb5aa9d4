// The `mintyard templates` command on the sample game and on broken game folders.
#include <gtest/gtest.h>

#include "testsupport/test_support.h"

namespace
{
const char *const KV3_HEADER =
	"<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n";

std::string Command()
{
	return std::string(MINTYARD_BINARY_DIR) + "/bin/mintyard";
}

std::string SampleGame()
{
	return std::string(MINTYARD_SOURCE_DIR) + "/sample/game/zarn";
}

bool HasLine(const std::string &output, const std::string &line)
{
	return ("\n" + output + "\n").find("\n" + line + "\n") != std::string::npos;
}
} // namespace

TEST(MintyardCommand, TemplatesOfTheSampleGame)
{
	const CommandResult_t result = RunCommand(Command() + " templates --game " + SampleGame());
	EXPECT_EQ(result.exitCode, 0) << result.output;
	EXPECT_TRUE(HasLine(result.output, "10 templates")) << result.output;
	EXPECT_TRUE(HasLine(result.output, "courier\tCourier\t[Courier]")) << result.output;
	EXPECT_TRUE(HasLine(result.output, "music_pack\tMusic Pack\t[Music]")) << result.output;
	EXPECT_TRUE(HasLine(result.output, "custom_wearable.bramble.misc\tMiscellaneous\t[Wearable, Bramble, misc]")) << result.output;
	EXPECT_EQ(result.output.find("warning"), std::string::npos) << result.output;
	EXPECT_EQ(result.output.find("wearable.npc_zarn_hero"), std::string::npos) << result.output;
	// No raw token reaches the list.
	EXPECT_EQ(result.output.find("\t#"), std::string::npos) << result.output;
}

TEST(MintyardCommand, BuiltTemplatesOnRequest)
{
	const CommandResult_t result = RunCommand(Command() + " templates --built --game " + SampleGame());
	EXPECT_EQ(result.exitCode, 0) << result.output;
	EXPECT_TRUE(HasLine(result.output, "wearable.npc_zarn_hero_bramble.head\tBramble - Head\t[Wearable, Bramble, head]")) << result.output;
	EXPECT_TRUE(HasLine(result.output, "abilityicons.npc_zarn_hero_cinder\tAbility Icons\t[Ability Icons, Cinder]")) << result.output;
	// The no_import slot has none.
	EXPECT_EQ(result.output.find("wearable.npc_zarn_hero_bramble.misc"), std::string::npos) << result.output;
	EXPECT_EQ(result.output.find("\t#"), std::string::npos) << result.output;
}

TEST(MintyardCommand, WarningsOfABrokenTemplate)
{
	CTempDirectory root;
	root.Write("game/zarn/scripts/mintyard_import_templates/templates.txt",
		std::string(KV3_HEADER) + "{ templates = [ \"scripts/mintyard_import_templates/a.txt\", \"scripts/mintyard_import_templates/b.txt\" ] }");
	root.Write("game/zarn/scripts/mintyard_import_templates/a.txt", std::string(KV3_HEADER) + "{ id = \"a\" name = \"A\" mintyard_tags = [ \"X\" ] }");
	root.Write("game/zarn/scripts/mintyard_import_templates/b.txt", std::string(KV3_HEADER) + "{ id = \"b\"\n models = [ ");
	const CommandResult_t result = RunCommand(Command() + " templates --game " + root.Path("game/zarn"));
	EXPECT_EQ(result.exitCode, 0) << result.output;
	EXPECT_TRUE(HasLine(result.output, "1 templates")) << result.output;
	EXPECT_TRUE(HasLine(result.output, "a\tA\t[X]")) << result.output;
	EXPECT_TRUE(HasLine(result.output, "1 warnings, 0 errors")) << result.output;
	EXPECT_NE(result.output.find("warning: "), std::string::npos) << result.output;
	EXPECT_NE(result.output.find("b.txt(3,"), std::string::npos) << result.output;
}

TEST(MintyardCommand, FailuresAndUsage)
{
	CTempDirectory root;
	root.Write("game/zarn/README.txt", "empty game\n");
	CommandResult_t result = RunCommand(Command() + " templates --game " + root.Path("game/zarn"));
	EXPECT_EQ(result.exitCode, 1) << result.output;
	EXPECT_NE(result.output.find("error: "), std::string::npos) << result.output;
	EXPECT_NE(result.output.find("templates.txt"), std::string::npos) << result.output;

	result = RunCommand(Command() + " templates --game " + root.Path("no/such/game"));
	EXPECT_EQ(result.exitCode, 1) << result.output;
	EXPECT_NE(result.output.find("does not exist"), std::string::npos) << result.output;

	result = RunCommand(Command() + " templates");
	EXPECT_EQ(result.exitCode, 2) << result.output;
	result = RunCommand(Command() + " templates --game");
	EXPECT_EQ(result.exitCode, 2) << result.output;
	result = RunCommand(Command() + " frobnicate");
	EXPECT_EQ(result.exitCode, 2) << result.output;
	EXPECT_NE(result.output.find("unknown command 'frobnicate'"), std::string::npos) << result.output;
	result = RunCommand(Command() + " help");
	EXPECT_EQ(result.exitCode, 0) << result.output;
	EXPECT_NE(result.output.find("templates --game DIR"), std::string::npos) << result.output;
}
