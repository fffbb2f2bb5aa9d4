#include "core/logging.h"

#include <cstdio>
#include <execinfo.h>
#include <fcntl.h>
#include <unistd.h>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

#include "core/strtools.h"
#include "core/utlstring.h"

namespace
{
struct LoggingChannel_t
{
	CUtlString name;
	LoggingSeverity_t minimumSeverity;
};

class CStandardErrorListener final : public ILoggingListener
{
public:
	void Log(const LoggingContext_t &, const char *message) override
	{
		fputs(message, stderr);
		fflush(stderr);
	}
};

struct LoggingSystem_t
{
	std::mutex mutex;
	std::vector<LoggingChannel_t> channels;
	std::vector<std::vector<ILoggingListener *>> states;
	CStandardErrorListener standardError;

	LoggingSystem_t() { states.push_back({ &standardError }); }
};

// Built on first use, so that channels defined by static initialisers of any library find it.
LoggingSystem_t &System()
{
	static LoggingSystem_t *s_pSystem = new LoggingSystem_t; // never destroyed: logging works in static destructors
	return *s_pSystem;
}

std::thread::id &MainThreadId()
{
	static std::thread::id s_id = std::this_thread::get_id();
	return s_id;
}

// Touch the main thread id while the loading thread runs the static initialisers.
[[maybe_unused]] const bool s_bMainThreadRecorded = (MainThreadId(), true);

FatalErrorHandler_t s_pFatalHandler = nullptr;
} // namespace

DEFINE_LOGGING_CHANNEL(LOG_GENERAL, "General");
DEFINE_LOGGING_CHANNEL(LOG_WARNING, "Warning");

LoggingChannelID_t LoggingSystem_RegisterLoggingChannel(const char *name, LoggingSeverity_t minimumSeverity)
{
	LoggingSystem_t &sys = System();
	std::lock_guard<std::mutex> lock(sys.mutex);
	for (size_t i = 0; i < sys.channels.size(); ++i)
	{
		if (V_stricmp(sys.channels[i].name.c_str(), name) == 0)
			return (LoggingChannelID_t)i;
	}
	sys.channels.push_back({ name, minimumSeverity });
	return (LoggingChannelID_t)(sys.channels.size() - 1);
}

LoggingChannelID_t LoggingSystem_FindChannel(const char *name)
{
	LoggingSystem_t &sys = System();
	std::lock_guard<std::mutex> lock(sys.mutex);
	for (size_t i = 0; i < sys.channels.size(); ++i)
	{
		if (V_stricmp(sys.channels[i].name.c_str(), name) == 0)
			return (LoggingChannelID_t)i;
	}
	return INVALID_LOGGING_CHANNEL;
}

const char *LoggingSystem_GetChannelName(LoggingChannelID_t channel)
{
	LoggingSystem_t &sys = System();
	std::lock_guard<std::mutex> lock(sys.mutex);
	if (channel < 0 || (size_t)channel >= sys.channels.size())
		return "";
	return sys.channels[(size_t)channel].name.c_str();
}

void LoggingSystem_SetChannelVerbosity(LoggingChannelID_t channel, LoggingSeverity_t minimumSeverity)
{
	LoggingSystem_t &sys = System();
	std::lock_guard<std::mutex> lock(sys.mutex);
	if (channel >= 0 && (size_t)channel < sys.channels.size())
		sys.channels[(size_t)channel].minimumSeverity = minimumSeverity;
}

bool LoggingSystem_IsChannelEnabled(LoggingChannelID_t channel, LoggingSeverity_t severity)
{
	LoggingSystem_t &sys = System();
	std::lock_guard<std::mutex> lock(sys.mutex);
	if (channel < 0 || (size_t)channel >= sys.channels.size())
		return false;
	return severity >= sys.channels[(size_t)channel].minimumSeverity;
}

void LoggingSystem_LogDirect(LoggingChannelID_t channel, LoggingSeverity_t severity, const char *message)
{
	LoggingSystem_t &sys = System();
	LoggingContext_t context;
	context.channelID = channel;
	context.severity = severity;
	context.bMainThread = ThreadInMainThread();

	// Listeners are called outside the lock, so that a listener may log or change the state.
	ILoggingListener *fixed[16];
	std::vector<ILoggingListener *> overflow;
	ILoggingListener **listeners = fixed;
	size_t count = 0;
	{
		std::lock_guard<std::mutex> lock(sys.mutex);
		if (channel < 0 || (size_t)channel >= sys.channels.size())
			return;
		const LoggingChannel_t &info = sys.channels[(size_t)channel];
		if (severity < info.minimumSeverity)
			return;
		context.channelName = info.name.c_str(); // channels are never removed; the text stays put
		const std::vector<ILoggingListener *> &current = sys.states.back();
		count = current.size();
		if (count > V_ARRAYSIZE(fixed))
		{
			overflow = current;
			listeners = overflow.data();
		}
		else
		{
			for (size_t i = 0; i < count; ++i)
				fixed[i] = current[i];
		}
	}
	for (size_t i = 0; i < count; ++i)
		listeners[i]->Log(context, message);
}

void LoggingSystem_LogV(LoggingChannelID_t channel, LoggingSeverity_t severity, const char *fmt, va_list args)
{
	CUtlString text = V_FormatV(fmt, args);
	LoggingSystem_LogDirect(channel, severity, text.c_str());
}

void LoggingSystem_Log(LoggingChannelID_t channel, LoggingSeverity_t severity, const char *fmt, ...)
{
	va_list args;
	va_start(args, fmt);
	LoggingSystem_LogV(channel, severity, fmt, args);
	va_end(args);
}

void LoggingSystem_RegisterLoggingListener(ILoggingListener *listener)
{
	LoggingSystem_t &sys = System();
	std::lock_guard<std::mutex> lock(sys.mutex);
	std::vector<ILoggingListener *> &current = sys.states.back();
	for (ILoggingListener *existing : current)
	{
		if (existing == listener)
			return;
	}
	current.push_back(listener);
}

void LoggingSystem_UnregisterLoggingListener(ILoggingListener *listener)
{
	LoggingSystem_t &sys = System();
	std::lock_guard<std::mutex> lock(sys.mutex);
	std::vector<ILoggingListener *> &current = sys.states.back();
	for (size_t i = 0; i < current.size(); ++i)
	{
		if (current[i] == listener)
		{
			current.erase(current.begin() + (ptrdiff_t)i);
			return;
		}
	}
}

void LoggingSystem_PushLoggingState(bool bClearState)
{
	LoggingSystem_t &sys = System();
	std::lock_guard<std::mutex> lock(sys.mutex);
	std::vector<ILoggingListener *> next;
	if (!bClearState)
		next = sys.states.back();
	sys.states.push_back(std::move(next));
}

void LoggingSystem_PopLoggingState()
{
	LoggingSystem_t &sys = System();
	std::lock_guard<std::mutex> lock(sys.mutex);
	if (sys.states.size() > 1)
		sys.states.pop_back();
}

int LoggingSystem_GetStateDepth()
{
	LoggingSystem_t &sys = System();
	std::lock_guard<std::mutex> lock(sys.mutex);
	return (int)sys.states.size();
}

ILoggingListener *LoggingSystem_GetStandardErrorListener()
{
	return &System().standardError;
}

void Msg(const char *fmt, ...)
{
	va_list args;
	va_start(args, fmt);
	LoggingSystem_LogV(LOG_GENERAL, LS_MESSAGE, fmt, args);
	va_end(args);
}

void Warning(const char *fmt, ...)
{
	va_list args;
	va_start(args, fmt);
	LoggingSystem_LogV(LOG_WARNING, LS_WARNING, fmt, args);
	va_end(args);
}

void DevMsg(const char *fmt, ...)
{
	va_list args;
	va_start(args, fmt);
	LoggingSystem_LogV(LOG_GENERAL, LS_DETAILED, fmt, args);
	va_end(args);
}

void ThreadSetMainThread()
{
	MainThreadId() = std::this_thread::get_id();
}

bool ThreadInMainThread()
{
	return std::this_thread::get_id() == MainThreadId();
}

FatalErrorHandler_t SetFatalErrorHandler(FatalErrorHandler_t handler)
{
	FatalErrorHandler_t previous = s_pFatalHandler;
	s_pFatalHandler = handler;
	return previous;
}

CUtlString Plat_WriteCrashReport(const char *comment)
{
	const char *folder = getenv("TMPDIR");
	const CUtlString path = V_Format("%s/mintyard_crash_%d.txt", folder && *folder ? folder : "/tmp", (int)getpid());
	const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
	if (fd >= 0)
	{
		const CUtlString header = V_Format("Mintyard crash report\ncomment: %s\n\n", comment ? comment : "");
		if (write(fd, header.data(), header.size()) < 0)
		{
			// nothing more can be done on this path
		}
		void *frames[64];
		const int count = backtrace(frames, 64);
		backtrace_symbols_fd(frames, count, fd);
		close(fd);
	}
	LoggingSystem_Log(LOG_GENERAL, LS_ERROR, "Crash report (%s) written to %s\n", comment ? comment : "", path.c_str());
	return path;
}

void Plat_FatalError(const char *fmt, ...)
{
	va_list args;
	va_start(args, fmt);
	CUtlString message = V_FormatV(fmt, args);
	va_end(args);

	static LoggingChannelID_t s_fatalChannel = LoggingSystem_RegisterLoggingChannel("Fatal", LS_DETAILED);
	LoggingSystem_LogDirect(s_fatalChannel, LS_ERROR, message.c_str());
	if (s_pFatalHandler)
		s_pFatalHandler(message.c_str());
	fflush(stdout);
	fflush(stderr);
	std::_Exit(1);
}
