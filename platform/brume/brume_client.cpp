// The Brume client library: connection to the content service, the request worker and delivery of
// call results.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <httplib.h>
#include <sys/stat.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#define BRUME_API_BUILDING
#include "brume/brume_api.h"
#include "brume/brumewire.h"
#include "core/logging.h"
#include "core/pathutils.h"
#include "core/strtools.h"

namespace
{
DEFINE_LOGGING_CHANNEL(LOG_BRUME, "Brume");

const char *kDefaultService = "127.0.0.1:27080";
namespace fs = std::filesystem;

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

// The client's result codes are the service's answers as they come.
static_assert(k_EResultOK == (int)BRUME_RESULT_OK && k_EResultFail == (int)BRUME_RESULT_FAIL &&
	k_EResultInvalidParam == (int)BRUME_RESULT_INVALID_PARAM && k_EResultFileNotFound == (int)BRUME_RESULT_FILE_NOT_FOUND &&
	k_EResultAccessDenied == (int)BRUME_RESULT_ACCESS_DENIED);

std::string FileRoute(uint64 id)
{
	return std::string(BRUME_ROUTE_FILES) + "/" + std::to_string(id);
}

std::string UgcRoute(uint64 handle)
{
	return std::string(BRUME_ROUTE_UGC) + "/" + std::to_string(handle);
}

// A page of 50 of an account's files, or of the files it shares (its own and those it
// contributes to).
std::string ListingQuery(uint64 creator, bool bShared, uint32 start)
{
	std::string query = std::string(BRUME_PARAM_CREATOR) + "=" + std::to_string(creator);
	if (bShared)
		query += std::string("&") + BRUME_PARAM_SHARED + "=1";
	return query + "&" + BRUME_PARAM_START + "=" + std::to_string(start) + "&" + BRUME_PARAM_COUNT + "=50";
}

template <size_t N>
void CopyText(char (&target)[N], const std::string &text)
{
	V_strncpy(target, text.c_str(), (int)N);
}

std::string ClientDataDir()
{
	if (const char *dir = getenv("BRUME_DATA_DIR"); dir && *dir)
		return dir;
	if (const char *xdg = getenv("XDG_DATA_HOME"); xdg && *xdg)
		return std::string(xdg) + "/mintyard/brume";
	const char *home = getenv("HOME");
	return std::string(home && *home ? home : "/tmp") + "/.local/share/mintyard/brume";
}

// What one request gave back.
struct Answer_t
{
	bool m_bIOFailure = false;
	EResult m_eResult = k_EResultFail;
	int m_nStatus = 0;
	std::string m_sBody;
	rapidjson::Document m_Json;
	httplib::Headers m_Headers;
};

// The changes collected between StartItemUpdate and SubmitItemUpdate.
struct ItemUpdate_t
{
	AppId_t m_nAppID = 0;
	PublishedFileId_t m_nPublishedFileId = 0;
	std::optional<std::string> m_sTitle, m_sDescription, m_sContentFolder, m_sPreviewFile;
	std::optional<int> m_eVisibility;
	std::optional<std::vector<std::string>> m_vecTags;
	std::vector<std::pair<std::string, std::string>> m_vecKeyValueTags;
};

struct DownloadedBlob_t
{
	std::string m_sName;
	std::string m_sBytes;
	AppId_t m_nAppID = 0;
	BrumeID_t m_ulOwner = 0;
};

struct PendingResult_t
{
	BrumeAPICall_t m_hCall;
	std::vector<uint8> m_Bytes;
	bool m_bIOFailure;
};

class CBrumeClient;
CBrumeClient *s_pClient = nullptr;

class CBrumeClient final : public IBrumeUser, public IBrumeFriends, public IBrumeUtils, public IBrumeRemoteStorage, public IBrumeUGC
{
public:
	CUtlString m_Host;
	int m_nPort = 0;
	CUtlString m_Address;
	uint32 m_nAppID = 0;
	EUniverse m_eUniverse = k_EUniverseInvalid;
	BrumeID_t m_ulBrumeID = 0;
	std::string m_sPersona;
	bool m_bTryCatchCallbacks = true;
	std::string m_sDataDir;

	~CBrumeClient() { StopWorker(); }

	// ---- worker ---------------------------------------------------------------------------------
	void StartWorker()
	{
		m_Worker = std::thread([this]() { WorkerLoop(); });
	}

	void StopWorker()
	{
		{
			std::lock_guard<std::mutex> lock(m_JobMutex);
			m_bStopping = true;
			if (m_pWorkerHttp)
				m_pWorkerHttp->stop(); // ends a request that is in flight
		}
		m_JobReady.notify_all();
		if (m_Worker.joinable())
			m_Worker.join();
	}

	void WorkerLoop()
	{
		httplib::Client http(m_Host, m_nPort);
		http.set_connection_timeout(2, 0);
		http.set_read_timeout(30, 0);
		http.set_write_timeout(30, 0);
		http.set_keep_alive(true);
		http.set_tcp_nodelay(true);
		{
			std::lock_guard<std::mutex> lock(m_JobMutex);
			m_pWorkerHttp = &http;
		}
		for (;;)
		{
			std::function<void(httplib::Client &)> job;
			{
				std::unique_lock<std::mutex> lock(m_JobMutex);
				m_JobReady.wait(lock, [this]() { return m_bStopping || !m_Jobs.empty(); });
				if (m_bStopping)
					break;
				job = std::move(m_Jobs.front());
				m_Jobs.pop_front();
			}
			job(http);
		}
		std::lock_guard<std::mutex> lock(m_JobMutex);
		m_pWorkerHttp = nullptr;
	}

	// Queues a request; the handle names its result.
	BrumeAPICall_t Post(std::function<void(httplib::Client &, BrumeAPICall_t)> job)
	{
		const BrumeAPICall_t hCall = ++m_nLastCall;
		{
			std::lock_guard<std::mutex> lock(m_JobMutex);
			if (m_bStopping)
				return k_uAPICallInvalid;
			m_Jobs.push_back([job = std::move(job), hCall](httplib::Client &http) { job(http, hCall); });
		}
		m_JobReady.notify_one();
		return hCall;
	}

	template <class P>
	void Deliver(BrumeAPICall_t hCall, const P &result, bool bIOFailure)
	{
		PendingResult_t pending{hCall, std::vector<uint8>(sizeof(P)), bIOFailure};
		memcpy(pending.m_Bytes.data(), &result, sizeof(P));
		std::lock_guard<std::mutex> lock(m_ResultMutex);
		m_Results.push_back(std::move(pending));
	}

	Answer_t Request(httplib::Client &http, const char *method, const std::string &path, const std::string &body = std::string(),
		const char *contentType = "application/json", const httplib::MultipartFormDataItems *pItems = nullptr,
		const httplib::MultipartFormDataProviderItems *pFiles = nullptr)
	{
		Answer_t answer;
		httplib::Headers headers = {{BRUME_HEADER_ACCOUNT, std::to_string(m_ulBrumeID)}};
		httplib::Result result{nullptr, httplib::Error::Unknown};
		const std::string m = method;
		if (m == "GET")
			result = http.Get(path, headers);
		else if (m == "DELETE")
			result = http.Delete(path, headers);
		else if (pItems && pFiles)
			result = http.Post(path, headers, *pItems, *pFiles);
		else if (pItems)
			result = http.Post(path, headers, *pItems);
		else
			result = http.Post(path, headers, body, contentType);
		if (!result)
		{
			answer.m_bIOFailure = true;
			answer.m_eResult = result.error() == httplib::Error::Read ? k_EResultTimeout : k_EResultNoConnection;
			Log_Msg(LOG_BRUME, "Brume: %s %s failed: %s\n", method, path.c_str(), httplib::to_string(result.error()).c_str());
			return answer;
		}
		answer.m_nStatus = result->status;
		answer.m_Headers = result->headers;
		answer.m_sBody = std::move(result->body);
		const bool bJson = result->get_header_value("Content-Type").find("application/json") != std::string::npos;
		if (bJson)
		{
			answer.m_Json.Parse(answer.m_sBody.c_str(), answer.m_sBody.size());
			if (!answer.m_Json.HasParseError() && answer.m_Json.IsObject() && answer.m_Json.HasMember(BRUME_JSON_RESULT) && answer.m_Json[BRUME_JSON_RESULT].IsInt())
				answer.m_eResult = (EResult)answer.m_Json[BRUME_JSON_RESULT].GetInt();
			else
				answer.m_eResult = k_EResultFail;
		}
		else
			answer.m_eResult = result->status == 200 ? k_EResultOK : (result->status == 404 ? k_EResultFileNotFound : k_EResultFail);
		return answer;
	}

	static uint64 U64(const rapidjson::Value &o, const char *key)
	{
		return o.HasMember(key) && o[key].IsUint64() ? o[key].GetUint64() : 0;
	}
	static int64 I64(const rapidjson::Value &o, const char *key)
	{
		return o.HasMember(key) && o[key].IsInt64() ? o[key].GetInt64() : 0;
	}
	static std::string Str(const rapidjson::Value &o, const char *key)
	{
		return o.HasMember(key) && o[key].IsString() ? std::string(o[key].GetString(), o[key].GetStringLength()) : std::string();
	}

	// ---- call-result delivery -------------------------------------------------------------------
	void Register(CCallbackBase *pCallback, BrumeAPICall_t hCall)
	{
		std::lock_guard<std::mutex> lock(m_RegistrationMutex);
		m_Registered[hCall] = pCallback;
	}
	void Unregister(CCallbackBase *pCallback, BrumeAPICall_t hCall)
	{
		std::lock_guard<std::mutex> lock(m_RegistrationMutex);
		auto it = m_Registered.find(hCall);
		if (it != m_Registered.end() && it->second == pCallback)
			m_Registered.erase(it);
	}

	void RunCallbacks()
	{
		// Results that arrived since the last frame; results of calls made by these callbacks wait
		// for the next frame.
		std::deque<PendingResult_t> ready;
		{
			std::lock_guard<std::mutex> lock(m_ResultMutex);
			ready.swap(m_Results);
		}
		for (PendingResult_t &pending : ready)
		{
			CCallbackBase *pCallback = nullptr;
			{
				std::lock_guard<std::mutex> lock(m_RegistrationMutex);
				auto it = m_Registered.find(pending.m_hCall);
				if (it == m_Registered.end())
					continue; // nobody waits for it any more
				pCallback = it->second;
				m_Registered.erase(it);
			}
			if ((size_t)pCallback->GetCallbackSizeBytes() != pending.m_Bytes.size())
			{
				Log_Warning(LOG_BRUME, "Brume: call %llu answered with a result of another kind (callback %d)\n",
					(unsigned long long)pending.m_hCall, pCallback->GetICallback());
				continue;
			}
			if (!m_bTryCatchCallbacks)
			{
				pCallback->Run(pending.m_Bytes.data(), pending.m_bIOFailure, pending.m_hCall);
				continue;
			}
			try
			{
				pCallback->Run(pending.m_Bytes.data(), pending.m_bIOFailure, pending.m_hCall);
			}
			catch (const std::exception &e)
			{
				Log_Warning(LOG_BRUME, "Brume: a call-result handler threw: %s\n", e.what());
			}
			catch (...)
			{
				Log_Warning(LOG_BRUME, "Brume: a call-result handler threw\n");
			}
		}
	}

	// ---- IBrumeUser / IBrumeFriends / IBrumeUtils ----------------------------------------------
	BrumeID_t GetBrumeID() override { return m_ulBrumeID; }
	bool BLoggedOn() override { return true; }
	const char *GetPersonaName() override { return m_sPersona.c_str(); }
	const char *GetFriendPersonaName(BrumeID_t id) override
	{
		if (id == m_ulBrumeID)
			return m_sPersona.c_str();
		std::lock_guard<std::mutex> lock(m_CacheMutex);
		auto it = m_Personas.find(id);
		return it != m_Personas.end() ? it->second.c_str() : "[unknown]";
	}
	uint32 GetAppID() override { return m_nAppID; }
	EUniverse GetConnectedUniverse() override { return m_eUniverse; }
	const char *GetServiceAddress() override { return m_Address.c_str(); }

	// ---- IBrumeRemoteStorage --------------------------------------------------------------------
	template <class P>
	BrumeAPICall_t Enumerate(std::string query)
	{
		return Post([this, query](httplib::Client &http, BrumeAPICall_t hCall) {
			P result{};
			Answer_t a = Request(http, "GET", std::string(BRUME_ROUTE_FILES) + "?" + query);
			result.m_eResult = a.m_eResult;
			if (!a.m_bIOFailure && a.m_eResult == k_EResultOK)
			{
				result.m_nTotalResultCount = (int32)U64(a.m_Json, BRUME_JSON_TOTAL);
				if (a.m_Json.HasMember(BRUME_JSON_IDS) && a.m_Json[BRUME_JSON_IDS].IsArray())
					for (const auto &id : a.m_Json[BRUME_JSON_IDS].GetArray())
						if (id.IsUint64() && result.m_nResultsReturned < k_nEnumeratePublishedFilesMaxResults)
							result.m_rgPublishedFileId[result.m_nResultsReturned++] = id.GetUint64();
			}
			Deliver(hCall, result, a.m_bIOFailure);
		});
	}

	BrumeAPICall_t EnumerateUserPublishedFiles(uint32 unStartIndex) override
	{
		return Enumerate<RemoteStorageEnumerateUserPublishedFilesResult_t>(ListingQuery(m_ulBrumeID, false, unStartIndex));
	}

	BrumeAPICall_t EnumerateUserSharedMintyardFiles(BrumeID_t brumeId, uint32 unStartIndex, const BrumeParamStringArray_t *pRequiredTags,
		const BrumeParamStringArray_t *pExcludedTags) override
	{
		// The files the account made and those it contributes to.
		std::string query = ListingQuery(brumeId, true, unStartIndex);
		auto add = [&query](const char *key, const BrumeParamStringArray_t *pTags) {
			for (int32 i = 0; pTags && pTags->m_ppStrings && i < pTags->m_nNumStrings; ++i)
				if (pTags->m_ppStrings[i])
					query += std::string("&") + key + "=" + httplib::detail::encode_query_param(pTags->m_ppStrings[i]);
		};
		add(BRUME_PARAM_REQUIRED, pRequiredTags);
		add(BRUME_PARAM_EXCLUDED, pExcludedTags);
		return Enumerate<RemoteStorageEnumerateUserSharedMintyardFilesResult_t>(query);
	}

	void FillDetails(const rapidjson::Value &j, RemoteStorageGetPublishedFileDetailsResult_t &r)
	{
		r.m_nCreatorAppID = r.m_nConsumerAppID = (AppId_t)U64(j, BRUME_JSON_APP_ID);
		CopyText(r.m_rgchTitle, Str(j, BRUME_JSON_TITLE));
		CopyText(r.m_rgchDescription, Str(j, BRUME_JSON_FILE_DESCRIPTION));
		r.m_hFile = U64(j, BRUME_JSON_HCONTENT_FILE);
		r.m_hPreviewFile = U64(j, BRUME_JSON_HCONTENT_PREVIEW);
		if (!r.m_hFile)
			r.m_hFile = k_UGCHandleInvalid;
		if (!r.m_hPreviewFile)
			r.m_hPreviewFile = k_UGCHandleInvalid;
		r.m_ulBrumeIDOwner = U64(j, BRUME_JSON_CREATOR);
		r.m_rtimeCreated = (RTime32)U64(j, BRUME_JSON_TIME_CREATED);
		r.m_rtimeUpdated = (RTime32)U64(j, BRUME_JSON_TIME_UPDATED);
		r.m_eVisibility = (ERemoteStoragePublishedFileVisibility)I64(j, BRUME_JSON_VISIBILITY);
		r.m_bBanned = j.HasMember(BRUME_JSON_BANNED) && j[BRUME_JSON_BANNED].IsBool() && j[BRUME_JSON_BANNED].GetBool();
		r.m_bAcceptedForUse = j.HasMember(BRUME_JSON_MINTYARD_ACCEPTED) && j[BRUME_JSON_MINTYARD_ACCEPTED].IsBool() && j[BRUME_JSON_MINTYARD_ACCEPTED].GetBool();
		std::string tags;
		if (j.HasMember(BRUME_JSON_TAGS) && j[BRUME_JSON_TAGS].IsArray())
			for (const auto &t : j[BRUME_JSON_TAGS].GetArray())
				if (t.IsString())
					tags += (tags.empty() ? "" : ",") + std::string(t.GetString());
		r.m_bTagsTruncated = tags.size() >= sizeof(r.m_rgchTags);
		CopyText(r.m_rgchTags, tags);
		CopyText(r.m_pchFileName, Str(j, BRUME_JSON_FILENAME));
		r.m_nFileSize = (int32)std::min<int64>(I64(j, BRUME_JSON_FILE_SIZE), INT32_MAX);
		r.m_nPreviewFileSize = (int32)std::min<int64>(I64(j, BRUME_JSON_PREVIEW_FILE_SIZE), INT32_MAX);
		const std::string preview = Str(j, BRUME_JSON_PREVIEW_URL);
		CopyText(r.m_rgchURL, preview.empty() ? preview : "http://" + std::string(m_Address) + preview);
		r.m_eFileType = (int32)I64(j, BRUME_JSON_FILE_TYPE);
		if (j.HasMember(BRUME_JSON_VOTE_DATA) && j[BRUME_JSON_VOTE_DATA].IsObject())
		{
			const rapidjson::Value &v = j[BRUME_JSON_VOTE_DATA];
			r.m_nVotesUp = (uint32)U64(v, BRUME_JSON_VOTES_UP);
			r.m_nVotesDown = (uint32)U64(v, BRUME_JSON_VOTES_DOWN);
			r.m_flScore = v.HasMember(BRUME_JSON_SCORE) && v[BRUME_JSON_SCORE].IsNumber() ? (float)v[BRUME_JSON_SCORE].GetDouble() : 0.0f;
		}
	}

	BrumeAPICall_t GetPublishedFileDetails(PublishedFileId_t id, uint32 unMaxSecondsOld) override
	{
		return Post([this, id, unMaxSecondsOld](httplib::Client &http, BrumeAPICall_t hCall) {
			auto result = std::make_unique<RemoteStorageGetPublishedFileDetailsResult_t>();
			const auto now = std::chrono::steady_clock::now();
			if (unMaxSecondsOld > 0)
			{
				std::lock_guard<std::mutex> lock(m_CacheMutex);
				auto it = m_Details.find(id);
				if (it != m_Details.end() && now - it->second.first <= std::chrono::seconds(unMaxSecondsOld))
				{
					Deliver(hCall, it->second.second, false);
					return;
				}
			}
			*result = RemoteStorageGetPublishedFileDetailsResult_t{};
			result->m_nPublishedFileId = id;
			Answer_t a = Request(http, "GET", FileRoute(id));
			result->m_eResult = a.m_eResult;
			if (!a.m_bIOFailure && a.m_eResult == k_EResultOK)
			{
				FillDetails(a.m_Json, *result);
				std::lock_guard<std::mutex> lock(m_CacheMutex);
				// Kept as it is when unchanged, so that names handed out earlier stay valid.
				std::string &persona = m_Personas[result->m_ulBrumeIDOwner];
				const std::string fresh = Str(a.m_Json, BRUME_JSON_CREATOR_PERSONA);
				if (persona != fresh)
					persona = fresh;
				m_Details[id] = {now, *result};
			}
			else if (a.m_eResult == k_EResultFileNotFound)
			{
				std::lock_guard<std::mutex> lock(m_CacheMutex);
				m_Details.erase(id);
			}
			Deliver(hCall, *result, a.m_bIOFailure);
		});
	}

	BrumeAPICall_t DeletePublishedFile(PublishedFileId_t id) override
	{
		return Post([this, id](httplib::Client &http, BrumeAPICall_t hCall) {
			RemoteStorageDeletePublishedFileResult_t result{};
			result.m_nPublishedFileId = id;
			Answer_t a = Request(http, "DELETE", FileRoute(id));
			result.m_eResult = a.m_eResult;
			if (!a.m_bIOFailure && a.m_eResult == k_EResultOK)
			{
				std::lock_guard<std::mutex> lock(m_CacheMutex);
				m_Details.erase(id);
			}
			Deliver(hCall, result, a.m_bIOFailure);
		});
	}

	BrumeAPICall_t UGCDownload(UGCHandle_t hContent, uint32) override
	{
		if (hContent == 0 || hContent == k_UGCHandleInvalid)
			return k_uAPICallInvalid;
		return Post([this, hContent](httplib::Client &http, BrumeAPICall_t hCall) {
			RemoteStorageDownloadUGCResult_t result{};
			result.m_hFile = hContent;
			Answer_t a = Request(http, "GET", UgcRoute(hContent));
			result.m_eResult = a.m_eResult;
			if (!a.m_bIOFailure && a.m_nStatus == 200)
			{
				auto header = [&a](const char *key) {
					auto it = a.m_Headers.find(key);
					return it != a.m_Headers.end() ? it->second : std::string();
				};
				DownloadedBlob_t blob;
				blob.m_sName = header(BRUME_HEADER_FILE_NAME);
				blob.m_nAppID = (AppId_t)strtoul(header(BRUME_HEADER_APP_ID).c_str(), nullptr, 10);
				blob.m_ulOwner = strtoull(header(BRUME_HEADER_OWNER).c_str(), nullptr, 10);
				blob.m_sBytes = std::move(a.m_sBody);
				result.m_nAppID = blob.m_nAppID;
				result.m_ulBrumeIDOwner = blob.m_ulOwner;
				result.m_nSizeInBytes = (int32)std::min<size_t>(blob.m_sBytes.size(), INT32_MAX);
				CopyText(result.m_pchFileName, blob.m_sName);
				std::lock_guard<std::mutex> lock(m_CacheMutex);
				m_Blobs[hContent] = std::make_shared<DownloadedBlob_t>(std::move(blob));
			}
			Deliver(hCall, result, a.m_bIOFailure);
		});
	}

	bool GetUGCDetails(UGCHandle_t hContent, AppId_t *pnAppID, char **ppchName, int32 *pnFileSizeInBytes, BrumeID_t *pOwner) override
	{
		std::lock_guard<std::mutex> lock(m_CacheMutex);
		auto it = m_Blobs.find(hContent);
		if (it == m_Blobs.end())
			return false;
		if (pnAppID)
			*pnAppID = it->second->m_nAppID;
		if (ppchName)
			*ppchName = it->second->m_sName.data();
		if (pnFileSizeInBytes)
			*pnFileSizeInBytes = (int32)std::min<size_t>(it->second->m_sBytes.size(), INT32_MAX);
		if (pOwner)
			*pOwner = it->second->m_ulOwner;
		return true;
	}

	int32 UGCRead(UGCHandle_t hContent, void *pvData, int32 cubDataToRead, uint32 cOffset, EUGCReadAction eAction) override
	{
		std::lock_guard<std::mutex> lock(m_CacheMutex);
		auto it = m_Blobs.find(hContent);
		if (it == m_Blobs.end() || !pvData || cubDataToRead <= 0)
			return 0;
		const std::string &bytes = it->second->m_sBytes;
		int32 count = 0;
		if (cOffset < bytes.size())
		{
			count = (int32)std::min<size_t>((size_t)cubDataToRead, bytes.size() - cOffset);
			memcpy(pvData, bytes.data() + cOffset, (size_t)count);
		}
		if (eAction == k_EUGCRead_Close)
			m_Blobs.erase(it);
		return count;
	}

	// ---- IBrumeUGC ------------------------------------------------------------------------------
	BrumeAPICall_t CreateItem(AppId_t nConsumerAppId, int32 eFileType) override
	{
		return Post([this, nConsumerAppId, eFileType](httplib::Client &http, BrumeAPICall_t hCall) {
			CreateItemResult_t result{};
			const std::string body = "{\"app_id\":" + std::to_string(nConsumerAppId) + ",\"file_type\":" + std::to_string(eFileType) + "}";
			Answer_t a = Request(http, "POST", BRUME_ROUTE_FILES, body);
			result.m_eResult = a.m_eResult;
			if (!a.m_bIOFailure && a.m_eResult == k_EResultOK)
				result.m_nPublishedFileId = U64(a.m_Json, BRUME_JSON_PUBLISHEDFILEID);
			Deliver(hCall, result, a.m_bIOFailure);
		});
	}

	UGCUpdateHandle_t StartItemUpdate(AppId_t nConsumerAppId, PublishedFileId_t id) override
	{
		if (id == 0 || id == ~0ull)
			return k_UGCUpdateHandleInvalid;
		std::lock_guard<std::mutex> lock(m_UpdateMutex);
		const UGCUpdateHandle_t handle = ++m_nLastUpdate;
		ItemUpdate_t &update = m_Updates[handle];
		update.m_nAppID = nConsumerAppId;
		update.m_nPublishedFileId = id;
		return handle;
	}

	template <class F>
	bool Change(UGCUpdateHandle_t handle, F change)
	{
		std::lock_guard<std::mutex> lock(m_UpdateMutex);
		auto it = m_Updates.find(handle);
		if (it == m_Updates.end())
			return false;
		return change(it->second);
	}

	bool SetItemTitle(UGCUpdateHandle_t h, const char *pchTitle) override
	{
		return pchTitle && strlen(pchTitle) < k_cchPublishedDocumentTitleMax && Change(h, [&](ItemUpdate_t &u) { return (u.m_sTitle = pchTitle), true; });
	}
	bool SetItemDescription(UGCUpdateHandle_t h, const char *pch) override
	{
		return pch && strlen(pch) < k_cchPublishedDocumentDescriptionMax && Change(h, [&](ItemUpdate_t &u) { return (u.m_sDescription = pch), true; });
	}
	bool SetItemVisibility(UGCUpdateHandle_t h, ERemoteStoragePublishedFileVisibility e) override
	{
		return e >= 0 && e <= 3 && Change(h, [&](ItemUpdate_t &u) { return (u.m_eVisibility = (int)e), true; });
	}
	bool SetItemTags(UGCUpdateHandle_t h, const BrumeParamStringArray_t *pTags) override
	{
		std::vector<std::string> tags;
		for (int32 i = 0; pTags && pTags->m_ppStrings && i < pTags->m_nNumStrings; ++i)
		{
			if (!pTags->m_ppStrings[i] || strchr(pTags->m_ppStrings[i], ','))
				return false; // a comma would split the tag in the details' tag list
			tags.emplace_back(pTags->m_ppStrings[i]);
		}
		return Change(h, [&](ItemUpdate_t &u) { return (u.m_vecTags = std::move(tags)), true; });
	}
	bool AddItemKeyValueTag(UGCUpdateHandle_t h, const char *pchKey, const char *pchValue) override
	{
		return pchKey && *pchKey && pchValue && Change(h, [&](ItemUpdate_t &u) { return u.m_vecKeyValueTags.emplace_back(pchKey, pchValue), true; });
	}
	bool SetItemContent(UGCUpdateHandle_t h, const char *pszFolder) override
	{
		return pszFolder && *pszFolder && Change(h, [&](ItemUpdate_t &u) { return (u.m_sContentFolder = pszFolder), true; });
	}
	bool SetItemPreview(UGCUpdateHandle_t h, const char *pszFile) override
	{
		return pszFile && *pszFile && Change(h, [&](ItemUpdate_t &u) { return (u.m_sPreviewFile = pszFile), true; });
	}

	// A part of an upload read from a file as the request goes out, a piece at a time; false when
	// the file cannot be opened.
	static bool FilePart(const char *name, const fs::path &path, const std::string &fileName, httplib::MultipartFormDataProviderItems &out)
	{
		auto in = std::make_shared<std::ifstream>(path, std::ios::binary);
		if (!*in)
			return false;
		out.push_back({name,
			[in](size_t, httplib::DataSink &sink) {
				char buffer[1 << 16];
				in->read(buffer, sizeof(buffer));
				const std::streamsize got = in->gcount();
				if (got > 0 && !sink.write(buffer, (size_t)got))
					return false;
				if (in->eof())
				{
					sink.done();
					return true;
				}
				return !in->fail(); // a read error ends the request
			},
			fileName, "application/octet-stream"});
		return true;
	}

	std::string InstallFolder(AppId_t appId, PublishedFileId_t id) const
	{
		return m_sDataDir + "/content/" + std::to_string(appId) + "/" + std::to_string(id);
	}

	// Replaces the install folder of an item by the files that `fill` writes into a fresh folder
	// beside it, which then takes the old one's place.
	bool Install(AppId_t appId, PublishedFileId_t id, const std::function<bool(const fs::path &fresh)> &fill)
	{
		const std::string folder = InstallFolder(appId, id);
		const std::string fresh = folder + ".new";
		const std::string old = folder + ".old";
		std::error_code ec;
		fs::remove_all(fresh, ec);
		fs::remove_all(old, ec);
		fs::create_directories(fresh, ec);
		if (!fill(fresh))
		{
			fs::remove_all(fresh, ec);
			return false;
		}
		if (fs::exists(folder))
			fs::rename(folder, old, ec);
		fs::rename(fresh, folder, ec);
		if (ec)
		{
			Log_Warning(LOG_BRUME, "Brume: cannot install item %llu into %s: %s\n", (unsigned long long)id, folder.c_str(), ec.message().c_str());
			return false;
		}
		fs::remove_all(old, ec);
		return true;
	}

	BrumeAPICall_t SubmitItemUpdate(UGCUpdateHandle_t handle, const char *pchChangeNote) override
	{
		ItemUpdate_t update;
		{
			std::lock_guard<std::mutex> lock(m_UpdateMutex);
			auto it = m_Updates.find(handle);
			if (it == m_Updates.end())
				return k_uAPICallInvalid;
			update = std::move(it->second);
			m_Updates.erase(it);
		}
		const std::string note = pchChangeNote ? pchChangeNote : "";
		return Post([this, update, note](httplib::Client &http, BrumeAPICall_t hCall) {
			SubmitItemUpdateResult_t result{};
			result.m_nPublishedFileId = update.m_nPublishedFileId;
			result.m_eResult = k_EResultInvalidParam;

			rapidjson::StringBuffer buffer;
			rapidjson::Writer<rapidjson::StringBuffer> w(buffer);
			w.StartObject();
			if (update.m_sTitle)
				w.Key(BRUME_JSON_TITLE), w.String(update.m_sTitle->c_str());
			if (update.m_sDescription)
				w.Key(BRUME_JSON_FILE_DESCRIPTION), w.String(update.m_sDescription->c_str());
			if (update.m_eVisibility)
				w.Key(BRUME_JSON_VISIBILITY), w.Int(*update.m_eVisibility);
			if (update.m_vecTags)
			{
				w.Key(BRUME_JSON_TAGS);
				w.StartArray();
				for (const std::string &t : *update.m_vecTags)
					w.String(t.c_str());
				w.EndArray();
			}
			if (!update.m_vecKeyValueTags.empty())
			{
				w.Key(BRUME_JSON_KVTAGS);
				w.StartArray();
				for (const auto &[k, v] : update.m_vecKeyValueTags)
				{
					w.StartObject();
					w.Key(BRUME_JSON_KEY), w.String(k.c_str());
					w.Key(BRUME_JSON_VALUE), w.String(v.c_str());
					w.EndObject();
				}
				w.EndArray();
			}
			w.Key(BRUME_JSON_CHANGE_NOTE), w.String(note.c_str());
			if (update.m_sContentFolder)
				w.Key(BRUME_JSON_SET_CONTENT), w.Bool(true);
			w.EndObject();

			httplib::MultipartFormDataItems items;
			items.push_back({BRUME_PART_META, buffer.GetString(), "", "application/json"});
			httplib::MultipartFormDataProviderItems files;
			std::vector<std::string> content; // paths inside the content folder
			const fs::path root(update.m_sContentFolder ? *update.m_sContentFolder : std::string());
			if (update.m_sContentFolder)
			{
				std::error_code ec;
				if (!fs::is_directory(root, ec))
				{
					Log_Warning(LOG_BRUME, "Brume: the content folder %s does not exist\n", root.c_str());
					Deliver(hCall, result, false);
					return;
				}
				for (fs::recursive_directory_iterator it(root, ec), end; !ec && it != end; it.increment(ec))
				{
					if (!it->is_regular_file(ec))
						continue;
					const std::string relative = fs::relative(it->path(), root, ec).generic_string();
					if (!FilePart(BRUME_PART_CONTENT, it->path(), relative, files))
					{
						Log_Warning(LOG_BRUME, "Brume: cannot read %s\n", it->path().c_str());
						Deliver(hCall, result, false);
						return;
					}
					content.push_back(relative);
				}
			}
			if (update.m_sPreviewFile && !FilePart(BRUME_PART_PREVIEW, *update.m_sPreviewFile, fs::path(*update.m_sPreviewFile).filename().string(), files))
			{
				Log_Warning(LOG_BRUME, "Brume: cannot read the preview %s\n", update.m_sPreviewFile->c_str());
				Deliver(hCall, result, false);
				return;
			}
			Answer_t a = Request(http, "POST", FileRoute(update.m_nPublishedFileId) + BRUME_ROUTE_UPDATE_SUFFIX, "", "", &items, &files);
			result.m_eResult = a.m_eResult;
			{
				std::lock_guard<std::mutex> lock(m_CacheMutex);
				m_Details.erase(update.m_nPublishedFileId);
			}
			// What went up is now what the item holds here too.
			if (!a.m_bIOFailure && a.m_eResult == k_EResultOK && update.m_sContentFolder)
				Install(update.m_nAppID ? update.m_nAppID : m_nAppID, update.m_nPublishedFileId, [&](const fs::path &fresh) {
					for (const std::string &name : content)
					{
						std::error_code ec;
						fs::create_directories((fresh / name).parent_path(), ec);
						if (!fs::copy_file(root / name, fresh / name, ec))
						{
							Log_Warning(LOG_BRUME, "Brume: cannot install %s: %s\n", name.c_str(), ec.message().c_str());
							return false;
						}
					}
					return true;
				});
			Deliver(hCall, result, a.m_bIOFailure);
		});
	}

	bool GetItemInstallInfo(PublishedFileId_t id, uint64 *punSizeOnDisk, char *pchFolder, uint32 cchFolderSize, uint32 *punTimeStamp) override
	{
		const std::string folder = InstallFolder(m_nAppID, id);
		std::error_code ec;
		if (!fs::is_directory(folder, ec) || !pchFolder || folder.size() + 1 > cchFolderSize)
			return false;
		uint64 size = 0;
		for (fs::recursive_directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec))
			if (it->is_regular_file(ec))
				size += it->file_size(ec);
		V_strncpy(pchFolder, folder.c_str(), (int)cchFolderSize);
		if (punSizeOnDisk)
			*punSizeOnDisk = size;
		if (punTimeStamp)
		{
			struct stat info;
			*punTimeStamp = stat(folder.c_str(), &info) == 0 ? (uint32)info.st_mtime : 0;
		}
		return true;
	}

	bool DownloadItem(PublishedFileId_t id, bool) override
	{
		if (id == 0 || id == ~0ull)
			return false;
		return Post([this, id](httplib::Client &http, BrumeAPICall_t) {
			Answer_t details = Request(http, "GET", FileRoute(id));
			if (details.m_bIOFailure || details.m_eResult != k_EResultOK || !details.m_Json.HasMember(BRUME_JSON_CONTENT) || !details.m_Json[BRUME_JSON_CONTENT].IsArray())
				return;
			const rapidjson::Value &entries = details.m_Json[BRUME_JSON_CONTENT];
			for (const auto &entry : entries.GetArray())
			{
				const std::string name = entry.IsObject() ? Str(entry, BRUME_JSON_NAME) : std::string();
				if (!V_IsSafeRelativePath(name))
					return;
			}
			// Each file goes from the answer straight to its place in the fresh folder.
			Install((AppId_t)U64(details.m_Json, BRUME_JSON_APP_ID), id, [&](const fs::path &fresh) {
				const httplib::Headers headers = {{BRUME_HEADER_ACCOUNT, std::to_string(m_ulBrumeID)}};
				for (const auto &entry : entries.GetArray())
				{
					CUtlString joined;
					V_JoinInside(fresh.string(), Str(entry, BRUME_JSON_NAME), joined); // checked above
					const fs::path target(joined);
					std::error_code ec;
					fs::create_directories(target.parent_path(), ec);
					std::ofstream out(target, std::ios::binary);
					auto r = http.Get(UgcRoute(U64(entry, BRUME_JSON_HANDLE)).c_str(), headers,
						[&](const char *data, size_t size) { return (bool)out.write(data, (std::streamsize)size); });
					out.close();
					if (!r || r->status != 200 || !out)
					{
						Log_Warning(LOG_BRUME, "Brume: cannot download %s of item %llu\n", target.c_str(), (unsigned long long)id);
						return false;
					}
				}
				return true;
			});
		}) != k_uAPICallInvalid;
	}

private:
	std::thread m_Worker;
	std::mutex m_JobMutex;
	std::condition_variable m_JobReady;
	std::deque<std::function<void(httplib::Client &)>> m_Jobs;
	bool m_bStopping = false;
	httplib::Client *m_pWorkerHttp = nullptr;
	std::atomic<BrumeAPICall_t> m_nLastCall{0};

	std::mutex m_ResultMutex;
	std::deque<PendingResult_t> m_Results;
	std::mutex m_RegistrationMutex;
	std::map<BrumeAPICall_t, CCallbackBase *> m_Registered;

	std::mutex m_CacheMutex;
	std::map<BrumeID_t, std::string> m_Personas;
	std::map<PublishedFileId_t, std::pair<std::chrono::steady_clock::time_point, RemoteStorageGetPublishedFileDetailsResult_t>> m_Details;
	std::map<UGCHandle_t, std::shared_ptr<DownloadedBlob_t>> m_Blobs;

	std::mutex m_UpdateMutex;
	UGCUpdateHandle_t m_nLastUpdate = 0;
	std::map<UGCUpdateHandle_t, ItemUpdate_t> m_Updates;
};

std::unique_ptr<CBrumeClient> s_pOwnedClient;
} // namespace

BRUME_API bool BrumeAPI_Init()
{
	if (s_pClient)
		return true;
	const char *fromEnvironment = getenv("BRUME_SERVICE");
	const CUtlString address = (fromEnvironment && *fromEnvironment) ? fromEnvironment : kDefaultService;
	auto client = std::make_unique<CBrumeClient>();
	if (!ParseAddress(address, client->m_Host, client->m_nPort))
	{
		Log_Warning(LOG_BRUME, "Brume: BRUME_SERVICE \"%s\" is not of the form host:port\n", address.c_str());
		return false;
	}

	// The account this client acts for: BRUME_ACCOUNT (a decimal 64-bit id) or the service's own.
	httplib::Headers headers;
	if (const char *account = getenv("BRUME_ACCOUNT"); account && *account)
		headers.emplace(BRUME_HEADER_ACCOUNT, account);
	httplib::Client http(client->m_Host, client->m_nPort);
	http.set_connection_timeout(1, 500000);
	http.set_read_timeout(3, 0);
	auto response = http.Get(BRUME_ROUTE_STATUS, headers);
	if (!response || response->status != 200)
	{
		Log_Msg(LOG_BRUME, "Brume: no content service answers at %s\n", address.c_str());
		return false;
	}
	rapidjson::Document status;
	status.Parse(response->body.c_str(), response->body.size());
	if (status.HasParseError() || !status.IsObject() || !status.HasMember(BRUME_JSON_SERVICE) || !status[BRUME_JSON_SERVICE].IsString() ||
		std::string(status[BRUME_JSON_SERVICE].GetString()) != BRUME_SERVICE_NAME)
	{
		Log_Warning(LOG_BRUME, "Brume: the service at %s is no Mintyard content service\n", address.c_str());
		return false;
	}
	if (status.HasMember(BRUME_JSON_APPID) && status[BRUME_JSON_APPID].IsUint())
		client->m_nAppID = status[BRUME_JSON_APPID].GetUint();
	if (status.HasMember(BRUME_JSON_UNIVERSE) && status[BRUME_JSON_UNIVERSE].IsInt())
		client->m_eUniverse = (EUniverse)status[BRUME_JSON_UNIVERSE].GetInt();
	if (status.HasMember(BRUME_JSON_ACCOUNT) && status[BRUME_JSON_ACCOUNT].IsUint64())
		client->m_ulBrumeID = status[BRUME_JSON_ACCOUNT].GetUint64();
	if (status.HasMember(BRUME_JSON_PERSONA) && status[BRUME_JSON_PERSONA].IsString())
		client->m_sPersona = status[BRUME_JSON_PERSONA].GetString();
	client->m_Address = address;
	client->m_sDataDir = ClientDataDir();
	client->StartWorker();
	s_pOwnedClient = std::move(client);
	s_pClient = s_pOwnedClient.get();
	Log_Msg(LOG_BRUME, "Brume: connected to %s\n", address.c_str());
	return true;
}

BRUME_API void BrumeAPI_Shutdown()
{
	s_pClient = nullptr;
	s_pOwnedClient.reset();
}

BRUME_API bool BrumeAPI_IsInitialized()
{
	return s_pClient != nullptr;
}

BRUME_API void BrumeAPI_SetTryCatchCallbacks(bool bTryCatchCallbacks)
{
	if (s_pClient)
		s_pClient->m_bTryCatchCallbacks = bTryCatchCallbacks;
}

BRUME_API void BrumeAPI_RunCallbacks()
{
	if (s_pClient)
		s_pClient->RunCallbacks();
}

BRUME_API void BrumeAPI_RegisterCallResult(CCallbackBase *pCallback, BrumeAPICall_t hCall)
{
	if (s_pClient && pCallback && hCall != k_uAPICallInvalid)
		s_pClient->Register(pCallback, hCall);
}

BRUME_API void BrumeAPI_UnregisterCallResult(CCallbackBase *pCallback, BrumeAPICall_t hCall)
{
	if (s_pClient && pCallback)
		s_pClient->Unregister(pCallback, hCall);
}

BRUME_API IBrumeUser *BrumeAPI_User()
{
	return s_pClient;
}

BRUME_API IBrumeFriends *BrumeAPI_Friends()
{
	return s_pClient;
}

BRUME_API IBrumeUtils *BrumeAPI_Utils()
{
	return s_pClient;
}

BRUME_API IBrumeRemoteStorage *BrumeAPI_RemoteStorage()
{
	return s_pClient;
}

BRUME_API IBrumeUGC *BrumeAPI_UGC()
{
	return s_pClient;
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
