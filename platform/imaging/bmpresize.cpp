// The BMP road of rescaling, through SDL 2's surfaces. Only plain surfaces are used, so SDL
// needs no video device and is never initialised here.
#include <climits>
#include <cstring>

#include <SDL.h>

#include "core/fileio.h"
#include "core/strtools.h"
#include "imaging/imageload.h"
#include "imaging/imageresize.h"

namespace
{
// An SDL_RWops that writes into a CUtlBuffer; SDL_SaveBMP_RW seeks back to fill in the sizes
// of its header, so it has a position of its own.
struct BufferWriter_t
{
	CUtlBuffer *pBuffer;
	Sint64 nPosition;
};

Sint64 SDLCALL BufferSize(SDL_RWops *pOps)
{
	return (Sint64)((BufferWriter_t *)pOps->hidden.unknown.data1)->pBuffer->Size();
}

Sint64 SDLCALL BufferSeek(SDL_RWops *pOps, Sint64 nOffset, int nWhence)
{
	BufferWriter_t &writer = *(BufferWriter_t *)pOps->hidden.unknown.data1;
	Sint64 nBase = 0;
	if (nWhence == RW_SEEK_CUR)
		nBase = writer.nPosition;
	else if (nWhence == RW_SEEK_END)
		nBase = (Sint64)writer.pBuffer->Size();
	const Sint64 nPosition = nBase + nOffset;
	if (nPosition < 0)
		return SDL_SetError("seek before the start of the buffer");
	writer.nPosition = nPosition;
	return nPosition;
}

size_t SDLCALL BufferRead(SDL_RWops *, void *, size_t, size_t)
{
	SDL_SetError("the buffer is written, not read");
	return 0;
}

size_t SDLCALL BufferWrite(SDL_RWops *pOps, const void *pData, size_t nSize, size_t nCount)
{
	BufferWriter_t &writer = *(BufferWriter_t *)pOps->hidden.unknown.data1;
	if (nSize == 0 || nCount == 0)
		return 0;
	const size_t nBytes = nSize * nCount;
	CUtlBuffer &buffer = *writer.pBuffer;
	const size_t nEnd = (size_t)writer.nPosition + nBytes;
	if (nEnd > buffer.Size())
		buffer.SetSize(nEnd);
	memcpy(buffer.Base() + writer.nPosition, pData, nBytes);
	writer.nPosition = (Sint64)nEnd;
	return nCount;
}

int SDLCALL BufferClose(SDL_RWops *pOps)
{
	SDL_FreeRW(pOps);
	return 0;
}

SDL_RWops *OpenBufferWriter(BufferWriter_t &writer)
{
	SDL_RWops *pOps = SDL_AllocRW();
	if (!pOps)
		return nullptr;
	pOps->type = SDL_RWOPS_UNKNOWN;
	pOps->size = BufferSize;
	pOps->seek = BufferSeek;
	pOps->read = BufferRead;
	pOps->write = BufferWrite;
	pOps->close = BufferClose;
	pOps->hidden.unknown.data1 = &writer;
	return pOps;
}

// Loads from `pSource` (which this closes), rescales and saves into `out`.
BMPResizeResult_t ResizeLoaded(SDL_RWops *pSource, const char *pName, int nWidth, int nHeight, CUtlBuffer &out,
	CUtlString *pError)
{
	SDL_Surface *pLoaded = pSource ? SDL_LoadBMP_RW(pSource, 1) : nullptr;
	if (!pLoaded)
	{
		if (pError)
			*pError = V_Format("%s: cannot load the BMP: %s", pName, SDL_GetError());
		return BMP_RESIZE_FAILED;
	}
	if (pLoaded->w == nWidth && pLoaded->h == nHeight)
	{
		SDL_FreeSurface(pLoaded);
		return BMP_RESIZE_UNCHANGED;
	}
	const SDL_PixelFormat *pFormat = pLoaded->format;
	SDL_Surface *pScaled = nullptr;
	const bool bSizeOk = nWidth >= 1 && nHeight >= 1 && nWidth <= IMAGE_RESIZE_MAX_SIDE && nHeight <= IMAGE_RESIZE_MAX_SIDE &&
		(uint64)nWidth * (uint64)nHeight * 4 <= (256ull << 20);
	if (bSizeOk)
		pScaled = SDL_CreateRGBSurface(0, nWidth, nHeight, pFormat->BitsPerPixel, pFormat->Rmask, pFormat->Gmask,
			pFormat->Bmask, pFormat->Amask);
	if (!pScaled)
	{
		if (pError)
			*pError = V_Format("%s: cannot make a surface of %dx%d pixels: %s", pName, nWidth, nHeight,
				bSizeOk ? SDL_GetError() : "size out of range");
		SDL_FreeSurface(pLoaded);
		return BMP_RESIZE_UNCHANGED;
	}
	// The same pixel format means the same palette too; and the pixels are copied, not blended
	// over the new surface's transparent black.
	if (pFormat->palette)
		SDL_SetSurfacePalette(pScaled, pFormat->palette);
	SDL_SetSurfaceBlendMode(pLoaded, SDL_BLENDMODE_NONE);
	BMPResizeResult_t result = BMP_RESIZE_DONE;
	// SDL has no scaled blit between palettised surfaces; its stretch of the indices is one.
	const int nBlit = pFormat->palette ? SDL_SoftStretch(pLoaded, nullptr, pScaled, nullptr)
									   : SDL_UpperBlitScaled(pLoaded, nullptr, pScaled, nullptr);
	if (nBlit != 0)
	{
		if (pError)
			*pError = V_Format("%s: cannot rescale the BMP: %s", pName, SDL_GetError());
		result = BMP_RESIZE_FAILED;
	}
	else
	{
		CUtlBuffer encoded;
		BufferWriter_t writer = { &encoded, 0 };
		SDL_RWops *pWriter = OpenBufferWriter(writer);
		if (!pWriter || SDL_SaveBMP_RW(pScaled, pWriter, 1) != 0)
		{
			if (pError)
				*pError = V_Format("%s: cannot save the BMP: %s", pName, SDL_GetError());
			result = BMP_RESIZE_FAILED;
		}
		else
		{
			out = std::move(encoded);
		}
	}
	SDL_FreeSurface(pScaled);
	SDL_FreeSurface(pLoaded);
	return result;
}

bool CheckIsBMP(const ImageFileInfo_t &info, const char *pName, CUtlString *pError)
{
	if (info.format == IMAGE_FILE_BMP)
		return true;
	if (pError)
		*pError = V_Format("%s: not a BMP file (%s)", pName, ImageFileFormatName(info.format));
	return false;
}
} // namespace

BMPResizeResult_t Image_ResizeBMP(const void *pData, size_t nSize, const char *pName, int nWidth, int nHeight,
	CUtlBuffer &out, CUtlString *pError)
{
	if (!pName || !*pName)
		pName = "(memory)";
	ImageFileInfo_t info;
	if (!Image_ReadDeclaredSize(pData, nSize, pName, info, pError) || !CheckIsBMP(info, pName, pError))
		return BMP_RESIZE_FAILED;
	if (nSize > (size_t)INT_MAX)
	{
		if (pError)
			*pError = V_Format("%s: the BMP is too large to load", pName);
		return BMP_RESIZE_FAILED;
	}
	return ResizeLoaded(SDL_RWFromConstMem(pData, (int)nSize), pName, nWidth, nHeight, out, pError);
}

bool Image_ResizeBMPFile(const char *pPath, int nWidth, int nHeight, CUtlString *pError)
{
	ImageFileInfo_t info;
	if (!Image_ReadFileDeclaredSize(pPath, info, pError) || !CheckIsBMP(info, pPath, pError))
		return false;
	CUtlBuffer encoded;
	const BMPResizeResult_t result = ResizeLoaded(SDL_RWFromFile(pPath, "rb"), pPath, nWidth, nHeight, encoded, pError);
	if (result == BMP_RESIZE_FAILED)
		return false;
	if (result == BMP_RESIZE_UNCHANGED)
		return true;
	return Plat_WriteFileAtomic(pPath, encoded.Base(), encoded.Size(), pError);
}
