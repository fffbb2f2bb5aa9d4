#include "mintyardtoolutils/pipeline/modelvalidation.h"

#include <set>

#include "compiledassets/compiledassets.h"
#include "core/strtools.h"
#include "meshio/meshtopology.h"
#include "meshio/meshsource.h"
#include "mintyardtoolutils/core/cfgelements.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/pipeline/importdriver.h"
#include "mintyardtoolutils/pipeline/modelimport.h"
#include "mintyardtoolutils/pipeline/importstages.h"
#include "modeldoc/modeldoc.h"

namespace
{
const int kMaxListedBadBoneNames = 8;

CUtlString BaseFileName(const CUtlString &path)
{
	const size_t slash = path.find_last_of("/\\");
	return slash == CUtlString::npos ? path : path.substr(slash + 1);
}

// The hero's model for the persona of the session's slot: the reference skeleton of the unskinned
// test. Empty when the session has not exactly one item definition with a hero and a slot, or
// the slot is not one the test applies to.
CUtlString ReferenceModelPath(const CMintyardImportSession *pSession)
{
	if (!pSession || pSession->m_ItemDefs.size() != 1)
		return CUtlString();
	const CMintyardTemplate_ZarnItemDef *pTemplate = pSession->m_ItemDefs[0]->GetItemDefTemplate();
	if (!pTemplate || pTemplate->hero_name < 0 || pTemplate->loadout_slot < 0)
		return CUtlString();
	const hero_t *pHero = GetHeroTable().GetHero(pTemplate->hero_name);
	if (!pHero || pTemplate->loadout_slot >= (int)pHero->slots.size())
		return CUtlString();
	const hero_slot_t &slot = pHero->slots[pTemplate->loadout_slot];
	if (!SlotTakesUnskinnedTest(slot.slotIndex))
		return CUtlString();
	const int persona = slot.persona == 255 ? 0 : slot.persona;
	if (persona < 0 || persona >= (int)pHero->personaModels.size() || pHero->personaModels[persona].empty())
		return CUtlString();
	return pHero->personaModels[persona][0].model;
}
} // namespace

bool IsValidBoneName(const char *pszName)
{
	if (!pszName || !*pszName)
		return false;
	auto Letter = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; };
	if (!Letter(pszName[0]))
		return false;
	for (const char *p = pszName + 1; *p; ++p)
	{
		if (!Letter(*p) && !(*p >= '0' && *p <= '9'))
			return false;
	}
	return true;
}

bool SlotTakesUnskinnedTest(int nSlotIndex)
{
	return (nSlotIndex >= 0 && nSlotIndex <= 19) || (nSlotIndex >= 37 && nSlotIndex <= 56) || nSlotIndex == 65 || nSlotIndex == 66;
}

void ValidateCompiledModel(CMintyardCfg_ZarnModel *pModel, ImportMessageList &list)
{
	if (!pModel)
		return;
	CImportStageTimer timer(MINTYARD_STAGE_CHECKS);
	const CMintyardTemplate_ZarnModel *pTemplate = pModel->GetModelTemplate();
	if (pTemplate->can_be_empty && pModel->IsEmpty())
	{
		list.Log(MINTYARD_IMPORT_LOG_INFO, "Skipping validate of empty model.\n");
		return;
	}
	CMintyardImportSession *pSession = pModel->GetRootSession();
	const CUtlString compiledPath = GamePath(pSession, (pModel->GetZmdlName() + "_c").c_str());
	CCompiledModel model;
	CUtlString error;
	if (!LoadCompiledModel(compiledPath.c_str(), model, &error))
	{
		list.Log(MINTYARD_IMPORT_LOG_ERROR, "%s\n", error.c_str());
		list.AddError("#ZARN_Mintyard_Error_FailedToLoadCompiledModel", compiledPath.c_str());
		return;
	}

	// The reference skeleton may be missing: the unskinned test is then off.
	CCompiledModel reference;
	bool bReference = false;
	const CUtlString referencePath = ReferenceModelPath(pSession);
	if (!referencePath.empty())
		bReference = LoadCompiledModel(GamePath(pSession, (referencePath + "_c").c_str()).c_str(), reference);

	const CUtlVector<CMintyardTemplate_ZarnMesh> &lods = pTemplate->lod_list;
	for (size_t i = 0; i < lods.size(); ++i)
	{
		const CMintyardTemplate_ZarnMesh &lodTemplate = lods[i];
		CMintyardCfg_ZarnMesh *pLod = nullptr;
		for (CMintyardCfg_ZarnMesh *pCandidate : pModel->m_Lods)
		{
			if (V_StrEqualNoCase(pCandidate->GetTemplateId(), lodTemplate.id))
			{
				pLod = pCandidate;
				break;
			}
		}
		if (!pLod)
			continue;
		const CUtlString fileName = BaseFileName(pLod->Value());
		uint64 nPolygons = 0;
		std::set<CUtlString> bones;
		int nBadNames = 0;
		for (int m = 0; m < model.GetMeshCount(); ++m)
		{
			if (i >= 32 || !(model.GetMeshLodMask(m) & (1u << i)))
				continue;
			bool bAnyReferenceBone = false;
			for (int b = 0; b < model.GetMeshBoneCount(m); ++b)
			{
				const char *pszBone = model.GetMeshBoneName(m, b);
				if (!IsValidBoneName(pszBone))
				{
					if (nBadNames < kMaxListedBadBoneNames)
						list.AddWarning("#ZARN_Mintyard_Error_InvalidBoneName", pszBone);
					++nBadNames;
				}
				bones.insert(pszBone);
				bAnyReferenceBone = bAnyReferenceBone || (bReference && reference.FindBone(pszBone) >= 0);
			}
			if (nBadNames >= kMaxListedBadBoneNames)
				list.AddWarning("#ZARN_Mintyard_Error_ManyInvalidBoneNames", V_Format("%d", nBadNames).c_str());
			nPolygons += model.GetMeshPrimitiveCount(m);
			if (bReference && !pModel->m_bHasCustomSkeleton && !bAnyReferenceBone)
				list.AddWarning("#ZARN_Mintyard_Error_Unskinned", fileName.c_str());
		}
		const int nMaxBones = lodTemplate.max_bones;
		if ((int)bones.size() > nMaxBones)
			list.AddWarning("#ZARN_Mintyard_Error_TooManyBones", fileName.c_str(), V_Format("%d", (int)bones.size()).c_str(),
				V_Format("%d", nMaxBones).c_str());
		if (nPolygons > (uint64)std::max(0, lodTemplate.max_polygons))
		{
			if (lodTemplate.extra_meshes.empty())
				list.AddWarning("#ZARN_Mintyard_OutOfBudget", lodTemplate.name.c_str(), fileName.c_str(),
					V_Format("%llu", (unsigned long long)nPolygons).c_str(), V_Format("%d", lodTemplate.max_polygons).c_str());
			else
				list.AddWarning("#ZARN_Mintyard_CombinedOutOfBudget", V_Format("%d", (int)i).c_str(),
					V_Format("%llu", (unsigned long long)nPolygons).c_str(), V_Format("%d", lodTemplate.max_polygons).c_str());
		}
	}
}

bool ValidateMeshTopology(CMintyardCfg_ZarnModel *, CModelDocNode *pMeshNode, const char *pszSourcePath, ImportMessageList &list)
{
	CImportStageTimer timer(MINTYARD_STAGE_CHECKS);
	const CUtlString source = pszSourcePath ? pszSourcePath : "";
	SourceScene_t scene;
	CUtlString error;
	if (!LoadSourceScene(source.c_str(), scene, error))
	{
		list.Log(MINTYARD_IMPORT_LOG_ERROR, "Couldn't load %s to validate it. Reason: %s\n", source.c_str(), error.c_str());
		return true; // a broken source does not stop the import here
	}
	MeshTopologyReport_t report;
	CheckSourceTopology(scene, report);
	if (!report.bHasPositions)
	{
		list.Log(MINTYARD_IMPORT_LOG_ERROR, "Model %s doesn't contain 'position' vertext stream and so it could not be validated.\n",
			pMeshNode ? pMeshNode->GetName().c_str() : source.c_str());
		return true;
	}
	if (report.nIsolatedEdges >= 1)
		list.AddWarning("#ZARN_Mintyard_Err_IsolatedEdges", source.c_str(), V_Format("%d", report.nIsolatedEdges).c_str());
	if (report.nNonManifoldEdges >= 1)
		list.AddWarning("#ZARN_Mintyard_Err_NonManifoldEdges", source.c_str(), V_Format("%d", report.nNonManifoldEdges).c_str());
	if (report.nBorderEdges > 0)
	{
		if (report.bUnwelded)
			list.AddWarning("#ZARN_Mintyard_Err_UnweldedVertices", source.c_str());
		else
			list.AddWarning("#ZARN_Mintyard_Err_BorderEdges", source.c_str(), V_Format("%d", report.nBorderEdges).c_str());
	}
	if (report.bFlipped)
		list.AddWarning("#ZARN_Mintyard_Err_FlippedNormals", source.c_str());
	// Every finding is a warning: the mesh fails only when its model's import has failed already.
	return list.GetErrorCount() <= ModelImportErrorBaseline();
}
