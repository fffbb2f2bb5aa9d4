// Reading and writing DMX files, the encodings, and the format updaters.
//
// Every DMX file starts with one header line naming its encoding and its format, each with a
// version:
//   <!-- dmx encoding keyvalues2 1 format model 2 -->
// Three encodings are built in: "keyvalues2" (text, elements with ids), "keyvalues2_noids"
// (text, elements without ids, each written where it is referenced) and "binary". The format
// says what the file holds ("model", "dmx", "ztex", ...); a file of an older format version is
// lifted to the current one by the format updaters when it is loaded. The encodings are
// described byte by byte in platform/datamodel/README.md.
//
//	CDmxDocument doc;
//	CUtlString error;
//	if (!DmxLoadFile(path, doc, &error))
//		Warning("%s\n", error.c_str()); // "body.dmx(12,5): expected '{' after element type ..."
//	DmxSaveFile(outPath, doc.GetRoot(), "binary", "dmx", DMX_CURRENT_FORMAT_VERSION, &error);
//
// Nothing here throws. Failures return false with a message that names the file and the line
// and column (text) or the byte offset (binary) and what was wrong; a document that fails to
// load is left empty.
#pragma once

#include <string_view>

#include "core/platform.h"
#include "core/utlbuffer.h"
#include "core/utlstring.h"
#include "datamodel/dmelement.h"

// Encoding names.
#define DMX_ENCODING_KEYVALUES2 "keyvalues2"
#define DMX_ENCODING_KEYVALUES2_NOIDS "keyvalues2_noids"
#define DMX_ENCODING_BINARY "binary"

// What the header line says.
struct DmxHeader_t
{
	CUtlString encodingName;
	int encodingVersion = 0;
	CUtlString formatName;
	int formatVersion = 0;
};

enum
{
	DMX_MAX_HEADER_LENGTH = 256, // longest header line accepted, line end included
};

// Reads the header line at the start of `data` (after an optional UTF-8 byte order mark and
// blank lines). On success `*pBodyOffset` (when given) is the offset of the first byte after
// the line end, and, when a NUL follows the line end (binary files), after the NUL.
bool DmxReadHeader(std::string_view data, DmxHeader_t &header, size_t *pBodyOffset = nullptr, CUtlString *pError = nullptr);
// The header line, without a line end.
CUtlString DmxHeaderLine(const DmxHeader_t &header);

enum DmxLoadFlags_t : uint
{
	DMX_LOAD_NO_FORMAT_UPDATE = 0x1, // keep the file's format version and attributes as they are
};

// Loads a file into `doc` (cleared first); the encoding comes from the header line. The file is
// read through CoreFileSystem(); with a null or empty path ID the path is taken as it stands.
bool DmxLoadFile(const char *path, CDmxDocument &doc, CUtlString *pError, const char *pathID = nullptr, uint flags = 0);
// The same from bytes in memory; `sourceName` names them in messages ("<buffer>" when null).
bool DmxLoadBuffer(const void *data, size_t size, const char *sourceName, CDmxDocument &doc, CUtlString *pError, uint flags = 0);

enum
{
	DMX_CURRENT_FORMAT_VERSION = -1, // as the format version of a save: the format's current one
};

// Writes the elements reachable from `pRoot` with an encoding ("binary", "keyvalues2",
// "keyvalues2_noids") and a format name and version. The file is written atomically: on any
// failure an existing file stays as it was.
bool DmxSaveFile(const char *path, const CDmElement *pRoot, const char *encodingName, const char *formatName, int formatVersion,
	CUtlString *pError);
// Appends the file's bytes to `out`.
bool DmxSaveBuffer(CUtlBuffer &out, const CDmElement *pRoot, const char *encodingName, const char *formatName, int formatVersion,
	CUtlString *pError);
// The document's root with the document's own format (and its current version when the
// document has none).
bool DmxSaveFile(const char *path, const CDmxDocument &doc, const char *encodingName, CUtlString *pError);

// An encoding. The built-in ones are always registered; more may be added.
class IDmxSerializer
{
public:
	virtual ~IDmxSerializer() = default;
	virtual const char *GetEncodingName() const = 0;
	// The version it writes; it reads this one and older ones.
	virtual int GetEncodingVersion() const = 0;
	virtual bool IsBinary() const = 0;
	// `data` is the whole file, `bodyOffset` the first byte after the header. Fills an empty
	// document and sets its root; on failure returns false with a message naming `sourceName`.
	virtual bool Unserialize(const char *data, size_t size, size_t bodyOffset, const DmxHeader_t &header, const char *sourceName,
		CDmxDocument &doc, CUtlString *pError) = 0;
	// Appends the whole file, header line included, to `out`.
	virtual bool Serialize(CUtlBuffer &out, const DmxHeader_t &header, const CDmElement *pRoot, CUtlString *pError) = 0;
};

// Registers an encoding (not owned; it must outlive its use). An encoding of the same name is
// replaced.
void DmxRegisterSerializer(IDmxSerializer *pSerializer);
// The encoding of that name, or null.
IDmxSerializer *DmxFindSerializer(std::string_view encodingName);

// A format updater lifts a document of format `formatName` from any version below `toVersion`
// to `toVersion`. After loading, the updaters of the file's format whose `toVersion` is above
// the file's version run in the order of `toVersion`; the document then has the highest
// `toVersion` of its format.
typedef bool (*DmxFormatUpdateFn_t)(CDmxDocument &doc, int fromVersion, CUtlString *pError);
struct DmxFormatUpdater_t
{
	const char *formatName;
	int toVersion;
	const char *description;
	DmxFormatUpdateFn_t pUpdate;
};
// Registers an updater (the strings must outlive it). The built-in ones are always registered.
void DmxRegisterFormatUpdater(const DmxFormatUpdater_t &updater);
// The current version of a format: the highest `toVersion` of its updaters, or 1 for a format
// that has none.
int DmxCurrentFormatVersion(std::string_view formatName);
// Runs the updaters that apply to the document's format and version. False, with a message,
// when one fails; the document is then in the state that updater left it.
bool DmxUpdateFormat(CDmxDocument &doc, CUtlString *pError);

// Mesh files ("model" and "dmx" formats) below version 2 name their vertex streams the way of
// the previous generation ("positions", "jointWeights", ...). This renames them in every
// DmeVertexData element of the document ("position$0", "blendweights$0", ...), with the
// "...Indices" attributes and the entries of "vertexFormat". Returns the number of attributes
// renamed. The format updater calls it; so may code that must lift a mesh of any version.
int DmxLiftVertexAttributeNames(CDmxDocument &doc);
