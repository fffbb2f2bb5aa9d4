// A platform library registers its service when it is loaded; the host's factory finds it by name
// and stops finding it when the library is unloaded.
#include <dlfcn.h>

#include <gtest/gtest.h>

#include "selfregistering/selfregisteringservice.h"
#include "filesystem/filesystem.h"
#include "testsupport/test_support.h"
#include "toolframework/platformservices.h"
#include "toolframework/toolframework.h"

TEST(PlatformServices, TheHostFactoryFindsAServiceALibraryRegistered)
{
	int code = -1;
	EXPECT_EQ(CToolFrameworkHost::Factory(SELFREGISTERING_SERVICE_VERSION, &code), nullptr);
	EXPECT_EQ(code, IFACE_FAILED);

	void *library = dlopen(SELFREGISTERING_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
	ASSERT_NE(library, nullptr) << dlerror();
	{
		CTempDirectory temp;
		temp.Write("game/zarn/scripts/readme.txt", "x");
		ToolFrameworkConfig_t config;
		config.m_GameDirectory = temp.Path("game/zarn");
		config.m_SettingsFolder = temp.Path("settings");
		CToolFrameworkHost host;
		CCaptureLog log; // no localisation in this tree: a warning
		ASSERT_TRUE(host.Init(config, nullptr));
		auto *service = static_cast<ISelfRegisteringService *>(CToolFrameworkHost::Factory(SELFREGISTERING_SERVICE_VERSION, &code));
		ASSERT_NE(service, nullptr);
		EXPECT_EQ(code, IFACE_OK);
		EXPECT_EQ(service->Answer(), 4217);
		// The host's own services still come first and by their names only.
		EXPECT_NE(CToolFrameworkHost::Factory(FILESYSTEM_INTERFACE_VERSION, nullptr), nullptr);
		EXPECT_EQ(CToolFrameworkHost::Factory("SelfRegisteringTestService", nullptr), nullptr);
	}
	ASSERT_EQ(dlclose(library), 0);
	EXPECT_EQ(PlatformInterface_Create(SELFREGISTERING_SERVICE_VERSION, &code), nullptr);
	EXPECT_EQ(code, IFACE_FAILED);
}
