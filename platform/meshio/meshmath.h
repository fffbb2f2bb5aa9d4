// Small math for source meshes: transforms, quaternion helpers and 4x4 affine matrices in
// double precision. A matrix acts on column vectors (p' = M p): m[row][3] is the translation.
#pragma once

#include <cmath>

#include "core/mathtypes.h"

// Translation, rotation and scale, applied as T * R * S.
struct SourceTransform_t
{
	Vector position;
	Quaternion orientation;
	Vector scale = Vector(1.0f, 1.0f, 1.0f);

	bool operator==(const SourceTransform_t &other) const = default;
};

struct Matrix4_t
{
	double m[4][4] = { { 1, 0, 0, 0 }, { 0, 1, 0, 0 }, { 0, 0, 1, 0 }, { 0, 0, 0, 1 } };

	static Matrix4_t Identity() { return Matrix4_t(); }
	bool IsIdentity(double tolerance = 0.0) const;
	bool operator==(const Matrix4_t &other) const;
};

Matrix4_t MatrixMultiply(const Matrix4_t &a, const Matrix4_t &b); // a * b
// Inverse of a general 4x4 matrix; false (and identity) when it is singular.
bool MatrixInverse(const Matrix4_t &in, Matrix4_t &out);
Matrix4_t MatrixTranslation(double x, double y, double z);
Matrix4_t MatrixScale(double x, double y, double z);
Matrix4_t MatrixFromQuaternion(const Quaternion &q);
Matrix4_t MatrixFromTransform(const SourceTransform_t &transform);
// Splits an affine matrix into translation, rotation and scale (a negative determinant puts the
// reflection into the x scale). Shear is lost.
SourceTransform_t TransformFromMatrix(const Matrix4_t &matrix);
Vector MatrixTransformPoint(const Matrix4_t &matrix, const Vector &point);
Vector MatrixTransformDirection(const Matrix4_t &matrix, const Vector &direction);

Quaternion QuaternionNormalize(const Quaternion &q);
Quaternion QuaternionMultiply(const Quaternion &a, const Quaternion &b);
// Spherical interpolation along the shorter arc.
Quaternion QuaternionSlerp(const Quaternion &a, const Quaternion &b, float t);
Quaternion QuaternionFromMatrix(const Matrix4_t &rotation);

// Euler rotations in degrees. The order names the axes in the order they are applied to a
// vector: EULER_XYZ rotates about X first, then Y, then Z (matrix Rz * Ry * Rx).
enum EulerOrder_t
{
	EULER_XYZ = 0,
	EULER_XZY,
	EULER_YZX,
	EULER_YXZ,
	EULER_ZXY,
	EULER_ZYX,
};
Matrix4_t MatrixFromEulerDegrees(const Vector &angles, EulerOrder_t order);

// The turn of a source's up axis ('X', 'Y' or 'Z', as a scene reports it) to +Z, the compiled
// models' up: Y-up (x, y, z) -> (x, -z, y), X-up (x, y, z) -> (-z, y, x), Z-up unchanged.
Matrix4_t MatrixUpAxisToZ(char upAxis);
