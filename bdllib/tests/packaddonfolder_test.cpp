// PackAddonFolder: the walk, what it leaves out, what it refuses, the existing pack, and the
// fatal read errors.
#include <filesystem>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

#include "bdl_test_support.h"
#include "bdllib/packaddonfolder.h"
#include "core/logging.h"

namespace
{
std::vector<std::string> PackedNames(const std::string &pack)
{
	CTestFileSystem fs;
	CPackedStore store(pack.c_str(), fs.Get(), 0);
	CUtlVector<PackedStoreFileInfo_t> files;
	store.GetFileList(files);
	std::vector<std::string> names;
	for (const PackedStoreFileInfo_t &file : files)
		names.push_back(file.m_Name);
	return names;
}

std::vector<std::string> Sorted(std::vector<std::string> names)
{
	std::sort(names.begin(), names.end());
	return names;
}
} // namespace

TEST(PackAddonFolder, EmbedsEveryFileUnderItsRelativeName)
{
	CTempDirectory dir;
	const std::string addon = dir.Path("addon");
	dir.Write("addon/a.txt", "alpha");
	dir.Write("addon/noext", "plain");
	dir.Write("addon/sub/B.txt", "bravo");
	std::string big(200000, 'z');
	big[1234] = 'q';
	dir.Write("addon/sub/deeper/c.bin", big);
	const std::string pack = dir.Path("addon.bdl");

	CTestFileSystem fs;
	ASSERT_TRUE(PackAddonFolder(addon.c_str(), pack.c_str(), fs.Get()));

	// The walk goes in name order, and the tree holds the newest first.
	EXPECT_EQ(PackedNames(pack), (std::vector<std::string>{ "sub/deeper/c.bin", "noext", "sub/b.txt", "a.txt" }));
	CPackedStore store(pack.c_str(), fs.Get(), 0);
	EXPECT_EQ(store.GetVersion(), 2);
	EXPECT_FALSE(store.IsMultiChunk());
	EXPECT_EQ(store.GetHighestChunk(), -1);
	CUtlVector<PackedStoreFileInfo_t> files;
	store.GetFileList(files);
	for (const PackedStoreFileInfo_t &file : files)
	{
		EXPECT_EQ(file.m_nPreloadSize, 0) << file.m_Name;
		ASSERT_EQ(file.m_Fragments.size(), 1u);
		EXPECT_EQ(file.m_Fragments[0].m_nArchiveIndex, PACKEDSTORE_EMBEDDED_INDEX) << file.m_Name;
	}
	EXPECT_EQ(ReadPacked(store, "a.txt"), "alpha");
	EXPECT_EQ(ReadPacked(store, "noext"), "plain");
	EXPECT_EQ(ReadPacked(store, "sub/b.txt"), "bravo");
	EXPECT_EQ(ReadPacked(store, "sub/deeper/c.bin"), big);
	for (const auto &entry : std::filesystem::directory_iterator(dir.Path()))
		EXPECT_EQ(entry.path().string().find("_000.bdl"), std::string::npos) << entry.path();
}

TEST(PackAddonFolder, LeavesOutDotNamesCachesAndExcludedFolders)
{
	CTempDirectory dir;
	const std::string addon = dir.Path("addon");
	dir.Write("addon/keep.txt", "keep");
	dir.Write("addon/.git/config", "git");
	dir.Write("addon/.hidden", "hidden");
	dir.Write("addon/sub/.env", "env");
	dir.Write("addon/Tools_Asset_Info.bin", "cache");
	dir.Write("addon/deep/x/y/TOOLS_ASSET_INFO.BIN", "cache");
	dir.Write("addon/deep/readonly_tools_asset_info.bin", "cache");
	dir.Write("addon/deep/x/Tools_Thumbnail_Cache.bin", "cache");
	dir.Write("addon/deep/x/kept.txt", "kept");
	dir.Write("addon/_vrad3/top.dat", "baked");
	dir.Write("addon/deep/x/_VRAD3/lightmap.dat", "baked");
	dir.Write("addon/deep/_BakeResourceCache/x.txt", "baked");
	dir.Write("addon/maps/_vrad3", "a file of that name is packed");
	const std::string pack = dir.Path("addon.bdl");

	CCaptureLog log;
	ASSERT_TRUE(PackAddonFolder(addon.c_str(), pack.c_str()));
	EXPECT_EQ(Sorted(PackedNames(pack)), (std::vector<std::string>{ "deep/x/kept.txt", "keep.txt", "maps/_vrad3" }));
	EXPECT_EQ(log.m_Text, "");
}

TEST(PackAddonFolder, RefusesExecutableAndArchiveTypesAnywhereInThePath)
{
	CTempDirectory dir;
	const std::string addon = dir.Path("addon");
	dir.Write("addon/ok.txt", "ok");
	for (const char *name : { "setup.EXE", "notes.com.txt", "file.bat.txt", "x.com/inner.txt", "lib.Dll", "run.cmd", "data.RAR", "keys.reg",
			 "archive.zip" })
		dir.Write(std::string("addon/") + name, "refused");
	const std::string pack = dir.Path("addon.bdl");

	CCaptureLog log;
	ASSERT_TRUE(PackAddonFolder(addon.c_str(), pack.c_str()));
	EXPECT_EQ(PackedNames(pack), (std::vector<std::string>{ "ok.txt" }));
	for (const char *name : { "setup.EXE", "notes.com.txt", "file.bat.txt", "x.com\\inner.txt", "lib.Dll", "run.cmd", "data.RAR", "keys.reg",
			 "archive.zip" })
	{
		const std::string warning = "Ignoring " + addon + "\\" + name + ": unsupported file type.\n";
		EXPECT_NE(log.m_Text.find(warning), std::string::npos) << warning << "\n" << log.m_Text;
	}
	EXPECT_EQ(log.m_LastSeverity, LS_WARNING);
}

TEST(PackAddonFolder, EmptyFolderGivesAnEmptyPack)
{
	CTempDirectory dir;
	std::filesystem::create_directories(dir.Path("empty"));
	const std::string pack = dir.Path("empty.bdl");
	ASSERT_TRUE(PackAddonFolder(dir.Path("empty").c_str(), pack.c_str()));
	const std::string bytes = ReadAll(pack);
	const std::string before = HeaderV2(1, 0, 0, 48, 0) + Z("") + std::string(32, '\0');
	EXPECT_EQ(bytes, before + Md5Of(before));
}

TEST(PackAddonFolder, ExistingPackIsReplaced)
{
	CTempDirectory dir;
	dir.Write("addon/new.txt", "new");
	const std::string pack = dir.Path("addon.bdl");
	{
		CTestFileSystem fs;
		CPackedStore old(pack.c_str(), fs.Get(), PACKEDSTORE_FLAG_READ_EMBEDDED | PACKEDSTORE_FLAG_WRITABLE);
		old.AddFile("old.txt", 0, "old", 3, false);
		ASSERT_TRUE(old.Write());
	}
	ASSERT_TRUE(PackAddonFolder(dir.Path("addon").c_str(), pack.c_str()));
	EXPECT_EQ(PackedNames(pack), (std::vector<std::string>{ "new.txt" }));
}

TEST(PackAddonFolder, ReadOnlyExistingPackFails)
{
	CTempDirectory dir;
	dir.Write("addon/a.txt", "a");
	const std::string pack = dir.Write("addon.bdl", "the old pack");
	CFaultFileSystem fs;
	fs.m_ReadOnly = "addon.bdl";
	CCaptureLog log;
	EXPECT_FALSE(PackAddonFolder(dir.Path("addon").c_str(), pack.c_str(), &fs));
	EXPECT_EQ(log.m_Text, "Aborting - cannot delete file: " + pack + "\n");
	EXPECT_EQ(ReadAll(pack), "the old pack");
}

TEST(PackAddonFolder, ReadOnlyExistingPackFailsOnDisk)
{
	if (geteuid() == 0)
		GTEST_SKIP() << "root may write to read-only files; the file system double above covers this case";
	CTempDirectory dir;
	dir.Write("addon/a.txt", "a");
	const std::string pack = dir.Write("addon.bdl", "the old pack");
	std::filesystem::permissions(pack, std::filesystem::perms::owner_read);
	CCaptureLog log;
	EXPECT_FALSE(PackAddonFolder(dir.Path("addon").c_str(), pack.c_str()));
	EXPECT_EQ(log.m_Text, "Aborting - cannot delete file: " + pack + "\n");
	std::filesystem::permissions(pack, std::filesystem::perms::owner_all);
}

TEST(PackAddonFolder, UnwritablePackFails)
{
	CTempDirectory dir;
	dir.Write("addon/a.txt", "a");
	const std::string pack = dir.Path("no/such/folder/addon.bdl");
	CCaptureLog log;
	EXPECT_FALSE(PackAddonFolder(dir.Path("addon").c_str(), pack.c_str()));
	EXPECT_NE(log.m_Text.find("Aborting - cannot write to BDL: " + pack + "\n"), std::string::npos) << log.m_Text;
}

TEST(PackAddonFolder, LinkLoopsEndAndThePackIsNotPackedIntoItself)
{
	CTempDirectory dir;
	const std::string addon = dir.Path("addon");
	dir.Write("addon/sub/file.txt", "once");
	std::filesystem::create_directory_symlink("..", addon + "/sub/loop");
	const std::string pack = dir.Write("addon/addon.bdl", "an older pack inside the folder");
	CCaptureLog log;
	ASSERT_TRUE(PackAddonFolder(addon.c_str(), pack.c_str()));
	EXPECT_EQ(PackedNames(pack), (std::vector<std::string>{ "sub/file.txt" }));
	EXPECT_NE(log.m_Text.find("leads back into a folder being packed"), std::string::npos) << log.m_Text;
}

// Death tests fork where the statement runs (the default style): the child ends in the fatal
// error, and the parent's temporary folder is still removed by the parent.
class PackAddonFolderDeathTest : public ::testing::Test
{
};

TEST_F(PackAddonFolderDeathTest, UnreadableFilesAreFatal)
{
	CTempDirectory dir;
	dir.Write("addon/a.txt", "fine");
	dir.Write("addon/secret.txt", "cannot be opened");
	dir.Write("addon/short.txt", "12345");
	const std::string addon = dir.Path("addon");
	const std::string pack = dir.Path("addon.bdl");
	auto PackWith = [&](const char *failOpen, const char *shortRead) {
		CFaultFileSystem fs;
		if (failOpen)
			fs.m_FailOpen = failOpen;
		if (shortRead)
			fs.m_ShortRead = shortRead;
		PackAddonFolder(addon.c_str(), pack.c_str(), &fs);
		exit(0);
	};
	EXPECT_EXIT(PackWith("secret.txt", nullptr), ::testing::ExitedWithCode(1), "error opening required file .*addon\\\\secret\\.txt");
	EXPECT_EXIT(PackWith(nullptr, "short.txt"), ::testing::ExitedWithCode(1), "FileSystem: Failed to read.*Failed to read 5 bytes");
	EXPECT_EXIT(PackWith("nothing", nullptr), ::testing::ExitedWithCode(0), "");
}
