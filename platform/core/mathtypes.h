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
