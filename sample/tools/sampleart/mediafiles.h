// The two other file kinds that sessions bring: BMP images (cursors) and WAV sounds (music). Both
// are written byte by byte here, so that the files depend only on the pixels and samples.
#pragma once

#include <QImage>

#include <cstdint>
#include <string>
#include <vector>

namespace sampleart
{
// A 32-bit BMP with an alpha channel: a BITMAPV4HEADER with BI_BITFIELDS and the masks
// A 0xff000000, R 0x00ff0000, G 0x0000ff00, B 0x000000ff, rows bottom up. The image is taken as
// ARGB32 (not premultiplied).
std::string EncodeBmp32(const QImage &image);

// A PCM WAV file of one channel, 16 bits a sample, at `sampleRate` samples a second.
std::string EncodeWav16(const std::vector<int16_t> &samples, int sampleRate);
} // namespace sampleart
