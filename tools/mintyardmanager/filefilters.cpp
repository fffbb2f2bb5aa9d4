#include "mintyardmanager/filefilters.h"

#include <mutex>

#include "core/strtools.h"

namespace
{
const char *const kFilterModule = "mintyardmanager";
const char *const kFilterQueries = "solr_filter_queries";

CUtlString Lower(const CUtlString &text)
{
	CUtlString out = text;
	for (char &c : out)
	{
		if (c >= 'A' && c <= 'Z')
			c = (char)(c - 'A' + 'a');
	}
	return out;
}

bool FinishTransfer(const CKV3TransferContextBase &ctx, CUtlString *pError)
{
	if (pError)
		*pError = ctx.IsOk() ? CUtlString() : CUtlString(ctx.GetText().c_str());
	return ctx.IsOk();
}

const KV3EnumName_t s_AssetTypeNames[] = {
	{ "ZARN_MINTYARD_ASSET_TYPE_BUNDLE", ZARN_MINTYARD_ASSET_TYPE_BUNDLE },
	{ "ZARN_MINTYARD_ASSET_TYPE_WEARABLE", ZARN_MINTYARD_ASSET_TYPE_WEARABLE },
	{ "ZARN_MINTYARD_ASSET_TYPE_COURIER", ZARN_MINTYARD_ASSET_TYPE_COURIER },
	{ "ZARN_MINTYARD_ASSET_TYPE_WARD", ZARN_MINTYARD_ASSET_TYPE_WARD },
	{ "ZARN_MINTYARD_ASSET_TYPE_LOADING_SCREEN", ZARN_MINTYARD_ASSET_TYPE_LOADING_SCREEN },
	{ "ZARN_MINTYARD_ASSET_TYPE_EMOTICONS", ZARN_MINTYARD_ASSET_TYPE_EMOTICONS },
	{ "ZARN_MINTYARD_ASSET_TYPE_CURSOR_PACK", ZARN_MINTYARD_ASSET_TYPE_CURSOR_PACK },
	{ "ZARN_MINTYARD_ASSET_TYPE_MUSIC", ZARN_MINTYARD_ASSET_TYPE_MUSIC },
	{ "ZARN_MINTYARD_ASSET_TYPE_ABILITY_EFFECT", ZARN_MINTYARD_ASSET_TYPE_ABILITY_EFFECT },
};
static_assert(V_ARRAYSIZE(s_AssetTypeNames) == ZARN_MINTYARD_ASSET_TYPE_COUNT);

// The service's tag of each asset type: the tags the templates give their submissions.
const char *const s_AssetTypeTags[] = {
	"Bundle", "Wearable", "Courier", "Ward", "Loading Screen", "Emoticons", "Cursor Pack", "Music", "Ability Effect",
};
static_assert(V_ARRAYSIZE(s_AssetTypeTags) == ZARN_MINTYARD_ASSET_TYPE_COUNT);

std::mutex s_ReviewKeyMutex;
CUtlString s_ReviewStatusKey = "review_status";
} // namespace

KV3_DEFINE_POLYMORPHIC_CLASS(CTitleMintyardFileFilter, kFilterModule);
KV3_DEFINE_POLYMORPHIC_CLASS(CFileTypeMintyardFileFilter, kFilterModule);
KV3_DEFINE_POLYMORPHIC_CLASS(CTagsMintyardFileFilter, kFilterModule);
KV3_DEFINE_POLYMORPHIC_CLASS(CUpdatedAfterMintyardFileFilter, kFilterModule);
KV3_DEFINE_POLYMORPHIC_CLASS(CUpdatedBeforeMintyardFileFilter, kFilterModule);
KV3_DEFINE_POLYMORPHIC_CLASS(COnlyUnimportedMintyardFileFilter, kFilterModule);
KV3_DEFINE_POLYMORPHIC_CLASS(CKeyValueTagMintyardFileFilter, kFilterModule);
KV3_DEFINE_POLYMORPHIC_CLASS(CReviewStatusMintyardFileFilter, kFilterModule);
KV3_DEFINE_POLYMORPHIC_CLASS(CZarnAssetTypeMintyardFileFilter, kFilterModule);
KV3_DEFINE_POLYMORPHIC_CLASS(CZarnChildAssetTypeMintyardFileFilter, kFilterModule);
KV3_DEFINE_POLYMORPHIC_CLASS(CZarnCollectionMintyardFileFilter, kFilterModule);

// ---------------------------------------------------------------------------------------------

void CMintyardFileQueryRequest::SetParam(const char *pszName, const char *pszValue)
{
	for (auto &param : m_Params)
	{
		if (param.first == pszName)
		{
			param.second = pszValue ? pszValue : "";
			return;
		}
	}
	m_Params.emplace_back(pszName, pszValue ? pszValue : "");
}

void CMintyardFileQueryRequest::AddMultiValueParam(const char *pszName, const char *pszValue)
{
	int nCount = 0;
	while (GetParam(V_Format("%s[%d]", pszName, nCount).c_str()))
		++nCount;
	m_Params.emplace_back(V_Format("%s[%d]", pszName, nCount), pszValue ? pszValue : "");
}

const char *CMintyardFileQueryRequest::GetParam(const char *pszName) const
{
	for (const auto &param : m_Params)
	{
		if (param.first == pszName)
			return param.second.c_str();
	}
	return nullptr;
}

// ---------------------------------------------------------------------------------------------

bool IMintyardFileListerFilter::SaveToKV3(KeyValues3 *pDocument, CUtlString *pError) const
{
	CKV3TransferSaveContext ctx;
	ctx.SavePolymorphic(pDocument, this);
	return FinishTransfer(ctx, pError);
}

bool IMintyardFileListerFilter::LoadFromKV3(const KeyValues3 *pDocument, CUtlString *pError)
{
	CKV3TransferLoadContext ctx;
	const KeyValues3 *pClass = FindMember(pDocument, "_class");
	CUtlString className;
	if (pClass)
		ReadString(pClass, className);
	if (pClass && className != GetKV3ClassInfo()->m_pszName)
		ctx.ReportError("The table holds a '%s', not a '%s'", className.c_str(), GetKV3ClassInfo()->m_pszName);
	else
		ctx.LoadPolymorphicRecord(pDocument, *this);
	return FinishTransfer(ctx, pError);
}

bool SaveFileFiltersToKV3(const CUtlVector<std::unique_ptr<IMintyardFileListerFilter>> &filters, KeyValues3 *pDocument, CUtlString *pError)
{
	CKV3TransferSaveContext ctx;
	ctx.WriteValue(pDocument, filters);
	return FinishTransfer(ctx, pError);
}

bool LoadFileFiltersFromKV3(CUtlVector<std::unique_ptr<IMintyardFileListerFilter>> &filters, const KeyValues3 *pDocument, CUtlString *pError)
{
	CKV3TransferLoadContext ctx;
	ctx.ReadValue(pDocument, filters);
	// A table that named no class that loading can make is left out of the list.
	filters.erase(std::remove(filters.begin(), filters.end(), nullptr), filters.end());
	return FinishTransfer(ctx, pError);
}

// ---------------------------------------------------------------------------------------------

void CTitleMintyardFileFilter::AddToRequest(CMintyardFileQueryRequest &request) const
{
	request.SetParam("search_text", m_strText.c_str());
}

void CFileTypeMintyardFileFilter::AddToRequest(CMintyardFileQueryRequest &request) const
{
	if (m_fileTypes.empty())
		return;
	CUtlString text = "filetype:(";
	for (size_t i = 0; i < m_fileTypes.size(); ++i)
		text += V_Format("%s%d", i ? " OR " : "", m_fileTypes[i]);
	text += ")";
	request.AddMultiValueParam(kFilterQueries, text.c_str());
}

void CTagsMintyardFileFilter::AddToRequest(CMintyardFileQueryRequest &request) const
{
	if (m_tags.empty())
		return;
	CUtlString text = "tags:(";
	for (size_t i = 0; i < m_tags.size(); ++i)
		text += V_Format("%s\"%s\" OR \"%s\"", i ? " OR " : "", m_tags[i].c_str(), Lower(m_tags[i]).c_str());
	text += ")";
	request.AddMultiValueParam(kFilterQueries, text.c_str());
}

bool COnlyUnimportedMintyardFileFilter::PassesFile(const PublishedFileInfo_t &record) const
{
	if ((m_pOwner && m_pOwner->IsKnownFileId(record.m_nPublishedFileId)) || record.m_bAccepted)
		return false;
	for (const auto &pChild : record.m_vecChildren)
	{
		if (pChild && !PassesFile(*pChild))
			return false;
	}
	return true;
}

void CKeyValueTagMintyardFileFilter::Save(CKV3TransferSaveContext &ctx) const
{
	ctx.Member("m_values", m_values);
	ctx.Member("m_bIncludeMissing", m_bIncludeMissing);
}

void CKeyValueTagMintyardFileFilter::Load(CKV3TransferLoadContext &ctx)
{
	ctx.Member("m_values", m_values);
	ctx.Member("m_bIncludeMissing", m_bIncludeMissing);
}

void CKeyValueTagMintyardFileFilter::AddToRequest(CMintyardFileQueryRequest &request) const
{
	if (m_values.empty())
		return;
	const char *pszKey = GetTagKey();
	CUtlString text = "kvtags:(";
	for (size_t i = 0; i < m_values.size(); ++i)
		text += V_Format("%s\"%s:%s\"", i ? " OR " : "", pszKey, Lower(m_values[i]).c_str());
	text += ")";
	if (m_bIncludeMissing)
		text += V_Format(" OR (*:* NOT kvtags:(%s*))", pszKey);
	request.AddMultiValueParam(kFilterQueries, text.c_str());
}

bool CKeyValueTagMintyardFileFilter::PassesFile(const PublishedFileInfo_t &record) const
{
	if (m_values.empty())
		return true;
	const char *pszKey = GetTagKey();
	for (const auto &tag : record.m_vecKeyValueTags)
	{
		if (V_stricmp(tag.first.c_str(), pszKey) != 0)
			continue;
		for (const CUtlString &value : m_values)
		{
			if (V_stricmp(tag.second.c_str(), value.c_str()) == 0)
				return true;
		}
		return false;
	}
	return m_bIncludeMissing;
}

const char *CReviewStatusMintyardFileFilter::GetTagKey() const
{
	std::lock_guard<std::mutex> lock(s_ReviewKeyMutex);
	return s_ReviewStatusKey.c_str();
}

void CReviewStatusMintyardFileFilter::SetReviewStatusKey(const char *pszKey)
{
	std::lock_guard<std::mutex> lock(s_ReviewKeyMutex);
	s_ReviewStatusKey = pszKey ? pszKey : "";
}

// ---------------------------------------------------------------------------------------------

const CKV3EnumTable &ZarnMintyardAssetTypeEnum()
{
	static const CKV3EnumTable s_Table(s_AssetTypeNames);
	return s_Table;
}

const char *ZarnMintyardAssetTypeTagName(ZarnMintyardAssetType_t eType)
{
	return eType >= 0 && eType < ZARN_MINTYARD_ASSET_TYPE_COUNT ? s_AssetTypeTags[eType] : "";
}

void CZarnAssetTypeMintyardFileFilter::AddToRequest(CMintyardFileQueryRequest &request) const
{
	if (m_assetTypes.empty())
		return;
	const bool bHasBundle = std::find(m_assetTypes.begin(), m_assetTypes.end(), ZARN_MINTYARD_ASSET_TYPE_BUNDLE) != m_assetTypes.end();
	CUtlString text;
	if (bHasBundle)
		text = V_Format("(filetype:%d)", 2);
	if (!bHasBundle || m_assetTypes.size() >= 2)
	{
		if (bHasBundle)
			text += " OR ";
		text += V_Format("(filetype:(%d OR %d) AND (tags:(", 0, 1);
		for (size_t i = 0; i < m_assetTypes.size(); ++i)
			text += V_Format("%s\"%s\"", i ? " OR " : "", ZarnMintyardAssetTypeTagName(m_assetTypes[i]));
		text += ")))";
	}
	request.AddMultiValueParam(kFilterQueries, text.c_str());
}

bool CZarnChildAssetTypeMintyardFileFilter::PassesFile(const PublishedFileInfo_t &record) const
{
	if (m_assetTypes.empty())
		return true;
	for (const auto &pChild : record.m_vecChildren)
	{
		if (!pChild)
			continue;
		for (const CUtlString &tag : pChild->m_vecTags)
		{
			for (ZarnMintyardAssetType_t eType : m_assetTypes)
			{
				if (tag == ZarnMintyardAssetTypeTagName(eType))
					return true;
			}
		}
	}
	return false;
}

void CZarnCollectionMintyardFileFilter::Save(CKV3TransferSaveContext &ctx) const
{
	ctx.Member("m_bSameCreator", m_bSameCreator);
	ctx.Member("m_bSingleHero", m_bSingleHero);
}

void CZarnCollectionMintyardFileFilter::Load(CKV3TransferLoadContext &ctx)
{
	ctx.Member("m_bSameCreator", m_bSameCreator);
	ctx.Member("m_bSingleHero", m_bSingleHero);
}

bool CZarnCollectionMintyardFileFilter::PassesFile(const PublishedFileInfo_t &record) const
{
	if (!m_bSameCreator)
		return true;
	for (const auto &pChild : record.m_vecChildren)
	{
		if (pChild && pChild->m_ulCreator != record.m_ulCreator)
			return false;
	}
	return true;
}

bool CZarnCollectionMintyardFileFilter::PassesCollection(const PublishedFileInfo_t &record) const
{
	return !m_bSingleHero || record.m_vecImportTargets.size() == 1;
}
