#include "mintyardtoolutils/preview/portraittext.h"

#include <cstring>

#include "core/keyvalues.h"
#include "core/utlbuffer.h"

namespace
{
const char *const CLIPBOARD_TREE = "portrait_copy_paste";
} // namespace

CUtlString PortraitRecordToClipboardText(const CZarnPortraitRecord &record)
{
	KeyValues tree(CLIPBOARD_TREE);
	record.WriteKeys(&tree);
	CUtlBuffer buffer;
	tree.SaveToBuffer(buffer);
	return CUtlString(buffer.View());
}

bool PortraitRecordFromClipboardText(const char *pszText, CZarnPortraitRecord &record)
{
	if (!pszText || strlen(pszText) < 2)
		return false;
	KeyValues tree(CLIPBOARD_TREE);
	if (!tree.LoadFromBuffer(CLIPBOARD_TREE, pszText, strlen(pszText)))
		return false;
	// A portrait is a block of keys; a lone value ("some words") is no portrait.
	if (!tree.GetFirstSubKey())
		return false;
	record.ReadKeys(&tree);
	return true;
}
