// Feeds arbitrary text to the model document loader. A document that loads must save and load
// again to an equal document; a refusal must say why.
#include <cstdint>
#include <string_view>

#include "modeldoc/modeldoc.h"

namespace
{
// The loader logs warnings for what it ignores; the fuzzer does not need to see them.
struct QuietLog_t
{
	QuietLog_t()
	{
		LoggingSystem_PushLoggingState(true);
	}
	~QuietLog_t() { LoggingSystem_PopLoggingState(); }
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	QuietLog_t quiet;
	const std::string_view text(reinterpret_cast<const char *>(data), size);
	CModelDoc doc;
	CUtlString error;
	if (!doc.LoadFromText(text, "fuzz.zmdl", &error))
	{
		if (error.empty())
			__builtin_trap();
		return 0;
	}
	CUtlBuffer saved(CUtlBuffer::TEXT_BUFFER);
	if (!doc.SaveToBuffer(saved, &error))
		__builtin_trap();
	CModelDoc again;
	if (!again.LoadFromText(saved.View(), "saved.zmdl", &error))
		__builtin_trap();
	if (!again.Equals(doc))
		__builtin_trap();
	return 0;
}
