#include "toolscene/scenemath.h"

#include <algorithm>

Vector SceneNormalize(const Vector &a)
{
	const float length = SceneLength(a);
	if (!(length > 1e-20f))
		return Vector();
	return a * (1.0f / length);
}

Quaternion SceneQuaternionMultiply(const Quaternion &a, const Quaternion &b)
{
	return Quaternion(a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y,
		a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
		a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w,
		a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z);
}

Quaternion SceneQuaternionNormalize(const Quaternion &q)
{
	const float length = std::sqrt(q.x * q.x + q.y * q.y + q.z * q.z + q.w * q.w);
	if (!(length > 1e-20f))
		return Quaternion();
	const float s = 1.0f / length;
	return Quaternion(q.x * s, q.y * s, q.z * s, q.w * s);
}

Quaternion SceneQuaternionConjugate(const Quaternion &q)
{
	return Quaternion(-q.x, -q.y, -q.z, q.w);
}

Quaternion SceneQuaternionSlerp(const Quaternion &a, const Quaternion &b, float t)
{
	float cosine = a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w;
	Quaternion end = b;
	if (cosine < 0.0f)
	{
		cosine = -cosine;
		end = Quaternion(-b.x, -b.y, -b.z, -b.w);
	}
	float wa, wb;
	if (cosine > 0.9995f)
	{
		// Nearly the same rotation: a normalised straight line is exact enough.
		wa = 1.0f - t;
		wb = t;
	}
	else
	{
		const float angle = std::acos(std::min(cosine, 1.0f));
		const float sine = std::sin(angle);
		wa = std::sin((1.0f - t) * angle) / sine;
		wb = std::sin(t * angle) / sine;
	}
	return SceneQuaternionNormalize(
		Quaternion(a.x * wa + end.x * wb, a.y * wa + end.y * wb, a.z * wa + end.z * wb, a.w * wa + end.w * wb));
}

Quaternion SceneQuaternionFromAxisAngle(const Vector &axis, float radians)
{
	const Vector unit = SceneNormalize(axis);
	const float s = std::sin(radians * 0.5f);
	return Quaternion(unit.x * s, unit.y * s, unit.z * s, std::cos(radians * 0.5f));
}

Vector SceneQuaternionRotate(const Quaternion &q, const Vector &v)
{
	const Vector u(q.x, q.y, q.z);
	const Vector t = SceneCross(u, v) * 2.0f;
	return v + t * q.w + SceneCross(u, t);
}

Quaternion SceneQuaternionFromAngles(const QAngle &angles)
{
	return SceneMatrixToQuaternion(SceneMatrixFromAngles(angles));
}

QAngle SceneQuaternionToAngles(const Quaternion &q)
{
	return SceneMatrixToAngles(SceneMatrixFromQuaternion(q));
}

SceneMatrix_t operator*(const SceneMatrix_t &a, const SceneMatrix_t &b)
{
	SceneMatrix_t out;
	for (int r = 0; r < 4; ++r)
	{
		for (int c = 0; c < 4; ++c)
			out.m[r][c] = a.m[r][0] * b.m[0][c] + a.m[r][1] * b.m[1][c] + a.m[r][2] * b.m[2][c] + a.m[r][3] * b.m[3][c];
	}
	return out;
}

Vector SceneTransformPoint(const SceneMatrix_t &m, const Vector &p)
{
	return Vector(m.m[0][0] * p.x + m.m[0][1] * p.y + m.m[0][2] * p.z + m.m[0][3],
		m.m[1][0] * p.x + m.m[1][1] * p.y + m.m[1][2] * p.z + m.m[1][3],
		m.m[2][0] * p.x + m.m[2][1] * p.y + m.m[2][2] * p.z + m.m[2][3]);
}

Vector SceneTransformDirection(const SceneMatrix_t &m, const Vector &d)
{
	return Vector(m.m[0][0] * d.x + m.m[0][1] * d.y + m.m[0][2] * d.z, m.m[1][0] * d.x + m.m[1][1] * d.y + m.m[1][2] * d.z,
		m.m[2][0] * d.x + m.m[2][1] * d.y + m.m[2][2] * d.z);
}

bool SceneMatrixInverse(const SceneMatrix_t &in, SceneMatrix_t &out)
{
	// Gauss-Jordan elimination with partial pivoting, in double precision.
	double a[4][8];
	for (int r = 0; r < 4; ++r)
	{
		for (int c = 0; c < 4; ++c)
		{
			a[r][c] = in.m[r][c];
			a[r][c + 4] = r == c ? 1.0 : 0.0;
		}
	}
	for (int c = 0; c < 4; ++c)
	{
		int pivot = c;
		for (int r = c + 1; r < 4; ++r)
		{
			if (std::fabs(a[r][c]) > std::fabs(a[pivot][c]))
				pivot = r;
		}
		if (!(std::fabs(a[pivot][c]) > 1e-30))
		{
			out = SceneMatrix_t();
			return false;
		}
		if (pivot != c)
		{
			for (int k = 0; k < 8; ++k)
				std::swap(a[c][k], a[pivot][k]);
		}
		const double scale = 1.0 / a[c][c];
		for (int k = 0; k < 8; ++k)
			a[c][k] *= scale;
		for (int r = 0; r < 4; ++r)
		{
			if (r == c || a[r][c] == 0.0)
				continue;
			const double factor = a[r][c];
			for (int k = 0; k < 8; ++k)
				a[r][k] -= factor * a[c][k];
		}
	}
	for (int r = 0; r < 4; ++r)
	{
		for (int c = 0; c < 4; ++c)
			out.m[r][c] = (float)a[r][c + 4];
	}
	return true;
}

SceneMatrix_t SceneAffineInverse(const SceneMatrix_t &m)
{
	SceneMatrix_t out;
	if (!SceneMatrixInverse(m, out))
		return SceneMatrix_t();
	return out;
}

SceneMatrix_t SceneMatrixFromAngles(const QAngle &angles, const Vector &position)
{
	const float p = SceneRadians(angles.x), y = SceneRadians(angles.y), r = SceneRadians(angles.z);
	const float sp = std::sin(p), cp = std::cos(p);
	const float sy = std::sin(y), cy = std::cos(y);
	const float sr = std::sin(r), cr = std::cos(r);
	SceneMatrix_t out;
	out.SetColumn(0, Vector(cp * cy, cp * sy, -sp));
	out.SetColumn(1, Vector(sr * sp * cy - cr * sy, sr * sp * sy + cr * cy, sr * cp));
	out.SetColumn(2, Vector(cr * sp * cy + sr * sy, cr * sp * sy - sr * cy, cr * cp));
	out.SetColumn(3, position);
	return out;
}

SceneMatrix_t SceneMatrixFromQuaternion(const Quaternion &q, const Vector &position)
{
	const float xx = q.x * q.x, yy = q.y * q.y, zz = q.z * q.z;
	const float xy = q.x * q.y, xz = q.x * q.z, yz = q.y * q.z;
	const float wx = q.w * q.x, wy = q.w * q.y, wz = q.w * q.z;
	SceneMatrix_t out;
	out.m[0][0] = 1.0f - 2.0f * (yy + zz);
	out.m[0][1] = 2.0f * (xy - wz);
	out.m[0][2] = 2.0f * (xz + wy);
	out.m[1][0] = 2.0f * (xy + wz);
	out.m[1][1] = 1.0f - 2.0f * (xx + zz);
	out.m[1][2] = 2.0f * (yz - wx);
	out.m[2][0] = 2.0f * (xz - wy);
	out.m[2][1] = 2.0f * (yz + wx);
	out.m[2][2] = 1.0f - 2.0f * (xx + yy);
	out.SetColumn(3, position);
	return out;
}

// Scales the first three columns: the matrix then applies the scale before its rotation.
static SceneMatrix_t ScaleAxes(SceneMatrix_t m, const Vector &scale)
{
	for (int r = 0; r < 3; ++r)
	{
		m.m[r][0] *= scale.x;
		m.m[r][1] *= scale.y;
		m.m[r][2] *= scale.z;
	}
	return m;
}

SceneMatrix_t SceneMatrixFromTransform(const Vector &position, const Quaternion &rotation, const Vector &scale)
{
	return ScaleAxes(SceneMatrixFromQuaternion(rotation, position), scale);
}

SceneMatrix_t SceneMatrixFromPositionAnglesScale(const Vector &position, const QAngle &angles, const Vector &scale)
{
	return ScaleAxes(SceneMatrixFromAngles(angles, position), scale);
}

QAngle SceneMatrixToAngles(const SceneMatrix_t &m)
{
	const Vector forward = SceneNormalize(m.GetColumn(0));
	const Vector left = SceneNormalize(m.GetColumn(1));
	const Vector up = SceneNormalize(m.GetColumn(2));
	const float xyLength = std::sqrt(forward.x * forward.x + forward.y * forward.y);
	QAngle out;
	out.x = SceneDegrees(std::atan2(-forward.z, xyLength));
	if (xyLength > 1e-4f)
	{
		out.y = SceneDegrees(std::atan2(forward.y, forward.x));
		out.z = SceneDegrees(std::atan2(left.z, up.z));
	}
	else
	{
		// Looking straight up or down: yaw and roll turn about the same axis; roll takes none.
		out.y = SceneDegrees(std::atan2(-left.x, left.y));
		out.z = 0.0f;
	}
	return out;
}

Quaternion SceneMatrixToQuaternion(const SceneMatrix_t &in)
{
	SceneMatrix_t m = in;
	for (int c = 0; c < 3; ++c)
		m.SetColumn(c, SceneNormalize(in.GetColumn(c)));
	const float trace = m.m[0][0] + m.m[1][1] + m.m[2][2];
	Quaternion q;
	if (trace > 0.0f)
	{
		const float s = std::sqrt(trace + 1.0f) * 2.0f;
		q = Quaternion((m.m[2][1] - m.m[1][2]) / s, (m.m[0][2] - m.m[2][0]) / s, (m.m[1][0] - m.m[0][1]) / s, 0.25f * s);
	}
	else if (m.m[0][0] > m.m[1][1] && m.m[0][0] > m.m[2][2])
	{
		const float s = std::sqrt(1.0f + m.m[0][0] - m.m[1][1] - m.m[2][2]) * 2.0f;
		q = Quaternion(0.25f * s, (m.m[0][1] + m.m[1][0]) / s, (m.m[0][2] + m.m[2][0]) / s, (m.m[2][1] - m.m[1][2]) / s);
	}
	else if (m.m[1][1] > m.m[2][2])
	{
		const float s = std::sqrt(1.0f + m.m[1][1] - m.m[0][0] - m.m[2][2]) * 2.0f;
		q = Quaternion((m.m[0][1] + m.m[1][0]) / s, 0.25f * s, (m.m[1][2] + m.m[2][1]) / s, (m.m[0][2] - m.m[2][0]) / s);
	}
	else
	{
		const float s = std::sqrt(1.0f + m.m[2][2] - m.m[0][0] - m.m[1][1]) * 2.0f;
		q = Quaternion((m.m[0][2] + m.m[2][0]) / s, (m.m[1][2] + m.m[2][1]) / s, 0.25f * s, (m.m[1][0] - m.m[0][1]) / s);
	}
	return SceneQuaternionNormalize(q);
}

Vector SceneMatrixScale(const SceneMatrix_t &m)
{
	return Vector(SceneLength(m.GetColumn(0)), SceneLength(m.GetColumn(1)), SceneLength(m.GetColumn(2)));
}

QAngle SceneAnglesFromDirection(const Vector &direction)
{
	const float xyLength = std::sqrt(direction.x * direction.x + direction.y * direction.y);
	QAngle out;
	out.x = SceneDegrees(std::atan2(-direction.z, xyLength));
	out.y = xyLength > 1e-6f ? SceneDegrees(std::atan2(direction.y, direction.x)) : 0.0f;
	return out;
}

bool SceneRayTriangle(const Vector &origin, const Vector &direction, const Vector &a, const Vector &b, const Vector &c,
	float &outDistance)
{
	const Vector edge1 = b - a;
	const Vector edge2 = c - a;
	const Vector p = SceneCross(direction, edge2);
	const float determinant = SceneDot(edge1, p);
	if (std::fabs(determinant) < 1e-12f)
		return false;
	const float inverse = 1.0f / determinant;
	const Vector t = origin - a;
	const float u = SceneDot(t, p) * inverse;
	if (u < 0.0f || u > 1.0f)
		return false;
	const Vector q = SceneCross(t, edge1);
	const float v = SceneDot(direction, q) * inverse;
	if (v < 0.0f || u + v > 1.0f)
		return false;
	const float distance = SceneDot(edge2, q) * inverse;
	if (distance < 0.0f)
		return false;
	outDistance = distance;
	return true;
}

bool SceneRayBox(const Vector &origin, const Vector &direction, const Vector &mins, const Vector &maxs, float &outDistance)
{
	float enter = 0.0f, leave = 3.0e38f;
	for (int axis = 0; axis < 3; ++axis)
	{
		if (std::fabs(direction[axis]) < 1e-12f)
		{
			if (origin[axis] < mins[axis] || origin[axis] > maxs[axis])
				return false;
			continue;
		}
		float t0 = (mins[axis] - origin[axis]) / direction[axis];
		float t1 = (maxs[axis] - origin[axis]) / direction[axis];
		if (t0 > t1)
			std::swap(t0, t1);
		enter = std::max(enter, t0);
		leave = std::min(leave, t1);
		if (enter > leave)
			return false;
	}
	outDistance = enter;
	return true;
}
