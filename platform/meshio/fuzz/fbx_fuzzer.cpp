// Feeds arbitrary bytes to our FBX reader (binary or ASCII, by the first bytes): the node tree,
// every array decoded as numbers and as integers, the scene with its layers and skins, and the
// topology check of what it read. A failure must say why; a scene that loads must be whole.
#include <cstdint>
#include <vector>

#include "meshio/fbxdocument.h"
#include "meshio/fbxscene.h"
#include "meshio/meshtopology.h"

namespace
{
void DecodeAll(const CFbxDocument &document, const FbxNode_t *node, int depth)
{
	std::vector<double> numbers;
	std::vector<int32> integers;
	CUtlString error;
	for (; node; node = document.NextSibling(node))
	{
		if (!document.ReadDoubles(node, numbers, error) && error.empty())
			__builtin_trap();
		error.clear();
		if (!document.ReadInts(node, integers, error) && error.empty())
			__builtin_trap();
		if (depth > CFbxDocument::MAX_DEPTH)
			__builtin_trap(); // the parser let a deeper tree through
		DecodeAll(document, document.FirstChild(node), depth + 1);
	}
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	const std::string_view bytes(reinterpret_cast<const char *>(data), size);
	CFbxDocument document;
	CUtlString error;
	if (!document.Parse("fuzz.fbx", bytes, error))
	{
		if (error.empty())
			__builtin_trap();
		return 0;
	}
	DecodeAll(document, document.FirstTopLevel(), 0);
	SourceScene_t scene;
	if (!LoadFbxScene(document, scene, error))
	{
		if (error.empty())
			__builtin_trap();
		return 0;
	}
	if (!scene.Validate(error))
		__builtin_trap();
	MeshTopologyReport_t report;
	CheckSourceTopology(scene, report);
	if (!report.bHasPositions)
		__builtin_trap();
	return 0;
}
