// Helpers of the element, session and session-file tests: a template built in code that has every
// kind of input, and readers of message lists.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "core/fileio.h"
#include "testsupport/test_images.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/core/mintyardtemplate.h"

namespace elementstest
{
using namespace testimages;

// A template with every kind of input:
//   model "model_courier" (suffix ""): levels "mesh_portrait" (optional) and "mesh_world" with the
//     extra mesh "mesh_world_extra"; material "material_body"; animations "idle" (default
//     "anims/idle.fbx"), "attack", "attack_alt" (falls back to "attack"); bundle "run_bundle" with
//     "run_fast"; attachment "attach_head" (joint "head"); snapshot "particle_snapshot" ("_fx").
//   model "model_flying" (suffix "_flying", optional) with levels "mesh_flying", "mesh_flying_far".
//   image set "loading_screen" (type 0) with "image_main" (png, 64 x 32) and "cursor_bmp" (bmp).
//   image set "emoticons" (type 2) with the emoticon "emoticon_smile".
//   sound set "music" with "track1"; misc data "tagline"; one item definition with a portrait.
inline std::unique_ptr<CMintyardTemplate> MakeCourierTemplate()
{
	auto t = std::make_unique<CMintyardTemplate>();
	t->Init("courier_test", "#Courier", "#CourierDesc", false);
	t->directory = "courier";
	t->max_submission_size_kb = -1;

	CMintyardTemplate_ZarnModel &model = t->models.emplace_back();
	model.Init("model_courier", "#ModelCourier", "", false);
	CMintyardTemplate_ZarnMesh &portrait = model.lod_list.emplace_back();
	portrait.Init("mesh_portrait", "#LOD0", "", true);
	CMintyardTemplate_ZarnMesh &world = model.lod_list.emplace_back();
	world.Init("mesh_world", "#LOD1", "", false);
	world.extra_meshes.emplace_back().Init("mesh_world_extra", "#LOD1Extra", "", true);
	CMintyardTemplate_ZarnMaterial &material = model.material_list.emplace_back();
	material.Init("material_body", "#MatBody", "", false);
	CMintyardTemplate_ZarnModel::CAnim &idle = model.anim_list.emplace_back();
	idle.Init("idle", "#AnimIdle", "", false);
	idle.default_anim = "anims/idle.fbx";
	model.anim_list.emplace_back().Init("attack", "#AnimAttack", "", false);
	CMintyardTemplate_ZarnModel::CAnim &attackAlt = model.anim_list.emplace_back();
	attackAlt.Init("attack_alt", "#AnimAttackAlt", "", true);
	attackAlt.fallback_anim_id = "attack";
	CMintyardTemplate_ZarnModel::CAnimBundle &bundle = model.anim_bundle_list.emplace_back();
	bundle.Init("run_bundle", "#RunBundle", "", false);
	bundle.anim_list.emplace_back().Init("run_fast", "#RunFast", "", false);
	CMintyardTemplate_ZarnModel::CAttach &attach = model.attach_list.emplace_back();
	attach.Init("attach_head", "#AttachHead", "", false);
	attach.attach_joint = "head";
	attach.default_offset = Vector(1, 2, 3);
	attach.default_rotation = Vector(0, 90, 0);
	CMintyardTemplate_ZarnModel::CParticleSnapshot &snapshot = model.particle_snapshot_list.emplace_back();
	snapshot.Init("particle_snapshot", "#Snapshot", "", true);
	snapshot.file_suffix = "_fx";

	CMintyardTemplate_ZarnModel &flying = t->models.emplace_back();
	flying.Init("model_flying", "#ModelFlying", "", true);
	flying.model_name_suffix = "_flying";
	flying.lod_list.emplace_back().Init("mesh_flying", "#MeshFlying", "", false);
	flying.lod_list.emplace_back().Init("mesh_flying_far", "#MeshFlyingFar", "", false);

	CMintyardTemplate_ZarnImageSet &screens = t->image_sets.emplace_back();
	screens.Init("loading_screen", "#LoadingScreen", "", false);
	screens.image_set_type = MINTYARD_IMAGE_SET_LOADING_SCREEN;
	CMintyardTemplate_ZarnImageSet::CImage &image = screens.image_list.emplace_back();
	image.Init("image_main", "#ImageMain", "", false);
	image.exact_width = 64;
	image.exact_height = 32;
	CMintyardTemplate_ZarnImageSet::CImage &cursor = screens.image_list.emplace_back();
	cursor.Init("cursor_bmp", "#Cursor", "", true);
	cursor.image_type = MINTYARD_IMAGE_TYPE_BMP;

	CMintyardTemplate_ZarnImageSet &emoticons = t->image_sets.emplace_back();
	emoticons.Init("emoticons", "#Emoticons", "", false);
	emoticons.image_set_type = MINTYARD_IMAGE_SET_EMOTICON;
	emoticons.emoticon_image_list.emplace_back().Init("emoticon_smile", "#Smile", "", false);

	CMintyardTemplate_ZarnSoundSet &music = t->sound_sets.emplace_back();
	music.Init("music", "#Music", "", false);
	music.sound_list.emplace_back().Init("track1", "#Track1", "", false);

	t->misc_data.emplace_back().Init("tagline", "#Tagline", "", false);
	CMintyardTemplate_ZarnItemDef &itemDef = t->item_defs.emplace_back();
	itemDef.Init("item", "", "", false);
	itemDef.has_portrait = true;
	return t;
}

// Collects the tokens of a list, in order.
inline std::vector<std::string> Tokens(const ImportMessageList &list)
{
	std::vector<std::string> out;
	for (int i = 0; i < list.Count(); ++i)
		out.push_back(list[i].Message());
	return out;
}

inline int CountToken(const ImportMessageList &list, const char *token)
{
	return list.CountMessage(token);
}

inline const MintyardImportMessageEntry_t *FindToken(const ImportMessageList &list, const char *token, const char *arg1 = nullptr)
{
	return list.Find(token, arg1);
}
} // namespace elementstest
