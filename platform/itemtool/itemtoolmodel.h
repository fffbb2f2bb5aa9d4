// The item tool model EconItemToolModel_001: the game's item definitions in memory, by name and
// by definition index; local test indices handed out from a fixed base; ".item" files written
// atomically; listeners told of every change; and definition indices reserved from the content
// service's reservation endpoint (the game coordinator), whose answers are delivered on the main
// thread from the model's frame.
//
// Items come from "scripts/items/items_game.txt" (its "items" block) and from the ".item" files
// under "items/item_definitions" and "items/item_definitions_test" of the "GAME" search path. A
// ".item" file is a KeyValues text whose root is named by the item's definition index and holds
// the item's keys; an item in a ".item" file replaces the items_game entry of the same index.
// Items under "items/item_definitions_test", and every index handed out as a test index, are test
// items.
#pragma once

#include <memory>

#include "core/keyvalues.h"
#include "core/platform.h"
#include "core/utlstring.h"
#include "core/utlvector.h"
#include "toolframework/appsystem.h"

class IFileSystem;

#define ECONITEMTOOLMODEL_INTERFACE_VERSION "EconItemToolModel_001"

// The prefab table: the number of a prefab is its row; ECON_ITEM_PREFAB_NONE stands for none.
enum
{
	ECON_ITEM_PREFAB_COUNT = 43,
	ECON_ITEM_PREFAB_NONE = 43,
};

struct EconItemPrefab_t
{
	int m_nRow;
	uint32 m_nValue;		  // the row's bit, used by the model's filters
	const char *m_pszName;	  // "default_item", "wearable", ...
	bool m_bHero;			  // the item belongs to a hero
	const char *m_pszIcon;	  // under "game:tools/images/item_editor/"
};

// Row n of the table (n below ECON_ITEM_PREFAB_COUNT), or null.
const EconItemPrefab_t *EconItemPrefab(int nRow);
// The row of a prefab name (case ignored), ECON_ITEM_PREFAB_NONE when unknown.
int EconItemPrefabByName(const char *pszName);

// Answers of a reservation at the game coordinator.
enum EReserveItemIndexResult
{
	RESERVE_ITEM_INDEX_ACCEPTED = 1,
	RESERVE_ITEM_INDEX_OCCUPIED = 2,  // an item already occupies the index
	RESERVE_ITEM_INDEX_RESERVED = 3,  // already reserved by the named user
	RESERVE_ITEM_INDEX_TIMED_OUT = 4, // no answer in time
};

// The first local test index; test indices run up from here.
enum : uint32
{
	ECON_TEST_ITEM_INDEX_BASE = 900000,
	ECON_TEST_ITEM_INDEX_COUNT = 100000,
};

class CEconItemToolItem
{
public:
	uint32 GetIndex() const { return m_nIndex; }
	const char *GetName() const { return m_Name.c_str(); }
	// The item's keys; the block is named by the index.
	KeyValues *GetKeys() const { return m_pKeys.get(); }
	// The ".item" file that holds the item, relative to the game root; "" for an items_game entry.
	const CUtlString &GetFileName() const { return m_FileName; }
	bool IsTestItem() const { return m_bTestItem; }

	uint32 m_nIndex = 0;
	CUtlString m_Name;
	std::unique_ptr<KeyValues> m_pKeys;
	CUtlString m_FileName;
	bool m_bTestItem = false;
};

// Told after every change of the model (items loaded, saved, test indices handed out).
class IEconItemToolModelChanged
{
public:
	virtual void OnEconItemToolModelChanged() = 0;

protected:
	~IEconItemToolModelChanged() = default;
};

// The client of a reservation: hears its result on the main thread.
class IEconItemTool
{
public:
	// `pszUser` names the holder for RESERVE_ITEM_INDEX_RESERVED, null otherwise.
	virtual void OnReserveItemIndexResult(uint32 nIndex, const char *pszUser, int nResult) = 0;

protected:
	~IEconItemTool() = default;
};

class IEconItemToolModel
{
public:
	// Reads the items of the game tree through the file system. False (with the reason) when
	// items_game.txt cannot be read; ".item" files that cannot be read are logged and skipped.
	virtual bool Load(CUtlString *pError = nullptr) = 0;
	// The model's message pump, called on every frame of the host (the tool's frame calls it):
	// delivers the answers of reservations on the calling thread.
	virtual void RunFrame() = 0;

	virtual void RegisterListener(IEconItemToolModelChanged *pListener) = 0;
	virtual void UnregisterListener(IEconItemToolModelChanged *pListener) = 0;

	virtual int GetItemCount() const = 0;
	virtual const CEconItemToolItem *GetItem(int i) const = 0; // in order of definition index
	virtual const CEconItemToolItem *FindItemByName(const char *pszName) const = 0;
	virtual const CEconItemToolItem *FindItemByIndex(uint32 nIndex) const = 0;
	virtual bool IsTestItem(uint32 nIndex) const = 0;

	// The next free local test index (also stored in `out`), 0 when none is left.
	virtual uint32 ReserveTestItemIndex(uint32 &out) = 0;
	// Starts a reservation of a definition index for a prefab (a row of the table). The index
	// asked for is the next one above every known item, stored in `out`; the answer reaches the
	// requester's OnReserveItemIndexResult from RunFrame.
	virtual void ReserveIndexForPrefab(int nPrefab, uint32 &out, IEconItemTool *pRequester) = 0;
	// Forgets the requester: answers still on their way are dropped (a page that goes away).
	virtual void CancelReservations(IEconItemTool *pRequester) = 0;

	// Creates or replaces the item of the block's index (the block's name, "%u") from a copy of
	// the keys; with bSave also writes its ".item" file (atomically). False when the block has no
	// index or the file cannot be written (the model is then left as it was).
	virtual bool SaveItem(const KeyValues *pKeys, bool bSave) = 0;
	// The name the item list filters on for a prefab ("" when the prefab is unknown).
	virtual bool GetPrefabFilterName(const char *pszPrefabName, CUtlString &out) const = 0;

	// Where an item's ".item" file lies, relative to the game root: the folder
	// "items/item_definitions[_test]/<prefab>[/<hero>]" and the file name made from the item's
	// `name`. `nPrefabOverride` other than ECON_ITEM_PREFAB_NONE replaces the item's prefab.
	virtual CUtlString GetItemDirectory(KeyValues *pKeys, int nPrefabOverride) const = 0;
	virtual CUtlString GetItemFileName(KeyValues *pKeys, int nPrefabOverride) const = 0;

	// The address of the content service that reserves indices ("host:port"); BRUME_SERVICE or
	// 127.0.0.1:27080 by default. The account that asks; the service's own when 0.
	virtual void SetReservationService(const char *pszAddress, uint64 nAccount) = 0;
	// The file system the model reads and writes through; the tool's (g_pFullFileSystem) when null.
	virtual void SetFileSystem(IFileSystem *pFileSystem) = 0;

protected:
	~IEconItemToolModel() = default;
};

// The process's model (also registered under ECONITEMTOOLMODEL_INTERFACE_VERSION).
IEconItemToolModel *EconItemToolModel();
