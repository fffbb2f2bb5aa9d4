// Checksums and hashes: CRC-32 (the zip polynomial), MD5, MurmurHash2 and FNV-1a.
#pragma once

#include "core/platform.h"

// CRC-32 as used by zip and gzip. Init, process any number of buffers, Final.
typedef uint32 CRC32_t;
void CRC32_Init(CRC32_t *pCRC);
void CRC32_ProcessBuffer(CRC32_t *pCRC, const void *data, size_t length);
void CRC32_Final(CRC32_t *pCRC);
CRC32_t CRC32_ProcessSingleBuffer(const void *data, size_t length);

// MD5 (RFC 1321).
struct MD5Value_t
{
	uint8 bits[16];
	bool operator==(const MD5Value_t &other) const;
	bool operator!=(const MD5Value_t &other) const { return !(*this == other); }
};

struct MD5Context_t
{
	uint32 state[4];
	uint64 bitCount;
	uint8 block[64];
	uint32 blockUsed;
};

void MD5Init(MD5Context_t *pContext);
void MD5Update(MD5Context_t *pContext, const void *data, size_t length);
void MD5Final(MD5Value_t *pResult, MD5Context_t *pContext);
void MD5_ProcessSingleBuffer(const void *data, size_t length, MD5Value_t &result);
// Lower-case hexadecimal, 32 characters and a terminator.
void MD5_ToString(const MD5Value_t &value, char out[33]);

// MurmurHash2, 32-bit, with any seed.
uint32 MurmurHash2(const void *data, size_t length, uint32 seed);
// The same over the text with ASCII letters folded to lower case, without a copy.
uint32 MurmurHash2LowerCase(const char *text, size_t length, uint32 seed);

// FNV-1a, 32-bit.
enum : uint32 { FNV1A32_OFFSET_BASIS = 0x811C9DC5u, FNV1A32_PRIME = 0x01000193u };
uint32 FNV1A32(const void *data, size_t length, uint32 basis = FNV1A32_OFFSET_BASIS);
