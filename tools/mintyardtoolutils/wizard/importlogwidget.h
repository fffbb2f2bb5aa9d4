// The import log page: what the import run is doing, its own progress lines and whatever the
// compiler reports, as rich text in a read-only edit.
#pragma once

#include <QColor>
#include <QElapsedTimer>
#include <QWidget>

#include "core/utlstring.h"
#include "mintyardtoolutils/core/importmessages.h"

class QTextEdit;

class CQMintyardImportLogWidget : public QWidget, public IMintyardImportLog
{
	Q_OBJECT

public:
	explicit CQMintyardImportLogWidget(QWidget *pParent = nullptr);

	// IMintyardImportLog: level 0 plain, 1 warning (yellow), anything else error (red).
	void LogMessage(int nLevel, const char *pszText) override;

	// Empties the buffer and resets the edit.
	void Clear();
	// Appends plain text: every "\n" becomes "<br>".
	void AddLine(const QString &text);
	// Appends the text in a colour.
	void AddLine(const QString &text, const QColor &color);
	// Shows the buffer in the edit and empties the buffer.
	void FlushToEdit();

	// The buffered rich text not yet shown.
	const CUtlString &Buffer() const { return m_Buffer; }
	QTextEdit *Edit() const { return m_pEdit; }
	// The edit's text as the author reads it.
	QString PlainText() const;

Q_SIGNALS:
	void ReadyStatusChanged();

private:
	void ResetEdit();
	// While a long run logs, the edit is brought up to date now and then.
	void RefreshWhileRunning();

	CUtlString m_Buffer;
	QTextEdit *m_pEdit = nullptr;
	QString m_Shown; // what the edit shows already (kept when the buffer is emptied)
	QElapsedTimer m_LastRefresh;
};

// Appending rules of the log, shared with the tests: the plain and the coloured forms.
CUtlString MintyardLogPlainHtml(const QString &text);
CUtlString MintyardLogColoredHtml(const QString &text, const QColor &color);
