// Pictures of widgets for people to look at, for the programs that draw the tool's pages: the
// event loop runs for a moment first (with a frame callback, for pages that animate), then the
// widget is grabbed into <folder>/<name>.png and the path printed. Needs Qt5::Widgets.
#pragma once

#include <cstdio>
#include <functional>
#include <string>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>
#include <QWidget>

// Runs the event loop for nMs milliseconds, calling frame (when given) every 16 ms or so.
inline void SettleWidgets(int nMs, const std::function<void()> &frame = {})
{
	QElapsedTimer timer;
	timer.start();
	while (timer.elapsed() < nMs)
	{
		if (frame)
			frame();
		QCoreApplication::processEvents(QEventLoop::AllEvents, 16);
		QThread::msleep(frame ? 16 : 5);
	}
}

// Settles, then saves the widget's picture as <folder>/<name>.png; false (and a line on standard
// error) when it cannot be written.
inline bool SaveWidgetShot(QWidget *pWidget, const std::string &folder, const std::string &name, int nSettleMs,
	const std::function<void()> &frame = {})
{
	SettleWidgets(nSettleMs, frame);
	const std::string path = folder + "/" + name + ".png";
	if (!pWidget->grab().save(QString::fromStdString(path)))
	{
		fprintf(stderr, "cannot write %s\n", path.c_str());
		return false;
	}
	printf("%s\n", path.c_str());
	return true;
}
