// String helpers of the core: ASCII case folding, formatting into CUtlString, UTF-8 checks and
// number formatting that reads back to the same value.
#pragma once

#include <cstdarg>
#include <string_view>

#include "core/platform.h"
#include "core/utlstring.h"

inline char V_tolower(char c) { return (c >= 'A' && c <= 'Z') ? char(c + ('a' - 'A')) : c; }
inline char V_toupper(char c) { return (c >= 'a' && c <= 'z') ? char(c - ('a' - 'A')) : c; }

// The value of a hexadecimal digit (either case), or -1.
inline int V_HexDigitValue(char c)
{
	if (c >= '0' && c <= '9')
		return c - '0';
	if (c >= 'a' && c <= 'f')
		return c - 'a' + 10;
	if (c >= 'A' && c <= 'F')
		return c - 'A' + 10;
	return -1;
}

// Case-insensitive comparisons (ASCII folding; other bytes compare as they are).
int V_stricmp(const char *a, const char *b);
int V_strnicmp(const char *a, const char *b, size_t n);
bool V_StrEqualNoCase(std::string_view a, std::string_view b);
bool V_StrBeginsWithNoCase(std::string_view text, std::string_view prefix);
// Case-insensitive substring search; null when absent.
const char *V_stristr(const char *haystack, const char *needle);

// Copies with truncation; the destination is always terminated when size > 0.
void V_strncpy(char *dest, const char *src, size_t destSize);

CUtlString V_Format(const char *fmt, ...) FMTFUNCTION(1, 2);
CUtlString V_FormatV(const char *fmt, va_list args);
void V_AppendFormat(CUtlString &out, const char *fmt, ...) FMTFUNCTION(2, 3);
void V_AppendFormatV(CUtlString &out, const char *fmt, va_list args);

// Removes trailing blanks, tabs and line ends.
void V_TrimTrailingWhitespace(CUtlString &text);

// True when the bytes are well-formed UTF-8 (no overlongs, no surrogates, nothing above
// U+10FFFF). On failure *pBadOffset gets the offset of the first bad byte.
bool V_IsValidUTF8(const char *text, size_t length, size_t *pBadOffset = nullptr);

// The length of the well-formed UTF-8 sequence at `p`, whose first byte is 0x80 or above, within
// the `nAvailable` bytes from `p`; 0 when it is not well formed or does not fit.
size_t V_UTF8SequenceLength(const char *p, size_t nAvailable);

// Number of code points in the first `length` bytes (continuation bytes are not counted).
size_t V_UTF8CodePointCount(const char *text, size_t length);

// The 1-based line and column (in characters) of `at` within the text that starts at `begin`.
void V_TextPosition(const char *begin, const char *at, int &line, int &column);

// Shortest text that reads back to the same double; always has a '.', an exponent, or is one
// of "nan", "inf", "-inf", so that a reader can tell it from an integer. Returns the length.
enum { V_DOUBLE_TEXT_SIZE = 40 };
int V_FormatDouble(double value, char *buffer, size_t bufferSize);

// The whole of a text, blanks (spaces, tabs, line ends) around it aside, as a decimal integer within [nMin, nMax];
// false (out unchanged) for an empty text, any other character, or a value out of the range.
bool V_ParseInt(std::string_view text, int64 nMin, int64 nMax, int64 &out);
// The whole of a text, blanks around it aside, as a finite number whose magnitude is at
// most flMaxMagnitude; false (out unchanged) otherwise.
bool V_ParseDouble(std::string_view text, double flMaxMagnitude, double &out);

// printf "%g" of a double, the form used when a value is shown as text.
CUtlString V_DoubleToShortText(double value);
