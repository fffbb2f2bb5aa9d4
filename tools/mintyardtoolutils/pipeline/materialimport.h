// Material import: a material element's eleven textures are placed beside a material file written
// from the template material and the textures, each with its size settings, and the material is
// compiled.
#pragma once

#include "core/utlstring.h"
#include "mintyardtoolutils/core/importmessages.h"

class CMintyardCfg_ZarnMaterial;
class CMintyardImportSession;
class CMintyardTemplate_ZarnMaterial;

// The names of the eleven textures in their fixed order ("color", "trans", "normal", ...).
const char *GetMaterialTextureName(int nIndex);
// The material key of texture n ("TextureColor", ...) and its value when the author left it out.
const char *GetMaterialTextureKey(int nIndex);
const char *GetMaterialTextureDefault(int nIndex);

// Places, writes and compiles the material; `pszMaterialPath` is relative to the content root
// ("materials/models/<stem><suffix>.zmat"). True when the material compiled.
bool MaterialImport(CMintyardCfg_ZarnMaterial *pMaterial, const char *pszMaterialPath, ImportMessageList &list);

// The size test of a placed texture (relative to the content root) against the template: at
// least the template's size, powers of two, and the same proportions; a warning otherwise.
void CheckTextureSize(const CMintyardImportSession *pSession, const CMintyardTemplate_ZarnMaterial *pTemplate,
	const char *pszContentRelativeTexture, ImportMessageList &list);
