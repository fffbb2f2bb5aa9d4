// Feeds arbitrary text to the query parser. Whatever parses is evaluated against a few files,
// and its negation, when that parses too, must give the opposite answer on each of them.
// Whatever fails must say why.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "brume/query/brumequery.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	const std::string text(reinterpret_cast<const char *>(data), size);
	static const BrumeQueryRecord_t s_Records[] = {
		{},
		{ 0, { "Map", "map" }, { { "status", "a" } }, "A map", "" },
		{ 2, { "Courier" }, {}, "", "" },
		{ 1, { "x", "y\"z" }, { { "status", "b" }, { "k", "" } }, "T", "D" },
	};
	CBrumeQuery query;
	std::string error;
	if (!query.Parse(text, error))
	{
		if (error.empty())
			abort();
		return 0;
	}
	CBrumeQuery negated;
	std::string negatedError;
	const bool bNegated = negated.Parse("NOT (" + text + ")", negatedError);
	for (const BrumeQueryRecord_t &record : s_Records)
	{
		const bool bMatches = query.Matches(record);
		if (bNegated && negated.Matches(record) == bMatches)
			abort();
	}
	return 0;
}
