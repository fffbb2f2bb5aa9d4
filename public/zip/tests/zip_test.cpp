// CZip: layout of the written archive (order, alignment, formats, comment, byte order), the
// disk cache, reading back from memory and from disk, hostile archives, and plain zip tools
// (unzip -t and Python's zipfile) opening what the compatible format writes.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "core/hashes.h"
#include "core/strtools.h"
#include "testsupport/pathnames.h"
#include "testsupport/test_support.h"
#include "zip/zip_utils.h"

namespace
{
uint32 Le32(const std::string &bytes, size_t at)
{
	return (uint32)(uint8)bytes[at] | ((uint32)(uint8)bytes[at + 1] << 8) | ((uint32)(uint8)bytes[at + 2] << 16) |
		((uint32)(uint8)bytes[at + 3] << 24);
}

uint16 Le16(const std::string &bytes, size_t at)
{
	return (uint16)((uint8)bytes[at] | ((uint8)bytes[at + 1] << 8));
}

void SetLe16(std::string &bytes, size_t at, uint16 value)
{
	bytes[at] = (char)(value & 0xFF);
	bytes[at + 1] = (char)(value >> 8);
}

void SetLe32(std::string &bytes, size_t at, uint32 value)
{
	for (int i = 0; i < 4; ++i)
		bytes[at + (size_t)i] = (char)(value >> (8 * i));
}

std::string Save(CZip &zip)
{
	CUtlBuffer buffer;
	EXPECT_TRUE(zip.SaveToBuffer(buffer));
	return std::string(buffer.Base(), buffer.Size());
}

bool Add(CZip &zip, const char *name, const std::string &data)
{
	return zip.AddBufferToZip(name, data.data(), (int64)data.size(), false);
}

std::string Read(IZip &zip, const char *name)
{
	CUtlBuffer buffer;
	if (!zip.ReadFileFromZip(name, false, buffer))
		return "<missing>";
	return std::string(buffer.Base(), buffer.Size());
}

std::vector<std::string> Names(IZip &zip)
{
	std::vector<std::string> names;
	char name[2048];
	int size = 0;
	for (int id = zip.GetNextFilename(-1, name, sizeof(name), size); id != -1; id = zip.GetNextFilename(id, name, sizeof(name), size))
		names.push_back(name);
	return names;
}

// Offsets of the end record and of the local headers, found the way a plain reader does.
size_t EndRecordOffset(const std::string &archive)
{
	return archive.size() - 22 - 32;
}

// Runs a command; returns its exit code and collects its output.
std::string WriteBytes(const CTempDirectory &dir, const char *name, const std::string &bytes)
{
	const std::string path = dir.Path(name);
	FILE *fp = fopen(path.c_str(), "wb");
	EXPECT_TRUE(fp != nullptr);
	if (fp)
	{
		fwrite(bytes.data(), 1, bytes.size(), fp);
		fclose(fp);
	}
	return path;
}

std::string Pattern(size_t size, unsigned seed)
{
	std::string data(size, 0);
	uint32 state = seed * 2654435761u + 1;
	for (char &c : data)
	{
		state = state * 1664525u + 1013904223u;
		c = (char)(state >> 24);
	}
	return data;
}
} // namespace

TEST(Zip, ItemsAreLowerCasedAndWrittenInNameOrder)
{
	CZip zip;
	ASSERT_TRUE(Add(zip, "zeta.txt", "z"));
	ASSERT_TRUE(Add(zip, "Alpha/B.TXT", "b"));
	ASSERT_TRUE(Add(zip, "alpha/a.txt", "a"));
	EXPECT_EQ(Names(zip), (std::vector<std::string>{ "alpha/a.txt", "alpha/b.txt", "zeta.txt" }));

	const std::string archive = Save(zip);
	// Local headers follow one another in name order.
	ASSERT_EQ(Le32(archive, 0), 0x04034B50u);
	EXPECT_EQ(archive.substr(30, 11), "alpha/a.txt");
	const size_t second = 30 + 11 + 1;
	ASSERT_EQ(Le32(archive, second), 0x04034B50u);
	EXPECT_EQ(archive.substr(second + 30, 11), "alpha/b.txt");
	EXPECT_EQ(Le16(archive, 4), 10);			// version needed
	EXPECT_EQ(Le16(archive, 8), 0);				// stored
	EXPECT_EQ(Le32(archive, 14), CRC32_ProcessSingleBuffer("a", 1));
}

TEST(Zip, OrderComesFromTheComparisonGivenAtConstruction)
{
	CZip reversed(nullptr, [](const char *a, const char *b) { return strcmp(b, a); });
	ASSERT_TRUE(Add(reversed, "a.txt", "1"));
	ASSERT_TRUE(Add(reversed, "c.txt", "3"));
	ASSERT_TRUE(Add(reversed, "b.txt", "2"));
	EXPECT_EQ(Names(reversed), (std::vector<std::string>{ "c.txt", "b.txt", "a.txt" }));
	const std::string archive = Save(reversed);
	EXPECT_EQ(archive.substr(30, 5), "c.txt");
	EXPECT_LT(archive.find("b.txt"), archive.find("a.txt"));
}

TEST(Zip, NamesDifferingOnlyInCaseAreOneItem)
{
	CZip zip;
	ASSERT_TRUE(Add(zip, "Readme.TXT", "first"));
	ASSERT_TRUE(Add(zip, "README.txt", "second"));
	EXPECT_EQ(zip.GetItemCount(), 1);
	EXPECT_TRUE(zip.FileExistsInZip("readme.txt"));
	EXPECT_TRUE(zip.FileExistsInZip("ReadMe.Txt"));
	EXPECT_EQ(Read(zip, "readme.txt"), "second");
}

TEST(Zip, EmptyFileIsNotWritten)
{
	CZip zip;
	ASSERT_TRUE(Add(zip, "empty.txt", ""));
	ASSERT_TRUE(Add(zip, "full.txt", "data"));
	EXPECT_TRUE(zip.FileExistsInZip("empty.txt"));
	const std::string archive = Save(zip);
	EXPECT_EQ(archive.find("empty.txt"), std::string::npos);
	const size_t end = EndRecordOffset(archive);
	ASSERT_EQ(Le32(archive, end), 0x06054B50u);
	EXPECT_EQ(Le16(archive, end + 8), 1);
	EXPECT_EQ(Le16(archive, end + 10), 1);

	CZip back;
	ASSERT_TRUE(back.ParseFromBuffer(archive.data(), (int64)archive.size()));
	EXPECT_FALSE(back.FileExistsInZip("empty.txt"));
	EXPECT_EQ(Read(back, "full.txt"), "data");
}

TEST(Zip, UnalignedArchiveLayoutAndComment)
{
	CZip zip;
	ASSERT_TRUE(Add(zip, "a.bin", "12345"));
	const std::string archive = Save(zip);
	// 30 + 5 + 5 local, 46 + 5 central, 22 end, 32 comment.
	ASSERT_EQ(archive.size(), 40u + 51u + 22u + 32u);
	EXPECT_EQ(Le16(archive, 28), 0); // no extra field without alignment
	const size_t central = 40;
	EXPECT_EQ(Le32(archive, central), 0x02014B50u);
	EXPECT_EQ(Le16(archive, central + 4), 20);
	EXPECT_EQ(Le16(archive, central + 6), 10);
	EXPECT_EQ(Le32(archive, central + 42), 0u);
	const size_t end = EndRecordOffset(archive);
	EXPECT_EQ(Le32(archive, end + 12), 51u);
	EXPECT_EQ(Le32(archive, end + 16), 40u);
	EXPECT_EQ(Le16(archive, end + 20), 32);
	const std::string comment = archive.substr(end + 22);
	EXPECT_EQ(std::string(comment.c_str()), "XZP1 0");
	EXPECT_EQ(comment.size(), 32u);
	EXPECT_EQ(comment.find_first_not_of('\0', 6), std::string::npos);
}

TEST(Zip, AlignmentPaddingRule)
{
	CZip zip;
	zip.ForceAlignment(true, true, 512);
	EXPECT_EQ(zip.GetAlignment(), 512u);
	// A header at 0 whose name ends exactly at 512 gets a whole 512 of padding.
	const std::string name(512 - 30, 'n');
	ASSERT_TRUE(Add(zip, name.c_str(), "payload"));
	ASSERT_TRUE(Add(zip, "z.txt", "zz"));
	const std::string archive = Save(zip);
	EXPECT_EQ(Le16(archive, 28), 512);
	EXPECT_EQ(archive.substr(1024, 7), "payload");
	EXPECT_EQ(archive.find_first_not_of('\0', 512), 1024u);

	// The second header follows the data; its data lands on the next multiple of 512.
	const size_t second = 1024 + 7;
	ASSERT_EQ(Le32(archive, second), 0x04034B50u);
	const uint16 padding = Le16(archive, second + 28);
	EXPECT_EQ(padding, 512 - (second + 30 + 5) % 512);
	EXPECT_EQ((second + 30 + 5 + padding) % 512, 0u);
	EXPECT_EQ(archive.substr(second + 30 + 5 + padding, 2), "zz");

	// Central directory and end record start on the alignment too.
	const size_t end = archive.size() - 54;
	EXPECT_EQ(end % 512, 0u);
	EXPECT_EQ(Le32(archive, end + 16) % 512, 0u);
	EXPECT_EQ(std::string(archive.c_str() + end + 22), "XZP1 512");
}

TEST(Zip, ForceAlignmentSettings)
{
	CZip zip;
	zip.ForceAlignment(true, false, 300); // not a power of two
	EXPECT_EQ(zip.GetAlignment(), 0u);
	EXPECT_FALSE(zip.IsCompatibleFormat());
	zip.ForceAlignment(false, true, 1024); // not forced
	EXPECT_EQ(zip.GetAlignment(), 0u);
	EXPECT_EQ(zip.GetAlignmentSetting(), 0u);
	zip.ForceAlignment(true, true, 2048);
	EXPECT_EQ(zip.GetAlignment(), 2048u);
	zip.ForceAlignment(true, false, 0xFFFFFFFFu); // compact
	EXPECT_EQ(zip.GetAlignment(), 0u);
	EXPECT_TRUE(zip.IsCompactFormat());
	EXPECT_FALSE(zip.IsCompatibleFormat());
}

TEST(Zip, FormatTwoLeavesPaddingOutOfTheCentralDirectory)
{
	CZip compatible, plain;
	compatible.ForceAlignment(true, true, 64);
	plain.ForceAlignment(true, false, 64);
	for (CZip *zip : { &compatible, &plain })
	{
		ASSERT_TRUE(Add(*zip, "a.txt", "aaa"));
		ASSERT_TRUE(Add(*zip, "b.txt", "bbbb"));
	}
	const std::string one = Save(compatible);
	const std::string two = Save(plain);
	EXPECT_EQ(std::string(one.c_str() + one.size() - 32), "XZP1 64");
	EXPECT_EQ(std::string(two.c_str() + two.size() - 32), "XZP2 64");

	// Same local part; central records carry the extra length in both, the bytes only in "1".
	const uint32 centralOne = Le32(one, one.size() - 54 + 16);
	const uint32 centralTwo = Le32(two, two.size() - 54 + 16);
	ASSERT_EQ(centralOne, centralTwo);
	EXPECT_EQ(one.substr(0, centralOne), two.substr(0, centralTwo));
	const uint16 extraA = Le16(two, centralTwo + 30);
	EXPECT_GT(extraA, 0);
	EXPECT_EQ(Le16(one, centralOne + 30), extraA);
	// In "2" the second central record follows the first name at once.
	EXPECT_EQ(Le32(two, centralTwo + 46 + 5), 0x02014B50u);
	EXPECT_EQ(Le32(one, centralOne + 46 + 5 + extraA), 0x02014B50u);

	for (const std::string *archive : { &one, &two })
	{
		CZip back;
		ASSERT_TRUE(back.ParseFromBuffer(archive->data(), (int64)archive->size()));
		EXPECT_EQ(Read(back, "a.txt"), "aaa");
		EXPECT_EQ(Read(back, "b.txt"), "bbbb");
		EXPECT_EQ(back.GetAlignmentSetting(), 64u);
		EXPECT_EQ(back.IsCompatibleFormat(), archive == &one);
	}
}

TEST(Zip, CompactFormatWritesOnlyTheFirstData)
{
	CZip zip;
	zip.ForceAlignment(true, false, 0xFFFFFFFFu);
	ASSERT_TRUE(Add(zip, "a.txt", "first-data"));
	ASSERT_TRUE(Add(zip, "b.txt", "second-data"));
	ASSERT_TRUE(Add(zip, "c.txt", "third-data"));
	const std::string archive = Save(zip);
	EXPECT_NE(archive.find("first-data"), std::string::npos);
	EXPECT_EQ(archive.find("second-data"), std::string::npos);
	EXPECT_EQ(archive.find("third-data"), std::string::npos);
	EXPECT_EQ(std::string(archive.c_str() + archive.size() - 32), "XZP3 0");
	EXPECT_EQ((int64)archive.size(), zip.EstimateSize());

	CZip back;
	ASSERT_TRUE(back.ParseFromBuffer(archive.data(), (int64)archive.size()));
	EXPECT_TRUE(back.IsCompactFormat());
	EXPECT_EQ(Names(back), (std::vector<std::string>{ "a.txt", "b.txt", "c.txt" }));
	EXPECT_EQ(Read(back, "a.txt"), "first-data");
	{
		CCaptureLog log;
		EXPECT_EQ(Read(back, "b.txt"), "<missing>");
		EXPECT_NE(log.m_Text.find("b.txt"), std::string::npos);
	}

	// The compatible flag wins over compact: everything is written.
	CZip both;
	both.ForceAlignment(true, true, 0xFFFFFFFFu);
	ASSERT_TRUE(Add(both, "a.txt", "first-data"));
	ASSERT_TRUE(Add(both, "b.txt", "second-data"));
	const std::string full = Save(both);
	EXPECT_NE(full.find("second-data"), std::string::npos);
	EXPECT_EQ(std::string(full.c_str() + full.size() - 32), "XZP1 0");
}

// In a child: reads an entry with the address space limited to 256 MiB more than it holds now.
// 0 when the read fails as it should, 1 when it succeeds; a claim that is allocated ends the child
// with an exception instead.
int ReadWithLittleRoom(CZip &zip, const char *pszName, int hFile = -1)
{
	long nPages = 0;
	FILE *pStatm = fopen("/proc/self/statm", "r");
	if (!pStatm || fscanf(pStatm, "%ld", &nPages) != 1)
		return 2;
	fclose(pStatm);
	const rlim_t nLimit = (rlim_t)nPages * (rlim_t)sysconf(_SC_PAGESIZE) + (256u << 20);
	const struct rlimit limit = { nLimit, nLimit };
	if (setrlimit(RLIMIT_AS, &limit) != 0)
		return 3;
	CUtlBuffer buffer;
	const bool bRead = hFile >= 0 ? zip.ReadFileFromZip(hFile, pszName, false, buffer) : zip.ReadFileFromZip(pszName, false, buffer);
	return bRead ? 1 : 0;
}

TEST(Zip, ASizeClaimedWithoutDataIsNeverAllocated)
{
	// A compact archive whose second entry claims nearly 2 GiB: the claim is parsed (the data
	// lies elsewhere), and reading the entry fails without asking for that memory. Checked in a
	// child whose address space cannot grow by that much.
	CZip zip;
	zip.ForceAlignment(true, false, 0xFFFFFFFFu);
	ASSERT_TRUE(Add(zip, "a.txt", "first-data"));
	ASSERT_TRUE(Add(zip, "b.txt", "second-data"));
	std::string archive = Save(zip);
	size_t nRecord = archive.find("PK\x01\x02");
	while (nRecord != std::string::npos && archive.compare(nRecord + 46, 5, "b.txt") != 0)
		nRecord = archive.find("PK\x01\x02", nRecord + 4);
	ASSERT_NE(nRecord, std::string::npos);
	for (const size_t nField : { nRecord + 20, nRecord + 24 }) // stored and unpacked sizes
		memcpy(archive.data() + nField, "\xF0\xFF\xFF\x7F", 4);
	CZip back;
	ASSERT_TRUE(back.ParseFromBuffer(archive.data(), (int64)archive.size()));
	int nSize = 0;
	char name[64];
	ASSERT_NE(back.GetNextFilename(back.GetNextFilename(-1, name, sizeof(name), nSize), name, sizeof(name), nSize), -1);
	ASSERT_EQ(nSize, 0x7FFFFFF0);

	EXPECT_EXIT(_exit(ReadWithLittleRoom(back, "b.txt")), testing::ExitedWithCode(0), "");

	// The same entry read from a file that holds the archive.
	CTempDirectory folder;
	const std::string path = WriteBytes(folder, "compact.zip", archive);
	const int hFile = open(path.c_str(), O_RDONLY | O_CLOEXEC);
	ASSERT_GE(hFile, 0);
	EXPECT_EXIT(_exit(ReadWithLittleRoom(back, "b.txt", hFile)), testing::ExitedWithCode(0), "");
	close(hFile);
}

TEST(Zip, CommentSetsFormatAndAlignmentWhenReading)
{
	CZip zip;
	zip.ForceAlignment(true, true, 2048);
	ASSERT_TRUE(Add(zip, "a.txt", "aaaa"));
	std::string archive = Save(zip);
	char *comment = archive.data() + archive.size() - 32;

	memset(comment, 0, 32);
	strcpy(comment, "XZP3 2048");
	{
		CZip back;
		ASSERT_TRUE(back.ParseFromBuffer(archive.data(), (int64)archive.size()));
		EXPECT_EQ(back.GetAlignmentSetting(), 2048u);
		EXPECT_EQ(back.GetAlignment(), 0u); // not forced
		EXPECT_TRUE(back.IsCompactFormat());
		EXPECT_FALSE(back.IsCompatibleFormat());
		EXPECT_EQ(Read(back, "a.txt"), "aaaa");
	}
	memset(comment, 0, 32);
	strcpy(comment, "xzp2 3");
	{
		CZip back;
		ASSERT_TRUE(back.ParseFromBuffer(archive.data(), (int64)archive.size()));
		EXPECT_EQ(back.GetAlignmentSetting(), 0u);
		EXPECT_FALSE(back.IsCompatibleFormat());
		EXPECT_FALSE(back.IsCompactFormat());
	}
	memset(comment, 0, 32);
	strcpy(comment, "XZP1 4096");
	{
		// A forced alignment is kept.
		CZip back;
		back.ForceAlignment(true, true, 256);
		ASSERT_TRUE(back.ParseFromBuffer(archive.data(), (int64)archive.size()));
		EXPECT_EQ(back.GetAlignment(), 256u);
	}
	memset(comment, 0, 32);
	strcpy(comment, "hello");
	{
		CZip back;
		back.ForceAlignment(true, false, 256);
		ASSERT_TRUE(back.ParseFromBuffer(archive.data(), (int64)archive.size()));
		EXPECT_FALSE(back.IsCompatibleFormat()); // left as it was
		EXPECT_EQ(Read(back, "a.txt"), "aaaa");
	}
}

TEST(Zip, LongNamesAreCutWhenParsed)
{
	CZip zip;
	const std::string name(2000, 'q');
	ASSERT_TRUE(Add(zip, name.c_str(), "long"));
	const std::string archive = Save(zip);
	CZip back;
	ASSERT_TRUE(back.ParseFromBuffer(archive.data(), (int64)archive.size()));
	const std::vector<std::string> names = Names(back);
	ASSERT_EQ(names.size(), 1u);
	EXPECT_EQ(names[0], std::string(1023, 'q'));
	EXPECT_EQ(Read(back, std::string(1023, 'q').c_str()), "long");
}

TEST(Zip, ParseStopsAtACompressedEntry)
{
	CZip zip;
	ASSERT_TRUE(Add(zip, "a.txt", "one"));
	ASSERT_TRUE(Add(zip, "b.txt", "two"));
	ASSERT_TRUE(Add(zip, "c.txt", "three"));
	std::string archive = Save(zip);
	const size_t central = Le32(archive, archive.size() - 54 + 16);
	const size_t secondCentral = central + 46 + 5;
	ASSERT_EQ(Le32(archive, secondCentral), 0x02014B50u);

	int method = -1;
	EXPECT_TRUE(zip.GetFirstCompressionMethod(archive.data(), (int64)archive.size(), method));
	EXPECT_EQ(method, 0);

	SetLe16(archive, secondCentral + 10, 8); // deflated
	CZip back;
	ASSERT_TRUE(back.ParseFromBuffer(archive.data(), (int64)archive.size()));
	EXPECT_EQ(Names(back), (std::vector<std::string>{ "a.txt" }));
	EXPECT_TRUE(back.GetFirstCompressionMethod(archive.data(), (int64)archive.size(), method));
	EXPECT_EQ(method, 8);
}

TEST(Zip, FirstCompressionMethodFailures)
{
	CZip zip;
	int method = -1;
	const std::string junk(100, 'x');
	EXPECT_FALSE(zip.GetFirstCompressionMethod(junk.data(), (int64)junk.size(), method));
	EXPECT_EQ(method, 0);
	const std::string empty = Save(zip); // an archive with no entries
	EXPECT_FALSE(zip.GetFirstCompressionMethod(empty.data(), (int64)empty.size(), method));
}

TEST(Zip, NoEndRecordGivesAnEmptyZip)
{
	CZip zip;
	ASSERT_TRUE(Add(zip, "left.txt", "x"));
	const std::string junk(5000, 'j');
	EXPECT_TRUE(zip.ParseFromBuffer(junk.data(), (int64)junk.size()));
	EXPECT_EQ(zip.GetItemCount(), 0);
}

TEST(Zip, BigEndianRecords)
{
	CZip zip;
	zip.SetBigEndian(true);
	zip.ForceAlignment(true, true, 16);
	ASSERT_TRUE(Add(zip, "x.bin", "big-endian"));
	const std::string archive = Save(zip);
	EXPECT_EQ((uint8)archive[0], 0x04);
	EXPECT_EQ((uint8)archive[1], 0x03);
	EXPECT_EQ((uint8)archive[2], 0x4B);
	EXPECT_EQ((uint8)archive[3], 0x50);
	EXPECT_EQ((uint8)archive[4], 0);
	EXPECT_EQ((uint8)archive[5], 10);

	CZip big;
	big.ActivateByteSwapping(true);
	ASSERT_TRUE(big.ParseFromBuffer(archive.data(), (int64)archive.size()));
	EXPECT_EQ(Read(big, "x.bin"), "big-endian");
	EXPECT_EQ(big.GetAlignmentSetting(), 16u);

	CZip little;
	ASSERT_TRUE(little.ParseFromBuffer(archive.data(), (int64)archive.size()));
	EXPECT_EQ(little.GetItemCount(), 0);
}

TEST(Zip, EstimateSizeMatchesEveryLayout)
{
	for (unsigned alignment : { 0u, 1u, 64u, 4096u, 0xFFFFFFFFu })
	{
		for (bool bCompatible : { true, false })
		{
			CZip zip;
			zip.ForceAlignment(alignment != 0, bCompatible, alignment);
			ASSERT_TRUE(Add(zip, "one.txt", Pattern(100, 1)));
			ASSERT_TRUE(Add(zip, "dir/two.bin", Pattern(5000, 2)));
			ASSERT_TRUE(Add(zip, "empty", ""));
			const int64 estimate = zip.EstimateSize();
			EXPECT_EQ(estimate, (int64)Save(zip).size()) << alignment << " " << bCompatible;
		}
	}
	CZip empty;
	EXPECT_EQ(empty.EstimateSize(), 54);
}

TEST(Zip, RemoveAndWalk)
{
	CZip zip;
	ASSERT_TRUE(Add(zip, "a", "1"));
	ASSERT_TRUE(Add(zip, "b", "22"));
	ASSERT_TRUE(Add(zip, "c", "333"));
	char name[16];
	int size = -1;
	const int first = zip.GetNextFilename(-1, name, sizeof(name), size);
	EXPECT_STREQ(name, "a");
	EXPECT_EQ(size, 1);
	zip.RemoveFileFromZip("B");
	const int next = zip.GetNextFilename(first, name, sizeof(name), size);
	EXPECT_STREQ(name, "c");
	EXPECT_EQ(size, 3);
	EXPECT_EQ(zip.GetNextFilename(next, name, sizeof(name), size), -1);
	EXPECT_FALSE(zip.FileExistsInZip("b"));

	CCaptureLog log;
	zip.PrintDirectory();
	EXPECT_EQ(log.m_Text, "a\nc\n");
}

TEST(Zip, TextModeKeepsTheBytes)
{
	CZip zip;
	const std::string text = "line one\r\nline two\n";
	ASSERT_TRUE(zip.AddBufferToZip("t.txt", text.data(), (int64)text.size(), true));
	CUtlBuffer out(CUtlBuffer::TEXT_BUFFER);
	ASSERT_TRUE(zip.ReadFileFromZip("t.txt", true, out));
	EXPECT_EQ(std::string(out.Base(), out.Size()), text);
}

TEST(Zip, RefusesWhatAZipCannotHold)
{
	CZip zip;
	EXPECT_FALSE(zip.AddBufferToZip(nullptr, "x", 1, false));
	EXPECT_FALSE(zip.AddBufferToZip("", "x", 1, false));
	EXPECT_FALSE(zip.AddBufferToZip("a", nullptr, 1, false));
	EXPECT_FALSE(zip.AddBufferToZip("a", "x", -1, false));
	CCaptureLog log;
	const std::string longName(70000, 'n');
	EXPECT_FALSE(zip.AddBufferToZip(longName.c_str(), "x", 1, false));
	EXPECT_NE(log.m_Text.find("too long"), std::string::npos);
	EXPECT_EQ(zip.GetItemCount(), 0);
}

TEST(Zip, MoreEntriesThanARecordCountsAreRefused)
{
	CZip zip;
	for (int i = 0; i < 65536; ++i)
		ASSERT_TRUE(Add(zip, V_Format("f%05d", i).c_str(), "x"));
	CCaptureLog log;
	CUtlBuffer buffer;
	EXPECT_FALSE(zip.SaveToBuffer(buffer));
	EXPECT_NE(log.m_Text.find("65536 entries"), std::string::npos);
	zip.RemoveFileFromZip("f00000");
	EXPECT_TRUE(zip.SaveToBuffer(buffer));
}

TEST(Zip, AddFileToZip)
{
	CTempDirectory dir;
	const std::string path = dir.Write("in/file.dat", "file contents");
	CZip zip;
	EXPECT_TRUE(zip.AddFileToZip("sub/File.dat", path.c_str()));
	EXPECT_EQ(Read(zip, "sub/file.dat"), "file contents");
	EXPECT_FALSE(zip.AddFileToZip("missing.dat", dir.Path("nothing").c_str()));
	EXPECT_FALSE(zip.FileExistsInZip("missing.dat"));
	EXPECT_EQ(zip.GetItemCount(), 1);
}

TEST(Zip, DiskCache)
{
	CTempDirectory dir;
	std::string cacheName;
	std::string fromCache;
	{
		CZip zip(dir.Path().c_str());
		cacheName = zip.GetDiskCacheName();
		ASSERT_FALSE(cacheName.empty());
		EXPECT_EQ(cacheName.rfind(dir.Path() + "/", 0), 0u);
		EXPECT_EQ(cacheName.substr(cacheName.size() - 4), ".tmp");
		EXPECT_TRUE(std::filesystem::exists(cacheName));
		ASSERT_TRUE(Add(zip, "b.bin", Pattern(3000, 5)));
		ASSERT_TRUE(Add(zip, "a.bin", Pattern(7000, 6)));
		ASSERT_TRUE(Add(zip, "b.bin", Pattern(1000, 7))); // replaced: the old bytes stay dead in the cache
		EXPECT_EQ(std::filesystem::file_size(cacheName), 11000u);
		EXPECT_EQ(Read(zip, "a.bin"), Pattern(7000, 6));
		fromCache = Save(zip);

		// Both disk forms write the same bytes.
		const std::string viaFile = dir.Path("file.zip");
		FILE *fp = fopen(viaFile.c_str(), "wb+");
		ASSERT_TRUE(fp);
		ASSERT_TRUE(zip.SaveToDisk(fp));
		fclose(fp);
		const std::string viaHandle = dir.Path("handle.zip");
		const int fd = open(viaHandle.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644);
		ASSERT_GE(fd, 0);
		ASSERT_TRUE(zip.SaveToDisk(fd));
		close(fd);
		CUtlBuffer a, b;
		ASSERT_TRUE(Plat_ReadFile(viaFile.c_str(), a));
		ASSERT_TRUE(Plat_ReadFile(viaHandle.c_str(), b));
		EXPECT_EQ(a.View(), fromCache);
		EXPECT_EQ(b.View(), fromCache);

		// Reset removes the cache and makes a new, empty one (within the same millisecond it
		// may get the same name).
		const std::string oldName = cacheName;
		zip.Reset();
		EXPECT_EQ(zip.GetItemCount(), 0);
		cacheName = zip.GetDiskCacheName();
		ASSERT_TRUE(std::filesystem::exists(cacheName));
		EXPECT_EQ(std::filesystem::file_size(cacheName), 0u);
		if (oldName != cacheName)
		{
			EXPECT_FALSE(std::filesystem::exists(oldName));
		}
	}
	EXPECT_FALSE(std::filesystem::exists(cacheName)); // removed with the zip

	CZip memory;
	ASSERT_TRUE(Add(memory, "b.bin", Pattern(1000, 7)));
	ASSERT_TRUE(Add(memory, "a.bin", Pattern(7000, 6)));
	EXPECT_EQ(Save(memory), fromCache);
}

TEST(Zip, DiskCacheInTheTemporaryFolder)
{
	CZip zip("");
	const std::string name = zip.GetDiskCacheName();
	ASSERT_FALSE(name.empty());
	const std::string file = std::filesystem::path(name).filename().string();
	EXPECT_EQ(file[0], '_');
	EXPECT_EQ(file.substr(file.size() - 4), ".tmp");
	ASSERT_TRUE(Add(zip, "x", "cached"));
	EXPECT_EQ(Read(zip, "x"), "cached");
}

TEST(Zip, ParseFromDiskKeepsTheDataOnDisk)
{
	CTempDirectory dir;
	CZip zip;
	zip.ForceAlignment(true, true, 256);
	ASSERT_TRUE(Add(zip, "one.txt", "first file"));
	ASSERT_TRUE(Add(zip, "two/three.txt", Pattern(10000, 3)));
	const std::string path = WriteBytes(dir, "a.zip", Save(zip));

	CZip back;
	ASSERT_TRUE(back.ParseFromDisk(path.c_str()));
	EXPECT_EQ(back.GetAlignmentSetting(), 256u);
	EXPECT_EQ(Names(back), (std::vector<std::string>{ "one.txt", "two/three.txt" }));
	EXPECT_EQ(Read(back, "two/three.txt"), Pattern(10000, 3));
	const int fd = open(path.c_str(), O_RDONLY);
	ASSERT_GE(fd, 0);
	CUtlBuffer buffer;
	EXPECT_TRUE(back.ReadFileFromZip(fd, "one.txt", false, buffer));
	EXPECT_EQ(buffer.View(), "first file");
	CUtlBuffer none;
	EXPECT_FALSE(back.ReadFileFromZip(fd, "absent.txt", false, none));
	close(fd);

	// Saving again reads the bytes from the archive: the same archive comes out.
	EXPECT_EQ(Save(back), Save(zip));

	EXPECT_FALSE(back.ParseFromDisk(dir.Path("missing.zip").c_str()));
	CCaptureLog log;
	const std::string tiny = WriteBytes(dir, "tiny.zip", "PK");
	EXPECT_FALSE(back.ParseFromDisk(tiny.c_str()));
	EXPECT_NE(log.m_Text.find("tiny.zip"), std::string::npos);
}

TEST(Zip, EndRecordFarFromTheEnd)
{
	// Junk behind the end record is searched through backwards.
	CZip zip;
	ASSERT_TRUE(Add(zip, "a.txt", "aaa"));
	std::string archive = Save(zip);
	archive += std::string(200000, 'j');
	CTempDirectory dir;
	const std::string path = WriteBytes(dir, "junk.zip", archive);
	CZip fromDisk, fromMemory;
	ASSERT_TRUE(fromDisk.ParseFromDisk(path.c_str()));
	ASSERT_TRUE(fromMemory.ParseFromBuffer(archive.data(), (int64)archive.size()));
	EXPECT_EQ(Read(fromDisk, "a.txt"), "aaa");
	EXPECT_EQ(Read(fromMemory, "a.txt"), "aaa");
}

TEST(Zip, DamagedArchivesFailWithAMessage)
{
	CZip zip;
	ASSERT_TRUE(Add(zip, "a.txt", Pattern(300, 1)));
	ASSERT_TRUE(Add(zip, "b.txt", Pattern(300, 2)));
	const std::string good = Save(zip);
	const size_t end = good.size() - 54;
	const size_t central = Le32(good, end + 16);
	CTempDirectory dir;

	struct Case_t
	{
		const char *what;
		std::string bytes;
		const char *message;
	};
	std::vector<Case_t> cases;
	{
		std::string bytes = good;
		SetLe32(bytes, end + 16, 0x7FFFFFF0); // central directory offset past the end
		cases.push_back({ "central offset", bytes, "central directory" });
	}
	{
		std::string bytes = good;
		SetLe32(bytes, end + 12, (uint32)(end - central + 1000)); // central size past the end record
		cases.push_back({ "central size", bytes, "central directory" });
	}
	{
		std::string bytes = good;
		SetLe16(bytes, central + 28, 60000); // name past the directory
		cases.push_back({ "name length", bytes, "name of entry" });
	}
	{
		std::string bytes = good;
		SetLe16(bytes, end + 10, 40); // more entries than the directory holds
		cases.push_back({ "entry count", bytes, "ends after" });
	}
	{
		std::string bytes = good;
		SetLe32(bytes, central + 20, 0x10000000); // stored size past the end
		SetLe32(bytes, central + 24, 0x10000000);
		cases.push_back({ "data size", bytes, "past the end" });
	}
	{
		std::string bytes = good;
		SetLe32(bytes, central + 20, 100); // sizes that disagree
		cases.push_back({ "sizes", bytes, "stored size" });
	}
	{
		// Both entries point at the same bytes.
		std::string bytes = good;
		const size_t second = central + 46 + 5;
		SetLe32(bytes, second + 42, 0);
		cases.push_back({ "overlap", bytes, "overlap" });
	}
	{
		// Cut in the middle of the data, end record kept.
		std::string bytes = good.substr(0, 100) + good.substr(central);
		cases.push_back({ "truncated data", bytes, "" });
	}
	for (const Case_t &test : cases)
	{
		SCOPED_TRACE(test.what);
		{
			CCaptureLog log;
			CZip back;
			EXPECT_FALSE(back.ParseFromBuffer(test.bytes.data(), (int64)test.bytes.size()));
			EXPECT_EQ(back.GetItemCount(), 0);
			EXPECT_NE(log.m_Text.find(test.message), std::string::npos) << log.m_Text;
			EXPECT_NE(log.m_Text.find("zip in memory"), std::string::npos) << log.m_Text;
		}
		{
			CCaptureLog log;
			const std::string path = WriteBytes(dir, "bad.zip", test.bytes);
			CZip back;
			EXPECT_FALSE(back.ParseFromDisk(path.c_str()));
			EXPECT_EQ(back.GetItemCount(), 0);
			EXPECT_NE(log.m_Text.find(path), std::string::npos) << log.m_Text;
		}
	}
}

TEST(Zip, TruncatedArchivesNeverReadOutside)
{
	CZip zip;
	zip.ForceAlignment(true, true, 64);
	ASSERT_TRUE(Add(zip, "a.txt", Pattern(500, 1)));
	ASSERT_TRUE(Add(zip, "b/c.txt", Pattern(900, 2)));
	const std::string good = Save(zip);
	CCaptureLog log;
	for (size_t length = 0; length < good.size(); ++length)
	{
		// Each prefix in a buffer of its own size, so that ASan sees any read past it.
		std::vector<char> prefix(good.begin(), good.begin() + (ptrdiff_t)length);
		CZip back;
		back.ParseFromBuffer(prefix.data(), (int64)prefix.size());
		int method;
		back.GetFirstCompressionMethod(prefix.data(), (int64)prefix.size(), method);
		if (back.GetItemCount() > 0)
		{
			EXPECT_EQ(Read(back, "a.txt"), Pattern(500, 1));
		}
	}
}

TEST(Zip, CreateAndRelease)
{
	IZip *pZip = IZip::CreateZip();
	ASSERT_TRUE(pZip);
	EXPECT_TRUE(pZip->AddBufferToZip("x", "y", 1, false));
	IZip::ReleaseZip(pZip);
	CCaptureLog log;
	IZip::ReleaseZip(pZip); // twice: refused, not freed again
	EXPECT_NE(log.m_Text.find("ReleaseZip"), std::string::npos);
}

// Every entry name of the shared table, written into a zip and unpacked: the hostile ones are
// refused and nothing lands outside the folder; the legitimate ones land where the rule says.
TEST(Zip, EntryNamesFollowThePathRule)
{
	// Our writer holds no NUL in a name; a zip from elsewhere may, so it is patched in afterwards.
	auto MakeArchive = [](const std::string &name) {
		const bool bNul = name.find('\0') != std::string::npos;
		std::string written = name;
		std::replace(written.begin(), written.end(), '\0', '\x01');
		CZip zip;
		EXPECT_TRUE(Add(zip, written.c_str(), "entry"));
		std::string archive = Save(zip);
		for (size_t at = 0; bNul && (at = archive.find(written, at)) != std::string::npos; at += written.size())
			archive.replace(at, written.size(), name);
		return archive;
	};
	for (const PathRuleName_t &name : HostilePathNames())
	{
		EXPECT_FALSE(Zip_IsSafeEntryName(name.name.c_str())) << name.what;
		if (name.name.empty())
			continue; // a zip cannot hold an entry without a name
		CTempDirectory dir;
		const std::string archive = MakeArchive(name.name);
		CZip back;
		ASSERT_TRUE(back.ParseFromBuffer(archive.data(), (int64)archive.size())) << name.what;
		CUtlString error;
		EXPECT_FALSE(Zip_ExtractAll(&back, dir.Path("out/inner").c_str(), &error)) << name.what;
		EXPECT_NE(error.find("refused"), std::string::npos) << name.what << ": " << error;
		size_t files = 0;
		for (const auto &entry : std::filesystem::recursive_directory_iterator(dir.Path()))
			files += entry.is_regular_file() ? 1 : 0;
		EXPECT_EQ(files, 0u) << name.what;
	}
	for (const PathRuleName_t &name : LegitimatePathNames())
	{
		EXPECT_TRUE(Zip_IsSafeEntryName(name.name.c_str())) << name.what;
		CTempDirectory dir;
		const std::string archive = MakeArchive(name.name);
		CZip back;
		ASSERT_TRUE(back.ParseFromBuffer(archive.data(), (int64)archive.size())) << name.what;
		CUtlString error;
		ASSERT_TRUE(Zip_ExtractAll(&back, dir.Path("out").c_str(), &error)) << name.what << ": " << error;
		CUtlBuffer data;
		ASSERT_TRUE(Plat_ReadFile(dir.Path("out/" + PathRuleLanding(name.name)).c_str(), data)) << name.what;
		EXPECT_EQ(data.View(), "entry");
	}
}

TEST(Zip, ExtractAllStaysInsideTheFolder)
{
	CTempDirectory dir;
	{
		CZip zip;
		ASSERT_TRUE(Add(zip, "top.txt", "top"));
		ASSERT_TRUE(Add(zip, "deep/er/file.bin", Pattern(4000, 9)));
		const std::string archive = Save(zip);
		CZip back;
		ASSERT_TRUE(back.ParseFromBuffer(archive.data(), (int64)archive.size()));
		CUtlString error;
		ASSERT_TRUE(Zip_ExtractAll(&back, dir.Path("out").c_str(), &error)) << error;
		CUtlBuffer data;
		ASSERT_TRUE(Plat_ReadFile(dir.Path("out/deep/er/file.bin").c_str(), data));
		EXPECT_EQ(data.View(), Pattern(4000, 9));
	}
}

// -------------------------------------------------------------------------------------------------
// Plain zip tools open the compatible format.

class ZipOracle : public ::testing::TestWithParam<unsigned>
{
};

TEST_P(ZipOracle, UnzipAndPythonOpenTheArchive)
{
	if (RunCommand("command -v unzip").exitCode != 0 || RunCommand("command -v python3").exitCode != 0)
		GTEST_SKIP() << "unzip or python3 is not installed";
	const unsigned alignment = GetParam();
	CTempDirectory dir;
	CZip zip(dir.Path().c_str());
	zip.ForceAlignment(alignment != 0, true, alignment);
	std::vector<std::pair<std::string, std::string>> files = {
		{ "mintyard_import_manifest.txt", "<!-- kv3 -->\r\n{ a = 1 }\n" },
		{ "model/lod0.fbx", Pattern(70000, 11) },
		{ "model/material/color.tga", Pattern(12345, 12) },
		{ "image_set/image.png", Pattern(1, 13) },
		{ std::string(480, 'l') + ".bin", Pattern(77, 14) },
	};
	for (const auto &file : files)
		ASSERT_TRUE(Add(zip, file.first.c_str(), file.second));
	const std::string path = dir.Path("oracle.zip");
	FILE *fp = fopen(path.c_str(), "wb+");
	ASSERT_TRUE(fp);
	ASSERT_TRUE(zip.SaveToDisk(fp));
	fclose(fp);

	const CommandResult_t unzip = RunCommand("unzip -t '" + path + "'");
	EXPECT_EQ(unzip.exitCode, 0) << unzip.output;
	EXPECT_NE(unzip.output.find("No errors detected"), std::string::npos) << unzip.output;

	// Python lists, tests and reads every member; the bytes must match ours.
	const std::string script = dir.Write("check.py",
		"import sys, zipfile, zlib\n"
		"z = zipfile.ZipFile(sys.argv[1])\n"
		"bad = z.testzip()\n"
		"assert bad is None, bad\n"
		"for info in z.infolist():\n"
		"    data = z.read(info.filename)\n"
		"    print(info.filename, len(data), '%08x' % zlib.crc32(data))\n");
	const CommandResult_t python = RunCommand("python3 '" + script + "' '" + path + "'");
	EXPECT_EQ(python.exitCode, 0) << python.output;
	std::string expected;
	std::sort(files.begin(), files.end());
	for (const auto &file : files)
		expected += V_Format("%s %zu %08x\n", file.first.c_str(), file.second.size(), CRC32_ProcessSingleBuffer(file.second.data(), file.second.size()));
	EXPECT_EQ(python.output, expected);
}

INSTANTIATE_TEST_SUITE_P(Alignments, ZipOracle, ::testing::Values(0u, 512u, 2048u, 4096u));
