#include "core/hashes.h"

#include <cstring>

#include <zlib.h>

void CRC32_Init(CRC32_t *pCRC)
{
	*pCRC = (CRC32_t)crc32(0L, Z_NULL, 0);
}

void CRC32_ProcessBuffer(CRC32_t *pCRC, const void *data, size_t length)
{
	// zlib takes 32-bit lengths; feed large buffers in slices.
	const Bytef *p = (const Bytef *)data;
	uLong crc = *pCRC;
	while (length > 0)
	{
		const uInt slice = length > 0x40000000u ? 0x40000000u : (uInt)length;
		crc = crc32(crc, p, slice);
		p += slice;
		length -= slice;
	}
	*pCRC = (CRC32_t)crc;
}

void CRC32_Final(CRC32_t *)
{
	// zlib applies the final inversion on every call; nothing is left to do.
}

CRC32_t CRC32_ProcessSingleBuffer(const void *data, size_t length)
{
	CRC32_t crc;
	CRC32_Init(&crc);
	CRC32_ProcessBuffer(&crc, data, length);
	CRC32_Final(&crc);
	return crc;
}

// ---------------------------------------------------------------------------------------------
// MD5

bool MD5Value_t::operator==(const MD5Value_t &other) const
{
	return memcmp(bits, other.bits, sizeof(bits)) == 0;
}

namespace
{
inline uint32 RotateLeft(uint32 x, int n)
{
	return (x << n) | (x >> (32 - n));
}

const uint32 s_md5Sine[64] = {
	0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
	0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
	0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
	0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
	0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
	0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
	0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
	0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391,
};

const int s_md5Shift[64] = {
	7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22,
	5, 9, 14, 20, 5, 9, 14, 20, 5, 9, 14, 20, 5, 9, 14, 20,
	4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23,
	6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21,
};

void MD5Transform(uint32 state[4], const uint8 block[64])
{
	uint32 m[16];
	for (int i = 0; i < 16; ++i)
		m[i] = (uint32)block[i * 4] | ((uint32)block[i * 4 + 1] << 8) | ((uint32)block[i * 4 + 2] << 16) | ((uint32)block[i * 4 + 3] << 24);

	uint32 a = state[0], b = state[1], c = state[2], d = state[3];
	for (int i = 0; i < 64; ++i)
	{
		uint32 f;
		int g;
		if (i < 16)
		{
			f = (b & c) | (~b & d);
			g = i;
		}
		else if (i < 32)
		{
			f = (d & b) | (~d & c);
			g = (5 * i + 1) & 15;
		}
		else if (i < 48)
		{
			f = b ^ c ^ d;
			g = (3 * i + 5) & 15;
		}
		else
		{
			f = c ^ (b | ~d);
			g = (7 * i) & 15;
		}
		const uint32 next = d;
		d = c;
		c = b;
		b = b + RotateLeft(a + f + s_md5Sine[i] + m[g], s_md5Shift[i]);
		a = next;
	}
	state[0] += a;
	state[1] += b;
	state[2] += c;
	state[3] += d;
}
} // namespace

void MD5Init(MD5Context_t *pContext)
{
	pContext->state[0] = 0x67452301;
	pContext->state[1] = 0xefcdab89;
	pContext->state[2] = 0x98badcfe;
	pContext->state[3] = 0x10325476;
	pContext->bitCount = 0;
	pContext->blockUsed = 0;
}

void MD5Update(MD5Context_t *pContext, const void *data, size_t length)
{
	const uint8 *p = (const uint8 *)data;
	pContext->bitCount += (uint64)length * 8;
	if (pContext->blockUsed > 0)
	{
		const size_t take = length < 64 - pContext->blockUsed ? length : 64 - pContext->blockUsed;
		memcpy(pContext->block + pContext->blockUsed, p, take);
		pContext->blockUsed += (uint32)take;
		p += take;
		length -= take;
		if (pContext->blockUsed < 64)
			return;
		MD5Transform(pContext->state, pContext->block);
		pContext->blockUsed = 0;
	}
	while (length >= 64)
	{
		MD5Transform(pContext->state, p);
		p += 64;
		length -= 64;
	}
	memcpy(pContext->block, p, length);
	pContext->blockUsed = (uint32)length;
}

void MD5Final(MD5Value_t *pResult, MD5Context_t *pContext)
{
	const uint64 bitCount = pContext->bitCount;
	static const uint8 s_padding[64] = { 0x80 };
	const size_t padLength = pContext->blockUsed < 56 ? 56 - pContext->blockUsed : 120 - pContext->blockUsed;
	MD5Update(pContext, s_padding, padLength);
	uint8 lengthBytes[8];
	for (int i = 0; i < 8; ++i)
		lengthBytes[i] = (uint8)(bitCount >> (8 * i));
	MD5Update(pContext, lengthBytes, 8);
	for (int i = 0; i < 4; ++i)
	{
		for (int k = 0; k < 4; ++k)
			pResult->bits[i * 4 + k] = (uint8)(pContext->state[i] >> (8 * k));
	}
}

void MD5_ProcessSingleBuffer(const void *data, size_t length, MD5Value_t &result)
{
	MD5Context_t context;
	MD5Init(&context);
	MD5Update(&context, data, length);
	MD5Final(&result, &context);
}

void MD5_ToString(const MD5Value_t &value, char out[33])
{
	static const char s_hex[] = "0123456789abcdef";
	for (int i = 0; i < 16; ++i)
	{
		out[i * 2] = s_hex[value.bits[i] >> 4];
		out[i * 2 + 1] = s_hex[value.bits[i] & 15];
	}
	out[32] = 0;
}

// ---------------------------------------------------------------------------------------------
// MurmurHash2

namespace
{
const uint32 kMurmurMultiplier = 0x5bd1e995;
const int kMurmurShift = 24;

inline uint32 MurmurMixBlock(uint32 h, uint32 k)
{
	k *= kMurmurMultiplier;
	k ^= k >> kMurmurShift;
	k *= kMurmurMultiplier;
	h *= kMurmurMultiplier;
	return h ^ k;
}

inline uint32 MurmurFinish(uint32 h, const uint8 *tail, size_t tailLength)
{
	switch (tailLength)
	{
	case 3:
		h ^= (uint32)tail[2] << 16;
		[[fallthrough]];
	case 2:
		h ^= (uint32)tail[1] << 8;
		[[fallthrough]];
	case 1:
		h ^= tail[0];
		h *= kMurmurMultiplier;
	}
	h ^= h >> 13;
	h *= kMurmurMultiplier;
	h ^= h >> 15;
	return h;
}

inline uint8 FoldAscii(uint8 c)
{
	return (c >= 'A' && c <= 'Z') ? uint8(c + 32) : c;
}
} // namespace

uint32 MurmurHash2(const void *data, size_t length, uint32 seed)
{
	const uint8 *p = (const uint8 *)data;
	uint32 h = seed ^ (uint32)length;
	while (length >= 4)
	{
		const uint32 k = (uint32)p[0] | ((uint32)p[1] << 8) | ((uint32)p[2] << 16) | ((uint32)p[3] << 24);
		h = MurmurMixBlock(h, k);
		p += 4;
		length -= 4;
	}
	return MurmurFinish(h, p, length);
}

uint32 MurmurHash2LowerCase(const char *text, size_t length, uint32 seed)
{
	const uint8 *p = (const uint8 *)text;
	uint32 h = seed ^ (uint32)length;
	while (length >= 4)
	{
		const uint32 k = (uint32)FoldAscii(p[0]) | ((uint32)FoldAscii(p[1]) << 8) | ((uint32)FoldAscii(p[2]) << 16) |
			((uint32)FoldAscii(p[3]) << 24);
		h = MurmurMixBlock(h, k);
		p += 4;
		length -= 4;
	}
	uint8 tail[3] = { 0, 0, 0 };
	for (size_t i = 0; i < length; ++i)
		tail[i] = FoldAscii(p[i]);
	return MurmurFinish(h, tail, length);
}

uint32 FNV1A32(const void *data, size_t length, uint32 basis)
{
	const uint8 *p = (const uint8 *)data;
	uint32 h = basis;
	for (size_t i = 0; i < length; ++i)
	{
		h ^= p[i];
		h *= FNV1A32_PRIME;
	}
	return h;
}
