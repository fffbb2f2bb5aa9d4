// DMX mesh and animation files by the project's schema (platform/datamodel/README.md): reading
// them into a source scene, writing a source scene as one, and the preparation that a mesh gets
// on its way into the content tree.
//
// Reading: the root's "model" (else "skeleton") DmeModel gives the node hierarchy ("children"),
// the joints ("jointList", skinning order; without one, every DmeJoint of the hierarchy), their
// bind transforms (the "bind" entry of "baseStates", else each joint's "transform") and every
// node with a "shape" DmeMesh. A mesh's vertex data is its "bindState" (else "currentState"):
// positions "position$0" with the per-corner "position$0Indices", likewise normals and
// texture coordinates, "blendweights$0"/"blendindices$0" per position ("jointCount" pairs
// each); its face sets list corners, each polygon ended by -1, with a material. Position
// indices are the connectivity, as the file has it. The root's "animationList" gives one
// animation per DmeChannelsClip, sampled at every frame of its "frameRate".
#pragma once

#include <string_view>

#include "datamodel/dmelement.h"
#include "meshio/sourcescene.h"

// True when the bytes start with a DMX header line.
bool LooksLikeDmx(std::string_view bytes);
// "dmx-binary", "dmx-keyvalues2", "dmx-keyvalues2_noids": the format token of a DMX file's bytes
// (empty when they are not DMX).
CUtlString DmxFormatToken(std::string_view bytes);

bool LoadDmxScene(const CDmxDocument &document, SourceScene_t &scene, CUtlString &error);
bool LoadDmxSceneBuffer(const char *name, std::string_view bytes, SourceScene_t &scene, CUtlString &error);
bool LoadDmxSceneFile(const char *path, SourceScene_t &scene, CUtlString &error);

// Builds the DMX document of a scene: a root with "model" and "skeleton" (one DmeModel with the
// joints, "jointList" in the scene's joint order and the base state "bind"), a DmeDag with a
// DmeMesh per mesh (position$0, normal$0, texcoord$0, blendweights$0, blendindices$0, face sets
// per material) and, with animations, "animationList" with a DmeChannelsClip each (a position
// and an orientation channel per joint, a key per frame). A mesh's node transform is its
// placement relative to its parent joint (shear, which a transform cannot hold, is lost).
bool BuildDmxScene(const SourceScene_t &scene, const char *modelName, CDmxDocument &document, CUtlString &error);

// The weight below which a joint's share of a position is dropped when weights are pruned.
constexpr float DMX_MIN_JOINT_WEIGHT = 1e-5f;

struct DmxMeshPreparation_t
{
	int nLiftedAttributes = 0;	  // vertex attributes renamed from previous-generation names
	int nMaterialsRenamed = 0;	  // material names given "materials/" and ".zmat"
	int nWeightedPositions = 0;	  // positions whose weights were merged, sorted, pruned, normalised
	int nDroppedWeights = 0;	  // (joint, weight) pairs dropped: zero, tiny, surplus or naming no joint
	int nBindTransforms = 0;	  // joint transforms captured in the base state "bind"
};

// The preparation of a DMX mesh before it is saved into the content tree:
// - vertex attributes with previous-generation names get the current ones (with their
//   "...Indices" and the entries of "vertexFormat", up to the first one with a "$");
// - a material whose "mtlName" does not contain "materials/" becomes "materials/" + name +
//   ".zmat", with its slashes forward;
// - each position's joint weights are merged by joint, sorted by falling weight, pruned
//   (weights of DMX_MIN_JOINT_WEIGHT or less, negative ones, ones naming no joint of the
//   "jointList", and any beyond "jointCount" go) and normalised to a sum of 1; unused pairs are
//   joint 0 with weight 0;
// - the root's "model" (else "skeleton") has its joints' current transforms captured as the
//   base state named "bind" (replacing one of that name).
// Returns false with a message only for a document without a root.
bool PrepareDmxMesh(CDmxDocument &document, DmxMeshPreparation_t *pStats, CUtlString &error);
