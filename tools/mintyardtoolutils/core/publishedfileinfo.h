// The record of one submission on the Mintyard service, shared by the browser, the publish
// dialog, the import session and the file filters.
#pragma once

#include <memory>
#include <utility>

#include "core/platform.h"
#include "core/utlstring.h"
#include "core/utlvector.h"

enum : uint64 { PUBLISHED_FILE_ID_INVALID = ~0ull, UGC_HANDLE_INVALID = ~0ull };

enum EMintyardVisibility
{
	MINTYARD_VISIBILITY_PUBLIC = 0,
	MINTYARD_VISIBILITY_FRIENDS_ONLY = 1,
	MINTYARD_VISIBILITY_PRIVATE = 2,
};

// What an importer was asked to do with a submission, and what came of it.
struct MintyardImportRequest_t
{
	CUtlString m_sItemName;
	int32 m_nMode = 0;
	uint32 m_nFlags = 0;
	uint32 m_nTargetChangelist = 0;
	CUtlString m_sTargetLootlist;
	uint32 m_nItemToUpdate = 0; // an item definition index, 0 for a new item
};

struct MintyardImportResult_t
{
	CUtlVector<CUtlString> m_vecErrors;
	CUtlVector<CUtlString> m_vecWarnings;
	CUtlString m_sDownloadedArchiveName;
	uint32 m_nEconItemDefinitionIndex = 0;
	CUtlString m_sEconItemName;
};

struct PublishedFileInfo_t
{
	CUtlString m_sGuid;
	uint64 m_nPublishedFileId = PUBLISHED_FILE_ID_INVALID;
	CUtlString m_sTitle;
	CUtlString m_sDescription;
	CUtlString m_sSourceFolder; // the addon folder chosen in the publish dialog
	CUtlString m_sTagsText;		// tags joined by ", " for the table
	CUtlString m_sFileName;
	CUtlString m_sPreviewUrl;
	uint64 m_hFile = UGC_HANDLE_INVALID;
	uint64 m_hPreviewFile = UGC_HANDLE_INVALID;
	uint32 m_rtimeCreated = 0;
	uint32 m_rtimeUpdated = 0;
	int32 m_eVisibility = MINTYARD_VISIBILITY_PRIVATE;
	CUtlVector<CUtlString> m_vecTags;
	CUtlVector<std::pair<CUtlString, CUtlString>> m_vecKeyValueTags;
	int32 m_nFileSize = 0;
	int32 m_nPreviewFileSize = 0;
	int32 m_eFileType = 16;
	CUtlString m_sOwnerText; // persona name, a blank, the rendered account id
	bool m_bOwnedByMe = false;
	bool m_bBanned = false;
	bool m_bAccepted = false;
	uint64 m_ulCreator = 0;
	float m_flScore = 0.0f;
	uint32 m_nVotesUp = 0;
	uint32 m_nVotesDown = 0;
	CUtlVector<std::shared_ptr<PublishedFileInfo_t>> m_vecChildren;
	// The heroes (or other targets) the submission's items are for, as the importer found them.
	CUtlVector<CUtlString> m_vecImportTargets;
	MintyardImportRequest_t m_ImportRequest;
	MintyardImportResult_t m_ImportResult;
};
