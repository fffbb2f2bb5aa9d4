#include "core/keyvalues3.h"
#include "core/keyvalues3_internal.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <new>

#include "core/logging.h"
#include "core/strtools.h"

namespace
{
const uint64 kContextMask = (1ull << 48) - 1;

// Deeper trees than this are not copied or compared; the text parser refuses them as well.
const int kMaxCopyDepth = 512;

const char *const s_KV3TypeNames[KV3_TYPE_COUNT] = {
	"invalid", "null", "bool", "int", "uint", "double", "string", "binary_blob", "array", "table",
};
} // namespace

const char *KV3TypeName(int kind)
{
	if (kind < 0 || kind >= KV3_TYPE_COUNT)
		return "<unknown>";
	return s_KV3TypeNames[kind];
}

// ---------------------------------------------------------------------------------------------
// KeyValues3

namespace
{
struct SharedNull_t
{
	alignas(KeyValues3) unsigned char storage[sizeof(KeyValues3)];
};
} // namespace

const KeyValues3 *KV3Null()
{
	// A zeroed block with the kind, subtype and immutable flag of the shared null. Built
	// without a context, so it never changes and needs no construction order.
	static const uint64 s_header = (uint64(KV3_TYPE_NULL) << 48) | (uint64(0x2) << 52) | (uint64(KV3_SUBTYPE_NULL) << 56);
	static const SharedNull_t s_null = [] {
		SharedNull_t n{};
		memcpy(n.storage, &s_header, sizeof(s_header));
		return n;
	}();
	return reinterpret_cast<const KeyValues3 *>(s_null.storage);
}

CKeyValues3Context *KeyValues3::GetContext() const
{
	return reinterpret_cast<CKeyValues3Context *>(uintptr_t(m_nHeader & kContextMask));
}

void KeyValues3::Init(CKeyValues3Context *pContext, KV3Type_t type, KV3SubType_t subType, uint8 flags)
{
	m_nHeader = uint64(uintptr_t(pContext)) & kContextMask;
	SetHeader(type, subType, flags);
	m_Data.u = 0;
}

void KeyValues3::SetHeader(KV3Type_t type, KV3SubType_t subType, uint8 flags)
{
	m_nHeader = (m_nHeader & kContextMask) | (uint64(type & 0xF) << 48) | (uint64(flags & 0xF) << 52) | (uint64(subType) << 56);
}

void KeyValues3::SetSubType(KV3SubType_t subType)
{
	if (!CheckWritable())
		return;
	SetHeader(GetType(), subType, Flags());
}

bool KeyValues3::CheckWritable() const
{
	if (IsImmutable())
	{
		Warning("KeyValues3: attempt to change the shared null value\n");
		return false;
	}
	return true;
}

bool KeyValues3::IsNumber() const
{
	const KV3Type_t type = GetType();
	return type == KV3_TYPE_INT || (type == KV3_TYPE_UINT && GetSubType() != KV3_SUBTYPE_POINTER) || type == KV3_TYPE_DOUBLE;
}

const char *KeyValues3::GetString() const
{
	if (GetType() != KV3_TYPE_STRING)
		return "";
	if (Flags() & FLAG_INLINE_STRING)
		return m_Data.inlineString;
	return m_Data.pString;
}

uint32 KeyValues3::GetStringLength() const
{
	if (GetType() != KV3_TYPE_STRING)
		return 0;
	if (Flags() & FLAG_INLINE_STRING)
		return (uint32)strnlen(m_Data.inlineString, sizeof(m_Data.inlineString));
	uint32 length;
	memcpy(&length, m_Data.pString - sizeof(uint32), sizeof(length));
	return length;
}

const uint8 *KeyValues3::GetBinaryBlob() const
{
	return GetType() == KV3_TYPE_BINARY_BLOB && m_Data.pBlob ? m_Data.pBlob->bytes : nullptr;
}

uint32 KeyValues3::GetBinaryBlobSize() const
{
	return GetType() == KV3_TYPE_BINARY_BLOB && m_Data.pBlob ? m_Data.pBlob->size : 0;
}

void KeyValues3::SetToNull()
{
	if (!CheckWritable())
		return;
	SetHeader(KV3_TYPE_NULL, KV3_SUBTYPE_NULL, 0);
	m_Data.u = 0;
}

void KeyValues3::SetBool(bool value)
{
	if (!CheckWritable())
		return;
	SetHeader(KV3_TYPE_BOOL, KV3_SUBTYPE_BOOL8, 0);
	m_Data.u = 0;
	m_Data.b = value;
}

void KeyValues3::SetInt(int64 value, KV3SubType_t subType)
{
	if (!CheckWritable())
		return;
	SetHeader(KV3_TYPE_INT, subType, 0);
	m_Data.i = value;
}

void KeyValues3::SetUInt(uint64 value, KV3SubType_t subType)
{
	if (!CheckWritable())
		return;
	SetHeader(KV3_TYPE_UINT, subType, 0);
	m_Data.u = value;
}

void KeyValues3::SetDouble(double value, KV3SubType_t subType)
{
	if (!CheckWritable())
		return;
	SetHeader(KV3_TYPE_DOUBLE, subType, 0);
	m_Data.d = value;
}

void KeyValues3::SetPointer(void *pointer)
{
	if (!CheckWritable())
		return;
	SetHeader(KV3_TYPE_UINT, KV3_SUBTYPE_POINTER, 0);
	m_Data.u = uint64(uintptr_t(pointer));
}

void KeyValues3::SetString(std::string_view text)
{
	if (!CheckWritable())
		return;
	if (text.size() < sizeof(m_Data.inlineString) && memchr(text.data(), 0, text.size()) == nullptr)
	{
		Data_t data = {};
		memcpy(data.inlineString, text.data(), text.size());
		SetHeader(KV3_TYPE_STRING, KV3_SUBTYPE_STRING, FLAG_INLINE_STRING);
		m_Data = data;
		return;
	}
	// Copy first: the text may live in this value's own old storage.
	const char *copy = GetContext()->CopyString(text);
	SetHeader(KV3_TYPE_STRING, KV3_SUBTYPE_STRING, 0);
	m_Data.pString = copy;
}

void KeyValues3::SetBinaryBlob(const void *data, uint32 size)
{
	if (!CheckWritable())
		return;
	KV3Blob_t *blob = static_cast<KV3Blob_t *>(GetContext()->Alloc(sizeof(uint32) + (size ? size : 1), 8));
	blob->size = size;
	if (size)
		memcpy(blob->bytes, data, size);
	SetHeader(KV3_TYPE_BINARY_BLOB, KV3_SUBTYPE_BINARY_BLOB, 0);
	m_Data.pBlob = blob;
}

void KeyValues3::MakeArray(uint32 count)
{
	if (!CheckWritable())
		return;
	CKeyValues3Context *ctx = GetContext();
	KV3List_t *list = KV3Internal::NewList(ctx, sizeof(KeyValues3), count);
	if (count)
	{
		KeyValues3 *items = static_cast<KeyValues3 *>(list->pFirst->Items());
		for (uint32 i = 0; i < count; ++i)
			items[i].Init(ctx, KV3_TYPE_NULL, KV3_SUBTYPE_NULL);
		list->pFirst->used = count;
		list->count = count;
	}
	SetHeader(KV3_TYPE_ARRAY, KV3_SUBTYPE_ARRAY, 0);
	m_Data.pList = list;
}

void KeyValues3::MakeTable()
{
	if (!CheckWritable())
		return;
	SetHeader(KV3_TYPE_TABLE, KV3_SUBTYPE_TABLE, 0);
	m_Data.pList = nullptr; // storage comes with the first member
}

uint32 KeyValues3::GetArrayCount() const
{
	return GetType() == KV3_TYPE_ARRAY && m_Data.pList ? m_Data.pList->count : 0;
}

KeyValues3 *KeyValues3::GetArrayElement(uint32 index)
{
	if (GetType() != KV3_TYPE_ARRAY)
		return nullptr;
	return static_cast<KeyValues3 *>(KV3Internal::ItemAt(m_Data.pList, sizeof(KeyValues3), index));
}

const KeyValues3 *KeyValues3::GetArrayElement(uint32 index) const
{
	return const_cast<KeyValues3 *>(this)->GetArrayElement(index);
}

KeyValues3 *KeyValues3::ArrayAppend()
{
	if (!CheckWritable())
		return nullptr;
	if (GetType() != KV3_TYPE_ARRAY)
		MakeArray(0);
	CKeyValues3Context *ctx = GetContext();
	if (!m_Data.pList)
		m_Data.pList = KV3Internal::NewList(ctx, sizeof(KeyValues3), 0);
	KeyValues3 *slot = static_cast<KeyValues3 *>(KV3Internal::AppendSlot(ctx, m_Data.pList, sizeof(KeyValues3)));
	slot->Init(ctx, KV3_TYPE_NULL, KV3_SUBTYPE_NULL);
	return slot;
}

uint32 KeyValues3::GetMemberCount() const
{
	return GetType() == KV3_TYPE_TABLE && m_Data.pList ? m_Data.pList->count : 0;
}

KeyValues3 *KeyValues3::GetMember(uint32 index)
{
	if (GetType() != KV3_TYPE_TABLE)
		return nullptr;
	KV3Member_t *member = static_cast<KV3Member_t *>(KV3Internal::ItemAt(m_Data.pList, sizeof(KV3Member_t), index));
	return member ? &member->value : nullptr;
}

const KeyValues3 *KeyValues3::GetMember(uint32 index) const
{
	return const_cast<KeyValues3 *>(this)->GetMember(index);
}

const char *KeyValues3::GetMemberName(uint32 index) const
{
	if (GetType() != KV3_TYPE_TABLE)
		return "";
	const KV3Member_t *member = static_cast<const KV3Member_t *>(KV3Internal::ItemAt(m_Data.pList, sizeof(KV3Member_t), index));
	return member ? member->name : "";
}

uint32 KeyValues3::GetMemberNameHash(uint32 index) const
{
	if (GetType() != KV3_TYPE_TABLE)
		return 0;
	const KV3Member_t *member = static_cast<const KV3Member_t *>(KV3Internal::ItemAt(m_Data.pList, sizeof(KV3Member_t), index));
	return member ? member->hash : 0;
}

KeyValues3 *KeyValues3::FindMember(const KV3MemberName_t &name)
{
	if (GetType() != KV3_TYPE_TABLE)
		return nullptr;
	KV3Member_t *member = KV3Internal::LookupMember(GetContext(), m_Data.pList, name);
	return member ? &member->value : nullptr;
}

const KeyValues3 *KeyValues3::FindMember(const KV3MemberName_t &name) const
{
	return const_cast<KeyValues3 *>(this)->FindMember(name);
}

KeyValues3 *KeyValues3::AddMember(const KV3MemberName_t &name)
{
	if (!CheckWritable())
		return nullptr;
	if (GetType() != KV3_TYPE_TABLE)
	{
		if (GetType() != KV3_TYPE_NULL && GetType() != KV3_TYPE_INVALID)
			Warning("KeyValues3: member '%.*s' added to a value of kind %s; it becomes a table\n", (int)name.m_Text.size(), name.m_Text.data(), KV3TypeName(GetType()));
		MakeTable();
	}
	if (KV3Member_t *existing = KV3Internal::LookupMember(GetContext(), m_Data.pList, name))
		return &existing->value;
	CKeyValues3Context *ctx = GetContext();
	if (!m_Data.pList)
		m_Data.pList = KV3Internal::NewList(ctx, sizeof(KV3Member_t), 4);
	const char *interned = ctx->InternMemberName(name.m_nHash, name.m_Text);
	KV3Member_t *member = static_cast<KV3Member_t *>(KV3Internal::AppendSlot(ctx, m_Data.pList, sizeof(KV3Member_t)));
	member->hash = name.m_nHash;
	member->nameLength = (uint32)name.m_Text.size();
	member->name = interned;
	member->value.Init(ctx, KV3_TYPE_NULL, KV3_SUBTYPE_NULL);
	KV3Internal::IndexAppended(ctx, m_Data.pList, member);
	return &member->value;
}

bool KeyValues3::RemoveMember(const KV3MemberName_t &name)
{
	if (!CheckWritable() || GetType() != KV3_TYPE_TABLE)
		return false;
	uint32 index;
	if (!KV3Internal::FindMember(m_Data.pList, name, &index))
		return false;
	KV3Internal::RemoveAt(m_Data.pList, sizeof(KV3Member_t), index);
	return true;
}

// ---------------------------------------------------------------------------------------------
// CKeyValues3Context

struct CKeyValues3Context::Chunk_t
{
	Chunk_t *pNext;
	size_t size;
};

struct CKeyValues3Context::NameSlot_t
{
	uint32 hash;
	uint32 length;
	const char *text; // null for an empty slot
};

CKeyValues3Context::CKeyValues3Context(Kind_t kind) : m_eKind(kind)
{
	if ((uintptr_t(this) & ~uintptr_t(kContextMask)) != 0)
		Plat_FatalError("FATAL: KeyValues3 context at %p lies outside the 48-bit address space\n", (void *)this);
	m_Root.Init(this, KV3_TYPE_NULL, KV3_SUBTYPE_NULL);
}

CKeyValues3Context::~CKeyValues3Context()
{
	Clear();
}

KeyValues3 *CKeyValues3Context::Root()
{
	if (m_eKind != DOCUMENT)
		Plat_FatalError("FATAL: %s called on a pool context (no root available)\n", "CKeyValues3Context::Root");
	return &m_Root;
}

KeyValues3 *CKeyValues3Context::AllocValue()
{
	KeyValues3 *value = static_cast<KeyValues3 *>(Alloc(sizeof(KeyValues3), alignof(KeyValues3)));
	new (value) KeyValues3();
	value->Init(this, KV3_TYPE_NULL, KV3_SUBTYPE_NULL);
	return value;
}

void CKeyValues3Context::Clear()
{
	while (m_pChunks)
	{
		Chunk_t *next = m_pChunks->pNext;
		::operator delete(m_pChunks, std::align_val_t(16));
		m_pChunks = next;
	}
	m_pCursor = m_pEnd = nullptr;
	m_nNextChunkSize = 4096;
	m_nBytesReserved = 0;
	m_nBytesUsed = 0;
	delete[] m_pNames;
	m_pNames = nullptr;
	m_nNameCapacity = m_nNameCount = 0;
	m_Root.Init(this, KV3_TYPE_NULL, KV3_SUBTYPE_NULL);
}

void *CKeyValues3Context::Alloc(size_t size, size_t alignment)
{
	uintptr_t aligned = (uintptr_t(m_pCursor) + alignment - 1) & ~uintptr_t(alignment - 1);
	if (m_pCursor && aligned + size <= uintptr_t(m_pEnd))
	{
		m_pCursor = reinterpret_cast<char *>(aligned + size);
		m_nBytesUsed += size;
		return reinterpret_cast<void *>(aligned);
	}
	return AllocSlow(size, alignment);
}

void *CKeyValues3Context::AllocSlow(size_t size, size_t alignment)
{
	const size_t headerSize = 16;
	static_assert(sizeof(Chunk_t) <= 16);
	if (size > m_nNextChunkSize / 4)
	{
		// A large block gets a chunk of its own, behind the current one, so that the space
		// left in the current chunk is still used.
		const size_t total = headerSize + size + alignment;
		Chunk_t *chunk = static_cast<Chunk_t *>(::operator new(total, std::align_val_t(16)));
		chunk->size = total;
		if (m_pChunks)
		{
			chunk->pNext = m_pChunks->pNext;
			m_pChunks->pNext = chunk;
		}
		else
		{
			chunk->pNext = nullptr;
			m_pChunks = chunk;
			m_pCursor = m_pEnd = reinterpret_cast<char *>(chunk) + total;
		}
		m_nBytesReserved += total;
		m_nBytesUsed += size;
		const uintptr_t start = uintptr_t(chunk) + headerSize;
		return reinterpret_cast<void *>((start + alignment - 1) & ~uintptr_t(alignment - 1));
	}
	const size_t total = m_nNextChunkSize;
	Chunk_t *chunk = static_cast<Chunk_t *>(::operator new(total, std::align_val_t(16)));
	chunk->size = total;
	chunk->pNext = m_pChunks;
	m_pChunks = chunk;
	m_pCursor = reinterpret_cast<char *>(chunk) + headerSize;
	m_pEnd = reinterpret_cast<char *>(chunk) + total;
	m_nBytesReserved += total;
	if (m_nNextChunkSize < 1024 * 1024)
		m_nNextChunkSize *= 2;
	return Alloc(size, alignment);
}

const char *CKeyValues3Context::CopyString(std::string_view text)
{
	char *block = static_cast<char *>(Alloc(sizeof(uint32) + text.size() + 1, 4));
	const uint32 length = (uint32)text.size();
	memcpy(block, &length, sizeof(length));
	if (!text.empty())
		memcpy(block + sizeof(uint32), text.data(), text.size());
	block[sizeof(uint32) + text.size()] = 0;
	return block + sizeof(uint32);
}

const char *CKeyValues3Context::InternMemberName(uint32 hash, std::string_view text)
{
	if ((m_nNameCount + 1) * 2 > m_nNameCapacity)
		GrowNameTable();
	const uint32 mask = m_nNameCapacity - 1;
	for (uint32 slot = hash & mask;; slot = (slot + 1) & mask)
	{
		NameSlot_t &entry = m_pNames[slot];
		if (!entry.text)
		{
			entry.hash = hash;
			entry.length = (uint32)text.size();
			entry.text = CopyString(text);
			++m_nNameCount;
			return entry.text;
		}
		if (entry.hash == hash && entry.length == text.size() && memcmp(entry.text, text.data(), text.size()) == 0)
			return entry.text;
	}
}

void CKeyValues3Context::GrowNameTable()
{
	const uint32 capacity = m_nNameCapacity ? m_nNameCapacity * 2 : 64;
	NameSlot_t *names = new NameSlot_t[capacity]();
	for (uint32 i = 0; i < m_nNameCapacity; ++i)
	{
		const NameSlot_t &entry = m_pNames[i];
		if (!entry.text)
			continue;
		for (uint32 slot = entry.hash & (capacity - 1);; slot = (slot + 1) & (capacity - 1))
		{
			if (!names[slot].text)
			{
				names[slot] = entry;
				break;
			}
		}
	}
	delete[] m_pNames;
	m_pNames = names;
	m_nNameCapacity = capacity;
}

// ---------------------------------------------------------------------------------------------
// CKV3OwnedValue

CKV3OwnedValue::~CKV3OwnedValue()
{
	delete m_pContext;
}

CKV3OwnedValue::CKV3OwnedValue(const CKV3OwnedValue &other)
{
	if (other.m_pContext)
		Set(other.Get());
}

CKV3OwnedValue &CKV3OwnedValue::operator=(const CKV3OwnedValue &other)
{
	if (this != &other)
	{
		if (other.m_pContext)
			Set(other.Get());
		else
			Clear();
	}
	return *this;
}

CKV3OwnedValue::CKV3OwnedValue(CKV3OwnedValue &&other) noexcept : m_pContext(other.m_pContext)
{
	other.m_pContext = nullptr;
}

CKV3OwnedValue &CKV3OwnedValue::operator=(CKV3OwnedValue &&other) noexcept
{
	if (this != &other)
	{
		delete m_pContext;
		m_pContext = other.m_pContext;
		other.m_pContext = nullptr;
	}
	return *this;
}

const KeyValues3 *CKV3OwnedValue::Get() const
{
	return m_pContext ? m_pContext->Root() : KV3Null();
}

KeyValues3 *CKV3OwnedValue::Edit()
{
	if (!m_pContext)
		m_pContext = new CKeyValues3Context(CKeyValues3Context::DOCUMENT);
	return m_pContext->Root();
}

void CKV3OwnedValue::Set(const KeyValues3 *pSource)
{
	// A fresh context each time, so that repeated sets do not pile up in one arena.
	CKeyValues3Context *fresh = new CKeyValues3Context(CKeyValues3Context::DOCUMENT);
	CopyValue(fresh->Root(), pSource);
	delete m_pContext;
	m_pContext = fresh;
}

void CKV3OwnedValue::Clear()
{
	delete m_pContext;
	m_pContext = nullptr;
}

// ---------------------------------------------------------------------------------------------
// Value operations

KeyValues3 *FindMember(KeyValues3 *table, const KV3MemberName_t &name)
{
	return table ? table->FindMember(name) : nullptr;
}

const KeyValues3 *FindMember(const KeyValues3 *table, const KV3MemberName_t &name)
{
	return table ? table->FindMember(name) : nullptr;
}

const KeyValues3 *GetMember(const KeyValues3 *table, const KV3MemberName_t &name)
{
	const KeyValues3 *member = FindMember(table, name);
	return member ? member : KV3Null();
}

const char *GetMemberString(const KeyValues3 *table, const KV3MemberName_t &name, const char *defaultValue)
{
	const KeyValues3 *member = FindMember(table, name);
	if (!member)
		return defaultValue;
	return member->GetString(); // "" for a member of another kind
}

bool GetMemberBool(const KeyValues3 *table, const KV3MemberName_t &name, bool defaultValue)
{
	const KeyValues3 *member = FindMember(table, name);
	return member ? GetBool(member) : defaultValue;
}

namespace
{
void AppendNumberText(const KeyValues3 *value, CUtlString &out)
{
	switch (value->GetType())
	{
	case KV3_TYPE_INT:
		V_AppendFormat(out, "%lld", (long long)value->GetInt64());
		break;
	case KV3_TYPE_UINT:
		V_AppendFormat(out, "%llu", (unsigned long long)value->GetUInt64());
		break;
	case KV3_TYPE_DOUBLE:
		V_AppendFormat(out, "%g", value->GetDouble());
		break;
	default:
		break;
	}
}
} // namespace

bool ReadString(const KeyValues3 *value, CUtlString &out)
{
	out.clear();
	if (!value)
		return false;
	switch (value->GetType())
	{
	case KV3_TYPE_STRING:
		out.assign(value->GetString(), value->GetStringLength());
		return true;
	case KV3_TYPE_BOOL:
		out = value->GetBoolValue() ? "true" : "false";
		return true;
	case KV3_TYPE_INT:
	case KV3_TYPE_DOUBLE:
		AppendNumberText(value, out);
		return true;
	case KV3_TYPE_UINT:
		if (value->IsPointer())
			out = "<pointer>";
		else
			AppendNumberText(value, out);
		return true;
	case KV3_TYPE_BINARY_BLOB:
		out = V_Format("<binary blob: %u bytes>", value->GetBinaryBlobSize());
		return true;
	case KV3_TYPE_ARRAY:
	{
		const uint32 count = value->GetArrayCount();
		bool bAllNumbers = count <= 4;
		value->ForEachArrayElement([&](const KeyValues3 *element) { bAllNumbers = bAllNumbers && element->IsNumber(); });
		if (!bAllNumbers)
		{
			out = V_Format("<array: %u elements>", count);
			return true;
		}
		value->ForEachArrayElement([&](const KeyValues3 *element) {
			if (!out.empty())
				out += ' ';
			AppendNumberText(element, out);
		});
		return true;
	}
	default:
		return false; // null, table, invalid
	}
}

namespace
{
bool ParseBoolText(std::string_view text)
{
	while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
		text.remove_prefix(1);
	while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
		text.remove_suffix(1);
	if (V_StrEqualNoCase(text, "true") || V_StrEqualNoCase(text, "yes") || V_StrEqualNoCase(text, "on"))
		return true;
	long long number = 0;
	auto result = std::from_chars(text.data(), text.data() + text.size(), number);
	return result.ec == std::errc() && number != 0;
}

// Parses floats separated by blanks or commas, as in "1 2.5 -3" or "1, 2, 3".
int ParseFloatList(std::string_view text, int count, float *out)
{
	int parsed = 0;
	const char *p = text.data();
	const char *end = p + text.size();
	while (parsed < count && p < end)
	{
		while (p < end && (*p == ' ' || *p == '\t' || *p == ',' || *p == '\n' || *p == '\r'))
			++p;
		if (p >= end)
			break;
		if (*p == '+')
			++p;
		float value = 0.0f;
		auto result = std::from_chars(p, end, value);
		if (result.ec != std::errc())
			break;
		out[parsed++] = value;
		p = result.ptr;
	}
	return parsed;
}

float NumberAsFloat(const KeyValues3 *value)
{
	switch (value->GetType())
	{
	case KV3_TYPE_INT:
		return (float)value->GetInt64();
	case KV3_TYPE_UINT:
		return value->IsPointer() ? 0.0f : (float)value->GetUInt64();
	case KV3_TYPE_DOUBLE:
		return (float)value->GetDouble();
	case KV3_TYPE_BOOL:
		return value->GetBoolValue() ? 1.0f : 0.0f;
	case KV3_TYPE_STRING:
	{
		float f = 0.0f;
		ParseFloatList(value->GetStringView(), 1, &f);
		return f;
	}
	default:
		return 0.0f;
	}
}
} // namespace

bool GetBool(const KeyValues3 *value)
{
	if (!value)
		return false;
	switch (value->GetType())
	{
	case KV3_TYPE_STRING:
		return ParseBoolText(value->GetStringView());
	case KV3_TYPE_BOOL:
		return value->GetBoolValue();
	case KV3_TYPE_INT:
		return value->GetInt64() != 0;
	case KV3_TYPE_UINT:
		return !value->IsPointer() && value->GetUInt64() != 0;
	case KV3_TYPE_DOUBLE:
	{
		// Truncated to an integer: anything with a magnitude of at least 1 is true.
		const double d = value->GetDouble();
		return !std::isnan(d) && std::fabs(d) >= 1.0;
	}
	default:
		return false;
	}
}

void ReadFloats(const KeyValues3 *value, int count, float *out)
{
	for (int i = 0; i < count; ++i)
		out[i] = 0.0f;
	if (!value)
		return;
	switch (value->GetType())
	{
	case KV3_TYPE_STRING:
		ParseFloatList(value->GetStringView(), count, out);
		break;
	case KV3_TYPE_ARRAY:
	{
		int i = 0;
		value->ForEachArrayElement([&](const KeyValues3 *element) {
			if (i < count)
				out[i++] = NumberAsFloat(element);
		});
		break;
	}
	case KV3_TYPE_INT:
	case KV3_TYPE_UINT:
	case KV3_TYPE_DOUBLE:
	case KV3_TYPE_BOOL:
		if (count > 0)
			out[0] = NumberAsFloat(value);
		break;
	default:
		break;
	}
}

uint32 ArrayLength(const KeyValues3 *value)
{
	return value ? value->GetArrayCount() : 0;
}

KeyValues3 *ArrayElement(KeyValues3 *value, uint32 index)
{
	return value ? value->GetArrayElement(index) : nullptr;
}

const KeyValues3 *ArrayElement(const KeyValues3 *value, uint32 index)
{
	return value ? value->GetArrayElement(index) : nullptr;
}

void ArrayResize(KeyValues3 *value, uint32 count)
{
	if (value)
		value->MakeArray(count);
}

KeyValues3 *AddMember(KeyValues3 *table, const KV3MemberName_t &name)
{
	return table ? table->AddMember(name) : nullptr;
}

void SetMemberString(KeyValues3 *table, const KV3MemberName_t &name, std::string_view text)
{
	if (KeyValues3 *member = AddMember(table, name))
		member->SetString(text);
}

void SetMemberInt(KeyValues3 *table, const KV3MemberName_t &name, int32 value)
{
	if (KeyValues3 *member = AddMember(table, name))
		member->SetInt32(value);
}

void SetMemberBool(KeyValues3 *table, const KV3MemberName_t &name, bool value)
{
	if (KeyValues3 *member = AddMember(table, name))
		member->SetBool(value);
}

void SetString(KeyValues3 *value, std::string_view text)
{
	if (value)
		value->SetString(text);
}

void SetFloats(KeyValues3 *value, int count, const float *values)
{
	if (!value)
		return;
	value->MakeArray(count > 0 ? (uint32)count : 0);
	for (int i = 0; i < count; ++i)
		value->GetArrayElement((uint32)i)->SetDouble(values[i], KV3_SUBTYPE_FLOAT32);
}

void MakeTable(KeyValues3 *value)
{
	if (value)
		value->MakeTable();
}

namespace
{
void CopyInto(KeyValues3 *dest, const KeyValues3 *source, int depth)
{
	if (depth > kMaxCopyDepth)
	{
		Warning("KeyValues3: value nested deeper than %d levels is not copied\n", kMaxCopyDepth);
		dest->SetToNull();
		return;
	}
	switch (source->GetType())
	{
	case KV3_TYPE_INVALID:
	case KV3_TYPE_NULL:
		dest->SetToNull();
		break;
	case KV3_TYPE_BOOL:
		dest->SetBool(source->GetBoolValue());
		break;
	case KV3_TYPE_INT:
		dest->SetInt(source->GetInt64(), source->GetSubType());
		break;
	case KV3_TYPE_UINT:
		dest->SetUInt(source->GetUInt64(), source->GetSubType());
		break;
	case KV3_TYPE_DOUBLE:
		dest->SetDouble(source->GetDouble(), source->GetSubType());
		break;
	case KV3_TYPE_STRING:
		dest->SetString(source->GetStringView());
		break;
	case KV3_TYPE_BINARY_BLOB:
		dest->SetBinaryBlob(source->GetBinaryBlob(), source->GetBinaryBlobSize());
		break;
	case KV3_TYPE_ARRAY:
	{
		dest->MakeArray(source->GetArrayCount());
		uint32 i = 0;
		source->ForEachArrayElement([&](const KeyValues3 *element) { CopyInto(dest->GetArrayElement(i++), element, depth + 1); });
		break;
	}
	case KV3_TYPE_TABLE:
		dest->MakeTable();
		source->ForEachMember([&](std::string_view name, uint32 hash, const KeyValues3 *member) {
			CopyInto(dest->AddMember(KV3MemberName_t(hash, name)), member, depth + 1);
		});
		break;
	default:
		dest->SetToNull();
		break;
	}
	if (dest->GetType() == source->GetType())
		dest->SetSubType(source->GetSubType());
}
} // namespace

void CopyValue(KeyValues3 *dest, const KeyValues3 *source)
{
	if (!dest || dest == source || dest->IsImmutable())
		return;
	if (!source)
		source = KV3Null();
	if (source->GetContext() == dest->GetContext() && source->GetContext() != nullptr)
	{
		// The destination may lie inside the source: copy through a scratch context.
		CKeyValues3Context scratch(CKeyValues3Context::POOL);
		KeyValues3 *temporary = scratch.AllocValue();
		CopyInto(temporary, source, 0);
		CopyInto(dest, temporary, 0);
		return;
	}
	CopyInto(dest, source, 0);
}

namespace
{
bool ValuesEqual(const KeyValues3 *a, const KeyValues3 *b, int depth)
{
	if (depth > kMaxCopyDepth)
		return false;
	const KV3Type_t ta = a->GetType();
	const KV3Type_t tb = b->GetType();
	const bool aInteger = ta == KV3_TYPE_INT || (ta == KV3_TYPE_UINT && !a->IsPointer());
	const bool bInteger = tb == KV3_TYPE_INT || (tb == KV3_TYPE_UINT && !b->IsPointer());
	if (aInteger && bInteger)
	{
		if (ta == tb)
			return ta == KV3_TYPE_INT ? a->GetInt64() == b->GetInt64() : a->GetUInt64() == b->GetUInt64();
		const int64 signedValue = ta == KV3_TYPE_INT ? a->GetInt64() : b->GetInt64();
		const uint64 unsignedValue = ta == KV3_TYPE_UINT ? a->GetUInt64() : b->GetUInt64();
		return signedValue >= 0 && (uint64)signedValue == unsignedValue;
	}
	if (ta != tb)
		return false;
	switch (ta)
	{
	case KV3_TYPE_INVALID:
	case KV3_TYPE_NULL:
		return true;
	case KV3_TYPE_BOOL:
		return a->GetBoolValue() == b->GetBoolValue();
	case KV3_TYPE_UINT: // pointers
		return a->IsPointer() == b->IsPointer() && a->GetUInt64() == b->GetUInt64();
	case KV3_TYPE_DOUBLE:
	{
		const double da = a->GetDouble(), db = b->GetDouble();
		return da == db || (std::isnan(da) && std::isnan(db));
	}
	case KV3_TYPE_STRING:
		return a->GetStringView() == b->GetStringView();
	case KV3_TYPE_BINARY_BLOB:
		return a->GetBinaryBlobSize() == b->GetBinaryBlobSize() &&
			(a->GetBinaryBlobSize() == 0 || memcmp(a->GetBinaryBlob(), b->GetBinaryBlob(), a->GetBinaryBlobSize()) == 0);
	case KV3_TYPE_ARRAY:
	{
		const uint32 count = a->GetArrayCount();
		if (count != b->GetArrayCount())
			return false;
		bool equal = true;
		uint32 i = 0;
		a->ForEachArrayElement([&](const KeyValues3 *element) {
			if (equal)
				equal = ValuesEqual(element, b->GetArrayElement(i), depth + 1);
			++i;
		});
		return equal;
	}
	case KV3_TYPE_TABLE:
	{
		if (a->GetMemberCount() != b->GetMemberCount())
			return false;
		bool equal = true;
		uint32 i = 0;
		a->ForEachMember([&](std::string_view name, uint32, const KeyValues3 *member) {
			if (equal)
				equal = name == b->GetMemberName(i) && ValuesEqual(member, b->GetMember(i), depth + 1);
			++i;
		});
		return equal;
	}
	default:
		return false;
	}
}
} // namespace

bool KV3ValuesEqual(const KeyValues3 *a, const KeyValues3 *b)
{
	return ValuesEqual(a ? a : KV3Null(), b ? b : KV3Null(), 0);
}
