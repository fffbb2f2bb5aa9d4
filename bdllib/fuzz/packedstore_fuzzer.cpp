// Feeds arbitrary bytes to the pack store as a pack file, read-only and writable, through a file
// system in memory. The same bytes also stand in for the chunk files.
//
// A damaged pack ends in one of the store's documented fatal errors. Those are expected here:
// the fatal handler jumps back into this entry point (siglongjmp), the store whose constructor
// was cut short is destroyed as it stands (its members are complete: the reading runs in the
// constructor's body and keeps everything it has read in members), and open handles are taken
// back from the file system. What Plat_FatalError itself allocated for its message before the
// jump cannot be freed; that one allocation site is named in the leak suppressions below.
//
// Whatever opens must behave: file contents read back at their listed size, and a writable store
// must write a pack that opens again with the same tree and the file that was added.
#include <csetjmp>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>

#include "bdllib/packedstore.h"
#include "core/logging.h"
#include "memory_filesystem.h"

extern "C" const char *__lsan_default_suppressions()
{
	return "leak:Plat_FatalError\n";
}

namespace
{
sigjmp_buf s_Jump;
bool s_bJumpArmed = false;

void JumpOnFatal(const char *)
{
	if (s_bJumpArmed)
	{
		s_bJumpArmed = false;
		siglongjmp(s_Jump, 1);
	}
}

class CQuietListener final : public ILoggingListener
{
public:
	void Log(const LoggingContext_t &, const char *) override {}
};

// Room for the store under test and for the one that reads back what it wrote.
struct StoreMemory_t
{
	alignas(CPackedStore) unsigned char bytes[sizeof(CPackedStore)];
};
StoreMemory_t s_FirstStore, s_SecondStore;

// Opens the pack in the given room; null when a fatal error ended the opening. The jump lands
// here while the constructor runs inside this frame.
CPackedStore *Open(StoreMemory_t &memory, CMemoryFileSystem &fs, const char *name, int flags)
{
	if (sigsetjmp(s_Jump, 0) != 0)
	{
		std::launder(reinterpret_cast<CPackedStore *>(memory.bytes))->~CPackedStore();
		fs.CloseAll();
		return nullptr;
	}
	s_bJumpArmed = true;
	CPackedStore *store = new (memory.bytes) CPackedStore(name, &fs, flags);
	s_bJumpArmed = false;
	return store;
}

std::string Tree(CPackedStore &store)
{
	CUtlVector<uint8> tree;
	store.GetDirectoryTree(tree);
	return std::string(tree.begin(), tree.end());
}

void Exercise(CMemoryFileSystem &fs, CPackedStore &store, bool bWritable)
{
	CUtlVector<PackedStoreFileInfo_t> files;
	store.GetFileList(files);
	if ((int)files.size() != store.GetFileCount())
		__builtin_trap();
	for (const PackedStoreFileInfo_t &file : files)
	{
		PackedStoreFileInfo_t found;
		store.FindFile(file.m_Name.c_str(), found);
		if (file.m_nTotalSize > (1 << 20))
			continue;
		CUtlBuffer data;
		CUtlString error;
		if (store.ReadFileData(file, data, &error))
		{
			if (data.Size() != file.m_nTotalSize)
				__builtin_trap();
		}
		else if (error.empty())
			__builtin_trap(); // a failure always says why
	}
	bool bHasHash = false;
	CUtlString error;
	store.VerifySelfHash(&bHasHash, &error);

	if (!bWritable || (!store.GetSignaturePublicKey().empty() && !store.GetSignature().empty()))
		return;
	store.AddFile("fuzz/added.txt", 2, "abcdef", 6, false);
	if (store.GetWriteChunk() < PACKEDSTORE_EMBEDDED_INDEX)
		store.AddFile("fuzz/chunked.bin", 0, "chunk data", 10, true);
	const std::string tree = Tree(store);
	if (!store.Write())
		__builtin_trap();

	// What was written opens again, with no fatal error, the same tree and the new files.
	CPackedStore *again = Open(s_SecondStore, fs, "p.bdl", PACKEDSTORE_FLAG_READ_EMBEDDED | PACKEDSTORE_FLAG_WRITABLE);
	if (!again)
		__builtin_trap();
	if (Tree(*again) != tree)
		__builtin_trap();
	PackedStoreFileInfo_t added;
	CUtlBuffer data;
	if (!again->FindFile("fuzz/added.txt", added) || !again->ReadFileData(added, data, &error) || data.View() != "abcdef")
		__builtin_trap();
	again->~CPackedStore();
}

void RunOne(CMemoryFileSystem &fs, const uint8_t *data, size_t size, int flags)
{
	fs.CloseAll();
	fs.m_Files.clear();
	const std::vector<uint8> bytes(data, data + size);
	fs.m_Files["p.bdl"] = bytes;
	fs.m_Files["p_000.bdl"] = bytes;
	fs.m_Files["p_001.bdl"] = bytes;
	const std::string filter = "# filter\nmaterials/...\nscripts/items/items_game.txt\n";
	fs.m_Files["p_flt.bdl"].assign(filter.begin(), filter.end());

	// Alternate names: the pack as a single file, or as the directory file of a chunked pack.
	const char *name = (size > 0 && (data[size - 1] & 1)) ? "p_dir.bdl" : "p.bdl";
	if (strcmp(name, "p_dir.bdl") == 0)
		fs.m_Files["p_dir.bdl"] = bytes;

	CPackedStore *store = Open(s_FirstStore, fs, name, flags);
	if (!store)
		return;
	Exercise(fs, *store, flags != 0);
	store->~CPackedStore();
	if (fs.OpenHandles() != 0)
		__builtin_trap(); // the store closes what it opens
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	static CQuietListener s_quiet;
	static CMemoryFileSystem *s_pFileSystem = [] {
		LoggingSystem_PushLoggingState(true);
		LoggingSystem_RegisterLoggingListener(&s_quiet);
		SetFatalErrorHandler(JumpOnFatal);
		return new CMemoryFileSystem;
	}();
	RunOne(*s_pFileSystem, data, size, 0);
	RunOne(*s_pFileSystem, data, size, PACKEDSTORE_FLAG_READ_EMBEDDED | PACKEDSTORE_FLAG_WRITABLE);
	return 0;
}
