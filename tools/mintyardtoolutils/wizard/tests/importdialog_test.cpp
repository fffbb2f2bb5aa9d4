// The window of the import wizard: which steps a session has, Next and Prev with what blocks
// them, the import run on entering the log, the zip on entering the submit page, the hand-over,
// saving and loading at each step, automation, closing, and bad files.
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTextEdit>

#include "core/keyvalues3.h"
#include "mintyardtoolutils/core/sessionfile.h"
#include "mintyardtoolutils/wizard/importdialog.h"
#include "mintyardtoolutils/wizard/importlogwidget.h"
#include "mintyardtoolutils/wizard/inputwidgets.h"
#include "mintyardtoolutils/wizard/submitwidget.h"
#include "mintyardtoolutils/wizard/wizardpage.h"
#include "testsupport/test_images.h"
#include "wizardtestgame.h"

// Hears the hand-over as the main window would.
class CSubmissionReceiver : public QObject
{
	Q_OBJECT

public:
	PreparedMintyardSubmission_t m_Last;
	int m_nCount = 0;

public Q_SLOTS:
	void OnReadyToSubmit(PreparedMintyardSubmission_t *pSubmission)
	{
		m_Last = *pSubmission;
		++m_nCount;
	}
};

namespace
{
class ImportDialogTest : public testing::Test
{
protected:
	void TearDown() override
	{
		delete m_pWizard.data();
		QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
	}

	CQMintyardImportDialog *NewWizard(int nMode = MINTYARD_WIZARD_NEW_SUBMISSION, KeyValues3 *pSettings = nullptr)
	{
		delete m_pWizard.data();
		m_pWizard = new CQMintyardImportDialog(nMode, pSettings);
		EXPECT_TRUE(m_pWizard->Start(nullptr));
		return m_pWizard;
	}

	const CMintyardTemplate *Template(const char *pszId) { return m_pWizard->Session().GetCatalogue().FindTemplate(pszId); }

	CQMintyardUI_Input *NameInput() { return m_pWizard->InputPicker()->findChild<CQMintyardUI_Input *>("mintyard_import_name"); }

	// The contract-only template with its name and notes filled in: no models, no image sets.
	void FillContract(const char *pszName = "my_contract")
	{
		m_pWizard->OnTemplatePicked(Template("contract_only"));
		NameInput()->LineEdit()->setText(pszName);
		m_pWizard->Session().m_MiscData[0]->SetValue("Covers the sample hat.");
	}

	bool StepShown(int nStep) { return !m_pWizard->StepLabel(nStep)->isHidden(); }

	CWizardTestGame m_Game;
	QPointer<CQMintyardImportDialog> m_pWizard;
};
} // namespace

TEST_F(ImportDialogTest, ANewSubmissionStartsOnTheTypePickWithoutBarButtons)
{
	ASSERT_TRUE(m_Game.m_bReady);
	CQMintyardImportDialog *pWizard = NewWizard();
	EXPECT_TRUE(pWizard->testAttribute(Qt::WA_DeleteOnClose));
	EXPECT_EQ(MINTYARD_STEP_TYPE_PICK, pWizard->CurrentPage());
	EXPECT_TRUE(pWizard->PrevButton()->isHidden());
	EXPECT_TRUE(pWizard->NextButton()->isHidden());
	EXPECT_TRUE(pWizard->SaveButton()->isHidden());
	EXPECT_EQ("Mintyard Import", pWizard->windowTitle());
	EXPECT_EQ(QSize(800, 800), pWizard->size());
	// Without a template: type, inputs, import and submit; the first shown has no separator.
	EXPECT_FALSE(StepShown(MINTYARD_STEP_ITEM_ID));
	EXPECT_TRUE(StepShown(MINTYARD_STEP_TYPE_PICK));
	EXPECT_TRUE(StepShown(MINTYARD_STEP_INPUTS));
	EXPECT_TRUE(StepShown(MINTYARD_STEP_LOG));
	EXPECT_FALSE(StepShown(MINTYARD_STEP_IMAGE_PREVIEW));
	EXPECT_FALSE(StepShown(MINTYARD_STEP_PREVIEW_EDITOR));
	EXPECT_FALSE(StepShown(MINTYARD_STEP_PORTRAIT_EDITOR));
	EXPECT_TRUE(StepShown(MINTYARD_STEP_SUBMIT));
	EXPECT_TRUE(pWizard->StepSeparator(MINTYARD_STEP_TYPE_PICK)->isHidden());
	EXPECT_FALSE(pWizard->StepSeparator(MINTYARD_STEP_INPUTS)->isHidden());
	EXPECT_EQ("Type", pWizard->StepLabel(MINTYARD_STEP_TYPE_PICK)->text());
	EXPECT_EQ(QColor(51, 144, 192), pWizard->StepLabel(MINTYARD_STEP_TYPE_PICK)->palette().color(QPalette::WindowText));
	EXPECT_TRUE(m_Game.m_Messages.empty()) << m_Game.MessageTitles().join(", ").toStdString();
}

TEST_F(ImportDialogTest, TheStepsThatExistFollowTheSession)
{
	CQMintyardImportDialog *pWizard = NewWizard();
	pWizard->OnTemplatePicked(Template("courier"));
	EXPECT_EQ(MINTYARD_STEP_INPUTS, pWizard->CurrentPage());
	EXPECT_TRUE(pWizard->IsPageEnabled(MINTYARD_STEP_PREVIEW_EDITOR)); // models
	EXPECT_TRUE(pWizard->IsPageEnabled(MINTYARD_STEP_PORTRAIT_EDITOR)); // an item with a portrait
	EXPECT_FALSE(pWizard->IsPageEnabled(MINTYARD_STEP_IMAGE_PREVIEW));
	EXPECT_TRUE(StepShown(MINTYARD_STEP_PREVIEW_EDITOR));
	EXPECT_EQ("Courier", pWizard->TemplateLabel()->text());

	NewWizard()->OnTemplatePicked(Template("emoticons"));
	EXPECT_TRUE(m_pWizard->IsPageEnabled(MINTYARD_STEP_IMAGE_PREVIEW));
	EXPECT_FALSE(m_pWizard->IsPageEnabled(MINTYARD_STEP_PREVIEW_EDITOR));
	EXPECT_FALSE(m_pWizard->IsPageEnabled(MINTYARD_STEP_PORTRAIT_EDITOR));

	// Marketing images have no preview page; mode 2 has no type pick; mode 2 without an Item ID
	// page has no step 0 either.
	NewWizard()->OnTemplatePicked(Template("marketing_images"));
	EXPECT_FALSE(m_pWizard->IsPageEnabled(MINTYARD_STEP_IMAGE_PREVIEW));
	delete m_pWizard.data();
	m_pWizard = new CQMintyardImportDialog(MINTYARD_WIZARD_ITEM_DEFINITION, nullptr);
	EXPECT_FALSE(m_pWizard->IsPageEnabled(MINTYARD_STEP_TYPE_PICK));
	EXPECT_FALSE(m_pWizard->IsPageEnabled(MINTYARD_STEP_ITEM_ID));
	EXPECT_NE(nullptr, m_pWizard->AutomationCheck());
}

TEST_F(ImportDialogTest, ErrorsOfTheInputsBlockNextAndStandInTheStatusLine)
{
	CQMintyardImportDialog *pWizard = NewWizard();
	pWizard->OnTemplatePicked(Template("contract_only"));
	EXPECT_FALSE(pWizard->NextButton()->isHidden());
	EXPECT_FALSE(pWizard->NextButton()->isEnabled());
	EXPECT_TRUE(pWizard->PrevButton()->isHidden()); // mode 0: the way back is closing
	EXPECT_FALSE(pWizard->SaveButton()->isHidden());
	EXPECT_TRUE(pWizard->StatusLabel()->text().contains("Give the submission a name")) << pWizard->StatusLabel()->text().toStdString();
	EXPECT_EQ(QColor(255, 80, 80), pWizard->NextButton()->palette().color(QPalette::ButtonText));

	// Typing a name clears the error; the notes are only a warning.
	QTest::keyClicks(NameInput()->LineEdit(), "hat");
	EXPECT_EQ("hat", QString::fromUtf8(pWizard->Session().GetNameElement()->Value().c_str()));
	EXPECT_TRUE(pWizard->NextButton()->isEnabled());
	EXPECT_TRUE(pWizard->StatusLabel()->text().isEmpty());
	EXPECT_EQ("hat", pWizard->NameLabel()->text());
	EXPECT_FALSE(pWizard->UnresolvedWidget()->isHidden()); // the empty notes

	// A name with a capital letter is an error again.
	QTest::keyClicks(NameInput()->LineEdit(), "X");
	EXPECT_FALSE(pWizard->NextButton()->isEnabled());
	EXPECT_TRUE(pWizard->StatusLabel()->text().contains("lower-case letters"));
	EXPECT_TRUE(pWizard->UnresolvedWidget()->isHidden());
}

TEST_F(ImportDialogTest, WithoutModelsTheLogLeadsStraightToTheSubmitPageAndItsZip)
{
	CQMintyardImportDialog *pWizard = NewWizard();
	FillContract();
	pWizard->OnNextClicked();
	ASSERT_EQ(MINTYARD_STEP_LOG, pWizard->CurrentPage());
	const QString log = pWizard->Log()->PlainText();
	EXPECT_TRUE(log.contains("Starting import...")) << log.toStdString();
	EXPECT_TRUE(log.contains("Importing files..."));
	EXPECT_TRUE(log.contains("Import successful!"));
	EXPECT_TRUE(pWizard->RunMessages().empty());
	EXPECT_TRUE(pWizard->NextButton()->isEnabled());
	EXPECT_FALSE(pWizard->PrevButton()->isHidden());

	pWizard->OnNextClicked();
	ASSERT_EQ(MINTYARD_STEP_SUBMIT, pWizard->CurrentPage());
	EXPECT_TRUE(pWizard->NextButton()->isHidden());
	const QFileInfo zip(QString::fromUtf8(pWizard->ZipPath().c_str()));
	ASSERT_TRUE(zip.isFile()) << pWizard->ZipPath();
	EXPECT_TRUE(zip.absoluteFilePath().startsWith(QString::fromStdString(m_Game.Scratch())));
	EXPECT_TRUE(zip.fileName().startsWith("mintyard_submit_my_contract_"));
	EXPECT_EQ((uint32)zip.size(), pWizard->ZipSize());
	EXPECT_EQ((uint64)zip.lastModified().toSecsSinceEpoch(), pWizard->ZipTime());
	CQMintyardSubmitWidget *pSubmit = pWizard->SubmitPage();
	EXPECT_FALSE(pSubmit->SubmitNewButton()->isHidden());
	EXPECT_TRUE(pSubmit->SubmitUpdateButton()->isHidden());
	EXPECT_TRUE(pSubmit->SubmitNewButton()->isEnabled());
	EXPECT_TRUE(pSubmit->ZipLabel()->text().contains(zip.fileName())) << pSubmit->ZipLabel()->text().toStdString();
	EXPECT_EQ("my_contract", pSubmit->TitleLabel()->text());

	// Back to the log shows it as it stands, without importing again.
	pWizard->Log()->AddLine("marker line\n");
	pWizard->Log()->FlushToEdit();
	pWizard->OnPrevClicked();
	EXPECT_EQ(MINTYARD_STEP_LOG, pWizard->CurrentPage());
	EXPECT_TRUE(pWizard->Log()->PlainText().contains("marker line"));
	EXPECT_EQ(1, pWizard->Log()->PlainText().count("Starting import..."));
}

TEST_F(ImportDialogTest, SubmitHandsTheZipOverAndAnAcceptedSubmissionClosesTheWindow)
{
	CQMintyardImportDialog *pWizard = NewWizard();
	CSubmissionReceiver receiver;
	QObject::connect(pWizard, SIGNAL(ReadyToSubmit(PreparedMintyardSubmission_t *)), &receiver, SLOT(OnReadyToSubmit(PreparedMintyardSubmission_t *)));
	FillContract();
	pWizard->OnNextClicked();
	pWizard->OnNextClicked();
	ASSERT_EQ(MINTYARD_STEP_SUBMIT, pWizard->CurrentPage());
	QTest::mouseClick(pWizard->SubmitPage()->SubmitNewButton(), Qt::LeftButton);
	ASSERT_EQ(1, receiver.m_nCount);
	EXPECT_EQ(pWizard->ZipPath(), receiver.m_Last.m_strZipPath);
	EXPECT_EQ(pWizard->ZipSize(), receiver.m_Last.m_nZipSize);
	EXPECT_EQ(pWizard->ZipTime(), receiver.m_Last.m_nZipTime);
	EXPECT_EQ(Template("contract_only"), receiver.m_Last.m_pTemplate);
	EXPECT_EQ(nullptr, receiver.m_Last.m_pExistingFile); // a new submission
	EXPECT_EQ(pWizard, receiver.m_Last.m_pSubmitter.data());

	// A rejected publish leaves the wizard; an accepted one closes it, asking only Yes or No.
	pWizard->OnSubmitRejected();
	EXPECT_FALSE(pWizard->IsSubmitted());
	m_Game.m_Answers = { QMessageBox::No };
	pWizard->OnSubmitAccepted();
	EXPECT_TRUE(pWizard->IsSubmitted());
	ASSERT_EQ(1u, m_Game.m_Messages.size());
	EXPECT_EQ("Save the Session?", m_Game.m_Messages[0].m_Title);
	EXPECT_TRUE(m_Game.m_Messages[0].m_Text.startsWith("Your submission was sent."));
	QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
	EXPECT_TRUE(m_pWizard.isNull());
}

TEST_F(ImportDialogTest, ASessionSavedAtEachStepLoadsBackOnTheInputPage)
{
	CQMintyardImportDialog *pWizard = NewWizard();
	FillContract("saved_contract");
	const std::string paths[] = { m_Game.Root("sessions/at_inputs"), m_Game.Root("sessions/at_log.txt"), m_Game.Root("sessions/at_submit.txt") };
	std::filesystem::create_directories(m_Game.Root("sessions"));
	for (int i = 0; i < 3; ++i)
	{
		m_Game.m_FileAnswers = { QString::fromStdString(paths[i]) };
		EXPECT_TRUE(pWizard->OnSaveSession()) << i;
		if (i < 2)
			pWizard->OnNextClicked();
	}
	EXPECT_EQ(MINTYARD_STEP_SUBMIT, pWizard->CurrentPage());
	// A name without an extension gets ".txt".
	EXPECT_TRUE(QFileInfo::exists(QString::fromStdString(paths[0] + ".txt")));
	for (const std::string &path : { paths[0] + ".txt", paths[1], paths[2] })
	{
		const std::string text = m_Game.ReadFile(path);
		EXPECT_NE(std::string::npos, text.find("template_name = \"contract_only\"")) << path;
		EXPECT_NE(std::string::npos, text.find("import_name = \"saved_contract\"")) << path;
		EXPECT_NE(std::string::npos, text.find("Covers the sample hat.")) << path;

		CQMintyardImportDialog *pLoaded = NewWizard();
		pLoaded->OpenFile(QString::fromStdString(path));
		EXPECT_EQ(MINTYARD_STEP_INPUTS, pLoaded->CurrentPage()) << path;
		EXPECT_EQ("saved_contract", pLoaded->Session().GetNameElement()->Value());
		EXPECT_EQ("Covers the sample hat.", pLoaded->Session().m_MiscData[0]->Value());
		EXPECT_EQ("saved_contract", NameInput()->LineEdit()->text().toStdString());
		EXPECT_TRUE(pLoaded->NextButton()->isEnabled());
	}
	EXPECT_TRUE(m_Game.m_Messages.empty()) << m_Game.MessageTitles().join(", ").toStdString();
}

TEST_F(ImportDialogTest, TheSubmissionZipLoadsBackWithItsFilesInsideIt)
{
	NewWizard();
	m_pWizard->OpenFile(QString::fromStdString(MINTYARD_SOURCE_DIR "/sample/sessions/emoticons.session.txt"));
	ASSERT_EQ(MINTYARD_STEP_INPUTS, m_pWizard->CurrentPage()) << m_Game.MessageTitles().join(", ").toStdString();
	EXPECT_EQ("sample_emoticons", m_pWizard->Session().GetNameElement()->Value());
	// The hand-written session names its art relative to its own folder.
	const CUtlString wave = m_pWizard->Session().m_ImageSets[0]->m_Emoticons[0]->m_pImage->Value();
	EXPECT_EQ(MINTYARD_SOURCE_DIR "/sample/art/emoticons/emoticon_wave.png", wave);
	m_pWizard->OnNextClicked();
	m_pWizard->ChangePage(m_pWizard->CurrentPage(), +1);
	m_pWizard->ChangePage(m_pWizard->CurrentPage(), +1);
	ASSERT_EQ(MINTYARD_STEP_SUBMIT, m_pWizard->CurrentPage()) << m_Game.MessageTitles().join(", ").toStdString();
	const QString zip = QString::fromUtf8(m_pWizard->ZipPath().c_str());

	NewWizard()->OpenFile(zip);
	ASSERT_EQ(MINTYARD_STEP_INPUTS, m_pWizard->CurrentPage()) << m_Game.MessageTitles().join(", ").toStdString();
	const CUtlString unpacked = m_pWizard->Session().m_ImageSets[0]->m_Emoticons[0]->m_pImage->Value();
	EXPECT_EQ(0u, unpacked.find(m_Game.Scratch())) << unpacked;
	EXPECT_EQ(m_Game.ReadFile(MINTYARD_SOURCE_DIR "/sample/art/emoticons/emoticon_wave.png"), m_Game.ReadFile(unpacked));
	EXPECT_EQ(":wave:", m_pWizard->Session().m_ImageSets[0]->m_Emoticons[0]->m_pKeyword->Value());
}

TEST_F(ImportDialogTest, ASessionOfAnOlderToolIsRefusedWithWhereAndTheInputsStay)
{
	CQMintyardImportDialog *pWizard = NewWizard();
	FillContract("kept_name");
	// The older generation's manifest: a KeyValues text, not a session document.
	const std::string old = m_Game.Write("old/manifest.txt", "\"manifest\"\n{\n\t\"version\"\t\"3\"\n\t\"models\"\n\t{\n\t}\n}\n");
	pWizard->OpenFile(QString::fromStdString(old));
	ASSERT_EQ(1u, m_Game.m_Messages.size());
	EXPECT_EQ("The session could not be loaded", m_Game.m_Messages[0].m_Title);
	EXPECT_TRUE(m_Game.m_Messages[0].m_Text.contains("manifest.txt")) << m_Game.m_Messages[0].m_Text.toStdString();
	EXPECT_TRUE(m_Game.m_Messages[0].m_Text.contains("(1,")) << m_Game.m_Messages[0].m_Text.toStdString();
	EXPECT_EQ(MINTYARD_STEP_INPUTS, pWizard->CurrentPage());
	EXPECT_EQ("kept_name", pWizard->Session().GetNameElement()->Value());
	EXPECT_EQ("kept_name", NameInput()->LineEdit()->text().toStdString());

	// A template the game no longer has is named.
	m_Game.m_Messages.clear();
	const std::string gone = m_Game.Write("old/gone.txt",
		"<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n"
		"{ template_name = \"hat_of_yore\" import_name = \"yore\" }\n");
	pWizard->OpenFile(QString::fromStdString(gone));
	ASSERT_EQ(1u, m_Game.m_Messages.size());
	EXPECT_TRUE(m_Game.m_Messages[0].m_Text.contains("'hat_of_yore'")) << m_Game.m_Messages[0].m_Text.toStdString();
	EXPECT_EQ("kept_name", pWizard->Session().GetNameElement()->Value());

	// A session of another template than the one open is refused.
	m_Game.m_Messages.clear();
	pWizard->OpenFile(QString::fromStdString(MINTYARD_SOURCE_DIR "/sample/sessions/emoticons.session.txt"));
	ASSERT_EQ(1u, m_Game.m_Messages.size());
	EXPECT_TRUE(m_Game.m_Messages[0].m_Text.contains("'emoticons'")) << m_Game.m_Messages[0].m_Text.toStdString();
	EXPECT_EQ(Template("contract_only"), pWizard->Session().GetTemplate());
	EXPECT_EQ("Covers the sample hat.", pWizard->Session().m_MiscData[0]->Value());

	// A damaged zip, likewise.
	m_Game.m_Messages.clear();
	const std::string zip = m_Game.Write("old/broken.zip", "PK\x03\x04 this is no zip");
	pWizard->OpenFile(QString::fromStdString(zip));
	ASSERT_EQ(1u, m_Game.m_Messages.size());
	EXPECT_EQ("kept_name", pWizard->Session().GetNameElement()->Value());
}

TEST_F(ImportDialogTest, ATextureOfTheWrongSizeIsNamedBesideItsInputAndOnTheUnresolvedList)
{
	CQMintyardImportDialog *pWizard = NewWizard();
	pWizard->OnTemplatePicked(Template("cursor_pack"));
	NameInput()->LineEdit()->setText("cursors");
	const std::string small = m_Game.WriteArt("cursors/default.bmp", testimages::MakeBmp(32, 32));
	CMintyardCfg_ZarnImageSet *pSet = pWizard->Session().m_ImageSets[0];
	CQMintyardUI_Input *pDefault = pWizard->InputPicker()->FindInput(pSet->m_Images[0]);
	ASSERT_NE(nullptr, pDefault);
	QTest::keyClicks(pDefault->LineEdit(), QString::fromStdString(small));
	EXPECT_EQ(small, pSet->m_Images[0]->Value());
	EXPECT_FALSE(pDefault->HasErrors());
	EXPECT_TRUE(pDefault->MessageText().contains("the image is 32 pixels wide; it must be 64")) << pDefault->MessageText().toStdString();
	EXPECT_EQ(QColor(224, 150, 58), pDefault->MessageLabel()->palette().color(QPalette::WindowText));

	// A file that is not there is an error: it keeps Next off and the status line names the input.
	EXPECT_TRUE(pWizard->NextButton()->isEnabled());
	pWizard->InputPicker()->FindInput(pSet->m_Images[1])->LineEdit()->setText("/art/missing/attack.bmp");
	EXPECT_FALSE(pWizard->NextButton()->isEnabled());
	EXPECT_TRUE(pWizard->StatusLabel()->text().contains("Attack")) << pWizard->StatusLabel()->text().toStdString();
	EXPECT_TRUE(pWizard->StatusLabel()->text().contains("the file does not exist"));
	for (int i = 1; i < 3; ++i)
		pWizard->InputPicker()->FindInput(pSet->m_Images[i])->LineEdit()->setText(QString::fromStdString(m_Game.WriteArt(
			"cursors/" + std::to_string(i) + ".bmp", testimages::MakeBmp(64, 64))));
	EXPECT_TRUE(pWizard->NextButton()->isEnabled()) << pWizard->StatusLabel()->text().toStdString();
	ASSERT_FALSE(pWizard->UnresolvedWidget()->isHidden());
	pWizard->OnShowUnresolvedErrors();
	ASSERT_EQ(1u, m_Game.m_Messages.size());
	EXPECT_EQ("Unresolved Problems", m_Game.m_Messages[0].m_Title);
	EXPECT_TRUE(m_Game.m_Messages[0].m_Text.contains("pixels wide")) << m_Game.m_Messages[0].m_Text.toStdString();
}

TEST_F(ImportDialogTest, AZipThatCannotBeBuiltLeavesTheWizardWhereItWas)
{
	CQMintyardImportDialog *pWizard = NewWizard();
	FillContract();
	pWizard->OnNextClicked();
	ASSERT_EQ(MINTYARD_STEP_LOG, pWizard->CurrentPage());
	// The scratch folder is a file now: the zip's folder cannot be made.
	std::filesystem::remove_all(m_Game.Scratch());
	m_Game.Write("scratch", "in the way");
	pWizard->OnNextClicked();
	EXPECT_EQ(MINTYARD_STEP_LOG, pWizard->CurrentPage());
	ASSERT_EQ(1u, m_Game.m_Messages.size());
	EXPECT_EQ("Import Error", m_Game.m_Messages[0].m_Title);
	EXPECT_TRUE(pWizard->ZipPath().empty());
}

TEST_F(ImportDialogTest, ClosingAsksToSaveExceptOnTheTypePickAndKeepsTheAutomationSetting)
{
	CKeyValues3Context settings;
	settings.Root()->MakeTable();
	KeyValues3 *pTable = AddMember(settings.Root(), "mintyard_import_dialog");
	pTable->MakeTable();
	SetMemberBool(pTable, "automation", true);

	// Mode 2 has the check box, checked from the settings.
	m_pWizard = new CQMintyardImportDialog(MINTYARD_WIZARD_ITEM_DEFINITION, settings.Root());
	ASSERT_NE(nullptr, m_pWizard->AutomationCheck());
	EXPECT_TRUE(m_pWizard->AutomationCheck()->isChecked());
	EXPECT_TRUE(m_pWizard->IsAutomated());
	m_pWizard->AutomationCheck()->setChecked(false);
	m_pWizard->ShowPage(MINTYARD_STEP_INPUTS);
	m_Game.m_Answers = { QMessageBox::Cancel };
	EXPECT_FALSE(m_pWizard->close());
	ASSERT_EQ(1u, m_Game.m_Messages.size());
	EXPECT_EQ("Do you want to save your import session before closing?", m_Game.m_Messages[0].m_Text);
	EXPECT_FALSE(GetMemberBool(FindMember(settings.Root(), "mintyard_import_dialog"), "automation", true));
	// Yes with the save dialog cancelled keeps the window; No closes it.
	m_Game.m_Answers = { QMessageBox::Yes };
	EXPECT_FALSE(m_pWizard->close());
	m_Game.m_Answers = { QMessageBox::No };
	EXPECT_TRUE(m_pWizard->close());
	QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
	EXPECT_TRUE(m_pWizard.isNull());

	// On the type pick nothing is asked.
	m_Game.m_Messages.clear();
	NewWizard();
	EXPECT_TRUE(m_pWizard->close());
	EXPECT_TRUE(m_Game.m_Messages.empty());
}

TEST_F(ImportDialogTest, AutomationAdvancesByItselfToTheLastStep)
{
	m_pWizard = new CQMintyardImportDialog(MINTYARD_WIZARD_ITEM_DEFINITION, nullptr);
	m_pWizard->Session().SetSearchPaths(m_Game.Game("").c_str(), m_Game.Content("").c_str());
	m_pWizard->OnTemplatePicked(Template("contract_only"));
	NameInput()->LineEdit()->setText("auto");
	m_pWizard->AutomationCheck()->setChecked(true);
	for (int i = 0; i < 20 && m_pWizard->CurrentPage() != MINTYARD_STEP_SUBMIT; ++i)
		QCoreApplication::processEvents();
	EXPECT_EQ(MINTYARD_STEP_SUBMIT, m_pWizard->CurrentPage());
	EXPECT_TRUE(m_pWizard->Log()->PlainText().contains("Import complete, with problems:")) << m_pWizard->Log()->PlainText().toStdString();
	// Mode 2 builds no zip; its submit page only has its way out.
	EXPECT_TRUE(m_pWizard->ZipPath().empty());
	EXPECT_FALSE(m_pWizard->SubmitPage()->CloseButton()->isHidden());
	// Prev stops the automation.
	m_pWizard->OnPrevClicked();
	EXPECT_FALSE(m_pWizard->IsAutomated());
	m_Game.m_Answers = { QMessageBox::No };
	EXPECT_TRUE(m_pWizard->close());
}

TEST_F(ImportDialogTest, AnUpdateFindsItsTemplateFromTheTagsOrTheChosenSession)
{
	PublishedFileInfo_t record;
	record.m_sTitle = "My Screen";
	record.m_vecTags = { "Loading Screen" };
	m_pWizard = new CQMintyardImportDialog(MINTYARD_WIZARD_UPDATE_SUBMISSION, nullptr);
	ASSERT_TRUE(m_pWizard->Start(&record));
	ASSERT_EQ(1, m_Game.m_FileDialogs.size());
	EXPECT_TRUE(m_Game.m_FileDialogs[0].contains("(*.txt)"));
	EXPECT_EQ(MINTYARD_STEP_INPUTS, m_pWizard->CurrentPage());
	EXPECT_EQ(Template("loading_screen"), m_pWizard->Session().GetTemplate());

	// A session of another template is loaded, with a warning that names both.
	delete m_pWizard.data();
	m_Game.m_FileAnswers = { QString::fromStdString(MINTYARD_SOURCE_DIR "/sample/sessions/emoticons.session.txt") };
	m_pWizard = new CQMintyardImportDialog(MINTYARD_WIZARD_UPDATE_SUBMISSION, nullptr);
	ASSERT_TRUE(m_pWizard->Start(&record));
	ASSERT_EQ(1u, m_Game.m_Messages.size());
	EXPECT_EQ("Different Template", m_Game.m_Messages[0].m_Title);
	EXPECT_TRUE(m_Game.m_Messages[0].m_Text.contains("'emoticons'"));
	EXPECT_TRUE(m_Game.m_Messages[0].m_Text.contains("'loading_screen'"));
	EXPECT_EQ(MINTYARD_STEP_INPUTS, m_pWizard->CurrentPage());

	// Tags that fit no template: the type pick, after saying so.
	delete m_pWizard.data();
	m_Game.m_Messages.clear();
	record.m_vecTags = { "Nothing Known" };
	m_pWizard = new CQMintyardImportDialog(MINTYARD_WIZARD_UPDATE_SUBMISSION, nullptr);
	ASSERT_TRUE(m_pWizard->Start(&record));
	ASSERT_EQ(1u, m_Game.m_Messages.size());
	EXPECT_EQ("Unrecognised Template", m_Game.m_Messages[0].m_Title);
	EXPECT_TRUE(m_Game.m_Messages[0].m_Text.contains("My Screen"));
	EXPECT_EQ(MINTYARD_STEP_TYPE_PICK, m_pWizard->CurrentPage());
}

TEST_F(ImportDialogTest, TheEditorStepsShowThePlainPageWithTheSessionsModels)
{
	CQMintyardImportDialog *pWizard = NewWizard();
	pWizard->OnTemplatePicked(Template("courier"));
	pWizard->ChangePage(MINTYARD_STEP_LOG, +1);
	ASSERT_EQ(MINTYARD_STEP_PREVIEW_EDITOR, pWizard->CurrentPage());
	CQMintyardPlainStepPage *pPage = dynamic_cast<CQMintyardPlainStepPage *>(pWizard->PreviewEditor());
	ASSERT_NE(nullptr, pPage);
	EXPECT_TRUE(pPage->ModelListText().contains("Courier Model: models/items/courier/")) << pPage->ModelListText().toStdString();
	EXPECT_TRUE(pPage->ModelListText().contains("(not compiled yet)"));
	pWizard->OnNextClicked();
	EXPECT_EQ(MINTYARD_STEP_PORTRAIT_EDITOR, pWizard->CurrentPage());
	EXPECT_TRUE(pWizard->NextButton()->isEnabled());
}

// A registered factory replaces the plain page.
namespace
{
class CRecordingPage : public QWidget, public IMintyardWizardPage
{
public:
	explicit CRecordingPage(QWidget *pParent) : QWidget(pParent) {}
	QWidget *GetWidget() override { return this; }
	void AttachSession(CMintyardImportSession *pSession) override { m_pSession = pSession; }
	void Validate(ImportMessageList &list) override { list.AddError("#ZARN_Mintyard_Err_Internal", "portrait not framed"); }
	CMintyardImportSession *m_pSession = nullptr;
};
} // namespace

TEST_F(ImportDialogTest, ARegisteredPortraitEditorBlocksNextWithItsValidation)
{
	SetMintyardWizardPageFactory(MINTYARD_WIZARD_PAGE_PORTRAIT_EDITOR, [](QWidget *pParent) -> IMintyardWizardPage * { return new CRecordingPage(pParent); });
	CQMintyardImportDialog *pWizard = NewWizard();
	SetMintyardWizardPageFactory(MINTYARD_WIZARD_PAGE_PORTRAIT_EDITOR, nullptr);
	CRecordingPage *pPage = dynamic_cast<CRecordingPage *>(pWizard->PortraitEditor());
	ASSERT_NE(nullptr, pPage);
	pWizard->OnTemplatePicked(Template("courier"));
	pWizard->ChangePage(MINTYARD_STEP_PREVIEW_EDITOR, +1);
	EXPECT_EQ(MINTYARD_STEP_PORTRAIT_EDITOR, pWizard->CurrentPage());
	EXPECT_EQ(&pWizard->Session(), pPage->m_pSession);
	EXPECT_FALSE(pWizard->NextButton()->isEnabled());
	EXPECT_EQ("Internal error: portrait not framed", pWizard->StatusLabel()->text());
}

#include "importdialog_test.moc"
