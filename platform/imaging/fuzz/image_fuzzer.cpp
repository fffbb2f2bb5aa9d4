// Feeds arbitrary bytes to the image readers: the format identification, the header and
// structure checks, stb's decoders behind them, and SDL's BMP road. Whatever decodes goes on
// through the rest of the module (writers read back, block compression, mips, YCoCg), so that
// every image a reader can produce is one the module handles. Limits are small to keep each
// run fast; the checks that enforce them are the same at any size.
#include <cstdint>
#include <cstring>

#include "imaging/blockcompress.h"
#include "imaging/imageload.h"
#include "imaging/imageresize.h"
#include "imaging/imagewrite.h"
#include "imaging/mipchain.h"
#include "imaging/texturebuild.h"
#include "imaging/ycocg.h"

namespace
{
void Check(bool bCondition)
{
	if (!bCondition)
		__builtin_trap();
}

void ExerciseDecoded(const CImageRGBA8 &image)
{
	// Written and read back, the pixels are the same.
	CUtlBuffer encoded;
	Check(Image_EncodePNG(image, encoded));
	CImageRGBA8 back;
	Check(Image_Load(encoded.Base(), encoded.Size(), "png", back));
	Check(back == image);
	Check(Image_EncodeTGA(image, encoded, nullptr, IMAGE_TGA_32));
	Check(Image_Load(encoded.Base(), encoded.Size(), "tga", back));
	Check(back == image);

	if (image.PixelCount() > 64 * 64)
		return;
	TextureBuildOptions_t options;
	options.format = Texture_ChooseFormat(image);
	options.nThreads = 1;
	BuiltTexture_t texture;
	Check(Texture_Build(image, options, texture));
	Check((int)texture.levels.size() == Texture_MipLevelCount(image.Width(), image.Height()));
	for (size_t i = 0; i < texture.levels.size(); ++i)
		Check(Texture_DecodeLevel(texture, (int)i, back));
	options.format = TEXTURE_FORMAT_BC3;
	options.bYCoCg = true;
	options.mipSpace = MIP_FILTER_DATA;
	Check(Texture_Build(image, options, texture));
	Check(Texture_DecodeLevel(texture, 0, back));
	Check(Image_Resize(image, 7, 5, back));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	ImageLoadLimits_t limits;
	limits.nMaxSide = 2048;
	limits.nMaxDecodedBytes = 4u << 20;

	ImageFileInfo_t info;
	CUtlString error;
	const bool bInfo = Image_ReadInfo(data, size, "fuzz", info, &error, limits);
	Check(bInfo || !error.empty());

	CImageRGBA8 image;
	ImageFileInfo_t loadInfo;
	if (Image_Load(data, size, "fuzz", image, &error, limits, &loadInfo))
	{
		// What decodes agrees with its header and stays within the limits.
		Check(bInfo);
		Check(image.Width() == info.nWidth && image.Height() == info.nHeight);
		Check(image.Width() <= limits.nMaxSide && image.Height() <= limits.nMaxSide);
		Check(image.SizeInBytes() <= limits.nMaxDecodedBytes);
		ExerciseDecoded(image);
	}
	else
	{
		Check(!error.empty());
		Check(error.find("fuzz") != std::string::npos);
	}

	// SDL's BMP reader, behind the same header check.
	ImageFileInfo_t declared;
	if (Image_ReadDeclaredSize(data, size, "fuzz", declared, nullptr, limits) && declared.format == IMAGE_FILE_BMP)
	{
		CUtlBuffer out;
		const BMPResizeResult_t result = Image_ResizeBMP(data, size, "fuzz.bmp", 9, 6, out, &error);
		if (result == BMP_RESIZE_DONE)
		{
			Check(Image_Load(out.Base(), out.Size(), "resized", image, &error));
			Check(image.Width() == 9 && image.Height() == 6);
		}
	}

	// The block decoders take any bytes.
	if (size >= 16)
	{
		const int w = 1 + data[0] % 13, h = 1 + data[1] % 11;
		for (TextureFormat_t format : { TEXTURE_FORMAT_BC1, TEXTURE_FORMAT_BC3, TEXTURE_FORMAT_RGBA8888 })
		{
			const bool bDecoded = Texture_DecodeImage(format, data, size, w, h, image, &error);
			Check(bDecoded == (size >= Texture_ImageBytes(format, w, h)));
		}
	}
	return 0;
}
