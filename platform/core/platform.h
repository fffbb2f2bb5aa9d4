// Basic types and compiler helpers shared by every module.
#pragma once

#include <cstddef>
#include <cstdint>

typedef int8_t int8;
typedef uint8_t uint8;
typedef int16_t int16;
typedef uint16_t uint16;
typedef int32_t int32;
typedef uint32_t uint32;
typedef int64_t int64;
typedef uint64_t uint64;
typedef unsigned int uint;

#define V_ARRAYSIZE(a) (sizeof(a) / sizeof((a)[0]))

// printf-style argument checking: FMTFUNCTION(format index, first variadic index).
#define FMTFUNCTION(fmt, args) __attribute__((format(printf, fmt, args)))

#define MAX_PATH 260
