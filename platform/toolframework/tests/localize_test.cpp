#include <gtest/gtest.h>

#include "testsupport/test_support.h"
#include "toolframework/localize.h"

namespace
{
// The localisation is process-wide, so each test uses tokens of its own.
bool AddText(const CTempDirectory &temp, const char *name, const std::string &text, CUtlString *pError = nullptr)
{
	const std::string path = temp.Write(name, text);
	return Localize()->AddFile(path.c_str(), nullptr, pError);
}

TEST(Localize, TokensWithAndWithoutHash)
{
	CTempDirectory temp;
	ASSERT_TRUE(AddText(temp, "a.txt",
		"\"lang\"\n{\n\t\"Language\" \"English\"\n\t\"Tokens\"\n\t{\n"
		"\t\t\"#LocA_Title\" \"Mintyard Manager\"\n"
		"\t\t\"LocA_Bare\" \"No hash in the file\"\n"
		"\t\t\"#LocA_Lines\" \"one\\ntwo\"\n"
		"\t}\n}\n"));
	EXPECT_STREQ(Localize()->Find("#LocA_Title"), "Mintyard Manager");
	EXPECT_STREQ(Localize()->Find("loca_title"), "Mintyard Manager");
	EXPECT_STREQ(Localize()->Find("#LOCA_BARE"), "No hash in the file");
	EXPECT_STREQ(Localize()->Translate("#loca_bare"), "No hash in the file");
	EXPECT_STREQ(Localize()->Translate("#LocA_Lines"), "one\ntwo");
	EXPECT_EQ(Localize()->Find("#LocA_Missing"), nullptr);
}

TEST(Localize, TranslateLeavesOtherTextAlone)
{
	CTempDirectory temp;
	ASSERT_TRUE(AddText(temp, "b.txt", "\"lang\" { \"Tokens\" { \"LocB_Word\" \"translated\" } }"));
	// Unknown token: itself.
	EXPECT_STREQ(Localize()->Translate("#LocB_Unknown"), "#LocB_Unknown");
	// No "#": as it is, even when a token has that name.
	EXPECT_STREQ(Localize()->Translate("LocB_Word"), "LocB_Word");
	EXPECT_STREQ(Localize()->Translate("#LocB_Word"), "translated");
	EXPECT_STREQ(Localize()->Translate(nullptr), "");
}

TEST(Localize, LaterFilesOverride)
{
	CTempDirectory temp;
	const int before = Localize()->TokenCount();
	ASSERT_TRUE(AddText(temp, "first.txt", "\"lang\" { \"Tokens\" { \"#LocC_One\" \"first\" \"#LocC_Two\" \"first two\" } }"));
	ASSERT_TRUE(AddText(temp, "second.txt", "\"lang\" { \"Tokens\" { \"locc_one\" \"second\" } }"));
	EXPECT_STREQ(Localize()->Translate("#LocC_One"), "second");
	EXPECT_STREQ(Localize()->Translate("#LocC_Two"), "first two");
	EXPECT_EQ(Localize()->TokenCount(), before + 2);
}

TEST(Localize, FormatFillsArguments)
{
	CTempDirectory temp;
	ASSERT_TRUE(AddText(temp, "d.txt",
		"\"lang\" { \"Tokens\" {\n"
		"\"#LocD_Four\" \"%4-%3-%2-%1\"\n"
		"\"#LocD_Nested\" \"Model %1 is %2\"\n"
		"\"#LocD_Ok\" \"fine\"\n"
		"} }"));
	EXPECT_EQ(Localize()->Format("#LocD_Four", "a", "b", "c", "d"), "d-c-b-a");
	// A "#" argument is translated too; an unknown one shows as itself.
	EXPECT_EQ(Localize()->Format("#LocD_Nested", "#LocD_Unknown", "#LocD_Ok"), "Model #LocD_Unknown is fine");
	// Missing arguments leave their place holder.
	// An argument that was not given shows as nothing.
	EXPECT_EQ(Localize()->Format("#LocD_Nested", "x"), "Model x is ");
	// Untranslated text is filled in as well; an argument is not filled in again.
	EXPECT_EQ(Localize()->Format("%1 of %2", "%2", "ten"), "%2 of ten");
	EXPECT_EQ(Localize()->Format("100% sure %5"), "100% sure %5");
}

TEST(Localize, BrokenFileKeepsEarlierTokens)
{
	CTempDirectory temp;
	ASSERT_TRUE(AddText(temp, "good.txt", "\"lang\" { \"Tokens\" { \"#LocE_Kept\" \"kept\" } }"));
	const int count = Localize()->TokenCount();
	CCaptureLog log;
	CUtlString error;
	EXPECT_FALSE(AddText(temp, "broken.txt", "\"lang\"\n{\n\t\"Tokens\"\n\t{\n\t\t\"#LocE_Kept\" \"replaced\"\n\t\t\"#LocE_New\" \"x\"\n\t\n", &error));
	EXPECT_NE(error.find("broken.txt("), CUtlString::npos) << error;
	EXPECT_NE(log.m_Text.find("broken.txt("), std::string::npos) << log.m_Text;
	EXPECT_EQ(log.m_LastSeverity, LS_WARNING);
	EXPECT_STREQ(Localize()->Translate("#LocE_Kept"), "kept");
	EXPECT_EQ(Localize()->Find("#LocE_New"), nullptr);
	EXPECT_EQ(Localize()->TokenCount(), count);
}

TEST(Localize, MissingFileAndMissingTokensBlock)
{
	CTempDirectory temp;
	CCaptureLog log;
	CUtlString error;
	EXPECT_FALSE(Localize()->AddFile(temp.Path("absent.txt").c_str(), nullptr, &error));
	EXPECT_NE(error.find("absent.txt"), CUtlString::npos) << error;
	EXPECT_FALSE(AddText(temp, "notokens.txt", "\"lang\" { \"Language\" \"English\" }", &error));
	EXPECT_NE(error.find("Tokens"), CUtlString::npos) << error;
	EXPECT_NE(log.m_Text.find("notokens.txt"), std::string::npos);
}
} // namespace
