// Feeds arbitrary bytes to the DMX loader (the corpus holds keyvalues2 and keyvalues2_noids
// files). Whatever loads must write in every encoding and read back the same.
#include <cstddef>
#include <cstdint>

#include "dmxfuzzcommon.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	CDmxDocument doc;
	CUtlString error;
	if (DmxLoadBuffer(data, size, "fuzz.dmx", doc, &error, DMX_LOAD_NO_FORMAT_UPDATE))
		dmxfuzz::CheckRoundTrips(doc);
	else if (error.empty())
		abort(); // a refusal always says why
	return 0;
}
