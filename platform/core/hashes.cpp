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


// One step of a round: a = b + ((a + f(b, c, d) + word + constant) <<< shift).
#define MD5_STEP(f, a, b, c, d, word, constant, shift) \
	a += f(b, c, d) + (word) + (constant); \
	a = RotateLeft(a, shift) + b

inline uint32 MD5_F(uint32 x, uint32 y, uint32 z) { return z ^ (x & (y ^ z)); }
inline uint32 MD5_G(uint32 x, uint32 y, uint32 z) { return y ^ (z & (x ^ y)); }
inline uint32 MD5_H(uint32 x, uint32 y, uint32 z) { return x ^ y ^ z; }
inline uint32 MD5_I(uint32 x, uint32 y, uint32 z) { return y ^ (x | ~z); }

// The 64 steps written out: the compiler keeps everything in registers, which the table-driven
// loop could not.
void MD5Transform(uint32 state[4], const uint8 block[64])
{
	uint32 m[16];
	for (int i = 0; i < 16; ++i)
		m[i] = (uint32)block[i * 4] | ((uint32)block[i * 4 + 1] << 8) | ((uint32)block[i * 4 + 2] << 16) | ((uint32)block[i * 4 + 3] << 24);
	uint32 a = state[0], b = state[1], c = state[2], d = state[3];
	const uint32 *k = s_md5Sine;

	MD5_STEP(MD5_F, a, b, c, d, m[0], k[0], 7);
	MD5_STEP(MD5_F, d, a, b, c, m[1], k[1], 12);
	MD5_STEP(MD5_F, c, d, a, b, m[2], k[2], 17);
	MD5_STEP(MD5_F, b, c, d, a, m[3], k[3], 22);
	MD5_STEP(MD5_F, a, b, c, d, m[4], k[4], 7);
	MD5_STEP(MD5_F, d, a, b, c, m[5], k[5], 12);
	MD5_STEP(MD5_F, c, d, a, b, m[6], k[6], 17);
	MD5_STEP(MD5_F, b, c, d, a, m[7], k[7], 22);
	MD5_STEP(MD5_F, a, b, c, d, m[8], k[8], 7);
	MD5_STEP(MD5_F, d, a, b, c, m[9], k[9], 12);
	MD5_STEP(MD5_F, c, d, a, b, m[10], k[10], 17);
	MD5_STEP(MD5_F, b, c, d, a, m[11], k[11], 22);
	MD5_STEP(MD5_F, a, b, c, d, m[12], k[12], 7);
	MD5_STEP(MD5_F, d, a, b, c, m[13], k[13], 12);
	MD5_STEP(MD5_F, c, d, a, b, m[14], k[14], 17);
	MD5_STEP(MD5_F, b, c, d, a, m[15], k[15], 22);

	MD5_STEP(MD5_G, a, b, c, d, m[1], k[16], 5);
	MD5_STEP(MD5_G, d, a, b, c, m[6], k[17], 9);
	MD5_STEP(MD5_G, c, d, a, b, m[11], k[18], 14);
	MD5_STEP(MD5_G, b, c, d, a, m[0], k[19], 20);
	MD5_STEP(MD5_G, a, b, c, d, m[5], k[20], 5);
	MD5_STEP(MD5_G, d, a, b, c, m[10], k[21], 9);
	MD5_STEP(MD5_G, c, d, a, b, m[15], k[22], 14);
	MD5_STEP(MD5_G, b, c, d, a, m[4], k[23], 20);
	MD5_STEP(MD5_G, a, b, c, d, m[9], k[24], 5);
	MD5_STEP(MD5_G, d, a, b, c, m[14], k[25], 9);
	MD5_STEP(MD5_G, c, d, a, b, m[3], k[26], 14);
	MD5_STEP(MD5_G, b, c, d, a, m[8], k[27], 20);
	MD5_STEP(MD5_G, a, b, c, d, m[13], k[28], 5);
	MD5_STEP(MD5_G, d, a, b, c, m[2], k[29], 9);
	MD5_STEP(MD5_G, c, d, a, b, m[7], k[30], 14);
	MD5_STEP(MD5_G, b, c, d, a, m[12], k[31], 20);

	MD5_STEP(MD5_H, a, b, c, d, m[5], k[32], 4);
	MD5_STEP(MD5_H, d, a, b, c, m[8], k[33], 11);
	MD5_STEP(MD5_H, c, d, a, b, m[11], k[34], 16);
	MD5_STEP(MD5_H, b, c, d, a, m[14], k[35], 23);
	MD5_STEP(MD5_H, a, b, c, d, m[1], k[36], 4);
	MD5_STEP(MD5_H, d, a, b, c, m[4], k[37], 11);
	MD5_STEP(MD5_H, c, d, a, b, m[7], k[38], 16);
	MD5_STEP(MD5_H, b, c, d, a, m[10], k[39], 23);
	MD5_STEP(MD5_H, a, b, c, d, m[13], k[40], 4);
	MD5_STEP(MD5_H, d, a, b, c, m[0], k[41], 11);
	MD5_STEP(MD5_H, c, d, a, b, m[3], k[42], 16);
	MD5_STEP(MD5_H, b, c, d, a, m[6], k[43], 23);
	MD5_STEP(MD5_H, a, b, c, d, m[9], k[44], 4);
	MD5_STEP(MD5_H, d, a, b, c, m[12], k[45], 11);
	MD5_STEP(MD5_H, c, d, a, b, m[15], k[46], 16);
	MD5_STEP(MD5_H, b, c, d, a, m[2], k[47], 23);

	MD5_STEP(MD5_I, a, b, c, d, m[0], k[48], 6);
	MD5_STEP(MD5_I, d, a, b, c, m[7], k[49], 10);
	MD5_STEP(MD5_I, c, d, a, b, m[14], k[50], 15);
	MD5_STEP(MD5_I, b, c, d, a, m[5], k[51], 21);
	MD5_STEP(MD5_I, a, b, c, d, m[12], k[52], 6);
	MD5_STEP(MD5_I, d, a, b, c, m[3], k[53], 10);
	MD5_STEP(MD5_I, c, d, a, b, m[10], k[54], 15);
	MD5_STEP(MD5_I, b, c, d, a, m[1], k[55], 21);
	MD5_STEP(MD5_I, a, b, c, d, m[8], k[56], 6);
	MD5_STEP(MD5_I, d, a, b, c, m[15], k[57], 10);
	MD5_STEP(MD5_I, c, d, a, b, m[6], k[58], 15);
	MD5_STEP(MD5_I, b, c, d, a, m[13], k[59], 21);
	MD5_STEP(MD5_I, a, b, c, d, m[4], k[60], 6);
	MD5_STEP(MD5_I, d, a, b, c, m[11], k[61], 10);
	MD5_STEP(MD5_I, c, d, a, b, m[2], k[62], 15);
	MD5_STEP(MD5_I, b, c, d, a, m[9], k[63], 21);

	state[0] += a;
	state[1] += b;
	state[2] += c;
	state[3] += d;
}
#undef MD5_STEP
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
