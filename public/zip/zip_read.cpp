// CZip: reading archives from memory and from disk.
#include "zip/zip_utils.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/logging.h"
#include "core/strtools.h"
#include "zip/zip_internal.h"

using namespace ZipInternal;

// Bounds-checked reads from an archive in memory or in a file.
struct CZip::ArchiveSource_t
{
	const uint8 *pMemory = nullptr;
	int hFile = -1;
	int64 nSize = 0;
	CUtlString name; // for messages

	bool Read(int64 offset, void *out, size_t size) const
	{
		if (offset < 0 || offset > nSize || (int64)size > nSize - offset)
			return false;
		if (pMemory)
		{
			memcpy(out, pMemory + offset, size);
			return true;
		}
		return ReadAt(hFile, offset, out, size);
	}
};

struct CZip::ArchiveLayout_t
{
	int64 nEndOffset = 0;
	uint32 end[END_FIELD_COUNT] = {};
	bool bHasFormatComment = false;
	bool bCompatible = true; // central records carry their extra bytes
	bool bCompact = false;
	unsigned int nAlignment = 0;
};

CZip::FindEndResult_t CZip::FindEndRecord(ArchiveSource_t &source, ArchiveLayout_t &layout)
{
	if (source.nSize < kEndRecordSize)
		return END_MISSING;

	// Backwards from the last place an end record fits, in blocks, so that a long archive
	// without one is scanned once.
	uint8 signature[4];
	const uint32 sigValue = kEndSignature;
	const uint8 sigField[] = { 4 };
	EncodeRecord(&sigValue, sigField, 1, signature);

	const int64 kBlock = 1 << 16;
	std::vector<uint8> block;
	int64 position = source.nSize - kEndRecordSize;
	int64 found = -1;
	while (position >= 0 && found < 0)
	{
		const int64 low = std::max<int64>(0, position - kBlock + 1);
		const size_t length = (size_t)(position + 4 - low);
		const uint8 *bytes;
		if (source.pMemory)
			bytes = source.pMemory + low;
		else
		{
			block.resize(length);
			if (!source.Read(low, block.data(), length))
			{
				Warning("%s: cannot read the archive (%s)\n", source.name.c_str(), strerror(errno));
				return END_ERROR;
			}
			bytes = block.data();
		}
		for (int64 p = position; p >= low; --p)
		{
			if (memcmp(bytes + (p - low), signature, 4) == 0)
			{
				found = p;
				break;
			}
		}
		position = low - 1;
	}
	if (found < 0)
		return END_MISSING;

	uint8 record[kEndRecordSize];
	if (!source.Read(found, record, kEndRecordSize))
		return END_MISSING;
	layout.nEndOffset = found;
	DecodeRecord(record, kEndFields, END_FIELD_COUNT, layout.end);

	// The comment tells our own layouts apart.
	const uint32 commentLength = layout.end[END_COMMENT_LENGTH];
	if (commentLength != 0)
	{
		char comment[kCommentReadSize + 1] = {};
		const int64 available = source.nSize - (found + kEndRecordSize);
		const size_t length = (size_t)std::min<int64>({ (int64)commentLength, (int64)kCommentReadSize, available });
		if (length > 0 && source.Read(found + kEndRecordSize, comment, length) && length >= 3 && V_strnicmp(comment, "XZP", 3) == 0)
		{
			layout.bHasFormatComment = true;
			const char format = length > 3 ? comment[3] : 0;
			layout.bCompatible = format != '2' && format != '3';
			layout.bCompact = format == '3';
			const char *digits = length > 4 ? comment + 4 : "";
			while (*digits == ' ')
				++digits;
			unsigned long value = 0;
			while (*digits >= '0' && *digits <= '9' && value <= kMaxAlignment)
				value = value * 10 + (unsigned long)(*digits++ - '0');
			layout.nAlignment = (value <= kMaxAlignment && IsPowerOfTwo((unsigned int)value)) ? (unsigned int)value : 0;
		}
	}
	return END_FOUND;
}

bool CZip::ParseArchive(ArchiveSource_t &source, bool bCopyData)
{
	ArchiveLayout_t layout;
	const FindEndResult_t end = FindEndRecord(source, layout);
	if (end == END_ERROR)
		return false;
	if (end == END_MISSING)
		return true; // no end record: an empty zip

	if (layout.bHasFormatComment)
	{
		m_bCompatibleFormat = layout.bCompatible;
		m_bCompactFormat = layout.bCompact;
		if (!m_bForceAlignment)
			m_nAlignment = layout.nAlignment;
	}

	const uint32 entryCount = layout.end[END_ENTRIES_TOTAL];
	if (entryCount == 0)
		return true;
	const int64 centralOffset = layout.end[END_CENTRAL_OFFSET];
	const int64 centralSize = layout.end[END_CENTRAL_SIZE];
	if (centralOffset + centralSize > layout.nEndOffset)
	{
		Warning("%s: the central directory (offset %lld, %lld bytes) lies outside the archive\n", source.name.c_str(),
			(long long)centralOffset, (long long)centralSize);
		return false;
	}
	std::vector<uint8> centralCopy;
	const uint8 *central;
	if (source.pMemory)
		central = source.pMemory + centralOffset;
	else
	{
		centralCopy.resize((size_t)centralSize);
		if (!source.Read(centralOffset, centralCopy.data(), (size_t)centralSize))
		{
			Warning("%s: cannot read the central directory\n", source.name.c_str());
			return false;
		}
		central = centralCopy.data();
	}

	struct Parsed_t
	{
		CUtlString name;
		int64 dataOffset;
		int64 size;
		uint32 crc;
		bool bHasData;
	};
	std::vector<Parsed_t> parsed;
	int64 cursor = 0;
	for (uint32 i = 0; i < entryCount; ++i)
	{
		if (cursor + kCentralHeaderSize > centralSize)
		{
			Warning("%s: the central directory ends after %u of %u entries\n", source.name.c_str(), i, entryCount);
			return false;
		}
		uint32 record[CENTRAL_FIELD_COUNT];
		DecodeRecord(central + cursor, kCentralFields, CENTRAL_FIELD_COUNT, record);
		if (record[CENTRAL_SIGNATURE] != kCentralSignature || record[CENTRAL_METHOD] != 0)
			break; // the walk ends at the first foreign or compressed record
		const int64 nameLength = record[CENTRAL_NAME_LENGTH];
		if (cursor + kCentralHeaderSize + nameLength > centralSize)
		{
			Warning("%s: the name of entry %u runs past the central directory\n", source.name.c_str(), i);
			return false;
		}
		const char *rawName = reinterpret_cast<const char *>(central + cursor + kCentralHeaderSize);
		size_t usedLength = strnlen(rawName, (size_t)nameLength);
		usedLength = std::min(usedLength, kMaxParsedNameLength);
		Parsed_t entry;
		entry.name = LowerName(CUtlString(rawName, usedLength).c_str(), kMaxParsedNameLength);
		entry.size = record[CENTRAL_COMPRESSED_SIZE];
		entry.crc = record[CENTRAL_CRC];
		if (record[CENTRAL_COMPRESSED_SIZE] != record[CENTRAL_UNCOMPRESSED_SIZE] || entry.size > kMaxEntrySize)
		{
			Warning("%s: entry '%s' has a stored size of %u and a size of %u\n", source.name.c_str(), entry.name.c_str(),
				record[CENTRAL_COMPRESSED_SIZE], record[CENTRAL_UNCOMPRESSED_SIZE]);
			return false;
		}

		// The data lies behind the local header. Our own writer gives both headers the same
		// extra length; other writers may not, so the local header is read when it is there.
		const int64 localOffset = record[CENTRAL_LOCAL_OFFSET];
		entry.dataOffset = localOffset + kLocalHeaderSize + nameLength + record[CENTRAL_EXTRA_LENGTH];
		uint8 localBytes[kLocalHeaderSize];
		if (source.Read(localOffset, localBytes, kLocalHeaderSize))
		{
			uint32 local[LOCAL_FIELD_COUNT];
			DecodeRecord(localBytes, kLocalFields, LOCAL_FIELD_COUNT, local);
			if (local[LOCAL_SIGNATURE] == kLocalSignature)
				entry.dataOffset = localOffset + kLocalHeaderSize + local[LOCAL_NAME_LENGTH] + local[LOCAL_EXTRA_LENGTH];
		}
		// A compact archive holds the data of its first entry only.
		entry.bHasData = !(layout.bCompact && !parsed.empty());
		if (entry.bHasData && entry.size > 0 && entry.dataOffset + entry.size > source.nSize)
		{
			Warning("%s: the data of entry '%s' (offset %lld, %lld bytes) lies past the end of the archive\n", source.name.c_str(),
				entry.name.c_str(), (long long)entry.dataOffset, (long long)entry.size);
			return false;
		}
		parsed.push_back(std::move(entry));

		cursor += kCentralHeaderSize + nameLength + record[CENTRAL_COMMENT_LENGTH];
		if (layout.bCompatible)
			cursor += record[CENTRAL_EXTRA_LENGTH];
	}

	// Entries whose data overlap are refused: an archive that names the same bytes many times
	// would make a small file unpack into any amount of memory.
	std::vector<const Parsed_t *> byOffset;
	for (const Parsed_t &entry : parsed)
	{
		if (entry.bHasData && entry.size > 0)
			byOffset.push_back(&entry);
	}
	std::sort(byOffset.begin(), byOffset.end(), [](const Parsed_t *a, const Parsed_t *b) { return a->dataOffset < b->dataOffset; });
	for (size_t i = 1; i < byOffset.size(); ++i)
	{
		if (byOffset[i - 1]->dataOffset + byOffset[i - 1]->size > byOffset[i]->dataOffset)
		{
			Warning("%s: the data of entries '%s' and '%s' overlap\n", source.name.c_str(), byOffset[i - 1]->name.c_str(),
				byOffset[i]->name.c_str());
			return false;
		}
	}

	for (Parsed_t &entry : parsed)
	{
		std::unique_ptr<CZipEntry> item = std::make_unique<CZipEntry>();
		item->m_Name = entry.name;
		item->m_nCompressedSize = (int32)entry.size;
		item->m_nDiskOffset = entry.dataOffset;
		item->m_nCRC = entry.crc;
		if (!entry.bHasData)
			item->m_Location = ZIP_DATA_NONE;
		else if (bCopyData)
		{
			item->m_Location = ZIP_DATA_MEMORY;
			if (entry.size > 0)
			{
				item->m_pData.reset(new uint8[(size_t)entry.size]);
				if (!source.Read(entry.dataOffset, item->m_pData.get(), (size_t)entry.size))
				{
					Warning("%s: cannot read the data of entry '%s'\n", source.name.c_str(), entry.name.c_str());
					return false;
				}
			}
		}
		else
			item->m_Location = ZIP_DATA_ARCHIVE;

		auto existing = m_Items.find(item->m_Name);
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
			CUtlString key = item->m_Name;
			m_Items.emplace(std::move(key), std::move(item));
		}
	}
	return true;
}

bool CZip::ParseFromBuffer(const void *buffer, int64 bufferSize)
{
	Reset();
	if (!buffer || bufferSize < 0)
		return false;
	ArchiveSource_t source;
	source.pMemory = static_cast<const uint8 *>(buffer);
	source.nSize = bufferSize;
	source.name = "zip in memory";
	if (ParseArchive(source, true))
		return true;
	m_Items.clear();
	m_ItemsById.clear();
	return false;
}

bool CZip::ParseFromDisk(const char *path)
{
	Reset();
	if (!path)
		return false;
	const int hFile = open(path, O_RDONLY | O_CLOEXEC);
	if (hFile < 0)
	{
		Warning("%s: cannot open the archive (%s)\n", path, strerror(errno));
		return false;
	}
	struct stat info;
	if (fstat(hFile, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size < kEndRecordSize)
	{
		Warning("%s: not an archive (too short or not a file)\n", path);
		close(hFile);
		return false;
	}
	ArchiveSource_t source;
	source.hFile = hFile;
	source.nSize = (int64)info.st_size;
	source.name = path;
	m_ArchivePath = path;
	const bool bOk = ParseArchive(source, false);
	close(hFile);
	if (!bOk)
	{
		m_Items.clear();
		m_ItemsById.clear();
	}
	return bOk;
}

bool CZip::GetFirstCompressionMethod(const void *data, int64 size, int &method)
{
	method = 0;
	if (!data || size < 0)
		return false;
	ArchiveSource_t source;
	source.pMemory = static_cast<const uint8 *>(data);
	source.nSize = size;
	source.name = "zip in memory";
	ArchiveLayout_t layout;
	if (FindEndRecord(source, layout) != END_FOUND || layout.end[END_ENTRIES_TOTAL] == 0)
		return false;
	const int64 centralOffset = layout.end[END_CENTRAL_OFFSET];
	const int64 centralSize = layout.end[END_CENTRAL_SIZE];
	if (centralOffset + centralSize > layout.nEndOffset)
		return false;
	const uint8 *central = source.pMemory + centralOffset;
	int64 cursor = 0;
	for (uint32 i = 0; i < layout.end[END_ENTRIES_TOTAL] && cursor + kCentralHeaderSize <= centralSize; ++i)
	{
		uint32 record[CENTRAL_FIELD_COUNT];
		DecodeRecord(central + cursor, kCentralFields, CENTRAL_FIELD_COUNT, record);
		if (record[CENTRAL_SIGNATURE] != kCentralSignature)
			break;
		if (record[CENTRAL_METHOD] != 0)
		{
			method = (int)record[CENTRAL_METHOD];
			break;
		}
		cursor += kCentralHeaderSize + (int64)record[CENTRAL_NAME_LENGTH] + record[CENTRAL_COMMENT_LENGTH];
		if (layout.bCompatible)
			cursor += record[CENTRAL_EXTRA_LENGTH];
	}
	return true;
}
