// The core's narrow strings. Text is UTF-8; the alias keeps the names the rest of the code
// base uses.
#pragma once

#include <string>

typedef std::string CUtlString;
typedef std::string CBufferString;
