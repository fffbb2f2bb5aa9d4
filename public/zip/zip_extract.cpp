// Unpacking a zip into a folder, refusing names that would leave it.
#include "zip/zip_utils.h"

#include <algorithm>
#include <filesystem>
#include <vector>

#include "core/fileio.h"
#include "core/strtools.h"

bool Zip_IsSafeEntryName(const char *name)
{
	if (!name || !*name)
		return false;
	CUtlString path = name;
	std::replace(path.begin(), path.end(), '\\', '/');
	if (path[0] == '/')
		return false;
	if (path.size() >= 2 && path[1] == ':' && ((path[0] >= 'a' && path[0] <= 'z') || (path[0] >= 'A' && path[0] <= 'Z')))
		return false;
	size_t start = 0;
	while (start <= path.size())
	{
		size_t slash = path.find('/', start);
		if (slash == CUtlString::npos)
			slash = path.size();
		if (path.compare(start, slash - start, "..") == 0)
			return false;
		start = slash + 1;
	}
	return true;
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
		if (!Zip_IsSafeEntryName(name.data()))
			return Fail(V_Format("%s: refused the entry '%s': it would be written outside the folder", pFolder, name.data()));
		CUtlString relative = name.data();
		std::replace(relative.begin(), relative.end(), '\\', '/');
		const std::filesystem::path target = folder / relative;
		if (relative.back() == '/')
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
