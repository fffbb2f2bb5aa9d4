#include "figure.h"

#include <algorithm>
#include <cmath>

#include "animbuilder.h"
#include "painter.h"

namespace sampleart
{
namespace humanoidatlas
{
// Cells of the atlas, each inset by two texels of a 256 map so that neighbours do not bleed.
constexpr double kInset = 2.0 / 256.0;
constexpr UVRect_t Cell(double u0, double v0, double u1, double v1) { return { u0 + kInset, v0 + kInset, u1 - kInset, v1 - kInset }; }
const UVRect_t kHead = Cell(0.0, 0.5, 0.5, 1.0);
const UVRect_t kTorso = Cell(0.5, 0.5, 1.0, 1.0);
const UVRect_t kArm = Cell(0.0, 0.25, 0.5, 0.5);
const UVRect_t kLeg = Cell(0.5, 0.25, 1.0, 0.5);
const UVRect_t kHand = Cell(0.0, 0.125, 0.125, 0.25);
const UVRect_t kFoot = Cell(0.125, 0.125, 0.25, 0.25);
const UVRect_t kNeck = Cell(0.25, 0.125, 0.375, 0.25);
const UVRect_t kEye = Cell(0.375, 0.125, 0.5, 0.25);
const UVRect_t kSkin = Cell(0.5, 0.125, 0.625, 0.25);
const UVRect_t kHair = Cell(0.625, 0.125, 0.75, 0.25);
const UVRect_t kAccent = Cell(0.75, 0.125, 1.0, 0.25);
const UVRect_t kRobe = Cell(0.0, 0.0, 0.5, 0.125);
} // namespace humanoidatlas

using namespace humanoidatlas;

namespace
{
int Segments(int base, double detail) { return std::max(6, (int)std::lround(base * detail)); }

const char *const kSideSuffix[2] = { "_l", "_r" };
} // namespace

HumanoidRig_t BuildHumanoidRig(const Proportions_t &p)
{
	HumanoidRig_t rig;
	rig.m_Proportions = p;
	const double s = p.flScale;
	const double ankleZ = 7.0, kneeZ = ankleZ + p.flCalf, hipZ = kneeZ + p.flThigh;
	const double pelvisZ = hipZ + 4.0, spine1Z = pelvisZ + 12.0, spine2Z = spine1Z + 15.0, neckZ = spine2Z + 18.0, headZ = neckZ + 7.0;
	const double shoulderZ = spine2Z + 12.0;
	rig.m_flShoulderZ = shoulderZ * s;
	CSkeleton &sk = rig.m_Skeleton;
	rig.m_nRoot = sk.Add("root", -1, { 0, 0, 0 });
	rig.m_nPelvis = sk.Add("pelvis", rig.m_nRoot, Vec3{ 0, 0, pelvisZ } * s);
	rig.m_nSpine1 = sk.Add("spine_1", rig.m_nPelvis, Vec3{ 0, 0.3, spine1Z } * s);
	rig.m_nSpine2 = sk.Add("spine_2", rig.m_nSpine1, Vec3{ 0, 0.3, spine2Z } * s);
	rig.m_nNeck = sk.Add("neck", rig.m_nSpine2, Vec3{ 0, 0.5, neckZ } * s);
	rig.m_nHead = sk.Add("head", rig.m_nNeck, Vec3{ 0, 0.3, headZ } * s);
	const double a = Radians(p.flArmAngle);
	for (int side = 0; side < 2; ++side)
	{
		const double sx = side == 0 ? 1.0 : -1.0;
		const std::string suffix = kSideSuffix[side];
		rig.m_Shoulder[side] = Vec3{ sx * p.flShoulderHalf, 0.5, shoulderZ } * s;
		rig.m_ArmDir[side] = Normalize({ sx * std::sin(a), 0.05, -std::cos(a) });
		rig.m_Elbow[side] = rig.m_Shoulder[side] + rig.m_ArmDir[side] * (p.flUpperArm * s);
		rig.m_ForeArmDir[side] = Normalize({ sx * std::sin(a) * 0.75, -0.3, -std::cos(a) });
		rig.m_Wrist[side] = rig.m_Elbow[side] + rig.m_ForeArmDir[side] * (p.flForeArm * s);
		rig.m_nClavicle[side] = sk.Add("clavicle" + suffix, rig.m_nSpine2, Vec3{ sx * 2.5, -0.3, shoulderZ - 1.0 } * s);
		rig.m_nUpperArm[side] = sk.Add("upperarm" + suffix, rig.m_nClavicle[side], rig.m_Shoulder[side]);
		rig.m_nForeArm[side] = sk.Add("forearm" + suffix, rig.m_nUpperArm[side], rig.m_Elbow[side]);
		rig.m_nHand[side] = sk.Add("hand" + suffix, rig.m_nForeArm[side], rig.m_Wrist[side]);
	}
	for (int side = 0; side < 2; ++side)
	{
		const double sx = side == 0 ? 1.0 : -1.0;
		const std::string suffix = kSideSuffix[side];
		rig.m_Hip[side] = Vec3{ sx * p.flHipHalf, 0, hipZ } * s;
		rig.m_Knee[side] = Vec3{ sx * (p.flHipHalf + 0.4), -0.6, kneeZ } * s;
		rig.m_Ankle[side] = Vec3{ sx * (p.flHipHalf + 0.8), 0.6, ankleZ } * s;
		rig.m_nThigh[side] = sk.Add("thigh" + suffix, rig.m_nPelvis, rig.m_Hip[side]);
		rig.m_nCalf[side] = sk.Add("calf" + suffix, rig.m_nThigh[side], rig.m_Knee[side]);
		rig.m_nFoot[side] = sk.Add("foot" + suffix, rig.m_nCalf[side], rig.m_Ankle[side]);
	}
	rig.m_HeadCentre = Vec3{ 0, -0.4, headZ + 10.0 * p.flHeadSize } * s;
	rig.m_HeadRadii = Vec3{ 8.2, 9.0, 11.0 } * (p.flHeadSize * s);
	return rig;
}

CArtMesh BuildHumanoidBody(const HumanoidRig_t &rig, const FigureLook_t &look, double detail)
{
	CArtMesh mesh;
	mesh.m_Name = look.m_Name;
	mesh.m_Materials.push_back(look.m_Name);
	const Proportions_t &p = rig.m_Proportions;
	const CSkeleton &sk = rig.m_Skeleton;
	const double s = p.flScale, bulk = p.flBulk;
	auto at = [&](int bone) { return sk.GlobalPosition(bone); };
	const double hipZ = rig.m_Hip[0].z / s, pelvisZ = at(rig.m_nPelvis).z / s, spine1Z = at(rig.m_nSpine1).z / s;
	const double spine2Z = at(rig.m_nSpine2).z / s, neckZ = at(rig.m_nNeck).z / s, shoulderZ = rig.m_flShoulderZ / s;

	// The torso, from the crotch to the base of the neck.
	{
		struct Key_t
		{
			double z, rx, ry, y;
		};
		const Key_t keys[] = { { hipZ - 7.0, 7.0, 6.2, 0.8 }, { hipZ - 3.0, 11.8, 8.6, 0.6 }, { hipZ + 2.0, 13.6, 9.6, 0.4 },
			{ pelvisZ + 6.0, 13.0, 9.0, 0.2 }, { spine1Z + 1.0, 11.6, 8.0, 0.0 }, { spine1Z + 8.0, 12.6, 8.6, -0.4 },
			{ spine2Z + 2.0, 14.6, 9.6, -0.9 }, { spine2Z + 8.0, 15.6, 9.8, -0.9 }, { shoulderZ - 1.0, 15.4, 8.4, -0.1 },
			{ shoulderZ + 3.0, 11.5, 7.0, 0.4 }, { neckZ + 0.5, 5.6, 4.8, 0.6 } };
		std::vector<Station_t> stations;
		for (const Key_t &k : keys)
		{
			const double g = k.z < neckZ ? bulk : 1.0;
			stations.push_back({ Vec3{ 0, k.y, k.z } * s, k.rx * g * s, k.ry * g * s });
		}
		const WeightFn_t spine = ChainWeights({ { at(rig.m_nPelvis) - Vec3{ 0, 0, 20 * s }, rig.m_nPelvis }, { at(rig.m_nSpine1), rig.m_nSpine1 },
												{ at(rig.m_nSpine2), rig.m_nSpine2 }, { at(rig.m_nNeck), rig.m_nNeck } },
			5.0 * s);
		// The shoulders' tops follow the clavicles a little.
		const WeightFn_t weights = [&, spine](const Vec3 &pt)
		{
			std::vector<BoneWeight_t> w = spine(pt);
			const double f = 0.5 * SmoothStep(9.0 * s, 15.0 * s, std::fabs(pt.x)) * SmoothStep((spine2Z + 3.0) * s, (spine2Z + 9.0) * s, pt.z);
			for (BoneWeight_t &b : w)
				b.flWeight *= 1.0 - f;
			w.push_back({ rig.m_nClavicle[pt.x > 0 ? 0 : 1], f });
			return w;
		};
		mesh.AddLoft(RingsThrough(stations, { 1, 0, 0 }), Segments(20, detail), 2.5 * s, 1.0 * s, kTorso, weights);
	}

	// A robe from the waist to the knees.
	if (look.m_bRobe)
	{
		const double kneeZ = rig.m_Knee[0].z / s;
		std::vector<Station_t> stations = { { Vec3{ 0, 0.2, spine1Z - 2.0 } * s, 12.4 * bulk * s, 8.8 * bulk * s },
			{ Vec3{ 0, 0.4, hipZ } * s, 15.0 * bulk * s, 11.0 * bulk * s }, { Vec3{ 0, 0.6, kneeZ + 10.0 } * s, 17.5 * bulk * s, 13.0 * bulk * s },
			{ Vec3{ 0, 0.8, kneeZ - 2.0 } * s, 19.0 * bulk * s, 14.0 * bulk * s } };
		const WeightFn_t weights = [&](const Vec3 &pt)
		{
			const double f = SmoothStep(hipZ * s, (rig.m_Knee[0].z / s + 2.0) * s, (hipZ * s) + (hipZ * s - pt.z));
			const int side = pt.x > 0 ? 0 : 1;
			const double sideF = SmoothStep(0.0, 6.0 * s, std::fabs(pt.x));
			return std::vector<BoneWeight_t>{ { rig.m_nPelvis, 1.0 - f }, { rig.m_nThigh[side], f * (0.5 + 0.5 * sideF) },
				{ rig.m_nThigh[1 - side], f * (0.5 - 0.5 * sideF) } };
		};
		mesh.AddLoft(RingsThrough(stations, { 1, 0, 0 }), Segments(20, detail), 1.0 * s, 1.0 * s, kRobe, weights);
	}

	// The neck.
	{
		const Vec3 neck = at(rig.m_nNeck), head = at(rig.m_nHead);
		std::vector<Station_t> stations = { { neck - Vec3{ 0, 0, 6 * s }, 4.9 * s, 4.4 * s }, { neck + Vec3{ 0, 0, 1 * s }, 4.4 * s, 4.1 * s },
			{ head + Vec3{ 0, 0, 4 * s }, 4.1 * s, 3.9 * s } };
		const WeightFn_t weights = ChainWeights({ { at(rig.m_nSpine2), rig.m_nSpine2 }, { neck, rig.m_nNeck }, { head, rig.m_nHead } }, 3.0 * s);
		mesh.AddLoft(RingsThrough(stations, { 1, 0, 0 }), Segments(14, detail), 0.5 * s, 0.5 * s, kNeck, weights);
	}

	// The head and the face on its -Y side.
	const WeightFn_t head = RigidWeights(rig.m_nHead);
	const Vec3 hc = rig.m_HeadCentre, hr = rig.m_HeadRadii;
	const double hs = p.flHeadSize * s;
	mesh.AddEllipsoid(Mat4::Translation(hc), hr, Segments(12, detail), Segments(18, detail), kHead, head);
	for (int side = 0; side < 2; ++side)
	{
		const double sx = side == 0 ? 1.0 : -1.0;
		// Eyes: the iris and pupil lie at the front pole, which looks down -Y.
		mesh.AddEllipsoid(FrameAlong(hc + Vec3{ sx * 3.3, -7.7, 1.5 } * hs, { 0, -1, 0 }, { 1, 0, 0 }), Vec3{ 1.6, 1.6, 1.6 } * hs,
			Segments(6, detail), Segments(10, detail), kEye, head);
		// Brows.
		mesh.AddEllipsoid(FrameAlong(hc + Vec3{ sx * 3.5, -8.3, 4.2 } * hs, { sx, 0, 0.15 }, { 0, 0, 1 }), Vec3{ 0.6, 0.9, 2.4 } * hs, 4,
			Segments(8, detail), kHair, head);
		// Ears, long and swept back for elves.
		const double earLength = look.m_bPointedEars ? 5.2 : 3.0;
		const Vec3 earAxis = look.m_bPointedEars ? Vec3{ sx * 0.7, 0.55, 0.55 } : Vec3{ 0, 0.1, 1 };
		mesh.AddEllipsoid(FrameAlong(hc + Vec3{ sx * 7.9, 0.8, 1.0 } * hs + Normalize(earAxis) * (earLength * 0.45 * hs), earAxis, { sx, 0, 0 }),
			Vec3{ 0.9, 2.0, earLength } * hs, Segments(6, detail), Segments(8, detail), kSkin, head);
	}
	mesh.AddEllipsoid(FrameAlong(hc + Vec3{ 0, -8.9, -1.6 } * hs, { 0, -0.35, 1 }, { 1, 0, 0 }), Vec3{ 1.3, 1.6, 2.7 } * hs, Segments(6, detail),
		Segments(8, detail), kSkin, head);
	if (look.m_bBeard)
		mesh.AddEllipsoid(FrameAlong(hc + Vec3{ 0, -6.8, -8.0 } * hs, { 0, -0.3, 1 }, { 1, 0, 0 }), Vec3{ 5.6, 3.4, 7.0 } * hs, Segments(8, detail),
			Segments(12, detail), kHair, head);
	if (look.m_bFins)
	{
		// A crest from the brow over the crown, and a fin on each forearm.
		std::vector<Vec2> crest;
		for (int i = 0; i <= 8; ++i)
		{
			const double t = i / 8.0;
			crest.push_back({ -9.0 + 20.0 * t, 2.0 + 7.0 * std::sin(kPi * t) * (1.0 - 0.3 * t) });
		}
		crest.push_back({ 9.5, -1.0 });
		crest.push_back({ -8.0, -1.0 });
		// The slab lies in the frame's XY plane: X runs front to back, Y up.
		Mat4 crestFrame;
		crestFrame.m[0][0] = 0;
		crestFrame.m[0][1] = 1;
		crestFrame.m[0][2] = 0;
		crestFrame.m[1][0] = 0;
		crestFrame.m[1][1] = 0;
		crestFrame.m[1][2] = 1;
		crestFrame.m[2][0] = 1;
		crestFrame.m[2][1] = 0;
		crestFrame.m[2][2] = 0;
		crestFrame = Mat4::Translation(hc + Vec3{ 0, 0, 7.0 } * hs) * crestFrame * Mat4::Scale({ hs, hs, 1 });
		mesh.AddSlab(crestFrame, crest, 1.4 * hs, kAccent, head);
	}

	// Arms, each one tube from inside the shoulder to the wrist, and the hands.
	for (int side = 0; side < 2; ++side)
	{
		const Vec3 sh = rig.m_Shoulder[side], el = rig.m_Elbow[side], wr = rig.m_Wrist[side];
		const Vec3 ad = rig.m_ArmDir[side], fd = rig.m_ForeArmDir[side];
		const double g = bulk * s;
		std::vector<Station_t> stations = { { sh - ad * (5.0 * s), 4.4 * g, 4.4 * g }, { sh - ad * (1.0 * s), 4.9 * g, 4.7 * g },
			{ sh + ad * (p.flUpperArm * 0.5 * s), 4.3 * g, 4.0 * g }, { el, 3.4 * g, 3.4 * g }, { el + fd * (p.flForeArm * 0.35 * s), 3.6 * g, 3.3 * g },
			{ wr - fd * (1.5 * s), 2.7 * g, 2.2 * g }, { wr + fd * (0.6 * s), 2.5 * g, 2.0 * g } };
		const WeightFn_t weights = ChainWeights({ { at(rig.m_nClavicle[side]), rig.m_nClavicle[side] }, { sh, rig.m_nUpperArm[side] },
													{ el, rig.m_nForeArm[side] }, { wr, rig.m_nHand[side] } },
			3.5 * s);
		mesh.AddLoft(RingsThrough(stations, { 0, -1, 0 }), Segments(12, detail), 2.0 * s, 0.6 * s, kArm, weights);
		if (look.m_bFins)
		{
			const double sx = side == 0 ? 1.0 : -1.0;
			std::vector<Vec2> fin = { { 0, 0 }, { 9.0, 0 }, { 6.0, 6.5 }, { 1.5, 7.5 } };
			const Vec3 base = el + fd * (p.flForeArm * 0.2 * s);
			Mat4 finFrame = FrameAlong(base, { sx, 0.3, 0 }, fd);
			finFrame = finFrame * Mat4::Scale({ s, s, 1 });
			// The fin's outline runs along the forearm (frame X) and out from it (frame Y).
			mesh.AddSlab(finFrame, fin, 0.8 * s, kAccent, RigidWeights(rig.m_nForeArm[side]));
		}
		const WeightFn_t hand = RigidWeights(rig.m_nHand[side]);
		const double sx = side == 0 ? 1.0 : -1.0;
		mesh.AddEllipsoid(FrameAlong(wr + fd * (4.8 * s), fd, { sx, 0, 0 }), Vec3{ 2.3, 3.5, 5.4 } * s, Segments(7, detail), Segments(10, detail), kHand,
			hand);
		const Vec3 thumbAxis = Normalize(fd + Vec3{ -0.6 * sx, -0.7, 0 });
		mesh.AddEllipsoid(FrameAlong(wr + fd * (2.4 * s) + Vec3{ -0.8 * sx, -2.2, 0 } * s + thumbAxis * (1.2 * s), thumbAxis, { sx, 0, 0 }),
			Vec3{ 1.2, 1.2, 2.7 } * s, 5, Segments(8, detail), kHand, hand);
		if (look.m_bThorns)
		{
			// Thorns on the shoulder, growing out and up.
			for (int k = 0; k < 3; ++k)
			{
				const Vec3 base = sh + Vec3{ sx * (1.0 - 1.5 * k), 2.0 - 2.0 * k, 3.0 + 0.5 * k } * s;
				const Vec3 dir = Normalize(Vec3{ sx * (0.7 + 0.1 * k), 0.2 * (k - 1), 0.8 });
				std::vector<Station_t> thorn = { { base, 1.8 * s, 1.8 * s }, { base + dir * (4.0 * s), 1.0 * s, 1.0 * s }, { base + dir * (8.0 * s), 0.35 * s, 0.35 * s } };
				mesh.AddLoft(RingsThrough(thorn, { 0, -1, 0 }), 6, 0.5 * s, 0.8 * s, kAccent, RigidWeights(rig.m_nClavicle[side]));
			}
		}
	}

	// Legs from inside the hips to the ankles, or a spirit's tail.
	if (look.m_bTail)
	{
		const double kneeZ = rig.m_Knee[0].z;
		std::vector<Station_t> stations = { { Vec3{ 0, 0.5, (hipZ + 5.0) * s }, 13.0 * bulk * s, 9.0 * bulk * s },
			{ Vec3{ 0, 1.0, (hipZ - 6.0) * s }, 11.0 * bulk * s, 8.5 * bulk * s }, { Vec3{ 0, 3.0, kneeZ }, 7.0 * s, 6.0 * s },
			{ Vec3{ 0, 7.0, rig.m_Ankle[0].z + 14.0 * s }, 3.5 * s, 3.0 * s }, { Vec3{ 0, 12.0, rig.m_Ankle[0].z + 8.0 * s }, 1.2 * s, 1.2 * s } };
		const WeightFn_t weights = [&](const Vec3 &pt)
		{
			const double f = 0.4 * SmoothStep(hipZ * s, kneeZ, hipZ * s + (hipZ * s - pt.z));
			return std::vector<BoneWeight_t>{ { rig.m_nPelvis, 1.0 - f }, { rig.m_nThigh[0], f * 0.5 }, { rig.m_nThigh[1], f * 0.5 } };
		};
		mesh.AddLoft(RingsThrough(stations, { 1, 0, 0 }), Segments(16, detail), 1.0 * s, 1.5 * s, kRobe, weights);
	}
	else
	{
		for (int side = 0; side < 2; ++side)
		{
			const Vec3 hip = rig.m_Hip[side], knee = rig.m_Knee[side], ankle = rig.m_Ankle[side];
			const double g = bulk * s;
			std::vector<Station_t> stations = { { hip + Vec3{ 0, 0, 7 } * s, 7.6 * g, 7.6 * g }, { hip + Vec3{ 0, 0, 1 } * s, 7.9 * g, 7.6 * g },
				{ Mix(hip, knee, 0.5), 6.6 * g, 6.4 * g }, { knee + Vec3{ 0, 0, 2 } * s, 5.0 * g, 5.0 * g }, { knee, 4.9 * g, 5.0 * g },
				{ Mix(knee, ankle, 0.3) + Vec3{ 0, 0.6, 0 } * s, 5.1 * g, 5.5 * g }, { Mix(knee, ankle, 0.72), 3.9 * g, 3.8 * g },
				{ ankle + Vec3{ 0, 0, 0.2 } * s, 3.1 * g, 3.1 * g } };
			const WeightFn_t weights = ChainWeights({ { hip + Vec3{ 0, 0, 12 } * s, rig.m_nPelvis }, { hip + Vec3{ 0, 0, 2 } * s, rig.m_nThigh[side] },
														{ knee, rig.m_nCalf[side] }, { ankle, rig.m_nFoot[side] } },
				4.0 * s);
			mesh.AddLoft(RingsThrough(stations, { 1, 0, 0 }), Segments(14, detail), 1.5 * s, 0.5 * s, kLeg, weights);
			mesh.AddEllipsoid(FrameAlong(Vec3{ ankle.x, ankle.y - 3.4 * s, 3.6 * s }, { 0, -1, 0 }, { 1, 0, 0 }), Vec3{ 4.0 * bulk, 3.9, 8.2 } * s,
				Segments(8, detail), Segments(12, detail), kFoot, RigidWeights(rig.m_nFoot[side]));
		}
	}
	return mesh;
}

namespace
{
// The repeating motif of a figure's clothes: a colour and a height at (u, v) of a garment whose
// cells are `cellsU` by `cellsV`.
Texel_t Motif(const FigureLook_t &look, const Vec3 &base, double u, double v, double cellsU, double cellsV)
{
	Texel_t t;
	const double grain = Noise2(u * 6.0, v * 6.0, look.m_nSeed);
	t.colour = Shade(base, 0.96 + 0.06 * grain);
	const double cu = u * cellsU, cv = v * cellsV;
	const double fu = cu - std::floor(cu) - 0.5, fv = cv - std::floor(cv) - 0.5;
	switch (look.m_nPattern)
	{
	case 1: // leaves: an almond in each cell, turned by the cell's row
	{
		const double turn = (int(std::floor(cv)) % 2) ? 0.6 : -0.6;
		const double x = fu * std::cos(turn) - fv * std::sin(turn), y = fu * std::sin(turn) + fv * std::cos(turn);
		const double d = (x * x) / 0.09 + (y * y) / 0.02;
		if (d < 1.0)
		{
			t.colour = Shade(look.m_Secondary, 0.9 + 0.2 * (1.0 - d));
			t.height = 2.0 * (1.0 - d);
			if (std::fabs(y) < 0.015)
				t.colour = Shade(look.m_Secondary, 0.65);
		}
		break;
	}
	case 2: // embers: glowing dots and a flame hem at the bottom
	{
		const double d = std::sqrt(fu * fu + fv * fv);
		if (d < 0.16)
		{
			t.colour = Mix(look.m_Accent, look.m_Secondary, d / 0.16);
			t.height = 1.5 * (1.0 - d / 0.16);
		}
		const double flame = 0.12 + 0.08 * std::fabs(std::sin(u * kPi * 10.0));
		if (v < flame)
		{
			t.colour = Mix(look.m_Secondary, look.m_Accent, v / flame);
			t.height = 1.0;
		}
		break;
	}
	case 3: // waves: bands that rise and fall, scales between
	{
		const double wave = std::sin(u * kPi * 2.0 * cellsU + std::floor(cv) * 1.3) * 0.18;
		if (std::fabs(fv - wave) < 0.09)
		{
			t.colour = Shade(look.m_Secondary, 1.0 + 0.4 * (0.09 - std::fabs(fv - wave)) / 0.09);
			t.height = 1.5;
		}
		else
			t.height = 0.6 * (1.0 - std::fabs(std::sin(cu * kPi * 2.0)) * std::fabs(std::sin(cv * kPi * 2.0)));
		break;
	}
	case 4: // bark: long furrows
	{
		const double furrow = std::fabs(std::sin((u * cellsU * 2.0 + 0.3 * Noise2(u * 8, v * 3, look.m_nSeed)) * kPi));
		t.colour = Shade(base, 0.75 + 0.35 * furrow);
		t.height = 2.0 * furrow;
		break;
	}
	default:
		break;
	}
	return t;
}

Texel_t Flat(const Vec3 &colour, int seed, double u, double v, double grainScale = 0.03)
{
	Texel_t t;
	t.colour = Shade(colour, 1.0 - grainScale / 2 + grainScale * Noise2(u * 5.0, v * 5.0, seed));
	return t;
}
} // namespace

void PaintHumanoidTextures(const FigureLook_t &look, int size, QImage &colour, QImage &normal)
{
	CAtlasPainter painter(size);
	painter.SetBackground(look.m_Primary);
	const FigureLook_t L = look;

	painter.Add(kHead,
		[L](double u, double v)
		{
			Texel_t t = Flat(L.m_Skin, L.m_nSeed, u, v, 0.05);
			// How much this point looks forward (-Y lies at u = 0.75).
			const double front = std::cos(2.0 * kPi * (u - 0.75));
			// Mouth and cheeks.
			const double du = (u - 0.75) * 4.0, dv = v - 0.375 - 0.02 * du * du;
			if (std::fabs(du) < 0.16 && std::fabs(dv) < 0.008)
			{
				t.colour = Shade(Mix(L.m_Skin, Rgb(120, 30, 30), 0.6), 0.8);
				t.height = -1.5;
			}
			const double cheek = std::pow((u - 0.75 - 0.055) / 0.03, 2) + std::pow((v - 0.43) / 0.035, 2);
			const double cheek2 = std::pow((u - 0.75 + 0.055) / 0.03, 2) + std::pow((v - 0.43) / 0.035, 2);
			if (cheek < 1.0 || cheek2 < 1.0)
				t.colour = Mix(t.colour, Rgb(220, 120, 110), 0.18 * (1.0 - std::min(cheek, cheek2)));
			if (!L.m_bBald)
			{
				// Hair down to the nape behind, up to the brow in front.
				const double hairline = 0.66 + 0.12 * std::max(0.0, front) - 0.22 * std::max(0.0, -front);
				if (v > hairline)
				{
					const double strand = std::fabs(std::sin(u * kPi * 60.0 + 3.0 * Noise2(u * 6, v * 6, L.m_nSeed)));
					t.colour = Shade(L.m_Hair, 0.8 + 0.3 * strand);
					t.height = 1.2 * strand + 1.0;
				}
			}
			return t;
		});
	painter.Add(kTorso,
		[L](double u, double v)
		{
			Texel_t t = Motif(L, L.m_Primary, u, v, 8.0, 6.0);
			// A belt at the waist with a buckle in front, and a collar.
			if (v > 0.165 && v < 0.235)
			{
				t.colour = Flat(L.m_Accent, L.m_nSeed + 3, u, v).colour;
				t.height = 2.0;
				if (std::fabs(u - 0.75) < 0.03)
				{
					t.colour = Rgb(214, 180, 90);
					t.height = 3.0;
				}
			}
			if (v > 0.93)
			{
				t.colour = Shade(L.m_Accent, 0.9);
				t.height = 1.5;
			}
			// Seams down the sides.
			if (std::fabs(u - 0.0) < 0.006 || std::fabs(u - 0.5) < 0.006 || std::fabs(u - 1.0) < 0.006)
				t.height -= 1.0;
			return t;
		});
	painter.Add(kArm,
		[L](double u, double v)
		{
			const double sleeve = L.m_bRobe ? 0.9 : 0.5;
			Texel_t t;
			if (v < sleeve)
				t = Motif(L, L.m_Primary, u, v, 4.0, 4.0);
			else if (v < sleeve + 0.06)
			{
				t = Flat(L.m_Accent, L.m_nSeed + 5, u, v);
				t.height = 2.0;
			}
			else
				t = Flat(L.m_bGloves ? L.m_Accent : L.m_Skin, L.m_nSeed + 7, u, v, 0.05);
			return t;
		});
	painter.Add(kLeg,
		[L](double u, double v)
		{
			Texel_t t;
			if (v < 0.66)
			{
				t = Flat(L.m_Secondary, L.m_nSeed + 9, u, v);
				// Knee patches.
				if (std::fabs(v - 0.5) < 0.06 && std::fabs(u - 0.75) < 0.08)
				{
					t.colour = Shade(L.m_Secondary, 0.8);
					t.height = 1.5;
				}
			}
			else
			{
				t = Flat(Shade(L.m_Accent, 0.55), L.m_nSeed + 11, u, v);
				t.height = v < 0.7 ? 3.0 : 1.0;
			}
			return t;
		});
	painter.Add(kRobe, [L](double u, double v) { return Motif(L, L.m_Primary, u, 1.0 - v, 10.0, 3.0); });
	painter.Add(kHand, [L](double u, double v) { return Flat(L.m_bGloves ? L.m_Accent : L.m_Skin, L.m_nSeed + 13, u, v, 0.05); });
	painter.Add(kFoot, [L](double u, double v) { return Flat(Shade(L.m_Accent, 0.5), L.m_nSeed + 15, u, v); });
	painter.Add(kNeck, [L](double u, double v) { return Flat(L.m_Skin, L.m_nSeed + 17, u, v, 0.04); });
	painter.Add(kSkin, [L](double u, double v) { return Flat(L.m_Skin, L.m_nSeed + 19, u, v, 0.04); });
	painter.Add(kHair,
		[L](double u, double v)
		{
			Texel_t t;
			const double strand = std::fabs(std::sin(u * kPi * 24.0 + 2.0 * Noise2(u * 4, v * 4, L.m_nSeed)));
			t.colour = Shade(L.m_Hair, 0.8 + 0.3 * strand);
			t.height = 1.5 * strand;
			return t;
		});
	painter.Add(kAccent, [L](double u, double v) { return Motif(L, L.m_Accent, u, v, 3.0, 3.0); });
	painter.Add(kEye,
		[L](double, double v)
		{
			Texel_t t;
			if (v > 0.86)
				t.colour = Rgb(12, 12, 16);
			else if (v > 0.7)
				t.colour = Shade(L.m_Eye, 0.8 + (v - 0.7));
			else
				t.colour = Rgb(240, 238, 232);
			return t;
		});
	painter.Paint(colour, normal);
}


std::vector<FbxAnimation_t> BuildHumanoidAnimations(const HumanoidRig_t &rig)
{
	std::vector<FbxAnimation_t> anims;
	const double s = rig.m_Proportions.flScale;

	// Idle: two seconds of breathing, the head looking about, the arms hanging loose.
	{
		CAnimBuilder a(rig.m_Skeleton, "idle", 61);
		const double w = 2.0 * kPi / 2.0;
		a.Move(rig.m_nPelvis, [&](double t) { return Vec3{ 0, 0, -0.35 * s * (1.0 - std::cos(w * t)) }; });
		a.Rotate(rig.m_nSpine1, [&](double t) { return Vec3{ 1.5 * std::sin(w * t), 0, 0 }; });
		a.Rotate(rig.m_nSpine2, [&](double t) { return Vec3{ 1.2 * std::sin(w * t), 0, 1.0 * std::sin(w * t + 1.0) }; });
		a.Scale(rig.m_nSpine2, [&](double t) { const double b = std::sin(w * t); return Vec3{ 1.0 + 0.02 * b, 1.0 + 0.035 * b, 1.0 + 0.01 * b }; });
		a.Rotate(rig.m_nNeck, [&](double t) { return Vec3{ -1.0 * std::sin(w * t), 0, 2.0 * std::sin(w * t + 0.5) }; });
		a.Rotate(rig.m_nHead, [&](double t) { return Vec3{ -1.5 * std::sin(w * t) + 2.0, 0, 6.0 * std::sin(w * t + 1.0) }; });
		for (int side = 0; side < 2; ++side)
		{
			const double sx = side == 0 ? 1.0 : -1.0;
			a.Rotate(rig.m_nUpperArm[side], [&](double t) { return Vec3{ 3.0 * std::sin(w * t + side), 4.0 * sx * (1.0 - std::cos(w * t)) * 0.5, 0 }; });
			a.Rotate(rig.m_nForeArm[side], [&](double t) { return Vec3{ -8.0 - 4.0 * std::sin(w * t + 0.5 + side), 0, 0 }; });
		}
		anims.push_back(a.Take());
	}

	// Run: a one-second cycle; legs and arms swing in opposition, the body leans into it and
	// bobs twice a cycle.
	{
		CAnimBuilder a(rig.m_Skeleton, "run", 31);
		const double w = 2.0 * kPi;
		a.Move(rig.m_nPelvis, [&](double t) { return Vec3{ 0, 0, (-4.0 + 3.0 * std::fabs(std::sin(w * t))) * s }; });
		a.Rotate(rig.m_nPelvis, [&](double t) { return Vec3{ 8.0, 0, 8.0 * std::sin(w * t) }; });
		a.Rotate(rig.m_nSpine1, [&](double t) { return Vec3{ 5.0, 0, -6.0 * std::sin(w * t) }; });
		a.Rotate(rig.m_nSpine2, [&](double t) { return Vec3{ 3.0 + 2.0 * std::sin(2.0 * w * t), 0, -5.0 * std::sin(w * t) }; });
		a.Rotate(rig.m_nNeck, [&](double t) { return Vec3{ -6.0, 0, 2.0 * std::sin(w * t) }; });
		a.Rotate(rig.m_nHead, [&](double t) { return Vec3{ -6.0 + 2.0 * std::sin(2.0 * w * t), 0, 2.0 * std::sin(w * t) }; });
		for (int side = 0; side < 2; ++side)
		{
			const double sx = side == 0 ? 1.0 : -1.0;
			const double phase = side == 0 ? 0.0 : kPi;
			// Forward is -Y: a leg that points down swings forward with a negative turn about X.
			a.Rotate(rig.m_nThigh[side], [&](double t) { return Vec3{ -10.0 - 38.0 * std::sin(w * t + phase), 0, 0 }; });
			a.Rotate(rig.m_nCalf[side], [&](double t) { return Vec3{ 55.0 + 45.0 * std::cos(w * t + phase + 0.6), 0, 0 }; });
			a.Rotate(rig.m_nFoot[side], [&](double t) { return Vec3{ -15.0 * std::sin(w * t + phase + 0.4), 0, 0 }; });
			a.Rotate(rig.m_nClavicle[side], [&](double t) { return Vec3{ 4.0 * std::sin(w * t + phase), 0, 0 }; });
			a.Rotate(rig.m_nUpperArm[side], [&](double t) { return Vec3{ 35.0 * std::sin(w * t + phase), 14.0 * sx, 0 }; });
			a.Rotate(rig.m_nForeArm[side], [&](double t) { return Vec3{ -70.0 - 15.0 * std::sin(w * t + phase), 0, 0 }; });
			a.Rotate(rig.m_nHand[side], [&](double t) { return Vec3{ -10.0, 0, 5.0 * std::sin(w * t + phase) }; });
		}
		anims.push_back(a.Take());
	}

	// Portrait pose: feet apart, chest out, the weapon hand raised, the other on the hip,
	// looking past the camera; still breathing.
	{
		CAnimBuilder a(rig.m_Skeleton, "portrait_pose", 31);
		const double w = 2.0 * kPi;
		a.Rotate(rig.m_nPelvis, [&](double t) { return Vec3{ 0, 0, -10.0 + 1.0 * std::sin(w * t) }; });
		a.Rotate(rig.m_nSpine1, [&](double t) { return Vec3{ -3.0 + 1.0 * std::sin(w * t), 0, 5.0 }; });
		a.Rotate(rig.m_nSpine2, [&](double t) { return Vec3{ -4.0 + 1.5 * std::sin(w * t), 0, 8.0 }; });
		a.Rotate(rig.m_nHead, [&](double t) { return Vec3{ -4.0, 0, -14.0 + 2.0 * std::sin(w * t + 0.8) }; });
		// Right arm: the hand raised before the chest, the weapon held upright in it.
		a.Rotate(rig.m_nUpperArm[1], [&](double t) { return Vec3{ -40.0 + 2.0 * std::sin(w * t), 10.0, 0 }; });
		a.Rotate(rig.m_nForeArm[1], [&](double t) { return Vec3{ -55.0 + 3.0 * std::sin(w * t + 0.4), 0, 0 }; });
		a.Rotate(rig.m_nHand[1], [&](double t) { return Vec3{ 80.0 - 2.0 * std::sin(w * t + 0.4), 0, 0 }; });
		// Left hand on the hip: the arm out, the elbow bent back in.
		a.Rotate(rig.m_nUpperArm[0], [&](double t) { return Vec3{ 8.0, -28.0 + 1.0 * std::sin(w * t), 0 }; });
		a.Rotate(rig.m_nForeArm[0], [&](double t) { return Vec3{ -15.0, 80.0, 0 * t }; });
		a.Rotate(rig.m_nThigh[0], [&](double t) { return Vec3{ -6.0, -9.0, 0 * t }; });
		a.Rotate(rig.m_nThigh[1], [&](double t) { return Vec3{ 5.0, 9.0, 0 * t }; });
		a.Rotate(rig.m_nCalf[0], [&](double t) { return Vec3{ 8.0 + 1.0 * std::sin(w * t), 0, 0 }; });
		a.Rotate(rig.m_nFoot[0], [&](double t) { return Vec3{ -2.0, 9.0, 0 * t }; });
		a.Rotate(rig.m_nFoot[1], [&](double t) { return Vec3{ -5.0, -9.0, 0 * t }; });
		anims.push_back(a.Take());
	}
	return anims;
}

HeroStyle_t HeroStyle(const std::string &hero)
{
	HeroStyle_t style;
	FigureLook_t &l = style.m_Look;
	Proportions_t &p = style.m_Proportions;
	l.m_Name = hero;
	if (hero == "bramble")
	{
		p.flBulk = 0.95;
		p.flShoulderHalf = 15.5;
		p.flHipHalf = 8.2;
		l.m_Skin = Rgb(200, 164, 124);
		l.m_Primary = Rgb(64, 122, 52);
		l.m_Secondary = Rgb(112, 80, 50);
		l.m_Accent = Rgb(96, 72, 42);
		l.m_Hair = Rgb(84, 58, 34);
		l.m_Eye = Rgb(90, 170, 60);
		l.m_nPattern = 1;
		l.m_nSeed = 11;
		l.m_bPointedEars = true;
	}
	else if (hero == "cinder")
	{
		p.flBulk = 0.9;
		p.flShoulderHalf = 15.0;
		p.flArmAngle = 28.0;
		l.m_Skin = Rgb(238, 204, 176);
		l.m_Primary = Rgb(172, 38, 26);
		l.m_Secondary = Rgb(242, 124, 32);
		l.m_Accent = Rgb(204, 162, 62);
		l.m_Hair = Rgb(242, 112, 32);
		l.m_Eye = Rgb(255, 140, 30);
		l.m_nPattern = 2;
		l.m_nSeed = 21;
		l.m_bRobe = true;
	}
	else if (hero == "tidewarden")
	{
		p.flScale = 1.04;
		p.flBulk = 1.12;
		p.flShoulderHalf = 17.0;
		p.flHipHalf = 9.0;
		l.m_Skin = Rgb(112, 172, 182);
		l.m_Primary = Rgb(30, 68, 132);
		l.m_Secondary = Rgb(30, 142, 142);
		l.m_Accent = Rgb(210, 226, 232);
		l.m_Hair = Rgb(20, 92, 112);
		l.m_Eye = Rgb(250, 230, 120);
		l.m_nPattern = 3;
		l.m_nSeed = 31;
		l.m_bFins = true;
		l.m_bBald = true;
	}
	else
	{
		l.m_Skin = Rgb(172, 172, 178);
		l.m_Primary = Rgb(132, 132, 142);
		l.m_Secondary = Rgb(112, 112, 122);
		l.m_Accent = Rgb(92, 92, 102);
		l.m_Hair = Rgb(80, 80, 86);
		l.m_Eye = Rgb(60, 60, 72);
		l.m_nSeed = 41;
		l.m_bBald = true;
	}
	return style;
}
} // namespace sampleart
