// Console variables: named settings of text, numbers or flags that tools define and the host
// sets from its command line ("+zarn_mintyard_legacy_model_import 1").
//
// A ConVar defined at namespace scope registers itself with the process's cvar system when its
// library loads, and leaves it when the library unloads.
#pragma once

#include "core/utlstring.h"
#include "core/utlvector.h"

class ConVar;

class ICvar
{
public:
	virtual ConVar *FindVar(const char *name) = 0;
	// Sets a variable by name; false when none has that name.
	virtual bool SetValue(const char *name, const char *value) = 0;
	virtual void GetVarNames(CUtlVector<CUtlString> &out) = 0;
	virtual void RegisterConVar(ConVar *var) = 0;
	virtual void UnregisterConVar(ConVar *var) = 0;

protected:
	~ICvar() = default;
};

ICvar *CVar();
#define CVAR_INTERFACE_VERSION "VCvar001"

class ConVar
{
public:
	ConVar(const char *name, const char *defaultValue, const char *helpText = "");
	~ConVar();
	ConVar(const ConVar &) = delete;
	ConVar &operator=(const ConVar &) = delete;

	const char *GetName() const { return m_pName; }
	const char *GetHelpText() const { return m_pHelpText; }
	const char *GetDefault() const { return m_pDefault; }
	const char *GetString() const { return m_Value.c_str(); }
	int GetInt() const;
	float GetFloat() const;
	bool GetBool() const { return GetInt() != 0; }
	void SetValue(const char *value);
	void Revert() { SetValue(m_pDefault); }

private:
	const char *m_pName;
	const char *m_pDefault;
	const char *m_pHelpText;
	CUtlString m_Value;
};
