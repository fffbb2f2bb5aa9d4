// The Brume client: the link between the tool and the Mintyard content service.
//
// BrumeAPI_Init connects to the service named by the environment variable BRUME_SERVICE
// ("host:port", default 127.0.0.1:27080) and fails when no service answers there. Requests run
// on a worker thread; their results are queued and delivered only inside BrumeAPI_RunCallbacks,
// on the thread that calls it.
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

class IBrumeUser;
class IBrumeFriends;
class IBrumeUtils;
class IBrumeRemoteStorage;
class IBrumeUGC;

// The interfaces the tool calls. IBrumeUtils is complete here; the others are declared with
// the content-service operations.
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
