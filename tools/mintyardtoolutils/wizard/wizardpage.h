// The seam between the wizard and the pages that live in other modules: the preview editor and
// the portrait editor, which need the 3D scene, are made by factories that their module
// registers. Until one is registered the wizard shows a plain page for the step: what the step
// is for, and the models of the session.
#pragma once

#include <QWidget>

#include "mintyardtoolutils/core/importmessages.h"

class CMintyardImportSession;
class QLabel;
class QVBoxLayout;

// A page of the wizard made elsewhere. Its widget emits the signal "ReadyStatusChanged()" when
// what blocks the step may have changed; the wizard connects it by name.
class IMintyardWizardPage
{
public:
	virtual ~IMintyardWizardPage() = default;
	// The page's widget, owned by its Qt parent (the wizard's stack).
	virtual QWidget *GetWidget() = 0;
	// Shows the session (called each time the step is entered); null detaches.
	virtual void AttachSession(CMintyardImportSession *pSession) = 0;
	// What keeps the author on this step: errors block Next, warnings are shown.
	virtual void Validate(ImportMessageList &list) = 0;
	// Takes what the author entered into the session before the wizard moves on (the Item ID
	// page's choice); most pages have nothing to take.
	virtual void Commit() {}
};

// The steps of the wizard that other modules provide.
enum EMintyardWizardExternalPage
{
	MINTYARD_WIZARD_PAGE_PREVIEW_EDITOR = 0, // step 5: the compiled models, attachments
	MINTYARD_WIZARD_PAGE_PORTRAIT_EDITOR,	 // step 6: the portrait and icon framing
	MINTYARD_WIZARD_PAGE_EXTERNAL_COUNT,
};

typedef IMintyardWizardPage *(*MintyardWizardPageFactory_t)(QWidget *pParent);

// Registers (or, with null, removes) the factory of a step. The preview module calls this once
// when it is loaded.
void SetMintyardWizardPageFactory(EMintyardWizardExternalPage ePage, MintyardWizardPageFactory_t pFactory);
MintyardWizardPageFactory_t GetMintyardWizardPageFactory(EMintyardWizardExternalPage ePage);
// The page of a step: the registered factory's, or the plain page.
IMintyardWizardPage *CreateMintyardWizardPage(EMintyardWizardExternalPage ePage, QWidget *pParent);

// The plain page of a step whose editor is not part of this build: the step's title and what it
// does, then the models of the session with their compiled files, and whether each was built.
class CQMintyardPlainStepPage : public QWidget, public IMintyardWizardPage
{
	Q_OBJECT

public:
	CQMintyardPlainStepPage(EMintyardWizardExternalPage ePage, QWidget *pParent);

	QWidget *GetWidget() override { return this; }
	void AttachSession(CMintyardImportSession *pSession) override;
	void Validate(ImportMessageList &) override {}

	// The text of the model list, as shown.
	QString ModelListText() const;

Q_SIGNALS:
	void ReadyStatusChanged();

private:
	EMintyardWizardExternalPage m_ePage;
	QLabel *m_pModels = nullptr;
};
