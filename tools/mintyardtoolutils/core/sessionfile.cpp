#include "mintyardtoolutils/core/sessionfile.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <sys/stat.h>

#include "core/fileio.h"
#include "core/kv3text.h"
#include "core/logging.h"
#include "core/strtools.h"
#include "core/utlbuffer.h"
#include "mintyardtoolutils/core/cfgelementlists.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/core/templateaccess.h"
#include "zip/zip_utils.h"

namespace
{
uint64 s_nAccountId = 0;

// A value of the high-resolution clock that differs between calls.
uint64 ClockStamp()
{
	static uint64 s_nLast = 0;
	uint64 now = (uint64)std::chrono::high_resolution_clock::now().time_since_epoch().count();
	if (now <= s_nLast)
		now = s_nLast + 1;
	s_nLast = now;
	return now;
}

CUtlString MakeAbsolute(const char *pszPath)
{
	std::error_code error;
	std::filesystem::path path = std::filesystem::absolute(pszPath ? pszPath : "", error);
	return error ? CUtlString(pszPath ? pszPath : "") : path.lexically_normal().string();
}

uint64 FileSizeBytes(const CUtlString &path)
{
	struct stat st;
	if (stat(path.c_str(), &st) != 0)
		return 0;
	return (uint64)st.st_size;
}

// The zip container keeps its entry names in lower case; a file key that names an entry with
// upper-case letters finds the unpacked file under the lower-cased name.
void RelinkToLowerCaseEntries(CMintyardCfgElement *pElement, const CUtlString &basePath);

void RelinkFile(CMintyardCfgFilename *pFile, const CUtlString &basePath)
{
	const CUtlString &value = pFile->Value();
	if (value.empty() || Plat_FileExists(value.c_str()) || value.compare(0, basePath.size(), basePath) != 0)
		return;
	CUtlString lowered = value.substr(0, basePath.size());
	for (size_t i = basePath.size(); i < value.size(); ++i)
		lowered += V_tolower(value[i]);
	if (Plat_FileExists(lowered.c_str()))
		pFile->SetValue(lowered.c_str());
}

void RelinkToLowerCaseEntries(CMintyardCfgElement *pElement, const CUtlString &basePath)
{
	if (CMintyardCfgFilename *pFile = dynamic_cast<CMintyardCfgFilename *>(pElement))
		RelinkFile(pFile, basePath);
	if (CMintyardCfgElementContainer *pContainer = pElement->AsContainer())
	{
		for (CMintyardCfgElement *pChild : pContainer->GetChildren())
			RelinkToLowerCaseEntries(pChild, basePath);
	}
}

// Every entry name of the zip is checked before anything is written, so a hostile zip leaves
// nothing behind. Returns the first refused name in *pBad.
bool AllEntriesSafe(IZip *pZip, CUtlString *pBad)
{
	std::vector<char> name(0x10000 + 1);
	int nSize = 0;
	for (int id = pZip->GetNextFilename(-1, name.data(), (int)name.size(), nSize); id != -1;
		 id = pZip->GetNextFilename(id, name.data(), (int)name.size(), nSize))
	{
		if (!Zip_IsSafeEntryName(name.data()))
		{
			*pBad = name.data();
			return false;
		}
	}
	return true;
}
} // namespace

void SetMintyardSessionAccountId(uint64 nBrumeId)
{
	s_nAccountId = nBrumeId;
}

uint64 GetMintyardSessionAccountId()
{
	return s_nAccountId;
}

bool BuildSessionDocument(const CMintyardImportSession &session, SaveContext &ctx, ImportMessageList &list)
{
	const CMintyardTemplate *pTemplate = session.GetTemplate();
	if (!pTemplate)
	{
		list.AddError("#ZARN_Mintyard_Err_SessionSaveNoTemplate");
		return false;
	}
	KeyValues3 *pRoot = ctx.pContext->Root();
	MakeTable(pRoot);
	SetMemberString(pRoot, "template_name", TemplateId(pTemplate));
	SetMemberString(pRoot, "import_name", session.GetNameElement()->Value());
	SetMemberString(pRoot, "brume_id", V_Format("0x%08x", (uint32)(s_nAccountId & 0xffffffffu)));
	SetMemberInt(pRoot, "import_version", MINTYARD_SESSION_IMPORT_VERSION);
	return SaveCfgElementList(ctx, pRoot, "model_list", session.m_Models, list) && SaveCfgElementList(ctx, pRoot, "image_set_list", session.m_ImageSets, list) &&
		   SaveCfgElementList(ctx, pRoot, "sound_set_list", session.m_SoundSets, list) && SaveCfgElementList(ctx, pRoot, "misc_data_list", session.m_MiscData, list);
}

bool ApplySessionDocument(CMintyardImportSession &session, const LoadContext &ctx, const KeyValues3 *pRoot, ImportMessageList &list)
{
	CUtlString templateName;
	ReadString(FindMember(pRoot, "template_name"), templateName);
	const CMintyardTemplate *pTemplate = session.GetCatalogue().FindTemplate(templateName.c_str());
	if (!pTemplate)
	{
		list.AddError("#ZARN_Mintyard_Err_SessionLoadBadTemplate", templateName.c_str());
		return false;
	}
	if (session.GetTemplate() && session.GetTemplate() != pTemplate)
	{
		list.AddError("#ZARN_Mintyard_Err_SessionLoadCannotChangeTemplate", templateName.c_str());
		return false;
	}
	session.SetTemplate(pTemplate);
	CUtlString importName;
	ReadString(FindMember(pRoot, "import_name"), importName);
	session.GetNameElement()->SetValue(importName.c_str());
	return LoadCfgElementList(ctx, pRoot, "model_list", session.m_Models, list) && LoadCfgElementList(ctx, pRoot, "image_set_list", session.m_ImageSets, list) &&
		   LoadCfgElementList(ctx, pRoot, "sound_set_list", session.m_SoundSets, list) && LoadCfgElementList(ctx, pRoot, "misc_data_list", session.m_MiscData, list);
}

bool SaveSessionFile(const CMintyardImportSession &session, const char *pszPath, ImportMessageList &list)
{
	CKeyValues3Context document;
	SaveContext ctx;
	ctx.isZip = false;
	ctx.pContext = &document;
	if (!BuildSessionDocument(session, ctx, list))
		return false;
	CUtlBuffer buffer(CUtlBuffer::TEXT_BUFFER);
	CUtlString error;
	if (!SaveKV3(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC, document.Root(), &error, &buffer))
		list.AddError("#ZARN_Mintyard_Err_SessionSaveKV3", error.c_str());
	CUtlString writeError;
	if (!pszPath || !*pszPath || !Plat_WriteFileAtomic(pszPath, buffer.Base(), buffer.Size(), &writeError))
	{
		list.AddError("#ZARN_Mintyard_Err_FailedToWrite", pszPath ? pszPath : "");
		return false;
	}
	return true;
}

bool LoadSessionFile(CMintyardImportSession &session, const LoadContext &ctx, const char *pszPath, ImportMessageList &list)
{
	CMintyardSuppressChangeNotifications suppress;
	CKeyValues3Context document;
	CUtlString error;
	if (!LoadKV3FromFile(&document, &error, pszPath, nullptr, KV3_FORMAT_GENERIC))
	{
		list.AddError("#ZARN_Mintyard_Err_SessionLoadKV3", error.c_str());
		return false;
	}
	return ApplySessionDocument(session, ctx, document.Root(), list);
}

bool SaveSubmissionZip(const CMintyardImportSession &session, CUtlString &outPath, ImportMessageList &list)
{
	outPath.clear();
	const CUtlString name = session.GetNameElement()->Value();
	const CUtlString relative = V_Format("%s/mintyard_submit_%s_%llx.zip", name.c_str(), name.c_str(), (unsigned long long)ClockStamp());
	CUtlString scratch = session.GetScratchDir();
	if (!scratch.empty() && scratch.back() != '/')
		scratch += "/";
	const CUtlString fullPath = scratch + relative;
	std::error_code fsError;
	std::filesystem::create_directories(std::filesystem::path(fullPath).parent_path(), fsError);
	if (Plat_FileExists(fullPath.c_str()))
	{
		list.AddError("#ZARN_Mintyard_Err_ZipExists");
		return false;
	}
	FILE *fp = fopen(fullPath.c_str(), "wb+");
	if (!fp)
	{
		list.AddError("#ZARN_Mintyard_Err_ZipCannotOpen");
		return false;
	}
	IZip *pZip = IZip::CreateZip();
	if (!pZip)
	{
		list.AddError("#ZARN_Mintyard_Err_ZipCannotCreate");
		fclose(fp);
		std::error_code ignored;
		std::filesystem::remove(fullPath.c_str(), ignored);
		return false;
	}
	// A zip that could not be made whole is not left behind.
	auto Finish = [&](bool bResult) {
		IZip::ReleaseZip(pZip);
		fclose(fp);
		if (!bResult)
		{
			std::error_code ignored;
			std::filesystem::remove(fullPath.c_str(), ignored);
		}
		return bResult;
	};

	CKeyValues3Context document;
	SaveContext ctx;
	ctx.isZip = true;
	ctx.pContext = &document;
	if (!BuildSessionDocument(session, ctx, list))
		return Finish(false);
	CUtlBuffer buffer(CUtlBuffer::TEXT_BUFFER);
	CUtlString error;
	if (!SaveKV3(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC, document.Root(), &error, &buffer))
	{
		list.AddError("#ZARN_Mintyard_Err_SessionSaveKV3", error.c_str());
		return Finish(false);
	}
	pZip->AddBufferToZip(MINTYARD_ZIP_MANIFEST_NAME, buffer.Base(), (int64)buffer.Size(), true);

	const int nLimitKB = TemplateMaxSubmissionSizeKB(session.GetTemplate());
	if (nLimitKB > 0)
	{
		uint64 nSumKB = 0;
		for (const MintyardSubmitFile_t &file : ctx.files)
			nSumKB += FileSizeBytes(file.source) / 1024;
		if (nSumKB > (uint64)nLimitKB)
			list.AddWarning("#ZARN_Mintyard_Err_SessionTooBig", V_Format("%llu", (unsigned long long)nSumKB).c_str(), V_Format("%d", nLimitKB).c_str());
	}
	for (const MintyardSubmitFile_t &file : ctx.files)
	{
		if (!pZip->AddFileToZip(file.zipName.c_str(), file.source.c_str()))
		{
			list.AddError("#ZARN_Mintyard_Err_AddToZip", file.source.c_str());
			return Finish(false);
		}
	}
	if (!pZip->SaveToDisk(fp) || fflush(fp) != 0)
	{
		list.AddError("#ZARN_Mintyard_Err_FailedToWrite", fullPath.c_str());
		return Finish(false);
	}
	Finish(true);
	outPath = fullPath;
	return true;
}

bool LoadSubmissionZip(CMintyardImportSession &session, const char *pszPath, ImportMessageList &list, CUtlString *pUnpackedFolder)
{
	CMintyardSuppressChangeNotifications suppress;
	const CUtlString zipPath = MakeAbsolute(pszPath);
	std::unique_ptr<IZip, void (*)(IZip *)> pZip(IZip::CreateZip(), &IZip::ReleaseZip);
	if (!pZip || !pZip->ParseFromDisk(zipPath.c_str()))
	{
		list.AddError("#ZARN_Mintyard_Err_ZipCannotCreate");
		return false;
	}
	CUtlString scratch = session.GetScratchDir();
	if (!scratch.empty() && scratch.back() != '/')
		scratch += "/";
	const CUtlString baseName = std::filesystem::path(zipPath).stem().string();
	const CUtlString folder = MakeAbsolute((scratch + V_Format("%s_unzip_%llx", baseName.c_str(), (unsigned long long)ClockStamp())).c_str());
	if (pUnpackedFolder)
		*pUnpackedFolder = folder;

	if (pZip->FileExistsInZip(MINTYARD_GEN1_ZIP_MANIFEST_NAME))
	{
		// Submissions of the older generation are converted by a step of their own, which this
		// build does not have.
		list.AddError("This is an older-generation submission zip (it holds \"manifest.txt\"); converting it is not supported yet.");
		session.ClearElements();
		return false;
	}
	if (!pZip->FileExistsInZip(MINTYARD_ZIP_MANIFEST_NAME))
	{
		list.AddError("#ZARN_Mintyard_Err_ZipWithoutManifest");
		return false;
	}
	CUtlString badEntry;
	if (!AllEntriesSafe(pZip.get(), &badEntry))
	{
		list.AddError("#ZARN_Mintyard_Err_ZipCannotCreate");
		list.AddError(V_Format("Refused the zip entry '%s' of %s: it would be written outside the folder it is unpacked to.", badEntry.c_str(), zipPath.c_str()).c_str());
		return false;
	}
	CUtlString error;
	if (!Zip_ExtractAll(pZip.get(), folder.c_str(), &error))
	{
		list.AddError("#ZARN_Mintyard_Err_ZipCannotCreate");
		Warning("%s\n", error.c_str());
		return false;
	}
	pZip.reset();
	const CUtlString manifestPath = folder + "/" + MINTYARD_ZIP_MANIFEST_NAME;
	if (!Plat_FileExists(manifestPath.c_str()))
	{
		list.AddError("Internal Error: Unzip lost manifest");
		return false;
	}
	LoadContext ctx;
	ctx.rewritePaths = true;
	ctx.basePath = folder;
	CKeyValues3Context document;
	if (!LoadKV3FromFile(&document, &error, manifestPath.c_str(), nullptr, KV3_FORMAT_GENERIC))
	{
		list.AddError("#ZARN_Mintyard_Err_SessionLoadKV3", error.c_str());
		return false;
	}
	const bool bOk = ApplySessionDocument(session, ctx, document.Root(), list);
	RelinkToLowerCaseEntries(&session, folder + "/");
	return bOk;
}
