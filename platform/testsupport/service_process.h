// Starts brume_service on a free loopback port for a test and stops it again.
#pragma once

#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

class CServiceProcess
{
public:
	~CServiceProcess() { Stop(); }

	// Starts the service on `dataDir` with extra options; false when it did not say its port.
	bool Start(const std::string &dataDir, const std::vector<std::string> &extra = {})
	{
		int out[2];
		if (pipe(out) != 0)
			return false;
		std::vector<std::string> args = {MINTYARD_BINARY_DIR "/bin/brume_service", "--data-dir", dataDir, "--port", "0"};
		args.insert(args.end(), extra.begin(), extra.end());
		m_Pid = fork();
		if (m_Pid == 0)
		{
			dup2(out[1], 1);
			close(out[0]);
			close(out[1]);
			std::vector<char *> argv;
			for (std::string &a : args)
				argv.push_back(a.data());
			argv.push_back(nullptr);
			execv(argv[0], argv.data());
			_exit(127);
		}
		close(out[1]);
		FILE *stream = fdopen(out[0], "r");
		char line[256] = {};
		const bool bGot = stream && fgets(line, sizeof(line), stream) != nullptr;
		if (stream)
			fclose(stream);
		if (!bGot || sscanf(line, "listening on 127.0.0.1:%d", &m_nPort) != 1)
		{
			Stop();
			return false;
		}
		return true;
	}

	int Port() const { return m_nPort; }
	pid_t Pid() const { return m_Pid; }
	std::string Address() const { return "127.0.0.1:" + std::to_string(m_nPort); }

	// Ends the service at once, as a crash would.
	void Kill()
	{
		if (m_Pid > 0)
		{
			kill(m_Pid, SIGKILL);
			waitpid(m_Pid, nullptr, 0);
			m_Pid = -1;
		}
	}

	void Stop()
	{
		if (m_Pid > 0)
		{
			kill(m_Pid, SIGTERM);
			waitpid(m_Pid, nullptr, 0);
			m_Pid = -1;
		}
	}

private:
	pid_t m_Pid = -1;
	int m_nPort = 0;
};
