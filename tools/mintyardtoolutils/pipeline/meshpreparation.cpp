#include "mintyardtoolutils/pipeline/meshpreparation.h"

#include "datamodel/dmelement.h"
#include "datamodel/dmxio.h"
#include "meshio/dmxmesh.h"

EMeshPreparationResult PrepareDmxMeshFile(const char *pszSource, const char *pszDestination, CUtlString &error)
{
	CDmxDocument document;
	if (!DmxLoadFile(pszSource, document, &error) || !document.GetRoot())
	{
		if (error.empty())
			error = CUtlString(pszSource) + ": the file has no root element";
		return MESH_PREPARATION_UNREADABLE;
	}
	if (!PrepareDmxMesh(document, nullptr, error))
		return MESH_PREPARATION_UNREADABLE;
	if (!DmxSaveFile(pszDestination, document.GetRoot(), "binary", "dmx", DMX_CURRENT_FORMAT_VERSION, &error))
		return MESH_PREPARATION_NOT_SAVED;
	return MESH_PREPARATION_DONE;
}
