// The KV3 text writer, the encoding and format identifiers, and DebugPrintKV3.
//
// Layout: a table is written with one member per line, `name = value`; a member whose value is a
// non-empty container opens it on the next line. An array of scalars stays on one line,
// `[ 1, 2, 3 ]`; an array holding containers has one element per line, each followed by a comma.
// A value that cannot be written (a pointer, a string with a NUL byte or invalid UTF-8, nesting
// beyond the parser's limit) is written as null so that the text still reads back, and the save
// reports the first such problem.
#include <charconv>
#include <cstring>

#include "core/keyvalues3_internal.h"
#include "core/kv3text.h"
#include "core/logging.h"
#include "core/strtools.h"

const KV3ID_t KV3_ENCODING_TEXT = { "text", { 0x3c, 0x7f, 0x1c, 0xe2, 0x33, 0x8a, 0xc5, 0x41, 0x99, 0x77, 0xa7, 0x6d, 0x3a, 0x32, 0xaa, 0x0d } };
const KV3ID_t KV3_FORMAT_GENERIC = { "generic", { 0x7c, 0x16, 0x12, 0x74, 0xe9, 0x06, 0x98, 0x46, 0xaf, 0xf2, 0xe6, 0x3e, 0xb5, 0x90, 0x37, 0xe7 } };

bool KV3ID_t::operator==(const KV3ID_t &other) const
{
	return memcmp(m_id, other.m_id, sizeof(m_id)) == 0 && V_stricmp(m_name ? m_name : "", other.m_name ? other.m_name : "") == 0;
}

CUtlString KV3ID_t::GuidText() const
{
	const uint8 *b = m_id;
	return V_Format("%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x", b[3], b[2], b[1], b[0], b[5], b[4], b[7],
		b[6], b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
}

CUtlString KV3HeaderLine(const KV3ID_t &encoding, const KV3ID_t &format)
{
	return V_Format("<!-- kv3 encoding:%s:version{%s} format:%s:version{%s} -->", encoding.m_name, encoding.GuidText().c_str(), format.m_name,
		format.GuidText().c_str());
}

bool KV3TextHasHeader(std::string_view text)
{
	if (text.substr(0, 3) == "\xEF\xBB\xBF")
		text.remove_prefix(3);
	while (!text.empty() && (text.front() == ' ' || text.front() == '\t' || text.front() == '\r' || text.front() == '\n'))
		text.remove_prefix(1);
	if (text.substr(0, 4) != "<!--")
		return false;
	text.remove_prefix(4);
	while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
		text.remove_prefix(1);
	return text.substr(0, 3) == "kv3";
}

namespace
{
bool IsBareName(std::string_view name)
{
	if (name.empty())
		return false;
	for (char c : name)
	{
		const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '.';
		if (!ok)
			return false;
	}
	return true;
}

bool IsScalar(const KeyValues3 *value)
{
	const KV3Type_t type = value->GetType();
	return type != KV3_TYPE_ARRAY && type != KV3_TYPE_TABLE;
}

class CKV3TextWriter
{
public:
	explicit CKV3TextWriter(std::string &out) : m_Out(out) {}

	void WriteValue(const KeyValues3 *value, int indent, int depth)
	{
		switch (value->GetType())
		{
		case KV3_TYPE_INVALID:
		case KV3_TYPE_NULL:
			m_Out += "null";
			break;
		case KV3_TYPE_BOOL:
			m_Out += value->GetBoolValue() ? "true" : "false";
			break;
		case KV3_TYPE_INT:
			AppendNumber(value->GetInt64());
			break;
		case KV3_TYPE_UINT:
			if (value->IsPointer())
			{
				Problem("A pointer value cannot be written as text");
				m_Out += "null";
			}
			else
				AppendNumber(value->GetUInt64());
			break;
		case KV3_TYPE_DOUBLE:
		{
			char text[V_DOUBLE_TEXT_SIZE];
			const int length = V_FormatDouble(value->GetDouble(), text, sizeof(text));
			m_Out.append(text, (size_t)length);
			break;
		}
		case KV3_TYPE_STRING:
			WriteString(value->GetStringView());
			break;
		case KV3_TYPE_BINARY_BLOB:
			WriteBlob(value->GetBinaryBlob(), value->GetBinaryBlobSize());
			break;
		case KV3_TYPE_ARRAY:
			if (depth > KV3_MAX_NESTING)
				TooDeep();
			else
				WriteArray(value, indent, depth);
			break;
		case KV3_TYPE_TABLE:
			if (depth > KV3_MAX_NESTING)
				TooDeep();
			else
				WriteTable(value, indent, depth);
			break;
		default:
			Problem(V_Format("A value of unknown kind %d cannot be written", (int)value->GetType()).c_str());
			m_Out += "null";
			break;
		}
	}

	bool Ok() const { return m_Error.empty(); }
	const CUtlString &Error() const { return m_Error; }

private:
	void Problem(const char *message)
	{
		if (m_Error.empty())
			m_Error = message;
	}

	void TooDeep()
	{
		Problem(V_Format("Values nested deeper than %d levels cannot be written", KV3_MAX_NESTING).c_str());
		m_Out += "null";
	}

	template <typename T> void AppendNumber(T number)
	{
		char text[32];
		auto result = std::to_chars(text, text + sizeof(text), number);
		m_Out.append(text, (size_t)(result.ptr - text));
	}

	void Indent(int indent) { m_Out.append((size_t)indent, '\t'); }

	// The text of a string or a quoted name; false when it cannot be written.
	bool WriteQuoted(std::string_view text)
	{
		if (memchr(text.data(), 0, text.size()))
		{
			Problem("A string with a NUL byte cannot be written as text");
			return false;
		}
		size_t bad = 0;
		if (!V_IsValidUTF8(text.data(), text.size(), &bad))
		{
			Problem(V_Format("A string that is not valid UTF-8 cannot be written as text (byte %zu of \"%.*s\")", bad,
				(int)std::min<size_t>(text.size(), 32), text.data())
						.c_str());
			return false;
		}
		m_Out += '"';
		size_t runStart = 0;
		for (size_t i = 0; i < text.size(); ++i)
		{
			const char c = text[i];
			const char *escape = nullptr;
			switch (c)
			{
			case '"':
				escape = "\\\"";
				break;
			case '\\':
				escape = "\\\\";
				break;
			case '\n':
				escape = "\\n";
				break;
			case '\r':
				escape = "\\r";
				break;
			case '\t':
				escape = "\\t";
				break;
			default:
				continue;
			}
			m_Out.append(text.data() + runStart, i - runStart);
			m_Out += escape;
			runStart = i + 1;
		}
		m_Out.append(text.data() + runStart, text.size() - runStart);
		m_Out += '"';
		return true;
	}

	void WriteString(std::string_view text)
	{
		if (!WriteQuoted(text))
			m_Out += "null";
	}

	void WriteName(std::string_view name)
	{
		if (IsBareName(name))
			m_Out.append(name);
		else if (!WriteQuoted(name))
			m_Out += "\"\"";
	}

	void WriteBlob(const uint8 *bytes, uint32 size)
	{
		static const char s_hex[] = "0123456789abcdef";
		m_Out += "#[";
		for (uint32 i = 0; i < size; ++i)
		{
			m_Out += ' ';
			m_Out += s_hex[bytes[i] >> 4];
			m_Out += s_hex[bytes[i] & 15];
		}
		m_Out += size ? " ]" : "]";
	}

	void WriteArray(const KeyValues3 *value, int indent, int depth)
	{
		const uint32 count = value->GetArrayCount();
		if (count == 0)
		{
			m_Out += "[]";
			return;
		}
		bool bScalars = true;
		value->ForEachArrayElement([&](const KeyValues3 *element) { bScalars = bScalars && IsScalar(element); });
		if (bScalars)
		{
			m_Out += "[ ";
			bool bFirst = true;
			value->ForEachArrayElement([&](const KeyValues3 *element) {
				if (!bFirst)
					m_Out += ", ";
				bFirst = false;
				WriteValue(element, indent, depth + 1);
			});
			m_Out += " ]";
			return;
		}
		m_Out += "[\n";
		value->ForEachArrayElement([&](const KeyValues3 *element) {
			Indent(indent + 1);
			WriteValue(element, indent + 1, depth + 1);
			m_Out += ",\n";
		});
		Indent(indent);
		m_Out += ']';
	}

	void WriteTable(const KeyValues3 *value, int indent, int depth)
	{
		if (value->GetMemberCount() == 0)
		{
			m_Out += "{}";
			return;
		}
		m_Out += "{\n";
		value->ForEachMember([&](std::string_view name, uint32, const KeyValues3 *member) {
			Indent(indent + 1);
			WriteName(name);
			const bool bOpensBlock = (member->IsTable() && member->GetMemberCount() > 0) ||
				(member->IsArray() && member->GetArrayCount() > 0 && !AllScalars(member));
			if (bOpensBlock)
			{
				m_Out += " =\n";
				Indent(indent + 1);
			}
			else
				m_Out += " = ";
			WriteValue(member, indent + 1, depth + 1);
			m_Out += '\n';
		});
		Indent(indent);
		m_Out += '}';
	}

	static bool AllScalars(const KeyValues3 *array)
	{
		bool bScalars = true;
		array->ForEachArrayElement([&](const KeyValues3 *element) { bScalars = bScalars && IsScalar(element); });
		return bScalars;
	}

	std::string &m_Out;
	CUtlString m_Error;
};
} // namespace

bool SaveKV3(const KV3ID_t &encoding, const KV3ID_t &format, const KeyValues3 *value, CUtlString *error, CUtlBuffer *buffer, uint flags)
{
	if (error)
		error->clear();
	if (!buffer)
	{
		if (error)
			*error = "SaveKV3: no buffer";
		return false;
	}
	if (!(encoding == KV3_ENCODING_TEXT))
	{
		if (error)
			*error = V_Format("SaveKV3: unsupported encoding '%s' (only '%s' is written)", encoding.m_name ? encoding.m_name : "", KV3_ENCODING_TEXT.m_name);
		return false;
	}
	std::string text;
	if (!(flags & KV3_SAVE_NO_HEADER))
	{
		text = KV3HeaderLine(encoding, format);
		text += '\n';
	}
	CKV3TextWriter writer(text);
	writer.WriteValue(value ? value : KV3Null(), 0, 1);
	text += '\n';
	buffer->Put(text.data(), text.size());
	if (!writer.Ok())
	{
		if (error)
			*error = writer.Error();
		return false;
	}
	return true;
}

void DebugPrintKV3(const KeyValues3 *value)
{
	CUtlBuffer buffer(CUtlBuffer::TEXT_BUFFER);
	SaveKV3(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC, value, nullptr, &buffer, KV3_SAVE_NO_HEADER);
	Msg("%s", buffer.Base());
}
