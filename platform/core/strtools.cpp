#include "core/strtools.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>

int V_stricmp(const char *a, const char *b)
{
	for (;; ++a, ++b)
	{
		const unsigned char ca = (unsigned char)V_tolower(*a);
		const unsigned char cb = (unsigned char)V_tolower(*b);
		if (ca != cb)
			return ca < cb ? -1 : 1;
		if (ca == 0)
			return 0;
	}
}

int V_strnicmp(const char *a, const char *b, size_t n)
{
	for (; n > 0; --n, ++a, ++b)
	{
		const unsigned char ca = (unsigned char)V_tolower(*a);
		const unsigned char cb = (unsigned char)V_tolower(*b);
		if (ca != cb)
			return ca < cb ? -1 : 1;
		if (ca == 0)
			return 0;
	}
	return 0;
}

bool V_StrEqualNoCase(std::string_view a, std::string_view b)
{
	if (a.size() != b.size())
		return false;
	for (size_t i = 0; i < a.size(); ++i)
	{
		if (V_tolower(a[i]) != V_tolower(b[i]))
			return false;
	}
	return true;
}

bool V_StrBeginsWithNoCase(std::string_view text, std::string_view prefix)
{
	return text.size() >= prefix.size() && V_StrEqualNoCase(text.substr(0, prefix.size()), prefix);
}

const char *V_stristr(const char *haystack, const char *needle)
{
	if (!haystack || !needle)
		return nullptr;
	const size_t needleLength = strlen(needle);
	for (const char *p = haystack; *p; ++p)
	{
		if (V_strnicmp(p, needle, needleLength) == 0)
			return p;
	}
	return needleLength == 0 ? haystack : nullptr;
}

void V_strncpy(char *dest, const char *src, size_t destSize)
{
	if (destSize == 0)
		return;
	size_t i = 0;
	for (; i + 1 < destSize && src[i]; ++i)
		dest[i] = src[i];
	dest[i] = 0;
}

CUtlString V_FormatV(const char *fmt, va_list args)
{
	CUtlString out;
	V_AppendFormatV(out, fmt, args);
	return out;
}

CUtlString V_Format(const char *fmt, ...)
{
	va_list args;
	va_start(args, fmt);
	CUtlString out = V_FormatV(fmt, args);
	va_end(args);
	return out;
}

void V_AppendFormatV(CUtlString &out, const char *fmt, va_list args)
{
	char stackBuffer[512];
	va_list copy;
	va_copy(copy, args);
	const int needed = vsnprintf(stackBuffer, sizeof(stackBuffer), fmt, copy);
	va_end(copy);
	if (needed < 0)
		return;
	if ((size_t)needed < sizeof(stackBuffer))
	{
		out.append(stackBuffer, (size_t)needed);
		return;
	}
	const size_t oldSize = out.size();
	out.resize(oldSize + (size_t)needed + 1);
	vsnprintf(&out[oldSize], (size_t)needed + 1, fmt, args);
	out.resize(oldSize + (size_t)needed);
}

void V_AppendFormat(CUtlString &out, const char *fmt, ...)
{
	va_list args;
	va_start(args, fmt);
	V_AppendFormatV(out, fmt, args);
	va_end(args);
}

void V_TrimTrailingWhitespace(CUtlString &text)
{
	size_t end = text.size();
	while (end > 0 && (text[end - 1] == ' ' || text[end - 1] == '\t' || text[end - 1] == '\n' || text[end - 1] == '\r'))
		--end;
	text.resize(end);
}

size_t V_UTF8SequenceLength(const char *p, size_t nAvailable)
{
	if (nAvailable == 0)
		return 0;
	const unsigned char c = (unsigned char)p[0];
	size_t need;
	uint32 codePoint;
	if (c >= 0xC2 && c <= 0xDF)
	{
		need = 1;
		codePoint = c & 0x1F;
	}
	else if (c >= 0xE0 && c <= 0xEF)
	{
		need = 2;
		codePoint = c & 0x0F;
	}
	else if (c >= 0xF0 && c <= 0xF4)
	{
		need = 3;
		codePoint = c & 0x07;
	}
	else
		return 0;
	if (nAvailable <= need)
		return 0;
	for (size_t k = 1; k <= need; ++k)
	{
		const unsigned char next = (unsigned char)p[k];
		if ((next & 0xC0) != 0x80)
			return 0;
		codePoint = (codePoint << 6) | (next & 0x3F);
	}
	const bool overlong = (need == 2 && codePoint < 0x800) || (need == 3 && codePoint < 0x10000);
	const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
	return overlong || surrogate || codePoint > 0x10FFFF ? 0 : need + 1;
}

bool V_IsValidUTF8(const char *text, size_t length, size_t *pBadOffset)
{
	const unsigned char *s = (const unsigned char *)text;
	size_t i = 0;
	while (i < length)
	{
		// Runs of ASCII go eight bytes at a time.
		while (i + 8 <= length)
		{
			uint64 word;
			memcpy(&word, s + i, 8);
			if (word & 0x8080808080808080ull)
				break;
			i += 8;
		}
		if (i >= length)
			break;
		if (s[i] < 0x80)
		{
			++i;
			continue;
		}
		const size_t sequence = V_UTF8SequenceLength(text + i, length - i);
		if (!sequence)
		{
			if (pBadOffset)
				*pBadOffset = i;
			return false;
		}
		i += sequence;
	}
	return true;
}

size_t V_UTF8CodePointCount(const char *text, size_t length)
{
	size_t count = 0;
	for (size_t i = 0; i < length; ++i)
	{
		if (((unsigned char)text[i] & 0xC0) != 0x80)
			++count;
	}
	return count;
}

void V_TextPosition(const char *begin, const char *at, int &line, int &column)
{
	line = 1;
	const char *lineStart = begin;
	for (const char *q = begin; q < at; ++q)
	{
		if (*q == '\n')
		{
			++line;
			lineStart = q + 1;
		}
	}
	column = (int)V_UTF8CodePointCount(lineStart, (size_t)(at - lineStart)) + 1;
}

int V_FormatDouble(double value, char *buffer, size_t bufferSize)
{
	if (bufferSize < V_DOUBLE_TEXT_SIZE)
		return 0;
	if (std::isnan(value))
		return snprintf(buffer, bufferSize, "nan");
	if (std::isinf(value))
		return snprintf(buffer, bufferSize, value < 0 ? "-inf" : "inf");
	auto result = std::to_chars(buffer, buffer + bufferSize - 3, value);
	char *end = result.ptr;
	bool hasMark = false;
	for (char *p = buffer; p < end; ++p)
	{
		if (*p == '.' || *p == 'e' || *p == 'E')
		{
			hasMark = true;
			break;
		}
	}
	if (!hasMark)
	{
		*end++ = '.';
		*end++ = '0';
	}
	*end = 0;
	return int(end - buffer);
}

CUtlString V_DoubleToShortText(double value)
{
	char buffer[64];
	snprintf(buffer, sizeof(buffer), "%g", value);
	return buffer;
}

namespace
{
bool IsBlankChar(char c)
{
	return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v';
}

std::string_view TrimBlanks(std::string_view text)
{
	while (!text.empty() && IsBlankChar(text.front()))
		text.remove_prefix(1);
	while (!text.empty() && IsBlankChar(text.back()))
		text.remove_suffix(1);
	return text;
}
} // namespace

bool V_ParseInt(std::string_view text, int64 nMin, int64 nMax, int64 &out)
{
	text = TrimBlanks(text);
	if (text.size() > 1 && text.front() == '+' && text[1] != '-')
		text.remove_prefix(1);
	int64 value = 0;
	const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 10);
	if (text.empty() || error != std::errc() || end != text.data() + text.size() || value < nMin || value > nMax)
		return false;
	out = value;
	return true;
}

bool V_ParseDouble(std::string_view text, double flMaxMagnitude, double &out)
{
	text = TrimBlanks(text);
	if (text.size() > 1 && text.front() == '+' && text[1] != '-')
		text.remove_prefix(1);
	double value = 0.0;
	const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
	if (text.empty() || error != std::errc() || end != text.data() + text.size() || !std::isfinite(value) ||
		std::fabs(value) > flMaxMagnitude)
		return false;
	out = value;
	return true;
}
