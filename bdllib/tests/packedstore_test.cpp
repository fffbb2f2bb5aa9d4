// CPackedStore as a writer: names, the tree and its insertion order, AddFile results, the index,
// preload, chunk files, Write with its self hash, the filter file, and the fatal paths of adding
// and writing. Reading packs made elsewhere is in packedstore_read_test.cpp.
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "bdl_test_support.h"
#include "core/logging.h"
#include "core/strtools.h"

namespace
{
const int kWritable = PACKEDSTORE_FLAG_READ_EMBEDDED | PACKEDSTORE_FLAG_WRITABLE;

EPackedStoreAddResultCode Add(CPackedStore &store, const char *name, const std::string &data, int preload = 0, bool bMultiChunk = false)
{
	return store.AddFile(name, preload, data.data(), (int64)data.size(), bMultiChunk);
}

std::string Tree(CPackedStore &store)
{
	CUtlVector<uint8> tree;
	store.GetDirectoryTree(tree);
	return std::string(tree.begin(), tree.end());
}

// MurmurHash2 written out here as the format describes it, to check the store's buckets.
uint32 ReferenceMurmur(const std::string &text, uint32 seed)
{
	const uint32 m = 0x5BD1E995;
	uint32 h = seed ^ (uint32)text.size();
	size_t i = 0;
	for (; i + 4 <= text.size(); i += 4)
	{
		uint32 k = (uint32)(uint8)text[i] | ((uint32)(uint8)text[i + 1] << 8) | ((uint32)(uint8)text[i + 2] << 16) | ((uint32)(uint8)text[i + 3] << 24);
		k *= m;
		k ^= k >> 24;
		k *= m;
		h *= m;
		h ^= k;
	}
	switch (text.size() - i)
	{
	case 3:
		h ^= (uint32)(uint8)text[i + 2] << 16;
		[[fallthrough]];
	case 2:
		h ^= (uint32)(uint8)text[i + 1] << 8;
		[[fallthrough]];
	case 1:
		h ^= (uint32)(uint8)text[i];
		h *= m;
	}
	h ^= h >> 13;
	h *= m;
	h ^= h >> 15;
	return h;
}

uint32 ReferenceFileTableHash(const std::string &text)
{
	uint32 h = 0x811C9DC5;
	for (char c : text)
	{
		h ^= (uint8)c;
		h *= 16777619u;
	}
	return ((h << 17) ^ h) + (h >> 21);
}
} // namespace

TEST(PackedStoreNames, BaseNameAndFileNames)
{
	CTestFileSystem fs;
	CTempDirectory dir;
	{
		CPackedStore store((dir.Path() + "/Packs/./x//sub/../Pak01.BDL").c_str(), fs.Get(), kWritable);
		EXPECT_EQ(store.GetBaseName(), dir.Path() + "/Packs/x/Pak01");
		EXPECT_EQ(store.GetChunkFileName(0), dir.Path() + "/Packs/x/Pak01_000.bdl");
		EXPECT_EQ(store.GetChunkFileName(12), dir.Path() + "/Packs/x/Pak01_012.bdl");
		EXPECT_FALSE(store.IsMultiChunk());
		EXPECT_EQ(store.GetDirectoryFileName(), dir.Path() + "/Packs/x/Pak01.BDL");
		CUtlString lower = dir.Path() + "/packs/x/pak01.bdl";
		for (char &c : lower)
			c = V_tolower(c);
		EXPECT_EQ(store.GetFullName(), lower);
	}
	{
		// The directory file's name gives the same base; a name without ".bdl" is multi-chunk.
		CPackedStore dirFile((dir.Path() + "\\game\\pak02_dir.bdl").c_str(), fs.Get(), kWritable);
		EXPECT_EQ(dirFile.GetBaseName(), dir.Path() + "/game/pak02");
		CPackedStore bare((dir.Path() + "/game/pak03").c_str(), fs.Get(), kWritable);
		EXPECT_TRUE(bare.IsMultiChunk());
		EXPECT_EQ(bare.GetDirectoryFileName(), dir.Path() + "/game/pak03_dir.bdl");
		CPackedStore readOnly((dir.Path() + "/game/pak04").c_str(), fs.Get(), 0);
		EXPECT_FALSE(readOnly.IsMultiChunk());
	}
	{
		// Relative names are made absolute for the full name.
		CPackedStore relative("some/Relative.bdl", fs.Get(), 0);
		const std::string cwd = std::filesystem::current_path().string();
		CUtlString expected = cwd + "/some/relative.bdl";
		for (char &c : expected)
			c = V_tolower(c);
		EXPECT_EQ(relative.GetFullName(), expected);
	}
}

TEST(PackedStoreNames, SplitFileName)
{
	CUtlString path, base, extension;
	CPackedStore::SplitFileName("A/B/./C.TXT", path, base, extension);
	EXPECT_EQ(path, "a/b");
	EXPECT_EQ(base, "c");
	EXPECT_EQ(extension, "txt");
	CPackedStore::SplitFileName("readme", path, base, extension);
	EXPECT_EQ(path, " ");
	EXPECT_EQ(base, "readme");
	EXPECT_EQ(extension, " ");
	CPackedStore::SplitFileName("\\\\Maps\\\\x\\..\\Level.Part.VMAP\\", path, base, extension);
	EXPECT_EQ(path, "maps");
	EXPECT_EQ(base, "level.part");
	EXPECT_EQ(extension, "vmap");
	CPackedStore::SplitFileName("/sounds//ui/click.", path, base, extension);
	EXPECT_EQ(path, "sounds/ui");
	EXPECT_EQ(base, "click");
	EXPECT_EQ(extension, " ");
	CPackedStore::SplitFileName("../up.txt", path, base, extension);
	EXPECT_EQ(path, "..");
	EXPECT_EQ(base, "up");
}

TEST(PackedStoreNames, BucketHashes)
{
	for (const char *text : { "", "t", "tx", "txt", "vmat", "materials/models/heroes", " " })
	{
		EXPECT_EQ(CPackedStore::HashBucketString(text, strlen(text)), ReferenceMurmur(text, 0x3501A674)) << text;
		EXPECT_EQ(CPackedStore::HashFileTableName(text, strlen(text)), ReferenceFileTableHash(text)) << text;
	}
	EXPECT_NE(CPackedStore::HashBucketString("abc", 3), CPackedStore::HashBucketString("abd", 3));
}

TEST(PackedStore, EmptyPackLayout)
{
	CTestFileSystem fs;
	CTempDirectory dir;
	const std::string path = dir.Path("empty.bdl");
	{
		CPackedStore store(path.c_str(), fs.Get(), kWritable);
		EXPECT_EQ(store.GetFileCount(), 0);
		EXPECT_EQ(Tree(store), std::string(1, '\0'));
		ASSERT_TRUE(store.Write());
	}
	const std::string bytes = ReadAll(path);
	const std::string before = HeaderV2(1, 0, 0, 48, 0) + std::string(1, '\0') + std::string(32, '\0');
	EXPECT_EQ(bytes, before + Md5Of(before));

	CPackedStore back(path.c_str(), fs.Get(), 0);
	EXPECT_EQ(back.GetVersion(), 2);
	EXPECT_EQ(back.GetTreeSize(), 1u);
	EXPECT_EQ(back.GetFileCount(), 0);
	EXPECT_EQ(back.GetHighestChunk(), -1);
	EXPECT_EQ(back.GetWriteChunk(), 0);
}

TEST(PackedStore, TreeKeepsInsertionOrderNewestFirst)
{
	CTestFileSystem fs;
	CTempDirectory dir;
	const std::string path = dir.Path("order.bdl");
	CPackedStore store(path.c_str(), fs.Get(), kWritable);
	EXPECT_EQ(Add(store, "a.txt", "hi"), EPADD_NEWFILE);
	EXPECT_EQ(Add(store, "b.txt", "yo"), EPADD_NEWFILE);
	EXPECT_EQ(Add(store, "Dir/C.dat", "cc"), EPADD_NEWFILE);
	EXPECT_EQ(Add(store, "noext", "n"), EPADD_NEWFILE);
	EXPECT_EQ(Add(store, "dir2/d.dat", "dd"), EPADD_NEWFILE);

	// A new extension goes in front, a new folder right behind its extension, a new file right
	// behind its folder.
	const std::string expected = Z(" ") + Z(" ") + Z("noext") + EmbeddedEntry("n", 6) + Z("") + Z("") +
		Z("dat") + Z("dir2") + Z("d") + EmbeddedEntry("dd", 7) + Z("") + Z("dir") + Z("c") + EmbeddedEntry("cc", 4) + Z("") + Z("") +
		Z("txt") + Z(" ") + Z("b") + EmbeddedEntry("yo", 2) + Z("a") + EmbeddedEntry("hi", 0) + Z("") + Z("") + Z("");
	EXPECT_EQ(Tree(store), expected);

	CUtlVector<PackedStoreFileInfo_t> files;
	store.GetFileList(files);
	ASSERT_EQ(files.size(), 5u);
	EXPECT_EQ(files[0].m_Name, "noext");
	EXPECT_EQ(files[1].m_Name, "dir2/d.dat");
	EXPECT_EQ(files[2].m_Name, "dir/c.dat");
	EXPECT_EQ(files[3].m_Name, "b.txt");
	EXPECT_EQ(files[4].m_Name, "a.txt");

	ASSERT_TRUE(store.Write());
	const std::string before = HeaderV2(expected.size(), 9, 0, 48, 0) + expected + "hiyoccndd" + std::string(32, '\0');
	EXPECT_EQ(ReadAll(path), before + Md5Of(before));

	// Re-adding moves a file to the front of its folder.
	EXPECT_EQ(Add(store, "a.txt", "HI"), EPADD_UPDATEFILE);
	const std::string tree = Tree(store);
	EXPECT_NE(tree.find(Z(" ") + Z("a") + EmbeddedEntry("HI", 9) + Z("b")), std::string::npos);
}

TEST(PackedStore, RoundTripThroughDisk)
{
	CTestFileSystem fs;
	CTempDirectory dir;
	const std::string path = dir.Path("round.bdl");
	std::string big(300000, 0);
	for (size_t i = 0; i < big.size(); ++i)
		big[i] = (char)(i * 7 + i / 251);
	std::string expectedTree;
	{
		CPackedStore store(path.c_str(), fs.Get(), kWritable);
		Add(store, "models/hero/hat.zmdl", "model bytes");
		Add(store, "materials/hat.zmat", "material", 3);
		Add(store, "sounds/big.wav", big);
		Add(store, "empty.txt", "");
		Add(store, "README", "read me");
		expectedTree = Tree(store);
		ASSERT_TRUE(store.Write());
	}
	for (int flags : { 0, kWritable })
	{
		SCOPED_TRACE(flags);
		CPackedStore back(path.c_str(), fs.Get(), flags);
		EXPECT_EQ(back.GetVersion(), 2);
		EXPECT_EQ(Tree(back), expectedTree);
		EXPECT_EQ(back.GetFileCount(), 5);
		EXPECT_EQ(back.GetEmbeddedDataSize(), 11u + 5u + big.size() + 7u);
		EXPECT_EQ(ReadPacked(back, "models/hero/hat.zmdl"), "model bytes");
		EXPECT_EQ(ReadPacked(back, "MATERIALS\\HAT.ZMAT"), "material");
		EXPECT_EQ(ReadPacked(back, "sounds/big.wav"), big);
		EXPECT_EQ(ReadPacked(back, "empty.txt"), "");
		EXPECT_EQ(ReadPacked(back, "readme"), "read me");
		bool bHasHash = false;
		CUtlString error;
		EXPECT_TRUE(back.VerifySelfHash(&bHasHash, &error)) << error;
		EXPECT_TRUE(bHasHash);
	}
	{
		// Opened for writing, added to and written again: the old files stay.
		CPackedStore more(path.c_str(), fs.Get(), kWritable);
		EXPECT_EQ(Add(more, "sounds/big.wav", big), EPADD_ADDSAMEFILE);
		EXPECT_EQ(Add(more, "extra.txt", "extra"), EPADD_NEWFILE);
		ASSERT_TRUE(more.Write());
	}
	CPackedStore again(path.c_str(), fs.Get(), 0);
	EXPECT_EQ(again.GetFileCount(), 6);
	EXPECT_EQ(ReadPacked(again, "sounds/big.wav"), big);
	EXPECT_EQ(ReadPacked(again, "extra.txt"), "extra");
}

TEST(PackedStore, AddFileResults)
{
	CTestFileSystem fs;
	CTempDirectory dir;
	CPackedStore store(dir.Path("results.bdl").c_str(), fs.Get(), kWritable);
	EXPECT_EQ(Add(store, "x.txt", "abc"), EPADD_NEWFILE);
	EXPECT_EQ(Add(store, "X.TXT", "abc"), EPADD_ADDSAMEFILE);
	EXPECT_EQ(store.GetEmbeddedDataSize(), 3u);
	EXPECT_EQ(Add(store, "x.txt", "abd"), EPADD_UPDATEFILE);
	EXPECT_EQ(Add(store, "x.txt", "abd", 1), EPADD_UPDATEFILE); // other preload
	EXPECT_EQ(Add(store, "x.txt", "abd", 1), EPADD_ADDSAMEFILE);
	EXPECT_EQ(Add(store, "x.txt", "abdd"), EPADD_UPDATEFILE);
	uint32 crc = 0x12345678;
	EXPECT_EQ(store.AddFile("y.txt", 0, "data", 4, false, &crc), EPADD_NEWFILE);
	PackedStoreFileInfo_t info;
	ASSERT_TRUE(store.FindFile("y.txt", info));
	EXPECT_EQ(info.m_nCRC, 0x12345678u);
	EXPECT_EQ(store.GetFileCount(), 2);

	// The old bytes stay in the embedded data as dead space.
	EXPECT_EQ(store.GetEmbeddedDataSize(), 3u + 3u + 2u + 4u + 4u);
	EXPECT_EQ(ReadPacked(store, "x.txt"), "abdd");

	CCaptureLog log;
	EXPECT_EQ(store.AddFile("z.txt", 0, nullptr, 5, false), EPADD_ERROR);
	EXPECT_EQ(store.AddFile("z.txt", 0, "x", -1, false), EPADD_ERROR);
	CPackedStore readOnly(dir.Path("results.bdl").c_str(), fs.Get(), 0);
	EXPECT_EQ(Add(readOnly, "z.txt", "z"), EPADD_ERROR);
	EXPECT_FALSE(readOnly.Write());
	EXPECT_NE(log.m_Text.find("not opened for writing"), std::string::npos);
}

TEST(PackedStore, EmptyFileEntry)
{
	CTestFileSystem fs;
	CTempDirectory dir;
	CPackedStore store(dir.Path("e.bdl").c_str(), fs.Get(), kWritable);
	Add(store, "pad.bin", "1234");
	EXPECT_EQ(Add(store, "nothing.txt", ""), EPADD_NEWFILE);
	PackedStoreFileInfo_t info;
	ASSERT_TRUE(store.FindFile("nothing.txt", info));
	EXPECT_EQ(info.m_nCRC, 0u);
	EXPECT_EQ(info.m_nTotalSize, 0u);
	ASSERT_EQ(info.m_Fragments.size(), 1u);
	EXPECT_EQ(info.m_Fragments[0].m_nArchiveIndex, PACKEDSTORE_EMBEDDED_INDEX);
	EXPECT_EQ(info.m_Fragments[0].m_nSize, 0u);
	// Even asked for a chunk, an empty file stays in the directory.
	EXPECT_EQ(Add(store, "chunked_empty.txt", "", 0, true), EPADD_NEWFILE);
	ASSERT_TRUE(store.FindFile("chunked_empty.txt", info));
	EXPECT_EQ(info.m_Fragments[0].m_nArchiveIndex, PACKEDSTORE_EMBEDDED_INDEX);
	EXPECT_EQ(store.GetHighestChunk(), -1);
}

TEST(PackedStore, Preload)
{
	CTestFileSystem fs;
	CTempDirectory dir;
	const std::string path = dir.Path("preload.bdl");
	{
		CPackedStore store(path.c_str(), fs.Get(), kWritable);
		Add(store, "part.bin", "abcdefgh", 4);
		Add(store, "whole.bin", "xyz", 100);
		PackedStoreFileInfo_t info;
		ASSERT_TRUE(store.FindFile("part.bin", info));
		EXPECT_EQ(info.m_nPreloadSize, 4);
		EXPECT_EQ(std::string(info.m_Preload.begin(), info.m_Preload.end()), "abcd");
		EXPECT_EQ(info.m_Fragments[0].m_nSize, 4u);
		EXPECT_EQ(info.m_nTotalSize, 8u);
		ASSERT_TRUE(store.FindFile("whole.bin", info));
		EXPECT_EQ(info.m_nPreloadSize, 3);
		EXPECT_EQ(info.m_Fragments[0].m_nArchiveIndex, PACKEDSTORE_EMBEDDED_INDEX);
		EXPECT_EQ(info.m_Fragments[0].m_nSize, 0u);
		EXPECT_EQ(store.GetEmbeddedDataSize(), 4u);
		// All of it in the preload: no chunk is made for it.
		Add(store, "notchunked.bin", "pre", 10, true);
		EXPECT_EQ(store.GetHighestChunk(), -1);
		ASSERT_TRUE(store.Write());
	}
	CPackedStore back(path.c_str(), fs.Get(), 0);
	EXPECT_EQ(ReadPacked(back, "part.bin"), "abcdefgh");
	EXPECT_EQ(ReadPacked(back, "whole.bin"), "xyz");
	EXPECT_EQ(ReadPacked(back, "notchunked.bin"), "pre");
}

TEST(PackedStore, LookupsByName)
{
	CTestFileSystem fs;
	CTempDirectory dir;
	CPackedStore store(dir.Path("look.bdl").c_str(), fs.Get(), kWritable);
	Add(store, "A/B/./C.TXT", "abc");
	Add(store, "c.txt", "root c");
	Add(store, "c", "no extension");
	Add(store, "scripts/items/items_game.txt", "items");
	Add(store, "scripts/items/items_game", "items without extension");

	EXPECT_EQ(ReadPacked(store, "a/b/c.txt"), "abc");
	EXPECT_EQ(ReadPacked(store, "a\\b\\c.txt"), "abc");
	EXPECT_EQ(ReadPacked(store, "a//b/x/../c.txt"), "abc");
	EXPECT_EQ(ReadPacked(store, "/a/b/c.txt"), "abc");
	EXPECT_EQ(ReadPacked(store, "C.TXT"), "root c");
	EXPECT_EQ(ReadPacked(store, "c"), "no extension");
	EXPECT_EQ(ReadPacked(store, "Scripts/Items/Items_Game.txt"), "items");
	EXPECT_EQ(ReadPacked(store, "scripts/items/items_game"), "items without extension");

	PackedStoreFileInfo_t info;
	EXPECT_FALSE(store.FindFile("a/b/c", info));
	EXPECT_FALSE(store.FindFile("a/c.txt", info));
	EXPECT_FALSE(store.FindFile("a/b/c.dat", info));
	EXPECT_FALSE(store.FindFile("scripts/items_game.txt", info));
	EXPECT_FALSE(store.FindFile("", info));
	ASSERT_TRUE(store.FindFile("a/b/c.txt", info));
	EXPECT_EQ(info.m_Path, "a/b");
	EXPECT_EQ(info.m_BaseName, "c");
	EXPECT_EQ(info.m_Extension, "txt");
	ASSERT_TRUE(store.FindFile("c", info));
	EXPECT_EQ(info.m_Path, " ");
	EXPECT_EQ(info.m_Extension, " ");
	EXPECT_EQ(info.m_Name, "c");
}

TEST(PackedStore, FileTableAboveSixtyFourFiles)
{
	CTestFileSystem fs;
	CTempDirectory dir;
	const std::string path = dir.Path("table.bdl");
	{
		CPackedStore store(path.c_str(), fs.Get(), kWritable);
		for (int i = 0; i < 64; ++i)
			Add(store, V_Format("sixtyfour/f%03d.txt", i).c_str(), V_Format("64:%d", i));
		for (int i = 0; i < 65; ++i)
			Add(store, V_Format("sixtyfive/f%03d.txt", i).c_str(), V_Format("65:%d", i));
		for (int i = 0; i < 1000; ++i)
			Add(store, V_Format("many/file_%d.txt", i).c_str(), V_Format("many:%d", i));
		EXPECT_EQ(store.GetFileTableSize("sixtyfour", "txt"), 0u);
		EXPECT_GT(store.GetFileTableSize("sixtyfive", "txt"), 65u);
		EXPECT_GT(store.GetFileTableSize("many", "txt"), 1000u);
		ASSERT_TRUE(store.Write());
	}
	CPackedStore back(path.c_str(), fs.Get(), kWritable);
	EXPECT_EQ(back.GetFileTableSize("sixtyfour", "txt"), 0u);
	EXPECT_EQ(back.GetFileTableSize("sixtyfive", "txt"), 65u * 4 / 3 + 1);
	EXPECT_EQ(back.GetFileTableSize("many", "txt"), 1000u * 4 / 3 + 1);
	for (int i = 0; i < 64; ++i)
		EXPECT_EQ(ReadPacked(back, V_Format("sixtyfour/F%03d.TXT", i).c_str()), V_Format("64:%d", i));
	for (int i = 0; i < 65; ++i)
		EXPECT_EQ(ReadPacked(back, V_Format("sixtyfive/f%03d.txt", i).c_str()), V_Format("65:%d", i));
	for (int i = 0; i < 1000; ++i)
		ASSERT_EQ(ReadPacked(back, V_Format("many/file_%d.txt", i).c_str()), V_Format("many:%d", i));
	PackedStoreFileInfo_t info;
	for (const char *missing : { "sixtyfour/f064.txt", "sixtyfive/f065.txt", "many/file_1000.txt", "many/file_1.dat" })
		EXPECT_FALSE(back.FindFile(missing, info)) << missing;

	// Replacing and adding keep the table right.
	EXPECT_EQ(Add(back, "sixtyfive/f010.txt", "new ten"), EPADD_UPDATEFILE);
	EXPECT_EQ(Add(back, "sixtyfive/f100.txt", "hundred"), EPADD_NEWFILE);
	EXPECT_EQ(ReadPacked(back, "sixtyfive/f010.txt"), "new ten");
	EXPECT_EQ(ReadPacked(back, "sixtyfive/f100.txt"), "hundred");
	EXPECT_EQ(ReadPacked(back, "sixtyfive/f011.txt"), "65:11");
	EXPECT_EQ(back.GetFileCount(), 64 + 66 + 1000);
}

TEST(PackedStore, ChunkFilesWithALoweredLimit)
{
	CTestFileSystem fs;
	CTempDirectory dir;
	const std::string base = dir.Path("chunky");
	WriteAll(base + ".bdl", HeaderV1(1) + Z("")); // an old, empty single-file pack
	{
		CPackedStore store((base + ".bdl").c_str(), fs.Get(), kWritable);
		EXPECT_EQ(store.GetWriteChunkSize(), 104857600);
		store.SetWriteChunkSize(10);
		Add(store, "one.bin", "11111111", 0, true);	   // chunk 0 at 0
		Add(store, "two.bin", "22222222", 2, true);	   // chunk 0 at 8: the chunk passes the limit by one file
		Add(store, "three.bin", "33333333", 0, true);  // chunk 1 at 0
		Add(store, "embedded.bin", "eeee", 0, false); // in the directory
		EXPECT_EQ(store.GetHighestChunk(), 1);
		EXPECT_EQ(store.GetWriteChunk(), 1);
		EXPECT_EQ(store.GetWriteChunkOffset(), 8);
		PackedStoreFileInfo_t info;
		ASSERT_TRUE(store.FindFile("two.bin", info));
		EXPECT_EQ(info.m_Fragments[0].m_nArchiveIndex, 0);
		EXPECT_EQ(info.m_Fragments[0].m_nOffset, 8u);
		EXPECT_EQ(info.m_Fragments[0].m_nSize, 6u);
		ASSERT_TRUE(store.FindFile("three.bin", info));
		EXPECT_EQ(info.m_Fragments[0].m_nArchiveIndex, 1);
		EXPECT_EQ(info.m_Fragments[0].m_nOffset, 0u);
		// Chunk data is on disk before Write.
		EXPECT_EQ(ReadAll(base + "_000.bdl"), "11111111222222");
		EXPECT_EQ(ReadAll(base + "_001.bdl"), "33333333");
		ASSERT_TRUE(store.Write());
		EXPECT_TRUE(store.IsMultiChunk());
	}
	// A pack with chunks is written as <base>_dir.bdl, and <base>.bdl is gone.
	EXPECT_FALSE(std::filesystem::exists(base + ".bdl"));
	ASSERT_TRUE(std::filesystem::exists(base + "_dir.bdl"));
	{
		CPackedStore back((base + ".bdl").c_str(), fs.Get(), kWritable);
		EXPECT_TRUE(back.IsMultiChunk());
		EXPECT_EQ(back.GetHighestChunk(), 1);
		EXPECT_EQ(back.GetWriteChunk(), 2);
		EXPECT_EQ(back.GetWriteChunkOffset(), 0);
		EXPECT_EQ(ReadPacked(back, "one.bin"), "11111111");
		EXPECT_EQ(ReadPacked(back, "two.bin"), "22222222");
		EXPECT_EQ(ReadPacked(back, "three.bin"), "33333333");
		EXPECT_EQ(ReadPacked(back, "embedded.bin"), "eeee");
		Add(back, "four.bin", "4444", 0, true);
		ASSERT_TRUE(back.Write());
	}
	EXPECT_EQ(ReadAll(base + "_002.bdl"), "4444");
	CPackedStore byBase(base.c_str(), fs.Get(), 0);
	EXPECT_EQ(byBase.GetFileCount(), 5);
	EXPECT_EQ(ReadPacked(byBase, "four.bin"), "4444");

	// A missing chunk is reported when reading, not fatal.
	std::filesystem::remove(base + "_001.bdl");
	PackedStoreFileInfo_t info;
	ASSERT_TRUE(byBase.FindFile("three.bin", info));
	CUtlBuffer data;
	CUtlString error;
	EXPECT_FALSE(byBase.ReadFileData(info, data, &error));
	EXPECT_NE(error.find("_001.bdl"), std::string::npos) << error;
}

TEST(PackedStore, WriteIsRepeatableAndReportsFailure)
{
	CTestFileSystem fs;
	CTempDirectory dir;
	const std::string path = dir.Path("twice.bdl");
	CPackedStore store(path.c_str(), fs.Get(), kWritable);
	Add(store, "a.txt", "a");
	ASSERT_TRUE(store.Write());
	const std::string first = ReadAll(path);
	ASSERT_TRUE(store.Write());
	EXPECT_EQ(ReadAll(path), first);
	EXPECT_EQ(std::string(reinterpret_cast<const char *>(store.GetFileHash().bits), 16), first.substr(first.size() - 16));

	CCaptureLog log;
	CPackedStore nowhere(dir.Path("missing/folder/x.bdl").c_str(), fs.Get(), kWritable);
	Add(nowhere, "a.txt", "a");
	EXPECT_FALSE(nowhere.Write());
	EXPECT_NE(log.m_Text.find("missing/folder/x.bdl"), std::string::npos);
}

TEST(PackedStore, BigPackIsHashedWhileWritten)
{
	// Above 4 MiB of embedded data the write runs beside the hash; the file must be the same.
	CTestFileSystem fs;
	CTempDirectory dir;
	const std::string path = dir.Path("big.bdl");
	std::string data(5 << 20, 0);
	for (size_t i = 0; i < data.size(); ++i)
		data[i] = (char)(i ^ (i >> 9));
	{
		CPackedStore store(path.c_str(), fs.Get(), kWritable);
		Add(store, "big.bin", data);
		ASSERT_TRUE(store.Write());
	}
	const std::string bytes = ReadAll(path);
	EXPECT_EQ(bytes.substr(bytes.size() - 16), Md5Of(bytes.substr(0, bytes.size() - 16)));
	CPackedStore back(path.c_str(), fs.Get(), 0);
	EXPECT_EQ(ReadPacked(back, "big.bin"), data);
}

TEST(PackedStore, RefCountWarning)
{
	CTestFileSystem fs;
	CCaptureLog log;
	{
		CPackedStore store("refcounted.bdl", fs.Get(), 0);
		store.AddRef();
		store.AddRef();
		store.Release();
		EXPECT_EQ(store.GetRefCount(), 1);
	}
	EXPECT_NE(log.m_Text.find("Packed store refcounted.bdl with refcount > 0.\n"), std::string::npos) << log.m_Text;
	log.m_Text.clear();
	{
		CPackedStore store("balanced.bdl", fs.Get(), 0);
		store.AddRef();
		store.Release();
	}
	EXPECT_EQ(log.m_Text, "");
}

TEST(PackedStore, FilterFile)
{
	CTestFileSystem fs;
	CTempDirectory dir;
	const std::string base = dir.Path("filtered");
	WriteAll(base + "_flt.bdl", "# a comment\n\n  materials/...  \r\n\tscripts/items/items_game.txt\r\nROOTFILE.TXT\n");
	CPackedStore store((base + ".bdl").c_str(), fs.Get(), kWritable);
	ASSERT_EQ(store.GetFilterPaths().size(), 3u);
	EXPECT_EQ(store.GetFilterPaths()[0], "materials");
	EXPECT_EQ(store.GetFilterBaseNames()[0], "*");
	EXPECT_EQ(store.GetFilterExtensions()[0], "*");
	EXPECT_TRUE(store.GetFilterSubtrees()[0]);
	EXPECT_EQ(store.GetFilterPaths()[1], "scripts/items");
	EXPECT_EQ(store.GetFilterBaseNames()[1], "items_game");
	EXPECT_EQ(store.GetFilterExtensions()[1], "txt");
	EXPECT_FALSE(store.GetFilterSubtrees()[1]);
	EXPECT_EQ(store.GetFilterPaths()[2], " ");

	for (const char *name : { "materials/a.vmat", "materials/x/y/b.vmat", "scripts/items/other.txt", "top.txt", "materials2/c.vmat",
			 "scripts/items/deeper/d.txt", "scripts/e.txt" })
		Add(store, name, name);
	auto InFilter = [&](const char *name) {
		PackedStoreFileInfo_t info;
		EXPECT_TRUE(store.FindFile(name, info)) << name;
		return info.m_bInFilter;
	};
	EXPECT_TRUE(InFilter("materials/a.vmat"));
	EXPECT_TRUE(InFilter("materials/x/y/b.vmat"));
	EXPECT_TRUE(InFilter("scripts/items/other.txt"));
	EXPECT_TRUE(InFilter("top.txt"));
	EXPECT_FALSE(InFilter("materials2/c.vmat"));
	EXPECT_FALSE(InFilter("scripts/items/deeper/d.txt"));
	EXPECT_FALSE(InFilter("scripts/e.txt"));
}

// -------------------------------------------------------------------------------------------------
// Fatal paths of adding and writing

// Death tests fork where the statement runs (the default style): the child ends in the fatal
// error, and the parent's temporary folder is still removed by the parent.
class PackedStoreDeathTest : public ::testing::Test
{
};

TEST_F(PackedStoreDeathTest, InvalidFileName)
{
	CTempDirectory dir;
	const std::string path = dir.Path("names.bdl");
	auto AddName = [&](const char *name) {
		CTestFileSystem fs;
		CPackedStore store(path.c_str(), fs.Get(), kWritable);
		Add(store, name, "data");
	};
	EXPECT_EXIT(AddName(".gitignore"), ::testing::ExitedWithCode(1), "Filename '\\.gitignore' is invalid to be contained in a BDL");
	EXPECT_EXIT(AddName("materials/.vmat"), ::testing::ExitedWithCode(1), "Filename 'materials/\\.vmat' is invalid to be contained in a BDL");
	EXPECT_EXIT(AddName(std::string(300, 'b').c_str()), ::testing::ExitedWithCode(1), "is invalid to be contained in a BDL");
	EXPECT_EXIT(AddName(("x." + std::string(200, 'e')).c_str()), ::testing::ExitedWithCode(1), "is invalid to be contained in a BDL");
}

TEST_F(PackedStoreDeathTest, PreloadTooBig)
{
	CTempDirectory dir;
	const std::string path = dir.Path("preload.bdl");
	auto AddBig = [&](int preload) {
		CTestFileSystem fs;
		CPackedStore store(path.c_str(), fs.Get(), kWritable);
		const std::string data(70000, 'p');
		Add(store, "big.bin", data, preload);
		fprintf(stderr, "added\n");
		exit(0);
	};
	EXPECT_EXIT(AddBig(65536), ::testing::ExitedWithCode(1), "Preload size for 'big.bin' is too big");
	EXPECT_EXIT(AddBig(65535), ::testing::ExitedWithCode(0), "added");
}

TEST_F(PackedStoreDeathTest, ChunkCannotBeOpened)
{
	CTempDirectory dir;
	auto AddChunked = [&](const std::string &base, bool bRemoveBetween) {
		CTestFileSystem fs;
		CPackedStore store(base.c_str(), fs.Get(), kWritable);
		Add(store, "a.bin", "aaaa", 0, true);
		if (bRemoveBetween)
			std::filesystem::remove(base + "_000.bdl");
		Add(store, "b.bin", "bbbb", 0, true);
	};
	EXPECT_EXIT(AddChunked(dir.Path("no/such/folder/pak"), false), ::testing::ExitedWithCode(1),
		"Cannot open .*no/such/folder/pak_000\\.bdl for writing");
	// A chunk that vanished under a write position above 0 is not made anew.
	EXPECT_EXIT(AddChunked(dir.Path("vanishing"), true), ::testing::ExitedWithCode(1), "Cannot open .*vanishing_000\\.bdl for writing");
}

TEST_F(PackedStoreDeathTest, SigningNotImplemented)
{
	CTempDirectory dir;
	const std::string tree = Z("txt") + Z(" ") + Z("a") + EmbeddedEntry("A", 0) + Z("") + Z("") + Z("");
	const std::string signature = Le32(3) + "KEY" + Le32(4) + "SIGN";
	const std::string path = dir.Path("signed.bdl");
	WriteAll(path, HeaderV2(tree.size(), 1, 0, 48, signature.size()) + tree + "A" + std::string(48, 'h') + signature);
	auto WriteSigned = [&]() {
		CTestFileSystem fs;
		CPackedStore store(path.c_str(), fs.Get(), kWritable);
		fprintf(stderr, "read %zu key bytes\n", store.GetSignaturePublicKey().size());
		store.Write();
	};
	EXPECT_EXIT(WriteSigned(), ::testing::ExitedWithCode(1), "read 3 key bytes.*BDL signing not implemented");
}
