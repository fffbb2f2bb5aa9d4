#include "imaging/imagesource.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/strtools.h"

CImageFileSource::~CImageFileSource()
{
	if (m_nFD >= 0)
		close(m_nFD);
}

bool CImageFileSource::Open(const char *pPath, CUtlString &error)
{
	m_nFD = open(pPath, O_RDONLY | O_CLOEXEC);
	if (m_nFD < 0)
	{
		error = V_Format("%s: cannot open file (%s)", pPath, strerror(errno));
		return false;
	}
	struct stat info;
	if (fstat(m_nFD, &info) != 0 || !S_ISREG(info.st_mode))
	{
		error = V_Format("%s: not a regular file", pPath);
		return false;
	}
	m_nSize = (uint64)info.st_size;
	return true;
}

size_t CImageFileSource::ReadAt(uint64 nOffset, void *pOut, size_t nCount)
{
	size_t nDone = 0;
	while (nDone < nCount && nOffset + nDone < m_nSize)
	{
		const ssize_t nRead = pread(m_nFD, (char *)pOut + nDone, nCount - nDone, (off_t)(nOffset + nDone));
		if (nRead < 0 && errno == EINTR)
			continue;
		if (nRead <= 0)
			break;
		nDone += (size_t)nRead;
	}
	return nDone;
}
