#include "mintyardtoolutils/wizard/submitwidget.h"

#include <memory>

#include <QCheckBox>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QRegularExpression>
#include <QVBoxLayout>

#include "brume/brume_api.h"
#include "core/keyvalues.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/pipeline/itemkeys.h"
#include "mintyardtoolutils/wizard/portraiticons.h"
#include "mintyardtoolutils/wizard/wizardlog.h"
#include "mintyardtoolutils/wizard/wizardutils.h"
#include "toolframework/toolframework.h"
#include "toolframework/toolsystem.h"

bool GenerateMintyardItemIcons(KeyValues *pItemKeys)
{
	IToolSystem2 *pTool = g_pToolFramework ? g_pToolFramework->FindToolByName(MINTYARD_PORTRAIT_EDITOR_TOOL_NAME) : nullptr;
	if (!pTool)
	{
		Log_Warning(LOG_MINTYARD_WIZARD, "Failed to find portrait editor tool, cannot generate icon.\n");
		return false;
	}
	IMintyardPortraitIcons *pIcons = static_cast<IMintyardPortraitIcons *>(pTool->QueryInterface(MINTYARD_PORTRAIT_ICONS_INTERFACE_VERSION));
	if (!pIcons)
	{
		Log_Warning(LOG_MINTYARD_WIZARD, "Failed to find portrait editor tool interface, cannot generate icon.\n");
		return false;
	}
	const bool bOk = pIcons->GenerateIcons("mintyard", pItemKeys, 0);
	pIcons->FinishIcons();
	pIcons->ReleaseIcons();
	return bOk;
}

namespace
{
QString FormatBytes(uint64 nBytes)
{
	if (nBytes < 1024)
		return QString("%1 Bytes").arg(nBytes);
	static const char *const s_pszUnits[] = { " KB", " MB", " GB", " TB" };
	double flValue = (double)nBytes;
	int nUnit = -1;
	while (flValue >= 1024.0 && nUnit < 3)
	{
		flValue /= 1024.0;
		++nUnit;
	}
	return QString::number(flValue, 'f', 2) + s_pszUnits[nUnit];
}

QPushButton *MakeBigButton(const QString &text, QWidget *pParent)
{
	QPushButton *pButton = new QPushButton(text, pParent);
	pButton->setFont(MakeWizardFont(16, true));
	return pButton;
}
} // namespace

CQMintyardSubmitWidget::CQMintyardSubmitWidget(QWidget *pParent) : QWidget(pParent)
{
	m_pPanel = new QWidget(this);
	m_pPanel->setMaximumWidth(600);
	QVBoxLayout *pPanel = new QVBoxLayout(m_pPanel);

	m_pTitle = new QLabel(m_pPanel);
	m_pTitle->setFont(MakeWizardFont(24, true));
	m_pSubtitle = new QLabel(m_pPanel);
	m_pSubtitle->setFont(MakeWizardFont(20, true));
	m_pSubtitle->setWordWrap(true);
	m_pZipLabel = new QLabel(m_pPanel);
	m_pZipLabel->setObjectName("mintyard_submit_zip");
	m_pZipLabel->setWordWrap(true);
	m_pZipLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
	m_pStatus = new QLabel(m_pPanel);
	m_pStatus->setFont(MakeWizardFont(14, false));
	m_pSubmitNew = MakeBigButton(MintyardTranslate("#ZARN_Mintyard_SubmitNew"), m_pPanel);
	m_pSubmitNew->setObjectName("mintyard_submit_new");
	m_pSubmitUpdate = MakeBigButton(MintyardTranslate("#ZARN_Mintyard_SubmitUpdate"), m_pPanel);
	m_pSubmitUpdate->setObjectName("mintyard_submit_update");
	m_pClose = MakeBigButton("Close (No Item Def)", m_pPanel);
	m_pNoSubmitLabel = new CQSafeWordWrapLabel(MintyardTranslate("#ZARN_Mintyard_NoSubmitUnresolvedErrors"), m_pPanel);
	m_pWarningLabel = new CQSafeWordWrapLabel("WARNING: This item has unresolved errors - are you sure you want to create an item?", m_pPanel);
	for (QLabel *pLabel : { (QLabel *)m_pNoSubmitLabel, (QLabel *)m_pWarningLabel })
	{
		pLabel->setFont(MakeWizardFont(16, true));
		SetWidgetTextColor(pLabel, QPalette::WindowText, QColor(224, 150, 58));
	}
	m_pIconsCheck = new QCheckBox(MintyardTranslate("#ZARN_Mintyard_GenerateIconImages"), m_pPanel);
	m_pIconsCheck->setChecked(true);

	pPanel->addWidget(m_pTitle);
	pPanel->addWidget(m_pSubtitle);
	pPanel->addSpacing(20);
	pPanel->addWidget(m_pZipLabel);
	pPanel->addWidget(m_pNoSubmitLabel);
	QHBoxLayout *pSubmitRow = new QHBoxLayout();
	pSubmitRow->addWidget(m_pSubmitNew);
	pSubmitRow->addWidget(m_pSubmitUpdate);
	pSubmitRow->addStretch(1);
	pPanel->addLayout(pSubmitRow);
	pPanel->addWidget(m_pWarningLabel);
	QHBoxLayout *pItemRow = new QHBoxLayout();
	pItemRow->addWidget(m_pClose);
	pItemRow->addStretch(1);
	pPanel->addLayout(pItemRow);
	pPanel->addSpacing(20);
	pPanel->addWidget(m_pIconsCheck);
	pPanel->addSpacing(20);
	pPanel->addWidget(m_pStatus);
	pPanel->addStretch(1);

	QHBoxLayout *pLayout = new QHBoxLayout(this);
	pLayout->addStretch(1);
	pLayout->addWidget(m_pPanel, 2);
	pLayout->addStretch(1);

	connect(m_pSubmitNew, SIGNAL(clicked()), this, SLOT(ShowPublishDialog()));
	connect(m_pSubmitUpdate, SIGNAL(clicked()), this, SLOT(ShowPublishDialog()));
	connect(m_pClose, SIGNAL(clicked()), this, SLOT(CloseNoItemDef()));
	HideAll();
}

QWidget *CQMintyardSubmitWidget::NoSubmitLabel() const
{
	return m_pNoSubmitLabel;
}

QWidget *CQMintyardSubmitWidget::WarningLabel() const
{
	return m_pWarningLabel;
}

void CQMintyardSubmitWidget::HideAll()
{
	for (QWidget *pWidget : std::initializer_list<QWidget *>{ m_pTitle, m_pSubtitle, m_pStatus, m_pZipLabel, m_pSubmitNew, m_pSubmitUpdate,
			 m_pClose, m_pNoSubmitLabel, m_pWarningLabel, m_pIconsCheck })
		pWidget->hide();
}

bool CQMintyardSubmitWidget::IsPrivilegedUser()
{
	if (IsDevelopmentUniverse())
		return true;
	CBrumeAPIContext *pContext = BrumeAPIContext();
	if (!pContext || !pContext->BrumeUser())
		return false;
	const uint64 nAccount = pContext->BrumeUser()->GetBrumeID();
	const QString staff = QString::fromUtf8(qgetenv("MINTYARD_STAFF_ACCOUNTS"));
	for (const QString &id : staff.split(QRegularExpression("[,\\s]+"), Qt::SkipEmptyParts))
	{
		bool bOk = false;
		if (id.toULongLong(&bOk) == nAccount && bOk)
			return true;
	}
	return false;
}

void CQMintyardSubmitWidget::SetZip(const CUtlString &path, uint64 nSize)
{
	if (path.empty())
	{
		m_pZipLabel->clear();
		return;
	}
	m_pZipLabel->setText(MintyardTranslate("#ZARN_Mintyard_SubmitZip").arg(QString::fromUtf8(path.c_str()), FormatBytes(nSize)));
}

void CQMintyardSubmitWidget::Prepare(int nMode, CMintyardImportSession *pSession, bool bUnresolvedErrors)
{
	HideAll();
	m_nMode = nMode;
	m_pSession = pSession;
	m_pNameElement = pSession ? pSession->GetNameElement() : nullptr;
	m_pTitle->setText(m_pNameElement ? QString::fromUtf8(m_pNameElement->Value().c_str()) : QString());
	m_pTitle->show();

	if (nMode == SUBMIT_MODE_NEW || nMode == SUBMIT_MODE_UPDATE)
	{
		QPushButton *pButton = nMode == SUBMIT_MODE_NEW ? m_pSubmitNew : m_pSubmitUpdate;
		if (IsPrivilegedUser())
		{
			pButton->setEnabled(true);
			m_pWarningLabel->setVisible(bUnresolvedErrors);
		}
		else
		{
			pButton->setEnabled(!bUnresolvedErrors);
			m_pNoSubmitLabel->setVisible(bUnresolvedErrors);
		}
		pButton->show();
		m_pZipLabel->setVisible(!m_pZipLabel->text().isEmpty());
		// Icons need the item's keys: only a session with one item record can have them.
		m_pIconsCheck->setVisible(pSession && pSession->m_ItemDefs.size() == 1);
		return;
	}
	// The item-definition face (mode 2) belongs to a host that makes items in the game's own
	// tree; this build has only its way out.
	m_pSubtitle->setText(MintyardTranslate("#ZARN_Mintyard_ItemSubmit_NotInThisBuild"));
	m_pSubtitle->show();
	m_pClose->show();
}

void CQMintyardSubmitWidget::ShowPublishDialog()
{
	if (!m_pIconsCheck->isHidden() && m_pIconsCheck->isChecked() && m_pSession && m_pSession->m_ItemDefs.size() == 1)
	{
		std::unique_ptr<KeyValues> pKeys(CreateKVForItem(m_pSession->m_ItemDefs[0]));
		if (pKeys)
			GenerateMintyardItemIcons(pKeys.get());
		else
			Log_Warning(LOG_MINTYARD_WIZARD, "CreateKVForItem %u '%s' failed\n", m_pSession->m_ItemDefs[0]->m_nDefIndex,
				m_pSession->m_ItemDefs[0]->m_ItemName.c_str());
	}
	Q_EMIT SubmitPressed();
}

void CQMintyardSubmitWidget::CloseNoItemDef()
{
	if (QWidget *pWindow = window())
		pWindow->close();
}
