// The topology check of a source mesh, on its half-edge mesh.
//
// Every edge is looked at once, in edge order:
// - no face: isolated;
// - one face: a border edge;
// - two faces: the pair is tested for a flipped face until the first flipped pair is found. In
//   each face take the corner at the edge's first end and the one at its second end, and of each
//   corner the vertex of the next and of the previous corner; the pair is flipped when both faces
//   give the same next vertex at the first end, or at the second end, or the same previous vertex
//   at the first end, or at the second end (neighbours wound the same way run through their
//   shared edge in opposite directions, so these never agree). Vertices compare as handles.
// - three faces or more: non-manifold.
// With border edges, the vertices on them (each once) are compared pairwise by "position$0": two
// with a squared distance under 1e-5 are coincident, which makes the border an unwelded seam.
// Every pair is considered (the search goes through a grid of cells, which finds the same pairs
// as the plain double loop).
#pragma once

#include <vector>

#include "meshio/halfedgemesh.h"
#include "meshio/sourcescene.h"

struct MeshEdge_t
{
	int32 nVertex0 = -1; // the edge's first end
	int32 nVertex1 = -1; // its second end

	bool operator==(const MeshEdge_t &other) const = default;
};

struct MeshTopologyReport_t
{
	bool bHasPositions = false; // false: no "position$0" stream, nothing was checked
	int nIsolatedEdges = 0;
	int nNonManifoldEdges = 0;
	int nBorderEdges = 0;
	bool bUnwelded = false; // border vertices lie on other border vertices
	bool bFlipped = false;	// a pair of faces is wound the same way through a shared edge

	// The elements concerned, by vertex and face index (of the half-edge mesh, or of the source
	// when the report comes from CheckSourceTopology). Edges are vertex pairs in edge order.
	std::vector<MeshEdge_t> isolatedEdges;
	std::vector<MeshEdge_t> nonManifoldEdges;
	std::vector<MeshEdge_t> borderEdges;
	std::vector<int32> unweldedVertices; // border vertices with a coincident partner, ascending
	std::vector<int32> flippedFaces;	 // the two faces of the first flipped pair
	MeshEdge_t flippedEdge;				 // the edge they share

	bool HasFindings() const { return nIsolatedEdges || nNonManifoldEdges || nBorderEdges || bFlipped; }
};

// The squared distance under which two border vertices are one place.
constexpr float MESH_COINCIDENT_DISTANCE_SQR = 1e-5f;

// Returns false (with bHasPositions false) when the mesh has no "position$0" stream of three
// components.
bool CheckMeshTopology(const CHalfEdgeMesh &mesh, MeshTopologyReport_t &report);

// Where each source element went in the half-edge mesh made of a whole scene.
struct SourceMeshMap_t
{
	std::vector<int32> meshFirstVertex;	 // vertex index of each mesh's position 0
	std::vector<int32> meshFirstPolygon; // scene-wide index of each mesh's polygon 0
	std::vector<int32> facePolygon;		 // for each face slot: the scene-wide polygon index
	int nDegeneratePolygons = 0;		 // polygons left with fewer than three distinct corners in a row
};

// Puts every mesh of the scene into one half-edge mesh: a vertex per position (mesh after mesh,
// so vertex index = the mesh's first vertex + position index), a face per polygon, and
// "position$0" in model space (each mesh's positions through its MeshToModel). Corners that
// repeat their neighbour's position are dropped (a zero-length edge is no edge); a polygon left
// with two positions becomes an edge without a face, one with fewer adds nothing.
void BuildHalfEdgeMesh(const SourceScene_t &scene, CHalfEdgeMesh &mesh, SourceMeshMap_t &map);

// BuildHalfEdgeMesh and CheckMeshTopology, with faces reported as scene-wide polygon indices.
void CheckSourceTopology(const SourceScene_t &scene, MeshTopologyReport_t &report, SourceMeshMap_t *pMap = nullptr);
