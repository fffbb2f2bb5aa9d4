// The meshes of the sample art: control points with skin weights, and polygons (triangles and
// quads) whose corners carry a normal and a texture coordinate of their own. A mesh is made of closed shells (lofted
// tubes with capped ends, ellipsoids, boxes), each welded in itself and wound outwards, so that
// the topology check of a source mesh finds nothing on it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "artmath.h"

namespace sampleart
{
struct BoneWeight_t
{
	int nBone = -1;
	double flWeight = 0.0;
};

struct Corner_t
{
	int nPoint = 0;
	Vec3 normal;
	Vec2 uv;
};

// A triangle or a quad, its corners counterclockwise seen from outside.
struct Face_t
{
	Corner_t corners[4];
	int nCorners = 3;
	int nMaterial = 0;
};

// A rectangle of the texture atlas that a shell's (u, v) in [0, 1] maps into.
struct UVRect_t
{
	double u0 = 0.0, v0 = 0.0, u1 = 1.0, v1 = 1.0;
	Vec2 Map(double u, double v) const { return { u0 + (u1 - u0) * u, v0 + (v1 - v0) * v }; }
};

// How a shell's points are weighted: a function of the point (in the mesh's bind space) that
// returns up to four bones with weights; the mesh normalises them.
using WeightFn_t = std::function<std::vector<BoneWeight_t>(const Vec3 &point)>;

// One ring of a lofted tube: a centre, the frame's axes across the tube, and the radii along them.
struct LoftRing_t
{
	Vec3 centre;
	Vec3 axisX; // across, radius rx
	Vec3 axisY; // across, radius ry
	double rx = 1.0;
	double ry = 1.0;
	double v = 0.0; // texture v of the ring, 0 to 1 along the tube
};

class CArtMesh
{
public:
	std::string m_Name;
	std::vector<Vec3> m_Points;
	std::vector<std::vector<BoneWeight_t>> m_Weights; // per control point, normalised
	std::vector<Face_t> m_Faces;
	std::vector<std::string> m_Materials; // names; a face's nMaterial indexes this
	int m_nShells = 0;

	int FaceCount() const { return (int)m_Faces.size(); }
	int TriangleCount() const;				 // a quad counts two
	int CornerCount() const;				 // polygon vertices
	bool IsSkinned() const;

	// A tube through the rings, with each end closed by a cone to a pole point `capLength`
	// beyond the end ring along the tube (0 gives a flat cap). `segments` points per ring.
	void AddLoft(const std::vector<LoftRing_t> &rings, int segments, double capStart, double capEnd, const UVRect_t &uv,
		const WeightFn_t &weights, int material = 0, bool smooth = true);
	// An ellipsoid around `frame`'s origin with radii along its axes; its poles lie on the
	// frame's Z axis. `stacks` rings from pole to pole, `slices` around.
	void AddEllipsoid(const Mat4 &frame, const Vec3 &radii, int stacks, int slices, const UVRect_t &uv, const WeightFn_t &weights,
		int material = 0);
	// A box of the given half sizes around `frame`'s origin, flat-shaded, one face at a time of
	// the atlas rectangle.
	void AddBox(const Mat4 &frame, const Vec3 &halfSize, const UVRect_t &uv, const WeightFn_t &weights, int material = 0);
	// A closed slab: the polygon `outline` (counterclockwise seen from +Z of `frame`) extruded
	// from z = -thickness/2 to +thickness/2, flat sides, its top and bottom mapped by x and y.
	void AddSlab(const Mat4 &frame, const std::vector<Vec2> &outline, double thickness, const UVRect_t &uv, const WeightFn_t &weights,
		int material = 0);

	// Rounds every point to a multiple of `step`, as a file keeps it.
	void Quantise(double step);
	// Transforms every point and normal (for parts built in a local frame).
	void Transform(const Mat4 &m);
	// Appends another mesh, its materials mapped by name.
	void Append(const CArtMesh &other);

	// What is wrong with the mesh's topology, or "" when nothing: every edge of a shell has two
	// triangles that run through it in opposite directions, no triangle is degenerate, every
	// shell encloses a positive volume (wound outwards), every weight set sums to 1.
	std::string CheckTopology() const;

private:
	int AddPoint(const Vec3 &p, const WeightFn_t &weights);
	void AddFace(std::initializer_list<int> points, std::initializer_list<Vec2> uvs, int material, const Vec3 &flatNormal = Vec3{});
	// Outward winding and normals for the faces from `firstFace` on (one shell).
	void FinishShell(size_t firstFace, int firstPoint, bool smooth);
};

// A point on the path of a tube and the tube's radii there.
struct Station_t
{
	Vec3 centre;
	double rx = 1.0;
	double ry = 1.0;
};
// Rings through the stations, each turned to the path's direction there, with X across the tube
// as close to `hint` as it can be; v runs with the path's length from 0 to 1.
std::vector<LoftRing_t> RingsThrough(const std::vector<Station_t> &stations, const Vec3 &hint);

// A weight function of one bone.
WeightFn_t RigidWeights(int bone);
// A weight function that blends along a chain of joints: `joints` are points on a line with
// their bones; a point is projected onto the polyline and takes its bone, blended with the next
// over `blend` units on each side of a joint.
WeightFn_t ChainWeights(std::vector<std::pair<Vec3, int>> joints, double blend);
} // namespace sampleart
