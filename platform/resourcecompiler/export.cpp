// `resourcecompiler export TEXTURE OUT.png [--mip N]`: one mip of a compiled texture decoded to a
// PNG (RGBA; YCoCg colour turned back into RGB).
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "compiledassets/compiledassets.h"
#include "core/strtools.h"
#include "imaging/blockcompress.h"
#include "imaging/imagewrite.h"
#include "imaging/ycocg.h"
#include "resourcecompiler/resourcecompiler.h"

namespace
{
const char s_ExportUsage[] = "usage: resourcecompiler export TEXTURE OUT.png [--mip N]\n"
							 "decodes mip N (0, the largest, by default) of a compiled texture to a PNG\n";

int ExportUsage(const char *message)
{
	fprintf(stderr, "resourcecompiler: %s\n%s", message, s_ExportUsage);
	return 2;
}
} // namespace

int ResourceCompiler_ExportCommand(int argc, char **argv)
{
	const char *paths[2] = { nullptr, nullptr };
	int count = 0;
	long mip = 0;
	for (int i = 0; i < argc; ++i)
	{
		if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0)
		{
			fputs(s_ExportUsage, stdout);
			return 0;
		}
		if (strcmp(argv[i], "--mip") == 0)
		{
			if (i + 1 >= argc)
				return ExportUsage("--mip needs a number");
			int64 value = 0;
			if (!V_ParseInt(argv[++i], 0, 64, value))
				return ExportUsage("--mip takes a mip number from 0");
			mip = (int)value;
		}
		else if (argv[i][0] == '-' && argv[i][1])
			return ExportUsage("unknown option");
		else if (count < 2)
			paths[count++] = argv[i];
		else
			return ExportUsage("export takes TEXTURE and OUT.png");
	}
	if (count != 2)
		return ExportUsage("export needs TEXTURE and OUT.png");

	CCompiledTexture texture;
	CUtlString error;
	if (!LoadCompiledTexture(paths[0], texture, &error))
	{
		fprintf(stderr, "error: %s\n", error.c_str());
		return 1;
	}
	if ((size_t)mip >= texture.m_Mips.size())
	{
		fprintf(stderr, "error: %s: the texture has %zu mips; there is no mip %ld\n", paths[0], texture.m_Mips.size(), mip);
		return 1;
	}
	const CompiledMip_t &level = texture.m_Mips[(size_t)mip];
	TextureFormat_t format = TEXTURE_FORMAT_RGBA8888;
	if (texture.m_eFormat == COMPILED_TEXTURE_BC1)
		format = TEXTURE_FORMAT_BC1;
	else if (texture.m_eFormat == COMPILED_TEXTURE_BC3)
		format = TEXTURE_FORMAT_BC3;
	CImageRGBA8 image;
	if (!Texture_DecodeImage(format, level.m_Data.data(), level.m_Data.size(), (int)level.m_nWidth, (int)level.m_nHeight, image, &error))
	{
		fprintf(stderr, "error: %s: mip %ld: %s\n", paths[0], mip, error.c_str());
		return 1;
	}
	if (texture.m_nFlags & COMPILED_TEXTURE_FLAG_YCOCG)
		Image_ConvertFromYCoCg(image);
	if (!Image_WritePNGFile(paths[1], image, &error))
	{
		fprintf(stderr, "error: %s\n", error.c_str());
		return 1;
	}
	printf("%s: mip %ld, %dx%d -> %s\n", paths[0], mip, image.Width(), image.Height(), paths[1]);
	return 0;
}
