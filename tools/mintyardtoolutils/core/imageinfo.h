// The pixel size of an image file, read from its header alone: nothing is decoded, and only
// the first bytes of the file are read (for JPEG, the markers up to the frame header).
// Kinds: PNG, BMP, TGA, GIF, JPEG, PSD. Anything else, a damaged header, or a size of zero
// gives false with a message that names the file.
#pragma once

#include "core/utlstring.h"

enum MintyardImageKind_t
{
	MINTYARD_IMAGE_UNKNOWN = 0,
	MINTYARD_IMAGE_PNG,
	MINTYARD_IMAGE_BMP,
	MINTYARD_IMAGE_TGA,
	MINTYARD_IMAGE_GIF,
	MINTYARD_IMAGE_JPEG,
	MINTYARD_IMAGE_PSD,
};

struct MintyardImageInfo_t
{
	MintyardImageKind_t kind = MINTYARD_IMAGE_UNKNOWN;
	int width = 0;
	int height = 0;
};

bool ReadImageInfo(const char *pszPath, MintyardImageInfo_t &info, CUtlString *pError = nullptr);
// The same over bytes in memory (the start of a file, or all of it).
bool ReadImageInfoFromMemory(const void *pData, size_t nSize, MintyardImageInfo_t &info, CUtlString *pError = nullptr,
	const char *pszName = "<memory>");
