// The submit page of modes 0 and 1: which button, when it is enabled, the zip, SubmitPressed(),
// and icons through the host's portrait editor tool found by name.
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>

#include "core/keyvalues.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/core/templatecatalogue.h"
#include "mintyardtoolutils/wizard/portraiticons.h"
#include "mintyardtoolutils/wizard/submitwidget.h"
#include "toolframework/toolsystem.h"
#include "wizardtestgame.h"

namespace
{
// A tool of the host's registry; with bIcons it offers the icon interface and records its calls.
class CFakePortraitTool : public CBaseToolSystem2, public IMintyardPortraitIcons
{
public:
	explicit CFakePortraitTool(bool bIcons) : m_bIcons(bIcons) {}
	void *QueryInterface(const char *pszName) override
	{
		if (m_bIcons && strcmp(pszName, MINTYARD_PORTRAIT_ICONS_INTERFACE_VERSION) == 0)
			return static_cast<IMintyardPortraitIcons *>(this);
		return CBaseToolSystem2::QueryInterface(pszName);
	}
	bool GenerateIcons(const char *pszKind, KeyValues *pItemKeys, int nFlags) override
	{
		m_Calls.push_back(std::string("generate ") + pszKind + " " + (pItemKeys ? pItemKeys->GetString("prefab") : "") + " " + std::to_string(nFlags));
		return true;
	}
	void FinishIcons() override { m_Calls.push_back("finish"); }
	void ReleaseIcons() override { m_Calls.push_back("release"); }

	bool m_bIcons;
	std::vector<std::string> m_Calls;
};

class SubmitTest : public testing::Test
{
protected:
	void SetUp() override
	{
		ImportMessageList list;
		ASSERT_TRUE(m_Session.GetCatalogue().LoadTemplates(list));
		m_Session.SetTemplate(m_Session.GetCatalogue().FindTemplate("loading_screen"));
		m_Session.GetNameElement()->SetValue("my_screen");
	}
	void TearDown() override { g_pToolFramework->UnregisterTool(MINTYARD_PORTRAIT_EDITOR_TOOL_NAME); }

	CWizardTestGame m_Game;
	CMintyardImportSession m_Session;
	CQMintyardSubmitWidget m_Page;
};
} // namespace

TEST_F(SubmitTest, ANewSubmissionOffersSubmitNewWithTheZip)
{
	m_Page.SetZip("/tmp/mintyard_submit_my_screen_1.zip", 3 * 1024 * 1024 + 5);
	m_Page.Prepare(CQMintyardSubmitWidget::SUBMIT_MODE_NEW, &m_Session, false);
	EXPECT_FALSE(m_Page.SubmitNewButton()->isHidden());
	EXPECT_TRUE(m_Page.SubmitNewButton()->isEnabled());
	EXPECT_TRUE(m_Page.SubmitUpdateButton()->isHidden());
	EXPECT_TRUE(m_Page.CloseButton()->isHidden());
	EXPECT_EQ("my_screen", m_Page.TitleLabel()->text());
	EXPECT_EQ("Submission zip: /tmp/mintyard_submit_my_screen_1.zip (3.00 MB)", m_Page.ZipLabel()->text());
	EXPECT_FALSE(m_Page.ZipLabel()->isHidden());
	EXPECT_FALSE(m_Page.IconsCheck()->isHidden()); // one item record
	QSignalSpy pressed(&m_Page, SIGNAL(SubmitPressed()));
	m_Page.IconsCheck()->setChecked(false);
	m_Page.SubmitNewButton()->click();
	EXPECT_EQ(1, pressed.count());
}

TEST_F(SubmitTest, UnresolvedProblemsKeepAnAuthorFromSubmittingAnUpdate)
{
	unsetenv("MINTYARD_STAFF_ACCOUNTS");
	m_Page.Prepare(CQMintyardSubmitWidget::SUBMIT_MODE_UPDATE, &m_Session, true);
	EXPECT_TRUE(m_Page.SubmitNewButton()->isHidden());
	EXPECT_FALSE(m_Page.SubmitUpdateButton()->isHidden());
	EXPECT_FALSE(m_Page.SubmitUpdateButton()->isEnabled());
	EXPECT_FALSE(m_Page.NoSubmitLabel()->isHidden());
	EXPECT_TRUE(m_Page.WarningLabel()->isHidden());
	EXPECT_FALSE(CQMintyardSubmitWidget::IsPrivilegedUser());

	// Entering again resets the page.
	m_Page.Prepare(CQMintyardSubmitWidget::SUBMIT_MODE_UPDATE, &m_Session, false);
	EXPECT_TRUE(m_Page.SubmitUpdateButton()->isEnabled());
	EXPECT_TRUE(m_Page.NoSubmitLabel()->isHidden());

	// The item-definition face is not part of this build: only its way out.
	m_Page.Prepare(CQMintyardSubmitWidget::SUBMIT_MODE_ITEM_DEFINITION, &m_Session, false);
	EXPECT_FALSE(m_Page.CloseButton()->isHidden());
	EXPECT_TRUE(m_Page.SubmitUpdateButton()->isHidden());
}

TEST_F(SubmitTest, IconsGoThroughThePortraitEditorToolFoundByName)
{
	m_Page.Prepare(CQMintyardSubmitWidget::SUBMIT_MODE_NEW, &m_Session, false);
	ASSERT_TRUE(m_Page.IconsCheck()->isChecked());
	QSignalSpy pressed(&m_Page, SIGNAL(SubmitPressed()));
	{
		CCaptureLog log;
		m_Page.SubmitNewButton()->click();
		EXPECT_NE(std::string::npos, log.m_Text.find("Failed to find portrait editor tool, cannot generate icon.\n")) << log.m_Text;
	}
	EXPECT_EQ(1, pressed.count()); // the submission goes on without icons

	CFakePortraitTool withoutIcons(false);
	g_pToolFramework->RegisterTool(MINTYARD_PORTRAIT_EDITOR_TOOL_NAME, &withoutIcons);
	{
		CCaptureLog log;
		m_Page.SubmitNewButton()->click();
		EXPECT_NE(std::string::npos, log.m_Text.find("Failed to find portrait editor tool interface, cannot generate icon.\n")) << log.m_Text;
	}

	CFakePortraitTool withIcons(true);
	g_pToolFramework->UnregisterTool(MINTYARD_PORTRAIT_EDITOR_TOOL_NAME);
	g_pToolFramework->RegisterTool(MINTYARD_PORTRAIT_EDITOR_TOOL_NAME, &withIcons);
	m_Page.SubmitNewButton()->click();
	ASSERT_EQ(3u, withIcons.m_Calls.size());
	EXPECT_EQ("generate mintyard loading_screen 0", withIcons.m_Calls[0]);
	EXPECT_EQ("finish", withIcons.m_Calls[1]);
	EXPECT_EQ("release", withIcons.m_Calls[2]);
	EXPECT_EQ(3, pressed.count());
}
