// Art for the model tests of the import run, written by the tests: skinned boxes on a chain of
// joints (any number of bones, any names), open and broken meshes for the topology findings, and
// animations of a few frames.
#pragma once

#include <string>
#include <vector>

#include "testsupport/fbx_scene_writer.h"
#include "testsupport/fbx_test_writer.h"
#include "testsupport/test_meshes.h"

namespace modelart
{
// A chain of joints named by the list, one unit apart along Z.
inline std::vector<FbxWriterJoint_t> Chain(const std::vector<std::string> &names)
{
	std::vector<FbxWriterJoint_t> joints;
	for (size_t i = 0; i < names.size(); ++i)
		joints.push_back({ names[i], (int)i - 1, Vector(0, 0, i == 0 ? 0.0f : 1.0f), Vector(0, 0, 0) });
	return joints;
}

inline std::vector<std::string> BoneNames(int count, const char *pszPrefix = "bone_")
{
	std::vector<std::string> names;
	for (int i = 0; i < count; ++i)
		names.push_back(pszPrefix + std::to_string(i));
	return names;
}

// A closed box of `nSegments` rings stacked along Z, each ring's four corners weighted fully to
// one joint of the chain (ring r to joint r % joints): every joint takes part in the skin.
inline FbxWriterMesh_t SkinnedColumn(int nSegments, int nJoints, const char *pszName = "column")
{
	FbxWriterMesh_t mesh;
	mesh.name = pszName;
	for (int r = 0; r <= nSegments; ++r)
	{
		const float z = (float)r * 0.5f;
		for (const Vector &corner : { Vector(-1, -1, z), Vector(1, -1, z), Vector(1, 1, z), Vector(-1, 1, z) })
		{
			mesh.positions.push_back(corner);
			mesh.weights.push_back({ { r % nJoints, 1.0 } });
		}
	}
	mesh.polygons.push_back({ 3, 2, 1, 0 }); // bottom, facing down
	for (int r = 0; r < nSegments; ++r)
	{
		const int b = r * 4, t = (r + 1) * 4;
		for (int i = 0; i < 4; ++i)
			mesh.polygons.push_back({ b + i, b + (i + 1) % 4, t + (i + 1) % 4, t + i });
	}
	const int top = nSegments * 4;
	mesh.polygons.push_back({ top, top + 1, top + 2, top + 3 });
	return mesh;
}

// Triangles of a closed column: 2 per quad, 4 + 2 caps... each polygon fanned.
inline int ColumnTriangles(int nSegments)
{
	return (nSegments * 4 + 2) * 2;
}

// A skinned column on a chain of bones as an FBX file's text.
inline std::string SkinnedFbx(const std::vector<std::string> &bones, int nSegments)
{
	FbxWriterScene_t scene;
	scene.joints = Chain(bones);
	scene.meshes.push_back(SkinnedColumn(nSegments, (int)bones.size()));
	return WriteFbxScene(scene);
}

// An animation of the chain: the first joint sways over `frames` frames.
inline std::string AnimationFbx(const std::vector<std::string> &bones, int frames, const char *pszName = "idle")
{
	FbxWriterScene_t scene;
	scene.joints = Chain(bones);
	scene.meshes.push_back(SkinnedColumn(1, (int)bones.size()));
	FbxWriterAnimation_t animation;
	animation.name = pszName;
	animation.frameCount = frames;
	for (int f = 0; f < frames; ++f)
	{
		for (size_t j = 0; j < bones.size(); ++j)
		{
			animation.translations.push_back(Vector(0, 0, j == 0 ? 0.0f : 1.0f));
			animation.rotations.push_back(Vector(j == 0 ? 10.0f * (float)f : 0.0f, 0, 0));
		}
	}
	scene.animations.push_back(animation);
	return WriteFbxScene(scene);
}

// An unskinned mesh of the topology tests as FBX text.
inline std::string MeshFbx(const FbxTestMesh_t &mesh)
{
	FbxTestScene_t scene;
	scene.meshes.push_back(mesh);
	return WriteAsciiFbx(scene);
}
} // namespace modelart
