// The search language against files that must and must not match, and queries that must be
// refused with a position.
#include <gtest/gtest.h>

#include <string>

#include "brume/query/brumequery.h"

namespace
{
BrumeQueryRecord_t File(uint32 type, std::vector<std::string> tags, std::vector<std::pair<std::string, std::string>> kv = {})
{
	BrumeQueryRecord_t record;
	record.m_nFileType = type;
	record.m_Tags = std::move(tags);
	record.m_KeyValueTags = std::move(kv);
	return record;
}

bool Matches(const std::string &query, const BrumeQueryRecord_t &record)
{
	CBrumeQuery parsed;
	std::string error;
	EXPECT_TRUE(parsed.Parse(query, error)) << query << ": " << error;
	return parsed.Matches(record);
}

std::string ErrorOf(const std::string &query)
{
	CBrumeQuery parsed;
	std::string error;
	EXPECT_FALSE(parsed.Parse(query, error)) << query;
	EXPECT_FALSE(parsed.Matches(BrumeQueryRecord_t()));
	return error;
}
} // namespace

TEST(BrumeQuery, FieldsCompareExactlyAndPrefixesMatchTheStart)
{
	EXPECT_TRUE(Matches("tags:(\"Map\" OR \"map\")", File(0, { "Map" })));
	EXPECT_TRUE(Matches("tags:(\"Map\" OR \"map\")", File(0, { "map" })));
	EXPECT_FALSE(Matches("tags:(\"Map\" OR \"map\")", File(0, { "MAP" })));
	EXPECT_FALSE(Matches("tags:(\"Map\" OR \"map\")", File(0, { "Maps" })));
	EXPECT_TRUE(Matches("tags:\"Asset Pack\"", File(0, { "Asset Pack" })));
	EXPECT_FALSE(Matches("tags:\"Asset Pack\"", File(0, { "Asset" })));

	EXPECT_TRUE(Matches("filetype:(0 OR 1)", File(1, {})));
	EXPECT_FALSE(Matches("filetype:(0 OR 1)", File(2, {})));
	EXPECT_TRUE(Matches("filetype:16", File(16, {})));

	EXPECT_TRUE(Matches("kvtags:(status*)", File(0, {}, { { "status", "b" } })));
	EXPECT_TRUE(Matches("kvtags:\"status:b\"", File(0, {}, { { "status", "b" } })));
	EXPECT_FALSE(Matches("kvtags:\"status:b\"", File(0, {}, { { "status", "B" } })));
	EXPECT_FALSE(Matches("kvtags:(status*)", File(0, {}, { { "other", "status" } })));
	EXPECT_TRUE(Matches("tags:\"Cour\"*", File(0, { "Courier" })));
}

TEST(BrumeQuery, OperatorsNestAndNotIsAndNot)
{
	const std::string kv = "kvtags:(\"status:a\" OR \"status:b\") OR (*:* NOT kvtags:(status*))";
	EXPECT_TRUE(Matches(kv, File(0, {}, { { "status", "a" } })));
	EXPECT_TRUE(Matches(kv, File(0, {}, { { "status", "b" } })));
	EXPECT_FALSE(Matches(kv, File(0, {}, { { "status", "c" } })));
	EXPECT_TRUE(Matches(kv, File(0, {}, { { "other", "c" } })));
	EXPECT_TRUE(Matches(kv, File(0, {})));

	const std::string asset = "(filetype:2) OR (filetype:(0 OR 1) AND (tags:(\"Courier\" OR \"Ward\")))";
	EXPECT_TRUE(Matches(asset, File(2, {})));
	EXPECT_TRUE(Matches(asset, File(1, { "Ward" })));
	EXPECT_FALSE(Matches(asset, File(1, { "Music" })));
	EXPECT_FALSE(Matches(asset, File(16, { "Courier" })));

	// Adjacent terms are joined by AND; AND binds tighter than OR.
	EXPECT_TRUE(Matches("tags:a tags:b", File(0, { "a", "b" })));
	EXPECT_FALSE(Matches("tags:a tags:b", File(0, { "a" })));
	EXPECT_TRUE(Matches("tags:a AND tags:b OR tags:c", File(0, { "c" })));
	EXPECT_FALSE(Matches("tags:a AND (tags:b OR tags:c)", File(0, { "c" })));
	EXPECT_TRUE(Matches("NOT tags:a", File(0, { "b" })));
	EXPECT_TRUE(Matches("tags:(a AND NOT b)", File(0, { "a" })));
	EXPECT_FALSE(Matches("tags:(a AND NOT b)", File(0, { "a", "b" })));
	EXPECT_TRUE(Matches("*:*", File(0, {})));
	EXPECT_TRUE(Matches("tags:\"say \\\"hi\\\"\"", File(0, { "say \"hi\"" })));
}

TEST(BrumeQuery, MalformedQueriesAreRefusedWithThePlace)
{
	EXPECT_EQ(ErrorOf("tags:(\"Map\" OR \"map\""), "at 21: expected ')'");
	EXPECT_EQ(ErrorOf("tags:\"Map"), "at 6: the quoted term has no closing '\"'");
	EXPECT_EQ(ErrorOf("colour:red"), "at 1: unknown field 'colour'");
	EXPECT_EQ(ErrorOf("filetype:(1 OR x)"), "at 16: a file type must be a number, not 'x'");
	EXPECT_EQ(ErrorOf("Map"), "at 1: a term without a field");
	EXPECT_EQ(ErrorOf("tags:a)"), "at 7: ')' without '('");
	EXPECT_EQ(ErrorOf("tags:a OR"), "at 10: the query ends too early");
	EXPECT_EQ(ErrorOf(""), "at 1: the query ends too early");
	EXPECT_EQ(ErrorOf("tags:(a OR *:*)"), "at 12: '*:*' inside a field's values");
	EXPECT_EQ(ErrorOf("tags:(kvtags:a)"), "at 7: a field inside a field's values");
	EXPECT_EQ(ErrorOf(std::string(100, '(') + "tags:a" + std::string(100, ')')).find("nested too deeply") != std::string::npos, true);
	EXPECT_NE(ErrorOf(std::string(BRUME_QUERY_MAX_LENGTH + 1, ' ')).find("at most"), std::string::npos);
	// A NUL byte is part of a word, not the end of the text.
	EXPECT_EQ(ErrorOf(std::string("tags:(a\0b) NOT kv\0x:(s*)", 24)).rfind("at 16: unknown field 'kv", 0), 0u);
	// Deep but allowed.
	EXPECT_TRUE(Matches(std::string(60, '(') + "tags:a" + std::string(60, ')'), File(0, { "a" })));
}

TEST(BrumeSearch, FreeTextNeedsEveryWordAndFiltersAllMatch)
{
	BrumeQueryRecord_t file = File(1, { "Courier" });
	file.m_sTitle = "Swift Gull";
	file.m_sDescription = "A courier with wings";

	CBrumeSearch search;
	std::string error;
	EXPECT_TRUE(search.Matches(file));
	search.SetSearchText("  gull  WINGS ");
	EXPECT_TRUE(search.Matches(file));
	search.SetSearchText("gull hooves");
	EXPECT_FALSE(search.Matches(file));
	search.SetSearchText("");
	ASSERT_TRUE(search.AddFilterQuery("filetype:(0 OR 1)", error)) << error;
	ASSERT_TRUE(search.AddFilterQuery("tags:(\"Courier\" OR \"courier\")", error)) << error;
	EXPECT_TRUE(search.Matches(file));
	ASSERT_TRUE(search.AddFilterQuery("tags:Ward", error));
	EXPECT_FALSE(search.Matches(file));
	EXPECT_FALSE(search.AddFilterQuery("tags:(", error));
	EXPECT_FALSE(error.empty());
}
