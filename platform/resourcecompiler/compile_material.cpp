// Materials: ".zmat" (KeyValues "Layer0") to ".zmat_c". The shader and every texture reference
// are checked (a file under the content root, or a constant in brackets); the referenced
// textures are compiled, side by side on the run's threads, each with the settings file beside
// it; the compiled material maps each texture key to the compiled texture under the game root.
#include <atomic>
#include <thread>

#include "compiledassets/compiledassets.h"
#include "core/fileio.h"
#include "core/strtools.h"
#include "resourcecompiler/compiler_internal.h"
#include "resourcecompiler/materialsource.h"

namespace
{
struct TextureJob_t
{
	CUtlString m_Source;   // content-relative
	CUtlString m_Compiled; // game-relative
	bool m_bResult = false;
};

// Compiles the textures on up to the run's thread count of workers; each worker's texture uses
// its share of the threads.
void CompileTextures(CResourceCompiler &rc, const CompileRoots_t &roots, std::vector<TextureJob_t> &jobs)
{
	const int workers = std::max(1, std::min(rc.ThreadCount(), (int)jobs.size()));
	const int threadsEach = std::max(1, rc.ThreadCount() / workers);
	std::atomic<size_t> next{ 0 };
	auto work = [&]() {
		ResourceCompiler_SetTextureThreads(threadsEach);
		for (size_t i = next++; i < jobs.size(); i = next++)
			jobs[i].m_bResult = rc.CompileTexture(roots, jobs[i].m_Source, &jobs[i].m_Compiled);
		ResourceCompiler_SetTextureThreads(0);
	};
	ResourceCompiler_RunWorkers(workers, work);
}
} // namespace

bool CompileMaterialSource(CResourceCompiler &rc, const CompileRoots_t &roots, const CUtlString &relative, const CUtlString &output)
{
	CUtlBuffer text;
	CUtlString error;
	if (!Plat_ReadFile(roots.ContentPath(relative).c_str(), text, &error))
	{
		rc.Log().Error(relative, 0, "cannot read the material: %s", error.c_str());
		return false;
	}
	MaterialSource_t source;
	const bool bRead = ReadMaterialSource(text.View(), relative.c_str(), source);
	for (const MaterialSourceMessage_t &message : source.m_Messages)
	{
		if (message.bError)
			rc.Log().Error(relative, message.nLine, "%s", message.text.c_str());
		else
			rc.Log().Warning(relative, message.nLine, "%s", message.text.c_str());
	}
	bool bOk = bRead;

	// Every texture file, each once.
	std::vector<TextureJob_t> jobs;
	std::vector<int> jobOfTexture(source.m_Textures.size(), -1);
	for (size_t t = 0; t < source.m_Textures.size(); ++t)
	{
		const MaterialSourceTexture_t &texture = source.m_Textures[t];
		CUtlString name, why;
		if (!ResourceCompiler_NormalizeReference(texture.m_Path, name, why))
		{
			rc.Log().Error(relative, texture.m_nLine, "%s names the texture \"%s\": %s", texture.m_Key.c_str(), texture.m_Path.c_str(), why.c_str());
			bOk = false;
			continue;
		}
		const EResourceSourceKind kind = ResourceCompiler_SourceKind(name);
		if (kind != RESOURCE_SOURCE_IMAGE && kind != RESOURCE_SOURCE_TEXTURE_RECIPE)
		{
			rc.Log().Error(relative, texture.m_nLine, "%s names \"%s\", which is no texture source (an image or a .ztex recipe)",
				texture.m_Key.c_str(), name.c_str());
			bOk = false;
			continue;
		}
		const CUtlString path = roots.ContentPath(name);
		if (!Plat_FileExists(path.c_str()) || Plat_IsDirectory(path.c_str()))
		{
			rc.Log().Error(relative, texture.m_nLine, "%s: the texture file %s does not exist (%s)", texture.m_Key.c_str(), name.c_str(), path.c_str());
			bOk = false;
			continue;
		}
		for (size_t j = 0; j < jobs.size(); ++j)
		{
			if (jobs[j].m_Source == name)
				jobOfTexture[t] = (int)j;
		}
		if (jobOfTexture[t] < 0)
		{
			jobOfTexture[t] = (int)jobs.size();
			jobs.push_back(TextureJob_t{ name, CUtlString(), false });
		}
	}
	if (!bOk)
	{
		rc.Log().Error(relative, 0, "the material is not compiled");
		return false;
	}

	CompileTextures(rc, roots, jobs);
	CCompiledMaterial material;
	material.m_Shader = source.m_Shader;
	material.m_nFlags = source.m_nFlags;
	material.m_Constants = source.m_Constants;
	for (size_t t = 0; t < source.m_Textures.size(); ++t)
	{
		const TextureJob_t &job = jobs[(size_t)jobOfTexture[t]];
		if (!job.m_bResult)
		{
			rc.Log().Error(relative, source.m_Textures[t].m_nLine, "%s: the texture %s did not compile", source.m_Textures[t].m_Key.c_str(),
				job.m_Source.c_str());
			bOk = false;
			continue;
		}
		material.m_Textures.push_back(CompiledMaterialTexture_t{ source.m_Textures[t].m_Key, job.m_Compiled });
	}
	if (!bOk)
	{
		rc.Log().Error(relative, 0, "the material is not compiled");
		return false;
	}
	const CUtlString path = roots.GamePath(output);
	if (!ResourceCompiler_CreateParentFolders(path, error) || !WriteCompiledMaterial(path.c_str(), material, &error))
	{
		rc.Log().Error(relative, 0, "cannot write %s: %s", output.c_str(), error.c_str());
		return false;
	}
	rc.Log().Progress("  %s: %s, %zu textures, %zu constants -> %s", relative.c_str(), material.m_Shader.c_str(), material.m_Textures.size(),
		material.m_Constants.size(), output.c_str());
	return true;
}
