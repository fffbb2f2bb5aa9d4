// The block encoder of this module for BC1 colour blocks and BC3 alpha blocks. Colour: the
// pixels at both ends of the principal axis of the block's colours give the first endpoints;
// then the endpoints are fitted to the chosen indices by least squares, channel by channel, with
// the 5:6:5 codes on either side of each fitted value tried against the decoder's own integer
// palette, and the indices chosen again. Alpha: both alpha modes (eight interpolated values, or
// six with explicit 0 and 255) are fitted by least squares and a search of one step around the
// endpoints, and the better mode is kept. Every choice is measured by the exact squared error
// of what the decoder will produce.
#pragma once

#include "core/platform.h"

class CBlockEncoder
{
public:
	// 16 RGBA pixels (alpha ignored) to an 8-byte colour block in four-colour mode.
	static void EncodeColorBlock(const uint8 *pPixels, uint8 *pBlock);
	// The alpha of 16 RGBA pixels to an 8-byte BC3 alpha block.
	static void EncodeAlphaBlock(const uint8 *pPixels, uint8 *pBlock);
};
