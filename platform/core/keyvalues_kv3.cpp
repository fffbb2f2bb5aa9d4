// KV1 text read as a KV3 tree. KV1 allows a name to repeat at one level and KV3 tables do not,
// so a repeated name becomes one member holding an array of its occurrences, in order.
#include <string>
#include <unordered_map>
#include <vector>

#include "core/fileio.h"
#include "core/keyvalues.h"
#include "core/keyvalues3.h"
#include "core/keyvalues3_internal.h"
#include "core/strtools.h"

namespace
{
// The tree is built bottom-up as raw values, as the KV3 text parser builds it: each table is
// made in one piece once its members are known. Adding members one by one would look each name
// up in the table first, which is quadratic for the blocks of tens of thousands of keys that
// item files hold. Names are grouped here, so the members of a table are unique by
// construction.
KV3RawValue_t ConvertKeys(CKeyValues3Context *ctx, KeyValues *first);

KV3RawValue_t ConvertKey(CKeyValues3Context *ctx, KeyValues *key)
{
	if (key->GetDataType() == KeyValues::TYPE_NONE)
		return ConvertKeys(ctx, key->GetFirstSubKey());
	return KV3Internal::MakeStringRaw(ctx, key->GetString());
}

// The keys of one level (first and its peers) as a table. The depth of the recursion is that
// of the loaded tree, which the reader limits.
KV3RawValue_t ConvertKeys(CKeyValues3Context *ctx, KeyValues *first)
{
	struct Group_t
	{
		KeyValues *first;
		std::vector<KV3RawValue_t> occurrences;
	};
	// Names compare without case in both models; the first spelling names the member.
	std::vector<Group_t> groups;
	std::unordered_map<std::string, size_t> groupOf;
	std::vector<size_t> keyGroup;
	for (KeyValues *key = first; key; key = key->GetNextKey())
	{
		std::string folded = key->GetName();
		for (char &c : folded)
			c = V_tolower(c);
		const auto [found, bNew] = groupOf.emplace(std::move(folded), groups.size());
		if (bNew)
			groups.push_back({ key, {} });
		keyGroup.push_back(found->second);
	}
	size_t index = 0;
	for (KeyValues *key = first; key; key = key->GetNextKey())
		groups[keyGroup[index++]].occurrences.push_back(ConvertKey(ctx, key));

	std::vector<KV3RawMember_t> members;
	members.reserve(groups.size());
	for (const Group_t &group : groups)
	{
		const std::string_view name = group.first->GetName();
		const uint32 hash = KV3HashMemberName(name);
		KV3RawMember_t member{ hash, (uint32)name.size(), ctx->InternMemberName(hash, name), {} };
		if (group.occurrences.size() == 1)
			member.value = group.occurrences[0];
		else
			member.value = KV3Internal::MakeListRaw(ctx, KV3_TYPE_ARRAY, group.occurrences.data(), sizeof(KV3RawValue_t),
				(uint32)group.occurrences.size());
		members.push_back(member);
	}
	return KV3Internal::MakeListRaw(ctx, KV3_TYPE_TABLE, members.data(), sizeof(KV3RawMember_t), (uint32)members.size());
}

bool Convert(KeyValues3 *value, CUtlString *error, KeyValues &document)
{
	if (!value || value->IsImmutable())
	{
		if (error)
			*error = "LoadKV3FromKV1: no writable value to fill";
		return false;
	}
	KV3Internal::Store(value, ConvertKeys(value->GetContext(), &document));
	return true;
}

KV1LoadOptions_t OptionsFor(KV1EscapeBehavior_t escapeBehavior)
{
	KV1LoadOptions_t options;
	options.escapes = escapeBehavior;
	options.conditions = KV1_CONDITIONS_EVALUATE;
	return options;
}
} // namespace

bool LoadKV3FromKV1File(KeyValues3 *value, CUtlString *error, const char *path, const char *pathID,
	KV1EscapeBehavior_t escapeBehavior)
{
	KeyValues document("");
	if (!document.LoadFromFile(CoreFileSystem(), path, pathID, OptionsFor(escapeBehavior), error))
		return false;
	return Convert(value, error, document);
}

bool LoadKV3FromKV1Text(KeyValues3 *value, CUtlString *error, const char *text, size_t length, const char *sourceName,
	KV1EscapeBehavior_t escapeBehavior)
{
	KeyValues document("");
	if (!document.LoadFromBuffer(sourceName, text, length, CoreFileSystem(), nullptr, OptionsFor(escapeBehavior), error))
		return false;
	return Convert(value, error, document);
}
