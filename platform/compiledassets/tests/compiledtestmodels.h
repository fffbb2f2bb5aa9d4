// Compiled assets made in code for the tests, the benchmark and the fuzzer's seeds.
#pragma once

#include "compiledassets/compiledassets.h"

// A model with every feature filled: skinned and rigid meshes, 16- and 32-bit indices,
// tangents, LODs, a skeleton, materials with a default and a named group, body groups (one
// choice empty), attachments, a generated and a hand-made hitbox set, pose parameters, a weight
// list and sequences (plain with scales, looping with events, activities and motion, a blend
// and a delta one with add layers). `meshScale` multiplies the vertex count of the first mesh.
CCompiledModel MakeFullTestModel(int meshScale = 1);

// A skinned model of about `triangles` triangles in one mesh (a grid bent along a chain of
// `bones` bones, four weights a vertex) with one sequence of `frames` frames.
CCompiledModel MakeSkinnedGridModel(int triangles, int bones, int frames);

CCompiledTexture MakeTestTexture(ECompiledTextureFormat format, uint32 width, uint32 height, uint32 flags);
CCompiledMaterial MakeTestMaterial();
CCompiledSnapshot MakeTestSnapshot(int points);
