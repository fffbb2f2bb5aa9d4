// The KV3 text parser. It works on a text that ends with a zero byte (CUtlBuffer and C strings
// have one; other texts are copied), so the hot loops test for the end with the same compare
// that finds a delimiter. Containers are collected on stacks and copied into the context's
// arena in one piece when they close.
#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <vector>

#include "core/fileio.h"
#include "core/hashes.h"
#include "core/keyvalues3_internal.h"
#include "core/kv3text.h"
#include "core/logging.h"
#include "core/strtools.h"

namespace
{
enum : uint8
{
	CC_SPACE = 0x01,	   // blanks and line ends
	CC_NAME = 0x02,		   // characters of a bare member name or word
	CC_DELIMITER = 0x04,   // what may follow a number or a word
	CC_STRING_STOP = 0x08, // what ends the fast scan of a quoted string
	CC_DIGIT = 0x10,
};

struct CharClasses_t
{
	uint8 table[256] = {};
	constexpr CharClasses_t()
	{
		for (int c : { ' ', '\t', '\r', '\n', '\f', '\v' })
			table[c] |= CC_SPACE | CC_DELIMITER;
		for (int c = 'a'; c <= 'z'; ++c)
			table[c] |= CC_NAME;
		for (int c = 'A'; c <= 'Z'; ++c)
			table[c] |= CC_NAME;
		for (int c = '0'; c <= '9'; ++c)
			table[c] |= CC_NAME | CC_DIGIT;
		table[(int)'_'] |= CC_NAME;
		table[(int)'.'] |= CC_NAME;
		for (int c : { ',', ']', '}', '/', '=', '\0' })
			table[c] |= CC_DELIMITER;
		for (int c : { '"', '\'', '\\', '\n', '\r', '\0' })
			table[c] |= CC_STRING_STOP;
		for (int c = 0x80; c < 0x100; ++c)
			table[c] |= CC_STRING_STOP;
	}
};
constexpr CharClasses_t s_Classes;

inline uint8 ClassOf(char c)
{
	return s_Classes.table[(uint8)c];
}

// Reads a run of decimal digits into `mantissa` (times ten per digit, without overflow checks:
// callers count the digits). Eight bytes are examined at a time where eight remain before the
// end of the text.
inline const char *ReadDigits(const char *p, const char *end, uint64 &mantissa)
{
	static const uint64 s_powers[9] = { 1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000 };
	while (end - p >= 8)
	{
		uint64 v;
		memcpy(&v, p, 8);
		// The high bit of a lane is set when its byte is no digit: below '0', above '9', or not ASCII.
		const uint64 low7 = v & 0x7F7F7F7F7F7F7F7Full;
		const uint64 aboveNine = low7 + 0x4646464646464646ull;
		const uint64 notBelowZero = (v | 0x8080808080808080ull) - 0x3030303030303030ull;
		const uint64 nonDigit = (aboveNine | ~notBelowZero | v) & 0x8080808080808080ull;
		const int digits = nonDigit ? __builtin_ctzll(nonDigit) / 8 : 8;
		if (digits == 0)
			return p;
		// Line the digits up at the top lanes and combine them pairwise into one number.
		uint64 t = (v - 0x3030303030303030ull) << (8 * (8 - digits));
		t = (t * 10) + (t >> 8);
		t = (((t & 0x000000FF000000FFull) * (100 + (1000000ull << 32))) + (((t >> 16) & 0x000000FF000000FFull) * (1 + (10000ull << 32)))) >> 32;
		mantissa = mantissa * s_powers[digits] + t;
		p += digits;
		if (digits < 8)
			return p;
	}
	while (p < end && *p >= '0' && *p <= '9')
		mantissa = mantissa * 10 + uint64(*p++ - '0');
	return p;
}

bool ParseGuid(std::string_view text, uint8 out[16])
{
	// xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx; the first three groups are stored little-endian.
	if (text.size() != 36 || text[8] != '-' || text[13] != '-' || text[18] != '-' || text[23] != '-')
		return false;
	uint8 bytes[16];
	int n = 0;
	for (size_t i = 0; i < text.size();)
	{
		if (text[i] == '-')
		{
			++i;
			continue;
		}
		auto hex = [](char c) -> int {
			if (c >= '0' && c <= '9')
				return c - '0';
			c = V_tolower(c);
			if (c >= 'a' && c <= 'f')
				return c - 'a' + 10;
			return -1;
		};
		const int hi = hex(text[i]), lo = hex(text[i + 1]);
		if (hi < 0 || lo < 0 || n >= 16)
			return false;
		bytes[n++] = uint8(hi * 16 + lo);
		i += 2;
	}
	if (n != 16)
		return false;
	const int order[16] = { 3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15 };
	for (int i = 0; i < 16; ++i)
		out[i] = bytes[order[i]];
	return true;
}

bool ParseHeaderId(std::string_view word, std::string_view prefix, CUtlString &name, uint8 id[16])
{
	if (word.substr(0, prefix.size()) != prefix)
		return false;
	word.remove_prefix(prefix.size());
	const size_t colon = word.find(':');
	if (colon == std::string_view::npos || colon == 0)
		return false;
	name.assign(word.substr(0, colon));
	std::string_view rest = word.substr(colon + 1);
	if (rest.substr(0, 8) != "version{" || rest.back() != '}')
		return false;
	return ParseGuid(rest.substr(8, rest.size() - 9), id);
}

// The words between "<!--" and "-->": "kv3", "encoding:NAME:version{GUID}", "format:NAME:version{GUID}".
bool SplitHeader(std::string_view header, KV3HeaderInfo_t &info)
{
	std::string_view words[4];
	int wordCount = 0;
	size_t i = 0;
	while (i < header.size())
	{
		while (i < header.size() && (header[i] == ' ' || header[i] == '\t'))
			++i;
		const size_t wordStart = i;
		while (i < header.size() && header[i] != ' ' && header[i] != '\t')
			++i;
		if (i > wordStart)
		{
			if (wordCount == 4)
				return false;
			words[wordCount++] = header.substr(wordStart, i - wordStart);
		}
	}
	return wordCount == 3 && words[0] == "kv3" && ParseHeaderId(words[1], "encoding:", info.encodingName, info.encodingId) &&
		ParseHeaderId(words[2], "format:", info.formatName, info.formatId);
}

class CKV3TextParser
{
public:
	CKV3TextParser(CKeyValues3Context *pContext, const char *text, size_t length, const char *sourceName)
		: m_pContext(pContext), m_pBegin(text), m_pEnd(text + length), m_p(text), m_pSourceName(sourceName ? sourceName : "<text>")
	{
	}

	bool ParseDocument(bool bHeader, const KV3ID_t &format, KV3RawValue_t &out)
	{
		// A UTF-8 byte order mark is passed over.
		if (m_pEnd - m_p >= 3 && memcmp(m_p, "\xEF\xBB\xBF", 3) == 0)
			m_p += 3;
		if (bHeader && !ParseHeader(format))
			return false;
		if (!SkipWhitespace())
			return false;
		if (AtEnd())
			return Fail(m_p, "Empty document: expected a value");
		if (!ParseValue(out, 1))
			return false;
		if (!SkipWhitespace())
			return false;
		if (!AtEnd())
			return Fail(m_p, "Unexpected text after the document's value");
		return true;
	}

	const KV3ParseError_t &Error() const { return m_Error; }
	CUtlString ErrorText() const
	{
		if (m_Error.line > 0)
			return V_Format("%s(%d,%d): %s", m_pSourceName, m_Error.line, m_Error.column, m_Error.message.c_str());
		return V_Format("%s: %s", m_pSourceName, m_Error.message.c_str());
	}

private:
	bool AtEnd() const { return m_p >= m_pEnd; }

	bool Fail(const char *at, const char *fmt, ...) FMTFUNCTION(3, 4)
	{
		V_TextPosition(m_pBegin, at > m_pEnd ? m_pEnd : at, m_Error.line, m_Error.column);
		va_list args;
		va_start(args, fmt);
		m_Error.message = V_FormatV(fmt, args);
		va_end(args);
		return false;
	}

	// A short, printable quote of the text at p for messages.
	CUtlString Quote(const char *p, size_t maxLength = 24) const
	{
		CUtlString out;
		for (size_t i = 0; i < maxLength && p + i < m_pEnd; ++i)
		{
			const char c = p[i];
			if ((i > 0 && !(ClassOf(c) & CC_NAME)) || c == '\n' || c == '\r')
				break;
			if ((uint8)c < 0x20 || (uint8)c >= 0x7F)
				V_AppendFormat(out, "\\x%02x", (uint8)c);
			else
				out += c;
		}
		return out;
	}

	bool SkipWhitespace()
	{
		for (;;)
		{
			while (ClassOf(*m_p) & CC_SPACE)
				++m_p;
			if (*m_p == '/')
			{
				if (m_p[1] == '/')
				{
					const char *lineEnd = static_cast<const char *>(memchr(m_p, '\n', (size_t)(m_pEnd - m_p)));
					m_p = lineEnd ? lineEnd + 1 : m_pEnd;
					continue;
				}
				if (m_p[1] == '*')
				{
					const char *start = m_p;
					const char *q = m_p + 2;
					for (;;)
					{
						q = static_cast<const char *>(memchr(q, '*', (size_t)(m_pEnd - q)));
						if (!q || q + 1 >= m_pEnd)
							return Fail(start, "No closing */ before end of file");
						if (q[1] == '/')
							break;
						++q;
					}
					m_p = q + 2;
					continue;
				}
				return Fail(m_p, "Unexpected '/'");
			}
			if (*m_p == 0 && m_p < m_pEnd)
				return Fail(m_p, "Unexpected NUL byte");
			return true;
		}
	}

	bool ParseHeader(const KV3ID_t &format)
	{
		while (*m_p == ' ' || *m_p == '\t')
			++m_p;
		if (strncmp(m_p, "<!--", 4) != 0)
			return Fail(m_p, "Missing the KV3 header line (<!-- kv3 encoding:... format:... -->)");
		const char *start = m_p;
		const char *close = nullptr;
		for (const char *q = m_p + 4; q + 2 < m_pEnd; ++q)
		{
			if (*q == '\n')
				break;
			if (q[0] == '-' && q[1] == '-' && q[2] == '>')
			{
				close = q;
				break;
			}
		}
		if (!close)
			return Fail(start, "The KV3 header line has no closing -->");
		std::string_view header(m_p + 4, (size_t)(close - m_p - 4));
		m_p = close + 3;

		KV3HeaderInfo_t info;
		if (!SplitHeader(header, info))
			return Fail(start, "Malformed KV3 header line: expected <!-- kv3 encoding:NAME:version{GUID} format:NAME:version{GUID} -->");
		if (info.encodingName != KV3_ENCODING_TEXT.m_name || memcmp(info.encodingId, KV3_ENCODING_TEXT.m_id, 16) != 0)
			return Fail(start, "Unsupported encoding '%s' (only '%s' is read as text)", info.encodingName.c_str(), KV3_ENCODING_TEXT.m_name);
		if (!(format == KV3_FORMAT_GENERIC) && (info.formatName != format.m_name || memcmp(info.formatId, format.m_id, 16) != 0))
			return Fail(start, "The document's format is '%s'; expected '%s'", info.formatName.c_str(), format.m_name);
		return true;
	}

	bool ParseValue(KV3RawValue_t &out, int depth)
	{
		const char c = *m_p;
		switch (c)
		{
		case '{':
			return ParseTable(out, depth);
		case '[':
			return ParseArray(out, depth);
		case '"':
		case '\'':
		{
			std::string_view text;
			if (!ParseString(text))
				return false;
			out = KV3Internal::MakeStringRaw(m_pContext, text);
			return true;
		}
		case '#':
			return ParseBlob(out);
		default:
			break;
		}
		if ((ClassOf(c) & CC_DIGIT) || c == '-' || c == '+' || c == '.')
			return ParseNumber(out);
		if (ClassOf(c) & CC_NAME)
			return ParseWord(out);
		if (c == 0 && AtEnd())
			return Fail(m_p, "Unexpected end of file: expected a value");
		if ((uint8)c >= 0x80 || (uint8)c < 0x20)
			return Fail(m_p, "Unexpected character \\x%02x: expected a value", (uint8)c);
		return Fail(m_p, "Unexpected character '%c': expected a value", c);
	}

	bool CheckDepth(int depth)
	{
		if (depth > KV3_MAX_NESTING)
			return Fail(m_p, "Nesting deeper than %d levels", KV3_MAX_NESTING);
		return true;
	}

	bool ParseTable(KV3RawValue_t &out, int depth)
	{
		if (!CheckDepth(depth))
			return false;
		const char *open = m_p;
		++m_p;
		const size_t first = m_Members.size();
		for (;;)
		{
			if (!SkipWhitespace())
				return false;
			if (*m_p == '}')
			{
				++m_p;
				break;
			}
			if (AtEnd())
				return Fail(open, "Unexpected end of file: the table opened here has no closing '}'");

			// The member name, bare or quoted.
			const char *nameStart = m_p;
			std::string_view name;
			if (*m_p == '"' || *m_p == '\'')
			{
				if (!ParseString(name))
					return false;
			}
			else if (ClassOf(*m_p) & CC_NAME)
			{
				const char *q = m_p;
				while (ClassOf(*q) & CC_NAME)
					++q;
				name = std::string_view(m_p, (size_t)(q - m_p));
				m_p = q;
			}
			else if (*m_p == ',')
				return Fail(m_p, "Unexpected ',': members of a table are not separated by commas");
			else
				return Fail(m_p, "Expected a member name or '}'");

			const uint32 hash = name.empty() ? 0 : MurmurHash2LowerCase(name.data(), name.size(), KV3_MEMBER_NAME_SEED);
			const char *interned = m_pContext->InternMemberName(hash, name);
			if (!SkipWhitespace())
				return false;
			if (*m_p != '=')
				return Fail(m_p, "Expected '=' after the member name '%s'", Quote(nameStart).c_str());
			++m_p;
			if (!SkipWhitespace())
				return false;
			KV3RawValue_t value;
			if (!ParseValue(value, depth + 1))
				return false;
			m_Members.push_back({ hash, (uint32)name.size(), interned, value });
			m_MemberOffsets.push_back((uint32)(nameStart - m_pBegin));
		}
		const uint32 count = (uint32)(m_Members.size() - first);
		if (!CheckDuplicates(first, count))
			return false;
		out = KV3Internal::MakeListRaw(m_pContext, KV3_TYPE_TABLE, m_Members.data() + first, sizeof(KV3RawMember_t), count);
		m_Members.resize(first);
		m_MemberOffsets.resize(first);
		return true;
	}

	bool SameName(const KV3RawMember_t &a, const KV3RawMember_t &b) const
	{
		return a.hash == b.hash && V_StrEqualNoCase(std::string_view(a.name, a.nameLength), std::string_view(b.name, b.nameLength));
	}

	bool CheckDuplicates(size_t first, uint32 count)
	{
		const KV3RawMember_t *members = m_Members.data() + first;
		int duplicate = -1;
		if (count <= 16)
		{
			for (uint32 i = 1; i < count && duplicate < 0; ++i)
			{
				for (uint32 k = 0; k < i; ++k)
				{
					if (SameName(members[i], members[k]))
					{
						duplicate = (int)i;
						break;
					}
				}
			}
		}
		else
		{
			// Sort the member indices by hash; equal names sit next to each other.
			m_SortScratch.resize(count);
			for (uint32 i = 0; i < count; ++i)
				m_SortScratch[i] = (uint64(members[i].hash) << 32) | i;
			std::sort(m_SortScratch.begin(), m_SortScratch.end());
			for (uint32 i = 0; i < count; ++i)
			{
				const uint32 a = (uint32)m_SortScratch[i];
				for (uint32 k = i + 1; k < count && (m_SortScratch[k] >> 32) == (m_SortScratch[i] >> 32); ++k)
				{
					const uint32 b = (uint32)m_SortScratch[k];
					if (SameName(members[a], members[b]))
					{
						const int later = (int)std::max(a, b);
						if (duplicate < 0 || later < duplicate)
							duplicate = later;
					}
				}
			}
		}
		if (duplicate < 0)
			return true;
		const KV3RawMember_t &member = members[duplicate];
		return Fail(m_pBegin + m_MemberOffsets[first + (size_t)duplicate], "Duplicate member '%.*s' in a table", (int)std::min<uint32>(member.nameLength, 64), member.name);
	}

	bool ParseArray(KV3RawValue_t &out, int depth)
	{
		if (!CheckDepth(depth))
			return false;
		const char *open = m_p;
		++m_p;
		const size_t first = m_Values.size();
		for (;;)
		{
			if (!SkipWhitespace())
				return false;
			if (*m_p == ']')
			{
				++m_p;
				break;
			}
			if (AtEnd())
				return Fail(open, "Unexpected end of file: the array opened here has no closing ']'");
			KV3RawValue_t value;
			if (!ParseValue(value, depth + 1))
				return false;
			m_Values.push_back(value);
			if (!SkipWhitespace())
				return false;
			if (*m_p == ',')
			{
				++m_p;
				continue;
			}
			if (*m_p == ']')
			{
				++m_p;
				break;
			}
			if (AtEnd())
				return Fail(open, "Unexpected end of file: the array opened here has no closing ']'");
			return Fail(m_p, "Expected ',' or ']' after an array element");
		}
		const uint32 count = (uint32)(m_Values.size() - first);
		out = KV3Internal::MakeListRaw(m_pContext, KV3_TYPE_ARRAY, m_Values.data() + first, sizeof(KV3RawValue_t), count);
		m_Values.resize(first);
		return true;
	}

	// Parses a quoted string at m_p. The result points into the text when it has no escapes,
	// otherwise into m_Scratch; either way it is valid until the next string is parsed.
	bool ParseString(std::string_view &out)
	{
		const char quote = *m_p;
		if (quote == '"' && m_p[1] == '"' && m_p[2] == '"' && (m_p[3] == '\n' || (m_p[3] == '\r' && m_p[4] == '\n')))
			return ParseMultilineString(out);
		const char *open = m_p;
		const char *start = ++m_p;
		bool bEscaped = false;
		for (;;)
		{
			while (!(ClassOf(*m_p) & CC_STRING_STOP))
				++m_p;
			const char c = *m_p;
			if (c == quote)
				break;
			if (c == '"' || c == '\'')
			{
				++m_p;
				continue;
			}
			if ((uint8)c >= 0x80)
			{
				const size_t length = V_UTF8SequenceLength(m_p, (size_t)(m_pEnd - m_p));
				if (!length)
					return Fail(m_p, "Invalid UTF-8 in a string");
				m_p += length;
				continue;
			}
			if (c == '\\')
			{
				bEscaped = true;
				if (m_p[1] == '\n' || m_p[1] == '\r')
					return Fail(m_p + 1, "Newline in string literal");
				if (m_p[1] == 0 && m_p + 1 >= m_pEnd)
					return Fail(open, "Unexpected end of file: the string opened here is not closed");
				m_p += 2;
				continue;
			}
			if (c == '\n' || c == '\r')
				return Fail(m_p, "Newline in string literal");
			// c == 0
			if (AtEnd())
				return Fail(open, "Unexpected end of file: the string opened here is not closed");
			return Fail(m_p, "Unexpected NUL byte in a string");
		}
		const char *close = m_p;
		++m_p;
		if (!bEscaped)
		{
			out = std::string_view(start, (size_t)(close - start));
			return true;
		}
		m_Scratch.clear();
		for (const char *q = start; q < close; ++q)
		{
			if (*q != '\\')
			{
				m_Scratch += *q;
				continue;
			}
			++q;
			switch (*q)
			{
			case 'n':
				m_Scratch += '\n';
				break;
			case 't':
				m_Scratch += '\t';
				break;
			case 'r':
				m_Scratch += '\r';
				break;
			case '\\':
			case '"':
			case '\'':
			case '/':
				m_Scratch += *q;
				break;
			default:
				if ((uint8)*q < 0x20 || (uint8)*q >= 0x7F)
					return Fail(q - 1, "Unknown escape sequence in a string");
				return Fail(q - 1, "Unknown escape sequence '\\%c' in a string", *q);
			}
		}
		out = m_Scratch;
		return true;
	}

	// """<line end>text<line end>""": a backslash makes the next character ordinary.
	bool ParseMultilineString(std::string_view &out)
	{
		const char *open = m_p;
		m_p += 3;
		m_p += (*m_p == '\r') ? 2 : 1;
		m_Scratch.clear();
		for (;;)
		{
			const char c = *m_p;
			if (c == 0)
			{
				if (AtEnd())
					return Fail(open, "Unexpected end of file: the multi-line string opened here is not closed");
				return Fail(m_p, "Unexpected NUL byte in a string");
			}
			if (c == '\\')
			{
				if (m_p + 1 >= m_pEnd)
					return Fail(open, "Unexpected end of file: the multi-line string opened here is not closed");
				++m_p;
				if ((uint8)*m_p >= 0x80)
					continue; // the sequence is checked and copied below
				if (*m_p == 0)
					return Fail(m_p, "Unexpected NUL byte in a string");
				m_Scratch += *m_p++;
				continue;
			}
			if (c == '\n' || (c == '\r' && m_p[1] == '\n'))
			{
				const char *afterLineEnd = m_p + (c == '\r' ? 2 : 1);
				if (afterLineEnd[0] == '"' && afterLineEnd[1] == '"' && afterLineEnd[2] == '"')
				{
					m_p = afterLineEnd + 3;
					out = m_Scratch;
					return true;
				}
				m_Scratch.append(m_p, (size_t)(afterLineEnd - m_p));
				m_p = afterLineEnd;
				continue;
			}
			if ((uint8)c >= 0x80)
			{
				const size_t length = V_UTF8SequenceLength(m_p, (size_t)(m_pEnd - m_p));
				if (!length)
					return Fail(m_p, "Invalid UTF-8 in a string");
				m_Scratch.append(m_p, length);
				m_p += length;
				continue;
			}
			m_Scratch += c;
			++m_p;
		}
	}

	bool ExpectDelimiter(const char *start, const char *what)
	{
		if (ClassOf(*m_p) & CC_DELIMITER)
			return true;
		const char *q = m_p;
		while (q < m_pEnd && !(ClassOf(*q) & CC_DELIMITER))
			++q;
		return Fail(start, "Invalid %s '%.*s'", what, (int)std::min<ptrdiff_t>(q - start, 32), start);
	}

	bool ParseNumber(KV3RawValue_t &out)
	{
		const char *start = m_p;
		bool bNegative = false;
		if (*m_p == '-' || *m_p == '+')
		{
			bNegative = *m_p == '-';
			++m_p;
		}
		if ((ClassOf(*m_p) & CC_NAME) && !(ClassOf(*m_p) & CC_DIGIT) && *m_p != '.')
		{
			// -inf, +inf, and the words nan and inf in any case.
			const char *word = m_p;
			while (ClassOf(*m_p) & CC_NAME)
				++m_p;
			const std::string_view text(word, (size_t)(m_p - word));
			if (V_StrEqualNoCase(text, "inf"))
			{
				out = KV3Internal::MakeRaw(m_pContext, KV3_TYPE_DOUBLE, KV3_SUBTYPE_FLOAT64, 0, std::bit_cast<uint64>(bNegative ? -HUGE_VAL : HUGE_VAL));
				return ExpectDelimiter(start, "number");
			}
			return Fail(start, "Invalid number '%.*s'", (int)std::min<ptrdiff_t>(m_p - start, 32), start);
		}

		// Digits are gathered without overflow checks: up to 19 of them always fit in 64 bits,
		// and longer numbers take the slow road below.
		uint64 mantissa = 0;
		const char *integerStart = m_p;
		m_p = ReadDigits(m_p, m_pEnd, mantissa);
		const ptrdiff_t integerDigits = m_p - integerStart;
		ptrdiff_t fractionDigits = 0;
		bool bPoint = false;
		if (*m_p == '.')
		{
			bPoint = true;
			const char *fractionStart = ++m_p;
			m_p = ReadDigits(m_p, m_pEnd, mantissa);
			fractionDigits = m_p - fractionStart;
		}
		const bool bExponent = *m_p == 'e' || *m_p == 'E';
		const bool bDelimited = (ClassOf(*m_p) & CC_DELIMITER) != 0;
		if (integerDigits + fractionDigits > 0 && !bExponent && bDelimited && integerDigits + fractionDigits <= 19)
		{
			if (!bPoint)
			{
				if (!bNegative)
				{
					if (mantissa <= (uint64)INT64_MAX)
						out = KV3Internal::MakeRaw(m_pContext, KV3_TYPE_INT, mantissa <= (uint64)INT32_MAX ? KV3_SUBTYPE_INT32 : KV3_SUBTYPE_INT64, 0, mantissa);
					else
						out = KV3Internal::MakeRaw(m_pContext, KV3_TYPE_UINT, KV3_SUBTYPE_UINT64, 0, mantissa);
					return true;
				}
				if (mantissa <= (uint64)INT64_MAX + 1)
				{
					const int64 value = mantissa == (uint64)INT64_MAX + 1 ? INT64_MIN : -(int64)mantissa;
					out = KV3Internal::MakeRaw(m_pContext, KV3_TYPE_INT, value >= INT32_MIN ? KV3_SUBTYPE_INT32 : KV3_SUBTYPE_INT64, 0, (uint64)value);
					return true;
				}
			}
			else if (mantissa < (1ull << 53) && fractionDigits <= 22)
			{
				// mantissa / 10^k is exact to the last bit: both operands are exact doubles and
				// IEEE division rounds correctly.
				static const double s_powersOfTen[23] = { 1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11, 1e12, 1e13,
					1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22 };
				double value = (double)mantissa / s_powersOfTen[fractionDigits];
				if (bNegative)
					value = -value;
				out = KV3Internal::MakeRaw(m_pContext, KV3_TYPE_DOUBLE, KV3_SUBTYPE_FLOAT64, 0, std::bit_cast<uint64>(value));
				return true;
			}
		}

		// The slow road: exponents, long digit runs, large integers.
		const char *number = start + (*start == '+' ? 1 : 0);
		if (!bPoint && !bExponent && integerDigits > 0 && bDelimited)
		{
			uint64 magnitude = 0;
			auto integer = std::from_chars(integerStart, m_p, magnitude);
			if (integer.ec == std::errc() && integer.ptr == m_p)
			{
				if (!bNegative && magnitude > (uint64)INT64_MAX)
				{
					out = KV3Internal::MakeRaw(m_pContext, KV3_TYPE_UINT, KV3_SUBTYPE_UINT64, 0, magnitude);
					return true;
				}
				if (magnitude <= (uint64)INT64_MAX || (bNegative && magnitude == (uint64)INT64_MAX + 1))
				{
					const int64 value = !bNegative ? (int64)magnitude : (magnitude == (uint64)INT64_MAX + 1 ? INT64_MIN : -(int64)magnitude);
					const bool bFits32 = value >= INT32_MIN && value <= INT32_MAX;
					out = KV3Internal::MakeRaw(m_pContext, KV3_TYPE_INT, bFits32 ? KV3_SUBTYPE_INT32 : KV3_SUBTYPE_INT64, 0, (uint64)value);
					return true;
				}
			}
			// Too large for 64 bits: read as a double.
		}
		double value = 0.0;
		auto result = std::from_chars(number, m_pEnd, value);
		if (result.ec == std::errc::result_out_of_range)
			return Fail(start, "Number out of range '%.*s'", (int)std::min<ptrdiff_t>(result.ptr - start, 32), start);
		if (result.ec != std::errc() || result.ptr == number)
		{
			const char *q = start + 1;
			while (q < m_pEnd && !(ClassOf(*q) & CC_DELIMITER))
				++q;
			return Fail(start, "Invalid number '%.*s'", (int)std::min<ptrdiff_t>(q - start, 32), start);
		}
		m_p = result.ptr;
		if (!ExpectDelimiter(start, "number"))
			return false;
		out = KV3Internal::MakeRaw(m_pContext, KV3_TYPE_DOUBLE, KV3_SUBTYPE_FLOAT64, 0, std::bit_cast<uint64>(value));
		return true;
	}

	bool ParseWord(KV3RawValue_t &out)
	{
		const char *start = m_p;
		while (ClassOf(*m_p) & CC_NAME)
			++m_p;
		const std::string_view word(start, (size_t)(m_p - start));
		if (word == "true" || word == "false")
			out = KV3Internal::MakeRaw(m_pContext, KV3_TYPE_BOOL, KV3_SUBTYPE_BOOL8, 0, word == "true" ? 1 : 0);
		else if (word == "null")
			out = KV3Internal::MakeRaw(m_pContext, KV3_TYPE_NULL, KV3_SUBTYPE_NULL, 0, 0);
		else if (V_StrEqualNoCase(word, "nan"))
			out = KV3Internal::MakeRaw(m_pContext, KV3_TYPE_DOUBLE, KV3_SUBTYPE_FLOAT64, 0, std::bit_cast<uint64>((double)NAN));
		else if (V_StrEqualNoCase(word, "inf"))
			out = KV3Internal::MakeRaw(m_pContext, KV3_TYPE_DOUBLE, KV3_SUBTYPE_FLOAT64, 0, std::bit_cast<uint64>((double)HUGE_VAL));
		else
			return Fail(start, "Unexpected word '%s': expected a value", Quote(start, 32).c_str());
		return ExpectDelimiter(start, "value");
	}

	bool ParseBlob(KV3RawValue_t &out)
	{
		const char *open = m_p;
		if (m_p[1] != '[')
			return Fail(m_p, "Unexpected character '#': expected a value");
		m_p += 2;
		m_Scratch.clear();
		for (;;)
		{
			if (!SkipWhitespace())
				return false;
			if (*m_p == ']')
			{
				++m_p;
				break;
			}
			if (AtEnd())
				return Fail(open, "Unexpected end of file: the binary blob opened here has no closing ']'");
			auto hex = [](char c) -> int {
				if (c >= '0' && c <= '9')
					return c - '0';
				c = V_tolower(c);
				return (c >= 'a' && c <= 'f') ? c - 'a' + 10 : -1;
			};
			const int hi = hex(m_p[0]);
			const int lo = hi >= 0 ? hex(m_p[1]) : -1;
			if (lo < 0)
				return Fail(m_p, "Expected two hexadecimal digits in a binary blob");
			m_Scratch += char(hi * 16 + lo);
			m_p += 2;
		}
		if (m_Scratch.size() > UINT32_MAX)
			return Fail(open, "Binary blob too large");
		KV3Blob_t *blob = static_cast<KV3Blob_t *>(m_pContext->Alloc(sizeof(uint32) + std::max<size_t>(m_Scratch.size(), 1), 8));
		blob->size = (uint32)m_Scratch.size();
		memcpy(blob->bytes, m_Scratch.data(), m_Scratch.size());
		out = KV3Internal::MakeRaw(m_pContext, KV3_TYPE_BINARY_BLOB, KV3_SUBTYPE_BINARY_BLOB, 0, uint64(uintptr_t(blob)));
		return true;
	}

	CKeyValues3Context *m_pContext;
	const char *m_pBegin;
	const char *m_pEnd;
	const char *m_p;
	const char *m_pSourceName;
	KV3ParseError_t m_Error;
	std::vector<KV3RawValue_t> m_Values;
	std::vector<KV3RawMember_t> m_Members;
	std::vector<uint32> m_MemberOffsets;
	std::vector<uint64> m_SortScratch;
	std::string m_Scratch;
};

bool ParseInto(KeyValues3 *value, CUtlString *error, const char *text, size_t length, bool bHeader, const KV3ID_t &format,
	const char *sourceName, KV3ParseError_t *pDetail)
{
	if (!value || value->IsImmutable())
	{
		if (error)
			*error = "LoadKV3: no writable value to load into";
		return false;
	}
	CKV3TextParser parser(value->GetContext(), text, length, sourceName);
	KV3RawValue_t result;
	if (!parser.ParseDocument(bHeader, format, result))
	{
		if (error)
			*error = parser.ErrorText();
		if (pDetail)
			*pDetail = parser.Error();
		return false;
	}
	KV3Internal::Store(value, result);
	if (error)
		error->clear();
	return true;
}

// The parser needs a zero byte after the text; a view may not have one.
bool ParseView(KeyValues3 *value, CUtlString *error, std::string_view text, bool bHeader, const KV3ID_t &format,
	const char *sourceName, KV3ParseError_t *pDetail)
{
	std::string copy(text);
	return ParseInto(value, error, copy.c_str(), copy.size(), bHeader, format, sourceName, pDetail);
}
} // namespace

bool KV3ReadHeader(std::string_view text, KV3HeaderInfo_t &info)
{
	if (text.substr(0, 3) == "\xEF\xBB\xBF")
		text.remove_prefix(3);
	while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
		text.remove_prefix(1);
	if (text.substr(0, 4) != "<!--")
		return false;
	const size_t lineEnd = text.find('\n');
	const size_t close = text.substr(0, lineEnd).find("-->");
	return close != std::string_view::npos && SplitHeader(text.substr(4, close - 4), info);
}

bool LoadKV3(CKeyValues3Context *pContext, CUtlString *error, const CUtlBuffer *buffer, const KV3ID_t &format,
	const char *sourceName, KV3ParseError_t *pDetail)
{
	if (!pContext || !buffer)
	{
		if (error)
			*error = "LoadKV3: no context or buffer";
		return false;
	}
	// A CUtlBuffer always keeps a zero byte after its contents.
	return ParseInto(pContext->Root(), error, buffer->Base(), buffer->Size(), true, format, sourceName, pDetail);
}

bool LoadKV3(KeyValues3 *value, CUtlString *error, std::string_view text, const KV3ID_t &format,
	const char *sourceName, KV3ParseError_t *pDetail)
{
	return ParseView(value, error, text, true, format, sourceName, pDetail);
}

bool LoadKV3Text_NoHeader(KeyValues3 *value, CUtlString *error, std::string_view text, const KV3ID_t &format,
	const char *sourceName, KV3ParseError_t *pDetail)
{
	return ParseView(value, error, text, false, format, sourceName, pDetail);
}

bool LoadKV3FromFile(CKeyValues3Context *pContext, CUtlString *error, const char *path, const char *pathID,
	const KV3ID_t &format, KV3ParseError_t *pDetail)
{
	CUtlBuffer buffer;
	CUtlString readError;
	if (!path || !CoreFileSystem()->ReadFile(path, pathID, buffer, &readError))
	{
		if (error)
			*error = path ? readError : CUtlString("LoadKV3FromFile: no path");
		if (pDetail)
			*pDetail = KV3ParseError_t{ 0, 0, readError };
		return false;
	}
	return LoadKV3(pContext, error, &buffer, format, path, pDetail);
}
