// One file that the Brume cloud holds under a content handle, fetched and written to disk
// without blocking: started once, then polled with Update until it is done or failed.
#pragma once

#include <memory>

#include "brume/brume_api.h"
#include "core/platform.h"
#include "core/utlbuffer.h"
#include "filesystem/filesystem.h"

class CUGCFileRequest
{
public:
	enum EState
	{
		STATE_FAILED = -1,
		STATE_IDLE = 0,
		STATE_DOWNLOADING = 1,
		STATE_WRITING = 2,
		STATE_DONE = 4,
	};

	// Uses the host's file system unless another is given.
	explicit CUGCFileRequest(IFileSystem *pFileSystem = nullptr);
	~CUGCFileRequest();
	CUGCFileRequest(const CUGCFileRequest &) = delete;
	CUGCFileRequest &operator=(const CUGCFileRequest &) = delete;

	// Starts fetching `handle` into `directory`/`filename` (either may be empty or null; with no
	// name the cloud's is used). Without `bForceCheck`, a local file at least as new as
	// `expectedTime` (0: any) is taken as it is. Returns the new state.
	int StartDownload(UGCHandle_t handle, const char *directory, const char *filename, uint32 expectedTime, bool bForceCheck);
	// Polls the write; returns the state.
	int Update();
	// The local path: "directory/name", or the name alone without a directory.
	void GetFullPath(char *out, size_t outSize) const;

	int GetState() const { return m_eState; }
	const char *GetError() const { return m_szError; }
	UGCHandle_t GetHandle() const { return m_hFile; }
	const char *GetCloudFilename() const { return m_sCloudFilename; }

private:
	void OnDownload(RemoteStorageDownloadUGCResult_t *pResult, bool bIOFailure);
	void OnShare(RemoteStorageFileShareResult_t *pResult, bool bIOFailure);
	void Fail(const char *fmt, ...) FMTFUNCTION(2, 3);
	void StoreNames(UGCHandle_t handle, const char *directory, const char *filename);
	IFileSystem *FileSystem() const;

	CCallResult<CUGCFileRequest, RemoteStorageDownloadUGCResult_t> m_callDownload;
	CCallResult<CUGCFileRequest, RemoteStorageFileShareResult_t> m_callShare;
	char m_sLocalDirectory[260] = {};
	char m_sLocalFilename[260] = {};
	char m_sCloudFilename[260] = {};
	CUtlBuffer m_buffer;
	UGCHandle_t m_hFile = k_UGCHandleInvalid;
	std::shared_ptr<FSAsyncControlOpaque_t> m_pAsyncWrite;
	int32 m_eState = STATE_IDLE;
	char m_szError[512] = {};
	IFileSystem *m_pFileSystem = nullptr;
};
