// Source scenes through assimp, for the command-line programs only (the compiler and
// mintyard_mesh): the tool process never links a third-party mesh reader.
//
// assimp gives a vertex per polygon corner and no control points, so where our own FBX reader
// gives the geometry it stays the reference for counts and connectivity; assimp adds what a
// compile needs beyond it: the node hierarchy with its transforms and animations sampled per
// frame.
#pragma once

#include "meshio/sourcescene.h"

// The importer flags of every load here: triangles are kept as the file has them (polygons
// fanned), nothing is welded, merged or dropped, the skeleton stays whole.
unsigned int MeshioAssimpFlags();

// The whole scene as assimp sees it: meshes with assimp's own vertices (split per corner),
// joints from the node hierarchy (bones, the nodes between them and animated nodes), skin
// weights per vertex, animations sampled at every frame of the file's rate.
bool LoadAssimpScene(const char *path, SourceScene_t &scene, CUtlString &error);

// An FBX source for the compiler: geometry, skin weights and joint names from our own reader,
// joints' local transforms, the nodes that animations move and the animations from assimp,
// matched by name.
bool LoadFbxSourceScene(const char *path, SourceScene_t &scene, CUtlString &error);

// A mesh or animation source of either kind, as the compiler reads it: FBX through
// LoadFbxSourceScene, DMX through the data model.
bool LoadSourceSceneForCompile(const char *path, SourceScene_t &scene, CUtlString &error);
