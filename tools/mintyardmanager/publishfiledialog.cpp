#include "mintyardmanager/publishfiledialog.h"

#include <algorithm>
#include <cmath>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDateTime>
#include <QDesktopServices>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QImage>
#include <QImageReader>
#include <QLineEdit>
#include <QMessageBox>
#include <QMimeData>
#include <QPainter>
#include <QProgressDialog>
#include <QPushButton>
#include <QRadioButton>
#include <QScreen>
#include <QTimer>
#include <QUrl>

#include "bdllib/formatfilesize.h"
#include "mintyardmanager/mintyardmanagertool.h"
#include "mintyardmanager/resources.h"
#include "toolframework/toolframework.h"

namespace
{
QString Fmt(const char *token, const QString &a1 = QString(), const QString &a2 = QString(), const QString &a3 = QString())
{
	const QByteArray b1 = a1.toUtf8(), b2 = a2.toUtf8(), b3 = a3.toUtf8();
	return QString::fromUtf8(Localize()
								 ->Format(token, a1.isNull() ? nullptr : b1.constData(), a2.isNull() ? nullptr : b2.constData(),
									 a3.isNull() ? nullptr : b3.constData())
								 .c_str());
}

struct ExtraTag_t
{
	int m_nMode;
	const char *m_pszSection;
	const char *m_pszToken;
	const char *m_pszTag;
	const char *m_pszLink;
};

const ExtraTag_t s_ExtraTags[] = {
	{ 0, "#ZARN_Mintyard_ExtraMiscTags", "#ZARN_Mintyard_Tags_Hearthfrost2017", "Hearthfrost 2017", "#ZARN_Mintyard_Tags_Hearthfrost2017_URL" },
	{ 1, "#ZARN_Mintyard_ExtraMiscTags", "#ZARN_Mintyard_Tags_SingleItem", "Single Item", nullptr },
	{ 1, "#ZARN_Mintyard_ExtraMiscTags", "#ZARN_Mintyard_Tags_Hearthfrost2017_HeroItems", "Hearthfrost 2017 Hero Items", nullptr },
	{ 1, "#ZARN_Mintyard_ExtraBrandingTags", "#ZARN_Mintyard_Branding_Team", "Team Branding", nullptr },
	{ 1, "#ZARN_Mintyard_ExtraBrandingTags", "#ZARN_Mintyard_Branding_Player", "Player Branding", nullptr },
	{ 1, "#ZARN_Mintyard_ExtraBrandingTags", "#ZARN_Mintyard_Branding_Caster", "Caster Branding", nullptr },
	{ 3, "#TOLVA_Mintyard_ExtraMiscTags", "#TOLVA_Mintyard_Mode_classic", "Classic", nullptr },
	{ 3, "#TOLVA_Mintyard_ExtraMiscTags", "#TOLVA_Mintyard_Mode_deathmatch", "Deathmatch", nullptr },
	{ 3, "#TOLVA_Mintyard_ExtraMiscTags", "#TOLVA_Mintyard_Mode_custom", "Custom", nullptr },
	{ 3, "#TOLVA_Mintyard_ExtraMiscTags", "#TOLVA_Mintyard_Mode_coopraid", "Co-op Raid", nullptr },
	{ 3, "#TOLVA_Mintyard_ExtraMiscTags", "#TOLVA_Mintyard_Mode_duo", "Duo", nullptr },
};

const int kMaxTextLength = 8000;
} // namespace

// ---------------------------------------------------------------------------------------------
// Placeholder widgets

void PaintPublishPlaceholder(QPainter &painter, const QRect &rect, int inset, const QString &text)
{
	const QPalette palette = QApplication::palette();
	painter.fillRect(rect, palette.color(QPalette::AlternateBase));
	painter.setPen(QPen(palette.color(QPalette::Mid), 5));
	const int l = rect.left(), r = rect.right(), t = rect.top(), b = rect.bottom();
	// Corners: one line along each edge from each corner.
	painter.drawLine(l, t, l + inset, t);
	painter.drawLine(l, t, l, t + inset);
	painter.drawLine(r, t, r - inset, t);
	painter.drawLine(r, t, r, t + inset);
	painter.drawLine(l, b, l + inset, b);
	painter.drawLine(l, b, l, b - inset);
	painter.drawLine(r, b, r - inset, b);
	painter.drawLine(r, b, r, b - inset);
	// The middle of each edge.
	const int cx = rect.center().x(), cy = rect.center().y();
	painter.drawLine(cx - inset / 2, t, cx + inset / 2, t);
	painter.drawLine(cx - inset / 2, b, cx + inset / 2, b);
	painter.drawLine(l, cy - inset / 2, l, cy + inset / 2);
	painter.drawLine(r, cy - inset / 2, r, cy + inset / 2);
	painter.setPen(palette.color(QPalette::Text));
	painter.drawText(rect, Qt::AlignCenter | Qt::TextWordWrap, text);
}

CLabelCustomPaint::CLabelCustomPaint(int targetWidth, int targetHeight, QWidget *parent)
	: QLabel(parent), m_nTargetWidth(targetWidth), m_nTargetHeight(targetHeight)
{
}

void CLabelCustomPaint::paintEvent(QPaintEvent *)
{
	QPainter painter(this);
	painter.setRenderHint(QPainter::Antialiasing, true);
	const QPixmap pix = pixmap(Qt::ReturnByValue);
	if (pix.isNull())
	{
		PaintPublishPlaceholder(painter, rect(), width() / 16,
			Fmt("#Mintyard_Publish_ImageInstruction", QString("%1x%2").arg(m_nTargetWidth).arg(m_nTargetHeight)));
		return;
	}
	const double aspect = (double)m_nTargetWidth / (double)m_nTargetHeight;
	int drawWidth = width(), drawHeight = height();
	if (width() >= height() * aspect)
		drawWidth = (int)std::ceil(height() * aspect);
	else
		drawHeight = (int)std::ceil(width() / aspect);
	const QRect target((width() - drawWidth) / 2, (height() - drawHeight) / 2, drawWidth, drawHeight);
	painter.setRenderHint(QPainter::SmoothPixmapTransform, true);
	painter.drawPixmap(target, pix, pix.rect());
}

CTextEditCustomPaint::CTextEditCustomPaint(int targetWidth, QWidget *parent) : QTextEdit(parent), m_nTargetWidth(targetWidth)
{
}

void CTextEditCustomPaint::paintEvent(QPaintEvent *event)
{
	if (m_bActive)
	{
		QTextEdit::paintEvent(event);
		return;
	}
	QPainter painter(viewport());
	painter.setRenderHint(QPainter::Antialiasing, true);
	PaintPublishPlaceholder(painter, viewport()->rect(), m_nTargetWidth / 16, Translate("#Mintyard_Publish_UpdateNotesInstruction"));
}

void CTextEditCustomPaint::mousePressEvent(QMouseEvent *event)
{
	QTextEdit::mousePressEvent(event);
	if (!m_bActive)
	{
		m_bActive = true;
		clear();
		viewport()->update();
	}
}

// ---------------------------------------------------------------------------------------------
// The dialog

std::function<void(const QUrl &)> &CPublishFileDialog::UrlOpener()
{
	static std::function<void(const QUrl &)> s_Opener = [](const QUrl &url) { QDesktopServices::openUrl(url); };
	return s_Opener;
}

std::function<int(int, const QString &, const QString &)> &CPublishFileDialog::MessageHook()
{
	static std::function<int(int, const QString &, const QString &)> s_Hook;
	return s_Hook;
}

int CPublishFileDialog::ShowMessage(QWidget *parent, int icon, const QString &title, const QString &text, bool bYesNo)
{
	if (MessageHook())
		return MessageHook()(icon, title, text);
	QMessageBox box((QMessageBox::Icon)icon, title, text, bYesNo ? (QMessageBox::Yes | QMessageBox::No) : QMessageBox::Ok, parent);
	if (bYesNo)
	{
		const QPixmap pixmap = LoadToolPixmap("game:tools/images/mintyardmanager/icon_warning.png");
		if (!pixmap.isNull())
			box.setIconPixmap(pixmap);
	}
	return box.exec();
}

CPublishFileDialog::CPublishFileDialog(const PublishedFileInfo_t *record, QWidget *parent, bool bEditOnly, int mode)
	: QDialog(parent, Qt::WindowTitleHint | Qt::WindowSystemMenuHint), m_eMode(mode), m_bEditOnly(bEditOnly)
{
	if (record)
	{
		m_record = *record;
		m_bExisting = true;
	}
	else
	{
		m_record.m_nPublishedFileId = 0;
		m_record.m_hFile = UGC_HANDLE_INVALID;
		m_record.m_hPreviewFile = UGC_HANDLE_INVALID;
		m_record.m_sFileName.clear();
		m_record.m_nFileSize = 0;
		m_record.m_bOwnedByMe = true;
		m_record.m_eFileType = (mode == MINTYARD_MODE_ZARN_ITEMS || mode == MINTYARD_MODE_TOLVA_ITEMS) ? 1 : 0;
	}
	m_pPreviewTimer = new QTimer(this);
	connect(m_pPreviewTimer, SIGNAL(timeout()), this, SLOT(PreviewDownloadTimerUpdate()));

	BuildAddonList();
	BuildForm();
	if (m_bExisting)
		LoadRecord();
	m_pTitleEdit->setFocus();
}

CPublishFileDialog::~CPublishFileDialog()
{
	StopTimer();
	CloseProgress();
	if (!m_sTempPreviewPath.isEmpty())
		QFile::remove(m_sTempPreviewPath);
	QFile::remove(QDir::current().filePath(g_pszTempPreview));
	DiscardPackedAddon();
	// The previews go; their folder goes with them when nothing else (a moved zip) is in it.
	for (const QString &path : m_listTempFiles)
	{
		QFile::remove(path);
		QDir().rmdir(QFileInfo(path).path());
	}
	m_callPublish.Cancel();
	m_callSubmitUpdate.Cancel();
	m_callQuery.Cancel();
	m_callCreate.Cancel();
}

uint32 CPublishFileDialog::GetAppID()
{
	IBrumeUtils *utils = BrumeAPIContext()->BrumeUtils();
	return utils ? utils->GetAppID() : 0;
}

bool CPublishFileDialog::AskCancelPublish(QWidget *parent)
{
	return ShowMessage(parent, QMessageBox::Warning, Translate("#Mintyard_Publish_CancelTitle"), Translate("#Mintyard_Publish_CancelQuestion"),
			   true) == QMessageBox::Yes;
}

void CPublishFileDialog::BuildAddonList()
{
	if (!g_pAddonService)
		return;
	CUtlVector<CUtlString> all, mounted;
	g_pAddonService->GetAddonList(all);
	for (const CUtlString &name : all)
		m_listAddonFolders << QString::fromUtf8(name.c_str());
	g_pAddonService->GetMountedAddons(mounted);
	if (!mounted.empty())
		m_nDefaultAddon = m_listAddonFolders.indexOf(QString::fromUtf8(mounted[0].c_str()));
}

void CPublishFileDialog::BuildForm()
{
	const bool bAddonMode = IsAddonMode(m_eMode);
	const int displayWidth = m_eMode == MINTYARD_MODE_ZARN_ADDON ? 700 : 512;
	const int displayHeight = m_eMode == MINTYARD_MODE_ZARN_ADDON ? 700 * 768 / 1024 : 512;
	const int targetWidth = m_eMode == MINTYARD_MODE_ZARN_ADDON ? 1024 : 512;
	const int targetHeight = m_eMode == MINTYARD_MODE_ZARN_ADDON ? 768 : 512;

	CVBoxLayoutMaxSize *outer = new CVBoxLayoutMaxSize(this);
	QFormLayout *form = new QFormLayout();
	outer->addLayout(form);

	if (m_bExisting && !m_bEditOnly)
	{
		m_pChangeNoteEdit = new CTextEditCustomPaint(targetWidth, this);
		m_pChangeNoteEdit->setObjectName("mintyard_publish_changenote");
		m_pChangeNoteEdit->setAcceptRichText(false);
		m_pChangeNoteEdit->setMaximumHeight(100);
		m_pChangeNoteEdit->setEnabled(true);
		connect(m_pChangeNoteEdit, SIGNAL(textChanged()), this, SLOT(ChangelogTextChanged()));
		form->addRow(Translate("#Mintyard_Publish_ChangeLog"), m_pChangeNoteEdit);
	}

	m_pTitleEdit = new QLineEdit(this);
	m_pTitleEdit->setObjectName("mintyard_publish_title");
	m_pTitleEdit->setMaxLength(129);
	m_pTitleEdit->setMaximumWidth(displayWidth);
	connect(m_pTitleEdit, SIGNAL(textEdited(const QString &)), this, SLOT(TitleTextEdited(const QString &)));
	form->addRow(Translate("#Mintyard_Publish_Title"), m_pTitleEdit);

	m_pDescriptionEdit = new QTextEdit(this);
	m_pDescriptionEdit->setObjectName("mintyard_publish_description");
	m_pDescriptionEdit->setAcceptRichText(false);
	m_pDescriptionEdit->setFixedSize(16777215, 16777215);
	connect(m_pDescriptionEdit, SIGNAL(textChanged()), this, SLOT(DescriptionTextChanged()));
	form->addRow(Translate("#Mintyard_Publish_Description"), m_pDescriptionEdit);

	// Preview row: a label and the browse button on the left, the image on the right.
	QWidget *previewLeft = new QWidget(this);
	QVBoxLayout *leftColumn = new QVBoxLayout(previewLeft);
	leftColumn->setContentsMargins(0, 0, 0, 0);
	leftColumn->addWidget(new QLabel(Translate("#Mintyard_Publish_PreviewImage"), previewLeft));
	m_pBrowseButton = new QPushButton(previewLeft);
	m_pBrowseButton->setObjectName("mintyard_publish_browse");
	m_pBrowseButton->setFixedSize(16, 16);
	m_pBrowseButton->setIcon(LoadToolIcon("game:tools/images/assetbrowser/workingset.png", QStyle::SP_DirOpenIcon));
	m_pBrowseButton->setToolTip(Translate("#Mintyard_Publish_BrowseForImage"));
	connect(m_pBrowseButton, SIGNAL(clicked()), this, SLOT(BrowseImageButtonClicked()));
	leftColumn->addWidget(m_pBrowseButton, 0, Qt::AlignTop);
	leftColumn->addStretch();
	m_pPreviewLabel = new CLabelCustomPaint(targetWidth, targetHeight, this);
	m_pPreviewLabel->setObjectName("mintyard_publish_preview");
	m_pPreviewLabel->SetDisplaySize(QSize(displayWidth, displayHeight));
	m_pPreviewLabel->setFixedSize(displayWidth, displayHeight);
	m_pPreviewLabel->setMinimumSize(displayWidth / 3, displayHeight / 3);
	form->addRow(previewLeft, m_pPreviewLabel);

	if (!m_bEditOnly && bAddonMode)
	{
		m_pAddonCombo = new QComboBox(this);
		m_pAddonCombo->setObjectName("mintyard_publish_addon");
		m_pAddonCombo->addItems(m_listAddonFolders);
		m_pAddonCombo->setCurrentIndex(m_nDefaultAddon < 0 ? 0 : m_nDefaultAddon);
		m_pAddonCombo->setMaximumWidth(displayWidth);
		connect(m_pAddonCombo, SIGNAL(currentIndexChanged(int)), this, SLOT(CustomGameFolderChanged(int)));
		form->addRow(Translate("#Mintyard_Publish_AddonFolder"), m_pAddonCombo);
	}
	if (!m_bEditOnly)
	{
		m_pUploadSizeLabel = new QLabel(this);
		m_pUploadSizeLabel->setObjectName("mintyard_publish_uploadsize");
		form->addRow(Translate("#Mintyard_Publish_UploadSize"), m_pUploadSizeLabel);
		if (!bAddonMode)
			m_pUploadSizeLabel->setVisible(false);
	}

	AddTagSections(form);

	m_pVisibilityGroup = new QGroupBox(Translate("#Mintyard_Publish_Visibility"), this);
	QHBoxLayout *radios = new QHBoxLayout(m_pVisibilityGroup);
	m_pRadioPublic = new QRadioButton(Translate("#Mintyard_Publish_Visibility_Public"), m_pVisibilityGroup);
	m_pRadioPublic->setObjectName("mintyard_publish_public");
	m_pRadioFriends = new QRadioButton(Translate("#Mintyard_Publish_Visibility_FriendsOnly"), m_pVisibilityGroup);
	m_pRadioFriends->setObjectName("mintyard_publish_friends");
	m_pRadioHidden = new QRadioButton(Translate("#Mintyard_Publish_Visibility_Hidden"), m_pVisibilityGroup);
	m_pRadioHidden->setObjectName("mintyard_publish_hidden");
	for (QRadioButton *radio : { m_pRadioPublic, m_pRadioFriends, m_pRadioHidden })
	{
		radios->addWidget(radio);
		connect(radio, SIGNAL(toggled(bool)), this, SLOT(VisibilityChanged()));
	}
	radios->addStretch();
	form->addRow(m_pVisibilityGroup);

	QHBoxLayout *buttons = new QHBoxLayout();
	buttons->addStretch();
	QPushButton *cancel = new QPushButton(Translate("#Mintyard_Publish_Cancel"), this);
	cancel->setObjectName("mintyard_publish_cancel");
	connect(cancel, SIGNAL(clicked()), this, SLOT(CancelButtonClicked()));
	buttons->addWidget(cancel);
	m_pSubmitButton = new QPushButton(Translate("#Mintyard_Publish_Submit"), this);
	m_pSubmitButton->setObjectName("mintyard_publish_submit");
	m_pSubmitButton->setDefault(true);
	connect(m_pSubmitButton, SIGNAL(clicked()), this, SLOT(SubmitButtonClicked()));
	buttons->addWidget(m_pSubmitButton);
	outer->addLayout(buttons);

	m_sBaseTitle = Translate("#Mintyard_Publish_WindowTitle");
	setWindowTitle(m_sBaseTitle);
	setAcceptDrops(true);
	setSizeGripEnabled(true);

	if (!m_record.m_bOwnedByMe)
	{
		for (QWidget *w : std::initializer_list<QWidget *>{ m_pTitleEdit, m_pDescriptionEdit, m_pPreviewLabel, m_pBrowseButton, m_pRadioPublic,
				 m_pRadioFriends, m_pRadioHidden })
			w->setEnabled(false);
		if (m_pAddonCombo)
			m_pAddonCombo->setEnabled(false);
		m_pLockButton = new QPushButton(m_pPreviewLabel);
		m_pLockButton->setIcon(LoadToolIcon("game:tools/images/common/lock.png", QStyle::SP_MessageBoxWarning));
		m_pLockButton->setToolTip(Translate("#Mintyard_Publish_PrimaryOwnerPreview"));
		m_pLockButton->setObjectName("mintyard_publish_lock");
	}

	const QSize hint = outer->sizeHint();
	outer->SetMaxSize(hint);
	if (QScreen *screen = QGuiApplication::primaryScreen())
	{
		const QRect available = screen->availableGeometry();
		if (hint.width() > available.width() || hint.height() > available.height())
			resize(0, 0);
	}
}

void CPublishFileDialog::AddTagSections(QFormLayout *form)
{
	QGroupBox *group = nullptr;
	QHBoxLayout *row = nullptr;
	const char *currentSection = nullptr;
	auto closeRow = [&] {
		if (row)
			row->addStretch();
	};
	for (const ExtraTag_t &entry : s_ExtraTags)
	{
		if (entry.m_nMode != m_eMode)
			continue;
		if (!currentSection || strcmp(currentSection, entry.m_pszSection) != 0)
		{
			closeRow();
			currentSection = entry.m_pszSection;
			group = new QGroupBox(Translate(entry.m_pszSection), this);
			row = new QHBoxLayout(group);
			form->addRow(group);
		}
		QCheckBox *box = new QCheckBox(Translate(entry.m_pszToken), group);
		bool bHas = false;
		for (const CUtlString &tag : m_record.m_vecTags)
			bHas = bHas || tag == entry.m_pszTag;
		box->setChecked(bHas);
		box->setProperty("extra_mintyard_tag", QString::fromUtf8(entry.m_pszTag));
		connect(box, SIGNAL(toggled(bool)), this, SLOT(OnTagToggled()));
		row->addWidget(box);
		m_vecTagBoxes << box;
		if (entry.m_pszLink)
		{
			QLabel *link = new QLabel(Translate(entry.m_pszLink), group);
			link->setTextFormat(Qt::RichText);
			link->setOpenExternalLinks(true);
			link->setTextInteractionFlags(Qt::TextBrowserInteraction);
			row->addWidget(link);
		}
	}
	closeRow();
}

void CPublishFileDialog::LoadRecord()
{
	ShowProgress("#Mintyard_Publish_RetrievingInfo");
	m_pTitleEdit->setText(QString::fromUtf8(m_record.m_sTitle.c_str()));
	m_pDescriptionEdit->setPlainText(QString::fromUtf8(m_record.m_sDescription.c_str()));
	m_sContentPath = QString::fromUtf8(m_record.m_sFileName.c_str());
	m_nExpectedZipSize = 0;
	m_nExpectedZipTime = 0;
	if (m_pUploadSizeLabel)
		m_pUploadSizeLabel->setText(QString::fromUtf8(FormatFileSize(m_record.m_nFileSize).c_str()));
	switch (m_record.m_eVisibility)
	{
	case 0: m_pRadioPublic->setChecked(true); break;
	case 1: m_pRadioFriends->setChecked(true); break;
	case 2: m_pRadioHidden->setChecked(true); break;
	default: break;
	}
	const QString previewPath = MakePreviewPath();
	m_listTempFiles << previewPath;
	const QFileInfo info(previewPath);
	m_previewRequest.StartDownload(m_record.m_hPreviewFile, info.path().toUtf8().constData(), info.fileName().toUtf8().constData(),
		m_record.m_rtimeUpdated, true);
	m_pPreviewTimer->start(100);

	m_bDirty = false;
	m_nChangeBits = 0;
	if (m_pChangeNoteEdit)
		m_pChangeNoteEdit->SetActive(false);
	setWindowTitle(QString::fromUtf8(m_record.m_sTitle.c_str()));
}

void CPublishFileDialog::ShowProgress(const char *token)
{
	if (!m_pProgress)
	{
		m_pProgress = new QProgressDialog(this);
		if (IsAddonMode(m_eMode))
		{
			m_pProgress->setWindowTitle(Translate("#Mintyard_Publish_StatusWindowTitle_Addon"));
			m_pProgress->setRange(0, 100);
		}
		else
		{
			m_pProgress->setWindowTitle(Translate("#Mintyard_Publish_StatusWindowTitle_Items"));
			m_pProgress->setRange(0, 0);
		}
		m_pProgress->setMinimumDuration(0);
		m_pProgress->setAutoClose(false);
		m_pProgress->setAutoReset(false);
	}
	m_pProgress->setLabelText(Translate(token));
	m_pProgress->show();
}

void CPublishFileDialog::CloseProgress()
{
	if (m_pProgress)
		m_pProgress->close();
}

void CPublishFileDialog::StopTimer()
{
	if (m_nTimerId)
	{
		killTimer(m_nTimerId);
		m_nTimerId = 0;
	}
}

void CPublishFileDialog::ShowError(const QString &text)
{
	CloseProgress();
	ShowMessage(this, QMessageBox::Critical, Translate("#Mintyard_Publish_ErrDialog"), text, false);
}

void CPublishFileDialog::SetDirty(bool bDirty)
{
	if (bDirty && !m_bDirty)
		setWindowTitle(windowTitle() + "*");
	m_bDirty = bDirty;
}

void CPublishFileDialog::SetChangeBit(uint32 bit)
{
	m_nChangeBits |= bit;
	SetDirty(true);
}

void CPublishFileDialog::SetTags(const QStringList &tags)
{
	m_record.m_vecTags.clear();
	for (const QString &tag : tags)
		m_record.m_vecTags.push_back(tag.toUtf8().constData());
	SetChangeBit(CHANGE_TAGS);
}

void CPublishFileDialog::SetContentPath(const QString &path)
{
	m_sContentPath = path;
	m_record.m_sFileName = path.toUtf8().constData();
}

void CPublishFileDialog::SetUploadSizeText(const QString &text)
{
	if (m_pUploadSizeLabel)
		m_pUploadSizeLabel->setText(text);
}

void CPublishFileDialog::reject()
{
	if (m_bDirty && !AskCancelPublish(this))
		return;
	QDialog::reject();
}

void CPublishFileDialog::BrowseImageButtonClicked()
{
	const QString path = QFileDialog::getOpenFileName(this, Translate("#Mintyard_Publish_ChooseImage"), QDir::currentPath(),
		Translate("#Mintyard_Publish_ImageFilter") + " (*.png *.jpg *.bmp)");
	if (!path.isEmpty())
		SetPreviewImage(path, true);
}

void CPublishFileDialog::TitleTextEdited(const QString &)
{
	SetChangeBit(CHANGE_TITLE);
}

void CPublishFileDialog::DescriptionTextChanged()
{
	SetChangeBit(CHANGE_DESCRIPTION);
}

void CPublishFileDialog::ChangelogTextChanged()
{
	if (m_pChangeNoteEdit)
		m_pChangeNoteEdit->SetActive(true);
	SetChangeBit(CHANGE_CHANGELOG);
}

void CPublishFileDialog::CustomGameFolderChanged(int)
{
	SetChangeBit(CHANGE_FOLDER);
}

void CPublishFileDialog::VisibilityChanged(int)
{
	SetChangeBit(CHANGE_VISIBILITY);
}

void CPublishFileDialog::CancelButtonClicked()
{
	reject();
}

void CPublishFileDialog::OnTagToggled()
{
	SetChangeBit(CHANGE_TAGS);
}

void CPublishFileDialog::PreviewDownloadTimerUpdate()
{
	if (m_pProgress && m_pProgress->wasCanceled())
	{
		CloseProgress();
		m_pPreviewTimer->stop();
	}
	const int state = m_previewRequest.Update();
	if (state == CUGCFileRequest::STATE_FAILED)
	{
		CloseProgress();
		m_pPreviewTimer->stop();
		ShowError(Translate("#Mintyard_Publish_UGCError"));
	}
	else if (state == CUGCFileRequest::STATE_DONE)
	{
		char path[260];
		m_previewRequest.GetFullPath(path, sizeof(path));
		const bool bDirty = m_bDirty;
		SetPreviewImage(QDir(QString::fromUtf8(path)).absolutePath(), false);
		m_bDirty = bDirty;
		CloseProgress();
		m_pPreviewTimer->stop();
	}
}

void CPublishFileDialog::SetPreviewImage(const QString &path, bool bMarkChanged)
{
	if (path.isEmpty())
		return;
	const QImage image(path);
	Log_Detailed(LOG_MINTYARD_MANAGER, "Preview Image size: %dx%d\n", image.width(), image.height());
	if (image.width() <= 0 || image.height() <= 0)
		return;
	const int targetWidth = m_eMode == MINTYARD_MODE_ZARN_ADDON ? 1024 : 512;
	const int targetHeight = m_eMode == MINTYARD_MODE_ZARN_ADDON ? 768 : 512;
	const QImage scaled = image.scaled(targetWidth, targetHeight, Qt::KeepAspectRatio, Qt::SmoothTransformation);
	const QImage cropped =
		scaled.copy(scaled.width() / 2 - targetWidth / 2, scaled.height() / 2 - targetHeight / 2, targetWidth, targetHeight);
	m_pPreviewLabel->setPixmap(QPixmap::fromImage(cropped));
	if (bMarkChanged)
		SetChangeBit(CHANGE_PREVIEW);
}

QString CPublishFileDialog::FindDroppedImage(const QMimeData *mimeData)
{
	if (!mimeData || !mimeData->hasUrls())
		return QString();
	QStringList formats;
	for (const QByteArray &format : QImageReader::supportedImageFormats())
		formats << QString::fromLatin1(format);
	for (const QUrl &url : mimeData->urls())
	{
		const QString local = url.toLocalFile();
		if (local.isEmpty())
			continue;
		const QString suffix = QFileInfo(local).suffix();
		for (const QString &format : formats)
			if (suffix.compare(format, Qt::CaseInsensitive) == 0)
				return local;
	}
	return QString();
}

void CPublishFileDialog::dragEnterEvent(QDragEnterEvent *event)
{
	if (!m_pPreviewLabel->isEnabled())
		return;
	if (!FindDroppedImage(event->mimeData()).isEmpty())
		event->acceptProposedAction();
}

void CPublishFileDialog::dropEvent(QDropEvent *event)
{
	if (!m_pPreviewLabel->isEnabled())
		return;
	const QString path = FindDroppedImage(event->mimeData());
	if (!path.isEmpty())
		SetPreviewImage(path, true);
}

int CPublishFileDialog::VisibilityFromRadios() const
{
	if (m_pRadioHidden->isChecked())
		return 2;
	if (m_pRadioFriends->isChecked())
		return 1;
	if (m_pRadioPublic->isChecked())
		return 0;
	return -1;
}

bool CPublishFileDialog::Validate()
{
	QString error;
	const QString description = m_pDescriptionEdit->toPlainText();
	const bool bNoteChecked = m_bExisting && !m_bEditOnly && m_pChangeNoteEdit && m_pChangeNoteEdit->isEnabled();
	const QString note = m_pChangeNoteEdit ? m_pChangeNoteEdit->toPlainText() : QString();
	if (m_pTitleEdit->text().isEmpty())
		error = Translate("#Mintyard_Publish_Err_Title");
	else if (description.isEmpty())
		error = Translate("#Mintyard_Publish_Err_NoDesc");
	else if (description.length() >= kMaxTextLength)
		error = Fmt("#Mintyard_Publish_Err_DescTooLong", QString::number(kMaxTextLength));
	else if (bNoteChecked && note.isEmpty())
		error = Translate("#Mintyard_Publish_Err_NoChange");
	else if (bNoteChecked && note.length() >= kMaxTextLength)
		error = Fmt("#Mintyard_Publish_Err_ChangeTooLong", QString::number(kMaxTextLength));
	else if (m_sContentPath.isEmpty() && !IsAddonMode(m_eMode) && !m_bEditOnly)
		error = Translate("#Mintyard_Publish_Err_NoFile");
	else if (m_pPreviewLabel->pixmap(Qt::ReturnByValue).isNull())
		error = Translate("#Mintyard_Publish_Err_NoPreview");
	else if (VisibilityFromRadios() < 0)
		error = Translate("#Mintyard_Publish_Err_NoVisibility");
	if (error.isEmpty())
		return true;
	ShowError(error);
	return false;
}

void CPublishFileDialog::ApplyTagBoxes(CUtlVector<CUtlString> &tags) const
{
	for (QCheckBox *box : m_vecTagBoxes)
	{
		const CUtlString tag = box->property("extra_mintyard_tag").toString().toUtf8().constData();
		auto it = std::find(tags.begin(), tags.end(), tag);
		if (box->isChecked())
		{
			if (it == tags.end())
				tags.push_back(tag);
		}
		else if (it != tags.end())
			tags.erase(it);
	}
}
