// KeyValues3: the tree document of the import core.
//
// A value is one of ten kinds (KV3Type_t) with a subtype byte beside it. Values live in a
// CKeyValues3Context, which allocates them and everything they hold from one arena; destroying
// the context frees the whole document at once. A value is 16 bytes: a header that carries the
// owning context, the kind, flags and the subtype, and an 8-byte payload. Strings of up to 7
// bytes are held in the payload itself; longer ones live in the arena. Neither form is visible
// to a reader.
//
// Arrays and tables keep their elements in segments that are never moved, so a pointer to an
// element or member stays valid while its container grows; only replacing the container's
// content (ArrayResize, MakeTable, a setter) ends the life of what it held.
//
// A shared, immutable null value (KV3Null()) stands for every absent member, so readers never
// need to test for null pointers: GetMember() returns it, and every reader yields its zero.
#pragma once

#include <string_view>

#include "core/platform.h"
#include "core/utlstring.h"

class CKeyValues3Context;
class KeyValues3;

enum KV3Type_t : uint8
{
	KV3_TYPE_INVALID = 0,
	KV3_TYPE_NULL,
	KV3_TYPE_BOOL,
	KV3_TYPE_INT,
	KV3_TYPE_UINT,
	KV3_TYPE_DOUBLE,
	KV3_TYPE_STRING,
	KV3_TYPE_BINARY_BLOB,
	KV3_TYPE_ARRAY,
	KV3_TYPE_TABLE,
	KV3_TYPE_COUNT,
};

// "invalid", "null", ... "table"; "<unknown>" for anything out of range.
const char *KV3TypeName(int kind);

enum KV3SubType_t : uint8
{
	KV3_SUBTYPE_UNSPECIFIED = 0,
	KV3_SUBTYPE_ARRAY = 6,
	KV3_SUBTYPE_NULL = 7,
	KV3_SUBTYPE_TABLE = 8,
	KV3_SUBTYPE_BINARY_BLOB = 9,
	KV3_SUBTYPE_BOOL8 = 11,
	KV3_SUBTYPE_INT32 = 18,
	KV3_SUBTYPE_UINT32 = 19,
	KV3_SUBTYPE_INT64 = 20,
	KV3_SUBTYPE_UINT64 = 21,
	KV3_SUBTYPE_FLOAT32 = 22,
	KV3_SUBTYPE_FLOAT64 = 23,
	KV3_SUBTYPE_STRING = 24,
	KV3_SUBTYPE_POINTER = 25, // a "uint" value that holds a pointer
};

enum : uint32 { KV3_MEMBER_NAME_SEED = 0x31415926 };

// Hash of a member name: MurmurHash2 of the name folded to lower case, with the seed above; the
// empty name hashes to 0. constexpr, so that names written in code are hashed when compiled.
constexpr uint32 KV3HashMemberName(std::string_view name)
{
	if (name.empty())
		return 0;
	auto fold = [](char c) -> uint32 { return (uint8)((c >= 'A' && c <= 'Z') ? c + 32 : c); };
	const uint32 m = 0x5bd1e995;
	uint32 h = KV3_MEMBER_NAME_SEED ^ (uint32)name.size();
	size_t i = 0;
	for (; i + 4 <= name.size(); i += 4)
	{
		uint32 k = fold(name[i]) | (fold(name[i + 1]) << 8) | (fold(name[i + 2]) << 16) | (fold(name[i + 3]) << 24);
		k *= m;
		k ^= k >> 24;
		k *= m;
		h *= m;
		h ^= k;
	}
	switch (name.size() - i)
	{
	case 3:
		h ^= fold(name[i + 2]) << 16;
		[[fallthrough]];
	case 2:
		h ^= fold(name[i + 1]) << 8;
		[[fallthrough]];
	case 1:
		h ^= fold(name[i]);
		h *= m;
	}
	h ^= h >> 13;
	h *= m;
	h ^= h >> 15;
	return h;
}

// A member name: its hash and its text. Lookups compare the hash, then the text without case.
struct KV3MemberName_t
{
	uint32 m_nHash = 0;
	std::string_view m_Text;

	constexpr KV3MemberName_t() = default;
	constexpr KV3MemberName_t(const char *text) : m_nHash(KV3HashMemberName(text ? text : "")), m_Text(text ? text : "") {}
	constexpr KV3MemberName_t(std::string_view text) : m_nHash(KV3HashMemberName(text)), m_Text(text) {}
	KV3MemberName_t(const CUtlString &text) : KV3MemberName_t(std::string_view(text)) {}
	constexpr KV3MemberName_t(uint32 hash, std::string_view text) : m_nHash(hash), m_Text(text) {}
};

class KeyValues3
{
public:
	KeyValues3(const KeyValues3 &) = delete;
	KeyValues3 &operator=(const KeyValues3 &) = delete;

	KV3Type_t GetType() const { return KV3Type_t((m_nHeader >> 48) & 0xF); }
	KV3SubType_t GetSubType() const { return KV3SubType_t(m_nHeader >> 56); }
	// Changes only the subtype byte (for writers that tag what they store).
	void SetSubType(KV3SubType_t subType);
	CKeyValues3Context *GetContext() const;
	bool IsImmutable() const { return (Flags() & FLAG_IMMUTABLE) != 0; }

	bool IsNull() const { return GetType() == KV3_TYPE_NULL; }
	bool IsTable() const { return GetType() == KV3_TYPE_TABLE; }
	bool IsArray() const { return GetType() == KV3_TYPE_ARRAY; }
	bool IsString() const { return GetType() == KV3_TYPE_STRING; }
	bool IsPointer() const { return GetType() == KV3_TYPE_UINT && GetSubType() == KV3_SUBTYPE_POINTER; }
	bool IsNumber() const;

	// Raw readers: the content when the kind matches, otherwise zero or "".
	bool GetBoolValue() const { return GetType() == KV3_TYPE_BOOL && m_Data.b; }
	int64 GetInt64() const { return GetType() == KV3_TYPE_INT ? m_Data.i : 0; }
	uint64 GetUInt64() const { return GetType() == KV3_TYPE_UINT ? m_Data.u : 0; }
	double GetDouble() const { return GetType() == KV3_TYPE_DOUBLE ? m_Data.d : 0.0; }
	void *GetPointer() const { return IsPointer() ? (void *)m_Data.u : nullptr; }
	const char *GetString() const;
	uint32 GetStringLength() const;
	std::string_view GetStringView() const { return std::string_view(GetString(), GetStringLength()); }
	const uint8 *GetBinaryBlob() const;
	uint32 GetBinaryBlobSize() const;

	// Writers. Each replaces the value's content (and ends the life of what a container held).
	// On the shared null value they do nothing.
	void SetToNull();
	void SetBool(bool value);
	void SetInt(int64 value, KV3SubType_t subType = KV3_SUBTYPE_INT64);
	void SetInt32(int32 value) { SetInt(value, KV3_SUBTYPE_INT32); }
	void SetUInt(uint64 value, KV3SubType_t subType = KV3_SUBTYPE_UINT64);
	void SetDouble(double value, KV3SubType_t subType = KV3_SUBTYPE_FLOAT64);
	void SetPointer(void *pointer);
	void SetString(std::string_view text);
	void SetBinaryBlob(const void *data, uint32 size);
	void MakeArray(uint32 count = 0); // `count` null elements
	void MakeTable();				   // an empty table

	// Arrays.
	uint32 GetArrayCount() const;
	KeyValues3 *GetArrayElement(uint32 index); // null when out of range or no array
	const KeyValues3 *GetArrayElement(uint32 index) const;
	KeyValues3 *ArrayAppend(); // turns a non-array into an empty array first

	// Tables. Members keep the order in which they were created.
	uint32 GetMemberCount() const;
	KeyValues3 *GetMember(uint32 index);
	const KeyValues3 *GetMember(uint32 index) const;
	const char *GetMemberName(uint32 index) const;
	uint32 GetMemberNameHash(uint32 index) const;
	KeyValues3 *FindMember(const KV3MemberName_t &name);
	const KeyValues3 *FindMember(const KV3MemberName_t &name) const;
	// The member, created as null when absent. A value that is no table becomes an empty table.
	KeyValues3 *AddMember(const KV3MemberName_t &name);
	bool RemoveMember(const KV3MemberName_t &name);

	// Calls fn(element) for each element, or fn(name, hash, member) for each member, in order.
	template <typename Fn> void ForEachArrayElement(Fn &&fn) const;
	template <typename Fn> void ForEachMember(Fn &&fn) const;

private:
	friend class CKeyValues3Context;
	friend struct KV3Internal;

	enum : uint8
	{
		FLAG_INLINE_STRING = 0x1,
		FLAG_IMMUTABLE = 0x2,
	};

	KeyValues3() = default;
	void Init(CKeyValues3Context *pContext, KV3Type_t type, KV3SubType_t subType, uint8 flags = 0);
	uint8 Flags() const { return uint8((m_nHeader >> 52) & 0xF); }
	void SetHeader(KV3Type_t type, KV3SubType_t subType, uint8 flags);
	bool CheckWritable() const;

	uint64 m_nHeader = 0; // bits 0-47 context, 48-51 kind, 52-55 flags, 56-63 subtype
	union Data_t
	{
		bool b;
		int64 i;
		uint64 u;
		double d;
		char inlineString[8];
		const char *pString; // length stored in the 4 bytes before the text
		struct KV3Blob_t *pBlob;
		struct KV3List_t *pList;
	} m_Data = {};
};

static_assert(sizeof(KeyValues3) == 16, "KeyValues3 is meant to be 16 bytes");

// The shared immutable null value.
const KeyValues3 *KV3Null();

// The owner of a document or of free values. A document context has a root value; a pool
// context only hands out values (asking it for a root is fatal). Neither may be copied or
// moved: values point back at their context.
class CKeyValues3Context
{
public:
	enum Kind_t
	{
		DOCUMENT,
		POOL,
	};

	explicit CKeyValues3Context(Kind_t kind = DOCUMENT);
	~CKeyValues3Context();
	CKeyValues3Context(const CKeyValues3Context &) = delete;
	CKeyValues3Context &operator=(const CKeyValues3Context &) = delete;

	bool IsDocument() const { return m_eKind == DOCUMENT; }
	KeyValues3 *Root();
	// A new null value owned by the context.
	KeyValues3 *AllocValue();
	// Frees every value; the root becomes null.
	void Clear();

	size_t BytesReserved() const { return m_nBytesReserved; } // taken from the system
	size_t BytesUsed() const { return m_nBytesUsed; }		  // handed out to values

	// Arena allocation for the values of this context.
	void *Alloc(size_t size, size_t alignment = 8);
	// A copy of the text, terminated, with its length in the four bytes before it.
	const char *CopyString(std::string_view text);
	// Member names are kept once per context.
	const char *InternMemberName(uint32 hash, std::string_view text);

private:
	struct Chunk_t;
	struct NameSlot_t;
	void *AllocSlow(size_t size, size_t alignment);
	void GrowNameTable();

	Kind_t m_eKind;
	KeyValues3 m_Root;
	Chunk_t *m_pChunks = nullptr;
	char *m_pCursor = nullptr;
	char *m_pEnd = nullptr;
	size_t m_nNextChunkSize = 4096;
	size_t m_nBytesReserved = 0;
	size_t m_nBytesUsed = 0;
	NameSlot_t *m_pNames = nullptr;
	uint32 m_nNameCapacity = 0;
	uint32 m_nNameCount = 0;
};

// A value owned by itself, for records that keep a piece of a document after the document's
// context is gone. Copies are deep.
class CKV3OwnedValue
{
public:
	CKV3OwnedValue() = default;
	~CKV3OwnedValue();
	CKV3OwnedValue(const CKV3OwnedValue &other);
	CKV3OwnedValue &operator=(const CKV3OwnedValue &other);
	CKV3OwnedValue(CKV3OwnedValue &&other) noexcept;
	CKV3OwnedValue &operator=(CKV3OwnedValue &&other) noexcept;

	// The held value, or the shared null when empty.
	const KeyValues3 *Get() const;
	// A writable value (created as null on first use).
	KeyValues3 *Edit();
	void Set(const KeyValues3 *pSource);
	void Clear();

private:
	CKeyValues3Context *m_pContext = nullptr;
};

// ---------------------------------------------------------------------------------------------
// Value operations. Every one accepts a null pointer and treats it as an absent value.

// The member, or null when `table` is no table or has no such member.
KeyValues3 *FindMember(KeyValues3 *table, const KV3MemberName_t &name);
const KeyValues3 *FindMember(const KeyValues3 *table, const KV3MemberName_t &name);
// The member, or the shared null value when absent.
const KeyValues3 *GetMember(const KeyValues3 *table, const KV3MemberName_t &name);
// The member's own string; `defaultValue` when absent or no table; "" for a member of another kind.
const char *GetMemberString(const KeyValues3 *table, const KV3MemberName_t &name, const char *defaultValue = "");
bool GetMemberBool(const KeyValues3 *table, const KV3MemberName_t &name, bool defaultValue = false);
// Text conversion of a value: false (and `out` emptied) for null, tables and invalid values.
bool ReadString(const KeyValues3 *value, CUtlString &out);
bool GetBool(const KeyValues3 *value);
// Fills `count` floats: zeros for null; a string is parsed; an array gives its first elements
// and zero fills the rest; a single number gives the first float.
void ReadFloats(const KeyValues3 *value, int count, float *out);
uint32 ArrayLength(const KeyValues3 *value);
KeyValues3 *ArrayElement(KeyValues3 *value, uint32 index);
const KeyValues3 *ArrayElement(const KeyValues3 *value, uint32 index);
void ArrayResize(KeyValues3 *value, uint32 count);
KeyValues3 *AddMember(KeyValues3 *table, const KV3MemberName_t &name);
void SetMemberString(KeyValues3 *table, const KV3MemberName_t &name, std::string_view text);
void SetMemberInt(KeyValues3 *table, const KV3MemberName_t &name, int32 value);
void SetMemberBool(KeyValues3 *table, const KV3MemberName_t &name, bool value);
void SetString(KeyValues3 *value, std::string_view text);
void SetFloats(KeyValues3 *value, int count, const float *values);
void MakeTable(KeyValues3 *value);
// Deep copy of `source` into `dest` (which may belong to another context).
void CopyValue(KeyValues3 *dest, const KeyValues3 *source);
// Structural equality: same kinds (int and uint compare by number), same content, members in
// the same order with the same names. Subtypes are not compared.
bool KV3ValuesEqual(const KeyValues3 *a, const KeyValues3 *b);

// ---------------------------------------------------------------------------------------------
// Internal layout of lists, needed by the iteration templates.

struct KV3Member_t
{
	uint32 hash;
	uint32 nameLength;
	const char *name;
	KeyValues3 value;
};

struct KV3Segment_t
{
	KV3Segment_t *pNext;
	uint32 capacity;
	uint32 used;
	// followed by `capacity` elements (KeyValues3 or KV3Member_t)
	void *Items() { return this + 1; }
	const void *Items() const { return this + 1; }
};
static_assert(sizeof(KV3Segment_t) % 16 == 0);

struct KV3List_t
{
	uint32 count;
	uint32 capacity;
	KV3Segment_t *pFirst;
	KV3Segment_t *pLast;
	struct KV3MemberIndex_t *pIndex; // tables with many members: a hash index, built on first lookup
};

template <typename Fn> void KeyValues3::ForEachArrayElement(Fn &&fn) const
{
	if (GetType() != KV3_TYPE_ARRAY || !m_Data.pList)
		return;
	for (const KV3Segment_t *seg = m_Data.pList->pFirst; seg; seg = seg->pNext)
	{
		const KeyValues3 *items = static_cast<const KeyValues3 *>(seg->Items());
		for (uint32 i = 0; i < seg->used; ++i)
			fn(&items[i]);
	}
}

template <typename Fn> void KeyValues3::ForEachMember(Fn &&fn) const
{
	if (GetType() != KV3_TYPE_TABLE || !m_Data.pList)
		return;
	for (const KV3Segment_t *seg = m_Data.pList->pFirst; seg; seg = seg->pNext)
	{
		const KV3Member_t *items = static_cast<const KV3Member_t *>(seg->Items());
		for (uint32 i = 0; i < seg->used; ++i)
			fn(std::string_view(items[i].name, items[i].nameLength), items[i].hash, &items[i].value);
	}
}
