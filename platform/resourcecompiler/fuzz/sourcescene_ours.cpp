// The fuzz tree has no assimp: there the compiler reads every mesh source with our own readers
// (FBX geometry, skins and skeleton; DMX whole), which is the road the tool takes too.
#include "meshio/assimp/assimpscene.h"
#include "meshio/meshsource.h"

bool LoadSourceSceneForCompile(const char *path, SourceScene_t &scene, CUtlString &error)
{
	return LoadSourceScene(path, scene, error);
}
