#include "mintyardmanager/resources.h"

#include <QApplication>
#include <QFileInfo>

#include "core/strtools.h"
#include "toolframework/toolframework.h"

#define MINTYARD_IMAGES "game:tools/images/mintyardmanager/"

const char *const g_ppszToolImages[] = {
	MINTYARD_IMAGES "icon_add.png",
	MINTYARD_IMAGES "icon_add_activated.png",
	MINTYARD_IMAGES "icon_reupload.png",
	MINTYARD_IMAGES "icon_reupload_activated.png",
	MINTYARD_IMAGES "icon_edit.png",
	MINTYARD_IMAGES "icon_edit_activated.png",
	MINTYARD_IMAGES "icon_delete.png",
	MINTYARD_IMAGES "icon_delete_activated.png",
	MINTYARD_IMAGES "icon_refresh.png",
	MINTYARD_IMAGES "icon_refresh_activated.png",
	MINTYARD_IMAGES "icon_view.png",
	MINTYARD_IMAGES "icon_view_activated.png",
	MINTYARD_IMAGES "icon_help.png",
	MINTYARD_IMAGES "icon_critical.png",
	MINTYARD_IMAGES "bdlmanager.png",
	MINTYARD_IMAGES "Save.png",
	MINTYARD_IMAGES "AddFile.png",
	MINTYARD_IMAGES "AddFolder.png",
	MINTYARD_IMAGES "Delete.png",
	MINTYARD_IMAGES "LaunchFile.png",
	MINTYARD_IMAGES "ShowInExplorer.png",
	MINTYARD_IMAGES "Options.png",
	MINTYARD_IMAGES "Search.png",
	MINTYARD_IMAGES "About.png",
	MINTYARD_IMAGES "CollapseAll.png",
	MINTYARD_IMAGES "ExpandAll.png",
	"game:tools/images/assetbrowser/appicon.ico",
	MINTYARD_IMAGES "icon_warning.png",
	"game:tools/images/assetbrowser/workingset.png",
	"game:tools/images/common/lock.png",
	// The import wizard's.
	MINTYARD_IMAGES "mintyard_import.ico",
	MINTYARD_IMAGES "step_separator.png",
	MINTYARD_IMAGES "looping_animation.png",
	MINTYARD_IMAGES "delta_animation.png",
	MINTYARD_IMAGES "attack_animation.png",
	MINTYARD_IMAGES "run_animation.png",
	MINTYARD_IMAGES "mesh_limits.png",
	MINTYARD_IMAGES "effects_mesh.png",
	"game:tools/images/common/save_sm.png",
	"game:tools/images/common/icon_warning_sm.png",
	"game:tools/images/common/folder_sm.png",
	"game:tools/images/common/halden_gear_sm.png",
};
const int g_nToolImageCount = (int)V_ARRAYSIZE(g_ppszToolImages);

namespace
{
QString ResolvePath(const char *path)
{
	if (!g_pToolFramework)
		return QString();
	return QString::fromUtf8(g_pToolFramework->ResolveResourcePath(path).c_str());
}
} // namespace

QPixmap LoadToolPixmap(const char *path)
{
	const QString file = ResolvePath(path);
	return file.isEmpty() ? QPixmap() : QPixmap(file);
}

QIcon LoadToolIcon(const char *path, QStyle::StandardPixmap fallback)
{
	const QString file = ResolvePath(path);
	if (file.isEmpty() || !QFileInfo::exists(file))
		return QApplication::style()->standardIcon(fallback);
	return QIcon(file);
}

QIcon LoadTwoStateIcon(const char *file, QStyle::StandardPixmap fallback)
{
	const CUtlString normal = CUtlString(MINTYARD_IMAGES) + file;
	const QString normalFile = ResolvePath(normal.c_str());
	if (normalFile.isEmpty())
		return QApplication::style()->standardIcon(fallback);
	QIcon icon;
	icon.addFile(normalFile, QSize(), QIcon::Normal);
	CUtlString activated = normal;
	const size_t dot = activated.rfind('.');
	activated.insert(dot == CUtlString::npos ? activated.size() : dot, "_activated");
	const QString activatedFile = ResolvePath(activated.c_str());
	if (!activatedFile.isEmpty())
		icon.addFile(activatedFile, QSize(), QIcon::Selected);
	return icon;
}

QString Translate(const char *text)
{
	return QString::fromUtf8(Localize()->Translate(text));
}
