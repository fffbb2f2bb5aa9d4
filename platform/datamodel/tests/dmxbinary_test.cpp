#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "core/hashes.h"
#include "dmxtestutil.h"

using namespace dmxtest;

namespace
{
// Builds binary files byte by byte, as the module's README describes them.
class CBytes
{
public:
	CBytes &Text(const std::string &text)
	{
		m_Bytes += text;
		return *this;
	}
	CBytes &U8(uint8 v)
	{
		m_Bytes += (char)v;
		return *this;
	}
	CBytes &U32(uint32 v)
	{
		for (int i = 0; i < 4; ++i)
			m_Bytes += (char)((v >> (8 * i)) & 0xFF);
		return *this;
	}
	CBytes &F32(float f)
	{
		uint32 v;
		memcpy(&v, &f, 4);
		return U32(v);
	}
	// The string table: count, size in bytes, then each string's length and bytes.
	CBytes &Strings(const std::vector<std::string> &strings)
	{
		uint32 bytes = 0;
		for (const std::string &text : strings)
			bytes += 4 + (uint32)text.size();
		U32((uint32)strings.size()).U32(bytes);
		for (const std::string &text : strings)
			U32((uint32)text.size()).Text(text);
		return *this;
	}
	CBytes &Id(uint8 first)
	{
		for (int i = 0; i < 16; ++i)
			m_Bytes += (char)(first + i);
		return *this;
	}
	// Ends the file: the CRC-32 of everything after the header's NUL.
	std::string Finish(size_t bodyStart) const
	{
		std::string out = m_Bytes;
		const uint32 crc = CRC32_ProcessSingleBuffer(out.data() + bodyStart, out.size() - bodyStart);
		for (int i = 0; i < 4; ++i)
			out += (char)((crc >> (8 * i)) & 0xFF);
		return out;
	}
	size_t Size() const { return m_Bytes.size(); }

private:
	std::string m_Bytes;
};

const std::string kBinaryHeader = std::string("<!-- dmx encoding binary 1 format model 2 -->\n") + '\0';

// A small file: root "DmElement" named "r" with an int "v" = 5, a vector3_array "p" of two
// entries and an element "child" -> element 1, of type "DmeDag" with no attributes but its
// (empty) name.
CBytes SmallFileBody(uint32 elementCount = 2, uint32 arrayCount = 2)
{
	CBytes b;
	b.Text(kBinaryHeader);
	// String table, in the order of first use as our writer makes it.
	b.Strings({ "DmElement", "name", "v", "p", "child", "DmeDag" });
	// Element table.
	b.U32(elementCount);
	b.U32(0).Id(0x10);
	b.U32(5).Id(0x20);
	// Attributes of element 0.
	b.U32(4);
	b.U32(1).U8(AT_STRING).U32(1).Text("r");
	b.U32(2).U8(AT_INT).U32(5);
	b.U32(3).U8(AT_VECTOR3_ARRAY).U32(arrayCount).F32(1).F32(2).F32(3).F32(4).F32(5).F32(6);
	b.U32(4).U8(AT_ELEMENT).U32(1);
	// Attributes of element 1.
	b.U32(1);
	b.U32(1).U8(AT_STRING).U32(0);
	return b;
}

std::string LoadBinaryError(const std::string &bytes)
{
	CDmxDocument doc;
	CUtlString error;
	EXPECT_FALSE(LoadFromString(bytes, doc, &error, 0, "bad.dmx"));
	EXPECT_EQ(doc.ElementCount(), 0);
	return error;
}
} // namespace

TEST(DmxBinary, EveryTypeRoundTripsTextBinaryText)
{
	for (const char *textEncoding : { "keyvalues2", "keyvalues2_noids" })
	{
		SCOPED_TRACE(textEncoding);
		const bool bIds = strcmp(textEncoding, "keyvalues2") == 0;
		CDmxDocument original;
		BuildEveryType(original, bIds);
		const std::string text = SaveToString(original.GetRoot(), textEncoding);

		CDmxDocument fromText;
		CUtlString error;
		ASSERT_TRUE(LoadFromString(text, fromText, &error)) << error << "\n" << text;
		const std::string binary = SaveToString(fromText.GetRoot(), "binary");
		CDmxDocument fromBinary;
		ASSERT_TRUE(LoadFromString(binary, fromBinary, &error)) << error;
		EXPECT_EQ(fromBinary.GetEncodingName(), "binary");
		EXPECT_EQ(SaveToString(fromBinary.GetRoot(), textEncoding), text);

		if (bIds)
		{
			// Every value bit for bit, ids and shared elements included.
			CGraphComparer comparer(true);
			EXPECT_TRUE(comparer.Same(original.GetRoot(), fromBinary.GetRoot())) << comparer.m_Why;
		}
	}
}

TEST(DmxBinary, ValuesSurviveBitForBit)
{
	CDmxDocument doc;
	BuildEveryType(doc);
	CDmxDocument loaded;
	CUtlString error;
	ASSERT_TRUE(LoadFromString(SaveToString(doc.GetRoot(), "binary"), loaded, &error)) << error;
	const CDmElement *pRoot = loaded.GetRoot();
	EXPECT_EQ(pRoot->GetInt("int"), INT32_MIN);
	EXPECT_TRUE(std::signbit(pRoot->GetValue<Vector2D>("vector2").x));
	EXPECT_EQ(pRoot->GetValue<Vector2D>("vector2").y, 1e-40f);
	EXPECT_EQ(pRoot->GetValue<CUtlBinaryBlock>("binary").size(), 256u);
	EXPECT_EQ(pRoot->GetArray<bool>("bool_array"), (std::vector<bool> { true, false, true }));
	EXPECT_EQ(pRoot->GetArray<CUtlString>("string_array")[2], "]\"[");
	EXPECT_EQ(pRoot->GetArray<CDmElement *>("element_array")[1], nullptr);
}

TEST(DmxBinary, HandBuiltFileFollowsTheDocumentedLayout)
{
	const CBytes body = SmallFileBody();
	const std::string file = body.Finish(kBinaryHeader.size());
	CDmxDocument doc;
	CUtlString error;
	ASSERT_TRUE(LoadFromString(file, doc, &error)) << error;
	const CDmElement *pRoot = doc.GetRoot();
	EXPECT_EQ(pRoot->GetTypeName(), "DmElement");
	EXPECT_EQ(pRoot->GetName(), "r");
	EXPECT_EQ(pRoot->GetId().Text(), "10111213-1415-1617-1819-1a1b1c1d1e1f");
	EXPECT_EQ(pRoot->GetInt("v"), 5);
	EXPECT_EQ(pRoot->GetArray<Vector>("p"), (std::vector<Vector> { { 1, 2, 3 }, { 4, 5, 6 } }));
	ASSERT_NE(pRoot->GetElement("child"), nullptr);
	EXPECT_EQ(pRoot->GetElement("child")->GetTypeName(), "DmeDag");
	EXPECT_EQ(doc.GetFormatName(), "model");
	EXPECT_EQ(doc.GetFormatVersion(), 2);

	// And our writer writes the same bytes for the same document.
	EXPECT_EQ(SaveToString(pRoot, "binary", "model", 2), file);
}

TEST(DmxBinary, EveryTruncationIsRefusedWithItsOffset)
{
	CDmxDocument doc;
	BuildEveryType(doc);
	const std::string file = SaveToString(doc.GetRoot(), "binary");
	for (size_t length = 0; length < file.size(); ++length)
	{
		CDmxDocument loaded;
		CUtlString error;
		ASSERT_FALSE(LoadFromString(file.substr(0, length), loaded, &error, 0, "cut.dmx")) << length;
		if (length > kBinaryHeader.size())
			ASSERT_EQ(error.find("cut.dmx: offset "), 0u) << length << ": " << error;
		else
			ASSERT_EQ(error.find("cut.dmx"), 0u) << length << ": " << error;
	}
}

TEST(DmxBinary, DamageIsFound)
{
	CDmxDocument doc;
	BuildEveryType(doc);
	const std::string file = SaveToString(doc.GetRoot(), "binary");
	std::mt19937 random(1234);
	int refused = 0;
	for (int i = 0; i < 3000; ++i)
	{
		std::string damaged = file;
		const size_t at = kBinaryHeader.size() + random() % (file.size() - kBinaryHeader.size());
		const uint8 flip = (uint8)(1 + random() % 255);
		damaged[at] = (char)(damaged[at] ^ flip);
		CDmxDocument loaded;
		CUtlString error;
		ASSERT_FALSE(LoadFromString(damaged, loaded, &error, 0, "noisy.dmx")) << at;
		ASSERT_EQ(error.find("noisy.dmx: offset "), 0u) << error;
		++refused;
	}
	EXPECT_EQ(refused, 3000);

	// A changed byte of a value is caught by the checksum alone.
	std::string damaged = file;
	std::string run;
	for (int b = 0x40; b < 0x60; ++b)
		run += (char)b;
	const size_t at = damaged.find(run); // inside the "binary" attribute's 256 bytes
	ASSERT_NE(at, std::string::npos);
	damaged[at] = (char)(damaged[at] ^ 1);
	const std::string error = LoadBinaryError(damaged);
	EXPECT_NE(error.find("does not match"), std::string::npos) << error;
	EXPECT_NE(error.find("the file is damaged"), std::string::npos) << error;
}

TEST(DmxBinary, StructuralChecksBehindTheChecksum)
{
	// Noise with the checksum made right again: what the structure checks must catch.
	CDmxDocument doc;
	BuildEveryType(doc);
	const std::string file = SaveToString(doc.GetRoot(), "binary");
	const size_t body = kBinaryHeader.size();
	std::mt19937 random(99);
	int loaded = 0;
	for (int i = 0; i < 3000; ++i)
	{
		std::string damaged = file.substr(0, file.size() - 4);
		const int changes = 1 + (int)(random() % 4);
		for (int c = 0; c < changes; ++c)
		{
			const size_t at = body + random() % (damaged.size() - body);
			damaged[at] = (char)random();
		}
		CBytes fixed;
		fixed.Text(damaged);
		CDmxDocument doc2;
		CUtlString error;
		if (LoadFromString(fixed.Finish(body), doc2, &error, 0, "noisy.dmx"))
		{
			++loaded;
			// Whatever loads writes and reads back.
			CDmxDocument again;
			ASSERT_TRUE(LoadFromString(SaveToString(doc2.GetRoot(), "binary"), again, &error)) << error;
		}
		else
			ASSERT_EQ(error.find("noisy.dmx: offset "), 0u) << error;
	}
	EXPECT_LT(loaded, 3000);
}

TEST(DmxBinary, HugeCountsAreCheckedAgainstTheBytesLeft)
{
	const size_t body = kBinaryHeader.size();
	std::string error = LoadBinaryError(SmallFileBody(0xFFFFFFFFu).Finish(body));
	EXPECT_NE(error.find("4294967295 entries of at least 20 bytes cannot fit"), std::string::npos) << error;
	error = LoadBinaryError(SmallFileBody(2, 0x40000000u).Finish(body));
	EXPECT_NE(error.find("an array's count: 1073741824 entries of at least 12 bytes cannot fit"), std::string::npos) << error;

	CBytes strings;
	strings.Text(kBinaryHeader).U32(0x7FFFFFFF).U32(0x7FFFFFFF);
	error = LoadBinaryError(strings.Finish(body));
	EXPECT_NE(error.find("bad.dmx: offset 47: the string table's count"), std::string::npos) << error;

	CBytes strings2;
	strings2.Text(kBinaryHeader).U32(1).U32(0x7FFFFFFF).U32(3).Text("abc");
	error = LoadBinaryError(strings2.Finish(body));
	EXPECT_NE(error.find("the string table claims 2147483647 bytes"), std::string::npos) << error;
}

TEST(DmxBinary, BadReferencesTypesAndNames)
{
	const size_t body = kBinaryHeader.size();
	auto withAttribute = [&](const std::function<void(CBytes &)> &attribute)
	{
		CBytes b;
		b.Text(kBinaryHeader).Strings({ "DmElement", "name", "x" });
		b.U32(1).U32(0).Id(1);
		b.U32(1);
		attribute(b);
		return b.Finish(body);
	};
	EXPECT_NE(LoadBinaryError(withAttribute([](CBytes &b) { b.U32(2).U8(AT_ELEMENT).U32(7); })).find("a reference to element 7, of 1"), std::string::npos);
	EXPECT_NE(LoadBinaryError(withAttribute([](CBytes &b) { b.U32(2).U8(99).U32(0); })).find("has the type 99, which does not exist"), std::string::npos);
	EXPECT_NE(LoadBinaryError(withAttribute([](CBytes &b) { b.U32(9).U8(AT_INT).U32(0); })).find("string 9 does not exist"), std::string::npos);
	EXPECT_NE(LoadBinaryError(withAttribute([](CBytes &b) { b.U32(1).U8(AT_INT).U32(0); })).find("\"name\" of element 0 must be a string"), std::string::npos);
	EXPECT_NE(LoadBinaryError(withAttribute([](CBytes &b) { b.U32(2).U8(AT_BOOL).U8(2); })).find("a bool holds 2"), std::string::npos);

	CBytes twice;
	twice.Text(kBinaryHeader).Strings({ "DmElement", "name", "x" });
	twice.U32(1).U32(0).Id(1);
	twice.U32(2).U32(2).U8(AT_INT).U32(0).U32(2).U8(AT_INT).U32(1);
	EXPECT_NE(LoadBinaryError(twice.Finish(body)).find("the attribute \"x\" appears twice in element 0"), std::string::npos);

	CBytes sameId;
	sameId.Text(kBinaryHeader).Strings({ "DmElement" });
	sameId.U32(2).U32(0).Id(1).U32(0).Id(1).U32(0).U32(0);
	EXPECT_NE(LoadBinaryError(sameId.Finish(body)).find("has the id 01020304-0506-0708-090a-0b0c0d0e0f10 of an earlier element"), std::string::npos);

	std::string trailing = SmallFileBody().Finish(body) + "x";
	EXPECT_NE(LoadBinaryError(trailing).find("1 bytes follow the end of the data"), std::string::npos);

	std::string version = SmallFileBody().Finish(body);
	version.replace(version.find("binary 1"), 8, "binary 0");
	EXPECT_NE(LoadBinaryError(version).find("binary encoding version 0 is not read by this reader"), std::string::npos);
	std::string noNul = SmallFileBody().Finish(body);
	noNul.erase(body - 1, 1);
	EXPECT_NE(LoadBinaryError(noNul).find("not ended by a NUL byte"), std::string::npos);
}

TEST(DmxBinary, ElementsOfAnotherDocumentAreNotWritten)
{
	CDmxDocument doc, other;
	CDmElement *pRoot = doc.CreateElement("DmElement", "root");
	std::vector<CDmElement *> *pList = pRoot->GetArrayForEdit<CDmElement *>("list", true);
	pList->push_back(other.CreateElement("DmElement", "foreign"));
	for (const char *encoding : { "binary", "keyvalues2", "keyvalues2_noids" })
	{
		CUtlBuffer buffer;
		CUtlString error;
		EXPECT_FALSE(DmxSaveBuffer(buffer, pRoot, encoding, "dmx", 1, &error)) << encoding;
		EXPECT_NE(error.find("another document"), std::string::npos) << error;
	}
}
