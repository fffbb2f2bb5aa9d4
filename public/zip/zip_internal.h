// Record layouts and small I/O helpers shared by the files of CZip.
#pragma once

#include <cerrno>
#include <cstring>

#include <unistd.h>

#include "core/platform.h"

namespace ZipInternal
{
// Record signatures and sizes of the PKZIP application note.
inline const uint32 kLocalSignature = 0x04034B50;
inline const uint32 kCentralSignature = 0x02014B50;
inline const uint32 kEndSignature = 0x06054B50;
inline const int kLocalHeaderSize = 30;
inline const int kCentralHeaderSize = 46;
inline const int kEndRecordSize = 22;
inline const int kCommentSize = 32;
inline const int kCommentReadSize = 128;
inline const uint16 kVersionNeeded = 10;
inline const uint16 kVersionMadeBy = 20;

// Field tables: the size of every field of a record, in order. Records are packed and unpacked
// field by field, so that one table serves both byte orders.
inline const uint8 kLocalFields[] = { 4, 2, 2, 2, 2, 2, 4, 4, 4, 2, 2 };
inline const uint8 kCentralFields[] = { 4, 2, 2, 2, 2, 2, 2, 4, 4, 4, 2, 2, 2, 2, 2, 4, 4 };
inline const uint8 kEndFields[] = { 4, 2, 2, 2, 2, 4, 4, 2 };

enum LocalField_t
{
	LOCAL_SIGNATURE,
	LOCAL_VERSION_NEEDED,
	LOCAL_FLAGS,
	LOCAL_METHOD,
	LOCAL_TIME,
	LOCAL_DATE,
	LOCAL_CRC,
	LOCAL_COMPRESSED_SIZE,
	LOCAL_UNCOMPRESSED_SIZE,
	LOCAL_NAME_LENGTH,
	LOCAL_EXTRA_LENGTH,
	LOCAL_FIELD_COUNT
};

enum CentralField_t
{
	CENTRAL_SIGNATURE,
	CENTRAL_VERSION_MADE_BY,
	CENTRAL_VERSION_NEEDED,
	CENTRAL_FLAGS,
	CENTRAL_METHOD,
	CENTRAL_TIME,
	CENTRAL_DATE,
	CENTRAL_CRC,
	CENTRAL_COMPRESSED_SIZE,
	CENTRAL_UNCOMPRESSED_SIZE,
	CENTRAL_NAME_LENGTH,
	CENTRAL_EXTRA_LENGTH,
	CENTRAL_COMMENT_LENGTH,
	CENTRAL_DISK_START,
	CENTRAL_INTERNAL_ATTRIBUTES,
	CENTRAL_EXTERNAL_ATTRIBUTES,
	CENTRAL_LOCAL_OFFSET,
	CENTRAL_FIELD_COUNT
};

enum EndField_t
{
	END_SIGNATURE,
	END_DISK,
	END_CENTRAL_DISK,
	END_ENTRIES_HERE,
	END_ENTRIES_TOTAL,
	END_CENTRAL_SIZE,
	END_CENTRAL_OFFSET,
	END_COMMENT_LENGTH,
	END_FIELD_COUNT
};

static_assert(V_ARRAYSIZE(kLocalFields) == LOCAL_FIELD_COUNT);
static_assert(V_ARRAYSIZE(kCentralFields) == CENTRAL_FIELD_COUNT);
static_assert(V_ARRAYSIZE(kEndFields) == END_FIELD_COUNT);

// Largest alignment whose padding still fits the 16-bit extra length.
inline const unsigned int kMaxAlignment = 32768;
inline const uint32 kCompactAlignment = 0xFFFFFFFFu;
inline const size_t kMaxParsedNameLength = 1023;
inline const size_t kLookupNameSize = 512;
inline const int64 kMaxArchiveOffset = 0xFFFFFFFFll;
inline const int64 kMaxEntrySize = 0x7FFFFFFFll;
inline const size_t kMaxEntries = 0xFFFF;

inline bool IsPowerOfTwo(unsigned int value)
{
	return value != 0 && (value & (value - 1)) == 0;
}

inline int CompareBytes(const char *a, const char *b)
{
	return strcmp(a, b);
}

// Reads exactly size bytes at offset; false on a short read or an error.
inline bool ReadAt(int hFile, int64 offset, void *out, size_t size)
{
	char *p = static_cast<char *>(out);
	while (size > 0)
	{
		const ssize_t got = pread(hFile, p, size, (off_t)offset);
		if (got < 0 && errno == EINTR)
			continue;
		if (got <= 0)
			return false;
		p += got;
		offset += got;
		size -= (size_t)got;
	}
	return true;
}

inline bool WriteAll(int hFile, const void *data, size_t size)
{
	const char *p = static_cast<const char *>(data);
	while (size > 0)
	{
		const ssize_t wrote = write(hFile, p, size);
		if (wrote < 0 && errno == EINTR)
			continue;
		if (wrote <= 0)
			return false;
		p += wrote;
		size -= (size_t)wrote;
	}
	return true;
}

inline bool WriteAllAt(int hFile, int64 offset, const void *data, size_t size)
{
	const char *p = static_cast<const char *>(data);
	while (size > 0)
	{
		const ssize_t wrote = pwrite(hFile, p, size, (off_t)offset);
		if (wrote < 0 && errno == EINTR)
			continue;
		if (wrote <= 0)
			return false;
		p += wrote;
		offset += wrote;
		size -= (size_t)wrote;
	}
	return true;
}
} // namespace ZipInternal
