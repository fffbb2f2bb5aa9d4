// Procedural textures of the sample art: an atlas of rectangles, each painted by a function of
// its own (u, v) that gives a colour and a height. The colour map comes from the colours, the
// normal map (tangent space, +Y along +v) from the slopes of the heights.
#pragma once

#include <QImage>

#include <functional>
#include <vector>

#include "artmath.h"
#include "artmesh.h"

namespace sampleart
{
struct Texel_t
{
	Vec3 colour{ 0.5, 0.5, 0.5 };
	double height = 0.0; // in texels of the image
	double alpha = 1.0;
};

using PaintFn_t = std::function<Texel_t(double u, double v)>;

struct AtlasRegion_t
{
	UVRect_t rect;
	PaintFn_t paint;
};

class CAtlasPainter
{
public:
	explicit CAtlasPainter(int size) : m_nWidth(size), m_nHeight(size) {}
	CAtlasPainter(int width, int height) : m_nWidth(width), m_nHeight(height) {}

	void Add(const UVRect_t &rect, PaintFn_t paint) { m_Regions.push_back({ rect, std::move(paint) }); }
	// Where no region lies.
	void SetBackground(const Vec3 &colour) { m_Background = colour; }

	// RGB (or RGBA with `withAlpha`) colour image and the matching normal map.
	void Paint(QImage &colour, QImage &normal, bool withAlpha = false) const;

private:
	int m_nWidth, m_nHeight;
	Vec3 m_Background{ 0.5, 0.5, 0.5 };
	std::vector<AtlasRegion_t> m_Regions;
};

// Deterministic value noise in [0, 1] (smooth, period-free), and a few octaves of it.
double Noise2(double x, double y, int seed);
double Fractal2(double x, double y, int seed, int octaves);
// A colour from 0-255 components.
inline Vec3 Rgb(int r, int g, int b) { return { r / 255.0, g / 255.0, b / 255.0 }; }
inline Vec3 Shade(const Vec3 &c, double f) { return { Clamp(c.x * f, 0, 1), Clamp(c.y * f, 0, 1), Clamp(c.z * f, 0, 1) }; }

// A PNG file's bytes, which depend only on the pixels.
bool EncodePng(const QImage &image, std::string &bytes, std::string *pError);
} // namespace sampleart
