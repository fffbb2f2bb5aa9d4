// The resource compiler: turns the sources of the content tree (<root>/content/<mod>) into the
// compiled assets of the game tree (<root>/game/<mod>). The `resourcecompiler` command is a thin
// shell around this; ResourceCompilerSystem001 runs that command as a child process.
//
// One CResourceCompiler is one run: it compiles the files it is given and everything they
// reference (a model's materials, a material's textures), each referenced source once per run.
// Every compiled file is written atomically (a temporary name renamed over the target), so a
// failed compile leaves the previous compiled file in place.
//
// What the compiler says goes through a CCompileLog: progress lines, and lines that start with
// "warning: " or "error: " followed by the file (content-relative where it lies in the content
// tree) and, where one exists, the line: "error: materials/x.zmat(4): ...".
//
// Nothing here throws; failures are reported through the log and the boolean results.
#pragma once

#include <cstdio>
#include <mutex>
#include <string_view>
#include <unordered_map>

#include "core/platform.h"
#include "core/utlstring.h"

// Where a compile reads and writes.
struct CompileRoots_t
{
	CUtlString m_Content; // <root>/content/<mod>, absolute, no trailing slash
	CUtlString m_Game;	  // <root>/game/<mod>

	// The absolute path of a content-relative or game-relative name.
	CUtlString ContentPath(std::string_view relative) const;
	CUtlString GamePath(std::string_view relative) const;
	// The content-relative name of an absolute path; false when it lies outside the content root.
	bool ContentRelative(std::string_view absolutePath, CUtlString &relative) const;
};

// The game directory (<root>/game/<mod>) gives the roots; false and a message when it has not
// that shape.
bool ResourceCompiler_RootsFromGameDirectory(std::string_view gameDirectory, CompileRoots_t &roots, CUtlString &error);
// The roots of a source that lies in a content tree (<root>/content/<mod>/...); false when it
// lies in none.
bool ResourceCompiler_RootsFromSource(std::string_view absoluteSource, CompileRoots_t &roots);

enum EResourceSourceKind
{
	RESOURCE_SOURCE_UNKNOWN = 0,
	RESOURCE_SOURCE_MATERIAL,		// .zmat
	RESOURCE_SOURCE_IMAGE,			// .tga .png .psd .bmp .jpg .jpeg
	RESOURCE_SOURCE_TEXTURE_RECIPE, // .ztex
	RESOURCE_SOURCE_MODEL,			// .zmdl
	RESOURCE_SOURCE_SNAPSHOT,		// .fbx .dmx given directly: a particle snapshot
};
// The kind of a source by its extension (without case).
EResourceSourceKind ResourceCompiler_SourceKind(std::string_view path);
// The compiled name of a content-relative source: "_c" appended ("models/x.zmdl_c"), an image's
// extension taken into the name ("materials/x.png" -> "materials/x_png.ztex_c"), a snapshot
// source's extension replaced by ".zsnap". Empty for a source of no known kind.
CUtlString ResourceCompiler_CompiledName(std::string_view contentRelative);

// The lines of a run. Safe to call from several threads: each line is written whole.
class CCompileLog
{
public:
	// Lines go to `pOut` (progress) and `pErr` (warnings and errors); null drops them (the
	// counts still count).
	CCompileLog(FILE *pOut = stdout, FILE *pErr = stderr) : m_pOut(pOut), m_pErr(pErr) {}

	void Progress(const char *pszFormat, ...) FMTFUNCTION(2, 3);
	// "warning: FILE(LINE): text" (no "(LINE)" when line is 0; no "FILE: " when file is empty).
	void Warning(std::string_view file, int nLine, const char *pszFormat, ...) FMTFUNCTION(4, 5);
	void Error(std::string_view file, int nLine, const char *pszFormat, ...) FMTFUNCTION(4, 5);

	int ErrorCount() const;
	int WarningCount() const;

private:
	void Write(FILE *pFile, const CUtlString &line);

	FILE *m_pOut;
	FILE *m_pErr;
	mutable std::mutex m_Mutex;
	int m_nErrors = 0;
	int m_nWarnings = 0;
};

struct ResourceCompilerOptions_t
{
	int nThreads = 0; // worker threads for textures and sources; 0: one per core
};

class CResourceCompiler
{
public:
	explicit CResourceCompiler(CCompileLog &log, const ResourceCompilerOptions_t &options = {});
	CResourceCompiler(const CResourceCompiler &) = delete;
	CResourceCompiler &operator=(const CResourceCompiler &) = delete;

	// Compiles a source given by the user (absolute, or relative to the working folder). The
	// roots come from `pszGameDirectory` (<root>/game/<mod>) or, when it is null or empty, from
	// the source's own path. True when it compiled.
	bool CompileFile(const char *pszPath, const char *pszGameDirectory = nullptr);

	// The compiles of referenced sources, each done once per run: a later call for the same
	// source gives the first call's result without compiling again. `relative` is the source's
	// content-relative name; `pCompiled` receives the compiled file's game-relative name.
	bool CompileTexture(const CompileRoots_t &roots, const CUtlString &relative, CUtlString *pCompiled = nullptr);
	bool CompileMaterial(const CompileRoots_t &roots, const CUtlString &relative, CUtlString *pCompiled = nullptr);
	// A particle snapshot from a mesh source, written to a game-relative name.
	bool CompileSnapshot(const CompileRoots_t &roots, const CUtlString &relative, const CUtlString &output,
		const CUtlString &localSpaceBone);

	// Compiles a source of any kind by its extension (not cached).
	bool CompileSource(const CompileRoots_t &roots, const CUtlString &relative);

	CCompileLog &Log() { return m_Log; }
	int ThreadCount() const { return m_nThreads; }

private:
	// The result of a source already compiled in this run, or -1.
	int FindDone(const CUtlString &key);
	void SetDone(const CUtlString &key, bool bResult);

	CCompileLog &m_Log;
	int m_nThreads;
	std::mutex m_Mutex;
	std::unordered_map<CUtlString, bool> m_Done; // by absolute source path (and output, for snapshots)
};

// The commands beside compiling, as the `resourcecompiler` program runs them (arguments after
// the command's own name). They print to standard output and return the exit status.
int ResourceCompiler_InfoCommand(int argc, char **argv);
int ResourceCompiler_ExportCommand(int argc, char **argv);
