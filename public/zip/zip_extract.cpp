// Unpacking a zip into a folder, refusing names that would leave it.
#include "zip/zip_utils.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <vector>

#include "core/fileio.h"
#include "core/pathutils.h"
#include "core/strtools.h"

bool Zip_IsSafeEntryName(const char *name)
{
	return name && V_IsSafeRelativePath(name);
}

bool Zip_ExtractAll(IZip *pZip, const char *pFolder, CUtlString *pError)
{
	auto Fail = [&](const CUtlString &message) {
		if (pError)
			*pError = message;
		return false;
	};
	if (!pZip || !pFolder || !*pFolder)
		return Fail("no zip or no folder to unpack to");
	const std::filesystem::path folder(pFolder);
	std::error_code error;
	std::filesystem::create_directories(folder, error);
	if (!std::filesystem::is_directory(folder, error))
		return Fail(V_Format("%s: cannot create the folder", pFolder));

	std::vector<char> name(0x10000 + 1);
	int size = 0;
	for (int id = pZip->GetNextFilename(-1, name.data(), (int)name.size(), size); id != -1;
		 id = pZip->GetNextFilename(id, name.data(), (int)name.size(), size))
	{
		CUtlString joined, why;
		if (!V_JoinInside(pFolder, name.data(), joined, &why))
			return Fail(V_Format("%s: refused the entry '%s': %s", pFolder, name.data(), why.c_str()));
		const std::filesystem::path target(joined.c_str());
		const char last = name[strlen(name.data()) - 1];
		if (last == '/' || last == '\\')
		{
			std::filesystem::create_directories(target, error);
			if (error)
				return Fail(V_Format("%s: cannot create the folder", target.string().c_str()));
			continue;
		}
		CUtlBuffer data;
		if (!pZip->ReadFileFromZip(name.data(), false, data))
			return Fail(V_Format("%s: cannot read the entry from the zip", name.data()));
		std::filesystem::create_directories(target.parent_path(), error);
		CUtlString writeError;
		if (!Plat_WriteFileAtomic(target.string().c_str(), data.Base(), data.Size(), &writeError))
			return Fail(writeError);
	}
	return true;
}
