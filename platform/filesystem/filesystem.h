// IFileSystem: the file system service of the tool host.
//
// Files are named relative to search paths: an ordered list of folders under a path ID such as
// "GAME", "CONTENT", "MOD", "CONTENTROOT", "MINTYARDGAME", "MINTYARDCONTENT" or
// "DEFAULT_WRITE_PATH". A relative name is looked up in the folders of its path ID in order (in
// every folder of every ID when no ID is given) and the first folder that holds it wins. An
// absolute name is taken as it stands, whatever the ID. Backslashes in names are taken as
// slashes.
//
// Writing a relative name goes to the first writable folder of the ID, or to the first folder
// of "DEFAULT_WRITE_PATH" when no ID is given or the ID has no writable folder.
//
// Handles from Open are read and written like stdio streams. A file opened for writing ("w",
// "wb") is written to a temporary file beside the target and moved over it when closed, so a
// failed or interrupted write never leaves a truncated file in place of the old one.
//
// Asynchronous writes run on the file system's own worker thread: AsyncWrite queues one and
// returns a control that the caller polls (AsyncIsDone), finishes (AsyncFinish gives 0 on
// success) and releases; AsyncAbort cancels one that has not started.
#pragma once

#include "core/fileio.h"
#include "core/platform.h"
#include "core/utlstring.h"
#include "core/utlvector.h"

typedef struct FileHandleOpaque_t *FileHandle_t;
typedef int FileFindHandle_t;
typedef struct FSAsyncControlOpaque_t *FSAsyncControl_t;

enum
{
	FILESYSTEM_INVALID_FIND_HANDLE = -1,
};

enum FileSystemSeek_t
{
	FILESYSTEM_SEEK_HEAD = 0,
	FILESYSTEM_SEEK_CURRENT = 1,
	FILESYSTEM_SEEK_TAIL = 2,
};

enum SearchPathAdd_t
{
	PATH_ADD_TO_HEAD,
	PATH_ADD_TO_TAIL,
};

enum FSAsyncStatus_t
{
	FSASYNC_OK = 0,			// finished and written
	FSASYNC_STATUS_PENDING, // queued, not started
	FSASYNC_STATUS_INPROGRESS,
	FSASYNC_STATUS_ABORTED,
	FSASYNC_ERR_FAILURE = -1, // finished and failed
};

// Called with a short text when the file system meets a failure it cannot report otherwise
// (a read that comes up short, for instance). The default hook logs a warning.
typedef void (*FileSystemErrorHook_t)(const char *message);

class IFileSystem : public IBaseFileSystem
{
public:
	// Search paths. A folder is kept with a trailing slash. Adding a folder that the ID has
	// already moves nothing and only updates its writable flag.
	virtual void AddSearchPath(const char *path, const char *pathID, SearchPathAdd_t addType = PATH_ADD_TO_TAIL, bool bWritable = false) = 0;
	virtual bool RemoveSearchPath(const char *path, const char *pathID) = 0;
	virtual void RemoveSearchPaths(const char *pathID) = 0;
	// The folders of an ID joined by ';', each with its trailing slash, as much as fits into
	// `out` (always terminated). Returns the length the whole text needs, with its terminator.
	virtual int GetSearchPath(const char *pathID, bool bGetPackFiles, char *out, int maxLength) = 0;
	virtual void GetSearchPathList(const char *pathID, CUtlVector<CUtlString> &out) = 0;

	// Resolution. RelativePathToFullPath gives the full path of an existing file or folder
	// (null when it exists nowhere). GetWritePath gives where a write of the name would go.
	// FullPathToRelativePath cuts the first folder of the ID that the full path lies in.
	virtual const char *RelativePathToFullPath(const char *name, const char *pathID, char *out, int maxLength) = 0;
	virtual bool GetWritePath(const char *name, const char *pathID, CUtlString &out) = 0;
	virtual bool FullPathToRelativePath(const char *fullPath, const char *pathID, char *out, int maxLength) = 0;

	// Files. Options as for fopen: "r", "rb", "w", "wb", "a", "ab", "r+b".
	virtual FileHandle_t Open(const char *name, const char *options, const char *pathID = nullptr) = 0;
	virtual void Close(FileHandle_t file) = 0;
	virtual int Read(void *out, int size, FileHandle_t file) = 0;
	virtual int Write(const void *data, int size, FileHandle_t file) = 0;
	virtual void Seek(FileHandle_t file, int64 position, FileSystemSeek_t origin) = 0;
	virtual int64 Tell(FileHandle_t file) = 0;
	virtual int64 Size(FileHandle_t file) = 0;
	virtual int64 Size(const char *name, const char *pathID = nullptr) = 0; // -1 when missing
	virtual bool IsOk(FileHandle_t file) = 0;								  // a valid handle with no error so far
	virtual bool EndOfFile(FileHandle_t file) = 0;
	virtual bool Flush(FileHandle_t file) = 0;

	virtual bool IsDirectory(const char *name, const char *pathID = nullptr) = 0;
	virtual bool IsFileWritable(const char *name, const char *pathID = nullptr) = 0;
	virtual bool SetFileWritable(const char *name, bool bWritable, const char *pathID = nullptr) = 0;
	// Seconds since the epoch of the last change; 0 when the file is missing.
	virtual int64 GetFileTime(const char *name, const char *pathID = nullptr) = 0;
	virtual bool RemoveFile(const char *name, const char *pathID = nullptr) = 0;
	virtual bool RenameFile(const char *oldName, const char *newName, const char *pathID = nullptr) = 0;
	// Creates the folder and every missing folder above it (under the write path of the ID).
	virtual bool CreateDirHierarchy(const char *path, const char *pathID = nullptr) = 0;
	// Copies a file; the target is replaced atomically.
	virtual bool CopyFile(const char *source, const char *target, const char *pathID = nullptr) = 0;

	// Finding files. The wildcard is a folder and a pattern of '*' and '?' ("dir/*.*",
	// "dir\\*"); "*.*" matches every name, with or without a dot. A relative folder is looked
	// up in the search paths of the ID (every ID when none is given) and the names of all the
	// matching folders are listed, each once. "." and ".." are never listed. Returns the first
	// name (no folder part) or null; FindNext gives the next one or null. Close every handle.
	virtual const char *FindFirst(const char *wildcard, FileFindHandle_t *pHandle) = 0;
	virtual const char *FindFirstEx(const char *wildcard, const char *pathID, FileFindHandle_t *pHandle) = 0;
	virtual const char *FindNext(FileFindHandle_t handle) = 0;
	virtual bool FindIsDirectory(FileFindHandle_t handle) = 0;
	virtual void FindClose(FileFindHandle_t handle) = 0;

	// Asynchronous writes. The data is copied when the call returns unless bFreeMemory is set,
	// in which case the file system takes the buffer (allocated with malloc) and frees it.
	// The name is resolved like a write through Open.
	virtual FSAsyncControl_t AsyncWrite(const char *name, const void *data, int64 size, bool bFreeMemory, bool bAppend = false, const char *pathID = nullptr) = 0;
	virtual bool AsyncIsDone(FSAsyncControl_t control) = 0;
	virtual FSAsyncStatus_t AsyncStatus(FSAsyncControl_t control) = 0;
	// Waits for the write when bWait is set; returns FSASYNC_OK on success, the status
	// otherwise (FSASYNC_STATUS_PENDING or _INPROGRESS when not waiting and not done).
	virtual FSAsyncStatus_t AsyncFinish(FSAsyncControl_t control, bool bWait = true) = 0;
	virtual FSAsyncStatus_t AsyncAbort(FSAsyncControl_t control) = 0;
	virtual void AsyncRelease(FSAsyncControl_t control) = 0;

	virtual FileSystemErrorHook_t SetErrorHook(FileSystemErrorHook_t hook) = 0;
	virtual void ReportError(const char *message) = 0;

protected:
	~IFileSystem() = default;
};

// The interface name under which the host's factory hands out the file system.
#define FILESYSTEM_INTERFACE_VERSION "VFileSystem017"

// A file system of its own, with no search paths. Delete it with DestroyFileSystem.
IFileSystem *CreateFileSystem();
void DestroyFileSystem(IFileSystem *pFileSystem);
