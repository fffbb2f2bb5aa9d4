// The Brume client library: connection to the content service and delivery of call results.
#include <cstdlib>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include <httplib.h>
#include <rapidjson/document.h>

#define BRUME_API_BUILDING
#include "brume/brume_api.h"
#include "core/logging.h"
#include "core/strtools.h"

namespace
{
DEFINE_LOGGING_CHANNEL(LOG_BRUME, "Brume");

const char *kDefaultService = "127.0.0.1:27080";

class CBrumeUtils final : public IBrumeUtils
{
public:
	uint32 GetAppID() override { return m_nAppID; }
	EUniverse GetConnectedUniverse() override { return m_eUniverse; }
	const char *GetServiceAddress() override { return m_Address.c_str(); }

	uint32 m_nAppID = 0;
	EUniverse m_eUniverse = k_EUniverseInvalid;
	CUtlString m_Address;
};

struct Client_t
{
	CUtlString host;
	int port = 0;
	CBrumeUtils utils;
	bool bTryCatchCallbacks = true;
	std::mutex queueMutex;
	std::deque<std::function<void()>> pendingResults; // filled by the worker, run by RunCallbacks
};

std::unique_ptr<Client_t> s_pClient;

// "host:port"; false when the text is no such pair.
bool ParseAddress(const CUtlString &address, CUtlString &host, int &port)
{
	const size_t colon = address.rfind(':');
	if (colon == CUtlString::npos || colon == 0)
		return false;
	host = address.substr(0, colon);
	port = atoi(address.c_str() + colon + 1);
	return port > 0 && port < 65536;
}
} // namespace

BRUME_API bool BrumeAPI_Init()
{
	if (s_pClient)
		return true;
	const char *fromEnvironment = getenv("BRUME_SERVICE");
	const CUtlString address = (fromEnvironment && *fromEnvironment) ? fromEnvironment : kDefaultService;
	auto client = std::make_unique<Client_t>();
	if (!ParseAddress(address, client->host, client->port))
	{
		Log_Warning(LOG_BRUME, "Brume: BRUME_SERVICE \"%s\" is not of the form host:port\n", address.c_str());
		return false;
	}

	httplib::Client http(client->host, client->port);
	http.set_connection_timeout(1, 500000);
	http.set_read_timeout(3, 0);
	auto response = http.Get("/api/v1/status");
	if (!response || response->status != 200)
	{
		Log_Msg(LOG_BRUME, "Brume: no content service answers at %s\n", address.c_str());
		return false;
	}
	rapidjson::Document status;
	status.Parse(response->body.c_str(), response->body.size());
	if (status.HasParseError() || !status.IsObject() || !status.HasMember("service") || !status["service"].IsString() ||
		std::string(status["service"].GetString()) != "mintyard")
	{
		Log_Warning(LOG_BRUME, "Brume: the service at %s is no Mintyard content service\n", address.c_str());
		return false;
	}
	if (status.HasMember("appid") && status["appid"].IsUint())
		client->utils.m_nAppID = status["appid"].GetUint();
	if (status.HasMember("universe") && status["universe"].IsInt())
		client->utils.m_eUniverse = (EUniverse)status["universe"].GetInt();
	client->utils.m_Address = address;
	s_pClient = std::move(client);
	Log_Msg(LOG_BRUME, "Brume: connected to %s\n", address.c_str());
	return true;
}

BRUME_API void BrumeAPI_Shutdown()
{
	s_pClient.reset();
}

BRUME_API bool BrumeAPI_IsInitialized()
{
	return s_pClient != nullptr;
}

BRUME_API void BrumeAPI_SetTryCatchCallbacks(bool bTryCatchCallbacks)
{
	if (s_pClient)
		s_pClient->bTryCatchCallbacks = bTryCatchCallbacks;
}

BRUME_API void BrumeAPI_RunCallbacks()
{
	if (!s_pClient)
		return;
	// Results that arrived since the last frame; results queued by these callbacks wait for
	// the next frame.
	std::deque<std::function<void()>> ready;
	{
		std::lock_guard<std::mutex> lock(s_pClient->queueMutex);
		ready.swap(s_pClient->pendingResults);
	}
	for (std::function<void()> &deliver : ready)
		deliver();
}

BRUME_API IBrumeUser *BrumeAPI_User()
{
	return nullptr; // offered with the content-service operations
}

BRUME_API IBrumeFriends *BrumeAPI_Friends()
{
	return nullptr;
}

BRUME_API IBrumeUtils *BrumeAPI_Utils()
{
	return s_pClient ? &s_pClient->utils : nullptr;
}

BRUME_API IBrumeRemoteStorage *BrumeAPI_RemoteStorage()
{
	return nullptr;
}

BRUME_API IBrumeUGC *BrumeAPI_UGC()
{
	return nullptr;
}

bool CBrumeAPIContext::Init()
{
	Clear();
	if (!BrumeAPI_IsInitialized())
		return false;
	m_pBrumeUser = BrumeAPI_User();
	m_pBrumeFriends = BrumeAPI_Friends();
	m_pBrumeUtils = BrumeAPI_Utils();
	m_pBrumeRemoteStorage = BrumeAPI_RemoteStorage();
	m_pBrumeUGC = BrumeAPI_UGC();
	return true;
}

void CBrumeAPIContext::Clear()
{
	*this = CBrumeAPIContext();
}

CBrumeAPIContext *BrumeAPIContext()
{
	static CBrumeAPIContext s_Context;
	return &s_Context;
}
