// The KeyValues tree: nodes, values, lookups, copies and merges. The text reader and writer
// live in keyvalues_text.cpp.
//
// Subkeys are a singly linked list (m_pSub, then m_pPeer). Nothing here recurses over the
// depth of a tree: deletion, copies and merges keep their own work lists, so that a tree built
// by code (which has no nesting limit, unlike a loaded one) cannot exhaust the stack.
#include "core/keyvalues.h"

#include <algorithm>
#include <charconv>
#include <cfloat>
#include <cinttypes>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unordered_map>
#include <utility>
#include <vector>

#include "core/strtools.h"

namespace
{
bool IsBlank(char c)
{
	return c == ' ' || (c >= '\t' && c <= '\r');
}

// The leading integer of a text as atoi reads it (blanks, sign, digits; 0 when there is
// none), but saturated instead of overflowing.
int64 LeadingInt64(const char *text)
{
	return (int64)strtoll(text, nullptr, 10);
}

uint64 LeadingUint64(const char *text)
{
	const char *p = text;
	while (IsBlank(*p))
		++p;
	if (*p == '-')
		return (uint64)LeadingInt64(p); // "-1" gives the usual two's complement value
	return (uint64)strtoull(p, nullptr, 10);
}

// The leading number of a text as a float. std::from_chars rather than strtod: strtod follows
// the process locale, and a Qt application may run with one whose decimal mark is a comma.
float LeadingFloat(const char *text)
{
	const char *p = text;
	while (IsBlank(*p))
		++p;
	if (*p == '+')
		++p;
	double value = 0.0;
	const char *end = p + strlen(p);
	const auto result = std::from_chars(p, end, value);
	if (result.ec == std::errc::result_out_of_range)
	{
		// from_chars leaves the value alone when out of range: tell underflow from overflow by
		// the sign of the exponent.
		bool bTiny = false;
		for (const char *q = p; q < result.ptr; ++q)
		{
			if ((*q == 'e' || *q == 'E') && q[1] == '-')
				bTiny = true;
		}
		const bool bNegative = *p == '-';
		return bTiny ? (bNegative ? -0.0f : 0.0f) : (bNegative ? -INFINITY : INFINITY);
	}
	if (result.ec != std::errc())
		return 0.0f;
	if (value > FLT_MAX)
		return INFINITY;
	if (value < -FLT_MAX)
		return -INFINITY;
	return (float)value;
}

// float to int as a cast would, but defined for every input (NaN gives 0, the rest saturates).
int FloatToInt(float value)
{
	if (std::isnan(value))
		return 0;
	if (value >= 2147483647.0f)
		return INT_MAX;
	if (value <= -2147483648.0f)
		return INT_MIN;
	return (int)value;
}

int ClampToInt(int64 value)
{
	return value > INT_MAX ? INT_MAX : value < INT_MIN ? INT_MIN : (int)value;
}

std::string FoldedName(const CUtlString &name)
{
	std::string folded(name);
	for (char &c : folded)
		c = V_tolower(c);
	return folded;
}

// True when `node` is `root` or lies anywhere under it.
bool TreeContains(const KeyValues *root, const KeyValues *node)
{
	std::vector<const KeyValues *> pending{ root };
	while (!pending.empty())
	{
		const KeyValues *p = pending.back();
		pending.pop_back();
		if (p == node)
			return true;
		for (const KeyValues *sub = p->GetFirstSubKey(); sub; sub = sub->GetNextKey())
			pending.push_back(sub);
	}
	return false;
}
} // namespace

KeyValues::KeyValues(const char *name) : m_Name(name ? name : "")
{
}

KeyValues::~KeyValues()
{
	if (m_bOwnsPeers)
	{
		DeleteChain(m_pPeer);
		m_pPeer = nullptr;
	}
	DeleteSubKeys();
}

void KeyValues::DeleteChain(KeyValues *pFirst)
{
	// The chain is a work list: a node's subkeys are moved onto it before the node is deleted,
	// so every destructor that runs sees a node with neither subkeys nor peers.
	KeyValues *pending = pFirst;
	while (pending)
	{
		KeyValues *node = pending;
		pending = node->m_pPeer;
		if (node->m_pSub)
		{
			KeyValues *last = node->m_pSub;
			while (last->m_pPeer)
				last = last->m_pPeer;
			last->m_pPeer = pending;
			pending = node->m_pSub;
		}
		node->m_pSub = nullptr;
		node->m_pPeer = nullptr;
		node->m_bOwnsPeers = false;
		delete node;
	}
}

void KeyValues::DeleteSubKeys()
{
	KeyValues *first = m_pSub;
	m_pSub = nullptr;
	DeleteChain(first);
}

const char *KeyValues::GetName() const
{
	return m_Name.c_str();
}

void KeyValues::SetName(const char *name)
{
	m_Name = name ? name : "";
}

KeyValues::types_t KeyValues::GetDataType(const char *keyName) const
{
	const KeyValues *node = FindKey(keyName);
	return node ? node->m_eType : TYPE_NONE;
}

KeyValues *KeyValues::FindSubKey(const char *name, size_t length) const
{
	const std::string_view wanted(name, length);
	for (KeyValues *sub = m_pSub; sub; sub = sub->m_pPeer)
	{
		if (V_StrEqualNoCase(sub->m_Name, wanted))
			return sub;
	}
	return nullptr;
}

KeyValues *KeyValues::FindKey(const char *keyName, bool bCreate)
{
	if (!keyName || !*keyName)
		return this;
	const size_t length = strlen(keyName);
	if (KeyValues *exact = FindSubKey(keyName, length))
		return exact;
	if (!memchr(keyName, '/', length))
		return bCreate ? AddKey(keyName) : nullptr;

	// A path: each segment names a subkey of the one before; empty segments ("a//b") are skipped.
	KeyValues *node = this;
	const char *segment = keyName;
	for (;;)
	{
		const char *slash = strchr(segment, '/');
		const size_t segmentLength = slash ? (size_t)(slash - segment) : strlen(segment);
		if (segmentLength > 0)
		{
			KeyValues *child = node->FindSubKey(segment, segmentLength);
			if (!child)
			{
				if (!bCreate)
					return nullptr;
				child = node->AddKey(CUtlString(segment, segmentLength).c_str());
			}
			node = child;
		}
		if (!slash)
			return node;
		segment = slash + 1;
	}
}

const KeyValues *KeyValues::FindKey(const char *keyName) const
{
	return const_cast<KeyValues *>(this)->FindKey(keyName, false);
}

const char *KeyValues::ValueText(CUtlString &scratch) const
{
	char text[64];
	switch (m_eType)
	{
	case TYPE_STRING:
		return m_String.c_str();
	case TYPE_INT:
		snprintf(text, sizeof(text), "%d", m_nInt);
		break;
	case TYPE_UINT64:
		snprintf(text, sizeof(text), "%" PRIu64, m_nUint64);
		break;
	case TYPE_FLOAT:
	{
		// The shortest text that reads back as the same float.
		const auto result = std::to_chars(text, text + sizeof(text) - 1, m_flFloat);
		*result.ptr = 0;
		break;
	}
	case TYPE_PTR:
		snprintf(text, sizeof(text), "%p", m_pPtr);
		break;
	default:
		text[0] = 0;
		break;
	}
	scratch = text;
	return scratch.c_str();
}

const char *KeyValues::GetString(const char *keyName, const char *defaultValue)
{
	KeyValues *node = FindKey(keyName, false);
	if (!node || node->m_eType == TYPE_NONE)
		return defaultValue;
	if (node->m_eType != TYPE_STRING && !node->m_bStringValid)
	{
		// Numbers keep their text once asked, so that the pointer stays valid like a string's.
		CUtlString text;
		node->ValueText(text);
		node->m_String = std::move(text);
		node->m_bStringValid = true;
	}
	return node->m_String.c_str();
}

int KeyValues::GetInt(const char *keyName, int defaultValue)
{
	const KeyValues *node = FindKey(keyName, false);
	if (!node)
		return defaultValue;
	switch (node->m_eType)
	{
	case TYPE_STRING:
		return ClampToInt(LeadingInt64(node->m_String.c_str()));
	case TYPE_INT:
		return node->m_nInt;
	case TYPE_UINT64:
		return (int)node->m_nUint64;
	case TYPE_FLOAT:
		return FloatToInt(node->m_flFloat);
	case TYPE_PTR:
		return (int)(intptr_t)node->m_pPtr;
	default:
		return defaultValue;
	}
}

uint64 KeyValues::GetUint64(const char *keyName, uint64 defaultValue)
{
	const KeyValues *node = FindKey(keyName, false);
	if (!node)
		return defaultValue;
	switch (node->m_eType)
	{
	case TYPE_STRING:
		return LeadingUint64(node->m_String.c_str());
	case TYPE_INT:
		return (uint64)(int64)node->m_nInt;
	case TYPE_UINT64:
		return node->m_nUint64;
	case TYPE_FLOAT:
	{
		const float value = node->m_flFloat;
		if (std::isnan(value) || value <= -9.2233720368547758e18f || value >= 1.8446744073709552e19f)
			return 0;
		return value < 0 ? (uint64)(int64)value : (uint64)value;
	}
	case TYPE_PTR:
		return (uint64)(uintptr_t)node->m_pPtr;
	default:
		return defaultValue;
	}
}

float KeyValues::GetFloat(const char *keyName, float defaultValue)
{
	const KeyValues *node = FindKey(keyName, false);
	if (!node)
		return defaultValue;
	switch (node->m_eType)
	{
	case TYPE_STRING:
		return LeadingFloat(node->m_String.c_str());
	case TYPE_INT:
		return (float)node->m_nInt;
	case TYPE_UINT64:
		return (float)node->m_nUint64;
	case TYPE_FLOAT:
		return node->m_flFloat;
	default:
		return defaultValue;
	}
}

void *KeyValues::GetPtr(const char *keyName, void *defaultValue)
{
	const KeyValues *node = FindKey(keyName, false);
	return node && node->m_eType == TYPE_PTR ? node->m_pPtr : defaultValue;
}

bool KeyValues::GetBool(const char *keyName, bool defaultValue)
{
	const KeyValues *node = FindKey(keyName, false);
	if (!node || node->m_eType == TYPE_NONE)
		return defaultValue;
	switch (node->m_eType)
	{
	case TYPE_STRING:
	{
		// Hand-written files say "true" and "false" as often as "1" and "0".
		const char *text = node->m_String.c_str();
		if (V_stricmp(text, "true") == 0)
			return true;
		if (V_stricmp(text, "false") == 0)
			return false;
		return LeadingFloat(text) != 0.0f;
	}
	case TYPE_INT:
		return node->m_nInt != 0;
	case TYPE_FLOAT:
		return node->m_flFloat != 0.0f;
	case TYPE_UINT64:
		return node->m_nUint64 != 0;
	case TYPE_PTR:
		return node->m_pPtr != nullptr;
	default:
		return defaultValue;
	}
}

bool KeyValues::IsEmpty(const char *keyName)
{
	const KeyValues *node = FindKey(keyName, false);
	return !node || (node->m_eType == TYPE_NONE && !node->m_pSub);
}

void KeyValues::ClearValue()
{
	m_eType = TYPE_NONE;
	m_String.clear();
	m_String.shrink_to_fit();
	m_bStringValid = false;
	m_nUint64 = 0;
}

void KeyValues::SetStringValue(const char *value)
{
	DeleteSubKeys();
	ClearValue();
	m_eType = TYPE_STRING;
	m_String = value ? value : "";
}

void KeyValues::SetString(const char *keyName, const char *value)
{
	FindKey(keyName, true)->SetStringValue(value);
}

void KeyValues::SetInt(const char *keyName, int value)
{
	KeyValues *node = FindKey(keyName, true);
	node->DeleteSubKeys();
	node->ClearValue();
	node->m_eType = TYPE_INT;
	node->m_nInt = value;
}

void KeyValues::SetUint64(const char *keyName, uint64 value)
{
	KeyValues *node = FindKey(keyName, true);
	node->DeleteSubKeys();
	node->ClearValue();
	node->m_eType = TYPE_UINT64;
	node->m_nUint64 = value;
}

void KeyValues::SetFloat(const char *keyName, float value)
{
	KeyValues *node = FindKey(keyName, true);
	node->DeleteSubKeys();
	node->ClearValue();
	node->m_eType = TYPE_FLOAT;
	node->m_flFloat = value;
}

void KeyValues::SetPtr(const char *keyName, void *value)
{
	KeyValues *node = FindKey(keyName, true);
	node->DeleteSubKeys();
	node->ClearValue();
	node->m_eType = TYPE_PTR;
	node->m_pPtr = value;
}

void KeyValues::AppendChain(KeyValues *pFirst)
{
	if (!pFirst)
		return;
	// A node is a block or a value, never both: the writer could not keep both.
	if (m_eType != TYPE_NONE)
		ClearValue();
	if (!m_pSub)
	{
		m_pSub = pFirst;
		return;
	}
	KeyValues *last = m_pSub;
	while (last->m_pPeer)
		last = last->m_pPeer;
	last->m_pPeer = pFirst;
}

KeyValues *KeyValues::AddKey(const char *name)
{
	KeyValues *key = new KeyValues(name);
	AppendChain(key);
	return key;
}

void KeyValues::AddSubKey(KeyValues *subKey)
{
	if (!subKey || subKey == this)
		return;
	// Peers that a load attached to the key belong to it, so they come along, after it.
	if (!subKey->m_bOwnsPeers)
		subKey->m_pPeer = nullptr;
	subKey->m_bOwnsPeers = false;
	AppendChain(subKey);
}

KeyValues *KeyValues::CreateNewKey()
{
	int64 highest = 0;
	for (const KeyValues *sub = m_pSub; sub; sub = sub->m_pPeer)
	{
		const CUtlString &name = sub->m_Name;
		if (name.empty() || name.size() > 18)
			continue;
		bool bDigits = true;
		for (char c : name)
			bDigits = bDigits && c >= '0' && c <= '9';
		if (bDigits)
			highest = std::max<int64>(highest, strtoll(name.c_str(), nullptr, 10));
	}
	return AddKey(V_Format("%lld", (long long)highest + 1).c_str());
}

void KeyValues::RemoveSubKey(KeyValues *subKey)
{
	if (!subKey)
		return;
	KeyValues **link = &m_pSub;
	while (*link && *link != subKey)
		link = &(*link)->m_pPeer;
	if (!*link)
		return;
	*link = subKey->m_pPeer;
	subKey->m_pPeer = nullptr;
}

bool KeyValues::FindAndDeleteSubKey(const char *name)
{
	KeyValues *sub = FindSubKey(name ? name : "", name ? strlen(name) : 0);
	if (!sub)
		return false;
	RemoveSubKey(sub);
	delete sub;
	return true;
}

void KeyValues::Clear()
{
	DeleteSubKeys();
	ClearValue();
}

KeyValues *KeyValues::GetFirstSubKey() const
{
	return m_pSub;
}

KeyValues *KeyValues::GetNextKey() const
{
	return m_pPeer;
}

KeyValues *KeyValues::GetFirstTrueSubKey() const
{
	KeyValues *sub = m_pSub;
	while (sub && sub->m_eType != TYPE_NONE)
		sub = sub->m_pPeer;
	return sub;
}

KeyValues *KeyValues::GetNextTrueSubKey() const
{
	KeyValues *next = m_pPeer;
	while (next && next->m_eType != TYPE_NONE)
		next = next->m_pPeer;
	return next;
}

KeyValues *KeyValues::GetFirstValue() const
{
	KeyValues *sub = m_pSub;
	while (sub && sub->m_eType == TYPE_NONE)
		sub = sub->m_pPeer;
	return sub;
}

KeyValues *KeyValues::GetNextValue() const
{
	KeyValues *next = m_pPeer;
	while (next && next->m_eType == TYPE_NONE)
		next = next->m_pPeer;
	return next;
}

const char *KeyValues::GetCondition() const
{
	return m_Condition.c_str();
}

void KeyValues::SetCondition(const char *condition)
{
	m_Condition = condition ? condition : "";
}

void KeyValues::CopyValueFrom(const KeyValues &source)
{
	ClearValue();
	m_eType = source.m_eType;
	m_Condition = source.m_Condition;
	switch (source.m_eType)
	{
	case TYPE_STRING:
		m_String = source.m_String;
		break;
	case TYPE_INT:
		m_nInt = source.m_nInt;
		break;
	case TYPE_FLOAT:
		m_flFloat = source.m_flFloat;
		break;
	case TYPE_PTR:
		m_pPtr = source.m_pPtr;
		break;
	case TYPE_UINT64:
		m_nUint64 = source.m_nUint64;
		break;
	default:
		m_eType = TYPE_NONE;
		break;
	}
}

KeyValues *KeyValues::MakeCopy() const
{
	KeyValues *copy = new KeyValues(m_Name.c_str());
	copy->CopyValueFrom(*this);
	CopySubkeys(copy);
	return copy;
}

void KeyValues::CopySubkeys(KeyValues *dest) const
{
	if (!dest || !m_pSub)
		return;
	// The copies are built under a detached holder and appended at the end, so copying a node
	// into itself or into one of its own subkeys reads nothing that is being changed.
	KeyValues holder("");
	std::vector<std::pair<const KeyValues *, KeyValues *>> pending{ { this, &holder } };
	while (!pending.empty())
	{
		const auto [source, target] = pending.back();
		pending.pop_back();
		KeyValues *last = nullptr;
		for (const KeyValues *sub = source->m_pSub; sub; sub = sub->m_pPeer)
		{
			KeyValues *copy = new KeyValues(sub->m_Name.c_str());
			copy->CopyValueFrom(*sub);
			(last ? last->m_pPeer : target->m_pSub) = copy;
			last = copy;
			if (sub->m_pSub)
				pending.emplace_back(sub, copy);
		}
	}
	KeyValues *copies = holder.m_pSub;
	holder.m_pSub = nullptr;
	dest->AppendChain(copies);
}

void KeyValues::MergeFrom(const KeyValues *source, MergeKeyValuesOp_t op)
{
	if (!source)
		return;
	if (op == MERGE_KV_ALL)
	{
		source->CopySubkeys(this);
		return;
	}
	if (op != MERGE_KV_UPDATE && op != MERGE_KV_DELTA)
		return;

	// A merge with itself, an ancestor or a descendant would read what it changes: such a
	// merge works from a copy of the source.
	KeyValues *snapshot = nullptr;
	if (TreeContains(source, this) || TreeContains(this, source))
	{
		snapshot = source->MakeCopy();
		source = snapshot;
	}

	// Keys pair up by name and occurrence: the second "Ability" of the source meets the second
	// "Ability" here, so lists of repeated keys merge entry by entry. Levels with many keys
	// are indexed by name so that a merge stays linear in their size.
	enum { kIndexThreshold = 32 };
	std::vector<std::pair<KeyValues *, const KeyValues *>> pending{ { this, source } };
	while (!pending.empty())
	{
		const auto [dest, from] = pending.back();
		pending.pop_back();

		KeyValues *last = nullptr;
		size_t destCount = 0, sourceCount = 0;
		for (KeyValues *sub = dest->m_pSub; sub; sub = sub->m_pPeer, ++destCount)
			last = sub;
		for (const KeyValues *sub = from->m_pSub; sub; sub = sub->m_pPeer)
			++sourceCount;
		const bool bIndexed = destCount > kIndexThreshold || sourceCount > kIndexThreshold;
		std::unordered_map<std::string, std::vector<KeyValues *>> index;
		std::unordered_map<std::string, size_t> seen;
		if (bIndexed)
		{
			for (KeyValues *sub = dest->m_pSub; sub; sub = sub->m_pPeer)
				index[FoldedName(sub->m_Name)].push_back(sub);
		}

		for (const KeyValues *sub = from->m_pSub; sub; sub = sub->m_pPeer)
		{
			KeyValues *match = nullptr;
			if (bIndexed)
			{
				const std::string folded = FoldedName(sub->m_Name);
				const size_t occurrence = seen[folded]++;
				const auto found = index.find(folded);
				if (found != index.end() && occurrence < found->second.size())
					match = found->second[occurrence];
			}
			else
			{
				size_t occurrence = 0;
				for (const KeyValues *before = from->m_pSub; before != sub; before = before->m_pPeer)
					occurrence += V_StrEqualNoCase(before->m_Name, sub->m_Name) ? 1 : 0;
				for (KeyValues *candidate = dest->m_pSub; candidate; candidate = candidate->m_pPeer)
				{
					if (V_StrEqualNoCase(candidate->m_Name, sub->m_Name) && occurrence-- == 0)
					{
						match = candidate;
						break;
					}
				}
			}

			if (!match)
			{
				KeyValues *copy = sub->MakeCopy();
				if (last)
					last->m_pPeer = copy;
				else
					dest->AppendChain(copy);
				last = copy;
				continue;
			}
			const bool bSourceBlock = sub->m_eType == TYPE_NONE;
			const bool bDestBlock = match->m_eType == TYPE_NONE;
			if (bSourceBlock && bDestBlock)
			{
				pending.emplace_back(match, sub);
				continue;
			}
			if (op == MERGE_KV_DELTA)
				continue; // what is here stays
			if (bSourceBlock)
			{
				// A block replaces a value: the value goes, the block's keys come in.
				match->ClearValue();
				match->m_Condition = sub->m_Condition;
				pending.emplace_back(match, sub);
			}
			else
			{
				match->DeleteSubKeys();
				match->CopyValueFrom(*sub);
			}
		}
	}
	delete snapshot;
}
