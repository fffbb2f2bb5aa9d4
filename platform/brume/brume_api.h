// The Brume client: the link between the tool and the Mintyard content service.
//
// BrumeAPI_Init connects to the service named by the environment variable BRUME_SERVICE
// ("host:port", default 127.0.0.1:27080) and fails when no service answers there. Requests run
// on a worker thread; their results are queued and delivered only inside BrumeAPI_RunCallbacks,
// on the thread that calls it.
//
// The client acts for the account named by BRUME_ACCOUNT (a decimal 64-bit account id), or for
// the service's own account when that is unset; every request carries it in the header
// "X-Brume-Account", and the service lets only a file's creator change or delete it. Installed
// items live under BRUME_DATA_DIR, else $XDG_DATA_HOME/mintyard/brume, else
// ~/.local/share/mintyard/brume.
//
// The shared context holds the interfaces of the client; it is filled by Init() after a
// successful BrumeAPI_Init and cleared with Clear().
#pragma once

#include "core/platform.h"

#if defined(BRUME_API_BUILDING)
#define BRUME_API extern "C" __attribute__((visibility("default")))
#else
#define BRUME_API extern "C"
#endif

typedef uint64 BrumeAPICall_t;
enum : uint64 { k_uAPICallInvalid = 0 };

enum EUniverse
{
	k_EUniverseInvalid = 0,
	k_EUniversePublic = 1,
	k_EUniverseBeta = 2,
	k_EUniverseInternal = 3,
	k_EUniverseDev = 4,
};

typedef uint32 AppId_t;
typedef uint64 PublishedFileId_t;
typedef uint64 UGCHandle_t;
typedef uint64 UGCUpdateHandle_t;
typedef uint64 BrumeID_t;
typedef uint32 RTime32;
enum : uint64 { k_UGCUpdateHandleInvalid = 0, k_UGCHandleInvalid = ~0ull, k_PublishedFileIdInvalid = 0 };

// Result codes of the service's answers.
enum EResult
{
	k_EResultNone = 0,
	k_EResultOK = 1,
	k_EResultFail = 2,
	k_EResultNoConnection = 3,
	k_EResultInvalidPassword = 5,
	k_EResultInvalidParam = 8,
	k_EResultFileNotFound = 9,
	k_EResultBusy = 10,
	k_EResultAccessDenied = 15,
	k_EResultTimeout = 16,
	k_EResultLimitedUserAccount = 24,
};

enum ERemoteStoragePublishedFileVisibility
{
	k_ERemoteStoragePublishedFileVisibilityPublic = 0,
	k_ERemoteStoragePublishedFileVisibilityFriendsOnly = 1,
	k_ERemoteStoragePublishedFileVisibilityPrivate = 2,
};

enum EUGCReadAction
{
	// The first two keep the downloaded bytes (and the name GetUGCDetails gave) until a read with
	// k_EUGCRead_Close, a new download of the handle, or BrumeAPI_Shutdown.
	k_EUGCRead_ContinueReadingUntilFinished = 0,
	k_EUGCRead_ContinueReading = 1,
	k_EUGCRead_Close = 2, // releases the bytes after this read
};

// A list of texts passed to the service (tags).
struct BrumeParamStringArray_t
{
	const char **m_ppStrings = nullptr;
	int32 m_nNumStrings = 0;
};

// The call results. Each is delivered to the call-result object armed with the call's handle, with
// a flag that says whether the request reached the service at all (IO failure); on IO failure
// m_eResult holds k_EResultNoConnection, or k_EResultTimeout when the service did not answer in time.
enum { k_nEnumeratePublishedFilesMaxResults = 50 };
enum { k_cchPublishedDocumentTitleMax = 129, k_cchPublishedDocumentDescriptionMax = 8000, k_cchTagListMax = 1025,
	k_cchFilenameMax = 260, k_cchPublishedFileURLMax = 256 };

struct RemoteStorageFileShareResult_t
{
	enum { k_iCallback = 1307 };
	EResult m_eResult;
	UGCHandle_t m_hFile;
	char m_rgchFilename[k_cchFilenameMax];
};

struct RemoteStoragePublishFileResult_t
{
	enum { k_iCallback = 1309 };
	EResult m_eResult;
	PublishedFileId_t m_nPublishedFileId;
	bool m_bUserNeedsToAcceptLegalAgreement;
};

struct RemoteStorageDeletePublishedFileResult_t
{
	enum { k_iCallback = 1311 };
	EResult m_eResult;
	PublishedFileId_t m_nPublishedFileId;
};

struct RemoteStorageEnumerateUserPublishedFilesResult_t
{
	enum { k_iCallback = 1312 };
	EResult m_eResult;
	int32 m_nResultsReturned;
	int32 m_nTotalResultCount;
	PublishedFileId_t m_rgPublishedFileId[k_nEnumeratePublishedFilesMaxResults];
};

struct RemoteStorageDownloadUGCResult_t
{
	enum { k_iCallback = 1317 };
	EResult m_eResult;
	UGCHandle_t m_hFile;
	AppId_t m_nAppID;
	int32 m_nSizeInBytes;
	char m_pchFileName[k_cchFilenameMax];
	BrumeID_t m_ulBrumeIDOwner;
};

struct RemoteStorageGetPublishedFileDetailsResult_t
{
	enum { k_iCallback = 1318 };
	EResult m_eResult;
	PublishedFileId_t m_nPublishedFileId;
	AppId_t m_nCreatorAppID;
	AppId_t m_nConsumerAppID;
	char m_rgchTitle[k_cchPublishedDocumentTitleMax];
	char m_rgchDescription[k_cchPublishedDocumentDescriptionMax];
	UGCHandle_t m_hFile;
	UGCHandle_t m_hPreviewFile;
	BrumeID_t m_ulBrumeIDOwner;
	RTime32 m_rtimeCreated;
	RTime32 m_rtimeUpdated;
	ERemoteStoragePublishedFileVisibility m_eVisibility;
	bool m_bBanned;
	char m_rgchTags[k_cchTagListMax]; // joined by ","
	bool m_bTagsTruncated;
	char m_pchFileName[k_cchFilenameMax];
	int32 m_nFileSize;
	int32 m_nPreviewFileSize;
	char m_rgchURL[k_cchPublishedFileURLMax]; // the preview's address
	int32 m_eFileType;
	bool m_bAcceptedForUse;
	uint32 m_nVotesUp;
	uint32 m_nVotesDown;
	float m_flScore;
};

struct RemoteStorageEnumerateUserSharedMintyardFilesResult_t
{
	enum { k_iCallback = 1326 };
	EResult m_eResult;
	int32 m_nResultsReturned;
	int32 m_nTotalResultCount;
	PublishedFileId_t m_rgPublishedFileId[k_nEnumeratePublishedFilesMaxResults];
};

typedef uint64 UGCQueryHandle_t;
struct BrumeUGCQueryCompleted_t
{
	enum { k_iCallback = 3401 };
	UGCQueryHandle_t m_handle;
	EResult m_eResult;
	uint32 m_unNumResultsReturned;
	uint32 m_unTotalMatchingResults;
	bool m_bCachedData;
};

struct CreateItemResult_t
{
	enum { k_iCallback = 3403 };
	EResult m_eResult;
	PublishedFileId_t m_nPublishedFileId;
	bool m_bUserNeedsToAcceptLegalAgreement;
};

struct SubmitItemUpdateResult_t
{
	enum { k_iCallback = 3404 };
	EResult m_eResult;
	bool m_bUserNeedsToAcceptLegalAgreement;
	PublishedFileId_t m_nPublishedFileId;
};

// Base of the objects that receive call results. Run gets the result struct of the call.
class CCallbackBase
{
public:
	virtual ~CCallbackBase() = default;
	virtual void Run(void *pvParam, bool bIOFailure, BrumeAPICall_t hCall) = 0;
	virtual int GetCallbackSizeBytes() const = 0;
	int GetICallback() const { return m_iCallback; }

protected:
	int m_iCallback = 0;
};

BRUME_API void BrumeAPI_RegisterCallResult(CCallbackBase *pCallback, BrumeAPICall_t hCall);
BRUME_API void BrumeAPI_UnregisterCallResult(CCallbackBase *pCallback, BrumeAPICall_t hCall);

// A call-result object: armed with the handle of one call, it calls `func` on `pObj` when the
// result arrives inside BrumeAPI_RunCallbacks. Arming again drops the earlier handle.
template <class T, class P>
class CCallResult final : public CCallbackBase
{
public:
	typedef void (T::*func_t)(P *, bool);

	CCallResult() { m_iCallback = P::k_iCallback; }
	~CCallResult() override { Cancel(); }
	CCallResult(const CCallResult &) = delete;
	CCallResult &operator=(const CCallResult &) = delete;

	void Set(BrumeAPICall_t hAPICall, T *pObj, func_t func)
	{
		Cancel();
		m_hAPICall = hAPICall;
		m_pObj = pObj;
		m_Func = func;
		if (hAPICall != k_uAPICallInvalid)
			BrumeAPI_RegisterCallResult(this, hAPICall);
	}
	bool IsActive() const { return m_hAPICall != k_uAPICallInvalid; }
	void Cancel()
	{
		if (m_hAPICall != k_uAPICallInvalid)
		{
			BrumeAPI_UnregisterCallResult(this, m_hAPICall);
			m_hAPICall = k_uAPICallInvalid;
		}
	}
	void Run(void *pvParam, bool bIOFailure, BrumeAPICall_t hCall) override
	{
		if (hCall != m_hAPICall)
			return;
		m_hAPICall = k_uAPICallInvalid; // the client has already forgotten the call
		if (m_pObj && m_Func)
			(m_pObj->*m_Func)((P *)pvParam, bIOFailure);
	}
	int GetCallbackSizeBytes() const override { return (int)sizeof(P); }

private:
	BrumeAPICall_t m_hAPICall = k_uAPICallInvalid;
	T *m_pObj = nullptr;
	func_t m_Func = nullptr;
};

// The signed-in account.
class IBrumeUser
{
public:
	virtual BrumeID_t GetBrumeID() = 0;
	virtual bool BLoggedOn() = 0;

protected:
	~IBrumeUser() = default;
};

class IBrumeFriends
{
public:
	virtual const char *GetPersonaName() = 0;
	// Name of another account as far as the client knows it (the owner of every file whose
	// details were fetched); "[unknown]" otherwise.
	virtual const char *GetFriendPersonaName(BrumeID_t brumeIDFriend) = 0;

protected:
	~IBrumeFriends() = default;
};

class IBrumeUtils
{
public:
	virtual uint32 GetAppID() = 0;
	virtual EUniverse GetConnectedUniverse() = 0;
	// The "host:port" of the service this client talks to.
	virtual const char *GetServiceAddress() = 0;

protected:
	~IBrumeUtils() = default;
};

class IBrumeRemoteStorage
{
public:
	// Ids of the signed-in account's files, 50 at most from `unStartIndex` (call result 1312).
	virtual BrumeAPICall_t EnumerateUserPublishedFiles(uint32 unStartIndex) = 0;
	// Ids of the files of an account that carry every required tag and no excluded one (1326).
	virtual BrumeAPICall_t EnumerateUserSharedMintyardFiles(BrumeID_t brumeId, uint32 unStartIndex,
		const BrumeParamStringArray_t *pRequiredTags, const BrumeParamStringArray_t *pExcludedTags) = 0;
	// Details of one file (1318); answered from the client's cache when its copy is at most
	// `unMaxSecondsOld` seconds old (0: always asks the service).
	virtual BrumeAPICall_t GetPublishedFileDetails(PublishedFileId_t unPublishedFileId, uint32 unMaxSecondsOld) = 0;
	virtual BrumeAPICall_t DeletePublishedFile(PublishedFileId_t unPublishedFileId) = 0; // 1311
	// Fetches a blob into the client's memory (1317); then GetUGCDetails and UGCRead give it.
	virtual BrumeAPICall_t UGCDownload(UGCHandle_t hContent, uint32 unPriority) = 0;
	virtual bool GetUGCDetails(UGCHandle_t hContent, AppId_t *pnAppID, char **ppchName, int32 *pnFileSizeInBytes,
		BrumeID_t *pBrumeIDOwner) = 0;
	// Copies up to `cubDataToRead` bytes from `cOffset`; returns the count, 0 past the end or for a
	// handle that was not downloaded.
	virtual int32 UGCRead(UGCHandle_t hContent, void *pvData, int32 cubDataToRead, uint32 cOffset, EUGCReadAction eAction) = 0;

protected:
	~IBrumeRemoteStorage() = default;
};

class IBrumeUGC
{
public:
	virtual BrumeAPICall_t CreateItem(AppId_t nConsumerAppId, int32 eFileType) = 0; // 3403
	// Starts collecting the changes of one item; k_UGCUpdateHandleInvalid when not connected.
	virtual UGCUpdateHandle_t StartItemUpdate(AppId_t nConsumerAppId, PublishedFileId_t nPublishedFileID) = 0;
	virtual bool SetItemTitle(UGCUpdateHandle_t handle, const char *pchTitle) = 0;
	virtual bool SetItemDescription(UGCUpdateHandle_t handle, const char *pchDescription) = 0;
	virtual bool SetItemVisibility(UGCUpdateHandle_t handle, ERemoteStoragePublishedFileVisibility eVisibility) = 0;
	virtual bool SetItemTags(UGCUpdateHandle_t handle, const BrumeParamStringArray_t *pTags) = 0;
	virtual bool AddItemKeyValueTag(UGCUpdateHandle_t handle, const char *pchKey, const char *pchValue) = 0;
	// Folder whose files (all of them, with sub-folders) become the item's content.
	virtual bool SetItemContent(UGCUpdateHandle_t handle, const char *pszContentFolder) = 0;
	virtual bool SetItemPreview(UGCUpdateHandle_t handle, const char *pszPreviewFile) = 0;
	// Uploads what was set (3404). On success the content folder is also installed for this
	// client, so GetItemInstallInfo reports it at once.
	virtual BrumeAPICall_t SubmitItemUpdate(UGCUpdateHandle_t handle, const char *pchChangeNote) = 0;
	// The folder of an installed item, "<data>/content/<appid>/<id>" under the client's data folder
	// ($BRUME_DATA_DIR, else $XDG_DATA_HOME/mintyard/brume, else ~/.local/share/mintyard/brume).
	virtual bool GetItemInstallInfo(PublishedFileId_t nPublishedFileID, uint64 *punSizeOnDisk, char *pchFolder,
		uint32 cchFolderSize, uint32 *punTimeStamp) = 0;
	// Downloads an item's content into its install folder, in the background (no call result).
	virtual bool DownloadItem(PublishedFileId_t nPublishedFileID, bool bHighPriority) = 0;

protected:
	~IBrumeUGC() = default;
};

BRUME_API bool BrumeAPI_Init();
BRUME_API void BrumeAPI_Shutdown();
BRUME_API void BrumeAPI_RunCallbacks();
BRUME_API void BrumeAPI_SetTryCatchCallbacks(bool bTryCatchCallbacks);
BRUME_API bool BrumeAPI_IsInitialized();

// Accessors of the client's interfaces (null when the client is not initialised).
BRUME_API IBrumeUser *BrumeAPI_User();
BRUME_API IBrumeFriends *BrumeAPI_Friends();
BRUME_API IBrumeUtils *BrumeAPI_Utils();
BRUME_API IBrumeRemoteStorage *BrumeAPI_RemoteStorage();
BRUME_API IBrumeUGC *BrumeAPI_UGC();

// The shared context: 22 interface pointers, of which the tool calls five. The client offers no
// others; their pointers stay null.
class CBrumeAPIContext
{
public:
	// Fills the pointers from the client; false when the client is not initialised.
	bool Init();
	void Clear();

	IBrumeUser *BrumeUser() const { return m_pBrumeUser; }
	IBrumeFriends *BrumeFriends() const { return m_pBrumeFriends; }
	IBrumeUtils *BrumeUtils() const { return m_pBrumeUtils; }
	IBrumeRemoteStorage *BrumeRemoteStorage() const { return m_pBrumeRemoteStorage; }
	IBrumeUGC *BrumeUGC() const { return m_pBrumeUGC; }

private:
	IBrumeUser *m_pBrumeUser = nullptr;
	IBrumeFriends *m_pBrumeFriends = nullptr;
	IBrumeUtils *m_pBrumeUtils = nullptr;
	void *m_pBrumeMatchmaking = nullptr;
	void *m_pBrumeMatchmakingServers = nullptr;
	void *m_pBrumeGameSearch = nullptr;
	void *m_pBrumeParties = nullptr;
	void *m_pBrumeApps = nullptr;
	void *m_pBrumeNetworking = nullptr;
	IBrumeRemoteStorage *m_pBrumeRemoteStorage = nullptr;
	void *m_pBrumeScreenshots = nullptr;
	void *m_pBrumeHTTP = nullptr;
	void *m_pBrumeController = nullptr;
	void *m_pBrumeInput = nullptr;
	IBrumeUGC *m_pBrumeUGC = nullptr;
	void *m_pBrumeAppList = nullptr;
	void *m_pBrumeMusic = nullptr;
	void *m_pBrumeMusicRemote = nullptr;
	void *m_pBrumeHTMLSurface = nullptr;
	void *m_pBrumeInventory = nullptr;
	void *m_pBrumeVideo = nullptr;
	void *m_pBrumeParentalSettings = nullptr;
};

// The process's shared context.
CBrumeAPIContext *BrumeAPIContext();
