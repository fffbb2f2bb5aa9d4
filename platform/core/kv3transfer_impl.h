// Template bodies of the record transfer layer; included at the end of kv3transfer.h.
#pragma once

#include "core/logging.h"

template <KV3Record R> void CKV3TransferLoadContext::LoadRecord(const KeyValues3 *value, R &record)
{
	if (Enter(value))
		record.Load(*this);
	Leave();
}

template <typename T> void CKV3TransferLoadContext::PrepareList(CUtlVector<T> &list, uint32 count)
{
	if (m_pScratchPool)
		UtlVectorUsePool(list, m_pScratchPool, count);
	list.resize(count);
}

template <typename T> void CKV3TransferLoadContext::ReadValue(const KeyValues3 *value, CUtlVector<T> &list)
{
	static_assert(!std::is_same_v<T, bool>, "lists of bool cannot be transferred");
	const uint32 count = ArrayLength(value);
	PrepareList(list, count);
	for (uint32 i = 0; i < count; ++i)
		ReadValue(ArrayElement(value, i), list[i]);
}

template <typename E> void CKV3TransferLoadContext::EnumListMember(const KV3MemberName_t &name, CUtlVector<E> &list, const CKV3EnumTable &table)
{
	const KeyValues3 *value = GetMember(Current(), name);
	const uint32 count = ArrayLength(value);
	PrepareList(list, count);
	for (uint32 i = 0; i < count; ++i)
		list[i] = (E)ReadEnumValue(ArrayElement(value, i), table);
}

template <typename B> void CKV3TransferLoadContext::ReadValue(const KeyValues3 *value, std::unique_ptr<B> &out)
{
	static_assert(std::is_base_of_v<IKV3PolymorphicRecord, B>, "owned pointers must hold polymorphic records");
	out.reset();
	IKV3PolymorphicRecord *record = AllocatePolymorphic(value);
	if (!record)
		return;
	B *typed = dynamic_cast<B *>(record);
	if (!typed)
	{
		ReportError("Failed to allocate an instance of class '%s'", record->GetKV3ClassInfo() ? record->GetKV3ClassInfo()->m_pszName : "");
		delete record;
		return;
	}
	out.reset(typed);
	LoadPolymorphicRecord(value, *typed);
}

template <KV3Integer T> T CKV3TransferLoadContext::ReadInteger(const KeyValues3 *value)
{
	int64 signedValue = 0;
	uint64 unsignedValue = 0;
	bool bUnsigned = false;
	bool bInexact = false;
	if (!ReadIntegerBits(value, signedValue, unsignedValue, bUnsigned, bInexact))
		return 0; // the reason was reported
	T result;
	bool bLoses = bInexact;
	if (bUnsigned)
	{
		result = (T)unsignedValue;
		if constexpr (std::is_signed_v<T>)
			bLoses = bLoses || result < 0;
		bLoses = bLoses || (uint64)result != unsignedValue;
	}
	else
	{
		result = (T)signedValue;
		if constexpr (std::is_signed_v<T>)
			bLoses = bLoses || (signedValue < 0) != (result < 0);
		else
			bLoses = bLoses || signedValue < 0;
		bLoses = bLoses || (int64)result != signedValue;
	}
	if (bLoses)
	{
		if constexpr (std::is_signed_v<T>)
			CastWarning(value, V_Format("%lld", (long long)result));
		else
			CastWarning(value, V_Format("%llu", (unsigned long long)result));
	}
	return result;
}

template <KV3Record R> void CKV3TransferSaveContext::SaveRecord(KeyValues3 *value, const R &record)
{
	if (!value)
		return;
	value->MakeTable();
	if (Enter(value))
		record.Save(*this);
	Leave();
}

template <typename T> void CKV3TransferSaveContext::WriteValue(KeyValues3 *out, const CUtlVector<T> &list)
{
	static_assert(!std::is_same_v<T, bool>, "lists of bool cannot be transferred");
	if (!out)
		return;
	CountListStorage(sizeof(T), list.size());
	out->MakeArray((uint32)list.size());
	for (uint32 i = 0; i < (uint32)list.size(); ++i)
	{
		KeyValues3 *element = out->GetArrayElement(i);
		if constexpr (KV3Record<T>)
		{
			SaveRecord(element, list[i]);
			if (!IsOk())
				element->SetToNull();
		}
		else
			WriteValue(element, list[i]);
	}
}

template <typename E> void CKV3TransferSaveContext::EnumListMember(const KV3MemberName_t &name, const CUtlVector<E> &list, const CKV3EnumTable &table)
{
	KeyValues3 *out = PrepareMember(name);
	CountListStorage(sizeof(E), list.size());
	out->MakeArray((uint32)list.size());
	for (uint32 i = 0; i < (uint32)list.size(); ++i)
		WriteEnum(out->GetArrayElement(i), (int)list[i], table);
}

template <KV3Record R>
bool LoadKV3ObjectInPlace(R &object, const KeyValues3 *root, CUtlString *pErrorText, const char *sourceName, CUtlScratchMemoryPool *pScratchPool)
{
	CKV3TransferLoadContext context(pScratchPool);
	context.SetSourceName(sourceName);
	context.LoadRecord(root, object);
	if (pErrorText)
		*pErrorText = context.GetText();
	if (!context.IsOk())
	{
		KV3LogTransferFailure(LS_WARNING, "LoadKV3ObjectInPlace error: %s\n", context.GetText());
		return false;
	}
	return true;
}

template <KV3Record R> std::unique_ptr<R> LoadKV3Object(const KeyValues3 *root, CUtlString *pErrorText, const char *sourceName)
{
	std::unique_ptr<R> object(new R());
	CKV3TransferLoadContext context;
	context.SetSourceName(sourceName);
	context.LoadRecord(root, *object);
	if (pErrorText)
		*pErrorText = context.GetText();
	if (!context.IsOk())
	{
		KV3LogTransferFailure(LS_WARNING, "LoadKV3Object error: %s\n", context.GetText());
		return nullptr;
	}
	return object;
}

template <KV3Record R> bool SaveKV3Object(const R &object, KeyValues3 *root, CUtlString *pErrorText, uint64 *pStorageBytes)
{
	CKV3TransferSaveContext context;
	context.SaveRecord(root, object);
	if (pErrorText)
		*pErrorText = context.GetText();
	if (pStorageBytes)
		*pStorageBytes = context.GetStorageBytes();
	if (!context.IsOk())
	{
		KV3LogTransferFailure(LS_MESSAGE, "KV3 save transfer failed: %s", context.GetText());
		return false;
	}
	return true;
}
