// Small vector types shared by the documents and, later, the tool scene.
#pragma once

#include "core/platform.h"

struct Vector
{
	float x = 0.0f, y = 0.0f, z = 0.0f;

	constexpr Vector() = default;
	constexpr Vector(float fx, float fy, float fz) : x(fx), y(fy), z(fz) {}
	float &operator[](int i) { return (&x)[i]; }
	float operator[](int i) const { return (&x)[i]; }
	float *Base() { return &x; }
	const float *Base() const { return &x; }
	bool operator==(const Vector &other) const = default;
};

// Pitch, yaw, roll in degrees.
struct QAngle
{
	float x = 0.0f, y = 0.0f, z = 0.0f;

	constexpr QAngle() = default;
	constexpr QAngle(float pitch, float yaw, float roll) : x(pitch), y(yaw), z(roll) {}
	float &operator[](int i) { return (&x)[i]; }
	float operator[](int i) const { return (&x)[i]; }
	float *Base() { return &x; }
	const float *Base() const { return &x; }
	bool operator==(const QAngle &other) const = default;
};

struct Vector2D
{
	float x = 0.0f, y = 0.0f;

	constexpr Vector2D() = default;
	constexpr Vector2D(float fx, float fy) : x(fx), y(fy) {}
	float &operator[](int i) { return (&x)[i]; }
	float operator[](int i) const { return (&x)[i]; }
	float *Base() { return &x; }
	const float *Base() const { return &x; }
	bool operator==(const Vector2D &other) const = default;
};

struct Vector4D
{
	float x = 0.0f, y = 0.0f, z = 0.0f, w = 0.0f;

	constexpr Vector4D() = default;
	constexpr Vector4D(float fx, float fy, float fz, float fw) : x(fx), y(fy), z(fz), w(fw) {}
	float &operator[](int i) { return (&x)[i]; }
	float operator[](int i) const { return (&x)[i]; }
	float *Base() { return &x; }
	const float *Base() const { return &x; }
	bool operator==(const Vector4D &other) const = default;
};

// A rotation as x, y, z (the axis times the sine of half the angle) and w (the cosine of half
// the angle). The default is the identity.
struct Quaternion
{
	float x = 0.0f, y = 0.0f, z = 0.0f, w = 1.0f;

	constexpr Quaternion() = default;
	constexpr Quaternion(float fx, float fy, float fz, float fw) : x(fx), y(fy), z(fz), w(fw) {}
	float &operator[](int i) { return (&x)[i]; }
	float operator[](int i) const { return (&x)[i]; }
	float *Base() { return &x; }
	const float *Base() const { return &x; }
	bool operator==(const Quaternion &other) const = default;
};

// A 4x4 matrix of floats, row by row (m[row][column]). The default is the identity.
struct VMatrix
{
	float m[4][4] = { { 1, 0, 0, 0 }, { 0, 1, 0, 0 }, { 0, 0, 1, 0 }, { 0, 0, 0, 1 } };

	float *Base() { return &m[0][0]; }
	const float *Base() const { return &m[0][0]; }
	bool operator==(const VMatrix &other) const = default;
};

// A colour of four bytes: red, green, blue, alpha.
struct Color
{
	uint8 r = 0, g = 0, b = 0, a = 255;

	constexpr Color() = default;
	constexpr Color(uint8 red, uint8 green, uint8 blue, uint8 alpha = 255) : r(red), g(green), b(blue), a(alpha) {}
	bool operator==(const Color &other) const = default;
};
