#include "mintyardtoolutils/wizard/wizardpage.h"

#include <QLabel>
#include <QVBoxLayout>

#include "core/fileio.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/pipeline/importdriver.h"
#include "mintyardtoolutils/wizard/wizardutils.h"

namespace
{
MintyardWizardPageFactory_t s_Factories[MINTYARD_WIZARD_PAGE_EXTERNAL_COUNT] = {};

struct PlainPageText_t
{
	const char *pszTitle;
	const char *pszDescription;
};

const PlainPageText_t s_PlainPageText[MINTYARD_WIZARD_PAGE_EXTERNAL_COUNT] = {
	{ "#ZARN_Mintyard_EditGeneric", "#ZARN_Mintyard_PlainPage_PreviewEditor_Desc" },
	{ "#ZARN_Mintyard_EditPortrait", "#ZARN_Mintyard_PlainPage_PortraitEditor_Desc" },
};
} // namespace

void SetMintyardWizardPageFactory(EMintyardWizardExternalPage ePage, MintyardWizardPageFactory_t pFactory)
{
	if (ePage >= 0 && ePage < MINTYARD_WIZARD_PAGE_EXTERNAL_COUNT)
		s_Factories[ePage] = pFactory;
}

MintyardWizardPageFactory_t GetMintyardWizardPageFactory(EMintyardWizardExternalPage ePage)
{
	return ePage >= 0 && ePage < MINTYARD_WIZARD_PAGE_EXTERNAL_COUNT ? s_Factories[ePage] : nullptr;
}

IMintyardWizardPage *CreateMintyardWizardPage(EMintyardWizardExternalPage ePage, QWidget *pParent)
{
	if (MintyardWizardPageFactory_t pFactory = GetMintyardWizardPageFactory(ePage))
	{
		if (IMintyardWizardPage *pPage = pFactory(pParent))
			return pPage;
	}
	return new CQMintyardPlainStepPage(ePage, pParent);
}

CQMintyardPlainStepPage::CQMintyardPlainStepPage(EMintyardWizardExternalPage ePage, QWidget *pParent) : QWidget(pParent), m_ePage(ePage)
{
	const PlainPageText_t &text = s_PlainPageText[ePage];
	QVBoxLayout *pLayout = new QVBoxLayout(this);
	pLayout->setContentsMargins(16, 16, 16, 16);
	pLayout->setSpacing(12);
	QLabel *pTitle = new QLabel(MintyardTranslate(text.pszTitle), this);
	pTitle->setFont(MakeWizardFont(18, true));
	pLayout->addWidget(pTitle);
	pLayout->addWidget(new CQSafeWordWrapLabel(MintyardTranslate(text.pszDescription), this));
	CQSafeWordWrapLabel *pNotice = new CQSafeWordWrapLabel(MintyardTranslate("#ZARN_Mintyard_PlainPage_NoEditor"), this);
	SetWidgetTextColor(pNotice, QPalette::WindowText, QColor(224, 150, 58));
	pLayout->addWidget(pNotice);
	QLabel *pModelsTitle = new QLabel(MintyardTranslate("#ZARN_Mintyard_PlainPage_Models"), this);
	pModelsTitle->setFont(MakeWizardFont(14, true));
	pLayout->addWidget(pModelsTitle);
	m_pModels = new QLabel(this);
	m_pModels->setObjectName("mintyard_plain_page_models");
	m_pModels->setTextInteractionFlags(Qt::TextSelectableByMouse);
	m_pModels->setWordWrap(true);
	pLayout->addWidget(m_pModels);
	pLayout->addStretch(1);
}

void CQMintyardPlainStepPage::AttachSession(CMintyardImportSession *pSession)
{
	QStringList lines;
	if (pSession)
	{
		for (const CMintyardCfg_ZarnModel *pModel : pSession->m_Models)
		{
			const CUtlString zmdl = pModel->GetZmdlName();
			const CUtlString compiled = GamePath(pSession, (zmdl + "_c").c_str());
			const bool bBuilt = !compiled.empty() && Plat_FileExists(compiled.c_str());
			lines << MintyardTranslate("#ZARN_Mintyard_PlainPage_ModelLine")
						 .arg(MintyardTranslate(pModel->GetTemplateElement()->name), QString::fromUtf8(zmdl.c_str()),
							 MintyardTranslate(bBuilt ? "#ZARN_Mintyard_PlainPage_Compiled" : "#ZARN_Mintyard_PlainPage_NotCompiled"));
		}
	}
	if (lines.isEmpty())
		lines << MintyardTranslate("#ZARN_Mintyard_PlainPage_NoModels");
	m_pModels->setText(lines.join("\n"));
}

QString CQMintyardPlainStepPage::ModelListText() const
{
	return m_pModels->text();
}
