// Counts what a benchmark allocates. Linking allocationcounter.cpp into a benchmark replaces the
// global allocation functions for the whole binary.
#pragma once

#include <cstdint>

// Bytes allocated now, and the highest value since the last reset.
int64_t AllocationCounter_Current();
int64_t AllocationCounter_Peak();
// Starts a new peak from the current value.
void AllocationCounter_ResetPeak();
