#include "mintyardmanager/ugcfilerequest.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "core/logging.h"
#include "core/strtools.h"
#include "toolframework/toolframework.h"

namespace
{
// Reads from the client's copy of a file go in steps of at most this many bytes.
const int32 kMaxReadStep = 104857600;

void ReleaseAsyncControl(IFileSystem *pFileSystem, FSAsyncControl_t control)
{
	if (pFileSystem && control)
		pFileSystem->AsyncRelease(control);
}
} // namespace

CUGCFileRequest::CUGCFileRequest(IFileSystem *pFileSystem) : m_pFileSystem(pFileSystem)
{
}

CUGCFileRequest::~CUGCFileRequest()
{
	if (m_pAsyncWrite)
	{
		if (IFileSystem *fs = FileSystem())
			fs->AsyncAbort(m_pAsyncWrite.get());
		m_pAsyncWrite.reset();
	}
	m_buffer.Purge();
	m_callShare.Cancel();
	m_callDownload.Cancel();
}

IFileSystem *CUGCFileRequest::FileSystem() const
{
	return m_pFileSystem ? m_pFileSystem : g_pFullFileSystem;
}

void CUGCFileRequest::Fail(const char *fmt, ...)
{
	va_list args;
	va_start(args, fmt);
	vsnprintf(m_szError, sizeof(m_szError), fmt, args);
	va_end(args);
	Warning("%s", m_szError);
	m_eState = STATE_FAILED;
}

void CUGCFileRequest::StoreNames(UGCHandle_t handle, const char *directory, const char *filename)
{
	m_hFile = handle;
	V_strncpy(m_sLocalDirectory, directory ? directory : "", sizeof(m_sLocalDirectory));
	V_strncpy(m_sLocalFilename, filename ? filename : "", sizeof(m_sLocalFilename));
}

void CUGCFileRequest::GetFullPath(char *out, size_t outSize) const
{
	if (!out || outSize == 0)
		return;
	const char *name = m_sLocalFilename[0] ? m_sLocalFilename : m_sCloudFilename;
	if (m_sLocalDirectory[0])
		snprintf(out, outSize, "%s/%s", m_sLocalDirectory, name);
	else
		V_strncpy(out, name, outSize);
}

int CUGCFileRequest::StartDownload(UGCHandle_t handle, const char *directory, const char *filename, uint32 expectedTime, bool bForceCheck)
{
	m_eState = STATE_FAILED;

	if (!bForceCheck && filename && filename[0])
	{
		char path[520];
		if (directory && directory[0])
			snprintf(path, sizeof(path), "%s/%s", directory, filename);
		else
			V_strncpy(path, filename, sizeof(path));
		IFileSystem *fs = FileSystem();
		if (fs && fs->FileExists(path) && (expectedTime == 0 || fs->GetFileTime(path, "MOD") >= (int64)expectedTime))
		{
			StoreNames(handle, directory, filename);
			m_eState = STATE_DONE;
			return m_eState;
		}
	}

	IBrumeRemoteStorage *storage = BrumeAPIContext()->BrumeRemoteStorage();
	const BrumeAPICall_t hCall = storage ? storage->UGCDownload(handle, 0) : k_uAPICallInvalid;
	if (hCall == k_uAPICallInvalid)
	{
		Fail("Failed to initiate download of file from cloud\n");
		return m_eState;
	}
	m_callDownload.Set(hCall, this, &CUGCFileRequest::OnDownload);
	StoreNames(handle, directory, filename);
	m_eState = STATE_DOWNLOADING;
	return m_eState;
}

void CUGCFileRequest::OnShare(RemoteStorageFileShareResult_t *, bool)
{
	// This request only downloads; the share result is never armed.
}

void CUGCFileRequest::OnDownload(RemoteStorageDownloadUGCResult_t *pResult, bool bIOFailure)
{
	if (bIOFailure || pResult->m_eResult != k_EResultOK)
	{
		Fail("Download of file from cloud failed!\n");
		return;
	}

	IBrumeRemoteStorage *storage = BrumeAPIContext()->BrumeRemoteStorage();
	AppId_t appId = 0;
	char *cloudName = nullptr;
	int32 nSize = 0;
	BrumeID_t owner = 0;
	if (!storage || !storage->GetUGCDetails(m_hFile, &appId, &cloudName, &nSize, &owner) || nSize < 1)
	{
		Fail("Unable to retrieve cloud file info from Brume\n");
		return;
	}

	V_strncpy(m_sCloudFilename, cloudName ? cloudName : "", sizeof(m_sCloudFilename));
	m_buffer.Clear();
	m_buffer.SetSize((size_t)nSize);
	int32 nRead = 0;
	while (nRead < nSize)
	{
		const int32 step = std::min(kMaxReadStep, nSize - nRead);
		const int32 got = storage->UGCRead(m_hFile, m_buffer.Base() + nRead, step, (uint32)nRead, k_EUGCRead_ContinueReadingUntilFinished);
		if (got < 1)
		{
			m_buffer.Purge();
			Fail("[UGC] Failed call to UGCRead on cloud file %s (%llu)\n", m_sCloudFilename, (unsigned long long)m_hFile);
			return;
		}
		nRead += got;
	}

	if (!m_sLocalFilename[0])
		V_strncpy(m_sLocalFilename, m_sCloudFilename, sizeof(m_sLocalFilename));

	IFileSystem *fs = FileSystem();
	char target[520];
	if (m_sLocalDirectory[0])
	{
		snprintf(target, sizeof(target), "%s/%s", m_sLocalDirectory, m_sLocalFilename);
		if (fs)
			fs->CreateDirHierarchy(m_sLocalDirectory, "DEFAULT_WRITE_PATH");
	}
	else
	{
		V_strncpy(target, m_sLocalFilename, sizeof(target));
	}

	FSAsyncControl_t control = fs ? fs->AsyncWrite(target, m_buffer.Base(), (int64)m_buffer.Size(), false) : nullptr;
	if (control)
		m_pAsyncWrite = std::shared_ptr<FSAsyncControlOpaque_t>(control, [fs](FSAsyncControl_t c) { ReleaseAsyncControl(fs, c); });
	else
		m_pAsyncWrite.reset();
	m_eState = STATE_WRITING;
}

int CUGCFileRequest::Update()
{
	if (m_eState != STATE_WRITING)
		return m_eState;
	if (!m_pAsyncWrite)
	{
		Fail("Lost handle to async handle for downloaded file write!");
		return m_eState;
	}
	IFileSystem *fs = FileSystem();
	if (!fs->AsyncIsDone(m_pAsyncWrite.get()))
		return m_eState;
	const FSAsyncStatus_t status = fs->AsyncFinish(m_pAsyncWrite.get(), false);
	m_pAsyncWrite.reset();
	if (status == FSASYNC_OK)
	{
		m_buffer.Purge();
		m_eState = STATE_DONE;
	}
	else
	{
		Fail("Unable to write file to disc!\n");
	}
	return m_eState;
}
