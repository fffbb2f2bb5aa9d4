#include "mintyardtoolutils/wizard/inputwidgets.h"

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QImage>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "core/strtools.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/wizard/wizardutils.h"

namespace
{
const QColor FLAG_COLOR(142, 197, 224);
const QColor WARNING_COLOR(224, 150, 58);
const QColor ERROR_GROUND(64, 0, 0);

struct BrowseFilter_t
{
	const char *pszLabel;
	const char *pszExtensions;
};

const BrowseFilter_t s_BrowseFilters[MINTYARD_FILTER_COUNT] = {
	{ "#ZARN_Mintyard_BrowseForGeoFilter", "(*.fbx *.dmx)" },
	{ "#ZARN_Mintyard_BrowseForImageFilter", "(*.tga *.png *.psd)" },
	{ "#ZARN_Mintyard_BrowseForPngFilter", "(*.png)" },
	{ "#ZARN_Mintyard_BrowseForBmpFilter", "(*.bmp)" },
	{ "#ZARN_Mintyard_BrowseForAnimFilter", "(*.fbx *.dmx)" },
	{ "#ZARN_Mintyard_BrowseForPsdFilter", "(*.psd)" },
	{ "#ZARN_Mintyard_BrowseForWavFilter", "(*.wav)" },
};

QLabel *MakeLinkLabel(QWidget *pParent, const CUtlString &url)
{
	// The link's colour is in the anchor: a label's rich text takes it from the application's
	// palette, not from the dark look.
	QLabel *pLink = new QLabel(QString("<a href=\"%1\" style=\"color: #78b8e8;\">%2</a>")
								   .arg(QString::fromUtf8(url.c_str()), MintyardTranslate("#ZARN_Mintyard_MoreInfoURL")),
		pParent);
	pLink->setFont(MakeWizardFont(14, true));
	pLink->setTextFormat(Qt::RichText);
	pLink->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::LinksAccessibleByMouse | Qt::LinksAccessibleByKeyboard);
	pLink->setOpenExternalLinks(true);
	return pLink;
}

// The element's text, whichever kind of value it holds.
CUtlString ElementText(const CMintyardCfgElement *pElement)
{
	if (const CMintyardCfgString *pString = dynamic_cast<const CMintyardCfgString *>(pElement))
		return pString->Value();
	if (const CMintyardCfgFilename *pFile = dynamic_cast<const CMintyardCfgFilename *>(pElement))
		return pFile->Value();
	return CUtlString();
}

void SetElementText(CMintyardCfgElement *pElement, const char *pszText)
{
	if (CMintyardCfgString *pString = dynamic_cast<CMintyardCfgString *>(pElement))
		pString->SetValue(pszText);
	else if (CMintyardCfgFilename *pFile = dynamic_cast<CMintyardCfgFilename *>(pElement))
		pFile->SetValue(pszText);
}

// The hero of the session's item definition, or null.
const hero_t *SessionHero(const CMintyardImportSession *pSession)
{
	if (!pSession)
		return nullptr;
	for (const CMintyardCfg_ZarnItemDef *pItemDef : pSession->m_ItemDefs)
	{
		const int nHero = pItemDef->GetItemDefTemplate()->hero_name;
		if (nHero >= 0)
			return GetHeroTable().GetHero(nHero);
	}
	return nullptr;
}

void SetInputColors(QWidget *pEdit, QWidget *pLabel, const QColor &text, bool bMark)
{
	// A palette that sets nothing inherits everything; a marked input sets only its own roles.
	QPalette edit, label;
	if (bMark)
	{
		for (QPalette::ColorGroup group : { QPalette::Active, QPalette::Inactive, QPalette::Disabled })
		{
			edit.setColor(group, QPalette::Text, text);
			edit.setColor(group, QPalette::Base, ERROR_GROUND);
			label.setColor(group, QPalette::WindowText, text);
		}
	}
	pEdit->setPalette(edit);
	pLabel->setPalette(label);
}
} // namespace

QString MintyardBrowseFilter(int nFilter)
{
	if (nFilter < 0 || nFilter >= MINTYARD_FILTER_COUNT)
		nFilter = MINTYARD_FILTER_GEOMETRY;
	return MintyardTranslate(s_BrowseFilters[nFilter].pszLabel) + s_BrowseFilters[nFilter].pszExtensions;
}

QWidget *AddFlagLabel(QWidget *pParent, QLayout *pLayout, const char *pszIcon, const QString &text)
{
	QWidget *pFlag = new QWidget(pParent);
	QHBoxLayout *pRow = new QHBoxLayout(pFlag);
	pRow->setContentsMargins(0, 0, 0, 0);
	QLabel *pIcon = new QLabel(pFlag);
	const QPixmap pixmap = LoadWizardPixmap(pszIcon);
	if (!pixmap.isNull())
		pIcon->setPixmap(pixmap.scaled(16, 16, Qt::KeepAspectRatio, Qt::SmoothTransformation));
	pIcon->setFixedSize(16, 16);
	QLabel *pText = new QLabel(text, pFlag);
	pText->setWordWrap(true);
	SetWidgetTextColor(pText, QPalette::WindowText, FLAG_COLOR);
	pRow->addWidget(pIcon);
	pRow->addWidget(pText, 1);
	pLayout->addWidget(pFlag);
	return pFlag;
}

// ---------------------------------------------------------------------------------------------
// Section

CQMintyardUI_Section::CQMintyardUI_Section(QWidget *pParent, const char *pszTitle, const char *pszUrl, bool bCollapsible) : QWidget(pParent)
{
	QVBoxLayout *pLayout = new QVBoxLayout(this);
	pLayout->setContentsMargins(0, 4, 0, 4);
	QHBoxLayout *pHeader = new QHBoxLayout();
	if (bCollapsible)
	{
		m_pToggle = new QPushButton("+", this);
		m_pToggle->setFixedWidth(21);
		connect(m_pToggle, SIGNAL(clicked()), this, SLOT(OnToggle()));
		pHeader->addWidget(m_pToggle);
	}
	m_pTitle = new QLabel(MintyardTranslate(pszTitle), this);
	m_pTitle->setFont(MakeWizardFont(18, true));
	pHeader->addWidget(m_pTitle);
	if (pszUrl && *pszUrl)
		pHeader->addWidget(MakeLinkLabel(this, pszUrl));
	pHeader->addStretch(1);
	pLayout->addLayout(pHeader);

	m_pContents = new QWidget(this);
	m_pContentsLayout = new QVBoxLayout(m_pContents);
	m_pContentsLayout->setContentsMargins(0, 0, 0, 0);
	QHBoxLayout *pContentsRow = new QHBoxLayout();
	pContentsRow->setContentsMargins(26, 0, 0, 0);
	pContentsRow->addWidget(m_pContents, 1);
	pLayout->addLayout(pContentsRow);

	m_pSummary = new QWidget(this);
	m_pSummaryLayout = new QVBoxLayout(m_pSummary);
	m_pSummaryLayout->setContentsMargins(0, 0, 0, 0);
	QHBoxLayout *pSummaryRow = new QHBoxLayout();
	pSummaryRow->setContentsMargins(26, 0, 0, 0);
	pSummaryRow->addWidget(m_pSummary, 1);
	pLayout->addLayout(pSummaryRow);

	m_bExpanded = !bCollapsible;
	m_pContents->setVisible(m_bExpanded);
	m_pSummary->setVisible(!m_bExpanded);
}

void CQMintyardUI_Section::FillSummaryLabel(const Registered_t &entry)
{
	CQMintyardUI_Input *pInput = entry.m_pInput.data();
	if (!pInput || pInput->MessageText().isEmpty())
	{
		entry.m_pLabel->hide();
		return;
	}
	entry.m_pLabel->setText(pInput->MessageText());
	SetWidgetTextColor(entry.m_pLabel, QPalette::WindowText, pInput->HasErrors() ? QColor(Qt::red) : WARNING_COLOR);
	entry.m_pLabel->show();
}

void CQMintyardUI_Section::RegisterInput(CQMintyardUI_Input *pInput)
{
	QLabel *pLabel = new QLabel(m_pSummary);
	pLabel->setFont(MakeWizardFont(QApplication::font().pixelSize() > 0 ? QApplication::font().pixelSize() : 12, true));
	pLabel->setWordWrap(true);
	pLabel->hide();
	m_pSummaryLayout->addWidget(pLabel);
	m_Inputs.push_back(Registered_t{ pInput, pLabel });
	FillSummaryLabel(m_Inputs.back());
}

void CQMintyardUI_Section::OnToggle()
{
	m_bExpanded = !m_bExpanded;
	m_pContents->setVisible(m_bExpanded);
	if (m_bExpanded)
	{
		if (m_pToggle)
			m_pToggle->setText("-");
		m_pSummary->hide();
		return;
	}
	if (m_pToggle)
		m_pToggle->setText("+");
	for (const Registered_t &entry : m_Inputs)
		FillSummaryLabel(entry);
	m_pSummary->show();
}

// ---------------------------------------------------------------------------------------------
// Input

CQMintyardUI_Input::CQMintyardUI_Input(QWidget *pParent, CMintyardCfgElement *pElement) : QWidget(pParent), m_pElement(pElement)
{
	const CMintyardTemplateElement *pEntry = pElement->GetTemplateElement();
	m_bOptional = pEntry->optional;
	m_pSession = pElement->GetRootSession();

	QHBoxLayout *pLayout = new QHBoxLayout(this);
	pLayout->setContentsMargins(0, 0, 0, 8);
	m_pLeftColumn = new QVBoxLayout();
	m_pTitleLabel = new QLabel(MintyardTranslate(pEntry->name), this);
	m_pTitleLabel->setFont(MakeWizardFont(16, true));
	m_pTitleLabel->setMinimumWidth(175);
	m_pTitleLabel->setAlignment(Qt::AlignRight | Qt::AlignTop);
	m_pTitleLabel->setWordWrap(true);
	m_pLeftColumn->addWidget(m_pTitleLabel, 0, Qt::AlignTop | Qt::AlignRight);
	if (!pEntry->info_url.empty())
		m_pLeftColumn->addWidget(MakeLinkLabel(this, pEntry->info_url), 0, Qt::AlignTop | Qt::AlignRight);
	m_pLeftColumn->addStretch(1);
	pLayout->addLayout(m_pLeftColumn);

	m_pRightColumn = new QVBoxLayout();
	m_pInputRow = new QHBoxLayout();
	m_pLineEdit = new CQDroppableLineEdit(this);
	m_pLineEdit->setAcceptDrops(false); // file inputs take drops
	m_pInputRow->addWidget(m_pLineEdit, 1);
	m_pRightColumn->addLayout(m_pInputRow);
	m_pFlagsColumn = new QVBoxLayout();
	m_pRightColumn->addLayout(m_pFlagsColumn);
	m_pMessageRow = new QHBoxLayout();
	m_pMessageLabel = new QLabel(this);
	m_pMessageLabel->setFont(MakeWizardFont(QApplication::font().pixelSize() > 0 ? QApplication::font().pixelSize() : 12, true));
	m_pMessageLabel->setWordWrap(true);
	m_pMessageLabel->setObjectName("mintyard_input_message");
	m_pMessageLabel->hide();
	m_pMessageRow->addWidget(m_pMessageLabel, 1);
	m_pRightColumn->addLayout(m_pMessageRow);
	const QString description = MintyardTranslate(pEntry->desc);
	if (!pEntry->desc.empty() && !description.isEmpty())
	{
		CQSafeWordWrapLabel *pDescription = new CQSafeWordWrapLabel(description, this);
		SetWidgetTextColor(pDescription, QPalette::WindowText, QColor(128, 128, 128));
		m_pRightColumn->addWidget(pDescription);
	}
	pLayout->addLayout(m_pRightColumn, 1);
}

CQMintyardUI_Input::~CQMintyardUI_Input()
{
	if (m_pSession)
		m_pSession->RemoveListener(this);
}

void CQMintyardUI_Input::Bind()
{
	CUtlString value;
	GetValue(value);
	m_pLineEdit->setText(QString::fromUtf8(value.c_str()));
	connect(m_pLineEdit, SIGNAL(textChanged(const QString &)), this, SLOT(OnStringChanged()));
	connect(m_pLineEdit, SIGNAL(textChanged(const QString &)), this, SIGNAL(StringChanged()));
	UpdateValidity();
	if (m_pSession)
		m_pSession->AddListener(this);
	for (QWidget *pAncestor = parentWidget(); pAncestor; pAncestor = pAncestor->parentWidget())
	{
		if (CQMintyardUI_Section *pSection = qobject_cast<CQMintyardUI_Section *>(pAncestor))
			pSection->RegisterInput(this);
	}
}

void CQMintyardUI_Input::OnStringChanged()
{
	SetValue(m_pLineEdit->text().toUtf8().constData());
	UpdateValidity();
}

void CQMintyardUI_Input::UpdateValidity()
{
	ImportMessageList list;
	m_pElement->Validate(list, IsDevelopmentUniverse());
	if (list.Count() == 0)
	{
		m_MessageText.clear();
		m_bHasErrors = false;
		SetInputColors(m_pLineEdit, m_pMessageLabel, QColor(), false);
		const char *pszHint = nullptr;
		if (m_bOptional)
			pszHint = "#ZARN_Mintyard_Optional";
		else if (const CMintyardCfg_ZarnModel::CAnim *pAnim = dynamic_cast<const CMintyardCfg_ZarnModel::CAnim *>(m_pElement);
				 pAnim && GetDefaultFile(pAnim, nullptr))
			pszHint = m_pLineEdit->text().isEmpty() ? "#ZARN_Mintyard_UsingDefault" : "#ZARN_Mintyard_IgnoringDefault";
		if (pszHint)
		{
			m_pMessageLabel->setText(MintyardTranslate(pszHint));
			m_pMessageLabel->show();
		}
		else
			m_pMessageLabel->hide();
		return;
	}
	// A message about this input names it by its template entry; an entry without a name (the
	// import name's) is named by the title the page gives it.
	for (int i = 0; i < list.Count(); ++i)
	{
		if (list[i].HasArg(1) && list[i].Arg(1).empty())
			list[i].SetArg(1, m_pTitleLabel->text().toUtf8().constData());
	}
	m_MessageText = FormatImportMessages(list);
	m_bHasErrors = list.GetErrorCount() > 0;
	SetInputColors(m_pLineEdit, m_pMessageLabel, m_bHasErrors ? QColor(Qt::red) : WARNING_COLOR, true);
	m_pMessageLabel->setText(m_MessageText);
	m_pMessageLabel->show();
}

// ---------------------------------------------------------------------------------------------
// String, File, Anim, Image

CQMintyardUI_String::CQMintyardUI_String(QWidget *pParent, CMintyardCfgElement *pElement) : CQMintyardUI_Input(pParent, pElement), m_pValueElement(pElement)
{
}

void CQMintyardUI_String::GetValue(CUtlString &out) const
{
	out = ElementText(m_pValueElement);
}

void CQMintyardUI_String::SetValue(const char *pszText)
{
	SetElementText(m_pValueElement, pszText);
}

CQMintyardUI_File::CQMintyardUI_File(QWidget *pParent, CMintyardCfgElement *pElement, int nFilter) : CQMintyardUI_String(pParent, pElement), m_nFilter(nFilter)
{
	m_pBrowse = new QPushButton(MintyardTranslate("#ZARN_Mintyard_Browse"), this);
	m_pInputRow->addWidget(m_pBrowse);
	m_pLineEdit->setAcceptDrops(true);
	connect(m_pBrowse, SIGNAL(clicked()), this, SLOT(OnBrowse()));
}

void CQMintyardUI_File::OnBrowse()
{
	QString &folder = MintyardDialogFolder();
	if (!m_pLineEdit->text().isEmpty())
		folder = QFileInfo(m_pLineEdit->text()).absolutePath();
	const QString chosen = AskWizardFileName(this, MINTYARD_FILE_DIALOG_OPEN, MintyardTranslate("#ZARN_Mintyard_BrowseForInputFile"), folder,
		MintyardBrowseFilter(m_nFilter));
	if (chosen.isEmpty())
		return;
	folder = QFileInfo(chosen).absolutePath();
	m_pLineEdit->setText(QDir::toNativeSeparators(chosen));
}

CQMintyardUI_Anim::CQMintyardUI_Anim(QWidget *pParent, CMintyardCfg_ZarnModel::CAnim *pAnim) : CQMintyardUI_File(pParent, pAnim, MINTYARD_FILTER_ANIMATION)
{
	const CMintyardTemplate_ZarnModel::CAnim *pEntry = pAnim->GetAnimTemplate();
	if (pEntry->looping)
		AddFlagLabel(this, m_pFlagsColumn, "game:tools/images/mintyardmanager/looping_animation.png", MintyardTranslate("#ZARN_Mintyard_LoopingAnim"));
	if (pEntry->delta_animation)
		AddFlagLabel(this, m_pFlagsColumn, "game:tools/images/mintyardmanager/delta_animation.png", MintyardTranslate("#ZARN_Mintyard_DeltaAnim"));
	if (pEntry->has_attack_point)
	{
		// The attack lands at the hero's attack point, a share of the animation's length.
		double flScaled = -1.0;
		if (const hero_t *pHero = SessionHero(m_pSession))
		{
			if (const ZARNGameUnitData_t *pUnit = GetGameUnitTable().FindUnit(pHero->name.c_str()))
				flScaled = (double)pEntry->anim_length * (double)pUnit->attackAnimationPoint;
		}
		AddFlagLabel(this, m_pFlagsColumn, "game:tools/images/mintyardmanager/attack_animation.png",
			MintyardTranslate("#ZARN_Mintyard_AttackAnim").arg((double)pEntry->anim_length, 0, 'g').arg(flScaled, 0, 'g'));
	}
}

CQMintyardUI_Image::CQMintyardUI_Image(QWidget *pParent, CMintyardCfgElement *pElement, int nFilter) : CQMintyardUI_File(pParent, pElement, nFilter)
{
	m_pPreview = new QLabel(this);
	m_pPreview->setFixedSize(64, 64);
	m_pPreview->setAutoFillBackground(true);
	QPalette palette = m_pPreview->palette();
	palette.setColor(QPalette::Window, Qt::black);
	m_pPreview->setPalette(palette);
	m_pPreview->setAlignment(Qt::AlignCenter);
	m_pPreview->hide();
	m_pInputRow->insertWidget(0, m_pPreview);
	connect(m_pLineEdit, SIGNAL(textChanged(const QString &)), this, SLOT(UpdateImagePreview()));
	UpdateImagePreview();
}

void CQMintyardUI_Image::UpdateImagePreview()
{
	const QString path = m_pLineEdit->text();
	QImage image;
	const bool bLoaded = !path.isEmpty() && QFileInfo(path).isFile() && [&] {
		QApplication::setOverrideCursor(Qt::WaitCursor);
		const bool bOk = image.load(path);
		QApplication::restoreOverrideCursor();
		return bOk;
	}();
	if (!bLoaded)
	{
		m_pPreview->clear();
		m_pPreview->hide();
		return;
	}
	m_pPreview->setPixmap(QPixmap::fromImage(image).scaled(m_pPreview->size(), Qt::KeepAspectRatio, Qt::SmoothTransformation));
	m_pPreview->show();
}
