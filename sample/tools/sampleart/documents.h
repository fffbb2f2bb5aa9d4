// The documents beside the sample's meshes and textures: model documents (KV3 "modeldoc32"),
// materials (KV1 "Layer0") and the settings file beside each texture. Paths inside them are
// relative to the content root.
#pragma once

#include <string>
#include <vector>

#include "artmath.h"

namespace sampleart
{
struct ModelDocMesh_t
{
	std::string m_Name;
	std::string m_File;
};

struct ModelDocLOD_t
{
	double m_flSwitchThreshold = 0.0;
	std::vector<std::string> m_Meshes;
};

struct ModelDocAnim_t
{
	std::string m_Name;
	std::string m_SourceFile;
	bool m_bLooping = true;
	std::string m_Activity;
	int m_nActivityWeight = 1;
};

struct ModelDocAttachment_t
{
	std::string m_Name;
	std::string m_ParentBone;
	Vec3 m_Origin;
	Vec3 m_Angles;
};

struct ModelDocMaterialGroup_t
{
	std::string m_Name;
	std::string m_From, m_To;
};

struct ModelDocument_t
{
	std::vector<ModelDocMesh_t> m_Meshes;
	std::vector<ModelDocLOD_t> m_LODs;
	std::string m_DefaultMaterial;
	std::vector<ModelDocMaterialGroup_t> m_MaterialGroups;
	std::vector<ModelDocAnim_t> m_Anims; // after the bind pose
	std::vector<ModelDocAttachment_t> m_Attachments;
};

// The text of the document, or "" with `error` set.
std::string WriteModelDocument(const ModelDocument_t &doc, std::string &error);

// A material of the hero shader: texture paths, or constants in brackets, for the colour and
// the normal map; the masks take their constant defaults. `translucent` adds the colour
// texture's alpha as the translucency.
struct MaterialDocument_t
{
	std::string m_Color;
	std::string m_Normal;
	bool m_bTranslucent = false;
	// Keys a template material adds (written after the texture keys, in order).
	std::vector<std::pair<std::string, std::string>> m_Extra;
};
std::string WriteMaterialDocument(const MaterialDocument_t &material, std::string &error);

// The settings file of a texture: `"settings" { "maxres" "<maxres>" }`.
std::string WriteTextureSettings(int maxres, std::string &error);

// A constant colour as a material writes it: "[r g b a]" with six decimals.
std::string ConstantColour(const Vec3 &colour, double alpha = 0.0);
} // namespace sampleart
