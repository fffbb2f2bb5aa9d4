// Localisation of "#" tokens from the game's KV1 file resource/localization/mintyard_english.txt:
//   "lang" { "Language" "English" "Tokens" { "#TOKEN" "text" ... } }
// (keys with or without the "#"). An unknown token translates to itself.
#pragma once

#include "core/utlstring.h"

class IFileSystem;

class ILocalize
{
public:
	// Adds the tokens of a file (path as for IFileSystem, with the path ID). False with a
	// message when the file cannot be read.
	virtual bool AddFile(const char *path, const char *pathID, CUtlString *pError = nullptr) = 0;
	// The text of a token (with or without "#", without case), or null.
	virtual const char *Find(const char *token) = 0;
	// The text of "#TOKEN", or the text itself when it is no known token.
	virtual const char *Translate(const char *text) = 0;
	// Translates and fills in %1 to %4 with the arguments (null arguments stay as they are).
	virtual CUtlString Format(const char *text, const char *arg1 = nullptr, const char *arg2 = nullptr, const char *arg3 = nullptr,
		const char *arg4 = nullptr) = 0;
	virtual int TokenCount() = 0;

protected:
	~ILocalize() = default;
};

ILocalize *Localize();
#define LOCALIZE_INTERFACE_VERSION "VLocalize001"
