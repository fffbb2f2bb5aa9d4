// The last page of the wizard. For an author's submission (modes 0 and 1) it shows the finished
// zip and offers the button that leads to the publish dialog (Submit New or Submit Update); the
// wizard shell answers SubmitPressed() by handing the zip over.
#pragma once

#include <QWidget>

#include "core/platform.h"
#include "core/utlstring.h"

class CMintyardImportSession;
class CMintyardCfgSafeString;
class CQSafeWordWrapLabel;
class QCheckBox;
class QLabel;
class QPushButton;
class QVBoxLayout;
class QHBoxLayout;

class CQMintyardSubmitWidget : public QWidget
{
	Q_OBJECT

public:
	enum
	{
		SUBMIT_MODE_NEW = 0,
		SUBMIT_MODE_UPDATE = 1,
		SUBMIT_MODE_ITEM_DEFINITION = 2,
	};

	explicit CQMintyardSubmitWidget(QWidget *pParent = nullptr);

	// Entry from the shell: the mode, the session and whether problems are unresolved.
	void Prepare(int nMode, CMintyardImportSession *pSession, bool bUnresolvedErrors);
	// The zip that the shell built on entering the page, and its size in bytes.
	void SetZip(const CUtlString &path, uint64 nSize);

	// True in a development universe, or for an account named in $MINTYARD_STAFF_ACCOUNTS
	// (decimal ids separated by commas or blanks): such a user may submit over unresolved problems.
	static bool IsPrivilegedUser();

	QLabel *TitleLabel() const { return m_pTitle; }
	QLabel *SubtitleLabel() const { return m_pSubtitle; }
	QLabel *ZipLabel() const { return m_pZipLabel; }
	QPushButton *SubmitNewButton() const { return m_pSubmitNew; }
	QPushButton *SubmitUpdateButton() const { return m_pSubmitUpdate; }
	QPushButton *CloseButton() const { return m_pClose; }
	QCheckBox *IconsCheck() const { return m_pIconsCheck; }
	QWidget *NoSubmitLabel() const;
	QWidget *WarningLabel() const;

public Q_SLOTS:
	// Both submit buttons: icons when asked for, then SubmitPressed().
	void ShowPublishDialog();
	// The way out of a session without an item record.
	void CloseNoItemDef();

Q_SIGNALS:
	void SubmitPressed();

private:
	void HideAll();

	CMintyardImportSession *m_pSession = nullptr;
	CMintyardCfgSafeString *m_pNameElement = nullptr;
	int m_nMode = SUBMIT_MODE_NEW;
	QLabel *m_pTitle = nullptr;
	QLabel *m_pSubtitle = nullptr;
	QLabel *m_pStatus = nullptr;
	QLabel *m_pZipLabel = nullptr;
	QPushButton *m_pSubmitNew = nullptr;
	QPushButton *m_pSubmitUpdate = nullptr;
	QPushButton *m_pClose = nullptr;
	CQSafeWordWrapLabel *m_pNoSubmitLabel = nullptr;
	CQSafeWordWrapLabel *m_pWarningLabel = nullptr;
	QCheckBox *m_pIconsCheck = nullptr;
	QWidget *m_pPanel = nullptr;
};
