// Where a source's content tree and its game tree are, by the source's own path: a path
// <root>/content/<mod>/... belongs to the content root <root>/content/<mod>, whose compiled
// files go to <root>/game/<mod>. Shared by ResourceCompilerSystem001 (which hands the game to
// the command) and the command itself; header-only, since the two are separate libraries.
#pragma once

#include <string_view>

#include "core/pathutils.h"
#include "core/utlstring.h"

// False when the path lies in no content tree. The last "/content/<mod>/" of the path counts.
inline bool ResourceCompiler_ContentTreeOf(std::string_view path, CUtlString &contentRoot, CUtlString &gameRoot)
{
	const CUtlString normalized = V_NormalizePath(path);
	for (size_t at = normalized.rfind("/content/"); at != CUtlString::npos; at = at ? normalized.rfind("/content/", at - 1) : CUtlString::npos)
	{
		const size_t modStart = at + 9;
		const size_t modEnd = normalized.find('/', modStart);
		if (modEnd == CUtlString::npos || modEnd == modStart)
			continue;
		contentRoot = normalized.substr(0, modEnd);
		gameRoot = normalized.substr(0, at) + "/game/" + normalized.substr(modStart, modEnd - modStart);
		return true;
	}
	return false;
}
