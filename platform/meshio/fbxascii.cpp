// The ASCII FBX format: "Name: value, value {" nodes, ";" comments, "*N { a: ... }" arrays.
#include <charconv>
#include <cstring>

#include "core/strtools.h"
#include "meshio/fbxdocument.h"
#include "meshio/fbxparsers.h"

namespace
{
bool IsBlank(char c)
{
	return c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v';
}

// Characters that end a bare value (number or word).
bool EndsBareValue(char c)
{
	return IsBlank(c) || c == '\n' || c == ',' || c == '{' || c == '}' || c == ';' || c == '"';
}

bool EndsName(char c)
{
	return IsBlank(c) || c == '\n' || c == ',' || c == '{' || c == '}' || c == ';' || c == '"' || c == ':';
}
} // namespace

CFbxAsciiParser::CFbxAsciiParser(CFbxDocument &document, CUtlString &error)
	: m_Document(document), m_Error(error), m_pBegin(document.m_Bytes.data()), m_pCur(m_pBegin), m_pEnd(m_pBegin + document.m_Bytes.size())
{
}

bool CFbxAsciiParser::Fail(const char *at, const char *fmt, ...)
{
	va_list args;
	va_start(args, fmt);
	m_Error = m_Document.Where(Offset(at)) + ": " + V_FormatV(fmt, args);
	va_end(args);
	return false;
}

void CFbxAsciiParser::SkipBlanks()
{
	while (m_pCur < m_pEnd && IsBlank(*m_pCur))
		++m_pCur;
}

void CFbxAsciiParser::SkipSpaceAndComments()
{
	while (m_pCur < m_pEnd)
	{
		const char c = *m_pCur;
		if (IsBlank(c) || c == '\n')
			++m_pCur;
		else if (c == ';')
		{
			const void *lineEnd = memchr(m_pCur, '\n', m_pEnd - m_pCur);
			m_pCur = lineEnd ? (const char *)lineEnd : m_pEnd;
		}
		else
			break;
	}
}

bool CFbxAsciiParser::Parse()
{
	// A UTF-8 byte order mark is allowed before the first line.
	if (m_pEnd - m_pCur >= 3 && memcmp(m_pCur, "\xEF\xBB\xBF", 3) == 0)
		m_pCur += 3;
	if (!ParseNodeList(0, m_Document.m_nFirstTopLevel, true))
		return false;

	// The version: "FBXHeaderExtension { FBXVersion: N }", else the "; FBX 7.5.0 project file" line.
	const FbxNode_t *header = m_Document.FindChild(nullptr, "FBXHeaderExtension");
	const FbxNode_t *version = header ? m_Document.FindChild(header, "FBXVersion") : nullptr;
	int64 value = 0;
	if (version && CFbxDocument::PropertyInt(m_Document.Property(version, 0), value) && value > 0 && value < 100000)
		m_Document.m_nVersion = (uint32)value;
	else
	{
		const std::string_view text(m_pBegin, m_pEnd - m_pBegin);
		const size_t at = text.substr(0, 256).find("; FBX ");
		int major = 0, minor = 0, patch = 0;
		if (at != std::string_view::npos)
		{
			const std::string_view rest = text.substr(at + 6, 16);
			char digits[17] = {};
			memcpy(digits, rest.data(), rest.size());
			if (sscanf(digits, "%d.%d.%d", &major, &minor, &patch) == 3 && major > 0 && major < 100 && minor >= 0 && minor < 10 && patch >= 0 &&
				patch < 100)
				m_Document.m_nVersion = (uint32)(major * 1000 + minor * 100 + patch);
		}
	}
	return true;
}

bool CFbxAsciiParser::ParseNodeList(int depth, int32 &firstChild, bool bTopLevel)
{
	if (depth >= CFbxDocument::MAX_DEPTH)
		return Fail(m_pCur, "nodes nest deeper than %d levels", (int)CFbxDocument::MAX_DEPTH);
	firstChild = -1;
	int32 previous = -1;
	for (;;)
	{
		SkipSpaceAndComments();
		if (m_pCur >= m_pEnd)
		{
			if (bTopLevel)
				return true;
			return Fail(m_pCur, "the file ends inside a node: a '}' is missing");
		}
		if (*m_pCur == '}')
		{
			if (bTopLevel)
				return Fail(m_pCur, "a '}' closes no node");
			++m_pCur;
			return true;
		}
		const char *nameStart = m_pCur;
		while (m_pCur < m_pEnd && !EndsName(*m_pCur))
			++m_pCur;
		if (m_pCur == nameStart)
			return Fail(nameStart, "expected a node name, found '%c'", *nameStart);
		const std::string_view name(nameStart, m_pCur - nameStart);
		if (m_pCur >= m_pEnd || *m_pCur != ':')
			return Fail(m_pCur, "expected ':' after the node name \"%.*s\"", (int)name.size(), name.data());
		++m_pCur;

		const int32 index = (int32)m_Document.m_Nodes.size();
		FbxNode_t node;
		node.name = name;
		node.nOffset = Offset(nameStart);
		node.nFirstProperty = (uint32)m_Document.m_Properties.size();
		bool bHasChildren = false;
		if (!ParseValues(node, bHasChildren))
			return false;
		node.nPropertyCount = (uint32)(m_Document.m_Properties.size() - node.nFirstProperty);
		m_Document.m_Nodes.push_back(node);
		if (previous >= 0)
			m_Document.m_Nodes[previous].nNextSibling = index;
		else
			firstChild = index;
		previous = index;
		if (bHasChildren)
		{
			int32 child = -1;
			if (!ParseNodeList(depth + 1, child, false))
				return false;
			m_Document.m_Nodes[index].nFirstChild = child;
		}
	}
}

bool CFbxAsciiParser::ParseValues(FbxNode_t &node, bool &bHasChildren)
{
	bool bAfterComma = false;
	bool bHaveValue = false;
	for (;;)
	{
		SkipBlanks();
		if (m_pCur >= m_pEnd)
			return true;
		const char c = *m_pCur;
		if (c == ';')
		{
			const void *lineEnd = memchr(m_pCur, '\n', m_pEnd - m_pCur);
			m_pCur = lineEnd ? (const char *)lineEnd : m_pEnd;
			continue;
		}
		if (c == '\n')
		{
			++m_pCur;
			if (bAfterComma)
				continue; // a list that goes on on the next line
			return true;
		}
		if (c == '{')
		{
			++m_pCur;
			bHasChildren = true;
			return true;
		}
		if (c == '}')
			return true; // closes the parent; the node list takes it
		if (c == ',')
		{
			++m_pCur;
			bAfterComma = true;
			continue;
		}
		if (bHaveValue && !bAfterComma)
			return Fail(m_pCur, "node \"%.*s\": expected ',' between two values", (int)node.name.size(), node.name.data());

		FbxProperty_t property;
		property.nOffset = Offset(m_pCur);
		if (c == '"')
		{
			const char *start = m_pCur + 1;
			const void *close = memchr(start, '"', m_pEnd - start);
			if (!close)
				return Fail(m_pCur, "node \"%.*s\": a string is not closed", (int)node.name.size(), node.name.data());
			property.cType = 'S';
			property.data = std::string_view(start, (const char *)close - start);
			m_pCur = (const char *)close + 1;
		}
		else if (c == '*')
		{
			if (!ParseArray(property))
				return false;
			m_Document.m_Properties.push_back(property);
			// The array's braces were the node's: nothing may follow on its line.
			SkipBlanks();
			if (m_pCur < m_pEnd && *m_pCur != '\n' && *m_pCur != ';' && *m_pCur != '}')
				return Fail(m_pCur, "node \"%.*s\": unexpected text after an array", (int)node.name.size(), node.name.data());
			return true;
		}
		else
		{
			const char *start = m_pCur;
			while (m_pCur < m_pEnd && !EndsBareValue(*m_pCur))
				++m_pCur;
			const char *end = m_pCur;
			const char *numberStart = (*start == '+') ? start + 1 : start;
			int64 integer = 0;
			double real = 0.0;
			const auto intResult = std::from_chars(numberStart, end, integer);
			if (intResult.ec == std::errc() && intResult.ptr == end && numberStart < end)
			{
				property.cType = 'L';
				property.nInt = integer;
				property.flDouble = (double)integer;
			}
			else
			{
				const auto realResult = std::from_chars(numberStart, end, real);
				if (realResult.ec == std::errc() && realResult.ptr == end && numberStart < end)
				{
					property.cType = 'D';
					property.flDouble = real;
					property.nInt = FbxDoubleToInt64(real);
				}
				else
				{
					property.cType = 'S'; // a bare word such as T, Y or W
					property.data = std::string_view(start, end - start);
				}
			}
		}
		m_Document.m_Properties.push_back(property);
		bHaveValue = true;
		bAfterComma = false;
	}
}

bool CFbxAsciiParser::ParseArray(FbxProperty_t &property)
{
	const char *start = m_pCur;
	++m_pCur; // '*'
	const char *digits = m_pCur;
	while (m_pCur < m_pEnd && *m_pCur >= '0' && *m_pCur <= '9')
		++m_pCur;
	uint64 count = 0;
	const auto result = std::from_chars(digits, m_pCur, count);
	if (digits == m_pCur || result.ec != std::errc() || count > 0xFFFFFFFFull)
		return Fail(start, "an array's length after '*' is missing or too large");
	SkipSpaceAndComments();
	if (m_pCur >= m_pEnd || *m_pCur != '{')
		return Fail(m_pCur, "expected '{' after the array length *%llu", (unsigned long long)count);
	++m_pCur;
	SkipSpaceAndComments();
	const char *valuesStart = m_pCur;
	if (m_pCur < m_pEnd && *m_pCur != '}')
	{
		if (*m_pCur != 'a')
			return Fail(m_pCur, "expected \"a:\" at the start of an array's values");
		++m_pCur;
		SkipBlanks();
		if (m_pCur >= m_pEnd || *m_pCur != ':')
			return Fail(m_pCur, "expected \"a:\" at the start of an array's values");
		++m_pCur;
		valuesStart = m_pCur;
	}
	const void *close = memchr(m_pCur, '}', m_pEnd - m_pCur);
	if (!close)
		return Fail(start, "an array of %llu values is not closed with '}'", (unsigned long long)count);
	property.cType = 'a';
	property.nArrayCount = (uint32)count;
	property.data = std::string_view(valuesStart, (const char *)close - valuesStart);
	m_pCur = (const char *)close + 1;
	return true;
}
