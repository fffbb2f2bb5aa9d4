// Truncated, noisy and hostile files of each encoding: each is refused with a message (or, when
// what is left happens to be a file, loads), never crashes, and never allocates beyond what its
// size allows.
#include <gtest/gtest.h>

#include <random>

#include "dmxtestutil.h"

using namespace dmxtest;

namespace
{
// Loads; on failure the message must name the file and a position.
void LoadAnything(const std::string &bytes, const char *encoding)
{
	CDmxDocument doc;
	CUtlString error;
	if (LoadFromString(bytes, doc, &error, 0, "hostile.dmx"))
	{
		ASSERT_NE(doc.GetRoot(), nullptr);
		// Whatever loads writes and loads again in every encoding that can hold it.
		for (const char *again : { "binary", "keyvalues2" })
		{
			CDmxDocument reloaded;
			ASSERT_TRUE(LoadFromString(SaveToString(doc.GetRoot(), again), reloaded, &error)) << error;
		}
		return;
	}
	ASSERT_EQ(error.find("hostile.dmx"), 0u) << error;
	const bool bPosition = error.find("hostile.dmx(") == 0 || error.find("hostile.dmx: offset ") == 0;
	ASSERT_TRUE(bPosition) << encoding << ": " << error;
}
} // namespace

TEST(DmxHostile, TruncatedTextAtEveryLength)
{
	for (const char *encoding : { "keyvalues2", "keyvalues2_noids" })
	{
		CDmxDocument doc;
		BuildEveryType(doc, strcmp(encoding, "keyvalues2") == 0);
		const std::string text = SaveToString(doc.GetRoot(), encoding);
		int loaded = 0;
		for (size_t length = 0; length < text.size(); ++length)
		{
			CDmxDocument cut;
			CUtlString error;
			if (LoadFromString(text.substr(0, length), cut, &error, 0, "hostile.dmx"))
				++loaded;
			else
				ASSERT_EQ(error.find("hostile.dmx("), 0u) << length << ": " << error;
		}
		// Only the cut right before the final line end leaves a whole file.
		EXPECT_EQ(loaded, 1) << encoding;
	}
}

TEST(DmxHostile, NoisyFilesOfEachEncoding)
{
	std::mt19937 random(2024);
	for (const char *encoding : { "keyvalues2", "keyvalues2_noids", "binary" })
	{
		SCOPED_TRACE(encoding);
		CDmxDocument doc;
		BuildEveryType(doc, strcmp(encoding, "keyvalues2_noids") != 0);
		const std::string file = SaveToString(doc.GetRoot(), encoding);
		const size_t headerEnd = file.find('\n') + 1;
		static const char s_Specials[] = "{}[],\"\\/ \n0-9ef.x";
		for (int i = 0; i < 1500; ++i)
		{
			std::string noisy = file;
			const int changes = 1 + (int)(random() % 8);
			for (int c = 0; c < changes; ++c)
			{
				const size_t at = headerEnd + random() % (noisy.size() - headerEnd);
				switch (random() % 4)
				{
				case 0: noisy[at] = (char)random(); break;
				case 1: noisy[at] = s_Specials[random() % (sizeof(s_Specials) - 1)]; break;
				case 2: noisy.erase(at, 1 + random() % 16); break;
				default: noisy.insert(at, noisy.substr(random() % noisy.size(), 1 + random() % 32)); break;
				}
			}
			LoadAnything(noisy, encoding);
			if (HasFatalFailure())
				return;
		}
	}
}

TEST(DmxHostile, HostileShapes)
{
	const std::string kv2 = "<!-- dmx encoding keyvalues2 1 format dmx 1 -->\n";
	// Many attributes in one element: the duplicate check stays linear.
	std::string many = kv2 + "\"DmElement\" {\n";
	for (int i = 0; i < 100000; ++i)
		many += V_Format("\"a%d\" \"int\" \"%d\"\n", i, i);
	many += "}\n";
	CDmxDocument doc;
	CUtlString error;
	ASSERT_TRUE(LoadFromString(many, doc, &error)) << error;
	EXPECT_EQ(doc.GetRoot()->AttributeCount(), 100001);
	EXPECT_EQ(doc.GetRoot()->GetInt("a99999"), 99999);
	many.insert(many.size() - 2, "\"a5\" \"int\" \"0\"\n");
	EXPECT_FALSE(LoadFromString(many, doc, &error));
	EXPECT_NE(error.find("the attribute \"a5\" appears twice"), std::string::npos) << error;

	// The same through the binary encoding.
	ASSERT_TRUE(LoadFromString(many.substr(0, many.size() - 17) + "}\n", doc, &error)) << error;
	const std::string binary = SaveToString(doc.GetRoot(), "binary");
	CDmxDocument fromBinary;
	ASSERT_TRUE(LoadFromString(binary, fromBinary, &error)) << error;
	EXPECT_EQ(fromBinary.GetRoot()->AttributeCount(), 100001);

	// Many references to elements defined later, and comments everywhere.
	std::string forward = kv2 + "\"DmElement\" { \"list\" \"element_array\" [\n";
	for (int i = 0; i < 5000; ++i)
		forward += V_Format("\"element\" \"00000000-0000-0000-0000-%012d\", // entry\n", i % 100);
	forward += "] }\n";
	for (int i = 0; i < 100; ++i)
		forward += V_Format("\"E\" { \"id\" \"elementid\" \"00000000-0000-0000-0000-%012d\" }\n", i);
	ASSERT_TRUE(LoadFromString(forward, doc, &error)) << error;
	EXPECT_EQ(doc.GetRoot()->GetArray<CDmElement *>("list").size(), 5000u);
	EXPECT_EQ(doc.GetRoot()->GetArray<CDmElement *>("list")[4999]->GetId().Text(), "00000000-0000-0000-0000-000000000099");

	// Bytes that are no text at all.
	std::string junk = kv2;
	for (int i = 0; i < 4096; ++i)
		junk += (char)(i * 7919);
	EXPECT_FALSE(LoadFromString(junk, doc, &error));
	const std::string nuls = kv2 + std::string(100, '\0');
	EXPECT_FALSE(LoadFromString(nuls, doc, &error));
	EXPECT_EQ(error.find("test.dmx(2,"), 0u) << error;
}
