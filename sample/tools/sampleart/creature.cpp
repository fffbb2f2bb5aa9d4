#include "creature.h"

#include <algorithm>
#include <cmath>

#include "animbuilder.h"
#include "painter.h"

namespace sampleart
{
namespace
{
constexpr double kInset = 2.0 / 256.0;
constexpr UVRect_t Cell(double u0, double v0, double u1, double v1) { return { u0 + kInset, v0 + kInset, u1 - kInset, v1 - kInset }; }
const UVRect_t kBody = Cell(0.0, 0.5, 0.5, 1.0);
const UVRect_t kHeadCell = Cell(0.5, 0.5, 1.0, 1.0);
const UVRect_t kLegCell = Cell(0.0, 0.25, 0.5, 0.5);
const UVRect_t kEyeCell = Cell(0.5, 0.25, 0.625, 0.5);
const UVRect_t kHornCell = Cell(0.625, 0.25, 0.75, 0.5);
const UVRect_t kAccentCell = Cell(0.75, 0.25, 1.0, 0.5);
const UVRect_t kShellCell = Cell(0.0, 0.0, 0.5, 0.25);
const UVRect_t kWingCell = Cell(0.5, 0.0, 1.0, 0.25);

int Segments(int base, double detail) { return std::max(4, (int)std::lround(base * detail)); }

// Front left, front right, back left, back right.
const char *const kLegNames[4] = { "front_l", "front_r", "back_l", "back_r" };
} // namespace

CreatureRig_t BuildCreatureRig(const CreatureProportions_t &p)
{
	CreatureRig_t rig;
	rig.m_Proportions = p;
	const double s = p.flScale, H = 12.0 * p.flLegLength, rise = p.flNeckRise;
	CSkeleton &sk = rig.m_Skeleton;
	auto name = [&](const std::string &n) { return p.m_Prefix + n; };
	rig.m_nRoot = sk.Add("root", -1, { 0, 0, 0 });
	rig.m_nPelvis = sk.Add(name("pelvis"), rig.m_nRoot, Vec3{ 0, 6, H + 3 } * s);
	rig.m_nSpine = sk.Add(name("spine_1"), rig.m_nPelvis, Vec3{ 0, -5, H + 4 } * s);
	rig.m_nNeck = sk.Add(name("neck"), rig.m_nSpine, Vec3{ 0, -10, H + 7 } * s);
	rig.m_nHead = sk.Add(name("head"), rig.m_nNeck, Vec3{ 0, -13, H + 7 + 6 * rise } * s);
	rig.m_nTail1 = sk.Add(name("tail_1"), rig.m_nPelvis, Vec3{ 0, 11, H + 5 } * s);
	rig.m_nTail2 = sk.Add(name("tail_2"), rig.m_nTail1, Vec3{ 0, 16, H + 8 } * s);
	for (int leg = 0; leg < 4; ++leg)
	{
		const double sx = (leg % 2 == 0) ? 1.0 : -1.0;
		const bool front = leg < 2;
		const double y = front ? -6.0 : 7.0;
		const int body = front ? rig.m_nSpine : rig.m_nPelvis;
		rig.m_nLegUpper[leg] = sk.Add(name(std::string("leg_") + kLegNames[leg]), body, Vec3{ sx * 4.5, y, H + 1 } * s);
		rig.m_nLegLower[leg] = sk.Add(name(std::string("leg_lower_") + kLegNames[leg]), rig.m_nLegUpper[leg], Vec3{ sx * 4.7, y - 0.5, H * 0.5 } * s);
		rig.m_Foot[leg] = Vec3{ sx * 4.8, y - 0.5, 1.2 } * s;
	}
	if (p.bWings)
	{
		for (int side = 0; side < 2; ++side)
		{
			const double sx = side == 0 ? 1.0 : -1.0;
			const char *suffix = side == 0 ? "_l" : "_r";
			rig.m_nWing[side] = sk.Add(name(std::string("wing") + suffix), rig.m_nSpine, Vec3{ sx * 4.5, -3, H + 8 } * s);
			rig.m_nWingTip[side] = sk.Add(name(std::string("wing_tip") + suffix), rig.m_nWing[side], Vec3{ sx * 17.0, 0, H + 11 } * s);
		}
	}
	rig.m_HeadCentre = sk.GlobalPosition(rig.m_nHead) + Vec3{ 0, -2.0, 3.0 } * s;
	rig.m_flHeadRadius = 5.0 * s;
	return rig;
}

CArtMesh BuildCreatureBody(const CreatureRig_t &rig, const CreatureLook_t &look, double detail)
{
	CArtMesh mesh;
	mesh.m_Name = look.m_Name;
	mesh.m_Materials.push_back(look.m_Name);
	const CreatureProportions_t &p = rig.m_Proportions;
	const CSkeleton &sk = rig.m_Skeleton;
	const double s = p.flScale, H = 12.0 * p.flLegLength;
	auto at = [&](int bone) { return sk.GlobalPosition(bone); };

	// The body, from the rump to the chest.
	{
		struct Key_t
		{
			double y, rx, rz, z;
		};
		const Key_t keys[] = { { 12.5, 3.5, 3.5, 4.5 }, { 9.0, 6.6, 7.0, 4.2 }, { 3.0, 7.4, 7.8, 4.0 }, { -3.5, 7.8, 8.2, 4.5 },
			{ -9.0, 6.6, 7.2, 5.5 }, { -11.5, 4.2, 5.0, 6.5 } };
		std::vector<Station_t> stations;
		for (const Key_t &k : keys)
			stations.push_back({ Vec3{ 0, k.y, H + k.z } * s, k.rx * s, k.rz * s });
		const WeightFn_t weights =
			ChainWeights({ { at(rig.m_nPelvis) + Vec3{ 0, 8, 0 } * s, rig.m_nPelvis }, { Vec3{ 0, -1, H + 4 } * s, rig.m_nSpine } }, 4.0 * s);
		mesh.AddLoft(RingsThrough(stations, { 1, 0, 0 }), Segments(18, detail), 2.0 * s, 1.5 * s, kBody, weights);
	}
	// The neck and the head with its face toward -Y.
	{
		const Vec3 neck = at(rig.m_nNeck), head = at(rig.m_nHead);
		std::vector<Station_t> stations = { { neck + Vec3{ 0, 3, -2 } * s, 4.0 * s, 4.2 * s }, { neck, 3.6 * s, 3.8 * s },
			{ Mix(neck, head, 0.6), 3.2 * s, 3.4 * s }, { head + Vec3{ 0, -1, 2 } * s, 3.0 * s, 3.2 * s } };
		const WeightFn_t weights = ChainWeights({ { at(rig.m_nSpine), rig.m_nSpine }, { neck, rig.m_nNeck }, { head, rig.m_nHead } }, 2.5 * s);
		mesh.AddLoft(RingsThrough(stations, { 1, 0, 0 }), Segments(12, detail), 1.0 * s, 1.0 * s, kBody, weights);
	}
	const WeightFn_t headWeights = RigidWeights(rig.m_nHead);
	const Vec3 hc = rig.m_HeadCentre;
	mesh.AddEllipsoid(Mat4::Translation(hc), Vec3{ 4.6, 5.2, 4.6 } * s, Segments(10, detail), Segments(14, detail), kHeadCell, headWeights);
	mesh.AddEllipsoid(FrameAlong(hc + Vec3{ 0, -5.0, -1.6 } * s, { 0, -1, -0.25 }, { 1, 0, 0 }), Vec3{ 2.8, 2.4, 3.6 } * s, Segments(8, detail),
		Segments(10, detail), kHeadCell, headWeights);
	for (int side = 0; side < 2; ++side)
	{
		const double sx = side == 0 ? 1.0 : -1.0;
		mesh.AddEllipsoid(FrameAlong(hc + Vec3{ sx * 2.6, -3.9, 1.3 } * s, { sx * 0.35, -1, 0.1 }, { 1, 0, 0 }), Vec3{ 1.3, 1.3, 1.3 } * s, 5,
			Segments(8, detail), kEyeCell, headWeights);
		const double earLength = look.m_bLongEars ? 5.5 : 3.0;
		const Vec3 earAxis = Normalize({ sx * 0.5, 0.5, 1.0 });
		mesh.AddEllipsoid(FrameAlong(hc + Vec3{ sx * 3.0, 0.8, 3.2 } * s + earAxis * (earLength * 0.5 * s), earAxis, { 0, -1, 0 }),
			Vec3{ 1.6, 0.7, earLength } * s, 5, Segments(8, detail), kHeadCell, headWeights);
		if (look.m_bHorns)
		{
			const Vec3 base = hc + Vec3{ sx * 2.2, -0.5, 3.8 } * s;
			const Vec3 dir = Normalize({ sx * 0.35, 0.6, 1.0 });
			std::vector<Station_t> horn = { { base, 1.1 * s, 1.1 * s }, { base + dir * (3.0 * s), 0.7 * s, 0.7 * s },
				{ base + dir * (5.0 * s) + Vec3{ 0, 1.5, 0 } * s, 0.25 * s, 0.25 * s } };
			mesh.AddLoft(RingsThrough(horn, { 1, 0, 0 }), 6, 0.3 * s, 0.4 * s, kHornCell, headWeights);
		}
	}

	// Legs and hooves.
	for (int leg = 0; leg < 4; ++leg)
	{
		const Vec3 upper = at(rig.m_nLegUpper[leg]), lower = at(rig.m_nLegLower[leg]), foot = rig.m_Foot[leg];
		const int body = leg < 2 ? rig.m_nSpine : rig.m_nPelvis;
		std::vector<Station_t> stations = { { upper + Vec3{ 0, 0, 4 } * s, 2.9 * s, 3.4 * s }, { upper, 2.7 * s, 3.1 * s },
			{ lower, 1.7 * s, 1.9 * s }, { Mix(lower, foot, 0.6), 1.5 * s, 1.6 * s }, { foot + Vec3{ 0, 0, 0.4 } * s, 1.6 * s, 1.7 * s } };
		const WeightFn_t weights = ChainWeights({ { upper + Vec3{ 0, 0, 6 } * s, body }, { upper + Vec3{ 0, 0, 1 } * s, rig.m_nLegUpper[leg] },
													{ lower, rig.m_nLegLower[leg] } },
			2.0 * s);
		mesh.AddLoft(RingsThrough(stations, { 1, 0, 0 }), Segments(10, detail), 1.0 * s, 0.5 * s, kLegCell, weights);
		mesh.AddEllipsoid(FrameAlong(foot + Vec3{ 0, -0.4, -0.1 } * s, { 0, 0, 1 }, { 1, 0, 0 }), Vec3{ 1.9, 2.1, 1.1 } * s, 5, Segments(8, detail),
			kHornCell, RigidWeights(rig.m_nLegLower[leg]));
		if (look.m_bFins)
		{
			const double sx = (leg % 2 == 0) ? 1.0 : -1.0;
			std::vector<Vec2> fin = { { 0, 0 }, { 3.5, 0 }, { 2.5, 2.4 }, { 0.3, 3.0 } };
			const Mat4 finFrame = FrameAlong(lower + Vec3{ 0, 1.0, 0 } * s, { sx, 0, 0 }, { 0, 0, -1 }) * Mat4::Scale({ s, s, 1 });
			mesh.AddSlab(finFrame, fin, 0.6 * s, kAccentCell, RigidWeights(rig.m_nLegLower[leg]));
		}
	}

	// The tail, thin to its tip, with a tuft.
	{
		const Vec3 t1 = at(rig.m_nTail1), t2 = at(rig.m_nTail2);
		const Vec3 tip = t2 + Normalize(t2 - t1) * (5.0 * s) + Vec3{ 0, 0, -2 } * s;
		std::vector<Station_t> stations = { { t1 + Vec3{ 0, -3, -1 } * s, 1.6 * s, 1.6 * s }, { t1, 1.4 * s, 1.4 * s }, { t2, 0.9 * s, 0.9 * s },
			{ tip, 0.5 * s, 0.5 * s } };
		const WeightFn_t weights = ChainWeights({ { at(rig.m_nPelvis), rig.m_nPelvis }, { t1, rig.m_nTail1 }, { t2, rig.m_nTail2 } }, 1.5 * s);
		mesh.AddLoft(RingsThrough(stations, { 1, 0, 0 }), Segments(8, detail), 0.5 * s, 0.3 * s, kLegCell, weights);
		if (look.m_bFins)
		{
			std::vector<Vec2> fin = { { -4.0, 0 }, { 4.0, 0 }, { 6.0, 5.0 }, { 0, 3.2 }, { -6.0, 5.0 } };
			// The fin lies flat behind the tip: X across, Y back.
			const Mat4 frame = FrameAlong(tip, { 0, 0, 1 }, { 1, 0, 0 }) * Mat4::Scale({ s, s, 1 });
			mesh.AddSlab(frame, fin, 0.6 * s, kAccentCell, RigidWeights(rig.m_nTail2));
		}
		else
			mesh.AddEllipsoid(FrameAlong(tip, Normalize(tip - t2), { 1, 0, 0 }), Vec3{ 1.4, 1.4, 2.4 } * s, 5, Segments(8, detail), kHornCell,
				RigidWeights(rig.m_nTail2));
	}

	// A tortoise's shell: a dome over the back, with moss lumps.
	if (look.m_bShell)
	{
		const WeightFn_t weights = ChainWeights({ { at(rig.m_nPelvis) + Vec3{ 0, 8, 0 } * s, rig.m_nPelvis }, { Vec3{ 0, -1, H + 4 } * s, rig.m_nSpine } }, 6.0 * s);
		mesh.AddEllipsoid(Mat4::Translation(Vec3{ 0, 0.5, H + 6.5 } * s), Vec3{ 10.5, 13.5, 7.5 } * s, Segments(10, detail), Segments(20, detail), kShellCell,
			weights);
		for (int k = 0; k < 5; ++k)
		{
			const double a = 2.0 * kPi * k / 5.0 + 0.4;
			const Vec3 c = Vec3{ 5.0 * std::cos(a), 0.5 + 7.0 * std::sin(a), H + 12.0 } * s;
			mesh.AddEllipsoid(Mat4::Translation(c), Vec3{ 2.6, 2.6, 1.6 } * s, 4, Segments(8, detail), kAccentCell, weights);
		}
	}
	// A saddle with two bags.
	if (look.m_bSaddle)
	{
		const WeightFn_t weights = RigidWeights(rig.m_nSpine);
		std::vector<Vec2> seat;
		for (int i = 0; i < 10; ++i)
		{
			const double a = 2.0 * kPi * i / 10.0;
			seat.push_back({ 6.0 * std::cos(a), 5.0 * std::sin(a) });
		}
		mesh.AddSlab(Mat4::Translation(Vec3{ 0, 0, H + 12.0 } * s) * Mat4::Scale({ s, s, 1 }), seat, 1.2 * s, kAccentCell, weights);
		if (look.m_bSaddleBags)
		{
			for (int side = 0; side < 2; ++side)
			{
				const double sx = side == 0 ? 1.0 : -1.0;
				mesh.AddBox(Mat4::Translation(Vec3{ sx * 8.2, 0.5, H + 6.5 } * s), Vec3{ 1.6, 3.6, 3.0 } * s, kAccentCell, weights);
			}
		}
	}
	// A fin down the neck for a creature of the sea.
	if (look.m_bFins)
	{
		std::vector<Vec2> crest = { { 0, 0 }, { 12.0, 0 }, { 9.0, 3.5 }, { 4.0, 4.5 }, { 1.0, 3.0 } };
		const Vec3 neck = at(rig.m_nNeck), head = at(rig.m_nHead);
		Mat4 frame = FrameAlong(head + Vec3{ 0, 1.5, 2.5 } * s, { 1, 0, 0 }, neck - head) * Mat4::Scale({ s, s, 1 });
		mesh.AddSlab(frame, crest, 0.7 * s, kAccentCell, ChainWeights({ { neck, rig.m_nNeck }, { head, rig.m_nHead } }, 3.0 * s));
	}
	// Wings of feathers: a slab from the shoulder to the tip, bending at the tip bone.
	if (rig.m_nWing[0] >= 0)
	{
		for (int side = 0; side < 2; ++side)
		{
			const Vec3 root = at(rig.m_nWing[side]), tip = at(rig.m_nWingTip[side]);
			std::vector<Vec2> outline;
			// X runs out along the wing, Y back from its leading edge, in units of the rig.
			const double span = Length(tip - root) / s + 6.0;
			outline.push_back({ -1.0, -1.0 });
			outline.push_back({ span * 0.5, -1.8 });
			outline.push_back({ span, -0.5 });
			for (int k = 0; k < 5; ++k)
			{
				const double x = span * (1.0 - k / 5.0);
				outline.push_back({ x - 1.2, 5.5 + 2.5 * std::sin(kPi * k / 5.0) + 1.5 * (k % 2) });
			}
			outline.push_back({ 0.0, 6.0 });
			// The frame's X runs along the wing toward its tip, Y back, Z across the feathers.
			const Vec3 along = Normalize(tip - root);
			const Mat4 frame = FrameAlong(root, Cross(along, { 0, 1, 0 }), along) * Mat4::Scale({ s, s, 1 });
			const WeightFn_t weights = ChainWeights({ { root, rig.m_nWing[side] }, { tip, rig.m_nWingTip[side] } }, 3.0 * s);
			mesh.AddSlab(frame, outline, 0.8 * s, kWingCell, weights);
		}
	}
	return mesh;
}

CArtMesh BuildSaddleBags(const CreatureRig_t &rig, const std::string &name)
{
	CArtMesh mesh;
	mesh.m_Name = name;
	mesh.m_Materials.push_back(name);
	const double s = rig.m_Proportions.flScale, H = 12.0 * rig.m_Proportions.flLegLength;
	for (int side = 0; side < 2; ++side)
	{
		const double sx = side == 0 ? 1.0 : -1.0;
		mesh.AddBox(Mat4::Translation(Vec3{ sx * 8.2, 0.5, H + 6.5 } * s), Vec3{ 1.6, 3.6, 3.0 } * s, kAccentCell, nullptr);
		mesh.AddBox(Mat4::Translation(Vec3{ sx * 9.9, 0.5, H + 7.5 } * s), Vec3{ 0.3, 2.0, 1.2 } * s, kHornCell, nullptr);
	}
	return mesh;
}

void PaintCreatureTextures(const CreatureLook_t &look, int size, QImage &colour, QImage &normal)
{
	CAtlasPainter painter(size);
	const CreatureLook_t L = look;
	painter.SetBackground(L.m_Body);
	auto fur = [L](double u, double v, const Vec3 &base)
	{
		Texel_t t;
		const double strand = std::fabs(std::sin(u * kPi * 40.0 + 3.0 * Noise2(u * 6.0, v * 10.0, L.m_nSeed)));
		t.colour = Shade(base, 0.88 + 0.2 * strand);
		t.height = 1.0 * strand;
		return t;
	};
	painter.Add(kBody,
		[L, fur](double u, double v)
		{
			// The belly (the underside lies at u = 0.75) is lighter; spots along the back.
			const double under = std::max(0.0, std::cos(2.0 * kPi * (u - 0.75)));
			Texel_t t = fur(u, v, Mix(L.m_Body, L.m_Belly, SmoothStep(0.4, 0.8, under)));
			const double spot = Noise2(u * 10.0, v * 6.0, L.m_nSeed + 5);
			if (spot > 0.72 && under < 0.3)
				t.colour = Shade(t.colour, 0.75);
			return t;
		});
	painter.Add(kHeadCell,
		[L, fur](double u, double v)
		{
			const double front = std::cos(2.0 * kPi * (u - 0.75));
			Texel_t t = fur(u, v, Mix(L.m_Body, L.m_Belly, SmoothStep(0.6, 0.95, front) * SmoothStep(0.55, 0.3, v)));
			return t;
		});
	painter.Add(kLegCell, [L, fur](double u, double v) { return fur(u, v, Shade(L.m_Body, 0.9)); });
	painter.Add(kEyeCell,
		[L](double, double v)
		{
			Texel_t t;
			t.colour = v > 0.82 ? Rgb(10, 10, 14) : (v > 0.62 ? L.m_Eye : Rgb(235, 232, 225));
			return t;
		});
	painter.Add(kHornCell,
		[L](double u, double v)
		{
			Texel_t t;
			const double ring = std::fabs(std::sin(v * kPi * 8.0));
			t.colour = Shade(Rgb(225, 210, 180), 0.8 + 0.2 * ring);
			t.height = 1.5 * ring;
			(void)u;
			return t;
		});
	painter.Add(kAccentCell,
		[L](double u, double v)
		{
			Texel_t t;
			t.colour = Shade(L.m_Accent, 0.85 + 0.3 * Fractal2(u * 12.0, v * 12.0, L.m_nSeed + 9, 3));
			// Stitches.
			if (std::fmod(u * 20.0, 1.0) < 0.1 && (v < 0.06 || v > 0.94))
				t.height = -1.0;
			return t;
		});
	painter.Add(kShellCell,
		[L](double u, double v)
		{
			// Plates of a shell: a hexagonal-ish grid with dark seams.
			Texel_t t;
			const double cu = u * 8.0, cv = v * 5.0 + 0.5 * (int(std::floor(u * 8.0)) % 2);
			const double fu = cu - std::floor(cu) - 0.5, fv = cv - std::floor(cv) - 0.5;
			const double edge = std::max(std::fabs(fu), std::fabs(fv));
			t.colour = Shade(L.m_Accent, 0.8 + 0.3 * Fractal2(u * 20.0, v * 20.0, L.m_nSeed + 11, 2));
			t.height = 2.0 * (0.5 - edge);
			if (edge > 0.44)
				t.colour = Shade(L.m_Accent, 0.45);
			return t;
		});
	painter.Add(kWingCell,
		[L](double u, double v)
		{
			Texel_t t;
			const double feather = std::fabs(std::sin(u * kPi * 14.0));
			t.colour = Shade(Mix(L.m_Wing, Rgb(255, 255, 255), 0.3 * v), 0.8 + 0.25 * feather);
			t.height = 1.5 * feather;
			return t;
		});
	painter.Paint(colour, normal);
}

std::vector<FbxAnimation_t> BuildCourierExtraAnimations(const CreatureRig_t &rig)
{
	std::vector<FbxAnimation_t> anims;
	const CSkeleton &sk = rig.m_Skeleton;
	const double s = rig.m_Proportions.flScale;
	{
		// Spawn: down in a crouch, a spring up, a shake from head to tail.
		CAnimBuilder a(sk, "spawn", 31);
		auto rise = [](double t) { return SmoothStep(0.1, 0.45, t); };
		a.Move(rig.m_nPelvis, [&](double t) { return Vec3{ 0, 0, (-5.0 * (1.0 - rise(t)) + 2.0 * std::sin(kPi * SmoothStep(0.3, 0.6, t))) * s }; });
		a.Rotate(rig.m_nSpine, [&](double t) { return Vec3{ 0, 12.0 * std::sin(6.0 * kPi * t) * SmoothStep(0.5, 0.6, t) * (1.0 - SmoothStep(0.85, 1.0, t)), 0 }; });
		a.Rotate(rig.m_nNeck, [&](double t) { return Vec3{ -20.0 * (1.0 - rise(t)), 0, 0 }; });
		a.Rotate(rig.m_nHead, [&](double t) { return Vec3{ 0, 18.0 * std::sin(6.0 * kPi * t + 0.6) * SmoothStep(0.5, 0.6, t) * (1.0 - SmoothStep(0.85, 1.0, t)), 0 }; });
		a.Rotate(rig.m_nTail1, [&](double t) { return Vec3{ 30.0 * (1.0 - rise(t)), 0, 25.0 * std::sin(6.0 * kPi * t - 0.8) * SmoothStep(0.5, 0.6, t) }; });
		for (int leg = 0; leg < 4; ++leg)
		{
			const double bend = leg < 2 ? -1.0 : 1.0;
			a.Rotate(rig.m_nLegUpper[leg], [&](double t) { return Vec3{ -bend * 35.0 * (1.0 - rise(t)), 0, 0 }; });
			a.Rotate(rig.m_nLegLower[leg], [&](double t) { return Vec3{ bend * 60.0 * (1.0 - rise(t)), 0, 0 }; });
		}
		anims.push_back(a.Take());
	}
	for (int turn = -1; turn <= 1; turn += 2)
	{
		// The gallop, the body bent into the turn and leaning.
		CAnimBuilder r(sk, turn < 0 ? "run_turn_left" : "run_turn_right", 31);
		const double g = 2.0 * kPi;
		r.Move(rig.m_nPelvis, [&](double t) { return Vec3{ 0, 0, 1.5 * s * std::sin(2.0 * g * t) }; });
		r.Rotate(rig.m_nPelvis, [&](double t) { return Vec3{ 7.0 * std::sin(g * t), -turn * 10.0, 0 }; });
		r.Rotate(rig.m_nSpine, [&](double t) { return Vec3{ -5.0 * std::sin(g * t + 0.5), 0, -turn * 12.0 }; });
		r.Rotate(rig.m_nNeck, [&](double t) { return Vec3{ 8.0 * std::sin(g * t + 1.0), 0, -turn * 15.0 }; });
		r.Rotate(rig.m_nHead, [&](double t) { return Vec3{ -6.0 * std::sin(g * t + 1.2), 0, -turn * 10.0 }; });
		r.Rotate(rig.m_nTail1, [&](double t) { return Vec3{ -25.0 + 10.0 * std::sin(g * t), 0, turn * 20.0 }; });
		for (int leg = 0; leg < 4; ++leg)
		{
			const double phase = (leg < 2 ? 0.0 : kPi) + (leg % 2) * 0.5;
			r.Rotate(rig.m_nLegUpper[leg], [&](double t) { return Vec3{ -40.0 * std::sin(g * t + phase), 0, 0 }; });
			r.Rotate(rig.m_nLegLower[leg], [&](double t) { return Vec3{ (leg < 2 ? -1.0 : 1.0) * (30.0 + 30.0 * std::cos(g * t + phase)), 0, 0 }; });
		}
		anims.push_back(r.Take());
	}
	return anims;
}

std::vector<FbxAnimation_t> BuildCreatureAnimations(const CreatureRig_t &rig, bool flying)
{
	std::vector<FbxAnimation_t> anims;
	const CSkeleton &sk = rig.m_Skeleton;
	const double s = rig.m_Proportions.flScale;
	if (!flying)
	{
		// Idle: breathing, the head looking about, the tail swishing.
		CAnimBuilder a(sk, "idle", 61);
		const double w = 2.0 * kPi / 2.0;
		a.Move(rig.m_nPelvis, [&](double t) { return Vec3{ 0, 0, -0.3 * s * (1.0 - std::cos(w * t)) }; });
		a.Scale(rig.m_nSpine, [&](double t) { const double b = std::sin(w * t); return Vec3{ 1.0 + 0.03 * b, 1.0, 1.0 + 0.03 * b }; });
		a.Rotate(rig.m_nNeck, [&](double t) { return Vec3{ 4.0 * std::sin(w * t), 0, 0 }; });
		a.Rotate(rig.m_nHead, [&](double t) { return Vec3{ -3.0 * std::sin(w * t), 0, 18.0 * std::sin(w * t + 0.7) }; });
		a.Rotate(rig.m_nTail1, [&](double t) { return Vec3{ 0, 0, 20.0 * std::sin(2.0 * w * t) }; });
		a.Rotate(rig.m_nTail2, [&](double t) { return Vec3{ 0, 0, 25.0 * std::sin(2.0 * w * t - 0.8) }; });
		for (int leg = 0; leg < 4; ++leg)
			a.Rotate(rig.m_nLegLower[leg], [&](double t) { return Vec3{ (leg < 2 ? -1.0 : 1.0) * 2.0 * (1.0 - std::cos(w * t)), 0, 0 }; });
		anims.push_back(a.Take());

		// Run: a gallop; front and back pairs swing against each other, the body rocks.
		CAnimBuilder r(sk, "run", 31);
		const double g = 2.0 * kPi;
		r.Move(rig.m_nPelvis, [&](double t) { return Vec3{ 0, 0, 1.5 * s * std::sin(2.0 * g * t) }; });
		r.Rotate(rig.m_nPelvis, [&](double t) { return Vec3{ 7.0 * std::sin(g * t), 0, 0 }; });
		r.Rotate(rig.m_nSpine, [&](double t) { return Vec3{ -5.0 * std::sin(g * t + 0.5), 0, 0 }; });
		r.Rotate(rig.m_nNeck, [&](double t) { return Vec3{ 8.0 * std::sin(g * t + 1.0), 0, 0 }; });
		r.Rotate(rig.m_nHead, [&](double t) { return Vec3{ -6.0 * std::sin(g * t + 1.2), 0, 0 }; });
		r.Rotate(rig.m_nTail1, [&](double t) { return Vec3{ -25.0 + 10.0 * std::sin(g * t), 0, 0 }; });
		r.Rotate(rig.m_nTail2, [&](double t) { return Vec3{ -15.0 + 12.0 * std::sin(g * t - 0.8), 0, 0 }; });
		for (int leg = 0; leg < 4; ++leg)
		{
			const double phase = (leg < 2 ? 0.0 : kPi) + (leg % 2) * 0.5;
			r.Rotate(rig.m_nLegUpper[leg], [&](double t) { return Vec3{ -40.0 * std::sin(g * t + phase), 0, 0 }; });
			r.Rotate(rig.m_nLegLower[leg], [&](double t) { return Vec3{ (leg < 2 ? -1.0 : 1.0) * (30.0 + 30.0 * std::cos(g * t + phase)), 0, 0 }; });
		}
		anims.push_back(r.Take());
	}
	else
	{
		// Hovering: slow deep beats, legs tucked, the body rising with each beat.
		for (int k = 0; k < 2; ++k)
		{
			const bool forward = k == 1;
			CAnimBuilder a(sk, forward ? "fly" : "fly_idle", 31);
			const double w = 2.0 * kPi * (forward ? 2.0 : 1.0);
			const double pitch = forward ? -12.0 : 0.0;
			a.Move(rig.m_nPelvis, [&](double t) { return Vec3{ 0, 0, (6.0 + 1.5 * std::sin(w * t - 1.0)) * s }; });
			a.Rotate(rig.m_nPelvis, [&](double t) { return Vec3{ pitch + 3.0 * std::sin(w * t), 0, 0 }; });
			a.Rotate(rig.m_nNeck, [&](double t) { return Vec3{ -pitch * 0.5 - 4.0 * std::sin(w * t), 0, 0 }; });
			a.Rotate(rig.m_nHead, [&](double t) { return Vec3{ 2.0 * std::sin(w * t + 0.5), 0, forward ? 0.0 : 10.0 * std::sin(2.0 * kPi * t) }; });
			a.Rotate(rig.m_nTail1, [&](double t) { return Vec3{ -10.0 + 8.0 * std::sin(w * t - 1.5), 0, 0 }; });
			a.Rotate(rig.m_nTail2, [&](double t) { return Vec3{ -8.0 + 10.0 * std::sin(w * t - 2.3), 0, 0 }; });
			for (int leg = 0; leg < 4; ++leg)
			{
				const double tuck = leg < 2 ? -35.0 : 40.0;
				a.Rotate(rig.m_nLegUpper[leg], [&](double t) { return Vec3{ tuck + 4.0 * std::sin(w * t + leg), 0, 0 }; });
				a.Rotate(rig.m_nLegLower[leg], [&](double t) { return Vec3{ -tuck * 1.2 + 3.0 * std::sin(w * t + leg), 0, 0 }; });
			}
			for (int side = 0; side < 2; ++side)
			{
				// A wing along +X (left) beats down with a negative turn about Y; the right
				// wing mirrors it.
				const double sx = side == 0 ? 1.0 : -1.0;
				const double beat = forward ? 40.0 : 50.0;
				a.Rotate(rig.m_nWing[side], [&](double t) { return Vec3{ 0, sx * beat * std::sin(w * t), 0 }; });
				a.Rotate(rig.m_nWingTip[side], [&](double t) { return Vec3{ 0, sx * 25.0 * std::sin(w * t - 0.9), 0 }; });
			}
			anims.push_back(a.Take());
		}
	}
	return anims;
}
} // namespace sampleart
