#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "core/hashes.h"
#include "core/keyvalues3.h"

namespace
{
std::string MD5Hex(const void *data, size_t length)
{
	MD5Value_t value;
	MD5_ProcessSingleBuffer(data, length, value);
	char text[33];
	MD5_ToString(value, text);
	return text;
}

std::string MD5Hex(const char *text)
{
	return MD5Hex(text, strlen(text));
}
} // namespace

TEST(Hashes, CRC32MatchesTheZipCheckValueAndIsIncremental)
{
	EXPECT_EQ(0xCBF43926u, CRC32_ProcessSingleBuffer("123456789", 9));
	EXPECT_EQ(0u, CRC32_ProcessSingleBuffer("", 0));

	CRC32_t crc;
	CRC32_Init(&crc);
	CRC32_ProcessBuffer(&crc, "1234", 4);
	CRC32_ProcessBuffer(&crc, "56789", 5);
	CRC32_Final(&crc);
	EXPECT_EQ(0xCBF43926u, crc);
}

TEST(Hashes, MD5MatchesTheReferenceSuite)
{
	EXPECT_EQ("d41d8cd98f00b204e9800998ecf8427e", MD5Hex(""));
	EXPECT_EQ("0cc175b9c0f1b6a831c399e269772661", MD5Hex("a"));
	EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", MD5Hex("abc"));
	EXPECT_EQ("f96b697d7cb7938d525a2f31aaf161d0", MD5Hex("message digest"));
	EXPECT_EQ("c3fcd3d76192e4007dfb496cca67e13b", MD5Hex("abcdefghijklmnopqrstuvwxyz"));
	EXPECT_EQ("d174ab98d277d9f5a5611c2c9f419d9f", MD5Hex("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"));
	EXPECT_EQ("57edf4a22be3c955ac49da2e2107b67a",
		MD5Hex("12345678901234567890123456789012345678901234567890123456789012345678901234567890"));
}

TEST(Hashes, MD5GivesTheSameDigestWhateverTheSplitOfTheInput)
{
	std::string data;
	for (int i = 0; i < 1000; ++i)
		data += char(i * 7 + 3);
	const std::string whole = MD5Hex(data.data(), data.size());
	// Splits around the 64-byte block and the 56-byte padding boundary.
	for (size_t step : { 1u, 3u, 55u, 56u, 63u, 64u, 65u, 127u })
	{
		MD5Context_t context;
		MD5Init(&context);
		for (size_t offset = 0; offset < data.size(); offset += step)
			MD5Update(&context, data.data() + offset, std::min(step, data.size() - offset));
		MD5Value_t value;
		MD5Final(&value, &context);
		char text[33];
		MD5_ToString(value, text);
		EXPECT_EQ(whole, text) << "step " << step;
	}
}

TEST(Hashes, MurmurHash2MatchesAnIndependentReference)
{
	// Values from a separate reference implementation of the algorithm.
	EXPECT_EQ(0x0u, MurmurHash2("", 0, 0));
	EXPECT_EQ(0x1ecf71e1u, MurmurHash2("a", 1, 0x31415926));
	EXPECT_EQ(0xe7ff0c8au, MurmurHash2("ab", 2, 0x31415926));
	EXPECT_EQ(0xd6cf0d16u, MurmurHash2("abc", 3, 0x31415926));
	EXPECT_EQ(0xb42825ecu, MurmurHash2("abcd", 4, 0x31415926));
	EXPECT_EQ(0x58bd5c0eu, MurmurHash2("import_name", 11, 0x31415926));
	const char *fox = "The quick brown fox jumps over the lazy dog";
	EXPECT_EQ(0x1d84d036u, MurmurHash2(fox, strlen(fox), 0x9747b28c));
	const char *path = "models/heroes/zarn.zmdl";
	EXPECT_EQ(0x12c3937du, MurmurHash2(path, strlen(path), 0x3501A674u ^ (uint32)strlen(path)));
}

TEST(Hashes, MurmurHash2LowerCaseFoldsOnlyAsciiLetters)
{
	const char *mixed = "Import_Name\xC3\x89";
	const char *lower = "import_name\xC3\x89";
	for (size_t length = 0; length <= strlen(mixed); ++length)
		EXPECT_EQ(MurmurHash2(lower, length, 7), MurmurHash2LowerCase(mixed, length, 7)) << length;
}

TEST(Hashes, MemberNameHashIsComputedAtCompileTimeAndMatchesTheRuntimeHash)
{
	static_assert(KV3HashMemberName("") == 0, "the empty key hashes to 0");
	constexpr uint32 compiled = KV3HashMemberName("Import_Name");
	EXPECT_EQ(0x58bd5c0eu, compiled);
	EXPECT_EQ(MurmurHash2LowerCase("IMPORT_NAME", 11, KV3_MEMBER_NAME_SEED), compiled);
}

TEST(Hashes, FNV1A32MatchesPublishedValues)
{
	EXPECT_EQ(0x811c9dc5u, FNV1A32("", 0));
	EXPECT_EQ(0xe40c292cu, FNV1A32("a", 1));
	EXPECT_EQ(0xbf9cf968u, FNV1A32("foobar", 6));
}
