#include "mintyardmanager/publishedfilerecord.h"

#include <map>
#include <set>

#include "core/kv3transfer.h"

namespace
{
struct CTagEntry
{
	CUtlString m_sTag;
	void Save(CKV3TransferSaveContext &ctx) const { ctx.Member("tag", m_sTag); }
	void Load(CKV3TransferLoadContext &ctx) { ctx.Member("tag", m_sTag); }
};

struct CChildEntry
{
	uint64 m_nPublishedFileId = PUBLISHED_FILE_ID_INVALID;
	CUtlString m_sGuid;
	int32 m_eFileType = 0;
	template <class Self, class Context> static void TransferMembers(Self &self, Context &ctx)
	{
		ctx.Member("publishedfileid", self.m_nPublishedFileId);
		ctx.Member("guid", self.m_sGuid);
		ctx.Member("file_type", self.m_eFileType);
	}
	void Save(CKV3TransferSaveContext &ctx) const { TransferMembers(*this, ctx); }
	void Load(CKV3TransferLoadContext &ctx) { TransferMembers(*this, ctx); }
};

struct CVoteData
{
	float m_flScore = 0, m_flVotesUp = 0, m_flVotesDown = 0;
	template <class Self, class Context> static void TransferMembers(Self &self, Context &ctx)
	{
		ctx.Member("score", self.m_flScore);
		ctx.Member("votes_up", self.m_flVotesUp);
		ctx.Member("votes_down", self.m_flVotesDown);
	}
	void Save(CKV3TransferSaveContext &ctx) const { TransferMembers(*this, ctx); }
	void Load(CKV3TransferLoadContext &ctx) { TransferMembers(*this, ctx); }
};

struct CImportRequest
{
	MintyardImportRequest_t *p;
	template <class Self, class Context> static void TransferMembers(Self &self, Context &ctx)
	{
		ctx.Member("item_name", self.p->m_sItemName);
		ctx.Member("mode", self.p->m_nMode);
		ctx.Member("flags", self.p->m_nFlags);
		ctx.Member("target_changelist", self.p->m_nTargetChangelist);
		ctx.Member("target_lootlist", self.p->m_sTargetLootlist);
		ctx.Member("item_to_update", self.p->m_nItemToUpdate);
	}
	void Save(CKV3TransferSaveContext &ctx) const { TransferMembers(*this, ctx); }
	void Load(CKV3TransferLoadContext &ctx) { TransferMembers(*this, ctx); }
};

struct CImportResult
{
	MintyardImportResult_t *p;
	template <class Self, class Context> static void TransferMembers(Self &self, Context &ctx)
	{
		ctx.Member("errors", self.p->m_vecErrors);
		ctx.Member("warnings", self.p->m_vecWarnings);
		ctx.Member("downloaded_archive_name", self.p->m_sDownloadedArchiveName);
		ctx.Member("econ_item_definition_index", self.p->m_nEconItemDefinitionIndex);
		ctx.Member("econ_item_name", self.p->m_sEconItemName);
	}
	void Save(CKV3TransferSaveContext &ctx) const { TransferMembers(*this, ctx); }
	void Load(CKV3TransferLoadContext &ctx) { TransferMembers(*this, ctx); }
};

// One record; the children are read as entries and linked by the caller.
struct CRecord
{
	// The members that go to and from the record as they are, in file order; the lists and the
	// tables that follow them differ between saving and loading.
	template <class Record, class Context> static void TransferPlainMembers(Record &r, Context &ctx)
	{
		ctx.Member("guid", r.m_sGuid);
		ctx.Member("publishedfileid", r.m_nPublishedFileId);
		ctx.Member("title", r.m_sTitle);
		ctx.Member("file_type", r.m_eFileType);
		ctx.Member("filename", r.m_sFileName);
		ctx.Member("preview_url", r.m_sPreviewUrl);
		ctx.Member("time_created", r.m_rtimeCreated);
		ctx.Member("time_updated", r.m_rtimeUpdated);
		ctx.Member("file_size", r.m_nFileSize);
		ctx.Member("preview_file_size", r.m_nPreviewFileSize);
		ctx.Member("file_description", r.m_sDescription);
		ctx.Member("banned", r.m_bBanned);
		ctx.Member("mintyard_accepted", r.m_bAccepted);
		ctx.Member("hcontent_file", r.m_hFile);
		ctx.Member("hcontent_preview", r.m_hPreviewFile);
		ctx.Member("visibility", r.m_eVisibility);
		ctx.Member("creator", r.m_ulCreator);
	}

	PublishedFileInfo_t *p;
	CUtlVector<CChildEntry> *pChildren; // loading: where the children's entries go

	void Save(CKV3TransferSaveContext &ctx) const
	{
		const PublishedFileInfo_t &r = *p;
		TransferPlainMembers(r, ctx);
		if (!r.m_vecTags.empty())
		{
			CUtlVector<CTagEntry> tags;
			for (const CUtlString &tag : r.m_vecTags)
				tags.push_back({ tag });
			ctx.Member("tags", tags);
		}
		if (!r.m_vecChildren.empty())
		{
			CUtlVector<CChildEntry> children;
			for (const auto &pChild : r.m_vecChildren)
			{
				if (pChild)
					children.push_back({ pChild->m_nPublishedFileId, pChild->m_sGuid, pChild->m_eFileType });
			}
			ctx.Member("children", children);
		}
		ctx.Member("vote_data", CVoteData{ r.m_flScore, (float)r.m_nVotesUp, (float)r.m_nVotesDown });
		ctx.Member("import_request", CImportRequest{ const_cast<MintyardImportRequest_t *>(&r.m_ImportRequest) });
		ctx.Member("import_result", CImportResult{ const_cast<MintyardImportResult_t *>(&r.m_ImportResult) });
	}

	void Load(CKV3TransferLoadContext &ctx)
	{
		PublishedFileInfo_t &r = *p;
		TransferPlainMembers(r, ctx);
		CUtlVector<CTagEntry> tags;
		ctx.Member("tags", tags);
		r.m_vecTags.clear();
		for (const CTagEntry &tag : tags)
			r.m_vecTags.push_back(tag.m_sTag);
		CUtlVector<CChildEntry> children;
		ctx.Member("children", children);
		if (pChildren)
			*pChildren = children;
		CVoteData votes;
		ctx.Member("vote_data", votes);
		r.m_flScore = votes.m_flScore;
		r.m_nVotesUp = (uint32)votes.m_flVotesUp;
		r.m_nVotesDown = (uint32)votes.m_flVotesDown;
		CImportRequest request{ &r.m_ImportRequest };
		ctx.Member("import_request", request);
		CImportResult result{ &r.m_ImportResult };
		ctx.Member("import_result", result);
	}
};

std::shared_ptr<PublishedFileInfo_t> ChildStub(const CChildEntry &entry)
{
	auto pChild = std::make_shared<PublishedFileInfo_t>();
	pChild->m_nPublishedFileId = entry.m_nPublishedFileId;
	pChild->m_sGuid = entry.m_sGuid;
	pChild->m_eFileType = entry.m_eFileType;
	return pChild;
}

bool Finish(const CKV3TransferContextBase &ctx, CUtlString *pError)
{
	if (pError)
		*pError = ctx.IsOk() ? CUtlString() : CUtlString(ctx.GetText().c_str());
	return ctx.IsOk();
}

void Flatten(const std::shared_ptr<PublishedFileInfo_t> &pFile, std::set<const PublishedFileInfo_t *> &seen,
	CUtlVector<const PublishedFileInfo_t *> &out)
{
	if (!pFile || !seen.insert(pFile.get()).second)
		return;
	out.push_back(pFile.get());
	for (const auto &pChild : pFile->m_vecChildren)
		Flatten(pChild, seen, out);
}
} // namespace

bool SavePublishedFileToKV3(const PublishedFileInfo_t &record, KeyValues3 *pDocument, CUtlString *pError)
{
	CKV3TransferSaveContext ctx;
	ctx.SaveRecord(pDocument, CRecord{ const_cast<PublishedFileInfo_t *>(&record), nullptr });
	return Finish(ctx, pError);
}

bool LoadPublishedFileFromKV3(PublishedFileInfo_t &record, const KeyValues3 *pDocument, CUtlString *pError)
{
	CKV3TransferLoadContext ctx;
	CUtlVector<CChildEntry> children;
	CRecord wrapper{ &record, &children };
	ctx.LoadRecord(pDocument, wrapper);
	record.m_vecChildren.clear();
	for (const CChildEntry &entry : children)
		record.m_vecChildren.push_back(ChildStub(entry));
	return Finish(ctx, pError);
}

bool SavePublishedFileListToKV3(const CUtlVector<std::shared_ptr<PublishedFileInfo_t>> &files, KeyValues3 *pDocument, CUtlString *pError)
{
	std::set<const PublishedFileInfo_t *> seen;
	CUtlVector<const PublishedFileInfo_t *> flattened;
	for (const auto &pFile : files)
		Flatten(pFile, seen, flattened);

	CKV3TransferSaveContext ctx;
	pDocument->MakeTable();
	if (ctx.Enter(pDocument))
	{
		KeyValues3 *pFlat = ctx.PrepareMember("flattenedFiles");
		pFlat->MakeArray((uint32)flattened.size());
		for (uint32 i = 0; i < (uint32)flattened.size(); ++i)
			ctx.SaveRecord(pFlat->GetArrayElement(i), CRecord{ const_cast<PublishedFileInfo_t *>(flattened[i]), nullptr });
		CUtlVector<uint64> ids;
		for (const auto &pFile : files)
		{
			if (pFile)
				ids.push_back(pFile->m_nPublishedFileId);
		}
		ctx.Member("files", ids);
	}
	ctx.Leave();
	return Finish(ctx, pError);
}

bool LoadPublishedFileListFromKV3(CUtlVector<std::shared_ptr<PublishedFileInfo_t>> &files, const KeyValues3 *pDocument, CUtlString *pError)
{
	files.clear();
	CKV3TransferLoadContext ctx;
	if (ctx.Enter(pDocument))
	{
		const KeyValues3 *pFlat = GetMember(pDocument, "flattenedFiles");
		std::map<uint64, std::shared_ptr<PublishedFileInfo_t>> byId;
		CUtlVector<std::pair<std::shared_ptr<PublishedFileInfo_t>, CUtlVector<CChildEntry>>> loaded;
		for (uint32 i = 0; i < ArrayLength(pFlat); ++i)
		{
			auto pFile = std::make_shared<PublishedFileInfo_t>();
			CUtlVector<CChildEntry> children;
			CRecord wrapper{ pFile.get(), &children };
			ctx.LoadRecord(ArrayElement(pFlat, i), wrapper);
			byId.emplace(pFile->m_nPublishedFileId, pFile);
			loaded.emplace_back(pFile, std::move(children));
		}
		for (auto &entry : loaded)
		{
			for (const CChildEntry &child : entry.second)
			{
				auto found = byId.find(child.m_nPublishedFileId);
				entry.first->m_vecChildren.push_back(found != byId.end() ? found->second : ChildStub(child));
			}
		}
		CUtlVector<uint64> ids;
		ctx.Member("files", ids);
		for (uint64 id : ids)
		{
			auto found = byId.find(id);
			if (found == byId.end())
				ctx.ReportError("The listing names the file %llu, which is not among its files", (unsigned long long)id);
			else
				files.push_back(found->second);
		}
	}
	ctx.Leave();
	return Finish(ctx, pError);
}
