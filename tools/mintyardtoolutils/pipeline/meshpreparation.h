// The preparation of a DMX mesh on its way into the content tree: loaded through the data model,
// lifted to the current form (stream names, material names, joint weights, the "bind" base
// state) and saved in the binary encoding.
#pragma once

#include "core/utlstring.h"

enum EMeshPreparationResult
{
	MESH_PREPARATION_DONE = 0,
	MESH_PREPARATION_UNREADABLE, // the source did not load, or has no root
	MESH_PREPARATION_NOT_SAVED,	 // the prepared file could not be written
};

EMeshPreparationResult PrepareDmxMeshFile(const char *pszSource, const char *pszDestination, CUtlString &error);
