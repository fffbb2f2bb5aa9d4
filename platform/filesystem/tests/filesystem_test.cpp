#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/keyvalues3.h"
#include "core/kv3text.h"
#include "core/pathutils.h"
#include "testsupport/pathnames.h"
#include "testsupport/test_support.h"
#include "filesystem/filesystem.h"

namespace
{
std::string ReadAll(const std::string &path)
{
	CUtlBuffer buffer;
	EXPECT_TRUE(Plat_ReadFile(path.c_str(), buffer)) << path;
	return std::string(buffer.View());
}

// A game tree with two folders for "GAME" (mod first) and a content folder.
class FileSystemTest : public testing::Test
{
protected:
	void SetUp() override
	{
		m_pFS = CreateFileSystem();
		m_Temp.Write("game/mod/scripts/items.txt", "mod items");
		m_Temp.Write("game/mod/only_mod.txt", "mod");
		m_Temp.Write("game/core/scripts/items.txt", "core items");
		m_Temp.Write("game/core/scripts/base.txt", "core base");
		m_Temp.Write("content/mod/models/a.fbx", "fbx");
		m_pFS->AddSearchPath(m_Temp.Path("game/core").c_str(), "GAME");
		m_pFS->AddSearchPath(m_Temp.Path("game/mod").c_str(), "GAME", PATH_ADD_TO_HEAD);
		m_pFS->AddSearchPath(m_Temp.Path("game/mod").c_str(), "MOD", PATH_ADD_TO_TAIL, true);
		m_pFS->AddSearchPath(m_Temp.Path("content/mod").c_str(), "CONTENT", PATH_ADD_TO_TAIL, true);
		m_pFS->AddSearchPath(m_Temp.Path("game/mod").c_str(), "DEFAULT_WRITE_PATH", PATH_ADD_TO_TAIL, true);
	}
	void TearDown() override { DestroyFileSystem(m_pFS); }

	std::string ReadThrough(const char *name, const char *pathID)
	{
		FileHandle_t file = m_pFS->Open(name, "rb", pathID);
		if (!file)
			return "<missing>";
		std::string text((size_t)m_pFS->Size(file), '\0');
		EXPECT_EQ((int)text.size(), m_pFS->Read(text.data(), (int)text.size(), file));
		m_pFS->Close(file);
		return text;
	}

	CTempDirectory m_Temp;
	IFileSystem *m_pFS = nullptr;
};
} // namespace

TEST_F(FileSystemTest, ReadsFindTheFirstFolderOfThePathIDThatHoldsTheFile)
{
	EXPECT_EQ("mod items", ReadThrough("scripts/items.txt", "GAME"));
	EXPECT_EQ("core base", ReadThrough("scripts\\base.txt", "GAME")); // backslashes are slashes
	EXPECT_EQ("<missing>", ReadThrough("scripts/base.txt", "MOD"));
	EXPECT_EQ("<missing>", ReadThrough("scripts/items.txt", "NOSUCHID"));
	EXPECT_EQ("fbx", ReadThrough("models/a.fbx", nullptr)); // every ID
	EXPECT_EQ("fbx", ReadThrough(m_Temp.Path("content/mod/models/a.fbx").c_str(), "GAME")); // absolute: as it stands

	char full[MAX_PATH];
	ASSERT_NE(nullptr, m_pFS->RelativePathToFullPath("scripts/base.txt", "GAME", full, sizeof(full)));
	EXPECT_EQ(m_Temp.Path("game/core/scripts/base.txt"), full);
	EXPECT_EQ(nullptr, m_pFS->RelativePathToFullPath("scripts/none.txt", "GAME", full, sizeof(full)));
	char relative[MAX_PATH];
	ASSERT_TRUE(m_pFS->FullPathToRelativePath(m_Temp.Path("content/mod/models/a.fbx").c_str(), "CONTENT", relative, sizeof(relative)));
	EXPECT_STREQ("models/a.fbx", relative);
	EXPECT_FALSE(m_pFS->FullPathToRelativePath("/elsewhere/a.fbx", "CONTENT", relative, sizeof(relative)));

	EXPECT_TRUE(m_pFS->FileExists("only_mod.txt", "GAME"));
	EXPECT_FALSE(m_pFS->FileExists("scripts", "GAME")); // a folder is no file
	EXPECT_TRUE(m_pFS->IsDirectory("scripts", "GAME"));
	EXPECT_EQ(9, m_pFS->Size("scripts/base.txt", "GAME"));
	EXPECT_EQ(-1, m_pFS->Size("scripts/none.txt", "GAME"));
}

TEST_F(FileSystemTest, SearchPathTextListsTheFoldersInOrder)
{
	char text[1024];
	const int needed = m_pFS->GetSearchPath("GAME", false, text, sizeof(text));
	const std::string expected = m_Temp.Path("game/mod/") + ";" + m_Temp.Path("game/core/");
	EXPECT_EQ(expected, text);
	EXPECT_EQ((int)expected.size() + 1, needed);
	char small[8];
	EXPECT_EQ(needed, m_pFS->GetSearchPath("GAME", false, small, sizeof(small)));
	EXPECT_EQ(7u, strlen(small)); // cut, and terminated

	// Adding a folder twice moves nothing; removal works by folder and ID.
	m_pFS->AddSearchPath(m_Temp.Path("game/core").c_str(), "GAME", PATH_ADD_TO_HEAD);
	m_pFS->GetSearchPath("GAME", false, text, sizeof(text));
	EXPECT_EQ(expected, text);
	EXPECT_TRUE(m_pFS->RemoveSearchPath(m_Temp.Path("game/mod").c_str(), "GAME"));
	EXPECT_EQ("core items", ReadThrough("scripts/items.txt", "GAME"));
	m_pFS->RemoveSearchPaths("GAME");
	EXPECT_EQ(1, m_pFS->GetSearchPath("GAME", false, text, sizeof(text)));
}

TEST_F(FileSystemTest, WritesGoToTheWritableFolderAndReplaceFilesWhole)
{
	FileHandle_t file = m_pFS->Open("scripts/items.txt", "wb", "GAME"); // GAME has no writable folder
	ASSERT_NE(nullptr, file);
	EXPECT_EQ(5, m_pFS->Write("first", 5, file));
	// Until the handle closes, the old file stands as it was.
	EXPECT_EQ("mod items", ReadAll(m_Temp.Path("game/mod/scripts/items.txt")));
	m_pFS->Close(file);
	EXPECT_EQ("first", ReadAll(m_Temp.Path("game/mod/scripts/items.txt"))); // via DEFAULT_WRITE_PATH
	EXPECT_EQ("core items", ReadAll(m_Temp.Path("game/core/scripts/items.txt")));

	file = m_pFS->Open("models/b.txt", "w", "CONTENT");
	ASSERT_NE(nullptr, file);
	m_pFS->Write("b", 1, file);
	m_pFS->Close(file);
	EXPECT_EQ("b", ReadAll(m_Temp.Path("content/mod/models/b.txt")));

	// Appending and updating change the file where it is.
	file = m_pFS->Open("models/b.txt", "ab", "CONTENT");
	m_pFS->Write("c", 1, file);
	m_pFS->Close(file);
	file = m_pFS->Open("models/b.txt", "r+b", "CONTENT");
	m_pFS->Seek(file, 1, FILESYSTEM_SEEK_HEAD);
	m_pFS->Write("X", 1, file);
	EXPECT_EQ(2, m_pFS->Tell(file));
	EXPECT_EQ(2, m_pFS->Size(file));
	m_pFS->Close(file);
	EXPECT_EQ("bX", ReadAll(m_Temp.Path("content/mod/models/b.txt")));

	// A write into a folder that does not exist fails and leaves nothing behind.
	EXPECT_EQ(nullptr, m_pFS->Open("missing/dir/x.txt", "wb", "CONTENT"));
	EXPECT_TRUE(m_pFS->CreateDirHierarchy("missing/dir", "CONTENT"));
	EXPECT_TRUE(m_pFS->IsDirectory(m_Temp.Path("content/mod/missing/dir").c_str()));
}

TEST_F(FileSystemTest, FailedWriteKeepsTheOldFile)
{
	// A file size limit makes writes fail half way, as a full disk would (for root too).
	m_Temp.Write("game/mod/keep.txt", "precious");
	signal(SIGXFSZ, SIG_IGN);
	struct rlimit previous;
	getrlimit(RLIMIT_FSIZE, &previous);
	struct rlimit limit = previous;
	limit.rlim_cur = 1024;
	setrlimit(RLIMIT_FSIZE, &limit);

	const std::string big(8192, 'x');
	FileHandle_t file = m_pFS->Open("keep.txt", "wb", "MOD");
	ASSERT_NE(nullptr, file);
	m_pFS->Write(big.data(), (int)big.size(), file);
	EXPECT_FALSE(m_pFS->IsOk(file));
	CCaptureLog log;
	m_pFS->Close(file);
	CUtlBuffer data;
	data.PutString(std::string_view(big));
	CUtlString error;
	EXPECT_FALSE(m_pFS->WriteFile("keep.txt", "MOD", data, &error));
	FSAsyncControl_t control = m_pFS->AsyncWrite("keep.txt", big.data(), (int64)big.size(), false, false, "MOD");
	EXPECT_EQ(FSASYNC_ERR_FAILURE, m_pFS->AsyncFinish(control, true));
	m_pFS->AsyncRelease(control);

	setrlimit(RLIMIT_FSIZE, &previous);
	EXPECT_EQ("precious", ReadAll(m_Temp.Path("game/mod/keep.txt")));
	EXPECT_NE(std::string::npos, error.find("keep.txt: write failed")) << error;
	EXPECT_NE(std::string::npos, log.m_Text.find("Failed to write")) << log.m_Text;
	// No temporary file is left beside it.
	FileFindHandle_t handle;
	int names = 0;
	for (const char *name = m_pFS->FindFirstEx("keep.txt*", "MOD", &handle); name; name = m_pFS->FindNext(handle))
		++names;
	m_pFS->FindClose(handle);
	EXPECT_EQ(1, names);
}

TEST_F(FileSystemTest, FileAttributesRenameRemoveAndCopy)
{
	const int64 time = m_pFS->GetFileTime("scripts/items.txt", "GAME");
	EXPECT_GT(time, 1600000000);
	EXPECT_EQ(0, m_pFS->GetFileTime("scripts/none.txt", "GAME"));

	EXPECT_TRUE(m_pFS->IsFileWritable("only_mod.txt", "MOD"));
	EXPECT_TRUE(m_pFS->SetFileWritable("only_mod.txt", false, "MOD"));
	struct stat info;
	ASSERT_EQ(0, stat(m_Temp.Path("game/mod/only_mod.txt").c_str(), &info));
	EXPECT_EQ(0u, info.st_mode & 0222);
	EXPECT_TRUE(m_pFS->SetFileWritable("only_mod.txt", true, "MOD"));

	EXPECT_TRUE(m_pFS->CopyFile("only_mod.txt", "copy.txt", "MOD"));
	EXPECT_EQ("mod", ReadAll(m_Temp.Path("game/mod/copy.txt")));
	EXPECT_TRUE(m_pFS->RenameFile("copy.txt", "renamed.txt", "MOD"));
	EXPECT_FALSE(m_pFS->FileExists("copy.txt", "MOD"));
	EXPECT_TRUE(m_pFS->FileExists("renamed.txt", "MOD"));
	EXPECT_TRUE(m_pFS->RemoveFile("renamed.txt", "MOD"));
	EXPECT_FALSE(m_pFS->RemoveFile("renamed.txt", "MOD"));
	EXPECT_FALSE(m_pFS->RenameFile("renamed.txt", "again.txt", "MOD"));
}

TEST_F(FileSystemTest, FindListsNamesOnceAcrossFolders)
{
	m_Temp.Write("game/mod/scripts/.hidden", "x");
	m_Temp.Write("game/mod/scripts/sub/inner.txt", "x");
	m_Temp.Write("game/core/scripts/noext", "x");
	FileFindHandle_t handle;
	std::vector<std::pair<std::string, bool>> found;
	for (const char *name = m_pFS->FindFirstEx("scripts\\*.*", "GAME", &handle); name; name = m_pFS->FindNext(handle))
		found.emplace_back(name, m_pFS->FindIsDirectory(handle));
	m_pFS->FindClose(handle);
	// Each folder's names in byte order, the mod folder first; items.txt once.
	const std::vector<std::pair<std::string, bool>> expected = {
		{ ".hidden", false }, { "items.txt", false }, { "sub", true }, { "base.txt", false }, { "noext", false },
	};
	EXPECT_EQ(expected, found);

	std::set<std::string> texts;
	for (const char *name = m_pFS->FindFirst((m_Temp.Path("game/core/scripts") + "/*.t?t").c_str(), &handle); name; name = m_pFS->FindNext(handle))
		texts.insert(name);
	m_pFS->FindClose(handle);
	EXPECT_EQ((std::set<std::string>{ "base.txt", "items.txt" }), texts);

	EXPECT_EQ(nullptr, m_pFS->FindFirstEx("nowhere/*.*", "GAME", &handle));
	EXPECT_EQ(FILESYSTEM_INVALID_FIND_HANDLE, handle);
	EXPECT_EQ(nullptr, m_pFS->FindNext(handle));
}

TEST_F(FileSystemTest, AsyncWritesFinishAbortAndFail)
{
	std::string big(4 << 20, 'z');
	FSAsyncControl_t control = m_pFS->AsyncWrite("downloads/file.bin", big.data(), (int64)big.size(), false, false, "DEFAULT_WRITE_PATH");
	big.assign(big.size(), 'y'); // the data was copied
	EXPECT_EQ(FSASYNC_ERR_FAILURE, m_pFS->AsyncFinish(control, true)); // no such folder yet
	m_pFS->AsyncRelease(control);

	ASSERT_TRUE(m_pFS->CreateDirHierarchy("downloads", "DEFAULT_WRITE_PATH"));
	char *owned = static_cast<char *>(malloc(3));
	memcpy(owned, "abc", 3);
	control = m_pFS->AsyncWrite("downloads/file.bin", owned, 3, true, false, "DEFAULT_WRITE_PATH");
	while (!m_pFS->AsyncIsDone(control))
		std::this_thread::yield();
	EXPECT_EQ(FSASYNC_OK, m_pFS->AsyncFinish(control, false));
	m_pFS->AsyncRelease(control);
	EXPECT_EQ("abc", ReadAll(m_Temp.Path("game/mod/downloads/file.bin")));

	control = m_pFS->AsyncWrite("downloads/file.bin", "def", 3, false, true, "DEFAULT_WRITE_PATH");
	EXPECT_EQ(FSASYNC_OK, m_pFS->AsyncFinish(control, true));
	m_pFS->AsyncRelease(control);
	EXPECT_EQ("abcdef", ReadAll(m_Temp.Path("game/mod/downloads/file.bin")));

	// Many queued writes: the ones aborted before they start are never written.
	std::vector<FSAsyncControl_t> controls;
	for (int i = 0; i < 50; ++i)
	{
		const std::string name = "downloads/f" + std::to_string(i);
		controls.push_back(m_pFS->AsyncWrite(name.c_str(), big.data(), (int64)big.size(), false, false, "DEFAULT_WRITE_PATH"));
	}
	const FSAsyncStatus_t aborted = m_pFS->AsyncAbort(controls.back());
	for (FSAsyncControl_t c : controls)
	{
		const FSAsyncStatus_t status = m_pFS->AsyncFinish(c, true);
		EXPECT_TRUE(status == FSASYNC_OK || (c == controls.back() && status == FSASYNC_STATUS_ABORTED));
		m_pFS->AsyncRelease(c);
	}
	EXPECT_EQ(aborted == FSASYNC_STATUS_ABORTED, !m_pFS->FileExists("downloads/f49", "DEFAULT_WRITE_PATH"));
}

TEST_F(FileSystemTest, DocumentLoadersReadThroughTheInstalledFileSystem)
{
	m_Temp.Write("game/core/scripts/doc.kv3", KV3HeaderLine(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC) + "\n{ where = \"core\" }\n");
	IBaseFileSystem *previous = SetCoreFileSystem(m_pFS);
	CKeyValues3Context context;
	CUtlString error;
	EXPECT_TRUE(LoadKV3FromFile(&context, &error, "scripts/doc.kv3", "GAME", KV3_FORMAT_GENERIC)) << error;
	EXPECT_STREQ("core", GetMemberString(context.Root(), "where"));
	EXPECT_FALSE(LoadKV3FromFile(&context, &error, "scripts/doc.kv3", "CONTENT", KV3_FORMAT_GENERIC));
	EXPECT_NE(std::string::npos, error.find("not found in search path \"CONTENT\"")) << error;
	SetCoreFileSystem(previous);
}

// A name resolved under a search path stays inside it: the names that climb out, are absolute
// or otherwise hostile are refused for reading and for writing alike.
TEST_F(FileSystemTest, NamesUnderASearchPathFollowThePathRule)
{
	const std::string game = m_Temp.Path("game/mod/");
	m_Temp.Write("game/secret.txt", "outside");
	for (const PathRuleName_t &name : HostilePathNames())
	{
		char full[8192];
		EXPECT_EQ(m_pFS->RelativePathToFullPath(name.name.c_str(), "GAME", full, sizeof(full)), nullptr) << name.what << ": " << full;
		CUtlString write;
		if (!V_IsAbsolutePath(name.name)) // an absolute name is the caller's own path for writes
		{
			EXPECT_FALSE(m_pFS->GetWritePath(name.name.c_str(), "GAME", write)) << name.what << ": " << write;
		}
	}
	for (const PathRuleName_t &name : LegitimatePathNames())
	{
		m_Temp.Write("game/mod/" + PathRuleLanding(name.name), "inside");
		char full[8192];
		ASSERT_NE(m_pFS->RelativePathToFullPath(name.name.c_str(), "GAME", full, sizeof(full)), nullptr) << name.what;
		EXPECT_EQ(std::string(full), game + PathRuleLanding(name.name)) << name.what;
		EXPECT_EQ(ReadThrough(name.name.c_str(), "GAME"), "inside") << name.what;
		CUtlString write;
		ASSERT_TRUE(m_pFS->GetWritePath(name.name.c_str(), "GAME", write)) << name.what;
		EXPECT_EQ(write, game + PathRuleLanding(name.name)) << name.what;
	}
	EXPECT_EQ(ReadThrough("../secret.txt", "GAME"), "<missing>");
	EXPECT_FALSE(m_pFS->FileExists("../secret.txt", "GAME"));
}
