#include "mintyardtoolutils/core/mintyardtemplate.h"

#include "core/keyvalues.h"
#include "core/strtools.h"
#include "mintyardtoolutils/core/gamedata.h"

// ---------------------------------------------------------------------------------------------
// Enum names

namespace
{
const KV3EnumName_t s_AnimBundleTypeNames[] = {
	{ "run_anim_bundle", MINTYARD_ANIM_BUNDLE_RUN },
	{ "loop_and_rare", MINTYARD_ANIM_BUNDLE_LOOP_AND_RARE },
	{ "multiblend_bundle", MINTYARD_ANIM_BUNDLE_MULTIBLEND },
};
const KV3EnumName_t s_ImageSetTypeNames[] = {
	{ "loading_screen", MINTYARD_IMAGE_SET_LOADING_SCREEN },
	{ "marketing_image", MINTYARD_IMAGE_SET_MARKETING_IMAGE },
	{ "emoticon", MINTYARD_IMAGE_SET_EMOTICON },
	{ "abilityicons", MINTYARD_IMAGE_SET_ABILITY_ICONS },
	{ "cursor_pack", MINTYARD_IMAGE_SET_CURSOR_PACK },
};
const KV3EnumName_t s_ImageTypeNames[] = {
	{ "png", MINTYARD_IMAGE_TYPE_PNG },
	{ "bmp", MINTYARD_IMAGE_TYPE_BMP },
};
const KV3EnumName_t s_SoundSetTypeNames[] = {
	{ "music_pack", MINTYARD_SOUND_SET_MUSIC_PACK },
};

struct TextureInput_t
{
	const char *id;
	bool optional;
};
const TextureInput_t s_TextureInputs[CMintyardTemplate_ZarnMaterial::TEXTURE_COUNT] = {
	{ "color", false },
	{ "trans", true },
	{ "normal", false },
	{ "detailmask", true },
	{ "diffusemask", true },
	{ "metalnessmask", true },
	{ "selfillummask", true },
	{ "specmask", true },
	{ "rimmask", true },
	{ "basetintmask", true },
	{ "specexp", true },
};
} // namespace

const CKV3EnumTable g_MintyardAnimBundleTypeNames(s_AnimBundleTypeNames);
const CKV3EnumTable g_MintyardImageSetTypeNames(s_ImageSetTypeNames);
const CKV3EnumTable g_MintyardImageTypeNames(s_ImageTypeNames);
const CKV3EnumTable g_MintyardSoundSetTypeNames(s_SoundSetTypeNames);

// ---------------------------------------------------------------------------------------------
// Base elements

void CMintyardTemplateElement::Init(const char *pszId, const char *pszName, const char *pszDesc, bool bOptional)
{
	id = pszId ? pszId : "";
	name = pszName ? pszName : "";
	desc = pszDesc ? pszDesc : "";
	info_url.clear();
	optional = bOptional;
}

namespace
{
template <class Self, class Context> void TransferElement(Self &self, Context &ctx)
{
	ctx.Member("id", self.id);
	ctx.Member("name", self.name);
	ctx.Member("desc", self.desc);
	ctx.Member("info_url", self.info_url);
	ctx.Member("optional", self.optional);
}
} // namespace

void CMintyardTemplateElement::Save(CKV3TransferSaveContext &ctx) const
{
	TransferElement(*this, ctx);
}

void CMintyardTemplateElement::Load(CKV3TransferLoadContext &ctx)
{
	TransferElement(*this, ctx);
}

void CMintyardTemplateFilename::Save(CKV3TransferSaveContext &ctx) const
{
	CMintyardTemplateElement::Save(ctx);
	ctx.Member("max_file_size_kb", max_file_size_kb, -1);
}

void CMintyardTemplateFilename::Load(CKV3TransferLoadContext &ctx)
{
	CMintyardTemplateElement::Load(ctx);
	ctx.Member("max_file_size_kb", max_file_size_kb, -1);
}

// ---------------------------------------------------------------------------------------------
// Meshes and materials

namespace
{
template <class Self, class Context> void TransferMesh(Self &self, Context &ctx)
{
	ctx.Member("max_polygons", self.max_polygons);
	ctx.Member("max_bones", self.max_bones, 60);
	ctx.Member("extra_meshes", self.extra_meshes);
}
} // namespace

void CMintyardTemplate_ZarnMesh::Save(CKV3TransferSaveContext &ctx) const
{
	CMintyardTemplateFilename::Save(ctx);
	TransferMesh(*this, ctx);
}

void CMintyardTemplate_ZarnMesh::Load(CKV3TransferLoadContext &ctx)
{
	CMintyardTemplateFilename::Load(ctx);
	TransferMesh(*this, ctx);
}

const char *CMintyardTemplate_ZarnMaterial::TextureId(int index)
{
	if (index < 0 || index >= TEXTURE_COUNT)
		return nullptr;
	return s_TextureInputs[index].id;
}

CMintyardTemplate_ZarnMaterial::CMintyardTemplate_ZarnMaterial()
{
	SetupTextures();
}

void CMintyardTemplate_ZarnMaterial::SetupTextures()
{
	for (int i = 0; i < TEXTURE_COUNT; ++i)
	{
		const CUtlString nameToken = V_Format("#ZARN_Mintyard_TextureName_%s", s_TextureInputs[i].id);
		const CUtlString descToken = V_Format("#ZARN_Mintyard_TextureDetails_%s", s_TextureInputs[i].id);
		textures[i].Init(s_TextureInputs[i].id, nameToken.c_str(), descToken.c_str(), s_TextureInputs[i].optional);
		textures[i].max_file_size_kb = -1;
	}
}

void CMintyardTemplate_ZarnMaterial::Init(const char *pszId, const char *pszName, const char *pszDesc, bool bOptional)
{
	CMintyardTemplateElement::Init(pszId, pszName, pszDesc, bOptional);
	SetupTextures();
}

namespace
{
template <class Self, class Context> void TransferMaterial(Self &self, Context &ctx)
{
	ctx.Member("template_zmat", self.template_zmat);
	ctx.Member("material_group_name", self.material_group_name);
	ctx.Member("material_name_suffix", self.material_name_suffix);
	ctx.Member("g1_legacy_name", self.g1_legacy_name);
	ctx.Member("max_tex_width", self.max_tex_width);
	ctx.Member("max_tex_height", self.max_tex_height);
}
} // namespace

void CMintyardTemplate_ZarnMaterial::Save(CKV3TransferSaveContext &ctx) const
{
	CMintyardTemplateElement::Save(ctx);
	TransferMaterial(*this, ctx);
}

void CMintyardTemplate_ZarnMaterial::Load(CKV3TransferLoadContext &ctx)
{
	CMintyardTemplateElement::Load(ctx);
	TransferMaterial(*this, ctx);
	SetupTextures();
}

// ---------------------------------------------------------------------------------------------
// Models

void CMintyardTemplate_BaseZarnModel::Save(CKV3TransferSaveContext &ctx) const
{
	CMintyardTemplateElement::Save(ctx);
	ctx.Member("model_name_suffix", model_name_suffix);
	ctx.Member("default_portrait_model", default_portrait_model);
}

void CMintyardTemplate_BaseZarnModel::Load(CKV3TransferLoadContext &ctx)
{
	CMintyardTemplateElement::Load(ctx);
	ctx.Member("model_name_suffix", model_name_suffix);
	ctx.Member("default_portrait_model", default_portrait_model);
}

namespace
{
template <class Self, class Context> void TransferModifier(Self &self, Context &ctx)
{
	ctx.Member("modifier_name", self.modifier_name);
	ctx.Member("modifier_weight", self.modifier_weight);
}
template <class Self, class Context> void TransferBoneWeight(Self &self, Context &ctx)
{
	ctx.Member("bone_name", self.bone_name);
	ctx.Member("bone_weight", self.bone_weight);
}
template <class Self, class Context> void TransferAnimEvent(Self &self, Context &ctx)
{
	ctx.Member("event_name", self.event_name);
	ctx.Member("frame_num", self.frame_num);
	ctx.Member("event_data_legacy", self.event_data_legacy);
	ctx.Member("event_kv3", self.event_kv3);
}
template <class Self, class Context> void TransferAnim(Self &self, Context &ctx)
{
	ctx.Member("always_use_default_anim", self.always_use_default_anim);
	ctx.Member("suppress_run_motion_extraction", self.suppress_run_motion_extraction);
	ctx.Member("default", self.default_anim);
	ctx.Member("fallback_anim_id", self.fallback_anim_id);
	ctx.Member("suffix", self.suffix);
	ctx.Member("sequence_name", self.sequence_name);
	ctx.Member("activity_name", self.activity_name);
	ctx.Member("modifiers", self.modifiers);
	ctx.Member("bone_weight_list", self.bone_weight_list);
	ctx.Member("g1_legacy_name", self.g1_legacy_name);
	ctx.Member("activity_weight", self.activity_weight, 1);
	ctx.Member("looping", self.looping);
	ctx.Member("add_motion_extraction", self.add_motion_extraction);
	ctx.Member("delta_animation", self.delta_animation);
	ctx.Member("has_attack_point", self.has_attack_point);
	ctx.Member("anim_length", self.anim_length);
	ctx.Member("anim_events", self.anim_events);
}
template <class Self, class Context> void TransferAnimBundle(Self &self, Context &ctx)
{
	ctx.Member("compound_sequence_name", self.compound_sequence_name);
	ctx.Member("compound_activity_name", self.compound_activity_name);
	ctx.Member("compound_looping", self.compound_looping);
	ctx.Member("pose_param_name", self.pose_param_name);
	ctx.Member("anim_list", self.anim_list);
	ctx.Member("fallback_bundles", self.fallback_bundles);
	ctx.EnumMember("bundle_type", self.bundle_type, g_MintyardAnimBundleTypeNames);
}
template <class Self, class Context> void TransferAttach(Self &self, Context &ctx)
{
	ctx.Member("default_offset", self.default_offset);
	ctx.Member("default_rotation", self.default_rotation);
	ctx.Member("attach_name", self.attach_name);
	ctx.Member("attach_joint", self.attach_joint);
	ctx.Member("g1_legacy_name", self.g1_legacy_name);
	ctx.Member("can_edit_offset", self.can_edit_offset);
}
template <class Self, class Context> void TransferBodyGroup(Self &self, Context &ctx)
{
	ctx.Member("bodygroup_name", self.bodygroup_name);
	ctx.Member("choices", self.choices);
}
template <class Self, class Context> void TransferMeshGroup(Self &self, Context &ctx)
{
	ctx.Member("mesh_group_name", self.mesh_group_name);
	ctx.Member("enabled_by_default", self.enabled_by_default);
	ctx.Member("mesh_name_exprs", self.mesh_name_exprs);
}
template <class Self, class Context> void TransferHitbox(Self &self, Context &ctx)
{
	ctx.Member("set_name", self.set_name);
	ctx.Member("box_name", self.box_name);
	ctx.Member("bone_name", self.bone_name);
	ctx.Member("min_bounds", self.min_bounds);
	ctx.Member("max_bounds", self.max_bounds);
}
template <class Self, class Context> void TransferModel(Self &self, Context &ctx)
{
	ctx.Member("lod_list", self.lod_list);
	ctx.Member("bodygroup_list", self.bodygroup_list);
	ctx.Member("anim_list", self.anim_list);
	ctx.Member("attach_list", self.attach_list);
	ctx.Member("material_list", self.material_list);
	ctx.Member("hitbox_list", self.hitbox_list);
	ctx.Member("anim_bundle_list", self.anim_bundle_list);
	ctx.Member("particle_snapshot_list", self.particle_snapshot_list);
	ctx.Member("share_materials_from_model", self.share_materials_from_model);
	ctx.Member("g1_legacy_name", self.g1_legacy_name);
	ctx.Member("auto_hitbox_set_name", self.auto_hitbox_set_name);
	ctx.Member("root_bone_name", self.root_bone_name);
	ctx.Member("preview_desc", self.preview_desc);
	ctx.Member("preview_offset", self.preview_offset);
	ctx.Member("can_be_empty", self.can_be_empty);
}
} // namespace

void CMintyardTemplate_ZarnModel::CAnim::Modifier_t::Save(CKV3TransferSaveContext &ctx) const { TransferModifier(*this, ctx); }
void CMintyardTemplate_ZarnModel::CAnim::Modifier_t::Load(CKV3TransferLoadContext &ctx) { TransferModifier(*this, ctx); }
void CMintyardTemplate_ZarnModel::CAnim::BoneWeight_t::Save(CKV3TransferSaveContext &ctx) const { TransferBoneWeight(*this, ctx); }
void CMintyardTemplate_ZarnModel::CAnim::BoneWeight_t::Load(CKV3TransferLoadContext &ctx) { TransferBoneWeight(*this, ctx); }
void CMintyardTemplate_ZarnModel::CAnim::AnimEvent_t::Save(CKV3TransferSaveContext &ctx) const { TransferAnimEvent(*this, ctx); }
void CMintyardTemplate_ZarnModel::CAnim::AnimEvent_t::Load(CKV3TransferLoadContext &ctx) { TransferAnimEvent(*this, ctx); }

void CMintyardTemplate_ZarnModel::CAnim::Save(CKV3TransferSaveContext &ctx) const
{
	CMintyardTemplateFilename::Save(ctx);
	TransferAnim(*this, ctx);
}

void CMintyardTemplate_ZarnModel::CAnim::Load(CKV3TransferLoadContext &ctx)
{
	CMintyardTemplateFilename::Load(ctx);
	TransferAnim(*this, ctx);
}

void CMintyardTemplate_ZarnModel::CAnimBundle::Save(CKV3TransferSaveContext &ctx) const
{
	CMintyardTemplateElement::Save(ctx);
	TransferAnimBundle(*this, ctx);
}

void CMintyardTemplate_ZarnModel::CAnimBundle::Load(CKV3TransferLoadContext &ctx)
{
	CMintyardTemplateElement::Load(ctx);
	TransferAnimBundle(*this, ctx);
}

void CMintyardTemplate_ZarnModel::CAttach::Save(CKV3TransferSaveContext &ctx) const
{
	CMintyardTemplateElement::Save(ctx);
	TransferAttach(*this, ctx);
}

void CMintyardTemplate_ZarnModel::CAttach::Load(CKV3TransferLoadContext &ctx)
{
	CMintyardTemplateElement::Load(ctx);
	TransferAttach(*this, ctx);
}

void CMintyardTemplate_ZarnModel::CBodyGroup::Choice_t::Save(CKV3TransferSaveContext &ctx) const { ctx.Member("meshes", meshes); }
void CMintyardTemplate_ZarnModel::CBodyGroup::Choice_t::Load(CKV3TransferLoadContext &ctx) { ctx.Member("meshes", meshes); }

void CMintyardTemplate_ZarnModel::CBodyGroup::Save(CKV3TransferSaveContext &ctx) const
{
	CMintyardTemplateElement::Save(ctx);
	TransferBodyGroup(*this, ctx);
}

void CMintyardTemplate_ZarnModel::CBodyGroup::Load(CKV3TransferLoadContext &ctx)
{
	CMintyardTemplateElement::Load(ctx);
	TransferBodyGroup(*this, ctx);
}

void CMintyardTemplate_ZarnModel::CMeshGroup_LEGACY::Save(CKV3TransferSaveContext &ctx) const
{
	CMintyardTemplateElement::Save(ctx);
	TransferMeshGroup(*this, ctx);
}

void CMintyardTemplate_ZarnModel::CMeshGroup_LEGACY::Load(CKV3TransferLoadContext &ctx)
{
	CMintyardTemplateElement::Load(ctx);
	TransferMeshGroup(*this, ctx);
}

void CMintyardTemplate_ZarnModel::CParticleSnapshot::Save(CKV3TransferSaveContext &ctx) const
{
	CMintyardTemplateFilename::Save(ctx);
	ctx.Member("snapshot_bone", snapshot_bone);
}

void CMintyardTemplate_ZarnModel::CParticleSnapshot::Load(CKV3TransferLoadContext &ctx)
{
	CMintyardTemplateFilename::Load(ctx);
	ctx.Member("snapshot_bone", snapshot_bone);
}

void CMintyardTemplate_ZarnModel::Hitbox_t::Save(CKV3TransferSaveContext &ctx) const { TransferHitbox(*this, ctx); }
void CMintyardTemplate_ZarnModel::Hitbox_t::Load(CKV3TransferLoadContext &ctx) { TransferHitbox(*this, ctx); }

void CMintyardTemplate_ZarnModel::Save(CKV3TransferSaveContext &ctx) const
{
	CMintyardTemplate_BaseZarnModel::Save(ctx);
	TransferModel(*this, ctx);
}

void CMintyardTemplate_ZarnModel::Load(CKV3TransferLoadContext &ctx)
{
	CMintyardTemplate_BaseZarnModel::Load(ctx);
	TransferModel(*this, ctx);
}

bool CMintyardTemplate_ZarnModel::HasAnimationDefaults() const
{
	for (const CAnim &anim : anim_list)
	{
		if (anim.always_use_default_anim)
			return false;
	}
	for (const CAnimBundle &bundle : anim_bundle_list)
	{
		for (const CAnim &anim : bundle.anim_list)
		{
			if (anim.always_use_default_anim)
				return false;
		}
	}
	return true;
}

bool CMintyardTemplate_ZarnModel::HasAnyAnimationDefault() const
{
	for (const CAnim &anim : anim_list)
	{
		if (!anim.default_anim.empty())
			return true;
	}
	for (const CAnimBundle &bundle : anim_bundle_list)
	{
		for (const CAnim &anim : bundle.anim_list)
		{
			if (!anim.default_anim.empty())
				return true;
		}
	}
	return false;
}

// ---------------------------------------------------------------------------------------------
// Image and sound sets

void CMintyardTemplate_ZarnImageSet::CImage::Save(CKV3TransferSaveContext &ctx) const
{
	CMintyardTemplateFilename::Save(ctx);
	ctx.EnumMember("image_type", image_type, g_MintyardImageTypeNames);
	ctx.Member("exact_width", exact_width, -1);
	ctx.Member("exact_height", exact_height, -1);
}

void CMintyardTemplate_ZarnImageSet::CImage::Load(CKV3TransferLoadContext &ctx)
{
	CMintyardTemplateFilename::Load(ctx);
	ctx.EnumMember("image_type", image_type, g_MintyardImageTypeNames);
	ctx.Member("exact_width", exact_width, -1);
	ctx.Member("exact_height", exact_height, -1);
}

CMintyardTemplate_ZarnImageSet::CEmoticon::CEmoticon()
{
	image.Init("image", "#ZARN_Mintyard_ChatEmoticon_Image", "", false);
	keyword.Init("keyword", "#ZARN_Mintyard_ChatEmoticon_Keyword", "#ZARN_Mintyard_ChatEmoticon_Keyword_Desc", false);
	default_frame.Init("default_frame", "#ZARN_Mintyard_ChatEmoticon_DefaultFrame", "#ZARN_Mintyard_ChatEmoticon_DefaultFrame_Desc", true);
}

void CMintyardTemplate_ZarnImageSet::Save(CKV3TransferSaveContext &ctx) const
{
	CMintyardTemplateElement::Save(ctx);
	ctx.Member("image_list", image_list);
	ctx.Member("emoticon_image_list", emoticon_image_list);
	ctx.EnumMember("image_set_type", image_set_type, g_MintyardImageSetTypeNames);
}

void CMintyardTemplate_ZarnImageSet::Load(CKV3TransferLoadContext &ctx)
{
	CMintyardTemplateElement::Load(ctx);
	ctx.Member("image_list", image_list);
	ctx.Member("emoticon_image_list", emoticon_image_list);
	ctx.EnumMember("image_set_type", image_set_type, g_MintyardImageSetTypeNames);
}

void CMintyardTemplate_ZarnSoundSet::CSound::Save(CKV3TransferSaveContext &ctx) const
{
	CMintyardTemplateFilename::Save(ctx);
	ctx.Member("uigroup", uigroup);
}

void CMintyardTemplate_ZarnSoundSet::CSound::Load(CKV3TransferLoadContext &ctx)
{
	CMintyardTemplateFilename::Load(ctx);
	ctx.Member("uigroup", uigroup);
}

void CMintyardTemplate_ZarnSoundSet::Save(CKV3TransferSaveContext &ctx) const
{
	CMintyardTemplateElement::Save(ctx);
	ctx.Member("sound_list", sound_list);
	ctx.EnumMember("sound_set_type", sound_set_type, g_MintyardSoundSetTypeNames);
}

void CMintyardTemplate_ZarnSoundSet::Load(CKV3TransferLoadContext &ctx)
{
	CMintyardTemplateElement::Load(ctx);
	ctx.Member("sound_list", sound_list);
	ctx.EnumMember("sound_set_type", sound_set_type, g_MintyardSoundSetTypeNames);
}

// ---------------------------------------------------------------------------------------------
// Item definitions

namespace
{
template <class Self, class Context> void TransferVisual(Self &self, Context &ctx)
{
	ctx.Member("type", self.type);
	ctx.Member("asset_expr", self.asset_expr);
	ctx.Member("modifier_expr", self.modifier_expr);
	ctx.Member("frequency", self.frequency);
	ctx.Member("skip_if_asset_empty", self.skip_if_asset_empty);
	ctx.Member("replace_by_type", self.replace_by_type);
}
template <class Self, class Context> void TransferItemDef(Self &self, Context &ctx)
{
	ctx.Member("prefab_type", self.prefab_type);
	ctx.Member("localization_prefix", self.localization_prefix);
	ctx.Member("localization_suffix", self.localization_suffix);
	ctx.Member("item_type_name", self.item_type_name);
	ctx.Member("model_player_expr", self.model_player_expr);
	ctx.Member("model_player1_expr", self.model_player1_expr);
	ctx.Member("has_portrait", self.has_portrait);
	ctx.Member("visuals", self.visuals);
	ctx.Member("set_keys", self.set_keys);
}
} // namespace

void CMintyardTemplate_ZarnItemDef::Visual_t::Save(CKV3TransferSaveContext &ctx) const { TransferVisual(*this, ctx); }
void CMintyardTemplate_ZarnItemDef::Visual_t::Load(CKV3TransferLoadContext &ctx) { TransferVisual(*this, ctx); }

void CMintyardTemplate_ZarnItemDef::KeyExpr_t::Save(CKV3TransferSaveContext &ctx) const
{
	ctx.Member("key_expr", key_expr);
	ctx.Member("value_expr", value_expr);
}

void CMintyardTemplate_ZarnItemDef::KeyExpr_t::Load(CKV3TransferLoadContext &ctx)
{
	ctx.Member("key_expr", key_expr);
	ctx.Member("value_expr", value_expr);
}

void CMintyardTemplate_ZarnItemDef::Save(CKV3TransferSaveContext &ctx) const
{
	CMintyardTemplateElement::Save(ctx);
	TransferItemDef(*this, ctx);
	// Hero and slot go out by name, and only when they name something.
	const hero_t *pHero = GetHeroTable().GetHero(hero_name);
	if (!pHero)
		return;
	ctx.Member("hero_name", pHero->name);
	if (loadout_slot >= 0 && loadout_slot < (int)pHero->slots.size())
		ctx.Member("loadout_slot", pHero->slots[loadout_slot].slotName);
}

void CMintyardTemplate_ZarnItemDef::Load(CKV3TransferLoadContext &ctx)
{
	CMintyardTemplateElement::Load(ctx);
	TransferItemDef(*this, ctx);
	hero_name = -1;
	loadout_slot = -1;
	const KeyValues3 *pHeroValue = FindMember(ctx.Current(), "hero_name");
	if (!pHeroValue)
		return;
	CUtlString heroName;
	ctx.ReadValue(pHeroValue, heroName);
	const HeroTable &heroes = GetHeroTable();
	hero_name = heroes.FindHeroIndex(heroName.c_str());
	const hero_t *pHero = heroes.GetHero(hero_name);
	if (!pHero)
	{
		hero_name = -1;
		return;
	}
	const KeyValues3 *pSlotValue = FindMember(ctx.Current(), "loadout_slot");
	if (!pSlotValue)
		return;
	CUtlString slotName;
	ctx.ReadValue(pSlotValue, slotName);
	loadout_slot = pHero->FindSlot(slotName.c_str());
}

KeyValues *CMintyardTemplate_ZarnItemDef::FindDefaultItem() const
{
	KeyValues *pItems = GetItemsGameItems();
	if (!pItems)
		return nullptr;
	const hero_t *pHero = GetHeroTable().GetHero(hero_name);
	if (pHero && loadout_slot >= 0 && loadout_slot < (int)pHero->slots.size())
		return FindHeroDefaultItem(*pHero, pHero->slots[loadout_slot].slotName.c_str());
	for (KeyValues *pItem = pItems->GetFirstTrueSubKey(); pItem; pItem = pItem->GetNextTrueSubKey())
	{
		if (prefab_type == pItem->GetString("prefab"))
			return pItem;
	}
	return nullptr;
}

// ---------------------------------------------------------------------------------------------
// The template

CMintyardTemplate::CMintyardTemplate(const char *pszSourcePath) : source_path(pszSourcePath ? pszSourcePath : "")
{
}

namespace
{
template <class Self, class Context> void TransferTemplate(Self &self, Context &ctx)
{
	ctx.Member("directory", self.directory);
	ctx.Member("game_unit", self.game_unit);
	ctx.Member("template_group", self.template_group);
	ctx.Member("template_subgroup", self.template_subgroup);
	ctx.Member("ingame_preview_no_item_set", self.ingame_preview_no_item_set);
	ctx.Member("max_submission_size_kb", self.max_submission_size_kb, -1);
	ctx.Member("models", self.models);
	ctx.Member("image_sets", self.image_sets);
	ctx.Member("sound_sets", self.sound_sets);
	ctx.Member("misc_data", self.misc_data);
	ctx.Member("item_defs", self.item_defs);
	ctx.Member("mintyard_tags", self.mintyard_tags);
}
} // namespace

void CMintyardTemplate::Save(CKV3TransferSaveContext &ctx) const
{
	CMintyardTemplateElement::Save(ctx);
	TransferTemplate(*this, ctx);
}

void CMintyardTemplate::Load(CKV3TransferLoadContext &ctx)
{
	CMintyardTemplateElement::Load(ctx);
	TransferTemplate(*this, ctx);
}
