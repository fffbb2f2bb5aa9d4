// The names that every place turning a name from a file or the network into a path is tested
// with: the same hostile ones must be refused and the same legitimate ones accepted everywhere
// (zip and pack entries, content-service files, #include, "game:" resources, search paths).
#pragma once

#include <string>
#include <vector>

struct PathRuleName_t
{
	std::string name;
	const char *what;
};

inline const std::vector<PathRuleName_t> &HostilePathNames()
{
	static const std::vector<PathRuleName_t> names = {
		{ "/etc/passwd", "absolute" },
		{ "\\windows\\system.ini", "absolute with backslashes" },
		{ "C:/boot.ini", "drive letter" },
		{ "c:boot.ini", "drive letter without a slash" },
		{ "..", "climbs" },
		{ "../escape.txt", "climbs at once" },
		{ "a/../../escape.txt", "climbs later" },
		{ "a/b/../../../escape.txt", "climbs after two steps down" },
		{ "..\\..\\escape.txt", "climbs with backslashes" },
		{ "a\\..\\..\\escape.txt", "climbs later with backslashes" },
		{ "a//b.txt", "empty segment" },
		{ ".", "the folder itself" },
		{ "a/..", "back to the folder itself" },
		{ "", "empty" },
		{ std::string("\0etc/passwd", 11), "starts with NUL" },
		{ std::string(5000, 'a'), "very long" },
		{ "a/" + std::string(300, 'b') + ".txt", "very long segment" },
	};
	return names;
}

inline const std::vector<PathRuleName_t> &LegitimatePathNames()
{
	static const std::vector<PathRuleName_t> names = {
		{ "plain.txt", "plain" },
		{ "a..b.txt", "two dots inside a name" },
		{ "./dot.txt", "a leading dot step" },
		{ "sub/./deeper/file.txt", "a dot step inside" },
		{ "sub/../back.txt", "down and back up, still inside" },
		{ "with space/and more.txt", "blanks" },
		{ "ünïcödé/日本語.txt", "UTF-8" },
		{ "windows\\style.txt", "a backslash as separator" },
	};
	return names;
}

// Where a legitimate name lands inside its folder, as the rule normalises it.
inline std::string PathRuleLanding(const std::string &name)
{
	static const std::vector<std::pair<std::string, std::string>> landing = {
		{ "./dot.txt", "dot.txt" },
		{ "sub/./deeper/file.txt", "sub/deeper/file.txt" },
		{ "sub/../back.txt", "back.txt" },
		{ "windows\\style.txt", "windows/style.txt" },
	};
	for (const auto &[from, to] : landing)
	{
		if (from == name)
			return to;
	}
	return name;
}
