// The client against a real service process: listings page by page, details, deletion, item
// creation and upload, downloads, a vanishing or slow service, ownership and contributors.
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <thread>

#include <httplib.h>

#include "brume/brume_api.h"
#include "core/strtools.h"
#include "testsupport/test_support.h"
#include "testsupport/pathnames.h"
#include "testsupport/service_process.h"
#include "testsupport/service_relay.h"

namespace
{
// Collects call results for a test; Wait pumps BrumeAPI_RunCallbacks until the armed call answers.
// The deadline only keeps a broken client from hanging the test run.
class CCollector
{
public:
	template <class P>
	struct Slot_t
	{
		CCallResult<CCollector, P> m_Call;
		P m_Result{};
		bool m_bIOFailure = false;
		int m_nCount = 0;
	};

	void OnEnumerate(RemoteStorageEnumerateUserPublishedFilesResult_t *p, bool io) { Store(m_Enumerate, p, io); }
	void OnShared(RemoteStorageEnumerateUserSharedMintyardFilesResult_t *p, bool io) { Store(m_Shared, p, io); }
	void OnDetails(RemoteStorageGetPublishedFileDetailsResult_t *p, bool io) { Store(m_Details, p, io); }
	void OnDelete(RemoteStorageDeletePublishedFileResult_t *p, bool io) { Store(m_Delete, p, io); }
	void OnCreate(CreateItemResult_t *p, bool io) { Store(m_Create, p, io); }
	void OnSubmit(SubmitItemUpdateResult_t *p, bool io) { Store(m_Submit, p, io); }
	void OnDownload(RemoteStorageDownloadUGCResult_t *p, bool io) { Store(m_Download, p, io); }

	template <class P>
	static bool Wait(Slot_t<P> &slot, int before)
	{
		const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
		while (slot.m_nCount == before && std::chrono::steady_clock::now() < deadline)
		{
			BrumeAPI_RunCallbacks();
			std::this_thread::sleep_for(std::chrono::milliseconds(2));
		}
		return slot.m_nCount == before + 1;
	}

	Slot_t<RemoteStorageEnumerateUserPublishedFilesResult_t> m_Enumerate;
	Slot_t<RemoteStorageEnumerateUserSharedMintyardFilesResult_t> m_Shared;
	Slot_t<RemoteStorageGetPublishedFileDetailsResult_t> m_Details;
	Slot_t<RemoteStorageDeletePublishedFileResult_t> m_Delete;
	Slot_t<CreateItemResult_t> m_Create;
	Slot_t<SubmitItemUpdateResult_t> m_Submit;
	Slot_t<RemoteStorageDownloadUGCResult_t> m_Download;

private:
	template <class P>
	static void Store(Slot_t<P> &slot, P *p, bool io)
	{
		slot.m_Result = *p;
		slot.m_bIOFailure = io;
		++slot.m_nCount;
	}
};

class BrumeClient : public ::testing::Test
{
protected:
	void StartService(const std::vector<std::string> &options = {})
	{
		ASSERT_TRUE(m_Service.Start(m_Data.Path("service"), options));
		setenv("BRUME_SERVICE", m_Service.Address().c_str(), 1);
		setenv("BRUME_DATA_DIR", m_Data.Path("client").c_str(), 1);
		unsetenv("BRUME_ACCOUNT");
		ASSERT_TRUE(BrumeAPI_Init());
	}
	void TearDown() override
	{
		BrumeAPI_Shutdown();
		unsetenv("BRUME_ACCOUNT");
	}

	// Files made straight through the service, as another tool would.
	std::vector<uint64_t> MakeFiles(int count)
	{
		httplib::Client http("127.0.0.1", m_Service.Port());
		std::vector<uint64_t> ids;
		for (int i = 0; i < count; ++i)
		{
			auto r = http.Post("/api/v1/files", "{\"file_type\":0}", "application/json");
			EXPECT_TRUE(r && r->status == 200);
			ids.push_back(std::stoull(r->body.substr(r->body.find("\"publishedfileid\":") + 18)));
		}
		return ids;
	}

	// Pages through the own files as the browser does; false when a page failed.
	bool ListAll(std::vector<uint64_t> &ids, int &pages)
	{
		ids.clear();
		pages = 0;
		for (;;)
		{
			const int before = m_Results.m_Enumerate.m_nCount;
			const BrumeAPICall_t call = BrumeAPI_RemoteStorage()->EnumerateUserPublishedFiles((uint32)ids.size());
			if (call == k_uAPICallInvalid)
				return false;
			m_Results.m_Enumerate.m_Call.Set(call, &m_Results, &CCollector::OnEnumerate);
			if (!CCollector::Wait(m_Results.m_Enumerate, before) || m_Results.m_Enumerate.m_bIOFailure ||
				m_Results.m_Enumerate.m_Result.m_eResult != k_EResultOK)
				return false;
			++pages;
			const auto &r = m_Results.m_Enumerate.m_Result;
			EXPECT_LE(r.m_nResultsReturned, 50);
			for (int i = 0; i < r.m_nResultsReturned; ++i)
				ids.push_back(r.m_rgPublishedFileId[i]);
			if ((int)ids.size() >= r.m_nTotalResultCount || r.m_nResultsReturned == 0)
				return (int)ids.size() == r.m_nTotalResultCount;
		}
	}

	// The first page of an account's shared listing; an empty list when the call failed.
	std::vector<uint64_t> SharedFiles(uint64_t account)
	{
		const int before = m_Results.m_Shared.m_nCount;
		m_Results.m_Shared.m_Call.Set(BrumeAPI_RemoteStorage()->EnumerateUserSharedMintyardFiles(account, 0, nullptr, nullptr),
			&m_Results, &CCollector::OnShared);
		std::vector<uint64_t> ids;
		if (!CCollector::Wait(m_Results.m_Shared, before) || m_Results.m_Shared.m_bIOFailure)
			return ids;
		const auto &r = m_Results.m_Shared.m_Result;
		EXPECT_EQ(r.m_eResult, k_EResultOK);
		for (int i = 0; i < r.m_nResultsReturned; ++i)
			ids.push_back(r.m_rgPublishedFileId[i]);
		return ids;
	}

	// Submits one prepared update and answers its result.
	EResult Submit(UGCUpdateHandle_t update, const char *note)
	{
		const int before = m_Results.m_Submit.m_nCount;
		m_Results.m_Submit.m_Call.Set(BrumeAPI_UGC()->SubmitItemUpdate(update, note), &m_Results, &CCollector::OnSubmit);
		EXPECT_TRUE(CCollector::Wait(m_Results.m_Submit, before));
		EXPECT_FALSE(m_Results.m_Submit.m_bIOFailure);
		return m_Results.m_Submit.m_Result.m_eResult;
	}

	RemoteStorageGetPublishedFileDetailsResult_t Details(uint64_t id, bool *pIO = nullptr, uint32 maxSecondsOld = 0)
	{
		const int before = m_Results.m_Details.m_nCount;
		m_Results.m_Details.m_Call.Set(BrumeAPI_RemoteStorage()->GetPublishedFileDetails(id, maxSecondsOld), &m_Results, &CCollector::OnDetails);
		EXPECT_TRUE(CCollector::Wait(m_Results.m_Details, before));
		if (pIO)
			*pIO = m_Results.m_Details.m_bIOFailure;
		return m_Results.m_Details.m_Result;
	}

	CTempDirectory m_Data;
	CServiceProcess m_Service;
	CCollector m_Results;
};

std::string ReadFile(const std::string &path)
{
	std::ifstream in(path, std::ios::binary);
	return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}
} // namespace

TEST(BrumeClientInit, FailsWhenNoServiceAnswers)
{
	setenv("BRUME_SERVICE", "127.0.0.1:1", 1);
	EXPECT_FALSE(BrumeAPI_Init());
	EXPECT_FALSE(BrumeAPI_IsInitialized());
	EXPECT_EQ(BrumeAPI_RemoteStorage(), nullptr);
	CBrumeAPIContext context;
	EXPECT_FALSE(context.Init());
	EXPECT_EQ(context.BrumeUGC(), nullptr);
	setenv("BRUME_SERVICE", "no-port", 1);
	EXPECT_FALSE(BrumeAPI_Init());
}

TEST_F(BrumeClient, ContextAndAccount)
{
	StartService({"--persona", "Sample Author", "--account", "7", "--universe", "4"});
	CBrumeAPIContext context;
	ASSERT_TRUE(context.Init());
	ASSERT_NE(context.BrumeUser(), nullptr);
	ASSERT_NE(context.BrumeFriends(), nullptr);
	ASSERT_NE(context.BrumeRemoteStorage(), nullptr);
	ASSERT_NE(context.BrumeUGC(), nullptr);
	EXPECT_EQ(context.BrumeUtils()->GetConnectedUniverse(), k_EUniverseDev);
	EXPECT_EQ(context.BrumeUtils()->GetAppID(), 3680u);
	const BrumeID_t me = context.BrumeUser()->GetBrumeID();
	EXPECT_EQ(me & 0xffffffffu, 7u);
	EXPECT_EQ(me >> 56, 4u);
	EXPECT_STREQ(context.BrumeFriends()->GetFriendPersonaName(me), "Sample Author");
	EXPECT_STREQ(context.BrumeFriends()->GetFriendPersonaName(12345), "[unknown]");
	context.Clear();
	EXPECT_EQ(context.BrumeUser(), nullptr);
}

TEST_F(BrumeClient, ListsPageByPage)
{
	StartService();
	std::vector<uint64_t> ids;
	int pages = 0;
	ASSERT_TRUE(ListAll(ids, pages));
	EXPECT_EQ(ids.size(), 0u);
	EXPECT_EQ(m_Results.m_Enumerate.m_Result.m_nTotalResultCount, 0);

	const std::vector<uint64_t> made50 = MakeFiles(50);
	ASSERT_TRUE(ListAll(ids, pages));
	EXPECT_EQ(ids, made50);
	EXPECT_EQ(pages, 1);

	std::vector<uint64_t> made = made50;
	for (uint64_t id : MakeFiles(1))
		made.push_back(id);
	ASSERT_TRUE(ListAll(ids, pages));
	EXPECT_EQ(ids, made);
	EXPECT_EQ(pages, 2);
	EXPECT_EQ(m_Results.m_Enumerate.m_Result.m_nResultsReturned, 1);

	for (uint64_t id : MakeFiles(69))
		made.push_back(id);
	ASSERT_TRUE(ListAll(ids, pages));
	EXPECT_EQ(ids, made);
	EXPECT_EQ(pages, 3);
	EXPECT_EQ(m_Results.m_Enumerate.m_Result.m_nTotalResultCount, 120);
	EXPECT_EQ(m_Results.m_Enumerate.m_Result.m_nResultsReturned, 20);
}

TEST_F(BrumeClient, SharedListingFiltersByTags)
{
	StartService();
	const std::vector<uint64_t> ids = MakeFiles(3);
	httplib::Client http("127.0.0.1", m_Service.Port());
	httplib::MultipartFormDataItems items = {{"meta", R"({"tags":["Map","TL2"]})", "", "application/json"}};
	ASSERT_EQ(http.Post(("/api/v1/files/" + std::to_string(ids[1]) + "/update").c_str(), items)->status, 200);

	const char *map[] = {"Map"};
	BrumeParamStringArray_t required{map, 1};
	const int before = m_Results.m_Shared.m_nCount;
	m_Results.m_Shared.m_Call.Set(BrumeAPI_RemoteStorage()->EnumerateUserSharedMintyardFiles(BrumeAPI_User()->GetBrumeID(), 0, &required, nullptr),
		&m_Results, &CCollector::OnShared);
	ASSERT_TRUE(CCollector::Wait(m_Results.m_Shared, before));
	EXPECT_EQ(m_Results.m_Shared.m_Result.m_nTotalResultCount, 1);
	EXPECT_EQ(m_Results.m_Shared.m_Result.m_rgPublishedFileId[0], ids[1]);
	// Excluding it leaves the other two.
	BrumeParamStringArray_t excluded{map, 1};
	m_Results.m_Shared.m_Call.Set(BrumeAPI_RemoteStorage()->EnumerateUserSharedMintyardFiles(BrumeAPI_User()->GetBrumeID(), 0, nullptr, &excluded),
		&m_Results, &CCollector::OnShared);
	ASSERT_TRUE(CCollector::Wait(m_Results.m_Shared, before + 1));
	EXPECT_EQ(m_Results.m_Shared.m_Result.m_nTotalResultCount, 2);
}

TEST_F(BrumeClient, FileDeletedBetweenListingAndDetailsAnswersNotFound)
{
	StartService();
	const std::vector<uint64_t> made = MakeFiles(2);
	std::vector<uint64_t> ids;
	int pages = 0;
	ASSERT_TRUE(ListAll(ids, pages));
	ASSERT_EQ(ids.size(), 2u);
	httplib::Client http("127.0.0.1", m_Service.Port());
	ASSERT_EQ(http.Delete(("/api/v1/files/" + std::to_string(made[0])).c_str())->status, 200);

	bool io = true;
	const auto gone = Details(made[0], &io);
	EXPECT_FALSE(io);
	EXPECT_EQ(gone.m_eResult, k_EResultFileNotFound);
	EXPECT_EQ(gone.m_nPublishedFileId, made[0]);
	const auto kept = Details(made[1], &io);
	EXPECT_FALSE(io);
	EXPECT_EQ(kept.m_eResult, k_EResultOK);
	EXPECT_EQ(kept.m_ulBrumeIDOwner, BrumeAPI_User()->GetBrumeID());
	EXPECT_EQ(kept.m_hFile, k_UGCHandleInvalid); // nothing uploaded yet
}

TEST_F(BrumeClient, DeletesAFile)
{
	StartService();
	const std::vector<uint64_t> made = MakeFiles(3);
	const int before = m_Results.m_Delete.m_nCount;
	m_Results.m_Delete.m_Call.Set(BrumeAPI_RemoteStorage()->DeletePublishedFile(made[1]), &m_Results, &CCollector::OnDelete);
	ASSERT_TRUE(CCollector::Wait(m_Results.m_Delete, before));
	EXPECT_EQ(m_Results.m_Delete.m_Result.m_eResult, k_EResultOK);
	EXPECT_EQ(m_Results.m_Delete.m_Result.m_nPublishedFileId, made[1]);
	std::vector<uint64_t> ids;
	int pages = 0;
	ASSERT_TRUE(ListAll(ids, pages));
	EXPECT_EQ(ids, (std::vector<uint64_t>{made[0], made[2]}));
	EXPECT_EQ(Details(made[1]).m_eResult, k_EResultFileNotFound);
	// Deleting it again: not found.
	m_Results.m_Delete.m_Call.Set(BrumeAPI_RemoteStorage()->DeletePublishedFile(made[1]), &m_Results, &CCollector::OnDelete);
	ASSERT_TRUE(CCollector::Wait(m_Results.m_Delete, before + 1));
	EXPECT_EQ(m_Results.m_Delete.m_Result.m_eResult, k_EResultFileNotFound);
}

TEST_F(BrumeClient, CreatesSubmitsAndDownloadsAnItem)
{
	StartService({"--persona", "Maker"});
	IBrumeUGC *ugc = BrumeAPI_UGC();
	int before = m_Results.m_Create.m_nCount;
	m_Results.m_Create.m_Call.Set(ugc->CreateItem(BrumeAPI_Utils()->GetAppID(), 1), &m_Results, &CCollector::OnCreate);
	ASSERT_TRUE(CCollector::Wait(m_Results.m_Create, before));
	ASSERT_EQ(m_Results.m_Create.m_Result.m_eResult, k_EResultOK);
	const PublishedFileId_t id = m_Results.m_Create.m_Result.m_nPublishedFileId;
	ASSERT_NE(id, 0u);

	const std::string zip(300000, 'z');
	const std::string publishData = "\"publish_data\"\n{\n\t\"title\" \"Hat\"\n\t\"source_folder\" \"hats\"\n}\n";
	const std::string preview = std::string("\x89PNG\r\n", 6) + std::string(5000, 'p');
	m_Data.Write("upload/hat.zip", zip);
	m_Data.Write("upload/publish_data.txt", publishData);
	m_Data.Write("upload/sub/extra.txt", "x");
	const std::string previewPath = m_Data.Write("preview.png", preview);

	const UGCUpdateHandle_t update = ugc->StartItemUpdate(BrumeAPI_Utils()->GetAppID(), id);
	ASSERT_NE(update, k_UGCUpdateHandleInvalid);
	EXPECT_TRUE(ugc->SetItemTitle(update, "Hat \xc3\xa9"));
	EXPECT_TRUE(ugc->SetItemDescription(update, "A hat."));
	EXPECT_TRUE(ugc->SetItemVisibility(update, k_ERemoteStoragePublishedFileVisibilityFriendsOnly));
	const char *tags[] = {"Wearable", "Hero"};
	BrumeParamStringArray_t tagArray{tags, 2};
	EXPECT_TRUE(ugc->SetItemTags(update, &tagArray));
	const char *badTags[] = {"a,b"};
	BrumeParamStringArray_t badArray{badTags, 1};
	EXPECT_FALSE(ugc->SetItemTags(update, &badArray));
	EXPECT_TRUE(ugc->SetItemContent(update, m_Data.Path("upload").c_str()));
	EXPECT_TRUE(ugc->SetItemPreview(update, previewPath.c_str()));
	before = m_Results.m_Submit.m_nCount;
	m_Results.m_Submit.m_Call.Set(ugc->SubmitItemUpdate(update, "Created Hat."), &m_Results, &CCollector::OnSubmit);
	ASSERT_TRUE(CCollector::Wait(m_Results.m_Submit, before));
	EXPECT_FALSE(m_Results.m_Submit.m_bIOFailure);
	ASSERT_EQ(m_Results.m_Submit.m_Result.m_eResult, k_EResultOK);
	EXPECT_EQ(m_Results.m_Submit.m_Result.m_nPublishedFileId, id);
	// The handle is spent.
	EXPECT_EQ(ugc->SubmitItemUpdate(update, ""), k_uAPICallInvalid);

	const auto d = Details(id);
	ASSERT_EQ(d.m_eResult, k_EResultOK);
	EXPECT_STREQ(d.m_rgchTitle, "Hat \xc3\xa9");
	EXPECT_STREQ(d.m_rgchDescription, "A hat.");
	EXPECT_STREQ(d.m_rgchTags, "Hero,Wearable");
	EXPECT_EQ(d.m_eVisibility, k_ERemoteStoragePublishedFileVisibilityFriendsOnly);
	EXPECT_STREQ(d.m_pchFileName, "hat.zip");
	EXPECT_EQ(d.m_nFileSize, (int32)zip.size());
	EXPECT_EQ(d.m_nPreviewFileSize, (int32)preview.size());
	EXPECT_EQ(d.m_eFileType, 1);
	EXPECT_NE(std::string(d.m_rgchURL).find("/api/v1/ugc/"), std::string::npos);
	EXPECT_STREQ(BrumeAPI_Friends()->GetFriendPersonaName(d.m_ulBrumeIDOwner), "Maker");

	// The author's own item is installed with its whole folder.
	char folder[260];
	uint64 size = 0;
	uint32 stamp = 0;
	ASSERT_TRUE(ugc->GetItemInstallInfo(id, &size, folder, sizeof(folder), &stamp));
	EXPECT_EQ(size, zip.size() + publishData.size() + 1);
	EXPECT_NE(stamp, 0u);
	EXPECT_EQ(ReadFile(std::string(folder) + "/publish_data.txt"), publishData);
	EXPECT_EQ(ReadFile(std::string(folder) + "/sub/extra.txt"), "x");
	char tiny[4];
	EXPECT_FALSE(ugc->GetItemInstallInfo(id, &size, tiny, sizeof(tiny), &stamp));
	EXPECT_FALSE(ugc->GetItemInstallInfo(id + 1000, &size, folder, sizeof(folder), &stamp));

	// Download the preview back by its handle, in steps as the file request reads it.
	IBrumeRemoteStorage *storage = BrumeAPI_RemoteStorage();
	EXPECT_EQ(storage->UGCDownload(k_UGCHandleInvalid, 0), k_uAPICallInvalid);
	before = m_Results.m_Download.m_nCount;
	m_Results.m_Download.m_Call.Set(storage->UGCDownload(d.m_hPreviewFile, 0), &m_Results, &CCollector::OnDownload);
	ASSERT_TRUE(CCollector::Wait(m_Results.m_Download, before));
	ASSERT_EQ(m_Results.m_Download.m_Result.m_eResult, k_EResultOK);
	EXPECT_EQ(m_Results.m_Download.m_Result.m_nSizeInBytes, (int32)preview.size());
	AppId_t app = 0;
	char *name = nullptr;
	int32 bytes = 0;
	BrumeID_t owner = 0;
	ASSERT_TRUE(storage->GetUGCDetails(d.m_hPreviewFile, &app, &name, &bytes, &owner));
	EXPECT_STREQ(name, "preview.png");
	EXPECT_EQ(owner, BrumeAPI_User()->GetBrumeID());
	std::string back(bytes, '\0');
	int32 offset = 0;
	while (offset < bytes)
	{
		const int32 got = storage->UGCRead(d.m_hPreviewFile, back.data() + offset, std::min<int32>(1000, bytes - offset), offset, k_EUGCRead_ContinueReadingUntilFinished);
		ASSERT_GT(got, 0);
		offset += got;
	}
	EXPECT_EQ(back, preview);
	EXPECT_EQ(storage->UGCRead(d.m_hPreviewFile, back.data(), 10, (uint32)bytes, k_EUGCRead_Close), 0);
	EXPECT_FALSE(storage->GetUGCDetails(d.m_hPreviewFile, &app, &name, &bytes, &owner));

	// Another machine of the author downloads the item into its own install folder.
	std::error_code ec;
	std::filesystem::remove_all(folder, ec);
	ASSERT_TRUE(ugc->DownloadItem(id, true));
	const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
	while (!ugc->GetItemInstallInfo(id, &size, folder, sizeof(folder), &stamp) && std::chrono::steady_clock::now() < deadline)
		std::this_thread::sleep_for(std::chrono::milliseconds(5));
	EXPECT_EQ(ReadFile(std::string(folder) + "/hat.zip"), zip);
}

TEST_F(BrumeClient, ServiceGoingAwayDuringAListingGivesAnError)
{
	StartService({"--delay-ms", "300"});
	const int before = m_Results.m_Enumerate.m_nCount;
	m_Results.m_Enumerate.m_Call.Set(BrumeAPI_RemoteStorage()->EnumerateUserPublishedFiles(0), &m_Results, &CCollector::OnEnumerate);
	m_Service.Kill();
	ASSERT_TRUE(CCollector::Wait(m_Results.m_Enumerate, before));
	EXPECT_TRUE(m_Results.m_Enumerate.m_bIOFailure);
	EXPECT_NE(m_Results.m_Enumerate.m_Result.m_eResult, k_EResultOK);
	EXPECT_EQ(m_Results.m_Enumerate.m_Result.m_nResultsReturned, 0);
	// Later calls fail the same way instead of waiting.
	bool io = false;
	EXPECT_NE(Details(1, &io).m_eResult, k_EResultOK);
	EXPECT_TRUE(io);
}

TEST_F(BrumeClient, SlowAnswersArriveOnlyInRunCallbacks)
{
	StartService({"--delay-ms", "200"});
	const std::vector<uint64_t> made = MakeFiles(1);
	m_Results.m_Details.m_Call.Set(BrumeAPI_RemoteStorage()->GetPublishedFileDetails(made[0], 0), &m_Results, &CCollector::OnDetails);
	std::this_thread::sleep_for(std::chrono::milliseconds(600));
	EXPECT_EQ(m_Results.m_Details.m_nCount, 0); // answered by now, but not delivered yet
	EXPECT_TRUE(m_Results.m_Details.m_Call.IsActive());
	ASSERT_TRUE(CCollector::Wait(m_Results.m_Details, 0));
	EXPECT_EQ(m_Results.m_Details.m_Result.m_eResult, k_EResultOK);
	EXPECT_FALSE(m_Results.m_Details.m_Call.IsActive());

	// Arming again drops the earlier call: only the second answer is delivered.
	m_Results.m_Details.m_Call.Set(BrumeAPI_RemoteStorage()->GetPublishedFileDetails(12345, 0), &m_Results, &CCollector::OnDetails);
	m_Results.m_Details.m_Call.Set(BrumeAPI_RemoteStorage()->GetPublishedFileDetails(made[0], 0), &m_Results, &CCollector::OnDetails);
	ASSERT_TRUE(CCollector::Wait(m_Results.m_Details, 1));
	EXPECT_EQ(m_Results.m_Details.m_Result.m_nPublishedFileId, made[0]);
	for (int i = 0; i < 20; ++i)
		BrumeAPI_RunCallbacks();
	EXPECT_EQ(m_Results.m_Details.m_nCount, 2);

	// A copy young enough comes from the client's cache; the service is not asked.
	m_Service.Kill();
	bool io = true;
	EXPECT_EQ(Details(made[0], &io, 3600).m_eResult, k_EResultOK);
	EXPECT_FALSE(io);
	EXPECT_NE(Details(made[0], &io, 0).m_eResult, k_EResultOK);
}

TEST_F(BrumeClient, InjectedFailureReachesTheCaller)
{
	StartService({"--failure-rate", "1", "--result-code", "24"});
	bool io = true;
	EXPECT_EQ(Details(1, &io).m_eResult, k_EResultLimitedUserAccount);
	EXPECT_FALSE(io);
}

TEST_F(BrumeClient, AnotherAccountCannotChangeOrDeleteTheFile)
{
	StartService();
	const std::vector<uint64_t> made = MakeFiles(1);
	BrumeAPI_Shutdown();
	setenv("BRUME_ACCOUNT", "76561197960265999", 1);
	ASSERT_TRUE(BrumeAPI_Init());
	EXPECT_EQ(BrumeAPI_User()->GetBrumeID(), 76561197960265999ull);

	int before = m_Results.m_Delete.m_nCount;
	m_Results.m_Delete.m_Call.Set(BrumeAPI_RemoteStorage()->DeletePublishedFile(made[0]), &m_Results, &CCollector::OnDelete);
	ASSERT_TRUE(CCollector::Wait(m_Results.m_Delete, before));
	EXPECT_EQ(m_Results.m_Delete.m_Result.m_eResult, k_EResultAccessDenied);

	const UGCUpdateHandle_t update = BrumeAPI_UGC()->StartItemUpdate(BrumeAPI_Utils()->GetAppID(), made[0]);
	BrumeAPI_UGC()->SetItemTitle(update, "Taken over");
	before = m_Results.m_Submit.m_nCount;
	m_Results.m_Submit.m_Call.Set(BrumeAPI_UGC()->SubmitItemUpdate(update, "mine now"), &m_Results, &CCollector::OnSubmit);
	ASSERT_TRUE(CCollector::Wait(m_Results.m_Submit, before));
	EXPECT_EQ(m_Results.m_Submit.m_Result.m_eResult, k_EResultAccessDenied);

	const auto d = Details(made[0]);
	EXPECT_EQ(d.m_eResult, k_EResultOK);
	EXPECT_STREQ(d.m_rgchTitle, "");
	EXPECT_NE(d.m_ulBrumeIDOwner, BrumeAPI_User()->GetBrumeID());
	// Its own listing is empty.
	std::vector<uint64_t> ids;
	int pages = 0;
	ASSERT_TRUE(ListAll(ids, pages));
	EXPECT_TRUE(ids.empty());
}

TEST_F(BrumeClient, SubmitWithAMissingContentFolderFails)
{
	StartService();
	const std::vector<uint64_t> made = MakeFiles(1);
	const UGCUpdateHandle_t update = BrumeAPI_UGC()->StartItemUpdate(BrumeAPI_Utils()->GetAppID(), made[0]);
	EXPECT_TRUE(BrumeAPI_UGC()->SetItemContent(update, m_Data.Path("nowhere").c_str()));
	const int before = m_Results.m_Submit.m_nCount;
	m_Results.m_Submit.m_Call.Set(BrumeAPI_UGC()->SubmitItemUpdate(update, ""), &m_Results, &CCollector::OnSubmit);
	ASSERT_TRUE(CCollector::Wait(m_Results.m_Submit, before));
	EXPECT_NE(m_Results.m_Submit.m_Result.m_eResult, k_EResultOK);
	EXPECT_EQ(BrumeAPI_UGC()->StartItemUpdate(BrumeAPI_Utils()->GetAppID(), ~0ull), k_UGCUpdateHandleInvalid);
	EXPECT_FALSE(BrumeAPI_UGC()->SetItemTitle(987654, "x"));
}

TEST_F(BrumeClient, ShutdownDuringASlowRequestDoesNotWaitForIt)
{
	StartService({"--delay-ms", "60000"});
	m_Results.m_Details.m_Call.Set(BrumeAPI_RemoteStorage()->GetPublishedFileDetails(1, 0), &m_Results, &CCollector::OnDetails);
	std::this_thread::sleep_for(std::chrono::milliseconds(50));
	BrumeAPI_Shutdown(); // returns (the test would time out otherwise) and delivers nothing
	EXPECT_FALSE(BrumeAPI_IsInitialized());
	BrumeAPI_RunCallbacks();
	EXPECT_EQ(m_Results.m_Details.m_nCount, 0);
	m_Results.m_Details.m_Call.Cancel(); // safe with no client
	m_Service.Kill();					  // its handler is still asleep
}

TEST_F(BrumeClient, ContributorSeesTheFileSharedAndReplacesOnlyItsContent)
{
	StartService();
	const BrumeID_t creator = BrumeAPI_User()->GetBrumeID();
	const std::vector<uint64_t> made = MakeFiles(2);
	const uint64_t shared = made[1];
	httplib::Client http("127.0.0.1", m_Service.Port());
	const std::string path = "/api/v1/files/" + std::to_string(shared);
	httplib::MultipartFormDataItems items = {{"meta", R"({"title":"Castle"})", "", "application/json"}, {"content", "v1", "castle.zip", "application/zip"}};
	ASSERT_EQ(http.Post((path + "/update").c_str(), items)->status, 200);
	ASSERT_EQ(http.Post((path + "/contributors").c_str(), "{\"account\":76561197960265999}", "application/json")->status, 200);
	const UGCHandle_t firstContent = Details(shared).m_hFile;
	ASSERT_NE(firstContent, k_UGCHandleInvalid);

	BrumeAPI_Shutdown();
	setenv("BRUME_ACCOUNT", "76561197960265999", 1);
	ASSERT_TRUE(BrumeAPI_Init());
	const BrumeID_t contributor = BrumeAPI_User()->GetBrumeID();
	ASSERT_EQ(contributor, 76561197960265999ull);
	// Its shared listing holds the file; its published files do not.
	EXPECT_EQ(SharedFiles(contributor), (std::vector<uint64_t>{shared}));
	std::vector<uint64_t> ids;
	int pages = 0;
	ASSERT_TRUE(ListAll(ids, pages));
	EXPECT_TRUE(ids.empty());

	// Content with a change note goes through.
	m_Data.Write("castle/castle.zip", "v2");
	const AppId_t app = BrumeAPI_Utils()->GetAppID();
	UGCUpdateHandle_t update = BrumeAPI_UGC()->StartItemUpdate(app, shared);
	ASSERT_TRUE(BrumeAPI_UGC()->SetItemContent(update, m_Data.Path("castle").c_str()));
	EXPECT_EQ(Submit(update, "Moved the gate"), k_EResultOK);
	auto d = Details(shared);
	EXPECT_STREQ(d.m_rgchTitle, "Castle");
	EXPECT_EQ(d.m_ulBrumeIDOwner, creator);
	const UGCHandle_t secondContent = d.m_hFile;
	EXPECT_NE(secondContent, firstContent);
	EXPECT_NE(http.Get((path + "/changes").c_str())->body.find("Moved the gate"), std::string::npos);

	// With a title (the creator's part) the whole update is refused.
	m_Data.Write("castle/castle.zip", "v3");
	update = BrumeAPI_UGC()->StartItemUpdate(app, shared);
	ASSERT_TRUE(BrumeAPI_UGC()->SetItemTitle(update, "My castle"));
	ASSERT_TRUE(BrumeAPI_UGC()->SetItemContent(update, m_Data.Path("castle").c_str()));
	EXPECT_EQ(Submit(update, "Renamed"), k_EResultAccessDenied);
	d = Details(shared);
	EXPECT_STREQ(d.m_rgchTitle, "Castle");
	EXPECT_EQ(d.m_hFile, secondContent);
	// The creator's other file stays out of reach.
	update = BrumeAPI_UGC()->StartItemUpdate(app, made[0]);
	ASSERT_TRUE(BrumeAPI_UGC()->SetItemContent(update, m_Data.Path("castle").c_str()));
	EXPECT_EQ(Submit(update, "Mine too"), k_EResultAccessDenied);
	EXPECT_EQ(Details(made[0]).m_hFile, k_UGCHandleInvalid);

	// The creator's shared listing still holds both of its files.
	BrumeAPI_Shutdown();
	unsetenv("BRUME_ACCOUNT");
	ASSERT_TRUE(BrumeAPI_Init());
	EXPECT_EQ(SharedFiles(creator), made);
}

// An item's files are installed under the names the service gives; a service (or whatever answers
// in its place) that names files outside the install folder gets nothing installed at all.
TEST_F(BrumeClient, InstalledNamesFollowThePathRule)
{
	ASSERT_TRUE(m_Service.Start(m_Data.Path("service")));
	CServiceRelay relay;
	ASSERT_TRUE(relay.Start(m_Service.Port()));
	setenv("BRUME_SERVICE", relay.Address().c_str(), 1);
	setenv("BRUME_DATA_DIR", m_Data.Path("client").c_str(), 1);
	unsetenv("BRUME_ACCOUNT");
	ASSERT_TRUE(BrumeAPI_Init());
	IBrumeUGC *ugc = BrumeAPI_UGC();

	auto Escape = [](const std::string &text) {
		std::string out;
		for (const char c : text)
		{
			if (c == '\\' || c == '"')
				out += std::string("\\") + c;
			else if ((unsigned char)c < 0x20)
				out += V_Format("\\u%04x", (unsigned)(unsigned char)c);
			else
				out += c;
		}
		return out;
	};
	// Installs an item whose one file the details answer names `name`; true when it was installed.
	auto Install = [&](const std::string &name, std::string &folder) {
		httplib::Client http("127.0.0.1", m_Service.Port());
		const uint64_t id = MakeFiles(1)[0];
		httplib::MultipartFormDataItems items = {{"meta", "{}", "", "application/json"},
			{"content", "payload", "placeholder.bin", "application/octet-stream"}};
		EXPECT_EQ(http.Post(("/api/v1/files/" + std::to_string(id) + "/update").c_str(), items)->status, 200);
		const std::string details = "/api/v1/files/" + std::to_string(id);
		relay.SetHook([&, details](const httplib::Request &req, httplib::Response &res) {

			if (req.method != "GET" || req.path != details)
				return false;
			auto r = httplib::Client("127.0.0.1", m_Service.Port()).Get(details.c_str());
			std::string body = r ? r->body : std::string();
			const std::string placeholder = "\"name\":\"placeholder.bin\"";
			const size_t at = body.find(placeholder);
			if (at != std::string::npos)
				body.replace(at, placeholder.size(), "\"name\":\"" + Escape(name) + "\"");
			res.set_content(body, "application/json");
			return true;
		});
		EXPECT_TRUE(ugc->DownloadItem(id, true));
		Details(id); // the worker takes requests in order: once this answers, the download is done
		relay.SetHook(nullptr);
		char path[4096] = {};
		uint64 size = 0;
		uint32 stamp = 0;
		const bool bInstalled = ugc->GetItemInstallInfo(id, &size, path, sizeof(path), &stamp);
		folder = path;
		return bInstalled;
	};

	for (const PathRuleName_t &name : HostilePathNames())
	{
		std::string folder;
		EXPECT_FALSE(Install(name.name, folder)) << name.what << ": " << folder;
	}
	for (const PathRuleName_t &name : LegitimatePathNames())
	{
		std::string folder;
		ASSERT_TRUE(Install(name.name, folder)) << name.what;
		EXPECT_EQ(ReadFile(folder + "/" + PathRuleLanding(name.name)), "payload") << name.what;
	}
	// Nothing was written beside the install folders (content/<app>/<item>/...).
	const std::regex installed(".*/client/content/[0-9]+/[0-9]+/.+");
	for (const auto &entry : std::filesystem::recursive_directory_iterator(m_Data.Path()))
	{
		if (entry.is_regular_file() && entry.path().string().find("/service/") == std::string::npos)
		{
			EXPECT_TRUE(std::regex_match(entry.path().string(), installed)) << entry.path();
		}
	}
}
