// CPackedStore: reads and writes BDL pack files.
//
// A pack is one directory that names every file and says where its bytes are, plus the bytes:
// embedded in the directory file, in numbered chunk files beside it, or both. Names:
//
//   <base>.bdl       a single-file pack: directory and data in one file
//   <base>_dir.bdl   the directory file of a multi-chunk pack
//   <base>_NNN.bdl   chunk number NNN ("%s_%03d.bdl")
//   <base>_flt.bdl   an optional text filter
//
// Directory file, little-endian throughout: a header (signature 0x55AA1234, version, tree size,
// and for version 2 the embedded data size, chunk hashes size, self hashes size and signature
// size), the directory tree, the embedded data, the chunk hashes (skipped), three 16-byte
// hashes (the third is the MD5 of everything before it) and an optional signature block. A file
// that does not start with the signature is a bare tree (version 0).
//
// The tree is three nested lists of zero-terminated strings, each ended by an empty string:
// extensions, then the folders of an extension, then the base names of a folder, each base name
// followed by its entry (CRC, preload size, fragments of archive index / offset / size up to an
// index of 0xFFFF, then the preload bytes). A missing extension or root folder is a single
// blank. The tree keeps insertion order, newest first.
//
// In memory the store keeps the tree as its three lists; those lists are the lookup index too:
// 15 buckets of extensions by a seeded MurmurHash2, 43 buckets of folders per extension, and a
// table of file names (FNV-1a, linear probing) for a folder with more than 64 files. Written
// out, the lists give back exactly the bytes of the tree they were read from.
//
// Corruption of a pack, an unknown version, a chunk that cannot be opened, a bad name and a too
// big preload end the process through Plat_FatalError, with fixed messages. Write reports by its
// result; reading file contents (not needed for packing) reports damage with a message.
#pragma once

#include <algorithm>
#include <atomic>
#include <memory>
#include <shared_mutex>
#include <vector>

#include "core/hashes.h"
#include "core/platform.h"
#include "core/utlbuffer.h"
#include "core/utlstring.h"
#include "core/utlvector.h"
#include "filesystem/filesystem.h"

enum
{
	PACKEDSTORE_SIGNATURE = 0x55AA1234,
	PACKEDSTORE_VERSION = 2,
	PACKEDSTORE_HEADER_SIZE_V1 = 12,
	PACKEDSTORE_HEADER_SIZE_V2 = 28,
	PACKEDSTORE_SELF_HASHES_SIZE = 48,
	PACKEDSTORE_EMBEDDED_INDEX = 0x7FFF,
	PACKEDSTORE_TERMINATOR = 0xFFFF,
	PACKEDSTORE_MAX_EXTENSION = 129, // terminator included
	PACKEDSTORE_MAX_BASENAME = 261,	 // terminator included
	PACKEDSTORE_EXTENSION_BUCKETS = 15,
	PACKEDSTORE_PATH_BUCKETS = 43,
	PACKEDSTORE_FILE_TABLE_THRESHOLD = 64,
	PACKEDSTORE_READ_STEP = 0x80000,
};

const int64 PACKEDSTORE_DEFAULT_CHUNK_SIZE = 104857600; // 100 MiB
const uint32 PACKEDSTORE_BUCKET_SEED = 0x3501A674;

// Bits of the constructor's flags: either means the embedded data is read into memory and the
// pack may be written.
enum
{
	PACKEDSTORE_FLAG_READ_EMBEDDED = 0x1,
	PACKEDSTORE_FLAG_WRITABLE = 0x2,
};

enum EPackedStoreAddResultCode
{
	EPADD_NEWFILE = 0,	   // added
	EPADD_ADDSAMEFILE = 1, // the same name with equal size, CRC and preload: nothing changed
	EPADD_UPDATEFILE = 2,  // the same name with other content: replaced
	EPADD_ERROR = 3,
};

struct PackedStoreFragment_t
{
	uint16 m_nArchiveIndex; // PACKEDSTORE_EMBEDDED_INDEX: embedded data; otherwise a chunk number
	uint32 m_nOffset;
	uint32 m_nSize;
};

// What a lookup or a listing gives about one file.
struct PackedStoreFileInfo_t
{
	CUtlString m_Name; // "dir/base.ext" as the tree holds it (no "dir/" at the root, no ".ext" without one)
	CUtlString m_Extension;
	CUtlString m_Path;
	CUtlString m_BaseName;
	uint32 m_nCRC = 0;
	uint16 m_nPreloadSize = 0;
	uint64 m_nTotalSize = 0; // preload plus every fragment
	CUtlVector<PackedStoreFragment_t> m_Fragments;
	CUtlVector<uint8> m_Preload;
	bool m_bInFilter = false; // the folder is listed in the filter file
};

// A bucket or table entry keeps the hash beside the record, so that a lookup compares hashes
// without touching the records that do not match.
template <typename T> struct PackedStoreBucketEntry_t
{
	uint32 m_nHash;
	T *m_pRecord;
};

struct PackedStoreFileSlot_t
{
	int32 m_nIndex; // into m_Files, -1 when empty
	uint32 m_nHash;
};

// The in-memory tree.
struct CPackedStoreFile
{
	CUtlString m_BaseName;
	uint32 m_nCRC = 0;
	uint16 m_nPreloadSize = 0;
	std::vector<PackedStoreFragment_t> m_Fragments;
	std::vector<uint8> m_Preload;

	uint64 TotalSize() const;
	size_t EntrySize() const; // bytes of its entry in the tree, without the base name
};

struct CPackedStorePath
{
	CUtlString m_Name;
	uint32 m_nHash = 0;
	// Newest last: the tree holds them in the opposite order.
	std::vector<std::unique_ptr<CPackedStoreFile>> m_Files;
	// Above PACKEDSTORE_FILE_TABLE_THRESHOLD files: the file-name table.
	std::vector<PackedStoreFileSlot_t> m_FileTable;
	size_t m_nTableUsed = 0;
};

struct CPackedStoreExtension
{
	CUtlString m_Name;
	uint32 m_nHash = 0;
	std::vector<std::unique_ptr<CPackedStorePath>> m_Paths; // newest last
	std::vector<PackedStoreBucketEntry_t<CPackedStorePath>> m_PathBuckets[PACKEDSTORE_PATH_BUCKETS]; // newest last
};

// Embedded data: bytes in slabs of whole 128-byte blocks that are never moved, so appending
// never copies what is there. Slabs grow with the data up to MAX_SLAB_SIZE.
class CPackedStoreBlockArray
{
public:
	enum
	{
		BLOCK_SIZE = 128,
		MAX_SLAB_SIZE = 8 << 20,
	};
	uint64 Size() const { return m_nSize; }
	// Room for `size` more bytes at the end, as contiguous pieces; Commit marks them used.
	void Append(const void *data, size_t size);
	// A writable piece at the end of at most `wanted` bytes (at least 1); Commit after filling.
	uint8 *Reserve(size_t wanted, size_t &got);
	void Commit(size_t size) { m_nSize += size; }
	bool Read(uint64 offset, void *out, size_t size) const;
	void Clear();
	template <typename F> void ForEachPiece(F &&visit) const
	{
		uint64 left = m_nSize;
		for (const Slab_t &slab : m_Slabs)
		{
			if (left == 0)
				break;
			const size_t used = (size_t)std::min<uint64>(left, slab.size);
			visit(slab.data.get(), used);
			left -= used;
		}
	}

private:
	// Slabs of 2 MiB and more are mapped on their own, aligned for huge pages, so that filling
	// them costs few page faults.
	struct SlabMemory_t
	{
		void operator()(uint8 *p) const;
		size_t mapped = 0; // bytes mapped at p; 0 when p came from new[]
	};
	struct Slab_t
	{
		std::unique_ptr<uint8[], SlabMemory_t> data;
		size_t size;
		uint64 start;
	};
	static std::unique_ptr<uint8[], SlabMemory_t> AllocateSlab(size_t size);
	std::vector<Slab_t> m_Slabs;
	uint64 m_nSize = 0;
	uint64 m_nCapacity = 0;
};

class CPackedStore
{
public:
	// Opens a pack, or starts an empty one when there is none. nFlags: see
	// PACKEDSTORE_FLAG_*; the packer passes 3.
	CPackedStore(const char *pFileBasename, IFileSystem *pFileSystem, int nFlags = 0);
	~CPackedStore();
	CPackedStore(const CPackedStore &) = delete;
	CPackedStore &operator=(const CPackedStore &) = delete;

	// Adds a file: the first preloadSize bytes go into the directory, the rest into a chunk
	// (bMultiChunk) or the embedded data. pCRC: the CRC when the caller has it.
	EPackedStoreAddResultCode AddFile(const char *pName, int nPreloadSize, const void *pData, int64 nSize, bool bMultiChunk,
		const uint32 *pCRC = nullptr);
	// Writes the directory file (chunk data is written by AddFile); false on failure.
	bool Write();

	bool FindFile(const char *pName, PackedStoreFileInfo_t &info);
	// Every file in the order of the tree.
	void GetFileList(CUtlVector<PackedStoreFileInfo_t> &out);
	int GetFileCount();
	// Reads a file's bytes (preload and fragments). False with a message on any damage.
	bool ReadFileData(const PackedStoreFileInfo_t &info, CUtlBuffer &out, CUtlString *pError);
	// Checks the third self hash against the directory file on disk. *pbHasHash is false for a
	// pack without self hashes (nothing to check, and the result is true).
	bool VerifySelfHash(bool *pbHasHash, CUtlString *pError);

	// The tree as bytes, exactly as Write would write it.
	void GetDirectoryTree(CUtlVector<uint8> &out);
	// Slots of the file-name table of a folder (0 when its files are kept in a plain list or the
	// folder is not there). The folder and extension are given as the tree holds them.
	size_t GetFileTableSize(const char *pPath, const char *pExtension);

	void AddRef() { ++m_nRefCount; }
	void Release() { --m_nRefCount; }
	int GetRefCount() const { return m_nRefCount; }

	void SetWriteChunkSize(int64 nSize) { m_nWriteChunkSize = nSize; }
	int64 GetWriteChunkSize() const { return m_nWriteChunkSize; }

	const CUtlString &GetPackFileName() const { return m_PackFileName; }
	const CUtlString &GetBaseName() const { return m_BaseName; }
	const CUtlString &GetFullName() const { return m_FullName; }
	// Where Write puts the directory: <base>_dir.bdl for a multi-chunk pack, else the name given.
	CUtlString GetDirectoryFileName() const;
	CUtlString GetChunkFileName(int nIndex) const;
	bool IsMultiChunk() const { return m_bUseDirFile; }
	int GetVersion() const { return m_nVersion; }
	uint32 GetTreeSize() const { return m_nTreeSize; }
	uint64 GetEmbeddedDataSize() const { return m_bEmbeddedInMemory ? m_EmbeddedData.Size() : m_nEmbeddedDataSize; }
	uint32 GetChunkHashesSize() const { return m_nChunkHashesSize; }
	uint32 GetSelfHashesSize() const { return m_nSelfHashesSize; }
	uint32 GetSignatureSize() const { return m_nSignatureSize; }
	int GetHighestChunk() const { return m_nHighestChunk; }
	int GetWriteChunk() const { return m_nWriteChunk; }
	int64 GetWriteChunkOffset() const { return m_nWriteChunkOffset; }
	const MD5Value_t &GetTreeHash() const { return m_TreeHash; }
	const MD5Value_t &GetChunkHashesHash() const { return m_ChunkHashesHash; }
	const MD5Value_t &GetFileHash() const { return m_FileHash; }
	const CUtlVector<uint8> &GetSignaturePublicKey() const { return m_SignaturePublicKey; }
	const CUtlVector<uint8> &GetSignature() const { return m_Signature; }
	const CUtlVector<CUtlString> &GetFilterPaths() const { return m_FilterPaths; }
	const CUtlVector<CUtlString> &GetFilterBaseNames() const { return m_FilterBaseNames; }
	const CUtlVector<CUtlString> &GetFilterExtensions() const { return m_FilterExtensions; }
	const CUtlVector<bool> &GetFilterSubtrees() const { return m_FilterSubtrees; }

	// The bucket of a string: MurmurHash2 with the store's seed.
	static uint32 HashBucketString(const char *text, size_t length);
	// The file-name table's hash: FNV-1a, then mixed.
	static uint32 HashFileTableName(const char *text, size_t length);
	// A file name split as the tree holds it: folder (forward slashes, lower case, no dot
	// segments, no leading or trailing slash, " " for the root), base name (lower case) and
	// extension (lower case, " " when there is none).
	static void SplitFileName(const char *pName, CUtlString &path, CUtlString &baseName, CUtlString &extension);
	// Backslashes to slashes, double slashes and dot segments removed.
	static CUtlString CleanPath(const char *pPath);

private:
	struct FoundFile_t
	{
		CPackedStoreExtension *pExtension = nullptr;
		CPackedStorePath *pPath = nullptr;
		size_t nFileIndex = 0;
		CPackedStoreFile *pFile = nullptr;
	};

	void OpenStore(int nFlags);
	void ReadOrFatal(FileHandle_t hFile, void *out, uint64 size, int64 &position, int64 fileSize);
	void CheckReadable(uint64 size, int64 position, int64 fileSize);
	void LoadFilter(const CUtlString &name);
	bool MatchesFilter(const CUtlString &path) const;
	void BuildHashTables(const uint8 *tree, size_t size, const char *pFileName);
	bool FindInternal(const CUtlString &path, const CUtlString &baseName, const CUtlString &extension, FoundFile_t &found) const;
	void FillInfo(const CPackedStoreExtension &extension, const CPackedStorePath &path, const CPackedStoreFile &file,
		PackedStoreFileInfo_t &info) const;
	void AddFileToDirectory(const char *pName, std::unique_ptr<CPackedStoreFile> pEntry);
	void RemoveFile(const FoundFile_t &found);
	void RebuildFileTable(CPackedStorePath &path, size_t capacity);
	void InsertIntoFileTable(CPackedStorePath &path, size_t index);
	void SerializeTree(std::vector<uint8> &out) const;
	bool ReadEmbedded(uint64 offset, void *out, size_t size, CUtlString *pError);

	// Names.
	CUtlString m_PackFileName; // as given
	CUtlString m_CleanName;	   // as given, cleaned
	CUtlString m_BaseName;
	CUtlString m_FullName; // absolute, lower case
	CUtlString m_ReadFileName; // the file the directory was read from; empty when none

	// The tree and the embedded data.
	std::vector<std::unique_ptr<CPackedStoreExtension>> m_Extensions; // newest last
	std::vector<PackedStoreBucketEntry_t<CPackedStoreExtension>> m_ExtensionBuckets[PACKEDSTORE_EXTENSION_BUCKETS];
	std::vector<uint8> m_TreeTail; // bytes after the tree's last terminator, kept as they were
	std::vector<uint8> m_LoadBuffer; // the tree as read, while it is taken apart
	size_t m_nFileCount = 0;
	CPackedStoreBlockArray m_EmbeddedData;
	bool m_bEmbeddedInMemory = false;
	int64 m_nEmbeddedFileOffset = 0; // where the embedded data starts in m_ReadFileName

	MD5Value_t m_TreeHash = {};
	MD5Value_t m_ChunkHashesHash = {};
	MD5Value_t m_FileHash = {};
	CUtlVector<uint8> m_SignaturePublicKey;
	CUtlVector<uint8> m_Signature;

	// As read from the header.
	int m_nVersion = 0;
	uint32 m_nHeaderSize = 0;
	uint32 m_nTreeSize = 0;
	uint64 m_nEmbeddedDataSize = 0;
	uint32 m_nChunkHashesSize = 0;
	uint32 m_nSelfHashesSize = 0;
	uint32 m_nSignatureSize = 0;

	int m_nHighestChunk = -1;
	int m_nWriteChunk = 0;
	int64 m_nWriteChunkOffset = 0;
	int64 m_nWriteChunkSize = PACKEDSTORE_DEFAULT_CHUNK_SIZE;
	bool m_bUseDirFile = false;
	bool m_bWritable = false;

	// The filter file: one entry per line in each list.
	CUtlVector<CUtlString> m_FilterPaths;
	CUtlVector<CUtlString> m_FilterBaseNames;
	CUtlVector<CUtlString> m_FilterExtensions;
	CUtlVector<bool> m_FilterSubtrees;

	mutable std::shared_mutex m_Lock;
	std::atomic<int> m_nRefCount{ 0 };
	IFileSystem *m_pFileSystem;
};
