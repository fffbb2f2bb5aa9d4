#include "mintyardtoolutils/pipeline/imagesetimport.h"

#include <climits>
#include <cstdlib>

#include "core/keyvalues.h"
#include "core/strtools.h"
#include "imaging/imageload.h"
#include "imaging/imageresize.h"
#include "imaging/imagewrite.h"
#include "mintyardtoolutils/core/cfgelements.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/core/templateaccess.h"
#include "mintyardtoolutils/pipeline/importdriver.h"
#include "mintyardtoolutils/pipeline/importstages.h"

namespace
{
const char *const kRecipeFormat =
	"<!-- dmx encoding keyvalues2_noids 1 format ztex 1 -->\n"
	"\"CDmeZtex\"\n"
	"{\n"
	"\t\"m_inputTextureArray\" \"element_array\" \n"
	"\t[\n"
	"\t\t\"CDmeInputTexture\"\n"
	"\t\t{\n"
	"\t\t\t\"m_name\" \"string\" \"0\"\n"
	"\t\t\t\"m_fileName\" \"string\" \"%s\"\n"
	"\t\t\t\"m_colorSpace\" \"string\" \"linear\"\n"
	"\t\t\t\"m_typeString\" \"string\" \"2D\"\n"
	"\t\t\t\"m_imageProcessorArray\" \"element_array\"\n"
	"\t\t\t[\n"
	"\t\t\t\t\"CDmeImageProcessor\"\n"
	"\t\t\t\t{\n"
	"\t\t\t\t\t\"m_algorithm\" \"string\" \"ConvertToYCoCg\"\n"
	"\t\t\t\t}\n"
	"\t\t\t]\n"
	"\t\t}\n"
	"\t]\n"
	"\t\"m_outputTypeString\" \"string\" \"2D\"\n"
	"\t\"m_outputFormat\" \"string\" \"DXT5\"\n"
	"\t\"m_textureOutputChannelArray\" \"element_array\"\n"
	"\t[\n"
	"\t\t\"CDmeTextureOutputChannel\"\n"
	"\t\t{\n"
	"\t\t\t\"m_inputTextureArray\" \"string_array\"\n"
	"\t\t\t\t[\n"
	"\t\t\t\t\t\"0\"\n"
	"\t\t\t\t]\n"
	"\t\t\t\"m_srcChannels\" \"string\" \"rgba\"\n"
	"\t\t\t\"m_dstChannels\" \"string\" \"rgba\"\n"
	"\t\t\t\"m_mipAlgorithm\" \"CDmeImageProcessor\"\n"
	"\t\t\t{\n"
	"\t\t\t\t\"m_algorithm\" \"string\" \"None\"\n"
	"\t\t\t}\n"
	"\t\t\t\"m_outputColorSpace\" \"string\" \"linear\"\n"
	"\t\t}\n"
	"\t]\n"
	"}\n";

CUtlString ImportName(const CMintyardImportSession *pSession)
{
	return pSession && pSession->GetNameElement() ? pSession->GetNameElement()->Value() : CUtlString();
}

void LoadingScreenImport(CMintyardCfg_ZarnImageSet *pImageSet, ImportMessageList &list)
{
	CMintyardImportSession *pSession = pImageSet->GetRootSession();
	const bool bLoadingScreen = ImageSetType(pImageSet->GetImageSetTemplate()) == MINTYARD_IMAGE_SET_LOADING_SCREEN;
	for (CMintyardCfg_ZarnImageSet::CImage *pImage : pImageSet->m_Images)
	{
		if (pImage->IsEmpty())
			continue;
		list.Log(MINTYARD_IMPORT_LOG_INFO, "Reading loading screen: %s\n", pImage->Value().c_str());
		CImageRGBA8 source;
		CUtlString error;
		CImportStageTimer timer(MINTYARD_STAGE_IMAGES);
		if (!Image_LoadFile(pImage->Value().c_str(), source, &error))
		{
			list.Log(MINTYARD_IMPORT_LOG_ERROR, "%s\n", error.c_str());
			list.AddError("#ZARN_Mintyard_Err_BadCfg", "Image", pImage->GetTemplateElement()->name.c_str());
			return;
		}
		CImageRGBA8 screen;
		CUtlBuffer png;
		if (!Image_Resize(source, LOADING_SCREEN_WIDTH, LOADING_SCREEN_HEIGHT, screen, &error) || !Image_EncodePNG(screen, png, &error))
		{
			list.Log(MINTYARD_IMPORT_LOG_ERROR, "%s\n", error.c_str());
			list.AddError("#ZARN_Mintyard_Err_Internal", "Rescale image");
			continue;
		}
		const CUtlString pngPath = bLoadingScreen ? V_Format("canopy/images/loadingscreens/%s/loadingscreen.png", ImportName(pSession).c_str()) : CUtlString();
		list.Log(MINTYARD_IMPORT_LOG_INFO, "Writing png: %s\n", pngPath.c_str());
		if (!WriteBufferToContent(pSession, png.Base(), png.Size(), pngPath.c_str(), list))
			continue;
		if (png.Size() == 0)
			continue;
		const CUtlString recipePath = V_Format("canopy/images/loadingscreens/%s/loadingscreen.ztex", ImportName(pSession).c_str());
		list.Log(MINTYARD_IMPORT_LOG_INFO, "Writing ztex: %s\n", recipePath.c_str());
		const CUtlString recipe = LoadingScreenRecipe(pngPath.c_str());
		if (!WriteBufferToContent(pSession, recipe.data(), recipe.size(), recipePath.c_str(), list))
			return;
		list.Log(MINTYARD_IMPORT_LOG_INFO, "Compiling ztex: %s\n", recipePath.c_str());
		const CUtlString absolute = ContentPath(pSession, recipePath.c_str());
		if (!CompileAsset(pSession, absolute.c_str(), list))
		{
			list.AddError("#ZARN_Mintyard_Err_FailedToCompile", absolute.c_str());
			return;
		}
	}
}

void CursorImport(CMintyardCfg_ZarnImageSet *pImageSet, ImportMessageList &list)
{
	CMintyardImportSession *pSession = pImageSet->GetRootSession();
	const CUtlString directory = V_Format("resource/cursor/mintyard/%s", ImportName(pSession).c_str());
	for (CMintyardCfg_ZarnImageSet::CImage *pImage : pImageSet->m_Images)
	{
		if (pImage->IsEmpty())
			continue;
		const CUtlString destination = V_Format("%s/%s.bmp", directory.c_str(), pImage->GetTemplateId().c_str());
		if (!CopyToGame(pSession, pImage->Value().c_str(), destination.c_str(), list))
			return;
	}
	CopyExistingGameFile(pSession, GamePath(pSession, "resource/cursor/cursor.res").c_str(), (directory + "/cursor.res").c_str(), list);
}

void AbilityIconImport(CMintyardCfg_ZarnImageSet *pImageSet, ImportMessageList &list)
{
	CMintyardImportSession *pSession = pImageSet->GetRootSession();
	const CMintyardTemplate *pTemplate = pSession->GetTemplate();
	// "abilityicons.<hero>": the hero the icons belong to.
	const CUtlString id = pTemplate ? pTemplate->id : CUtlString();
	const hero_t *pHero = nullptr;
	if (V_StrBeginsWithNoCase(id, "abilityicons.") && id.size() > 13)
		pHero = GetHeroTable().FindHero(id.c_str() + 13);
	if (!pHero)
	{
		list.AddError("Unrecognized abilityicons template name: %1", id.c_str());
		return;
	}
	const CUtlString heroDirectory = pHero->className.empty() ? CUtlString(GetHeroShortName(pHero->name.c_str())) : pHero->className;
	for (CMintyardCfg_ZarnImageSet::CImage *pImage : pImageSet->m_Images)
	{
		if (pImage->IsEmpty())
			continue;
		const CUtlString destination = V_Format("canopy/images/spellicons/%s/%s/%s.png", heroDirectory.c_str(), ImportName(pSession).c_str(),
			pImage->GetTemplateId().c_str());
		if (!CopyToContent(MINTYARD_COPY_VERBATIM, pSession, pImage->Value().c_str(), destination.c_str(), list))
			return;
	}
}

void EmoticonImport(CMintyardCfg_ZarnImageSet *pImageSet, ImportMessageList &list)
{
	CMintyardImportSession *pSession = pImageSet->GetRootSession();
	const CUtlString listPath = GamePath(pSession, "scripts/emoticons.txt");
	KeyValues emoticons("emoticons");
	CUtlString error;
	if (!emoticons.LoadFromFile(nullptr, listPath.c_str(), nullptr, KV1LoadOptions_t(), &error))
	{
		list.Log(MINTYARD_IMPORT_LOG_ERROR, "%s\n", error.c_str());
		list.AddError("Failed to load emoticons.txt");
		return;
	}
	int highest = 0;
	for (KeyValues *pKey = emoticons.GetFirstSubKey(); pKey; pKey = pKey->GetNextKey())
		highest = std::max(highest, atoi(pKey->GetName()));
	int id = highest + 1;
	pImageSet->m_nEmoticonMinId = id;
	pImageSet->m_nEmoticonMaxId = id;
	int count = 0;
	for (CMintyardCfg_ZarnImageSet::CEmoticon *pEmoticon : pImageSet->m_Emoticons)
	{
		if (!pEmoticon->m_pImage || pEmoticon->m_pImage->IsEmpty())
			continue;
		const CUtlString fileName = count == 0 ? V_Format("%s.png", ImportName(pSession).c_str()) : V_Format("%s_%d.png", ImportName(pSession).c_str(), count);
		if (!CopyToContent(MINTYARD_COPY_VERBATIM, pSession, pEmoticon->m_pImage->Value().c_str(),
				V_Format("canopy/images/emoticons/%s", fileName.c_str()).c_str(), list))
			return;
		KeyValues *pEntry = emoticons.AddKey(V_Format("%d", id).c_str());
		pEntry->SetString("image_name", fileName.c_str());
		pEntry->SetInt("ms_per_frame", 100);
		if (pEmoticon->m_pDefaultFrame && !pEmoticon->m_pDefaultFrame->IsEmpty())
			pEntry->SetInt("default_frame", atoi(pEmoticon->m_pDefaultFrame->Value().c_str()));
		pEntry->FindKey("aliases", true)->SetString("0", pEmoticon->m_pKeyword ? pEmoticon->m_pKeyword->Value().c_str() : "");
		pImageSet->m_nEmoticonMaxId = id;
		++id;
		++count;
	}
	SourceControlGuard guard(listPath.c_str());
	if (!emoticons.SaveToFile(nullptr, listPath.c_str(), nullptr, &error))
	{
		list.Log(MINTYARD_IMPORT_LOG_ERROR, "%s\n", error.c_str());
		list.AddError("Failed to save emoticons.txt");
	}
}
} // namespace

CUtlString LoadingScreenRecipe(const char *pszPngPath)
{
	return V_Format(kRecipeFormat, pszPngPath ? pszPngPath : "");
}

void ImageSetImport(CMintyardCfg_ZarnImageSet *pImageSet, bool bItemMode, ImportMessageList &list)
{
	if (!pImageSet || !pImageSet->GetRootSession())
		return;
	CImportWrittenFilesScope scope;
	switch (ImageSetType(pImageSet->GetImageSetTemplate()))
	{
	case MINTYARD_IMAGE_SET_MARKETING_IMAGE:
		break;
	case MINTYARD_IMAGE_SET_EMOTICON:
		if (bItemMode)
			EmoticonImport(pImageSet, list);
		break;
	case MINTYARD_IMAGE_SET_ABILITY_ICONS:
		if (bItemMode)
			AbilityIconImport(pImageSet, list);
		break;
	case MINTYARD_IMAGE_SET_CURSOR_PACK:
		CursorImport(pImageSet, list);
		break;
	default:
		LoadingScreenImport(pImageSet, list);
		break;
	}
}
