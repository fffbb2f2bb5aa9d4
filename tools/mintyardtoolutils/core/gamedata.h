// Game data: heroes, their slots and abilities, units, and the entries of items_game, read from the
// game's KeyValues scripts through the file system under the path ID "GAME".
//
// The tables are process-wide (GetHeroTable, GetGameUnitTable) and filled on first use
// (EnsureGameDataLoaded); the loaders can also fill a table of the caller's own. Records are kept
// by the index of their name in the table's symbol table, so a name gives its record at once.
#pragma once

#include <memory>

#include "core/mathtypes.h"
#include "core/platform.h"
#include "core/utlstring.h"
#include "core/utlvector.h"

class KeyValues;

// ---------------------------------------------------------------------------------------------
// The loadout slot table: 97 names, index by position.

enum { LOADOUT_SLOT_COUNT = 97 };

// The name of a slot index, null when out of range.
const char *GetLoadoutSlotName(int slotIndex);
// The index of a slot name (case ignored), -1 when unknown.
int GetLoadoutSlotIndex(const char *pszName);
// The persona of a slot index: 1 for 38 to 65, 255 for 66 ("persona_selector"), otherwise 0.
uint8 GetLoadoutSlotPersona(int slotIndex);

// Cuts a leading "npc_zarn_hero_" (case kept) from a name; a name without it stays.
const char *GetHeroShortName(const char *pszName);

// ---------------------------------------------------------------------------------------------
// Symbols

// Names to dense indices, case ignored. Indices are never reused until RemoveAll.
class CUtlSymbolTable
{
public:
	CUtlSymbolTable();
	~CUtlSymbolTable();
	CUtlSymbolTable(const CUtlSymbolTable &) = delete;
	CUtlSymbolTable &operator=(const CUtlSymbolTable &) = delete;

	// The index of the name, added when new.
	int AddString(const char *pszName);
	// The index of the name, -1 when absent.
	int Find(const char *pszName) const;
	// The name of an index, null when out of range.
	const char *String(int index) const;
	int Count() const;
	void RemoveAll();

private:
	struct Impl;
	std::unique_ptr<Impl> m_pImpl;
};

// ---------------------------------------------------------------------------------------------
// Records

struct ModelEntry_t
{
	CUtlString model;	 // model path
	int persona = 0;	 // persona index
};

struct hero_attachment_point_t
{
	CUtlString name;
	CUtlString description;
	CUtlString internal_name;
	CUtlString bone_name;
	Vector default_pos; // "%f %f %f"
	Vector default_rot;
};

struct ParticleReplace_t
{
	CUtlString replace;
	CUtlString with;
};

struct hero_ability_t
{
	int abilitySlot = 0;   // from 0: "Ability1" is 0
	bool hidden = false;   // the name holds "attribute_", "_hidden" or "_empty"
	CUtlString name;	   // the ability's name
	CUtlString tooltip;	   // "#ZARN_Tooltip_ability_%s"
	CUtlString description; // "#ZARN_Tooltip_ability_%s_Description"
};

struct hero_slot_t
{
	int slotIndex = -1;		 // SlotName in the slot table, -1 when unknown
	CUtlString slotName;	 // SlotName
	CUtlString slotText;	 // SlotText
	uint8 persona = 255;	 // from slotIndex once parsed
	int textureWidth = 0;	 // TextureWidth
	int textureHeight = 0;	 // TextureHeight
	int maxPolygonsLOD0 = 0; // MaxPolygonsLOD0
	int maxPolygonsLOD1 = 0; // MaxPolygonsLOD1
	int maxBonesLOD0 = 60;	 // MaxBonesLOD0
	int maxBonesLOD1 = 60;	 // MaxBonesLOD1
	bool noImport = false;	 // no_import
	bool hideInMintyardTools = false; // HideInMintyardTools
	CUtlVector<hero_attachment_point_t> attachments; // manifest required_attachments
	CUtlString snapshotLocalBone;  // snapshot_local_bone
	CUtlString snapshotOriginal;   // snapshot_original
	int snapshotMaxVerts = -1;	   // snapshot_max_verts; 0 once the manifest has a block
	CUtlVector<ParticleReplace_t> particleReplacements; // particle_replacements
	CUtlString extraPreviewSystem; // extra_preview_system
	CUtlVector<CUtlString> generatesUnits; // GeneratesUnits
	CUtlString bodygroupName;	   // bodygroup_name
	bool meshesEnabledByDefault = false; // meshes_enabled_by_default
};

struct hero_t
{
	int32 heroID = 0;		// HeroID
	int symbol = -1;		// index in the table's symbol table
	CUtlString displayName; // the game's display name of the hero's key
	CUtlVector<CUtlVector<ModelEntry_t>> personaModels; // the hero's own models first, then each Persona
	CUtlString name;		// the key in the file ("npc_zarn_hero_...")
	bool useSlotItems = true; // manifest use_slot_items
	CUtlString tag;			// manifest tag
	CUtlString className;	// key of the hero in the manifest
	CUtlString zmtTemplate; // manifest zmt_templates
	CUtlVector<hero_slot_t> slots;			// ItemSlots
	CUtlVector<hero_ability_t> abilities;	// "Ability1" to "Ability32"

	// The first slot whose slotName equals the name (case ignored), -1 when none.
	int FindSlot(const char *pszSlotName) const;
};

struct ZARNGameUnitData_t
{
	CUtlString name;
	CUtlString model;				  // Model
	float attackAnimationPoint = 0.0f; // AttackAnimationPoint
	int wearable = -1;				  // wearable; -1 for every entry made from a hero
};

// ---------------------------------------------------------------------------------------------
// Tables

// Records by name: a symbol table gives each name its slot, and the slot holds the record (or
// nothing, for a name the symbol table knows without a record).
template <class Record> class CSymbolRecordTable
{
public:
	CSymbolRecordTable() = default;
	CSymbolRecordTable(const CSymbolRecordTable &) = delete;
	CSymbolRecordTable &operator=(const CSymbolRecordTable &) = delete;

	void Clear()
	{
		m_Records.clear();
		m_Symbols.RemoveAll();
	}
	// Slots of the table (the symbol count); Get gives null for a slot without a record.
	int Count() const { return (int)m_Records.size(); }
	Record *Get(int index) const { return index < 0 || index >= (int)m_Records.size() ? nullptr : m_Records[index].get(); }
	// The slot of a name with a record (case ignored), or -1.
	int FindIndex(const char *pszName) const
	{
		const int index = m_Symbols.Find(pszName);
		return Get(index) ? index : -1;
	}
	Record *Find(const char *pszName) const { return Get(FindIndex(pszName)); }
	// The record of a name, made (with its name and slot) when new; pbCreated tells which.
	Record *Add(const char *pszName, bool *pbCreated = nullptr)
	{
		const int index = m_Symbols.AddString(pszName);
		if ((int)m_Records.size() <= index)
			m_Records.resize(index + 1);
		const bool bCreated = !m_Records[index];
		if (bCreated)
		{
			m_Records[index] = std::make_unique<Record>();
			m_Records[index]->name = pszName ? pszName : "";
			if constexpr (requires(Record &r) { r.symbol; })
				m_Records[index]->symbol = index;
		}
		if (pbCreated)
			*pbCreated = bCreated;
		return m_Records[index].get();
	}

	CUtlSymbolTable &Symbols() { return m_Symbols; }
	const CUtlVector<std::unique_ptr<Record>> &Records() const { return m_Records; }

private:
	CUtlSymbolTable m_Symbols;
	CUtlVector<std::unique_ptr<Record>> m_Records;
};

class HeroTable : public CSymbolRecordTable<hero_t>
{
public:
	hero_t *GetHero(int index) const { return Get(index); }
	// By name (case ignored), by HeroID, or the first hero whose tag is among the tags.
	hero_t *FindHero(const char *pszName) const { return Find(pszName); }
	int FindHeroIndex(const char *pszName) const { return FindIndex(pszName); }
	hero_t *FindHeroByID(int32 heroID) const;
	hero_t *FindHeroByTags(int nTagCount, const char *const *ppTags) const;
	hero_t *AddHero(const char *pszName) { return Add(pszName); }
};

class GameUnitTable : public CSymbolRecordTable<ZARNGameUnitData_t>
{
public:
	ZARNGameUnitData_t *GetUnit(int index) const { return Get(index); }
	ZARNGameUnitData_t *FindUnit(const char *pszName) const { return Find(pszName); }
	ZARNGameUnitData_t *AddUnit(const char *pszName, bool *pbCreated = nullptr) { return Add(pszName, pbCreated); }
};

// ---------------------------------------------------------------------------------------------
// Loaders

// Heroes from "scripts/npc/npc_heroes.txt" (with "scripts/npc/npc_heroes_staging.txt" merged
// over it when present) and "scripts/itemtest_manifest.txt". False when the hero file or the
// manifest cannot be read, or the manifest lacks "classes" or "zmt_templates". pHeroScripts, when
// given, stands for the hero files already read.
bool LoadHeroData(HeroTable &table, KeyValues *pHeroScripts = nullptr);
// Units from "scripts/npc/npc_units.txt", then every hero as a unit too (from pHeroScripts when
// given).
bool LoadUnitData(GameUnitTable &table, KeyValues *pHeroScripts = nullptr);
// The subkey of "items" in "scripts/items/items_game.txt" whose name is the index. The file is
// read on the first call (a failed read is not retried) and stays loaded.
KeyValues *FindItemsGameEntry(int definitionIndex);
// The "items" block of items_game (null when the file failed to load).
KeyValues *GetItemsGameItems();
// The game's own portrait of a model, from "scripts/npc/portraits.txt": a block per model path
// ("models/props/courier/courier.zmdl", compared without case) holding a portrait's text form,
// as an item's `portraits` holds it. Null when the game has no portrait for the path (or no
// such file). Read on the first call and kept.
KeyValues *FindGamePortrait(const char *pszModelPath);
// The hero's default item of a slot: the first item of items_game with the prefab "default_item",
// the slot's name as `item_slot` (case ignored) and the hero among its `used_by_heroes`. Null
// when there is none.
KeyValues *FindHeroDefaultItem(const hero_t &hero, const char *pszSlotName);

// The process-wide tables, and their one-time load (true when both loaded). Reload drops the
// tables and the loaded items_game and reads everything again (for tests and tools that switch
// game folders).
HeroTable &GetHeroTable();
GameUnitTable &GetGameUnitTable();
bool EnsureGameDataLoaded();
bool ReloadGameData();

// The last problem a loader met (file, line and what was wrong), empty when none.
const CUtlString &GetGameDataLastError();
