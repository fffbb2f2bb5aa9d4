#include "mintyardtoolutils/wizard/customtemplate.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "core/fileio.h"
#include "core/kv3text.h"
#include "core/kv3transfer.h"
#include "core/strtools.h"
#include "core/utlbuffer.h"
#include "filesystem/filesystem.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/core/mintyardtemplate.h"
#include "mintyardtoolutils/core/templatecatalogue.h"
#include "toolframework/toolframework.h"

namespace
{
// A key of integer kind whose default is -1; none of the template's own keys hashes to it.
constexpr uint32 INTEGER_DEFAULT_MINUS_ONE_TOKEN = 0xC894A492u;

bool ReadNumber(const KeyValues3 *pValue, double &out)
{
	switch (pValue->GetType())
	{
	case KV3_TYPE_INT:
		out = (double)pValue->GetInt64();
		return true;
	case KV3_TYPE_UINT:
		if (pValue->IsPointer())
			return false;
		out = (double)pValue->GetUInt64();
		return true;
	case KV3_TYPE_DOUBLE:
		out = pValue->GetDouble();
		return true;
	default:
		return false;
	}
}

// A string that is a whole integer.
bool ParseInteger(const KeyValues3 *pValue, long long &out)
{
	if (!pValue->IsString())
		return false;
	const char *pszText = pValue->GetString();
	if (!*pszText)
		return false;
	char *pEnd = nullptr;
	errno = 0;
	out = strtoll(pszText, &pEnd, 10);
	return errno == 0 && pEnd && *pEnd == '\0';
}

bool IsNumberOrIntegerText(const KeyValues3 *pValue, double flWanted, bool bTextToo)
{
	double flNumber;
	if (ReadNumber(pValue, flNumber))
		return flNumber == flWanted;
	long long nParsed;
	return bTextToo && ParseInteger(pValue, nParsed) && (double)nParsed == flWanted;
}
} // namespace

bool IsTemplateDefaultValue(const KV3MemberName_t &key, const KeyValues3 *pValue)
{
	if (!pValue)
		return true;
	if (V_StrEqualNoCase(key.m_Text, "max_bones") && IsNumberOrIntegerText(pValue, 60.0, true))
		return true;
	if (key.m_nHash == INTEGER_DEFAULT_MINUS_ONE_TOKEN && IsNumberOrIntegerText(pValue, -1.0, true))
		return true;
	for (const char *pszKey : { "max_submission_size_kb", "exact_width", "exact_height", "activity_weight", "max_file_size_kb" })
	{
		if (V_StrEqualNoCase(key.m_Text, pszKey) && IsNumberOrIntegerText(pValue, -1.0, false))
			return true;
	}
	switch (pValue->GetType())
	{
	case KV3_TYPE_NULL:
		return true;
	case KV3_TYPE_BOOL:
		return !pValue->GetBoolValue();
	case KV3_TYPE_INT:
		return pValue->GetInt64() == 0;
	case KV3_TYPE_UINT:
		return !pValue->IsPointer() && pValue->GetUInt64() == 0;
	case KV3_TYPE_DOUBLE:
		return pValue->GetDouble() == 0.0;
	case KV3_TYPE_STRING:
		return pValue->GetStringLength() == 0;
	case KV3_TYPE_ARRAY:
		return pValue->GetArrayCount() == 0;
	case KV3_TYPE_TABLE:
		return pValue->GetMemberCount() == 0;
	default:
		return false;
	}
}

void PruneTemplateDefaults(KeyValues3 *pValue)
{
	if (!pValue)
		return;
	if (pValue->IsArray())
	{
		for (uint32 i = 0; i < pValue->GetArrayCount(); ++i)
			PruneTemplateDefaults(pValue->GetArrayElement(i));
		return;
	}
	if (!pValue->IsTable())
		return;
	for (uint32 i = pValue->GetMemberCount(); i-- > 0;)
	{
		const CUtlString name = pValue->GetMemberName(i);
		const KV3MemberName_t key(pValue->GetMemberNameHash(i), name);
		KeyValues3 *pMember = pValue->GetMember(i);
		if (IsTemplateDefaultValue(key, pMember))
			pValue->RemoveMember(key);
		else
			PruneTemplateDefaults(pMember);
	}
}

bool WriteCustomWearableTemplate(const hero_t &hero, const hero_slot_t &slot, const CMintyardTemplate &tmpl, CustomTemplateResult_t &result)
{
	result = CustomTemplateResult_t();
	const char *pszShortName = GetHeroShortName(hero.name.c_str());
	const CUtlString id = V_Format("custom_wearable.%s.%s", pszShortName, slot.slotName.c_str());
	const CUtlString subgroup = V_Format("#%s", hero.name.c_str());
	const CUtlString displayName = GetSlotDisplayName(slot);

	CKeyValues3Context document;
	KeyValues3 *pRoot = document.Root();
	pRoot->MakeTable();
	CKV3TransferSaveContext ctx;
	ctx.SaveRecord(pRoot, tmpl);
	SetMemberString(pRoot, "id", id);
	SetMemberString(pRoot, "name", displayName);
	SetMemberString(pRoot, "template_group", "#ZARN_Mintyard_SubmissionType_CustomWearable");
	SetMemberString(pRoot, "template_subgroup", subgroup);
	PruneTemplateDefaults(pRoot);

	const CUtlString relative = V_Format("scripts/mintyard_import_templates/template_%s_%s.txt", pszShortName, slot.slotName.c_str());
	CUtlString fullPath;
	if (!g_pFullFileSystem || !g_pFullFileSystem->GetWritePath(relative.c_str(), "MOD", fullPath))
	{
		result.m_Error = V_Format("no writable \"MOD\" search path for %s", relative.c_str());
		return false;
	}
	CUtlBuffer buffer(CUtlBuffer::TEXT_BUFFER);
	CUtlString error;
	if (!ctx.IsOk())
		error = ctx.GetText();
	else if (!SaveKV3(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC, pRoot, &error, &buffer))
	{
		if (error.empty())
			error = "the template could not be written as text";
	}
	if (!error.empty())
	{
		result.m_Error = error;
		return false;
	}
	std::error_code fsError;
	std::filesystem::create_directories(std::filesystem::path(fullPath).parent_path(), fsError);
	CUtlString writeError;
	if (!Plat_WriteFileAtomic(fullPath.c_str(), buffer.Base(), buffer.Size(), &writeError))
	{
		result.m_Error = writeError.empty() ? V_Format("cannot write %s", fullPath.c_str()) : writeError;
		return false;
	}
	result.m_Path = fullPath;
	result.m_Text = CUtlString(buffer.View());
	result.m_Summary = V_Format("Created new template:\n%s\n", fullPath.c_str());
	result.m_Summary += "\n";
	result.m_Summary += "Before the template is active, you must:\n";
	result.m_Summary += "- Add the template to scripts/mintyard_import_templates/templates.txt\n";
	result.m_Summary += V_Format("- Set 'no_import' flag for this slot in npc_heroes.txt (%s.%s)\n", pszShortName, slot.slotName.c_str());
	result.m_Summary += "- Restart\n";
	return true;
}
