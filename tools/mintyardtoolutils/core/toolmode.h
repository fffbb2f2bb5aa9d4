// The kind of run the tool is in: the main window, the publish dialog and the import wizard all
// decide by it.
#pragma once

// Worked out once from the game directory and the command line.
enum EMintyardToolMode
{
	MINTYARD_MODE_ZARN_ADDON = 0,
	MINTYARD_MODE_ZARN_ITEMS = 1,
	MINTYARD_MODE_QUERN_ADDON = 2,
	MINTYARD_MODE_TOLVA_MAP = 3,
	MINTYARD_MODE_TOLVA_ITEMS = 4,
};

// Addon modes pack a folder into a BDL; item modes publish a zip made by the import wizard.
inline bool IsAddonMode(int mode)
{
	return mode < 4 && mode != MINTYARD_MODE_ZARN_ITEMS;
}
