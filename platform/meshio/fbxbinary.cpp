// The binary FBX node format.
#include <cstring>

#include "core/strtools.h"
#include "meshio/fbxdocument.h"
#include "meshio/fbxparsers.h"

namespace
{
const char s_BinaryMagic[] = "Kaydara FBX Binary  "; // followed by a zero byte, 0x1a, 0x00
const char s_BinaryPrefix[] = "Kaydara FBX Binary";
enum
{
	BINARY_HEADER_SIZE = 27,
	// zlib's deflate never packs more than this many bytes into one.
	MAX_DEFLATE_RATIO = 1032,
};

template <typename T> T ReadLE(const unsigned char *p)
{
	T value;
	memcpy(&value, p, sizeof(T));
	return value; // the formats are little-endian, as is every machine the tool runs on
}
} // namespace

bool CFbxDocument::LooksLikeBinaryFbx(std::string_view bytes)
{
	// The prefix alone decides, so that a damaged header is reported as such.
	return bytes.size() >= sizeof(s_BinaryPrefix) - 1 && memcmp(bytes.data(), s_BinaryPrefix, sizeof(s_BinaryPrefix) - 1) == 0;
}

CFbxBinaryParser::CFbxBinaryParser(CFbxDocument &document, CUtlString &error)
	: m_Document(document), m_Error(error), m_pBytes((const unsigned char *)document.m_Bytes.data()), m_nSize(document.m_Bytes.size())
{
}

bool CFbxBinaryParser::Fail(uint64 offset, const char *fmt, ...)
{
	va_list args;
	va_start(args, fmt);
	m_Error = m_Document.Where(offset) + ": " + V_FormatV(fmt, args);
	va_end(args);
	return false;
}

bool CFbxBinaryParser::Parse()
{
	if (m_nSize < BINARY_HEADER_SIZE)
		return Fail(0, "the binary FBX header is cut off (%llu bytes, it needs %d)", (unsigned long long)m_nSize, (int)BINARY_HEADER_SIZE);
	if (memcmp(m_pBytes, s_BinaryMagic, sizeof(s_BinaryMagic)) != 0)
		return Fail(0, "the binary FBX header is damaged (\"Kaydara FBX Binary\" is not followed by two blanks and a zero byte)");
	m_Document.m_nVersion = ReadLE<uint32>(m_pBytes + 23);
	m_b64Bit = m_Document.m_nVersion >= 7500;
	m_nRecordHeaderSize = m_b64Bit ? 25 : 13;
	uint64 position = BINARY_HEADER_SIZE;
	return ReadNodeList(position, m_nSize, 0, m_Document.m_nFirstTopLevel, true);
}

bool CFbxBinaryParser::ReadNodeList(uint64 &position, uint64 end, int depth, int32 &firstChild, bool bTopLevel)
{
	if (depth >= CFbxDocument::MAX_DEPTH)
		return Fail(position, "nodes nest deeper than %d levels", (int)CFbxDocument::MAX_DEPTH);
	firstChild = -1;
	int32 previous = -1;
	for (;;)
	{
		if (!bTopLevel && position == end)
			return true; // a child list that fills its parent without an end marker
		bool bEndMarker = false;
		int32 index = -1;
		if (!ReadNode(position, end, depth, bEndMarker, index))
			return false;
		if (bEndMarker)
			return true;
		if (previous >= 0)
			m_Document.m_Nodes[previous].nNextSibling = index;
		else
			firstChild = index;
		previous = index;
	}
}

bool CFbxBinaryParser::ReadNode(uint64 &position, uint64 end, int depth, bool &bEndMarker, int32 &index)
{
	const uint64 start = position;
	if (end - position < m_nRecordHeaderSize)
		return Fail(start, "the file ends inside a node record (%llu bytes left, a record needs %u)", (unsigned long long)(end - position),
			m_nRecordHeaderSize);
	const unsigned char *p = m_pBytes + position;
	uint64 endOffset, propertyCount, propertyBytes;
	if (m_b64Bit)
	{
		endOffset = ReadLE<uint64>(p);
		propertyCount = ReadLE<uint64>(p + 8);
		propertyBytes = ReadLE<uint64>(p + 16);
	}
	else
	{
		endOffset = ReadLE<uint32>(p);
		propertyCount = ReadLE<uint32>(p + 4);
		propertyBytes = ReadLE<uint32>(p + 8);
	}
	const uint8 nameLength = p[m_nRecordHeaderSize - 1];
	position += m_nRecordHeaderSize;
	if (endOffset == 0 && propertyCount == 0 && propertyBytes == 0 && nameLength == 0)
	{
		bEndMarker = true;
		return true;
	}
	if (endOffset > end)
		return Fail(start, "the node ends at offset %llu, past the end of %s (%llu)", (unsigned long long)endOffset,
			depth ? "its parent" : "the file", (unsigned long long)end);
	if (endOffset < position + nameLength)
		return Fail(start, "the node's end offset %llu lies before its own name", (unsigned long long)endOffset);
	const std::string_view name((const char *)m_pBytes + position, nameLength);
	position += nameLength;
	if (propertyBytes > endOffset - position)
		return Fail(start, "node \"%.*s\": its properties (%llu bytes) do not fit inside the node", (int)name.size(), name.data(),
			(unsigned long long)propertyBytes);
	if (propertyCount > propertyBytes)
		return Fail(start, "node \"%.*s\": %llu properties cannot fit in %llu bytes", (int)name.size(), name.data(),
			(unsigned long long)propertyCount, (unsigned long long)propertyBytes);

	index = (int32)m_Document.m_Nodes.size();
	FbxNode_t node;
	node.name = name;
	node.nOffset = start;
	node.nFirstProperty = (uint32)m_Document.m_Properties.size();
	node.nPropertyCount = (uint32)propertyCount;
	m_Document.m_Nodes.push_back(node);

	const uint64 propertyEnd = position + propertyBytes;
	for (uint64 i = 0; i < propertyCount; ++i)
	{
		if (!ReadProperty(position, propertyEnd))
			return false;
	}
	if (position != propertyEnd)
		return Fail(start, "node \"%.*s\": its properties take %llu bytes, the record says %llu", (int)name.size(), name.data(),
			(unsigned long long)(position - (propertyEnd - propertyBytes)), (unsigned long long)propertyBytes);
	if (position < endOffset)
	{
		int32 firstChild = -1;
		if (!ReadNodeList(position, endOffset, depth + 1, firstChild, false))
			return false;
		m_Document.m_Nodes[index].nFirstChild = firstChild;
		if (position != endOffset)
			return Fail(position, "node \"%.*s\": %llu stray bytes after the end of its children", (int)name.size(), name.data(),
				(unsigned long long)(endOffset - position));
	}
	return true;
}

bool CFbxBinaryParser::ReadProperty(uint64 &position, uint64 end)
{
	const uint64 start = position;
	if (position >= end)
		return Fail(start, "a property is cut off at the end of its node's property list");
	FbxProperty_t property;
	property.nOffset = start;
	property.cType = (char)m_pBytes[position++];
	const uint64 left = end - position;
	const unsigned char *p = m_pBytes + position;
	auto need = [&](uint64 size) -> bool {
		if (left < size)
			return Fail(start, "property of type '%c' needs %llu bytes, %llu are left", property.cType, (unsigned long long)size,
				(unsigned long long)left);
		return true;
	};
	switch (property.cType)
	{
	case 'Y':
		if (!need(2))
			return false;
		property.nInt = ReadLE<int16>(p);
		property.flDouble = (double)property.nInt;
		position += 2;
		break;
	case 'C':
		if (!need(1))
			return false;
		property.nInt = p[0];
		property.flDouble = (double)property.nInt;
		position += 1;
		break;
	case 'I':
		if (!need(4))
			return false;
		property.nInt = ReadLE<int32>(p);
		property.flDouble = (double)property.nInt;
		position += 4;
		break;
	case 'L':
		if (!need(8))
			return false;
		property.nInt = ReadLE<int64>(p);
		property.flDouble = (double)property.nInt;
		position += 8;
		break;
	case 'F':
		if (!need(4))
			return false;
		property.flDouble = ReadLE<float>(p);
		property.nInt = FbxDoubleToInt64(property.flDouble);
		position += 4;
		break;
	case 'D':
		if (!need(8))
			return false;
		property.flDouble = ReadLE<double>(p);
		property.nInt = FbxDoubleToInt64(property.flDouble);
		position += 8;
		break;
	case 'S':
	case 'R':
	{
		if (!need(4))
			return false;
		const uint32 length = ReadLE<uint32>(p);
		if (length > left - 4)
			return Fail(start, "a %s of %u bytes runs past the end of its node (%llu bytes left)", property.cType == 'S' ? "string" : "raw block",
				length, (unsigned long long)(left - 4));
		property.data = std::string_view((const char *)p + 4, length);
		position += 4 + (uint64)length;
		break;
	}
	case 'f':
	case 'd':
	case 'l':
	case 'i':
	case 'b':
	case 'c':
	{
		if (!need(12))
			return false;
		const uint32 count = ReadLE<uint32>(p);
		const uint32 encoding = ReadLE<uint32>(p + 4);
		const uint32 storedBytes = ReadLE<uint32>(p + 8);
		if (storedBytes > left - 12)
			return Fail(start, "an array of %u stored bytes runs past the end of its node (%llu bytes left)", storedBytes,
				(unsigned long long)(left - 12));
		const uint64 elementSize = FbxArrayElementSize(property.cType);
		const uint64 rawBytes = (uint64)count * elementSize;
		if (encoding == 0)
		{
			if (rawBytes != storedBytes)
				return Fail(start, "an array of %u elements of '%c' should take %llu bytes, it takes %u", count, property.cType,
					(unsigned long long)rawBytes, storedBytes);
		}
		else if (encoding == 1)
		{
			if (rawBytes > (uint64)storedBytes * MAX_DEFLATE_RATIO + 64)
				return Fail(start, "an array declares %u elements, more than its %u compressed bytes can hold", count, storedBytes);
		}
		else
			return Fail(start, "an array has the unknown encoding %u (0 plain and 1 zlib are known)", encoding);
		property.nArrayCount = count;
		property.nEncoding = (uint8)encoding;
		property.data = std::string_view((const char *)p + 12, storedBytes);
		position += 12 + (uint64)storedBytes;
		break;
	}
	default:
		return Fail(start, "unknown property type 0x%02x", (unsigned)(unsigned char)property.cType);
	}
	m_Document.m_Properties.push_back(property);
	return true;
}
