#include "painter.h"

#include <QBuffer>
#include <QImageWriter>

#include <cmath>
#include <cstdint>


namespace sampleart
{
namespace
{
double Hash(int x, int y, int seed)
{
	uint32_t h = (uint32_t)x * 374761393u + (uint32_t)y * 668265263u + (uint32_t)seed * 2246822519u;
	h = (h ^ (h >> 13)) * 1274126177u;
	h ^= h >> 16;
	return (h & 0xffffff) / double(0xffffff);
}

int ToByte(double v) { return (int)std::lround(Clamp(v, 0.0, 1.0) * 255.0); }
} // namespace

double Noise2(double x, double y, int seed)
{
	const int ix = (int)std::floor(x), iy = (int)std::floor(y);
	const double fx = x - ix, fy = y - iy;
	const double sx = fx * fx * (3 - 2 * fx), sy = fy * fy * (3 - 2 * fy);
	const double a = Hash(ix, iy, seed), b = Hash(ix + 1, iy, seed), c = Hash(ix, iy + 1, seed), d = Hash(ix + 1, iy + 1, seed);
	return Lerp(Lerp(a, b, sx), Lerp(c, d, sx), sy);
}

double Fractal2(double x, double y, int seed, int octaves)
{
	double sum = 0.0, amplitude = 0.5, total = 0.0;
	for (int i = 0; i < octaves; ++i)
	{
		sum += amplitude * Noise2(x, y, seed + 17 * i);
		total += amplitude;
		x *= 2.0;
		y *= 2.0;
		amplitude *= 0.5;
	}
	return sum / total;
}

void CAtlasPainter::Paint(QImage &colour, QImage &normal, bool withAlpha) const
{
	const int w = m_nWidth, h = m_nHeight;
	colour = QImage(w, h, withAlpha ? QImage::Format_ARGB32 : QImage::Format_RGB32);
	normal = QImage(w, h, QImage::Format_RGB32);
	std::vector<double> heights((size_t)w * h, 0.0);
	std::vector<int> regionOf((size_t)w * h, -1);
	for (int y = 0; y < h; ++y)
	{
		const double v = 1.0 - (y + 0.5) / h; // image rows run down, v runs up
		for (int x = 0; x < w; ++x)
		{
			const double u = (x + 0.5) / w;
			Texel_t texel;
			texel.colour = m_Background;
			// A region paints its rectangle and, so that filtering at its edges finds its own
			// colours, a margin of a few texels around it.
			int found = -1;
			for (int pass = 0; pass < 2 && found < 0; ++pass)
			{
				const double marginU = pass == 0 ? 0.0 : 4.0 / w, marginV = pass == 0 ? 0.0 : 4.0 / h;
				for (size_t r = 0; r < m_Regions.size(); ++r)
				{
					const UVRect_t &rect = m_Regions[r].rect;
					if (u >= rect.u0 - marginU && u < rect.u1 + marginU && v >= rect.v0 - marginV && v < rect.v1 + marginV)
					{
						found = (int)r;
						texel = m_Regions[r].paint(Clamp((u - rect.u0) / (rect.u1 - rect.u0), 0.0, 1.0),
							Clamp((v - rect.v0) / (rect.v1 - rect.v0), 0.0, 1.0));
						break;
					}
				}
			}
			regionOf[(size_t)y * w + x] = found;
			heights[(size_t)y * w + x] = texel.height;
			colour.setPixel(x, y, qRgba(ToByte(texel.colour.x), ToByte(texel.colour.y), ToByte(texel.colour.z), withAlpha ? ToByte(texel.alpha) : 255));
		}
	}
	// Slopes within a region only, so that region borders make no ridges.
	auto heightAt = [&](int x, int y, int region, double fallback)
	{
		if (x < 0 || y < 0 || x >= w || y >= h || regionOf[(size_t)y * w + x] != region)
			return fallback;
		return heights[(size_t)y * w + x];
	};
	for (int y = 0; y < h; ++y)
	{
		for (int x = 0; x < w; ++x)
		{
			const int region = regionOf[(size_t)y * w + x];
			const double height = heights[(size_t)y * w + x];
			const double dx = (heightAt(x + 1, y, region, height) - heightAt(x - 1, y, region, height)) * 0.5;
			const double dv = (heightAt(x, y - 1, region, height) - heightAt(x, y + 1, region, height)) * 0.5; // up the image is +v
			const Vec3 nrm = Normalize({ -dx, -dv, 1.0 });
			normal.setPixel(x, y, qRgb(ToByte(nrm.x * 0.5 + 0.5), ToByte(nrm.y * 0.5 + 0.5), ToByte(nrm.z * 0.5 + 0.5)));
		}
	}
}

bool EncodePng(const QImage &image, std::string &bytes, std::string *pError)
{
	QByteArray data;
	QBuffer buffer(&data);
	buffer.open(QIODevice::WriteOnly);
	QImageWriter writer(&buffer, "png");
	writer.setCompression(70); // Qt scales 0-100 onto zlib's levels 0-9: 6, nearly as small as 9 and far faster
	if (!writer.write(image))
	{
		if (pError)
			*pError = writer.errorString().toStdString();
		return false;
	}
	bytes.assign(data.constData(), (size_t)data.size());
	return true;
}
} // namespace sampleart
