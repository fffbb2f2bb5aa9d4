// The publish form and its flow against a real content service on a free loopback port: the
// form by mode, validation, ownership, tags, a new addon packed and published, a re-upload, an
// edit-only change, failures by result code and the zip road of the item modes.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <thread>

#include <httplib.h>

#include <QApplication>
#include <QCheckBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QComboBox>
#include <QImage>
#include <QLineEdit>
#include <QMessageBox>
#include <QMimeData>
#include <QMouseEvent>
#include <QProgressDialog>
#include <QPushButton>
#include <QRadioButton>
#include <QTextEdit>
#include <QUrl>

#include "bdllib/packedstore.h"
#include "brume/brume_api.h"
#include "core/keyvalues.h"
#include "testsupport/test_support.h"
#include "mintyardmanager/mintyardmanagertool.h"
#include "mintyardmanager/publishfiledialog.h"
#include "testsupport/service_process.h"
#include "toolframework/toolframework.h"

namespace fs = std::filesystem;

namespace
{
struct Message_t
{
	int icon;
	QString title;
	QString text;
};

std::string ReadFile(const std::string &path)
{
	std::ifstream in(path, std::ios::binary);
	return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

QString T(const char *token)
{
	return QString::fromUtf8(Localize()->Translate(token));
}

class PublishDialogTest : public testing::Test
{
protected:
	void SetUp() override
	{
		// The game tree: the sample's texts and a copy of the sample addons.
		m_Temp.Write("game/zarn/gameinfo.txt", "\"GameInfo\" {}\n");
		fs::create_directories(m_Temp.Path("game/zarn/resource/localization"));
		fs::copy_file(MINTYARD_SOURCE_DIR "/sample/game/core/resource/localization/mintyard_english.txt",
			m_Temp.Path("game/zarn/resource/localization/mintyard_english.txt"));
		fs::copy(MINTYARD_SOURCE_DIR "/sample/game/zarn_addons", m_Temp.Path("game/zarn_addons"), fs::copy_options::recursive);
		fs::create_directories(m_Temp.Path("content/zarn"));
		// Upload folders and previews go under the temporary folder of Qt.
		fs::create_directories(m_Temp.Path("tmp"));
		setenv("TMPDIR", m_Temp.Path("tmp").c_str(), 1);

		ToolFrameworkConfig_t config;
		config.m_GameDirectory = m_Temp.Path("game/zarn");
		config.m_SettingsFolder = m_Temp.Path("settings");
		config.m_MountedAddons.push_back("sample_courier_skin");
		config.m_Tools.push_back({ "mintyardmanager", "Mintyard Manager", "" });
		m_pHost = std::make_unique<CToolFrameworkHost>();
		CUtlString error;
		ASSERT_TRUE(m_pHost->Init(config, &error)) << error;
		ASSERT_TRUE(MintyardManagerTool()->Connect(CToolFrameworkHost::Factory));

		CPublishFileDialog::MessageHook() = [this](int icon, const QString &title, const QString &text) {
			m_Messages.push_back({ icon, title, text });
			return m_nAnswer;
		};
		CPublishFileDialog::UrlOpener() = [this](const QUrl &url) { m_Opened.push_back(url); };
	}

	void TearDown() override
	{
		BrumeAPIContext()->Clear();
		BrumeAPI_Shutdown();
		CPublishFileDialog::MessageHook() = nullptr;
		MintyardManagerTool()->Disconnect();
		m_pHost.reset();
	}

	void StartService(const std::vector<std::string> &options = {})
	{
		ASSERT_TRUE(m_Service.Start(m_Temp.Path("service"), options));
		setenv("BRUME_SERVICE", m_Service.Address().c_str(), 1);
		setenv("BRUME_DATA_DIR", m_Temp.Path("client").c_str(), 1);
		unsetenv("BRUME_ACCOUNT");
		ASSERT_TRUE(BrumeAPI_Init());
		ASSERT_TRUE(BrumeAPIContext()->Init());
	}

	// Runs the event loop and the client's callbacks until the dialog is done or a message came.
	void Pump(CPublishFileDialog &dialog, const std::function<bool()> &until = nullptr)
	{
		const size_t before = m_Messages.size();
		const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
		while (std::chrono::steady_clock::now() < deadline)
		{
			QCoreApplication::processEvents();
			BrumeAPI_RunCallbacks();
			if (until ? until() : (dialog.result() != 0 || m_Messages.size() != before))
				return;
			std::this_thread::sleep_for(std::chrono::milliseconds(2));
		}
		ADD_FAILURE() << "the dialog did not finish";
	}

	// Runs until the form of an existing record shows its fetched preview, or a message came.
	void WaitForPreview(CPublishFileDialog &dialog)
	{
		Pump(dialog, [&] { return dialog.PreviewLabel()->pixmap(Qt::ReturnByValue).isNull() == false || !m_Messages.empty(); });
	}

	std::string Image(const char *name, int width, int height, QColor colour = Qt::red)
	{
		QImage image(width, height, QImage::Format_RGB32);
		image.fill(colour);
		const std::string path = m_Temp.Path(name);
		EXPECT_TRUE(image.save(QString::fromStdString(path)));
		return path;
	}

	// Fills a new form so that it is valid.
	void FillValid(CPublishFileDialog &dialog, const char *title = "Arena Lights")
	{
		dialog.TitleEdit()->setText(title);
		dialog.TitleTextEdited(title);
		dialog.DescriptionEdit()->setPlainText("Lights for the arena.");
		dialog.SetPreviewImage(QString::fromStdString(Image("preview.png", 640, 480)), true);
		dialog.RadioPublic()->setChecked(true);
	}

	RemoteStorageGetPublishedFileDetailsResult_t Details(uint64 id)
	{
		struct Catcher_t
		{
			void On(RemoteStorageGetPublishedFileDetailsResult_t *p, bool) { m_Result = *p, m_bDone = true; }
			RemoteStorageGetPublishedFileDetailsResult_t m_Result{};
			bool m_bDone = false;
			CCallResult<Catcher_t, RemoteStorageGetPublishedFileDetailsResult_t> m_Call;
		} catcher;
		catcher.m_Call.Set(BrumeAPI_RemoteStorage()->GetPublishedFileDetails(id, 0), &catcher, &Catcher_t::On);
		const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
		while (!catcher.m_bDone && std::chrono::steady_clock::now() < deadline)
		{
			BrumeAPI_RunCallbacks();
			std::this_thread::sleep_for(std::chrono::milliseconds(2));
		}
		EXPECT_TRUE(catcher.m_bDone);
		return catcher.m_Result;
	}

	// The record the browser would make of a file.
	PublishedFileInfo_t RecordOf(uint64 id)
	{
		const auto d = Details(id);
		PublishedFileInfo_t record;
		record.m_nPublishedFileId = id;
		record.m_sTitle = d.m_rgchTitle;
		record.m_sDescription = d.m_rgchDescription;
		record.m_hFile = d.m_hFile;
		record.m_hPreviewFile = d.m_hPreviewFile;
		record.m_sFileName = d.m_pchFileName;
		record.m_nFileSize = d.m_nFileSize;
		record.m_eVisibility = d.m_eVisibility;
		record.m_rtimeUpdated = d.m_rtimeUpdated;
		record.m_bOwnedByMe = d.m_ulBrumeIDOwner == BrumeAPI_User()->GetBrumeID();
		const QStringList tags = QString::fromUtf8(d.m_rgchTags).split(',', Qt::SkipEmptyParts);
		for (const QString &tag : tags)
			record.m_vecTags.push_back(tag.toStdString());
		return record;
	}

	std::string LastChangeNote(uint64 id)
	{
		httplib::Client http("127.0.0.1", m_Service.Port());
		auto r = http.Get(("/api/v1/files/" + std::to_string(id) + "/changes").c_str());
		return r ? r->body : std::string();
	}

	// Publishes the arena lights addon as a new submission; returns its id.
	uint64 PublishNewAddon()
	{
		CPublishFileDialog dialog(nullptr, nullptr, false, MINTYARD_MODE_ZARN_ADDON);
		dialog.AddonCombo()->setCurrentText("arena_lights");
		FillValid(dialog);
		dialog.TagBoxes().first()->setChecked(true); // "Hearthfrost 2017"
		dialog.SubmitButtonClicked();
		Pump(dialog);
		EXPECT_EQ(QDialog::Accepted, dialog.result()) << (m_Messages.empty() ? "" : m_Messages.back().text.toStdString());
		return dialog.Record().m_nPublishedFileId;
	}

	CTempDirectory m_Temp;
	std::unique_ptr<CToolFrameworkHost> m_pHost;
	CServiceProcess m_Service;
	std::vector<Message_t> m_Messages;
	std::vector<QUrl> m_Opened;
	int m_nAnswer = QMessageBox::Ok;
};
} // namespace

TEST_F(PublishDialogTest, ValidationStopsAtTheFirstFailureInOrder)
{
	CPublishFileDialog dialog(nullptr, nullptr, false, MINTYARD_MODE_ZARN_ITEMS);
	auto expectFailure = [&](const QString &text) {
		m_Messages.clear();
		EXPECT_FALSE(dialog.Validate());
		ASSERT_EQ(1u, m_Messages.size());
		EXPECT_EQ(QMessageBox::Critical, m_Messages[0].icon);
		EXPECT_EQ("Error", m_Messages[0].title);
		EXPECT_EQ(text, m_Messages[0].text);
	};
	expectFailure("Please give the submission a title.");
	dialog.TitleEdit()->setText("Hat");
	expectFailure("Please give the submission a description.");
	dialog.DescriptionEdit()->setPlainText(QString(8000, 'd'));
	expectFailure("The description is too long: it must be shorter than 8000 characters.");
	dialog.DescriptionEdit()->setPlainText(QString(7999, 'd'));
	expectFailure("There is no submission file to upload."); // item mode, no zip
	dialog.SetContentPath("/tmp/x.zip");
	expectFailure("Please choose a preview image.");
	dialog.SetPreviewImage(QString::fromStdString(Image("p.png", 100, 100)), true);
	expectFailure("Please choose who can see the submission.");
	dialog.RadioFriends()->setChecked(true);
	m_Messages.clear();
	EXPECT_TRUE(dialog.Validate());
	EXPECT_TRUE(m_Messages.empty());
	// The title's limit is the edit's own.
	EXPECT_EQ(129, dialog.TitleEdit()->maxLength());
}

TEST_F(PublishDialogTest, AnUpdateNeedsAChangeNoteOfAtMost7999Characters)
{
	PublishedFileInfo_t record;
	record.m_nPublishedFileId = 5;
	record.m_sTitle = "Lights";
	record.m_sDescription = "Some";
	record.m_bOwnedByMe = true;
	record.m_eVisibility = 3; // no radio
	CPublishFileDialog dialog(&record, nullptr, false, MINTYARD_MODE_ZARN_ADDON);
	EXPECT_EQ("Lights", dialog.windowTitle());
	EXPECT_FALSE(dialog.IsDirty());
	ASSERT_NE(nullptr, dialog.ChangeNoteEdit());
	m_Messages.clear();
	EXPECT_FALSE(dialog.Validate());
	ASSERT_FALSE(m_Messages.empty());
	EXPECT_EQ("Please describe what changed in this update.", m_Messages.back().text);
	dialog.ChangeNoteEdit()->setPlainText(QString(8000, 'n'));
	EXPECT_TRUE(dialog.IsDirty());
	EXPECT_EQ("Lights*", dialog.windowTitle());
	EXPECT_TRUE(dialog.ChangeBits() & CPublishFileDialog::CHANGE_CHANGELOG);
	EXPECT_FALSE(dialog.Validate());
	EXPECT_EQ("The change notes are too long: they must be shorter than 8000 characters.", m_Messages.back().text);
	dialog.ChangeNoteEdit()->setPlainText("Brighter.");
	dialog.SetPreviewImage(QString::fromStdString(Image("p.png", 100, 100)), true);
	EXPECT_FALSE(dialog.Validate()); // visibility 3 checks no radio
	EXPECT_EQ("Please choose who can see the submission.", m_Messages.back().text);
	// Edit-only has no change note and no addon folder.
	CPublishFileDialog editOnly(&record, nullptr, true, MINTYARD_MODE_ZARN_ADDON);
	EXPECT_EQ(nullptr, editOnly.ChangeNoteEdit());
	EXPECT_EQ(nullptr, editOnly.AddonCombo());
	EXPECT_EQ(nullptr, editOnly.UploadSizeLabel());
}

TEST_F(PublishDialogTest, TheFormFollowsTheModeAndTheAddonService)
{
	CPublishFileDialog addon(nullptr, nullptr, false, MINTYARD_MODE_ZARN_ADDON);
	EXPECT_EQ("Publish to the Mintyard", addon.windowTitle());
	ASSERT_NE(nullptr, addon.AddonCombo());
	EXPECT_EQ("sample_courier_skin", addon.AddonCombo()->currentText()); // the mounted one
	EXPECT_GE(addon.AddonCombo()->findText("arena_lights"), 0);
	EXPECT_EQ(QSize(700, 525), addon.PreviewLabel()->size());
	EXPECT_EQ(1024, addon.PreviewLabel()->TargetWidth());
	EXPECT_EQ(768, addon.PreviewLabel()->TargetHeight());
	ASSERT_EQ(1, addon.TagBoxes().size());
	EXPECT_EQ("Hearthfrost 2017", addon.TagBoxes()[0]->property("extra_mintyard_tag").toString());
	EXPECT_EQ(nullptr, addon.ChangeNoteEdit());
	EXPECT_TRUE(addon.acceptDrops());
	EXPECT_EQ(0, addon.Record().m_nPublishedFileId);
	EXPECT_EQ(0, addon.Record().m_eFileType);
	EXPECT_TRUE(addon.Record().m_bOwnedByMe);

	CPublishFileDialog items(nullptr, nullptr, false, MINTYARD_MODE_ZARN_ITEMS);
	EXPECT_EQ(nullptr, items.AddonCombo());
	EXPECT_EQ(QSize(512, 512), items.PreviewLabel()->size());
	EXPECT_EQ(5, items.TagBoxes().size());
	EXPECT_EQ(1, items.Record().m_eFileType);
	ASSERT_NE(nullptr, items.UploadSizeLabel());
	EXPECT_TRUE(items.UploadSizeLabel()->isHidden());

	CPublishFileDialog quern(nullptr, nullptr, false, MINTYARD_MODE_QUERN_ADDON);
	EXPECT_TRUE(quern.TagBoxes().isEmpty());
	CPublishFileDialog tolva(nullptr, nullptr, false, MINTYARD_MODE_TOLVA_MAP);
	EXPECT_EQ(5, tolva.TagBoxes().size());
}

TEST_F(PublishDialogTest, ARecordOfAnotherOwnerIsReadOnlyButItsTagsAndNoteStayOpen)
{
	PublishedFileInfo_t record;
	record.m_nPublishedFileId = 9;
	record.m_sTitle = "Theirs";
	record.m_bOwnedByMe = false;
	record.m_vecTags = { "Map", "Duo" };
	CPublishFileDialog dialog(&record, nullptr, false, MINTYARD_MODE_TOLVA_MAP);
	EXPECT_FALSE(dialog.TitleEdit()->isEnabled());
	EXPECT_FALSE(dialog.DescriptionEdit()->isEnabled());
	EXPECT_FALSE(dialog.PreviewLabel()->isEnabled());
	EXPECT_FALSE(dialog.BrowseButton()->isEnabled());
	EXPECT_FALSE(dialog.RadioPublic()->isEnabled());
	EXPECT_FALSE(dialog.RadioFriends()->isEnabled());
	EXPECT_FALSE(dialog.RadioHidden()->isEnabled());
	EXPECT_FALSE(dialog.AddonCombo()->isEnabled());
	ASSERT_NE(nullptr, dialog.ChangeNoteEdit());
	EXPECT_TRUE(dialog.ChangeNoteEdit()->isEnabled());
	QPushButton *lock = dialog.PreviewLabel()->findChild<QPushButton *>("mintyard_publish_lock");
	ASSERT_NE(nullptr, lock);
	EXPECT_EQ("Only the primary owner can change the preview image", lock->toolTip());
	for (QCheckBox *box : dialog.TagBoxes())
		EXPECT_TRUE(box->isEnabled());
	EXPECT_TRUE(dialog.TagBoxes()[4]->isChecked()); // "Duo"
	EXPECT_FALSE(dialog.TagBoxes()[0]->isChecked());
	// A drop on the locked form changes nothing.
	QMimeData mime;
	mime.setUrls({ QUrl::fromLocalFile(QString::fromStdString(Image("d.png", 10, 10))) });
	QDropEvent drop(QPointF(5, 5), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
	QApplication::sendEvent(&dialog, &drop);
	EXPECT_TRUE(dialog.PreviewLabel()->pixmap(Qt::ReturnByValue).isNull());
}

TEST_F(PublishDialogTest, TagsComeFromTheBoxesAndTheModesFixedTags)
{
	PublishedFileInfo_t record;
	record.m_nPublishedFileId = 9;
	record.m_bOwnedByMe = true;
	record.m_vecTags = { "Classic", "Other" };
	CPublishFileDialog dialog(&record, nullptr, false, MINTYARD_MODE_TOLVA_MAP);
	EXPECT_TRUE(dialog.TagBoxes()[0]->isChecked()); // "Classic"
	dialog.OnItemTypeChanged();
	EXPECT_EQ((CUtlVector<CUtlString>{ "Map", "TL2" }), dialog.Record().m_vecTags);
	EXPECT_TRUE(dialog.ChangeBits() & CPublishFileDialog::CHANGE_TAGS);
	dialog.TagBoxes()[4]->setChecked(true); // "Duo"
	CUtlVector<CUtlString> tags = dialog.Record().m_vecTags;
	dialog.ApplyTagBoxes(tags);
	EXPECT_EQ((CUtlVector<CUtlString>{ "Map", "TL2", "Classic", "Duo" }), tags);
	// Unticking removes the first occurrence only, and tags set by other means stay.
	dialog.TagBoxes()[0]->setChecked(false);
	CUtlVector<CUtlString> other = { "Classic", "Zed", "Classic", "Duo" };
	dialog.ApplyTagBoxes(other);
	EXPECT_EQ((CUtlVector<CUtlString>{ "Zed", "Classic", "Duo" }), other);

	CPublishFileDialog quern(nullptr, nullptr, false, MINTYARD_MODE_QUERN_ADDON);
	quern.OnItemTypeChanged();
	EXPECT_EQ((CUtlVector<CUtlString>{ "Mirel Addon" }), quern.Record().m_vecTags);
	CPublishFileDialog items(&record, nullptr, false, MINTYARD_MODE_ZARN_ITEMS);
	items.OnItemTypeChanged();
	EXPECT_EQ((CUtlVector<CUtlString>{ "Classic", "Other" }), items.Record().m_vecTags);
}

TEST_F(PublishDialogTest, PreviewIsScaledIntoTheTargetWithBarsAndNeverStretched)
{
	CPublishFileDialog dialog(nullptr, nullptr, false, MINTYARD_MODE_QUERN_ADDON);
	dialog.SetPreviewImage(QString::fromStdString(Image("wide.png", 200, 100, Qt::green)), true);
	ASSERT_FALSE(dialog.PreviewLabel()->pixmap(Qt::ReturnByValue).isNull());
	const QImage shown = dialog.PreviewLabel()->pixmap(Qt::ReturnByValue).toImage();
	EXPECT_EQ(QSize(512, 512), shown.size());
	EXPECT_EQ(QColor(Qt::green).rgb(), shown.pixel(256, 256));
	EXPECT_NE(QColor(Qt::green).rgb(), shown.pixel(256, 10));  // bar above
	EXPECT_NE(QColor(Qt::green).rgb(), shown.pixel(256, 500)); // bar below
	EXPECT_EQ(QColor(Qt::green).rgb(), shown.pixel(256, 130));
	EXPECT_TRUE(dialog.ChangeBits() & CPublishFileDialog::CHANGE_PREVIEW);

	// A file that is no image is ignored, and the form then fails at the preview.
	CPublishFileDialog other(nullptr, nullptr, false, MINTYARD_MODE_QUERN_ADDON);
	const std::string fake = m_Temp.Write("fake.png", "this is text, not a picture");
	other.SetPreviewImage(QString::fromStdString(fake), true);
	EXPECT_TRUE(other.PreviewLabel()->pixmap(Qt::ReturnByValue).isNull());
	EXPECT_EQ(0u, other.ChangeBits() & CPublishFileDialog::CHANGE_PREVIEW);
	other.TitleEdit()->setText("t");
	other.DescriptionEdit()->setPlainText("d");
	m_Messages.clear();
	EXPECT_FALSE(other.Validate());
	ASSERT_EQ(1u, m_Messages.size());
	EXPECT_EQ("Please choose a preview image.", m_Messages[0].text);
}

TEST_F(PublishDialogTest, DroppedFilesGiveTheFirstImage)
{
	QMimeData mime;
	const std::string text = m_Temp.Write("notes.txt", "x");
	const std::string png = Image("shot.PNG", 40, 30);
	mime.setUrls({ QUrl("http://example.com/a.png"), QUrl::fromLocalFile(QString::fromStdString(text)),
		QUrl::fromLocalFile(QString::fromStdString(png)) });
	EXPECT_EQ(QString::fromStdString(png), CPublishFileDialog::FindDroppedImage(&mime));
	QMimeData none;
	EXPECT_TRUE(CPublishFileDialog::FindDroppedImage(&none).isEmpty());

	CPublishFileDialog dialog(nullptr, nullptr, false, MINTYARD_MODE_ZARN_ADDON);
	QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
	QApplication::sendEvent(&dialog, &enter);
	EXPECT_TRUE(enter.isAccepted());
	QDropEvent drop(QPointF(5, 5), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
	QApplication::sendEvent(&dialog, &drop);
	ASSERT_FALSE(dialog.PreviewLabel()->pixmap(Qt::ReturnByValue).isNull());
	EXPECT_EQ(QSize(1024, 768), dialog.PreviewLabel()->pixmap(Qt::ReturnByValue).size());
	EXPECT_TRUE(dialog.IsDirty());
}

TEST_F(PublishDialogTest, ANewAddonIsPackedAndPublished)
{
	StartService();
	const uint64 id = PublishNewAddon();
	ASSERT_NE(0u, id);
	// The page was opened and the author told.
	ASSERT_EQ(1u, m_Opened.size());
	EXPECT_TRUE(m_Opened[0].toString().endsWith("/sharedfiles/filedetails/?id=" + QString::number(id))) << m_Opened[0].toString().toStdString();
	ASSERT_FALSE(m_Messages.empty());
	EXPECT_EQ(QMessageBox::Information, m_Messages.back().icon);
	EXPECT_EQ("Your submission was published to the Mintyard.", m_Messages.back().text);

	const auto d = Details(id);
	EXPECT_STREQ("Arena Lights", d.m_rgchTitle);
	EXPECT_STREQ("Lights for the arena.", d.m_rgchDescription);
	EXPECT_STREQ("Custom Game,Hearthfrost 2017", d.m_rgchTags);
	EXPECT_EQ(k_ERemoteStoragePublishedFileVisibilityPublic, d.m_eVisibility);
	EXPECT_EQ(0, d.m_eFileType);
	EXPECT_GT(d.m_nPreviewFileSize, 0);
	EXPECT_NE(std::string::npos, LastChangeNote(id).find("Created Arena Lights."));

	// The content: the pack named by the id, with the addon's files, and publish_data.txt.
	char folder[260];
	uint64 size = 0;
	uint32 stamp = 0;
	ASSERT_TRUE(BrumeAPI_UGC()->GetItemInstallInfo(id, &size, folder, sizeof(folder), &stamp));
	const std::string bdl = std::string(folder) + "/" + std::to_string(id) + ".bdl";
	ASSERT_TRUE(fs::exists(bdl));
	{
		CPackedStore store(bdl.c_str(), m_pHost->FileSystem());
		PackedStoreFileInfo_t info;
		EXPECT_TRUE(store.FindFile("addoninfo.txt", info));
		EXPECT_TRUE(store.FindFile("scripts/arena_lights.txt", info));
	}
	KeyValues data("publish_data");
	ASSERT_TRUE(data.LoadFromFile(m_pHost->FileSystem(), (std::string(folder) + "/publish_data.txt").c_str()));
	EXPECT_STREQ("Arena Lights", data.GetString("title"));
	EXPECT_STREQ("arena_lights", data.GetString("source_folder"));
	EXPECT_GT(data.GetInt("publish_time"), 0);
	// The pack left the addon folder for the upload folder under the addons root.
	EXPECT_FALSE(fs::exists(m_Temp.Path("game/zarn_addons/arena_lights.bdl")));
	EXPECT_TRUE(fs::exists(m_Temp.Path("game/zarn_addons/bdls/" + std::to_string(id) + "/" + std::to_string(id) + ".bdl")));
}

TEST_F(PublishDialogTest, AReUploadWithAChangeNoteReplacesTheContent)
{
	StartService();
	const uint64 id = PublishNewAddon();
	ASSERT_NE(0u, id);
	const auto before = Details(id);
	m_Temp.Write("game/zarn_addons/arena_lights/scripts/more.txt", std::string(5000, 'm'));

	PublishedFileInfo_t record = RecordOf(id);
	auto dialogHolder = std::make_unique<CPublishFileDialog>(&record, nullptr, false, MINTYARD_MODE_ZARN_ADDON);
	CPublishFileDialog &dialog = *dialogHolder;
	// The preview comes down from the service.
	m_Messages.clear();
	WaitForPreview(dialog);
	ASSERT_TRUE(m_Messages.empty()) << m_Messages[0].text.toStdString();
	ASSERT_FALSE(dialog.PreviewLabel()->pixmap(Qt::ReturnByValue).isNull());
	EXPECT_FALSE(dialog.IsDirty());
	EXPECT_EQ("Arena Lights", dialog.windowTitle());
	EXPECT_TRUE(dialog.RadioPublic()->isChecked());
	dialog.AddonCombo()->setCurrentText("arena_lights");
	dialog.ChangeNoteEdit()->setPlainText("More scripts.");
	m_Messages.clear();
	dialog.SubmitButtonClicked();
	Pump(dialog);
	ASSERT_EQ(QDialog::Accepted, dialog.result()) << (m_Messages.empty() ? "" : m_Messages.back().text.toStdString());
	ASSERT_EQ(1u, m_Messages.size()); // only the success: the folder did not change, so no question

	const auto after = Details(id);
	EXPECT_NE(before.m_hFile, after.m_hFile);
	EXPECT_GT(after.m_nFileSize, before.m_nFileSize);
	EXPECT_NE(std::string::npos, LastChangeNote(id).find("More scripts."));
	char folder[260];
	uint64 size = 0;
	uint32 stamp = 0;
	ASSERT_TRUE(BrumeAPI_UGC()->GetItemInstallInfo(id, &size, folder, sizeof(folder), &stamp));
	CPackedStore store((std::string(folder) + "/" + std::to_string(id) + ".bdl").c_str(), m_pHost->FileSystem());
	PackedStoreFileInfo_t info;
	EXPECT_TRUE(store.FindFile("scripts/more.txt", info));

	// The fetched preview and the one written for the upload go with the dialog, and their folder
	// with them.
	const std::string uploads = m_Temp.Path("tmp/mintyardupload_" + std::to_string(id));
	ASSERT_TRUE(fs::exists(uploads));
	int previews = 0;
	for (const auto &entry : fs::directory_iterator(uploads))
		previews += entry.path().extension() == ".jpg";
	EXPECT_GE(previews, 1);
	dialogHolder.reset();
	EXPECT_FALSE(fs::exists(uploads));
}

TEST_F(PublishDialogTest, AnotherFolderAsksFirstAndNoKeepsTheForm)
{
	StartService();
	const uint64 id = PublishNewAddon();
	ASSERT_NE(0u, id);
	PublishedFileInfo_t record = RecordOf(id);
	CPublishFileDialog dialog(&record, nullptr, false, MINTYARD_MODE_ZARN_ADDON);
	m_Messages.clear();
	WaitForPreview(dialog);
	ASSERT_TRUE(m_Messages.empty()) << m_Messages[0].text.toStdString();
	dialog.AddonCombo()->setCurrentText("sample_courier_skin");
	dialog.ChangeNoteEdit()->setPlainText("Other folder.");
	m_Messages.clear();
	m_nAnswer = QMessageBox::No;
	dialog.SubmitButtonClicked();
	Pump(dialog);
	ASSERT_EQ(1u, m_Messages.size());
	EXPECT_EQ("Different Addon Folder", m_Messages[0].title);
	EXPECT_EQ("'Arena Lights' was last published from the folder 'arena_lights'. Do you really want to upload 'sample_courier_skin' in its place?",
		m_Messages[0].text);
	EXPECT_EQ(0, dialog.result());
	EXPECT_EQ("Other folder.", dialog.ChangeNoteEdit()->toPlainText());
	EXPECT_EQ(Details(id).m_hFile, record.m_hFile); // nothing went out
}

TEST_F(PublishDialogTest, EditOnlySendsTitleAndTagsWithoutContent)
{
	StartService();
	const uint64 id = PublishNewAddon();
	ASSERT_NE(0u, id);
	const auto before = Details(id);
	PublishedFileInfo_t record = RecordOf(id);
	CPublishFileDialog dialog(&record, nullptr, true, MINTYARD_MODE_ZARN_ADDON);
	m_Messages.clear();
	WaitForPreview(dialog);
	ASSERT_TRUE(m_Messages.empty()) << m_Messages[0].text.toStdString();
	dialog.TitleEdit()->setText("Arena Lights II");
	dialog.TitleTextEdited("Arena Lights II");
	dialog.TagBoxes()[0]->setChecked(false);
	m_Messages.clear();
	dialog.SubmitButtonClicked();
	Pump(dialog);
	ASSERT_EQ(QDialog::Accepted, dialog.result()) << (m_Messages.empty() ? "" : m_Messages.back().text.toStdString());
	const auto after = Details(id);
	EXPECT_STREQ("Arena Lights II", after.m_rgchTitle);
	EXPECT_STREQ("Custom Game", after.m_rgchTags);
	EXPECT_EQ(before.m_hFile, after.m_hFile);
	EXPECT_EQ(before.m_hPreviewFile, after.m_hPreviewFile); // the preview was not changed
	EXPECT_STREQ("Lights for the arena.", after.m_rgchDescription);
}

TEST_F(PublishDialogTest, FailuresAreReportedByResultAndTheFormStays)
{
	const std::pair<int, const char *> cases[] = {
		{ 3, "Could not connect to the Mintyard. Please check that Brume is running and online." },
		{ 5, "Brume did not accept your password. Please log in again." },
		{ 24, "Limited accounts cannot publish to the Mintyard." },
		{ 15, "Publishing failed (result 15)." },
	};
	for (const auto &[code, text] : cases)
	{
		m_Service.Stop();
		BrumeAPIContext()->Clear();
		BrumeAPI_Shutdown();
		StartService({ "--failure-rate", "1", "--result-code", std::to_string(code) });
		CPublishFileDialog dialog(nullptr, nullptr, false, MINTYARD_MODE_ZARN_ADDON);
		dialog.AddonCombo()->setCurrentText("arena_lights");
		FillValid(dialog);
		m_Messages.clear();
		dialog.SubmitButtonClicked();
		Pump(dialog);
		ASSERT_EQ(1u, m_Messages.size()) << code;
		EXPECT_EQ(QMessageBox::Critical, m_Messages[0].icon);
		EXPECT_EQ("Error", m_Messages[0].title);
		EXPECT_EQ(QString(text), m_Messages[0].text);
		EXPECT_EQ(0, dialog.result());
		EXPECT_EQ("Arena Lights", dialog.TitleEdit()->text());
		EXPECT_TRUE(dialog.IsDirty());
		EXPECT_TRUE(m_Opened.empty());
	}
}

TEST_F(PublishDialogTest, AServiceThatGoesAwayMidFlowLeavesTheFormAndNoHalfUpload)
{
	// Slow answers, so that the service can be ended after it made the item and while the upload
	// is on its way.
	StartService({ "--delay-ms", "400" });
	CPublishFileDialog dialog(nullptr, nullptr, false, MINTYARD_MODE_ZARN_ADDON);
	dialog.AddonCombo()->setCurrentText("arena_lights");
	FillValid(dialog);
	dialog.SubmitButtonClicked();
	Pump(dialog, [&] { return dialog.Record().m_nPublishedFileId != 0 || !m_Messages.empty(); });
	ASSERT_TRUE(m_Messages.empty()) << m_Messages[0].text.toStdString();
	const uint64 id = dialog.Record().m_nPublishedFileId;
	m_Service.Kill();
	Pump(dialog);
	ASSERT_EQ(1u, m_Messages.size());
	EXPECT_EQ(QMessageBox::Critical, m_Messages[0].icon);
	EXPECT_EQ("Error", m_Messages[0].title);
	EXPECT_EQ(0, dialog.result());
	EXPECT_EQ("Arena Lights", dialog.TitleEdit()->text());
	EXPECT_EQ("Lights for the arena.", dialog.DescriptionEdit()->toPlainText());
	EXPECT_FALSE(dialog.PreviewLabel()->pixmap(Qt::ReturnByValue).isNull());
	EXPECT_TRUE(m_Opened.empty());

	// Back up on the same data: the item is there, made but empty; no bytes of the upload stayed.
	ASSERT_TRUE(m_Service.Start(m_Temp.Path("service")));
	httplib::Client http("127.0.0.1", m_Service.Port());
	auto r = http.Get(("/api/v1/files/" + std::to_string(id)).c_str());
	ASSERT_TRUE(r);
	EXPECT_NE(std::string::npos, r->body.find("\"content\":[]")) << r->body;
	EXPECT_NE(std::string::npos, r->body.find("\"hcontent_preview\":0")) << r->body;
	EXPECT_TRUE(fs::is_empty(m_Temp.Path("service/ugc")));
}

TEST_F(PublishDialogTest, ASuccessThatNeedsTheAgreementWarns)
{
	CPublishFileDialog dialog(nullptr, nullptr, false, MINTYARD_MODE_ZARN_ADDON);
	dialog.Record().m_nPublishedFileId = 321;
	SubmitItemUpdateResult_t result{};
	result.m_eResult = k_EResultOK;
	result.m_bUserNeedsToAcceptLegalAgreement = true;
	dialog.OnSubmitItemUpdate(&result, false);
	ASSERT_EQ(1u, m_Messages.size());
	EXPECT_EQ(QMessageBox::Warning, m_Messages[0].icon);
	EXPECT_EQ("Submitted", m_Messages[0].title);
	EXPECT_EQ(T("#Mintyard_Publish_SuccessTextNeedsToAccept"), m_Messages[0].text);
	ASSERT_EQ(1u, m_Opened.size());
	EXPECT_TRUE(m_Opened[0].toString().endsWith("?id=321"));
	EXPECT_EQ(QDialog::Accepted, dialog.result());

	CPublishFileDialog io(nullptr, nullptr, false, MINTYARD_MODE_ZARN_ADDON);
	result.m_bUserNeedsToAcceptLegalAgreement = false;
	io.OnSubmitItemUpdate(&result, true);
	EXPECT_EQ("Brume reported an error while submitting.", m_Messages.back().text);
	EXPECT_EQ(0, io.result());
}

TEST_F(PublishDialogTest, AZipIsMovedIntoTheUploadFolderOnlyWhenUnchanged)
{
	StartService();
	const std::string zip = m_Temp.Write("out/mintyard_submit_hat_1.zip", std::string(3000, 'z'));
	{
		CPublishFileDialog dialog(nullptr, nullptr, false, MINTYARD_MODE_ZARN_ITEMS);
		dialog.SetContentPath(QString::fromStdString(zip));
		dialog.SetExpectedZip(3000, 12345); // not the file's time
		FillValid(dialog, "Hat");
		dialog.SubmitButtonClicked();
		Pump(dialog);
		ASSERT_FALSE(m_Messages.empty());
		EXPECT_EQ("The submission zip has changed since it was made. Make it again from the import wizard.", m_Messages.back().text);
		EXPECT_TRUE(fs::exists(zip));
	}
	m_Messages.clear();
	CPublishFileDialog dialog(nullptr, nullptr, false, MINTYARD_MODE_ZARN_ITEMS);
	dialog.SetContentPath(QString::fromStdString(zip));
	dialog.SetExpectedZip(3000, (uint64)m_pHost->FileSystem()->GetFileTime(zip.c_str()));
	dialog.SetTags({ "Wearable", "imported", "renewed" });
	FillValid(dialog, "Hat");
	dialog.SubmitButtonClicked();
	Pump(dialog);
	ASSERT_EQ(QDialog::Accepted, dialog.result()) << (m_Messages.empty() ? "" : m_Messages.back().text.toStdString());
	EXPECT_FALSE(fs::exists(zip)); // moved
	const std::string moved = dialog.Record().m_sFileName;
	EXPECT_EQ(0u, moved.rfind(m_Temp.Path("tmp/mintyardupload_"), 0)) << moved;
	EXPECT_NE(std::string::npos, moved.find("/upload_")) << moved;
	EXPECT_EQ(std::string(3000, 'z'), ReadFile(moved));
	const auto d = Details(dialog.Record().m_nPublishedFileId);
	EXPECT_STREQ("mintyard_submit_hat_1.zip", d.m_pchFileName);
	EXPECT_EQ(3000, d.m_nFileSize);
	EXPECT_EQ(1, d.m_eFileType);
	EXPECT_STREQ("Wearable,imported,renewed", d.m_rgchTags);
}

TEST_F(PublishDialogTest, ADirtyFormAsksBeforeItIsThrownAway)
{
	CPublishFileDialog dialog(nullptr, nullptr, false, MINTYARD_MODE_ZARN_ADDON);
	dialog.show();
	dialog.TitleEdit()->setText("x");
	dialog.TitleTextEdited("x");
	EXPECT_EQ("Publish to the Mintyard*", dialog.windowTitle());
	dialog.DescriptionEdit()->setPlainText("y");
	EXPECT_EQ("Publish to the Mintyard*", dialog.windowTitle()); // appended once
	m_nAnswer = QMessageBox::No;
	dialog.reject();
	ASSERT_EQ(1u, m_Messages.size());
	EXPECT_EQ("Cancel Publishing?", m_Messages[0].title);
	EXPECT_TRUE(dialog.isVisible());
	m_nAnswer = QMessageBox::Yes;
	dialog.CancelButtonClicked();
	EXPECT_FALSE(dialog.isVisible());
	EXPECT_EQ(QDialog::Rejected, dialog.result());
}

TEST_F(PublishDialogTest, APreviewThatCannotBeFetchedIsReported)
{
	StartService();
	PublishedFileInfo_t record;
	record.m_nPublishedFileId = 40;
	record.m_sTitle = "Gone";
	record.m_bOwnedByMe = true;
	record.m_hPreviewFile = 987654321; // the service holds no such file
	CPublishFileDialog dialog(&record, nullptr, false, MINTYARD_MODE_ZARN_ADDON);
	Pump(dialog);
	ASSERT_EQ(1u, m_Messages.size());
	EXPECT_EQ("Error", m_Messages[0].title);
	EXPECT_EQ("The preview image could not be downloaded from the Mintyard.", m_Messages[0].text);
	EXPECT_TRUE(dialog.PreviewLabel()->pixmap(Qt::ReturnByValue).isNull());
	EXPECT_EQ("Gone", dialog.TitleEdit()->text()); // the form stays as it was loaded
	EXPECT_FALSE(dialog.IsDirty());
}

TEST_F(PublishDialogTest, EditOnlyWithANewPreviewUploadsOnlyThePreview)
{
	StartService();
	const uint64 id = PublishNewAddon();
	ASSERT_NE(0u, id);
	const auto before = Details(id);
	PublishedFileInfo_t record = RecordOf(id);
	CPublishFileDialog dialog(&record, nullptr, true, MINTYARD_MODE_ZARN_ADDON);
	m_Messages.clear();
	WaitForPreview(dialog);
	dialog.SetPreviewImage(QString::fromStdString(Image("blue.png", 2048, 1536, Qt::blue)), true);
	EXPECT_EQ(uint32(CPublishFileDialog::CHANGE_PREVIEW), dialog.ChangeBits());
	dialog.SubmitButtonClicked();
	Pump(dialog);
	ASSERT_EQ(QDialog::Accepted, dialog.result()) << (m_Messages.empty() ? "" : m_Messages.back().text.toStdString());
	const auto after = Details(id);
	EXPECT_NE(before.m_hPreviewFile, after.m_hPreviewFile);
	EXPECT_EQ(before.m_hFile, after.m_hFile);
	EXPECT_STREQ(before.m_rgchTitle, after.m_rgchTitle);
	EXPECT_STREQ(before.m_rgchTags, after.m_rgchTags); // no tag change was sent
	EXPECT_EQ(before.m_eVisibility, after.m_eVisibility);
}

TEST_F(PublishDialogTest, ANewAddonDoesNotReplaceAPackAlreadyAtItsTarget)
{
	StartService();
	// The fresh service gives the first item the id 1.
	const std::string occupied = m_Temp.Write("game/zarn_addons/bdls/1/1.bdl", "older pack");
	CPublishFileDialog dialog(nullptr, nullptr, false, MINTYARD_MODE_ZARN_ADDON);
	dialog.AddonCombo()->setCurrentText("arena_lights");
	FillValid(dialog);
	dialog.SubmitButtonClicked();
	Pump(dialog);
	ASSERT_EQ(1u, m_Messages.size());
	EXPECT_EQ("The packed addon could not be put into the upload folder of submission 1.", m_Messages[0].text);
	EXPECT_EQ("older pack", ReadFile(occupied));
	// The pack made for this try does not stay beside the author's folders.
	EXPECT_FALSE(fs::exists(m_Temp.Path("game/zarn_addons/arena_lights.bdl")));
	EXPECT_TRUE(fs::exists(m_Temp.Path("game/zarn_addons/arena_lights/addoninfo.txt")));
	EXPECT_EQ(0, dialog.result());
	EXPECT_EQ("Arena Lights", dialog.TitleEdit()->text());
	EXPECT_EQ(1u, dialog.Record().m_nPublishedFileId); // kept; the next Submit still counts as new
	EXPECT_TRUE(m_Opened.empty());
}

TEST_F(PublishDialogTest, ThePreviewIsDrawnLetterboxedToTheTargetAspect)
{
	CPublishFileDialog dialog(nullptr, nullptr, false, MINTYARD_MODE_ZARN_ADDON);
	CLabelCustomPaint *label = dialog.PreviewLabel();
	// Without an image the placeholder: a fill, with marks at the middle of each edge.
	label->setFixedSize(700, 525);
	const QImage empty = label->grab().toImage();
	ASSERT_EQ(QSize(700, 525), empty.size());
	EXPECT_EQ(empty.pixel(350, 150), empty.pixel(5, 150));
	EXPECT_NE(empty.pixel(350, 150), empty.pixel(1, 262));
	EXPECT_NE(empty.pixel(350, 150), empty.pixel(350, 1));
	dialog.SetPreviewImage(QString::fromStdString(Image("red.png", 1024, 768, Qt::red)), true);
	label->setFixedSize(700, 300); // wider than 4:3: bars left and right
	const QImage wide = label->grab().toImage();
	const int drawn = (int)std::ceil(300 * 1024.0 / 768.0); // 400
	const int left = (700 - drawn) / 2;
	EXPECT_EQ(QColor(Qt::red).rgb(), wide.pixel(350, 150));
	EXPECT_EQ(QColor(Qt::red).rgb(), wide.pixel(left + 2, 150));
	EXPECT_NE(QColor(Qt::red).rgb(), wide.pixel(left - 3, 150));
	EXPECT_NE(QColor(Qt::red).rgb(), wide.pixel(700 - left + 2, 150));
	label->setFixedSize(300, 600); // taller: bars above and below
	const QImage tall = label->grab().toImage();
	EXPECT_EQ(QColor(Qt::red).rgb(), tall.pixel(150, 300));
	EXPECT_NE(QColor(Qt::red).rgb(), tall.pixel(150, 10));
}

TEST_F(PublishDialogTest, TheChangeNoteWakesOnTheFirstClick)
{
	PublishedFileInfo_t record;
	record.m_nPublishedFileId = 3;
	record.m_sTitle = "Note";
	record.m_bOwnedByMe = true;
	CPublishFileDialog dialog(&record, nullptr, false, MINTYARD_MODE_QUERN_ADDON);
	CTextEditCustomPaint *note = dialog.ChangeNoteEdit();
	ASSERT_NE(nullptr, note);
	EXPECT_FALSE(note->IsActive());
	EXPECT_FALSE(note->acceptRichText());
	EXPECT_EQ(100, note->maximumHeight());
	QMouseEvent press(QEvent::MouseButtonPress, QPointF(5, 5), Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
	QApplication::sendEvent(note->viewport(), &press);
	EXPECT_TRUE(note->IsActive());
	EXPECT_TRUE(note->toPlainText().isEmpty());
	EXPECT_TRUE(dialog.ChangeBits() & CPublishFileDialog::CHANGE_CHANGELOG);
	EXPECT_TRUE(dialog.IsDirty());
}

TEST_F(PublishDialogTest, SubmitShowsTheFirstTextAndLeavesTheWorkToTheTimer)
{
	StartService();
	CPublishFileDialog dialog(nullptr, nullptr, false, MINTYARD_MODE_ZARN_ADDON);
	dialog.AddonCombo()->setCurrentText("arena_lights");
	FillValid(dialog);
	dialog.SubmitButtonClicked();
	// Nothing was packed yet: the next state waits for the event loop.
	EXPECT_EQ(CPublishFileDialog::PUBLISH_STATE_PACK, dialog.PublishState());
	ASSERT_NE(nullptr, dialog.Progress());
	EXPECT_TRUE(dialog.Progress()->isVisible());
	EXPECT_EQ("Packaging the submission...", dialog.Progress()->labelText());
	EXPECT_EQ("Publishing Addon", dialog.Progress()->windowTitle());
	EXPECT_EQ(100, dialog.Progress()->maximum());
	EXPECT_FALSE(fs::exists(m_Temp.Path("game/zarn_addons/arena_lights.bdl")));
	Pump(dialog);
	EXPECT_EQ(QDialog::Accepted, dialog.result());
	EXPECT_FALSE(dialog.Progress()->isVisible());
}

TEST_F(PublishDialogTest, EditOnlyWithNoChangeIsStillSubmitted)
{
	StartService();
	const uint64 id = PublishNewAddon();
	ASSERT_NE(0u, id);
	const auto before = Details(id);
	PublishedFileInfo_t record = RecordOf(id);
	CPublishFileDialog dialog(&record, nullptr, true, MINTYARD_MODE_ZARN_ADDON);
	m_Messages.clear();
	WaitForPreview(dialog);
	EXPECT_EQ(0u, dialog.ChangeBits());
	m_Opened.clear();
	dialog.SubmitButtonClicked();
	Pump(dialog);
	// The service answered the update: the page opens and the author is told.
	ASSERT_EQ(QDialog::Accepted, dialog.result()) << (m_Messages.empty() ? "" : m_Messages.back().text.toStdString());
	EXPECT_EQ(1u, m_Opened.size());
	EXPECT_EQ("Your submission was published to the Mintyard.", m_Messages.back().text);
	const auto after = Details(id);
	EXPECT_STREQ(before.m_rgchTitle, after.m_rgchTitle);
	EXPECT_STREQ(before.m_rgchTags, after.m_rgchTags);
	EXPECT_EQ(before.m_hFile, after.m_hFile);
	EXPECT_EQ(before.m_hPreviewFile, after.m_hPreviewFile);
}
