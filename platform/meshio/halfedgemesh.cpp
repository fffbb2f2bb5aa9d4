#include "meshio/halfedgemesh.h"

#include <algorithm>
#include <cstring>

#include "core/strtools.h"

template <typename T> int32 CHalfEdgeMesh::TakeSlot(std::vector<T> &slots, std::vector<int32> &free)
{
	if (!free.empty())
	{
		const int32 index = free.back();
		free.pop_back();
		const uint32 generation = slots[index].nGeneration;
		slots[index] = T();
		slots[index].nGeneration = generation;
		slots[index].bLive = true;
		return index;
	}
	slots.emplace_back();
	slots.back().bLive = true;
	return (int32)slots.size() - 1;
}

void CHalfEdgeMesh::ReserveVertices(int count)
{
	m_Vertices.reserve(count);
	for (Stream_t &stream : m_Streams)
		stream.values.reserve((size_t)count * stream.nComponents);
}

void CHalfEdgeMesh::ReserveFaces(int faces, int corners)
{
	m_Faces.reserve(faces);
	m_Corners.reserve(corners);
	m_Edges.reserve(corners / 2 + 16);
}

VertexHandle_t CHalfEdgeMesh::AddVertex()
{
	const int32 index = TakeSlot(m_Vertices, m_FreeVertices);
	for (Stream_t &stream : m_Streams)
	{
		const size_t needed = ((size_t)index + 1) * stream.nComponents;
		if (stream.values.size() < needed)
			stream.values.resize(needed, 0.0f);
		std::fill_n(stream.values.begin() + (size_t)index * stream.nComponents, stream.nComponents, 0.0f);
	}
	++m_nLiveVertices;
	return VertexHandle_t{ index, m_Vertices[index].nGeneration };
}

bool CHalfEdgeMesh::IsValid(VertexHandle_t h) const
{
	return h.nIndex >= 0 && h.nIndex < (int32)m_Vertices.size() && m_Vertices[h.nIndex].bLive && m_Vertices[h.nIndex].nGeneration == h.nGeneration;
}

bool CHalfEdgeMesh::IsValid(EdgeHandle_t h) const
{
	return h.nIndex >= 0 && h.nIndex < (int32)m_Edges.size() && m_Edges[h.nIndex].bLive && m_Edges[h.nIndex].nGeneration == h.nGeneration;
}

bool CHalfEdgeMesh::IsValid(FaceHandle_t h) const
{
	return h.nIndex >= 0 && h.nIndex < (int32)m_Faces.size() && m_Faces[h.nIndex].bLive && m_Faces[h.nIndex].nGeneration == h.nGeneration;
}

bool CHalfEdgeMesh::IsValid(CornerHandle_t h) const
{
	return h.nIndex >= 0 && h.nIndex < (int32)m_Corners.size() && m_Corners[h.nIndex].bLive && m_Corners[h.nIndex].nGeneration == h.nGeneration;
}

VertexHandle_t CHalfEdgeMesh::VertexAt(int index) const
{
	if (index < 0 || index >= (int)m_Vertices.size() || !m_Vertices[index].bLive)
		return VertexHandle_t();
	return VertexHandle_t{ index, m_Vertices[index].nGeneration };
}

EdgeHandle_t CHalfEdgeMesh::EdgeAt(int index) const
{
	if (index < 0 || index >= (int)m_Edges.size() || !m_Edges[index].bLive)
		return EdgeHandle_t();
	return EdgeHandle_t{ index, m_Edges[index].nGeneration };
}

FaceHandle_t CHalfEdgeMesh::FaceAt(int index) const
{
	if (index < 0 || index >= (int)m_Faces.size() || !m_Faces[index].bLive)
		return FaceHandle_t();
	return FaceHandle_t{ index, m_Faces[index].nGeneration };
}

int32 CHalfEdgeMesh::FindEdgeIndex(int32 a, int32 b) const
{
	// The ring of the vertex with fewer edges would be shorter, but rings carry no length; a
	// vertex of a game mesh has a handful.
	int32 e = m_Vertices[a].nFirstEdge;
	while (e >= 0)
	{
		const Edge_t &edge = m_Edges[e];
		const int end = edge.nVertex[0] == a ? 0 : 1;
		if (edge.nVertex[1 - end] == b)
			return e;
		e = edge.nNextAtVertex[end];
	}
	return -1;
}

int32 CHalfEdgeMesh::NewEdge(int32 a, int32 b)
{
	const int32 e = TakeSlot(m_Edges, m_FreeEdges);
	Edge_t &edge = m_Edges[e];
	edge.nVertex[0] = a;
	edge.nVertex[1] = b;
	edge.nNextAtVertex[0] = m_Vertices[a].nFirstEdge;
	m_Vertices[a].nFirstEdge = e;
	edge.nNextAtVertex[1] = m_Vertices[b].nFirstEdge;
	m_Vertices[b].nFirstEdge = e;
	++m_nLiveEdges;
	return e;
}

EdgeHandle_t CHalfEdgeMesh::AddEdge(VertexHandle_t a, VertexHandle_t b)
{
	if (!IsValid(a) || !IsValid(b) || a == b)
		return EdgeHandle_t();
	int32 e = FindEdgeIndex(a.nIndex, b.nIndex);
	if (e < 0)
		e = NewEdge(a.nIndex, b.nIndex);
	return EdgeHandle_t{ e, m_Edges[e].nGeneration };
}

EdgeHandle_t CHalfEdgeMesh::FindEdge(VertexHandle_t a, VertexHandle_t b) const
{
	if (!IsValid(a) || !IsValid(b) || a == b)
		return EdgeHandle_t();
	const int32 e = FindEdgeIndex(a.nIndex, b.nIndex);
	return e < 0 ? EdgeHandle_t() : EdgeHandle_t{ e, m_Edges[e].nGeneration };
}

FaceHandle_t CHalfEdgeMesh::AddFace(std::span<const VertexHandle_t> vertices)
{
	const size_t n = vertices.size();
	if (n < 3 || n > 0x7fffffff)
		return FaceHandle_t();
	for (size_t i = 0; i < n; ++i)
	{
		if (!IsValid(vertices[i]) || vertices[i] == vertices[(i + 1) % n])
			return FaceHandle_t();
	}
	const int32 f = TakeSlot(m_Faces, m_FreeFaces);
	Face_t &face = m_Faces[f];
	face.nCornerCount = (int32)n;
	int32 first = -1, previous = -1;
	for (size_t i = 0; i < n; ++i)
	{
		const int32 c = TakeSlot(m_Corners, m_FreeCorners);
		Corner_t &corner = m_Corners[c];
		corner.nVertex = vertices[i].nIndex;
		corner.nFace = f;
		corner.nPrev = previous;
		if (previous >= 0)
			m_Corners[previous].nNext = c;
		else
			first = c;
		previous = c;
	}
	m_Corners[previous].nNext = first;
	m_Corners[first].nPrev = previous;
	m_Faces[f].nFirstCorner = first;
	int32 c = first;
	for (size_t i = 0; i < n; ++i)
	{
		const int32 a = vertices[i].nIndex, b = vertices[(i + 1) % n].nIndex;
		int32 e = FindEdgeIndex(a, b);
		if (e < 0)
			e = NewEdge(a, b);
		Corner_t &corner = m_Corners[c];
		corner.nEdge = e;
		corner.nNextOnEdge = m_Edges[e].nFirstCorner;
		m_Edges[e].nFirstCorner = c;
		++m_Edges[e].nCornerCount;
		c = corner.nNext;
	}
	++m_nLiveFaces;
	return FaceHandle_t{ f, m_Faces[f].nGeneration };
}

void CHalfEdgeMesh::UnlinkCornerFromEdge(int32 c)
{
	Edge_t &edge = m_Edges[m_Corners[c].nEdge];
	int32 *link = &edge.nFirstCorner;
	while (*link >= 0 && *link != c)
		link = &m_Corners[*link].nNextOnEdge;
	if (*link == c)
	{
		*link = m_Corners[c].nNextOnEdge;
		--edge.nCornerCount;
	}
}

bool CHalfEdgeMesh::RemoveFace(FaceHandle_t handle)
{
	if (!IsValid(handle))
		return false;
	Face_t &face = m_Faces[handle.nIndex];
	int32 c = face.nFirstCorner;
	for (int32 i = 0; i < face.nCornerCount; ++i)
	{
		const int32 next = m_Corners[c].nNext;
		UnlinkCornerFromEdge(c);
		m_Corners[c].bLive = false;
		++m_Corners[c].nGeneration;
		m_FreeCorners.push_back(c);
		c = next;
	}
	face.bLive = false;
	++face.nGeneration;
	m_FreeFaces.push_back(handle.nIndex);
	--m_nLiveFaces;
	return true;
}

bool CHalfEdgeMesh::RemoveEdge(EdgeHandle_t handle)
{
	if (!IsValid(handle) || m_Edges[handle.nIndex].nCornerCount > 0)
		return false;
	const int32 e = handle.nIndex;
	for (int end = 0; end < 2; ++end)
	{
		const int32 v = m_Edges[e].nVertex[end];
		int32 *link = &m_Vertices[v].nFirstEdge;
		while (*link >= 0 && *link != e)
		{
			Edge_t &other = m_Edges[*link];
			link = &other.nNextAtVertex[other.nVertex[0] == v ? 0 : 1];
		}
		if (*link == e)
			*link = m_Edges[e].nNextAtVertex[end];
	}
	m_Edges[e].bLive = false;
	++m_Edges[e].nGeneration;
	m_FreeEdges.push_back(e);
	--m_nLiveEdges;
	return true;
}

bool CHalfEdgeMesh::RemoveVertex(VertexHandle_t handle)
{
	if (!IsValid(handle) || m_Vertices[handle.nIndex].nFirstEdge >= 0)
		return false;
	m_Vertices[handle.nIndex].bLive = false;
	++m_Vertices[handle.nIndex].nGeneration;
	m_FreeVertices.push_back(handle.nIndex);
	--m_nLiveVertices;
	return true;
}

VertexHandle_t CHalfEdgeMesh::EdgeVertex(EdgeHandle_t edge, int end) const
{
	if (!IsValid(edge) || end < 0 || end > 1)
		return VertexHandle_t();
	const int32 v = m_Edges[edge.nIndex].nVertex[end];
	return VertexHandle_t{ v, m_Vertices[v].nGeneration };
}

int CHalfEdgeMesh::EdgeFaceCount(EdgeHandle_t edge) const
{
	return IsValid(edge) ? m_Edges[edge.nIndex].nCornerCount : 0;
}

void CHalfEdgeMesh::EdgeCorners(EdgeHandle_t edge, std::vector<CornerHandle_t> &out) const
{
	out.clear();
	if (!IsValid(edge))
		return;
	for (int32 c = m_Edges[edge.nIndex].nFirstCorner; c >= 0; c = m_Corners[c].nNextOnEdge)
		out.push_back(CornerHandle_t{ c, m_Corners[c].nGeneration });
	// The list is kept newest first; callers see the corners in the order the faces were added.
	std::reverse(out.begin(), out.end());
}

void CHalfEdgeMesh::EdgeFaces(EdgeHandle_t edge, std::vector<FaceHandle_t> &out) const
{
	std::vector<CornerHandle_t> corners;
	EdgeCorners(edge, corners);
	out.clear();
	for (CornerHandle_t c : corners)
		out.push_back(CornerFace(c));
}

VertexHandle_t CHalfEdgeMesh::CornerVertex(CornerHandle_t corner) const
{
	if (!IsValid(corner))
		return VertexHandle_t();
	const int32 v = m_Corners[corner.nIndex].nVertex;
	return VertexHandle_t{ v, m_Vertices[v].nGeneration };
}

FaceHandle_t CHalfEdgeMesh::CornerFace(CornerHandle_t corner) const
{
	if (!IsValid(corner))
		return FaceHandle_t();
	const int32 f = m_Corners[corner.nIndex].nFace;
	return FaceHandle_t{ f, m_Faces[f].nGeneration };
}

EdgeHandle_t CHalfEdgeMesh::CornerEdge(CornerHandle_t corner) const
{
	if (!IsValid(corner))
		return EdgeHandle_t();
	const int32 e = m_Corners[corner.nIndex].nEdge;
	return EdgeHandle_t{ e, m_Edges[e].nGeneration };
}

CornerHandle_t CHalfEdgeMesh::NextCorner(CornerHandle_t corner) const
{
	if (!IsValid(corner))
		return CornerHandle_t();
	const int32 c = m_Corners[corner.nIndex].nNext;
	return CornerHandle_t{ c, m_Corners[c].nGeneration };
}

CornerHandle_t CHalfEdgeMesh::PrevCorner(CornerHandle_t corner) const
{
	if (!IsValid(corner))
		return CornerHandle_t();
	const int32 c = m_Corners[corner.nIndex].nPrev;
	return CornerHandle_t{ c, m_Corners[c].nGeneration };
}

int CHalfEdgeMesh::FaceCornerCount(FaceHandle_t face) const
{
	return IsValid(face) ? m_Faces[face.nIndex].nCornerCount : 0;
}

CornerHandle_t CHalfEdgeMesh::FaceFirstCorner(FaceHandle_t face) const
{
	if (!IsValid(face))
		return CornerHandle_t();
	const int32 c = m_Faces[face.nIndex].nFirstCorner;
	return CornerHandle_t{ c, m_Corners[c].nGeneration };
}

void CHalfEdgeMesh::FaceCorners(FaceHandle_t face, std::vector<CornerHandle_t> &out) const
{
	out.clear();
	if (!IsValid(face))
		return;
	int32 c = m_Faces[face.nIndex].nFirstCorner;
	for (int32 i = 0; i < m_Faces[face.nIndex].nCornerCount; ++i)
	{
		out.push_back(CornerHandle_t{ c, m_Corners[c].nGeneration });
		c = m_Corners[c].nNext;
	}
}

CornerHandle_t CHalfEdgeMesh::FindFaceCorner(FaceHandle_t face, VertexHandle_t vertex) const
{
	if (!IsValid(face) || !IsValid(vertex))
		return CornerHandle_t();
	int32 c = m_Faces[face.nIndex].nFirstCorner;
	for (int32 i = 0; i < m_Faces[face.nIndex].nCornerCount; ++i)
	{
		if (m_Corners[c].nVertex == vertex.nIndex)
			return CornerHandle_t{ c, m_Corners[c].nGeneration };
		c = m_Corners[c].nNext;
	}
	return CornerHandle_t();
}

void CHalfEdgeMesh::VertexEdges(VertexHandle_t vertex, std::vector<EdgeHandle_t> &out) const
{
	out.clear();
	if (!IsValid(vertex))
		return;
	const int32 v = vertex.nIndex;
	for (int32 e = m_Vertices[v].nFirstEdge; e >= 0;)
	{
		out.push_back(EdgeHandle_t{ e, m_Edges[e].nGeneration });
		e = m_Edges[e].nNextAtVertex[m_Edges[e].nVertex[0] == v ? 0 : 1];
	}
}

int CHalfEdgeMesh::AddVertexStream(const char *name, int components)
{
	const int existing = FindVertexStream(name);
	if (existing >= 0 || components <= 0)
		return existing;
	Stream_t stream;
	stream.name = name;
	stream.nComponents = components;
	stream.values.assign(m_Vertices.size() * components, 0.0f);
	m_Streams.push_back(std::move(stream));
	return (int)m_Streams.size() - 1;
}

int CHalfEdgeMesh::FindVertexStream(const char *name) const
{
	for (size_t i = 0; i < m_Streams.size(); ++i)
	{
		if (m_Streams[i].name == name)
			return (int)i;
	}
	return -1;
}

int CHalfEdgeMesh::VertexStreamComponents(int stream) const
{
	return (stream >= 0 && stream < (int)m_Streams.size()) ? m_Streams[stream].nComponents : 0;
}

const char *CHalfEdgeMesh::VertexStreamName(int stream) const
{
	return (stream >= 0 && stream < (int)m_Streams.size()) ? m_Streams[stream].name.c_str() : nullptr;
}

bool CHalfEdgeMesh::GetVertexData(int stream, VertexHandle_t vertex, float *out) const
{
	if (stream < 0 || stream >= (int)m_Streams.size() || !IsValid(vertex))
		return false;
	const Stream_t &s = m_Streams[stream];
	memcpy(out, s.values.data() + (size_t)vertex.nIndex * s.nComponents, sizeof(float) * s.nComponents);
	return true;
}

bool CHalfEdgeMesh::SetVertexData(int stream, VertexHandle_t vertex, const float *values)
{
	if (stream < 0 || stream >= (int)m_Streams.size() || !IsValid(vertex))
		return false;
	Stream_t &s = m_Streams[stream];
	memcpy(s.values.data() + (size_t)vertex.nIndex * s.nComponents, values, sizeof(float) * s.nComponents);
	return true;
}

bool CHalfEdgeMesh::CheckIntegrity(CUtlString &error) const
{
	int liveFaces = 0, liveEdges = 0, liveVertices = 0;
	std::vector<int> cornersSeen(m_Corners.size(), 0);
	for (size_t f = 0; f < m_Faces.size(); ++f)
	{
		const Face_t &face = m_Faces[f];
		if (!face.bLive)
			continue;
		++liveFaces;
		int32 c = face.nFirstCorner;
		for (int32 i = 0; i < face.nCornerCount; ++i)
		{
			if (c < 0 || c >= (int32)m_Corners.size() || !m_Corners[c].bLive || m_Corners[c].nFace != (int32)f)
			{
				error = V_Format("face %zu: corner %d is not one of its own", f, c);
				return false;
			}
			const Corner_t &corner = m_Corners[c];
			if (m_Corners[corner.nNext].nPrev != c)
			{
				error = V_Format("face %zu: corner %d's next does not point back", f, c);
				return false;
			}
			const Edge_t &edge = m_Edges[corner.nEdge];
			const int32 a = corner.nVertex, b = m_Corners[corner.nNext].nVertex;
			if (!edge.bLive || !((edge.nVertex[0] == a && edge.nVertex[1] == b) || (edge.nVertex[0] == b && edge.nVertex[1] == a)))
			{
				error = V_Format("face %zu: corner %d's edge %d does not join %d and %d", f, c, corner.nEdge, a, b);
				return false;
			}
			++cornersSeen[c];
			c = corner.nNext;
		}
		if (c != face.nFirstCorner)
		{
			error = V_Format("face %zu: its corners do not close after %d", f, face.nCornerCount);
			return false;
		}
	}
	for (size_t c = 0; c < m_Corners.size(); ++c)
	{
		if (m_Corners[c].bLive != (cornersSeen[c] == 1))
		{
			error = V_Format("corner %zu: live %d but seen %d times in faces", c, (int)m_Corners[c].bLive, cornersSeen[c]);
			return false;
		}
	}
	for (size_t e = 0; e < m_Edges.size(); ++e)
	{
		const Edge_t &edge = m_Edges[e];
		if (!edge.bLive)
			continue;
		++liveEdges;
		int32 count = 0;
		for (int32 c = edge.nFirstCorner; c >= 0 && count <= (int32)m_Corners.size(); c = m_Corners[c].nNextOnEdge, ++count)
		{
			if (!m_Corners[c].bLive || m_Corners[c].nEdge != (int32)e)
			{
				error = V_Format("edge %zu: corner %d on its list does not run along it", e, c);
				return false;
			}
		}
		if (count != edge.nCornerCount)
		{
			error = V_Format("edge %zu: %d corners on its list, %d counted", e, count, edge.nCornerCount);
			return false;
		}
		for (int end = 0; end < 2; ++end)
		{
			std::vector<EdgeHandle_t> ring;
			VertexEdges(VertexAt(edge.nVertex[end]), ring);
			if (std::find_if(ring.begin(), ring.end(), [&](EdgeHandle_t h) { return h.nIndex == (int32)e; }) == ring.end())
			{
				error = V_Format("edge %zu: missing from the ring of vertex %d", e, edge.nVertex[end]);
				return false;
			}
		}
	}
	for (const Vertex_t &vertex : m_Vertices)
		liveVertices += vertex.bLive ? 1 : 0;
	if (liveFaces != m_nLiveFaces || liveEdges != m_nLiveEdges || liveVertices != m_nLiveVertices)
	{
		error = V_Format("live counts %d/%d/%d, kept %d/%d/%d", liveVertices, liveEdges, liveFaces, m_nLiveVertices, m_nLiveEdges, m_nLiveFaces);
		return false;
	}
	return true;
}
