// The tool object, the library's exports and the start-up of the tool.
#include "mintyardmanager/mintyardmanagertool.h"

#include <cstdarg>
#include <cstring>

#include <QApplication>
#include <QByteArray>
#include <QGuiApplication>
#include <QIcon>
#include <QScreen>
#include <QStatusBar>

#include "brume/brume_api.h"
#include "core/kv3transfer.h"
#include "core/strtools.h"
#include "filesystem/filesystem.h"
#include "mintyardmanager/mainwindow.h"
#include "mintyardmanager/resources.h"
#include "mintyardtoolutils/preview/portraiteditor.h"
#include "mintyardtoolutils/preview/previewpages.h"
#include "toolframework/binaryproperties.h"
#include "toolframework/interfacereg.h"
#include "toolframework/schemasystem.h"
#include "toolframework/toolframework.h"

DEFINE_LOGGING_CHANNEL(LOG_MINTYARD_MANAGER, "MintyardManager");

const char *const g_pszBDLPackerPath = "bin/bdl";
const char *const g_pszDownloadedPreview = "downloaded_preview.jpg";
const char *const g_pszTempPreview = "temp_preview.png";

namespace
{
CMintyardManagerTool s_MintyardManagerTool;

// The tool depends on no other app system of its own.
const AppSystemInfo_t s_Dependencies[] = { { nullptr, nullptr } };

// The foundation libraries start at most once per process, however often the tool starts.
bool s_bFoundationStarted = false;

bool StartFoundationLibraries()
{
	if (s_bFoundationStarted)
		return true;
	// The data model, the movie objects and the model documents come with the import
	// pipeline; the foundation this build uses (documents, logging, the file system) is
	// ready as soon as the host connected the tool.
	if (!g_pFullFileSystem)
		return false;
	s_bFoundationStarted = true;
	return true;
}
} // namespace

EXPOSE_SINGLE_INTERFACE_GLOBALVAR(CMintyardManagerTool, IToolSystem2, TOOLSYSTEM2_INTERFACE_VERSION, s_MintyardManagerTool);

CMintyardManagerTool *MintyardManagerTool()
{
	return &s_MintyardManagerTool;
}

EMintyardToolMode DetectMintyardToolMode(const char *gameDirectory, bool bQuernFlag, bool bItemsFlag)
{
	if (bQuernFlag)
		return MINTYARD_MODE_QUERN_ADDON;
	if (V_stricmp(gameDirectory, "quern") == 0)
		return MINTYARD_MODE_QUERN_ADDON;
	if (strncmp(gameDirectory, "tolva", 5) == 0)
		return bItemsFlag ? MINTYARD_MODE_TOLVA_ITEMS : MINTYARD_MODE_TOLVA_MAP;
	return bItemsFlag ? MINTYARD_MODE_ZARN_ITEMS : MINTYARD_MODE_ZARN_ADDON;
}

CUtlString GameDirectoryFromSearchPath(const char *searchPath)
{
	CUtlString first = searchPath ? searchPath : "";
	const size_t separator = first.find(';');
	if (separator != CUtlString::npos)
		first.resize(separator);
	while (!first.empty() && (first.back() == '/' || first.back() == '\\'))
		first.pop_back();
	const size_t slash = first.find_last_of("/\\");
	return slash == CUtlString::npos ? first : first.substr(slash + 1);
}

const AppSystemInfo_t *CMintyardManagerTool::GetDependencies()
{
	return s_Dependencies;
}

bool CMintyardManagerTool::InitTool(CreateInterfaceFn factory, uint8 toolIndex)
{
	if (!CBaseToolSystem2::InitTool(factory, toolIndex))
		return false;
	if (!StartFoundationLibraries())
		return false;

	// The mode, from the game directory of the first "MOD" path and the command line.
	char searchPath[4096];
	g_pFullFileSystem->GetSearchPath("MOD", false, searchPath, sizeof(searchPath));
	const CUtlString gameDirectory = GameDirectoryFromSearchPath(searchPath);
	m_nGameMode = DetectMintyardToolMode(gameDirectory.c_str(), CommandLine()->HasParm("-quern_mintyard"), CommandLine()->HasParm("-mintyard_items"));
	Log_Msg(LOG_MINTYARD_MANAGER, "Mintyard Manager: game directory \"%s\", mode %d\n", gameDirectory.c_str(), m_nGameMode);

	// The wizard's pages that need the 3D scene: the preview (step 5) and the portrait (step 6).
	RegisterImportPreviewEditorPage();
	RegisterZarnPortraitEditorPage();
	CMainWindow *window = new CMainWindow(this);

	// A missing client shows later, when the browser finds no remote storage.
	BrumeAPI_Init();
	BrumeAPI_SetTryCatchCallbacks(false);
	BrumeAPIContext()->Init();

	window->CreateActions();
	window->CreateCentralWidget();
	window->statusBar()->showMessage("Ready");
	if (const ToolIdentity_t *identity = g_pToolFramework->GetToolIdentity(m_nToolIndex))
	{
		window->setWindowTitle(QString::fromUtf8(identity->m_Title.c_str()));
		window->setWindowIcon(LoadToolIcon(identity->m_IconPath.c_str()));
	}
	window->setAcceptDrops(true);
	if (g_pInputBindingManager)
		g_pInputBindingManager->RegisterBindTarget(window, "MintyardManagerMainWindow", "CMainWindow");

	m_pMainWindow = window;
	return true;
}

void CMintyardManagerTool::ReadSettings(KeyValues3 *out)
{
	if (g_pToolSettings)
		g_pToolSettings->ReadToolSettings(m_nToolIndex, out);
	else
		out->MakeTable();
}

bool CMintyardManagerTool::WriteSettings(const KeyValues3 *settings)
{
	return g_pToolSettings && g_pToolSettings->WriteToolSettings(m_nToolIndex, settings);
}

void CMintyardManagerTool::PostInitTool()
{
	if (!m_pMainWindow)
		return;
	CKeyValues3Context settings;
	ReadSettings(settings.Root());
	// With nothing saved the window comes up at a comfortable size: two thirds of the screen's
	// available area, centred on it. Saved geometry wins.
	if (!m_pMainWindow->restoreGeometry(QByteArray::fromBase64(QByteArray(GetMemberString(settings.Root(), "geometry")))))
	{
		const QScreen *screen = QGuiApplication::primaryScreen();
		const QRect available = screen ? screen->availableGeometry() : QRect(0, 0, 960, 540);
		const QSize size(available.width() * 2 / 3, available.height() * 2 / 3);
		m_pMainWindow->resize(size);
		m_pMainWindow->move(available.center() - QPoint(size.width() / 2, size.height() / 2));
	}
	m_pMainWindow->restoreState(QByteArray::fromBase64(QByteArray(GetMemberString(settings.Root(), "state"))), 0);
	if (m_pMainWindow->width() < 640)
		m_pMainWindow->resize(640, m_pMainWindow->height());
	if (m_pMainWindow->height() < 360)
		m_pMainWindow->resize(m_pMainWindow->width(), 360);
	m_pMainWindow->show();

	if (!m_bViewLoaded)
	{
		m_pMainWindow->RefreshFileBrowser();
		m_bViewLoaded = true;
	}

	if (CommandLine()->HasParm("-item_file"))
		m_pMainWindow->OpenImportWizardAtStart(CommandLine()->ParmValue("-item_file"));
}

void CMintyardManagerTool::RunToolFrame()
{
	if (!m_pMainWindow)
		return;
	BrumeAPI_RunCallbacks();
}

bool CMintyardManagerTool::VetoToolQuit()
{
	if (!m_pMainWindow)
		return false;
	return m_pMainWindow->VetoQuitForPublishDialog();
}

// ---------------------------------------------------------------------------------------------
// Exports

namespace
{
// The files the tool shows, for the host to check at start.
ResourceManifest_t s_ImagesManifest = { "mintyardmanager images", g_ppszToolImages, g_nToolImageCount };

struct ManifestReg_t
{
	ResourceManifest_t *pManifest;
	ManifestReg_t *pNext;
};
ManifestReg_t *s_pManifests = nullptr;

struct ManifestRegistrar_t
{
	ManifestReg_t reg;
	explicit ManifestRegistrar_t(ResourceManifest_t *pManifest) : reg{ pManifest, s_pManifests } { s_pManifests = &reg; }
};
ManifestRegistrar_t s_ImagesRegistrar(&s_ImagesManifest);

void *s_pSchemaSystem = nullptr;
const char *const kSchemaModules[] = { "mintyardmanager", "mintyardtoolutils" };
} // namespace

extern "C" __attribute__((visibility("default"))) int BinaryProperties_GetValue(int key, BinaryPropertyValue_t *out, ...)
{
	if (!out)
		return 0;
	switch (key)
	{
	case 0:
		out->m_nValue = (uint64)(uintptr_t) "Release";
		out->m_nKind = BINARY_PROPERTY_STRING;
		return 1;
	case 1:
	case 5:
		out->m_nValue = 0;
		out->m_nKind = BINARY_PROPERTY_INTEGER;
		return 1;
	case 2:
	case 6:
		out->m_nValue = 1;
		out->m_nKind = BINARY_PROPERTY_INTEGER;
		return 1;
	case 3:
	case 4:
		out->m_nValue = (uint64)(uintptr_t) "mintyardmanager";
		out->m_nKind = BINARY_PROPERTY_STRING;
		return 1;
	case 7:
		out->m_nValue = 2;
		out->m_nKind = BINARY_PROPERTY_INTEGER;
		return 1;
	default:
		return 0;
	}
}

extern "C" __attribute__((visibility("default"))) void *CreateInterface(const char *name, int *returnCode)
{
	return InterfaceReg_CreateInterface(name, returnCode);
}

extern "C" __attribute__((visibility("default"))) int GetResourceManifestCount()
{
	int count = 0;
	for (ManifestReg_t *reg = s_pManifests; reg; reg = reg->pNext)
		++count;
	return count;
}

extern "C" __attribute__((visibility("default"))) int GetResourceManifests(int first, void **out, size_t maxCount)
{
	int copied = 0;
	int index = 0;
	for (ManifestReg_t *reg = s_pManifests; reg && (size_t)copied < maxCount; reg = reg->pNext, ++index)
	{
		if (index < first)
			continue;
		out[copied++] = reg->pManifest;
	}
	return copied;
}

extern "C" __attribute__((visibility("default"))) bool InstallSchemaBindings(const char *interfaceName, void *schemaSystem)
{
	if (!interfaceName || strcmp(interfaceName, SCHEMASYSTEM_INTERFACE_VERSION) != 0)
		return false;
	if (s_pSchemaSystem)
		return true;
	s_pSchemaSystem = schemaSystem;
	ISchemaSystem *schema = static_cast<ISchemaSystem *>(schemaSystem);
	if (!schema)
		return true;
	// Types, classes, members, fix-ups. The record classes carry their members in code, so the
	// member phase has nothing to add.
	for (const char *module : kSchemaModules)
		schema->RegisterType(module, "CUtlString");
	for (const char *module : kSchemaModules)
	{
		CUtlVector<const KV3ClassInfo_t *> classes;
		KV3GetRegisteredClasses(module, classes);
		for (const KV3ClassInfo_t *info : classes)
			schema->RegisterClass(module, info);
	}
	for (const char *module : kSchemaModules)
		schema->FinishModule(module);
	return true;
}

// A pure virtual call ends the process through the crash report of the core.
extern "C" void __cxa_pure_virtual()
{
	Plat_WriteCrashReport("purecall");
	std::_Exit(1);
}
