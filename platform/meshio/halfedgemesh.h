// A half-edge mesh over the source's own connectivity. Vertices are the source's positions
// (FBX control points, DMX position indices): two polygons share a vertex only when they name
// the same index, so a seam that the artist left unwelded stays open here.
//
// - A face is a loop of corners (half-edges); corner c runs from its vertex to the vertex of
//   NextCorner(c), along CornerEdge(c).
// - An edge joins two vertices and carries any number of corners: none (an isolated edge),
//   one (a border), two (manifold) or more (non-manifold).
// - Elements are named by handles: a slot index and the slot's generation. Removing an element
//   raises the generation of its slot, so a handle kept from before never names the element that
//   later reuses the slot. Compare handles, never positions.
// - Vertex streams are named arrays of floats per vertex ("position$0" holds three).
#pragma once

#include <span>
#include <vector>

#include "core/platform.h"
#include "core/utlstring.h"

template <typename Tag> struct MeshHandle_t
{
	int32 nIndex = -1;
	uint32 nGeneration = 0;

	bool IsValid() const { return nIndex >= 0; }
	bool operator==(const MeshHandle_t &other) const = default;
};

struct VertexTag_t;
struct EdgeTag_t;
struct FaceTag_t;
struct CornerTag_t;
typedef MeshHandle_t<VertexTag_t> VertexHandle_t;
typedef MeshHandle_t<EdgeTag_t> EdgeHandle_t;
typedef MeshHandle_t<FaceTag_t> FaceHandle_t;
typedef MeshHandle_t<CornerTag_t> CornerHandle_t;

class CHalfEdgeMesh
{
public:
	// Building.
	VertexHandle_t AddVertex();
	void ReserveVertices(int count);
	void ReserveFaces(int faces, int corners);
	// Adds a face over at least three vertices, no two neighbours the same. Returns an invalid
	// handle (and adds nothing) for fewer corners, repeated neighbours or stale handles.
	FaceHandle_t AddFace(std::span<const VertexHandle_t> vertices);
	// Finds the edge between two vertices or adds one that no face uses.
	EdgeHandle_t AddEdge(VertexHandle_t a, VertexHandle_t b);
	// Removing: a face takes its corners with it and leaves its edges (maybe isolated); an edge
	// goes only when no face uses it, a vertex only when no edge touches it.
	bool RemoveFace(FaceHandle_t face);
	bool RemoveEdge(EdgeHandle_t edge);
	bool RemoveVertex(VertexHandle_t vertex);

	// Counts of live elements, and of slots (live or free) to walk by index.
	int VertexCount() const { return m_nLiveVertices; }
	int EdgeCount() const { return m_nLiveEdges; }
	int FaceCount() const { return m_nLiveFaces; }
	int VertexSlotCount() const { return (int)m_Vertices.size(); }
	int EdgeSlotCount() const { return (int)m_Edges.size(); }
	int FaceSlotCount() const { return (int)m_Faces.size(); }
	// The live element in a slot, or an invalid handle.
	VertexHandle_t VertexAt(int index) const;
	EdgeHandle_t EdgeAt(int index) const;
	FaceHandle_t FaceAt(int index) const;

	bool IsValid(VertexHandle_t vertex) const;
	bool IsValid(EdgeHandle_t edge) const;
	bool IsValid(FaceHandle_t face) const;
	bool IsValid(CornerHandle_t corner) const;

	// Edges.
	EdgeHandle_t FindEdge(VertexHandle_t a, VertexHandle_t b) const;
	// The ends in the order the edge was made (first end, second end).
	VertexHandle_t EdgeVertex(EdgeHandle_t edge, int end) const;
	// How many face corners run along the edge (a face that runs along it twice counts twice).
	int EdgeFaceCount(EdgeHandle_t edge) const;
	// The corners that run along the edge, each the corner of its face at the end it leaves.
	void EdgeCorners(EdgeHandle_t edge, std::vector<CornerHandle_t> &out) const;
	void EdgeFaces(EdgeHandle_t edge, std::vector<FaceHandle_t> &out) const;

	// Corners.
	VertexHandle_t CornerVertex(CornerHandle_t corner) const;
	FaceHandle_t CornerFace(CornerHandle_t corner) const;
	EdgeHandle_t CornerEdge(CornerHandle_t corner) const; // from this corner to the next
	CornerHandle_t NextCorner(CornerHandle_t corner) const;
	CornerHandle_t PrevCorner(CornerHandle_t corner) const;

	// Faces.
	int FaceCornerCount(FaceHandle_t face) const;
	CornerHandle_t FaceFirstCorner(FaceHandle_t face) const;
	void FaceCorners(FaceHandle_t face, std::vector<CornerHandle_t> &out) const;
	// The face's corner at a vertex (the first one when the face passes it twice).
	CornerHandle_t FindFaceCorner(FaceHandle_t face, VertexHandle_t vertex) const;

	// Vertices: the edges that touch one.
	void VertexEdges(VertexHandle_t vertex, std::vector<EdgeHandle_t> &out) const;

	// Vertex streams.
	int AddVertexStream(const char *name, int components); // returns its index; an existing name is returned as it is
	int FindVertexStream(const char *name) const;		   // -1 when absent
	int VertexStreamComponents(int stream) const;
	const char *VertexStreamName(int stream) const;
	int VertexStreamCount() const { return (int)m_Streams.size(); }
	// Reads or writes the components of a vertex; false for a stale handle or a bad stream.
	bool GetVertexData(int stream, VertexHandle_t vertex, float *out) const;
	bool SetVertexData(int stream, VertexHandle_t vertex, const float *values);

	// Internal consistency (rings, loops, counts); for tests. The message says what is wrong.
	bool CheckIntegrity(CUtlString &error) const;

private:
	struct Vertex_t
	{
		int32 nFirstEdge = -1; // ring of the edges at this vertex
		uint32 nGeneration = 0;
		bool bLive = false;
	};
	struct Edge_t
	{
		int32 nVertex[2] = { -1, -1 };
		int32 nNextAtVertex[2] = { -1, -1 }; // next edge in the ring of each end
		int32 nFirstCorner = -1;			 // list of the corners along the edge
		int32 nCornerCount = 0;
		uint32 nGeneration = 0;
		bool bLive = false;
	};
	struct Face_t
	{
		int32 nFirstCorner = -1;
		int32 nCornerCount = 0;
		uint32 nGeneration = 0;
		bool bLive = false;
	};
	struct Corner_t
	{
		int32 nVertex = -1;
		int32 nFace = -1;
		int32 nEdge = -1;
		int32 nNext = -1;
		int32 nPrev = -1;
		int32 nNextOnEdge = -1;
		uint32 nGeneration = 0;
		bool bLive = false;
	};
	struct Stream_t
	{
		CUtlString name;
		int nComponents = 0;
		std::vector<float> values; // nComponents per vertex slot
	};

	int32 FindEdgeIndex(int32 a, int32 b) const;
	int32 NewEdge(int32 a, int32 b);
	void UnlinkCornerFromEdge(int32 corner);
	template <typename T> static int32 TakeSlot(std::vector<T> &slots, std::vector<int32> &free);

	std::vector<Vertex_t> m_Vertices;
	std::vector<Edge_t> m_Edges;
	std::vector<Face_t> m_Faces;
	std::vector<Corner_t> m_Corners;
	std::vector<int32> m_FreeVertices, m_FreeEdges, m_FreeFaces, m_FreeCorners;
	std::vector<Stream_t> m_Streams;
	int m_nLiveVertices = 0;
	int m_nLiveEdges = 0;
	int m_nLiveFaces = 0;
};
