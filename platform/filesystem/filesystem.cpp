#include "filesystem/filesystem.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/logging.h"
#include "core/pathutils.h"
#include "core/strtools.h"

namespace
{
struct SearchPath_t
{
	CUtlString path; // with a trailing slash
	CUtlString pathID;
	bool bWritable;
};

CUtlString FixSlashes(const char *name)
{
	CUtlString out = name ? name : "";
	std::replace(out.begin(), out.end(), '\\', '/');
	return out;
}

bool IsAbsolute(const CUtlString &name)
{
	return !name.empty() && name[0] == '/';
}

bool PathExists(const CUtlString &path)
{
	struct stat info;
	return stat(path.c_str(), &info) == 0;
}

bool StatFile(const CUtlString &path, struct stat &info)
{
	return stat(path.c_str(), &info) == 0;
}

// mkdir -p.
bool MakeDirectories(const CUtlString &path)
{
	if (path.empty())
		return true;
	CUtlString partial;
	size_t start = 0;
	while (start <= path.size())
	{
		size_t slash = path.find('/', start);
		if (slash == CUtlString::npos)
			slash = path.size();
		partial = path.substr(0, slash);
		if (!partial.empty() && mkdir(partial.c_str(), 0755) != 0 && errno != EEXIST)
			return false;
		start = slash + 1;
	}
	struct stat info;
	return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// '*' any run, '?' any one character; "*.*" matches every name.
bool WildcardMatch(const char *pattern, const char *name)
{
	if (strcmp(pattern, "*.*") == 0 || strcmp(pattern, "*") == 0)
		return true;
	const char *starPattern = nullptr;
	const char *starName = nullptr;
	while (*name)
	{
		if (*pattern == '*')
		{
			starPattern = ++pattern;
			starName = name;
		}
		else if (*pattern == '?' || *pattern == *name)
		{
			++pattern;
			++name;
		}
		else if (starPattern)
		{
			pattern = starPattern;
			name = ++starName;
		}
		else
			return false;
	}
	while (*pattern == '*')
		++pattern;
	return *pattern == 0;
}

struct FileHandleData_t
{
	FILE *fp = nullptr;
	CUtlString finalPath; // for atomic writes: where the temporary file goes on close
	CUtlString tempPath;
	bool bFailed = false;
};

struct FindEntry_t
{
	CUtlString name;
	bool bDirectory;
};

struct FindState_t
{
	std::vector<FindEntry_t> entries;
	size_t next = 0;
};

struct AsyncJob_t
{
	CUtlString path;
	std::vector<char> data;
	bool bAppend = false;
	std::atomic<int> status{ FSASYNC_STATUS_PENDING };
	std::mutex mutex;
	std::condition_variable done;
};

struct AsyncControl_t
{
	std::shared_ptr<AsyncJob_t> job;
};

void DefaultErrorHook(const char *message)
{
	Warning("FileSystem: %s\n", message);
}

class CFileSystem final : public IFileSystem
{
public:
	CFileSystem() : m_Worker([this] { WorkerLoop(); }) {}

	~CFileSystem()
	{
		// Queued writes are finished, not dropped: they are somebody's files.
		{
			std::lock_guard<std::mutex> lock(m_QueueMutex);
			m_bStopping = true;
		}
		m_QueueReady.notify_all();
		m_Worker.join();
	}

	// -----------------------------------------------------------------------------------------
	// IBaseFileSystem

	bool ReadFile(const char *path, const char *pathID, CUtlBuffer &out, CUtlString *pError) override
	{
		CUtlString full;
		if (!ResolveForRead(path, pathID, full) || !PathExists(full))
		{
			if (pError)
				*pError = V_Format("%s: file not found%s%s%s", path ? path : "", pathID && *pathID ? " in search path \"" : "",
					pathID && *pathID ? pathID : "", pathID && *pathID ? "\"" : "");
			return false;
		}
		return Plat_ReadFile(full.c_str(), out, pError);
	}

	bool WriteFile(const char *path, const char *pathID, const CUtlBuffer &data, CUtlString *pError) override
	{
		CUtlString full;
		if (!ResolveForWrite(path, pathID, full))
		{
			if (pError)
				*pError = V_Format("%s: no folder to write to", path ? path : "");
			return false;
		}
		return Plat_WriteFileAtomic(full.c_str(), data.Base(), data.Size(), pError);
	}

	bool FileExists(const char *path, const char *pathID) override
	{
		CUtlString full;
		struct stat info;
		return ResolveForRead(path, pathID, full) && StatFile(full, info) && S_ISREG(info.st_mode);
	}

	// -----------------------------------------------------------------------------------------
	// Search paths

	void AddSearchPath(const char *path, const char *pathID, SearchPathAdd_t addType, bool bWritable) override
	{
		CUtlString folder = FixSlashes(path);
		if (folder.empty())
			return;
		if (folder.back() != '/')
			folder += '/';
		const CUtlString id = pathID ? pathID : "";
		std::unique_lock lock(m_PathsMutex);
		for (SearchPath_t &existing : m_SearchPaths)
		{
			if (existing.path == folder && V_StrEqualNoCase(existing.pathID, id))
			{
				existing.bWritable = bWritable;
				return;
			}
		}
		SearchPath_t entry{ folder, id, bWritable };
		if (addType == PATH_ADD_TO_HEAD)
			m_SearchPaths.insert(m_SearchPaths.begin(), entry);
		else
			m_SearchPaths.push_back(entry);
	}

	bool RemoveSearchPath(const char *path, const char *pathID) override
	{
		CUtlString folder = FixSlashes(path);
		if (!folder.empty() && folder.back() != '/')
			folder += '/';
		std::unique_lock lock(m_PathsMutex);
		for (auto it = m_SearchPaths.begin(); it != m_SearchPaths.end(); ++it)
		{
			if (it->path == folder && V_StrEqualNoCase(it->pathID, pathID ? pathID : ""))
			{
				m_SearchPaths.erase(it);
				return true;
			}
		}
		return false;
	}

	void RemoveSearchPaths(const char *pathID) override
	{
		std::unique_lock lock(m_PathsMutex);
		std::erase_if(m_SearchPaths, [&](const SearchPath_t &entry) { return V_StrEqualNoCase(entry.pathID, pathID ? pathID : ""); });
	}

	int GetSearchPath(const char *pathID, bool, char *out, int maxLength) override
	{
		CUtlVector<CUtlString> folders;
		GetSearchPathList(pathID, folders);
		CUtlString joined;
		for (const CUtlString &folder : folders)
		{
			if (!joined.empty())
				joined += ';';
			joined += folder;
		}
		if (out && maxLength > 0)
			V_strncpy(out, joined.c_str(), (size_t)maxLength);
		return (int)joined.size() + 1;
	}

	void GetSearchPathList(const char *pathID, CUtlVector<CUtlString> &out) override
	{
		out.clear();
		std::shared_lock lock(m_PathsMutex);
		for (const SearchPath_t &entry : m_SearchPaths)
		{
			if (!pathID || !*pathID || V_StrEqualNoCase(entry.pathID, pathID))
			{
				if (std::find(out.begin(), out.end(), entry.path) == out.end())
					out.push_back(entry.path);
			}
		}
	}

	// -----------------------------------------------------------------------------------------
	// Resolution

	const char *RelativePathToFullPath(const char *name, const char *pathID, char *out, int maxLength) override
	{
		CUtlString full;
		if (!out || maxLength <= 0)
			return nullptr;
		// Under a search path the name is relative to it; an absolute one is refused there.
		if (pathID && *pathID && V_IsAbsolutePath(name ? name : ""))
		{
			out[0] = 0;
			return nullptr;
		}
		if (!ResolveForRead(name, pathID, full) || !PathExists(full))
		{
			out[0] = 0;
			return nullptr;
		}
		V_strncpy(out, full.c_str(), (size_t)maxLength);
		return out;
	}

	bool GetWritePath(const char *name, const char *pathID, CUtlString &out) override
	{
		return ResolveForWrite(name, pathID, out);
	}

	bool FullPathToRelativePath(const char *fullPath, const char *pathID, char *out, int maxLength) override
	{
		const CUtlString full = FixSlashes(fullPath);
		std::shared_lock lock(m_PathsMutex);
		for (const SearchPath_t &entry : m_SearchPaths)
		{
			if ((!pathID || !*pathID || V_StrEqualNoCase(entry.pathID, pathID)) && full.compare(0, entry.path.size(), entry.path) == 0)
			{
				if (out && maxLength > 0)
					V_strncpy(out, full.c_str() + entry.path.size(), (size_t)maxLength);
				return true;
			}
		}
		if (out && maxLength > 0)
			out[0] = 0;
		return false;
	}

	// -----------------------------------------------------------------------------------------
	// Files

	FileHandle_t Open(const char *name, const char *options, const char *pathID) override
	{
		if (!name || !*name || !options)
			return nullptr;
		const bool bWrite = strchr(options, 'w') != nullptr;
		const bool bUpdate = !bWrite && (strchr(options, 'a') || strchr(options, '+'));
		CUtlString full;
		if (bWrite)
		{
			if (!ResolveForWrite(name, pathID, full))
				return nullptr;
		}
		else if (bUpdate)
		{
			// An existing file is appended to or updated where it is; a new one goes to the
			// write path.
			if (!(ResolveForRead(name, pathID, full) && PathExists(full)) && !ResolveForWrite(name, pathID, full))
				return nullptr;
		}
		else if (!ResolveForRead(name, pathID, full))
			return nullptr;

		auto handle = std::make_unique<FileHandleData_t>();
		if (bWrite && !strchr(options, '+'))
		{
			// Written beside the target and moved over it on close.
			handle->finalPath = full;
			handle->tempPath = V_Format("%s.tmp%d_%u", full.c_str(), (int)getpid(), m_nTempCounter++);
			handle->fp = fopen(handle->tempPath.c_str(), "wb");
		}
		else
			handle->fp = fopen(full.c_str(), options);
		if (!handle->fp)
			return nullptr;
		return reinterpret_cast<FileHandle_t>(handle.release());
	}

	void Close(FileHandle_t file) override
	{
		FileHandleData_t *handle = Handle(file);
		if (!handle)
			return;
		bool bOk = !handle->bFailed && fflush(handle->fp) == 0 && !ferror(handle->fp);
		if (!handle->tempPath.empty() && bOk)
			bOk = fsync(fileno(handle->fp)) == 0;
		if (fclose(handle->fp) != 0)
			bOk = false;
		if (!handle->tempPath.empty())
		{
			if (bOk)
			{
				// Keep the permissions of the file being replaced.
				struct stat existing;
				if (stat(handle->finalPath.c_str(), &existing) == 0)
					chmod(handle->tempPath.c_str(), existing.st_mode & 07777);
				if (rename(handle->tempPath.c_str(), handle->finalPath.c_str()) != 0)
					bOk = false;
			}
			if (!bOk)
			{
				unlink(handle->tempPath.c_str());
				ReportError(V_Format("Failed to write %s", handle->finalPath.c_str()).c_str());
			}
		}
		delete handle;
	}

	int Read(void *out, int size, FileHandle_t file) override
	{
		FileHandleData_t *handle = Handle(file);
		if (!handle || size <= 0)
			return 0;
		const size_t got = fread(out, 1, (size_t)size, handle->fp);
		if (ferror(handle->fp))
			handle->bFailed = true;
		return (int)got;
	}

	int Write(const void *data, int size, FileHandle_t file) override
	{
		FileHandleData_t *handle = Handle(file);
		if (!handle || size <= 0)
			return 0;
		const size_t wrote = fwrite(data, 1, (size_t)size, handle->fp);
		if (wrote != (size_t)size)
			handle->bFailed = true;
		return (int)wrote;
	}

	void Seek(FileHandle_t file, int64 position, FileSystemSeek_t origin) override
	{
		if (FileHandleData_t *handle = Handle(file))
		{
			const int whence = origin == FILESYSTEM_SEEK_CURRENT ? SEEK_CUR : origin == FILESYSTEM_SEEK_TAIL ? SEEK_END : SEEK_SET;
			if (fseeko(handle->fp, (off_t)position, whence) != 0)
				handle->bFailed = true;
		}
	}

	int64 Tell(FileHandle_t file) override
	{
		FileHandleData_t *handle = Handle(file);
		return handle ? (int64)ftello(handle->fp) : -1;
	}

	int64 Size(FileHandle_t file) override
	{
		FileHandleData_t *handle = Handle(file);
		if (!handle)
			return -1;
		fflush(handle->fp);
		struct stat info;
		return fstat(fileno(handle->fp), &info) == 0 ? (int64)info.st_size : -1;
	}

	int64 Size(const char *name, const char *pathID) override
	{
		CUtlString full;
		struct stat info;
		if (!ResolveForRead(name, pathID, full) || !StatFile(full, info) || !S_ISREG(info.st_mode))
			return -1;
		return (int64)info.st_size;
	}

	bool IsOk(FileHandle_t file) override
	{
		FileHandleData_t *handle = Handle(file);
		return handle && !handle->bFailed && !ferror(handle->fp);
	}

	bool EndOfFile(FileHandle_t file) override
	{
		FileHandleData_t *handle = Handle(file);
		if (!handle)
			return true;
		const int c = fgetc(handle->fp);
		if (c == EOF)
			return true;
		ungetc(c, handle->fp);
		return false;
	}

	bool Flush(FileHandle_t file) override
	{
		FileHandleData_t *handle = Handle(file);
		return handle && fflush(handle->fp) == 0;
	}

	bool IsDirectory(const char *name, const char *pathID) override
	{
		CUtlString full;
		struct stat info;
		return ResolveForRead(name, pathID, full) && StatFile(full, info) && S_ISDIR(info.st_mode);
	}

	bool IsFileWritable(const char *name, const char *pathID) override
	{
		CUtlString full;
		return ResolveForRead(name, pathID, full) && PathExists(full) && access(full.c_str(), W_OK) == 0;
	}

	bool SetFileWritable(const char *name, bool bWritable, const char *pathID) override
	{
		CUtlString full;
		struct stat info;
		if (!ResolveForRead(name, pathID, full) || !StatFile(full, info))
			return false;
		const mode_t mode = bWritable ? (info.st_mode | S_IWUSR) : (info.st_mode & ~(mode_t)(S_IWUSR | S_IWGRP | S_IWOTH));
		return chmod(full.c_str(), mode & 07777) == 0;
	}

	int64 GetFileTime(const char *name, const char *pathID) override
	{
		CUtlString full;
		struct stat info;
		if (!ResolveForRead(name, pathID, full) || !StatFile(full, info))
			return 0;
		return (int64)info.st_mtime;
	}

	bool RemoveFile(const char *name, const char *pathID) override
	{
		CUtlString full;
		return ResolveForRead(name, pathID, full) && unlink(full.c_str()) == 0;
	}

	bool RenameFile(const char *oldName, const char *newName, const char *pathID) override
	{
		CUtlString from, to;
		if (!ResolveForRead(oldName, pathID, from) || !PathExists(from) || !ResolveForWrite(newName, pathID, to))
			return false;
		return rename(from.c_str(), to.c_str()) == 0;
	}

	bool CreateDirHierarchy(const char *path, const char *pathID) override
	{
		CUtlString full;
		if (!ResolveForWrite(path, pathID, full))
			return false;
		while (full.size() > 1 && full.back() == '/')
			full.pop_back();
		return MakeDirectories(full);
	}

	bool CopyFile(const char *source, const char *target, const char *pathID) override
	{
		CUtlString from, to;
		if (!ResolveForRead(source, pathID, from) || !ResolveForWrite(target, pathID, to))
			return false;
		CUtlBuffer data;
		CUtlString error;
		if (!Plat_ReadFile(from.c_str(), data, &error) || !Plat_WriteFileAtomic(to.c_str(), data.Base(), data.Size(), &error))
		{
			ReportError(error.c_str());
			return false;
		}
		return true;
	}

	// -----------------------------------------------------------------------------------------
	// Finding files

	const char *FindFirst(const char *wildcard, FileFindHandle_t *pHandle) override { return FindFirstEx(wildcard, nullptr, pHandle); }

	const char *FindFirstEx(const char *wildcard, const char *pathID, FileFindHandle_t *pHandle) override
	{
		if (pHandle)
			*pHandle = FILESYSTEM_INVALID_FIND_HANDLE;
		const CUtlString fixed = FixSlashes(wildcard);
		const size_t slash = fixed.rfind('/');
		const CUtlString folder = slash == CUtlString::npos ? CUtlString() : fixed.substr(0, slash + 1);
		const CUtlString pattern = slash == CUtlString::npos ? fixed : fixed.substr(slash + 1);

		std::vector<CUtlString> folders;
		if (IsAbsolute(folder))
			folders.push_back(folder);
		else
		{
			std::shared_lock lock(m_PathsMutex);
			for (const SearchPath_t &entry : m_SearchPaths)
			{
				if (!pathID || !*pathID || V_StrEqualNoCase(entry.pathID, pathID))
					folders.push_back(entry.path + folder);
			}
			if (m_SearchPaths.empty() && !pathID)
				folders.push_back(folder.empty() ? CUtlString("./") : folder); // relative to the working folder
		}

		FindState_t state;
		for (const CUtlString &dirPath : folders)
		{
			DIR *dir = opendir(dirPath.empty() ? "." : dirPath.c_str());
			if (!dir)
				continue;
			std::vector<FindEntry_t> found;
			while (const dirent *entry = readdir(dir))
			{
				if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0)
					continue;
				if (!WildcardMatch(pattern.c_str(), entry->d_name))
					continue;
				bool bDirectory = entry->d_type == DT_DIR;
				if (entry->d_type == DT_UNKNOWN || entry->d_type == DT_LNK)
				{
					struct stat info;
					bDirectory = stat((dirPath + entry->d_name).c_str(), &info) == 0 && S_ISDIR(info.st_mode);
				}
				found.push_back({ entry->d_name, bDirectory });
			}
			closedir(dir);
			// Names in byte order, so that a walk comes out the same on every machine.
			std::sort(found.begin(), found.end(), [](const FindEntry_t &a, const FindEntry_t &b) { return a.name < b.name; });
			for (FindEntry_t &entry : found)
			{
				const bool bSeen = std::any_of(state.entries.begin(), state.entries.end(), [&](const FindEntry_t &e) { return e.name == entry.name; });
				if (!bSeen)
					state.entries.push_back(std::move(entry));
			}
		}
		if (state.entries.empty())
			return nullptr;
		std::lock_guard<std::mutex> lock(m_FindMutex);
		const FileFindHandle_t handle = m_nNextFindHandle++;
		FindState_t &stored = m_Finds[handle] = std::move(state);
		stored.next = 1;
		if (pHandle)
			*pHandle = handle;
		else
			m_Finds.erase(handle); // nobody can ask for more
		return pHandle ? stored.entries[0].name.c_str() : nullptr;
	}

	const char *FindNext(FileFindHandle_t handle) override
	{
		std::lock_guard<std::mutex> lock(m_FindMutex);
		auto it = m_Finds.find(handle);
		if (it == m_Finds.end() || it->second.next >= it->second.entries.size())
			return nullptr;
		return it->second.entries[it->second.next++].name.c_str();
	}

	bool FindIsDirectory(FileFindHandle_t handle) override
	{
		std::lock_guard<std::mutex> lock(m_FindMutex);
		auto it = m_Finds.find(handle);
		if (it == m_Finds.end() || it->second.next == 0 || it->second.next > it->second.entries.size())
			return false;
		return it->second.entries[it->second.next - 1].bDirectory;
	}

	void FindClose(FileFindHandle_t handle) override
	{
		std::lock_guard<std::mutex> lock(m_FindMutex);
		m_Finds.erase(handle);
	}

	// -----------------------------------------------------------------------------------------
	// Asynchronous writes

	FSAsyncControl_t AsyncWrite(const char *name, const void *data, int64 size, bool bFreeMemory, bool bAppend, const char *pathID) override
	{
		auto job = std::make_shared<AsyncJob_t>();
		if (!ResolveForWrite(name, pathID, job->path) || size < 0)
		{
			if (bFreeMemory)
				free(const_cast<void *>(data));
			job->status = FSASYNC_ERR_FAILURE;
			return reinterpret_cast<FSAsyncControl_t>(new AsyncControl_t{ job });
		}
		job->data.assign(static_cast<const char *>(data), static_cast<const char *>(data) + size);
		if (bFreeMemory)
			free(const_cast<void *>(data));
		job->bAppend = bAppend;
		{
			std::lock_guard<std::mutex> lock(m_QueueMutex);
			m_Queue.push_back(job);
		}
		m_QueueReady.notify_one();
		return reinterpret_cast<FSAsyncControl_t>(new AsyncControl_t{ job });
	}

	bool AsyncIsDone(FSAsyncControl_t control) override
	{
		const FSAsyncStatus_t status = AsyncStatus(control);
		return status != FSASYNC_STATUS_PENDING && status != FSASYNC_STATUS_INPROGRESS;
	}

	FSAsyncStatus_t AsyncStatus(FSAsyncControl_t control) override
	{
		AsyncControl_t *ctrl = reinterpret_cast<AsyncControl_t *>(control);
		return ctrl ? (FSAsyncStatus_t)ctrl->job->status.load() : FSASYNC_ERR_FAILURE;
	}

	FSAsyncStatus_t AsyncFinish(FSAsyncControl_t control, bool bWait) override
	{
		AsyncControl_t *ctrl = reinterpret_cast<AsyncControl_t *>(control);
		if (!ctrl)
			return FSASYNC_ERR_FAILURE;
		if (bWait)
		{
			std::unique_lock<std::mutex> lock(ctrl->job->mutex);
			ctrl->job->done.wait(lock, [&] {
				const int status = ctrl->job->status.load();
				return status != FSASYNC_STATUS_PENDING && status != FSASYNC_STATUS_INPROGRESS;
			});
		}
		return (FSAsyncStatus_t)ctrl->job->status.load();
	}

	FSAsyncStatus_t AsyncAbort(FSAsyncControl_t control) override
	{
		AsyncControl_t *ctrl = reinterpret_cast<AsyncControl_t *>(control);
		if (!ctrl)
			return FSASYNC_ERR_FAILURE;
		int expected = FSASYNC_STATUS_PENDING;
		if (ctrl->job->status.compare_exchange_strong(expected, FSASYNC_STATUS_ABORTED))
		{
			std::lock_guard<std::mutex> lock(ctrl->job->mutex);
			ctrl->job->done.notify_all();
		}
		return (FSAsyncStatus_t)ctrl->job->status.load();
	}

	void AsyncRelease(FSAsyncControl_t control) override { delete reinterpret_cast<AsyncControl_t *>(control); }

	FileSystemErrorHook_t SetErrorHook(FileSystemErrorHook_t hook) override
	{
		FileSystemErrorHook_t previous = m_pErrorHook;
		m_pErrorHook = hook ? hook : DefaultErrorHook;
		return previous;
	}

	void ReportError(const char *message) override { m_pErrorHook(message ? message : ""); }

private:
	static FileHandleData_t *Handle(FileHandle_t file) { return reinterpret_cast<FileHandleData_t *>(file); }

	// A relative name as it is looked up under the search paths: it has to stay inside them, so a
	// name that climbs out, has a drive letter or an empty part is refused (""). With no search
	// path at all and no ID the name is the caller's, relative to the working folder, and stands.
	// Holds m_PathsMutex.
	CUtlString NameUnderSearchPaths(const CUtlString &name, const char *pathID) const
	{
		if (m_SearchPaths.empty() && (!pathID || !*pathID))
			return name;
		CUtlString normalized;
		return V_IsSafeRelativePath(name, &normalized) ? normalized : CUtlString();
	}

	// Where an existing file of that name is (or where it would be looked for first).
	bool ResolveForRead(const char *name, const char *pathID, CUtlString &out)
	{
		const CUtlString fixed = FixSlashes(name);
		if (fixed.empty())
			return false;
		if (IsAbsolute(fixed))
		{
			out = fixed;
			return true;
		}
		std::shared_lock lock(m_PathsMutex);
		const CUtlString relative = NameUnderSearchPaths(fixed, pathID);
		if (relative.empty())
			return false;
		bool bAnyFolder = false;
		for (const SearchPath_t &entry : m_SearchPaths)
		{
			if (pathID && *pathID && !V_StrEqualNoCase(entry.pathID, pathID))
				continue;
			const CUtlString candidate = entry.path + relative;
			if (!bAnyFolder)
			{
				out = candidate;
				bAnyFolder = true;
			}
			if (PathExists(candidate))
			{
				out = candidate;
				return true;
			}
		}
		if (!bAnyFolder && (!pathID || !*pathID))
		{
			out = fixed; // no search paths: relative to the working folder
			return true;
		}
		return bAnyFolder;
	}

	bool ResolveForWrite(const char *name, const char *pathID, CUtlString &out)
	{
		const CUtlString fixed = FixSlashes(name);
		if (fixed.empty())
			return false;
		if (IsAbsolute(fixed))
		{
			out = fixed;
			return true;
		}
		std::shared_lock lock(m_PathsMutex);
		const CUtlString relative = NameUnderSearchPaths(fixed, pathID);
		if (relative.empty())
			return false;
		const SearchPath_t *firstOfID = nullptr;
		if (pathID && *pathID)
		{
			for (const SearchPath_t &entry : m_SearchPaths)
			{
				if (!V_StrEqualNoCase(entry.pathID, pathID))
					continue;
				if (entry.bWritable)
				{
					out = entry.path + relative;
					return true;
				}
				if (!firstOfID)
					firstOfID = &entry;
			}
		}
		for (const SearchPath_t &entry : m_SearchPaths)
		{
			if (V_StrEqualNoCase(entry.pathID, "DEFAULT_WRITE_PATH"))
			{
				out = entry.path + relative;
				return true;
			}
		}
		if (firstOfID)
		{
			out = firstOfID->path + relative;
			return true;
		}
		if (m_SearchPaths.empty() && (!pathID || !*pathID))
		{
			out = fixed;
			return true;
		}
		return false;
	}

	void WorkerLoop()
	{
		for (;;)
		{
			std::shared_ptr<AsyncJob_t> job;
			{
				std::unique_lock<std::mutex> lock(m_QueueMutex);
				m_QueueReady.wait(lock, [&] { return m_bStopping || !m_Queue.empty(); });
				if (m_Queue.empty())
					return; // stopping, and nothing left to write
				job = m_Queue.front();
				m_Queue.pop_front();
			}
			int expected = FSASYNC_STATUS_PENDING;
			if (!job->status.compare_exchange_strong(expected, FSASYNC_STATUS_INPROGRESS))
				continue; // aborted
			const bool bOk = RunJob(*job);
			std::lock_guard<std::mutex> lock(job->mutex);
			job->status = bOk ? FSASYNC_OK : FSASYNC_ERR_FAILURE;
			job->done.notify_all();
		}
	}

	bool RunJob(AsyncJob_t &job)
	{
		CUtlString error;
		if (!job.bAppend)
		{
			if (Plat_WriteFileAtomic(job.path.c_str(), job.data.data(), job.data.size(), &error))
				return true;
			ReportError(error.c_str());
			return false;
		}
		FILE *fp = fopen(job.path.c_str(), "ab");
		bool bOk = fp && fwrite(job.data.data(), 1, job.data.size(), fp) == job.data.size();
		if (fp && fclose(fp) != 0)
			bOk = false;
		if (!bOk)
			ReportError(V_Format("Failed to append to %s", job.path.c_str()).c_str());
		return bOk;
	}

	std::shared_mutex m_PathsMutex;
	std::vector<SearchPath_t> m_SearchPaths;

	std::mutex m_FindMutex;
	std::map<FileFindHandle_t, FindState_t> m_Finds;
	FileFindHandle_t m_nNextFindHandle = 1;

	std::atomic<unsigned> m_nTempCounter{ 0 };
	FileSystemErrorHook_t m_pErrorHook = DefaultErrorHook;

	std::mutex m_QueueMutex;
	std::condition_variable m_QueueReady;
	std::deque<std::shared_ptr<AsyncJob_t>> m_Queue;
	bool m_bStopping = false;
	std::thread m_Worker; // last: it starts running in the constructor
};
} // namespace

IFileSystem *CreateFileSystem()
{
	return new CFileSystem();
}

void DestroyFileSystem(IFileSystem *pFileSystem)
{
	delete static_cast<CFileSystem *>(pFileSystem);
}
