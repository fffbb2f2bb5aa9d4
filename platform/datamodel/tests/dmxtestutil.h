// Helpers of the data model's tests: a document with a value of every type, and saving to and
// loading from memory.
#pragma once

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <unordered_map>

#include <gtest/gtest.h>

#include "core/strtools.h"
#include "datamodel/dmxio.h"
#include "dmxcompare.h"

namespace dmxtest
{
// An element holding one attribute of each of the 28 types, with values that test the edges of
// their text forms: negative zero, denormals, the extremes of int, quotes and line ends in
// strings, every byte value in binary, negative and fractional times, empty arrays, and element
// references that are null, shared and cyclic.
// Without bCycle the graph has no cycle (so that keyvalues2_noids can hold it).
inline CDmElement *BuildEveryType(CDmxDocument &doc, bool bCycle = true)
{
	CDmElement *pRoot = doc.CreateElement("DmElement", "every \"type\"");
	doc.SetRoot(pRoot);
	CDmElement *pChild = doc.CreateElement("DmeChild", "child");
	CDmElement *pShared = doc.CreateElement("DmeShared", "shared");
	pShared->SetValue("back", bCycle ? pRoot : nullptr); // a cycle through the root
	pChild->SetValue("shared", pShared);

	pRoot->SetValue("element", pChild);
	pRoot->SetValue("nullElement", nullptr);
	pRoot->SetValue("int", (int32)-2147483647 - 1);
	pRoot->SetValue("float", 0.1f);
	pRoot->SetValue("bool", true);
	pRoot->SetValue("string", "line one\nline \"two\"\t\\ tab and backslash; UTF-8: \xC3\xA9\xE2\x82\xAC");
	CUtlBinaryBlock bytes;
	for (int b = 0; b < 256; ++b)
		bytes.push_back((uint8)b);
	pRoot->SetValue("binary", bytes);
	pRoot->SetValue("time", DmeTime_t(-12345));
	pRoot->SetValue("color", Color(255, 128, 0, 7));
	pRoot->SetValue("vector2", Vector2D(-0.0f, 1e-40f));
	pRoot->SetValue("vector3", Vector(1.0f / 3.0f, 3.4028235e38f, -1.17549435e-38f));
	pRoot->SetValue("vector4", Vector4D(1, 2, 3, 4.5f));
	pRoot->SetValue("qangle", QAngle(90, -180, 45.25f));
	pRoot->SetValue("quaternion", Quaternion(0.5f, -0.5f, 0.5f, 0.70710677f));
	VMatrix m;
	for (int i = 0; i < 16; ++i)
		m.Base()[i] = (float)i * 0.25f - 1.0f;
	pRoot->SetValue("matrix", m);

	pRoot->SetArray<CDmElement *>("element_array", { pChild, nullptr, pShared, pChild });
	pRoot->SetArray<int32>("int_array", { 0, -1, 2147483647, 42 });
	pRoot->SetArray<float>("float_array", { 1.5f, -2.25f, 1e30f, std::numeric_limits<float>::denorm_min() });
	pRoot->SetArray<bool>("bool_array", { true, false, true });
	pRoot->SetArray<CUtlString>("string_array", { "", "a,b", "]\"[", "x" });
	pRoot->SetArray<CUtlBinaryBlock>("binary_array", { {}, { 0, 255 }, { 1 } });
	pRoot->SetArray<DmeTime_t>("time_array", { DmeTime_t(0), DmeTime_t(1), DmeTime_t(2147483647), DmeTime_t(-10000), DmeTime_t(INT32_MIN) });
	pRoot->SetArray<Color>("color_array", { Color(1, 2, 3, 4), Color(0, 0, 0, 0) });
	pRoot->SetArray<Vector2D>("vector2_array", { { 0.5f, 0.25f }, { -1, 1 } });
	pRoot->SetArray<Vector>("vector3_array", { { 1, 2, 3 }, { 4, 5, 6 } });
	pRoot->SetArray<Vector4D>("vector4_array", { { 1, 2, 3, 4 } });
	pRoot->SetArray<QAngle>("qangle_array", { { 0, 90, 180 } });
	pRoot->SetArray<Quaternion>("quaternion_array", { { 0, 0, 0, 1 }, { 1, 0, 0, 0 } });
	pRoot->SetArray<VMatrix>("matrix_array", { VMatrix(), m });
	pRoot->SetArray<int32>("empty_int_array", {});
	pRoot->SetArray<CDmElement *>("empty_element_array", {});
	return pRoot;
}

inline std::string SaveToString(const CDmElement *pRoot, const char *encoding, const char *format = "dmx", int version = DMX_CURRENT_FORMAT_VERSION)
{
	CUtlBuffer buffer;
	CUtlString error;
	EXPECT_TRUE(DmxSaveBuffer(buffer, pRoot, encoding, format, version, &error)) << error;
	return std::string(buffer.Base(), buffer.Size());
}

inline bool LoadFromString(const std::string &bytes, CDmxDocument &doc, CUtlString *pError = nullptr, uint flags = 0, const char *name = "test.dmx")
{
	CUtlString error;
	const bool bOk = DmxLoadBuffer(bytes.data(), bytes.size(), name, doc, &error, flags);
	if (pError)
		*pError = error;
	return bOk;
}
} // namespace dmxtest
