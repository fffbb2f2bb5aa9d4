#include "mintyardtoolutils/preview/portraitcontrols.h"

#include <algorithm>
#include <cmath>

#include <QColorDialog>
#include <QDoubleValidator>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <QSignalBlocker>
#include <QSlider>
#include <QStyleOptionFrame>

// ---------------------------------------------------------------------------------------------
// CQColorSwatch

CQColorSwatch::CQColorSwatch(QWidget *pParent) : QWidget(pParent)
{
	setFixedSize(SWATCH_WIDTH, SWATCH_HEIGHT);
	setFocusPolicy(Qt::StrongFocus);
	setCursor(Qt::PointingHandCursor);
	setToolTip(m_Color.name());
}

void CQColorSwatch::SetColor(const QColor &color)
{
	m_Color = color;
	setToolTip(QString("%1 %2 %3").arg(color.red()).arg(color.green()).arg(color.blue()));
	update();
}

void CQColorSwatch::PickColor(const QColor &color)
{
	if (!color.isValid())
		return;
	const bool bChanged = color.rgba() != m_Color.rgba();
	SetColor(color);
	if (bChanged)
		Q_EMIT ColorChanged();
}

void CQColorSwatch::paintEvent(QPaintEvent *)
{
	QPainter painter(this);
	const QRect frame = rect().adjusted(0, 0, -1, -1);
	painter.fillRect(frame.adjusted(2, 2, -1, -1), m_Color);
	painter.setPen(hasFocus() ? palette().color(QPalette::Highlight) : palette().color(QPalette::Mid));
	painter.drawRect(frame);
	if (m_bPressed)
	{
		painter.setPen(palette().color(QPalette::Shadow));
		painter.drawRect(frame.adjusted(1, 1, -1, -1));
	}
}

void CQColorSwatch::mousePressEvent(QMouseEvent *pEvent)
{
	if (pEvent->button() == Qt::LeftButton)
	{
		m_bPressed = true;
		update();
	}
	QWidget::mousePressEvent(pEvent);
}

void CQColorSwatch::mouseReleaseEvent(QMouseEvent *pEvent)
{
	const bool bClick = m_bPressed && pEvent->button() == Qt::LeftButton && rect().contains(pEvent->pos());
	m_bPressed = false;
	update();
	if (bClick)
		OpenDialog();
	QWidget::mouseReleaseEvent(pEvent);
}

void CQColorSwatch::keyPressEvent(QKeyEvent *pEvent)
{
	if (pEvent->key() == Qt::Key_Space || pEvent->key() == Qt::Key_Return || pEvent->key() == Qt::Key_Enter)
	{
		OpenDialog();
		return;
	}
	QWidget::keyPressEvent(pEvent);
}

void CQColorSwatch::OpenDialog()
{
	const QColor chosen = QColorDialog::getColor(m_Color, this);
	PickColor(chosen);
}

// ---------------------------------------------------------------------------------------------
// CQSliderLineEditFloat

CQSliderLineEditFloat::CQSliderLineEditFloat(QWidget *pParent) : QWidget(pParent)
{
	Build();
}

CQSliderLineEditFloat::CQSliderLineEditFloat(float flMin, float flMax, QWidget *pParent) : QWidget(pParent)
{
	Build();
	SetRange(flMin, flMax);
}

void CQSliderLineEditFloat::Build()
{
	QHBoxLayout *pLayout = new QHBoxLayout(this);
	pLayout->setContentsMargins(0, 0, 0, 0);
	pLayout->setSpacing(6);
	m_pSlider = new QSlider(Qt::Horizontal, this);
	m_pSlider->setRange(0, SLIDER_STEPS);
	m_pEdit = new QLineEdit(this);
	m_pEdit->setFixedWidth(64);
	m_pEdit->setAlignment(Qt::AlignRight);
	QDoubleValidator *pValidator = new QDoubleValidator(m_pEdit);
	pValidator->setNotation(QDoubleValidator::StandardNotation);
	pValidator->setLocale(QLocale::c());
	m_pEdit->setValidator(pValidator);
	pLayout->addWidget(m_pSlider, 1);
	pLayout->addWidget(m_pEdit);
	connect(m_pSlider, SIGNAL(valueChanged(int)), this, SLOT(OnSliderMoved(int)));
	connect(m_pEdit, SIGNAL(editingFinished()), this, SLOT(OnEditFinished()));
	ShowValue();
}

void CQSliderLineEditFloat::SetRange(float flMin, float flMax)
{
	if (!(flMax >= flMin))
		std::swap(flMin, flMax);
	m_flMin = flMin;
	m_flMax = flMax;
	m_flValue = Clamp(m_flValue);
	ShowValue();
}

float CQSliderLineEditFloat::Clamp(float flValue) const
{
	if (std::isnan(flValue))
		return m_flMin;
	return std::clamp(flValue, m_flMin, m_flMax);
}

void CQSliderLineEditFloat::SetValue(float flValue)
{
	m_flValue = Clamp(flValue);
	ShowValue();
}

void CQSliderLineEditFloat::SetDecimals(int nDecimals)
{
	m_nDecimals = std::clamp(nDecimals, 0, 6);
	ShowValue();
}

void CQSliderLineEditFloat::ShowValue()
{
	const QSignalBlocker blockSlider(m_pSlider);
	const QSignalBlocker blockEdit(m_pEdit);
	const float flSpan = m_flMax - m_flMin;
	const int nPosition = flSpan > 0.0f ? (int)std::lround((m_flValue - m_flMin) / flSpan * SLIDER_STEPS) : 0;
	m_pSlider->setValue(nPosition);
	m_pEdit->setText(QLocale::c().toString(m_flValue, 'f', m_nDecimals));
}

void CQSliderLineEditFloat::SetValueFromUser(float flValue)
{
	const float flClamped = Clamp(flValue);
	const bool bChanged = flClamped != m_flValue;
	m_flValue = flClamped;
	ShowValue();
	if (bChanged)
		Q_EMIT valueChanged(m_flValue);
}

void CQSliderLineEditFloat::OnSliderMoved(int nPosition)
{
	SetValueFromUser(m_flMin + (m_flMax - m_flMin) * (float)nPosition / (float)SLIDER_STEPS);
}

void CQSliderLineEditFloat::OnEditFinished()
{
	bool bOk = false;
	const float flValue = QLocale::c().toFloat(m_pEdit->text().trimmed(), &bOk);
	if (!bOk)
	{
		ShowValue(); // not a number: the field shows the value again
		return;
	}
	SetValueFromUser(flValue);
}
