// A small offline rasteriser for looking at the sample art as a reader other than ours sees it:
// meshes and animations are read with assimp, skinned on the CPU, drawn with a depth buffer,
// their colour texture and a light from the front.
#pragma once

#include <QImage>

#include <memory>
#include <string>
#include <vector>

namespace artrender
{
struct RenderPart_t
{
	std::string m_Mesh;	   // an FBX file
	std::string m_Texture; // its colour texture (PNG); empty draws it grey
};

struct RenderView_t
{
	double m_flYaw = 0.0;	 // degrees; 0 looks at the figure's front (from -Y toward +Y)
	double m_flPitch = 10.0; // degrees down
	int m_nWidth = 320;
	int m_nHeight = 400;
	std::string m_Animation; // an FBX file with the animation; empty draws the bind pose
	double m_flTime = 0.0;	 // seconds into the animation
};

// Draws the parts together, framed to their bounds at bind pose. On failure the image is null
// and `error` says why.
QImage RenderParts(const std::vector<RenderPart_t> &parts, const RenderView_t &view, std::string &error);

// The share of pixels the parts cover, and the height over the width of their box on screen.
struct Coverage_t
{
	double m_flFilled = 0.0;
	double m_flAspect = 0.0;
};
Coverage_t MeasureCoverage(const QImage &image);
// The share of pixels that differ between two images of the same size.
double DifferentPixels(const QImage &a, const QImage &b);
} // namespace artrender
