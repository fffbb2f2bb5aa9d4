#include "meshio/sourcescene.h"

#include <cstring>

#include "core/strtools.h"

int64 CSourceMesh::TriangleCount() const
{
	int64 count = 0;
	const int polygons = PolygonCount();
	for (int p = 0; p < polygons; ++p)
	{
		const int corners = PolygonCornerCount(p);
		if (corners >= 3)
			count += corners - 2;
	}
	return count;
}

void CSourceMesh::AddPolygon(std::span<const int32> positions, int32 material)
{
	if (m_PolygonStart.empty())
		m_PolygonStart.push_back(0);
	m_CornerPosition.insert(m_CornerPosition.end(), positions.begin(), positions.end());
	m_PolygonStart.push_back((int32)m_CornerPosition.size());
	m_PolygonMaterial.push_back(material);
}

int32 CSourceMesh::FindOrAddMaterial(const CUtlString &name)
{
	for (size_t i = 0; i < m_Materials.size(); ++i)
	{
		if (m_Materials[i] == name)
			return (int32)i;
	}
	m_Materials.push_back(name);
	return (int32)m_Materials.size() - 1;
}

bool CSourceMesh::Validate(int jointCount, CUtlString &error) const
{
	const char *name = m_Name.c_str();
	const int polygons = PolygonCount();
	if (!m_PolygonStart.empty() && m_PolygonStart.front() != 0)
	{
		error = V_Format("mesh \"%s\": the first polygon does not start at corner 0", name);
		return false;
	}
	for (int p = 0; p < polygons; ++p)
	{
		if (m_PolygonStart[p + 1] < m_PolygonStart[p])
		{
			error = V_Format("mesh \"%s\": polygon %d ends before it starts", name, p);
			return false;
		}
	}
	if ((polygons == 0 && !m_CornerPosition.empty()) || (polygons > 0 && m_PolygonStart.back() != CornerCount()))
	{
		error = V_Format("mesh \"%s\": the polygons cover %d corners of %d", name, polygons ? m_PolygonStart.back() : 0, CornerCount());
		return false;
	}
	for (int c = 0; c < CornerCount(); ++c)
	{
		if (m_CornerPosition[c] < 0 || m_CornerPosition[c] >= PositionCount())
		{
			error = V_Format("mesh \"%s\": corner %d names position %d of %d", name, c, m_CornerPosition[c], PositionCount());
			return false;
		}
	}
	if (!m_CornerNormals.empty() && (int)m_CornerNormals.size() != CornerCount())
	{
		error = V_Format("mesh \"%s\": %zu normals for %d corners", name, m_CornerNormals.size(), CornerCount());
		return false;
	}
	if (!m_CornerUVs.empty() && (int)m_CornerUVs.size() != CornerCount())
	{
		error = V_Format("mesh \"%s\": %zu texture coordinates for %d corners", name, m_CornerUVs.size(), CornerCount());
		return false;
	}
	if ((int)m_PolygonMaterial.size() != polygons)
	{
		error = V_Format("mesh \"%s\": %zu material entries for %d polygons", name, m_PolygonMaterial.size(), polygons);
		return false;
	}
	for (int p = 0; p < polygons; ++p)
	{
		if (m_PolygonMaterial[p] < -1 || m_PolygonMaterial[p] >= (int)m_Materials.size())
		{
			error = V_Format("mesh \"%s\": polygon %d names material %d of %zu", name, p, m_PolygonMaterial[p], m_Materials.size());
			return false;
		}
	}
	if (!m_WeightStart.empty())
	{
		if ((int)m_WeightStart.size() != PositionCount() + 1 || m_WeightStart.front() != 0 || m_WeightStart.back() != (int)m_Weights.size())
		{
			error = V_Format("mesh \"%s\": the skin weights do not cover its %d positions", name, PositionCount());
			return false;
		}
		for (int p = 0; p < PositionCount(); ++p)
		{
			if (m_WeightStart[p + 1] < m_WeightStart[p])
			{
				error = V_Format("mesh \"%s\": the weights of position %d end before they start", name, p);
				return false;
			}
		}
		for (size_t w = 0; w < m_Weights.size(); ++w)
		{
			if (m_Weights[w].nJoint < 0 || m_Weights[w].nJoint >= jointCount)
			{
				error = V_Format("mesh \"%s\": a skin weight names joint %d of %d", name, m_Weights[w].nJoint, jointCount);
				return false;
			}
		}
	}
	if (m_nParentJoint < -1 || m_nParentJoint >= jointCount)
	{
		error = V_Format("mesh \"%s\": its parent joint %d is not one of %d", name, m_nParentJoint, jointCount);
		return false;
	}
	return true;
}

int SourceScene_t::FindJoint(const char *name) const
{
	for (size_t i = 0; i < joints.size(); ++i)
	{
		if (joints[i].name == name)
			return (int)i;
	}
	return -1;
}

int64 SourceScene_t::PositionCount() const
{
	int64 count = 0;
	for (const CSourceMesh &mesh : meshes)
		count += mesh.PositionCount();
	return count;
}

int64 SourceScene_t::PolygonCount() const
{
	int64 count = 0;
	for (const CSourceMesh &mesh : meshes)
		count += mesh.PolygonCount();
	return count;
}

int64 SourceScene_t::TriangleCount() const
{
	int64 count = 0;
	for (const CSourceMesh &mesh : meshes)
		count += mesh.TriangleCount();
	return count;
}

bool SourceScene_t::Validate(CUtlString &error) const
{
	const int jointCount = (int)joints.size();
	for (int j = 0; j < jointCount; ++j)
	{
		if (joints[j].nParent < -1 || joints[j].nParent >= j)
		{
			error = V_Format("joint \"%s\": its parent %d does not come before it", joints[j].name.c_str(), joints[j].nParent);
			return false;
		}
	}
	for (const CSourceMesh &mesh : meshes)
	{
		if (!mesh.Validate(jointCount, error))
			return false;
	}
	for (const SourceAnimation_t &animation : animations)
	{
		if (animation.nFrameCount < 0 || animation.frames.size() != (size_t)animation.nFrameCount * jointCount)
		{
			error = V_Format("animation \"%s\": %zu poses for %d frames of %d joints", animation.name.c_str(), animation.frames.size(),
				animation.nFrameCount, jointCount);
			return false;
		}
	}
	return true;
}
