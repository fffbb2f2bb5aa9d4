// The node tree of an FBX file, binary or ASCII, read without interpreting the objects.
//
// Binary files start with "Kaydara FBX Binary  \0", a version, then node records: end offset,
// property count, property bytes and name (32-bit fields before version 7500, 64-bit from 7500
// on), the properties (Y C I F D L scalars, S R strings and raw bytes, f d l i b c arrays
// either plain or zlib-deflated), then the child records ended by a record of zeros.
// ASCII files hold "Name: value, value {" lines with ";" comments; arrays are written
// "*N { a: v, v, ... }" (FBX 7) or as plain value lists over several lines (FBX 6).
//
// The document keeps the file's bytes and refers into them: strings and arrays are decoded when
// they are read. Every count is checked against the bytes that are there, nesting is bounded,
// and an inflated array must give exactly its declared size. Errors name the file and the
// offset (binary) or line (ASCII).
#pragma once

#include <string_view>
#include <vector>

#include "core/platform.h"
#include "core/utlstring.h"

struct FbxProperty_t
{
	// 'Y' int16, 'C' bool, 'I' int32, 'L' int64, 'F' float, 'D' double (nInt and flDouble both
	// hold the value); 'S' string and 'R' raw bytes (data); 'f' 'd' 'l' 'i' 'b' binary arrays and
	// 'c' (bytes, as some exporters write booleans) with data holding the stored bytes and
	// nEncoding 0 plain or 1 zlib; 'a' an ASCII array (data holds
	// the text of its values); ASCII barewords are 'S'.
	char cType = 0;
	uint8 nEncoding = 0;
	uint32 nArrayCount = 0; // declared element count of an array
	int64 nInt = 0;
	double flDouble = 0.0;
	std::string_view data;
	uint64 nOffset = 0; // byte offset of the property in the file

	bool IsArray() const { return cType == 'f' || cType == 'd' || cType == 'l' || cType == 'i' || cType == 'b' || cType == 'c' || cType == 'a'; }
	bool IsNumber() const { return cType == 'Y' || cType == 'C' || cType == 'I' || cType == 'L' || cType == 'F' || cType == 'D'; }
	bool IsString() const { return cType == 'S' || cType == 'R'; }
};

struct FbxNode_t
{
	std::string_view name;
	uint32 nFirstProperty = 0;
	uint32 nPropertyCount = 0;
	int32 nFirstChild = -1;
	int32 nNextSibling = -1;
	uint64 nOffset = 0; // byte offset of the node's record or line in the file
};

class CFbxDocument
{
public:
	enum
	{
		MAX_DEPTH = 64,
	};

	// Reads a whole file from disk.
	bool LoadFile(const char *path, CUtlString &error);
	// Parses bytes (copied); `fileName` only names the source in messages.
	bool Parse(const char *fileName, std::string_view bytes, CUtlString &error);
	// True when the bytes start like an FBX file of either kind.
	static bool LooksLikeFbx(std::string_view bytes);
	static bool LooksLikeBinaryFbx(std::string_view bytes);

	bool IsBinary() const { return m_bBinary; }
	// The binary header's version, or the ASCII file's "FBXVersion" (0 when it has none).
	uint32 Version() const { return m_nVersion; }
	const CUtlString &FileName() const { return m_FileName; }

	// Top-level nodes: the first one, then NextSibling.
	const FbxNode_t *FirstTopLevel() const { return m_nFirstTopLevel >= 0 ? &m_Nodes[m_nFirstTopLevel] : nullptr; }
	const FbxNode_t *FirstChild(const FbxNode_t *node) const { return node->nFirstChild >= 0 ? &m_Nodes[node->nFirstChild] : nullptr; }
	const FbxNode_t *NextSibling(const FbxNode_t *node) const { return node->nNextSibling >= 0 ? &m_Nodes[node->nNextSibling] : nullptr; }
	// First child named so (null for the top level), or null.
	const FbxNode_t *FindChild(const FbxNode_t *parent, std::string_view name) const;
	const FbxNode_t *FindNextNamed(const FbxNode_t *after, std::string_view name) const;
	const FbxProperty_t *Property(const FbxNode_t *node, uint32 index) const
	{
		return index < node->nPropertyCount ? &m_Properties[node->nFirstProperty + index] : nullptr;
	}
	size_t NodeCount() const { return m_Nodes.size(); }

	// Scalar access; strings of binary files keep their "\0\1" class separators.
	static bool PropertyInt(const FbxProperty_t *property, int64 &out);
	static bool PropertyDouble(const FbxProperty_t *property, double &out);
	static std::string_view PropertyString(const FbxProperty_t *property);

	// The numbers of a node: its one array property, or (FBX 6 lists) all its number
	// properties. Conversions between integers and floating point follow C. false with a
	// message when the data is damaged, a value is not a number or an integer is out of range.
	bool ReadDoubles(const FbxNode_t *node, std::vector<double> &out, CUtlString &error) const;
	bool ReadInts(const FbxNode_t *node, std::vector<int32> &out, CUtlString &error) const;
	// Same for one array property.
	bool ReadArray(const FbxProperty_t &property, std::vector<double> &out, CUtlString &error) const;
	bool ReadArray(const FbxProperty_t &property, std::vector<int32> &out, CUtlString &error) const;

	// "file: offset N" (binary) or "file(line N)" (ASCII) for messages.
	CUtlString Where(uint64 offset) const;

private:
	friend class CFbxBinaryParser;
	friend class CFbxAsciiParser;

	template <typename T> bool ReadArrayT(const FbxProperty_t &property, std::vector<T> &out, CUtlString &error) const;
	template <typename T> bool ReadNodeT(const FbxNode_t *node, std::vector<T> &out, CUtlString &error) const;
	template <typename E> bool Inflate(const FbxProperty_t &property, std::vector<E> &out, CUtlString &error) const;

	CUtlString m_FileName;
	std::vector<char> m_Bytes;
	std::vector<FbxNode_t> m_Nodes;
	std::vector<FbxProperty_t> m_Properties;
	int32 m_nFirstTopLevel = -1;
	uint32 m_nVersion = 0;
	bool m_bBinary = false;
};
