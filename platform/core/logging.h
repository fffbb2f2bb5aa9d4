// Logging: named channels, severities and listeners. Every message goes to the listeners of the
// current logging state; the first state holds one listener that writes to standard error.
// A caller that wants the messages for a while (the import log during a compile) pushes the
// state, registers its listener and pops the state when done.
#pragma once

#include <cstdarg>

#include "core/platform.h"
#include "core/utlstring.h"

enum LoggingSeverity_t
{
	LS_DETAILED = 1,
	LS_MESSAGE = 2,
	LS_WARNING = 3,
	LS_ASSERT = 4,
	LS_ERROR = 5,
	LS_HIGHEST_SEVERITY = 6,
};

typedef int LoggingChannelID_t;
enum { INVALID_LOGGING_CHANNEL = -1 };

struct LoggingContext_t
{
	LoggingChannelID_t channelID;
	const char *channelName;
	LoggingSeverity_t severity;
	bool bMainThread; // logged from the thread that ThreadInMainThread() names
};

class ILoggingListener
{
public:
	virtual void Log(const LoggingContext_t &context, const char *message) = 0;

protected:
	~ILoggingListener() = default;
};

// Registers a channel, or finds it when the name is taken (names compare without case).
LoggingChannelID_t LoggingSystem_RegisterLoggingChannel(const char *name, LoggingSeverity_t minimumSeverity = LS_MESSAGE);
LoggingChannelID_t LoggingSystem_FindChannel(const char *name);
const char *LoggingSystem_GetChannelName(LoggingChannelID_t channel);
// Messages below the channel's minimum severity are dropped.
void LoggingSystem_SetChannelVerbosity(LoggingChannelID_t channel, LoggingSeverity_t minimumSeverity);
bool LoggingSystem_IsChannelEnabled(LoggingChannelID_t channel, LoggingSeverity_t severity);

void LoggingSystem_Log(LoggingChannelID_t channel, LoggingSeverity_t severity, const char *fmt, ...) FMTFUNCTION(3, 4);
void LoggingSystem_LogV(LoggingChannelID_t channel, LoggingSeverity_t severity, const char *fmt, va_list args);
void LoggingSystem_LogDirect(LoggingChannelID_t channel, LoggingSeverity_t severity, const char *message);

// Listeners of the current state. Registering twice is ignored; unknown listeners are ignored.
void LoggingSystem_RegisterLoggingListener(ILoggingListener *listener);
void LoggingSystem_UnregisterLoggingListener(ILoggingListener *listener);
// Saves the current state on a stack. With bClearState the new state starts without listeners,
// otherwise with the same listeners as the saved one. Pop restores the saved state; popping the
// first state is ignored.
void LoggingSystem_PushLoggingState(bool bClearState = false);
void LoggingSystem_PopLoggingState();
int LoggingSystem_GetStateDepth();
ILoggingListener *LoggingSystem_GetStandardErrorListener();

#define DECLARE_LOGGING_CHANNEL(channel) extern LoggingChannelID_t channel
#define DEFINE_LOGGING_CHANNEL(channel, name, ...) \
	LoggingChannelID_t channel = LoggingSystem_RegisterLoggingChannel(name, ##__VA_ARGS__)

// "General" carries Msg and the warning channel "Warning" carries Warning.
DECLARE_LOGGING_CHANNEL(LOG_GENERAL);
DECLARE_LOGGING_CHANNEL(LOG_WARNING);

#define Log_Detailed(channel, ...) LoggingSystem_Log(channel, LS_DETAILED, __VA_ARGS__)
#define Log_Msg(channel, ...) LoggingSystem_Log(channel, LS_MESSAGE, __VA_ARGS__)
#define Log_Warning(channel, ...) LoggingSystem_Log(channel, LS_WARNING, __VA_ARGS__)
#define Log_Error(channel, ...) LoggingSystem_Log(channel, LS_ERROR, __VA_ARGS__)

void Msg(const char *fmt, ...) FMTFUNCTION(1, 2);
void Warning(const char *fmt, ...) FMTFUNCTION(1, 2);
void DevMsg(const char *fmt, ...) FMTFUNCTION(1, 2);

// The main thread is the thread that loaded the core, unless set otherwise.
void ThreadSetMainThread();
bool ThreadInMainThread();

// Fatal errors: the message is logged as an error, the handler runs, and the process ends with
// exit code 1. A handler may record the message or clean up; it cannot stop the exit.
typedef void (*FatalErrorHandler_t)(const char *message);

// Writes a crash report (the comment and a backtrace of the calling thread) to
// $TMPDIR/mintyard_crash_<pid>.txt (/tmp when unset) and logs where it is. Returns the path.
CUtlString Plat_WriteCrashReport(const char *comment);
FatalErrorHandler_t SetFatalErrorHandler(FatalErrorHandler_t handler);
[[noreturn]] void Plat_FatalError(const char *fmt, ...) FMTFUNCTION(1, 2);
