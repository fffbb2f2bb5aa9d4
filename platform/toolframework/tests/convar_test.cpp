#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <memory>

#include "testsupport/test_support.h"
#include "toolframework/convar.h"

namespace
{
// Defined at namespace scope, as tools define theirs: registered before main runs.
ConVar s_StaticVar("tf_test_static_var", "3", "a variable made by a static initialiser");

TEST(ConVar, StaticVariableIsRegistered)
{
	EXPECT_EQ(CVar()->FindVar("tf_test_static_var"), &s_StaticVar);
	EXPECT_EQ(CVar()->FindVar("TF_Test_Static_Var"), &s_StaticVar);
	EXPECT_STREQ(s_StaticVar.GetHelpText(), "a variable made by a static initialiser");
	EXPECT_EQ(s_StaticVar.GetInt(), 3);
}

TEST(ConVar, SetThroughTheRegistry)
{
	ConVar var("tf_test_set", "0");
	EXPECT_TRUE(CVar()->SetValue("TF_TEST_SET", "42"));
	EXPECT_STREQ(var.GetString(), "42");
	EXPECT_EQ(var.GetInt(), 42);
	EXPECT_TRUE(var.GetBool());
	EXPECT_FALSE(CVar()->SetValue("tf_test_no_such_var", "1"));
	var.Revert();
	EXPECT_STREQ(var.GetString(), "0");
	EXPECT_FALSE(var.GetBool());
}

TEST(ConVar, NumbersAreParsed)
{
	ConVar var("tf_test_numbers", "");
	struct Case_t
	{
		const char *text;
		int i;
		float f;
	} cases[] = {
		{ "", 0, 0.0f },
		{ "abc", 0, 0.0f },
		{ "17", 17, 17.0f },
		{ "-4", -4, -4.0f },
		{ "+8", 8, 8.0f },
		{ " 5", 5, 5.0f },
		{ "2.75", 2, 2.75f },
		{ "-2.75", -2, -2.75f },
		{ "1e3", 1000, 1000.0f },
		{ "0.5px", 0, 0.5f },
		{ "99999999999", 2147483647, 99999999999.0f },
	};
	for (const Case_t &c : cases)
	{
		var.SetValue(c.text);
		EXPECT_EQ(var.GetInt(), c.i) << '"' << c.text << '"';
		EXPECT_FLOAT_EQ(var.GetFloat(), c.f) << '"' << c.text << '"';
	}
}

TEST(ConVar, ParsingIgnoresTheLocale)
{
	const char *previous = setlocale(LC_NUMERIC, nullptr);
	const std::string saved = previous ? previous : "C";
	bool bCommaLocale = false;
	for (const char *name : { "de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "fr_FR.utf8" })
	{
		if (setlocale(LC_NUMERIC, name) && localeconv()->decimal_point[0] == ',')
		{
			bCommaLocale = true;
			break;
		}
	}
	if (!bCommaLocale)
	{
		setlocale(LC_NUMERIC, saved.c_str());
		GTEST_SKIP() << "no locale with a decimal comma is installed";
	}
	ConVar var("tf_test_locale", "0.25");
	const float value = var.GetFloat();
	setlocale(LC_NUMERIC, saved.c_str());
	EXPECT_FLOAT_EQ(value, 0.25f);
}

TEST(ConVar, DestructionUnregisters)
{
	{
		auto var = std::make_unique<ConVar>("tf_test_scoped", "1");
		EXPECT_EQ(CVar()->FindVar("tf_test_scoped"), var.get());
		CUtlVector<CUtlString> names;
		CVar()->GetVarNames(names);
		EXPECT_NE(std::find(names.begin(), names.end(), "tf_test_scoped"), names.end());
	}
	EXPECT_EQ(CVar()->FindVar("tf_test_scoped"), nullptr);
	EXPECT_FALSE(CVar()->SetValue("tf_test_scoped", "2"));
	CUtlVector<CUtlString> names;
	CVar()->GetVarNames(names);
	EXPECT_EQ(std::find(names.begin(), names.end(), "tf_test_scoped"), names.end());
}

TEST(ConVar, TwoDefinitionsFollowOneValue)
{
	CCaptureLog log;
	ConVar first("tf_test_twice", "1");
	ConVar second("tf_test_twice", "1");
	EXPECT_NE(log.m_Text.find("tf_test_twice"), std::string::npos);
	EXPECT_TRUE(CVar()->SetValue("tf_test_twice", "5"));
	EXPECT_EQ(first.GetInt(), 5);
	EXPECT_EQ(second.GetInt(), 5);
	CUtlVector<CUtlString> names;
	CVar()->GetVarNames(names);
	EXPECT_EQ(std::count(names.begin(), names.end(), "tf_test_twice"), 1);
}
} // namespace
