// The log channel of the wizard's pages ("MintyardManager", as every part of the tool).
#pragma once

#include "core/logging.h"

DECLARE_LOGGING_CHANNEL(LOG_MINTYARD_WIZARD);
