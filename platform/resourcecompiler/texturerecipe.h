// Texture recipes (".ztex"): a DMX document (usually keyvalues2_noids text) that tells how to
// make one texture from input images. This reads the document into a recipe and turns the
// recipe into a plan of pixel work; it touches no file.
//
//   "CDmeZtex"
//   {
//       "m_inputTextureArray" "element_array" [ "CDmeInputTexture" {
//           "m_name" "string" "0"                      the name that channels refer to
//           "m_fileName" "string" "materials/x.png"    content-relative
//           "m_colorSpace" "string" "linear"           "linear" or "srgb"
//           "m_typeString" "string" "2D"
//           "m_imageProcessorArray" "element_array" [ "CDmeImageProcessor" { "m_algorithm" "string" "ConvertToYCoCg" } ]
//       } ]
//       "m_outputTypeString" "string" "2D"
//       "m_outputFormat" "string" "DXT5"               "DXT5" (BC3), "DXT1" (BC1), "RGBA8888"
//       "m_textureOutputChannelArray" "element_array" [ "CDmeTextureOutputChannel" {
//           "m_inputTextureArray" "string_array" [ "0" ]   one input by name
//           "m_srcChannels" "string" "rgba"            channels of the input ...
//           "m_dstChannels" "string" "rgba"            ... to these of the output
//           "m_mipAlgorithm" "CDmeImageProcessor" { "m_algorithm" "string" "None" }   "None": no mips; else box
//           "m_outputColorSpace" "string" "linear"     "srgb" marks the output as sRGB colour
//       } ]
//   }
#pragma once

#include <vector>

#include "core/utlstring.h"
#include "datamodel/dmelement.h"
#include "imaging/blockcompress.h"
#include "imaging/mipchain.h"

struct TextureRecipeInput_t
{
	CUtlString m_Name;
	CUtlString m_FileName;
	CUtlString m_ColorSpace;
	CUtlString m_Type;
	std::vector<CUtlString> m_Processors; // the algorithms, in order
};

struct TextureRecipeChannel_t
{
	std::vector<CUtlString> m_Inputs;
	CUtlString m_SrcChannels;
	CUtlString m_DstChannels;
	CUtlString m_MipAlgorithm;
	CUtlString m_OutputColorSpace;
};

struct TextureRecipe_t
{
	std::vector<TextureRecipeInput_t> m_Inputs;
	CUtlString m_OutputType;
	CUtlString m_OutputFormat;
	std::vector<TextureRecipeChannel_t> m_Channels;
};

// Channels of an input copied into the output: src[i] of the input goes to dst[i] (0 red to 3
// alpha).
struct TextureRecipeCopy_t
{
	int nInput = 0; // index into TextureRecipe_t::m_Inputs
	int nCount = 0;
	int nSrc[4] = {};
	int nDst[4] = {};
};

struct TextureRecipePlan_t
{
	TextureFormat_t format = TEXTURE_FORMAT_BC3;
	bool bMipmaps = true;
	bool bYCoCg = false;
	bool bSRGB = false;							 // the output is sRGB colour
	MipFilterSpace_t mipSpace = MIP_FILTER_DATA; // sRGB inputs are filtered in linear light
	std::vector<TextureRecipeCopy_t> copies;	 // in the recipe's order; the first input sets the size
	std::vector<int> inputs;					 // the inputs the copies use, each once, in order of use
};

// Reads the recipe from a loaded document. False and a message when the document is no recipe.
bool ReadTextureRecipe(const CDmxDocument &document, TextureRecipe_t &recipe, CUtlString &error);
// Checks the recipe and makes its plan: formats, channels, processors, colour spaces and mip
// algorithm named and understood. Warnings are things it works around (an unknown mip algorithm
// is taken as box filtering).
bool PlanTextureRecipe(const TextureRecipe_t &recipe, TextureRecipePlan_t &plan, std::vector<CUtlString> &warnings, CUtlString &error);
