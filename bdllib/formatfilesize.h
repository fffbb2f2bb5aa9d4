// FormatFileSize: a byte count as a short text for the user.
#pragma once

#include "core/platform.h"
#include "core/utlstring.h"

// Below 1024: "<n> Bytes". Otherwise the size in single-precision floating point, divided by
// 1024 for " KB" and again while it is at least 1024 and a larger unit remains (" MB", " GB",
// " TB"), with two decimals: 1536 gives "1.50 KB".
CUtlString FormatFileSize(int64 nSize);
