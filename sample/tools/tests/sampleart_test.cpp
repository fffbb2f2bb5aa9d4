// The sample game's art: the generators are deterministic and the committed files are what they
// make; assimp reads every FBX file as the generator meant it; the items fit their slots'
// budgets; every asset that the sample's scripts and templates name has its source; the
// figures, drawn from what assimp reads, look like figures and move; and the art of the sample
// sessions sits on its skeletons, and its cursors and music read back through SDL.

#include <gtest/gtest.h>

#include <assimp/Importer.hpp>
#include <assimp/config.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <QImage>
#include <QPainter>

#include <SDL.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <map>
#include <set>

#include <rapidjson/document.h>

#include "artrender.h"
#include "core/fileio.h"
#include "core/keyvalues.h"
#include "core/keyvalues3.h"
#include "core/kv3text.h"
#include "sampleart/artmesh.h"
#include "sampleart/fbxwriter.h"
#include "sampleart/sampleart.h"
#include "testsupport/test_support.h"

namespace fs = std::filesystem;
using namespace sampleart;

namespace
{
const std::string kSample = MINTYARD_SOURCE_DIR "/sample";
const std::string kContent = kSample + "/content/zarn/";
const std::string kGame = kSample + "/game/zarn/";

// One generation into a temporary folder, shared by the tests that read what was made.
struct Generation_t
{
	CTempDirectory m_Dir;
	SampleArtReport_t m_Report;
	bool m_bOk = false;
	Generation_t() { m_bOk = GenerateSampleArt(kSample, m_Dir.Path(), m_Report); }
};
const Generation_t &Generated()
{
	static Generation_t generation;
	return generation;
}

std::string ReadBytes(const std::string &path)
{
	CUtlBuffer buffer;
	if (!Plat_ReadFile(path.c_str(), buffer))
		return std::string("<cannot read ") + path + ">";
	return std::string((const char *)buffer.Base(), buffer.Size());
}

std::unique_ptr<KeyValues> LoadScript(const char *root, const std::string &path)
{
	auto kv = std::make_unique<KeyValues>(root);
	CUtlString error;
	EXPECT_TRUE(kv->LoadFromFile(nullptr, path.c_str(), nullptr, KV1LoadOptions_t(), &error)) << error;
	return kv;
}

bool EndsWith(const std::string &text, const std::string &end) { return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0; }

const aiNode *FindNode(const aiNode *node, const std::string &name)
{
	if (name == node->mName.C_Str())
		return node;
	for (unsigned i = 0; i < node->mNumChildren; ++i)
	{
		if (const aiNode *found = FindNode(node->mChildren[i], name))
			return found;
	}
	return nullptr;
}
} // namespace

TEST(SampleArt, GeneratesWithoutErrors)
{
	const Generation_t &g = Generated();
	for (const std::string &error : g.m_Report.m_Errors)
		ADD_FAILURE() << error;
	EXPECT_TRUE(g.m_bOk);
	EXPECT_GT(g.m_Report.m_Fbx.size(), 40u);
}

TEST(SampleArt, SameBytesOnEveryRun)
{
	const Generation_t &first = Generated();
	CTempDirectory second;
	SampleArtReport_t report;
	ASSERT_TRUE(GenerateSampleArt(kSample, second.Path(), report));
	ASSERT_EQ(first.m_Report.m_Files, report.m_Files);
	for (const std::string &file : report.m_Files)
		EXPECT_TRUE(ReadBytes(first.m_Dir.Path(file)) == ReadBytes(second.Path(file))) << file;
}

TEST(SampleArt, CommittedArtIsWhatTheGeneratorsMake)
{
	// The generator reads the committed items_game.txt and writes it back with its own keys:
	// the committed one is already that fixed point.
	const Generation_t &g = Generated();
	for (const std::string &file : g.m_Report.m_Files)
	{
		ASSERT_TRUE(fs::exists(kSample + "/" + file)) << file << " is not committed: run scripts/make-sample-art.sh";
		EXPECT_TRUE(ReadBytes(g.m_Dir.Path(file)) == ReadBytes(kSample + "/" + file)) << file << " differs: run scripts/make-sample-art.sh";
	}
}

TEST(SampleArt, AssimpReadsEveryFbxAsItWasMade)
{
	const Generation_t &g = Generated();
	for (const GeneratedFbx_t &fbx : g.m_Report.m_Fbx)
	{
		SCOPED_TRACE(fbx.m_Path);
		Assimp::Importer importer;
		importer.SetPropertyBool(AI_CONFIG_IMPORT_FBX_OPTIMIZE_EMPTY_ANIMATION_CURVES, false);
		const aiScene *scene = importer.ReadFile(g.m_Dir.Path(fbx.m_Path), aiProcess_Triangulate | aiProcess_ValidateDataStructure);
		ASSERT_NE(scene, nullptr) << importer.GetErrorString();

		// Geometry: a vertex per polygon corner, quads in two triangles each.
		unsigned vertices = 0, faces = 0;
		std::set<std::string> bones;
		for (unsigned m = 0; m < scene->mNumMeshes; ++m)
		{
			const aiMesh *mesh = scene->mMeshes[m];
			vertices += mesh->mNumVertices;
			faces += mesh->mNumFaces;
			EXPECT_TRUE(mesh->HasNormals());
			EXPECT_TRUE(mesh->HasTextureCoords(0));
			std::vector<double> sums(mesh->mNumVertices, 0.0);
			for (unsigned b = 0; b < mesh->mNumBones; ++b)
			{
				bones.insert(mesh->mBones[b]->mName.C_Str());
				for (unsigned w = 0; w < mesh->mBones[b]->mNumWeights; ++w)
					sums[mesh->mBones[b]->mWeights[w].mVertexId] += mesh->mBones[b]->mWeights[w].mWeight;
			}
			if (mesh->mNumBones)
			{
				for (unsigned v = 0; v < mesh->mNumVertices; ++v)
					ASSERT_NEAR(sums[v], 1.0, 1e-3) << "vertex " << v << " of " << mesh->mName.C_Str();
			}
		}
		EXPECT_EQ(vertices, (unsigned)fbx.m_nCorners);
		EXPECT_EQ(faces, (unsigned)fbx.m_nTriangles);
		EXPECT_EQ(bones, std::set<std::string>(fbx.m_WeightedBones.begin(), fbx.m_WeightedBones.end()));
		for (const std::string &bone : fbx.m_Bones)
			EXPECT_NE(FindNode(scene->mRootNode, bone), nullptr) << bone;

		// Animations: names, durations, and a key on every frame of every animated bone.
		ASSERT_EQ(scene->mNumAnimations, fbx.m_Animations.size());
		for (unsigned a = 0; a < scene->mNumAnimations; ++a)
		{
			const aiAnimation *anim = scene->mAnimations[a];
			const GeneratedAnimation_t &made = fbx.m_Animations[a];
			EXPECT_EQ(made.m_Name, anim->mName.C_Str());
			ASSERT_GT(anim->mTicksPerSecond, 0.0);
			EXPECT_NEAR(anim->mDuration / anim->mTicksPerSecond, made.m_flDuration, 1e-3);
			EXPECT_GE(made.m_flDuration, 1.0);
			EXPECT_EQ(made.m_nFrameRate, 30);
			std::set<std::string> channels;
			for (unsigned c = 0; c < anim->mNumChannels; ++c)
			{
				const aiNodeAnim *channel = anim->mChannels[c];
				channels.insert(channel->mNodeName.C_Str());
				EXPECT_EQ(channel->mNumRotationKeys, (unsigned)made.m_nFrames) << channel->mNodeName.C_Str();
				EXPECT_EQ(channel->mNumPositionKeys, (unsigned)made.m_nFrames) << channel->mNodeName.C_Str();
			}
			EXPECT_EQ(channels, std::set<std::string>(made.m_AnimatedBones.begin(), made.m_AnimatedBones.end()));
		}
	}
}

TEST(SampleArt, EveryModelSlotHasAnItemWithinItsBudget)
{
	const Generation_t &g = Generated();
	auto heroes = LoadScript("ZARNHeroes", kGame + "scripts/npc/npc_heroes.txt");
	int slotsWithModels = 0;
	for (KeyValues *hero = heroes->GetFirstTrueSubKey(); hero; hero = hero->GetNextTrueSubKey())
	{
		KeyValues *slotList = hero->FindKey("ItemSlots");
		for (KeyValues *slot = slotList ? slotList->GetFirstTrueSubKey() : nullptr; slot; slot = slot->GetNextTrueSubKey())
		{
			if (slot->GetInt("MaxPolygonsLOD0", 0) <= 0)
				continue;
			++slotsWithModels;
			const std::string name = slot->GetString("SlotName");
			auto it = std::find_if(g.m_Report.m_Items.begin(), g.m_Report.m_Items.end(),
				[&](const GeneratedItem_t &item) { return item.m_Hero == hero->GetName() && item.m_Slot == name; });
			ASSERT_NE(it, g.m_Report.m_Items.end()) << hero->GetName() << " " << name;
			SCOPED_TRACE(it->m_Model);
			EXPECT_GT(it->m_nTrianglesLOD0, 0);
			EXPECT_LE(it->m_nTrianglesLOD0, slot->GetInt("MaxPolygonsLOD0"));
			EXPECT_LE(it->m_nTrianglesLOD1, slot->GetInt("MaxPolygonsLOD1"));
			EXPECT_LE(it->m_nTrianglesLOD1, it->m_nTrianglesLOD0);
			EXPECT_GE(it->m_nBonesLOD0, 1);
			EXPECT_LE(it->m_nBonesLOD0, slot->GetInt("MaxBonesLOD0", 60));
			EXPECT_LE(it->m_nBonesLOD1, slot->GetInt("MaxBonesLOD1", 60));
		}
	}
	EXPECT_EQ(slotsWithModels, (int)g.m_Report.m_Items.size());
	EXPECT_GE(slotsWithModels, 12);
}

namespace
{
// Every path a KV3 document names under `key`, wherever it stands.
void CollectKV3Strings(const KeyValues3 *value, const std::string &key, std::vector<std::string> &out)
{
	if (value->IsArray())
		value->ForEachArrayElement([&](const KeyValues3 *e) { CollectKV3Strings(e, key, out); });
	else if (value->IsTable())
	{
		value->ForEachMember(
			[&](std::string_view name, uint32, const KeyValues3 *member)
			{
				if (name == key && member->IsString())
					out.push_back(member->GetString());
				else
					CollectKV3Strings(member, key, out);
			});
	}
}

bool LoadKV3File(const std::string &path, CKeyValues3Context &context, const KV3ID_t &format = KV3_FORMAT_GENERIC)
{
	CUtlBuffer buffer;
	CUtlString error;
	if (!Plat_ReadFile(path.c_str(), buffer, &error))
	{
		ADD_FAILURE() << error;
		return false;
	}
	if (!LoadKV3(context.Root(), &error, std::string_view((const char *)buffer.Base(), buffer.Size()), format, path.c_str()))
	{
		ADD_FAILURE() << error;
		return false;
	}
	return true;
}

// The paths a model document names: meshes, animations and materials.
void CheckModelDocument(const std::string &model)
{
	SCOPED_TRACE(model);
	const std::string text = ReadBytes(kContent + model);
	KV3HeaderInfo_t header;
	ASSERT_TRUE(KV3ReadHeader(text, header));
	EXPECT_EQ(header.formatName, "modeldoc32");
	EXPECT_EQ(KV3HeaderLine(KV3_ENCODING_TEXT, header.Format()),
		"<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:modeldoc32:version{8ba9eb32-178d-4b95-a5d4-53826fa12ff1} -->");
	CKeyValues3Context context;
	ASSERT_TRUE(LoadKV3File(kContent + model, context));
	const KeyValues3 *root = context.Root();
	ASSERT_NE(FindMember(root, "extra_data"), nullptr);
	const KeyValues3 *rootNode = FindMember(root, "rootNode");
	ASSERT_NE(rootNode, nullptr);
	EXPECT_STREQ(GetMemberString(rootNode, "_class"), "RootNode");
	// Every node carries its class, note, children and dynamic attributes.
	std::map<std::string, int> classes;
	std::function<void(const KeyValues3 *)> walk = [&](const KeyValues3 *node)
	{
		const std::string nodeClass = GetMemberString(node, "_class");
		EXPECT_FALSE(nodeClass.empty());
		++classes[nodeClass];
		EXPECT_TRUE(FindMember(node, "note") && FindMember(node, "note")->IsString()) << nodeClass;
		EXPECT_TRUE(FindMember(node, "dynamic_attributes") && FindMember(node, "dynamic_attributes")->IsTable()) << nodeClass;
		const KeyValues3 *children = FindMember(node, "children");
		ASSERT_TRUE(children && children->IsArray()) << nodeClass;
		children->ForEachArrayElement([&](const KeyValues3 *child) { walk(child); });
	};
	walk(rootNode);
	for (const char *needed : { "RenderMeshList", "RenderMeshFile", "LODGroupList", "LODGroup", "MaterialGroupList", "DefaultMaterialGroup",
			 "AnimationList", "AnimBindPose" })
		EXPECT_GE(classes[needed], 1) << needed;
	std::vector<std::string> files;
	CollectKV3Strings(root, "filename", files);
	CollectKV3Strings(root, "source_filename", files);
	CollectKV3Strings(root, "global_default_material", files);
	EXPECT_GE(files.size(), 2u);
	for (const std::string &file : files)
		EXPECT_TRUE(fs::exists(kContent + file)) << file;
}

void CheckMaterial(const std::string &material)
{
	SCOPED_TRACE(material);
	auto layer = LoadScript("Layer0", kContent + material);
	EXPECT_STREQ(layer->GetString("Shader"), "hero.zfx");
	for (KeyValues *key = layer->GetFirstValue(); key; key = key->GetNextValue())
	{
		const std::string name = key->GetName(), value = key->GetString();
		if (name.rfind("Texture", 0) != 0 || value.empty() || value[0] == '[')
			continue;
		EXPECT_TRUE(fs::exists(kContent + value)) << name << " " << value;
		const std::string settings = value.substr(0, value.find_last_of('.')) + ".txt";
		auto kv = LoadScript("settings", kContent + settings);
		EXPECT_GT(kv->GetInt("maxres", 0), 0) << settings;
	}
}
} // namespace

TEST(SampleArt, EveryAssetTheScriptsNameHasItsSource)
{
	std::set<std::string> models, materials, gameFiles;
	// Heroes: "Model%d" of each block and of each persona block.
	auto heroes = LoadScript("ZARNHeroes", kGame + "scripts/npc/npc_heroes.txt");
	std::function<void(KeyValues *)> heroModels = [&](KeyValues *block)
	{
		for (KeyValues *v = block->GetFirstValue(); v; v = v->GetNextValue())
		{
			if (std::string(v->GetName()).rfind("Model", 0) == 0 && EndsWith(v->GetString(), ".zmdl"))
				models.insert(v->GetString());
		}
		if (KeyValues *persona = block->FindKey("Persona"))
		{
			for (KeyValues *p = persona->GetFirstTrueSubKey(); p; p = p->GetNextTrueSubKey())
				heroModels(p);
		}
	};
	for (KeyValues *hero = heroes->GetFirstTrueSubKey(); hero; hero = hero->GetNextTrueSubKey())
		heroModels(hero);
	EXPECT_EQ(models.size(), 7u); // base, bramble with its three others, cinder, tidewarden
	auto units = LoadScript("ZARNUnits", kGame + "scripts/npc/npc_units.txt");
	for (KeyValues *unit = units->GetFirstTrueSubKey(); unit; unit = unit->GetNextTrueSubKey())
	{
		EXPECT_TRUE(EndsWith(unit->GetString("Model"), ".zmdl")) << unit->GetName();
		models.insert(unit->GetString("Model"));
	}
	// Items: "model_player%d" and the models of their visuals.
	auto items = LoadScript("items_game", kGame + "scripts/items/items_game.txt");
	KeyValues *itemList = items->FindKey("items");
	ASSERT_NE(itemList, nullptr);
	const std::set<std::string> modelVisuals = { "entity_model", "hero_model_change", "additional_wearable", "courier", "courier_flying", "pet" };
	int visualModels = 0;
	for (KeyValues *item = itemList->GetFirstTrueSubKey(); item; item = item->GetNextTrueSubKey())
	{
		for (KeyValues *v = item->GetFirstValue(); v; v = v->GetNextValue())
		{
			if (std::string(v->GetName()).rfind("model_player", 0) == 0)
				models.insert(v->GetString());
		}
		KeyValues *visuals = item->FindKey("visuals");
		for (KeyValues *entry = visuals ? visuals->GetFirstTrueSubKey() : nullptr; entry; entry = entry->GetNextTrueSubKey())
		{
			const std::string type = entry->GetString("type");
			if (modelVisuals.count(type))
			{
				for (const char *key : { "asset", "modifier" })
				{
					if (EndsWith(entry->GetString(key), ".zmdl"))
					{
						models.insert(entry->GetString(key));
						++visualModels;
					}
				}
			}
			else if (type == "loading_screen")
			{
				EXPECT_TRUE(fs::exists(kContent + "canopy/images/" + entry->GetString("asset"))) << entry->GetString("asset");
			}
		}
	}
	EXPECT_GE(visualModels, 12);
	// The heroes' default sets name their items.
	KeyValues *sets = items->FindKey("item_sets");
	ASSERT_NE(sets, nullptr);
	int setCount = 0;
	for (KeyValues *set = sets->GetFirstTrueSubKey(); set; set = set->GetNextTrueSubKey(), ++setCount)
	{
		KeyValues *setItems = set->FindKey("items");
		ASSERT_NE(setItems, nullptr) << set->GetName();
		for (KeyValues *name = setItems->GetFirstValue(); name; name = name->GetNextValue())
		{
			bool found = false;
			for (KeyValues *item = itemList->GetFirstTrueSubKey(); item && !found; item = item->GetNextTrueSubKey())
				found = std::string(item->GetString("name")) == name->GetName() && std::string(item->GetString("item_set")) == set->GetName();
			EXPECT_TRUE(found) << set->GetName() << ": " << name->GetName();
		}
	}
	EXPECT_EQ(setCount, 3);
	// The manifest's template materials, and what the import templates name: template
	// materials in the content tree, default animations in the game tree.
	auto manifest = LoadScript("itemtest_manifest", kGame + "scripts/itemtest_manifest.txt");
	for (KeyValues *v = manifest->FindKey("zmt_templates")->FindKey("classes")->GetFirstValue(); v; v = v->GetNextValue())
		materials.insert(v->GetString());
	for (const auto &entry : fs::directory_iterator(kGame + "scripts/mintyard_import_templates"))
	{
		CKeyValues3Context context;
		if (!LoadKV3File(entry.path().string(), context))
			continue;
		std::vector<std::string> found;
		CollectKV3Strings(context.Root(), "template_zmat", found);
		materials.insert(found.begin(), found.end());
		found.clear();
		CollectKV3Strings(context.Root(), "default", found);
		for (const std::string &f : found)
		{
			if (EndsWith(f, ".fbx"))
				gameFiles.insert(f);
		}
		found.clear();
		CollectKV3Strings(context.Root(), "default_portrait_model", found);
		models.insert(found.begin(), found.end());
	}
	EXPECT_EQ(gameFiles.size(), 3u);
	for (const std::string &file : gameFiles)
		EXPECT_TRUE(fs::exists(kGame + file)) << file;
	// Every model document under the content tree, with everything it names, and its compiled
	// file under the game tree (the build compiles the sample).
	EXPECT_GE(models.size(), 20u);
	for (const std::string &model : models)
	{
		ASSERT_TRUE(fs::exists(kContent + model)) << model;
		CheckModelDocument(model);
		EXPECT_TRUE(fs::exists(kGame + model + "_c")) << model << " is not compiled";
	}
	for (const std::string &material : materials)
	{
		ASSERT_TRUE(fs::exists(kContent + material)) << material;
		CheckMaterial(material);
		// The materials that imports start from are read as they stand and never compiled.
		if (!EndsWith(material, "_template.zmat"))
			EXPECT_TRUE(fs::exists(kGame + material + "_c")) << material << " is not compiled";
	}
	// The editor's markers, the icon overlays and the portrait backgrounds.
	for (const char *marker : { "camera", "axis_helper_thick", "spot", "arrow" })
		CheckModelDocument(std::string("models/editor/") + marker + ".zmdl");
	CheckMaterial("materials/vgui/econ/item_icon_fg.zmat");
	CheckMaterial("materials/vgui/econ/item_icon_square.zmat");
	int portraitBackgrounds = 0, iconBackgrounds = 0;
	for (const auto &entry : fs::directory_iterator(kContent + "materials/vgui/hud/heroportraits"))
	{
		const std::string name = entry.path().filename().string();
		if (EndsWith(name, ".zmat") && name.rfind("portraitbackground", 0) == 0)
		{
			CheckMaterial("materials/vgui/hud/heroportraits/" + name);
			++portraitBackgrounds;
		}
	}
	for (const auto &entry : fs::directory_iterator(kContent + "materials/vgui/econ"))
	{
		const std::string name = entry.path().filename().string();
		if (EndsWith(name, ".zmat") && name.rfind("item_icon_bg", 0) == 0)
		{
			CheckMaterial("materials/vgui/econ/" + name);
			++iconBackgrounds;
		}
	}
	EXPECT_GE(portraitBackgrounds, 2);
	EXPECT_GE(iconBackgrounds, 2);
}

// Each hero's compiled model, as `resourcecompiler info` tells it: a skeleton holding the bone of
// every attachment its slots require, the attachments themselves, and the idle, run and portrait
// sequences with frames.
TEST(SampleArt, EachCompiledHeroHasItsAttachmentBonesAndSequences)
{
	auto heroes = LoadScript("ZARNHeroes", kGame + "scripts/npc/npc_heroes.txt");
	auto manifest = LoadScript("itemtest_manifest", kGame + "scripts/itemtest_manifest.txt");
	int nHeroes = 0, nRequired = 0;
	for (KeyValues *hero = heroes->GetFirstTrueSubKey(); hero; hero = hero->GetNextTrueSubKey())
	{
		const std::string model = hero->GetString("Model");
		const std::string name = hero->GetName();
		if (model.empty() || name == "npc_zarn_hero_base")
			continue;
		++nHeroes;
		const CommandResult_t info = RunCommand(MINTYARD_BINARY_DIR "/bin/resourcecompiler info --json " + kGame + model + "_c");
		rapidjson::Document json;
		json.Parse(info.output.c_str());
		ASSERT_TRUE(json.IsObject() && json.HasMember("skeleton") && json.HasMember("attachments") && json.HasMember("sequences"))
			<< model << ": " << info.output;
		std::set<std::string> bones, attachments;
		std::map<std::string, int> sequences;
		for (const auto &bone : json["skeleton"].GetArray())
			bones.insert(bone["name"].GetString());
		for (const auto &attachment : json["attachments"].GetArray())
			attachments.insert(attachment["name"].GetString());
		for (const auto &sequence : json["sequences"].GetArray())
			sequences[sequence["name"].GetString()] = sequence["frames"].GetInt();
		EXPECT_GT(bones.size(), 10u) << model;
		for (const char *sequence : { "idle", "run", "portrait_pose" })
			EXPECT_GT(sequences[sequence], 0) << model << " has no frames of " << sequence;
		// The attachments that the manifest requires for the hero's slots, on bones of its skeleton.
		std::set<std::string> slotNames;
		if (KeyValues *itemSlots = hero->FindKey("ItemSlots"))
			for (KeyValues *slot = itemSlots->GetFirstTrueSubKey(); slot; slot = slot->GetNextTrueSubKey())
				slotNames.insert(slot->GetString("SlotName"));
		const std::string folder = name.substr(name.rfind('_') + 1);
		KeyValues *required = manifest->FindKey(("classes/" + folder + "/required_attachments").c_str());
		for (KeyValues *slot = required ? required->GetFirstTrueSubKey() : nullptr; slot; slot = slot->GetNextTrueSubKey())
		{
			if (!slotNames.count(slot->GetName()))
				continue; // a slot the hero does not have is passed over
			for (KeyValues *point = slot->GetFirstTrueSubKey(); point; point = point->GetNextTrueSubKey(), ++nRequired)
				EXPECT_TRUE(bones.count(point->GetString("bone_name"))) << model << " lacks the bone " << point->GetString("bone_name");
		}
		EXPECT_TRUE(attachments.count("attach_head")) << model;
	}
	EXPECT_GE(nHeroes, 3);
	EXPECT_GT(nRequired, 0); // the manifest's attachments were found
}

TEST(SampleArt, OverlaysHaveTheirAlpha)
{
	const QImage fg(QString::fromStdString(kContent + "materials/vgui/econ/item_icon_fg_color.png"));
	const QImage square(QString::fromStdString(kContent + "materials/vgui/econ/item_icon_square_color.png"));
	ASSERT_FALSE(fg.isNull());
	ASSERT_FALSE(square.isNull());
	EXPECT_TRUE(fg.hasAlphaChannel());
	EXPECT_TRUE(square.hasAlphaChannel());
	// The vignette is clear in the middle and dark at the corners; the frame is opaque at its
	// edge and clear inside.
	EXPECT_EQ(qAlpha(fg.pixel(fg.width() / 2, fg.height() / 2)), 0);
	EXPECT_GT(qAlpha(fg.pixel(1, 1)), 128);
	EXPECT_EQ(qAlpha(square.pixel(square.width() / 2, square.height() / 2)), 0);
	EXPECT_EQ(qAlpha(square.pixel(3, square.height() / 2)), 255);
}

namespace
{
struct HeroPicture_t
{
	std::string m_Hero, m_Model;
	std::vector<std::string> m_Items; // models of the items worn with it
};

// The FBX file and colour texture of a model, as the generator names them.
artrender::RenderPart_t Part(const std::string &model, int lod = 0)
{
	const std::string stem = model.substr(0, model.size() - 5);
	std::string mesh = kContent + stem + (lod ? "_lod1.fbx" : ".fbx");
	// A model that shares another's mesh names it in its document.
	CKeyValues3Context context;
	if (LoadKV3File(kContent + model, context))
	{
		std::vector<std::string> files;
		CollectKV3Strings(context.Root(), "filename", files);
		if (!files.empty())
			mesh = kContent + files[std::min<size_t>(lod, files.size() - 1)];
	}
	return { mesh, kContent + "materials/" + stem + "_color.png" };
}

void SaveForLooking(const QImage &image, const std::string &name)
{
	const char *dir = getenv("MINTYARD_SAMPLE_RENDERS");
	if (!dir || !*dir)
		return;
	fs::create_directories(dir);
	QImage out(image.size(), QImage::Format_RGB32);
	out.fill(QColor(214, 218, 224));
	QPainter painter(&out);
	painter.drawImage(0, 0, image);
	painter.end();
	out.save(QString::fromStdString(std::string(dir) + "/" + name + ".png"));
}
} // namespace

TEST(SampleArt, FiguresStandAndMoveWithTheirItems)
{
	const std::vector<HeroPicture_t> pictures = {
		{ "bramble", "models/heroes/bramble/bramble.zmdl",
			{ "models/heroes/bramble/bramble_weapon.zmdl", "models/heroes/bramble/bramble_head.zmdl", "models/heroes/bramble/bramble_back.zmdl",
				"models/heroes/bramble/bramble_misc.zmdl" } },
		{ "bramble", "models/heroes/bramble/bramble_persona_1.zmdl",
			{ "models/heroes/bramble/bramble_weapon_persona_1.zmdl", "models/heroes/bramble/bramble_head_persona_1.zmdl" } },
		{ "bramble", "models/heroes/bramble/persona/bramble_elder.zmdl", {} },
		{ "bramble", "models/heroes/bramble/persona/bramble_elder_alt.zmdl", {} },
		{ "cinder", "models/heroes/cinder/cinder.zmdl",
			{ "models/heroes/cinder/cinder_weapon.zmdl", "models/heroes/cinder/cinder_head.zmdl", "models/heroes/cinder/cinder_arms.zmdl" } },
		{ "tidewarden", "models/heroes/tidewarden/tidewarden.zmdl", { "models/heroes/tidewarden/tidewarden_weapon.zmdl" } },
		{ "tidewarden", "models/heroes/tidewarden/spirit.zmdl", {} },
		{ "base", "models/heroes/base/base.zmdl", {} },
		{ "base", "models/units/base.zmdl", {} },
	};
	for (const HeroPicture_t &picture : pictures)
	{
		SCOPED_TRACE(picture.m_Model);
		std::vector<artrender::RenderPart_t> parts = { Part(picture.m_Model) };
		for (const std::string &item : picture.m_Items)
			parts.push_back(Part(item));
		const std::string anims = kContent + "animations/heroes/" + picture.m_Hero + "/" + picture.m_Hero + "_";
		std::string error;
		artrender::RenderView_t front;
		const QImage still = artrender::RenderParts(parts, front, error);
		ASSERT_FALSE(still.isNull()) << error;
		// A standing figure: taller than wide, filling a fair part of its frame.
		const artrender::Coverage_t coverage = artrender::MeasureCoverage(still);
		EXPECT_GT(coverage.m_flFilled, 0.08);
		EXPECT_LT(coverage.m_flFilled, 0.6);
		EXPECT_GT(coverage.m_flAspect, 1.3);
		EXPECT_LT(coverage.m_flAspect, 4.5);

		artrender::RenderView_t side = front;
		side.m_flYaw = 55.0;
		const QImage turned = artrender::RenderParts(parts, side, error);
		ASSERT_FALSE(turned.isNull()) << error;
		artrender::RenderView_t running = side;
		running.m_Animation = anims + "run.fbx";
		running.m_flTime = 0.25;
		const QImage run = artrender::RenderParts(parts, running, error);
		ASSERT_FALSE(run.isNull()) << error;
		EXPECT_GT(artrender::DifferentPixels(turned, run), 0.05);
		artrender::RenderView_t posing = front;
		posing.m_Animation = anims + "portrait_pose.fbx";
		posing.m_flTime = 0.5;
		const QImage portrait = artrender::RenderParts(parts, posing, error);
		ASSERT_FALSE(portrait.isNull()) << error;

		// Each item moves with the hero: drawn alone at bind and in the run, it is elsewhere.
		for (size_t i = 1; i < parts.size(); ++i)
		{
			const QImage alone = artrender::RenderParts({ parts[i] }, side, error);
			artrender::RenderView_t itemRunning = running;
			const QImage moved = artrender::RenderParts({ parts[i] }, itemRunning, error);
			ASSERT_FALSE(alone.isNull() || moved.isNull()) << error;
			EXPECT_GT(artrender::DifferentPixels(alone, moved), 0.01) << picture.m_Items[i - 1];
		}
		std::string name = fs::path(picture.m_Model).parent_path().filename().string() + "_" + fs::path(picture.m_Model).stem().string();
		SaveForLooking(still, name + "_front");
		SaveForLooking(turned, name + "_side");
		SaveForLooking(run, name + "_run");
		SaveForLooking(portrait, name + "_portrait");
	}
}

TEST(SampleArt, CouriersWardsAndMarkersDraw)
{
	struct Prop_t
	{
		std::string m_Model, m_Animation;
	};
	const std::vector<Prop_t> props = { { "models/props/courier/courier.zmdl", "animations/courier/courier_run.fbx" },
		{ "models/props/courier/courier_flying.zmdl", "animations/courier/courier_fly.fbx" },
		{ "models/items/courier/moss_tortoise/moss_tortoise.zmdl", "animations/courier/courier_run.fbx" },
		{ "models/items/courier/moss_tortoise/moss_tortoise_flying.zmdl", "animations/courier/courier_fly_idle.fbx" },
		{ "models/heroes/tidewarden/tidewarden_mount.zmdl", "animations/heroes/tidewarden/tidewarden_mount_run.fbx" },
		{ "models/props/ward/ward.zmdl", "animations/ward/ward_idle.fbx" },
		{ "models/props/ward/ward_sentry.zmdl", "animations/ward/ward_idle.fbx" },
		{ "models/items/wards/lantern/lantern.zmdl", "animations/ward/ward_idle.fbx" },
		{ "models/heroes/cinder/cinder_ability1.zmdl", "" }, { "models/editor/camera.zmdl", "" }, { "models/editor/axis_helper_thick.zmdl", "" },
		{ "models/editor/spot.zmdl", "" }, { "models/editor/arrow.zmdl", "" } };
	for (const Prop_t &prop : props)
	{
		SCOPED_TRACE(prop.m_Model);
		artrender::RenderPart_t part = Part(prop.m_Model);
		if (prop.m_Model.find("editor") != std::string::npos)
			part.m_Texture = kContent + "materials/editor/editor_marker_color.png";
		if (prop.m_Model.find("_flying") != std::string::npos)
			part.m_Texture = Part(prop.m_Model.substr(0, prop.m_Model.find("_flying")) + ".zmdl").m_Texture;
		std::string error;
		artrender::RenderView_t view;
		view.m_flYaw = 40.0;
		view.m_flPitch = 20.0;
		view.m_nWidth = view.m_nHeight = 256;
		const QImage still = artrender::RenderParts({ part }, view, error);
		ASSERT_FALSE(still.isNull()) << error;
		EXPECT_GT(artrender::MeasureCoverage(still).m_flFilled, 0.03);
		const std::string name = fs::path(prop.m_Model).stem().string();
		SaveForLooking(still, name);
		if (prop.m_Animation.empty())
			continue;
		view.m_Animation = kContent + prop.m_Animation;
		view.m_flTime = 0.3;
		const QImage moving = artrender::RenderParts({ part }, view, error);
		ASSERT_FALSE(moving.isNull()) << error;
		EXPECT_GT(artrender::DifferentPixels(still, moving), 0.01);
		SaveForLooking(moving, name + "_moving");
	}
}

TEST(SampleArt, TheSessionCourierDrawsWithTheTemplateAnimations)
{
	// The session's courier fits the couriers' skeleton: the template's default idle (in the
	// game tree) and its own spawn move it.
	const std::string art = kSample + "/art/courier/";
	const artrender::RenderPart_t body = { art + "courier_lod0.fbx", art + "courier_color.png" };
	const artrender::RenderPart_t bags = { art + "courier_saddlebag.fbx", "" };
	std::string error;
	artrender::RenderView_t view;
	view.m_flYaw = 40.0;
	view.m_nWidth = view.m_nHeight = 256;
	const QImage still = artrender::RenderParts({ body, bags }, view, error);
	ASSERT_FALSE(still.isNull()) << error;
	EXPECT_GT(artrender::MeasureCoverage(still).m_flFilled, 0.05);
	SaveForLooking(still, "session_courier");
	for (const std::string &anim : { kGame + "animations/courier/courier_idle.fbx", art + "courier_spawn.fbx", art + "courier_run_turn_left.fbx" })
	{
		view.m_Animation = anim;
		view.m_flTime = 0.3;
		const QImage moved = artrender::RenderParts({ body }, view, error);
		ASSERT_FALSE(moved.isNull()) << error;
		EXPECT_GT(artrender::DifferentPixels(artrender::RenderParts({ body }, artrender::RenderView_t{ 40.0, 10.0, 256, 256, "", 0.0 }, error), moved), 0.005)
			<< anim;
		SaveForLooking(moved, "session_courier_" + fs::path(anim).stem().string());
	}
}

TEST(FbxWriter, PolygonsOfSeveralMaterialsReadBack)
{
	// A box whose faces alternate between two materials, and a triangle-capped tube.
	CArtMesh mesh;
	mesh.m_Name = "box";
	mesh.m_Materials = { "red", "blue" };
	mesh.AddBox(Mat4(), { 1, 2, 3 }, UVRect_t{}, nullptr, 0);
	for (size_t i = 0; i < mesh.m_Faces.size(); i += 2)
		mesh.m_Faces[i].nMaterial = 1;
	mesh.AddLoft(RingsThrough({ { { 5, 0, 0 }, 1, 1 }, { { 5, 0, 4 }, 1, 1 } }, { 1, 0, 0 }), 6, 0.5, 0.5, UVRect_t{}, nullptr, 0);
	ASSERT_EQ(mesh.CheckTopology(), "");
	EXPECT_EQ(mesh.FaceCount(), 6 + 6 + 12);
	EXPECT_EQ(mesh.TriangleCount(), 12 + 12 + 12);
	FbxScene_t scene;
	scene.m_Meshes.push_back(mesh);
	scene.m_Materials = { { "red", { 1, 0, 0 } }, { "blue", { 0, 0, 1 } } };
	CTempDirectory dir;
	const std::string text = WriteAsciiFbx(scene);
	ASSERT_TRUE(Plat_WriteFileAtomic(dir.Path("box.fbx").c_str(), text.data(), text.size()));
	Assimp::Importer importer;
	const aiScene *read = importer.ReadFile(dir.Path("box.fbx"), aiProcess_Triangulate | aiProcess_ValidateDataStructure);
	ASSERT_NE(read, nullptr) << importer.GetErrorString();
	// assimp splits a mesh by material.
	ASSERT_EQ(read->mNumMeshes, 2u);
	unsigned faces[2] = {};
	for (unsigned m = 0; m < 2; ++m)
	{
		const aiMaterial *material = read->mMaterials[read->mMeshes[m]->mMaterialIndex];
		aiString name;
		material->Get(AI_MATKEY_NAME, name);
		faces[std::string(name.C_Str()) == "blue" ? 1 : 0] += read->mMeshes[m]->mNumFaces;
		EXPECT_EQ(read->mMeshes[m]->mNumBones, 0u);
	}
	EXPECT_EQ(faces[1], 6u);		  // three quads of the box
	EXPECT_EQ(faces[0], 6u + 24u); // the others and the tube
}

TEST(FbxWriter, TopologyCheckFindsOpenFlippedAndInwardShells)
{
	CArtMesh open;
	open.m_Name = "open";
	open.AddBox(Mat4(), { 1, 1, 1 }, UVRect_t{}, nullptr);
	open.m_Faces.pop_back();
	EXPECT_NE(open.CheckTopology().find("is open"), std::string::npos) << open.CheckTopology();

	CArtMesh flipped;
	flipped.m_Name = "flipped";
	flipped.AddBox(Mat4(), { 1, 1, 1 }, UVRect_t{}, nullptr);
	std::reverse(flipped.m_Faces[0].corners + 1, flipped.m_Faces[0].corners + 4);
	EXPECT_NE(flipped.CheckTopology().find("same way"), std::string::npos) << flipped.CheckTopology();

	CArtMesh inward;
	inward.m_Name = "inward";
	inward.AddBox(Mat4(), { 1, 1, 1 }, UVRect_t{}, nullptr);
	for (Face_t &f : inward.m_Faces)
		std::reverse(f.corners + 1, f.corners + 4);
	EXPECT_NE(inward.CheckTopology().find("inwards"), std::string::npos) << inward.CheckTopology();

	CArtMesh weighted;
	weighted.m_Name = "weighted";
	weighted.AddBox(Mat4(), { 1, 1, 1 }, UVRect_t{}, ChainWeights({ { { 0, 0, -1 }, 0 }, { { 0, 0, 0 }, 1 }, { { 0, 0, 1 }, 2 } }, 0.5));
	EXPECT_EQ(weighted.CheckTopology(), "");
	weighted.m_Weights[0][0].flWeight += 0.01;
	EXPECT_NE(weighted.CheckTopology().find("sum to"), std::string::npos);
}

namespace
{
const std::string kArt = kSample + "/art/";

// The session's mesh and its colour texture.
artrender::RenderPart_t ArtPart(const std::string &dir, const std::string &mesh, const std::string &texture)
{
	return { kArt + dir + "/" + mesh, texture.empty() ? "" : kArt + dir + "/" + texture };
}
} // namespace

TEST(SampleArt, TheSessionsWearablesSitOnTheirHeroesAndMoveWithThem)
{
	struct Worn_t
	{
		std::string m_Hero;
		std::vector<artrender::RenderPart_t> m_Parts; // both levels of detail and any other mesh
	};
	const std::vector<Worn_t> worn = {
		{ "bramble", { ArtPart("wearables/bramble_head", "bramble_head.fbx", "bramble_head_color.png"),
						 ArtPart("wearables/bramble_head", "bramble_head_lod1.fbx", "bramble_head_color.png") } },
		{ "bramble", { ArtPart("wearables/bramble_back", "bramble_back.fbx", "bramble_back_color.png"),
						 ArtPart("wearables/bramble_back", "bramble_back_lod1.fbx", "bramble_back_color.png") } },
		{ "bramble", { ArtPart("bramble_misc", "seed_pod_lantern.fbx", "seed_pod_lantern_color.png"),
						 ArtPart("bramble_misc", "seed_pod_lantern_lod1.fbx", "seed_pod_lantern_glass_color.png") } },
		{ "cinder", { ArtPart("wearables/cinder_weapon", "cinder_weapon.fbx", "cinder_weapon_color.png"),
						ArtPart("wearables/cinder_weapon", "cinder_weapon_lod1.fbx", "cinder_weapon_color.png"),
						ArtPart("wearables/cinder_weapon", "cinder_weapon_fx.fbx", "") } },
		{ "tidewarden", { ArtPart("wearables/tidewarden_weapon", "tidewarden_weapon.fbx", "tidewarden_weapon_color.png"),
						   ArtPart("wearables/tidewarden_weapon", "tidewarden_weapon_lod1.fbx", "tidewarden_weapon_color.png") } },
	};
	for (const Worn_t &w : worn)
	{
		for (const artrender::RenderPart_t &item : w.m_Parts)
		{
			SCOPED_TRACE(item.m_Mesh);
			const std::vector<artrender::RenderPart_t> parts = { Part("models/heroes/" + w.m_Hero + "/" + w.m_Hero + ".zmdl"), item };
			std::string error;
			artrender::RenderView_t side;
			side.m_flYaw = 150.0; // from behind and the side, so that a quiver on the back shows
			const QImage still = artrender::RenderParts(parts, side, error);
			ASSERT_FALSE(still.isNull()) << error;
			// The item alone covers part of the hero's frame and moves when the hero runs.
			artrender::RenderView_t running = side;
			running.m_Animation = kContent + "animations/heroes/" + w.m_Hero + "/" + w.m_Hero + "_run.fbx";
			running.m_flTime = 0.25;
			const QImage alone = artrender::RenderParts({ item }, side, error);
			const QImage moved = artrender::RenderParts({ item }, running, error);
			ASSERT_FALSE(alone.isNull() || moved.isNull()) << error;
			EXPECT_GT(artrender::MeasureCoverage(alone).m_flFilled, 0.002);
			EXPECT_GT(artrender::DifferentPixels(alone, moved), 0.002);
			const std::string name = "session_" + fs::path(item.m_Mesh).stem().string();
			SaveForLooking(still, name);
			SaveForLooking(alone, name + "_alone");
			SaveForLooking(artrender::RenderParts(parts, running, error), name + "_run");
		}
	}
}

TEST(SampleArt, TheSessionsWardAndThornDraw)
{
	std::string error;
	artrender::RenderView_t view;
	view.m_flYaw = 30.0;
	view.m_nWidth = view.m_nHeight = 256;
	// The ward on the wards' skeleton: the template's default idle, in the game tree, moves it.
	const artrender::RenderPart_t ward = ArtPart("ward", "owl_ward.fbx", "owl_ward_color.png");
	for (const artrender::RenderPart_t &part : { ward, ArtPart("ward", "owl_ward_lod1.fbx", "owl_ward_color.png") })
	{
		const QImage still = artrender::RenderParts({ part }, view, error);
		ASSERT_FALSE(still.isNull()) << error;
		EXPECT_GT(artrender::MeasureCoverage(still).m_flFilled, 0.05);
		artrender::RenderView_t idle = view;
		idle.m_Animation = kGame + "animations/ward/ward_idle.fbx";
		idle.m_flTime = 0.5;
		const QImage moved = artrender::RenderParts({ part }, idle, error);
		ASSERT_FALSE(moved.isNull()) << error;
		EXPECT_GT(artrender::DifferentPixels(still, moved), 0.005);
		SaveForLooking(still, "session_" + fs::path(part.m_Mesh).stem().string());
		SaveForLooking(moved, "session_" + fs::path(part.m_Mesh).stem().string() + "_idle");
	}
	// The thorn flies along -Y: seen from its side.
	view.m_flYaw = 90.0;
	for (const artrender::RenderPart_t &part : { ArtPart("bramble_thorn_volley", "thorn.fbx", "thorn_color.png"), ArtPart("bramble_thorn_volley", "thorn_fx.fbx", "") })
	{
		const QImage still = artrender::RenderParts({ part }, view, error);
		ASSERT_FALSE(still.isNull()) << error;
		EXPECT_GT(artrender::MeasureCoverage(still).m_flFilled, 0.02);
		SaveForLooking(still, "session_" + fs::path(part.m_Mesh).stem().string());
	}
}

TEST(SampleArt, TheSessionsCursorsAndMusicReadBackThroughSdl)
{
	// SDL reads each cursor as a 64 by 64 image with an alpha channel, pixel for pixel what Qt
	// reads; each has clear and opaque pixels.
	int cursors = 0;
	for (const auto &entry : fs::directory_iterator(kArt + "cursors"))
	{
		const std::string path = entry.path().string();
		SCOPED_TRACE(path);
		++cursors;
		SDL_Surface *loaded = SDL_LoadBMP(path.c_str());
		ASSERT_NE(loaded, nullptr) << SDL_GetError();
		EXPECT_EQ(loaded->w, 64);
		EXPECT_EQ(loaded->h, 64);
		EXPECT_NE(loaded->format->Amask, 0u);
		SDL_Surface *argb = SDL_ConvertSurfaceFormat(loaded, SDL_PIXELFORMAT_ARGB8888, 0);
		SDL_FreeSurface(loaded);
		ASSERT_NE(argb, nullptr) << SDL_GetError();
		const QImage qt = QImage(QString::fromStdString(path)).convertToFormat(QImage::Format_ARGB32);
		ASSERT_EQ(qt.width(), 64);
		int clear = 0, opaque = 0, differ = 0;
		for (int y = 0; y < 64; ++y)
		{
			const uint32_t *row = reinterpret_cast<const uint32_t *>(static_cast<const uint8_t *>(argb->pixels) + y * argb->pitch);
			for (int x = 0; x < 64; ++x)
			{
				differ += row[x] != qt.pixel(x, y);
				clear += qAlpha(qt.pixel(x, y)) == 0;
				opaque += qAlpha(qt.pixel(x, y)) == 255;
			}
		}
		SDL_FreeSurface(argb);
		EXPECT_EQ(differ, 0);
		EXPECT_GT(clear, 64 * 64 / 5);
		EXPECT_GT(opaque, 64 * 64 / 10);
	}
	EXPECT_EQ(cursors, 6);

	// SDL reads each track as 16-bit mono sound of a few seconds that is not silent.
	int tracks = 0;
	for (const auto &entry : fs::directory_iterator(kArt + "music"))
	{
		const std::string path = entry.path().string();
		SCOPED_TRACE(path);
		++tracks;
		SDL_AudioSpec spec;
		Uint8 *buffer = nullptr;
		Uint32 length = 0;
		ASSERT_NE(SDL_LoadWAV(path.c_str(), &spec, &buffer, &length), nullptr) << SDL_GetError();
		EXPECT_EQ(spec.freq, 11025);
		EXPECT_EQ(spec.channels, 1);
		EXPECT_EQ(spec.format, AUDIO_S16LSB);
		const size_t count = length / 2;
		const double seconds = double(count) / spec.freq;
		EXPECT_GT(seconds, 1.5);
		EXPECT_LT(seconds, 5.0);
		double energy = 0.0;
		for (size_t i = 0; i < count; ++i)
		{
			const double s = reinterpret_cast<const int16_t *>(buffer)[i];
			energy += s * s;
		}
		SDL_FreeWAV(buffer);
		EXPECT_GT(std::sqrt(energy / std::max<size_t>(count, 1)), 1000.0);
	}
	EXPECT_EQ(tracks, 4);
}
