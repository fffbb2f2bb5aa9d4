#include "mintyardtoolutils/pipeline/modelimport.h"

#include <filesystem>

#include "core/strtools.h"
#include "filesystem/filesystem.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/pipeline/importdriver.h"
#include "mintyardtoolutils/pipeline/importstages.h"
#include "mintyardtoolutils/pipeline/materialimport.h"
#include "mintyardtoolutils/pipeline/modelvalidation.h"
#include "modeldoc/modeldoc.h"
#include "toolframework/toolframework.h"

namespace
{
const char *const kRunBundleAnims[8] = { "run_anim_base", "run_anim_base2", "run_anim_base3", "run_anim_base4", "run_anim_base5",
	"run_anim_turnpose_center", "run_anim_turnpose_left", "run_anim_turnpose_right" };
const char *const kTurnPoseNames[3] = { "center_pose", "left_pose", "right_pose" };

int s_nErrorsAtModelStart = 0;

CUtlString ImportName(const CMintyardCfgElement *pElement)
{
	const CMintyardImportSession *pSession = pElement ? pElement->GetRootSession() : nullptr;
	return pSession && pSession->GetNameElement() ? pSession->GetNameElement()->Value() : CUtlString();
}

void BadCfg(ImportMessageList &list, const char *pszReason, const CUtlString &name)
{
	list.AddError("#ZARN_Mintyard_Err_BadCfg", pszReason, name.c_str());
}

// Creates a node; a refusal adds the BadCfg error with the reason and the name.
CModelDocNode *AddNamedNode(CModelDoc &doc, const char *pszClass, const CUtlString &name, CModelDocNode *pParent, ImportMessageList &list,
	const char *pszReason)
{
	CModelDocNode *pNode = doc.AddNode(pszClass, name, pParent);
	if (!pNode)
		BadCfg(list, pszReason, name);
	return pNode;
}

CMintyardCfg_ZarnModel::CAnim *FindAnim(const CUtlVector<CMintyardCfg_ZarnModel::CAnim *> &anims, const char *pszId)
{
	for (CMintyardCfg_ZarnModel::CAnim *pAnim : anims)
	{
		if (V_StrEqualNoCase(pAnim->GetTemplateId(), pszId))
			return pAnim;
	}
	return nullptr;
}

const CMintyardTemplate_ZarnModel::CAnim *FindTemplateAnim(const CUtlVector<CMintyardTemplate_ZarnModel::CAnim> &anims, const char *pszId)
{
	for (const CMintyardTemplate_ZarnModel::CAnim &anim : anims)
	{
		if (V_StrEqualNoCase(anim.id, pszId))
			return &anim;
	}
	return nullptr;
}

CMintyardCfg_ZarnModel::CAnimBundle *FindBundle(const CMintyardCfg_ZarnModel *pModel, const CUtlString &id)
{
	for (CMintyardCfg_ZarnModel::CAnimBundle *pBundle : pModel->m_Bundles)
	{
		if (V_StrEqualNoCase(pBundle->GetTemplateId(), id))
			return pBundle;
	}
	return nullptr;
}

// The source of an animation: its own file, else its fallback's file, else the template's default
// (a game path resolved through "GAME") when the model has no skeleton of its own. With
// always_use_default_anim only the default counts, and it is taken as it stands.
CUtlString AnimSource(const CMintyardCfg_ZarnModel::CAnim *pAnim, const CMintyardTemplate_ZarnModel::CAnim *pTemplate, bool bHonourAlways)
{
	const CMintyardCfg_ZarnModel *pModel = pAnim->GetParentModel();
	const bool bCustomSkeleton = pModel && pModel->m_bHasCustomSkeleton;
	if (bHonourAlways && pTemplate->always_use_default_anim)
		return bCustomSkeleton ? CUtlString() : pTemplate->default_anim;
	CUtlString source = pAnim->Value();
	if (source.empty() && !pTemplate->fallback_anim_id.empty())
	{
		if (CMintyardImportSession *pSession = pAnim->GetRootSession())
		{
			const auto *pOther = dynamic_cast<const CMintyardCfg_ZarnModel::CAnim *>(FindElement(pSession, pTemplate->fallback_anim_id.c_str()));
			if (pOther)
				source = pOther->Value();
		}
	}
	if (source.empty() && !bCustomSkeleton && !pAnim->GetAnimTemplate()->default_anim.empty())
	{
		char full[4096];
		if (g_pFullFileSystem && g_pFullFileSystem->RelativePathToFullPath(pAnim->GetAnimTemplate()->default_anim.c_str(), "GAME", full, sizeof(full)))
			source = full;
	}
	return source;
}

// "models/<stem><suffix>.<extension>".
CUtlString AnimDestination(const CUtlString &stem, const CMintyardTemplate_ZarnModel::CAnim *pTemplate, const CUtlString &source)
{
	return V_Format("models/%s%s.%s", stem.c_str(), pTemplate->suffix.c_str(), GetPathExtension(source.c_str()).c_str());
}

// The destination as CopyToContent writes it: the extension in lower case.
CUtlString PlacedName(const CUtlString &destination)
{
	CUtlString out = destination;
	const size_t dot = out.rfind('.');
	for (size_t i = dot == CUtlString::npos ? out.size() : dot + 1; i < out.size(); ++i)
		out[i] = V_tolower(out[i]);
	return out;
}

void SetActivity(CModelDoc &doc, CModelDocNode *pAnim, const CMintyardTemplate_ZarnModel::CAnim *pTemplate)
{
	pAnim->SetString("activity_name", pTemplate->activity_name);
	pAnim->SetInt("activity_weight", pTemplate->activity_weight);
	for (const CMintyardTemplate_ZarnModel::CAnim::Modifier_t &modifier : pTemplate->modifiers)
	{
		if (CModelDocNode *pModifier = doc.AddNode("ActivityModifier", {}, pAnim))
		{
			pModifier->SetString("activity_name", modifier.modifier_name);
			pModifier->SetInt("activity_weight", modifier.modifier_weight);
		}
	}
}

// The pose parameter of that name, made with its range -1 to 1 when missing.
bool AddPoseParam(CModelDoc &doc, const CUtlString &name, ImportMessageList &list)
{
	if (doc.FindNode("poseparam", name))
		return true;
	CModelDocNode *pParam = AddNamedNode(doc, "PoseParam", name, nullptr, list, "Invalid poseparam name");
	if (!pParam)
		return false;
	pParam->SetFloat("poseparam_min", -1.0f);
	pParam->SetFloat("poseparam_max", 1.0f);
	pParam->SetBool("poseparam_looping", false);
	pParam->SetFloat("poseparam_loop", 0.0f);
	return true;
}

// An animation is imported when it has a file, its fallback leads to one, or a default applies.
bool IsAnimToImport(const CMintyardCfg_ZarnModel::CAnim *pAnim)
{
	return !IsAnimAbsent(pAnim);
}
} // namespace

int ModelImportErrorBaseline()
{
	return s_nErrorsAtModelStart;
}

CUtlString ModelOutputStem(const CMintyardCfg_ZarnModel *pModel)
{
	return pModel ? pModel->GetModelBasePath() : CUtlString();
}

CUtlString MeshNodeName(const CMintyardCfg_ZarnModel *pModel, int nLodIndex, int nExtraIndex)
{
	CUtlString name = ImportName(pModel) + pModel->GetModelNameSuffix();
	if (nLodIndex > 0)
		name += V_Format("_lod%d", nLodIndex);
	if (nExtraIndex >= 0)
		name += V_Format("_extra%d", nExtraIndex);
	return name;
}

bool AddMeshNode(CMintyardCfg_ZarnModel *pModel, CModelDoc &doc, CMintyardCfg_ZarnMesh *pMesh, int nLodIndex, int nExtraIndex,
	ImportMessageList &list, CUtlVector<CUtlString> &outMeshNames)
{
	CMintyardImportSession *pSession = pModel->GetRootSession();
	CUtlString file = "models/" + ModelOutputStem(pModel);
	if (nLodIndex > 0)
		file += V_Format("_lod%d", nLodIndex);
	if (nExtraIndex >= 0)
		file += V_Format("_extra%d", nExtraIndex);
	file += "." + GetPathExtension(pMesh->Value().c_str());
	if (!CopyToContent(MINTYARD_COPY_MESH, pSession, pMesh->Value().c_str(), file.c_str(), list))
		return false;
	const CUtlString placed = PlacedName(file);
	const CUtlString name = MeshNodeName(pModel, nLodIndex, nExtraIndex);
	CModelDocNode *pNode = AddNamedNode(doc, "RenderMeshFile", name, nullptr, list, "Bad or duplicate mesh name");
	if (!pNode)
		return false;
	pNode->SetString("filename", placed);
	if (!ValidateMeshTopology(pModel, pNode, ContentPath(pSession, placed.c_str()).c_str(), list))
	{
		list.AddError("#ZARN_Mintyard_Err_InvalidMesh", pNode->GetName().c_str());
		return false;
	}
	outMeshNames.push_back(pNode->GetName());
	return true;
}

bool AddMaterialGroups(CMintyardCfg_ZarnModel *pModel, CModelDoc &doc, const CUtlVector<CMintyardCfg_ZarnMaterial *> &materials,
	ImportMessageList &list)
{
	const CUtlString stem = ModelOutputStem(pModel);
	CUtlString defaultPath;
	for (size_t i = 0; i < materials.size(); ++i)
	{
		CMintyardCfg_ZarnMaterial *pMaterial = materials[i];
		if (!pMaterial || pMaterial->IsEmpty())
			continue;
		const CUtlString path = V_Format("materials/models/%s%s.zmat", stem.c_str(), pMaterial->GetMaterialTemplate()->material_name_suffix.c_str());
		if (!MaterialImport(pMaterial, path.c_str(), list))
			return false;
		CModelDocNode *pList = doc.GetOrCreateListNode("MaterialGroupList");
		if (i == 0)
		{
			CModelDocNode *pDefault = doc.AddNode("DefaultMaterialGroup", {}, pList);
			if (!pDefault)
				return false;
			pDefault->SetBool("use_global_default", true);
			pDefault->SetString("global_default_material", path);
			defaultPath = path;
			continue;
		}
		CModelDocNode *pGroup = AddNamedNode(doc, "MaterialGroup", pMaterial->GetMaterialTemplate()->material_group_name, pList, list,
			"Bad material group name");
		if (!pGroup)
			return false;
		pGroup->AddRemap("remaps", defaultPath, path);
	}
	return true;
}

bool AddAnimFileNode(CMintyardCfg_ZarnModel::CAnim *pAnim, CModelDoc &doc, const CMintyardTemplate_ZarnModel::CAnim *pTemplateAnim,
	const CUtlString &stem, ImportMessageList &list)
{
	const CMintyardTemplate_ZarnModel::CAnim *pTemplate = pTemplateAnim ? pTemplateAnim : pAnim->GetAnimTemplate();
	const CUtlString source = AnimSource(pAnim, pTemplate, true);
	if (source.empty())
		return true;
	const CUtlString destination = AnimDestination(stem, pTemplate, source);
	if (!CopyToContent(MINTYARD_COPY_ANIMATION, pAnim->GetRootSession(), source.c_str(), destination.c_str(), list))
		return false;
	CModelDocNode *pNode = AddNamedNode(doc, "AnimFile", pTemplate->sequence_name, nullptr, list, "Bad or duplicate anim name");
	if (!pNode)
		return false;
	pNode->SetString("source_filename", PlacedName(destination));
	pNode->SetBool("looping", pTemplate->looping);
	if (pTemplate->delta_animation)
	{
		if (CModelDocNode *pSubtract = doc.AddNode("AnimSubtract", {}, pNode))
		{
			pSubtract->SetString("anim_name", pTemplate->sequence_name);
			pSubtract->SetInt("frame", 0);
		}
		pNode->SetBool("delta", true);
	}
	if (!pTemplate->bone_weight_list.empty())
	{
		const CUtlString listName = "weightlist_" + pTemplate->sequence_name;
		CModelDocNode *pWeights = AddNamedNode(doc, "WeightList", listName, nullptr, list, "Bad or duplicate weightlist name");
		if (!pWeights)
			return false;
		for (const CMintyardTemplate_ZarnModel::CAnim::BoneWeight_t &weight : pTemplate->bone_weight_list)
			pWeights->SetWeight("weights", weight.bone_name, weight.bone_weight);
		pNode->SetString("weight_list_name", listName);
	}
	if (pTemplate->add_motion_extraction)
	{
		if (CModelDocNode *pExtract = doc.AddNode("ExtractMotion", {}, pNode))
			pExtract->SetBool("extract_tx", true);
	}
	SetActivity(doc, pNode, pTemplate);
	for (const CMintyardTemplate_ZarnModel::CAnim::AnimEvent_t &event : pTemplate->anim_events)
	{
		if (CModelDocNode *pEvent = doc.AddNode("AnimEvent", {}, pNode))
		{
			pEvent->SetString("event_class", event.event_name);
			pEvent->SetInt("event_frame", event.frame_num);
			pEvent->SetKV3("event_keys", event.event_kv3.Get());
		}
	}
	return true;
}

bool ImportBlendBundle(CMintyardCfg_ZarnModel *, CMintyardCfg_ZarnModel::CAnimBundle *pBundle, CModelDoc &doc, const CUtlString &stem,
	ImportMessageList &list)
{
	const CMintyardTemplate_ZarnModel::CAnimBundle *pTemplate = pBundle->GetBundleTemplate();
	if (!AddPoseParam(doc, pTemplate->pose_param_name, list))
		return false;
	CModelDocNode *pBlend = AddNamedNode(doc, "1DBlend", pTemplate->compound_sequence_name, nullptr, list, "Bad or duplicate sequence name");
	if (!pBlend)
		return false;
	pBlend->SetBool("looping", pTemplate->compound_looping);
	pBlend->SetString("activity_name", pTemplate->compound_activity_name);
	pBlend->SetString("blend_pose_param", pTemplate->pose_param_name);
	CUtlVector<ModelDocBlendKey_t> keys;
	for (CMintyardCfg_ZarnModel::CAnim *pAnim : pBundle->m_Anims)
	{
		if (pAnim->IsEmpty())
			continue;
		if (!AddAnimFileNode(pAnim, doc, nullptr, stem, list))
			return false;
		keys.push_back({ pAnim->GetAnimTemplate()->sequence_name, 0.0f });
	}
	// The keys spread evenly over -1 to 1; a single key stands at 1.
	const size_t n = keys.size();
	for (size_t i = 0; i < n; ++i)
		keys[i].m_flValue = n == 1 ? 1.0f : 2.0f * (float)i / (float)(n - 1) - 1.0f;
	pBlend->SetBlendKeys("blend_keys", keys);
	return true;
}

bool ImportRunBundle(CMintyardCfg_ZarnModel *pModel, CMintyardCfg_ZarnModel::CAnimBundle *pBundle, CModelDoc &doc, const CUtlString &stem,
	ImportMessageList &list)
{
	const CMintyardTemplate_ZarnModel::CAnimBundle *pTemplate = pBundle->GetBundleTemplate();
	const CMintyardTemplate_ZarnModel::CAnim *templates[8];
	CMintyardCfg_ZarnModel::CAnim *elements[8];
	for (int i = 0; i < 8; ++i)
	{
		templates[i] = FindTemplateAnim(pTemplate->anim_list, kRunBundleAnims[i]);
		elements[i] = FindAnim(pBundle->m_Anims, kRunBundleAnims[i]);
	}
	for (int i : { 0, 5, 6, 7 })
	{
		if (!templates[i] || !elements[i])
			return false;
	}
	const bool bTurnPoses = !elements[5]->IsEmpty() && !elements[6]->IsEmpty() && !elements[7]->IsEmpty();

	CUtlString copies[8];
	for (int i = 0; i < 8; ++i)
	{
		if (!templates[i] || !elements[i])
			continue;
		const CUtlString source = AnimSource(elements[i], templates[i], false);
		if (source.empty())
			continue;
		const CUtlString destination = AnimDestination(stem, templates[i], source);
		if (!CopyToContent(MINTYARD_COPY_ANIMATION, pModel->GetRootSession(), source.c_str(), destination.c_str(), list))
			return false;
		copies[i] = PlacedName(destination);
	}

	if (bTurnPoses)
	{
		for (int p = 0; p < 3; ++p)
		{
			const int i = 5 + p;
			CModelDocNode *pPose = AddNamedNode(doc, "AnimFile", kTurnPoseNames[p], nullptr, list, "Bad or duplicate pose name");
			if (!pPose)
				return false;
			pPose->SetString("source_filename", copies[i]);
			pPose->SetInt("start_frame", 0);
			pPose->SetInt("end_frame", 0);
			CModelDocNode *pSequence = AddNamedNode(doc, "AnimFile", templates[i]->sequence_name, nullptr, list, "Bad or duplicate sequence name");
			if (!pSequence)
				return false;
			pSequence->SetString("source_filename", copies[i]);
			if (CModelDocNode *pSubtract = doc.AddNode("AnimSubtract", {}, pSequence))
			{
				pSubtract->SetString("anim_name", "center_pose");
				pSubtract->SetInt("frame", 0);
			}
		}
		if (!AddPoseParam(doc, "turn", list))
			return false;
		CModelDocNode *pBlend = AddNamedNode(doc, "1DBlend", pTemplate->compound_sequence_name, nullptr, list, "Bad or duplicate sequence name");
		if (!pBlend)
			return false;
		pBlend->SetString("blend_pose_param", "turn");
		pBlend->AddBlendKey("blend_keys", templates[6]->sequence_name, -1.0f);
		pBlend->AddBlendKey("blend_keys", templates[5]->sequence_name, 0.0f);
		pBlend->AddBlendKey("blend_keys", templates[7]->sequence_name, 1.0f);
		pBlend->SetBool("delta", true);
		const CUtlString &rootBone = pModel->GetModelTemplate()->root_bone_name;
		for (int i = 0; i < 5; ++i)
		{
			if (copies[i].empty())
				continue;
			CModelDocNode *pRun = AddNamedNode(doc, "AnimFile", templates[i]->sequence_name, nullptr, list, "Bad or duplicate sequence name");
			if (!pRun)
				return false;
			pRun->SetString("source_filename", copies[i]);
			pRun->SetBool("looping", true);
			if (!templates[i]->suppress_run_motion_extraction)
			{
				if (CModelDocNode *pExtract = doc.AddNode("ExtractMotion", {}, pRun))
				{
					pExtract->SetBool("extract_tx", true);
					pExtract->SetString("root_bone_name", rootBone.empty() ? CUtlString("root") : rootBone);
				}
			}
			SetActivity(doc, pRun, templates[i]);
			if (CModelDocNode *pLayer = doc.AddNode("AnimAddLayer", {}, pRun))
				pLayer->SetString("anim_name", pTemplate->compound_sequence_name);
		}
		return true;
	}
	for (int i = 0; i < 5; ++i)
	{
		if (copies[i].empty())
			continue;
		CModelDocNode *pRun = AddNamedNode(doc, "AnimFile", templates[i]->sequence_name, nullptr, list, "Bad or duplicate anim name");
		if (!pRun)
			return false;
		pRun->SetString("source_filename", copies[i]);
		pRun->SetBool("looping", true);
		pRun->SetString("activity_name", templates[i]->activity_name);
		pRun->SetInt("activity_weight", 1);
	}
	return true;
}

void ModelImport(CMintyardCfg_ZarnModel *pModel, ImportMessageList &list)
{
	if (!pModel)
		return;
	CImportWrittenFilesScope scope;
	CImportStageTimer timer(MINTYARD_STAGE_DOCUMENTS);
	s_nErrorsAtModelStart = list.GetErrorCount();
	CMintyardImportSession *pSession = pModel->GetRootSession();
	const CMintyardTemplate_ZarnModel *pTemplate = pModel->GetModelTemplate();
	list.Log(MINTYARD_IMPORT_LOG_INFO, "Importing model: %s\n", pModel->GetTemplateId().c_str());
	const CUtlString importName = ImportName(pModel);
	if (importName.empty())
	{
		BadCfg(list, "Invalid import name", importName);
		return;
	}
	if (pTemplate->can_be_empty && pModel->IsEmpty())
	{
		list.Log(MINTYARD_IMPORT_LOG_INFO, "Skipping empty model.\n");
		return;
	}
	CModelDoc doc;
	const CUtlString stem = ModelOutputStem(pModel);

	// Levels of detail: at most two; an empty level uses no output number.
	int nOutputLod = 0;
	for (size_t i = 0; i < pModel->m_Lods.size(); ++i)
	{
		CMintyardCfg_ZarnMesh *pLod = pModel->m_Lods[i];
		if (i >= 2)
		{
			BadCfg(list, "Too Many LODs", pLod->GetTemplateId());
			return;
		}
		if (pLod->IsEmpty())
			continue;
		CUtlVector<CUtlString> meshNames;
		if (!AddMeshNode(pModel, doc, pLod, nOutputLod, -1, list, meshNames))
			return;
		for (size_t e = 0; e < pLod->m_ExtraMeshes.size(); ++e)
		{
			if (!pLod->m_ExtraMeshes[e]->IsEmpty() && !AddMeshNode(pModel, doc, pLod->m_ExtraMeshes[e], nOutputLod, (int)e, list, meshNames))
				return;
		}
		CModelDocNode *pGroup = doc.AddNode("LODGroup");
		if (!pGroup)
			return;
		pGroup->SetStringArray("meshes", meshNames);
		pGroup->SetFloat("switch_threshold", i == 0 ? 0.0f : 1.0f);
		++nOutputLod;
	}

	for (const CMintyardTemplate_ZarnModel::CBodyGroup &bodyGroup : pTemplate->bodygroup_list)
	{
		CModelDocNode *pGroup = AddNamedNode(doc, "BodyGroup", bodyGroup.bodygroup_name, nullptr, list, "Bad or duplicate bodygroup name");
		if (!pGroup)
			return;
		for (const CMintyardTemplate_ZarnModel::CBodyGroup::Choice_t &choice : bodyGroup.choices)
		{
			CModelDocNode *pChoice = doc.AddNode("BodyGroupChoice", {}, pGroup);
			if (!pChoice)
				return;
			for (const CUtlString &expression : choice.meshes)
			{
				CUtlString mesh;
				if (!ResolveExpression(pSession, expression.c_str(), mesh))
				{
					BadCfg(list, "Bad Expression", expression);
					return;
				}
				if (!mesh.empty())
					pChoice->AddToStringArray("meshes", mesh);
			}
		}
	}

	const CMintyardCfg_ZarnModel *pMaterialSource = pModel;
	if (!pTemplate->share_materials_from_model.empty())
	{
		pMaterialSource = pSession->FindModelById(pTemplate->share_materials_from_model.c_str());
		if (!pMaterialSource)
		{
			BadCfg(list, "Model (Shared Material Source)", pTemplate->share_materials_from_model);
			return;
		}
	}
	if (!AddMaterialGroups(pModel, doc, pMaterialSource->m_Materials, list))
		return;

	doc.AddNode("AnimBindPose", "bind_pose");
	for (CMintyardCfg_ZarnModel::CAnim *pAnim : pModel->m_Anims)
	{
		if (IsAnimToImport(pAnim) && !AddAnimFileNode(pAnim, doc, nullptr, stem, list))
			return;
	}

	for (const CMintyardTemplate_ZarnModel::CAnimBundle &bundleTemplate : pTemplate->anim_bundle_list)
	{
		CMintyardCfg_ZarnModel::CAnimBundle *pFirstNamed = FindBundle(pModel, bundleTemplate.id);
		CMintyardCfg_ZarnModel::CAnimBundle *pChosen = nullptr;
		CUtlVector<CUtlString> names = { bundleTemplate.id };
		names.insert(names.end(), bundleTemplate.fallback_bundles.begin(), bundleTemplate.fallback_bundles.end());
		for (const CUtlString &name : names)
		{
			CMintyardCfg_ZarnModel::CAnimBundle *pBundle = FindBundle(pModel, name);
			if (pBundle && !IsBundleAbsent(pBundle))
			{
				pChosen = pBundle;
				break;
			}
		}
		if (!pChosen)
			continue;
		bool bOk = true;
		switch (bundleTemplate.bundle_type)
		{
		case MINTYARD_ANIM_BUNDLE_RUN:
			bOk = ImportRunBundle(pModel, pChosen, doc, stem, list);
			break;
		case MINTYARD_ANIM_BUNDLE_LOOP_AND_RARE:
		{
			const CMintyardCfg_ZarnModel::CAnimBundle *pSettings = pFirstNamed ? pFirstNamed : pChosen;
			for (CMintyardCfg_ZarnModel::CAnim *pAnim : pChosen->m_Anims)
			{
				if (!IsAnimToImport(pAnim))
					continue;
				const CMintyardTemplate_ZarnModel::CAnim *pMatch =
					FindTemplateAnim(pSettings->GetBundleTemplate()->anim_list, pAnim->GetTemplateId().c_str());
				if (pMatch && !AddAnimFileNode(pAnim, doc, pMatch, stem, list))
				{
					bOk = false;
					break;
				}
			}
			break;
		}
		case MINTYARD_ANIM_BUNDLE_MULTIBLEND:
			bOk = ImportBlendBundle(pModel, pChosen, doc, stem, list);
			break;
		default:
			list.AddError("#ZARN_Mintyard_Err_BadTemplate", "AnimBundle", bundleTemplate.id.c_str());
			bOk = false;
			break;
		}
		if (!bOk)
			return;
	}

	for (const CMintyardCfg_ZarnModel::CAttach *pAttach : pModel->m_Attaches)
	{
		if (pAttach->IsEmpty())
			continue;
		CModelDocNode *pNode = AddNamedNode(doc, "Attachment", pAttach->GetAttachTemplate()->attach_name, nullptr, list, "Bad Attachment Name");
		if (!pNode)
			return;
		pNode->SetString("parent_bone", pAttach->Value());
		pNode->SetVector("relative_origin", Vector(pAttach->m_flOffset[0], pAttach->m_flOffset[1], pAttach->m_flOffset[2]));
		pNode->SetAngles("relative_angles", QAngle(pAttach->m_flRotation[0], pAttach->m_flRotation[1], pAttach->m_flRotation[2]));
	}

	for (CMintyardCfg_ZarnModel::CParticleSnapshot *pSnapshot : pModel->m_Snapshots)
	{
		if (pSnapshot->IsEmpty())
			continue;
		const CMintyardTemplate_ZarnModel::CParticleSnapshot *pSnapTemplate = pSnapshot->GetSnapshotTemplate();
		const CUtlString destination = V_Format("particles/models/%s%s.%s", stem.c_str(), pSnapTemplate->file_suffix.c_str(),
			GetPathExtension(pSnapshot->Value().c_str()).c_str());
		if (!CopyToContent(MINTYARD_COPY_MESH, pSession, pSnapshot->Value().c_str(), destination.c_str(), list))
			return;
		CModelDocNode *pNode = doc.AddNode("ZSNAPFile");
		if (!pNode)
			return;
		pNode->SetString("filename", PlacedName(destination));
		pNode->SetString("local_space_bone", pSnapTemplate->snapshot_bone);
		pNode->SetString("output_zsnap", V_Format("particles/models/%s%s.zsnap", stem.c_str(), pSnapTemplate->file_suffix.c_str()));
	}

	if (!pTemplate->auto_hitbox_set_name.empty() && !AddNamedNode(doc, "HitboxSet_Auto", pTemplate->auto_hitbox_set_name, nullptr, list,
														 "Bad Hitbox Set Name"))
		return;
	for (const CMintyardTemplate_ZarnModel::Hitbox_t &hitbox : pTemplate->hitbox_list)
	{
		CModelDocNode *pSet = doc.FindNode("hitboxset", hitbox.set_name);
		if (pSet && !pSet->IsClass("HitboxSet"))
			pSet = nullptr;
		if (!pSet && !(pSet = AddNamedNode(doc, "HitboxSet", hitbox.set_name, nullptr, list, "Bad Hitbox Set Name")))
			return;
		CModelDocNode *pBox = AddNamedNode(doc, "Hitbox", hitbox.box_name, pSet, list, "Bad Hitbox Name");
		if (!pBox)
			return;
		pBox->SetString("parent_bone", hitbox.bone_name);
		pBox->SetVector("hitbox_mins", hitbox.min_bounds);
		pBox->SetVector("hitbox_maxs", hitbox.max_bounds);
	}

	const CUtlString documentPath = ContentPath(pSession, pModel->GetZmdlName().c_str());
	{
		SourceControlGuard guard(documentPath.c_str());
		std::error_code ignored;
		std::filesystem::create_directories(std::filesystem::path(documentPath.c_str()).parent_path(), ignored);
		CUtlString error;
		if (!doc.SaveToFile(documentPath.c_str(), &error))
		{
			list.Log(MINTYARD_IMPORT_LOG_ERROR, "%s\n", error.c_str());
			list.AddError("#ZARN_Mintyard_Err_FailedToWrite", documentPath.c_str());
			return;
		}
	}
	list.Log(MINTYARD_IMPORT_LOG_INFO, "Compiling model: %s\n", pModel->GetZmdlName().c_str());
	if (!CompileAsset(pSession, documentPath.c_str(), list))
		list.AddError("#ZARN_Mintyard_Err_FailedToCompile", documentPath.c_str());
}
