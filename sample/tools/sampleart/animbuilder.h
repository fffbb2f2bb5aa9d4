// Builds an animation track by track from functions of the time in seconds, sampled once a
// frame.
#pragma once

#include <utility>

#include "fbxwriter.h"

namespace sampleart
{
class CAnimBuilder
{
public:
	CAnimBuilder(const CSkeleton &skeleton, const char *name, int frames) : m_Skeleton(skeleton)
	{
		m_Anim.m_Name = name;
		m_Anim.m_nFrames = frames;
	}

	// Rotation in degrees about X, then Y, then Z of the bone's bind frame.
	template <typename Fn> void Rotate(int bone, Fn fn) { Track(bone, 'R', fn); }
	// The function gives the offset from the bind position.
	template <typename Fn> void Move(int bone, Fn fn)
	{
		const Vec3 bind = m_Skeleton.m_Bones[bone].m_LocalTranslation;
		Track(bone, 'T', [&](double t) { return bind + fn(t); });
	}
	template <typename Fn> void Scale(int bone, Fn fn) { Track(bone, 'S', fn); }

	FbxAnimation_t Take() { return std::move(m_Anim); }

private:
	template <typename Fn> void Track(int bone, char kind, Fn fn)
	{
		if (bone < 0)
			return;
		FbxTrack_t track;
		track.m_nBone = bone;
		track.m_cKind = kind;
		for (int f = 0; f < m_Anim.m_nFrames; ++f)
			track.m_Values.push_back(fn(double(f) / m_Anim.m_nFrameRate));
		m_Anim.m_Tracks.push_back(std::move(track));
	}

	const CSkeleton &m_Skeleton;
	FbxAnimation_t m_Anim;
};
} // namespace sampleart
