// Feeds arbitrary bytes to the zip reader, in both byte orders. Whatever is read must be
// readable item by item, and writing it again and reading that back must give the same items.
#include <cstdint>
#include <cstring>
#include <map>
#include <string>

#include "core/logging.h"
#include "zip/zip_utils.h"

namespace
{
class CQuietListener final : public ILoggingListener
{
public:
	void Log(const LoggingContext_t &, const char *) override {}
};

std::map<std::string, std::string> Contents(CZip &zip)
{
	std::map<std::string, std::string> items;
	char name[2048];
	int size = 0;
	for (int id = zip.GetNextFilename(-1, name, sizeof(name), size); id != -1; id = zip.GetNextFilename(id, name, sizeof(name), size))
	{
		CUtlBuffer buffer;
		if (size > 0 && zip.ReadFileFromZip(name, false, buffer))
		{
			if ((int)buffer.Size() != size)
				__builtin_trap();
			items[name] = std::string(buffer.Base(), buffer.Size());
		}
	}
	return items;
}

void CheckOne(const uint8_t *data, size_t size, bool bBigEndian)
{
	CZip zip;
	zip.SetBigEndian(bBigEndian);
	int method = -1;
	zip.GetFirstCompressionMethod(data, (int64)size, method);
	if (!zip.ParseFromBuffer(data, (int64)size))
		return;
	const std::map<std::string, std::string> items = Contents(zip);

	// Write again when the result stays small (a hostile comment may ask for a 32 KiB alignment).
	const int64 estimate = zip.EstimateSize();
	if (estimate < 0 || estimate > (16 << 20) || zip.IsCompactFormat())
		return;
	CUtlBuffer saved;
	if (!zip.SaveToBuffer(saved))
		return;
	if ((int64)saved.Size() != estimate)
		__builtin_trap();
	CZip again;
	again.SetBigEndian(bBigEndian);
	if (!again.ParseFromBuffer(saved.Base(), (int64)saved.Size()))
		__builtin_trap();
	if (Contents(again) != items)
		__builtin_trap();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	static CQuietListener s_quiet;
	static bool s_bInstalled = [] {
		LoggingSystem_PushLoggingState(true);
		LoggingSystem_RegisterLoggingListener(&s_quiet);
		return true;
	}();
	(void)s_bInstalled;
	CheckOne(data, size, false);
	CheckOne(data, size, true);
	return 0;
}
