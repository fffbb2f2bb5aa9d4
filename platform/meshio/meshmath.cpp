#include "meshio/meshmath.h"

#include <algorithm>

bool Matrix4_t::IsIdentity(double tolerance) const
{
	for (int r = 0; r < 4; ++r)
	{
		for (int c = 0; c < 4; ++c)
		{
			if (std::fabs(m[r][c] - (r == c ? 1.0 : 0.0)) > tolerance)
				return false;
		}
	}
	return true;
}

bool Matrix4_t::operator==(const Matrix4_t &other) const
{
	for (int r = 0; r < 4; ++r)
	{
		for (int c = 0; c < 4; ++c)
		{
			if (m[r][c] != other.m[r][c])
				return false;
		}
	}
	return true;
}

Matrix4_t MatrixMultiply(const Matrix4_t &a, const Matrix4_t &b)
{
	Matrix4_t out;
	for (int r = 0; r < 4; ++r)
	{
		for (int c = 0; c < 4; ++c)
		{
			double sum = 0.0;
			for (int k = 0; k < 4; ++k)
				sum += a.m[r][k] * b.m[k][c];
			out.m[r][c] = sum;
		}
	}
	return out;
}

bool MatrixInverse(const Matrix4_t &in, Matrix4_t &out)
{
	// Gauss-Jordan elimination with partial pivoting.
	double a[4][8];
	for (int r = 0; r < 4; ++r)
	{
		for (int c = 0; c < 4; ++c)
		{
			a[r][c] = in.m[r][c];
			a[r][c + 4] = (r == c) ? 1.0 : 0.0;
		}
	}
	for (int col = 0; col < 4; ++col)
	{
		int pivot = col;
		for (int r = col + 1; r < 4; ++r)
		{
			if (std::fabs(a[r][col]) > std::fabs(a[pivot][col]))
				pivot = r;
		}
		if (!(std::fabs(a[pivot][col]) > 1e-300))
		{
			out = Matrix4_t();
			return false;
		}
		if (pivot != col)
		{
			for (int c = 0; c < 8; ++c)
				std::swap(a[pivot][c], a[col][c]);
		}
		const double inv = 1.0 / a[col][col];
		for (int c = 0; c < 8; ++c)
			a[col][c] *= inv;
		for (int r = 0; r < 4; ++r)
		{
			if (r == col || a[r][col] == 0.0)
				continue;
			const double factor = a[r][col];
			for (int c = 0; c < 8; ++c)
				a[r][c] -= factor * a[col][c];
		}
	}
	for (int r = 0; r < 4; ++r)
	{
		for (int c = 0; c < 4; ++c)
			out.m[r][c] = a[r][c + 4];
	}
	return true;
}

Matrix4_t MatrixTranslation(double x, double y, double z)
{
	Matrix4_t out;
	out.m[0][3] = x;
	out.m[1][3] = y;
	out.m[2][3] = z;
	return out;
}

Matrix4_t MatrixScale(double x, double y, double z)
{
	Matrix4_t out;
	out.m[0][0] = x;
	out.m[1][1] = y;
	out.m[2][2] = z;
	return out;
}

Matrix4_t MatrixFromQuaternion(const Quaternion &qIn)
{
	const Quaternion q = QuaternionNormalize(qIn);
	const double x = q.x, y = q.y, z = q.z, w = q.w;
	Matrix4_t out;
	out.m[0][0] = 1.0 - 2.0 * (y * y + z * z);
	out.m[0][1] = 2.0 * (x * y - z * w);
	out.m[0][2] = 2.0 * (x * z + y * w);
	out.m[1][0] = 2.0 * (x * y + z * w);
	out.m[1][1] = 1.0 - 2.0 * (x * x + z * z);
	out.m[1][2] = 2.0 * (y * z - x * w);
	out.m[2][0] = 2.0 * (x * z - y * w);
	out.m[2][1] = 2.0 * (y * z + x * w);
	out.m[2][2] = 1.0 - 2.0 * (x * x + y * y);
	return out;
}

Matrix4_t MatrixFromTransform(const SourceTransform_t &transform)
{
	Matrix4_t out = MatrixFromQuaternion(transform.orientation);
	const double scale[3] = { transform.scale.x, transform.scale.y, transform.scale.z };
	for (int r = 0; r < 3; ++r)
	{
		for (int c = 0; c < 3; ++c)
			out.m[r][c] *= scale[c];
	}
	out.m[0][3] = transform.position.x;
	out.m[1][3] = transform.position.y;
	out.m[2][3] = transform.position.z;
	return out;
}

SourceTransform_t TransformFromMatrix(const Matrix4_t &matrix)
{
	SourceTransform_t out;
	out.position = Vector((float)matrix.m[0][3], (float)matrix.m[1][3], (float)matrix.m[2][3]);
	double columns[3][3];
	double scale[3];
	for (int c = 0; c < 3; ++c)
	{
		for (int r = 0; r < 3; ++r)
			columns[c][r] = matrix.m[r][c];
		scale[c] = std::sqrt(columns[c][0] * columns[c][0] + columns[c][1] * columns[c][1] + columns[c][2] * columns[c][2]);
	}
	const double det = matrix.m[0][0] * (matrix.m[1][1] * matrix.m[2][2] - matrix.m[1][2] * matrix.m[2][1]) -
					   matrix.m[0][1] * (matrix.m[1][0] * matrix.m[2][2] - matrix.m[1][2] * matrix.m[2][0]) +
					   matrix.m[0][2] * (matrix.m[1][0] * matrix.m[2][1] - matrix.m[1][1] * matrix.m[2][0]);
	if (det < 0.0)
		scale[0] = -scale[0];
	Matrix4_t rotation;
	for (int c = 0; c < 3; ++c)
	{
		const double s = scale[c] != 0.0 ? scale[c] : 1.0;
		for (int r = 0; r < 3; ++r)
			rotation.m[r][c] = columns[c][r] / s;
	}
	out.orientation = QuaternionFromMatrix(rotation);
	out.scale = Vector((float)scale[0], (float)scale[1], (float)scale[2]);
	return out;
}

Vector MatrixTransformPoint(const Matrix4_t &matrix, const Vector &point)
{
	double out[3];
	for (int r = 0; r < 3; ++r)
		out[r] = matrix.m[r][0] * point.x + matrix.m[r][1] * point.y + matrix.m[r][2] * point.z + matrix.m[r][3];
	return Vector((float)out[0], (float)out[1], (float)out[2]);
}

Vector MatrixTransformDirection(const Matrix4_t &matrix, const Vector &direction)
{
	double out[3];
	for (int r = 0; r < 3; ++r)
		out[r] = matrix.m[r][0] * direction.x + matrix.m[r][1] * direction.y + matrix.m[r][2] * direction.z;
	return Vector((float)out[0], (float)out[1], (float)out[2]);
}

Quaternion QuaternionNormalize(const Quaternion &q)
{
	const double length = std::sqrt((double)q.x * q.x + (double)q.y * q.y + (double)q.z * q.z + (double)q.w * q.w);
	if (!(length > 0.0) || !std::isfinite(length))
		return Quaternion();
	return Quaternion(float(q.x / length), float(q.y / length), float(q.z / length), float(q.w / length));
}

Quaternion QuaternionMultiply(const Quaternion &a, const Quaternion &b)
{
	return Quaternion(a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y,
		a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
		a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w,
		a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z);
}

Quaternion QuaternionSlerp(const Quaternion &a, const Quaternion &bIn, float t)
{
	Quaternion b = bIn;
	double cosom = (double)a.x * b.x + (double)a.y * b.y + (double)a.z * b.z + (double)a.w * b.w;
	if (cosom < 0.0)
	{
		cosom = -cosom;
		b = Quaternion(-b.x, -b.y, -b.z, -b.w);
	}
	double sa, sb;
	if (1.0 - cosom > 1e-6)
	{
		const double omega = std::acos(std::min(cosom, 1.0));
		const double sinom = std::sin(omega);
		sa = std::sin((1.0 - t) * omega) / sinom;
		sb = std::sin(t * omega) / sinom;
	}
	else
	{
		sa = 1.0 - t;
		sb = t;
	}
	return QuaternionNormalize(Quaternion(float(sa * a.x + sb * b.x), float(sa * a.y + sb * b.y), float(sa * a.z + sb * b.z),
		float(sa * a.w + sb * b.w)));
}

Quaternion QuaternionFromMatrix(const Matrix4_t &rotation)
{
	const auto &m = rotation.m;
	const double trace = m[0][0] + m[1][1] + m[2][2];
	double x, y, z, w;
	if (trace > 0.0)
	{
		const double s = std::sqrt(trace + 1.0) * 2.0;
		w = 0.25 * s;
		x = (m[2][1] - m[1][2]) / s;
		y = (m[0][2] - m[2][0]) / s;
		z = (m[1][0] - m[0][1]) / s;
	}
	else if (m[0][0] > m[1][1] && m[0][0] > m[2][2])
	{
		const double s = std::sqrt(1.0 + m[0][0] - m[1][1] - m[2][2]) * 2.0;
		w = (m[2][1] - m[1][2]) / s;
		x = 0.25 * s;
		y = (m[0][1] + m[1][0]) / s;
		z = (m[0][2] + m[2][0]) / s;
	}
	else if (m[1][1] > m[2][2])
	{
		const double s = std::sqrt(1.0 + m[1][1] - m[0][0] - m[2][2]) * 2.0;
		w = (m[0][2] - m[2][0]) / s;
		x = (m[0][1] + m[1][0]) / s;
		y = 0.25 * s;
		z = (m[1][2] + m[2][1]) / s;
	}
	else
	{
		const double s = std::sqrt(1.0 + m[2][2] - m[0][0] - m[1][1]) * 2.0;
		w = (m[1][0] - m[0][1]) / s;
		x = (m[0][2] + m[2][0]) / s;
		y = (m[1][2] + m[2][1]) / s;
		z = 0.25 * s;
	}
	return QuaternionNormalize(Quaternion((float)x, (float)y, (float)z, (float)w));
}

namespace
{
Matrix4_t AxisRotation(int axis, double degrees)
{
	const double radians = degrees * (M_PI / 180.0);
	const double c = std::cos(radians), s = std::sin(radians);
	Matrix4_t out;
	const int a = (axis + 1) % 3, b = (axis + 2) % 3;
	out.m[a][a] = c;
	out.m[a][b] = -s;
	out.m[b][a] = s;
	out.m[b][b] = c;
	return out;
}
} // namespace

Matrix4_t MatrixFromEulerDegrees(const Vector &angles, EulerOrder_t order)
{
	static const int s_Axes[6][3] = {
		{ 0, 1, 2 }, // XYZ
		{ 0, 2, 1 }, // XZY
		{ 1, 2, 0 }, // YZX
		{ 1, 0, 2 }, // YXZ
		{ 2, 0, 1 }, // ZXY
		{ 2, 1, 0 }, // ZYX
	};
	const int *axes = s_Axes[(order >= EULER_XYZ && order <= EULER_ZYX) ? order : EULER_XYZ];
	Matrix4_t out;
	for (int i = 0; i < 3; ++i)
		out = MatrixMultiply(AxisRotation(axes[i], angles[axes[i]]), out);
	return out;
}

Matrix4_t MatrixUpAxisToZ(char upAxis)
{
	Matrix4_t m;
	if (upAxis == 'Y' || upAxis == 'y')
	{
		m.m[1][1] = 0.0;
		m.m[1][2] = -1.0;
		m.m[2][1] = 1.0;
		m.m[2][2] = 0.0;
	}
	else if (upAxis == 'X' || upAxis == 'x')
	{
		m.m[0][0] = 0.0;
		m.m[0][2] = -1.0;
		m.m[2][0] = 1.0;
		m.m[2][2] = 0.0;
	}
	return m;
}
