// Helpers of the element, session and session-file tests: real image files written with zlib,
// and a template built in code that has every kind of input.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include <zlib.h>

#include "core/fileio.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/core/mintyardtemplate.h"

namespace elementstest
{
inline void PutBE32(std::string &out, uint32_t v)
{
	out += char(v >> 24);
	out += char(v >> 16);
	out += char(v >> 8);
	out += char(v);
}

inline void PutChunk(std::string &out, const char *type, const std::string &data)
{
	PutBE32(out, (uint32_t)data.size());
	std::string body = std::string(type, 4) + data;
	out += body;
	PutBE32(out, (uint32_t)crc32(0, (const Bytef *)body.data(), (uInt)body.size()));
}

// A real RGB PNG of one colour.
inline std::string MakePng(int width, int height, uint8_t r = 40, uint8_t g = 160, uint8_t b = 120)
{
	std::string raw;
	raw.reserve((size_t)height * (1 + (size_t)width * 3));
	for (int y = 0; y < height; ++y)
	{
		raw += char(0);
		for (int x = 0; x < width; ++x)
		{
			raw += char(r);
			raw += char(g);
			raw += char(b);
		}
	}
	uLongf packedSize = compressBound((uLong)raw.size());
	std::string packed(packedSize, '\0');
	compress2((Bytef *)packed.data(), &packedSize, (const Bytef *)raw.data(), (uLong)raw.size(), 1);
	packed.resize(packedSize);
	std::string out("\x89PNG\r\n\x1a\n", 8);
	std::string ihdr;
	PutBE32(ihdr, (uint32_t)width);
	PutBE32(ihdr, (uint32_t)height);
	ihdr += char(8); // bit depth
	ihdr += char(2); // RGB
	ihdr += std::string(3, '\0');
	PutChunk(out, "IHDR", ihdr);
	PutChunk(out, "IDAT", packed);
	PutChunk(out, "IEND", "");
	return out;
}

// A real 24-bit BMP of one colour.
inline std::string MakeBmp(int width, int height)
{
	const int rowBytes = (width * 3 + 3) & ~3;
	const uint32_t dataSize = (uint32_t)(rowBytes * height);
	std::string out;
	auto le32 = [&](uint32_t v) {
		for (int i = 0; i < 4; ++i)
			out += char(v >> (8 * i));
	};
	auto le16 = [&](uint16_t v) {
		out += char(v);
		out += char(v >> 8);
	};
	out += "BM";
	le32(54 + dataSize);
	le32(0);
	le32(54);
	le32(40);
	le32((uint32_t)width);
	le32((uint32_t)height);
	le16(1);
	le16(24);
	le32(0);
	le32(dataSize);
	le32(2835);
	le32(2835);
	le32(0);
	le32(0);
	out += std::string(dataSize, '\x7f');
	return out;
}

inline bool WriteFile(const std::string &path, const std::string &bytes)
{
	return Plat_WriteFileAtomic(path.c_str(), bytes.data(), bytes.size());
}

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
	int n = 0;
	for (int i = 0; i < list.Count(); ++i)
		n += list[i].Message() == token ? 1 : 0;
	return n;
}

inline const MintyardImportMessageEntry_t *FindToken(const ImportMessageList &list, const char *token, const char *arg1 = nullptr)
{
	for (int i = 0; i < list.Count(); ++i)
	{
		if (list[i].Message() == token && (!arg1 || list[i].Arg(1) == arg1))
			return &list[i];
	}
	return nullptr;
}
} // namespace elementstest
