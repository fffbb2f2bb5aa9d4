// The meshes of a model: a source file's meshes in model space, split into vertices only where
// normals or texture coordinates differ, every polygon fanned, skinned with up to four bones a
// vertex, drawn per material, ordered for the GPU with meshoptimizer. And the automatic hitboxes.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>

#include <meshoptimizer.h>

#include "core/strtools.h"
#include "resourcecompiler/modelbuild.h"

namespace
{
struct Vec3d
{
	double x = 0.0, y = 0.0, z = 0.0;
};

Vec3d Sub(const Vector &a, const Vector &b)
{
	return Vec3d{ (double)a.x - b.x, (double)a.y - b.y, (double)a.z - b.z };
}
Vec3d Cross(const Vec3d &a, const Vec3d &b)
{
	return Vec3d{ a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x };
}
double Dot(const Vec3d &a, const Vec3d &b)
{
	return a.x * b.x + a.y * b.y + a.z * b.z;
}
Vector Normalized(const Vec3d &v, const Vector &fallback)
{
	const double length = std::sqrt(Dot(v, v));
	if (!(length > 1e-20) || !std::isfinite(length))
		return fallback;
	return Vector((float)(v.x / length), (float)(v.y / length), (float)(v.z / length));
}

// The 3x3 that takes normals along with a matrix: the inverse transpose of its upper left.
void NormalMatrix(const Matrix4_t &m, double out[3][3], bool &bMirrored)
{
	const double a = m.m[0][0], b = m.m[0][1], c = m.m[0][2];
	const double d = m.m[1][0], e = m.m[1][1], f = m.m[1][2];
	const double g = m.m[2][0], h = m.m[2][1], i = m.m[2][2];
	const double det = a * (e * i - f * h) - b * (d * i - f * g) + c * (d * h - e * g);
	bMirrored = det < 0.0;
	// The cofactor matrix is the inverse transpose times the determinant; its direction is all
	// that normals need (the sign is kept so that mirrored meshes keep their outward normals).
	const double sign = det < 0.0 ? -1.0 : 1.0;
	out[0][0] = (e * i - f * h) * sign;
	out[0][1] = -(d * i - f * g) * sign;
	out[0][2] = (d * h - e * g) * sign;
	out[1][0] = -(b * i - c * h) * sign;
	out[1][1] = (a * i - c * g) * sign;
	out[1][2] = -(a * h - b * g) * sign;
	out[2][0] = (b * f - c * e) * sign;
	out[2][1] = -(a * f - c * d) * sign;
	out[2][2] = (a * e - b * d) * sign;
}

Vec3d Apply(const double m[3][3], const Vector &v)
{
	return Vec3d{ m[0][0] * v.x + m[0][1] * v.y + m[0][2] * v.z, m[1][0] * v.x + m[1][1] * v.y + m[1][2] * v.z,
		m[2][0] * v.x + m[2][1] * v.y + m[2][2] * v.z };
}

// Up to four bones of a position, heaviest first, as the compiled mesh stores them.
struct PositionSkin_t
{
	int32 nBone[4] = { -1, -1, -1, -1 };
	uint8 nWeight[4] = {};
};

// Merges by bone, keeps the four heaviest, normalises, and rounds to 255 in all (the largest
// remainders get the rounding).
bool QuantizeSkin(std::span<const SkinWeight_t> weights, const std::vector<int> &jointToBone, PositionSkin_t &skin)
{
	int32 bones[4] = { -1, -1, -1, -1 };
	double values[4] = {};
	int count = 0;
	// Merge and keep the four heaviest; sources have few weights a position.
	std::vector<std::pair<int32, double>> merged;
	for (const SkinWeight_t &weight : weights)
	{
		if (!(weight.flWeight > 0.0f) || weight.nJoint < 0 || (size_t)weight.nJoint >= jointToBone.size())
			continue;
		const int32 bone = jointToBone[(size_t)weight.nJoint];
		if (bone < 0)
			continue;
		bool bFound = false;
		for (auto &entry : merged)
		{
			if (entry.first == bone)
			{
				entry.second += weight.flWeight;
				bFound = true;
				break;
			}
		}
		if (!bFound)
			merged.emplace_back(bone, (double)weight.flWeight);
	}
	if (merged.empty())
		return false;
	std::stable_sort(merged.begin(), merged.end(), [](const auto &a, const auto &b) { return a.second > b.second; });
	double total = 0.0;
	for (const auto &entry : merged)
	{
		if (count == 4)
			break;
		bones[count] = entry.first;
		values[count] = entry.second;
		total += entry.second;
		++count;
	}
	if (!(total > 0.0))
		return false;
	int quantized[4] = {};
	double remainder[4] = {};
	int sum = 0;
	for (int i = 0; i < count; ++i)
	{
		const double scaled = values[i] / total * 255.0;
		quantized[i] = (int)std::floor(scaled);
		remainder[i] = scaled - quantized[i];
		sum += quantized[i];
	}
	while (sum < 255)
	{
		int best = 0;
		for (int i = 1; i < count; ++i)
		{
			if (remainder[i] > remainder[best])
				best = i;
		}
		++quantized[best];
		remainder[best] = -1.0;
		++sum;
	}
	int out = 0;
	for (int i = 0; i < count; ++i)
	{
		if (quantized[i] == 0)
			continue;
		skin.nBone[out] = bones[i];
		skin.nWeight[out] = (uint8)quantized[i];
		++out;
	}
	return out > 0;
}

uint32 FloatBits(float f)
{
	uint32 bits;
	memcpy(&bits, &f, 4);
	return bits;
}

bool SameVertexData(const Vector &n0, const CompiledTexCoord_t &t0, const Vector &n1, const CompiledTexCoord_t &t1)
{
	return FloatBits(n0.x) == FloatBits(n1.x) && FloatBits(n0.y) == FloatBits(n1.y) && FloatBits(n0.z) == FloatBits(n1.z) &&
		   FloatBits(t0.u) == FloatBits(t1.u) && FloatBits(t0.v) == FloatBits(t1.v);
}

void ComputeTangents(CompiledMesh_t &mesh, const std::vector<uint32> &indices)
{
	const size_t count = mesh.m_Positions.size();
	std::vector<Vec3d> tangents(count), bitangents(count);
	for (size_t t = 0; t + 2 < indices.size(); t += 3)
	{
		const uint32 a = indices[t], b = indices[t + 1], c = indices[t + 2];
		const Vec3d e1 = Sub(mesh.m_Positions[b], mesh.m_Positions[a]);
		const Vec3d e2 = Sub(mesh.m_Positions[c], mesh.m_Positions[a]);
		const double du1 = (double)mesh.m_TexCoords[b].u - mesh.m_TexCoords[a].u, dv1 = (double)mesh.m_TexCoords[b].v - mesh.m_TexCoords[a].v;
		const double du2 = (double)mesh.m_TexCoords[c].u - mesh.m_TexCoords[a].u, dv2 = (double)mesh.m_TexCoords[c].v - mesh.m_TexCoords[a].v;
		const double r = du1 * dv2 - du2 * dv1;
		if (!(std::fabs(r) > 1e-20))
			continue;
		// Not divided by r's size: larger triangles count more.
		const double s = r > 0.0 ? 1.0 : -1.0;
		const Vec3d tangent{ (e1.x * dv2 - e2.x * dv1) * s, (e1.y * dv2 - e2.y * dv1) * s, (e1.z * dv2 - e2.z * dv1) * s };
		const Vec3d bitangent{ (e2.x * du1 - e1.x * du2) * s, (e2.y * du1 - e1.y * du2) * s, (e2.z * du1 - e1.z * du2) * s };
		for (uint32 v : { a, b, c })
		{
			tangents[v].x += tangent.x;
			tangents[v].y += tangent.y;
			tangents[v].z += tangent.z;
			bitangents[v].x += bitangent.x;
			bitangents[v].y += bitangent.y;
			bitangents[v].z += bitangent.z;
		}
	}
	mesh.m_Tangents.resize(count);
	for (size_t v = 0; v < count; ++v)
	{
		const Vector &nf = mesh.m_Normals[v];
		const Vec3d n{ nf.x, nf.y, nf.z };
		Vec3d t = tangents[v];
		const double along = Dot(n, t);
		t = Vec3d{ t.x - n.x * along, t.y - n.y * along, t.z - n.z * along };
		if (!(Dot(t, t) > 1e-24))
		{
			// No texture direction: any direction across the normal.
			const Vec3d axis = std::fabs(n.x) < 0.9 ? Vec3d{ 1, 0, 0 } : Vec3d{ 0, 1, 0 };
			const double d = Dot(n, axis);
			t = Vec3d{ axis.x - n.x * d, axis.y - n.y * d, axis.z - n.z * d };
		}
		const Vector unit = Normalized(t, Vector(1, 0, 0));
		const double handedness = Dot(Cross(n, Vec3d{ unit.x, unit.y, unit.z }), bitangents[v]);
		mesh.m_Tangents[v] = CompiledTangent_t{ unit.x, unit.y, unit.z, handedness < 0.0 ? -1.0f : 1.0f };
	}
}

template <typename T> void RemapStream(std::vector<T> &stream, const std::vector<unsigned int> &remap, size_t newCount)
{
	if (stream.empty())
		return;
	std::vector<T> out(newCount);
	meshopt_remapVertexBuffer(out.data(), stream.data(), stream.size(), sizeof(T), remap.data());
	stream.swap(out);
}
} // namespace

bool BuildModelMesh(const ModelMeshInput_t &input, CompiledMesh_t &mesh, ModelMeshStats_t &stats, CUtlString &error)
{
	const SourceScene_t &scene = *input.m_pScene;
	const std::vector<int> &jointToBone = *input.m_pJointToBone;
	stats = ModelMeshStats_t();

	bool bSkinned = false, bHasUVs = false;
	size_t positionCount = 0;
	for (const CSourceMesh &source : scene.meshes)
	{
		const bool bParented = source.m_nParentJoint >= 0 && (size_t)source.m_nParentJoint < jointToBone.size() &&
							   jointToBone[(size_t)source.m_nParentJoint] >= 0;
		bSkinned = bSkinned || source.IsSkinned() || bParented;
		bHasUVs = bHasUVs || source.HasUVs();
		positionCount += source.m_Positions.size();
		stats.nSourceTriangles += source.TriangleCount();
	}
	if (positionCount > (size_t)INT32_MAX)
	{
		error = "the source has more positions than a mesh can hold";
		return false;
	}

	// Positions in model space and, where needed, their skin, over the whole file.
	std::vector<Vector> positions(positionCount);
	std::vector<PositionSkin_t> skins(bSkinned ? positionCount : 0);
	// For each position, the vertices made from it so far (a chain through nextVertex).
	std::vector<int32> firstVertex(positionCount, -1);
	std::vector<int32> nextVertex;
	std::vector<int32> positionOfVertex;

	// Triangles by material, in order of first use.
	std::vector<int32> groupMaterials;
	std::vector<std::vector<uint32>> groupIndices;
	auto groupOf = [&](int32 material) -> std::vector<uint32> & {
		for (size_t g = 0; g < groupMaterials.size(); ++g)
		{
			if (groupMaterials[g] == material)
				return groupIndices[g];
		}
		groupMaterials.push_back(material);
		groupIndices.emplace_back();
		return groupIndices.back();
	};

	size_t base = 0;
	std::vector<uint32> polygon;
	for (size_t m = 0; m < scene.meshes.size(); ++m)
	{
		const CSourceMesh &source = scene.meshes[m];
		const std::vector<int32> &slots = input.m_SlotMaterial[m];
		double normalMatrix[3][3];
		bool bMirrored = false;
		NormalMatrix(source.m_MeshToModel, normalMatrix, bMirrored);
		for (size_t p = 0; p < source.m_Positions.size(); ++p)
			positions[base + p] = MatrixTransformPoint(source.m_MeshToModel, source.m_Positions[p]);

		// Without normals of its own a mesh gets smooth ones: each polygon's area-weighted
		// normal added to its positions.
		std::vector<Vec3d> smooth;
		if (!source.HasNormals())
		{
			smooth.resize(source.m_Positions.size());
			for (int p = 0; p < source.PolygonCount(); ++p)
			{
				const std::span<const int32> corners = source.PolygonCorners(p);
				Vec3d normal;
				for (size_t i = 0; i < corners.size(); ++i)
				{
					const Vector &a = positions[base + (size_t)corners[i]];
					const Vector &b = positions[base + (size_t)corners[(i + 1) % corners.size()]];
					normal.x += ((double)a.y - b.y) * ((double)a.z + b.z);
					normal.y += ((double)a.z - b.z) * ((double)a.x + b.x);
					normal.z += ((double)a.x - b.x) * ((double)a.y + b.y);
				}
				for (int32 corner : corners)
				{
					Vec3d &sum = smooth[(size_t)corner];
					sum.x += normal.x;
					sum.y += normal.y;
					sum.z += normal.z;
				}
			}
		}

		if (bSkinned)
		{
			const int32 parentBone = source.m_nParentJoint >= 0 && (size_t)source.m_nParentJoint < jointToBone.size()
										 ? jointToBone[(size_t)source.m_nParentJoint]
										 : -1;
			for (size_t p = 0; p < source.m_Positions.size(); ++p)
			{
				PositionSkin_t &skin = skins[base + p];
				if (source.IsSkinned() && QuantizeSkin(source.PositionWeights((int)p), jointToBone, skin))
					continue;
				int32 bone = parentBone;
				if (bone < 0 || source.IsSkinned())
				{
					// A skinned mesh's position that no joint weights stays with the mesh's parent
					// joint or the fallback bone.
					if (bone < 0)
						bone = input.m_nFallbackBone;
					++stats.nUnweightedPositions;
				}
				if (bone < 0)
				{
					error = "a skinned mesh has positions without weights and the skeleton has no bone to bind them to";
					return false;
				}
				skin.nBone[0] = bone;
				skin.nWeight[0] = 255;
			}
		}

		for (int p = 0; p < source.PolygonCount(); ++p)
		{
			const int cornerCount = source.PolygonCornerCount(p);
			if (cornerCount < 3)
			{
				++stats.nPolygonsWithoutCorners;
				continue;
			}
			const int32 first = source.m_PolygonStart[(size_t)p];
			const int32 slot = source.m_PolygonMaterial.empty() ? -1 : source.m_PolygonMaterial[(size_t)p];
			const int32 material = (slot >= 0 && (size_t)slot + 1 < slots.size()) ? slots[(size_t)slot] : slots.back();
			polygon.clear();
			for (int c = 0; c < cornerCount; ++c)
			{
				const size_t corner = (size_t)(first + c);
				const int32 local = source.m_CornerPosition[corner];
				const size_t position = base + (size_t)local;
				Vector normal;
				if (source.HasNormals())
					normal = Normalized(Apply(normalMatrix, source.m_CornerNormals[corner]), Vector(0, 0, 1));
				else
					normal = Normalized(smooth[(size_t)local], Vector(0, 0, 1));
				CompiledTexCoord_t uv;
				if (source.HasUVs())
				{
					// Texture rows are stored from the top: v runs downward.
					uv.u = source.m_CornerUVs[corner].x;
					uv.v = 1.0f - source.m_CornerUVs[corner].y;
				}
				int32 vertex = firstVertex[position];
				while (vertex >= 0 && !SameVertexData(mesh.m_Normals[(size_t)vertex], mesh.m_TexCoords[(size_t)vertex], normal, uv))
					vertex = nextVertex[(size_t)vertex];
				if (vertex < 0)
				{
					vertex = (int32)mesh.m_Positions.size();
					mesh.m_Positions.push_back(positions[position]);
					mesh.m_Normals.push_back(normal);
					mesh.m_TexCoords.push_back(uv);
					nextVertex.push_back(firstVertex[position]);
					positionOfVertex.push_back((int32)position);
					firstVertex[position] = vertex;
				}
				polygon.push_back((uint32)vertex);
			}
			std::vector<uint32> &indices = groupOf(material);
			for (int i = 1; i + 1 < cornerCount; ++i)
			{
				indices.push_back(polygon[0]);
				indices.push_back(polygon[(size_t)(bMirrored ? i + 1 : i)]);
				indices.push_back(polygon[(size_t)(bMirrored ? i : i + 1)]);
			}
		}
		base += source.m_Positions.size();
	}

	// One index list, a draw call per material.
	std::vector<uint32> indices;
	size_t indexCount = 0;
	for (const std::vector<uint32> &group : groupIndices)
		indexCount += group.size();
	if (indexCount > UINT32_MAX)
	{
		error = "the source has more triangles than a mesh can hold";
		return false;
	}
	indices.reserve(indexCount);
	mesh.m_DrawCalls.clear();
	const size_t vertexCount = mesh.m_Positions.size();
	for (size_t g = 0; g < groupIndices.size(); ++g)
	{
		CompiledDrawCall_t draw;
		draw.m_nMaterial = (uint32)groupMaterials[g];
		draw.m_nFirstIndex = (uint32)indices.size();
		draw.m_nIndexCount = (uint32)groupIndices[g].size();
		draw.m_nPrimitiveCount = draw.m_nIndexCount / 3;
		indices.resize(indices.size() + groupIndices[g].size());
		// The triangles of each draw call in the order that suits the vertex cache.
		meshopt_optimizeVertexCache(indices.data() + draw.m_nFirstIndex, groupIndices[g].data(), groupIndices[g].size(), vertexCount);
		std::vector<uint32>().swap(groupIndices[g]);
		mesh.m_DrawCalls.push_back(draw);
	}

	if (bHasUVs)
		ComputeTangents(mesh, indices);

	// Skin per vertex, as indices into the mesh's own bone list.
	if (bSkinned)
	{
		std::vector<int32> localOfBone;
		for (const PositionSkin_t &skin : skins)
		{
			for (int i = 0; i < 4; ++i)
			{
				if (skin.nWeight[i] == 0)
					continue;
				if ((size_t)skin.nBone[i] >= localOfBone.size())
					localOfBone.resize((size_t)skin.nBone[i] + 1, -1);
				localOfBone[(size_t)skin.nBone[i]] = 0;
			}
		}
		mesh.m_Bones.clear();
		for (size_t b = 0; b < localOfBone.size(); ++b)
		{
			if (localOfBone[b] >= 0)
			{
				localOfBone[b] = (int32)mesh.m_Bones.size();
				mesh.m_Bones.push_back((uint32)b);
			}
		}
		if (mesh.m_Bones.size() > CCompiledModel::MAX_MESH_BONES)
		{
			error = V_Format("the mesh is skinned to %zu bones; a mesh may use at most %u", mesh.m_Bones.size(), (uint32)CCompiledModel::MAX_MESH_BONES);
			return false;
		}
		mesh.m_BoneIndices.resize(vertexCount);
		mesh.m_BoneWeights.resize(vertexCount);
		for (size_t v = 0; v < vertexCount; ++v)
		{
			const PositionSkin_t &skin = skins[(size_t)positionOfVertex[v]];
			for (int i = 0; i < 4; ++i)
			{
				mesh.m_BoneIndices[v].m_nIndex[i] = skin.nWeight[i] ? (uint8)localOfBone[(size_t)skin.nBone[i]] : 0;
				mesh.m_BoneWeights[v].m_nWeight[i] = skin.nWeight[i];
			}
		}
	}

	// Vertices in the order the triangles first use them.
	if (vertexCount > 0)
	{
		std::vector<unsigned int> remap(vertexCount);
		const size_t unique = meshopt_optimizeVertexFetchRemap(remap.data(), indices.data(), indices.size(), vertexCount);
		meshopt_remapIndexBuffer(indices.data(), indices.data(), indices.size(), remap.data());
		RemapStream(mesh.m_Positions, remap, unique);
		RemapStream(mesh.m_Normals, remap, unique);
		RemapStream(mesh.m_Tangents, remap, unique);
		RemapStream(mesh.m_TexCoords, remap, unique);
		RemapStream(mesh.m_BoneIndices, remap, unique);
		RemapStream(mesh.m_BoneWeights, remap, unique);
	}
	mesh.SetIndices(indices.data(), indices.size());
	mesh.m_nLodMask = mesh.m_nLodMask ? mesh.m_nLodMask : 1;
	mesh.ComputeBounds();
	return true;
}

void BuildAutoHitboxes(const std::vector<CompiledMesh_t> &meshes, const CModelSkeleton &skeleton, CompiledHitboxSet_t &set)
{
	const std::vector<ModelBone_t> &bones = skeleton.Bones();
	struct Box_t
	{
		bool bUsed = false;
		Vector mins, maxs;
	};
	std::vector<Box_t> boxes(bones.size());
	for (const CompiledMesh_t &mesh : meshes)
	{
		for (size_t v = 0; v < mesh.m_BoneWeights.size(); ++v)
		{
			for (int i = 0; i < 4; ++i)
			{
				if (mesh.m_BoneWeights[v].m_nWeight[i] < 64)
					continue;
				const uint32 bone = mesh.m_Bones[mesh.m_BoneIndices[v].m_nIndex[i]];
				const Vector p = MatrixTransformPoint(bones[bone].m_InverseBind, mesh.m_Positions[v]);
				Box_t &box = boxes[bone];
				if (!box.bUsed)
				{
					box.bUsed = true;
					box.mins = box.maxs = p;
					continue;
				}
				for (int k = 0; k < 3; ++k)
				{
					box.mins[k] = std::min(box.mins[k], p[k]);
					box.maxs[k] = std::max(box.maxs[k], p[k]);
				}
			}
		}
	}
	set.m_bGenerated = true;
	set.m_Hitboxes.clear();
	for (size_t b = 0; b < bones.size(); ++b)
	{
		if (!boxes[b].bUsed || !bones[b].m_bSkinned)
			continue;
		CompiledHitbox_t hitbox;
		hitbox.m_Name = bones[b].m_Name;
		hitbox.m_nBone = (int32)b;
		hitbox.m_vMins = boxes[b].mins;
		hitbox.m_vMaxs = boxes[b].maxs;
		set.m_Hitboxes.push_back(std::move(hitbox));
	}
}
