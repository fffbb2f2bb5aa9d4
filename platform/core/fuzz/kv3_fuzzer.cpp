// Feeds arbitrary bytes to the KV3 text parser, with and without the header line. Whatever
// parses must write back to text that parses to an equal document.
#include <cstdint>
#include <cstring>

#include "core/keyvalues3.h"
#include "core/kv3text.h"

namespace
{
void CheckRoundTrip(const KeyValues3 *value)
{
	CUtlBuffer text(CUtlBuffer::TEXT_BUFFER);
	CUtlString error;
	if (!SaveKV3(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC, value, &error, &text))
		return; // values that text cannot hold (none come from the parser) are refused, not written wrong
	CKeyValues3Context again;
	if (!LoadKV3(&again, &error, &text, KV3_FORMAT_GENERIC, "roundtrip"))
		__builtin_trap();
	if (!KV3ValuesEqual(value, again.Root()))
		__builtin_trap();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	const std::string_view text(reinterpret_cast<const char *>(data), size);
	CUtlString error;
	{
		CKeyValues3Context context;
		if (LoadKV3(context.Root(), &error, text, KV3_FORMAT_GENERIC, "fuzz"))
			CheckRoundTrip(context.Root());
		else if (error.empty())
			__builtin_trap(); // a failure always says why
	}
	{
		CKeyValues3Context context;
		if (LoadKV3Text_NoHeader(context.Root(), &error, text, KV3_FORMAT_GENERIC, "fuzz"))
			CheckRoundTrip(context.Root());
		else if (error.empty())
			__builtin_trap();
	}
	return 0;
}
