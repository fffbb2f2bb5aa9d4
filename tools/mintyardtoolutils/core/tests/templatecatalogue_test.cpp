// The template catalogue: loading with its warnings, validation, lookups and the templates built
// from game data.
#include <gtest/gtest.h>

#include "core/keyvalues.h"
#include "core/kv3text.h"
#include "testsupport/test_support.h"
#include "gamefixture.h"
#include "mintyardtoolutils/core/publishedfileinfo.h"
#include "mintyardtoolutils/core/templatecatalogue.h"

namespace
{
const char *const KV3_HEADER =
	"<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n";

std::string Kv3(const std::string &body)
{
	return std::string(KV3_HEADER) + body;
}

// The sample game with its English texts and game data loaded.
class SampleCatalogue : public ::testing::Test
{
protected:
	void SetUp() override
	{
		LoadSampleLocalization();
		ASSERT_TRUE(ReloadGameData()) << GetGameDataLastError();
		ASSERT_TRUE(m_Catalogue.LoadTemplates(m_Messages));
	}

	const hero_t *Hero(const char *name) { return GetHeroTable().FindHero(name); }
	int Slot(const hero_t *pHero, const char *name) { return pHero ? pHero->FindSlot(name) : -1; }

	CGameFolderScope m_Game{ SampleGameFolder() };
	CMintyardTemplateCatalogue m_Catalogue;
	ImportMessageList m_Messages;
};

std::string MessageText(const ImportMessageList &list)
{
	std::string text;
	for (int i = 0; i < list.Count(); ++i)
		text += FormatImportMessage(list[i], nullptr) + "\n";
	return text;
}
} // namespace

TEST_F(SampleCatalogue, LoadsEveryTemplateWithoutMessages)
{
	EXPECT_EQ(m_Messages.Count(), 0) << MessageText(m_Messages);
	ASSERT_EQ(m_Catalogue.GetFileTemplates(), 10);
	EXPECT_EQ(m_Catalogue.GetFileTemplate(0)->id, "courier");
	EXPECT_EQ(m_Catalogue.GetFileTemplate(9)->id, "ability.bramble.thorn_volley");
	EXPECT_EQ(m_Catalogue.GetFileTemplate(10), nullptr);
	EXPECT_EQ(m_Catalogue.GetFileTemplate(-1), nullptr);
	// The path of the file is kept, absolute.
	const CUtlString &path = m_Catalogue.GetFileTemplate(0)->source_path;
	EXPECT_EQ(path[0], '/');
	EXPECT_NE(path.find("template_courier.txt"), CUtlString::npos);

	// Every kind the wizard offers is there.
	const CMintyardTemplate *pCourier = m_Catalogue.FindTemplate("COURIER");
	ASSERT_NE(pCourier, nullptr);
	ASSERT_EQ(pCourier->models.size(), 2u);
	const CMintyardTemplate_ZarnModel &model = pCourier->models[0];
	EXPECT_EQ(model.anim_bundle_list.size(), 3u);
	EXPECT_EQ(model.material_list.size(), 2u);
	EXPECT_EQ(model.hitbox_list.size(), 2u);
	EXPECT_EQ(model.attach_list.size(), 2u);
	EXPECT_EQ(pCourier->misc_data.size(), 1u);
	EXPECT_EQ(model.lod_list[1].extra_meshes[0].max_bones, 0);
	EXPECT_EQ(model.lod_list[1].max_bones, 60);
	EXPECT_TRUE(model.HasAnyAnimationDefault());
	EXPECT_FALSE(pCourier->models[1].HasAnimationDefaults());
	EXPECT_EQ(m_Catalogue.FindTemplate("cursor_pack")->image_sets[0].image_set_type, MINTYARD_IMAGE_SET_CURSOR_PACK);
	EXPECT_EQ(m_Catalogue.FindTemplate("emoticons")->image_sets[0].emoticon_image_list.size(), 3u);
	EXPECT_EQ(m_Catalogue.FindTemplate("music_pack")->sound_sets[0].sound_list.size(), 4u);
	EXPECT_EQ(m_Catalogue.FindTemplate("contract_only")->name, "#ZARN_Mintyard_SubmissionType_ContractOnly");
	const CMintyardTemplate *pCustom = m_Catalogue.FindTemplate("custom_wearable.bramble.misc");
	ASSERT_NE(pCustom, nullptr);
	EXPECT_EQ(pCustom->item_defs[0].hero_name, GetHeroTable().FindHeroIndex("npc_zarn_hero_bramble"));
	EXPECT_EQ(pCustom->item_defs[0].loadout_slot, Slot(Hero("npc_zarn_hero_bramble"), "misc"));
}

TEST_F(SampleCatalogue, FindTemplateBuildsTemplatesOnce)
{
	EXPECT_EQ(m_Catalogue.FindTemplate(nullptr), nullptr);
	EXPECT_EQ(m_Catalogue.FindTemplate("nothing"), nullptr);
	EXPECT_EQ(m_Catalogue.GetBuiltTemplates(), 0);

	const CMintyardTemplate *pWearable = m_Catalogue.FindTemplate("Wearable.npc_zarn_hero_bramble.HEAD");
	ASSERT_NE(pWearable, nullptr);
	EXPECT_EQ(pWearable->id, "wearable.npc_zarn_hero_bramble.head");
	EXPECT_EQ(m_Catalogue.FindTemplate("wearable.npc_zarn_hero_bramble.head"), pWearable);
	EXPECT_EQ(m_Catalogue.GetWearableTemplate(Hero("npc_zarn_hero_bramble"), Slot(Hero("npc_zarn_hero_bramble"), "head")), pWearable);
	EXPECT_EQ(m_Catalogue.GetBuiltTemplates(), 1);

	const CMintyardTemplate *pIcons = m_Catalogue.FindTemplate("abilityicons.npc_zarn_hero_cinder");
	ASSERT_NE(pIcons, nullptr);
	EXPECT_EQ(m_Catalogue.GetAbilityIconsTemplate(Hero("npc_zarn_hero_cinder")), pIcons);
	EXPECT_EQ(m_Catalogue.GetBuiltTemplates(), 2);

	EXPECT_EQ(m_Catalogue.FindTemplate("wearable.npc_zarn_hero_bramble."), nullptr);
	EXPECT_EQ(m_Catalogue.FindTemplate("wearable..head"), nullptr);
	EXPECT_EQ(m_Catalogue.FindTemplate("wearable.npc_zarn_hero_nobody.head"), nullptr);
	EXPECT_EQ(m_Catalogue.FindTemplate("wearable.npc_zarn_hero_bramble.mount"), nullptr);
	EXPECT_EQ(m_Catalogue.FindTemplate("wearable.npc_zarn_hero_bramble.head.extra"), nullptr);
	EXPECT_EQ(m_Catalogue.FindTemplate("abilityicons."), nullptr);
	EXPECT_EQ(m_Catalogue.FindTemplate("abilityicons.npc_zarn_hero_nobody"), nullptr);
	// A slot with no_import has no template.
	EXPECT_EQ(m_Catalogue.FindTemplate("wearable.npc_zarn_hero_bramble.misc"), nullptr);
	EXPECT_EQ(m_Catalogue.GetWearableTemplate(Hero("npc_zarn_hero_bramble"), 99), nullptr);
	EXPECT_EQ(m_Catalogue.GetWearableTemplate(Hero("npc_zarn_hero_bramble"), -1), nullptr);
	EXPECT_EQ(m_Catalogue.GetWearableTemplate(nullptr, 0), nullptr);
	EXPECT_EQ(m_Catalogue.GetBuiltTemplates(), 2);

	// By hero index of the table and by HeroID.
	const int heroIndex = GetHeroTable().FindHeroIndex("npc_zarn_hero_bramble");
	EXPECT_EQ(m_Catalogue.GetWearableTemplate(heroIndex, Slot(Hero("npc_zarn_hero_bramble"), "head")), pWearable);
	EXPECT_EQ(m_Catalogue.GetWearableTemplateByHeroID(1, Slot(Hero("npc_zarn_hero_bramble"), "head")), pWearable);
}

TEST_F(SampleCatalogue, PlainWearableTemplate)
{
	const hero_t *pHero = Hero("npc_zarn_hero_tidewarden");
	const CMintyardTemplate *pTemplate = m_Catalogue.GetWearableTemplate(pHero, Slot(pHero, "mount"));
	ASSERT_NE(pTemplate, nullptr);
	const CMintyardTemplate &tmpl = *pTemplate;
	EXPECT_EQ(tmpl.id, "wearable.npc_zarn_hero_tidewarden.mount");
	EXPECT_EQ(tmpl.name, "Tidewarden - Mount");
	EXPECT_TRUE(tmpl.desc.empty());
	EXPECT_FALSE(tmpl.optional);
	EXPECT_TRUE(tmpl.source_path.empty());
	EXPECT_EQ(tmpl.directory, "tidewarden");
	ASSERT_EQ(tmpl.mintyard_tags.size(), 3u);
	EXPECT_EQ(tmpl.mintyard_tags[0], "Wearable");
	EXPECT_EQ(tmpl.mintyard_tags[1], "Tidewarden");
	EXPECT_EQ(tmpl.mintyard_tags[2], "mount");

	ASSERT_EQ(tmpl.item_defs.size(), 1u);
	const CMintyardTemplate_ZarnItemDef &itemDef = tmpl.item_defs[0];
	EXPECT_EQ(itemDef.prefab_type, "wearable");
	EXPECT_EQ(itemDef.localization_prefix, "Item_");
	EXPECT_EQ(itemDef.item_type_name, "mount");
	EXPECT_EQ(itemDef.hero_name, pHero->symbol);
	EXPECT_EQ(itemDef.loadout_slot, Slot(pHero, "mount"));
	EXPECT_EQ(itemDef.model_player_expr, "$(model_wearable:zmdl_name)");
	EXPECT_TRUE(itemDef.visuals.empty());
	ASSERT_NE(itemDef.FindDefaultItem(), nullptr);
	EXPECT_STREQ(itemDef.FindDefaultItem()->GetString("item_slot"), "mount");

	ASSERT_EQ(tmpl.models.size(), 1u);
	const CMintyardTemplate_ZarnModel &model = tmpl.models[0];
	EXPECT_EQ(model.id, "model_wearable");
	EXPECT_TRUE(model.name.empty());
	EXPECT_EQ(model.g1_legacy_name, "model0");
	ASSERT_EQ(model.lod_list.size(), 2u);
	EXPECT_EQ(model.lod_list[0].id, "mesh_portrait");
	EXPECT_EQ(model.lod_list[0].name, "#ZARN_Mintyard_LOD0Title");
	EXPECT_TRUE(model.lod_list[0].optional);
	EXPECT_EQ(model.lod_list[0].max_polygons, 4000);
	EXPECT_EQ(model.lod_list[0].max_bones, 80);
	EXPECT_EQ(model.lod_list[1].id, "mesh_world");
	EXPECT_EQ(model.lod_list[1].desc, "#ZARN_Mintyard_LOD1Desc");
	EXPECT_FALSE(model.lod_list[1].optional);
	EXPECT_EQ(model.lod_list[1].max_polygons, 2000);
	EXPECT_EQ(model.lod_list[1].max_bones, 40);
	ASSERT_EQ(model.material_list.size(), 1u);
	const CMintyardTemplate_ZarnMaterial &material = model.material_list[0];
	EXPECT_EQ(material.id, "material_wearable");
	EXPECT_EQ(material.name, "#ZARN_Mintyard_Mat0Title");
	EXPECT_EQ(material.template_zmat, "materials/models/heroes/tidewarden/tidewarden_item_template.zmat");
	EXPECT_EQ(material.g1_legacy_name, "zmt0");
	EXPECT_EQ(material.material_group_name, "0");
	EXPECT_TRUE(material.material_name_suffix.empty());
	EXPECT_EQ(material.max_tex_width, 1024);
	EXPECT_EQ(material.max_tex_height, 1024);
	EXPECT_EQ(material.textures[0].id, "color");
	EXPECT_TRUE(model.bodygroup_list.empty());
	EXPECT_TRUE(model.meshgroup_list_LEGACY.empty());
	EXPECT_TRUE(model.particle_snapshot_list.empty());
	EXPECT_TRUE(model.attach_list.empty());
	// A built template passes the same validation as a file.
	ImportMessageList list;
	EXPECT_TRUE(ValidateTemplate(tmpl, list));
}

TEST_F(SampleCatalogue, WearableWithABodyGroup)
{
	const hero_t *pHero = Hero("npc_zarn_hero_bramble");
	const CMintyardTemplate *pTemplate = m_Catalogue.GetWearableTemplate(pHero, Slot(pHero, "head"));
	ASSERT_NE(pTemplate, nullptr);
	const CMintyardTemplate_ZarnModel &model = pTemplate->models[0];
	ASSERT_EQ(model.meshgroup_list_LEGACY.size(), 2u);
	EXPECT_EQ(model.meshgroup_list_LEGACY[0].mesh_group_name, "hair_@0");
	EXPECT_TRUE(model.meshgroup_list_LEGACY[0].enabled_by_default);
	EXPECT_TRUE(model.meshgroup_list_LEGACY[0].mesh_name_exprs.empty());
	EXPECT_EQ(model.meshgroup_list_LEGACY[1].mesh_group_name, "hair_@1");
	EXPECT_FALSE(model.meshgroup_list_LEGACY[1].enabled_by_default);
	// meshes_enabled_by_default is 0: the meshes go to the group and choice of index 1.
	ASSERT_EQ(model.meshgroup_list_LEGACY[1].mesh_name_exprs.size(), 2u);
	EXPECT_EQ(model.meshgroup_list_LEGACY[1].mesh_name_exprs[0], "$(model_wearable:portrait_lod_mesh)");
	EXPECT_EQ(model.meshgroup_list_LEGACY[1].mesh_name_exprs[1], "$(model_wearable:game_lod_mesh)");
	ASSERT_EQ(model.bodygroup_list.size(), 1u);
	EXPECT_EQ(model.bodygroup_list[0].bodygroup_name, "hair");
	ASSERT_EQ(model.bodygroup_list[0].choices.size(), 2u);
	EXPECT_TRUE(model.bodygroup_list[0].choices[0].meshes.empty());
	EXPECT_EQ(model.bodygroup_list[0].choices[1].meshes.size(), 2u);
	EXPECT_EQ(model.lod_list[1].max_bones, 24);
	EXPECT_EQ(pTemplate->name, "Bramble - Head");
}

TEST_F(SampleCatalogue, WearableWithASnapshotReplacementsAndAttachments)
{
	const hero_t *pCinder = Hero("npc_zarn_hero_cinder");
	const CMintyardTemplate *pWeapon = m_Catalogue.GetWearableTemplate(pCinder, Slot(pCinder, "weapon"));
	ASSERT_NE(pWeapon, nullptr);
	const CMintyardTemplate_ZarnModel &model = pWeapon->models[0];
	ASSERT_EQ(model.particle_snapshot_list.size(), 1u);
	const CMintyardTemplate_ZarnModel::CParticleSnapshot &snapshot = model.particle_snapshot_list[0];
	EXPECT_EQ(snapshot.id, "particle_snapshot");
	EXPECT_EQ(snapshot.name, "#ZARN_Mintyard_EffectsModel_Title");
	EXPECT_EQ(snapshot.desc, "#ZARN_Mintyard_EffectsModel_Desc");
	EXPECT_FALSE(snapshot.optional);
	EXPECT_EQ(snapshot.file_suffix, "_fx");
	EXPECT_EQ(snapshot.snapshot_bone, "staff_tip");
	EXPECT_EQ(snapshot.max_vertices, 2000);
	ASSERT_EQ(pWeapon->item_defs[0].visuals.size(), 1u);
	EXPECT_EQ(pWeapon->item_defs[0].visuals[0].type, "particle_snapshot");
	EXPECT_EQ(pWeapon->item_defs[0].visuals[0].asset_expr, "particles/heroes/cinder/cinder_staff_flame.zsnap");
	EXPECT_EQ(pWeapon->item_defs[0].visuals[0].modifier_expr, "$(particle_snapshot:psf_name)");

	const CMintyardTemplate *pAbility = m_Catalogue.GetWearableTemplate(pCinder, Slot(pCinder, "ability1"));
	ASSERT_NE(pAbility, nullptr);
	EXPECT_TRUE(pAbility->models[0].particle_snapshot_list.empty());
	ASSERT_EQ(pAbility->item_defs[0].visuals.size(), 2u);
	EXPECT_EQ(pAbility->item_defs[0].visuals[1].type, "particle");
	EXPECT_EQ(pAbility->item_defs[0].visuals[1].asset_expr, "particles/heroes/cinder/cinder_fireball_explosion.zpcf");
	EXPECT_EQ(pAbility->item_defs[0].visuals[1].modifier_expr, "$(import_name)_fireball_explosion.zpcf");

	const hero_t *pBramble = Hero("npc_zarn_hero_bramble");
	const CMintyardTemplate *pBack = m_Catalogue.GetWearableTemplate(pBramble, Slot(pBramble, "back"));
	ASSERT_NE(pBack, nullptr);
	// The slot has no SlotText: the slot table's name gives the display name.
	EXPECT_EQ(pBack->name, "Bramble - Back");
	const CMintyardTemplate_ZarnModel &backModel = pBack->models[0];
	ASSERT_EQ(backModel.attach_list.size(), 2u);
	const CMintyardTemplate_ZarnModel::CAttach &attach = backModel.attach_list[1];
	EXPECT_EQ(attach.id, "attach_cape_right");
	EXPECT_EQ(attach.name, "#ZARN_Mintyard_Attach_CapeRight");
	EXPECT_EQ(attach.desc, "#ZARN_Mintyard_Attach_CapeRight_Desc");
	EXPECT_FALSE(attach.optional);
	EXPECT_EQ(attach.attach_name, "attach_cape_right");
	EXPECT_EQ(attach.attach_joint, "spine_2");
	EXPECT_EQ(attach.default_offset, Vector(6.5f, 12.0f, 48.25f));
	EXPECT_EQ(attach.default_rotation, Vector(0, -90, 0));
	EXPECT_TRUE(attach.can_edit_offset);
	EXPECT_EQ(backModel.material_list[0].max_tex_height, 256);
}

TEST_F(SampleCatalogue, PersonaSlotWearable)
{
	const hero_t *pHero = Hero("npc_zarn_hero_bramble");
	const CMintyardTemplate *pTemplate = m_Catalogue.GetWearableTemplate(pHero, Slot(pHero, "weapon_persona_1"));
	ASSERT_NE(pTemplate, nullptr);
	EXPECT_EQ(pTemplate->name, "Bramble - Weapon (Persona)");
	EXPECT_EQ(pTemplate->item_defs[0].item_type_name, "weapon_persona_1");
}

TEST_F(SampleCatalogue, AbilityIconsTemplate)
{
	const hero_t *pHero = Hero("npc_zarn_hero_bramble");
	const CMintyardTemplate *pTemplate = m_Catalogue.GetAbilityIconsTemplate(pHero);
	ASSERT_NE(pTemplate, nullptr);
	EXPECT_EQ(pTemplate->id, "abilityicons.npc_zarn_hero_bramble");
	EXPECT_EQ(pTemplate->name, "#ZARN_Mintyard_SubmissionType_AbilityIcons");
	EXPECT_EQ(pTemplate->desc, "#ZARN_Mintyard_SubmissionType_AbilityIcons_Desc");
	EXPECT_FALSE(pTemplate->optional);
	ASSERT_EQ(pTemplate->mintyard_tags.size(), 2u);
	EXPECT_EQ(pTemplate->mintyard_tags[0], "Ability Icons");
	EXPECT_EQ(pTemplate->mintyard_tags[1], "Bramble");
	ASSERT_EQ(pTemplate->image_sets.size(), 1u);
	const CMintyardTemplate_ZarnImageSet &set = pTemplate->image_sets[0];
	EXPECT_EQ(set.id, "ability_icons");
	EXPECT_EQ(set.name, "#ZARN_Mintyard_AbilityIcons");
	EXPECT_EQ(set.image_set_type, MINTYARD_IMAGE_SET_ABILITY_ICONS);
	// Seven abilities, three of them hidden.
	ASSERT_EQ(set.image_list.size(), 4u);
	EXPECT_EQ(set.image_list[0].id, "bramble_thorn_volley");
	EXPECT_EQ(set.image_list[0].name, "#ZARN_Tooltip_ability_bramble_thorn_volley");
	EXPECT_EQ(set.image_list[0].desc, "#ZARN_Tooltip_ability_bramble_thorn_volley_Description");
	EXPECT_TRUE(set.image_list[0].optional);
	EXPECT_EQ(set.image_list[0].exact_width, 128);
	EXPECT_EQ(set.image_list[0].exact_height, 128);
	EXPECT_EQ(set.image_list[0].image_type, MINTYARD_IMAGE_TYPE_PNG);
	EXPECT_EQ(set.image_list[3].id, "bramble_overgrowth");
	EXPECT_EQ(m_Catalogue.GetAbilityIconsTemplate(nullptr), nullptr);
}

TEST_F(SampleCatalogue, FindTemplateByTags)
{
	EXPECT_EQ(m_Catalogue.FindTemplateByTags(0, nullptr), nullptr);
	const char *wearable[] = { "Cinder", "Wearable", "ARMS" };
	const CMintyardTemplate *pArms = m_Catalogue.FindTemplateByTags(3, wearable);
	ASSERT_NE(pArms, nullptr);
	EXPECT_EQ(pArms->id, "wearable.npc_zarn_hero_cinder.arms");
	const char *wearableNoHero[] = { "Wearable", "arms" };
	EXPECT_EQ(m_Catalogue.FindTemplateByTags(2, wearableNoHero), nullptr);
	const char *wearableNoSlot[] = { "Wearable", "Cinder" };
	EXPECT_EQ(m_Catalogue.FindTemplateByTags(2, wearableNoSlot), nullptr);
	const char *wearableLower[] = { "wearable", "Cinder", "arms" }; // "Wearable" compares exactly
	EXPECT_EQ(m_Catalogue.FindTemplateByTags(3, wearableLower), nullptr);
	const char *icons[] = { "Ability Icons", "Tidewarden" };
	const CMintyardTemplate *pIcons = m_Catalogue.FindTemplateByTags(2, icons);
	ASSERT_NE(pIcons, nullptr);
	EXPECT_EQ(pIcons->id, "abilityicons.npc_zarn_hero_tidewarden");
	const char *courier[] = { "Other", "Courier" };
	EXPECT_EQ(m_Catalogue.FindTemplateByTags(2, courier), m_Catalogue.FindTemplate("courier"));
	const char *nothing[] = { "Nothing" };
	EXPECT_EQ(m_Catalogue.FindTemplateByTags(1, nothing), nullptr);
	CUtlVector<CUtlString> tags = { "Music" };
	EXPECT_EQ(m_Catalogue.FindTemplateByTags(tags), m_Catalogue.FindTemplate("music_pack"));
}

TEST_F(SampleCatalogue, FindTemplateForRecord)
{
	ImportMessageList list;
	EXPECT_EQ(m_Catalogue.FindTemplateForRecord(nullptr, list), nullptr);
	ASSERT_EQ(list.Count(), 1);
	EXPECT_TRUE(list[0].isError);
	EXPECT_EQ(list[0].Message(), "Internal error: No submission details");

	PublishedFileInfo_t record;
	record.m_sTitle = "My Ward";
	record.m_vecTags = { "Ward" };
	EXPECT_EQ(m_Catalogue.FindTemplateForRecord(&record, list), m_Catalogue.FindTemplate("ward"));
	EXPECT_EQ(list.Count(), 1);

	record.m_vecTags = { "Spaceship" };
	EXPECT_EQ(m_Catalogue.FindTemplateForRecord(&record, list), nullptr);
	ASSERT_EQ(list.Count(), 2);
	EXPECT_TRUE(list[1].isError);
	EXPECT_EQ(list[1].Message(), "#ZARN_Mintyard_UnrecognizedTemplate_BadTags");
	EXPECT_EQ(list[1].Arg(1), "My Ward");
}

TEST(TemplateCatalogueNames, SlotDisplayName)
{
	hero_slot_t slot;
	slot.slotIndex = 4;
	EXPECT_EQ(GetSlotDisplayName(slot), "#LoadoutSlot_head");
	slot.slotText = "#LoadoutSlot_Head";
	EXPECT_EQ(GetSlotDisplayName(slot), "#LoadoutSlot_Head");
	slot.slotText.clear();
	slot.slotIndex = 97;
	EXPECT_EQ(GetSlotDisplayName(slot), "#LoadoutSlot_(null)");
}

// ---------------------------------------------------------------------------------------------
// Catalogue files with problems

namespace
{
const char *const GOOD_TEMPLATE = R"({ id = "good" name = "#Good" mintyard_tags = [ "Good" ] })";
}

TEST(TemplateCatalogueLoad, OneBrokenTemplateLeavesTheOthers)
{
	CTempDirectory folder;
	folder.Write("scripts/mintyard_import_templates/templates.txt", Kv3(R"({ templates = [
		"scripts/mintyard_import_templates/missing.txt",
		"scripts/mintyard_import_templates/broken_text.txt",
		"scripts/mintyard_import_templates/good.txt",
		"scripts/mintyard_import_templates/too_deep.txt",
		"scripts/mintyard_import_templates/duplicate.txt",
	] })"));
	folder.Write("scripts/mintyard_import_templates/good.txt", Kv3(GOOD_TEMPLATE));
	folder.Write("scripts/mintyard_import_templates/broken_text.txt", Kv3("{ id = \"broken\" models = [ { id = \"m\" "));
	std::string deep = "{ id = \"deep\" models = [ { id = \"m\" lod_list = [ ";
	for (int i = 0; i < 70; ++i)
		deep += "{ id = \"l\" extra_meshes = [ ";
	for (int i = 0; i < 70; ++i)
		deep += "] } ";
	deep += "] } ] }";
	folder.Write("scripts/mintyard_import_templates/too_deep.txt", Kv3(deep));
	folder.Write("scripts/mintyard_import_templates/duplicate.txt",
		Kv3(R"({ id = "dup" models = [ { id = "m" anim_list = [ { id = "Idle" }, { id = "idle" } ] } ] })"));

	CGameFolderScope game(folder.Path());
	CMintyardTemplateCatalogue catalogue;
	ImportMessageList list;
	CCaptureLog log;
	ASSERT_TRUE(catalogue.LoadTemplates(list));
	ASSERT_EQ(catalogue.GetFileTemplates(), 1);
	EXPECT_EQ(catalogue.GetFileTemplate(0)->id, "good");
	ASSERT_EQ(list.Count(), 4) << MessageText(list);
	for (int i = 0; i < list.Count(); ++i)
		EXPECT_FALSE(list[i].isError) << i;
	EXPECT_EQ(list[0].Message(), "#ZARN_Mintyard_Err_SessionLoadKV3");
	EXPECT_EQ(list[0].Arg(1), "scripts/mintyard_import_templates/missing.txt");
	EXPECT_EQ(list[1].Arg(1), "scripts/mintyard_import_templates/broken_text.txt");
	EXPECT_NE(list[1].Arg(2).find("broken_text.txt("), CUtlString::npos) << list[1].Arg(2); // file and line
	EXPECT_EQ(list[2].Arg(1), "scripts/mintyard_import_templates/too_deep.txt");
	EXPECT_NE(list[2].Arg(2).find("Stack depth limit hit (64)"), CUtlString::npos) << list[2].Arg(2);
	EXPECT_EQ(list[3].Message(), "Duplicate id: %1");
	EXPECT_EQ(list[3].Arg(1), "idle");
	EXPECT_NE(log.m_Text.find("Mintyard Template Error: scripts/mintyard_import_templates/missing.txt"), std::string::npos) << log.m_Text;
	EXPECT_NE(log.m_Text.find("LoadKV3ObjectInPlace error"), std::string::npos);
}

TEST(TemplateCatalogueLoad, EmptyAndMissingCatalogues)
{
	CTempDirectory folder;
	CGameFolderScope game(folder.Path());
	CMintyardTemplateCatalogue catalogue;
	{
		ImportMessageList list;
		CCaptureLog log;
		EXPECT_FALSE(catalogue.LoadTemplates(list));
		ASSERT_EQ(list.Count(), 1);
		EXPECT_TRUE(list[0].isError);
		EXPECT_EQ(list[0].Message(), "#ZARN_Mintyard_Err_SessionLoadKV3");
		EXPECT_EQ(list[0].Arg(1), MINTYARD_TEMPLATE_CATALOGUE_FILE);
		EXPECT_FALSE(list[0].Arg(2).empty());
	}
	folder.Write("scripts/mintyard_import_templates/templates.txt", Kv3("{ templates = [ ] }"));
	{
		ImportMessageList list;
		EXPECT_TRUE(catalogue.LoadTemplates(list));
		EXPECT_EQ(list.Count(), 0);
		EXPECT_EQ(catalogue.GetFileTemplates(), 0);
	}
	folder.Write("scripts/mintyard_import_templates/templates.txt", Kv3("{ templates = [ \"x\" "));
	{
		ImportMessageList list;
		CCaptureLog log;
		EXPECT_FALSE(catalogue.LoadTemplates(list));
		ASSERT_EQ(list.Count(), 1);
		EXPECT_NE(list[0].Arg(2).find("templates.txt("), CUtlString::npos) << list[0].Arg(2);
	}
}

TEST(TemplateCatalogueLoad, TemplateWithoutTagsShadowsThoseAfterIt)
{
	CTempDirectory folder;
	folder.Write("scripts/mintyard_import_templates/templates.txt",
		Kv3(R"({ templates = [ "scripts/mintyard_import_templates/untagged.txt", "scripts/mintyard_import_templates/good.txt" ] })"));
	folder.Write("scripts/mintyard_import_templates/untagged.txt", Kv3(R"({ id = "untagged" })"));
	folder.Write("scripts/mintyard_import_templates/good.txt", Kv3(GOOD_TEMPLATE));
	CGameFolderScope game(folder.Path());
	CMintyardTemplateCatalogue catalogue;
	ImportMessageList list;
	ASSERT_TRUE(catalogue.LoadTemplates(list));
	ASSERT_EQ(catalogue.GetFileTemplates(), 2);
	const char *good[] = { "Good" };
	EXPECT_EQ(catalogue.FindTemplateByTags(1, good)->id, "untagged");
	const char *any[] = { "Anything" };
	EXPECT_EQ(catalogue.FindTemplateByTags(1, any)->id, "untagged");
	EXPECT_EQ(catalogue.FindTemplateByTags(0, good), nullptr); // but not a record without tags
}

TEST(TemplateCatalogueValidate, Duplicates)
{
	auto validate = [](const char *body, ImportMessageList &list) {
		CKeyValues3Context document;
		CUtlString error;
		EXPECT_TRUE(LoadKV3(document.Root(), &error, Kv3(body), KV3_FORMAT_GENERIC)) << error;
		CMintyardTemplate tmpl;
		EXPECT_TRUE(LoadKV3ObjectInPlace(tmpl, document.Root()));
		return ValidateTemplate(tmpl, list);
	};
	{
		ImportMessageList list;
		EXPECT_FALSE(validate(R"({ id = "t" models = [ { id = "A" model_name_suffix = "_a" }, { id = "a" model_name_suffix = "_b" } ] })", list));
		ASSERT_EQ(list.Count(), 1);
		EXPECT_EQ(list[0].Arg(1), "a");
	}
	{
		// Two models with the empty suffix.
		ImportMessageList list;
		EXPECT_FALSE(validate(R"({ id = "t" models = [ { id = "a" }, { id = "b" } ] })", list));
		ASSERT_GE(list.Count(), 1);
		EXPECT_EQ(list[0].Message(), "'%1' Template Error: Models must have unique values for model_name_suffix: '%1'");
		EXPECT_EQ(list[0].Arg(1), "t");
		EXPECT_EQ(list[0].Arg(2), "");
		EXPECT_FALSE(list[0].isError);
		EXPECT_EQ(FormatImportMessage(list[0], nullptr), "'t' Template Error: Models must have unique values for model_name_suffix: 't'");
	}
	{
		// The suffix compare is exact.
		ImportMessageList list;
		EXPECT_TRUE(validate(R"({ id = "t" models = [ { id = "a" model_name_suffix = "_X" }, { id = "b" model_name_suffix = "_x" } ] })", list));
		EXPECT_EQ(list.Count(), 0);
	}
	const char *const cases[] = {
		R"({ id = "t" models = [ { id = "m" lod_list = [ { id = "l" }, { id = "L" } ] } ] })",
		R"({ id = "t" models = [ { id = "m" lod_list = [ { id = "l" extra_meshes = [ { id = "e" }, { id = "e" } ] } ] } ] })",
		R"({ id = "t" models = [ { id = "m" attach_list = [ { id = "a" }, { id = "a" } ] } ] })",
		R"({ id = "t" models = [ { id = "m" material_list = [ { id = "a" }, { id = "a" } ] } ] })",
		R"({ id = "t" models = [ { id = "m" particle_snapshot_list = [ { id = "a" }, { id = "a" } ] } ] })",
	};
	for (const char *body : cases)
	{
		ImportMessageList list;
		EXPECT_FALSE(validate(body, list)) << body;
		ASSERT_EQ(list.Count(), 1) << body;
		EXPECT_EQ(list[0].Message(), "Duplicate id: %1");
	}
	// Body groups, hitboxes and bundles are not compared.
	ImportMessageList list;
	EXPECT_TRUE(validate(R"({ id = "t" models = [ { id = "m" bodygroup_list = [ { id = "a" }, { id = "a" } ]
		anim_bundle_list = [ { id = "b" }, { id = "b" } ] } ] })",
		list));
	EXPECT_EQ(list.Count(), 0);
}
