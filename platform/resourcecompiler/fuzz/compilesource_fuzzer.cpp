// Feeds arbitrary bytes to the resource compiler's readers of sources: the first byte picks the
// reader, the rest is the text. 0: a material (".zmat", KeyValues "Layer0"); 1: a texture recipe
// (".ztex", any DMX encoding) read and planned; 2: a constant in brackets. Whatever is read must
// hold together: a refusal says why, a plan names only inputs and channels that exist.
#include <cmath>
#include <cstdint>
#include <string_view>

#include "datamodel/dmxio.h"
#include "resourcecompiler/materialsource.h"
#include "resourcecompiler/texturerecipe.h"

namespace
{
void Check(bool condition)
{
	if (!condition)
		__builtin_trap();
}

void Material(std::string_view text)
{
	MaterialSource_t material;
	const bool bRead = ReadMaterialSource(text, "fuzz.zmat", material);
	Check(bRead == (material.ErrorCount() == 0));
	for (const MaterialSourceMessage_t &message : material.m_Messages)
		Check(!message.text.empty() && message.nLine >= 0);
	for (const MaterialSourceTexture_t &texture : material.m_Textures)
		Check(texture.m_Key.size() >= 7 && !texture.m_Path.empty());
	for (const CompiledMaterialConstant_t &constant : material.m_Constants)
	{
		for (float value : constant.m_flValues)
			Check(std::isfinite(value));
	}
	Check((material.m_nFlags & ~(uint32)COMPILED_MATERIAL_FLAG_ALL) == 0);
}

void Recipe(const uint8_t *data, size_t size)
{
	CDmxDocument document;
	CUtlString error;
	if (!DmxLoadBuffer(data, size, "fuzz.ztex", document, &error))
	{
		Check(!error.empty());
		return;
	}
	TextureRecipe_t recipe;
	if (!ReadTextureRecipe(document, recipe, error))
	{
		Check(!error.empty());
		return;
	}
	TextureRecipePlan_t plan;
	std::vector<CUtlString> warnings;
	if (!PlanTextureRecipe(recipe, plan, warnings, error))
	{
		Check(!error.empty());
		return;
	}
	Check(!plan.copies.empty());
	bool written[4] = {};
	for (const TextureRecipeCopy_t &copy : plan.copies)
	{
		Check(copy.nInput >= 0 && (size_t)copy.nInput < recipe.m_Inputs.size());
		Check(copy.nCount >= 1 && copy.nCount <= 4);
		for (int i = 0; i < copy.nCount; ++i)
		{
			Check(copy.nSrc[i] >= 0 && copy.nSrc[i] < 4 && copy.nDst[i] >= 0 && copy.nDst[i] < 4);
			Check(!written[copy.nDst[i]]);
			written[copy.nDst[i]] = true;
		}
	}
	Check(!(plan.bYCoCg && plan.format == TEXTURE_FORMAT_BC1));
}

void Constant(std::string_view text)
{
	float values[4];
	if (Material_ParseConstant(text, values))
	{
		for (float value : values)
			Check(std::isfinite(value));
		Check(!Material_ConstantText(values).empty());
	}
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	if (size < 1)
		return 0;
	const std::string_view text((const char *)data + 1, size - 1);
	switch (data[0] % 3)
	{
	case 0:
		Material(text);
		break;
	case 1:
		Recipe(data + 1, size - 1);
		break;
	default:
		Constant(text);
		break;
	}
	return 0;
}
