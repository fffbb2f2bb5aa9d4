#include "meshio/meshtopology.h"

#include <algorithm>
#include <cmath>

namespace
{
struct BorderPoint_t
{
	float p[3];
	int64 cell[3];
	int32 nVertex;
};

// Cells a little larger than the coincidence distance: coincident points lie in the same or
// neighbouring cells.
constexpr double CELL_SIZE = 0.0032;
constexpr double MAX_CELL = 1099511627776.0; // 2^40: clamps far-away points into the outermost cells

bool CellLess(const BorderPoint_t &a, const BorderPoint_t &b)
{
	if (a.cell[0] != b.cell[0])
		return a.cell[0] < b.cell[0];
	if (a.cell[1] != b.cell[1])
		return a.cell[1] < b.cell[1];
	return a.cell[2] < b.cell[2];
}

bool Coincident(const float *a, const float *b)
{
	const float dx = a[0] - b[0], dy = a[1] - b[1], dz = a[2] - b[2];
	return dx * dx + dy * dy + dz * dz < MESH_COINCIDENT_DISTANCE_SQR;
}

void FindCoincident(std::vector<BorderPoint_t> &points, std::vector<int32> &out)
{
	// Points with a non-finite coordinate are at no distance under anything from any point.
	points.erase(std::remove_if(points.begin(), points.end(),
					 [](const BorderPoint_t &point) {
						 return !std::isfinite(point.p[0]) || !std::isfinite(point.p[1]) || !std::isfinite(point.p[2]);
					 }),
		points.end());
	// Exact duplicates first: a group of identical places is coincident as a whole, and only one
	// of them needs to go through the cells.
	std::sort(points.begin(), points.end(), [](const BorderPoint_t &a, const BorderPoint_t &b) {
		if (a.p[0] != b.p[0])
			return a.p[0] < b.p[0];
		if (a.p[1] != b.p[1])
			return a.p[1] < b.p[1];
		if (a.p[2] != b.p[2])
			return a.p[2] < b.p[2];
		return a.nVertex < b.nVertex;
	});
	std::vector<BorderPoint_t> unique;
	std::vector<std::pair<size_t, size_t>> groups; // range in `points` of each unique place
	for (size_t i = 0; i < points.size();)
	{
		size_t j = i + 1;
		while (j < points.size() && points[j].p[0] == points[i].p[0] && points[j].p[1] == points[i].p[1] && points[j].p[2] == points[i].p[2])
			++j;
		BorderPoint_t point = points[i];
		for (int k = 0; k < 3; ++k)
			point.cell[k] = (int64)std::clamp(std::floor((double)point.p[k] / CELL_SIZE), -MAX_CELL, MAX_CELL);
		point.nVertex = (int32)groups.size(); // index of its group from here on
		unique.push_back(point);
		groups.emplace_back(i, j);
		i = j;
	}
	std::vector<bool> marked(groups.size(), false);
	for (size_t g = 0; g < groups.size(); ++g)
	{
		if (groups[g].second - groups[g].first > 1)
			marked[g] = true;
	}
	std::sort(unique.begin(), unique.end(), CellLess);
	for (const BorderPoint_t &point : unique)
	{
		for (int dx = -1; dx <= 1; ++dx)
		{
			for (int dy = -1; dy <= 1; ++dy)
			{
				for (int dz = -1; dz <= 1; ++dz)
				{
					BorderPoint_t key;
					key.cell[0] = point.cell[0] + dx;
					key.cell[1] = point.cell[1] + dy;
					key.cell[2] = point.cell[2] + dz;
					const auto range = std::equal_range(unique.begin(), unique.end(), key, CellLess);
					for (auto it = range.first; it != range.second; ++it)
					{
						if (it->nVertex != point.nVertex && Coincident(it->p, point.p))
						{
							marked[point.nVertex] = true;
							marked[it->nVertex] = true;
						}
					}
				}
			}
		}
	}
	for (size_t g = 0; g < groups.size(); ++g)
	{
		if (!marked[g])
			continue;
		for (size_t i = groups[g].first; i < groups[g].second; ++i)
			out.push_back(points[i].nVertex);
	}
	std::sort(out.begin(), out.end());
}
} // namespace

bool CheckMeshTopology(const CHalfEdgeMesh &mesh, MeshTopologyReport_t &report)
{
	report = MeshTopologyReport_t();
	const int positionStream = mesh.FindVertexStream("position$0");
	if (positionStream < 0 || mesh.VertexStreamComponents(positionStream) != 3)
		return false;
	report.bHasPositions = true;

	std::vector<CornerHandle_t> corners;
	for (int e = 0; e < mesh.EdgeSlotCount(); ++e)
	{
		const EdgeHandle_t edge = mesh.EdgeAt(e);
		if (!edge.IsValid())
			continue;
		const VertexHandle_t first = mesh.EdgeVertex(edge, 0);
		const VertexHandle_t second = mesh.EdgeVertex(edge, 1);
		const MeshEdge_t pair{ first.nIndex, second.nIndex };
		const int faces = mesh.EdgeFaceCount(edge);
		if (faces == 0)
		{
			++report.nIsolatedEdges;
			report.isolatedEdges.push_back(pair);
		}
		else if (faces == 1)
		{
			++report.nBorderEdges;
			report.borderEdges.push_back(pair);
		}
		else if (faces == 2)
		{
			if (report.bFlipped)
				continue;
			mesh.EdgeCorners(edge, corners);
			// In each face: the corner at the first end and the corner at the second end. The
			// corner along the edge leaves one end; the next corner stands at the other.
			CornerHandle_t atFirst[2], atSecond[2];
			for (int k = 0; k < 2; ++k)
			{
				const CornerHandle_t next = mesh.NextCorner(corners[k]);
				if (mesh.CornerVertex(corners[k]) == first)
				{
					atFirst[k] = corners[k];
					atSecond[k] = next;
				}
				else
				{
					atFirst[k] = next;
					atSecond[k] = corners[k];
				}
			}
			auto nextVertex = [&](CornerHandle_t c) { return mesh.CornerVertex(mesh.NextCorner(c)); };
			auto prevVertex = [&](CornerHandle_t c) { return mesh.CornerVertex(mesh.PrevCorner(c)); };
			if (nextVertex(atFirst[0]) == nextVertex(atFirst[1]) || nextVertex(atSecond[0]) == nextVertex(atSecond[1]) ||
				prevVertex(atFirst[0]) == prevVertex(atFirst[1]) || prevVertex(atSecond[0]) == prevVertex(atSecond[1]))
			{
				report.bFlipped = true;
				report.flippedEdge = pair;
				report.flippedFaces = { mesh.CornerFace(corners[0]).nIndex, mesh.CornerFace(corners[1]).nIndex };
			}
		}
		else
		{
			++report.nNonManifoldEdges;
			report.nonManifoldEdges.push_back(pair);
		}
	}

	if (!report.borderEdges.empty())
	{
		std::vector<bool> seen(mesh.VertexSlotCount(), false);
		std::vector<BorderPoint_t> points;
		for (const MeshEdge_t &edge : report.borderEdges)
		{
			for (int32 v : { edge.nVertex0, edge.nVertex1 })
			{
				if (seen[v])
					continue;
				seen[v] = true;
				BorderPoint_t point;
				point.nVertex = v;
				if (!mesh.GetVertexData(positionStream, mesh.VertexAt(v), point.p))
					point.p[0] = point.p[1] = point.p[2] = 0.0f;
				points.push_back(point);
			}
		}
		FindCoincident(points, report.unweldedVertices);
		report.bUnwelded = !report.unweldedVertices.empty();
	}
	return true;
}

void BuildHalfEdgeMesh(const SourceScene_t &scene, CHalfEdgeMesh &mesh, SourceMeshMap_t &map)
{
	mesh = CHalfEdgeMesh();
	map = SourceMeshMap_t();
	const int position = mesh.AddVertexStream("position$0", 3);
	int64 vertices = 0, polygons = 0, corners = 0;
	for (const CSourceMesh &source : scene.meshes)
	{
		vertices += source.PositionCount();
		polygons += source.PolygonCount();
		corners += source.CornerCount();
	}
	mesh.ReserveVertices((int)vertices);
	mesh.ReserveFaces((int)polygons, (int)corners);
	map.facePolygon.reserve(polygons);

	std::vector<VertexHandle_t> handles;
	std::vector<VertexHandle_t> ring;
	int32 polygonBase = 0;
	for (const CSourceMesh &source : scene.meshes)
	{
		map.meshFirstVertex.push_back(mesh.VertexSlotCount());
		map.meshFirstPolygon.push_back(polygonBase);
		const bool bPlaced = !source.m_MeshToModel.IsIdentity();
		handles.resize(source.PositionCount());
		for (int p = 0; p < source.PositionCount(); ++p)
		{
			handles[p] = mesh.AddVertex();
			const Vector place = bPlaced ? MatrixTransformPoint(source.m_MeshToModel, source.m_Positions[p]) : source.m_Positions[p];
			mesh.SetVertexData(position, handles[p], place.Base());
		}
		for (int p = 0; p < source.PolygonCount(); ++p)
		{
			const std::span<const int32> polygon = source.PolygonCorners(p);
			ring.clear();
			for (size_t i = 0; i < polygon.size(); ++i)
			{
				const VertexHandle_t h = handles[polygon[i]];
				if (ring.empty() || !(ring.back() == h))
					ring.push_back(h);
			}
			while (ring.size() > 1 && ring.back() == ring.front())
				ring.pop_back();
			if (ring.size() >= 3)
			{
				const FaceHandle_t face = mesh.AddFace(ring);
				if ((int)map.facePolygon.size() <= face.nIndex)
					map.facePolygon.resize(face.nIndex + 1, -1);
				map.facePolygon[face.nIndex] = polygonBase + p;
				if ((int)ring.size() != (int)polygon.size())
					++map.nDegeneratePolygons;
			}
			else
			{
				++map.nDegeneratePolygons;
				if (ring.size() == 2)
					mesh.AddEdge(ring[0], ring[1]);
			}
		}
		polygonBase += source.PolygonCount();
	}
}

void CheckSourceTopology(const SourceScene_t &scene, MeshTopologyReport_t &report, SourceMeshMap_t *pMap)
{
	CHalfEdgeMesh mesh;
	SourceMeshMap_t map;
	BuildHalfEdgeMesh(scene, mesh, map);
	CheckMeshTopology(mesh, report);
	for (int32 &face : report.flippedFaces)
		face = (face >= 0 && face < (int32)map.facePolygon.size()) ? map.facePolygon[face] : -1;
	if (pMap)
		*pMap = std::move(map);
}
