#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "core/fileio.h"
#include "core/keyvalues.h"
#include "testsupport/test_support.h"
#include "core/keyvalues3.h"
#include "core/strtools.h"

namespace
{
KV1LoadOptions_t Options(KV1EscapeBehavior_t escapes, KV1ConditionBehavior_t conditions)
{
	KV1LoadOptions_t options;
	options.escapes = escapes;
	options.conditions = conditions;
	return options;
}

bool Load(KeyValues &kv, const std::string &text, const KV1LoadOptions_t &options = KV1LoadOptions_t())
{
	CUtlString error;
	const bool ok = kv.LoadFromBuffer("test.txt", text.data(), text.size(), nullptr, nullptr, options, &error);
	EXPECT_TRUE(ok) << error;
	return ok;
}

// Expects the load to fail; checks that the message and the detail agree.
KV1ParseError_t LoadError(const std::string &text, const KV1LoadOptions_t &options = KV1LoadOptions_t())
{
	KeyValues kv("untouched");
	CUtlString error;
	KV1ParseError_t detail;
	EXPECT_FALSE(kv.LoadFromBuffer("test.txt", text.data(), text.size(), nullptr, nullptr, options, &error, &detail));
	EXPECT_EQ(V_Format("%s(%d,%d): %s", detail.file.c_str(), detail.line, detail.column, detail.message.c_str()), error);
	EXPECT_STREQ("untouched", kv.GetName());
	EXPECT_EQ(nullptr, kv.GetFirstSubKey());
	return detail;
}

std::string Save(const KeyValues &kv)
{
	CUtlBuffer buffer(CUtlBuffer::TEXT_BUFFER);
	kv.SaveToBuffer(buffer);
	return std::string(buffer.View());
}

// Same names (exact case), types, values, conditions and subkeys in the same order.
::testing::AssertionResult TreesEqual(const KeyValues *a, const KeyValues *b)
{
	if (strcmp(a->GetName(), b->GetName()) != 0 || a->GetDataType() != b->GetDataType() ||
		strcmp(a->GetCondition(), b->GetCondition()) != 0)
		return ::testing::AssertionFailure() << "node '" << a->GetName() << "' differs from '" << b->GetName() << "'";
	if (a->GetDataType() != KeyValues::TYPE_NONE)
	{
		const std::string va = const_cast<KeyValues *>(a)->GetString(), vb = const_cast<KeyValues *>(b)->GetString();
		if (va != vb)
			return ::testing::AssertionFailure() << "'" << a->GetName() << "': '" << va << "' vs '" << vb << "'";
	}
	const KeyValues *x = a->GetFirstSubKey(), *y = b->GetFirstSubKey();
	for (; x && y; x = x->GetNextKey(), y = y->GetNextKey())
	{
		::testing::AssertionResult sub = TreesEqual(x, y);
		if (!sub)
			return sub;
	}
	if (x || y)
		return ::testing::AssertionFailure() << "'" << a->GetName() << "' has a different number of subkeys";
	return ::testing::AssertionSuccess();
}

std::string Names(const KeyValues *first, KeyValues *(KeyValues::*next)() const)
{
	std::string out;
	for (const KeyValues *kv = first; kv; kv = (kv->*next)())
		out += std::string(out.empty() ? "" : ",") + kv->GetName();
	return out;
}

std::string Values(KeyValues *first)
{
	std::string out;
	for (KeyValues *kv = first; kv; kv = kv->GetNextKey())
		out += std::string(out.empty() ? "" : ",") + kv->GetString();
	return out;
}
} // namespace

TEST(KeyValuesTree, LookupIgnoresCaseAndFollowsPaths)
{
	KeyValues kv("root");
	kv.SetString("Hero/Stats/Armor", "3");
	kv.SetString("a/b", "exact names win over paths");
	kv.FindKey("Hero", true)->SetString("Name", "axe");
	EXPECT_STREQ("3", kv.GetString("hero/STATS/armor"));
	EXPECT_STREQ("axe", kv.FindKey("HERO")->GetString("name"));
	EXPECT_EQ(nullptr, kv.FindKey("hero/missing"));
	EXPECT_EQ(&kv, kv.FindKey(""));
	EXPECT_EQ(3, kv.GetInt("Hero//Stats/Armor"));

	KeyValues *slashName = kv.AddKey("x/y");
	slashName->SetString(nullptr, "literal");
	kv.SetString("x", "plain");
	EXPECT_STREQ("literal", kv.GetString("x/y"));
	EXPECT_STREQ("fallback", kv.GetString("x/z", "fallback"));
}

TEST(KeyValuesTree, DuplicatesKeepOrderAndIterationSeparatesBlocksFromValues)
{
	KeyValues kv("");
	ASSERT_TRUE(Load(kv, "root { item a  block1 { } item b  Item { x y }  item \"\" last z }"));
	EXPECT_EQ("item,block1,item,Item,item,last", Names(kv.GetFirstSubKey(), &KeyValues::GetNextKey));
	EXPECT_EQ("block1,Item", Names(kv.GetFirstTrueSubKey(), &KeyValues::GetNextTrueSubKey));
	EXPECT_EQ("item,item,item,last", Names(kv.GetFirstValue(), &KeyValues::GetNextValue));
	EXPECT_STREQ("a", kv.GetString("ITEM"));
	EXPECT_EQ(KeyValues::TYPE_STRING, kv.GetDataType("last"));
	EXPECT_EQ(KeyValues::TYPE_NONE, kv.GetDataType("block1"));

	EXPECT_TRUE(kv.FindAndDeleteSubKey("item"));
	EXPECT_STREQ("b", kv.GetString("item"));
	KeyValues *block = kv.FindKey("block1");
	kv.RemoveSubKey(block);
	EXPECT_EQ(nullptr, block->GetNextKey());
	EXPECT_EQ("item,Item,item,last", Names(kv.GetFirstSubKey(), &KeyValues::GetNextKey));
	kv.AddSubKey(block);
	EXPECT_EQ("item,Item,item,last,block1", Names(kv.GetFirstSubKey(), &KeyValues::GetNextKey));
}

TEST(KeyValuesTree, NumbersParseFromTextAndKeepTheirText)
{
	KeyValues kv("");
	ASSERT_TRUE(Load(kv, "n { i 12  neg \" -7 apples\"  f 1.5  word hello  big 18446744073709551615  t TRUE  z 0 }"));
	EXPECT_EQ(12, kv.GetInt("i"));
	EXPECT_EQ(-7, kv.GetInt("neg"));
	EXPECT_FLOAT_EQ(1.5f, kv.GetFloat("f"));
	EXPECT_EQ(1, kv.GetInt("f"));
	EXPECT_EQ(0, kv.GetInt("word", 5));
	EXPECT_EQ(18446744073709551615ull, kv.GetUint64("big"));
	EXPECT_TRUE(kv.GetBool("t"));
	EXPECT_FALSE(kv.GetBool("z", true));
	EXPECT_EQ(9, kv.GetInt("missing", 9));
	EXPECT_FLOAT_EQ(2.5f, kv.GetFloat(nullptr, 2.5f)); // a block gives the default

	kv.SetInt("count", 42);
	kv.SetFloat("ratio", 0.1f);
	kv.SetUint64("id", 1ull << 40);
	EXPECT_STREQ("42", kv.GetString("count"));
	EXPECT_EQ(KeyValues::TYPE_INT, kv.GetDataType("count"));
	EXPECT_EQ(0.1f, strtof(kv.GetString("ratio"), nullptr));
	EXPECT_STREQ("1099511627776", kv.GetString("id"));
	kv.SetInt("count", -3); // the cached text follows the new value
	EXPECT_STREQ("-3", kv.GetString("count"));

	kv.SetString("big", nullptr);
	EXPECT_STREQ("", kv.GetString("big", "default"));
	EXPECT_FALSE(kv.IsEmpty("big"));
	EXPECT_TRUE(kv.IsEmpty("missing"));
}

TEST(KeyValuesTree, ValuesAndBlocksReplaceEachOther)
{
	KeyValues kv("root");
	kv.FindKey("block", true)->SetString("inner", "1");
	kv.SetString("block", "now a value");
	EXPECT_EQ(nullptr, kv.FindKey("block")->GetFirstSubKey());
	kv.FindKey("block")->AddKey("child");
	EXPECT_EQ(KeyValues::TYPE_NONE, kv.GetDataType("block"));
	EXPECT_STREQ("-", kv.GetString("block", "-"));

	KeyValues list("list");
	EXPECT_STREQ("1", list.CreateNewKey()->GetName());
	list.AddKey("7");
	list.AddKey("name");
	EXPECT_STREQ("8", list.CreateNewKey()->GetName());
	list.Clear();
	EXPECT_EQ(nullptr, list.GetFirstSubKey());
	EXPECT_TRUE(list.IsEmpty());
}

TEST(KeyValuesTree, DeepTreesCopyAndDestroyWithoutExhaustingTheStack)
{
	// Far deeper than the reader allows: only code builds such trees.
	const int depth = 200000;
	KeyValues *root = new KeyValues("root");
	KeyValues *node = root;
	for (int i = 0; i < depth; ++i)
		node = node->AddKey("n");
	node->SetString("leaf", "bottom");
	KeyValues *copy = root->MakeCopy();
	int count = 0;
	for (const KeyValues *p = copy; p->GetFirstSubKey(); p = p->GetFirstSubKey())
		++count;
	EXPECT_EQ(depth + 1, count);
	root->MergeFrom(copy, KeyValues::MERGE_KV_UPDATE);
	delete root;
	delete copy;
}

TEST(KeyValuesTree, CopiesAreDeepAndMayTargetTheSource)
{
	KeyValues kv("");
	ASSERT_TRUE(Load(kv, "r { a 1 b { c 2 } }"));
	KeyValues *copy = kv.MakeCopy();
	EXPECT_TRUE(TreesEqual(&kv, copy));
	copy->SetString("b/c", "changed");
	EXPECT_STREQ("2", kv.GetString("b/c"));
	delete copy;

	kv.CopySubkeys(kv.FindKey("b")); // into its own subkey
	EXPECT_EQ("c,a,b", Names(kv.FindKey("b")->GetFirstSubKey(), &KeyValues::GetNextKey));
	EXPECT_STREQ("2", kv.GetString("b/b/c"));
}

TEST(KeyValuesMerge, UpdateReplacesTheKeysOfARepeatedHeroAndAppendsNewOnes)
{
	KeyValues main(""), staging("");
	ASSERT_TRUE(Load(main, "DOTAHeroes\n{\n"
						   "  npc_dota_hero_axe { Model axe.mdl ArmorPhysical 1 Abilities { Ability axe_1 Ability axe_2 } }\n"
						   "  npc_dota_hero_bane { Model bane.mdl }\n"
						   "}\n"));
	ASSERT_TRUE(Load(staging, "DOTAHeroes\n{\n"
							  "  NPC_DOTA_HERO_AXE { armorphysical 3 Abilities { Ability axe_1 Ability axe_new } MovementSpeed 310 }\n"
							  "  npc_dota_hero_new { Model new.mdl }\n"
							  "}\n"));
	main.MergeFrom(&staging, KeyValues::MERGE_KV_UPDATE);
	KeyValues *axe = main.FindKey("npc_dota_hero_axe");
	ASSERT_NE(nullptr, axe);
	EXPECT_EQ("Model,ArmorPhysical,Abilities,MovementSpeed", Names(axe->GetFirstSubKey(), &KeyValues::GetNextKey));
	EXPECT_EQ(3, axe->GetInt("ArmorPhysical"));
	EXPECT_STREQ("axe.mdl", axe->GetString("Model"));
	EXPECT_EQ("axe_1,axe_new", Values(axe->FindKey("Abilities")->GetFirstSubKey()));
	EXPECT_EQ("npc_dota_hero_axe,npc_dota_hero_bane,npc_dota_hero_new", Names(main.GetFirstSubKey(), &KeyValues::GetNextKey));
	EXPECT_STREQ("bane.mdl", main.GetString("npc_dota_hero_bane/Model"));
}

TEST(KeyValuesMerge, DeltaOnlyFillsGapsAndAllAppendsEverything)
{
	KeyValues here(""), other("");
	ASSERT_TRUE(Load(here, "r { a 1 b { x 1 } c { } }"));
	ASSERT_TRUE(Load(other, "r { a 2 b { x 2 y 2 } c value d 4 }"));
	KeyValues delta("");
	ASSERT_TRUE(Load(delta, "r { a 1 b { x 1 } c { } }"));
	delta.MergeFrom(&other, KeyValues::MERGE_KV_DELTA);
	EXPECT_STREQ("1", delta.GetString("a"));
	EXPECT_STREQ("1", delta.GetString("b/x"));
	EXPECT_STREQ("2", delta.GetString("b/y"));
	EXPECT_EQ(KeyValues::TYPE_NONE, delta.GetDataType("c"));
	EXPECT_STREQ("4", delta.GetString("d"));

	here.MergeFrom(&other, KeyValues::MERGE_KV_ALL);
	EXPECT_EQ("a,b,c,a,b,c,d", Names(here.GetFirstSubKey(), &KeyValues::GetNextKey));

	KeyValues update("");
	ASSERT_TRUE(Load(update, "r { a 1 b { x 1 } c { k v } }"));
	update.MergeFrom(&other, KeyValues::MERGE_KV_UPDATE);
	EXPECT_STREQ("value", update.GetString("c")); // a value replaces a block
	EXPECT_EQ("x,y", Names(update.FindKey("b")->GetFirstSubKey(), &KeyValues::GetNextKey));
	EXPECT_EQ("2,2", Values(update.FindKey("b")->GetFirstSubKey()));
	KeyValues blockOverValue("");
	ASSERT_TRUE(Load(blockOverValue, "r { b { z 1 } }"));
	update.MergeFrom(&blockOverValue, KeyValues::MERGE_KV_UPDATE);
	KeyValues valueHere("");
	ASSERT_TRUE(Load(valueHere, "r { c { k v } }"));
	update.MergeFrom(&valueHere, KeyValues::MERGE_KV_UPDATE); // and a block replaces a value
	EXPECT_EQ(KeyValues::TYPE_NONE, update.GetDataType("c"));
	EXPECT_STREQ("v", update.GetString("c/k"));

	KeyValues self("");
	ASSERT_TRUE(Load(self, "r { a 1 b { a 2 } }"));
	self.MergeFrom(self.FindKey("b"), KeyValues::MERGE_KV_UPDATE);
	EXPECT_STREQ("2", self.GetString("a"));
	self.MergeFrom(&self, KeyValues::MERGE_KV_ALL);
	EXPECT_EQ("a,b,a,b", Names(self.GetFirstSubKey(), &KeyValues::GetNextKey));
}

TEST(KeyValuesMerge, RepeatedNamesPairByOccurrenceAtAnySize)
{
	for (int extra : { 0, 100 }) // small levels are scanned, large ones indexed
	{
		std::string a = "r { item 1 item 2 ", b = "r { ITEM x ";
		for (int i = 0; i < extra; ++i)
			a += "k" + std::to_string(i) + " v ";
		b += "item y item z }";
		a += "}";
		KeyValues dest(""), source("");
		ASSERT_TRUE(Load(dest, a));
		ASSERT_TRUE(Load(source, b));
		dest.MergeFrom(&source, KeyValues::MERGE_KV_UPDATE);
		std::string items;
		for (KeyValues *k = dest.GetFirstSubKey(); k; k = k->GetNextKey())
		{
			if (V_StrEqualNoCase(k->GetName(), "item"))
				items += k->GetString();
		}
		EXPECT_EQ("xyz", items) << extra;
	}
}

TEST(KeyValuesText, ReadsQuotedAndBareTokensCommentsAndPeers)
{
	KeyValues kv("old");
	ASSERT_TRUE(Load(kv, "\xEF\xBB\xBF// header comment\n"
						 "\"first root\" // after a name\n"
						 "{\n"
						 "\tpath models/heroes/axe.mdl // a comment after a bare value\n"
						 "\t\"spaced key\"\t\"two words\"\"glued\" \"next\"\n"
						 "\t\"multi\" \"line one\nline two\"\n"
						 "}\n"
						 "second { k v }\n"
						 "third value\n"));
	EXPECT_STREQ("first root", kv.GetName());
	EXPECT_STREQ("models/heroes/axe.mdl", kv.GetString("path"));
	EXPECT_STREQ("two words", kv.GetString("spaced key"));
	EXPECT_STREQ("next", kv.GetString("glued"));
	EXPECT_STREQ("line one\nline two", kv.GetString("multi"));
	ASSERT_NE(nullptr, kv.GetNextKey());
	EXPECT_STREQ("v", kv.GetNextKey()->GetString("k"));
	EXPECT_STREQ("value", kv.GetNextKey()->GetNextKey()->GetString());

	// A second load replaces the peers of the first.
	ASSERT_TRUE(Load(kv, "only { }"));
	EXPECT_STREQ("only", kv.GetName());
	EXPECT_EQ(nullptr, kv.GetNextKey());
	EXPECT_EQ("\"only\"\n{\n}\n", Save(kv));
}

TEST(KeyValuesText, EscapesAreProcessedOrLeftAlone)
{
	const std::string text = "r { path \"models\\heroes\\x.mdl\" q \"say \\\"hi\\\"\" nl \"a\\nb\\tc\" bs \"c:\\\\dir\" }";
	KeyValues kv("");
	ASSERT_TRUE(Load(kv, text));
	EXPECT_STREQ("models\\heroes\\x.mdl", kv.GetString("path"));
	EXPECT_STREQ("say \"hi\"", kv.GetString("q"));
	EXPECT_STREQ("a\nb\tc", kv.GetString("nl"));
	EXPECT_STREQ("c:\\dir", kv.GetString("bs"));

	KeyValues raw("");
	ASSERT_TRUE(Load(raw, "r { path \"C:\\games\\mintyard\\\" nl \"a\\nb\" }", Options(KV1_ESCAPES_NONE, KV1_CONDITIONS_EVALUATE)));
	EXPECT_STREQ("C:\\games\\mintyard\\", raw.GetString("path"));
	EXPECT_STREQ("a\\nb", raw.GetString("nl"));
	// The writer escapes, so the raw values read back unchanged with escapes processed.
	KeyValues again("");
	ASSERT_TRUE(Load(again, Save(raw)));
	EXPECT_TRUE(TreesEqual(&raw, &again));
}

TEST(KeyValuesText, ConditionsAreEvaluatedOrKeptAndWrittenBack)
{
	const std::string text = "r\n{\n"
							 "\tlinux 1 [$LINUX]\n"
							 "\twin 1 [$WIN32]\n"
							 "\tnotx 1 [!$X360 && $POSIX]\n"
							 "\tgrouped 1 [ ($WIN32 || $OSX) || !($LINUX && !$POSIX) ]\n"
							 "\tnone 1 [$WIN32 && ($LINUX || $POSIX)]\n"
							 "\twinblock [$WINDOWS] { inner 1 }\n"
							 "\tlinuxblock [$linux] { inner 2 dropped 3 [!$LINUX] }\n"
							 "}\n";
	KeyValues evaluated("");
	ASSERT_TRUE(Load(evaluated, text));
	EXPECT_EQ("linux,notx,grouped,linuxblock", Names(evaluated.GetFirstSubKey(), &KeyValues::GetNextKey));
	EXPECT_EQ("inner", Names(evaluated.FindKey("linuxblock")->GetFirstSubKey(), &KeyValues::GetNextKey));
	EXPECT_STREQ("", evaluated.FindKey("linux")->GetCondition());

	KeyValues kept("");
	ASSERT_TRUE(Load(kept, text, Options(KV1_ESCAPES_PROCESS, KV1_CONDITIONS_KEEP)));
	EXPECT_EQ("linux,win,notx,grouped,none,winblock,linuxblock", Names(kept.GetFirstSubKey(), &KeyValues::GetNextKey));
	EXPECT_STREQ("!$X360 && $POSIX", kept.FindKey("notx")->GetCondition());
	EXPECT_STREQ("($WIN32 || $OSX) || !($LINUX && !$POSIX)", kept.FindKey("grouped")->GetCondition());
	const std::string written = Save(kept);
	EXPECT_NE(std::string::npos, written.find("\t\"win\"\t\t\"1\" [$WIN32]\n")) << written;
	EXPECT_NE(std::string::npos, written.find("\t\"winblock\" [$WINDOWS]\n\t{\n")) << written;
	KeyValues reread("");
	ASSERT_TRUE(Load(reread, written, Options(KV1_ESCAPES_PROCESS, KV1_CONDITIONS_KEEP)));
	EXPECT_TRUE(TreesEqual(&kept, &reread));
}

TEST(KeyValuesText, BadConditionsAreErrorsInBothModes)
{
	for (auto mode : { KV1_CONDITIONS_EVALUATE, KV1_CONDITIONS_KEEP })
	{
		const KV1LoadOptions_t options = Options(KV1_ESCAPES_PROCESS, mode);
		KV1ParseError_t e = LoadError("r {\n  a 1 [$WIN32 & $X]\n}", options);
		EXPECT_EQ(2, e.line);
		EXPECT_EQ(15, e.column) << e.message;
		e = LoadError("r {\n  a 1 [$WIN32\n}", options);
		EXPECT_EQ(7, e.column) << e.message;
		e = LoadError("r {\n  a 1 [($X]\n}", options);
		EXPECT_EQ(8, e.column) << e.message;
		e = LoadError("r {\n  a 1 [WIN32]\n}", options);
		EXPECT_EQ(8, e.column) << e.message;
		e = LoadError("r {\n  b [$X] c\n}", options);
		EXPECT_EQ(10, e.column) << e.message;
		e = LoadError("r {\n  a 1 [" + std::string(100000, '(') + "$X]\n}", options); // bounded, not a crash
		EXPECT_NE(std::string::npos, e.message.find("parentheses")) << e.message;
	}
}

TEST(KeyValuesText, WriterFormatAndRoundTrip)
{
	KeyValues kv("root");
	kv.SetString("key", "value");
	kv.FindKey("block", true)->SetString("inner", "1");
	kv.FindKey("block", true)->AddKey("empty");
	EXPECT_EQ("\"root\"\n{\n\t\"key\"\t\t\"value\"\n\t\"block\"\n\t{\n\t\t\"inner\"\t\t\"1\"\n\t\t\"empty\"\n\t\t{\n\t\t}\n\t}\n}\n",
		Save(kv));

	KeyValues tricky("");
	ASSERT_TRUE(Load(tricky, "\"\" { \"#base\" \"x\" \"q\\\"\" \"tab\\there\" \"\" \"\" \"uni\" \"é€😀\" cr \"a\rb\" "
							 "\"back\\\\\" \"\\\\\" e { } dup 1 dup 2 \"{\" \"}\" \"//\" \"[$WIN32]\" }\n"
							 "peer \"value\"\n"
							 "\"#include\" \"not a directive when quoted\"\n"));
	const std::string written = Save(tricky);
	KeyValues again("");
	ASSERT_TRUE(Load(again, written)) << written;
	const KeyValues *a = &tricky, *b = &again;
	for (; a && b; a = a->GetNextKey(), b = b->GetNextKey())
		EXPECT_TRUE(TreesEqual(a, b));
	EXPECT_TRUE(!a && !b);
	EXPECT_EQ(written, Save(again));
	// Tabs and line ends are written as escapes, so that every key stays on one line.
	KeyValues escaped("e");
	escaped.SetString("k", "a\nb\tc\\d\"e");
	EXPECT_EQ("\"e\"\n{\n\t\"k\"\t\t\"a\\nb\\tc\\\\d\\\"e\"\n}\n", Save(escaped));
	EXPECT_STREQ("not a directive when quoted", again.GetNextKey()->GetNextKey()->GetString());
}

TEST(KeyValuesText, ErrorsGiveLineAndColumn)
{
	KV1ParseError_t e = LoadError("\"root\"\n{\n\t\"a\" \"b\n}\n");
	EXPECT_EQ("test.txt", e.file);
	EXPECT_EQ(3, e.line);
	EXPECT_EQ(6, e.column);
	EXPECT_NE(std::string::npos, e.message.find("string")) << e.message;

	e = LoadError("\"root\"\n{\n\t\"a\" \"1\"\n");
	EXPECT_EQ(2, e.line);
	EXPECT_EQ(1, e.column);
	EXPECT_NE(std::string::npos, e.message.find("no closing '}'")) << e.message;

	e = LoadError("a { b c }\n }\n");
	EXPECT_EQ(2, e.line);
	EXPECT_EQ(2, e.column);
	EXPECT_NE(std::string::npos, e.message.find("Unexpected '}'")) << e.message;

	e = LoadError("root {\n\t\"key\"");
	EXPECT_EQ(2, e.line);
	EXPECT_EQ(7, e.column);
	EXPECT_NE(std::string::npos, e.message.find("\"key\" has no value")) << e.message;

	e = LoadError("r {\n  \"é€\" \"x\xff\"\n}");
	EXPECT_EQ(2, e.line);
	EXPECT_EQ(10, e.column); // characters, not bytes
	EXPECT_NE(std::string::npos, e.message.find("UTF-8")) << e.message;

	e = LoadError(std::string("a {\n b \"c\0\" }", 13));
	EXPECT_EQ(2, e.line);
	EXPECT_EQ(6, e.column);
	EXPECT_NE(std::string::npos, e.message.find("NUL")) << e.message;

	e = LoadError("r { a { b c"); // the innermost open block is named
	EXPECT_EQ(7, e.column);
	e = LoadError("r { { } }");
	EXPECT_EQ(5, e.column);
	e = LoadError("// only a comment\n");
	EXPECT_EQ(2, e.line);
	EXPECT_NE(std::string::npos, e.message.find("no key")) << e.message;
	e = LoadError("r { a [$LINUX] }");
	EXPECT_EQ(16, e.column);
	e = LoadError("\xFE\xFFr");
	EXPECT_NE(std::string::npos, e.message.find("big-endian")) << e.message;
}

TEST(KeyValuesText, NestingIsLimitedTo512Levels)
{
	std::string deep;
	for (int i = 0; i < 1000; ++i)
		deep += "a {\n";
	const KV1ParseError_t e = LoadError(deep);
	EXPECT_EQ(513, e.line);
	EXPECT_EQ(3, e.column);
	EXPECT_NE(std::string::npos, e.message.find("512")) << e.message;

	std::string limit;
	for (int i = 0; i < 512; ++i)
		limit += "a { ";
	limit += std::string(512, '}');
	KeyValues kv("");
	ASSERT_TRUE(Load(kv, limit));
	int depth = 1;
	for (const KeyValues *p = &kv; p->GetFirstSubKey(); p = p->GetFirstSubKey())
		++depth;
	EXPECT_EQ(512, depth);
}

TEST(KeyValuesText, FailedLoadLeavesTheNodeAsItWas)
{
	KeyValues kv("");
	ASSERT_TRUE(Load(kv, "keep { a 1 b { c 2 } }\npeer { x y }"));
	KeyValues *before = kv.MakeCopy();
	const std::string bad = "other { a 2 } second { unterminated \"";
	CUtlString error;
	EXPECT_FALSE(kv.LoadFromBuffer("bad.txt", bad.data(), bad.size(), nullptr, nullptr, KV1LoadOptions_t(), &error));
	EXPECT_EQ(0u, error.find("bad.txt(1,37): ")) << error;
	EXPECT_TRUE(TreesEqual(before, &kv));
	ASSERT_NE(nullptr, kv.GetNextKey());
	EXPECT_STREQ("peer", kv.GetNextKey()->GetName());
	delete before;
}

TEST(KeyValuesText, UTF16LittleEndianIsConverted)
{
	const std::u16string text = u"r\n{\n\t\"name\" \"caf\u00e9 \u20ac \U0001F600\"\n}\n";
	std::string bytes = "\xFF\xFE";
	for (char16_t unit : text)
	{
		bytes += (char)(unit & 0xFF);
		bytes += (char)(unit >> 8);
	}
	KeyValues kv("");
	ASSERT_TRUE(Load(kv, bytes));
	EXPECT_STREQ("caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80", kv.GetString("name"));

	std::string broken = "\xFF\xFE";
	for (char16_t unit : std::u16string(u"r {\n ab") + char16_t(0xD800) + u"x }")
	{
		broken += (char)(unit & 0xFF);
		broken += (char)(unit >> 8);
	}
	const KV1ParseError_t e = LoadError(broken);
	EXPECT_EQ(2, e.line);
	EXPECT_EQ(4, e.column);
	EXPECT_NE(std::string::npos, LoadError(bytes + "x").message.find("middle of a character"));
}

TEST(KeyValuesText, LargeBlocksLoadCompletely)
{
	// Loading speed is measured in build/bench/documents_bench; here, that nothing is lost.
	std::string text = "big\n{\n";
	const int count = 200000;
	for (int i = 0; i < count; ++i)
		text += "\t\"key" + std::to_string(i) + "\"\t\t\"value " + std::to_string(i) + "\"\n";
	text += "}\n";
	KeyValues kv("");
	ASSERT_TRUE(Load(kv, text));
	int loaded = 0;
	for (const KeyValues *k = kv.GetFirstSubKey(); k; k = k->GetNextKey())
		++loaded;
	EXPECT_EQ(count, loaded);
	EXPECT_STREQ("value 199999", kv.GetString("key199999"));
}

class KeyValuesFiles : public ::testing::Test
{
protected:
	std::string Write(const std::string &name, const std::string &text) { return m_Temp.Write(name, text); }
	CTempDirectory m_Temp;
	const std::string &m_Directory = m_Temp.Path();
};

TEST_F(KeyValuesFiles, IncludeInsertsKeysAndBaseFillsGaps)
{
	Write("scripts/heroes.txt", "#base \"heroes_base.txt\"\n"
								"Heroes { axe { armor 3 } }\n"
								"#include \"sub/extra.txt\"\n"
								"Last { x 1 }\n");
	Write("scripts/heroes_base.txt", "Heroes { axe { armor 1 speed 300 } bane { armor 2 } }\nBaseOnly { y 1 }\n");
	Write("scripts/sub/extra.txt", "Extra { z 1 }\n#include \"../shared.txt\"\n"); // beside the including file
	Write("scripts/shared.txt", "Shared { w 1 }\n");
	KeyValues kv("");
	CUtlString error;
	ASSERT_TRUE(kv.LoadFromFile(nullptr, (m_Directory + "/scripts/heroes.txt").c_str(), nullptr, KV1LoadOptions_t(), &error)) << error;
	std::string order;
	for (const KeyValues *k = &kv; k; k = k->GetNextKey())
		order += std::string(order.empty() ? "" : ",") + k->GetName();
	EXPECT_EQ("Heroes,Extra,Shared,Last,BaseOnly", order);
	EXPECT_EQ(3, kv.GetInt("axe/armor"));
	EXPECT_EQ(300, kv.GetInt("axe/speed"));
	EXPECT_EQ(2, kv.GetInt("bane/armor"));

	// Saving writes the peers too; the file written reads back the same.
	const std::string out = m_Directory + "/out.txt";
	ASSERT_TRUE(kv.SaveToFile(nullptr, out.c_str(), nullptr, &error)) << error;
	KeyValues again("");
	ASSERT_TRUE(again.LoadFromFile(nullptr, out.c_str(), nullptr, KV1LoadOptions_t(), &error)) << error;
	for (const KeyValues *a = &kv, *b = &again; a || b; a = a->GetNextKey(), b = b->GetNextKey())
	{
		ASSERT_TRUE(a && b);
		EXPECT_TRUE(TreesEqual(a, b));
	}
}

TEST_F(KeyValuesFiles, CyclesMissingFilesAndDepthAreErrorsInTheRightFile)
{
	const std::string a = Write("a.txt", "A { }\n#include \"b.txt\"\n");
	const std::string b = Write("b.txt", "B { }\n\n  #base \"./a.txt\"\n");
	KeyValues kv("kept");
	CUtlString error;
	KV1ParseError_t detail;
	EXPECT_FALSE(kv.LoadFromFile(nullptr, a.c_str(), nullptr, KV1LoadOptions_t(), &error, &detail));
	EXPECT_EQ(b, detail.file);
	EXPECT_EQ(3, detail.line);
	EXPECT_EQ(3, detail.column);
	EXPECT_NE(std::string::npos, error.find("cycle")) << error;
	EXPECT_STREQ("kept", kv.GetName());

	const std::string missing = Write("missing.txt", "M { }\n#include \"nowhere.txt\"\n");
	EXPECT_FALSE(kv.LoadFromFile(nullptr, missing.c_str(), nullptr, KV1LoadOptions_t(), &error, &detail));
	EXPECT_EQ(0u, error.find(missing + "(2,1): #include \"nowhere.txt\": ")) << error;
	EXPECT_NE(std::string::npos, error.find("cannot open file")) << error;

	// 16 levels of inclusion are allowed, 17 are not.
	for (int i = 0; i <= 17; ++i)
		Write("chain" + std::to_string(i) + ".txt", "K" + std::to_string(i) + " { }\n#include \"chain" + std::to_string(i + 1) + ".txt\"\n");
	Write("chain18.txt", "End { }\n");
	EXPECT_FALSE(kv.LoadFromFile(nullptr, (m_Directory + "/chain0.txt").c_str(), nullptr, KV1LoadOptions_t(), &error, &detail));
	EXPECT_NE(std::string::npos, error.find("16 levels")) << error;
	EXPECT_EQ(m_Directory + "/chain16.txt", detail.file);
	Write("chain17.txt", "K17 { }\n");
	EXPECT_TRUE(kv.LoadFromFile(nullptr, (m_Directory + "/chain1.txt").c_str(), nullptr, KV1LoadOptions_t(), &error)) << error;

	EXPECT_FALSE(kv.LoadFromFile(nullptr, (m_Directory + "/absent.txt").c_str(), nullptr, KV1LoadOptions_t(), &error, &detail));
	EXPECT_EQ(0, detail.line);
	EXPECT_EQ(0u, error.find(m_Directory + "/absent.txt: cannot open file")) << error;
	EXPECT_FALSE(kv.LoadFromFile(nullptr, a.c_str(), "GAME", KV1LoadOptions_t(), &error)); // the disk has no search paths
	EXPECT_NE(std::string::npos, error.find("GAME")) << error;
}

TEST(KeyValuesKV3, RepeatedNamesBecomeArraysOfOccurrences)
{
	CKeyValues3Context context;
	CUtlString error;
	const std::string text = "Root { name a  Item { x 1 }  item { x 2 }  ITEM plain  block { } }\nSecond { k v }\nSecond { k w }\n";
	ASSERT_TRUE(LoadKV3FromKV1Text(context.Root(), &error, text.data(), text.size(), "doc.txt")) << error;
	const KeyValues3 *root = context.Root();
	ASSERT_TRUE(root->IsTable());
	ASSERT_EQ(2u, root->GetMemberCount());
	const KeyValues3 *first = root->FindMember("Root");
	EXPECT_STREQ("a", GetMemberString(first, "name"));
	const KeyValues3 *items = first->FindMember("item");
	ASSERT_TRUE(items && items->IsArray());
	EXPECT_STREQ("Item", first->GetMemberName(1));
	ASSERT_EQ(3u, items->GetArrayCount());
	EXPECT_STREQ("1", GetMemberString(items->GetArrayElement(0), "x"));
	EXPECT_STREQ("2", GetMemberString(items->GetArrayElement(1), "x"));
	EXPECT_STREQ("plain", items->GetArrayElement(2)->GetString());
	EXPECT_TRUE(first->FindMember("block")->IsTable());
	EXPECT_EQ(0u, first->FindMember("block")->GetMemberCount());
	const KeyValues3 *second = root->FindMember("second");
	ASSERT_TRUE(second && second->IsArray());
	EXPECT_STREQ("w", GetMemberString(second->GetArrayElement(1), "k"));

	const std::string bad = "Root { a \"b }";
	EXPECT_FALSE(LoadKV3FromKV1Text(context.Root(), &error, bad.data(), bad.size(), "bad.txt"));
	EXPECT_EQ(0u, error.find("bad.txt(1,10): ")) << error;
	EXPECT_EQ(2u, context.Root()->GetMemberCount()); // unchanged

	const std::string raw = "Root { path \"a\\nb\" }";
	ASSERT_TRUE(LoadKV3FromKV1Text(context.Root(), &error, raw.data(), raw.size(), "raw.txt", KV1_ESCAPES_NONE)) << error;
	EXPECT_STREQ("a\\nb", GetMemberString(GetMember(context.Root(), "Root"), "path"));
	EXPECT_FALSE(LoadKV3FromKV1File(context.Root(), &error, "/nonexistent/kv1.txt", nullptr));
	EXPECT_NE(std::string::npos, error.find("cannot open file")) << error;
}
