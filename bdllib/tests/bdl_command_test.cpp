// The bdl command end to end: make, list, test and unpack packs, run as a separate process.
#include <cstdio>
#include <filesystem>
#include <string>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "bdl_test_support.h"
#include "testsupport/pathnames.h"
#include "core/strtools.h"

#ifndef BDL_PATH
#error "BDL_PATH must name the bdl executable"
#endif

namespace
{
CommandResult_t RunBdl(const std::string &workingFolder, const std::string &arguments)
{
	return RunCommand("cd '" + workingFolder + "' && '" BDL_PATH "' " + arguments);
}

std::string Bytes(size_t size, unsigned seed)
{
	std::string data(size, 0);
	uint32 state = seed;
	for (char &c : data)
	{
		state = state * 1664525u + 1013904223u;
		c = (char)(state >> 24);
	}
	return data;
}
} // namespace

TEST(BdlCommand, MakeListTestAndUnpack)
{
	CTempDirectory dir;
	dir.Write("work/readme.txt", "read me\n");
	dir.Write("work/models/Hat.ZMDL", Bytes(70000, 1));
	dir.Write("work/models/textures/hat_color.tga", Bytes(3000, 2));
	const std::string work = dir.Path("work");

	CommandResult_t made = RunBdl(work, "a out.bdl readme.txt models/Hat.ZMDL ./models/textures/../textures/hat_color.tga");
	ASSERT_EQ(made.exitCode, 0) << made.output;
	EXPECT_NE(made.output.find("added models/Hat.ZMDL"), std::string::npos) << made.output;

	// The pack is what the library reads, under names relative to the working folder.
	{
		CTestFileSystem fs;
		CPackedStore store((work + "/out.bdl").c_str(), fs.Get(), 0);
		EXPECT_EQ(store.GetFileCount(), 3);
		EXPECT_FALSE(store.IsMultiChunk());
		EXPECT_EQ(ReadPacked(store, "readme.txt"), "read me\n");
		EXPECT_EQ(ReadPacked(store, "models/hat.zmdl"), Bytes(70000, 1));
		EXPECT_EQ(ReadPacked(store, "models/textures/hat_color.tga"), Bytes(3000, 2));
	}

	CommandResult_t listed = RunBdl(work, "l out.bdl");
	ASSERT_EQ(listed.exitCode, 0) << listed.output;
	const uint32 crc = CRC32_ProcessSingleBuffer("read me\n", 8);
	EXPECT_NE(listed.output.find(V_Format("%08x", crc)), std::string::npos) << listed.output;
	EXPECT_NE(listed.output.find("models/hat.zmdl"), std::string::npos) << listed.output;
	EXPECT_NE(listed.output.find("70000"), std::string::npos) << listed.output;
	EXPECT_NE(listed.output.find("3 files, version 2"), std::string::npos) << listed.output;

	CommandResult_t tested = RunBdl(work, "t out.bdl");
	EXPECT_EQ(tested.exitCode, 0) << tested.output;
	EXPECT_NE(tested.output.find("3 files OK, MD5 self hash OK"), std::string::npos) << tested.output;

	CommandResult_t unpacked = RunBdl(work, "x out.bdl " + dir.Path("unpacked"));
	ASSERT_EQ(unpacked.exitCode, 0) << unpacked.output;
	EXPECT_EQ(ReadAll(dir.Path("unpacked/readme.txt")), "read me\n");
	EXPECT_EQ(ReadAll(dir.Path("unpacked/models/hat.zmdl")), Bytes(70000, 1));
	EXPECT_EQ(ReadAll(dir.Path("unpacked/models/textures/hat_color.tga")), Bytes(3000, 2));

	// Making the pack again replaces it; a missing ".bdl" is added.
	made = RunBdl(work, "a out readme.txt");
	ASSERT_EQ(made.exitCode, 0) << made.output;
	listed = RunBdl(work, "l out.bdl");
	EXPECT_NE(listed.output.find("1 files"), std::string::npos) << listed.output;
}

TEST(BdlCommand, RefusesFilesOutsideTheWorkingFolder)
{
	CTempDirectory dir;
	dir.Write("outside.txt", "outside");
	dir.Write("work/inside.txt", "inside");
	const std::string work = dir.Path("work");
	for (const std::string &file : { std::string("../outside.txt"), dir.Path("outside.txt"), std::string("sub/../../outside.txt") })
	{
		CommandResult_t result = RunBdl(work, "a out.bdl inside.txt " + file);
		EXPECT_EQ(result.exitCode, 1) << result.output;
		EXPECT_NE(result.output.find("outside the current folder"), std::string::npos) << result.output;
	}
	EXPECT_FALSE(std::filesystem::exists(work + "/out.bdl"));
	CommandResult_t missing = RunBdl(work, "a out.bdl nothing.txt");
	EXPECT_EQ(missing.exitCode, 1);
	EXPECT_NE(missing.output.find("nothing.txt: no such file"), std::string::npos) << missing.output;
}

TEST(BdlCommand, TestFindsDamage)
{
	CTempDirectory dir;
	dir.Write("work/a.txt", "aaaaaaaaaa");
	dir.Write("work/b.txt", "bbbbbbbbbb");
	const std::string work = dir.Path("work");
	ASSERT_EQ(RunBdl(work, "a pack.bdl a.txt b.txt").exitCode, 0);
	const std::string good = ReadAll(work + "/pack.bdl");

	// A changed data byte: the CRC of that file and the self hash both fail.
	std::string data = good;
	const size_t at = data.find("aaaaaaaaaa");
	ASSERT_NE(at, std::string::npos);
	data[at + 3] = 'X';
	WriteAll(work + "/data.bdl", data);
	CommandResult_t result = RunBdl(work, "t data.bdl");
	EXPECT_EQ(result.exitCode, 1) << result.output;
	EXPECT_NE(result.output.find("a.txt: CRC mismatch"), std::string::npos) << result.output;
	EXPECT_NE(result.output.find("MD5 self hash mismatch"), std::string::npos) << result.output;
	EXPECT_EQ(result.output.find("b.txt: CRC mismatch"), std::string::npos) << result.output;

	// A changed byte in the hashes only: every CRC holds, the self hash does not.
	std::string hashes = good;
	hashes[hashes.size() - 40] ^= 0x55;
	WriteAll(work + "/hash.bdl", hashes);
	result = RunBdl(work, "t hash.bdl");
	EXPECT_EQ(result.exitCode, 1) << result.output;
	EXPECT_EQ(result.output.find("CRC mismatch"), std::string::npos) << result.output;
	EXPECT_NE(result.output.find("MD5 self hash mismatch"), std::string::npos) << result.output;

	// A file that is no pack ends in the store's fatal message.
	WriteAll(work + "/noise.bdl", std::string(100, 'n'));
	result = RunBdl(work, "t noise.bdl");
	EXPECT_EQ(result.exitCode, 1);
	EXPECT_NE(result.output.find("corrupt"), std::string::npos) << result.output;

	result = RunBdl(work, "l missing.bdl");
	EXPECT_EQ(result.exitCode, 1);
	EXPECT_NE(result.output.find("no such pack"), std::string::npos) << result.output;
}

// Every name of the shared table, held by a pack of its own and unpacked: the hostile ones are
// refused and nothing lands outside the folder; the legitimate ones land where the rule says.
TEST(BdlCommand, UnpackedNamesFollowThePathRule)
{
	// A pack's tree holds a name as extension, folder and base name, each NUL-terminated.
	auto PackHolding = [](const std::string &name) {
		const size_t slash = name.rfind('/');
		const std::string folder = slash == std::string::npos ? " " : name.substr(0, slash);
		std::string base = slash == std::string::npos ? name : name.substr(slash + 1);
		std::string extension = " ";
		const size_t dot = base.rfind('.');
		if (dot != std::string::npos && dot > 0 && dot + 1 < base.size() && base != "..")
		{
			extension = base.substr(dot + 1);
			base.resize(dot);
		}
		const std::string tree = Z(extension) + Z(folder) + Z(base) + EmbeddedEntry("E", 0) + Z("") + Z("") + Z("");
		return HeaderV1(tree.size()) + tree + "E";
	};
	for (const PathRuleName_t &name : HostilePathNames())
	{
		if (name.name.empty() || name.name.find('\0') != std::string::npos)
			continue; // a pack's names are NUL-terminated: it cannot hold these
		CTempDirectory dir;
		const std::string work = dir.Path("work");
		std::filesystem::create_directories(work);
		WriteAll(work + "/hostile.bdl", PackHolding(name.name));
		const CommandResult_t result = RunBdl(work, "x hostile.bdl " + dir.Path("out/inner"));
		EXPECT_EQ(result.exitCode, 1) << name.what << "\n" << result.output;
		// Refused by the rule, or, for names longer than a pack can hold, by the pack's reader.
		EXPECT_TRUE(result.output.find(": refused: ") != std::string::npos || result.output.find("corrupt") != std::string::npos)
			<< name.what << "\n" << result.output;
		size_t files = 0;
		for (const auto &entry : std::filesystem::recursive_directory_iterator(dir.Path()))
			files += entry.is_regular_file() ? 1 : 0;
		EXPECT_EQ(files, 1u) << name.what; // the pack alone
	}
	for (const PathRuleName_t &name : LegitimatePathNames())
	{
		CTempDirectory dir;
		const std::string work = dir.Path("work");
		std::filesystem::create_directories(work);
		WriteAll(work + "/fine.bdl", PackHolding(name.name));
		const CommandResult_t result = RunBdl(work, "x fine.bdl " + dir.Path("out"));
		EXPECT_EQ(result.exitCode, 0) << name.what << "\n" << result.output;
		EXPECT_EQ(ReadAll(dir.Path("out/" + PathRuleLanding(name.name))), "E") << name.what;
	}
}

TEST(BdlCommand, Usage)
{
	CTempDirectory dir;
	for (const char *arguments : { "", "a", "a only_target.bdl", "q x.bdl", "l", "l a.bdl b.bdl", "x a.bdl", "ab x.bdl y" })
	{
		CommandResult_t result = RunBdl(dir.Path(), arguments);
		EXPECT_EQ(result.exitCode, 2) << arguments;
		EXPECT_NE(result.output.find("usage: bdl"), std::string::npos) << arguments;
	}
}
