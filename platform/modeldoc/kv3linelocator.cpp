#include "modeldoc/kv3linelocator.h"

#include "core/strtools.h"

namespace
{
bool IsNameChar(char c)
{
	return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '.';
}
} // namespace

void CKV3LineLocator::Build(std::string_view text, const KeyValues3 *pRoot)
{
	m_Tables.clear();
	m_TableOfValue.clear();
	Scan(text);
	size_t next = 0;
	Bind(pRoot, next);
	m_bMatched = next == m_Tables.size();
}

void CKV3LineLocator::Scan(std::string_view text)
{
	const char *p = text.data();
	const char *end = p + text.size();
	int line = 1;

	// The header line "<!-- kv3 ... -->" holds braces of its own.
	const char *q = p;
	if (end - q >= 3 && q[0] == '\xEF' && q[1] == '\xBB' && q[2] == '\xBF')
		q += 3;
	while (q < end && (*q == ' ' || *q == '\t'))
		++q;
	if (std::string_view(q, (size_t)(end - q)).substr(0, 4) == "<!--")
	{
		const size_t close = std::string_view(q, (size_t)(end - q)).find("-->");
		const char *after = close == std::string_view::npos ? end : q + close + 3;
		for (; p < after; ++p)
			line += *p == '\n';
	}

	// Containers open at this point: the index of a table, or -1 for an array.
	std::vector<long> open;
	// A token that may be a member name, waiting to see whether '=' follows.
	CUtlString pendingName;
	int pendingLine = 0;
	bool bPending = false;

	auto skipSpaceAndComments = [&]() {
		while (p < end)
		{
			if (*p == '\n')
			{
				++line;
				++p;
			}
			else if (*p == ' ' || *p == '\t' || *p == '\r' || *p == '\f' || *p == '\v')
				++p;
			else if (p + 1 < end && p[0] == '/' && p[1] == '/')
			{
				while (p < end && *p != '\n')
					++p;
			}
			else if (p + 1 < end && p[0] == '/' && p[1] == '*')
			{
				p += 2;
				while (p < end && !(p + 1 < end && p[0] == '*' && p[1] == '/'))
					line += *p++ == '\n';
				p = p < end ? p + 2 : end;
			}
			else
				break;
		}
	};

	while (p < end)
	{
		skipSpaceAndComments();
		if (p >= end)
			break;
		const char c = *p;
		if (c == '=')
		{
			if (bPending && !open.empty() && open.back() >= 0)
				m_Tables[(size_t)open.back()].members.push_back({ pendingName, pendingLine });
			bPending = false;
			++p;
			continue;
		}
		bPending = false;
		if (c == '{')
		{
			open.push_back((long)m_Tables.size());
			m_Tables.push_back({ line, {} });
			++p;
		}
		else if (c == '[')
		{
			open.push_back(-1);
			++p;
		}
		else if (c == '}' || c == ']')
		{
			if (!open.empty())
				open.pop_back();
			++p;
		}
		else if (c == '"' && end - p >= 4 && p[1] == '"' && p[2] == '"' && (p[3] == '\n' || (p[3] == '\r' && end - p >= 5 && p[4] == '\n')))
		{
			// """<line end>text<line end>"""; a backslash makes the next character ordinary.
			p += 3;
			for (;;)
			{
				if (p >= end)
					break;
				if (*p == '\\')
				{
					p += 2;
					if (p > end)
						p = end;
					else
						line += p[-1] == '\n';
					continue;
				}
				if (*p == '\n')
				{
					++line;
					++p;
					if (end - p >= 3 && p[0] == '"' && p[1] == '"' && p[2] == '"')
					{
						p += 3;
						break;
					}
					continue;
				}
				++p;
			}
		}
		else if (c == '"' || c == '\'')
		{
			const int startLine = line;
			CUtlString text;
			++p;
			while (p < end && *p != c && *p != '\n')
			{
				if (*p == '\\' && p + 1 < end)
				{
					text += p[1];
					p += 2;
					continue;
				}
				text += *p++;
			}
			if (p < end && *p == c)
				++p;
			pendingName = text;
			pendingLine = startLine;
			bPending = true;
		}
		else if (IsNameChar(c))
		{
			const char *start = p;
			while (p < end && IsNameChar(*p))
				++p;
			pendingName.assign(start, (size_t)(p - start));
			pendingLine = line;
			bPending = true;
		}
		else
			++p;
	}
}

void CKV3LineLocator::Bind(const KeyValues3 *pValue, size_t &next)
{
	if (!pValue)
		return;
	if (pValue->IsTable())
	{
		m_TableOfValue[pValue] = next++;
		pValue->ForEachMember([&](std::string_view, uint32, const KeyValues3 *pMember) { Bind(pMember, next); });
	}
	else if (pValue->IsArray())
		pValue->ForEachArrayElement([&](const KeyValues3 *pElement) { Bind(pElement, next); });
}

int CKV3LineLocator::TableLine(const KeyValues3 *pTable) const
{
	if (!m_bMatched)
		return 0;
	auto it = m_TableOfValue.find(pTable);
	return it != m_TableOfValue.end() ? m_Tables[it->second].line : 0;
}

int CKV3LineLocator::MemberLine(const KeyValues3 *pTable, std::string_view member) const
{
	if (!m_bMatched)
		return 0;
	auto it = m_TableOfValue.find(pTable);
	if (it == m_TableOfValue.end())
		return 0;
	const Table_t &table = m_Tables[it->second];
	for (const Member_t &entry : table.members)
	{
		if (V_StrEqualNoCase(entry.name, member))
			return entry.line;
	}
	return table.line;
}
