#include "mintyardtoolutils/preview/meshproblems.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

#include "compiledassets/compiledassets.h"
#include "core/pathutils.h"
#include "core/strtools.h"
#include "meshio/meshmath.h"
#include "meshio/meshsource.h"
#include "modeldoc/modeldoc.h"
#include "toolscene/toolscene.h"

namespace
{
// The turn of a source's up axis to +Z, as the compiler makes it: Y-up (x, y, z) -> (x, -z, y),
// X-up (x, y, z) -> (-z, y, x).
Matrix4_t UpAxisToZ(char upAxis)
{
	Matrix4_t m;
	if (upAxis == 'Y' || upAxis == 'y')
	{
		m.m[1][1] = 0.0;
		m.m[1][2] = -1.0;
		m.m[2][1] = 1.0;
		m.m[2][2] = 0.0;
	}
	else if (upAxis == 'X' || upAxis == 'x')
	{
		m.m[0][0] = 0.0;
		m.m[0][2] = -1.0;
		m.m[2][0] = 1.0;
		m.m[2][2] = 0.0;
	}
	return m;
}

// The compiled vertices of a model in cells, to find the one at a place.
class CVertexGrid
{
public:
	CVertexGrid(const CCompiledModel &model, float flCell) : m_Model(model), m_flCell(flCell > 0.0f ? flCell : 1.0f)
	{
		for (size_t m = 0; m < model.m_Meshes.size(); ++m)
		{
			const CompiledMesh_t &mesh = model.m_Meshes[m];
			for (uint32 v = 0; v < mesh.VertexCount(); ++v)
				m_Cells[Key(mesh.m_Positions[v])].push_back({ (int)m, (int)v });
		}
	}

	// The nearest vertex within `flTolerance`: of mesh `nMesh` when one is near enough, otherwise
	// of any mesh (-1: any mesh alike).
	bool Find(const Vector &position, int nMesh, float flTolerance, int &outMesh, int &outVertex) const
	{
		float flBest[2] = { flTolerance * flTolerance, flTolerance * flTolerance };
		int nFoundMesh[2] = { -1, -1 };
		int nFoundVertex[2] = { -1, -1 };
		const int64 cx = Cell(position.x), cy = Cell(position.y), cz = Cell(position.z);
		for (int64 dx = -1; dx <= 1; ++dx)
		{
			for (int64 dy = -1; dy <= 1; ++dy)
			{
				for (int64 dz = -1; dz <= 1; ++dz)
				{
					const auto it = m_Cells.find(Pack(cx + dx, cy + dy, cz + dz));
					if (it == m_Cells.end())
						continue;
					for (const Entry_t &entry : it->second)
					{
						const Vector &p = m_Model.m_Meshes[(size_t)entry.m_nMesh].m_Positions[(size_t)entry.m_nVertex];
						const float ex = p.x - position.x, ey = p.y - position.y, ez = p.z - position.z;
						const float flDistance = ex * ex + ey * ey + ez * ez;
						const int nKind = (nMesh < 0 || entry.m_nMesh == nMesh) ? 0 : 1;
						if (flDistance > flBest[nKind])
							continue;
						flBest[nKind] = flDistance;
						nFoundMesh[nKind] = entry.m_nMesh;
						nFoundVertex[nKind] = entry.m_nVertex;
					}
				}
			}
		}
		const int nKind = nFoundMesh[0] >= 0 ? 0 : 1;
		if (nFoundMesh[nKind] < 0)
			return false;
		outMesh = nFoundMesh[nKind];
		outVertex = nFoundVertex[nKind];
		return true;
	}

private:
	struct Entry_t
	{
		int m_nMesh;
		int m_nVertex;
	};
	int64 Cell(float f) const { return (int64)std::floor(f / m_flCell); }
	static uint64 Pack(int64 x, int64 y, int64 z)
	{
		return ((uint64)(x & 0x1fffff) << 42) | ((uint64)(y & 0x1fffff) << 21) | (uint64)(z & 0x1fffff);
	}
	uint64 Key(const Vector &p) const { return Pack(Cell(p.x), Cell(p.y), Cell(p.z)); }

	const CCompiledModel &m_Model;
	float m_flCell;
	std::unordered_map<uint64, std::vector<Entry_t>> m_Cells;
};

// The source mesh of a scene-wide index, from the first indices of each mesh.
int MeshOfIndex(const std::vector<int32> &firsts, int32 nIndex)
{
	const auto it = std::upper_bound(firsts.begin(), firsts.end(), nIndex);
	return (int)(it - firsts.begin()) - 1;
}
} // namespace

void CZarnMeshProblems::Clear()
{
	m_Edges.clear();
	m_Triangles.clear();
	m_Counts = ZarnMeshProblemCounts_t();
	m_nMatchedPoints = 0;
	m_nPoints = 0;
}

bool CZarnMeshProblems::Load(const char *pszContentRoot, const char *pszModelDocument, const CCompiledModel &model, CUtlString *pError)
{
	Clear();
	CModelDoc doc;
	CUtlString error;
	if (!doc.LoadFromFile(pszModelDocument, nullptr, &error))
	{
		if (pError)
			*pError = error;
		return false;
	}
	CUtlVector<CModelDocNode *> meshNodes;
	doc.FindNodes("RenderMeshFile", meshNodes);
	// The compiler takes one scale for the whole model: the first mesh's.
	double flScale = meshNodes.empty() ? 1.0 : (double)meshNodes[0]->GetFloat("import_scale");
	if (!std::isfinite(flScale) || !(flScale > 0.0))
		flScale = 1.0;

	const Vector size = model.m_Bounds.m_vMaxs - model.m_Bounds.m_vMins;
	const float flTolerance = std::max(1e-3f, 1e-3f * std::sqrt(size.x * size.x + size.y * size.y + size.z * size.z));
	const CVertexGrid grid(model, flTolerance * 4.0f);
	CUtlString problems;

	for (const CModelDocNode *pNode : meshNodes)
	{
		const char *pszFile = pNode->GetString("filename");
		if (!pszFile || !*pszFile)
			continue;
		// A source name from a document stays inside the content tree.
		CUtlString path, why;
		if (!V_JoinInside(pszContentRoot ? pszContentRoot : ".", pszFile, path, &why))
		{
			V_AppendFormat(problems, "%s%s: %s", problems.empty() ? "" : "\n", pszFile, why.c_str());
			continue;
		}
		SourceScene_t scene;
		CUtlString sourceError;
		if (!LoadSourceScene(path.c_str(), scene, sourceError))
		{
			V_AppendFormat(problems, "%s%s", problems.empty() ? "" : "\n", sourceError.c_str());
			continue;
		}
		MeshTopologyReport_t report;
		SourceMeshMap_t map;
		CheckSourceTopology(scene, report, &map);
		++m_Counts.m_nSources;
		if (!report.bHasPositions)
			continue;
		int nCompiledMesh = -1;
		for (size_t m = 0; m < model.m_Meshes.size(); ++m)
		{
			if (V_StrEqualNoCase(model.m_Meshes[m].m_Name, pNode->GetName()))
				nCompiledMesh = (int)m;
		}
		const Matrix4_t toModel = MatrixMultiply(UpAxisToZ(scene.upAxis), MatrixScale(flScale, flScale, flScale));

		auto point = [&](int nMesh, int32 nPosition) {
			Point_t out;
			const CSourceMesh &mesh = scene.meshes[(size_t)nMesh];
			if (nPosition < 0 || nPosition >= mesh.PositionCount())
				return out;
			out.m_vModel = MatrixTransformPoint(MatrixMultiply(toModel, mesh.m_MeshToModel), mesh.m_Positions[(size_t)nPosition]);
			++m_nPoints;
			if (grid.Find(out.m_vModel, nCompiledMesh, flTolerance, out.m_nMesh, out.m_nVertex))
				++m_nMatchedPoints;
			return out;
		};
		auto vertexPoint = [&](int32 nVertex) {
			const int nMesh = MeshOfIndex(map.meshFirstVertex, nVertex);
			return nMesh < 0 ? Point_t() : point(nMesh, nVertex - map.meshFirstVertex[(size_t)nMesh]);
		};
		auto addEdges = [&](const std::vector<MeshEdge_t> &edges, bool bNonManifold) {
			for (const MeshEdge_t &edge : edges)
			{
				Edge_t &out = m_Edges.emplace_back();
				out.m_Points[0] = vertexPoint(edge.nVertex0);
				out.m_Points[1] = vertexPoint(edge.nVertex1);
				out.m_bNonManifold = bNonManifold;
			}
		};
		addEdges(report.borderEdges, false);
		addEdges(report.nonManifoldEdges, true);
		m_Counts.m_nBorderEdges += (int)report.borderEdges.size();
		m_Counts.m_nNonManifoldEdges += (int)report.nonManifoldEdges.size();

		for (const int32 nPolygon : report.flippedFaces)
		{
			const int nMesh = MeshOfIndex(map.meshFirstPolygon, nPolygon);
			if (nMesh < 0)
				continue;
			const CSourceMesh &mesh = scene.meshes[(size_t)nMesh];
			const int nLocal = nPolygon - map.meshFirstPolygon[(size_t)nMesh];
			if (nLocal < 0 || nLocal >= mesh.PolygonCount())
				continue;
			++m_Counts.m_nFlippedFaces;
			const auto corners = mesh.PolygonCorners(nLocal);
			for (size_t c = 2; c < corners.size(); ++c)
			{
				Triangle_t &triangle = m_Triangles.emplace_back();
				triangle.m_Points[0] = point(nMesh, corners[0]);
				triangle.m_Points[1] = point(nMesh, corners[c - 1]);
				triangle.m_Points[2] = point(nMesh, corners[c]);
			}
		}
	}
	if (pError)
		*pError = problems;
	return true;
}

Vector CZarnMeshProblems::WorldPosition(const Point_t &point, const CToolSceneModelNode &node)
{
	const SceneMatrix_t world = node.GetWorldTransform();
	const CCompiledModel *pModel = node.GetCompiledModel();
	if (!pModel || point.m_nMesh < 0 || point.m_nMesh >= (int)pModel->m_Meshes.size())
		return SceneTransformPoint(world, point.m_vModel);
	const CompiledMesh_t &mesh = pModel->m_Meshes[(size_t)point.m_nMesh];
	if (point.m_nVertex < 0 || point.m_nVertex >= (int)mesh.VertexCount())
		return SceneTransformPoint(world, point.m_vModel);
	Vector position = mesh.m_Positions[(size_t)point.m_nVertex];
	const std::vector<SceneMatrix_t> &skinning = node.GetSkinningMatrices();
	if (mesh.IsSkinned() && !skinning.empty())
	{
		Vector sum;
		float flTotal = 0.0f;
		for (int k = 0; k < 4; ++k)
		{
			const uint8 weight = mesh.m_BoneWeights[(size_t)point.m_nVertex].m_nWeight[k];
			const uint32 nMeshBone = mesh.m_BoneIndices[(size_t)point.m_nVertex].m_nIndex[k];
			if (!weight || nMeshBone >= mesh.m_Bones.size())
				continue;
			const uint32 nBone = mesh.m_Bones[nMeshBone];
			if (nBone >= skinning.size())
				continue;
			sum += SceneTransformPoint(skinning[nBone], position) * ((float)weight / 255.0f);
			flTotal += (float)weight / 255.0f;
		}
		if (flTotal > 0.0f)
			position = sum;
	}
	return SceneTransformPoint(world, position);
}

void CZarnMeshProblems::UpdateNodes(CToolScene &scene, const CToolSceneModelNode &node)
{
	if (m_pLines && !scene.ContainsNode(m_pLines))
		m_pLines = nullptr;
	if (m_pTints && !scene.ContainsNode(m_pTints))
		m_pTints = nullptr;
	if (!m_pLines)
	{
		m_pLines = scene.CreateLineSetNode();
		m_pLines->SetName("mesh problems: edges");
		m_pLines->SetLineWidth(3.0f);
		m_pLines->SetDrawOnTop(true);
	}
	if (!m_pTints)
	{
		m_pTints = scene.CreateTriangleTintNode();
		m_pTints->SetName("mesh problems: faces");
		m_pTints->SetDrawOnTop(true);
	}
	m_pLines->Clear();
	m_pTints->Clear();
	for (const Edge_t &edge : m_Edges)
		m_pLines->AddLine(WorldPosition(edge.m_Points[0], node), WorldPosition(edge.m_Points[1], node), ZARN_MESH_PROBLEM_EDGE_COLOR);
	for (const Triangle_t &triangle : m_Triangles)
	{
		m_pTints->AddTriangle(WorldPosition(triangle.m_Points[0], node), WorldPosition(triangle.m_Points[1], node),
			WorldPosition(triangle.m_Points[2], node), ZARN_MESH_PROBLEM_FACE_COLOR);
	}
}

void CZarnMeshProblems::RemoveNodes(CToolScene &scene)
{
	if (m_pLines && scene.ContainsNode(m_pLines))
		scene.RemoveNode(m_pLines);
	if (m_pTints && scene.ContainsNode(m_pTints))
		scene.RemoveNode(m_pTints);
	m_pLines = nullptr;
	m_pTints = nullptr;
}
