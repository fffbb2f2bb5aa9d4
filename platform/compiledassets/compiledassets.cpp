// The in-memory compiled assets: accessors, bounds, and the consistency checks that the writer
// requires and the loader applies to what it read.
#include "compiledassets/compiledassets.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstring>

#include "core/strtools.h"

namespace
{
bool Fail(CUtlString *pError, const char *fmt, ...) FMTFUNCTION(2, 3);
bool Fail(CUtlString *pError, const char *fmt, ...)
{
	if (pError)
	{
		va_list args;
		va_start(args, fmt);
		*pError = V_FormatV(fmt, args);
		va_end(args);
	}
	return false;
}

bool IsIndexOrNone(int32 index, size_t count)
{
	return index == -1 || (index >= 0 && (size_t)index < count);
}

// The largest element of a list of unsigned integers (0 when empty), in one vectorisable pass.
template <typename T> T MaxOf(const T *p, size_t count)
{
	T result = 0;
	for (size_t i = 0; i < count; ++i)
		result = p[i] > result ? p[i] : result;
	return result;
}

void Extend(CompiledBounds_t &bounds, const Vector &point)
{
	for (int k = 0; k < 3; ++k)
	{
		bounds.m_vMins[k] = std::min(bounds.m_vMins[k], point[k]);
		bounds.m_vMaxs[k] = std::max(bounds.m_vMaxs[k], point[k]);
	}
}

template <typename T> int FindByName(const std::vector<T> &items, std::string_view name)
{
	for (size_t i = 0; i < items.size(); ++i)
	{
		if (V_StrEqualNoCase(items[i].m_Name, name))
			return (int)i;
	}
	return -1;
}
} // namespace

// ---------------------------------------------------------------------------------------------
// Meshes and models

uint64 CompiledMesh_t::PrimitiveCount() const
{
	uint64 count = 0;
	for (const CompiledDrawCall_t &draw : m_DrawCalls)
		count += draw.m_nPrimitiveCount;
	return count;
}

void CompiledMesh_t::SetIndices(const uint32 *pIndices, size_t count)
{
	m_Indices16.clear();
	m_Indices32.clear();
	if (m_Positions.size() <= 65536)
	{
		m_Indices16.resize(count);
		for (size_t i = 0; i < count; ++i)
			m_Indices16[i] = (uint16)pIndices[i];
	}
	else
		m_Indices32.assign(pIndices, pIndices + count);
}

void CompiledMesh_t::ComputeBounds()
{
	m_Bounds = CompiledBounds_t();
	if (m_Positions.empty())
		return;
	m_Bounds.m_vMins = m_Bounds.m_vMaxs = m_Positions[0];
	for (const Vector &position : m_Positions)
		Extend(m_Bounds, position);
}

const char *CCompiledModel::GetMeshBoneName(int mesh, int bone) const
{
	const CompiledMesh_t &m = m_Meshes[(size_t)mesh];
	if (bone < 0 || (size_t)bone >= m.m_Bones.size() || m.m_Bones[(size_t)bone] >= m_Bones.size())
		return "";
	return m_Bones[m.m_Bones[(size_t)bone]].m_Name.c_str();
}

int CCompiledModel::FindBone(std::string_view name) const
{
	for (size_t i = 0; i < m_Bones.size(); ++i)
	{
		if (m_Bones[i].m_Name == name)
			return (int)i;
	}
	return -1;
}

int CCompiledModel::FindSequence(std::string_view name) const
{
	return FindByName(m_Sequences, name);
}

int CCompiledModel::FindAttachment(std::string_view name) const
{
	return FindByName(m_Attachments, name);
}

int CCompiledModel::FindPoseParameter(std::string_view name) const
{
	return FindByName(m_PoseParameters, name);
}

void CCompiledModel::ComputeBounds()
{
	m_Bounds = CompiledBounds_t();
	bool bAny = false;
	for (CompiledMesh_t &mesh : m_Meshes)
	{
		mesh.ComputeBounds();
		if (mesh.m_Positions.empty())
			continue;
		if (!bAny)
			m_Bounds = mesh.m_Bounds;
		Extend(m_Bounds, mesh.m_Bounds.m_vMins);
		Extend(m_Bounds, mesh.m_Bounds.m_vMaxs);
		bAny = true;
	}
}

bool CCompiledModel::Check(CUtlString *pError) const
{
	if (m_LodSwitchThresholds.size() > MAX_LODS)
		return Fail(pError, "%zu LODs; at most %u are supported", m_LodSwitchThresholds.size(), (uint32)MAX_LODS);
	const uint32 lodBits = m_LodSwitchThresholds.size() >= 32 ? 0xFFFFFFFFu : (1u << m_LodSwitchThresholds.size()) - 1;

	for (size_t i = 0; i < m_Bones.size(); ++i)
	{
		const int32 parent = m_Bones[i].m_nParent;
		if (parent != -1 && (parent < 0 || (size_t)parent >= i))
			return Fail(pError, "bone %zu ('%s') has parent %d; a parent must come before its children", i, m_Bones[i].m_Name.c_str(), parent);
	}

	for (size_t g = 0; g < m_MaterialGroups.size(); ++g)
	{
		for (const CompiledMaterialRemap_t &remap : m_MaterialGroups[g].m_Remaps)
		{
			if (remap.m_nFrom >= m_Materials.size() || remap.m_nTo >= m_Materials.size())
				return Fail(pError, "material group %zu ('%s') remaps material %u to %u; the model has %zu materials", g,
					m_MaterialGroups[g].m_Name.c_str(), remap.m_nFrom, remap.m_nTo, m_Materials.size());
		}
	}

	for (size_t i = 0; i < m_Meshes.size(); ++i)
	{
		const CompiledMesh_t &mesh = m_Meshes[i];
		const char *name = mesh.m_Name.c_str();
		const size_t n = mesh.m_Positions.size();
		if (n > UINT32_MAX)
			return Fail(pError, "mesh %zu ('%s') has too many vertices", i, name);
		if (mesh.m_Normals.size() != n || mesh.m_TexCoords.size() != n || (!mesh.m_Tangents.empty() && mesh.m_Tangents.size() != n))
			return Fail(pError, "mesh %zu ('%s'): %zu positions but %zu normals, %zu texture coordinates and %zu tangents", i, name, n,
				mesh.m_Normals.size(), mesh.m_TexCoords.size(), mesh.m_Tangents.size());
		if (mesh.m_Bones.size() > MAX_MESH_BONES)
			return Fail(pError, "mesh %zu ('%s') uses %zu bones; at most %u fit a mesh", i, name, mesh.m_Bones.size(), (uint32)MAX_MESH_BONES);
		for (uint32 bone : mesh.m_Bones)
		{
			if (bone >= m_Bones.size())
				return Fail(pError, "mesh %zu ('%s') uses bone %u; the skeleton has %zu", i, name, bone, m_Bones.size());
		}
		const size_t skinCount = mesh.m_Bones.empty() ? 0 : n;
		if (mesh.m_BoneIndices.size() != skinCount || mesh.m_BoneWeights.size() != skinCount)
			return Fail(pError, "mesh %zu ('%s'): %zu bone indices and %zu bone weights for %zu vertices and %zu bones", i, name,
				mesh.m_BoneIndices.size(), mesh.m_BoneWeights.size(), n, mesh.m_Bones.size());
		if (skinCount)
		{
			const uint8 highest = MaxOf(reinterpret_cast<const uint8 *>(mesh.m_BoneIndices.data()), skinCount * 4);
			if (highest >= mesh.m_Bones.size())
				return Fail(pError, "mesh %zu ('%s'): a vertex names bone %u of the mesh's %zu", i, name, highest, mesh.m_Bones.size());
		}
		if (!mesh.m_Indices16.empty() && !mesh.m_Indices32.empty())
			return Fail(pError, "mesh %zu ('%s') has both 16-bit and 32-bit indices", i, name);
		const uint32 indexCount = mesh.IndexCount();
		if (indexCount % 3 != 0)
			return Fail(pError, "mesh %zu ('%s') has %u indices, not a whole number of triangles", i, name, indexCount);
		if (indexCount)
		{
			const uint32 highest = mesh.m_Indices32.empty() ? MaxOf(mesh.m_Indices16.data(), indexCount) : MaxOf(mesh.m_Indices32.data(), indexCount);
			if (highest >= n)
				return Fail(pError, "mesh %zu ('%s'): index %u is past the vertex count %zu", i, name, highest, n);
		}
		if (mesh.m_nLodMask & ~lodBits)
			return Fail(pError, "mesh %zu ('%s') has LOD mask %08x; the model has %zu LODs", i, name, mesh.m_nLodMask, m_LodSwitchThresholds.size());
		for (size_t d = 0; d < mesh.m_DrawCalls.size(); ++d)
		{
			const CompiledDrawCall_t &draw = mesh.m_DrawCalls[d];
			if ((uint64)draw.m_nFirstIndex + draw.m_nIndexCount > indexCount)
				return Fail(pError, "mesh %zu ('%s'): draw call %zu (indices %u to %llu) runs past the %u indices", i, name, d, draw.m_nFirstIndex,
					(unsigned long long)draw.m_nFirstIndex + draw.m_nIndexCount, indexCount);
			if (draw.m_nIndexCount % 3 != 0 || draw.m_nPrimitiveCount != draw.m_nIndexCount / 3)
				return Fail(pError, "mesh %zu ('%s'): draw call %zu has %u indices and %u triangles", i, name, d, draw.m_nIndexCount,
					draw.m_nPrimitiveCount);
			if (draw.m_nMaterial >= m_Materials.size())
				return Fail(pError, "mesh %zu ('%s'): draw call %zu uses material %u; the model has %zu", i, name, d, draw.m_nMaterial,
					m_Materials.size());
		}
	}

	for (size_t g = 0; g < m_BodyGroups.size(); ++g)
	{
		for (const CompiledBodyGroupChoice_t &choice : m_BodyGroups[g].m_Choices)
		{
			for (uint32 mesh : choice.m_Meshes)
			{
				if (mesh >= m_Meshes.size())
					return Fail(pError, "body group %zu ('%s') names mesh %u; the model has %zu", g, m_BodyGroups[g].m_Name.c_str(), mesh,
						m_Meshes.size());
			}
		}
	}
	for (size_t a = 0; a < m_Attachments.size(); ++a)
	{
		if (!IsIndexOrNone(m_Attachments[a].m_nParentBone, m_Bones.size()))
			return Fail(pError, "attachment %zu ('%s') has parent bone %d; the skeleton has %zu", a, m_Attachments[a].m_Name.c_str(),
				m_Attachments[a].m_nParentBone, m_Bones.size());
	}
	for (const CompiledHitboxSet_t &set : m_HitboxSets)
	{
		for (const CompiledHitbox_t &hitbox : set.m_Hitboxes)
		{
			if (!IsIndexOrNone(hitbox.m_nBone, m_Bones.size()))
				return Fail(pError, "hitbox '%s' of set '%s' has bone %d; the skeleton has %zu", hitbox.m_Name.c_str(), set.m_Name.c_str(),
					hitbox.m_nBone, m_Bones.size());
		}
	}
	for (const CompiledWeightList_t &list : m_WeightLists)
	{
		if (list.m_Weights.size() != m_Bones.size())
			return Fail(pError, "weight list '%s' has %zu weights for %zu bones", list.m_Name.c_str(), list.m_Weights.size(), m_Bones.size());
		for (float weight : list.m_Weights)
		{
			if (!(weight >= 0.0f && weight <= 1.0f))
				return Fail(pError, "weight list '%s' has a weight outside 0 to 1", list.m_Name.c_str());
		}
	}

	for (size_t s = 0; s < m_Sequences.size(); ++s)
	{
		const CompiledSequence_t &seq = m_Sequences[s];
		const char *name = seq.m_Name.c_str();
		if (!std::isfinite(seq.m_flFps) || seq.m_flFps < 0.0f)
			return Fail(pError, "sequence %zu ('%s') has a bad frame rate", s, name);
		if (!IsIndexOrNone(seq.m_nWeightList, m_WeightLists.size()))
			return Fail(pError, "sequence %zu ('%s') uses weight list %d; the model has %zu", s, name, seq.m_nWeightList, m_WeightLists.size());
		if (!IsIndexOrNone(seq.m_nBlendPoseParameter, m_PoseParameters.size()))
			return Fail(pError, "sequence %zu ('%s') blends over pose parameter %d; the model has %zu", s, name, seq.m_nBlendPoseParameter,
				m_PoseParameters.size());
		for (const CompiledBlendKey_t &key : seq.m_BlendKeys)
		{
			if (key.m_nSequence >= m_Sequences.size())
				return Fail(pError, "sequence %zu ('%s') blends sequence %u; the model has %zu", s, name, key.m_nSequence, m_Sequences.size());
		}
		for (uint32 layer : seq.m_AddLayers)
		{
			if (layer >= m_Sequences.size())
				return Fail(pError, "sequence %zu ('%s') adds sequence %u; the model has %zu", s, name, layer, m_Sequences.size());
		}
		if (seq.m_nMotionFlags & ~(uint32)COMPILED_MOTION_ALL)
			return Fail(pError, "sequence %zu ('%s') has unknown motion flags %08x", s, name, seq.m_nMotionFlags);
		if (!IsIndexOrNone(seq.m_nMotionRootBone, m_Bones.size()))
			return Fail(pError, "sequence %zu ('%s') extracts motion from bone %d; the skeleton has %zu", s, name, seq.m_nMotionRootBone,
				m_Bones.size());
		if (seq.m_nBoneCount != 0 && seq.m_nBoneCount != m_Bones.size())
			return Fail(pError, "sequence %zu ('%s') animates %u bones; the skeleton has %zu", s, name, seq.m_nBoneCount, m_Bones.size());
		const uint64 transforms = (uint64)seq.m_nFrameCount * seq.m_nBoneCount;
		if (seq.m_Translations.size() != transforms || seq.m_Rotations.size() != transforms ||
			(!seq.m_Scales.empty() && seq.m_Scales.size() != transforms))
			return Fail(pError, "sequence %zu ('%s'): %u frames of %u bones need %llu transforms; it has %zu translations, %zu rotations and %zu scales",
				s, name, seq.m_nFrameCount, seq.m_nBoneCount, (unsigned long long)transforms, seq.m_Translations.size(), seq.m_Rotations.size(),
				seq.m_Scales.size());
	}
	return true;
}

// ---------------------------------------------------------------------------------------------
// Textures, materials, snapshots

uint64 CCompiledTexture::MipByteSize(ECompiledTextureFormat format, uint32 width, uint32 height)
{
	const uint64 blocks = (uint64)((width + 3) / 4) * ((height + 3) / 4);
	switch (format)
	{
	case COMPILED_TEXTURE_RGBA8:
		return (uint64)width * height * 4;
	case COMPILED_TEXTURE_BC1:
		return blocks * 8;
	case COMPILED_TEXTURE_BC3:
		return blocks * 16;
	default:
		return 0;
	}
}

const char *CCompiledTexture::FormatName(ECompiledTextureFormat format)
{
	switch (format)
	{
	case COMPILED_TEXTURE_RGBA8:
		return "RGBA8";
	case COMPILED_TEXTURE_BC1:
		return "BC1";
	case COMPILED_TEXTURE_BC3:
		return "BC3";
	default:
		return "unknown";
	}
}

bool CCompiledTexture::Check(CUtlString *pError) const
{
	if (m_eFormat != COMPILED_TEXTURE_RGBA8 && m_eFormat != COMPILED_TEXTURE_BC1 && m_eFormat != COMPILED_TEXTURE_BC3)
		return Fail(pError, "unknown texture format %u", (uint32)m_eFormat);
	if (m_nFlags & ~(uint32)COMPILED_TEXTURE_FLAG_ALL)
		return Fail(pError, "unknown texture flags %08x", m_nFlags);
	if (m_nWidth < 1 || m_nHeight < 1 || m_nWidth > MAX_SIZE || m_nHeight > MAX_SIZE)
		return Fail(pError, "texture size %ux%u is outside 1 to %u", m_nWidth, m_nHeight, (uint32)MAX_SIZE);
	uint32 fullChain = 1;
	while ((std::max(m_nWidth, m_nHeight) >> fullChain) > 0)
		++fullChain;
	if (m_Mips.empty() || m_Mips.size() > fullChain)
		return Fail(pError, "%zu mips for a %ux%u texture (1 to %u)", m_Mips.size(), m_nWidth, m_nHeight, fullChain);
	for (size_t i = 0; i < m_Mips.size(); ++i)
	{
		const uint32 width = std::max(1u, m_nWidth >> i);
		const uint32 height = std::max(1u, m_nHeight >> i);
		if (m_Mips[i].m_nWidth != width || m_Mips[i].m_nHeight != height)
			return Fail(pError, "mip %zu is %ux%u; it should be %ux%u", i, m_Mips[i].m_nWidth, m_Mips[i].m_nHeight, width, height);
		const uint64 bytes = MipByteSize(m_eFormat, width, height);
		if (m_Mips[i].m_Data.size() != bytes)
			return Fail(pError, "mip %zu has %zu bytes; %ux%u %s takes %llu", i, m_Mips[i].m_Data.size(), width, height, FormatName(m_eFormat),
				(unsigned long long)bytes);
	}
	return true;
}

bool CompiledMaterialConstant_t::operator==(const CompiledMaterialConstant_t &other) const
{
	if (m_Key != other.m_Key || m_eType != other.m_eType)
		return false;
	if (m_eType == COMPILED_CONSTANT_INT)
		return memcmp(m_nValues, other.m_nValues, sizeof(m_nValues)) == 0;
	return std::equal(m_flValues, m_flValues + 4, other.m_flValues);
}

const char *CCompiledMaterial::FindTexture(std::string_view key) const
{
	for (const CompiledMaterialTexture_t &texture : m_Textures)
	{
		if (V_StrEqualNoCase(texture.m_Key, key))
			return texture.m_Path.c_str();
	}
	return nullptr;
}

const CompiledMaterialConstant_t *CCompiledMaterial::FindConstant(std::string_view key) const
{
	for (const CompiledMaterialConstant_t &constant : m_Constants)
	{
		if (V_StrEqualNoCase(constant.m_Key, key))
			return &constant;
	}
	return nullptr;
}

bool CCompiledMaterial::Check(CUtlString *pError) const
{
	if (m_nFlags & ~(uint32)COMPILED_MATERIAL_FLAG_ALL)
		return Fail(pError, "unknown material flags %08x", m_nFlags);
	for (const CompiledMaterialConstant_t &constant : m_Constants)
	{
		if (constant.m_eType != COMPILED_CONSTANT_FLOAT && constant.m_eType != COMPILED_CONSTANT_INT)
			return Fail(pError, "constant '%s' has unknown type %u", constant.m_Key.c_str(), (uint32)constant.m_eType);
	}
	return true;
}

bool CCompiledSnapshot::Check(CUtlString *pError) const
{
	if (m_Normals.size() != m_Positions.size())
		return Fail(pError, "%zu positions but %zu normals", m_Positions.size(), m_Normals.size());
	if (m_Positions.size() > UINT32_MAX)
		return Fail(pError, "too many points");
	return true;
}

const char *CompiledAssetTypeName(ECompiledAssetType type)
{
	switch (type)
	{
	case COMPILED_ASSET_MODEL:
		return "model";
	case COMPILED_ASSET_TEXTURE:
		return "texture";
	case COMPILED_ASSET_MATERIAL:
		return "material";
	case COMPILED_ASSET_SNAPSHOT:
		return "particle snapshot";
	default:
		return "unknown";
	}
}
