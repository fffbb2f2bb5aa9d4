#include <gtest/gtest.h>

#include "dmxtestutil.h"
#include "testsupport/test_support.h"

using namespace dmxtest;

namespace
{
// The texture recipe that the loading-screen import writes, as it writes it (the trailing blank
// after the first "element_array" included), with a file name filled in.
const char *kTextureRecipe = "<!-- dmx encoding keyvalues2_noids 1 format ztex 1 -->\n"
							 "\"CDmeZtex\"\n"
							 "{\n"
							 "\t\"m_inputTextureArray\" \"element_array\" \n"
							 "\t[\n"
							 "\t\t\"CDmeInputTexture\"\n"
							 "\t\t{\n"
							 "\t\t\t\"m_name\" \"string\" \"0\"\n"
							 "\t\t\t\"m_fileName\" \"string\" \"canopy/images/loadingscreens/dusk/loadingscreen.png\"\n"
							 "\t\t\t\"m_colorSpace\" \"string\" \"linear\"\n"
							 "\t\t\t\"m_typeString\" \"string\" \"2D\"\n"
							 "\t\t\t\"m_imageProcessorArray\" \"element_array\"\n"
							 "\t\t\t[\n"
							 "\t\t\t\t\"CDmeImageProcessor\"\n"
							 "\t\t\t\t{\n"
							 "\t\t\t\t\t\"m_algorithm\" \"string\" \"ConvertToYCoCg\"\n"
							 "\t\t\t\t}\n"
							 "\t\t\t]\n"
							 "\t\t}\n"
							 "\t]\n"
							 "\t\"m_outputTypeString\" \"string\" \"2D\"\n"
							 "\t\"m_outputFormat\" \"string\" \"DXT5\"\n"
							 "\t\"m_textureOutputChannelArray\" \"element_array\"\n"
							 "\t[\n"
							 "\t\t\"CDmeTextureOutputChannel\"\n"
							 "\t\t{\n"
							 "\t\t\t\"m_inputTextureArray\" \"string_array\"\n"
							 "\t\t\t\t[\n"
							 "\t\t\t\t\t\"0\"\n"
							 "\t\t\t\t]\n"
							 "\t\t\t\"m_srcChannels\" \"string\" \"rgba\"\n"
							 "\t\t\t\"m_dstChannels\" \"string\" \"rgba\"\n"
							 "\t\t\t\"m_mipAlgorithm\" \"CDmeImageProcessor\"\n"
							 "\t\t\t{\n"
							 "\t\t\t\t\"m_algorithm\" \"string\" \"None\"\n"
							 "\t\t\t}\n"
							 "\t\t\t\"m_outputColorSpace\" \"string\" \"linear\"\n"
							 "\t\t}\n"
							 "\t]\n"
							 "}\n";

std::vector<std::string> AttributeNames(const CDmElement *pElement)
{
	std::vector<std::string> names;
	for (int i = 0; i < pElement->AttributeCount(); ++i)
		names.push_back(pElement->GetAttribute(i)->GetName());
	return names;
}

// Loads text that must fail; returns the message.
std::string LoadError(const std::string &text)
{
	CDmxDocument doc;
	CUtlString error;
	EXPECT_FALSE(LoadFromString(text, doc, &error, 0, "bad.dmx")) << text;
	EXPECT_EQ(doc.ElementCount(), 0) << "a failed load leaves the document empty";
	return error;
}

const char *kKv2Header = "<!-- dmx encoding keyvalues2 1 format dmx 2 -->\n";
} // namespace

TEST(DmxText, TextureRecipeLoadsWhole)
{
	CDmxDocument doc;
	CUtlString error;
	ASSERT_TRUE(LoadFromString(kTextureRecipe, doc, &error, 0, "loadingscreen.ztex")) << error;
	EXPECT_EQ(doc.GetEncodingName(), "keyvalues2_noids");
	EXPECT_EQ(doc.GetFormatName(), "ztex");
	EXPECT_EQ(doc.GetFormatVersion(), 1);
	EXPECT_EQ(doc.ElementCount(), 5);

	const CDmElement *pRoot = doc.GetRoot();
	ASSERT_NE(pRoot, nullptr);
	EXPECT_EQ(pRoot->GetTypeName(), "CDmeZtex");
	EXPECT_EQ(AttributeNames(pRoot), (std::vector<std::string> { "name", "m_inputTextureArray", "m_outputTypeString", "m_outputFormat",
										 "m_textureOutputChannelArray" }));
	EXPECT_STREQ(pRoot->GetString("m_outputTypeString"), "2D");
	EXPECT_STREQ(pRoot->GetString("m_outputFormat"), "DXT5");

	const std::vector<CDmElement *> &inputs = pRoot->GetArray<CDmElement *>("m_inputTextureArray");
	ASSERT_EQ(inputs.size(), 1u);
	const CDmElement *pInput = inputs[0];
	EXPECT_EQ(pInput->GetTypeName(), "CDmeInputTexture");
	EXPECT_STREQ(pInput->GetString("m_name"), "0");
	EXPECT_STREQ(pInput->GetString("m_fileName"), "canopy/images/loadingscreens/dusk/loadingscreen.png");
	EXPECT_STREQ(pInput->GetString("m_colorSpace"), "linear");
	EXPECT_STREQ(pInput->GetString("m_typeString"), "2D");
	const std::vector<CDmElement *> &processors = pInput->GetArray<CDmElement *>("m_imageProcessorArray");
	ASSERT_EQ(processors.size(), 1u);
	EXPECT_EQ(processors[0]->GetTypeName(), "CDmeImageProcessor");
	EXPECT_STREQ(processors[0]->GetString("m_algorithm"), "ConvertToYCoCg");

	const std::vector<CDmElement *> &channels = pRoot->GetArray<CDmElement *>("m_textureOutputChannelArray");
	ASSERT_EQ(channels.size(), 1u);
	const CDmElement *pChannel = channels[0];
	EXPECT_EQ(pChannel->GetTypeName(), "CDmeTextureOutputChannel");
	EXPECT_EQ(AttributeNames(pChannel), (std::vector<std::string> { "name", "m_inputTextureArray", "m_srcChannels", "m_dstChannels",
											"m_mipAlgorithm", "m_outputColorSpace" }));
	EXPECT_EQ(pChannel->GetArray<CUtlString>("m_inputTextureArray"), std::vector<CUtlString> { "0" });
	EXPECT_STREQ(pChannel->GetString("m_srcChannels"), "rgba");
	EXPECT_STREQ(pChannel->GetString("m_dstChannels"), "rgba");
	EXPECT_STREQ(pChannel->GetString("m_outputColorSpace"), "linear");
	const CDmElement *pMip = pChannel->GetElement("m_mipAlgorithm");
	ASSERT_NE(pMip, nullptr);
	EXPECT_EQ(pMip->GetTypeName(), "CDmeImageProcessor");
	EXPECT_STREQ(pMip->GetString("m_algorithm"), "None");
}

TEST(DmxText, TextureRecipeWritesBackAsItWasWritten)
{
	CDmxDocument doc;
	CUtlString error;
	ASSERT_TRUE(LoadFromString(kTextureRecipe, doc, &error)) << error;
	std::string expected = kTextureRecipe;
	// Our writer puts no blank at the end of a line.
	expected.erase(expected.find("\"element_array\" \n") + 15, 1);
	EXPECT_EQ(SaveToString(doc.GetRoot(), "keyvalues2_noids", "ztex", 1), expected);
}

TEST(DmxText, HandWrittenFileLoads)
{
	const std::string text = std::string(kKv2Header) +
		"// A mesh as someone might write it by hand.\n"
		"\"DmElement\" {\n"
		"  \"id\" \"elementid\" \"{11111111-2222-3333-4444-555555555555}\"\n"
		"  \"name\" \"string\" \"root\"\n"
		"  \"model\" \"element\" \"aaaaaaaa-0000-0000-0000-000000000001\"   // defined further down\n"
		"  \"count\" int \"+12\"\n"
		"  \"scale\" \"float\" \" 2.5 \"\n"
		"  \"visible\" \"bool\" \"true\"\n"
		"  \"path\" \"string\" \"C:\\models\\hero \\\"one\\\"\"\n"
		"  \"start\" \"time\" \"1.25\"\n"
		"  \"tint\" \"color\" \"10 20 30\"\n"
		"  \"blob\" \"binary\" \"00ff 7A\n 10\"\n"
		"  \"list\" \"int_array\" [ \"1\" \"2\", \"3\", ]\n"
		"  \"empty\" \"float_array\" []\n"
		"  \"children\" \"element_array\" [\n"
		"     \"element\" \"aaaaaaaa-0000-0000-0000-000000000001\",\n"
		"     \"element\" \"\",\n"
		"     \"DmeDag\" { \"name\" \"string\" \"inline\" \"parent\" \"element\" \"11111111-2222-3333-4444-555555555555\" }\n"
		"  ]\n"
		"}\n"
		"\"DmeModel\"\n"
		"{\n"
		"  \"id\" \"elementid\" \"AAAAAAAA-0000-0000-0000-000000000001\"\n"
		"  \"name\" \"string\" \"body\"\n"
		"  \"upAxis\" \"string\" \"Y\"\n"
		"}\n";
	CDmxDocument doc;
	CUtlString error;
	ASSERT_TRUE(LoadFromString(text, doc, &error)) << error;
	const CDmElement *pRoot = doc.GetRoot();
	EXPECT_EQ(pRoot->GetName(), "root");
	EXPECT_EQ(pRoot->GetId().Text(), "11111111-2222-3333-4444-555555555555");
	const CDmElement *pModel = pRoot->GetElement("model");
	ASSERT_NE(pModel, nullptr);
	EXPECT_EQ(pModel->GetTypeName(), "DmeModel");
	EXPECT_STREQ(pModel->GetString("upAxis"), "Y");
	EXPECT_EQ(pRoot->GetInt("count"), 12);
	EXPECT_EQ(pRoot->GetFloat("scale"), 2.5f);
	EXPECT_TRUE(pRoot->GetBool("visible"));
	EXPECT_STREQ(pRoot->GetString("path"), "C:\\models\\hero \"one\"");
	EXPECT_EQ(pRoot->GetValue<DmeTime_t>("start").m_tms, 12500);
	EXPECT_EQ(pRoot->GetValue<Color>("tint"), Color(10, 20, 30, 255));
	EXPECT_EQ(pRoot->GetValue<CUtlBinaryBlock>("blob"), (CUtlBinaryBlock { 0x00, 0xff, 0x7a, 0x10 }));
	EXPECT_EQ(pRoot->GetArray<int32>("list"), (std::vector<int32> { 1, 2, 3 }));
	EXPECT_EQ(pRoot->FindAttribute("empty")->GetType(), AT_FLOAT_ARRAY);
	const std::vector<CDmElement *> &children = pRoot->GetArray<CDmElement *>("children");
	ASSERT_EQ(children.size(), 3u);
	EXPECT_EQ(children[0], pModel);
	EXPECT_EQ(children[1], nullptr);
	EXPECT_EQ(children[2]->GetName(), "inline");
	EXPECT_EQ(children[2]->GetElement("parent"), pRoot);
}

TEST(DmxText, SharedAndCyclicReferencesKeepTheirIdentity)
{
	CDmxDocument doc;
	BuildEveryType(doc);
	const std::string text = SaveToString(doc.GetRoot(), "keyvalues2");
	CDmxDocument loaded;
	CUtlString error;
	ASSERT_TRUE(LoadFromString(text, loaded, &error)) << error << "\n" << text;
	CGraphComparer comparer(true);
	EXPECT_TRUE(comparer.Same(doc.GetRoot(), loaded.GetRoot())) << comparer.m_Why;
	const CDmElement *pRoot = loaded.GetRoot();
	const CDmElement *pShared = pRoot->GetElement("element")->GetElement("shared");
	EXPECT_EQ(pShared->GetElement("back"), pRoot);
	EXPECT_EQ(pRoot->GetArray<CDmElement *>("element_array")[2], pShared);
	EXPECT_EQ(pRoot->GetArray<CDmElement *>("element_array")[3], pRoot->GetElement("element"));
	// Each element is written once.
	EXPECT_EQ(loaded.ElementCount(), 3);
	EXPECT_EQ(text, SaveToString(pRoot, "keyvalues2"));
}

TEST(DmxText, NoIdsRepeatsSharedElementsAndRefusesCycles)
{
	CDmxDocument doc;
	CDmElement *pRoot = doc.CreateElement("DmElement", "root");
	CDmElement *pShared = doc.CreateElement("DmeMaterial", "shared");
	pShared->SetValue("mtlName", "materials/x.zmat");
	pRoot->SetArray<CDmElement *>("sets", { pShared, pShared });
	const std::string text = SaveToString(pRoot, "keyvalues2_noids");
	EXPECT_EQ(text.find("\"id\""), std::string::npos);
	CDmxDocument loaded;
	CUtlString error;
	ASSERT_TRUE(LoadFromString(text, loaded, &error)) << error;
	const std::vector<CDmElement *> &sets = loaded.GetRoot()->GetArray<CDmElement *>("sets");
	ASSERT_EQ(sets.size(), 2u);
	EXPECT_NE(sets[0], sets[1]);
	EXPECT_STREQ(sets[1]->GetString("mtlName"), "materials/x.zmat");

	pShared->SetValue("owner", pRoot);
	CUtlBuffer buffer;
	EXPECT_FALSE(DmxSaveBuffer(buffer, pRoot, "keyvalues2_noids", "dmx", 1, &error));
	EXPECT_NE(error.find("cycle"), std::string::npos) << error;
	EXPECT_NE(error.find("owner"), std::string::npos) << error;
}

TEST(DmxText, NoIdsRefusesAnExplosionOfRepeats)
{
	// Each level refers twice to the next: 2^40 inline copies.
	CDmxDocument doc;
	CDmElement *pRoot = doc.CreateElement("DmElement", "root");
	CDmElement *pLevel = pRoot;
	for (int i = 0; i < 40; ++i)
	{
		CDmElement *pNext = doc.CreateElement("DmElement");
		pLevel->SetArray<CDmElement *>("twice", { pNext, pNext });
		pLevel = pNext;
	}
	CUtlBuffer buffer;
	CUtlString error;
	EXPECT_FALSE(DmxSaveBuffer(buffer, pRoot, "keyvalues2_noids", "dmx", 1, &error));
	EXPECT_NE(error.find("repeated"), std::string::npos) << error;
	EXPECT_TRUE(DmxSaveBuffer(buffer, pRoot, "keyvalues2", "dmx", 1, &error)) << error;
}

TEST(DmxText, DeepChainsAreWrittenAtTheTopLevel)
{
	CDmxDocument doc;
	CDmElement *pRoot = doc.CreateElement("DmeDag", "root");
	CDmElement *pLevel = pRoot;
	for (int i = 0; i < 2000; ++i)
	{
		CDmElement *pChild = doc.CreateElement("DmeDag", V_Format("joint%d", i));
		pLevel->SetArray<CDmElement *>("children", { pChild });
		pLevel = pChild;
	}
	const std::string text = SaveToString(pRoot, "keyvalues2");
	CDmxDocument loaded;
	CUtlString error;
	ASSERT_TRUE(LoadFromString(text, loaded, &error)) << error;
	CGraphComparer comparer(true);
	EXPECT_TRUE(comparer.Same(pRoot, loaded.GetRoot())) << comparer.m_Why;

	CUtlBuffer buffer;
	EXPECT_FALSE(DmxSaveBuffer(buffer, pRoot, "keyvalues2_noids", "dmx", 1, &error));
	EXPECT_NE(error.find("deep"), std::string::npos) << error;
}

TEST(DmxText, ErrorsNameTheFileLineAndWhat)
{
	const std::string h = kKv2Header;
	struct Case_t
	{
		std::string text;
		const char *expected;
	};
	const Case_t cases[] = {
		{ h + "\"DmElement\"\n\"x\"", "bad.dmx(3,1): expected '{' after the element type \"DmElement\", found a string" },
		{ h + "\"DmElement\" {\n \"a\" \"int\" \"1.5\"\n}", "bad.dmx(3,12): the int attribute \"a\" needs an integer (32-bit)" },
		{ h + "\"DmElement\" {\n \"a\" \"int\" \"99999999999\"\n}", "bad.dmx(3,12): the int attribute \"a\" needs an integer" },
		{ h + "\"DmElement\" {\n \"a\" \"vector3\" \"1 2\"\n}", "bad.dmx(3,16): the vector3 attribute \"a\" needs three numbers" },
		{ h + "\"DmElement\" {\n \"a\" \"vector3\" \"1 2 3 4\"\n}", "needs three numbers" },
		{ h + "\"DmElement\" {\n \"a\" \"color\" \"1 2 300\"\n}", "needs three or four numbers from 0 to 255" },
		{ h + "\"DmElement\" {\n \"a\" \"bool\" \"2\"\n}", "needs 0 or 1" },
		{ h + "\"DmElement\" {\n \"a\" \"binary\" \"0a1\"\n}", "needs pairs of hexadecimal digits" },
		{ h + "\"DmElement\" {\n \"a\" \"time\" \"1e9\"\n}", "needs a time in seconds" },
		{ h + "\"DmElement\" {\n \"a\" \"float\" \"nope\"\n}", "needs a number" },
		{ h + "\"DmElement\" {\n \"a\" \"integer\" \"1\"\n}", "bad.dmx(3,6): \"integer\" is not an attribute type" },
		{ h + "\"DmElement\" {\n \"a\" \"int\" \"1\"\n \"a\" \"int\" \"2\"\n}", "bad.dmx(4,2): the attribute \"a\" appears twice" },
		{ h + "\"DmElement\" {\n \"name\" \"int\" \"1\"\n}", "the attribute \"name\" must be a string" },
		{ h + "\"DmElement\" {\n \"name\" \"Foo\" { }\n}", "the attribute \"name\" must be a string" },
		{ h + "\"DmElement\" {\n \"a\" \"string\" \"open\n", "bad.dmx(3,15): a string is not closed before the end of the file" },
		{ h + "\"DmElement\" {\n \"a\" \"element\" \"12345678-1234-1234-1234-123456789abc\"\n}",
			"bad.dmx(3,16): no element of the file has the id 12345678-1234-1234-1234-123456789abc" },
		{ h + "\"DmElement\" {\n \"a\" \"element\" \"not an id\"\n}", "\"not an id\" is not an element id" },
		{ h + "\"A\" { \"id\" \"elementid\" \"12345678-1234-1234-1234-123456789abc\" }\n\"B\" { \"id\" \"elementid\" "
				  "\"12345678-1234-1234-1234-123456789abc\" }",
			"the element id 12345678-1234-1234-1234-123456789abc is used by two elements" },
		{ h + "\"DmElement\" {\n \"a\" \"int_array\" [ \"1\" \"2\"\n}", "bad.dmx(4,1): expected an entry of the int_array \"a\" or ']', found '}'" },
		{ h + "\"DmElement\" {\n \"a\" \"int_array\" [ , \"1\" ]\n}", "an array entry is missing before ','" },
		{ h + "\"DmElement\" {\n \"a\" \"element_array\" [ \"x\" \"y\" ]\n}", "expected an element (\"TypeName\" { ... }) or a reference" },
		{ h + "\"DmElement\" {\n \"a\" \"int_array\" \"1\"\n}", "expected '[' to open the int_array \"a\"" },
		{ h + "\"DmElement\" {\n", "bad.dmx(3,1): expected an attribute name or '}', found the end of the file" },
		{ h + "{ }", "bad.dmx(2,1): expected the type name of an element, found '{'" },
		{ h, "the file holds no element" },
		{ h + "\"DmElement\" { } }", "expected the type name of an element, found '}'" },
	};
	for (const Case_t &c : cases)
	{
		const std::string error = LoadError(c.text);
		EXPECT_NE(error.find(c.expected), std::string::npos) << "got: " << error << "\nwanted: " << c.expected;
	}
}

TEST(DmxText, NestingIsLimited)
{
	std::string text = kKv2Header;
	for (int i = 0; i < 300; ++i)
		text += "\"E\" { \"c\" ";
	const std::string error = LoadError(text);
	EXPECT_NE(error.find("nested more than 256 deep"), std::string::npos) << error;
}

TEST(DmxText, HeaderLine)
{
	DmxHeader_t header;
	size_t body = 0;
	const std::string text = "\xEF\xBB\xBF\n<!-- dmx encoding keyvalues2 1 format model 22 -->\r\n\"x\"";
	ASSERT_TRUE(DmxReadHeader(text, header, &body));
	EXPECT_EQ(header.encodingName, "keyvalues2");
	EXPECT_EQ(header.encodingVersion, 1);
	EXPECT_EQ(header.formatName, "model");
	EXPECT_EQ(header.formatVersion, 22);
	EXPECT_EQ(text.substr(body), "\"x\"");
	EXPECT_EQ(DmxHeaderLine(header), "<!-- dmx encoding keyvalues2 1 format model 22 -->");

	ASSERT_TRUE(DmxReadHeader("<!-- dmx encoding binary 1 -->", header));
	EXPECT_EQ(header.formatName, "dmx");
	EXPECT_EQ(header.formatVersion, 1);

	CUtlString error;
	EXPECT_FALSE(DmxReadHeader("<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} -->", header, nullptr, &error));
	EXPECT_FALSE(DmxReadHeader("\"DmElement\" { }", header, nullptr, &error));
	EXPECT_FALSE(DmxReadHeader("<!-- dmx encoding keyvalues2 x format dmx 1 -->", header, nullptr, &error));
	EXPECT_FALSE(DmxReadHeader("<!-- dmx encoding keyvalues2 1 format dmx -->", header, nullptr, &error));
	EXPECT_FALSE(DmxReadHeader("<!-- dmx encoding keyvalues2 1 format dmx 1 extra -->", header, nullptr, &error));
	EXPECT_FALSE(DmxReadHeader("<!-- dmx encoding keyvalues2 1 format dmx 1", header, nullptr, &error));
	EXPECT_FALSE(DmxReadHeader("<!-- dmx encoding keyvalues2 1 format dmx 1 " + std::string(300, ' ') + "-->", header, nullptr, &error));

	EXPECT_NE(LoadError("<!-- dmx encoding keyvalues3 1 format dmx 1 -->\n").find("bad.dmx(1): unknown encoding \"keyvalues3\""), std::string::npos);
	EXPECT_NE(LoadError("<!-- dmx encoding keyvalues2 9 format dmx 1 -->\n").find("newer than this reader knows"), std::string::npos);
	EXPECT_NE(LoadError("").find("does not start with a DMX header line"), std::string::npos);
}

TEST(DmxText, FilesAreReadAndWrittenByName)
{
	CTempDirectory folder;
	const std::string path = folder.Write("art/recipe.ztex", kTextureRecipe);
	CDmxDocument doc;
	CUtlString error;
	ASSERT_TRUE(DmxLoadFile(path.c_str(), doc, &error)) << error;
	EXPECT_EQ(doc.GetFileName(), path);

	const std::string copy = folder.Path("art/copy.dmx");
	ASSERT_TRUE(DmxSaveFile(copy.c_str(), doc, "keyvalues2", &error)) << error;
	CDmxDocument again;
	ASSERT_TRUE(DmxLoadFile(copy.c_str(), again, &error)) << error;
	EXPECT_EQ(again.GetEncodingName(), "keyvalues2");
	EXPECT_EQ(again.GetFormatName(), "ztex");
	CGraphComparer comparer(true);
	EXPECT_TRUE(comparer.Same(doc.GetRoot(), again.GetRoot())) << comparer.m_Why;

	// A save that fails leaves the file as it was.
	CUtlBuffer before;
	ASSERT_TRUE(Plat_ReadFile(copy.c_str(), before));
	CDmElement *pRoot = doc.GetRoot();
	pRoot->SetValue("self", pRoot);
	EXPECT_FALSE(DmxSaveFile(copy.c_str(), pRoot, "keyvalues2_noids", "ztex", 1, &error));
	EXPECT_EQ(error.find(copy), 0u) << error;
	CUtlBuffer after;
	ASSERT_TRUE(Plat_ReadFile(copy.c_str(), after));
	EXPECT_EQ(before.View(), after.View());

	CDmxDocument missing;
	EXPECT_FALSE(DmxLoadFile(folder.Path("missing.dmx").c_str(), missing, &error));
	EXPECT_NE(error.find("missing.dmx"), std::string::npos) << error;
	EXPECT_FALSE(DmxSaveFile(copy.c_str(), pRoot, "xml", "dmx", 1, &error));
	EXPECT_NE(error.find("unknown encoding \"xml\""), std::string::npos) << error;
	EXPECT_FALSE(DmxSaveFile(copy.c_str(), nullptr, "binary", "dmx", 1, &error));
	EXPECT_FALSE(DmxSaveFile(copy.c_str(), pRoot, "binary", "two words", 1, &error));
	EXPECT_FALSE(DmxSaveFile(copy.c_str(), pRoot, "binary", std::string(250, 'f').c_str(), 1, &error));
	EXPECT_NE(error.find("longer than 256 bytes"), std::string::npos) << error;
	EXPECT_TRUE(DmxSaveFile(copy.c_str(), pRoot, "binary", std::string(200, 'f').c_str(), 1, &error)) << error;
	EXPECT_TRUE(DmxLoadFile(copy.c_str(), missing, &error)) << error;
	EXPECT_EQ(missing.GetFormatName(), std::string(200, 'f'));
}
