#include "imaging/imagewrite.h"

#include <stb_image_write.h>

#include "core/fileio.h"
#include "core/strtools.h"

namespace
{
void AppendToBuffer(void *pContext, void *pData, int nSize)
{
	if (nSize > 0)
		((CUtlBuffer *)pContext)->Put(pData, (size_t)nSize);
}

bool CheckImage(const CImageRGBA8 &image, const char *pWhat, CUtlString *pError)
{
	if (!image.IsEmpty() && image.Width() <= 65535 && image.Height() <= 65535)
		return true;
	if (pError)
	{
		if (image.IsEmpty())
			*pError = V_Format("cannot write an empty image as %s", pWhat);
		else
			*pError = V_Format("cannot write %dx%d pixels as %s (65535 a side at most)", image.Width(), image.Height(), pWhat);
	}
	return false;
}

bool WriteFile(const char *pPath, const CUtlBuffer &data, CUtlString *pError)
{
	return Plat_WriteFileAtomic(pPath, data.Base(), data.Size(), pError);
}
} // namespace

bool Image_EncodePNG(const CImageRGBA8 &image, CUtlBuffer &out, CUtlString *pError, ImagePNGChannels_t channels)
{
	out.Clear();
	// PNG itself allows more, but the sides stay within what a reader of ours takes.
	if (!CheckImage(image, "PNG", pError))
		return false;
	const uint8 *pPixels = image.Pixels();
	std::vector<uint8> rgb;
	if (channels == IMAGE_PNG_RGB)
	{
		rgb.resize(image.PixelCount() * 3);
		for (size_t i = 0; i < image.PixelCount(); ++i)
		{
			rgb[i * 3 + 0] = pPixels[i * 4 + 0];
			rgb[i * 3 + 1] = pPixels[i * 4 + 1];
			rgb[i * 3 + 2] = pPixels[i * 4 + 2];
		}
		pPixels = rgb.data();
	}
	const int nChannels = channels == IMAGE_PNG_RGB ? 3 : 4;
	if (!stbi_write_png_to_func(AppendToBuffer, &out, image.Width(), image.Height(), nChannels, pPixels,
			image.Width() * nChannels))
	{
		out.Clear();
		if (pError)
			*pError = V_Format("encoding %dx%d pixels as PNG failed", image.Width(), image.Height());
		return false;
	}
	return true;
}

bool Image_WritePNGFile(const char *pPath, const CImageRGBA8 &image, CUtlString *pError, ImagePNGChannels_t channels)
{
	CUtlBuffer data;
	if (!Image_EncodePNG(image, data, pError, channels))
	{
		if (pError)
			*pError = V_Format("%s: %s", pPath, pError->c_str());
		return false;
	}
	return WriteFile(pPath, data, pError);
}

bool Image_EncodeTGA(const CImageRGBA8 &image, CUtlBuffer &out, CUtlString *pError, ImageTGABits_t bits)
{
	out.Clear();
	if (!CheckImage(image, "TGA", pError))
		return false;
	const int nBytesPerPixel = bits == IMAGE_TGA_32 ? 4 : 3;
	const int nWidth = image.Width(), nHeight = image.Height();
	uint8 header[18] = {};
	header[2] = 2; // uncompressed true colour
	header[12] = (uint8)(nWidth & 0xff);
	header[13] = (uint8)(nWidth >> 8);
	header[14] = (uint8)(nHeight & 0xff);
	header[15] = (uint8)(nHeight >> 8);
	header[16] = (uint8)(nBytesPerPixel * 8);
	header[17] = bits == IMAGE_TGA_32 ? 8 : 0; // alpha bits; origin bottom left
	out.EnsureCapacity(sizeof(header) + image.PixelCount() * nBytesPerPixel);
	out.Put(header, sizeof(header));
	std::vector<uint8> row((size_t)nWidth * nBytesPerPixel);
	for (int y = nHeight - 1; y >= 0; --y)
	{
		const uint8 *pSource = image.Pixel(0, y);
		uint8 *pDest = row.data();
		for (int x = 0; x < nWidth; ++x, pSource += 4, pDest += nBytesPerPixel)
		{
			pDest[0] = pSource[2]; // stored as BGR(A)
			pDest[1] = pSource[1];
			pDest[2] = pSource[0];
			if (nBytesPerPixel == 4)
				pDest[3] = pSource[3];
		}
		out.Put(row.data(), row.size());
	}
	return true;
}

bool Image_WriteTGAFile(const char *pPath, const CImageRGBA8 &image, CUtlString *pError, ImageTGABits_t bits)
{
	CUtlBuffer data;
	if (!Image_EncodeTGA(image, data, pError, bits))
	{
		if (pError)
			*pError = V_Format("%s: %s", pPath, pError->c_str());
		return false;
	}
	return WriteFile(pPath, data, pError);
}
