// The validate, zip and unzip subcommands of `mintyard`, run as a user runs them, on the sample
// game and its sample sessions.
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "testsupport/test_support.h"
#include "elements_test_support.h"
#include "zip/zip_utils.h"

using namespace elementstest;

namespace
{
const std::string kMintyard = MINTYARD_BINARY_DIR "/bin/mintyard";
const std::string kGame = MINTYARD_SOURCE_DIR "/sample/game/zarn";
const std::string kSessions = MINTYARD_SOURCE_DIR "/sample/sessions";
const std::string kHeader =
	"<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n";

std::vector<std::string> Lines(const std::string &text)
{
	std::vector<std::string> lines;
	std::istringstream in(text);
	for (std::string line; std::getline(in, line);)
		lines.push_back(line);
	return lines;
}

class SessionCommandsTest : public ::testing::Test
{
protected:
	// Runs mintyard with its scratch folder in the test's folder; standard error is dropped
	// unless asked for, so that the game's load notes do not mix with the printed lines.
	CommandResult_t Run(const std::string &args, bool bWithErrors = false)
	{
		return RunCommand("MINTYARD_SCRATCH_DIR=" + m_Dir.Path("scratch") + " " + kMintyard + " " + args + (bWithErrors ? "" : " 2>/dev/null"));
	}
	CTempDirectory m_Dir;
};
} // namespace

TEST_F(SessionCommandsTest, SampleSessionsValidateClean)
{
	for (const char *name : { "courier.session.txt", "emoticons.session.txt" })
	{
		const CommandResult_t result = Run("validate --game " + kGame + " " + kSessions + "/" + name);
		EXPECT_EQ(result.exitCode, 0) << name << "\n" << result.output;
		EXPECT_EQ(result.output, "") << name;
	}
}

TEST_F(SessionCommandsTest, ValidatePrintsTranslatedMessagesAndFailsOnErrors)
{
	m_Dir.Write("art/lod0.fbx", "mesh");
	m_Dir.Write("art/body.obj", "mesh");
	const std::string session = m_Dir.Write("broken.session.txt", kHeader +
		"{ template_name = \"courier\" import_name = \"Broken\"\n"
		"  model_list = [ { id = \"model_courier\" lod_list = [ { id = \"lod0\" source_filename = \"art/lod0.fbx\" },\n"
		"                                                      { id = \"lod1\" source_filename = \"art/body.obj\" } ] } ] }\n");
	CommandResult_t result = Run("validate --game " + kGame + " " + session);
	EXPECT_EQ(result.exitCode, 1) << result.output;
	const std::vector<std::string> lines = Lines(result.output);
	auto Has = [&](const std::string &line) { return std::find(lines.begin(), lines.end(), line) != lines.end(); };
	EXPECT_TRUE(Has("error: World Mesh (LOD 1): the file must be an FBX or DMX file")) << result.output;
	EXPECT_TRUE(Has("error: The name may only hold lower-case letters, digits and '_'")) << result.output;
	EXPECT_TRUE(Has("warning: Run Animation: no file or text given")) << result.output;
	for (const std::string &line : lines)
	{
		EXPECT_TRUE(line.rfind("error: ", 0) == 0 || line.rfind("warning: ", 0) == 0) << line;
		EXPECT_EQ(line.find("#ZARN_"), std::string::npos) << "untranslated: " << line;
	}

	result = Run("validate --tokens --game " + kGame + " " + session);
	EXPECT_EQ(result.exitCode, 1);
	const std::vector<std::string> tokenLines = Lines(result.output);
	EXPECT_EQ(tokenLines.size(), lines.size());
	EXPECT_NE(std::find(tokenLines.begin(), tokenLines.end(), "error: #ZARN_Mintyard_Err_InvalidFileType\t#ZARN_Mintyard_LOD1Title"), tokenLines.end())
		<< result.output;
	EXPECT_NE(std::find(tokenLines.begin(), tokenLines.end(), "warning: #ZARN_Mintyard_Err_MissingInput\t#ZARN_Mintyard_Anim_Run"), tokenLines.end())
		<< result.output;
	// The name "Broken" has upper case; the name rule's tokens carry no argument beyond the name.
	EXPECT_NE(result.output.find("error: #ZARN_Mintyard_Err_InvalidChars"), std::string::npos);

	// Relaxed: the extension is no longer checked.
	result = Run("validate --tokens --relaxed --game " + kGame + " " + session);
	EXPECT_EQ(result.output.find("InvalidFileType"), std::string::npos);
}

TEST_F(SessionCommandsTest, WarningsAloneSucceed)
{
	ASSERT_TRUE(WriteFile(m_Dir.Path("odd.png"), MakePng(40, 32)));
	const std::string session = m_Dir.Write("odd.session.txt", kHeader +
		"{ template_name = \"emoticons\" import_name = \"odd\"\n"
		"  image_set_list = [ { id = \"emoticons\" emoticon_image_list = [ { id = \"emoticon_1\" emoticon_image = \"odd.png\" emoticon_keyword = \"\" } ] } ] }\n");
	const CommandResult_t result = Run("validate --tokens --game " + kGame + " " + session);
	EXPECT_EQ(result.exitCode, 0) << result.output;
	const std::vector<std::string> lines = Lines(result.output);
	ASSERT_EQ(lines.size(), 2u) << result.output;
	EXPECT_EQ(lines[0], "warning: #ZARN_Mintyard_Error_EmoticonWidth\t#ZARN_Mintyard_ChatEmoticon_Image\t40\t32");
	EXPECT_EQ(lines[1], "warning: #ZARN_Mintyard_Err_MissingInput\t#ZARN_Mintyard_ChatEmoticon_Keyword");
}

TEST_F(SessionCommandsTest, ValidateRefusesWhatItCannotLoad)
{
	const std::string session = m_Dir.Write("unknown.session.txt", kHeader + "{ template_name = \"no_such_template\" }\n");
	CommandResult_t result = Run("validate --tokens --game " + kGame + " " + session, true);
	EXPECT_EQ(result.exitCode, 1);
	EXPECT_NE(result.output.find("error: #ZARN_Mintyard_Err_SessionLoadBadTemplate\tno_such_template"), std::string::npos) << result.output;
	result = Run("validate --game " + kGame);
	EXPECT_EQ(result.exitCode, 2);
	result = Run("validate " + session);
	EXPECT_EQ(result.exitCode, 2);
}

TEST_F(SessionCommandsTest, ZipThenUnzipRoundTrip)
{
	CommandResult_t result = Run("zip --game " + kGame + " " + kSessions + "/courier.session.txt");
	ASSERT_EQ(result.exitCode, 0) << result.output;
	const std::string zipPath = Lines(result.output).at(0);
	const std::string prefix = m_Dir.Path("scratch") + "/sample_courier/mintyard_submit_sample_courier_";
	EXPECT_EQ(zipPath.compare(0, prefix.size(), prefix), 0) << zipPath;
	ASSERT_TRUE(std::filesystem::exists(zipPath));
	std::unique_ptr<IZip, void (*)(IZip *)> zip(IZip::CreateZip(), &IZip::ReleaseZip);
	ASSERT_TRUE(zip->ParseFromDisk(zipPath.c_str()));
	EXPECT_TRUE(zip->FileExistsInZip("mintyard_import_manifest.txt"));
	EXPECT_TRUE(zip->FileExistsInZip("model_courier/lod1_saddlebag.fbx"));
	EXPECT_TRUE(zip->FileExistsInZip("model_courier/material_body/color.png"));
	EXPECT_TRUE(zip->FileExistsInZip("model_courier/run_bundle/run_anim_turnpose_left.fbx"));
	EXPECT_TRUE(zip->FileExistsInZip("model_courier_flying/lod1.fbx"));

	result = Run("unzip --game " + kGame + " " + zipPath);
	ASSERT_EQ(result.exitCode, 0) << result.output;
	const std::string sessionPath = Lines(result.output).at(0);
	ASSERT_TRUE(std::filesystem::exists(sessionPath)) << sessionPath;
	EXPECT_EQ(sessionPath.substr(sessionPath.size() - 12), ".session.txt");
	const std::string folder = sessionPath.substr(0, sessionPath.size() - 12);
	EXPECT_TRUE(std::filesystem::is_directory(folder));
	EXPECT_TRUE(std::filesystem::exists(folder + "/model_courier/lod0.fbx"));
	std::ifstream in(sessionPath);
	std::stringstream text;
	text << in.rdbuf();
	EXPECT_NE(text.str().find(folder + "/model_courier/material_body/normal.png"), std::string::npos);
	// The written-back session is complete: it validates without a message.
	result = Run("validate --game " + kGame + " " + sessionPath);
	EXPECT_EQ(result.exitCode, 0) << result.output;
	EXPECT_EQ(result.output, "");
}

TEST_F(SessionCommandsTest, UnzipRefusesEntriesOutsideItsFolder)
{
	std::unique_ptr<IZip, void (*)(IZip *)> zip(IZip::CreateZip(), &IZip::ReleaseZip);
	const std::string manifest = kHeader + "{ template_name = \"courier\" import_name = \"x\" }\n";
	ASSERT_TRUE(zip->AddBufferToZip("mintyard_import_manifest.txt", manifest.data(), (int64)manifest.size(), true));
	ASSERT_TRUE(zip->AddBufferToZip("../../escaped.txt", "owned", 5, false));
	CUtlBuffer buffer;
	ASSERT_TRUE(zip->SaveToBuffer(buffer));
	ASSERT_TRUE(WriteFile(m_Dir.Path("evil.zip"), std::string(buffer.View())));
	const CommandResult_t result = Run("unzip --game " + kGame + " " + m_Dir.Path("evil.zip"), true);
	EXPECT_EQ(result.exitCode, 1);
	EXPECT_NE(result.output.find("../../escaped.txt"), std::string::npos) << result.output;
	EXPECT_FALSE(std::filesystem::exists(m_Dir.Path("escaped.txt")));
	EXPECT_FALSE(std::filesystem::exists(m_Dir.Path("scratch/../escaped.txt")));
}
