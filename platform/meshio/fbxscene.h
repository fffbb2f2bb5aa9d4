// FBX objects read into a source scene: every "Mesh" geometry with its control points, polygons
// (PolygonVertexIndex, a negative index ~i ends a polygon) and its first normal, UV and material
// layers resolved per corner / per polygon; the model that holds each geometry (its name and
// global transform); skins with their clusters (joint, control point indices, weights, bind
// matrices); and the skeleton made of the "LimbNode" models and the models that clusters bind,
// with each node's local transform from its properties.
//
// FBX 7 files name objects by id and connect them with "C" records; FBX 6 ASCII files name them
// by "Class::Name" and connect them with "Connect" records, and keep a mesh's geometry in its
// model. Both are read. Animations are not read here.
#pragma once

#include "meshio/fbxdocument.h"
#include "meshio/sourcescene.h"

bool LoadFbxScene(const CFbxDocument &document, SourceScene_t &scene, CUtlString &error);
bool LoadFbxSceneFile(const char *path, SourceScene_t &scene, CUtlString &error);
