#include "mintyardtoolutils/preview/previewsession.h"

#include <cstdlib>

#include "core/keyvalues.h"
#include "core/strtools.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/core/importsession.h"

namespace
{
const CMintyardTemplate_ZarnItemDef *SessionItemTemplate(const CMintyardImportSession *pSession)
{
	if (!pSession || pSession->m_ItemDefs.size() != 1)
		return nullptr;
	return pSession->m_ItemDefs[0]->GetItemDefTemplate();
}

// The first "model_player%i" key whose value is the path (case ignored): the digits after the
// prefix give the index, none give 0. -1 when no key names the path.
int FindModelIndex(KeyValues *pKeys, const char *pszPath)
{
	if (!pKeys)
		return -1;
	for (KeyValues *pKey = pKeys->GetFirstValue(); pKey; pKey = pKey->GetNextValue())
	{
		const char *pszName = pKey->GetName();
		const char *pszFound = V_stristr(pszName, "model_player");
		if (!pszFound || V_stricmp(pKey->GetString(), pszPath) != 0)
			continue;
		return atoi(pszFound + 12);
	}
	return -1;
}
} // namespace

bool GetSessionHeroAndSlot(const CMintyardImportSession *pSession, int &nHeroIndex, int &nSlot)
{
	nHeroIndex = -1;
	nSlot = -1;
	const CMintyardTemplate_ZarnItemDef *pTemplate = SessionItemTemplate(pSession);
	if (!pTemplate || pTemplate->hero_name < 0 || pTemplate->loadout_slot < 0)
		return false;
	const hero_t *pHero = GetHeroTable().GetHero(pTemplate->hero_name);
	if (!pHero || pTemplate->loadout_slot >= (int)pHero->slots.size())
		return false;
	nHeroIndex = pTemplate->hero_name;
	nSlot = pTemplate->loadout_slot;
	return true;
}

int GetSessionPreviewMode(const CMintyardImportSession *pSession)
{
	const CMintyardTemplate_ZarnItemDef *pTemplate = SessionItemTemplate(pSession);
	if (pTemplate && V_stricmp(pTemplate->prefab_type.c_str(), "courier") == 0)
		return ZARN_PREVIEW_MODE_COURIER;
	if (pTemplate && V_stricmp(pTemplate->prefab_type.c_str(), "ward") == 0)
		return ZARN_PREVIEW_MODE_WARD;
	int nHero, nSlot;
	return GetSessionHeroAndSlot(pSession, nHero, nSlot) ? ZARN_PREVIEW_MODE_HERO : ZARN_PREVIEW_MODE_ITEM;
}

bool GetSessionPreview(CMintyardImportSession *pSession, int nModel, ZarnSessionPreview_t &out)
{
	out = ZarnSessionPreview_t();
	if (!pSession || nModel < 0 || nModel >= (int)pSession->m_Models.size())
		return false;
	out.m_ModelPath = pSession->m_Models[(size_t)nModel]->GetZmdlName();
	GetSessionHeroAndSlot(pSession, out.m_nHeroIndex, out.m_nSlot);
	out.m_nMode = GetSessionPreviewMode(pSession);
	out.m_bFlying = V_stristr(out.m_ModelPath.c_str(), "_flying") != nullptr;
	if (pSession->m_ItemDefs.size() == 1)
	{
		std::unique_ptr<CZarnPreviewItem> pItem = CZarnPreviewModelSet::BuildSubmissionTestItem(pSession->m_ItemDefs[0], 0);
		if (pItem)
		{
			out.m_pItemKeys.reset(pItem->GetKeys()->MakeCopy());
			out.m_nModelIndex = FindModelIndex(out.m_pItemKeys.get(), out.m_ModelPath.c_str());
		}
	}
	return true;
}

bool ApplySessionPreview(const ZarnSessionPreview_t &preview, CZarnPreviewModelSet &set)
{
	set.SetPreviewMode(preview.m_nMode);
	set.SetPreviewItemKeys(preview.m_pItemKeys.get(), preview.m_bFlying, preview.m_nModelIndex);
	return set.SetModel(preview.m_ModelPath.c_str(), preview.m_nHeroIndex, preview.m_nSlot, 0);
}
