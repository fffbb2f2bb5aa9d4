#include "imaging/imageresize.h"

#include <cstring>

#include <stb_image_resize.h>

#include "core/fileio.h"
#include "core/strtools.h"

namespace
{
bool CheckTargetSize(int nWidth, int nHeight, CUtlString *pError)
{
	if (nWidth < 1 || nHeight < 1 || nWidth > IMAGE_RESIZE_MAX_SIDE || nHeight > IMAGE_RESIZE_MAX_SIDE ||
		(uint64)nWidth * (uint64)nHeight * 4 > (256ull << 20))
	{
		if (pError)
			*pError = V_Format("cannot rescale to %dx%d pixels (1 to %d a side, 256 MiB at most)", nWidth, nHeight,
				(int)IMAGE_RESIZE_MAX_SIDE);
		return false;
	}
	return true;
}
} // namespace

bool Image_ResizeInto(const CImageRGBA8 &src, int nWidth, int nHeight, uint8 *pOut, size_t nOutSize, CUtlString *pError,
	ImageColorSpace_t colorSpace)
{
	if (src.IsEmpty())
	{
		if (pError)
			*pError = "cannot rescale an empty image";
		return false;
	}
	if (!CheckTargetSize(nWidth, nHeight, pError))
		return false;
	const size_t nNeeded = (size_t)nWidth * (size_t)nHeight * 4;
	if (!pOut || nOutSize < nNeeded)
	{
		if (pError)
			*pError = V_Format("the buffer for %dx%d pixels holds %zu bytes, %zu are needed", nWidth, nHeight, nOutSize, nNeeded);
		return false;
	}
	if (nWidth == src.Width() && nHeight == src.Height())
	{
		memcpy(pOut, src.Pixels(), nNeeded);
		return true;
	}
	const int nOk = stbir_resize_uint8_generic(src.Pixels(), src.Width(), src.Height(), (int)src.RowBytes(), pOut, nWidth,
		nHeight, nWidth * 4, 4, 3, 0, STBIR_EDGE_CLAMP, STBIR_FILTER_DEFAULT,
		colorSpace == IMAGE_COLORSPACE_SRGB ? STBIR_COLORSPACE_SRGB : STBIR_COLORSPACE_LINEAR, nullptr);
	if (!nOk)
	{
		if (pError)
			*pError = V_Format("rescaling %dx%d to %dx%d pixels failed (out of memory)", src.Width(), src.Height(), nWidth, nHeight);
		return false;
	}
	return true;
}

bool Image_Resize(const CImageRGBA8 &src, int nWidth, int nHeight, CImageRGBA8 &out, CUtlString *pError,
	ImageColorSpace_t colorSpace)
{
	if (&src == &out)
	{
		if (pError)
			*pError = "cannot rescale an image into itself";
		return false;
	}
	out.Clear();
	if (!CheckTargetSize(nWidth, nHeight, pError))
		return false;
	CImageRGBA8 result;
	if (!result.Init(nWidth, nHeight))
	{
		if (pError)
			*pError = V_Format("out of memory for %dx%d pixels", nWidth, nHeight);
		return false;
	}
	if (!Image_ResizeInto(src, nWidth, nHeight, result.Pixels(), result.SizeInBytes(), pError, colorSpace))
		return false;
	out = std::move(result);
	return true;
}
