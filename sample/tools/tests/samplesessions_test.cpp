// The sample sessions (sample/sessions), one for every kind of submission that the sample game
// offers: every kind has one; each validates with `mintyard validate` and gives only the warnings
// listed here; what it names fits its template as readers other than the import's see it (assimp
// for meshes and animations, Qt for images): budgets of triangles and bones, the hero's bones a
// wearable is skinned to, the joints of attachments and snapshots, texture sizes; and each
// imports with `mintyard import` on a copy of the sample tree with only the warnings listed,
// placing each source under a name of its own and compiling models with triangles in every mesh.

#include <gtest/gtest.h>

#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <rapidjson/document.h>

#include <QImage>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <sstream>

#include "core/fileio.h"
#include "core/keyvalues3.h"
#include "core/kv3text.h"
#include "filesystem/filesystem.h"
#include "mintyardtoolutils/core/cfgelements.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/core/importmessages.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/core/mintyardtemplate.h"
#include "mintyardtoolutils/core/sessionfile.h"
#include "testsupport/test_support.h"
#include "toolframework/toolframework.h"

namespace fs = std::filesystem;

namespace
{
const std::string kSample = MINTYARD_SOURCE_DIR "/sample";
const std::string kSessions = kSample + "/sessions/";
const std::string kGame = kSample + "/game/zarn/";
const std::string kContent = kSample + "/content/zarn/";
const std::string kMintyard = MINTYARD_BINARY_DIR "/bin/mintyard";
const std::string kResourceCompiler = MINTYARD_BINARY_DIR "/bin/resourcecompiler";

// A file that an import writes (relative to the tree's root), and the source it is a copy of
// (relative to the same root), if it is one.
struct Placed_t
{
	std::string m_Path;
	std::string m_Source;
};

// What each session gives besides success, as `--tokens` prints it, and what its import writes:
// the sources it places before its first compile, and what comes after: compiled files, and the
// sources of later steps (animations, further materials, particle snapshots).
struct Expected_t
{
	std::string m_Session; // the file's name without ".session.txt"
	std::vector<std::string> m_ValidateWarnings;
	std::vector<std::string> m_ImportWarnings;
	std::vector<Placed_t> m_Placed;
	std::vector<Placed_t> m_Compiled;
};

// The sessions give no warning: each is made to fit its template. A session that shows a
// warning on purpose lists it here and says why in sample/sessions/README.txt.
const std::vector<Expected_t> &ExpectedSessions()
{
	const std::string items = "content/zarn/models/items/", materials = "content/zarn/materials/models/items/", compiled = "game/zarn/models/items/";
	static const std::vector<Expected_t> sessions = {
		{ "abilityicons_bramble", {}, {}, {}, {} }, // ability icons are placed only in the wizard's item mode
		{ "bramble_misc", {}, {},
			{ { items + "bramble/seed_pod_lantern/seed_pod_lantern.fbx", "art/bramble_misc/seed_pod_lantern.fbx" },
				{ items + "bramble/seed_pod_lantern/seed_pod_lantern_lod1.fbx", "art/bramble_misc/seed_pod_lantern_lod1.fbx" },
				{ materials + "bramble/seed_pod_lantern/seed_pod_lantern.zmat", "" } },
			{ { compiled + "bramble/seed_pod_lantern/seed_pod_lantern.zmdl_c", "" },
				{ materials + "bramble/seed_pod_lantern/seed_pod_lantern_glass_color.png", "art/bramble_misc/seed_pod_lantern_glass_color.png" } } },
		{ "bramble_thorn_volley", {}, {},
			{ { items + "bramble/briar_thorn/briar_thorn_thorn.fbx", "art/bramble_thorn_volley/thorn.fbx" },
				{ materials + "bramble/briar_thorn/briar_thorn_thorn.zmat", "" } },
			{ { compiled + "bramble/briar_thorn/briar_thorn_thorn.zmdl_c", "" },
				{ "content/zarn/particles/models/items/bramble/briar_thorn/briar_thorn_thorn.fbx", "art/bramble_thorn_volley/thorn_fx.fbx" } } },
		{ "contract_only", {}, {}, {}, {} },
		{ "courier", {}, {},
			{ { items + "courier/sample_courier/sample_courier.fbx", "art/courier/courier_lod0.fbx" },
				{ items + "courier/sample_courier/sample_courier_lod1_extra0.fbx", "art/courier/courier_saddlebag.fbx" },
				{ items + "courier/sample_courier/sample_courier_flying.fbx", "art/courier/courier_flying_lod0.fbx" },
				{ materials + "courier/sample_courier/sample_courier.zmat", "" } },
			{ { compiled + "courier/sample_courier/sample_courier.zmdl_c", "" }, { compiled + "courier/sample_courier/sample_courier_flying.zmdl_c", "" },
				{ items + "courier/sample_courier/sample_courier_run_forward.fbx", "art/courier/courier_run_forward.fbx" },
				{ items + "courier/sample_courier/sample_courier_turn_left.fbx", "art/courier/courier_run_turn_left.fbx" },
				{ items + "courier/sample_courier/sample_courier_idle.fbx", "game/zarn/animations/courier/courier_idle.fbx" },
				{ items + "courier/sample_courier/sample_courier_flying_fly_idle.fbx", "game/zarn/animations/courier/courier_fly_idle.fbx" } } },
		{ "cursor_pack", {}, {},
			{ { "game/zarn/resource/cursor/mintyard/bramble_cursors/default.bmp", "art/cursors/default.bmp" },
				{ "game/zarn/resource/cursor/mintyard/bramble_cursors/drop.bmp", "art/cursors/drop.bmp" },
				{ "game/zarn/resource/cursor/mintyard/bramble_cursors/cursor.res", "game/zarn/resource/cursor/cursor.res" } },
			{} },
		{ "emoticons", {}, {}, {}, {} }, // emoticons are placed only in the wizard's item mode
		{ "loading_screen", {}, {},
			{ { "content/zarn/canopy/images/loadingscreens/dusk_in_the_bramble_wood/loadingscreen.png", "" },
				{ "content/zarn/canopy/images/loadingscreens/dusk_in_the_bramble_wood/loadingscreen.ztex", "" } },
			{ { "game/zarn/canopy/images/loadingscreens/dusk_in_the_bramble_wood/loadingscreen.ztex_c", "" } } },
		{ "marketing_images", {}, {}, {}, {} },
		{ "music_pack", {}, {}, {}, {} },
		{ "ward", {}, {},
			{ { items + "ward/sample_owl_ward/sample_owl_ward.fbx", "art/ward/owl_ward.fbx" },
				{ items + "ward/sample_owl_ward/sample_owl_ward_lod1.fbx", "art/ward/owl_ward_lod1.fbx" },
				{ materials + "ward/sample_owl_ward/sample_owl_ward.zmat", "" } },
			{ { compiled + "ward/sample_owl_ward/sample_owl_ward.zmdl_c", "" },
				{ items + "ward/sample_owl_ward/sample_owl_ward_idle.fbx", "game/zarn/animations/ward/ward_idle.fbx" } } },
		{ "wearable_bramble_back", {}, {},
			{ { items + "bramble/thorn_quiver/thorn_quiver.fbx", "art/wearables/bramble_back/bramble_back.fbx" },
				{ materials + "bramble/thorn_quiver/thorn_quiver.zmat", "" } },
			{ { compiled + "bramble/thorn_quiver/thorn_quiver.zmdl_c", "" } } },
		{ "wearable_bramble_head", {}, {},
			{ { items + "bramble/briar_crown/briar_crown.fbx", "art/wearables/bramble_head/bramble_head.fbx" },
				{ materials + "bramble/briar_crown/briar_crown.zmat", "" } },
			{ { compiled + "bramble/briar_crown/briar_crown.zmdl_c", "" } } },
		{ "wearable_cinder_weapon", {}, {},
			{ { items + "cinder/ember_sceptre/ember_sceptre.fbx", "art/wearables/cinder_weapon/cinder_weapon.fbx" },
				{ materials + "cinder/ember_sceptre/ember_sceptre.zmat", "" } },
			{ { compiled + "cinder/ember_sceptre/ember_sceptre.zmdl_c", "" },
				{ "content/zarn/particles/models/items/cinder/ember_sceptre/ember_sceptre_fx.fbx", "art/wearables/cinder_weapon/cinder_weapon_fx.fbx" } } },
		{ "wearable_tidewarden_weapon", {}, {},
			{ { items + "tidewarden/coral_hook/coral_hook.fbx", "art/wearables/tidewarden_weapon/tidewarden_weapon.fbx" },
				{ materials + "tidewarden/coral_hook/coral_hook.zmat", "" } },
			{ { compiled + "tidewarden/coral_hook/coral_hook.zmdl_c", "" } } },
	};
	return sessions;
}

std::vector<std::string> SessionNames()
{
	std::vector<std::string> names;
	for (const auto &entry : fs::directory_iterator(kSessions))
	{
		const std::string name = entry.path().filename().string();
		const std::string suffix = ".session.txt";
		if (name.size() > suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0)
			names.push_back(name.substr(0, name.size() - suffix.size()));
	}
	std::sort(names.begin(), names.end());
	return names;
}

std::vector<std::string> Lines(const std::string &text)
{
	std::vector<std::string> lines;
	std::istringstream in(text);
	for (std::string line; std::getline(in, line);)
		lines.push_back(line);
	return lines;
}

std::string Joined(const std::vector<std::string> &lines)
{
	std::string text;
	for (const std::string &line : lines)
		text += "  " + line + "\n";
	return text.empty() ? "  (none)\n" : text;
}

bool LoadKV3File(const std::string &path, CKeyValues3Context &context)
{
	CUtlBuffer buffer;
	CUtlString error;
	if (!Plat_ReadFile(path.c_str(), buffer, &error) ||
		!LoadKV3(context.Root(), &error, std::string_view((const char *)buffer.Base(), buffer.Size()), KV3_FORMAT_GENERIC, path.c_str()))
	{
		ADD_FAILURE() << path << ": " << error;
		return false;
	}
	return true;
}

// A command's standard output alone: its standard error (the progress of an import, the game's
// load notes) is dropped.
CommandResult_t RunQuietly(const std::string &command) { return RunCommand("(" + command + " 2>/dev/null)"); }

std::string MemberString(const KeyValues3 *table, const char *name)
{
	const KeyValues3 *member = FindMember(table, name);
	return member && member->IsString() ? member->GetString() : "";
}
} // namespace

TEST(SampleSessions, EveryKindOfSubmissionHasOne)
{
	// Every template of the catalogue's file has a session, and so do the templates the
	// catalogue builds: wearables (of more than one hero) and ability icons.
	CKeyValues3Context catalogue;
	ASSERT_TRUE(LoadKV3File(kGame + "scripts/mintyard_import_templates/templates.txt", catalogue));
	std::vector<std::string> templates;
	FindMember(catalogue.Root(), "templates")->ForEachArrayElement(
		[&](const KeyValues3 *path)
		{
			CKeyValues3Context file;
			if (LoadKV3File(kGame + path->GetString(), file))
				templates.push_back(MemberString(file.Root(), "id"));
		});
	EXPECT_GE(templates.size(), 10u);
	std::set<std::string> used;
	for (const std::string &name : SessionNames())
	{
		CKeyValues3Context session;
		ASSERT_TRUE(LoadKV3File(kSessions + name + ".session.txt", session));
		used.insert(MemberString(session.Root(), "template_name"));
	}
	for (const std::string &id : templates)
		EXPECT_TRUE(used.count(id)) << "no sample session of the template " << id;
	std::set<std::string> wearableHeroes;
	int abilityIcons = 0;
	for (const std::string &id : used)
	{
		if (id.rfind("wearable.", 0) == 0)
			wearableHeroes.insert(id.substr(9, id.find('.', 9) - 9));
		abilityIcons += id.rfind("abilityicons.", 0) == 0;
	}
	EXPECT_GE(wearableHeroes.size(), 2u);
	EXPECT_GE(abilityIcons, 1);

	// This test lists every session, and only those.
	std::vector<std::string> listed;
	for (const Expected_t &e : ExpectedSessions())
		listed.push_back(e.m_Session);
	EXPECT_EQ(SessionNames(), listed);
}

TEST(SampleSessions, EachValidatesWithOnlyTheWarningsListed)
{
	for (const Expected_t &expected : ExpectedSessions())
	{
		SCOPED_TRACE(expected.m_Session);
		const CommandResult_t result = RunQuietly(kMintyard + " validate --tokens --game " + kGame + " " + kSessions + expected.m_Session + ".session.txt");
		EXPECT_EQ(result.exitCode, 0) << result.output;
		EXPECT_EQ(Lines(result.output), expected.m_ValidateWarnings) << "validate gave:\n" << Joined(Lines(result.output));
	}
}

namespace
{
// A source as assimp reads it: triangles, the bones that carry weights, every node's name, the
// nodes that an animation moves, and its vertices.
struct ReadSource_t
{
	bool m_bOk = false;
	std::string m_Error;
	int m_nTriangles = 0;
	int m_nVertices = 0;
	std::set<std::string> m_WeightedBones;
	std::set<std::string> m_Nodes;
	std::set<std::string> m_AnimatedNodes;
};

ReadSource_t ReadSource(const std::string &path)
{
	ReadSource_t out;
	Assimp::Importer importer;
	const aiScene *scene = importer.ReadFile(path, aiProcess_Triangulate);
	if (!scene)
	{
		out.m_Error = importer.GetErrorString();
		return out;
	}
	out.m_bOk = true;
	for (unsigned m = 0; m < scene->mNumMeshes; ++m)
	{
		const aiMesh *mesh = scene->mMeshes[m];
		out.m_nVertices += (int)mesh->mNumVertices;
		for (unsigned f = 0; f < mesh->mNumFaces; ++f)
			out.m_nTriangles += mesh->mFaces[f].mNumIndices == 3;
		for (unsigned b = 0; b < mesh->mNumBones; ++b)
		{
			if (mesh->mBones[b]->mNumWeights > 0)
				out.m_WeightedBones.insert(mesh->mBones[b]->mName.C_Str());
		}
	}
	std::function<void(const aiNode *)> walk = [&](const aiNode *node)
	{
		out.m_Nodes.insert(node->mName.C_Str());
		for (unsigned i = 0; i < node->mNumChildren; ++i)
			walk(node->mChildren[i]);
	};
	walk(scene->mRootNode);
	for (unsigned a = 0; a < scene->mNumAnimations; ++a)
	{
		for (unsigned c = 0; c < scene->mAnimations[a]->mNumChannels; ++c)
		{
			std::string name = scene->mAnimations[a]->mChannels[c]->mNodeName.C_Str();
			// assimp names the parts of a node's transform "<node>_$AssimpFbx$_<part>".
			const size_t helper = name.find("_$AssimpFbx$_");
			out.m_AnimatedNodes.insert(helper == std::string::npos ? name : name.substr(0, helper));
		}
	}
	return out;
}

bool IsPowerOfTwo(int n) { return n > 0 && (n & (n - 1)) == 0; }

// The sample game's file system and data, for as long as it lives.
class CSampleGame
{
public:
	CSampleGame()
	{
		m_pFileSystem = CreateFileSystem();
		m_pFileSystem->AddSearchPath(kGame.c_str(), "GAME");
		m_pPrevious = g_pFullFileSystem;
		g_pFullFileSystem = m_pFileSystem;
		m_pPreviousCore = SetCoreFileSystem(m_pFileSystem);
		ReloadGameData();
	}
	~CSampleGame()
	{
		g_pFullFileSystem = m_pPrevious;
		SetCoreFileSystem(m_pPreviousCore);
		DestroyFileSystem(m_pFileSystem);
	}
	CSampleGame(const CSampleGame &) = delete;
	CSampleGame &operator=(const CSampleGame &) = delete;

private:
	IFileSystem *m_pFileSystem = nullptr;
	IFileSystem *m_pPrevious = nullptr;
	IBaseFileSystem *m_pPreviousCore = nullptr;
};

// The checks of one model of a session.
void CheckModel(const CMintyardCfg_ZarnModel &model, const CMintyardImportSession &session)
{
	const CMintyardTemplate_ZarnModel &tmpl = *model.GetModelTemplate();
	SCOPED_TRACE(tmpl.id.c_str());
	// The hero whose skeleton a wearable must be skinned to: that of the one item definition,
	// when it names a hero and a slot.
	std::set<std::string> heroBones;
	if (session.m_ItemDefs.size() == 1)
	{
		const CMintyardTemplate_ZarnItemDef *def = session.m_ItemDefs[0]->GetItemDefTemplate();
		const hero_t *hero = GetHeroTable().Get(def->hero_name);
		if (hero && def->loadout_slot >= 0 && !hero->personaModels.empty())
		{
			const int persona = hero->slots[def->loadout_slot].persona;
			for (const ModelEntry_t &entry : hero->personaModels[0])
			{
				if (entry.persona == persona)
				{
					const std::string stem = std::string(entry.model.c_str()).substr(0, entry.model.size() - 5);
					const ReadSource_t reference = ReadSource(kContent + stem + ".fbx");
					ASSERT_TRUE(reference.m_bOk) << stem << ": " << reference.m_Error;
					heroBones = reference.m_Nodes;
				}
			}
			EXPECT_FALSE(heroBones.empty()) << "no model of " << hero->name.c_str() << " for the slot's persona";
		}
	}

	// Levels of detail: budgets of the level with its extra meshes, and the bones.
	std::set<std::string> skeleton; // every node of the model's meshes
	for (const CMintyardCfg_ZarnMesh *lod : model.m_Lods)
	{
		if (lod->Value().empty())
			continue;
		const CMintyardTemplate_ZarnMesh &budget = *lod->GetMeshTemplate();
		SCOPED_TRACE(lod->Value().c_str());
		int triangles = 0;
		std::set<std::string> bones;
		std::vector<const CMintyardCfg_ZarnMesh *> meshes = { lod };
		for (const CMintyardCfg_ZarnMesh *extra : lod->m_ExtraMeshes)
		{
			if (!extra->Value().empty())
				meshes.push_back(extra);
		}
		for (const CMintyardCfg_ZarnMesh *mesh : meshes)
		{
			const ReadSource_t source = ReadSource(mesh->Value().c_str());
			ASSERT_TRUE(source.m_bOk) << source.m_Error;
			EXPECT_GT(source.m_nTriangles, 0);
			triangles += source.m_nTriangles;
			bones.insert(source.m_WeightedBones.begin(), source.m_WeightedBones.end());
			skeleton.insert(source.m_Nodes.begin(), source.m_Nodes.end());
			// Skinned to the hero: at least one bone that carries weights is one of the hero's.
			if (!heroBones.empty() && !model.m_bHasCustomSkeleton)
			{
				EXPECT_TRUE(std::any_of(source.m_WeightedBones.begin(), source.m_WeightedBones.end(),
					[&](const std::string &bone) { return heroBones.count(bone) > 0; }))
					<< mesh->Value().c_str() << " follows none of the hero's bones";
			}
		}
		EXPECT_LE(triangles, budget.max_polygons) << "triangles over the budget";
		EXPECT_LE((int)bones.size(), budget.max_bones) << "bones over the budget";
	}
	if (model.m_Lods.size() && !skeleton.empty())
	{
		// Attachments sit on joints the meshes have.
		for (const CMintyardCfg_ZarnModel::CAttach *attach : model.m_Attaches)
		{
			if (!attach->Value().empty())
			{
				EXPECT_TRUE(skeleton.count(attach->Value().c_str())) << "attachment joint " << attach->Value().c_str();
			}
		}
		// Animations (the session's own and the template's defaults) move only bones the model has.
		std::vector<const CMintyardCfg_ZarnModel::CAnim *> anims(model.m_Anims.begin(), model.m_Anims.end());
		for (const CMintyardCfg_ZarnModel::CAnimBundle *bundle : model.m_Bundles)
			anims.insert(anims.end(), bundle->m_Anims.begin(), bundle->m_Anims.end());
		for (const CMintyardCfg_ZarnModel::CAnim *anim : anims)
		{
			std::string file = anim->Value().c_str();
			CUtlString fallback;
			if (file.empty() && GetDefaultFile(anim, &fallback))
				file = kGame + fallback.c_str();
			if (file.empty())
				continue;
			SCOPED_TRACE(file);
			const ReadSource_t source = ReadSource(file);
			ASSERT_TRUE(source.m_bOk) << source.m_Error;
			EXPECT_FALSE(source.m_AnimatedNodes.empty());
			for (const std::string &node : source.m_AnimatedNodes)
				EXPECT_TRUE(skeleton.count(node)) << "the animation moves " << node << ", which the model has not";
		}
	}
	// Particle snapshots: the template's bone is in the file, and the points within the limit.
	for (const CMintyardCfg_ZarnModel::CParticleSnapshot *snapshot : model.m_Snapshots)
	{
		if (snapshot->Value().empty())
			continue;
		const CMintyardTemplate_ZarnModel::CParticleSnapshot &st = *snapshot->GetSnapshotTemplate();
		const ReadSource_t source = ReadSource(snapshot->Value().c_str());
		ASSERT_TRUE(source.m_bOk) << source.m_Error;
		EXPECT_TRUE(source.m_Nodes.count(st.snapshot_bone.c_str())) << st.snapshot_bone.c_str();
		EXPECT_TRUE(source.m_WeightedBones.count(st.snapshot_bone.c_str())) << "the snapshot does not follow " << st.snapshot_bone.c_str();
		if (st.max_vertices > 0)
		{
			EXPECT_LE(source.m_nVertices, st.max_vertices);
		}
	}
	// Textures: at least the template's size, powers of two, in its proportions.
	for (const CMintyardCfg_ZarnMaterial *material : model.m_Materials)
	{
		const CMintyardTemplate_ZarnMaterial &mt = *material->GetMaterialTemplate();
		for (const CMintyardCfgFilename *texture : material->m_pTextures)
		{
			if (!texture || texture->Value().empty())
				continue;
			SCOPED_TRACE(texture->Value().c_str());
			const QImage image(QString::fromUtf8(texture->Value().c_str()));
			ASSERT_FALSE(image.isNull());
			const int w = image.width(), h = image.height(), W = mt.max_tex_width, H = mt.max_tex_height;
			EXPECT_TRUE(W >= 1 && H >= 1 && w >= W && h >= H && IsPowerOfTwo(w) && IsPowerOfTwo(h) && w / W == h / H)
				<< w << "x" << h << " for " << W << "x" << H;
		}
	}
}
} // namespace

TEST(SampleSessions, WhatEachNamesFitsItsTemplate)
{
	CSampleGame game;
	int models = 0;
	for (const std::string &name : SessionNames())
	{
		SCOPED_TRACE(name);
		CMintyardImportSession session;
		ImportMessageList list;
		ASSERT_TRUE(session.GetCatalogue().LoadTemplates(list));
		LoadContext ctx;
		ctx.rewritePaths = true;
		ctx.basePath = kSessions.c_str();
		ASSERT_TRUE(LoadSessionFile(session, ctx, (kSessions + name + ".session.txt").c_str(), list)) << list.Count();
		for (const CMintyardCfg_ZarnModel *model : session.m_Models)
		{
			CheckModel(*model, session);
			++models;
		}
	}
	EXPECT_GE(models, 9);
}

namespace
{
// A copy of the sample tree (game, content, the art and the sessions) in a folder of its own.
class CSampleTreeCopy
{
public:
	CSampleTreeCopy()
	{
		for (const char *folder : { "game", "content", "art", "sessions" })
		{
			std::error_code error;
			fs::copy(kSample + "/" + folder, m_Dir.Path(folder), fs::copy_options::recursive, error);
			EXPECT_FALSE(error) << folder << ": " << error.message();
		}
	}
	std::string Path(const std::string &relative) const { return m_Dir.Path(relative); }

private:
	CTempDirectory m_Dir;
};

std::string ReadBytes(const std::string &path)
{
	CUtlBuffer buffer;
	if (!Plat_ReadFile(path.c_str(), buffer))
		return "<cannot read " + path + ">";
	return std::string((const char *)buffer.Base(), buffer.Size());
}

// A file an import wrote: a copy is the file it was placed from (so no two inputs took one name),
// and a compiled model, as `resourcecompiler info --json` describes it, has triangles in every mesh.
void CheckPlaced(const CSampleTreeCopy &tree, const Placed_t &placed)
{
	const std::string path = tree.Path(placed.m_Path);
	SCOPED_TRACE(placed.m_Path);
	ASSERT_TRUE(fs::exists(path)) << "not written";
	if (!placed.m_Source.empty())
	{
		EXPECT_TRUE(ReadBytes(path) == ReadBytes(tree.Path(placed.m_Source))) << "not a copy of " << placed.m_Source;
	}
	if (path.size() < 7 || path.compare(path.size() - 7, 7, ".zmdl_c") != 0)
		return;
	const CommandResult_t info = RunQuietly(kResourceCompiler + " info --json " + path);
	ASSERT_EQ(info.exitCode, 0) << info.output;
	rapidjson::Document json;
	json.Parse(info.output.c_str());
	ASSERT_FALSE(json.HasParseError()) << info.output;
	ASSERT_TRUE(json.IsObject() && json.HasMember("meshes") && json["meshes"].IsArray()) << info.output;
	EXPECT_GE(json["meshes"].Size(), 1u);
	for (const rapidjson::Value &mesh : json["meshes"].GetArray())
	{
		ASSERT_TRUE(mesh.IsObject() && mesh.HasMember("triangles") && mesh["triangles"].IsInt()) << info.output;
		EXPECT_GT(mesh["triangles"].GetInt(), 0) << (mesh.HasMember("name") && mesh["name"].IsString() ? mesh["name"].GetString() : "");
	}
}
} // namespace

TEST(SampleSessions, EachImportsOnACopyOfTheSampleTree)
{
	ASSERT_TRUE(fs::exists(kResourceCompiler)) << "the import compiles with " << kResourceCompiler;
	CSampleTreeCopy tree;
	const std::string game = tree.Path("game/zarn");
	// The wearables' checks compare their bones with the heroes' compiled models.
	for (const char *hero : { "bramble", "cinder", "tidewarden" })
	{
		const std::string model = tree.Path(std::string("content/zarn/models/heroes/") + hero + "/" + hero + ".zmdl");
		const CommandResult_t result = RunCommand(kResourceCompiler + " -game " + game + " " + model);
		ASSERT_EQ(result.exitCode, 0) << result.output;
	}
	for (const Expected_t &expected : ExpectedSessions())
	{
		SCOPED_TRACE(expected.m_Session);
		const CommandResult_t result = RunQuietly(kMintyard + " import --tokens --game " + game + " " + tree.Path("sessions/" + expected.m_Session + ".session.txt"));
		EXPECT_EQ(result.exitCode, 0) << result.output;
		EXPECT_EQ(Lines(result.output), expected.m_ImportWarnings) << "import gave:\n" << Joined(Lines(result.output));
		for (const Placed_t &placed : expected.m_Placed)
			CheckPlaced(tree, placed);
		for (const Placed_t &placed : expected.m_Compiled)
			CheckPlaced(tree, placed);
	}
}
