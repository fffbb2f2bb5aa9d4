#include "mintyardtoolutils/core/templatecatalogue.h"

#include <cstring>

#include "core/kv3text.h"
#include "core/logging.h"
#include "core/strtools.h"
#include "filesystem/filesystem.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/core/publishedfileinfo.h"
#include "toolframework/localize.h"
#include "toolframework/toolframework.h"

namespace
{
const char *const GAME_PATH_ID = "GAME";
const char *const LOAD_ERROR_TOKEN = "#ZARN_Mintyard_Err_SessionLoadKV3";

// Resolves a name on "GAME" to a full path. False with a message when it exists nowhere.
bool ResolveGamePath(const char *name, CUtlString &fullPath, CUtlString &error)
{
	if (!g_pFullFileSystem)
	{
		// Without the host's file system only plain paths can be read.
		if (Plat_FileExists(name))
		{
			fullPath = name;
			return true;
		}
		error = V_Format("%s: no file system to look the file up on \"%s\"", name, GAME_PATH_ID);
		return false;
	}
	char buffer[4096];
	if (!g_pFullFileSystem->RelativePathToFullPath(name, GAME_PATH_ID, buffer, sizeof(buffer)) ||
		g_pFullFileSystem->IsDirectory(buffer))
	{
		error = V_Format("%s: not found on the search path \"%s\"", name, GAME_PATH_ID);
		return false;
	}
	fullPath = buffer;
	return true;
}

// Adds the duplicate-id warnings of one list; false when there was one.
template <typename T> bool CheckDuplicateIds(const CUtlVector<T> &list, ImportMessageList &messages)
{
	bool bOk = true;
	for (size_t i = 0; i < list.size(); ++i)
	{
		for (size_t j = 0; j < i; ++j)
		{
			if (V_stricmp(list[i].id.c_str(), list[j].id.c_str()) == 0)
			{
				messages.AddWarning("Duplicate id: %1", list[i].id.c_str());
				bOk = false;
				break;
			}
		}
	}
	return bOk;
}

bool TemplateIdEquals(const CMintyardTemplate &tmpl, const char *id)
{
	return V_stricmp(tmpl.id.c_str(), id) == 0;
}

// Splits at "." keeping empty parts.
CUtlVector<CUtlString> SplitId(const char *id)
{
	CUtlVector<CUtlString> parts;
	CUtlString current;
	for (const char *p = id; *p; ++p)
	{
		if (*p == '.')
		{
			parts.push_back(current);
			current.clear();
		}
		else
			current += *p;
	}
	parts.push_back(current);
	return parts;
}
} // namespace

// ---------------------------------------------------------------------------------------------
// Names and ids

CUtlString GetSlotDisplayName(const hero_slot_t &slot)
{
	if (!slot.slotText.empty())
		return slot.slotText;
	const char *tableName = GetLoadoutSlotName(slot.slotIndex);
	return V_Format("#LoadoutSlot_%s", tableName ? tableName : "(null)");
}

CUtlString MakeWearableTemplateId(const hero_t &hero, const hero_slot_t &slot)
{
	return V_Format("%s.%s.%s", "wearable", hero.name.c_str(), slot.slotName.c_str());
}

CUtlString MakeAbilityIconsTemplateId(const hero_t &hero)
{
	return V_Format("%s.%s", "abilityicons", hero.name.c_str());
}

// ---------------------------------------------------------------------------------------------
// Validation

bool ValidateTemplate(const CMintyardTemplate &tmpl, ImportMessageList &list)
{
	if (!CheckDuplicateIds(tmpl.models, list))
		return false;
	bool bOk = true;
	for (size_t m = 0; m < tmpl.models.size(); ++m)
	{
		const CMintyardTemplate_ZarnModel &model = tmpl.models[m];
		bOk &= CheckDuplicateIds(model.lod_list, list);
		for (const CMintyardTemplate_ZarnMesh &lod : model.lod_list)
			bOk &= CheckDuplicateIds(lod.extra_meshes, list);
		bOk &= CheckDuplicateIds(model.anim_list, list);
		bOk &= CheckDuplicateIds(model.attach_list, list);
		bOk &= CheckDuplicateIds(model.material_list, list);
		bOk &= CheckDuplicateIds(model.particle_snapshot_list, list);
		for (size_t other = 0; other < tmpl.models.size(); ++other)
		{
			if (other != m && tmpl.models[other].model_name_suffix == model.model_name_suffix)
			{
				list.AddWarning("'%1' Template Error: Models must have unique values for model_name_suffix: '%1'", tmpl.id.c_str(),
					model.model_name_suffix.c_str());
				bOk = false;
				break;
			}
		}
	}
	return bOk;
}

// ---------------------------------------------------------------------------------------------
// Loading

void CMintyardTemplateCatalogue::Clear()
{
	m_FileTemplates.clear();
	m_BuiltTemplates.clear();
}

bool CMintyardTemplateCatalogue::LoadTemplates(ImportMessageList &list)
{
	EnsureGameDataLoaded();
	m_FileTemplates.clear();

	CKeyValues3Context catalogueDocument;
	CUtlString error;
	if (!LoadKV3FromFile(&catalogueDocument, &error, MINTYARD_TEMPLATE_CATALOGUE_FILE, GAME_PATH_ID, KV3_FORMAT_GENERIC))
	{
		list.AddError(LOAD_ERROR_TOKEN, MINTYARD_TEMPLATE_CATALOGUE_FILE, error.c_str());
		return false;
	}

	const KeyValues3 *pTemplates = GetMember(catalogueDocument.Root(), "templates");
	const uint32 count = ArrayLength(pTemplates);
	for (uint32 i = 0; i < count; ++i)
	{
		CUtlString path;
		ReadString(ArrayElement(pTemplates, i), path);

		CUtlString fullPath;
		if (!ResolveGamePath(path.c_str(), fullPath, error))
		{
			Msg("Mintyard Template Error: %s: %s\n", path.c_str(), error.c_str());
			list.AddWarning(LOAD_ERROR_TOKEN, path.c_str(), error.c_str());
			continue;
		}

		CKeyValues3Context document;
		if (!LoadKV3FromFile(&document, &error, fullPath.c_str(), nullptr, KV3_FORMAT_GENERIC))
		{
			Msg("Mintyard Template Error: %s: %s\n", fullPath.c_str(), error.c_str());
			list.AddWarning(LOAD_ERROR_TOKEN, path.c_str(), error.c_str());
			continue;
		}

		std::unique_ptr<CMintyardTemplate> pTemplate = std::make_unique<CMintyardTemplate>(fullPath.c_str());
		CUtlString transferText;
		if (!LoadKV3ObjectInPlace(*pTemplate, document.Root(), &transferText, fullPath.c_str()))
		{
			list.AddWarning(LOAD_ERROR_TOKEN, path.c_str(), transferText.c_str());
			continue;
		}

		if (!ValidateTemplate(*pTemplate, list))
			continue;
		m_FileTemplates.push_back(std::move(pTemplate));
	}
	return true;
}

// ---------------------------------------------------------------------------------------------
// Lookups

const CMintyardTemplate *CMintyardTemplateCatalogue::GetFileTemplate(int nIndex) const
{
	if (nIndex < 0 || nIndex >= (int)m_FileTemplates.size())
		return nullptr;
	return m_FileTemplates[nIndex].get();
}

const CMintyardTemplate *CMintyardTemplateCatalogue::GetBuiltTemplate(int nIndex) const
{
	if (nIndex < 0 || nIndex >= (int)m_BuiltTemplates.size())
		return nullptr;
	return m_BuiltTemplates[nIndex].get();
}

const CMintyardTemplate *CMintyardTemplateCatalogue::FindLoadedTemplate(const char *pszId) const
{
	for (const std::unique_ptr<CMintyardTemplate> &pTemplate : m_FileTemplates)
	{
		if (TemplateIdEquals(*pTemplate, pszId))
			return pTemplate.get();
	}
	for (const std::unique_ptr<CMintyardTemplate> &pTemplate : m_BuiltTemplates)
	{
		if (TemplateIdEquals(*pTemplate, pszId))
			return pTemplate.get();
	}
	return nullptr;
}

const CMintyardTemplate *CMintyardTemplateCatalogue::FindTemplate(const char *pszId)
{
	if (!pszId)
		return nullptr;
	if (const CMintyardTemplate *pFound = FindLoadedTemplate(pszId))
		return pFound;

	const CUtlVector<CUtlString> parts = SplitId(pszId);
	if (parts.size() == 3 && V_stricmp(parts[0].c_str(), "wearable") == 0 && !parts[1].empty() && !parts[2].empty())
	{
		const hero_t *pHero = GetHeroTable().FindHero(parts[1].c_str());
		if (!pHero)
			return nullptr;
		const int slot = pHero->FindSlot(parts[2].c_str());
		if (slot < 0)
			return nullptr;
		return GetWearableTemplate(pHero, slot);
	}
	if (parts.size() == 2 && V_stricmp(parts[0].c_str(), "abilityicons") == 0 && !parts[1].empty())
	{
		const hero_t *pHero = GetHeroTable().FindHero(parts[1].c_str());
		if (!pHero)
			return nullptr;
		return GetAbilityIconsTemplate(pHero);
	}
	return nullptr;
}

const CMintyardTemplate *CMintyardTemplateCatalogue::FindTemplateByTags(int nTagCount, const char *const *ppTags)
{
	if (nTagCount <= 0 || !ppTags)
		return nullptr;
	auto hasTag = [&](const char *tag) {
		for (int i = 0; i < nTagCount; ++i)
		{
			if (ppTags[i] && strcmp(ppTags[i], tag) == 0)
				return true;
		}
		return false;
	};

	if (hasTag(MINTYARD_TAG_WEARABLE))
	{
		const hero_t *pHero = GetHeroTable().FindHeroByTags(nTagCount, ppTags);
		if (!pHero)
			return nullptr;
		for (int i = 0; i < nTagCount; ++i)
		{
			if (!ppTags[i])
				continue;
			for (int slot = 0; slot < (int)pHero->slots.size(); ++slot)
			{
				if (V_stricmp(pHero->slots[slot].slotName.c_str(), ppTags[i]) == 0)
					return GetWearableTemplate(pHero, slot);
			}
		}
		return nullptr;
	}
	if (hasTag(MINTYARD_TAG_ABILITY_ICONS))
	{
		const hero_t *pHero = GetHeroTable().FindHeroByTags(nTagCount, ppTags);
		return pHero ? GetAbilityIconsTemplate(pHero) : nullptr;
	}
	for (const std::unique_ptr<CMintyardTemplate> &pTemplate : m_FileTemplates)
	{
		bool bAll = true;
		for (const CUtlString &tag : pTemplate->mintyard_tags)
		{
			if (!hasTag(tag.c_str()))
			{
				bAll = false;
				break;
			}
		}
		if (bAll)
			return pTemplate.get();
	}
	return nullptr;
}

const CMintyardTemplate *CMintyardTemplateCatalogue::FindTemplateByTags(const CUtlVector<CUtlString> &tags)
{
	CUtlVector<const char *> pointers;
	for (const CUtlString &tag : tags)
		pointers.push_back(tag.c_str());
	return FindTemplateByTags((int)pointers.size(), pointers.data());
}

const CMintyardTemplate *CMintyardTemplateCatalogue::FindTemplateForRecord(const PublishedFileInfo_t *pRecord, ImportMessageList &list)
{
	if (!pRecord)
	{
		list.AddError("Internal error: No submission details");
		return nullptr;
	}
	const CMintyardTemplate *pTemplate = FindTemplateByTags(pRecord->m_vecTags);
	if (!pTemplate)
		list.AddError("#ZARN_Mintyard_UnrecognizedTemplate_BadTags", pRecord->m_sTitle.c_str());
	return pTemplate;
}

// ---------------------------------------------------------------------------------------------
// Built templates

const CMintyardTemplate *CMintyardTemplateCatalogue::GetWearableTemplate(int nHeroIndex, int nSlotIndex)
{
	return GetWearableTemplate(GetHeroTable().GetHero(nHeroIndex), nSlotIndex);
}

const CMintyardTemplate *CMintyardTemplateCatalogue::GetWearableTemplateByHeroID(int32 nHeroID, int nSlotIndex)
{
	return GetWearableTemplate(GetHeroTable().FindHeroByID(nHeroID), nSlotIndex);
}

const CMintyardTemplate *CMintyardTemplateCatalogue::GetWearableTemplate(const hero_t *pHero, int nSlotIndex)
{
	if (!pHero || nSlotIndex < 0 || nSlotIndex >= (int)pHero->slots.size())
		return nullptr;
	const hero_slot_t &slot = pHero->slots[nSlotIndex];
	if (slot.noImport)
		return nullptr;

	const CUtlString id = MakeWearableTemplateId(*pHero, slot);
	for (const std::unique_ptr<CMintyardTemplate> &pBuilt : m_BuiltTemplates)
	{
		if (TemplateIdEquals(*pBuilt, id.c_str()))
			return pBuilt.get();
	}

	std::unique_ptr<CMintyardTemplate> pTemplate = std::make_unique<CMintyardTemplate>();
	CMintyardTemplate &tmpl = *pTemplate;

	// 1. The display name: "<hero> - <slot>", in the author's language.
	ILocalize *pLocalize = Localize();
	const CUtlString slotText = pLocalize->Translate(GetSlotDisplayName(slot).c_str());
	const CUtlString heroText = pLocalize->Translate(V_Format("#%s", pHero->name.c_str()).c_str());
	const CUtlString displayName = pLocalize->Format("%1 - %2", heroText.c_str(), slotText.c_str());
	tmpl.Init(id.c_str(), displayName.c_str(), "", false);

	// 2. The item definition.
	CMintyardTemplate_ZarnItemDef &itemDef = tmpl.item_defs.emplace_back();
	itemDef.prefab_type = "wearable";
	itemDef.localization_prefix = "Item_";
	const char *slotTableName = GetLoadoutSlotName(slot.slotIndex);
	itemDef.item_type_name = slotTableName ? slotTableName : "";
	itemDef.hero_name = pHero->symbol;
	itemDef.loadout_slot = nSlotIndex;
	itemDef.model_player_expr = "$(model_wearable:zmdl_name)";

	// 3., 4. Directory and tags.
	tmpl.directory = pHero->className;
	tmpl.mintyard_tags.push_back(MINTYARD_TAG_WEARABLE);
	tmpl.mintyard_tags.push_back(pHero->tag);
	tmpl.mintyard_tags.push_back(slot.slotName);

	// 5. The model with its two levels and its material.
	CMintyardTemplate_ZarnModel &model = tmpl.models.emplace_back();
	model.Init("model_wearable", "", "", false);
	model.g1_legacy_name = "model0";
	CMintyardTemplate_ZarnMesh &portraitLod = model.lod_list.emplace_back();
	portraitLod.Init("mesh_portrait", "#ZARN_Mintyard_LOD0Title", "#ZARN_Mintyard_LOD0Desc", true);
	portraitLod.max_polygons = slot.maxPolygonsLOD0;
	portraitLod.max_bones = slot.maxBonesLOD0;
	CMintyardTemplate_ZarnMesh &worldLod = model.lod_list.emplace_back();
	worldLod.Init("mesh_world", "#ZARN_Mintyard_LOD1Title", "#ZARN_Mintyard_LOD1Desc", false);
	worldLod.max_polygons = slot.maxPolygonsLOD1;
	worldLod.max_bones = slot.maxBonesLOD1;
	CMintyardTemplate_ZarnMaterial &material = model.material_list.emplace_back();
	material.Init("material_wearable", "#ZARN_Mintyard_Mat0Title", "#ZARN_Mintyard_Mat0Desc", false);
	material.template_zmat = pHero->zmtTemplate;
	material.g1_legacy_name = "zmt0";
	material.material_group_name = "0";
	material.max_tex_width = slot.textureWidth;
	material.max_tex_height = slot.textureHeight;

	// 6. A body group that the item's meshes switch.
	if (!slot.bodygroupName.empty())
	{
		const char *const meshExprs[2] = { "$(model_wearable:portrait_lod_mesh)", "$(model_wearable:game_lod_mesh)" };
		const int enabledIndex = slot.meshesEnabledByDefault ? 0 : 1;
		for (int i = 0; i < 2; ++i)
		{
			CMintyardTemplate_ZarnModel::CMeshGroup_LEGACY &group = model.meshgroup_list_LEGACY.emplace_back();
			group.mesh_group_name = V_Format("%s_@%d", slot.bodygroupName.c_str(), i);
			group.enabled_by_default = i == 0;
			if (i == enabledIndex)
			{
				group.mesh_name_exprs.push_back(meshExprs[0]);
				group.mesh_name_exprs.push_back(meshExprs[1]);
			}
		}
		CMintyardTemplate_ZarnModel::CBodyGroup &bodyGroup = model.bodygroup_list.emplace_back();
		bodyGroup.bodygroup_name = slot.bodygroupName;
		bodyGroup.choices.resize(2);
		bodyGroup.choices[enabledIndex].meshes.push_back(meshExprs[0]);
		bodyGroup.choices[enabledIndex].meshes.push_back(meshExprs[1]);
	}

	// 7. The particle snapshot.
	if (!slot.snapshotLocalBone.empty() && !slot.snapshotOriginal.empty())
	{
		CMintyardTemplate_ZarnModel::CParticleSnapshot &snapshot = model.particle_snapshot_list.emplace_back();
		snapshot.Init("particle_snapshot", "#ZARN_Mintyard_EffectsModel_Title", "#ZARN_Mintyard_EffectsModel_Desc", false);
		snapshot.file_suffix = "_fx";
		snapshot.snapshot_bone = slot.snapshotLocalBone;
		snapshot.max_vertices = slot.snapshotMaxVerts;
		CMintyardTemplate_ZarnItemDef::Visual_t &visual = itemDef.visuals.emplace_back();
		visual.type = "particle_snapshot";
		visual.asset_expr = slot.snapshotOriginal;
		visual.modifier_expr = "$(particle_snapshot:psf_name)";
	}

	// 8. Particle replacements.
	for (const ParticleReplace_t &replace : slot.particleReplacements)
	{
		CMintyardTemplate_ZarnItemDef::Visual_t &visual = itemDef.visuals.emplace_back();
		visual.type = "particle";
		visual.asset_expr = replace.replace;
		visual.modifier_expr = replace.with;
	}

	// 9. Required attachments.
	for (const hero_attachment_point_t &point : slot.attachments)
	{
		CMintyardTemplate_ZarnModel::CAttach &attach = model.attach_list.emplace_back();
		attach.Init(point.internal_name.c_str(), point.name.c_str(), point.description.c_str(), false);
		attach.attach_name = point.internal_name;
		attach.attach_joint = point.bone_name;
		attach.default_offset = point.default_pos;
		attach.default_rotation = point.default_rot;
		attach.can_edit_offset = true;
	}

	m_BuiltTemplates.push_back(std::move(pTemplate));
	return m_BuiltTemplates.back().get();
}

const CMintyardTemplate *CMintyardTemplateCatalogue::GetAbilityIconsTemplate(const hero_t *pHero)
{
	if (!pHero)
		return nullptr;
	const CUtlString id = MakeAbilityIconsTemplateId(*pHero);
	for (const std::unique_ptr<CMintyardTemplate> &pBuilt : m_BuiltTemplates)
	{
		if (TemplateIdEquals(*pBuilt, id.c_str()))
			return pBuilt.get();
	}

	std::unique_ptr<CMintyardTemplate> pTemplate = std::make_unique<CMintyardTemplate>();
	CMintyardTemplate &tmpl = *pTemplate;
	tmpl.Init(id.c_str(), "#ZARN_Mintyard_SubmissionType_AbilityIcons", "#ZARN_Mintyard_SubmissionType_AbilityIcons_Desc", false);
	tmpl.mintyard_tags.push_back(MINTYARD_TAG_ABILITY_ICONS);
	tmpl.mintyard_tags.push_back(pHero->tag);

	CMintyardTemplate_ZarnImageSet &imageSet = tmpl.image_sets.emplace_back();
	imageSet.Init("ability_icons", "#ZARN_Mintyard_AbilityIcons", "", false);
	imageSet.image_set_type = MINTYARD_IMAGE_SET_ABILITY_ICONS;
	for (const hero_ability_t &ability : pHero->abilities)
	{
		if (ability.hidden)
			continue;
		CMintyardTemplate_ZarnImageSet::CImage &image = imageSet.image_list.emplace_back();
		image.Init(ability.name.c_str(), ability.tooltip.c_str(), ability.description.c_str(), true);
		image.exact_width = 128;
		image.exact_height = 128;
		image.image_type = MINTYARD_IMAGE_TYPE_PNG;
	}

	m_BuiltTemplates.push_back(std::move(pTemplate));
	return m_BuiltTemplates.back().get();
}
