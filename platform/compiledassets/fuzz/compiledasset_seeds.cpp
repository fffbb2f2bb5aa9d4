// Writes the seed corpus of compiledasset_fuzzer with the real writer: a small file of each
// format. Run it from the top of the tree after changing a format:
//   build/bin/compiledasset_seeds platform/compiledassets/fuzz/corpus/compiledasset
#include <cstdio>
#include <string>

#include "compiledassets/compiledassets.h"
#include "../tests/compiledtestmodels.h"

int main(int argc, char **argv)
{
	if (argc != 2)
	{
		fprintf(stderr, "usage: compiledasset_seeds FOLDER\n");
		return 2;
	}
	const std::string folder = argv[1];
	CUtlString error;
	bool ok = WriteCompiledModel((folder + "/full.zmdl_c").c_str(), MakeFullTestModel(), &error);
	ok = ok && WriteCompiledModel((folder + "/grid.zmdl_c").c_str(), MakeSkinnedGridModel(16, 3, 2), &error);
	ok = ok && WriteCompiledModel((folder + "/empty.zmdl_c").c_str(), CCompiledModel(), &error);
	ok = ok && WriteCompiledTexture((folder + "/bc1.ztex_c").c_str(), MakeTestTexture(COMPILED_TEXTURE_BC1, 8, 8, COMPILED_TEXTURE_FLAG_SRGB), &error);
	ok = ok && WriteCompiledTexture((folder + "/bc3.ztex_c").c_str(),
		MakeTestTexture(COMPILED_TEXTURE_BC3, 8, 4, COMPILED_TEXTURE_FLAG_SRGB | COMPILED_TEXTURE_FLAG_YCOCG), &error);
	ok = ok && WriteCompiledTexture((folder + "/rgba.ztex_c").c_str(), MakeTestTexture(COMPILED_TEXTURE_RGBA8, 3, 5, 0), &error);
	ok = ok && WriteCompiledMaterial((folder + "/material.zmat_c").c_str(), MakeTestMaterial(), &error);
	ok = ok && WriteCompiledSnapshot((folder + "/snapshot.zsnap").c_str(), MakeTestSnapshot(6), &error);
	if (!ok)
	{
		fprintf(stderr, "%s\n", error.c_str());
		return 1;
	}
	return 0;
}
