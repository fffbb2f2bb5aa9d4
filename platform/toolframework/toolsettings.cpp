// The settings document of each tool: one KV3 text file per tool in the user's configuration
// folder. A file that no longer parses is never thrown away: reading it gives an empty table and
// a warning, and the first write over it keeps a copy beside it.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/fileio.h"
#include "core/kv3text.h"
#include "core/logging.h"
#include "core/strtools.h"
#include "toolframework/toolservices.h"

namespace
{
// Creates the folder and every missing one above it.
bool MakeFolders(const CUtlString &path, CUtlString &error)
{
	for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1))
	{
		const CUtlString partial = path.substr(0, slash);
		if (!partial.empty() && mkdir(partial.c_str(), 0755) != 0 && errno != EEXIST)
		{
			error = V_Format("cannot create the folder %s (%s)", partial.c_str(), strerror(errno));
			return false;
		}
		if (slash == CUtlString::npos)
			break;
	}
	if (!Plat_IsDirectory(path.c_str()))
	{
		error = V_Format("%s is not a folder", path.c_str());
		return false;
	}
	return true;
}

bool SameBytes(const CUtlBuffer &a, const CUtlBuffer &b)
{
	return a.Size() == b.Size() && (a.Size() == 0 || memcmp(a.Base(), b.Base(), a.Size()) == 0);
}

// What reading the file on disk gave.
enum ESettingsLoad
{
	SETTINGS_MISSING,	// no file yet
	SETTINGS_OK,		// parsed; `out` holds it
	SETTINGS_BROKEN,	// read but not parsed, or no table; `raw` holds the bytes
	SETTINGS_UNREADABLE // there, but its bytes cannot be read
};

ESettingsLoad LoadSettingsFile(const CUtlString &path, KeyValues3 *out, CUtlBuffer &raw)
{
	if (!Plat_FileExists(path.c_str()))
		return SETTINGS_MISSING;
	CUtlString error;
	if (!Plat_ReadFile(path.c_str(), raw, &error))
	{
		Warning("Tool settings: %s; the tool starts with its defaults\n", error.c_str());
		return SETTINGS_UNREADABLE;
	}
	KV3ParseError_t detail;
	if (!LoadKV3(out, &error, raw.View(), KV3_FORMAT_GENERIC, path.c_str(), &detail))
	{
		// The parser's message already reads "file(line,column): what".
		Warning("Tool settings: %s; the tool starts with its defaults and the file is kept until the settings "
				"are saved again\n",
			error.c_str());
		return SETTINGS_BROKEN;
	}
	if (!out->IsTable())
	{
		Warning("Tool settings: %s(1,1): the document is a %s, not a table; the tool starts with its defaults\n", path.c_str(),
			KV3TypeName(out->GetType()));
		return SETTINGS_BROKEN;
	}
	return SETTINGS_OK;
}
} // namespace

CUtlString ToolSettings_DefaultFolder()
{
	const char *xdg = getenv("XDG_CONFIG_HOME");
	if (xdg && xdg[0] == '/')
		return CUtlString(xdg) + "/mintyard";
	const char *home = getenv("HOME");
	if (home && home[0] == '/')
		return CUtlString(home) + "/.config/mintyard";
	// No environment to go by (a service without HOME): the account's home folder.
	struct passwd entry;
	struct passwd *result = nullptr;
	char buffer[4096];
	if (getpwuid_r(getuid(), &entry, buffer, sizeof(buffer), &result) == 0 && result && result->pw_dir &&
		result->pw_dir[0] == '/')
		return CUtlString(result->pw_dir) + "/.config/mintyard";
	return CUtlString();
}

CToolSettings::CToolSettings(const CUtlString &settingsFolder, const CUtlVector<ToolIdentity_t> &tools)
	: m_SettingsFolder(settingsFolder), m_Tools(tools)
{
	while (m_SettingsFolder.size() > 1 && m_SettingsFolder.back() == '/')
		m_SettingsFolder.pop_back();
}

CUtlString CToolSettings::GetSettingsFolder() const
{
	return m_SettingsFolder.empty() ? ToolSettings_DefaultFolder() : m_SettingsFolder;
}

CUtlString CToolSettings::ToolFileName(uint8 toolIndex) const
{
	CUtlString name = toolIndex < m_Tools.size() ? m_Tools[toolIndex].m_Name : CUtlString();
	// A name is a file name here: nothing that could leave the folder or hide the file.
	for (char &c : name)
	{
		const bool bSafe = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.';
		if (!bSafe)
			c = '_';
	}
	if (name.empty() || name[0] == '.')
		name = V_Format("tool%d", (int)toolIndex);
	return name;
}

CUtlString CToolSettings::GetToolSettingsPath(uint8 toolIndex)
{
	const CUtlString folder = GetSettingsFolder();
	const CUtlString file = ToolFileName(toolIndex) + ".kv3";
	return folder.empty() ? file : (folder == "/" ? folder + file : folder + "/" + file);
}

void CToolSettings::ReadToolSettings(uint8 toolIndex, KeyValues3 *out)
{
	if (!out)
		return;
	std::lock_guard<std::mutex> lock(m_Mutex);
	const CUtlString path = GetToolSettingsPath(toolIndex);
	CUtlBuffer raw;
	if (LoadSettingsFile(path, out, raw) != SETTINGS_OK)
		out->MakeTable();
}

bool CToolSettings::KeepBrokenCopy(const CUtlString &path, const CUtlBuffer &contents)
{
	// "<name>.kv3.broken", or the first free "<name>.kv3.broken.N" when an older copy with other
	// contents is there already.
	for (int attempt = 0; attempt < 100; ++attempt)
	{
		const CUtlString copy = attempt == 0 ? path + ".broken" : V_Format("%s.broken.%d", path.c_str(), attempt);
		if (Plat_FileExists(copy.c_str()))
		{
			CUtlBuffer existing;
			if (Plat_ReadFile(copy.c_str(), existing) && SameBytes(existing, contents))
				return true;
			continue;
		}
		CUtlString error;
		if (!Plat_WriteFileAtomic(copy.c_str(), contents.Base(), contents.Size(), &error))
		{
			Warning("Tool settings: cannot keep a copy of the broken file: %s\n", error.c_str());
			return false;
		}
		Msg("Tool settings: the broken file %s is kept as %s\n", path.c_str(), copy.c_str());
		return true;
	}
	Warning("Tool settings: too many broken copies of %s; remove some\n", path.c_str());
	return false;
}

bool CToolSettings::WriteToolSettings(uint8 toolIndex, const KeyValues3 *settings)
{
	if (!settings || !settings->IsTable())
	{
		Warning("Tool settings: tool %d wrote settings that are no table; nothing written\n", (int)toolIndex);
		return false;
	}
	std::lock_guard<std::mutex> lock(m_Mutex);
	const CUtlString folder = GetSettingsFolder();
	if (folder.empty())
	{
		Warning("Tool settings: neither XDG_CONFIG_HOME nor HOME names a folder for the settings; nothing written\n");
		return false;
	}
	const CUtlString path = GetToolSettingsPath(toolIndex);

	// The document on disk first: the members that `settings` does not name stay as they are.
	CKeyValues3Context document;
	KeyValues3 *root = document.Root();
	CUtlBuffer raw;
	switch (LoadSettingsFile(path, root, raw))
	{
	case SETTINGS_OK:
		break;
	case SETTINGS_UNREADABLE:
		Warning("Tool settings: %s cannot be read, so it is not replaced; nothing written\n", path.c_str());
		return false;
	case SETTINGS_BROKEN:
		if (!KeepBrokenCopy(path, raw))
		{
			Warning("Tool settings: %s is left as it is; nothing written\n", path.c_str());
			return false;
		}
		root->MakeTable();
		break;
	case SETTINGS_MISSING:
		root->MakeTable();
		break;
	}

	settings->ForEachMember([&](std::string_view name, uint32 hash, const KeyValues3 *member) {
		CopyValue(root->AddMember(KV3MemberName_t(hash, name)), member);
	});

	CUtlString error;
	CUtlBuffer text(CUtlBuffer::TEXT_BUFFER);
	if (!SaveKV3(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC, root, &error, &text))
	{
		Warning("Tool settings: %s: %s; nothing written\n", path.c_str(), error.c_str());
		return false;
	}
	if (!MakeFolders(folder, error) || !Plat_WriteFileAtomic(path.c_str(), text.Base(), text.Size(), &error))
	{
		Warning("Tool settings: %s; nothing written\n", error.c_str());
		return false;
	}
	return true;
}
