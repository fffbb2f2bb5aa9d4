// A game folder for the tests: a file system whose "GAME" path is the folder, handed to the import
// core for as long as the fixture lives.
#pragma once

#include <string>

#include "core/fileio.h"
#include "filesystem/filesystem.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "toolframework/localize.h"
#include "toolframework/toolframework.h"

inline std::string SampleGameFolder()
{
	return std::string(MINTYARD_SOURCE_DIR) + "/sample/game/zarn";
}

class CGameFolderScope
{
public:
	explicit CGameFolderScope(const std::string &folder)
	{
		m_pFileSystem = CreateFileSystem();
		m_pFileSystem->AddSearchPath((folder + "/").c_str(), "GAME");
		m_pPrevious = g_pFullFileSystem;
		g_pFullFileSystem = m_pFileSystem;
		m_pPreviousCore = SetCoreFileSystem(m_pFileSystem);
	}
	~CGameFolderScope()
	{
		g_pFullFileSystem = m_pPrevious;
		SetCoreFileSystem(m_pPreviousCore);
		DestroyFileSystem(m_pFileSystem);
	}
	CGameFolderScope(const CGameFolderScope &) = delete;
	CGameFolderScope &operator=(const CGameFolderScope &) = delete;

	IFileSystem *FileSystem() const { return m_pFileSystem; }

private:
	IFileSystem *m_pFileSystem = nullptr;
	IFileSystem *m_pPrevious = nullptr;
	IBaseFileSystem *m_pPreviousCore = nullptr;
};

// The English texts of the sample game, loaded once.
inline void LoadSampleLocalization()
{
	static bool s_bLoaded = false;
	if (s_bLoaded)
		return;
	const std::string path = std::string(MINTYARD_SOURCE_DIR) + "/sample/game/core/resource/localization/mintyard_english.txt";
	s_bLoaded = Localize()->AddFile(path.c_str(), nullptr);
}
