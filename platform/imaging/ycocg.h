// The "ConvertToYCoCg" image processor of texture recipes, for BC3 (DXT5) YCoCg textures: the
// chroma Co and Cg, offset by 128 and scaled per 4x4 block by 1, 2 or 4 so that a block of
// weak colour uses more of the range, go to red and green; blue holds the block's scale as
// (scale - 1) * 8; luma goes to alpha, the channel that BC3 keeps best. The block grid starts
// at the image's origin, as the block compressor's does. The image's own alpha is not kept.
#pragma once

#include "imaging/image.h"

void Image_ConvertToYCoCg(CImageRGBA8 &image);
// The inverse, from a decoded texture back to RGB (alpha becomes 255).
void Image_ConvertFromYCoCg(CImageRGBA8 &image);
