#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

#include "core/kv3text.h"
#include "testsupport/test_support.h"
#include "toolframework/toolservices.h"

namespace
{
std::string ReadAll(const std::string &path)
{
	CUtlBuffer buffer;
	EXPECT_TRUE(Plat_ReadFile(path.c_str(), buffer)) << path;
	return std::string(buffer.View());
}

CUtlVector<ToolIdentity_t> Tools()
{
	CUtlVector<ToolIdentity_t> tools;
	tools.push_back({ "mintyardmanager", "Mintyard Manager", "game:tools/images/x.png" });
	tools.push_back({ "../escape/me", "Bad", "" });
	tools.push_back({ "item editor/v2", "Item Editor", "" });
	return tools;
}

// Sets an environment variable for the life of the object and puts the old value back.
class CScopedEnv
{
public:
	CScopedEnv(const char *name, const char *value) : m_Name(name)
	{
		if (const char *old = getenv(name))
			m_Old = old;
		if (value)
			setenv(name, value, 1);
		else
			unsetenv(name);
	}
	~CScopedEnv()
	{
		if (m_Old)
			setenv(m_Name.c_str(), m_Old->c_str(), 1);
		else
			unsetenv(m_Name.c_str());
	}

private:
	std::string m_Name;
	std::optional<std::string> m_Old;
};

class ToolSettingsTest : public testing::Test
{
protected:
	ToolSettingsTest() : m_Settings(m_Temp.Path("settings"), Tools()) {}

	CTempDirectory m_Temp;
	CToolSettings m_Settings;
	CKeyValues3Context m_Context;
};

TEST_F(ToolSettingsTest, PathsNameTheTool)
{
	EXPECT_EQ(m_Settings.GetToolSettingsPath(0), m_Temp.Path("settings/mintyardmanager.kv3"));
	// A name is a plain file name: it cannot lead out of the folder or hide the file.
	EXPECT_EQ(m_Settings.GetToolSettingsPath(1), m_Temp.Path("settings/tool1.kv3"));
	EXPECT_EQ(m_Settings.GetToolSettingsPath(2), m_Temp.Path("settings/item_editor_v2.kv3"));
	EXPECT_EQ(m_Settings.GetToolSettingsPath(7), m_Temp.Path("settings/tool7.kv3"));
}

TEST_F(ToolSettingsTest, MissingFileReadsEmpty)
{
	CCaptureLog log;
	KeyValues3 *root = m_Context.Root();
	SetMemberString(root, "stale", "value");
	m_Settings.ReadToolSettings(0, root);
	EXPECT_TRUE(root->IsTable());
	EXPECT_EQ(root->GetMemberCount(), 0u);
	EXPECT_EQ(log.m_Text, "");
}

TEST_F(ToolSettingsTest, RoundTrip)
{
	KeyValues3 *written = m_Context.Root();
	written->MakeTable();
	SetMemberString(written, "geometry", "AdnQywADAAAAAAAA");
	SetMemberString(written, "state", "AAAA/wAAAAD9");
	KeyValues3 *dialog = AddMember(written, "mintyard_import_dialog");
	SetMemberBool(dialog, "automation", true);
	SetMemberInt(dialog, "last_page", 4);
	ASSERT_TRUE(m_Settings.WriteToolSettings(0, written));

	CKeyValues3Context readContext;
	KeyValues3 *read = readContext.Root();
	m_Settings.ReadToolSettings(0, read);
	EXPECT_TRUE(KV3ValuesEqual(read, written));
	EXPECT_STREQ(GetMemberString(read, "geometry"), "AdnQywADAAAAAAAA");
	EXPECT_TRUE(GetMemberBool(GetMember(read, "mintyard_import_dialog"), "automation"));

	// The file is a KV3 text document of its own.
	CKeyValues3Context fileContext;
	CUtlString error;
	EXPECT_TRUE(LoadKV3FromFile(&fileContext, &error, m_Settings.GetToolSettingsPath(0).c_str(), nullptr, KV3_FORMAT_GENERIC))
		<< error;
}

TEST_F(ToolSettingsTest, WriteMergesTopLevelMembers)
{
	KeyValues3 *first = m_Context.Root();
	first->MakeTable();
	SetMemberString(first, "geometry", "g1");
	SetMemberString(first, "state", "s1");
	SetMemberBool(AddMember(first, "mintyard_import_dialog"), "automation", true);
	ASSERT_TRUE(m_Settings.WriteToolSettings(0, first));

	CKeyValues3Context secondContext;
	KeyValues3 *second = secondContext.Root();
	second->MakeTable();
	SetMemberString(second, "state", "s2");
	SetMemberString(second, "recent", "a.zip");
	ASSERT_TRUE(m_Settings.WriteToolSettings(0, second));

	CKeyValues3Context readContext;
	KeyValues3 *read = readContext.Root();
	m_Settings.ReadToolSettings(0, read);
	ASSERT_EQ(read->GetMemberCount(), 4u);
	EXPECT_STREQ(read->GetMemberName(0), "geometry");
	EXPECT_STREQ(GetMemberString(read, "geometry"), "g1");
	EXPECT_STREQ(read->GetMemberName(1), "state");
	EXPECT_STREQ(GetMemberString(read, "state"), "s2");
	EXPECT_TRUE(GetMemberBool(GetMember(read, "mintyard_import_dialog"), "automation"));
	EXPECT_STREQ(GetMemberString(read, "recent"), "a.zip");

	// Another tool's document is another file.
	CKeyValues3Context otherContext;
	m_Settings.ReadToolSettings(1, otherContext.Root());
	EXPECT_EQ(otherContext.Root()->GetMemberCount(), 0u);
}

TEST_F(ToolSettingsTest, BrokenFileWarnsAndIsKept)
{
	const std::string broken = "<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} "
							   "format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n"
							   "{\n\tgeometry = \"abc\"\n\tstate = = 3\n}\n";
	const std::string path = m_Temp.Write("settings/mintyardmanager.kv3", broken);
	{
		CCaptureLog log;
		KeyValues3 *read = m_Context.Root();
		m_Settings.ReadToolSettings(0, read);
		EXPECT_TRUE(read->IsTable());
		EXPECT_EQ(read->GetMemberCount(), 0u);
		EXPECT_EQ(log.m_LastSeverity, LS_WARNING);
		EXPECT_NE(log.m_Text.find(path + "(4,"), std::string::npos) << log.m_Text;
	}
	// Reading leaves the file alone.
	EXPECT_EQ(ReadAll(path), broken);
	EXPECT_FALSE(Plat_FileExists((path + ".broken").c_str()));

	CKeyValues3Context writeContext;
	KeyValues3 *settings = writeContext.Root();
	settings->MakeTable();
	SetMemberString(settings, "geometry", "new");
	{
		CCaptureLog log;
		ASSERT_TRUE(m_Settings.WriteToolSettings(0, settings));
	}
	EXPECT_EQ(ReadAll(path + ".broken"), broken);
	CKeyValues3Context readContext;
	m_Settings.ReadToolSettings(0, readContext.Root());
	EXPECT_EQ(readContext.Root()->GetMemberCount(), 1u);
	EXPECT_STREQ(GetMemberString(readContext.Root(), "geometry"), "new");

	// A second broken file does not replace the first copy.
	const std::string brokenAgain = "not kv3 at all";
	m_Temp.Write("settings/mintyardmanager.kv3", brokenAgain);
	{
		CCaptureLog log;
		ASSERT_TRUE(m_Settings.WriteToolSettings(0, settings));
	}
	EXPECT_EQ(ReadAll(path + ".broken"), broken);
	EXPECT_EQ(ReadAll(path + ".broken.1"), brokenAgain);
}

TEST_F(ToolSettingsTest, DocumentThatIsNoTable)
{
	const std::string path = m_Temp.Write("settings/mintyardmanager.kv3",
		"<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} "
		"format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n[ 1, 2 ]\n");
	CCaptureLog log;
	m_Settings.ReadToolSettings(0, m_Context.Root());
	EXPECT_TRUE(m_Context.Root()->IsTable());
	EXPECT_EQ(m_Context.Root()->GetMemberCount(), 0u);
	EXPECT_NE(log.m_Text.find(path), std::string::npos);
	EXPECT_NE(log.m_Text.find("not a table"), std::string::npos);
}

TEST_F(ToolSettingsTest, FailedWriteSaysSoAndKeepsTheFile)
{
	CCaptureLog log;
	// The settings folder is a file: nothing can be written under it.
	m_Temp.Write("blocked", "a file");
	CToolSettings settings(m_Temp.Path("blocked/sub"), Tools());
	KeyValues3 *root = m_Context.Root();
	root->MakeTable();
	SetMemberString(root, "geometry", "g");
	EXPECT_FALSE(settings.WriteToolSettings(0, root));
	EXPECT_EQ(log.m_LastSeverity, LS_WARNING);
	EXPECT_EQ(ReadAll(m_Temp.Path("blocked")), "a file");

	// Settings that are no table are refused.
	CKeyValues3Context other;
	other.Root()->SetString("text");
	EXPECT_FALSE(m_Settings.WriteToolSettings(0, other.Root()));
	EXPECT_FALSE(Plat_FileExists(m_Settings.GetToolSettingsPath(0).c_str()));
}

TEST(ToolSettingsFolder, FollowsXdgConfigHome)
{
	CTempDirectory temp;
	CScopedEnv xdg("XDG_CONFIG_HOME", temp.Path("config").c_str());
	CToolSettings settings("", Tools());
	EXPECT_EQ(settings.GetToolSettingsPath(0), temp.Path("config/mintyard/mintyardmanager.kv3"));

	CKeyValues3Context context;
	context.Root()->MakeTable();
	SetMemberString(context.Root(), "geometry", "x");
	// The folder is made on the first write.
	ASSERT_TRUE(settings.WriteToolSettings(0, context.Root()));
	EXPECT_TRUE(Plat_FileExists(temp.Path("config/mintyard/mintyardmanager.kv3").c_str()));
}

TEST(ToolSettingsFolder, FallsBackToHome)
{
	CTempDirectory temp;
	CScopedEnv home("HOME", temp.Path().c_str());
	{
		CScopedEnv xdg("XDG_CONFIG_HOME", nullptr);
		EXPECT_EQ(ToolSettings_DefaultFolder(), temp.Path(".config/mintyard"));
	}
	{
		// A relative XDG_CONFIG_HOME does not count.
		CScopedEnv xdg("XDG_CONFIG_HOME", "relative/config");
		EXPECT_EQ(ToolSettings_DefaultFolder(), temp.Path(".config/mintyard"));
	}
}
} // namespace
