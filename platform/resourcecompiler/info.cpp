// `resourcecompiler info [--json] FILE`: what a compiled file holds, as readable lines or as one
// JSON object. Names of the JSON (more may follow in later versions, none go away):
//
// model     "type" "model", "meshes" [{"name", "lod_mask", "triangles", "vertices", "bones" (names),
//           "draw_calls" [{"material", "triangles"}], "skinned", "tangents"}], "skeleton" [{"name",
//           "parent" (the parent's name, "" for a root)}], "sequences" [{"name", "frames", "fps",
//           "looping", "delta", "bones", "weight_list", "activities", "modifiers", "events",
//           "blend", "add_layers", "motion"}], "attachments" [{"name", "bone", "origin", "angles",
//           "ignore_rotation"}], "hitbox_sets" [{"name", "generated", "hitboxes" [{"name", "bone",
//           "mins", "maxs"}]}], "body_groups" [{"name", "choices" [{"name", "meshes"}]}],
//           "materials" (compiled material paths), "material_groups" [{"name", "remaps" [{"from",
//           "to"}]}], "lods" (switch thresholds), "pose_parameters", "weight_lists", "bounds"
// texture   "type" "texture", "width", "height", "format" ("BC1", "BC3", "RGBA8"), "mips" (count),
//           "mip_sizes", "srgb", "ycocg", "bytes"
// material  "type" "material", "shader", "textures" (each key: the compiled texture's path under
//           the game root, or the constant's text "[r g b a]"), "flags", "constants"
// snapshot  "type" "particle snapshot", "local_space_bone", "points"
#include <cstdio>
#include <cstring>

#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include "compiledassets/compiledassets.h"
#include "core/strtools.h"
#include "resourcecompiler/materialsource.h"
#include "resourcecompiler/resourcecompiler.h"

namespace
{
const char s_InfoUsage[] = "usage: resourcecompiler info [--json] FILE\n"
						   "describes a compiled model, texture, material or particle snapshot\n";

typedef rapidjson::PrettyWriter<rapidjson::StringBuffer> JsonWriter_t;

void String(JsonWriter_t &json, const CUtlString &text)
{
	json.String(text.c_str(), (rapidjson::SizeType)text.size());
}

void Floats(JsonWriter_t &json, const float *values, int count)
{
	json.StartArray();
	for (int i = 0; i < count; ++i)
		json.Double(values[i]);
	json.EndArray();
}

const char *BoneName(const CCompiledModel &model, int32 bone)
{
	return bone >= 0 && (size_t)bone < model.m_Bones.size() ? model.m_Bones[(size_t)bone].m_Name.c_str() : "";
}

const char *SequenceName(const CCompiledModel &model, uint32 sequence)
{
	return sequence < model.m_Sequences.size() ? model.m_Sequences[sequence].m_Name.c_str() : "";
}

CUtlString MotionText(uint32 flags)
{
	CUtlString text;
	const char *names[] = { "tx", "ty", "tz", "rz" };
	for (int i = 0; i < 4; ++i)
	{
		if (flags & (1u << i))
			text += (text.empty() ? "" : " ") + CUtlString(names[i]);
	}
	return text;
}

bool IsTextureKey(const CUtlString &key)
{
	return V_StrBeginsWithNoCase(key, "Texture");
}

void ModelJson(JsonWriter_t &json, const CCompiledModel &model)
{
	json.Key("type");
	json.String("model");
	json.Key("bounds");
	json.StartObject();
	json.Key("mins");
	Floats(json, model.m_Bounds.m_vMins.Base(), 3);
	json.Key("maxs");
	Floats(json, model.m_Bounds.m_vMaxs.Base(), 3);
	json.EndObject();
	json.Key("lods");
	Floats(json, model.m_LodSwitchThresholds.data(), (int)model.m_LodSwitchThresholds.size());

	json.Key("meshes");
	json.StartArray();
	for (int m = 0; m < model.GetMeshCount(); ++m)
	{
		const CompiledMesh_t &mesh = model.GetMesh(m);
		json.StartObject();
		json.Key("name");
		String(json, mesh.m_Name);
		json.Key("lod_mask");
		json.Uint(mesh.m_nLodMask);
		json.Key("triangles");
		json.Uint64(mesh.PrimitiveCount());
		json.Key("vertices");
		json.Uint(mesh.VertexCount());
		json.Key("skinned");
		json.Bool(mesh.IsSkinned());
		json.Key("tangents");
		json.Bool(!mesh.m_Tangents.empty());
		json.Key("bones");
		json.StartArray();
		for (int b = 0; b < model.GetMeshBoneCount(m); ++b)
			json.String(model.GetMeshBoneName(m, b));
		json.EndArray();
		json.Key("draw_calls");
		json.StartArray();
		for (const CompiledDrawCall_t &draw : mesh.m_DrawCalls)
		{
			json.StartObject();
			json.Key("material");
			String(json, draw.m_nMaterial < model.m_Materials.size() ? model.m_Materials[draw.m_nMaterial] : CUtlString());
			json.Key("triangles");
			json.Uint(draw.m_nPrimitiveCount);
			json.EndObject();
		}
		json.EndArray();
		json.EndObject();
	}
	json.EndArray();

	json.Key("skeleton");
	json.StartArray();
	for (const CompiledBone_t &bone : model.m_Bones)
	{
		json.StartObject();
		json.Key("name");
		String(json, bone.m_Name);
		json.Key("parent");
		json.String(BoneName(model, bone.m_nParent));
		json.EndObject();
	}
	json.EndArray();

	json.Key("materials");
	json.StartArray();
	for (const CUtlString &material : model.m_Materials)
		String(json, material);
	json.EndArray();
	json.Key("material_groups");
	json.StartArray();
	for (const CompiledMaterialGroup_t &group : model.m_MaterialGroups)
	{
		json.StartObject();
		json.Key("name");
		String(json, group.m_Name);
		json.Key("remaps");
		json.StartArray();
		for (const CompiledMaterialRemap_t &remap : group.m_Remaps)
		{
			json.StartObject();
			json.Key("from");
			String(json, remap.m_nFrom < model.m_Materials.size() ? model.m_Materials[remap.m_nFrom] : CUtlString());
			json.Key("to");
			String(json, remap.m_nTo < model.m_Materials.size() ? model.m_Materials[remap.m_nTo] : CUtlString());
			json.EndObject();
		}
		json.EndArray();
		json.EndObject();
	}
	json.EndArray();

	json.Key("body_groups");
	json.StartArray();
	for (const CompiledBodyGroup_t &group : model.m_BodyGroups)
	{
		json.StartObject();
		json.Key("name");
		String(json, group.m_Name);
		json.Key("choices");
		json.StartArray();
		for (const CompiledBodyGroupChoice_t &choice : group.m_Choices)
		{
			json.StartObject();
			json.Key("name");
			String(json, choice.m_Name);
			json.Key("meshes");
			json.StartArray();
			for (uint32 mesh : choice.m_Meshes)
				String(json, mesh < model.m_Meshes.size() ? model.m_Meshes[mesh].m_Name : CUtlString());
			json.EndArray();
			json.EndObject();
		}
		json.EndArray();
		json.EndObject();
	}
	json.EndArray();

	json.Key("attachments");
	json.StartArray();
	for (const CompiledAttachment_t &attachment : model.m_Attachments)
	{
		json.StartObject();
		json.Key("name");
		String(json, attachment.m_Name);
		json.Key("bone");
		json.String(BoneName(model, attachment.m_nParentBone));
		json.Key("origin");
		Floats(json, attachment.m_vOrigin.Base(), 3);
		json.Key("angles");
		Floats(json, attachment.m_Angles.Base(), 3);
		json.Key("ignore_rotation");
		json.Bool(attachment.m_bIgnoreRotation);
		json.EndObject();
	}
	json.EndArray();

	json.Key("hitbox_sets");
	json.StartArray();
	for (const CompiledHitboxSet_t &set : model.m_HitboxSets)
	{
		json.StartObject();
		json.Key("name");
		String(json, set.m_Name);
		json.Key("generated");
		json.Bool(set.m_bGenerated);
		json.Key("hitboxes");
		json.StartArray();
		for (const CompiledHitbox_t &hitbox : set.m_Hitboxes)
		{
			json.StartObject();
			json.Key("name");
			String(json, hitbox.m_Name);
			json.Key("bone");
			json.String(BoneName(model, hitbox.m_nBone));
			json.Key("mins");
			Floats(json, hitbox.m_vMins.Base(), 3);
			json.Key("maxs");
			Floats(json, hitbox.m_vMaxs.Base(), 3);
			json.EndObject();
		}
		json.EndArray();
		json.EndObject();
	}
	json.EndArray();

	json.Key("pose_parameters");
	json.StartArray();
	for (const CompiledPoseParameter_t &pose : model.m_PoseParameters)
	{
		json.StartObject();
		json.Key("name");
		String(json, pose.m_Name);
		json.Key("min");
		json.Double(pose.m_flMin);
		json.Key("max");
		json.Double(pose.m_flMax);
		json.Key("looping");
		json.Bool(pose.m_bLooping);
		json.Key("loop_range");
		json.Double(pose.m_flLoopRange);
		json.EndObject();
	}
	json.EndArray();

	json.Key("weight_lists");
	json.StartArray();
	for (const CompiledWeightList_t &list : model.m_WeightLists)
	{
		json.StartObject();
		json.Key("name");
		String(json, list.m_Name);
		json.Key("weights");
		json.StartObject();
		for (size_t b = 0; b < list.m_Weights.size() && b < model.m_Bones.size(); ++b)
		{
			String(json, model.m_Bones[b].m_Name);
			json.Double(list.m_Weights[b]);
		}
		json.EndObject();
		json.EndObject();
	}
	json.EndArray();

	json.Key("sequences");
	json.StartArray();
	for (const CompiledSequence_t &sequence : model.m_Sequences)
	{
		json.StartObject();
		json.Key("name");
		String(json, sequence.m_Name);
		json.Key("frames");
		json.Uint(sequence.m_nFrameCount);
		json.Key("fps");
		json.Double(sequence.m_flFps);
		json.Key("looping");
		json.Bool(sequence.m_bLooping);
		json.Key("delta");
		json.Bool(sequence.m_bDelta);
		json.Key("bones");
		json.Uint(sequence.m_nBoneCount);
		json.Key("weight_list");
		json.String(sequence.m_nWeightList >= 0 && (size_t)sequence.m_nWeightList < model.m_WeightLists.size()
						? model.m_WeightLists[(size_t)sequence.m_nWeightList].m_Name.c_str()
						: "");
		for (const char *key : { "activities", "modifiers" })
		{
			json.Key(key);
			json.StartArray();
			for (const CompiledActivity_t &activity : strcmp(key, "activities") == 0 ? sequence.m_Activities : sequence.m_Modifiers)
			{
				json.StartObject();
				json.Key("name");
				String(json, activity.m_Name);
				json.Key("weight");
				json.Int(activity.m_nWeight);
				json.EndObject();
			}
			json.EndArray();
		}
		json.Key("events");
		json.StartArray();
		for (const CompiledEvent_t &event : sequence.m_Events)
		{
			json.StartObject();
			json.Key("class");
			String(json, event.m_Class);
			json.Key("frame");
			json.Int(event.m_nFrame);
			json.Key("keys");
			String(json, event.m_Keys);
			json.EndObject();
		}
		json.EndArray();
		json.Key("blend");
		if (sequence.m_nBlendPoseParameter >= 0 || !sequence.m_BlendKeys.empty())
		{
			json.StartObject();
			json.Key("pose_parameter");
			json.String(sequence.m_nBlendPoseParameter >= 0 && (size_t)sequence.m_nBlendPoseParameter < model.m_PoseParameters.size()
							? model.m_PoseParameters[(size_t)sequence.m_nBlendPoseParameter].m_Name.c_str()
							: "");
			json.Key("keys");
			json.StartArray();
			for (const CompiledBlendKey_t &key : sequence.m_BlendKeys)
			{
				json.StartObject();
				json.Key("sequence");
				json.String(SequenceName(model, key.m_nSequence));
				json.Key("value");
				json.Double(key.m_flValue);
				json.EndObject();
			}
			json.EndArray();
			json.EndObject();
		}
		else
			json.Null();
		json.Key("add_layers");
		json.StartArray();
		for (uint32 layer : sequence.m_AddLayers)
			json.String(SequenceName(model, layer));
		json.EndArray();
		json.Key("motion");
		if (sequence.m_nMotionFlags || sequence.m_nMotionRootBone >= 0)
		{
			json.StartObject();
			json.Key("flags");
			String(json, MotionText(sequence.m_nMotionFlags));
			json.Key("bone");
			json.String(BoneName(model, sequence.m_nMotionRootBone));
			json.EndObject();
		}
		else
			json.Null();
		json.EndObject();
	}
	json.EndArray();
}

void TextureJson(JsonWriter_t &json, const CCompiledTexture &texture)
{
	json.Key("type");
	json.String("texture");
	json.Key("width");
	json.Uint(texture.m_nWidth);
	json.Key("height");
	json.Uint(texture.m_nHeight);
	json.Key("format");
	json.String(CCompiledTexture::FormatName(texture.m_eFormat));
	json.Key("mips");
	json.Uint((unsigned)texture.m_Mips.size());
	json.Key("mip_sizes");
	json.StartArray();
	uint64 bytes = 0;
	for (const CompiledMip_t &mip : texture.m_Mips)
	{
		json.StartArray();
		json.Uint(mip.m_nWidth);
		json.Uint(mip.m_nHeight);
		json.EndArray();
		bytes += mip.m_Data.size();
	}
	json.EndArray();
	json.Key("srgb");
	json.Bool((texture.m_nFlags & COMPILED_TEXTURE_FLAG_SRGB) != 0);
	json.Key("ycocg");
	json.Bool((texture.m_nFlags & COMPILED_TEXTURE_FLAG_YCOCG) != 0);
	json.Key("bytes");
	json.Uint64(bytes);
}

CUtlString MaterialFlagsText(uint32 flags)
{
	CUtlString text;
	const char *names[] = { "translucent", "alpha_test", "additive", "two_sided" };
	for (int i = 0; i < 4; ++i)
	{
		if (flags & (1u << i))
			text += (text.empty() ? "" : " ") + CUtlString(names[i]);
	}
	return text;
}

void MaterialJson(JsonWriter_t &json, const CCompiledMaterial &material)
{
	json.Key("type");
	json.String("material");
	json.Key("shader");
	String(json, material.m_Shader);
	json.Key("flags");
	json.StartArray();
	const char *names[] = { "translucent", "alpha_test", "additive", "two_sided" };
	for (int i = 0; i < 4; ++i)
	{
		if (material.m_nFlags & (1u << i))
			json.String(names[i]);
	}
	json.EndArray();
	json.Key("textures");
	json.StartObject();
	for (const CompiledMaterialTexture_t &texture : material.m_Textures)
	{
		String(json, texture.m_Key);
		String(json, texture.m_Path);
	}
	for (const CompiledMaterialConstant_t &constant : material.m_Constants)
	{
		if (!IsTextureKey(constant.m_Key) || constant.m_eType != COMPILED_CONSTANT_FLOAT)
			continue;
		String(json, constant.m_Key);
		String(json, Material_ConstantText(constant.m_flValues));
	}
	json.EndObject();
	json.Key("constants");
	json.StartObject();
	for (const CompiledMaterialConstant_t &constant : material.m_Constants)
	{
		if (IsTextureKey(constant.m_Key) && constant.m_eType == COMPILED_CONSTANT_FLOAT)
			continue;
		String(json, constant.m_Key);
		if (constant.m_eType == COMPILED_CONSTANT_INT)
			json.Int(constant.m_nValues[0]);
		else
			Floats(json, constant.m_flValues, 4);
	}
	json.EndObject();
}

void SnapshotJson(JsonWriter_t &json, const CCompiledSnapshot &snapshot)
{
	json.Key("type");
	json.String("particle snapshot");
	json.Key("local_space_bone");
	String(json, snapshot.m_LocalSpaceBone);
	json.Key("points");
	json.Uint64(snapshot.m_Positions.size());
}

// ---------------------------------------------------------------------------------------------
// Readable lines

void ModelText(const CCompiledModel &model)
{
	printf("meshes: %d\n", model.GetMeshCount());
	for (int m = 0; m < model.GetMeshCount(); ++m)
	{
		const CompiledMesh_t &mesh = model.GetMesh(m);
		printf("  %s: LOD mask %x, %llu triangles, %u vertices, %d bones%s\n", mesh.m_Name.c_str(), mesh.m_nLodMask,
			(unsigned long long)mesh.PrimitiveCount(), mesh.VertexCount(), model.GetMeshBoneCount(m), mesh.m_Tangents.empty() ? "" : ", tangents");
		for (const CompiledDrawCall_t &draw : mesh.m_DrawCalls)
			printf("    draw %s: %u triangles\n", draw.m_nMaterial < model.m_Materials.size() ? model.m_Materials[draw.m_nMaterial].c_str() : "?",
				draw.m_nPrimitiveCount);
		if (model.GetMeshBoneCount(m))
		{
			printf("    bones:");
			for (int b = 0; b < model.GetMeshBoneCount(m); ++b)
				printf(" %s", model.GetMeshBoneName(m, b));
			printf("\n");
		}
	}
	printf("LODs: %zu\n", model.m_LodSwitchThresholds.size());
	for (size_t l = 0; l < model.m_LodSwitchThresholds.size(); ++l)
		printf("  LOD %zu: switch at %g\n", l, model.m_LodSwitchThresholds[l]);
	printf("skeleton: %zu bones\n", model.m_Bones.size());
	for (const CompiledBone_t &bone : model.m_Bones)
		printf("  %s%s%s\n", bone.m_Name.c_str(), bone.m_nParent >= 0 ? " (parent " : "", bone.m_nParent >= 0 ? (CUtlString(BoneName(model, bone.m_nParent)) + ")").c_str() : "");
	printf("materials: %zu\n", model.m_Materials.size());
	for (const CUtlString &material : model.m_Materials)
		printf("  %s\n", material.c_str());
	printf("material groups: %zu\n", model.m_MaterialGroups.size());
	for (const CompiledMaterialGroup_t &group : model.m_MaterialGroups)
	{
		printf("  %s\n", group.m_Name.c_str());
		for (const CompiledMaterialRemap_t &remap : group.m_Remaps)
			printf("    %s -> %s\n", model.m_Materials[remap.m_nFrom].c_str(), model.m_Materials[remap.m_nTo].c_str());
	}
	printf("body groups: %zu\n", model.m_BodyGroups.size());
	for (const CompiledBodyGroup_t &group : model.m_BodyGroups)
	{
		printf("  %s:", group.m_Name.c_str());
		for (const CompiledBodyGroupChoice_t &choice : group.m_Choices)
			printf(" [%s]", choice.m_Name.c_str());
		printf("\n");
	}
	printf("attachments: %zu\n", model.m_Attachments.size());
	for (const CompiledAttachment_t &attachment : model.m_Attachments)
		printf("  %s on %s at (%g %g %g), angles (%g %g %g)\n", attachment.m_Name.c_str(),
			attachment.m_nParentBone >= 0 ? BoneName(model, attachment.m_nParentBone) : "(the model)", attachment.m_vOrigin.x,
			attachment.m_vOrigin.y, attachment.m_vOrigin.z, attachment.m_Angles.x, attachment.m_Angles.y, attachment.m_Angles.z);
	printf("hitbox sets: %zu\n", model.m_HitboxSets.size());
	for (const CompiledHitboxSet_t &set : model.m_HitboxSets)
	{
		printf("  %s%s: %zu hitboxes\n", set.m_Name.c_str(), set.m_bGenerated ? " (generated)" : "", set.m_Hitboxes.size());
		for (const CompiledHitbox_t &hitbox : set.m_Hitboxes)
			printf("    %s on %s\n", hitbox.m_Name.c_str(), hitbox.m_nBone >= 0 ? BoneName(model, hitbox.m_nBone) : "(the model)");
	}
	printf("pose parameters: %zu\n", model.m_PoseParameters.size());
	for (const CompiledPoseParameter_t &pose : model.m_PoseParameters)
		printf("  %s: %g to %g%s\n", pose.m_Name.c_str(), pose.m_flMin, pose.m_flMax, pose.m_bLooping ? ", looping" : "");
	printf("weight lists: %zu\n", model.m_WeightLists.size());
	for (const CompiledWeightList_t &list : model.m_WeightLists)
		printf("  %s\n", list.m_Name.c_str());
	printf("sequences: %zu\n", model.m_Sequences.size());
	for (const CompiledSequence_t &sequence : model.m_Sequences)
	{
		printf("  %s: %u frames at %g fps%s%s", sequence.m_Name.c_str(), sequence.m_nFrameCount, sequence.m_flFps, sequence.m_bLooping ? ", looping" : "",
			sequence.m_bDelta ? ", delta" : "");
		for (const CompiledActivity_t &activity : sequence.m_Activities)
			printf(", activity %s (%d)", activity.m_Name.c_str(), activity.m_nWeight);
		if (sequence.m_nBlendPoseParameter >= 0)
			printf(", blends over %s", model.m_PoseParameters[(size_t)sequence.m_nBlendPoseParameter].m_Name.c_str());
		for (const CompiledBlendKey_t &key : sequence.m_BlendKeys)
			printf(" [%s at %g]", SequenceName(model, key.m_nSequence), key.m_flValue);
		for (uint32 layer : sequence.m_AddLayers)
			printf(", adds %s", SequenceName(model, layer));
		if (sequence.m_nMotionFlags)
			printf(", motion %s of %s", MotionText(sequence.m_nMotionFlags).c_str(), BoneName(model, sequence.m_nMotionRootBone));
		if (!sequence.m_Events.empty())
			printf(", %zu events", sequence.m_Events.size());
		printf("\n");
	}
}

void TextureText(const CCompiledTexture &texture)
{
	printf("texture: %ux%u %s, %zu mips%s%s\n", texture.m_nWidth, texture.m_nHeight, CCompiledTexture::FormatName(texture.m_eFormat), texture.m_Mips.size(),
		(texture.m_nFlags & COMPILED_TEXTURE_FLAG_SRGB) ? ", sRGB" : "", (texture.m_nFlags & COMPILED_TEXTURE_FLAG_YCOCG) ? ", YCoCg" : "");
	for (size_t i = 0; i < texture.m_Mips.size(); ++i)
		printf("  mip %zu: %ux%u, %zu bytes\n", i, texture.m_Mips[i].m_nWidth, texture.m_Mips[i].m_nHeight, texture.m_Mips[i].m_Data.size());
}

void MaterialText(const CCompiledMaterial &material)
{
	printf("shader: %s\n", material.m_Shader.c_str());
	if (material.m_nFlags)
		printf("flags: %s\n", MaterialFlagsText(material.m_nFlags).c_str());
	printf("textures:\n");
	for (const CompiledMaterialTexture_t &texture : material.m_Textures)
		printf("  %s: %s\n", texture.m_Key.c_str(), texture.m_Path.c_str());
	for (const CompiledMaterialConstant_t &constant : material.m_Constants)
	{
		if (IsTextureKey(constant.m_Key) && constant.m_eType == COMPILED_CONSTANT_FLOAT)
			printf("  %s: %s\n", constant.m_Key.c_str(), Material_ConstantText(constant.m_flValues).c_str());
	}
	printf("constants:\n");
	for (const CompiledMaterialConstant_t &constant : material.m_Constants)
	{
		if (IsTextureKey(constant.m_Key) && constant.m_eType == COMPILED_CONSTANT_FLOAT)
			continue;
		if (constant.m_eType == COMPILED_CONSTANT_INT)
			printf("  %s: %d\n", constant.m_Key.c_str(), constant.m_nValues[0]);
		else
			printf("  %s: %s\n", constant.m_Key.c_str(), Material_ConstantText(constant.m_flValues).c_str());
	}
}
} // namespace

int ResourceCompiler_InfoCommand(int argc, char **argv)
{
	bool bJson = false;
	const char *path = nullptr;
	for (int i = 0; i < argc; ++i)
	{
		if (strcmp(argv[i], "--json") == 0)
			bJson = true;
		else if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0)
		{
			fputs(s_InfoUsage, stdout);
			return 0;
		}
		else if (argv[i][0] == '-' && argv[i][1])
		{
			fprintf(stderr, "resourcecompiler: unknown option %s\n%s", argv[i], s_InfoUsage);
			return 2;
		}
		else if (path)
		{
			fprintf(stderr, "resourcecompiler: info takes one FILE\n%s", s_InfoUsage);
			return 2;
		}
		else
			path = argv[i];
	}
	if (!path)
	{
		fprintf(stderr, "resourcecompiler: info needs a FILE\n%s", s_InfoUsage);
		return 2;
	}
	CompiledAsset_t asset;
	CUtlString error;
	if (!LoadCompiledAsset(path, asset, &error))
	{
		fprintf(stderr, "error: %s\n", error.c_str());
		return 1;
	}
	if (bJson)
	{
		rapidjson::StringBuffer buffer;
		JsonWriter_t json(buffer);
		json.StartObject();
		json.Key("file");
		json.String(path);
		switch (asset.m_eType)
		{
		case COMPILED_ASSET_MODEL:
			ModelJson(json, *asset.m_pModel);
			break;
		case COMPILED_ASSET_TEXTURE:
			TextureJson(json, *asset.m_pTexture);
			break;
		case COMPILED_ASSET_MATERIAL:
			MaterialJson(json, *asset.m_pMaterial);
			break;
		case COMPILED_ASSET_SNAPSHOT:
			SnapshotJson(json, *asset.m_pSnapshot);
			break;
		default:
			break;
		}
		json.EndObject();
		fwrite(buffer.GetString(), 1, buffer.GetSize(), stdout);
		fputc('\n', stdout);
	}
	else
	{
		printf("file: %s\ntype: %s\n", path, CompiledAssetTypeName(asset.m_eType));
		switch (asset.m_eType)
		{
		case COMPILED_ASSET_MODEL:
			ModelText(*asset.m_pModel);
			break;
		case COMPILED_ASSET_TEXTURE:
			TextureText(*asset.m_pTexture);
			break;
		case COMPILED_ASSET_MATERIAL:
			MaterialText(*asset.m_pMaterial);
			break;
		case COMPILED_ASSET_SNAPSHOT:
			printf("points: %zu\nlocal-space bone: %s\n", asset.m_pSnapshot->m_Positions.size(),
				asset.m_pSnapshot->m_LocalSpaceBone.empty() ? "(none: model space)" : asset.m_pSnapshot->m_LocalSpaceBone.c_str());
			break;
		default:
			break;
		}
	}
	return fflush(stdout) == 0 ? 0 : 1;
}
