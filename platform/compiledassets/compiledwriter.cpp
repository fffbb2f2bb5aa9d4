// The one writer of the compiled formats. Each record is checked first, then laid out as
// README.md describes: fixed records in their sections, vertex, index and animation arrays
// copied whole into byte sections at 16-byte boundaries, one after the other.
#include <cstring>

#include "compiledassets/compiledassets.h"
#include "compiledassets/compiledformat.h"
#include "core/fileio.h"
#include "core/strtools.h"

using namespace CompiledFormat;

namespace
{
template <typename T> uint64 AppendArray(std::vector<uint8> &blob, const std::vector<T> &items)
{
	return AppendAligned(blob, items.data(), items.size() * sizeof(T));
}

void CopyVector(float (&out)[3], const Vector &v)
{
	out[0] = v.x;
	out[1] = v.y;
	out[2] = v.z;
}

bool Refuse(CUtlString *pError, const char *kind, const CUtlString &reason)
{
	if (pError)
		*pError = V_Format("Cannot write a compiled %s: %s", kind, reason.c_str());
	return false;
}

bool WriteFile(const char *pszPath, const CUtlBuffer &data, CUtlString *pError)
{
	if (!pszPath || !*pszPath)
	{
		if (pError)
			*pError = "No path to write the compiled asset to";
		return false;
	}
	return Plat_WriteFileAtomic(pszPath, data.Base(), data.Size(), pError);
}
} // namespace

bool SerializeCompiledModel(const CCompiledModel &model, CUtlBuffer &out, CUtlString *pError)
{
	CUtlString reason;
	if (!model.Check(&reason))
		return Refuse(pError, "model", reason);

	CCompiledFileWriter writer(MODEL_MAGIC, MODEL_VERSION);

	ModelInfo_t info = {};
	CopyVector(info.mins, model.m_Bounds.m_vMins);
	CopyVector(info.maxs, model.m_Bounds.m_vMaxs);

	std::vector<MeshRecord_t> meshes;
	std::vector<uint32> meshBones;
	std::vector<DrawCallRecord_t> drawCalls;
	std::vector<uint8> vertices, indices;
	for (const CompiledMesh_t &mesh : model.m_Meshes)
	{
		MeshRecord_t record = {};
		record.name = writer.AddString(mesh.m_Name);
		record.lodMask = mesh.m_nLodMask;
		record.flags = (mesh.m_Tangents.empty() ? 0 : MESH_FLAG_TANGENTS) | (mesh.IsSkinned() ? MESH_FLAG_SKINNED : 0);
		record.vertexCount = mesh.VertexCount();
		record.indexCount = mesh.IndexCount();
		record.indexSize = mesh.IndexSize();
		record.firstBone = (uint32)meshBones.size();
		record.boneCount = (uint32)mesh.m_Bones.size();
		meshBones.insert(meshBones.end(), mesh.m_Bones.begin(), mesh.m_Bones.end());
		record.firstDrawCall = (uint32)drawCalls.size();
		record.drawCallCount = (uint32)mesh.m_DrawCalls.size();
		for (const CompiledDrawCall_t &draw : mesh.m_DrawCalls)
			drawCalls.push_back({ draw.m_nMaterial, draw.m_nFirstIndex, draw.m_nIndexCount, draw.m_nPrimitiveCount });
		CopyVector(record.mins, mesh.m_Bounds.m_vMins);
		CopyVector(record.maxs, mesh.m_Bounds.m_vMaxs);

		record.vertexOffset = AppendArray(vertices, mesh.m_Positions);
		AppendArray(vertices, mesh.m_Normals);
		if (!mesh.m_Tangents.empty())
			AppendArray(vertices, mesh.m_Tangents);
		AppendArray(vertices, mesh.m_TexCoords);
		if (mesh.IsSkinned())
		{
			AppendArray(vertices, mesh.m_BoneIndices);
			AppendArray(vertices, mesh.m_BoneWeights);
		}
		record.indexOffset = mesh.m_Indices32.empty() ? AppendArray(indices, mesh.m_Indices16) : AppendArray(indices, mesh.m_Indices32);
		meshes.push_back(record);
	}

	std::vector<BoneRecord_t> bones;
	for (const CompiledBone_t &bone : model.m_Bones)
	{
		BoneRecord_t record = {};
		record.name = writer.AddString(bone.m_Name);
		record.parent = bone.m_nParent;
		CopyVector(record.position, bone.m_vPosition);
		memcpy(record.rotation, &bone.m_qRotation, sizeof(record.rotation));
		CopyVector(record.scale, bone.m_vScale);
		memcpy(record.inverseBind, bone.m_InverseBind.m, sizeof(record.inverseBind));
		bones.push_back(record);
	}

	std::vector<StringRef_t> materials;
	for (const CUtlString &material : model.m_Materials)
		materials.push_back(writer.AddString(material));

	std::vector<MaterialGroupRecord_t> groups;
	std::vector<RemapRecord_t> remaps;
	for (const CompiledMaterialGroup_t &group : model.m_MaterialGroups)
	{
		groups.push_back({ writer.AddString(group.m_Name), (uint32)remaps.size(), (uint32)group.m_Remaps.size() });
		for (const CompiledMaterialRemap_t &remap : group.m_Remaps)
			remaps.push_back({ remap.m_nFrom, remap.m_nTo });
	}

	std::vector<BodyGroupRecord_t> bodyGroups;
	std::vector<BodyGroupChoiceRecord_t> choices;
	std::vector<uint32> choiceMeshes;
	for (const CompiledBodyGroup_t &group : model.m_BodyGroups)
	{
		bodyGroups.push_back({ writer.AddString(group.m_Name), (uint32)choices.size(), (uint32)group.m_Choices.size() });
		for (const CompiledBodyGroupChoice_t &choice : group.m_Choices)
		{
			choices.push_back({ writer.AddString(choice.m_Name), (uint32)choiceMeshes.size(), (uint32)choice.m_Meshes.size() });
			choiceMeshes.insert(choiceMeshes.end(), choice.m_Meshes.begin(), choice.m_Meshes.end());
		}
	}

	std::vector<AttachmentRecord_t> attachments;
	for (const CompiledAttachment_t &attachment : model.m_Attachments)
	{
		AttachmentRecord_t record = {};
		record.name = writer.AddString(attachment.m_Name);
		record.parentBone = attachment.m_nParentBone;
		record.flags = attachment.m_bIgnoreRotation ? ATTACHMENT_FLAG_IGNORE_ROTATION : 0;
		CopyVector(record.origin, attachment.m_vOrigin);
		record.angles[0] = attachment.m_Angles.x;
		record.angles[1] = attachment.m_Angles.y;
		record.angles[2] = attachment.m_Angles.z;
		attachments.push_back(record);
	}

	std::vector<HitboxSetRecord_t> hitboxSets;
	std::vector<HitboxRecord_t> hitboxes;
	for (const CompiledHitboxSet_t &set : model.m_HitboxSets)
	{
		HitboxSetRecord_t record = {};
		record.name = writer.AddString(set.m_Name);
		record.firstHitbox = (uint32)hitboxes.size();
		record.hitboxCount = (uint32)set.m_Hitboxes.size();
		record.flags = set.m_bGenerated ? HITBOX_SET_FLAG_GENERATED : 0;
		hitboxSets.push_back(record);
		for (const CompiledHitbox_t &hitbox : set.m_Hitboxes)
		{
			HitboxRecord_t box = {};
			box.name = writer.AddString(hitbox.m_Name);
			box.bone = hitbox.m_nBone;
			CopyVector(box.mins, hitbox.m_vMins);
			CopyVector(box.maxs, hitbox.m_vMaxs);
			hitboxes.push_back(box);
		}
	}

	std::vector<PoseParameterRecord_t> poses;
	for (const CompiledPoseParameter_t &pose : model.m_PoseParameters)
		poses.push_back({ writer.AddString(pose.m_Name), pose.m_flMin, pose.m_flMax, pose.m_flLoopRange, pose.m_bLooping ? POSE_FLAG_LOOPING : 0u });

	std::vector<WeightListRecord_t> weightLists;
	std::vector<float> weights;
	for (const CompiledWeightList_t &list : model.m_WeightLists)
	{
		weightLists.push_back({ writer.AddString(list.m_Name), (uint32)weights.size(), (uint32)list.m_Weights.size() });
		weights.insert(weights.end(), list.m_Weights.begin(), list.m_Weights.end());
	}

	std::vector<SequenceRecord_t> sequences;
	std::vector<ActivityRecord_t> activities;
	std::vector<EventRecord_t> events;
	std::vector<BlendKeyRecord_t> blendKeys;
	std::vector<uint32> addLayers;
	std::vector<uint8> animation;
	for (const CompiledSequence_t &seq : model.m_Sequences)
	{
		SequenceRecord_t record = {};
		record.name = writer.AddString(seq.m_Name);
		record.frameCount = seq.m_nFrameCount;
		record.fps = seq.m_flFps;
		record.flags = (seq.m_bLooping ? SEQUENCE_FLAG_LOOPING : 0) | (seq.m_bDelta ? SEQUENCE_FLAG_DELTA : 0) |
			(seq.m_Scales.empty() ? 0 : SEQUENCE_FLAG_SCALES);
		record.weightList = seq.m_nWeightList;
		record.firstActivity = (uint32)activities.size();
		record.activityCount = (uint32)seq.m_Activities.size();
		for (const CompiledActivity_t &activity : seq.m_Activities)
			activities.push_back({ writer.AddString(activity.m_Name), activity.m_nWeight, 0 });
		record.firstModifier = (uint32)activities.size();
		record.modifierCount = (uint32)seq.m_Modifiers.size();
		for (const CompiledActivity_t &modifier : seq.m_Modifiers)
			activities.push_back({ writer.AddString(modifier.m_Name), modifier.m_nWeight, 0 });
		record.firstEvent = (uint32)events.size();
		record.eventCount = (uint32)seq.m_Events.size();
		for (const CompiledEvent_t &event : seq.m_Events)
		{
			EventRecord_t eventRecord = {};
			eventRecord.eventClass = writer.AddString(event.m_Class);
			eventRecord.keys = writer.AddString(event.m_Keys);
			eventRecord.frame = event.m_nFrame;
			events.push_back(eventRecord);
		}
		record.blendPoseParameter = seq.m_nBlendPoseParameter;
		record.firstBlendKey = (uint32)blendKeys.size();
		record.blendKeyCount = (uint32)seq.m_BlendKeys.size();
		for (const CompiledBlendKey_t &key : seq.m_BlendKeys)
			blendKeys.push_back({ key.m_nSequence, key.m_flValue });
		record.firstAddLayer = (uint32)addLayers.size();
		record.addLayerCount = (uint32)seq.m_AddLayers.size();
		addLayers.insert(addLayers.end(), seq.m_AddLayers.begin(), seq.m_AddLayers.end());
		record.motionFlags = seq.m_nMotionFlags;
		record.motionRootBone = seq.m_nMotionRootBone;
		record.boneCount = seq.m_nBoneCount;
		record.animationOffset = AppendArray(animation, seq.m_Translations);
		AppendArray(animation, seq.m_Rotations);
		if (!seq.m_Scales.empty())
			AppendArray(animation, seq.m_Scales);
		sequences.push_back(record);
	}

	writer.AddSection(FourCC("MODL"), sizeof(info), &info, 1);
	writer.AddSection(FourCC("MESH"), meshes);
	writer.AddSection(FourCC("MBON"), meshBones);
	writer.AddSection(FourCC("DRAW"), drawCalls);
	writer.AddSection(FourCC("VERT"), vertices);
	writer.AddSection(FourCC("INDX"), indices);
	writer.AddSection(FourCC("BONE"), bones);
	writer.AddSection(FourCC("MATL"), materials);
	writer.AddSection(FourCC("MGRP"), groups);
	writer.AddSection(FourCC("MREM"), remaps);
	writer.AddSection(FourCC("BGRP"), bodyGroups);
	writer.AddSection(FourCC("BCHO"), choices);
	writer.AddSection(FourCC("BMSH"), choiceMeshes);
	writer.AddSection(FourCC("LODS"), model.m_LodSwitchThresholds);
	writer.AddSection(FourCC("ATCH"), attachments);
	writer.AddSection(FourCC("HSET"), hitboxSets);
	writer.AddSection(FourCC("HBOX"), hitboxes);
	writer.AddSection(FourCC("POSE"), poses);
	writer.AddSection(FourCC("WLST"), weightLists);
	writer.AddSection(FourCC("WGTS"), weights);
	writer.AddSection(FourCC("SEQN"), sequences);
	writer.AddSection(FourCC("ACTV"), activities);
	writer.AddSection(FourCC("EVNT"), events);
	writer.AddSection(FourCC("BKEY"), blendKeys);
	writer.AddSection(FourCC("ADDL"), addLayers);
	writer.AddSection(FourCC("ANIM"), animation);
	if (!writer.Finish(out, &reason))
		return Refuse(pError, "model", reason);
	return true;
}

bool SerializeCompiledTexture(const CCompiledTexture &texture, CUtlBuffer &out, CUtlString *pError)
{
	CUtlString reason;
	if (!texture.Check(&reason))
		return Refuse(pError, "texture", reason);
	CCompiledFileWriter writer(TEXTURE_MAGIC, TEXTURE_VERSION);
	TextureInfo_t info = {};
	info.format = (uint32)texture.m_eFormat;
	info.flags = texture.m_nFlags;
	info.width = texture.m_nWidth;
	info.height = texture.m_nHeight;
	info.mipCount = (uint32)texture.m_Mips.size();
	std::vector<MipRecord_t> mips;
	std::vector<uint8> data;
	for (const CompiledMip_t &mip : texture.m_Mips)
		mips.push_back({ mip.m_nWidth, mip.m_nHeight, AppendArray(data, mip.m_Data), mip.m_Data.size() });
	writer.AddSection(FourCC("TEXI"), sizeof(info), &info, 1);
	writer.AddSection(FourCC("MIPS"), mips);
	writer.AddSection(FourCC("DATA"), data);
	if (!writer.Finish(out, &reason))
		return Refuse(pError, "texture", reason);
	return true;
}

bool SerializeCompiledMaterial(const CCompiledMaterial &material, CUtlBuffer &out, CUtlString *pError)
{
	CUtlString reason;
	if (!material.Check(&reason))
		return Refuse(pError, "material", reason);
	CCompiledFileWriter writer(MATERIAL_MAGIC, MATERIAL_VERSION);
	MaterialInfo_t info = {};
	info.shader = writer.AddString(material.m_Shader);
	info.flags = material.m_nFlags;
	std::vector<TextureRefRecord_t> textures;
	for (const CompiledMaterialTexture_t &texture : material.m_Textures)
	{
		const StringRef_t key = writer.AddString(texture.m_Key);
		textures.push_back({ key, writer.AddString(texture.m_Path) });
	}
	std::vector<ConstantRecord_t> constants;
	for (const CompiledMaterialConstant_t &constant : material.m_Constants)
	{
		ConstantRecord_t record = {};
		record.key = writer.AddString(constant.m_Key);
		record.type = (uint32)constant.m_eType;
		if (constant.m_eType == COMPILED_CONSTANT_INT)
			memcpy(record.values, constant.m_nValues, sizeof(record.values));
		else
			memcpy(record.values, constant.m_flValues, sizeof(record.values));
		constants.push_back(record);
	}
	writer.AddSection(FourCC("MATI"), sizeof(info), &info, 1);
	writer.AddSection(FourCC("TEXR"), textures);
	writer.AddSection(FourCC("CNST"), constants);
	if (!writer.Finish(out, &reason))
		return Refuse(pError, "material", reason);
	return true;
}

bool SerializeCompiledSnapshot(const CCompiledSnapshot &snapshot, CUtlBuffer &out, CUtlString *pError)
{
	CUtlString reason;
	if (!snapshot.Check(&reason))
		return Refuse(pError, "particle snapshot", reason);
	CCompiledFileWriter writer(SNAPSHOT_MAGIC, SNAPSHOT_VERSION);
	SnapshotInfo_t info = {};
	info.localSpaceBone = writer.AddString(snapshot.m_LocalSpaceBone);
	info.vertexCount = (uint32)snapshot.m_Positions.size();
	writer.AddSection(FourCC("SNPI"), sizeof(info), &info, 1);
	writer.AddSection(FourCC("SPOS"), snapshot.m_Positions);
	writer.AddSection(FourCC("SNRM"), snapshot.m_Normals);
	if (!writer.Finish(out, &reason))
		return Refuse(pError, "particle snapshot", reason);
	return true;
}

namespace
{
template <typename T> bool WriteAsset(const char *pszPath, const T &asset, CUtlString *pError, bool (*pfnSerialize)(const T &, CUtlBuffer &, CUtlString *))
{
	CUtlBuffer data;
	return pfnSerialize(asset, data, pError) && WriteFile(pszPath, data, pError);
}
} // namespace

bool WriteCompiledModel(const char *pszPath, const CCompiledModel &model, CUtlString *pError)
{
	return WriteAsset(pszPath, model, pError, SerializeCompiledModel);
}

bool WriteCompiledTexture(const char *pszPath, const CCompiledTexture &texture, CUtlString *pError)
{
	return WriteAsset(pszPath, texture, pError, SerializeCompiledTexture);
}

bool WriteCompiledMaterial(const char *pszPath, const CCompiledMaterial &material, CUtlString *pError)
{
	return WriteAsset(pszPath, material, pError, SerializeCompiledMaterial);
}

bool WriteCompiledSnapshot(const char *pszPath, const CCompiledSnapshot &snapshot, CUtlString *pError)
{
	return WriteAsset(pszPath, snapshot, pError, SerializeCompiledSnapshot);
}
