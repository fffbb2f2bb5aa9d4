#include "meshio/meshsource.h"

#include "core/fileio.h"
#include "meshio/dmxmesh.h"
#include "meshio/fbxdocument.h"
#include "meshio/fbxscene.h"

SourceFormat_t DetectSourceFormat(std::string_view bytes)
{
	if (CFbxDocument::LooksLikeBinaryFbx(bytes))
		return SOURCE_FORMAT_FBX_BINARY;
	if (CFbxDocument::LooksLikeFbx(bytes))
		return SOURCE_FORMAT_FBX_ASCII;
	if (LooksLikeDmx(bytes))
		return SOURCE_FORMAT_DMX;
	return SOURCE_FORMAT_UNKNOWN;
}

CUtlString SourceFormatToken(std::string_view bytes)
{
	switch (DetectSourceFormat(bytes))
	{
	case SOURCE_FORMAT_FBX_BINARY:
		return "fbx-binary";
	case SOURCE_FORMAT_FBX_ASCII:
		return "fbx-ascii";
	case SOURCE_FORMAT_DMX:
		return DmxFormatToken(bytes);
	default:
		return {};
	}
}

bool LoadSourceScene(const char *path, SourceScene_t &scene, CUtlString &error)
{
	CUtlBuffer bytes;
	if (!Plat_ReadFile(path, bytes, &error))
		return false;
	return LoadSourceScene(path, bytes.View(), scene, error);
}

bool LoadSourceScene(const char *path, std::string_view bytes, SourceScene_t &scene, CUtlString &error)
{
	switch (DetectSourceFormat(bytes))
	{
	case SOURCE_FORMAT_FBX_BINARY:
	case SOURCE_FORMAT_FBX_ASCII:
	{
		CFbxDocument document;
		return document.Parse(path, bytes, error) && LoadFbxScene(document, scene, error);
	}
	case SOURCE_FORMAT_DMX:
		return LoadDmxSceneBuffer(path, bytes, scene, error);
	default:
		error = CUtlString(path) + ": neither an FBX nor a DMX file";
		return false;
	}
}

bool LoadSourceHalfEdgeMesh(const char *path, CHalfEdgeMesh &mesh, SourceMeshMap_t &map, CUtlString &error)
{
	SourceScene_t scene;
	if (!LoadSourceScene(path, scene, error))
		return false;
	BuildHalfEdgeMesh(scene, mesh, map);
	return true;
}
