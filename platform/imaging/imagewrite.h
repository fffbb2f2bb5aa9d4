// Image encoding: PNG through stb_image_write, uncompressed TGA of our own (24-bit, or 32-bit
// with alpha). Files are written whole or not at all (a temporary file renamed over the target).
#pragma once

#include "core/platform.h"
#include "core/utlbuffer.h"
#include "core/utlstring.h"
#include "imaging/image.h"

enum ImagePNGChannels_t
{
	IMAGE_PNG_RGBA = 4,
	IMAGE_PNG_RGB = 3, // alpha dropped
};

bool Image_EncodePNG(const CImageRGBA8 &image, CUtlBuffer &out, CUtlString *pError = nullptr,
	ImagePNGChannels_t channels = IMAGE_PNG_RGBA);
bool Image_WritePNGFile(const char *pPath, const CImageRGBA8 &image, CUtlString *pError = nullptr,
	ImagePNGChannels_t channels = IMAGE_PNG_RGBA);

enum ImageTGABits_t
{
	IMAGE_TGA_24 = 24, // RGB, alpha dropped
	IMAGE_TGA_32 = 32, // RGBA, 8 alpha bits
};

// Uncompressed true-colour TGA, rows stored from the bottom as the format's default origin.
bool Image_EncodeTGA(const CImageRGBA8 &image, CUtlBuffer &out, CUtlString *pError = nullptr, ImageTGABits_t bits = IMAGE_TGA_24);
bool Image_WriteTGAFile(const char *pPath, const CImageRGBA8 &image, CUtlString *pError = nullptr,
	ImageTGABits_t bits = IMAGE_TGA_24);
