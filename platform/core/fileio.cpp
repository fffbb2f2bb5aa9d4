#include "core/fileio.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/strtools.h"

namespace
{
class CDiskFileSystem final : public IBaseFileSystem
{
public:
	bool ReadFile(const char *path, const char *pathID, CUtlBuffer &out, CUtlString *pError) override
	{
		if (!CheckPathID(path, pathID, pError))
			return false;
		return Plat_ReadFile(path, out, pError);
	}

	bool WriteFile(const char *path, const char *pathID, const CUtlBuffer &data, CUtlString *pError) override
	{
		if (!CheckPathID(path, pathID, pError))
			return false;
		return Plat_WriteFileAtomic(path, data.Base(), data.Size(), pError);
	}

	bool FileExists(const char *path, const char *pathID) override
	{
		return (!pathID || !*pathID) && Plat_FileExists(path);
	}

private:
	static bool CheckPathID(const char *path, const char *pathID, CUtlString *pError)
	{
		if (!pathID || !*pathID)
			return true;
		if (pError)
			*pError = V_Format("%s: no file system is installed for the search path \"%s\"", path, pathID);
		return false;
	}
};

CDiskFileSystem s_DiskFileSystem;
IBaseFileSystem *s_pFileSystem = &s_DiskFileSystem;

CUtlString ErrnoText(const char *path, const char *what)
{
	return V_Format("%s: %s (%s)", path, what, strerror(errno));
}
} // namespace

IBaseFileSystem *CoreFileSystem()
{
	return s_pFileSystem;
}

IBaseFileSystem *SetCoreFileSystem(IBaseFileSystem *pFileSystem)
{
	IBaseFileSystem *previous = s_pFileSystem;
	s_pFileSystem = pFileSystem ? pFileSystem : &s_DiskFileSystem;
	return previous;
}

bool Plat_ReadFile(const char *path, CUtlBuffer &out, CUtlString *pError)
{
	out.Clear();
	const int fd = open(path, O_RDONLY | O_CLOEXEC);
	if (fd < 0)
	{
		if (pError)
			*pError = ErrnoText(path, "cannot open file");
		return false;
	}
	struct stat info;
	if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode))
	{
		if (pError)
			*pError = V_Format("%s: not a regular file", path);
		close(fd);
		return false;
	}
	if ((uint64)info.st_size > PLAT_MAX_READ_FILE_SIZE)
	{
		if (pError)
			*pError = V_Format("%s: file is too large (%lld bytes)", path, (long long)info.st_size);
		close(fd);
		return false;
	}
	out.SetSize((size_t)info.st_size);
	size_t done = 0;
	while (done < (size_t)info.st_size)
	{
		const ssize_t got = read(fd, out.Base() + done, (size_t)info.st_size - done);
		if (got < 0 && errno == EINTR)
			continue;
		if (got < 0)
		{
			if (pError)
				*pError = ErrnoText(path, "read failed");
			close(fd);
			out.Clear();
			return false;
		}
		if (got == 0)
			break; // the file shrank while reading
		done += (size_t)got;
	}
	close(fd);
	out.SetSize(done);
	out.SeekPut(done);
	return true;
}

bool Plat_WriteFileAtomic(const char *path, const void *data, size_t size, CUtlString *pError)
{
	CUtlString temporary = V_Format("%s.tmp%d", path, (int)getpid());
	// Keep the permissions of the file being replaced.
	mode_t mode = 0644;
	struct stat existing;
	if (stat(path, &existing) == 0)
		mode = existing.st_mode & 07777;

	const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
	if (fd < 0)
	{
		if (pError)
			*pError = ErrnoText(path, "cannot create file");
		return false;
	}
	const char *p = (const char *)data;
	size_t left = size;
	bool ok = true;
	while (left > 0)
	{
		const ssize_t wrote = write(fd, p, left);
		if (wrote < 0 && errno == EINTR)
			continue;
		if (wrote <= 0)
		{
			ok = false;
			break;
		}
		p += wrote;
		left -= (size_t)wrote;
	}
	if (ok && fsync(fd) != 0)
		ok = false;
	if (!ok && pError)
		*pError = ErrnoText(path, "write failed");
	if (close(fd) != 0 && ok)
	{
		ok = false;
		if (pError)
			*pError = ErrnoText(path, "write failed");
	}
	if (ok && rename(temporary.c_str(), path) != 0)
	{
		ok = false;
		if (pError)
			*pError = ErrnoText(path, "cannot replace file");
	}
	if (!ok)
		unlink(temporary.c_str());
	return ok;
}

bool Plat_SyncDirectory(const char *path)
{
	const int fd = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
	if (fd < 0)
		return false;
	const bool ok = fsync(fd) == 0;
	close(fd);
	return ok;
}

bool Plat_FileExists(const char *path)
{
	struct stat info;
	return path && stat(path, &info) == 0 && S_ISREG(info.st_mode);
}

bool Plat_IsDirectory(const char *path)
{
	struct stat info;
	return path && stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}
