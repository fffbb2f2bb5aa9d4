#include <gtest/gtest.h>

#include "dmxtestutil.h"

using namespace dmxtest;

namespace
{
// A mesh as the exporters of the previous generation wrote it: stream names without "$".
std::string PreviousGenerationMesh(const char *format, int version)
{
	return V_Format("<!-- dmx encoding keyvalues2 1 format %s %d -->\n", format, version) +
		std::string("\"DmElement\"\n"
					"{\n"
					"\t\"model\" \"DmeModel\"\n"
					"\t{\n"
					"\t\t\"children\" \"element_array\"\n"
					"\t\t[\n"
					"\t\t\t\"DmeDag\"\n"
					"\t\t\t{\n"
					"\t\t\t\t\"shape\" \"DmeMesh\"\n"
					"\t\t\t\t{\n"
					"\t\t\t\t\t\"bindState\" \"DmeVertexData\"\n"
					"\t\t\t\t\t{\n"
					"\t\t\t\t\t\t\"vertexFormat\" \"string_array\" [ \"positions\", \"normals\", \"textureCoordinates\", \"jointWeights\", "
					"\"jointIndices\" ]\n"
					"\t\t\t\t\t\t\"jointCount\" \"int\" \"1\"\n"
					"\t\t\t\t\t\t\"positions\" \"vector3_array\" [ \"0 0 0\", \"1 0 0\", \"0 1 0\" ]\n"
					"\t\t\t\t\t\t\"positionsIndices\" \"int_array\" [ \"0\", \"1\", \"2\" ]\n"
					"\t\t\t\t\t\t\"Normals\" \"vector3_array\" [ \"0 0 1\" ]\n"
					"\t\t\t\t\t\t\"normalsIndices\" \"int_array\" [ \"0\", \"0\", \"0\" ]\n"
					"\t\t\t\t\t\t\"textureCoordinates\" \"vector2_array\" [ \"0 0\", \"1 0\", \"0 1\" ]\n"
					"\t\t\t\t\t\t\"textureCoordinatesIndices\" \"int_array\" [ \"0\", \"1\", \"2\" ]\n"
					"\t\t\t\t\t\t\"jointWeights\" \"float_array\" [ \"1\", \"1\", \"1\" ]\n"
					"\t\t\t\t\t\t\"jointIndices\" \"int_array\" [ \"0\", \"0\", \"0\" ]\n"
					"\t\t\t\t\t\t\"balance\" \"float_array\" [ ]\n"
					"\t\t\t\t\t\t\"wrinkle\" \"float_array\" [ ]\n"
					"\t\t\t\t\t\t\"speed\" \"float_array\" [ ]\n"
					"\t\t\t\t\t\t\"weight\" \"float_array\" [ ]\n"
					"\t\t\t\t\t\t\"tangents\" \"vector4_array\" [ ]\n"
					"\t\t\t\t\t\t\"colors\" \"color_array\" [ ]\n"
					"\t\t\t\t\t\t\"flipVCoordinates\" \"bool\" \"0\"\n"
					"\t\t\t\t\t}\n"
					"\t\t\t\t\t\"faceSets\" \"element_array\" [ ]\n"
					"\t\t\t\t}\n"
					"\t\t\t\t\"positions\" \"vector3_array\" [ ]\n"
					"\t\t\t}\n"
					"\t\t]\n"
					"\t}\n"
					"}\n");
}

const CDmElement *VertexData(const CDmxDocument &doc)
{
	const CDmElement *pModel = doc.GetRoot()->GetElement("model");
	const CDmElement *pDag = pModel->GetArray<CDmElement *>("children").at(0);
	return pDag->GetElement("shape")->GetElement("bindState");
}

std::vector<std::string> Names(const CDmElement *pElement)
{
	std::vector<std::string> names;
	for (int i = 1; i < pElement->AttributeCount(); ++i)
		names.push_back(pElement->GetAttribute(i)->GetName());
	return names;
}
} // namespace

TEST(DmxUpdater, PreviousGenerationNamesAreLifted)
{
	for (const char *format : { "model", "dmx" })
	{
		SCOPED_TRACE(format);
		CDmxDocument doc;
		CUtlString error;
		ASSERT_TRUE(LoadFromString(PreviousGenerationMesh(format, 1), doc, &error)) << error;
		EXPECT_EQ(doc.GetFormatVersion(), 2);
		EXPECT_EQ(DmxCurrentFormatVersion(format), 2);
		const CDmElement *pData = VertexData(doc);
		EXPECT_EQ(Names(pData), (std::vector<std::string> { "vertexFormat", "jointCount", "position$0", "position$0Indices", "normal$0",
									"normal$0Indices", "texcoord$0", "texcoord$0Indices", "blendweights$0", "blendindices$0", "balance$0", "wrinkle$0",
									"speed$0", "weight$0", "tangent$0", "color$0", "flipVCoordinates" }));
		EXPECT_EQ(pData->GetArray<CUtlString>("vertexFormat"),
			(std::vector<CUtlString> { "position$0", "normal$0", "texcoord$0", "blendweights$0", "blendindices$0" }));
		EXPECT_EQ(pData->GetArray<Vector>("position$0").size(), 3u);
		EXPECT_EQ(pData->GetArray<int32>("texcoord$0Indices"), (std::vector<int32> { 0, 1, 2 }));
		// Only vertex data is touched.
		const CDmElement *pDag = doc.GetRoot()->GetElement("model")->GetArray<CDmElement *>("children")[0];
		EXPECT_TRUE(pDag->HasAttribute("positions"));
	}
}

TEST(DmxUpdater, CurrentFilesAndOtherFormatsAreLeftAlone)
{
	for (auto [format, version] : { std::pair<const char *, int> { "model", 2 }, { "ztex", 1 }, { "animation", 1 } })
	{
		SCOPED_TRACE(format);
		CDmxDocument doc;
		CUtlString error;
		ASSERT_TRUE(LoadFromString(PreviousGenerationMesh(format, version), doc, &error)) << error;
		EXPECT_EQ(doc.GetFormatVersion(), version);
		EXPECT_TRUE(VertexData(doc)->HasAttribute("positions"));
	}
	CDmxDocument doc;
	CUtlString error;
	ASSERT_TRUE(LoadFromString(PreviousGenerationMesh("model", 1), doc, &error, DMX_LOAD_NO_FORMAT_UPDATE)) << error;
	EXPECT_EQ(doc.GetFormatVersion(), 1);
	EXPECT_TRUE(VertexData(doc)->HasAttribute("positions"));
	// The lift can be asked for whatever the version.
	EXPECT_EQ(DmxLiftVertexAttributeNames(doc), 14);
	EXPECT_TRUE(VertexData(doc)->HasAttribute("position$0"));
	EXPECT_EQ(DmxLiftVertexAttributeNames(doc), 0);
}

TEST(DmxUpdater, VertexFormatStopsAtTheFirstCurrentName)
{
	CDmxDocument doc;
	CDmElement *pRoot = doc.CreateElement("DmElement");
	doc.SetRoot(pRoot);
	CDmElement *pData = doc.CreateElement("DmeVertexData");
	pRoot->SetValue("data", pData);
	pData->SetArray<CUtlString>("vertexFormat", { "positions", "normal$0", "textureCoordinates" });
	pData->SetArray<Vector>("position$0", {});
	pData->SetArray<Vector>("positions", {}); // both names: the current one stays, the old one too
	pData->SetArray<int32>("jointWeightsIndices", {});
	pData->SetArray<int32>("somethingIndices", {});
	DmxLiftVertexAttributeNames(doc);
	EXPECT_EQ(pData->GetArray<CUtlString>("vertexFormat"), (std::vector<CUtlString> { "position$0", "normal$0", "textureCoordinates" }));
	EXPECT_TRUE(pData->HasAttribute("positions"));
	EXPECT_TRUE(pData->HasAttribute("blendweights$0Indices"));
	EXPECT_TRUE(pData->HasAttribute("somethingIndices"));
}

namespace
{
bool AddVersionMark(CDmxDocument &doc, int fromVersion, CUtlString *)
{
	doc.GetRoot()->GetArrayForEdit<int32>("liftedFrom", true)->push_back(fromVersion);
	return true;
}

bool RefuseUpdate(CDmxDocument &, int, CUtlString *pError)
{
	*pError = "no way forward";
	return false;
}
} // namespace

TEST(DmxUpdater, MoreUpdatersCanBeRegistered)
{
	DmxRegisterFormatUpdater({ "testformat", 3, "mark", AddVersionMark });
	DmxRegisterFormatUpdater({ "testformat", 2, "mark", AddVersionMark });
	EXPECT_EQ(DmxCurrentFormatVersion("testformat"), 3);
	EXPECT_EQ(DmxCurrentFormatVersion("neverheardof"), 1);

	const std::string body = "\"DmElement\" { }\n";
	CDmxDocument doc;
	CUtlString error;
	// From version 1: the step to 2 first, then the step to 3 (the attribute exists by then).
	ASSERT_TRUE(LoadFromString("<!-- dmx encoding keyvalues2 1 format testformat 1 -->\n" + body, doc, &error)) << error;
	EXPECT_EQ(doc.GetFormatVersion(), 3);
	EXPECT_EQ(doc.GetRoot()->GetArray<int32>("liftedFrom"), (std::vector<int32> { 1, 2 }));

	ASSERT_TRUE(LoadFromString("<!-- dmx encoding keyvalues2 1 format testformat 2 -->\n" + body, doc, &error)) << error;
	EXPECT_EQ(doc.GetRoot()->GetArray<int32>("liftedFrom"), (std::vector<int32> { 2 }));

	DmxRegisterFormatUpdater({ "brokenformat", 2, "refuses", RefuseUpdate });
	EXPECT_FALSE(LoadFromString("<!-- dmx encoding keyvalues2 1 format brokenformat 1 -->\n" + body, doc, &error, 0, "old.dmx"));
	EXPECT_NE(error.find("old.dmx: updating format brokenformat from version 1 to 2 (refuses) failed: no way forward"), std::string::npos) << error;
}
