// Compiled assets made in code for the tool scene's tests and benchmark, written with the
// compiledassets writers into a game folder of their own, as the compiler would leave them.
#pragma once

#include <string>

#include "compiledassets/compiledassets.h"
#include "imaging/image.h"

// A texture compiled from a solid colour (or any image) by the imaging module's builder: the
// mip chain in BC1, BC3 (optionally YCoCg) or RGBA8.
CCompiledTexture TestTexture_FromImage(const CImageRGBA8 &image, ECompiledTextureFormat format, bool bSRGB, bool bYCoCg = false);
CCompiledTexture TestTexture_Solid(uint8 r, uint8 g, uint8 b, uint8 a, ECompiledTextureFormat format, int nSize = 16, bool bSRGB = true,
	bool bYCoCg = false);
// The colour of a compiled texture's top mip at a pixel, decoded on the CPU (YCoCg turned back
// into RGB): what the scene should show.
bool TestTexture_DecodedPixel(const CCompiledTexture &texture, int x, int y, uint8 rgba[4]);

// A material naming a colour texture (and optionally a translucency texture), or with its
// colour as a constant when `pszColorTexture` is null.
CCompiledMaterial TestMaterial(const char *pszColorTexture, const char *pszTranslucencyTexture = nullptr,
	const float *pColorConstant = nullptr);

// A square of `size` units in the plane x = 0, centred at (0, centreY, centreZ), facing +x,
// with texture coordinates 0 to 1: u = 0 on its -y side (the left, seen from +x), v = 0 at the
// top. One draw call of `material`.
CompiledMesh_t TestMesh_Quad(float size, float centreY, float centreZ, uint32 material = 0);

// A model of one quad and one material.
CCompiledModel TestModel_Quad(const char *pszMaterial, float size = 100.0f);

// The skinned strip: two bones ("root" at the origin, "upper" at z = 50 under it), a strip 20
// wide from z = 0 to z = 100 in the plane x = 0, the lower half on the root and the upper half
// on "upper" (four weights a vertex, blended across the middle row). Sequences:
//   "bend"          plain, 2 frames, not looping: bind, then "upper" turned +90 degrees about x
//   "idle"          plain, 1 frame of the bind pose, activity ACT_ZARN_IDLE, looping
//   "lean_delta"    delta, 1 frame: "upper" turned +90 degrees about x
//   "bind_layered"  plain, 1 frame of the bind pose, with "lean_delta" as an add layer
//   "pose_left", "pose_center", "pose_right"  plain single poses: -90, 0, +90 degrees
//   "lean_blend"    a blend over the pose parameter "lean" (-1 to 1) of the three poses
//   "wave"          plain, 5 frames looping, "upper" turning 0, 30, 60, 30, 0 degrees
// Attachment "tip" on "upper" at (0, 0, 50) from it. `nExtraBones` more bones that no vertex
// uses follow "upper" in the skeleton (for skeletons larger than a uniform block).
CCompiledModel TestModel_SkinnedStrip(const char *pszMaterial, int nExtraBones = 0);
// The rotation of "upper" in a pose of the strip (degrees about x).
CompiledQuaternion_t TestStrip_Rotation(float degrees);

// A skinned tube of about `triangles` triangles along z over a chain of `bones` bones, with a
// looping sequence "run" of `frames` frames that bends it; for the benchmark.
CCompiledModel TestModel_SkinnedTube(const char *pszMaterial, int triangles, int bones, int frames, float height = 100.0f);

// A folder that stands for the game root: files are written under it by relative path.
class CTestGameFolder
{
public:
	CTestGameFolder();
	~CTestGameFolder();
	const std::string &Root() const { return m_Root; }
	std::string Path(const char *pszRelative) const;

	bool WriteTexture(const char *pszRelative, const CCompiledTexture &texture);
	bool WriteMaterial(const char *pszRelative, const CCompiledMaterial &material);
	bool WriteModel(const char *pszRelative, const CCompiledModel &model);

private:
	std::string m_Root;
};
