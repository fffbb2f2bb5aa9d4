// CPackedStore: reading file contents back and checking the self hash.
#include "bdllib/packedstore.h"

#include <cstring>

#include "bdllib/packedstore_internal.h"
#include "core/logging.h"
#include "core/strtools.h"

// ---------------------------------------------------------------------------------------------
// Reading contents

bool CPackedStore::ReadEmbedded(uint64 offset, void *out, size_t size, CUtlString *pError)
{
	if (m_bEmbeddedInMemory)
	{
		if (m_EmbeddedData.Read(offset, out, size))
			return true;
		*pError = V_Format("%s: a fragment (offset %llu, %zu bytes) lies past the embedded data (%llu bytes)", m_PackFileName.c_str(),
			(unsigned long long)offset, size, (unsigned long long)m_EmbeddedData.Size());
		return false;
	}
	if (offset > m_nEmbeddedDataSize || size > m_nEmbeddedDataSize - offset)
	{
		*pError = V_Format("%s: a fragment (offset %llu, %zu bytes) lies past the embedded data (%llu bytes)", m_ReadFileName.c_str(),
			(unsigned long long)offset, size, (unsigned long long)m_nEmbeddedDataSize);
		return false;
	}
	FileHandle_t hFile = m_pFileSystem->Open(m_ReadFileName.c_str(), "rb");
	if (!hFile)
	{
		*pError = V_Format("%s: cannot open", m_ReadFileName.c_str());
		return false;
	}
	const int64 fileSize = m_pFileSystem->Size(hFile);
	bool bOk = m_nEmbeddedFileOffset + (int64)offset + (int64)size <= fileSize;
	m_pFileSystem->Seek(hFile, m_nEmbeddedFileOffset + (int64)offset, FILESYSTEM_SEEK_HEAD);
	uint8 *p = static_cast<uint8 *>(out);
	for (size_t done = 0; bOk && done < size;)
	{
		const int step = (int)std::min<size_t>(size - done, 1u << 30);
		bOk = m_pFileSystem->Read(p + done, step, hFile) == step;
		done += (size_t)step;
	}
	m_pFileSystem->Close(hFile);
	if (!bOk)
		*pError = V_Format("%s: the embedded data ends early (the file is truncated)", m_ReadFileName.c_str());
	return bOk;
}

bool CPackedStore::ReadFileData(const PackedStoreFileInfo_t &info, CUtlBuffer &out, CUtlString *pError)
{
	CUtlString ignored;
	if (!pError)
		pError = &ignored;
	std::shared_lock lock(m_Lock);

	// Fragments of one file may not share bytes: a small pack could otherwise name the same
	// bytes any number of times and unpack into any amount of memory.
	std::vector<PackedStoreFragment_t> sorted(info.m_Fragments.begin(), info.m_Fragments.end());
	std::sort(sorted.begin(), sorted.end(), [](const PackedStoreFragment_t &a, const PackedStoreFragment_t &b) {
		return a.m_nArchiveIndex != b.m_nArchiveIndex ? a.m_nArchiveIndex < b.m_nArchiveIndex : a.m_nOffset < b.m_nOffset;
	});
	for (size_t i = 1; i < sorted.size(); ++i)
	{
		const PackedStoreFragment_t &a = sorted[i - 1];
		const PackedStoreFragment_t &b = sorted[i];
		if (a.m_nArchiveIndex == b.m_nArchiveIndex && a.m_nSize > 0 && b.m_nSize > 0 && (uint64)a.m_nOffset + a.m_nSize > b.m_nOffset)
		{
			*pError = V_Format("%s: two fragments share bytes in archive %u", info.m_Name.c_str(), a.m_nArchiveIndex);
			return false;
		}
	}

	out.Put(info.m_Preload.data(), info.m_Preload.size());
	std::vector<uint8> piece;
	for (const PackedStoreFragment_t &fragment : info.m_Fragments)
	{
		if (fragment.m_nSize == 0)
			continue;
		if (fragment.m_nArchiveIndex == PACKEDSTORE_EMBEDDED_INDEX)
		{
			const uint64 embeddedSize = m_bEmbeddedInMemory ? m_EmbeddedData.Size() : m_nEmbeddedDataSize;
			if ((uint64)fragment.m_nOffset + fragment.m_nSize > embeddedSize)
			{
				*pError = V_Format("%s: a fragment (offset %u, %u bytes) lies past the embedded data (%llu bytes)", info.m_Name.c_str(),
					fragment.m_nOffset, fragment.m_nSize, (unsigned long long)embeddedSize);
				return false;
			}
			piece.resize(fragment.m_nSize);
			if (!ReadEmbedded(fragment.m_nOffset, piece.data(), piece.size(), pError))
				return false;
		}
		else
		{
			const CUtlString chunkName = GetChunkFileName(fragment.m_nArchiveIndex);
			FileHandle_t hChunk = m_pFileSystem->Open(chunkName.c_str(), "rb");
			if (!hChunk)
			{
				*pError = V_Format("%s: cannot open the chunk file %s", info.m_Name.c_str(), chunkName.c_str());
				return false;
			}
			const int64 chunkSize = m_pFileSystem->Size(hChunk);
			bool bOk = (int64)fragment.m_nOffset + fragment.m_nSize <= chunkSize;
			if (bOk)
			{
				piece.resize(fragment.m_nSize);
				m_pFileSystem->Seek(hChunk, fragment.m_nOffset, FILESYSTEM_SEEK_HEAD);
				for (size_t done = 0; bOk && done < piece.size();)
				{
					const int step = (int)std::min<size_t>(piece.size() - done, 1u << 30);
					bOk = m_pFileSystem->Read(piece.data() + done, step, hChunk) == step;
					done += (size_t)step;
				}
			}
			m_pFileSystem->Close(hChunk);
			if (!bOk)
			{
				*pError = V_Format("%s: the fragment at offset %u, %u bytes, lies past the end of %s (%lld bytes)", info.m_Name.c_str(),
					fragment.m_nOffset, fragment.m_nSize, chunkName.c_str(), (long long)chunkSize);
				return false;
			}
		}
		out.Put(piece.data(), piece.size());
	}
	return true;
}

bool CPackedStore::VerifySelfHash(bool *pbHasHash, CUtlString *pError)
{
	CUtlString ignored;
	if (!pError)
		pError = &ignored;
	std::shared_lock lock(m_Lock);
	*pbHasHash = m_nVersion == 2 && m_nSelfHashesSize == PACKEDSTORE_SELF_HASHES_SIZE && !m_ReadFileName.empty();
	if (!*pbHasHash)
		return true;
	const int64 hashed = (int64)m_nHeaderSize + m_nTreeSize + (int64)m_nEmbeddedDataSize + m_nChunkHashesSize + 32;
	FileHandle_t hFile = m_pFileSystem->Open(m_ReadFileName.c_str(), "rb");
	if (!hFile)
	{
		*pError = V_Format("%s: cannot open", m_ReadFileName.c_str());
		return false;
	}
	MD5Context_t context;
	MD5Init(&context);
	std::vector<uint8> block(1 << 20);
	bool bOk = true;
	for (int64 done = 0; bOk && done < hashed;)
	{
		const int step = (int)std::min<int64>(hashed - done, (int64)block.size());
		bOk = m_pFileSystem->Read(block.data(), step, hFile) == step;
		MD5Update(&context, block.data(), (size_t)step);
		done += step;
	}
	m_pFileSystem->Close(hFile);
	if (!bOk)
	{
		*pError = V_Format("%s: the file ends before its self hash", m_ReadFileName.c_str());
		return false;
	}
	MD5Value_t computed;
	MD5Final(&computed, &context);
	if (computed != m_FileHash)
	{
		char want[33], got[33];
		MD5_ToString(m_FileHash, want);
		MD5_ToString(computed, got);
		*pError = V_Format("%s: MD5 self hash mismatch (stored %s, computed %s)", m_ReadFileName.c_str(), want, got);
		return false;
	}
	return true;
}
