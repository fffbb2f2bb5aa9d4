// The GLSL 3.30 core sources of the tool scene's programs (see README.md, "Shaders").
#pragma once

#include <string>

// Skeletons of up to this many bones keep their matrices in a uniform block (12 KiB, inside
// the 16 KiB every GL 3.3 gives); larger ones in a texture buffer.
enum { SCENE_UNIFORM_BONES = 256 };

// Compiled models: GPU skinning, four weights a vertex. Each bone is three rows of four floats
// (bone-to-model times inverse bind), in the uniform block "SceneBones" or, with
// `bBonesInBufferTexture`, in the RGBA32F texture buffer "uBones".
std::string SceneShader_ModelVertexSource(bool bBonesInBufferTexture);
// Material colour (texture or constant; YCoCg decoded), normal map, alpha test, Lambert +
// ambient + Blinn-Phong in linear light, written as sRGB.
extern const char *const g_pszModelFragmentShader;

// Coloured lines widened to quads of a width in pixels by a geometry shader.
extern const char *const g_pszColorVertexShader;
extern const char *const g_pszLineGeometryShader;
extern const char *const g_pszLineFragmentShader;
// Coloured triangles (ground, tints).
extern const char *const g_pszColorFragmentShader;

// Screen quads in pixels: materials, layer targets and bitmaps.
extern const char *const g_pszScreenVertexShader;
extern const char *const g_pszScreenFragmentShader;

// Flags shared by the model and screen fragment shaders.
enum ESceneShaderFlags
{
	SHADER_FLAG_COLOR_TEXTURE = 0x1,
	SHADER_FLAG_YCOCG = 0x2,
	SHADER_FLAG_NORMAL_MAP = 0x4,
	SHADER_FLAG_TRANSLUCENCY = 0x8,
	SHADER_FLAG_ALPHA_TEST = 0x10,
	SHADER_FLAG_DECODE_SRGB = 0x20, // the colour texel is sRGB the GL did not decode (YCoCg)
	SHADER_FLAG_RAW = 0x40,			// screen quads: the texel as it stands, no colour conversion
};
