// Filters that describe a search over Mintyard submissions. Each filter saves and loads itself
// as KV3 (a polymorphic record: its table starts with "_class"), adds itself to a request for
// the service's search, and tests a record locally.
#pragma once

#include <memory>
#include <utility>

#include "core/kv3transfer.h"
#include "core/utlstring.h"
#include "core/utlvector.h"
#include "mintyardtoolutils/core/publishedfileinfo.h"

// The parameters of one search request. A parameter with several values goes out under
// "name[0]", "name[1]", ... in the order they were added.
class CMintyardFileQueryRequest
{
public:
	void SetParam(const char *pszName, const char *pszValue);
	void AddMultiValueParam(const char *pszName, const char *pszValue);
	// The value of a parameter, or null when it was never set.
	const char *GetParam(const char *pszName) const;
	const CUtlVector<std::pair<CUtlString, CUtlString>> &Params() const { return m_Params; }

private:
	CUtlVector<std::pair<CUtlString, CUtlString>> m_Params;
};

// What a filter may ask of the list that holds it.
class IMintyardFileListerFilterOwner
{
public:
	virtual ~IMintyardFileListerFilterOwner() = default;
	// The record's id is already known to the owner (imported before).
	virtual bool IsKnownFileId(uint64 nPublishedFileId) const = 0;
};

class IMintyardFileListerFilter : public IKV3PolymorphicRecord
{
public:
	virtual const KV3ClassInfo_t *GetSchemaClass() const { return GetKV3ClassInfo(); }
	// The filter as a table of its own, "_class" first; false with the transfer's text on failure.
	virtual bool SaveToKV3(KeyValues3 *pDocument, CUtlString *pError = nullptr) const;
	virtual bool LoadFromKV3(const KeyValues3 *pDocument, CUtlString *pError = nullptr);
	~IMintyardFileListerFilter() override = default;
	virtual void AddToRequest(CMintyardFileQueryRequest &) const {}
	virtual bool PassesFile(const PublishedFileInfo_t &) const { return true; }
	virtual bool PassesCollection(const PublishedFileInfo_t &) const { return true; }
	virtual void SetOwner(const IMintyardFileListerFilterOwner *) {}
};

class CTitleMintyardFileFilter : public IMintyardFileListerFilter
{
public:
	KV3_DECLARE_POLYMORPHIC_CLASS();
	void Save(CKV3TransferSaveContext &ctx) const override { ctx.Member("m_strText", m_strText); }
	void Load(CKV3TransferLoadContext &ctx) override { ctx.Member("m_strText", m_strText); }
	void AddToRequest(CMintyardFileQueryRequest &request) const override;

	CUtlString m_strText;
};

class CFileTypeMintyardFileFilter : public IMintyardFileListerFilter
{
public:
	KV3_DECLARE_POLYMORPHIC_CLASS();
	void Save(CKV3TransferSaveContext &ctx) const override { ctx.Member("m_fileTypes", m_fileTypes); }
	void Load(CKV3TransferLoadContext &ctx) override { ctx.Member("m_fileTypes", m_fileTypes); }
	void AddToRequest(CMintyardFileQueryRequest &request) const override;

	CUtlVector<int32> m_fileTypes;
};

class CTagsMintyardFileFilter : public IMintyardFileListerFilter
{
public:
	KV3_DECLARE_POLYMORPHIC_CLASS();
	void Save(CKV3TransferSaveContext &ctx) const override { ctx.Member("m_tags", m_tags); }
	void Load(CKV3TransferLoadContext &ctx) override { ctx.Member("m_tags", m_tags); }
	void AddToRequest(CMintyardFileQueryRequest &request) const override;

	CUtlVector<CUtlString> m_tags;
};

// The update-time filters add nothing to a request; they are kept with a listing's settings.
class CUpdatedAfterMintyardFileFilter : public IMintyardFileListerFilter
{
public:
	KV3_DECLARE_POLYMORPHIC_CLASS();
	void Save(CKV3TransferSaveContext &ctx) const override { ctx.Member("m_nSecondsSinceEpoch", m_nSecondsSinceEpoch); }
	void Load(CKV3TransferLoadContext &ctx) override { ctx.Member("m_nSecondsSinceEpoch", m_nSecondsSinceEpoch); }

	uint32 m_nSecondsSinceEpoch = 0;
};

class CUpdatedBeforeMintyardFileFilter : public IMintyardFileListerFilter
{
public:
	KV3_DECLARE_POLYMORPHIC_CLASS();
	void Save(CKV3TransferSaveContext &ctx) const override { ctx.Member("m_nSecondsSinceEpoch", m_nSecondsSinceEpoch); }
	void Load(CKV3TransferLoadContext &ctx) override { ctx.Member("m_nSecondsSinceEpoch", m_nSecondsSinceEpoch); }

	uint32 m_nSecondsSinceEpoch = 0;
};

class COnlyUnimportedMintyardFileFilter : public IMintyardFileListerFilter
{
public:
	KV3_DECLARE_POLYMORPHIC_CLASS();
	void Save(CKV3TransferSaveContext &) const override {}
	void Load(CKV3TransferLoadContext &) override {}
	bool PassesFile(const PublishedFileInfo_t &record) const override;
	void SetOwner(const IMintyardFileListerFilterOwner *pOwner) override { m_pOwner = pOwner; }

private:
	const IMintyardFileListerFilterOwner *m_pOwner = nullptr;
};

class CKeyValueTagMintyardFileFilter : public IMintyardFileListerFilter
{
public:
	KV3_DECLARE_POLYMORPHIC_CLASS();
	void Save(CKV3TransferSaveContext &ctx) const override;
	void Load(CKV3TransferLoadContext &ctx) override;
	void AddToRequest(CMintyardFileQueryRequest &request) const override;
	bool PassesFile(const PublishedFileInfo_t &record) const override;
	virtual const char *GetTagKey() const { return m_strKey.c_str(); }

	CUtlVector<CUtlString> m_values;
	bool m_bIncludeMissing = false;
	// The key of a plain key-value filter; the review-status filter has a key of its own.
	CUtlString m_strKey;
};

// The key-value filter on the review status. Its key is set once at run time.
class CReviewStatusMintyardFileFilter : public CKeyValueTagMintyardFileFilter
{
public:
	KV3_DECLARE_POLYMORPHIC_CLASS();
	const char *GetTagKey() const override;
	static void SetReviewStatusKey(const char *pszKey);
};

// Kinds of assets on the service, each with the tag that marks it there.
enum ZarnMintyardAssetType_t
{
	ZARN_MINTYARD_ASSET_TYPE_BUNDLE = 0,
	ZARN_MINTYARD_ASSET_TYPE_WEARABLE,
	ZARN_MINTYARD_ASSET_TYPE_COURIER,
	ZARN_MINTYARD_ASSET_TYPE_WARD,
	ZARN_MINTYARD_ASSET_TYPE_LOADING_SCREEN,
	ZARN_MINTYARD_ASSET_TYPE_EMOTICONS,
	ZARN_MINTYARD_ASSET_TYPE_CURSOR_PACK,
	ZARN_MINTYARD_ASSET_TYPE_MUSIC,
	ZARN_MINTYARD_ASSET_TYPE_ABILITY_EFFECT,
	ZARN_MINTYARD_ASSET_TYPE_COUNT
};
// The enumeration by name, for KV3 (names are the enumerators'), and each value's service tag.
const CKV3EnumTable &ZarnMintyardAssetTypeEnum();
const char *ZarnMintyardAssetTypeTagName(ZarnMintyardAssetType_t eType);

class CZarnAssetTypeMintyardFileFilterBase : public IMintyardFileListerFilter
{
public:
	void Save(CKV3TransferSaveContext &ctx) const override { ctx.EnumListMember("m_assetTypes", m_assetTypes, ZarnMintyardAssetTypeEnum()); }
	void Load(CKV3TransferLoadContext &ctx) override { ctx.EnumListMember("m_assetTypes", m_assetTypes, ZarnMintyardAssetTypeEnum()); }

	CUtlVector<ZarnMintyardAssetType_t> m_assetTypes;
};

class CZarnAssetTypeMintyardFileFilter : public CZarnAssetTypeMintyardFileFilterBase
{
public:
	KV3_DECLARE_POLYMORPHIC_CLASS();
	void AddToRequest(CMintyardFileQueryRequest &request) const override;
};

class CZarnChildAssetTypeMintyardFileFilter : public CZarnAssetTypeMintyardFileFilterBase
{
public:
	KV3_DECLARE_POLYMORPHIC_CLASS();
	bool PassesFile(const PublishedFileInfo_t &record) const override;
};

class CZarnCollectionMintyardFileFilter : public IMintyardFileListerFilter
{
public:
	KV3_DECLARE_POLYMORPHIC_CLASS();
	void Save(CKV3TransferSaveContext &ctx) const override;
	void Load(CKV3TransferLoadContext &ctx) override;
	bool PassesFile(const PublishedFileInfo_t &record) const override;
	bool PassesCollection(const PublishedFileInfo_t &record) const override;

	bool m_bSameCreator = false;
	bool m_bSingleHero = false;
};

// A list of filters as KV3: an array of the filters' tables.
bool SaveFileFiltersToKV3(const CUtlVector<std::unique_ptr<IMintyardFileListerFilter>> &filters, KeyValues3 *pDocument, CUtlString *pError = nullptr);
bool LoadFileFiltersFromKV3(CUtlVector<std::unique_ptr<IMintyardFileListerFilter>> &filters, const KeyValues3 *pDocument, CUtlString *pError = nullptr);
