// The summons part of the portrait panel: the units a hero summons, placed in the portrait's
// scene. The placements are the `summons` block of the portrait record; the widget lists them,
// adds units the hero's slots generate, removes them, picks the gizmo modes that place the
// selected one, and says whether the views show them and whether the camera values work on the
// portrait's "summons" camera.
#pragma once

#include <QDialog>
#include <QWidget>

#include "core/utlstring.h"
#include "core/utlvector.h"
#include "mintyardtoolutils/preview/portraiteditormodel.h"

class CMintyardImportSession;
class QCheckBox;
class QComboBox;
class QPushButton;

// The units a session's hero can summon: slot by slot, every unit its slots name under
// GeneratesUnits, each once. Empty without a hero.
CUtlVector<CUtlString> GetSessionSummonableUnits(const CMintyardImportSession *pSession);

// A dialog with one combo of unit names: OK tells the chosen unit.
class CQSummonPickerDialog : public QDialog
{
	Q_OBJECT

public:
	CQSummonPickerDialog(const CUtlVector<CUtlString> &units, QWidget *pParent = nullptr);

	QComboBox *UnitCombo() const { return m_pUnits; }

Q_SIGNALS:
	void SummonUnitSelected(const QString unit);

public Q_SLOTS:
	void OkClicked();
	void CancelClicked();

private:
	QComboBox *m_pUnits = nullptr;
};

class CQSummonsEditorWidget : public QWidget, public IZarnPortraitEditorListener
{
	Q_OBJECT

public:
	CQSummonsEditorWidget(CZarnPortraitEditorModel *pModel, QWidget *pParent = nullptr);
	~CQSummonsEditorWidget() override;

	// IZarnPortraitEditorListener
	void OnPortraitChanged() override;
	void OnPortraitSummonsChanged() override;
	void OnPortraitGizmoModeChanged() override;
	void OnPortraitCameraChanged() override;

	QComboBox *UnitCombo() const { return m_pUnits; }
	QPushButton *AddButton() const { return m_pAdd; }
	QPushButton *RemoveButton() const { return m_pRemove; }
	QPushButton *GizmoButton(int nMode) const;
	QCheckBox *DisplayCheck() const { return m_pDisplay; }
	QCheckBox *SummonCameraCheck() const { return m_pSummonCamera; }
	// The picker that Add opened and that is still up, or null.
	CQSummonPickerDialog *OpenPicker() const { return m_pPicker; }

public Q_SLOTS:
	void OnAddSummon();
	void OnRemoveSummon();
	void OnSelectedSummonChanged(int nRow);
	void OnNewUnitSelected(QString unitName);
	void OnChangeGizmoEditMode(int nPortraitEditMode);
	void OnDisplaySummonedUnitsChanged();
	void OnUseSummonCameraChanged();

private:
	// The combo from the record, with the model's selection; signals blocked.
	void Refill();
	void RefreshButtons();

	CZarnPortraitEditorModel *m_pModel;
	QComboBox *m_pUnits = nullptr;
	QPushButton *m_pAdd = nullptr;
	QPushButton *m_pRemove = nullptr;
	QPushButton *m_pGizmoButtons[3] = {};
	QCheckBox *m_pDisplay = nullptr;
	QCheckBox *m_pSummonCamera = nullptr;
	CQSummonPickerDialog *m_pPicker = nullptr;
};
