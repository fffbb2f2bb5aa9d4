#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "testsupport/test_support.h"
#include "toolframework/toolservices.h"
#include "toolframework/toolsystem.h"

namespace
{
class CNamedTool : public CBaseToolSystem2
{
};

TEST(ToolRegistry, ByNameWithoutCase)
{
	CToolFrameworkService framework(nullptr, {});
	CNamedTool portrait, items, replacement;
	EXPECT_EQ(framework.FindToolByName("portraitEditor"), nullptr);
	framework.RegisterTool("portraitEditor", &portrait);
	framework.RegisterTool("item_editor", &items);
	EXPECT_EQ(framework.FindToolByName("PORTRAITEDITOR"), &portrait);
	EXPECT_EQ(framework.FindToolByName("item_editor"), &items);
	EXPECT_EQ(framework.FindToolByName(nullptr), nullptr);
	// The same name again replaces the tool.
	framework.RegisterTool("Item_Editor", &replacement);
	EXPECT_EQ(framework.FindToolByName("item_editor"), &replacement);
	framework.UnregisterTool("ITEM_EDITOR");
	EXPECT_EQ(framework.FindToolByName("item_editor"), nullptr);
	EXPECT_EQ(framework.FindToolByName("portraitEditor"), &portrait);
}

TEST(ToolRegistry, ToolsThatLibrariesOfferAreFoundAfterTheRegisteredOnes)
{
	CToolFrameworkService framework(nullptr, {});
	CNamedTool offered, registered, later;
	EXPECT_EQ(FindLibraryTool("portraitEditor"), nullptr);
	{
		CLibraryToolRegistration registration("portraitEditor", &offered);
		EXPECT_EQ(FindLibraryTool("PortraitEditor"), &offered);
		EXPECT_EQ(framework.FindToolByName("portraiteditor"), &offered);
		// A tool registered with the framework comes first.
		framework.RegisterTool("portraitEditor", &registered);
		EXPECT_EQ(framework.FindToolByName("portraitEditor"), &registered);
		framework.UnregisterTool("portraitEditor");
		// The most recent library registration wins; its end uncovers the earlier one.
		{
			CLibraryToolRegistration reloaded("portraitEditor", &later);
			EXPECT_EQ(framework.FindToolByName("portraitEditor"), &later);
		}
		EXPECT_EQ(framework.FindToolByName("portraitEditor"), &offered);
	}
	// An unloaded library's tool is gone.
	EXPECT_EQ(framework.FindToolByName("portraitEditor"), nullptr);
	EXPECT_EQ(FindLibraryTool(nullptr), nullptr);
}

class CCountingListener : public IToolFrameListener
{
public:
	void OnToolFrame(float frameTime) override
	{
		++m_nCalls;
		m_flLast = frameTime;
		if (m_pOnCall)
			m_pOnCall(this);
	}
	int m_nCalls = 0;
	float m_flLast = 0.0f;
	std::function<void(CCountingListener *)> m_pOnCall;
};

TEST(FrameListeners, CalledOncePerFrame)
{
	CToolFrameworkService framework(nullptr, {});
	CCountingListener a, b;
	framework.AddFrameListener(&a);
	framework.AddFrameListener(&b);
	framework.AddFrameListener(&a); // once only
	framework.RunFrameListeners(0.016f);
	EXPECT_EQ(a.m_nCalls, 1);
	EXPECT_EQ(b.m_nCalls, 1);
	EXPECT_FLOAT_EQ(b.m_flLast, 0.016f);
	framework.RemoveFrameListener(&a);
	framework.RunFrameListeners(0.02f);
	EXPECT_EQ(a.m_nCalls, 1);
	EXPECT_EQ(b.m_nCalls, 2);
}

TEST(FrameListeners, ListenerRemovesItselfOrAnother)
{
	CToolFrameworkService framework(nullptr, {});
	CCountingListener self, victim, after, added;
	self.m_pOnCall = [&](CCountingListener *me) {
		framework.RemoveFrameListener(me);
		framework.RemoveFrameListener(&victim);
		framework.AddFrameListener(&added);
	};
	framework.AddFrameListener(&self);
	framework.AddFrameListener(&victim);
	framework.AddFrameListener(&after);
	framework.RunFrameListeners(0.1f);
	EXPECT_EQ(self.m_nCalls, 1);
	EXPECT_EQ(victim.m_nCalls, 0); // removed before its turn
	EXPECT_EQ(after.m_nCalls, 1);  // the rest of the list still runs
	EXPECT_EQ(added.m_nCalls, 0);  // added during the frame: from the next frame on
	EXPECT_EQ(framework.FrameListenerCount(), 2);
	framework.RunFrameListeners(0.1f);
	EXPECT_EQ(self.m_nCalls, 1);
	EXPECT_EQ(after.m_nCalls, 2);
	EXPECT_EQ(added.m_nCalls, 1);
}

TEST(GlobalObjects, SetFindAndClear)
{
	CToolFrameworkService framework(nullptr, {});
	int light = 0, camera = 0;
	EXPECT_EQ(framework.FindGlobalObject("ToolObjects/GlobalLight"), nullptr);
	framework.SetGlobalObject("ToolObjects/GlobalLight", &light);
	framework.SetGlobalObject("ToolObjects/Camera", &camera);
	EXPECT_EQ(framework.FindGlobalObject("ToolObjects/GlobalLight"), &light);
	EXPECT_EQ(framework.FindGlobalObject("ToolObjects/Camera"), &camera);
	framework.SetGlobalObject("ToolObjects/GlobalLight", &camera);
	EXPECT_EQ(framework.FindGlobalObject("ToolObjects/GlobalLight"), &camera);
	framework.SetGlobalObject("ToolObjects/GlobalLight", nullptr);
	EXPECT_EQ(framework.FindGlobalObject("ToolObjects/GlobalLight"), nullptr);
	EXPECT_EQ(framework.FindGlobalObject(nullptr), nullptr);
}

TEST(Addons, UnionOfGameAndContentSorted)
{
	CTempDirectory temp;
	temp.Write("game/zarn_addons/beta/addoninfo.txt", "x");
	temp.Write("game/zarn_addons/alpha/addoninfo.txt", "x");
	temp.Write("game/zarn_addons/a_file.txt", "not a folder");
	temp.Write("game/zarn_addons/.git/config", "hidden");
	temp.Write("content/zarn_addons/gamma/README.txt", "x");
	temp.Write("content/zarn_addons/beta/README.txt", "x");
	temp.Write("content/tolva_addons/other_game/README.txt", "x");
	CUtlVector<CUtlString> mounted;
	mounted.push_back("gamma");
	mounted.push_back("alpha");
	CAddonService addons(temp.Path(), "zarn", mounted);

	CUtlVector<CUtlString> list;
	addons.GetAddonList(list);
	ASSERT_EQ(list.size(), 3u);
	EXPECT_EQ(list[0], "alpha");
	EXPECT_EQ(list[1], "beta");
	EXPECT_EQ(list[2], "gamma");

	CUtlVector<CUtlString> mountedOut;
	addons.GetMountedAddons(mountedOut);
	ASSERT_EQ(mountedOut.size(), 2u);
	EXPECT_EQ(mountedOut[0], "gamma");
	EXPECT_EQ(mountedOut[1], "alpha");

	EXPECT_EQ(addons.GetAddonsGameRoot(), temp.Path("game/zarn_addons"));
	EXPECT_EQ(addons.GetAddonsContentRoot(), temp.Path("content/zarn_addons"));
	EXPECT_EQ(addons.GetAddonGamePath("beta"), temp.Path("game/zarn_addons/beta"));
	EXPECT_EQ(addons.GetAddonContentPath("beta"), temp.Path("content/zarn_addons/beta"));
}

TEST(Addons, NoAddonFolders)
{
	CTempDirectory temp;
	CAddonService addons(temp.Path(), "zarn", {});
	CUtlVector<CUtlString> list;
	list.push_back("stale");
	addons.GetAddonList(list);
	EXPECT_TRUE(list.empty());
}

TEST(AssetBrowser, ContentFolderAndMessage)
{
	CTempDirectory temp;
	CAssetBrowserService browser(temp.Path(), "zarn");
	EXPECT_EQ(browser.GetContentFolder(), temp.Path("content/zarn"));
	{
		// Missing folder: said so, and nothing is opened.
		CCaptureLog log;
		EXPECT_FALSE(browser.ShowAssetBrowser());
		EXPECT_NE(log.m_Text.find("Asset browser: " + temp.Path("content/zarn")), std::string::npos) << log.m_Text;
		EXPECT_NE(log.m_Text.find("does not exist"), std::string::npos) << log.m_Text;
	}
	std::filesystem::create_directories(temp.Path("content/zarn"));
	{
		// No GUI application in this test program: the folder is logged, not opened.
		CCaptureLog log;
		EXPECT_FALSE(browser.ShowAssetBrowser());
		EXPECT_EQ(log.m_Text, "Asset browser: " + temp.Path("content/zarn") + "\n");
	}
}

class CTarget : public IBindTarget
{
public:
	explicit CTarget(const char *name) : m_pName(name) {}
	const char *GetBindTargetName() const override { return m_pName; }
	const char *m_pName;
};

TEST(InputBinding, RegisterFindUnregister)
{
	CInputBindingManager bindings;
	CTarget window("MintyardManagerMainWindow"), other("Other");
	EXPECT_TRUE(bindings.RegisterBindTarget(&window, "MintyardManagerMainWindow", "CMainWindow"));
	EXPECT_EQ(bindings.FindBindTarget("MintyardManagerMainWindow"), &window);
	EXPECT_STREQ(bindings.FindBindTargetClass("MintyardManagerMainWindow"), "CMainWindow");
	{
		CCaptureLog log;
		EXPECT_FALSE(bindings.RegisterBindTarget(&other, "MintyardManagerMainWindow", "COther"));
		EXPECT_NE(log.m_Text.find("MintyardManagerMainWindow"), std::string::npos);
	}
	EXPECT_EQ(bindings.FindBindTarget("MintyardManagerMainWindow"), &window);
	EXPECT_FALSE(bindings.RegisterBindTarget(nullptr, "Null", "C"));
	EXPECT_FALSE(bindings.RegisterBindTarget(&other, "", "C"));
	EXPECT_TRUE(bindings.RegisterBindTarget(&other, "Other", "COther"));
	EXPECT_EQ(bindings.BindTargetCount(), 2);
	bindings.UnregisterBindTarget(&window);
	EXPECT_EQ(bindings.FindBindTarget("MintyardManagerMainWindow"), nullptr);
	EXPECT_EQ(bindings.FindBindTarget("Other"), &other);
	// The name is free again.
	EXPECT_TRUE(bindings.RegisterBindTarget(&window, "MintyardManagerMainWindow", "CMainWindow"));
}
} // namespace
