#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "core/keyvalues3.h"
#include "core/kv3text.h"
#include "core/logging.h"
#include "core/strtools.h"
#include "testsupport/test_support.h"


TEST(KV3Values, KindNamesInOrderAndUnknownBeyond)
{
	const char *expected[] = { "invalid", "null", "bool", "int", "uint", "double", "string", "binary_blob", "array", "table" };
	for (int i = 0; i < 10; ++i)
		EXPECT_STREQ(expected[i], KV3TypeName(i));
	EXPECT_STREQ("<unknown>", KV3TypeName(10));
	EXPECT_STREQ("<unknown>", KV3TypeName(255));
}

TEST(KV3Values, ShortAndLongStringsReadTheSame)
{
	CKeyValues3Context context;
	KeyValues3 *root = context.Root();
	const char *texts[] = { "", "a", "1234567", "12345678", "a much longer string held in the arena" };
	for (const char *text : texts)
	{
		KeyValues3 *value = root->ArrayAppend();
		value->SetString(text);
		EXPECT_EQ(KV3_TYPE_STRING, value->GetType());
		EXPECT_EQ(KV3_SUBTYPE_STRING, value->GetSubType());
		EXPECT_STREQ(text, value->GetString());
		EXPECT_EQ(strlen(text), value->GetStringLength());
	}
	// A string may hold a zero byte; its length says so.
	KeyValues3 *withNul = root->ArrayAppend();
	withNul->SetString(std::string_view("a\0b", 3));
	EXPECT_EQ(3u, withNul->GetStringLength());
	EXPECT_EQ(std::string_view("a\0b", 3), withNul->GetStringView());
	// Replacing a long string with a short one and back.
	KeyValues3 *value = root->GetArrayElement(4);
	value->SetString("short");
	EXPECT_STREQ("short", value->GetString());
	value->SetString(std::string_view(value->GetString())); // from its own storage
	EXPECT_STREQ("short", value->GetString());
}

TEST(KV3Values, MemberLookupIgnoresCaseAndKeepsCreationOrder)
{
	CKeyValues3Context context;
	KeyValues3 *root = context.Root();
	SetMemberString(root, "Import_Name", "x");
	SetMemberInt(root, "b", 2);
	SetMemberBool(root, "A", true);
	ASSERT_NE(nullptr, FindMember(root, "import_name"));
	EXPECT_STREQ("x", GetMemberString(root, "IMPORT_NAME"));
	EXPECT_EQ(AddMember(root, "import_NAME"), FindMember(root, "Import_Name")); // no second member
	ASSERT_EQ(3u, root->GetMemberCount());
	EXPECT_STREQ("Import_Name", root->GetMemberName(0));
	EXPECT_STREQ("b", root->GetMemberName(1));
	EXPECT_STREQ("A", root->GetMemberName(2));
	EXPECT_EQ(KV3HashMemberName("import_name"), root->GetMemberNameHash(0));
	EXPECT_EQ(KV3_SUBTYPE_INT32, FindMember(root, "b")->GetSubType());
	EXPECT_EQ(KV3_SUBTYPE_BOOL8, FindMember(root, "a")->GetSubType());
}

TEST(KV3Values, PointersToMembersAndElementsSurviveGrowth)
{
	CKeyValues3Context context;
	KeyValues3 *root = context.Root();
	KeyValues3 *first = AddMember(root, "first");
	first->SetString("still here after many members");
	KeyValues3 *list = AddMember(root, "list");
	KeyValues3 *element = list->ArrayAppend();
	element->SetInt32(42);
	for (int i = 0; i < 5000; ++i)
	{
		SetMemberInt(root, V_Format("m%d", i), i);
		list->ArrayAppend()->SetInt32(i);
	}
	EXPECT_STREQ("still here after many members", first->GetString());
	EXPECT_EQ(42, element->GetInt64());
	EXPECT_EQ(first, FindMember(root, "first"));
	EXPECT_EQ(5001u, ArrayLength(list));
	EXPECT_EQ(4999, ArrayElement(list, 5000)->GetInt64());
	EXPECT_EQ(2499, FindMember(root, "m2499")->GetInt64());
	EXPECT_EQ(nullptr, ArrayElement(list, 5001));
}

TEST(KV3Values, RemovingAMemberKeepsTheOthersInOrder)
{
	CKeyValues3Context context;
	KeyValues3 *root = context.Root();
	for (int i = 0; i < 10; ++i)
		SetMemberInt(root, V_Format("m%d", i), i);
	EXPECT_TRUE(root->RemoveMember("M3"));
	EXPECT_FALSE(root->RemoveMember("m3"));
	EXPECT_TRUE(root->RemoveMember("m9"));
	SetMemberInt(root, "new", 100);
	std::vector<std::string> names;
	root->ForEachMember([&](std::string_view name, uint32, const KeyValues3 *) { names.emplace_back(name); });
	EXPECT_EQ((std::vector<std::string>{ "m0", "m1", "m2", "m4", "m5", "m6", "m7", "m8", "new" }), names);
	EXPECT_EQ(100, FindMember(root, "new")->GetInt64());
	EXPECT_EQ(8, FindMember(root, "m8")->GetInt64());
}

TEST(KV3Values, LargeTablesFindMembersThroughTheirIndex)
{
	CKeyValues3Context context;
	KeyValues3 *root = context.Root();
	for (int i = 0; i < 300; ++i)
		SetMemberInt(root, V_Format("Key%d", i), i);
	EXPECT_EQ(123, FindMember(root, "KEY123")->GetInt64()); // builds the index
	for (int i = 300; i < 700; ++i)						   // grows it
		SetMemberInt(root, V_Format("Key%d", i), i);
	for (int i = 0; i < 700; i += 7)
		ASSERT_EQ(i, FindMember(root, V_Format("key%d", i))->GetInt64()) << i;
	EXPECT_EQ(nullptr, FindMember(root, "key700"));
	// Removing moves members; lookups still find the right ones.
	EXPECT_TRUE(root->RemoveMember("key0"));
	EXPECT_EQ(nullptr, FindMember(root, "key0"));
	EXPECT_EQ(699, FindMember(root, "key699")->GetInt64());
	EXPECT_EQ(AddMember(root, "key1"), FindMember(root, "KEY1"));
	EXPECT_EQ(699u, root->GetMemberCount());
}

TEST(KV3Values, SharedNullIsImmutable)
{
	const KeyValues3 *null = KV3Null();
	EXPECT_EQ(KV3_TYPE_NULL, null->GetType());
	EXPECT_EQ(KV3_SUBTYPE_NULL, null->GetSubType());
	EXPECT_TRUE(null->IsImmutable());
	EXPECT_EQ(null, GetMember(nullptr, "x"));
	CCaptureLog log;
	KeyValues3 *writable = const_cast<KeyValues3 *>(null);
	writable->SetString("changed");
	writable->MakeTable();
	EXPECT_EQ(nullptr, AddMember(writable, "x"));
	EXPECT_EQ(KV3_TYPE_NULL, KV3Null()->GetType());
	EXPECT_NE(std::string::npos, log.m_Text.find("shared null"));
}

TEST(KV3Values, MemberReadersFollowTheirContracts)
{
	CKeyValues3Context context;
	KeyValues3 *root = context.Root();
	SetMemberInt(root, "number", 5);
	SetMemberString(root, "flag", "yes");
	// Absent: the default. Present but no string: "", not the default.
	EXPECT_STREQ("fallback", GetMemberString(root, "missing", "fallback"));
	EXPECT_STREQ("", GetMemberString(root, "number", "fallback"));
	EXPECT_STREQ("fallback", GetMemberString(FindMember(root, "number"), "x", "fallback"));
	EXPECT_TRUE(GetMemberBool(root, "flag", false));
	EXPECT_TRUE(GetMemberBool(root, "missing", true));
	EXPECT_FALSE(GetMemberBool(root, "missing", false));
	EXPECT_EQ(nullptr, FindMember(FindMember(root, "number"), "x"));
}

TEST(KV3Values, GetBoolByKind)
{
	CKeyValues3Context context(CKeyValues3Context::POOL);
	auto value = [&]() { return context.AllocValue(); };
	KeyValues3 *v = value();
	v->SetString("true");
	EXPECT_TRUE(GetBool(v));
	v->SetString("0");
	EXPECT_FALSE(GetBool(v));
	v->SetString("1");
	EXPECT_TRUE(GetBool(v));
	v->SetString("nonsense");
	EXPECT_FALSE(GetBool(v));
	v->SetInt(-3);
	EXPECT_TRUE(GetBool(v));
	v->SetUInt(0);
	EXPECT_FALSE(GetBool(v));
	v->SetPointer(v);
	EXPECT_FALSE(GetBool(v));
	v->SetDouble(0.9);
	EXPECT_FALSE(GetBool(v)); // truncated to 0
	v->SetDouble(-1.5);
	EXPECT_TRUE(GetBool(v));
	v->SetDouble(NAN);
	EXPECT_FALSE(GetBool(v));
	v->MakeTable();
	EXPECT_FALSE(GetBool(v));
	EXPECT_FALSE(GetBool(nullptr));
}

TEST(KV3Values, TextConversionsOfEveryKind)
{
	CKeyValues3Context context(CKeyValues3Context::POOL);
	KeyValues3 *v = context.AllocValue();
	CUtlString text;
	v->SetBool(false);
	EXPECT_TRUE(ReadString(v, text));
	EXPECT_EQ("false", text);
	v->SetInt(-9000000000LL);
	ReadString(v, text);
	EXPECT_EQ("-9000000000", text);
	v->SetUInt(18446744073709551615ull);
	ReadString(v, text);
	EXPECT_EQ("18446744073709551615", text);
	v->SetDouble(0.5);
	ReadString(v, text);
	EXPECT_EQ("0.5", text);
	v->SetDouble(1e20);
	ReadString(v, text);
	EXPECT_EQ("1e+20", text);
	v->SetPointer(&text);
	ReadString(v, text);
	EXPECT_EQ("<pointer>", text);
	v->SetBinaryBlob("abc", 3);
	ReadString(v, text);
	EXPECT_EQ("<binary blob: 3 bytes>", text);
	const float floats[4] = { 1.0f, 2.5f, -3.0f, 4.0f };
	SetFloats(v, 4, floats);
	ReadString(v, text);
	EXPECT_EQ("1 2.5 -3 4", text);
	v->ArrayAppend()->SetInt(5);
	ReadString(v, text);
	EXPECT_EQ("<array: 5 elements>", text);
	v->MakeArray(2);
	v->GetArrayElement(0)->SetInt(1);
	v->GetArrayElement(1)->SetString("x");
	ReadString(v, text);
	EXPECT_EQ("<array: 2 elements>", text);
	// Null and tables purge the text.
	text = "old";
	v->MakeTable();
	EXPECT_FALSE(ReadString(v, text));
	EXPECT_EQ("", text);
	text = "old";
	EXPECT_FALSE(ReadString(KV3Null(), text));
	EXPECT_EQ("", text);
}

TEST(KV3Values, ReadFloatsFromEachForm)
{
	CKeyValues3Context context(CKeyValues3Context::POOL);
	KeyValues3 *v = context.AllocValue();
	float out[3] = { 9, 9, 9 };
	ReadFloats(KV3Null(), 3, out);
	EXPECT_EQ(0.0f, out[0]);
	EXPECT_EQ(0.0f, out[2]);
	v->SetString("1.5 -2 3e1");
	ReadFloats(v, 3, out);
	EXPECT_FLOAT_EQ(1.5f, out[0]);
	EXPECT_FLOAT_EQ(-2.0f, out[1]);
	EXPECT_FLOAT_EQ(30.0f, out[2]);
	v->MakeArray(2);
	v->GetArrayElement(0)->SetInt(7);
	v->GetArrayElement(1)->SetDouble(0.25);
	ReadFloats(v, 3, out);
	EXPECT_FLOAT_EQ(7.0f, out[0]);
	EXPECT_FLOAT_EQ(0.25f, out[1]);
	EXPECT_EQ(0.0f, out[2]); // zero fill
	const float four[4] = { 1, 2, 3, 4 };
	SetFloats(v, 4, four);
	ReadFloats(v, 3, out); // only the first three
	EXPECT_FLOAT_EQ(3.0f, out[2]);
	EXPECT_EQ(KV3_SUBTYPE_FLOAT32, v->GetArrayElement(0)->GetSubType());
}

TEST(KV3Values, CopyValueIsDeepAndWorksAcrossAndWithinContexts)
{
	CKeyValues3Context source;
	KeyValues3 *root = source.Root();
	SetMemberString(root, "name", "a name long enough for the arena");
	KeyValues3 *list = AddMember(root, "list");
	list->ArrayAppend()->SetBinaryBlob("\x01\x02", 2);
	SetMemberBool(list->ArrayAppend(), "inner", true);

	CKeyValues3Context dest;
	CopyValue(dest.Root(), root);
	EXPECT_TRUE(KV3ValuesEqual(root, dest.Root()));
	SetMemberString(root, "name", "changed");
	EXPECT_STREQ("a name long enough for the arena", GetMemberString(dest.Root(), "name"));

	// Copying a table into one of its own members.
	KeyValues3 *self = AddMember(root, "self");
	CopyValue(self, root);
	EXPECT_EQ(3u, self->GetMemberCount());
	EXPECT_STREQ("changed", GetMemberString(self, "name"));
	EXPECT_EQ(KV3_TYPE_NULL, FindMember(self, "self")->GetType()); // the copy saw "self" as it was
}

TEST(KV3Values, OwnedValueKeepsACopyBeyondItsSource)
{
	CKV3OwnedValue owned;
	EXPECT_EQ(KV3Null(), owned.Get());
	{
		CKeyValues3Context context;
		SetMemberString(context.Root(), "event", "footstep_left_and_right");
		owned.Set(context.Root());
	}
	CKV3OwnedValue copy = owned;
	EXPECT_STREQ("footstep_left_and_right", GetMemberString(copy.Get(), "event"));
	owned.Clear();
	EXPECT_STREQ("footstep_left_and_right", GetMemberString(copy.Get(), "event"));
}

TEST(KV3ValuesDeathTest, RootOfAPoolContextIsFatal)
{
	EXPECT_EXIT(
		{
			CKeyValues3Context pool(CKeyValues3Context::POOL);
			pool.Root();
		},
		testing::ExitedWithCode(1), "FATAL: CKeyValues3Context::Root called on a pool context \\(no root available\\)");
}
