// Draws the images of the sample game tree from simple shapes, so that every picture the tool
// shows is ours and the same bytes come out on every run.
//
//   make_sample_images <dir>             the tool images, into <dir> (.../game/core/tools/images)
//   make_sample_images --addons <dir>    the pictures of the sample addons, into <dir>
//   make_sample_images --sheet <out.png> every image at 4x with its name, on light and dark
//
// Each picture is drawn on a 32-unit square (scaled to its pixel size), with a dark slate
// outline, a teal primary colour and white highlights.

#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImage>
#include <QImageWriter>
#include <QPainter>
#include <QPainterPath>
#include <QPainterPathStroker>
#include <QtMath>

#include <algorithm>
#include <cstdio>
#include <initializer_list>
#include <vector>

namespace
{
const QColor kSlate(0x2b, 0x36, 0x45);
const QColor kWhite(0xff, 0xff, 0xff);
const QColor kRed(0xe0, 0x45, 0x4f);
const QColor kYellow(0xf6, 0xbf, 0x2f);
const QColor kMint(0x3c, 0xc8, 0x86);
const QColor kFolder(0xf2, 0xb6, 0x45);
const QColor kSteel(0xdc, 0xe4, 0xeb);
const QColor kWood(0xf4, 0xd3, 0x9c);
const QColor kGrey(0x8a, 0x96, 0xa3);
const QColor kGloss(0xff, 0xff, 0xff, 0xd2); // the white highlights

// The colours of one state of an icon.
struct Pal { QColor primary, light; double outline; }; // outline width in 32-unit space

// ---------------------------------------------------------------------------------------------
// Shape helpers (all in 32-unit space).

QPainterPath Rect(double x, double y, double w, double h, double r)
{
	QPainterPath path;
	path.addRoundedRect(QRectF(x, y, w, h), r, r);
	return path;
}

QPainterPath Circle(double cx, double cy, double r) { return Rect(cx - r, cy - r, 2 * r, 2 * r, r); }

QPainterPath Poly(std::initializer_list<QPointF> points, bool closed = true)
{
	QPainterPath path;
	path.addPolygon(QPolygonF(QVector<QPointF>(points)));
	if (closed)
		path.closeSubpath();
	return path;
}

// An arc of the circle around (cx, cy); angles in degrees, counterclockwise.
QPainterPath Arc(double cx, double cy, double r, double start, double sweep)
{
	QPainterPath path;
	path.arcMoveTo(QRectF(cx - r, cy - r, 2 * r, 2 * r), start);
	path.arcTo(QRectF(cx - r, cy - r, 2 * r, 2 * r), start, sweep);
	return path;
}

// The outline of a line `width` wide along `path`, with round ends.
QPainterPath Thick(const QPainterPath &path, double width)
{
	QPainterPathStroker stroker;
	stroker.setWidth(width);
	stroker.setCapStyle(Qt::RoundCap);
	stroker.setJoinStyle(Qt::RoundJoin);
	return stroker.createStroke(path).simplified();
}

QPen RoundPen(const QColor &color, double width) { return QPen(color, width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin); }

// A filled shape with the slate outline.
void Fill(QPainter &p, const Pal &c, const QPainterPath &path, const QColor &fill)
{
	p.setPen(RoundPen(kSlate, c.outline));
	p.setBrush(fill);
	p.drawPath(path);
}

// A filled polygon whose corners are rounded by `radius` (it grows by `radius` all round).
void FillRound(QPainter &p, const Pal &c, const QPainterPath &path, const QColor &fill, double radius)
{
	p.setBrush(Qt::NoBrush);
	p.setPen(RoundPen(kSlate, 2 * radius + c.outline));
	p.drawPath(path);
	p.setPen(RoundPen(fill, 2 * radius));
	p.setBrush(fill);
	p.drawPath(path);
}

void Line(QPainter &p, const QPainterPath &path, const QColor &color, double width)
{
	p.setPen(RoundPen(color, width));
	p.setBrush(Qt::NoBrush);
	p.drawPath(path);
}

void Dot(QPainter &p, double cx, double cy, double r, const QColor &color) { p.fillPath(Circle(cx, cy, r), color); }

// A thick arc with an arrowhead at its end.
QPainterPath ArcArrow(double cx, double cy, double r, double start, double sweep, double width, double head)
{
	const double a = qDegreesToRadians(start + sweep);
	const QPointF radial(qCos(a), -qSin(a));
	const double dir = sweep < 0 ? -1.0 : 1.0;
	const QPointF tangent(-qSin(a) * dir, -qCos(a) * dir);
	const QPointF end(cx + r * radial.x(), cy + r * radial.y());
	const QPainterPath tip = Poly({ end + tangent * head, end - tangent + radial * head, end - tangent - radial * head });
	return Thick(Arc(cx, cy, r, start, sweep), width).united(tip).simplified();
}

// A four-pointed sparkle with curved sides.
QPainterPath Sparkle(double cx, double cy, double r, double waist)
{
	QPainterPath path;
	path.moveTo(cx, cy - r);
	path.quadTo(cx + waist, cy - waist, cx + r, cy);
	path.quadTo(cx + waist, cy + waist, cx, cy + r);
	path.quadTo(cx - waist, cy + waist, cx - r, cy);
	path.quadTo(cx - waist, cy - waist, cx, cy - r);
	return path;
}

// An eye shape from x0 to x1 on the line y = cy, `bulge` above and below it.
QPainterPath Almond(double x0, double x1, double cy, double bulge)
{
	QPainterPath path;
	path.moveTo(x0, cy);
	path.quadTo((x0 + x1) / 2, cy - 2 * bulge, x1, cy);
	path.quadTo((x0 + x1) / 2, cy + 2 * bulge, x0, cy);
	return path;
}

// A leaf from `base` to `tip`, `width` across.
QPainterPath Leaf(QPointF base, QPointF tip, double width)
{
	const QPointF along = tip - base;
	const double length = qSqrt(QPointF::dotProduct(along, along));
	const QPointF side(-along.y() / length * width, along.x() / length * width);
	QPainterPath path;
	path.moveTo(base);
	path.cubicTo(base + along * 0.15 + side, base + along * 0.75 + side, tip);
	path.cubicTo(base + along * 0.75 - side, base + along * 0.15 - side, base);
	return path;
}

// ---------------------------------------------------------------------------------------------
// The pictures.

void DrawAdd(QPainter &p, const Pal &c)
{
	Fill(p, c, Rect(12, 4, 8, 24, 2.5).united(Rect(4, 12, 24, 8, 2.5)).simplified(), c.primary);
	Line(p, Poly({ { 14.5, 7 }, { 14.5, 10.5 } }, false), kGloss, 1.6);
}

void DrawReupload(QPainter &p, const Pal &c)
{
	Fill(p, c, Thick(Poly({ { 5.5, 18 }, { 5.5, 26.5 }, { 26.5, 26.5 }, { 26.5, 18 } }, false), 4), c.light);
	FillRound(p, c, Poly({ { 16, 4.5 }, { 24, 12.5 }, { 19.5, 12.5 }, { 19.5, 21 }, { 12.5, 21 }, { 12.5, 12.5 }, { 8, 12.5 } }), c.primary, 1);
}

void DrawEdit(QPainter &p, const Pal &c)
{
	p.save();
	p.translate(16, 16);
	p.rotate(135);
	Fill(p, c, Rect(-16, -4.5, 8, 9, 2.5), QColor(0xf2, 0x8b, 0x93));
	Fill(p, c, Rect(-10.5, -4.5, 17, 9, 0.5), c.primary);
	Fill(p, c, Rect(-11.5, -4.5, 3, 9, 0.5), kSteel);
	Fill(p, c, Poly({ { 6.5, -4.5 }, { 15, 0 }, { 6.5, 4.5 } }), kWood);
	Fill(p, c, Poly({ { 12, -1.7 }, { 15, 0 }, { 12, 1.7 } }), kSlate);
	Line(p, Poly({ { -6, -1.8 }, { 3.5, -1.8 } }, false), kGloss, 1.4);
	p.restore();
}

void DrawDelete(QPainter &p, const Pal &c)
{
	Fill(p, c, Rect(12, 3.5, 8, 5, 1.5), c.light);
	FillRound(p, c, Poly({ { 8, 12 }, { 24, 12 }, { 22.5, 27 }, { 9.5, 27 } }), c.primary, 1.2);
	Fill(p, c, Rect(4.5, 7, 23, 4, 1.8), c.primary);
	for (double x : { 12.8, 16.0, 19.2 })
		Line(p, Poly({ { x, 15.5 }, { x, 24 } }, false), kGloss, 1.5);
}

void DrawRefresh(QPainter &p, const Pal &c)
{
	Fill(p, c, ArcArrow(16, 16, 9, 30, 115, 3.6, 4.5), c.primary);
	Fill(p, c, ArcArrow(16, 16, 9, 210, 115, 3.6, 4.5), c.primary);
}

void DrawView(QPainter &p, const Pal &c)
{
	const QPainterPath eye = Almond(2.5, 29.5, 16, 7.25);
	Fill(p, c, eye, kWhite);
	Fill(p, c, Circle(16, 16, 6.5).intersected(eye), c.primary);
	Dot(p, 16, 16, 2.8, kSlate);
	Dot(p, 18.3, 13.7, 1.4, kWhite);
}

// "?" drawn as a stroke, centred on x = 16.
void QuestionMark(QPainter &p, const QColor &color, double width)
{
	QPainterPath q = Arc(16, 12, 4.5, 160, -250);
	q.lineTo(16, 18.5);
	Line(p, q, color, width);
	Dot(p, 16, 23.5, width * 0.62, color);
}

void DrawHelp(QPainter &p, const Pal &c)
{
	Fill(p, c, Circle(16, 16, 13), c.primary);
	QuestionMark(p, kWhite, 3.2);
}

void DrawCritical(QPainter &p, const Pal &c)
{
	p.setPen(RoundPen(kRed.darker(150), c.outline));
	p.setBrush(kRed);
	p.drawEllipse(QPointF(16, 16), 14, 14);
	Line(p, Poly({ { 11, 11 }, { 21, 21 } }, false), kWhite, 3.6);
	Line(p, Poly({ { 21, 11 }, { 11, 21 } }, false), kWhite, 3.6);
}

void DrawWarning(QPainter &p, const Pal &c)
{
	FillRound(p, c, Poly({ { 16, 5.5 }, { 27, 25.5 }, { 5, 25.5 } }), kYellow, 2.5);
	Line(p, Poly({ { 16, 11.5 }, { 16, 19 } }, false), kSlate, 3);
	Dot(p, 16, 23.2, 1.75, kSlate);
}

// An isometric box with a strip of tape.
void DrawPackage(QPainter &p, const Pal &c)
{
	Fill(p, c, Poly({ { 4, 10 }, { 16, 16 }, { 16, 29 }, { 4, 23 } }), c.primary);
	Fill(p, c, Poly({ { 16, 16 }, { 28, 10 }, { 28, 23 }, { 16, 29 } }), c.primary.darker(135));
	Fill(p, c, Poly({ { 16, 4 }, { 28, 10 }, { 16, 16 }, { 4, 10 } }), c.light);
	Line(p, Poly({ { 10, 7 }, { 22, 13 }, { 22, 25.5 } }, false), kSlate, 4.2);
	Line(p, Poly({ { 10, 7 }, { 22, 13 }, { 22, 25.5 } }, false), kWood, 2.4);
	Line(p, Poly({ { 6.5, 13.5 }, { 6.5, 17 } }, false), kGloss, 1.4);
}

// An open isometric box, seen from above its front corner; `inside` is drawn between its
// interior and its front faces, so that it seems to come out of the box.
template <typename Inside>
void OpenBox(QPainter &p, const Pal &c, Inside inside)
{
	Fill(p, c, Poly({ { 4, 18 }, { 16, 12.5 }, { 28, 18 }, { 16, 23.5 } }), kSlate.lighter(160));
	inside();
	Fill(p, c, Poly({ { 4, 18 }, { 16, 23.5 }, { 16, 30.5 }, { 4, 25 } }), c.primary);
	Fill(p, c, Poly({ { 16, 23.5 }, { 28, 18 }, { 28, 25 }, { 16, 30.5 } }), c.primary.darker(135));
	Line(p, Poly({ { 6.5, 21 }, { 6.5, 24 } }, false), kGloss, 1.4);
}

// A mint sprig: a stem with a pair of leaves and a top leaf.
void MintSprig(QPainter &p, const Pal &c, QPointF base, double height)
{
	const QPointF top = base - QPointF(0, height);
	Line(p, Poly({ base, top + QPointF(0, 2) }, false), kSlate, 2 + c.outline);
	Line(p, Poly({ base, top + QPointF(0, 2) }, false), kMint.darker(140), 2);
	const QPointF fork = base - QPointF(0, height * 0.45);
	const QPointF leaves[][2] = { { fork, fork + QPointF(-height * 0.7, -height * 0.3) },
		{ fork, fork + QPointF(height * 0.7, -height * 0.3) }, { top + QPointF(0, 1), top - QPointF(0, height * 0.45) } };
	for (const auto &leaf : leaves)
	{
		Fill(p, c, Leaf(leaf[0], leaf[1], height * 0.3), kMint);
		Line(p, Poly({ leaf[0] + (leaf[1] - leaf[0]) * 0.25, leaf[0] + (leaf[1] - leaf[0]) * 0.7 }, false), kGloss, 1.1);
	}
}

void DrawAppIcon(QPainter &p, const Pal &c) { OpenBox(p, c, [&] { MintSprig(p, c, { 16, 20 }, 12); }); }

void DrawImportIcon(QPainter &p, const Pal &c)
{
	OpenBox(p, c, [&] {
		MintSprig(p, c, { 21.5, 19 }, 11);
		FillRound(p, c, Poly({ { 9, 2 }, { 13, 2 }, { 13, 10 }, { 16.5, 10 }, { 11, 18 }, { 5.5, 10 }, { 9, 10 } }), kWhite, 0.8);
	});
}

void DrawSword(QPainter &p, const Pal &pal)
{
	p.save();
	p.translate(16.5, 15.5);
	p.rotate(-45);
	p.scale(1.2, 1.2);
	const Pal c{ pal.primary, pal.light, pal.outline / 1.2 };
	Fill(p, c, Poly({ { -5, -2.6 }, { 10, -2.6 }, { 15, 0 }, { 10, 2.6 }, { -5, 2.6 } }), kSteel);
	Line(p, Poly({ { -3, 0 }, { 10.5, 0 } }, false), QColor(0x2b, 0x36, 0x45, 110), 1);
	Fill(p, c, Rect(-13, -1.8, 7, 3.6, 1), kSlate.lighter(150));
	Fill(p, c, Rect(-7.5, -7, 3, 14, 1.5), c.primary);
	Fill(p, c, Circle(-14.5, 0, 2.4), c.primary);
	p.restore();
}

void DrawDelta(QPainter &p, const Pal &c) { Fill(p, c, Thick(Poly({ { 16, 6 }, { 26.5, 25 }, { 5.5, 25 } }), 4.5), c.primary); }

void DrawSparkles(QPainter &p, const Pal &c)
{
	Fill(p, c, Sparkle(13, 18, 11, 2.2), c.primary);
	Fill(p, c, Sparkle(24.5, 7.5, 5.5, 1.2), kYellow);
	Fill(p, c, Sparkle(25, 24.5, 4, 0.9), c.light);
	Dot(p, 10.5, 15.5, 1.3, kGloss);
}

void DrawLoop(QPainter &p, const Pal &c)
{
	Fill(p, c, ArcArrow(16, 16, 10, 110, -290, 3.6, 4.5), c.primary);
	FillRound(p, c, Poly({ { 14, 12.5 }, { 19.5, 16 }, { 14, 19.5 } }), c.light, 0.8);
}

void DrawMeshLimits(QPainter &p, const Pal &c)
{
	Fill(p, c, Poly({ { 16, 3 }, { 28, 20 }, { 4, 20 } }), c.light);
	Line(p, Poly({ { 10, 11.5 }, { 22, 11.5 }, { 16, 20 } }), kSlate, 1.4);
	for (QPointF v : { QPointF(16, 3), QPointF(28, 20), QPointF(4, 20), QPointF(10, 11.5), QPointF(22, 11.5), QPointF(16, 20) })
		Dot(p, v.x(), v.y(), 1.8, c.primary);
	Fill(p, c, Rect(3, 24, 26, 5, 2.5), kWhite);
	p.fillPath(Rect(4, 25, 17.5, 3, 1.5), c.primary);
	Line(p, Poly({ { 23.5, 22 }, { 23.5, 31 } }, false), kRed, 2);
}

void DrawRunner(QPainter &p, const Pal &c)
{
	QPainterPath body = Poly({ { 17.5, 10 }, { 14, 18 } }, false);
	body.addPath(Poly({ { 10, 10.5 }, { 13, 13.5 }, { 17.5, 12.5 }, { 21.5, 16 }, { 26, 14.5 } }, false));
	body.addPath(Poly({ { 14, 18 }, { 19.5, 22 }, { 18.5, 28.5 } }, false));
	body.addPath(Poly({ { 14, 18 }, { 10.5, 23.5 }, { 4.5, 24 } }, false));
	Fill(p, c, Thick(body, 3.4), c.primary);
	Fill(p, c, Circle(20.5, 5.5, 3.2), c.primary);
	Line(p, Poly({ { 2.5, 13 }, { 6.5, 13 } }, false), kGrey, 1.5);
	Line(p, Poly({ { 1.5, 17.5 }, { 5.5, 17.5 } }, false), kGrey, 1.5);
}

void DrawChevron(QPainter &p, const Pal &) { Line(p, Poly({ { 5.5, 8 }, { 11, 16 }, { 5.5, 24 } }, false), kGrey, 1.6); }

void Folder(QPainter &p, const Pal &c)
{
	Fill(p, c, Rect(3, 6, 11, 8, 2).united(Rect(3, 9, 26, 19, 2)).simplified(), kFolder.darker(120));
	Fill(p, c, Rect(3, 12, 26, 16, 2), kFolder);
}

void DrawAssetBrowser(QPainter &p, const Pal &c)
{
	Folder(p, c);
	for (int row = 0; row < 2; ++row)
		for (int col = 0; col < 3; ++col)
			Fill(p, Pal{ c.primary, c.light, 1.2 }, Rect(7 + col * 6.5, 15 + row * 6, 4.5, 4, 0.8), (row + col) % 2 ? kWhite : c.primary);
}

void DrawWorkingSet(QPainter &p, const Pal &c)
{
	Fill(p, c, Rect(11, 3, 17, 13, 2), c.light);
	Fill(p, c, Rect(7.5, 7.5, 17, 13, 2), c.light.darker(110));
	Fill(p, c, Rect(4, 12, 18, 16, 2), c.primary);
	Line(p, Poly({ { 8.5, 20 }, { 11.5, 23 }, { 17.5, 16.5 } }, false), kWhite, 2.6);
}

void DrawFolder(QPainter &p, const Pal &c)
{
	Folder(p, c);
	Line(p, Poly({ { 7, 16 }, { 13, 16 } }, false), kGloss, 2);
}

void DrawGear(QPainter &p, const Pal &c)
{
	QPainterPath gear = Circle(16, 16, 10);
	for (int i = 0; i < 8; ++i)
	{
		QTransform t;
		t.translate(16, 16);
		t.rotate(i * 45);
		gear = gear.united(t.map(Rect(-3.2, -14.5, 6.4, 7, 1.2)));
	}
	Fill(p, c, gear.subtracted(Circle(16, 16, 4)).simplified(), c.primary);
}

void DrawLock(QPainter &p, const Pal &c)
{
	Fill(p, c, Thick(Rect(10.5, 5, 11, 18, 5.5), 3.6), kSteel);
	Fill(p, c, Rect(6, 14, 20, 15, 2.5), kYellow);
	Fill(p, c, Circle(16, 20, 2.2).united(Rect(15, 20, 2, 5, 0.8)).simplified(), kSlate);
}

void DrawSave(QPainter &p, const Pal &c)
{
	FillRound(p, c, Poly({ { 5.5, 5.5 }, { 23, 5.5 }, { 26.5, 9 }, { 26.5, 26.5 }, { 5.5, 26.5 } }), c.primary, 1.5);
	Fill(p, c, Rect(10, 4, 12, 8.5, 1), kSteel);
	Fill(p, c, Rect(17, 5.5, 3, 5, 0.5), kSlate);
	Fill(p, c, Rect(8.5, 17, 15, 11, 1), kWhite);
}

void DrawGem(QPainter &p, const Pal &c)
{
	Fill(p, c, Poly({ { 10, 5 }, { 22, 5 }, { 28.5, 12.5 }, { 16, 28 }, { 3.5, 12.5 } }), c.primary);
	Fill(p, c, Poly({ { 10, 5 }, { 22, 5 }, { 19.5, 12.5 }, { 12.5, 12.5 } }), c.light);
	Line(p, Poly({ { 3.5, 12.5 }, { 12.5, 12.5 }, { 16, 28 }, { 19.5, 12.5 }, { 28.5, 12.5 } }, false), kSlate, 1.3);
	Line(p, Poly({ { 7.5, 14.5 }, { 13, 21 } }, false), kGloss, 1.5);
}

void DrawHelmet(QPainter &p, const Pal &c)
{
	Fill(p, c, Rect(12.5, 0.5, 7, 11, 3.5), kRed);
	Fill(p, c, Circle(16, 16.5, 10).united(Rect(6, 16.5, 20, 11.5, 1.5)).simplified(), c.primary);
	Fill(p, c, Rect(8.5, 15, 15, 3.6, 1.6).united(Rect(14.2, 15, 3.6, 13, 1.6)).simplified(), kSlate);
	Line(p, Poly({ { 9.5, 11.5 }, { 12.5, 9 } }, false), kGloss, 1.6);
}

void DrawCourier(QPainter &p, const Pal &c)
{
	Fill(p, c, Leaf({ 11, 17 }, { 2, 6 }, 4), kWhite);
	Fill(p, c, Leaf({ 21, 17 }, { 30, 6 }, 4), kWhite);
	Line(p, Poly({ { 13, 25 }, { 12, 29 } }, false), kSlate, 2);
	Line(p, Poly({ { 19, 25 }, { 20, 29 } }, false), kSlate, 2);
	Fill(p, c, Circle(16, 18, 8.5), c.primary);
	for (double x : { 13.0, 19.0 })
		Dot(p, x, 16, 2.4, kWhite);
	for (double x : { 13.4, 19.4 })
		Dot(p, x, 16.3, 1.2, kSlate);
	Fill(p, Pal{ c.primary, c.light, 1.2 }, Poly({ { 14.5, 20 }, { 17.5, 20 }, { 16, 22.5 } }), kYellow);
}

void DrawWard(QPainter &p, const Pal &c)
{
	Fill(p, c, Rect(9, 26, 14, 4, 1.5), kSlate.lighter(170));
	Fill(p, c, Rect(13, 14, 6, 13, 1.5), QColor(0xa0, 0x7a, 0x55));
	Fill(p, c, Circle(16, 10, 8), c.primary);
	Fill(p, Pal{ c.primary, c.light, 1.2 }, Almond(10, 22, 10, 3.25), kWhite);
	Dot(p, 16, 10, 2.2, kSlate);
}

void DrawPicture(QPainter &p, const Pal &c)
{
	const QPainterPath frame = Rect(3, 6, 26, 20, 2.5);
	Fill(p, c, frame, c.light);
	Fill(p, c, Poly({ { 3, 26 }, { 12, 14 }, { 18, 21 }, { 21.5, 17.5 }, { 29, 26 } }).intersected(frame), c.primary);
	Fill(p, c, Circle(22, 12, 2.6), kYellow);
}

void DrawSound(QPainter &p, const Pal &c)
{
	FillRound(p, c, Poly({ { 3.5, 12.5 }, { 7.5, 12.5 }, { 13.5, 7.5 }, { 13.5, 24.5 }, { 7.5, 19.5 }, { 3.5, 19.5 } }), c.primary, 0.8);
	for (double r : { 5.0, 11.5 })
		Line(p, Arc(13.5, 16, r, -42, 84), c.primary, 2.6);
}

// A sheet of paper with a folded corner.
void Page(QPainter &p, const Pal &c)
{
	FillRound(p, c, Poly({ { 7, 3.5 }, { 19, 3.5 }, { 25, 9.5 }, { 25, 28.5 }, { 7, 28.5 } }), kWhite, 1);
	Fill(p, c, Poly({ { 19, 3.5 }, { 25, 9.5 }, { 19, 9.5 } }), kSteel);
}

// A round mint badge with a white "+" in the lower right corner.
void PlusBadge(QPainter &p, const Pal &c)
{
	Fill(p, c, Circle(23.5, 23.5, 7), kMint);
	Line(p, Poly({ { 23.5, 19.5 }, { 23.5, 27.5 } }, false), kWhite, 2.6);
	Line(p, Poly({ { 19.5, 23.5 }, { 27.5, 23.5 } }, false), kWhite, 2.6);
}

// A magnifying glass with its lens centred on (cx, cy).
void Magnifier(QPainter &p, const Pal &c, double cx, double cy, double r)
{
	const QPointF handle(cx + r * 0.72, cy + r * 0.72);
	Fill(p, c, Thick(Poly({ handle, handle + QPointF(r * 0.8, r * 0.8) }, false), r * 0.55), kSlate.lighter(150));
	Fill(p, c, Circle(cx, cy, r), c.light);
	Line(p, Arc(cx, cy, r * 0.6, 100, 70), kWhite, 1.5);
}

void DrawAddFile(QPainter &p, const Pal &c)
{
	Page(p, c);
	for (double y : { 14.0, 18.0 })
		Line(p, Poly({ { 11, y }, { 20, y } }, false), kGrey, 1.4);
	PlusBadge(p, c);
}

void DrawAddFolder(QPainter &p, const Pal &c)
{
	p.save();
	p.translate(-2, -3);
	Folder(p, c);
	p.restore();
	PlusBadge(p, c);
}

void DrawLaunchFile(QPainter &p, const Pal &c)
{
	Page(p, c);
	FillRound(p, c, Poly({ { 13, 13.5 }, { 20.5, 18.5 }, { 13, 23.5 } }), c.primary, 1);
}

void DrawShowInExplorer(QPainter &p, const Pal &c)
{
	p.save();
	p.translate(-1.5, -3);
	Folder(p, c);
	p.restore();
	Magnifier(p, c, 19.5, 19.5, 5.5);
}

void DrawSearch(QPainter &p, const Pal &c) { Magnifier(p, c, 13, 13, 9); }

void DrawAbout(QPainter &p, const Pal &c)
{
	Fill(p, c, Circle(16, 16, 13), c.primary);
	Dot(p, 16, 9.5, 2.2, kWhite);
	Line(p, Poly({ { 16, 14.5 }, { 16, 23.5 } }, false), kWhite, 3.4);
}

// A tree of three rows below a node box that shows "+" or "-".
void TreeNode(QPainter &p, const Pal &c, bool bExpand)
{
	Line(p, Poly({ { 9, 13 }, { 9, 25 }, { 15, 25 } }, false), kGrey, 1.6);
	Line(p, Poly({ { 9, 19 }, { 15, 19 } }, false), kGrey, 1.6);
	for (double y : { 19.0, 25.0 })
		Fill(p, c, Rect(16, y - 2.2, 12, 4.4, 1.5), c.light);
	Fill(p, c, Rect(16, 4.8, 12, 4.4, 1.5), c.light);
	Fill(p, c, Rect(3.5, 1.5, 11, 11, 2), c.primary);
	Line(p, Poly({ { 6.5, 7 }, { 11.5, 7 } }, false), kWhite, 2.2);
	if (bExpand)
		Line(p, Poly({ { 9, 4.5 }, { 9, 9.5 } }, false), kWhite, 2.2);
}

void DrawCollapseAll(QPainter &p, const Pal &c) { TreeNode(p, c, false); }
void DrawExpandAll(QPainter &p, const Pal &c) { TreeNode(p, c, true); }

// The pictures of the sample addons.
void DrawCourierSkin(QPainter &p, const Pal &)
{
	p.fillRect(QRectF(0, 0, 32, 32), QColor(0xf7, 0xe6, 0xc8));
	p.setPen(Qt::NoPen);
	p.setBrush(QColor(0xee, 0x86, 0x3a));
	for (int y = 0; y < 4; ++y)
		for (int x = 0; x < 4; ++x)
			p.drawPath(Poly({ { x * 8 + 4.0, y * 8 + 0.5 }, { x * 8 + 7.5, y * 8 + 4.0 }, { x * 8 + 4.0, y * 8 + 7.5 }, { x * 8 + 0.5, y * 8 + 4.0 } }));
}

void DrawArenaLight(QPainter &p, const Pal &c)
{
	QRadialGradient glow(QPointF(16, 16), 16);
	glow.setColorAt(0, QColor(0xff, 0xf4, 0xc2, 255));
	glow.setColorAt(0.45, QColor(0xf6, 0xbf, 0x2f, 170));
	glow.setColorAt(1, QColor(0xf6, 0xbf, 0x2f, 0));
	p.fillRect(QRectF(0, 0, 32, 32), glow);
	Fill(p, c, Sparkle(16, 16, 7, 1.5), kWhite);
}

// ---------------------------------------------------------------------------------------------

using DrawFn = void (*)(QPainter &, const Pal &);

struct Image
{
	const char *path;
	int width, height; // the drawing is scaled so that the longer side spans 32 units
	DrawFn draw;
	bool twoState; // also write <name>_activated.png
};

const std::vector<Image> kToolImages = {
	{ "mintyardmanager/icon_add.png", 32, 32, DrawAdd, true },
	{ "mintyardmanager/icon_reupload.png", 32, 32, DrawReupload, true },
	{ "mintyardmanager/icon_edit.png", 32, 32, DrawEdit, true },
	{ "mintyardmanager/icon_delete.png", 32, 32, DrawDelete, true },
	{ "mintyardmanager/icon_refresh.png", 32, 32, DrawRefresh, true },
	{ "mintyardmanager/icon_view.png", 32, 32, DrawView, true },
	{ "mintyardmanager/icon_help.png", 32, 32, DrawHelp, true },
	{ "mintyardmanager/icon_critical.png", 48, 48, DrawCritical, false },
	{ "mintyardmanager/icon_warning.png", 32, 32, DrawWarning, false },
	{ "mintyardmanager/bdlmanager.png", 32, 32, DrawPackage, false },
	{ "mintyardmanager/Save.png", 32, 32, DrawSave, false },
	{ "mintyardmanager/AddFile.png", 32, 32, DrawAddFile, false },
	{ "mintyardmanager/AddFolder.png", 32, 32, DrawAddFolder, false },
	{ "mintyardmanager/Delete.png", 32, 32, DrawDelete, false },
	{ "mintyardmanager/LaunchFile.png", 32, 32, DrawLaunchFile, false },
	{ "mintyardmanager/ShowInExplorer.png", 32, 32, DrawShowInExplorer, false },
	{ "mintyardmanager/Options.png", 32, 32, DrawGear, false },
	{ "mintyardmanager/Search.png", 32, 32, DrawSearch, false },
	{ "mintyardmanager/About.png", 32, 32, DrawAbout, false },
	{ "mintyardmanager/CollapseAll.png", 32, 32, DrawCollapseAll, false },
	{ "mintyardmanager/ExpandAll.png", 32, 32, DrawExpandAll, false },
	{ "mintyardmanager/mintyardmanager.png", 64, 64, DrawAppIcon, false },
	{ "mintyardmanager/mintyard_import.ico", 32, 32, DrawImportIcon, false },
	{ "mintyardmanager/attack_animation.png", 32, 32, DrawSword, false },
	{ "mintyardmanager/delta_animation.png", 32, 32, DrawDelta, false },
	{ "mintyardmanager/effects_mesh.png", 32, 32, DrawSparkles, false },
	{ "mintyardmanager/looping_animation.png", 32, 32, DrawLoop, false },
	{ "mintyardmanager/mesh_limits.png", 32, 32, DrawMeshLimits, false },
	{ "mintyardmanager/run_animation.png", 32, 32, DrawRunner, false },
	{ "mintyardmanager/step_separator.png", 16, 32, DrawChevron, false },
	{ "assetbrowser/appicon.ico", 32, 32, DrawAssetBrowser, false },
	{ "assetbrowser/workingset.png", 32, 32, DrawWorkingSet, false },
	{ "common/folder_sm.png", 16, 16, DrawFolder, false },
	{ "common/halden_gear_sm.png", 16, 16, DrawGear, false },
	{ "common/icon_warning_sm.png", 16, 16, DrawWarning, false },
	{ "common/lock.png", 16, 16, DrawLock, false },
	{ "common/save_sm.png", 16, 16, DrawSave, false },
	{ "item_editor/item_default.png", 32, 32, DrawGem, false },
	{ "item_editor/item_hero.png", 32, 32, DrawHelmet, false },
	{ "item_editor/item_courier.png", 32, 32, DrawCourier, false },
	{ "item_editor/item_ward.png", 32, 32, DrawWard, false },
	{ "item_editor/item_image.png", 32, 32, DrawPicture, false },
	{ "item_editor/item_sound.png", 32, 32, DrawSound, false },
};

const std::vector<Image> kAddonImages = {
	{ "sample_courier_skin/materials/courier_skin.png", 32, 32, DrawCourierSkin, false },
	{ "arena_lights/materials/arena_light.png", 32, 32, DrawArenaLight, false },
};

QImage Render(const Image &image, bool activated)
{
	// Outlines stay about 2 px (3 px on the big icons) whatever the scale.
	const double scale = std::max(image.width, image.height) / 32.0;
	const double outline = scale >= 2 ? 1.5 : scale > 1 ? 1.75 : 2.0;
	Pal pal{ QColor(0x17, 0x96, 0xaa), QColor(0xc4, 0xea, 0xf0), outline };
	QImage out(image.width, image.height, QImage::Format_ARGB32_Premultiplied);
	out.fill(Qt::transparent);
	QPainter p(&out);
	p.setRenderHint(QPainter::Antialiasing);
	p.scale(scale, scale);
	if (activated)
	{
		pal.primary = QColor(0x1f, 0xc6, 0xe3);
		pal.light = QColor(0xe4, 0xf9, 0xfc);
		p.setPen(QPen(QColor(0x1f, 0xc6, 0xe3, 150), 1));
		p.setBrush(QColor(0x1f, 0xc6, 0xe3, 60));
		p.drawRoundedRect(QRectF(0.5, 0.5, 31, 31), 7, 7);
		// The icon shrinks a little so that the highlight shows all round it.
		p.translate(16, 16);
		p.scale(0.86, 0.86);
		p.translate(-16, -16);
	}
	image.draw(p, pal);
	p.end();
	return out.convertToFormat(QImage::Format_ARGB32);
}

// Every picture of a list as (relative path, image).
std::vector<std::pair<QString, QImage>> RenderAll(const std::vector<Image> &images)
{
	std::vector<std::pair<QString, QImage>> out;
	for (const Image &image : images)
	{
		const QString path = QString::fromUtf8(image.path);
		out.emplace_back(path, Render(image, false));
		if (image.twoState)
			out.emplace_back(path.chopped(4) + "_activated.png", Render(image, true));
	}
	return out;
}

bool WriteAll(const QString &dir, const std::vector<std::pair<QString, QImage>> &images)
{
	for (const auto &[name, image] : images)
	{
		const QString file = QDir(dir).filePath(name);
		QDir().mkpath(QFileInfo(file).absolutePath());
		QImageWriter writer(file, name.endsWith(".ico") ? "ico" : "png");
		if (!writer.write(image))
		{
			std::fprintf(stderr, "make_sample_images: cannot write %s: %s\n", qPrintable(file), qPrintable(writer.errorString()));
			return false;
		}
		std::printf("%s\n", qPrintable(file));
	}
	return true;
}

// Every image at 4x with its name, once on a light and once on a dark background.
bool WriteSheet(const QString &file, const std::vector<std::pair<QString, QImage>> &images)
{
	const int zoom = 4, cellW = 300, cellH = 290, columns = 7, pad = 16;
	const int rows = int(images.size() + columns - 1) / columns;
	QImage sheet(columns * cellW + 2 * pad, 2 * (rows * cellH + pad) + pad, QImage::Format_ARGB32);
	QPainter p(&sheet);
	const QColor backgrounds[] = { QColor(0xf2, 0xf3, 0xf5), QColor(0x2a, 0x2e, 0x33) };
	for (int half = 0; half < 2; ++half)
	{
		const int top = half * (rows * cellH + pad);
		p.fillRect(QRect(0, top, sheet.width(), rows * cellH + 2 * pad), backgrounds[half]);
		p.setPen(half ? QColor(0xdd, 0xdd, 0xdd) : QColor(0x33, 0x33, 0x33));
		for (int i = 0; i < int(images.size()); ++i)
		{
			const QImage &image = images[size_t(i)].second;
			const QPoint at(pad + (i % columns) * cellW, top + pad + (i / columns) * cellH);
			const QImage big = image.scaled(image.size() * zoom, Qt::IgnoreAspectRatio, Qt::FastTransformation);
			p.drawImage(at + QPoint((cellW - big.width()) / 2, 256 - big.height()), big);
			p.drawText(QRect(at.x(), at.y() + 258, cellW, 30), Qt::AlignCenter, images[size_t(i)].first.section('/', -1));
		}
	}
	p.end();
	return sheet.save(file, "png");
}
} // namespace

int main(int argc, char **argv)
{
	if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
		qputenv("QT_QPA_PLATFORM", "offscreen");
	QGuiApplication app(argc, argv);
	const QStringList args = app.arguments().mid(1);
	if (args.size() == 1 && !args[0].startsWith("--"))
		return WriteAll(args[0], RenderAll(kToolImages)) ? 0 : 1;
	if (args.size() == 2 && args[0] == "--addons")
		return WriteAll(args[1], RenderAll(kAddonImages)) ? 0 : 1;
	if (args.size() == 2 && args[0] == "--sheet")
	{
		auto all = RenderAll(kToolImages), addons = RenderAll(kAddonImages);
		all.insert(all.end(), addons.begin(), addons.end());
		return WriteSheet(args[1], all) ? 0 : 1;
	}
	std::fprintf(stderr, "usage: make_sample_images <images dir> | --addons <addons dir> | --sheet <out.png>\n");
	return 2;
}
