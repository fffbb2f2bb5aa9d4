// The source scene: what the importer and the compiler need of one mesh or animation source
// file (FBX or DMX), with the source's own connectivity.
//
// A scene holds
// - meshes (CSourceMesh): positions as the file has them (FBX control points, DMX positions),
//   polygons as lists of corners that name a position each, per-corner normals and UVs,
//   a material per polygon, and skin weights per position;
// - joints (SourceJoint_t): the skeleton, parents before children, each with its local
//   transform at bind time and the inverse of its model-space bind matrix;
// - animations (SourceAnimation_t): a local transform per joint per frame.
//
// Two corners share a vertex exactly when they name the same position index: nothing is welded
// by place, nothing is split by normal or UV. Polygons keep the file's winding (counter-clockwise
// seen from the front).
#pragma once

#include <span>
#include <vector>

#include "core/platform.h"
#include "core/utlstring.h"
#include "meshio/meshmath.h"

struct SkinWeight_t
{
	int32 nJoint = 0; // index into SourceScene_t::joints
	float flWeight = 0.0f;

	bool operator==(const SkinWeight_t &other) const = default;
};

class CSourceMesh
{
public:
	int PositionCount() const { return (int)m_Positions.size(); }
	int PolygonCount() const { return m_PolygonStart.empty() ? 0 : (int)m_PolygonStart.size() - 1; }
	int CornerCount() const { return (int)m_CornerPosition.size(); }
	// Each polygon of n corners fanned into n - 2 triangles (polygons under three corners give none).
	int64 TriangleCount() const;
	int PolygonCornerCount(int polygon) const { return m_PolygonStart[polygon + 1] - m_PolygonStart[polygon]; }
	std::span<const int32> PolygonCorners(int polygon) const
	{
		return std::span<const int32>(m_CornerPosition.data() + m_PolygonStart[polygon], PolygonCornerCount(polygon));
	}
	bool HasNormals() const { return !m_CornerNormals.empty(); }
	bool HasUVs() const { return !m_CornerUVs.empty(); }
	bool IsSkinned() const { return !m_WeightStart.empty(); }
	std::span<const SkinWeight_t> PositionWeights(int position) const
	{
		if (m_WeightStart.empty())
			return {};
		return std::span<const SkinWeight_t>(m_Weights.data() + m_WeightStart[position], m_WeightStart[position + 1] - m_WeightStart[position]);
	}

	// Appends a polygon over position indices; its corners follow the ones already there.
	void AddPolygon(std::span<const int32> positions, int32 material = -1);
	// Index of the material of that name, added when new.
	int32 FindOrAddMaterial(const CUtlString &name);
	// Checks that every array has its size and every index is in range; the message says which.
	bool Validate(int jointCount, CUtlString &error) const;

	CUtlString m_Name;
	std::vector<Vector> m_Positions;
	std::vector<int32> m_PolygonStart; // polygons + 1 entries: polygon p has corners [start[p], start[p + 1])
	std::vector<int32> m_CornerPosition; // position index of each corner
	std::vector<Vector> m_CornerNormals; // one per corner, or empty
	std::vector<Vector2D> m_CornerUVs;	 // one per corner, or empty
	std::vector<int32> m_PolygonMaterial; // one per polygon: index into m_Materials, or -1
	std::vector<CUtlString> m_Materials;  // material names as the source gives them
	std::vector<int32> m_WeightStart;	  // positions + 1 entries when skinned, else empty
	std::vector<SkinWeight_t> m_Weights;  // position p has [start[p], start[p + 1])
	int32 m_nParentJoint = -1;			  // the joint the mesh's node hangs under, or -1
	Matrix4_t m_MeshToModel;			  // positions to model space (the mesh node's global transform)
};

struct SourceJoint_t
{
	CUtlString name;
	int32 nParent = -1;			 // index of the parent joint, always below this joint's index
	SourceTransform_t bindLocal; // local transform at bind time, relative to the parent
	Matrix4_t inverseBind;		 // model space to joint space at bind time
	bool bSkinned = false;		 // a skin of the file binds vertices to it
};

struct SourceAnimation_t
{
	CUtlString name;
	float flFps = 30.0f;
	int nFrameCount = 0;
	// Local transforms, frame after frame: frames[frame * jointCount + joint].
	std::vector<SourceTransform_t> frames;

	const SourceTransform_t &Pose(int frame, int joint, int jointCount) const { return frames[(size_t)frame * jointCount + joint]; }
};

struct SourceScene_t
{
	CUtlString format; // "fbx-binary", "fbx-ascii", "dmx-binary", "dmx-keyvalues2", ...
	int nFormatVersion = 0;
	std::vector<CSourceMesh> meshes;
	std::vector<SourceJoint_t> joints;
	std::vector<SourceAnimation_t> animations;
	char upAxis = 'Y';		   // 'X', 'Y' or 'Z'
	double flUnitScale = 1.0; // centimetres per unit of the file

	int FindJoint(const char *name) const; // -1 when absent
	int64 PositionCount() const;
	int64 PolygonCount() const;
	int64 TriangleCount() const;
	// Validates every mesh against the joints and every animation's frame array.
	bool Validate(CUtlString &error) const;
};
