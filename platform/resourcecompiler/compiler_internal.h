// What the compile of each kind of source offers the rest of the resource compiler (internal).
#pragma once

#include <system_error>
#include <thread>
#include <vector>

#include "resourcecompiler/resourcecompiler.h"

// Each writes the compiled file at the game-relative name `output`; true when it did.
bool CompileImageSource(CResourceCompiler &rc, const CompileRoots_t &roots, const CUtlString &relative, const CUtlString &output);
bool CompileTextureRecipeSource(CResourceCompiler &rc, const CompileRoots_t &roots, const CUtlString &relative, const CUtlString &output);
bool CompileMaterialSource(CResourceCompiler &rc, const CompileRoots_t &roots, const CUtlString &relative, const CUtlString &output);
bool CompileModelSource(CResourceCompiler &rc, const CompileRoots_t &roots, const CUtlString &relative, const CUtlString &output);
bool CompileSnapshotSource(CResourceCompiler &rc, const CompileRoots_t &roots, const CUtlString &relative, const CUtlString &output,
	const CUtlString &localSpaceBone);

// Creates the folders above an absolute file path; false and a message when it cannot.
bool ResourceCompiler_CreateParentFolders(const CUtlString &path, CUtlString &error);
// A content-relative reference from inside a source, made safe and normalised: slashes
// forward, no absolute path, no climbing out of the content root. False and the reason when it
// is refused.
bool ResourceCompiler_NormalizeReference(std::string_view reference, CUtlString &normalized, CUtlString &why);

// The threads that each texture compile on the calling thread may use (0: the run's count). A
// material that compiles several textures side by side gives each worker its share.
void ResourceCompiler_SetTextureThreads(int nThreads);

// Runs `work` on up to `workers` threads, the calling thread among them, and waits for all of
// them; the work takes its items from a counter it shares. When a thread cannot be started the
// ones running do the rest.
template <typename Fn> void ResourceCompiler_RunWorkers(int workers, Fn &&work)
{
	std::vector<std::thread> threads;
	for (int w = 1; w < workers; ++w)
	{
		try
		{
			threads.emplace_back(work);
		}
		catch (const std::system_error &)
		{
			break;
		}
	}
	work();
	for (std::thread &thread : threads)
		thread.join();
}
