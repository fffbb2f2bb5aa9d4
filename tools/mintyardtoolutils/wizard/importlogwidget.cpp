#include "mintyardtoolutils/wizard/importlogwidget.h"

#include <QTextEdit>
#include <QVBoxLayout>

namespace
{
// How often a long run's lines reach the edit while the run goes on.
constexpr qint64 REFRESH_INTERVAL_MS = 250;
} // namespace

CUtlString MintyardLogPlainHtml(const QString &text)
{
	QString html = text.toHtmlEscaped();
	html.replace("\n", "<br>");
	return CUtlString(html.toUtf8().constData());
}

CUtlString MintyardLogColoredHtml(const QString &text, const QColor &color)
{
	CUtlString html = "<font color='";
	html += color.name().toUtf8().constData();
	html += "'>";
	html += MintyardLogPlainHtml(text);
	html += "</font>";
	return html;
}

CQMintyardImportLogWidget::CQMintyardImportLogWidget(QWidget *pParent) : QWidget(pParent)
{
	QVBoxLayout *pLayout = new QVBoxLayout(this);
	pLayout->setContentsMargins(0, 0, 0, 0);
	m_pEdit = new QTextEdit(this);
	m_pEdit->setObjectName("mintyard_import_log");
	m_pEdit->setMinimumHeight(400);
	// Warnings are yellow: the log keeps a dark ground so that they stay readable.
	QPalette palette = m_pEdit->palette();
	palette.setColor(QPalette::Base, QColor(32, 34, 37));
	palette.setColor(QPalette::Text, QColor(220, 220, 220));
	m_pEdit->setPalette(palette);
	pLayout->addWidget(m_pEdit, 1);
	ResetEdit();
	m_LastRefresh.start();
}

void CQMintyardImportLogWidget::ResetEdit()
{
	m_pEdit->setHtml(QString());
	m_pEdit->setLineWrapMode(QTextEdit::NoWrap);
	m_pEdit->setReadOnly(true);
	m_pEdit->setAcceptRichText(true);
	QFont font("Courier New");
	font.setStyleHint(QFont::Monospace);
	m_pEdit->setFont(font);
}

void CQMintyardImportLogWidget::LogMessage(int nLevel, const char *pszText)
{
	const QString text = QString::fromUtf8(pszText ? pszText : "");
	if (nLevel == MINTYARD_IMPORT_LOG_INFO)
		AddLine(text);
	else if (nLevel == MINTYARD_IMPORT_LOG_WARNING)
		AddLine(text, QColor(Qt::yellow));
	else
		AddLine(text, QColor(Qt::red));
	RefreshWhileRunning();
}

void CQMintyardImportLogWidget::Clear()
{
	m_Buffer.clear();
	m_Shown.clear();
	ResetEdit();
	m_LastRefresh.restart();
}

void CQMintyardImportLogWidget::AddLine(const QString &text)
{
	m_Buffer += MintyardLogPlainHtml(text);
}

void CQMintyardImportLogWidget::AddLine(const QString &text, const QColor &color)
{
	m_Buffer += MintyardLogColoredHtml(text, color);
}

void CQMintyardImportLogWidget::FlushToEdit()
{
	m_Shown += QString::fromUtf8(m_Buffer.c_str());
	m_Buffer.clear();
	m_pEdit->setHtml(m_Shown);
	m_LastRefresh.restart();
}

void CQMintyardImportLogWidget::RefreshWhileRunning()
{
	if (m_LastRefresh.elapsed() < REFRESH_INTERVAL_MS || !isVisible())
		return;
	m_pEdit->setHtml(m_Shown + QString::fromUtf8(m_Buffer.c_str()));
	m_pEdit->repaint();
	m_LastRefresh.restart();
}

QString CQMintyardImportLogWidget::PlainText() const
{
	return m_pEdit->toPlainText();
}
