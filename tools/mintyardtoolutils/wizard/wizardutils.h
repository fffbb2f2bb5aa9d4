// What the pages of the import wizard share: translation of "#" tokens, the tool's images, the
// message lists as display text, the staff test, the small widgets that every page uses, and the
// two seams through which tests answer the wizard's message boxes and file dialogs.
#pragma once

#include <functional>

#include <QComboBox>
#include <QIcon>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QObject>
#include <QPixmap>
#include <QString>
#include <QStyle>

#include "core/utlvector.h"
#include "mintyardtoolutils/core/importmessages.h"

// The style sheet of every big button of the wizard, word for word.
extern const char *const g_pszMintyardBigButtonStyle;
// Gives a button that style sheet, with the light text that its slate needs.
class QPushButton;
void SetMintyardBigButtonStyle(QPushButton *pButton);

// "#" tokens through the framework's localisation; other texts stand as they are.
QString MintyardTranslate(const char *pszText);
QString MintyardTranslate(const CUtlString &text);
QString MintyardTranslate(const QString &text);

// Images from "game:" paths. A missing image gives the standard icon (or a null pixmap).
QIcon LoadWizardIcon(const char *pszPath, QStyle::StandardPixmap fallback = QStyle::SP_FileIcon);
QPixmap LoadWizardPixmap(const char *pszPath);
// The path of a "game:" image on disk, empty when it does not exist.
QString ResolveWizardImagePath(const char *pszPath);

// One entry as display text: slot 0 translated, then each following slot whose flag is set, in
// order and up to the first gap, substituted by QString::arg with its translation.
QString FormatImportMessage(const MintyardImportMessageEntry_t &entry);
// Entries separated by a blank line; FormatImportErrors takes the errors only.
QString FormatImportMessages(const CUtlVector<MintyardImportMessageEntry_t> &entries);
QString FormatImportMessages(const ImportMessageList &list);
QString FormatImportErrors(const CUtlVector<MintyardImportMessageEntry_t> &entries);
QString FormatImportErrors(const ImportMessageList &list);
bool HasImportError(const CUtlVector<MintyardImportMessageEntry_t> &entries);

// True when the Brume client runs and reports a development universe (2 or 4). It relaxes
// validation and opens the staff controls of the wizard.
bool IsDevelopmentUniverse();

// The folder the wizard's file dialogs open in: the home folder, then that of the last file chosen.
QString &MintyardDialogFolder();

// Message boxes of the wizard go through here, so that a test can answer them. With no hook a
// real modal box is shown. `buttons` are QMessageBox::StandardButtons; the result is the button.
typedef std::function<int(QMessageBox::Icon icon, const QString &title, const QString &text, int buttons, int defaultButton)>
	MintyardWizardMessageHook_t;
MintyardWizardMessageHook_t &MintyardWizardMessageHook();
int ShowWizardMessage(QWidget *pParent, QMessageBox::Icon icon, const QString &title, const QString &text,
	int buttons = QMessageBox::Ok, int defaultButton = QMessageBox::NoButton);

// File dialogs of the wizard, likewise. An empty result is a cancel.
enum EMintyardFileDialogKind
{
	MINTYARD_FILE_DIALOG_OPEN = 0,
	MINTYARD_FILE_DIALOG_SAVE = 1,
};
typedef std::function<QString(EMintyardFileDialogKind kind, const QString &caption, const QString &folder, const QString &filter)>
	MintyardWizardFileDialogHook_t;
MintyardWizardFileDialogHook_t &MintyardWizardFileDialogHook();
QString AskWizardFileName(QWidget *pParent, EMintyardFileDialogKind kind, const QString &caption, const QString &folder, const QString &filter);

// A tiny mapper: holds one integer, and its slot map() emits mapped(int) with it.
class CQConnectHelper_int : public QObject
{
	Q_OBJECT

public:
	CQConnectHelper_int(QObject *pParent, int nValue) : QObject(pParent), m_nValue(nValue) {}
	int Value() const { return m_nValue; }

public Q_SLOTS:
	void map() { Q_EMIT mapped(m_nValue); }

Q_SIGNALS:
	void mapped(int nValue);

private:
	int m_nValue;
};

// A word-wrapped label that a layout can shrink: its minimum width does not follow its longest
// word, so a long description never widens the page.
class CQSafeWordWrapLabel : public QLabel
{
	Q_OBJECT

public:
	explicit CQSafeWordWrapLabel(const QString &text, QWidget *pParent = nullptr);
	QSize minimumSizeHint() const override;
};

// A combo box whose text can be typed to find an entry; each item carries a 32-bit index as its
// data (-1 for the placeholder). It signals OnValueChanged(QString) when the current item changes.
class CQSmartComboBox : public QComboBox
{
	Q_OBJECT

public:
	explicit CQSmartComboBox(QWidget *pParent = nullptr);
	// The data of the current item; -1 when none.
	int CurrentData() const;

Q_SIGNALS:
	void OnValueChanged(const QString &text);

private Q_SLOTS:
	void OnCurrentIndexChanged(int nIndex);
};

// A line edit that takes a file dropped on it: the path of the first local file.
class CQDroppableLineEdit : public QLineEdit
{
	Q_OBJECT

public:
	explicit CQDroppableLineEdit(QWidget *pParent = nullptr);

protected:
	void dragEnterEvent(QDragEnterEvent *pEvent) override;
	void dropEvent(QDropEvent *pEvent) override;
};

// The wizard's dark look, which its colours (light blue flags, orange warnings, the big buttons'
// slate) are chosen for: set on the window, its pages and dialogs inherit it.
void ApplyMintyardWizardLook(QWidget *pWindow);

// A label and a colour as Qt takes them.
void SetWidgetTextColor(QWidget *pWidget, QPalette::ColorRole role, const QColor &color);
QFont MakeWizardFont(int nPixelSize, bool bBold);
