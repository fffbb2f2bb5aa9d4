// bdl: makes, lists, tests and unpacks BDL pack files.
//
//   bdl a TARGET FILE...   make a single-file pack TARGET (".bdl" is added when missing) of the
//                          files, each named by its path relative to the current folder
//   bdl l PACK             list every entry: name, size, CRC, archive index and offset
//   bdl t PACK             check every file's CRC and the pack's MD5 self hash
//   bdl x PACK DIR         unpack into DIR; a name that would land outside DIR is refused
//
// Exit codes: 0 success, 1 failure, 2 usage. Messages go to standard error. A damaged pack
// may end the command through the pack store's fatal errors, also with exit code 1.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

#include "bdllib/formatfilesize.h"
#include "bdllib/packedstore.h"
#include "core/fileio.h"
#include "core/hashes.h"
#include "core/logging.h"
#include "core/pathutils.h"
#include "core/strtools.h"
#include "filesystem/filesystem.h"

namespace
{
int Usage()
{
	fprintf(stderr,
		"usage: bdl a TARGET FILE...   make a pack of the files (names relative to the current folder)\n"
		"       bdl l PACK             list the entries\n"
		"       bdl t PACK             check every CRC and the MD5 self hash\n"
		"       bdl x PACK DIR         unpack into DIR\n");
	return 2;
}

bool PackExists(IFileSystem *pFileSystem, const char *pPack)
{
	if (pFileSystem->FileExists(pPack))
		return true;
	// A multi-chunk pack may be named by its base or by its directory file.
	CUtlString base = CPackedStore::CleanPath(pPack);
	if (base.size() > 4 && V_stricmp(base.c_str() + base.size() - 4, ".bdl") == 0)
		base.resize(base.size() - 4);
	return pFileSystem->FileExists((base + "_dir.bdl").c_str());
}

int CommandAdd(IFileSystem *pFileSystem, int argc, char **argv)
{
	if (argc < 4)
		return Usage();
	CUtlString target = argv[2];
	if (target.size() < 4 || V_stricmp(target.c_str() + target.size() - 4, ".bdl") != 0)
		target += ".bdl";

	std::error_code error;
	const std::filesystem::path cwd = std::filesystem::current_path(error);
	if (error)
	{
		fprintf(stderr, "bdl: cannot read the current folder\n");
		return 1;
	}
	struct Input_t
	{
		CUtlString path;
		CUtlString name;
	};
	std::vector<Input_t> inputs;
	for (int i = 3; i < argc; ++i)
	{
		const std::filesystem::path absolute = (cwd / argv[i]).lexically_normal();
		const std::filesystem::path relative = absolute.lexically_relative(cwd);
		const CUtlString name = relative.generic_string();
		if (relative.empty() || name == "." || name.rfind("..", 0) == 0 || relative.is_absolute())
		{
			fprintf(stderr, "bdl: %s: refused: the file lies outside the current folder %s\n", argv[i], cwd.c_str());
			return 1;
		}
		if (pFileSystem->IsDirectory(absolute.c_str()))
		{
			fprintf(stderr, "bdl: %s: refused: a folder, not a file\n", argv[i]);
			return 1;
		}
		if (!pFileSystem->FileExists(absolute.c_str()))
		{
			fprintf(stderr, "bdl: %s: no such file\n", argv[i]);
			return 1;
		}
		inputs.push_back({ absolute.string(), name });
	}

	// A fresh pack: whatever was at the target is replaced.
	const CUtlString dirName = target.substr(0, target.size() - 4) + "_dir.bdl";
	for (const CUtlString &old : { target, dirName })
	{
		if (pFileSystem->FileExists(old.c_str()) && !pFileSystem->RemoveFile(old.c_str()))
		{
			fprintf(stderr, "bdl: %s: cannot replace the existing file\n", old.c_str());
			return 1;
		}
	}
	CPackedStore store(target.c_str(), pFileSystem, PACKEDSTORE_FLAG_READ_EMBEDDED | PACKEDSTORE_FLAG_WRITABLE);
	uint64 total = 0;
	for (const Input_t &input : inputs)
	{
		CUtlBuffer data;
		CUtlString readError;
		if (!pFileSystem->ReadFile(input.path.c_str(), nullptr, data, &readError))
		{
			fprintf(stderr, "bdl: %s\n", readError.c_str());
			return 1;
		}
		const EPackedStoreAddResultCode result = store.AddFile(input.name.c_str(), 0, data.Base(), (int64)data.Size(), false);
		if (result == EPADD_ERROR)
		{
			fprintf(stderr, "bdl: %s: cannot be added\n", input.path.c_str());
			return 1;
		}
		if (result == EPADD_ADDSAMEFILE)
			continue;
		printf("added %s (%s)\n", input.name.c_str(), FormatFileSize((int64)data.Size()).c_str());
		total += data.Size();
	}
	if (!store.Write())
	{
		fprintf(stderr, "bdl: %s: cannot write the pack\n", target.c_str());
		return 1;
	}
	printf("%s: %d files, %s\n", target.c_str(), store.GetFileCount(), FormatFileSize((int64)total).c_str());
	return 0;
}

int CommandList(IFileSystem *pFileSystem, const char *pPack)
{
	if (!PackExists(pFileSystem, pPack))
	{
		fprintf(stderr, "bdl: %s: no such pack\n", pPack);
		return 1;
	}
	CPackedStore store(pPack, pFileSystem);
	CUtlVector<PackedStoreFileInfo_t> files;
	store.GetFileList(files);
	printf("%-48s %12s  %-8s  %-8s  %s\n", "name", "size", "crc", "archive", "offset");
	for (const PackedStoreFileInfo_t &file : files)
	{
		CUtlString archive = "-", offset = "-";
		for (size_t i = 0; i < file.m_Fragments.size(); ++i)
		{
			const PackedStoreFragment_t &fragment = file.m_Fragments[i];
			const CUtlString index = fragment.m_nArchiveIndex == PACKEDSTORE_EMBEDDED_INDEX ? CUtlString("dir") : V_Format("%03u", fragment.m_nArchiveIndex);
			archive = i == 0 ? index : archive + "," + index;
			offset = i == 0 ? V_Format("%u", fragment.m_nOffset) : offset + V_Format(",%u", fragment.m_nOffset);
		}
		printf("%-48s %12llu  %08x  %-8s  %s\n", file.m_Name.c_str(), (unsigned long long)file.m_nTotalSize, file.m_nCRC, archive.c_str(),
			offset.c_str());
	}
	printf("%zu files, version %d%s\n", files.size(), store.GetVersion(), store.IsMultiChunk() ? ", multi-chunk" : "");
	return 0;
}

int CommandTest(IFileSystem *pFileSystem, const char *pPack)
{
	if (!PackExists(pFileSystem, pPack))
	{
		fprintf(stderr, "bdl: %s: no such pack\n", pPack);
		return 1;
	}
	CPackedStore store(pPack, pFileSystem);
	CUtlVector<PackedStoreFileInfo_t> files;
	store.GetFileList(files);
	int failures = 0;
	for (const PackedStoreFileInfo_t &file : files)
	{
		CUtlBuffer data;
		CUtlString error;
		if (!store.ReadFileData(file, data, &error))
		{
			fprintf(stderr, "bdl: %s\n", error.c_str());
			++failures;
			continue;
		}
		const uint32 crc = CRC32_ProcessSingleBuffer(data.Base(), data.Size());
		if (crc != file.m_nCRC)
		{
			fprintf(stderr, "bdl: %s: CRC mismatch (stored %08x, computed %08x)\n", file.m_Name.c_str(), file.m_nCRC, crc);
			++failures;
		}
	}
	bool bHasHash = false;
	CUtlString error;
	if (!store.VerifySelfHash(&bHasHash, &error))
	{
		fprintf(stderr, "bdl: %s\n", error.c_str());
		++failures;
	}
	else if (!bHasHash)
		printf("%s: no self hash to check (version %d)\n", pPack, store.GetVersion());
	if (failures > 0)
	{
		fprintf(stderr, "bdl: %s: %d problem%s found\n", pPack, failures, failures == 1 ? "" : "s");
		return 1;
	}
	printf("%s: %zu files OK%s\n", pPack, files.size(), bHasHash ? ", MD5 self hash OK" : "");
	return 0;
}

int CommandExtract(IFileSystem *pFileSystem, const char *pPack, const char *pFolder)
{
	if (!PackExists(pFileSystem, pPack))
	{
		fprintf(stderr, "bdl: %s: no such pack\n", pPack);
		return 1;
	}
	std::error_code error;
	const std::filesystem::path folder(pFolder);
	std::filesystem::create_directories(folder, error);
	if (!std::filesystem::is_directory(folder, error))
	{
		fprintf(stderr, "bdl: %s: cannot create the folder\n", pFolder);
		return 1;
	}
	CPackedStore store(pPack, pFileSystem);
	CUtlVector<PackedStoreFileInfo_t> files;
	store.GetFileList(files);
	int failures = 0;
	for (const PackedStoreFileInfo_t &file : files)
	{
		CUtlString target, why;
		if (!V_JoinInside(pFolder, file.m_Name, target, &why))
		{
			fprintf(stderr, "bdl: %s: refused: %s\n", file.m_Name.c_str(), why.c_str());
			++failures;
			continue;
		}
		CUtlBuffer data;
		CUtlString readError;
		if (!store.ReadFileData(file, data, &readError))
		{
			fprintf(stderr, "bdl: %s\n", readError.c_str());
			++failures;
			continue;
		}
		if (CRC32_ProcessSingleBuffer(data.Base(), data.Size()) != file.m_nCRC)
		{
			fprintf(stderr, "bdl: %s: CRC mismatch, not written\n", file.m_Name.c_str());
			++failures;
			continue;
		}
		std::filesystem::create_directories(std::filesystem::path(target.c_str()).parent_path(), error);
		CUtlString writeError;
		if (!Plat_WriteFileAtomic(target.c_str(), data.Base(), data.Size(), &writeError))
		{
			fprintf(stderr, "bdl: %s\n", writeError.c_str());
			++failures;
			continue;
		}
		printf("%s\n", file.m_Name.c_str());
	}
	if (failures > 0)
	{
		fprintf(stderr, "bdl: %s: %d file%s not unpacked\n", pPack, failures, failures == 1 ? "" : "s");
		return 1;
	}
	return 0;
}
} // namespace

int main(int argc, char **argv)
{
	if (argc < 3 || strlen(argv[1]) != 1)
		return Usage();
	IFileSystem *pFileSystem = CreateFileSystem();
	int result;
	switch (argv[1][0])
	{
	case 'a':
		result = CommandAdd(pFileSystem, argc, argv);
		break;
	case 'l':
		result = argc == 3 ? CommandList(pFileSystem, argv[2]) : Usage();
		break;
	case 't':
		result = argc == 3 ? CommandTest(pFileSystem, argv[2]) : Usage();
		break;
	case 'x':
		result = argc == 4 ? CommandExtract(pFileSystem, argv[2], argv[3]) : Usage();
		break;
	default:
		result = Usage();
		break;
	}
	fflush(stdout);
	DestroyFileSystem(pFileSystem);
	return result;
}
