// Saving and loading every template class through the transfer layer.
#include <gtest/gtest.h>

#include "core/keyvalues.h"
#include "core/kv3text.h"
#include "core/kv3transfer.h"
#include "testsupport/test_support.h"
#include "gamefixture.h"
#include "mintyardtoolutils/core/mintyardtemplate.h"

namespace
{
const char *const KV3_HEADER =
	"<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n";

template <typename T> bool SaveTo(const T &record, CKeyValues3Context &document, CUtlString *pText = nullptr)
{
	CUtlString error;
	const bool bOk = SaveKV3Object(record, document.Root(), &error);
	if (pText)
		*pText = error;
	return bOk;
}

template <typename T> bool LoadFrom(T &record, const CKeyValues3Context &document, CUtlString *pText = nullptr)
{
	return LoadKV3ObjectInPlace(record, const_cast<CKeyValues3Context &>(document).Root(), pText);
}

template <typename T> bool LoadText(T &record, const char *body, CUtlString *pText = nullptr)
{
	CKeyValues3Context document;
	CUtlString error;
	if (!LoadKV3(document.Root(), &error, std::string(KV3_HEADER) + body, KV3_FORMAT_GENERIC, "test.txt"))
	{
		ADD_FAILURE() << error;
		return false;
	}
	return LoadKV3ObjectInPlace(record, document.Root(), pText);
}

CUtlString SaveText(const KeyValues3 *value)
{
	CUtlBuffer buffer;
	CUtlString error;
	EXPECT_TRUE(SaveKV3(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC, value, &error, &buffer, KV3_SAVE_NO_HEADER)) << error;
	return CUtlString((const char *)buffer.Base(), buffer.TellPut());
}

// Saves the record, loads the result into a fresh record, saves that again: both documents must
// be equal, member for member.
template <typename T> void ExpectRoundTrip(const T &original, T &reloaded)
{
	CKeyValues3Context first;
	ASSERT_TRUE(SaveTo(original, first));
	ASSERT_TRUE(LoadFrom(reloaded, first));
	CKeyValues3Context second;
	ASSERT_TRUE(SaveTo(reloaded, second));
	EXPECT_TRUE(KV3ValuesEqual(first.Root(), second.Root())) << SaveText(first.Root()) << "\n---\n" << SaveText(second.Root());
}

std::vector<std::string> MemberNames(const KeyValues3 *table)
{
	std::vector<std::string> names;
	table->ForEachMember([&](std::string_view name, uint32, const KeyValues3 *) { names.emplace_back(name); });
	return names;
}

CMintyardTemplate_ZarnModel::CAnim MakeAnim(const char *id)
{
	CMintyardTemplate_ZarnModel::CAnim anim;
	anim.Init(id, "#Anim", "#Anim_Desc", true);
	anim.info_url = "https://example/anim";
	anim.max_file_size_kb = 512;
	anim.always_use_default_anim = true;
	anim.suppress_run_motion_extraction = true;
	anim.default_anim = "animations/default.fbx";
	anim.fallback_anim_id = "idle";
	anim.suffix = "_x";
	anim.sequence_name = "seq";
	anim.activity_name = "ACT_X";
	anim.modifiers.push_back({ "haste", 3 });
	anim.bone_weight_list.push_back({ "spine", 0.25f });
	anim.g1_legacy_name = "anim0";
	anim.activity_weight = 5;
	anim.looping = true;
	anim.add_motion_extraction = true;
	anim.delta_animation = true;
	anim.has_attack_point = true;
	anim.anim_length = 1.75f;
	CMintyardTemplate_ZarnModel::CAnim::AnimEvent_t &event = anim.anim_events.emplace_back();
	event.event_name = "AE_SOUND";
	event.frame_num = 7;
	event.event_data_legacy = "Sound.Play";
	KeyValues3 *kv = event.event_kv3.Edit();
	kv->MakeTable();
	SetMemberString(kv, "name", "Sound.Play");
	SetMemberInt(kv, "volume", 3);
	return anim;
}

CMintyardTemplate MakeFullTemplate()
{
	CMintyardTemplate tmpl("/nowhere/template.txt");
	tmpl.Init("full", "#Full", "#Full_Desc", false);
	tmpl.info_url = "https://example/full";
	tmpl.directory = "courier";
	tmpl.game_unit = "npc_zarn_courier";
	tmpl.template_group = "#Group";
	tmpl.template_subgroup = "#SubGroup";
	tmpl.ingame_preview_no_item_set = true;
	tmpl.max_submission_size_kb = 1024;
	tmpl.mintyard_tags = { "Courier", "Extra" };

	CMintyardTemplate_ZarnModel &model = tmpl.models.emplace_back();
	model.Init("model", "#Model", "#Model_Desc", false);
	model.model_name_suffix = "_m";
	model.default_portrait_model = "models/p.zmdl";
	CMintyardTemplate_ZarnMesh &lod = model.lod_list.emplace_back();
	lod.Init("lod0", "#Lod0", "", false);
	lod.max_polygons = 1000;
	lod.max_bones = 0;
	CMintyardTemplate_ZarnMesh &extra = lod.extra_meshes.emplace_back();
	extra.Init("extra", "#Extra", "", true);
	extra.max_polygons = 20;
	CMintyardTemplate_ZarnModel::CBodyGroup &bodyGroup = model.bodygroup_list.emplace_back();
	bodyGroup.Init("bg", "", "", false);
	bodyGroup.bodygroup_name = "hair";
	bodyGroup.choices.resize(2);
	bodyGroup.choices[1].meshes = { "$(model:game_lod_mesh)" };
	model.anim_list.push_back(MakeAnim("idle"));
	CMintyardTemplate_ZarnModel::CAttach &attach = model.attach_list.emplace_back();
	attach.Init("attach", "#Attach", "", false);
	attach.default_offset = Vector(1, 2, 3);
	attach.default_rotation = Vector(0, 90, 0);
	attach.attach_name = "attach_x";
	attach.attach_joint = "head";
	attach.g1_legacy_name = "attach0";
	attach.can_edit_offset = true;
	CMintyardTemplate_ZarnMaterial &material = model.material_list.emplace_back();
	material.Init("mat", "#Mat", "#Mat_Desc", false);
	material.template_zmat = "materials/t.zmat";
	material.material_group_name = "0";
	material.material_name_suffix = "_a";
	material.g1_legacy_name = "zmt0";
	material.max_tex_width = 256;
	material.max_tex_height = 128;
	CMintyardTemplate_ZarnModel::Hitbox_t &hitbox = model.hitbox_list.emplace_back();
	hitbox.set_name = "default";
	hitbox.box_name = "body";
	hitbox.bone_name = "spine";
	hitbox.min_bounds = Vector(-1, -2, -3);
	hitbox.max_bounds = Vector(1, 2, 3);
	CMintyardTemplate_ZarnModel::CAnimBundle &bundle = model.anim_bundle_list.emplace_back();
	bundle.Init("bundle", "#Bundle", "", true);
	bundle.compound_sequence_name = "cs";
	bundle.compound_activity_name = "ACT_CS";
	bundle.compound_looping = true;
	bundle.pose_param_name = "speed";
	bundle.anim_list.push_back(MakeAnim("b0"));
	bundle.fallback_bundles = { "other" };
	bundle.bundle_type = MINTYARD_ANIM_BUNDLE_MULTIBLEND;
	CMintyardTemplate_ZarnModel::CParticleSnapshot &snapshot = model.particle_snapshot_list.emplace_back();
	snapshot.Init("snap", "#Snap", "", false);
	snapshot.snapshot_bone = "tip";
	model.share_materials_from_model = "other_model";
	model.g1_legacy_name = "model0";
	model.auto_hitbox_set_name = "default";
	model.root_bone_name = "root";
	model.preview_desc = "#Preview";
	model.preview_offset = Vector(10, 20, 30);
	model.can_be_empty = true;

	CMintyardTemplate_ZarnImageSet &imageSet = tmpl.image_sets.emplace_back();
	imageSet.Init("images", "#Images", "", false);
	imageSet.image_set_type = MINTYARD_IMAGE_SET_CURSOR_PACK;
	CMintyardTemplate_ZarnImageSet::CImage &image = imageSet.image_list.emplace_back();
	image.Init("cursor", "#Cursor", "", true);
	image.image_type = MINTYARD_IMAGE_TYPE_BMP;
	image.exact_width = 64;
	image.exact_height = 32;
	imageSet.emoticon_image_list.emplace_back().Init("emo", "#Emo", "", true);

	CMintyardTemplate_ZarnSoundSet &soundSet = tmpl.sound_sets.emplace_back();
	soundSet.Init("music", "#Music", "", false);
	CMintyardTemplate_ZarnSoundSet::CSound &sound = soundSet.sound_list.emplace_back();
	sound.Init("menu", "#Menu", "", false);
	sound.uigroup = "#Menus";
	sound.max_file_size_kb = 100;

	tmpl.misc_data.emplace_back().Init("notes", "#Notes", "#Notes_Desc", true);

	CMintyardTemplate_ZarnItemDef &itemDef = tmpl.item_defs.emplace_back();
	itemDef.Init("item", "", "", false);
	itemDef.prefab_type = "courier";
	itemDef.localization_prefix = "Courier_";
	itemDef.localization_suffix = "_Suffix";
	itemDef.item_type_name = "#Type";
	itemDef.model_player_expr = "$(model:zmdl_name)";
	itemDef.model_player1_expr = "$(model:zmdl_name)1";
	itemDef.has_portrait = true;
	CMintyardTemplate_ZarnItemDef::Visual_t &visual = itemDef.visuals.emplace_back();
	visual.type = "courier_flying";
	visual.asset_expr = "a";
	visual.modifier_expr = "m";
	visual.frequency = "2";
	visual.skip_if_asset_empty = true;
	visual.replace_by_type = true;
	itemDef.set_keys.push_back({ "k", "v" });
	return tmpl;
}
} // namespace

TEST(TemplateTransfer, WholeTemplateRoundTrips)
{
	const CMintyardTemplate original = MakeFullTemplate();
	CMintyardTemplate reloaded;
	ExpectRoundTrip(original, reloaded);
	// The load really read the members (a loader that read nothing would also save "equal"
	// defaults only if the original were all defaults, which it is not).
	EXPECT_EQ(reloaded.id, "full");
	EXPECT_EQ(reloaded.max_submission_size_kb, 1024);
	ASSERT_EQ(reloaded.models.size(), 1u);
	const CMintyardTemplate_ZarnModel &model = reloaded.models[0];
	EXPECT_EQ(model.lod_list[0].max_bones, 0);
	EXPECT_EQ(model.lod_list[0].extra_meshes[0].max_bones, 60);
	EXPECT_EQ(model.anim_list[0].activity_weight, 5);
	EXPECT_FLOAT_EQ(model.anim_list[0].anim_length, 1.75f);
	EXPECT_EQ(FindMember(model.anim_list[0].anim_events[0].event_kv3.Get(), "volume")->GetInt64(), 3);
	EXPECT_EQ(model.anim_bundle_list[0].bundle_type, MINTYARD_ANIM_BUNDLE_MULTIBLEND);
	EXPECT_EQ(model.attach_list[0].default_offset, Vector(1, 2, 3));
	EXPECT_EQ(model.hitbox_list[0].max_bounds, Vector(1, 2, 3));
	EXPECT_EQ(model.preview_offset, Vector(10, 20, 30));
	EXPECT_EQ(reloaded.image_sets[0].image_set_type, MINTYARD_IMAGE_SET_CURSOR_PACK);
	EXPECT_EQ(reloaded.image_sets[0].image_list[0].image_type, MINTYARD_IMAGE_TYPE_BMP);
	EXPECT_EQ(reloaded.sound_sets[0].sound_list[0].uigroup, "#Menus");
	EXPECT_EQ(reloaded.misc_data[0].desc, "#Notes_Desc");
	EXPECT_EQ(reloaded.item_defs[0].visuals[0].frequency, "2");
	EXPECT_EQ(reloaded.mintyard_tags.size(), 2u);
}

// Each class on its own: save, load into a fresh object, save again, compare.
TEST(TemplateTransfer, EachClassRoundTrips)
{
	const CMintyardTemplate full = MakeFullTemplate();
	const CMintyardTemplate_ZarnModel &model = full.models[0];
	{
		CMintyardTemplateElement element;
		element.Init("e", "#E", "#E_Desc", true);
		element.info_url = "u";
		CMintyardTemplateElement reloaded;
		ExpectRoundTrip(element, reloaded);
		EXPECT_TRUE(reloaded.optional);
		EXPECT_EQ(reloaded.info_url, "u");
	}
	{
		CMintyardTemplateFilename file;
		file.Init("f", "", "", false);
		file.max_file_size_kb = 9;
		CMintyardTemplateFilename reloaded;
		ExpectRoundTrip(file, reloaded);
		EXPECT_EQ(reloaded.max_file_size_kb, 9);
	}
	{
		CMintyardTemplate_ZarnMesh reloaded;
		ExpectRoundTrip(model.lod_list[0], reloaded);
		EXPECT_EQ(reloaded.extra_meshes.size(), 1u);
	}
	{
		CMintyardTemplate_ZarnModel reloaded;
		ExpectRoundTrip(model, reloaded);
		EXPECT_EQ(reloaded.root_bone_name, "root");
	}
	{
		CMintyardTemplate_ZarnModel::CAnim reloaded;
		ExpectRoundTrip(model.anim_list[0], reloaded);
		EXPECT_EQ(reloaded.default_anim, "animations/default.fbx");
		EXPECT_EQ(reloaded.bone_weight_list[0].bone_weight, 0.25f);
		EXPECT_EQ(reloaded.modifiers[0].modifier_weight, 3);
	}
	{
		CMintyardTemplate_ZarnModel::CAnimBundle reloaded;
		ExpectRoundTrip(model.anim_bundle_list[0], reloaded);
		EXPECT_EQ(reloaded.pose_param_name, "speed");
	}
	{
		CMintyardTemplate_ZarnModel::CAttach reloaded;
		ExpectRoundTrip(model.attach_list[0], reloaded);
		EXPECT_EQ(reloaded.default_rotation, Vector(0, 90, 0));
	}
	{
		CMintyardTemplate_ZarnModel::CBodyGroup reloaded;
		ExpectRoundTrip(model.bodygroup_list[0], reloaded);
		ASSERT_EQ(reloaded.choices.size(), 2u);
		EXPECT_TRUE(reloaded.choices[0].meshes.empty());
		EXPECT_EQ(reloaded.choices[1].meshes.size(), 1u);
	}
	{
		CMintyardTemplate_ZarnModel::CMeshGroup_LEGACY group;
		group.Init("g", "", "", false);
		group.mesh_group_name = "hair_@0";
		group.enabled_by_default = true;
		group.mesh_name_exprs = { "a", "b" };
		CMintyardTemplate_ZarnModel::CMeshGroup_LEGACY reloaded;
		ExpectRoundTrip(group, reloaded);
		EXPECT_EQ(reloaded.mesh_name_exprs.size(), 2u);
	}
	{
		CMintyardTemplate_ZarnModel::CParticleSnapshot reloaded;
		ExpectRoundTrip(model.particle_snapshot_list[0], reloaded);
		EXPECT_EQ(reloaded.snapshot_bone, "tip");
	}
	{
		CMintyardTemplate_ZarnMaterial reloaded;
		ExpectRoundTrip(model.material_list[0], reloaded);
		EXPECT_EQ(reloaded.max_tex_height, 128);
	}
	{
		CMintyardTemplate_ZarnImageSet reloaded;
		ExpectRoundTrip(full.image_sets[0], reloaded);
		EXPECT_EQ(reloaded.emoticon_image_list.size(), 1u);
	}
	{
		CMintyardTemplate_ZarnImageSet::CImage reloaded;
		ExpectRoundTrip(full.image_sets[0].image_list[0], reloaded);
		EXPECT_EQ(reloaded.exact_height, 32);
	}
	{
		CMintyardTemplate_ZarnImageSet::CEmoticon reloaded;
		ExpectRoundTrip(full.image_sets[0].emoticon_image_list[0], reloaded);
		EXPECT_EQ(reloaded.id, "emo");
	}
	{
		CMintyardTemplate_ZarnSoundSet reloaded;
		ExpectRoundTrip(full.sound_sets[0], reloaded);
		EXPECT_EQ(reloaded.sound_set_type, MINTYARD_SOUND_SET_MUSIC_PACK);
	}
	{
		CMintyardTemplate_ZarnSoundSet::CSound reloaded;
		ExpectRoundTrip(full.sound_sets[0].sound_list[0], reloaded);
		EXPECT_EQ(reloaded.max_file_size_kb, 100);
	}
	{
		CMintyardTemplate_MiscData reloaded;
		ExpectRoundTrip(full.misc_data[0], reloaded);
		EXPECT_EQ(reloaded.name, "#Notes");
	}
	{
		CMintyardTemplate_ZarnItemDef reloaded;
		ExpectRoundTrip(full.item_defs[0], reloaded);
		EXPECT_EQ(reloaded.set_keys[0].value_expr, "v");
		EXPECT_TRUE(reloaded.has_portrait);
	}
}

TEST(TemplateTransfer, MembersAreSavedInFileOrder)
{
	CKeyValues3Context document;
	ASSERT_TRUE(SaveTo(MakeFullTemplate(), document));
	const std::vector<std::string> expected = { "id", "name", "desc", "info_url", "optional", "directory", "game_unit",
		"template_group", "template_subgroup", "ingame_preview_no_item_set", "max_submission_size_kb", "models", "image_sets",
		"sound_sets", "misc_data", "item_defs", "mintyard_tags" };
	EXPECT_EQ(MemberNames(document.Root()), expected);

	const KeyValues3 *anim = ArrayElement(FindMember(ArrayElement(FindMember(document.Root(), "models"), 0), "anim_list"), 0);
	const std::vector<std::string> animExpected = { "id", "name", "desc", "info_url", "optional", "max_file_size_kb",
		"always_use_default_anim", "suppress_run_motion_extraction", "default", "fallback_anim_id", "suffix", "sequence_name",
		"activity_name", "modifiers", "bone_weight_list", "g1_legacy_name", "activity_weight", "looping", "add_motion_extraction",
		"delta_animation", "has_attack_point", "anim_length", "anim_events" };
	EXPECT_EQ(MemberNames(anim), animExpected);
	// Enums go out by name.
	const KeyValues3 *bundle = ArrayElement(FindMember(ArrayElement(FindMember(document.Root(), "models"), 0), "anim_bundle_list"), 0);
	EXPECT_STREQ(GetMemberString(bundle, "bundle_type"), "multiblend_bundle");
	const KeyValues3 *imageSet = ArrayElement(FindMember(document.Root(), "image_sets"), 0);
	EXPECT_STREQ(GetMemberString(imageSet, "image_set_type"), "cursor_pack");
	// Members without a key stay out of the file.
	const KeyValues3 *material = ArrayElement(FindMember(ArrayElement(FindMember(document.Root(), "models"), 0), "material_list"), 0);
	EXPECT_EQ(FindMember(material, "textures"), nullptr);
	EXPECT_EQ(GetMember(material, "color")->GetType(), KV3_TYPE_NULL);
}

TEST(TemplateTransfer, HandWrittenFileLoads)
{
	CMintyardTemplate tmpl;
	CUtlString text;
	ASSERT_TRUE(LoadText(tmpl, R"(
{
	ID = "hand"                  // keys ignore case
	name = "#Hand"
	unknown_key = "ignored"
	models =
	[
		{
			id = "m"
			lod_list =
			[
				{ id = "a" max_polygons = "12" },       // a number given as a string
				{ id = "b" max_polygons = 1.5 max_bones = 0 },
			]
			anim_list = [ { id = "idle" default = "x.fbx" } ]
			anim_bundle_list = [ { id = "b" bundle_type = "LOOP_AND_RARE" anim_list = [ { id = "r" always_use_default_anim = true } ] } ]
			material_list = [ { id = "mat" } ]
			attach_list = "not a list"
		},
	]
	image_sets =
	[
		{ id = "s" image_set_type = "hero" image_list = [ { id = "i" image_type = "bmp" } ] emoticon_image_list = [ { id = "e" } ] },
	]
	sound_sets = [ { id = "music" sound_list = [ { id = "t" uigroup = "#G" } ] } ]
	mintyard_tags = [ "A", "B" ]
}
)",
		&text))
		<< text;
	EXPECT_EQ(tmpl.id, "hand");
	EXPECT_EQ(tmpl.max_submission_size_kb, -1);
	ASSERT_EQ(tmpl.models.size(), 1u);
	const CMintyardTemplate_ZarnModel &model = tmpl.models[0];
	ASSERT_EQ(model.lod_list.size(), 2u);
	EXPECT_EQ(model.lod_list[0].max_polygons, 12);
	EXPECT_EQ(model.lod_list[0].max_bones, 60);
	EXPECT_EQ(model.lod_list[0].max_file_size_kb, -1);
	EXPECT_EQ(model.lod_list[1].max_polygons, 1);
	EXPECT_EQ(model.lod_list[1].max_bones, 0);
	EXPECT_NE(text.find("Cast of 1.5 loses value information (returning 1)"), CUtlString::npos) << text;
	EXPECT_TRUE(model.attach_list.empty());
	EXPECT_EQ(model.anim_list[0].activity_weight, 1);
	EXPECT_EQ(model.anim_bundle_list[0].bundle_type, MINTYARD_ANIM_BUNDLE_LOOP_AND_RARE);
	EXPECT_TRUE(model.HasAnyAnimationDefault());
	EXPECT_FALSE(model.HasAnimationDefaults());

	// The material's textures exist though no key names them.
	const CMintyardTemplate_ZarnMaterial &material = model.material_list[0];
	ASSERT_EQ((int)CMintyardTemplate_ZarnMaterial::TEXTURE_COUNT, 11);
	EXPECT_EQ(material.textures[0].id, "color");
	EXPECT_FALSE(material.textures[0].optional);
	EXPECT_EQ(material.textures[2].id, "normal");
	EXPECT_FALSE(material.textures[2].optional);
	EXPECT_EQ(material.textures[10].id, "specexp");
	EXPECT_TRUE(material.textures[10].optional);
	EXPECT_EQ(material.textures[1].name, "#ZARN_Mintyard_TextureName_trans");
	EXPECT_EQ(material.textures[1].desc, "#ZARN_Mintyard_TextureDetails_trans");
	for (int i = 0; i < CMintyardTemplate_ZarnMaterial::TEXTURE_COUNT; ++i)
		EXPECT_EQ(material.textures[i].optional, i != 0 && i != 2) << i;

	// "hero" is no image set type.
	EXPECT_EQ(tmpl.image_sets[0].image_set_type, MINTYARD_IMAGE_SET_INVALID);
	EXPECT_EQ(tmpl.image_sets[0].image_list[0].image_type, MINTYARD_IMAGE_TYPE_BMP);
	EXPECT_EQ(tmpl.image_sets[0].image_list[0].exact_width, -1);
	const CMintyardTemplate_ZarnImageSet::CEmoticon &emoticon = tmpl.image_sets[0].emoticon_image_list[0];
	EXPECT_EQ(emoticon.image.id, "image");
	EXPECT_EQ(emoticon.image.name, "#ZARN_Mintyard_ChatEmoticon_Image");
	EXPECT_FALSE(emoticon.image.optional);
	EXPECT_EQ(emoticon.keyword.id, "keyword");
	EXPECT_EQ(emoticon.keyword.desc, "#ZARN_Mintyard_ChatEmoticon_Keyword_Desc");
	EXPECT_EQ(emoticon.default_frame.id, "default_frame");
	EXPECT_TRUE(emoticon.default_frame.optional);
	EXPECT_EQ(tmpl.sound_sets[0].sound_list[0].uigroup, "#G");
	EXPECT_EQ(tmpl.mintyard_tags.size(), 2u);

	// An unknown enum name is kept as -1 and written back as the number.
	CKeyValues3Context document;
	ASSERT_TRUE(SaveTo(tmpl, document));
	const KeyValues3 *type = GetMember(ArrayElement(GetMember(document.Root(), "image_sets"), 0), "image_set_type");
	EXPECT_EQ(type->GetType(), KV3_TYPE_INT);
	EXPECT_EQ(type->GetInt64(), -1);
}

TEST(TemplateTransfer, AnimationDefaultQueries)
{
	CMintyardTemplate_ZarnModel model;
	EXPECT_TRUE(model.HasAnimationDefaults());
	EXPECT_FALSE(model.HasAnyAnimationDefault());
	model.anim_bundle_list.emplace_back().anim_list.emplace_back().default_anim = "a.fbx";
	EXPECT_TRUE(model.HasAnyAnimationDefault());
	EXPECT_TRUE(model.HasAnimationDefaults());
	model.anim_bundle_list[0].anim_list[0].always_use_default_anim = true;
	EXPECT_FALSE(model.HasAnimationDefaults());
	CMintyardTemplate_ZarnModel other;
	other.anim_list.emplace_back().always_use_default_anim = true;
	EXPECT_FALSE(other.HasAnimationDefaults());
	EXPECT_FALSE(other.HasAnyAnimationDefault());
}

TEST(TemplateTransfer, InitSetsTheBaseMembersAndMaterialTextures)
{
	CMintyardTemplate_ZarnMaterial material;
	material.info_url = "stale";
	material.textures[0].id = "changed";
	material.Init("m", "#N", "#D", true);
	EXPECT_EQ(material.id, "m");
	EXPECT_EQ(material.name, "#N");
	EXPECT_EQ(material.desc, "#D");
	EXPECT_TRUE(material.optional);
	EXPECT_TRUE(material.info_url.empty());
	EXPECT_EQ(material.textures[0].id, "color");
	EXPECT_STREQ(CMintyardTemplate_ZarnMaterial::TextureId(5), "metalnessmask");
	EXPECT_EQ(CMintyardTemplate_ZarnMaterial::TextureId(11), nullptr);
}

TEST(TemplateTransfer, DeeplyNestedMeshesStopAtTheDepthLimit)
{
	// 70 levels of extra meshes: the record at depth 64 is left at its defaults and the load fails.
	std::string body = "{ id = \"t\" models = [ { id = \"m\" lod_list = [ ";
	const int levels = 70;
	for (int i = 0; i < levels; ++i)
		body += "{ id = \"l\" max_polygons = 5 extra_meshes = [ ";
	for (int i = 0; i < levels; ++i)
		body += "] } ";
	body += "] } ] }";
	CMintyardTemplate tmpl;
	CUtlString text;
	CCaptureLog log;
	EXPECT_FALSE(LoadText(tmpl, body.c_str(), &text));
	EXPECT_NE(text.find("Stack depth limit hit (64)"), CUtlString::npos) << text;
	EXPECT_NE(log.m_Text.find("LoadKV3ObjectInPlace error"), std::string::npos);
}

TEST(TemplateTransfer, ItemDefinitionHeroAndSlotByName)
{
	CGameFolderScope game(SampleGameFolder());
	ASSERT_TRUE(ReloadGameData()) << GetGameDataLastError();
	const HeroTable &heroes = GetHeroTable();

	CMintyardTemplate_ZarnItemDef itemDef;
	ASSERT_TRUE(LoadText(itemDef, R"({ id = "i" hero_name = "NPC_ZARN_HERO_CINDER" loadout_slot = "Arms" })"));
	EXPECT_EQ(itemDef.hero_name, heroes.FindHeroIndex("npc_zarn_hero_cinder"));
	ASSERT_GE(itemDef.hero_name, 0);
	EXPECT_EQ(itemDef.loadout_slot, heroes.GetHero(itemDef.hero_name)->FindSlot("arms"));
	ASSERT_GE(itemDef.loadout_slot, 0);
	CKeyValues3Context saved;
	ASSERT_TRUE(SaveTo(itemDef, saved));
	EXPECT_STREQ(GetMemberString(saved.Root(), "hero_name"), "npc_zarn_hero_cinder");
	EXPECT_STREQ(GetMemberString(saved.Root(), "loadout_slot"), "arms");

	// An unknown hero keeps -1 for both and saves neither key; so does a slot of another hero.
	CMintyardTemplate_ZarnItemDef unknown;
	ASSERT_TRUE(LoadText(unknown, R"({ id = "i" hero_name = "npc_zarn_hero_nobody" loadout_slot = "arms" })"));
	EXPECT_EQ(unknown.hero_name, -1);
	EXPECT_EQ(unknown.loadout_slot, -1);
	CKeyValues3Context savedUnknown;
	ASSERT_TRUE(SaveTo(unknown, savedUnknown));
	EXPECT_EQ(FindMember(savedUnknown.Root(), "hero_name"), nullptr);
	EXPECT_EQ(FindMember(savedUnknown.Root(), "loadout_slot"), nullptr);

	CMintyardTemplate_ZarnItemDef wrongSlot;
	ASSERT_TRUE(LoadText(wrongSlot, R"({ id = "i" hero_name = "npc_zarn_hero_cinder" loadout_slot = "mount" })"));
	EXPECT_GE(wrongSlot.hero_name, 0);
	EXPECT_EQ(wrongSlot.loadout_slot, -1);
	CKeyValues3Context savedWrong;
	ASSERT_TRUE(SaveTo(wrongSlot, savedWrong));
	EXPECT_STREQ(GetMemberString(savedWrong.Root(), "hero_name"), "npc_zarn_hero_cinder");
	EXPECT_EQ(FindMember(savedWrong.Root(), "loadout_slot"), nullptr);
}

TEST(TemplateTransfer, DefaultItemOfADefinition)
{
	CGameFolderScope game(SampleGameFolder());
	ASSERT_TRUE(ReloadGameData()) << GetGameDataLastError();
	const HeroTable &heroes = GetHeroTable();

	CMintyardTemplate_ZarnItemDef itemDef;
	itemDef.hero_name = heroes.FindHeroIndex("npc_zarn_hero_tidewarden");
	itemDef.loadout_slot = heroes.GetHero(itemDef.hero_name)->FindSlot("mount");
	KeyValues *pItem = itemDef.FindDefaultItem();
	ASSERT_NE(pItem, nullptr);
	EXPECT_STREQ(pItem->GetString("item_slot"), "mount");
	EXPECT_EQ(pItem->FindKey("used_by_heroes")->GetInt("npc_zarn_hero_tidewarden"), 1);

	// Without hero and slot: the first item of the prefab.
	CMintyardTemplate_ZarnItemDef courier;
	courier.prefab_type = "courier";
	pItem = courier.FindDefaultItem();
	ASSERT_NE(pItem, nullptr);
	EXPECT_STREQ(pItem->GetName(), "595");

	CMintyardTemplate_ZarnItemDef none;
	none.prefab_type = "no_such_prefab";
	EXPECT_EQ(none.FindDefaultItem(), nullptr);
}
