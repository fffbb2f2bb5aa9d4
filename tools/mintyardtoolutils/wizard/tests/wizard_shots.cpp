// Pictures of every page of the wizard on the sample game, for looking at: the type pick and its
// dialogs, the input pages of the courier, the emoticons and the cursor pack (with the mesh
// budget read), the import log of a run that went through and of one that did not, the plain
// editor page, the image previews and the submit page. Run under a display:
//
//   xvfb-run -a env QT_QPA_PLATFORM=xcb build/tests/wizard_shots OUTPUT_FOLDER
#include <cstdio>
#include <filesystem>
#include <string>

#include <QApplication>
#include <QComboBox>
#include <QElapsedTimer>
#include <QImage>
#include <QLineEdit>
#include <QPainter>
#include <QPushButton>
#include <QRadioButton>
#include <QScrollArea>
#include <QThread>

#include "core/keyvalues3.h"
#include "filesystem/filesystem.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/core/templatecatalogue.h"
#include "mintyardtoolutils/wizard/imagepreview.h"
#include "mintyardtoolutils/wizard/importdialog.h"
#include "mintyardtoolutils/wizard/inputwidgets.h"
#include "mintyardtoolutils/wizard/meshbudget.h"
#include "mintyardtoolutils/wizard/typepickwidget.h"
#include "mintyardtoolutils/wizard/wizardutils.h"
#include "testsupport/tool_host.h"
#include "testsupport/widget_shots.h"
#include "toolframework/toolframework.h"

namespace fs = std::filesystem;

namespace
{
std::string s_Output;

void Settle(int nMs = 150)
{
	SettleWidgets(nMs);
}

void Shot(QWidget *pWidget, const char *pszName)
{
	SaveWidgetShot(pWidget, s_Output, pszName, 150);
}

// The whole input page, taller than the window shows.
void ShotWhole(QWidget *pPage, const char *pszName)
{
	Settle();
	const QSize size(pPage->width(), qMax(pPage->sizeHint().height(), pPage->height()));
	pPage->resize(size);
	Settle(50);
	const QPixmap whole = pPage->grab();
	// In parts of a window's height, to look at in full size.
	for (int nTop = 0, nPart = 0; nTop < whole.height(); nTop += 800, ++nPart)
	{
		const std::string path = s_Output + "/" + pszName + "_part" + std::to_string(nPart) + ".png";
		whole.copy(0, nTop, whole.width(), qMin(800, whole.height() - nTop)).save(QString::fromStdString(path));
		printf("%s\n", path.c_str());
	}
}

void ExpandAll(QWidget *pRoot)
{
	for (CQMintyardUI_Section *pSection : pRoot->findChildren<CQMintyardUI_Section *>())
		if (pSection->ToggleButton() && !pSection->IsExpanded())
			pSection->OnToggle();
}

void WaitForBudgets(QWidget *pRoot)
{
	for (int i = 0; i < 200; ++i)
	{
		bool bPending = false;
		for (CQMeshBudgetTable *pTable : pRoot->findChildren<CQMeshBudgetTable *>())
			for (int nLevel = 0; nLevel < pTable->LevelCount(); ++nLevel)
				bPending = bPending || pTable->Level(nLevel).m_bPending;
		if (!bPending)
			return;
		Settle(20);
	}
}

// A picture of the author's: a gradient with a frame, at a loading screen's shape.
std::string MakeScreenPicture(const std::string &path)
{
	QImage image(1920, 1080, QImage::Format_RGB32);
	QPainter painter(&image);
	QLinearGradient gradient(0, 0, 1920, 1080);
	gradient.setColorAt(0, QColor(30, 60, 110));
	gradient.setColorAt(1, QColor(200, 140, 60));
	painter.fillRect(image.rect(), gradient);
	painter.setPen(QPen(Qt::white, 12));
	painter.drawEllipse(QPoint(960, 540), 300, 300);
	painter.end();
	image.save(QString::fromStdString(path));
	return path;
}
} // namespace

int main(int argc, char **argv)
{
	QApplication app(argc, argv);
	if (argc < 2)
	{
		fprintf(stderr, "usage: wizard_shots OUTPUT_FOLDER\n");
		return 2;
	}
	s_Output = argv[1];
	fs::create_directories(s_Output);

	char pattern[] = "/tmp/mintyard_shots_XXXXXX";
	const std::string root = mkdtemp(pattern) ? pattern : "/tmp/mintyard_shots";
	const fs::path sample = fs::path(MINTYARD_SOURCE_DIR) / "sample";
	// The sample tree (its compiled assets aside): the import of the courier compiles for real.
	fs::create_directories(root + "/game/zarn");
	for (const char *folder : { "scripts", "animations" })
		fs::copy(sample / "game/zarn" / folder, root + "/game/zarn/" + folder, fs::copy_options::recursive);
	fs::copy(sample / "game/core", root + "/game/core", fs::copy_options::recursive);
	fs::copy(sample / "content", root + "/content", fs::copy_options::recursive);
	setenv("MINTYARD_RESOURCECOMPILER", MINTYARD_BINARY_DIR "/bin/resourcecompiler", 0);
	setenv("MINTYARD_SCRATCH_DIR", (root + "/scratch").c_str(), 1);
	CTestToolHost host;
	CUtlString error;
	if (!host.Start(root + "/game/zarn", root + "/settings", &error))
	{
		fprintf(stderr, "%s\n", error.c_str());
		return 1;
	}
	ReloadGameData();
	MintyardWizardMessageHook() = [](QMessageBox::Icon, const QString &title, const QString &text, int, int) {
		printf("box: %s: %s\n", title.toUtf8().constData(), text.left(200).toUtf8().constData());
		return (int)QMessageBox::No;
	};

	// The type pick and its dialogs.
	CQMintyardImportDialog *pWizard = new CQMintyardImportDialog(MINTYARD_WIZARD_NEW_SUBMISSION, nullptr);
	pWizard->Start(nullptr);
	pWizard->show();
	Shot(pWizard, "01_type_pick");
	CQMintyardTemplateDetailsDialog *pImages = pWizard->TypePick()->GroupDialogs()[0];
	pImages->show();
	pImages->SubgroupCombo()->setCurrentIndex(2);
	pImages->TemplateCombo()->setCurrentIndex(1);
	Shot(pImages, "02_images_dialog");
	pImages->hide();
	CQMintyardHeroItemDialog *pHeroes = pWizard->TypePick()->HeroDialog();
	pHeroes->show();
	pHeroes->HeroCombo()->setCurrentIndex(pHeroes->HeroCombo()->findText("Bramble"));
	pHeroes->SlotCombo()->setCurrentIndex(2);
	Shot(pHeroes, "03_hero_dialog");
	pHeroes->hide();

	// The courier's inputs, with its sample art; then its import.
	pWizard->OpenFile(QString::fromStdString((sample / "sessions/courier.session.txt").string()));
	WaitForBudgets(pWizard);
	Shot(pWizard, "04_courier_inputs");
	ExpandAll(pWizard->InputPicker());
	WaitForBudgets(pWizard);
	ShotWhole(pWizard->InputPicker(), "05_courier_inputs_whole");
	pWizard->OnNextClicked();
	Shot(pWizard, "06_courier_log");
	pWizard->ChangePage(MINTYARD_STEP_LOG, +1);
	Shot(pWizard, "07_preview_editor_plain");
	delete pWizard;

	// A hero wearable: its budget with a mesh over it.
	pWizard = new CQMintyardImportDialog(MINTYARD_WIZARD_NEW_SUBMISSION, nullptr);
	pWizard->Start(nullptr);
	pWizard->show();
	pWizard->OnTemplatePicked(pWizard->Session().GetCatalogue().FindTemplate("custom_wearable.bramble.misc"));
	// Typed as the author would: the page's edits write the elements.
	pWizard->InputPicker()->FindInput(pWizard->Session().GetNameElement())->LineEdit()->setText("bramble_lantern");
	pWizard->InputPicker()->FindInput(pWizard->Session().m_Models[0]->m_Lods[1])->LineEdit()->setText(
		QString::fromStdString((sample / "art/courier/courier_lod0.fbx").string()));
	WaitForBudgets(pWizard);
	ExpandAll(pWizard->InputPicker());
	Shot(pWizard, "08_wearable_budget");
	delete pWizard;

	// Images: the emoticons (the sample session), a loading screen, a cursor pack.
	pWizard = new CQMintyardImportDialog(MINTYARD_WIZARD_NEW_SUBMISSION, nullptr);
	pWizard->Start(nullptr);
	pWizard->show();
	pWizard->OpenFile(QString::fromStdString((sample / "sessions/emoticons.session.txt").string()));
	Shot(pWizard, "09_emoticon_inputs");
	pWizard->OnNextClicked();
	Shot(pWizard, "10_emoticon_log");
	pWizard->OnNextClicked();
	Shot(pWizard, "11_emoticon_preview");
	pWizard->OnNextClicked();
	Shot(pWizard, "12_submit");
	delete pWizard;

	pWizard = new CQMintyardImportDialog(MINTYARD_WIZARD_NEW_SUBMISSION, nullptr);
	pWizard->Start(nullptr);
	pWizard->show();
	pWizard->OnTemplatePicked(pWizard->Session().GetCatalogue().FindTemplate("loading_screen"));
	pWizard->InputPicker()->FindInput(pWizard->Session().GetNameElement())->LineEdit()->setText("sunset");
	pWizard->InputPicker()->FindInput(pWizard->Session().m_ImageSets[0]->m_Images[0])->LineEdit()->setText(
		QString::fromStdString(MakeScreenPicture(root + "/art_screen.png")));
	Shot(pWizard, "13_loading_screen_inputs");
	pWizard->ChangePage(MINTYARD_STEP_LOG, +1);
	CQImportLoadingScreenPreview *pScreen = pWizard->ImagePreview()->findChild<CQImportLoadingScreenPreview *>();
	if (pScreen)
		pScreen->RadioButton(2)->setChecked(true);
	Shot(pWizard, "14_loading_screen_preview_4_3");
	delete pWizard;

	pWizard = new CQMintyardImportDialog(MINTYARD_WIZARD_NEW_SUBMISSION, nullptr);
	pWizard->Start(nullptr);
	pWizard->show();
	pWizard->OnTemplatePicked(pWizard->Session().GetCatalogue().FindTemplate("cursor_pack"));
	pWizard->InputPicker()->FindInput(pWizard->Session().GetNameElement())->LineEdit()->setText("my_cursors");
	Shot(pWizard, "15_cursor_inputs");
	pWizard->ChangePage(MINTYARD_STEP_LOG, +1);
	Shot(pWizard, "16_cursor_preview");
	delete pWizard;

	// A contract: the log of a run that went through, the unresolved button, the submit page.
	pWizard = new CQMintyardImportDialog(MINTYARD_WIZARD_NEW_SUBMISSION, nullptr);
	pWizard->Start(nullptr);
	pWizard->show();
	pWizard->OnTemplatePicked(pWizard->Session().GetCatalogue().FindTemplate("contract_only"));
	Shot(pWizard, "17_contract_inputs_blocked");
	pWizard->InputPicker()->FindInput(pWizard->Session().GetNameElement())->LineEdit()->setText("my_contract");
	pWizard->OnNextClicked();
	Shot(pWizard, "18_contract_log");
	pWizard->OnNextClicked();
	Shot(pWizard, "19_contract_submit");
	delete pWizard;

	MintyardWizardMessageHook() = nullptr;
	std::error_code ignored;
	fs::remove_all(root, ignored);
	return 0;
}
