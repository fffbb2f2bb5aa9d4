// Humanoid figures of the sample heroes and units: a skeleton with the bone names the game's
// scripts use, a closed skinned body with a face, its colour and normal maps, and the "idle",
// "run" and "portrait_pose" animations.
#pragma once

#include <QImage>

#include <string>
#include <vector>

#include "fbxwriter.h"

namespace sampleart
{
struct Proportions_t
{
	double flScale = 1.0;		  // the whole figure
	double flBulk = 1.0;		  // girth of torso and limbs
	double flShoulderHalf = 16.0; // from the spine to the shoulder joint
	double flHipHalf = 8.5;
	double flArmAngle = 30.0; // the arms' angle from the vertical at bind time
	double flUpperArm = 26.0;
	double flForeArm = 23.0;
	double flThigh = 34.0;
	double flCalf = 33.0;
	double flHeadSize = 1.0;
};

// Bones of the left (0, +X) and right (1, -X) sides share an index into these arrays.
struct HumanoidRig_t
{
	Proportions_t m_Proportions;
	CSkeleton m_Skeleton;
	int m_nRoot = -1, m_nPelvis = -1, m_nSpine1 = -1, m_nSpine2 = -1, m_nNeck = -1, m_nHead = -1;
	int m_nClavicle[2] = {}, m_nUpperArm[2] = {}, m_nForeArm[2] = {}, m_nHand[2] = {};
	int m_nThigh[2] = {}, m_nCalf[2] = {}, m_nFoot[2] = {};
	Vec3 m_Shoulder[2], m_Elbow[2], m_Wrist[2], m_Hip[2], m_Knee[2], m_Ankle[2];
	Vec3 m_ArmDir[2], m_ForeArmDir[2];
	Vec3 m_HeadCentre;
	Vec3 m_HeadRadii;
	double m_flShoulderZ = 0.0;

	// A point in the hand's grip: where a held weapon's shaft passes.
	Vec3 Grip(int side) const { return m_Wrist[side] + m_ForeArmDir[side] * (4.2 * m_Proportions.flScale); }
};

// What a figure looks like beyond its proportions.
struct FigureLook_t
{
	std::string m_Name; // the mesh's and material's name
	Vec3 m_Skin, m_Primary, m_Secondary, m_Accent, m_Hair, m_Eye;
	int m_nPattern = 0; // 0 plain, 1 leaves, 2 embers, 3 waves, 4 bark
	int m_nSeed = 1;
	bool m_bPointedEars = false;
	bool m_bBeard = false;
	bool m_bRobe = false;
	bool m_bFins = false;
	bool m_bThorns = false;
	bool m_bTail = false; // a spirit's tail in place of legs
	bool m_bBald = false;
	bool m_bGloves = false;
	double m_flHunch = 0.0; // a bent back in degrees, for an old figure
};

// The looks and proportions of the sample heroes by their short name ("bramble"); a hero the
// table does not know is drawn in the mannequin's grey.
struct HeroStyle_t
{
	Proportions_t m_Proportions;
	FigureLook_t m_Look;
};
HeroStyle_t HeroStyle(const std::string &hero);

HumanoidRig_t BuildHumanoidRig(const Proportions_t &proportions);

// The body as one mesh of closed shells; `detail` scales the number of segments (1 is a hero's
// level of detail).
CArtMesh BuildHumanoidBody(const HumanoidRig_t &rig, const FigureLook_t &look, double detail);

// The colour and normal maps of a body, `size` pixels a side.
void PaintHumanoidTextures(const FigureLook_t &look, int size, QImage &colour, QImage &normal);

// "idle" (breathing, 2 s), "run" (a run cycle, 1 s) and "portrait_pose" (a held heroic pose, 1 s),
// 30 frames a second, every one looping.
std::vector<FbxAnimation_t> BuildHumanoidAnimations(const HumanoidRig_t &rig);

// The atlas rectangles of a humanoid's texture, shared by the body and the painter.
namespace humanoidatlas
{
extern const UVRect_t kHead, kTorso, kArm, kLeg, kHand, kFoot, kNeck, kEye, kSkin, kHair, kAccent;
}
} // namespace sampleart
