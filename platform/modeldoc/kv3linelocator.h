// Lines of the tables and members of a KV3 text, for messages about a document that parsed
// well but says something wrong ("models/x.zmdl(12): unknown node class 'Foo'").
//
// The parsed values keep no positions, so the locator scans the text once more: it skips the
// header line, comments, strings and multi-line strings the way the parser does, and notes the
// line of every '{' and of every member name directly inside it. Tables of the text and
// tables of the parsed value correspond one to one in document order (the parser refuses
// duplicate members), so Bind() walks the parsed value in the same order to pair them up.
#pragma once

#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/keyvalues3.h"
#include "core/utlstring.h"

class CKV3LineLocator
{
public:
	// Scans the text and pairs its tables with those of the parsed root value.
	void Build(std::string_view text, const KeyValues3 *pRoot);

	// The line of the table's '{', or 0 when the table is not known.
	int TableLine(const KeyValues3 *pTable) const;
	// The line of the member's name inside the table; the table's line when the member is
	// absent; 0 when the table is not known.
	int MemberLine(const KeyValues3 *pTable, std::string_view member) const;

private:
	struct Member_t
	{
		CUtlString name;
		int line;
	};
	struct Table_t
	{
		int line;
		std::vector<Member_t> members;
	};

	void Scan(std::string_view text);
	void Bind(const KeyValues3 *pValue, size_t &next);

	std::vector<Table_t> m_Tables; // in order of their '{'
	std::unordered_map<const KeyValues3 *, size_t> m_TableOfValue;
	bool m_bMatched = false; // the scan found as many tables as the value has
};
