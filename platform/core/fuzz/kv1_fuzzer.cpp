// Feeds arbitrary bytes to the KV1 text reader, with every combination of the escape and
// condition options. Whatever loads must write back to text that loads again to an equal tree,
// and copies and merges of it with itself must change nothing; its KV3 form must write and
// read back as KV3. Whatever fails must say why and leave the node as it was.
//
// #include and #base go to a small file system in memory (installed as the core's file
// system), so the fuzzer never reads the disk: it knows a few files, one of which includes
// itself; any other name is an error.
#include <cstdint>
#include <cstring>
#include <map>
#include <string>

#include "core/fileio.h"
#include "core/keyvalues.h"
#include "core/keyvalues3.h"
#include "core/kv3text.h"

namespace
{
class CMemoryFileSystem final : public IBaseFileSystem
{
public:
	CMemoryFileSystem()
	{
		m_Files["inc.txt"] = "Included { a 1 b \"two words\" }\n";
		m_Files["base.txt"] = "Root { fromBase 1 nested { x y } }\nBaseOnly { k v }\n";
		m_Files["self.txt"] = "Self { }\n#include \"self.txt\"\n";
		m_Files["dir/inner.txt"] = "Inner { }\n#include \"../inc.txt\"\n";
	}

	bool ReadFile(const char *path, const char *, CUtlBuffer &out, CUtlString *pError) override
	{
		const auto found = m_Files.find(path);
		if (found == m_Files.end())
		{
			if (pError)
				*pError = std::string(path) + ": cannot open file";
			return false;
		}
		out.Clear();
		out.Put(found->second.data(), found->second.size());
		return true;
	}
	bool WriteFile(const char *, const char *, const CUtlBuffer &, CUtlString *pError) override
	{
		if (pError)
			*pError = "read-only";
		return false;
	}
	bool FileExists(const char *path, const char *) override { return m_Files.count(path) != 0; }

private:
	std::map<std::string, std::string> m_Files;
};

CMemoryFileSystem s_FileSystem;

bool SameNode(KeyValues *a, KeyValues *b)
{
	if (strcmp(a->GetName(), b->GetName()) != 0 || a->GetDataType() != b->GetDataType() ||
		strcmp(a->GetCondition(), b->GetCondition()) != 0 || strcmp(a->GetString(), b->GetString()) != 0)
		return false;
	KeyValues *x = a->GetFirstSubKey(), *y = b->GetFirstSubKey();
	for (; x && y; x = x->GetNextKey(), y = y->GetNextKey())
	{
		if (!SameNode(x, y))
			return false;
	}
	return !x && !y;
}

// The node and the peers a load attached.
bool SameDocument(KeyValues *a, KeyValues *b)
{
	for (; a && b; a = a->GetNextKey(), b = b->GetNextKey())
	{
		if (!SameNode(a, b))
			return false;
	}
	return !a && !b;
}

void CheckLoad(const uint8_t *data, size_t size, const KV1LoadOptions_t &options)
{
	KeyValues kv("sentinel");
	kv.SetString("keep", "1");
	CUtlString error;
	KV1ParseError_t detail;
	if (!kv.LoadFromBuffer("fuzz.txt", (const char *)data, size, nullptr, nullptr, options, &error, &detail))
	{
		// A failure says why and where, and changes nothing.
		if (error.empty() || detail.message.empty() || detail.line < 0 || detail.column < 0)
			__builtin_trap();
		if (strcmp(kv.GetName(), "sentinel") != 0 || strcmp(kv.GetString("keep"), "1") != 0 || kv.GetNextKey())
			__builtin_trap();
		return;
	}

	CUtlBuffer text(CUtlBuffer::TEXT_BUFFER);
	kv.SaveToBuffer(text);
	KV1LoadOptions_t reread;
	reread.escapes = KV1_ESCAPES_PROCESS; // what the writer writes
	reread.conditions = options.conditions;
	KeyValues again("");
	if (!again.LoadFromBuffer("roundtrip.txt", text, nullptr, nullptr, reread, &error))
		__builtin_trap();
	if (!SameDocument(&kv, &again))
		__builtin_trap();
	CUtlBuffer second(CUtlBuffer::TEXT_BUFFER);
	again.SaveToBuffer(second);
	if (second.View() != text.View())
		__builtin_trap();

	// Copies are equal, and merging a tree with itself changes nothing.
	KeyValues *copy = kv.MakeCopy();
	if (!SameNode(copy, &kv))
		__builtin_trap();
	copy->MergeFrom(&kv, KeyValues::MERGE_KV_UPDATE);
	copy->MergeFrom(copy, KeyValues::MERGE_KV_DELTA);
	if (!SameNode(copy, &kv))
		__builtin_trap();
	delete copy;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	static bool bInstalled = (SetCoreFileSystem(&s_FileSystem), true);
	(void)bInstalled;

	for (KV1EscapeBehavior_t escapes : { KV1_ESCAPES_PROCESS, KV1_ESCAPES_NONE })
	{
		for (KV1ConditionBehavior_t conditions : { KV1_CONDITIONS_EVALUATE, KV1_CONDITIONS_KEEP })
		{
			KV1LoadOptions_t options;
			options.escapes = escapes;
			options.conditions = conditions;
			CheckLoad(data, size, options);
		}
	}

	// The KV3 form must be a well-formed document: it writes as KV3 text and reads back equal.
	CKeyValues3Context context;
	CUtlString error;
	if (!LoadKV3FromKV1Text(context.Root(), &error, (const char *)data, size, "fuzz.txt"))
	{
		if (error.empty())
			__builtin_trap();
		return 0;
	}
	CUtlBuffer text(CUtlBuffer::TEXT_BUFFER);
	if (!SaveKV3(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC, context.Root(), &error, &text))
		__builtin_trap();
	CKeyValues3Context again;
	if (!LoadKV3(&again, &error, &text, KV3_FORMAT_GENERIC, "roundtrip.kv3") || !KV3ValuesEqual(context.Root(), again.Root()))
		__builtin_trap();
	return 0;
}
