#include "mintyardtoolutils/preview/portraitsubject.h"

#include <algorithm>
#include <cmath>

#include "core/strtools.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/preview/previewmodelset.h"
#include "mintyardtoolutils/preview/previewscene.h"
#include "toolscene/toolscene.h"

namespace
{
const char *const IDLE_ACTIVITY = "ACT_ZARN_IDLE";
} // namespace

CZarnPortraitSubject::CZarnPortraitSubject(CToolScene *pScene) : m_pScene(pScene), m_pPreview(std::make_unique<CZarnPreviewScene>(pScene))
{
}

CZarnPortraitSubject::~CZarnPortraitSubject() = default;

void CZarnPortraitSubject::Clear()
{
	m_pPreview->Clear();
	m_BuiltKey.clear();
	if (m_pModel)
		m_pScene->RemoveNode(m_pModel);
	m_pModel = nullptr;
	m_ModelPath.clear();
	for (CToolSceneModelNode *pNode : m_Summons)
		m_pScene->RemoveNode(pNode);
	m_Summons.clear();
	m_SummonUnits.clear();
	m_AnimationKey.clear();
}

void CZarnPortraitSubject::Sync(const CZarnPreviewModelSet &set)
{
	if (m_pModel)
		m_pScene->RemoveNode(m_pModel);
	m_pModel = nullptr;
	m_ModelPath.clear();
	// What stands in the scene; anything else is applied to the nodes as they are.
	CUtlString key = V_Format("%d|%s|%d|%d|%d", set.GetPreviewMode(), set.GetSubjectModel().c_str(), set.GetSubjectSkin(), set.GetHeroIndex(),
		set.IsShowingReferenceModel() ? 1 : 0);
	for (const ZarnPreviewWearableModel_t &wearable : set.GetWearableModels())
		key += V_Format("|%s:%d", wearable.m_ModelPath.c_str(), wearable.m_nSkin);
	if (key != m_BuiltKey)
	{
		m_pPreview->Build(set);
		m_BuiltKey = key;
		for (CToolSceneModelNode *pNode : m_pPreview->GetWearableNodes())
			pNode->SetSelectable(false);
		if (m_pPreview->GetSubjectNode())
			m_pPreview->GetSubjectNode()->SetSelectable(false);
		if (m_pPreview->GetReferenceNode())
			m_pPreview->GetReferenceNode()->SetSelectable(false);
		return;
	}
	m_pPreview->ApplyAnimation(set);
	m_pPreview->ApplyDisplayOptions(set);
}

CToolSceneModelNode *CZarnPortraitSubject::GetModelNode() const
{
	return m_pModel ? m_pModel : m_pPreview->GetSubjectNode();
}

bool CZarnPortraitSubject::SetModel(const char *pszModelPath, float flScale)
{
	m_pPreview->Clear();
	m_BuiltKey.clear();
	const CUtlString path = pszModelPath ? pszModelPath : "";
	m_flScale = flScale > 0.0f ? flScale : 1.0f;
	if (m_pModel && path == m_ModelPath)
	{
		m_pModel->SetScale(m_flScale);
		return m_pModel->HasModel();
	}
	if (m_pModel)
		m_pScene->RemoveNode(m_pModel);
	m_pModel = nullptr;
	m_ModelPath = path;
	m_AnimationKey.clear();
	if (path.empty())
		return false;
	m_pModel = m_pScene->CreateModelNode(path.c_str());
	m_pModel->SetName("portrait subject");
	m_pModel->SetScale(m_flScale);
	m_pModel->SetSelectable(false);
	return m_pModel->HasModel();
}

void CZarnPortraitSubject::ApplyAnimation(const CZarnPortraitRecord *pRecord, bool bPlaying)
{
	if (!m_pModel || !m_pModel->HasModel())
		return;
	const CUtlString sequence = pRecord ? pRecord->m_AnimationSequence : CUtlString();
	const CUtlString activity = pRecord ? pRecord->m_AnimationActivity : CUtlString();
	const float flRate = pRecord ? pRecord->m_flAnimationRate : 1.0f;
	const float flCycle = pRecord ? pRecord->m_flAnimationCycle : 0.0f;
	// The same animation keeps playing where it is; a change starts it at the record's cycle.
	const CUtlString key = V_Format("%s|%s|%d|%g", sequence.c_str(), activity.c_str(), bPlaying ? 1 : 0, bPlaying ? 0.0 : (double)flCycle);
	m_pModel->SetPlaybackRate(flRate);
	if (key == m_AnimationKey)
		return;
	m_AnimationKey = key;
	bool bSet = !sequence.empty() && m_pModel->SetSequence(sequence.c_str());
	if (!bSet && !activity.empty())
		bSet = m_pModel->SetActivity(activity.c_str());
	if (!bSet)
		bSet = m_pModel->SetActivity(IDLE_ACTIVITY);
	if (!bSet)
		return;
	const int nFrames = m_pModel->GetFrameCount();
	const float flClamped = std::isnan(flCycle) ? 0.0f : std::clamp(flCycle, 0.0f, 1.0f);
	m_pModel->SetFrame(nFrames > 1 ? flClamped * (float)(nFrames - 1) : 0.0f);
	m_pModel->SetPlaying(bPlaying);
}

CUtlString CZarnPortraitSubject::FindUnitModel(const char *pszUnit)
{
	EnsureGameDataLoaded();
	const ZARNGameUnitData_t *pUnit = GetGameUnitTable().FindUnit(pszUnit ? pszUnit : "");
	return pUnit ? pUnit->model : CUtlString();
}

void CZarnPortraitSubject::SetSummons(const CZarnPortraitRecord *pRecord, bool bShow, const CZarnPreviewModelSet *pSet)
{
	CUtlVector<CUtlString> units;
	if (pRecord)
	{
		for (const CZarnPortraitRecord::Summon_t &summon : pRecord->m_Summons)
			units.push_back(summon.m_Unit);
	}
	if (units != m_SummonUnits)
	{
		for (CToolSceneModelNode *pNode : m_Summons)
			m_pScene->RemoveNode(pNode);
		m_Summons.clear();
		m_SummonUnits = units;
		for (const CUtlString &unit : units)
		{
			// The set knows the model an item gives the unit.
			CUtlString model;
			if (pSet)
			{
				for (const ZarnPreviewSummonModel_t &summon : pSet->GetSummonModels())
				{
					if (V_stricmp(summon.m_Unit.c_str(), unit.c_str()) == 0)
						model = summon.m_ModelPath;
				}
			}
			if (model.empty())
				model = FindUnitModel(unit.c_str());
			CToolSceneModelNode *pNode = m_pScene->CreateModelNode(model.empty() ? nullptr : model.c_str());
			pNode->SetName(unit.c_str());
			pNode->SetActivity(IDLE_ACTIVITY);
			pNode->SetPlaying(true);
			m_Summons.push_back(pNode);
		}
	}
	for (size_t i = 0; i < m_Summons.size(); ++i)
	{
		const CZarnPortraitRecord::Summon_t &summon = pRecord->m_Summons[i];
		m_Summons[i]->SetTransform(summon.m_Position, summon.m_Angles, summon.m_flScale);
		m_Summons[i]->SetVisible(bShow);
	}
}

CToolSceneModelNode *CZarnPortraitSubject::GetSummonNode(int nIndex) const
{
	return nIndex >= 0 && nIndex < (int)m_Summons.size() ? m_Summons[nIndex] : nullptr;
}
