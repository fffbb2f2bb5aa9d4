// Loading a mesh source of any kind by its contents: FBX (binary or ASCII, our own reader) or
// DMX (through the data model). This is the tool's road: FBX geometry and skins only, no
// third-party reader. The compiler's road adds assimp (meshio/assimp/assimpscene.h).
#pragma once

#include <string_view>

#include "meshio/halfedgemesh.h"
#include "meshio/meshtopology.h"
#include "meshio/sourcescene.h"

enum SourceFormat_t
{
	SOURCE_FORMAT_UNKNOWN = 0,
	SOURCE_FORMAT_FBX_BINARY,
	SOURCE_FORMAT_FBX_ASCII,
	SOURCE_FORMAT_DMX,
};

// What the first bytes of a file say it is.
SourceFormat_t DetectSourceFormat(std::string_view bytes);
// "fbx-binary", "fbx-ascii", "dmx-binary", "dmx-keyvalues2", "dmx-keyvalues2_noids"; empty for
// anything else.
CUtlString SourceFormatToken(std::string_view bytes);

// Reads a source file into a scene. false with a message naming the file when it cannot.
bool LoadSourceScene(const char *path, SourceScene_t &scene, CUtlString &error);
// The same from the file's bytes already read; `path` names them in messages.
bool LoadSourceScene(const char *path, std::string_view bytes, SourceScene_t &scene, CUtlString &error);

// The half-edge mesh of a source file (every mesh of it in one), as the topology check sees it.
bool LoadSourceHalfEdgeMesh(const char *path, CHalfEdgeMesh &mesh, SourceMeshMap_t &map, CUtlString &error);
