// Image decoding: TGA, PNG, PSD, BMP (palettised too), JPEG and GIF (first frame) to RGBA8.
//
// Every load reads the declared size from the file's own header before a pixel is decoded and
// refuses an image larger than the limits, so that a hostile header cannot make the decoder
// allocate without bound. A PNG is also checked chunk by chunk (lengths, checksums) and its
// compressed pixel data is measured before decoding. Failures are messages that name the file,
// never exceptions.
#pragma once

#include "core/platform.h"
#include "core/utlstring.h"
#include "imaging/image.h"

enum ImageFileFormat_t
{
	IMAGE_FILE_UNKNOWN = 0,
	IMAGE_FILE_TGA,
	IMAGE_FILE_PNG,
	IMAGE_FILE_PSD,
	IMAGE_FILE_BMP,
	IMAGE_FILE_JPEG,
	IMAGE_FILE_GIF,
};

// "TGA", "PNG", ... ("unknown" for IMAGE_FILE_UNKNOWN).
const char *ImageFileFormatName(ImageFileFormat_t format);

struct ImageLoadLimits_t
{
	int nMaxSide = 16384;						// pixels, either side
	uint64 nMaxDecodedBytes = 256ull << 20;		// width * height * 4
	uint64 nMaxFileBytes = 1ull << 30;			// size of the file itself
};

struct ImageFileInfo_t
{
	ImageFileFormat_t format = IMAGE_FILE_UNKNOWN;
	int nWidth = 0;
	int nHeight = 0;
	int nChannels = 0; // channels stored in the file (1 grey, 2 grey and alpha, 3 RGB, 4 RGBA)
};

// Identifies the format from the first bytes (TGA when the header fits no other format but
// passes the TGA checks).
ImageFileFormat_t Image_IdentifyFormat(const void *pData, size_t nSize);

// Reads only the header: format and declared size. Fails with a message when the header is
// damaged or declares an image beyond the limits (info is still filled as far as it was read).
// `pName` names the data in messages (a file name; null gives "(memory)").
bool Image_ReadInfo(const void *pData, size_t nSize, const char *pName, ImageFileInfo_t &info,
	CUtlString *pError = nullptr, const ImageLoadLimits_t &limits = {});
// The same from a file, reading only as much of it as the header needs.
bool Image_ReadFileInfo(const char *pPath, ImageFileInfo_t &info, CUtlString *pError = nullptr,
	const ImageLoadLimits_t &limits = {});

// Only the format's own header, read by this module, and the limits: the decoder is not asked
// (nChannels stays 0). The check that comes before any third-party reader sees the pixels.
bool Image_ReadDeclaredSize(const void *pData, size_t nSize, const char *pName, ImageFileInfo_t &info,
	CUtlString *pError = nullptr, const ImageLoadLimits_t &limits = {});
bool Image_ReadFileDeclaredSize(const char *pPath, ImageFileInfo_t &info, CUtlString *pError = nullptr,
	const ImageLoadLimits_t &limits = {});

// Decodes to RGBA8 (grey gives R = G = B; no alpha gives 255). `pInfo`, when given, receives
// the header's description.
bool Image_Load(const void *pData, size_t nSize, const char *pName, CImageRGBA8 &out,
	CUtlString *pError = nullptr, const ImageLoadLimits_t &limits = {}, ImageFileInfo_t *pInfo = nullptr);
bool Image_LoadFile(const char *pPath, CImageRGBA8 &out, CUtlString *pError = nullptr,
	const ImageLoadLimits_t &limits = {}, ImageFileInfo_t *pInfo = nullptr);
