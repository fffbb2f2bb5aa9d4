// The two parsers that fill a CFbxDocument. Internal to the FBX reader.
#pragma once

#include <cstdarg>

#include "meshio/fbxdocument.h"

// Bytes per element of a binary array type ('f' 'd' 'l' 'i', and 'b' 'c' of one byte each).
inline uint64 FbxArrayElementSize(char type)
{
	return (type == 'd' || type == 'l') ? 8 : ((type == 'b' || type == 'c') ? 1 : 4);
}

// C conversion clamped to the range of int64 (NaN gives 0).
inline int64 FbxDoubleToInt64(double value)
{
	if (!(value == value))
		return 0;
	if (value >= 9.2233720368547758e18)
		return INT64_MAX;
	if (value <= -9.2233720368547758e18)
		return INT64_MIN;
	return (int64)value;
}

class CFbxBinaryParser
{
public:
	CFbxBinaryParser(CFbxDocument &document, CUtlString &error);
	bool Parse();

private:
	bool ReadNodeList(uint64 &position, uint64 end, int depth, int32 &firstChild, bool bTopLevel);
	bool ReadNode(uint64 &position, uint64 end, int depth, bool &bEndMarker, int32 &index);
	bool ReadProperty(uint64 &position, uint64 end);
	bool Fail(uint64 offset, const char *fmt, ...) FMTFUNCTION(3, 4);

	CFbxDocument &m_Document;
	CUtlString &m_Error;
	const unsigned char *m_pBytes;
	uint64 m_nSize;
	uint32 m_nRecordHeaderSize = 13;
	bool m_b64Bit = false;
};

class CFbxAsciiParser
{
public:
	CFbxAsciiParser(CFbxDocument &document, CUtlString &error);
	bool Parse();

private:
	bool ParseNodeList(int depth, int32 &firstChild, bool bTopLevel);
	bool ParseValues(FbxNode_t &node, bool &bHasChildren);
	bool ParseArray(FbxProperty_t &property);
	void SkipBlanks(); // spaces, tabs and carriage returns on the current line
	void SkipSpaceAndComments(); // also line ends and ";" comments
	bool Fail(const char *at, const char *fmt, ...) FMTFUNCTION(3, 4);
	uint64 Offset(const char *at) const { return (uint64)(at - m_pBegin); }

	CFbxDocument &m_Document;
	CUtlString &m_Error;
	const char *m_pBegin;
	const char *m_pCur;
	const char *m_pEnd;
};
