// The host's command line, shared by the host and its tools.
#pragma once

#include "core/utlstring.h"
#include "core/utlvector.h"

class ICommandLine
{
public:
	virtual void CreateCmdLine(int argc, const char *const *argv) = 0;
	// Index of the option (compared without case), 0 when absent.
	virtual int FindParm(const char *name) const = 0;
	bool HasParm(const char *name) const { return FindParm(name) != 0; }
	// The value after an option: the next argument unless it starts with '-' or '+'; the
	// default when the option is absent or has no value.
	virtual const char *ParmValue(const char *name, const char *defaultValue = nullptr) const = 0;
	virtual int ParmValueInt(const char *name, int defaultValue) const = 0;
	// Every value of a repeated option ("-addon a -addon b").
	virtual void ParmValues(const char *name, CUtlVector<CUtlString> &out) const = 0;
	virtual int ParmCount() const = 0;
	virtual const char *GetParm(int index) const = 0;
	// "+name value" pairs, in order.
	virtual void GetConsoleCommands(CUtlVector<CUtlString> &names, CUtlVector<CUtlString> &values) const = 0;

protected:
	~ICommandLine() = default;
};

ICommandLine *CommandLine();
