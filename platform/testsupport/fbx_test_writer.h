// The simple scenes of the mesh reader's tests and benchmarks: meshes with their control points
// and polygons, per-corner normals (from each polygon's plane), optional UVs, a material per
// mesh, and optional skins over a chain of limb nodes; written as ASCII FBX 7.4 by the full
// scene writer (so a target that includes it links mintyard_meshio).
#pragma once

#include <string>
#include <vector>

#include "core/mathtypes.h"
#include "testsupport/fbx_scene_writer.h"

struct FbxTestMesh_t
{
	std::string name = "mesh";
	std::vector<Vector> positions;
	std::vector<std::vector<int>> polygons;
	std::vector<float> uvs;				  // two per corner when not empty
	std::string material = "material";
	// Skin: per control point one (joint, weight) pair per listed joint.
	std::vector<std::vector<std::pair<int, double>>> weights;
};

struct FbxTestScene_t
{
	std::vector<FbxTestMesh_t> meshes;
	std::vector<std::string> joints; // a chain: joint i is the parent of joint i + 1
};

// The scene as the full writer takes it: the chain climbs one unit up per joint, each mesh has
// its one material, flat normals, and the UVs given per corner.
inline FbxWriterScene_t ToFbxWriterScene(const FbxTestScene_t &scene)
{
	FbxWriterScene_t out;
	for (size_t j = 0; j < scene.joints.size(); ++j)
		out.joints.push_back(FbxWriterJoint_t{ scene.joints[j], (int)j - 1, Vector(0, j ? 1.0f : 0.0f, 0), Vector(0, 0, 0) });
	for (const FbxTestMesh_t &mesh : scene.meshes)
	{
		FbxWriterMesh_t &written = out.meshes.emplace_back();
		written.name = mesh.name;
		written.positions = mesh.positions;
		written.polygons = mesh.polygons;
		written.materials = { mesh.material };
		for (size_t i = 0; i + 1 < mesh.uvs.size(); i += 2)
			written.cornerUVs.push_back(Vector2D(mesh.uvs[i], mesh.uvs[i + 1]));
		written.weights = mesh.weights;
	}
	return out;
}

inline std::string WriteAsciiFbx(const FbxTestScene_t &scene)
{
	return WriteFbxScene(ToFbxWriterScene(scene));
}
