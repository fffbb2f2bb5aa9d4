#include "toolframework/commandline.h"

#include <charconv>
#include <cstring>

#include "core/strtools.h"

namespace
{
// "-name" and "+name" start options; anything else is a value.
bool IsOption(const CUtlString &text)
{
	return !text.empty() && (text[0] == '-' || text[0] == '+');
}

// A console command's value may be a negative number ("+zarn_bias -1"), which would otherwise
// read as an option.
bool IsNegativeNumber(const CUtlString &text)
{
	return text.size() >= 2 && text[0] == '-' && ((text[1] >= '0' && text[1] <= '9') || text[1] == '.');
}

class CCommandLine final : public ICommandLine
{
public:
	void CreateCmdLine(int argc, const char *const *argv) override
	{
		m_Parms.clear();
		for (int i = 0; argv && i < argc; ++i)
			m_Parms.push_back(argv[i] ? argv[i] : "");
	}

	int FindParm(const char *name) const override
	{
		if (!name || !*name)
			return 0;
		// Index 0 is the program; it is never an option.
		for (size_t i = 1; i < m_Parms.size(); ++i)
		{
			if (V_stricmp(m_Parms[i].c_str(), name) == 0)
				return (int)i;
		}
		return 0;
	}

	const char *ParmValue(const char *name, const char *defaultValue) const override
	{
		const size_t index = (size_t)FindParm(name);
		if (index == 0 || index + 1 >= m_Parms.size() || IsOption(m_Parms[index + 1]))
			return defaultValue;
		return m_Parms[index + 1].c_str();
	}

	int ParmValueInt(const char *name, int defaultValue) const override
	{
		const char *value = ParmValue(name, nullptr);
		if (!value)
			return defaultValue;
		// The whole value must be the number: "-width 12px" is no width.
		const char *end = value + strlen(value);
		int number = 0;
		const auto result = std::from_chars(value, end, number);
		return (result.ec == std::errc() && result.ptr == end) ? number : defaultValue;
	}

	void ParmValues(const char *name, CUtlVector<CUtlString> &out) const override
	{
		out.clear();
		if (!name || !*name)
			return;
		for (size_t i = 1; i + 1 < m_Parms.size(); ++i)
		{
			if (V_stricmp(m_Parms[i].c_str(), name) == 0 && !IsOption(m_Parms[i + 1]))
				out.push_back(m_Parms[i + 1]);
		}
	}

	int ParmCount() const override { return (int)m_Parms.size(); }

	const char *GetParm(int index) const override
	{
		return (index >= 0 && (size_t)index < m_Parms.size()) ? m_Parms[(size_t)index].c_str() : nullptr;
	}

	void GetConsoleCommands(CUtlVector<CUtlString> &names, CUtlVector<CUtlString> &values) const override
	{
		names.clear();
		values.clear();
		for (size_t i = 1; i < m_Parms.size(); ++i)
		{
			const CUtlString &parm = m_Parms[i];
			if (parm.size() < 2 || parm[0] != '+')
				continue;
			names.push_back(parm.substr(1));
			if (i + 1 < m_Parms.size() && (!IsOption(m_Parms[i + 1]) || IsNegativeNumber(m_Parms[i + 1])))
			{
				values.push_back(m_Parms[i + 1]);
				++i; // the value is no option of its own
			}
			else
				values.push_back(CUtlString());
		}
	}

private:
	CUtlVector<CUtlString> m_Parms;
};
} // namespace

ICommandLine *CommandLine()
{
	static CCommandLine s_CommandLine;
	return &s_CommandLine;
}
