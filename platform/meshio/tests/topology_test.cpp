// The topology check on meshes written as FBX text (and, in dmxmesh_test.cpp, as DMX).
#include <random>

#include <gtest/gtest.h>

#include "meshio/fbxdocument.h"
#include "meshio/fbxscene.h"
#include "meshio/meshtopology.h"
#include "testsupport/test_meshes.h"

namespace
{
MeshTopologyReport_t CheckFbx(const std::vector<FbxTestMesh_t> &meshes, SourceScene_t *pScene = nullptr)
{
	FbxTestScene_t source;
	source.meshes = meshes;
	CFbxDocument document;
	SourceScene_t scene;
	CUtlString error;
	MeshTopologyReport_t report;
	EXPECT_TRUE(document.Parse("mesh.fbx", WriteAsciiFbx(source), error)) << error;
	EXPECT_TRUE(LoadFbxScene(document, scene, error)) << error;
	CheckSourceTopology(scene, report);
	if (pScene)
		*pScene = std::move(scene);
	return report;
}
} // namespace

TEST(MeshTopology, ClosedCubeHasNoFinding)
{
	const MeshTopologyReport_t report = CheckFbx({ testmeshes::Cube() });
	EXPECT_TRUE(report.bHasPositions);
	EXPECT_FALSE(report.HasFindings());
	EXPECT_FALSE(report.bUnwelded);
}

TEST(MeshTopology, OpenQuadHasFourBorderEdges)
{
	const MeshTopologyReport_t report = CheckFbx({ testmeshes::OpenQuad() });
	EXPECT_EQ(report.nBorderEdges, 4);
	EXPECT_EQ(report.borderEdges, (std::vector<MeshEdge_t>{ { 0, 1 }, { 1, 2 }, { 2, 3 }, { 3, 0 } }));
	EXPECT_FALSE(report.bUnwelded);
	EXPECT_EQ(report.nIsolatedEdges, 0);
	EXPECT_EQ(report.nNonManifoldEdges, 0);
	EXPECT_FALSE(report.bFlipped);
}

TEST(MeshTopology, QuadsOnTheirOwnControlPointsAreUnwelded)
{
	const MeshTopologyReport_t report = CheckFbx({ testmeshes::TwoUnweldedQuads() });
	EXPECT_TRUE(report.bUnwelded);
	EXPECT_EQ(report.unweldedVertices, (std::vector<int32>{ 1, 2, 4, 7 }));
	EXPECT_EQ(report.nBorderEdges, 8); // reported as unwelded, not as border edges
	EXPECT_FALSE(report.bFlipped);
}

TEST(MeshTopology, WeldedSeamIsNotUnwelded)
{
	FbxTestMesh_t mesh = testmeshes::TwoUnweldedQuads();
	mesh.polygons[1] = { 1, 5, 6, 2 };
	const MeshTopologyReport_t report = CheckFbx({ mesh });
	EXPECT_FALSE(report.bUnwelded);
	EXPECT_EQ(report.nBorderEdges, 6);
}

TEST(MeshTopology, ThreeFacesOnOneEdgeAreNonManifold)
{
	const MeshTopologyReport_t report = CheckFbx({ testmeshes::ThreeFacesOnOneEdge() });
	EXPECT_EQ(report.nNonManifoldEdges, 1);
	EXPECT_EQ(report.nonManifoldEdges, (std::vector<MeshEdge_t>{ { 0, 1 } }));
	EXPECT_EQ(report.nBorderEdges, 6);
	EXPECT_FALSE(report.bFlipped); // the three faces there are not tested for winding
	EXPECT_FALSE(report.bUnwelded);
}

TEST(MeshTopology, FaceWoundTheWrongWayIsFlipped)
{
	const MeshTopologyReport_t report = CheckFbx({ testmeshes::FlippedCube() });
	EXPECT_TRUE(report.bFlipped);
	ASSERT_EQ(report.flippedFaces.size(), 2u);
	// The top face (polygon 1) is one of the first pair found.
	EXPECT_TRUE(report.flippedFaces[0] == 1 || report.flippedFaces[1] == 1);
	EXPECT_EQ(report.nBorderEdges, 0);
	EXPECT_EQ(report.nNonManifoldEdges, 0);
}

TEST(MeshTopology, ClosedMeshWithAUVSeamHasNoFinding)
{
	SourceScene_t scene;
	const MeshTopologyReport_t report = CheckFbx({ testmeshes::CubeWithUVSeam() }, &scene);
	ASSERT_TRUE(scene.meshes[0].HasUVs());
	// The seam is there: control point 0 has different UVs on two of its corners.
	const CSourceMesh &mesh = scene.meshes[0];
	EXPECT_NE(mesh.m_CornerUVs[0], mesh.m_CornerUVs[8]);
	EXPECT_EQ(mesh.m_CornerPosition[0], mesh.m_CornerPosition[8]);
	EXPECT_FALSE(report.HasFindings());
	EXPECT_FALSE(report.bUnwelded);
}

TEST(MeshTopology, AFileOfSeveralMeshesIsCheckedAsOne)
{
	FbxTestMesh_t left = testmeshes::OpenQuad();
	FbxTestMesh_t right = testmeshes::OpenQuad();
	right.name = "right";
	for (Vector &p : right.positions)
		p.x += 1.0f;
	SourceMeshMap_t map;
	FbxTestScene_t source;
	const MeshTopologyReport_t report = CheckFbx({ left, right, testmeshes::FlippedCube() });
	EXPECT_EQ(report.nBorderEdges, 8); // totals of both quads
	EXPECT_TRUE(report.bUnwelded);	   // the quads touch at x = 1, each on its own points
	EXPECT_EQ(report.unweldedVertices, (std::vector<int32>{ 1, 2, 4, 7 }));
	EXPECT_TRUE(report.bFlipped);
	ASSERT_EQ(report.flippedFaces.size(), 2u);
	EXPECT_TRUE(report.flippedFaces[0] == 3 || report.flippedFaces[1] == 3); // the cube's top is polygon 1 of the third mesh
}

TEST(MeshTopology, LinesAndRepeatedCornersBecomeIsolatedEdges)
{
	FbxTestMesh_t mesh = testmeshes::Cube();
	mesh.positions.push_back(Vector(5, 5, 5));
	mesh.polygons.push_back({ 6, 8 });		  // a two-point polygon: an edge without a face
	mesh.polygons.push_back({ 0, 1, 1, 0 }); // collapses to the edge 0-1, which faces already have
	SourceScene_t scene;
	const MeshTopologyReport_t report = CheckFbx({ mesh }, &scene);
	EXPECT_EQ(report.nIsolatedEdges, 1);
	EXPECT_EQ(report.isolatedEdges, (std::vector<MeshEdge_t>{ { 6, 8 } }));
	EXPECT_FALSE(report.bFlipped);
	EXPECT_EQ(report.nBorderEdges, 0);
	EXPECT_EQ(scene.meshes[0].PolygonCount(), 8);
}

TEST(MeshTopology, CoincidenceIsASquaredDistanceUnderOneHundredThousandth)
{
	for (const auto &[offset, bCoincident] : { std::pair{ 0.0031f, true }, std::pair{ 0.0032f, false }, std::pair{ 0.002f, true } })
	{
		FbxTestMesh_t mesh = testmeshes::TwoUnweldedQuads();
		for (int p = 4; p < 8; ++p)
			mesh.positions[p].y += offset;
		EXPECT_EQ(CheckFbx({ mesh }).bUnwelded, bCoincident) << offset;
	}
}

TEST(MeshTopology, CellSearchFindsWhatThePlainDoubleLoopFinds)
{
	// Open quads scattered closely: the border vertices found coincident must be those the
	// plain double loop over all pairs finds.
	std::mt19937 random(99);
	std::uniform_real_distribution<float> place(-0.02f, 0.02f);
	for (int trial = 0; trial < 20; ++trial)
	{
		CHalfEdgeMesh mesh;
		const int stream = mesh.AddVertexStream("position$0", 3);
		std::vector<std::array<float, 3>> points;
		for (int q = 0; q < 40; ++q)
		{
			std::vector<VertexHandle_t> quad;
			for (int k = 0; k < 4; ++k)
			{
				const std::array<float, 3> p = { place(random), place(random), trial % 2 ? 0.0f : place(random) };
				quad.push_back(mesh.AddVertex());
				mesh.SetVertexData(stream, quad.back(), p.data());
				points.push_back(p);
			}
			mesh.AddFace(quad);
		}
		MeshTopologyReport_t report;
		ASSERT_TRUE(CheckMeshTopology(mesh, report));
		std::vector<int32> expected;
		for (size_t i = 0; i < points.size(); ++i)
		{
			for (size_t j = 0; j < points.size(); ++j)
			{
				const float dx = points[i][0] - points[j][0], dy = points[i][1] - points[j][1], dz = points[i][2] - points[j][2];
				if (i != j && dx * dx + dy * dy + dz * dz < MESH_COINCIDENT_DISTANCE_SQR)
				{
					expected.push_back((int32)i);
					break;
				}
			}
		}
		EXPECT_EQ(report.unweldedVertices, expected);
		EXPECT_FALSE(expected.empty());
	}
}

TEST(MeshTopology, WithoutPositionsNothingIsChecked)
{
	CHalfEdgeMesh mesh;
	const VertexHandle_t a = mesh.AddVertex(), b = mesh.AddVertex(), c = mesh.AddVertex();
	mesh.AddFace(std::vector<VertexHandle_t>{ a, b, c });
	MeshTopologyReport_t report;
	EXPECT_FALSE(CheckMeshTopology(mesh, report));
	EXPECT_FALSE(report.bHasPositions);
	EXPECT_EQ(report.nBorderEdges, 0);
}
