// Image sets: loading screens (rescaled to 2048 by 1024, with their texture recipe, compiled),
// cursors (into the game tree with a copy of the game's cursor list), emoticons (into the content
// tree and the game's emoticon list) and ability icons.
#pragma once

#include "mintyardtoolutils/core/importmessages.h"

class CMintyardCfg_ZarnImageSet;

// The size every loading screen is made.
enum
{
	LOADING_SCREEN_WIDTH = 2048,
	LOADING_SCREEN_HEIGHT = 1024,
};

// Imports one image set by its template's type, inside a written-files scope of its own.
// Emoticons and ability icons are placed only in the item mode.
void ImageSetImport(CMintyardCfg_ZarnImageSet *pImageSet, bool bItemMode, ImportMessageList &list);

// The texture recipe of a loading screen, for the PNG at `pszPngPath` (content-relative).
CUtlString LoadingScreenRecipe(const char *pszPngPath);
