// Conversions of the previous generation's (G1) textures into the inputs of a current material:
// a colour map with alpha into colour and transparency, a normal map with the other green
// convention, and the two packed mask maps into one grey image per channel. The source is any
// image the imaging module decodes; every output is an uncompressed 24-bit TGA.
#pragma once

#include <string_view>

#include "core/utlstring.h"
#include "mintyardtoolutils/core/importmessages.h"

class CImageRGBA8;

// Colour: R, G, B as they stand to `colorPath`; the alpha on R, G and B to `transPath`, written
// first and only when some pixel is not opaque. `bWroteTrans` tells whether it was.
bool ConvertG1Color(std::string_view sourceBytes, const char *pszSourceName, const CUtlString &colorPath, const CUtlString &transPath,
	bool &bWroteTrans, ImportMessageList &list);
// Normal: G becomes 255 - G on every pixel that is not pure black (black marks texels outside
// the map and stays).
bool ConvertG1Normal(std::string_view sourceBytes, const char *pszSourceName, const CUtlString &normalPath, ImportMessageList &list);
// Mask: R, G, B and A, in that order, to the four paths, each as a grey image. All four are
// always written.
bool ConvertG1Mask(std::string_view sourceBytes, const char *pszSourceName, const CUtlString *pOutputPaths, ImportMessageList &list);

// The pixel rules alone, for tests: each fills `out` from `source`.
void MakeG1ColorImages(const CImageRGBA8 &source, CImageRGBA8 &color, CImageRGBA8 &trans);
void MakeG1NormalImage(const CImageRGBA8 &source, CImageRGBA8 &normal);
void MakeG1MaskChannel(const CImageRGBA8 &source, int nChannel, CImageRGBA8 &grey);

// The output names of each conversion from the source path without its extension.
CUtlString G1ColorOutputPath(const CUtlString &stem);
CUtlString G1TransOutputPath(const CUtlString &stem);
CUtlString G1NormalOutputPath(const CUtlString &stem);
// Mask 1 gives "_detailmask", "_diffusemask", "_metalnessmask", "_selfillummask"; mask 2 gives
// "_specmask", "_rimmask", "_basetintmask", "_specexp". `nChannel` 0 to 3.
CUtlString G1MaskOutputPath(const CUtlString &stem, int nMask, int nChannel);
