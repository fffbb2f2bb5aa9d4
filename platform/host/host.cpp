// mintyard_host: the tool host. It builds the framework's services for a game tree, loads a tool
// library, and drives it: Connect, Init, InitTool, PostInitTool, then RunToolFrame every 16 ms
// until the tool's window closes or the host is asked to quit (SIGINT, SIGTERM), which the tool
// may veto; then Shutdown, Disconnect and unload.
//
//   mintyard_host -game <root>/game/<mod> [-quern_mintyard] [-mintyard_items] [-item_file [path]]
//                 [-addon NAME]... [-tool <library>] [-quit_after_startup] [+<console variable> <value>]...
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QSocketNotifier>
#include <QTimer>
#include <QWidget>

#include "core/kv3transfer.h"
#include "core/logging.h"
#include "core/strtools.h"
#include "toolframework/binaryproperties.h"
#include "toolframework/schemasystem.h"
#include "toolframework/toolframework.h"
#include "toolframework/toolsystem.h"

namespace
{
DEFINE_LOGGING_CHANNEL(LOG_HOST, "Host");

const int kFrameIntervalMs = 16;
int s_QuitPipe[2] = { -1, -1 };

void OnQuitSignal(int)
{
	const char byte = 1;
	if (write(s_QuitPipe[1], &byte, 1) < 0)
	{
		// nothing more to do inside a signal handler
	}
}

int Usage(const char *message)
{
	if (message)
		fprintf(stderr, "mintyard_host: %s\n", message);
	fprintf(stderr, "usage: mintyard_host -game <root>/game/<mod> [-quern_mintyard] [-mintyard_items] [-item_file [path]]\n"
					"                     [-addon NAME]... [-tool <library>] [-quit_after_startup] [+<variable> <value>]...\n");
	return 2;
}

// The schema system of the host: it keeps the names of the classes that tools install, for the
// log.
class CHostSchemaSystem final : public ISchemaSystem
{
public:
	void RegisterType(const char *, const char *) override { ++m_nTypes; }
	void RegisterClass(const char *, const KV3ClassInfo_t *) override { ++m_nClasses; }
	void RegisterMember(const char *, const char *, const char *) override {}
	void FinishModule(const char *module) override { Log_Detailed(LOG_HOST, "Schema bindings of %s: %d types, %d classes\n", module, m_nTypes, m_nClasses); }

private:
	int m_nTypes = 0;
	int m_nClasses = 0;
};

// The tool library and its exports.
struct ToolLibrary_t
{
	void *handle = nullptr;
	CreateInterfaceFn createInterface = nullptr;
	GetResourceManifestCountFn manifestCount = nullptr;
	GetResourceManifestsFn manifests = nullptr;
	InstallSchemaBindingsFn installSchemaBindings = nullptr;
};

bool LoadToolLibrary(const QString &path, ToolLibrary_t &library)
{
	library.handle = dlopen(path.toUtf8().constData(), RTLD_NOW | RTLD_LOCAL);
	if (!library.handle)
	{
		fprintf(stderr, "mintyard_host: cannot load %s: %s\n", path.toUtf8().constData(), dlerror());
		return false;
	}
	library.createInterface = reinterpret_cast<CreateInterfaceFn>(dlsym(library.handle, "CreateInterface"));
	library.manifestCount = reinterpret_cast<GetResourceManifestCountFn>(dlsym(library.handle, "GetResourceManifestCount"));
	library.manifests = reinterpret_cast<GetResourceManifestsFn>(dlsym(library.handle, "GetResourceManifests"));
	library.installSchemaBindings = reinterpret_cast<InstallSchemaBindingsFn>(dlsym(library.handle, "InstallSchemaBindings"));
	if (!library.createInterface)
	{
		fprintf(stderr, "mintyard_host: %s exports no CreateInterface\n", path.toUtf8().constData());
		return false;
	}
	return true;
}

// Warns about files that the tool's resource manifests name and the game tree lacks.
void CheckResourceManifests(const ToolLibrary_t &library, IToolFramework *framework)
{
	if (!library.manifestCount || !library.manifests)
		return;
	const int count = library.manifestCount();
	for (int first = 0; first < count; ++first)
	{
		void *entry = nullptr;
		if (library.manifests(first, &entry, 1) != 1 || !entry)
			break;
		const ResourceManifest_t *manifest = static_cast<const ResourceManifest_t *>(entry);
		for (int i = 0; i < manifest->m_nCount; ++i)
		{
			if (framework->ResolveResourcePath(manifest->m_ppResources[i]).empty())
				Log_Warning(LOG_HOST, "Host: %s needs %s, which the game tree lacks\n", manifest->m_pName, manifest->m_ppResources[i]);
		}
	}
}

QString DefaultToolPath(const char *argv0)
{
	const QString exe = QFileInfo(QString::fromLocal8Bit(argv0)).absolutePath();
	return QDir(exe + "/../lib").absoluteFilePath("libmintyardmanager.so");
}
} // namespace

int main(int argc, char **argv)
{
	const auto started = std::chrono::steady_clock::now();
	ThreadSetMainThread();
	CommandLine()->CreateCmdLine(argc, argv);
	const char *game = CommandLine()->ParmValue("-game");
	if (!game)
		return Usage("-game is required");

	QApplication app(argc, argv);

	ToolFrameworkConfig_t config;
	config.m_GameDirectory = game;
	CommandLine()->ParmValues("-addon", config.m_MountedAddons);
	config.m_Tools.push_back({ "mintyardmanager", "Mintyard Manager", "game:tools/images/mintyardmanager/mintyardmanager.png" });

	CToolFrameworkHost host;
	CUtlString error;
	if (!host.Init(config, &error))
	{
		fprintf(stderr, "mintyard_host: %s\n", error.c_str());
		return 1;
	}

	const char *toolOption = CommandLine()->ParmValue("-tool");
	const QString toolPath = toolOption ? QString::fromLocal8Bit(toolOption) : DefaultToolPath(argv[0]);
	ToolLibrary_t library;
	if (!LoadToolLibrary(toolPath, library))
		return 1;
	int returnCode = IFACE_FAILED;
	IToolSystem2 *tool = static_cast<IToolSystem2 *>(library.createInterface(TOOLSYSTEM2_INTERFACE_VERSION, &returnCode));
	if (!tool || returnCode != IFACE_OK)
	{
		fprintf(stderr, "mintyard_host: %s has no %s\n", toolPath.toUtf8().constData(), TOOLSYSTEM2_INTERFACE_VERSION);
		return 1;
	}
	CheckResourceManifests(library, host.Framework());
	CHostSchemaSystem schemaSystem;
	if (library.installSchemaBindings)
		library.installSchemaBindings(SCHEMASYSTEM_INTERFACE_VERSION, &schemaSystem);

	if (!tool->Connect(CToolFrameworkHost::Factory))
	{
		fprintf(stderr, "mintyard_host: the tool could not connect to the framework's services\n");
		return 1;
	}
	if (tool->Init() != INIT_OK)
	{
		fprintf(stderr, "mintyard_host: the tool failed to initialise\n");
		tool->Disconnect();
		return 1;
	}
	// Console variables from the command line, now that the tool's variables exist.
	CUtlVector<CUtlString> names, values;
	CommandLine()->GetConsoleCommands(names, values);
	for (size_t i = 0; i < names.size(); ++i)
	{
		if (!CVar()->SetValue(names[i].c_str(), values[i].c_str()))
			Log_Warning(LOG_HOST, "Host: unknown console variable \"%s\"\n", names[i].c_str());
	}
	host.Framework()->RegisterTool("mintyardmanager", tool);
	if (!tool->InitTool(CToolFrameworkHost::Factory, 0))
	{
		fprintf(stderr, "mintyard_host: the tool failed to start\n");
		tool->Shutdown();
		tool->Disconnect();
		return 1;
	}
	// Frames.
	QTimer frames;
	auto lastFrame = std::chrono::steady_clock::now();
	QObject::connect(&frames, &QTimer::timeout, [&] {
		const auto now = std::chrono::steady_clock::now();
		const float frameTime = std::chrono::duration<float>(now - lastFrame).count();
		lastFrame = now;
		tool->RunToolFrame();
		host.RunFrameListeners(frameTime);
	});

	// Quitting from outside: the tool may say no.
	auto requestQuit = [&] {
		if (tool->VetoToolQuit())
		{
			Log_Msg(LOG_HOST, "Host: the tool keeps running\n");
			return;
		}
		QApplication::closeAllWindows();
		app.quit(); // leaves every running event loop, a modal box's too
	};
	std::unique_ptr<QSocketNotifier> quitNotifier;
	if (pipe2(s_QuitPipe, O_CLOEXEC | O_NONBLOCK) == 0)
	{
		signal(SIGINT, OnQuitSignal);
		signal(SIGTERM, OnQuitSignal);
		quitNotifier = std::make_unique<QSocketNotifier>(s_QuitPipe[0], QSocketNotifier::Read);
		QObject::connect(quitNotifier.get(), &QSocketNotifier::activated, [&] {
			char buffer[16];
			while (read(s_QuitPipe[0], buffer, sizeof(buffer)) > 0)
			{
			}
			requestQuit();
		});
	}

	// The tool shows itself from inside the event loop, so that a box it opens while starting
	// runs in a loop that quitting can leave.
	QTimer::singleShot(0, [&] {
		if (CommandLine()->HasParm("-quit_after_startup"))
		{
			// Runs once the tool has shown its window and filled it (or opened a box on the way).
			QTimer::singleShot(0, [&] {
				const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started).count();
				Log_Msg(LOG_HOST, "Host: started in %.1f ms\n", ms);
				requestQuit();
			});
		}
		tool->PostInitTool();
		frames.start(kFrameIntervalMs);
	});

	Log_Msg(LOG_HOST, "Host: %s is running\n", QFileInfo(toolPath).fileName().toUtf8().constData());
	const int exitCode = app.exec();

	frames.stop();
	QApplication::closeAllWindows();
	// Windows that delete themselves on close go now, before the tool shuts down.
	QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
	host.Framework()->UnregisterTool("mintyardmanager");
	tool->Shutdown();
	tool->Disconnect();
	dlclose(library.handle);
	return exitCode;
}
