// The first page of the wizard: a big button for each kind of submission, the details dialogs
// of template groups, the hero dialog (a hero and one of its slots, or one of its custom
// templates), and Load Session (with Load Zip for staff). It ends in TemplatePicked().
#pragma once

#include <QDialog>
#include <QString>
#include <QWidget>

#include "core/utlstring.h"
#include "core/utlvector.h"

class CMintyardTemplate;
class CMintyardTemplateCatalogue;
class CQSmartComboBox;
class QPushButton;
struct hero_slot_t;

// A hero as the hero dialog lists it: the translated name and the index in the hero table.
struct ListHero_t
{
	QString m_Name;
	int m_nHeroIndex = -1;
};

// The order of the type buttons, by their title token.
int MintyardTypeButtonOrder(const char *pszTitle);

class CQMintyardTemplateDetailsDialog : public QDialog
{
	Q_OBJECT

public:
	struct TemplateSubGroup_t
	{
		CUtlString m_Name; // the template_subgroup token, may be empty
		CUtlVector<const CMintyardTemplate *> m_Templates;
	};

	CQMintyardTemplateDetailsDialog(QWidget *pParent, const CUtlString &groupKey);
	~CQMintyardTemplateDetailsDialog() override;

	const CUtlString &GroupKey() const { return m_GroupKey; }
	// The subgroup of that name (case ignored), made when missing.
	TemplateSubGroup_t *FindOrAddSubGroup(const CUtlString &name);
	const CUtlVector<TemplateSubGroup_t *> &SubGroups() const { return m_SubGroups; }
	// Builds the controls once every template has joined.
	void Populate();

	CQSmartComboBox *SubgroupCombo() const { return m_pSubgroupCombo; }
	CQSmartComboBox *TemplateCombo() const { return m_pTemplateCombo; }
	QPushButton *SelectButton() const { return m_pSelect; }
	// The template the combos name, or null.
	const CMintyardTemplate *CurrentTemplate() const;

public Q_SLOTS:
	void OnSubgroupChanged();
	void OnTemplateChanged();
	void OnSelected();

Q_SIGNALS:
	void TemplatePicked(const CMintyardTemplate *pTemplate);

protected:
	void showEvent(QShowEvent *pEvent) override;

private:
	const TemplateSubGroup_t *CurrentSubGroup() const;

	CUtlString m_GroupKey;
	CUtlVector<TemplateSubGroup_t *> m_SubGroups;
	QPushButton *m_pSelect = nullptr;
	CQSmartComboBox *m_pSubgroupCombo = nullptr;
	CQSmartComboBox *m_pTemplateCombo = nullptr;
};

class CQMintyardHeroItemDialog : public QDialog
{
	Q_OBJECT

public:
	// An entry of the slot combo: a slot of the hero (by its position), or a custom template.
	struct HeroItemInfo_t
	{
		const hero_slot_t *m_pSlot = nullptr;
		int m_nSlotIndex = -1;
		const CMintyardTemplate *m_pCustomTemplate = nullptr;
		bool IsValid() const { return m_pSlot || m_pCustomTemplate; }
	};

	CQMintyardHeroItemDialog(QWidget *pParent, CMintyardTemplateCatalogue *pCatalogue, const ListHero_t *pHeroes, int nHeroCount);

	// The entries of a hero (by hero table index), in the order of the slot combo.
	CUtlVector<HeroItemInfo_t> BuildItemList(int nHeroIndex) const;

	CQSmartComboBox *HeroCombo() const { return m_pHeroCombo; }
	CQSmartComboBox *SlotCombo() const { return m_pSlotCombo; }
	QPushButton *SelectButton() const { return m_pSelect; }
	QPushButton *TemplateButton() const { return m_pTemplateButton; }
	// The template that Select would pick, or null.
	const CMintyardTemplate *CurrentTemplate() const;
	// What the last Edit/Generate wrote (empty when nothing), for the dialog and for tests.
	const CUtlString &LastGeneratedTemplate() const { return m_LastGenerated; }

public Q_SLOTS:
	void OnHeroItem_HeroChanged();
	void OnHeroItem_ItemChanged();
	void OnHeroItem_Selected();
	void OnHeroItem_EditTemplate();

Q_SIGNALS:
	void TemplatePicked(const CMintyardTemplate *pTemplate);

protected:
	void showEvent(QShowEvent *pEvent) override;

private:
	const HeroItemInfo_t *CurrentEntry() const;

	CUtlVector<HeroItemInfo_t> m_Items;
	CMintyardTemplateCatalogue *m_pCatalogue;
	QPushButton *m_pSelect = nullptr;
	QPushButton *m_pTemplateButton = nullptr;
	CQSmartComboBox *m_pHeroCombo = nullptr;
	CQSmartComboBox *m_pSlotCombo = nullptr;
	CUtlString m_LastGenerated;
};

class CQMintyardTypePickWidget : public QWidget
{
	Q_OBJECT

public:
	CQMintyardTypePickWidget(QWidget *pParent, CMintyardTemplateCatalogue *pCatalogue);
	~CQMintyardTypePickWidget() override;

	const CUtlVector<CQMintyardTemplateDetailsDialog *> &GroupDialogs() const { return m_GroupDialogs; }
	CQMintyardHeroItemDialog *HeroDialog() const { return m_pHeroDialog; }
	// The type buttons in the order shown, by their title token.
	const CUtlVector<QPushButton *> &TypeButtons() const { return m_TypeButtons; }
	const CUtlVector<CUtlString> &TypeButtonTitles() const { return m_TypeButtonTitles; }
	QPushButton *LoadSessionButton() const { return m_pLoadSession; }
	QPushButton *LoadZipButton() const { return m_pLoadZip; }

public Q_SLOTS:
	void StaticTemplatePicked(int nIndex);
	void ContractOnlyPicked(int nIndex);

Q_SIGNALS:
	void TemplatePicked(const CMintyardTemplate *pTemplate);
	void LoadZipClicked();
	void LoadSessionClicked();

private:
	struct TypeButton_t
	{
		QWidget *m_pBox;
		QPushButton *m_pButton;
		CUtlString m_Title;
		int m_nOrder;
	};
	TypeButton_t MakeTypeButton(const char *pszTitle, const char *pszDescription);
	const CMintyardTemplate *CatalogueTemplate(int nIndex) const;

	CUtlVector<CQMintyardTemplateDetailsDialog *> m_GroupDialogs;
	CQMintyardHeroItemDialog *m_pHeroDialog = nullptr;
	CMintyardTemplateCatalogue *m_pCatalogue;
	CUtlVector<QPushButton *> m_TypeButtons;
	CUtlVector<CUtlString> m_TypeButtonTitles;
	QPushButton *m_pLoadSession = nullptr;
	QPushButton *m_pLoadZip = nullptr;
};
