// Saving and loading an import session: the plain session file (a KV3 text document whose file
// keys point at the author's files where they lie) and the submission zip (the same document as
// "mintyard_import_manifest.txt", with the source files inside the zip).
#pragma once

#include "core/keyvalues3.h"
#include "core/utlstring.h"
#include "mintyardtoolutils/core/cfgelements.h"
#include "mintyardtoolutils/core/importmessages.h"

class CMintyardImportSession;

enum { MINTYARD_SESSION_IMPORT_VERSION = 5 };

#define MINTYARD_ZIP_MANIFEST_NAME "mintyard_import_manifest.txt"
#define MINTYARD_GEN1_ZIP_MANIFEST_NAME "manifest.txt"

// The signed-in account, whose lower 32 bits go into "brume_id" of saved documents (0 until set).
void SetMintyardSessionAccountId(uint64 nBrumeId);
uint64 GetMintyardSessionAccountId();

// Writes the session into ctx.pContext's root. False (with the message) without a template or
// when an element fails.
bool BuildSessionDocument(const CMintyardImportSession &session, SaveContext &ctx, ImportMessageList &list);
// Picks the template named by the document, builds the tree and reads the four lists.
bool ApplySessionDocument(CMintyardImportSession &session, const LoadContext &ctx, const KeyValues3 *pRoot, ImportMessageList &list);

// The session as a plain file at a full path, written so that a failed write leaves what was
// there before.
bool SaveSessionFile(const CMintyardImportSession &session, const char *pszPath, ImportMessageList &list);
bool LoadSessionFile(CMintyardImportSession &session, const LoadContext &ctx, const char *pszPath, ImportMessageList &list);

// Builds "<scratch>/<name>/mintyard_submit_<name>_<clock>.zip"; outPath gets its full path.
bool SaveSubmissionZip(const CMintyardImportSession &session, CUtlString &outPath, ImportMessageList &list);
// Unpacks a submission zip to "<scratch>/<base>_unzip_<clock>" and loads the session from it.
// pUnpackedFolder (may be null) gets that folder.
bool LoadSubmissionZip(CMintyardImportSession &session, const char *pszPath, ImportMessageList &list, CUtlString *pUnpackedFolder = nullptr);
