#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>

#include <dlfcn.h>

#include "toolframework/binaryproperties.h"

namespace
{
class ToolExports : public testing::Test
{
protected:
	static void SetUpTestSuite()
	{
		s_pHandle = dlopen(TOOL_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
		ASSERT_NE(nullptr, s_pHandle) << dlerror();
	}
	template <typename T> static T Symbol(const char *name) { return reinterpret_cast<T>(dlsym(s_pHandle, name)); }
	static void *s_pHandle;
};
void *ToolExports::s_pHandle = nullptr;

struct BinaryPropertyCase_t
{
	int key;
	uint64 kind;
	const char *text; // for strings
	uint64 number;	  // for integers
};
} // namespace

TEST_F(ToolExports, TheLibraryExportsTheFiveFunctionsAndNothingElse)
{
	FILE *pipe = popen("nm -D --defined-only " TOOL_LIBRARY_PATH " 2>&1", "r");
	ASSERT_NE(nullptr, pipe);
	std::set<std::string> exported;
	char line[1024];
	while (fgets(line, sizeof(line), pipe))
	{
		char address[64], type[8], name[512];
		if (sscanf(line, "%63s %7s %511s", address, type, name) == 3)
			exported.insert(name);
	}
	pclose(pipe);
	EXPECT_EQ((std::set<std::string>{ "BinaryProperties_GetValue", "CreateInterface", "GetResourceManifestCount", "GetResourceManifests",
				  "InstallSchemaBindings" }),
		exported);
}

TEST_F(ToolExports, BinaryPropertiesAnswerTheirTable)
{
	auto getValue = Symbol<BinaryProperties_GetValueFn>("BinaryProperties_GetValue");
	ASSERT_NE(nullptr, getValue);
	const BinaryPropertyCase_t cases[] = {
		{ 0, BINARY_PROPERTY_STRING, "Release", 0 },
		{ 1, BINARY_PROPERTY_INTEGER, nullptr, 0 },
		{ 5, BINARY_PROPERTY_INTEGER, nullptr, 0 },
		{ 2, BINARY_PROPERTY_INTEGER, nullptr, 1 },
		{ 6, BINARY_PROPERTY_INTEGER, nullptr, 1 },
		{ 3, BINARY_PROPERTY_STRING, "mintyardmanager", 0 },
		{ 4, BINARY_PROPERTY_STRING, "mintyardmanager", 0 },
		{ 7, BINARY_PROPERTY_INTEGER, nullptr, 2 },
	};
	for (const BinaryPropertyCase_t &c : cases)
	{
		BinaryPropertyValue_t value = { 99, 99 };
		ASSERT_EQ(1, getValue(c.key, &value)) << c.key;
		EXPECT_EQ(c.kind, value.m_nKind) << c.key;
		if (c.text)
			EXPECT_STREQ(c.text, reinterpret_cast<const char *>(value.m_nValue)) << c.key;
		else
			EXPECT_EQ(c.number, value.m_nValue) << c.key;
	}
	// Unknown keys answer 0 and leave the result alone.
	for (int key : { -1, 8, 100 })
	{
		BinaryPropertyValue_t value = { 99, 98 };
		EXPECT_EQ(0, getValue(key, &value));
		EXPECT_EQ(99u, value.m_nValue);
		EXPECT_EQ(98u, value.m_nKind);
	}
}

TEST_F(ToolExports, CreateInterfaceHandsOutTheOneToolByItsExactName)
{
	auto createInterface = Symbol<void *(*)(const char *, int *)>("CreateInterface");
	ASSERT_NE(nullptr, createInterface);
	int returnCode = 7;
	void *tool = createInterface("ToolSystem2_001", &returnCode);
	EXPECT_NE(nullptr, tool);
	EXPECT_EQ(0, returnCode);
	EXPECT_EQ(tool, createInterface("ToolSystem2_001", nullptr)); // the same static object
	returnCode = 7;
	EXPECT_EQ(nullptr, createInterface("toolsystem2_001", &returnCode)); // byte for byte
	EXPECT_EQ(1, returnCode);
	EXPECT_EQ(nullptr, createInterface("ToolSystem2_001 ", nullptr));
	EXPECT_EQ(nullptr, createInterface("VTOOLDICTIONARY003", nullptr)); // answered by the tool, not the library
}

TEST_F(ToolExports, ResourceManifestsListTheToolImages)
{
	auto count = Symbol<GetResourceManifestCountFn>("GetResourceManifestCount");
	auto manifests = Symbol<GetResourceManifestsFn>("GetResourceManifests");
	ASSERT_NE(nullptr, count);
	ASSERT_NE(nullptr, manifests);
	ASSERT_EQ(1, count());
	void *out[4] = {};
	EXPECT_EQ(1, manifests(0, out, 4));
	const ResourceManifest_t *manifest = static_cast<const ResourceManifest_t *>(out[0]);
	ASSERT_NE(nullptr, manifest);
	bool bHasAdd = false;
	for (int i = 0; i < manifest->m_nCount; ++i)
		bHasAdd = bHasAdd || std::string(manifest->m_ppResources[i]) == "game:tools/images/mintyardmanager/icon_add.png";
	EXPECT_TRUE(bHasAdd);
	EXPECT_EQ(0, manifests(1, out, 4)); // skipped past the end
	EXPECT_EQ(0, manifests(0, out, 0));
}

TEST_F(ToolExports, SchemaBindingsInstallOnceForTheRightInterface)
{
	auto install = Symbol<InstallSchemaBindingsFn>("InstallSchemaBindings");
	ASSERT_NE(nullptr, install);
	EXPECT_FALSE(install("SchemaSystem_002", nullptr));
	EXPECT_FALSE(install(nullptr, nullptr));
	EXPECT_TRUE(install("SchemaSystem_001", nullptr));
	EXPECT_TRUE(install("SchemaSystem_001", nullptr));
}
