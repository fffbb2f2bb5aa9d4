// What both DMX fuzzers do with a document that loaded: write it in every encoding, read it
// back and check that nothing changed. A difference is a bug and stops the fuzzer.
#pragma once

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <unordered_map>

#include "datamodel/dmxio.h"

namespace dmxfuzz
{
// Values compare by their bytes, except that the text encodings keep of a NaN only its sign.
template <class T> bool SameValue(const T &a, const T &b)
{
	if constexpr (std::is_same_v<T, int32> || std::is_same_v<T, DmeTime_t> || std::is_same_v<T, Color>)
		return memcmp(&a, &b, sizeof(T)) == 0;
	else
	{
		static_assert(sizeof(T) % sizeof(float) == 0);
		const float *pA = (const float *)&a;
		const float *pB = (const float *)&b;
		for (size_t i = 0; i < sizeof(T) / sizeof(float); ++i)
		{
			if (std::isnan(pA[i]) && std::isnan(pB[i]))
			{
				if (std::signbit(pA[i]) != std::signbit(pB[i]))
					return false;
			}
			else if (memcmp(&pA[i], &pB[i], sizeof(float)) != 0)
				return false;
		}
		return true;
	}
}

// Same graph from two roots: types, ids, attribute names, types and value bytes, and the same
// sharing of elements.
inline bool SameGraph(const CDmElement *a, const CDmElement *b, std::unordered_map<const CDmElement *, const CDmElement *> &pairs)
{
	if (!a || !b)
		return a == b;
	const auto found = pairs.find(a);
	if (found != pairs.end())
		return found->second == b;
	pairs.emplace(a, b);
	if (a->GetTypeName() != b->GetTypeName() || !(a->GetId() == b->GetId()) || a->AttributeCount() != b->AttributeCount())
		return false;
	for (int i = 0; i < a->AttributeCount(); ++i)
	{
		const CDmAttribute *pA = a->GetAttribute(i);
		const CDmAttribute *pB = b->GetAttribute(i);
		if (pA->GetName() != pB->GetName() || pA->GetType() != pB->GetType())
			return false;
		const bool bSame = std::visit(
			[&](const auto &va) -> bool
			{
				using T = std::decay_t<decltype(va)>;
				const T &vb = std::get<T>(pB->GetVariant());
				if constexpr (std::is_same_v<T, CDmElement *>)
					return SameGraph(va, vb, pairs);
				else if constexpr (std::is_same_v<T, std::vector<CDmElement *>>)
				{
					if (va.size() != vb.size())
						return false;
					for (size_t k = 0; k < va.size(); ++k)
						if (!SameGraph(va[k], vb[k], pairs))
							return false;
					return true;
				}
				else if constexpr (std::is_same_v<T, std::monostate>)
					return true;
				else if constexpr (std::is_same_v<T, CUtlString> || std::is_same_v<T, CUtlBinaryBlock> || std::is_same_v<T, bool> ||
					std::is_same_v<T, std::vector<bool>> || std::is_same_v<T, std::vector<CUtlString>> ||
					std::is_same_v<T, std::vector<CUtlBinaryBlock>>)
					return va == vb;
				else if constexpr (DmScalarValue<T>)
					return SameValue(va, vb);
				else
				{
					if (va.size() != vb.size())
						return false;
					for (size_t k = 0; k < va.size(); ++k)
						if (!SameValue(va[k], vb[k]))
							return false;
					return true;
				}
			},
			pA->GetVariant());
		if (!bSame)
			return false;
	}
	return true;
}

inline void CheckRoundTrips(const CDmxDocument &doc)
{
	for (const char *encoding : { "binary", "keyvalues2" })
	{
		CUtlBuffer buffer;
		CUtlString error;
		if (!DmxSaveBuffer(buffer, doc.GetRoot(), encoding, "dmx", 2, &error))
			abort(); // these two encodings hold any graph
		CDmxDocument again;
		if (!DmxLoadBuffer(buffer.Base(), buffer.Size(), "again", again, &error, DMX_LOAD_NO_FORMAT_UPDATE))
			abort();
		std::unordered_map<const CDmElement *, const CDmElement *> pairs;
		if (!SameGraph(doc.GetRoot(), again.GetRoot(), pairs))
			abort();
	}
	// keyvalues2_noids may refuse (cycles, depth, repeats) but must not crash, and what it writes
	// must load.
	CUtlBuffer buffer;
	CUtlString error;
	if (DmxSaveBuffer(buffer, doc.GetRoot(), "keyvalues2_noids", "dmx", 2, &error))
	{
		CDmxDocument again;
		if (!DmxLoadBuffer(buffer.Base(), buffer.Size(), "again", again, &error, DMX_LOAD_NO_FORMAT_UPDATE))
			abort();
	}
}
} // namespace dmxfuzz
