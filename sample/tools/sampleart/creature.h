// Four-legged creatures of the sample: the couriers (on foot, and flying with wings) and a hero's
// mount. The bone names of a courier are the ones the courier template names ("root",
// "spine_1", "head"); a mount's bones other than "root" carry the prefix "mount_", so that they
// never take the place of a hero's bones of the same name.
#pragma once

#include <QImage>

#include <string>
#include <vector>

#include "fbxwriter.h"

namespace sampleart
{
struct CreatureProportions_t
{
	double flScale = 1.0;
	double flLegLength = 1.0; // relative to a courier's
	double flNeckRise = 1.0;
	bool bWings = false;
	std::string m_Prefix; // put before every bone name but "root"
};

struct CreatureRig_t
{
	CreatureProportions_t m_Proportions;
	CSkeleton m_Skeleton;
	int m_nRoot = -1, m_nPelvis = -1, m_nSpine = -1, m_nNeck = -1, m_nHead = -1, m_nTail1 = -1, m_nTail2 = -1;
	int m_nLegUpper[4] = {}, m_nLegLower[4] = {}; // front left, front right, back left, back right
	int m_nWing[2] = { -1, -1 }, m_nWingTip[2] = { -1, -1 };
	Vec3 m_Foot[4];
	Vec3 m_HeadCentre;
	double m_flHeadRadius = 6.0;
};

struct CreatureLook_t
{
	std::string m_Name;
	Vec3 m_Body, m_Belly, m_Accent, m_Eye, m_Wing;
	int m_nSeed = 1;
	bool m_bShell = false;	// a tortoise's shell over the back
	bool m_bSaddle = false; // a saddle
	bool m_bSaddleBags = true; // and bags on it
	bool m_bFins = false;	// fins on the legs, the neck and the tail
	bool m_bHorns = false;
	bool m_bLongEars = false;
};

CreatureRig_t BuildCreatureRig(const CreatureProportions_t &proportions);
CArtMesh BuildCreatureBody(const CreatureRig_t &rig, const CreatureLook_t &look, double detail);
// The saddle's bags alone, as a mesh of their own that follows no bone.
CArtMesh BuildSaddleBags(const CreatureRig_t &rig, const std::string &name);
void PaintCreatureTextures(const CreatureLook_t &look, int size, QImage &colour, QImage &normal);

// On the ground: "idle" (2 s) and "run" (a gallop, 1 s). In the air (a rig with wings):
// "fly_idle" (hovering, 1 s) and "fly" (flying forward, 1 s).
std::vector<FbxAnimation_t> BuildCreatureAnimations(const CreatureRig_t &rig, bool flying);
// A courier's other animations on the ground: "spawn" (it springs up from a crouch and shakes
// itself, 1 s), "run_turn_left" and "run_turn_right" (the gallop bending into a turn, 1 s).
std::vector<FbxAnimation_t> BuildCourierExtraAnimations(const CreatureRig_t &rig);
} // namespace sampleart
