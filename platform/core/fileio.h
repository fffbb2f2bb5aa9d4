// File access for the core. Document loaders read through IBaseFileSystem, which the tool's file
// system service implements with its named search paths; until one is installed, a plain disk
// implementation serves paths that have no path ID. Writes of user files go through
// Plat_WriteFileAtomic, which never leaves a truncated file in place of a good one.
#pragma once

#include "core/platform.h"
#include "core/utlbuffer.h"
#include "core/utlstring.h"

class IBaseFileSystem
{
public:
	// Reads a whole file. `pathID` names a search path; null or empty takes `path` as it stands.
	// On failure returns false and, when pError is given, a message naming the file.
	virtual bool ReadFile(const char *path, const char *pathID, CUtlBuffer &out, CUtlString *pError = nullptr) = 0;
	virtual bool WriteFile(const char *path, const char *pathID, const CUtlBuffer &data, CUtlString *pError = nullptr) = 0;
	virtual bool FileExists(const char *path, const char *pathID = nullptr) = 0;

protected:
	~IBaseFileSystem() = default;
};

// The file system the document loaders use. Never null.
IBaseFileSystem *CoreFileSystem();
// Installs a file system (null restores the plain disk one). Returns the previous one.
IBaseFileSystem *SetCoreFileSystem(IBaseFileSystem *pFileSystem);

// Files larger than this are refused by the readers of the core.
enum : uint64 { PLAT_MAX_READ_FILE_SIZE = 1ull << 31 };

// Plain disk access by absolute or working-directory-relative path.
bool Plat_ReadFile(const char *path, CUtlBuffer &out, CUtlString *pError = nullptr);
// Writes to a temporary file beside the target, flushes it to disk and renames it over the
// target. On any failure the target is untouched and the temporary file is removed.
bool Plat_WriteFileAtomic(const char *path, const void *data, size_t size, CUtlString *pError = nullptr);
// Flushes a directory's entries (names made or renamed in it) to disk.
bool Plat_SyncDirectory(const char *path);
bool Plat_FileExists(const char *path);
bool Plat_IsDirectory(const char *path);
