#include "mintyardtoolutils/pipeline/importdriver.h"

#include <chrono>
#include <cstdio>
#include <filesystem>

#include <QImage>

#include "core/fileio.h"
#include "core/pathutils.h"
#include "core/strtools.h"
#include "filesystem/filesystem.h"
#include "imaging/imageresize.h"
#include "mintyardtoolutils/core/cfgelements.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/pipeline/imagesetimport.h"
#include "mintyardtoolutils/pipeline/meshpreparation.h"
#include "mintyardtoolutils/pipeline/modelimport.h"
#include "mintyardtoolutils/pipeline/modelvalidation.h"
#include "resourcecompiler/resourcecompilersystem.h"
#include "toolframework/convar.h"
#include "toolframework/toolframework.h"

namespace
{
DEFINE_LOGGING_CHANNEL(LOG_MINTYARD_IMPORT, "MintyardManager");

CImportWrittenFilesScope *s_pCurrentScope = nullptr;
ImportWrittenFilesHandler_t s_WrittenFilesHandler;

// Reports when the main thread was held longer than its budget; it stops nothing.
class CStallMonitorScope
{
public:
	CStallMonitorScope(const char *pszName, int nBudgetMs) : m_pszName(pszName), m_nBudgetMs(nBudgetMs), m_Start(std::chrono::steady_clock::now()) {}
	~CStallMonitorScope()
	{
		const long long ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - m_Start).count();
		if (ms > m_nBudgetMs)
			Log_Msg(LOG_MINTYARD_IMPORT, "Stall monitor: \"%s\" held the main thread for %lld ms (budget %d ms)\n", m_pszName, ms, m_nBudgetMs);
	}

private:
	const char *m_pszName;
	int m_nBudgetMs;
	std::chrono::steady_clock::time_point m_Start;
};

IFileSystem *FileSystem()
{
	return g_pFullFileSystem;
}

bool SourceExists(const char *pszSource)
{
	if (!pszSource || !*pszSource)
		return false;
	IFileSystem *fs = FileSystem();
	return fs ? fs->FileExists(pszSource) : Plat_FileExists(pszSource);
}

// The path with its extension lower-cased (the stem stays as it is).
CUtlString LowerExtension(const CUtlString &path)
{
	const size_t slash = path.find_last_of("/\\");
	const size_t dot = path.rfind('.');
	if (dot == CUtlString::npos || (slash != CUtlString::npos && dot < slash))
		return path;
	CUtlString out = path;
	for (size_t i = dot + 1; i < out.size(); ++i)
		out[i] = V_tolower(out[i]);
	return out;
}

// True when the path has an extension and a base file name in front of it.
bool HasNameAndExtension(const CUtlString &path)
{
	const size_t slash = path.find_last_of("/\\");
	const CUtlString file = slash == CUtlString::npos ? path : path.substr(slash + 1);
	const size_t dot = file.rfind('.');
	return dot != CUtlString::npos && dot > 0 && dot + 1 < file.size();
}

bool MakeParentFolders(const CUtlString &path)
{
	std::error_code error;
	std::filesystem::create_directories(std::filesystem::path(path.c_str()).parent_path(), error);
	return !error;
}

// Reads the source (through the file system when there is one) and writes it to the target.
bool CopyBytes(const char *pszSource, const CUtlString &target)
{
	CUtlBuffer data;
	IFileSystem *fs = FileSystem();
	const bool bRead = fs ? fs->ReadFile(pszSource, nullptr, data) : Plat_ReadFile(pszSource, data);
	return bRead && Plat_WriteFileAtomic(target.c_str(), data.Base(), data.Size());
}

// What CopyToContent and CopyToGame share, from the source check on.
bool PlaceFile(EMintyardCopyMode eMode, const char *pszSource, const CUtlString &absolute, ImportMessageList &list)
{
	if (!HasNameAndExtension(absolute))
	{
		list.AddError("#ZARN_Mintyard_Err_BadPath", absolute.c_str());
		return false;
	}
	list.Log(MINTYARD_IMPORT_LOG_INFO, "==> '%s'\n", absolute.c_str());
	SourceControlGuard guard(absolute.c_str());
	MakeParentFolders(absolute);
	if (eMode == MINTYARD_COPY_MESH && V_StrEqualNoCase(GetPathExtension(pszSource), "dmx"))
	{
		CUtlString error;
		const EMeshPreparationResult eResult = PrepareDmxMeshFile(pszSource, absolute.c_str(), error);
		if (eResult == MESH_PREPARATION_UNREADABLE)
		{
			list.Log(MINTYARD_IMPORT_LOG_ERROR, "%s\n", error.c_str());
			list.AddError("#ZARN_Mintyard_Err_NonexistentFile", pszSource);
			return false;
		}
		if (eResult == MESH_PREPARATION_NOT_SAVED)
		{
			list.Log(MINTYARD_IMPORT_LOG_ERROR, "%s\n", error.c_str());
			list.AddError("#ZARN_Mintyard_Err_FailedToCopy", absolute.c_str());
			return false;
		}
		return true;
	}
	if (!CopyBytes(pszSource, absolute))
	{
		list.AddError("#ZARN_Mintyard_Err_FailedToCopy", absolute.c_str());
		return false;
	}
	return true;
}

// "zarn_mintyard_legacy_model_import": the road of models; empty (or missing) is the model
// document road.
bool LegacyModelRoad()
{
	ConVar *var = CVar()->FindVar("zarn_mintyard_legacy_model_import");
	return var && var->GetString()[0] != 0;
}
} // namespace

// ---------------------------------------------------------------------------------------------
// Paths

CUtlString ContentPath(const CMintyardImportSession *pSession, const char *pszContentRelative)
{
	if (!pSession || pSession->GetContentRoot().empty())
		return CUtlString();
	return V_NormalizePath(V_JoinPath(pSession->GetContentRoot(), pszContentRelative ? pszContentRelative : ""));
}

CUtlString GamePath(const CMintyardImportSession *pSession, const char *pszGameRelative)
{
	if (!pSession || pSession->GetGameRoot().empty())
		return CUtlString();
	return V_NormalizePath(V_JoinPath(pSession->GetGameRoot(), pszGameRelative ? pszGameRelative : ""));
}

// ---------------------------------------------------------------------------------------------
// The run

void RunImport(CMintyardImportSession *pSession, bool bItemMode, ImportMessageList &list, bool bRelaxed)
{
	CStallMonitorScope stall("Mintyard Session Import", 5000);
	if (!pSession || pSession->GetContentRoot().empty() || pSession->GetGameRoot().empty())
	{
		list.AddError("Internal Error: Invalid game or content search path.");
		return;
	}
	ValidateElements(pSession, list, bItemMode || bRelaxed);
	if (list.GetErrorCount() > 0)
		return;

	const bool bLegacy = LegacyModelRoad();
	for (CMintyardCfg_ZarnModel *pModel : pSession->m_Models)
	{
		const int nErrorsBefore = list.GetErrorCount();
		if (bLegacy)
			list.AddError("#ZARN_Mintyard_Err_BadCfg", "Legacy model scripts are not available in this build",
				pModel->GetTemplateId().c_str());
		else
			ModelImport(pModel, list);
		if (list.GetErrorCount() == nErrorsBefore)
			ValidateCompiledModel(pModel, list);
	}
	for (CMintyardCfg_ZarnImageSet *pImageSet : pSession->m_ImageSets)
		ImageSetImport(pImageSet, bItemMode, list);
	// Sound sets and misc data have no step of their own: their files travel in the submission.
}

// ---------------------------------------------------------------------------------------------
// Placement

bool CopyToContent(EMintyardCopyMode eMode, CMintyardImportSession *pSession, const char *pszSource, const char *pszContentRelative,
	ImportMessageList &list)
{
	list.Log(MINTYARD_IMPORT_LOG_INFO, "Copying from '%s' to '%s'\n", pszSource ? pszSource : "", pszContentRelative ? pszContentRelative : "");
	if (!SourceExists(pszSource))
	{
		list.AddError("#ZARN_Mintyard_Err_FileDoesNotExist", pszSource ? pszSource : "");
		return false;
	}
	return PlaceFile(eMode, pszSource, LowerExtension(ContentPath(pSession, pszContentRelative)), list);
}

bool CopyToGame(CMintyardImportSession *pSession, const char *pszSource, const char *pszGameRelative, ImportMessageList &list)
{
	list.Log(MINTYARD_IMPORT_LOG_INFO, "Copying from '%s' to game: '%s'\n", pszSource ? pszSource : "", pszGameRelative ? pszGameRelative : "");
	if (!SourceExists(pszSource))
	{
		list.AddError("#ZARN_Mintyard_Err_FileDoesNotExist", pszSource ? pszSource : "");
		return false;
	}
	return PlaceFile(MINTYARD_COPY_VERBATIM, pszSource, GamePath(pSession, pszGameRelative), list);
}

bool CopyExistingGameFile(CMintyardImportSession *pSession, const char *pszSource, const char *pszGameRelative, ImportMessageList &list)
{
	list.Log(MINTYARD_IMPORT_LOG_INFO, "Copying existing game file '%s'\n", pszSource ? pszSource : "");
	return CopyToGame(pSession, pszSource, pszGameRelative, list);
}

bool WriteBufferToContent(CMintyardImportSession *pSession, const void *pData, size_t nSize, const char *pszContentRelative,
	ImportMessageList &list)
{
	const CUtlString absolute = ContentPath(pSession, pszContentRelative);
	if (!HasNameAndExtension(absolute))
	{
		list.AddError("#ZARN_Mintyard_Err_BadPath", absolute.c_str());
		return false;
	}
	SourceControlGuard guard(absolute.c_str());
	MakeParentFolders(absolute);
	if (!Plat_WriteFileAtomic(absolute.c_str(), pData, nSize))
	{
		list.AddError("#ZARN_Mintyard_Err_FailedToWrite", absolute.c_str());
		return false;
	}
	return true;
}

bool ResizeImageFile(const char *pszPath, int nWidth, int nHeight)
{
	if (!pszPath || nWidth <= 0 || nHeight <= 0)
		return false;
	if (GetPathExtension(pszPath) == "bmp")
		return Image_ResizeBMPFile(pszPath, nWidth, nHeight);
	QImage image;
	if (!image.load(QString::fromUtf8(pszPath)))
		return false;
	if (image.width() == nWidth && image.height() == nHeight)
		return true;
	return image.scaled(nWidth, nHeight, Qt::IgnoreAspectRatio, Qt::SmoothTransformation).save(QString::fromUtf8(pszPath));
}

// ---------------------------------------------------------------------------------------------
// Compiling

bool CompileAsset(CMintyardImportSession *pSession, const char *pszAbsolutePath, ImportMessageList &list)
{
	CUtlString name = pSession ? pSession->GetCompileLabel() : CUtlString();
	if (name.empty() && pSession && pSession->GetNameElement())
		name = pSession->GetNameElement()->Value();
	CImportLogMessageScopeGuard guard(list, name.c_str());
	ResourceCompileParams_t params;
	params.m_pListener = &guard;
	params.m_pszName = guard.GetName().c_str();
	if (pSession && !pSession->GetGameRoot().empty())
		params.m_pszGameDirectory = pSession->GetGameRoot().c_str();
	return ResourceCompilerSystem()->CompileResource(pszAbsolutePath, params);
}

CImportLogMessageScopeGuard::CImportLogMessageScopeGuard(ImportMessageList &list, const char *pszName)
	: m_List(list), m_Name(pszName ? pszName : "")
{
	// Only this listener while it lives: the compiler's lines go to the import log (which echoes
	// them to the console when asked), not twice.
	LoggingSystem_PushLoggingState(true);
	LoggingSystem_RegisterLoggingListener(this);
}

CImportLogMessageScopeGuard::~CImportLogMessageScopeGuard()
{
	LoggingSystem_PopLoggingState();
}

void CImportLogMessageScopeGuard::Log(const LoggingContext_t &context, const char *pszMessage)
{
	if (!context.bMainThread)
		return;
	const int nSeverity = context.severity < LS_WARNING ? MINTYARD_IMPORT_LOG_INFO
		: context.severity == LS_WARNING			   ? MINTYARD_IMPORT_LOG_WARNING
													   : MINTYARD_IMPORT_LOG_ERROR;
	if (m_bForwarding)
	{
		// The list's echo of what this listener just gave it: this listener is the only one
		// while it lives, so the console gets it here.
		fputs(pszMessage ? pszMessage : "", context.severity < LS_WARNING ? stdout : stderr);
		return;
	}
	m_bForwarding = true;
	m_List.Log(nSeverity, "%s", pszMessage ? pszMessage : "");
	m_bForwarding = false;
}

// ---------------------------------------------------------------------------------------------
// Written files

CImportWrittenFilesScope::CImportWrittenFilesScope() : m_pPrevious(s_pCurrentScope)
{
	s_pCurrentScope = this;
}

CImportWrittenFilesScope::~CImportWrittenFilesScope()
{
	s_pCurrentScope = m_pPrevious;
	if (s_WrittenFilesHandler && !m_Files.empty())
		s_WrittenFilesHandler(m_Files);
}

CImportWrittenFilesScope *CImportWrittenFilesScope::Current()
{
	return s_pCurrentScope;
}

void SetImportWrittenFilesHandler(ImportWrittenFilesHandler_t handler)
{
	s_WrittenFilesHandler = std::move(handler);
}

SourceControlGuard::SourceControlGuard(const char *pszAbsolutePath)
{
	if (s_pCurrentScope && pszAbsolutePath)
		s_pCurrentScope->m_Files.push_back(pszAbsolutePath);
}
