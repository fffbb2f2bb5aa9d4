#include "zip/zip_utils.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <mutex>
#include <set>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include "core/fileio.h"
#include "core/hashes.h"
#include "core/logging.h"
#include "core/strtools.h"
#include "zip/zip_internal.h"

using namespace ZipInternal;

namespace
{
// A stream that only counts, for EstimateSize.
class CCountingStream final : public IZipStream
{
public:
	bool Put(const void *, size_t size) override
	{
		m_nPosition += (int64)size;
		return true;
	}
	int64 Tell() override { return m_nPosition; }

private:
	int64 m_nPosition = 0;
};

std::mutex s_ZipListMutex;
std::set<IZip *> s_LiveZips;
} // namespace

// ---------------------------------------------------------------------------------------------
// Streams

bool CBufferStream::Put(const void *data, size_t size)
{
	m_Buffer.Put(data, size);
	return true;
}

int64 CBufferStream::Tell()
{
	return (int64)m_Buffer.TellPut();
}

CFileStream::CFileStream(int hFile) : m_hFile(hFile)
{
	const off_t position = lseek(hFile, 0, SEEK_CUR);
	m_nPosition = position < 0 ? 0 : (int64)position;
	m_Pending.reserve(1 << 20);
}

CFileStream::CFileStream(FILE *fp) : m_pFile(fp)
{
	const off_t position = fp ? ftello(fp) : -1;
	m_nPosition = position < 0 ? 0 : (int64)position;
	if (!fp)
		m_bFailed = true;
}

CFileStream::~CFileStream()
{
	Flush();
}

bool CFileStream::Put(const void *data, size_t size)
{
	if (m_bFailed)
		return false;
	m_nPosition += (int64)size;
	if (m_pFile)
	{
		if (size > 0 && fwrite(data, 1, size, m_pFile) != size)
			m_bFailed = true;
		return !m_bFailed;
	}
	if (m_Pending.size() + size > m_Pending.capacity())
	{
		if (!Flush())
			return false;
		if (size >= m_Pending.capacity())
		{
			if (!WriteAll(m_hFile, data, size))
				m_bFailed = true;
			return !m_bFailed;
		}
	}
	m_Pending.insert(m_Pending.end(), static_cast<const char *>(data), static_cast<const char *>(data) + size);
	return true;
}

int64 CFileStream::Tell()
{
	return m_nPosition;
}

bool CFileStream::Flush()
{
	if (m_bFailed)
		return false;
	if (m_pFile)
	{
		if (fflush(m_pFile) != 0)
			m_bFailed = true;
	}
	else if (!m_Pending.empty())
	{
		if (!WriteAll(m_hFile, m_Pending.data(), m_Pending.size()))
			m_bFailed = true;
		m_Pending.clear();
	}
	return !m_bFailed;
}

void CZip::EncodeRecord(const uint32 *values, const uint8 *fieldSizes, int fieldCount, uint8 *out) const
{
	const bool bBigEndian = (std::endian::native == std::endian::big) != m_bSwapBytes;
	for (int i = 0; i < fieldCount; ++i)
	{
		const int size = fieldSizes[i];
		for (int b = 0; b < size; ++b)
		{
			const int shift = bBigEndian ? 8 * (size - 1 - b) : 8 * b;
			out[b] = (uint8)(values[i] >> shift);
		}
		out += size;
	}
}

void CZip::DecodeRecord(const uint8 *in, const uint8 *fieldSizes, int fieldCount, uint32 *values) const
{
	const bool bBigEndian = (std::endian::native == std::endian::big) != m_bSwapBytes;
	for (int i = 0; i < fieldCount; ++i)
	{
		const int size = fieldSizes[i];
		uint32 value = 0;
		for (int b = 0; b < size; ++b)
		{
			const int shift = bBigEndian ? 8 * (size - 1 - b) : 8 * b;
			value |= (uint32)in[b] << shift;
		}
		values[i] = value;
		in += size;
	}
}

// ---------------------------------------------------------------------------------------------
// CZip

IZip *IZip::CreateZip(const char *pDiskCacheWritePath, bool bSortCaseSensitive)
{
	IZip *pZip = new CZip(pDiskCacheWritePath, bSortCaseSensitive ? CompareBytes : V_stricmp);
	std::lock_guard<std::mutex> lock(s_ZipListMutex);
	s_LiveZips.insert(pZip);
	return pZip;
}

void IZip::ReleaseZip(IZip *pZip)
{
	if (!pZip)
		return;
	{
		std::lock_guard<std::mutex> lock(s_ZipListMutex);
		if (s_LiveZips.erase(pZip) == 0)
		{
			Warning("ReleaseZip: %p is not a zip made by CreateZip (or was released already)\n", static_cast<void *>(pZip));
			return;
		}
	}
	delete pZip;
}

CZip::CZip(const char *pDiskCacheWritePath, ZipNameCompare_t compare)
	: m_Items(NameLess{ compare ? compare : CompareBytes }), m_pCompare(compare ? compare : CompareBytes)
{
	if (pDiskCacheWritePath)
	{
		m_bDiskCacheEnabled = true;
		m_DiskCacheFolder = pDiskCacheWritePath;
		while (m_DiskCacheFolder.size() > 1 && (m_DiskCacheFolder.back() == '/' || m_DiskCacheFolder.back() == '\\'))
			m_DiskCacheFolder.pop_back();
		OpenDiskCache();
	}
}

CZip::~CZip()
{
	CloseDiskCache();
}

CUtlString CZip::LowerName(const char *name, size_t maxLength)
{
	CUtlString lower = name ? name : "";
	if (lower.size() > maxLength)
		lower.resize(maxLength);
	for (char &c : lower)
		c = V_tolower(c);
	return lower;
}

CZip::CZipEntry *CZip::Find(const CUtlString &name)
{
	auto it = m_Items.find(name);
	return it == m_Items.end() ? nullptr : it->second.get();
}

void CZip::OpenDiskCache()
{
	if (!m_bDiskCacheEnabled || m_hDiskCache >= 0)
		return;
	if (m_DiskCacheFolder.empty())
	{
		// No folder given: a unique name in the temporary folder.
		const char *tmp = getenv("TMPDIR");
		CUtlString pattern = V_Format("%s/_XXXXXX.tmp", tmp && *tmp ? tmp : "/tmp");
		std::vector<char> name(pattern.begin(), pattern.end());
		name.push_back(0);
		m_hDiskCache = mkstemps(name.data(), 4);
		if (m_hDiskCache >= 0)
			m_DiskCacheName = name.data();
	}
	else
	{
		// Named by the local time; a clash with another cache of the same millisecond gets a
		// counter behind it.
		struct timeval now;
		gettimeofday(&now, nullptr);
		struct tm local;
		localtime_r(&now.tv_sec, &local);
		const CUtlString stem = V_Format("%s/%d_%d_%d_%d_%d", m_DiskCacheFolder.c_str(), local.tm_mday, local.tm_hour, local.tm_min,
			local.tm_sec, (int)(now.tv_usec / 1000));
		for (int attempt = 0; attempt < 1000 && m_hDiskCache < 0; ++attempt)
		{
			const CUtlString name = attempt == 0 ? stem + ".tmp" : V_Format("%s_%d.tmp", stem.c_str(), attempt);
			m_hDiskCache = open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
			if (m_hDiskCache >= 0)
				m_DiskCacheName = name;
			else if (errno != EEXIST)
				break;
		}
	}
	if (m_hDiskCache < 0)
	{
		Warning("zip: cannot create a disk cache in %s (%s); files are kept in memory\n",
			m_DiskCacheFolder.empty() ? "the temporary folder" : m_DiskCacheFolder.c_str(), strerror(errno));
		m_DiskCacheName.clear();
	}
	m_nDiskCacheSize = 0;
}

void CZip::CloseDiskCache()
{
	if (m_hDiskCache >= 0)
	{
		close(m_hDiskCache);
		m_hDiskCache = -1;
		unlink(m_DiskCacheName.c_str());
	}
	m_DiskCacheName.clear();
	m_nDiskCacheSize = 0;
}

void CZip::Reset()
{
	m_Items.clear();
	m_ItemsById.clear();
	m_ArchivePath.clear();
	CloseDiskCache();
	if (m_bDiskCacheEnabled)
		OpenDiskCache();
}

bool CZip::AddFileToZip(const char *relativeName, const char *fullPath)
{
	if (!fullPath)
		return false;
	FILE *fp = fopen(fullPath, "rb");
	if (!fp)
		return false;
	bool bOk = false;
	std::vector<uint8> data;
	if (fseeko(fp, 0, SEEK_END) == 0)
	{
		const off_t size = ftello(fp);
		if (size >= 0 && size <= kMaxEntrySize && fseeko(fp, 0, SEEK_SET) == 0)
		{
			data.resize((size_t)size);
			bOk = size == 0 || fread(data.data(), 1, (size_t)size, fp) == (size_t)size;
		}
	}
	fclose(fp);
	if (!bOk)
		return false;
	return AddBufferToZip(relativeName, data.data(), (int64)data.size(), false);
}

bool CZip::FileExistsInZip(const char *name)
{
	return Find(LowerName(name, kLookupNameSize - 1)) != nullptr;
}

bool CZip::LoadEntryData(const CZipEntry &entry, std::vector<uint8> &out, CUtlString *pError)
{
	// A compact archive's entries past the first carry a size and no data: nothing is allocated
	// for them, whatever size their header claims.
	if (entry.m_Location == ZIP_DATA_NONE)
	{
		*pError = V_Format("'%s' has no data in this compact archive", entry.m_Name.c_str());
		out.clear();
		return false;
	}
	const size_t size = (size_t)entry.m_nCompressedSize;
	out.resize(size);
	switch (entry.m_Location)
	{
	case ZIP_DATA_MEMORY:
		if (size > 0)
			memcpy(out.data(), entry.m_pData.get(), size);
		return true;
	case ZIP_DATA_CACHE:
		if (size == 0 || ReadAt(m_hDiskCache, entry.m_nDiskOffset, out.data(), size))
			return true;
		*pError = V_Format("cannot read '%s' back from the disk cache %s", entry.m_Name.c_str(), m_DiskCacheName.c_str());
		return false;
	case ZIP_DATA_ARCHIVE:
	{
		const int hFile = open(m_ArchivePath.c_str(), O_RDONLY | O_CLOEXEC);
		const bool bOk = hFile >= 0 && (size == 0 || ReadAt(hFile, entry.m_nDiskOffset, out.data(), size));
		if (hFile >= 0)
			close(hFile);
		if (!bOk)
			*pError = V_Format("cannot read '%s' from %s", entry.m_Name.c_str(), m_ArchivePath.c_str());
		return bOk;
	}
	case ZIP_DATA_NONE:
		break;
	}
	return false;
}

bool CZip::ReadFileFromZip(int hZipFile, const char *name, bool, CUtlBuffer &buffer)
{
	const CZipEntry *entry = Find(LowerName(name, SIZE_MAX));
	if (!entry || hZipFile < 0)
		return false;
	// The size comes from the archive's header: nothing is allocated for data the file cannot hold.
	struct stat info;
	if (fstat(hZipFile, &info) != 0 || entry->m_nDiskOffset < 0 || entry->m_nDiskOffset + (int64)entry->m_nCompressedSize > (int64)info.st_size)
		return false;
	std::vector<uint8> data((size_t)entry->m_nCompressedSize);
	if (!data.empty() && !ReadAt(hZipFile, entry->m_nDiskOffset, data.data(), data.size()))
		return false;
	buffer.Put(data.data(), data.size());
	return true;
}

bool CZip::ReadFileFromZip(const char *name, bool, CUtlBuffer &buffer)
{
	const CZipEntry *entry = Find(LowerName(name, SIZE_MAX));
	if (!entry)
		return false;
	if (entry->m_Location == ZIP_DATA_MEMORY)
	{
		buffer.Put(entry->m_pData.get(), (size_t)entry->m_nCompressedSize);
		return true;
	}
	std::vector<uint8> data;
	CUtlString error;
	if (!LoadEntryData(*entry, data, &error))
	{
		Warning("zip: %s\n", error.c_str());
		return false;
	}
	buffer.Put(data.data(), data.size());
	return true;
}

void CZip::RemoveFileFromZip(const char *name)
{
	auto it = m_Items.find(LowerName(name, SIZE_MAX));
	if (it == m_Items.end())
		return;
	m_ItemsById[(size_t)it->second->m_nId] = nullptr;
	m_Items.erase(it);
}

int CZip::GetNextFilename(int id, char *pBuffer, int bufferSize, int &fileSize)
{
	ItemMap_t::iterator it;
	if (id == -1)
		it = m_Items.begin();
	else
	{
		if (id < 0 || (size_t)id >= m_ItemsById.size() || !m_ItemsById[(size_t)id])
			return -1;
		it = m_Items.upper_bound(m_ItemsById[(size_t)id]->m_Name);
	}
	if (it == m_Items.end())
		return -1;
	if (pBuffer && bufferSize > 0)
		V_strncpy(pBuffer, it->second->m_Name.c_str(), (size_t)bufferSize);
	fileSize = it->second->m_nCompressedSize;
	return it->second->m_nId;
}

void CZip::PrintDirectory()
{
	for (const auto &item : m_Items)
		Msg("%s\n", item.first.c_str());
}

int64 CZip::EstimateSize()
{
	CCountingStream counter;
	int64 size = 0;
	if (!WriteArchive(counter, true, &size))
		return -1;
	return size;
}

bool CZip::AddBufferToZip(const char *name, const void *data, int64 size, bool bTextMode)
{
	if (!name || !*name || size < 0 || (size > 0 && !data))
		return false;
	const CUtlString lower = LowerName(name, SIZE_MAX);
	if (lower.size() > 0xFFFF)
	{
		Warning("zip: the name '%.64s...' is too long for a zip (%zu bytes)\n", lower.c_str(), lower.size());
		return false;
	}
	if (size > kMaxEntrySize)
	{
		Warning("zip: '%s' is too large for a zip (%lld bytes)\n", lower.c_str(), (long long)size);
		return false;
	}

	// A text buffer of the core keeps the bytes as they are: line ends pass unchanged.
	CUtlBuffer text(CUtlBuffer::TEXT_BUFFER);
	if (bTextMode)
	{
		text.Put(data, (size_t)size);
		data = text.Base();
		size = (int64)text.Size();
	}

	std::unique_ptr<CZipEntry> item = std::make_unique<CZipEntry>();
	item->m_Name = lower;
	item->m_nCompressedSize = (int32)size;
	if (m_hDiskCache >= 0 && size > 0)
	{
		if (!WriteAllAt(m_hDiskCache, m_nDiskCacheSize, data, (size_t)size))
		{
			Warning("zip: cannot write '%s' to the disk cache %s (%s)\n", lower.c_str(), m_DiskCacheName.c_str(), strerror(errno));
			return false;
		}
		item->m_Location = ZIP_DATA_CACHE;
		item->m_nDiskOffset = m_nDiskCacheSize;
		m_nDiskCacheSize += size;
	}
	else
	{
		item->m_Location = ZIP_DATA_MEMORY;
		if (size > 0)
		{
			item->m_pData.reset(new uint8[(size_t)size]);
			memcpy(item->m_pData.get(), data, (size_t)size);
		}
	}

	auto existing = m_Items.find(lower);
	if (existing != m_Items.end())
	{
		item->m_nId = existing->second->m_nId;
		m_ItemsById[(size_t)item->m_nId] = item.get();
		existing->second = std::move(item);
	}
	else
	{
		item->m_nId = (int)m_ItemsById.size();
		m_ItemsById.push_back(item.get());
		m_Items.emplace(lower, std::move(item));
	}
	return true;
}

unsigned int CZip::PaddingFor(int64 headerPosition, size_t nameLength) const
{
	if (m_nAlignment == 0)
		return 0;
	// A header whose name ends on the alignment gets a whole alignment of padding, not 0.
	return m_nAlignment - (unsigned int)((headerPosition + kLocalHeaderSize + (int64)nameLength) % m_nAlignment);
}

bool CZip::SaveToStream(IZipStream &stream)
{
	int64 size = 0;
	return WriteArchive(stream, false, &size);
}

// Writes the archive, or with a counting stream only measures it (no data is loaded then).
bool CZip::WriteArchive(IZipStream &stream, bool bMeasureOnly, int64 *pSize)
{
	const int64 startPosition = stream.Tell();
	static const uint8 kZeros[kMaxAlignment] = {};

	size_t count = 0;
	for (const auto &item : m_Items)
	{
		if (item.second->m_nCompressedSize > 0)
			++count;
	}
	if (count > kMaxEntries)
	{
		Warning("zip: %zu entries do not fit in a zip (at most %zu)\n", count, kMaxEntries);
		return false;
	}

	auto PutPadding = [&](int64 bytes) -> bool {
		while (bytes > 0)
		{
			const size_t chunk = (size_t)std::min<int64>(bytes, (int64)sizeof(kZeros));
			if (!stream.Put(kZeros, chunk))
				return false;
			bytes -= (int64)chunk;
		}
		return true;
	};
	auto PadToAlignment = [&]() -> bool {
		if (m_nAlignment == 0)
			return true;
		const int64 remainder = stream.Tell() % m_nAlignment;
		return remainder == 0 || PutPadding(m_nAlignment - remainder);
	};
	auto WriteFailed = [&]() {
		Warning("zip: writing the archive failed (%s)\n", strerror(errno));
		return false;
	};

	// Local headers and data. Bytes that are not in memory pass one item at a time through one
	// buffer, made big enough for the largest of them at once.
	std::vector<uint8> scratch;
	if (!bMeasureOnly)
	{
		size_t largest = 0;
		for (const auto &item : m_Items)
		{
			if (item.second->m_Location != ZIP_DATA_MEMORY)
				largest = std::max(largest, (size_t)item.second->m_nCompressedSize);
		}
		scratch.reserve(largest);
	}
	bool bFirst = true;
	for (auto &item : m_Items)
	{
		CZipEntry &entry = *item.second;
		if (entry.m_nCompressedSize <= 0)
			continue;
		entry.m_nHeaderOffset = stream.Tell();
		if (entry.m_nHeaderOffset > kMaxArchiveOffset)
		{
			Warning("zip: the archive passes 4 GiB at '%s'\n", entry.m_Name.c_str());
			return false;
		}
		const bool bWriteData = m_bCompatibleFormat || !m_bCompactFormat || bFirst;
		const uint8 *data = nullptr;
		if (!bMeasureOnly && !bWriteData && entry.m_Location == ZIP_DATA_NONE)
		{
			// A compact archive's entry without bytes: its CRC is known and nothing is written.
		}
		else if (!bMeasureOnly)
		{
			if (entry.m_Location == ZIP_DATA_MEMORY)
				data = entry.m_pData.get();
			else
			{
				CUtlString error;
				if (!LoadEntryData(entry, scratch, &error))
				{
					Warning("zip: %s\n", error.c_str());
					return false;
				}
				data = scratch.data();
			}
			entry.m_nCRC = CRC32_ProcessSingleBuffer(data, (size_t)entry.m_nCompressedSize);
		}
		entry.m_nPadding = (uint16)PaddingFor(entry.m_nHeaderOffset, entry.m_Name.size());

		uint32 local[LOCAL_FIELD_COUNT] = {};
		local[LOCAL_SIGNATURE] = kLocalSignature;
		local[LOCAL_VERSION_NEEDED] = kVersionNeeded;
		local[LOCAL_CRC] = entry.m_nCRC;
		local[LOCAL_COMPRESSED_SIZE] = (uint32)entry.m_nCompressedSize;
		local[LOCAL_UNCOMPRESSED_SIZE] = (uint32)entry.m_nCompressedSize;
		local[LOCAL_NAME_LENGTH] = (uint32)entry.m_Name.size();
		local[LOCAL_EXTRA_LENGTH] = entry.m_nPadding;
		uint8 header[kLocalHeaderSize];
		EncodeRecord(local, kLocalFields, LOCAL_FIELD_COUNT, header);
		if (!stream.Put(header, sizeof(header)) || !stream.Put(entry.m_Name.data(), entry.m_Name.size()) || !PutPadding(entry.m_nPadding))
			return WriteFailed();
		if (bWriteData)
		{
			if (bMeasureOnly)
				stream.Put(nullptr, (size_t)entry.m_nCompressedSize);
			else if (!stream.Put(data, (size_t)entry.m_nCompressedSize))
				return WriteFailed();
		}
		bFirst = false;
	}
	if (!PadToAlignment())
		return WriteFailed();

	// Central directory. In the compatible format the padding up to the end record travels as
	// the comment of the last central record: plain readers expect the directory to run up to
	// the end record and to be filled with records.
	const int64 centralOffset = stream.Tell();
	size_t written = 0;
	for (auto &item : m_Items)
	{
		const CZipEntry &entry = *item.second;
		if (entry.m_nCompressedSize <= 0)
			continue;
		uint32 tailPadding = 0;
		if (++written == count && m_bCompatibleFormat && m_nAlignment != 0)
		{
			const int64 after = stream.Tell() + kCentralHeaderSize + (int64)entry.m_Name.size() + entry.m_nPadding;
			tailPadding = (uint32)((m_nAlignment - after % m_nAlignment) % m_nAlignment);
		}
		uint32 central[CENTRAL_FIELD_COUNT] = {};
		central[CENTRAL_SIGNATURE] = kCentralSignature;
		central[CENTRAL_VERSION_MADE_BY] = kVersionMadeBy;
		central[CENTRAL_VERSION_NEEDED] = kVersionNeeded;
		central[CENTRAL_CRC] = entry.m_nCRC;
		central[CENTRAL_COMPRESSED_SIZE] = (uint32)entry.m_nCompressedSize;
		central[CENTRAL_UNCOMPRESSED_SIZE] = (uint32)entry.m_nCompressedSize;
		central[CENTRAL_NAME_LENGTH] = (uint32)entry.m_Name.size();
		central[CENTRAL_EXTRA_LENGTH] = entry.m_nPadding;
		central[CENTRAL_COMMENT_LENGTH] = tailPadding;
		central[CENTRAL_LOCAL_OFFSET] = (uint32)entry.m_nHeaderOffset;
		uint8 header[kCentralHeaderSize];
		EncodeRecord(central, kCentralFields, CENTRAL_FIELD_COUNT, header);
		if (!stream.Put(header, sizeof(header)) || !stream.Put(entry.m_Name.data(), entry.m_Name.size()))
			return WriteFailed();
		if (m_bCompatibleFormat && !PutPadding(entry.m_nPadding + tailPadding))
			return WriteFailed();
	}
	const int64 centralEnd = stream.Tell();
	if (!PadToAlignment())
		return WriteFailed();

	// End record and comment.
	const int64 endOffset = stream.Tell();
	if (endOffset > kMaxArchiveOffset)
	{
		Warning("zip: the archive passes 4 GiB\n");
		return false;
	}
	uint32 end[END_FIELD_COUNT] = {};
	end[END_SIGNATURE] = kEndSignature;
	end[END_ENTRIES_HERE] = (uint32)count;
	end[END_ENTRIES_TOTAL] = (uint32)count;
	end[END_CENTRAL_SIZE] = (uint32)(centralEnd - centralOffset);
	end[END_CENTRAL_OFFSET] = (uint32)centralOffset;
	end[END_COMMENT_LENGTH] = kCommentSize;
	uint8 record[kEndRecordSize];
	EncodeRecord(end, kEndFields, END_FIELD_COUNT, record);
	char comment[kCommentSize] = {};
	const char format = m_bCompatibleFormat ? '1' : (m_bCompactFormat ? '3' : '2');
	snprintf(comment, sizeof(comment), "XZP%c %u", format, m_nAlignment);
	if (!stream.Put(record, sizeof(record)) || !stream.Put(comment, sizeof(comment)))
		return WriteFailed();
	*pSize = stream.Tell() - startPosition;
	return true;
}

bool CZip::SaveToBuffer(CUtlBuffer &buffer)
{
	CBufferStream stream(buffer);
	return SaveToStream(stream);
}

bool CZip::SaveToDisk(int hFile)
{
	if (hFile < 0)
		return false;
	CFileStream stream(hFile);
	const bool bOk = SaveToStream(stream);
	return stream.Flush() && bOk;
}

bool CZip::SaveToDisk(FILE *fp)
{
	if (!fp)
		return false;
	CFileStream stream(fp);
	const bool bOk = SaveToStream(stream);
	return stream.Flush() && bOk;
}

void CZip::ForceAlignment(bool bAligned, bool bCompatibleFormat, unsigned int alignmentSize)
{
	m_bCompatibleFormat = bCompatibleFormat;
	if (alignmentSize == kCompactAlignment)
	{
		m_bForceAlignment = false;
		m_nAlignment = 0;
		m_bCompactFormat = true;
		return;
	}
	m_bForceAlignment = bAligned;
	m_nAlignment = alignmentSize;
	if (!bAligned || !IsPowerOfTwo(alignmentSize) || alignmentSize > kMaxAlignment)
		m_nAlignment = 0;
}

unsigned int CZip::GetAlignment()
{
	return m_bForceAlignment ? m_nAlignment : 0;
}

void CZip::SetBigEndian(bool bigEndian)
{
	m_bSwapBytes = bigEndian != (std::endian::native == std::endian::big);
}

void CZip::ActivateByteSwapping(bool bActivate)
{
	m_bSwapBytes = bActivate;
}
