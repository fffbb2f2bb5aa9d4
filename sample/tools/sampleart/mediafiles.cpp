#include "mediafiles.h"

namespace sampleart
{
namespace
{
void PutU16(std::string &out, uint32_t value)
{
	out.push_back(char(value & 0xff));
	out.push_back(char((value >> 8) & 0xff));
}
void PutU32(std::string &out, uint32_t value)
{
	PutU16(out, value & 0xffff);
	PutU16(out, value >> 16);
}
} // namespace

std::string EncodeBmp32(const QImage &source)
{
	const QImage image = source.convertToFormat(QImage::Format_ARGB32);
	const uint32_t width = (uint32_t)image.width(), height = (uint32_t)image.height();
	constexpr uint32_t kFileHeader = 14, kInfoHeader = 108; // BITMAPFILEHEADER, BITMAPV4HEADER
	const uint32_t pixels = width * height * 4;
	std::string out;
	out.reserve(kFileHeader + kInfoHeader + pixels);
	out += "BM";
	PutU32(out, kFileHeader + kInfoHeader + pixels);
	PutU32(out, 0);
	PutU32(out, kFileHeader + kInfoHeader);
	PutU32(out, kInfoHeader);
	PutU32(out, width);
	PutU32(out, height); // positive: bottom-up rows
	PutU16(out, 1);		 // planes
	PutU16(out, 32);	 // bits per pixel
	PutU32(out, 3);		 // BI_BITFIELDS
	PutU32(out, pixels);
	PutU32(out, 2835); // 72 dots an inch, in dots a metre
	PutU32(out, 2835);
	PutU32(out, 0); // colours used
	PutU32(out, 0); // colours important
	PutU32(out, 0x00ff0000);
	PutU32(out, 0x0000ff00);
	PutU32(out, 0x000000ff);
	PutU32(out, 0xff000000);
	PutU32(out, 0x73524742); // LCS_sRGB
	for (int i = 0; i < 9 + 3; ++i)
		PutU32(out, 0); // endpoints and gamma, unused with sRGB
	for (uint32_t y = height; y-- > 0;)
	{
		const QRgb *row = reinterpret_cast<const QRgb *>(image.constScanLine((int)y));
		for (uint32_t x = 0; x < width; ++x)
			PutU32(out, row[x]); // 0xAARRGGBB, stored little-endian as B, G, R, A
	}
	return out;
}

std::string EncodeWav16(const std::vector<int16_t> &samples, int sampleRate)
{
	const uint32_t data = (uint32_t)samples.size() * 2;
	std::string out;
	out.reserve(44 + data);
	out += "RIFF";
	PutU32(out, 36 + data);
	out += "WAVEfmt ";
	PutU32(out, 16);
	PutU16(out, 1); // PCM
	PutU16(out, 1); // one channel
	PutU32(out, (uint32_t)sampleRate);
	PutU32(out, (uint32_t)sampleRate * 2); // bytes a second
	PutU16(out, 2);						   // bytes a frame
	PutU16(out, 16);
	out += "data";
	PutU32(out, data);
	for (int16_t s : samples)
		PutU16(out, (uint16_t)s);
	return out;
}
} // namespace sampleart
