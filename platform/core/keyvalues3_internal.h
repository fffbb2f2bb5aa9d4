// Internal layout helpers of KeyValues3, shared by the value code, the text parser and the
// writer. Not for use outside the core's document code.
#pragma once

#include <cstring>

#include "core/keyvalues3.h"
#include "core/strtools.h"

// The two words of a value, as the parser builds them before they find their place.
struct KV3RawValue_t
{
	uint64 header;
	uint64 data;
};

struct KV3RawMember_t
{
	uint32 hash;
	uint32 nameLength;
	const char *name;
	KV3RawValue_t value;
};
static_assert(sizeof(KV3RawValue_t) == sizeof(KeyValues3));
static_assert(sizeof(KV3RawMember_t) == sizeof(KV3Member_t));
static_assert(offsetof(KV3RawMember_t, value) == offsetof(KV3Member_t, value));

struct KV3MemberIndex_t
{
	uint32 capacity; // a power of two
	uint32 used;
	KV3Member_t *slots[1]; // `capacity` slots, null when empty
};

struct KV3Blob_t
{
	uint32 size;
	uint8 bytes[4]; // `size` bytes follow
};

// Helpers that work on the list storage of arrays and tables.
struct KV3Internal
{
	static constexpr uint64 kContextMask = (1ull << 48) - 1;

	static KV3RawValue_t MakeRaw(CKeyValues3Context *ctx, KV3Type_t type, KV3SubType_t subType, uint8 flags, uint64 data)
	{
		KV3RawValue_t raw;
		raw.header = (uint64(uintptr_t(ctx)) & kContextMask) | (uint64(type & 0xF) << 48) | (uint64(flags & 0xF) << 52) | (uint64(subType) << 56);
		raw.data = data;
		return raw;
	}

	static KV3RawValue_t MakeStringRaw(CKeyValues3Context *ctx, std::string_view text)
	{
		if (text.size() < 8 && memchr(text.data(), 0, text.size()) == nullptr)
		{
			uint64 data = 0;
			memcpy(&data, text.data(), text.size());
			return MakeRaw(ctx, KV3_TYPE_STRING, KV3_SUBTYPE_STRING, KeyValues3::FLAG_INLINE_STRING, data);
		}
		const char *copy = ctx->CopyString(text);
		return MakeRaw(ctx, KV3_TYPE_STRING, KV3_SUBTYPE_STRING, 0, uint64(uintptr_t(copy)));
	}

	// A list holding exactly these items, in one segment.
	static KV3RawValue_t MakeListRaw(CKeyValues3Context *ctx, KV3Type_t type, const void *items, size_t itemSize, uint32 count)
	{
		KV3List_t *list = nullptr;
		if (count || type == KV3_TYPE_ARRAY)
		{
			list = NewList(ctx, itemSize, count);
			if (count)
			{
				memcpy(list->pFirst->Items(), items, itemSize * count);
				list->pFirst->used = count;
				list->count = count;
			}
		}
		return MakeRaw(ctx, type, type == KV3_TYPE_ARRAY ? KV3_SUBTYPE_ARRAY : KV3_SUBTYPE_TABLE, 0, uint64(uintptr_t(list)));
	}

	static void Store(KeyValues3 *dest, const KV3RawValue_t &raw) { memcpy((void *)dest, &raw, sizeof(raw)); }

	static KV3List_t *NewList(CKeyValues3Context *ctx, size_t itemSize, uint32 capacity)
	{
		// The header and the first segment come in one allocation.
		const size_t headerSize = (sizeof(KV3List_t) + 15) & ~size_t(15);
		const size_t segmentBytes = capacity ? sizeof(KV3Segment_t) + itemSize * capacity : 0;
		char *block = static_cast<char *>(ctx->Alloc(headerSize + segmentBytes, 16));
		KV3List_t *list = reinterpret_cast<KV3List_t *>(block);
		list->count = 0;
		list->capacity = capacity;
		list->pFirst = list->pLast = nullptr;
		list->pIndex = nullptr;
		if (capacity)
		{
			KV3Segment_t *seg = reinterpret_cast<KV3Segment_t *>(block + headerSize);
			seg->pNext = nullptr;
			seg->capacity = capacity;
			seg->used = 0;
			list->pFirst = list->pLast = seg;
		}
		return list;
	}

	// Room for one more item at the end; returns its address.
	static void *AppendSlot(CKeyValues3Context *ctx, KV3List_t *list, size_t itemSize)
	{
		KV3Segment_t *seg = list->pLast;
		if (!seg || seg->used == seg->capacity)
		{
			const uint32 capacity = list->capacity < 4 ? 4 : list->capacity;
			KV3Segment_t *next = static_cast<KV3Segment_t *>(ctx->Alloc(sizeof(KV3Segment_t) + itemSize * capacity, 16));
			next->pNext = nullptr;
			next->capacity = capacity;
			next->used = 0;
			if (list->pLast)
				list->pLast->pNext = next;
			else
				list->pFirst = next;
			list->pLast = next;
			list->capacity += capacity;
			seg = next;
		}
		void *slot = static_cast<char *>(seg->Items()) + itemSize * seg->used;
		++seg->used;
		++list->count;
		return slot;
	}

	static void *ItemAt(const KV3List_t *list, size_t itemSize, uint32 index)
	{
		if (!list || index >= list->count)
			return nullptr;
		for (KV3Segment_t *seg = list->pFirst; seg; seg = seg->pNext)
		{
			if (index < seg->used)
				return static_cast<char *>(seg->Items()) + itemSize * index;
			index -= seg->used;
		}
		return nullptr;
	}

	static KV3Member_t *FindMember(const KV3List_t *list, const KV3MemberName_t &name, uint32 *pIndex = nullptr)
	{
		if (!list)
			return nullptr;
		uint32 index = 0;
		for (KV3Segment_t *seg = list->pFirst; seg; seg = seg->pNext)
		{
			KV3Member_t *items = static_cast<KV3Member_t *>(seg->Items());
			for (uint32 i = 0; i < seg->used; ++i, ++index)
			{
				if (items[i].hash == name.m_nHash && V_StrEqualNoCase(std::string_view(items[i].name, items[i].nameLength), name.m_Text))
				{
					if (pIndex)
						*pIndex = index;
					return &items[i];
				}
			}
		}
		return nullptr;
	}

	// Tables with more members than this get a hash index for lookups.
	static constexpr uint32 kIndexThreshold = 16;

	// The member of that name: through the index for large tables, by a scan otherwise.
	static KV3Member_t *LookupMember(CKeyValues3Context *ctx, KV3List_t *list, const KV3MemberName_t &name)
	{
		if (!list || list->count <= kIndexThreshold || !ctx)
			return FindMember(list, name);
		if (!list->pIndex)
			BuildIndex(ctx, list);
		const KV3MemberIndex_t *index = list->pIndex;
		const uint32 mask = index->capacity - 1;
		for (uint32 slot = name.m_nHash & mask;; slot = (slot + 1) & mask)
		{
			KV3Member_t *member = index->slots[slot];
			if (!member)
				return nullptr;
			if (member->hash == name.m_nHash && V_StrEqualNoCase(std::string_view(member->name, member->nameLength), name.m_Text))
				return member;
		}
	}

	// Adds a member that was just appended to the index, when the table has one.
	static void IndexAppended(CKeyValues3Context *ctx, KV3List_t *list, KV3Member_t *member)
	{
		KV3MemberIndex_t *index = list->pIndex;
		if (!index)
			return;
		if ((index->used + 1) * 2 > index->capacity)
		{
			BuildIndex(ctx, list); // the new member is already in the list
			return;
		}
		Insert(index, member);
	}

	static void BuildIndex(CKeyValues3Context *ctx, KV3List_t *list)
	{
		uint32 capacity = 32;
		while (capacity < list->count * 2 + 2)
			capacity *= 2;
		KV3MemberIndex_t *index = static_cast<KV3MemberIndex_t *>(ctx->Alloc(sizeof(KV3MemberIndex_t) + sizeof(KV3Member_t *) * capacity, 8));
		index->capacity = capacity;
		index->used = 0;
		memset(index->slots, 0, sizeof(KV3Member_t *) * capacity);
		for (KV3Segment_t *seg = list->pFirst; seg; seg = seg->pNext)
		{
			KV3Member_t *items = static_cast<KV3Member_t *>(seg->Items());
			for (uint32 i = 0; i < seg->used; ++i)
				Insert(index, &items[i]);
		}
		list->pIndex = index;
	}

	static void Insert(KV3MemberIndex_t *index, KV3Member_t *member)
	{
		const uint32 mask = index->capacity - 1;
		uint32 slot = member->hash & mask;
		while (index->slots[slot])
			slot = (slot + 1) & mask;
		index->slots[slot] = member;
		++index->used;
	}

	// Removes the item at `index`, moving the later items down by one.
	static void RemoveAt(KV3List_t *list, size_t itemSize, uint32 index)
	{
		list->pIndex = nullptr; // members move; the index is rebuilt on the next lookup
		for (uint32 i = index; i + 1 < list->count; ++i)
			memcpy(ItemAt(list, itemSize, i), ItemAt(list, itemSize, i + 1), itemSize);
		// The last item lives in the last segment that has any.
		KV3Segment_t *tail = nullptr;
		uint32 seen = 0;
		for (KV3Segment_t *seg = list->pFirst; seg; seg = seg->pNext)
		{
			seen += seg->used;
			if (seen == list->count)
			{
				tail = seg;
				break;
			}
		}
		--tail->used;
		--list->count;
		// Appends go to the first segment with room; every segment after it is empty.
		if (tail->used < tail->capacity)
		{
			KV3Segment_t *seg = list->pFirst;
			while (seg->used == seg->capacity)
				seg = seg->pNext;
			// Segments after `seg` are all empty: make `seg` the append point by moving the
			// empty ones out of the chain (their memory stays in the arena).
			list->capacity = 0;
			for (KV3Segment_t *s = list->pFirst; s != seg; s = s->pNext)
				list->capacity += s->capacity;
			list->capacity += seg->capacity;
			seg->pNext = nullptr;
			list->pLast = seg;
		}
	}
};

