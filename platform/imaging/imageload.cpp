#include "imaging/imageload.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include <stb_image.h>

#include "core/strtools.h"
#include "imaging/imagesource.h"
#include "imaging/imagestructure.h"

namespace
{
// stb reads through these callbacks. Where a file ends early stb goes on with zero bytes; the
// reader notes every request past the end, which is how a truncated file is told from a whole one.
struct StbReader_t
{
	IImageByteSource *pSource = nullptr;
	uint64 nPosition = 0;
	bool bReadPastEnd = false;
};

int StbRead(void *pUser, char *pData, int nSize)
{
	StbReader_t &reader = *(StbReader_t *)pUser;
	if (nSize <= 0)
		return 0;
	const size_t nRead = reader.pSource->ReadAt(reader.nPosition, pData, (size_t)nSize);
	if (nRead == 0)
		reader.bReadPastEnd = true;
	reader.nPosition += nRead;
	return (int)nRead;
}

void StbSkip(void *pUser, int n)
{
	StbReader_t &reader = *(StbReader_t *)pUser;
	if (n < 0)
		reader.nPosition = (uint64)-n > reader.nPosition ? 0 : reader.nPosition - (uint64)-n;
	else
		reader.nPosition += (uint64)n;
}

int StbEof(void *pUser)
{
	const StbReader_t &reader = *(const StbReader_t *)pUser;
	return reader.nPosition >= reader.pSource->Size();
}

const stbi_io_callbacks s_StbCallbacks = { StbRead, StbSkip, StbEof };

const char *NameOr(const char *pName)
{
	return (pName && *pName) ? pName : "(memory)";
}

void SetError(CUtlString *pError, CUtlString &&text)
{
	if (pError)
		*pError = std::move(text);
}


const uint8 s_PNGSignature[8] = { 0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n' };

// The TGA header has no signature; these are the header values that a TGA reader takes.
bool LooksLikeTGAHeader(const uint8 *p, size_t nSize)
{
	if (nSize < 18)
		return false;
	const uint8 nColorMapType = p[1];
	const uint8 nImageType = p[2];
	const uint8 nColorMapBits = p[7];
	const uint8 nPixelBits = p[16];
	if (nColorMapType > 1)
		return false;
	if (nColorMapType == 1)
	{
		if (nImageType != 1 && nImageType != 9)
			return false;
		if (nColorMapBits != 8 && nColorMapBits != 15 && nColorMapBits != 16 && nColorMapBits != 24 && nColorMapBits != 32)
			return false;
		return nPixelBits == 8 || nPixelBits == 16;
	}
	if (nImageType != 2 && nImageType != 3 && nImageType != 10 && nImageType != 11)
		return false;
	return nPixelBits == 8 || nPixelBits == 15 || nPixelBits == 16 || nPixelBits == 24 || nPixelBits == 32;
}

ImageFileFormat_t IdentifyPrefix(const uint8 *p, size_t nSize)
{
	if (nSize >= 8 && memcmp(p, s_PNGSignature, 8) == 0)
		return IMAGE_FILE_PNG;
	if (nSize >= 3 && p[0] == 0xff && p[1] == 0xd8 && p[2] == 0xff)
		return IMAGE_FILE_JPEG;
	if (nSize >= 6 && (memcmp(p, "GIF87a", 6) == 0 || memcmp(p, "GIF89a", 6) == 0))
		return IMAGE_FILE_GIF;
	if (nSize >= 2 && p[0] == 'B' && p[1] == 'M')
		return IMAGE_FILE_BMP;
	if (nSize >= 4 && memcmp(p, "8BPS", 4) == 0)
		return IMAGE_FILE_PSD;
	if (LooksLikeTGAHeader(p, nSize))
		return IMAGE_FILE_TGA;
	return IMAGE_FILE_UNKNOWN;
}

// Finds the first frame header of a JPEG: walks the marker segments from the start.
bool ReadJPEGSize(IImageByteSource &source, uint64 &nWidth, uint64 &nHeight, CUtlString &why)
{
	uint64 nOffset = 2;
	for (;;)
	{
		uint8 marker[2];
		if (!ImageReadExactly(source, nOffset, marker, 2))
		{
			why = V_Format("the file ends at byte %llu before a frame header", (unsigned long long)source.Size());
			return false;
		}
		if (marker[0] != 0xff)
		{
			why = V_Format("expected a marker at offset %llu, found byte 0x%02x", (unsigned long long)nOffset, marker[0]);
			return false;
		}
		if (marker[1] == 0xff)
		{
			++nOffset; // fill byte
			continue;
		}
		const uint8 nCode = marker[1];
		if (nCode == 0x01 || nCode == 0xd8 || (nCode >= 0xd0 && nCode <= 0xd7))
		{
			nOffset += 2; // markers without a segment
			continue;
		}
		if (nCode == 0xd9 || nCode == 0xda)
		{
			why = V_Format("marker 0x%02x at offset %llu comes before any frame header", nCode, (unsigned long long)nOffset);
			return false;
		}
		uint8 length[2];
		if (!ImageReadExactly(source, nOffset + 2, length, 2))
		{
			why = V_Format("the file ends inside the segment at offset %llu", (unsigned long long)nOffset);
			return false;
		}
		const uint32 nLength = ImageGetU16BE(length);
		if (nLength < 2)
		{
			why = V_Format("segment 0x%02x at offset %llu has the length %u", nCode, (unsigned long long)nOffset, nLength);
			return false;
		}
		const bool bFrameHeader = nCode >= 0xc0 && nCode <= 0xcf && nCode != 0xc4 && nCode != 0xc8 && nCode != 0xcc;
		if (bFrameHeader)
		{
			uint8 frame[5];
			if (nLength < 7 || !ImageReadExactly(source, nOffset + 4, frame, 5))
			{
				why = V_Format("the frame header at offset %llu is cut off", (unsigned long long)nOffset);
				return false;
			}
			nHeight = ImageGetU16BE(frame + 1);
			nWidth = ImageGetU16BE(frame + 3);
			return true;
		}
		nOffset += 2 + nLength;
	}
}

// Reads the declared size from the format's own header.
bool ReadHeaderSize(IImageByteSource &source, ImageFileFormat_t format, uint64 &nWidth, uint64 &nHeight, CUtlString &why)
{
	uint8 header[32] = {};
	const size_t nHave = source.ReadAt(0, header, sizeof(header));
	switch (format)
	{
	case IMAGE_FILE_PNG:
	{
		uint64 nOffset = 8;
		for (int nChunk = 0; nChunk < 2; ++nChunk)
		{
			uint8 chunk[16];
			if (!ImageReadExactly(source, nOffset, chunk, 16))
			{
				why = "the file ends before the IHDR chunk";
				return false;
			}
			if (memcmp(chunk + 4, "CgBI", 4) == 0 && nChunk == 0)
			{
				nOffset += 12 + (uint64)ImageGetU32BE(chunk);
				continue;
			}
			if (memcmp(chunk + 4, "IHDR", 4) != 0 || ImageGetU32BE(chunk) != 13)
			{
				why = "the first chunk is not a 13-byte IHDR";
				return false;
			}
			nWidth = ImageGetU32BE(chunk + 8);
			nHeight = ImageGetU32BE(chunk + 12);
			return true;
		}
		why = "the first chunk is not a 13-byte IHDR";
		return false;
	}
	case IMAGE_FILE_JPEG:
		return ReadJPEGSize(source, nWidth, nHeight, why);
	case IMAGE_FILE_GIF:
		if (nHave < 10)
			break;
		nWidth = ImageGetU16LE(header + 6);
		nHeight = ImageGetU16LE(header + 8);
		return true;
	case IMAGE_FILE_BMP:
	{
		if (nHave < 26)
			break;
		const uint32 nHeaderSize = ImageGetU32LE(header + 14);
		if (nHeaderSize == 12)
		{
			nWidth = ImageGetU16LE(header + 18);
			nHeight = ImageGetU16LE(header + 20);
			return true;
		}
		if (nHeaderSize < 16)
		{
			why = V_Format("unknown BMP header size %u", nHeaderSize);
			return false;
		}
		const int64 nSignedWidth = (int32)ImageGetU32LE(header + 18);
		const int64 nSignedHeight = (int32)ImageGetU32LE(header + 22);
		nWidth = (uint64)(nSignedWidth < 0 ? -nSignedWidth : nSignedWidth);
		nHeight = (uint64)(nSignedHeight < 0 ? -nSignedHeight : nSignedHeight); // negative: rows from the top
		return true;
	}
	case IMAGE_FILE_PSD:
		if (nHave < 22)
			break;
		nHeight = ImageGetU32BE(header + 14);
		nWidth = ImageGetU32BE(header + 18);
		return true;
	case IMAGE_FILE_TGA:
		if (nHave < 18)
			break;
		nWidth = ImageGetU16LE(header + 12);
		nHeight = ImageGetU16LE(header + 14);
		return true;
	case IMAGE_FILE_UNKNOWN:
		break;
	}
	why = "the header is cut off";
	return false;
}

bool ReadDeclaredSize(IImageByteSource &source, const char *pName, ImageFileInfo_t &info, CUtlString &error, const ImageLoadLimits_t &limits)
{
	info = ImageFileInfo_t();
	pName = NameOr(pName);
	if (source.Size() > limits.nMaxFileBytes)
	{
		error = V_Format("%s: the file holds %llu bytes, more than the %llu that an image may have", pName,
			(unsigned long long)source.Size(), (unsigned long long)limits.nMaxFileBytes);
		return false;
	}
	uint8 prefix[32] = {};
	const size_t nPrefix = source.ReadAt(0, prefix, sizeof(prefix));
	info.format = IdentifyPrefix(prefix, nPrefix);
	if (info.format == IMAGE_FILE_UNKNOWN)
	{
		if (nPrefix == 0)
			error = V_Format("%s: the file is empty", pName);
		else
			error = V_Format("%s: not an image of a known format (TGA, PNG, PSD, BMP, JPEG or GIF)", pName);
		return false;
	}
	const char *pFormat = ImageFileFormatName(info.format);

	uint64 nWidth = 0, nHeight = 0;
	CUtlString why;
	if (!ReadHeaderSize(source, info.format, nWidth, nHeight, why))
	{
		error = V_Format("%s: damaged %s header: %s", pName, pFormat, why.c_str());
		return false;
	}
	if (nWidth <= (uint64)INT_MAX && nHeight <= (uint64)INT_MAX)
	{
		info.nWidth = (int)nWidth;
		info.nHeight = (int)nHeight;
	}
	if (nWidth == 0 || nHeight == 0)
	{
		error = V_Format("%s: the %s header declares an empty image of %llux%llu pixels", pName, pFormat,
			(unsigned long long)nWidth, (unsigned long long)nHeight);
		return false;
	}
	if (nWidth > (uint64)limits.nMaxSide || nHeight > (uint64)limits.nMaxSide)
	{
		error = V_Format("%s: the %s header declares %llux%llu pixels, more than %d pixels a side", pName, pFormat,
			(unsigned long long)nWidth, (unsigned long long)nHeight, limits.nMaxSide);
		return false;
	}
	const uint64 nDecodedBytes = nWidth * nHeight * 4;
	if (nDecodedBytes > limits.nMaxDecodedBytes)
	{
		error = V_Format("%s: the %s header declares %llux%llu pixels, %.1f MiB decoded, more than %.1f MiB", pName, pFormat,
			(unsigned long long)nWidth, (unsigned long long)nHeight, (double)nDecodedBytes / 1048576.0,
			(double)limits.nMaxDecodedBytes / 1048576.0);
		return false;
	}
	return true;
}

bool ReadInfo(IImageByteSource &source, const char *pName, ImageFileInfo_t &info, CUtlString &error, const ImageLoadLimits_t &limits)
{
	pName = NameOr(pName);
	if (!ReadDeclaredSize(source, pName, info, error, limits))
		return false;
	const char *pFormat = ImageFileFormatName(info.format);
	const uint64 nWidth = (uint64)info.nWidth, nHeight = (uint64)info.nHeight;

	// The decoder's own reading of the header has to agree with ours.
	StbReader_t reader;
	reader.pSource = &source;
	int nStbWidth = 0, nStbHeight = 0, nChannels = 0;
	if (!stbi_info_from_callbacks(&s_StbCallbacks, &reader, &nStbWidth, &nStbHeight, &nChannels))
	{
		const char *pReason = stbi_failure_reason();
		error = V_Format("%s: cannot read the %s header: %s", pName, pFormat, pReason ? pReason : "unknown reason");
		return false;
	}
	if (info.format == IMAGE_FILE_BMP && nStbHeight < 0)
		nStbHeight = -nStbHeight; // stb's header reader gives rows from the top as a negative height
	if ((uint64)nStbWidth != nWidth || (uint64)nStbHeight != nHeight)
	{
		error = V_Format("%s: the %s header is inconsistent: %llux%llu pixels, decodes as %dx%d", pName, pFormat,
			(unsigned long long)nWidth, (unsigned long long)nHeight, nStbWidth, nStbHeight);
		return false;
	}
	info.nChannels = nChannels;
	return true;
}

bool Load(IImageByteSource &source, const char *pName, CImageRGBA8 &out, CUtlString &error, const ImageLoadLimits_t &limits,
	ImageFileInfo_t *pInfo)
{
	out.Clear();
	pName = NameOr(pName);
	ImageFileInfo_t info;
	const bool bInfo = ReadInfo(source, pName, info, error, limits);
	if (pInfo)
		*pInfo = info;
	if (!bInfo)
		return false;
	const char *pFormat = ImageFileFormatName(info.format);

	if (!Image_CheckStructure(source, info.format, pName, error))
		return false;

	StbReader_t reader;
	reader.pSource = &source;
	int nWidth = 0, nHeight = 0, nChannels = 0;
	stbi_uc *pPixels = stbi_load_from_callbacks(&s_StbCallbacks, &reader, &nWidth, &nHeight, &nChannels, 4);
	if (!pPixels)
	{
		const char *pReason = stbi_failure_reason();
		error = V_Format("%s: cannot decode the %s image: %s", pName, pFormat, pReason ? pReason : "unknown reason");
		return false;
	}
	bool bOk = true;
	if (nWidth != info.nWidth || nHeight != info.nHeight)
	{
		error = V_Format("%s: the %s image decodes as %dx%d pixels, its header declares %dx%d", pName, pFormat, nWidth,
			nHeight, info.nWidth, info.nHeight);
		bOk = false;
	}
	else if (reader.bReadPastEnd)
	{
		error = V_Format("%s: the %s data ends early, after %llu bytes (truncated file?)", pName, pFormat,
			(unsigned long long)source.Size());
		bOk = false;
	}
	else if (!out.Init(nWidth, nHeight))
	{
		error = V_Format("%s: out of memory for %dx%d pixels", pName, nWidth, nHeight);
		bOk = false;
	}
	else
	{
		memcpy(out.Pixels(), pPixels, out.SizeInBytes());
	}
	stbi_image_free(pPixels);
	return bOk;
}
} // namespace

const char *ImageFileFormatName(ImageFileFormat_t format)
{
	switch (format)
	{
	case IMAGE_FILE_TGA: return "TGA";
	case IMAGE_FILE_PNG: return "PNG";
	case IMAGE_FILE_PSD: return "PSD";
	case IMAGE_FILE_BMP: return "BMP";
	case IMAGE_FILE_JPEG: return "JPEG";
	case IMAGE_FILE_GIF: return "GIF";
	case IMAGE_FILE_UNKNOWN: break;
	}
	return "unknown";
}

ImageFileFormat_t Image_IdentifyFormat(const void *pData, size_t nSize)
{
	if (!pData)
		return IMAGE_FILE_UNKNOWN;
	return IdentifyPrefix((const uint8 *)pData, nSize);
}

bool Image_ReadInfo(const void *pData, size_t nSize, const char *pName, ImageFileInfo_t &info, CUtlString *pError,
	const ImageLoadLimits_t &limits)
{
	CImageMemorySource source(pData, nSize);
	CUtlString error;
	if (ReadInfo(source, pName, info, error, limits))
		return true;
	SetError(pError, std::move(error));
	return false;
}

bool Image_ReadDeclaredSize(const void *pData, size_t nSize, const char *pName, ImageFileInfo_t &info, CUtlString *pError,
	const ImageLoadLimits_t &limits)
{
	CImageMemorySource source(pData, nSize);
	CUtlString error;
	if (ReadDeclaredSize(source, pName, info, error, limits))
		return true;
	SetError(pError, std::move(error));
	return false;
}

bool Image_ReadFileDeclaredSize(const char *pPath, ImageFileInfo_t &info, CUtlString *pError, const ImageLoadLimits_t &limits)
{
	info = ImageFileInfo_t();
	CImageFileSource source;
	CUtlString error;
	if (source.Open(pPath, error) && ReadDeclaredSize(source, pPath, info, error, limits))
		return true;
	SetError(pError, std::move(error));
	return false;
}

bool Image_ReadFileInfo(const char *pPath, ImageFileInfo_t &info, CUtlString *pError, const ImageLoadLimits_t &limits)
{
	info = ImageFileInfo_t();
	CImageFileSource source;
	CUtlString error;
	if (source.Open(pPath, error) && ReadInfo(source, pPath, info, error, limits))
		return true;
	SetError(pError, std::move(error));
	return false;
}

bool Image_Load(const void *pData, size_t nSize, const char *pName, CImageRGBA8 &out, CUtlString *pError,
	const ImageLoadLimits_t &limits, ImageFileInfo_t *pInfo)
{
	CImageMemorySource source(pData, nSize);
	CUtlString error;
	if (Load(source, pName, out, error, limits, pInfo))
		return true;
	SetError(pError, std::move(error));
	return false;
}

bool Image_LoadFile(const char *pPath, CImageRGBA8 &out, CUtlString *pError, const ImageLoadLimits_t &limits,
	ImageFileInfo_t *pInfo)
{
	out.Clear();
	if (pInfo)
		*pInfo = ImageFileInfo_t();
	CImageFileSource source;
	CUtlString error;
	if (source.Open(pPath, error) && Load(source, pPath, out, error, limits, pInfo))
		return true;
	SetError(pError, std::move(error));
	return false;
}
