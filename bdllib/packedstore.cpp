#include "bdllib/packedstore.h"

#include <cstring>
#include <filesystem>

#include <sys/mman.h>

#include "bdllib/packedstore_internal.h"
#include "core/logging.h"
#include "core/pathutils.h"
#include "core/strtools.h"

using namespace PackedStoreInternal;

CUtlString PackedStoreInternal::NormalizePath(const char *pPath, bool bKeepLeadingSlash)
{
	CUtlString path = V_NormalizePath(pPath ? pPath : "");
	if (!bKeepLeadingSlash && !path.empty() && path[0] == '/')
		path.erase(0, 1);
	return path;
}

// ---------------------------------------------------------------------------------------------
// Tree records

uint64 CPackedStoreFile::TotalSize() const
{
	uint64 total = m_nPreloadSize;
	for (const PackedStoreFragment_t &fragment : m_Fragments)
		total += fragment.m_nSize;
	return total;
}

size_t CPackedStoreFile::EntrySize() const
{
	return 4 + 2 + m_Fragments.size() * 10 + 2 + m_Preload.size();
}

// ---------------------------------------------------------------------------------------------
// Block array

void CPackedStoreBlockArray::Append(const void *data, size_t size)
{
	const uint8 *p = static_cast<const uint8 *>(data);
	while (size > 0)
	{
		size_t got = 0;
		uint8 *target = Reserve(size, got);
		memcpy(target, p, got);
		Commit(got);
		p += got;
		size -= got;
	}
}

void CPackedStoreBlockArray::SlabMemory_t::operator()(uint8 *p) const
{
	if (mapped != 0)
		munmap(p, mapped);
	else
		delete[] p;
}

std::unique_ptr<uint8[], CPackedStoreBlockArray::SlabMemory_t> CPackedStoreBlockArray::AllocateSlab(size_t size)
{
	const size_t kHugePage = 2 << 20;
	if (size >= kHugePage && size % kHugePage == 0)
	{
		// Map a huge page more than needed, keep the aligned part, give back the rest.
		const size_t spare = size + kHugePage;
		void *raw = mmap(nullptr, spare, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
		if (raw != MAP_FAILED)
		{
			uint8 *base = static_cast<uint8 *>(raw);
			uint8 *aligned = reinterpret_cast<uint8 *>((reinterpret_cast<uintptr_t>(base) + kHugePage - 1) & ~(uintptr_t)(kHugePage - 1));
			if (aligned > base)
				munmap(base, (size_t)(aligned - base));
			const size_t tail = (size_t)(base + spare - (aligned + size));
			if (tail > 0)
				munmap(aligned + size, tail);
			madvise(aligned, size, MADV_HUGEPAGE);
			SlabMemory_t deleter;
			deleter.mapped = size;
			return std::unique_ptr<uint8[], SlabMemory_t>(aligned, deleter);
		}
	}
	return std::unique_ptr<uint8[], SlabMemory_t>(new uint8[size], SlabMemory_t());
}

uint8 *CPackedStoreBlockArray::Reserve(size_t wanted, size_t &got)
{
	if (m_nSize == m_nCapacity)
	{
		// A new slab of whole blocks: as big as the request or as all slabs so far, whichever is
		// bigger, up to the slab limit.
		size_t size = std::max<size_t>({ wanted, (size_t)std::min<uint64>(m_nCapacity, MAX_SLAB_SIZE), (size_t)BLOCK_SIZE });
		size = std::min<size_t>(size, MAX_SLAB_SIZE);
		const size_t granule = size >= (2u << 20) ? (size_t)(2u << 20) : (size_t)BLOCK_SIZE; // whole huge pages when that big
		size = (size + granule - 1) / granule * granule;
		m_Slabs.push_back({ AllocateSlab(size), size, m_nCapacity });
		m_nCapacity += size;
	}
	Slab_t &slab = m_Slabs.back();
	const size_t used = (size_t)(m_nSize - slab.start);
	got = std::min(wanted, slab.size - used);
	return slab.data.get() + used;
}

bool CPackedStoreBlockArray::Read(uint64 offset, void *out, size_t size) const
{
	if (offset > m_nSize || size > m_nSize - offset)
		return false;
	uint8 *p = static_cast<uint8 *>(out);
	// The slab that holds `offset`: the last one that starts at or before it.
	size_t slab = (size_t)(std::upper_bound(m_Slabs.begin(), m_Slabs.end(), offset,
							   [](uint64 value, const Slab_t &entry) { return value < entry.start; }) -
		m_Slabs.begin()) - 1;
	while (size > 0)
	{
		const Slab_t &entry = m_Slabs[slab++];
		const size_t inSlab = (size_t)(offset - entry.start);
		const size_t take = std::min(size, entry.size - inSlab);
		memcpy(p, entry.data.get() + inSlab, take);
		p += take;
		offset += take;
		size -= take;
	}
	return true;
}

void CPackedStoreBlockArray::Clear()
{
	m_Slabs.clear();
	m_nSize = 0;
	m_nCapacity = 0;
}

// ---------------------------------------------------------------------------------------------
// Names

uint32 CPackedStore::HashBucketString(const char *text, size_t length)
{
	return MurmurHash2(text, length, PACKEDSTORE_BUCKET_SEED);
}

uint32 CPackedStore::HashFileTableName(const char *text, size_t length)
{
	const uint32 h = FNV1A32(text, length);
	return ((h << 17) ^ h) + (h >> 21);
}

CUtlString CPackedStore::CleanPath(const char *pPath)
{
	return NormalizePath(pPath, true);
}

void CPackedStore::SplitFileName(const char *pName, CUtlString &path, CUtlString &baseName, CUtlString &extension)
{
	CUtlString name = NormalizePath(pName, false);
	LowerInPlace(name);
	const size_t slash = name.rfind('/');
	path = slash == CUtlString::npos ? CUtlString() : name.substr(0, slash);
	const CUtlString file = slash == CUtlString::npos ? name : name.substr(slash + 1);
	const size_t dot = file.rfind('.');
	baseName = dot == CUtlString::npos ? file : file.substr(0, dot);
	extension = dot == CUtlString::npos ? CUtlString() : file.substr(dot + 1);
	if (path.empty())
		path = kBlank;
	if (extension.empty())
		extension = kBlank;
}

CUtlString CPackedStore::GetDirectoryFileName() const
{
	return m_bUseDirFile ? m_BaseName + "_dir.bdl" : m_CleanName;
}

CUtlString CPackedStore::GetChunkFileName(int nIndex) const
{
	return V_Format("%s_%03d.bdl", m_BaseName.c_str(), nIndex);
}

// ---------------------------------------------------------------------------------------------
// Opening

CPackedStore::CPackedStore(const char *pFileBasename, IFileSystem *pFileSystem, int nFlags)
	: m_PackFileName(pFileBasename ? pFileBasename : ""), m_pFileSystem(pFileSystem)
{
	OpenStore(nFlags);
}

CPackedStore::~CPackedStore()
{
	if (m_nRefCount > 0)
		Warning("Packed store %s with refcount > 0.\n", m_PackFileName.c_str());
}

void CPackedStore::CheckReadable(uint64 size, int64 position, int64 fileSize)
{
	if (position < 0 || position > fileSize || size > (uint64)(fileSize - position))
	{
		m_pFileSystem->ReportError("Failed to read");
		Plat_FatalError("Failed to read %d bytes\n", (int)size);
	}
}

void CPackedStore::ReadOrFatal(FileHandle_t hFile, void *out, uint64 size, int64 &position, int64 fileSize)
{
	CheckReadable(size, position, fileSize);
	uint8 *p = static_cast<uint8 *>(out);
	uint64 left = size;
	while (left > 0)
	{
		const int step = (int)std::min<uint64>(left, 1u << 30);
		if (m_pFileSystem->Read(p, step, hFile) != step)
		{
			m_pFileSystem->ReportError("Failed to read");
			Plat_FatalError("Failed to read %d bytes\n", (int)size);
		}
		p += step;
		left -= (uint64)step;
	}
	position += (int64)size;
}

void CPackedStore::OpenStore(int nFlags)
{
	m_bWritable = (nFlags & (PACKEDSTORE_FLAG_READ_EMBEDDED | PACKEDSTORE_FLAG_WRITABLE)) != 0;
	m_bEmbeddedInMemory = m_bWritable;

	// Names: the base is the cleaned path without its extension; a "_dir" in front of ".bdl"
	// belongs to the directory file's name, not to the base.
	m_CleanName = CleanPath(m_PackFileName.c_str());
	m_BaseName = m_CleanName;
	const size_t slash = m_BaseName.rfind('/');
	const size_t dot = m_BaseName.rfind('.');
	if (dot != CUtlString::npos && (slash == CUtlString::npos || dot > slash))
	{
		const bool bBdl = V_stricmp(m_BaseName.c_str() + dot, ".bdl") == 0;
		m_BaseName.resize(dot);
		if (bBdl && m_BaseName.size() >= 4 && V_stricmp(m_BaseName.c_str() + m_BaseName.size() - 4, "_dir") == 0)
			m_BaseName.resize(m_BaseName.size() - 4);
	}
	if (!m_CleanName.empty())
	{
		std::error_code error;
		m_FullName = std::filesystem::absolute(std::filesystem::path(m_CleanName), error).lexically_normal().string();
		LowerInPlace(m_FullName);
	}
	if (!m_pFileSystem || m_CleanName.empty())
		return;

	FileHandle_t hFile = nullptr;
	const CUtlString dirName = m_BaseName + "_dir.bdl";
	if (!m_pFileSystem->IsDirectory(dirName.c_str()))
		hFile = m_pFileSystem->Open(dirName.c_str(), "rb");
	CUtlString readName;
	if (hFile)
	{
		m_bUseDirFile = true;
		readName = dirName;
	}
	else if (m_bWritable && !V_stristr(m_CleanName.c_str(), ".bdl"))
		m_bUseDirFile = true;

	LoadFilter(m_BaseName + "_flt.bdl");

	if (!hFile && !m_pFileSystem->IsDirectory(m_CleanName.c_str()))
	{
		hFile = m_pFileSystem->Open(m_CleanName.c_str(), "rb");
		readName = m_CleanName;
	}
	if (!hFile)
		return; // nothing there: an empty store
	m_ReadFileName = readName;

	const int64 fileSize = m_pFileSystem->Size(hFile);
	int64 position = 0;
	uint8 header[PACKEDSTORE_HEADER_SIZE_V2];
	const int got = m_pFileSystem->Read(header, sizeof(header), hFile);
	if (got < (int)sizeof(header) || ReadLe32(header) != PACKEDSTORE_SIGNATURE)
	{
		// No header: the whole file is the tree.
		m_nVersion = 0;
		m_pFileSystem->Seek(hFile, 0, FILESYSTEM_SEEK_HEAD);
		if (fileSize > 0xFFFFFFFFll)
			Plat_FatalError("BDL directory for '%s' corrupt", readName.c_str());
		m_nTreeSize = (uint32)fileSize;
	}
	else
	{
		m_nVersion = (int)ReadLe32(header + 4);
		m_nTreeSize = ReadLe32(header + 8);
		if (m_nVersion == 1)
		{
			m_nHeaderSize = PACKEDSTORE_HEADER_SIZE_V1;
			const int64 embedded = fileSize - (int64)m_nTreeSize - PACKEDSTORE_HEADER_SIZE_V1;
			m_nEmbeddedDataSize = embedded > 0 ? (uint64)embedded : 0;
			m_pFileSystem->Seek(hFile, PACKEDSTORE_HEADER_SIZE_V1, FILESYSTEM_SEEK_HEAD);
			position = PACKEDSTORE_HEADER_SIZE_V1;
		}
		else if (m_nVersion == 2)
		{
			m_nHeaderSize = PACKEDSTORE_HEADER_SIZE_V2;
			m_nEmbeddedDataSize = ReadLe32(header + 12);
			m_nChunkHashesSize = ReadLe32(header + 16);
			m_nSelfHashesSize = ReadLe32(header + 20);
			m_nSignatureSize = ReadLe32(header + 24);
			position = PACKEDSTORE_HEADER_SIZE_V2;
		}
		else
			Plat_FatalError("Unknown version %d for bdl %s", m_nVersion, readName.c_str());
	}

	// The tree.
	CheckReadable(m_nTreeSize, position, fileSize);
	m_LoadBuffer.resize(m_nTreeSize);
	ReadOrFatal(hFile, m_LoadBuffer.data(), m_LoadBuffer.size(), position, fileSize);

	// The embedded data: into memory for a store that may be written, else only located.
	if (m_bWritable && m_nVersion > 0)
	{
		CheckReadable(m_nEmbeddedDataSize, position, fileSize);
		uint64 left = m_nEmbeddedDataSize;
		while (left > 0)
		{
			size_t room = 0;
			uint8 *target = m_EmbeddedData.Reserve((size_t)std::min<uint64>(left, PACKEDSTORE_READ_STEP), room);
			ReadOrFatal(hFile, target, room, position, fileSize);
			m_EmbeddedData.Commit(room);
			left -= room;
		}
	}
	else
	{
		m_nEmbeddedFileOffset = position;
		position += (int64)m_nEmbeddedDataSize;
		m_pFileSystem->Seek(hFile, position, FILESYSTEM_SEEK_HEAD);
	}

	// Chunk hashes are skipped; the self hashes are read only when there are exactly three.
	position += m_nChunkHashesSize;
	m_pFileSystem->Seek(hFile, position, FILESYSTEM_SEEK_HEAD);
	if (m_nSelfHashesSize == PACKEDSTORE_SELF_HASHES_SIZE)
	{
		uint8 hashes[PACKEDSTORE_SELF_HASHES_SIZE];
		ReadOrFatal(hFile, hashes, sizeof(hashes), position, fileSize);
		memcpy(m_TreeHash.bits, hashes, 16);
		memcpy(m_ChunkHashesHash.bits, hashes + 16, 16);
		memcpy(m_FileHash.bits, hashes + 32, 16);
	}

	if (m_nSignatureSize != 0)
	{
		const int64 blockStart = m_pFileSystem->Tell(hFile);
		const int64 expected = (int64)m_nHeaderSize + m_nTreeSize + (int64)m_nEmbeddedDataSize + m_nChunkHashesSize + m_nSelfHashesSize;
		if (blockStart != expected)
			Plat_FatalError("Size mismatch determining size of signed data block (%d vs %d)", (int)blockStart, (int)expected);
		uint8 length[4];
		ReadOrFatal(hFile, length, 4, position, fileSize);
		CheckReadable(ReadLe32(length), position, fileSize);
		m_SignaturePublicKey.resize(ReadLe32(length));
		ReadOrFatal(hFile, m_SignaturePublicKey.data(), m_SignaturePublicKey.size(), position, fileSize);
		ReadOrFatal(hFile, length, 4, position, fileSize);
		CheckReadable(ReadLe32(length), position, fileSize);
		m_Signature.resize(ReadLe32(length));
		ReadOrFatal(hFile, m_Signature.data(), m_Signature.size(), position, fileSize);
	}
	m_pFileSystem->Close(hFile);

	BuildHashTables(m_LoadBuffer.data(), m_LoadBuffer.size(), readName.c_str());
	std::vector<uint8>().swap(m_LoadBuffer);
	m_nWriteChunk = m_nHighestChunk + 1;
	m_nWriteChunkOffset = 0;
}

void CPackedStore::LoadFilter(const CUtlString &name)
{
	if (!m_pFileSystem->FileExists(name.c_str()))
		return;
	CUtlBuffer text(CUtlBuffer::TEXT_BUFFER);
	CUtlString error;
	if (!m_pFileSystem->ReadFile(name.c_str(), nullptr, text, &error))
	{
		Warning("%s\n", error.c_str());
		return;
	}
	const std::string_view all = text.View();
	size_t start = 0;
	while (start < all.size())
	{
		size_t end = all.find('\n', start);
		if (end == std::string_view::npos)
			end = all.size();
		std::string_view line = all.substr(start, end - start);
		start = end + 1;
		auto IsTrimmed = [](char c) { return c == '\t' || c == '\r' || c == '\n' || c == ' '; };
		while (!line.empty() && IsTrimmed(line.front()))
			line.remove_prefix(1);
		while (!line.empty() && IsTrimmed(line.back()))
			line.remove_suffix(1);
		if (line.empty() || line[0] == '#')
			continue;
		CUtlString path, baseName, extension;
		bool bSubtree = false;
		if (line.size() >= 3 && line.substr(line.size() - 3) == "...")
		{
			bSubtree = true;
			CUtlString folder = NormalizePath(CUtlString(line.substr(0, line.size() - 3)).c_str(), false);
			LowerInPlace(folder);
			path = folder.empty() ? CUtlString(kBlank) : folder;
			baseName = "*";
			extension = "*";
		}
		else
			SplitFileName(CUtlString(line).c_str(), path, baseName, extension);
		m_FilterPaths.push_back(path);
		m_FilterBaseNames.push_back(baseName);
		m_FilterExtensions.push_back(extension);
		m_FilterSubtrees.push_back(bSubtree);
	}
}

bool CPackedStore::MatchesFilter(const CUtlString &path) const
{
	for (size_t i = 0; i < m_FilterPaths.size(); ++i)
	{
		const CUtlString &listed = m_FilterPaths[i];
		if (!m_FilterSubtrees[i])
		{
			if (path == listed)
				return true;
		}
		else if (listed == kBlank || path == listed || (path.compare(0, listed.size(), listed) == 0 && path.size() > listed.size() && path[listed.size()] == '/'))
			return true;
	}
	return false;
}

// ---------------------------------------------------------------------------------------------
// The index

void CPackedStore::BuildHashTables(const uint8 *tree, size_t size, const char *pFileName)
{
	size_t position = 0;
	auto Corrupt = [&]() { Plat_FatalError("BDL directory for '%s' corrupt", pFileName); };
	auto ReadString = [&](size_t maxLength, CUtlString &out) {
		size_t limit = size - position;
		if (maxLength != 0 && maxLength < limit)
			limit = maxLength;
		if (limit == 0)
			Corrupt();
		const uint8 *start = tree + position;
		const uint8 *end = static_cast<const uint8 *>(memchr(start, 0, limit));
		if (!end)
			Corrupt();
		out.assign(reinterpret_cast<const char *>(start), (size_t)(end - start));
		position += (size_t)(end - start) + 1;
	};
	auto Need = [&](size_t bytes) {
		if (bytes > size - position)
			Corrupt();
	};

	m_Extensions.clear();
	for (auto &bucket : m_ExtensionBuckets)
		bucket.clear();
	m_nFileCount = 0;
	m_nHighestChunk = -1;

	// Every record goes into its list as soon as it exists, so that whatever is read belongs
	// to the store when the walk ends early.
	for (;;)
	{
		m_Extensions.push_back(std::make_unique<CPackedStoreExtension>());
		CPackedStoreExtension &extension = *m_Extensions.back();
		ReadString(PACKEDSTORE_MAX_EXTENSION, extension.m_Name);
		if (extension.m_Name.empty())
		{
			m_Extensions.pop_back();
			break;
		}
		for (;;)
		{
			extension.m_Paths.push_back(std::make_unique<CPackedStorePath>());
			CPackedStorePath &path = *extension.m_Paths.back();
			ReadString(0, path.m_Name);
			if (path.m_Name.empty())
			{
				extension.m_Paths.pop_back();
				break;
			}
			for (;;)
			{
				path.m_Files.push_back(std::make_unique<CPackedStoreFile>());
				CPackedStoreFile &file = *path.m_Files.back();
				ReadString(PACKEDSTORE_MAX_BASENAME, file.m_BaseName);
				if (file.m_BaseName.empty())
				{
					path.m_Files.pop_back();
					break;
				}
				Need(6);
				file.m_nCRC = ReadLe32(tree + position);
				file.m_nPreloadSize = ReadLe16(tree + position + 4);
				position += 6;
				for (;;)
				{
					Need(2);
					const uint16 index = ReadLe16(tree + position);
					position += 2;
					if (index == PACKEDSTORE_TERMINATOR)
						break;
					Need(8);
					file.m_Fragments.push_back({ index, ReadLe32(tree + position), ReadLe32(tree + position + 4) });
					position += 8;
					if (index != PACKEDSTORE_EMBEDDED_INDEX)
						m_nHighestChunk = std::max<int>(m_nHighestChunk, index);
				}
				Need(file.m_nPreloadSize);
				file.m_Preload.assign(tree + position, tree + position + file.m_nPreloadSize);
				position += file.m_nPreloadSize;
			}
		}
	}
	m_TreeTail.assign(tree + position, tree + size);

	// The lists hold the newest last, the tree holds it first.
	std::reverse(m_Extensions.begin(), m_Extensions.end());
	for (auto &extension : m_Extensions)
	{
		extension->m_nHash = HashBucketString(extension->m_Name.data(), extension->m_Name.size());
		m_ExtensionBuckets[extension->m_nHash % PACKEDSTORE_EXTENSION_BUCKETS].push_back({ extension->m_nHash, extension.get() });
		std::reverse(extension->m_Paths.begin(), extension->m_Paths.end());
		for (auto &path : extension->m_Paths)
		{
			path->m_nHash = HashBucketString(path->m_Name.data(), path->m_Name.size());
			extension->m_PathBuckets[path->m_nHash % PACKEDSTORE_PATH_BUCKETS].push_back({ path->m_nHash, path.get() });
			std::reverse(path->m_Files.begin(), path->m_Files.end());
			m_nFileCount += path->m_Files.size();
			if (path->m_Files.size() > PACKEDSTORE_FILE_TABLE_THRESHOLD)
				RebuildFileTable(*path, path->m_Files.size() * 4 / 3 + 1);
		}
	}
}

void CPackedStore::RebuildFileTable(CPackedStorePath &path, size_t capacity)
{
	path.m_FileTable.assign(capacity, PackedStoreFileSlot_t{ -1, 0 });
	path.m_nTableUsed = 0;
	// In tree order, so that of two equal names the first in the tree is found.
	for (size_t i = path.m_Files.size(); i-- > 0;)
		InsertIntoFileTable(path, i);
}

void CPackedStore::InsertIntoFileTable(CPackedStorePath &path, size_t index)
{
	const CUtlString &name = path.m_Files[index]->m_BaseName;
	const uint32 hash = HashFileTableName(name.data(), name.size());
	const size_t capacity = path.m_FileTable.size();
	size_t slot = hash % capacity;
	while (path.m_FileTable[slot].m_nIndex >= 0)
		slot = (slot + 1) % capacity;
	path.m_FileTable[slot] = { (int32)index, hash };
	++path.m_nTableUsed;
}

bool CPackedStore::FindInternal(const CUtlString &pathName, const CUtlString &baseName, const CUtlString &extensionName, FoundFile_t &found) const
{
	found.pExtension = nullptr;
	found.pPath = nullptr;
	found.pFile = nullptr;

	const uint32 extensionHash = HashBucketString(extensionName.data(), extensionName.size());
	const auto &extensionBucket = m_ExtensionBuckets[extensionHash % PACKEDSTORE_EXTENSION_BUCKETS];
	for (size_t i = extensionBucket.size(); i-- > 0;)
	{
		if (extensionBucket[i].m_nHash == extensionHash && extensionBucket[i].m_pRecord->m_Name == extensionName)
		{
			found.pExtension = extensionBucket[i].m_pRecord;
			break;
		}
	}
	if (!found.pExtension)
		return false;

	const uint32 pathHash = HashBucketString(pathName.data(), pathName.size());
	const auto &pathBucket = found.pExtension->m_PathBuckets[pathHash % PACKEDSTORE_PATH_BUCKETS];
	for (size_t i = pathBucket.size(); i-- > 0;)
	{
		if (pathBucket[i].m_nHash == pathHash && pathBucket[i].m_pRecord->m_Name == pathName)
		{
			found.pPath = pathBucket[i].m_pRecord;
			break;
		}
	}
	const CPackedStorePath *path = found.pPath;
	if (!path)
		return false;

	if (!path->m_FileTable.empty())
	{
		const uint32 hash = HashFileTableName(baseName.data(), baseName.size());
		const size_t capacity = path->m_FileTable.size();
		size_t slot = hash % capacity;
		while (path->m_FileTable[slot].m_nIndex >= 0)
		{
			const size_t index = (size_t)path->m_FileTable[slot].m_nIndex;
			if (path->m_FileTable[slot].m_nHash == hash && path->m_Files[index]->m_BaseName == baseName)
			{
				found.nFileIndex = index;
				found.pFile = path->m_Files[index].get();
				return true;
			}
			slot = (slot + 1) % capacity;
		}
		return false;
	}
	for (size_t i = path->m_Files.size(); i-- > 0;)
	{
		if (path->m_Files[i]->m_BaseName == baseName)
		{
			found.nFileIndex = i;
			found.pFile = path->m_Files[i].get();
			return true;
		}
	}
	return false;
}

void CPackedStore::FillInfo(const CPackedStoreExtension &extension, const CPackedStorePath &path, const CPackedStoreFile &file,
	PackedStoreFileInfo_t &info) const
{
	info.m_Extension = extension.m_Name;
	info.m_Path = path.m_Name;
	info.m_BaseName = file.m_BaseName;
	info.m_Name.clear();
	if (path.m_Name != kBlank)
		info.m_Name = path.m_Name + "/";
	info.m_Name += file.m_BaseName;
	if (extension.m_Name != kBlank)
		info.m_Name += "." + extension.m_Name;
	info.m_nCRC = file.m_nCRC;
	info.m_nPreloadSize = file.m_nPreloadSize;
	info.m_nTotalSize = file.TotalSize();
	info.m_Fragments.assign(file.m_Fragments.begin(), file.m_Fragments.end());
	info.m_Preload.assign(file.m_Preload.begin(), file.m_Preload.end());
	info.m_bInFilter = !m_FilterPaths.empty() && MatchesFilter(path.m_Name);
}

bool CPackedStore::FindFile(const char *pName, PackedStoreFileInfo_t &info)
{
	CUtlString path, baseName, extension;
	SplitFileName(pName, path, baseName, extension);
	std::shared_lock lock(m_Lock);
	FoundFile_t found;
	if (!FindInternal(path, baseName, extension, found))
		return false;
	FillInfo(*found.pExtension, *found.pPath, *found.pFile, info);
	return true;
}

void CPackedStore::GetFileList(CUtlVector<PackedStoreFileInfo_t> &out)
{
	std::shared_lock lock(m_Lock);
	out.clear();
	out.reserve(m_nFileCount);
	for (size_t e = m_Extensions.size(); e-- > 0;)
	{
		const CPackedStoreExtension &extension = *m_Extensions[e];
		for (size_t p = extension.m_Paths.size(); p-- > 0;)
		{
			const CPackedStorePath &path = *extension.m_Paths[p];
			for (size_t f = path.m_Files.size(); f-- > 0;)
			{
				out.emplace_back();
				FillInfo(extension, path, *path.m_Files[f], out.back());
			}
		}
	}
}

int CPackedStore::GetFileCount()
{
	std::shared_lock lock(m_Lock);
	return (int)m_nFileCount;
}

void CPackedStore::SerializeTree(std::vector<uint8> &out) const
{
	out.clear();
	for (size_t e = m_Extensions.size(); e-- > 0;)
	{
		const CPackedStoreExtension &extension = *m_Extensions[e];
		PutString(out, extension.m_Name);
		for (size_t p = extension.m_Paths.size(); p-- > 0;)
		{
			const CPackedStorePath &path = *extension.m_Paths[p];
			PutString(out, path.m_Name);
			for (size_t f = path.m_Files.size(); f-- > 0;)
			{
				const CPackedStoreFile &file = *path.m_Files[f];
				PutString(out, file.m_BaseName);
				PutLe32(out, file.m_nCRC);
				PutLe16(out, file.m_nPreloadSize);
				for (const PackedStoreFragment_t &fragment : file.m_Fragments)
				{
					PutLe16(out, fragment.m_nArchiveIndex);
					PutLe32(out, fragment.m_nOffset);
					PutLe32(out, fragment.m_nSize);
				}
				PutLe16(out, PACKEDSTORE_TERMINATOR);
				out.insert(out.end(), file.m_Preload.begin(), file.m_Preload.end());
			}
			out.push_back(0);
		}
		out.push_back(0);
	}
	out.push_back(0);
	out.insert(out.end(), m_TreeTail.begin(), m_TreeTail.end());
}

void CPackedStore::GetDirectoryTree(CUtlVector<uint8> &out)
{
	std::shared_lock lock(m_Lock);
	std::vector<uint8> tree;
	SerializeTree(tree);
	out.assign(tree.begin(), tree.end());
}

size_t CPackedStore::GetFileTableSize(const char *pPath, const char *pExtension)
{
	std::shared_lock lock(m_Lock);
	FoundFile_t found;
	FindInternal(pPath, CUtlString(), pExtension, found);
	return found.pPath ? found.pPath->m_FileTable.size() : 0;
}
