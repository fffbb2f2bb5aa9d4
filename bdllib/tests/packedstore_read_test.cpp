// CPackedStore as a reader of packs built by hand: versions 0, 1 and 2, chunk hashes, self
// hashes, the signature block, entries with any number of fragments, odd but valid trees, and
// every fatal message for a damaged pack.
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "bdl_test_support.h"
#include "core/logging.h"
#include "core/strtools.h"

namespace
{
const int kWritable = PACKEDSTORE_FLAG_READ_EMBEDDED | PACKEDSTORE_FLAG_WRITABLE;

std::string Tree(CPackedStore &store)
{
	CUtlVector<uint8> tree;
	store.GetDirectoryTree(tree);
	return std::string(tree.begin(), tree.end());
}

uint32 Crc(const std::string &data)
{
	return CRC32_ProcessSingleBuffer(data.data(), data.size());
}

// Two files in the embedded data: "a.txt" = "AAAA" and "sub/b.txt" = "BBB".
std::string TwoFileTree()
{
	return Z("txt") + Z("sub") + Z("b") + EmbeddedEntry("BBB", 4) + Z("") + Z(" ") + Z("a") + EmbeddedEntry("AAAA", 0) + Z("") + Z("") + Z("");
}
} // namespace

TEST(PackedStoreRead, VersionZeroIsABareTree)
{
	CTestFileSystem fs;
	CTempDirectory dir;
	const std::string tree = Z("txt") + Z("dir") + Z("a") + Entry(Crc("hello"), { { 3, 100, 5 } }) + Z("") + Z("") + Z("");
	WriteAll(dir.Path("bare.bdl"), tree);
	WriteAll(dir.Path("bare_003.bdl"), std::string(100, '.') + "hello");
	for (int flags : { 0, kWritable })
	{
		CPackedStore store(dir.Path("bare.bdl").c_str(), fs.Get(), flags);
		EXPECT_EQ(store.GetVersion(), 0);
		EXPECT_EQ(store.GetTreeSize(), tree.size());
		EXPECT_EQ(store.GetFileCount(), 1);
		EXPECT_EQ(store.GetHighestChunk(), 3);
		EXPECT_EQ(store.GetWriteChunk(), 4);
		EXPECT_EQ(Tree(store), tree);
		EXPECT_EQ(ReadPacked(store, "dir/a.txt"), "hello");
		bool bHasHash = true;
		EXPECT_TRUE(store.VerifySelfHash(&bHasHash, nullptr));
		EXPECT_FALSE(bHasHash);
	}
}

TEST(PackedStoreRead, VersionOne)
{
	CTestFileSystem fs;
	CTempDirectory dir;
	const std::string tree = TwoFileTree();
	const std::string path = dir.Path("v1.bdl");
	WriteAll(path, HeaderV1(tree.size()) + tree + "AAAABBB");
	for (int flags : { 0, kWritable })
	{
		CPackedStore store(path.c_str(), fs.Get(), flags);
		EXPECT_EQ(store.GetVersion(), 1);
		EXPECT_EQ(store.GetEmbeddedDataSize(), 7u); // file size minus tree size minus 12
		EXPECT_EQ(store.GetSelfHashesSize(), 0u);
		EXPECT_EQ(Tree(store), tree);
		EXPECT_EQ(ReadPacked(store, "a.txt"), "AAAA");
		EXPECT_EQ(ReadPacked(store, "sub/b.txt"), "BBB");
	}
	{
		// Written again it becomes version 2 with the same tree and data.
		CPackedStore store(path.c_str(), fs.Get(), kWritable);
		ASSERT_TRUE(store.Write());
	}
	const std::string before = HeaderV2(tree.size(), 7, 0, 48, 0) + tree + "AAAABBB" + std::string(32, '\0');
	EXPECT_EQ(ReadAll(path), before + Md5Of(before));
}

TEST(PackedStoreRead, VersionTwoWithEveryBlock)
{
	CTestFileSystem fs;
	CTempDirectory dir;
	const std::string tree = TwoFileTree();
	const std::string chunkHashes(20, 'c');
	const std::string firstTwo = std::string(16, '\x11') + std::string(16, '\x22');
	const std::string signature = Le32(3) + "KEY" + Le32(9) + "SIGNATURE";
	const std::string prefix = HeaderV2(tree.size(), 7, chunkHashes.size(), 48, signature.size()) + tree + "AAAABBB" + chunkHashes + firstTwo;
	const std::string path = dir.Path("v2.bdl");
	WriteAll(path, prefix + Md5Of(prefix) + signature);

	CPackedStore store(path.c_str(), fs.Get(), 0);
	EXPECT_EQ(store.GetVersion(), 2);
	EXPECT_EQ(store.GetChunkHashesSize(), 20u);
	EXPECT_EQ(store.GetSignatureSize(), signature.size());
	EXPECT_EQ(std::string(reinterpret_cast<const char *>(store.GetTreeHash().bits), 16), std::string(16, '\x11'));
	EXPECT_EQ(std::string(reinterpret_cast<const char *>(store.GetChunkHashesHash().bits), 16), std::string(16, '\x22'));
	EXPECT_EQ(std::string(reinterpret_cast<const char *>(store.GetFileHash().bits), 16), Md5Of(prefix));
	EXPECT_EQ(std::string(store.GetSignaturePublicKey().begin(), store.GetSignaturePublicKey().end()), "KEY");
	EXPECT_EQ(std::string(store.GetSignature().begin(), store.GetSignature().end()), "SIGNATURE");
	EXPECT_EQ(ReadPacked(store, "a.txt"), "AAAA");
	EXPECT_EQ(ReadPacked(store, "sub/b.txt"), "BBB");
	bool bHasHash = false;
	CUtlString error;
	EXPECT_TRUE(store.VerifySelfHash(&bHasHash, &error)) << error;
	EXPECT_TRUE(bHasHash);

	// A changed byte under the hash is found.
	const std::string damagedPath = dir.Path("damaged.bdl");
	WriteAll(damagedPath, HeaderV2(tree.size(), 7, chunkHashes.size(), 48, signature.size()) + tree + "AAAABBX" + chunkHashes + firstTwo +
			Md5Of(prefix) + signature);
	CPackedStore bad(damagedPath.c_str(), fs.Get(), 0);
	EXPECT_FALSE(bad.VerifySelfHash(&bHasHash, &error));
	EXPECT_NE(error.find("MD5 self hash mismatch"), std::string::npos) << error;
}

TEST(PackedStoreRead, SelfHashesOfAnotherSizeAreNotRead)
{
	CTestFileSystem fs;
	CTempDirectory dir;
	const std::string tree = TwoFileTree();
	const std::string path = dir.Path("odd.bdl");
	WriteAll(path, HeaderV2(tree.size(), 7, 0, 16, 0) + tree + "AAAABBB" + std::string(16, 'q'));
	CPackedStore store(path.c_str(), fs.Get(), kWritable);
	EXPECT_EQ(store.GetSelfHashesSize(), 16u);
	EXPECT_EQ(std::string(reinterpret_cast<const char *>(store.GetTreeHash().bits), 16), std::string(16, '\0'));
	EXPECT_EQ(ReadPacked(store, "a.txt"), "AAAA");
}

TEST(PackedStoreRead, FragmentsAndPreload)
{
	CTestFileSystem fs;
	CTempDirectory dir;
	const std::string whole = "PREabcdefgh";
	const std::string tree = Z("bin") + Z(" ") + Z("multi") + Entry(Crc(whole), { { 0x7FFF, 0, 3 }, { 2, 4, 3 }, { 5, 0, 2 } }, "PRE") +
		Z("none") + Entry(0, {}) + Z("") + Z("") + Z("");
	const std::string base = dir.Path("frag");
	WriteAll(base + "_dir.bdl", HeaderV1(tree.size()) + tree + "abc");
	WriteAll(base + "_002.bdl", "xxxxdef");
	WriteAll(base + "_005.bdl", "gh");
	{
		CPackedStore store((base + ".bdl").c_str(), fs.Get(), kWritable);
		EXPECT_TRUE(store.IsMultiChunk());
		EXPECT_EQ(store.GetHighestChunk(), 5);
		PackedStoreFileInfo_t info;
		ASSERT_TRUE(store.FindFile("multi.bin", info));
		EXPECT_EQ(info.m_Fragments.size(), 3u);
		EXPECT_EQ(info.m_nTotalSize, whole.size());
		EXPECT_EQ(ReadPacked(store, "multi.bin"), whole);
		ASSERT_TRUE(store.FindFile("none.bin", info));
		EXPECT_EQ(info.m_Fragments.size(), 0u);
		EXPECT_EQ(ReadPacked(store, "none.bin"), "");
		EXPECT_EQ(Tree(store), tree);
		ASSERT_TRUE(store.Write()); // entries keep their fragments
	}
	CPackedStore back(base.c_str(), fs.Get(), 0);
	EXPECT_EQ(Tree(back), tree);
	EXPECT_EQ(ReadPacked(back, "multi.bin"), whole);
}

TEST(PackedStoreRead, OddButValidTrees)
{
	CTestFileSystem fs;
	CTempDirectory dir;
	// An extension without folders, a folder without files, the longest names, bytes after the
	// last terminator: all kept exactly.
	const std::string longExtension(128, 'e');
	const std::string longBase(260, 'b');
	const std::string tree = Z("vtex") + Z("") + Z("txt") + Z("empty") + Z("") + Z(" ") + Z(longBase) + EmbeddedEntry("", 0) + Z("") + Z("") +
		Z(longExtension) + Z(" ") + Z("x") + EmbeddedEntry("", 0) + Z("") + Z("") + Z("") + "TAIL";
	const std::string path = dir.Path("odd.bdl");
	WriteAll(path, tree);
	{
		CPackedStore store(path.c_str(), fs.Get(), kWritable);
		EXPECT_EQ(store.GetFileCount(), 2);
		EXPECT_EQ(Tree(store), tree);
		EXPECT_EQ(ReadPacked(store, (longBase + ".txt").c_str()), "");
		EXPECT_EQ(ReadPacked(store, ("x." + longExtension).c_str()), "");
		ASSERT_TRUE(store.Write());
	}
	CPackedStore back(path.c_str(), fs.Get(), 0);
	EXPECT_EQ(back.GetVersion(), 2);
	EXPECT_EQ(Tree(back), tree);
}

TEST(PackedStoreRead, DuplicateNamesFindTheFirstInTheTree)
{
	CTestFileSystem fs;
	CTempDirectory dir;
	for (int count : { 1, 70 })
	{
		SCOPED_TRACE(count);
		// "dup.txt" twice in one folder, among `count` other files; and the folder twice.
		std::string files = Z("dup") + EmbeddedEntry("first", 0);
		for (int i = 0; i < count; ++i)
			files += Z(V_Format("f%d", i)) + EmbeddedEntry("", 0);
		files += Z("dup") + EmbeddedEntry("second", 5);
		const std::string tree = Z("txt") + Z("d") + files + Z("") + Z("d") + Z("dup") + EmbeddedEntry("third", 11) + Z("") + Z("") + Z("");
		const std::string path = dir.Path(V_Format("dup%d.bdl", count));
		WriteAll(path, HeaderV1(tree.size()) + tree + "firstsecondthird");
		CPackedStore store(path.c_str(), fs.Get(), kWritable);
		EXPECT_EQ(ReadPacked(store, "d/dup.txt"), "first");
		// Replacing cuts the one found; the new entry is then the one found.
		EXPECT_EQ(store.AddFile("d/dup.txt", 0, "new", 3, false), EPADD_UPDATEFILE);
		EXPECT_EQ(ReadPacked(store, "d/dup.txt"), "new");
	}
}

TEST(PackedStoreRead, DamagedFragmentsAreReportedNotFatal)
{
	CTestFileSystem fs;
	CTempDirectory dir;
	const std::string tree = Z("txt") + Z(" ") + Z("far") + Entry(1, { { 0x7FFF, 5, 100 } }) + Z("huge") + Entry(1, { { 0x7FFF, 0xFFFFFFF0u, 0x20 } }) +
		Z("") + Z("") + Z("");
	const std::string path = dir.Path("dmg.bdl");
	WriteAll(path, HeaderV1(tree.size()) + tree + "0123456789");
	for (int flags : { 0, kWritable })
	{
		CPackedStore store(path.c_str(), fs.Get(), flags);
		for (const char *name : { "far.txt", "huge.txt" })
		{
			PackedStoreFileInfo_t info;
			ASSERT_TRUE(store.FindFile(name, info));
			CUtlBuffer data;
			CUtlString error;
			EXPECT_FALSE(store.ReadFileData(info, data, &error));
			EXPECT_NE(error.find("past the embedded data"), std::string::npos) << error;
		}
	}
}

// -------------------------------------------------------------------------------------------------
// Fatal messages for damaged packs

// Death tests fork where the statement runs (the default style): the child ends in the fatal
// error, and the parent's temporary folder is still removed by the parent.
class PackedStoreReadDeathTest : public ::testing::Test
{
protected:
	static void Open(const std::string &path, int flags)
	{
		CTestFileSystem fs;
		CPackedStore store(path.c_str(), fs.Get(), flags);
		fprintf(stderr, "opened with %d files\n", store.GetFileCount());
		exit(0);
	}
};

TEST_F(PackedStoreReadDeathTest, UnknownVersion)
{
	CTempDirectory dir;
	const std::string path = dir.Path("v3.bdl");
	WriteAll(path, Le32(0x55AA1234) + Le32(3) + Le32(1) + std::string(16, '\0') + Z(""));
	EXPECT_EXIT(Open(path, 0), ::testing::ExitedWithCode(1), "Unknown version 3 for bdl .*v3\\.bdl");
}

TEST_F(PackedStoreReadDeathTest, RandomFileIsACorruptTree)
{
	CTempDirectory dir;
	std::string noise(4000, 0);
	uint32 state = 12345;
	for (char &c : noise)
	{
		state = state * 1103515245u + 12345u;
		c = (char)((state >> 16) | 1); // no zero byte: no string ever ends
	}
	const std::string path = dir.Path("random.bdl");
	WriteAll(path, noise);
	EXPECT_EXIT(Open(path, 0), ::testing::ExitedWithCode(1), "BDL directory for '.*random\\.bdl' corrupt");
}

TEST_F(PackedStoreReadDeathTest, CorruptTrees)
{
	CTempDirectory dir;
	const std::string entry = EmbeddedEntry("", 0);
	const std::vector<std::pair<const char *, std::string>> trees = {
		{ "empty file", "" },
		{ "no end of the extension list", Z("txt") + Z(" ") + Z("a") + entry + Z("") + Z("") },
		{ "extension too long", Z(std::string(129, 'e')) + Z(" ") + Z("a") + entry + Z("") + Z("") + Z("") },
		{ "base name too long", Z("txt") + Z(" ") + Z(std::string(261, 'b')) + entry + Z("") + Z("") + Z("") },
		{ "entry cut short", Z("txt") + Z(" ") + Z("a") + entry.substr(0, 9) },
		{ "fragment cut short", Z("txt") + Z(" ") + Z("a") + Le32(0) + Le16(0) + Le16(0x7FFF) + Le32(0) },
		{ "preload past the end", Z("txt") + Z(" ") + Z("a") + Entry(0, { { 0x7FFF, 0, 0 } }, "xyz").substr(0, 18) + "xy" },
		{ "string past the end", Z("txt") + "unterminated" },
	};
	for (const auto &test : trees)
	{
		SCOPED_TRACE(test.first);
		const std::string path = dir.Path("corrupt.bdl");
		WriteAll(path, test.second);
		EXPECT_EXIT(Open(path, 0), ::testing::ExitedWithCode(1), "BDL directory for '.*corrupt\\.bdl' corrupt");
		// The same tree behind a version 2 header.
		const std::string v2 = dir.Path("corrupt_v2.bdl");
		WriteAll(v2, HeaderV2(test.second.size(), 0, 0, 0, 0) + test.second);
		EXPECT_EXIT(Open(v2, kWritable), ::testing::ExitedWithCode(1), "BDL directory for '.*corrupt_v2\\.bdl' corrupt");
	}
}

TEST_F(PackedStoreReadDeathTest, TruncatedPacks)
{
	CTempDirectory dir;
	const std::string tree = TwoFileTree();
	const std::string treePath = dir.Path("tree.bdl");
	WriteAll(treePath, HeaderV2(1000, 0, 0, 48, 0) + tree);
	EXPECT_EXIT(Open(treePath, 0), ::testing::ExitedWithCode(1), "FileSystem: Failed to read.*Failed to read 1000 bytes");

	const std::string embeddedPath = dir.Path("embedded.bdl");
	WriteAll(embeddedPath, HeaderV2(tree.size(), 100, 0, 48, 0) + tree + "0123456789");
	EXPECT_EXIT(Open(embeddedPath, kWritable), ::testing::ExitedWithCode(1), "Failed to read 100 bytes");
	EXPECT_EXIT(Open(embeddedPath, 0), ::testing::ExitedWithCode(1), "Failed to read 48 bytes");

	const std::string keyPath = dir.Path("key.bdl");
	WriteAll(keyPath, HeaderV2(tree.size(), 7, 0, 48, 20) + tree + "AAAABBB" + std::string(48, 'h') + Le32(0x7FFFFFFF) + "k");
	EXPECT_EXIT(Open(keyPath, 0), ::testing::ExitedWithCode(1), "Failed to read 2147483647 bytes");

	// A version 1 file whose tree is longer than the file.
	const std::string v1Path = dir.Path("v1.bdl");
	WriteAll(v1Path, HeaderV1(500) + tree);
	EXPECT_EXIT(Open(v1Path, kWritable), ::testing::ExitedWithCode(1), "Failed to read 500 bytes");
}

TEST_F(PackedStoreReadDeathTest, SignatureBlockInTheWrongPlace)
{
	CTempDirectory dir;
	const std::string tree = TwoFileTree();
	const std::string signature = Le32(3) + "KEY" + Le32(4) + "SIGN";
	const std::string good = dir.Path("good.bdl");
	WriteAll(good, HeaderV2(tree.size(), 7, 0, 48, signature.size()) + tree + "AAAABBB" + std::string(48, 'h') + signature);
	EXPECT_EXIT(Open(good, 0), ::testing::ExitedWithCode(0), "opened with 2 files");

	// Self hashes of 16 bytes are not read, so the block starts 16 bytes before where the
	// sizes put it.
	const std::string bad = dir.Path("bad.bdl");
	WriteAll(bad, HeaderV2(tree.size(), 7, 0, 16, signature.size()) + tree + "AAAABBB" + std::string(16, 'h') + signature);
	const int start = 28 + (int)tree.size() + 7;
	EXPECT_EXIT(Open(bad, 0), ::testing::ExitedWithCode(1),
		V_Format("Size mismatch determining size of signed data block \\(%d vs %d\\)", start, start + 16).c_str());
}
