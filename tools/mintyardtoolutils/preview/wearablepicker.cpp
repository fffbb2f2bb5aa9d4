#include "mintyardtoolutils/preview/wearablepicker.h"

#include <QComboBox>
#include <QFileInfo>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "core/strtools.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/core/templatecatalogue.h"
#include "mintyardtoolutils/preview/previewmodelset.h"
#include "mintyardtoolutils/wizard/wizardutils.h"

CQWearablePicker::CQWearablePicker(QWidget *pOwner) : QWidget(pOwner, Qt::Window)
{
	setObjectName("mintyard_wearable_picker");
	setWindowTitle(MintyardTranslate("#ZARN_Mintyard_SelectWearables"));
	QVBoxLayout *pLayout = new QVBoxLayout(this);
	m_pRowsWidget = new QWidget(this);
	m_pRows = new QGridLayout(m_pRowsWidget);
	m_pRows->setContentsMargins(0, 0, 0, 0);
	m_pRows->setColumnStretch(1, 1);
	pLayout->addWidget(m_pRowsWidget);
	m_pEmpty = new QLabel(MintyardTranslate("#ZARN_Mintyard_NoWearableSlots"), this);
	pLayout->addWidget(m_pEmpty);
	pLayout->addStretch(1);
	QHBoxLayout *pButtons = new QHBoxLayout();
	QPushButton *pReset = new QPushButton(MintyardTranslate("#ZARN_Mintyard_ResetWearables"), this);
	pReset->setObjectName("mintyard_wearables_reset");
	QPushButton *pApply = new QPushButton(MintyardTranslate("#ZARN_Mintyard_ApplyWearables"), this);
	pApply->setObjectName("mintyard_wearables_apply");
	pApply->setDefault(true);
	QPushButton *pClose = new QPushButton(MintyardTranslate("#ZARN_Mintyard_Close"), this);
	pButtons->addWidget(pReset);
	pButtons->addStretch(1);
	pButtons->addWidget(pApply);
	pButtons->addWidget(pClose);
	pLayout->addLayout(pButtons);
	connect(pApply, SIGNAL(clicked()), this, SIGNAL(SlotModelsSelected()));
	connect(pReset, SIGNAL(clicked()), this, SIGNAL(ResetToDefault()));
	connect(pClose, SIGNAL(clicked()), this, SLOT(close()));
	resize(420, 260);
}

void CQWearablePicker::SetHeroPath(const QString &heroPath)
{
	m_HeroPath = heroPath;
	setWindowTitle(QString("%1 - %2").arg(MintyardTranslate("#ZARN_Mintyard_SelectWearables"), heroPath));
}

void CQWearablePicker::Fill(const CZarnPreviewModelSet &set)
{
	while (QLayoutItem *pItem = m_pRows->takeAt(0))
	{
		delete pItem->widget();
		delete pItem;
	}
	m_Combos.clear();
	m_Slots.clear();

	const hero_t *pHero = set.GetHero();
	CUtlVector<const hero_slot_t *> slots;
	set.GetWearableSlots(slots);
	// What the scene shows in each slot now.
	CUtlVector<ZarnPreviewSlotChoice_t> choices;
	set.GetSlotChoices(choices);
	for (const hero_slot_t *pSlot : slots)
	{
		const int nHeroSlot = pHero ? (int)(pSlot - pHero->slots.data()) : -1;
		if (nHeroSlot == set.GetSlot())
			continue;
		CUtlVector<CUtlString> models;
		set.GetSlotModels(pSlot->slotName.c_str(), models);
		if (models.empty())
			continue;
		const int nRow = (int)m_Slots.size();
		m_Slots.push_back(pSlot->slotName);
		m_pRows->addWidget(new QLabel(MintyardTranslate(GetSlotDisplayName(*pSlot)), m_pRowsWidget), nRow, 0);
		QComboBox *pCombo = new QComboBox(m_pRowsWidget);
		pCombo->setObjectName(QString("mintyard_wearable_%1").arg(QString::fromUtf8(pSlot->slotName.c_str())));
		for (const CUtlString &model : models)
			pCombo->addItem(QFileInfo(QString::fromUtf8(model.c_str())).completeBaseName(), QString::fromUtf8(model.c_str()));
		for (const ZarnPreviewSlotChoice_t &choice : choices)
		{
			if (V_stricmp(choice.m_SlotName.c_str(), pSlot->slotName.c_str()) == 0 && !choice.m_ModelPath.empty())
			{
				const int nIndex = pCombo->findData(QString::fromUtf8(choice.m_ModelPath.c_str()));
				if (nIndex >= 0)
					pCombo->setCurrentIndex(nIndex);
			}
		}
		m_pRows->addWidget(pCombo, nRow, 1);
		m_Combos.push_back(pCombo);
	}
	m_pEmpty->setVisible(m_Slots.empty());
}

void CQWearablePicker::GetSlotModels(CUtlVector<CUtlString> &slots, CUtlVector<CUtlString> &models) const
{
	slots.clear();
	models.clear();
	for (size_t i = 0; i < m_Slots.size(); ++i)
	{
		slots.push_back(m_Slots[i]);
		models.push_back(m_Combos[i]->currentData().toString().toUtf8().constData());
	}
}

bool CQWearablePicker::SelectModel(const char *pszSlot, const char *pszModel)
{
	for (size_t i = 0; i < m_Slots.size(); ++i)
	{
		if (V_stricmp(m_Slots[i].c_str(), pszSlot) != 0)
			continue;
		const int nIndex = m_Combos[i]->findData(QString::fromUtf8(pszModel));
		if (nIndex < 0)
			return false;
		m_Combos[i]->setCurrentIndex(nIndex);
		return true;
	}
	return false;
}

QComboBox *CQWearablePicker::SlotCombo(int nSlot) const
{
	return nSlot >= 0 && nSlot < (int)m_Combos.size() ? m_Combos[(size_t)nSlot] : nullptr;
}
