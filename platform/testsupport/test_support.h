// Small helpers shared by the tests of every module.
#pragma once

#include <cstdio>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <sys/wait.h>

#include "core/fileio.h"
#include "core/logging.h"

// Collects what is logged while it lives; nothing reaches standard error meanwhile.
class CCaptureLog : public ILoggingListener
{
public:
	CCaptureLog()
	{
		LoggingSystem_PushLoggingState(true);
		LoggingSystem_RegisterLoggingListener(this);
	}
	~CCaptureLog() { LoggingSystem_PopLoggingState(); }
	void Log(const LoggingContext_t &context, const char *message) override
	{
		m_Text += message;
		m_LastSeverity = context.severity;
	}

	std::string m_Text;
	LoggingSeverity_t m_LastSeverity = LS_MESSAGE;
};

// A fresh folder under /tmp, removed with everything in it when the object goes.
class CTempDirectory
{
public:
	CTempDirectory()
	{
		char pattern[] = "/tmp/mintyard_test_XXXXXX";
		if (mkdtemp(pattern))
			m_Path = pattern;
		EXPECT_FALSE(m_Path.empty()) << "cannot create a folder under /tmp";
	}
	~CTempDirectory()
	{
		std::error_code ignored;
		if (!m_Path.empty())
			std::filesystem::remove_all(m_Path, ignored);
	}
	CTempDirectory(const CTempDirectory &) = delete;
	CTempDirectory &operator=(const CTempDirectory &) = delete;

	const std::string &Path() const { return m_Path; }
	std::string Path(const std::string &relative) const { return m_Path + "/" + relative; }
	// Writes a file (creating its folders) and returns its full path.
	std::string Write(const std::string &relative, const std::string &text) const
	{
		const std::string path = Path(relative);
		std::filesystem::create_directories(std::filesystem::path(path).parent_path());
		EXPECT_TRUE(Plat_WriteFileAtomic(path.c_str(), text.data(), text.size())) << path;
		return path;
	}

private:
	std::string m_Path;
};

// Runs a shell command; its standard output and standard error come back together.
struct CommandResult_t
{
	int exitCode = -1; // -1 when it did not exit normally
	std::string output;
};

inline CommandResult_t RunCommand(const std::string &command)
{
	CommandResult_t result;
	FILE *pipe = popen((command + " 2>&1").c_str(), "r");
	if (!pipe)
		return result;
	char chunk[4096];
	size_t got;
	while ((got = fread(chunk, 1, sizeof(chunk), pipe)) > 0)
		result.output.append(chunk, got);
	const int status = pclose(pipe);
	result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
	return result;
}
