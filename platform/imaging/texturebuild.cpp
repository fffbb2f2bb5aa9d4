#include "imaging/texturebuild.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "core/strtools.h"
#include "imaging/parallel.h"
#include "imaging/ycocg.h"

namespace
{
// Block rows smaller than this are not worth a thread of their own.
enum { MIN_BLOCKS_PER_THREAD = 2048 };

} // namespace

TextureFormat_t Texture_ChooseFormat(const CImageRGBA8 &image)
{
	return image.IsOpaque() ? TEXTURE_FORMAT_BC1 : TEXTURE_FORMAT_BC3;
}

bool Texture_Build(const CImageRGBA8 &image, const TextureBuildOptions_t &options, BuiltTexture_t &out, CUtlString *pError)
{
	out = BuiltTexture_t();
	if (image.IsEmpty())
	{
		if (pError)
			*pError = "cannot build a texture from an empty image";
		return false;
	}
	if (options.bYCoCg && options.format == TEXTURE_FORMAT_BC1)
	{
		if (pError)
			*pError = "YCoCg keeps luma in alpha and needs BC3 or RGBA8888, not BC1";
		return false;
	}
	const int nThreads = Imaging_ThreadCount(options.nThreads);
	const int nLevels = options.bMipmaps ? Texture_MipLevelCount(image.Width(), image.Height()) : 1;

	// Level 0 is the image itself unless a processor changes it.
	std::vector<CImageRGBA8> lower;
	if (nLevels > 1 && !Texture_BuildMipLevels(image, options.mipSpace, lower, pError, nLevels, nThreads))
		return false;
	CImageRGBA8 processedTop;
	const CImageRGBA8 *pTop = &image;
	if (options.bYCoCg)
	{
		processedTop = image;
		Image_ConvertToYCoCg(processedTop);
		pTop = &processedTop;
		for (CImageRGBA8 &level : lower)
			Image_ConvertToYCoCg(level);
	}
	std::vector<const CImageRGBA8 *> levels;
	levels.push_back(pTop);
	for (const CImageRGBA8 &level : lower)
		levels.push_back(&level);

	out.format = options.format;
	out.bYCoCg = options.bYCoCg;
	size_t nTotal = 0;
	for (const CImageRGBA8 *pLevel : levels)
	{
		TextureLevel_t level;
		level.nWidth = pLevel->Width();
		level.nHeight = pLevel->Height();
		level.nOffset = nTotal;
		level.nSize = Texture_ImageBytes(options.format, level.nWidth, level.nHeight);
		nTotal += level.nSize;
		out.levels.push_back(level);
	}
	try
	{
		out.data.resize(nTotal);
	}
	catch (const std::bad_alloc &)
	{
		out = BuiltTexture_t();
		if (pError)
			*pError = V_Format("out of memory for %zu bytes of texture", nTotal);
		return false;
	}

	if (options.format == TEXTURE_FORMAT_RGBA8888)
	{
		for (size_t i = 0; i < levels.size(); ++i)
			memcpy(out.data.data() + out.levels[i].nOffset, levels[i]->Pixels(), out.levels[i].nSize);
		return true;
	}

	// Every block of every level, numbered level by level, split between the threads.
	const size_t nBlockBytes = options.format == TEXTURE_FORMAT_BC1 ? 8 : 16;
	std::vector<size_t> firstBlock;
	size_t nBlocks = 0;
	for (const TextureLevel_t &level : out.levels)
	{
		firstBlock.push_back(nBlocks);
		nBlocks += level.nSize / nBlockBytes;
	}
	firstBlock.push_back(nBlocks);
	uint8 *pData = out.data.data();
	Imaging_ParallelRanges(nBlocks, nThreads, MIN_BLOCKS_PER_THREAD, [&](size_t nBegin, size_t nEnd) {
		size_t nLevel = (size_t)(std::upper_bound(firstBlock.begin(), firstBlock.end(), nBegin) - firstBlock.begin()) - 1;
		uint8 pixels[64];
		for (size_t nBlock = nBegin; nBlock < nEnd; ++nBlock)
		{
			while (nBlock >= firstBlock[nLevel + 1])
				++nLevel;
			const CImageRGBA8 &level = *levels[nLevel];
			const int nBlocksWide = (level.Width() + 3) / 4;
			const size_t nIndex = nBlock - firstBlock[nLevel];
			Texture_GatherBlock(level, (int)(nIndex % (size_t)nBlocksWide), (int)(nIndex / (size_t)nBlocksWide), pixels);
			uint8 *pBlock = pData + out.levels[nLevel].nOffset + nIndex * nBlockBytes;
			if (options.format == TEXTURE_FORMAT_BC1)
				BC1_EncodeBlock(pixels, pBlock, options.encoder);
			else
				BC3_EncodeBlock(pixels, pBlock, options.encoder);
		}
	});
	return true;
}

bool Texture_DecodeLevel(const BuiltTexture_t &texture, int nLevel, CImageRGBA8 &out, CUtlString *pError)
{
	out.Clear();
	if (nLevel < 0 || (size_t)nLevel >= texture.levels.size())
	{
		if (pError)
			*pError = V_Format("the texture has %zu levels, not %d", texture.levels.size(), nLevel + 1);
		return false;
	}
	const TextureLevel_t &level = texture.levels[(size_t)nLevel];
	if (level.nOffset > texture.data.size() || texture.data.size() - level.nOffset < level.nSize)
	{
		if (pError)
			*pError = V_Format("level %d lies outside the texture's data", nLevel);
		return false;
	}
	if (!Texture_DecodeImage(texture.format, texture.data.data() + level.nOffset, level.nSize, level.nWidth, level.nHeight,
			out, pError))
		return false;
	if (texture.bYCoCg)
		Image_ConvertFromYCoCg(out);
	return true;
}
