#include "mintyardtoolutils/preview/summonseditor.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include "core/strtools.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/core/mintyardtemplate.h"
#include "mintyardtoolutils/wizard/wizardutils.h"

CUtlVector<CUtlString> GetSessionSummonableUnits(const CMintyardImportSession *pSession)
{
	CUtlVector<CUtlString> units;
	const CMintyardTemplate *pTemplate = pSession ? pSession->GetTemplate() : nullptr;
	if (!pTemplate)
		return units;
	EnsureGameDataLoaded();
	const hero_t *pHero = nullptr;
	for (const CMintyardTemplate_ZarnItemDef &itemDef : pTemplate->item_defs)
	{
		if ((pHero = GetHeroTable().GetHero(itemDef.hero_name)) != nullptr)
			break;
	}
	if (!pHero)
		return units;
	for (const hero_slot_t &slot : pHero->slots)
	{
		for (const CUtlString &unit : slot.generatesUnits)
		{
			if (unit.empty())
				continue;
			bool bKnown = false;
			for (const CUtlString &existing : units)
				bKnown = bKnown || V_StrEqualNoCase(existing, unit.c_str());
			if (!bKnown)
				units.push_back(unit);
		}
	}
	return units;
}

// ---------------------------------------------------------------------------------------------
// CQSummonPickerDialog

CQSummonPickerDialog::CQSummonPickerDialog(const CUtlVector<CUtlString> &units, QWidget *pParent) : QDialog(pParent)
{
	setWindowTitle(MintyardTranslate("#ZARN_Mintyard_SelectSummons"));
	setWindowModality(Qt::WindowModal);
	setMinimumWidth(300);
	QVBoxLayout *pLayout = new QVBoxLayout(this);
	pLayout->setContentsMargins(10, 10, 10, 10);
	m_pUnits = new QComboBox(this);
	for (const CUtlString &unit : units)
		m_pUnits->addItem(QString::fromUtf8(unit.c_str()));
	pLayout->addWidget(m_pUnits);
	QHBoxLayout *pButtons = new QHBoxLayout;
	pButtons->addStretch(1);
	QPushButton *pOk = new QPushButton(MintyardTranslate("#ZARN_Ok"), this);
	QPushButton *pCancel = new QPushButton(MintyardTranslate("#Zarn_Cancel"), this);
	pOk->setDefault(true);
	pOk->setEnabled(!units.empty());
	pButtons->addWidget(pOk);
	pButtons->addWidget(pCancel);
	pLayout->addLayout(pButtons);
	connect(pOk, SIGNAL(clicked()), this, SLOT(OkClicked()));
	connect(pCancel, SIGNAL(clicked()), this, SLOT(CancelClicked()));
}

void CQSummonPickerDialog::OkClicked()
{
	const QString unit = m_pUnits->currentText();
	accept();
	if (!unit.isEmpty())
		Q_EMIT SummonUnitSelected(unit);
}

void CQSummonPickerDialog::CancelClicked()
{
	reject();
}

// ---------------------------------------------------------------------------------------------
// CQSummonsEditorWidget

CQSummonsEditorWidget::CQSummonsEditorWidget(CZarnPortraitEditorModel *pModel, QWidget *pParent) : QWidget(pParent), m_pModel(pModel)
{
	QVBoxLayout *pOuter = new QVBoxLayout(this);
	pOuter->setContentsMargins(0, 0, 0, 0);
	QGroupBox *pGroup = new QGroupBox(MintyardTranslate("#ZARN_Mintyard_Summons"), this);
	pOuter->addWidget(pGroup);
	QVBoxLayout *pLayout = new QVBoxLayout(pGroup);

	QHBoxLayout *pUnitRow = new QHBoxLayout;
	pUnitRow->addWidget(new QLabel("Unit:", pGroup));
	m_pUnits = new QComboBox(pGroup);
	pUnitRow->addWidget(m_pUnits, 1);
	m_pAdd = new QPushButton(MintyardTranslate("#ZARN_Add"), pGroup);
	m_pRemove = new QPushButton(MintyardTranslate("#ZARN_Remove"), pGroup);
	pUnitRow->addWidget(m_pAdd);
	pUnitRow->addWidget(m_pRemove);
	pLayout->addLayout(pUnitRow);
	connect(m_pUnits, SIGNAL(currentIndexChanged(int)), this, SLOT(OnSelectedSummonChanged(int)));
	connect(m_pAdd, SIGNAL(clicked()), this, SLOT(OnAddSummon()));
	connect(m_pRemove, SIGNAL(clicked()), this, SLOT(OnRemoveSummon()));

	QHBoxLayout *pGizmoRow = new QHBoxLayout;
	static const char *const s_pszGizmoText[3] = { "#ZARN_Mintyard_EditOrigin", "#ZARN_Mintyard_EditAngles", "#ZARN_Mintyard_EditScale" };
	for (int i = 0; i < 3; ++i)
	{
		m_pGizmoButtons[i] = new QPushButton(MintyardTranslate(s_pszGizmoText[i]), pGroup);
		pGizmoRow->addWidget(m_pGizmoButtons[i], 1);
		CQConnectHelper_int *pHelper = new CQConnectHelper_int(m_pGizmoButtons[i], PORTRAIT_GIZMO_SUMMON_POSITION + i);
		connect(m_pGizmoButtons[i], SIGNAL(clicked()), pHelper, SLOT(map()));
		connect(pHelper, SIGNAL(mapped(int)), this, SLOT(OnChangeGizmoEditMode(int)));
	}
	pLayout->addLayout(pGizmoRow);

	QHBoxLayout *pCheckRow = new QHBoxLayout;
	m_pDisplay = new QCheckBox(MintyardTranslate("#ZARN_Mintyard_DisplaySummonedUnits"), pGroup);
	m_pSummonCamera = new QCheckBox(MintyardTranslate("#ZARN_Mintyard_UseSummonCamera"), pGroup);
	pCheckRow->addWidget(m_pDisplay);
	pCheckRow->addWidget(m_pSummonCamera);
	pCheckRow->addStretch(1);
	pLayout->addLayout(pCheckRow);
	connect(m_pDisplay, SIGNAL(toggled(bool)), this, SLOT(OnDisplaySummonedUnitsChanged()));
	connect(m_pSummonCamera, SIGNAL(toggled(bool)), this, SLOT(OnUseSummonCameraChanged()));

	m_pModel->AddListener(this);
	Refill();
}

CQSummonsEditorWidget::~CQSummonsEditorWidget()
{
	m_pModel->RemoveListener(this);
}

QPushButton *CQSummonsEditorWidget::GizmoButton(int nMode) const
{
	const int nIndex = nMode - PORTRAIT_GIZMO_SUMMON_POSITION;
	return nIndex >= 0 && nIndex < 3 ? m_pGizmoButtons[nIndex] : nullptr;
}

void CQSummonsEditorWidget::Refill()
{
	const QSignalBlocker block(m_pUnits);
	m_pUnits->clear();
	m_pUnits->addItem(MintyardTranslate("#ZARN_Mintyard_BaseUnit"), -1);
	const int nSelected = m_pModel->GetSelectedSummon();
	if (nSelected == -1)
		m_pUnits->setCurrentIndex(0);
	if (const CZarnPortraitRecord *pRecord = m_pModel->GetPortraitRecord())
	{
		for (size_t i = 0; i < pRecord->m_Summons.size(); ++i)
		{
			m_pUnits->addItem(QString::fromUtf8(pRecord->m_Summons[i].m_Unit.c_str()), (int)i);
			if ((int)i == nSelected)
				m_pUnits->setCurrentIndex(m_pUnits->count() - 1);
		}
	}
	const QSignalBlocker blockDisplay(m_pDisplay);
	const QSignalBlocker blockCamera(m_pSummonCamera);
	m_pDisplay->setChecked(m_pModel->GetDisplaySummons());
	m_pSummonCamera->setChecked(m_pModel->IsEditingSummons());
	RefreshButtons();
}

void CQSummonsEditorWidget::RefreshButtons()
{
	const bool bRecord = m_pModel->GetPortraitRecord() != nullptr;
	const int nMode = m_pModel->GetGizmoMode();
	m_pAdd->setEnabled(bRecord);
	m_pRemove->setEnabled(m_pModel->GetSelectedSummon() >= 0);
	for (int i = 0; i < 3; ++i)
		m_pGizmoButtons[i]->setEnabled(bRecord && m_pModel->GetSelectedSummon() >= 0 && nMode != PORTRAIT_GIZMO_SUMMON_POSITION + i);
}

void CQSummonsEditorWidget::OnPortraitChanged()
{
	Refill();
}

void CQSummonsEditorWidget::OnPortraitSummonsChanged()
{
	Refill();
}

void CQSummonsEditorWidget::OnPortraitGizmoModeChanged()
{
	RefreshButtons();
}

void CQSummonsEditorWidget::OnPortraitCameraChanged()
{
	const QSignalBlocker block(m_pSummonCamera);
	m_pSummonCamera->setChecked(m_pModel->IsEditingSummons());
}

void CQSummonsEditorWidget::OnAddSummon()
{
	if (m_pPicker)
	{
		m_pPicker->raise();
		return;
	}
	m_pPicker = new CQSummonPickerDialog(GetSessionSummonableUnits(m_pModel->GetSession()), this);
	m_pPicker->setAttribute(Qt::WA_DeleteOnClose);
	connect(m_pPicker, SIGNAL(SummonUnitSelected(const QString)), this, SLOT(OnNewUnitSelected(QString)));
	connect(m_pPicker, &QObject::destroyed, this, [this] { m_pPicker = nullptr; });
	m_pPicker->open();
}

void CQSummonsEditorWidget::OnRemoveSummon()
{
	const int nSelected = m_pModel->GetSelectedSummon();
	if (nSelected >= 0)
		m_pModel->RemoveSummon(nSelected);
}

void CQSummonsEditorWidget::OnSelectedSummonChanged(int nRow)
{
	const QVariant data = m_pUnits->itemData(nRow);
	if (m_pModel->GetGizmoMode() >= PORTRAIT_GIZMO_SUMMON_POSITION)
		m_pModel->SetGizmoMode(PORTRAIT_GIZMO_NONE);
	m_pModel->SetSelectedSummon(data.isValid() ? data.toInt() : -1);
}

void CQSummonsEditorWidget::OnNewUnitSelected(QString unitName)
{
	for (int nRow = 1; nRow < m_pUnits->count(); ++nRow)
	{
		if (m_pUnits->itemText(nRow).compare(unitName, Qt::CaseInsensitive) == 0)
		{
			m_pModel->SetSelectedSummon(m_pUnits->itemData(nRow).toInt());
			return;
		}
	}
	m_pModel->AddSummon(unitName.toUtf8().constData());
}

void CQSummonsEditorWidget::OnChangeGizmoEditMode(int nPortraitEditMode)
{
	m_pModel->SetGizmoMode(nPortraitEditMode);
}

void CQSummonsEditorWidget::OnDisplaySummonedUnitsChanged()
{
	m_pModel->SetDisplaySummons(m_pDisplay->isChecked());
}

void CQSummonsEditorWidget::OnUseSummonCameraChanged()
{
	m_pModel->SetEditingSummons(m_pSummonCamera->isChecked());
}
