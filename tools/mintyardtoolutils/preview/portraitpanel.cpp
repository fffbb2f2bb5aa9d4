#include "mintyardtoolutils/preview/portraitpanel.h"

#include <algorithm>
#include <cmath>

#include <QApplication>
#include <QButtonGroup>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalBlocker>
#include <QTimer>
#include <QVBoxLayout>

#include "core/keyvalues.h"
#include "core/strtools.h"
#include "filesystem/filesystem.h"
#include "mintyardtoolutils/preview/animpreviewwidget.h"
#include "mintyardtoolutils/preview/portraitcontrols.h"
#include "mintyardtoolutils/preview/portraittext.h"
#include "mintyardtoolutils/preview/summonseditor.h"
#include "mintyardtoolutils/wizard/wizardutils.h"
#include "toolframework/toolframework.h"
#include "toolscene/sceneresources.h"

// ---------------------------------------------------------------------------------------------
// The background list

namespace
{
struct BackgroundSearch_t
{
	const char *pszFolder;
	const char *pszName;
	uint32 nFlags;
};

const BackgroundSearch_t s_BackgroundSearches[] = {
	{ "materials/vgui/hud/heroportraits", "portraitbackground", 3 },
	{ "materials/vgui/econ", "item_icon_bg", 28 },
};

const char *const BACKGROUND_SUFFIX = ".zmat_c";
} // namespace

void BuildPortraitBackgroundList(CUtlVector<ZarnPortraitBackgroundEntry_t> &out)
{
	out.clear();
	IFileSystem *pFileSystem = g_pFullFileSystem;
	if (!pFileSystem)
		return;
	KeyValues presets("portraitPresetData");
	if (!presets.LoadFromFile(pFileSystem, "scripts/itemtest_manifest.txt", "GAME"))
		return;

	KeyValues textures("zarn_portrait_background_textures");
	for (const BackgroundSearch_t &search : s_BackgroundSearches)
	{
		const CUtlString wildcard = V_Format("%s/%s*%s", search.pszFolder, search.pszName, BACKGROUND_SUFFIX);
		CUtlVector<CUtlString> names;
		FileFindHandle_t handle;
		for (const char *pszFile = pFileSystem->FindFirstEx(wildcard.c_str(), "GAME", &handle); pszFile; pszFile = pFileSystem->FindNext(handle))
		{
			if (!pFileSystem->FindIsDirectory(handle))
				names.push_back(pszFile);
		}
		pFileSystem->FindClose(handle);
		// The order of a folder listing is the disk's: sorted, the list is the same everywhere.
		std::sort(names.begin(), names.end());
		const size_t nNameLength = strlen(search.pszName);
		for (const CUtlString &file : names)
		{
			if (file.size() <= strlen(BACKGROUND_SUFFIX))
				continue;
			const CUtlString base = file.substr(0, file.size() - strlen(BACKGROUND_SUFFIX));
			if (base.compare(0, nNameLength, search.pszName) != 0)
				continue;
			CUtlString key;
			if (base.size() == nNameLength)
				key = "default";
			else if (base[nNameLength] == '_' && base.size() > nNameLength + 1)
				key = base.substr(nNameLength + 1);
			else
				continue;
			KeyValues *pEntry = textures.AddKey(key.c_str());
			pEntry->SetString("path", V_Format("%s/%s.zmat", search.pszFolder, base.c_str()).c_str());
			pEntry->SetInt("flags", (int)search.nFlags);
		}
	}
	for (KeyValues *pEntry = textures.GetFirstTrueSubKey(); pEntry; pEntry = pEntry->GetNextTrueSubKey())
	{
		ZarnPortraitBackgroundEntry_t entry;
		entry.m_Path = pEntry->GetString("path");
		entry.m_DisplayName = pEntry->GetName();
		entry.m_nFlags = (uint32)pEntry->GetInt("flags");
		out.push_back(entry);
	}
	// Looked up, and nothing is taken from them.
	(void)presets.FindKey("zarn_portrait_light_presets");
	(void)presets.FindKey("zarn_portrait_positions");
}

// The background materials, loaded while the interface is idle, one per turn of the event loop,
// so that the panel comes up at once and a texture is ready when it is chosen. Choosing one
// raises the list's priority: what is left loads at once.
class CZarnPortraitBackgroundImages : public QObject
{
public:
	explicit CZarnPortraitBackgroundImages(const CUtlVector<ZarnPortraitBackgroundEntry_t> &entries)
	{
		setObjectName("Load portrait background images");
		for (const ZarnPortraitBackgroundEntry_t &entry : entries)
			m_Pending.push_back(entry.m_Path);
		m_Timer.setSingleShot(false);
		m_Timer.setInterval(0);
		QObject::connect(&m_Timer, &QTimer::timeout, [this] { LoadNext(); });
		if (!m_Pending.empty())
			m_Timer.start();
	}

	void RaisePriority()
	{
		while (!m_Pending.empty())
			LoadNext();
	}

	int LoadedCount() const { return (int)m_Loaded.size(); }

private:
	void LoadNext()
	{
		if (m_Pending.empty())
		{
			m_Timer.stop();
			return;
		}
		const CUtlString path = m_Pending.front();
		m_Pending.erase(m_Pending.begin());
		m_Loaded.push_back(CToolSceneResources::Default().LoadMaterial(path.c_str()));
		if (m_Pending.empty())
			m_Timer.stop();
	}

	CUtlVector<CUtlString> m_Pending;
	CUtlVector<CToolSceneMaterialRef> m_Loaded;
	QTimer m_Timer;
};

// ---------------------------------------------------------------------------------------------
// The panel

namespace
{
QColor ToQColor(const Color &color)
{
	return QColor(color.r, color.g, color.b, 255);
}

Color FromQColor(const QColor &color)
{
	return Color((uint8)color.red(), (uint8)color.green(), (uint8)color.blue(), 255);
}

QColor VectorToQColor(const Vector &v)
{
	auto Byte = [](float f) { return (int)std::lround(std::clamp(f, 0.0f, 1.0f) * 255.0f); };
	return QColor(Byte(v.x), Byte(v.y), Byte(v.z));
}

Vector QColorToVector(const QColor &color)
{
	return Vector(color.red() / 255.0f, color.green() / 255.0f, color.blue() / 255.0f);
}

QHBoxLayout *MakeRow(QVBoxLayout *pParent, const char *pszLabel, QWidget *pOwner)
{
	QHBoxLayout *pRow = new QHBoxLayout;
	pRow->setSpacing(6);
	if (pszLabel)
	{
		QLabel *pLabel = new QLabel(MintyardTranslate(pszLabel), pOwner);
		pLabel->setMinimumWidth(96);
		pRow->addWidget(pLabel);
	}
	pParent->addLayout(pRow);
	return pRow;
}
} // namespace

CQZarnPortraitEditorPanel::CQZarnPortraitEditorPanel(CZarnPortraitEditorModel *pModel, QWidget *pParent)
	: QWidget(pParent), m_pModel(pModel)
{
	BuildPortraitBackgroundList(m_BackgroundList);
	if (!m_BackgroundList.empty())
		m_pBackgroundImages = std::make_unique<CZarnPortraitBackgroundImages>(m_BackgroundList);
	BuildLayout();
	m_pModel->AddListener(this);
	OnPortraitPreviewModeChanged();
	RefreshGizmoButtons();
}

CQZarnPortraitEditorPanel::~CQZarnPortraitEditorPanel()
{
	m_pModel->RemoveListener(this);
}

void CQZarnPortraitEditorPanel::BuildLayout()
{
	QVBoxLayout *pLayout = new QVBoxLayout(this);
	pLayout->setContentsMargins(0, 0, 0, 0);
	pLayout->setSpacing(4);

	// 1. Style.
	QHBoxLayout *pStyleRow = MakeRow(pLayout, "#ZARN_Mintyard_PreviewStyle", this);
	m_pStyleCombo = new QComboBox(this);
	pStyleRow->addWidget(m_pStyleCombo, 1);
	connect(m_pStyleCombo, SIGNAL(currentIndexChanged(int)), this, SLOT(OnCurrentStyleChanged(int)));

	// 2. Animation.
	m_pAnimation = new CQAnimPreviewWidget(this);
	pLayout->addWidget(m_pAnimation);
	connect(m_pAnimation, SIGNAL(SelectedAnimationChanged(const QString)), this, SLOT(OnAnimationControlAnimationChanged(QString)));
	connect(m_pAnimation, SIGNAL(PlaybackSpeedChanged(float)), this, SLOT(OnAnimationControlPlaybackSpeedChanged(float)));
	connect(m_pAnimation, SIGNAL(CurrentFrameChanged(int)), this, SLOT(OnAnimationControlFrameChanged(int)));

	// 3. Summons.
	m_pSummons = new CQSummonsEditorWidget(m_pModel, this);
	pLayout->addWidget(m_pSummons);

	// Gizmo buttons, each through a mapper to OnChangeGizmoEditMode.
	static const char *const s_pszGizmoText[PANEL_GIZMO_BUTTON_COUNT] = { "#ZARN_Mintyard_EditOrigin", "#ZARN_Mintyard_EditTarget",
		"#ZARN_Mintyard_EditOrigin", "#ZARN_Mintyard_EditAngles", "#ZARN_Mintyard_EditOrigin", "#ZARN_Mintyard_EditAngles" };
	for (int i = 0; i < PANEL_GIZMO_BUTTON_COUNT; ++i)
	{
		m_pGizmoButtons[i] = new QPushButton(MintyardTranslate(s_pszGizmoText[i]), this);
		CQConnectHelper_int *pHelper = new CQConnectHelper_int(m_pGizmoButtons[i], i);
		connect(m_pGizmoButtons[i], SIGNAL(clicked()), pHelper, SLOT(map()));
		connect(pHelper, SIGNAL(mapped(int)), this, SLOT(OnChangeGizmoEditMode(int)));
	}

	// 4. Camera.
	QHBoxLayout *pCameraRow = MakeRow(pLayout, "#ZARN_Mintyard_Camera", this);
	pCameraRow->addWidget(m_pGizmoButtons[0]);
	pCameraRow->addWidget(m_pGizmoButtons[1]);
	m_pFrameButton = new QPushButton(MintyardTranslate("#ZARN_Mintyard_FrameModel"), this);
	m_pFrameButton->setToolTip(MintyardTranslate("#ZARN_Mintyard_FrameModel_Tip"));
	pCameraRow->addWidget(m_pFrameButton);
	connect(m_pFrameButton, SIGNAL(clicked()), this, SIGNAL(FrameRequested()));

	// 5. Clone camera.
	QHBoxLayout *pCloneRow = MakeRow(pLayout, nullptr, this);
	m_pCloneCamera = new QCheckBox(MintyardTranslate("#ZARN_Mintyard_CloneCamera"), this);
	pCloneRow->addWidget(m_pCloneCamera);
	connect(m_pCloneCamera, SIGNAL(toggled(bool)), this, SIGNAL(CloneCameraToggled(bool)));

	// 6. Camera values.
	auto AddSlider = [&](const char *pszLabel, float flMin, float flMax, const char *pszSlot) {
		QHBoxLayout *pRow = MakeRow(pLayout, pszLabel, this);
		CQSliderLineEditFloat *pEdit = new CQSliderLineEditFloat(flMin, flMax, this);
		pRow->addWidget(pEdit, 1);
		connect(pEdit, SIGNAL(valueChanged(float)), this, pszSlot);
		return pEdit;
	};
	m_pCameraRoll = AddSlider("#ZARN_Mintyard_CameraRoll", -180.0f, 180.0f, SLOT(OnCameraRollChanged(float)));
	m_pCameraFOV = AddSlider("#ZARN_Mintyard_CameraFOV", 1.0f, 90.0f, SLOT(OnCameraFOVChanged(float)));
	m_pCameraFarZ = AddSlider("#ZARN_Mintyard_CameraFarZ", 10.0f, 5000.0f, SLOT(OnCameraFarZChanged(float)));

	// 7. Spot light.
	QHBoxLayout *pSpotRow = MakeRow(pLayout, "#ZARN_Mintyard_SpotLight", this);
	pSpotRow->addWidget(m_pGizmoButtons[2]);
	pSpotRow->addWidget(m_pGizmoButtons[3]);
	pSpotRow->addStretch(1);
	m_pLightColor = new CQColorSwatch(this);
	pSpotRow->addWidget(m_pLightColor);
	connect(m_pLightColor, SIGNAL(ColorChanged()), this, SLOT(OnLightColorChanged()));
	m_pLightScale = AddSlider("#ZARN_Mintyard_SpotLightScale", 1.0f, 10.0f, SLOT(OnLightScaleChanged(float)));
	m_pLightFOV = AddSlider("#ZARN_Mintyard_SpotlightSize", 1.0f, 120.0f, SLOT(OnLightFOVChanged(float)));
	m_pLightDistance = AddSlider("#ZARN_Mintyard_SpotlightDistance", 10.0f, 2000.0f, SLOT(OnLightDistanceChanged(float)));

	// 8. Ambient light.
	QHBoxLayout *pAmbientRow = MakeRow(pLayout, "#ZARN_Mintyard_AmbientLight", this);
	pAmbientRow->addWidget(m_pGizmoButtons[4]);
	pAmbientRow->addWidget(m_pGizmoButtons[5]);
	pAmbientRow->addStretch(1);
	m_pAmbientColor = new CQColorSwatch(this);
	pAmbientRow->addWidget(m_pAmbientColor);
	connect(m_pAmbientColor, SIGNAL(ColorChanged()), this, SLOT(OnAmbientColorChanged()));
	m_pAmbientScale = AddSlider("#ZARN_Mintyard_AmbientLightScale", 1.0f, 10.0f, SLOT(OnAmbientScaleChanged(float)));

	// 9. Shadow.
	QHBoxLayout *pShadowRow = MakeRow(pLayout, "#ZARN_Mintyard_ShadowColor", this);
	pShadowRow->addStretch(1);
	m_pShadowColor = new CQColorSwatch(this);
	pShadowRow->addWidget(m_pShadowColor);
	connect(m_pShadowColor, SIGNAL(ColorChanged()), this, SLOT(OnShadowColorChanged()));
	m_pEntityShadowScale = AddSlider("#ZARN_Mintyard_EntityShadowScale", 1.0f, 10.0f, SLOT(OnEntityShadowScaleChanged(float)));

	// 10. Background.
	m_pBackgroundTextureGroup = new QWidget(this);
	QHBoxLayout *pTextureRow = new QHBoxLayout(m_pBackgroundTextureGroup);
	pTextureRow->setContentsMargins(0, 0, 0, 0);
	QLabel *pTextureLabel = new QLabel(MintyardTranslate("#ZARN_Mintyard_BackgroundTexture"), m_pBackgroundTextureGroup);
	pTextureLabel->setMinimumWidth(96);
	pTextureRow->addWidget(pTextureLabel);
	m_pBackgroundCombo = new QComboBox(m_pBackgroundTextureGroup);
	pTextureRow->addWidget(m_pBackgroundCombo, 1);
	pLayout->addWidget(m_pBackgroundTextureGroup);
	connect(m_pBackgroundCombo, SIGNAL(currentIndexChanged(int)), this, SLOT(OnBackgroundImageChanged(int)));

	m_pBackgroundColorGroup = new QGroupBox(MintyardTranslate("#ZARN_Mintyard_BackgroundColor"), this);
	QHBoxLayout *pColorsRow = new QHBoxLayout(m_pBackgroundColorGroup);
	for (int i = 0; i < 4; ++i)
	{
		m_pBackgroundColors[i] = new CQColorSwatch(m_pBackgroundColorGroup);
		pColorsRow->addWidget(m_pBackgroundColors[i]);
		connect(m_pBackgroundColors[i], SIGNAL(ColorChanged()), this, SLOT(OnBackgroundColorsChanged()));
	}
	pColorsRow->addStretch(1);
	pLayout->addWidget(m_pBackgroundColorGroup);

	// 11. Courier.
	m_pCourierGroup = new QGroupBox(MintyardTranslate("#ZARN_Mintyard_CourierIconControls"), this);
	QGridLayout *pCourierGrid = new QGridLayout(m_pCourierGroup);
	pCourierGrid->addWidget(new QLabel(MintyardTranslate("#ZARN_Mintyard_CourierIconType"), m_pCourierGroup), 0, 0);
	m_pCourierWalking = new QRadioButton(MintyardTranslate("#ZARN_Mintyard_CourierIconWalking"), m_pCourierGroup);
	m_pCourierFlying = new QRadioButton(MintyardTranslate("#ZARN_Mintyard_CourierIconFlying"), m_pCourierGroup);
	pCourierGrid->addWidget(m_pCourierWalking, 0, 1);
	pCourierGrid->addWidget(m_pCourierFlying, 0, 2);
	pCourierGrid->addWidget(new QLabel(MintyardTranslate("#ZARN_Mintyard_CourierIconTeam"), m_pCourierGroup), 1, 0);
	m_pCourierSunward = new QRadioButton(MintyardTranslate("#ZARN_Mintyard_CourierIconSunward"), m_pCourierGroup);
	m_pCourierMoonward = new QRadioButton(MintyardTranslate("#ZARN_Mintyard_CourierIconMoonward"), m_pCourierGroup);
	pCourierGrid->addWidget(m_pCourierSunward, 1, 1);
	pCourierGrid->addWidget(m_pCourierMoonward, 1, 2);
	// Two choices in one group box: each pair is a button group of its own.
	QButtonGroup *pTypeGroup = new QButtonGroup(m_pCourierGroup);
	pTypeGroup->addButton(m_pCourierWalking);
	pTypeGroup->addButton(m_pCourierFlying);
	QButtonGroup *pTeamGroup = new QButtonGroup(m_pCourierGroup);
	pTeamGroup->addButton(m_pCourierSunward);
	pTeamGroup->addButton(m_pCourierMoonward);
	connect(m_pCourierWalking, SIGNAL(toggled(bool)), this, SLOT(OnCourierTypeChange()));
	connect(m_pCourierFlying, SIGNAL(toggled(bool)), this, SLOT(OnCourierTypeChange()));
	connect(m_pCourierSunward, SIGNAL(toggled(bool)), this, SLOT(OnCourierTeamChange()));
	connect(m_pCourierMoonward, SIGNAL(toggled(bool)), this, SLOT(OnCourierTeamChange()));
	pLayout->addWidget(m_pCourierGroup);

	// 12. Ward.
	m_pWardGroup = new QGroupBox(MintyardTranslate("#ZARN_Mintyard_WardIconControls"), this);
	QGridLayout *pWardGrid = new QGridLayout(m_pWardGroup);
	pWardGrid->addWidget(new QLabel(MintyardTranslate("#ZARN_Mintyard_WardIconType"), m_pWardGroup), 0, 0);
	m_pWardObserver = new QRadioButton(MintyardTranslate("#ZARN_Mintyard_WardIconObserver"), m_pWardGroup);
	m_pWardSentry = new QRadioButton(MintyardTranslate("#ZARN_Mintyard_WardTypeSentry"), m_pWardGroup);
	pWardGrid->addWidget(m_pWardObserver, 0, 1);
	pWardGrid->addWidget(m_pWardSentry, 0, 2);
	connect(m_pWardObserver, SIGNAL(toggled(bool)), this, SLOT(OnWardTypeChange()));
	connect(m_pWardSentry, SIGNAL(toggled(bool)), this, SLOT(OnWardTypeChange()));
	pLayout->addWidget(m_pWardGroup);

	// 13. Copy and paste.
	QHBoxLayout *pCopyRow = MakeRow(pLayout, nullptr, this);
	m_pCopy = new QPushButton(MintyardTranslate("#ZARN_Mintyard_Copy"), this);
	m_pPasteAll = new QPushButton(MintyardTranslate("#ZARN_Mintyard_PasteAll"), this);
	m_pPasteVisuals = new QPushButton(MintyardTranslate("#ZARN_Mintyard_PasteVisuals"), this);
	pCopyRow->addWidget(m_pCopy);
	pCopyRow->addWidget(m_pPasteAll);
	pCopyRow->addWidget(m_pPasteVisuals);
	connect(m_pCopy, SIGNAL(clicked()), this, SLOT(OnCopy()));
	connect(m_pPasteAll, SIGNAL(clicked()), this, SLOT(OnPasteAll()));
	connect(m_pPasteVisuals, SIGNAL(clicked()), this, SLOT(OnPasteVisuals()));
}

// ---------------------------------------------------------------------------------------------
// Model to panel

void CQZarnPortraitEditorPanel::OnPortraitChanged()
{
	RebuildBackgroundCombo();
	RefreshValues();
	RefreshStyles();
	RefreshAnimations();
}

void CQZarnPortraitEditorPanel::OnPortraitCameraChanged()
{
	RefreshCamera();
}

void CQZarnPortraitEditorPanel::OnPortraitLightChanged()
{
	RefreshLight();
}

void CQZarnPortraitEditorPanel::OnPortraitBackgroundChanged()
{
	RebuildBackgroundCombo();
	RefreshBackgroundColors();
}

void CQZarnPortraitEditorPanel::OnPortraitStyleChanged()
{
	RefreshStyles();
	RefreshAnimations();
}

void CQZarnPortraitEditorPanel::OnPortraitPreviewModeChanged()
{
	m_nPreviewMode = m_pModel->GetPreviewMode();
	RebuildBackgroundCombo();
	RefreshValues();
	RefreshCourierAndWard();
	m_pCourierGroup->setVisible(m_nPreviewMode == ZARN_PREVIEW_MODE_COURIER);
	m_pWardGroup->setVisible(m_nPreviewMode == ZARN_PREVIEW_MODE_WARD);
	m_pBackgroundColorGroup->setVisible(m_nPreviewMode < ZARN_PREVIEW_MODE_ITEM);
	m_pBackgroundTextureGroup->setVisible(m_pBackgroundCombo->count() > 0);
}

void CQZarnPortraitEditorPanel::OnPortraitGizmoModeChanged()
{
	RefreshGizmoButtons();
	const int nMode = m_pModel->GetGizmoMode();
	if (nMode == PORTRAIT_GIZMO_CAMERA_POSITION || nMode == PORTRAIT_GIZMO_CAMERA_TARGET)
	{
		const QSignalBlocker block(m_pCloneCamera);
		m_pCloneCamera->setChecked(false);
	}
}

void CQZarnPortraitEditorPanel::RefreshGizmoButtons()
{
	const int nMode = m_pModel->GetGizmoMode();
	for (int i = 0; i < PANEL_GIZMO_BUTTON_COUNT; ++i)
		m_pGizmoButtons[i]->setEnabled(i != nMode);
}

void CQZarnPortraitEditorPanel::RefreshValues()
{
	RefreshCamera();
	RefreshLight();
	RefreshBackgroundColors();
}

void CQZarnPortraitEditorPanel::RefreshCamera()
{
	const bool bRecord = m_pModel->GetPortraitRecord() != nullptr;
	for (CQSliderLineEditFloat *pEdit : { m_pCameraRoll, m_pCameraFOV, m_pCameraFarZ })
		pEdit->setEnabled(bRecord);
	const QSignalBlocker blockRoll(m_pCameraRoll);
	const QSignalBlocker blockFOV(m_pCameraFOV);
	const QSignalBlocker blockFar(m_pCameraFarZ);
	m_pCameraRoll->SetValue(m_pModel->GetCameraRoll());
	m_pCameraFOV->SetValue(m_pModel->GetCameraFOV());
	m_pCameraFarZ->SetValue(m_pModel->GetCameraFarZ());
}

void CQZarnPortraitEditorPanel::RefreshLight()
{
	const CZarnPortraitRecord *pRecord = m_pModel->GetPortraitRecord();
	const CZarnPortraitRecord defaults;
	const CZarnPortraitRecord &record = pRecord ? *pRecord : defaults;
	const QSignalBlocker b1(m_pLightColor), b2(m_pLightScale), b3(m_pLightFOV), b4(m_pLightDistance), b5(m_pAmbientColor),
		b6(m_pAmbientScale), b7(m_pShadowColor), b8(m_pEntityShadowScale);
	m_pLightColor->SetColor(ToQColor(record.m_LightColor));
	m_pLightScale->SetValue(record.m_flLightScale);
	m_pLightFOV->SetValue(record.m_flLightFOV);
	m_pLightDistance->SetValue(record.m_flLightDistance);
	m_pAmbientColor->SetColor(ToQColor(record.m_AmbientColor));
	m_pAmbientScale->SetValue(record.m_flAmbientScale);
	m_pShadowColor->SetColor(ToQColor(record.m_ShadowColor));
	m_pEntityShadowScale->SetValue(record.m_flShadowScale);
}

void CQZarnPortraitEditorPanel::RefreshBackgroundColors()
{
	const CZarnPortraitRecord *pRecord = m_pModel->GetPortraitRecord();
	for (int i = 0; i < 4; ++i)
	{
		const QSignalBlocker block(m_pBackgroundColors[i]);
		m_pBackgroundColors[i]->SetColor(VectorToQColor(pRecord ? pRecord->m_BackgroundColor[i] : Vector(1.0f, 1.0f, 1.0f)));
	}
}

void CQZarnPortraitEditorPanel::RefreshCourierAndWard()
{
	const QSignalBlocker b1(m_pCourierWalking), b2(m_pCourierFlying), b3(m_pCourierSunward), b4(m_pCourierMoonward),
		b5(m_pWardObserver), b6(m_pWardSentry);
	(m_pModel->GetCourierType() == 1 ? m_pCourierFlying : m_pCourierWalking)->setChecked(true);
	(m_pModel->GetCourierTeam() == 1 ? m_pCourierMoonward : m_pCourierSunward)->setChecked(true);
	(m_pModel->GetWardType() == 1 ? m_pWardSentry : m_pWardObserver)->setChecked(true);
}

void CQZarnPortraitEditorPanel::RefreshStyles()
{
	const QSignalBlocker block(m_pStyleCombo);
	m_pStyleCombo->clear();
	const int nStyles = std::max(m_pModel->GetStyleCount(), 1);
	for (int i = 0; i < nStyles; ++i)
		m_pStyleCombo->addItem(MintyardTranslate("#ZARN_Mintyard_PreviewStyleNumber").arg(i));
	m_pStyleCombo->setCurrentIndex(std::clamp(m_pModel->GetCurrentStyle(), 0, nStyles - 1));
	m_pStyleCombo->setEnabled(nStyles > 1);
}

void CQZarnPortraitEditorPanel::RefreshAnimations()
{
	const CZarnPreviewModelSet *pSet = m_pModel->GetModelSet();
	CUtlVector<CUtlString> sequences;
	pSet->GetAnimationList(sequences);
	QStringList names;
	for (const CUtlString &sequence : sequences)
		names << QString::fromUtf8(sequence.c_str());
	m_pAnimation->SetAnimationList(names, QString::fromUtf8(pSet->GetSequence().c_str()));
	m_pAnimation->SetFrameCount(m_pModel->GetAnimationFrameCount());
	m_pAnimation->SetPlaybackSpeed(pSet->GetPlaybackSpeed());
	m_pAnimation->SetPlaying(pSet->IsPlaying());
	if (!pSet->IsPlaying())
		m_pAnimation->SetCurrentFrame(pSet->GetFrame());
}

void CQZarnPortraitEditorPanel::RebuildBackgroundCombo()
{
	const QSignalBlocker block(m_pBackgroundCombo);
	m_pBackgroundCombo->clear();
	const CZarnPortraitRecord *pRecord = m_pModel->GetPortraitRecord();
	int nCurrent = -1;
	const uint32 nBit = m_nPreviewMode >= 0 && m_nPreviewMode < 32 ? (1u << m_nPreviewMode) : 0;
	for (size_t i = 0; i < m_BackgroundList.size(); ++i)
	{
		const ZarnPortraitBackgroundEntry_t &entry = m_BackgroundList[i];
		if (!(entry.m_nFlags & nBit))
			continue;
		m_pBackgroundCombo->addItem(QString::fromUtf8(entry.m_DisplayName.c_str()), (int)i);
		if (pRecord && entry.m_Path == pRecord->m_BackgroundTexture)
			nCurrent = m_pBackgroundCombo->count() - 1;
	}
	m_pBackgroundCombo->setCurrentIndex(nCurrent);
	m_pBackgroundTextureGroup->setVisible(m_pBackgroundCombo->count() > 0);
}

// ---------------------------------------------------------------------------------------------
// Panel to model

void CQZarnPortraitEditorPanel::OnAnimationControlAnimationChanged(QString sequence)
{
	// A new sequence plays from its start.
	m_pModel->SetAnimationFrame(-1);
	m_pModel->SetAnimationSequence(sequence.toUtf8().constData());
	RefreshAnimations();
}

void CQZarnPortraitEditorPanel::OnAnimationControlPlaybackSpeedChanged(float flSpeed)
{
	m_pModel->SetAnimationSpeed(flSpeed);
}

void CQZarnPortraitEditorPanel::OnAnimationControlFrameChanged(int nFrame)
{
	m_pModel->SetAnimationFrame(nFrame);
}

void CQZarnPortraitEditorPanel::OnPlayingFrameChanged(int nFrame)
{
	if (m_pModel->GetModelSet()->IsPlaying())
		m_pAnimation->SetCurrentFrame(nFrame);
}

void CQZarnPortraitEditorPanel::OnChangeGizmoEditMode(int nPortraitEditMode)
{
	m_pModel->SetGizmoMode(nPortraitEditMode);
}

void CQZarnPortraitEditorPanel::OnCameraRollChanged(float flRoll)
{
	m_pModel->SetCameraRoll(flRoll);
}

void CQZarnPortraitEditorPanel::OnCameraFOVChanged(float flFOV)
{
	m_pModel->SetCameraFOV(flFOV);
}

void CQZarnPortraitEditorPanel::OnCameraFarZChanged(float flFarZ)
{
	m_pModel->SetCameraFarZ(flFarZ);
}

void CQZarnPortraitEditorPanel::OnLightColorChanged()
{
	m_pModel->SetLightColor(FromQColor(m_pLightColor->GetColor()));
}

void CQZarnPortraitEditorPanel::OnLightScaleChanged(float flScale)
{
	m_pModel->SetLightScale(flScale);
}

void CQZarnPortraitEditorPanel::OnAmbientColorChanged()
{
	m_pModel->SetAmbientColor(FromQColor(m_pAmbientColor->GetColor()));
}

void CQZarnPortraitEditorPanel::OnAmbientScaleChanged(float flScale)
{
	m_pModel->SetAmbientScale(flScale);
}

void CQZarnPortraitEditorPanel::OnShadowColorChanged()
{
	m_pModel->SetShadowColor(FromQColor(m_pShadowColor->GetColor()));
}

void CQZarnPortraitEditorPanel::OnEntityShadowScaleChanged(float flScale)
{
	m_pModel->SetEntityShadowScale(flScale);
}

void CQZarnPortraitEditorPanel::OnLightDistanceChanged(float flDistance)
{
	m_pModel->SetLightDistance(flDistance);
}

void CQZarnPortraitEditorPanel::OnLightFOVChanged(float flFOV)
{
	m_pModel->SetLightFOV(flFOV);
}

void CQZarnPortraitEditorPanel::OnBackgroundImageChanged(int nIndex)
{
	const QVariant data = m_pBackgroundCombo->itemData(nIndex);
	if (!data.isValid())
		return;
	const int nEntry = data.toInt();
	if (nEntry < 0 || nEntry >= (int)m_BackgroundList.size())
		return;
	if (m_pBackgroundImages)
		m_pBackgroundImages->RaisePriority();
	m_pModel->SetBackgroundTexture(m_BackgroundList[nEntry].m_Path.c_str());
}

void CQZarnPortraitEditorPanel::OnBackgroundColorsChanged()
{
	Vector colors[4];
	for (int i = 0; i < 4; ++i)
		colors[i] = QColorToVector(m_pBackgroundColors[i]->GetColor());
	m_pModel->SetBackgroundColors(colors);
}

void CQZarnPortraitEditorPanel::OnCourierTypeChange()
{
	m_pModel->SetCourierType(m_pCourierFlying->isChecked() ? 1 : 0);
}

void CQZarnPortraitEditorPanel::OnCourierTeamChange()
{
	m_pModel->SetCourierTeam(m_pCourierMoonward->isChecked() ? 1 : 0);
}

void CQZarnPortraitEditorPanel::OnWardTypeChange()
{
	m_pModel->SetWardType(m_pWardSentry->isChecked() ? 1 : 0);
}

void CQZarnPortraitEditorPanel::OnCurrentStyleChanged(int nStyle)
{
	m_pModel->SetCurrentStyle(nStyle);
}

// ---------------------------------------------------------------------------------------------
// Copy and paste

void CQZarnPortraitEditorPanel::OnCopy()
{
	const CZarnPortraitRecord *pRecord = m_pModel->GetPortraitRecord();
	if (!pRecord)
		return;
	QApplication::clipboard()->setText(QString::fromUtf8(PortraitRecordToClipboardText(*pRecord).c_str()), QClipboard::Clipboard);
}

void CQZarnPortraitEditorPanel::OnPasteAll()
{
	Paste(false);
}

void CQZarnPortraitEditorPanel::OnPasteVisuals()
{
	Paste(true);
}

void CQZarnPortraitEditorPanel::Paste(bool bVisualsOnly)
{
	CZarnPortraitRecord *pRecord = m_pModel->GetPortraitRecord();
	if (!pRecord)
		return;
	const QByteArray text = QApplication::clipboard()->text(QClipboard::Clipboard).toUtf8();
	if (text.size() < 2)
		return;
	// Kept before the record is replaced: the framing and the light's placement.
	const Vector cameraPosition = m_pModel->GetCameraPosition();
	const float flCameraFOV = m_pModel->GetCameraFOV();
	const float flCameraFarZ = m_pModel->GetCameraFarZ();
	const Vector cameraTarget = m_pModel->GetCameraTarget();
	const Vector lightPosition = pRecord->m_LightPosition;
	const QAngle lightAngles = pRecord->m_LightAngles;
	const float flLightFOV = pRecord->m_flLightFOV;
	const float flLightDistance = pRecord->m_flLightDistance;

	CZarnPortraitRecord pasted;
	if (!PortraitRecordFromClipboardText(text.constData(), pasted))
	{
		QApplication::beep();
		return;
	}
	m_pModel->ReplaceRecord(pasted, bVisualsOnly);
	if (!bVisualsOnly)
	{
		m_pModel->NotifyPortraitChanged();
		return;
	}
	m_pModel->SetCameraPosition(cameraPosition);
	m_pModel->SetCameraFOV(flCameraFOV);
	m_pModel->SetCameraFarZ(flCameraFarZ);
	m_pModel->SetCameraTarget(cameraTarget);
	m_pModel->SetLightPosition(lightPosition);
	m_pModel->SetLightAngles(lightAngles);
	m_pModel->SetLightFOV(flLightFOV);
	m_pModel->SetLightDistance(flLightDistance);
	m_pModel->NotifyPortraitChanged();
}
