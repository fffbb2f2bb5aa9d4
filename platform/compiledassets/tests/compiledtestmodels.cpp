#include "compiledtestmodels.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace
{
// A strip of quads along x, `columns` wide and `rows` deep, in the mesh's arrays.
void AddGrid(CompiledMesh_t &mesh, int columns, int rows, float size, bool bTangents)
{
	const uint32 base = mesh.VertexCount();
	for (int r = 0; r <= rows; ++r)
	{
		for (int c = 0; c <= columns; ++c)
		{
			const float u = (float)c / (float)columns;
			const float v = (float)r / (float)rows;
			mesh.m_Positions.push_back(Vector(u * size, v * size, std::sin(u * 6.28318f) * 0.1f * size));
			mesh.m_Normals.push_back(Vector(0.0f, 0.0f, 1.0f));
			mesh.m_TexCoords.push_back({ u, v });
			if (bTangents)
				mesh.m_Tangents.push_back({ 1.0f, 0.0f, 0.0f, (c & 1) ? -1.0f : 1.0f });
		}
	}
	std::vector<uint32> indices;
	if (!mesh.m_Indices16.empty() || !mesh.m_Indices32.empty())
	{
		for (uint32 i = 0; i < mesh.IndexCount(); ++i)
			indices.push_back(mesh.GetIndex(i));
	}
	for (int r = 0; r < rows; ++r)
	{
		for (int c = 0; c < columns; ++c)
		{
			const uint32 a = base + (uint32)(r * (columns + 1) + c);
			const uint32 b = a + 1;
			const uint32 d = a + (uint32)(columns + 1);
			const uint32 e = d + 1;
			indices.insert(indices.end(), { a, b, e, a, e, d });
		}
	}
	mesh.SetIndices(indices.data(), indices.size());
}

// Four weights a vertex over a chain of bones along x.
void SkinAlongX(CompiledMesh_t &mesh, uint32 boneCount, float length)
{
	mesh.m_BoneIndices.clear();
	mesh.m_BoneWeights.clear();
	for (const Vector &position : mesh.m_Positions)
	{
		const float t = std::fmin(std::fmax(position.x / length, 0.0f), 1.0f) * (float)(boneCount - 1);
		const uint32 first = std::min((uint32)t, boneCount - 1);
		CompiledBoneIndices_t indices;
		CompiledBoneWeights_t weights;
		const uint8 w0 = (uint8)(255.0f * (1.0f - (t - (float)first)) * 0.7f);
		const uint8 spread[4] = { w0, (uint8)(178 - w0 > 0 ? 178 - w0 : 0), 51, 0 };
		uint32 sum = 0;
		for (int k = 0; k < 4; ++k)
		{
			indices.m_nIndex[k] = (uint8)std::min(first + (uint32)k, boneCount - 1);
			weights.m_nWeight[k] = spread[k];
			sum += spread[k];
		}
		weights.m_nWeight[3] = (uint8)(255 - (sum - spread[3]));
		mesh.m_BoneIndices.push_back(indices);
		mesh.m_BoneWeights.push_back(weights);
	}
}

CompiledQuaternion_t AxisAngle(float x, float y, float z, float radians)
{
	const float s = std::sin(radians * 0.5f);
	return { x * s, y * s, z * s, std::cos(radians * 0.5f) };
}

void AddChain(CCompiledModel &model, int bones, float length)
{
	for (int i = 0; i < bones; ++i)
	{
		CompiledBone_t bone;
		bone.m_Name = i == 0 ? "root" : "bone_" + std::to_string(i);
		bone.m_nParent = i - 1;
		bone.m_vPosition = Vector(i == 0 ? 0.0f : length / (float)(bones - 1), 0.0f, 0.0f);
		bone.m_qRotation = AxisAngle(0, 0, 1, 0.01f * (float)i);
		bone.m_InverseBind.m[0][3] = -length * (float)i / (float)(bones > 1 ? bones - 1 : 1);
		model.m_Bones.push_back(bone);
	}
}

void AddFrames(CompiledSequence_t &seq, uint32 frames, uint32 bones, bool bScales, float phase)
{
	seq.m_nFrameCount = frames;
	seq.m_nBoneCount = bones;
	for (uint32 f = 0; f < frames; ++f)
	{
		for (uint32 b = 0; b < bones; ++b)
		{
			const float angle = std::sin(phase + (float)f * 0.2f + (float)b * 0.1f) * 0.3f;
			seq.m_Translations.push_back(Vector((float)b * 0.5f, 0.0f, angle));
			seq.m_Rotations.push_back(AxisAngle(0, 0, 1, angle));
			if (bScales)
				seq.m_Scales.push_back(Vector(1.0f + angle * 0.1f, 1.0f, 1.0f));
		}
	}
}
} // namespace

CCompiledModel MakeFullTestModel(int meshScale)
{
	CCompiledModel model;
	AddChain(model, 4, 10.0f);
	model.m_Materials = { "materials/models/items/hero/body.zmat_c", "materials/models/items/hero/body_gold.zmat_c",
		"materials/models/items/hero/trim.zmat_c" };
	model.m_LodSwitchThresholds = { 0.0f, 1.0f };

	// LOD 0: a skinned mesh with tangents and two draw calls.
	CompiledMesh_t body;
	body.m_Name = "hero_body";
	body.m_nLodMask = 0x1;
	AddGrid(body, 6 * meshScale, 4, 10.0f, true);
	body.m_Bones = { 0, 1, 2, 3 };
	SkinAlongX(body, 4, 10.0f);
	const uint32 half = (body.IndexCount() / 6) * 3;
	body.m_DrawCalls = { { 0, 0, half, half / 3 }, { 2, half, body.IndexCount() - half, (body.IndexCount() - half) / 3 } };
	model.m_Meshes.push_back(body);

	// LOD 1: rigid, no tangents, 32-bit indices.
	CompiledMesh_t low;
	low.m_Name = "hero_body_lod1";
	low.m_nLodMask = 0x2;
	AddGrid(low, 2, 2, 10.0f, false);
	low.m_Indices32.assign(low.m_Indices16.begin(), low.m_Indices16.end());
	low.m_Indices16.clear();
	low.m_DrawCalls = { { 0, 0, low.IndexCount(), low.IndexCount() / 3 } };
	model.m_Meshes.push_back(low);

	// In both LODs, skinned to one bone.
	CompiledMesh_t trim;
	trim.m_Name = "hero_trim";
	trim.m_nLodMask = 0x3;
	AddGrid(trim, 1, 1, 2.0f, true);
	trim.m_Bones = { 2 };
	trim.m_BoneIndices.assign(trim.VertexCount(), CompiledBoneIndices_t());
	trim.m_BoneWeights.assign(trim.VertexCount(), CompiledBoneWeights_t{ { 255, 0, 0, 0 } });
	trim.m_DrawCalls = { { 2, 0, trim.IndexCount(), trim.IndexCount() / 3 } };
	model.m_Meshes.push_back(trim);

	model.m_MaterialGroups = { { "default", {} }, { "gold", { { 0, 1 }, { 2, 1 } } } };
	model.m_BodyGroups = { { "body", { { "on", { 0, 1 } }, { "off", {} } } }, { "trim", { { "", { 2 } } } } };
	model.m_Attachments = { { "attach_hitloc", 1, Vector(0.5f, -1.25f, 3.0f), QAngle(0.0f, 90.0f, -12.5f), false },
		{ "attach_origin", -1, Vector(), QAngle(), true } };
	model.m_HitboxSets = { { "default", true, { { "root", 0, Vector(-1, -1, -1), Vector(1, 1, 1) } } },
		{ "custom", false, { { "head", 3, Vector(-2, -2, 0), Vector(2, 2, 4) }, { "world", -1, Vector(), Vector(1, 1, 1) } } } };
	model.m_PoseParameters = { { "turn", -1.0f, 1.0f, false, 0.0f }, { "aim_yaw", -180.0f, 180.0f, true, 360.0f } };
	model.m_WeightLists = { { "weightlist_attack", { 0.0f, 0.25f, 1.0f, 1.0f } } };

	CompiledSequence_t bind;
	bind.m_Name = "bind_pose";
	AddFrames(bind, 1, 4, false, 0.0f);
	model.m_Sequences.push_back(bind);

	CompiledSequence_t idle;
	idle.m_Name = "idle";
	idle.m_flFps = 30.0f;
	idle.m_bLooping = true;
	idle.m_Activities = { { "ACT_ZARN_IDLE", 1 } };
	idle.m_Events = { { "AE_ZARN_SOUND", 3, "{ sound = \"Hero.Idle\" }" } };
	AddFrames(idle, 12, 4, true, 0.3f);
	model.m_Sequences.push_back(idle);

	CompiledSequence_t run;
	run.m_Name = "run";
	run.m_flFps = 24.0f;
	run.m_bLooping = true;
	run.m_Activities = { { "ACT_ZARN_RUN", 1 } };
	run.m_Modifiers = { { "haste", 2 }, { "injured", 1 } };
	run.m_nMotionFlags = COMPILED_MOTION_TX | COMPILED_MOTION_RZ;
	run.m_nMotionRootBone = 0;
	run.m_AddLayers = { 4 };
	AddFrames(run, 8, 4, false, 1.0f);
	model.m_Sequences.push_back(run);

	CompiledSequence_t attack;
	attack.m_Name = "attack";
	attack.m_nWeightList = 0;
	attack.m_bDelta = true;
	AddFrames(attack, 5, 4, false, 2.0f);
	model.m_Sequences.push_back(attack);

	CompiledSequence_t turns;
	turns.m_Name = "turns";
	turns.m_bDelta = true;
	turns.m_nBlendPoseParameter = 0;
	turns.m_BlendKeys = { { 1, -1.0f }, { 2, 0.0f }, { 3, 1.0f } };
	model.m_Sequences.push_back(turns);

	model.ComputeBounds();
	return model;
}

CCompiledModel MakeSkinnedGridModel(int triangles, int bones, int frames)
{
	CCompiledModel model;
	const float length = 100.0f;
	AddChain(model, bones, length);
	model.m_Materials = { "materials/models/heroes/bench/body.zmat_c" };
	model.m_MaterialGroups = { { "default", {} } };
	model.m_LodSwitchThresholds = { 0.0f };

	CompiledMesh_t mesh;
	mesh.m_Name = "body";
	const int rows = 50;
	const int columns = std::max(1, triangles / (2 * rows));
	AddGrid(mesh, columns, rows, length, true);
	for (int b = 0; b < bones; ++b)
		mesh.m_Bones.push_back((uint32)b);
	// The mesh's bone list holds every bone; SkinAlongX names them by their place in the chain.
	SkinAlongX(mesh, (uint32)bones, length);
	mesh.m_DrawCalls = { { 0, 0, mesh.IndexCount(), mesh.IndexCount() / 3 } };
	model.m_Meshes.push_back(std::move(mesh));

	CompiledSequence_t seq;
	seq.m_Name = "run";
	seq.m_bLooping = true;
	seq.m_Activities = { { "ACT_ZARN_RUN", 1 } };
	AddFrames(seq, (uint32)frames, (uint32)bones, false, 0.0f);
	model.m_Sequences.push_back(std::move(seq));
	model.ComputeBounds();
	return model;
}

CCompiledTexture MakeTestTexture(ECompiledTextureFormat format, uint32 width, uint32 height, uint32 flags)
{
	CCompiledTexture texture;
	texture.m_eFormat = format;
	texture.m_nFlags = flags;
	texture.m_nWidth = width;
	texture.m_nHeight = height;
	uint32 w = width, h = height;
	for (int level = 0;; ++level)
	{
		CompiledMip_t mip;
		mip.m_nWidth = w;
		mip.m_nHeight = h;
		mip.m_Data.resize(CCompiledTexture::MipByteSize(format, w, h));
		for (size_t i = 0; i < mip.m_Data.size(); ++i)
			mip.m_Data[i] = (uint8)(i * 7 + (size_t)level * 13);
		texture.m_Mips.push_back(std::move(mip));
		if (w == 1 && h == 1)
			break;
		w = std::max(1u, w / 2);
		h = std::max(1u, h / 2);
	}
	return texture;
}

CCompiledMaterial MakeTestMaterial()
{
	CCompiledMaterial material;
	material.m_Shader = "hero.vfx";
	material.m_nFlags = COMPILED_MATERIAL_FLAG_ALPHA_TEST | COMPILED_MATERIAL_FLAG_TWO_SIDED;
	material.m_Textures = { { "TextureColor", "materials/models/items/hero/body_color_tga.ztex_c" },
		{ "TextureNormal", "materials/models/items/hero/body_normal_png.ztex_c" } };
	CompiledMaterialConstant_t tint;
	tint.m_Key = "g_vColorTint";
	tint.m_eType = COMPILED_CONSTANT_FLOAT;
	tint.m_flValues[0] = 1.0f;
	tint.m_flValues[1] = 0.5f;
	tint.m_flValues[2] = 0.25f;
	tint.m_flValues[3] = 1.0f;
	CompiledMaterialConstant_t mode;
	mode.m_Key = "F_SPECULAR";
	mode.m_eType = COMPILED_CONSTANT_INT;
	mode.m_nValues[0] = 1;
	mode.m_nValues[3] = -7;
	material.m_Constants = { tint, mode };
	return material;
}

CCompiledSnapshot MakeTestSnapshot(int points)
{
	CCompiledSnapshot snapshot;
	snapshot.m_LocalSpaceBone = "spine_2";
	for (int i = 0; i < points; ++i)
	{
		const float a = (float)i * 0.37f;
		snapshot.m_Positions.push_back(Vector(std::cos(a), std::sin(a), (float)i * 0.01f));
		snapshot.m_Normals.push_back(Vector(std::cos(a), std::sin(a), 0.0f));
	}
	return snapshot;
}
