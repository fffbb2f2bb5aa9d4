// CToolFrameworkHost: builds the file system of a game tree and the services, and hands them to
// tools through its factory.
#include <cerrno>
#include <cstring>
#include <memory>
#include <unistd.h>
#include <vector>

#include "core/fileio.h"
#include "core/logging.h"
#include "core/pathutils.h"
#include "core/strtools.h"
#include "filesystem/filesystem.h"
#include "toolframework/platformservices.h"
#include "toolframework/toolservices.h"

namespace
{
const char *const LOCALIZATION_FILE = "resource/localization/mintyard_english.txt";

// The host whose services the factory hands out; tools reach the host through a plain function
// pointer, so there is one at a time.
CToolFrameworkHost *s_pLiveHost = nullptr;

// The path made absolute against the working folder, with "." steps, doubled and trailing
// slashes gone and ".." steps taken. "/" stays "/".
CUtlString AbsolutePath(const CUtlString &path)
{
	CUtlString absolute = path;
	if (!V_IsAbsolutePath(absolute))
	{
		std::vector<char> cwd(4096);
		while (!getcwd(cwd.data(), cwd.size()))
		{
			if (errno != ERANGE || cwd.size() > (1u << 20))
				return CUtlString();
			cwd.resize(cwd.size() * 2);
		}
		absolute = CUtlString(cwd.data()) + "/" + absolute;
	}
	return V_NormalizePath(absolute);
}
} // namespace

struct CToolFrameworkHost::Impl
{
	CUtlString m_GameDirectory; // <root>/game/<mod>, absolute, no trailing slash
	CUtlString m_Root;
	CUtlString m_Mod;
	IFileSystem *m_pFileSystem = nullptr;
	IBaseFileSystem *m_pPreviousCoreFileSystem = nullptr;
	std::unique_ptr<CToolSettings> m_pSettings;
	std::unique_ptr<CToolFrameworkService> m_pFramework;
	std::unique_ptr<CAddonService> m_pAddons;
	std::unique_ptr<CAssetBrowserService> m_pAssetBrowser;
	std::unique_ptr<CInputBindingManager> m_pBindings;
};

CToolFrameworkHost::CToolFrameworkHost() : m_pImpl(std::make_unique<Impl>())
{
}

CToolFrameworkHost::~CToolFrameworkHost()
{
	if (s_pLiveHost == this)
		s_pLiveHost = nullptr;
	// The services go before the file system they use.
	m_pImpl->m_pFramework.reset();
	if (m_pImpl->m_pFileSystem)
	{
		// Only our own file system is taken back: one installed over it since belongs to
		// someone else.
		if (CoreFileSystem() == m_pImpl->m_pFileSystem)
			SetCoreFileSystem(m_pImpl->m_pPreviousCoreFileSystem);
		DestroyFileSystem(m_pImpl->m_pFileSystem);
		m_pImpl->m_pFileSystem = nullptr;
	}
}

bool CToolFrameworkHost::Init(const ToolFrameworkConfig_t &config, CUtlString *pError)
{
	auto fail = [pError](const CUtlString &message) {
		// The caller reports the message when it asks for it; otherwise it goes to the log.
		if (pError)
			*pError = message;
		else
			Warning("Tool framework: %s\n", message.c_str());
		return false;
	};

	Impl &impl = *m_pImpl;
	if (impl.m_pFileSystem)
		return fail("the tool framework host is started already");
	if (s_pLiveHost && s_pLiveHost != this)
		return fail("another tool framework host is running; only one can serve the tools");
	if (config.m_GameDirectory.empty())
		return fail("no game directory was given (-game <root>/game/<mod>)");

	const CUtlString gameDirectory = AbsolutePath(config.m_GameDirectory);
	if (gameDirectory.empty())
		return fail(V_Format("cannot make the game directory %s absolute", config.m_GameDirectory.c_str()));
	if (!Plat_IsDirectory(gameDirectory.c_str()))
		return fail(V_Format("the game directory %s does not exist", gameDirectory.c_str()));
	const size_t modSlash = gameDirectory.rfind('/');
	const CUtlString mod = gameDirectory.substr(modSlash + 1);
	const CUtlString gameParent = gameDirectory.substr(0, modSlash);
	if (mod.empty() || gameParent.empty())
		return fail(V_Format("the game directory %s is not of the form <root>/game/<mod>", gameDirectory.c_str()));

	impl.m_GameDirectory = gameDirectory;
	// Empty when the tree sits at "/": every path is joined as m_Root + "/game/...".
	impl.m_Root = gameParent.substr(0, gameParent.rfind('/'));
	impl.m_Mod = mod;

	const CUtlString gameFolder = gameDirectory + "/";
	const CUtlString contentRoot = impl.m_Root + "/content/";
	const CUtlString contentFolder = contentRoot + mod + "/";
	IFileSystem *fs = CreateFileSystem();
	fs->AddSearchPath(gameFolder.c_str(), "MOD", PATH_ADD_TO_TAIL, true);
	fs->AddSearchPath(gameFolder.c_str(), "GAME", PATH_ADD_TO_TAIL, true);
	// <root>/game/core/ holds what every game of the tree shares (the tool's images and
	// localisation); it comes after the game's own folder, so a game can replace any of it.
	const CUtlString coreFolder = gameParent + "/core/";
	if (mod != "core" && Plat_IsDirectory(coreFolder.c_str()))
		fs->AddSearchPath(coreFolder.c_str(), "GAME", PATH_ADD_TO_TAIL, false);
	fs->AddSearchPath(gameFolder.c_str(), "DEFAULT_WRITE_PATH", PATH_ADD_TO_TAIL, true);
	fs->AddSearchPath(contentFolder.c_str(), "CONTENT", PATH_ADD_TO_TAIL, true);
	fs->AddSearchPath(contentRoot.c_str(), "CONTENTROOT", PATH_ADD_TO_TAIL, false);
	if (!Plat_IsDirectory(contentFolder.c_str()))
		Msg("Tool framework: the content folder %s does not exist yet\n", contentFolder.c_str());

	impl.m_pFileSystem = fs;
	impl.m_pPreviousCoreFileSystem = SetCoreFileSystem(fs);

	impl.m_pSettings = std::make_unique<CToolSettings>(config.m_SettingsFolder, config.m_Tools);
	impl.m_pFramework = std::make_unique<CToolFrameworkService>(fs, config.m_Tools);
	impl.m_pAddons = std::make_unique<CAddonService>(impl.m_Root, mod, config.m_MountedAddons);
	impl.m_pAssetBrowser = std::make_unique<CAssetBrowserService>(impl.m_Root, mod);
	impl.m_pBindings = std::make_unique<CInputBindingManager>();

	// Without the localisation the tool still runs; its texts show as their "#" tokens.
	if (fs->FileExists(LOCALIZATION_FILE, "GAME"))
		Localize()->AddFile(LOCALIZATION_FILE, "GAME"); // a broken file is reported by AddFile
	else
	{
		CUtlVector<CUtlString> folders;
		fs->GetSearchPathList("GAME", folders);
		CUtlString searched;
		for (const CUtlString &folder : folders)
			searched += (searched.empty() ? "" : ", ") + folder;
		Warning("Localization: %s is in none of the game's folders (%s); texts show as their tokens\n", LOCALIZATION_FILE,
			searched.c_str());
	}

	s_pLiveHost = this;
	return true;
}

void *CToolFrameworkHost::Factory(const char *name, int *returnCode)
{
	void *object = nullptr;
	if (s_pLiveHost && name)
	{
		Impl &impl = *s_pLiveHost->m_pImpl;
		if (strcmp(name, TOOLSETTINGS_INTERFACE_VERSION) == 0)
			object = static_cast<IToolSettings *>(impl.m_pSettings.get());
		else if (strcmp(name, FILESYSTEM_INTERFACE_VERSION) == 0)
			object = impl.m_pFileSystem;
		else if (strcmp(name, TOOLFRAMEWORK_INTERFACE_VERSION) == 0)
			object = static_cast<IToolFramework *>(impl.m_pFramework.get());
		else if (strcmp(name, ADDONSERVICE_INTERFACE_VERSION) == 0)
			object = static_cast<IAddonService *>(impl.m_pAddons.get());
		else if (strcmp(name, ASSETBROWSER_INTERFACE_VERSION) == 0)
			object = static_cast<IAssetBrowserService *>(impl.m_pAssetBrowser.get());
		else if (strcmp(name, INPUTBINDING_INTERFACE_VERSION) == 0)
			object = static_cast<IInputBindingManager *>(impl.m_pBindings.get());
		else if (strcmp(name, CVAR_INTERFACE_VERSION) == 0)
			object = CVar();
		else if (strcmp(name, LOCALIZE_INTERFACE_VERSION) == 0)
			object = Localize();
	}
	// Then what the platform's libraries registered themselves.
	if (!object && name)
		object = PlatformInterface_Create(name, nullptr);
	if (returnCode)
		*returnCode = object ? IFACE_OK : IFACE_FAILED;
	return object;
}

IFileSystem *CToolFrameworkHost::FileSystem()
{
	return m_pImpl->m_pFileSystem;
}

IToolFramework *CToolFrameworkHost::Framework()
{
	return m_pImpl->m_pFramework.get();
}

void CToolFrameworkHost::RunFrameListeners(float frameTime)
{
	if (m_pImpl->m_pFramework)
		m_pImpl->m_pFramework->RunFrameListeners(frameTime);
}
