#include "itemtool/itemtoolmodel.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include <httplib.h>
#include <rapidjson/document.h>

#include "brume/brumewire.h"
#include "core/logging.h"
#include "core/pathutils.h"
#include "core/strtools.h"
#include "filesystem/filesystem.h"
#include "toolframework/platformservices.h"
#include "toolframework/toolframework.h"

namespace
{
DEFINE_LOGGING_CHANNEL(LOG_ITEM_TOOL, "ItemTool");

const char *const kItemsGameFile = "scripts/items/items_game.txt";
const char *const kItemFolder = "items/item_definitions";
const char *const kTestItemFolder = "items/item_definitions_test";
const int kReservationTimeoutSeconds = 10;

const EconItemPrefab_t s_Prefabs[ECON_ITEM_PREFAB_COUNT] = {
	{ 0, 1u << 0, "default_item", false, "item_default.png" },
	{ 1, 1u << 1, "wearable", true, "item_hero.png" },
	{ 2, 1u << 2, "misc", false, "item_default.png" },
	{ 3, 1u << 3, "tool", false, "item_default.png" },
	{ 4, 1u << 4, "emoticon_tool", false, "item_image.png" },
	{ 5, 1u << 5, "bundle", false, "item_default.png" },
	{ 6, 1u << 6, "courier", false, "item_courier.png" },
	{ 7, 1u << 7, "league", false, "item_default.png" },
	{ 8, 1u << 8, "announcer", false, "item_sound.png" },
	{ 9, 1u << 9, "ward", false, "item_ward.png" },
	{ 10, 1u << 10, "treasure_chest", false, "item_default.png" },
	{ 11, 1u << 11, "courier_wearable", false, "item_courier.png" },
	{ 12, 1u << 12, "pennant", false, "item_default.png" },
	{ 13, 1u << 13, "modifier", false, "item_default.png" },
	{ 14, 1u << 14, "hud_skin", false, "item_image.png" },
	{ 15, 1u << 15, "key", false, "item_default.png" },
	{ 16, 1u << 16, "player_card", false, "item_default.png" },
	{ 17, 1u << 17, "taunt", true, "item_hero.png" },
	{ 18, 1u << 18, "passport_fantasy_team", false, "item_default.png" },
	{ 19, 1u << 19, "loading_screen", false, "item_image.png" },
	{ 20, 1u << 20, "socket_gem", false, "item_default.png" },
	{ 21, 1u << 21, "dynamic_recipe", false, "item_default.png" },
	{ 22, 1u << 22, "retired_treasure_chest", false, "item_default.png" },
	{ 23, 1u << 23, "music", false, "item_sound.png" },
	{ 24, 1u << 24, "cursor_pack", false, "item_image.png" },
	{ 25, 1u << 25, "summons", true, "item_hero.png" },
	{ 26, 1u << 26, "terrain", false, "item_default.png" },
	{ 27, 1u << 27, "emblem", false, "item_image.png" },
	{ 28, 1u << 28, "sunwardcreeps", false, "item_default.png" },
	{ 29, 1u << 29, "moonwardcreeps", false, "item_default.png" },
	{ 30, 1u << 30, "sunwardtowers", false, "item_default.png" },
	{ 31, 1u << 31, "moonwardtowers", false, "item_default.png" },
	{ 32, 0, "versus_screen", false, "item_image.png" },
	{ 33, 0, "streak_effect", false, "item_default.png" },
	{ 34, 0, "kill_effect", false, "item_default.png" },
	{ 35, 0, "death_effect", false, "item_default.png" },
	{ 36, 0, "moonwardtide", false, "item_default.png" },
	{ 37, 0, "sunwardsiegecreeps", false, "item_default.png" },
	{ 38, 0, "moonwardsiegecreeps", false, "item_default.png" },
	{ 39, 0, "map_effect", false, "item_default.png" },
	{ 40, 0, "sticker", false, "item_image.png" },
	{ 41, 0, "sticker_capsule", false, "item_default.png" },
	{ 42, 0, "ironback", false, "item_default.png" },
};

// The index a block is named by; 0 when the name is not a positive number.
uint32 IndexOfBlock(const KeyValues *pKeys)
{
	const char *name = pKeys ? pKeys->GetName() : "";
	char *end = nullptr;
	const unsigned long long value = strtoull(name, &end, 10);
	return (end && *end == 0 && name[0] >= '0' && name[0] <= '9' && value > 0 && value <= 0xffffffffull) ? (uint32)value : 0;
}

struct Reservation_t
{
	IEconItemTool *pRequester = nullptr;
	uint64 nGeneration = 0; // of the requester when it asked; a cancel moves its generation on
	uint32 nIndex = 0;
	int nPrefab = ECON_ITEM_PREFAB_NONE;
	int nResult = RESERVE_ITEM_INDEX_TIMED_OUT;
	CUtlString user;
};

class CEconItemToolModel : public IEconItemToolModel
{
public:
	~CEconItemToolModel()
	{
		{
			std::lock_guard<std::mutex> lock(m_Mutex);
			m_bStopping = true;
		}
		m_Wake.notify_all();
		if (m_Worker.joinable())
			m_Worker.join();
	}

	bool Load(CUtlString *pError) override
	{
		IFileSystem *fs = FileSystem();
		m_Items.clear();
		m_TestIndices.clear();
		m_nHighestAsked = 0;
		KeyValues itemsGame("items_game");
		CUtlString error;
		if (!fs || !itemsGame.LoadFromFile(fs, kItemsGameFile, "GAME", KV1LoadOptions_t(), &error))
		{
			if (pError)
				*pError = fs ? error : CUtlString("no file system to read the items from");
			NotifyListeners();
			return false;
		}
		if (KeyValues *items = itemsGame.FindKey("items"))
		{
			for (KeyValues *entry = items->GetFirstTrueSubKey(); entry; entry = entry->GetNextTrueSubKey())
			{
				if (IndexOfBlock(entry))
					Store(entry, "", false);
			}
		}
		for (const bool bTest : { false, true })
			LoadItemFiles(fs, bTest);
		NotifyListeners();
		return true;
	}

	void RunFrame() override
	{
		std::deque<Reservation_t> done;
		{
			std::lock_guard<std::mutex> lock(m_Mutex);
			done.swap(m_Done);
		}
		for (const Reservation_t &r : done)
		{
			// A requester that cancelled after asking hears nothing (it may be gone).
			if (r.pRequester && Generation(r.pRequester) == r.nGeneration)
				r.pRequester->OnReserveItemIndexResult(r.nIndex, r.nResult == RESERVE_ITEM_INDEX_RESERVED ? r.user.c_str() : nullptr, r.nResult);
		}
	}

	void RegisterListener(IEconItemToolModelChanged *pListener) override
	{
		if (pListener && std::find(m_Listeners.begin(), m_Listeners.end(), pListener) == m_Listeners.end())
			m_Listeners.push_back(pListener);
	}
	void UnregisterListener(IEconItemToolModelChanged *pListener) override
	{
		m_Listeners.erase(std::remove(m_Listeners.begin(), m_Listeners.end(), pListener), m_Listeners.end());
	}

	int GetItemCount() const override { return (int)m_Items.size(); }
	const CEconItemToolItem *GetItem(int i) const override
	{
		if (i < 0 || i >= (int)m_Items.size())
			return nullptr;
		auto it = m_Items.begin();
		std::advance(it, i);
		return it->second.get();
	}
	const CEconItemToolItem *FindItemByName(const char *pszName) const override
	{
		for (const auto &[index, item] : m_Items)
		{
			if (pszName && V_StrEqualNoCase(item->m_Name, pszName))
				return item.get();
		}
		return nullptr;
	}
	const CEconItemToolItem *FindItemByIndex(uint32 nIndex) const override
	{
		auto it = m_Items.find(nIndex);
		return it == m_Items.end() ? nullptr : it->second.get();
	}
	bool IsTestItem(uint32 nIndex) const override
	{
		if (m_TestIndices.count(nIndex))
			return true;
		const CEconItemToolItem *item = FindItemByIndex(nIndex);
		return item && item->m_bTestItem;
	}

	uint32 ReserveTestItemIndex(uint32 &out) override
	{
		out = 0;
		for (uint32 index = ECON_TEST_ITEM_INDEX_BASE; index < ECON_TEST_ITEM_INDEX_BASE + ECON_TEST_ITEM_INDEX_COUNT; ++index)
		{
			if (!m_TestIndices.count(index) && !m_Items.count(index))
			{
				m_TestIndices.insert(index);
				out = index;
				NotifyListeners();
				return index;
			}
		}
		return 0;
	}

	void ReserveIndexForPrefab(int nPrefab, uint32 &out, IEconItemTool *pRequester) override
	{
		uint32 highest = 0;
		for (const auto &[index, item] : m_Items)
		{
			if (!item->m_bTestItem && index < ECON_TEST_ITEM_INDEX_BASE)
				highest = std::max(highest, index);
		}
		highest = std::max(highest, m_nHighestAsked);
		out = highest + 1;
		m_nHighestAsked = out;
		{
			std::lock_guard<std::mutex> lock(m_Mutex);
			Reservation_t r;
			r.pRequester = pRequester;
			r.nGeneration = m_Generations[pRequester];
			r.nIndex = out;
			r.nPrefab = nPrefab;
			m_Queue.push_back(r);
			if (!m_Worker.joinable())
				m_Worker = std::thread([this] { Work(); });
		}
		m_Wake.notify_all();
	}

	void CancelReservations(IEconItemTool *pRequester) override
	{
		std::lock_guard<std::mutex> lock(m_Mutex);
		++m_Generations[pRequester];
	}

	bool SaveItem(const KeyValues *pKeys, bool bSave) override
	{
		const uint32 index = IndexOfBlock(pKeys);
		if (!index)
		{
			Log_Warning(LOG_ITEM_TOOL, "SaveItem: the block \"%s\" is not named by a definition index\n", pKeys ? pKeys->GetName() : "");
			return false;
		}
		std::unique_ptr<KeyValues> copy(pKeys->MakeCopy());
		CUtlString fileName;
		if (bSave)
		{
			fileName = GetItemFileName(copy.get(), ECON_ITEM_PREFAB_NONE);
			IFileSystem *fs = FileSystem();
			CUtlString error;
			if (!fs || !fs->CreateDirHierarchy(V_NormalizePath(fileName + "/..").c_str(), "GAME") ||
				!copy->SaveToFile(fs, fileName.c_str(), "GAME", &error))
			{
				Log_Warning(LOG_ITEM_TOOL, "SaveItem: cannot write %s: %s\n", fileName.c_str(), error.c_str());
				return false;
			}
		}
		else if (const CEconItemToolItem *old = FindItemByIndex(index))
			fileName = old->m_FileName;
		const bool bTest = IsTestItem(index);
		Store(copy.get(), fileName, bTest);
		NotifyListeners();
		return true;
	}

	bool GetPrefabFilterName(const char *pszPrefabName, CUtlString &out) const override
	{
		const int row = EconItemPrefabByName(pszPrefabName);
		if (row == ECON_ITEM_PREFAB_NONE)
		{
			out.clear();
			return false;
		}
		out = s_Prefabs[row].m_pszName;
		return true;
	}

	CUtlString GetItemDirectory(KeyValues *pKeys, int nPrefabOverride) const override
	{
		CUtlString folder = pKeys ? pKeys->GetString("prefab") : "";
		if (folder.empty())
			folder = "reserved";
		if (pKeys && pKeys->GetBool("baseitem"))
			folder = "default_item";
		if (nPrefabOverride != ECON_ITEM_PREFAB_NONE && EconItemPrefab(nPrefabOverride))
			folder = EconItemPrefab(nPrefabOverride)->m_pszName;
		CUtlString directory = V_Format("items/%s/%s", IsTestItem(IndexOfBlock(pKeys)) ? "item_definitions_test" : "item_definitions", folder.c_str());
		if (folder == "wearable" && pKeys)
		{
			if (KeyValues *heroes = pKeys->FindKey("used_by_heroes"); heroes && heroes->GetFirstSubKey())
			{
				CUtlString hero = heroes->GetFirstSubKey()->GetName();
				if (V_StrBeginsWithNoCase(hero, "npc_zarn_hero_"))
					hero.erase(0, 14);
				directory = V_Format("%s/%s", directory.c_str(), hero.c_str());
			}
		}
		return directory;
	}

	CUtlString GetItemFileName(KeyValues *pKeys, int nPrefabOverride) const override
	{
		CUtlString base;
		for (const char c : CUtlString(pKeys ? pKeys->GetString("name") : ""))
		{
			if (c == ' ' || c == '_')
				base += '_';
			else if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))
				base += V_tolower(c);
			else if (c == '&')
				base += "and";
		}
		for (size_t at; (at = base.find("__")) != CUtlString::npos;)
			base.erase(at, 1);
		const char *const kAutograph = "autographed_by_";
		if (base.size() >= 15 && base.ends_with(kAutograph) && pKeys)
		{
			const CUtlString link = pKeys->GetString("autograph/mintyardlink");
			if (!link.empty() && link.find_first_not_of("0123456789") == CUtlString::npos)
				base += link;
		}
		return V_Format("%s/%s.item", GetItemDirectory(pKeys, nPrefabOverride).c_str(), base.c_str());
	}

	void SetReservationService(const char *pszAddress, uint64 nAccount) override
	{
		std::lock_guard<std::mutex> lock(m_Mutex);
		m_Service = pszAddress ? pszAddress : "";
		m_nAccount = nAccount;
	}
	void SetFileSystem(IFileSystem *pFileSystem) override { m_pFileSystem = pFileSystem; }

private:
	IFileSystem *FileSystem() const { return m_pFileSystem ? m_pFileSystem : g_pFullFileSystem; }

	uint64 Generation(IEconItemTool *pRequester)
	{
		std::lock_guard<std::mutex> lock(m_Mutex);
		return m_Generations[pRequester];
	}

	void Store(const KeyValues *pKeys, const CUtlString &fileName, bool bTest)
	{
		auto item = std::make_unique<CEconItemToolItem>();
		item->m_nIndex = IndexOfBlock(pKeys);
		item->m_pKeys.reset(pKeys->MakeCopy());
		item->m_Name = item->m_pKeys->GetString("name");
		item->m_FileName = fileName;
		item->m_bTestItem = bTest;
		m_Items[item->m_nIndex] = std::move(item);
	}

	// Every ".item" file under the folder of each "GAME" path, sorted by name so that a later
	// folder's file of the same index does not depend on the order of the disk.
	void LoadItemFiles(IFileSystem *fs, bool bTest)
	{
		const char *const folder = bTest ? kTestItemFolder : kItemFolder;
		CUtlVector<CUtlString> roots;
		fs->GetSearchPathList("GAME", roots);
		std::vector<std::pair<CUtlString, CUtlString>> files; // relative name, full path
		for (const CUtlString &root : roots)
		{
			std::error_code error;
			const std::filesystem::path top = std::filesystem::path(root.c_str()) / folder;
			if (!std::filesystem::is_directory(top, error))
				continue;
			for (auto it = std::filesystem::recursive_directory_iterator(top, error); !error && it != std::filesystem::recursive_directory_iterator();
				 it.increment(error))
			{
				if (it->is_regular_file(error) && V_StrEqualNoCase(it->path().extension().string(), ".item"))
					files.push_back({ CUtlString(folder) + "/" + std::filesystem::relative(it->path(), top, error).generic_string(), it->path().string() });
			}
		}
		std::sort(files.begin(), files.end());
		for (const auto &[name, path] : files)
		{
			KeyValues keys("item");
			CUtlString error;
			if (!keys.LoadFromFile(nullptr, path.c_str(), nullptr, KV1LoadOptions_t(), &error))
			{
				Log_Warning(LOG_ITEM_TOOL, "Item file skipped: %s\n", error.c_str());
				continue;
			}
			if (!IndexOfBlock(&keys))
			{
				Log_Warning(LOG_ITEM_TOOL, "Item file skipped: %s: its block \"%s\" is not named by a definition index\n", path.c_str(), keys.GetName());
				continue;
			}
			Store(&keys, name, bTest);
		}
	}

	void NotifyListeners()
	{
		const std::vector<IEconItemToolModelChanged *> listeners = m_Listeners;
		for (IEconItemToolModelChanged *listener : listeners)
			listener->OnEconItemToolModelChanged();
	}

	// The worker: asks the service for each queued reservation in turn.
	void Work()
	{
		for (;;)
		{
			Reservation_t r{};
			CUtlString service;
			uint64 account = 0;
			{
				std::unique_lock<std::mutex> lock(m_Mutex);
				m_Wake.wait(lock, [this] { return m_bStopping || !m_Queue.empty(); });
				if (m_bStopping)
					return;
				r = m_Queue.front();
				m_Queue.pop_front();
				service = m_Service;
				account = m_nAccount;
			}
			Ask(r, service, account);
			std::lock_guard<std::mutex> lock(m_Mutex);
			m_Done.push_back(r);
		}
	}

	static void Ask(Reservation_t &r, CUtlString service, uint64 account)
	{
		if (service.empty())
		{
			const char *env = getenv("BRUME_SERVICE");
			service = env && *env ? env : "127.0.0.1:27080";
		}
		const size_t colon = service.rfind(':');
		const int port = colon == CUtlString::npos ? 0 : atoi(service.c_str() + colon + 1);
		r.nResult = RESERVE_ITEM_INDEX_TIMED_OUT;
		if (port <= 0 || port > 65535)
			return;
		httplib::Client http(service.substr(0, colon), port);
		http.set_connection_timeout(kReservationTimeoutSeconds);
		http.set_read_timeout(kReservationTimeoutSeconds);
		httplib::Headers headers;
		if (account)
			headers.emplace(BRUME_HEADER_ACCOUNT, std::to_string(account));
		const std::string body = V_Format("{\"%s\":%u,\"%s\":%d}", BRUME_JSON_INDEX, r.nIndex, BRUME_JSON_PREFAB, r.nPrefab);
		auto answer = http.Post(BRUME_ROUTE_RESERVATIONS, headers, body, "application/json");
		if (!answer || answer->status != 200)
		{
			Log_Warning(LOG_ITEM_TOOL, "Reservation of %u: no answer from %s\n", r.nIndex, service.c_str());
			return;
		}
		rapidjson::Document json;
		json.Parse(answer->body.c_str(), answer->body.size());
		if (json.HasParseError() || !json.IsObject() || !json.HasMember(BRUME_JSON_RESULT) || !json[BRUME_JSON_RESULT].IsInt())
			return;
		const int result = json[BRUME_JSON_RESULT].GetInt();
		if (result >= RESERVE_ITEM_INDEX_ACCEPTED && result <= RESERVE_ITEM_INDEX_TIMED_OUT)
			r.nResult = result;
		if (json.HasMember(BRUME_JSON_USER) && json[BRUME_JSON_USER].IsString())
			r.user = json[BRUME_JSON_USER].GetString();
	}

	IFileSystem *m_pFileSystem = nullptr;
	std::map<uint32, std::unique_ptr<CEconItemToolItem>> m_Items;
	std::set<uint32> m_TestIndices;
	std::vector<IEconItemToolModelChanged *> m_Listeners;
	uint32 m_nHighestAsked = 0; // the next reservation asks above every index asked for so far

	std::mutex m_Mutex;
	std::condition_variable m_Wake;
	std::thread m_Worker;
	std::deque<Reservation_t> m_Queue;
	std::deque<Reservation_t> m_Done;
	std::map<IEconItemTool *, uint64> m_Generations;
	CUtlString m_Service;
	uint64 m_nAccount = 0;
	bool m_bStopping = false;
};

CEconItemToolModel s_Model;
} // namespace

const EconItemPrefab_t *EconItemPrefab(int nRow)
{
	return nRow >= 0 && nRow < ECON_ITEM_PREFAB_COUNT ? &s_Prefabs[nRow] : nullptr;
}

int EconItemPrefabByName(const char *pszName)
{
	for (const EconItemPrefab_t &prefab : s_Prefabs)
	{
		if (pszName && V_StrEqualNoCase(prefab.m_pszName, pszName))
			return prefab.m_nRow;
	}
	return ECON_ITEM_PREFAB_NONE;
}

IEconItemToolModel *EconItemToolModel()
{
	return &s_Model;
}

EXPOSE_PLATFORM_INTERFACE_GLOBALVAR(CEconItemToolModel, IEconItemToolModel, ECONITEMTOOLMODEL_INTERFACE_VERSION, s_Model);
