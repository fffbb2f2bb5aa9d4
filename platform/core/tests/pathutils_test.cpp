// The one rule for names that become paths, and the script includes that follow it.
#include <gtest/gtest.h>

#include "core/keyvalues.h"
#include "core/pathutils.h"
#include "testsupport/pathnames.h"
#include "testsupport/test_support.h"

TEST(PathRule, RefusesTheHostileNamesAndAcceptsTheLegitimateOnes)
{
	for (const PathRuleName_t &name : HostilePathNames())
	{
		CUtlString normalized = "untouched", why, joined = "untouched";
		EXPECT_FALSE(V_IsSafeRelativePath(name.name, &normalized, &why)) << name.what;
		EXPECT_FALSE(why.empty()) << name.what;
		EXPECT_EQ(normalized, "untouched") << name.what;
		EXPECT_FALSE(V_JoinInside("/base", name.name, joined)) << name.what;
		EXPECT_EQ(joined, "untouched") << name.what;
	}
	for (const PathRuleName_t &name : LegitimatePathNames())
	{
		CUtlString normalized, why, joined;
		EXPECT_TRUE(V_IsSafeRelativePath(name.name, &normalized, &why)) << name.what << ": " << why;
		EXPECT_EQ(normalized, PathRuleLanding(name.name)) << name.what;
		ASSERT_TRUE(V_JoinInside("/base/", name.name, joined)) << name.what;
		EXPECT_EQ(joined, "/base/" + PathRuleLanding(name.name)) << name.what;
	}
	// A folder entry of an archive ends with a slash.
	CUtlString folder;
	EXPECT_TRUE(V_IsSafeRelativePath("sub/folder/", &folder));
	EXPECT_EQ(folder, "sub/folder");
}

TEST(PathRule, NormalisesAndJoins)
{
	EXPECT_EQ(V_NormalizePath("a\\b//c/./d/../e"), "a/b/c/e");
	EXPECT_EQ(V_NormalizePath("/x/../../y"), "/y"); // the root has no parent
	EXPECT_EQ(V_NormalizePath("../a/../../b"), "../../b");
	EXPECT_EQ(V_NormalizePath("/"), "/");
	EXPECT_EQ(V_NormalizePath("./"), "");
	EXPECT_TRUE(V_IsAbsolutePath("/a"));
	EXPECT_TRUE(V_IsAbsolutePath("\\a"));
	EXPECT_TRUE(V_IsAbsolutePath("D:"));
	EXPECT_FALSE(V_IsAbsolutePath("1:/a"));
	EXPECT_FALSE(V_IsAbsolutePath("a/b"));
	EXPECT_EQ(V_JoinPath("a/", "/b"), "a/b");
	EXPECT_EQ(V_JoinPath("a", "b"), "a/b");
	EXPECT_EQ(V_JoinPath("", "b"), "b");
}

// #include and #base name files beside the including one, inside the folder of the outermost file.
TEST(PathRule, ScriptIncludesStayInsideTheScriptsFolder)
{
	CTempDirectory dir;
	dir.Write("secret.txt", "Secret { leaked 1 }\n");
	for (const bool bBase : { false, true })
	{
		const char *directive = bBase ? "#base" : "#include";
		for (const PathRuleName_t &name : HostilePathNames())
		{
			const std::string top = dir.Write("scripts/top.txt", std::string(directive) + " \"" + name.name + "\"\nTop { x 1 }\n");
			KeyValues kv("");
			CUtlString error;
			EXPECT_FALSE(kv.LoadFromFile(nullptr, top.c_str(), nullptr, KV1LoadOptions_t(), &error)) << directive << " " << name.what;
			EXPECT_EQ(kv.FindKey("Secret"), nullptr) << name.what;
		}
		for (const PathRuleName_t &name : LegitimatePathNames())
		{
			dir.Write("scripts/" + PathRuleLanding(name.name), "Included { y 2 }\n");
			const std::string top = dir.Write("scripts/top.txt", std::string(directive) + " \"" + name.name + "\"\nTop { x 1 }\n");
			KeyValues kv("");
			CUtlString error;
			ASSERT_TRUE(kv.LoadFromFile(nullptr, top.c_str(), nullptr, KV1LoadOptions_t(), &error)) << directive << " " << name.what << ": " << error;
			bool bFound = false;
			for (KeyValues *k = &kv; k; k = k->GetNextKey())
				bFound |= k->GetInt("y") == 2;
			EXPECT_TRUE(bFound) << directive << " " << name.what;
		}
	}
}
