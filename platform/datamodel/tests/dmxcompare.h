// A deep comparison of two element graphs, for the data model's tests and fuzzers.
#pragma once

#include <cmath>
#include <cstring>
#include <string>
#include <unordered_map>

#include "core/strtools.h"
#include "datamodel/dmelement.h"

namespace dmxtest
{
// Values compare by their bytes (so -0 and 0 differ), except that of a NaN only the sign counts:
// the text encodings keep no more of it.
template <class T> bool SameBits(const T &a, const T &b)
{
	if constexpr (std::is_same_v<T, CUtlString> || std::is_same_v<T, CUtlBinaryBlock> || std::is_same_v<T, bool>)
		return a == b;
	else if constexpr (std::is_same_v<T, int32> || std::is_same_v<T, DmeTime_t> || std::is_same_v<T, Color>)
		return memcmp(&a, &b, sizeof(T)) == 0;
	else
	{
		static_assert(sizeof(T) % sizeof(float) == 0);
		float fa[sizeof(T) / sizeof(float)], fb[sizeof(T) / sizeof(float)];
		memcpy(fa, &a, sizeof(T));
		memcpy(fb, &b, sizeof(T));
		for (size_t i = 0; i < sizeof(T) / sizeof(float); ++i)
		{
			if (std::isnan(fa[i]) && std::isnan(fb[i]))
			{
				if (std::signbit(fa[i]) != std::signbit(fb[i]))
					return false;
			}
			else if (memcmp(&fa[i], &fb[i], sizeof(float)) != 0)
				return false;
		}
		return true;
	}
}

// Compares the graphs reachable from two elements: type names, ids (when bCompareIds), and the
// attributes in order with their values; element references must correspond one to one.
class CGraphComparer
{
public:
	explicit CGraphComparer(bool bCompareIds) : m_bCompareIds(bCompareIds) {}

	bool Same(const CDmElement *a, const CDmElement *b)
	{
		if (!a || !b)
			return Note(a == b, "null against an element");
		const auto found = m_Pairs.find(a);
		if (found != m_Pairs.end())
			return Note(found->second == b, "a shared element corresponds to two elements");
		m_Pairs.emplace(a, b);
		if (a->GetTypeName() != b->GetTypeName())
			return Note(false, "type " + a->GetTypeName() + " against " + b->GetTypeName());
		if (m_bCompareIds && !(a->GetId() == b->GetId()))
			return Note(false, "ids differ for " + a->GetTypeName());
		if (a->AttributeCount() != b->AttributeCount())
			return Note(false, V_Format("%s has %d attributes against %d", a->GetName().c_str(), a->AttributeCount(), b->AttributeCount()));
		for (int i = 0; i < a->AttributeCount(); ++i)
		{
			const CDmAttribute *pA = a->GetAttribute(i);
			const CDmAttribute *pB = b->GetAttribute(i);
			if (pA->GetName() != pB->GetName() || pA->GetType() != pB->GetType())
				return Note(false, "attribute " + pA->GetName() + " against " + pB->GetName());
			if (!SameValue(pA, pB))
				return Note(false, "value of " + a->GetName() + "." + pA->GetName());
		}
		return true;
	}

	std::string m_Why;

private:
	bool Note(bool bOk, const std::string &why)
	{
		if (!bOk && m_Why.empty())
			m_Why = why;
		return bOk;
	}

	bool SameValue(const CDmAttribute *pA, const CDmAttribute *pB)
	{
		return std::visit(
			[&](const auto &a) -> bool
			{
				using T = std::decay_t<decltype(a)>;
				const T &b = std::get<T>(pB->GetVariant());
				if constexpr (std::is_same_v<T, std::monostate>)
					return true;
				else if constexpr (std::is_same_v<T, CDmElement *>)
					return Same(a, b);
				else if constexpr (std::is_same_v<T, std::vector<CDmElement *>>)
				{
					if (a.size() != b.size())
						return false;
					for (size_t i = 0; i < a.size(); ++i)
						if (!Same(a[i], b[i]))
							return false;
					return true;
				}
				else if constexpr (DmScalarValue<T>)
					return SameBits(a, b);
				else
				{
					if (a.size() != b.size())
						return false;
					for (size_t i = 0; i < a.size(); ++i)
						if (!SameBits<typename T::value_type>(a[i], b[i]))
							return false;
					return true;
				}
			},
			pA->GetVariant());
	}

	bool m_bCompareIds;
	std::unordered_map<const CDmElement *, const CDmElement *> m_Pairs;
};
} // namespace dmxtest
