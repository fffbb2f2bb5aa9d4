#include "mintyardtoolutils/core/importmessages.h"

#include <cstdio>
#include <cstring>

#include "core/logging.h"
#include "core/strtools.h"
#include "toolframework/localize.h"

const CUtlString &MintyardImportMessageEntry_t::Arg(int nArg) const
{
	static const CUtlString s_Empty;
	if (nArg < 1 || nArg >= SLOT_COUNT)
		return s_Empty;
	return m_Text[nArg];
}

void MintyardImportMessageEntry_t::SetArg(int nArg, const char *pszText)
{
	if (nArg < 1 || nArg >= SLOT_COUNT)
		return;
	m_Text[nArg] = pszText ? pszText : "";
	m_bSet[nArg] = true;
}

int MintyardImportMessageEntry_t::ArgCount() const
{
	int nCount = 0;
	for (int i = 1; i < SLOT_COUNT; ++i)
		nCount += m_bSet[i] ? 1 : 0;
	return nCount;
}

MintyardImportMessageEntry_t &ImportMessageList::AddError(const char *pszMessage, const char *pszArg1, const char *pszArg2,
	const char *pszArg3, const char *pszArg4)
{
	MintyardImportMessageEntry_t &entry = m_Entries.emplace_back();
	entry.m_Text[0] = pszMessage ? pszMessage : "";
	entry.m_bSet[0] = true;
	const char *args[4] = { pszArg1, pszArg2, pszArg3, pszArg4 };
	for (int i = 0; i < 4; ++i)
	{
		if (args[i])
			entry.SetArg(i + 1, args[i]);
	}
	entry.isError = true;
	return entry;
}

MintyardImportMessageEntry_t &ImportMessageList::AddWarning(const char *pszMessage, const char *pszArg1, const char *pszArg2,
	const char *pszArg3, const char *pszArg4)
{
	MintyardImportMessageEntry_t &entry = AddError(pszMessage, pszArg1, pszArg2, pszArg3, pszArg4);
	entry.isError = false;
	return entry;
}

MintyardImportMessageEntry_t &ImportMessageList::AddEntry(const MintyardImportMessageEntry_t &entry)
{
	return m_Entries.emplace_back(entry);
}

int ImportMessageList::GetErrorCount() const
{
	int nErrors = 0;
	for (const MintyardImportMessageEntry_t &entry : m_Entries)
		nErrors += entry.isError ? 1 : 0;
	return nErrors;
}

void ImportMessageList::Log(int nSeverity, const char *pszFormat, ...)
{
	if ((!m_pLog && !m_bEchoToConsole) || m_bEchoing)
		return;
	va_list args;
	va_start(args, pszFormat);
	const CUtlString text = V_FormatV(pszFormat, args);
	va_end(args);
	if (m_pLog)
		m_pLog->LogMessage(nSeverity, text.c_str());
	if (m_bEchoToConsole)
	{
		const LoggingSeverity_t severity = nSeverity >= 2 ? LS_ERROR : nSeverity == 1 ? LS_WARNING : LS_MESSAGE;
		m_bEchoing = true;
		LoggingSystem_LogDirect(LOG_GENERAL, severity, text.c_str());
		m_bEchoing = false;
	}
}

CUtlString FormatImportMessage(const MintyardImportMessageEntry_t &entry, ILocalize *pLocalize)
{
	const char *args[4];
	for (int i = 0; i < 4; ++i)
		args[i] = entry.HasArg(i + 1) ? entry.Arg(i + 1).c_str() : nullptr;
	if (pLocalize)
		return pLocalize->Format(entry.Message().c_str(), args[0], args[1], args[2], args[3]);
	// Without texts, fill the placeholders of a literal all the same, in one pass, so that an
	// argument holding "%2" is not filled in again.
	const CUtlString &format = entry.Message();
	CUtlString text;
	for (size_t i = 0; i < format.size(); ++i)
	{
		if (format[i] == '%' && i + 1 < format.size() && format[i + 1] >= '1' && format[i + 1] <= '4')
		{
			if (args[format[i + 1] - '1'])
				text += args[format[i + 1] - '1'];
			++i;
			continue;
		}
		text += format[i];
	}
	return text;
}

const MintyardImportMessageEntry_t *ImportMessageList::Find(const char *pszMessage, const char *pszArg1) const
{
	for (const MintyardImportMessageEntry_t &entry : m_Entries)
	{
		if (pszMessage && entry.Message() == pszMessage && (!pszArg1 || entry.Arg(1) == pszArg1))
			return &entry;
	}
	return nullptr;
}

int ImportMessageList::CountMessage(const char *pszMessage) const
{
	int n = 0;
	for (const MintyardImportMessageEntry_t &entry : m_Entries)
		n += pszMessage && entry.Message() == pszMessage ? 1 : 0;
	return n;
}
