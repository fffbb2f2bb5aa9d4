// What the preview of a session shows for one of its models: the model element's compiled model,
// the hero and slot it is worn in (a wearable's), the preview mode of its kind of item, the
// submission's item keys, and whether a courier is seen flying. The preview editor and
// `mintyard render` both start here.
#pragma once

#include <memory>

#include "core/keyvalues.h"
#include "core/utlstring.h"
#include "mintyardtoolutils/preview/previewmodelset.h"

class CMintyardImportSession;

struct ZarnSessionPreview_t
{
	CUtlString m_ModelPath;		// "models/<stem>.zmdl" of the model element
	int m_nHeroIndex = -1;		// in the hero table; -1 when the model stands alone
	int m_nSlot = -1;			// among the hero's slots
	int m_nMode = ZARN_PREVIEW_MODE_ITEM;
	std::unique_ptr<KeyValues> m_pItemKeys; // the submission's item keys, null without one item
	bool m_bFlying = false;		// "_flying" in the model's path
	int m_nModelIndex = -1;		// the "model_player%i" key that names the model, -1 for none
};

// The hero (an index of the hero table) and the slot (among its slots) of the session's one item
// definition, when its template names both: a wearable. False otherwise.
bool GetSessionHeroAndSlot(const CMintyardImportSession *pSession, int &nHeroIndex, int &nSlot);
// The preview mode of the session's kind of item: a courier (3) or ward (4) by the item
// definition's prefab, a hero (0) for a wearable, an item shown alone (2) otherwise.
int GetSessionPreviewMode(const CMintyardImportSession *pSession);
// Works out the preview of model element `nModel`; false when there is no such element.
bool GetSessionPreview(CMintyardImportSession *pSession, int nModel, ZarnSessionPreview_t &out);
// Hands a preview to a set: mode, item keys, then the model. False (the set unchanged but for its
// mode and keys) when no compiled model exists at the path.
bool ApplySessionPreview(const ZarnSessionPreview_t &preview, CZarnPreviewModelSet &set);
