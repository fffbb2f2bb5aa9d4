// Structure checks of image files (internal to the imaging module), run before a decoder sees
// the pixels: every part that the header promises must lie inside the file. stb's decoders fill
// a short file with zeros, so these checks are what tells a truncated file from a whole one, and
// they give the offset where a damaged file goes wrong. A PNG is checked whole (chunk lengths,
// checksums, IEND) and its compressed pixel data is inflated once into a small window to be sure
// it holds no more than the header declares: a small file cannot inflate to gigabytes.
#pragma once

#include "core/utlstring.h"
#include "imaging/imageload.h"
#include "imaging/imagesource.h"

// False with a message naming the file (pName) and the offset when the structure is damaged.
bool Image_CheckStructure(IImageByteSource &source, ImageFileFormat_t format, const char *pName, CUtlString &error);
