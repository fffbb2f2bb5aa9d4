// Helpers of the pack tests: reading files, building pack bytes by hand, and a file system that
// passes everything to the real one but can be told to fail in chosen ways.
#pragma once

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "bdllib/packedstore.h"
#include "core/fileio.h"
#include "core/hashes.h"
#include "testsupport/test_support.h"
#include "filesystem/filesystem.h"

inline std::string ReadAll(const std::string &path)
{
	CUtlBuffer data;
	if (!Plat_ReadFile(path.c_str(), data))
		return "<missing>";
	return std::string(data.Base(), data.Size());
}

inline void WriteAll(const std::string &path, const std::string &bytes)
{
	EXPECT_TRUE(Plat_WriteFileAtomic(path.c_str(), bytes.data(), bytes.size())) << path;
}

inline std::string Le32(uint32 value)
{
	std::string out(4, 0);
	for (int i = 0; i < 4; ++i)
		out[(size_t)i] = (char)(value >> (8 * i));
	return out;
}

inline std::string Le16(uint16 value)
{
	return std::string{ (char)(value & 0xFF), (char)(value >> 8) };
}

inline uint32 GetLe32(const std::string &bytes, size_t at)
{
	return (uint32)(uint8)bytes[at] | ((uint32)(uint8)bytes[at + 1] << 8) | ((uint32)(uint8)bytes[at + 2] << 16) |
		((uint32)(uint8)bytes[at + 3] << 24);
}

inline std::string Z(const std::string &text)
{
	return text + std::string(1, '\0');
}

// One tree entry: CRC, preload size, fragments, terminator, preload bytes.
struct TestFragment_t
{
	uint16 index;
	uint32 offset;
	uint32 size;
};

inline std::string Entry(uint32 crc, const std::vector<TestFragment_t> &fragments, const std::string &preload = "")
{
	std::string out = Le32(crc) + Le16((uint16)preload.size());
	for (const TestFragment_t &fragment : fragments)
		out += Le16(fragment.index) + Le32(fragment.offset) + Le32(fragment.size);
	out += Le16(0xFFFF);
	return out + preload;
}

inline std::string EmbeddedEntry(const std::string &data, uint32 offset)
{
	return Entry(CRC32_ProcessSingleBuffer(data.data(), data.size()), { { 0x7FFF, offset, (uint32)data.size() } });
}

inline std::string HeaderV1(size_t treeSize)
{
	return Le32(0x55AA1234) + Le32(1) + Le32((uint32)treeSize);
}

inline std::string HeaderV2(size_t treeSize, size_t embedded, size_t chunkHashes, size_t selfHashes, size_t signature)
{
	return Le32(0x55AA1234) + Le32(2) + Le32((uint32)treeSize) + Le32((uint32)embedded) + Le32((uint32)chunkHashes) +
		Le32((uint32)selfHashes) + Le32((uint32)signature);
}

inline std::string Md5Of(const std::string &bytes)
{
	MD5Value_t value;
	MD5_ProcessSingleBuffer(bytes.data(), bytes.size(), value);
	return std::string(reinterpret_cast<const char *>(value.bits), 16);
}

inline std::string ReadPacked(CPackedStore &store, const char *name)
{
	PackedStoreFileInfo_t info;
	if (!store.FindFile(name, info))
		return "<missing>";
	CUtlBuffer data;
	CUtlString error;
	if (!store.ReadFileData(info, data, &error))
		return "<error: " + error + ">";
	return std::string(data.Base(), data.Size());
}

// A real file system per test, destroyed with it.
class CTestFileSystem
{
public:
	CTestFileSystem() : m_pFileSystem(CreateFileSystem()) {}
	~CTestFileSystem() { DestroyFileSystem(m_pFileSystem); }
	IFileSystem *operator->() const { return m_pFileSystem; }
	IFileSystem *Get() const { return m_pFileSystem; }

private:
	IFileSystem *m_pFileSystem;
};

// Passes every call to a real file system; the hooks change chosen answers.
class CFaultFileSystem final : public IFileSystem
{
public:
	CFaultFileSystem() : m_pInner(CreateFileSystem()) {}
	~CFaultFileSystem() { DestroyFileSystem(m_pInner); }

	// A file whose path contains this text cannot be opened.
	std::string m_FailOpen;
	// Reads from a file whose path contains this text come up this many bytes short.
	std::string m_ShortRead;
	int m_nShortBy = 1;
	// IsFileWritable answers false for a path that contains this text.
	std::string m_ReadOnly;
	std::vector<std::string> m_Reported;

	bool ReadFile(const char *path, const char *pathID, CUtlBuffer &out, CUtlString *pError) override { return m_pInner->ReadFile(path, pathID, out, pError); }
	bool WriteFile(const char *path, const char *pathID, const CUtlBuffer &data, CUtlString *pError) override { return m_pInner->WriteFile(path, pathID, data, pError); }
	bool FileExists(const char *path, const char *pathID) override { return m_pInner->FileExists(path, pathID); }
	void AddSearchPath(const char *path, const char *pathID, SearchPathAdd_t addType, bool bWritable) override { m_pInner->AddSearchPath(path, pathID, addType, bWritable); }
	bool RemoveSearchPath(const char *path, const char *pathID) override { return m_pInner->RemoveSearchPath(path, pathID); }
	void RemoveSearchPaths(const char *pathID) override { m_pInner->RemoveSearchPaths(pathID); }
	int GetSearchPath(const char *pathID, bool bGetPackFiles, char *out, int maxLength) override { return m_pInner->GetSearchPath(pathID, bGetPackFiles, out, maxLength); }
	void GetSearchPathList(const char *pathID, CUtlVector<CUtlString> &out) override { m_pInner->GetSearchPathList(pathID, out); }
	const char *RelativePathToFullPath(const char *name, const char *pathID, char *out, int maxLength) override { return m_pInner->RelativePathToFullPath(name, pathID, out, maxLength); }
	bool GetWritePath(const char *name, const char *pathID, CUtlString &out) override { return m_pInner->GetWritePath(name, pathID, out); }
	bool FullPathToRelativePath(const char *fullPath, const char *pathID, char *out, int maxLength) override { return m_pInner->FullPathToRelativePath(fullPath, pathID, out, maxLength); }
	FileHandle_t Open(const char *name, const char *options, const char *pathID) override
	{
		if (!m_FailOpen.empty() && strstr(name, m_FailOpen.c_str()))
			return nullptr;
		FileHandle_t handle = m_pInner->Open(name, options, pathID);
		if (handle && !m_ShortRead.empty() && strstr(name, m_ShortRead.c_str()))
			m_ShortHandles.push_back(handle);
		return handle;
	}
	void Close(FileHandle_t file) override
	{
		std::erase(m_ShortHandles, file);
		m_pInner->Close(file);
	}
	int Read(void *out, int size, FileHandle_t file) override
	{
		const int got = m_pInner->Read(out, size, file);
		if (std::find(m_ShortHandles.begin(), m_ShortHandles.end(), file) != m_ShortHandles.end())
			return std::max(0, got - m_nShortBy);
		return got;
	}
	int Write(const void *data, int size, FileHandle_t file) override { return m_pInner->Write(data, size, file); }
	void Seek(FileHandle_t file, int64 position, FileSystemSeek_t origin) override { m_pInner->Seek(file, position, origin); }
	int64 Tell(FileHandle_t file) override { return m_pInner->Tell(file); }
	int64 Size(FileHandle_t file) override { return m_pInner->Size(file); }
	int64 Size(const char *name, const char *pathID) override { return m_pInner->Size(name, pathID); }
	bool IsOk(FileHandle_t file) override { return m_pInner->IsOk(file); }
	bool EndOfFile(FileHandle_t file) override { return m_pInner->EndOfFile(file); }
	bool Flush(FileHandle_t file) override { return m_pInner->Flush(file); }
	bool IsDirectory(const char *name, const char *pathID) override { return m_pInner->IsDirectory(name, pathID); }
	bool IsFileWritable(const char *name, const char *pathID) override
	{
		if (!m_ReadOnly.empty() && strstr(name, m_ReadOnly.c_str()))
			return false;
		return m_pInner->IsFileWritable(name, pathID);
	}
	bool SetFileWritable(const char *name, bool bWritable, const char *pathID) override { return m_pInner->SetFileWritable(name, bWritable, pathID); }
	int64 GetFileTime(const char *name, const char *pathID) override { return m_pInner->GetFileTime(name, pathID); }
	bool RemoveFile(const char *name, const char *pathID) override { return m_pInner->RemoveFile(name, pathID); }
	bool RenameFile(const char *oldName, const char *newName, const char *pathID) override { return m_pInner->RenameFile(oldName, newName, pathID); }
	bool CreateDirHierarchy(const char *path, const char *pathID) override { return m_pInner->CreateDirHierarchy(path, pathID); }
	bool CopyFile(const char *source, const char *target, const char *pathID) override { return m_pInner->CopyFile(source, target, pathID); }
	const char *FindFirst(const char *wildcard, FileFindHandle_t *pHandle) override { return m_pInner->FindFirst(wildcard, pHandle); }
	const char *FindFirstEx(const char *wildcard, const char *pathID, FileFindHandle_t *pHandle) override { return m_pInner->FindFirstEx(wildcard, pathID, pHandle); }
	const char *FindNext(FileFindHandle_t handle) override { return m_pInner->FindNext(handle); }
	bool FindIsDirectory(FileFindHandle_t handle) override { return m_pInner->FindIsDirectory(handle); }
	void FindClose(FileFindHandle_t handle) override { m_pInner->FindClose(handle); }
	FSAsyncControl_t AsyncWrite(const char *name, const void *data, int64 size, bool bFreeMemory, bool bAppend, const char *pathID) override { return m_pInner->AsyncWrite(name, data, size, bFreeMemory, bAppend, pathID); }
	bool AsyncIsDone(FSAsyncControl_t control) override { return m_pInner->AsyncIsDone(control); }
	FSAsyncStatus_t AsyncStatus(FSAsyncControl_t control) override { return m_pInner->AsyncStatus(control); }
	FSAsyncStatus_t AsyncFinish(FSAsyncControl_t control, bool bWait) override { return m_pInner->AsyncFinish(control, bWait); }
	FSAsyncStatus_t AsyncAbort(FSAsyncControl_t control) override { return m_pInner->AsyncAbort(control); }
	void AsyncRelease(FSAsyncControl_t control) override { m_pInner->AsyncRelease(control); }
	FileSystemErrorHook_t SetErrorHook(FileSystemErrorHook_t hook) override { return m_pInner->SetErrorHook(hook); }
	void ReportError(const char *message) override
	{
		m_Reported.push_back(message ? message : "");
		m_pInner->ReportError(message);
	}

private:
	IFileSystem *m_pInner;
	std::vector<FileHandle_t> m_ShortHandles;
};
