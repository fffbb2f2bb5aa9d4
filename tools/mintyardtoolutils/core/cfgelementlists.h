// Writing and reading the typed lists of configuration elements in a session document: an array
// of tables, each beginning with the "id" of the element's template, by which reading finds the
// element again. Shared by the elements and the session document.
#pragma once

#include "core/keyvalues3.h"
#include "core/logging.h"
#include "core/strtools.h"
#include "mintyardtoolutils/core/cfgelements.h"

// Writes "key": [ { id = ..., ... }, ... ] for a typed list, each element writing the rest.
template <typename T, typename Fn> inline bool SaveCfgElementTables(SaveContext &, KeyValues3 *pTable, const char *pszKey, const CUtlVector<T *> &elements, Fn &&save)
{
	KeyValues3 *pArray = AddMember(pTable, pszKey);
	ArrayResize(pArray, (uint32)elements.size());
	for (size_t i = 0; i < elements.size(); ++i)
	{
		KeyValues3 *pEntry = ArrayElement(pArray, (uint32)i);
		MakeTable(pEntry);
		SetMemberString(pEntry, "id", elements[i]->GetTemplateId());
		if (!save(elements[i], pEntry))
			return false;
	}
	return true;
}

// Reads "key": each entry's "id" picks the element of that template id; unknown ids are logged.
template <typename T, typename Fn> inline bool LoadCfgElementTables(const KeyValues3 *pTable, const char *pszKey, const CUtlVector<T *> &elements, Fn &&load)
{
	const KeyValues3 *pArray = FindMember(pTable, pszKey);
	if (!pArray)
		return true;
	const uint32 nCount = ArrayLength(pArray);
	for (uint32 i = 0; i < nCount; ++i)
	{
		const KeyValues3 *pEntry = ArrayElement(pArray, i);
		const char *pszId = GetMemberString(pEntry, "id", "");
		T *pFound = nullptr;
		for (T *pElement : elements)
		{
			if (V_StrEqualNoCase(pElement->GetTemplateId(), pszId))
			{
				pFound = pElement;
				break;
			}
		}
		if (!pFound)
		{
			Log_Warning(LOG_GENERAL, "Warning: Loaded element '%s' not used by template\n", pszId);
			continue;
		}
		if (!load(pFound, pEntry))
			return false;
	}
	return true;
}

template <typename T> inline bool SaveCfgElementList(SaveContext &ctx, KeyValues3 *pTable, const char *pszKey, const CUtlVector<T *> &elements, ImportMessageList &list)
{
	return SaveCfgElementTables(ctx, pTable, pszKey, elements, [&](T *p, KeyValues3 *pEntry) { return p->SaveToKV3(ctx, pEntry, list); });
}

template <typename T> inline bool LoadCfgElementList(const LoadContext &ctx, const KeyValues3 *pTable, const char *pszKey, const CUtlVector<T *> &elements, ImportMessageList &list)
{
	return LoadCfgElementTables(pTable, pszKey, elements, [&](T *p, const KeyValues3 *pEntry) { return p->LoadFromKV3(ctx, pEntry, list); });
}

