#include "mintyardtoolutils/wizard/wizardutils.h"

#include <QApplication>
#include <QCompleter>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QMimeData>
#include <QPushButton>
#include <QUrl>

#include "brume/brume_api.h"
#include "mintyardtoolutils/wizard/wizardlog.h"
#include "toolframework/toolframework.h"

DEFINE_LOGGING_CHANNEL(LOG_MINTYARD_WIZARD, "MintyardManager");

const char *const g_pszMintyardBigButtonStyle =
	"QPushButton { \tbackground-color : rgb( 49, 69, 80 ); \tborder: 2px solid rgb( 143, 171, 187 ); \tborder-radius: 5px; "
	"\tpadding-left: 8px;\tpadding-right: 8px;\tpadding-top: 2px;\tpadding-bottom: 2px;\tfont: bold 16px; } "
	"QPushButton:hover:!pressed { \tbackground-color : rgb( 100, 140, 160 ); } "
	"QPushButton:!enabled { \tbackground-color : rgb( 49, 69, 80 ); \tborder: 2px solid rgb( 75, 87, 93 ); }";

void SetMintyardBigButtonStyle(QPushButton *pButton)
{
	pButton->setStyleSheet(g_pszMintyardBigButtonStyle);
	// A widget with a style sheet of its own draws with the application's palette unless its
	// own palette names the colour: the text is light on the slate of the sheet.
	QPalette palette;
	for (QPalette::ColorGroup group : { QPalette::Active, QPalette::Inactive })
		palette.setColor(group, QPalette::ButtonText, QColor(230, 232, 234));
	palette.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(120, 124, 128));
	pButton->setPalette(palette);
}

QString MintyardTranslate(const char *pszText)
{
	if (!pszText)
		return QString();
	if (ILocalize *pLocalize = Localize())
		return QString::fromUtf8(pLocalize->Translate(pszText));
	return QString::fromUtf8(pszText);
}

QString MintyardTranslate(const CUtlString &text)
{
	return MintyardTranslate(text.c_str());
}

QString MintyardTranslate(const QString &text)
{
	return MintyardTranslate(text.toUtf8().constData());
}

QString ResolveWizardImagePath(const char *pszPath)
{
	if (!pszPath || !*pszPath || !g_pToolFramework)
		return QString();
	const QString path = QString::fromUtf8(g_pToolFramework->ResolveResourcePath(pszPath).c_str());
	return !path.isEmpty() && QFileInfo::exists(path) ? path : QString();
}

QIcon LoadWizardIcon(const char *pszPath, QStyle::StandardPixmap fallback)
{
	const QString path = ResolveWizardImagePath(pszPath);
	if (path.isEmpty())
		return QApplication::style()->standardIcon(fallback);
	QIcon icon(path);
	return icon.isNull() ? QApplication::style()->standardIcon(fallback) : icon;
}

QPixmap LoadWizardPixmap(const char *pszPath)
{
	const QString path = ResolveWizardImagePath(pszPath);
	return path.isEmpty() ? QPixmap() : QPixmap(path);
}

QString FormatImportMessage(const MintyardImportMessageEntry_t &entry)
{
	QString text = MintyardTranslate(entry.m_Text[0]);
	for (int i = 1; i < MintyardImportMessageEntry_t::SLOT_COUNT; ++i)
	{
		// Up to the first gap; a text with no place left for an argument takes no more.
		if (!entry.m_bSet[i] || !text.contains('%'))
			break;
		text = text.arg(MintyardTranslate(entry.m_Text[i]));
	}
	return text;
}

namespace
{
QString JoinEntries(const CUtlVector<MintyardImportMessageEntry_t> &entries, bool bErrorsOnly)
{
	QString text;
	bool bFirst = true;
	for (const MintyardImportMessageEntry_t &entry : entries)
	{
		if (bErrorsOnly && !entry.isError)
			continue;
		if (!bFirst)
			text += "\n\n";
		text += FormatImportMessage(entry);
		bFirst = false;
	}
	return text;
}
} // namespace

QString FormatImportMessages(const CUtlVector<MintyardImportMessageEntry_t> &entries)
{
	return JoinEntries(entries, false);
}

QString FormatImportMessages(const ImportMessageList &list)
{
	return JoinEntries(list.Entries(), false);
}

QString FormatImportErrors(const CUtlVector<MintyardImportMessageEntry_t> &entries)
{
	return JoinEntries(entries, true);
}

QString FormatImportErrors(const ImportMessageList &list)
{
	return JoinEntries(list.Entries(), true);
}

bool HasImportError(const CUtlVector<MintyardImportMessageEntry_t> &entries)
{
	for (const MintyardImportMessageEntry_t &entry : entries)
	{
		if (entry.isError)
			return true;
	}
	return false;
}

bool IsDevelopmentUniverse()
{
	CBrumeAPIContext *pContext = BrumeAPIContext();
	if (!pContext || !pContext->BrumeUtils())
		return false;
	const int nUniverse = (int)pContext->BrumeUtils()->GetConnectedUniverse();
	return nUniverse == 2 || nUniverse == 4;
}

QString &MintyardDialogFolder()
{
	static QString s_Folder = QDir::homePath();
	return s_Folder;
}

MintyardWizardMessageHook_t &MintyardWizardMessageHook()
{
	static MintyardWizardMessageHook_t s_Hook;
	return s_Hook;
}

int ShowWizardMessage(QWidget *pParent, QMessageBox::Icon icon, const QString &title, const QString &text, int buttons, int defaultButton)
{
	if (MintyardWizardMessageHook())
		return MintyardWizardMessageHook()(icon, title, text, buttons, defaultButton);
	QMessageBox box(icon, title, text, QMessageBox::StandardButtons(buttons), pParent);
	if (defaultButton != QMessageBox::NoButton)
		box.setDefaultButton(QMessageBox::StandardButton(defaultButton));
	return box.exec();
}

MintyardWizardFileDialogHook_t &MintyardWizardFileDialogHook()
{
	static MintyardWizardFileDialogHook_t s_Hook;
	return s_Hook;
}

QString AskWizardFileName(QWidget *pParent, EMintyardFileDialogKind kind, const QString &caption, const QString &folder, const QString &filter)
{
	if (MintyardWizardFileDialogHook())
		return MintyardWizardFileDialogHook()(kind, caption, folder, filter);
	if (kind == MINTYARD_FILE_DIALOG_SAVE)
		return QFileDialog::getSaveFileName(pParent, caption, folder, filter);
	return QFileDialog::getOpenFileName(pParent, caption, folder, filter);
}

// ---------------------------------------------------------------------------------------------

CQSafeWordWrapLabel::CQSafeWordWrapLabel(const QString &text, QWidget *pParent) : QLabel(text, pParent)
{
	setWordWrap(true);
	setSizePolicy(QSizePolicy::Preferred, QSizePolicy::MinimumExpanding);
}

QSize CQSafeWordWrapLabel::minimumSizeHint() const
{
	const QSize hint = QLabel::minimumSizeHint();
	return QSize(qMin(hint.width(), 60), hint.height());
}

CQSmartComboBox::CQSmartComboBox(QWidget *pParent) : QComboBox(pParent)
{
	setEditable(true);
	setInsertPolicy(QComboBox::NoInsert);
	if (completer())
	{
		completer()->setCompletionMode(QCompleter::PopupCompletion);
		completer()->setFilterMode(Qt::MatchContains);
		completer()->setCaseSensitivity(Qt::CaseInsensitive);
	}
	connect(this, SIGNAL(currentIndexChanged(int)), this, SLOT(OnCurrentIndexChanged(int)));
}

int CQSmartComboBox::CurrentData() const
{
	const QVariant data = currentData(Qt::UserRole);
	return data.isValid() ? data.toInt() : -1;
}

void CQSmartComboBox::OnCurrentIndexChanged(int)
{
	Q_EMIT OnValueChanged(currentText());
}

CQDroppableLineEdit::CQDroppableLineEdit(QWidget *pParent) : QLineEdit(pParent)
{
	setAcceptDrops(true);
}

void CQDroppableLineEdit::dragEnterEvent(QDragEnterEvent *pEvent)
{
	if (pEvent->mimeData()->hasUrls())
	{
		for (const QUrl &url : pEvent->mimeData()->urls())
		{
			if (url.isLocalFile())
			{
				pEvent->acceptProposedAction();
				return;
			}
		}
	}
	QLineEdit::dragEnterEvent(pEvent);
}

void CQDroppableLineEdit::dropEvent(QDropEvent *pEvent)
{
	if (pEvent->mimeData()->hasUrls())
	{
		for (const QUrl &url : pEvent->mimeData()->urls())
		{
			if (url.isLocalFile())
			{
				setText(QDir::toNativeSeparators(url.toLocalFile()));
				pEvent->acceptProposedAction();
				return;
			}
		}
	}
	QLineEdit::dropEvent(pEvent);
}

void SetWidgetTextColor(QWidget *pWidget, QPalette::ColorRole role, const QColor &color)
{
	QPalette palette = pWidget->palette();
	palette.setColor(QPalette::Active, role, color);
	palette.setColor(QPalette::Inactive, role, color);
	palette.setColor(QPalette::Disabled, role, color);
	pWidget->setPalette(palette);
}

void ApplyMintyardWizardLook(QWidget *pWindow)
{
	QPalette palette = pWindow->palette();
	const QColor window(45, 48, 52), base(30, 32, 35), text(222, 224, 226), button(58, 62, 68);
	for (QPalette::ColorGroup group : { QPalette::Active, QPalette::Inactive })
	{
		palette.setColor(group, QPalette::Window, window);
		palette.setColor(group, QPalette::WindowText, text);
		palette.setColor(group, QPalette::Base, base);
		palette.setColor(group, QPalette::AlternateBase, window);
		palette.setColor(group, QPalette::Text, text);
		palette.setColor(group, QPalette::Button, button);
		palette.setColor(group, QPalette::ButtonText, text);
		palette.setColor(group, QPalette::BrightText, Qt::white);
		palette.setColor(group, QPalette::Highlight, QColor(51, 144, 192));
		palette.setColor(group, QPalette::HighlightedText, Qt::white);
		palette.setColor(group, QPalette::Link, QColor(120, 184, 232));
		palette.setColor(group, QPalette::LinkVisited, QColor(160, 150, 220));
		palette.setColor(group, QPalette::ToolTipBase, base);
		palette.setColor(group, QPalette::ToolTipText, text);
		palette.setColor(group, QPalette::Light, button.lighter(140));
		palette.setColor(group, QPalette::Midlight, button.lighter(115));
		palette.setColor(group, QPalette::Mid, button.darker(120));
		palette.setColor(group, QPalette::Dark, button.darker(160));
		palette.setColor(group, QPalette::Shadow, Qt::black);
	}
	palette.setColor(QPalette::Disabled, QPalette::Window, window);
	palette.setColor(QPalette::Disabled, QPalette::Base, window);
	palette.setColor(QPalette::Disabled, QPalette::Button, button);
	for (QPalette::ColorRole role : { QPalette::WindowText, QPalette::Text, QPalette::ButtonText })
		palette.setColor(QPalette::Disabled, role, QColor(120, 124, 128));
	pWindow->setPalette(palette);
	pWindow->setAutoFillBackground(true);
}

QFont MakeWizardFont(int nPixelSize, bool bBold)
{
	QFont font = QApplication::font();
	font.setPixelSize(nPixelSize);
	font.setBold(bBold);
	return font;
}
