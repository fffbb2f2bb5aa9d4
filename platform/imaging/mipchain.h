// Mip chains: every level half the size of the one above (rounded down, at least 1), down to
// 1x1. Each level is a box filter of the level above: 2x2 pixels for even sizes, and for an
// odd size three pixels a side with the weights that cover the larger level exactly, so that
// no row or column is dropped or counted twice. A colour texture is filtered in linear light
// (sRGB decoded, averaged, encoded again); a data texture (normals, masks) as its values
// stand. Alpha is always filtered as it stands.
#pragma once

#include <vector>

#include "core/platform.h"
#include "core/utlstring.h"
#include "imaging/image.h"

enum MipFilterSpace_t
{
	MIP_FILTER_DATA = 0, // values filtered as they stand
	MIP_FILTER_SRGB,	 // colour in sRGB, filtered in linear light
};

// Number of levels of a full chain: 1 + floor(log2(max(w, h))).
int Texture_MipLevelCount(int nWidth, int nHeight);
// The size of level n of a w x h texture.
void Texture_MipLevelSize(int nWidth, int nHeight, int nLevel, int &nLevelWidth, int &nLevelHeight);

// Makes levels 1 .. nLevels-1 of `base` into `levels` (levels[0] is level 1; the base itself is
// not copied). nLevels 0 makes the full chain. `nThreads` 0 uses every core.
bool Texture_BuildMipLevels(const CImageRGBA8 &base, MipFilterSpace_t space, std::vector<CImageRGBA8> &levels,
	CUtlString *pError = nullptr, int nLevels = 0, int nThreads = 0);

// sRGB and linear light, one value in [0, 1].
float Texture_SRGBToLinear(float flValue);
float Texture_LinearToSRGB(float flValue);
