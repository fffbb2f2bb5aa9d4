// A Qt plugin that drives the running tool inside the real host as an author would: it finds the
// main window, presses its actions, types into the publish form, drops a preview on it, answers
// the boxes that come up, and writes what it saw to a log that the test reads.
//
// The host loads it through Qt's generic plugins: QT_PLUGIN_PATH names a folder whose "generic"
// folder holds this library, and QT_QPA_GENERIC_PLUGINS=mintyardroad starts it. What it does:
//
//   MINTYARD_ROAD_DIR     folder for "road.log", the test's "go-<name>" files and "shots/"
//   MINTYARD_ROAD_SCRIPT  "publish" (new, re-upload, edit-only, delete), "coauthor"
//                         (a re-upload of a file that another account owns), "item" (a
//                         submission made in the import wizard, in an item mode) or "wearable"
//                         (a hero's wearable made of the art in <dir>/art, imported, previewed,
//                         framed, published, then re-uploaded with a changed texture) or
//                         "wearable_offline" (the same wearable sent to a service that went away)
//                         or "courier" (the wizard opened on a courier session by -item_file:
//                         imported, previewed, its portrait framed, published with its icons)
//
// Each step waits for what it needs, acts, and moves on; a step that cannot finish in 60 seconds
// writes "FAILED <step>: <why>" and ends the host with exit code 3. At a "checkpoint" the driver
// writes the line "checkpoint <name>" and waits for the test to create "go-<name>", so that the
// test can look at the service between steps.
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDesktopServices>
#include <QDialog>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QGenericPlugin>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QMimeData>
#include <QOpenGLWidget>
#include <QPointer>
#include <QProgressDialog>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QTableView>
#include <QTest>
#include <QTextEdit>
#include <QTimer>
#include <QUrl>

namespace
{
struct Step_t
{
	QString m_Name;
	std::function<bool(QString &why)> m_Run; // true when the step is done; `why` says what it waits for
};

QWidget *FindTopLevel(const char *className)
{
	for (QWidget *w : QApplication::topLevelWidgets())
		if (w->isVisible() && w->inherits(className))
			return w;
	return nullptr;
}

template <class T>
T *FindChildNamed(QWidget *parent, const char *name)
{
	return parent ? parent->findChild<T *>(name) : nullptr;
}

// A progress box of the tool is up (listing, packing, submitting, fetching a preview).
bool AnyProgressVisible()
{
	for (QWidget *w : QApplication::allWidgets())
		if (w->isVisible() && qobject_cast<QProgressDialog *>(w))
			return true;
	return false;
}
} // namespace

class CRoadDriver : public QObject
{
	Q_OBJECT
public:
	CRoadDriver()
	{
		m_Dir = QString::fromLocal8Bit(qgetenv("MINTYARD_ROAD_DIR"));
		m_Script = QString::fromLocal8Bit(qgetenv("MINTYARD_ROAD_SCRIPT"));
		QDir().mkpath(m_Dir + "/shots");
		m_pLog = fopen(QFile::encodeName(m_Dir + "/road.log").constData(), "a");
		// The pages the tool opens are written down instead of shown.
		QDesktopServices::setUrlHandler("http", this, "OpenUrl");
		QDesktopServices::setUrlHandler("https", this, "OpenUrl");
		if (m_Script == "publish")
			BuildPublishScript();
		else if (m_Script == "coauthor")
			BuildCoauthorScript();
		else if (m_Script == "item")
			BuildItemScript();
		else if (m_Script == "wearable")
			BuildWearableScript();
		else if (m_Script == "wearable_offline")
			BuildWearableOfflineScript();
		else if (m_Script == "courier")
			BuildCourierScript();
		else
			Log("FAILED start: unknown script \"" + m_Script + "\"");
		connect(&m_Timer, &QTimer::timeout, this, &CRoadDriver::Tick);
		m_Timer.start(20);
		m_StepStarted = std::chrono::steady_clock::now();
	}
	~CRoadDriver() override
	{
		if (m_pLog)
			fclose(m_pLog);
	}

public slots:
	void OpenUrl(const QUrl &url) { Log("opened " + url.toString()); }

private:
	void Log(const QString &line)
	{
		if (!m_pLog)
			return;
		fprintf(m_pLog, "%s\n", line.toUtf8().constData());
		fflush(m_pLog);
	}

	// Answers every message box that is up: Yes where it asks, otherwise its default button.
	void AnswerBoxes()
	{
		for (QWidget *w : QApplication::topLevelWidgets())
		{
			QMessageBox *box = qobject_cast<QMessageBox *>(w);
			if (!box || !box->isVisible() || m_Answered.contains(box))
				continue;
			m_Answered << box;
			Log("box " + box->windowTitle() + " | " + box->text().replace('\n', ' '));
			// The wizard asks to keep the session when it closes: the author keeps it when a file
			// name is ready for it.
			const bool bRefuse = box->windowTitle() == "Save the Session?" && m_FileAnswer.isEmpty();
			QAbstractButton *button = bRefuse ? box->button(QMessageBox::No) : box->button(QMessageBox::Yes);
			if (!button)
				button = box->defaultButton() ? static_cast<QAbstractButton *>(box->defaultButton()) : box->buttons().value(0);
			if (button)
				QTimer::singleShot(0, button, &QAbstractButton::click);
		}
		// A box that closed may come back (the same object shown again).
		for (int i = m_Answered.size() - 1; i >= 0; --i)
			if (!m_Answered[i] || !m_Answered[i]->isVisible())
				m_Answered.removeAt(i);
	}

	// Answers a file dialog that is up with the file name the script holds ready, or cancels it.
	void AnswerFileDialogs()
	{
		for (QWidget *w : QApplication::topLevelWidgets())
		{
			QFileDialog *dialog = qobject_cast<QFileDialog *>(w);
			if (!dialog || !dialog->isVisible() || m_AnsweredFiles.contains(dialog))
				continue;
			m_AnsweredFiles << dialog;
			Log("file dialog " + dialog->windowTitle() + " | " + (m_FileAnswer.isEmpty() ? QString("cancelled") : m_FileAnswer));
			const QString answer = m_FileAnswer;
			QTimer::singleShot(0, dialog, [this, dialog, answer] {
				if (answer.isEmpty())
				{
					dialog->reject();
					return;
				}
				dialog->selectFile(answer);
				// Typed into the name box as well, where a name of a file not yet there goes.
				if (QLineEdit *name = dialog->findChild<QLineEdit *>("fileNameEdit"))
					name->setText(answer);
				QMetaObject::invokeMethod(dialog, "accept"); // a protected slot, as its Open button calls it
				if (dialog->isVisible())
					Log("the file dialog stayed open with " + dialog->selectedFiles().join(", "));
			});
		}
		for (int i = m_AnsweredFiles.size() - 1; i >= 0; --i)
			if (!m_AnsweredFiles[i] || !m_AnsweredFiles[i]->isVisible())
				m_AnsweredFiles.removeAt(i);
	}

	void Tick()
	{
		AnswerBoxes();
		AnswerFileDialogs();
		if (m_nStep >= (int)m_Steps.size())
		{
			// The script is done and the host should be ending: every two seconds it does not, the
			// windows that keep it are written down.
			if (++m_nIdleTicks % 100 == 0)
			{
				QStringList open;
				for (QWidget *w : QApplication::topLevelWidgets())
					if (w->isVisible())
						open << QString(w->metaObject()->className()) + " " + w->windowTitle();
				Log("still open: " + open.join(", "));
			}
			return;
		}
		Step_t &step = m_Steps[m_nStep];
		QString why;
		if (step.m_Run(why))
		{
			Log("done " + step.m_Name);
			++m_nStep;
			m_StepStarted = std::chrono::steady_clock::now();
			return;
		}
		if (std::chrono::steady_clock::now() - m_StepStarted > std::chrono::seconds(60))
		{
			Log("FAILED " + step.m_Name + ": " + why);
			m_Timer.stop();
			QApplication::closeAllWindows();
			QCoreApplication::exit(3);
		}
	}

	void Add(const QString &name, std::function<bool(QString &)> run) { m_Steps.push_back({ name, std::move(run) }); }

	// Runs an action of the main window the way a click on its tool button would, later, so that a
	// box it opens runs its own loop outside this driver's tick.
	void AddTrigger(const QString &name, const char *actionName)
	{
		Add(name, [actionName](QString &why) {
			QWidget *window = FindTopLevel("CMainWindow");
			QAction *action = window ? window->findChild<QAction *>(actionName) : nullptr;
			if (!action || !action->isEnabled() || AnyProgressVisible())
			{
				why = QString("action %1 not there or not enabled").arg(actionName);
				return false;
			}
			QTimer::singleShot(0, action, &QAction::trigger);
			return true;
		});
	}

	// Waits until the main window stands idle with `rows` rows, one of them titled `title` (when
	// given).
	void AddWaitForList(const QString &name, int rows, const QString &title = QString())
	{
		Add(name, [this, rows, title](QString &why) {
			QTableView *table = FindChildNamed<QTableView>(FindTopLevel("CMainWindow"), "mintyard_published_files");
			if (!table || AnyProgressVisible() || FindTopLevel("CPublishFileDialog"))
			{
				why = "the window is busy";
				return false;
			}
			const int count = table->model()->rowCount();
			bool bFound = title.isEmpty();
			for (int r = 0; r < count; ++r)
				bFound = bFound || table->model()->index(r, 0).data().toString() == title;
			why = QString("%1 rows, \"%2\" %3").arg(count).arg(title).arg(bFound ? "listed" : "not listed");
			if (count != rows || !bFound)
				return false;
			// Steady for a moment: a refresh that is queued has not started yet.
			if (++m_nSteadyTicks < 10)
				return false;
			m_nSteadyTicks = 0;
			Log(QString("list %1 rows").arg(count));
			return true;
		});
	}

	void AddSelectRow(const QString &name, const QString &title)
	{
		Add(name, [title](QString &why) {
			QTableView *table = FindChildNamed<QTableView>(FindTopLevel("CMainWindow"), "mintyard_published_files");
			if (!table)
				return false;
			for (int r = 0; r < table->model()->rowCount(); ++r)
			{
				const QModelIndex index = table->model()->index(r, 0);
				if (index.data().toString() != title)
					continue;
				table->scrollTo(index);
				QTest::mouseClick(table->viewport(), Qt::LeftButton, Qt::NoModifier, table->visualRect(index).center());
				return table->selectionModel()->isRowSelected(r, QModelIndex());
			}
			why = "no row titled " + title;
			return false;
		});
	}

	// Waits for the publish form, with its preview fetched when it has one to fetch.
	void AddWaitForForm(const QString &name)
	{
		Add(name, [this](QString &why) {
			QWidget *dialog = FindTopLevel("CPublishFileDialog");
			why = dialog ? "the form is still busy" : "no publish form";
			if (!dialog || AnyProgressVisible())
				return false;
			if (++m_nSteadyTicks < 10)
				return false;
			m_nSteadyTicks = 0;
			return true;
		});
	}

	// Saves a picture of the form as it stands, for people to look at.
	void AddShot(const QString &name)
	{
		Add("shot " + name, [this, name](QString &) {
			if (QWidget *dialog = FindTopLevel("CPublishFileDialog"))
				dialog->grab().save(m_Dir + "/shots/" + name + ".png");
			return true;
		});
	}

	void AddType(const QString &name, const char *widgetName, const QString &text, bool bClearFirst)
	{
		Add(name, [widgetName, text, bClearFirst](QString &why) {
			QWidget *dialog = FindTopLevel("CPublishFileDialog");
			QWidget *edit = FindChildNamed<QWidget>(dialog, widgetName);
			if (!edit || !edit->isEnabled())
			{
				why = QString("no enabled %1").arg(widgetName);
				return false;
			}
			QWidget *target = edit;
			if (QTextEdit *textEdit = qobject_cast<QTextEdit *>(edit))
			{
				target = textEdit->viewport();
				QTest::mouseClick(target, Qt::LeftButton, Qt::NoModifier, QPoint(5, 5));
			}
			else
			{
				QTest::mouseClick(edit, Qt::LeftButton);
			}
			if (bClearFirst)
			{
				QTest::keyClick(edit, Qt::Key_A, Qt::ControlModifier);
				QTest::keyClick(edit, Qt::Key_Delete);
			}
			QTest::keyClicks(edit, text);
			return true;
		});
	}

	void AddClick(const QString &name, const char *widgetName)
	{
		Add(name, [widgetName](QString &why) {
			QAbstractButton *button = FindChildNamed<QAbstractButton>(FindTopLevel("CPublishFileDialog"), widgetName);
			if (!button || !button->isEnabled())
			{
				why = QString("no enabled %1").arg(widgetName);
				return false;
			}
			QTimer::singleShot(0, button, [button] { QTest::mouseClick(button, Qt::LeftButton); });
			return true;
		});
	}

	void AddChooseAddon(const QString &name, const QString &folder)
	{
		Add(name, [folder](QString &why) {
			QComboBox *combo = FindChildNamed<QComboBox>(FindTopLevel("CPublishFileDialog"), "mintyard_publish_addon");
			const int index = combo ? combo->findText(folder) : -1;
			if (index < 0)
			{
				why = "no addon " + folder + " to choose";
				return false;
			}
			combo->setCurrentIndex(index);
			return true;
		});
	}

	void AddTickTag(const QString &name, const QString &tag)
	{
		Add(name, [tag](QString &why) {
			QWidget *dialog = FindTopLevel("CPublishFileDialog");
			for (QCheckBox *box : dialog ? dialog->findChildren<QCheckBox *>() : QList<QCheckBox *>())
			{
				if (box->property("extra_mintyard_tag").toString() == tag)
				{
					QTest::mouseClick(box, Qt::LeftButton, Qt::NoModifier, QPoint(4, box->height() / 2));
					return true;
				}
			}
			why = "no box for the tag " + tag;
			return false;
		});
	}

	// Drops an image file on the form, as from a file manager.
	void AddDropImage(const QString &name, const QString &path)
	{
		Add(name, [path](QString &why) {
			QWidget *dialog = FindTopLevel("CPublishFileDialog");
			if (!dialog)
			{
				why = "no publish form";
				return false;
			}
			QMimeData mime;
			mime.setUrls({ QUrl::fromLocalFile(path) });
			const QPoint at = dialog->rect().center();
			QDragEnterEvent enter(at, Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
			QApplication::sendEvent(dialog, &enter);
			if (!enter.isAccepted())
			{
				why = "the form does not take " + path;
				return false;
			}
			QDropEvent drop(at, Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
			QApplication::sendEvent(dialog, &drop);
			return true;
		});
	}

	void AddCheckpoint(const QString &name)
	{
		Add("checkpoint " + name, [this, name](QString &why) {
			if (!m_bCheckpointLogged)
			{
				Log("checkpoint " + name);
				m_bCheckpointLogged = true;
			}
			why = "the test did not say go";
			if (!QFile::exists(m_Dir + "/go-" + name))
				return false;
			m_bCheckpointLogged = false;
			return true;
		});
	}

	void AddLogTitles(const QString &name)
	{
		Add(name, [this](QString &) {
			QWidget *dialog = FindTopLevel("CPublishFileDialog");
			QLineEdit *title = FindChildNamed<QLineEdit>(dialog, "mintyard_publish_title");
			if (title)
				Log("form title " + title->text() + (title->isEnabled() ? "" : " (locked)"));
			if (FindChildNamed<QWidget>(dialog, "mintyard_publish_lock"))
				Log("form lock shown");
			return true;
		});
	}

	void AddQuit()
	{
		AddTrigger("exit", "mintyard_action_exit");
	}

	void BuildPublishScript()
	{
		const QString preview = m_Dir + "/preview.png";
		AddWaitForList("start", 0);
		AddTrigger("new", "mintyard_action_new");
		AddWaitForForm("new form");
		AddShot("new");
		AddType("type title", "mintyard_publish_title", "Arena Lights", false);
		AddType("type description", "mintyard_publish_description", "Lamps around the arena.", false);
		AddChooseAddon("choose addon", "arena_lights");
		AddDropImage("drop preview", preview);
		AddClick("public", "mintyard_publish_public");
		AddShot("new filled");
		AddClick("submit new", "mintyard_publish_submit");
		AddWaitForList("listed", 1, "Arena Lights");
		AddCheckpoint("published");

		AddSelectRow("select for re-upload", "Arena Lights");
		AddTrigger("re-upload", "mintyard_action_reupload");
		AddWaitForForm("re-upload form");
		AddShot("update");
		AddLogTitles("re-upload form title");
		AddChooseAddon("keep addon", "arena_lights");
		AddType("type change note", "mintyard_publish_changenote", "Brighter lamps.", false);
		AddClick("submit re-upload", "mintyard_publish_submit");
		AddWaitForList("relisted", 1, "Arena Lights");
		AddCheckpoint("reuploaded");

		AddSelectRow("select for edit", "Arena Lights");
		AddTrigger("edit", "mintyard_action_edit");
		AddWaitForForm("edit form");
		AddShot("edit-only");
		AddType("retype title", "mintyard_publish_title", "Arena Lights Deluxe", true);
		AddTickTag("tick tag", "Hearthfrost 2017");
		AddClick("submit edit", "mintyard_publish_submit");
		AddWaitForList("renamed", 1, "Arena Lights Deluxe");
		AddCheckpoint("edited");

		AddSelectRow("select for delete", "Arena Lights Deluxe");
		AddTrigger("delete", "mintyard_action_delete");
		AddWaitForList("deleted", 0);
		AddCheckpoint("deleted");
		AddQuit();
	}

	// The signed-in account is a co-author of a file that another account owns.
	void BuildCoauthorScript()
	{
		AddWaitForList("start", 1, "Shared Lamps");
		AddSelectRow("select", "Shared Lamps");
		AddTrigger("re-upload", "mintyard_action_reupload");
		AddWaitForForm("re-upload form");
		AddShot("not-owned");
		AddLogTitles("form title");
		AddType("type change note", "mintyard_publish_changenote", "Co-author fix.", false);
		AddClick("submit", "mintyard_publish_submit");
		AddWaitForList("relisted", 1, "Shared Lamps");
		AddCheckpoint("reuploaded");
		AddQuit();
	}

	// Steps in the import wizard.
	void AddWizardClick(const QString &name, const QString &objectName, const QString &text = QString())
	{
		Add(name, [objectName, text](QString &why) {
			QWidget *wizard = FindTopLevel("CQMintyardImportDialog");
			QAbstractButton *button = nullptr;
			for (QAbstractButton *b : wizard ? wizard->findChildren<QAbstractButton *>() : QList<QAbstractButton *>())
				if ((objectName.isEmpty() || b->objectName() == objectName) && (text.isEmpty() || b->text() == text) && b->isVisible())
					button = b;
			if (!button || !button->isEnabled() || QApplication::activeModalWidget())
			{
				why = QString("no enabled button %1 %2 in the wizard").arg(objectName, text);
				return false;
			}
			QTimer::singleShot(0, button, [button] { QTest::mouseClick(button, Qt::LeftButton); });
			return true;
		});
	}

	// Types into the n-th line edit of the wizard's page.
	void AddWizardType(const QString &name, int nEdit, const QString &text)
	{
		Add(name, [nEdit, text](QString &why) {
			QWidget *wizard = FindTopLevel("CQMintyardImportDialog");
			QList<QLineEdit *> edits;
			for (QLineEdit *edit : wizard ? wizard->findChildren<QLineEdit *>() : QList<QLineEdit *>())
				if (edit->isVisible())
					edits << edit;
			if (nEdit >= edits.size())
			{
				why = QString("%1 line edits on the page").arg(edits.size());
				return false;
			}
			QTest::mouseClick(edits[nEdit], Qt::LeftButton);
			QTest::keyClicks(edits[nEdit], text);
			return true;
		});
	}

	void AddWizardWaitFor(const QString &name, const QString &objectName)
	{
		Add(name, [this, objectName](QString &why) {
			QWidget *wizard = FindTopLevel("CQMintyardImportDialog");
			QWidget *widget = FindChildNamed<QWidget>(wizard, objectName.toUtf8().constData());
			why = "the wizard shows no " + objectName;
			if (!widget || !widget->isVisible() || QApplication::activeModalWidget())
				return false;
			if (++m_nSteadyTicks < 5)
				return false;
			m_nSteadyTicks = 0;
			return true;
		});
	}

	void AddWizardShot(const QString &name)
	{
		Add("shot " + name, [this, name](QString &) {
			if (QWidget *wizard = FindTopLevel("CQMintyardImportDialog"))
				wizard->grab().save(m_Dir + "/shots/" + name + ".png");
			return true;
		});
	}

	// In an item mode: a contract made in the wizard, its zip handed to the publish form, and the
	// wizard gone once the form was accepted.
	void BuildItemScript()
	{
		AddWaitForList("start", 0);
		AddTrigger("new", "mintyard_action_new");
		AddWizardClick("contract only", QString(), "Contract Only"); // and Yes to its question
		AddWizardWaitFor("inputs", "mintyard_import_name");
		AddWizardType("type name", 0, "road_contract");
		AddWizardType("type notes", 1, "The whole road.");
		AddWizardShot("wizard inputs");
		AddWizardClick("next to the log", "mintyard_next");
		AddWizardWaitFor("log", "mintyard_import_log");
		AddWizardShot("wizard log");
		AddWizardClick("next to submit", "mintyard_next");
		AddWizardWaitFor("submit page", "mintyard_submit_new");
		AddWizardShot("wizard submit");
		AddWizardClick("submit new", "mintyard_submit_new");
		AddWaitForForm("item form");
		AddShot("item");
		AddType("type title", "mintyard_publish_title", "Road Contract", false);
		AddType("type description", "mintyard_publish_description", "Made in the import wizard.", false);
		AddDropImage("drop preview", m_Dir + "/preview.png");
		AddClick("public", "mintyard_publish_public");
		AddClick("submit", "mintyard_publish_submit");
		AddWaitForList("listed", 1, "Road Contract");
		Add("the wizard went", [](QString &why) {
			why = "the wizard is still open";
			return FindTopLevel("CQMintyardImportDialog") == nullptr;
		});
		AddCheckpoint("published");
		AddQuit();
	}

	// Fills the wizard's input named after a template element, as an author typing or pasting a
	// file name.
	void AddWizardInput(const QString &name, const QString &elementId, const QString &text)
	{
		Add(name, [elementId, text](QString &why) {
			QWidget *wizard = FindTopLevel("CQMintyardImportDialog");
			QLineEdit *edit = nullptr;
			for (QLineEdit *e : wizard ? wizard->findChildren<QLineEdit *>("mintyard_input_" + elementId) : QList<QLineEdit *>())
				if (!edit && e->isEnabled())
					edit = e;
			if (!edit || QApplication::activeModalWidget())
			{
				QStringList names;
				for (QLineEdit *e : wizard ? wizard->findChildren<QLineEdit *>() : QList<QLineEdit *>())
					if (e->objectName().startsWith("mintyard_input_"))
						names << e->objectName().mid(15);
				why = "the wizard shows no input " + elementId + " (it shows " + names.join(", ") + ")";
				return false;
			}
			edit->selectAll();
			edit->insert(text);
			Q_EMIT edit->editingFinished();
			return edit->text() == text;
		});
	}

	// The hero dialog of the type pick: a hero and the slot whose name holds `slotWord`.
	void AddPickHeroSlot(const QString &name, const QString &hero, const QString &slotWord)
	{
		Add(name, [hero, slotWord](QString &why) {
			QWidget *dialog = FindTopLevel("CQMintyardHeroItemDialog");
			QComboBox *heroes = FindChildNamed<QComboBox>(dialog, "mintyard_hero_combo");
			QComboBox *slotCombo = FindChildNamed<QComboBox>(dialog, "mintyard_slot_combo");
			if (!heroes || !slotCombo)
			{
				why = "no hero dialog";
				return false;
			}
			const int nHero = heroes->findText(hero);
			if (nHero < 0)
			{
				why = "no hero " + hero + " to pick";
				return false;
			}
			if (heroes->currentIndex() != nHero)
				heroes->setCurrentIndex(nHero);
			int nSlot = -1;
			for (int i = 1; i < slotCombo->count() && nSlot < 0; ++i)
				if (slotCombo->itemText(i).contains(slotWord, Qt::CaseInsensitive))
					nSlot = i;
			if (nSlot < 0)
			{
				why = "no slot " + slotWord + " for " + hero;
				return false;
			}
			slotCombo->setCurrentIndex(nSlot);
			for (QPushButton *button : dialog->findChildren<QPushButton *>())
			{
				if (button->text() == "Select" && button->isEnabled())
				{
					QTimer::singleShot(0, button, [button] { QTest::mouseClick(button, Qt::LeftButton); });
					return true;
				}
			}
			why = "the hero dialog's Select is not enabled";
			return false;
		});
	}

	// Waits until the import log holds `text`, and writes the log's last lines when it ends
	// without it.
	void AddWizardLogSays(const QString &name, const QString &text)
	{
		Add(name, [this, text](QString &why) {
			QPlainTextEdit *log = FindChildNamed<QPlainTextEdit>(FindTopLevel("CQMintyardImportDialog"), "mintyard_import_log");
			QTextEdit *rich = FindChildNamed<QTextEdit>(FindTopLevel("CQMintyardImportDialog"), "mintyard_import_log");
			const QString shown = log ? log->toPlainText() : rich ? rich->toPlainText() : QString();
			why = "the import log does not say \"" + text + "\": " + shown.right(600);
			if (!shown.contains(text))
				return false;
			for (const QString &line : shown.split('\n'))
				if (line.startsWith("Import took"))
					Log("import log " + line);
			return true;
		});
	}

	// Next through the pages until the one that shows `objectName`; a page that holds Next back
	// until the author frames the portrait gets its Frame button pressed.
	void AddWizardNextUntil(const QString &name, const QString &objectName, const QString &shotPrefix)
	{
		Add(name, [this, objectName, shotPrefix](QString &why) {
			QWidget *wizard = FindTopLevel("CQMintyardImportDialog");
			QWidget *target = FindChildNamed<QWidget>(wizard, objectName.toUtf8().constData());
			if (target && target->isVisible())
				return true;
			why = "the wizard shows no " + objectName;
			QAbstractButton *next = FindChildNamed<QAbstractButton>(wizard, "mintyard_next");
			if (!next || !next->isVisible() || QApplication::activeModalWidget())
				return false;
			if (++m_nSteadyTicks < 10)
				return false;
			m_nSteadyTicks = 0;
			const QString page = QString::number(m_nShot);
			wizard->grab().save(QString("%1/shots/%2 %3.png").arg(m_Dir, shotPrefix).arg(m_nShot++));
			if (!next->isEnabled())
			{
				for (QAbstractButton *b : wizard->findChildren<QAbstractButton *>())
				{
					if (b->isVisible() && b->isEnabled() && b->text() == "Frame")
					{
						Log("frame on " + page);
						QTest::mouseClick(b, Qt::LeftButton);
						return false;
					}
				}
				QLabel *status = FindChildNamed<QLabel>(wizard, "mintyard_status");
				why = "Next is held back: " + (status ? status->text() : QString());
				return false;
			}
			Log("next from " + page);
			QTimer::singleShot(0, next, [next] { QTest::mouseClick(next, Qt::LeftButton); });
			return false;
		});
	}

	// Once a 3D view of the wizard has drawn for a moment: how much of its middle (where a framed
	// model stands) is coloured, in percent, logged as "<label> drawn WxH, middle N% coloured".
	// The sky, the ground and the grid are grey; the models' textures are not. The view is the
	// visible one of class `viewClass`, or the largest visible one.
	void AddLookAtView(const QString &name, const QString &label, const char *viewClass = nullptr)
	{
		Add(name, [this, label, viewClass](QString &why) {
			QWidget *wizard = FindTopLevel("CQMintyardImportDialog");
			QOpenGLWidget *view = nullptr;
			for (QOpenGLWidget *w : wizard ? wizard->findChildren<QOpenGLWidget *>() : QList<QOpenGLWidget *>())
			{
				if (!w->isVisible() || (viewClass && !w->inherits(viewClass)))
					continue;
				if (!view || w->width() * w->height() > view->width() * view->height())
					view = w;
			}
			why = "no visible 3D view for " + label;
			if (!view || QApplication::activeModalWidget())
				return false;
			if (++m_nSteadyTicks < 25) // half a second of frames
				return false;
			m_nSteadyTicks = 0;
			const QImage image = view->grabFramebuffer();
			image.save(m_Dir + "/shots/" + label + " view.png");
			int nColoured = 0, nTotal = 0;
			for (int y = image.height() / 5; y < image.height() * 4 / 5; ++y)
			{
				for (int x = image.width() * 2 / 5; x < image.width() * 3 / 5; ++x, ++nTotal)
				{
					const QRgb c = image.pixel(x, y);
					nColoured += qMax(qRed(c), qMax(qGreen(c), qBlue(c))) - qMin(qRed(c), qMin(qGreen(c), qBlue(c))) > 16;
				}
			}
			Log(QString("%1 drawn %2x%3, middle %4% coloured").arg(label).arg(image.width()).arg(image.height()).arg(nTotal ? nColoured * 100 / nTotal : 0));
			return true;
		});
	}

	void AddFileAnswer(const QString &name, const QString &path)
	{
		Add(name, [this, path](QString &) {
			m_FileAnswer = path;
			return true;
		});
	}

	// From the start to the filled publish form of a wearable for Bramble's head, made of the art
	// the test put in <dir>/art: picked, filled, imported, through the preview and the portrait.
	void AddWearableToTheForm()
	{
		const QString art = m_Dir + "/art/";
		AddWaitForList("start", 0);
		AddTrigger("new", "mintyard_action_new");
		AddWizardClick("hero item", QString(), "Hero Item");
		AddPickHeroSlot("pick Bramble's head", "Bramble", "head");
		AddWizardWaitFor("inputs", "mintyard_import_name");
		AddWizardInput("type name", "name", "briar_crown");
		AddWizardInput("portrait mesh", "mesh_portrait", art + "bramble_head.fbx");
		AddWizardInput("world mesh", "mesh_world", art + "bramble_head_lod1.fbx");
		AddWizardInput("colour texture", "color", art + "bramble_head_color.png");
		AddWizardInput("normal texture", "normal", art + "bramble_head_normal.png");
		AddWizardShot("wearable inputs");
		AddWizardClick("import", "mintyard_next");
		AddWizardWaitFor("log", "mintyard_import_log");
		AddWizardLogSays("import succeeded", "Import successful!");
		AddWizardShot("wearable log");
		AddWizardClick("to the preview", "mintyard_next");
		AddLookAtView("the preview", "preview");
		AddWizardNextUntil("to submit", "mintyard_submit_new", "wearable page");
		AddWizardShot("wearable submit");
		AddWizardClick("submit new", "mintyard_submit_new");
		AddWaitForForm("wearable form");
		AddShot("wearable form");
		AddType("type title", "mintyard_publish_title", "Briar Crown", false);
		AddType("type description", "mintyard_publish_description", "A crown of thorns for Bramble.", false);
		AddDropImage("drop preview", m_Dir + "/preview.png");
		AddClick("public", "mintyard_publish_public");
	}

	// The wearable published with its session kept; then a re-upload of it with a changed colour
	// texture and a change note.
	void BuildWearableScript()
	{
		const QString art = m_Dir + "/art/";
		AddWearableToTheForm();
		AddFileAnswer("keep the session", m_Dir + "/briar_crown.session.txt");
		AddClick("submit", "mintyard_publish_submit");
		AddWaitForList("listed", 1, "Briar Crown");
		Add("the wizard went", [](QString &why) {
			why = "the wizard is still open";
			return FindTopLevel("CQMintyardImportDialog") == nullptr;
		});
		AddCheckpoint("published");

		AddSelectRow("select for re-upload", "Briar Crown");
		AddTrigger("re-upload", "mintyard_action_reupload"); // the kept session, from its file dialog
		AddWizardWaitFor("inputs again", "mintyard_import_name");
		AddWizardInput("changed colour texture", "color", art + "bramble_head_color_v2.png");
		AddWizardShot("wearable inputs again");
		AddWizardClick("import again", "mintyard_next");
		AddWizardWaitFor("log again", "mintyard_import_log");
		AddWizardLogSays("import succeeded again", "Import successful!");
		AddWizardNextUntil("to submit again", "mintyard_submit_update", "wearable again page");
		AddWizardClick("submit update", "mintyard_submit_update");
		AddWaitForForm("update form");
		AddShot("wearable update form");
		AddLogTitles("update form title");
		AddType("type change note", "mintyard_publish_changenote", "Brighter thorns.", false);
		AddClick("submit update", "mintyard_publish_submit");
		AddWaitForList("relisted", 1, "Briar Crown");
		Add("the wizard went again", [](QString &why) {
			why = "the wizard is still open";
			return FindTopLevel("CQMintyardImportDialog") == nullptr;
		});
		AddCheckpoint("reuploaded");
		AddQuit();
	}

	// The service goes away while the form is up: the submission fails with a message, and the
	// wizard stays with the author's inputs.
	void BuildWearableOfflineScript()
	{
		AddWearableToTheForm();
		AddCheckpoint("form ready"); // the test stops the service here
		AddClick("submit", "mintyard_publish_submit");
		Add("a message", [this](QString &why) {
			why = "no message about the failed submission";
			return Contains(ReadLog(), "\nbox ");
		});
		Add("the wizard kept the inputs", [this](QString &why) {
			QWidget *wizard = FindTopLevel("CQMintyardImportDialog");
			QLineEdit *name = FindChildNamed<QLineEdit>(wizard, "mintyard_input_name");
			QLineEdit *colour = FindChildNamed<QLineEdit>(wizard, "mintyard_input_color");
			why = "the wizard or its inputs are gone";
			if (!name || !colour || AnyProgressVisible())
				return false;
			Log("wizard kept " + name->text() + " " + QFileInfo(colour->text()).fileName());
			return true;
		});
		AddCheckpoint("kept");
		AddQuit();
	}

	// The wizard that -item_file opened on the sample courier: imported, its preview and its
	// portrait looked at (the portrait framed with Frame), submitted with its icons drawn, published.
	void BuildCourierScript()
	{
		AddWizardWaitFor("inputs", "mintyard_import_name");
		AddWizardShot("courier inputs");
		AddWizardClick("import", "mintyard_next");
		AddWizardWaitFor("log", "mintyard_import_log");
		AddWizardLogSays("import succeeded", "Import successful!");
		AddWizardClick("to the preview", "mintyard_next");
		AddLookAtView("the preview", "preview");
		AddWizardShot("courier preview");
		AddWizardClick("to the portrait", "mintyard_next");
		AddLookAtView("the portrait", "portrait", "CQZarnPortraitViewer");
		AddWizardClick("frame", QString(), "Frame");
		AddLookAtView("the framed portrait", "framed portrait", "CQZarnPortraitViewer");
		AddWizardShot("courier portrait");
		AddWizardNextUntil("to submit", "mintyard_submit_new", "courier page");
		AddWizardClick("submit new", "mintyard_submit_new");
		AddWaitForForm("courier form");
		AddType("type title", "mintyard_publish_title", "Sample Courier", false);
		AddType("type description", "mintyard_publish_description", "A courier of the sample game.", false);
		AddDropImage("drop preview", m_Dir + "/preview.png");
		AddClick("public", "mintyard_publish_public");
		AddClick("submit", "mintyard_publish_submit");
		AddWaitForList("listed", 1, "Sample Courier");
		Add("the wizard went", [](QString &why) {
			why = "the wizard is still open";
			return FindTopLevel("CQMintyardImportDialog") == nullptr;
		});
		AddCheckpoint("published");
		AddQuit();
	}

	QString ReadLog() const
	{
		QFile file(m_Dir + "/road.log");
		return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
	}
	static bool Contains(const QString &text, const QString &part) { return text.contains(part); }

	QString m_Dir;
	QString m_Script;
	FILE *m_pLog = nullptr;
	QTimer m_Timer;
	std::vector<Step_t> m_Steps;
	int m_nStep = 0;
	int m_nSteadyTicks = 0;
	int m_nShot = 0;
	int m_nIdleTicks = 0;
	bool m_bCheckpointLogged = false;
	std::chrono::steady_clock::time_point m_StepStarted;
	QList<QPointer<QMessageBox>> m_Answered;
	QList<QPointer<QFileDialog>> m_AnsweredFiles;
	QString m_FileAnswer; // what the author picks in the next file dialog; empty: cancel
};

class CRoadDriverPlugin : public QGenericPlugin
{
	Q_OBJECT
	Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "roaddriver.json")
public:
	QObject *create(const QString &key, const QString &) override
	{
		return key.compare("mintyardroad", Qt::CaseInsensitive) == 0 ? new CRoadDriver() : nullptr;
	}
};

#include "roaddriver.moc"
