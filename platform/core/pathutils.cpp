#include "core/pathutils.h"

#include <vector>

namespace
{
bool IsSeparator(char c)
{
	return c == '/' || c == '\\';
}

bool IsDriveLetter(std::string_view path)
{
	return path.size() >= 2 && path[1] == ':' && ((path[0] >= 'a' && path[0] <= 'z') || (path[0] >= 'A' && path[0] <= 'Z'));
}

// Calls visit(segment) for every segment between separators, empty ones included.
template <typename Visit>
void ForEachSegment(std::string_view path, Visit visit)
{
	size_t start = 0;
	while (start <= path.size())
	{
		size_t end = start;
		while (end < path.size() && !IsSeparator(path[end]))
			++end;
		visit(path.substr(start, end - start), end == path.size());
		start = end + 1;
	}
}
} // namespace

bool V_IsAbsolutePath(std::string_view path)
{
	return (!path.empty() && IsSeparator(path[0])) || IsDriveLetter(path);
}

CUtlString V_NormalizePath(std::string_view path)
{
	const bool bAbsolute = !path.empty() && IsSeparator(path[0]);
	std::vector<std::string_view> parts;
	ForEachSegment(path, [&](std::string_view part, bool) {
		if (part.empty() || part == ".")
			return;
		if (part == "..")
		{
			if (!parts.empty() && parts.back() != "..")
				parts.pop_back();
			else if (!bAbsolute)
				parts.push_back(part);
			return;
		}
		parts.push_back(part);
	});
	CUtlString out = bAbsolute ? "/" : "";
	for (size_t i = 0; i < parts.size(); ++i)
	{
		if (i > 0)
			out += '/';
		out += parts[i];
	}
	return out;
}

bool V_IsSafeRelativePath(std::string_view name, CUtlString *pNormalized, CUtlString *pWhy)
{
	auto Refuse = [pWhy](const char *why) {
		if (pWhy)
			*pWhy = why;
		return false;
	};
	if (name.empty())
		return Refuse("the name is empty");
	if (name.find('\0') != std::string_view::npos)
		return Refuse("the name holds a NUL byte");
	if (name.size() > PATH_MAX_NAME_LENGTH)
		return Refuse("the name is too long");
	if (IsSeparator(name[0]))
		return Refuse("the name is an absolute path");
	if (IsDriveLetter(name))
		return Refuse("the name starts with a drive letter");

	int depth = 0;
	const char *pWhyNot = nullptr;
	ForEachSegment(name, [&](std::string_view part, bool bLast) {
		if (pWhyNot)
			return;
		if (part.size() > PATH_MAX_SEGMENT_LENGTH)
			pWhyNot = "a part of the name is too long";
		else if (part.empty())
		{
			if (!bLast)
				pWhyNot = "the name has an empty part";
		}
		else if (part == "..")
		{
			if (--depth < 0)
				pWhyNot = "the name climbs out of its folder";
		}
		else if (part != ".")
			++depth;
	});
	if (pWhyNot)
		return Refuse(pWhyNot);
	if (depth == 0)
		return Refuse("the name names its folder, not something in it");
	if (pNormalized)
		*pNormalized = V_NormalizePath(name);
	return true;
}

CUtlString V_JoinPath(std::string_view folder, std::string_view name)
{
	CUtlString out(folder);
	if (!out.empty() && !IsSeparator(out.back()) && !name.empty())
		out += '/';
	while (!out.empty() && !name.empty() && IsSeparator(name[0]))
		name.remove_prefix(1);
	out += name;
	return out;
}

bool V_JoinInside(std::string_view folder, std::string_view name, CUtlString &out, CUtlString *pWhy)
{
	CUtlString normalized;
	if (!V_IsSafeRelativePath(name, &normalized, pWhy))
		return false;
	out = V_JoinPath(folder, normalized);
	return true;
}
