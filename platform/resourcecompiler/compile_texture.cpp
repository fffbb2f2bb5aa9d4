// Textures: image sources (TGA, PNG, PSD, BMP, JPEG) and texture recipes (".ztex") to ".ztex_c".
//
// An image source becomes a texture with its full mip chain: BC1 when no pixel's alpha is below
// 255, BC3 otherwise, RGBA8 where the top level's sides are not multiples of four (whole blocks
// are what block-compressed textures are made of). The ".txt" beside a source (KeyValues
// "settings" { "maxres" "N" }) limits its size: the larger side is halved, with the mip filter,
// until it is within N. Colour textures (names ending in "_color", or in no suffix of the
// material's data textures) are filtered in linear light and marked sRGB; normals and masks are
// filtered as their values stand.
#include <algorithm>
#include <cstring>

#include "compiledassets/compiledassets.h"
#include "core/fileio.h"
#include "core/keyvalues.h"
#include "core/strtools.h"
#include "datamodel/dmxio.h"
#include "imaging/imageload.h"
#include "imaging/imageresize.h"
#include "imaging/texturebuild.h"
#include "resourcecompiler/compiler_internal.h"
#include "resourcecompiler/texturerecipe.h"

namespace
{
// Suffixes of the material's data textures: their texels are values, not colours.
const char *const s_DataSuffixes[] = { "_normal", "_trans", "_detailmask", "_diffusemask", "_metalnessmask", "_selfillummask",
	"_specmask", "_rimmask", "_basetintmask", "_specexp", "_mask", "_nrm", "_rough", "_ao" };

std::string_view Stem(std::string_view path)
{
	const size_t slash = path.find_last_of('/');
	const size_t dot = path.find_last_of('.');
	if (dot == std::string_view::npos || (slash != std::string_view::npos && dot < slash))
		return path;
	return path.substr(0, dot);
}

bool EndsWithNoCase(std::string_view text, std::string_view suffix)
{
	return text.size() >= suffix.size() && V_StrEqualNoCase(text.substr(text.size() - suffix.size()), suffix);
}

bool IsColorTextureName(std::string_view relative)
{
	const std::string_view stem = Stem(relative);
	if (EndsWithNoCase(stem, "_color"))
		return true;
	for (const char *suffix : s_DataSuffixes)
	{
		if (EndsWithNoCase(stem, suffix))
			return false;
	}
	return true;
}

struct TextureSettings_t
{
	int nMaxRes = 0; // 0: no limit
};

// The settings file beside a source: its stem with ".txt". A missing file gives the defaults.
bool ReadTextureSettings(CResourceCompiler &rc, const CompileRoots_t &roots, const CUtlString &relative, TextureSettings_t &settings)
{
	settings = TextureSettings_t();
	const CUtlString settingsName = CUtlString(Stem(relative)) + ".txt";
	const CUtlString path = roots.ContentPath(settingsName);
	if (!Plat_FileExists(path.c_str()))
		return true;
	CUtlBuffer text;
	CUtlString error;
	if (!Plat_ReadFile(path.c_str(), text, &error))
	{
		rc.Log().Error(settingsName, 0, "cannot read the texture settings: %s", error.c_str());
		return false;
	}
	KeyValues kv("settings");
	KV1ParseError_t detail;
	if (!kv.LoadFromBuffer(settingsName.c_str(), text.Base(), text.Size(), nullptr, nullptr, KV1LoadOptions_t(), &error, &detail))
	{
		rc.Log().Error(settingsName, detail.line, "%s", detail.message.empty() ? error.c_str() : detail.message.c_str());
		return false;
	}
	const char *maxres = kv.GetString("maxres", "");
	if (*maxres)
	{
		int64 value = 0;
		if (!V_ParseInt(maxres, 0, 1 << 20, value))
		{
			rc.Log().Error(settingsName, 0, "\"maxres\" is \"%s\"; it takes a size in pixels (0 for no limit)", maxres);
			return false;
		}
		settings.nMaxRes = (int)value;
	}
	return true;
}

// Halvings that bring the larger side within maxres.
int HalvingsFor(int nWidth, int nHeight, int nMaxRes)
{
	int count = 0;
	int side = std::max(nWidth, nHeight);
	while (nMaxRes > 0 && side > nMaxRes && side > 1)
	{
		side = std::max(1, side / 2);
		++count;
	}
	return count;
}

bool LoadImageSource(CResourceCompiler &rc, const CompileRoots_t &roots, const CUtlString &relative, CImageRGBA8 &image)
{
	const CUtlString path = roots.ContentPath(relative);
	if (!Plat_FileExists(path.c_str()))
	{
		rc.Log().Error(relative, 0, "the image file does not exist (%s)", path.c_str());
		return false;
	}
	CUtlBuffer bytes;
	CUtlString error;
	if (!Plat_ReadFile(path.c_str(), bytes, &error))
	{
		rc.Log().Error(relative, 0, "cannot read the image: %s", error.c_str());
		return false;
	}
	if (!Image_Load(bytes.Base(), bytes.Size(), relative.c_str(), image, &error))
	{
		// The imaging module's messages start with the name they were given.
		rc.Log().Error("", 0, "%s", error.c_str());
		return false;
	}
	return true;
}

// The threads of one texture's pixel work: all of the run's, unless a material runs several
// textures side by side.
thread_local int t_nTextureThreads = 0;

int TextureThreads(CResourceCompiler &rc)
{
	return t_nTextureThreads > 0 ? t_nTextureThreads : rc.ThreadCount();
}

// Scales the image down by whole halvings (the mip filter) so that it fits maxres.
bool LimitSize(CResourceCompiler &rc, const CUtlString &relative, CImageRGBA8 &image, MipFilterSpace_t space, int nMaxRes)
{
	const int halvings = HalvingsFor(image.Width(), image.Height(), nMaxRes);
	if (halvings == 0)
		return true;
	std::vector<CImageRGBA8> levels;
	CUtlString error;
	if (!Texture_BuildMipLevels(image, space, levels, &error, halvings + 1, TextureThreads(rc)) || levels.size() < (size_t)halvings)
	{
		rc.Log().Error(relative, 0, "cannot scale the image down: %s", error.c_str());
		return false;
	}
	rc.Log().Progress("  %s: %dx%d scaled to %dx%d (maxres %d)", relative.c_str(), image.Width(), image.Height(),
		levels[(size_t)halvings - 1].Width(), levels[(size_t)halvings - 1].Height(), nMaxRes);
	image = std::move(levels[(size_t)halvings - 1]);
	return true;
}

bool WriteTexture(CResourceCompiler &rc, const CompileRoots_t &roots, const CUtlString &relative, const CUtlString &output,
	const BuiltTexture_t &built, uint32 nFlags)
{
	CCompiledTexture texture;
	switch (built.format)
	{
	case TEXTURE_FORMAT_BC1:
		texture.m_eFormat = COMPILED_TEXTURE_BC1;
		break;
	case TEXTURE_FORMAT_BC3:
		texture.m_eFormat = COMPILED_TEXTURE_BC3;
		break;
	default:
		texture.m_eFormat = COMPILED_TEXTURE_RGBA8;
		break;
	}
	texture.m_nFlags = nFlags | (built.bYCoCg ? COMPILED_TEXTURE_FLAG_YCOCG : 0);
	texture.m_nWidth = built.levels.empty() ? 0 : (uint32)built.levels[0].nWidth;
	texture.m_nHeight = built.levels.empty() ? 0 : (uint32)built.levels[0].nHeight;
	texture.m_Mips.resize(built.levels.size());
	for (size_t i = 0; i < built.levels.size(); ++i)
	{
		const TextureLevel_t &level = built.levels[i];
		CompiledMip_t &mip = texture.m_Mips[i];
		mip.m_nWidth = (uint32)level.nWidth;
		mip.m_nHeight = (uint32)level.nHeight;
		mip.m_Data.assign(built.data.begin() + (std::ptrdiff_t)level.nOffset, built.data.begin() + (std::ptrdiff_t)(level.nOffset + level.nSize));
	}
	const CUtlString path = roots.GamePath(output);
	CUtlString error;
	if (!ResourceCompiler_CreateParentFolders(path, error) || !WriteCompiledTexture(path.c_str(), texture, &error))
	{
		rc.Log().Error(relative, 0, "cannot write %s: %s", output.c_str(), error.c_str());
		return false;
	}
	rc.Log().Progress("  %s: %ux%u %s, %zu mips%s -> %s", relative.c_str(), texture.m_nWidth, texture.m_nHeight,
		CCompiledTexture::FormatName(texture.m_eFormat), texture.m_Mips.size(), built.bYCoCg ? ", YCoCg" : "", output.c_str());
	return true;
}

bool BuildTexture(CResourceCompiler &rc, const CUtlString &relative, const CImageRGBA8 &image, TextureBuildOptions_t options,
	BuiltTexture_t &built)
{
	options.nThreads = TextureThreads(rc);
	CUtlString error;
	if (!Texture_Build(image, options, built, &error))
	{
		rc.Log().Error(relative, 0, "cannot build the texture: %s", error.c_str());
		return false;
	}
	return true;
}

bool IsWholeBlocks(const CImageRGBA8 &image)
{
	return image.Width() % 4 == 0 && image.Height() % 4 == 0;
}
} // namespace

// Used by the material compile, which runs several textures side by side.
void ResourceCompiler_SetTextureThreads(int nThreads)
{
	t_nTextureThreads = nThreads;
}

bool CompileImageSource(CResourceCompiler &rc, const CompileRoots_t &roots, const CUtlString &relative, const CUtlString &output)
{
	TextureSettings_t settings;
	if (!ReadTextureSettings(rc, roots, relative, settings))
		return false;
	CImageRGBA8 image;
	if (!LoadImageSource(rc, roots, relative, image))
		return false;
	const bool bColor = IsColorTextureName(relative);
	const bool bOpaque = image.IsOpaque();
	TextureBuildOptions_t options;
	options.mipSpace = bColor ? MIP_FILTER_SRGB : MIP_FILTER_DATA;
	if (!LimitSize(rc, relative, image, options.mipSpace, settings.nMaxRes))
		return false;
	options.format = !IsWholeBlocks(image) ? TEXTURE_FORMAT_RGBA8888 : (bOpaque ? TEXTURE_FORMAT_BC1 : TEXTURE_FORMAT_BC3);
	BuiltTexture_t built;
	if (!BuildTexture(rc, relative, image, options, built))
		return false;
	return WriteTexture(rc, roots, relative, output, built, bColor ? COMPILED_TEXTURE_FLAG_SRGB : 0);
}

bool CompileTextureRecipeSource(CResourceCompiler &rc, const CompileRoots_t &roots, const CUtlString &relative, const CUtlString &output)
{
	const CUtlString path = roots.ContentPath(relative);
	CUtlBuffer bytes;
	CUtlString error;
	if (!Plat_ReadFile(path.c_str(), bytes, &error))
	{
		rc.Log().Error(relative, 0, "cannot read the texture recipe: %s", error.c_str());
		return false;
	}
	CDmxDocument document;
	if (!DmxLoadBuffer(bytes.Base(), bytes.Size(), relative.c_str(), document, &error))
	{
		rc.Log().Error("", 0, "%s", error.c_str());
		return false;
	}
	TextureRecipe_t recipe;
	TextureRecipePlan_t plan;
	std::vector<CUtlString> warnings;
	if (!ReadTextureRecipe(document, recipe, error) || !PlanTextureRecipe(recipe, plan, warnings, error))
	{
		rc.Log().Error(relative, 0, "%s", error.c_str());
		return false;
	}
	for (const CUtlString &warning : warnings)
		rc.Log().Warning(relative, 0, "%s", warning.c_str());

	// The inputs, by their content-relative names.
	std::vector<CImageRGBA8> images(recipe.m_Inputs.size());
	for (int input : plan.inputs)
	{
		const TextureRecipeInput_t &source = recipe.m_Inputs[(size_t)input];
		CUtlString name, why;
		if (!ResourceCompiler_NormalizeReference(source.m_FileName, name, why))
		{
			rc.Log().Error(relative, 0, "input texture \"%s\" names the file \"%s\": %s", source.m_Name.c_str(), source.m_FileName.c_str(), why.c_str());
			return false;
		}
		if (!Plat_FileExists(roots.ContentPath(name).c_str()))
		{
			rc.Log().Error(relative, 0, "input texture \"%s\": the file %s does not exist", source.m_Name.c_str(), name.c_str());
			return false;
		}
		if (!LoadImageSource(rc, roots, name, images[(size_t)input]))
			return false;
	}

	// The output takes the size of the first input; others are rescaled to it.
	const CImageRGBA8 &first = images[(size_t)plan.copies[0].nInput];
	const int width = first.Width(), height = first.Height();
	CImageRGBA8 image;
	const TextureRecipeCopy_t &firstCopy = plan.copies[0];
	const bool bWhole = plan.copies.size() == 1 && firstCopy.nCount == 4 && firstCopy.nSrc[0] == 0 && firstCopy.nSrc[1] == 1 &&
						firstCopy.nSrc[2] == 2 && firstCopy.nSrc[3] == 3 && firstCopy.nDst[0] == 0 && firstCopy.nDst[1] == 1 &&
						firstCopy.nDst[2] == 2 && firstCopy.nDst[3] == 3;
	if (bWhole)
		image = std::move(images[(size_t)firstCopy.nInput]);
	else
	{
		if (!image.Init(width, height))
		{
			rc.Log().Error(relative, 0, "cannot make a %dx%d image", width, height);
			return false;
		}
		for (size_t p = 0; p < image.PixelCount(); ++p)
			image.Pixels()[p * 4 + 3] = 255;
		for (const TextureRecipeCopy_t &copy : plan.copies)
		{
			const CImageRGBA8 *pInput = &images[(size_t)copy.nInput];
			CImageRGBA8 resized;
			if (pInput->Width() != width || pInput->Height() != height)
			{
				const bool bSRGB = V_StrEqualNoCase(recipe.m_Inputs[(size_t)copy.nInput].m_ColorSpace, "srgb");
				if (!Image_Resize(*pInput, width, height, resized, &error, bSRGB ? IMAGE_COLORSPACE_SRGB : IMAGE_COLORSPACE_LINEAR))
				{
					rc.Log().Error(relative, 0, "cannot rescale input texture \"%s\": %s", recipe.m_Inputs[(size_t)copy.nInput].m_Name.c_str(),
						error.c_str());
					return false;
				}
				rc.Log().Warning(relative, 0, "input texture \"%s\" is %dx%d; it is rescaled to the first input's %dx%d",
					recipe.m_Inputs[(size_t)copy.nInput].m_Name.c_str(), pInput->Width(), pInput->Height(), width, height);
				pInput = &resized;
			}
			const uint8 *pSrc = pInput->Pixels();
			uint8 *pDst = image.Pixels();
			for (size_t p = 0; p < image.PixelCount(); ++p)
			{
				for (int i = 0; i < copy.nCount; ++i)
					pDst[p * 4 + (size_t)copy.nDst[i]] = pSrc[p * 4 + (size_t)copy.nSrc[i]];
			}
		}
	}
	images.clear();

	TextureSettings_t settings;
	if (!ReadTextureSettings(rc, roots, relative, settings) || !LimitSize(rc, relative, image, plan.mipSpace, settings.nMaxRes))
		return false;
	TextureBuildOptions_t options;
	options.format = plan.format;
	options.mipSpace = plan.mipSpace;
	options.bMipmaps = plan.bMipmaps;
	options.bYCoCg = plan.bYCoCg;
	if (options.format != TEXTURE_FORMAT_RGBA8888 && !IsWholeBlocks(image))
	{
		rc.Log().Warning(relative, 0, "the texture is %dx%d, not whole 4x4 blocks, so it is stored as RGBA8 rather than %s", image.Width(),
			image.Height(), TextureFormatName(options.format));
		options.format = TEXTURE_FORMAT_RGBA8888;
	}
	BuiltTexture_t built;
	if (!BuildTexture(rc, relative, image, options, built))
		return false;
	return WriteTexture(rc, roots, relative, output, built, plan.bSRGB ? COMPILED_TEXTURE_FLAG_SRGB : 0);
}
