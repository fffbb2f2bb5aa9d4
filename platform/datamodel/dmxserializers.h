// The built-in encodings, for the registry of dmxio.cpp. Not part of the public interface.
#pragma once

#include "datamodel/dmxio.h"

IDmxSerializer *DmxKeyValues2Serializer();
IDmxSerializer *DmxKeyValues2NoIdsSerializer();
IDmxSerializer *DmxBinarySerializer();

// Binary encoding version written by this code.
enum { DMX_BINARY_ENCODING_VERSION = 1 };
// Nesting of inline elements beyond which the text reader refuses a file; the keyvalues2 writer
// writes deeper elements at the top level instead, keyvalues2_noids refuses to save them.
enum { DMX_TEXT_MAX_NESTING = 256 };

#include <unordered_set>

// What the readers may do that others may not: append attributes without a lookup each (a
// reader checks names itself, with the index below, so that an element of a hostile file with
// very many attributes costs linear time).
class CDmxElementBuilder
{
public:
	static CDmAttribute *Append(CDmElement *pElement, std::string_view name, DmAttributeType_t type)
	{
		return pElement->AppendAttribute(name, type);
	}
};

// Tells whether an element being read has an attribute of a name already. Small elements are
// searched in place; from 32 attributes on, the names are indexed in a hash set.
class CDmxAttributeNameIndex
{
public:
	explicit CDmxAttributeNameIndex(const CDmElement *pElement) : m_pElement(pElement) {}

	bool Has(std::string_view name)
	{
		const int count = m_pElement->AttributeCount();
		if (count < 32)
			return m_pElement->FindAttribute(name) != nullptr;
		// Attribute names do not move while the element is read.
		for (; m_nIndexed < count; ++m_nIndexed)
			m_Names.insert(std::string_view(m_pElement->GetAttribute(m_nIndexed)->GetName()));
		return m_Names.count(name) != 0;
	}

private:
	const CDmElement *m_pElement;
	std::unordered_set<std::string_view> m_Names;
	int m_nIndexed = 0;
};
