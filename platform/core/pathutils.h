// Paths, and the one rule for names that arrive from a file or the network and become paths:
// entries of a zip or a pack, the files of a content-service item, #include and #base of a
// script, "game:" resources, names resolved under a search path.
//
// Such a name is a relative path that must stay inside the folder it is placed in. Slashes of
// either kind separate its segments; "." segments are steps that go nowhere and ".." steps go
// back one segment. It is refused when it
//   - is empty, or holds a NUL byte;
//   - is absolute ("/etc", "\\server") or starts with a drive letter ("C:", "c:x");
//   - has an empty segment ("a//b"); one trailing slash is allowed and marks a folder ("a/");
//   - climbs above its folder at any point ("..", "../a", "a/../../b");
//   - names the folder itself rather than something in it (".", "a/..");
//   - is longer than 4096 bytes, or has a segment longer than 255 bytes.
// Everything else is a name: "a..b", "./a", "a/./b", "a/../b", blanks, UTF-8.
#pragma once

#include <string_view>

#include "core/utlstring.h"

enum
{
	PATH_MAX_NAME_LENGTH = 4096,
	PATH_MAX_SEGMENT_LENGTH = 255,
};

// True for "/x", "\x" and a drive letter ("C:", "C:/x", "C:x").
bool V_IsAbsolutePath(std::string_view path);

// The path with forward slashes, empty and "." segments dropped and each ".." taken back
// against the segment before it. A ".." with nothing before it stays on a relative path and
// is dropped at the root of an absolute one. An absolute path keeps its leading slash; "" and
// "." give "". A trailing slash is dropped.
CUtlString V_NormalizePath(std::string_view path);

// True when `name` is a safe relative name (see above). On success *pNormalized gets the
// normalised name (no trailing slash); on refusal *pWhy says why ("it climbs out of its
// folder", ...).
bool V_IsSafeRelativePath(std::string_view name, CUtlString *pNormalized = nullptr, CUtlString *pWhy = nullptr);

// `folder` and `name` with one slash between them ("" folder gives the name).
CUtlString V_JoinPath(std::string_view folder, std::string_view name);

// The place of a safe relative name inside `folder`: the folder, a slash and the normalised name.
// False (and *pWhy) when the name is refused; `out` is then left as it was.
bool V_JoinInside(std::string_view folder, std::string_view name, CUtlString &out, CUtlString *pWhy = nullptr);
