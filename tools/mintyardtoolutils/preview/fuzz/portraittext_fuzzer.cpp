// Feeds arbitrary bytes to the reader of the portrait's text form (what Paste takes from the
// clipboard). Text that reads gives a record whose text reads again to the same record: writing,
// reading and writing once more gives the same text. Text that does not read leaves the record
// as it was.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "mintyardtoolutils/preview/portraittext.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
	const std::string text((const char *)pData, nSize);
	CZarnPortraitRecord record;
	const CUtlString fresh = PortraitRecordToClipboardText(record);
	if (!PortraitRecordFromClipboardText(text.c_str(), record))
	{
		if (PortraitRecordToClipboardText(record) != fresh)
			abort();
		return 0;
	}
	const CUtlString written = PortraitRecordToClipboardText(record);
	CZarnPortraitRecord again;
	if (!PortraitRecordFromClipboardText(written.c_str(), again))
		abort();
	if (PortraitRecordToClipboardText(again) != written)
		abort();
	return 0;
}
