// Block compression of RGBA8 images: BC1 (colour, no alpha) and BC3 (colour with interpolated
// alpha), both in 4x4 blocks, and the decoders of both. Images of any size are compressed:
// the blocks at the right and bottom edges are padded by repeating the last column and row.
#pragma once

#include <vector>

#include "core/platform.h"
#include "core/utlstring.h"
#include "imaging/image.h"

enum TextureFormat_t
{
	TEXTURE_FORMAT_RGBA8888 = 0, // no compression: the pixels as they are
	TEXTURE_FORMAT_BC1,			 // 8 bytes a block: two 5:6:5 colours and 2-bit indices
	TEXTURE_FORMAT_BC3,			 // 16 bytes a block: an alpha block (two 8-bit alphas, 3-bit indices) and a BC1 colour block
};

// "RGBA8888", "BC1", "BC3".
const char *TextureFormatName(TextureFormat_t format);
// Bytes of one image of that size in the format (whole blocks for the compressed ones).
size_t Texture_ImageBytes(TextureFormat_t format, int nWidth, int nHeight);

// Which encoder makes the blocks.
enum BlockEncoder_t
{
	BLOCK_ENCODER_STB = 0,		   // stb_dxt, one refinement step
	BLOCK_ENCODER_STB_HIGHQUAL,	   // stb_dxt, two refinement steps
	BLOCK_ENCODER_MINTYARD,		   // ours: see blockencoder.cpp
	BLOCK_ENCODER_DEFAULT = BLOCK_ENCODER_MINTYARD,
};
const char *BlockEncoderName(BlockEncoder_t encoder);

// The 16 pixels of the block at block column bx and row by, row by row, repeating the last
// column and row of the image past its edges.
void Texture_GatherBlock(const CImageRGBA8 &image, int bx, int by, uint8 *pPixels);

// One 4x4 block: 16 pixels of RGBA, row by row.
void BC1_EncodeBlock(const uint8 *pPixels, uint8 *pBlock, BlockEncoder_t encoder = BLOCK_ENCODER_DEFAULT);
void BC3_EncodeBlock(const uint8 *pPixels, uint8 *pBlock, BlockEncoder_t encoder = BLOCK_ENCODER_DEFAULT);
// BC1 decodes the three-colour mode (first colour not above the second) with its transparent
// black; in BC3 the colour block is always four colours.
void BC1_DecodeBlock(const uint8 *pBlock, uint8 *pPixels);
void BC3_DecodeBlock(const uint8 *pBlock, uint8 *pPixels);

// Whole images. `nThreads` 0 uses every core; the blocks are split between the threads.
bool Texture_EncodeImage(const CImageRGBA8 &image, TextureFormat_t format, std::vector<uint8> &out,
	CUtlString *pError = nullptr, BlockEncoder_t encoder = BLOCK_ENCODER_DEFAULT, int nThreads = 0);
bool Texture_DecodeImage(TextureFormat_t format, const void *pData, size_t nSize, int nWidth, int nHeight,
	CImageRGBA8 &out, CUtlString *pError = nullptr);
