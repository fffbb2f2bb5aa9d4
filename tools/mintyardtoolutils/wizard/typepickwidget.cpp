#include "mintyardtoolutils/wizard/typepickwidget.h"

#include <algorithm>

#include <QDesktopServices>
#include <QDialogButtonBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

#include "core/strtools.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/core/templatecatalogue.h"
#include "mintyardtoolutils/wizard/customtemplate.h"
#include "mintyardtoolutils/wizard/wizardlog.h"
#include "mintyardtoolutils/wizard/wizardutils.h"

namespace
{
const char *const ABILITY_GROUP = "#ZARN_Mintyard_SubmissionType_Ability";
const char *const CUSTOM_WEARABLE_GROUP = "#ZARN_Mintyard_SubmissionType_CustomWearable";
const char *const CONTRACT_ONLY_NAME = "#ZARN_Mintyard_SubmissionType_ContractOnly";

void SetComboLook(CQSmartComboBox *pCombo)
{
	pCombo->setFont(MakeWizardFont(18, false));
	pCombo->setFixedWidth(250);
}

// Focus on a combo, with its text selected, as the dialogs do when shown.
void FocusCombo(CQSmartComboBox *pCombo)
{
	if (!pCombo)
		return;
	pCombo->setFocus();
	if (QLineEdit *pEdit = pCombo->lineEdit())
		pEdit->selectAll();
}

// The text of a slot for the slot combo: its own text, or the loadout slot's token.
QString SlotComboText(const hero_slot_t &slot)
{
	return MintyardTranslate(GetSlotDisplayName(slot));
}
} // namespace

int MintyardTypeButtonOrder(const char *pszTitle)
{
	static const char *const s_pszOrder[] = {
		"#ZARN_Mintyard_SubmissionType_HeroItem",
		"#ZARN_Mintyard_SubmissionType_Ward",
		"#ZARN_Mintyard_SubmissionType_Courier",
		"#ZARN_Mintyard_SubmissionType_Images",
		"#ZARN_Mintyard_SubmissionType_ContractOnly",
		"#ZARN_Mintyard_SubmissionType_MusicPack",
	};
	for (int i = 0; i < (int)V_ARRAYSIZE(s_pszOrder); ++i)
	{
		if (pszTitle && strcmp(pszTitle, s_pszOrder[i]) == 0)
			return i;
	}
	return (int)V_ARRAYSIZE(s_pszOrder);
}

// ---------------------------------------------------------------------------------------------
// Details dialog of a template group

CQMintyardTemplateDetailsDialog::CQMintyardTemplateDetailsDialog(QWidget *pParent, const CUtlString &groupKey) : QDialog(pParent), m_GroupKey(groupKey)
{
	setWindowTitle(MintyardTranslate(groupKey));
	ApplyMintyardWizardLook(this);
}

CQMintyardTemplateDetailsDialog::~CQMintyardTemplateDetailsDialog()
{
	for (TemplateSubGroup_t *pGroup : m_SubGroups)
		delete pGroup;
}

CQMintyardTemplateDetailsDialog::TemplateSubGroup_t *CQMintyardTemplateDetailsDialog::FindOrAddSubGroup(const CUtlString &name)
{
	for (TemplateSubGroup_t *pGroup : m_SubGroups)
	{
		if (V_StrEqualNoCase(pGroup->m_Name, name))
			return pGroup;
	}
	TemplateSubGroup_t *pGroup = new TemplateSubGroup_t;
	pGroup->m_Name = name;
	m_SubGroups.push_back(pGroup);
	return pGroup;
}

void CQMintyardTemplateDetailsDialog::Populate()
{
	m_pTemplateCombo = new CQSmartComboBox(this);
	m_pTemplateCombo->setObjectName("mintyard_details_template");
	SetComboLook(m_pTemplateCombo);
	connect(m_pTemplateCombo, SIGNAL(currentIndexChanged(int)), this, SLOT(OnTemplateChanged()));

	const bool bSingleUnnamed = m_SubGroups.size() == 1 && m_SubGroups[0]->m_Name.empty();
	if (!bSingleUnnamed)
	{
		m_pSubgroupCombo = new CQSmartComboBox(this);
		m_pSubgroupCombo->setObjectName("mintyard_details_subgroup");
		SetComboLook(m_pSubgroupCombo);
	}
	m_pSelect = new QPushButton(MintyardTranslate("#ZARN_Mintyard_Select"), this);
	m_pSelect->setFixedWidth(250);
	SetMintyardBigButtonStyle(m_pSelect);
	m_pSelect->setEnabled(false);
	connect(m_pSelect, SIGNAL(clicked()), this, SLOT(OnSelected()));

	QVBoxLayout *pLayout = new QVBoxLayout(this);
	pLayout->setContentsMargins(16, 16, 16, 16);
	pLayout->setSpacing(16);
	QHBoxLayout *pRow = new QHBoxLayout();
	if (m_pSubgroupCombo)
		pRow->addWidget(m_pSubgroupCombo);
	pRow->addWidget(m_pTemplateCombo);
	pRow->addWidget(m_pSelect);
	pLayout->addLayout(pRow);

	if (m_pSubgroupCombo)
	{
		std::stable_sort(m_SubGroups.begin(), m_SubGroups.end(),
			[](const TemplateSubGroup_t *a, const TemplateSubGroup_t *b) { return strcmp(a->m_Name.c_str(), b->m_Name.c_str()) < 0; });
		m_pSubgroupCombo->blockSignals(true);
		m_pSubgroupCombo->addItem(MintyardTranslate("#ZARN_Mintyard_SelectSubGroup").arg(MintyardTranslate(m_GroupKey)), -1);
		for (int i = 0; i < (int)m_SubGroups.size(); ++i)
			m_pSubgroupCombo->addItem(MintyardTranslate(m_SubGroups[i]->m_Name), i);
		m_pSubgroupCombo->blockSignals(false);
		connect(m_pSubgroupCombo, SIGNAL(currentIndexChanged(int)), this, SLOT(OnSubgroupChanged()));
	}
	OnSubgroupChanged();
}

const CQMintyardTemplateDetailsDialog::TemplateSubGroup_t *CQMintyardTemplateDetailsDialog::CurrentSubGroup() const
{
	if (!m_pSubgroupCombo)
		return m_SubGroups.empty() ? nullptr : m_SubGroups.back();
	const int nIndex = m_pSubgroupCombo->CurrentData();
	return nIndex >= 0 && nIndex < (int)m_SubGroups.size() ? m_SubGroups[nIndex] : nullptr;
}

void CQMintyardTemplateDetailsDialog::OnSubgroupChanged()
{
	const TemplateSubGroup_t *pGroup = CurrentSubGroup();
	m_pTemplateCombo->blockSignals(true);
	m_pTemplateCombo->clear();
	if (pGroup)
	{
		const QString groupName = pGroup->m_Name.empty() ? MintyardTranslate(m_GroupKey) : MintyardTranslate(pGroup->m_Name);
		m_pTemplateCombo->addItem(MintyardTranslate("#ZARN_Mintyard_SelectTemplate").arg(groupName), -1);
		for (int i = 0; i < (int)pGroup->m_Templates.size(); ++i)
			m_pTemplateCombo->addItem(MintyardTranslate(pGroup->m_Templates[i]->name), i);
		m_pTemplateCombo->setEnabled(true);
	}
	else
	{
		m_pTemplateCombo->addItem(MintyardTranslate("#ZARN_Mintyard_NoTemplates"), -1);
		m_pTemplateCombo->setEnabled(false);
	}
	m_pTemplateCombo->blockSignals(false);
	m_pSelect->setEnabled(false);
}

const CMintyardTemplate *CQMintyardTemplateDetailsDialog::CurrentTemplate() const
{
	const TemplateSubGroup_t *pGroup = CurrentSubGroup();
	if (!pGroup || !m_pTemplateCombo)
		return nullptr;
	const int nIndex = m_pTemplateCombo->CurrentData();
	return nIndex >= 0 && nIndex < (int)pGroup->m_Templates.size() ? pGroup->m_Templates[nIndex] : nullptr;
}

void CQMintyardTemplateDetailsDialog::OnTemplateChanged()
{
	m_pSelect->setEnabled(CurrentTemplate() != nullptr);
}

void CQMintyardTemplateDetailsDialog::OnSelected()
{
	if (const CMintyardTemplate *pTemplate = CurrentTemplate())
	{
		Q_EMIT TemplatePicked(pTemplate);
		accept();
	}
}

void CQMintyardTemplateDetailsDialog::showEvent(QShowEvent *pEvent)
{
	QDialog::showEvent(pEvent);
	FocusCombo(m_pSubgroupCombo ? m_pSubgroupCombo : m_pTemplateCombo);
}

// ---------------------------------------------------------------------------------------------
// Hero dialog

CQMintyardHeroItemDialog::CQMintyardHeroItemDialog(QWidget *pParent, CMintyardTemplateCatalogue *pCatalogue, const ListHero_t *pHeroes, int nHeroCount)
	: QDialog(pParent), m_pCatalogue(pCatalogue)
{
	setWindowTitle(MintyardTranslate("#ZARN_Mintyard_SubmissionType_HeroItem"));
	ApplyMintyardWizardLook(this);
	QHBoxLayout *pRow = new QHBoxLayout(this);
	pRow->setContentsMargins(16, 16, 16, 16);
	pRow->setSpacing(16);

	m_pHeroCombo = new CQSmartComboBox(this);
	m_pHeroCombo->setObjectName("mintyard_hero_combo");
	SetComboLook(m_pHeroCombo);
	m_pSlotCombo = new CQSmartComboBox(this);
	m_pSlotCombo->setObjectName("mintyard_slot_combo");
	SetComboLook(m_pSlotCombo);
	m_pSelect = new QPushButton(MintyardTranslate("#ZARN_Mintyard_Select"), this);
	m_pSelect->setFixedWidth(250);
	SetMintyardBigButtonStyle(m_pSelect);
	m_pSelect->setEnabled(false);
	pRow->addWidget(m_pHeroCombo);
	pRow->addWidget(m_pSlotCombo);
	pRow->addWidget(m_pSelect);
	if (IsDevelopmentUniverse())
	{
		m_pTemplateButton = new QPushButton(LoadWizardIcon("game:tools/images/common/halden_gear_sm.png"), "Edit/Generate Template", this);
		m_pTemplateButton->setFixedWidth(250);
		m_pTemplateButton->setEnabled(false);
		connect(m_pTemplateButton, SIGNAL(clicked()), this, SLOT(OnHeroItem_EditTemplate()));
		pRow->addWidget(m_pTemplateButton);
	}

	m_pHeroCombo->addItem(MintyardTranslate("#ZARN_Mintyard_SelectHero"), -1);
	for (int i = 0; i < nHeroCount; ++i)
	{
		if (!BuildItemList(pHeroes[i].m_nHeroIndex).empty())
			m_pHeroCombo->addItem(pHeroes[i].m_Name, pHeroes[i].m_nHeroIndex);
	}
	connect(m_pHeroCombo, SIGNAL(OnValueChanged(const QString &)), this, SLOT(OnHeroItem_HeroChanged()));
	connect(m_pSlotCombo, SIGNAL(OnValueChanged(const QString &)), this, SLOT(OnHeroItem_ItemChanged()));
	connect(m_pSelect, SIGNAL(clicked()), this, SLOT(OnHeroItem_Selected()));
	OnHeroItem_HeroChanged();
}

CUtlVector<CQMintyardHeroItemDialog::HeroItemInfo_t> CQMintyardHeroItemDialog::BuildItemList(int nHeroIndex) const
{
	CUtlVector<HeroItemInfo_t> items;
	const hero_t *pHero = nHeroIndex < 0 ? nullptr : GetHeroTable().GetHero(nHeroIndex);
	if (!pHero)
		return items;
	for (int i = 0; i < (int)pHero->slots.size(); ++i)
	{
		const hero_slot_t &slot = pHero->slots[i];
		if (slot.slotIndex == -1 || slot.noImport || slot.maxPolygonsLOD0 == 0 || slot.maxPolygonsLOD1 == 0)
			continue;
		HeroItemInfo_t info;
		info.m_pSlot = &slot;
		info.m_nSlotIndex = i;
		items.push_back(info);
	}
	if (m_pCatalogue)
	{
		const CUtlString heroToken = "#" + pHero->name;
		for (int i = 0; i < m_pCatalogue->GetFileTemplates(); ++i)
		{
			const CMintyardTemplate *pTemplate = m_pCatalogue->GetFileTemplate(i);
			if ((pTemplate->template_group == CUSTOM_WEARABLE_GROUP || pTemplate->template_group == ABILITY_GROUP) && pTemplate->template_subgroup == heroToken)
			{
				HeroItemInfo_t info;
				info.m_pCustomTemplate = pTemplate;
				items.push_back(info);
			}
		}
	}
	return items;
}

const CQMintyardHeroItemDialog::HeroItemInfo_t *CQMintyardHeroItemDialog::CurrentEntry() const
{
	const int nIndex = m_pSlotCombo->CurrentData();
	if (nIndex < 0 || nIndex >= (int)m_Items.size() || !m_Items[nIndex].IsValid())
		return nullptr;
	return &m_Items[nIndex];
}

void CQMintyardHeroItemDialog::OnHeroItem_HeroChanged()
{
	m_Items = BuildItemList(m_pHeroCombo->CurrentData());
	m_pSlotCombo->blockSignals(true);
	m_pSlotCombo->clear();
	if (m_Items.empty())
	{
		m_pSlotCombo->addItem(MintyardTranslate("#ZARN_Mintyard_NoSlots"), -1);
		m_pSlotCombo->setEnabled(false);
	}
	else
	{
		m_pSlotCombo->addItem(MintyardTranslate("#ZARN_Mintyard_SelectSlot"), -1);
		for (int i = 0; i < (int)m_Items.size(); ++i)
		{
			const HeroItemInfo_t &info = m_Items[i];
			m_pSlotCombo->addItem(info.m_pCustomTemplate ? MintyardTranslate(info.m_pCustomTemplate->name) : SlotComboText(*info.m_pSlot), i);
		}
		m_pSlotCombo->setEnabled(true);
	}
	m_pSlotCombo->blockSignals(false);
	m_pSelect->setEnabled(false);
	if (m_pTemplateButton)
		m_pTemplateButton->setEnabled(false);
}

void CQMintyardHeroItemDialog::OnHeroItem_ItemChanged()
{
	const HeroItemInfo_t *pEntry = CurrentEntry();
	m_pSelect->setEnabled(pEntry != nullptr);
	if (!m_pTemplateButton)
		return;
	m_pTemplateButton->setEnabled(pEntry != nullptr);
	if (!pEntry)
		m_pTemplateButton->setText("Edit/Generate Template");
	else
		m_pTemplateButton->setText(pEntry->m_pCustomTemplate ? "Edit Custom Template" : "Add Custom Template");
}

const CMintyardTemplate *CQMintyardHeroItemDialog::CurrentTemplate() const
{
	const HeroItemInfo_t *pEntry = CurrentEntry();
	if (!pEntry)
		return nullptr;
	if (!pEntry->m_pSlot)
		return pEntry->m_pCustomTemplate;
	return m_pCatalogue ? m_pCatalogue->GetWearableTemplate(m_pHeroCombo->CurrentData(), pEntry->m_nSlotIndex) : nullptr;
}

void CQMintyardHeroItemDialog::OnHeroItem_Selected()
{
	if (const CMintyardTemplate *pTemplate = CurrentTemplate())
	{
		Q_EMIT TemplatePicked(pTemplate);
		accept();
	}
}

void CQMintyardHeroItemDialog::OnHeroItem_EditTemplate()
{
	const hero_t *pHero = GetHeroTable().GetHero(m_pHeroCombo->CurrentData());
	const HeroItemInfo_t *pEntry = CurrentEntry();
	const CMintyardTemplate *pTemplate = CurrentTemplate();
	if (!pHero || !pEntry || !pTemplate)
		return;
	if (pEntry->m_pCustomTemplate)
	{
		QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromUtf8(pEntry->m_pCustomTemplate->source_path.c_str())));
		return;
	}
	CustomTemplateResult_t result;
	if (!WriteCustomWearableTemplate(*pHero, *pEntry->m_pSlot, *pTemplate, result))
	{
		ShowWizardMessage(this, QMessageBox::Warning, "Failed to create template",
			MintyardTranslate("Error saving data: %2").arg(QString::fromUtf8(result.m_Error.c_str())));
		return;
	}
	m_LastGenerated = result.m_Path;
	Log_Msg(LOG_MINTYARD_WIZARD, "Created new template %s\n", result.m_Path.c_str());

	QDialog dialog(this);
	dialog.setWindowTitle("New Template Created");
	dialog.setFixedSize(800, 400);
	QVBoxLayout *pLayout = new QVBoxLayout(&dialog);
	QPlainTextEdit *pText = new QPlainTextEdit(QString::fromUtf8(result.m_Summary.c_str()), &dialog);
	pText->setReadOnly(true);
	pText->setFont(QFont("Courier"));
	pLayout->addWidget(pText);
	QDialogButtonBox *pButtons = new QDialogButtonBox(QDialogButtonBox::Ok, &dialog);
	connect(pButtons, SIGNAL(accepted()), &dialog, SLOT(accept()));
	pLayout->addWidget(pButtons);
	if (!MintyardWizardMessageHook())
		dialog.exec();
	QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromUtf8(result.m_Path.c_str())));
}

void CQMintyardHeroItemDialog::showEvent(QShowEvent *pEvent)
{
	QDialog::showEvent(pEvent);
	FocusCombo(m_pHeroCombo);
}

// ---------------------------------------------------------------------------------------------
// The page

CQMintyardTypePickWidget::CQMintyardTypePickWidget(QWidget *pParent, CMintyardTemplateCatalogue *pCatalogue) : QWidget(pParent), m_pCatalogue(pCatalogue)
{
	// Heroes, by their translated names.
	CUtlVector<ListHero_t> heroes;
	heroes.reserve(128);
	const HeroTable &table = GetHeroTable();
	for (int i = 0; i < table.Count(); ++i)
	{
		const hero_t *pHero = table.GetHero(i);
		if (!pHero)
			continue;
		heroes.push_back(ListHero_t{ MintyardTranslate(("#" + pHero->name).c_str()), i });
	}
	std::stable_sort(heroes.begin(), heroes.end(),
		[](const ListHero_t &a, const ListHero_t &b) { return QString::compare(a.m_Name, b.m_Name, Qt::CaseInsensitive) < 0; });

	CUtlVector<TypeButton_t> buttons;
	const int nTemplates = pCatalogue ? pCatalogue->GetFileTemplates() : 0;
	for (int i = 0; i < nTemplates; ++i)
	{
		const CMintyardTemplate *pTemplate = pCatalogue->GetFileTemplate(i);
		if (pTemplate->template_group == ABILITY_GROUP || pTemplate->template_group == CUSTOM_WEARABLE_GROUP)
			continue; // reached through the hero dialog
		if (!pTemplate->template_group.empty())
		{
			CQMintyardTemplateDetailsDialog *pDialog = nullptr;
			for (CQMintyardTemplateDetailsDialog *pExisting : m_GroupDialogs)
			{
				if (V_StrEqualNoCase(pExisting->GroupKey(), pTemplate->template_group))
				{
					pDialog = pExisting;
					break;
				}
			}
			if (!pDialog)
			{
				pDialog = new CQMintyardTemplateDetailsDialog(this, pTemplate->template_group);
				connect(pDialog, SIGNAL(TemplatePicked(const CMintyardTemplate *)), this, SIGNAL(TemplatePicked(const CMintyardTemplate *)));
				m_GroupDialogs.push_back(pDialog);
			}
			pDialog->FindOrAddSubGroup(pTemplate->template_subgroup)->m_Templates.push_back(pTemplate);
			continue;
		}
		TypeButton_t button = MakeTypeButton(pTemplate->name.c_str(), pTemplate->desc.c_str());
		CQConnectHelper_int *pHelper = new CQConnectHelper_int(button.m_pButton, i);
		connect(button.m_pButton, SIGNAL(clicked()), pHelper, SLOT(map()));
		if (pTemplate->name == CONTRACT_ONLY_NAME)
			connect(pHelper, SIGNAL(mapped(int)), this, SLOT(ContractOnlyPicked(int)));
		else
			connect(pHelper, SIGNAL(mapped(int)), this, SLOT(StaticTemplatePicked(int)));
		buttons.push_back(button);
	}
	for (CQMintyardTemplateDetailsDialog *pDialog : m_GroupDialogs)
	{
		pDialog->Populate();
		const CUtlString description = V_Format("%s_Desc", pDialog->GroupKey().c_str());
		TypeButton_t button = MakeTypeButton(pDialog->GroupKey().c_str(), description.c_str());
		connect(button.m_pButton, SIGNAL(clicked()), pDialog, SLOT(exec()));
		buttons.push_back(button);
	}
	if (!heroes.empty())
	{
		m_pHeroDialog = new CQMintyardHeroItemDialog(this, pCatalogue, heroes.data(), (int)heroes.size());
		connect(m_pHeroDialog, SIGNAL(TemplatePicked(const CMintyardTemplate *)), this, SIGNAL(TemplatePicked(const CMintyardTemplate *)));
		TypeButton_t button = MakeTypeButton("#ZARN_Mintyard_SubmissionType_HeroItem", "#ZARN_Mintyard_SubmissionType_HeroItem_Desc");
		connect(button.m_pButton, SIGNAL(clicked()), m_pHeroDialog, SLOT(exec()));
		buttons.push_back(button);
	}

	QGridLayout *pGrid = new QGridLayout(this);
	pGrid->setColumnStretch(0, 1);
	pGrid->setColumnStretch(1, 1);
	QVBoxLayout *pHeader = new QVBoxLayout();
	QLabel *pTitle = new QLabel(MintyardTranslate("#ZARN_Mintyard_SelectImportType"), this);
	pTitle->setFont(MakeWizardFont(18, true));
	pTitle->setAlignment(Qt::AlignHCenter | Qt::AlignVCenter);
	QLabel *pDescription = new QLabel(MintyardTranslate("#ZARN_Mintyard_SelectImportType_Desc"), this);
	pDescription->setFont(MakeWizardFont(12, false));
	pDescription->setAlignment(Qt::AlignHCenter | Qt::AlignVCenter);
	pDescription->setWordWrap(true);
	pHeader->addWidget(pTitle);
	pHeader->addWidget(pDescription);
	int nRow = 0;
	pGrid->addLayout(pHeader, nRow++, 0, 1, 2);

	std::stable_sort(buttons.begin(), buttons.end(), [](const TypeButton_t &a, const TypeButton_t &b) { return a.m_nOrder < b.m_nOrder; });
	const int nBase = nRow;
	for (int i = 0; i < (int)buttons.size(); ++i)
	{
		pGrid->addWidget(buttons[i].m_pBox, nBase + i / 2, i % 2);
		m_TypeButtons.push_back(buttons[i].m_pButton);
		m_TypeButtonTitles.push_back(buttons[i].m_Title);
	}
	nRow = nBase + ((int)buttons.size() + 1) / 2;

	m_pLoadSession = new QPushButton(LoadWizardIcon("game:tools/images/common/folder_sm.png", QStyle::SP_DirOpenIcon),
		MintyardTranslate("#ZARN_Mintyard_LoadSession"), this);
	m_pLoadSession->setObjectName("mintyard_load_session");
	m_pLoadSession->setFont(MakeWizardFont(16, true));
	connect(m_pLoadSession, SIGNAL(clicked()), this, SIGNAL(LoadSessionClicked()));
	if (IsDevelopmentUniverse())
	{
		m_pLoadZip = new QPushButton(LoadWizardIcon("game:tools/images/common/halden_gear_sm.png"), "Load Zip", this);
		m_pLoadZip->setObjectName("mintyard_load_zip");
		m_pLoadZip->setFont(MakeWizardFont(16, true));
		SetWidgetTextColor(m_pLoadZip, QPalette::ButtonText, QColor(226, 102, 2));
		connect(m_pLoadZip, SIGNAL(clicked()), this, SIGNAL(LoadZipClicked()));
		pGrid->addWidget(m_pLoadSession, nRow, 0);
		pGrid->addWidget(m_pLoadZip, nRow, 1);
	}
	else
		pGrid->addWidget(m_pLoadSession, nRow, 0, 1, 2);
	++nRow;
	pGrid->addLayout(new QHBoxLayout(), nRow, 0, 1, 2);
	pGrid->setRowStretch(nRow, 1);
}

CQMintyardTypePickWidget::~CQMintyardTypePickWidget()
{
	// The dialogs are children of the page; deleting them here keeps their order of going.
	for (CQMintyardTemplateDetailsDialog *pDialog : m_GroupDialogs)
		delete pDialog;
	m_GroupDialogs.clear();
	delete m_pHeroDialog;
	m_pHeroDialog = nullptr;
}

CQMintyardTypePickWidget::TypeButton_t CQMintyardTypePickWidget::MakeTypeButton(const char *pszTitle, const char *pszDescription)
{
	TypeButton_t button;
	button.m_pBox = new QWidget(this);
	QVBoxLayout *pBox = new QVBoxLayout(button.m_pBox);
	pBox->setContentsMargins(16, 16, 16, 16);
	pBox->setSpacing(16);
	button.m_pButton = new QPushButton(MintyardTranslate(pszTitle), button.m_pBox);
	SetMintyardBigButtonStyle(button.m_pButton);
	button.m_pButton->setMinimumHeight(40);
	pBox->addWidget(button.m_pButton);
	CQSafeWordWrapLabel *pDescription = new CQSafeWordWrapLabel(MintyardTranslate(pszDescription), button.m_pBox);
	pDescription->setAlignment(Qt::AlignTop | Qt::AlignLeft);
	pBox->addWidget(pDescription);
	pBox->addStretch(1);
	button.m_Title = pszTitle ? pszTitle : "";
	button.m_nOrder = MintyardTypeButtonOrder(pszTitle);
	return button;
}

const CMintyardTemplate *CQMintyardTypePickWidget::CatalogueTemplate(int nIndex) const
{
	if (!m_pCatalogue || nIndex < 0 || nIndex >= m_pCatalogue->GetFileTemplates())
		return nullptr;
	return m_pCatalogue->GetFileTemplate(nIndex);
}

void CQMintyardTypePickWidget::StaticTemplatePicked(int nIndex)
{
	if (const CMintyardTemplate *pTemplate = CatalogueTemplate(nIndex))
		Q_EMIT TemplatePicked(pTemplate);
}

void CQMintyardTypePickWidget::ContractOnlyPicked(int nIndex)
{
	const CMintyardTemplate *pTemplate = CatalogueTemplate(nIndex);
	if (!pTemplate)
		return;
	const int nAnswer = ShowWizardMessage(this, QMessageBox::Warning, MintyardTranslate("#ZARN_Mintyard_ContractOnly_Prompt"),
		MintyardTranslate("#ZARN_Mintyard_ContractOnly_Prompt_Question"), QMessageBox::Yes | QMessageBox::No, QMessageBox::No);
	if (nAnswer != QMessageBox::No)
		Q_EMIT TemplatePicked(pTemplate);
}
