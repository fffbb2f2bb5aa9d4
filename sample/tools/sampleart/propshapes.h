// The shapes that the props are built of (tubes, spikes, leaves), the line of a held staff and
// palettes: shared by the sample's default items and the art of the sample sessions.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include "props.h"

namespace sampleart
{
// Segments of a round part at a level of detail, never fewer than four.
int Segments(int base, double detail);

// A tube through the stations, with cone caps `capA` and `capB` long at its ends, painted with a
// surface of the prop atlas.
void Tube(CArtMesh &mesh, const std::vector<Station_t> &stations, int segments, EPropSurface surface, const WeightFn_t &weights, double capA = 0.3,
	double capB = 0.3, const Vec3 &hint = { 1, 0, 0 });

// A cone from `base` along `dir`, `length` long and `radius` across at its foot.
void Spike(CArtMesh &mesh, const Vec3 &base, const Vec3 &dir, double length, double radius, int segments, EPropSurface surface, const WeightFn_t &weights);

// A leaf: a flat almond, `length` long, growing from `base` along `dir`, its face toward `up`.
void LeafSlab(CArtMesh &mesh, const Vec3 &base, const Vec3 &dir, const Vec3 &up, double length, double width, const WeightFn_t &weights,
	double detail = 1.0);

// The line of a staff held in a hand: through the grip, leaning a little forward.
struct StaffLine_t
{
	Vec3 grip, dir;
	Vec3 At(double along) const { return grip + dir * along; }
};
StaffLine_t HeldStaff(const HumanoidRig_t &rig);

// An empty mesh with one material of its own name.
CArtMesh NewMesh(const std::string &name);

// A palette from the colours of the surfaces in their order (wood, metal, cloth, leaf, glow,
// stone, leather, crystal).
PropPalette_t Palette(std::initializer_list<Vec3> colours, int seed);
} // namespace sampleart
