#include "core/kv3transfer.h"

#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstring>
#include <mutex>
#include <vector>

#include "core/kv3text.h"
#include "core/logging.h"
#include "core/strtools.h"

// ---------------------------------------------------------------------------------------------
// Parse messages

ErrorSeverity_t V_ParseLevelSeverity(int level)
{
	if (level >= PARSE_LEVEL_ERROR)
		return ERROR_SEVERITY_ERROR;
	if (level >= PARSE_LEVEL_WARNING)
		return ERROR_SEVERITY_WARNING;
	return ERROR_SEVERITY_MESSAGE;
}

void V_StringParseError(IErrorListener *listener, int level, const char *fmt, ...)
{
	if (!listener)
		return;
	va_list args;
	va_start(args, fmt);
	CUtlString message = V_FormatV(fmt, args);
	va_end(args);
	ErrorRecord_t record;
	record.severity = V_ParseLevelSeverity(level);
	record.message = message.c_str();
	listener->OnError(record);
}

// ---------------------------------------------------------------------------------------------
// Enum tables and classes

const char *CKV3EnumTable::FindName(int value) const
{
	for (int i = 0; i < m_nCount; ++i)
	{
		if (m_pNames[i].value == value)
			return m_pNames[i].name;
	}
	return nullptr;
}

bool CKV3EnumTable::FindValue(std::string_view name, int &out) const
{
	for (int i = 0; i < m_nCount; ++i)
	{
		if (V_StrEqualNoCase(m_pNames[i].name, name))
		{
			out = m_pNames[i].value;
			return true;
		}
	}
	return false;
}

namespace
{
struct ClassRegistry_t
{
	std::mutex mutex;
	std::vector<const KV3ClassInfo_t *> classes;
};

ClassRegistry_t &Registry()
{
	static ClassRegistry_t *s_pRegistry = new ClassRegistry_t; // lives as long as the process
	return *s_pRegistry;
}
} // namespace

void KV3RegisterClass(const KV3ClassInfo_t *pInfo)
{
	ClassRegistry_t &registry = Registry();
	std::lock_guard<std::mutex> lock(registry.mutex);
	for (const KV3ClassInfo_t *existing : registry.classes)
	{
		if (existing == pInfo)
			return;
	}
	registry.classes.push_back(pInfo);
}

const KV3ClassInfo_t *KV3FindClass(std::string_view name)
{
	ClassRegistry_t &registry = Registry();
	std::lock_guard<std::mutex> lock(registry.mutex);
	for (const KV3ClassInfo_t *info : registry.classes)
	{
		if (name == info->m_pszName)
			return info;
	}
	return nullptr;
}

void KV3GetRegisteredClasses(const char *module, CUtlVector<const KV3ClassInfo_t *> &out)
{
	out.clear();
	ClassRegistry_t &registry = Registry();
	std::lock_guard<std::mutex> lock(registry.mutex);
	for (const KV3ClassInfo_t *info : registry.classes)
	{
		if (!module || (info->m_pszModule && strcmp(info->m_pszModule, module) == 0))
			out.push_back(info);
	}
}

void KV3LogTransferFailure(LoggingSeverity_t severity, const char *format, const CBufferString &text)
{
	LoggingSystem_Log(severity == LS_WARNING ? LOG_WARNING : LOG_GENERAL, severity, format, text.c_str());
}

// ---------------------------------------------------------------------------------------------
// CKV3TransferContextBase

CKV3TransferContextBase::CKV3TransferContextBase()
{
	for (ObjectBinding_t &binding : m_ObjectBindings)
	{
		binding.key = EMPTY_BINDING_KEY;
		binding.pObject = nullptr;
	}
}

void CKV3TransferContextBase::OnError(const ErrorRecord_t &record)
{
	if (record.severity == ERROR_SEVERITY_ERROR)
		m_bOk = false;
	if (!m_Text.empty())
		m_Text += '\n';
	if (record.file && *record.file)
	{
		m_Text += record.file;
		if (record.line > 0 && record.column > 0)
			V_AppendFormat(m_Text, "(%d,%d)", record.line, record.column);
		else if (record.line > 0)
			V_AppendFormat(m_Text, "(%d)", record.line);
	}
	else
		m_Text += m_SourceName;
	m_Text += ": ";
	m_Text += record.message ? record.message : "";
	V_TrimTrailingWhitespace(m_Text);
}

void CKV3TransferContextBase::ReportError(const char *fmt, ...)
{
	va_list args;
	va_start(args, fmt);
	CUtlString message = V_FormatV(fmt, args);
	va_end(args);
	ErrorRecord_t record;
	record.severity = ERROR_SEVERITY_ERROR;
	record.message = message.c_str();
	OnError(record);
}

bool CKV3TransferContextBase::SetObjectBinding(uint32 key, void *pObject)
{
	for (ObjectBinding_t &binding : m_ObjectBindings)
	{
		if (binding.key == EMPTY_BINDING_KEY)
		{
			binding.key = key;
			binding.pObject = pObject;
			return true;
		}
	}
	return false;
}

void *CKV3TransferContextBase::GetObjectBinding(uint32 key) const
{
	for (const ObjectBinding_t &binding : m_ObjectBindings)
	{
		if (binding.key == key)
			return binding.pObject;
	}
	return nullptr;
}

// ---------------------------------------------------------------------------------------------
// CKV3TransferLoadContext

CKV3TransferLoadContext::CKV3TransferLoadContext(CUtlScratchMemoryPool *pScratchPool) : m_pScratchPool(pScratchPool)
{
}

const KeyValues3 *CKV3TransferLoadContext::Current() const
{
	return m_pCurrent ? m_pCurrent : KV3Null();
}

bool CKV3TransferLoadContext::Enter(const KeyValues3 *value)
{
	m_Stack.push_back(m_pCurrent);
	m_pCurrent = value ? value : KV3Null();
	++m_nDepth;
	if (m_nDepth >= KV3_TRANSFER_MAX_DEPTH)
	{
		ReportError("Stack depth limit hit (%d)", m_nDepth);
		return false;
	}
	return true;
}

void CKV3TransferLoadContext::Leave()
{
	if (m_Stack.empty())
		return;
	m_pCurrent = m_Stack.back();
	m_Stack.pop_back();
	--m_nDepth;
}

void CKV3TransferLoadContext::LoadPolymorphicRecord(const KeyValues3 *value, IKV3PolymorphicRecord &record)
{
	if (Enter(value))
		record.Load(*this);
	Leave();
}

void CKV3TransferLoadContext::ReadValue(const KeyValues3 *value, CUtlString &out)
{
	::ReadString(value, out);
}

void CKV3TransferLoadContext::ReadValue(const KeyValues3 *value, bool &out)
{
	out = ::GetBool(value);
}

void CKV3TransferLoadContext::ReadValue(const KeyValues3 *value, float &out)
{
	out = (float)ReadDouble(value, true);
}

void CKV3TransferLoadContext::ReadValue(const KeyValues3 *value, double &out)
{
	out = ReadDouble(value, false);
}

void CKV3TransferLoadContext::ReadValue(const KeyValues3 *value, Vector &out)
{
	ReadFloats(value, 3, out.Base());
}

void CKV3TransferLoadContext::ReadValue(const KeyValues3 *value, QAngle &out)
{
	ReadFloats(value, 3, out.Base());
}

void CKV3TransferLoadContext::ReadValue(const KeyValues3 *value, CKV3OwnedValue &out)
{
	if (!value || value->IsNull())
		out.Clear();
	else
		out.Set(value);
}

void CKV3TransferLoadContext::CastWarning(const KeyValues3 *value, const CUtlString &result)
{
	CUtlString source;
	::ReadString(value, source);
	V_StringParseError(this, PARSE_LEVEL_WARNING, "Cast of %s loses value information (returning %s)\n", source.c_str(), result.c_str());
}

namespace
{
std::string_view Trimmed(std::string_view text)
{
	while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
		text.remove_prefix(1);
	while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
		text.remove_suffix(1);
	return text;
}

// A double truncated toward zero and held within the range of int64.
int64 TruncateToInt64(double d, bool &bInexact)
{
	if (std::isnan(d))
	{
		bInexact = true;
		return 0;
	}
	const double t = std::trunc(d);
	if (t >= 9223372036854775807.0)
	{
		bInexact = true;
		return INT64_MAX;
	}
	if (t < -9223372036854775808.0)
	{
		bInexact = true;
		return INT64_MIN;
	}
	if (t != d)
		bInexact = true;
	return (int64)t;
}
} // namespace

bool CKV3TransferLoadContext::ReadIntegerBits(const KeyValues3 *value, int64 &signedOut, uint64 &unsignedOut, bool &bUnsigned, bool &bInexact)
{
	signedOut = 0;
	unsignedOut = 0;
	bUnsigned = false;
	bInexact = false;
	if (!value)
		return true;
	switch (value->GetType())
	{
	case KV3_TYPE_NULL:
		return true;
	case KV3_TYPE_BOOL:
		signedOut = value->GetBoolValue() ? 1 : 0;
		return true;
	case KV3_TYPE_INT:
		signedOut = value->GetInt64();
		return true;
	case KV3_TYPE_UINT:
		if (value->IsPointer())
		{
			V_StringParseError(this, PARSE_LEVEL_WARNING, "Pointers cannot be used as numeric values");
			return false;
		}
		unsignedOut = value->GetUInt64();
		bUnsigned = true;
		return true;
	case KV3_TYPE_DOUBLE:
		signedOut = TruncateToInt64(value->GetDouble(), bInexact);
		return true;
	case KV3_TYPE_STRING:
	{
		const std::string_view text = Trimmed(value->GetStringView());
		const char *begin = text.data() + (!text.empty() && text.front() == '+' ? 1 : 0);
		const char *end = text.data() + text.size();
		auto parsed = std::from_chars(begin, end, signedOut);
		if (parsed.ec == std::errc() && parsed.ptr == end)
			return true;
		parsed = std::from_chars(begin, end, unsignedOut);
		if (parsed.ec == std::errc() && parsed.ptr == end)
		{
			bUnsigned = true;
			return true;
		}
		// Not an integer: a number in another form is truncated, anything else reads as 0.
		double d = 0.0;
		auto real = std::from_chars(begin, end, d);
		unsignedOut = 0;
		signedOut = (real.ec == std::errc() && real.ptr == end) ? TruncateToInt64(d, bInexact) : 0;
		if (real.ec != std::errc() || real.ptr != end)
			bInexact = true;
		return true;
	}
	default:
		V_StringParseError(this, PARSE_LEVEL_WARNING, "Unsupported KV3 basic type '%s' (%d)!", KV3TypeName(value->GetType()), (int)value->GetType());
		return false;
	}
}

double CKV3TransferLoadContext::ReadDouble(const KeyValues3 *value, bool bFloat32)
{
	if (!value)
		return 0.0;
	double result = 0.0;
	bool bInexact = false;
	switch (value->GetType())
	{
	case KV3_TYPE_NULL:
		return 0.0;
	case KV3_TYPE_BOOL:
		return value->GetBoolValue() ? 1.0 : 0.0;
	case KV3_TYPE_INT:
	{
		const int64 v = value->GetInt64();
		result = bFloat32 ? (double)(float)v : (double)v;
		// Integers beyond the mantissa of the target lose their low digits.
		bInexact = result >= 9223372036854775807.0 || (int64)result != v;
		break;
	}
	case KV3_TYPE_UINT:
	{
		if (value->IsPointer())
		{
			V_StringParseError(this, PARSE_LEVEL_WARNING, "Pointers cannot be used as numeric values");
			return 0.0;
		}
		const uint64 v = value->GetUInt64();
		result = bFloat32 ? (double)(float)v : (double)v;
		bInexact = result >= 18446744073709551615.0 || (uint64)result != v;
		break;
	}
	case KV3_TYPE_DOUBLE:
		result = value->GetDouble();
		// Narrowing to a float only loses information that matters when it leaves the range.
		if (bFloat32 && std::isfinite(result) && std::fabs(result) > FLT_MAX)
		{
			result = result > 0 ? (double)HUGE_VALF : -(double)HUGE_VALF;
			bInexact = true;
		}
		break;
	case KV3_TYPE_STRING:
	{
		const std::string_view text = Trimmed(value->GetStringView());
		const char *begin = text.data() + (!text.empty() && text.front() == '+' ? 1 : 0);
		const char *end = text.data() + text.size();
		auto parsed = std::from_chars(begin, end, result);
		if (parsed.ec != std::errc() || parsed.ptr != end)
		{
			result = 0.0;
			bInexact = true;
		}
		break;
	}
	default:
		V_StringParseError(this, PARSE_LEVEL_WARNING, "Unsupported KV3 basic type '%s' (%d)!", KV3TypeName(value->GetType()), (int)value->GetType());
		return 0.0;
	}
	if (bInexact)
		CastWarning(value, V_DoubleToShortText(result));
	return result;
}

int CKV3TransferLoadContext::ReadEnumValue(const KeyValues3 *value, const CKV3EnumTable &table)
{
	if (value && value->IsString())
	{
		int result;
		return table.FindValue(value->GetStringView(), result) ? result : -1;
	}
	return ReadInteger<int32>(value);
}

IKV3PolymorphicRecord *CKV3TransferLoadContext::AllocatePolymorphic(const KeyValues3 *value)
{
	if (!value || value->IsNull())
		return nullptr;
	const char *className = GetMemberString(value, "_class", "");
	if (!*className)
	{
		DebugPrintKV3(value);
		ReportError("Tried to load a polymorphic pointer with no '%s' key", "_class");
		return nullptr;
	}
	const KV3ClassInfo_t *info = KV3FindClass(className);
	IKV3PolymorphicRecord *record = nullptr;
	if (info && info->m_bAllowAllocation && info->m_pfnAllocate)
		record = info->m_pfnAllocate();
	if (!record)
		ReportError("Failed to allocate an instance of class '%s'", className);
	return record;
}

// ---------------------------------------------------------------------------------------------
// CKV3TransferSaveContext

bool CKV3TransferSaveContext::Enter(KeyValues3 *table)
{
	m_Stack.push_back(m_pCurrent);
	m_pCurrent = table;
	if (m_pCurrent && !m_pCurrent->IsTable())
		m_pCurrent->MakeTable();
	++m_nDepth;
	if (m_nDepth >= KV3_TRANSFER_MAX_DEPTH)
	{
		ReportError("Stack depth limit hit (%d)", m_nDepth);
		return false;
	}
	return true;
}

void CKV3TransferSaveContext::Leave()
{
	if (m_Stack.empty())
		return;
	m_pCurrent = m_Stack.back();
	m_Stack.pop_back();
	--m_nDepth;
}

KeyValues3 *CKV3TransferSaveContext::PrepareMember(const KV3MemberName_t &name)
{
	if (!m_pCurrent)
	{
		// Nothing to write into (a save that was never entered): keep going on a scratch value.
		static thread_local CKeyValues3Context s_scratch(CKeyValues3Context::POOL);
		ReportError("No table to save the member '%.*s' into", (int)name.m_Text.size(), name.m_Text.data());
		return s_scratch.AllocValue();
	}
	if (KeyValues3 *existing = m_pCurrent->FindMember(name))
	{
		ReportError("Double-save to Member '%.*s'", (int)name.m_Text.size(), name.m_Text.data());
		return existing;
	}
	return m_pCurrent->AddMember(name);
}

void CKV3TransferSaveContext::WriteValue(KeyValues3 *out, const CUtlString &value)
{
	out->SetString(value);
}

void CKV3TransferSaveContext::WriteValue(KeyValues3 *out, const char *value)
{
	out->SetString(value ? value : "");
}

void CKV3TransferSaveContext::WriteValue(KeyValues3 *out, bool value)
{
	out->SetBool(value);
}

void CKV3TransferSaveContext::WriteValue(KeyValues3 *out, float value)
{
	out->SetDouble(value, KV3_SUBTYPE_FLOAT32);
}

void CKV3TransferSaveContext::WriteValue(KeyValues3 *out, double value)
{
	out->SetDouble(value, KV3_SUBTYPE_FLOAT64);
}

void CKV3TransferSaveContext::WriteValue(KeyValues3 *out, const Vector &value)
{
	SetFloats(out, 3, value.Base());
}

void CKV3TransferSaveContext::WriteValue(KeyValues3 *out, const QAngle &value)
{
	SetFloats(out, 3, value.Base());
}

void CKV3TransferSaveContext::WriteValue(KeyValues3 *out, const CKV3OwnedValue &value)
{
	CopyValue(out, value.Get());
}

void CKV3TransferSaveContext::WriteEnum(KeyValues3 *out, int value, const CKV3EnumTable &table)
{
	if (const char *name = table.FindName(value))
		out->SetString(name);
	else
		out->SetInt32(value);
}

void CKV3TransferSaveContext::SavePolymorphic(KeyValues3 *out, const IKV3PolymorphicRecord *record)
{
	if (!out)
		return;
	out->SetToNull();
	if (!record)
		return;
	const KV3ClassInfo_t *info = record->GetKV3ClassInfo();
	if (!info || !info->m_pszName || !*info->m_pszName)
	{
		ReportError("Failed to determine polymorphic class name");
		return;
	}
	switch (info->m_eSaveMode)
	{
	case KV3_SAVE_MODE_TABLE:
		out->MakeTable();
		break;
	case KV3_SAVE_MODE_POLYMORPHIC:
		out->MakeTable();
		SetMemberString(out, "_class", info->m_pszName);
		break;
	case KV3_SAVE_MODE_NULL:
		return;
	default:
		ReportError("Failed to save unsupported class");
		return;
	}
	if (Enter(out))
		record->Save(*this);
	Leave();
	if (!IsOk())
		out->SetToNull();
}

void CKV3TransferSaveContext::CountListStorage(size_t elementSize, size_t count)
{
	// Rounded up to 16: a pool aligns each list to 8 or 16 bytes, so a pool of this many bytes
	// holds every list of the record with its padding.
	const uint64 bytes = (uint64)elementSize * count;
	m_nStorageBytes += (bytes + 15) & ~uint64(15);
}
