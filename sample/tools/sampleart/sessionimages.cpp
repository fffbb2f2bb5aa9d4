// The pictures of the sample sessions. Each is drawn by a function of the position that says
// what colour (and how much cover) a point has, averaged over a few samples a pixel so that edges
// are smooth; flat areas keep the files small.
#include <QImage>

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

#include "mediafiles.h"
#include "painter.h"
#include "sessionart.h"

namespace sampleart
{
namespace
{
struct Paint_t
{
	Vec3 colour;
	double alpha = 1.0;
};
using ShadeFn_t = std::function<Paint_t(double x, double y)>;

int ToByte(double v) { return (int)std::lround(Clamp(v, 0.0, 1.0) * 255.0); }

// `samples` by `samples` points a pixel; x runs right and y down, in pixels.
QImage Draw(int width, int height, int samples, bool withAlpha, const ShadeFn_t &shade)
{
	QImage image(width, height, withAlpha ? QImage::Format_ARGB32 : QImage::Format_RGB32);
	const double step = 1.0 / samples;
	for (int y = 0; y < height; ++y)
	{
		QRgb *row = reinterpret_cast<QRgb *>(image.scanLine(y));
		for (int x = 0; x < width; ++x)
		{
			Vec3 sum;
			double cover = 0.0;
			for (int j = 0; j < samples; ++j)
			{
				for (int i = 0; i < samples; ++i)
				{
					const Paint_t p = shade(x + (i + 0.5) * step, y + (j + 0.5) * step);
					sum += p.colour * p.alpha;
					cover += p.alpha;
				}
			}
			const Vec3 c = cover > 0.0 ? sum * (1.0 / cover) : Vec3{};
			const double a = withAlpha ? cover / (samples * samples) : 1.0;
			row[x] = qRgba(ToByte(c.x), ToByte(c.y), ToByte(c.z), ToByte(a));
		}
	}
	return image;
}

// Shapes, in whatever units the caller's coordinates have.
bool InCircle(double x, double y, double cx, double cy, double r) { return (x - cx) * (x - cx) + (y - cy) * (y - cy) <= r * r; }
double SegmentDistance(double x, double y, double ax, double ay, double bx, double by)
{
	const double dx = bx - ax, dy = by - ay;
	const double len2 = dx * dx + dy * dy;
	const double t = len2 > 0.0 ? Clamp(((x - ax) * dx + (y - ay) * dy) / len2, 0.0, 1.0) : 0.0;
	const double px = ax + dx * t - x, py = ay + dy * t - y;
	return std::sqrt(px * px + py * py);
}
bool InPolygon(double x, double y, const std::vector<Vec2> &points)
{
	bool inside = false;
	for (size_t i = 0, j = points.size() - 1; i < points.size(); j = i++)
	{
		const Vec2 &a = points[i], &b = points[j];
		if ((a.y > y) != (b.y > y) && x < (b.x - a.x) * (y - a.y) / (b.y - a.y) + a.x)
			inside = !inside;
	}
	return inside;
}
double PolygonEdgeDistance(double x, double y, const std::vector<Vec2> &points)
{
	double d = 1e30;
	for (size_t i = 0, j = points.size() - 1; i < points.size(); j = i++)
		d = std::min(d, SegmentDistance(x, y, points[j].x, points[j].y, points[i].x, points[i].y));
	return d;
}
// A lens along the local y axis: the overlap of two discs of radius 1 at (+-0.55, 0), tips at
// y = +-0.835.
bool InLens(double u, double v) { return InCircle(u, v, 0.55, 0.0, 1.0) && InCircle(u, v, -0.55, 0.0, 1.0); }
// The point turned by `degrees` about the origin (into the shape's own frame).
Vec2 Turn(double x, double y, double degrees)
{
	const double c = std::cos(Radians(degrees)), s = std::sin(Radians(degrees));
	return { c * x + s * y, -s * x + c * y };
}
// `bands` flat steps from `a` to `b` as t goes from 0 to 1.
Vec3 Bands(const Vec3 &a, const Vec3 &b, double t, int bands)
{
	const double step = std::floor(Clamp(t, 0.0, 0.9999) * bands) / (bands - 1);
	return Mix(a, b, step);
}
uint32_t Hash32(uint32_t x)
{
	x ^= x >> 16;
	x *= 0x7feb352du;
	x ^= x >> 15;
	x *= 0x846ca68bu;
	x ^= x >> 16;
	return x;
}
double Random01(uint32_t index, uint32_t seed) { return (Hash32(index * 0x9e3779b9u + seed) & 0xffffff) / double(0x1000000); }

// ------------------------------------------------------------------------------------------
// The heroes' emblems, in a frame of their own: u to the right, v up, the shape within about
// one unit of the origin. Each gives 0 outside, 1 on its body and 2 on its lighter detail.

int LeafEmblem(double u, double v)
{
	const Vec2 p = Turn(u, v, -30.0);
	const double lx = p.x * 1.15, ly = p.y * 1.15;
	if (!InLens(lx, ly))
		return 0;
	// The midrib, and veins that run up and out from it.
	if (std::fabs(lx) < 0.035 && ly < 0.7)
		return 2;
	for (double start : { -0.45, -0.1, 0.25 })
	{
		if (SegmentDistance(std::fabs(lx), ly, 0.0, start, 0.42, start + 0.32) < 0.03)
			return 2;
	}
	return 1;
}

int FlameEmblem(double u, double v)
{
	// A drop of fire: a round foot and a tongue that leans and flickers to its tip.
	auto tongue = [](double x, double y, double scale)
	{
		x /= scale;
		y /= scale;
		if (InCircle(x, y, 0.0, -0.35, 0.55))
			return true;
		if (y < -0.35 || y > 1.0)
			return false;
		const double t = (y + 0.35) / 1.35;
		const double centre = 0.18 * std::sin(t * 4.0) * t;
		const double half = 0.55 * (1.0 - t) * (1.0 - 0.25 * std::sin(t * 9.0) * t);
		return std::fabs(x - centre) < half;
	};
	if (!tongue(u, v + 0.05, 1.0))
		return 0;
	return tongue(u + 0.02, v + 0.32, 0.55) ? 2 : 1;
}

int WaveEmblem(double u, double v)
{
	if (!InCircle(u, v, 0.0, 0.0, 0.92))
		return 0;
	// Three crests, the top one lightest.
	for (int k = 0; k < 3; ++k)
	{
		const double crest = 0.42 - 0.42 * k + 0.14 * std::sin(3.6 * u + 1.3 * k);
		if (v < crest && v > crest - 0.2)
			return k == 0 ? 2 : 1;
	}
	return 0;
}

using EmblemFn_t = int (*)(double, double);
struct Hero_t
{
	EmblemFn_t emblem;
	Vec3 dark, mid, light;
};
const Hero_t kHeroes[3] = {
	{ LeafEmblem, Rgb(30, 58, 34), Rgb(64, 118, 56), Rgb(196, 232, 150) },
	{ FlameEmblem, Rgb(74, 20, 16), Rgb(164, 48, 30), Rgb(255, 200, 96) },
	{ WaveEmblem, Rgb(16, 34, 70), Rgb(34, 84, 142), Rgb(170, 226, 240) },
};

// ------------------------------------------------------------------------------------------

// "Dusk in the Bramble Wood": a banded sky, a moon, three ranges of hills (pines on the middle
// one) and brambles with berries across the front. 2048 by 1024, the loading screen's own shape.
QImage LoadingScreen()
{
	const int w = 2048, h = 1024;
	const double horizon = 0.62;
	auto hill = [](double X, double base, double a1, double f1, double p1, double a2, double f2)
	{ return base + a1 * std::sin(f1 * X + p1) + a2 * std::sin(f2 * X); };
	// Pines of the middle range: one every 0.09 units with some jitter.
	auto inPine = [&](double X, double Y)
	{
		const int i = (int)std::floor(X / 0.09);
		for (int k = i - 1; k <= i + 1; ++k)
		{
			if (k < 0)
				continue;
			const double cx = (k + 0.5) * 0.09 + 0.03 * (Random01((uint32_t)k, 5) - 0.5);
			const double base = hill(cx, 0.68, 0.05, 2.3, 1.7, 0.015, 11.0) + 0.01;
			const double tall = 0.07 + 0.06 * Random01((uint32_t)k, 9);
			if (Random01((uint32_t)k, 13) < 0.3)
				continue; // a clearing
			if (std::fabs(X - cx) < 0.006 && Y < base + 0.02 && Y > base - tall * 0.3)
				return true; // the trunk
			for (int tier = 0; tier < 3; ++tier)
			{
				const double top = base - tall * (0.45 + 0.28 * tier), bottom = base - tall * (0.1 + 0.28 * tier);
				if (Y > top && Y < bottom)
				{
					const double t = (Y - top) / (bottom - top);
					if (std::fabs(X - cx) < t * tall * (0.42 - 0.08 * tier))
						return true;
				}
			}
		}
		return false;
	};
	// The brambles: two vines as curves across the front, with thorns and berries along them.
	struct Vine_t
	{
		double base, amp, freq, phase, thick;
	};
	const Vine_t vines[2] = { { 0.93, 0.05, 2.7, 0.4, 0.012 }, { 0.975, 0.035, 4.1, 2.0, 0.009 } };
	auto vineY = [](const Vine_t &v, double X) { return v.base - v.amp * std::sin(v.freq * X + v.phase); };
	const Vec3 sky0 = Rgb(26, 20, 58), sky1 = Rgb(236, 142, 86);
	return Draw(w, h, 2, false,
		[&](double x, double y)
		{
			const double X = x / h, Y = y / h;
			Paint_t p;
			for (int i = 1; i >= 0; --i)
			{
				const Vine_t &v = vines[i];
				const double vy = vineY(v, X);
				const double slope = -v.amp * v.freq * std::cos(v.freq * X + v.phase);
				const double d = std::fabs(Y - vy) / std::sqrt(1.0 + slope * slope);
				if (d < v.thick)
				{
					p.colour = Rgb(52, 92, 48);
					return p;
				}
				// Thorns every 0.05 units, alternately above and below the stem.
				const int k = (int)std::lround(X / 0.05);
				const double tx = k * 0.05, ty = vineY(v, tx), side = (k % 2) ? 1.0 : -1.0;
				const std::vector<Vec2> thorn = { { tx - 0.012, ty }, { tx + 0.012, ty }, { tx + 0.018, ty + side * 0.032 } };
				if (InPolygon(X, Y, thorn))
				{
					p.colour = Rgb(52, 92, 48);
					return p;
				}
				// Berries in threes every 0.23 units.
				const int b = (int)std::lround((X - 0.1) / 0.23);
				const double bx = 0.1 + b * 0.23, by = vineY(v, bx) - 0.03;
				for (int n = 0; n < 3; ++n)
				{
					const double cx = bx + 0.022 * (n - 1), cy = by - 0.012 * (n % 2);
					if (InCircle(X, Y, cx, cy, 0.014))
					{
						p.colour = InCircle(X, Y, cx - 0.005, cy - 0.005, 0.004) ? Rgb(250, 180, 200) : Rgb(150, 26, 62);
						return p;
					}
				}
			}
			if (Y > hill(X, 0.84, 0.03, 1.7, 0.3, 0.01, 6.0))
				p.colour = Rgb(36, 28, 46);
			else if (Y > hill(X, 0.68, 0.05, 2.3, 1.7, 0.015, 11.0) || inPine(X, Y))
				p.colour = Rgb(70, 50, 84);
			else if (Y > hill(X, 0.58, 0.04, 3.1, 0.5, 0.02, 7.3))
				p.colour = Rgb(118, 76, 108);
			else if (InCircle(X, Y, 1.46, 0.24, 0.075))
			{
				const bool crater = InCircle(X, Y, 1.44, 0.22, 0.018) || InCircle(X, Y, 1.49, 0.27, 0.012) || InCircle(X, Y, 1.48, 0.2, 0.008);
				p.colour = crater ? Rgb(222, 208, 176) : Rgb(250, 240, 206);
			}
			else
			{
				p.colour = Bands(sky0, sky1, std::pow(Y / horizon, 1.6), 9);
				// Stars in the upper sky, a few pixels across.
				const int sx = (int)std::floor(X / 0.04), sy = (int)std::floor(Y / 0.04);
				const uint32_t cell = (uint32_t)(sy * 64 + sx);
				const double cx = (sx + 0.2 + 0.6 * Random01(cell, 21)) * 0.04, cy = (sy + 0.2 + 0.6 * Random01(cell, 22)) * 0.04;
				if (cy < 0.3 && Random01(cell, 23) < 0.35 && InCircle(X, Y, cx, cy, 0.0018 + 0.0012 * Random01(cell, 24)))
					p.colour = Rgb(250, 246, 220);
			}
			return p;
		});
}

// The store's banner, 1920 by 1080: a panel for each hero, slanted, with its emblem large in
// rings of its own light, and a dark band at the foot.
QImage StoreBanner()
{
	const int w = 1920, h = 1080;
	const double panelWidth = (double)w / h / 3.0;
	return Draw(w, h, 2, false,
		[&](double x, double y)
		{
			const double X = x / h, Y = y / h;
			Paint_t p;
			if (Y > 0.88)
			{
				p.colour = Rgb(20, 18, 24);
				// Three diamonds in the band, one in each hero's colour.
				for (int k = 0; k < 3; ++k)
				{
					const double cx = panelWidth * (k + 0.5), cy = 0.94;
					if (std::fabs(X - cx) + std::fabs(Y - cy) < 0.025)
						p.colour = kHeroes[k].light;
				}
				return p;
			}
			// The panels' borders lean: X shifts with the height.
			const double slant = X + 0.18 * (Y - 0.44);
			const int k = std::clamp((int)std::floor(slant / panelWidth), 0, 2);
			const double edge = std::fabs(slant - std::round(slant / panelWidth) * panelWidth);
			const Hero_t &hero = kHeroes[k];
			if (edge < 0.006 && slant > 0.1 && slant < 3.0 * panelWidth - 0.1)
			{
				p.colour = Rgb(238, 222, 170);
				return p;
			}
			const double cx = panelWidth * (k + 0.5), cy = 0.44; // where the panel's middle crosses that height
			const double r = std::sqrt((X - cx) * (X - cx) + (Y - cy) * (Y - cy));
			p.colour = Bands(hero.mid, hero.dark, r / 0.75, 4);
			const int e = hero.emblem((X - cx) / 0.27, (cy - Y) / 0.27);
			if (e == 1)
				p.colour = Mix(hero.light, hero.mid, 0.25);
			else if (e == 2)
				p.colour = hero.light;
			return p;
		});
}

// The store's thumbnail, 512 by 512: the three emblems in a ring on a dark disc.
QImage StoreThumbnail()
{
	const int n = 512;
	return Draw(n, n, 3, false,
		[&](double x, double y)
		{
			const double u = (x / n) * 2.0 - 1.0, v = 1.0 - (y / n) * 2.0;
			Paint_t p;
			p.colour = Rgb(18, 16, 24);
			const double r = std::sqrt(u * u + v * v);
			if (r < 0.94)
				p.colour = Bands(Rgb(64, 56, 70), Rgb(28, 24, 34), r / 0.94, 4);
			if (std::fabs(r - 0.94) < 0.025)
				p.colour = Rgb(226, 196, 120);
			for (int k = 0; k < 3; ++k)
			{
				const double a = Radians(90.0 + 120.0 * k);
				const double cx = 0.48 * std::cos(a), cy = 0.48 * std::sin(a);
				if (InCircle(u, v, cx, cy, 0.4))
				{
					const Hero_t &hero = kHeroes[k];
					p.colour = hero.dark;
					const int e = hero.emblem((u - cx) / 0.3, (v - cy) / 0.3);
					if (e == 1)
						p.colour = hero.mid;
					else if (e == 2)
						p.colour = hero.light;
					if (std::fabs(std::sqrt((u - cx) * (u - cx) + (v - cy) * (v - cy)) - 0.4) < 0.015)
						p.colour = Rgb(226, 196, 120);
				}
			}
			return p;
		});
}

// ------------------------------------------------------------------------------------------
// Ability icons of Bramble, 128 by 128: a symbol on a dark tile with a gold rim.

struct Icon_t
{
	const char *pszName;
	Vec3 background;
	std::function<int(double u, double v)> symbol; // u right, v up, -1 to 1; 1 body, 2 light
	Vec3 body, light;
};

QImage AbilityIcon(const Icon_t &icon)
{
	const int n = 128;
	return Draw(n, n, 3, false,
		[&](double x, double y)
		{
			const double u = (x / n) * 2.0 - 1.0, v = 1.0 - (y / n) * 2.0;
			Paint_t p;
			const double edge = std::max(std::fabs(u), std::fabs(v));
			if (edge > 0.92)
			{
				p.colour = edge > 0.97 ? Rgb(90, 70, 30) : Rgb(214, 180, 96);
				return p;
			}
			p.colour = Bands(icon.background, Shade(icon.background, 0.45), std::sqrt(u * u + v * v) / 1.3, 3);
			const int s = icon.symbol(u, v);
			if (s == 1)
				p.colour = icon.body;
			else if (s == 2)
				p.colour = icon.light;
			return p;
		});
}

const std::vector<Icon_t> &BrambleIcons()
{
	static const std::vector<Icon_t> icons = {
		{ "bramble_thorn_volley", Rgb(40, 64, 40),
			[](double u, double v)
			{
				// Three thorns flying up and to the right, with streaks behind them.
				for (int k = 0; k < 3; ++k)
				{
					const double ox = -0.3 + 0.3 * k, oy = -0.28 + 0.2 * ((k + 1) % 3);
					const Vec2 p = Turn(u - ox, v - oy, 40.0);
					if (p.x > -0.1 && p.x < 0.45 && std::fabs(p.y) < 0.11 * (0.45 - p.x) / 0.55)
						return p.y > 0.02 ? 2 : 1;
					if (p.x < -0.14 && p.x > -0.5 && std::fabs(p.y) < 0.018)
						return 2;
				}
				return 0;
			},
			Rgb(120, 84, 52), Rgb(214, 236, 160) },
		{ "bramble_rootgrip", Rgb(58, 46, 34),
			[](double u, double v)
			{
				// A glowing seed held by three roots that rise from the ground and curl in.
				if (InCircle(u, v, 0.0, 0.1, 0.24))
					return 2;
				if (v < -0.62)
					return 1;
				for (int k = -1; k <= 1; ++k)
				{
					// A root as a chain of capsules along a curve that bends toward the seed.
					double px = 0.55 * k, py = -0.65;
					for (int s = 1; s <= 8; ++s)
					{
						const double t = s / 8.0;
						const double nx = 0.55 * k * (1.0 - t) + (k == 0 ? 0.0 : -0.15 * k * std::sin(t * kPi)) + (k == 0 ? 0.32 * std::sin(t * 2.4) : 0.0);
						const double ny = -0.65 + 1.2 * t;
						if (SegmentDistance(u, v, px, py, nx, ny) < 0.09 * (1.0 - 0.6 * t) + 0.02)
							return 1;
						px = nx;
						py = ny;
					}
				}
				return 0;
			},
			Rgb(150, 104, 60), Rgb(200, 250, 140) },
		{ "bramble_bark_skin", Rgb(36, 52, 60),
			[](double u, double v)
			{
				// A shield of bark: straight top, sides that curve in to a point.
				const double halfWidth = v > 0.3 ? 0.62 : 0.62 * std::sqrt(std::max(0.0, (v + 0.8) / 1.1));
				if (v > 0.72 || v < -0.8 || std::fabs(u) > halfWidth)
					return 0;
				if (std::fabs(u) > halfWidth - 0.08 || v > 0.64)
					return 2; // the rim
				const double stripe = std::fmod(std::fabs(u * 5.0 + 0.25 * std::sin(v * 7.0)), 1.0);
				return stripe < 0.18 ? 2 : 1;
			},
			Rgb(122, 86, 54), Rgb(176, 150, 104) },
		{ "bramble_overgrowth", Rgb(28, 48, 30),
			[](double u, double v)
			{
				// Eight leaves bursting out of a bright core.
				if (InCircle(u, v, 0.0, 0.0, 0.16))
					return 2;
				for (int k = 0; k < 8; ++k)
				{
					const Vec2 p = Turn(u, v, 22.5 + 45.0 * k);
					// The leaf's frame: its tip along +y, from 0.15 to 0.8 out.
					const double lx = p.x / 0.3, ly = (p.y - 0.48) / 0.39;
					if (InLens(lx, ly))
						return std::fabs(lx) < 0.07 ? 2 : 1;
				}
				return 0;
			},
			Rgb(88, 156, 64), Rgb(212, 246, 150) },
	};
	return icons;
}

// ------------------------------------------------------------------------------------------
// Cursors, 64 by 64 with alpha: a filled shape with a dark outline and a soft shadow.

struct CursorShape_t
{
	std::function<bool(double x, double y)> inside; // x, y in pixels
	std::function<double(double x, double y)> edge; // distance to the outline
	Vec3 fill, shine;
};

QImage Cursor(const CursorShape_t &shape)
{
	return Draw(64, 64, 4, true,
		[&](double x, double y)
		{
			Paint_t p;
			const bool in = shape.inside(x, y);
			const double d = shape.edge(x, y);
			if (in && d > 2.2)
			{
				// The fill, lighter toward the top left.
				p.colour = Mix(shape.shine, shape.fill, Clamp((x + y) / 70.0, 0.0, 1.0));
				return p;
			}
			if (d < 1.6 || in)
			{
				p.colour = Rgb(16, 14, 12);
				return p;
			}
			// A soft shadow below and to the right.
			if (shape.inside(x - 2.0, y - 2.0))
			{
				p.colour = Rgb(0, 0, 0);
				p.alpha = 0.35;
				return p;
			}
			p.alpha = 0.0;
			return p;
		});
}

CursorShape_t PolygonCursor(std::vector<Vec2> points, const Vec3 &fill, const Vec3 &shine)
{
	return { [points](double x, double y) { return InPolygon(x, y, points); }, [points](double x, double y) { return PolygonEdgeDistance(x, y, points); },
		fill, shine };
}

// An arrow pointing up and to the left with its tip at (2, 2).
std::vector<Vec2> ArrowPoints(double scale)
{
	std::vector<Vec2> points = { { 0, 0 }, { 0, 40 }, { 10, 31 }, { 17, 46 }, { 24, 43 }, { 17, 28.5 }, { 29, 28.5 } };
	for (Vec2 &p : points)
		p = { 2.0 + p.x * scale, 2.0 + p.y * scale };
	return points;
}

// A ring with ticks around (32, 32); `barred` adds a bar across it.
CursorShape_t TargetCursor(bool barred, const Vec3 &fill, const Vec3 &shine)
{
	auto distance = [barred](double x, double y)
	{
		const double r = std::sqrt((x - 32) * (x - 32) + (y - 32) * (y - 32));
		double d = std::fabs(r - 18.0) - 3.0; // the ring, 6 pixels wide
		for (int k = 0; k < 4; ++k)
		{
			const double a = Radians(90.0 * k);
			d = std::min(d, SegmentDistance(x, y, 32 + 22 * std::cos(a), 32 + 22 * std::sin(a), 32 + 27 * std::cos(a), 32 + 27 * std::sin(a)) - 2.5);
		}
		d = std::min(d, r - 3.5); // the centre dot
		if (barred)
			d = std::min(d, SegmentDistance(x, y, 20, 44, 44, 20) - 3.0);
		return d;
	};
	// Inside where the distance is negative.
	return { [distance](double x, double y) { return distance(x, y) <= 0.0; }, [distance](double x, double y) { return std::fabs(distance(x, y)); }, fill, shine };
}

// A hand reaching to take something: a palm, four fingers and a thumb.
CursorShape_t HandCursor(const Vec3 &fill, const Vec3 &shine)
{
	auto distance = [](double x, double y)
	{
		double d = 1e30;
		// Fingers up from the palm's top edge.
		const double fingers[4][3] = { { 12, 6, 30 }, { 20, 3, 30 }, { 28, 5, 30 }, { 36, 11, 32 } }; // x, top y, bottom y
		for (const auto &f : fingers)
			d = std::min(d, SegmentDistance(x, y, f[0], f[1] + 4, f[0], f[2]) - 4.2);
		// The palm: a rounded box from (8, 26) to (40, 52).
		const double qx = std::max(std::fabs(x - 24.0) - 12.0, 0.0), qy = std::max(std::fabs(y - 40.0) - 10.0, 0.0);
		d = std::min(d, std::sqrt(qx * qx + qy * qy) - 4.0);
		// The thumb, out to the right and up.
		d = std::min(d, SegmentDistance(x, y, 38, 40, 50, 26) - 4.5);
		return d;
	};
	return { [distance](double x, double y) { return distance(x, y) <= 0.0; }, [distance](double x, double y) { return std::fabs(distance(x, y)); }, fill, shine };
}

// An arrow pointing down onto a tray.
CursorShape_t DropCursor(const Vec3 &fill, const Vec3 &shine)
{
	const std::vector<Vec2> arrow = { { 24, 4 }, { 40, 4 }, { 40, 24 }, { 52, 24 }, { 32, 46 }, { 12, 24 }, { 24, 24 } };
	auto distance = [arrow](double x, double y)
	{
		const double a = InPolygon(x, y, arrow) ? -PolygonEdgeDistance(x, y, arrow) : PolygonEdgeDistance(x, y, arrow);
		const double qx = std::max(std::fabs(x - 32.0) - 22.0, 0.0), qy = std::max(std::fabs(y - 56.0) - 2.0, 0.0);
		const double tray = std::sqrt(qx * qx + qy * qy) - 1.5;
		return std::min(a, tray);
	};
	return { [distance](double x, double y) { return distance(x, y) <= 0.0; }, [distance](double x, double y) { return std::fabs(distance(x, y)); }, fill, shine };
}

} // namespace

void MakeSessionImages(CArtOutput &out)
{
	out.WritePng("art/loading_screen/dusk_in_the_bramble_wood.png", LoadingScreen());
	out.WritePng("art/marketing/store_banner.png", StoreBanner());
	out.WritePng("art/marketing/store_thumbnail.png", StoreThumbnail());
	for (const Icon_t &icon : BrambleIcons())
		out.WritePng(std::string("art/ability_icons/") + icon.pszName + ".png", AbilityIcon(icon));

	// Cursors in Bramble's colours; the spell cursors in a cool green, the refused one in red.
	const Vec3 gold = Rgb(214, 170, 72), goldShine = Rgb(255, 236, 170);
	const Vec3 leaf = Rgb(70, 150, 70), leafShine = Rgb(196, 246, 160);
	const Vec3 red = Rgb(186, 40, 34), redShine = Rgb(255, 150, 120);
	const struct
	{
		const char *pszName;
		CursorShape_t shape;
	} cursors[] = {
		{ "default", PolygonCursor(ArrowPoints(1.0), gold, goldShine) },
		{ "attack", PolygonCursor(ArrowPoints(1.0), red, redShine) },
		{ "spell_default", TargetCursor(false, leaf, leafShine) },
		{ "spell_illegal", TargetCursor(true, red, redShine) },
		{ "pickup", HandCursor(gold, goldShine) },
		{ "drop", DropCursor(leaf, leafShine) },
	};
	for (const auto &c : cursors)
	{
		const std::string bytes = EncodeBmp32(Cursor(c.shape));
		out.WriteBytes(std::string("art/cursors/") + c.pszName + ".bmp", bytes.data(), bytes.size());
	}

	// Emoticons: strips of 32 by 32 frames, a face whose smile grows from frame to frame.
	struct Emoticon_t
	{
		const char *pszName;
		int frames;
		Vec3 colour;
	};
	for (const Emoticon_t &e : { Emoticon_t{ "emoticon_wave.png", 3, Rgb(242, 182, 69) }, Emoticon_t{ "emoticon_grin.png", 2, Rgb(60, 200, 134) } })
	{
		QImage strip(32 * e.frames, 32, QImage::Format_RGB32);
		for (int y = 0; y < 32; ++y)
		{
			for (int x = 0; x < 32 * e.frames; ++x)
			{
				const int frame = x / 32;
				const double fx = x % 32 - 15.5, fy = y - 15.5;
				const double r = std::sqrt(fx * fx + fy * fy);
				Vec3 c = Rgb(250, 246, 235);
				if (r <= 13.0)
				{
					c = e.colour;
					const bool eye = (std::fabs(fx - 5.0) < 1.6 || std::fabs(fx + 5.0) < 1.6) && std::fabs(fy + 4.0) < 2.0;
					const double smile = 3.0 + 1.5 * frame;
					const bool mouth = fy > 2.0 && std::fabs(std::sqrt(fx * fx + (fy - 1.0) * (fy - 1.0)) - smile - 2.0) < 1.0 && std::fabs(fx) < smile + 1.5;
					if (eye || mouth)
						c = Rgb(40, 30, 30);
				}
				strip.setPixel(x, y, qRgb((int)std::lround(c.x * 255), (int)std::lround(c.y * 255), (int)std::lround(c.z * 255)));
			}
		}
		out.WritePng(std::string("art/emoticons/") + e.pszName, strip);
	}
}
} // namespace sampleart
