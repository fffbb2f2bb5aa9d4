// The item tool model on a game tree of the test's own: items from items_game and ".item" files,
// test indices, saving, file names, listeners; reservations against a real content service.
#include <chrono>
#include <thread>

#include <gtest/gtest.h>
#include <httplib.h>

#include "core/keyvalues.h"
#include "filesystem/filesystem.h"
#include "itemtool/itemtoolmodel.h"
#include "testsupport/service_process.h"
#include "testsupport/test_support.h"

namespace
{
class CCountingListener : public IEconItemToolModelChanged
{
public:
	void OnEconItemToolModelChanged() override { ++m_nChanges; }
	int m_nChanges = 0;
};

class CRequester : public IEconItemTool
{
public:
	void OnReserveItemIndexResult(uint32 nIndex, const char *pszUser, int nResult) override
	{
		m_Answers.push_back({ nIndex, pszUser ? pszUser : "<null>", nResult });
	}
	struct Answer_t
	{
		uint32 index;
		std::string user;
		int result;
	};
	std::vector<Answer_t> m_Answers;
};

class ItemToolModelTest : public ::testing::Test
{
protected:
	void SetUp() override
	{
		m_Temp.Write("game/zarn/scripts/items/items_game.txt",
			"\"items_game\" { \"items\" {\n"
			" \"default\" { \"name\" \"default\" }\n"
			" \"100\" { \"name\" \"Default Bramble Weapon\" \"prefab\" \"default_item\" \"baseitem\" \"1\" }\n"
			" \"101\" { \"name\" \"Old Hat\" \"prefab\" \"wearable\" }\n"
			" \"7000\" { \"name\" \"Courier of Old\" \"prefab\" \"courier\" }\n"
			"} }\n");
		m_Temp.Write("game/zarn/items/item_definitions/wearable/bramble/new_hat.item",
			"\"101\" { \"name\" \"New Hat\" \"prefab\" \"wearable\" \"used_by_heroes\" { \"npc_zarn_hero_bramble\" \"1\" } }\n");
		m_Temp.Write("game/zarn/items/item_definitions_test/courier/test_courier.item", "\"900000\" { \"name\" \"Test Courier\" \"prefab\" \"courier\" }\n");
		m_Temp.Write("game/zarn/items/item_definitions/broken.item", "\"5\" { \"name\" \n");
		m_Temp.Write("game/zarn/items/item_definitions/unnamed.item", "\"hat\" { \"name\" \"No Index\" }\n");
		m_pFS = CreateFileSystem();
		m_pFS->AddSearchPath(m_Temp.Path("game/zarn").c_str(), "GAME", PATH_ADD_TO_TAIL, true);
		m_pModel = EconItemToolModel();
		m_pModel->SetFileSystem(m_pFS);
		m_pModel->RegisterListener(&m_Listener);
	}
	void TearDown() override
	{
		m_pModel->UnregisterListener(&m_Listener);
		m_pModel->SetFileSystem(nullptr);
		DestroyFileSystem(m_pFS);
	}
	// Pumps the model until the requester has `count` answers; false after 20 seconds.
	bool Pump(CRequester &requester, size_t count)
	{
		const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
		while (requester.m_Answers.size() < count && std::chrono::steady_clock::now() < deadline)
		{
			m_pModel->RunFrame();
			std::this_thread::sleep_for(std::chrono::milliseconds(2));
		}
		return requester.m_Answers.size() >= count;
	}

	CTempDirectory m_Temp;
	IFileSystem *m_pFS = nullptr;
	IEconItemToolModel *m_pModel = nullptr;
	CCountingListener m_Listener;
};
} // namespace

TEST_F(ItemToolModelTest, LoadsItemsGameAndItemFiles)
{
	CCaptureLog log;
	CUtlString error;
	ASSERT_TRUE(m_pModel->Load(&error)) << error;
	EXPECT_EQ(m_Listener.m_nChanges, 1);
	EXPECT_EQ(m_pModel->GetItemCount(), 4); // 100, 101 (replaced by its file), 7000, 900000
	const CEconItemToolItem *hat = m_pModel->FindItemByIndex(101);
	ASSERT_NE(hat, nullptr);
	EXPECT_STREQ(hat->GetName(), "New Hat");
	EXPECT_EQ(hat->GetFileName(), "items/item_definitions/wearable/bramble/new_hat.item");
	EXPECT_EQ(m_pModel->FindItemByName("new hat"), hat);
	EXPECT_EQ(m_pModel->FindItemByName("Old Hat"), nullptr);
	EXPECT_EQ(m_pModel->FindItemByIndex(5), nullptr);
	EXPECT_TRUE(m_pModel->IsTestItem(900000));
	EXPECT_FALSE(m_pModel->IsTestItem(7000));
	EXPECT_EQ(m_pModel->GetItem(0)->GetIndex(), 100u); // in order of index
	EXPECT_EQ(m_pModel->GetItem(3)->GetIndex(), 900000u);
	EXPECT_NE(log.m_Text.find("broken.item"), std::string::npos) << log.m_Text;
	EXPECT_NE(log.m_Text.find("unnamed.item"), std::string::npos) << log.m_Text;

	std::filesystem::remove(m_Temp.Path("game/zarn/scripts/items/items_game.txt"));
	EXPECT_FALSE(m_pModel->Load(&error));
	EXPECT_NE(error.find("items_game.txt"), std::string::npos) << error;
	EXPECT_EQ(m_pModel->GetItemCount(), 0);
}

TEST_F(ItemToolModelTest, TestIndicesAndSavedItemsComeBackAfterALoad)
{
	ASSERT_TRUE(m_pModel->Load());
	uint32 index = 0;
	EXPECT_EQ(m_pModel->ReserveTestItemIndex(index), ECON_TEST_ITEM_INDEX_BASE + 1); // the base is taken
	EXPECT_EQ(index, ECON_TEST_ITEM_INDEX_BASE + 1);
	EXPECT_TRUE(m_pModel->IsTestItem(index));
	uint32 next = 0;
	EXPECT_EQ(m_pModel->ReserveTestItemIndex(next), ECON_TEST_ITEM_INDEX_BASE + 2);

	KeyValues keys(std::to_string(index).c_str());
	keys.SetString("name", "Bramble's Hat & Cape");
	keys.SetString("prefab", "wearable");
	keys.FindKey("used_by_heroes", true)->SetInt("npc_zarn_hero_bramble", 1);
	const int before = m_Listener.m_nChanges;
	ASSERT_TRUE(m_pModel->SaveItem(&keys, true));
	EXPECT_GT(m_Listener.m_nChanges, before);
	const std::string file = m_Temp.Path("game/zarn/items/item_definitions_test/wearable/bramble/brambles_hat_and_cape.item");
	EXPECT_TRUE(std::filesystem::exists(file));

	ASSERT_TRUE(m_pModel->Load());
	const CEconItemToolItem *saved = m_pModel->FindItemByIndex(index);
	ASSERT_NE(saved, nullptr);
	EXPECT_STREQ(saved->GetName(), "Bramble's Hat & Cape");
	EXPECT_TRUE(saved->IsTestItem());
	EXPECT_STREQ(saved->GetKeys()->GetString("used_by_heroes/npc_zarn_hero_bramble"), "1");

	// A block not named by an index is refused; a save without writing changes only the model.
	KeyValues unnamed("hat");
	EXPECT_FALSE(m_pModel->SaveItem(&unnamed, true));
	KeyValues update("7000");
	update.SetString("name", "Courier of New");
	ASSERT_TRUE(m_pModel->SaveItem(&update, false));
	EXPECT_STREQ(m_pModel->FindItemByIndex(7000)->GetName(), "Courier of New");
	EXPECT_FALSE(std::filesystem::exists(m_Temp.Path("game/zarn/items/item_definitions/reserved/courier_of_new.item")));
}

TEST(ItemToolModelNames, DirectoriesAndFileNames)
{
	IEconItemToolModel *model = EconItemToolModel();
	KeyValues keys("1234");
	keys.SetString("name", "  The  Hat & Cape: of__Bob!");
	EXPECT_EQ(model->GetItemFileName(&keys, ECON_ITEM_PREFAB_NONE), "items/item_definitions/reserved/_the_hat_and_cape_of_bob.item");
	keys.SetString("prefab", "wearable");
	keys.FindKey("used_by_heroes", true)->SetInt("npc_zarn_hero_cinder", 1);
	EXPECT_EQ(model->GetItemDirectory(&keys, ECON_ITEM_PREFAB_NONE), "items/item_definitions/wearable/cinder");
	EXPECT_EQ(model->GetItemDirectory(&keys, EconItemPrefabByName("courier")), "items/item_definitions/courier");
	keys.SetInt("baseitem", 1);
	EXPECT_EQ(model->GetItemDirectory(&keys, ECON_ITEM_PREFAB_NONE), "items/item_definitions/default_item");

	KeyValues signed_("77");
	signed_.SetString("name", "Cape autographed by ");
	signed_.FindKey("autograph", true)->SetString("mintyardlink", "4217");
	EXPECT_EQ(model->GetItemFileName(&signed_, ECON_ITEM_PREFAB_NONE), "items/item_definitions/reserved/cape_autographed_by_4217.item");
	signed_.FindKey("autograph")->SetString("mintyardlink", "42x");
	EXPECT_EQ(model->GetItemFileName(&signed_, ECON_ITEM_PREFAB_NONE), "items/item_definitions/reserved/cape_autographed_by_.item");

	EXPECT_EQ(EconItemPrefabByName("WEARABLE"), 1);
	EXPECT_EQ(EconItemPrefabByName("nothing"), ECON_ITEM_PREFAB_NONE);
	EXPECT_STREQ(EconItemPrefab(42)->m_pszName, "ironback");
	EXPECT_EQ(EconItemPrefab(43), nullptr);
	int heroRows = 0;
	for (int row = 0; row < ECON_ITEM_PREFAB_COUNT; ++row)
		heroRows += EconItemPrefab(row)->m_bHero ? 1 : 0;
	EXPECT_EQ(heroRows, 3);
	CUtlString filter;
	EXPECT_TRUE(model->GetPrefabFilterName("Courier", filter));
	EXPECT_EQ(filter, "courier");
}

TEST_F(ItemToolModelTest, ReservationsAnswerOnTheMainThreadFromTheService)
{
	CTempDirectory data;
	CServiceProcess service;
	ASSERT_TRUE(service.Start(data.Path(), { "--persona", "Maker" }));
	ASSERT_TRUE(m_pModel->Load());
	m_pModel->SetReservationService(service.Address().c_str(), 0);

	// Before the model asks: another account holds 7001, and an item occupies 7002.
	httplib::Client http("127.0.0.1", service.Port());
	const httplib::Headers rival = { { "X-Brume-Account", "76561197960265828" }, { "X-Brume-Persona", "Rival" } };
	ASSERT_EQ(http.Post("/api/v1/reservations", rival, "{\"index\":7001,\"prefab\":6}", "application/json")->status, 200);
	ASSERT_EQ(http.Post("/api/v1/occupied", "{\"index\":7002}", "application/json")->status, 200);

	// Each ask takes the next index above every known item and every earlier ask.
	CRequester requester;
	for (uint32 expected : { 7001u, 7002u, 7003u })
	{
		uint32 asked = 0;
		m_pModel->ReserveIndexForPrefab(EconItemPrefabByName("courier"), asked, &requester);
		EXPECT_EQ(asked, expected);
	}
	EXPECT_TRUE(requester.m_Answers.empty()); // only the pump delivers
	ASSERT_TRUE(Pump(requester, 3));
	EXPECT_EQ(requester.m_Answers[0].index, 7001u);
	EXPECT_EQ(requester.m_Answers[0].result, RESERVE_ITEM_INDEX_RESERVED);
	EXPECT_EQ(requester.m_Answers[0].user, "Rival");
	EXPECT_EQ(requester.m_Answers[1].result, RESERVE_ITEM_INDEX_OCCUPIED);
	EXPECT_EQ(requester.m_Answers[1].user, "<null>");
	EXPECT_EQ(requester.m_Answers[2].result, RESERVE_ITEM_INDEX_ACCEPTED);

	// A service that does not answer: the request times out.
	m_pModel->SetReservationService("127.0.0.1:1", 0);
	CRequester lost;
	uint32 asked = 0;
	m_pModel->ReserveIndexForPrefab(1, asked, &lost);
	ASSERT_TRUE(Pump(lost, 1));
	EXPECT_EQ(lost.m_Answers[0].result, RESERVE_ITEM_INDEX_TIMED_OUT);

	// A requester that goes away before its answer hears nothing; one that asks later does.
	m_pModel->SetReservationService(service.Address().c_str(), 0);
	CRequester gone;
	m_pModel->ReserveIndexForPrefab(1, asked, &gone);
	m_pModel->CancelReservations(&gone);
	CRequester after;
	m_pModel->ReserveIndexForPrefab(1, asked, &after);
	ASSERT_TRUE(Pump(after, 1));
	EXPECT_TRUE(gone.m_Answers.empty());
	EXPECT_EQ(after.m_Answers[0].result, RESERVE_ITEM_INDEX_ACCEPTED);
}
