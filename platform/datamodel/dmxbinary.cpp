// The "binary" encoding (version 1). The layout is told byte by byte in README.md; in short:
// the header line, a string table of type and attribute names, an element table (type and id
// of each element, the root first), the attributes of each element in the same order, and a
// CRC-32 of everything after the header. Integers and floats are little-endian; arrays of plain
// values are stored as they lie in memory, so that loading them is one copy each.
#include <bit>
#include <cstring>
#include <unordered_map>

#include "core/hashes.h"
#include "core/strtools.h"
#include "datamodel/dmxserializers.h"

static_assert(std::endian::native == std::endian::little, "the binary DMX encoding is read and written in the machine's byte order");

namespace
{
// Bytes of one stored value of a fixed-size type; 0 for the types of variable size (string,
// binary) and for element references (4, handled apart).
template <class T> constexpr size_t FixedSize()
{
	if constexpr (std::is_same_v<T, bool>)
		return 1;
	else if constexpr (std::is_same_v<T, int32> || std::is_same_v<T, float> || std::is_same_v<T, DmeTime_t> || std::is_same_v<T, Color>)
		return 4;
	else if constexpr (std::is_same_v<T, Vector2D>)
		return 8;
	else if constexpr (std::is_same_v<T, Vector> || std::is_same_v<T, QAngle>)
		return 12;
	else if constexpr (std::is_same_v<T, Vector4D> || std::is_same_v<T, Quaternion>)
		return 16;
	else if constexpr (std::is_same_v<T, VMatrix>)
		return 64;
	else
		return 0;
}

template <class T> constexpr bool IsPlainValue = FixedSize<T>() != 0 && !std::is_same_v<T, bool>;

// The memory of the plain value types is their stored form.
static_assert(sizeof(Color) == 4 && sizeof(DmeTime_t) == 4 && sizeof(Vector2D) == 8 && sizeof(Vector) == 12 && sizeof(QAngle) == 12 &&
	sizeof(Vector4D) == 16 && sizeof(Quaternion) == 16 && sizeof(VMatrix) == 64);
static_assert(std::is_trivially_copyable_v<Vector> && std::is_trivially_copyable_v<VMatrix> && std::is_trivially_copyable_v<Quaternion>);

// Least number of bytes an attribute can take: name (4), type (1), a bool (1).
constexpr size_t MIN_ATTRIBUTE_BYTES = 6;
// Least number of bytes of an element table entry: type name (4) and id (16).
constexpr size_t ELEMENT_ENTRY_BYTES = 20;

// ---------------------------------------------------------------------------------------------
// Writer

class CBinaryWriter
{
public:
	bool Write(CUtlBuffer &out, const DmxHeader_t &header, const CDmElement *pRoot, CUtlString *pError)
	{
		const std::vector<CDmElement *> elements = CDmxDocument::CollectReachable(const_cast<CDmElement *>(pRoot));
		m_Indices.reserve(elements.size());
		for (size_t i = 0; i < elements.size(); ++i)
			m_Indices.emplace(elements[i], (uint32)i);
		const CDmxDocument *pDocument = pRoot->GetDocument();

		// Strings: every type name and attribute name, each once.
		for (const CDmElement *pElement : elements)
		{
			StringIndex(pElement->GetTypeName());
			for (int a = 0; a < pElement->AttributeCount(); ++a)
				StringIndex(pElement->GetAttribute(a)->GetName());
		}

		CUtlString line = DmxHeaderLine(header);
		m_Out.append(line);
		m_Out += '\n';
		m_Out += '\0';
		const size_t bodyStart = m_Out.size();

		PutU32((uint32)m_Strings.size());
		size_t stringBytes = 0;
		for (const CUtlString *pString : m_Strings)
			stringBytes += 4 + pString->size();
		if (stringBytes > UINT32_MAX || elements.size() > UINT32_MAX / ELEMENT_ENTRY_BYTES)
			return Fail(pError, "the document is too large for the binary encoding");
		PutU32((uint32)stringBytes);
		for (const CUtlString *pString : m_Strings)
		{
			PutU32((uint32)pString->size());
			m_Out.append(*pString);
		}

		PutU32((uint32)elements.size());
		for (const CDmElement *pElement : elements)
		{
			PutU32(m_StringIndices[pElement->GetTypeName()]);
			m_Out.append((const char *)pElement->GetId().m_Bytes, 16);
		}
		for (const CDmElement *pElement : elements)
		{
			PutU32((uint32)pElement->AttributeCount());
			for (int a = 0; a < pElement->AttributeCount(); ++a)
			{
				const CDmAttribute *pAttribute = pElement->GetAttribute(a);
				PutU32(m_StringIndices[pAttribute->GetName()]);
				m_Out += (char)pAttribute->GetType();
				if (!PutValue(pAttribute, pDocument, pError))
					return false;
			}
		}
		const uint32 crc = CRC32_ProcessSingleBuffer(m_Out.data() + bodyStart, m_Out.size() - bodyStart);
		PutU32(crc);
		out.Put(m_Out.data(), m_Out.size());
		return true;
	}

private:
	static bool Fail(CUtlString *pError, const CUtlString &message)
	{
		if (pError)
			*pError = message;
		return false;
	}

	void StringIndex(const CUtlString &text)
	{
		if (m_StringIndices.emplace(text, (uint32)m_Strings.size()).second)
			m_Strings.push_back(&text);
	}

	void PutU32(uint32 value) { m_Out.append((const char *)&value, 4); }

	bool PutElement(const CDmElement *pElement, const CDmxDocument *pDocument, const CDmAttribute *pAttribute, CUtlString *pError)
	{
		if (!pElement)
		{
			PutU32(UINT32_MAX);
			return true;
		}
		const auto found = m_Indices.find(pElement);
		if (pElement->GetDocument() != pDocument || found == m_Indices.end())
			return Fail(pError, V_Format("the attribute \"%s\" refers to an element of another document", pAttribute->GetName().c_str()));
		PutU32(found->second);
		return true;
	}

	template <class T> void PutScalar(const T &value)
	{
		if constexpr (std::is_same_v<T, bool>)
			m_Out += (char)(value ? 1 : 0);
		else if constexpr (std::is_same_v<T, CUtlString> || std::is_same_v<T, CUtlBinaryBlock>)
		{
			PutU32((uint32)value.size());
			m_Out.append((const char *)value.data(), value.size());
		}
		else
			m_Out.append((const char *)&value, sizeof(T));
	}

	bool PutValue(const CDmAttribute *pAttribute, const CDmxDocument *pDocument, CUtlString *pError)
	{
		bool bOk = true;
		std::visit(
			[&](const auto &value)
			{
				using T = std::decay_t<decltype(value)>;
				if constexpr (std::is_same_v<T, CDmElement *>)
					bOk = PutElement(value, pDocument, pAttribute, pError);
				else if constexpr (std::is_same_v<T, std::vector<CDmElement *>>)
				{
					PutU32((uint32)value.size());
					for (const CDmElement *pElement : value)
						if (!(bOk = PutElement(pElement, pDocument, pAttribute, pError)))
							return;
				}
				else if constexpr (DmScalarValue<T>)
				{
					if constexpr (std::is_same_v<T, CUtlString> || std::is_same_v<T, CUtlBinaryBlock>)
					{
						if (value.size() > UINT32_MAX)
						{
							bOk = Fail(pError, V_Format("the attribute \"%s\" is too large for the binary encoding", pAttribute->GetName().c_str()));
							return;
						}
					}
					PutScalar(value);
				}
				else if constexpr (!std::is_same_v<T, std::monostate>)
				{
					using E = typename T::value_type;
					if (value.size() > UINT32_MAX / 64)
					{
						bOk = Fail(pError, V_Format("the attribute \"%s\" is too large for the binary encoding", pAttribute->GetName().c_str()));
						return;
					}
					PutU32((uint32)value.size());
					if constexpr (IsPlainValue<E>)
						m_Out.append((const char *)value.data(), value.size() * sizeof(E));
					else
						for (size_t i = 0; i < value.size(); ++i)
							PutScalar((E)value[i]);
				}
			},
			pAttribute->GetVariant());
		return bOk;
	}

	std::string m_Out;
	std::unordered_map<const CDmElement *, uint32> m_Indices;
	std::unordered_map<std::string_view, uint32> m_StringIndices;
	std::vector<const CUtlString *> m_Strings;
};

// ---------------------------------------------------------------------------------------------
// Reader

class CBinaryReader
{
public:
	CBinaryReader(const char *data, size_t size, size_t bodyOffset, const char *sourceName, CDmxDocument &doc)
		: m_pData((const uint8 *)data), m_nSize(size), m_nPos(bodyOffset), m_nBodyStart(bodyOffset), m_pSourceName(sourceName), m_Doc(doc)
	{
	}

	bool Read(const DmxHeader_t &header, CUtlString *pError)
	{
		if (header.encodingVersion != DMX_BINARY_ENCODING_VERSION)
			return Fail(pError, 0, V_Format("binary encoding version %d is not read by this reader (it reads version %d)", header.encodingVersion,
				(int)DMX_BINARY_ENCODING_VERSION));
		if (m_nBodyStart == 0 || m_pData[m_nBodyStart - 1] != '\0')
			return Fail(pError, m_nBodyStart, "the header line is not ended by a NUL byte");
		if (!ReadStrings(pError) || !ReadElements(pError) || !ReadAttributes(pError))
			return false;

		const size_t crcOffset = m_nPos;
		uint32 stored;
		if (!ReadU32(stored, "the checksum", pError))
			return false;
		if (m_nPos != m_nSize)
			return Fail(pError, m_nPos, V_Format("%zu bytes follow the end of the data", m_nSize - m_nPos));
		const uint32 actual = CRC32_ProcessSingleBuffer(m_pData + m_nBodyStart, crcOffset - m_nBodyStart);
		if (actual != stored)
			return Fail(pError, crcOffset,
				V_Format("the checksum of bytes %zu to %zu does not match (stored %08x, computed %08x): the file is damaged", m_nBodyStart, crcOffset,
					stored, actual));
		m_Doc.SetRoot(m_Elements[0]);
		return true;
	}

private:
	bool Fail(CUtlString *pError, size_t offset, const CUtlString &message)
	{
		if (pError)
			*pError = V_Format("%s: offset %zu: %s", m_pSourceName, offset, message.c_str());
		return false;
	}

	size_t Left() const { return m_nSize - m_nPos; }

	bool ReadU32(uint32 &value, const char *what, CUtlString *pError)
	{
		if (Left() < 4)
			return Fail(pError, m_nPos, V_Format("the file ends in %s", what));
		memcpy(&value, m_pData + m_nPos, 4);
		m_nPos += 4;
		return true;
	}

	// A count of entries of at least `entryBytes` bytes each, checked against the bytes left.
	bool ReadCount(uint32 &count, size_t entryBytes, const char *what, CUtlString *pError)
	{
		const size_t at = m_nPos;
		if (!ReadU32(count, what, pError))
			return false;
		if ((uint64)count * entryBytes > Left())
			return Fail(pError, at, V_Format("%s: %u entries of at least %zu bytes cannot fit in the %zu bytes left", what, count, entryBytes, Left()));
		return true;
	}

	bool ReadStrings(CUtlString *pError)
	{
		uint32 count, bytes;
		if (!ReadCount(count, 4, "the string table's count", pError))
			return false;
		const size_t at = m_nPos;
		if (!ReadU32(bytes, "the string table's size", pError))
			return false;
		if (bytes > Left())
			return Fail(pError, at, V_Format("the string table claims %u bytes, %zu are left", bytes, Left()));
		if ((uint64)count * 4 > bytes)
			return Fail(pError, at, V_Format("the string table claims %u strings in %u bytes", count, bytes));
		const size_t end = m_nPos + bytes;
		m_Strings.reserve(count);
		for (uint32 i = 0; i < count; ++i)
		{
			const size_t lengthAt = m_nPos;
			uint32 length;
			memcpy(&length, m_pData + m_nPos, 4);
			m_nPos += 4;
			if (length > end - m_nPos)
				return Fail(pError, lengthAt, V_Format("string %u of the table claims %u bytes, the table has %zu left", i, length, end - m_nPos));
			m_Strings.emplace_back((const char *)m_pData + m_nPos, length);
			m_nPos += length;
			if (i + 1 < count && end - m_nPos < 4)
				return Fail(pError, m_nPos, V_Format("the string table ends after %u of its %u strings", i + 1, count));
		}
		if (m_nPos != end)
			return Fail(pError, m_nPos, V_Format("%zu bytes of the string table hold no string", end - m_nPos));
		return true;
	}

	bool ReadString(std::string_view &out, const char *what, CUtlString *pError)
	{
		const size_t at = m_nPos;
		uint32 index;
		if (!ReadU32(index, what, pError))
			return false;
		if (index >= m_Strings.size())
			return Fail(pError, at, V_Format("%s: string %u does not exist (the table has %zu)", what, index, m_Strings.size()));
		out = m_Strings[index];
		return true;
	}

	bool ReadElements(CUtlString *pError)
	{
		uint32 count;
		const size_t at = m_nPos;
		if (!ReadCount(count, ELEMENT_ENTRY_BYTES, "the element count", pError))
			return false;
		if (count == 0)
			return Fail(pError, at, "the file holds no element");
		m_Elements.reserve(count);
		for (uint32 i = 0; i < count; ++i)
		{
			std::string_view typeName;
			if (!ReadString(typeName, "an element's type name", pError))
				return false;
			DmElementId_t id;
			memcpy(id.m_Bytes, m_pData + m_nPos, 16);
			CDmElement *pElement = m_Doc.CreateElement(typeName, {}, &id);
			if (!pElement)
				return Fail(pError, m_nPos, V_Format("element %u has the id %s of an earlier element", i, id.Text().c_str()));
			m_nPos += 16;
			m_Elements.push_back(pElement);
		}
		return true;
	}

	bool ReadAttributes(CUtlString *pError)
	{
		for (uint32 i = 0; i < (uint32)m_Elements.size(); ++i)
		{
			CDmElement *pElement = m_Elements[i];
			uint32 count;
			if (!ReadCount(count, MIN_ATTRIBUTE_BYTES, "an element's attribute count", pError))
				return false;
			CDmxAttributeNameIndex names(pElement);
			bool bHaveName = false;
			for (uint32 a = 0; a < count; ++a)
			{
				const size_t at = m_nPos;
				std::string_view name;
				if (!ReadString(name, "an attribute name", pError))
					return false;
				if (Left() < 1)
					return Fail(pError, m_nPos, "the file ends in an attribute's type");
				const uint8 type = m_pData[m_nPos];
				if (!DmIsValidType(type))
					return Fail(pError, m_nPos, V_Format("the attribute \"%.*s\" has the type %u, which does not exist", (int)name.size(), name.data(), type));
				++m_nPos;
				CDmAttribute *pAttribute;
				if (name == "name")
				{
					if (type != AT_STRING)
						return Fail(pError, at, V_Format("the attribute \"name\" of element %u must be a string", i));
					if (bHaveName)
						return Fail(pError, at, V_Format("the attribute \"name\" appears twice in element %u", i));
					bHaveName = true;
					pAttribute = pElement->GetAttribute(0);
				}
				else
				{
					if (names.Has(name))
						return Fail(pError, at, V_Format("the attribute \"%.*s\" appears twice in element %u", (int)name.size(), name.data(), i));
					pAttribute = CDmxElementBuilder::Append(pElement, name, (DmAttributeType_t)type);
				}
				if (!ReadValue(pAttribute, pError))
					return false;
			}
		}
		return true;
	}

	bool ReadElementIndex(CDmElement *&pElement, CUtlString *pError)
	{
		const size_t at = m_nPos;
		uint32 index;
		if (!ReadU32(index, "an element reference", pError))
			return false;
		if (index == UINT32_MAX)
		{
			pElement = nullptr;
			return true;
		}
		if (index >= m_Elements.size())
			return Fail(pError, at, V_Format("a reference to element %u, of %zu", index, m_Elements.size()));
		pElement = m_Elements[index];
		return true;
	}

	template <class T> bool ReadScalar(T &value, CUtlString *pError)
	{
		if constexpr (std::is_same_v<T, CDmElement *>)
			return ReadElementIndex(value, pError);
		else if constexpr (std::is_same_v<T, bool>)
		{
			if (Left() < 1)
				return Fail(pError, m_nPos, "the file ends in a bool");
			const uint8 b = m_pData[m_nPos];
			if (b > 1)
				return Fail(pError, m_nPos, V_Format("a bool holds %u", b));
			value = b != 0;
			++m_nPos;
			return true;
		}
		else if constexpr (std::is_same_v<T, CUtlString> || std::is_same_v<T, CUtlBinaryBlock>)
		{
			uint32 length;
			if (!ReadCount(length, 1, std::is_same_v<T, CUtlString> ? "a string's length" : "a binary value's length", pError))
				return false;
			value.assign((const char *)m_pData + m_nPos, (const char *)m_pData + m_nPos + length);
			m_nPos += length;
			return true;
		}
		else
		{
			if (Left() < sizeof(T))
				return Fail(pError, m_nPos, V_Format("the file ends in a %s", DmAttributeTypeName(DmAttributeTypeOf<T>::value)));
			memcpy((void *)&value, m_pData + m_nPos, sizeof(T));
			m_nPos += sizeof(T);
			return true;
		}
	}

	bool ReadValue(CDmAttribute *pAttribute, CUtlString *pError)
	{
		bool bOk = true;
		std::visit(
			[&](const auto &stored)
			{
				using T = std::decay_t<decltype(stored)>;
				if constexpr (DmScalarValue<T>)
				{
					T value {};
					bOk = ReadScalar(value, pError);
					if (bOk)
						pAttribute->SetValue(value);
				}
				else if constexpr (!std::is_same_v<T, std::monostate>)
				{
					using E = typename T::value_type;
					constexpr size_t entryBytes = FixedSize<E>() ? FixedSize<E>() : 4;
					uint32 count;
					if (!(bOk = ReadCount(count, entryBytes, "an array's count", pError)))
						return;
					T values;
					if constexpr (IsPlainValue<E>)
					{
						if (count)
						{
							values.resize(count);
							memcpy((void *)values.data(), m_pData + m_nPos, (size_t)count * sizeof(E));
							m_nPos += (size_t)count * sizeof(E);
						}
					}
					else
					{
						values.reserve(count);
						for (uint32 k = 0; k < count && bOk; ++k)
						{
							E value {};
							bOk = ReadScalar(value, pError);
							values.push_back(std::move(value));
						}
						if (!bOk)
							return;
					}
					pAttribute->SetArray(std::move(values));
				}
			},
			pAttribute->GetVariant());
		return bOk;
	}

	const uint8 *m_pData;
	size_t m_nSize;
	size_t m_nPos;
	size_t m_nBodyStart;
	const char *m_pSourceName;
	CDmxDocument &m_Doc;
	std::vector<std::string_view> m_Strings;
	std::vector<CDmElement *> m_Elements;
};

class CBinarySerializer final : public IDmxSerializer
{
public:
	const char *GetEncodingName() const override { return DMX_ENCODING_BINARY; }
	int GetEncodingVersion() const override { return DMX_BINARY_ENCODING_VERSION; }
	bool IsBinary() const override { return true; }

	bool Unserialize(const char *data, size_t size, size_t bodyOffset, const DmxHeader_t &header, const char *sourceName, CDmxDocument &doc,
		CUtlString *pError) override
	{
		CBinaryReader reader(data, size, bodyOffset, sourceName, doc);
		return reader.Read(header, pError);
	}

	bool Serialize(CUtlBuffer &out, const DmxHeader_t &header, const CDmElement *pRoot, CUtlString *pError) override
	{
		CBinaryWriter writer;
		return writer.Write(out, header, pRoot, pError);
	}
};
} // namespace

IDmxSerializer *DmxBinarySerializer()
{
	static CBinarySerializer s_Serializer;
	return &s_Serializer;
}
