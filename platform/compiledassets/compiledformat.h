// The container shared by the compiled formats, and the records of each format as they lie in
// the file. README.md describes the same layout byte by byte; the static_asserts below hold
// the two together.
//
// A file is a 32-byte header, a table of sections, and the sections, each aligned to 16 bytes.
// A section is an array of fixed-size little-endian records (or bytes). Records refer to
// strings of the string section "STRS" by offset and length, and to ranges of other sections
// by first element and count.
#pragma once

#include <bit>
#include <cstring>
#include <string_view>
#include <vector>

#include "core/platform.h"
#include "core/utlbuffer.h"
#include "core/utlstring.h"

static_assert(std::endian::native == std::endian::little, "the compiled formats are read and written as little-endian memory");

namespace CompiledFormat
{
constexpr uint32 FourCC(const char (&text)[5])
{
	return (uint32)(uint8)text[0] | ((uint32)(uint8)text[1] << 8) | ((uint32)(uint8)text[2] << 16) | ((uint32)(uint8)text[3] << 24);
}

// Magics and versions of the four formats.
constexpr uint32 MODEL_MAGIC = FourCC("ZMDL");
constexpr uint32 TEXTURE_MAGIC = FourCC("ZTEX");
constexpr uint32 MATERIAL_MAGIC = FourCC("ZMAT");
constexpr uint32 SNAPSHOT_MAGIC = FourCC("ZSNP");
constexpr uint32 MODEL_VERSION = 1;
constexpr uint32 TEXTURE_VERSION = 1;
constexpr uint32 MATERIAL_VERSION = 1;
constexpr uint32 SNAPSHOT_VERSION = 1;

constexpr uint32 ALIGNMENT = 16;
inline uint64 Align(uint64 value)
{
	return (value + (ALIGNMENT - 1)) & ~(uint64)(ALIGNMENT - 1);
}

struct FileHeader_t
{
	uint32 magic;
	uint32 version;
	uint64 fileSize;	 // the whole file
	uint32 sectionCount; // entries of the section table that follows the header
	uint32 flags;		 // 0
	uint32 crc;			 // CRC-32 of the whole file, computed with this field zero
	uint32 reserved;	 // 0
};
static_assert(sizeof(FileHeader_t) == 32);
constexpr size_t HEADER_CRC_OFFSET = 24;

struct SectionEntry_t
{
	uint32 id;			// four characters
	uint32 elementSize; // bytes of one record (1 for byte sections)
	uint32 count;		// records
	uint32 reserved;	// 0
	uint64 offset;		// from the start of the file, a multiple of 16
};
static_assert(sizeof(SectionEntry_t) == 24);

struct StringRef_t
{
	uint32 offset; // into "STRS"
	uint32 length; // bytes, no terminator
};
static_assert(sizeof(StringRef_t) == 8);

// ---- Model records -------------------------------------------------------------------------

constexpr uint32 MESH_FLAG_TANGENTS = 0x1;
constexpr uint32 MESH_FLAG_SKINNED = 0x2;
constexpr uint32 MESH_FLAGS_ALL = 0x3;
constexpr uint32 SEQUENCE_FLAG_LOOPING = 0x1;
constexpr uint32 SEQUENCE_FLAG_DELTA = 0x2;
constexpr uint32 SEQUENCE_FLAG_SCALES = 0x4;
constexpr uint32 SEQUENCE_FLAGS_ALL = 0x7;
constexpr uint32 ATTACHMENT_FLAG_IGNORE_ROTATION = 0x1;
constexpr uint32 HITBOX_SET_FLAG_GENERATED = 0x1;
constexpr uint32 POSE_FLAG_LOOPING = 0x1;

struct ModelInfo_t // "MODL", one record
{
	float mins[3];
	float maxs[3];
	uint32 flags; // 0
	uint32 reserved;
};
static_assert(sizeof(ModelInfo_t) == 32);

struct MeshRecord_t // "MESH"
{
	StringRef_t name;
	uint32 lodMask;
	uint32 flags; // MESH_FLAG_*
	uint32 vertexCount;
	uint32 indexCount;
	uint32 indexSize; // 2 or 4
	uint32 firstBone; // into "MBON"
	uint32 boneCount;
	uint32 firstDrawCall; // into "DRAW"
	uint32 drawCallCount;
	float mins[3];
	float maxs[3];
	uint32 reserved;
	uint64 vertexOffset; // into "VERT"
	uint64 indexOffset;	 // into "INDX"
};
static_assert(sizeof(MeshRecord_t) == 88);

struct DrawCallRecord_t // "DRAW"
{
	uint32 material;
	uint32 firstIndex;
	uint32 indexCount;
	uint32 primitiveCount;
};
static_assert(sizeof(DrawCallRecord_t) == 16);

struct BoneRecord_t // "BONE"
{
	StringRef_t name;
	int32 parent;
	uint32 flags; // 0
	float position[3];
	float rotation[4]; // x, y, z, w
	float scale[3];
	float inverseBind[12]; // three rows of four
};
static_assert(sizeof(BoneRecord_t) == 104);

struct MaterialGroupRecord_t // "MGRP"
{
	StringRef_t name;
	uint32 firstRemap; // into "MREM"
	uint32 remapCount;
};
static_assert(sizeof(MaterialGroupRecord_t) == 16);

struct RemapRecord_t // "MREM"
{
	uint32 from;
	uint32 to;
};
static_assert(sizeof(RemapRecord_t) == 8);

struct BodyGroupRecord_t // "BGRP"
{
	StringRef_t name;
	uint32 firstChoice; // into "BCHO"
	uint32 choiceCount;
};
static_assert(sizeof(BodyGroupRecord_t) == 16);

struct BodyGroupChoiceRecord_t // "BCHO"
{
	StringRef_t name;
	uint32 firstMesh; // into "BMSH"
	uint32 meshCount;
};
static_assert(sizeof(BodyGroupChoiceRecord_t) == 16);

struct AttachmentRecord_t // "ATCH"
{
	StringRef_t name;
	int32 parentBone;
	uint32 flags; // ATTACHMENT_FLAG_*
	float origin[3];
	float angles[3];
};
static_assert(sizeof(AttachmentRecord_t) == 40);

struct HitboxSetRecord_t // "HSET"
{
	StringRef_t name;
	uint32 firstHitbox; // into "HBOX"
	uint32 hitboxCount;
	uint32 flags; // HITBOX_SET_FLAG_*
	uint32 reserved;
};
static_assert(sizeof(HitboxSetRecord_t) == 24);

struct HitboxRecord_t // "HBOX"
{
	StringRef_t name;
	int32 bone;
	uint32 reserved;
	float mins[3];
	float maxs[3];
};
static_assert(sizeof(HitboxRecord_t) == 40);

struct PoseParameterRecord_t // "POSE"
{
	StringRef_t name;
	float min;
	float max;
	float loopRange;
	uint32 flags; // POSE_FLAG_*
};
static_assert(sizeof(PoseParameterRecord_t) == 24);

struct SequenceRecord_t // "SEQN"
{
	StringRef_t name;
	uint32 frameCount;
	float fps;
	uint32 flags; // SEQUENCE_FLAG_*
	int32 weightList;
	uint32 firstActivity; // into "ACTV"
	uint32 activityCount;
	uint32 firstModifier; // into "ACTV", after the sequence's activities
	uint32 modifierCount;
	uint32 firstEvent; // into "EVNT"
	uint32 eventCount;
	int32 blendPoseParameter;
	uint32 firstBlendKey; // into "BKEY"
	uint32 blendKeyCount;
	uint32 firstAddLayer; // into "ADDL"
	uint32 addLayerCount;
	uint32 motionFlags;
	int32 motionRootBone;
	uint32 boneCount;
	uint64 animationOffset; // into "ANIM"
};
static_assert(sizeof(SequenceRecord_t) == 88);

struct ActivityRecord_t // "ACTV"
{
	StringRef_t name;
	int32 weight;
	uint32 reserved;
};
static_assert(sizeof(ActivityRecord_t) == 16);

struct EventRecord_t // "EVNT"
{
	StringRef_t eventClass;
	StringRef_t keys;
	int32 frame;
	uint32 reserved;
};
static_assert(sizeof(EventRecord_t) == 24);

struct BlendKeyRecord_t // "BKEY"
{
	uint32 sequence;
	float value;
};
static_assert(sizeof(BlendKeyRecord_t) == 8);

struct WeightListRecord_t // "WLST"
{
	StringRef_t name;
	uint32 firstWeight; // into "WGTS"
	uint32 weightCount; // the skeleton's bone count
};
static_assert(sizeof(WeightListRecord_t) == 16);

// ---- Texture records -----------------------------------------------------------------------

struct TextureInfo_t // "TEXI", one record
{
	uint32 format; // ECompiledTextureFormat
	uint32 flags;  // ECompiledTextureFlags
	uint32 width;
	uint32 height;
	uint32 mipCount;
	uint32 reserved[3];
};
static_assert(sizeof(TextureInfo_t) == 32);

struct MipRecord_t // "MIPS"
{
	uint32 width;
	uint32 height;
	uint64 offset; // into "DATA"
	uint64 size;
};
static_assert(sizeof(MipRecord_t) == 24);

// ---- Material records ----------------------------------------------------------------------

struct MaterialInfo_t // "MATI", one record
{
	StringRef_t shader;
	uint32 flags; // ECompiledMaterialFlags
	uint32 reserved;
};
static_assert(sizeof(MaterialInfo_t) == 16);

struct TextureRefRecord_t // "TEXR"
{
	StringRef_t key;
	StringRef_t path;
};
static_assert(sizeof(TextureRefRecord_t) == 16);

struct ConstantRecord_t // "CNST"
{
	StringRef_t key;
	uint32 type; // ECompiledConstantType
	uint32 reserved;
	uint32 values[4]; // four floats or four 32-bit integers
};
static_assert(sizeof(ConstantRecord_t) == 32);

// ---- Snapshot records ----------------------------------------------------------------------

struct SnapshotInfo_t // "SNPI", one record
{
	StringRef_t localSpaceBone;
	uint32 vertexCount;
	uint32 reserved;
};
static_assert(sizeof(SnapshotInfo_t) == 16);

// "ZMDL" as text, for messages.
CUtlString FourCCText(uint32 id);

// ---------------------------------------------------------------------------------------------
// Writing

class CCompiledFileWriter
{
public:
	CCompiledFileWriter(uint32 magic, uint32 version) : m_nMagic(magic), m_nVersion(version) {}

	// Adds a string to "STRS". Each reference has its own copy, so that the strings a loader
	// copies out never add up to more than the section holds.
	StringRef_t AddString(std::string_view text);
	// Adds a section of `count` records of `elementSize` bytes.
	void AddSection(uint32 id, uint32 elementSize, const void *pData, size_t count);
	template <typename T> void AddSection(uint32 id, const std::vector<T> &records)
	{
		AddSection(id, sizeof(T), records.data(), records.size());
	}
	// Lays out the header, the table, the string section and the sections, with the checksum.
	bool Finish(CUtlBuffer &out, CUtlString *pError);

private:
	struct Section_t
	{
		uint32 id;
		uint32 elementSize;
		std::vector<uint8> data;
		size_t count;
	};
	uint32 m_nMagic;
	uint32 m_nVersion;
	std::vector<Section_t> m_Sections;
	std::vector<uint8> m_Strings;
};

// Appends bytes to a byte section at the next 16-byte boundary and gives their offset.
uint64 AppendAligned(std::vector<uint8> &blob, const void *pData, size_t size);

// ---------------------------------------------------------------------------------------------
// Reading

struct SectionSpec_t
{
	uint32 id;
	uint32 elementSize;
};

class CCompiledFileReader
{
public:
	// Checks the header (magic, version, size, checksum) and the section table against the
	// format's sections: each must be there once, with its record size, inside the file.
	bool Open(const void *pData, size_t size, const char *pszName, uint32 magic, uint32 version, const char *pszKind,
		const SectionSpec_t *pSpecs, int nSpecs, CUtlString *pError);

	// The records of a section (every section the format lists exists after a successful Open).
	template <typename T> const T *Records(uint32 id, uint32 &count) const
	{
		const SectionEntry_t *pEntry = Find(id);
		count = pEntry ? pEntry->count : 0;
		return pEntry ? reinterpret_cast<const T *>(m_pData + pEntry->offset) : nullptr;
	}
	// The one record of a section that must hold exactly one.
	template <typename T> bool SingleRecord(uint32 id, T &out)
	{
		uint32 count;
		const T *pRecord = Records<T>(id, count);
		if (count != 1)
			return Fail("\"%s\" holds %u records, expected 1", FourCCText(id).c_str(), count);
		memcpy(&out, pRecord, sizeof(T));
		return true;
	}
	uint32 Count(uint32 id) const;
	const uint8 *Bytes(uint32 id, uint64 &size) const;

	// Copies a string, checking it lies inside "STRS". Every string read adds its length to a
	// total that may not exceed the string section, so that records cannot make the loader
	// copy one long string many times over.
	bool ReadString(const StringRef_t &ref, CUtlString &out);
	// A failure about the file's content: "NAME: what".
	bool Fail(const char *fmt, ...) FMTFUNCTION(2, 3);
	const CUtlString &Name() const { return m_Name; }
	CUtlString *ErrorOut() const { return m_pError; }

private:
	const SectionEntry_t *Find(uint32 id) const;

	const uint8 *m_pData = nullptr;
	size_t m_nSize = 0;
	CUtlString m_Name;
	CUtlString *m_pError = nullptr;
	std::vector<SectionEntry_t> m_Sections;
	const uint8 *m_pStrings = nullptr;
	uint64 m_nStringsSize = 0;
	uint64 m_nStringBytesRead = 0;
};

} // namespace CompiledFormat
