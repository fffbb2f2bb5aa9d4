// Helpers shared by the files of CPackedStore.
#pragma once

#include <vector>

#include "core/platform.h"
#include "core/strtools.h"
#include "core/utlstring.h"

namespace PackedStoreInternal
{
inline uint32 ReadLe32(const uint8 *p)
{
	return (uint32)p[0] | ((uint32)p[1] << 8) | ((uint32)p[2] << 16) | ((uint32)p[3] << 24);
}

inline uint16 ReadLe16(const uint8 *p)
{
	return (uint16)(p[0] | (p[1] << 8));
}

inline void PutLe32(std::vector<uint8> &out, uint32 value)
{
	const uint8 bytes[4] = { (uint8)value, (uint8)(value >> 8), (uint8)(value >> 16), (uint8)(value >> 24) };
	out.insert(out.end(), bytes, bytes + 4);
}

inline void PutLe16(std::vector<uint8> &out, uint16 value)
{
	out.push_back((uint8)value);
	out.push_back((uint8)(value >> 8));
}

inline void PutString(std::vector<uint8> &out, const CUtlString &text)
{
	out.insert(out.end(), text.begin(), text.end());
	out.push_back(0);
}

inline void LowerInPlace(CUtlString &text)
{
	for (char &c : text)
		c = V_tolower(c);
}

// The root folder and a missing extension as the tree holds them.
inline const char *const kBlank = " ";

// Slashes made forward, empty and "." segments dropped, ".." taken back against the segment
// before it (a ".." with nothing before it is kept on a relative path and dropped at the root
// of an absolute one). The leading slash of an absolute path is kept when asked for.
CUtlString NormalizePath(const char *pPath, bool bKeepLeadingSlash);
} // namespace PackedStoreInternal
