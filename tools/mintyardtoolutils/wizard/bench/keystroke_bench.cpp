// One keystroke in the name field of the input page, through the real widgets, up to the
// refreshed status line: the edit's text change, the element's value, the session's listeners
// (every input on the page revalidates), the wizard's validation and its buttons and status line.
// The session is the sample's with the most inputs on its page (the courier: two models, their
// levels, materials, animations and bundles); its name is the benchmark's label. Keys alternate between an 'X' (the name turns invalid: the status line
// shows the error) and a backspace (valid again: the line empties), so every keystroke changes
// the line (from what it says for the session as loaded). With "painting" the window is shown and the events a keystroke posts (layout, paint)
// are processed inside the measured time.
//
//   build/bench/wizard_keystroke_bench [--benchmark_repetitions=N]
#include <cstdlib>
#include <filesystem>
#include <string>

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QTest>

#include "filesystem/filesystem.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/wizard/importdialog.h"
#include "mintyardtoolutils/wizard/inputwidgets.h"
#include "mintyardtoolutils/wizard/wizardutils.h"
#include "testsupport/tool_host.h"
#include "toolframework/toolframework.h"

namespace
{
namespace fs = std::filesystem;

// The sample game in a folder of its own (the wizard writes nothing there in this benchmark).
struct CBenchGame
{
	CBenchGame()
	{
		char pattern[] = "/tmp/mintyard_bench_XXXXXX";
		if (mkdtemp(pattern))
			m_Root = pattern;
		const fs::path sample = fs::path(MINTYARD_SOURCE_DIR) / "sample/game";
		std::error_code error;
		fs::create_directories(m_Root + "/game/zarn", error);
		fs::copy(sample / "zarn/scripts", m_Root + "/game/zarn/scripts", fs::copy_options::recursive, error);
		fs::copy(sample / "core", m_Root + "/game/core", fs::copy_options::recursive, error);
		fs::create_directories(m_Root + "/content/zarn", error);
		m_bReady = m_Host.Start(m_Root + "/game/zarn", m_Root + "/settings");
		ReloadGameData();
		MintyardWizardMessageHook() = [](QMessageBox::Icon, const QString &, const QString &, int, int) { return (int)QMessageBox::No; };
	}
	~CBenchGame()
	{
		MintyardWizardMessageHook() = nullptr;
		std::error_code ignored;
		fs::remove_all(m_Root, ignored);
	}
	std::string m_Root;
	CTestToolHost m_Host;
	bool m_bReady = false;
};

void BM_NameKeystroke(benchmark::State &state)
{
	const bool bPainting = state.range(0) != 0;
	CBenchGame game;
	if (!game.m_bReady)
	{
		state.SkipWithError("the game tree did not start");
		return;
	}
	// The sample session whose input page has the most inputs.
	QString largest;
	int nLargest = 0;
	for (const fs::directory_entry &entry : fs::directory_iterator(fs::path(MINTYARD_SOURCE_DIR) / "sample/sessions"))
	{
		if (entry.path().string().find(".session.txt") == std::string::npos)
			continue;
		CQMintyardImportDialog probe(MINTYARD_WIZARD_NEW_SUBMISSION, nullptr);
		probe.Start(nullptr);
		probe.OpenFile(QString::fromStdString(entry.path().string()));
		const int nInputs = probe.CurrentPage() == MINTYARD_STEP_INPUTS ? probe.InputPicker()->Inputs().size() : 0;
		if (nInputs > nLargest)
		{
			nLargest = nInputs;
			largest = QString::fromStdString(entry.path().string());
		}
	}
	CQMintyardImportDialog *pWizard = new CQMintyardImportDialog(MINTYARD_WIZARD_NEW_SUBMISSION, nullptr);
	pWizard->Start(nullptr);
	pWizard->OpenFile(largest);
	CQMintyardUI_Input *pName = pWizard->InputPicker()->findChild<CQMintyardUI_Input *>("mintyard_import_name");
	if (pWizard->CurrentPage() != MINTYARD_STEP_INPUTS || !pName)
	{
		state.SkipWithError("no sample session loaded");
		delete pWizard;
		return;
	}
	state.SetLabel(fs::path(largest.toStdString()).filename().string());
	if (bPainting)
	{
		pWizard->show();
		QCoreApplication::processEvents();
	}
	QLineEdit *pEdit = pName->LineEdit();
	pEdit->setFocus();
	pEdit->end(false);
	const int nInputs = pWizard->InputPicker()->Inputs().size();
	// The line as the session stands (the courier session may have open problems of its own).
	const QString base = pWizard->StatusLabel()->text();
	bool bInvalid = false;
	int64_t nWrong = 0;
	for (auto _ : state)
	{
		if (!bInvalid)
			QTest::keyClick(pEdit, 'X');
		else
			QTest::keyClick(pEdit, Qt::Key_Backspace);
		if (bPainting)
			QCoreApplication::processEvents();
		bInvalid = !bInvalid;
		// The status line follows the keystroke at once.
		nWrong += (pWizard->StatusLabel()->text() == base) == bInvalid;
	}
	if (nWrong)
		state.SkipWithError(("the status line did not follow the keystrokes: '" + pWizard->StatusLabel()->text().toStdString() + "' for the name '" +
							 pEdit->text().toStdString() + "'").c_str());
	state.counters["inputs"] = nInputs;
	delete pWizard;
}
BENCHMARK(BM_NameKeystroke)->ArgName("painting")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
} // namespace

// The offscreen platform says on every shown window that it cannot pass size hints on.
void DropPlatformChatter(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
	if (message.contains("propagateSizeHints"))
		return;
	qt_message_output(type, context, message);
}

int main(int argc, char **argv)
{
	if (!getenv("QT_QPA_PLATFORM"))
		setenv("QT_QPA_PLATFORM", "offscreen", 1);
	qInstallMessageHandler(DropPlatformChatter);
	QApplication app(argc, argv);
	benchmark::Initialize(&argc, argv);
	benchmark::RunSpecifiedBenchmarks();
	benchmark::Shutdown();
	return 0;
}
