// Float math of the tool scene: vectors, quaternions, angles and 4x4 matrices.
//
// Conventions (the same everywhere in the scene):
// - The world is right-handed with Z up; distances are game units.
// - A matrix acts on column vectors (p' = M p); m[row][3] holds the translation. The GL
//   uniforms take the matrices transposed (GL_TRUE).
// - QAngle is pitch, yaw, roll in degrees. The rotation of angles is Rz(yaw) * Ry(pitch) *
//   Rx(roll): the local X axis is "forward" (cos p cos y, cos p sin y, -sin p), so a positive
//   pitch looks down; the local Y axis is "left" and Z is "up".
// - A quaternion (x, y, z, w) is Hamilton's: the matrix of a * b is the matrix of a times the
//   matrix of b.
#pragma once

#include <cmath>

#include "core/mathtypes.h"

// ---------------------------------------------------------------------------------------------
// Vectors

inline Vector operator+(const Vector &a, const Vector &b) { return Vector(a.x + b.x, a.y + b.y, a.z + b.z); }
inline Vector operator-(const Vector &a, const Vector &b) { return Vector(a.x - b.x, a.y - b.y, a.z - b.z); }
inline Vector operator-(const Vector &a) { return Vector(-a.x, -a.y, -a.z); }
inline Vector operator*(const Vector &a, float s) { return Vector(a.x * s, a.y * s, a.z * s); }
inline Vector operator*(float s, const Vector &a) { return Vector(a.x * s, a.y * s, a.z * s); }
inline Vector &operator+=(Vector &a, const Vector &b) { a.x += b.x; a.y += b.y; a.z += b.z; return a; }
inline Vector &operator-=(Vector &a, const Vector &b) { a.x -= b.x; a.y -= b.y; a.z -= b.z; return a; }

inline float SceneDot(const Vector &a, const Vector &b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Vector SceneCross(const Vector &a, const Vector &b)
{
	return Vector(a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x);
}
inline float SceneLength(const Vector &a) { return std::sqrt(SceneDot(a, a)); }
// The unit vector of `a`, or zero for a vector too short to have a direction.
Vector SceneNormalize(const Vector &a);
inline Vector SceneMultiply(const Vector &a, const Vector &b) { return Vector(a.x * b.x, a.y * b.y, a.z * b.z); }
inline Vector SceneLerp(const Vector &a, const Vector &b, float t) { return a + (b - a) * t; }

constexpr float SCENE_PI = 3.14159265358979323846f;
inline float SceneDegrees(float radians) { return radians * (180.0f / SCENE_PI); }
inline float SceneRadians(float degrees) { return degrees * (SCENE_PI / 180.0f); }

// ---------------------------------------------------------------------------------------------
// Quaternions

Quaternion SceneQuaternionMultiply(const Quaternion &a, const Quaternion &b);
Quaternion SceneQuaternionNormalize(const Quaternion &q);
Quaternion SceneQuaternionConjugate(const Quaternion &q);
// Spherical interpolation along the shorter arc (t 0 gives a, 1 gives b).
Quaternion SceneQuaternionSlerp(const Quaternion &a, const Quaternion &b, float t);
Quaternion SceneQuaternionFromAxisAngle(const Vector &axis, float radians);
Vector SceneQuaternionRotate(const Quaternion &q, const Vector &v);
Quaternion SceneQuaternionFromAngles(const QAngle &angles);
QAngle SceneQuaternionToAngles(const Quaternion &q);

// ---------------------------------------------------------------------------------------------
// Matrices

struct SceneMatrix_t
{
	float m[4][4] = { { 1, 0, 0, 0 }, { 0, 1, 0, 0 }, { 0, 0, 1, 0 }, { 0, 0, 0, 1 } };

	Vector GetColumn(int c) const { return Vector(m[0][c], m[1][c], m[2][c]); }
	void SetColumn(int c, const Vector &v) { m[0][c] = v.x; m[1][c] = v.y; m[2][c] = v.z; }
	Vector GetTranslation() const { return GetColumn(3); }
	void SetTranslation(const Vector &v) { SetColumn(3, v); }
};

SceneMatrix_t operator*(const SceneMatrix_t &a, const SceneMatrix_t &b);
Vector SceneTransformPoint(const SceneMatrix_t &m, const Vector &p);
Vector SceneTransformDirection(const SceneMatrix_t &m, const Vector &d);
// The inverse of a general 4x4 matrix; false (and the identity) when it is singular.
bool SceneMatrixInverse(const SceneMatrix_t &in, SceneMatrix_t &out);
// The inverse of a rigid or scaled affine matrix (no projection row).
SceneMatrix_t SceneAffineInverse(const SceneMatrix_t &m);

SceneMatrix_t SceneMatrixFromAngles(const QAngle &angles, const Vector &position = Vector());
SceneMatrix_t SceneMatrixFromQuaternion(const Quaternion &q, const Vector &position = Vector());
// Translation * rotation * scale.
SceneMatrix_t SceneMatrixFromTransform(const Vector &position, const Quaternion &rotation, const Vector &scale);
SceneMatrix_t SceneMatrixFromPositionAnglesScale(const Vector &position, const QAngle &angles, const Vector &scale);
// The angles of the rotation part (the columns are normalised first, so scale does not matter).
QAngle SceneMatrixToAngles(const SceneMatrix_t &m);
Quaternion SceneMatrixToQuaternion(const SceneMatrix_t &m);
// The length of each of the first three columns.
Vector SceneMatrixScale(const SceneMatrix_t &m);

inline Vector SceneAnglesForward(const QAngle &angles) { return SceneMatrixFromAngles(angles).GetColumn(0); }
// Angles that look along `direction` (roll 0).
QAngle SceneAnglesFromDirection(const Vector &direction);

// ---------------------------------------------------------------------------------------------
// Ray tests

// Möller-Trumbore: the distance along the ray to the triangle, both sides counted; false when
// it misses.
bool SceneRayTriangle(const Vector &origin, const Vector &direction, const Vector &a, const Vector &b, const Vector &c,
	float &outDistance);
// Slab test against an axis-aligned box; `outDistance` is where the ray enters (0 inside).
bool SceneRayBox(const Vector &origin, const Vector &direction, const Vector &mins, const Vector &maxs, float &outDistance);
