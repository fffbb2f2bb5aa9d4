// An ASCII FBX 7.4 writer for the sample art: a skeleton of limb nodes, meshes (skinned through
// a skin deformer with one cluster per bone, or static), materials, a bind pose, and animation
// stacks sampled once a frame. What it writes is read by assimp and by the project's own reader
// of FBX geometry, so it keeps to the plain forms: triangles, normals and texture coordinates by
// polygon vertex through an index, one skin per mesh, Euler rotations in the
// default order XYZ, time in FBX units (46186158000 per second).
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "artmath.h"
#include "artmesh.h"

namespace sampleart
{
constexpr int64_t kFbxTimeUnitsPerSecond = 46186158000LL;

struct FbxBone_t
{
	std::string m_Name;
	int m_nParent = -1;
	Vec3 m_LocalTranslation; // from the parent; bones carry no rotation at bind time
};

class CSkeleton
{
public:
	std::vector<FbxBone_t> m_Bones;

	int Add(const std::string &name, int parent, const Vec3 &globalPosition);
	int Find(const std::string &name) const;
	Vec3 GlobalPosition(int bone) const;
	int Count() const { return (int)m_Bones.size(); }
};

// The skeleton cut down to the bones that `meshes` are weighted to, the bones named in `keep`,
// and their ancestors; the meshes' weights are renumbered to match.
CSkeleton PruneSkeleton(const CSkeleton &skeleton, std::vector<CArtMesh> &meshes, const std::set<std::string> &keep);

// One channel of a bone, sampled once a frame: Lcl Translation, Lcl Rotation (degrees, XYZ) or
// Lcl Scaling.
struct FbxTrack_t
{
	int m_nBone = -1;
	char m_cKind = 'R'; // 'T', 'R' or 'S'
	std::vector<Vec3> m_Values;
};

struct FbxAnimation_t
{
	std::string m_Name;
	int m_nFrameRate = 30;
	int m_nFrames = 0; // keys per track; the last key lies at (frames - 1) / rate seconds
	std::vector<FbxTrack_t> m_Tracks;

	double Duration() const { return m_nFrames > 1 ? double(m_nFrames - 1) / m_nFrameRate : 0.0; }
};

struct FbxMaterial_t
{
	std::string m_Name;
	Vec3 m_Diffuse{ 0.8, 0.8, 0.8 };
};

struct FbxScene_t
{
	std::string m_Creator = "Mintyard sample art generator";
	CSkeleton m_Skeleton;
	std::vector<CArtMesh> m_Meshes; // each mesh's material names are looked up in m_Materials
	std::vector<FbxMaterial_t> m_Materials;
	std::vector<FbxAnimation_t> m_Animations;
};

// Which curves of a track the file holds: bit 0 for X, 1 for Y, 2 for Z. A rotation or scale
// axis that never leaves its default is left out (readers take the default for it); a track
// with none is not written at all.
int FbxTrackAxes(const FbxTrack_t &track);

// The text of the file.
std::string WriteAsciiFbx(const FbxScene_t &scene);

// Numbers as the writer prints them: at most `decimals` decimals, no trailing zeros, no "-0".
std::string FormatNumber(double value, int decimals);
} // namespace sampleart
