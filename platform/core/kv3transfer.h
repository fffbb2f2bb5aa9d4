// Record transfer: moving a record to and from a KV3 table, member by member.
//
// A record describes its members once, in file order, in a static template that both contexts
// drive:
//
//   template <class Self, class Context> static void TransferMembers(Self &self, Context &ctx)
//   {
//       ctx.Member("id", self.m_id);
//       ctx.Member("max_bones", self.m_nMaxBones, 60); // a default: read only when present
//       ctx.EnumMember("mode", self.m_eMode, s_ModeNames);
//   }
//   void Load(CKV3TransferLoadContext &ctx) { CBase::Load(ctx); TransferMembers(*this, ctx); }
//   void Save(CKV3TransferSaveContext &ctx) const { CBase::Save(ctx); TransferMembers(*this, ctx); }
//
// Members may be strings, bools, integers, floats and doubles, Vector and QAngle (arrays of three
// numbers), enums through a name table, any KV3 value (CKV3OwnedValue, copied whole), nested
// records, lists of all of these (CUtlVector), and owned polymorphic records
// (std::unique_ptr<B> and lists of them, B deriving from IKV3PolymorphicRecord), stored as
// tables with the member "_class".
//
// Problems never stop a transfer: it goes to the end of the record and the context's text holds
// every message, one per line. An error clears IsOk(); the numeric readers' warnings do not.
// Records nest at most 64 deep; the record at depth 64 is left at its defaults and the transfer
// fails with "Stack depth limit hit (64)".
#pragma once

#include <concepts>
#include <memory>
#include <string_view>
#include <type_traits>

#include "core/errorlistener.h"
#include "core/keyvalues3.h"
#include "core/logging.h"
#include "core/mathtypes.h"
#include "core/utlstring.h"
#include "core/strtools.h"
#include "core/utlvector.h"

class CKV3TransferLoadContext;
class CKV3TransferSaveContext;

enum { KV3_TRANSFER_MAX_DEPTH = 64 };

// ---------------------------------------------------------------------------------------------
// Enum name tables

struct KV3EnumName_t
{
	const char *name;
	int value;
};

class CKV3EnumTable
{
public:
	template <size_t N> constexpr CKV3EnumTable(const KV3EnumName_t (&names)[N]) : m_pNames(names), m_nCount((int)N) {}
	constexpr CKV3EnumTable(const KV3EnumName_t *names, int count) : m_pNames(names), m_nCount(count) {}

	const char *FindName(int value) const;				  // null when the value has no name
	bool FindValue(std::string_view name, int &out) const; // case-insensitive
	int Count() const { return m_nCount; }
	const KV3EnumName_t &operator[](int i) const { return m_pNames[i]; }

private:
	const KV3EnumName_t *m_pNames;
	int m_nCount;
};

// ---------------------------------------------------------------------------------------------
// Classes of polymorphic records

enum KV3ClassSaveMode_t
{
	KV3_SAVE_MODE_UNSUPPORTED = 0,
	KV3_SAVE_MODE_TABLE = 1,	   // an empty table, then the record's members
	KV3_SAVE_MODE_POLYMORPHIC = 2, // a table whose first member "_class" names the class
	KV3_SAVE_MODE_NULL = 3,		   // saved as null
};

class IKV3PolymorphicRecord;

struct KV3ClassInfo_t
{
	const char *m_pszName;
	const char *m_pszModule; // the schema module the class belongs to
	KV3ClassSaveMode_t m_eSaveMode;
	bool m_bAllowAllocation; // loading may create instances of this class
	IKV3PolymorphicRecord *(*m_pfnAllocate)();
};

class IKV3PolymorphicRecord
{
public:
	virtual ~IKV3PolymorphicRecord() = default;
	// The class of the record, or null when it has none (it then cannot be saved).
	virtual const KV3ClassInfo_t *GetKV3ClassInfo() const = 0;
	virtual void Save(CKV3TransferSaveContext &ctx) const = 0;
	virtual void Load(CKV3TransferLoadContext &ctx) = 0;
};

// The classes that loading can create, by name. Registration happens in static initialisers
// (KV3_DEFINE_POLYMORPHIC_CLASS); lookups come later, on any thread.
void KV3RegisterClass(const KV3ClassInfo_t *pInfo);
const KV3ClassInfo_t *KV3FindClass(std::string_view name);
// Every registered class of a module (every class when module is null), in order of registration.
void KV3GetRegisteredClasses(const char *module, CUtlVector<const KV3ClassInfo_t *> &out);

// Defines ClassName::GetKV3ClassInfo, ClassName::s_KV3ClassInfo and the registration. The class
// declares them with KV3_DECLARE_POLYMORPHIC_CLASS() in its body.
#define KV3_DECLARE_POLYMORPHIC_CLASS()                              \
	static const KV3ClassInfo_t s_KV3ClassInfo;                      \
	const KV3ClassInfo_t *GetKV3ClassInfo() const override { return &s_KV3ClassInfo; }

#define KV3_DEFINE_POLYMORPHIC_CLASS(ClassName, module)                                                           \
	const KV3ClassInfo_t ClassName::s_KV3ClassInfo = { #ClassName, module, KV3_SAVE_MODE_POLYMORPHIC, true,      \
		[]() -> IKV3PolymorphicRecord * { return new ClassName; } };                                               \
	static const bool s_b##ClassName##Registered = (KV3RegisterClass(&ClassName::s_KV3ClassInfo), true)

// ---------------------------------------------------------------------------------------------
// What the contexts can transfer

template <typename T> struct KV3IsVector : std::false_type
{
};
template <typename T> struct KV3IsVector<CUtlVector<T>> : std::true_type
{
	typedef T Element;
};
template <typename T> struct KV3IsUniquePtr : std::false_type
{
};
template <typename T> struct KV3IsUniquePtr<std::unique_ptr<T>> : std::true_type
{
	typedef T Element;
};

template <typename T>
concept KV3Record = !std::is_base_of_v<IKV3PolymorphicRecord, T> && requires(T &record, const T &constRecord, CKV3TransferLoadContext &load, CKV3TransferSaveContext &save) {
	record.Load(load);
	constRecord.Save(save);
};

template <typename T>
concept KV3Integer = std::is_integral_v<T> && !std::is_same_v<T, bool>;

// ---------------------------------------------------------------------------------------------
// Contexts

class CKV3TransferContextBase : public IErrorListener
{
public:
	enum : uint32 { EMPTY_BINDING_KEY = 0xFFFFFFFFu };

	CKV3TransferContextBase();
	CKV3TransferContextBase(const CKV3TransferContextBase &) = delete;
	CKV3TransferContextBase &operator=(const CKV3TransferContextBase &) = delete;

	// Adds the record's message to the text (see the file comment); severity 2 clears IsOk().
	void OnError(const ErrorRecord_t &record) override;
	// Formats a message, marks it severity 2 and hands it to OnError.
	void ReportError(const char *fmt, ...) FMTFUNCTION(2, 3);

	bool IsOk() const { return m_bOk; }
	const CBufferString &GetText() const { return m_Text; }
	void SetSourceName(const char *name) { m_SourceName = name ? name : ""; }
	const CUtlString &GetSourceName() const { return m_SourceName; }

	// A tiny map for the caller: four slots of (key, pointer). Set takes the first free slot
	// (false when none is free); Get compares keys in slot order and gives null on no match.
	bool SetObjectBinding(uint32 key, void *pObject);
	void *GetObjectBinding(uint32 key) const;

protected:
	bool m_bOk = true;
	CBufferString m_Text;
	CUtlString m_SourceName;
	struct ObjectBinding_t
	{
		uint32 key;
		void *pObject;
	} m_ObjectBindings[4];
};

class CKV3TransferLoadContext : public CKV3TransferContextBase
{
public:
	// With a pool, the storage of loaded lists comes from it (it must outlive the record).
	explicit CKV3TransferLoadContext(CUtlScratchMemoryPool *pScratchPool = nullptr);

	bool IsLoading() const { return m_bIsLoading; }
	CUtlScratchMemoryPool *GetScratchPool() const { return m_pScratchPool; }

	// The value being read (the shared null when none) and the depth of the stack.
	const KeyValues3 *Current() const;
	int Depth() const { return m_nDepth; }
	// Enter pushes a value and makes it current; it returns false, having reported
	// "Stack depth limit hit (%d)", when the depth is then 64 or more. Leave pops in both cases.
	bool Enter(const KeyValues3 *value);
	void Leave();

	// Loads a whole record from a value: enter, depth test, Load, leave.
	template <KV3Record R> void LoadRecord(const KeyValues3 *value, R &record);
	void LoadPolymorphicRecord(const KeyValues3 *value, IKV3PolymorphicRecord &record);

	// Members of the current table.
	template <typename T> void Member(const KV3MemberName_t &name, T &field) { ReadValue(GetMember(Current(), name), field); }
	template <typename T, typename D> void Member(const KV3MemberName_t &name, T &field, const D &defaultValue)
	{
		if (const KeyValues3 *value = FindMember(Current(), name))
			ReadValue(value, field);
		else
			field = defaultValue;
	}
	template <typename E> void EnumMember(const KV3MemberName_t &name, E &field, const CKV3EnumTable &table)
	{
		field = (E)ReadEnumValue(GetMember(Current(), name), table);
	}
	template <typename E> void EnumMember(const KV3MemberName_t &name, E &field, const CKV3EnumTable &table, E defaultValue)
	{
		const KeyValues3 *value = FindMember(Current(), name);
		field = value ? (E)ReadEnumValue(value, table) : defaultValue;
	}
	template <typename E> void EnumListMember(const KV3MemberName_t &name, CUtlVector<E> &list, const CKV3EnumTable &table);

	// Readers of one value.
	void ReadValue(const KeyValues3 *value, CUtlString &out);
	void ReadValue(const KeyValues3 *value, bool &out);
	template <KV3Integer T> void ReadValue(const KeyValues3 *value, T &out) { out = ReadInteger<T>(value); }
	void ReadValue(const KeyValues3 *value, float &out);
	void ReadValue(const KeyValues3 *value, double &out);
	void ReadValue(const KeyValues3 *value, Vector &out);
	void ReadValue(const KeyValues3 *value, QAngle &out);
	void ReadValue(const KeyValues3 *value, CKV3OwnedValue &out);
	template <KV3Record R> void ReadValue(const KeyValues3 *value, R &record) { LoadRecord(value, record); }
	template <typename B> void ReadValue(const KeyValues3 *value, std::unique_ptr<B> &out);
	template <typename T> void ReadValue(const KeyValues3 *value, CUtlVector<T> &list);

	// The numeric readers (see the .cpp for the cast rules and their messages).
	template <KV3Integer T> T ReadInteger(const KeyValues3 *value);
	double ReadDouble(const KeyValues3 *value, bool bFloat32);
	int ReadEnumValue(const KeyValues3 *value, const CKV3EnumTable &table);

	// Makes a record of a polymorphic value; null (with the message) when that fails.
	IKV3PolymorphicRecord *AllocatePolymorphic(const KeyValues3 *value);

private:
	bool ReadIntegerBits(const KeyValues3 *value, int64 &signedOut, uint64 &unsignedOut, bool &bUnsigned, bool &bInexact);
	void CastWarning(const KeyValues3 *value, const CUtlString &result);
	template <typename T> void PrepareList(CUtlVector<T> &list, uint32 count);

	bool m_bIsLoading = true;
	CUtlScratchMemoryPool *m_pScratchPool;
	const KeyValues3 *m_pCurrent = nullptr;
	CUtlVector<const KeyValues3 *> m_Stack;
	int m_nDepth = 0;
};

class CKV3TransferSaveContext : public CKV3TransferContextBase
{
public:
	CKV3TransferSaveContext() = default;

	// Bytes that the lists of the saved records will take when loaded (for a scratch pool).
	uint64 GetStorageBytes() const { return m_nStorageBytes; }

	KeyValues3 *Current() const { return m_pCurrent; }
	int Depth() const { return m_nDepth; }
	bool Enter(KeyValues3 *table); // as for loading; the value becomes a table when it is none
	void Leave();

	// Saves a whole record into a value: it becomes a table; enter, depth test, Save, leave.
	template <KV3Record R> void SaveRecord(KeyValues3 *value, const R &record);

	// The member of the current table that a value goes to: created as null, or reported as
	// "Double-save to Member '%s'" and reused when it exists already.
	KeyValues3 *PrepareMember(const KV3MemberName_t &name);

	template <typename T> void Member(const KV3MemberName_t &name, const T &field) { WriteValue(PrepareMember(name), field); }
	template <typename T, typename D> void Member(const KV3MemberName_t &name, const T &field, const D &) { Member(name, field); }
	template <typename E> void EnumMember(const KV3MemberName_t &name, const E &field, const CKV3EnumTable &table)
	{
		WriteEnum(PrepareMember(name), (int)field, table);
	}
	template <typename E> void EnumMember(const KV3MemberName_t &name, const E &field, const CKV3EnumTable &table, E)
	{
		EnumMember(name, field, table);
	}
	template <typename E> void EnumListMember(const KV3MemberName_t &name, const CUtlVector<E> &list, const CKV3EnumTable &table);

	void WriteValue(KeyValues3 *out, const CUtlString &value);
	void WriteValue(KeyValues3 *out, const char *value);
	void WriteValue(KeyValues3 *out, bool value);
	template <KV3Integer T> void WriteValue(KeyValues3 *out, T value)
	{
		if constexpr (std::is_signed_v<T>)
			out->SetInt(value, sizeof(T) <= 4 ? KV3_SUBTYPE_INT32 : KV3_SUBTYPE_INT64);
		else
			out->SetUInt(value, sizeof(T) <= 4 ? KV3_SUBTYPE_UINT32 : KV3_SUBTYPE_UINT64);
	}
	void WriteValue(KeyValues3 *out, float value);
	void WriteValue(KeyValues3 *out, double value);
	void WriteValue(KeyValues3 *out, const Vector &value);
	void WriteValue(KeyValues3 *out, const QAngle &value);
	void WriteValue(KeyValues3 *out, const CKV3OwnedValue &value);
	template <KV3Record R> void WriteValue(KeyValues3 *out, const R &record) { SaveRecord(out, record); }
	template <typename B> void WriteValue(KeyValues3 *out, const std::unique_ptr<B> &pointer) { SavePolymorphic(out, pointer.get()); }
	template <typename T> void WriteValue(KeyValues3 *out, const CUtlVector<T> &list);

	// A name from the table when the value has one, otherwise the number.
	void WriteEnum(KeyValues3 *out, int value, const CKV3EnumTable &table);
	// Saves a polymorphic record by its class's save mode; null stays null.
	void SavePolymorphic(KeyValues3 *out, const IKV3PolymorphicRecord *record);

private:
	void CountListStorage(size_t elementSize, size_t count);

	uint64 m_nStorageBytes = 0;
	KeyValues3 *m_pCurrent = nullptr;
	CUtlVector<KeyValues3 *> m_Stack;
	int m_nDepth = 0;
};

// ---------------------------------------------------------------------------------------------
// Whole-object helpers. On failure they log the context's text as a warning
// ("LoadKV3ObjectInPlace error: %s\n", "LoadKV3Object error: %s\n") or a message
// ("KV3 save transfer failed: %s") and hand it to pErrorText.

template <KV3Record R>
bool LoadKV3ObjectInPlace(R &object, const KeyValues3 *root, CUtlString *pErrorText = nullptr, const char *sourceName = nullptr,
	CUtlScratchMemoryPool *pScratchPool = nullptr);
template <KV3Record R>
std::unique_ptr<R> LoadKV3Object(const KeyValues3 *root, CUtlString *pErrorText = nullptr, const char *sourceName = nullptr);
template <KV3Record R>
bool SaveKV3Object(const R &object, KeyValues3 *root, CUtlString *pErrorText = nullptr, uint64 *pStorageBytes = nullptr);

void KV3LogTransferFailure(LoggingSeverity_t severity, const char *format, const CBufferString &text);

#include "core/kv3transfer_impl.h"
