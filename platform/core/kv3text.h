// The text form of KeyValues3 documents: the parser, the writer, and the identifiers of
// encodings and formats.
//
// A document starts with one header line, naming the encoding and the format:
//   <!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->
// and holds one value: a table `{ name = value ... }`, an array `[ value, value, ]`, a string in
// double or single quotes (or a multi-line string between """ lines), a number, true, false,
// null, or a binary blob `#[ 0a ff ]`. Comments are `//` to the end of a line and `/* ... */`.
//
// Every parse error names the source, line and column: "NAME(LINE,COL): MESSAGE". Nesting is
// limited to KV3_MAX_NESTING levels, so that a hostile file cannot exhaust the stack.
#pragma once

#include <cstring>
#include <string_view>

#include "core/keyvalues3.h"
#include "core/utlbuffer.h"
#include "core/utlstring.h"

// A name and a 16-byte identifier that together name an encoding or a format.
struct KV3ID_t
{
	const char *m_name;
	uint8 m_id[16];

	bool operator==(const KV3ID_t &other) const;
	// The identifier as GUID text, "e21c7f3c-8a33-41c5-9977-a76d3a32aa0d" (no braces).
	CUtlString GuidText() const;
};

extern const KV3ID_t KV3_ENCODING_TEXT;	 // "text"
extern const KV3ID_t KV3_FORMAT_GENERIC; // "generic": as the expected format, accepts any format

enum { KV3_MAX_NESTING = 512 };

struct KV3ParseError_t
{
	int line = 0;	// 1-based; 0 when the error has no position (a file that cannot be read)
	int column = 0; // 1-based, in characters
	CUtlString message;
};

// What a header line names.
struct KV3HeaderInfo_t
{
	CUtlString encodingName;
	uint8 encodingId[16] = {};
	CUtlString formatName;
	uint8 formatId[16] = {};
	KV3ID_t Format() const
	{
		KV3ID_t id = { formatName.c_str(), {} };
		memcpy(id.m_id, formatId, sizeof(formatId));
		return id;
	}
};
// Reads the header line at the start of a text; false when there is none or it is malformed.
bool KV3ReadHeader(std::string_view text, KV3HeaderInfo_t &info);

// The header line for an encoding and a format, without the line end.
CUtlString KV3HeaderLine(const KV3ID_t &encoding, const KV3ID_t &format);
// True when the text (after an optional UTF-8 byte order mark and blanks) starts with "<!-- kv3".
bool KV3TextHasHeader(std::string_view text);

// Parsing. On success the value (or the context's root) holds the document; on failure it is
// left as it was, false is returned and `error` (and `pDetail`) say what and where. `format` is
// the expected format: a file of another format is refused, unless KV3_FORMAT_GENERIC is given.
// `sourceName` names the text in messages (a file name; "<text>" when null).
bool LoadKV3(CKeyValues3Context *pContext, CUtlString *error, const CUtlBuffer *buffer, const KV3ID_t &format,
	const char *sourceName = nullptr, KV3ParseError_t *pDetail = nullptr);
bool LoadKV3(KeyValues3 *value, CUtlString *error, std::string_view text, const KV3ID_t &format,
	const char *sourceName = nullptr, KV3ParseError_t *pDetail = nullptr);
bool LoadKV3Text_NoHeader(KeyValues3 *value, CUtlString *error, std::string_view text, const KV3ID_t &format,
	const char *sourceName = nullptr, KV3ParseError_t *pDetail = nullptr);
// Reads the file through CoreFileSystem(); with a null or empty path ID the path is taken as it
// stands.
bool LoadKV3FromFile(CKeyValues3Context *pContext, CUtlString *error, const char *path, const char *pathID,
	const KV3ID_t &format, KV3ParseError_t *pDetail = nullptr);

// Writing. Appends the header line and the value's text to `buffer`. Only the "text" encoding
// is written; pointers cannot be written. Members keep their order of creation.
enum KV3SaveFlags_t
{
	KV3_SAVE_NO_HEADER = 0x1, // the value only, for printing
};
bool SaveKV3(const KV3ID_t &encoding, const KV3ID_t &format, const KeyValues3 *value, CUtlString *error,
	CUtlBuffer *buffer, uint flags = 0);

// Prints a value's text to the log (channel "General").
void DebugPrintKV3(const KeyValues3 *value);
