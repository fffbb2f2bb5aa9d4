// ValidateAll on the largest sample session (the one with the most file inputs), after every
// input of it is filled with a real file: eleven 2048 x 2048 PNG textures per material, meshes and
// animations, images of the sizes their templates ask for. The files are made once, in a
// temporary folder, before the measurement.
//
//   build/bench/validate_bench [--benchmark_repetitions=N]
//
// A second measure reads the size of a 2048 x 2048 PNG from its header alone.
#include <filesystem>
#include <string>

#include <benchmark/benchmark.h>
#include <zlib.h>

#include "core/fileio.h"
#include "core/strtools.h"
#include "filesystem/filesystem.h"
#include "imaging/imageload.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/core/sessionfile.h"
#include "testsupport/tool_host.h"
#include "toolframework/toolframework.h"

namespace
{
void PutBE32(std::string &out, uint32_t v)
{
	for (int shift = 24; shift >= 0; shift -= 8)
		out += char(v >> shift);
}

void PutChunk(std::string &out, const char *type, const std::string &data)
{
	PutBE32(out, (uint32_t)data.size());
	const std::string body = std::string(type, 4) + data;
	out += body;
	PutBE32(out, (uint32_t)crc32(0, (const Bytef *)body.data(), (uInt)body.size()));
}

// An RGB PNG with a gradient, compressed quickly.
std::string MakePng(int width, int height, int seed)
{
	std::string raw;
	raw.resize((size_t)height * (1 + (size_t)width * 3));
	size_t at = 0;
	for (int y = 0; y < height; ++y)
	{
		raw[at++] = 0;
		for (int x = 0; x < width; ++x)
		{
			raw[at++] = char((x + seed) & 0xff);
			raw[at++] = char((y + seed * 7) & 0xff);
			raw[at++] = char(seed * 31);
		}
	}
	uLongf size = compressBound((uLong)raw.size());
	std::string packed(size, '\0');
	compress2((Bytef *)packed.data(), &size, (const Bytef *)raw.data(), (uLong)raw.size(), 1);
	packed.resize(size);
	std::string out("\x89PNG\r\n\x1a\n", 8);
	std::string ihdr;
	PutBE32(ihdr, (uint32_t)width);
	PutBE32(ihdr, (uint32_t)height);
	ihdr += std::string("\x08\x02\x00\x00\x00", 5);
	PutChunk(out, "IHDR", ihdr);
	PutChunk(out, "IDAT", packed);
	PutChunk(out, "IEND", "");
	return out;
}

// A 24-bit BMP of one grey.
std::string MakeBmp(int width, int height)
{
	const uint32_t rowBytes = (uint32_t)((width * 3 + 3) & ~3), dataSize = rowBytes * (uint32_t)height;
	std::string out = "BM";
	auto le = [&](uint32_t v, int bytes) {
		for (int i = 0; i < bytes; ++i)
			out += char(v >> (8 * i));
	};
	le(54 + dataSize, 4);
	le(0, 4);
	le(54, 4);
	le(40, 4);
	le((uint32_t)width, 4);
	le((uint32_t)height, 4);
	le(1, 2);
	le(24, 2);
	le(0, 4);
	le(dataSize, 4);
	le(2835, 4);
	le(2835, 4);
	le(0, 4);
	le(0, 4);
	out += std::string(dataSize, '\x60');
	return out;
}

int CountFileInputs(const CMintyardCfgElement *pElement)
{
	int n = dynamic_cast<const CMintyardCfgFilename *>(pElement) ? 1 : 0;
	if (const CMintyardCfgElementContainer *pContainer = pElement->AsContainer())
	{
		for (const CMintyardCfgElement *pChild : pContainer->GetChildren())
			n += CountFileInputs(pChild);
	}
	return n;
}

struct BenchState_t
{
	std::string m_Folder;
	CTestToolHost m_Host;
	std::unique_ptr<CMintyardImportSession> m_pSession;
	std::string m_SessionPath;
	int m_nFiles = 0;
	bool m_bReady = false;
	std::string m_Error;

	std::string Write(const std::string &name, const std::string &bytes)
	{
		const std::string path = m_Folder + "/" + name;
		std::filesystem::create_directories(std::filesystem::path(path).parent_path());
		Plat_WriteFileAtomic(path.c_str(), bytes.data(), bytes.size());
		++m_nFiles;
		return path;
	}

	void Fill(CMintyardCfgElement *pElement, int &nIndex)
	{
		if (auto *pImage = dynamic_cast<CMintyardCfg_ZarnImageSet::CImage *>(pElement))
		{
			const auto *t = pImage->GetImageTemplate();
			const int w = t->exact_width > 0 ? t->exact_width : 512, h = t->exact_height > 0 ? t->exact_height : 256;
			const bool bBmp = t->image_type == MINTYARD_IMAGE_TYPE_BMP;
			const int n = nIndex++;
			pImage->SetValue(Write(V_Format("images/%d.%s", n, bBmp ? "bmp" : "png"), bBmp ? MakeBmp(w, h) : MakePng(w, h, n)).c_str());
		}
		else if (auto *pEmoticon = dynamic_cast<CMintyardCfg_ZarnImageSet::CEmoticonImage *>(pElement))
		{
			const int n = nIndex++;
			pEmoticon->SetValue(Write(V_Format("emoticons/%d.png", n), MakePng(128, 32, n)).c_str());
		}
		else if (auto *pFile = dynamic_cast<CMintyardCfgFilename *>(pElement))
		{
			// Textures are the inputs directly under a material.
			const bool bTexture = dynamic_cast<CMintyardCfg_ZarnMaterial *>(pFile->GetParent()) != nullptr;
			const int n = nIndex++;
			if (bTexture)
				pFile->SetValue(Write(V_Format("textures/%d_%s.png", n, pFile->GetTemplateId().c_str()), MakePng(2048, 2048, n)).c_str());
			else
				pFile->SetValue(Write(V_Format("sources/%d_%s.fbx", n, pFile->GetTemplateId().c_str()), std::string(64 * 1024, 'f')).c_str());
		}
		if (CMintyardCfgElementContainer *pContainer = pElement->AsContainer())
		{
			for (CMintyardCfgElement *pChild : CUtlVector<CMintyardCfgElement *>(pContainer->GetChildren()))
				Fill(pChild, nIndex);
		}
	}

	bool Setup()
	{
		char pattern[] = "/tmp/mintyard_validate_bench_XXXXXX";
		if (!mkdtemp(pattern))
			return Fail("cannot make a temporary folder");
		m_Folder = pattern;
		CUtlString error;
		if (!m_Host.Start(MINTYARD_SOURCE_DIR "/sample/game/zarn", m_Folder + "/settings", &error))
			return Fail(error.c_str());
		int nBest = -1;
		for (const auto &entry : std::filesystem::directory_iterator(MINTYARD_SOURCE_DIR "/sample/sessions"))
		{
			const std::string file = entry.path().filename().string();
			if (file.size() < 12 || file.compare(file.size() - 12, 12, ".session.txt") != 0)
				continue;
			auto pSession = std::make_unique<CMintyardImportSession>();
			ImportMessageList list;
			pSession->GetCatalogue().LoadTemplates(list);
			LoadContext ctx; // sample sessions name their art relative to their folder
			ctx.rewritePaths = true;
			ctx.basePath = entry.path().parent_path().string();
			if (!LoadSessionFile(*pSession, ctx, entry.path().c_str(), list))
				return Fail("cannot load " + entry.path().string());
			const int nInputs = CountFileInputs(pSession.get());
			if (nInputs > nBest)
			{
				nBest = nInputs;
				m_pSession = std::move(pSession);
				m_SessionPath = entry.path().string();
			}
		}
		if (!m_pSession)
			return Fail("no sample session");
		int nIndex = 0;
		Fill(m_pSession.get(), nIndex);
		m_bReady = true;
		return true;
	}
	bool Fail(const std::string &text)
	{
		m_Error = text;
		return false;
	}
	~BenchState_t()
	{
		m_pSession.reset();
		std::error_code ignored;
		if (!m_Folder.empty())
			std::filesystem::remove_all(m_Folder, ignored);
	}
};

BenchState_t &State()
{
	static BenchState_t s_State;
	static bool s_bStarted = (s_State.Setup(), true);
	(void)s_bStarted;
	return s_State;
}

void BM_ValidateAllLargestSampleSession(benchmark::State &state)
{
	BenchState_t &s = State();
	if (!s.m_bReady)
	{
		state.SkipWithError(s.m_Error.c_str());
		return;
	}
	ImportMessageList list;
	for (auto _ : state)
	{
		s.m_pSession->ValidateAll(list, false);
		benchmark::DoNotOptimize(list.Count());
	}
	state.counters["files"] = s.m_nFiles;
	state.counters["messages"] = list.Count();
	state.SetLabel(std::filesystem::path(s.m_SessionPath).filename().string());
}
BENCHMARK(BM_ValidateAllLargestSampleSession)->Unit(benchmark::kMicrosecond);

// The size of a 2048 x 2048 PNG texture of the session, read from its header: microseconds,
// where decoding its 12 MB of pixels would take tens of milliseconds.
void BM_ReadImageSize2048(benchmark::State &state)
{
	BenchState_t &s = State();
	if (!s.m_bReady)
	{
		state.SkipWithError(s.m_Error.c_str());
		return;
	}
	const std::string path = s.m_Folder + "/texture_2048.png";
	const std::string bytes = MakePng(2048, 2048, 5);
	Plat_WriteFileAtomic(path.c_str(), bytes.data(), bytes.size());
	ImageFileInfo_t info;
	for (auto _ : state)
	{
		Image_ReadFileDeclaredSize(path.c_str(), info);
		benchmark::DoNotOptimize(info.nWidth);
	}
	if (info.nWidth != 2048 || info.nHeight != 2048)
		state.SkipWithError("wrong size read");
	state.counters["file_bytes"] = (double)bytes.size();
}
BENCHMARK(BM_ReadImageSize2048)->Unit(benchmark::kMicrosecond);
} // namespace

BENCHMARK_MAIN();
