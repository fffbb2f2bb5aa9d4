// The service over plain HTTP: ownership and contributors, the file page, reservations, bad requests, fault
// injection and what survives a crash.
#include <filesystem>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <thread>

#include <httplib.h>
#include <rapidjson/document.h>
#include <sqlite3.h>

#include "testsupport/test_support.h"
#include "testsupport/pathnames.h"
#include "testsupport/service_process.h"

namespace
{
const char *kOther = "76561197960265828"; // another account of the public universe

rapidjson::Document Json(const httplib::Result &r)
{
	rapidjson::Document doc;
	if (r)
		doc.Parse(r->body.c_str());
	return doc;
}

uint64_t CreateFile(httplib::Client &http, const httplib::Headers &headers = {})
{
	auto r = http.Post("/api/v1/files", headers, "{\"file_type\":1}", "application/json");
	auto doc = Json(r);
	return doc.IsObject() && doc.HasMember("publishedfileid") ? doc["publishedfileid"].GetUint64() : 0;
}

httplib::Result Update(httplib::Client &http, uint64_t id, const std::string &meta, const std::string &contentName,
	const std::string &content, const httplib::Headers &headers = {})
{
	httplib::MultipartFormDataItems items = {{"meta", meta, "", "application/json"}};
	if (!contentName.empty())
		items.push_back({"content", content, contentName, "application/octet-stream"});
	return http.Post(("/api/v1/files/" + std::to_string(id) + "/update").c_str(), headers, items);
}

// One number the service's database answers, read beside the running service (WAL allows it).
int64_t QueryNumber(const std::string &dataDir, const std::string &sql)
{
	sqlite3 *db = nullptr;
	int64_t value = -1;
	if (sqlite3_open_v2((dataDir + "/brume.sqlite").c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK)
	{
		sqlite3_stmt *stmt = nullptr;
		if (sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr) == SQLITE_OK && sqlite3_step(stmt) == SQLITE_ROW)
			value = sqlite3_column_int64(stmt, 0);
		sqlite3_finalize(stmt);
	}
	sqlite3_close(db);
	return value;
}

size_t CountFiles(const std::string &folder)
{
	size_t n = 0;
	for (const auto &entry : std::filesystem::directory_iterator(folder))
		n += entry.is_regular_file() ? 1 : 0;
	return n;
}
} // namespace

TEST(BrumeService, RefusesChangesByAnotherAccount)
{
	CTempDirectory data;
	CServiceProcess service;
	ASSERT_TRUE(service.Start(data.Path()));
	httplib::Client http("127.0.0.1", service.Port());
	const uint64_t id = CreateFile(http);
	ASSERT_NE(id, 0u);
	ASSERT_EQ(Update(http, id, R"({"title":"Mine"})", "", "")->status, 200);

	const httplib::Headers other = {{"X-Brume-Account", kOther}};
	auto refused = Update(http, id, R"({"title":"Stolen"})", "a.zip", "xx", other);
	ASSERT_TRUE(refused);
	EXPECT_EQ(refused->status, 403);
	EXPECT_EQ(Json(refused)["result"].GetInt(), 15);
	auto deleted = http.Delete(("/api/v1/files/" + std::to_string(id)).c_str(), other);
	EXPECT_EQ(Json(deleted)["result"].GetInt(), 15);

	auto details = Json(http.Get(("/api/v1/files/" + std::to_string(id)).c_str()));
	EXPECT_STREQ(details["title"].GetString(), "Mine");
	EXPECT_EQ(details["hcontent_file"].GetUint64(), 0u);
	// The other account sees it but lists none of its own.
	auto list = Json(http.Get("/api/v1/files", other));
	EXPECT_EQ(list["total"].GetUint(), 0u);
}

TEST(BrumeService, FilePageShowsTheFileEscaped)
{
	CTempDirectory data;
	CServiceProcess service;
	ASSERT_TRUE(service.Start(data.Path(), {"--persona", "Ann <admin>"}));
	httplib::Client http("127.0.0.1", service.Port());
	const uint64_t id = CreateFile(http);
	httplib::MultipartFormDataItems items = {
		{"meta", R"({"title":"<script>alert(1)</script> & Co","file_description":"line \"one\"\nline 'two'","tags":["Zeta","<b>"],"visibility":0,"change_note":"Fixed <i>it</i>"})", "", "application/json"},
		{"preview", std::string("\x89PNG-preview-bytes", 18), "shot.png", "image/png"},
		{"content", "zipbytes", "item.zip", "application/zip"}};
	ASSERT_EQ(http.Post(("/api/v1/files/" + std::to_string(id) + "/update").c_str(), items)->status, 200);

	auto page = http.Get(("/sharedfiles/filedetails/?id=" + std::to_string(id)).c_str());
	ASSERT_TRUE(page);
	EXPECT_EQ(page->status, 200);
	const std::string &html = page->body;
	EXPECT_EQ(html.find("<script>"), std::string::npos);
	EXPECT_NE(html.find("&lt;script&gt;alert(1)&lt;/script&gt; &amp; Co"), std::string::npos);
	EXPECT_NE(html.find("line &quot;one&quot;\nline &#39;two&#39;"), std::string::npos);
	EXPECT_NE(html.find("Ann &lt;admin&gt;"), std::string::npos);
	EXPECT_NE(html.find("<li class=\"tag\">&lt;b&gt;</li><li class=\"tag\">Zeta</li>"), std::string::npos);
	EXPECT_NE(html.find("Fixed &lt;i&gt;it&lt;/i&gt;"), std::string::npos);
	EXPECT_NE(html.find(">Public<"), std::string::npos);

	// The preview the page shows is served with its bytes.
	auto details = Json(http.Get(("/api/v1/files/" + std::to_string(id)).c_str()));
	const std::string src = std::string("src=\"") + details["preview_url"].GetString() + "\"";
	EXPECT_NE(html.find(src), std::string::npos);
	auto image = http.Get(details["preview_url"].GetString());
	ASSERT_TRUE(image);
	EXPECT_EQ(image->body, std::string("\x89PNG-preview-bytes", 18));
	EXPECT_EQ(image->get_header_value("Content-Type"), "image/png");

	auto missing = http.Get("/sharedfiles/filedetails/?id=999");
	EXPECT_EQ(missing->status, 404);
	auto bad = http.Get("/sharedfiles/filedetails/?id=abc");
	EXPECT_EQ(bad->status, 404);
}

TEST(BrumeService, RefusesBadRequests)
{
	CTempDirectory data;
	CServiceProcess service;
	ASSERT_TRUE(service.Start(data.Path()));
	httplib::Client http("127.0.0.1", service.Port());
	const uint64_t id = CreateFile(http);
	EXPECT_EQ(http.Post("/api/v1/files", "{not json", "application/json")->status, 400);
	EXPECT_EQ(Update(http, id, "[1,2]", "", "")->status, 400);
	EXPECT_EQ(Update(http, id, R"({"visibility":"x"})", "", "")->status, 400);
	// Content names that would leave the content folder.
	for (const char *name : {"../escape.zip", "/abs.zip", "a//b", "a/../../b"})
		EXPECT_EQ(Update(http, id, "{}", name, "x")->status, 400) << name;
	EXPECT_EQ(http.Get("/api/v1/files/99999999999999999999999")->status, 400);
	EXPECT_EQ(http.Get("/api/v1/files?start=-1")->status, 400);
	EXPECT_EQ(http.Get("/api/v1/ugc/12345")->status, 404);
	EXPECT_EQ(http.Get("/api/v1/files/777/changes")->status, 404);
	EXPECT_EQ(http.Get(("/api/v1/files/" + std::to_string(id) + "/changes").c_str())->status, 200);
	// The service still answers afterwards, and nothing was stored.
	auto details = Json(http.Get(("/api/v1/files/" + std::to_string(id)).c_str()));
	EXPECT_EQ(details["content"].Size(), 0u);
	EXPECT_EQ(CountFiles(data.Path("ugc")), 0u);
}

TEST(BrumeService, ReservesDefinitionIndices)
{
	CTempDirectory data;
	CServiceProcess service;
	ASSERT_TRUE(service.Start(data.Path(), {"--persona", "Res"}));
	httplib::Client http("127.0.0.1", service.Port());
	auto reserve = [&](unsigned index, const httplib::Headers &h) {
		return Json(http.Post("/api/v1/reservations", h, "{\"index\":" + std::to_string(index) + ",\"prefab\":1}", "application/json"));
	};
	EXPECT_EQ(reserve(20001, {})["result"].GetInt(), 1);
	EXPECT_EQ(reserve(20001, {})["result"].GetInt(), 1); // again by the same account
	auto taken = reserve(20001, {{"X-Brume-Account", kOther}});
	EXPECT_EQ(taken["result"].GetInt(), 3);
	EXPECT_STREQ(taken["user"].GetString(), "Res");
	http.Post("/api/v1/occupied", "{\"index\":20002}", "application/json");
	EXPECT_EQ(reserve(20002, {})["result"].GetInt(), 2);
	EXPECT_EQ(http.Post("/api/v1/reservations", "{}", "application/json")->status, 400);
}

TEST(BrumeService, InjectedFailuresCarryTheResultCode)
{
	CTempDirectory data;
	CServiceProcess service;
	ASSERT_TRUE(service.Start(data.Path(), {"--failure-rate", "1", "--result-code", "16"}));
	httplib::Client http("127.0.0.1", service.Port());
	auto r = http.Get("/api/v1/files/1");
	ASSERT_TRUE(r);
	EXPECT_EQ(r->status, 503);
	EXPECT_EQ(Json(r)["result"].GetInt(), 16);
	EXPECT_EQ(http.Get("/api/v1/status")->status, 200); // the status stays reachable
}

TEST(BrumeService, RejectsBadOptions)
{
	CTempDirectory data;
	EXPECT_NE(RunCommand(MINTYARD_BINARY_DIR "/bin/brume_service --port 0").exitCode, 0);
	EXPECT_NE(RunCommand(MINTYARD_BINARY_DIR "/bin/brume_service --data-dir " + data.Path() + " --failure-rate 2").exitCode, 0);
	EXPECT_NE(RunCommand(MINTYARD_BINARY_DIR "/bin/brume_service --data-dir " + data.Path() + " --port 70000").exitCode, 0);
}

// The account is given by its number or by the 64-bit id the service's own answers show.
TEST(BrumeService, TakesTheAccountByNumberOrBy64BitId)
{
	for (const std::vector<std::string> &options :
		{ std::vector<std::string>{ "--account", "22202" }, std::vector<std::string>{ "--account", "76561197960287930" },
			std::vector<std::string>{ "--account", "76561197960287930", "--universe", "1" } })
	{
		CTempDirectory data;
		CServiceProcess service;
		ASSERT_TRUE(service.Start(data.Path(), options)) << options[1];
		httplib::Client http("127.0.0.1", service.Port());
		auto status = Json(http.Get("/api/v1/status"));
		ASSERT_TRUE(status.IsObject());
		EXPECT_EQ(status["account"].GetUint64(), 76561197960287930ull) << options[1];
		EXPECT_EQ(status["universe"].GetInt(), 1);
	}
	{
		// An id of the development universe (2) sets the universe too.
		CTempDirectory data;
		CServiceProcess service;
		ASSERT_TRUE(service.Start(data.Path(), { "--account", std::to_string((2ull << 56) | (1ull << 52) | (1ull << 32) | 7) }));
		auto status = Json(httplib::Client("127.0.0.1", service.Port()).Get("/api/v1/status"));
		EXPECT_EQ(status["universe"].GetInt(), 2);
	}
	CTempDirectory data;
	const std::string run = MINTYARD_BINARY_DIR "/bin/brume_service --port 0 --data-dir " + data.Path();
	for (const char *bad : { "--account 0", "--account -5", "--account 12x", "--account 76561197960265728", // account number 0
			 "--account 4611686018427387905", // not an individual account
			 "--account 76561197960287930 --universe 2" })
	{
		const CommandResult_t result = RunCommand(run + " " + bad);
		EXPECT_EQ(result.exitCode, 2) << bad << "\n" << result.output;
	}
}

TEST(BrumeService, ACrashLeavesNoHalfWrittenFile)
{
	CTempDirectory data;
	uint64_t id = 0;
	const std::string good(1000, 'g');
	{
		CServiceProcess service;
		ASSERT_TRUE(service.Start(data.Path()));
		httplib::Client http("127.0.0.1", service.Port());
		id = CreateFile(http);
		ASSERT_EQ(Update(http, id, R"({"title":"Kept","change_note":"one"})", "item.zip", good)->status, 200);
		// A large upload that the crash interrupts.
		std::thread upload([&]() {
			httplib::Client slow("127.0.0.1", service.Port());
			Update(slow, id, R"({"title":"Lost"})", "item.zip", std::string(64 << 20, 'b'));
		});
		std::this_thread::sleep_for(std::chrono::milliseconds(150));
		service.Kill();
		upload.join();
	}
	// Leftovers as a crash during a write leaves them: a temporary file and bytes no record names.
	data.Write("ugc/77.tmp4242", "half");
	data.Write("ugc/78", "orphan");

	CServiceProcess service;
	ASSERT_TRUE(service.Start(data.Path()));
	httplib::Client http("127.0.0.1", service.Port());
	auto details = Json(http.Get(("/api/v1/files/" + std::to_string(id)).c_str()));
	ASSERT_TRUE(details.IsObject());
	const std::string title = details["title"].GetString();
	ASSERT_TRUE(title == "Kept" || title == "Lost") << title;
	const uint64_t handle = details["hcontent_file"].GetUint64();
	auto bytes = http.Get(("/api/v1/ugc/" + std::to_string(handle)).c_str());
	ASSERT_TRUE(bytes);
	if (title == "Kept")
		EXPECT_EQ(bytes->body, good);
	else
		EXPECT_EQ(bytes->body.size(), size_t(64 << 20));
	EXPECT_FALSE(std::filesystem::exists(data.Path("ugc/77.tmp4242")));
	EXPECT_FALSE(std::filesystem::exists(data.Path("ugc/78")));
	// Every blob on disk belongs to a record: the one content file plus at most the replaced one.
	EXPECT_LE(CountFiles(data.Path("ugc")), 2u);
	for (const auto &entry : std::filesystem::directory_iterator(data.Path("ugc")))
	{
		EXPECT_EQ(entry.path().filename().string().find(".tmp"), std::string::npos);
		EXPECT_EQ(entry.path().filename().string().find(".part"), std::string::npos);
	}
}

// Uploads go to disk as they arrive. One that is refused half-way or that breaks off leaves no
// file behind, and the file's record and bytes stay as they were.
TEST(BrumeService, AnUploadRefusedOrBrokenOffLeavesNothingBehind)
{
	CTempDirectory data;
	CServiceProcess service;
	ASSERT_TRUE(service.Start(data.Path()));
	httplib::Client http("127.0.0.1", service.Port());
	const uint64_t id = CreateFile(http);
	const std::string kept(200000, 'k');
	ASSERT_EQ(Update(http, id, R"({"title":"Kept"})", "pack.bdl", kept)->status, 200);
	const size_t blobs = CountFiles(data.Path("ugc"));

	// A good part of several megabytes, then a part whose name climbs out of the folder.
	httplib::MultipartFormDataItems items = {{"meta", R"({"title":"Changed"})", "", "application/json"},
		{"content", std::string(3 << 20, 'a'), "a.bin", "application/octet-stream"},
		{"content", "evil", "../evil.bin", "application/octet-stream"}};
	auto refused = http.Post(("/api/v1/files/" + std::to_string(id) + "/update").c_str(), items);
	ASSERT_TRUE(refused);
	EXPECT_EQ(refused->status, 400);
	EXPECT_NE(refused->body.find("bad content file name"), std::string::npos) << refused->body;

	// A body that stops after a megabyte of the ten it announced.
	{
		const int sock = socket(AF_INET, SOCK_STREAM, 0);
		sockaddr_in at{};
		at.sin_family = AF_INET;
		at.sin_port = htons((uint16_t)service.Port());
		at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
		ASSERT_EQ(connect(sock, (sockaddr *)&at, sizeof(at)), 0);
		const std::string part = "--b\r\nContent-Disposition: form-data; name=\"content\"; filename=\"big.bin\"\r\n\r\n" + std::string(1 << 20, 'x');
		const std::string head = "POST /api/v1/files/" + std::to_string(id) +
								 "/update HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: multipart/form-data; boundary=b\r\nContent-Length: " +
								 std::to_string(10 << 20) + "\r\n\r\n";
		const std::string all = head + part;
		ASSERT_EQ(send(sock, all.data(), all.size(), MSG_NOSIGNAL), (ssize_t)all.size());
		std::this_thread::sleep_for(std::chrono::milliseconds(100));
		close(sock);
	}
	// The service notices the closed connection on its own time.
	bool bClean = false;
	for (int i = 0; i < 250 && !bClean; ++i)
	{
		bClean = CountFiles(data.Path("ugc")) == blobs;
		if (!bClean)
			std::this_thread::sleep_for(std::chrono::milliseconds(20));
	}
	EXPECT_TRUE(bClean) << CountFiles(data.Path("ugc")) << " files in the blob folder, " << blobs << " expected";
	auto details = Json(http.Get(("/api/v1/files/" + std::to_string(id)).c_str()));
	ASSERT_TRUE(details.IsObject());
	EXPECT_STREQ(details["title"].GetString(), "Kept");
	auto bytes = http.Get(("/api/v1/ugc/" + std::to_string(details["hcontent_file"].GetUint64())).c_str());
	ASSERT_TRUE(bytes);
	EXPECT_EQ(bytes->body, kept);
}

TEST(BrumeService, DetailsCarryVotesChildrenModerationAndKeyValueTags)
{
	CTempDirectory data;
	CServiceProcess service;
	ASSERT_TRUE(service.Start(data.Path()));
	httplib::Client http("127.0.0.1", service.Port());
	const uint64_t parent = CreateFile(http), child = CreateFile(http);
	const std::string path = "/api/v1/files/" + std::to_string(parent);
	ASSERT_EQ(Update(http, parent, R"({"kvtags":[{"key":"hero","value":"warden"},{"key":"slot","value":"head"}]})", "", "")->status, 200);
	EXPECT_EQ(Json(http.Post((path + "/children").c_str(), "{\"child\":" + std::to_string(child) + "}", "application/json"))["result"].GetInt(), 1);
	EXPECT_EQ(Json(http.Post((path + "/children").c_str(), {{"X-Brume-Account", kOther}}, "{\"child\":" + std::to_string(child) + "}", "application/json"))["result"].GetInt(), 15);
	EXPECT_EQ(Json(http.Post((path + "/children").c_str(), "{\"child\":424242}", "application/json"))["result"].GetInt(), 9);
	http.Post((path + "/vote").c_str(), "{\"up\":true}", "application/json");
	http.Post((path + "/vote").c_str(), {{"X-Brume-Account", kOther}}, "{\"up\":false}", "application/json");
	http.Post((path + "/vote").c_str(), {{"X-Brume-Account", kOther}}, "{\"up\":true}", "application/json"); // changes its vote
	http.Post((path + "/vote").c_str(), {{"X-Brume-Account", "76561197960265900"}}, "{\"up\":false}", "application/json");
	http.Post((path + "/moderation").c_str(), "{\"banned\":true,\"mintyard_accepted\":true}", "application/json");

	auto d = Json(http.Get(path.c_str()));
	ASSERT_TRUE(d.IsObject());
	EXPECT_EQ(d["children"].Size(), 1u);
	EXPECT_EQ(d["children"][0].GetUint64(), child);
	EXPECT_EQ(d["vote_data"]["votes_up"].GetUint(), 2u);
	EXPECT_EQ(d["vote_data"]["votes_down"].GetUint(), 1u);
	EXPECT_NEAR(d["vote_data"]["score"].GetDouble(), 2.0 / 3.0, 1e-9);
	EXPECT_TRUE(d["banned"].GetBool());
	EXPECT_TRUE(d["mintyard_accepted"].GetBool());
	ASSERT_EQ(d["kvtags"].Size(), 2u);
	EXPECT_STREQ(d["kvtags"][1]["key"].GetString(), "slot");
	EXPECT_STREQ(d["kvtags"][1]["value"].GetString(), "head");

	// Deleting the child takes it out of the parent's list.
	ASSERT_EQ(http.Delete(("/api/v1/files/" + std::to_string(child)).c_str())->status, 200);
	EXPECT_EQ(Json(http.Get(path.c_str()))["children"].Size(), 0u);
	// Records survive a restart.
	service.Stop();
	ASSERT_TRUE(service.Start(data.Path()));
	httplib::Client again("127.0.0.1", service.Port());
	EXPECT_EQ(Json(again.Get(path.c_str()))["vote_data"]["votes_up"].GetUint(), 2u);
}

TEST(BrumeService, ContributorsMayReplaceOnlyTheContent)
{
	CTempDirectory data;
	CServiceProcess service;
	ASSERT_TRUE(service.Start(data.Path()));
	httplib::Client http("127.0.0.1", service.Port());
	const char *kContributor = "76561197960265900", *kStranger = "76561197960265901";
	const httplib::Headers contributor = {{"X-Brume-Account", kContributor}}, stranger = {{"X-Brume-Account", kStranger}};
	const uint64_t id = CreateFile(http);
	ASSERT_NE(id, 0u);
	const std::string path = "/api/v1/files/" + std::to_string(id);
	ASSERT_EQ(Json(Update(http, id, R"({"title":"Mine","tags":["Map"],"change_note":"first"})", "item.zip", "v1"))["result"].GetInt(), 1);
	auto details = [&]() { return Json(http.Get(path.c_str())); };
	auto contribute = [&](const std::string &body, const httplib::Headers &h = {}) {
		return Json(http.Post((path + "/contributors").c_str(), h, body, "application/json"))["result"].GetInt();
	};
	auto list = [&](const httplib::Headers &h, const std::string &query) { return Json(http.Get(("/api/v1/files?" + query).c_str(), h)); };
	const std::string addContributor = std::string("{\"account\":") + kContributor + "}";

	// Only the creator names contributors, never itself, never account 0.
	EXPECT_EQ(contribute(addContributor, stranger), 15);
	EXPECT_EQ(contribute(std::string("{\"account\":") + kStranger + "}", stranger), 15);
	EXPECT_EQ(contribute("{\"account\":76561197960265729}"), 8); // the service's own account, the creator
	EXPECT_EQ(contribute("{\"account\":0}"), 8);
	EXPECT_EQ(contribute("{\"account\":\"76561197960265900\"}"), 8);
	EXPECT_EQ(contribute(addContributor.substr(0, addContributor.size() - 1) + ",\"remove\":1}"), 8);
	EXPECT_EQ(Json(http.Post("/api/v1/files/424242/contributors", addContributor, "application/json"))["result"].GetInt(), 9);
	EXPECT_EQ(details()["contributors"].Size(), 0u);

	// The stranger may change nothing, not even the content.
	const size_t blobsBefore = CountFiles(data.Path("ugc"));
	auto refused = Update(http, id, R"({"change_note":"mine now"})", "item.zip", "stolen", stranger);
	ASSERT_TRUE(refused);
	EXPECT_EQ(refused->status, 403);
	EXPECT_EQ(Json(refused)["result"].GetInt(), 15);

	EXPECT_EQ(contribute(addContributor), 1);
	EXPECT_EQ(contribute(addContributor), 1); // once is enough; twice changes nothing
	auto d = details();
	ASSERT_EQ(d["contributors"].Size(), 1u);
	EXPECT_EQ(d["contributors"][0].GetUint64(), 76561197960265900ull);
	// The account exists now, under its default name.
	EXPECT_STREQ(Json(http.Get((std::string("/api/v1/accounts/") + kContributor).c_str()))["persona"].GetString(), "Account 172");
	const uint64_t firstContent = d["hcontent_file"].GetUint64();
	ASSERT_NE(firstContent, 0u);

	// A contributor's update that touches the creator's part is refused whole: nothing changes.
	for (const char *meta : {R"({"title":"Theirs","change_note":"x"})", R"({"file_description":"d"})", R"({"visibility":0})",
			 R"({"tags":["Hat"]})", R"({"kvtags":[{"key":"k","value":"v"}]})"})
	{
		auto r = Update(http, id, meta, "item.zip", "v2", contributor);
		ASSERT_TRUE(r);
		EXPECT_EQ(Json(r)["result"].GetInt(), 15) << meta;
		EXPECT_EQ(r->status, 403) << meta;
	}
	httplib::MultipartFormDataItems withPreview = {{"meta", R"({"change_note":"new look"})", "", "application/json"},
		{"content", "v2", "item.zip", "application/octet-stream"}, {"preview", "png", "shot.png", "image/png"}};
	EXPECT_EQ(Json(http.Post((path + "/update").c_str(), contributor, withPreview))["result"].GetInt(), 15);
	d = details();
	EXPECT_STREQ(d["title"].GetString(), "Mine");
	EXPECT_EQ(d["hcontent_file"].GetUint64(), firstContent);
	EXPECT_EQ(d["hcontent_preview"].GetUint64(), 0u);
	ASSERT_EQ(d["tags"].Size(), 1u);
	EXPECT_STREQ(d["tags"][0].GetString(), "Map");
	EXPECT_EQ(d["visibility"].GetInt(), 2);
	EXPECT_EQ(Json(http.Get((path + "/changes").c_str()))["changes"].Size(), 1u);
	EXPECT_EQ(CountFiles(data.Path("ugc")), blobsBefore); // no bytes of refused updates were kept

	// Content with a change note is the contributor's to give; the blob is theirs.
	auto accepted = Update(http, id, R"({"change_note":"Fixed the seams","set_content":true})", "item.zip", "v2", contributor);
	ASSERT_TRUE(accepted);
	EXPECT_EQ(Json(accepted)["result"].GetInt(), 1);
	d = details();
	EXPECT_STREQ(d["title"].GetString(), "Mine");
	const uint64_t secondContent = d["hcontent_file"].GetUint64();
	EXPECT_NE(secondContent, firstContent);
	EXPECT_EQ(http.Get(("/api/v1/ugc/" + std::to_string(secondContent)).c_str())->body, "v2");
	EXPECT_EQ(Json(http.Get(("/api/v1/ugc/" + std::to_string(secondContent) + "/info").c_str()))["owner"].GetUint64(), 76561197960265900ull);
	auto changes = Json(http.Get((path + "/changes").c_str()));
	ASSERT_EQ(changes["changes"].Size(), 2u);
	bool bNoted = false;
	for (const auto &c : changes["changes"].GetArray())
		bNoted = bNoted || std::string(c["note"].GetString()) == "Fixed the seams";
	EXPECT_TRUE(bNoted);
	// The creator still changes everything.
	EXPECT_EQ(Json(Update(http, id, R"({"title":"Mine 2"})", "", ""))["result"].GetInt(), 1);
	// Deleting stays the creator's.
	EXPECT_EQ(Json(http.Delete(path.c_str(), contributor))["result"].GetInt(), 15);

	// The shared listing holds the file for the contributor and the creator; the plain one only
	// for the creator. Tag filters and totals apply to both.
	EXPECT_EQ(list(contributor, "")["total"].GetUint(), 0u);
	auto shared = list(contributor, "shared=1");
	ASSERT_EQ(shared["total"].GetUint(), 1u);
	EXPECT_EQ(shared["ids"][0].GetUint64(), id);
	EXPECT_EQ(list({}, std::string("creator=") + kContributor + "&shared=1&required=Map")["total"].GetUint(), 1u);
	EXPECT_EQ(list(contributor, "shared=1&excluded=Map")["total"].GetUint(), 0u);
	EXPECT_EQ(list(stranger, "shared=1")["total"].GetUint(), 0u);
	EXPECT_EQ(list({}, "shared=1")["ids"][0].GetUint64(), id);
	EXPECT_EQ(list({}, "")["ids"][0].GetUint64(), id);
	EXPECT_EQ(http.Get("/api/v1/files?shared=yes")->status, 400);
	// A file of the contributor's own comes before or after by id, within the same listing.
	const uint64_t own = CreateFile(http, contributor);
	shared = list(contributor, "shared=1&count=1&start=1");
	EXPECT_EQ(shared["total"].GetUint(), 2u);
	ASSERT_EQ(shared["ids"].Size(), 1u);
	EXPECT_EQ(shared["ids"][0].GetUint64(), own);

	// Removing the contributor takes the right away.
	EXPECT_EQ(contribute(addContributor.substr(0, addContributor.size() - 1) + ",\"remove\":true}", stranger), 15);
	EXPECT_EQ(contribute(addContributor.substr(0, addContributor.size() - 1) + ",\"remove\":true}"), 1);
	EXPECT_EQ(details()["contributors"].Size(), 0u);
	EXPECT_EQ(Json(Update(http, id, R"({"change_note":"again"})", "item.zip", "v3", contributor))["result"].GetInt(), 15);
	EXPECT_EQ(details()["hcontent_file"].GetUint64(), secondContent);
	EXPECT_EQ(list(contributor, "shared=1")["total"].GetUint(), 1u); // only its own file

	// Deleting the file takes its contributor rows with it.
	EXPECT_EQ(contribute(addContributor), 1);
	EXPECT_EQ(QueryNumber(data.Path(), "SELECT COUNT(*) FROM contributors WHERE file_id=" + std::to_string(id)), 1);
	ASSERT_EQ(Json(http.Delete(path.c_str()))["result"].GetInt(), 1);
	EXPECT_EQ(QueryNumber(data.Path(), "SELECT COUNT(*) FROM contributors WHERE file_id=" + std::to_string(id)), 0);
	EXPECT_EQ(contribute(addContributor), 9);
	EXPECT_EQ(list(contributor, "shared=1")["total"].GetUint(), 1u);
}

TEST(BrumeService, DataFromBeforeContributorsStillOpens)
{
	CTempDirectory data;
	CServiceProcess service;
	ASSERT_TRUE(service.Start(data.Path()));
	uint64_t id;
	{
		httplib::Client http("127.0.0.1", service.Port());
		id = CreateFile(http);
		ASSERT_EQ(Json(Update(http, id, R"({"title":"Old"})", "", ""))["result"].GetInt(), 1);
	}
	service.Stop();
	// A database as the service wrote it before it knew contributors.
	EXPECT_EQ(QueryNumber(data.Path(), "SELECT COUNT(*) FROM contributors"), 0);
	sqlite3 *db = nullptr;
	ASSERT_EQ(sqlite3_open((data.Path() + "/brume.sqlite").c_str(), &db), SQLITE_OK);
	EXPECT_EQ(sqlite3_exec(db, "DROP INDEX contributors_account; DROP TABLE contributors;", nullptr, nullptr, nullptr), SQLITE_OK);
	sqlite3_close(db);
	EXPECT_EQ(QueryNumber(data.Path(), "SELECT COUNT(*) FROM contributors"), -1);

	ASSERT_TRUE(service.Start(data.Path()));
	httplib::Client http("127.0.0.1", service.Port());
	const std::string path = "/api/v1/files/" + std::to_string(id);
	auto d = Json(http.Get(path.c_str()));
	ASSERT_TRUE(d.IsObject());
	EXPECT_STREQ(d["title"].GetString(), "Old");
	EXPECT_EQ(d["contributors"].Size(), 0u);
	EXPECT_EQ(Json(http.Post((path + "/contributors").c_str(), "{\"account\":76561197960265900}", "application/json"))["result"].GetInt(), 1);
	EXPECT_EQ(Json(http.Get(path.c_str()))["contributors"].Size(), 1u);
}

// The search looks at the files the caller may see: every public one and the caller's own, with
// their tags and key-value tags as they stand after the last update.
TEST(BrumeService, SearchSeesPublicFilesAndTheCallersOwn)
{
	CTempDirectory data;
	CServiceProcess service;
	ASSERT_TRUE(service.Start(data.Path()));
	httplib::Client http("127.0.0.1", service.Port());
	const httplib::Headers other = {{"X-Brume-Account", kOther}};
	const uint64_t mineHidden = CreateFile(http);
	const uint64_t otherPublic = CreateFile(http, other);
	const uint64_t otherHidden = CreateFile(http, other);
	ASSERT_EQ(Update(http, mineHidden, R"({"title":"Lamp one","visibility":2,"tags":["Old"],"kvtags":[{"key":"k","value":"x"}]})", "", "")->status, 200);
	ASSERT_EQ(Update(http, mineHidden, R"({"tags":["Ward","Lamp"],"kvtags":[{"key":"k","value":"v"}]})", "", "")->status, 200);
	ASSERT_EQ(Update(http, otherPublic, R"({"title":"Lamp two","visibility":0,"tags":["Ward"]})", "", "", other)->status, 200);
	ASSERT_EQ(Update(http, otherHidden, R"({"title":"Lamp three","visibility":2,"tags":["Ward"]})", "", "", other)->status, 200);

	auto search = [&](const std::string &query, const httplib::Headers &headers = {}) {
		std::vector<uint64_t> ids;
		auto doc = Json(http.Get(("/api/v1/files/query?" + query).c_str(), headers));
		if (doc.IsObject() && doc.HasMember("ids"))
			for (const auto &id : doc["ids"].GetArray())
				ids.push_back(id.GetUint64());
		return ids;
	};
	EXPECT_EQ(search("search_text=lamp"), (std::vector<uint64_t>{mineHidden, otherPublic}));
	EXPECT_EQ(search("search_text=lamp", other), (std::vector<uint64_t>{otherPublic, otherHidden}));
	const std::string ward = "solr_filter_queries%5B0%5D=" + httplib::detail::encode_query_param("tags:(\"Ward\")");
	EXPECT_EQ(search(ward), (std::vector<uint64_t>{mineHidden, otherPublic}));
	// The tags of the first update were replaced by the second.
	EXPECT_TRUE(search("solr_filter_queries%5B0%5D=" + httplib::detail::encode_query_param("tags:(\"Old\")")).empty());
	EXPECT_EQ(search("solr_filter_queries%5B0%5D=" + httplib::detail::encode_query_param("tags:(\"Lamp\")")), (std::vector<uint64_t>{mineHidden}));
	EXPECT_EQ(search("solr_filter_queries%5B0%5D=" + httplib::detail::encode_query_param("kvtags:(\"k:v\")")), (std::vector<uint64_t>{mineHidden}));
	EXPECT_TRUE(search("solr_filter_queries%5B0%5D=" + httplib::detail::encode_query_param("kvtags:(\"k:x\")")).empty());
	// A hidden file of another that names the caller a co-author is one the caller may see.
	auto me = Json(http.Get("/api/v1/status"));
	ASSERT_EQ(http.Post(("/api/v1/files/" + std::to_string(otherHidden) + "/contributors").c_str(), other,
				  "{\"account\":" + std::to_string(me["account"].GetUint64()) + "}", "application/json")->status, 200);
	EXPECT_EQ(search("search_text=lamp"), (std::vector<uint64_t>{mineHidden, otherPublic, otherHidden}));
	EXPECT_EQ(search("search_text=three"), (std::vector<uint64_t>{otherHidden}));
	auto page = http.Get(("/sharedfiles/filedetails/?id=" + std::to_string(otherHidden)).c_str());
	ASSERT_TRUE(page);
	EXPECT_NE(page->body.find("<td id=\"coauthors\">" + std::string(me["persona"].GetString()) + "</td>"), std::string::npos) << page->body;
}

// The script that the tool's run command uses: it starts a service on a free address and fills it
// with the samples once, including the guest author's addon that names the sample account.
TEST(BrumeService, TheRunScriptStartsAndSeedsALocalServiceOnce)
{
	CTempDirectory data;
	// A free port, asked of the system and given back at once.
	int port = 0;
	{
		const int probe = socket(AF_INET, SOCK_STREAM, 0);
		sockaddr_in at{};
		at.sin_family = AF_INET;
		at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
		socklen_t length = sizeof(at);
		if (probe >= 0 && bind(probe, (sockaddr *)&at, sizeof(at)) == 0 && getsockname(probe, (sockaddr *)&at, &length) == 0)
			port = ntohs(at.sin_port);
		if (probe >= 0)
			close(probe);
	}
	ASSERT_GT(port, 0);
	const std::string address = "127.0.0.1:" + std::to_string(port);
	const std::string run = "env BRUME_SERVICE=" + address + " XDG_DATA_HOME=" + data.Path("share") +
							" BRUME_SERVICE_BIN=" MINTYARD_BINARY_DIR "/bin/brume_service " MINTYARD_SOURCE_DIR "/scripts/brume-service.sh";
	const CommandResult_t first = RunCommand(run);
	const std::string dataDir = data.Path("share/mintyard/service");
	struct Stop_t
	{
		std::string m_Dir;
		~Stop_t() { RunCommand("pkill -f 'brume_service --data-dir " + m_Dir + " '"); }
	} stop{dataDir};
	ASSERT_EQ(0, first.exitCode) << first.output;
	EXPECT_NE(first.output.find("seeded 7 sample files"), std::string::npos) << first.output;

	httplib::Client http("127.0.0.1", port);
	auto status = Json(http.Get("/api/v1/status"));
	ASSERT_TRUE(status.IsObject());
	const std::string me = std::to_string(status["account"].GetUint64());
	EXPECT_EQ(6, Json(http.Get(("/api/v1/files?creator=" + me).c_str()))["total"].GetInt());
	auto shared = Json(http.Get(("/api/v1/files?shared=1&creator=" + me).c_str()));
	ASSERT_EQ(7, shared["total"].GetInt());
	auto guest = Json(http.Get(("/api/v1/files/" + std::to_string(shared["ids"][6].GetUint64())).c_str()));
	EXPECT_STREQ("Guest Artist", guest["creator_persona"].GetString());
	ASSERT_EQ(1u, guest["contributors"].Size());
	EXPECT_EQ(status["account"].GetUint64(), guest["contributors"][0].GetUint64());

	// A second run finds the service answering and leaves it as it is.
	const CommandResult_t second = RunCommand(run);
	EXPECT_EQ(0, second.exitCode) << second.output;
	EXPECT_EQ(7, Json(http.Get(("/api/v1/files?shared=1&creator=" + me).c_str()))["total"].GetInt());
}

// The names of an item's files: the hostile ones refuse the whole upload, the legitimate ones are
// kept as the rule normalises them.
TEST(BrumeService, ContentNamesFollowThePathRule)
{
	CTempDirectory data;
	CServiceProcess service;
	ASSERT_TRUE(service.Start(data.Path()));
	httplib::Client http("127.0.0.1", service.Port());
	const uint64_t id = CreateFile(http);
	for (const PathRuleName_t &name : HostilePathNames())
	{
		httplib::MultipartFormDataItems items = {{"meta", R"({"title":"Hostile"})", "", "application/json"},
			{"content", "x", name.name, "application/octet-stream"}};
		auto r = http.Post(("/api/v1/files/" + std::to_string(id) + "/update").c_str(), items);
		ASSERT_TRUE(r) << name.what;
		EXPECT_EQ(r->status, 400) << name.what;
	}
	for (const PathRuleName_t &name : LegitimatePathNames())
	{
		auto r = Update(http, id, R"({"title":"Fine"})", name.name, "x");
		ASSERT_TRUE(r) << name.what;
		ASSERT_EQ(r->status, 200) << name.what << ": " << r->body;
		auto details = Json(http.Get(("/api/v1/files/" + std::to_string(id)).c_str()));
		ASSERT_TRUE(details.IsObject() && details["content"].IsArray() && details["content"].Size() == 1) << name.what;
		EXPECT_EQ(std::string(details["content"][0]["name"].GetString()), PathRuleLanding(name.name)) << name.what;
	}
	auto details = Json(http.Get(("/api/v1/files/" + std::to_string(id)).c_str()));
	EXPECT_STREQ(details["title"].GetString(), "Fine");
}
