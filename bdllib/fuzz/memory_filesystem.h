// A file system of files held in memory, for the pack store fuzzer: fast, and every handle it
// hands out can be taken back at once when a run is cut short.
#pragma once

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "filesystem/filesystem.h"

class CMemoryFileSystem final : public IFileSystem
{
public:
	std::map<std::string, std::vector<uint8>> m_Files;

	// Frees every handle still open (after a fatal error cut a run short).
	void CloseAll() { m_Handles.clear(); }
	size_t OpenHandles() const { return m_Handles.size(); }

	bool ReadFile(const char *path, const char *, CUtlBuffer &out, CUtlString *pError) override
	{
		auto it = m_Files.find(path);
		if (it == m_Files.end())
		{
			if (pError)
				*pError = std::string(path) + ": file not found";
			return false;
		}
		out.Put(it->second.data(), it->second.size());
		return true;
	}
	bool WriteFile(const char *path, const char *, const CUtlBuffer &data, CUtlString *) override
	{
		m_Files[path].assign(data.Base(), data.Base() + data.Size());
		return true;
	}
	bool FileExists(const char *path, const char *) override { return m_Files.count(path) != 0; }
	void AddSearchPath(const char *, const char *, SearchPathAdd_t, bool) override {}
	bool RemoveSearchPath(const char *, const char *) override { return false; }
	void RemoveSearchPaths(const char *) override {}
	int GetSearchPath(const char *, bool, char *out, int maxLength) override
	{
		if (out && maxLength > 0)
			out[0] = 0;
		return 1;
	}
	void GetSearchPathList(const char *, CUtlVector<CUtlString> &out) override { out.clear(); }
	const char *RelativePathToFullPath(const char *, const char *, char *out, int maxLength) override
	{
		if (out && maxLength > 0)
			out[0] = 0;
		return nullptr;
	}
	bool GetWritePath(const char *name, const char *, CUtlString &out) override
	{
		out = name;
		return true;
	}
	bool FullPathToRelativePath(const char *, const char *, char *, int) override { return false; }

	FileHandle_t Open(const char *name, const char *options, const char *) override
	{
		const bool bWrite = strchr(options, 'w') != nullptr;
		const bool bUpdate = strchr(options, '+') != nullptr;
		auto handle = std::make_unique<Handle_t>();
		handle->name = name;
		if (bWrite)
			handle->bWriting = true; // replaces the file when closed
		else
		{
			auto it = m_Files.find(name);
			if (it == m_Files.end())
				return nullptr;
			handle->data = it->second;
			handle->bWriting = bUpdate;
		}
		Handle_t *raw = handle.get();
		m_Handles.push_back(std::move(handle));
		return reinterpret_cast<FileHandle_t>(raw);
	}
	void Close(FileHandle_t file) override
	{
		Handle_t *handle = Find(file);
		if (!handle)
			return;
		if (handle->bWriting)
			m_Files[handle->name] = handle->data;
		std::erase_if(m_Handles, [&](const std::unique_ptr<Handle_t> &entry) { return entry.get() == handle; });
	}
	int Read(void *out, int size, FileHandle_t file) override
	{
		Handle_t *handle = Find(file);
		if (!handle || size <= 0 || handle->position >= handle->data.size())
			return 0;
		const size_t take = std::min((size_t)size, handle->data.size() - handle->position);
		memcpy(out, handle->data.data() + handle->position, take);
		handle->position += take;
		return (int)take;
	}
	int Write(const void *data, int size, FileHandle_t file) override
	{
		Handle_t *handle = Find(file);
		if (!handle || !handle->bWriting || size <= 0)
			return 0;
		if (handle->data.size() < handle->position + (size_t)size)
			handle->data.resize(handle->position + (size_t)size);
		memcpy(handle->data.data() + handle->position, data, (size_t)size);
		handle->position += (size_t)size;
		return size;
	}
	void Seek(FileHandle_t file, int64 position, FileSystemSeek_t origin) override
	{
		Handle_t *handle = Find(file);
		if (!handle)
			return;
		const int64 base = origin == FILESYSTEM_SEEK_CURRENT ? (int64)handle->position : origin == FILESYSTEM_SEEK_TAIL ? (int64)handle->data.size() : 0;
		handle->position = (size_t)std::max<int64>(0, base + position);
	}
	int64 Tell(FileHandle_t file) override
	{
		Handle_t *handle = Find(file);
		return handle ? (int64)handle->position : -1;
	}
	int64 Size(FileHandle_t file) override
	{
		Handle_t *handle = Find(file);
		return handle ? (int64)handle->data.size() : -1;
	}
	int64 Size(const char *name, const char *) override
	{
		auto it = m_Files.find(name);
		return it == m_Files.end() ? -1 : (int64)it->second.size();
	}
	bool IsOk(FileHandle_t file) override { return Find(file) != nullptr; }
	bool EndOfFile(FileHandle_t file) override
	{
		Handle_t *handle = Find(file);
		return !handle || handle->position >= handle->data.size();
	}
	bool Flush(FileHandle_t file) override { return Find(file) != nullptr; }
	bool IsDirectory(const char *, const char *) override { return false; }
	bool IsFileWritable(const char *name, const char *) override { return m_Files.count(name) != 0; }
	bool SetFileWritable(const char *, bool, const char *) override { return true; }
	int64 GetFileTime(const char *, const char *) override { return 0; }
	bool RemoveFile(const char *name, const char *) override { return m_Files.erase(name) != 0; }
	bool RenameFile(const char *, const char *, const char *) override { return false; }
	bool CreateDirHierarchy(const char *, const char *) override { return true; }
	bool CopyFile(const char *, const char *, const char *) override { return false; }
	const char *FindFirst(const char *, FileFindHandle_t *pHandle) override
	{
		if (pHandle)
			*pHandle = FILESYSTEM_INVALID_FIND_HANDLE;
		return nullptr;
	}
	const char *FindFirstEx(const char *wildcard, const char *, FileFindHandle_t *pHandle) override { return FindFirst(wildcard, pHandle); }
	const char *FindNext(FileFindHandle_t) override { return nullptr; }
	bool FindIsDirectory(FileFindHandle_t) override { return false; }
	void FindClose(FileFindHandle_t) override {}
	FSAsyncControl_t AsyncWrite(const char *, const void *, int64, bool, bool, const char *) override { return nullptr; }
	bool AsyncIsDone(FSAsyncControl_t) override { return true; }
	FSAsyncStatus_t AsyncStatus(FSAsyncControl_t) override { return FSASYNC_ERR_FAILURE; }
	FSAsyncStatus_t AsyncFinish(FSAsyncControl_t, bool) override { return FSASYNC_ERR_FAILURE; }
	FSAsyncStatus_t AsyncAbort(FSAsyncControl_t) override { return FSASYNC_ERR_FAILURE; }
	void AsyncRelease(FSAsyncControl_t) override {}
	FileSystemErrorHook_t SetErrorHook(FileSystemErrorHook_t hook) override
	{
		FileSystemErrorHook_t previous = m_pHook;
		m_pHook = hook;
		return previous;
	}
	void ReportError(const char *message) override
	{
		if (m_pHook)
			m_pHook(message);
	}

private:
	struct Handle_t
	{
		std::string name;
		std::vector<uint8> data;
		size_t position = 0;
		bool bWriting = false;
	};
	Handle_t *Find(FileHandle_t file)
	{
		for (const auto &handle : m_Handles)
		{
			if (reinterpret_cast<FileHandle_t>(handle.get()) == file)
				return handle.get();
		}
		return nullptr;
	}

	std::vector<std::unique_ptr<Handle_t>> m_Handles;
	FileSystemErrorHook_t m_pHook = nullptr;
};
