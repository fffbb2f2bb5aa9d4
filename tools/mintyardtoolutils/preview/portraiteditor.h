// The portrait page of the import wizard (its step 6): how the game frames each model of the
// submission in the hero portrait or the item icon. The working scene on the left; on the right
// the live viewer, the model combo and the panel. The page owns the editor model, which works on
// the portrait record of the model element chosen in the combo.
#pragma once

#include <QWidget>

#include "mintyardtoolutils/preview/portraiteditormodel.h"
#include "mintyardtoolutils/wizard/wizardpage.h"

class CMintyardImportSession;
class CQZarnPortraitEditorPanel;
class CQZarnPortraitEditorScene;
class CQZarnPortraitViewer;
class QComboBox;

class CQZarnPortraitEditor : public QWidget, public IZarnPortraitEditorListener, public IMintyardWizardPage
{
	Q_OBJECT

public:
	explicit CQZarnPortraitEditor(QWidget *pParent = nullptr);
	~CQZarnPortraitEditor() override;

	// IMintyardWizardPage
	QWidget *GetWidget() override { return this; }
	void AttachSession(CMintyardImportSession *pSession) override;
	// The not-edited rule: every model whose portrait camera still stands at the origin with
	// zero angles.
	void Validate(ImportMessageList &list) override;

	// IZarnPortraitEditorListener: a camera change may clear the not-edited rule.
	void OnPortraitChanged() override;
	void OnPortraitCameraChanged() override;

	CZarnPortraitEditorModel &Model() { return m_Model; }
	CQZarnPortraitViewer *Viewer() const { return m_pViewer; }
	CQZarnPortraitEditorScene *Scene() const { return m_pScene; }
	CQZarnPortraitEditorPanel *Panel() const { return m_pPanel; }
	QComboBox *ModelCombo() const { return m_pModelCombo; }
	int GetCurrentModelIndex() const { return m_nCurrentModel; }

	// The margin the Frame button leaves around the model: a share of the view on each side.
	static constexpr float FRAME_MARGIN = 0.08f;

Q_SIGNALS:
	void ReadyStatusChanged();

public Q_SLOTS:
	void OnModelSelected(int nIndex);
	// Places the portrait camera so that what the viewer shows fills the frame with a margin.
	void OnFrameModel();

private:
	CMintyardImportSession *m_pSession = nullptr;
	CZarnPortraitEditorModel m_Model;
	CQZarnPortraitViewer *m_pViewer = nullptr;
	CQZarnPortraitEditorScene *m_pScene = nullptr;
	CQZarnPortraitEditorPanel *m_pPanel = nullptr;
	QComboBox *m_pModelCombo = nullptr;
	int m_nCurrentModel = -1;
};

// Registers the page as the wizard's step 6 (the manager's tool does it when it starts; calling
// it again does no harm).
void RegisterZarnPortraitEditorPage();
