#include "toolframework/convar.h"

#include <charconv>
#include <cmath>
#include <climits>
#include <mutex>
#include <vector>

#include "core/logging.h"
#include "core/strtools.h"

namespace
{
class CCvarSystem final : public ICvar
{
public:
	ConVar *FindVar(const char *name) override
	{
		std::lock_guard<std::mutex> lock(m_Mutex);
		for (ConVar *var : m_Vars)
		{
			if (SameName(var, name))
				return var;
		}
		return nullptr;
	}

	bool SetValue(const char *name, const char *value) override
	{
		// Two libraries may define the same variable; both hear the new value, so that neither
		// works with a stale one.
		std::lock_guard<std::mutex> lock(m_Mutex);
		bool bFound = false;
		for (ConVar *var : m_Vars)
		{
			if (SameName(var, name))
			{
				var->SetValue(value);
				bFound = true;
			}
		}
		return bFound;
	}

	void GetVarNames(CUtlVector<CUtlString> &out) override
	{
		std::lock_guard<std::mutex> lock(m_Mutex);
		out.clear();
		for (size_t i = 0; i < m_Vars.size(); ++i)
		{
			bool bSeen = false;
			for (size_t j = 0; j < i && !bSeen; ++j)
				bSeen = SameName(m_Vars[j], m_Vars[i]->GetName());
			if (!bSeen)
				out.push_back(m_Vars[i]->GetName());
		}
	}

	void RegisterConVar(ConVar *var) override
	{
		if (!var || !var->GetName() || !*var->GetName())
			return;
		std::lock_guard<std::mutex> lock(m_Mutex);
		for (ConVar *existing : m_Vars)
		{
			if (existing == var)
				return;
			if (SameName(existing, var->GetName()))
				Warning("Console variable \"%s\" is defined twice; both copies follow the same value\n", var->GetName());
		}
		m_Vars.push_back(var);
	}

	void UnregisterConVar(ConVar *var) override
	{
		std::lock_guard<std::mutex> lock(m_Mutex);
		std::erase(m_Vars, var);
	}

private:
	static bool SameName(const ConVar *var, const char *name) { return V_stricmp(var->GetName(), name ? name : "") == 0; }

	std::mutex m_Mutex;
	std::vector<ConVar *> m_Vars;
};

// The text as a number: blanks around it are allowed, a leading '+' too; anything else that is
// not part of the number ends it ("1.5x" reads 1.5). std::from_chars never looks at the locale,
// so "0.5" reads the same under a German locale.
bool ParseNumber(const CUtlString &text, double &out)
{
	const char *begin = text.c_str();
	const char *end = begin + text.size();
	while (begin < end && (*begin == ' ' || *begin == '\t'))
		++begin;
	if (begin < end && *begin == '+')
		++begin;
	double value = 0.0;
	const auto result = std::from_chars(begin, end, value);
	if (result.ec != std::errc() || std::isnan(value))
		return false;
	out = value;
	return true;
}
} // namespace

ICvar *CVar()
{
	// Never destroyed: variables of other libraries leave it from their own static destructors,
	// which may run after this library's.
	static CCvarSystem *s_pCvar = new CCvarSystem;
	return s_pCvar;
}

ConVar::ConVar(const char *name, const char *defaultValue, const char *helpText)
	: m_pName(name ? name : ""), m_pDefault(defaultValue ? defaultValue : ""), m_pHelpText(helpText ? helpText : ""),
	  m_Value(m_pDefault)
{
	CVar()->RegisterConVar(this);
}

ConVar::~ConVar()
{
	CVar()->UnregisterConVar(this);
}

int ConVar::GetInt() const
{
	double value = 0.0;
	if (!ParseNumber(m_Value, value))
		return 0;
	// Fractions are cut toward zero; numbers out of range stop at the ends of int.
	if (value >= (double)INT_MAX)
		return INT_MAX;
	if (value <= (double)INT_MIN)
		return INT_MIN;
	return (int)value;
}

float ConVar::GetFloat() const
{
	double value = 0.0;
	return ParseNumber(m_Value, value) ? (float)value : 0.0f;
}

void ConVar::SetValue(const char *value)
{
	m_Value = value ? value : "";
}
