// The two checks between an author's art and the game's budgets: the topology of each source
// mesh as it enters a model document, and the compiled model against the budgets of its levels,
// the bone rules and the hero's reference skeleton. Nearly every finding is a warning.
#pragma once

#include "mintyardtoolutils/core/importmessages.h"

class CMintyardCfg_ZarnModel;
class CModelDocNode;

// Checks the compiled model of a model element ("models/<stem>.zmdl_c" under the game root).
void ValidateCompiledModel(CMintyardCfg_ZarnModel *pModel, ImportMessageList &list);

// Checks the source mesh at `pszSourcePath` (FBX or DMX) on its own connectivity. True unless the
// import of the model has added an error so far (the findings themselves are warnings; an error
// of another model of the run does not count). A mesh that cannot be read, or has no positions,
// is logged and passes.
bool ValidateMeshTopology(CMintyardCfg_ZarnModel *pModel, CModelDocNode *pMeshNode, const char *pszSourcePath, ImportMessageList &list);

// A bone name the game takes: a letter or '_' first, then letters, digits and '_'.
bool IsValidBoneName(const char *pszName);
// Whether the unskinned test applies to a slot index (the hero's own model slots).
bool SlotTakesUnskinnedTest(int nSlotIndex);
