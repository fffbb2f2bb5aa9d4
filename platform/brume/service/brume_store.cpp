// SQLite records and blob files of the local content service.
#include "brume_store.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <map>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

#include <sqlite3.h>

#include "core/fileio.h"

namespace
{
const char *kSchema = R"SQL(
CREATE TABLE IF NOT EXISTS accounts(id INTEGER PRIMARY KEY, persona TEXT NOT NULL);
CREATE TABLE IF NOT EXISTS files(
	id INTEGER PRIMARY KEY AUTOINCREMENT, creator INTEGER NOT NULL, app_id INTEGER NOT NULL,
	title TEXT NOT NULL DEFAULT '', description TEXT NOT NULL DEFAULT '',
	visibility INTEGER NOT NULL DEFAULT 2, file_type INTEGER NOT NULL DEFAULT 0,
	time_created INTEGER NOT NULL, time_updated INTEGER NOT NULL,
	preview_handle INTEGER NOT NULL DEFAULT 0,
	votes_up INTEGER NOT NULL DEFAULT 0, votes_down INTEGER NOT NULL DEFAULT 0,
	banned INTEGER NOT NULL DEFAULT 0, accepted INTEGER NOT NULL DEFAULT 0);
CREATE INDEX IF NOT EXISTS files_creator ON files(creator, id);
CREATE TABLE IF NOT EXISTS tags(file_id INTEGER NOT NULL, tag TEXT NOT NULL);
CREATE INDEX IF NOT EXISTS tags_file ON tags(file_id);
CREATE TABLE IF NOT EXISTS kvtags(file_id INTEGER NOT NULL, key TEXT NOT NULL, value TEXT NOT NULL);
CREATE INDEX IF NOT EXISTS kvtags_file ON kvtags(file_id);
CREATE TABLE IF NOT EXISTS children(file_id INTEGER NOT NULL, child_id INTEGER NOT NULL, UNIQUE(file_id, child_id));
CREATE TABLE IF NOT EXISTS contributors(file_id INTEGER NOT NULL, account INTEGER NOT NULL, PRIMARY KEY(file_id, account));
CREATE INDEX IF NOT EXISTS contributors_account ON contributors(account, file_id);
CREATE TABLE IF NOT EXISTS votes(file_id INTEGER NOT NULL, voter INTEGER NOT NULL, up INTEGER NOT NULL, UNIQUE(file_id, voter));
CREATE TABLE IF NOT EXISTS changes(file_id INTEGER NOT NULL, time INTEGER NOT NULL, note TEXT NOT NULL);
CREATE INDEX IF NOT EXISTS changes_file ON changes(file_id);
CREATE TABLE IF NOT EXISTS ugc(handle INTEGER PRIMARY KEY, file_id INTEGER NOT NULL, owner INTEGER NOT NULL,
	app_id INTEGER NOT NULL, name TEXT NOT NULL, size INTEGER NOT NULL, role TEXT NOT NULL, current INTEGER NOT NULL);
CREATE INDEX IF NOT EXISTS ugc_file ON ugc(file_id, role, current);
CREATE TABLE IF NOT EXISTS reservations(def_index INTEGER PRIMARY KEY, account INTEGER NOT NULL,
	prefab INTEGER NOT NULL, time INTEGER NOT NULL);
CREATE TABLE IF NOT EXISTS occupied(def_index INTEGER PRIMARY KEY);
)SQL";

// A prepared statement that finalises itself.
class CStatement
{
public:
	CStatement(sqlite3 *db, const char *sql) { sqlite3_prepare_v2(db, sql, -1, &m_pStmt, nullptr); }
	~CStatement()
	{
		if (m_pDB)
			ReturnToCache(m_pDB, m_pSql, m_pStmt);
		else
			sqlite3_finalize(m_pStmt);
	}

	// A statement of fixed text that the hot paths run again and again: taken from a cache of
	// prepared statements of this database, and given back reset when done. `sql` must be a
	// string literal.
	struct Cached_t
	{
	};
	CStatement(sqlite3 *db, const char *sql, Cached_t) : m_pDB(db), m_pSql(sql) { m_pStmt = TakeFromCache(db, sql); }

	// Finalises every cached statement of a database that is about to close.
	static void DropCache(sqlite3 *db)
	{
		std::lock_guard<std::mutex> lock(s_CacheMutex);
		for (auto it = s_Cache.begin(); it != s_Cache.end();)
		{
			if (it->first.first != db)
			{
				++it;
				continue;
			}
			for (sqlite3_stmt *stmt : it->second)
				sqlite3_finalize(stmt);
			it = s_Cache.erase(it);
		}
	}
	bool Ok() const { return m_pStmt != nullptr; }
	CStatement &Bind(int i, int64 v)
	{
		sqlite3_bind_int64(m_pStmt, i, v);
		return *this;
	}
	CStatement &Bind(int i, const std::string &v)
	{
		sqlite3_bind_text(m_pStmt, i, v.data(), (int)v.size(), SQLITE_TRANSIENT);
		return *this;
	}
	bool Row() { return m_pStmt && sqlite3_step(m_pStmt) == SQLITE_ROW; }
	bool Done() { return m_pStmt && sqlite3_step(m_pStmt) == SQLITE_DONE; }
	int64 Int(int c) { return sqlite3_column_int64(m_pStmt, c); }
	std::string Text(int c)
	{
		const unsigned char *p = sqlite3_column_text(m_pStmt, c);
		return p ? std::string((const char *)p, sqlite3_column_bytes(m_pStmt, c)) : std::string();
	}

private:
	static sqlite3_stmt *TakeFromCache(sqlite3 *db, const char *sql)
	{
		{
			std::lock_guard<std::mutex> lock(s_CacheMutex);
			std::vector<sqlite3_stmt *> &free = s_Cache[{ db, sql }];
			if (!free.empty())
			{
				sqlite3_stmt *stmt = free.back();
				free.pop_back();
				return stmt;
			}
		}
		sqlite3_stmt *stmt = nullptr;
		sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr);
		return stmt;
	}

	static void ReturnToCache(sqlite3 *db, const char *sql, sqlite3_stmt *stmt)
	{
		if (!stmt)
			return;
		sqlite3_reset(stmt);
		sqlite3_clear_bindings(stmt);
		std::lock_guard<std::mutex> lock(s_CacheMutex);
		s_Cache[{ db, sql }].push_back(stmt);
	}

	static inline std::mutex s_CacheMutex;
	static inline std::map<std::pair<sqlite3 *, const char *>, std::vector<sqlite3_stmt *>> s_Cache;

	sqlite3 *m_pDB = nullptr;
	const char *m_pSql = nullptr;
	sqlite3_stmt *m_pStmt = nullptr;
};
} // namespace

CBrumeStore::~CBrumeStore()
{
	if (m_pDB)
	{
		CStatement::DropCache(m_pDB);
		sqlite3_close(m_pDB);
	}
}

bool CBrumeStore::Exec(const char *sql)
{
	return sqlite3_exec(m_pDB, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool CBrumeStore::Open(const std::string &dataDir, std::string &error)
{
	std::lock_guard<std::mutex> lock(m_Mutex);
	m_sDataDir = dataDir;
	std::error_code ec;
	std::filesystem::create_directories(dataDir + "/ugc", ec);
	if (ec)
	{
		error = dataDir + "/ugc: cannot create the folder (" + ec.message() + ")";
		return false;
	}
	const std::string dbPath = dataDir + "/brume.sqlite";
	if (sqlite3_open(dbPath.c_str(), &m_pDB) != SQLITE_OK)
	{
		error = dbPath + ": " + (m_pDB ? sqlite3_errmsg(m_pDB) : "cannot open the database");
		return false;
	}
	sqlite3_busy_timeout(m_pDB, 5000);
	if (!Exec("PRAGMA journal_mode=WAL;") || !Exec("PRAGMA synchronous=NORMAL;") || !Exec(kSchema))
	{
		error = dbPath + ": " + sqlite3_errmsg(m_pDB);
		return false;
	}
	CStatement maxHandle(m_pDB, "SELECT COALESCE(MAX(handle), 0) FROM ugc");
	if (maxHandle.Row())
		m_nNextBlob = (uint64)maxHandle.Int(0) + 1;
	SweepOrphansLocked();
	return true;
}

// Blob files that no record names (a crash between writing the bytes and committing the record)
// and temporary files of interrupted writes.
void CBrumeStore::SweepOrphansLocked()
{
	std::set<uint64> known;
	CStatement all(m_pDB, "SELECT handle FROM ugc");
	while (all.Row())
		known.insert((uint64)all.Int(0));
	std::error_code ec;
	for (const auto &entry : std::filesystem::directory_iterator(m_sDataDir + "/ugc", ec))
	{
		const std::string name = entry.path().filename().string();
		char *end = nullptr;
		const uint64 handle = strtoull(name.c_str(), &end, 10);
		if (end && *end == 0 && known.count(handle))
		{
			m_nNextBlob = std::max(m_nNextBlob, handle + 1);
			continue;
		}
		std::filesystem::remove(entry.path(), ec);
	}
}

std::string CBrumeStore::DefaultPersona(uint64 id)
{
	return "Account " + std::to_string(id & 0xffffffffu);
}

bool CBrumeStore::EnsureAccount(uint64 id, const std::string &persona)
{
	std::lock_guard<std::mutex> lock(m_Mutex);
	CStatement s(m_pDB, "INSERT INTO accounts(id, persona) VALUES(?, ?) ON CONFLICT(id) DO UPDATE SET persona=excluded.persona");
	return s.Bind(1, (int64)id).Bind(2, persona).Done();
}

bool CBrumeStore::GetAccount(uint64 id, BrumeAccount_t &out)
{
	std::lock_guard<std::mutex> lock(m_Mutex);
	CStatement s(m_pDB, "SELECT persona FROM accounts WHERE id=?", CStatement::Cached_t());
	s.Bind(1, (int64)id);
	if (!s.Row())
		return false;
	out.m_ulID = id;
	out.m_sPersona = s.Text(0);
	return true;
}

uint64 CBrumeStore::CreateFile(uint64 creator, uint32 appId, int32 fileType, uint32 now)
{
	std::lock_guard<std::mutex> lock(m_Mutex);
	CStatement s(m_pDB, "INSERT INTO files(creator, app_id, file_type, time_created, time_updated) VALUES(?, ?, ?, ?, ?)");
	if (!s.Bind(1, (int64)creator).Bind(2, appId).Bind(3, fileType).Bind(4, now).Bind(5, now).Done())
		return 0;
	return (uint64)sqlite3_last_insert_rowid(m_pDB);
}

std::string CBrumeStore::BlobPath(uint64 handle) const
{
	return m_sDataDir + "/ugc/" + std::to_string(handle);
}

std::string CBrumeStore::IncomingPath()
{
	// Not a handle's name: a start after a crash sweeps whatever of these is left.
	static std::atomic<uint64> s_nIncoming{0};
	return m_sDataDir + "/ugc/incoming-" + std::to_string(++s_nIncoming) + ".part";
}

uint64 CBrumeStore::AdoptBlobLocked(const BrumeIncomingBlob_t &blob, std::string &path, std::string &error)
{
	const uint64 handle = m_nNextBlob++;
	path = BlobPath(handle);
	std::error_code ec;
	std::filesystem::rename(blob.m_sPath, path, ec);
	if (ec)
	{
		error = blob.m_sName + ": " + ec.message();
		return 0;
	}
	return handle;
}

int CBrumeStore::UpdateFile(uint64 id, uint64 caller, const BrumeFileUpdate_t &update, std::string &error)
{
	std::lock_guard<std::mutex> lock(m_Mutex);
	uint64 creator = 0, appId = 0;
	{
		CStatement s(m_pDB, "SELECT creator, app_id FROM files WHERE id=?");
		s.Bind(1, (int64)id);
		if (!s.Row())
			return BRUME_RESULT_FILE_NOT_FOUND;
		creator = (uint64)s.Int(0);
		appId = (uint64)s.Int(1);
	}
	if (creator != caller)
	{
		// A contributor re-uploads the content and says why; the rest of the record stays the
		// creator's, so an update that touches any of it is refused as a whole.
		CStatement c(m_pDB, "SELECT 1 FROM contributors WHERE file_id=? AND account=?");
		c.Bind(1, (int64)id).Bind(2, (int64)caller);
		if (!c.Row())
			return BRUME_RESULT_ACCESS_DENIED;
		if (update.m_bSetTitle || update.m_bSetDescription || update.m_bSetVisibility || update.m_bSetTags ||
			update.m_bSetKeyValueTags || update.m_bSetPreview)
			return BRUME_RESULT_ACCESS_DENIED;
	}

	// The bytes first, each complete on disk under its final name before any record names it
	// (the caller wrote and flushed them; here they only take their names).
	std::vector<std::string> written;
	auto forget = [&]() {
		std::error_code ec;
		for (const std::string &p : written)
			std::filesystem::remove(p, ec);
	};
	struct NewBlob_t
	{
		uint64 handle;
		std::string name, role;
		int64 size;
	};
	std::vector<NewBlob_t> blobs;
	std::vector<std::pair<const BrumeIncomingBlob_t *, const char *>> incoming;
	if (update.m_bSetContent)
		for (const BrumeIncomingBlob_t &blob : update.m_vecContent)
			incoming.emplace_back(&blob, "content");
	if (update.m_bSetPreview)
		incoming.emplace_back(&update.m_Preview, "preview");
	for (const auto &[blob, role] : incoming)
	{
		std::string path;
		const uint64 h = AdoptBlobLocked(*blob, path, error);
		if (!h)
		{
			forget();
			return BRUME_RESULT_FAIL;
		}
		written.push_back(path);
		blobs.push_back({h, blob->m_sName, role, blob->m_nSize});
	}
	// The new names are on disk before the records name them.
	if (!incoming.empty() && !Plat_SyncDirectory((m_sDataDir + "/ugc").c_str()))
	{
		error = "cannot flush the blob folder";
		forget();
		return BRUME_RESULT_FAIL;
	}

	bool ok = Exec("BEGIN IMMEDIATE");
	auto run = [&](CStatement &&s) { ok = ok && s.Done(); };
	if (update.m_bSetTitle)
		run(std::move(CStatement(m_pDB, "UPDATE files SET title=? WHERE id=?").Bind(1, update.m_sTitle).Bind(2, (int64)id)));
	if (update.m_bSetDescription)
		run(std::move(CStatement(m_pDB, "UPDATE files SET description=? WHERE id=?").Bind(1, update.m_sDescription).Bind(2, (int64)id)));
	if (update.m_bSetVisibility)
		run(std::move(CStatement(m_pDB, "UPDATE files SET visibility=? WHERE id=?").Bind(1, update.m_eVisibility).Bind(2, (int64)id)));
	if (update.m_bSetTags)
	{
		run(std::move(CStatement(m_pDB, "DELETE FROM tags WHERE file_id=?").Bind(1, (int64)id)));
		for (const std::string &tag : update.m_vecTags)
			run(std::move(CStatement(m_pDB, "INSERT INTO tags(file_id, tag) VALUES(?, ?)").Bind(1, (int64)id).Bind(2, tag)));
	}
	if (update.m_bSetKeyValueTags)
	{
		run(std::move(CStatement(m_pDB, "DELETE FROM kvtags WHERE file_id=?").Bind(1, (int64)id)));
		for (const auto &[key, value] : update.m_vecKeyValueTags)
			run(std::move(CStatement(m_pDB, "INSERT INTO kvtags(file_id, key, value) VALUES(?, ?, ?)").Bind(1, (int64)id).Bind(2, key).Bind(3, value)));
	}
	if (update.m_bSetContent)
		run(std::move(CStatement(m_pDB, "UPDATE ugc SET current=0 WHERE file_id=? AND role='content'").Bind(1, (int64)id)));
	for (const NewBlob_t &b : blobs)
	{
		run(std::move(CStatement(m_pDB, "INSERT INTO ugc(handle, file_id, owner, app_id, name, size, role, current) VALUES(?, ?, ?, ?, ?, ?, ?, 1)")
						  .Bind(1, (int64)b.handle).Bind(2, (int64)id).Bind(3, (int64)caller).Bind(4, (int64)appId)
						  .Bind(5, b.name).Bind(6, b.size).Bind(7, b.role)));
		if (b.role == "preview")
			run(std::move(CStatement(m_pDB, "UPDATE files SET preview_handle=? WHERE id=?").Bind(1, (int64)b.handle).Bind(2, (int64)id)));
	}
	run(std::move(CStatement(m_pDB, "UPDATE files SET time_updated=? WHERE id=?").Bind(1, update.m_rtimeNow).Bind(2, (int64)id)));
	if (!update.m_sChangeNote.empty())
		run(std::move(CStatement(m_pDB, "INSERT INTO changes(file_id, time, note) VALUES(?, ?, ?)").Bind(1, (int64)id).Bind(2, update.m_rtimeNow).Bind(3, update.m_sChangeNote)));
	if (ok && Exec("COMMIT"))
		return BRUME_RESULT_OK;
	error = sqlite3_errmsg(m_pDB);
	Exec("ROLLBACK");
	forget();
	return BRUME_RESULT_FAIL;
}

int CBrumeStore::CheckCreatorLocked(uint64 id, uint64 caller)
{
	CStatement s(m_pDB, "SELECT creator FROM files WHERE id=?", CStatement::Cached_t());
	s.Bind(1, (int64)id);
	if (!s.Row())
		return BRUME_RESULT_FILE_NOT_FOUND;
	return (uint64)s.Int(0) == caller ? BRUME_RESULT_OK : BRUME_RESULT_ACCESS_DENIED;
}

int CBrumeStore::DeleteFile(uint64 id, uint64 caller)
{
	std::lock_guard<std::mutex> lock(m_Mutex);
	if (const int result = CheckCreatorLocked(id, caller); result != BRUME_RESULT_OK)
		return result;
	std::vector<uint64> handles;
	{
		CStatement h(m_pDB, "SELECT handle FROM ugc WHERE file_id=?");
		h.Bind(1, (int64)id);
		while (h.Row())
			handles.push_back((uint64)h.Int(0));
	}
	bool ok = Exec("BEGIN IMMEDIATE");
	for (const char *sql : {"DELETE FROM files WHERE id=?", "DELETE FROM tags WHERE file_id=?", "DELETE FROM kvtags WHERE file_id=?",
			 "DELETE FROM children WHERE file_id=? OR child_id=?1", "DELETE FROM votes WHERE file_id=?", "DELETE FROM changes WHERE file_id=?",
			 "DELETE FROM contributors WHERE file_id=?", "DELETE FROM ugc WHERE file_id=?"})
		ok = ok && CStatement(m_pDB, sql).Bind(1, (int64)id).Done();
	if (!ok || !Exec("COMMIT"))
	{
		Exec("ROLLBACK");
		return BRUME_RESULT_FAIL;
	}
	// The records are gone; the bytes follow (a crash here leaves orphans for the next sweep).
	std::error_code ec;
	for (uint64 h : handles)
		std::filesystem::remove(BlobPath(h), ec);
	return BRUME_RESULT_OK;
}

bool CBrumeStore::LoadFileLocked(uint64 id, BrumeFileRecord_t &out)
{
	CStatement s(m_pDB, "SELECT creator, app_id, title, description, visibility, file_type, time_created, time_updated, "
						"preview_handle, votes_up, votes_down, banned, accepted FROM files WHERE id=?", CStatement::Cached_t());
	s.Bind(1, (int64)id);
	if (!s.Row())
		return false;
	out = BrumeFileRecord_t();
	out.m_nPublishedFileId = id;
	out.m_ulCreator = (uint64)s.Int(0);
	out.m_nAppID = (uint32)s.Int(1);
	out.m_sTitle = s.Text(2);
	out.m_sDescription = s.Text(3);
	out.m_eVisibility = (int32)s.Int(4);
	out.m_eFileType = (int32)s.Int(5);
	out.m_rtimeCreated = (uint32)s.Int(6);
	out.m_rtimeUpdated = (uint32)s.Int(7);
	out.m_hPreviewFile = (uint64)s.Int(8);
	out.m_nVotesUp = (uint32)s.Int(9);
	out.m_nVotesDown = (uint32)s.Int(10);
	out.m_bBanned = s.Int(11) != 0;
	out.m_bAccepted = s.Int(12) != 0;
	CStatement tags(m_pDB, "SELECT tag FROM tags WHERE file_id=? ORDER BY tag", CStatement::Cached_t());
	tags.Bind(1, (int64)id);
	while (tags.Row())
		out.m_vecTags.push_back(tags.Text(0));
	CStatement kv(m_pDB, "SELECT key, value FROM kvtags WHERE file_id=? ORDER BY rowid", CStatement::Cached_t());
	kv.Bind(1, (int64)id);
	while (kv.Row())
		out.m_vecKeyValueTags.emplace_back(kv.Text(0), kv.Text(1));
	CStatement children(m_pDB, "SELECT child_id FROM children WHERE file_id=? ORDER BY rowid", CStatement::Cached_t());
	children.Bind(1, (int64)id);
	while (children.Row())
		out.m_vecChildren.push_back((uint64)children.Int(0));
	CStatement contributors(m_pDB, "SELECT account FROM contributors WHERE file_id=? ORDER BY account", CStatement::Cached_t());
	contributors.Bind(1, (int64)id);
	while (contributors.Row())
		out.m_vecContributors.push_back((uint64)contributors.Int(0));
	CStatement blobs(m_pDB, "SELECT handle, owner, app_id, name, size, role FROM ugc WHERE file_id=? AND current=1 ORDER BY name", CStatement::Cached_t());
	blobs.Bind(1, (int64)id);
	while (blobs.Row())
	{
		BrumeBlob_t b;
		b.m_hHandle = (uint64)blobs.Int(0);
		b.m_nPublishedFileId = id;
		b.m_ulOwner = (uint64)blobs.Int(1);
		b.m_nAppID = (uint32)blobs.Int(2);
		b.m_sName = blobs.Text(3);
		b.m_nSize = blobs.Int(4);
		b.m_sRole = blobs.Text(5);
		if (b.m_sRole == "preview")
		{
			if (b.m_hHandle == out.m_hPreviewFile)
				out.m_nPreviewFileSize = b.m_nSize;
			continue;
		}
		out.m_vecContent.push_back(b);
	}
	// The main content file: the first of the folder that is not the publish notes; else the first.
	for (const BrumeBlob_t &b : out.m_vecContent)
	{
		const std::string base = b.m_sName.substr(b.m_sName.find_last_of('/') + 1);
		if (base != "publish_data.txt")
		{
			out.m_hFile = b.m_hHandle;
			out.m_sFileName = b.m_sName;
			out.m_nFileSize = b.m_nSize;
			break;
		}
	}
	if (!out.m_hFile && !out.m_vecContent.empty())
	{
		out.m_hFile = out.m_vecContent[0].m_hHandle;
		out.m_sFileName = out.m_vecContent[0].m_sName;
		out.m_nFileSize = out.m_vecContent[0].m_nSize;
	}
	return true;
}

bool CBrumeStore::GetFile(uint64 id, BrumeFileRecord_t &out)
{
	std::lock_guard<std::mutex> lock(m_Mutex);
	return LoadFileLocked(id, out);
}

bool CBrumeStore::ListFiles(uint64 creator, bool bShared, uint32 start, uint32 count, const std::vector<std::string> &required,
	const std::vector<std::string> &excluded, std::vector<uint64> &ids, uint32 &total)
{
	std::lock_guard<std::mutex> lock(m_Mutex);
	ids.clear();
	total = 0;
	std::string where = bShared ? " FROM files f WHERE (creator=?1 OR EXISTS(SELECT 1 FROM contributors c WHERE c.file_id=f.id AND c.account=?1))"
								: " FROM files f WHERE creator=?1";
	int param = 2;
	for (size_t i = 0; i < required.size(); ++i)
		where += " AND EXISTS(SELECT 1 FROM tags t WHERE t.file_id=f.id AND t.tag=?" + std::to_string(param++) + ")";
	for (size_t i = 0; i < excluded.size(); ++i)
		where += " AND NOT EXISTS(SELECT 1 FROM tags t WHERE t.file_id=f.id AND t.tag=?" + std::to_string(param++) + ")";
	auto bind = [&](CStatement &s) {
		s.Bind(1, (int64)creator);
		int n = 2;
		for (const std::string &t : required)
			s.Bind(n++, t);
		for (const std::string &t : excluded)
			s.Bind(n++, t);
		return n;
	};
	CStatement counted(m_pDB, ("SELECT COUNT(*)" + where).c_str());
	if (!counted.Ok())
		return false;
	bind(counted);
	if (!counted.Row())
		return false;
	total = (uint32)counted.Int(0);
	CStatement page(m_pDB, ("SELECT id" + where + " ORDER BY id LIMIT ?" + std::to_string(param) + " OFFSET ?" + std::to_string(param + 1)).c_str());
	if (!page.Ok())
		return false;
	const int next = bind(page);
	page.Bind(next, (int64)count).Bind(next + 1, (int64)start);
	while (page.Row())
		ids.push_back((uint64)page.Int(0));
	return true;
}

bool CBrumeStore::ListVisibleSearchRecords(uint64 caller, std::vector<std::pair<uint64, BrumeQueryRecord_t>> &out)
{
	std::lock_guard<std::mutex> lock(m_Mutex);
	out.clear();
	// Public files, the caller's own, and those the caller co-authors.
	static const char *const kVisible =
		"(SELECT id FROM files WHERE visibility=0 OR creator=?1 OR id IN (SELECT file_id FROM contributors WHERE account=?1))";
	CStatement files(m_pDB, (std::string("SELECT id, file_type, title, description FROM files WHERE id IN ") + kVisible + " ORDER BY id").c_str());
	CStatement tags(m_pDB, (std::string("SELECT file_id, tag FROM tags WHERE file_id IN ") + kVisible + " ORDER BY file_id, rowid").c_str());
	CStatement kvtags(m_pDB, (std::string("SELECT file_id, key, value FROM kvtags WHERE file_id IN ") + kVisible + " ORDER BY file_id, rowid").c_str());
	if (!files.Ok() || !tags.Ok() || !kvtags.Ok())
		return false;
	files.Bind(1, (int64)caller);
	tags.Bind(1, (int64)caller);
	kvtags.Bind(1, (int64)caller);
	while (files.Row())
	{
		BrumeQueryRecord_t record;
		record.m_nFileType = (uint32)files.Int(1);
		record.m_sTitle = files.Text(2);
		record.m_sDescription = files.Text(3);
		out.emplace_back((uint64)files.Int(0), std::move(record));
	}
	// Both lists come in the order of the files: each walks along them once.
	size_t at = 0;
	auto recordOf = [&](uint64 id) -> BrumeQueryRecord_t * {
		while (at < out.size() && out[at].first < id)
			++at;
		return at < out.size() && out[at].first == id ? &out[at].second : nullptr;
	};
	while (tags.Row())
		if (BrumeQueryRecord_t *record = recordOf((uint64)tags.Int(0)))
			record->m_Tags.push_back(tags.Text(1));
	at = 0;
	while (kvtags.Row())
		if (BrumeQueryRecord_t *record = recordOf((uint64)kvtags.Int(0)))
			record->m_KeyValueTags.emplace_back(kvtags.Text(1), kvtags.Text(2));
	return true;
}

bool CBrumeStore::GetChangeNotes(uint64 id, std::vector<BrumeChangeNote_t> &out)
{
	std::lock_guard<std::mutex> lock(m_Mutex);
	out.clear();
	CStatement file(m_pDB, "SELECT 1 FROM files WHERE id=?", CStatement::Cached_t());
	file.Bind(1, (int64)id);
	if (!file.Row())
		return false;
	CStatement s(m_pDB, "SELECT time, note FROM changes WHERE file_id=? ORDER BY time DESC, rowid DESC");
	s.Bind(1, (int64)id);
	while (s.Row())
		out.push_back({(uint32)s.Int(0), s.Text(1)});
	return true;
}

int CBrumeStore::AddChild(uint64 id, uint64 child, uint64 caller)
{
	std::lock_guard<std::mutex> lock(m_Mutex);
	if (const int result = CheckCreatorLocked(id, caller); result != BRUME_RESULT_OK)
		return result;
	CStatement c(m_pDB, "SELECT 1 FROM files WHERE id=?");
	c.Bind(1, (int64)child);
	if (!c.Row() || child == id)
		return BRUME_RESULT_FILE_NOT_FOUND;
	CStatement ins(m_pDB, "INSERT OR IGNORE INTO children(file_id, child_id) VALUES(?, ?)");
	return ins.Bind(1, (int64)id).Bind(2, (int64)child).Done() ? BRUME_RESULT_OK : BRUME_RESULT_FAIL;
}

int CBrumeStore::AddContributor(uint64 id, uint64 account, uint64 caller, bool bRemove)
{
	std::lock_guard<std::mutex> lock(m_Mutex);
	if (const int result = CheckCreatorLocked(id, caller); result != BRUME_RESULT_OK)
		return result;
	if (account == 0 || account == caller)
		return BRUME_RESULT_INVALID_PARAM;
	if (bRemove)
	{
		CStatement del(m_pDB, "DELETE FROM contributors WHERE file_id=? AND account=?");
		return del.Bind(1, (int64)id).Bind(2, (int64)account).Done() ? BRUME_RESULT_OK : BRUME_RESULT_FAIL;
	}
	bool ok = Exec("BEGIN IMMEDIATE");
	ok = ok && CStatement(m_pDB, "INSERT OR IGNORE INTO accounts(id, persona) VALUES(?, ?)").Bind(1, (int64)account).Bind(2, DefaultPersona(account)).Done();
	ok = ok && CStatement(m_pDB, "INSERT OR IGNORE INTO contributors(file_id, account) VALUES(?, ?)").Bind(1, (int64)id).Bind(2, (int64)account).Done();
	if (ok && Exec("COMMIT"))
		return BRUME_RESULT_OK;
	Exec("ROLLBACK");
	return BRUME_RESULT_FAIL;
}

int CBrumeStore::Vote(uint64 id, uint64 voter, bool bUp)
{
	std::lock_guard<std::mutex> lock(m_Mutex);
	CStatement s(m_pDB, "SELECT 1 FROM files WHERE id=?");
	s.Bind(1, (int64)id);
	if (!s.Row())
		return BRUME_RESULT_FILE_NOT_FOUND;
	bool ok = Exec("BEGIN IMMEDIATE");
	ok = ok && CStatement(m_pDB, "INSERT INTO votes(file_id, voter, up) VALUES(?, ?, ?) ON CONFLICT(file_id, voter) DO UPDATE SET up=excluded.up")
				   .Bind(1, (int64)id).Bind(2, (int64)voter).Bind(3, bUp ? 1 : 0).Done();
	ok = ok && CStatement(m_pDB, "UPDATE files SET votes_up=(SELECT COUNT(*) FROM votes WHERE file_id=?1 AND up=1), "
								 "votes_down=(SELECT COUNT(*) FROM votes WHERE file_id=?1 AND up=0) WHERE id=?1")
				   .Bind(1, (int64)id).Done();
	if (ok && Exec("COMMIT"))
		return BRUME_RESULT_OK;
	Exec("ROLLBACK");
	return BRUME_RESULT_FAIL;
}

int CBrumeStore::SetModeration(uint64 id, bool bBanned, bool bAccepted)
{
	std::lock_guard<std::mutex> lock(m_Mutex);
	CStatement s(m_pDB, "UPDATE files SET banned=?, accepted=? WHERE id=?");
	if (!s.Bind(1, bBanned ? 1 : 0).Bind(2, bAccepted ? 1 : 0).Bind(3, (int64)id).Done())
		return BRUME_RESULT_FAIL;
	return sqlite3_changes(m_pDB) ? BRUME_RESULT_OK : BRUME_RESULT_FILE_NOT_FOUND;
}

bool CBrumeStore::GetBlob(uint64 handle, BrumeBlob_t &out)
{
	std::lock_guard<std::mutex> lock(m_Mutex);
	CStatement s(m_pDB, "SELECT file_id, owner, app_id, name, size, role FROM ugc WHERE handle=?");
	s.Bind(1, (int64)handle);
	if (!s.Row())
		return false;
	out.m_hHandle = handle;
	out.m_nPublishedFileId = (uint64)s.Int(0);
	out.m_ulOwner = (uint64)s.Int(1);
	out.m_nAppID = (uint32)s.Int(2);
	out.m_sName = s.Text(3);
	out.m_nSize = s.Int(4);
	out.m_sRole = s.Text(5);
	return true;
}

int CBrumeStore::ReserveIndex(uint32 index, uint64 account, int32 prefab, uint32 now, std::string &holder)
{
	std::lock_guard<std::mutex> lock(m_Mutex);
	CStatement occupied(m_pDB, "SELECT 1 FROM occupied WHERE def_index=?");
	occupied.Bind(1, index);
	if (occupied.Row())
		return BRUME_RESERVE_OCCUPIED;
	CStatement s(m_pDB, "SELECT r.account, COALESCE(a.persona, '') FROM reservations r LEFT JOIN accounts a ON a.id=r.account WHERE r.def_index=?");
	s.Bind(1, index);
	if (s.Row())
	{
		if ((uint64)s.Int(0) == account)
			return BRUME_RESERVE_ACCEPTED;
		holder = s.Text(1);
		return BRUME_RESERVE_TAKEN;
	}
	CStatement ins(m_pDB, "INSERT INTO reservations(def_index, account, prefab, time) VALUES(?, ?, ?, ?)");
	return ins.Bind(1, index).Bind(2, (int64)account).Bind(3, prefab).Bind(4, now).Done() ? BRUME_RESERVE_ACCEPTED : BRUME_RESERVE_TIMED_OUT;
}

bool CBrumeStore::MarkIndexOccupied(uint32 index)
{
	std::lock_guard<std::mutex> lock(m_Mutex);
	return CStatement(m_pDB, "INSERT OR IGNORE INTO occupied(def_index) VALUES(?)").Bind(1, index).Done();
}
