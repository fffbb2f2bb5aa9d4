#include "resourcecompiler/materialsource.h"

#include <cmath>
#include <cstdlib>
#include <unordered_map>

#include "core/keyvalues.h"
#include "core/strtools.h"

namespace
{
const char *const s_KnownShaders[] = { "hero.zfx", "generic.zfx", "unlit.zfx" };

CUtlString LowerCase(std::string_view text)
{
	CUtlString out(text);
	for (char &c : out)
		c = V_tolower(c);
	return out;
}

bool IsBlank(char c)
{
	return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v';
}

// The lines of the keys of a KeyValues text, by key (lower case), one entry per occurrence. The
// parsed keys keep no positions, so the text is scanned once more: a key is the first token of
// a line.
class CKeyLines
{
public:
	explicit CKeyLines(std::string_view text)
	{
		int line = 1;
		bool bLineStart = true;
		size_t i = 0;
		const size_t n = text.size();
		while (i < n)
		{
			const char c = text[i];
			if (c == '\n')
			{
				++line;
				bLineStart = true;
				++i;
				continue;
			}
			if (IsBlank(c))
			{
				++i;
				continue;
			}
			if (c == '/' && i + 1 < n && text[i + 1] == '/')
			{
				while (i < n && text[i] != '\n')
					++i;
				continue;
			}
			if (c == '{' || c == '}' || c == '[' || c == ']')
			{
				// A condition in brackets or a brace ends the line's chance of a key.
				bLineStart = false;
				++i;
				continue;
			}
			const int tokenLine = line;
			CUtlString token;
			if (c == '"')
			{
				++i;
				while (i < n && text[i] != '"')
				{
					if (text[i] == '\n')
						++line;
					if (text[i] == '\\' && i + 1 < n && (text[i + 1] == '"' || text[i + 1] == '\\'))
						++i;
					token += text[i++];
				}
				++i;
			}
			else
			{
				while (i < n && !IsBlank(text[i]) && text[i] != '"' && text[i] != '{' && text[i] != '}')
					token += text[i++];
			}
			if (bLineStart)
				m_Lines[LowerCase(token)].push_back(tokenLine);
			bLineStart = false;
		}
	}

	// The line of the n-th occurrence of the key (0 when unknown).
	int Line(std::string_view key, size_t occurrence) const
	{
		const auto it = m_Lines.find(LowerCase(key));
		if (it == m_Lines.end() || it->second.empty())
			return 0;
		return it->second[std::min(occurrence, it->second.size() - 1)];
	}

private:
	std::unordered_map<CUtlString, std::vector<int>> m_Lines;
};

bool ParseFloat(std::string_view text, float &value)
{
	double parsed = 0.0;
	if (!V_ParseDouble(text, 3.0e38, parsed))
		return false;
	value = (float)parsed;
	return true;
}

bool ParseInt(std::string_view text, int32 &value)
{
	int64 parsed = 0;
	if (!V_ParseInt(text, INT32_MIN, INT32_MAX, parsed))
		return false;
	value = (int32)parsed;
	return true;
}

uint32 FlagOfKey(std::string_view key)
{
	if (V_StrEqualNoCase(key, "F_ALPHA_TEST"))
		return COMPILED_MATERIAL_FLAG_ALPHA_TEST;
	if (V_StrEqualNoCase(key, "F_TRANSLUCENT"))
		return COMPILED_MATERIAL_FLAG_TRANSLUCENT;
	if (V_StrEqualNoCase(key, "F_ADDITIVE") || V_StrEqualNoCase(key, "F_ADDITIVE_BLEND"))
		return COMPILED_MATERIAL_FLAG_ADDITIVE;
	if (V_StrEqualNoCase(key, "F_TWO_SIDED") || V_StrEqualNoCase(key, "F_RENDER_BACKFACES"))
		return COMPILED_MATERIAL_FLAG_TWO_SIDED;
	return 0;
}
} // namespace

int MaterialSource_t::ErrorCount() const
{
	int count = 0;
	for (const MaterialSourceMessage_t &message : m_Messages)
		count += message.bError ? 1 : 0;
	return count;
}

bool Material_IsKnownShader(std::string_view shader)
{
	for (const char *known : s_KnownShaders)
	{
		if (V_StrEqualNoCase(shader, known))
			return true;
	}
	return false;
}

bool Material_ParseConstant(std::string_view text, float values[4])
{
	size_t begin = 0, end = text.size();
	while (begin < end && IsBlank(text[begin]))
		++begin;
	while (end > begin && IsBlank(text[end - 1]))
		--end;
	if (end - begin < 2 || text[begin] != '[' || text[end - 1] != ']')
		return false;
	std::string_view inner = text.substr(begin + 1, end - begin - 2);
	float parsed[4] = {};
	int count = 0;
	size_t at = 0;
	while (at < inner.size())
	{
		while (at < inner.size() && (IsBlank(inner[at]) || inner[at] == ','))
			++at;
		if (at >= inner.size())
			break;
		size_t stop = at;
		while (stop < inner.size() && !IsBlank(inner[stop]) && inner[stop] != ',')
			++stop;
		if (count == 4 || !ParseFloat(inner.substr(at, stop - at), parsed[count]))
			return false;
		++count;
		at = stop;
	}
	if (count == 1)
		parsed[1] = parsed[2] = parsed[3] = parsed[0];
	else if (count == 3)
		parsed[3] = 1.0f;
	else if (count != 4)
		return false;
	for (int i = 0; i < 4; ++i)
		values[i] = parsed[i];
	return true;
}

CUtlString Material_ConstantText(const float values[4])
{
	return V_Format("[%f %f %f %f]", values[0], values[1], values[2], values[3]);
}

bool ReadMaterialSource(std::string_view text, const char *pszName, MaterialSource_t &out)
{
	out = MaterialSource_t();
	auto message = [&](bool bError, int line, CUtlString what) { out.m_Messages.push_back(MaterialSourceMessage_t{ bError, line, std::move(what) }); };

	KeyValues root("Layer0");
	CUtlString error;
	KV1ParseError_t detail;
	if (!root.LoadFromBuffer(pszName, text.data(), text.size(), nullptr, nullptr, KV1LoadOptions_t(), &error, &detail))
	{
		message(true, detail.line, detail.message.empty() ? error : detail.message);
		return false;
	}
	const CKeyLines lines(text);
	if (!V_StrEqualNoCase(root.GetName(), "Layer0"))
	{
		message(true, lines.Line(root.GetName(), 0), V_Format("the material's root key is \"%s\", not \"Layer0\"", root.GetName()));
		return false;
	}
	if (root.GetNextKey())
		message(false, lines.Line(root.GetNextKey()->GetName(), 0),
			V_Format("only the first root key (\"Layer0\") is read; \"%s\" and what follows is ignored", root.GetNextKey()->GetName()));

	// Last value wins; remember each key's place so that a repeated key replaces the first.
	std::unordered_map<CUtlString, size_t> occurrences;
	std::unordered_map<CUtlString, size_t> constantOfKey;
	std::unordered_map<CUtlString, size_t> textureOfKey;
	int shaderLine = 0;
	for (KeyValues *pKey = root.GetFirstSubKey(); pKey; pKey = pKey->GetNextKey())
	{
		const CUtlString key = pKey->GetName();
		const CUtlString lower = LowerCase(key);
		const size_t occurrence = occurrences[lower]++;
		const int line = lines.Line(key, occurrence);
		if (occurrence > 0)
		{
			message(false, line, V_Format("\"%s\" is given more than once; the last value holds", key.c_str()));
			if (const auto it = textureOfKey.find(lower); it != textureOfKey.end())
			{
				const size_t removed = it->second;
				out.m_Textures.erase(out.m_Textures.begin() + (std::ptrdiff_t)removed);
				textureOfKey.erase(it);
				for (auto &entry : textureOfKey)
					entry.second -= entry.second > removed ? 1 : 0;
			}
			if (const auto it = constantOfKey.find(lower); it != constantOfKey.end())
			{
				const size_t removed = it->second;
				out.m_Constants.erase(out.m_Constants.begin() + (std::ptrdiff_t)removed);
				constantOfKey.erase(it);
				for (auto &entry : constantOfKey)
					entry.second -= entry.second > removed ? 1 : 0;
			}
		}
		if (pKey->GetFirstSubKey())
		{
			message(false, line, V_Format("\"%s\" holds a block of keys; a material key holds a value, so it is ignored", key.c_str()));
			continue;
		}
		const CUtlString value = pKey->GetString();

		if (V_StrEqualNoCase(key, "Shader"))
		{
			out.m_Shader = value;
			shaderLine = line;
			continue;
		}
		if (V_StrBeginsWithNoCase(key, "F_"))
		{
			CompiledMaterialConstant_t constant;
			constant.m_Key = key;
			constant.m_eType = COMPILED_CONSTANT_INT;
			if (!ParseInt(value, constant.m_nValues[0]))
			{
				message(true, line, V_Format("the switch \"%s\" has the value \"%s\"; a switch is a whole number", key.c_str(), value.c_str()));
				continue;
			}
			if (const uint32 flag = FlagOfKey(key))
			{
				if (constant.m_nValues[0] != 0)
					out.m_nFlags |= flag;
				else
					out.m_nFlags &= ~flag;
			}
			constantOfKey[lower] = out.m_Constants.size();
			out.m_Constants.push_back(constant);
			continue;
		}
		const bool bTextureKey = V_StrBeginsWithNoCase(key, "Texture");
		float values[4];
		if (!value.empty() && value.find('[') != CUtlString::npos)
		{
			if (!Material_ParseConstant(value, values))
			{
				message(true, line, V_Format("\"%s\" has the value \"%s\"; a constant is written \"[r g b a]\"", key.c_str(), value.c_str()));
				continue;
			}
			CompiledMaterialConstant_t constant;
			constant.m_Key = key;
			for (int i = 0; i < 4; ++i)
				constant.m_flValues[i] = values[i];
			constantOfKey[lower] = out.m_Constants.size();
			out.m_Constants.push_back(constant);
			continue;
		}
		if (bTextureKey)
		{
			if (value.empty())
				continue; // no texture for this key
			textureOfKey[lower] = out.m_Textures.size();
			out.m_Textures.push_back(MaterialSourceTexture_t{ key, value, line });
			continue;
		}
		if (ParseFloat(value, values[0]))
		{
			CompiledMaterialConstant_t constant;
			constant.m_Key = key;
			constant.m_flValues[0] = values[0];
			constantOfKey[lower] = out.m_Constants.size();
			out.m_Constants.push_back(constant);
			continue;
		}
		message(false, line, V_Format("\"%s\" has the value \"%s\", which is no number, constant or texture; it is ignored", key.c_str(), value.c_str()));
	}

	if (out.m_Shader.empty())
		message(true, shaderLine, "the material names no shader (the key \"Shader\", e.g. \"hero.zfx\")");
	else if (out.m_Shader.size() < 5 || !V_StrEqualNoCase(std::string_view(out.m_Shader).substr(out.m_Shader.size() - 4), ".zfx"))
		message(true, shaderLine, V_Format("the shader \"%s\" is no shader file (.zfx)", out.m_Shader.c_str()));
	else if (!Material_IsKnownShader(out.m_Shader))
		message(false, shaderLine, V_Format("the shader \"%s\" is not one the renderer knows (hero.zfx, generic.zfx, unlit.zfx); it draws as hero.zfx",
									   out.m_Shader.c_str()));
	return out.ErrorCount() == 0;
}
