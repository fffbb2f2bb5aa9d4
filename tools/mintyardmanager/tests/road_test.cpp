// The whole road: the real host runs the real tool against the real content service, and a driver
// inside the host (tests/roaddriver) acts as the author. Between the author's steps the test looks
// at what the service holds.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <httplib.h>
#include <rapidjson/document.h>

#include <QImage>

#include "testsupport/test_support.h"
#include "testsupport/service_process.h"
#include "zip/zip_utils.h"

extern char **environ;

namespace fs = std::filesystem;

namespace
{
std::string ReadAll(const std::string &path)
{
	std::ifstream in(path, std::ios::binary);
	return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool Contains(const std::string &text, const std::string &part)
{
	return text.find(part) != std::string::npos;
}

// The host with the driver loaded into it, started in the background.
class CDrivenHost
{
public:
	~CDrivenHost() { Kill(); }

	bool Start(const std::string &dir, const std::vector<std::string> &environment, const std::vector<std::string> &arguments)
	{
		m_Dir = dir;
		std::vector<std::string> env;
		for (char **e = environ; *e; ++e)
			env.emplace_back(*e);
		env.insert(env.end(), environment.begin(), environment.end());
		std::vector<std::string> args = { HOST_PATH };
		args.insert(args.end(), arguments.begin(), arguments.end());
		m_Pid = fork();
		if (m_Pid == 0)
		{
			const int out = open((dir + "/host.out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
			dup2(out, 1);
			dup2(out, 2);
			std::vector<char *> argv, envp;
			for (std::string &a : args)
				argv.push_back(a.data());
			argv.push_back(nullptr);
			for (std::string &e : env)
				envp.push_back(e.data());
			envp.push_back(nullptr);
			execve(argv[0], argv.data(), envp.data());
			_exit(127);
		}
		return m_Pid > 0;
	}

	// Waits for a line of the driver's log that starts with `prefix`; false when the driver failed,
	// the host ended, or two minutes went by.
	bool WaitFor(const std::string &prefix)
	{
		const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
		while (std::chrono::steady_clock::now() < deadline)
		{
			const std::string log = Log();
			if (log.rfind(prefix, 0) == 0 || Contains(log, "\n" + prefix))
				return true;
			if (Contains(log, "FAILED") || Exited())
				return false;
			std::this_thread::sleep_for(std::chrono::milliseconds(20));
		}
		return false;
	}

	void Go(const std::string &checkpoint) { std::ofstream(m_Dir + "/go-" + checkpoint) << "go\n"; }

	// The host's exit code once it has ended, -1 when it had to be killed after two minutes.
	int Finish()
	{
		const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
		while (!Exited() && std::chrono::steady_clock::now() < deadline)
			std::this_thread::sleep_for(std::chrono::milliseconds(20));
		if (!Exited())
			Kill();
		return m_nExitCode;
	}

	std::string Log() const { return ReadAll(m_Dir + "/road.log"); }
	std::string Output() const { return ReadAll(m_Dir + "/host.out"); }
	std::string Describe() const { return "driver log:\n" + Log() + "\nhost output:\n" + Output(); }

private:
	bool Exited()
	{
		if (m_Pid <= 0)
			return true;
		int status = 0;
		if (waitpid(m_Pid, &status, WNOHANG) != m_Pid)
			return false;
		m_nExitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
		m_Pid = -1;
		return true;
	}
	void Kill()
	{
		if (m_Pid > 0)
		{
			kill(m_Pid, SIGKILL);
			waitpid(m_Pid, nullptr, 0);
			m_Pid = -1;
			m_nExitCode = -1;
		}
	}

	std::string m_Dir;
	pid_t m_Pid = -1;
	int m_nExitCode = -1;
};

class ToolRoad : public testing::Test
{
protected:
	void SetUp() override
	{
		fs::copy(MINTYARD_SOURCE_DIR "/sample/game", m_Temp.Path("game"), fs::copy_options::recursive);
		fs::create_directories(m_Temp.Path("content/zarn"));
		fs::create_directories(m_Temp.Path("road"));
		fs::create_directories(m_Temp.Path("tmp"));
		QImage preview(1024, 768, QImage::Format_RGB32);
		preview.fill(QColor(200, 160, 40));
		ASSERT_TRUE(preview.save(QString::fromStdString(m_Temp.Path("road/preview.png"))));
		ASSERT_TRUE(m_Service.Start(m_Temp.Path("service")));
	}

	bool StartHost(const char *script, const std::string &account = "", const std::vector<std::string> &options = {})
	{
		std::vector<std::string> environment = {
			// Offscreen unless the one who runs the test asks for another (xcb under Xvfb, to look).
			std::string("QT_QPA_PLATFORM=") + (getenv("QT_QPA_PLATFORM") ? getenv("QT_QPA_PLATFORM") : "offscreen"),
			"QT_PLUGIN_PATH=" ROAD_PLUGIN_DIR,
			"QT_QPA_GENERIC_PLUGINS=mintyardroad",
			"MINTYARD_ROAD_DIR=" + m_Temp.Path("road"),
			std::string("MINTYARD_ROAD_SCRIPT=") + script,
			"BRUME_SERVICE=" + m_Service.Address(),
			"BRUME_DATA_DIR=" + m_Temp.Path("client"),
			"XDG_CONFIG_HOME=" + m_Temp.Path("config"),
			"XDG_DATA_HOME=" + m_Temp.Path("data"),
			"TMPDIR=" + m_Temp.Path("tmp"),
		};
		if (!account.empty())
			environment.push_back("BRUME_ACCOUNT=" + account);
		std::vector<std::string> arguments = { "-game", m_Temp.Path("game/zarn"), "-tool", TOOL_LIBRARY_PATH };
		arguments.insert(arguments.end(), options.begin(), options.end());
		return m_Host.Start(m_Temp.Path("road"), environment, arguments);
	}

	// The service's JSON for a path, parsed.
	rapidjson::Document Get(const std::string &path)
	{
		rapidjson::Document doc;
		httplib::Client http("127.0.0.1", m_Service.Port());
		auto r = http.Get(path.c_str());
		doc.Parse(r ? r->body.c_str() : "");
		return doc;
	}
	std::vector<uint64_t> ListedIds(const std::string &query = "")
	{
		std::vector<uint64_t> ids;
		rapidjson::Document page = Get("/api/v1/files?start=0&count=50" + query);
		if (page.IsObject() && page.HasMember("ids"))
			for (const auto &id : page["ids"].GetArray())
				ids.push_back(id.GetUint64());
		return ids;
	}
	static std::vector<std::string> Strings(const rapidjson::Value &array)
	{
		std::vector<std::string> out;
		for (const auto &v : array.GetArray())
			out.emplace_back(v.GetString());
		return out;
	}
	std::vector<std::string> ChangeNotes(uint64_t id)
	{
		std::vector<std::string> notes;
		rapidjson::Document changes = Get("/api/v1/files/" + std::to_string(id) + "/changes");
		if (changes.IsObject() && changes.HasMember("changes"))
			for (const auto &c : changes["changes"].GetArray())
				notes.emplace_back(c["note"].GetString());
		return notes;
	}
	// The names the packed content of a file holds, as the packer's own listing tells them.
	std::string PackedNames(uint64_t handle)
	{
		httplib::Client http("127.0.0.1", m_Service.Port());
		auto r = http.Get(("/api/v1/ugc/" + std::to_string(handle)).c_str());
		if (!r || r->status != 200)
			return "(no content " + std::to_string(handle) + ")";
		const std::string path = m_Temp.Write("downloaded_" + std::to_string(handle) + ".bdl", r->body);
		return RunCommand(MINTYARD_BINARY_DIR "/bin/bdl l " + path).output;
	}
	// The sample's content tree (the hero's item material template is a wearable's base) and the
	// art of the sample's wearable for Bramble's head in road/art.
	void CopyWearableArt()
	{
		fs::copy(MINTYARD_SOURCE_DIR "/sample/content/zarn", m_Temp.Path("content/zarn"), fs::copy_options::recursive | fs::copy_options::overwrite_existing);
		fs::create_directories(m_Temp.Path("road/art"));
		for (const auto &entry : fs::directory_iterator(MINTYARD_SOURCE_DIR "/sample/art/wearables/bramble_head"))
			fs::copy(entry.path(), m_Temp.Path("road/art/" + entry.path().filename().string()));
	}
	// The file's submission zip (a content entry named mintyard_submit_<name>_*.zip): its handle and
	// its entries by name.
	uint64_t SubmissionZip(const rapidjson::Value &file, const std::string &importName, std::map<std::string, std::string> &entries)
	{
		entries.clear();
		const std::string prefix = "mintyard_submit_" + importName + "_";
		uint64_t handle = 0;
		for (const auto &c : file["content"].GetArray())
		{
			const std::string name = c["name"].GetString();
			if (name.rfind(prefix, 0) == 0 && name.size() > 4 && name.substr(name.size() - 4) == ".zip")
				handle = c["handle"].GetUint64();
		}
		if (!handle)
			return 0;
		httplib::Client http("127.0.0.1", m_Service.Port());
		auto r = http.Get(("/api/v1/ugc/" + std::to_string(handle)).c_str());
		CZip zip;
		if (!r || r->status != 200 || !zip.ParseFromBuffer(r->body.data(), (int64)r->body.size()))
			return 0;
		char name[1024];
		int size = 0;
		for (int id = zip.GetNextFilename(-1, name, sizeof(name), size); id != -1; id = zip.GetNextFilename(id, name, sizeof(name), size))
		{
			CUtlBuffer data;
			if (zip.ReadFileFromZip(name, false, data))
				entries[name] = std::string((const char *)data.Base(), data.Size());
		}
		return handle;
	}
	uint64_t ContentHandleNamed(const rapidjson::Value &file, const std::string &name)
	{
		for (const auto &c : file["content"].GetArray())
			if (c["name"].GetString() == name)
				return c["handle"].GetUint64();
		return 0;
	}
	std::string Page(const std::string &url)
	{
		const std::string prefix = "http://" + m_Service.Address();
		if (url.rfind(prefix, 0) != 0)
			return "(not the service's page: " + url + ")";
		httplib::Client http("127.0.0.1", m_Service.Port());
		auto r = http.Get(url.substr(prefix.size()).c_str());
		return r ? std::to_string(r->status) + "\n" + r->body : std::string("(no answer)");
	}
	// The last page the tool opened, from the driver's log.
	std::string LastOpenedUrl()
	{
		const std::string log = m_Host.Log();
		const size_t at = log.rfind("opened ");
		return at == std::string::npos ? std::string() : log.substr(at + 7, log.find('\n', at) - at - 7);
	}

	CTempDirectory m_Temp;
	CServiceProcess m_Service;
	CDrivenHost m_Host;
};
} // namespace

TEST_F(ToolRoad, AnAddonIsPublishedReUploadedEditedAndDeletedThroughTheRunningTool)
{
	ASSERT_TRUE(StartHost("publish"));

	// New: packed, created, uploaded with its preview, listed.
	ASSERT_TRUE(m_Host.WaitFor("checkpoint published")) << m_Host.Describe();
	std::vector<uint64_t> ids = ListedIds();
	ASSERT_EQ(1u, ids.size());
	const uint64_t id = ids[0];
	const std::string idText = std::to_string(id);
	rapidjson::Document file = Get("/api/v1/files/" + idText);
	ASSERT_TRUE(file.IsObject());
	EXPECT_STREQ("Arena Lights", file["title"].GetString());
	EXPECT_STREQ("Lamps around the arena.", file["file_description"].GetString());
	EXPECT_EQ(0, file["visibility"].GetInt());
	EXPECT_EQ(std::vector<std::string>{ "Custom Game" }, Strings(file["tags"]));
	EXPECT_GT(file["preview_file_size"].GetInt64(), 0);
	const uint64_t firstPack = ContentHandleNamed(file, idText + ".bdl");
	ASSERT_NE(0u, firstPack) << "the content holds no " << idText << ".bdl";
	EXPECT_NE(0u, ContentHandleNamed(file, "publish_data.txt"));
	std::string names = PackedNames(firstPack);
	EXPECT_TRUE(Contains(names, "scripts/arena_lights.txt")) << names;
	EXPECT_FALSE(Contains(names, "new_lamp.txt")) << names;
	EXPECT_EQ(std::vector<std::string>{ "Created Arena Lights." }, ChangeNotes(id));
	EXPECT_TRUE(Contains(m_Host.Log(), "box Submitted")) << m_Host.Log();
	EXPECT_EQ("http://" + m_Service.Address() + "/sharedfiles/filedetails/?id=" + idText, LastOpenedUrl());
	// The packed addon went into the upload folder under the addons root, named by the id.
	EXPECT_TRUE(fs::exists(m_Temp.Path("game/zarn_addons/bdls/" + idText + "/" + idText + ".bdl")));
	EXPECT_FALSE(fs::exists(m_Temp.Path("game/zarn_addons/arena_lights.bdl")));

	// The author changes the addon before the re-upload.
	m_Temp.Write("game/zarn_addons/arena_lights/materials/new_lamp.txt", "brighter");
	m_Host.Go("published");
	ASSERT_TRUE(m_Host.WaitFor("checkpoint reuploaded")) << m_Host.Describe();
	EXPECT_TRUE(Contains(m_Host.Log(), "form title Arena Lights\n")) << m_Host.Log(); // the form came filled
	file = Get("/api/v1/files/" + idText);
	EXPECT_STREQ("Arena Lights", file["title"].GetString());
	const uint64_t secondPack = ContentHandleNamed(file, idText + ".bdl");
	EXPECT_NE(firstPack, secondPack);
	names = PackedNames(secondPack);
	EXPECT_TRUE(Contains(names, "materials/new_lamp.txt")) << names;
	EXPECT_EQ((std::vector<std::string>{ "Brighter lamps.", "Created Arena Lights." }), ChangeNotes(id));

	// Edit-only: the title and a tag go out, no content, no note.
	m_Host.Go("reuploaded");
	ASSERT_TRUE(m_Host.WaitFor("checkpoint edited")) << m_Host.Describe();
	file = Get("/api/v1/files/" + idText);
	EXPECT_STREQ("Arena Lights Deluxe", file["title"].GetString());
	EXPECT_EQ((std::vector<std::string>{ "Custom Game", "Hearthfrost 2017" }), Strings(file["tags"]));
	EXPECT_EQ(secondPack, ContentHandleNamed(file, idText + ".bdl"));
	EXPECT_EQ(2u, ChangeNotes(id).size());
	const std::string page = Page(LastOpenedUrl());
	EXPECT_TRUE(Contains(page, "<title>Arena Lights Deluxe :: Mintyard</title>")) << page;

	// Deleted from the window, after its question.
	m_Host.Go("edited");
	ASSERT_TRUE(m_Host.WaitFor("checkpoint deleted")) << m_Host.Describe();
	EXPECT_TRUE(ListedIds().empty());
	EXPECT_TRUE(Contains(m_Host.Log(), "box Delete submission?")) << m_Host.Log();
	EXPECT_EQ(0u, Page("http://" + m_Service.Address() + "/sharedfiles/filedetails/?id=" + idText).rfind("404", 0));
	m_Host.Go("deleted");
	EXPECT_EQ(0, m_Host.Finish()) << m_Host.Describe();

	// The author's boxes were these, in this order, and nothing else.
	std::vector<std::string> boxes;
	std::istringstream log(m_Host.Log());
	for (std::string line; std::getline(log, line);)
		if (line.rfind("box ", 0) == 0)
			boxes.push_back(line.substr(4, line.find(" | ") - 4));
	EXPECT_EQ((std::vector<std::string>{ "Submitted", "Submitted", "Submitted", "Delete submission?" }), boxes)
		<< m_Host.Log();
	// Screenshots of the form in each state were taken.
	for (const char *shot : { "new", "new filled", "update", "edit-only" })
		EXPECT_TRUE(fs::exists(m_Temp.Path(std::string("road/shots/") + shot + ".png"))) << shot;
	if (const char *keep = getenv("MINTYARD_ROAD_SHOTS"))
		fs::copy(m_Temp.Path("road/shots"), keep, fs::copy_options::recursive | fs::copy_options::overwrite_existing);
}

// The signed-in author is a co-author of another account's addon: the form comes read-only with
// the lock on its preview, and a re-upload sends the content and the change note only, which the
// service takes from a co-author (it refuses a co-author's title, tags or preview outright).
TEST_F(ToolRoad, ACoAuthorReUploadsTheContentOfAnAddonThatAnotherAccountOwns)
{
	const std::string owner = std::to_string((1ull << 56) | (1ull << 52) | (1ull << 32) | 77);
	const httplib::Headers asOwner = { { "X-Brume-Account", owner }, { "X-Brume-Persona", "Owner" } };
	httplib::Client http("127.0.0.1", m_Service.Port());
	auto made = http.Post("/api/v1/files", asOwner, "{\"file_type\":0}", "application/json");
	ASSERT_TRUE(made && made->status == 200);
	rapidjson::Document answer;
	answer.Parse(made->body.c_str());
	const std::string idText = std::to_string(answer["publishedfileid"].GetUint64());
	httplib::MultipartFormDataItems items = {
		{ "meta", "{\"title\":\"Shared Lamps\",\"file_description\":\"The owner's words.\",\"visibility\":0,\"tags\":[\"Custom Game\"]}", "",
			"application/json" },
		{ "content", "the owner's pack", "shared.bdl", "application/octet-stream" },
		{ "preview", ReadAll(m_Temp.Path("road/preview.png")), "preview.png", "image/png" },
	};
	auto updated = http.Post(("/api/v1/files/" + idText + "/update").c_str(), asOwner, items);
	ASSERT_TRUE(updated && updated->status == 200) << (updated ? updated->body : "");
	const std::string me = std::to_string(Get("/api/v1/status")["account"].GetUint64());
	auto named = http.Post(("/api/v1/files/" + idText + "/contributors").c_str(), asOwner, "{\"account\":" + me + "}", "application/json");
	ASSERT_TRUE(named && named->status == 200) << (named ? named->body : "");
	const rapidjson::Document before = Get("/api/v1/files/" + idText);
	const uint64_t preview = before["hcontent_preview"].GetUint64();

	ASSERT_TRUE(StartHost("coauthor"));
	ASSERT_TRUE(m_Host.WaitFor("checkpoint reuploaded")) << m_Host.Describe();
	EXPECT_TRUE(Contains(m_Host.Log(), "form title Shared Lamps (locked)\n")) << m_Host.Log();
	EXPECT_TRUE(Contains(m_Host.Log(), "form lock shown\n")) << m_Host.Log();
	const rapidjson::Document file = Get("/api/v1/files/" + idText);
	EXPECT_STREQ("Shared Lamps", file["title"].GetString());
	EXPECT_STREQ("The owner's words.", file["file_description"].GetString());
	EXPECT_EQ(std::vector<std::string>{ "Custom Game" }, Strings(file["tags"]));
	EXPECT_EQ(preview, file["hcontent_preview"].GetUint64());
	EXPECT_EQ(0u, ContentHandleNamed(file, "shared.bdl")); // the whole folder was replaced
	const uint64_t pack = ContentHandleNamed(file, idText + ".bdl");
	ASSERT_NE(0u, pack) << "the content holds no " << idText << ".bdl";
	const std::string names = PackedNames(pack);
	EXPECT_TRUE(Contains(names, "scripts/arena_lights.txt")) << names;
	EXPECT_EQ(std::vector<std::string>{ "Co-author fix." }, ChangeNotes(std::stoull(idText)));
	m_Host.Go("reuploaded");
	EXPECT_EQ(0, m_Host.Finish()) << m_Host.Describe();
	EXPECT_TRUE(fs::exists(m_Temp.Path("road/shots/not-owned.png")));
	if (const char *keep = getenv("MINTYARD_ROAD_SHOTS"))
		fs::copy(m_Temp.Path("road/shots"), keep, fs::copy_options::recursive | fs::copy_options::overwrite_existing);
}

// In an item mode the author makes a contract in the import wizard: the zip it builds goes to the
// publish form, up to the service with the template's tags, and the wizard closes when the form
// was accepted.
TEST_F(ToolRoad, ASubmissionMadeInTheImportWizardIsPublishedFromItsZip)
{
	ASSERT_TRUE(StartHost("item", "", { "-mintyard_items" }));
	ASSERT_TRUE(m_Host.WaitFor("checkpoint published")) << m_Host.Describe();
	const std::vector<uint64_t> ids = ListedIds();
	ASSERT_EQ(1u, ids.size());
	const rapidjson::Document file = Get("/api/v1/files/" + std::to_string(ids[0]));
	ASSERT_TRUE(file.IsObject());
	EXPECT_STREQ("Road Contract", file["title"].GetString());
	EXPECT_EQ((std::vector<std::string>{ "Contract Only", "imported", "renewed" }), Strings(file["tags"]));
	// The content is the wizard's zip, with the session's manifest in it.
	uint64_t zipHandle = 0;
	std::string zipName;
	for (const auto &c : file["content"].GetArray())
	{
		const std::string name = c["name"].GetString();
		if (name.rfind("mintyard_submit_road_contract_", 0) == 0 && name.size() > 4 && name.substr(name.size() - 4) == ".zip")
		{
			zipHandle = c["handle"].GetUint64();
			zipName = name;
		}
	}
	ASSERT_NE(0u, zipHandle) << "no submission zip in the content";
	httplib::Client http("127.0.0.1", m_Service.Port());
	auto zip = http.Get(("/api/v1/ugc/" + std::to_string(zipHandle)).c_str());
	ASSERT_TRUE(zip && zip->status == 200);
	EXPECT_EQ(0u, zip->body.rfind("PK\x03\x04", 0));
	EXPECT_TRUE(Contains(zip->body, "mintyard_import_manifest.txt"));
	// The author's boxes: the contract question, the submission, and whether to keep the session.
	std::vector<std::string> boxes;
	std::istringstream log(m_Host.Log());
	for (std::string line; std::getline(log, line);)
		if (line.rfind("box ", 0) == 0)
			boxes.push_back(line.substr(4, line.find(" | ") - 4));
	EXPECT_EQ((std::vector<std::string>{ "Contract Only", "Submitted", "Save the Session?" }), boxes) << m_Host.Log();
	m_Host.Go("published");
	EXPECT_EQ(0, m_Host.Finish()) << m_Host.Describe();
	for (const char *shot : { "wizard inputs", "wizard log", "wizard submit", "item" })
		EXPECT_TRUE(fs::exists(m_Temp.Path(std::string("road/shots/") + shot + ".png"))) << shot;
	if (const char *keep = getenv("MINTYARD_ROAD_SHOTS"))
		fs::copy(m_Temp.Path("road/shots"), keep, fs::copy_options::recursive | fs::copy_options::overwrite_existing);
}

namespace
{
// The entry of a zip whose name ends with `suffix`, and the bytes it holds.
std::string EntryEndingWith(const std::map<std::string, std::string> &entries, const std::string &suffix, std::string *pName = nullptr)
{
	for (const auto &[name, data] : entries)
	{
		if (name.size() >= suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0)
		{
			if (pName)
				*pName = name;
			return data;
		}
	}
	return std::string();
}

// The share of coloured pixels the driver saw in the middle of a view it looked at ("<label>
// drawn WxH, middle N% coloured"), -1 when it did not look.
int ColouredShare(const std::string &log, const std::string &label)
{
	const size_t at = log.find("\n" + label + " drawn ");
	if (at == std::string::npos)
		return -1;
	const size_t middle = log.find("middle ", at);
	return middle == std::string::npos ? -1 : std::atoi(log.c_str() + middle + 7);
}

std::string Names(const std::map<std::string, std::string> &entries)
{
	std::string out;
	for (const auto &entry : entries)
		out += entry.first + "\n";
	return out;
}
} // namespace

// The content service goes away while the author fills the publish form: the submission fails
// with a message, nothing is listed, the tool does not crash and the wizard keeps the inputs.
TEST_F(ToolRoad, AServiceThatGoesAwayDuringTheUploadLeavesTheWizardWithTheAuthorsInputs)
{
	CopyWearableArt();
	ASSERT_TRUE(StartHost("wearable_offline", "", { "-mintyard_items" }));
	ASSERT_TRUE(m_Host.WaitFor("checkpoint form ready")) << m_Host.Describe();
	m_Service.Stop();
	m_Host.Go("form ready");
	ASSERT_TRUE(m_Host.WaitFor("checkpoint kept")) << m_Host.Describe();
	const std::string log = m_Host.Log();
	EXPECT_TRUE(Contains(log, "wizard kept briar_crown bramble_head_color.png")) << log;
	EXPECT_FALSE(Contains(log, "box Submitted")) << log;
	m_Host.Go("kept");
	EXPECT_EQ(0, m_Host.Finish()) << m_Host.Describe();
}

// The artist's whole road for a hero's wearable: New Submission, the hero and slot picked, the
// sample art typed in, imported, through the preview and the portrait, submitted and published
// from the wizard's zip; then Re-upload opens the wizard on the kept session, a changed colour
// texture is imported and goes up with a change note.
TEST_F(ToolRoad, AWearableIsImportedPublishedAndReUploadedWithAChangedTexture)
{
	CopyWearableArt();
	QImage changed(QString::fromStdString(m_Temp.Path("road/art/bramble_head_color.png")));
	ASSERT_FALSE(changed.isNull());
	changed.invertPixels();
	ASSERT_TRUE(changed.save(QString::fromStdString(m_Temp.Path("road/art/bramble_head_color_v2.png"))));
	const std::string firstColour = ReadAll(m_Temp.Path("road/art/bramble_head_color.png"));
	const std::string secondColour = ReadAll(m_Temp.Path("road/art/bramble_head_color_v2.png"));

	ASSERT_TRUE(StartHost("wearable", "", { "-mintyard_items" }));
	ASSERT_TRUE(m_Host.WaitFor("checkpoint published")) << m_Host.Describe();
	const std::vector<uint64_t> ids = ListedIds();
	ASSERT_EQ(1u, ids.size());
	const std::string idText = std::to_string(ids[0]);
	rapidjson::Document file = Get("/api/v1/files/" + idText);
	ASSERT_TRUE(file.IsObject());
	EXPECT_STREQ("Briar Crown", file["title"].GetString());
	EXPECT_GT(file["preview_file_size"].GetInt64(), 0);
	std::map<std::string, std::string> entries;
	const uint64_t firstZip = SubmissionZip(file, "briar_crown", entries);
	ASSERT_NE(0u, firstZip) << "no readable submission zip in the content";
	// The zip carries the session's manifest and the author's own files as they were given.
	EXPECT_NE("", EntryEndingWith(entries, "mintyard_import_manifest.txt")) << Names(entries);
	EXPECT_TRUE(firstColour == EntryEndingWith(entries, "/color.png")) << Names(entries);
	EXPECT_TRUE(ReadAll(m_Temp.Path("road/art/bramble_head.fbx")) == EntryEndingWith(entries, "/mesh_portrait.fbx")) << Names(entries);
	EXPECT_TRUE(ReadAll(m_Temp.Path("road/art/bramble_head_lod1.fbx")) == EntryEndingWith(entries, "/mesh_world.fbx")) << Names(entries);
	// The import compiled the wearable into the game's tree, and the wizard kept the session.
	EXPECT_TRUE(Contains(m_Host.Log(), "import log Import took")) << m_Host.Log();
	// The preview drew the model on its hero in the middle of its view.
	const size_t drawn = m_Host.Log().find("preview drawn");
	ASSERT_NE(std::string::npos, drawn) << m_Host.Log();
	EXPECT_GE(ColouredShare(m_Host.Log(), "preview"), 15) << m_Host.Log(); // the sky and the ground: none
	EXPECT_TRUE(fs::exists(m_Temp.Path("road/briar_crown.session.txt"))) << m_Host.Log();
	bool bCompiledModel = false;
	for (const auto &entry : fs::recursive_directory_iterator(m_Temp.Path("game/zarn")))
		bCompiledModel = bCompiledModel || entry.path().filename() == "briar_crown.zmdl_c";
	EXPECT_TRUE(bCompiledModel) << "no compiled briar_crown model under the game";

	m_Host.Go("published");
	ASSERT_TRUE(m_Host.WaitFor("checkpoint reuploaded")) << m_Host.Describe();
	EXPECT_TRUE(Contains(m_Host.Log(), "form title Briar Crown")) << m_Host.Log();
	// The wizard of the re-upload opened the session the first one kept.
	const std::string log = m_Host.Log();
	const std::string opened = "road/briar_crown.session.txt";
	const size_t first = log.find(opened);
	EXPECT_TRUE(first != std::string::npos && log.find(opened, first + 1) != std::string::npos) << log;
	file = Get("/api/v1/files/" + idText);
	EXPECT_STREQ("Briar Crown", file["title"].GetString());
	const uint64_t secondZip = SubmissionZip(file, "briar_crown", entries);
	ASSERT_NE(0u, secondZip) << "no readable submission zip after the re-upload";
	EXPECT_NE(firstZip, secondZip);
	EXPECT_TRUE(secondColour == EntryEndingWith(entries, "/color.png")) << Names(entries);
	const std::vector<std::string> notes = ChangeNotes(ids[0]);
	ASSERT_EQ(2u, notes.size());
	EXPECT_EQ("Brighter thorns.", notes[0]);
	m_Host.Go("reuploaded");
	EXPECT_EQ(0, m_Host.Finish()) << m_Host.Describe();
	for (const char *shot : { "wearable inputs", "wearable log", "wearable submit", "wearable form", "wearable update form" })
		EXPECT_TRUE(fs::exists(m_Temp.Path(std::string("road/shots/") + shot + ".png"))) << shot;
	if (const char *keep = getenv("MINTYARD_ROAD_SHOTS"))
		fs::copy(m_Temp.Path("road/shots"), keep, fs::copy_options::recursive | fs::copy_options::overwrite_existing);
}

// The wizard opened on the sample courier by -item_file: imported with the real compiler, the
// courier seen in the preview and in its portrait (seeded from the game's portrait, then framed),
// published from the zip, and the item's icons drawn into the game by the portrait tool.
TEST_F(ToolRoad, ACourierOpenedFromItsSessionIsPreviewedFramedAndPublishedWithItsIcons)
{
	fs::copy(MINTYARD_SOURCE_DIR "/sample/content/zarn", m_Temp.Path("content/zarn"), fs::copy_options::recursive | fs::copy_options::overwrite_existing);
	for (const char *folder : { "sessions", "art" })
		fs::copy(MINTYARD_SOURCE_DIR "/sample/" + std::string(folder), m_Temp.Path(std::string("road/") + folder), fs::copy_options::recursive);
	ASSERT_TRUE(StartHost("courier", "", { "-mintyard_items", "-item_file", m_Temp.Path("road/sessions/courier.session.txt") }));
	ASSERT_TRUE(m_Host.WaitFor("checkpoint published")) << m_Host.Describe();
	const std::string log = m_Host.Log();
	EXPECT_GE(ColouredShare(log, "preview"), 10) << log;
	EXPECT_GE(ColouredShare(log, "portrait"), 0) << log;
	EXPECT_GE(ColouredShare(log, "framed portrait"), 10) << log;

	const std::vector<uint64_t> ids = ListedIds();
	ASSERT_EQ(1u, ids.size());
	const rapidjson::Document file = Get("/api/v1/files/" + std::to_string(ids[0]));
	ASSERT_TRUE(file.IsObject());
	EXPECT_STREQ("Sample Courier", file["title"].GetString());
	std::map<std::string, std::string> entries;
	ASSERT_NE(0u, SubmissionZip(file, "sample_courier", entries));
	EXPECT_NE("", EntryEndingWith(entries, "mintyard_import_manifest.txt")) << Names(entries);
	EXPECT_TRUE(ReadAll(m_Temp.Path("road/art/courier/courier_lod0.fbx")) == EntryEndingWith(entries, "/mesh_lod0.fbx") ||
		ReadAll(m_Temp.Path("road/art/courier/courier_lod0.fbx")) == EntryEndingWith(entries, "lod0.fbx")) << Names(entries);
	// The portrait tool drew the courier's icons into the game.
	int nIcons = 0;
	for (const auto &entry : fs::recursive_directory_iterator(m_Temp.Path("game/zarn/resource/flash3/images/econ")))
		nIcons += entry.path().extension() == ".png" && entry.path().string().find("sample_courier") != std::string::npos;
	EXPECT_GE(nIcons, 2) << "no icons of the courier under the game's econ images";
	m_Host.Go("published");
	EXPECT_EQ(0, m_Host.Finish()) << m_Host.Describe();
	if (const char *keep = getenv("MINTYARD_ROAD_SHOTS"))
		fs::copy(m_Temp.Path("road/shots"), keep, fs::copy_options::recursive | fs::copy_options::overwrite_existing);
}
