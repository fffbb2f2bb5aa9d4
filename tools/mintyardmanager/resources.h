// The images of the tool, under "game:tools/images/".
#pragma once

#include <QIcon>
#include <QStyle>

// Every image the tool's windows show, for the resource manifest.
extern const char *const g_ppszToolImages[];
extern const int g_nToolImageCount;

// An icon from a "game:" path; a missing file gives the standard icon instead of nothing.
QIcon LoadToolIcon(const char *path, QStyle::StandardPixmap fallback = QStyle::SP_FileIcon);
// A two-state icon from "game:tools/images/mintyardmanager/<file>": the file for QIcon::Normal,
// and "<name>_activated.<ext>" for QIcon::Selected.
QIcon LoadTwoStateIcon(const char *file, QStyle::StandardPixmap fallback);
// A pixmap from a "game:" path (null when missing).
QPixmap LoadToolPixmap(const char *path);
// "#" tokens translated through the framework's localisation, as a QString.
QString Translate(const char *text);
