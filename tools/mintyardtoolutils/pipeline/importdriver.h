// The import run: turns the filled-in element tree of a session into files under the content
// and game trees, compiles them, and reports every problem into one ImportMessageList. Every
// import step places its files through the operations of this file.
#pragma once

#include <functional>

#include "core/logging.h"
#include "core/utlstring.h"
#include "core/utlvector.h"
#include "mintyardtoolutils/core/importmessages.h"

class CMintyardImportSession;
class CMintyardCfgElement;

// How CopyToContent treats its source.
enum EMintyardCopyMode
{
	MINTYARD_COPY_VERBATIM = 0, // byte for byte
	MINTYARD_COPY_MESH = 1,		// a ".dmx" source is prepared and saved in the binary encoding
	MINTYARD_COPY_ANIMATION = 2, // other model sources; byte for byte
};

// Runs an import: validation, then every model (import, then the checks of the compiled model
// when it added no error), then every image set. `bItemMode` tells the image sets whether
// ability icons and emoticons are placed, and relaxes the validation as a development universe
// does; `bRelaxed` relaxes it too (the command line's --relaxed).
void RunImport(CMintyardImportSession *pSession, bool bItemMode, ImportMessageList &list, bool bRelaxed = false);

// File placement. Paths given as "relative" are relative to the session's content (or game) root.
bool CopyToContent(EMintyardCopyMode eMode, CMintyardImportSession *pSession, const char *pszSource, const char *pszContentRelative,
	ImportMessageList &list);
bool CopyToGame(CMintyardImportSession *pSession, const char *pszSource, const char *pszGameRelative, ImportMessageList &list);
bool CopyExistingGameFile(CMintyardImportSession *pSession, const char *pszSource, const char *pszGameRelative, ImportMessageList &list);
bool WriteBufferToContent(CMintyardImportSession *pSession, const void *pData, size_t nSize, const char *pszContentRelative,
	ImportMessageList &list);
// Rescales an image file in place (aspect ignored, smooth). A ".bmp" goes through SDL, any other
// through QImage. True when the file has that size afterwards.
bool ResizeImageFile(const char *pszPath, int nWidth, int nHeight);

// Compiles a generated source (absolute path) with ResourceCompilerSystem001; the compiler's lines
// reach the list's log through a CImportLogMessageScopeGuard named by the session's compile label,
// or its import name.
bool CompileAsset(CMintyardImportSession *pSession, const char *pszAbsolutePath, ImportMessageList &list);

// The absolute path of a content-relative name ("" when the session has no content root).
CUtlString ContentPath(const CMintyardImportSession *pSession, const char *pszContentRelative);
CUtlString GamePath(const CMintyardImportSession *pSession, const char *pszGameRelative);

// Forwards the lines logged while it lives (a compile's) to the list's log, on the main thread
// only: below warning as information, warning as a warning, above as an error.
class CImportLogMessageScopeGuard : public ILoggingListener
{
public:
	CImportLogMessageScopeGuard(ImportMessageList &list, const char *pszName);
	~CImportLogMessageScopeGuard();
	CImportLogMessageScopeGuard(const CImportLogMessageScopeGuard &) = delete;
	CImportLogMessageScopeGuard &operator=(const CImportLogMessageScopeGuard &) = delete;

	void Log(const LoggingContext_t &context, const char *pszMessage) override;
	const CUtlString &GetName() const { return m_Name; }

private:
	ImportMessageList &m_List;
	CUtlString m_Name;
	bool m_bForwarding = false;
};

// The files one model or one image set writes. At most one scope is open at a time; when it ends
// its list goes to the written-files handler (the resource system, which reloads them).
class CImportWrittenFilesScope
{
public:
	CImportWrittenFilesScope();
	~CImportWrittenFilesScope();
	CImportWrittenFilesScope(const CImportWrittenFilesScope &) = delete;
	CImportWrittenFilesScope &operator=(const CImportWrittenFilesScope &) = delete;

	const CUtlVector<CUtlString> &GetFiles() const { return m_Files; }
	// The open scope, or null.
	static CImportWrittenFilesScope *Current();

private:
	friend class SourceControlGuard;
	CUtlVector<CUtlString> m_Files;
	CImportWrittenFilesScope *m_pPrevious;
};

typedef std::function<void(const CUtlVector<CUtlString> &files)> ImportWrittenFilesHandler_t;
// Who hears the files of each finished scope (the tool scene reloads what it shows); none by default.
void SetImportWrittenFilesHandler(ImportWrittenFilesHandler_t handler);

// Opened around the writing of one file: records the path in the open written-files scope.
// With a source-control service it would also open the file for edit or add; this build has
// none, so the guard only records.
class SourceControlGuard
{
public:
	explicit SourceControlGuard(const char *pszAbsolutePath);
	~SourceControlGuard() = default;
	SourceControlGuard(const SourceControlGuard &) = delete;
	SourceControlGuard &operator=(const SourceControlGuard &) = delete;
};
