#include "resourcecompiler/resourcecompilersystem.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/pathutils.h"
#include "core/strtools.h"
#include "resourcecompiler/contentroots.h"
#include "toolframework/platformservices.h"

namespace
{
DEFINE_LOGGING_CHANNEL(LOG_RESOURCE_COMPILER, "ResourceCompiler");

const int kDefaultTimeLimitSeconds = 300;
const int kDefaultMemoryLimitMiB = 8192;
const size_t kMaxLineLength = 64 * 1024; // a longer line is cut, the rest of it dropped

// The directory of the running executable.
CUtlString ExecutableFolder()
{
	std::error_code error;
	const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
	return error ? CUtlString() : CUtlString(self.parent_path().string());
}

// <root>/content/<mod>/... gives <root>/game/<mod>; "" when the path is under no content tree.
CUtlString GameDirectoryOf(const CUtlString &source)
{
	CUtlString content, game;
	return ResourceCompiler_ContentTreeOf(source, content, game) ? game : CUtlString();
}

class CLineSink
{
public:
	CLineSink(ILoggingListener *listener) : m_pListener(listener) {}

	// Sends a finished line with the severity its prefix gives.
	void Line(const CUtlString &line)
	{
		LoggingSeverity_t severity = LS_MESSAGE;
		if (V_StrBeginsWithNoCase(line, "error: ") || V_StrBeginsWithNoCase(line, "error:"))
			severity = LS_ERROR;
		else if (V_StrBeginsWithNoCase(line, "warning: "))
			severity = LS_WARNING;
		Send(severity, line + "\n");
	}
	void Send(LoggingSeverity_t severity, const CUtlString &text)
	{
		if (!m_pListener)
			return;
		const LoggingContext_t context{ LOG_RESOURCE_COMPILER, "ResourceCompiler", severity, ThreadInMainThread() };
		m_pListener->Log(context, text.c_str());
	}
	// Takes bytes of the child's output and sends each complete line.
	void Feed(const char *data, size_t size)
	{
		for (size_t i = 0; i < size; ++i)
		{
			const char c = data[i];
			if (c == '\n')
			{
				if (!m_Pending.empty() && m_Pending.back() == '\r')
					m_Pending.pop_back();
				Line(m_Pending);
				m_Pending.clear();
				m_bCut = false;
			}
			else if (m_Pending.size() < kMaxLineLength)
				m_Pending += c;
			else if (!m_bCut)
			{
				m_Pending += "...";
				m_bCut = true;
			}
		}
	}
	void Flush()
	{
		if (!m_Pending.empty())
			Line(m_Pending);
		m_Pending.clear();
	}

private:
	ILoggingListener *m_pListener;
	CUtlString m_Pending;
	bool m_bCut = false;
};

class CResourceCompilerSystem : public IResourceCompilerSystem
{
public:
	CUtlString CompilerPath() override
	{
		if (const char *env = getenv("MINTYARD_RESOURCECOMPILER"); env && *env)
			return access(env, X_OK) == 0 ? CUtlString(env) : CUtlString();
		const CUtlString folder = ExecutableFolder();
		for (const char *relative : { "/resourcecompiler", "/../bin/resourcecompiler" })
		{
			const CUtlString candidate = V_NormalizePath(folder + relative);
			if (!folder.empty() && access(candidate.c_str(), X_OK) == 0)
				return candidate;
		}
		return CUtlString();
	}

	bool CompileResource(const char *pszAbsolutePath, const ResourceCompileParams_t &params) override
	{
		CLineSink sink(params.m_pListener);
		const CUtlString source = pszAbsolutePath ? pszAbsolutePath : "";
		const CUtlString name = params.m_pszName && *params.m_pszName ? CUtlString(params.m_pszName) : source;
		if (source.empty() || !V_IsAbsolutePath(source))
		{
			sink.Line(V_Format("error: %s: a compile takes an absolute path", source.c_str()));
			return false;
		}
		const CUtlString compiler = CompilerPath();
		if (compiler.empty())
		{
			sink.Line(V_Format("error: %s: the resource compiler was not found beside %s", name.c_str(), ExecutableFolder().c_str()));
			return false;
		}
		CUtlString game = params.m_pszGameDirectory && *params.m_pszGameDirectory ? CUtlString(params.m_pszGameDirectory) : GameDirectoryOf(source);

		std::vector<std::string> args = { compiler };
		if (!game.empty())
		{
			args.push_back("-game");
			args.push_back(game);
		}
		args.push_back(source);
		std::vector<char *> argv;
		for (std::string &arg : args)
			argv.push_back(arg.data());
		argv.push_back(nullptr);

		int out[2];
		if (pipe2(out, O_CLOEXEC) != 0)
		{
			sink.Line(V_Format("error: %s: cannot start the resource compiler: %s", name.c_str(), strerror(errno)));
			return false;
		}
		const int timeLimit = params.m_nTimeLimitSeconds > 0 ? params.m_nTimeLimitSeconds : kDefaultTimeLimitSeconds;
		const rlim_t memoryLimit = (rlim_t)(params.m_nMemoryLimitMiB > 0 ? params.m_nMemoryLimitMiB : kDefaultMemoryLimitMiB) << 20;
		const pid_t pid = fork();
		if (pid < 0)
		{
			close(out[0]);
			close(out[1]);
			sink.Line(V_Format("error: %s: cannot start the resource compiler: %s", name.c_str(), strerror(errno)));
			return false;
		}
		if (pid == 0)
		{
			// Only async-signal-safe calls from here to exec.
			setpgid(0, 0);
			const struct rlimit limit = { memoryLimit, memoryLimit };
			setrlimit(RLIMIT_AS, &limit);
			const struct rlimit noCore = { 0, 0 };
			setrlimit(RLIMIT_CORE, &noCore);
			dup2(out[1], 1);
			dup2(out[1], 2);
			const int devNull = open("/dev/null", O_RDONLY);
			if (devNull >= 0)
				dup2(devNull, 0);
			execv(argv[0], argv.data());
			_exit(127);
		}
		close(out[1]);

		const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeLimit);
		bool bTimedOut = false;
		char chunk[4096];
		for (;;)
		{
			const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
			if (left <= 0)
			{
				bTimedOut = true;
				break;
			}
			struct pollfd fd = { out[0], POLLIN, 0 };
			const int ready = poll(&fd, 1, (int)std::min<long long>(left, 1000));
			if (ready < 0 && errno == EINTR)
				continue;
			if (ready <= 0)
				continue;
			const ssize_t got = read(out[0], chunk, sizeof(chunk));
			if (got < 0 && errno == EINTR)
				continue;
			if (got <= 0)
				break; // the child closed its output: it is ending
			sink.Feed(chunk, (size_t)got);
		}
		close(out[0]);
		// The output is closed; the child may still be running (or hanging) for a while.
		int status = 0;
		for (;;)
		{
			if (bTimedOut)
			{
				kill(-pid, SIGKILL);
				while (waitpid(pid, &status, 0) < 0 && errno == EINTR)
				{
				}
				break;
			}
			const pid_t done = waitpid(pid, &status, WNOHANG);
			if (done == pid || (done < 0 && errno != EINTR))
				break;
			bTimedOut = std::chrono::steady_clock::now() >= deadline;
			if (!bTimedOut)
				usleep(2000);
		}
		kill(-pid, SIGKILL); // anything the compiler left running
		sink.Flush();

		if (bTimedOut)
		{
			sink.Line(V_Format("error: %s: the compile did not finish within %d seconds and was ended", name.c_str(), timeLimit));
			return false;
		}
		if (WIFSIGNALED(status))
		{
			sink.Line(V_Format("error: %s: the resource compiler crashed (%s)", name.c_str(), strsignal(WTERMSIG(status))));
			return false;
		}
		if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
		{
			if (WIFEXITED(status) && WEXITSTATUS(status) == 127)
				sink.Line(V_Format("error: %s: the resource compiler %s could not be run", name.c_str(), compiler.c_str()));
			return false;
		}
		return true;
	}
};

CResourceCompilerSystem s_ResourceCompilerSystem;
} // namespace

IResourceCompilerSystem *ResourceCompilerSystem()
{
	return &s_ResourceCompilerSystem;
}

EXPOSE_PLATFORM_INTERFACE_GLOBALVAR(CResourceCompilerSystem, IResourceCompilerSystem, RESOURCECOMPILER_SYSTEM_INTERFACE_VERSION,
	s_ResourceCompilerSystem);
