// Parse messages with a severity and an optional position, handed to a listener. Readers of
// documents report through this so that one caller can collect every problem of a document.
#pragma once

#include <cstdarg>

#include "core/platform.h"

enum ErrorSeverity_t
{
	ERROR_SEVERITY_MESSAGE = 0,
	ERROR_SEVERITY_WARNING = 1,
	ERROR_SEVERITY_ERROR = 2,
};

struct ErrorRecord_t
{
	int severity = ERROR_SEVERITY_ERROR;
	const char *file = nullptr; // null when the message has no file of its own
	int line = 0;				// 0 when unknown
	int column = 0;				// 0 when unknown
	const char *message = "";
};

class IErrorListener
{
public:
	virtual void OnError(const ErrorRecord_t &record) = 0;

protected:
	~IErrorListener() = default;
};

// Levels of V_StringParseError: below 10 a message, 10 to 19 a warning, 20 and above an error.
enum
{
	PARSE_LEVEL_MESSAGE = 0,
	PARSE_LEVEL_WARNING = 10,
	PARSE_LEVEL_ERROR = 20,
};

ErrorSeverity_t V_ParseLevelSeverity(int level);
// Formats the message and hands it to the listener (nothing happens without one).
void V_StringParseError(IErrorListener *listener, int level, const char *fmt, ...) FMTFUNCTION(3, 4);
