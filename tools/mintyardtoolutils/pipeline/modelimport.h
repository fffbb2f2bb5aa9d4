// Model import: a model element becomes one model document (".zmdl") in the content tree, with
// its meshes and levels of detail, body groups, materials, animations and bundles, attachments,
// particle snapshots and hitboxes, and is compiled.
#pragma once

#include "core/utlstring.h"
#include "core/utlvector.h"
#include "mintyardtoolutils/core/cfgelements.h"
#include "mintyardtoolutils/core/importmessages.h"

class CModelDoc;

// Builds, saves and compiles the document of a model element; failures go into the list.
void ModelImport(CMintyardCfg_ZarnModel *pModel, ImportMessageList &list);

// The steps of a model document, each adding its nodes; false ends the model.
bool AddMeshNode(CMintyardCfg_ZarnModel *pModel, CModelDoc &doc, CMintyardCfg_ZarnMesh *pMesh, int nLodIndex, int nExtraIndex,
	ImportMessageList &list, CUtlVector<CUtlString> &outMeshNames);
bool AddMaterialGroups(CMintyardCfg_ZarnModel *pModel, CModelDoc &doc, const CUtlVector<CMintyardCfg_ZarnMaterial *> &materials,
	ImportMessageList &list);
// `pTemplateAnim` null takes the element's own template.
bool AddAnimFileNode(CMintyardCfg_ZarnModel::CAnim *pAnim, CModelDoc &doc, const CMintyardTemplate_ZarnModel::CAnim *pTemplateAnim,
	const CUtlString &stem, ImportMessageList &list);
bool ImportRunBundle(CMintyardCfg_ZarnModel *pModel, CMintyardCfg_ZarnModel::CAnimBundle *pBundle, CModelDoc &doc, const CUtlString &stem,
	ImportMessageList &list);
bool ImportBlendBundle(CMintyardCfg_ZarnModel *pModel, CMintyardCfg_ZarnModel::CAnimBundle *pBundle, CModelDoc &doc, const CUtlString &stem,
	ImportMessageList &list);

// The number of errors the list held when the model being imported began (imports do not nest):
// a mesh check of that model fails when errors were added since.
int ModelImportErrorBaseline();

// The model's output stem, "items/<directory>/<import name>/<import name><suffix>".
CUtlString ModelOutputStem(const CMintyardCfg_ZarnModel *pModel);
// The name of a mesh node: import name and suffix, "_lod%d" above 0, "_extra%d" for an extra.
CUtlString MeshNodeName(const CMintyardCfg_ZarnModel *pModel, int nLodIndex, int nExtraIndex);
