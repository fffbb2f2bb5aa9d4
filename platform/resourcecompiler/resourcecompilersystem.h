// ResourceCompilerSystem001: compiles one source file into the game tree by running the
// `resourcecompiler` command as a child process and waiting for it. Every line the command
// prints reaches the caller's logging listener with its severity ("warning: " and "error: "
// prefixes); the exit status is the result. A crash, a hang past the time limit or runaway memory
// in the child ends that one compile with an error line, never the caller.
#pragma once

#include "core/logging.h"
#include "core/utlstring.h"

#define RESOURCECOMPILER_SYSTEM_INTERFACE_VERSION "ResourceCompilerSystem001"

struct ResourceCompileParams_t
{
	// Receives every line of the compile (and the system's own lines about the child). May be null.
	ILoggingListener *m_pListener = nullptr;
	// Names the compile in the lines the system writes about it; the file name when null.
	const char *m_pszName = nullptr;
	// The game directory, <root>/game/<mod>. Null: the one whose content tree holds the source
	// (<root>/content/<mod>/... gives <root>/game/<mod>), else the command's own choice.
	const char *m_pszGameDirectory = nullptr;
	// Seconds before a compile is ended; 0 takes the default (5 minutes).
	int m_nTimeLimitSeconds = 0;
	// Address space of the child in MiB; 0 takes the default (8 GiB).
	int m_nMemoryLimitMiB = 0;
	uint32 m_nFlags = 0;
};

class IResourceCompilerSystem
{
public:
	// Compiles the source at an absolute path. True when the compile succeeded.
	virtual bool CompileResource(const char *pszAbsolutePath, const ResourceCompileParams_t &params) = 0;
	// The command the system runs (its absolute path), "" when none was found.
	virtual CUtlString CompilerPath() = 0;

protected:
	~IResourceCompilerSystem() = default;
};

// The process's instance (also registered under RESOURCECOMPILER_SYSTEM_INTERFACE_VERSION with
// the platform's services).
IResourceCompilerSystem *ResourceCompilerSystem();
