#include "mintyardtoolutils/preview/animpreviewwidget.h"

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QGridLayout>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSlider>

#include "mintyardtoolutils/wizard/wizardutils.h"

CQAnimPreviewWidget::CQAnimPreviewWidget(QWidget *pParent) : QWidget(pParent)
{
	QGridLayout *pLayout = new QGridLayout(this);
	pLayout->setContentsMargins(0, 0, 0, 0);

	m_pAnimations = new QComboBox(this);
	m_pAnimations->setObjectName("mintyard_anim_sequences");
	m_pAnimations->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
	m_pAnimations->setMinimumContentsLength(10);
	pLayout->addWidget(new QLabel(MintyardTranslate("#ZARN_Mintyard_Animation"), this), 0, 0);
	pLayout->addWidget(m_pAnimations, 0, 1, 1, 2);

	m_pSpeed = new QDoubleSpinBox(this);
	m_pSpeed->setObjectName("mintyard_anim_speed");
	m_pSpeed->setRange(0.0, 4.0);
	m_pSpeed->setSingleStep(0.1);
	m_pSpeed->setDecimals(2);
	m_pSpeed->setValue(1.0);
	pLayout->addWidget(new QLabel(MintyardTranslate("#ZARN_Mintyard_PlaybackSpeed"), this), 1, 0);
	pLayout->addWidget(m_pSpeed, 1, 1, 1, 2);

	m_pPlay = new QPushButton(this);
	m_pPlay->setObjectName("mintyard_anim_play");
	m_pFrame = new QSlider(Qt::Horizontal, this);
	m_pFrame->setObjectName("mintyard_anim_frame");
	m_pFrame->setRange(0, 0);
	m_pFrameLabel = new QLabel(this);
	m_pFrameLabel->setMinimumWidth(60);
	pLayout->addWidget(m_pPlay, 2, 0);
	pLayout->addWidget(m_pFrame, 2, 1);
	pLayout->addWidget(m_pFrameLabel, 2, 2);
	pLayout->setColumnStretch(1, 1);

	connect(m_pAnimations, SIGNAL(activated(int)), this, SLOT(OnAnimationActivated(int)));
	connect(m_pSpeed, SIGNAL(valueChanged(double)), this, SLOT(OnSpeedChanged(double)));
	connect(m_pFrame, SIGNAL(valueChanged(int)), this, SLOT(OnFrameMoved(int)));
	connect(m_pPlay, SIGNAL(clicked()), this, SLOT(OnPlayClicked()));
	SetPlaying(true);
	UpdateFrameLabel();
}

void CQAnimPreviewWidget::SetAnimationList(const QStringList &sequences, const QString &current)
{
	const QSignalBlocker blocker(m_pAnimations);
	m_pAnimations->clear();
	m_pAnimations->addItems(sequences);
	const int nCurrent = m_pAnimations->findText(current);
	m_pAnimations->setCurrentIndex(nCurrent >= 0 ? nCurrent : (sequences.isEmpty() ? -1 : 0));
	m_pAnimations->setEnabled(!sequences.isEmpty());
}

QString CQAnimPreviewWidget::CurrentAnimation() const
{
	return m_pAnimations->currentText();
}

void CQAnimPreviewWidget::SetFrameCount(int nFrames)
{
	const QSignalBlocker blocker(m_pFrame);
	m_pFrame->setRange(0, nFrames > 1 ? nFrames - 1 : 0);
	m_pFrame->setEnabled(nFrames > 1);
	UpdateFrameLabel();
}

int CQAnimPreviewWidget::FrameCount() const
{
	return m_pFrame->maximum() + 1;
}

void CQAnimPreviewWidget::SetCurrentFrame(int nFrame)
{
	const QSignalBlocker blocker(m_pFrame);
	m_pFrame->setValue(nFrame);
	UpdateFrameLabel();
}

int CQAnimPreviewWidget::CurrentFrame() const
{
	return m_pFrame->value();
}

void CQAnimPreviewWidget::SetPlaybackSpeed(float flSpeed)
{
	const QSignalBlocker blocker(m_pSpeed);
	m_pSpeed->setValue(flSpeed);
}

float CQAnimPreviewWidget::PlaybackSpeed() const
{
	return (float)m_pSpeed->value();
}

void CQAnimPreviewWidget::SetPlaying(bool bPlaying)
{
	m_bPlaying = bPlaying;
	m_pPlay->setText(MintyardTranslate(bPlaying ? "#ZARN_Mintyard_Pause" : "#ZARN_Mintyard_Play"));
}

void CQAnimPreviewWidget::OnAnimationActivated(int nIndex)
{
	if (nIndex < 0)
		return;
	SetPlaying(true);
	Q_EMIT SelectedAnimationChanged(m_pAnimations->itemText(nIndex));
}

void CQAnimPreviewWidget::OnSpeedChanged(double flSpeed)
{
	Q_EMIT PlaybackSpeedChanged((float)flSpeed);
}

void CQAnimPreviewWidget::OnFrameMoved(int nFrame)
{
	SetPlaying(false);
	UpdateFrameLabel();
	Q_EMIT CurrentFrameChanged(nFrame);
}

void CQAnimPreviewWidget::OnPlayClicked()
{
	if (m_bPlaying)
	{
		// Pausing stops at the frame shown.
		SetPlaying(false);
		Q_EMIT CurrentFrameChanged(m_pFrame->value());
		return;
	}
	SetPlaying(true);
	Q_EMIT CurrentFrameChanged(-1);
}

void CQAnimPreviewWidget::UpdateFrameLabel()
{
	m_pFrameLabel->setText(QString("%1 / %2").arg(m_pFrame->value()).arg(m_pFrame->maximum()));
}
