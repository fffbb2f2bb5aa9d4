// Animation playback of compiled sequences on the CPU: the pose of a skeleton at a point of a
// sequence, with delta sequences, add layers, weight lists and one-dimensional blends over
// pose parameters, and the bone matrices that skinning and attachments use.
//
// How a sequence is read (the compiled model's records):
// - A plain sequence stores F frames of every bone's transform relative to its parent. Its
//   cycle runs from 0 (frame 0) to 1 (frame F - 1); between stored frames the translation and
//   scale are interpolated linearly and the rotation spherically. A looping sequence wraps at
//   frame F - 1, which holds the same pose as frame 0; a sequence that does not loop stops there.
// - A delta sequence stores differences to another pose: translation t - t0, rotation
//   conj(q0) * q and scale s / s0. Applied on top of a pose it gives t + dt, q * dq, s * ds.
//   Played alone it is applied to the bind pose.
// - A blend (no frames of its own, a pose parameter and blend keys) evaluates the two keys
//   around the parameter's value at the same cycle and interpolates between them; outside the
//   keys it holds the nearest one. A blend whose `delta` is set gives differences.
// - Add layers are evaluated at the cycle of the sequence they are layered on and applied on
//   top of it, each through its own weight list when it has one: a plain layer blends towards
//   its pose by the bone's weight, a delta layer adds that part of its difference.
// - The frame count, rate and looping of a blend are those of its first key's sequence.
#pragma once

#include <string_view>
#include <vector>

#include "compiledassets/compiledassets.h"
#include "toolscene/scenemath.h"

struct SceneBoneTransform_t
{
	Vector m_vPosition;
	Quaternion m_qRotation;
	Vector m_vScale = Vector(1.0f, 1.0f, 1.0f);
};

// One transform per skeleton bone, relative to the bone's parent.
typedef std::vector<SceneBoneTransform_t> ScenePose_t;

// The bind pose of the skeleton.
void ScenePose_Bind(const CCompiledModel &model, ScenePose_t &pose);
// Bone-to-model matrices of a pose (parents before children, as the compiled skeleton keeps them).
void ScenePose_ToModelSpace(const CCompiledModel &model, const ScenePose_t &pose, std::vector<SceneMatrix_t> &boneToModel);

// The sequence that plays an activity (compared without case), or -1. When several sequences
// name it, the one of the greatest weight wins, and the first of them on a tie.
int ToolScene_FindSequenceForActivity(const CCompiledModel &model, std::string_view activity);

// Playback state of one model: which sequence, where in it, how fast, and the pose parameters.
class CToolSceneAnimator
{
public:
	// Rebinds to a model (or none): the sequence goes back to -1, pose parameters to their
	// defaults (0 held inside the parameter's range).
	void SetModel(const CCompiledModel *pModel);
	const CCompiledModel *GetModel() const { return m_pModel; }

	// -1 shows the bind pose. An index outside the model's list is taken as -1. Starts at frame 0.
	void SetSequence(int nSequence);
	// False (and no change) when the model has no sequence of that name.
	bool SetSequenceByName(std::string_view name);
	int GetSequence() const { return m_nSequence; }

	void SetPlaying(bool bPlaying) { m_bPlaying = bPlaying; }
	bool IsPlaying() const { return m_bPlaying; }
	// A multiplier of the sequence's own rate (negative plays backwards).
	void SetPlaybackRate(float flRate) { m_flRate = flRate; }
	float GetPlaybackRate() const { return m_flRate; }

	// Frames of the current sequence (a blend's are its first key's); 0 without a sequence.
	int GetFrameCount() const;
	float GetFramesPerSecond() const;
	bool IsLooping() const;
	// The current frame, fractional between stored frames.
	float GetFrame() const { return m_flFrame; }
	// Sets the frame: wrapped into the sequence when it loops, held inside it otherwise.
	void SetFrame(float flFrame);
	// 0 at frame 0, 1 at the last frame.
	float GetCycle() const;

	// Moves the frame on by `flSeconds` of playback when playing.
	void Advance(float flSeconds);

	int GetPoseParameterCount() const { return (int)m_PoseParameters.size(); }
	// Values are held inside the parameter's range. False for an unknown parameter.
	bool SetPoseParameter(int nIndex, float flValue);
	bool SetPoseParameterByName(std::string_view name, float flValue);
	float GetPoseParameter(int nIndex) const;

	// The pose at the current frame.
	void Evaluate(ScenePose_t &pose) const;
	// The pose of sequence `nSequence` at `flCycle` (0 to 1) with the current pose parameters.
	void EvaluateSequence(int nSequence, float flCycle, ScenePose_t &pose) const;

private:
	// The sequence whose frames give the timing of `nSequence` (itself, or a blend's first key).
	int TimingSequence(int nSequence) const;
	// The sequence's own values at a cycle (differences for a delta sequence); false when it
	// has none (nothing animated).
	bool Sample(int nSequence, float flCycle, ScenePose_t &out, int nDepth) const;
	// Applies a sequence and its layers on top of `pose`.
	void Apply(int nSequence, float flCycle, ScenePose_t &pose, int nDepth) const;

	const CCompiledModel *m_pModel = nullptr;
	int m_nSequence = -1;
	float m_flFrame = 0.0f;
	float m_flRate = 1.0f;
	bool m_bPlaying = true;
	std::vector<float> m_PoseParameters;
};
