#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstdio>
#include <random>
#include <string>

#include "core/fileio.h"
#include "core/keyvalues3.h"
#include "core/kv3text.h"
#include "core/strtools.h"
#include "testsupport/test_support.h"

namespace
{
const char *kHeader =
	"<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->";

std::string WithHeader(const std::string &body)
{
	return std::string(kHeader) + "\n" + body;
}

// Parses and expects success; returns the root.
KeyValues3 *Parse(CKeyValues3Context &context, const std::string &text)
{
	CUtlString error;
	EXPECT_TRUE(LoadKV3(context.Root(), &error, text, KV3_FORMAT_GENERIC, "test.kv3")) << error;
	return context.Root();
}

// Parses and expects failure; returns the detail.
KV3ParseError_t ParseError(const std::string &text, CUtlString *pError = nullptr)
{
	CKeyValues3Context context;
	CUtlString error;
	KV3ParseError_t detail;
	EXPECT_FALSE(LoadKV3(context.Root(), &error, text, KV3_FORMAT_GENERIC, "test.kv3", &detail)) << text;
	if (pError)
		*pError = error;
	return detail;
}

std::string Save(const KeyValues3 *value)
{
	CUtlBuffer buffer(CUtlBuffer::TEXT_BUFFER);
	CUtlString error;
	EXPECT_TRUE(SaveKV3(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC, value, &error, &buffer)) << error;
	return std::string(buffer.View());
}
} // namespace

TEST(KV3Text, HeaderLineNamesTheTwoIdentifiers)
{
	EXPECT_EQ(kHeader, KV3HeaderLine(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC));
	EXPECT_EQ("e21c7f3c-8a33-41c5-9977-a76d3a32aa0d", KV3_ENCODING_TEXT.GuidText());
	const uint8 stored[16] = { 0x7c, 0x16, 0x12, 0x74, 0xe9, 0x06, 0x98, 0x46, 0xaf, 0xf2, 0xe6, 0x3e, 0xb5, 0x90, 0x37, 0xe7 };
	EXPECT_EQ(0, memcmp(stored, KV3_FORMAT_GENERIC.m_id, 16));
	EXPECT_TRUE(KV3TextHasHeader(std::string("\xEF\xBB\xBF  ") + kHeader));
	EXPECT_FALSE(KV3TextHasHeader("\"root\" { }"));
}

TEST(KV3Text, ReadsEveryKindOfValue)
{
	CKeyValues3Context context;
	KeyValues3 *root = Parse(context, WithHeader(R"({
	// line comment
	str = "text" /* block comment */ single = 'it\'s'
	"quoted name" = 1
	neg = -7
	big = 9223372036854775807
	huge = 18446744073709551615
	real = 2.5e-3
	yes = true
	no = false
	nothing = null
	nans = [ nan, NaN, inf, +inf, -INF, +1.5 ]
	blob = #[ 00 ff 7F ]
	list = [ 1, "two", [], {}, ]
	table = { inner = { deeper = 3 } }
})"));
	EXPECT_STREQ("text", GetMemberString(root, "str"));
	EXPECT_STREQ("it's", GetMemberString(root, "single"));
	EXPECT_EQ(1, FindMember(root, "QUOTED NAME")->GetInt64());
	EXPECT_EQ(-7, FindMember(root, "neg")->GetInt64());
	EXPECT_EQ(KV3_SUBTYPE_INT32, FindMember(root, "neg")->GetSubType());
	EXPECT_EQ(INT64_MAX, FindMember(root, "big")->GetInt64());
	EXPECT_EQ(KV3_SUBTYPE_INT64, FindMember(root, "big")->GetSubType());
	EXPECT_EQ(KV3_TYPE_UINT, FindMember(root, "huge")->GetType());
	EXPECT_EQ(UINT64_MAX, FindMember(root, "huge")->GetUInt64());
	EXPECT_DOUBLE_EQ(2.5e-3, FindMember(root, "real")->GetDouble());
	EXPECT_TRUE(FindMember(root, "yes")->GetBoolValue());
	EXPECT_EQ(KV3_TYPE_BOOL, FindMember(root, "no")->GetType());
	EXPECT_EQ(KV3_TYPE_NULL, FindMember(root, "nothing")->GetType());
	const KeyValues3 *nans = FindMember(root, "nans");
	EXPECT_TRUE(std::isnan(ArrayElement(nans, 0)->GetDouble()));
	EXPECT_TRUE(std::isnan(ArrayElement(nans, 1)->GetDouble()));
	EXPECT_EQ(HUGE_VAL, ArrayElement(nans, 2)->GetDouble());
	EXPECT_EQ(HUGE_VAL, ArrayElement(nans, 3)->GetDouble());
	EXPECT_EQ(-HUGE_VAL, ArrayElement(nans, 4)->GetDouble());
	EXPECT_EQ(1.5, ArrayElement(nans, 5)->GetDouble());
	const KeyValues3 *blob = FindMember(root, "blob");
	ASSERT_EQ(3u, blob->GetBinaryBlobSize());
	EXPECT_EQ(0x7f, blob->GetBinaryBlob()[2]);
	EXPECT_EQ(4u, ArrayLength(FindMember(root, "list")));
	EXPECT_EQ(3, FindMember(FindMember(FindMember(root, "table"), "inner"), "deeper")->GetInt64());
}

TEST(KV3Text, NumbersReadExactlyWhateverTheirLength)
{
	// Decimal texts of 1 to 24 digits with the point anywhere, read both by the parser and by
	// the standard library; they must agree to the last bit.
	std::mt19937 rng(7);
	for (int round = 0; round < 20000; ++round)
	{
		const int digits = 1 + (int)(rng() % 24);
		std::string text = (rng() & 1) ? "-" : "";
		for (int i = 0; i < digits; ++i)
			text += char('0' + rng() % 10);
		const int point = (int)(rng() % (digits + 2)); // digits + 1: no point at all
		if (point <= digits)
			text.insert(text.size() - (size_t)digits + (size_t)point, ".");
		if (rng() % 8 == 0)
			text += V_Format("e%d", (int)(rng() % 40) - 20);
		if (text == "-." || text == ".")
			continue;
		// In an array with more after it, and alone at the very end of the text.
		for (const std::string &doc : { "[ " + text + ", 1 ]", text })
		{
			CKeyValues3Context context;
			CUtlString error;
			ASSERT_TRUE(LoadKV3Text_NoHeader(context.Root(), &error, doc, KV3_FORMAT_GENERIC)) << doc << ": " << error;
			const KeyValues3 *value = context.Root()->IsArray() ? ArrayElement(context.Root(), 0) : context.Root();
			const std::string &number = text;
			if (value->GetType() == KV3_TYPE_DOUBLE)
			{
				double expected = 0;
				std::from_chars(number.data(), number.data() + number.size(), expected);
				ASSERT_EQ(expected, value->GetDouble()) << doc;
				ASSERT_TRUE(point <= digits || text.find('e') != std::string::npos || digits >= 19) << doc;
			}
			else if (value->GetType() == KV3_TYPE_INT)
				ASSERT_EQ(std::strtoll(number.c_str(), nullptr, 10), value->GetInt64()) << doc;
			else
			{
				ASSERT_EQ(KV3_TYPE_UINT, value->GetType()) << doc;
				ASSERT_EQ(std::strtoull(number.c_str(), nullptr, 10), value->GetUInt64()) << doc;
			}
		}
	}
	// The edges of the integer kinds.
	CKeyValues3Context context;
	KeyValues3 *root = Parse(context, WithHeader("[ 2147483647, 2147483648, -2147483648, -2147483649, 9223372036854775807, -9223372036854775808, 9223372036854775808, 18446744073709551615, 18446744073709551616, 00000000000000000000000042 ]"));
	EXPECT_EQ(KV3_SUBTYPE_INT32, ArrayElement(root, 0)->GetSubType());
	EXPECT_EQ(KV3_SUBTYPE_INT64, ArrayElement(root, 1)->GetSubType());
	EXPECT_EQ(KV3_SUBTYPE_INT32, ArrayElement(root, 2)->GetSubType());
	EXPECT_EQ(KV3_SUBTYPE_INT64, ArrayElement(root, 3)->GetSubType());
	EXPECT_EQ(INT64_MIN, ArrayElement(root, 5)->GetInt64());
	EXPECT_EQ(9223372036854775808ull, ArrayElement(root, 6)->GetUInt64());
	EXPECT_EQ(KV3_TYPE_DOUBLE, ArrayElement(root, 8)->GetType()); // beyond 64 bits
	EXPECT_EQ(18446744073709551616.0, ArrayElement(root, 8)->GetDouble());
	EXPECT_EQ(42, ArrayElement(root, 9)->GetInt64());
}

TEST(KV3Text, SingleQuotesAndMultiLineStrings)
{
	CKeyValues3Context context;
	KeyValues3 *root = Parse(context, WithHeader("{\n"
												 "\ta = 'say \"hi\"'\n"
												 "\tb = \"\"\"\nfirst\r\n  second \\\"\"\" still inside\nlast\n\"\"\"\n"
												 "\tc = \"\"\"\r\ncrlf\r\n\"\"\"\n"
												 "\td = \"tab\\there\\nnew \\\\ \\/ \\'\"\n"
												 "}"));
	EXPECT_STREQ("say \"hi\"", GetMemberString(root, "a"));
	EXPECT_STREQ("first\r\n  second \"\"\" still inside\nlast", GetMemberString(root, "b"));
	EXPECT_STREQ("crlf", GetMemberString(root, "c"));
	EXPECT_STREQ("tab\there\nnew \\ / '", GetMemberString(root, "d"));
}

TEST(KV3Text, ErrorsNameTheFileLineAndColumn)
{
	CUtlString error;
	KV3ParseError_t detail = ParseError(WithHeader("{\n\ta = \"no end\n}\n"), &error);
	EXPECT_EQ("Newline in string literal", detail.message);
	EXPECT_EQ(3, detail.line);
	EXPECT_EQ(13, detail.column);
	EXPECT_EQ("test.kv3(3,13): Newline in string literal", error);

	detail = ParseError(WithHeader("{\n  a = 1 /* open\n comment\n"));
	EXPECT_EQ("No closing */ before end of file", detail.message);
	EXPECT_EQ(3, detail.line);
	EXPECT_EQ(9, detail.column);

	// Columns count characters, not bytes.
	detail = ParseError(WithHeader("{ \xC3\xA9t\xC3\xA9 = 1 }"));
	EXPECT_EQ(2, detail.line);
	EXPECT_EQ(3, detail.column);
}

TEST(KV3Text, RejectsMalformedDocumentsWithClearMessages)
{
	struct Case_t
	{
		std::string text;
		const char *message;
	};
	const Case_t cases[] = {
		{ "{ a = 1 ", "no closing '}'" },
		{ "{ a = [ 1, 2 }", "Expected ',' or ']'" },
		{ "{ a = 1, b = 2 }", "not separated by commas" },
		{ "{ a 1 }", "Expected '='" },
		{ "{ a = 1 a = 2 }", "Duplicate member 'a'" },
		{ "{ A = 1 b = 2 a = 3 }", "Duplicate member 'a'" },
		{ "{ a = tru }", "Unexpected word 'tru'" },
		{ "{ a = 12abc }", "Invalid number '12abc'" },
		{ "{ a = - }", "Invalid number" },
		{ "{ a = 1e999 }", "Number out of range" },
		{ "{ a = \"bad \\q escape\" }", "Unknown escape sequence '\\q'" },
		{ "{ a = \"\xC3\x28\" }", "Invalid UTF-8" },
		{ "{ a = \"\xED\xA0\x80\" }", "Invalid UTF-8" }, // an encoded surrogate
		{ std::string("{ a = \"x\0y\" }", 13), "NUL byte" },
		{ std::string("{ a = 1 }\0", 10), "NUL byte" },
		{ "{ a = #[ 0g ] }", "hexadecimal" },
		{ "", "Empty document" },
		{ "{ } }", "Unexpected text after" },
		{ "{ a = \"open", "not closed" },
		{ "{ a = ? }", "Unexpected character '?'" },
	};
	for (const Case_t &c : cases)
	{
		CUtlString error;
		KV3ParseError_t detail = ParseError(WithHeader(c.text), &error);
		EXPECT_NE(std::string::npos, detail.message.find(c.message)) << c.text << " -> " << error;
		EXPECT_GE(detail.line, 1) << c.text;
		EXPECT_GE(detail.column, 1) << c.text;
	}
	CUtlString error;
	EXPECT_NE(std::string::npos, ParseError("{ }", &error).message.find("Missing the KV3 header"));
	EXPECT_NE(std::string::npos, ParseError("<!-- kv3 encoding:binary:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n{}").message.find("Unsupported encoding 'binary'"));
	EXPECT_NE(std::string::npos, ParseError("<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977} format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n{}").message.find("Malformed KV3 header"));
}

TEST(KV3Text, FormatIsCheckedUnlessGenericIsExpected)
{
	const KV3ID_t modeldoc = { "modeldoc32", { 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16 } };
	CUtlBuffer buffer(CUtlBuffer::TEXT_BUFFER);
	CKeyValues3Context source;
	SetMemberString(source.Root(), "rootNode", "x");
	ASSERT_TRUE(SaveKV3(KV3_ENCODING_TEXT, modeldoc, source.Root(), nullptr, &buffer));
	EXPECT_NE(std::string::npos, std::string(buffer.View()).find("format:modeldoc32:version{04030201-0605-0807-090a-0b0c0d0e0f10}"));

	CKeyValues3Context a, b, c;
	CUtlString error;
	EXPECT_TRUE(LoadKV3(&a, &error, &buffer, modeldoc));
	EXPECT_TRUE(LoadKV3(&b, &error, &buffer, KV3_FORMAT_GENERIC));
	const KV3ID_t other = { "vmat", { 0 } };
	EXPECT_FALSE(LoadKV3(&c, &error, &buffer, other));
	EXPECT_NE(std::string::npos, error.find("format is 'modeldoc32'; expected 'vmat'"));
}

TEST(KV3Text, TextWithoutHeader)
{
	CKeyValues3Context context;
	CUtlString error;
	ASSERT_TRUE(LoadKV3Text_NoHeader(context.Root(), &error, "[ 1, 2 ]", KV3_FORMAT_GENERIC));
	EXPECT_EQ(2u, ArrayLength(context.Root()));
	// The header line is no value.
	EXPECT_FALSE(LoadKV3Text_NoHeader(context.Root(), &error, WithHeader("{}"), KV3_FORMAT_GENERIC));
	EXPECT_EQ(2u, ArrayLength(context.Root())); // a failed load leaves the value as it was
}

TEST(KV3Text, NestingIsLimitedWithoutExhaustingTheStack)
{
	auto nested = [](int depth) {
		std::string text;
		for (int i = 0; i < depth; ++i)
			text += (i % 2) ? "[ " : "{ a = ";
		for (int i = depth - 1; i >= 0; --i)
			text += (i % 2) ? " ]" : " }";
		return text;
	};
	CKeyValues3Context context;
	CUtlString error;
	EXPECT_TRUE(LoadKV3Text_NoHeader(context.Root(), &error, nested(KV3_MAX_NESTING), KV3_FORMAT_GENERIC)) << error;
	KV3ParseError_t detail;
	EXPECT_FALSE(LoadKV3Text_NoHeader(context.Root(), &error, nested(KV3_MAX_NESTING + 1), KV3_FORMAT_GENERIC, nullptr, &detail));
	EXPECT_NE(std::string::npos, detail.message.find("Nesting deeper than 512"));
	// A hostile file a thousand times deeper than that.
	std::string deep(1000000, '[');
	EXPECT_FALSE(LoadKV3Text_NoHeader(context.Root(), &error, deep, KV3_FORMAT_GENERIC));

	// What the parser takes, the writer writes; deeper values are refused, not lost silently.
	std::string written = Save(context.Root());
	CKeyValues3Context deepest;
	KeyValues3 *v = deepest.Root();
	for (int i = 0; i < KV3_MAX_NESTING + 5; ++i)
		v = v->ArrayAppend();
	CUtlBuffer buffer(CUtlBuffer::TEXT_BUFFER);
	EXPECT_FALSE(SaveKV3(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC, deepest.Root(), &error, &buffer));
	EXPECT_NE(std::string::npos, error.find("nested deeper than 512"));
	CKeyValues3Context reread;
	EXPECT_TRUE(LoadKV3(&reread, &error, &buffer, KV3_FORMAT_GENERIC)) << error; // still a readable text
}

TEST(KV3Text, EveryTruncationOfADocumentFailsCleanly)
{
	CKeyValues3Context source;
	KeyValues3 *root = Parse(source, WithHeader(R"({
	name = "value"
	multi = """
text
"""
	list = [ 1, 2.5, { k = 'v' } ]
	blob = #[ 01 02 ]
	/* c */ end = true
})"));
	const std::string text = Save(root);
	for (size_t length = 0; length < text.size(); ++length)
	{
		CKeyValues3Context context;
		CUtlString error;
		const bool ok = LoadKV3(context.Root(), &error, std::string_view(text.data(), length), KV3_FORMAT_GENERIC);
		// Only the text missing just its final line end is still complete.
		EXPECT_EQ(length == text.size() - 1, ok) << length << ": " << error;
		EXPECT_EQ(ok, error.empty()) << length;
	}
}

TEST(KV3Text, WriterLayoutIsStable)
{
	CKeyValues3Context context;
	KeyValues3 *root = context.Root();
	SetMemberString(root, "name", "a \"quoted\"\tline\n");
	SetMemberInt(root, "count", 3);
	const float floats[3] = { 1.0f, 0.5f, -2.0f };
	SetFloats(AddMember(root, "offset"), 3, floats);
	KeyValues3 *list = AddMember(root, "models");
	SetMemberString(list->ArrayAppend(), "id", "m1");
	AddMember(root, "empty")->MakeTable();
	AddMember(root, "none")->MakeArray();
	SetMemberBool(root, "odd key!", true);
	const std::string expected = std::string(kHeader) + "\n"
														"{\n"
														"\tname = \"a \\\"quoted\\\"\\tline\\n\"\n"
														"\tcount = 3\n"
														"\toffset = [ 1.0, 0.5, -2.0 ]\n"
														"\tmodels =\n"
														"\t[\n"
														"\t\t{\n"
														"\t\t\tid = \"m1\"\n"
														"\t\t},\n"
														"\t]\n"
														"\tempty = {}\n"
														"\tnone = []\n"
														"\t\"odd key!\" = true\n"
														"}\n";
	EXPECT_EQ(expected, Save(root));
}

TEST(KV3Text, WriterRefusesWhatTextCannotHoldButStillWritesTheRest)
{
	CKeyValues3Context context;
	KeyValues3 *root = context.Root();
	SetMemberString(root, "before", "kept");
	AddMember(root, "pointer")->SetPointer(root);
	SetMemberString(root, "badutf8", "\xC3");
	SetMemberString(root, "after", "kept too");
	CUtlBuffer buffer(CUtlBuffer::TEXT_BUFFER);
	CUtlString error;
	EXPECT_FALSE(SaveKV3(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC, root, &error, &buffer));
	EXPECT_EQ("A pointer value cannot be written as text", error);
	CKeyValues3Context reread;
	ASSERT_TRUE(LoadKV3(&reread, &error, &buffer, KV3_FORMAT_GENERIC)) << error;
	EXPECT_STREQ("kept too", GetMemberString(reread.Root(), "after"));
	EXPECT_EQ(KV3_TYPE_NULL, FindMember(reread.Root(), "badutf8")->GetType());

	const KV3ID_t binary = { "binary", { 9 } };
	EXPECT_FALSE(SaveKV3(binary, KV3_FORMAT_GENERIC, root, &error, &buffer));
	EXPECT_NE(std::string::npos, error.find("unsupported encoding 'binary'"));
}

namespace
{
// A random document of every kind of value.
void Generate(std::mt19937 &rng, KeyValues3 *value, int depth)
{
	std::uniform_int_distribution<int> kind(0, depth > 6 ? 6 : 9);
	auto text = [&](int maxLength) {
		std::string s;
		const int length = std::uniform_int_distribution<int>(0, maxLength)(rng);
		const char *pieces[] = { "a", "Z", " ", "\"", "\\", "\n", "\t", "\r", "'", "\xC3\xA9", "\xE6\x9D\xB1", "/*", "//", "\"\"\"", "{", "]" };
		for (int i = 0; i < length; ++i)
			s += pieces[std::uniform_int_distribution<int>(0, 15)(rng)];
		return s;
	};
	switch (kind(rng))
	{
	case 0:
		value->SetToNull();
		break;
	case 1:
		value->SetBool(rng() & 1);
		break;
	case 2:
		value->SetInt((int64)((uint64)rng() << 32 | rng()));
		break;
	case 3:
		value->SetUInt((uint64)rng() << 33 | rng());
		break;
	case 4:
	{
		const double specials[] = { 0.0, -0.0, 0.1, 1e300, -1e-300, 5e-324, NAN, HUGE_VAL, -HUGE_VAL, 3.0 };
		value->SetDouble((rng() & 1) ? specials[rng() % 10] : std::uniform_real_distribution<double>(-1e6, 1e6)(rng));
		break;
	}
	case 5:
		value->SetString(text(12));
		break;
	case 6:
	{
		std::string bytes = text(10);
		value->SetBinaryBlob(bytes.data(), (uint32)bytes.size());
		break;
	}
	case 7:
	case 8:
	{
		value->MakeArray();
		const int count = std::uniform_int_distribution<int>(0, 5)(rng);
		for (int i = 0; i < count; ++i)
			Generate(rng, value->ArrayAppend(), depth + 1);
		break;
	}
	default:
	{
		value->MakeTable();
		const int count = std::uniform_int_distribution<int>(0, 6)(rng);
		for (int i = 0; i < count; ++i)
			Generate(rng, AddMember(value, (rng() & 1) ? V_Format("m%d", i) : text(6) + V_Format("%d", i)), depth + 1);
		break;
	}
	}
}
} // namespace

TEST(KV3Text, WriteThenReadGivesAnEqualDocument)
{
	std::mt19937 rng(20261122);
	for (int round = 0; round < 300; ++round)
	{
		CKeyValues3Context source;
		Generate(rng, source.Root(), 0);
		const std::string text = Save(source.Root());
		CKeyValues3Context reread;
		CUtlString error;
		ASSERT_TRUE(LoadKV3(reread.Root(), &error, text, KV3_FORMAT_GENERIC)) << error << "\n" << text;
		ASSERT_TRUE(KV3ValuesEqual(source.Root(), reread.Root())) << text;
		// Writing again gives the same text.
		ASSERT_EQ(text, Save(reread.Root()));
	}
}

TEST(KV3Text, LargeStringsAndFilesThroughTheFileSystem)
{
	CTempDirectory directory;
	const std::string path = directory.Path("doc.kv3");

	CKeyValues3Context source;
	SetMemberString(source.Root(), "huge", std::string(8 << 20, 'x'));
	CUtlBuffer buffer(CUtlBuffer::TEXT_BUFFER);
	ASSERT_TRUE(SaveKV3(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC, source.Root(), nullptr, &buffer));
	ASSERT_TRUE(Plat_WriteFileAtomic(path.c_str(), buffer.Base(), buffer.Size()));

	CKeyValues3Context loaded;
	CUtlString error;
	ASSERT_TRUE(LoadKV3FromFile(&loaded, &error, path.c_str(), nullptr, KV3_FORMAT_GENERIC)) << error;
	EXPECT_EQ(8u << 20, FindMember(loaded.Root(), "huge")->GetStringLength());
	// A named search path needs the tool's file system.
	EXPECT_FALSE(LoadKV3FromFile(&loaded, &error, path.c_str(), "GAME", KV3_FORMAT_GENERIC));
	EXPECT_NE(std::string::npos, error.find("\"GAME\""));
	EXPECT_FALSE(LoadKV3FromFile(&loaded, &error, directory.Path("missing.kv3").c_str(), "", KV3_FORMAT_GENERIC));
	EXPECT_NE(std::string::npos, error.find("missing.kv3: cannot open file"));
	// The failed loads left the document alone.
	EXPECT_EQ(8u << 20, FindMember(loaded.Root(), "huge")->GetStringLength());
}
