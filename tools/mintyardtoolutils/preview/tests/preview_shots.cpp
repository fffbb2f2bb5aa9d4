// Pictures of the wizard's preview page on the sample game, for looking at: a hero wearable on
// its hero (with the wearable picker open), a courier and its flying form, a ward, a model of no
// hero, and an open box with its mesh problems shown. Each session is imported into a copy of
// the sample tree by the wizard itself (its log page), then the wizard moves on to the preview.
// Run under a display:
//
//   xvfb-run -a -s "-screen 0 1600x1000x24" env QT_QPA_PLATFORM=xcb build/tests/preview_shots OUTPUT_FOLDER
#include <cstdio>
#include <filesystem>
#include <string>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QElapsedTimer>
#include <QThread>

#include "filesystem/filesystem.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/preview/importprevieweditor.h"
#include "mintyardtoolutils/preview/previewpages.h"
#include "mintyardtoolutils/preview/wearablepicker.h"
#include "mintyardtoolutils/wizard/importdialog.h"
#include "mintyardtoolutils/wizard/wizardutils.h"
#include "previewtestboxes.h"
#include "testsupport/tool_host.h"
#include "testsupport/widget_shots.h"
#include "toolframework/toolframework.h"
#include "toolscene/sceneresources.h"

namespace fs = std::filesystem;

namespace
{
std::string s_Output;
CToolFrameworkHost *s_pHost = nullptr;

// The host's frames: the preview plays its animation from them.
void HostFrame()
{
	s_pHost->RunFrameListeners(0.016f);
}

void Shot(QWidget *pWidget, const std::string &name)
{
	SaveWidgetShot(pWidget, s_Output, name, 300, HostFrame);
}

// A wizard on a session, imported and on its preview page; null when it did not get there.
CQMintyardImportDialog *OpenPreview(const std::string &session)
{
	CQMintyardImportDialog *pWizard = new CQMintyardImportDialog(MINTYARD_WIZARD_NEW_SUBMISSION, nullptr);
	pWizard->Start(nullptr);
	pWizard->resize(1400, 900);
	pWizard->show();
	pWizard->OpenFile(QString::fromStdString(session));
	pWizard->OnNextClicked(); // the log: the import runs
	if (pWizard->CurrentPage() != MINTYARD_STEP_LOG || HasImportError(pWizard->RunMessages()))
	{
		fprintf(stderr, "%s: the import did not go through:\n%s\n", session.c_str(),
			CQMintyardImportDialog::FormatMessages(pWizard->RunMessages()).toUtf8().constData());
		delete pWizard;
		return nullptr;
	}
	pWizard->OnNextClicked();
	if (pWizard->CurrentPage() != MINTYARD_STEP_PREVIEW_EDITOR)
	{
		fprintf(stderr, "%s: the wizard is on step %d, not on the preview\n", session.c_str(), pWizard->CurrentPage());
		delete pWizard;
		return nullptr;
	}
	return pWizard;
}

CQImportPreviewEditor *Editor(CQMintyardImportDialog *pWizard)
{
	return dynamic_cast<CQImportPreviewEditor *>(pWizard->PreviewEditor());
}
} // namespace

int main(int argc, char **argv)
{
	QApplication app(argc, argv);
	if (argc < 2)
	{
		fprintf(stderr, "usage: preview_shots OUTPUT_FOLDER\n");
		return 2;
	}
	s_Output = argv[1];
	fs::create_directories(s_Output);

	char pattern[] = "/tmp/mintyard_preview_shots_XXXXXX";
	const std::string root = mkdtemp(pattern) ? pattern : "/tmp/mintyard_preview_shots";
	const fs::path sample = fs::path(MINTYARD_SOURCE_DIR) / "sample";
	for (const char *folder : { "game", "content", "art", "sessions" })
		fs::copy(sample / folder, root + "/" + folder, fs::copy_options::recursive);
	setenv("MINTYARD_SCRATCH_DIR", (root + "/scratch").c_str(), 1);
	WriteTestBoxGame(root, TEST_BOX_OPEN);

	CTestToolHost host;
	s_pHost = &host.Host();
	CUtlString error;
	if (!host.Start(root + "/game/zarn", root + "/settings", &error))
	{
		fprintf(stderr, "%s\n", error.c_str());
		return 1;
	}
	ReloadGameData();
	RegisterImportPreviewEditorPage();
	MintyardWizardMessageHook() = [](QMessageBox::Icon, const QString &title, const QString &text, int, int) {
		printf("box: %s: %s\n", title.toUtf8().constData(), text.left(300).toUtf8().constData());
		return (int)QMessageBox::No;
	};

	const std::string sessions = root + "/sessions/";
	if (CQMintyardImportDialog *pWizard = OpenPreview(sessions + "wearable_bramble_head.session.txt"))
	{
		Shot(pWizard, "preview_01_wearable_bramble_head");
		CQImportPreviewEditor *pEditor = Editor(pWizard);
		pEditor->OnSelectWearables();
		if (CQWearablePicker *pPicker = pEditor->WearablePicker())
		{
			Shot(pPicker, "preview_02_wearable_picker");
			pEditor->OnSlotModelsSelected();
			pPicker->close();
		}
		Shot(pWizard, "preview_03_wearable_after_picker");
		delete pWizard;
	}
	if (CQMintyardImportDialog *pWizard = OpenPreview(sessions + "courier.session.txt"))
	{
		CQImportPreviewEditor *pEditor = Editor(pWizard);
		pEditor->OnEditAttachmentOffset();
		Shot(pWizard, "preview_04_courier");
		pEditor->ModelCombo()->setCurrentIndex(1);
		Shot(pWizard, "preview_05_courier_flying");
		delete pWizard;
	}
	if (CQMintyardImportDialog *pWizard = OpenPreview(sessions + "ward.session.txt"))
	{
		Shot(pWizard, "preview_06_ward");
		delete pWizard;
	}
	if (CQMintyardImportDialog *pWizard = OpenPreview(sessions + "bramble_thorn_volley.session.txt"))
	{
		Shot(pWizard, "preview_07_no_hero_thorn_volley");
		delete pWizard;
	}
	if (CQMintyardImportDialog *pWizard = OpenPreview(root + "/" + TEST_BOX_SESSION))
	{
		Editor(pWizard)->ShowMeshProblemsCheck()->setChecked(true);
		Shot(pWizard, "preview_08_mesh_problems");
		delete pWizard;
	}
	CToolSceneResources::Default().Flush();
	return 0;
}
