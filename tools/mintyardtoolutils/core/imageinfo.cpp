#include "mintyardtoolutils/core/imageinfo.h"

#include <cstdio>
#include <cstring>
#include <vector>

#include "core/strtools.h"

namespace
{
// Images wider or higher than this are taken as a damaged header.
const int MAX_IMAGE_DIMENSION = 1 << 16;

uint32 BE32(const uint8 *p) { return (uint32(p[0]) << 24) | (uint32(p[1]) << 16) | (uint32(p[2]) << 8) | p[3]; }
uint32 BE16(const uint8 *p) { return (uint32(p[0]) << 8) | p[1]; }
uint32 LE32(const uint8 *p) { return uint32(p[0]) | (uint32(p[1]) << 8) | (uint32(p[2]) << 16) | (uint32(p[3]) << 24); }
uint32 LE16(const uint8 *p) { return uint32(p[0]) | (uint32(p[1]) << 8); }

// Reads forward through a file (or memory) on demand, so that JPEG markers can be skipped
// without reading the data they jump over.
class CHeaderSource
{
public:
	// The first bytes of a file are read once; every header but a JPEG's lies within them.
	explicit CHeaderSource(FILE *fp) : m_pFile(fp) { m_nPrefix = fread(m_Prefix, 1, sizeof(m_Prefix), fp); }
	CHeaderSource(const void *pData, size_t nSize) : m_pData((const uint8 *)pData), m_nSize(nSize) {}

	// Copies n bytes at offset into out; false when the source is shorter.
	bool Read(uint64 offset, void *out, size_t n)
	{
		if (m_pData)
		{
			if (offset > m_nSize || n > m_nSize - offset)
				return false;
			memcpy(out, m_pData + offset, n);
			return true;
		}
		if (offset <= m_nPrefix && n <= m_nPrefix - offset)
		{
			memcpy(out, m_Prefix + offset, n);
			return true;
		}
		if (m_nPrefix < sizeof(m_Prefix))
			return false; // the whole file is in the prefix
		if (fseek(m_pFile, (long)offset, SEEK_SET) != 0)
			return false;
		return fread(out, 1, n, m_pFile) == n;
	}

private:
	FILE *m_pFile = nullptr;
	uint8 m_Prefix[256];
	size_t m_nPrefix = 0;
	const uint8 *m_pData = nullptr;
	size_t m_nSize = 0;
};

bool Fail(CUtlString *pError, const char *pszName, const char *pszWhat)
{
	if (pError)
		*pError = V_Format("%s: %s", pszName, pszWhat);
	return false;
}

bool CheckSize(MintyardImageInfo_t &info, int w, int h, CUtlString *pError, const char *pszName)
{
	if (w <= 0 || h <= 0 || w > MAX_IMAGE_DIMENSION || h > MAX_IMAGE_DIMENSION)
		return Fail(pError, pszName, V_Format("image size %d x %d is not valid", w, h).c_str());
	info.width = w;
	info.height = h;
	return true;
}

bool ReadPNG(CHeaderSource &src, MintyardImageInfo_t &info, CUtlString *pError, const char *pszName)
{
	// Signature, then the first chunk must be IHDR with 13 bytes of data.
	uint8 h[33];
	if (!src.Read(0, h, sizeof(h)))
		return Fail(pError, pszName, "PNG file is too short for its header");
	if (BE32(h + 8) != 13 || memcmp(h + 12, "IHDR", 4) != 0)
		return Fail(pError, pszName, "PNG file does not start with an IHDR chunk");
	const uint32 w = BE32(h + 16), hgt = BE32(h + 20);
	const uint8 bitDepth = h[24], colorType = h[25];
	const bool bDepthOk = bitDepth == 1 || bitDepth == 2 || bitDepth == 4 || bitDepth == 8 || bitDepth == 16;
	const bool bColorOk = colorType == 0 || colorType == 2 || colorType == 3 || colorType == 4 || colorType == 6;
	if (!bDepthOk || !bColorOk || h[26] != 0 || h[27] != 0 || h[28] > 1)
		return Fail(pError, pszName, "PNG header has an unknown pixel format");
	info.kind = MINTYARD_IMAGE_PNG;
	return CheckSize(info, w > 0x7fffffffu ? -1 : (int)w, hgt > 0x7fffffffu ? -1 : (int)hgt, pError, pszName);
}

bool ReadBMP(CHeaderSource &src, MintyardImageInfo_t &info, CUtlString *pError, const char *pszName)
{
	uint8 h[26];
	if (!src.Read(0, h, 18))
		return Fail(pError, pszName, "BMP file is too short for its header");
	const uint32 dibSize = LE32(h + 14);
	int w, hgt;
	if (dibSize == 12)
	{
		if (!src.Read(0, h, 26))
			return Fail(pError, pszName, "BMP file is too short for its header");
		w = (int)LE16(h + 18);
		hgt = (int)LE16(h + 20);
	}
	else if (dibSize >= 40 && dibSize <= 124)
	{
		if (!src.Read(0, h, 26))
			return Fail(pError, pszName, "BMP file is too short for its header");
		w = (int32)LE32(h + 18);
		hgt = (int32)LE32(h + 22);
		if (hgt < 0 && hgt != INT32_MIN)
			hgt = -hgt; // top-down rows
	}
	else
		return Fail(pError, pszName, "BMP file has an unknown header size");
	info.kind = MINTYARD_IMAGE_BMP;
	return CheckSize(info, w, hgt, pError, pszName);
}

bool ReadGIF(CHeaderSource &src, MintyardImageInfo_t &info, CUtlString *pError, const char *pszName)
{
	uint8 h[10];
	if (!src.Read(0, h, sizeof(h)))
		return Fail(pError, pszName, "GIF file is too short for its header");
	info.kind = MINTYARD_IMAGE_GIF;
	return CheckSize(info, (int)LE16(h + 6), (int)LE16(h + 8), pError, pszName);
}

bool ReadPSD(CHeaderSource &src, MintyardImageInfo_t &info, CUtlString *pError, const char *pszName)
{
	uint8 h[26];
	if (!src.Read(0, h, sizeof(h)))
		return Fail(pError, pszName, "PSD file is too short for its header");
	if (BE16(h + 4) != 1 && BE16(h + 4) != 2)
		return Fail(pError, pszName, "PSD file has an unknown version");
	info.kind = MINTYARD_IMAGE_PSD;
	const uint32 hgt = BE32(h + 14), w = BE32(h + 18);
	return CheckSize(info, w > 0x7fffffffu ? -1 : (int)w, hgt > 0x7fffffffu ? -1 : (int)hgt, pError, pszName);
}

bool ReadJPEG(CHeaderSource &src, MintyardImageInfo_t &info, CUtlString *pError, const char *pszName)
{
	// Walk the markers after SOI until a start-of-frame marker; every other segment is skipped
	// by its length. A bounded number of segments keeps a hostile file from taking long.
	uint64 offset = 2;
	for (int nSegments = 0; nSegments < 4096; ++nSegments)
	{
		uint8 m[2];
		if (!src.Read(offset, m, 2))
			return Fail(pError, pszName, "JPEG file ends before its frame header");
		if (m[0] != 0xFF)
			return Fail(pError, pszName, "JPEG file has a damaged marker");
		if (m[1] == 0xFF)
		{
			offset += 1; // fill byte
			continue;
		}
		const uint8 marker = m[1];
		offset += 2;
		if (marker == 0xD8 || marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7))
			continue; // markers without a length
		if (marker == 0xD9 || marker == 0xDA)
			return Fail(pError, pszName, "JPEG file has no frame header before its data");
		uint8 len[2];
		if (!src.Read(offset, len, 2))
			return Fail(pError, pszName, "JPEG file ends inside a segment");
		const uint32 segLength = BE16(len);
		if (segLength < 2)
			return Fail(pError, pszName, "JPEG file has a segment of a bad length");
		const bool bFrame = marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
		if (bFrame)
		{
			uint8 f[7];
			if (segLength < 8 || !src.Read(offset, f, sizeof(f)))
				return Fail(pError, pszName, "JPEG frame header is too short");
			info.kind = MINTYARD_IMAGE_JPEG;
			return CheckSize(info, (int)BE16(f + 5), (int)BE16(f + 3), pError, pszName);
		}
		offset += segLength;
	}
	return Fail(pError, pszName, "JPEG file has too many segments before its frame header");
}

bool ReadTGA(CHeaderSource &src, MintyardImageInfo_t &info, CUtlString *pError, const char *pszName)
{
	uint8 h[18];
	if (!src.Read(0, h, sizeof(h)))
		return Fail(pError, pszName, "TGA file is too short for its header");
	info.kind = MINTYARD_IMAGE_TGA;
	return CheckSize(info, (int)LE16(h + 12), (int)LE16(h + 14), pError, pszName);
}

// TGA has no signature: the header's fields must hold values that a TGA writer can give.
bool LooksLikeTGA(const uint8 *h, size_t n)
{
	if (n < 18)
		return false;
	const uint8 colorMapType = h[1], imageType = h[2], depth = h[16];
	if (colorMapType > 1)
		return false;
	const bool bTypeOk = imageType == 1 || imageType == 2 || imageType == 3 || imageType == 9 || imageType == 10 || imageType == 11;
	if (!bTypeOk)
		return false;
	if ((imageType == 1 || imageType == 9) != (colorMapType == 1))
		return false;
	return depth == 8 || depth == 15 || depth == 16 || depth == 24 || depth == 32;
}

bool ReadAny(CHeaderSource &src, MintyardImageInfo_t &info, CUtlString *pError, const char *pszName)
{
	info = MintyardImageInfo_t();
	uint8 magic[18] = {};
	size_t n = 0;
	while (n < sizeof(magic) && src.Read(n, magic + n, 1))
		++n;
	if (n == 0)
		return Fail(pError, pszName, "file is empty");
	static const uint8 s_PNG[8] = { 0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n' };
	if (n >= 8 && memcmp(magic, s_PNG, 8) == 0)
		return ReadPNG(src, info, pError, pszName);
	if (n >= 2 && magic[0] == 'B' && magic[1] == 'M')
		return ReadBMP(src, info, pError, pszName);
	if (n >= 6 && (memcmp(magic, "GIF87a", 6) == 0 || memcmp(magic, "GIF89a", 6) == 0))
		return ReadGIF(src, info, pError, pszName);
	if (n >= 3 && magic[0] == 0xFF && magic[1] == 0xD8 && magic[2] == 0xFF)
		return ReadJPEG(src, info, pError, pszName);
	if (n >= 4 && memcmp(magic, "8BPS", 4) == 0)
		return ReadPSD(src, info, pError, pszName);
	if (LooksLikeTGA(magic, n))
		return ReadTGA(src, info, pError, pszName);
	return Fail(pError, pszName, "not an image of a known kind");
}
} // namespace

bool ReadImageInfo(const char *pszPath, MintyardImageInfo_t &info, CUtlString *pError)
{
	info = MintyardImageInfo_t();
	if (!pszPath || !*pszPath)
		return Fail(pError, "<none>", "no file name");
	FILE *fp = fopen(pszPath, "rb");
	if (fp)
		setvbuf(fp, nullptr, _IONBF, 0); // reads are few and small: no 4 KB buffer to fill
	if (!fp)
		return Fail(pError, pszPath, "cannot open the file");
	CHeaderSource src(fp);
	const bool bOk = ReadAny(src, info, pError, pszPath);
	fclose(fp);
	return bOk;
}

bool ReadImageInfoFromMemory(const void *pData, size_t nSize, MintyardImageInfo_t &info, CUtlString *pError, const char *pszName)
{
	CHeaderSource src(pData, nSize);
	return ReadAny(src, info, pError, pszName ? pszName : "<memory>");
}
