// Feeds arbitrary bytes to the DMX mesh reader: whatever the data model loads is read by the
// schema into a source scene and checked, then prepared for the content tree and read again.
// A failure must say why; a scene that loads must be whole.
#include <cstdint>

#include "datamodel/dmxio.h"
#include "meshio/dmxmesh.h"
#include "meshio/meshtopology.h"

namespace
{
void ReadAndCheck(const CDmxDocument &document)
{
	SourceScene_t scene;
	CUtlString error;
	if (!LoadDmxScene(document, scene, error))
	{
		if (error.empty())
			__builtin_trap();
		return;
	}
	if (!scene.Validate(error))
		__builtin_trap();
	MeshTopologyReport_t report;
	CheckSourceTopology(scene, report);
	CDmxDocument rebuilt;
	if (!BuildDmxScene(scene, "fuzz", rebuilt, error))
		__builtin_trap(); // a valid scene always converts
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	CDmxDocument document;
	CUtlString error;
	if (!DmxLoadBuffer(data, size, "fuzz.dmx", document, &error))
		return 0;
	ReadAndCheck(document);
	DmxMeshPreparation_t stats;
	if (PrepareDmxMesh(document, &stats, error))
		ReadAndCheck(document);
	else if (error.empty())
		__builtin_trap();
	return 0;
}
