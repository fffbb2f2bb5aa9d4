#include "bdllib/packaddonfolder.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <vector>

#include "bdllib/packedstore.h"
#include "core/logging.h"
#include "core/strtools.h"
#include "filesystem/filesystem.h"

namespace
{
const char *const s_SkippedFiles[] = {
	"readonly_tools_asset_info.bin",
	"tools_asset_info.bin",
	"tools_thumbnail_cache.bin",
};

const char *const s_SkippedFolders[] = {
	"_bakeresourcecache",
	"_vrad3",
};

const char *const s_RefusedTexts[] = { ".bat", ".cmd", ".com", ".dll", ".exe", ".rar", ".reg", ".zip" };

const char kSeparator = '\\';

bool IsOneOf(const char *name, const char *const *list, size_t count)
{
	for (size_t i = 0; i < count; ++i)
	{
		if (V_stricmp(name, list[i]) == 0)
			return true;
	}
	return false;
}

struct CollectState_t
{
	IFileSystem *pFileSystem;
	std::vector<CUtlString> files;
	std::vector<CUtlString> openFolders; // real paths of the folders being walked, to stop link loops
	CUtlString packName;				 // file name of the pack, and its real path
	CUtlString packRealPath;
};

CUtlString RealPath(IFileSystem *pFileSystem, const CUtlString &path)
{
	char full[4096];
	if (!pFileSystem->RelativePathToFullPath(path.c_str(), nullptr, full, sizeof(full)))
		return CUtlString();
	CUtlString fixed = full;
	std::replace(fixed.begin(), fixed.end(), '\\', '/');
	char resolved[PATH_MAX];
	return realpath(fixed.c_str(), resolved) ? CUtlString(resolved) : CUtlString();
}

void CollectFiles(CollectState_t &state, const CUtlString &dir)
{
	const CUtlString real = RealPath(state.pFileSystem, dir);
	if (!real.empty())
	{
		if (std::find(state.openFolders.begin(), state.openFolders.end(), real) != state.openFolders.end())
		{
			Warning("Ignoring %s: it leads back into a folder being packed.\n", dir.c_str());
			return;
		}
		state.openFolders.push_back(real);
	}

	const CUtlString wildcard = V_Format("%s%c%s", dir.c_str(), kSeparator, "*.*");
	FileFindHandle_t hFind = FILESYSTEM_INVALID_FIND_HANDLE;
	for (const char *pName = state.pFileSystem->FindFirst(wildcard.c_str(), &hFind); pName; pName = state.pFileSystem->FindNext(hFind))
	{
		if (pName[0] == '.')
			continue;
		const bool bDirectory = state.pFileSystem->FindIsDirectory(hFind);
		if (!bDirectory && IsOneOf(pName, s_SkippedFiles, V_ARRAYSIZE(s_SkippedFiles)))
			continue;
		const CUtlString fullPath = V_Format("%s%c%s", dir.c_str(), kSeparator, pName);
		if (bDirectory)
		{
			if (!IsOneOf(pName, s_SkippedFolders, V_ARRAYSIZE(s_SkippedFolders)))
				CollectFiles(state, fullPath);
			continue;
		}
		// The pack itself, when it lies in the folder, is not packed into itself.
		if (!state.packRealPath.empty() && state.packName == pName && RealPath(state.pFileSystem, fullPath) == state.packRealPath)
			continue;
		state.files.push_back(fullPath);
	}
	state.pFileSystem->FindClose(hFind);
	if (!real.empty())
		state.openFolders.pop_back();
}

bool IsRefused(const CUtlString &fullPath)
{
	for (const char *text : s_RefusedTexts)
	{
		if (V_stristr(fullPath.c_str(), text))
			return true;
	}
	return false;
}

void AddToStore(IFileSystem *pFileSystem, CPackedStore &store, const CUtlString &fullPath, const char *pName, std::vector<uint8> &data)
{
	if (IsRefused(fullPath))
	{
		Warning("Ignoring %s: unsupported file type.\n", fullPath.c_str());
		return;
	}
	if (!pName || !*pName)
		pName = fullPath.c_str();

	FileHandle_t hFile = pFileSystem->Open(fullPath.c_str(), "rb");
	if (!hFile || !pFileSystem->IsOk(hFile))
		Plat_FatalError("error opening required file %s\n", fullPath.c_str());
	const int64 size = pFileSystem->Size(hFile);
	if (size < 0 || size > 0xFFFFFFFFll)
	{
		Warning("%s: %lld bytes do not fit in a BDL\n", fullPath.c_str(), (long long)size);
		Plat_FatalError("Error adding %s\n", fullPath.c_str());
	}

	// One allocation holds the whole file; it is kept for the next file.
	data.resize((size_t)size);
	for (int64 done = 0; done < size;)
	{
		const int step = (int)std::min<int64>(size - done, 1 << 30);
		if (pFileSystem->Read(data.data() + done, step, hFile) != step)
		{
			pFileSystem->ReportError("Failed to read");
			Plat_FatalError("Failed to read %d bytes\n", (int)size);
		}
		done += step;
	}
	if (store.AddFile(pName, 0, data.data(), size, false, nullptr) == EPADD_ERROR)
		Plat_FatalError("Error adding %s\n", fullPath.c_str());
	pFileSystem->Close(hFile);
}
} // namespace

bool PackAddonFolder(const char *pFolder, const char *pBdlPath, IFileSystem *pFileSystem)
{
	if (!pFolder || !pBdlPath)
		return false;
	IFileSystem *pOwnFileSystem = nullptr;
	if (!pFileSystem)
		pFileSystem = pOwnFileSystem = CreateFileSystem();
	struct CReleaseOwn
	{
		IFileSystem *p;
		~CReleaseOwn()
		{
			if (p)
				DestroyFileSystem(p);
		}
	} releaseOwn{ pOwnFileSystem };

	CollectState_t state;
	state.pFileSystem = pFileSystem;
	{
		CUtlString packPath = pBdlPath;
		std::replace(packPath.begin(), packPath.end(), '\\', '/');
		const size_t slash = packPath.rfind('/');
		state.packName = slash == CUtlString::npos ? packPath : packPath.substr(slash + 1);
		if (pFileSystem->FileExists(pBdlPath))
			state.packRealPath = RealPath(pFileSystem, pBdlPath);
	}
	CollectFiles(state, pFolder);

	if (pFileSystem->FileExists(pBdlPath))
	{
		if (!pFileSystem->IsFileWritable(pBdlPath))
		{
			Warning("Aborting - cannot delete file: %s\n", pBdlPath);
			return false;
		}
		pFileSystem->RemoveFile(pBdlPath);
	}

	{
		CPackedStore store(pBdlPath, pFileSystem, PACKEDSTORE_FLAG_READ_EMBEDDED | PACKEDSTORE_FLAG_WRITABLE);
		const size_t cut = strlen(pFolder) + 1;
		std::vector<uint8> data;
		for (const CUtlString &fullPath : state.files)
			AddToStore(pFileSystem, store, fullPath, fullPath.size() > cut ? fullPath.c_str() + cut : "", data);
		std::vector<uint8>().swap(data);
		if (!store.Write())
		{
			Warning("Aborting - cannot write to BDL: %s\n", pBdlPath);
			return false;
		}
	}
	return true;
}
