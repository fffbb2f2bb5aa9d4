#include "toolframework/localize.h"

#include <map>
#include <mutex>

#include "core/fileio.h"
#include "core/keyvalues.h"
#include "core/logging.h"
#include "core/strtools.h"

namespace
{
// Tokens are kept without their "#" and folded to lower case, so that "#Mintyard_Title",
// "mintyard_title" and "#MINTYARD_TITLE" are one token.
CUtlString TokenKey(const char *token)
{
	if (token && *token == '#')
		++token;
	CUtlString key = token ? token : "";
	for (char &c : key)
		c = V_tolower(c);
	return key;
}

class CLocalize final : public ILocalize
{
public:
	bool AddFile(const char *path, const char *pathID, CUtlString *pError) override
	{
		CUtlString error;
		if (!LoadTokens(path, pathID, error))
		{
			Warning("Localization: %s\n", error.c_str());
			if (pError)
				*pError = error;
			return false;
		}
		return true;
	}

	const char *Find(const char *token) override
	{
		if (!token || !*token)
			return nullptr;
		std::lock_guard<std::mutex> lock(m_Mutex);
		auto it = m_Tokens.find(TokenKey(token));
		return it == m_Tokens.end() ? nullptr : it->second.c_str();
	}

	const char *Translate(const char *text) override
	{
		if (!text)
			return "";
		if (*text != '#')
			return text;
		const char *found = Find(text);
		return found ? found : text;
	}

	CUtlString Format(const char *text, const char *arg1, const char *arg2, const char *arg3, const char *arg4) override
	{
		const char *args[4] = { arg1, arg2, arg3, arg4 };
		const char *format = Translate(text);
		// One pass: an argument that itself holds "%2" is not filled in again.
		CUtlString out;
		for (const char *p = format; *p; ++p)
		{
			if (p[0] == '%' && p[1] >= '1' && p[1] <= '4')
			{
				// A text may be shared by callers that give fewer arguments: an argument that was
				// not given shows as nothing rather than as its placeholder.
				if (args[p[1] - '1'])
					out += Translate(args[p[1] - '1']);
				++p;
				continue;
			}
			out += *p;
		}
		return out;
	}

	int TokenCount() override
	{
		std::lock_guard<std::mutex> lock(m_Mutex);
		return (int)m_Tokens.size();
	}

private:
	// Reads the whole file first and takes its tokens only when it is sound, so that a broken
	// file leaves the tokens of earlier files as they were.
	bool LoadTokens(const char *path, const char *pathID, CUtlString &error)
	{
		if (!path || !*path)
		{
			error = "no localization file named";
			return false;
		}
		KeyValues file("lang");
		if (!file.LoadFromFile(CoreFileSystem(), path, pathID, KV1LoadOptions_t(), &error))
			return false;
		KeyValues *tokens = file.FindKey("Tokens");
		if (!tokens || tokens->GetDataType() != KeyValues::TYPE_NONE)
		{
			error = V_Format("%s: no \"Tokens\" block under \"%s\"", path, file.GetName());
			return false;
		}

		std::lock_guard<std::mutex> lock(m_Mutex);
		for (KeyValues *token = tokens->GetFirstSubKey(); token; token = token->GetNextKey())
		{
			if (!token->GetFirstSubKey() && token->GetDataType() != KeyValues::TYPE_NONE)
				m_Tokens[TokenKey(token->GetName())] = token->GetString();
			else
				Warning("Localization: %s: token \"%s\" holds a block instead of a text; skipped\n", path, token->GetName());
		}
		return true;
	}

	std::mutex m_Mutex;
	// Node-based: the text of a token keeps its address until the token is loaded again.
	std::map<CUtlString, CUtlString> m_Tokens;
};
} // namespace

ILocalize *Localize()
{
	static CLocalize s_Localize;
	return &s_Localize;
}
