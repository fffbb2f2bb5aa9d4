#include <gtest/gtest.h>

#include "meshio/halfedgemesh.h"

namespace
{
std::vector<VertexHandle_t> AddVertices(CHalfEdgeMesh &mesh, int count)
{
	std::vector<VertexHandle_t> out;
	for (int i = 0; i < count; ++i)
		out.push_back(mesh.AddVertex());
	return out;
}

void ExpectIntact(const CHalfEdgeMesh &mesh)
{
	CUtlString error;
	EXPECT_TRUE(mesh.CheckIntegrity(error)) << error;
}
} // namespace

TEST(HalfEdgeMesh, TwoTrianglesShareTheirDiagonal)
{
	CHalfEdgeMesh mesh;
	const std::vector<VertexHandle_t> v = AddVertices(mesh, 4);
	const FaceHandle_t a = mesh.AddFace(std::vector<VertexHandle_t>{ v[0], v[1], v[2] });
	const FaceHandle_t b = mesh.AddFace(std::vector<VertexHandle_t>{ v[0], v[2], v[3] });
	ASSERT_TRUE(a.IsValid());
	ASSERT_TRUE(b.IsValid());
	EXPECT_EQ(mesh.FaceCount(), 2);
	EXPECT_EQ(mesh.EdgeCount(), 5);
	ExpectIntact(mesh);

	const EdgeHandle_t diagonal = mesh.FindEdge(v[2], v[0]);
	ASSERT_TRUE(diagonal.IsValid());
	EXPECT_EQ(mesh.FindEdge(v[0], v[2]), diagonal);
	EXPECT_EQ(mesh.EdgeFaceCount(diagonal), 2);
	EXPECT_EQ(mesh.EdgeVertex(diagonal, 0), v[2]); // made by the first face, which runs 2 -> 0
	EXPECT_EQ(mesh.EdgeVertex(diagonal, 1), v[0]);
	std::vector<FaceHandle_t> faces;
	mesh.EdgeFaces(diagonal, faces);
	EXPECT_EQ(faces, (std::vector<FaceHandle_t>{ a, b }));
	EXPECT_EQ(mesh.EdgeFaceCount(mesh.FindEdge(v[0], v[1])), 1);
	EXPECT_FALSE(mesh.FindEdge(v[1], v[3]).IsValid());

	// Corners: next and previous around the face, and the edge each runs along.
	const CornerHandle_t at1 = mesh.FindFaceCorner(a, v[1]);
	EXPECT_EQ(mesh.CornerVertex(at1), v[1]);
	EXPECT_EQ(mesh.CornerFace(at1), a);
	EXPECT_EQ(mesh.CornerVertex(mesh.NextCorner(at1)), v[2]);
	EXPECT_EQ(mesh.CornerVertex(mesh.PrevCorner(at1)), v[0]);
	EXPECT_EQ(mesh.CornerEdge(at1), mesh.FindEdge(v[1], v[2]));
	EXPECT_EQ(mesh.NextCorner(mesh.NextCorner(mesh.NextCorner(at1))), at1);
	EXPECT_FALSE(mesh.FindFaceCorner(a, v[3]).IsValid());

	std::vector<EdgeHandle_t> ring;
	mesh.VertexEdges(v[0], ring);
	EXPECT_EQ(ring.size(), 3u);
	mesh.VertexEdges(v[1], ring);
	EXPECT_EQ(ring.size(), 2u);
}

TEST(HalfEdgeMesh, EdgesCarryAnyNumberOfFaces)
{
	CHalfEdgeMesh mesh;
	const std::vector<VertexHandle_t> v = AddVertices(mesh, 6);
	mesh.AddFace(std::vector<VertexHandle_t>{ v[0], v[1], v[2] });
	mesh.AddFace(std::vector<VertexHandle_t>{ v[1], v[0], v[3] });
	mesh.AddFace(std::vector<VertexHandle_t>{ v[0], v[1], v[4] });
	const EdgeHandle_t isolated = mesh.AddEdge(v[4], v[5]);
	const EdgeHandle_t shared = mesh.FindEdge(v[0], v[1]);
	EXPECT_EQ(mesh.EdgeFaceCount(shared), 3);
	EXPECT_EQ(mesh.EdgeFaceCount(isolated), 0);
	EXPECT_EQ(mesh.AddEdge(v[5], v[4]), isolated); // found, not added twice
	std::vector<CornerHandle_t> corners;
	mesh.EdgeCorners(shared, corners);
	ASSERT_EQ(corners.size(), 3u);
	// Each corner leaves one end of the edge and its next corner stands at the other.
	for (CornerHandle_t c : corners)
	{
		const VertexHandle_t from = mesh.CornerVertex(c), to = mesh.CornerVertex(mesh.NextCorner(c));
		EXPECT_TRUE((from == v[0] && to == v[1]) || (from == v[1] && to == v[0]));
	}
	ExpectIntact(mesh);
}

TEST(HalfEdgeMesh, RefusesDegenerateFaces)
{
	CHalfEdgeMesh mesh;
	const std::vector<VertexHandle_t> v = AddVertices(mesh, 3);
	EXPECT_FALSE(mesh.AddFace(std::vector<VertexHandle_t>{ v[0], v[1] }).IsValid());
	EXPECT_FALSE(mesh.AddFace(std::vector<VertexHandle_t>{ v[0], v[1], v[1] }).IsValid());
	EXPECT_FALSE(mesh.AddFace(std::vector<VertexHandle_t>{ v[0], v[1], v[2], v[0] }).IsValid()); // wraps onto itself
	EXPECT_FALSE(mesh.AddFace(std::vector<VertexHandle_t>{ v[0], v[1], VertexHandle_t{ 7, 0 } }).IsValid());
	EXPECT_FALSE(mesh.AddEdge(v[0], v[0]).IsValid());
	EXPECT_EQ(mesh.FaceCount(), 0);
	EXPECT_EQ(mesh.EdgeCount(), 0);
	ExpectIntact(mesh);
}

TEST(HalfEdgeMesh, HandlesGoStaleWhenTheirSlotIsReused)
{
	CHalfEdgeMesh mesh;
	const std::vector<VertexHandle_t> v = AddVertices(mesh, 4);
	const FaceHandle_t face = mesh.AddFace(std::vector<VertexHandle_t>{ v[0], v[1], v[2] });
	const CornerHandle_t corner = mesh.FaceFirstCorner(face);
	const EdgeHandle_t edge = mesh.FindEdge(v[0], v[1]);

	EXPECT_FALSE(mesh.RemoveEdge(edge));	 // a face still uses it
	EXPECT_FALSE(mesh.RemoveVertex(v[0]));	 // edges still touch it
	EXPECT_TRUE(mesh.RemoveFace(face));
	EXPECT_FALSE(mesh.IsValid(face));
	EXPECT_FALSE(mesh.IsValid(corner));
	EXPECT_FALSE(mesh.RemoveFace(face));
	EXPECT_EQ(mesh.EdgeFaceCount(edge), 0); // the edges stay, isolated
	EXPECT_EQ(mesh.EdgeCount(), 3);
	ExpectIntact(mesh);

	EXPECT_TRUE(mesh.RemoveEdge(edge));
	EXPECT_TRUE(mesh.RemoveEdge(mesh.FindEdge(v[0], v[2])));
	EXPECT_TRUE(mesh.RemoveVertex(v[0]));
	EXPECT_FALSE(mesh.IsValid(v[0]));
	EXPECT_EQ(mesh.VertexCount(), 3);

	// The new vertex takes the free slot with a new generation: the old handle stays stale.
	const VertexHandle_t again = mesh.AddVertex();
	EXPECT_EQ(again.nIndex, v[0].nIndex);
	EXPECT_NE(again.nGeneration, v[0].nGeneration);
	EXPECT_FALSE(again == v[0]);
	EXPECT_FALSE(mesh.IsValid(v[0]));
	EXPECT_FALSE(mesh.AddFace(std::vector<VertexHandle_t>{ v[0], v[1], v[2] }).IsValid());
	const FaceHandle_t reborn = mesh.AddFace(std::vector<VertexHandle_t>{ again, v[1], v[3] });
	EXPECT_EQ(reborn.nIndex, face.nIndex);
	EXPECT_FALSE(reborn == face);
	EXPECT_FALSE(mesh.IsValid(face));
	ExpectIntact(mesh);
}

TEST(HalfEdgeMesh, VertexStreamsByName)
{
	CHalfEdgeMesh mesh;
	const VertexHandle_t a = mesh.AddVertex();
	const int position = mesh.AddVertexStream("position$0", 3);
	const VertexHandle_t b = mesh.AddVertex();
	EXPECT_EQ(mesh.AddVertexStream("position$0", 3), position);
	EXPECT_EQ(mesh.FindVertexStream("position$0"), position);
	EXPECT_EQ(mesh.FindVertexStream("normal$0"), -1);
	EXPECT_EQ(mesh.VertexStreamComponents(position), 3);
	EXPECT_STREQ(mesh.VertexStreamName(position), "position$0");

	const float place[3] = { 1, 2, 3 };
	EXPECT_TRUE(mesh.SetVertexData(position, b, place));
	float out[3] = { -1, -1, -1 };
	EXPECT_TRUE(mesh.GetVertexData(position, b, out));
	EXPECT_EQ(out[2], 3.0f);
	EXPECT_TRUE(mesh.GetVertexData(position, a, out));
	EXPECT_EQ(out[0], 0.0f); // a stream added later starts at zero for existing vertices
	EXPECT_FALSE(mesh.GetVertexData(position + 1, a, out));
	mesh.RemoveVertex(b);
	EXPECT_FALSE(mesh.GetVertexData(position, b, out));
	const VertexHandle_t c = mesh.AddVertex();
	EXPECT_TRUE(mesh.GetVertexData(position, c, out));
	EXPECT_EQ(out[0], 0.0f); // a reused slot starts clean
}
