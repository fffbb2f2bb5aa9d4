// The whole of the sample game's art: reads the game's scripts (heroes, units, the item test
// manifest, items_game, the import templates) and writes, under an output folder laid out like
// sample/, every mesh, animation, texture, material and model document they name, and
// items_game.txt with the default items, sets and visuals that point at them; and under art/ the
// sources that the sample sessions import.
#pragma once

#include <string>
#include <vector>

namespace sampleart
{
struct GeneratedAnimation_t
{
	std::string m_Name;
	int m_nFrames = 0;
	int m_nFrameRate = 30;
	double m_flDuration = 0.0; // seconds
	int m_nTracks = 0;
	std::vector<std::string> m_AnimatedBones; // bones with at least one curve in the file
};

// What the generator put in one FBX file, for the tests that read it back.
struct GeneratedFbx_t
{
	std::string m_Path; // relative to the output folder
	int m_nControlPoints = 0;
	int m_nFaces = 0;	  // polygons: triangles and quads
	int m_nTriangles = 0; // a quad counts two
	int m_nCorners = 0;
	int m_nMaterials = 0;
	int m_nShells = 0;
	std::vector<std::string> m_Bones;		  // every limb node of the file, in order
	std::vector<std::string> m_WeightedBones; // bones with a cluster (weights on some point)
	std::vector<GeneratedAnimation_t> m_Animations;
};

// A model made for a slot of a hero, with the slot's budget.
struct GeneratedItem_t
{
	std::string m_Hero;
	std::string m_Slot;
	std::string m_Model; // the model document, relative to the content root
	int m_nTrianglesLOD0 = 0, m_nTrianglesLOD1 = 0;
	int m_nBonesLOD0 = 0, m_nBonesLOD1 = 0; // bones with weights
};

struct SampleArtReport_t
{
	std::vector<std::string> m_Files; // every file written, relative to the output folder
	std::vector<GeneratedFbx_t> m_Fbx;
	std::vector<GeneratedItem_t> m_Items;
	std::vector<std::string> m_Errors;
};

// `sampleDir` is the sample folder whose game scripts are read; `outDir` receives
// content/zarn/..., game/zarn/... (it may be `sampleDir` itself). True when nothing failed.
bool GenerateSampleArt(const std::string &sampleDir, const std::string &outDir, SampleArtReport_t &report);
} // namespace sampleart
