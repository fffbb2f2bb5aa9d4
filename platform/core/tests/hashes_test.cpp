#include <gtest/gtest.h>

#include "core/hashes.h"
