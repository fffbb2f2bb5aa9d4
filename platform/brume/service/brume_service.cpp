// brume_service: the local Mintyard content service. HTTP/JSON on 127.0.0.1 only; the protocol is
// described in README.service.md beside this file.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

#include <httplib.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "brume/query/brumequery.h"
#include "brume_store.h"
#include "core/pathutils.h"
#include "core/strtools.h"

namespace
{
using CJsonWriter = rapidjson::Writer<rapidjson::StringBuffer>;

struct ServiceOptions_t
{
	std::string m_sDataDir;
	int m_nPort = 27080;
	uint32 m_nAccount = 1;
	std::string m_sPersona = "Author";
	int m_nUniverse = 1;
	uint32 m_nAppID = 3680;
	int m_nDelayMs = 0;
	double m_flFailureRate = 0.0;
	int m_nResultCode = 2;
};

// The 64-bit id of an individual account of the universe: account number in the low 32 bits,
// instance 1, type 1, universe in the top 8 bits.
uint64 AccountID(uint32 account, int universe)
{
	return ((uint64)(universe & 0xff) << 56) | (1ull << 52) | (1ull << 32) | account;
}

// An account's 64-bit id, as the service's answers show it: an individual account (type 1,
// instance 1) of a universe from 1 to 4. Gives its account number and universe.
bool ParseAccountID(const char *text, uint32 &account, int &universe)
{
	char *end = nullptr;
	errno = 0;
	const unsigned long long id = strtoull(text, &end, 10);
	if (!end || *end || errno || text[0] == '-')
		return false;
	const int idUniverse = (int)(id >> 56);
	if (idUniverse < 1 || idUniverse > 4 || ((id >> 52) & 0xf) != 1 || ((id >> 32) & 0xfffff) != 1 || (uint32)id == 0)
		return false;
	account = (uint32)id;
	universe = idUniverse;
	return true;
}

uint32 Now()
{
	return (uint32)time(nullptr);
}

std::string HtmlEscape(const std::string &text)
{
	std::string out;
	out.reserve(text.size());
	for (char c : text)
	{
		switch (c)
		{
		case '&': out += "&amp;"; break;
		case '<': out += "&lt;"; break;
		case '>': out += "&gt;"; break;
		case '"': out += "&quot;"; break;
		case '\'': out += "&#39;"; break;
		default: out += c;
		}
	}
	return out;
}

std::string FormatTime(uint32 t)
{
	char text[64];
	const time_t value = t;
	struct tm parts;
	gmtime_r(&value, &parts);
	strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S UTC", &parts);
	return text;
}

const char *VisibilityName(int v)
{
	switch (v)
	{
	case 0: return "Public";
	case 1: return "Friends only";
	case 2: return "Hidden";
	default: return "Unknown";
	}
}

const char *ContentTypeOf(const std::string &name)
{
	const std::string ext = name.substr(name.find_last_of('.') + 1);
	if (ext == "png")
		return "image/png";
	if (ext == "jpg" || ext == "jpeg")
		return "image/jpeg";
	if (ext == "gif")
		return "image/gif";
	if (ext == "txt")
		return "text/plain; charset=utf-8";
	return "application/octet-stream";
}

bool ParseU64(const std::string &text, uint64 &out)
{
	if (text.empty() || text.size() > 20)
		return false;
	char *end = nullptr;
	errno = 0;
	out = strtoull(text.c_str(), &end, 10);
	return errno == 0 && end && *end == 0 && text[0] != '-';
}

class CBrumeService
{
public:
	explicit CBrumeService(const ServiceOptions_t &options) : m_Options(options), m_Random(std::random_device()()) {}

	bool Start(std::string &error)
	{
		if (!m_Store.Open(m_Options.m_sDataDir, error))
			return false;
		m_ulDefaultAccount = AccountID(m_Options.m_nAccount, m_Options.m_nUniverse);
		m_Store.EnsureAccount(m_ulDefaultAccount, m_Options.m_sPersona);
		Routes();
		return true;
	}

	int Bind()
	{
		if (m_Options.m_nPort == 0)
			return m_Server.bind_to_any_port("127.0.0.1");
		return m_Server.bind_to_port("127.0.0.1", m_Options.m_nPort) ? m_Options.m_nPort : -1;
	}
	bool Listen() { return m_Server.listen_after_bind(); }
	void Stop() { m_Server.stop(); }

private:
	static void SendJson(httplib::Response &res, const rapidjson::StringBuffer &buffer, int status = 200)
	{
		res.status = status;
		res.set_content(buffer.GetString(), buffer.GetSize(), "application/json");
	}

	// A page of file ids, as the listing and the search answer it.
	static void SendIdPage(httplib::Response &res, uint32 start, uint32 total, const std::vector<uint64> &ids)
	{
		rapidjson::StringBuffer buffer;
		CJsonWriter w(buffer);
		w.StartObject();
		w.Key(BRUME_JSON_RESULT); w.Int(BRUME_RESULT_OK);
		w.Key(BRUME_JSON_START); w.Uint(start);
		w.Key(BRUME_JSON_TOTAL); w.Uint(total);
		w.Key(BRUME_JSON_IDS);
		w.StartArray();
		for (uint64 id : ids)
			w.Uint64(id);
		w.EndArray();
		w.EndObject();
		SendJson(res, buffer);
	}

	static void SendResult(httplib::Response &res, int result, int status, uint64 id = 0, const char *message = nullptr)
	{
		rapidjson::StringBuffer buffer;
		CJsonWriter w(buffer);
		w.StartObject();
		w.Key(BRUME_JSON_RESULT);
		w.Int(result);
		if (id)
		{
			w.Key(BRUME_JSON_PUBLISHEDFILEID);
			w.Uint64(id);
		}
		if (message)
		{
			w.Key(BRUME_JSON_MESSAGE);
			w.String(message);
		}
		w.EndObject();
		SendJson(res, buffer, status);
	}

	static int StatusOf(int result)
	{
		switch (result)
		{
		case BRUME_RESULT_OK: return 200;
		case BRUME_RESULT_FILE_NOT_FOUND: return 404;
		case BRUME_RESULT_ACCESS_DENIED: return 403;
		case BRUME_RESULT_INVALID_PARAM: return 400;
		default: return 500;
		}
	}

	// The calling account: the "X-Brume-Account" header (decimal 64-bit id), else the service's own
	// account. An unknown account is created, named by "X-Brume-Persona" when given.
	uint64 Caller(const httplib::Request &req)
	{
		uint64 id = 0;
		if (!req.has_header(BRUME_HEADER_ACCOUNT) || !ParseU64(req.get_header_value(BRUME_HEADER_ACCOUNT), id) || id == 0)
			return m_ulDefaultAccount;
		BrumeAccount_t account;
		if (!m_Store.GetAccount(id, account))
		{
			std::string persona = req.get_header_value(BRUME_HEADER_PERSONA);
			if (persona.empty())
				persona = CBrumeStore::DefaultPersona(id);
			m_Store.EnsureAccount(id, persona);
		}
		return id;
	}

	bool ParseBody(const httplib::Request &req, httplib::Response &res, rapidjson::Document &doc)
	{
		doc.Parse(req.body.c_str(), req.body.size());
		if (doc.HasParseError() || !doc.IsObject())
		{
			SendResult(res, BRUME_RESULT_INVALID_PARAM, 400, 0, "the body is no JSON object");
			return false;
		}
		return true;
	}

	// A change to one file with a JSON body: the id and the body are checked first; the change
	// gives the result to answer, or -1 when it has answered itself.
	using FileChange_t = std::function<int(uint64, const rapidjson::Document &, const httplib::Request &, httplib::Response &)>;
	void PostFileChange(const char *pattern, FileChange_t change)
	{
		m_Server.Post(pattern, [this, change](const httplib::Request &req, httplib::Response &res) {
			uint64 id;
			rapidjson::Document body;
			if (!FileIdOf(req, res, id) || !ParseBody(req, res, body))
				return;
			const int result = change(id, body, req, res);
			if (result >= 0)
				SendResult(res, result, StatusOf(result), id);
		});
	}

	bool FileIdOf(const httplib::Request &req, httplib::Response &res, uint64 &id)
	{
		if (!ParseU64(req.matches[1].str(), id) || id == 0)
		{
			SendResult(res, BRUME_RESULT_INVALID_PARAM, 400, 0, "bad file id");
			return false;
		}
		return true;
	}

	// Fault injection: every API request but the status waits, and a share of them fails.
	httplib::Server::HandlerResponse Inject(const httplib::Request &req, httplib::Response &res)
	{
		if (req.path.rfind("/api/v1/", 0) != 0 || req.path == BRUME_ROUTE_STATUS)
			return httplib::Server::HandlerResponse::Unhandled;
		if (m_Options.m_nDelayMs > 0)
			std::this_thread::sleep_for(std::chrono::milliseconds(m_Options.m_nDelayMs));
		if (m_Options.m_flFailureRate > 0.0)
		{
			bool bFail;
			{
				std::lock_guard<std::mutex> lock(m_RandomMutex);
				bFail = std::uniform_real_distribution<double>(0.0, 1.0)(m_Random) < m_Options.m_flFailureRate;
			}
			if (bFail)
			{
				SendResult(res, m_Options.m_nResultCode, 503, 0, "injected failure");
				return httplib::Server::HandlerResponse::Handled;
			}
		}
		return httplib::Server::HandlerResponse::Unhandled;
	}

	void WriteFile(CJsonWriter &w, const BrumeFileRecord_t &f)
	{
		BrumeAccount_t creator;
		m_Store.GetAccount(f.m_ulCreator, creator);
		w.StartObject();
		w.Key(BRUME_JSON_RESULT); w.Int(BRUME_RESULT_OK);
		w.Key(BRUME_JSON_PUBLISHEDFILEID); w.Uint64(f.m_nPublishedFileId);
		w.Key(BRUME_JSON_CREATOR); w.Uint64(f.m_ulCreator);
		w.Key(BRUME_JSON_CREATOR_PERSONA); w.String(creator.m_sPersona.c_str());
		w.Key(BRUME_JSON_APP_ID); w.Uint(f.m_nAppID);
		w.Key(BRUME_JSON_TITLE); w.String(f.m_sTitle.c_str(), (rapidjson::SizeType)f.m_sTitle.size());
		w.Key(BRUME_JSON_FILE_DESCRIPTION); w.String(f.m_sDescription.c_str(), (rapidjson::SizeType)f.m_sDescription.size());
		w.Key(BRUME_JSON_VISIBILITY); w.Int(f.m_eVisibility);
		w.Key(BRUME_JSON_FILE_TYPE); w.Int(f.m_eFileType);
		w.Key(BRUME_JSON_TIME_CREATED); w.Uint(f.m_rtimeCreated);
		w.Key(BRUME_JSON_TIME_UPDATED); w.Uint(f.m_rtimeUpdated);
		w.Key(BRUME_JSON_HCONTENT_FILE); w.Uint64(f.m_hFile);
		w.Key(BRUME_JSON_FILENAME); w.String(f.m_sFileName.c_str());
		w.Key(BRUME_JSON_FILE_SIZE); w.Int64(f.m_nFileSize);
		w.Key(BRUME_JSON_HCONTENT_PREVIEW); w.Uint64(f.m_hPreviewFile);
		w.Key(BRUME_JSON_PREVIEW_FILE_SIZE); w.Int64(f.m_nPreviewFileSize);
		const std::string previewUrl = f.m_hPreviewFile ? std::string(BRUME_ROUTE_UGC) + "/" + std::to_string(f.m_hPreviewFile) : std::string();
		w.Key(BRUME_JSON_PREVIEW_URL); w.String(previewUrl.c_str());
		w.Key(BRUME_JSON_BANNED); w.Bool(f.m_bBanned);
		w.Key(BRUME_JSON_MINTYARD_ACCEPTED); w.Bool(f.m_bAccepted);
		w.Key(BRUME_JSON_TAGS);
		w.StartArray();
		for (const std::string &t : f.m_vecTags)
			w.String(t.c_str(), (rapidjson::SizeType)t.size());
		w.EndArray();
		w.Key(BRUME_JSON_KVTAGS);
		w.StartArray();
		for (const auto &[k, v] : f.m_vecKeyValueTags)
		{
			w.StartObject();
			w.Key(BRUME_JSON_KEY); w.String(k.c_str());
			w.Key(BRUME_JSON_VALUE); w.String(v.c_str());
			w.EndObject();
		}
		w.EndArray();
		w.Key(BRUME_JSON_CHILDREN);
		w.StartArray();
		for (uint64 c : f.m_vecChildren)
			w.Uint64(c);
		w.EndArray();
		w.Key(BRUME_JSON_CONTRIBUTORS);
		w.StartArray();
		for (uint64 c : f.m_vecContributors)
			w.Uint64(c);
		w.EndArray();
		w.Key(BRUME_JSON_VOTE_DATA);
		w.StartObject();
		const uint32 votes = f.m_nVotesUp + f.m_nVotesDown;
		w.Key(BRUME_JSON_SCORE); w.Double(votes ? (double)f.m_nVotesUp / votes : 0.0);
		w.Key(BRUME_JSON_VOTES_UP); w.Uint(f.m_nVotesUp);
		w.Key(BRUME_JSON_VOTES_DOWN); w.Uint(f.m_nVotesDown);
		w.EndObject();
		w.Key(BRUME_JSON_CONTENT);
		w.StartArray();
		for (const BrumeBlob_t &b : f.m_vecContent)
		{
			w.StartObject();
			w.Key(BRUME_JSON_NAME); w.String(b.m_sName.c_str());
			w.Key(BRUME_JSON_HANDLE); w.Uint64(b.m_hHandle);
			w.Key(BRUME_JSON_SIZE); w.Int64(b.m_nSize);
			w.EndObject();
		}
		w.EndArray();
		w.EndObject();
	}

	static bool ReadTags(const rapidjson::Value &v, std::vector<std::string> &out)
	{
		if (!v.IsArray())
			return false;
		for (const auto &t : v.GetArray())
		{
			if (!t.IsString())
				return false;
			out.emplace_back(t.GetString(), t.GetStringLength());
		}
		return true;
	}

	// A file of an update as it arrives: written straight to the blob folder under a temporary name
	// and flushed at the end, so that no upload is ever held whole in memory. Whatever the store did
	// not take over is removed when this goes.
	class CIncomingFile
	{
	public:
		explicit CIncomingFile(std::string path) : m_sPath(std::move(path))
		{
			m_nFd = open(m_sPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
		}
		~CIncomingFile()
		{
			if (m_nFd >= 0)
				close(m_nFd);
			unlink(m_sPath.c_str());
		}
		bool Write(const char *data, size_t size)
		{
			while (m_nFd >= 0 && size > 0)
			{
				const ssize_t wrote = write(m_nFd, data, size);
				if (wrote < 0 && errno == EINTR)
					continue;
				if (wrote <= 0)
					return false;
				data += wrote, size -= (size_t)wrote, m_nSize += wrote;
			}
			return m_nFd >= 0;
		}
		bool Finish()
		{
			const bool ok = m_nFd >= 0 && fsync(m_nFd) == 0;
			const bool closed = m_nFd >= 0 && close(m_nFd) == 0;
			m_nFd = -1;
			return ok && closed;
		}
		const std::string &Path() const { return m_sPath; }
		int64 Size() const { return m_nSize; }

	private:
		std::string m_sPath;
		int m_nFd = -1;
		int64 m_nSize = 0;
	};

	void Update(const httplib::Request &req, httplib::Response &res, const httplib::ContentReader &reader)
	{
		uint64 id;
		if (!FileIdOf(req, res, id))
			return;
		const uint64 caller = Caller(req);
		BrumeFileUpdate_t update;
		update.m_rtimeNow = Now();

		// The body: the "meta" part (or a plain JSON body), then any "content" parts (each a file of
		// the new content folder, named by its path inside it) and one "preview" part.
		static const size_t kMaxMeta = 1 << 20;
		std::string metaText, problem;
		std::vector<std::unique_ptr<CIncomingFile>> files;
		std::vector<int> blobOf; // beside `files`: the index in the new content, or -1 for the preview
		bool bMetaPart = false;
		CIncomingFile *current = nullptr;
		auto appendMeta = [&](const char *data, size_t size) {
			if (metaText.size() + size > kMaxMeta)
			{
				problem = "the meta part is too long";
				return false;
			}
			metaText.append(data, size);
			return true;
		};
		bool bRead = true;
		if (req.is_multipart_form_data())
		{
			bRead = reader(
				[&](const httplib::MultipartFormData &part) {
					bMetaPart = part.name == BRUME_PART_META;
					current = nullptr;
					if (part.name != BRUME_PART_CONTENT && part.name != BRUME_PART_PREVIEW)
						return true;
					const bool bContent = part.name == BRUME_PART_CONTENT;
					// A content file keeps its path inside the item's folder, a preview only its name.
					const std::string given = bContent ? part.filename : part.filename.substr(part.filename.find_last_of("/\\") + 1);
					CUtlString name;
					if (!V_IsSafeRelativePath(given, &name))
					{
						problem = bContent ? "bad content file name" : "bad preview file name";
						return false;
					}
					files.push_back(std::make_unique<CIncomingFile>(m_Store.IncomingPath()));
					current = files.back().get();
					BrumeIncomingBlob_t *blob = bContent ? &update.m_vecContent.emplace_back() : &update.m_Preview;
					if (bContent)
						update.m_bSetContent = true;
					else
						update.m_bSetPreview = true;
					blob->m_sName = name;
					blob->m_sPath = current->Path();
					blobOf.push_back(bContent ? (int)update.m_vecContent.size() - 1 : -1);
					return true;
				},
				[&](const char *data, size_t size) {
					if (current && !current->Write(data, size))
					{
						problem = "cannot store the upload";
						return false;
					}
					return !bMetaPart || appendMeta(data, size);
				});
		}
		else
		{
			bRead = reader(appendMeta);
		}
		if (!bRead || !problem.empty())
		{
			const bool bOurs = problem == "cannot store the upload";
			return SendResult(res, bOurs ? BRUME_RESULT_FAIL : BRUME_RESULT_INVALID_PARAM, bOurs ? 500 : 400, id,
				problem.empty() ? "the body ended early" : problem.c_str());
		}
		for (size_t i = 0; i < files.size(); ++i)
		{
			if (!files[i]->Finish())
				return SendResult(res, BRUME_RESULT_FAIL, 500, id, "cannot store the upload");
			(blobOf[i] < 0 ? update.m_Preview : update.m_vecContent[blobOf[i]]).m_nSize = files[i]->Size();
		}

		rapidjson::Document meta;
		meta.Parse(metaText.c_str(), metaText.size());
		if (meta.HasParseError() || !meta.IsObject())
			return SendResult(res, BRUME_RESULT_INVALID_PARAM, 400, id, "the meta part is no JSON object");
		if (meta.HasMember(BRUME_JSON_TITLE) && meta[BRUME_JSON_TITLE].IsString())
			update.m_bSetTitle = true, update.m_sTitle = meta[BRUME_JSON_TITLE].GetString();
		if (meta.HasMember(BRUME_JSON_FILE_DESCRIPTION) && meta[BRUME_JSON_FILE_DESCRIPTION].IsString())
			update.m_bSetDescription = true, update.m_sDescription = meta[BRUME_JSON_FILE_DESCRIPTION].GetString();
		if (meta.HasMember(BRUME_JSON_VISIBILITY))
		{
			if (!meta[BRUME_JSON_VISIBILITY].IsInt() || meta[BRUME_JSON_VISIBILITY].GetInt() < 0 || meta[BRUME_JSON_VISIBILITY].GetInt() > 3)
				return SendResult(res, BRUME_RESULT_INVALID_PARAM, 400, id, "bad visibility");
			update.m_bSetVisibility = true, update.m_eVisibility = meta[BRUME_JSON_VISIBILITY].GetInt();
		}
		if (meta.HasMember(BRUME_JSON_TAGS))
		{
			if (!ReadTags(meta[BRUME_JSON_TAGS], update.m_vecTags))
				return SendResult(res, BRUME_RESULT_INVALID_PARAM, 400, id, "bad tags");
			update.m_bSetTags = true;
		}
		if (meta.HasMember(BRUME_JSON_KVTAGS))
		{
			const rapidjson::Value &kv = meta[BRUME_JSON_KVTAGS];
			if (!kv.IsArray())
				return SendResult(res, BRUME_RESULT_INVALID_PARAM, 400, id, "bad kvtags");
			for (const auto &pair : kv.GetArray())
			{
				if (!pair.IsObject() || !pair.HasMember(BRUME_JSON_KEY) || !pair[BRUME_JSON_KEY].IsString() || !pair.HasMember(BRUME_JSON_VALUE) || !pair[BRUME_JSON_VALUE].IsString())
					return SendResult(res, BRUME_RESULT_INVALID_PARAM, 400, id, "bad kvtags");
				update.m_vecKeyValueTags.emplace_back(pair[BRUME_JSON_KEY].GetString(), pair[BRUME_JSON_VALUE].GetString());
			}
			update.m_bSetKeyValueTags = true;
		}
		if (meta.HasMember(BRUME_JSON_CHANGE_NOTE) && meta[BRUME_JSON_CHANGE_NOTE].IsString())
			update.m_sChangeNote = meta[BRUME_JSON_CHANGE_NOTE].GetString();
		if (meta.HasMember(BRUME_JSON_SET_CONTENT) && meta[BRUME_JSON_SET_CONTENT].IsBool())
			update.m_bSetContent = update.m_bSetContent || meta[BRUME_JSON_SET_CONTENT].GetBool();
		std::string error;
		const int result = m_Store.UpdateFile(id, caller, update, error);
		if (result != BRUME_RESULT_OK && !error.empty())
			fprintf(stderr, "brume_service: update of %llu failed: %s\n", (unsigned long long)id, error.c_str());
		SendResult(res, result, StatusOf(result), id);
	}

	void Page(const httplib::Request &req, httplib::Response &res)
	{
		uint64 id = 0;
		BrumeFileRecord_t f;
		if (!req.has_param("id") || !ParseU64(req.get_param_value("id"), id) || !m_Store.GetFile(id, f))
		{
			res.status = 404;
			res.set_content("<!DOCTYPE html><html><head><meta charset=\"utf-8\"><title>Not found</title></head>"
							"<body><h1>No such file</h1><p>The item you asked for does not exist or was deleted.</p></body></html>",
				"text/html; charset=utf-8");
			return;
		}
		BrumeAccount_t author;
		m_Store.GetAccount(f.m_ulCreator, author);
		std::vector<BrumeChangeNote_t> notes;
		m_Store.GetChangeNotes(id, notes);
		std::string tags;
		for (const std::string &t : f.m_vecTags)
			tags += "<li class=\"tag\">" + HtmlEscape(t) + "</li>";
		std::string html = "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>" + HtmlEscape(f.m_sTitle) +
						   " :: Mintyard</title><style>body{font-family:sans-serif;background:#1b2129;color:#d6dde5;margin:2em}"
						   "img.preview{max-width:512px;border:1px solid #445}ul.tags{list-style:none;padding:0}"
						   "li.tag{display:inline-block;background:#2d3a4a;margin:2px;padding:2px 8px;border-radius:3px}"
						   "td{padding:2px 12px 2px 0}.note{margin:0.5em 0;padding:0.5em;background:#232c37}</style></head><body>\n";
		html += "<h1 id=\"title\">" + HtmlEscape(f.m_sTitle) + "</h1>\n";
		if (f.m_hPreviewFile)
			html += "<img class=\"preview\" id=\"preview\" src=\"/api/v1/ugc/" + std::to_string(f.m_hPreviewFile) + "\" alt=\"Preview\">\n";
		html += "<table><tr><td>Author</td><td id=\"author\">" + HtmlEscape(author.m_sPersona) + "</td></tr>";
		if (!f.m_vecContributors.empty())
		{
			std::string names;
			for (uint64 account : f.m_vecContributors)
			{
				BrumeAccount_t coauthor;
				m_Store.GetAccount(account, coauthor);
				names += (names.empty() ? "" : ", ") + HtmlEscape(coauthor.m_sPersona);
			}
			html += "<tr><td>Co-authors</td><td id=\"coauthors\">" + names + "</td></tr>";
		}
		html += "<tr><td>Visibility</td><td id=\"visibility\">" + std::string(VisibilityName(f.m_eVisibility)) + "</td></tr>";
		html += "<tr><td>Updated</td><td id=\"updated\">" + FormatTime(f.m_rtimeUpdated) + "</td></tr>";
		html += "<tr><td>Created</td><td>" + FormatTime(f.m_rtimeCreated) + "</td></tr>";
		html += "<tr><td>Votes</td><td>" + std::to_string(f.m_nVotesUp) + " up, " + std::to_string(f.m_nVotesDown) + " down</td></tr></table>\n";
		html += "<ul class=\"tags\" id=\"tags\">" + tags + "</ul>\n";
		html += "<div id=\"description\" style=\"white-space:pre-wrap\">" + HtmlEscape(f.m_sDescription) + "</div>\n";
		html += "<h2>Change notes</h2><div id=\"changes\">\n";
		for (const BrumeChangeNote_t &n : notes)
			html += "<div class=\"note\"><div class=\"when\">" + FormatTime(n.m_rtime) + "</div><div class=\"text\">" + HtmlEscape(n.m_sNote) + "</div></div>\n";
		html += "</div></body></html>\n";
		res.set_content(html, "text/html; charset=utf-8");
	}

	void Routes()
	{
		// Uploads go to disk as they arrive; the disk is their limit.
		m_Server.set_payload_max_length((size_t)1 << 40);
		m_Server.set_tcp_nodelay(true); // small answers must not wait for the peer's delayed acknowledgement
		m_Server.set_pre_routing_handler([this](const httplib::Request &req, httplib::Response &res) { return Inject(req, res); });

		m_Server.Get(BRUME_ROUTE_STATUS, [this](const httplib::Request &req, httplib::Response &res) {
			const uint64 caller = Caller(req);
			BrumeAccount_t account;
			m_Store.GetAccount(caller, account);
			rapidjson::StringBuffer buffer;
			CJsonWriter w(buffer);
			w.StartObject();
			w.Key(BRUME_JSON_SERVICE); w.String(BRUME_SERVICE_NAME);
			w.Key(BRUME_JSON_APPID); w.Uint(m_Options.m_nAppID);
			w.Key(BRUME_JSON_UNIVERSE); w.Int(m_Options.m_nUniverse);
			w.Key(BRUME_JSON_ACCOUNT); w.Uint64(caller);
			w.Key(BRUME_JSON_PERSONA); w.String(account.m_sPersona.c_str());
			w.EndObject();
			SendJson(res, buffer);
		});

		m_Server.Get(R"(/api/v1/accounts/(\d+))", [this](const httplib::Request &req, httplib::Response &res) {
			uint64 id;
			BrumeAccount_t account;
			if (!FileIdOf(req, res, id))
				return;
			if (!m_Store.GetAccount(id, account))
				return SendResult(res, BRUME_RESULT_FILE_NOT_FOUND, 404);
			rapidjson::StringBuffer buffer;
			CJsonWriter w(buffer);
			w.StartObject();
			w.Key(BRUME_JSON_RESULT); w.Int(BRUME_RESULT_OK);
			w.Key(BRUME_JSON_ID); w.Uint64(id);
			w.Key(BRUME_JSON_PERSONA); w.String(account.m_sPersona.c_str());
			w.EndObject();
			SendJson(res, buffer);
		});

		m_Server.Get(BRUME_ROUTE_FILES, [this](const httplib::Request &req, httplib::Response &res) {
			uint64 creator = Caller(req), start = 0, count = 50;
			if ((req.has_param(BRUME_PARAM_CREATOR) && !ParseU64(req.get_param_value(BRUME_PARAM_CREATOR), creator)) ||
				(req.has_param(BRUME_PARAM_START) && !ParseU64(req.get_param_value(BRUME_PARAM_START), start)) ||
				(req.has_param(BRUME_PARAM_COUNT) && !ParseU64(req.get_param_value(BRUME_PARAM_COUNT), count)) || start > 0xffffffffu)
				return SendResult(res, BRUME_RESULT_INVALID_PARAM, 400, 0, "bad creator, start or count");
			// "shared=1" adds the files that list the creator among their contributors.
			const std::string shared = req.get_param_value(BRUME_PARAM_SHARED);
			if (!shared.empty() && shared != "0" && shared != "1")
				return SendResult(res, BRUME_RESULT_INVALID_PARAM, 400, 0, "bad shared (0 or 1)");
			count = std::min<uint64>(count, 50);
			std::vector<std::string> required, excluded;
			for (size_t i = 0, n = req.get_param_value_count(BRUME_PARAM_REQUIRED); i < n; ++i)
				required.push_back(req.get_param_value(BRUME_PARAM_REQUIRED, i));
			for (size_t i = 0, n = req.get_param_value_count(BRUME_PARAM_EXCLUDED); i < n; ++i)
				excluded.push_back(req.get_param_value(BRUME_PARAM_EXCLUDED, i));
			std::vector<uint64> ids;
			uint32 total = 0;
			if (!m_Store.ListFiles(creator, shared == "1", (uint32)start, (uint32)count, required, excluded, ids, total))
				return SendResult(res, BRUME_RESULT_FAIL, 500);
			SendIdPage(res, (uint32)start, total, ids);
		});

		// The search of every file the caller may see: "search_text" and the filter queries, given
		// as "solr_filter_queries[0]", "solr_filter_queries[1]", ... or as a repeated
		// "solr_filter_queries". Answers a page of ids as the listing does.
		m_Server.Get("/api/v1/files/query", [this](const httplib::Request &req, httplib::Response &res) {
			uint64 start = 0, count = 50;
			if ((req.has_param(BRUME_PARAM_START) && !ParseU64(req.get_param_value(BRUME_PARAM_START), start)) ||
				(req.has_param(BRUME_PARAM_COUNT) && !ParseU64(req.get_param_value(BRUME_PARAM_COUNT), count)) || start > 0xffffffffu)
				return SendResult(res, BRUME_RESULT_INVALID_PARAM, 400, 0, "bad start or count");
			count = std::min<uint64>(count, 50);
			CBrumeSearch search;
			search.SetSearchText(req.get_param_value("search_text"));
			std::vector<std::string> queries;
			for (size_t i = 0, n = req.get_param_value_count("solr_filter_queries"); i < n; ++i)
				queries.push_back(req.get_param_value("solr_filter_queries", i));
			for (int i = 0; req.has_param(V_Format("solr_filter_queries[%d]", i).c_str()); ++i)
				queries.push_back(req.get_param_value(V_Format("solr_filter_queries[%d]", i).c_str()));
			for (size_t i = 0; i < queries.size(); ++i)
			{
				std::string error;
				if (!search.AddFilterQuery(queries[i], error))
					return SendResult(res, BRUME_RESULT_INVALID_PARAM, 400, 0,
						V_Format("filter query %zu: %s", i, error.c_str()).c_str());
			}
			std::vector<std::pair<uint64, BrumeQueryRecord_t>> visible;
			if (!m_Store.ListVisibleSearchRecords(Caller(req), visible))
				return SendResult(res, BRUME_RESULT_FAIL, 500);
			std::vector<uint64> ids;
			uint32 total = 0;
			for (const auto &[id, record] : visible)
			{
				if (!search.Matches(record))
					continue;
				if (total >= start && ids.size() < count)
					ids.push_back(id);
				++total;
			}
			SendIdPage(res, (uint32)start, total, ids);
		});

		m_Server.Post(BRUME_ROUTE_FILES, [this](const httplib::Request &req, httplib::Response &res) {
			rapidjson::Document body;
			if (!ParseBody(req, res, body))
				return;
			const uint32 appId = body.HasMember(BRUME_JSON_APP_ID) && body[BRUME_JSON_APP_ID].IsUint() ? body[BRUME_JSON_APP_ID].GetUint() : m_Options.m_nAppID;
			const int fileType = body.HasMember(BRUME_JSON_FILE_TYPE) && body[BRUME_JSON_FILE_TYPE].IsInt() ? body[BRUME_JSON_FILE_TYPE].GetInt() : 0;
			const uint64 id = m_Store.CreateFile(Caller(req), appId, fileType, Now());
			if (!id)
				return SendResult(res, BRUME_RESULT_FAIL, 500);
			SendResult(res, BRUME_RESULT_OK, 200, id);
		});

		m_Server.Get(R"(/api/v1/files/(\d+))", [this](const httplib::Request &req, httplib::Response &res) {
			uint64 id;
			BrumeFileRecord_t f;
			if (!FileIdOf(req, res, id))
				return;
			if (!m_Store.GetFile(id, f))
				return SendResult(res, BRUME_RESULT_FILE_NOT_FOUND, 404, id);
			rapidjson::StringBuffer buffer;
			CJsonWriter w(buffer);
			WriteFile(w, f);
			SendJson(res, buffer);
		});

		m_Server.Post(R"(/api/v1/files/(\d+)/update)", [this](const httplib::Request &req, httplib::Response &res, const httplib::ContentReader &reader) {
			Update(req, res, reader);
		});

		m_Server.Delete(R"(/api/v1/files/(\d+))", [this](const httplib::Request &req, httplib::Response &res) {
			uint64 id;
			if (!FileIdOf(req, res, id))
				return;
			const int result = m_Store.DeleteFile(id, Caller(req));
			SendResult(res, result, StatusOf(result), id);
		});

		m_Server.Get(R"(/api/v1/files/(\d+)/changes)", [this](const httplib::Request &req, httplib::Response &res) {
			uint64 id;
			if (!FileIdOf(req, res, id))
				return;
			std::vector<BrumeChangeNote_t> notes;
			if (!m_Store.GetChangeNotes(id, notes))
				return SendResult(res, BRUME_RESULT_FILE_NOT_FOUND, 404, id);
			rapidjson::StringBuffer buffer;
			CJsonWriter w(buffer);
			w.StartObject();
			w.Key(BRUME_JSON_RESULT); w.Int(BRUME_RESULT_OK);
			w.Key(BRUME_JSON_CHANGES);
			w.StartArray();
			for (const BrumeChangeNote_t &n : notes)
			{
				w.StartObject();
				w.Key(BRUME_JSON_TIME); w.Uint(n.m_rtime);
				w.Key(BRUME_JSON_NOTE); w.String(n.m_sNote.c_str());
				w.EndObject();
			}
			w.EndArray();
			w.EndObject();
			SendJson(res, buffer);
		});

		PostFileChange(R"(/api/v1/files/(\d+)/children)", [this](uint64 id, const rapidjson::Document &body, const httplib::Request &req, httplib::Response &res) {
			if (!body.HasMember(BRUME_JSON_CHILD) || !body[BRUME_JSON_CHILD].IsUint64())
				return SendResult(res, BRUME_RESULT_INVALID_PARAM, 400, id, "no child"), -1;
			return m_Store.AddChild(id, body[BRUME_JSON_CHILD].GetUint64(), Caller(req));
		});

		PostFileChange(R"(/api/v1/files/(\d+)/contributors)", [this](uint64 id, const rapidjson::Document &body, const httplib::Request &req, httplib::Response &res) {
			if (!body.HasMember(BRUME_JSON_ACCOUNT) || !body[BRUME_JSON_ACCOUNT].IsUint64())
				return SendResult(res, BRUME_RESULT_INVALID_PARAM, 400, id, "no account"), -1;
			if (body.HasMember(BRUME_JSON_REMOVE) && !body[BRUME_JSON_REMOVE].IsBool())
				return SendResult(res, BRUME_RESULT_INVALID_PARAM, 400, id, "remove is true or false"), -1;
			const bool bRemove = body.HasMember(BRUME_JSON_REMOVE) && body[BRUME_JSON_REMOVE].GetBool();
			return m_Store.AddContributor(id, body[BRUME_JSON_ACCOUNT].GetUint64(), Caller(req), bRemove);
		});

		PostFileChange(R"(/api/v1/files/(\d+)/vote)", [this](uint64 id, const rapidjson::Document &body, const httplib::Request &req, httplib::Response &res) {
			if (!body.HasMember(BRUME_JSON_UP) || !body[BRUME_JSON_UP].IsBool())
				return SendResult(res, BRUME_RESULT_INVALID_PARAM, 400, id, "no vote"), -1;
			return m_Store.Vote(id, Caller(req), body[BRUME_JSON_UP].GetBool());
		});

		PostFileChange(R"(/api/v1/files/(\d+)/moderation)", [this](uint64 id, const rapidjson::Document &body, const httplib::Request &, httplib::Response &) {
			const bool banned = body.HasMember(BRUME_JSON_BANNED) && body[BRUME_JSON_BANNED].IsBool() && body[BRUME_JSON_BANNED].GetBool();
			const bool accepted = body.HasMember(BRUME_JSON_MINTYARD_ACCEPTED) && body[BRUME_JSON_MINTYARD_ACCEPTED].IsBool() && body[BRUME_JSON_MINTYARD_ACCEPTED].GetBool();
			return m_Store.SetModeration(id, banned, accepted);
		});

		auto blob = [this](const httplib::Request &req, httplib::Response &res, bool bInfoOnly) {
			uint64 handle;
			BrumeBlob_t b;
			if (!FileIdOf(req, res, handle))
				return;
			if (!m_Store.GetBlob(handle, b))
				return SendResult(res, BRUME_RESULT_FILE_NOT_FOUND, 404);
			if (bInfoOnly)
			{
				rapidjson::StringBuffer buffer;
				CJsonWriter w(buffer);
				w.StartObject();
				w.Key(BRUME_JSON_RESULT); w.Int(BRUME_RESULT_OK);
				w.Key(BRUME_JSON_HANDLE); w.Uint64(handle);
				w.Key(BRUME_JSON_NAME); w.String(b.m_sName.c_str());
				w.Key(BRUME_JSON_SIZE); w.Int64(b.m_nSize);
				w.Key(BRUME_JSON_OWNER); w.Uint64(b.m_ulOwner);
				w.Key(BRUME_JSON_APP_ID); w.Uint(b.m_nAppID);
				w.Key(BRUME_JSON_PUBLISHEDFILEID); w.Uint64(b.m_nPublishedFileId);
				w.EndObject();
				return SendJson(res, buffer);
			}
			std::string bytes;
			FILE *file = fopen(m_Store.BlobPath(handle).c_str(), "rb");
			if (!file)
				return SendResult(res, BRUME_RESULT_FILE_NOT_FOUND, 404);
			char chunk[65536];
			size_t got;
			while ((got = fread(chunk, 1, sizeof(chunk), file)) > 0)
				bytes.append(chunk, got);
			fclose(file);
			res.set_header(BRUME_HEADER_FILE_NAME, b.m_sName);
			res.set_header(BRUME_HEADER_OWNER, std::to_string(b.m_ulOwner));
			res.set_header(BRUME_HEADER_APP_ID, std::to_string(b.m_nAppID));
			res.set_content(bytes, ContentTypeOf(b.m_sName));
		};
		m_Server.Get(R"(/api/v1/ugc/(\d+))", [blob](const httplib::Request &req, httplib::Response &res) { blob(req, res, false); });
		m_Server.Get(R"(/api/v1/ugc/(\d+)/info)", [blob](const httplib::Request &req, httplib::Response &res) { blob(req, res, true); });

		m_Server.Post(BRUME_ROUTE_RESERVATIONS, [this](const httplib::Request &req, httplib::Response &res) {
			rapidjson::Document body;
			if (!ParseBody(req, res, body))
				return;
			if (!body.HasMember(BRUME_JSON_INDEX) || !body[BRUME_JSON_INDEX].IsUint() || body[BRUME_JSON_INDEX].GetUint() == 0)
				return SendResult(res, BRUME_RESULT_INVALID_PARAM, 400, 0, "no index");
			const uint32 index = body[BRUME_JSON_INDEX].GetUint();
			const int prefab = body.HasMember(BRUME_JSON_PREFAB) && body[BRUME_JSON_PREFAB].IsInt() ? body[BRUME_JSON_PREFAB].GetInt() : 43;
			std::string holder;
			const int result = m_Store.ReserveIndex(index, Caller(req), prefab, Now(), holder);
			rapidjson::StringBuffer buffer;
			CJsonWriter w(buffer);
			w.StartObject();
			w.Key(BRUME_JSON_RESULT); w.Int(result);
			w.Key(BRUME_JSON_INDEX); w.Uint(index);
			if (result == BRUME_RESERVE_TAKEN)
			{
				w.Key(BRUME_JSON_USER);
				w.String(holder.c_str());
			}
			w.EndObject();
			SendJson(res, buffer);
		});

		m_Server.Post("/api/v1/occupied", [this](const httplib::Request &req, httplib::Response &res) {
			rapidjson::Document body;
			if (!ParseBody(req, res, body))
				return;
			if (!body.HasMember(BRUME_JSON_INDEX) || !body[BRUME_JSON_INDEX].IsUint())
				return SendResult(res, BRUME_RESULT_INVALID_PARAM, 400, 0, "no index");
			SendResult(res, m_Store.MarkIndexOccupied(body[BRUME_JSON_INDEX].GetUint()) ? BRUME_RESULT_OK : BRUME_RESULT_FAIL, 200);
		});

		m_Server.Get("/sharedfiles/filedetails/", [this](const httplib::Request &req, httplib::Response &res) { Page(req, res); });
		m_Server.Get("/sharedfiles/filedetails", [this](const httplib::Request &req, httplib::Response &res) { Page(req, res); });
	}

	ServiceOptions_t m_Options;
	CBrumeStore m_Store;
	httplib::Server m_Server;
	uint64 m_ulDefaultAccount = 0;
	std::mutex m_RandomMutex;
	std::mt19937_64 m_Random;
};

void Usage()
{
	fprintf(stderr,
		"usage: brume_service --data-dir DIR [--port N (0 picks a free one)] [--account N|ID64] [--persona NAME]\n"
		"                     [--universe N] [--appid N] [--delay-ms N] [--failure-rate 0..1] [--result-code N]\n");
}

CBrumeService *s_pService = nullptr;
void OnSignal(int)
{
	if (s_pService)
		s_pService->Stop();
}
} // namespace

int main(int argc, char **argv)
{
	ServiceOptions_t options;
	int accountUniverse = 0; // the universe a 64-bit --account names
	bool bUniverseGiven = false;
	for (int i = 1; i < argc; ++i)
	{
		const std::string arg = argv[i];
		const bool hasValue = i + 1 < argc;
		auto number = [&](long long lo, long long hi, long long &out) {
			char *end = nullptr;
			out = strtoll(argv[i + 1], &end, 10);
			return end && *end == 0 && out >= lo && out <= hi;
		};
		long long n = 0;
		if (arg == "--data-dir" && hasValue)
			options.m_sDataDir = argv[++i];
		else if (arg == "--port" && hasValue && number(0, 65535, n))
			options.m_nPort = (int)n, ++i;
		else if (arg == "--account" && hasValue && number(1, 0xffffffffll, n))
			options.m_nAccount = (uint32)n, ++i;
		else if (arg == "--account" && hasValue && ParseAccountID(argv[i + 1], options.m_nAccount, accountUniverse))
			++i;
		else if (arg == "--persona" && hasValue)
			options.m_sPersona = argv[++i];
		else if (arg == "--universe" && hasValue && number(1, 4, n))
			options.m_nUniverse = (int)n, bUniverseGiven = true, ++i;
		else if (arg == "--appid" && hasValue && number(1, 0xffffffffll, n))
			options.m_nAppID = (uint32)n, ++i;
		else if (arg == "--delay-ms" && hasValue && number(0, 600000, n))
			options.m_nDelayMs = (int)n, ++i;
		else if (arg == "--result-code" && hasValue && number(2, 1000, n))
			options.m_nResultCode = (int)n, ++i;
		else if (arg == "--failure-rate" && hasValue)
		{
			char *end = nullptr;
			options.m_flFailureRate = strtod(argv[++i], &end);
			if (!end || *end || options.m_flFailureRate < 0.0 || options.m_flFailureRate > 1.0)
			{
				fprintf(stderr, "brume_service: --failure-rate takes a number from 0 to 1\n");
				return 2;
			}
		}
		else
		{
			fprintf(stderr, "brume_service: bad option or value: %s\n", arg.c_str());
			Usage();
			return 2;
		}
	}
	if (accountUniverse)
	{
		if (bUniverseGiven && accountUniverse != options.m_nUniverse)
		{
			fprintf(stderr, "brume_service: --account names an account of universe %d, --universe says %d\n", accountUniverse,
				options.m_nUniverse);
			return 2;
		}
		options.m_nUniverse = accountUniverse;
	}
	if (options.m_sDataDir.empty())
	{
		Usage();
		return 2;
	}
	CBrumeService service(options);
	std::string error;
	if (!service.Start(error))
	{
		fprintf(stderr, "brume_service: %s\n", error.c_str());
		return 1;
	}
	const int port = service.Bind();
	if (port <= 0)
	{
		fprintf(stderr, "brume_service: cannot listen on 127.0.0.1:%d\n", options.m_nPort);
		return 1;
	}
	s_pService = &service;
	signal(SIGINT, OnSignal);
	signal(SIGTERM, OnSignal);
	printf("listening on 127.0.0.1:%d\n", port);
	fflush(stdout);
	service.Listen();
	s_pService = nullptr;
	return 0;
}
