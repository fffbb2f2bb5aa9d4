// Small real image files for tests, written byte by byte: an RGB PNG and a 24-bit BMP of one
// colour.
#pragma once

#include <cstdint>
#include <string>

#include <zlib.h>

#include "core/fileio.h"

namespace testimages
{
inline void PutBE32(std::string &out, uint32_t v)
{
	out += char(v >> 24);
	out += char(v >> 16);
	out += char(v >> 8);
	out += char(v);
}

inline void PutChunk(std::string &out, const char *type, const std::string &data)
{
	PutBE32(out, (uint32_t)data.size());
	std::string body = std::string(type, 4) + data;
	out += body;
	PutBE32(out, (uint32_t)crc32(0, (const Bytef *)body.data(), (uInt)body.size()));
}

// A real RGB PNG of one colour.
inline std::string MakePng(int width, int height, uint8_t r = 40, uint8_t g = 160, uint8_t b = 120)
{
	std::string raw;
	raw.reserve((size_t)height * (1 + (size_t)width * 3));
	for (int y = 0; y < height; ++y)
	{
		raw += char(0);
		for (int x = 0; x < width; ++x)
		{
			raw += char(r);
			raw += char(g);
			raw += char(b);
		}
	}
	uLongf packedSize = compressBound((uLong)raw.size());
	std::string packed(packedSize, '\0');
	compress2((Bytef *)packed.data(), &packedSize, (const Bytef *)raw.data(), (uLong)raw.size(), 1);
	packed.resize(packedSize);
	std::string out("\x89PNG\r\n\x1a\n", 8);
	std::string ihdr;
	PutBE32(ihdr, (uint32_t)width);
	PutBE32(ihdr, (uint32_t)height);
	ihdr += char(8); // bit depth
	ihdr += char(2); // RGB
	ihdr += std::string(3, '\0');
	PutChunk(out, "IHDR", ihdr);
	PutChunk(out, "IDAT", packed);
	PutChunk(out, "IEND", "");
	return out;
}

// A real 24-bit BMP of one colour.
inline std::string MakeBmp(int width, int height)
{
	const int rowBytes = (width * 3 + 3) & ~3;
	const uint32_t dataSize = (uint32_t)(rowBytes * height);
	std::string out;
	auto le32 = [&](uint32_t v) {
		for (int i = 0; i < 4; ++i)
			out += char(v >> (8 * i));
	};
	auto le16 = [&](uint16_t v) {
		out += char(v);
		out += char(v >> 8);
	};
	out += "BM";
	le32(54 + dataSize);
	le32(0);
	le32(54);
	le32(40);
	le32((uint32_t)width);
	le32((uint32_t)height);
	le16(1);
	le16(24);
	le32(0);
	le32(dataSize);
	le32(2835);
	le32(2835);
	le32(0);
	le32(0);
	out += std::string(dataSize, '\x7f');
	return out;
}

inline bool WriteFile(const std::string &path, const std::string &bytes)
{
	return Plat_WriteFileAtomic(path.c_str(), bytes.data(), bytes.size());
}
} // namespace testimages
