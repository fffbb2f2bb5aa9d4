#include "mintyardtoolutils/wizard/g1conversion.h"

#include <filesystem>

#include "core/strtools.h"
#include "imaging/image.h"
#include "imaging/imageload.h"
#include "imaging/imagewrite.h"

namespace
{
// Decodes the source by its format into RGBA8 of the same size.
bool DecodeSource(std::string_view bytes, const char *pszName, CImageRGBA8 &image, ImportMessageList &list)
{
	if (Image_IdentifyFormat(bytes.data(), bytes.size()) == IMAGE_FILE_UNKNOWN)
	{
		list.AddError("Internal Error: Unrecognized format");
		return false;
	}
	CUtlString error;
	if (!Image_Load(bytes.data(), bytes.size(), pszName, image, &error))
	{
		list.AddError("Internal Error: Failed to convert");
		list.Log(MINTYARD_IMPORT_LOG_ERROR, "%s\n", error.c_str());
		return false;
	}
	return true;
}

bool WriteTGA(const CUtlString &path, const CImageRGBA8 &image, ImportMessageList &list)
{
	std::error_code fsError;
	const std::filesystem::path parent = std::filesystem::path(path).parent_path();
	if (!parent.empty())
		std::filesystem::create_directories(parent, fsError);
	CUtlString error;
	if (!Image_WriteTGAFile(path.c_str(), image, &error, IMAGE_TGA_24))
	{
		list.AddError("Failed to write file");
		list.Log(MINTYARD_IMPORT_LOG_ERROR, "%s: %s\n", path.c_str(), error.c_str());
		return false;
	}
	return true;
}

const char *const s_pszMaskSuffixes[2][4] = {
	{ "_detailmask", "_diffusemask", "_metalnessmask", "_selfillummask" },
	{ "_specmask", "_rimmask", "_basetintmask", "_specexp" },
};
} // namespace

void MakeG1ColorImages(const CImageRGBA8 &source, CImageRGBA8 &color, CImageRGBA8 &trans)
{
	color.Init(source.Width(), source.Height());
	trans.Init(source.Width(), source.Height());
	for (size_t i = 0; i < source.PixelCount(); ++i)
	{
		const uint8 *pIn = source.Pixels() + i * 4;
		uint8 *pColor = color.Pixels() + i * 4;
		uint8 *pTrans = trans.Pixels() + i * 4;
		pColor[0] = pIn[0];
		pColor[1] = pIn[1];
		pColor[2] = pIn[2];
		pColor[3] = 255;
		pTrans[0] = pTrans[1] = pTrans[2] = pIn[3];
		pTrans[3] = 255;
	}
}

void MakeG1NormalImage(const CImageRGBA8 &source, CImageRGBA8 &normal)
{
	normal = source;
	for (size_t i = 0; i < normal.PixelCount(); ++i)
	{
		uint8 *p = normal.Pixels() + i * 4;
		if (p[0] != 0 || p[1] != 0 || p[2] != 0)
			p[1] = (uint8)(255 - p[1]);
	}
}

void MakeG1MaskChannel(const CImageRGBA8 &source, int nChannel, CImageRGBA8 &grey)
{
	grey.Init(source.Width(), source.Height());
	for (size_t i = 0; i < source.PixelCount(); ++i)
	{
		const uint8 value = source.Pixels()[i * 4 + nChannel];
		uint8 *p = grey.Pixels() + i * 4;
		p[0] = p[1] = p[2] = value;
		p[3] = 255;
	}
}

CUtlString G1ColorOutputPath(const CUtlString &stem)
{
	return V_Format("%s_g2_color.tga", stem.c_str());
}

CUtlString G1TransOutputPath(const CUtlString &stem)
{
	return V_Format("%s_g2_trans.tga", stem.c_str());
}

CUtlString G1NormalOutputPath(const CUtlString &stem)
{
	return V_Format("%s_g2.tga", stem.c_str());
}

CUtlString G1MaskOutputPath(const CUtlString &stem, int nMask, int nChannel)
{
	if (nMask < 0 || nMask > 1 || nChannel < 0 || nChannel > 3)
		return CUtlString();
	return V_Format("%s%s.tga", stem.c_str(), s_pszMaskSuffixes[nMask][nChannel]);
}

bool ConvertG1Color(std::string_view sourceBytes, const char *pszSourceName, const CUtlString &colorPath, const CUtlString &transPath,
	bool &bWroteTrans, ImportMessageList &list)
{
	bWroteTrans = false;
	CImageRGBA8 source;
	if (!DecodeSource(sourceBytes, pszSourceName, source, list))
		return false;
	CImageRGBA8 color, trans;
	MakeG1ColorImages(source, color, trans);
	if (!source.IsOpaque())
	{
		if (!WriteTGA(transPath, trans, list))
			return false;
		bWroteTrans = true;
	}
	return WriteTGA(colorPath, color, list);
}

bool ConvertG1Normal(std::string_view sourceBytes, const char *pszSourceName, const CUtlString &normalPath, ImportMessageList &list)
{
	CImageRGBA8 source;
	if (!DecodeSource(sourceBytes, pszSourceName, source, list))
		return false;
	CImageRGBA8 normal;
	MakeG1NormalImage(source, normal);
	return WriteTGA(normalPath, normal, list);
}

bool ConvertG1Mask(std::string_view sourceBytes, const char *pszSourceName, const CUtlString *pOutputPaths, ImportMessageList &list)
{
	CImageRGBA8 source;
	if (!DecodeSource(sourceBytes, pszSourceName, source, list))
		return false;
	bool bOk = true;
	for (int nChannel = 0; nChannel < 4; ++nChannel)
	{
		CImageRGBA8 grey;
		MakeG1MaskChannel(source, nChannel, grey);
		bOk = WriteTGA(pOutputPaths[nChannel], grey, list) && bOk;
	}
	return bOk;
}
