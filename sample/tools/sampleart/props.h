// The sample's props: the default items of the heroes' slots (skinned to the hero's bones, so
// that they move with the hero), the wards, and the editor's marker models.
#pragma once

#include <QImage>

#include <functional>
#include <string>
#include <vector>

#include "figure.h"

namespace sampleart
{
// The kinds of surface of a prop's texture: each is a cell of its atlas.
enum EPropSurface
{
	SURFACE_WOOD,
	SURFACE_METAL,
	SURFACE_CLOTH,
	SURFACE_LEAF,
	SURFACE_GLOW,
	SURFACE_STONE,
	SURFACE_LEATHER,
	SURFACE_CRYSTAL,
	SURFACE_COUNT
};

UVRect_t PropCell(EPropSurface surface);

// The colours of a prop's surfaces.
struct PropPalette_t
{
	Vec3 m_Colours[SURFACE_COUNT];
	int m_nSeed = 1;
};
void PaintPropTextures(const PropPalette_t &palette, int size, QImage &colour, QImage &normal);
// The same atlas on a texture that is not square: every cell keeps its share of the texture.
void PaintPropTextures(const PropPalette_t &palette, int width, int height, QImage &colour, QImage &normal);

// An attachment point of a model: a bone and an offset in its frame.
struct PropAttachment_t
{
	std::string m_Name;
	std::string m_Bone;
	Vec3 m_Origin;
	Vec3 m_Angles;
};

// A hero's default item: how it is built on the hero's rig. The builder may add bones of its
// own to the skeleton (children of the hero's) and attachments on them.
struct HeroItemKind_t
{
	std::function<CArtMesh(CSkeleton &skeleton, const HumanoidRig_t &rig, double detail, std::vector<PropAttachment_t> &attachments)> m_Build;
	PropPalette_t m_Palette;
};

// The item of a hero's slot; false when the sample has no item of that kind for the slot.
bool FindHeroItemKind(const std::string &hero, const std::string &slot, HeroItemKind_t &out);

// An ability's own model (a projectile), on a skeleton of its own with a "root" bone.
CArtMesh BuildAbilityModel(const std::string &hero, const std::string &slot, CSkeleton &skeleton, double detail, PropPalette_t &palette);

// Wards: a pole with an eye that looks about. "observer", "sentry" and "lantern" share one
// skeleton and one "idle" animation.
CSkeleton BuildWardSkeleton();
CArtMesh BuildWardBody(const CSkeleton &skeleton, const std::string &kind, double detail, PropPalette_t &palette);
std::vector<FbxAnimation_t> BuildWardAnimations(const CSkeleton &skeleton);

// The editor's markers, static meshes with plain colours: "camera", "axis_helper_thick",
// "spot", "arrow". Their colours are cells of one strip texture, in the order of the palette.
const std::vector<std::pair<std::string, Vec3>> &MarkerPalette();
CArtMesh BuildMarker(const std::string &kind);
} // namespace sampleart
