#include <gtest/gtest.h>

#include "datamodel/dmelement.h"

TEST(DmElement, NameIsTheFirstAttributeAndAlwaysAString)
{
	CDmxDocument doc;
	CDmElement *pElement = doc.CreateElement("DmeModel", "body");
	ASSERT_NE(pElement, nullptr);
	EXPECT_EQ(pElement->GetTypeName(), "DmeModel");
	EXPECT_EQ(pElement->GetName(), "body");
	ASSERT_EQ(pElement->AttributeCount(), 1);
	EXPECT_EQ(pElement->GetAttribute(0)->GetName(), "name");
	EXPECT_EQ(pElement->GetAttribute(0)->GetType(), AT_STRING);

	EXPECT_FALSE(pElement->SetValue("name", 5));
	EXPECT_EQ(pElement->AddAttribute("name", AT_INT), nullptr);
	EXPECT_FALSE(pElement->RemoveAttribute("name"));
	EXPECT_FALSE(pElement->RenameAttribute("name", "other"));
	EXPECT_FALSE(pElement->GetAttribute(0)->SetVariant(CDmAttribute::Value_t(int32(3))));
	EXPECT_EQ(pElement->GetName(), "body");
	pElement->SetName("renamed");
	EXPECT_STREQ(pElement->GetString("name"), "renamed");
}

TEST(DmElement, AttributesKeepTheirOrder)
{
	CDmxDocument doc;
	CDmElement *pElement = doc.CreateElement("DmElement");
	pElement->SetValue("z", 1);
	pElement->SetValue("a", 2.0f);
	pElement->SetValue("m", "text");
	ASSERT_EQ(pElement->AttributeCount(), 4);
	EXPECT_EQ(pElement->GetAttribute(1)->GetName(), "z");
	EXPECT_EQ(pElement->GetAttribute(2)->GetName(), "a");
	EXPECT_EQ(pElement->GetAttribute(3)->GetName(), "m");
	EXPECT_TRUE(pElement->RemoveAttribute("a"));
	ASSERT_EQ(pElement->AttributeCount(), 3);
	EXPECT_EQ(pElement->GetAttribute(2)->GetName(), "m");
	EXPECT_TRUE(pElement->RenameAttribute("z", "zz"));
	EXPECT_EQ(pElement->GetAttribute(1)->GetName(), "zz");
	EXPECT_EQ(pElement->GetInt("zz"), 1);
	EXPECT_FALSE(pElement->RenameAttribute("zz", "m")); // taken
	EXPECT_EQ(pElement->GetAttribute(5), nullptr);
	EXPECT_EQ(pElement->GetAttribute(-1), nullptr);
}

TEST(DmElement, WrongTypesReadAsDefaultsAndRefuseWrites)
{
	CDmxDocument doc;
	CDmElement *pElement = doc.CreateElement("DmElement");
	pElement->SetValue("count", 7);
	EXPECT_EQ(pElement->GetValue<float>("count"), 0.0f);
	EXPECT_EQ(pElement->GetFloat("count", 2.5f), 2.5f);
	EXPECT_EQ(pElement->GetValue<CUtlString>("count"), "");
	EXPECT_EQ(pElement->GetElement("count"), nullptr);
	EXPECT_TRUE(pElement->GetArray<int32>("count").empty());
	EXPECT_EQ(pElement->GetArrayForEdit<int32>("count", true), nullptr);
	EXPECT_EQ(pElement->GetValue<Quaternion>("missing"), Quaternion(0, 0, 0, 1));
	EXPECT_EQ(pElement->GetValue<VMatrix>("missing"), VMatrix());
	EXPECT_FALSE(pElement->SetValue("count", 1.5f));
	EXPECT_FALSE(pElement->SetArray<int32>("count", { 1, 2 }));
	EXPECT_EQ(pElement->GetInt("count"), 7);
	EXPECT_EQ(pElement->AddAttribute("count", AT_FLOAT), nullptr);
	EXPECT_EQ(pElement->AddAttribute("count", AT_INT), pElement->FindAttribute("count"));
	EXPECT_EQ(pElement->AddAttribute("bad", AT_UNKNOWN), nullptr);
	EXPECT_EQ(pElement->AddAttribute("bad", (DmAttributeType_t)200), nullptr);

	const CDmAttribute *pAttribute = pElement->FindAttribute("count");
	EXPECT_EQ(pAttribute->GetPtr<float>(), nullptr);
	EXPECT_EQ(pAttribute->GetArrayPtr<int32>(), nullptr);
	EXPECT_EQ(pAttribute->ArrayCount(), 0u);
}

TEST(DmElement, ArraysGrowInPlace)
{
	CDmxDocument doc;
	CDmElement *pElement = doc.CreateElement("DmeVertexData");
	EXPECT_EQ(pElement->GetArrayForEdit<Vector>("position$0"), nullptr);
	std::vector<Vector> *pPositions = pElement->GetArrayForEdit<Vector>("position$0", true);
	ASSERT_NE(pPositions, nullptr);
	pPositions->push_back(Vector(1, 2, 3));
	pPositions->push_back(Vector(4, 5, 6));
	EXPECT_EQ(pElement->GetArray<Vector>("position$0").size(), 2u);
	EXPECT_EQ(pElement->FindAttribute("position$0")->ArrayCount(), 2u);
	EXPECT_EQ(pElement->FindAttribute("position$0")->GetType(), AT_VECTOR3_ARRAY);
	EXPECT_STREQ(pElement->FindAttribute("position$0")->GetTypeName(), "vector3_array");
}

TEST(DmElement, ReferencesStayInsideTheirDocument)
{
	CDmxDocument doc, other;
	CDmElement *pA = doc.CreateElement("DmElement", "a");
	CDmElement *pB = doc.CreateElement("DmElement", "b");
	CDmElement *pForeign = other.CreateElement("DmElement", "foreign");
	EXPECT_TRUE(pA->SetValue("b", pB));
	EXPECT_TRUE(pB->SetValue("a", pA)); // cycle
	EXPECT_FALSE(pA->SetValue("foreign", pForeign));
	EXPECT_FALSE(pA->SetArray<CDmElement *>("list", { pB, pForeign }));
	EXPECT_TRUE(pA->GetArray<CDmElement *>("list").empty());
	EXPECT_FALSE(doc.SetRoot(pForeign));
	EXPECT_TRUE(doc.SetRoot(pA));
	EXPECT_EQ(pA->GetElement("b")->GetElement("a"), pA);
}

TEST(DmElement, IdsAreUniqueAndReadBack)
{
	CDmxDocument doc;
	CDmElement *pA = doc.CreateElement("DmElement");
	CDmElement *pB = doc.CreateElement("DmElement");
	EXPECT_FALSE(pA->GetId() == pB->GetId());
	EXPECT_FALSE(pA->GetId().IsNull());
	EXPECT_EQ(doc.FindElement(pB->GetId()), pB);

	const CUtlString text = pA->GetId().Text();
	ASSERT_EQ(text.size(), 36u);
	EXPECT_EQ(text[14], '4'); // version 4
	DmElementId_t parsed;
	ASSERT_TRUE(DmElementId_t::Parse(text, parsed));
	EXPECT_TRUE(parsed == pA->GetId());
	ASSERT_TRUE(DmElementId_t::Parse("{" + text + "}", parsed));
	EXPECT_TRUE(parsed == pA->GetId());
	EXPECT_FALSE(DmElementId_t::Parse("0123", parsed));
	EXPECT_FALSE(DmElementId_t::Parse("g0000000-0000-0000-0000-000000000000", parsed));
	EXPECT_FALSE(DmElementId_t::Parse("00000000_0000-0000-0000-000000000000", parsed));

	ASSERT_TRUE(DmElementId_t::Parse("00112233-4455-6677-8899-aabbccddeeff", parsed));
	EXPECT_EQ(parsed.m_Bytes[0], 0x00);
	EXPECT_EQ(parsed.m_Bytes[15], 0xff);
	EXPECT_EQ(doc.CreateElement("DmElement", "same id", &pA->GetId()), nullptr);
	EXPECT_FALSE(doc.SetElementId(pB, pA->GetId()));
	EXPECT_TRUE(doc.SetElementId(pB, parsed));
	EXPECT_EQ(doc.FindElement(parsed), pB);
}

TEST(DmElement, ReachableElementsInFirstReferenceOrder)
{
	CDmxDocument doc;
	CDmElement *pRoot = doc.CreateElement("DmElement", "root");
	CDmElement *pA = doc.CreateElement("DmElement", "a");
	CDmElement *pB = doc.CreateElement("DmElement", "b");
	CDmElement *pC = doc.CreateElement("DmElement", "c");
	doc.CreateElement("DmElement", "unreachable");
	pRoot->SetArray<CDmElement *>("list", { pA, pB, pA });
	pA->SetValue("c", pC);
	pC->SetValue("root", pRoot);
	const std::vector<CDmElement *> order = CDmxDocument::CollectReachable(pRoot);
	ASSERT_EQ(order.size(), 4u);
	EXPECT_EQ(order[0], pRoot);
	EXPECT_EQ(order[1], pA);
	EXPECT_EQ(order[2], pC);
	EXPECT_EQ(order[3], pB);

	// A long chain does not need the call stack.
	CDmElement *pPrevious = pRoot;
	for (int i = 0; i < 200000; ++i)
	{
		CDmElement *pNext = doc.CreateElement("DmElement");
		pPrevious->SetValue("next", pNext);
		pPrevious = pNext;
	}
	EXPECT_EQ(CDmxDocument::CollectReachable(pRoot).size(), 200000u + 4u);
}

TEST(DmElement, TypeNamesAndTimes)
{
	EXPECT_STREQ(DmAttributeTypeName(AT_QUATERNION_ARRAY), "quaternion_array");
	EXPECT_STREQ(DmAttributeTypeName((DmAttributeType_t)99), "unknown");
	for (int type = AT_FIRST_VALUE_TYPE; type < AT_TYPE_COUNT; ++type)
		EXPECT_EQ(DmAttributeTypeFromName(DmAttributeTypeName((DmAttributeType_t)type)), type);
	EXPECT_EQ(DmAttributeTypeFromName("Int"), AT_UNKNOWN);
	EXPECT_EQ(DmArrayType(AT_TIME), AT_TIME_ARRAY);
	EXPECT_EQ(DmScalarType(AT_TIME_ARRAY), AT_TIME);
	EXPECT_EQ(DmArrayType(AT_TIME_ARRAY), AT_UNKNOWN);
	EXPECT_EQ(DmeTime_t::FromSeconds(1.5).m_tms, 15000);
	EXPECT_EQ(DmeTime_t::FromSeconds(-1.25).m_tms, -12500);
	EXPECT_EQ(DmeTime_t::FromSeconds(1e9).m_tms, INT32_MAX);
	EXPECT_DOUBLE_EQ(DmeTime_t(25).Seconds(), 0.0025);
}

TEST(DmxDocument, ClearFreesEverything)
{
	CDmxDocument doc;
	CDmElement *pRoot = doc.CreateElement("DmElement", "root");
	pRoot->SetValue("self", pRoot);
	doc.SetRoot(pRoot);
	doc.SetFormat("model", 2);
	doc.Clear();
	EXPECT_EQ(doc.ElementCount(), 0);
	EXPECT_EQ(doc.GetRoot(), nullptr);
	EXPECT_TRUE(doc.GetFormatName().empty());
}
