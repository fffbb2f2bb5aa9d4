// The main window's side of publishing: opening the dialog from New, Re-upload and Edit, the
// question before a dirty form is replaced or the tool quits, and a ready wizard's submission.
#include <gtest/gtest.h>

#include <filesystem>

#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QTimer>

#include "testsupport/test_support.h"
#include "toolinprocess.h"
#include "mintyardmanager/mainwindow.h"
#include "mintyardmanager/mintyardmanagertool.h"
#include "mintyardmanager/publishedfilebrowser.h"
#include "mintyardmanager/publishfiledialog.h"
#include "mintyardtoolutils/core/mintyardtemplate.h"
#include "toolframework/toolframework.h"

namespace fs = std::filesystem;

// Stands in for the import wizard: it only hears how the publish ended.
class CSubmitterStandIn : public QObject
{
	Q_OBJECT
public:
	int m_nAccepted = 0;
	int m_nRejected = 0;
public slots:
	void OnSubmitAccepted() { ++m_nAccepted; }
	void OnSubmitRejected() { ++m_nRejected; }
};

namespace
{
class PublishWindowTest : public testing::Test
{
protected:
	void SetUp() override
	{
		setenv("BRUME_SERVICE", "127.0.0.1:1", 1); // nothing answers: the dialog needs no service here
		fs::create_directories(m_Temp.Path("game/zarn/resource/localization"));
		fs::copy_file(MINTYARD_SOURCE_DIR "/sample/game/core/resource/localization/mintyard_english.txt",
			m_Temp.Path("game/zarn/resource/localization/mintyard_english.txt"));
		fs::copy(MINTYARD_SOURCE_DIR "/sample/game/zarn_addons", m_Temp.Path("game/zarn_addons"), fs::copy_options::recursive);
		fs::create_directories(m_Temp.Path("content/zarn"));
		CPublishFileDialog::MessageHook() = [this](int, const QString &title, const QString &) {
			m_Titles << title;
			return m_nAnswer;
		};
	}

	void TearDown() override
	{
		m_nAnswer = QMessageBox::Yes;
		m_Tool.Stop();
		CPublishFileDialog::MessageHook() = nullptr;
	}

	CMainWindow *Start(std::vector<const char *> options = {})
	{
		m_GamePath = m_Temp.Path("game/zarn");
		m_pWindow = m_Tool.Start(m_GamePath, m_Temp.Path("settings"), options, "", [] { CloseModalsSoon(); });
		return m_pWindow;
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
	std::string m_GamePath;
	CToolInProcess m_Tool;
	QPointer<CMainWindow> m_pWindow;
	QStringList m_Titles;
	int m_nAnswer = QMessageBox::Yes;
};
} // namespace

TEST_F(PublishWindowTest, NewOpensTheFormAndADirtyFormIsKeptWhenTheAuthorSaysNo)
{
	CMainWindow *window = Start();
	window->NewSubmissionSlot();
	ASSERT_EQ(1, VisibleDialogs().size());
	QPointer<CPublishFileDialog> first = VisibleDialogs().first();
	EXPECT_TRUE(first->testAttribute(Qt::WA_DeleteOnClose));
	EXPECT_NE(nullptr, first->AddonCombo()); // an addon mode
	first->TitleEdit()->setText("Mine");
	first->TitleTextEdited("Mine");

	m_nAnswer = QMessageBox::No;
	window->ReUploadSubmissionSlot();
	EXPECT_EQ(QStringList{ "Cancel Publishing?" }, m_Titles);
	ASSERT_EQ(1, VisibleDialogs().size());
	EXPECT_EQ(first.data(), VisibleDialogs().first());
	EXPECT_EQ("Mine", first->TitleEdit()->text());

	// Yes throws the old form away; Edit opens an edit-only one.
	m_nAnswer = QMessageBox::Yes;
	window->EditSubmissionSlot();
	QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
	EXPECT_TRUE(first.isNull());
	ASSERT_EQ(1, VisibleDialogs().size());
	EXPECT_EQ(nullptr, VisibleDialogs().first()->AddonCombo());
	EXPECT_EQ(nullptr, VisibleDialogs().first()->UploadSizeLabel());
}

TEST_F(PublishWindowTest, QuittingAsksWhileTheFormIsDirty)
{
	CMainWindow *window = Start();
	CMintyardManagerTool *tool = MintyardManagerTool();
	EXPECT_FALSE(tool->VetoToolQuit()); // no dialog
	window->NewSubmissionSlot();
	QPointer<CPublishFileDialog> dialog = VisibleDialogs().first();
	dialog->DescriptionEdit()->setPlainText("text");
	ASSERT_TRUE(dialog->IsDirty());
	m_nAnswer = QMessageBox::No;
	EXPECT_TRUE(tool->VetoToolQuit());
	EXPECT_TRUE(dialog->isVisible());
	m_nAnswer = QMessageBox::Yes;
	EXPECT_FALSE(tool->VetoToolQuit());
	QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
	EXPECT_TRUE(dialog.isNull());
	EXPECT_EQ(2, m_Titles.size());
	// With the form gone nothing is asked.
	EXPECT_FALSE(tool->VetoToolQuit());
	EXPECT_EQ(2, m_Titles.size());
}

TEST_F(PublishWindowTest, AReadySubmissionOpensAnUntrackedFormWithTheTemplatesTags)
{
	CMainWindow *window = Start({ "-mintyard_items" });
	const std::string zip = m_Temp.Write("mintyard_submit_hat_1.zip", std::string(2048, 'z'));
	CMintyardTemplate tmpl;
	tmpl.mintyard_tags = { "Wearable", "imported" };
	CSubmitterStandIn submitter;
	PreparedMintyardSubmission_t submission;
	submission.m_strZipPath = zip;
	submission.m_nZipSize = 2048;
	submission.m_nZipTime = 77;
	submission.m_pTemplate = &tmpl;
	submission.m_pSubmitter = &submitter;
	window->OnReadyToSubmit(&submission);
	window->OnReadyToSubmit(&submission); // a second one stands beside the first
	ASSERT_EQ(2, VisibleDialogs().size());
	CPublishFileDialog *dialog = VisibleDialogs().first();
	EXPECT_EQ(nullptr, dialog->parentWidget());
	EXPECT_EQ(zip, dialog->Record().m_sFileName);
	EXPECT_EQ("2.00 KB", dialog->UploadSizeLabel()->text());
	EXPECT_TRUE(dialog->UploadSizeLabel()->isHidden());
	EXPECT_TRUE(dialog->IsDirty());
	EXPECT_TRUE(dialog->windowTitle().endsWith("*"));
	EXPECT_EQ(uint32(CPublishFileDialog::CHANGE_CONTENT | CPublishFileDialog::CHANGE_TAGS), dialog->ChangeBits());
	EXPECT_EQ((CUtlVector<CUtlString>{ "Wearable", "imported", "imported", "renewed" }), dialog->Record().m_vecTags);
	EXPECT_EQ(1, dialog->Record().m_eFileType);
	// Not tracked: quitting does not ask about it.
	EXPECT_FALSE(MintyardManagerTool()->VetoToolQuit());
	EXPECT_TRUE(m_Titles.isEmpty());
	// The wizard hears the end of each.
	dialog->SetDirty(false);
	dialog->reject();
	EXPECT_EQ(1, submitter.m_nRejected);
	CPublishFileDialog *second = VisibleDialogs().first();
	second->accept();
	EXPECT_EQ(1, submitter.m_nAccepted);
	QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

#include "publishwindow_test.moc"
