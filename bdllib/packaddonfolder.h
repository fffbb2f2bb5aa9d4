// PackAddonFolder: packs one addon folder into one single-file BDL.
//
// The folder is walked through the file system (find first / find next). Left out silently:
// anything whose name starts with ".", the tool caches "readonly_tools_asset_info.bin",
// "tools_asset_info.bin" and "tools_thumbnail_cache.bin", and the folders "_bakeresourcecache"
// and "_vrad3" (names compared without case). A file whose path holds ".bat", ".cmd", ".com",
// ".dll", ".exe", ".rar", ".reg" or ".zip" anywhere (without case) is refused with the warning
// "Ignoring <path>: unsupported file type." and the pack goes on without it. Every other file is
// embedded whole, no preload, no chunk files, named by its path below the folder.
//
// A file that cannot be opened or read ends the process through Plat_FatalError, as does a
// file the store refuses; an existing pack that cannot be deleted, or a pack that cannot be
// written, gives a warning and false.
#pragma once

class IFileSystem;

// pFileSystem: the file system to go through; null makes one with no search paths for the call.
bool PackAddonFolder(const char *pFolder, const char *pBdlPath, IFileSystem *pFileSystem = nullptr);
