#include "toolscene/sceneanimation.h"

#include <algorithm>
#include <cmath>

#include "core/strtools.h"

namespace
{
// Blends and layers may name each other in a circle; evaluation stops this deep.
constexpr int MAX_SEQUENCE_DEPTH = 8;

Quaternion ToQuaternion(const CompiledQuaternion_t &q)
{
	return Quaternion(q.x, q.y, q.z, q.w);
}

SceneBoneTransform_t Interpolate(const SceneBoneTransform_t &a, const SceneBoneTransform_t &b, float t)
{
	SceneBoneTransform_t out;
	out.m_vPosition = SceneLerp(a.m_vPosition, b.m_vPosition, t);
	out.m_qRotation = SceneQuaternionSlerp(a.m_qRotation, b.m_qRotation, t);
	out.m_vScale = SceneLerp(a.m_vScale, b.m_vScale, t);
	return out;
}

// A delta applied on top of a transform, scaled by a weight from 0 (nothing) to 1 (all of it).
SceneBoneTransform_t AddDelta(const SceneBoneTransform_t &base, const SceneBoneTransform_t &delta, float weight)
{
	SceneBoneTransform_t out;
	out.m_vPosition = base.m_vPosition + delta.m_vPosition * weight;
	const Quaternion part = weight >= 1.0f ? delta.m_qRotation : SceneQuaternionSlerp(Quaternion(), delta.m_qRotation, weight);
	out.m_qRotation = SceneQuaternionNormalize(SceneQuaternionMultiply(base.m_qRotation, part));
	const Vector one(1.0f, 1.0f, 1.0f);
	out.m_vScale = SceneMultiply(base.m_vScale, SceneLerp(one, delta.m_vScale, weight));
	return out;
}
} // namespace

void ScenePose_Bind(const CCompiledModel &model, ScenePose_t &pose)
{
	pose.resize(model.m_Bones.size());
	for (size_t b = 0; b < model.m_Bones.size(); ++b)
	{
		const CompiledBone_t &bone = model.m_Bones[b];
		pose[b].m_vPosition = bone.m_vPosition;
		pose[b].m_qRotation = SceneQuaternionNormalize(ToQuaternion(bone.m_qRotation));
		pose[b].m_vScale = bone.m_vScale;
	}
}

void ScenePose_ToModelSpace(const CCompiledModel &model, const ScenePose_t &pose, std::vector<SceneMatrix_t> &boneToModel)
{
	const size_t count = std::min(model.m_Bones.size(), pose.size());
	boneToModel.resize(model.m_Bones.size());
	for (size_t b = 0; b < count; ++b)
	{
		const SceneMatrix_t local = SceneMatrixFromTransform(pose[b].m_vPosition, pose[b].m_qRotation, pose[b].m_vScale);
		const int parent = model.m_Bones[b].m_nParent;
		boneToModel[b] = (parent >= 0 && (size_t)parent < b) ? boneToModel[(size_t)parent] * local : local;
	}
	for (size_t b = count; b < boneToModel.size(); ++b)
		boneToModel[b] = SceneMatrix_t();
}

int ToolScene_FindSequenceForActivity(const CCompiledModel &model, std::string_view activity)
{
	int best = -1;
	int bestWeight = 0;
	for (size_t s = 0; s < model.m_Sequences.size(); ++s)
	{
		for (const CompiledActivity_t &entry : model.m_Sequences[s].m_Activities)
		{
			if (!V_StrEqualNoCase(entry.m_Name, activity))
				continue;
			if (best < 0 || entry.m_nWeight > bestWeight)
			{
				best = (int)s;
				bestWeight = entry.m_nWeight;
			}
		}
	}
	return best;
}

void CToolSceneAnimator::SetModel(const CCompiledModel *pModel)
{
	m_pModel = pModel;
	m_nSequence = -1;
	m_flFrame = 0.0f;
	m_PoseParameters.clear();
	if (!pModel)
		return;
	for (const CompiledPoseParameter_t &parameter : pModel->m_PoseParameters)
	{
		const float low = std::min(parameter.m_flMin, parameter.m_flMax);
		const float high = std::max(parameter.m_flMin, parameter.m_flMax);
		m_PoseParameters.push_back(std::clamp(0.0f, low, high));
	}
}

void CToolSceneAnimator::SetSequence(int nSequence)
{
	if (!m_pModel || nSequence < 0 || (size_t)nSequence >= m_pModel->m_Sequences.size())
		nSequence = -1;
	m_nSequence = nSequence;
	m_flFrame = 0.0f;
}

bool CToolSceneAnimator::SetSequenceByName(std::string_view name)
{
	if (!m_pModel)
		return false;
	const int index = m_pModel->FindSequence(name);
	if (index < 0)
		return false;
	SetSequence(index);
	return true;
}

int CToolSceneAnimator::TimingSequence(int nSequence) const
{
	for (int depth = 0; depth < MAX_SEQUENCE_DEPTH && m_pModel; ++depth)
	{
		if (nSequence < 0 || (size_t)nSequence >= m_pModel->m_Sequences.size())
			return -1;
		const CompiledSequence_t &seq = m_pModel->m_Sequences[(size_t)nSequence];
		if (seq.m_nBoneCount != 0 || seq.m_BlendKeys.empty())
			return nSequence;
		nSequence = (int)seq.m_BlendKeys.front().m_nSequence;
	}
	return -1;
}

int CToolSceneAnimator::GetFrameCount() const
{
	const int timing = TimingSequence(m_nSequence);
	return timing < 0 ? 0 : (int)m_pModel->m_Sequences[(size_t)timing].m_nFrameCount;
}

float CToolSceneAnimator::GetFramesPerSecond() const
{
	const int timing = TimingSequence(m_nSequence);
	return timing < 0 ? 0.0f : m_pModel->m_Sequences[(size_t)timing].m_flFps;
}

bool CToolSceneAnimator::IsLooping() const
{
	if (m_nSequence < 0)
		return false;
	return m_pModel->m_Sequences[(size_t)m_nSequence].m_bLooping;
}

void CToolSceneAnimator::SetFrame(float flFrame)
{
	const int frames = GetFrameCount();
	if (frames <= 1 || !std::isfinite(flFrame))
	{
		m_flFrame = 0.0f;
		return;
	}
	const float last = (float)(frames - 1);
	if (IsLooping())
	{
		flFrame = std::fmod(flFrame, last);
		if (flFrame < 0.0f)
			flFrame += last;
		m_flFrame = flFrame;
	}
	else
	{
		m_flFrame = std::clamp(flFrame, 0.0f, last);
	}
}

float CToolSceneAnimator::GetCycle() const
{
	const int frames = GetFrameCount();
	if (frames <= 1)
		return 0.0f;
	return m_flFrame / (float)(frames - 1);
}

void CToolSceneAnimator::Advance(float flSeconds)
{
	if (!m_bPlaying || m_nSequence < 0 || !std::isfinite(flSeconds))
		return;
	SetFrame(m_flFrame + flSeconds * GetFramesPerSecond() * m_flRate);
}

bool CToolSceneAnimator::SetPoseParameter(int nIndex, float flValue)
{
	if (!m_pModel || nIndex < 0 || (size_t)nIndex >= m_PoseParameters.size() || !std::isfinite(flValue))
		return false;
	const CompiledPoseParameter_t &parameter = m_pModel->m_PoseParameters[(size_t)nIndex];
	m_PoseParameters[(size_t)nIndex] =
		std::clamp(flValue, std::min(parameter.m_flMin, parameter.m_flMax), std::max(parameter.m_flMin, parameter.m_flMax));
	return true;
}

bool CToolSceneAnimator::SetPoseParameterByName(std::string_view name, float flValue)
{
	return m_pModel && SetPoseParameter(m_pModel->FindPoseParameter(name), flValue);
}

float CToolSceneAnimator::GetPoseParameter(int nIndex) const
{
	if (nIndex < 0 || (size_t)nIndex >= m_PoseParameters.size())
		return 0.0f;
	return m_PoseParameters[(size_t)nIndex];
}

bool CToolSceneAnimator::Sample(int nSequence, float flCycle, ScenePose_t &out, int nDepth) const
{
	if (nDepth >= MAX_SEQUENCE_DEPTH || nSequence < 0 || (size_t)nSequence >= m_pModel->m_Sequences.size())
		return false;
	const CompiledSequence_t &seq = m_pModel->m_Sequences[(size_t)nSequence];
	const size_t boneCount = m_pModel->m_Bones.size();

	if (seq.m_nBoneCount == 0)
	{
		if (seq.m_BlendKeys.empty())
			return false;
		// The two keys around the parameter's value, by value.
		std::vector<CompiledBlendKey_t> keys = seq.m_BlendKeys;
		std::stable_sort(keys.begin(), keys.end(),
			[](const CompiledBlendKey_t &a, const CompiledBlendKey_t &b) { return a.m_flValue < b.m_flValue; });
		const float value = GetPoseParameter(seq.m_nBlendPoseParameter);
		size_t low = 0, high = 0;
		float t = 0.0f;
		if (value <= keys.front().m_flValue)
			low = high = 0;
		else if (value >= keys.back().m_flValue)
			low = high = keys.size() - 1;
		else
		{
			for (size_t k = 0; k + 1 < keys.size(); ++k)
			{
				if (value >= keys[k].m_flValue && value <= keys[k + 1].m_flValue)
				{
					low = k;
					high = k + 1;
					const float span = keys[k + 1].m_flValue - keys[k].m_flValue;
					t = span > 0.0f ? (value - keys[k].m_flValue) / span : 0.0f;
					break;
				}
			}
		}
		ScenePose_t first;
		if (!Sample((int)keys[low].m_nSequence, flCycle, first, nDepth + 1))
		{
			first.assign(boneCount, SceneBoneTransform_t());
			if (!m_pModel->m_Sequences[keys[low].m_nSequence].m_bDelta)
				ScenePose_Bind(*m_pModel, first);
		}
		if (high == low || t <= 0.0f)
		{
			out = std::move(first);
			return true;
		}
		ScenePose_t second;
		if (!Sample((int)keys[high].m_nSequence, flCycle, second, nDepth + 1))
		{
			second.assign(boneCount, SceneBoneTransform_t());
			if (!m_pModel->m_Sequences[keys[high].m_nSequence].m_bDelta)
				ScenePose_Bind(*m_pModel, second);
		}
		out.resize(boneCount);
		for (size_t b = 0; b < boneCount; ++b)
			out[b] = Interpolate(first[b], second[b], t);
		return true;
	}

	if (seq.m_nFrameCount == 0 || seq.m_nBoneCount != boneCount)
		return false;
	const float last = (float)(seq.m_nFrameCount - 1);
	const float frame = std::clamp(flCycle, 0.0f, 1.0f) * last;
	const uint32 f0 = std::min((uint32)frame, seq.m_nFrameCount - 1);
	const uint32 f1 = std::min(f0 + 1, seq.m_nFrameCount - 1);
	const float t = frame - (float)f0;
	const bool bScales = !seq.m_Scales.empty();
	out.resize(boneCount);
	for (size_t b = 0; b < boneCount; ++b)
	{
		const size_t i0 = (size_t)f0 * boneCount + b;
		const size_t i1 = (size_t)f1 * boneCount + b;
		SceneBoneTransform_t a, c;
		a.m_vPosition = seq.m_Translations[i0];
		a.m_qRotation = SceneQuaternionNormalize(ToQuaternion(seq.m_Rotations[i0]));
		c.m_vPosition = seq.m_Translations[i1];
		c.m_qRotation = SceneQuaternionNormalize(ToQuaternion(seq.m_Rotations[i1]));
		if (bScales)
		{
			a.m_vScale = seq.m_Scales[i0];
			c.m_vScale = seq.m_Scales[i1];
		}
		out[b] = t > 0.0f ? Interpolate(a, c, t) : a;
	}
	return true;
}

void CToolSceneAnimator::Apply(int nSequence, float flCycle, ScenePose_t &pose, int nDepth) const
{
	if (nDepth >= MAX_SEQUENCE_DEPTH || nSequence < 0 || (size_t)nSequence >= m_pModel->m_Sequences.size())
		return;
	const CompiledSequence_t &seq = m_pModel->m_Sequences[(size_t)nSequence];
	const std::vector<float> *pWeights = nullptr;
	if (seq.m_nWeightList >= 0 && (size_t)seq.m_nWeightList < m_pModel->m_WeightLists.size())
		pWeights = &m_pModel->m_WeightLists[(size_t)seq.m_nWeightList].m_Weights;

	ScenePose_t sample;
	if (Sample(nSequence, flCycle, sample, nDepth))
	{
		for (size_t b = 0; b < pose.size() && b < sample.size(); ++b)
		{
			const float weight = (pWeights && b < pWeights->size()) ? std::clamp((*pWeights)[b], 0.0f, 1.0f) : 1.0f;
			if (weight <= 0.0f)
				continue;
			if (seq.m_bDelta)
				pose[b] = AddDelta(pose[b], sample[b], weight);
			else
				pose[b] = weight >= 1.0f ? sample[b] : Interpolate(pose[b], sample[b], weight);
		}
	}
	for (uint32 layer : seq.m_AddLayers)
		Apply((int)layer, flCycle, pose, nDepth + 1);
}

void CToolSceneAnimator::EvaluateSequence(int nSequence, float flCycle, ScenePose_t &pose) const
{
	pose.clear();
	if (!m_pModel)
		return;
	ScenePose_Bind(*m_pModel, pose);
	Apply(nSequence, flCycle, pose, 0);
}

void CToolSceneAnimator::Evaluate(ScenePose_t &pose) const
{
	EvaluateSequence(m_nSequence, GetCycle(), pose);
}
