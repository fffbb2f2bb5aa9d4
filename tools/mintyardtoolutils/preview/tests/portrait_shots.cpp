// Pictures of the portrait page on the sample game, for looking at: a hero wearable (Bramble's
// crown of briars, on Bramble) and a courier (walking, then flying, the panel's courier controls
// shown), each imported into a copy of the sample tree first, with the wizard's look. Run under a
// display:
//
//   xvfb-run -a env QT_QPA_PLATFORM=xcb build/tests/portrait_shots OUTPUT_FOLDER
#include <cstdio>
#include <filesystem>
#include <string>

#include <QApplication>
#include <QComboBox>
#include <QPushButton>
#include <QElapsedTimer>
#include <QScrollArea>
#include <QThread>

#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/preview/portraiteditor.h"
#include "mintyardtoolutils/preview/portraitpanel.h"
#include "mintyardtoolutils/wizard/wizardutils.h"
#include "previewtestgame.h"
#include "testsupport/widget_shots.h"

namespace
{
std::string s_Output;

void Shot(CPreviewTestGame &game, QWidget *pWidget, const std::string &name)
{
	SaveWidgetShot(pWidget, s_Output, name, 400, [&game] { game.RunFrames(0.016f); });
}

int ShootSession(CPreviewTestGame &game, const char *pszSession, const char *pszName)
{
	CMintyardImportSession session;
	std::string messages;
	if (!game.ImportSession(session, pszSession, &messages))
	{
		fprintf(stderr, "%s does not import:\n%s", pszSession, messages.c_str());
		return 1;
	}
	// The page as the wizard shows it: in a scroll area of the wizard's look.
	QScrollArea window;
	window.setWidgetResizable(true);
	ApplyMintyardWizardLook(&window);
	CQZarnPortraitEditor *pPage = new CQZarnPortraitEditor;
	window.setWidget(pPage);
	window.resize(1280, 1000);
	window.show();
	pPage->AttachSession(&session);
	Shot(game, &window, std::string(pszName) + "_page");
	Shot(game, pPage->Panel(), std::string(pszName) + "_panel");
	// A portrait never framed: as the Frame button places it.
	if (pPage->Model().GetCameraPosition() == Vector())
	{
		pPage->Panel()->FrameButton()->click();
		Shot(game, &window, std::string(pszName) + "_framed_page");
	}
	// The next model (a courier's flying form), when there is one.
	if (session.m_Models.size() > 1)
	{
		pPage->ModelCombo()->setCurrentIndex(1);
		Shot(game, &window, std::string(pszName) + "_model1_page");
	}
	return 0;
}
} // namespace

int main(int argc, char **argv)
{
	if (argc < 2)
	{
		fprintf(stderr, "usage: portrait_shots OUTPUT_FOLDER\n");
		return 2;
	}
	QApplication application(argc, argv);
	s_Output = argv[1];
	std::filesystem::create_directories(s_Output);
	CPreviewTestGame game;
	if (!game.m_bReady)
		return 1;
	int nResult = 0;
	nResult |= ShootSession(game, "wearable_bramble_head", "portrait_wearable");
	nResult |= ShootSession(game, "courier", "portrait_courier");
	nResult |= ShootSession(game, "ward", "portrait_ward");
	return nResult;
}
