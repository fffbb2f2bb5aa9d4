#include "imaging/blockcompress.h"

#include <cstring>
#include <new>

#include <stb_dxt.h>

#include "core/strtools.h"
#include "imaging/blockencoder.h"
#include "imaging/parallel.h"

namespace
{
inline void Expand565(uint32 nColor, int *pRGB)
{
	const int r = (int)((nColor >> 11) & 31);
	const int g = (int)((nColor >> 5) & 63);
	const int b = (int)(nColor & 31);
	pRGB[0] = (r << 3) | (r >> 2);
	pRGB[1] = (g << 2) | (g >> 4);
	pRGB[2] = (b << 3) | (b >> 2);
}

void DecodeColorBlock(const uint8 *pBlock, uint8 *pPixels, bool bAlwaysFourColors)
{
	const uint32 c0 = (uint32)pBlock[0] | ((uint32)pBlock[1] << 8);
	const uint32 c1 = (uint32)pBlock[2] | ((uint32)pBlock[3] << 8);
	int palette[4][4];
	Expand565(c0, palette[0]);
	Expand565(c1, palette[1]);
	palette[0][3] = palette[1][3] = 255;
	if (c0 > c1 || bAlwaysFourColors)
	{
		for (int c = 0; c < 3; ++c)
		{
			palette[2][c] = (2 * palette[0][c] + palette[1][c]) / 3;
			palette[3][c] = (palette[0][c] + 2 * palette[1][c]) / 3;
		}
		palette[2][3] = palette[3][3] = 255;
	}
	else
	{
		for (int c = 0; c < 3; ++c)
		{
			palette[2][c] = (palette[0][c] + palette[1][c]) / 2;
			palette[3][c] = 0;
		}
		palette[2][3] = 255;
		palette[3][3] = 0;
	}
	const uint32 nIndices = (uint32)pBlock[4] | ((uint32)pBlock[5] << 8) | ((uint32)pBlock[6] << 16) | ((uint32)pBlock[7] << 24);
	for (int i = 0; i < 16; ++i)
	{
		const int *pColor = palette[(nIndices >> (2 * i)) & 3];
		pPixels[i * 4 + 0] = (uint8)pColor[0];
		pPixels[i * 4 + 1] = (uint8)pColor[1];
		pPixels[i * 4 + 2] = (uint8)pColor[2];
		pPixels[i * 4 + 3] = (uint8)pColor[3];
	}
}

void DecodeAlphaBlock(const uint8 *pBlock, uint8 *pPixels)
{
	int alphas[8];
	alphas[0] = pBlock[0];
	alphas[1] = pBlock[1];
	if (alphas[0] > alphas[1])
	{
		for (int k = 1; k <= 6; ++k)
			alphas[1 + k] = ((7 - k) * alphas[0] + k * alphas[1] + 3) / 7;
	}
	else
	{
		for (int k = 1; k <= 4; ++k)
			alphas[1 + k] = ((5 - k) * alphas[0] + k * alphas[1] + 2) / 5;
		alphas[6] = 0;
		alphas[7] = 255;
	}
	uint64 nIndices = 0;
	for (int i = 0; i < 6; ++i)
		nIndices |= (uint64)pBlock[2 + i] << (8 * i);
	for (int i = 0; i < 16; ++i)
		pPixels[i * 4 + 3] = (uint8)alphas[(nIndices >> (3 * i)) & 7];
}

} // namespace

const char *TextureFormatName(TextureFormat_t format)
{
	switch (format)
	{
	case TEXTURE_FORMAT_RGBA8888: return "RGBA8888";
	case TEXTURE_FORMAT_BC1: return "BC1";
	case TEXTURE_FORMAT_BC3: return "BC3";
	}
	return "unknown";
}

const char *BlockEncoderName(BlockEncoder_t encoder)
{
	switch (encoder)
	{
	case BLOCK_ENCODER_STB: return "stb_dxt";
	case BLOCK_ENCODER_STB_HIGHQUAL: return "stb_dxt high quality";
	case BLOCK_ENCODER_MINTYARD: return "mintyard";
	}
	return "unknown";
}

size_t Texture_ImageBytes(TextureFormat_t format, int nWidth, int nHeight)
{
	if (nWidth < 1 || nHeight < 1)
		return 0;
	const size_t nBlocks = (size_t)((nWidth + 3) / 4) * (size_t)((nHeight + 3) / 4);
	switch (format)
	{
	case TEXTURE_FORMAT_RGBA8888: return (size_t)nWidth * (size_t)nHeight * 4;
	case TEXTURE_FORMAT_BC1: return nBlocks * 8;
	case TEXTURE_FORMAT_BC3: return nBlocks * 16;
	}
	return 0;
}

void Texture_GatherBlock(const CImageRGBA8 &image, int bx, int by, uint8 *pPixels)
{
	const int nMaxX = image.Width() - 1, nMaxY = image.Height() - 1;
	for (int y = 0; y < 4; ++y)
	{
		const uint8 *pRow = image.Pixel(0, std::min(by * 4 + y, nMaxY));
		for (int x = 0; x < 4; ++x)
			memcpy(pPixels + (y * 4 + x) * 4, pRow + std::min(bx * 4 + x, nMaxX) * 4, 4);
	}
}

void BC1_EncodeBlock(const uint8 *pPixels, uint8 *pBlock, BlockEncoder_t encoder)
{
	// BC1 stores no alpha; the encoders see the colour only.
	uint8 opaque[64];
	for (int i = 0; i < 16; ++i)
	{
		memcpy(opaque + i * 4, pPixels + i * 4, 3);
		opaque[i * 4 + 3] = 255;
	}
	if (encoder == BLOCK_ENCODER_MINTYARD)
		CBlockEncoder::EncodeColorBlock(opaque, pBlock);
	else
		stb_compress_dxt_block(pBlock, opaque, 0, encoder == BLOCK_ENCODER_STB_HIGHQUAL ? STB_DXT_HIGHQUAL : STB_DXT_NORMAL);
}

void BC3_EncodeBlock(const uint8 *pPixels, uint8 *pBlock, BlockEncoder_t encoder)
{
	if (encoder == BLOCK_ENCODER_MINTYARD)
	{
		CBlockEncoder::EncodeAlphaBlock(pPixels, pBlock);
		uint8 opaque[64];
		for (int i = 0; i < 16; ++i)
		{
			memcpy(opaque + i * 4, pPixels + i * 4, 3);
			opaque[i * 4 + 3] = 255;
		}
		CBlockEncoder::EncodeColorBlock(opaque, pBlock + 8);
		return;
	}
	stb_compress_dxt_block(pBlock, pPixels, 1, encoder == BLOCK_ENCODER_STB_HIGHQUAL ? STB_DXT_HIGHQUAL : STB_DXT_NORMAL);
}

void BC1_DecodeBlock(const uint8 *pBlock, uint8 *pPixels)
{
	DecodeColorBlock(pBlock, pPixels, false);
}

void BC3_DecodeBlock(const uint8 *pBlock, uint8 *pPixels)
{
	DecodeColorBlock(pBlock + 8, pPixels, true);
	DecodeAlphaBlock(pBlock, pPixels);
}

bool Texture_EncodeImage(const CImageRGBA8 &image, TextureFormat_t format, std::vector<uint8> &out, CUtlString *pError,
	BlockEncoder_t encoder, int nThreads)
{
	out.clear();
	if (image.IsEmpty())
	{
		if (pError)
			*pError = V_Format("cannot compress an empty image as %s", TextureFormatName(format));
		return false;
	}
	const size_t nBytes = Texture_ImageBytes(format, image.Width(), image.Height());
	try
	{
		out.resize(nBytes);
	}
	catch (const std::bad_alloc &)
	{
		if (pError)
			*pError = V_Format("out of memory for %zu bytes of %s", nBytes, TextureFormatName(format));
		return false;
	}
	if (format == TEXTURE_FORMAT_RGBA8888)
	{
		memcpy(out.data(), image.Pixels(), nBytes);
		return true;
	}
	const int nBlocksWide = (image.Width() + 3) / 4;
	const int nBlocksHigh = (image.Height() + 3) / 4;
	const size_t nBlockBytes = format == TEXTURE_FORMAT_BC1 ? 8 : 16;
	uint8 *pOut = out.data();
	Imaging_ParallelRanges((size_t)nBlocksHigh, Imaging_ThreadCount(nThreads), 16, [&](size_t nBegin, size_t nEnd) {
		uint8 pixels[64];
		for (size_t by = nBegin; by < nEnd; ++by)
		{
			uint8 *pRow = pOut + by * (size_t)nBlocksWide * nBlockBytes;
			for (int bx = 0; bx < nBlocksWide; ++bx)
			{
				Texture_GatherBlock(image, bx, (int)by, pixels);
				if (format == TEXTURE_FORMAT_BC1)
					BC1_EncodeBlock(pixels, pRow + bx * nBlockBytes, encoder);
				else
					BC3_EncodeBlock(pixels, pRow + bx * nBlockBytes, encoder);
			}
		}
	});
	return true;
}

bool Texture_DecodeImage(TextureFormat_t format, const void *pData, size_t nSize, int nWidth, int nHeight,
	CImageRGBA8 &out, CUtlString *pError)
{
	out.Clear();
	const size_t nNeeded = Texture_ImageBytes(format, nWidth, nHeight);
	if (nNeeded == 0 || (uint64)nWidth * (uint64)nHeight * 4 > (256ull << 20))
	{
		if (pError)
			*pError = V_Format("cannot decode %s of %dx%d pixels", TextureFormatName(format), nWidth, nHeight);
		return false;
	}
	if (!pData || nSize < nNeeded)
	{
		if (pError)
			*pError = V_Format("%s of %dx%d pixels needs %zu bytes, %zu are given", TextureFormatName(format), nWidth, nHeight,
				nNeeded, pData ? nSize : 0);
		return false;
	}
	if (!out.Init(nWidth, nHeight))
	{
		if (pError)
			*pError = V_Format("out of memory for %dx%d pixels", nWidth, nHeight);
		return false;
	}
	if (format == TEXTURE_FORMAT_RGBA8888)
	{
		memcpy(out.Pixels(), pData, nNeeded);
		return true;
	}
	const uint8 *pBlocks = (const uint8 *)pData;
	const size_t nBlockBytes = format == TEXTURE_FORMAT_BC1 ? 8 : 16;
	const int nBlocksWide = (nWidth + 3) / 4;
	const int nBlocksHigh = (nHeight + 3) / 4;
	uint8 pixels[64];
	for (int by = 0; by < nBlocksHigh; ++by)
	{
		for (int bx = 0; bx < nBlocksWide; ++bx)
		{
			const uint8 *pBlock = pBlocks + ((size_t)by * nBlocksWide + bx) * nBlockBytes;
			if (format == TEXTURE_FORMAT_BC1)
				BC1_DecodeBlock(pBlock, pixels);
			else
				BC3_DecodeBlock(pBlock, pixels);
			for (int y = 0; y < 4 && by * 4 + y < nHeight; ++y)
			{
				const int nCount = std::min(4, nWidth - bx * 4);
				memcpy(out.Pixel(bx * 4, by * 4 + y), pixels + y * 16, (size_t)nCount * 4);
			}
		}
	}
	return true;
}
