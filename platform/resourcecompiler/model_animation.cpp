// Sources in model space, the skeleton of a model, and the frames of its sequences.
#include <algorithm>
#include <cmath>
#include <unordered_map>

#include "core/strtools.h"
#include "resourcecompiler/modelbuild.h"

namespace
{
// Frames times bones of one sequence (a minute at 60 frames a second of 1,000 bones is 3.6
// million): more is no animation of a game model, and a frame rate in a document cannot make
// the compiler allocate without bound.
const uint64 kMaxSequenceTransforms = 8ull << 20;

Matrix4_t Inverse(const Matrix4_t &m)
{
	Matrix4_t out;
	MatrixInverse(m, out);
	return out;
}

// Translation scaled: S * M * S^-1 for a uniform scale S.
SourceTransform_t ScaleTranslation(SourceTransform_t transform, double scale)
{
	transform.position = Vector((float)(transform.position.x * scale), (float)(transform.position.y * scale), (float)(transform.position.z * scale));
	return transform;
}

SourceTransform_t PreMultiply(const Matrix4_t &m, const SourceTransform_t &transform)
{
	return TransformFromMatrix(MatrixMultiply(m, MatrixFromTransform(transform)));
}

Quaternion Conjugate(const Quaternion &q)
{
	return Quaternion(-q.x, -q.y, -q.z, q.w);
}

Quaternion AxisAngleZ(double radians)
{
	return Quaternion(0.0f, 0.0f, (float)std::sin(radians * 0.5), (float)std::cos(radians * 0.5));
}

// The heading of a rotation: the angle about Z of where it turns +X.
double Yaw(const Quaternion &q)
{
	const double x = 1.0 - 2.0 * ((double)q.y * q.y + (double)q.z * q.z);
	const double y = 2.0 * ((double)q.x * q.y + (double)q.w * q.z);
	return std::atan2(y, x);
}

Vector Lerp(const Vector &a, const Vector &b, float t)
{
	return Vector(a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t, a.z + (b.z - a.z) * t);
}
} // namespace

void PrepareSourceForModel(SourceScene_t &scene, double flScale)
{
	const int jointCount = (int)scene.joints.size();
	// Root joints under nodes of the exporter: the bind matrix holds those nodes' transform, the
	// local transform (and every animated frame) does not.
	for (int j = 0; j < jointCount; ++j)
	{
		SourceJoint_t &joint = scene.joints[(size_t)j];
		if (joint.nParent >= 0)
			continue;
		Matrix4_t global;
		if (!MatrixInverse(joint.inverseBind, global))
			continue;
		const Matrix4_t above = MatrixMultiply(global, Inverse(MatrixFromTransform(joint.bindLocal)));
		if (above.IsIdentity(1e-5))
			continue;
		joint.bindLocal = PreMultiply(above, joint.bindLocal);
		for (SourceAnimation_t &animation : scene.animations)
		{
			for (int f = 0; f < animation.nFrameCount; ++f)
			{
				SourceTransform_t &pose = animation.frames[(size_t)f * jointCount + j];
				pose = PreMultiply(above, pose);
			}
		}
	}

	// Up axis and scale: M = R * S takes source model space to the model's.
	const Matrix4_t turn = MatrixUpAxisToZ(scene.upAxis);
	const Matrix4_t toModel = MatrixMultiply(turn, MatrixScale(flScale, flScale, flScale));
	const bool bTurn = !turn.IsIdentity();
	const bool bScale = flScale != 1.0;
	if (!bTurn && !bScale)
		return;
	const Matrix4_t fromModel = Inverse(toModel);
	const Matrix4_t scale = MatrixScale(flScale, flScale, flScale);
	auto convert = [&](const SourceTransform_t &local, bool bRoot) {
		SourceTransform_t out = bScale ? ScaleTranslation(local, flScale) : local;
		return (bRoot && bTurn) ? PreMultiply(turn, out) : out;
	};
	for (SourceJoint_t &joint : scene.joints)
	{
		joint.bindLocal = convert(joint.bindLocal, joint.nParent < 0);
		// inverse bind' = S * inverse bind * M^-1
		joint.inverseBind = MatrixMultiply(MatrixMultiply(scale, joint.inverseBind), fromModel);
	}
	for (SourceAnimation_t &animation : scene.animations)
	{
		for (int f = 0; f < animation.nFrameCount; ++f)
		{
			for (int j = 0; j < jointCount; ++j)
			{
				SourceTransform_t &pose = animation.frames[(size_t)f * jointCount + j];
				pose = convert(pose, scene.joints[(size_t)j].nParent < 0);
			}
		}
	}
	for (CSourceMesh &mesh : scene.meshes)
		mesh.m_MeshToModel = MatrixMultiply(toModel, mesh.m_MeshToModel);
	scene.upAxis = 'Z';
}

// ---------------------------------------------------------------------------------------------
// The skeleton

int CModelSkeleton::Find(const char *pszName) const
{
	for (size_t b = 0; b < m_Bones.size(); ++b)
	{
		if (m_Bones[b].m_Name == pszName)
			return (int)b;
	}
	return -1;
}

int CModelSkeleton::RootBone() const
{
	for (size_t b = 0; b < m_Bones.size(); ++b)
	{
		if (m_Bones[b].m_nParent < 0)
			return (int)b;
	}
	return -1;
}

void CModelSkeleton::AddSource(const SourceScene_t &scene, const CUtlString &sourceName, std::vector<int> &jointToBone,
	std::vector<CUtlString> &warnings)
{
	std::unordered_map<CUtlString, int> byName;
	for (size_t b = 0; b < m_Bones.size(); ++b)
		byName.emplace(m_Bones[b].m_Name, (int)b);
	jointToBone.assign(scene.joints.size(), -1);
	for (size_t j = 0; j < scene.joints.size(); ++j)
	{
		const SourceJoint_t &joint = scene.joints[j];
		const int parent = joint.nParent >= 0 ? jointToBone[(size_t)joint.nParent] : -1;
		const auto it = byName.find(joint.name);
		if (it != byName.end())
		{
			ModelBone_t &bone = m_Bones[(size_t)it->second];
			jointToBone[j] = it->second;
			if (bone.m_nParent != parent)
				warnings.push_back(V_Format("%s: the bone \"%s\" hangs under \"%s\" there and under \"%s\" in an earlier source; the first holds",
					sourceName.c_str(), joint.name.c_str(), parent >= 0 ? m_Bones[(size_t)parent].m_Name.c_str() : "(the model)",
					bone.m_nParent >= 0 ? m_Bones[(size_t)bone.m_nParent].m_Name.c_str() : "(the model)"));
			if (joint.bSkinned && !bone.m_bSkinned)
			{
				bone.m_bSkinned = true;
				bone.m_InverseBind = joint.inverseBind;
			}
			continue;
		}
		ModelBone_t bone;
		bone.m_Name = joint.name;
		bone.m_nParent = parent;
		bone.m_Local = joint.bindLocal;
		bone.m_InverseBind = joint.inverseBind;
		bone.m_bSkinned = joint.bSkinned;
		jointToBone[j] = (int)m_Bones.size();
		byName.emplace(bone.m_Name, (int)m_Bones.size());
		m_Bones.push_back(std::move(bone));
	}
}

void CModelSkeleton::Finish()
{
	for (ModelBone_t &bone : m_Bones)
	{
		const Matrix4_t parentGlobal = bone.m_nParent >= 0 ? m_Bones[(size_t)bone.m_nParent].m_Global : Matrix4_t();
		Matrix4_t global;
		if (bone.m_bSkinned && MatrixInverse(bone.m_InverseBind, global))
		{
			bone.m_Global = global;
			bone.m_Local = TransformFromMatrix(MatrixMultiply(Inverse(parentGlobal), global));
		}
		else
		{
			bone.m_Global = MatrixMultiply(parentGlobal, MatrixFromTransform(bone.m_Local));
			bone.m_InverseBind = Inverse(bone.m_Global);
		}
	}
}

void CModelSkeleton::ToCompiled(std::vector<CompiledBone_t> &out) const
{
	out.clear();
	out.reserve(m_Bones.size());
	for (const ModelBone_t &bone : m_Bones)
	{
		CompiledBone_t compiled;
		compiled.m_Name = bone.m_Name;
		compiled.m_nParent = bone.m_nParent;
		compiled.m_vPosition = bone.m_Local.position;
		const Quaternion q = QuaternionNormalize(bone.m_Local.orientation);
		compiled.m_qRotation = CompiledQuaternion_t{ q.x, q.y, q.z, q.w };
		compiled.m_vScale = bone.m_Local.scale;
		for (int r = 0; r < 3; ++r)
		{
			for (int c = 0; c < 4; ++c)
				compiled.m_InverseBind.m[r][c] = (float)bone.m_InverseBind.m[r][c];
		}
		out.push_back(std::move(compiled));
	}
}

// ---------------------------------------------------------------------------------------------
// Frames

bool SampleModelAnimation(const SourceScene_t &scene, int animation, const std::vector<int> &jointToBone, const CModelSkeleton &skeleton,
	int firstFrame, int lastFrame, float fps, ModelAnimationFrames_t &out, CUtlString &error)
{
	out = ModelAnimationFrames_t();
	if (animation < 0 || (size_t)animation >= scene.animations.size())
	{
		error = V_Format("the source has %zu animations; there is no animation %d", scene.animations.size(), animation);
		return false;
	}
	const SourceAnimation_t &source = scene.animations[(size_t)animation];
	const int sourceFrames = source.nFrameCount;
	if (sourceFrames < 1)
	{
		error = V_Format("the animation \"%s\" has no frames", source.name.c_str());
		return false;
	}
	const int first = firstFrame < 0 ? 0 : firstFrame;
	const int last = lastFrame < 0 ? sourceFrames - 1 : lastFrame;
	if (first > last || last >= sourceFrames)
	{
		error = V_Format("the frames %d to %d lie outside the animation \"%s\", which has frames 0 to %d", first, last, source.name.c_str(),
			sourceFrames - 1);
		return false;
	}
	const double sourceFps = source.flFps > 0.0f ? source.flFps : 30.0;
	const double outFps = fps > 0.0f ? fps : sourceFps;
	if (!std::isfinite(outFps) || outFps > 10000.0)
	{
		error = V_Format("the frame rate %g is not one an animation can have", outFps);
		return false;
	}
	const int span = last - first + 1;
	const bool bSameRate = std::fabs(outFps - sourceFps) < 1e-4;
	int count = span;
	if (!bSameRate)
	{
		const double duration = (span - 1) / sourceFps;
		const double frames = std::floor(duration * outFps + 0.5) + 1.0;
		count = frames > 1e8 ? INT32_MAX : (int)frames;
	}
	const size_t bones = skeleton.Bones().size();
	if ((uint64)count * std::max<size_t>(bones, 1) > kMaxSequenceTransforms)
	{
		error = V_Format("%d frames of %zu bones are more than a sequence may hold", count, bones);
		return false;
	}

	const int jointCount = (int)scene.joints.size();
	std::vector<int> jointOfBone(bones, -1);
	for (size_t j = 0; j < jointToBone.size() && j < (size_t)jointCount; ++j)
	{
		if (jointToBone[j] >= 0 && jointOfBone[(size_t)jointToBone[j]] < 0)
			jointOfBone[(size_t)jointToBone[j]] = (int)j;
	}
	out.nFrameCount = count;
	out.flFps = (float)outFps;
	out.frames.resize((size_t)count * bones);
	for (int f = 0; f < count; ++f)
	{
		int at = first + f;
		float t = 0.0f;
		if (!bSameRate)
		{
			const double position = first + (f / outFps) * sourceFps;
			at = std::clamp((int)std::floor(position), first, last);
			t = (float)std::clamp(position - at, 0.0, 1.0);
		}
		const int next = std::min(at + 1, last);
		for (size_t b = 0; b < bones; ++b)
		{
			SourceTransform_t &pose = out.frames[(size_t)f * bones + b];
			const int j = jointOfBone[b];
			if (j < 0)
			{
				pose = skeleton.Bones()[b].m_Local;
				continue;
			}
			const SourceTransform_t &a = source.Pose(at, j, jointCount);
			if (t <= 0.0f || next == at)
			{
				pose = a;
				continue;
			}
			const SourceTransform_t &c = source.Pose(next, j, jointCount);
			pose.position = Lerp(a.position, c.position, t);
			pose.orientation = QuaternionSlerp(a.orientation, c.orientation, t);
			pose.scale = Lerp(a.scale, c.scale, t);
		}
	}
	return true;
}

void BindPoseFrames(const CModelSkeleton &skeleton, ModelAnimationFrames_t &out)
{
	out = ModelAnimationFrames_t();
	out.nFrameCount = 1;
	out.flFps = 30.0f;
	for (const ModelBone_t &bone : skeleton.Bones())
		out.frames.push_back(bone.m_Local);
}

void SubtractFrame(ModelAnimationFrames_t &frames, const SourceTransform_t *pReference, int boneCount)
{
	for (int f = 0; f < frames.nFrameCount; ++f)
	{
		for (int b = 0; b < boneCount; ++b)
		{
			SourceTransform_t &pose = frames.frames[(size_t)f * boneCount + b];
			const SourceTransform_t &reference = pReference[b];
			pose.position = Vector(pose.position.x - reference.position.x, pose.position.y - reference.position.y, pose.position.z - reference.position.z);
			pose.orientation = QuaternionNormalize(QuaternionMultiply(Conjugate(QuaternionNormalize(reference.orientation)), pose.orientation));
			for (int k = 0; k < 3; ++k)
				pose.scale[k] = reference.scale[k] != 0.0f ? pose.scale[k] / reference.scale[k] : pose.scale[k];
		}
	}
}

void ExtractMotion(ModelAnimationFrames_t &frames, int boneCount, int bone, uint32 nFlags)
{
	if (frames.nFrameCount < 1 || bone < 0 || bone >= boneCount)
		return;
	const SourceTransform_t start = frames.frames[(size_t)bone];
	const double startYaw = Yaw(start.orientation);
	for (int f = 0; f < frames.nFrameCount; ++f)
	{
		SourceTransform_t &pose = frames.frames[(size_t)f * boneCount + bone];
		if (nFlags & COMPILED_MOTION_TX)
			pose.position.x = start.position.x;
		if (nFlags & COMPILED_MOTION_TY)
			pose.position.y = start.position.y;
		if (nFlags & COMPILED_MOTION_TZ)
			pose.position.z = start.position.z;
		if (nFlags & COMPILED_MOTION_RZ)
			pose.orientation = QuaternionNormalize(QuaternionMultiply(AxisAngleZ(startYaw - Yaw(pose.orientation)), pose.orientation));
	}
}

void StoreFrames(const ModelAnimationFrames_t &frames, int boneCount, CompiledSequence_t &sequence)
{
	sequence.m_nFrameCount = (uint32)frames.nFrameCount;
	sequence.m_flFps = frames.flFps;
	sequence.m_nBoneCount = (uint32)boneCount;
	const size_t count = (size_t)frames.nFrameCount * (size_t)boneCount;
	sequence.m_Translations.resize(count);
	sequence.m_Rotations.resize(count);
	bool bScaled = false;
	for (size_t i = 0; i < count; ++i)
	{
		const SourceTransform_t &pose = frames.frames[i];
		sequence.m_Translations[i] = pose.position;
		const Quaternion q = QuaternionNormalize(pose.orientation);
		sequence.m_Rotations[i] = CompiledQuaternion_t{ q.x, q.y, q.z, q.w };
		for (int k = 0; k < 3; ++k)
			bScaled = bScaled || std::fabs(pose.scale[k] - 1.0f) > 1e-5f;
	}
	sequence.m_Scales.clear();
	if (bScaled)
	{
		sequence.m_Scales.resize(count);
		for (size_t i = 0; i < count; ++i)
			sequence.m_Scales[i] = frames.frames[i].scale;
	}
}
