// CQAnimPreviewWidget: the animation control of the previews. A combo of the model's sequences, a
// playback speed, a frame slider with the frame's number, and a play button. Moving the slider
// stops playback at that frame; the play button plays on from there. The owner tells the widget
// the sequences, the frame count and (while playing) the frame shown; those updates never echo
// back as signals.
//
// Signals: SelectedAnimationChanged(const QString) with the sequence's name,
// PlaybackSpeedChanged(float) with the speed (1 is the sequence's own rate),
// CurrentFrameChanged(int) with the frame to stop at, or -1 to play on.
#pragma once

#include <QWidget>

class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QPushButton;
class QSlider;

class CQAnimPreviewWidget : public QWidget
{
	Q_OBJECT

public:
	explicit CQAnimPreviewWidget(QWidget *pParent = nullptr);

	// The sequences offered, and the one shown as current ("" or an unknown name: the first).
	void SetAnimationList(const QStringList &sequences, const QString &current);
	QString CurrentAnimation() const;
	// Frames of the current sequence (the slider runs from 0 to count - 1).
	void SetFrameCount(int nFrames);
	int FrameCount() const;
	// The frame the preview shows, while it plays.
	void SetCurrentFrame(int nFrame);
	int CurrentFrame() const;
	void SetPlaybackSpeed(float flSpeed);
	float PlaybackSpeed() const;
	// Whether the play button shows "playing" (a frame chosen stops it).
	void SetPlaying(bool bPlaying);
	bool IsPlaying() const { return m_bPlaying; }

	QComboBox *AnimationCombo() const { return m_pAnimations; }
	QDoubleSpinBox *SpeedBox() const { return m_pSpeed; }
	QSlider *FrameSlider() const { return m_pFrame; }
	QPushButton *PlayButton() const { return m_pPlay; }

Q_SIGNALS:
	void SelectedAnimationChanged(const QString seqName);
	void PlaybackSpeedChanged(float flSpeed);
	void CurrentFrameChanged(int nFrame);

private Q_SLOTS:
	void OnAnimationActivated(int nIndex);
	void OnSpeedChanged(double flSpeed);
	void OnFrameMoved(int nFrame);
	void OnPlayClicked();

private:
	void UpdateFrameLabel();

	QComboBox *m_pAnimations;
	QDoubleSpinBox *m_pSpeed;
	QSlider *m_pFrame;
	QLabel *m_pFrameLabel;
	QPushButton *m_pPlay;
	bool m_bPlaying = true;
};
