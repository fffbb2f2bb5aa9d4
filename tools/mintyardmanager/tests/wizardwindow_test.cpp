// The main window's side of the import wizard in the item modes: New Submission and Re-upload
// open it, "-item_file" opens it on a session or zip, a ready zip opens the publish form, and the
// wizard hears that the form was accepted.
#include <gtest/gtest.h>

#include <filesystem>

#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPointer>
#include <QTimer>

#include "core/kv3text.h"
#include "mintyardmanager/mainwindow.h"
#include "mintyardmanager/mintyardmanagertool.h"
#include "mintyardmanager/publishfiledialog.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/wizard/importdialog.h"
#include "mintyardtoolutils/wizard/portraiticons.h"
#include "mintyardtoolutils/wizard/wizardpage.h"
#include "mintyardtoolutils/wizard/wizardutils.h"
#include "testsupport/test_support.h"
#include "toolinprocess.h"

namespace fs = std::filesystem;

namespace
{
class WizardWindowTest : public testing::Test
{
protected:
	void SetUp() override
	{
		setenv("BRUME_SERVICE", "127.0.0.1:1", 1);
		setenv("MINTYARD_SCRATCH_DIR", m_Temp.Path("scratch").c_str(), 1);
		fs::create_directories(m_Temp.Path("game/zarn"));
		fs::copy(MINTYARD_SOURCE_DIR "/sample/game/zarn/scripts", m_Temp.Path("game/zarn/scripts"), fs::copy_options::recursive);
		fs::copy(MINTYARD_SOURCE_DIR "/sample/game/core", m_Temp.Path("game/core"), fs::copy_options::recursive);
		fs::create_directories(m_Temp.Path("content/zarn"));
		MintyardWizardMessageHook() = [this](QMessageBox::Icon, const QString &title, const QString &, int, int) {
			m_WizardTitles << title;
			return (int)QMessageBox::No;
		};
		MintyardWizardFileDialogHook() = [](EMintyardFileDialogKind, const QString &, const QString &, const QString &) { return QString(); };
	}

	void TearDown() override
	{
		m_Tool.Stop();
		MintyardWizardMessageHook() = nullptr;
		MintyardWizardFileDialogHook() = nullptr;
		unsetenv("MINTYARD_SCRATCH_DIR");
	}

	CMainWindow *Start(std::vector<const char *> options)
	{
		return m_Tool.Start(m_Temp.Path("game/zarn"), m_Temp.Path("settings"), options, "", [] { CloseModalsSoon(); });
	}

	QList<CPublishFileDialog *> VisibleDialogs()
	{
		QList<CPublishFileDialog *> out;
		for (QWidget *w : QApplication::topLevelWidgets())
			if (CPublishFileDialog *d = qobject_cast<CPublishFileDialog *>(w); d && d->isVisible())
				out << d;
		return out;
	}

	CTempDirectory m_Temp;
	CToolInProcess m_Tool;
	QStringList m_WizardTitles;
};
} // namespace

TEST_F(WizardWindowTest, NewSubmissionInAnItemModeOpensTheWizardOnTheTypePick)
{
	CMainWindow *window = Start({ "-mintyard_items" });
	ASSERT_NE(nullptr, window);
	EXPECT_TRUE(window->ImportWizards().isEmpty());
	window->NewSubmissionSlot();
	ASSERT_EQ(1, window->ImportWizards().size());
	CQMintyardImportDialog *wizard = window->ImportWizards().first();
	EXPECT_TRUE(wizard->isVisible());
	EXPECT_EQ(nullptr, wizard->parentWidget());
	EXPECT_EQ(MINTYARD_WIZARD_NEW_SUBMISSION, wizard->Mode());
	EXPECT_EQ(MINTYARD_STEP_TYPE_PICK, wizard->CurrentPage());
	// The session's roots are the game's first "GAME" and "CONTENT" paths.
	EXPECT_NE(std::string::npos, wizard->Session().GetGameRoot().find("game/zarn"));
	EXPECT_NE(std::string::npos, wizard->Session().GetContentRoot().find("content/zarn"));
	EXPECT_TRUE(VisibleDialogs().isEmpty());
}

TEST_F(WizardWindowTest, ReUploadWithoutARecordSaysTheTemplateIsUnknownAndShowsTheTypePick)
{
	CMainWindow *window = Start({ "-mintyard_items" });
	window->ReUploadSubmissionSlot();
	ASSERT_EQ(1, window->ImportWizards().size());
	CQMintyardImportDialog *wizard = window->ImportWizards().first();
	EXPECT_EQ(MINTYARD_WIZARD_UPDATE_SUBMISSION, wizard->Mode());
	EXPECT_EQ(QStringList{ "Unrecognised Template" }, m_WizardTitles);
	EXPECT_EQ(MINTYARD_STEP_TYPE_PICK, wizard->CurrentPage());
}

TEST_F(WizardWindowTest, ItemFileOpensTheWizardOnTheSessionAndAReadyZipReachesThePublishForm)
{
	const std::string session = m_Temp.Write("sessions/contract.txt",
		"<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n"
		"{ template_name = \"contract_only\" import_name = \"from_command_line\" misc_data_list = [ { id = \"contract_notes\" value = \"All of it.\" } ] }\n");
	CMainWindow *window = Start({ "-mintyard_items", "-item_file", session.c_str() });
	ASSERT_EQ(1, window->ImportWizards().size());
	QPointer<CQMintyardImportDialog> wizard = window->ImportWizards().first();
	ASSERT_EQ(MINTYARD_STEP_INPUTS, wizard->CurrentPage()) << m_WizardTitles.join(", ").toStdString();
	EXPECT_EQ("from_command_line", wizard->Session().GetNameElement()->Value());

	wizard->OnNextClicked();
	ASSERT_EQ(MINTYARD_STEP_LOG, wizard->CurrentPage());
	wizard->OnNextClicked();
	ASSERT_EQ(MINTYARD_STEP_SUBMIT, wizard->CurrentPage());
	const std::string zip = wizard->ZipPath();
	ASSERT_TRUE(fs::exists(zip));
	wizard->OnSubmit();
	ASSERT_EQ(1, VisibleDialogs().size());
	CPublishFileDialog *dialog = VisibleDialogs().first();
	EXPECT_EQ(zip, dialog->Record().m_sFileName);
	EXPECT_EQ((CUtlVector<CUtlString>{ "Contract Only", "imported", "renewed" }), dialog->Record().m_vecTags);

	// The accepted form closes the wizard: it asks whether to keep the session (No here).
	dialog->accept();
	QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
	EXPECT_TRUE(wizard.isNull());
	EXPECT_TRUE(m_WizardTitles.contains("Save the Session?"));
	EXPECT_TRUE(window->ImportWizards().isEmpty());

	// Its setting went into the tool's settings document, beside what the window keeps.
	CKeyValues3Context settings;
	MintyardManagerTool()->ReadSettings(settings.Root());
	const KeyValues3 *table = FindMember(settings.Root(), "mintyard_import_dialog");
	ASSERT_NE(nullptr, table);
	EXPECT_FALSE(GetMemberBool(table, "automation", true));
}

TEST_F(WizardWindowTest, ItemFileWithoutAValueOpensTheWizardAlone)
{
	CMainWindow *window = Start({ "-mintyard_items", "-item_file" });
	ASSERT_EQ(1, window->ImportWizards().size());
	EXPECT_EQ(MINTYARD_STEP_TYPE_PICK, window->ImportWizards().first()->CurrentPage());
	EXPECT_TRUE(m_WizardTitles.isEmpty());
}

// Closing the window closes its wizards, each asking about its session; a wizard the author keeps
// open (Cancel) keeps the window open too.
TEST_F(WizardWindowTest, ClosingTheWindowClosesItsWizardsUnlessTheAuthorKeepsOne)
{
	const std::string session = m_Temp.Write("sessions/contract.txt",
		"<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n"
		"{ template_name = \"contract_only\" import_name = \"kept_open\" misc_data_list = [ { id = \"contract_notes\" value = \"All of it.\" } ] }\n");
	CMainWindow *window = Start({ "-mintyard_items", "-item_file", session.c_str() });
	ASSERT_EQ(1, window->ImportWizards().size());
	QPointer<CQMintyardImportDialog> wizard = window->ImportWizards().first();
	ASSERT_EQ(MINTYARD_STEP_INPUTS, wizard->CurrentPage());

	MintyardWizardMessageHook() = [this](QMessageBox::Icon, const QString &title, const QString &, int, int) {
		m_WizardTitles << title;
		return (int)QMessageBox::Cancel;
	};
	m_WizardTitles.clear();
	EXPECT_FALSE(window->close());
	EXPECT_EQ(QStringList{ "Save the Session?" }, m_WizardTitles);
	EXPECT_TRUE(window->isVisible());
	ASSERT_TRUE(wizard);
	EXPECT_TRUE(wizard->isVisible());
	EXPECT_EQ("kept_open", wizard->Session().GetNameElement()->Value());

	MintyardWizardMessageHook() = [this](QMessageBox::Icon, const QString &title, const QString &, int, int) {
		m_WizardTitles << title;
		return (int)QMessageBox::No;
	};
	EXPECT_TRUE(window->close());
	QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
	EXPECT_FALSE(wizard);
}

TEST_F(WizardWindowTest, TheToolGivesTheWizardItsPortraitPageWhenItStarts)
{
	SetMintyardWizardPageFactory(MINTYARD_WIZARD_PAGE_PORTRAIT_EDITOR, nullptr);
	ASSERT_EQ(nullptr, GetMintyardWizardPageFactory(MINTYARD_WIZARD_PAGE_PORTRAIT_EDITOR));
	ASSERT_NE(nullptr, Start({ "-mintyard_items" }));
	EXPECT_NE(nullptr, GetMintyardWizardPageFactory(MINTYARD_WIZARD_PAGE_PORTRAIT_EDITOR));
	// The wizard's icon option finds the tool that draws the icons, with its interface.
	IToolSystem2 *pIcons = g_pToolFramework->FindToolByName(MINTYARD_PORTRAIT_EDITOR_TOOL_NAME);
	ASSERT_NE(nullptr, pIcons);
	EXPECT_NE(nullptr, pIcons->QueryInterface(MINTYARD_PORTRAIT_ICONS_INTERFACE_VERSION));
}

