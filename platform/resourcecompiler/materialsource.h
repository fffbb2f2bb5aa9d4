// Material sources (".zmat"): KeyValues text with the root "Layer0". This reads one into what
// the compile needs; it touches no file besides what KeyValues' own #include and #base read.
//
//   "Layer0"
//   {
//       "Shader"                "hero.zfx"
//       "TextureColor"          "materials/models/x/x_color.tga"      a file under the content root
//       "F_ALPHA_TEST"          "0"                                   F_ keys: integers (shader switches)
//       "TextureTranslucency"   ""                                    empty: no texture
//       "TextureDetailMask"     "[0.000000 0.000000 0.000000 0.000000]"   a constant colour
//       "g_flSpecularScale"     "1.5"                                 other keys: numbers or [vectors]
//   }
//
// Keys compare without case. A key given twice takes its last value (with a warning).
#pragma once

#include <string_view>
#include <vector>

#include "compiledassets/compiledassets.h"
#include "core/utlstring.h"

struct MaterialSourceMessage_t
{
	bool bError = true;
	int nLine = 0; // 0 when the message has no line
	CUtlString text;
};

// A texture key that names a file.
struct MaterialSourceTexture_t
{
	CUtlString m_Key;
	CUtlString m_Path; // as the source gives it (content-relative)
	int m_nLine = 0;
};

struct MaterialSource_t
{
	CUtlString m_Shader;
	uint32 m_nFlags = 0; // ECompiledMaterialFlags from the F_ keys
	std::vector<MaterialSourceTexture_t> m_Textures;
	// Constants: bracket values of texture keys (constant colours) and of other keys (floats),
	// numbers of other keys (floats), F_ keys (integers).
	std::vector<CompiledMaterialConstant_t> m_Constants;
	std::vector<MaterialSourceMessage_t> m_Messages;

	int ErrorCount() const;
};

// The shaders the renderer draws.
bool Material_IsKnownShader(std::string_view shader);
// Reads the text of a material source; `pszName` names it in messages. False when any error was
// found (the messages say which); warnings leave it true.
bool ReadMaterialSource(std::string_view text, const char *pszName, MaterialSource_t &out);
// A constant in brackets: "[r g b a]" (three numbers give alpha 1, one number fills all four).
// False when the text is no such constant.
bool Material_ParseConstant(std::string_view text, float values[4]);
// The text of a constant as the material tools write it: "[0.500000 1.000000 0.000000 1.000000]".
CUtlString Material_ConstantText(const float values[4]);
