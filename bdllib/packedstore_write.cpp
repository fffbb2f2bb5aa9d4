// CPackedStore: adding files and writing the directory file.
#include "bdllib/packedstore.h"

#include <cstring>
#include <mutex>
#include <thread>

#include "bdllib/packedstore_internal.h"
#include "core/logging.h"
#include "core/strtools.h"

using namespace PackedStoreInternal;

namespace
{
// The file system reports failures it meets while closing a file through its error hook; a
// write watches for them there.
std::mutex s_HookMutex;
FileSystemErrorHook_t s_pPreviousHook = nullptr;
bool s_bHookFired = false;

void WatchingHook(const char *message)
{
	s_bHookFired = true;
	if (s_pPreviousHook)
		s_pPreviousHook(message);
}
} // namespace

// ---------------------------------------------------------------------------------------------
// Adding

EPackedStoreAddResultCode CPackedStore::AddFile(const char *pName, int nPreloadSize, const void *pData, int64 nSize, bool bMultiChunk,
	const uint32 *pCRC)
{
	if (!m_bWritable)
	{
		Warning("%s: cannot add %s: the store was not opened for writing\n", m_PackFileName.c_str(), pName ? pName : "");
		return EPADD_ERROR;
	}
	if (!pName || nSize < 0 || nSize > 0xFFFFFFFFll || (nSize > 0 && !pData))
	{
		Warning("%s: cannot add %s: bad name, data or size (%lld bytes)\n", m_PackFileName.c_str(), pName ? pName : "(null)", (long long)nSize);
		return EPADD_ERROR;
	}
	const uint32 crc = pCRC ? *pCRC : CRC32_ProcessSingleBuffer(pData, (size_t)nSize);
	const int64 preloadSize = std::clamp<int64>(nPreloadSize, 0, nSize);
	const int64 remainder = nSize - preloadSize;

	CUtlString path, baseName, extension;
	SplitFileName(pName, path, baseName, extension);

	std::unique_lock lock(m_Lock);
	EPackedStoreAddResultCode result = EPADD_NEWFILE;
	FoundFile_t found;
	if (FindInternal(path, baseName, extension, found))
	{
		const CPackedStoreFile &existing = *found.pFile;
		if (existing.TotalSize() == (uint64)nSize && existing.m_nCRC == crc && existing.m_nPreloadSize == preloadSize)
			return EPADD_ADDSAMEFILE;
		result = EPADD_UPDATEFILE;
	}

	auto entry = std::make_unique<CPackedStoreFile>();
	entry->m_nCRC = crc;
	entry->m_Preload.assign(static_cast<const uint8 *>(pData), static_cast<const uint8 *>(pData) + preloadSize);
	PackedStoreFragment_t fragment = { PACKEDSTORE_EMBEDDED_INDEX, 0, (uint32)remainder };
	const uint8 *rest = static_cast<const uint8 *>(pData) + preloadSize;

	if (bMultiChunk && remainder > 0)
	{
		if (!m_pFileSystem)
		{
			Warning("%s: cannot add %s to a chunk: the store has no file system\n", m_PackFileName.c_str(), pName);
			return EPADD_ERROR;
		}
		// A chunk may pass the limit by one file: the next chunk starts only once it has.
		if (m_nWriteChunkOffset > m_nWriteChunkSize)
		{
			++m_nWriteChunk;
			m_nWriteChunkOffset = 0;
		}
		if (m_nWriteChunk >= PACKEDSTORE_EMBEDDED_INDEX || m_nWriteChunkOffset + remainder > 0xFFFFFFFFll)
		{
			Warning("%s: cannot add %s: no chunk number or offset left\n", m_PackFileName.c_str(), pName);
			return EPADD_ERROR;
		}
		const CUtlString chunkName = GetChunkFileName(m_nWriteChunk);
		FileHandle_t hChunk = m_pFileSystem->Open(chunkName.c_str(), "rb+");
		if (!hChunk && m_nWriteChunkOffset == 0)
			hChunk = m_pFileSystem->Open(chunkName.c_str(), "wb");
		if (!hChunk)
			Plat_FatalError("Cannot open %s for writing\n", chunkName.c_str());
		m_pFileSystem->Seek(hChunk, m_nWriteChunkOffset, FILESYSTEM_SEEK_HEAD);
		bool bWritten = true;
		for (int64 done = 0; done < remainder && bWritten;)
		{
			const int step = (int)std::min<int64>(remainder - done, 1 << 30);
			bWritten = m_pFileSystem->Write(rest + done, step, hChunk) == step;
			done += step;
		}
		bWritten = bWritten && m_pFileSystem->IsOk(hChunk);
		m_pFileSystem->Close(hChunk);
		if (!bWritten)
		{
			Warning("%s: cannot write %s to %s\n", m_PackFileName.c_str(), pName, chunkName.c_str());
			return EPADD_ERROR;
		}
		fragment.m_nArchiveIndex = (uint16)m_nWriteChunk;
		fragment.m_nOffset = (uint32)m_nWriteChunkOffset;
		m_nWriteChunkOffset += remainder;
		m_nHighestChunk = std::max(m_nHighestChunk, m_nWriteChunk);
	}
	else
	{
		if (m_EmbeddedData.Size() + (uint64)remainder > 0xFFFFFFFFull)
		{
			Warning("%s: cannot add %s: the embedded data would pass 4 GiB\n", m_PackFileName.c_str(), pName);
			return EPADD_ERROR;
		}
		fragment.m_nOffset = (uint32)m_EmbeddedData.Size();
		m_EmbeddedData.Append(rest, (size_t)remainder);
	}
	entry->m_Fragments.push_back(fragment);
	AddFileToDirectory(pName, std::move(entry));
	return result;
}

void CPackedStore::RemoveFile(const FoundFile_t &found)
{
	CPackedStorePath &path = *found.pPath;
	path.m_Files.erase(path.m_Files.begin() + (ptrdiff_t)found.nFileIndex);
	--m_nFileCount;
	if (path.m_Files.size() > PACKEDSTORE_FILE_TABLE_THRESHOLD)
		RebuildFileTable(path, std::max(path.m_FileTable.size(), path.m_Files.size() * 4 / 3 + 1));
	else
	{
		path.m_FileTable.clear();
		path.m_nTableUsed = 0;
	}
}

void CPackedStore::AddFileToDirectory(const char *pName, std::unique_ptr<CPackedStoreFile> pEntry)
{
	CUtlString pathName, baseName, extensionName;
	SplitFileName(pName, pathName, baseName, extensionName);

	// An entry of the same name is cut out first.
	FoundFile_t found;
	if (FindInternal(pathName, baseName, extensionName, found))
		RemoveFile(found);

	if (baseName.empty() || baseName.size() >= PACKEDSTORE_MAX_BASENAME || extensionName.size() >= PACKEDSTORE_MAX_EXTENSION)
		Plat_FatalError("Filename '%s' is invalid to be contained in a BDL", pName);
	if (pEntry->m_Preload.size() >= 65536)
		Plat_FatalError("Preload size for '%s' is too big", pName);
	pEntry->m_nPreloadSize = (uint16)pEntry->m_Preload.size();
	pEntry->m_BaseName = baseName;
	for (PackedStoreFragment_t &fragment : pEntry->m_Fragments)
	{
		if (fragment.m_nSize == 0)
			fragment.m_nArchiveIndex = PACKEDSTORE_EMBEDDED_INDEX;
	}

	// A new extension goes in front of the tree, a new folder right behind its extension, a
	// new file right behind its folder: in the lists, that is at the end.
	CPackedStoreExtension *extension = found.pExtension;
	if (!extension)
	{
		auto created = std::make_unique<CPackedStoreExtension>();
		created->m_Name = extensionName;
		created->m_nHash = HashBucketString(extensionName.data(), extensionName.size());
		extension = created.get();
		m_ExtensionBuckets[extension->m_nHash % PACKEDSTORE_EXTENSION_BUCKETS].push_back({ extension->m_nHash, extension });
		m_Extensions.push_back(std::move(created));
	}
	CPackedStorePath *path = found.pPath;
	if (!path)
	{
		auto created = std::make_unique<CPackedStorePath>();
		created->m_Name = pathName;
		created->m_nHash = HashBucketString(pathName.data(), pathName.size());
		path = created.get();
		extension->m_PathBuckets[path->m_nHash % PACKEDSTORE_PATH_BUCKETS].push_back({ path->m_nHash, path });
		extension->m_Paths.push_back(std::move(created));
	}

	// A tree read from elsewhere may hold the name twice; the new entry must then be the one
	// found, which the table only gives after a rebuild.
	FoundFile_t stillThere;
	const bool bDuplicate = !path->m_FileTable.empty() && FindInternal(pathName, baseName, extensionName, stillThere);

	path->m_Files.push_back(std::move(pEntry));
	++m_nFileCount;
	const size_t count = path->m_Files.size();
	if (count > PACKEDSTORE_FILE_TABLE_THRESHOLD)
	{
		// Grown by doubling: a table full to three quarters is made anew for twice the count.
		if (path->m_FileTable.empty() || (path->m_nTableUsed + 1) * 4 > path->m_FileTable.size() * 3)
			RebuildFileTable(*path, count * 8 / 3 + 1);
		else if (bDuplicate)
			RebuildFileTable(*path, path->m_FileTable.size());
		else
			InsertIntoFileTable(*path, count - 1);
	}
}

// ---------------------------------------------------------------------------------------------
// Writing

bool CPackedStore::Write()
{
	std::unique_lock lock(m_Lock);
	if (!m_SignaturePublicKey.empty() && !m_Signature.empty())
		Plat_FatalError("BDL signing not implemented");
	if (!m_bWritable || !m_pFileSystem)
	{
		Warning("%s: cannot write: the store was not opened for writing\n", m_PackFileName.c_str());
		return false;
	}

	std::vector<uint8> tree;
	SerializeTree(tree);
	const uint64 embeddedSize = m_EmbeddedData.Size();
	std::vector<uint8> header;
	PutLe32(header, PACKEDSTORE_SIGNATURE);
	PutLe32(header, PACKEDSTORE_VERSION);
	PutLe32(header, (uint32)tree.size());
	PutLe32(header, (uint32)embeddedSize);
	PutLe32(header, 0);
	PutLe32(header, PACKEDSTORE_SELF_HASHES_SIZE);
	PutLe32(header, 0);
	uint8 firstHashes[32];
	memcpy(firstHashes, m_TreeHash.bits, 16);
	memcpy(firstHashes + 16, m_ChunkHashesHash.bits, 16);

	if (m_nHighestChunk >= 0)
		m_bUseDirFile = true;
	const CUtlString target = GetDirectoryFileName();
	for (const CUtlString &other : { m_BaseName + ".bdl", m_BaseName + "_dir.bdl" })
	{
		// The target itself is replaced when the new file is complete.
		if (other != target && m_pFileSystem->FileExists(other.c_str()))
			m_pFileSystem->RemoveFile(other.c_str());
	}
	FileHandle_t hFile = m_pFileSystem->Open(target.c_str(), "wb");
	if (!hFile)
	{
		Warning("%s: cannot open for writing\n", target.c_str());
		return false;
	}

	// The pieces of the file before the last hash, in order.
	std::vector<std::pair<const uint8 *, size_t>> pieces;
	pieces.emplace_back(header.data(), header.size());
	pieces.emplace_back(tree.data(), tree.size());
	m_EmbeddedData.ForEachPiece([&](const uint8 *data, size_t size) { pieces.emplace_back(data, size); });
	pieces.emplace_back(firstHashes, sizeof(firstHashes));

	bool bWritten = true;
	auto WritePieces = [&]() {
		for (const auto &piece : pieces)
		{
			if (bWritten && m_pFileSystem->Write(piece.first, (int)piece.second, hFile) != (int)piece.second)
				bWritten = false;
		}
	};
	MD5Context_t context;
	MD5Init(&context);
	if (embeddedSize >= (4u << 20))
	{
		// Big packs: the disk write runs beside the hash, which reads the same bytes.
		std::thread writer(WritePieces);
		for (const auto &piece : pieces)
			MD5Update(&context, piece.first, piece.second);
		writer.join();
	}
	else
	{
		for (const auto &piece : pieces)
			MD5Update(&context, piece.first, piece.second);
		WritePieces();
	}
	MD5Value_t fileHash;
	MD5Final(&fileHash, &context);
	if (bWritten && m_pFileSystem->Write(fileHash.bits, 16, hFile) != 16)
		bWritten = false;
	bWritten = bWritten && m_pFileSystem->Flush(hFile) && m_pFileSystem->IsOk(hFile);

	bool bCloseFailed;
	{
		std::lock_guard<std::mutex> hookLock(s_HookMutex);
		s_bHookFired = false;
		s_pPreviousHook = m_pFileSystem->SetErrorHook(WatchingHook);
		m_pFileSystem->Close(hFile);
		m_pFileSystem->SetErrorHook(s_pPreviousHook);
		bCloseFailed = s_bHookFired;
	}
	const uint64 expected = header.size() + tree.size() + embeddedSize + 48;
	if (!bWritten || bCloseFailed || m_pFileSystem->Size(target.c_str()) != (int64)expected)
	{
		Warning("%s: writing the pack failed\n", target.c_str());
		return false;
	}
	m_FileHash = fileHash;
	return true;
}
