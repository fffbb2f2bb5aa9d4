#include "artmesh.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <utility>

namespace sampleart
{
namespace
{
// Weights are kept in thousandths, so that the text of the file holds exactly what the mesh
// holds and every set sums to exactly 1.
std::vector<BoneWeight_t> QuantiseWeights(std::vector<BoneWeight_t> weights)
{
	// Merge duplicates, drop what is not positive.
	std::map<int, double> byBone;
	for (const BoneWeight_t &w : weights)
	{
		if (w.nBone >= 0 && w.flWeight > 0.0)
			byBone[w.nBone] += w.flWeight;
	}
	std::vector<BoneWeight_t> sorted;
	for (const auto &[bone, weight] : byBone)
		sorted.push_back({ bone, weight });
	std::stable_sort(sorted.begin(), sorted.end(), [](const BoneWeight_t &a, const BoneWeight_t &b) { return a.flWeight > b.flWeight; });
	if (sorted.size() > 4)
		sorted.resize(4);
	double total = 0.0;
	for (const BoneWeight_t &w : sorted)
		total += w.flWeight;
	if (sorted.empty() || total <= 0.0)
		return {};
	std::vector<int> thousandths;
	int sum = 0;
	for (const BoneWeight_t &w : sorted)
	{
		const int t = (int)std::lround(1000.0 * w.flWeight / total);
		thousandths.push_back(t);
		sum += t;
	}
	thousandths[0] += 1000 - sum; // the largest takes the rounding
	std::vector<BoneWeight_t> out;
	for (size_t i = 0; i < sorted.size(); ++i)
	{
		if (thousandths[i] > 0)
			out.push_back({ sorted[i].nBone, thousandths[i] / 1000.0 });
	}
	std::sort(out.begin(), out.end(), [](const BoneWeight_t &a, const BoneWeight_t &b) { return a.nBone < b.nBone; });
	return out;
}

Vec3 TriangleNormal(const Vec3 &a, const Vec3 &b, const Vec3 &c) { return Cross(b - a, c - a); }
} // namespace

bool CArtMesh::IsSkinned() const
{
	for (const std::vector<BoneWeight_t> &w : m_Weights)
	{
		if (!w.empty())
			return true;
	}
	return false;
}

int CArtMesh::TriangleCount() const
{
	int count = 0;
	for (const Face_t &f : m_Faces)
		count += f.nCorners - 2;
	return count;
}

int CArtMesh::CornerCount() const
{
	int count = 0;
	for (const Face_t &f : m_Faces)
		count += f.nCorners;
	return count;
}

int CArtMesh::AddPoint(const Vec3 &p, const WeightFn_t &weights)
{
	m_Points.push_back(p);
	m_Weights.push_back(weights ? QuantiseWeights(weights(p)) : std::vector<BoneWeight_t>());
	return (int)m_Points.size() - 1;
}

void CArtMesh::AddFace(std::initializer_list<int> points, std::initializer_list<Vec2> uvs, int material, const Vec3 &flatNormal)
{
	Face_t f;
	f.nCorners = (int)points.size();
	f.nMaterial = material;
	int k = 0;
	for (int p : points)
		f.corners[k++].nPoint = p;
	k = 0;
	for (const Vec2 &uv : uvs)
		f.corners[k++].uv = uv;
	for (Corner_t &c : f.corners)
		c.normal = flatNormal;
	m_Faces.push_back(f);
}

namespace
{
// A face's normal by Newell's method (its length is twice the area of a planar face).
Vec3 FaceNormal(const std::vector<Vec3> &points, const Face_t &f)
{
	Vec3 n;
	for (int k = 0; k < f.nCorners; ++k)
	{
		const Vec3 &a = points[f.corners[k].nPoint], &b = points[f.corners[(k + 1) % f.nCorners].nPoint];
		n += Vec3{ (a.y - b.y) * (a.z + b.z), (a.z - b.z) * (a.x + b.x), (a.x - b.x) * (a.y + b.y) };
	}
	return n;
}

// Six times the signed volume that a face's fan of triangles encloses with the origin.
double FaceVolume(const std::vector<Vec3> &points, const Face_t &f)
{
	double v = 0.0;
	for (int k = 1; k + 1 < f.nCorners; ++k)
		v += Dot(points[f.corners[0].nPoint], Cross(points[f.corners[k].nPoint], points[f.corners[k + 1].nPoint]));
	return v;
}
} // namespace

void CArtMesh::FinishShell(size_t firstFace, int firstPoint, bool smooth)
{
	// Wound outwards whatever way the shell's frames turn.
	double volume = 0.0;
	for (size_t i = firstFace; i < m_Faces.size(); ++i)
		volume += FaceVolume(m_Points, m_Faces[i]);
	if (volume < 0.0)
	{
		for (size_t i = firstFace; i < m_Faces.size(); ++i)
			std::reverse(m_Faces[i].corners + 1, m_Faces[i].corners + m_Faces[i].nCorners);
	}
	// Normals: smooth over the shell (area weighted), or the face's own.
	std::vector<Vec3> pointNormals(m_Points.size() - firstPoint);
	for (size_t i = firstFace; i < m_Faces.size(); ++i)
	{
		Face_t &f = m_Faces[i];
		const Vec3 n = FaceNormal(m_Points, f);
		for (int k = 0; k < f.nCorners; ++k)
		{
			pointNormals[f.corners[k].nPoint - firstPoint] += n;
			f.corners[k].normal = Normalize(n);
		}
	}
	if (smooth)
	{
		for (size_t i = firstFace; i < m_Faces.size(); ++i)
		{
			Face_t &f = m_Faces[i];
			for (int k = 0; k < f.nCorners; ++k)
				f.corners[k].normal = Normalize(pointNormals[f.corners[k].nPoint - firstPoint]);
		}
	}
	++m_nShells;
}

void CArtMesh::AddLoft(const std::vector<LoftRing_t> &rings, int segments, double capStart, double capEnd, const UVRect_t &uv,
	const WeightFn_t &weights, int material, bool smooth)
{
	if (rings.size() < 2 || segments < 3)
		return;
	const size_t firstFace = m_Faces.size();
	const int firstPoint = (int)m_Points.size();
	const int ringCount = (int)rings.size();
	for (const LoftRing_t &ring : rings)
	{
		for (int j = 0; j < segments; ++j)
		{
			const double a = 2.0 * kPi * j / segments;
			AddPoint(ring.centre + ring.axisX * (ring.rx * std::cos(a)) + ring.axisY * (ring.ry * std::sin(a)), weights);
		}
	}
	auto at = [&](int ring, int j) { return firstPoint + ring * segments + (j % segments); };
	auto ringUV = [&](int ring, int j) { return uv.Map((double)j / segments, rings[ring].v); };
	for (int i = 0; i + 1 < ringCount; ++i)
	{
		for (int j = 0; j < segments; ++j)
			AddFace({ at(i, j), at(i, j + 1), at(i + 1, j + 1), at(i + 1, j) }, { ringUV(i, j), ringUV(i, j + 1), ringUV(i + 1, j + 1), ringUV(i + 1, j) },
				material);
	}
	// The caps: a cone to a pole beyond each end ring.
	const Vec3 startDir = Normalize(rings[0].centre - rings[1].centre);
	const Vec3 endDir = Normalize(rings[ringCount - 1].centre - rings[ringCount - 2].centre);
	const int startPole = AddPoint(rings[0].centre + startDir * capStart, weights);
	const int endPole = AddPoint(rings[ringCount - 1].centre + endDir * capEnd, weights);
	const double vStart = rings[0].v, vEnd = rings[ringCount - 1].v;
	for (int j = 0; j < segments; ++j)
	{
		AddFace({ startPole, at(0, j + 1), at(0, j) }, { uv.Map((j + 0.5) / segments, vStart), ringUV(0, j + 1), ringUV(0, j) }, material);
		AddFace({ endPole, at(ringCount - 1, j), at(ringCount - 1, j + 1) },
			{ uv.Map((j + 0.5) / segments, vEnd), ringUV(ringCount - 1, j), ringUV(ringCount - 1, j + 1) }, material);
	}
	FinishShell(firstFace, firstPoint, smooth);
}

void CArtMesh::AddEllipsoid(const Mat4 &frame, const Vec3 &radii, int stacks, int slices, const UVRect_t &uv, const WeightFn_t &weights,
	int material)
{
	std::vector<LoftRing_t> rings;
	for (int k = 1; k < stacks; ++k)
	{
		const double phi = kPi * k / stacks;
		LoftRing_t ring;
		ring.centre = frame.Point({ 0, 0, -radii.z * std::cos(phi) });
		ring.axisX = frame.Direction({ 1, 0, 0 });
		ring.axisY = frame.Direction({ 0, 1, 0 });
		ring.rx = radii.x * std::sin(phi);
		ring.ry = radii.y * std::sin(phi);
		ring.v = (double)k / stacks;
		rings.push_back(ring);
	}
	const double cap = radii.z * (1.0 - std::cos(kPi / stacks)) * Length(frame.Direction({ 0, 0, 1 }));
	AddLoft(rings, slices, cap, cap, uv, weights, material, true);
}

void CArtMesh::AddBox(const Mat4 &frame, const Vec3 &h, const UVRect_t &uv, const WeightFn_t &weights, int material)
{
	const size_t firstFace = m_Faces.size();
	const int base = (int)m_Points.size();
	for (int i = 0; i < 8; ++i)
		AddPoint(frame.Point({ (i & 1) ? h.x : -h.x, (i & 2) ? h.y : -h.y, (i & 4) ? h.z : -h.z }), weights);
	static const int faces[6][4] = { { 0, 2, 3, 1 }, { 4, 5, 7, 6 }, { 0, 1, 5, 4 }, { 2, 6, 7, 3 }, { 0, 4, 6, 2 }, { 1, 3, 7, 5 } };
	for (const auto &f : faces)
		AddFace({ base + f[0], base + f[1], base + f[2], base + f[3] }, { uv.Map(0, 0), uv.Map(1, 0), uv.Map(1, 1), uv.Map(0, 1) }, material);
	FinishShell(firstFace, base, false);
}

void CArtMesh::AddSlab(const Mat4 &frame, const std::vector<Vec2> &outline, double thickness, const UVRect_t &uv,
	const WeightFn_t &weights, int material)
{
	if (outline.size() < 3)
		return;
	const size_t firstFace = m_Faces.size();
	const int firstPoint = (int)m_Points.size();
	const int n = (int)outline.size();
	double minX = outline[0].x, maxX = minX, minY = outline[0].y, maxY = minY;
	Vec2 centre;
	for (const Vec2 &p : outline)
	{
		minX = std::min(minX, p.x);
		maxX = std::max(maxX, p.x);
		minY = std::min(minY, p.y);
		maxY = std::max(maxY, p.y);
		centre.x += p.x / n;
		centre.y += p.y / n;
	}
	auto mapUV = [&](const Vec2 &p) { return uv.Map((p.x - minX) / std::max(maxX - minX, 1e-9), (p.y - minY) / std::max(maxY - minY, 1e-9)); };
	const double hz = thickness / 2;
	const int top = AddPoint(frame.Point({ centre.x, centre.y, hz }), weights);
	const int bottom = AddPoint(frame.Point({ centre.x, centre.y, -hz }), weights);
	const int ringTop = (int)m_Points.size();
	for (const Vec2 &p : outline)
		AddPoint(frame.Point({ p.x, p.y, hz }), weights);
	const int ringBottom = (int)m_Points.size();
	for (const Vec2 &p : outline)
		AddPoint(frame.Point({ p.x, p.y, -hz }), weights);
	// Fans over top and bottom, quads around the side; FinishShell turns them outwards.
	for (int i = 0; i < n; ++i)
	{
		const int j = (i + 1) % n;
		AddFace({ top, ringTop + i, ringTop + j }, { mapUV(centre), mapUV(outline[i]), mapUV(outline[j]) }, material);
		AddFace({ bottom, ringBottom + j, ringBottom + i }, { mapUV(centre), mapUV(outline[j]), mapUV(outline[i]) }, material);
		const Vec2 a = mapUV(outline[i]), b = mapUV(outline[j]);
		AddFace({ ringBottom + i, ringBottom + j, ringTop + j, ringTop + i }, { a, b, b, a }, material);
	}
	FinishShell(firstFace, firstPoint, false);
}

void CArtMesh::Quantise(double step)
{
	for (Vec3 &p : m_Points)
		p = { std::round(p.x / step) * step, std::round(p.y / step) * step, std::round(p.z / step) * step };
}

void CArtMesh::Transform(const Mat4 &m)
{
	for (Vec3 &p : m_Points)
		p = m.Point(p);
	for (Face_t &f : m_Faces)
	{
		for (int k = 0; k < f.nCorners; ++k)
			f.corners[k].normal = Normalize(m.Direction(f.corners[k].normal));
	}
}

void CArtMesh::Append(const CArtMesh &other)
{
	const int base = (int)m_Points.size();
	m_Points.insert(m_Points.end(), other.m_Points.begin(), other.m_Points.end());
	m_Weights.insert(m_Weights.end(), other.m_Weights.begin(), other.m_Weights.end());
	std::vector<int> materialMap;
	for (const std::string &name : other.m_Materials)
	{
		auto it = std::find(m_Materials.begin(), m_Materials.end(), name);
		if (it == m_Materials.end())
		{
			m_Materials.push_back(name);
			it = m_Materials.end() - 1;
		}
		materialMap.push_back((int)(it - m_Materials.begin()));
	}
	for (Face_t f : other.m_Faces)
	{
		for (int k = 0; k < f.nCorners; ++k)
			f.corners[k].nPoint += base;
		f.nMaterial = f.nMaterial < (int)materialMap.size() ? materialMap[f.nMaterial] : 0;
		m_Faces.push_back(f);
	}
	m_nShells += other.m_nShells;
}

std::string CArtMesh::CheckTopology() const
{
	char text[256];
	std::map<std::pair<int, int>, int> directed;
	for (size_t i = 0; i < m_Faces.size(); ++i)
	{
		const Face_t &f = m_Faces[i];
		if (f.nCorners < 3 || f.nCorners > 4)
		{
			snprintf(text, sizeof(text), "%s: face %zu has %d corners", m_Name.c_str(), i, f.nCorners);
			return text;
		}
		for (int k = 0; k < f.nCorners; ++k)
		{
			const int a = f.corners[k].nPoint, b = f.corners[(k + 1) % f.nCorners].nPoint;
			if (a < 0 || a >= (int)m_Points.size())
			{
				snprintf(text, sizeof(text), "%s: face %zu names point %d of %zu", m_Name.c_str(), i, a, m_Points.size());
				return text;
			}
			if (a == b)
			{
				snprintf(text, sizeof(text), "%s: face %zu uses point %d twice", m_Name.c_str(), i, a);
				return text;
			}
			if (++directed[{ a, b }] > 1)
			{
				snprintf(text, sizeof(text), "%s: edge %d-%d runs the same way in two faces", m_Name.c_str(), a, b);
				return text;
			}
		}
		// Each triangle of the face's fan has an area.
		for (int k = 1; k + 1 < f.nCorners; ++k)
		{
			const Vec3 n = TriangleNormal(m_Points[f.corners[0].nPoint], m_Points[f.corners[k].nPoint], m_Points[f.corners[k + 1].nPoint]);
			if (Length(n) < 1e-9)
			{
				const Vec3 &p = m_Points[f.corners[0].nPoint];
				snprintf(text, sizeof(text), "%s: face %zu (at %g %g %g) has no area", m_Name.c_str(), i, p.x, p.y, p.z);
				return text;
			}
		}
	}
	for (const auto &[edge, count] : directed)
	{
		if (!directed.count({ edge.second, edge.first }))
		{
			snprintf(text, sizeof(text), "%s: edge %d-%d is open", m_Name.c_str(), edge.first, edge.second);
			return text;
		}
	}
	// Shells are the connected sets of faces; each must enclose a positive volume.
	std::vector<int> parent(m_Points.size());
	for (size_t i = 0; i < parent.size(); ++i)
		parent[i] = (int)i;
	std::function<int(int)> find = [&](int x) { return parent[x] == x ? x : parent[x] = find(parent[x]); };
	for (const Face_t &f : m_Faces)
	{
		for (int k = 1; k < f.nCorners; ++k)
			parent[find(f.corners[k].nPoint)] = find(f.corners[0].nPoint);
	}
	std::map<int, double> volumes;
	for (const Face_t &f : m_Faces)
		volumes[find(f.corners[0].nPoint)] += FaceVolume(m_Points, f) / 6.0;
	for (const auto &[shell, volume] : volumes)
	{
		if (volume <= 0.0)
		{
			snprintf(text, sizeof(text), "%s: the shell of point %d is wound inwards (volume %g)", m_Name.c_str(), shell, volume);
			return text;
		}
	}
	for (size_t i = 0; i < m_Weights.size(); ++i)
	{
		if (m_Weights[i].empty())
			continue;
		double sum = 0.0;
		for (const BoneWeight_t &w : m_Weights[i])
			sum += w.flWeight;
		if (std::fabs(sum - 1.0) > 1e-9)
		{
			snprintf(text, sizeof(text), "%s: the weights of point %zu sum to %g", m_Name.c_str(), i, sum);
			return text;
		}
	}
	return "";
}

std::vector<LoftRing_t> RingsThrough(const std::vector<Station_t> &stations, const Vec3 &hint)
{
	std::vector<LoftRing_t> rings;
	const size_t n = stations.size();
	if (n < 2)
		return rings;
	std::vector<double> arc(n, 0.0);
	for (size_t i = 1; i < n; ++i)
		arc[i] = arc[i - 1] + Length(stations[i].centre - stations[i - 1].centre);
	for (size_t i = 0; i < n; ++i)
	{
		const Vec3 ahead = stations[std::min(i + 1, n - 1)].centre, behind = stations[i > 0 ? i - 1 : 0].centre;
		const Mat4 frame = FrameAlong(stations[i].centre, ahead - behind, hint);
		LoftRing_t ring;
		ring.centre = stations[i].centre;
		ring.axisX = frame.Direction({ 1, 0, 0 });
		ring.axisY = frame.Direction({ 0, 1, 0 });
		ring.rx = stations[i].rx;
		ring.ry = stations[i].ry;
		ring.v = arc[n - 1] > 0 ? arc[i] / arc[n - 1] : 0.0;
		rings.push_back(ring);
	}
	return rings;
}

WeightFn_t RigidWeights(int bone)
{
	return [bone](const Vec3 &) { return std::vector<BoneWeight_t>{ { bone, 1.0 } }; };
}

WeightFn_t ChainWeights(std::vector<std::pair<Vec3, int>> joints, double blend)
{
	return [joints = std::move(joints), blend](const Vec3 &p) -> std::vector<BoneWeight_t>
	{
		if (joints.size() == 1)
			return { { joints[0].second, 1.0 } };
		// The arc position of the point's projection onto the polyline (extended at both ends).
		std::vector<double> arc(joints.size(), 0.0);
		for (size_t i = 1; i < joints.size(); ++i)
			arc[i] = arc[i - 1] + Length(joints[i].first - joints[i - 1].first);
		double bestDistance = 1e300, s = 0.0;
		for (size_t i = 0; i + 1 < joints.size(); ++i)
		{
			const Vec3 a = joints[i].first, d = joints[i + 1].first - a;
			const double len2 = std::max(Dot(d, d), 1e-12);
			double t = Dot(p - a, d) / len2;
			if (i > 0)
				t = std::max(t, 0.0);
			if (i + 2 < joints.size())
				t = std::min(t, 1.0);
			const double distance = Length(p - (a + d * t));
			if (distance < bestDistance)
			{
				bestDistance = distance;
				s = arc[i] + t * std::sqrt(len2);
			}
		}
		// The nearest joint decides the blend.
		size_t nearest = 1;
		for (size_t i = 1; i < joints.size(); ++i)
		{
			if (std::fabs(s - arc[i]) < std::fabs(s - arc[nearest]))
				nearest = i;
		}
		const double f = SmoothStep(arc[nearest] - blend, arc[nearest] + blend, s);
		return { { joints[nearest - 1].second, 1.0 - f }, { joints[nearest].second, f } };
	};
}
} // namespace sampleart
