#include "sampleart.h"

#include <QImage>
#include <QPainter>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>

#include "core/fileio.h"
#include "core/keyvalues.h"
#include "core/keyvalues3.h"
#include "core/kv3text.h"
#include "core/strtools.h"
#include "core/utlbuffer.h"
#include "artoutput.h"
#include "creature.h"
#include "documents.h"
#include "figure.h"
#include "painter.h"
#include "props.h"
#include "sessionart.h"

namespace sampleart
{
namespace
{
const char *const kHeroPrefix = "npc_zarn_hero_";

// Levels of detail: a hero's figure has a few thousand triangles; a summoned unit, a generic
// courier fewer; the second level of detail of each has about half.
constexpr double kHeroDetail = 0.75;
constexpr double kSummonDetail = 0.7;
constexpr double kCourierDetail = 0.6;
constexpr double kMountDetail = 0.8;

std::string StripExtension(const std::string &path)
{
	const size_t dot = path.find_last_of('.');
	const size_t slash = path.find_last_of('/');
	return (dot == std::string::npos || (slash != std::string::npos && dot < slash)) ? path : path.substr(0, dot);
}
std::string BaseName(const std::string &path)
{
	const size_t slash = path.find_last_of('/');
	return StripExtension(slash == std::string::npos ? path : path.substr(slash + 1));
}
bool EndsWith(const std::string &text, const std::string &end) { return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0; }

// The form of a hero's model: its own (list 0, persona 0), a persona's form (list 0, persona
// n), a persona block's form (list n, persona 0), or that form in other colours.
FigureLook_t HeroForm(const std::string &hero, const FigureLook_t &base, int list, int persona)
{
	FigureLook_t l = base;
	if (list == 0 && persona == 0)
		return l;
	if (hero == "bramble" && list == 0)
	{
		// The thorn knight.
		l.m_Primary = Rgb(42, 82, 40);
		l.m_Secondary = Rgb(82, 60, 40);
		l.m_Accent = Rgb(120, 44, 40);
		l.m_Hair = Rgb(40, 30, 22);
		l.m_nPattern = 4;
		l.m_bThorns = true;
		l.m_bGloves = true;
		return l;
	}
	if (hero == "bramble")
	{
		// The elder, with a beard and a robe; in autumn colours for the alternative.
		l.m_bBeard = true;
		l.m_bRobe = true;
		l.m_Hair = Rgb(228, 224, 212);
		l.m_Primary = persona == 0 ? Rgb(100, 112, 62) : Rgb(186, 102, 40);
		l.m_Secondary = persona == 0 ? Rgb(122, 96, 70) : Rgb(124, 62, 30);
		l.m_Accent = persona == 0 ? Rgb(88, 70, 44) : Rgb(150, 42, 30);
		return l;
	}
	// Other heroes: their colours turned about.
	std::swap(l.m_Primary, l.m_Secondary);
	return l;
}

// One written model: its document and what the document's meshes are made of.
struct TexturePaths_t
{
	std::string m_Color, m_Normal;
};
} // namespace

class CSampleArtGenerator
{
public:
	CSampleArtGenerator(const std::string &sampleDir, const std::string &outDir, SampleArtReport_t &report)
		: m_SampleDir(sampleDir), m_Out(outDir, report), m_Report(report)
	{
	}

	bool Run();

private:
	// Output, with paths relative to the content root ("content/zarn/") or the game root.
	bool WriteBytes(const std::string &rel, const void *data, size_t size) { return m_Out.WriteBytes(rel, data, size); }
	bool WriteContent(const std::string &contentPath, const std::string &text) { return m_Out.WriteText("content/zarn/" + contentPath, text); }
	bool WritePng(const std::string &contentPath, const QImage &image) { return m_Out.WritePng("content/zarn/" + contentPath, image); }
	void WriteFbx(const std::string &outRel, const FbxScene_t &scene) { m_Out.WriteFbx(outRel, scene); }
	TexturePaths_t WriteTextures(const std::string &materialPath, const QImage &colour, const QImage &normal);
	void WriteSettings(const std::string &texturePath, int maxres);
	void WriteMaterial(const std::string &materialPath, const MaterialDocument_t &material);
	void WriteModel(const std::string &modelPath, const ModelDocument_t &doc);
	void Error(const std::string &text) { m_Out.Error(text); }

	bool LoadScripts();
	void MakeHeroes();
	void MakeItems();
	void MakeCouriers();
	void MakeWards();
	void MakeUnits();
	void MakeMarkers();
	void MakeOverlays();
	void MakeTemplateMaterials();
	void MakeLoadingScreen();
	void WriteItemsGame();

	// A humanoid figure on a hero's rig: mesh(es), textures, material and document.
	void WriteFigure(const std::string &modelPath, const std::string &meshPath, bool writeMesh, const std::string &heroKey, const FigureLook_t &look,
		const std::vector<ModelDocAttachment_t> &attachments, bool withLOD1, double detail);
	std::vector<ModelDocAttachment_t> SlotAttachments(const std::string &heroName, const std::string &slot);
	// `material` empty makes the model's own material and textures.
	std::string CourierModel(const std::string &modelPath, const CreatureRig_t &rig, const CreatureLook_t &look, bool flying, std::string material);
	std::string HeroKey(const std::string &heroName) const
	{
		return V_StrBeginsWithNoCase(heroName, kHeroPrefix) ? heroName.substr(strlen(kHeroPrefix)) : heroName;
	}
	KeyValues *ItemsBlock() { return m_pItemsGame->FindKey("items", true); }
	KeyValues *FindDefaultItem(const std::string &heroName, const std::string &slot);
	void SetVisuals(KeyValues *item, const std::vector<std::array<std::string, 3>> &entries);

	std::string m_SampleDir;
	CArtOutput m_Out;
	SampleArtReport_t &m_Report;
	std::unique_ptr<KeyValues> m_pHeroes, m_pUnits, m_pManifest, m_pItemsGame;
	std::map<std::string, HumanoidRig_t> m_Rigs;			// by hero key
	std::map<std::string, std::string> m_HeroAnimations[3]; // idle, run, portrait by hero key
	std::set<std::string> m_Models;						// model documents written
	std::vector<std::string> m_TemplateAnimations;		// game-relative defaults of the templates
	std::vector<std::string> m_TemplateMaterials;		// content-relative template materials
};

TexturePaths_t CSampleArtGenerator::WriteTextures(const std::string &materialPath, const QImage &colour, const QImage &normal)
{
	TexturePaths_t paths;
	const std::string stem = StripExtension(materialPath);
	paths.m_Color = stem + "_color.png";
	WritePng(paths.m_Color, colour);
	WriteSettings(paths.m_Color, colour.width());
	if (!normal.isNull())
	{
		paths.m_Normal = stem + "_normal.png";
		WritePng(paths.m_Normal, normal);
		WriteSettings(paths.m_Normal, normal.width());
	}
	return paths;
}

void CSampleArtGenerator::WriteSettings(const std::string &texturePath, int maxres)
{
	std::string error;
	const std::string text = WriteTextureSettings(maxres, error);
	if (text.empty())
		Error(texturePath + ": " + error);
	else
		WriteContent(StripExtension(texturePath) + ".txt", text);
}

void CSampleArtGenerator::WriteMaterial(const std::string &materialPath, const MaterialDocument_t &material)
{
	std::string error;
	const std::string text = WriteMaterialDocument(material, error);
	if (text.empty())
		Error(materialPath + ": " + error);
	else
		WriteContent(materialPath, text);
}

void CSampleArtGenerator::WriteModel(const std::string &modelPath, const ModelDocument_t &doc)
{
	std::string error;
	const std::string text = WriteModelDocument(doc, error);
	if (text.empty())
		Error(modelPath + ": " + error);
	else if (WriteContent(modelPath, text))
		m_Models.insert(modelPath);
}

bool CSampleArtGenerator::LoadScripts()
{
	const std::string scripts = m_SampleDir + "/game/zarn/scripts/";
	auto load = [&](std::unique_ptr<KeyValues> &kv, const char *root, const std::string &path)
	{
		kv = std::make_unique<KeyValues>(root);
		CUtlString error;
		if (!kv->LoadFromFile(nullptr, path.c_str(), nullptr, KV1LoadOptions_t(), &error))
		{
			Error(path + ": " + error);
			return false;
		}
		return true;
	};
	bool ok = load(m_pHeroes, "ZARNHeroes", scripts + "npc/npc_heroes.txt");
	ok = load(m_pUnits, "ZARNUnits", scripts + "npc/npc_units.txt") && ok;
	ok = load(m_pManifest, "itemtest_manifest", scripts + "itemtest_manifest.txt") && ok;
	ok = load(m_pItemsGame, "items_game", scripts + "items/items_game.txt") && ok;
	if (!ok)
		return false;
	std::unique_ptr<KeyValues> staging;
	const std::string stagingPath = scripts + "npc/npc_heroes_staging.txt";
	if (Plat_FileExists(stagingPath.c_str()) && load(staging, "ZARNHerosStaging", stagingPath))
		m_pHeroes->MergeFrom(staging.get(), KeyValues::MERGE_KV_UPDATE);

	// What the import templates name: their template materials (content) and default
	// animations (game).
	std::error_code ec;
	for (const auto &entry : std::filesystem::directory_iterator(scripts + "mintyard_import_templates", ec))
	{
		CUtlBuffer buffer;
		if (!Plat_ReadFile(entry.path().string().c_str(), buffer))
			continue;
		CKeyValues3Context context;
		CUtlString error;
		if (!LoadKV3(context.Root(), &error, std::string_view((const char *)buffer.Base(), buffer.Size()), KV3_FORMAT_GENERIC, entry.path().string().c_str()))
		{
			Error(error);
			continue;
		}
		std::function<void(const KeyValues3 *)> walk = [&](const KeyValues3 *value)
		{
			if (value->IsArray())
				value->ForEachArrayElement([&](const KeyValues3 *element) { walk(element); });
			else if (value->IsTable())
			{
				value->ForEachMember(
					[&](std::string_view name, uint32, const KeyValues3 *member)
					{
						const std::string key(name);
						if (member->IsString() && key == "template_zmat" && member->GetStringLength())
							m_TemplateMaterials.push_back(member->GetString());
						else if (member->IsString() && key == "default" && EndsWith(member->GetString(), ".fbx"))
							m_TemplateAnimations.push_back(member->GetString());
						else
							walk(member);
					});
			}
		};
		walk(context.Root());
	}
	std::sort(m_TemplateMaterials.begin(), m_TemplateMaterials.end());
	std::sort(m_TemplateAnimations.begin(), m_TemplateAnimations.end());
	if (KeyValues *templates = m_pManifest->FindKey("zmt_templates"))
	{
		if (KeyValues *classes = templates->FindKey("classes"))
		{
			for (KeyValues *p = classes->GetFirstValue(); p; p = p->GetNextValue())
				m_TemplateMaterials.push_back(p->GetString());
		}
	}
	return true;
}

std::vector<ModelDocAttachment_t> CSampleArtGenerator::SlotAttachments(const std::string &heroName, const std::string &slot)
{
	// The manifest's class of the hero, by its id.
	std::vector<ModelDocAttachment_t> out;
	KeyValues *hero = m_pHeroes->FindKey(heroName.c_str());
	KeyValues *classes = m_pManifest->FindKey("classes");
	if (!hero || !classes)
		return out;
	const int id = hero->GetInt("HeroID", 0);
	for (KeyValues *c = classes->GetFirstTrueSubKey(); c; c = c->GetNextTrueSubKey())
	{
		if (c->GetInt("heroID", -1) != id)
			continue;
		KeyValues *required = c->FindKey("required_attachments");
		KeyValues *slotBlock = required ? required->FindKey(slot.c_str()) : nullptr;
		if (!slotBlock)
			break;
		for (KeyValues *a = slotBlock->GetFirstTrueSubKey(); a; a = a->GetNextTrueSubKey())
		{
			ModelDocAttachment_t attachment;
			attachment.m_Name = a->GetString("internal_name");
			attachment.m_ParentBone = a->GetString("bone_name");
			float pos[3] = {}, rot[3] = {};
			sscanf(a->GetString("default_pos", "0 0 0"), "%f %f %f", &pos[0], &pos[1], &pos[2]);
			sscanf(a->GetString("default_rot", "0 0 0"), "%f %f %f", &rot[0], &rot[1], &rot[2]);
			attachment.m_Origin = { pos[0], pos[1], pos[2] };
			attachment.m_Angles = { rot[0], rot[1], rot[2] };
			out.push_back(attachment);
		}
		break;
	}
	return out;
}

void CSampleArtGenerator::WriteFigure(const std::string &modelPath, const std::string &meshPath, bool writeMesh, const std::string &heroKey,
	const FigureLook_t &look, const std::vector<ModelDocAttachment_t> &attachments, bool withLOD1, double detail)
{
	const HumanoidRig_t &rig = m_Rigs.at(heroKey);
	const std::string meshStem = StripExtension(meshPath);
	ModelDocument_t doc;
	const std::string name = BaseName(modelPath);
	doc.m_Meshes.push_back({ name, meshPath });
	doc.m_LODs.push_back({ 0.0, { name } });
	if (withLOD1)
	{
		doc.m_Meshes.push_back({ name + "_lod1", meshStem + "_lod1.fbx" });
		doc.m_LODs.push_back({ 1.0, { name + "_lod1" } });
	}
	if (writeMesh)
	{
		for (int lod = 0; lod < (withLOD1 ? 2 : 1); ++lod)
		{
			FbxScene_t scene;
			scene.m_Skeleton = rig.m_Skeleton;
			scene.m_Meshes.push_back(BuildHumanoidBody(rig, look, (lod == 0 ? 1.0 : 0.5) * detail));
			scene.m_Materials.push_back({ look.m_Name, look.m_Primary });
			WriteFbx("content/zarn/" + (lod == 0 ? meshPath : meshStem + "_lod1.fbx"), scene);
		}
	}
	// Material and textures named after the model.
	const std::string materialPath = "materials/" + StripExtension(modelPath) + ".zmat";
	QImage colour, normal;
	PaintHumanoidTextures(look, 256, colour, normal);
	const TexturePaths_t textures = WriteTextures(materialPath, colour, normal);
	MaterialDocument_t material;
	material.m_Color = textures.m_Color;
	material.m_Normal = textures.m_Normal;
	WriteMaterial(materialPath, material);
	doc.m_DefaultMaterial = materialPath;
	const char *const names[3] = { "idle", "run", "portrait_pose" };
	const char *const activities[3] = { "ACT_ZARN_IDLE", "ACT_ZARN_RUN", "ACT_ZARN_PORTRAIT" };
	for (int i = 0; i < 3; ++i)
		doc.m_Anims.push_back({ names[i], m_HeroAnimations[i].at(heroKey), true, activities[i], 1 });
	doc.m_Attachments = attachments;
	WriteModel(modelPath, doc);
}

void CSampleArtGenerator::MakeHeroes()
{
	// Every first-level block but "Version": the heroes, and the base block whose model is
	// every hero's default.
	for (KeyValues *hero = m_pHeroes->GetFirstTrueSubKey(); hero; hero = hero->GetNextTrueSubKey())
	{
		const std::string heroName = hero->GetName();
		const bool isBase = heroName == "npc_zarn_hero_base";
		const std::string key = isBase ? "base" : HeroKey(heroName);
		const HeroStyle_t style = HeroStyle(key);
		m_Rigs[key] = BuildHumanoidRig(style.m_Proportions);
		const HumanoidRig_t &rig = m_Rigs[key];

		// The animations every form of the hero shares.
		const std::vector<FbxAnimation_t> anims = BuildHumanoidAnimations(rig);
		for (size_t i = 0; i < anims.size() && i < 3; ++i)
		{
			const std::string path = "animations/heroes/" + key + "/" + key + "_" + anims[i].m_Name + ".fbx";
			FbxScene_t scene;
			scene.m_Skeleton = rig.m_Skeleton;
			scene.m_Animations.push_back(anims[i]);
			WriteFbx("content/zarn/" + path, scene);
			m_HeroAnimations[i][key] = path;
		}

		// Attachments of the hero: those of its pSlots in the manifest, and a few of its own.
		std::vector<ModelDocAttachment_t> attachments;
		if (KeyValues *pSlots = hero->FindKey("ItemSlots"))
		{
			for (KeyValues *slot = pSlots->GetFirstTrueSubKey(); slot; slot = slot->GetNextTrueSubKey())
			{
				for (const ModelDocAttachment_t &a : SlotAttachments(heroName, slot->GetString("SlotName")))
					attachments.push_back(a);
			}
		}
		const Vec3 head = rig.m_Skeleton.GlobalPosition(rig.m_nHead);
		attachments.push_back({ "attach_hitloc", "spine_2", { 0, 0, 0 }, { 0, 0, 0 } });
		attachments.push_back({ "attach_head", "head", rig.m_HeadCentre + Vec3{ 0, 0, rig.m_HeadRadii.z } - head, { 0, 0, 0 } });
		attachments.push_back({ "attach_attack1", "hand_r", rig.Grip(1) - rig.m_Skeleton.GlobalPosition(rig.m_nHand[1]), { 0, 0, 0 } });

		// The models: the block's own "Model%d" keys, then each persona block's.
		struct Entry_t
		{
			std::string path;
			int list, persona;
		};
		std::vector<Entry_t> entries;
		auto collect = [&](KeyValues *block, int list)
		{
			for (KeyValues *v = block->GetFirstValue(); v; v = v->GetNextValue())
			{
				const std::string name = v->GetName();
				if (!V_StrBeginsWithNoCase(name, "Model"))
					continue;
				const std::string digits = name.substr(5);
				if (!digits.empty() && !std::all_of(digits.begin(), digits.end(), ::isdigit))
					continue;
				entries.push_back({ v->GetString(), list, digits.empty() ? 0 : atoi(digits.c_str()) });
			}
		};
		collect(hero, 0);
		if (KeyValues *persona = hero->FindKey("Persona"))
		{
			int list = 1;
			for (KeyValues *block = persona->GetFirstTrueSubKey(); block; block = block->GetNextTrueSubKey(), ++list)
				collect(block, list);
		}
		std::map<std::pair<int, int>, std::string> meshOfForm; // (list, 0) forms share their mesh with their colours
		for (const Entry_t &e : entries)
		{
			if (!EndsWith(e.path, ".zmdl"))
			{
				Error(heroName + ": model " + e.path + " is no model document");
				continue;
			}
			FigureLook_t look = HeroForm(key, style.m_Look, e.list, e.persona);
			look.m_Name = BaseName(e.path);
			// A persona block's further models are its form in other colours: same mesh.
			std::string meshPath = StripExtension(e.path) + ".fbx";
			bool writeMesh = true;
			if (e.list > 0 && e.persona > 0 && meshOfForm.count({ e.list, 0 }))
			{
				meshPath = meshOfForm[{ e.list, 0 }];
				writeMesh = false;
			}
			if (e.persona == 0)
				meshOfForm[{ e.list, 0 }] = meshPath;
			WriteFigure(e.path, meshPath, writeMesh, key, look, attachments, false, kHeroDetail);
		}
	}
}

KeyValues *CSampleArtGenerator::FindDefaultItem(const std::string &heroName, const std::string &slot)
{
	for (KeyValues *item = ItemsBlock()->GetFirstTrueSubKey(); item; item = item->GetNextTrueSubKey())
	{
		KeyValues *usedBy = item->FindKey("used_by_heroes");
		if (std::string(item->GetString("prefab")) == "default_item" && slot == item->GetString("item_slot") && usedBy &&
			usedBy->GetInt(heroName.c_str(), 0) == 1)
			return item;
	}
	return nullptr;
}

void CSampleArtGenerator::SetVisuals(KeyValues *item, const std::vector<std::array<std::string, 3>> &entries)
{
	item->FindAndDeleteSubKey("visuals");
	if (entries.empty())
		return;
	KeyValues *visuals = item->FindKey("visuals", true);
	for (const auto &[type, asset, modifier] : entries)
	{
		KeyValues *entry = visuals->AddKey("asset_modifier");
		entry->SetString("type", type.c_str());
		entry->SetString("asset", asset.c_str());
		if (!modifier.empty())
			entry->SetString("modifier", modifier.c_str());
	}
}

void CSampleArtGenerator::MakeItems()
{
	std::map<std::string, std::vector<std::string>> sets; // hero name to its default items' names
	for (KeyValues *hero = m_pHeroes->GetFirstTrueSubKey(); hero; hero = hero->GetNextTrueSubKey())
	{
		const std::string heroName = hero->GetName();
		KeyValues *pSlots = hero->FindKey("ItemSlots");
		if (!pSlots || heroName == "npc_zarn_hero_base")
			continue;
		const std::string key = HeroKey(heroName);
		const HumanoidRig_t &rig = m_Rigs.at(key);
		for (KeyValues *slotBlock = pSlots->GetFirstTrueSubKey(); slotBlock; slotBlock = slotBlock->GetNextTrueSubKey())
		{
			const std::string slot = slotBlock->GetString("SlotName");
			KeyValues *item = FindDefaultItem(heroName, slot);
			if (!item)
			{
				// A new default item under the first free index from 100 on.
				int index = 100;
				while (ItemsBlock()->FindKey(std::to_string(index).c_str()))
					++index;
				item = ItemsBlock()->FindKey(std::to_string(index).c_str(), true);
				std::string title = key + " " + slot;
				title[0] = (char)toupper(title[0]);
				item->SetString("name", ("Default " + title).c_str());
				item->SetString("prefab", "default_item");
				item->SetString("item_slot", slot.c_str());
				item->SetString("item_name", ("#ZARN_Item_Default_" + key + "_" + slot).c_str());
				item->SetString("baseitem", "1");
				item->FindKey("used_by_heroes", true)->SetString(heroName.c_str(), "1");
			}
			sets[heroName].push_back(item->GetString("name"));
			item->SetString("item_set", ("default_" + key).c_str());

			// A slot with no polygons to spend holds no model (taunts, the persona selector).
			const bool hasModel = slotBlock->GetInt("MaxPolygonsLOD0", 0) > 0;
			if (!hasModel)
			{
				item->FindAndDeleteSubKey("model_player");
				continue;
			}
			std::string modelPath = "models/heroes/" + key + "/" + key + "_" + slot + ".zmdl";
			std::vector<std::array<std::string, 3>> visuals;
			GeneratedItem_t record;
			record.m_Hero = heroName;
			record.m_Slot = slot;
			ModelDocument_t doc;
			const std::string name = BaseName(modelPath);
			std::vector<ModelDocAttachment_t> attachments = SlotAttachments(heroName, slot);
			KeyValues *units = slotBlock->FindKey("GeneratesUnits");
			std::string summoned;
			for (KeyValues *u = units ? units->GetFirstValue() : nullptr; u && summoned.empty(); u = u->GetNextValue())
				summoned = u->GetString();
			if (!summoned.empty())
			{
				// A summon slot's model is the summoned unit's own.
				KeyValues *unit = m_pUnits->FindKey(summoned.c_str());
				if (!unit || !EndsWith(unit->GetString("Model"), ".zmdl"))
				{
					Error(heroName + " " + slot + ": the summoned unit " + summoned + " has no model");
					continue;
				}
				modelPath = unit->GetString("Model");
				FigureLook_t look = HeroStyle(key).m_Look;
				look.m_Name = BaseName(modelPath);
				look.m_Skin = Rgb(172, 232, 242);
				look.m_Primary = Rgb(120, 200, 232);
				look.m_Secondary = Rgb(92, 172, 212);
				look.m_Accent = Rgb(230, 250, 255);
				look.m_Hair = Rgb(200, 240, 255);
				look.m_Eye = Rgb(255, 255, 255);
				look.m_bTail = true;
				WriteFigure(modelPath, StripExtension(modelPath) + ".fbx", true, key, look, {}, true, kSummonDetail);
				record.m_Model = modelPath;
				for (const GeneratedFbx_t &fbx : m_Report.m_Fbx)
				{
					if (fbx.m_Path == "content/zarn/" + StripExtension(modelPath) + ".fbx")
					{
						record.m_nTrianglesLOD0 = fbx.m_nTriangles;
						record.m_nBonesLOD0 = (int)fbx.m_WeightedBones.size();
					}
					if (fbx.m_Path == "content/zarn/" + StripExtension(modelPath) + "_lod1.fbx")
					{
						record.m_nTrianglesLOD1 = fbx.m_nTriangles;
						record.m_nBonesLOD1 = (int)fbx.m_WeightedBones.size();
					}
				}
				m_Report.m_Items.push_back(record);
				visuals.push_back({ "entity_model", summoned, modelPath });
				item->SetString("model_player", modelPath.c_str());
				SetVisuals(item, visuals);
				continue;
			}

			// The item's meshes at two levels of detail.
			PropPalette_t palette;
			std::vector<CArtMesh> lods;
			CSkeleton skeleton;
			std::vector<PropAttachment_t> own;
			HeroItemKind_t kind;
			std::vector<FbxAnimation_t> anims;
			if (slot == "mount")
			{
				CreatureProportions_t proportions;
				proportions.flScale = 2.6;
				proportions.flLegLength = 1.5;
				proportions.flNeckRise = 1.6;
				proportions.m_Prefix = "mount_";
				const CreatureRig_t mount = BuildCreatureRig(proportions);
				CreatureLook_t look;
				look.m_Name = name;
				look.m_Body = Rgb(40, 110, 130);
				look.m_Belly = Rgb(190, 220, 215);
				look.m_Accent = Rgb(200, 170, 90);
				look.m_Eye = Rgb(250, 200, 60);
				look.m_Wing = look.m_Body;
				look.m_nSeed = 51;
				look.m_bFins = true;
				look.m_bSaddle = true;
				skeleton = mount.m_Skeleton;
				lods.push_back(BuildCreatureBody(mount, look, kMountDetail));
				lods.push_back(BuildCreatureBody(mount, look, kMountDetail * 0.5));
				anims = BuildCreatureAnimations(mount, false);
				QImage colour, normal;
				PaintCreatureTextures(look, 256, colour, normal);
				const std::string materialPath = "materials/" + StripExtension(modelPath) + ".zmat";
				const TexturePaths_t textures = WriteTextures(materialPath, colour, normal);
				WriteMaterial(materialPath, { textures.m_Color, textures.m_Normal, false, {} });
				doc.m_DefaultMaterial = materialPath;
				own.push_back({ "attach_saddle", "mount_spine_1", { 0, 0, 8.0 * proportions.flScale }, { 0, 0, 0 } });
			}
			else if (V_StrBeginsWithNoCase(slot, "ability"))
			{
				for (int lod = 0; lod < 2; ++lod)
				{
					CSkeleton sk;
					lods.push_back(BuildAbilityModel(key, slot, sk, lod == 0 ? 1.0 : 0.5, palette));
					skeleton = sk;
				}
			}
			else if (FindHeroItemKind(key, slot, kind))
			{
				palette = kind.m_Palette;
				for (int lod = 0; lod < 2; ++lod)
				{
					CSkeleton sk = rig.m_Skeleton;
					std::vector<PropAttachment_t> lodAttachments;
					CArtMesh mesh = kind.m_Build(sk, rig, lod == 0 ? 1.0 : 0.5, lodAttachments);
					if (lod == 0)
					{
						skeleton = sk;
						own = lodAttachments;
					}
					lods.push_back(std::move(mesh));
				}
			}
			else
			{
				Error(heroName + " " + slot + ": the sample has no item for this slot");
				continue;
			}
			// An item's file holds the bones its points follow, with their ancestors, and the
			// bones of its attachments.
			std::set<std::string> keep;
			for (const PropAttachment_t &a : own)
				keep.insert(a.m_Bone);
			for (const ModelDocAttachment_t &a : attachments)
				keep.insert(a.m_ParentBone);
			skeleton = PruneSkeleton(skeleton, lods, keep);
			for (int lod = 0; lod < 2; ++lod)
			{
				FbxScene_t scene;
				scene.m_Skeleton = skeleton;
				lods[lod].m_Name = lod == 0 ? name : name + "_lod1";
				lods[lod].m_Materials = { name };
				scene.m_Meshes.push_back(lods[lod]);
				scene.m_Materials.push_back({ name, palette.m_Colours[SURFACE_CLOTH] });
				const std::string meshPath = StripExtension(modelPath) + (lod == 0 ? ".fbx" : "_lod1.fbx");
				WriteFbx("content/zarn/" + meshPath, scene);
				doc.m_Meshes.push_back({ lods[lod].m_Name, meshPath });
				doc.m_LODs.push_back({ lod == 0 ? 0.0 : 1.0, { lods[lod].m_Name } });
				int bones = 0;
				std::set<int> used;
				for (const auto &w : lods[lod].m_Weights)
				{
					for (const BoneWeight_t &b : w)
						used.insert(b.nBone);
				}
				bones = (int)used.size();
				(lod == 0 ? record.m_nTrianglesLOD0 : record.m_nTrianglesLOD1) = lods[lod].TriangleCount();
				(lod == 0 ? record.m_nBonesLOD0 : record.m_nBonesLOD1) = bones;
			}
			if (doc.m_DefaultMaterial.empty())
			{
				QImage colour, normal;
				PaintPropTextures(palette, 256, colour, normal);
				const std::string materialPath = "materials/" + StripExtension(modelPath) + ".zmat";
				const TexturePaths_t textures = WriteTextures(materialPath, colour, normal);
				WriteMaterial(materialPath, { textures.m_Color, textures.m_Normal, false, {} });
				doc.m_DefaultMaterial = materialPath;
			}
			if (!anims.empty())
			{
				for (const FbxAnimation_t &anim : anims)
				{
					const std::string path = "animations/heroes/" + key + "/" + name + "_" + anim.m_Name + ".fbx";
					FbxScene_t scene;
					scene.m_Skeleton = skeleton;
					scene.m_Animations.push_back(anim);
					WriteFbx("content/zarn/" + path, scene);
					doc.m_Anims.push_back({ anim.m_Name, path, true, anim.m_Name == "idle" ? "ACT_ZARN_IDLE" : "ACT_ZARN_RUN", 1 });
				}
			}
			for (const PropAttachment_t &a : own)
				attachments.push_back({ a.m_Name, a.m_Bone, a.m_Origin, a.m_Angles });
			doc.m_Attachments = attachments;
			WriteModel(modelPath, doc);
			record.m_Model = modelPath;
			m_Report.m_Items.push_back(record);
			item->SetString("model_player", modelPath.c_str());
			SetVisuals(item, visuals);
		}
	}

	// The heroes' default sets.
	KeyValues *itemSets = m_pItemsGame->FindKey("item_sets", true);
	for (const auto &[heroName, names] : sets)
	{
		const std::string key = "default_" + HeroKey(heroName);
		itemSets->FindAndDeleteSubKey(key.c_str());
		KeyValues *set = itemSets->FindKey(key.c_str(), true);
		set->SetString("name", "Stock Item Set");
		set->SetString("hero", heroName.c_str());
		KeyValues *items = set->FindKey("items", true);
		for (const std::string &name : names)
			items->SetString(name.c_str(), "1");
	}
}

std::string CSampleArtGenerator::CourierModel(const std::string &modelPath, const CreatureRig_t &rig, const CreatureLook_t &look, bool flying,
	std::string material)
{
	ModelDocument_t doc;
	const std::string name = BaseName(modelPath);
	for (int lod = 0; lod < 2; ++lod)
	{
		FbxScene_t scene;
		scene.m_Skeleton = rig.m_Skeleton;
		CArtMesh mesh = BuildCreatureBody(rig, look, lod == 0 ? kCourierDetail : kCourierDetail * 0.55);
		mesh.m_Name = lod == 0 ? name : name + "_lod1";
		scene.m_Meshes.push_back(mesh);
		scene.m_Materials.push_back({ look.m_Name, look.m_Body });
		const std::string meshPath = StripExtension(modelPath) + (lod == 0 ? ".fbx" : "_lod1.fbx");
		WriteFbx("content/zarn/" + meshPath, scene);
		doc.m_Meshes.push_back({ mesh.m_Name, meshPath });
		doc.m_LODs.push_back({ lod == 0 ? 0.0 : 1.0, { mesh.m_Name } });
	}
	if (material.empty())
	{
		material = "materials/" + StripExtension(modelPath) + ".zmat";
		QImage colour, normal;
		PaintCreatureTextures(look, 256, colour, normal);
		const TexturePaths_t textures = WriteTextures(material, colour, normal);
		WriteMaterial(material, { textures.m_Color, textures.m_Normal, false, {} });
	}
	doc.m_DefaultMaterial = material;
	if (flying)
	{
		doc.m_Anims.push_back({ "fly_idle", "animations/courier/courier_fly_idle.fbx", true, "ACT_ZARN_IDLE", 1 });
		doc.m_Anims.push_back({ "fly", "animations/courier/courier_fly.fbx", true, "ACT_ZARN_RUN", 1 });
	}
	else
	{
		doc.m_Anims.push_back({ "idle", "animations/courier/courier_idle.fbx", true, "ACT_ZARN_IDLE", 1 });
		doc.m_Anims.push_back({ "run", "animations/courier/courier_run.fbx", true, "ACT_ZARN_RUN", 1 });
	}
	const CSkeleton &sk = rig.m_Skeleton;
	doc.m_Attachments.push_back({ "attach_head", "head", rig.m_HeadCentre + Vec3{ 0, 0, 5.0 } - sk.GlobalPosition(rig.m_nHead), { 0, 0, 0 } });
	doc.m_Attachments.push_back({ "attach_saddle", "spine_1", { 0.0, -4.0, 8.0 }, { 0.0, 90.0, 0.0 } });
	WriteModel(modelPath, doc);
	return material;
}

void CSampleArtGenerator::MakeCouriers()
{
	CreatureProportions_t ground, air;
	air.bWings = true;
	const CreatureRig_t groundRig = BuildCreatureRig(ground), airRig = BuildCreatureRig(air);
	// The animations both couriers share, in the content tree and, for the templates'
	// defaults, in the game tree.
	const std::vector<FbxAnimation_t> walk = BuildCreatureAnimations(groundRig, false), fly = BuildCreatureAnimations(airRig, true);
	auto writeAnim = [&](const CreatureRig_t &rig, const FbxAnimation_t &anim, const std::string &path)
	{
		FbxScene_t scene;
		scene.m_Skeleton = rig.m_Skeleton;
		scene.m_Animations.push_back(anim);
		WriteFbx("content/zarn/" + path, scene);
		if (std::find(m_TemplateAnimations.begin(), m_TemplateAnimations.end(), path) != m_TemplateAnimations.end())
			WriteFbx("game/zarn/" + path, scene);
	};
	for (const FbxAnimation_t &anim : walk)
		writeAnim(groundRig, anim, "animations/courier/courier_" + anim.m_Name + ".fbx");
	for (const FbxAnimation_t &anim : fly)
		writeAnim(airRig, anim, "animations/courier/courier_" + anim.m_Name + ".fbx");

	struct Courier_t
	{
		const char *pszIndex;
		CreatureLook_t look;
	};
	CreatureLook_t donkey;
	donkey.m_Body = Rgb(146, 124, 104);
	donkey.m_Belly = Rgb(224, 210, 186);
	donkey.m_Accent = Rgb(156, 52, 40);
	donkey.m_Eye = Rgb(60, 40, 30);
	donkey.m_Wing = Rgb(244, 244, 252);
	donkey.m_nSeed = 61;
	donkey.m_bSaddle = true;
	donkey.m_bLongEars = true;
	CreatureLook_t tortoise;
	tortoise.m_Body = Rgb(112, 132, 92);
	tortoise.m_Belly = Rgb(196, 194, 150);
	tortoise.m_Accent = Rgb(88, 112, 58);
	tortoise.m_Eye = Rgb(200, 160, 40);
	tortoise.m_Wing = Rgb(120, 170, 80);
	tortoise.m_nSeed = 71;
	tortoise.m_bShell = true;
	tortoise.m_bHorns = true;
	const Courier_t couriers[] = { { "595", donkey }, { "596", tortoise } };
	for (const Courier_t &c : couriers)
	{
		KeyValues *item = ItemsBlock()->FindKey(c.pszIndex);
		if (!item || !EndsWith(item->GetString("model_player"), ".zmdl"))
		{
			Error(std::string("items_game: courier ") + c.pszIndex + " has no model_player");
			continue;
		}
		const std::string groundPath = item->GetString("model_player");
		const std::string flyingPath = StripExtension(groundPath) + "_flying.zmdl";
		CreatureLook_t look = c.look;
		// Both forms share one material: the wings have their own cell of its atlas.
		look.m_Name = BaseName(groundPath);
		const std::string material = CourierModel(groundPath, groundRig, look, false, "");
		look.m_Name = BaseName(flyingPath);
		CourierModel(flyingPath, airRig, look, true, material);
		std::vector<std::array<std::string, 3>> visuals;
		if (std::string(c.pszIndex) == "596")
			visuals.push_back({ "courier_flying", flyingPath, "" }); // the form the import writes
		for (const char *team : { "sunward", "moonward" })
		{
			visuals.push_back({ "courier", team, groundPath });
			visuals.push_back({ "courier_flying", team, flyingPath });
		}
		SetVisuals(item, visuals);
	}
}

void CSampleArtGenerator::MakeWards()
{
	const CSkeleton sk = BuildWardSkeleton();
	const std::vector<FbxAnimation_t> anims = BuildWardAnimations(sk);
	const std::string animPath = "animations/ward/ward_idle.fbx";
	{
		FbxScene_t scene;
		scene.m_Skeleton = sk;
		scene.m_Animations = anims;
		WriteFbx("content/zarn/" + animPath, scene);
		if (std::find(m_TemplateAnimations.begin(), m_TemplateAnimations.end(), animPath) != m_TemplateAnimations.end())
			WriteFbx("game/zarn/" + animPath, scene);
	}
	auto wardModel = [&](const std::string &modelPath, const std::string &kind)
	{
		ModelDocument_t doc;
		PropPalette_t palette;
		const std::string name = BaseName(modelPath);
		for (int lod = 0; lod < 2; ++lod)
		{
			FbxScene_t scene;
			scene.m_Skeleton = sk;
			CArtMesh mesh = BuildWardBody(sk, kind, lod == 0 ? 1.0 : 0.5, palette);
			mesh.m_Name = lod == 0 ? name : name + "_lod1";
			mesh.m_Materials = { name };
			scene.m_Meshes.push_back(mesh);
			scene.m_Materials.push_back({ name, palette.m_Colours[SURFACE_WOOD] });
			const std::string meshPath = StripExtension(modelPath) + (lod == 0 ? ".fbx" : "_lod1.fbx");
			WriteFbx("content/zarn/" + meshPath, scene);
			doc.m_Meshes.push_back({ mesh.m_Name, meshPath });
			doc.m_LODs.push_back({ lod == 0 ? 0.0 : 1.0, { mesh.m_Name } });
		}
		const std::string materialPath = "materials/" + StripExtension(modelPath) + ".zmat";
		QImage colour, normal;
		PaintPropTextures(palette, 256, colour, normal);
		const TexturePaths_t textures = WriteTextures(materialPath, colour, normal);
		WriteMaterial(materialPath, { textures.m_Color, textures.m_Normal, false, {} });
		doc.m_DefaultMaterial = materialPath;
		doc.m_Anims.push_back({ "idle", animPath, true, "ACT_ZARN_IDLE", 1 });
		doc.m_Attachments.push_back({ "attach_eye", "eye", { 0, 0, 0 }, { 0, 0, 0 } });
		WriteModel(modelPath, doc);
	};
	KeyValues *defaultWard = ItemsBlock()->FindKey("597");
	KeyValues *lanternWard = ItemsBlock()->FindKey("598");
	if (!defaultWard || !lanternWard)
	{
		Error("items_game: the wards 597 and 598 are missing");
		return;
	}
	const std::string observer = defaultWard->GetString("model_player");
	const std::string sentry = StripExtension(observer) + "_sentry.zmdl";
	const std::string lantern = lanternWard->GetString("model_player");
	wardModel(observer, "observer");
	wardModel(sentry, "sentry");
	wardModel(lantern, "lantern");
	SetVisuals(defaultWard, { { "entity_model", "npc_zarn_observer_wards", observer }, { "entity_model", "npc_zarn_sentry_wards", sentry } });
	SetVisuals(lanternWard, { { "entity_model", "npc_zarn_observer_wards", lantern }, { "entity_model", "npc_zarn_sentry_wards", lantern } });
}

void CSampleArtGenerator::MakeUnits()
{
	for (KeyValues *unit = m_pUnits->GetFirstTrueSubKey(); unit; unit = unit->GetNextTrueSubKey())
	{
		const std::string name = unit->GetName();
		const std::string model = unit->GetString("Model");
		if (model.empty() || m_Models.count(model))
			continue;
		if (name == "npc_zarn_units_base")
		{
			// The generic unit: a small soldier on the mannequin's rig.
			FigureLook_t look = HeroStyle("base").m_Look;
			look.m_Name = BaseName(model);
			look.m_Skin = Rgb(156, 124, 94);
			look.m_Primary = Rgb(124, 72, 50);
			look.m_Secondary = Rgb(92, 72, 52);
			look.m_Accent = Rgb(72, 62, 52);
			look.m_Hair = Rgb(52, 40, 30);
			look.m_bBald = false;
			look.m_nPattern = 4;
			// It shares the mannequin's mesh when the heroes' base has one.
			const std::string shared = "models/heroes/base/base.fbx";
			const bool share = std::find(m_Report.m_Files.begin(), m_Report.m_Files.end(), "content/zarn/" + shared) != m_Report.m_Files.end();
			WriteFigure(model, share ? shared : StripExtension(model) + ".fbx", !share, "base", look, {}, false, kHeroDetail);
			continue;
		}
		Error("npc_units: no generator for the model of " + name + " (" + model + ")");
	}
}

void CSampleArtGenerator::MakeMarkers()
{
	// One palette texture for all the markers: a strip of plain colours.
	QImage palette(128, 128, QImage::Format_RGB32);
	const std::vector<std::pair<std::string, Vec3>> &colours = MarkerPalette();
	palette.fill(Qt::white);
	for (int y = 0; y < 128; ++y)
	{
		for (int x = 0; x < 128; ++x)
		{
			const Vec3 c = colours[std::min((size_t)(x * colours.size() / 128), colours.size() - 1)].second;
			palette.setPixel(x, y, qRgb(int(c.x * 255), int(c.y * 255), int(c.z * 255)));
		}
	}
	const std::string materialPath = "materials/editor/editor_marker.zmat";
	const TexturePaths_t textures = WriteTextures(materialPath, palette, QImage());
	WriteMaterial(materialPath, { textures.m_Color, "", false, {} });
	for (const char *kind : { "camera", "axis_helper_thick", "spot", "arrow" })
	{
		const std::string modelPath = std::string("models/editor/") + kind + ".zmdl";
		FbxScene_t scene;
		scene.m_Meshes.push_back(BuildMarker(kind));
		scene.m_Materials.push_back({ "editor_marker", { 0.8, 0.8, 0.8 } });
		const std::string meshPath = StripExtension(modelPath) + ".fbx";
		WriteFbx("content/zarn/" + meshPath, scene);
		ModelDocument_t doc;
		doc.m_Meshes.push_back({ kind, meshPath });
		doc.m_LODs.push_back({ 0.0, { kind } });
		doc.m_DefaultMaterial = materialPath;
		WriteModel(modelPath, doc);
	}
}

void CSampleArtGenerator::MakeOverlays()
{
	const int n = 256;
	// The foreground: a soft dark vignette, clear in the middle.
	{
		QImage image(n, n, QImage::Format_ARGB32);
		for (int y = 0; y < n; ++y)
		{
			for (int x = 0; x < n; ++x)
			{
				const double dx = (x + 0.5) / n * 2.0 - 1.0, dy = (y + 0.5) / n * 2.0 - 1.0;
				const double r = std::sqrt(dx * dx * 0.9 + dy * dy * 1.1);
				const double a = 0.85 * SmoothStep(0.6, 1.35, r);
				image.setPixel(x, y, qRgba(18, 22, 30, (int)std::lround(a * 255)));
			}
		}
		const std::string materialPath = "materials/vgui/econ/item_icon_fg.zmat";
		const TexturePaths_t textures = WriteTextures(materialPath, image, QImage());
		WriteMaterial(materialPath, { textures.m_Color, "", true, {} });
	}
	// The square frame: a bevelled border, clear inside.
	{
		QImage image(n, n, QImage::Format_ARGB32);
		for (int y = 0; y < n; ++y)
		{
			for (int x = 0; x < n; ++x)
			{
				const int edge = std::min(std::min(x, y), std::min(n - 1 - x, n - 1 - y));
				int alpha = 0;
				QRgb c = qRgba(0, 0, 0, 0);
				if (edge < 10)
				{
					const double light = (x + y < n) ? 1.15 : 0.8; // lit from the top left
					const double band = edge < 2 || edge > 7 ? 0.7 : 1.0;
					const double f = light * band;
					alpha = 255;
					c = qRgba(std::min(255, (int)(196 * f)), std::min(255, (int)(170 * f)), std::min(255, (int)(110 * f)), alpha);
				}
				else if (edge < 14)
					c = qRgba(0, 0, 0, (14 - edge) * 40);
				image.setPixel(x, y, c);
			}
		}
		const std::string materialPath = "materials/vgui/econ/item_icon_square.zmat";
		const TexturePaths_t textures = WriteTextures(materialPath, image, QImage());
		WriteMaterial(materialPath, { textures.m_Color, "", true, {} });
	}
	// Backgrounds of portraits (heroes and units) and of item icons.
	struct Background_t
	{
		const char *pszPath;
		Vec3 inner, outer;
		int motif; // 0 none, 1 leaves, 2 sparks, 3 ripples, 4 rays
	};
	const Background_t backgrounds[] = {
		{ "materials/vgui/hud/heroportraits/portraitbackground.zmat", Rgb(70, 86, 112), Rgb(18, 22, 34), 0 },
		{ "materials/vgui/hud/heroportraits/portraitbackground_forest.zmat", Rgb(86, 130, 70), Rgb(16, 32, 18), 1 },
		{ "materials/vgui/hud/heroportraits/portraitbackground_ember.zmat", Rgb(190, 90, 40), Rgb(40, 10, 8), 2 },
		{ "materials/vgui/hud/heroportraits/portraitbackground_tide.zmat", Rgb(50, 140, 150), Rgb(8, 26, 44), 3 },
		{ "materials/vgui/econ/item_icon_bg.zmat", Rgb(120, 128, 140), Rgb(44, 48, 56), 0 },
		{ "materials/vgui/econ/item_icon_bg_dark.zmat", Rgb(52, 56, 66), Rgb(12, 12, 16), 0 },
		{ "materials/vgui/econ/item_icon_bg_gold.zmat", Rgb(232, 196, 110), Rgb(110, 70, 24), 4 },
	};
	for (const Background_t &b : backgrounds)
	{
		QImage image(n, n, QImage::Format_RGB32);
		for (int y = 0; y < n; ++y)
		{
			for (int x = 0; x < n; ++x)
			{
				const double dx = (x + 0.5) / n - 0.5, dy = (y + 0.5) / n - 0.42;
				const double r = std::sqrt(dx * dx + dy * dy) * 1.6;
				double f = 1.0 - SmoothStep(0.0, 1.0, r);
				const double a = std::atan2(dy, dx);
				switch (b.motif)
				{
				case 1:
					f += 0.08 * (Noise2(x / 18.0, y / 18.0, 5) > 0.7 ? 1.0 : 0.0);
					break;
				case 2:
					f += 0.25 * std::pow(Noise2(x / 6.0, y / 6.0, 7), 8.0);
					break;
				case 3:
					f += 0.05 * std::sin(r * 40.0);
					break;
				case 4:
					f += 0.06 * std::sin(a * 12.0);
					break;
				default:
					break;
				}
				const Vec3 c = Mix(b.outer, b.inner, Clamp(f, 0.0, 1.0));
				image.setPixel(x, y, qRgb((int)std::lround(c.x * 255), (int)std::lround(c.y * 255), (int)std::lround(c.z * 255)));
			}
		}
		const TexturePaths_t textures = WriteTextures(b.pszPath, image, QImage());
		WriteMaterial(b.pszPath, { textures.m_Color, "", false, {} });
	}
}

void CSampleArtGenerator::MakeTemplateMaterials()
{
	// The materials an imported item starts from: the hero shader with the tint of their
	// owner, and constants where the import puts textures.
	std::set<std::string> done;
	for (const std::string &path : m_TemplateMaterials)
	{
		if (!done.insert(path).second)
			continue;
		Vec3 tint{ 1, 1, 1 };
		if (path.find("bramble") != std::string::npos)
			tint = { 0.92, 1.0, 0.9 };
		else if (path.find("cinder") != std::string::npos)
			tint = { 1.0, 0.92, 0.88 };
		else if (path.find("tidewarden") != std::string::npos)
			tint = { 0.9, 0.97, 1.0 };
		MaterialDocument_t material;
		material.m_Color = ConstantColour({ 0.5, 0.5, 0.5 });
		material.m_Normal = ConstantColour({ 0.5, 0.5, 1.0 });
		material.m_Extra = { { "g_vColorTint", ConstantColour(tint) }, { "F_RIM_LIGHT", "1" }, { "g_flRimLightScale", "1.000000" },
			{ "g_flSpecularExponent", "16.000000" } };
		WriteMaterial(path, material);
	}
}

void CSampleArtGenerator::MakeLoadingScreen()
{
	// "Sunrise Over the Arena": a sky from night to dawn, a sun on the horizon, the arena's
	// walls in silhouette.
	const int w = 1024, h = 512;
	QImage image(w, h, QImage::Format_RGB32);
	const double horizon = 0.68;
	for (int y = 0; y < h; ++y)
	{
		for (int x = 0; x < w; ++x)
		{
			const double u = (x + 0.5) / w, v = (y + 0.5) / h;
			Vec3 c = Mix(Rgb(24, 30, 70), Rgb(250, 150, 80), SmoothStep(0.0, horizon, v));
			const double dx = (u - 0.62) * 2.0, dy = (v - horizon) * 2.0;
			const double sun = std::sqrt(dx * dx + dy * dy);
			c = Mix(c, Rgb(255, 236, 170), Clamp(1.0 - sun / 0.12, 0.0, 1.0));
			c = Mix(c, Rgb(255, 200, 120), 0.35 * Clamp(1.0 - sun / 0.45, 0.0, 1.0));
			// The arena: a wall with towers and arches.
			const double wall = horizon - 0.02 - 0.06 * (std::fmod(u * 12.0, 1.0) < 0.18 ? 1.0 : 0.0) - 0.02 * std::fabs(std::sin(u * kPi * 3.0));
			if (v > wall)
			{
				c = Mix(Rgb(30, 20, 34), Rgb(60, 36, 40), SmoothStep(1.0, wall, v));
				const double arch = std::fmod(u * 30.0, 1.0);
				if (v > wall + 0.05 && v < wall + 0.12 && arch > 0.3 && arch < 0.7)
					c = Mix(c, Rgb(250, 160, 90), 0.4);
			}
			image.setPixel(x, y, qRgb((int)std::lround(c.x * 255), (int)std::lround(c.y * 255), (int)std::lround(c.z * 255)));
		}
	}
	const std::string dir = "canopy/images/loadingscreens/sunrise_over_the_arena/";
	WritePng(dir + "loadingscreen.png", image);
	// The texture recipe an imported loading screen gets.
	const std::string recipe = std::string("<!-- dmx encoding keyvalues2_noids 1 format ztex 1 -->\n") +
		"\"CDmeZtex\"\n{\n\t\"m_inputTextureArray\" \"element_array\" \n\t[\n\t\t\"CDmeInputTexture\"\n\t\t{\n\t\t\t\"m_name\" \"string\" \"0\"\n"
		"\t\t\t\"m_fileName\" \"string\" \"" +
		dir + "loadingscreen.png" +
		"\"\n\t\t\t\"m_colorSpace\" \"string\" \"linear\"\n\t\t\t\"m_typeString\" \"string\" \"2D\"\n"
		"\t\t\t\"m_imageProcessorArray\" \"element_array\"\n\t\t\t[\n\t\t\t\t\"CDmeImageProcessor\"\n\t\t\t\t{\n"
		"\t\t\t\t\t\"m_algorithm\" \"string\" \"ConvertToYCoCg\"\n\t\t\t\t}\n\t\t\t]\n\t\t}\n\t]\n"
		"\t\"m_outputTypeString\" \"string\" \"2D\"\n\t\"m_outputFormat\" \"string\" \"DXT5\"\n"
		"\t\"m_textureOutputChannelArray\" \"element_array\"\n\t[\n\t\t\"CDmeTextureOutputChannel\"\n\t\t{\n"
		"\t\t\t\"m_inputTextureArray\" \"string_array\"\n\t\t\t\t[\n\t\t\t\t\t\"0\"\n\t\t\t\t]\n"
		"\t\t\t\"m_srcChannels\" \"string\" \"rgba\"\n\t\t\t\"m_dstChannels\" \"string\" \"rgba\"\n"
		"\t\t\t\"m_mipAlgorithm\" \"CDmeImageProcessor\"\n\t\t\t{\n\t\t\t\t\"m_algorithm\" \"string\" \"None\"\n\t\t\t}\n"
		"\t\t\t\"m_outputColorSpace\" \"string\" \"linear\"\n\t\t}\n\t]\n}\n";
	WriteContent(dir + "loadingscreen.ztex", recipe);
	if (KeyValues *item = ItemsBlock()->FindKey("599"))
		SetVisuals(item, { { "loading_screen", "loadingscreens/sunrise_over_the_arena/loadingscreen.ztex", "" } });
	else
		Error("items_game: the loading screen 599 is missing");
}

void CSampleArtGenerator::WriteItemsGame()
{
	CUtlBuffer buffer;
	const std::string header = "// Item definitions of the sample game \"zarn\": the default item of every hero slot with its model,\n"
							   "// the heroes' default sets, couriers, wards and the other kinds that submissions can make.\n"
							   "// make_sample_art keeps the models, visuals and sets of this file; other keys are kept as they are.\n";
	buffer.Put(header.data(), header.size());
	m_pItemsGame->SaveToBuffer(buffer);
	WriteBytes("game/zarn/scripts/items/items_game.txt", buffer.Base(), buffer.Size());
}

bool CSampleArtGenerator::Run()
{
	if (!LoadScripts())
		return false;
	MakeHeroes();
	MakeItems();
	MakeCouriers();
	MakeWards();
	MakeUnits();
	MakeMarkers();
	MakeOverlays();
	MakeTemplateMaterials();
	MakeLoadingScreen();
	MakeSessionArt(m_Out);
	WriteItemsGame();
	// Every template default animation must have been made.
	for (const std::string &path : m_TemplateAnimations)
	{
		if (std::find(m_Report.m_Files.begin(), m_Report.m_Files.end(), "game/zarn/" + path) == m_Report.m_Files.end())
			Error("the templates name the animation " + path + ", which no generator makes");
	}
	return m_Report.m_Errors.empty();
}

bool GenerateSampleArt(const std::string &sampleDir, const std::string &outDir, SampleArtReport_t &report)
{
	CSampleArtGenerator generator(sampleDir, outDir, report);
	return generator.Run();
}
} // namespace sampleart
