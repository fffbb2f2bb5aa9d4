#include "resourcecompiler/texturerecipe.h"

#include "core/strtools.h"

namespace
{
// A recipe is a handful of elements; more than this is no recipe a tool wrote.
enum { MAX_RECIPE_ENTRIES = 64 };

bool Fail(CUtlString &error, CUtlString text)
{
	error = std::move(text);
	return false;
}

// The channel of a letter: r g b a (or x y z w), -1 for anything else.
int ChannelOf(char c)
{
	switch (V_tolower(c))
	{
	case 'r':
	case 'x':
		return 0;
	case 'g':
	case 'y':
		return 1;
	case 'b':
	case 'z':
		return 2;
	case 'a':
	case 'w':
		return 3;
	default:
		return -1;
	}
}

bool ParseChannels(const CUtlString &text, int *pOut, int &count, const char *what, CUtlString &error)
{
	if (text.empty() || text.size() > 4)
		return Fail(error, V_Format("%s \"%s\" must name one to four channels of \"rgba\"", what, text.c_str()));
	count = (int)text.size();
	for (int i = 0; i < count; ++i)
	{
		pOut[i] = ChannelOf(text[(size_t)i]);
		if (pOut[i] < 0)
			return Fail(error, V_Format("%s \"%s\": '%c' is no channel of \"rgba\"", what, text.c_str(), text[(size_t)i]));
	}
	return true;
}

// "linear" or "srgb" (without case); an empty text is linear.
bool ParseColorSpace(const CUtlString &text, bool &bSRGB, const char *what, CUtlString &error)
{
	if (text.empty() || V_StrEqualNoCase(text, "linear"))
		bSRGB = false;
	else if (V_StrEqualNoCase(text, "srgb") || V_StrEqualNoCase(text, "gamma"))
		bSRGB = true;
	else
		return Fail(error, V_Format("%s \"%s\" is neither \"linear\" nor \"srgb\"", what, text.c_str()));
	return true;
}
} // namespace

bool ReadTextureRecipe(const CDmxDocument &document, TextureRecipe_t &recipe, CUtlString &error)
{
	recipe = TextureRecipe_t();
	const CDmElement *pRoot = document.GetRoot();
	if (!pRoot)
		return Fail(error, "the document has no root element");
	if (pRoot->GetTypeName() != "CDmeZtex")
		return Fail(error, V_Format("the root element is a \"%s\", not a \"CDmeZtex\" texture recipe", pRoot->GetTypeName().c_str()));

	const std::vector<CDmElement *> &inputs = pRoot->GetArray<CDmElement *>("m_inputTextureArray");
	if (inputs.size() > MAX_RECIPE_ENTRIES)
		return Fail(error, V_Format("%zu input textures; a recipe holds at most %d", inputs.size(), (int)MAX_RECIPE_ENTRIES));
	for (size_t i = 0; i < inputs.size(); ++i)
	{
		const CDmElement *pInput = inputs[i];
		if (!pInput)
			return Fail(error, V_Format("input texture %zu is empty", i));
		TextureRecipeInput_t input;
		input.m_Name = pInput->GetString("m_name");
		input.m_FileName = pInput->GetString("m_fileName");
		input.m_ColorSpace = pInput->GetString("m_colorSpace");
		input.m_Type = pInput->GetString("m_typeString");
		const std::vector<CDmElement *> &processors = pInput->GetArray<CDmElement *>("m_imageProcessorArray");
		if (processors.size() > MAX_RECIPE_ENTRIES)
			return Fail(error, V_Format("input texture \"%s\" has %zu image processors", input.m_Name.c_str(), processors.size()));
		for (const CDmElement *pProcessor : processors)
		{
			if (!pProcessor)
				return Fail(error, V_Format("input texture \"%s\" has an empty image processor", input.m_Name.c_str()));
			input.m_Processors.push_back(pProcessor->GetString("m_algorithm"));
		}
		recipe.m_Inputs.push_back(std::move(input));
	}

	recipe.m_OutputType = pRoot->GetString("m_outputTypeString");
	recipe.m_OutputFormat = pRoot->GetString("m_outputFormat");

	const std::vector<CDmElement *> &channels = pRoot->GetArray<CDmElement *>("m_textureOutputChannelArray");
	if (channels.size() > MAX_RECIPE_ENTRIES)
		return Fail(error, V_Format("%zu output channels; a recipe holds at most %d", channels.size(), (int)MAX_RECIPE_ENTRIES));
	for (size_t i = 0; i < channels.size(); ++i)
	{
		const CDmElement *pChannel = channels[i];
		if (!pChannel)
			return Fail(error, V_Format("output channel %zu is empty", i));
		TextureRecipeChannel_t channel;
		channel.m_Inputs = pChannel->GetArray<CUtlString>("m_inputTextureArray");
		if (channel.m_Inputs.size() > MAX_RECIPE_ENTRIES)
			return Fail(error, V_Format("output channel %zu names %zu inputs", i, channel.m_Inputs.size()));
		channel.m_SrcChannels = pChannel->GetString("m_srcChannels");
		channel.m_DstChannels = pChannel->GetString("m_dstChannels");
		if (const CDmElement *pMip = pChannel->GetElement("m_mipAlgorithm"))
			channel.m_MipAlgorithm = pMip->GetString("m_algorithm");
		channel.m_OutputColorSpace = pChannel->GetString("m_outputColorSpace");
		recipe.m_Channels.push_back(std::move(channel));
	}
	return true;
}

bool PlanTextureRecipe(const TextureRecipe_t &recipe, TextureRecipePlan_t &plan, std::vector<CUtlString> &warnings, CUtlString &error)
{
	plan = TextureRecipePlan_t();
	if (!recipe.m_OutputType.empty() && !V_StrEqualNoCase(recipe.m_OutputType, "2D"))
		return Fail(error, V_Format("the output type \"%s\" is not supported (only \"2D\")", recipe.m_OutputType.c_str()));

	const CUtlString &format = recipe.m_OutputFormat;
	if (V_StrEqualNoCase(format, "DXT5") || V_StrEqualNoCase(format, "BC3"))
		plan.format = TEXTURE_FORMAT_BC3;
	else if (V_StrEqualNoCase(format, "DXT1") || V_StrEqualNoCase(format, "BC1"))
		plan.format = TEXTURE_FORMAT_BC1;
	else if (V_StrEqualNoCase(format, "RGBA8888") || V_StrEqualNoCase(format, "RGBA8"))
		plan.format = TEXTURE_FORMAT_RGBA8888;
	else
		return Fail(error, V_Format("the output format \"%s\" is not one of \"DXT5\", \"DXT1\", \"RGBA8888\"", format.c_str()));

	for (const TextureRecipeInput_t &input : recipe.m_Inputs)
	{
		if (!input.m_Type.empty() && !V_StrEqualNoCase(input.m_Type, "2D"))
			return Fail(error, V_Format("input texture \"%s\" has the type \"%s\" (only \"2D\")", input.m_Name.c_str(), input.m_Type.c_str()));
		for (const CUtlString &processor : input.m_Processors)
		{
			if (!V_StrEqualNoCase(processor, "ConvertToYCoCg"))
				return Fail(error, V_Format("input texture \"%s\": the image processor \"%s\" is not supported (only \"ConvertToYCoCg\")",
									   input.m_Name.c_str(), processor.c_str()));
		}
		bool bSRGB = false;
		if (!ParseColorSpace(input.m_ColorSpace, bSRGB, V_Format("input texture \"%s\": the colour space", input.m_Name.c_str()).c_str(), error))
			return false;
	}

	if (recipe.m_Channels.empty())
		return Fail(error, "the recipe has no output channel");
	bool bWritten[4] = {};
	for (size_t c = 0; c < recipe.m_Channels.size(); ++c)
	{
		const TextureRecipeChannel_t &channel = recipe.m_Channels[c];
		if (channel.m_Inputs.size() != 1)
			return Fail(error, V_Format("output channel %zu names %zu input textures; it takes exactly one", c, channel.m_Inputs.size()));
		int input = -1;
		for (size_t i = 0; i < recipe.m_Inputs.size(); ++i)
		{
			if (recipe.m_Inputs[i].m_Name == channel.m_Inputs[0])
			{
				input = (int)i;
				break;
			}
		}
		if (input < 0)
			return Fail(error, V_Format("output channel %zu names the input texture \"%s\", which the recipe does not have", c,
								   channel.m_Inputs[0].c_str()));
		TextureRecipeCopy_t copy;
		copy.nInput = input;
		int dstCount = 0;
		if (!ParseChannels(channel.m_SrcChannels, copy.nSrc, copy.nCount, V_Format("output channel %zu: the source channels", c).c_str(), error) ||
			!ParseChannels(channel.m_DstChannels, copy.nDst, dstCount, V_Format("output channel %zu: the destination channels", c).c_str(), error))
			return false;
		if (dstCount != copy.nCount)
			return Fail(error, V_Format("output channel %zu copies %d channels (\"%s\") into %d (\"%s\")", c, copy.nCount,
								   channel.m_SrcChannels.c_str(), dstCount, channel.m_DstChannels.c_str()));
		for (int i = 0; i < copy.nCount; ++i)
		{
			if (bWritten[copy.nDst[i]])
				return Fail(error, V_Format("output channel %zu writes the channel '%c', which an earlier one wrote", c, "rgba"[copy.nDst[i]]));
			bWritten[copy.nDst[i]] = true;
		}
		bool bOutputSRGB = false;
		if (!ParseColorSpace(channel.m_OutputColorSpace, bOutputSRGB, V_Format("output channel %zu: the output colour space", c).c_str(), error))
			return false;

		const CUtlString &mip = channel.m_MipAlgorithm;
		const bool bMipmaps = !V_StrEqualNoCase(mip, "None");
		if (c == 0)
		{
			plan.bMipmaps = bMipmaps;
			plan.bSRGB = bOutputSRGB;
			bool bInputSRGB = false;
			ParseColorSpace(recipe.m_Inputs[(size_t)input].m_ColorSpace, bInputSRGB, "", error);
			plan.mipSpace = bInputSRGB ? MIP_FILTER_SRGB : MIP_FILTER_DATA;
			if (bMipmaps && !mip.empty() && !V_StrEqualNoCase(mip, "Box") && !V_StrEqualNoCase(mip, "Default"))
				warnings.push_back(V_Format("the mip algorithm \"%s\" is not known; the mips are box filtered", mip.c_str()));
		}
		else
		{
			if (bMipmaps != plan.bMipmaps)
				warnings.push_back(V_Format("output channel %zu asks for another mip algorithm (\"%s\") than the first; the first one holds", c, mip.c_str()));
			if (bOutputSRGB != plan.bSRGB)
				warnings.push_back(V_Format("output channel %zu asks for another output colour space than the first; the first one holds", c));
		}

		bool bKnown = false;
		for (int used : plan.inputs)
			bKnown = bKnown || used == input;
		if (!bKnown)
			plan.inputs.push_back(input);
		for (const CUtlString &processor : recipe.m_Inputs[(size_t)input].m_Processors)
		{
			if (V_StrEqualNoCase(processor, "ConvertToYCoCg"))
				plan.bYCoCg = true;
		}
		plan.copies.push_back(copy);
	}
	if (plan.bYCoCg && plan.format == TEXTURE_FORMAT_BC1)
		return Fail(error, "\"ConvertToYCoCg\" keeps luma in alpha and needs the output format \"DXT5\" or \"RGBA8888\", not \"DXT1\"");
	return true;
}
