// The run: roots and names, the log, and the dispatch of a source to the compile of its kind.
#include "resourcecompiler/resourcecompiler.h"

#include <algorithm>
#include <cstdarg>
#include <filesystem>
#include <thread>

#include "core/fileio.h"
#include "core/pathutils.h"
#include "core/strtools.h"
#include "resourcecompiler/compiler_internal.h"
#include "resourcecompiler/contentroots.h"

// ---------------------------------------------------------------------------------------------
// Roots and names

CUtlString CompileRoots_t::ContentPath(std::string_view relative) const
{
	return V_JoinPath(m_Content, relative);
}

CUtlString CompileRoots_t::GamePath(std::string_view relative) const
{
	return V_JoinPath(m_Game, relative);
}

bool CompileRoots_t::ContentRelative(std::string_view absolutePath, CUtlString &relative) const
{
	const CUtlString path = V_NormalizePath(absolutePath);
	if (m_Content.empty() || path.size() <= m_Content.size() + 1 || path.compare(0, m_Content.size(), m_Content) != 0 ||
		path[m_Content.size()] != '/')
		return false;
	relative = path.substr(m_Content.size() + 1);
	return true;
}

namespace
{
CUtlString AbsoluteNormalized(std::string_view path)
{
	std::error_code ignored;
	const std::filesystem::path absolute = std::filesystem::absolute(std::filesystem::path(std::string(path)), ignored);
	return V_NormalizePath(absolute.string());
}

CUtlString LowerCase(std::string_view text)
{
	CUtlString out(text);
	for (char &c : out)
		c = V_tolower(c);
	return out;
}

// The extension without its dot, in lower case ("" when none).
CUtlString Extension(std::string_view path)
{
	const size_t slash = path.find_last_of('/');
	const size_t dot = path.find_last_of('.');
	if (dot == std::string_view::npos || (slash != std::string_view::npos && dot < slash))
		return CUtlString();
	return LowerCase(path.substr(dot + 1));
}

std::string_view WithoutExtension(std::string_view path)
{
	const size_t slash = path.find_last_of('/');
	const size_t dot = path.find_last_of('.');
	if (dot == std::string_view::npos || (slash != std::string_view::npos && dot < slash))
		return path;
	return path.substr(0, dot);
}
} // namespace

bool ResourceCompiler_RootsFromGameDirectory(std::string_view gameDirectory, CompileRoots_t &roots, CUtlString &error)
{
	const CUtlString game = AbsoluteNormalized(gameDirectory);
	const size_t modSlash = game.find_last_of('/');
	if (modSlash == CUtlString::npos || modSlash + 1 >= game.size() || modSlash < 5 ||
		game.compare(modSlash - 5, 6, "/game/") != 0)
	{
		error = V_Format("the game directory '%s' is not of the form <root>/game/<mod>", CUtlString(gameDirectory).c_str());
		return false;
	}
	const CUtlString root = game.substr(0, modSlash - 5);
	roots.m_Game = game;
	roots.m_Content = root + "/content/" + game.substr(modSlash + 1);
	return true;
}

bool ResourceCompiler_RootsFromSource(std::string_view absoluteSource, CompileRoots_t &roots)
{
	return ResourceCompiler_ContentTreeOf(absoluteSource, roots.m_Content, roots.m_Game);
}

EResourceSourceKind ResourceCompiler_SourceKind(std::string_view path)
{
	const CUtlString extension = Extension(path);
	if (extension == "zmat")
		return RESOURCE_SOURCE_MATERIAL;
	if (extension == "zmdl")
		return RESOURCE_SOURCE_MODEL;
	if (extension == "ztex")
		return RESOURCE_SOURCE_TEXTURE_RECIPE;
	if (extension == "tga" || extension == "png" || extension == "psd" || extension == "bmp" || extension == "jpg" || extension == "jpeg")
		return RESOURCE_SOURCE_IMAGE;
	if (extension == "fbx" || extension == "dmx")
		return RESOURCE_SOURCE_SNAPSHOT;
	return RESOURCE_SOURCE_UNKNOWN;
}

CUtlString ResourceCompiler_CompiledName(std::string_view contentRelative)
{
	switch (ResourceCompiler_SourceKind(contentRelative))
	{
	case RESOURCE_SOURCE_MATERIAL:
	case RESOURCE_SOURCE_MODEL:
	case RESOURCE_SOURCE_TEXTURE_RECIPE:
		return CUtlString(contentRelative) + "_c";
	case RESOURCE_SOURCE_IMAGE:
		return CUtlString(WithoutExtension(contentRelative)) + "_" + Extension(contentRelative) + ".ztex_c";
	case RESOURCE_SOURCE_SNAPSHOT:
		return CUtlString(WithoutExtension(contentRelative)) + ".zsnap";
	default:
		return CUtlString();
	}
}

bool ResourceCompiler_CreateParentFolders(const CUtlString &path, CUtlString &error)
{
	const std::filesystem::path parent = std::filesystem::path(path).parent_path();
	std::error_code code;
	std::filesystem::create_directories(parent, code);
	if (code && !std::filesystem::is_directory(parent))
	{
		error = V_Format("cannot create the folder '%s': %s", parent.string().c_str(), code.message().c_str());
		return false;
	}
	return true;
}

bool ResourceCompiler_NormalizeReference(std::string_view reference, CUtlString &normalized, CUtlString &why)
{
	return V_IsSafeRelativePath(reference, &normalized, &why);
}

// ---------------------------------------------------------------------------------------------
// The log

void CCompileLog::Write(FILE *pFile, const CUtlString &line)
{
	// The caller holds the mutex.
	if (pFile)
	{
		fputs(line.c_str(), pFile);
		fflush(pFile);
	}
}

void CCompileLog::Progress(const char *pszFormat, ...)
{
	va_list args;
	va_start(args, pszFormat);
	CUtlString line = V_FormatV(pszFormat, args);
	va_end(args);
	line += "\n";
	std::lock_guard<std::mutex> lock(m_Mutex);
	Write(m_pOut, line);
}

namespace
{
CUtlString MessageLine(const char *pszPrefix, std::string_view file, int nLine, const char *pszFormat, va_list args)
{
	CUtlString line = pszPrefix;
	if (!file.empty())
	{
		line += file;
		if (nLine > 0)
			line += V_Format("(%d)", nLine);
		line += ": ";
	}
	line += V_FormatV(pszFormat, args);
	// A message that holds line ends of its own (a list of a loader's problems) stays one
	// message per line, each with the prefix.
	CUtlString out;
	size_t start = 0;
	while (start <= line.size())
	{
		size_t end = line.find('\n', start);
		if (end == CUtlString::npos)
			end = line.size();
		if (end > start)
		{
			if (start > 0)
				out += pszPrefix;
			out += line.substr(start, end - start);
			out += "\n";
		}
		start = end + 1;
	}
	return out;
}
} // namespace

void CCompileLog::Warning(std::string_view file, int nLine, const char *pszFormat, ...)
{
	va_list args;
	va_start(args, pszFormat);
	const CUtlString line = MessageLine("warning: ", file, nLine, pszFormat, args);
	va_end(args);
	std::lock_guard<std::mutex> lock(m_Mutex);
	++m_nWarnings;
	Write(m_pErr, line);
}

void CCompileLog::Error(std::string_view file, int nLine, const char *pszFormat, ...)
{
	va_list args;
	va_start(args, pszFormat);
	const CUtlString line = MessageLine("error: ", file, nLine, pszFormat, args);
	va_end(args);
	std::lock_guard<std::mutex> lock(m_Mutex);
	++m_nErrors;
	Write(m_pErr, line);
}

int CCompileLog::ErrorCount() const
{
	std::lock_guard<std::mutex> lock(m_Mutex);
	return m_nErrors;
}

int CCompileLog::WarningCount() const
{
	std::lock_guard<std::mutex> lock(m_Mutex);
	return m_nWarnings;
}

// ---------------------------------------------------------------------------------------------
// The run

CResourceCompiler::CResourceCompiler(CCompileLog &log, const ResourceCompilerOptions_t &options) : m_Log(log)
{
	const unsigned cores = std::thread::hardware_concurrency();
	m_nThreads = options.nThreads > 0 ? std::min(options.nThreads, 64) : (cores ? (int)std::min(cores, 64u) : 1);
}

int CResourceCompiler::FindDone(const CUtlString &key)
{
	std::lock_guard<std::mutex> lock(m_Mutex);
	const auto it = m_Done.find(key);
	return it == m_Done.end() ? -1 : (it->second ? 1 : 0);
}

void CResourceCompiler::SetDone(const CUtlString &key, bool bResult)
{
	std::lock_guard<std::mutex> lock(m_Mutex);
	m_Done[key] = bResult;
}

bool CResourceCompiler::CompileFile(const char *pszPath, const char *pszGameDirectory)
{
	const CUtlString given = pszPath ? pszPath : "";
	if (given.empty())
	{
		m_Log.Error("", 0, "an empty file name");
		return false;
	}
	const CUtlString absolute = AbsoluteNormalized(given);
	if (ResourceCompiler_SourceKind(absolute) == RESOURCE_SOURCE_UNKNOWN)
	{
		m_Log.Error(given, 0,
			"not a source the compiler knows: .zmat, .zmdl, .ztex, images (.tga .png .psd .bmp .jpg), or a mesh (.fbx .dmx) for a "
			"particle snapshot");
		return false;
	}
	CompileRoots_t roots;
	if (pszGameDirectory && *pszGameDirectory)
	{
		CUtlString error;
		if (!ResourceCompiler_RootsFromGameDirectory(pszGameDirectory, roots, error))
		{
			m_Log.Error(given, 0, "%s", error.c_str());
			return false;
		}
	}
	else if (!ResourceCompiler_RootsFromSource(absolute, roots))
	{
		m_Log.Error(given, 0, "lies in no content tree (<root>/content/<mod>/...); name the game with -game <root>/game/<mod>");
		return false;
	}
	CUtlString relative;
	if (!roots.ContentRelative(absolute, relative))
	{
		m_Log.Error(given, 0, "lies outside the content root %s", roots.m_Content.c_str());
		return false;
	}
	if (!Plat_FileExists(absolute.c_str()) || Plat_IsDirectory(absolute.c_str()))
	{
		m_Log.Error(relative, 0, "the file does not exist (%s)", absolute.c_str());
		return false;
	}
	return CompileSource(roots, relative);
}

bool CResourceCompiler::CompileSource(const CompileRoots_t &roots, const CUtlString &relative)
{
	switch (ResourceCompiler_SourceKind(relative))
	{
	case RESOURCE_SOURCE_MATERIAL:
		return CompileMaterial(roots, relative);
	case RESOURCE_SOURCE_IMAGE:
	case RESOURCE_SOURCE_TEXTURE_RECIPE:
		return CompileTexture(roots, relative);
	case RESOURCE_SOURCE_MODEL:
	{
		const CUtlString key = roots.ContentPath(relative);
		const int done = FindDone(key);
		if (done >= 0)
			return done == 1;
		m_Log.Progress("Compiling model %s", relative.c_str());
		const bool bResult = CompileModelSource(*this, roots, relative, ResourceCompiler_CompiledName(relative));
		SetDone(key, bResult);
		return bResult;
	}
	case RESOURCE_SOURCE_SNAPSHOT:
		return CompileSnapshot(roots, relative, ResourceCompiler_CompiledName(relative), CUtlString());
	default:
		m_Log.Error(relative, 0, "not a source the compiler knows");
		return false;
	}
}

bool CResourceCompiler::CompileTexture(const CompileRoots_t &roots, const CUtlString &relative, CUtlString *pCompiled)
{
	const CUtlString output = ResourceCompiler_CompiledName(relative);
	if (pCompiled)
		*pCompiled = output;
	const EResourceSourceKind kind = ResourceCompiler_SourceKind(relative);
	if (kind != RESOURCE_SOURCE_IMAGE && kind != RESOURCE_SOURCE_TEXTURE_RECIPE)
	{
		m_Log.Error(relative, 0, "not a texture source: an image (.tga .png .psd .bmp .jpg) or a texture recipe (.ztex)");
		return false;
	}
	const CUtlString key = roots.ContentPath(relative);
	const int done = FindDone(key);
	if (done >= 0)
		return done == 1;
	m_Log.Progress("Compiling texture %s", relative.c_str());
	const bool bResult = kind == RESOURCE_SOURCE_IMAGE ? CompileImageSource(*this, roots, relative, output)
													   : CompileTextureRecipeSource(*this, roots, relative, output);
	SetDone(key, bResult);
	return bResult;
}

bool CResourceCompiler::CompileMaterial(const CompileRoots_t &roots, const CUtlString &relative, CUtlString *pCompiled)
{
	const CUtlString output = ResourceCompiler_CompiledName(relative);
	if (pCompiled)
		*pCompiled = output;
	if (ResourceCompiler_SourceKind(relative) != RESOURCE_SOURCE_MATERIAL)
	{
		m_Log.Error(relative, 0, "not a material source (.zmat)");
		return false;
	}
	const CUtlString key = roots.ContentPath(relative);
	const int done = FindDone(key);
	if (done >= 0)
		return done == 1;
	m_Log.Progress("Compiling material %s", relative.c_str());
	const bool bResult = CompileMaterialSource(*this, roots, relative, output);
	SetDone(key, bResult);
	return bResult;
}

bool CResourceCompiler::CompileSnapshot(const CompileRoots_t &roots, const CUtlString &relative, const CUtlString &output,
	const CUtlString &localSpaceBone)
{
	const CUtlString key = roots.ContentPath(relative) + "\n" + output + "\n" + localSpaceBone;
	const int done = FindDone(key);
	if (done >= 0)
		return done == 1;
	m_Log.Progress("Compiling particle snapshot %s", relative.c_str());
	const bool bResult = CompileSnapshotSource(*this, roots, relative, output, localSpaceBone);
	SetDone(key, bResult);
	return bResult;
}
