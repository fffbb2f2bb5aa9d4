// Plain controls of the portrait panel, reusable elsewhere:
// - CQColorSwatch: a button that shows a colour and lets the user pick another;
// - CQSliderLineEditFloat: a slider and a line edit bound to one float in a range.
// (The integer mapper CQConnectHelper_int lives with the wizard's widgets, wizardutils.h.)
#pragma once

#include <QColor>
#include <QWidget>

class QLineEdit;
class QSlider;

// A swatch of 73 by 21 pixels filled with its colour. A click opens a colour dialog; a colour
// chosen there (or given to PickColor) becomes the swatch's colour and emits ColorChanged().
// SetColor changes the colour without a signal, for code that shows a model's value.
class CQColorSwatch : public QWidget
{
	Q_OBJECT
	Q_PROPERTY(QColor color READ GetColor WRITE SetColor NOTIFY ColorChanged)

public:
	enum { SWATCH_WIDTH = 73, SWATCH_HEIGHT = 21 };

	explicit CQColorSwatch(QWidget *pParent = nullptr);

	const QColor &GetColor() const { return m_Color; }
	void SetColor(const QColor &color);
	// What the dialog does with the user's choice: sets the colour and signals when it changed.
	void PickColor(const QColor &color);

	QSize sizeHint() const override { return QSize(SWATCH_WIDTH, SWATCH_HEIGHT); }

Q_SIGNALS:
	void ColorChanged();

protected:
	void paintEvent(QPaintEvent *pEvent) override;
	void mousePressEvent(QMouseEvent *pEvent) override;
	void mouseReleaseEvent(QMouseEvent *pEvent) override;
	void keyPressEvent(QKeyEvent *pEvent) override;

private:
	void OpenDialog();

	QColor m_Color = QColor(255, 255, 255);
	bool m_bPressed = false;
};

// A horizontal slider and a line edit showing one float between a minimum and a maximum.
// Dragging the slider or entering a number (Return or leaving the field) sets the value,
// clamped into the range, and emits valueChanged(float) when it changed. SetValue shows a
// value, clamped, without a signal.
class CQSliderLineEditFloat : public QWidget
{
	Q_OBJECT

public:
	// Steps of the slider across the range.
	static constexpr int SLIDER_STEPS = 1000;

	explicit CQSliderLineEditFloat(QWidget *pParent = nullptr);
	CQSliderLineEditFloat(float flMin, float flMax, QWidget *pParent = nullptr);

	void SetRange(float flMin, float flMax);
	float GetMinimum() const { return m_flMin; }
	float GetMaximum() const { return m_flMax; }
	void SetValue(float flValue);
	float GetValue() const { return m_flValue; }
	// Number of decimals the line edit shows (2 at first).
	void SetDecimals(int nDecimals);

	QSlider *Slider() const { return m_pSlider; }
	QLineEdit *LineEdit() const { return m_pEdit; }

	// The value clamped into the range.
	float Clamp(float flValue) const;

Q_SIGNALS:
	void valueChanged(float flValue);

private Q_SLOTS:
	void OnSliderMoved(int nPosition);
	void OnEditFinished();

private:
	void Build();
	// Shows the value in both controls without their signals.
	void ShowValue();
	// Sets the value from the user, signalling when it changed.
	void SetValueFromUser(float flValue);

	QSlider *m_pSlider = nullptr;
	QLineEdit *m_pEdit = nullptr;
	float m_flMin = 0.0f;
	float m_flMax = 1.0f;
	float m_flValue = 0.0f;
	int m_nDecimals = 2;
};
