// The pieces of a model compile (internal): sources in model space, the skeleton, meshes,
// hitboxes and animation frames. compile_model.cpp reads the document and puts them together.
//
// Model space. Compiled models are Z-up. A source that says it is Y-up (or X-up) is turned so
// that its up axis becomes +Z (Y-up: (x, y, z) -> (x, -z, y)); the model's `import_scale`
// scales every position and translation. Root joints that an exporter put under nodes of its
// own (an armature) take those nodes' transform, found from the joint's bind matrix.
#pragma once

#include <vector>

#include "compiledassets/compiledassets.h"
#include "core/utlstring.h"
#include "meshio/meshmath.h"
#include "meshio/sourcescene.h"

// Brings a loaded source into model space: root joints under nodes of an exporter, the up
// axis, and the scale. Done once per source.
void PrepareSourceForModel(SourceScene_t &scene, double flScale);

struct ModelBone_t
{
	CUtlString m_Name;
	int32 m_nParent = -1;
	SourceTransform_t m_Local; // bind pose relative to the parent
	Matrix4_t m_Global;		   // bind pose in model space
	Matrix4_t m_InverseBind;   // model space to the bone at bind time
	bool m_bSkinned = false;   // a source binds vertices to it
};

class CModelSkeleton
{
public:
	// Adds the joints of a prepared source that the skeleton lacks; jointToBone receives, for
	// each joint of the source, its bone. Messages tell of joints whose parent differs from the
	// one the skeleton already has.
	void AddSource(const SourceScene_t &scene, const CUtlString &sourceName, std::vector<int> &jointToBone, std::vector<CUtlString> &warnings);
	// Works out the bind pose: a bone that a skin binds to sits where its inverse bind matrix
	// says, so that a skinned mesh is undeformed in the bind pose; other bones follow their
	// parents by their local transforms.
	void Finish();

	int Find(const char *pszName) const; // exact case, -1 when absent
	int RootBone() const;				  // the first bone without a parent, -1 for none
	const std::vector<ModelBone_t> &Bones() const { return m_Bones; }
	void ToCompiled(std::vector<CompiledBone_t> &out) const;

private:
	std::vector<ModelBone_t> m_Bones;
};

// What one mesh node of the document gives: every mesh of its source file in one compiled mesh.
struct ModelMeshInput_t
{
	const SourceScene_t *m_pScene = nullptr;
	const std::vector<int> *m_pJointToBone = nullptr;
	// For each source mesh, the model material of each of its material slots; the last entry is
	// for polygons without a material.
	std::vector<std::vector<int32>> m_SlotMaterial;
	int32 m_nFallbackBone = -1; // for vertices of a skinned mesh that no joint weights
};

struct ModelMeshStats_t
{
	int64 nSourceTriangles = 0;		 // every polygon fanned
	int64 nUnweightedPositions = 0;	 // bound to the fallback bone
	int64 nPolygonsWithoutCorners = 0; // polygons of fewer than three corners (no triangle)
};

// Builds the mesh: positions and normals in model space, texture coordinates with their origin
// at the image's top left, tangents where there are texture coordinates, up to four bone
// weights a vertex; corners share a vertex where position, normal and texture coordinate agree;
// every polygon fanned into triangles, none dropped; a draw call per material; the order of
// triangles and vertices optimised for the GPU's vertex cache and fetch (meshoptimizer).
bool BuildModelMesh(const ModelMeshInput_t &input, CompiledMesh_t &mesh, ModelMeshStats_t &stats, CUtlString &error);

// One box per skinned bone around the vertices it weights (at least a quarter of a vertex), in
// the bone's bind space.
void BuildAutoHitboxes(const std::vector<CompiledMesh_t> &meshes, const CModelSkeleton &skeleton, CompiledHitboxSet_t &set);

// The frames of one animation of a prepared source for the model's skeleton: bones the source
// does not move keep their bind pose. The source's frames [first, last] are taken and resampled
// to `fps` (<= 0: the source's own rate; equal rates keep every frame).
struct ModelAnimationFrames_t
{
	int nFrameCount = 0;
	float flFps = 30.0f;
	std::vector<SourceTransform_t> frames; // frame * bones + bone
};
bool SampleModelAnimation(const SourceScene_t &scene, int animation, const std::vector<int> &jointToBone, const CModelSkeleton &skeleton,
	int firstFrame, int lastFrame, float fps, ModelAnimationFrames_t &out, CUtlString &error);
// The bind pose as one frame.
void BindPoseFrames(const CModelSkeleton &skeleton, ModelAnimationFrames_t &out);
// Makes each frame the difference to `reference` (one frame of bones): translation minus
// translation, the reference's rotation undone, scale divided.
void SubtractFrame(ModelAnimationFrames_t &frames, const SourceTransform_t *pReference, int boneCount);
// Takes the bone's motion out of the frames (the axes of ECompiledMotionFlags): the bone keeps
// frame 0's place on those axes and frame 0's yaw about Z.
void ExtractMotion(ModelAnimationFrames_t &frames, int boneCount, int bone, uint32 nFlags);
// Stores the frames in a compiled sequence.
void StoreFrames(const ModelAnimationFrames_t &frames, int boneCount, CompiledSequence_t &sequence);
