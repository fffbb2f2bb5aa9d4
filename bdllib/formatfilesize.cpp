#include "bdllib/formatfilesize.h"

#include "core/strtools.h"

CUtlString FormatFileSize(int64 nSize)
{
	if (nSize < 1024)
		return V_Format("%lld Bytes", (long long)nSize);
	static const char *const s_suffixes[] = { " KB", " MB", " GB", " TB" };
	const float flScale = 1.0f / 1024.0f;
	float flValue = (float)nSize * flScale;
	size_t suffix = 0;
	while (flValue >= 1024.0f && suffix + 1 < V_ARRAYSIZE(s_suffixes))
	{
		flValue *= flScale;
		++suffix;
	}
	return V_Format("%.2f%s", (double)flValue, s_suffixes[suffix]);
}
