// The result type of the import core: an ordered list of problems, each a message (usually a
// "#" localisation token) with up to four argument texts, and a sink for progress lines.
#pragma once

#include "core/platform.h"
#include "core/utlstring.h"
#include "core/utlvector.h"

// Receives the progress lines of an import run. Severity 0 information, 1 warning, 2 error.
class IMintyardImportLog
{
public:
	virtual void LogMessage(int nSeverity, const char *pszText) = 0;

protected:
	~IMintyardImportLog() = default;
};

enum
{
	MINTYARD_IMPORT_LOG_INFO = 0,
	MINTYARD_IMPORT_LOG_WARNING = 1,
	MINTYARD_IMPORT_LOG_ERROR = 2,
};

// One problem. Slot 0 is the message, slots 1 to 4 its arguments; a slot's flag says it was set.
struct MintyardImportMessageEntry_t
{
	enum { SLOT_COUNT = 5 };

	CUtlString m_Text[SLOT_COUNT];
	bool m_bSet[SLOT_COUNT] = { false, false, false, false, false };
	bool isError = true;

	const CUtlString &Message() const { return m_Text[0]; }
	// Argument 1 to 4; the empty string when out of range.
	const CUtlString &Arg(int nArg) const;
	bool HasArg(int nArg) const { return nArg >= 1 && nArg < SLOT_COUNT && m_bSet[nArg]; }
	void SetArg(int nArg, const char *pszText);
	int ArgCount() const; // the number of set arguments
};

class ImportMessageList
{
public:
	ImportMessageList() = default;

	// Appends an entry with the message and the given arguments (null pointers stay unset).
	// The entry is an error; warnings clear isError right after (or use AddWarning).
	MintyardImportMessageEntry_t &AddError(const char *pszMessage, const char *pszArg1 = nullptr, const char *pszArg2 = nullptr,
		const char *pszArg3 = nullptr, const char *pszArg4 = nullptr);
	MintyardImportMessageEntry_t &AddWarning(const char *pszMessage, const char *pszArg1 = nullptr, const char *pszArg2 = nullptr,
		const char *pszArg3 = nullptr, const char *pszArg4 = nullptr);
	MintyardImportMessageEntry_t &AddEntry(const MintyardImportMessageEntry_t &entry);

	int Count() const { return (int)m_Entries.size(); }
	const MintyardImportMessageEntry_t &operator[](int i) const { return m_Entries[i]; }
	MintyardImportMessageEntry_t &operator[](int i) { return m_Entries[i]; }
	const CUtlVector<MintyardImportMessageEntry_t> &Entries() const { return m_Entries; }
	int GetErrorCount() const;
	// The first entry with that message (and that first argument, when given); null when none.
	const MintyardImportMessageEntry_t *Find(const char *pszMessage, const char *pszArg1 = nullptr) const;
	// The number of entries with that message.
	int CountMessage(const char *pszMessage) const;
	int GetWarningCount() const { return Count() - GetErrorCount(); }
	void Clear() { m_Entries.clear(); }

	// Progress lines: printf-style, never entries. They go to the sink and, with echo on, to
	// the process console.
	void SetLog(IMintyardImportLog *pLog) { m_pLog = pLog; }
	IMintyardImportLog *GetLog() const { return m_pLog; }
	void SetEchoToConsole(bool bEcho) { m_bEchoToConsole = bEcho; }
	bool GetEchoToConsole() const { return m_bEchoToConsole; }
	void Log(int nSeverity, const char *pszFormat, ...) FMTFUNCTION(3, 4);

private:
	CUtlVector<MintyardImportMessageEntry_t> m_Entries;
	IMintyardImportLog *m_pLog = nullptr;
	bool m_bEchoToConsole = false;
	// Set while a line is echoed: a logging listener that hands the echo back to this list (the
	// compile's scope guard) finds it here and the line is not taken twice.
	bool m_bEchoing = false;
};

class ILocalize;
// The entry as display text: the message translated, %1 to %4 replaced by the set arguments.
// Without a localiser the message stands as it is.
CUtlString FormatImportMessage(const MintyardImportMessageEntry_t &entry, ILocalize *pLocalize);
