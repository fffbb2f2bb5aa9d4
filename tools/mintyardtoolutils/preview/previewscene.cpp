#include "mintyardtoolutils/preview/previewscene.h"

#include <algorithm>
#include <cmath>

#include "core/keyvalues.h"
#include "core/strtools.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/preview/previewmodelset.h"
#include "toolscene/toolscene.h"

namespace
{
// The tint of the reference model: the stock model of the slot, seen through a blue wash.
const Vector4D REFERENCE_TINT(0.35f, 0.6f, 1.0f, 0.6f);
// Room between the hero and a summoned unit beside it.
const float SUMMON_GAP = 16.0f;

bool NodeBounds(const CToolSceneModelNode *pNode, Vector &mins, Vector &maxs)
{
	return pNode && pNode->HasModel() && pNode->GetWorldBounds(mins, maxs);
}

// A body group whose current choice draws nothing shows its first choice that draws something:
// a wearable's meshes stand in the choice its slot's body group turns on, and the preview is
// there to show them.
void ShowBodyGroupMeshes(CToolSceneModelNode *pNode)
{
	const CCompiledModel *pModel = pNode->GetCompiledModel();
	if (!pModel)
		return;
	for (size_t g = 0; g < pModel->m_BodyGroups.size(); ++g)
	{
		const CompiledBodyGroup_t &group = pModel->m_BodyGroups[g];
		const int nCurrent = pNode->GetBodyGroupChoice((int)g);
		if (nCurrent >= 0 && nCurrent < (int)group.m_Choices.size() && !group.m_Choices[(size_t)nCurrent].m_Meshes.empty())
			continue;
		for (size_t choice = 0; choice < group.m_Choices.size(); ++choice)
		{
			if (!group.m_Choices[choice].m_Meshes.empty())
			{
				pNode->SetBodyGroupChoice((int)g, (int)choice);
				break;
			}
		}
	}
}
} // namespace

CZarnPreviewScene::CZarnPreviewScene(CToolScene *pScene) : m_pScene(pScene)
{
}

CZarnPreviewScene::~CZarnPreviewScene()
{
	Clear();
}

void CZarnPreviewScene::Clear()
{
	auto remove = [this](CToolSceneModelNode *&pNode) {
		if (pNode && m_pScene->ContainsNode(pNode))
			m_pScene->RemoveNode(pNode);
		pNode = nullptr;
	};
	// Wearables first: they follow the subject's bones.
	for (CToolSceneModelNode *&pNode : m_Wearables)
		remove(pNode);
	for (CToolSceneModelNode *&pNode : m_Summons)
		remove(pNode);
	remove(m_pReference);
	// The model under preview is the subject or one of the wearables.
	m_pModel = nullptr;
	remove(m_pSubject);
	m_Wearables.clear();
	m_Summons.clear();
	m_LoadErrors.clear();
}

CToolSceneModelNode *CZarnPreviewScene::MakeModel(const char *pszPath, int nSkin)
{
	CToolSceneModelNode *pNode = m_pScene->CreateModelNode();
	pNode->SetName(pszPath);
	pNode->SetSelectable(true);
	CUtlString error;
	if (!pNode->SetModel(pszPath, &error))
	{
		m_LoadErrors.push_back(V_Format("%s: %s", pszPath, error.c_str()));
		return pNode;
	}
	if (nSkin > 0)
		pNode->SetMaterialGroupIndex(nSkin);
	ShowBodyGroupMeshes(pNode);
	return pNode;
}

void CZarnPreviewScene::Build(const CZarnPreviewModelSet &set)
{
	Clear();
	const int nMode = set.GetPreviewMode();
	m_bHeroScene = set.GetHero() && (nMode == ZARN_PREVIEW_MODE_HERO || nMode == ZARN_PREVIEW_MODE_UNIT);
	if (set.GetSubjectModel().empty())
		return;
	m_pSubject = MakeModel(set.GetSubjectModel().c_str(), set.GetSubjectSkin());
	if (set.IsSubjectTheModel())
		m_pModel = m_pSubject;

	if (m_bHeroScene)
	{
		for (const ZarnPreviewWearableModel_t &wearable : set.GetWearableModels())
		{
			CToolSceneModelNode *pNode = MakeModel(wearable.m_ModelPath.c_str(), wearable.m_nSkin);
			pNode->SetBoneMergeParent(m_pSubject);
			m_Wearables.push_back(pNode);
			if (wearable.m_bSubmission && !m_pModel)
				m_pModel = pNode;
		}
		// The slot's stock model, for comparison.
		const hero_t *pHero = set.GetHero();
		if (set.IsShowingReferenceModel() && set.GetSlot() >= 0 && set.GetSlot() < (int)pHero->slots.size())
		{
			KeyValues *pDefault = FindHeroDefaultItem(*pHero, pHero->slots[set.GetSlot()].slotName.c_str());
			const char *pszModel = pDefault ? pDefault->GetString("model_player") : "";
			if (*pszModel)
			{
				m_pReference = MakeModel(pszModel, 0);
				m_pReference->SetBoneMergeParent(m_pSubject);
				m_pReference->SetTint(REFERENCE_TINT);
				m_pReference->SetSelectable(false);
			}
		}
		if (set.IsShowingSummons())
		{
			Vector mins, maxs;
			float flSide = NodeBounds(m_pSubject, mins, maxs) ? maxs.y : 0.0f;
			for (const ZarnPreviewSummonModel_t &summon : set.GetSummonModels())
			{
				CToolSceneModelNode *pNode = MakeModel(summon.m_ModelPath.c_str(), 0);
				Vector summonMins, summonMaxs;
				const float flHalf = NodeBounds(pNode, summonMins, summonMaxs) ? (summonMaxs.y - summonMins.y) * 0.5f : 0.0f;
				pNode->SetPosition(Vector(0.0f, flSide + SUMMON_GAP + flHalf, 0.0f));
				flSide += SUMMON_GAP + flHalf * 2.0f;
				m_Summons.push_back(pNode);
			}
		}
	}
	if (!m_pModel)
		m_pModel = m_pSubject;
	ApplyAnimation(set);
	ApplyDisplayOptions(set);
}

void CZarnPreviewScene::ApplyAnimation(const CZarnPreviewModelSet &set)
{
	auto play = [](CToolSceneModelNode *pNode, const char *pszSequence) {
		if (!pNode || !pNode->HasModel())
			return;
		const int nWanted = (pszSequence && *pszSequence) ? pNode->GetCompiledModel()->FindSequence(pszSequence) : -1;
		if (nWanted >= 0)
		{
			if (pNode->Animator().GetSequence() != nWanted)
				pNode->SetSequenceIndex(nWanted);
			return;
		}
		const int nIdle = ToolScene_FindSequenceForActivity(*pNode->GetCompiledModel(), ZARN_PREVIEW_DEFAULT_ACTIVITY);
		if (nIdle >= 0 && pNode->Animator().GetSequence() != nIdle)
			pNode->SetSequenceIndex(nIdle);
	};
	play(m_pSubject, set.GetSequence().c_str());
	if (m_pSubject)
	{
		m_pSubject->SetPlaybackRate(set.GetPlaybackSpeed());
		m_pSubject->SetPlaying(set.IsPlaying());
		if (!set.IsPlaying())
			m_pSubject->SetFrame((float)set.GetFrame());
	}
	// Wearables follow the hero's bones; one that stands alone as the subject plays above.
	for (CToolSceneModelNode *pNode : m_Summons)
		play(pNode, nullptr);
}

void CZarnPreviewScene::ApplyDisplayOptions(const CZarnPreviewModelSet &set)
{
	const bool bLod1 = set.IsShowingLod1();
	if (m_pSubject)
	{
		m_pSubject->SetShowLod1(bLod1);
		// A hidden hero still drives its wearables' bones.
		m_pSubject->SetVisible(!(m_bHeroScene && set.IsHeroHidden()));
	}
	for (CToolSceneModelNode *pNode : m_Wearables)
		pNode->SetShowLod1(bLod1);
	for (CToolSceneModelNode *pNode : m_Summons)
		pNode->SetShowLod1(bLod1);
	if (m_pReference)
		m_pReference->SetShowLod1(bLod1);
}

void CZarnPreviewScene::FrameCamera(CToolSceneCamera &camera, float flAspect, float flYaw, float flPitch) const
{
	Vector mins, maxs;
	bool bAny = false;
	auto grow = [&](const CToolSceneModelNode *pNode) {
		Vector nodeMins, nodeMaxs;
		if (!pNode || !pNode->IsVisible() || !NodeBounds(pNode, nodeMins, nodeMaxs))
			return;
		if (!bAny)
		{
			mins = nodeMins;
			maxs = nodeMaxs;
			bAny = true;
			return;
		}
		mins = Vector(std::min(mins.x, nodeMins.x), std::min(mins.y, nodeMins.y), std::min(mins.z, nodeMins.z));
		maxs = Vector(std::max(maxs.x, nodeMaxs.x), std::max(maxs.y, nodeMaxs.y), std::max(maxs.z, nodeMaxs.z));
	};
	grow(m_pSubject);
	for (const CToolSceneModelNode *pNode : m_Wearables)
		grow(pNode);
	for (const CToolSceneModelNode *pNode : m_Summons)
		grow(pNode);
	if (!bAny)
	{
		mins = Vector(-50.0f, -50.0f, 0.0f);
		maxs = Vector(50.0f, 50.0f, 100.0f);
	}
	const Vector center = (mins + maxs) * 0.5f;
	const Vector size = maxs - mins;
	const float flRadius = std::max(1.0f, SceneLength(size) * 0.5f);
	// The camera stands in front of the models (they face -Y), turned about the centre.
	const float flYawRad = SceneRadians(flYaw), flPitchRad = SceneRadians(flPitch);
	const Vector direction(std::sin(flYawRad) * std::cos(flPitchRad), -std::cos(flYawRad) * std::cos(flPitchRad), std::sin(flPitchRad));
	camera.SetPositionAndTarget(center + direction * (flRadius * 3.0f), center);
	camera.FrameBounds(mins, maxs, flAspect);
	camera.SetNearFar(std::max(0.5f, flRadius * 0.01f), flRadius * 40.0f);
}
