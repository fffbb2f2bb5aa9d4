// Small vector, matrix and rotation helpers of the sample art generators. Positions are in game
// units with Z up; a figure faces -Y, so its own left side is +X.
#pragma once

#include <cmath>

namespace sampleart
{
constexpr double kPi = 3.14159265358979323846;

inline double Radians(double degrees) { return degrees * kPi / 180.0; }
inline double Degrees(double radians) { return radians * 180.0 / kPi; }
inline double Clamp(double v, double lo, double hi) { return v < lo ? lo : (v > hi ? hi : v); }
inline double Lerp(double a, double b, double t) { return a + (b - a) * t; }
// 0 below `e0`, 1 above `e1`, a smooth S between.
inline double SmoothStep(double e0, double e1, double x)
{
	const double t = Clamp((x - e0) / (e1 - e0), 0.0, 1.0);
	return t * t * (3.0 - 2.0 * t);
}

struct Vec2
{
	double x = 0.0, y = 0.0;
};

struct Vec3
{
	double x = 0.0, y = 0.0, z = 0.0;

	Vec3 operator+(const Vec3 &o) const { return { x + o.x, y + o.y, z + o.z }; }
	Vec3 operator-(const Vec3 &o) const { return { x - o.x, y - o.y, z - o.z }; }
	Vec3 operator*(double s) const { return { x * s, y * s, z * s }; }
	Vec3 operator-() const { return { -x, -y, -z }; }
	Vec3 &operator+=(const Vec3 &o)
	{
		x += o.x;
		y += o.y;
		z += o.z;
		return *this;
	}
	double operator[](int i) const { return i == 0 ? x : (i == 1 ? y : z); }
};

inline double Dot(const Vec3 &a, const Vec3 &b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Vec3 Cross(const Vec3 &a, const Vec3 &b) { return { a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x }; }
inline double Length(const Vec3 &v) { return std::sqrt(Dot(v, v)); }
inline Vec3 Normalize(const Vec3 &v)
{
	const double l = Length(v);
	return l > 1e-12 ? v * (1.0 / l) : Vec3{ 0, 0, 1 };
}
inline Vec3 Mix(const Vec3 &a, const Vec3 &b, double t) { return a + (b - a) * t; }

// A 4x4 matrix of column vectors: m[col][row]. Points transform as M * p.
struct Mat4
{
	double m[4][4] = { { 1, 0, 0, 0 }, { 0, 1, 0, 0 }, { 0, 0, 1, 0 }, { 0, 0, 0, 1 } };

	static Mat4 Translation(const Vec3 &t)
	{
		Mat4 r;
		r.m[3][0] = t.x;
		r.m[3][1] = t.y;
		r.m[3][2] = t.z;
		return r;
	}
	static Mat4 Scale(const Vec3 &s)
	{
		Mat4 r;
		r.m[0][0] = s.x;
		r.m[1][1] = s.y;
		r.m[2][2] = s.z;
		return r;
	}
	// Rotation about X, then Y, then Z (the FBX default order "XYZ"), angles in degrees.
	static Mat4 EulerXYZ(const Vec3 &degrees)
	{
		const double cx = std::cos(Radians(degrees.x)), sx = std::sin(Radians(degrees.x));
		const double cy = std::cos(Radians(degrees.y)), sy = std::sin(Radians(degrees.y));
		const double cz = std::cos(Radians(degrees.z)), sz = std::sin(Radians(degrees.z));
		Mat4 rx, ry, rz;
		rx.m[1][1] = cx;
		rx.m[1][2] = sx;
		rx.m[2][1] = -sx;
		rx.m[2][2] = cx;
		ry.m[0][0] = cy;
		ry.m[0][2] = -sy;
		ry.m[2][0] = sy;
		ry.m[2][2] = cy;
		rz.m[0][0] = cz;
		rz.m[0][1] = sz;
		rz.m[1][0] = -sz;
		rz.m[1][1] = cz;
		return rz * ry * rx;
	}

	Mat4 operator*(const Mat4 &o) const
	{
		Mat4 r;
		for (int c = 0; c < 4; ++c)
		{
			for (int row = 0; row < 4; ++row)
			{
				double s = 0.0;
				for (int k = 0; k < 4; ++k)
					s += m[k][row] * o.m[c][k];
				r.m[c][row] = s;
			}
		}
		return r;
	}
	Vec3 Point(const Vec3 &p) const
	{
		return { m[0][0] * p.x + m[1][0] * p.y + m[2][0] * p.z + m[3][0], m[0][1] * p.x + m[1][1] * p.y + m[2][1] * p.z + m[3][1],
			m[0][2] * p.x + m[1][2] * p.y + m[2][2] * p.z + m[3][2] };
	}
	Vec3 Direction(const Vec3 &d) const
	{
		return { m[0][0] * d.x + m[1][0] * d.y + m[2][0] * d.z, m[0][1] * d.x + m[1][1] * d.y + m[2][1] * d.z,
			m[0][2] * d.x + m[1][2] * d.y + m[2][2] * d.z };
	}
	Vec3 GetTranslation() const { return { m[3][0], m[3][1], m[3][2] }; }
};

// A frame whose Z axis points along `axis`, with X chosen as close to `hint` as it can be.
inline Mat4 FrameAlong(const Vec3 &origin, const Vec3 &axis, const Vec3 &hint)
{
	const Vec3 z = Normalize(axis);
	Vec3 x = hint - z * Dot(hint, z);
	if (Length(x) < 1e-6)
		x = std::fabs(z.x) < 0.9 ? Vec3{ 1, 0, 0 } - z * z.x : Vec3{ 0, 1, 0 } - z * z.y;
	x = Normalize(x);
	const Vec3 y = Cross(z, x);
	Mat4 r;
	r.m[0][0] = x.x;
	r.m[0][1] = x.y;
	r.m[0][2] = x.z;
	r.m[1][0] = y.x;
	r.m[1][1] = y.y;
	r.m[1][2] = y.z;
	r.m[2][0] = z.x;
	r.m[2][1] = z.y;
	r.m[2][2] = z.z;
	r.m[3][0] = origin.x;
	r.m[3][1] = origin.y;
	r.m[3][2] = origin.z;
	return r;
}
} // namespace sampleart
