// The text encodings "keyvalues2" and "keyvalues2_noids".
//
// One reader serves both: ids are optional, so a keyvalues2_noids file is a keyvalues2 file
// whose elements all stand inline. The writers differ: keyvalues2 writes each element once,
// inline where it is first referenced, and refers to it by id after that; keyvalues2_noids
// writes an element inline at every reference and cannot hold a cycle.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <unordered_map>
#include <unordered_set>

#include "core/strtools.h"
#include "datamodel/dmxserializers.h"

namespace
{
// ---------------------------------------------------------------------------------------------
// Values as text

bool IsSpace(char c)
{
	return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v';
}

// Reads the next number of a value text; skips blanks before it and accepts a leading '+'.
template <class T> bool ReadNumber(const char *&p, const char *end, T &out)
{
	while (p < end && IsSpace(*p))
		++p;
	if (p < end && *p == '+')
		++p;
	if (p >= end || *p == '+')
		return false;
	const auto result = std::from_chars(p, end, out);
	if (result.ec != std::errc())
		return false;
	p = result.ptr;
	// A number must be followed by a blank or the end of the value.
	return p == end || IsSpace(*p);
}

bool AtEnd(const char *p, const char *end)
{
	while (p < end && IsSpace(*p))
		++p;
	return p == end;
}

bool ParseFloats(std::string_view text, float *pOut, int count)
{
	const char *p = text.data();
	const char *end = p + text.size();
	for (int i = 0; i < count; ++i)
		if (!ReadNumber(p, end, pOut[i]))
			return false;
	return AtEnd(p, end);
}

// Parses the text of one value of type T; false with `what` (what the value needs) when it is
// malformed. Element references are read by the reader itself.
template <class T> bool ParseValue(std::string_view text, T &out, const char *&what)
{
	const char *p = text.data();
	const char *end = p + text.size();
	if constexpr (std::is_same_v<T, int32>)
	{
		what = "an integer (32-bit)";
		return ReadNumber(p, end, out) && AtEnd(p, end);
	}
	else if constexpr (std::is_same_v<T, float>)
	{
		what = "a number";
		return ReadNumber(p, end, out) && AtEnd(p, end);
	}
	else if constexpr (std::is_same_v<T, bool>)
	{
		what = "0 or 1";
		std::string_view word = text;
		while (!word.empty() && IsSpace(word.front()))
			word.remove_prefix(1);
		while (!word.empty() && IsSpace(word.back()))
			word.remove_suffix(1);
		if (word == "1" || word == "true")
			out = true;
		else if (word == "0" || word == "false")
			out = false;
		else
			return false;
		return true;
	}
	else if constexpr (std::is_same_v<T, CUtlString>)
	{
		out.assign(text);
		return true;
	}
	else if constexpr (std::is_same_v<T, CUtlBinaryBlock>)
	{
		what = "pairs of hexadecimal digits";
		out.clear();
		out.reserve(text.size() / 2);
		int high = -1;
		for (char c : text)
		{
			if (IsSpace(c))
			{
				if (high >= 0)
					return false; // a blank between the two digits of a byte
				continue;
			}
			const int digit = V_HexDigitValue(c);
			if (digit < 0)
				return false;
			if (high < 0)
				high = digit;
			else
			{
				out.push_back((uint8)(high * 16 + digit));
				high = -1;
			}
		}
		return high < 0;
	}
	else if constexpr (std::is_same_v<T, DmeTime_t>)
	{
		what = "a time in seconds, from -214748.3648 to 214748.3647";
		double seconds;
		if (!ReadNumber(p, end, seconds) || !AtEnd(p, end))
			return false;
		const double tms = std::round(seconds * 10000.0);
		if (!(tms >= (double)INT32_MIN && tms <= (double)INT32_MAX))
			return false;
		out = DmeTime_t((int32)tms);
		return true;
	}
	else if constexpr (std::is_same_v<T, Color>)
	{
		what = "three or four numbers from 0 to 255";
		int values[4] = { 0, 0, 0, 255 };
		int count = 0;
		while (count < 4 && !AtEnd(p, end))
		{
			if (!ReadNumber(p, end, values[count]) || values[count] < 0 || values[count] > 255)
				return false;
			++count;
		}
		if (count < 3 || !AtEnd(p, end))
			return false;
		out = Color((uint8)values[0], (uint8)values[1], (uint8)values[2], (uint8)values[3]);
		return true;
	}
	else if constexpr (std::is_same_v<T, Vector2D>)
	{
		what = "two numbers";
		return ParseFloats(text, out.Base(), 2);
	}
	else if constexpr (std::is_same_v<T, Vector> || std::is_same_v<T, QAngle>)
	{
		what = "three numbers";
		return ParseFloats(text, out.Base(), 3);
	}
	else if constexpr (std::is_same_v<T, Vector4D> || std::is_same_v<T, Quaternion>)
	{
		what = "four numbers";
		return ParseFloats(text, out.Base(), 4);
	}
	else if constexpr (std::is_same_v<T, VMatrix>)
	{
		what = "sixteen numbers";
		return ParseFloats(text, out.Base(), 16);
	}
	else
	{
		what = "a value of a known type";
		return false;
	}
}

// The std::vector alternatives of an attribute value, other than element arrays.
template <class V> constexpr bool IsValueArray = false;
template <class T> constexpr bool IsValueArray<std::vector<T>> = DmScalarValue<T> && !std::is_same_v<T, CDmElement *>;

void AppendFloat(std::string &out, float value)
{
	char buffer[32];
	const auto result = std::to_chars(buffer, buffer + sizeof(buffer), value);
	out.append(buffer, result.ptr);
}

void AppendInt(std::string &out, int64 value)
{
	char buffer[24];
	const auto result = std::to_chars(buffer, buffer + sizeof(buffer), value);
	out.append(buffer, result.ptr);
}

void AppendFloats(std::string &out, const float *values, int count)
{
	for (int i = 0; i < count; ++i)
	{
		if (i)
			out += ' ';
		AppendFloat(out, values[i]);
	}
}

// Seconds with up to four decimals: exactly the stored ten-thousandths.
void AppendTime(std::string &out, DmeTime_t time)
{
	int64 tms = time.m_tms;
	if (tms < 0)
	{
		out += '-';
		tms = -tms;
	}
	AppendInt(out, tms / 10000);
	int fraction = (int)(tms % 10000);
	if (fraction)
	{
		char digits[6] = { '.', char('0' + fraction / 1000), char('0' + fraction / 100 % 10), char('0' + fraction / 10 % 10), char('0' + fraction % 10), 0 };
		size_t length = 5;
		while (digits[length - 1] == '0')
			--length;
		out.append(digits, length);
	}
}

void AppendQuoted(std::string &out, std::string_view text)
{
	out += '"';
	size_t run = 0;
	for (size_t i = 0; i < text.size(); ++i)
	{
		const char c = text[i];
		const char *escape = nullptr;
		switch (c)
		{
		case '"': escape = "\\\""; break;
		case '\\': escape = "\\\\"; break;
		case '\n': escape = "\\n"; break;
		case '\r': escape = "\\r"; break;
		case '\t': escape = "\\t"; break;
		default: break;
		}
		if (escape)
		{
			out.append(text.data() + run, i - run);
			out += escape;
			run = i + 1;
		}
	}
	out.append(text.data() + run, text.size() - run);
	out += '"';
}

// The value text of a scalar (without quotes) for every type but element.
template <class T> void AppendScalarText(std::string &out, const T &value)
{
	if constexpr (std::is_same_v<T, int32>)
		AppendInt(out, value);
	else if constexpr (std::is_same_v<T, float>)
		AppendFloat(out, value);
	else if constexpr (std::is_same_v<T, bool>)
		out += value ? '1' : '0';
	else if constexpr (std::is_same_v<T, DmeTime_t>)
		AppendTime(out, value);
	else if constexpr (std::is_same_v<T, Color>)
	{
		AppendInt(out, value.r);
		out += ' ';
		AppendInt(out, value.g);
		out += ' ';
		AppendInt(out, value.b);
		out += ' ';
		AppendInt(out, value.a);
	}
	else if constexpr (std::is_same_v<T, CUtlBinaryBlock>)
	{
		static const char s_Hex[] = "0123456789ABCDEF";
		for (uint8 b : value)
		{
			out += s_Hex[b >> 4];
			out += s_Hex[b & 15];
		}
	}
	else if constexpr (std::is_same_v<T, Vector2D>)
		AppendFloats(out, value.Base(), 2);
	else if constexpr (std::is_same_v<T, Vector> || std::is_same_v<T, QAngle>)
		AppendFloats(out, value.Base(), 3);
	else if constexpr (std::is_same_v<T, Vector4D> || std::is_same_v<T, Quaternion>)
		AppendFloats(out, value.Base(), 4);
	else if constexpr (std::is_same_v<T, VMatrix>)
		AppendFloats(out, value.Base(), 16);
}

// ---------------------------------------------------------------------------------------------
// Reader

enum TokenKind_t
{
	TK_END,
	TK_STRING,
	TK_OPEN_BRACE,
	TK_CLOSE_BRACE,
	TK_OPEN_BRACKET,
	TK_CLOSE_BRACKET,
	TK_COMMA,
	TK_ERROR,
};

struct Token_t
{
	TokenKind_t kind = TK_END;
	std::string_view raw; // the text of a string as it stands in the file (between the quotes)
	std::string decoded;  // the text with escapes decoded, when it had any
	bool bDecoded = false;
	int line = 0;
	int column = 0;

	std::string_view Text() const { return bDecoded ? std::string_view(decoded) : raw; }
};

const char *TokenDescription(const Token_t &token)
{
	switch (token.kind)
	{
	case TK_END: return "the end of the file";
	case TK_STRING: return "a string";
	case TK_OPEN_BRACE: return "'{'";
	case TK_CLOSE_BRACE: return "'}'";
	case TK_OPEN_BRACKET: return "'['";
	case TK_CLOSE_BRACKET: return "']'";
	case TK_COMMA: return "','";
	default: return "a bad token";
	}
}

class CKeyValues2Reader
{
public:
	CKeyValues2Reader(const char *data, size_t size, size_t bodyOffset, const char *sourceName, CDmxDocument &doc)
		: m_p(data + bodyOffset), m_pEnd(data + size), m_pLineStart(data), m_pSourceName(sourceName), m_Doc(doc)
	{
		// Lines before the body (the header line) count.
		for (const char *p = data; p < m_p; ++p)
		{
			if (*p == '\n')
			{
				++m_nLine;
				m_pLineStart = p + 1;
			}
		}
	}

	bool Read(CUtlString *pError)
	{
		CDmElement *pRoot = nullptr;
		for (;;)
		{
			Token_t type;
			if (!Next(type))
				return Fail(pError);
			if (type.kind == TK_END)
				break;
			if (type.kind != TK_STRING)
			{
				Error(type, V_Format("expected the type name of an element, found %s", TokenDescription(type)));
				return Fail(pError);
			}
			CDmElement *pElement = ReadElement(type, 0);
			if (!pElement)
				return Fail(pError);
			if (!pRoot)
				pRoot = pElement;
		}
		if (!pRoot)
		{
			Token_t end;
			end.line = m_nLine;
			end.column = (int)(m_p - m_pLineStart) + 1;
			Error(end, "the file holds no element");
			return Fail(pError);
		}
		if (!ResolveReferences())
			return Fail(pError);
		m_Doc.SetRoot(pRoot);
		return true;
	}

private:
	struct PendingReference_t
	{
		CDmAttribute *pAttribute;
		size_t nIndex; // SIZE_MAX for an element attribute
		DmElementId_t id;
		int line;
		int column;
	};

	bool Fail(CUtlString *pError)
	{
		if (pError)
			*pError = m_Error;
		return false;
	}

	void Error(const Token_t &at, const CUtlString &message)
	{
		if (m_Error.empty())
			m_Error = V_Format("%s(%d,%d): %s", m_pSourceName, at.line, at.column, message.c_str());
	}

	void NewLine(const char *pAfter)
	{
		++m_nLine;
		m_pLineStart = pAfter;
	}

	// Skips blanks, line ends and // comments.
	void SkipSpace()
	{
		while (m_p < m_pEnd)
		{
			const char c = *m_p;
			if (c == '\n')
			{
				++m_p;
				NewLine(m_p);
			}
			else if (c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v')
				++m_p;
			else if (c == '/' && m_p + 1 < m_pEnd && m_p[1] == '/')
			{
				while (m_p < m_pEnd && *m_p != '\n')
					++m_p;
			}
			else
				break;
		}
	}

	bool Next(Token_t &token)
	{
		if (m_bHavePeeked)
		{
			token = std::move(m_Peeked);
			m_bHavePeeked = false;
			return token.kind != TK_ERROR;
		}
		return Scan(token);
	}

	const Token_t &Peek()
	{
		if (!m_bHavePeeked)
		{
			Scan(m_Peeked);
			m_bHavePeeked = true;
		}
		return m_Peeked;
	}

	bool Scan(Token_t &token)
	{
		SkipSpace();
		token.bDecoded = false;
		token.decoded.clear();
		token.raw = {};
		token.line = m_nLine;
		token.column = (int)(m_p - m_pLineStart) + 1;
		if (m_p >= m_pEnd)
		{
			token.kind = TK_END;
			return true;
		}
		switch (*m_p)
		{
		case '{': token.kind = TK_OPEN_BRACE; ++m_p; return true;
		case '}': token.kind = TK_CLOSE_BRACE; ++m_p; return true;
		case '[': token.kind = TK_OPEN_BRACKET; ++m_p; return true;
		case ']': token.kind = TK_CLOSE_BRACKET; ++m_p; return true;
		case ',': token.kind = TK_COMMA; ++m_p; return true;
		case '"': return ScanQuoted(token);
		default: break;
		}
		// A bare word runs to a blank, a quote or a delimiter.
		const char *start = m_p;
		while (m_p < m_pEnd && !IsSpace(*m_p) && *m_p != '"' && *m_p != '{' && *m_p != '}' && *m_p != '[' && *m_p != ']' && *m_p != ',')
			++m_p;
		token.kind = TK_STRING;
		token.raw = std::string_view(start, (size_t)(m_p - start));
		return true;
	}

	bool ScanQuoted(Token_t &token)
	{
		++m_p; // opening quote
		const char *start = m_p;
		// Fast path: no escapes.
		while (m_p < m_pEnd && *m_p != '"' && *m_p != '\\')
		{
			if (*m_p == '\n')
				NewLine(m_p + 1);
			++m_p;
		}
		if (m_p < m_pEnd && *m_p == '"')
		{
			token.kind = TK_STRING;
			token.raw = std::string_view(start, (size_t)(m_p - start));
			++m_p;
			return true;
		}
		token.decoded.assign(start, (size_t)(m_p - start));
		token.bDecoded = true;
		while (m_p < m_pEnd && *m_p != '"')
		{
			char c = *m_p++;
			if (c == '\n')
				NewLine(m_p);
			else if (c == '\\' && m_p < m_pEnd)
			{
				const char e = *m_p++;
				switch (e)
				{
				case 'n': c = '\n'; break;
				case 't': c = '\t'; break;
				case 'r': c = '\r'; break;
				case '\\': c = '\\'; break;
				case '"': c = '"'; break;
				case '\'': c = '\''; break;
				default:
					// An unknown escape stands for itself, backslash included.
					token.decoded += '\\';
					c = e;
					if (e == '\n')
						NewLine(m_p);
					break;
				}
			}
			token.decoded += c;
		}
		if (m_p >= m_pEnd)
		{
			token.kind = TK_ERROR;
			Error(token, "a string is not closed before the end of the file");
			return false;
		}
		++m_p;
		token.kind = TK_STRING;
		return true;
	}

	bool Expect(TokenKind_t kind, Token_t &token, const char *what)
	{
		if (!Next(token))
			return false;
		if (token.kind != kind)
		{
			Error(token, V_Format("expected %s, found %s", what, TokenDescription(token)));
			return false;
		}
		return true;
	}

	// The element whose type name token was just read: its body in braces.
	CDmElement *ReadElement(const Token_t &typeToken, int depth)
	{
		if (depth >= DMX_TEXT_MAX_NESTING)
		{
			Error(typeToken, V_Format("elements are nested more than %d deep", (int)DMX_TEXT_MAX_NESTING));
			return nullptr;
		}
		Token_t token;
		if (!Expect(TK_OPEN_BRACE, token, V_Format("'{' after the element type \"%.*s\"", (int)typeToken.Text().size(), typeToken.Text().data()).c_str()))
			return nullptr;
		CDmElement *pElement = m_Doc.CreateElement(typeToken.Text());
		bool bHaveId = false;
		bool bHaveName = false;
		CDmxAttributeNameIndex names(pElement);
		for (;;)
		{
			if (!Next(token))
				return nullptr;
			if (token.kind == TK_CLOSE_BRACE)
				return pElement;
			if (token.kind != TK_STRING)
			{
				Error(token, V_Format("expected an attribute name or '}', found %s", TokenDescription(token)));
				return nullptr;
			}
			const Token_t nameToken = std::move(token);
			const std::string_view name = nameToken.Text();
			Token_t typeNameToken;
			if (!Expect(TK_STRING, typeNameToken, V_Format("the type of attribute \"%.*s\"", (int)name.size(), name.data()).c_str()))
				return nullptr;
			const std::string_view typeName = typeNameToken.Text();

			if (name == "id" && typeName == "elementid")
			{
				Token_t value;
				if (!Expect(TK_STRING, value, "the element id"))
					return nullptr;
				DmElementId_t id;
				if (!DmElementId_t::Parse(value.Text(), id))
				{
					Error(value, V_Format("\"%.*s\" is not an element id", (int)value.Text().size(), value.Text().data()));
					return nullptr;
				}
				if (bHaveId)
				{
					Error(nameToken, "the element has two ids");
					return nullptr;
				}
				if (!m_Doc.SetElementId(pElement, id))
				{
					Error(value, V_Format("the element id %s is used by two elements", id.Text().c_str()));
					return nullptr;
				}
				bHaveId = true;
				continue;
			}

			if (name != "name" && names.Has(name))
			{
				Error(nameToken, V_Format("the attribute \"%.*s\" appears twice in the element", (int)name.size(), name.data()));
				return nullptr;
			}
			if (name == "name" && bHaveName)
			{
				Error(nameToken, "the attribute \"name\" appears twice in the element");
				return nullptr;
			}

			// An element written inline: "attr" "TypeName" { ... }
			const Token_t &peeked = Peek();
			if (peeked.kind == TK_ERROR)
				return nullptr;
			if (peeked.kind == TK_OPEN_BRACE)
			{
				if (name == "name")
				{
					Error(nameToken, "the attribute \"name\" must be a string");
					return nullptr;
				}
				CDmElement *pChild = ReadElement(typeNameToken, depth + 1);
				if (!pChild)
					return nullptr;
				CDmxElementBuilder::Append(pElement, name, AT_ELEMENT)->SetValue(pChild);
				continue;
			}

			const DmAttributeType_t type = DmAttributeTypeFromName(typeName);
			if (type == AT_UNKNOWN)
			{
				Error(typeNameToken,
					V_Format("\"%.*s\" is not an attribute type (and no '{' follows for an element of that type)", (int)typeName.size(), typeName.data()));
				return nullptr;
			}
			if (name == "name")
			{
				if (type != AT_STRING)
				{
					Error(typeNameToken, "the attribute \"name\" must be a string");
					return nullptr;
				}
				bHaveName = true;
			}
			CDmAttribute *pAttribute = name == "name" ? pElement->GetAttribute(0) : CDmxElementBuilder::Append(pElement, name, type);
			if (!(DmIsArrayType(type) ? ReadArray(pAttribute, depth) : ReadScalar(pAttribute)))
				return nullptr;
		}
	}

	bool ReadScalar(CDmAttribute *pAttribute)
	{
		Token_t value;
		if (!Expect(TK_STRING, value, V_Format("the value of attribute \"%s\"", pAttribute->GetName().c_str()).c_str()))
			return false;
		if (pAttribute->GetType() == AT_ELEMENT)
			return ReadReference(value, pAttribute, SIZE_MAX);
		bool bOk = true;
		const char *what = "";
		std::visit(
			[&](const auto &stored)
			{
				using T = std::decay_t<decltype(stored)>;
				if constexpr (DmScalarValue<T> && !std::is_same_v<T, CDmElement *>)
				{
					T parsed {};
					bOk = ParseValue(value.Text(), parsed, what) && pAttribute->SetValue(parsed);
				}
			},
			pAttribute->GetVariant());
		if (!bOk)
		{
			Error(value, V_Format("the %s attribute \"%s\" needs %s", pAttribute->GetTypeName(), pAttribute->GetName().c_str(), what));
			return false;
		}
		return true;
	}

	// An element id, or an empty text for null.
	bool ReadReference(const Token_t &value, CDmAttribute *pAttribute, size_t index)
	{
		const std::string_view text = value.Text();
		if (text.empty())
			return true; // null: the default
		DmElementId_t id;
		if (!DmElementId_t::Parse(text, id))
		{
			Error(value, V_Format("\"%.*s\" is not an element id", (int)text.size(), text.data()));
			return false;
		}
		m_Pending.push_back({ pAttribute, index, id, value.line, value.column });
		return true;
	}

	bool ReadArray(CDmAttribute *pAttribute, int depth)
	{
		Token_t token;
		if (!Expect(TK_OPEN_BRACKET, token, V_Format("'[' to open the %s \"%s\"", pAttribute->GetTypeName(), pAttribute->GetName().c_str()).c_str()))
			return false;
		const DmAttributeType_t scalarType = DmScalarType(pAttribute->GetType());
		CDmAttribute::Value_t array = pAttribute->GetVariant();
		bool bNeedSeparator = false;
		for (;;)
		{
			if (!Next(token))
				return false;
			if (token.kind == TK_CLOSE_BRACKET)
				break;
			if (token.kind == TK_COMMA)
			{
				if (!bNeedSeparator)
				{
					Error(token, "an array entry is missing before ','");
					return false;
				}
				bNeedSeparator = false;
				continue;
			}
			if (token.kind != TK_STRING)
			{
				Error(token, V_Format("expected an entry of the %s \"%s\" or ']', found %s", pAttribute->GetTypeName(), pAttribute->GetName().c_str(),
					TokenDescription(token)));
				return false;
			}
			if (scalarType == AT_ELEMENT)
			{
				auto &elements = std::get<std::vector<CDmElement *>>(array);
				const Token_t &peeked = Peek();
				if (peeked.kind == TK_ERROR)
					return false;
				if (peeked.kind == TK_OPEN_BRACE)
				{
					CDmElement *pChild = ReadElement(token, depth + 1);
					if (!pChild)
						return false;
					elements.push_back(pChild);
				}
				else if (token.Text() == "element")
				{
					Token_t value;
					if (!Expect(TK_STRING, value, "an element id after \"element\""))
						return false;
					elements.push_back(nullptr);
					if (!ReadReference(value, pAttribute, elements.size() - 1))
						return false;
				}
				else
				{
					Error(token, V_Format("expected an element (\"TypeName\" { ... }) or a reference (\"element\" \"<id>\") in the element_array \"%s\"",
						pAttribute->GetName().c_str()));
					return false;
				}
			}
			else
			{
				const char *what = "";
				const bool bOk = std::visit(
					[&](auto &values) -> bool
					{
						using V = std::decay_t<decltype(values)>;
						if constexpr (IsValueArray<V>)
						{
							typename V::value_type parsed {};
							if (!ParseValue(token.Text(), parsed, what))
								return false;
							values.push_back(std::move(parsed));
							return true;
						}
						else
							return false;
					},
					array);
				if (!bOk)
				{
					Error(token, V_Format("an entry of the %s \"%s\" needs %s", pAttribute->GetTypeName(), pAttribute->GetName().c_str(), what));
					return false;
				}
			}
			bNeedSeparator = true;
		}
		pAttribute->SetVariant(std::move(array));
		return true;
	}

	bool ResolveReferences()
	{
		for (const PendingReference_t &pending : m_Pending)
		{
			CDmElement *pTarget = m_Doc.FindElement(pending.id);
			if (!pTarget)
			{
				Token_t at;
				at.line = pending.line;
				at.column = pending.column;
				Error(at, V_Format("no element of the file has the id %s", pending.id.Text().c_str()));
				return false;
			}
			if (pending.nIndex == SIZE_MAX)
				pending.pAttribute->SetValue(pTarget);
			else
				(*pending.pAttribute->GetArrayForEdit<CDmElement *>())[pending.nIndex] = pTarget;
		}
		return true;
	}

	const char *m_p;
	const char *m_pEnd;
	const char *m_pLineStart;
	int m_nLine = 1;
	const char *m_pSourceName;
	CDmxDocument &m_Doc;
	CUtlString m_Error;
	Token_t m_Peeked;
	bool m_bHavePeeked = false;
	std::vector<PendingReference_t> m_Pending;
};

// ---------------------------------------------------------------------------------------------
// Writer

class CKeyValues2Writer
{
public:
	CKeyValues2Writer(bool bWithIds, const CDmElement *pRoot) : m_bWithIds(bWithIds), m_pDocument(pRoot->GetDocument()) {}

	bool Write(CUtlBuffer &out, const DmxHeader_t &header, const CDmElement *pRoot, CUtlString *pError)
	{
		if (!m_bWithIds)
		{
			// Shared elements are repeated at each reference: allow a generous number of repeats,
			// but not the exponential growth of elements that refer to the next one twice.
			m_nMaxNoIdsWrites = std::max<size_t>(100000, 16 * CDmxDocument::CollectReachable(const_cast<CDmElement *>(pRoot)).size());
		}
		m_Out = DmxHeaderLine(header);
		m_Out += '\n';
		m_TopLevel.push_back(pRoot);
		m_Written.insert(pRoot);
		// Elements too deep to stand inline where they are referenced follow the root at the top
		// level (keyvalues2 only).
		for (size_t i = 0; i < m_TopLevel.size(); ++i)
		{
			if (i)
				m_Out += '\n';
			WriteTypeLine(m_TopLevel[i], 0);
			if (!WriteBody(m_TopLevel[i], 0))
				break;
		}
		if (!m_Error.empty())
		{
			if (pError)
				*pError = m_Error;
			return false;
		}
		out.Put(m_Out.data(), m_Out.size());
		return true;
	}

private:

	enum : size_t
	{
		MAX_NOIDS_TEXT_BYTES = 512u << 20, // beyond this, keyvalues2_noids does not repeat elements
	};

	void Tabs(int count) { m_Out.append((size_t)count, '\t'); }

	void WriteTypeLine(const CDmElement *pElement, int indent)
	{
		Tabs(indent);
		AppendQuoted(m_Out, pElement->GetTypeName());
		m_Out += '\n';
	}

	bool CheckOwner(const CDmElement *pElement, const CDmAttribute *pAttribute)
	{
		if (pElement->GetDocument() == m_pDocument)
			return true;
		m_Error = V_Format("the attribute \"%s\" refers to an element of another document", pAttribute->GetName().c_str());
		return false;
	}

	// How an element referenced from an attribute is written: inline (true) or by id (false).
	// `depth` is the nesting depth it would have inline (the root has 0). Fails for
	// keyvalues2_noids when the element is one of those being written (a cycle).
	bool ChooseInline(const CDmElement *pElement, const CDmAttribute *pAttribute, int depth, bool &bInline)
	{
		if (!CheckOwner(pElement, pAttribute))
			return false;
		if (m_bWithIds)
		{
			if (m_Written.count(pElement))
			{
				bInline = false;
				return true;
			}
			m_Written.insert(pElement);
			if (depth >= DMX_TEXT_MAX_NESTING)
			{
				m_TopLevel.push_back(pElement);
				bInline = false;
				return true;
			}
			bInline = true;
			return true;
		}
		if (std::find(m_Path.begin(), m_Path.end(), pElement) != m_Path.end())
		{
			m_Error = V_Format("the element \"%s\" (%s) refers back to itself through \"%s\": keyvalues2_noids cannot hold a cycle (save with "
							   "keyvalues2 or binary)",
				pElement->GetName().c_str(), pElement->GetTypeName().c_str(), pAttribute->GetName().c_str());
			return false;
		}
		if (depth >= DMX_TEXT_MAX_NESTING)
		{
			m_Error = V_Format("elements are nested more than %d deep at \"%s\": too deep for keyvalues2_noids (save with keyvalues2 or binary)",
				(int)DMX_TEXT_MAX_NESTING, pAttribute->GetName().c_str());
			return false;
		}
		if (!m_Written.insert(pElement).second)
			m_bRepeating = true;
		if (m_bRepeating && m_Out.size() > MAX_NOIDS_TEXT_BYTES)
		{
			m_Error = V_Format("repeating shared elements makes the keyvalues2_noids text larger than %d MiB (save with keyvalues2 or binary)",
				(int)(MAX_NOIDS_TEXT_BYTES >> 20));
			return false;
		}
		if (++m_nNoIdsWrites > m_nMaxNoIdsWrites)
		{
			m_Error = V_Format("shared elements would be repeated more than %zu times in keyvalues2_noids (save with keyvalues2 or binary)",
				m_nMaxNoIdsWrites);
			return false;
		}
		bInline = true;
		return true;
	}

	bool WriteBody(const CDmElement *pElement, int indent)
	{
		Tabs(indent);
		m_Out += "{\n";
		m_Path.push_back(pElement);
		if (m_bWithIds)
		{
			Tabs(indent + 1);
			m_Out += "\"id\" \"elementid\" \"";
			m_Out += pElement->GetId().Text();
			m_Out += "\"\n";
		}
		for (int a = 0; a < pElement->AttributeCount(); ++a)
		{
			const CDmAttribute *pAttribute = pElement->GetAttribute(a);
			if (a == 0 && pAttribute->GetValue<CUtlString>().empty())
				continue; // an empty name is not written
			if (!WriteAttribute(pAttribute, indent + 1))
				return false;
		}
		m_Path.pop_back();
		Tabs(indent);
		m_Out += "}\n";
		return true;
	}

	bool WriteAttribute(const CDmAttribute *pAttribute, int indent)
	{
		Tabs(indent);
		AppendQuoted(m_Out, pAttribute->GetName());
		m_Out += ' ';
		const DmAttributeType_t type = pAttribute->GetType();
		if (type == AT_ELEMENT)
		{
			const CDmElement *pChild = pAttribute->GetValue<CDmElement *>();
			bool bInline = false;
			if (pChild && !ChooseInline(pChild, pAttribute, (int)m_Path.size(), bInline))
				return false;
			if (!pChild)
				m_Out += "\"element\" \"\"\n";
			else if (bInline)
			{
				AppendQuoted(m_Out, pChild->GetTypeName());
				m_Out += '\n';
				return WriteBody(pChild, indent);
			}
			else
			{
				m_Out += "\"element\" \"";
				m_Out += pChild->GetId().Text();
				m_Out += "\"\n";
			}
			return true;
		}
		if (type == AT_ELEMENT_ARRAY)
		{
			m_Out += "\"element_array\"\n";
			Tabs(indent);
			m_Out += "[\n";
			const std::vector<CDmElement *> &elements = pAttribute->GetArray<CDmElement *>();
			for (size_t i = 0; i < elements.size(); ++i)
			{
				const CDmElement *pChild = elements[i];
				bool bInline = false;
				if (pChild && !ChooseInline(pChild, pAttribute, (int)m_Path.size(), bInline))
					return false;
				if (!pChild)
				{
					Tabs(indent + 1);
					m_Out += "\"element\" \"\"";
				}
				else if (bInline)
				{
					WriteTypeLine(pChild, indent + 1);
					if (!WriteBody(pChild, indent + 1))
						return false;
					m_Out.pop_back(); // the line end, to put the separator after the brace
				}
				else
				{
					Tabs(indent + 1);
					m_Out += "\"element\" \"";
					m_Out += pChild->GetId().Text();
					m_Out += '"';
				}
				if (i + 1 < elements.size())
					m_Out += ',';
				m_Out += '\n';
			}
			Tabs(indent);
			m_Out += "]\n";
			return true;
		}
		m_Out += '"';
		m_Out += pAttribute->GetTypeName();
		m_Out += '"';
		std::visit(
			[&](const auto &value)
			{
				using T = std::decay_t<decltype(value)>;
				if constexpr (std::is_same_v<T, CUtlString>)
				{
					m_Out += ' ';
					AppendQuoted(m_Out, value);
					m_Out += '\n';
				}
				else if constexpr (DmScalarValue<T>)
				{
					m_Out += " \"";
					AppendScalarText(m_Out, value);
					m_Out += "\"\n";
				}
				else if constexpr (!std::is_same_v<T, std::monostate> && !std::is_same_v<T, std::vector<CDmElement *>>)
				{
					// Arrays of values: the brackets one step in, the entries two.
					m_Out += '\n';
					Tabs(indent + 1);
					m_Out += "[\n";
					for (size_t i = 0; i < value.size(); ++i)
					{
						Tabs(indent + 2);
						if constexpr (std::is_same_v<T, std::vector<CUtlString>>)
							AppendQuoted(m_Out, value[i]);
						else
						{
							m_Out += '"';
							AppendScalarText(m_Out, (typename T::value_type)value[i]);
							m_Out += '"';
						}
						if (i + 1 < value.size())
							m_Out += ',';
						m_Out += '\n';
					}
					Tabs(indent + 1);
					m_Out += "]\n";
				}
			},
			pAttribute->GetVariant());
		return true;
	}

	bool m_bWithIds;
	const CDmxDocument *m_pDocument;
	std::string m_Out;
	CUtlString m_Error;
	std::vector<const CDmElement *> m_TopLevel;
	std::unordered_set<const CDmElement *> m_Written; // written or queued
	std::vector<const CDmElement *> m_Path;			  // keyvalues2_noids: the elements being written
	size_t m_nNoIdsWrites = 0;
	size_t m_nMaxNoIdsWrites = 0;
	bool m_bRepeating = false; // keyvalues2_noids: an element has been written twice
};

class CKeyValues2Serializer final : public IDmxSerializer
{
public:
	explicit CKeyValues2Serializer(bool bWithIds) : m_bWithIds(bWithIds) {}

	const char *GetEncodingName() const override { return m_bWithIds ? DMX_ENCODING_KEYVALUES2 : DMX_ENCODING_KEYVALUES2_NOIDS; }
	int GetEncodingVersion() const override { return 1; }
	bool IsBinary() const override { return false; }

	bool Unserialize(const char *data, size_t size, size_t bodyOffset, const DmxHeader_t &, const char *sourceName, CDmxDocument &doc,
		CUtlString *pError) override
	{
		CKeyValues2Reader reader(data, size, bodyOffset, sourceName, doc);
		return reader.Read(pError);
	}

	bool Serialize(CUtlBuffer &out, const DmxHeader_t &header, const CDmElement *pRoot, CUtlString *pError) override
	{
		CKeyValues2Writer writer(m_bWithIds, pRoot);
		return writer.Write(out, header, pRoot, pError);
	}

private:
	bool m_bWithIds;
};
} // namespace

IDmxSerializer *DmxKeyValues2Serializer()
{
	static CKeyValues2Serializer s_Serializer(true);
	return &s_Serializer;
}

IDmxSerializer *DmxKeyValues2NoIdsSerializer()
{
	static CKeyValues2Serializer s_Serializer(false);
	return &s_Serializer;
}
