#include "mintyardtoolutils/core/gamedata.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <unordered_map>

#include "core/keyvalues.h"
#include "core/logging.h"
#include "core/pathutils.h"
#include "core/strtools.h"
#include "filesystem/filesystem.h"
#include "toolframework/localize.h"
#include "toolframework/toolframework.h"

DEFINE_LOGGING_CHANNEL(LOG_MINTYARD_GAMEDATA, "MintyardManager");

namespace
{
const char *const HEROES_FILE = "scripts/npc/npc_heroes.txt";
const char *const HEROES_STAGING_FILE = "scripts/npc/npc_heroes_staging.txt";
const char *const UNITS_FILE = "scripts/npc/npc_units.txt";
const char *const MANIFEST_FILE = "scripts/itemtest_manifest.txt";
const char *const ITEMS_GAME_FILE = "scripts/items/items_game.txt";
const char *const PORTRAITS_FILE = "scripts/npc/portraits.txt";
const char *const GAME_PATH_ID = "GAME";

// A persona index above this is taken as a typing error rather than a list to allocate.
const int MAX_PERSONA_MODEL_INDEX = 255;
const int MAX_ABILITIES = 32;

const char *const s_LoadoutSlotNames[LOADOUT_SLOT_COUNT] = {
	"weapon", "offhand_weapon", "weapon2", "offhand_weapon2", "head", "shoulder", "arms", "armor", "belt", "neck", "back", "legs",
	"gloves", "tail", "misc", "costume", "body_head", "mount", "summon", "shapeshift", "taunt", "ambient_effects",
	"ability_attack", "ability1", "ability2", "ability3", "ability4", "ability_ultimate", "ability_effects_1",
	"ability_effects_2", "ability_effects_3", "ability_effects_4", "ability_effects_5", "ability_effects_6",
	"ability_effects_7", "ability_effects_8", "ability_effects_9", "voice", "weapon_persona_1", "offhand_weapon_persona_1",
	"weapon2_persona_1", "offhand_weapon2_persona_1", "head_persona_1", "shoulder_persona_1", "arms_persona_1",
	"armor_persona_1", "belt_persona_1", "neck_persona_1", "back_persona_1", "legs_persona_1", "gloves_persona_1",
	"tail_persona_1", "misc_persona_1", "body_head_persona_1", "mount_persona_1", "summon_persona_1",
	"shapeshift_persona_1", "taunt_persona_1", "ambient_effects_persona_1", "ability_attack_persona_1",
	"ability1_persona_1", "ability2_persona_1", "ability3_persona_1", "ability4_persona_1", "ability_ultimate_persona_1",
	"voice_persona_1", "persona_selector", "courier", "announcer", "mega_kills", "music", "ward", "hud_skin",
	"loading_screen", "weather", "heroic_statue", "multikill_banner", "cursor_pack", "teleport_effect", "blink_effect",
	"emblem", "terrain", "sunward_creeps", "moonward_creeps", "sunward_towers", "moonward_towers", "versus_screen",
	"streak_effect", "kill_effect", "death_effect", "head_effect", "map_effect", "courier_effect",
	"sunward_siege_creeps", "moonward_siege_creeps", "ironback", "none",
};

CUtlString s_LastError;

void SetLastError(const CUtlString &text)
{
	s_LastError = text;
	Warning("Game data: %s\n", text.c_str());
}

IBaseFileSystem *GameFileSystem()
{
	if (g_pFullFileSystem)
		return g_pFullFileSystem;
	return CoreFileSystem();
}

// Loads a script under "GAME" into a root of the given name. False (and the last error) when the
// file is missing or broken; bQuietIfMissing keeps a missing optional file out of the log.
bool LoadScript(KeyValues &root, const char *path, bool bQuietIfMissing = false)
{
	IBaseFileSystem *fs = GameFileSystem();
	if (bQuietIfMissing && !fs->FileExists(path, GAME_PATH_ID))
		return false;
	CUtlString error;
	if (!root.LoadFromFile(fs, path, GAME_PATH_ID, KV1LoadOptions_t(), &error))
	{
		SetLastError(error.empty() ? V_Format("%s: cannot be read", path) : error);
		return false;
	}
	return true;
}

bool IsVersionKey(const char *name)
{
	return V_strnicmp(name, "Version", 7) == 0;
}

// Loads the hero file with the staging file merged over it.
bool LoadHeroScripts(KeyValues &heroes)
{
	if (!LoadScript(heroes, HEROES_FILE))
		return false;
	KeyValues staging("ZARNHerosStaging");
	if (LoadScript(staging, HEROES_STAGING_FILE, true))
		heroes.MergeFrom(&staging, KeyValues::MERGE_KV_UPDATE);
	return true;
}

bool IsDigits(const char *text)
{
	if (!*text)
		return false;
	for (; *text; ++text)
	{
		if (*text < '0' || *text > '9')
			return false;
	}
	return true;
}

// The "Model" values of one block as a list with one entry per persona index.
void ReadModelList(KeyValues *pBlock, CUtlVector<ModelEntry_t> &list)
{
	for (KeyValues *pValue = pBlock->GetFirstValue(); pValue; pValue = pValue->GetNextValue())
	{
		const char *name = pValue->GetName();
		if (V_strnicmp(name, "Model", 5) != 0)
			continue;
		const char *rest = name + 5;
		int index = 0;
		if (*rest)
		{
			if (!IsDigits(rest) || strlen(rest) > 6)
				continue;
			index = atoi(rest);
		}
		if (index < 0 || index > MAX_PERSONA_MODEL_INDEX)
			continue;
		if ((int)list.size() <= index)
			list.resize(index + 1);
		for (int i = 0; i < (int)list.size(); ++i)
			list[i].persona = i;
		list[index].model = pValue->GetString();
	}
}

void ReadModels(KeyValues *pHeroBlock, hero_t &hero)
{
	hero.personaModels.clear();
	CUtlVector<ModelEntry_t> &own = hero.personaModels.emplace_back();
	ReadModelList(pHeroBlock, own);
	if (KeyValues *pPersona = pHeroBlock->FindKey("Persona"))
	{
		for (KeyValues *pEntry = pPersona->GetFirstTrueSubKey(); pEntry; pEntry = pEntry->GetNextTrueSubKey())
			ReadModelList(pEntry, hero.personaModels.emplace_back());
	}
}

void ReadSlot(KeyValues *pSlotBlock, hero_slot_t &slot)
{
	slot.slotName = pSlotBlock->GetString("SlotName", "");
	slot.slotIndex = GetLoadoutSlotIndex(slot.slotName.c_str());
	slot.slotText = pSlotBlock->GetString("SlotText", "");
	slot.persona = GetLoadoutSlotPersona(slot.slotIndex);
	slot.textureWidth = pSlotBlock->GetInt("TextureWidth", 0);
	slot.textureHeight = pSlotBlock->GetInt("TextureHeight", 0);
	slot.maxPolygonsLOD0 = pSlotBlock->GetInt("MaxPolygonsLOD0", 0);
	slot.maxPolygonsLOD1 = pSlotBlock->GetInt("MaxPolygonsLOD1", 0);
	slot.maxBonesLOD0 = pSlotBlock->GetInt("MaxBonesLOD0", 60);
	slot.maxBonesLOD1 = pSlotBlock->GetInt("MaxBonesLOD1", 60);
	slot.noImport = pSlotBlock->GetBool("no_import", false);
	slot.hideInMintyardTools = pSlotBlock->GetBool("HideInMintyardTools", false);
	if (KeyValues *pUnits = pSlotBlock->FindKey("GeneratesUnits"))
	{
		for (KeyValues *pUnit = pUnits->GetFirstValue(); pUnit; pUnit = pUnit->GetNextValue())
		{
			const char *unit = pUnit->GetString();
			if (*unit)
				slot.generatesUnits.push_back(unit);
		}
	}
}

void ReadAbilities(KeyValues *pHeroBlock, hero_t &hero)
{
	for (int n = 1; n <= MAX_ABILITIES; ++n)
	{
		const CUtlString key = V_Format("Ability%d", n);
		KeyValues *pAbility = pHeroBlock->FindKey(key.c_str());
		if (!pAbility)
			continue;
		hero_ability_t &ability = hero.abilities.emplace_back();
		ability.abilitySlot = n - 1;
		ability.name = pAbility->GetString();
		ability.hidden = V_stristr(ability.name.c_str(), "attribute_") || V_stristr(ability.name.c_str(), "_hidden") ||
						 V_stristr(ability.name.c_str(), "_empty");
		ability.tooltip = V_Format("#ZARN_Tooltip_ability_%s", ability.name.c_str());
		ability.description = V_Format("#ZARN_Tooltip_ability_%s_Description", ability.name.c_str());
	}
}

Vector ReadVector(const char *text)
{
	Vector v;
	if (sscanf(text, "%f %f %f", &v.x, &v.y, &v.z) < 3)
	{
		// Whatever parsed stays; the rest is zero.
	}
	return v;
}

void ReadManifestEntry(KeyValues *pEntry, hero_t &hero)
{
	hero.className = pEntry->GetName();
	hero.tag = pEntry->GetString("tag", "");
	hero.useSlotItems = pEntry->GetInt("use_slot_items", 1) != 0;

	if (KeyValues *pRequired = pEntry->FindKey("required_attachments"))
	{
		for (KeyValues *pSlotBlock = pRequired->GetFirstTrueSubKey(); pSlotBlock; pSlotBlock = pSlotBlock->GetNextTrueSubKey())
		{
			const int slot = hero.FindSlot(pSlotBlock->GetName());
			if (slot < 0)
				continue;
			for (KeyValues *pPoint = pSlotBlock->GetFirstTrueSubKey(); pPoint; pPoint = pPoint->GetNextTrueSubKey())
			{
				hero_attachment_point_t &point = hero.slots[slot].attachments.emplace_back();
				point.name = pPoint->GetString("name", "");
				point.description = pPoint->GetString("description", "");
				point.internal_name = pPoint->GetString("internal_name", pPoint->GetName());
				point.bone_name = pPoint->GetString("bone_name", "");
				point.default_pos = ReadVector(pPoint->GetString("default_pos", ""));
				point.default_rot = ReadVector(pPoint->GetString("default_rot", ""));
			}
		}
	}

	if (KeyValues *pParticles = pEntry->FindKey("particle_attachments"))
	{
		for (KeyValues *pSlotBlock = pParticles->GetFirstTrueSubKey(); pSlotBlock; pSlotBlock = pSlotBlock->GetNextTrueSubKey())
		{
			const int slot = hero.FindSlot(pSlotBlock->GetName());
			if (slot < 0)
				continue;
			hero_slot_t &s = hero.slots[slot];
			s.snapshotLocalBone = pSlotBlock->GetString("snapshot_local_bone", "");
			s.snapshotOriginal = pSlotBlock->GetString("snapshot_original", "");
			s.snapshotMaxVerts = pSlotBlock->GetInt("snapshot_max_verts", 0);
			s.extraPreviewSystem = pSlotBlock->GetString("extra_preview_system", "");
			if (KeyValues *pReplacements = pSlotBlock->FindKey("particle_replacements"))
			{
				for (KeyValues *pReplace = pReplacements->GetFirstSubKey(); pReplace; pReplace = pReplace->GetNextKey())
				{
					ParticleReplace_t &replace = s.particleReplacements.emplace_back();
					if (pReplace->GetFirstSubKey())
					{
						// { "replace" "a" "with" "b" }
						replace.replace = pReplace->GetString("replace", "");
						replace.with = pReplace->GetString("with", "");
					}
					else
					{
						// "a" "b"
						replace.replace = pReplace->GetName();
						replace.with = pReplace->GetString();
					}
				}
			}
		}
	}

	if (KeyValues *pBodyGroups = pEntry->FindKey("bodygroups"))
	{
		for (KeyValues *pSlotBlock = pBodyGroups->GetFirstTrueSubKey(); pSlotBlock; pSlotBlock = pSlotBlock->GetNextTrueSubKey())
		{
			const int slot = hero.FindSlot(pSlotBlock->GetName());
			if (slot < 0)
				continue;
			hero.slots[slot].bodygroupName = pSlotBlock->GetString("bodygroup_name", "");
			hero.slots[slot].meshesEnabledByDefault = pSlotBlock->GetBool("meshes_enabled_by_default", false);
		}
	}
}

struct ItemsGameState_t
{
	std::unique_ptr<KeyValues> pFile;
	bool bTried = false;
};

ItemsGameState_t &ItemsGame()
{
	static ItemsGameState_t s_State;
	return s_State;
}

struct GameDataState_t
{
	bool bTried = false;
	bool bLoaded = false;
};

GameDataState_t &GameDataState()
{
	static GameDataState_t s_State;
	return s_State;
}
} // namespace

// ---------------------------------------------------------------------------------------------
// Slot table and names

const char *GetLoadoutSlotName(int slotIndex)
{
	if (slotIndex < 0 || slotIndex >= LOADOUT_SLOT_COUNT)
		return nullptr;
	return s_LoadoutSlotNames[slotIndex];
}

int GetLoadoutSlotIndex(const char *pszName)
{
	if (!pszName)
		return -1;
	for (int i = 0; i < LOADOUT_SLOT_COUNT; ++i)
	{
		if (V_stricmp(s_LoadoutSlotNames[i], pszName) == 0)
			return i;
	}
	return -1;
}

uint8 GetLoadoutSlotPersona(int slotIndex)
{
	if (slotIndex >= 38 && slotIndex <= 65)
		return 1;
	if (slotIndex == 66)
		return 255;
	return 0;
}

const char *GetHeroShortName(const char *pszName)
{
	static const char s_Prefix[] = "npc_zarn_hero_";
	if (!pszName)
		return nullptr;
	if (strncmp(pszName, s_Prefix, sizeof(s_Prefix) - 1) == 0)
		return pszName + sizeof(s_Prefix) - 1;
	return pszName;
}

// ---------------------------------------------------------------------------------------------
// Symbols

struct CUtlSymbolTable::Impl
{
	CUtlVector<CUtlString> strings;
	std::unordered_map<CUtlString, int> index; // by the lower-cased name
};

namespace
{
CUtlString FoldCase(const char *text)
{
	CUtlString folded = text ? text : "";
	for (char &c : folded)
		c = V_tolower(c);
	return folded;
}
} // namespace

CUtlSymbolTable::CUtlSymbolTable() : m_pImpl(std::make_unique<Impl>())
{
}

CUtlSymbolTable::~CUtlSymbolTable() = default;

int CUtlSymbolTable::AddString(const char *pszName)
{
	const CUtlString key = FoldCase(pszName);
	auto it = m_pImpl->index.find(key);
	if (it != m_pImpl->index.end())
		return it->second;
	const int index = (int)m_pImpl->strings.size();
	m_pImpl->strings.push_back(pszName ? pszName : "");
	m_pImpl->index.emplace(key, index);
	return index;
}

int CUtlSymbolTable::Find(const char *pszName) const
{
	if (!pszName)
		return -1;
	auto it = m_pImpl->index.find(FoldCase(pszName));
	return it == m_pImpl->index.end() ? -1 : it->second;
}

const char *CUtlSymbolTable::String(int index) const
{
	if (index < 0 || index >= (int)m_pImpl->strings.size())
		return nullptr;
	return m_pImpl->strings[index].c_str();
}

int CUtlSymbolTable::Count() const
{
	return (int)m_pImpl->strings.size();
}

void CUtlSymbolTable::RemoveAll()
{
	m_pImpl->strings.clear();
	m_pImpl->index.clear();
}

// ---------------------------------------------------------------------------------------------
// Tables

int hero_t::FindSlot(const char *pszSlotName) const
{
	if (!pszSlotName)
		return -1;
	for (int i = 0; i < (int)slots.size(); ++i)
	{
		if (V_stricmp(slots[i].slotName.c_str(), pszSlotName) == 0)
			return i;
	}
	return -1;
}

hero_t *HeroTable::FindHeroByID(int32 heroID) const
{
	for (const std::unique_ptr<hero_t> &pHero : Records())
	{
		if (pHero && pHero->heroID == heroID)
			return pHero.get();
	}
	return nullptr;
}

hero_t *HeroTable::FindHeroByTags(int nTagCount, const char *const *ppTags) const
{
	if (!ppTags)
		return nullptr;
	for (int i = 0; i < nTagCount; ++i)
	{
		if (!ppTags[i] || !*ppTags[i])
			continue;
		for (const std::unique_ptr<hero_t> &pHero : Records())
		{
			if (pHero && !pHero->tag.empty() && pHero->tag == ppTags[i])
				return pHero.get();
		}
	}
	return nullptr;
}

// ---------------------------------------------------------------------------------------------
// Loaders

bool LoadHeroData(HeroTable &table, KeyValues *pHeroScripts)
{
	table.Clear();
	s_LastError.clear();

	KeyValues loaded("ZARNHeroes");
	pHeroScripts = pHeroScripts ? pHeroScripts : LoadHeroScripts(loaded) ? &loaded : nullptr;
	if (!pHeroScripts)
		return false;

	for (KeyValues *pBlock = pHeroScripts->GetFirstTrueSubKey(); pBlock; pBlock = pBlock->GetNextTrueSubKey())
	{
		const char *name = pBlock->GetName();
		if (IsVersionKey(name) || V_stricmp(name, "npc_zarn_hero_base") == 0)
			continue;
		hero_t *pHero = table.AddHero(name);
		// A hero that a file names twice is read from its last block.
		pHero->slots.clear();
		pHero->abilities.clear();
		pHero->heroID = pBlock->GetInt("HeroID", 0);
		pHero->displayName = Localize()->Translate(V_Format("#%s", name).c_str());
		ReadModels(pBlock, *pHero);
		if (KeyValues *pSlots = pBlock->FindKey("ItemSlots"))
		{
			for (KeyValues *pSlot = pSlots->GetFirstTrueSubKey(); pSlot; pSlot = pSlot->GetNextTrueSubKey())
				ReadSlot(pSlot, pHero->slots.emplace_back());
		}
		ReadAbilities(pBlock, *pHero);
	}

	KeyValues manifest("itemtest_manifest");
	if (!LoadScript(manifest, MANIFEST_FILE))
		return false;
	KeyValues *pClasses = manifest.FindKey("classes");
	if (!pClasses)
	{
		SetLastError(V_Format("%s: the block \"classes\" is missing", MANIFEST_FILE));
		return false;
	}

	std::map<int, KeyValues *> byHeroID;
	for (KeyValues *pEntry = pClasses->GetFirstTrueSubKey(); pEntry; pEntry = pEntry->GetNextTrueSubKey())
	{
		const int heroID = pEntry->GetInt("heroID", -1);
		if (heroID != -1)
			byHeroID.emplace(heroID, pEntry);
	}
	for (int i = 0; i < table.Count(); ++i)
	{
		hero_t *pHero = table.GetHero(i);
		if (!pHero)
			continue;
		auto it = byHeroID.find(pHero->heroID);
		if (it == byHeroID.end())
		{
			LoggingSystem_Log(LOG_MINTYARD_GAMEDATA, LS_DETAILED, "Hero ID %d %s missing from %s!\n", pHero->heroID,
				pHero->name.c_str(), manifest.GetName());
			continue;
		}
		ReadManifestEntry(it->second, *pHero);
	}

	KeyValues *pTemplates = manifest.FindKey("zmt_templates");
	KeyValues *pTemplateClasses = pTemplates ? pTemplates->FindKey("classes") : nullptr;
	if (!pTemplateClasses)
	{
		SetLastError(V_Format("%s: the block \"zmt_templates\" { \"classes\" } is missing", MANIFEST_FILE));
		return false;
	}
	for (KeyValues *pValue = pTemplateClasses->GetFirstValue(); pValue; pValue = pValue->GetNextValue())
	{
		for (int i = 0; i < table.Count(); ++i)
		{
			hero_t *pHero = table.GetHero(i);
			if (pHero && !pHero->className.empty() && V_stricmp(pHero->className.c_str(), pValue->GetName()) == 0)
				pHero->zmtTemplate = pValue->GetString();
		}
	}
	return true;
}

bool LoadUnitData(GameUnitTable &table, KeyValues *pHeroScripts)
{
	table.Clear();
	s_LastError.clear();

	KeyValues units("ZARNUnits");
	if (!LoadScript(units, UNITS_FILE))
		return false;
	for (KeyValues *pBlock = units.GetFirstTrueSubKey(); pBlock; pBlock = pBlock->GetNextTrueSubKey())
	{
		const char *name = pBlock->GetName();
		if (IsVersionKey(name) || V_stricmp(name, "npc_zarn_units_base") == 0)
			continue;
		ZARNGameUnitData_t *pUnit = table.AddUnit(name);
		pUnit->attackAnimationPoint = pBlock->GetFloat("AttackAnimationPoint", 0.0f);
		pUnit->model = pBlock->GetString("Model", "");
		pUnit->wearable = pBlock->GetInt("wearable", -1);
	}

	KeyValues loaded("ZARNHeroes");
	pHeroScripts = pHeroScripts ? pHeroScripts : LoadHeroScripts(loaded) ? &loaded : nullptr;
	if (!pHeroScripts)
		return false;
	for (KeyValues *pBlock = pHeroScripts->GetFirstTrueSubKey(); pBlock; pBlock = pBlock->GetNextTrueSubKey())
	{
		const char *name = pBlock->GetName();
		if (IsVersionKey(name) || V_stricmp(name, "npc_zarn_hero_base") == 0)
			continue;
		bool bCreated = false;
		ZARNGameUnitData_t *pUnit = table.AddUnit(name, &bCreated);
		if (!bCreated)
			continue; // a unit of that name keeps its own entry
		pUnit->attackAnimationPoint = pBlock->GetFloat("AttackAnimationPoint", 0.0f);
		pUnit->model = pBlock->GetString("Model", "");
		pUnit->wearable = -1;
	}
	return true;
}

KeyValues *GetItemsGameItems()
{
	ItemsGameState_t &state = ItemsGame();
	if (!state.bTried)
	{
		state.bTried = true;
		std::unique_ptr<KeyValues> pFile = std::make_unique<KeyValues>("ItemsGameFile");
		if (LoadScript(*pFile, ITEMS_GAME_FILE))
			state.pFile = std::move(pFile);
	}
	return state.pFile ? state.pFile->FindKey("items") : nullptr;
}

KeyValues *FindItemsGameEntry(int definitionIndex)
{
	KeyValues *pItems = GetItemsGameItems();
	if (!pItems)
		return nullptr;
	for (KeyValues *pItem = pItems->GetFirstSubKey(); pItem; pItem = pItem->GetNextKey())
	{
		if (atoi(pItem->GetName()) == definitionIndex)
			return pItem;
	}
	return nullptr;
}

namespace
{
ItemsGameState_t &Portraits()
{
	static ItemsGameState_t s_State;
	return s_State;
}
} // namespace

KeyValues *FindGamePortrait(const char *pszModelPath)
{
	if (!pszModelPath || !*pszModelPath)
		return nullptr;
	ItemsGameState_t &state = Portraits();
	if (!state.bTried)
	{
		state.bTried = true;
		std::unique_ptr<KeyValues> pFile = std::make_unique<KeyValues>("Portraits");
		// A game without portraits of its own is no fault.
		if (LoadScript(*pFile, PORTRAITS_FILE, true))
			state.pFile = std::move(pFile);
	}
	if (!state.pFile)
		return nullptr;
	// Paths compare without case and with either slash.
	const CUtlString wanted = V_NormalizePath(pszModelPath);
	for (KeyValues *pEntry = state.pFile->GetFirstTrueSubKey(); pEntry; pEntry = pEntry->GetNextTrueSubKey())
	{
		if (V_StrEqualNoCase(V_NormalizePath(pEntry->GetName()), wanted))
			return pEntry;
	}
	return nullptr;
}

KeyValues *FindHeroDefaultItem(const hero_t &hero, const char *pszSlotName)
{
	KeyValues *pItems = GetItemsGameItems();
	if (!pItems || !pszSlotName)
		return nullptr;
	for (KeyValues *pItem = pItems->GetFirstTrueSubKey(); pItem; pItem = pItem->GetNextTrueSubKey())
	{
		if (V_stricmp(pItem->GetString("prefab"), "default_item") != 0 || V_stricmp(pItem->GetString("item_slot"), pszSlotName) != 0)
			continue;
		KeyValues *pHeroes = pItem->FindKey("used_by_heroes");
		if (pHeroes && pHeroes->GetInt(hero.name.c_str(), 0) != 0)
			return pItem;
	}
	return nullptr;
}

HeroTable &GetHeroTable()
{
	static HeroTable s_Table;
	return s_Table;
}

GameUnitTable &GetGameUnitTable()
{
	static GameUnitTable s_Table;
	return s_Table;
}

bool EnsureGameDataLoaded()
{
	GameDataState_t &state = GameDataState();
	if (!state.bTried)
	{
		state.bTried = true;
		// The hero scripts are read once for both tables, so a broken file is reported once.
		s_LastError.clear();
		KeyValues heroScripts("ZARNHeroes");
		bool bHeroes = false, bUnits = false;
		if (LoadHeroScripts(heroScripts))
		{
			bHeroes = LoadHeroData(GetHeroTable(), &heroScripts);
			const CUtlString heroError = s_LastError;
			bUnits = LoadUnitData(GetGameUnitTable(), &heroScripts);
			if (!heroError.empty())
				s_LastError = heroError;
		}
		else
		{
			GetHeroTable().Clear();
			GetGameUnitTable().Clear();
		}
		state.bLoaded = bHeroes && bUnits;
	}
	return state.bLoaded;
}

bool ReloadGameData()
{
	GameDataState().bTried = false;
	ItemsGame().pFile.reset();
	ItemsGame().bTried = false;
	Portraits().pFile.reset();
	Portraits().bTried = false;
	return EnsureGameDataLoaded();
}

const CUtlString &GetGameDataLastError()
{
	return s_LastError;
}
