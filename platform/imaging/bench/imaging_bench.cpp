// Block compression of a 2048x2048 photograph-like texture, opaque (BC1) and with alpha (BC3):
// our encoder against stb_dxt on the same pixels, with the PSNR of each as a counter, and the
// whole texture build (mip chain in linear light and compression of every level).
#include <benchmark/benchmark.h>

#include "imaging/blockcompress.h"
#include "imaging/texturebuild.h"
#include "testimages.h"

namespace
{
enum { BENCH_SIZE = 2048 };

const CImageRGBA8 &OpaqueImage()
{
	static const CImageRGBA8 s_Image = MakePhotoLikeImage(BENCH_SIZE, BENCH_SIZE);
	return s_Image;
}

const CImageRGBA8 &AlphaImage()
{
	static const CImageRGBA8 s_Image = MakePhotoLikeImageWithAlpha(BENCH_SIZE, BENCH_SIZE);
	return s_Image;
}

// One thread, so that encoders are compared block for block.
void BM_Encode(benchmark::State &state, TextureFormat_t format, BlockEncoder_t encoder)
{
	const CImageRGBA8 &image = format == TEXTURE_FORMAT_BC1 ? OpaqueImage() : AlphaImage();
	std::vector<uint8> data;
	for (auto _ : state)
	{
		Texture_EncodeImage(image, format, data, nullptr, encoder, 1);
		benchmark::DoNotOptimize(data.data());
	}
	CImageRGBA8 decoded;
	Texture_DecodeImage(format, data.data(), data.size(), image.Width(), image.Height(), decoded);
	state.counters["Mpixel/s"] = benchmark::Counter((double)image.PixelCount() * 1e-6 * (double)state.iterations(),
		benchmark::Counter::kIsRate);
	state.counters["PSNR_rgb"] = Image_PSNR(image, decoded, IMAGE_CHANNELS_RGB);
	if (format == TEXTURE_FORMAT_BC3)
		state.counters["PSNR_alpha"] = Image_PSNR(image, decoded, IMAGE_CHANNEL_A);
}

// The whole chain on every core: mips in linear light, then every level compressed.
void BM_BuildChain(benchmark::State &state, TextureFormat_t format, BlockEncoder_t encoder)
{
	const CImageRGBA8 &image = format == TEXTURE_FORMAT_BC1 ? OpaqueImage() : AlphaImage();
	TextureBuildOptions_t options;
	options.format = format;
	options.encoder = encoder;
	BuiltTexture_t texture;
	for (auto _ : state)
	{
		Texture_Build(image, options, texture);
		benchmark::DoNotOptimize(texture.data.data());
	}
	state.counters["levels"] = (double)texture.levels.size();
}

// The mip levels alone (filtering in linear light), on every core.
void BM_MipLevels(benchmark::State &state)
{
	std::vector<CImageRGBA8> levels;
	for (auto _ : state)
	{
		Texture_BuildMipLevels(OpaqueImage(), MIP_FILTER_SRGB, levels);
		benchmark::DoNotOptimize(levels.data());
	}
}
} // namespace

BENCHMARK_CAPTURE(BM_Encode, BC1_stb, TEXTURE_FORMAT_BC1, BLOCK_ENCODER_STB)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Encode, BC1_stb_highqual, TEXTURE_FORMAT_BC1, BLOCK_ENCODER_STB_HIGHQUAL)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Encode, BC1_mintyard, TEXTURE_FORMAT_BC1, BLOCK_ENCODER_MINTYARD)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Encode, BC3_stb, TEXTURE_FORMAT_BC3, BLOCK_ENCODER_STB)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Encode, BC3_stb_highqual, TEXTURE_FORMAT_BC3, BLOCK_ENCODER_STB_HIGHQUAL)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Encode, BC3_mintyard, TEXTURE_FORMAT_BC3, BLOCK_ENCODER_MINTYARD)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_BuildChain, BC1_default, TEXTURE_FORMAT_BC1, BLOCK_ENCODER_DEFAULT)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_BuildChain, BC3_default, TEXTURE_FORMAT_BC3, BLOCK_ENCODER_DEFAULT)->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK_CAPTURE(BM_BuildChain, BC1_stb, TEXTURE_FORMAT_BC1, BLOCK_ENCODER_STB)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_BuildChain, BC3_stb, TEXTURE_FORMAT_BC3, BLOCK_ENCODER_STB)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_MipLevels)->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK_MAIN();
