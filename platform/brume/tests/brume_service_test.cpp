// The service over plain HTTP: ownership, the file page, reservations, bad requests, fault
// injection and what survives a crash.
#include <filesystem>
#include <thread>

#include <httplib.h>
#include <rapidjson/document.h>

#include "core/tests/test_support.h"
#include "service_process.h"

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
		EXPECT_EQ(entry.path().filename().string().find(".tmp"), std::string::npos);
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
