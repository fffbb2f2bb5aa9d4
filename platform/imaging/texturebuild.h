// A whole texture from one image: the mip chain, the image processors, and every level
// compressed, with the work split between threads. This is the pixel work of compiling an
// image source or a texture recipe; the compiled file's layout belongs to its writer.
#pragma once

#include <vector>

#include "core/platform.h"
#include "core/utlstring.h"
#include "imaging/blockcompress.h"
#include "imaging/image.h"
#include "imaging/mipchain.h"

struct TextureBuildOptions_t
{
	TextureFormat_t format = TEXTURE_FORMAT_BC1;
	MipFilterSpace_t mipSpace = MIP_FILTER_SRGB; // colour texture; MIP_FILTER_DATA for normals and masks
	bool bMipmaps = true;						 // false: the top level only
	bool bYCoCg = false;						 // the "ConvertToYCoCg" processor, applied to each level after filtering
	BlockEncoder_t encoder = BLOCK_ENCODER_DEFAULT;
	int nThreads = 0; // 0: every core
};

struct TextureLevel_t
{
	int nWidth = 0;
	int nHeight = 0;
	size_t nOffset = 0; // into BuiltTexture_t::data
	size_t nSize = 0;
};

struct BuiltTexture_t
{
	TextureFormat_t format = TEXTURE_FORMAT_RGBA8888;
	bool bYCoCg = false;
	std::vector<TextureLevel_t> levels; // largest first
	std::vector<uint8> data;
};

// BC1 for an opaque image, BC3 when any pixel has alpha below 255.
TextureFormat_t Texture_ChooseFormat(const CImageRGBA8 &image);

bool Texture_Build(const CImageRGBA8 &image, const TextureBuildOptions_t &options, BuiltTexture_t &out,
	CUtlString *pError = nullptr);
// Decodes one level back to RGBA8 (YCoCg converted back to RGB when the texture holds it).
bool Texture_DecodeLevel(const BuiltTexture_t &texture, int nLevel, CImageRGBA8 &out, CUtlString *pError = nullptr);
