// The one loader of the compiled formats.
//
// A file is read in one piece. The header, checksum and section table are checked first; then
// each record is checked against what the file really holds before anything is allocated for
// it: ranges of other sections must follow one another (so every element is used once and
// nothing can be made to copy the same bytes many times), byte arrays must lie one after the
// other inside their section, strings inside the string section. The arrays themselves are
// copied out whole with memcpy. Last, the model's own consistency check (indices below the
// vertex count, references inside their lists) runs on the result.
#include <cstring>
#include <type_traits>

#include "compiledassets/compiledassets.h"
#include "compiledassets/compiledformat.h"
#include "core/fileio.h"
#include "core/strtools.h"

using namespace CompiledFormat;

namespace
{
static_assert(sizeof(Vector) == 12 && sizeof(CompiledTexCoord_t) == 8 && sizeof(CompiledTangent_t) == 16 &&
	sizeof(CompiledQuaternion_t) == 16 && sizeof(CompiledBoneIndices_t) == 4 && sizeof(CompiledBoneWeights_t) == 4 &&
	sizeof(CompiledDrawCall_t) == 16 && sizeof(CompiledMatrix3x4_t) == 48);
static_assert(std::is_trivially_copyable_v<Vector> && std::is_trivially_copyable_v<CompiledDrawCall_t>);

// Copies `count` elements from the file into a list.
template <typename T> void CopyOut(std::vector<T> &out, const uint8 *pSource, size_t count)
{
	static_assert(std::is_trivially_copyable_v<T>);
	out.resize(count);
	if (count)
		memcpy(out.data(), pSource, count * sizeof(T));
}

template <typename T> T ReadRecord(const T *pRecords, size_t index)
{
	T record;
	memcpy(&record, reinterpret_cast<const uint8 *>(pRecords) + index * sizeof(T), sizeof(T));
	return record;
}

Vector ToVector(const float (&v)[3])
{
	return Vector(v[0], v[1], v[2]);
}

// Walks a byte section: each array starts at the next 16-byte boundary after the previous one.
class CByteCursor
{
public:
	CByteCursor(CCompiledFileReader &reader, const char *pszSection, const uint8 *pBase, uint64 size)
		: m_Reader(reader), m_pszSection(pszSection), m_pBase(pBase), m_nSize(size)
	{
	}
	// The start of the next array of `bytes`; null (with the failure reported) when it would
	// not fit. `expectedStart`, when given, is the offset that the record says it starts at.
	const uint8 *Next(uint64 bytes, const char *what, size_t index, const uint64 *pExpectedStart = nullptr)
	{
		const uint64 start = Align(m_nEnd);
		if (pExpectedStart && *pExpectedStart != start)
		{
			m_Reader.Fail("%s %zu: data at offset %llu of \"%s\", expected %llu", what, index, (unsigned long long)*pExpectedStart,
				m_pszSection, (unsigned long long)start);
			return nullptr;
		}
		if (start > m_nSize || bytes > m_nSize - start)
		{
			m_Reader.Fail("%s %zu: %llu bytes at offset %llu run past the end of \"%s\" (%llu bytes)", what, index, (unsigned long long)bytes,
				(unsigned long long)start, m_pszSection, (unsigned long long)m_nSize);
			return nullptr;
		}
		m_nEnd = start + bytes;
		return m_pBase + start;
	}
	bool Finish()
	{
		if (m_nEnd != m_nSize)
			return m_Reader.Fail("\"%s\" holds %llu bytes; the records use %llu", m_pszSection, (unsigned long long)m_nSize,
				(unsigned long long)m_nEnd);
		return true;
	}

private:
	CCompiledFileReader &m_Reader;
	const char *m_pszSection;
	const uint8 *m_pBase;
	uint64 m_nSize;
	uint64 m_nEnd = 0;
};

// Hands out consecutive ranges of a section's records.
class CRangeCursor
{
public:
	CRangeCursor(CCompiledFileReader &reader, const char *pszSection, uint32 total) : m_Reader(reader), m_pszSection(pszSection), m_nTotal(total)
	{
	}
	bool Take(uint32 first, uint32 count, const char *what, size_t index)
	{
		if (first != m_nNext)
			return m_Reader.Fail("%s %zu: its \"%s\" records start at %u, expected %u", what, index, m_pszSection, first, m_nNext);
		if (count > m_nTotal - m_nNext)
			return m_Reader.Fail("%s %zu: %u \"%s\" records from %u run past the %u there are", what, index, count, m_pszSection, first, m_nTotal);
		m_nNext += count;
		return true;
	}
	bool Finish()
	{
		if (m_nNext != m_nTotal)
			return m_Reader.Fail("\"%s\" holds %u records; %u are used", m_pszSection, m_nTotal, m_nNext);
		return true;
	}

private:
	CCompiledFileReader &m_Reader;
	const char *m_pszSection;
	uint32 m_nTotal;
	uint32 m_nNext = 0;
};

bool ReadFileWhole(const char *pszPath, const char *pszPathID, CUtlBuffer &buffer, CUtlString *pError)
{
	if (!pszPath || !*pszPath)
	{
		if (pError)
			*pError = "No compiled asset path given";
		return false;
	}
	return CoreFileSystem()->ReadFile(pszPath, pszPathID, buffer, pError);
}

// ---------------------------------------------------------------------------------------------
// Model

const SectionSpec_t s_ModelSections[] = {
	{ FourCC("STRS"), 1 },
	{ FourCC("MODL"), sizeof(ModelInfo_t) },
	{ FourCC("MESH"), sizeof(MeshRecord_t) },
	{ FourCC("MBON"), 4 },
	{ FourCC("DRAW"), sizeof(DrawCallRecord_t) },
	{ FourCC("VERT"), 1 },
	{ FourCC("INDX"), 1 },
	{ FourCC("BONE"), sizeof(BoneRecord_t) },
	{ FourCC("MATL"), sizeof(StringRef_t) },
	{ FourCC("MGRP"), sizeof(MaterialGroupRecord_t) },
	{ FourCC("MREM"), sizeof(RemapRecord_t) },
	{ FourCC("BGRP"), sizeof(BodyGroupRecord_t) },
	{ FourCC("BCHO"), sizeof(BodyGroupChoiceRecord_t) },
	{ FourCC("BMSH"), 4 },
	{ FourCC("LODS"), 4 },
	{ FourCC("ATCH"), sizeof(AttachmentRecord_t) },
	{ FourCC("HSET"), sizeof(HitboxSetRecord_t) },
	{ FourCC("HBOX"), sizeof(HitboxRecord_t) },
	{ FourCC("POSE"), sizeof(PoseParameterRecord_t) },
	{ FourCC("WLST"), sizeof(WeightListRecord_t) },
	{ FourCC("WGTS"), 4 },
	{ FourCC("SEQN"), sizeof(SequenceRecord_t) },
	{ FourCC("ACTV"), sizeof(ActivityRecord_t) },
	{ FourCC("EVNT"), sizeof(EventRecord_t) },
	{ FourCC("BKEY"), sizeof(BlendKeyRecord_t) },
	{ FourCC("ADDL"), 4 },
	{ FourCC("ANIM"), 1 },
};

bool LoadMeshes(CCompiledFileReader &reader, CCompiledModel &model)
{
	uint32 meshCount, boneCount, drawCount;
	const MeshRecord_t *pMeshes = reader.Records<MeshRecord_t>(FourCC("MESH"), meshCount);
	const uint8 *pBones = reinterpret_cast<const uint8 *>(reader.Records<uint32>(FourCC("MBON"), boneCount));
	const uint8 *pDraws = reinterpret_cast<const uint8 *>(reader.Records<DrawCallRecord_t>(FourCC("DRAW"), drawCount));
	uint64 vertexBytes, indexBytes;
	const uint8 *pVertices = reader.Bytes(FourCC("VERT"), vertexBytes);
	const uint8 *pIndices = reader.Bytes(FourCC("INDX"), indexBytes);
	CByteCursor vertices(reader, "VERT", pVertices, vertexBytes);
	CByteCursor indices(reader, "INDX", pIndices, indexBytes);
	CRangeCursor bones(reader, "MBON", boneCount);
	CRangeCursor draws(reader, "DRAW", drawCount);

	model.m_Meshes.resize(meshCount);
	for (uint32 i = 0; i < meshCount; ++i)
	{
		const MeshRecord_t record = ReadRecord(pMeshes, i);
		CompiledMesh_t &mesh = model.m_Meshes[i];
		if (!reader.ReadString(record.name, mesh.m_Name))
			return false;
		if (record.flags & ~MESH_FLAGS_ALL)
			return reader.Fail("mesh %u has unknown flags %08x", i, record.flags);
		if (record.indexSize != 2 && record.indexSize != 4)
			return reader.Fail("mesh %u has indices of %u bytes", i, record.indexSize);
		if (!bones.Take(record.firstBone, record.boneCount, "mesh", i) || !draws.Take(record.firstDrawCall, record.drawCallCount, "mesh", i))
			return false;
		if (((record.flags & MESH_FLAG_SKINNED) != 0) != (record.boneCount != 0))
			return reader.Fail("mesh %u: the skinned flag does not match its %u bones", i, record.boneCount);

		const uint64 n = record.vertexCount;
		const uint8 *pPositions = vertices.Next(n * sizeof(Vector), "mesh", i, &record.vertexOffset);
		const uint8 *pNormals = pPositions ? vertices.Next(n * sizeof(Vector), "mesh", i) : nullptr;
		const uint8 *pTangents = pNormals;
		if (pNormals && (record.flags & MESH_FLAG_TANGENTS))
			pTangents = vertices.Next(n * sizeof(CompiledTangent_t), "mesh", i);
		const uint8 *pTexCoords = pTangents ? vertices.Next(n * sizeof(CompiledTexCoord_t), "mesh", i) : nullptr;
		const uint8 *pBoneIndices = pTexCoords;
		const uint8 *pBoneWeights = pTexCoords;
		if (pTexCoords && (record.flags & MESH_FLAG_SKINNED))
		{
			pBoneIndices = vertices.Next(n * sizeof(CompiledBoneIndices_t), "mesh", i);
			pBoneWeights = pBoneIndices ? vertices.Next(n * sizeof(CompiledBoneWeights_t), "mesh", i) : nullptr;
		}
		const uint8 *pMeshIndices = pBoneWeights ? indices.Next((uint64)record.indexCount * record.indexSize, "mesh", i, &record.indexOffset) : nullptr;
		if (!pMeshIndices)
			return false;

		mesh.m_nLodMask = record.lodMask;
		CopyOut(mesh.m_Positions, pPositions, n);
		CopyOut(mesh.m_Normals, pNormals, n);
		if (record.flags & MESH_FLAG_TANGENTS)
			CopyOut(mesh.m_Tangents, pTangents, n);
		CopyOut(mesh.m_TexCoords, pTexCoords, n);
		if (record.flags & MESH_FLAG_SKINNED)
		{
			CopyOut(mesh.m_BoneIndices, pBoneIndices, n);
			CopyOut(mesh.m_BoneWeights, pBoneWeights, n);
		}
		if (record.indexSize == 2)
			CopyOut(mesh.m_Indices16, pMeshIndices, record.indexCount);
		else
			CopyOut(mesh.m_Indices32, pMeshIndices, record.indexCount);
		CopyOut(mesh.m_Bones, pBones + (size_t)record.firstBone * 4, record.boneCount);
		CopyOut(mesh.m_DrawCalls, pDraws + (size_t)record.firstDrawCall * sizeof(DrawCallRecord_t), record.drawCallCount);
		mesh.m_Bounds.m_vMins = ToVector(record.mins);
		mesh.m_Bounds.m_vMaxs = ToVector(record.maxs);
	}
	return vertices.Finish() && indices.Finish() && bones.Finish() && draws.Finish();
}

bool LoadSkeletonAndMaterials(CCompiledFileReader &reader, CCompiledModel &model)
{
	uint32 count;
	const BoneRecord_t *pBones = reader.Records<BoneRecord_t>(FourCC("BONE"), count);
	model.m_Bones.resize(count);
	for (uint32 i = 0; i < count; ++i)
	{
		const BoneRecord_t record = ReadRecord(pBones, i);
		CompiledBone_t &bone = model.m_Bones[i];
		if (!reader.ReadString(record.name, bone.m_Name))
			return false;
		if (record.flags != 0)
			return reader.Fail("bone %u has unknown flags %08x", i, record.flags);
		bone.m_nParent = record.parent;
		bone.m_vPosition = ToVector(record.position);
		memcpy(&bone.m_qRotation, record.rotation, sizeof(record.rotation));
		bone.m_vScale = ToVector(record.scale);
		memcpy(bone.m_InverseBind.m, record.inverseBind, sizeof(record.inverseBind));
	}

	const StringRef_t *pMaterials = reader.Records<StringRef_t>(FourCC("MATL"), count);
	model.m_Materials.resize(count);
	for (uint32 i = 0; i < count; ++i)
	{
		if (!reader.ReadString(ReadRecord(pMaterials, i), model.m_Materials[i]))
			return false;
	}

	uint32 remapCount;
	const MaterialGroupRecord_t *pGroups = reader.Records<MaterialGroupRecord_t>(FourCC("MGRP"), count);
	const RemapRecord_t *pRemaps = reader.Records<RemapRecord_t>(FourCC("MREM"), remapCount);
	CRangeCursor remaps(reader, "MREM", remapCount);
	model.m_MaterialGroups.resize(count);
	for (uint32 i = 0; i < count; ++i)
	{
		const MaterialGroupRecord_t record = ReadRecord(pGroups, i);
		CompiledMaterialGroup_t &group = model.m_MaterialGroups[i];
		if (!reader.ReadString(record.name, group.m_Name) || !remaps.Take(record.firstRemap, record.remapCount, "material group", i))
			return false;
		group.m_Remaps.resize(record.remapCount);
		for (uint32 r = 0; r < record.remapCount; ++r)
		{
			const RemapRecord_t remap = ReadRecord(pRemaps, record.firstRemap + r);
			group.m_Remaps[r] = { remap.from, remap.to };
		}
	}
	return remaps.Finish();
}

bool LoadGroupsAndPoints(CCompiledFileReader &reader, CCompiledModel &model)
{
	uint32 count, choiceCount, meshCount;
	const BodyGroupRecord_t *pGroups = reader.Records<BodyGroupRecord_t>(FourCC("BGRP"), count);
	const BodyGroupChoiceRecord_t *pChoices = reader.Records<BodyGroupChoiceRecord_t>(FourCC("BCHO"), choiceCount);
	const uint8 *pMeshes = reinterpret_cast<const uint8 *>(reader.Records<uint32>(FourCC("BMSH"), meshCount));
	CRangeCursor choices(reader, "BCHO", choiceCount);
	CRangeCursor meshes(reader, "BMSH", meshCount);
	model.m_BodyGroups.resize(count);
	for (uint32 i = 0; i < count; ++i)
	{
		const BodyGroupRecord_t record = ReadRecord(pGroups, i);
		CompiledBodyGroup_t &group = model.m_BodyGroups[i];
		if (!reader.ReadString(record.name, group.m_Name) || !choices.Take(record.firstChoice, record.choiceCount, "body group", i))
			return false;
		group.m_Choices.resize(record.choiceCount);
		for (uint32 c = 0; c < record.choiceCount; ++c)
		{
			const BodyGroupChoiceRecord_t choice = ReadRecord(pChoices, record.firstChoice + c);
			if (!reader.ReadString(choice.name, group.m_Choices[c].m_Name) ||
				!meshes.Take(choice.firstMesh, choice.meshCount, "body group choice", record.firstChoice + c))
				return false;
			CopyOut(group.m_Choices[c].m_Meshes, pMeshes + (size_t)choice.firstMesh * 4, choice.meshCount);
		}
	}
	if (!choices.Finish() || !meshes.Finish())
		return false;

	const uint8 *pLods = reinterpret_cast<const uint8 *>(reader.Records<float>(FourCC("LODS"), count));
	CopyOut(model.m_LodSwitchThresholds, pLods, count);

	const AttachmentRecord_t *pAttachments = reader.Records<AttachmentRecord_t>(FourCC("ATCH"), count);
	model.m_Attachments.resize(count);
	for (uint32 i = 0; i < count; ++i)
	{
		const AttachmentRecord_t record = ReadRecord(pAttachments, i);
		CompiledAttachment_t &attachment = model.m_Attachments[i];
		if (!reader.ReadString(record.name, attachment.m_Name))
			return false;
		if (record.flags & ~ATTACHMENT_FLAG_IGNORE_ROTATION)
			return reader.Fail("attachment %u has unknown flags %08x", i, record.flags);
		attachment.m_nParentBone = record.parentBone;
		attachment.m_bIgnoreRotation = (record.flags & ATTACHMENT_FLAG_IGNORE_ROTATION) != 0;
		attachment.m_vOrigin = ToVector(record.origin);
		attachment.m_Angles = QAngle(record.angles[0], record.angles[1], record.angles[2]);
	}

	uint32 hitboxCount;
	const HitboxSetRecord_t *pSets = reader.Records<HitboxSetRecord_t>(FourCC("HSET"), count);
	const HitboxRecord_t *pHitboxes = reader.Records<HitboxRecord_t>(FourCC("HBOX"), hitboxCount);
	CRangeCursor hitboxes(reader, "HBOX", hitboxCount);
	model.m_HitboxSets.resize(count);
	for (uint32 i = 0; i < count; ++i)
	{
		const HitboxSetRecord_t record = ReadRecord(pSets, i);
		CompiledHitboxSet_t &set = model.m_HitboxSets[i];
		if (!reader.ReadString(record.name, set.m_Name) || !hitboxes.Take(record.firstHitbox, record.hitboxCount, "hitbox set", i))
			return false;
		if ((record.flags & ~HITBOX_SET_FLAG_GENERATED) || record.reserved)
			return reader.Fail("hitbox set %u has unknown flags %08x", i, record.flags | record.reserved);
		set.m_bGenerated = (record.flags & HITBOX_SET_FLAG_GENERATED) != 0;
		set.m_Hitboxes.resize(record.hitboxCount);
		for (uint32 h = 0; h < record.hitboxCount; ++h)
		{
			const HitboxRecord_t box = ReadRecord(pHitboxes, record.firstHitbox + h);
			CompiledHitbox_t &hitbox = set.m_Hitboxes[h];
			if (!reader.ReadString(box.name, hitbox.m_Name))
				return false;
			hitbox.m_nBone = box.bone;
			hitbox.m_vMins = ToVector(box.mins);
			hitbox.m_vMaxs = ToVector(box.maxs);
		}
	}
	if (!hitboxes.Finish())
		return false;

	const PoseParameterRecord_t *pPoses = reader.Records<PoseParameterRecord_t>(FourCC("POSE"), count);
	model.m_PoseParameters.resize(count);
	for (uint32 i = 0; i < count; ++i)
	{
		const PoseParameterRecord_t record = ReadRecord(pPoses, i);
		CompiledPoseParameter_t &pose = model.m_PoseParameters[i];
		if (!reader.ReadString(record.name, pose.m_Name))
			return false;
		if (record.flags & ~POSE_FLAG_LOOPING)
			return reader.Fail("pose parameter %u has unknown flags %08x", i, record.flags);
		pose.m_flMin = record.min;
		pose.m_flMax = record.max;
		pose.m_flLoopRange = record.loopRange;
		pose.m_bLooping = (record.flags & POSE_FLAG_LOOPING) != 0;
	}

	uint32 weightCount;
	const WeightListRecord_t *pLists = reader.Records<WeightListRecord_t>(FourCC("WLST"), count);
	const uint8 *pWeights = reinterpret_cast<const uint8 *>(reader.Records<float>(FourCC("WGTS"), weightCount));
	CRangeCursor weights(reader, "WGTS", weightCount);
	model.m_WeightLists.resize(count);
	for (uint32 i = 0; i < count; ++i)
	{
		const WeightListRecord_t record = ReadRecord(pLists, i);
		CompiledWeightList_t &list = model.m_WeightLists[i];
		if (!reader.ReadString(record.name, list.m_Name) || !weights.Take(record.firstWeight, record.weightCount, "weight list", i))
			return false;
		CopyOut(list.m_Weights, pWeights + (size_t)record.firstWeight * 4, record.weightCount);
	}
	return weights.Finish();
}

bool LoadSequences(CCompiledFileReader &reader, CCompiledModel &model)
{
	uint32 count, activityCount, eventCount, keyCount, layerCount;
	const SequenceRecord_t *pSequences = reader.Records<SequenceRecord_t>(FourCC("SEQN"), count);
	const ActivityRecord_t *pActivities = reader.Records<ActivityRecord_t>(FourCC("ACTV"), activityCount);
	const EventRecord_t *pEvents = reader.Records<EventRecord_t>(FourCC("EVNT"), eventCount);
	const BlendKeyRecord_t *pKeys = reader.Records<BlendKeyRecord_t>(FourCC("BKEY"), keyCount);
	const uint8 *pLayers = reinterpret_cast<const uint8 *>(reader.Records<uint32>(FourCC("ADDL"), layerCount));
	uint64 animationBytes;
	const uint8 *pAnimation = reader.Bytes(FourCC("ANIM"), animationBytes);
	CRangeCursor activities(reader, "ACTV", activityCount);
	CRangeCursor events(reader, "EVNT", eventCount);
	CRangeCursor keys(reader, "BKEY", keyCount);
	CRangeCursor layers(reader, "ADDL", layerCount);
	CByteCursor animation(reader, "ANIM", pAnimation, animationBytes);

	auto readActivities = [&](std::vector<CompiledActivity_t> &out, uint32 first, uint32 n, size_t index) {
		if (!activities.Take(first, n, "sequence", index))
			return false;
		out.resize(n);
		for (uint32 a = 0; a < n; ++a)
		{
			const ActivityRecord_t record = ReadRecord(pActivities, first + a);
			if (!reader.ReadString(record.name, out[a].m_Name))
				return false;
			out[a].m_nWeight = record.weight;
		}
		return true;
	};

	model.m_Sequences.resize(count);
	for (uint32 i = 0; i < count; ++i)
	{
		const SequenceRecord_t record = ReadRecord(pSequences, i);
		CompiledSequence_t &seq = model.m_Sequences[i];
		if (!reader.ReadString(record.name, seq.m_Name))
			return false;
		if (record.flags & ~SEQUENCE_FLAGS_ALL)
			return reader.Fail("sequence %u has unknown flags %08x", i, record.flags);
		seq.m_nFrameCount = record.frameCount;
		seq.m_flFps = record.fps;
		seq.m_bLooping = (record.flags & SEQUENCE_FLAG_LOOPING) != 0;
		seq.m_bDelta = (record.flags & SEQUENCE_FLAG_DELTA) != 0;
		seq.m_nWeightList = record.weightList;
		if (!readActivities(seq.m_Activities, record.firstActivity, record.activityCount, i) ||
			!readActivities(seq.m_Modifiers, record.firstModifier, record.modifierCount, i))
			return false;

		if (!events.Take(record.firstEvent, record.eventCount, "sequence", i))
			return false;
		seq.m_Events.resize(record.eventCount);
		for (uint32 e = 0; e < record.eventCount; ++e)
		{
			const EventRecord_t event = ReadRecord(pEvents, record.firstEvent + e);
			if (!reader.ReadString(event.eventClass, seq.m_Events[e].m_Class) || !reader.ReadString(event.keys, seq.m_Events[e].m_Keys))
				return false;
			seq.m_Events[e].m_nFrame = event.frame;
		}

		seq.m_nBlendPoseParameter = record.blendPoseParameter;
		if (!keys.Take(record.firstBlendKey, record.blendKeyCount, "sequence", i))
			return false;
		seq.m_BlendKeys.resize(record.blendKeyCount);
		for (uint32 k = 0; k < record.blendKeyCount; ++k)
		{
			const BlendKeyRecord_t key = ReadRecord(pKeys, record.firstBlendKey + k);
			seq.m_BlendKeys[k] = { key.sequence, key.value };
		}
		if (!layers.Take(record.firstAddLayer, record.addLayerCount, "sequence", i))
			return false;
		CopyOut(seq.m_AddLayers, pLayers + (size_t)record.firstAddLayer * 4, record.addLayerCount);
		seq.m_nMotionFlags = record.motionFlags;
		seq.m_nMotionRootBone = record.motionRootBone;

		// The bone count is checked against the skeleton before its product sizes anything.
		if (record.boneCount != 0 && record.boneCount != model.m_Bones.size())
			return reader.Fail("sequence %u animates %u bones; the skeleton has %zu", i, record.boneCount, model.m_Bones.size());
		seq.m_nBoneCount = record.boneCount;
		const uint64 transforms = (uint64)record.frameCount * record.boneCount;
		const uint8 *pTranslations = animation.Next(transforms * sizeof(Vector), "sequence", i, &record.animationOffset);
		const uint8 *pRotations = pTranslations ? animation.Next(transforms * sizeof(CompiledQuaternion_t), "sequence", i) : nullptr;
		const uint8 *pScales = pRotations;
		if (pRotations && (record.flags & SEQUENCE_FLAG_SCALES))
			pScales = animation.Next(transforms * sizeof(Vector), "sequence", i);
		if (!pScales)
			return false;
		CopyOut(seq.m_Translations, pTranslations, transforms);
		CopyOut(seq.m_Rotations, pRotations, transforms);
		if (record.flags & SEQUENCE_FLAG_SCALES)
			CopyOut(seq.m_Scales, pScales, transforms);
	}
	return activities.Finish() && events.Finish() && keys.Finish() && layers.Finish() && animation.Finish();
}
} // namespace

bool LoadCompiledModelFromMemory(const void *pData, size_t size, const char *pszName, CCompiledModel &out, CUtlString *pError)
{
	out = CCompiledModel();
	CCompiledFileReader reader;
	if (!reader.Open(pData, size, pszName, MODEL_MAGIC, MODEL_VERSION, "model", s_ModelSections, (int)V_ARRAYSIZE(s_ModelSections), pError))
		return false;
	ModelInfo_t info;
	if (!reader.SingleRecord(FourCC("MODL"), info))
		return false;
	if (info.flags || info.reserved)
		return reader.Fail("unknown model flags %08x", info.flags | info.reserved);
	out.m_Bounds.m_vMins = ToVector(info.mins);
	out.m_Bounds.m_vMaxs = ToVector(info.maxs);

	CUtlString reason;
	bool ok = LoadSkeletonAndMaterials(reader, out) && LoadMeshes(reader, out) && LoadGroupsAndPoints(reader, out) && LoadSequences(reader, out);
	if (ok && !out.Check(&reason))
		ok = reader.Fail("%s", reason.c_str());
	if (!ok)
		out = CCompiledModel();
	return ok;
}

// ---------------------------------------------------------------------------------------------
// Texture

bool LoadCompiledTextureFromMemory(const void *pData, size_t size, const char *pszName, CCompiledTexture &out, CUtlString *pError)
{
	static const SectionSpec_t s_Sections[] = {
		{ FourCC("STRS"), 1 },
		{ FourCC("TEXI"), sizeof(TextureInfo_t) },
		{ FourCC("MIPS"), sizeof(MipRecord_t) },
		{ FourCC("DATA"), 1 },
	};
	out = CCompiledTexture();
	CCompiledFileReader reader;
	if (!reader.Open(pData, size, pszName, TEXTURE_MAGIC, TEXTURE_VERSION, "texture", s_Sections, (int)V_ARRAYSIZE(s_Sections), pError))
		return false;
	uint32 mipCount;
	TextureInfo_t info;
	if (!reader.SingleRecord(FourCC("TEXI"), info))
		return false;
	const MipRecord_t *pMips = reader.Records<MipRecord_t>(FourCC("MIPS"), mipCount);
	if (info.mipCount != mipCount)
		return reader.Fail("the texture has %u mips but \"MIPS\" holds %u", info.mipCount, mipCount);
	if (info.reserved[0] || info.reserved[1] || info.reserved[2])
		return reader.Fail("unknown texture header fields");
	uint64 dataBytes;
	const uint8 *pBytes = reader.Bytes(FourCC("DATA"), dataBytes);
	CByteCursor data(reader, "DATA", pBytes, dataBytes);

	CCompiledTexture texture;
	texture.m_eFormat = (ECompiledTextureFormat)info.format;
	texture.m_nFlags = info.flags;
	texture.m_nWidth = info.width;
	texture.m_nHeight = info.height;
	// The size and format are checked before any mip is copied, and each mip's size against
	// its dimensions, so that the copies add up to no more than the file holds.
	if (info.width < 1 || info.height < 1 || info.width > CCompiledTexture::MAX_SIZE || info.height > CCompiledTexture::MAX_SIZE)
		return reader.Fail("texture size %ux%u is outside 1 to %u", info.width, info.height, (uint32)CCompiledTexture::MAX_SIZE);
	if (CCompiledTexture::MipByteSize(texture.m_eFormat, 1, 1) == 0)
		return reader.Fail("unknown texture format %u", info.format);
	texture.m_Mips.resize(mipCount);
	for (uint32 i = 0; i < mipCount; ++i)
	{
		const MipRecord_t record = ReadRecord(pMips, i);
		if (record.width > CCompiledTexture::MAX_SIZE || record.height > CCompiledTexture::MAX_SIZE)
			return reader.Fail("mip %u is %ux%u, larger than any texture", i, record.width, record.height);
		if (record.size != CCompiledTexture::MipByteSize(texture.m_eFormat, record.width, record.height))
			return reader.Fail("mip %u of %ux%u has %llu bytes", i, record.width, record.height, (unsigned long long)record.size);
		const uint8 *pMip = data.Next(record.size, "mip", i, &record.offset);
		if (!pMip)
			return false;
		texture.m_Mips[i].m_nWidth = record.width;
		texture.m_Mips[i].m_nHeight = record.height;
		CopyOut(texture.m_Mips[i].m_Data, pMip, record.size);
	}
	CUtlString reason;
	if (!data.Finish())
		return false;
	if (!texture.Check(&reason))
		return reader.Fail("%s", reason.c_str());
	out = std::move(texture);
	return true;
}

// ---------------------------------------------------------------------------------------------
// Material

bool LoadCompiledMaterialFromMemory(const void *pData, size_t size, const char *pszName, CCompiledMaterial &out, CUtlString *pError)
{
	static const SectionSpec_t s_Sections[] = {
		{ FourCC("STRS"), 1 },
		{ FourCC("MATI"), sizeof(MaterialInfo_t) },
		{ FourCC("TEXR"), sizeof(TextureRefRecord_t) },
		{ FourCC("CNST"), sizeof(ConstantRecord_t) },
	};
	out = CCompiledMaterial();
	CCompiledFileReader reader;
	if (!reader.Open(pData, size, pszName, MATERIAL_MAGIC, MATERIAL_VERSION, "material", s_Sections, (int)V_ARRAYSIZE(s_Sections), pError))
		return false;
	uint32 textureCount, constantCount;
	MaterialInfo_t info;
	if (!reader.SingleRecord(FourCC("MATI"), info))
		return false;
	CCompiledMaterial material;
	if (!reader.ReadString(info.shader, material.m_Shader))
		return false;
	if (info.reserved)
		return reader.Fail("unknown material header fields");
	material.m_nFlags = info.flags;

	const TextureRefRecord_t *pTextures = reader.Records<TextureRefRecord_t>(FourCC("TEXR"), textureCount);
	material.m_Textures.resize(textureCount);
	for (uint32 i = 0; i < textureCount; ++i)
	{
		const TextureRefRecord_t record = ReadRecord(pTextures, i);
		if (!reader.ReadString(record.key, material.m_Textures[i].m_Key) || !reader.ReadString(record.path, material.m_Textures[i].m_Path))
			return false;
	}
	const ConstantRecord_t *pConstants = reader.Records<ConstantRecord_t>(FourCC("CNST"), constantCount);
	material.m_Constants.resize(constantCount);
	for (uint32 i = 0; i < constantCount; ++i)
	{
		const ConstantRecord_t record = ReadRecord(pConstants, i);
		CompiledMaterialConstant_t &constant = material.m_Constants[i];
		if (!reader.ReadString(record.key, constant.m_Key))
			return false;
		if (record.reserved)
			return reader.Fail("constant %u has unknown flags", i);
		constant.m_eType = (ECompiledConstantType)record.type;
		if (record.type == COMPILED_CONSTANT_INT)
			memcpy(constant.m_nValues, record.values, sizeof(record.values));
		else
			memcpy(constant.m_flValues, record.values, sizeof(record.values));
	}
	CUtlString reason;
	if (!material.Check(&reason))
		return reader.Fail("%s", reason.c_str());
	out = std::move(material);
	return true;
}

// ---------------------------------------------------------------------------------------------
// Particle snapshot

bool LoadCompiledSnapshotFromMemory(const void *pData, size_t size, const char *pszName, CCompiledSnapshot &out, CUtlString *pError)
{
	static const SectionSpec_t s_Sections[] = {
		{ FourCC("STRS"), 1 },
		{ FourCC("SNPI"), sizeof(SnapshotInfo_t) },
		{ FourCC("SPOS"), sizeof(Vector) },
		{ FourCC("SNRM"), sizeof(Vector) },
	};
	out = CCompiledSnapshot();
	CCompiledFileReader reader;
	if (!reader.Open(pData, size, pszName, SNAPSHOT_MAGIC, SNAPSHOT_VERSION, "particle snapshot", s_Sections, (int)V_ARRAYSIZE(s_Sections), pError))
		return false;
	uint32 positionCount, normalCount;
	SnapshotInfo_t info;
	if (!reader.SingleRecord(FourCC("SNPI"), info))
		return false;
	const uint8 *pPositions = reinterpret_cast<const uint8 *>(reader.Records<Vector>(FourCC("SPOS"), positionCount));
	const uint8 *pNormals = reinterpret_cast<const uint8 *>(reader.Records<Vector>(FourCC("SNRM"), normalCount));
	if (positionCount != info.vertexCount || normalCount != info.vertexCount)
		return reader.Fail("the snapshot has %u points but %u positions and %u normals", info.vertexCount, positionCount, normalCount);
	if (info.reserved)
		return reader.Fail("unknown snapshot header fields");
	CCompiledSnapshot snapshot;
	if (!reader.ReadString(info.localSpaceBone, snapshot.m_LocalSpaceBone))
		return false;
	CopyOut(snapshot.m_Positions, pPositions, positionCount);
	CopyOut(snapshot.m_Normals, pNormals, normalCount);
	out = std::move(snapshot);
	return true;
}

// ---------------------------------------------------------------------------------------------
// Any asset, by its magic

ECompiledAssetType IdentifyCompiledAsset(const void *pData, size_t size)
{
	if (!pData || size < 4)
		return COMPILED_ASSET_UNKNOWN;
	uint32 magic;
	memcpy(&magic, pData, 4);
	switch (magic)
	{
	case MODEL_MAGIC:
		return COMPILED_ASSET_MODEL;
	case TEXTURE_MAGIC:
		return COMPILED_ASSET_TEXTURE;
	case MATERIAL_MAGIC:
		return COMPILED_ASSET_MATERIAL;
	case SNAPSHOT_MAGIC:
		return COMPILED_ASSET_SNAPSHOT;
	default:
		return COMPILED_ASSET_UNKNOWN;
	}
}

bool LoadCompiledAssetFromMemory(const void *pData, size_t size, const char *pszName, CompiledAsset_t &out, CUtlString *pError)
{
	out = CompiledAsset_t();
	const char *name = pszName ? pszName : "<memory>";
	switch (IdentifyCompiledAsset(pData, size))
	{
	case COMPILED_ASSET_MODEL:
		out.m_pModel = std::make_unique<CCompiledModel>();
		if (!LoadCompiledModelFromMemory(pData, size, name, *out.m_pModel, pError))
			break;
		out.m_eType = COMPILED_ASSET_MODEL;
		return true;
	case COMPILED_ASSET_TEXTURE:
		out.m_pTexture = std::make_unique<CCompiledTexture>();
		if (!LoadCompiledTextureFromMemory(pData, size, name, *out.m_pTexture, pError))
			break;
		out.m_eType = COMPILED_ASSET_TEXTURE;
		return true;
	case COMPILED_ASSET_MATERIAL:
		out.m_pMaterial = std::make_unique<CCompiledMaterial>();
		if (!LoadCompiledMaterialFromMemory(pData, size, name, *out.m_pMaterial, pError))
			break;
		out.m_eType = COMPILED_ASSET_MATERIAL;
		return true;
	case COMPILED_ASSET_SNAPSHOT:
		out.m_pSnapshot = std::make_unique<CCompiledSnapshot>();
		if (!LoadCompiledSnapshotFromMemory(pData, size, name, *out.m_pSnapshot, pError))
			break;
		out.m_eType = COMPILED_ASSET_SNAPSHOT;
		return true;
	default:
		if (pError)
		{
			if (!pData || size < 4)
				*pError = V_Format("%s: not a compiled asset: the file has %zu bytes", name, pData ? size : 0);
			else
			{
				uint32 magic;
				memcpy(&magic, pData, 4);
				*pError = V_Format("%s: not a compiled asset: unknown magic \"%s\"", name, FourCCText(magic).c_str());
			}
		}
		break;
	}
	out = CompiledAsset_t();
	return false;
}

namespace
{
// Reads the file in one piece and hands it to the loader of its kind.
template <typename T>
bool LoadFile(const char *pszPath, const char *pszPathID, T &out, CUtlString *pError,
	bool (*pfnLoad)(const void *, size_t, const char *, T &, CUtlString *))
{
	CUtlBuffer buffer;
	if (!ReadFileWhole(pszPath, pszPathID, buffer, pError))
	{
		out = T();
		return false;
	}
	return pfnLoad(buffer.Base(), buffer.Size(), pszPath, out, pError);
}
} // namespace

bool LoadCompiledAsset(const char *pszPath, CompiledAsset_t &out, CUtlString *pError, const char *pszPathID)
{
	return LoadFile(pszPath, pszPathID, out, pError, LoadCompiledAssetFromMemory);
}


bool LoadCompiledModel(const char *pszPath, CCompiledModel &out, CUtlString *pError, const char *pszPathID)
{
	return LoadFile(pszPath, pszPathID, out, pError, LoadCompiledModelFromMemory);
}

bool LoadCompiledTexture(const char *pszPath, CCompiledTexture &out, CUtlString *pError, const char *pszPathID)
{
	return LoadFile(pszPath, pszPathID, out, pError, LoadCompiledTextureFromMemory);
}

bool LoadCompiledMaterial(const char *pszPath, CCompiledMaterial &out, CUtlString *pError, const char *pszPathID)
{
	return LoadFile(pszPath, pszPathID, out, pError, LoadCompiledMaterialFromMemory);
}

bool LoadCompiledSnapshot(const char *pszPath, CCompiledSnapshot &out, CUtlString *pError, const char *pszPathID)
{
	return LoadFile(pszPath, pszPathID, out, pError, LoadCompiledSnapshotFromMemory);
}
