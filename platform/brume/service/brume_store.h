// The records of the local content service: accounts, published files with their tags, key-value
// tags, children, contributors, votes and change notes, the content and preview blobs (UGC
// handles), and the item-definition-index reservations.
//
// Records live in one SQLite database (WAL journal) under the data directory; the bytes of every
// blob live in "<data>/ugc/<handle>", written to a temporary name, flushed and renamed before the
// record that names them is committed. A crash therefore leaves at worst an unreferenced blob,
// which the next start removes, never a record that points at half a file.
//
// All members are safe to call from several threads; one mutex serialises the database.
#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "core/platform.h"
#include "brume/brumewire.h"
#include "brume/query/brumequery.h"

struct sqlite3;

struct BrumeAccount_t
{
	uint64 m_ulID = 0;
	std::string m_sPersona;
};

struct BrumeChangeNote_t
{
	uint32 m_rtime = 0;
	std::string m_sNote;
};

struct BrumeBlob_t
{
	uint64 m_hHandle = 0;
	uint64 m_nPublishedFileId = 0;
	uint64 m_ulOwner = 0;
	uint32 m_nAppID = 0;
	std::string m_sName; // relative path inside the content folder, or the preview's file name
	int64 m_nSize = 0;
	std::string m_sRole; // "content" or "preview"
};

struct BrumeFileRecord_t
{
	uint64 m_nPublishedFileId = 0;
	uint64 m_ulCreator = 0;
	uint32 m_nAppID = 0;
	std::string m_sTitle;
	std::string m_sDescription;
	int32 m_eVisibility = 0;
	int32 m_eFileType = 0;
	uint32 m_rtimeCreated = 0;
	uint32 m_rtimeUpdated = 0;
	uint64 m_hFile = 0; // the main content blob, 0 when none
	std::string m_sFileName;
	int64 m_nFileSize = 0;
	uint64 m_hPreviewFile = 0;
	int64 m_nPreviewFileSize = 0;
	uint32 m_nVotesUp = 0;
	uint32 m_nVotesDown = 0;
	bool m_bBanned = false;
	bool m_bAccepted = false;
	std::vector<std::string> m_vecTags; // sorted
	std::vector<std::pair<std::string, std::string>> m_vecKeyValueTags;
	std::vector<uint64> m_vecChildren;
	std::vector<uint64> m_vecContributors; // ascending
	std::vector<BrumeBlob_t> m_vecContent; // every file of the content folder
};

// A file of an update, already written whole and flushed under a temporary name in the blob
// folder (CBrumeStore::IncomingPath); the store takes it over under a handle of its own.
struct BrumeIncomingBlob_t
{
	std::string m_sName; // path inside the content folder, or the preview's file name
	std::string m_sPath;
	int64 m_nSize = 0;
};

// One change submitted by an owner; members left unset are not changed.
struct BrumeFileUpdate_t
{
	bool m_bSetTitle = false, m_bSetDescription = false, m_bSetVisibility = false, m_bSetTags = false,
		 m_bSetKeyValueTags = false;
	std::string m_sTitle, m_sDescription;
	int32 m_eVisibility = 0;
	std::vector<std::string> m_vecTags;
	std::vector<std::pair<std::string, std::string>> m_vecKeyValueTags;
	// New content folder (replaces the old one entirely when m_bSetContent) and preview.
	bool m_bSetContent = false;
	std::vector<BrumeIncomingBlob_t> m_vecContent;
	bool m_bSetPreview = false;
	BrumeIncomingBlob_t m_Preview;
	std::string m_sChangeNote;
	uint32 m_rtimeNow = 0;
};

class CBrumeStore
{
public:
	CBrumeStore() = default;
	~CBrumeStore();
	CBrumeStore(const CBrumeStore &) = delete;
	CBrumeStore &operator=(const CBrumeStore &) = delete;

	// Opens or creates the store under the folder; false with a message when that fails.
	bool Open(const std::string &dataDir, std::string &error);

	// The name an account gets when it is created without one: "Account N", N its low 32 bits.
	static std::string DefaultPersona(uint64 id);
	bool EnsureAccount(uint64 id, const std::string &persona);
	bool GetAccount(uint64 id, BrumeAccount_t &out);

	// New file owned by `creator`; returns its id, or 0 on failure.
	uint64 CreateFile(uint64 creator, uint32 appId, int32 fileType, uint32 now);
	// BRUME_RESULT_OK, _FILE_NOT_FOUND, _ACCESS_DENIED or _FAIL. The creator may change everything;
	// a contributor only the content, with a change note (anything else is _ACCESS_DENIED and
	// changes nothing).
	int UpdateFile(uint64 id, uint64 caller, const BrumeFileUpdate_t &update, std::string &error);
	// A fresh temporary name in the blob folder for a file of an update that is being received.
	std::string IncomingPath();
	// Only the creator may delete a file; its contributors go with it.
	int DeleteFile(uint64 id, uint64 caller);
	bool GetFile(uint64 id, BrumeFileRecord_t &out);
	// Ids of the files of one creator, oldest first, a page of them; `total` is the whole count.
	// With `bShared` the files that list `creator` among their contributors count as well.
	// Files that carry every tag of `required` and none of `excluded` count.
	bool ListFiles(uint64 creator, bool bShared, uint32 start, uint32 count, const std::vector<std::string> &required,
		const std::vector<std::string> &excluded, std::vector<uint64> &ids, uint32 &total);
	// Ids of every file the caller may see (public ones and the caller's own), oldest first.
	// What the search looks at of every file the caller may see (public ones, the caller's own and
	// those the caller co-authors), oldest first, read in one pass.
	bool ListVisibleSearchRecords(uint64 caller, std::vector<std::pair<uint64, BrumeQueryRecord_t>> &out);
	// Newest first; false when there is no such file.
	bool GetChangeNotes(uint64 id, std::vector<BrumeChangeNote_t> &out);
	int AddChild(uint64 id, uint64 child, uint64 caller);
	// Adds `account` to the contributors of a file, or removes it with `bRemove`; only the creator
	// may. The creator itself and account 0 are _INVALID_PARAM; an unknown account is created
	// under its default name.
	int AddContributor(uint64 id, uint64 account, uint64 caller, bool bRemove);
	int Vote(uint64 id, uint64 voter, bool bUp);
	// Moderation flags; only the service's own tools call this (no account check).
	int SetModeration(uint64 id, bool bBanned, bool bAccepted);

	bool GetBlob(uint64 handle, BrumeBlob_t &out);
	std::string BlobPath(uint64 handle) const;

	// Reserves a definition index for `account`; fills the holder's persona on BRUME_RESERVE_TAKEN.
	int ReserveIndex(uint32 index, uint64 account, int32 prefab, uint32 now, std::string &holder);
	bool MarkIndexOccupied(uint32 index);

private:
	bool Exec(const char *sql);
	bool LoadFileLocked(uint64 id, BrumeFileRecord_t &out);
	// BRUME_RESULT_OK when the file exists and `caller` made it; else not found or access denied.
	int CheckCreatorLocked(uint64 id, uint64 caller);
	uint64 AdoptBlobLocked(const BrumeIncomingBlob_t &blob, std::string &path, std::string &error);
	void SweepOrphansLocked();

	std::mutex m_Mutex;
	sqlite3 *m_pDB = nullptr;
	std::string m_sDataDir;
	uint64 m_nNextBlob = 1;
};
