// The portrait's text form as the clipboard carries it (the tree "portrait_copy_paste" in the
// key values text), and back. No widgets: the panel's copy and paste use it, and it is fuzzed on
// its own.
#pragma once

#include "core/utlstring.h"
#include "mintyardtoolutils/core/portraitrecord.h"

CUtlString PortraitRecordToClipboardText(const CZarnPortraitRecord &record);
// Reading keeps the record as it was and gives false when the text does not parse, holds no
// block of keys, or is shorter than two characters.
bool PortraitRecordFromClipboardText(const char *pszText, CZarnPortraitRecord &record);
