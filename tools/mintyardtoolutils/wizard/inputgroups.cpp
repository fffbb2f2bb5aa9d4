// The groups of the input page: a model's meshes, effects, materials and animations; image sets
// and emoticons; sound sets; loose strings; and the page that holds them.
#include <QApplication>
#include <QCheckBox>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "core/fileio.h"
#include "core/strtools.h"
#include "core/utlbuffer.h"
#include "mintyardtoolutils/core/templateaccess.h"
#include "mintyardtoolutils/wizard/g1conversion.h"
#include "mintyardtoolutils/wizard/inputwidgets.h"
#include "mintyardtoolutils/wizard/meshbudget.h"
#include "mintyardtoolutils/wizard/wizardutils.h"

namespace
{
const char *const s_pszTextureSlots[CMintyardCfg_ZarnMaterial::TEXTURE_COUNT] = {
	"color", "trans", "normal", "detailmask", "diffusemask", "metalnessmask", "selfillummask", "specmask", "rimmask", "basetintmask", "specexp",
};

void IndentInput(QWidget *pInput, int nLeft)
{
	if (QLayout *pLayout = pInput->layout())
	{
		QMargins margins = pLayout->contentsMargins();
		margins.setLeft(nLeft);
		pLayout->setContentsMargins(margins);
	}
}

bool IsRunAnimationName(const CUtlString &name)
{
	for (const char *pszName : { "run_anim_base", "run_anim_base2", "run_anim_base3", "run_anim_base4", "run_anim_base5" })
	{
		if (V_StrEqualNoCase(name, pszName))
			return true;
	}
	return false;
}

bool IsHiddenAnim(const CMintyardCfg_ZarnModel::CAnim *pAnim)
{
	return pAnim->GetAnimTemplate()->always_use_default_anim;
}

// Raised while the page sets a line edit itself, so that the sibling auto-fill stays out.
class CSuppressAutofill
{
public:
	explicit CSuppressAutofill(bool &bFlag) : m_bFlag(bFlag), m_bWas(bFlag) { m_bFlag = true; }
	~CSuppressAutofill() { m_bFlag = m_bWas; }

private:
	bool &m_bFlag;
	bool m_bWas;
};
} // namespace

// ---------------------------------------------------------------------------------------------
// Model

CQMintyardUI_ZarnModel::CQMintyardUI_ZarnModel(QWidget *pParent, CMintyardCfg_ZarnModel *pModel, CMeshBudgetService *pBudgetService)
	: QWidget(pParent), m_pModel(pModel)
{
	QVBoxLayout *pLayout = new QVBoxLayout(this);
	pLayout->setContentsMargins(0, 0, 0, 0);
	const CMintyardTemplate_ZarnModel *pTemplate = pModel->GetModelTemplate();

	// The budget of the meshes stands above the sections, so that it shows while they are closed.
	if (!pModel->m_Lods.empty() && pBudgetService)
	{
		m_pBudget = new CQMeshBudgetTable(this, pModel, pBudgetService);
		pLayout->addWidget(m_pBudget);
	}

	if (!pModel->m_Lods.empty())
	{
		CQMintyardUI_Section *pSection = new CQMintyardUI_Section(this, "#ZARN_Mintyard_Meshes", "", true);
		pLayout->addWidget(pSection);
		QVBoxLayout *pContents = pSection->ContentsLayout();
		for (CMintyardCfg_ZarnMesh *pLevel : pModel->m_Lods)
		{
			const int nLimit = pLevel->GetMeshTemplate()->max_polygons;
			CQMintyardUI_File *pInput = nullptr;
			if (!pLevel->m_ExtraMeshes.empty())
			{
				AddFlagLabel(pSection->ContentsArea(), pContents, "game:tools/images/mintyardmanager/mesh_limits.png",
					MintyardTranslate("#ZARN_Mintyard_CombinedTriangleLimit").arg((int)pLevel->m_ExtraMeshes.size() + 1).arg(nLimit));
				pInput = MakeInput<CQMintyardUI_File>(pSection->ContentsArea(), pLevel, (int)MINTYARD_FILTER_GEOMETRY);
				IndentInput(pInput, 30);
				pContents->addWidget(pInput);
				if (m_pBudget)
					connect(pInput, SIGNAL(StringChanged()), m_pBudget, SLOT(Refresh()));
				for (CMintyardCfg_ZarnMesh *pExtra : pLevel->m_ExtraMeshes)
				{
					CQMintyardUI_File *pExtraInput = MakeInput<CQMintyardUI_File>(pSection->ContentsArea(), pExtra, (int)MINTYARD_FILTER_GEOMETRY);
					IndentInput(pExtraInput, 30);
					pContents->addWidget(pExtraInput);
					if (m_pBudget)
						connect(pExtraInput, SIGNAL(StringChanged()), m_pBudget, SLOT(Refresh()));
				}
			}
			else
			{
				pInput = MakeInput<CQMintyardUI_File>(pSection->ContentsArea(), pLevel, (int)MINTYARD_FILTER_GEOMETRY);
				AddFlagLabel(pInput, pInput->FlagsColumn(), "game:tools/images/mintyardmanager/mesh_limits.png",
					MintyardTranslate("#ZARN_Mintyard_TriangleLimit").arg(nLimit));
				pContents->addWidget(pInput);
				if (m_pBudget)
					connect(pInput, SIGNAL(StringChanged()), m_pBudget, SLOT(Refresh()));
			}
		}
	}

	if (!pModel->m_Snapshots.empty())
	{
		CQMintyardUI_Section *pSection = new CQMintyardUI_Section(this, "#ZARN_Mintyard_EffectsModel_Title", "", true);
		pLayout->addWidget(pSection);
		for (CMintyardCfg_ZarnModel::CParticleSnapshot *pSnapshot : pModel->m_Snapshots)
		{
			CQMintyardUI_File *pInput = MakeInput<CQMintyardUI_File>(pSection->ContentsArea(), pSnapshot, (int)MINTYARD_FILTER_GEOMETRY);
			AddFlagLabel(pInput, pInput->FlagsColumn(), "game:tools/images/mintyardmanager/effects_mesh.png",
				MintyardTranslate("#ZARN_Mintyard_ParticleSnapshot").arg(pSnapshot->GetSnapshotTemplate()->max_vertices));
			pSection->ContentsLayout()->addWidget(pInput);
		}
	}

	if (!pModel->m_Materials.empty())
	{
		CQMintyardUI_Section *pSection = new CQMintyardUI_Section(this, "#ZARN_Mintyard_Materials", "", true);
		pLayout->addWidget(pSection);
		for (CMintyardCfg_ZarnMaterial *pMaterial : pModel->m_Materials)
		{
			if (pModel->m_Materials.size() > 1)
			{
				const CMintyardTemplateElement *pEntry = pMaterial->GetTemplateElement();
				CQMintyardUI_Section *pSub = new CQMintyardUI_Section(pSection->ContentsArea(), pEntry->name.c_str(), pEntry->info_url.c_str(), true);
				pSection->ContentsLayout()->addWidget(pSub);
				pSub->ContentsLayout()->addWidget(new CQMintyardUI_Material(pSub->ContentsArea(), pMaterial));
			}
			else
				pSection->ContentsLayout()->addWidget(new CQMintyardUI_Material(pSection->ContentsArea(), pMaterial));
		}
	}

	bool bAnyShown = false, bAnyHidden = false;
	for (const CMintyardCfg_ZarnModel::CAnim *pAnim : pModel->m_Anims)
		(IsHiddenAnim(pAnim) ? bAnyHidden : bAnyShown) = true;
	for (const CMintyardCfg_ZarnModel::CAnimBundle *pBundle : pModel->m_Bundles)
		for (const CMintyardCfg_ZarnModel::CAnim *pAnim : pBundle->m_Anims)
			(IsHiddenAnim(pAnim) ? bAnyHidden : bAnyShown) = true;
	if (bAnyShown)
	{
		CQMintyardUI_Section *pSection = new CQMintyardUI_Section(this, "#ZARN_Mintyard_Animations", "", true);
		pLayout->addWidget(pSection);
		QVBoxLayout *pContents = pSection->ContentsLayout();
		if (pTemplate->HasAnyAnimationDefault() && !bAnyHidden)
		{
			m_pCustomSkeleton = new QCheckBox(MintyardTranslate("#ZARN_Mintyard_CustomSkeleton"), pSection->ContentsArea());
			m_pCustomSkeleton->setFont(MakeWizardFont(14, true));
			m_pCustomSkeleton->setChecked(pModel->m_bHasCustomSkeleton);
			connect(m_pCustomSkeleton, SIGNAL(toggled(bool)), this, SLOT(OnSkeletonCheckboxToggled()));
			QHBoxLayout *pRow = new QHBoxLayout();
			pRow->addSpacing(80);
			QVBoxLayout *pPair = new QVBoxLayout();
			pPair->addWidget(m_pCustomSkeleton);
			pPair->addWidget(new CQSafeWordWrapLabel(MintyardTranslate("#ZARN_Mintyard_CustomSkeleton_Desc"), pSection->ContentsArea()));
			pRow->addLayout(pPair, 1);
			pContents->addLayout(pRow);
		}
		for (CMintyardCfg_ZarnModel::CAnimBundle *pBundle : pModel->m_Bundles)
			pContents->addWidget(new CQMintyardUI_AnimBundle(pSection->ContentsArea(), pBundle));
		for (CMintyardCfg_ZarnModel::CAnim *pAnim : pModel->m_Anims)
		{
			if (!IsHiddenAnim(pAnim))
				pContents->addWidget(MakeInput<CQMintyardUI_Anim>(pSection->ContentsArea(), pAnim));
		}
	}
}

void CQMintyardUI_ZarnModel::OnSkeletonCheckboxToggled()
{
	m_pModel->m_bHasCustomSkeleton = m_pCustomSkeleton->isChecked();
	m_pModel->ReportChange();
}

CQMintyardUI_AnimBundle::CQMintyardUI_AnimBundle(QWidget *pParent, CMintyardCfg_ZarnModel::CAnimBundle *pBundle) : QWidget(pParent)
{
	QVBoxLayout *pLayout = new QVBoxLayout(this);
	pLayout->setContentsMargins(0, 0, 0, 0);
	const bool bMarkRun = !pBundle->GetBundleTemplate()->compound_looping;
	for (CMintyardCfg_ZarnModel::CAnim *pAnim : pBundle->m_Anims)
	{
		if (IsHiddenAnim(pAnim))
			continue;
		CQMintyardUI_Anim *pInput = MakeInput<CQMintyardUI_Anim>(this, pAnim);
		if (bMarkRun && IsRunAnimationName(pAnim->GetTemplateId()))
			AddFlagLabel(pInput, pInput->FlagsColumn(), "game:tools/images/mintyardmanager/run_animation.png", MintyardTranslate("#ZARN_Mintyard_RunAnim"));
		pLayout->addWidget(pInput);
	}
}

// ---------------------------------------------------------------------------------------------
// Material

CQMintyardUI_Material::CQMintyardUI_Material(QWidget *pParent, CMintyardCfg_ZarnMaterial *pMaterial) : QWidget(pParent)
{
	QVBoxLayout *pLayout = new QVBoxLayout(this);
	pLayout->setContentsMargins(0, 0, 0, 0);
	auto addSlot = [&](int nSlot) {
		if (!pMaterial->m_pTextures[nSlot])
			return;
		m_pSlots[nSlot] = MakeInput<CQMintyardUI_Image>(this, pMaterial->m_pTextures[nSlot], (int)MINTYARD_FILTER_IMAGE);
		CQConnectHelper_int *pHelper = new CQConnectHelper_int(m_pSlots[nSlot], nSlot);
		connect(m_pSlots[nSlot], SIGNAL(StringChanged()), pHelper, SLOT(map()));
		connect(pHelper, SIGNAL(mapped(int)), this, SLOT(OnTextureSlotChanged(int)));
		pLayout->addWidget(m_pSlots[nSlot]);
	};
	pLayout->addWidget(MakeG1Button("#ZARN_Mintyard_ImportG1Color", "#ZARN_Mintyard_ImportG1Color_Details", SLOT(OnImportG1Color())), 0, Qt::AlignHCenter);
	addSlot(0);
	addSlot(1);
	pLayout->addWidget(MakeG1Button("#ZARN_Mintyard_ImportG1Normal", "#ZARN_Mintyard_ImportG1Normal_Details", SLOT(OnImportG1Normal())), 0, Qt::AlignHCenter);
	addSlot(2);
	pLayout->addWidget(MakeG1Button("#ZARN_Mintyard_ImportG1Mask1", "#ZARN_Mintyard_ImportG1Mask1_Details", SLOT(OnImportG1Mask1())), 0, Qt::AlignHCenter);
	for (int i = 3; i <= 6; ++i)
		addSlot(i);
	pLayout->addWidget(MakeG1Button("#ZARN_Mintyard_ImportG1Mask2", "#ZARN_Mintyard_ImportG1Mask2_Details", SLOT(OnImportG1Mask2())), 0, Qt::AlignHCenter);
	for (int i = 7; i <= 10; ++i)
		addSlot(i);
}

QPushButton *CQMintyardUI_Material::MakeG1Button(const char *pszText, const char *pszTip, const char *pszSlot)
{
	QPushButton *pButton = new QPushButton(MintyardTranslate(pszText), this);
	pButton->setToolTip(MintyardTranslate(pszTip));
	pButton->setMaximumWidth(300);
	connect(pButton, SIGNAL(clicked()), this, pszSlot);
	return pButton;
}

void CQMintyardUI_Material::OnTextureSlotChanged(int nSlot)
{
	if (m_bSuppressAutofill || nSlot < 0 || nSlot >= CMintyardCfg_ZarnMaterial::TEXTURE_COUNT || !m_pSlots[nSlot])
		return;
	const QString path = m_pSlots[nSlot]->LineEdit()->text();
	const QFileInfo info(path);
	const QString extension = info.suffix();
	if (path.isEmpty() || !info.isFile() || extension.isEmpty())
		return;
	// The first slot name of the table found in the path splits it; what stands before is the prefix.
	QString prefix;
	for (const char *pszName : s_pszTextureSlots)
	{
		const int nAt = path.indexOf(QString::fromLatin1(pszName), 0, Qt::CaseInsensitive);
		if (nAt >= 0)
		{
			prefix = path.left(nAt);
			break;
		}
	}
	if (prefix.isEmpty())
		return;
	for (int i = 0; i < CMintyardCfg_ZarnMaterial::TEXTURE_COUNT; ++i)
	{
		if (i == nSlot || !m_pSlots[i])
			continue;
		const QString sibling = QString("%1%2.%3").arg(prefix, QString::fromLatin1(s_pszTextureSlots[i]), extension);
		if (QFileInfo(sibling).isFile() && m_pSlots[i]->LineEdit()->text().isEmpty())
			m_pSlots[i]->LineEdit()->setText(sibling);
	}
}

bool CQMintyardUI_Material::BrowseG1Source(const char *pszErrorToken, QString &path, CUtlString &bytes)
{
	path = AskWizardFileName(this, MINTYARD_FILE_DIALOG_OPEN, MintyardTranslate("#ZARN_Mintyard_BrowseForInputFile"), QString(),
		MintyardBrowseFilter(MINTYARD_FILTER_IMAGE));
	if (path.isEmpty())
		return false;
	CUtlBuffer buffer;
	if (!Plat_ReadFile(path.toUtf8().constData(), buffer))
	{
		ShowWizardMessage(this, QMessageBox::Warning, MintyardTranslate(pszErrorToken), MintyardTranslate("#ZARN_Mintyard_Err_BadPath").arg(path));
		return false;
	}
	bytes.assign(buffer.View());
	return true;
}

namespace
{
QString SourceStem(const QString &path)
{
	const QFileInfo info(path);
	return info.suffix().isEmpty() ? path : path.left(path.size() - info.suffix().size() - 1);
}

// Asks before files are replaced; true to go on.
bool ConfirmOverwrite(QWidget *pParent, const char *pszTitle, const QString &text)
{
	return ShowWizardMessage(pParent, QMessageBox::Question, MintyardTranslate(pszTitle), text, QMessageBox::Yes | QMessageBox::No, QMessageBox::No) ==
		   QMessageBox::Yes;
}
} // namespace

void CQMintyardUI_Material::OnImportG1Color()
{
	QString path;
	CUtlString bytes;
	if (!BrowseG1Source("#ZARN_Mintyard_Err_G1Color", path, bytes))
		return;
	const CUtlString stem = SourceStem(path).toUtf8().constData();
	const CUtlString colorPath = G1ColorOutputPath(stem);
	CUtlString transPath = G1TransOutputPath(stem);
	const QString colorText = QString::fromUtf8(colorPath.c_str());
	if (Plat_FileExists(colorPath.c_str()) || Plat_FileExists(transPath.c_str()))
	{
		if (!ConfirmOverwrite(this, "#ZARN_Mintyard_Imported_G1ColorOverwrite_Title",
				MintyardTranslate("#ZARN_Mintyard_Imported_G1ColorOverwrite_Text").arg(colorText, QString::fromUtf8(transPath.c_str()))))
			return;
	}
	ImportMessageList list;
	bool bWroteTrans = false;
	QApplication::setOverrideCursor(Qt::WaitCursor);
	const bool bOk = ConvertG1Color(bytes, path.toUtf8().constData(), colorPath, transPath, bWroteTrans, list);
	QApplication::restoreOverrideCursor();
	if (!bOk)
	{
		ShowWizardMessage(this, QMessageBox::Warning, MintyardTranslate("#ZARN_Mintyard_Err_G1Color"), FormatImportMessages(list));
		return;
	}
	if (!bWroteTrans)
		transPath.clear();
	CSuppressAutofill suppress(m_bSuppressAutofill);
	if (m_pSlots[0])
		m_pSlots[0]->LineEdit()->setText(colorText);
	if (m_pSlots[1])
		m_pSlots[1]->LineEdit()->setText(QString::fromUtf8(transPath.c_str()));
	ShowWizardMessage(this, QMessageBox::Information, MintyardTranslate("#ZARN_Mintyard_Imported_G1Color_Title"),
		MintyardTranslate("#ZARN_Mintyard_Imported_G1Color_Text").arg(colorText, QString::fromUtf8(transPath.c_str())));
}

void CQMintyardUI_Material::OnImportG1Normal()
{
	QString path;
	CUtlString bytes;
	if (!BrowseG1Source("#ZARN_Mintyard_Err_G1Normal", path, bytes))
		return;
	const CUtlString normalPath = G1NormalOutputPath(SourceStem(path).toUtf8().constData());
	const QString normalText = QString::fromUtf8(normalPath.c_str());
	if (Plat_FileExists(normalPath.c_str()) &&
		!ConfirmOverwrite(this, "#ZARN_Mintyard_Imported_G1NormalOverwrite_Title", MintyardTranslate("#ZARN_Mintyard_Imported_G1NormalOverwrite_Text").arg(normalText)))
		return;
	ImportMessageList list;
	QApplication::setOverrideCursor(Qt::WaitCursor);
	const bool bOk = ConvertG1Normal(bytes, path.toUtf8().constData(), normalPath, list);
	QApplication::restoreOverrideCursor();
	if (!bOk)
	{
		ShowWizardMessage(this, QMessageBox::Warning, MintyardTranslate("#ZARN_Mintyard_Err_G1Normal"), FormatImportMessages(list));
		return;
	}
	{
		CSuppressAutofill suppress(m_bSuppressAutofill);
		if (m_pSlots[2])
			m_pSlots[2]->LineEdit()->setText(normalText);
	}
	ShowWizardMessage(this, QMessageBox::Information, MintyardTranslate("#ZARN_Mintyard_Imported_G1Normal_Title"),
		MintyardTranslate("#ZARN_Mintyard_Imported_G1Normal_Text").arg(normalText));
}

void CQMintyardUI_Material::OnImportG1Mask1()
{
	ImportG1Mask(0);
}

void CQMintyardUI_Material::OnImportG1Mask2()
{
	ImportG1Mask(1);
}

void CQMintyardUI_Material::ImportG1Mask(int nMask)
{
	QString path;
	CUtlString bytes;
	if (!BrowseG1Source("#ZARN_Mintyard_Err_G1Mask", path, bytes))
		return;
	const CUtlString stem = SourceStem(path).toUtf8().constData();
	CUtlString outputs[4];
	QString existing, all;
	for (int i = 0; i < 4; ++i)
	{
		outputs[i] = G1MaskOutputPath(stem, nMask, i);
		const QString line = QString::fromUtf8(outputs[i].c_str()) + "\n";
		all += line;
		if (Plat_FileExists(outputs[i].c_str()))
			existing += line;
	}
	if (!existing.isEmpty() &&
		!ConfirmOverwrite(this, "#ZARN_Mintyard_Imported_G1MaskOverwrite_Title", MintyardTranslate("#ZARN_Mintyard_Imported_G1MaskOverwrite_Text").arg(existing)))
		return;
	ImportMessageList list;
	QApplication::setOverrideCursor(Qt::WaitCursor);
	const bool bOk = ConvertG1Mask(bytes, path.toUtf8().constData(), outputs, list);
	QApplication::restoreOverrideCursor();
	if (!bOk)
	{
		ShowWizardMessage(this, QMessageBox::Warning, MintyardTranslate("#ZARN_Mintyard_Err_G1Mask"), FormatImportMessages(list));
		return;
	}
	// The masks leave the auto-fill on: setting one may fill empty siblings.
	const int nFirstSlot = nMask == 0 ? 3 : 7;
	for (int i = 0; i < 4; ++i)
	{
		if (m_pSlots[nFirstSlot + i])
			m_pSlots[nFirstSlot + i]->LineEdit()->setText(QString::fromUtf8(outputs[i].c_str()));
	}
	ShowWizardMessage(this, QMessageBox::Information, MintyardTranslate("#ZARN_Mintyard_Imported_G1Mask_Title"),
		MintyardTranslate("#ZARN_Mintyard_Imported_G1Mask_Text").arg(all));
}

// ---------------------------------------------------------------------------------------------
// Image sets, sound sets, loose strings

CQMintyardUI_EmoticonImage::CQMintyardUI_EmoticonImage(QWidget *pParent, CMintyardCfg_ZarnImageSet::CEmoticon *pEmoticon, bool bFirst)
	: CQMintyardUI_Section(pParent, pEmoticon->GetTemplateElement()->name.c_str(), pEmoticon->GetTemplateElement()->info_url.c_str(), true)
{
	if (pEmoticon->m_pImage)
		ContentsLayout()->addWidget(MakeInput<CQMintyardUI_Image>(ContentsArea(), pEmoticon->m_pImage, (int)MINTYARD_FILTER_PNG));
	if (pEmoticon->m_pKeyword)
		ContentsLayout()->addWidget(MakeInput<CQMintyardUI_String>(ContentsArea(), pEmoticon->m_pKeyword));
	if (pEmoticon->m_pDefaultFrame)
		ContentsLayout()->addWidget(MakeInput<CQMintyardUI_String>(ContentsArea(), pEmoticon->m_pDefaultFrame));
	if (bFirst)
		OnToggle();
}

CQMintyardUI_ZarnImageSet::CQMintyardUI_ZarnImageSet(QWidget *pParent, CMintyardCfg_ZarnImageSet *pImageSet) : QWidget(pParent)
{
	QVBoxLayout *pLayout = new QVBoxLayout(this);
	pLayout->setContentsMargins(0, 0, 0, 0);
	for (CMintyardCfg_ZarnImageSet::CImage *pImage : pImageSet->m_Images)
	{
		const int nFilter = ImageType(pImage->GetImageTemplate()) == MINTYARD_IMAGE_TYPE_BMP ? MINTYARD_FILTER_BMP : MINTYARD_FILTER_PNG;
		pLayout->addWidget(MakeInput<CQMintyardUI_Image>(this, pImage, nFilter));
	}
	bool bFirst = true;
	for (CMintyardCfg_ZarnImageSet::CEmoticon *pEmoticon : pImageSet->m_Emoticons)
	{
		pLayout->addWidget(new CQMintyardUI_EmoticonImage(this, pEmoticon, bFirst));
		bFirst = false;
	}
}

CQMintyardUI_ZarnSoundSet::CQMintyardUI_ZarnSoundSet(QWidget *pParent, CMintyardCfg_ZarnSoundSet *pSoundSet) : QWidget(pParent)
{
	QVBoxLayout *pLayout = new QVBoxLayout(this);
	pLayout->setContentsMargins(0, 0, 0, 0);
	CUtlVector<std::pair<CUtlString, CQMintyardUI_Section *>> sections;
	for (CMintyardCfg_ZarnSoundSet::CSound *pSound : pSoundSet->m_Sounds)
	{
		const CUtlString &group = static_cast<const CMintyardTemplate_ZarnSoundSet::CSound *>(pSound->GetTemplateElement())->uigroup;
		CQMintyardUI_Section *pSection = nullptr;
		for (const auto &entry : sections)
		{
			if (entry.first == group)
				pSection = entry.second;
		}
		if (!pSection)
		{
			pSection = new CQMintyardUI_Section(this, group.c_str(), "", true);
			pLayout->addWidget(pSection);
			sections.push_back({ group, pSection });
		}
		pSection->ContentsLayout()->addWidget(MakeInput<CQMintyardUI_File>(pSection->ContentsArea(), pSound, (int)MINTYARD_FILTER_WAV));
	}
}

CQMintyardUI_MiscData::CQMintyardUI_MiscData(QWidget *pParent, CMintyardCfg_MiscData *pMiscData) : QWidget(pParent)
{
	QVBoxLayout *pLayout = new QVBoxLayout(this);
	pLayout->setContentsMargins(0, 0, 0, 0);
	pLayout->addWidget(MakeInput<CQMintyardUI_String>(this, pMiscData));
}

// ---------------------------------------------------------------------------------------------
// The page

CQImportInputPicker::CQImportInputPicker(QWidget *pParent) : QWidget(pParent)
{
	m_pLayout = new QVBoxLayout(this);
	m_pLayout->setContentsMargins(8, 8, 8, 8);
	m_pBudgetService = new CMeshBudgetService(this);
}

CQImportInputPicker::~CQImportInputPicker()
{
	DetachSession();
}

void CQImportInputPicker::DetachSession()
{
	delete m_pContent;
	m_pContent = nullptr;
	m_pSession = nullptr;
}

void CQImportInputPicker::AttachSession(CMintyardImportSession *pSession)
{
	DetachSession();
	m_pSession = pSession;
	if (!pSession || !pSession->GetTemplate())
		return;
	const CMintyardTemplate *pTemplate = pSession->GetTemplate();
	m_pContent = new QWidget(this);
	QVBoxLayout *pContent = new QVBoxLayout(m_pContent);
	pContent->setContentsMargins(0, 0, 0, 0);

	CQMintyardUI_String *pName = MakeInput<CQMintyardUI_String>(m_pContent, pSession->GetNameElement());
	pName->setObjectName("mintyard_import_name");
	pName->TitleLabel()->setText(MintyardTranslate("#ZARN_Mintyard_ImportName"));
	pName->UpdateValidity();
	pContent->addWidget(pName);

	CQMintyardUI_Section *pTop = new CQMintyardUI_Section(m_pContent, pTemplate->name.c_str(), pTemplate->info_url.c_str(), false);
	pContent->addWidget(pTop);

	const size_t nElements = pSession->m_Models.size() + pSession->m_ImageSets.size() + pSession->m_SoundSets.size() + pSession->m_MiscData.size();
	// With more than one element each gets a titled sub-section of its own.
	auto placeIn = [&](const CMintyardCfgElement *pElement) -> std::pair<QWidget *, QVBoxLayout *> {
		if (nElements <= 1)
			return { pTop->ContentsArea(), pTop->ContentsLayout() };
		const CMintyardTemplateElement *pEntry = pElement->GetTemplateElement();
		CQMintyardUI_Section *pSub = new CQMintyardUI_Section(pTop->ContentsArea(), pEntry->name.c_str(), pEntry->info_url.c_str(), false);
		pTop->ContentsLayout()->addWidget(pSub);
		return { pSub->ContentsArea(), pSub->ContentsLayout() };
	};
	for (CMintyardCfg_ZarnModel *pModel : pSession->m_Models)
	{
		auto [pParent, pLayout] = placeIn(pModel);
		pLayout->addWidget(new CQMintyardUI_ZarnModel(pParent, pModel, m_pBudgetService));
	}
	for (CMintyardCfg_ZarnImageSet *pImageSet : pSession->m_ImageSets)
	{
		auto [pParent, pLayout] = placeIn(pImageSet);
		pLayout->addWidget(new CQMintyardUI_ZarnImageSet(pParent, pImageSet));
	}
	for (CMintyardCfg_ZarnSoundSet *pSoundSet : pSession->m_SoundSets)
	{
		auto [pParent, pLayout] = placeIn(pSoundSet);
		pLayout->addWidget(new CQMintyardUI_ZarnSoundSet(pParent, pSoundSet));
	}
	for (CMintyardCfg_MiscData *pMisc : pSession->m_MiscData)
	{
		auto [pParent, pLayout] = placeIn(pMisc);
		pLayout->addWidget(new CQMintyardUI_MiscData(pParent, pMisc));
	}
	pContent->addStretch(1);
	m_pLayout->addWidget(m_pContent, 1);
}

QList<CQMintyardUI_Input *> CQImportInputPicker::Inputs() const
{
	return m_pContent ? m_pContent->findChildren<CQMintyardUI_Input *>() : QList<CQMintyardUI_Input *>();
}

CQMintyardUI_Input *CQImportInputPicker::FindInput(const CMintyardCfgElement *pElement) const
{
	for (CQMintyardUI_Input *pInput : Inputs())
	{
		if (pInput->Element() == pElement)
			return pInput;
	}
	return nullptr;
}
