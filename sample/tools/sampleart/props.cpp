#include "props.h"

#include <algorithm>
#include <cmath>

#include "animbuilder.h"
#include "painter.h"
#include "propshapes.h"

namespace sampleart
{
UVRect_t PropCell(EPropSurface surface)
{
	const double inset = 2.0 / 256.0;
	const int k = (int)surface;
	const double u0 = (k % 4) / 4.0, v0 = (k / 4) / 2.0;
	return { u0 + inset, v0 + inset, u0 + 0.25 - inset, v0 + 0.5 - inset };
}

void PaintPropTextures(const PropPalette_t &palette, int size, QImage &colour, QImage &normal) { PaintPropTextures(palette, size, size, colour, normal); }

void PaintPropTextures(const PropPalette_t &palette, int width, int height, QImage &colour, QImage &normal)
{
	CAtlasPainter painter(width, height);
	const PropPalette_t P = palette;
	painter.SetBackground(P.m_Colours[SURFACE_WOOD]);
	painter.Add(PropCell(SURFACE_WOOD),
		[P](double u, double v)
		{
			Texel_t t;
			const double grain = std::fabs(std::sin((u * 9.0 + 0.6 * Fractal2(u * 3.0, v * 12.0, P.m_nSeed, 3)) * kPi));
			t.colour = Shade(P.m_Colours[SURFACE_WOOD], 0.72 + 0.38 * grain);
			t.height = 1.5 * grain;
			return t;
		});
	painter.Add(PropCell(SURFACE_METAL),
		[P](double u, double v)
		{
			Texel_t t;
			const double brush = Fractal2(u * 2.0, v * 40.0, P.m_nSeed + 1, 2);
			t.colour = Shade(P.m_Colours[SURFACE_METAL], 0.85 + 0.25 * brush + 0.15 * (v > 0.9 || v < 0.1 ? 1.0 : 0.0));
			// Rivets in a row.
			const double fu = std::fmod(u * 6.0, 1.0) - 0.5, fv = v - 0.5;
			if (fu * fu + fv * fv * 0.2 < 0.01)
			{
				t.colour = Shade(P.m_Colours[SURFACE_METAL], 1.25);
				t.height = 2.0;
			}
			return t;
		});
	painter.Add(PropCell(SURFACE_CLOTH),
		[P](double u, double v)
		{
			Texel_t t;
			const double weave = 0.5 + 0.25 * (std::sin(u * kPi * 80.0) + std::sin(v * kPi * 80.0));
			t.colour = Shade(P.m_Colours[SURFACE_CLOTH], 0.88 + 0.12 * weave);
			t.height = 0.5 * weave;
			if (v < 0.08 || v > 0.92)
			{
				t.colour = Shade(P.m_Colours[SURFACE_CLOTH], 0.7);
				t.height = 1.5;
			}
			return t;
		});
	painter.Add(PropCell(SURFACE_LEAF),
		[P](double u, double v)
		{
			Texel_t t;
			const double vein = std::fabs(u - 0.5) < 0.02 ? 1.0 : (std::fabs(std::fmod(v * 6.0 + std::fabs(u - 0.5) * 3.0, 1.0) - 0.5) < 0.05 ? 0.6 : 0.0);
			t.colour = Shade(P.m_Colours[SURFACE_LEAF], 0.9 + 0.25 * Fractal2(u * 5.0, v * 5.0, P.m_nSeed + 3, 2) - 0.25 * vein);
			t.height = 1.0 * vein;
			return t;
		});
	painter.Add(PropCell(SURFACE_GLOW),
		[P](double u, double v)
		{
			Texel_t t;
			const double glow = 0.5 + 0.5 * std::sin(v * kPi);
			t.colour = Mix(P.m_Colours[SURFACE_GLOW], Rgb(255, 255, 230), 0.45 * glow);
			(void)u;
			return t;
		});
	painter.Add(PropCell(SURFACE_STONE),
		[P](double u, double v)
		{
			Texel_t t;
			const double n = Fractal2(u * 8.0, v * 8.0, P.m_nSeed + 5, 4);
			t.colour = Shade(P.m_Colours[SURFACE_STONE], 0.7 + 0.5 * n);
			t.height = 3.0 * n;
			return t;
		});
	painter.Add(PropCell(SURFACE_LEATHER),
		[P](double u, double v)
		{
			Texel_t t;
			t.colour = Shade(P.m_Colours[SURFACE_LEATHER], 0.85 + 0.2 * Fractal2(u * 10.0, v * 10.0, P.m_nSeed + 7, 3));
			if (std::fmod(u * 16.0, 1.0) < 0.25 && (std::fabs(v - 0.1) < 0.015 || std::fabs(v - 0.9) < 0.015))
				t.height = -1.0;
			return t;
		});
	painter.Add(PropCell(SURFACE_CRYSTAL),
		[P](double u, double v)
		{
			Texel_t t;
			const double facet = std::fabs(std::fmod(u * 6.0, 1.0) - 0.5);
			t.colour = Mix(P.m_Colours[SURFACE_CRYSTAL], Rgb(255, 255, 255), 0.5 * (0.5 - facet) + 0.2 * v);
			t.height = 2.0 * (0.5 - facet);
			return t;
		});
	painter.Paint(colour, normal);
}

int Segments(int base, double detail) { return std::max(4, (int)std::lround(base * detail)); }

void Tube(CArtMesh &mesh, const std::vector<Station_t> &stations, int segments, EPropSurface surface, const WeightFn_t &weights, double capA,
	double capB, const Vec3 &hint)
{
	mesh.AddLoft(RingsThrough(stations, hint), segments, capA, capB, PropCell(surface), weights);
}

void Spike(CArtMesh &mesh, const Vec3 &base, const Vec3 &dir, double length, double radius, int segments, EPropSurface surface, const WeightFn_t &weights)
{
	const Vec3 d = Normalize(dir);
	Tube(mesh, { { base, radius, radius }, { base + d * (length * 0.5), radius * 0.55, radius * 0.55 }, { base + d * length, radius * 0.1, radius * 0.1 } },
		segments, surface, weights, radius * 0.2, radius * 0.15, std::fabs(d.z) > 0.9 ? Vec3{ 1, 0, 0 } : Vec3{ 0, 0, 1 });
}

void LeafSlab(CArtMesh &mesh, const Vec3 &base, const Vec3 &dir, const Vec3 &up, double length, double width, const WeightFn_t &weights,
	double detail)
{
	std::vector<Vec2> outline;
	const int n = std::max(3, (int)std::lround(8 * detail));
	for (int i = 0; i <= n; ++i)
	{
		const double t = double(i) / n;
		outline.push_back({ length * t, -width * std::sin(kPi * t) * (1.0 - 0.3 * t) });
	}
	for (int i = n - 1; i > 0; --i)
	{
		const double t = double(i) / n;
		outline.push_back({ length * t, width * std::sin(kPi * t) * (1.0 - 0.3 * t) });
	}
	const Mat4 frame = FrameAlong(base, up, dir);
	mesh.AddSlab(frame, outline, std::max(0.4, width * 0.15), PropCell(SURFACE_LEAF), weights);
}

StaffLine_t HeldStaff(const HumanoidRig_t &rig) { return { rig.Grip(1), Normalize({ 0.05, -0.18, 1.0 }) }; }

PropPalette_t Palette(std::initializer_list<Vec3> colours, int seed)
{
	PropPalette_t p;
	int i = 0;
	for (const Vec3 &c : colours)
		p.m_Colours[i++] = c;
	p.m_nSeed = seed;
	return p;
}

CArtMesh NewMesh(const std::string &name)
{
	CArtMesh mesh;
	mesh.m_Name = name;
	mesh.m_Materials.push_back(name);
	return mesh;
}

namespace
{
// ------------------------------------------------------------------------------------------
// Bramble

CArtMesh BrambleStaff(CSkeleton &sk, const HumanoidRig_t &rig, double detail, std::vector<PropAttachment_t> &attachments)
{
	CArtMesh mesh = NewMesh("bramble_weapon");
	const WeightFn_t hand = RigidWeights(sk.Find("hand_r"));
	const double s = rig.m_Proportions.flScale;
	const StaffLine_t staff = HeldStaff(rig);
	std::vector<Station_t> shaft;
	for (int i = 0; i <= 8; ++i)
	{
		const double along = (-36.0 + 90.0 * i / 8.0) * s;
		const double knot = (i % 3 == 1) ? 1.35 : 1.0;
		shaft.push_back({ staff.At(along) + Vec3{ 0.5 * std::sin(i * 1.7), 0.5 * std::cos(i * 1.3), 0 } * s, 1.4 * knot * s, 1.4 * knot * s });
	}
	Tube(mesh, shaft, Segments(10, detail), SURFACE_WOOD, hand, 0.6 * s, 0.6 * s);
	// The head: three branches that curl around a glowing seed, and leaves.
	const Vec3 top = staff.At(54.0 * s);
	const Vec3 seed = top + Vec3{ 0, -1.0, 6.0 } * s;
	mesh.AddEllipsoid(Mat4::Translation(seed), Vec3{ 3.0, 3.0, 3.6 } * s, Segments(8, detail), Segments(10, detail), PropCell(SURFACE_GLOW), hand);
	for (int k = 0; k < 3; ++k)
	{
		const double a = 2.0 * kPi * k / 3.0;
		const Vec3 out{ std::cos(a), std::sin(a), 0 };
		std::vector<Station_t> branch = { { top - Vec3{ 0, 0, 2 } * s, 1.2 * s, 1.2 * s }, { top + out * (4.0 * s) + Vec3{ 0, 0, 4 } * s, 0.9 * s, 0.9 * s },
			{ seed + out * (4.5 * s) + Vec3{ 0, 0, 4 } * s, 0.6 * s, 0.6 * s }, { seed + out * (1.5 * s) + Vec3{ 0, 0, 6.5 } * s, 0.3 * s, 0.3 * s } };
		Tube(mesh, branch, Segments(6, detail), SURFACE_WOOD, hand, 0.3 * s, 0.2 * s);
		LeafSlab(mesh, top + out * (2.0 * s), out + Vec3{ 0, 0, -0.6 }, Vec3{ 0, 0, 1 }, 7.0 * s, 2.2 * s, hand, detail);
	}
	attachments.push_back({ "attach_weapon_tip", "hand_r", seed - sk.GlobalPosition(sk.Find("hand_r")), { 0, 0, 0 } });
	return mesh;
}

// A hood of leaves over the crown, leaving the face open.
CArtMesh BrambleLeafHood(CSkeleton &sk, const HumanoidRig_t &rig, double detail, std::vector<PropAttachment_t> &)
{
	CArtMesh mesh = NewMesh("bramble_head");
	const WeightFn_t head = RigidWeights(sk.Find("head"));
	const double hs = rig.m_Proportions.flHeadSize * rig.m_Proportions.flScale;
	const Vec3 hc = rig.m_HeadCentre;
	mesh.AddEllipsoid(Mat4::Translation(hc + Vec3{ 0, 2.2, 4.6 } * hs), Vec3{ 9.1, 9.4, 8.2 } * hs, Segments(10, detail), Segments(16, detail),
		PropCell(SURFACE_LEAF), head);
	const int leaves = 11;
	for (int k = 0; k < leaves; ++k)
	{
		// Around the back and sides, none across the face.
		const double a = Radians(-60.0 + 300.0 * k / (leaves - 1)) + kPi / 2.0;
		const Vec3 out{ std::cos(a), std::sin(a), 0 };
		const Vec3 base = hc + Vec3{ 0, 2.2, 4.0 } * hs + out * (8.2 * hs);
		LeafSlab(mesh, base, out + Vec3{ 0, 0, (k % 2) ? -0.9 : 0.4 }, Vec3{ 0, 0, 1 } - out * 0.4, 8.0 * hs, 2.8 * hs, head, detail);
	}
	// A sprig on top.
	LeafSlab(mesh, hc + Vec3{ 0, 1.0, 12.0 } * hs, { 0.2, 0.3, 1.0 }, { 1, 0, 0 }, 7.0 * hs, 2.0 * hs, head, detail);
	return mesh;
}

// A cape of leaves hanging from the shoulders down the back.
CArtMesh BrambleCape(CSkeleton &sk, const HumanoidRig_t &rig, double detail, std::vector<PropAttachment_t> &)
{
	CArtMesh mesh = NewMesh("bramble_back");
	const double s = rig.m_Proportions.flScale;
	const Vec3 top = Vec3{ 0, 10.0 * s, rig.m_flShoulderZ + 1.0 * s };
	const double bottomZ = rig.m_Knee[0].z + 6.0 * s;
	const WeightFn_t weights = ChainWeights(
		{ { Vec3{ 0, 0, bottomZ }, sk.Find("pelvis") }, { sk.GlobalPosition(sk.Find("spine_1")), sk.Find("spine_1") }, { sk.GlobalPosition(sk.Find("spine_2")), sk.Find("spine_2") } },
		8.0 * s);
	// The cape's outline in the plane behind the back: X across (toward +X), Y down.
	const double drop = top.z - bottomZ;
	std::vector<Vec2> outline = { { -13.0 * s, 0 }, { 13.0 * s, 0 } };
	const int points = std::max(4, (int)std::lround(9 * detail));
	for (int i = 0; i <= points; ++i)
	{
		const double t = double(i) / points;
		const double x = Lerp(17.0, -17.0, t) * s;
		const double notch = (i % 2) ? 5.0 * s : 0.0;
		outline.push_back({ x, drop - notch });
	}
	// The plane leans back toward the hem.
	const Vec3 down = Normalize({ 0, 0.16, -1 });
	Mat4 frame = FrameAlong(top, Cross({ 1, 0, 0 }, down), { 1, 0, 0 });
	// FrameAlong gives X = +X; its Y is then down the cape.
	mesh.AddSlab(frame, outline, 1.2 * s, PropCell(SURFACE_CLOTH), weights);
	// Clasps at the shoulders, and a leaf on each.
	for (int side = 0; side < 2; ++side)
	{
		const double sx = side == 0 ? 1.0 : -1.0;
		const Vec3 clasp = Vec3{ sx * 11.0 * s, 8.0 * s, rig.m_flShoulderZ + 2.0 * s };
		mesh.AddEllipsoid(Mat4::Translation(clasp), Vec3{ 2.2, 1.6, 2.2 } * s, Segments(6, detail), Segments(8, detail), PropCell(SURFACE_GLOW),
			RigidWeights(sk.Find("spine_2")));
		LeafSlab(mesh, clasp + Vec3{ 0, -0.5, 0 } * s, { sx, -0.6, 0.5 }, { 0, -1, 0.3 }, 6.0 * s, 2.0 * s, RigidWeights(sk.Find("spine_2")));
	}
	return mesh;
}

// A lantern on a chain at the left hip; it swings on a bone of its own.
CArtMesh BrambleLantern(CSkeleton &sk, const HumanoidRig_t &rig, double detail, std::vector<PropAttachment_t> &attachments)
{
	CArtMesh mesh = NewMesh("bramble_misc");
	const double s = rig.m_Proportions.flScale;
	const int pelvis = sk.Find("pelvis");
	const Vec3 hook = Vec3{ 13.0 * s, -2.0 * s, sk.GlobalPosition(pelvis).z - 1.0 * s };
	const Vec3 lanternCentre = hook + Vec3{ 1.5, -1.0, -12.0 } * s;
	const int lantern = sk.Add("lantern", pelvis, lanternCentre + Vec3{ 0, 0, 5.0 } * s);
	const WeightFn_t chainWeights = RigidWeights(pelvis), lanternWeights = RigidWeights(lantern);
	mesh.AddEllipsoid(Mat4::Translation(hook), Vec3{ 1.6, 1.6, 1.0 } * s, 4, Segments(8, detail), PropCell(SURFACE_METAL), chainWeights);
	for (int k = 0; k < 3; ++k)
	{
		const Vec3 link = Mix(hook, lanternCentre + Vec3{ 0, 0, 5.0 } * s, (k + 0.5) / 3.0);
		const Vec3 axis = k % 2 ? Vec3{ 1, 0, 0 } : Vec3{ 0, 1, 0 };
		mesh.AddEllipsoid(FrameAlong(link, { 0, 0, 1 }, axis), Vec3{ 0.5, 0.9, 1.4 } * s, 4, Segments(6, detail), PropCell(SURFACE_METAL),
			k == 2 ? lanternWeights : chainWeights);
	}
	// The lantern: a cap, a glowing glass between four bars, a base.
	Spike(mesh, lanternCentre + Vec3{ 0, 0, 3.0 } * s, { 0, 0, 1 }, 3.0 * s, 3.2 * s, Segments(8, detail), SURFACE_METAL, lanternWeights);
	mesh.AddEllipsoid(Mat4::Translation(lanternCentre), Vec3{ 2.6, 2.6, 3.2 } * s, Segments(8, detail), Segments(10, detail), PropCell(SURFACE_GLOW),
		lanternWeights);
	for (int k = 0; k < 4; ++k)
	{
		const double a = kPi / 4.0 + kPi / 2.0 * k;
		const Vec3 out{ 2.7 * std::cos(a), 2.7 * std::sin(a), 0 };
		Tube(mesh, { { lanternCentre + out * s + Vec3{ 0, 0, -3.2 } * s, 0.35 * s, 0.35 * s }, { lanternCentre + out * s + Vec3{ 0, 0, 3.2 } * s, 0.35 * s, 0.35 * s } },
			5, SURFACE_METAL, lanternWeights, 0.1 * s, 0.1 * s);
	}
	mesh.AddBox(Mat4::Translation(lanternCentre + Vec3{ 0, 0, -3.6 } * s), Vec3{ 3.0, 3.0, 0.6 } * s, PropCell(SURFACE_METAL), lanternWeights);
	attachments.push_back({ "attach_lantern_flame", "lantern", { 0.0, 0.0, -3.5 }, { 0, 0, 0 } });
	return mesh;
}

// A blade of living wood with thorns along its edges.
CArtMesh BrambleThornBlade(CSkeleton &sk, const HumanoidRig_t &rig, double detail, std::vector<PropAttachment_t> &attachments)
{
	CArtMesh mesh = NewMesh("bramble_weapon_persona_1");
	const WeightFn_t hand = RigidWeights(sk.Find("hand_r"));
	const double s = rig.m_Proportions.flScale;
	const StaffLine_t line = HeldStaff(rig);
	// Grip and pommel.
	Tube(mesh, { { line.At(-8.0 * s), 1.5 * s, 1.5 * s }, { line.At(-5.0 * s), 1.2 * s, 1.2 * s }, { line.At(5.0 * s), 1.2 * s, 1.2 * s } }, Segments(8, detail),
		SURFACE_LEATHER, hand, 1.0 * s, 0.3 * s);
	mesh.AddEllipsoid(Mat4::Translation(line.At(-9.0 * s)), Vec3{ 2.0, 2.0, 2.0 } * s, 5, Segments(8, detail), PropCell(SURFACE_GLOW), hand);
	// A guard of two curling roots.
	for (int side = 0; side < 2; ++side)
	{
		const double sx = side == 0 ? 1.0 : -1.0;
		Tube(mesh, { { line.At(5.5 * s), 1.3 * s, 1.3 * s }, { line.At(6.5 * s) + Vec3{ sx * 5.0, 0, 0 } * s, 0.9 * s, 0.9 * s },
					   { line.At(9.5 * s) + Vec3{ sx * 7.5, 0, 0 } * s, 0.4 * s, 0.4 * s } },
			6, SURFACE_WOOD, hand, 0.4 * s, 0.2 * s);
	}
	// The blade: a long leaf shape in the plane of the arm's swing.
	std::vector<Vec2> blade;
	const int n = std::max(5, (int)std::lround(10 * detail));
	for (int i = 0; i <= n; ++i)
	{
		const double t = double(i) / n;
		blade.push_back({ 46.0 * t * s, -(3.2 - 2.6 * t * t) * s });
	}
	for (int i = n - 1; i > 0; --i)
	{
		const double t = double(i) / n;
		blade.push_back({ 46.0 * t * s, (3.2 - 2.6 * t * t) * s });
	}
	blade.push_back({ 0, 2.8 * s });
	blade.push_back({ 0, -2.8 * s });
	blade.erase(blade.end() - 2, blade.end());
	// The blade's flat faces the front.
	const Vec3 face = Normalize(Cross(line.dir, { 1, 0, 0 }));
	mesh.AddSlab(FrameAlong(line.At(6.0 * s), face, line.dir), blade, 1.4 * s, PropCell(SURFACE_WOOD), hand);
	for (int k = 0; k < 6; ++k)
	{
		const double along = (12.0 + 6.0 * k) * s;
		const double sy = k % 2 ? 1.0 : -1.0;
		const Vec3 side = Vec3{ 1, 0, 0 } * sy;
		Spike(mesh, line.At(6.0 * s + along) + side * (2.0 * s), side + line.dir * 0.6, 3.0 * s, 0.7 * s, 5, SURFACE_WOOD, hand);
	}
	attachments.push_back({ "attach_weapon_tip", "hand_r", line.At(52.0 * s) - sk.GlobalPosition(sk.Find("hand_r")), { 0, 0, 0 } });
	return mesh;
}

// A crown of antlers.
CArtMesh BrambleAntlers(CSkeleton &sk, const HumanoidRig_t &rig, double detail, std::vector<PropAttachment_t> &)
{
	CArtMesh mesh = NewMesh("bramble_head_persona_1");
	const WeightFn_t head = RigidWeights(sk.Find("head"));
	const double hs = rig.m_Proportions.flHeadSize * rig.m_Proportions.flScale;
	const Vec3 hc = rig.m_HeadCentre;
	// A circlet of bark around the brow.
	mesh.AddEllipsoid(Mat4::Translation(hc + Vec3{ 0, 0.8, 6.0 } * hs), Vec3{ 9.0, 9.8, 3.2 } * hs, Segments(6, detail), Segments(18, detail),
		PropCell(SURFACE_WOOD), head);
	for (int side = 0; side < 2; ++side)
	{
		const double sx = side == 0 ? 1.0 : -1.0;
		const Vec3 base = hc + Vec3{ sx * 5.5, 1.0, 8.0 } * hs;
		const Vec3 p1 = base + Vec3{ sx * 4.0, 1.5, 6.0 } * hs, p2 = p1 + Vec3{ sx * 5.0, 2.5, 6.0 } * hs, p3 = p2 + Vec3{ sx * 2.0, 1.0, 6.0 } * hs;
		Tube(mesh, { { base, 1.4 * hs, 1.4 * hs }, { p1, 1.1 * hs, 1.1 * hs }, { p2, 0.8 * hs, 0.8 * hs }, { p3, 0.3 * hs, 0.3 * hs } }, Segments(7, detail),
			SURFACE_STONE, head, 0.5 * hs, 0.2 * hs);
		Spike(mesh, p1, Vec3{ sx * 0.3, -0.4, 1.0 }, 6.0 * hs, 0.8 * hs, 5, SURFACE_STONE, head);
		Spike(mesh, p2, Vec3{ sx * 1.0, 0.2, 0.5 }, 5.0 * hs, 0.6 * hs, 5, SURFACE_STONE, head);
		LeafSlab(mesh, base + Vec3{ 0, -1.0, 0.5 } * hs, { sx * 0.6, -0.5, 0.5 }, { 0, -1, 0.5 }, 5.0 * hs, 1.8 * hs, head);
	}
	return mesh;
}

// ------------------------------------------------------------------------------------------
// Cinder

// A staff with a crescent at its head holding an orb that burns on a bone of its own.
CArtMesh CinderStaff(CSkeleton &sk, const HumanoidRig_t &rig, double detail, std::vector<PropAttachment_t> &attachments)
{
	CArtMesh mesh = NewMesh("cinder_weapon");
	const int handBone = sk.Find("hand_r");
	const WeightFn_t hand = RigidWeights(handBone);
	const double s = rig.m_Proportions.flScale;
	const StaffLine_t staff = HeldStaff(rig);
	const Vec3 orb = staff.At(58.0 * s);
	const int tip = sk.Add("staff_tip", handBone, orb);
	Tube(mesh, { { staff.At(-38.0 * s), 1.0 * s, 1.0 * s }, { staff.At(0), 1.3 * s, 1.3 * s }, { staff.At(48.0 * s), 1.3 * s, 1.3 * s },
				   { staff.At(51.0 * s), 1.9 * s, 1.9 * s } },
		Segments(10, detail), SURFACE_WOOD, hand, 0.6 * s, 0.6 * s);
	// Metal bands, and a spike at the foot.
	for (double along : { -10.0, 10.0, 40.0 })
		Tube(mesh, { { staff.At((along - 1.2) * s), 1.6 * s, 1.6 * s }, { staff.At((along + 1.2) * s), 1.6 * s, 1.6 * s } }, Segments(10, detail),
			SURFACE_METAL, hand, 0.0, 0.0);
	Spike(mesh, staff.At(-38.0 * s), -staff.dir, 5.0 * s, 1.1 * s, Segments(8, detail), SURFACE_METAL, hand);
	// The crescent: a flat arc around the orb, laid as a band of quads (its outline is not
	// star-shaped, so it is not one slab).
	const int n = std::max(6, (int)std::lround(12 * detail)) / 2 * 2;
	const Mat4 plane = FrameAlong(orb, { 0, -1, 0 }, { 1, 0, 0 });
	for (int half = 0; half < 2; ++half)
	{
		// Outer arc one way, inner arc back: a band that each fan covers.
		for (int k = 0; k < n / 2; ++k)
		{
			const int i = half * (n / 2) + k;
			const double a0 = Radians(-150.0 + 300.0 * i / n), a1 = Radians(-150.0 + 300.0 * (i + 1) / n);
			const double b0 = Radians(-130.0 + 260.0 * i / n), b1 = Radians(-130.0 + 260.0 * (i + 1) / n);
			std::vector<Vec2> quad = { { 8.5 * std::sin(a0) * s, -8.5 * std::cos(a0) * s }, { 8.5 * std::sin(a1) * s, -8.5 * std::cos(a1) * s },
				{ 6.0 * std::sin(b1) * s, -(6.0 * std::cos(b1) + 1.5) * s }, { 6.0 * std::sin(b0) * s, -(6.0 * std::cos(b0) + 1.5) * s } };
			mesh.AddSlab(plane, quad, 1.2 * s, PropCell(SURFACE_METAL), hand);
		}
	}
	mesh.AddEllipsoid(Mat4::Translation(orb), Vec3{ 3.6, 3.6, 3.6 } * s, Segments(10, detail), Segments(12, detail), PropCell(SURFACE_GLOW),
		RigidWeights(tip));
	attachments.push_back({ "attach_staff_tip", "staff_tip", { 0, 0, 0 }, { 0, 0, 0 } });
	return mesh;
}

// A tall pointed hood that flops back.
CArtMesh CinderHood(CSkeleton &sk, const HumanoidRig_t &rig, double detail, std::vector<PropAttachment_t> &)
{
	CArtMesh mesh = NewMesh("cinder_head");
	const WeightFn_t head = RigidWeights(sk.Find("head"));
	const double hs = rig.m_Proportions.flHeadSize * rig.m_Proportions.flScale;
	const Vec3 hc = rig.m_HeadCentre;
	std::vector<Station_t> hood = { { hc + Vec3{ 0, 1.4, 3.5 } * hs, 9.6 * hs, 10.2 * hs }, { hc + Vec3{ 0, 1.8, 7.0 } * hs, 9.2 * hs, 9.8 * hs },
		{ hc + Vec3{ 0, 3.0, 13.0 } * hs, 6.5 * hs, 7.0 * hs }, { hc + Vec3{ 0, 6.0, 19.0 } * hs, 3.5 * hs, 3.8 * hs },
		{ hc + Vec3{ 0, 11.0, 22.0 } * hs, 1.6 * hs, 1.6 * hs }, { hc + Vec3{ 0, 15.0, 20.0 } * hs, 0.5 * hs, 0.5 * hs } };
	Tube(mesh, hood, Segments(16, detail), SURFACE_CLOTH, head, 2.0 * hs, 0.3 * hs);
	// A gem at the brow.
	mesh.AddEllipsoid(FrameAlong(hc + Vec3{ 0, -9.4, 6.5 } * hs, { 0, -1, 0.3 }, { 1, 0, 0 }), Vec3{ 1.6, 2.0, 1.0 } * hs, 5, Segments(8, detail),
		PropCell(SURFACE_CRYSTAL), head);
	return mesh;
}

// Bracers on both forearms with a glowing stud.
CArtMesh CinderBracers(CSkeleton &sk, const HumanoidRig_t &rig, double detail, std::vector<PropAttachment_t> &)
{
	CArtMesh mesh = NewMesh("cinder_arms");
	const double s = rig.m_Proportions.flScale, g = rig.m_Proportions.flBulk * s;
	for (int side = 0; side < 2; ++side)
	{
		const char *suffix = side == 0 ? "_l" : "_r";
		const int fore = sk.Find(std::string("forearm") + suffix), hand = sk.Find(std::string("hand") + suffix);
		const Vec3 el = rig.m_Elbow[side], wr = rig.m_Wrist[side], fd = rig.m_ForeArmDir[side];
		const double len = Length(wr - el);
		const WeightFn_t weights = ChainWeights({ { el, fore }, { wr, hand } }, 2.0 * s);
		Tube(mesh, { { el + fd * (len * 0.3), 4.1 * g, 3.8 * g }, { el + fd * (len * 0.6), 3.9 * g, 3.6 * g }, { wr - fd * (1.0 * s), 3.6 * g, 3.2 * g },
					   { wr + fd * (0.5 * s), 4.2 * g, 3.8 * g } },
			Segments(12, detail), SURFACE_LEATHER, weights, 0.5 * s, 0.5 * s, { 0, -1, 0 });
		Tube(mesh, { { wr - fd * (2.5 * s), 3.9 * g, 3.5 * g }, { wr - fd * (0.8 * s), 3.9 * g, 3.5 * g } }, Segments(12, detail), SURFACE_METAL, weights, 0.3 * s,
			0.3 * s, { 0, -1, 0 });
		mesh.AddEllipsoid(FrameAlong(el + fd * (len * 0.55) + Vec3{ 0, -3.6 * g, 0 }, { 0, -1, 0 }, fd), Vec3{ 1.3, 1.6, 0.8 } * s, 4, Segments(8, detail),
			PropCell(SURFACE_GLOW), weights);
	}
	return mesh;
}

// ------------------------------------------------------------------------------------------
// Tidewarden

CArtMesh TideTrident(CSkeleton &sk, const HumanoidRig_t &rig, double detail, std::vector<PropAttachment_t> &attachments)
{
	CArtMesh mesh = NewMesh("tidewarden_weapon");
	const WeightFn_t hand = RigidWeights(sk.Find("hand_r"));
	const double s = rig.m_Proportions.flScale;
	const StaffLine_t staff = HeldStaff(rig);
	Tube(mesh, { { staff.At(-40.0 * s), 1.1 * s, 1.1 * s }, { staff.At(62.0 * s), 1.2 * s, 1.2 * s } }, Segments(10, detail), SURFACE_METAL, hand, 0.8 * s,
		0.3 * s);
	const Vec3 head = staff.At(62.0 * s);
	const Vec3 across = Normalize(Cross(staff.dir, { 0, 1, 0 }));
	// The crossbar curves up at its ends into the outer prongs.
	for (int side = -1; side <= 1; side += 2)
	{
		Tube(mesh, { { head, 1.5 * s, 1.5 * s }, { head + across * (5.0 * side * s) + staff.dir * (1.0 * s), 1.2 * s, 1.2 * s },
					   { head + across * (7.0 * side * s) + staff.dir * (5.0 * s), 1.0 * s, 1.0 * s } },
			Segments(8, detail), SURFACE_METAL, hand, 0.5 * s, 0.2 * s);
		Spike(mesh, head + across * (7.0 * side * s) + staff.dir * (4.5 * s), staff.dir + across * (0.15 * side), 12.0 * s, 1.0 * s, Segments(6, detail), SURFACE_METAL,
			hand);
	}
	Spike(mesh, head, staff.dir, 18.0 * s, 1.4 * s, Segments(8, detail), SURFACE_METAL, hand);
	// A pearl in the crossbar and a wrap of kelp on the grip.
	mesh.AddEllipsoid(Mat4::Translation(head + staff.dir * (1.0 * s) + Vec3{ 0, -1.4, 0 } * s), Vec3{ 1.8, 1.8, 1.8 } * s, 6, Segments(8, detail),
		PropCell(SURFACE_CRYSTAL), hand);
	Tube(mesh, { { staff.At(-7.0 * s), 1.6 * s, 1.6 * s }, { staff.At(7.0 * s), 1.6 * s, 1.6 * s } }, Segments(10, detail), SURFACE_LEAF, hand, 0.3 * s,
		0.3 * s);
	attachments.push_back({ "attach_weapon_tip", "hand_r", staff.At(80.0 * s) - sk.GlobalPosition(sk.Find("hand_r")), { 0, 0, 0 } });
	return mesh;
}

// wood, metal, cloth, leaf, glow, stone, leather, crystal
const PropPalette_t kBramblePalette = Palette({ Rgb(122, 84, 50), Rgb(150, 140, 110), Rgb(70, 110, 50), Rgb(86, 150, 60), Rgb(190, 240, 120),
												  Rgb(200, 190, 160), Rgb(110, 76, 46), Rgb(160, 230, 140) },
	11);
const PropPalette_t kBrambleThornPalette = Palette({ Rgb(84, 60, 40), Rgb(110, 105, 90), Rgb(50, 80, 40), Rgb(60, 110, 45), Rgb(220, 80, 60),
													   Rgb(214, 200, 170), Rgb(90, 60, 40), Rgb(200, 90, 90) },
	12);
const PropPalette_t kCinderPalette = Palette({ Rgb(70, 40, 30), Rgb(196, 160, 70), Rgb(170, 40, 26), Rgb(200, 90, 30), Rgb(255, 150, 40),
												 Rgb(90, 80, 80), Rgb(120, 50, 30), Rgb(255, 120, 80) },
	21);
const PropPalette_t kTidePalette = Palette({ Rgb(60, 90, 100), Rgb(120, 180, 190), Rgb(30, 70, 130), Rgb(40, 130, 100), Rgb(160, 240, 255),
											   Rgb(150, 170, 180), Rgb(40, 60, 80), Rgb(235, 240, 245) },
	31);
} // namespace

bool FindHeroItemKind(const std::string &hero, const std::string &slot, HeroItemKind_t &out)
{
	struct Entry_t
	{
		const char *pszHero;
		const char *pszSlot;
		CArtMesh (*pfnBuild)(CSkeleton &, const HumanoidRig_t &, double, std::vector<PropAttachment_t> &);
		const PropPalette_t *pPalette;
	};
	static const Entry_t entries[] = {
		{ "bramble", "weapon", BrambleStaff, &kBramblePalette },
		{ "bramble", "head", BrambleLeafHood, &kBramblePalette },
		{ "bramble", "back", BrambleCape, &kBramblePalette },
		{ "bramble", "misc", BrambleLantern, &kBramblePalette },
		{ "bramble", "weapon_persona_1", BrambleThornBlade, &kBrambleThornPalette },
		{ "bramble", "head_persona_1", BrambleAntlers, &kBrambleThornPalette },
		{ "cinder", "weapon", CinderStaff, &kCinderPalette },
		{ "cinder", "head", CinderHood, &kCinderPalette },
		{ "cinder", "arms", CinderBracers, &kCinderPalette },
		{ "tidewarden", "weapon", TideTrident, &kTidePalette },
	};
	for (const Entry_t &e : entries)
	{
		if (hero == e.pszHero && slot == e.pszSlot)
		{
			out.m_Build = e.pfnBuild;
			out.m_Palette = *e.pPalette;
			return true;
		}
	}
	return false;
}

CArtMesh BuildAbilityModel(const std::string &hero, const std::string &slot, CSkeleton &skeleton, double detail, PropPalette_t &palette)
{
	// A fireball: a burning core trailing flames behind it (+Y), on a "root" bone.
	CArtMesh mesh = NewMesh(hero + "_" + slot);
	palette = kCinderPalette;
	const int root = skeleton.Add("root", -1, { 0, 0, 0 });
	const int core = skeleton.Add("fireball_core", root, { 0, 0, 0 });
	const WeightFn_t weights = RigidWeights(core);
	mesh.AddEllipsoid(Mat4(), Vec3{ 7.0, 7.0, 7.0 }, Segments(10, detail), Segments(14, detail), PropCell(SURFACE_GLOW), weights);
	const int flames = std::max(5, (int)std::lround(9 * detail));
	for (int k = 0; k < flames; ++k)
	{
		const double a = 2.0 * kPi * k / flames;
		const Vec3 out{ std::cos(a), 0, std::sin(a) };
		Spike(mesh, out * 4.5 + Vec3{ 0, 2.0, 0 }, Vec3{ 0, 1, 0 } + out * 0.5, 10.0 + 4.0 * (k % 3), 2.8, 6, SURFACE_CRYSTAL, weights);
	}
	return mesh;
}

// ------------------------------------------------------------------------------------------
// Wards

CSkeleton BuildWardSkeleton()
{
	CSkeleton sk;
	const int root = sk.Add("root", -1, { 0, 0, 0 });
	const int pole1 = sk.Add("pole_1", root, { 0, 0, 2 });
	const int pole2 = sk.Add("pole_2", pole1, { 0, 0, 26 });
	sk.Add("eye", pole2, { 0, 0, 50 });
	return sk;
}

CArtMesh BuildWardBody(const CSkeleton &sk, const std::string &kind, double detail, PropPalette_t &palette)
{
	CArtMesh mesh = NewMesh("ward_" + kind);
	palette = Palette({ Rgb(110, 80, 55), Rgb(170, 160, 140), Rgb(120, 40, 40), Rgb(80, 140, 70), Rgb(255, 220, 120), Rgb(150, 150, 140), Rgb(90, 60, 40),
						  Rgb(120, 200, 255) },
		41);
	const int root = sk.Find("root"), pole1 = sk.Find("pole_1"), pole2 = sk.Find("pole_2"), eye = sk.Find("eye");
	const Vec3 eyeAt = sk.GlobalPosition(eye);
	// Stones at the foot.
	for (int k = 0; k < 4; ++k)
	{
		const double a = 2.0 * kPi * k / 4.0 + 0.3;
		mesh.AddEllipsoid(Mat4::Translation({ 5.0 * std::cos(a), 5.0 * std::sin(a), 1.5 }), Vec3{ 3.2, 2.8, 2.0 }, 5, Segments(8, detail),
			PropCell(SURFACE_STONE), RigidWeights(root));
	}
	const WeightFn_t pole = ChainWeights({ { sk.GlobalPosition(pole1), pole1 }, { sk.GlobalPosition(pole2), pole2 }, { eyeAt - Vec3{ 0, 0, 6 }, eye } }, 5.0);
	Tube(mesh, { { { 0, 0, 0 }, 2.4, 2.4 }, { { 0.6, 0, 16 }, 1.9, 1.9 }, { { -0.4, 0, 32 }, 1.7, 1.7 }, { eyeAt - Vec3{ 0, 0, 5 }, 1.5, 1.5 } },
		Segments(9, detail), SURFACE_WOOD, pole, 0.5, 0.5);
	if (kind == "observer")
	{
		// An eye held by three claws.
		mesh.AddEllipsoid(FrameAlong(eyeAt, { 0, -1, 0 }, { 1, 0, 0 }), Vec3{ 4.5, 4.5, 4.5 }, Segments(10, detail), Segments(14, detail),
			PropCell(SURFACE_CRYSTAL), RigidWeights(eye));
		mesh.AddEllipsoid(FrameAlong(eyeAt + Vec3{ 0, -3.6, 0 }, { 0, -1, 0 }, { 1, 0, 0 }), Vec3{ 2.2, 2.2, 1.2 }, 5, Segments(10, detail),
			PropCell(SURFACE_GLOW), RigidWeights(eye));
		for (int k = 0; k < 3; ++k)
		{
			const double a = 2.0 * kPi * k / 3.0 + kPi / 2.0;
			const Vec3 out{ std::cos(a), std::sin(a), 0 };
			Tube(mesh, { { eyeAt - Vec3{ 0, 0, 5.5 }, 1.0, 1.0 }, { eyeAt + out * 5.6 - Vec3{ 0, 0, 2.0 }, 0.8, 0.8 }, { eyeAt + out * 5.0 + Vec3{ 0, 0, 3.5 }, 0.3, 0.3 } },
				6, SURFACE_WOOD, RigidWeights(eye), 0.3, 0.2);
		}
	}
	else if (kind == "sentry")
	{
		// A crystal between rings of runes.
		mesh.AddEllipsoid(FrameAlong(eyeAt + Vec3{ 0, 0, 1 }, { 0, 0, 1 }, { 1, 0, 0 }), Vec3{ 3.6, 3.6, 7.0 }, 4, 4, PropCell(SURFACE_CRYSTAL), RigidWeights(eye));
		for (double z : { -4.0, 5.0 })
			Tube(mesh, { { eyeAt + Vec3{ 0, 0, z - 0.5 }, 4.4, 4.4 }, { eyeAt + Vec3{ 0, 0, z + 0.5 }, 4.4, 4.4 } }, Segments(12, detail), SURFACE_METAL,
				RigidWeights(eye), 0.0, 0.0, { 1, 0, 0 });
		palette.m_Colours[SURFACE_CRYSTAL] = Rgb(90, 160, 255);
	}
	else
	{
		// A lantern hanging from a crook.
		Tube(mesh, { { eyeAt - Vec3{ 0, 0, 6 }, 1.4, 1.4 }, { eyeAt + Vec3{ 0, 0, 6 }, 1.2, 1.2 }, { eyeAt + Vec3{ 0, -5, 9 }, 1.0, 1.0 },
					   { eyeAt + Vec3{ 0, -9, 6 }, 0.8, 0.8 } },
			Segments(8, detail), SURFACE_WOOD, pole, 0.4, 0.4);
		const Vec3 lantern = eyeAt + Vec3{ 0, -9, -2 };
		mesh.AddEllipsoid(Mat4::Translation(lantern), Vec3{ 3.0, 3.0, 3.8 }, Segments(8, detail), Segments(10, detail), PropCell(SURFACE_GLOW), RigidWeights(eye));
		Spike(mesh, lantern + Vec3{ 0, 0, 3.2 }, { 0, 0, 1 }, 3.0, 3.4, Segments(8, detail), SURFACE_METAL, RigidWeights(eye));
		mesh.AddBox(Mat4::Translation(lantern - Vec3{ 0, 0, 4.0 }), Vec3{ 3.2, 3.2, 0.6 }, PropCell(SURFACE_METAL), RigidWeights(eye));
		palette.m_Colours[SURFACE_GLOW] = Rgb(255, 190, 90);
	}
	return mesh;
}

std::vector<FbxAnimation_t> BuildWardAnimations(const CSkeleton &sk)
{
	CAnimBuilder a(sk, "idle", 61);
	const double w = 2.0 * kPi / 2.0;
	a.Rotate(sk.Find("pole_1"), [&](double t) { return Vec3{ 1.5 * std::sin(w * t), 1.0 * std::sin(w * t + 1.0), 0 }; });
	a.Rotate(sk.Find("pole_2"), [&](double t) { return Vec3{ 2.5 * std::sin(w * t + 0.6), 1.5 * std::sin(w * t + 1.6), 0 }; });
	a.Move(sk.Find("eye"), [&](double t) { return Vec3{ 0, 0, 1.2 * std::sin(2.0 * w * t) }; });
	a.Rotate(sk.Find("eye"), [&](double t) { return Vec3{ 5.0 * std::sin(w * t), 0, 35.0 * std::sin(w * t) }; });
	return { a.Take() };
}

// ------------------------------------------------------------------------------------------
// Editor markers

const std::vector<std::pair<std::string, Vec3>> &MarkerPalette()
{
	static const std::vector<std::pair<std::string, Vec3>> palette = { { "body", { 0.25, 0.27, 0.3 } }, { "lens", { 0.55, 0.8, 0.95 } },
		{ "axis_x", { 0.9, 0.15, 0.1 } }, { "axis_y", { 0.2, 0.85, 0.2 } }, { "axis_z", { 0.15, 0.35, 0.95 } }, { "white", { 0.9, 0.9, 0.9 } },
		{ "light", { 1.0, 0.9, 0.45 } }, { "arrow", { 1.0, 0.75, 0.1 } } };
	return palette;
}

CArtMesh BuildMarker(const std::string &kind)
{
	CArtMesh mesh;
	mesh.m_Name = kind;
	mesh.m_Materials.push_back("editor_marker");
	const std::vector<std::pair<std::string, Vec3>> &palette = MarkerPalette();
	// The middle of a colour's cell of the strip.
	auto colour = [&](const char *name)
	{
		size_t i = 0;
		while (i + 1 < palette.size() && palette[i].first != name)
			++i;
		const double n = (double)palette.size();
		return UVRect_t{ (i + 0.3) / n, 0.3, (i + 0.7) / n, 0.7 };
	};
	// An arrow along `dir` from the origin: a shaft and a head.
	auto arrow = [&](const Vec3 &dir, double length, double radius, const UVRect_t &uv)
	{
		const Vec3 d = Normalize(dir);
		const Vec3 hint = std::fabs(d.z) > 0.9 ? Vec3{ 1, 0, 0 } : Vec3{ 0, 0, 1 };
		mesh.AddLoft(RingsThrough({ { { 0, 0, 0 }, radius, radius }, { d * (length * 0.72), radius, radius } }, hint), 12, 0.0, 0.0, uv, nullptr);
		mesh.AddLoft(RingsThrough({ { d * (length * 0.72), radius * 2.6, radius * 2.6 }, { d * length, radius * 0.05, radius * 0.05 } }, hint), 12, 0.0,
			0.0, uv, nullptr);
	};
	if (kind == "camera")
	{
		// A box body, a lens looking down +X, two reels on top.
		mesh.AddBox(Mat4(), { 6.0, 3.0, 4.0 }, colour("body"), nullptr);
		mesh.AddLoft(RingsThrough({ { { 6.0, 0, 0 }, 2.4, 2.4 }, { { 9.5, 0, 0 }, 3.2, 3.2 } }, { 0, 0, 1 }), 14, 0.0, 0.0, colour("lens"), nullptr);
		for (double x : { -3.0, 3.0 })
			mesh.AddLoft(RingsThrough({ { { x, -1.0, 7.0 }, 3.2, 3.2 }, { { x, 1.0, 7.0 }, 3.2, 3.2 } }, { 0, 0, 1 }), 14, 0.0, 0.0, colour("body"), nullptr);
	}
	else if (kind == "axis_helper_thick")
	{
		arrow({ 1, 0, 0 }, 16.0, 0.8, colour("axis_x"));
		arrow({ 0, 1, 0 }, 16.0, 0.8, colour("axis_y"));
		arrow({ 0, 0, 1 }, 16.0, 0.8, colour("axis_z"));
		mesh.AddEllipsoid(Mat4(), { 1.6, 1.6, 1.6 }, 6, 10, colour("white"), nullptr);
	}
	else if (kind == "spot")
	{
		// A housing and a cone of light opening along +X.
		mesh.AddLoft(RingsThrough({ { { -4.0, 0, 0 }, 2.5, 2.5 }, { { 2.0, 0, 0 }, 3.5, 3.5 } }, { 0, 0, 1 }), 14, 1.0, 0.0, colour("body"), nullptr);
		mesh.AddLoft(RingsThrough({ { { 2.0, 0, 0 }, 3.0, 3.0 }, { { 14.0, 0, 0 }, 7.0, 7.0 } }, { 0, 0, 1 }), 16, 0.0, 0.0, colour("light"), nullptr);
	}
	else
		arrow({ 1, 0, 0 }, 20.0, 1.0, colour("arrow"));
	return mesh;
}
} // namespace sampleart
