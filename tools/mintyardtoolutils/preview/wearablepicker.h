// CQWearablePicker: a top-level window that lists each slot of the hero under preview with the
// models that can stand in it: the slot's default item's model first, then every other item of
// the hero for that slot. The submission's own slot is not offered (its model is the one under
// preview). "Apply" emits SlotModelsSelected() and the owner reads the two parallel lists of
// slots and models; "Reset" emits ResetToDefault().
#pragma once

#include <QWidget>

#include "core/utlstring.h"
#include "core/utlvector.h"

class CZarnPreviewModelSet;
class QComboBox;
class QGridLayout;
class QLabel;
class QPushButton;

class CQWearablePicker : public QWidget
{
	Q_OBJECT

public:
	explicit CQWearablePicker(QWidget *pOwner = nullptr);

	// The folder of the hero's models ("models/heroes/bramble/"), shown in the title.
	void SetHeroPath(const QString &heroPath);
	const QString &HeroPath() const { return m_HeroPath; }
	// One row per wearable slot of the set's hero other than the submission's, each set to the
	// model the set shows there now.
	void Fill(const CZarnPreviewModelSet &set);
	// Slots listed; false when there is none (the owner then does not show the window).
	int SlotCount() const { return (int)m_Slots.size(); }
	// The two parallel lists: every slot listed and the model chosen for it.
	void GetSlotModels(CUtlVector<CUtlString> &slots, CUtlVector<CUtlString> &models) const;
	// Chooses a model for a slot (false when the slot is not listed or does not offer it).
	bool SelectModel(const char *pszSlot, const char *pszModel);
	QComboBox *SlotCombo(int nSlot) const;

Q_SIGNALS:
	void SlotModelsSelected();
	void ResetToDefault();

private:
	QString m_HeroPath;
	QGridLayout *m_pRows;
	QWidget *m_pRowsWidget;
	QLabel *m_pEmpty;
	CUtlVector<CUtlString> m_Slots;
	CUtlVector<QComboBox *> m_Combos;
};
