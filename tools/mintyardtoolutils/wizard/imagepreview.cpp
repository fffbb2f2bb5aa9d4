#include "mintyardtoolutils/wizard/imagepreview.h"

#include <memory>

#include <QDateTime>
#include <QFileInfo>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QPainter>
#include <QPushButton>
#include <QRadioButton>
#include <QTimer>
#include <QVBoxLayout>

#include "core/fileio.h"
#include "core/keyvalues.h"
#include "core/logging.h"
#include "core/strtools.h"
#include "itemtool/itemtoolmodel.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/core/templateaccess.h"
#include "mintyardtoolutils/pipeline/importdriver.h"
#include "mintyardtoolutils/pipeline/itemkeys.h"
#include "mintyardtoolutils/wizard/gamechannel.h"
#include "mintyardtoolutils/wizard/wizardlog.h"
#include "mintyardtoolutils/wizard/wizardutils.h"

namespace
{
const MintyardAspectRatio_t s_AspectRatios[MINTYARD_ASPECT_RATIO_COUNT] = {
	{ 16, 9, "#ZARN_UI_LoadScreen_16_9" },
	{ 16, 10, "#ZARN_UI_LoadScreen_16_10" },
	{ 4, 3, "#ZARN_UI_LoadScreen_4_3" },
};

constexpr int EMOTICON_FRAME_SIZE = 32;
constexpr int EMOTICON_REPAINT_MS = 33;
} // namespace

const MintyardAspectRatio_t &GetMintyardAspectRatio(int nIndex)
{
	return s_AspectRatios[nIndex < 0 || nIndex >= MINTYARD_ASPECT_RATIO_COUNT ? 0 : nIndex];
}

LoadingScreenLayout_t ComputeLoadingScreenLayout(const QSize &widgetSize, int nRatioIndex)
{
	LoadingScreenLayout_t layout;
	const double flInnerWidth = widgetSize.width() - 7;
	const double flInnerHeight = widgetSize.height() - 7;
	if (flInnerWidth <= 0 || flInnerHeight <= 0)
		return layout;
	// The image's own frame is 16:9.
	double flWidth, flHeight;
	if (flInnerWidth / 16.0 >= flInnerHeight / 9.0)
	{
		flHeight = flInnerHeight;
		flWidth = flInnerHeight / 9.0 * 16.0;
	}
	else
	{
		flWidth = flInnerWidth;
		flHeight = flInnerWidth / 16.0 * 9.0;
	}
	const double flLeft = (flInnerWidth - flWidth) * 0.5 + 4.0;
	const double flTop = (flInnerHeight - flHeight) * 0.5 + 4.0;
	layout.m_Image = QRectF(flLeft, flTop, flWidth, flHeight);

	const MintyardAspectRatio_t &ratio = GetMintyardAspectRatio(nRatioIndex);
	const double flVisibleWidth = flHeight * ratio.m_nWidth / ratio.m_nHeight;
	const double flVisibleLeft = (flWidth - flVisibleWidth) * 0.5 + flLeft;
	layout.m_Visible = QRectF(flVisibleLeft, flTop, flVisibleWidth, flHeight);
	// The strips of the image that the screen cuts off, up to a pixel before the visible edge.
	const double flLeftStrip = flVisibleLeft - 1.0 - flLeft;
	if (flLeftStrip > 0)
		layout.m_LeftShade = QRectF(flLeft, flTop, flLeftStrip, flHeight);
	const double flRightStart = flVisibleLeft + flVisibleWidth + 1.0;
	const double flRightStrip = flLeft + flWidth - flRightStart;
	if (flRightStrip > 0)
		layout.m_RightShade = QRectF(flRightStart, flTop, flRightStrip, flHeight);
	return layout;
}

// ---------------------------------------------------------------------------------------------

CQImageAspectRatioPreview::CQImageAspectRatioPreview(QWidget *pParent) : QWidget(pParent)
{
	setMinimumSize(320, 180);
	setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
}

void CQImageAspectRatioPreview::SetPixmap(const QPixmap &pixmap)
{
	m_Pixmap = pixmap;
	update();
}

void CQImageAspectRatioPreview::SetAspectRatioIndex(int nIndex)
{
	m_nAspectRatio = nIndex;
	update();
}

void CQImageAspectRatioPreview::paintEvent(QPaintEvent *)
{
	QPainter painter(this);
	painter.setPen(Qt::NoPen);
	painter.fillRect(rect(), Qt::black);
	const LoadingScreenLayout_t layout = ComputeLoadingScreenLayout(size(), m_nAspectRatio);
	if (layout.m_Image.isEmpty())
		return;
	if (!m_Pixmap.isNull())
	{
		painter.setRenderHint(QPainter::SmoothPixmapTransform);
		painter.drawPixmap(layout.m_Image, m_Pixmap, QRectF(m_Pixmap.rect()));
	}
	const QColor shade(0, 0, 0, 192);
	if (!layout.m_LeftShade.isEmpty())
		painter.fillRect(layout.m_LeftShade, shade);
	if (!layout.m_RightShade.isEmpty())
		painter.fillRect(layout.m_RightShade, shade);
	painter.setPen(QPen(Qt::white, 1));
	painter.setBrush(Qt::NoBrush);
	painter.drawRect(layout.m_Visible.adjusted(-1, -1, 1, 1));
}

CQImportLoadingScreenPreview::CQImportLoadingScreenPreview(QWidget *pParent, const QPixmap &pixmap) : QWidget(pParent)
{
	QHBoxLayout *pLayout = new QHBoxLayout(this);
	m_pPreview = new CQImageAspectRatioPreview(this);
	m_pPreview->SetPixmap(pixmap);
	pLayout->addWidget(m_pPreview, 1);

	QVBoxLayout *pRight = new QVBoxLayout();
	QGroupBox *pGroup = new QGroupBox(MintyardTranslate("#ZARN_Mintyard_PreviewAspectRatio"), this);
	QVBoxLayout *pGroupLayout = new QVBoxLayout(pGroup);
	for (int i = 0; i < MINTYARD_ASPECT_RATIO_COUNT; ++i)
	{
		m_pRadio[i] = new QRadioButton(MintyardTranslate(s_AspectRatios[i].m_pszText), pGroup);
		pGroupLayout->addWidget(m_pRadio[i]);
	}
	m_pRadio[0]->setChecked(true);
	for (int i = 0; i < MINTYARD_ASPECT_RATIO_COUNT; ++i)
		connect(m_pRadio[i], SIGNAL(toggled(bool)), this, SLOT(OnPreviewAspectRatioChanged()));
	pRight->addWidget(pGroup);
	pRight->addStretch(1);
	pLayout->addLayout(pRight);
}

void CQImportLoadingScreenPreview::OnPreviewAspectRatioChanged()
{
	for (int i = 0; i < MINTYARD_ASPECT_RATIO_COUNT; ++i)
	{
		if (m_pRadio[i]->isChecked())
		{
			m_pPreview->SetAspectRatioIndex(i);
			break;
		}
	}
	m_pPreview->update();
}

// ---------------------------------------------------------------------------------------------

CQEmoticonPreview::CQEmoticonPreview(QWidget *pParent, const QString &path) : QWidget(pParent)
{
	if (m_Pixmap.load(path))
		m_nFrameCount = m_Pixmap.width() / EMOTICON_FRAME_SIZE;
	else
		m_nFrameCount = 0;
	setFixedSize(2 * EMOTICON_FRAME_SIZE, 2 * EMOTICON_FRAME_SIZE);
	setToolTip(path);
}

int CQEmoticonPreview::FrameAt(qint64 nMilliseconds) const
{
	if (m_nFrameCount <= 0)
		return -1;
	// Ten frames a second.
	return (int)((nMilliseconds / m_nFrameTime) % m_nFrameCount);
}

void CQEmoticonPreview::paintEvent(QPaintEvent *)
{
	QPainter painter(this);
	painter.fillRect(rect(), Qt::black);
	if (m_nFrameCount <= 0)
		return;
	const int nFrame = FrameAt(QDateTime::currentMSecsSinceEpoch());
	painter.setRenderHint(QPainter::SmoothPixmapTransform, false);
	painter.drawPixmap(rect(), m_Pixmap, QRect(nFrame * EMOTICON_FRAME_SIZE, 0, EMOTICON_FRAME_SIZE, qMin(EMOTICON_FRAME_SIZE, m_Pixmap.height())));
	// The next frame is asked for right away (bounded to a few repaints a frame time).
	QTimer::singleShot(EMOTICON_REPAINT_MS, this, SLOT(update()));
}

// ---------------------------------------------------------------------------------------------

CQImportImagePreview::CQImportImagePreview(QWidget *pParent) : QWidget(pParent)
{
	m_pLayout = new QVBoxLayout(this);
	m_pLayout->setContentsMargins(8, 8, 8, 8);
}

CQImportImagePreview::~CQImportImagePreview()
{
	ClearChildren();
}

void CQImportImagePreview::ClearChildren()
{
	for (QWidget *pChild : m_Children)
		delete pChild;
	m_Children.clear();
	while (QLayoutItem *pItem = m_pLayout->takeAt(0))
		delete pItem;
}

void CQImportImagePreview::AttachSession(CMintyardImportSession *pSession)
{
	ClearChildren();
	m_pSession = pSession;
	if (!pSession || pSession->m_ImageSets.empty())
		return;
	const CMintyardCfg_ZarnImageSet *pSet = pSession->m_ImageSets[0];
	switch (ImageSetType(pSet->GetImageSetTemplate()))
	{
	case MINTYARD_IMAGE_SET_LOADING_SCREEN:
	{
		// The image the import placed in the content tree; before an import, the author's file.
		QPixmap pixmap;
		const CUtlString placed =
			ContentPath(pSession, V_Format("canopy/images/loadingscreens/%s/loadingscreen.png", pSession->GetNameElement()->Value().c_str()).c_str());
		if (!placed.empty() && Plat_FileExists(placed.c_str()))
			pixmap.load(QString::fromUtf8(placed.c_str()));
		else if (!pSet->m_Images.empty() && !pSet->m_Images[0]->IsEmpty())
			pixmap.load(QFileInfo(QString::fromUtf8(pSet->m_Images[0]->Value().c_str())).absoluteFilePath());
		CQImportLoadingScreenPreview *pPreview = new CQImportLoadingScreenPreview(this, pixmap);
		m_Children.push_back(pPreview);
		m_pLayout->addWidget(pPreview, 1);
		break;
	}
	case MINTYARD_IMAGE_SET_EMOTICON:
	{
		QHBoxLayout *pRow = new QHBoxLayout();
		for (const CMintyardCfg_ZarnImageSet::CEmoticon *pEmoticon : pSet->m_Emoticons)
		{
			if (!pEmoticon->m_pImage || pEmoticon->m_pImage->IsEmpty())
				continue;
			CQEmoticonPreview *pPreview = new CQEmoticonPreview(this, QString::fromUtf8(pEmoticon->m_pImage->Value().c_str()));
			m_Children.push_back(pPreview);
			pRow->addWidget(pPreview);
		}
		pRow->addStretch(1);
		m_pLayout->addLayout(pRow);
		m_pLayout->addStretch(1);
		break;
	}
	case MINTYARD_IMAGE_SET_CURSOR_PACK:
	{
		QPushButton *pButton = new QPushButton(MintyardTranslate("#ZARN_Mintyard_PreviewInGame"), this);
		pButton->setObjectName("mintyard_preview_in_game");
		pButton->setMaximumWidth(300);
		connect(pButton, SIGNAL(clicked()), this, SLOT(OnPreviewInGame()));
		m_Children.push_back(pButton);
		m_pLayout->addWidget(pButton, 0, Qt::AlignTop);
		m_pLayout->addStretch(1);
		break;
	}
	default:
		break;
	}
}

void CQImportImagePreview::OnPreviewInGame()
{
	m_LastPreviewMessage.clear();
	if (!m_pSession || m_pSession->m_ItemDefs.size() != 1)
	{
		Log_Warning(LOG_MINTYARD_WIZARD, "Import session item def count (%d) != 1\n", m_pSession ? (int)m_pSession->m_ItemDefs.size() : 0);
		m_LastPreviewMessage = "Import session item def count != 1";
		return;
	}
	CMintyardCfg_ZarnItemDef *pItemDef = m_pSession->m_ItemDefs[0];
	const uint32 nIndex = ECON_TEST_ITEM_INDEX_BASE;

	// The keys are made from a test name and description; the record keeps its own.
	const uint32 nSavedIndex = pItemDef->m_nDefIndex;
	const CUtlString savedName = pItemDef->m_ItemName, savedDescription = pItemDef->m_ItemDescription;
	pItemDef->m_nDefIndex = nIndex;
	pItemDef->m_ItemName = "new_test_item";
	pItemDef->m_ItemDescription = "test item";
	std::unique_ptr<KeyValues> pItem(CreateKVForItem(pItemDef));
	pItemDef->m_nDefIndex = nSavedIndex;
	pItemDef->m_ItemName = savedName;
	pItemDef->m_ItemDescription = savedDescription;
	if (!pItem)
	{
		Log_Warning(LOG_MINTYARD_WIZARD, "Failed to create preview item KV!\n");
		m_LastPreviewMessage = "Failed to create preview item KV!";
		return;
	}

	// The tool's own schema gets the item by its index.
	std::unique_ptr<KeyValues> pToolCopy(pItem->MakeCopy());
	pToolCopy->SetName(V_Format("%u", nIndex).c_str());
	if (IEconItemToolModel *pModel = EconItemToolModel())
		pModel->SaveItem(pToolCopy.get(), false);

	pItem->SetName("ItemSlotAny");
	pItem->SetInt("test_existing_item", 1);
	pItem->SetInt("item_def", (int)nIndex);
	KeyValues tree("Mintyard Test Items");
	tree.AddSubKey(pItem.release());

	const QString channel = MintyardGameChannelName(QString::fromUtf8(m_pSession->GetGameRoot().c_str()));
	QString error;
	if (!SendTreeToGame(channel, &tree, true, &error))
	{
		Log_Warning(LOG_MINTYARD_WIZARD, "%s\n", error.toUtf8().constData());
		m_LastPreviewMessage = MintyardTranslate("#ZARN_Mintyard_PreviewInGame_NoGame").arg(channel, error);
		ShowWizardMessage(this, QMessageBox::Warning, MintyardTranslate("#ZARN_Mintyard_PreviewInGame"), m_LastPreviewMessage);
	}
}
