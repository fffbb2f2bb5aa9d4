// Rescaling of RGBA8 images to any size, the aspect ratio ignored, with smooth filtering
// (a Mitchell filter when shrinking, Catmull-Rom when enlarging, colour weighted by alpha so
// that transparent pixels do not bleed their colour), and the SDL road for BMP files, which
// keeps a BMP's own pixel format (a cursor's palette included).
#pragma once

#include "core/platform.h"
#include "core/utlbuffer.h"
#include "core/utlstring.h"
#include "imaging/image.h"

enum ImageColorSpace_t
{
	IMAGE_COLORSPACE_LINEAR = 0, // the values are filtered as they stand (data, or colour taken as it is)
	IMAGE_COLORSPACE_SRGB,		 // colour is filtered in linear light; alpha stays linear
};

// Largest image that a rescale makes: both sides up to this, and no more than 256 MiB.
enum { IMAGE_RESIZE_MAX_SIDE = 16384 };

// Rescales `src` to w x h into `out` (which may not be `src`).
bool Image_Resize(const CImageRGBA8 &src, int nWidth, int nHeight, CImageRGBA8 &out, CUtlString *pError = nullptr,
	ImageColorSpace_t colorSpace = IMAGE_COLORSPACE_LINEAR);
// Rescales into a buffer that the caller owns, which must hold at least w * h * 4 bytes.
bool Image_ResizeInto(const CImageRGBA8 &src, int nWidth, int nHeight, uint8 *pOut, size_t nOutSize,
	CUtlString *pError = nullptr, ImageColorSpace_t colorSpace = IMAGE_COLORSPACE_LINEAR);

enum BMPResizeResult_t
{
	BMP_RESIZE_FAILED = 0, // the BMP did not load, or the result could not be written
	BMP_RESIZE_UNCHANGED,  // already that size, or no surface of that size could be made
	BMP_RESIZE_DONE,
};

// Rescales a BMP held in memory through SDL: the result has the source's pixel format (and
// palette) and goes to `out` as a BMP. Nothing is written to `out` unless the result is DONE.
// The header is checked against the loader's limits before SDL reads the pixels.
BMPResizeResult_t Image_ResizeBMP(const void *pData, size_t nSize, const char *pName, int nWidth, int nHeight,
	CUtlBuffer &out, CUtlString *pError = nullptr);

// Rescales a BMP file in place: a file that does not load, or whose result cannot be saved,
// gives false; a file already at the size gives true; when no surface of the new size can be
// made the file is left as it is and the result is true. The new file replaces the old one
// whole (written beside it and renamed), never leaving a truncated file.
bool Image_ResizeBMPFile(const char *pPath, int nWidth, int nHeight, CUtlString *pError = nullptr);
