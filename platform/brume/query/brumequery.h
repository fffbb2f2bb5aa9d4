// The content service's search language: the filter queries ("solr_filter_queries[N]") and the
// free text ("search_text") of a file search.
//
// A filter query is a boolean expression over fields:
//
//   query   := or
//   or      := and { "OR" and }
//   and     := unary { ["AND"] unary | "NOT" unary }      adjacency means AND; "a NOT b" is a AND NOT b
//   unary   := "NOT" unary | "(" or ")" | "*:*" | FIELD ":" values
//   values  := "(" vor ")" | TERM
//   vor     := vand { "OR" vand };  vand := vunary { ["AND"] vunary };  vunary := "NOT" vunary | "(" vor ")" | TERM
//   TERM    := "quoted text" (\" and \\ escape) | bare word; a trailing "*" makes it a prefix
//
// Fields: "filetype" (a decimal number), "tags" (a file's tags, compared exactly) and "kvtags"
// ("key:value" texts, compared exactly). Keywords are upper case; anything else is a term. The
// free text matches when every word of it is found, ignoring case, in the title or the
// description; an empty text matches everything.
//
// Parsing never fails silently: a malformed query gives a message with the position (a byte
// offset from 1) and what was wrong. Queries longer than 16 KiB or nested deeper than 64 are
// refused.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/platform.h"

// What a query is tested against: the searchable fields of one file.
struct BrumeQueryRecord_t
{
	uint32 m_nFileType = 0;
	std::vector<std::string> m_Tags;
	std::vector<std::pair<std::string, std::string>> m_KeyValueTags;
	std::string m_sTitle;
	std::string m_sDescription;
};

enum { BRUME_QUERY_MAX_LENGTH = 16 * 1024, BRUME_QUERY_MAX_DEPTH = 64 };

class CBrumeQuery
{
public:
	CBrumeQuery();
	~CBrumeQuery();
	CBrumeQuery(CBrumeQuery &&) noexcept;
	CBrumeQuery &operator=(CBrumeQuery &&) noexcept;

	// Parses one filter query. On failure returns false and sets the message
	// ("at 12: expected ')'"); the query then matches nothing.
	bool Parse(const std::string &text, std::string &error);
	bool Matches(const BrumeQueryRecord_t &record) const;

	struct Node_t;

private:
	std::unique_ptr<Node_t> m_pRoot;
};

// A whole search: the free text and every filter query (all must match).
class CBrumeSearch
{
public:
	void SetSearchText(const std::string &text);
	bool AddFilterQuery(const std::string &text, std::string &error);
	bool Matches(const BrumeQueryRecord_t &record) const;

private:
	std::vector<std::string> m_SearchWords; // lower case
	std::vector<CBrumeQuery> m_Filters;
};
