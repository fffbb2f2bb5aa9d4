// The KV3 form of published-file records and of a listing of them.
//
// A listing is a table with "flattenedFiles", every record reached (children included) once, and
// "files", the ids of the top-level entries in their order. A record's "children" hold each
// child's "publishedfileid", "guid" and "file_type"; loading links them to the flattened record
// of that id when there is one.
#pragma once

#include <memory>

#include "core/keyvalues3.h"
#include "core/utlstring.h"
#include "core/utlvector.h"
#include "mintyardtoolutils/core/publishedfileinfo.h"

bool SavePublishedFileToKV3(const PublishedFileInfo_t &record, KeyValues3 *pDocument, CUtlString *pError = nullptr);
bool LoadPublishedFileFromKV3(PublishedFileInfo_t &record, const KeyValues3 *pDocument, CUtlString *pError = nullptr);

bool SavePublishedFileListToKV3(const CUtlVector<std::shared_ptr<PublishedFileInfo_t>> &files, KeyValues3 *pDocument, CUtlString *pError = nullptr);
bool LoadPublishedFileListFromKV3(CUtlVector<std::shared_ptr<PublishedFileInfo_t>> &files, const KeyValues3 *pDocument, CUtlString *pError = nullptr);
