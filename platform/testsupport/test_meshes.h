// The small meshes of the topology tests, as control points and polygons; each test writes them
// as FBX text and as DMX.
#pragma once

#include <vector>

#include "testsupport/fbx_test_writer.h"

namespace testmeshes
{
// A unit cube, every face counter-clockwise seen from outside.
inline FbxTestMesh_t Cube()
{
	FbxTestMesh_t mesh;
	mesh.name = "cube";
	mesh.positions = { { 0, 0, 0 }, { 1, 0, 0 }, { 1, 1, 0 }, { 0, 1, 0 }, { 0, 0, 1 }, { 1, 0, 1 }, { 1, 1, 1 }, { 0, 1, 1 } };
	mesh.polygons = { { 0, 3, 2, 1 }, { 4, 5, 6, 7 }, { 0, 1, 5, 4 }, { 2, 3, 7, 6 }, { 0, 4, 7, 3 }, { 1, 2, 6, 5 } };
	return mesh;
}

// The cube with its top face wound the other way.
inline FbxTestMesh_t FlippedCube()
{
	FbxTestMesh_t mesh = Cube();
	mesh.name = "flipped";
	mesh.polygons[1] = { 4, 7, 6, 5 };
	return mesh;
}

// The cube with per-corner UVs that split along a seam: corners of one control point get
// different UVs on different faces.
inline FbxTestMesh_t CubeWithUVSeam()
{
	FbxTestMesh_t mesh = Cube();
	mesh.name = "seamed";
	for (size_t f = 0; f < mesh.polygons.size(); ++f)
	{
		const float u0 = (float)f / 6.0f, u1 = (float)(f + 1) / 6.0f;
		const float uv[8] = { u0, 0, u1, 0, u1, 1, u0, 1 };
		mesh.uvs.insert(mesh.uvs.end(), uv, uv + 8);
	}
	return mesh;
}

inline FbxTestMesh_t OpenQuad()
{
	FbxTestMesh_t mesh;
	mesh.name = "quad";
	mesh.positions = { { 0, 0, 0 }, { 1, 0, 0 }, { 1, 1, 0 }, { 0, 1, 0 } };
	mesh.polygons = { { 0, 1, 2, 3 } };
	return mesh;
}

// Two quads side by side that meet along x = 1, each on its own control points.
inline FbxTestMesh_t TwoUnweldedQuads()
{
	FbxTestMesh_t mesh;
	mesh.name = "unwelded";
	mesh.positions = { { 0, 0, 0 }, { 1, 0, 0 }, { 1, 1, 0 }, { 0, 1, 0 }, { 1, 0, 0 }, { 2, 0, 0 }, { 2, 1, 0 }, { 1, 1, 0 } };
	mesh.polygons = { { 0, 1, 2, 3 }, { 4, 5, 6, 7 } };
	return mesh;
}

// Three triangles on the edge between control points 0 and 1.
inline FbxTestMesh_t ThreeFacesOnOneEdge()
{
	FbxTestMesh_t mesh;
	mesh.name = "fin";
	mesh.positions = { { 0, 0, 0 }, { 1, 0, 0 }, { 0.5f, 1, 0 }, { 0.5f, -1, 0 }, { 0.5f, 0, 1 } };
	mesh.polygons = { { 0, 1, 2 }, { 1, 0, 3 }, { 0, 1, 4 } };
	return mesh;
}
} // namespace testmeshes
