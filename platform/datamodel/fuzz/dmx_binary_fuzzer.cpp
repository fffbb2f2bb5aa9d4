// Feeds arbitrary bytes to the DMX loader (the corpus holds binary files), once as they are and
// once with the checksum at the end made right, so that the structure checks behind the
// checksum are reached. Whatever loads must write in every encoding and read back the same.
#include <cstddef>
#include <cstdint>
#include <string>

#include "core/hashes.h"
#include "dmxfuzzcommon.h"

namespace
{
void LoadAndCheck(const void *data, size_t size)
{
	CDmxDocument doc;
	CUtlString error;
	if (DmxLoadBuffer(data, size, "fuzz.dmx", doc, &error))
		dmxfuzz::CheckRoundTrips(doc);
	else if (error.empty())
		abort();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	LoadAndCheck(data, size);

	DmxHeader_t header;
	size_t body = 0;
	if (!DmxReadHeader(std::string_view((const char *)data, size), header, &body) || body + 4 > size)
		return 0;
	std::string fixed((const char *)data, size);
	const uint32 crc = CRC32_ProcessSingleBuffer(fixed.data() + body, size - 4 - body);
	memcpy(fixed.data() + size - 4, &crc, 4);
	LoadAndCheck(fixed.data(), fixed.size());
	return 0;
}
