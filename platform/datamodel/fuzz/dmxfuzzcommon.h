// What both DMX fuzzers do with a document that loaded: write it in every encoding, read it
// back and check that nothing changed. A difference is a bug and stops the fuzzer.
#pragma once

#include <cstdlib>

#include "../tests/dmxcompare.h"
#include "datamodel/dmxio.h"

namespace dmxfuzz
{
inline void CheckRoundTrips(const CDmxDocument &doc)
{
	for (const char *encoding : { "binary", "keyvalues2" })
	{
		CUtlBuffer buffer;
		CUtlString error;
		if (!DmxSaveBuffer(buffer, doc.GetRoot(), encoding, "dmx", 2, &error))
			abort(); // these two encodings hold any graph
		CDmxDocument again;
		if (!DmxLoadBuffer(buffer.Base(), buffer.Size(), "again", again, &error, DMX_LOAD_NO_FORMAT_UPDATE))
			abort();
		dmxtest::CGraphComparer comparer(true);
		if (!comparer.Same(doc.GetRoot(), again.GetRoot()))
			abort();
	}
	// keyvalues2_noids may refuse (cycles, depth, repeats) but must not crash, and what it writes
	// must load.
	CUtlBuffer buffer;
	CUtlString error;
	if (DmxSaveBuffer(buffer, doc.GetRoot(), "keyvalues2_noids", "dmx", 2, &error))
	{
		CDmxDocument again;
		if (!DmxLoadBuffer(buffer.Base(), buffer.Size(), "again", again, &error, DMX_LOAD_NO_FORMAT_UPDATE))
			abort();
	}
}
} // namespace dmxfuzz
