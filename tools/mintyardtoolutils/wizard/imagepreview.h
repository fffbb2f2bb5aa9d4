// The preview page of image submissions: how a loading screen looks on screens of other shapes,
// the emoticons playing, or a button that hands a cursor pack to the running game.
#pragma once

#include <QPixmap>
#include <QRectF>
#include <QWidget>

#include "core/utlvector.h"

class CMintyardImportSession;
class CQImageAspectRatioPreview;
class QRadioButton;
class QVBoxLayout;
class QPushButton;

// The screen shapes a loading screen is shown on.
struct MintyardAspectRatio_t
{
	int m_nWidth;
	int m_nHeight;
	const char *m_pszText;
};
enum { MINTYARD_ASPECT_RATIO_COUNT = 3 };
const MintyardAspectRatio_t &GetMintyardAspectRatio(int nIndex);

// Where a loading screen of 16:9 is drawn in a widget of a size, and the part of it that a
// screen of the chosen ratio shows.
struct LoadingScreenLayout_t
{
	QRectF m_Image;		// the whole image
	QRectF m_Visible;	// what the chosen ratio shows
	QRectF m_LeftShade; // shaded strips beside it (empty when nothing is cut)
	QRectF m_RightShade;
};
LoadingScreenLayout_t ComputeLoadingScreenLayout(const QSize &widgetSize, int nRatioIndex);

class CQImageAspectRatioPreview : public QWidget
{
	Q_OBJECT

public:
	explicit CQImageAspectRatioPreview(QWidget *pParent = nullptr);
	void SetPixmap(const QPixmap &pixmap);
	const QPixmap &Pixmap() const { return m_Pixmap; }
	void SetAspectRatioIndex(int nIndex);
	int AspectRatioIndex() const { return m_nAspectRatio; }

protected:
	void paintEvent(QPaintEvent *pEvent) override;

private:
	QPixmap m_Pixmap;
	int m_nAspectRatio = 0;
};

class CQImportLoadingScreenPreview : public QWidget
{
	Q_OBJECT

public:
	CQImportLoadingScreenPreview(QWidget *pParent, const QPixmap &pixmap);
	CQImageAspectRatioPreview *Preview() const { return m_pPreview; }
	QRadioButton *RadioButton(int nIndex) const { return m_pRadio[nIndex]; }

public Q_SLOTS:
	void OnPreviewAspectRatioChanged();

private:
	CQImageAspectRatioPreview *m_pPreview = nullptr;
	QRadioButton *m_pRadio[MINTYARD_ASPECT_RATIO_COUNT] = {};
};

// One emoticon strip: frames of 32 pixels side by side, ten a second.
class CQEmoticonPreview : public QWidget
{
	Q_OBJECT

public:
	CQEmoticonPreview(QWidget *pParent, const QString &path);
	int FrameCount() const { return m_nFrameCount; }
	int FrameTime() const { return m_nFrameTime; }
	const QPixmap &Pixmap() const { return m_Pixmap; }
	// The frame shown at a time in milliseconds of the process's clock.
	int FrameAt(qint64 nMilliseconds) const;
	QSize sizeHint() const override { return QSize(64, 64); }

protected:
	void paintEvent(QPaintEvent *pEvent) override;

private:
	int m_nFrameCount = -1;
	int m_nFrameTime = 100;
	QPixmap m_Pixmap;
};

class CQImportImagePreview : public QWidget
{
	Q_OBJECT

public:
	explicit CQImportImagePreview(QWidget *pParent = nullptr);
	~CQImportImagePreview() override;

	// Rebuilds the page for the session's first image set.
	void AttachSession(CMintyardImportSession *pSession);

	const CUtlVector<QWidget *> &Children() const { return m_Children; }
	// The message of the last "preview in game" (empty when it went through).
	const QString &LastPreviewMessage() const { return m_LastPreviewMessage; }

public Q_SLOTS:
	void OnPreviewInGame();

Q_SIGNALS:
	void ReadyStatusChanged();

private:
	void ClearChildren();

	CMintyardImportSession *m_pSession = nullptr;
	CUtlVector<QWidget *> m_Children;
	QVBoxLayout *m_pLayout = nullptr;
	QString m_LastPreviewMessage;
};
