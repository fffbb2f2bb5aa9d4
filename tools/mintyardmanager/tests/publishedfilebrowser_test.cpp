// The browser of published files against a real service: listings page by page, details one file
// at a time, the addon-tag filter, deletion, failures and a service that goes away or is slow.
#include <set>

#include <gtest/gtest.h>

#include <QHeaderView>
#include <QMouseEvent>
#include <QProgressDialog>
#include <QTest>

#include "testsupport/brume_test_service.h"
#include "mintyardmanager/publishedfilebrowser.h"

namespace
{
const char *const kDetailsFailed = "An error occurred retrieving details for a published file!\nFile ID: ";
const char *const kSomeNotShown = "An error occurred while retrieving file information.\nSome files will not be shown!";

class PublishedFileBrowser : public ::testing::Test
{
protected:
	// Lists with the browser and runs frames until the chain has ended.
	bool List(bool bShared)
	{
		if (!m_Browser.StartFileQuery(bShared))
			return false;
		return PumpUntil([this] { return !m_Browser.IsBusy(); });
	}
	std::set<uint64_t> ListedIds()
	{
		std::set<uint64_t> ids;
		for (int row = 0; row < m_Browser.Model().rowCount(); ++row)
			ids.insert(m_Browser.Model().Record(row)->m_nPublishedFileId);
		return ids;
	}
	std::vector<std::string> ListingRequests()
	{
		std::vector<std::string> out;
		for (const std::string &r : m_Brume.Relay().Requests())
			if (r.rfind("GET /api/v1/files?", 0) == 0)
				out.push_back(r);
		return out;
	}
	int DetailRequests()
	{
		int n = 0;
		for (const std::string &r : m_Brume.Relay().Requests())
			if (r.rfind("GET /api/v1/files/", 0) == 0)
				++n;
		return n;
	}

	CBrumeTestService m_Brume;
	CMessageBoxCatcher m_Boxes;
	CPublishedFileBrowser m_Browser;
};

TEST_F(PublishedFileBrowser, AnAuthorWithNoFilesGetsAnEmptySortedTableAndNoMessage)
{
	ASSERT_TRUE(m_Brume.Start());
	ASSERT_TRUE(List(false));
	EXPECT_EQ(m_Browser.Model().rowCount(), 0);
	EXPECT_TRUE(m_Boxes.m_Texts.isEmpty());
	EXPECT_TRUE(m_Browser.isSortingEnabled());
	EXPECT_EQ(m_Browser.ProgressDialog(), nullptr);
	EXPECT_FALSE(m_Browser.TimeoutTimer()->isActive());
	EXPECT_EQ(ListingRequests().size(), 1u);
}

TEST_F(PublishedFileBrowser, FiftyFilesTakeOnePage)
{
	ASSERT_TRUE(m_Brume.Start());
	const std::vector<uint64_t> ids = m_Brume.MakeFiles(50);
	ASSERT_TRUE(List(false));
	EXPECT_EQ(m_Browser.Model().rowCount(), 50);
	EXPECT_EQ(ListedIds(), std::set<uint64_t>(ids.begin(), ids.end()));
	ASSERT_EQ(ListingRequests().size(), 1u);
	EXPECT_NE(ListingRequests()[0].find("start=0"), std::string::npos);
	EXPECT_EQ(DetailRequests(), 50);
	EXPECT_TRUE(m_Boxes.m_Texts.isEmpty());
}

TEST_F(PublishedFileBrowser, FiftyOneFilesTakeASecondPageFromIndexFifty)
{
	ASSERT_TRUE(m_Brume.Start());
	const std::vector<uint64_t> ids = m_Brume.MakeFiles(51);
	ASSERT_TRUE(List(false));
	EXPECT_EQ(m_Browser.Model().rowCount(), 51);
	EXPECT_EQ(ListedIds(), std::set<uint64_t>(ids.begin(), ids.end()));
	const std::vector<std::string> pages = ListingRequests();
	ASSERT_EQ(pages.size(), 2u);
	EXPECT_NE(pages[0].find("start=0"), std::string::npos) << pages[0];
	EXPECT_NE(pages[1].find("start=50"), std::string::npos) << pages[1];
	EXPECT_EQ(m_Browser.TotalFiles(), 51);
}

TEST_F(PublishedFileBrowser, HundredTwentyFilesAreListedNewestFirstWithOwnerText)
{
	ASSERT_TRUE(m_Brume.Start({ "--persona", "Test Author" }));
	const std::vector<uint64_t> ids = m_Brume.MakeFiles(120);
	ASSERT_TRUE(List(false));
	ASSERT_EQ(m_Browser.Model().rowCount(), 120);
	EXPECT_EQ(ListedIds(), std::set<uint64_t>(ids.begin(), ids.end()));
	EXPECT_EQ(ListingRequests().size(), 3u);
	EXPECT_EQ(DetailRequests(), 120);
	EXPECT_TRUE(m_Boxes.m_Texts.isEmpty());

	QHeaderView *header = m_Browser.horizontalHeader();
	EXPECT_EQ(header->sortIndicatorSection(), 4);
	EXPECT_EQ(header->sortIndicatorOrder(), Qt::DescendingOrder);
	EXPECT_TRUE(header->stretchLastSection());
	for (int column = 0; column < 6; ++column)
		EXPECT_EQ(header->sectionResizeMode(column), QHeaderView::Interactive) << column;
	for (int row = 1; row < 120; ++row)
		EXPECT_GE(m_Browser.Model().Record(row - 1)->m_rtimeCreated, m_Browser.Model().Record(row)->m_rtimeCreated);

	const BrumeID_t me = BrumeAPI_User()->GetBrumeID();
	const PublishedFileInfo_t *first = m_Browser.Model().Record(0);
	EXPECT_TRUE(first->m_bOwnedByMe);
	EXPECT_EQ(first->m_sOwnerText, std::string("Test Author ") + CPublishedFileBrowser::RenderAccountID(me));
	EXPECT_EQ(first->m_sTitle.rfind("File ", 0), 0u);
	EXPECT_EQ(m_Browser.ProgressDialog(), nullptr);
}

TEST_F(PublishedFileBrowser, AFileDeletedBeforeItsDetailsIsSkippedSilently)
{
	ASSERT_TRUE(m_Brume.Start());
	const std::vector<uint64_t> ids = m_Brume.MakeFiles(5);
	// Right after the listing has answered, another tool deletes one of the files.
	std::atomic<bool> bDeleted{ false };
	const uint64_t victim = ids[3];
	m_Brume.Relay().SetHook([&](const httplib::Request &req, httplib::Response &) {
		if (!bDeleted && req.path.rfind("/api/v1/files/", 0) == 0)
			bDeleted = m_Brume.DeleteDirectly(victim);
		return false;
	});
	ASSERT_TRUE(List(false));
	EXPECT_TRUE(bDeleted);
	EXPECT_EQ(m_Browser.Model().rowCount(), 4);
	EXPECT_EQ(ListedIds().count(victim), 0u);
	EXPECT_TRUE(m_Boxes.m_Texts.isEmpty()) << m_Boxes.m_Texts.join("|").toStdString();
}

TEST_F(PublishedFileBrowser, AFailedDetailsAnswerIsReportedAndTheRestAreListed)
{
	ASSERT_TRUE(m_Brume.Start());
	const std::vector<uint64_t> ids = m_Brume.MakeFiles(4);
	const std::string failing = "/api/v1/files/" + std::to_string(ids[1]);
	m_Brume.Relay().SetHook([&](const httplib::Request &req, httplib::Response &res) {
		if (req.method != "GET" || req.path != failing)
			return false;
		res.status = 503;
		res.set_content("{\"result\":2}", "application/json");
		return true;
	});
	ASSERT_TRUE(List(false));
	EXPECT_EQ(m_Browser.Model().rowCount(), 3);
	EXPECT_EQ(ListedIds().count(ids[1]), 0u);
	ASSERT_EQ(m_Boxes.m_Texts.size(), 2);
	EXPECT_EQ(m_Boxes.m_Texts[0], QString(kDetailsFailed) + QString::number(ids[1]));
	EXPECT_EQ(m_Boxes.m_Texts[1], QString(kSomeNotShown));
	EXPECT_EQ(m_Boxes.m_Titles[0], "Error");
	EXPECT_EQ(m_Browser.ProgressDialog(), nullptr);
}

TEST_F(PublishedFileBrowser, AFailedListingSaysSoAndEndsTheChain)
{
	ASSERT_TRUE(m_Brume.Start());
	m_Brume.MakeFiles(3);
	m_Brume.Relay().SetHook([](const httplib::Request &req, httplib::Response &res) {
		if (req.path != "/api/v1/files")
			return false;
		res.status = 503;
		res.set_content("{\"result\":2}", "application/json");
		return true;
	});
	ASSERT_TRUE(List(true));
	EXPECT_EQ(m_Browser.Model().rowCount(), 0);
	ASSERT_EQ(m_Boxes.m_Texts.size(), 1);
	EXPECT_EQ(m_Boxes.m_Texts[0], "Unable to enumerate user's published files!\n");
	EXPECT_EQ(DetailRequests(), 0);
	EXPECT_EQ(m_Browser.ProgressDialog(), nullptr);
}

TEST_F(PublishedFileBrowser, DeleteTakesTheRowAndTheFileAway)
{
	ASSERT_TRUE(m_Brume.Start());
	const std::vector<uint64_t> ids = m_Brume.MakeFiles(3);
	ASSERT_TRUE(List(false));
	ASSERT_EQ(m_Browser.Model().rowCount(), 3);
	m_Browser.setCurrentIndex(m_Browser.Model().index(1, 0));
	const uint64_t chosen = m_Browser.CurrentRecord()->m_nPublishedFileId;
	m_Browser.DeleteSelectedFile();
	ASSERT_NE(m_Browser.ProgressDialog(), nullptr);
	EXPECT_EQ(m_Browser.ProgressDialog()->labelText(), "Deleting selected file");
	EXPECT_EQ(m_Browser.ProgressDialog()->windowTitle(), "Downloading mintyard info...");
	EXPECT_FALSE(m_Browser.TimeoutTimer()->isActive());
	ASSERT_TRUE(PumpUntil([this] { return !m_Browser.IsBusy(); }));
	EXPECT_EQ(m_Browser.Model().rowCount(), 2);
	EXPECT_EQ(ListedIds().count(chosen), 0u);
	EXPECT_EQ(m_Brume.CountFiles(), 2);
	EXPECT_EQ(m_Browser.ProgressDialog(), nullptr);
	EXPECT_TRUE(m_Boxes.m_Texts.isEmpty());
}

TEST_F(PublishedFileBrowser, ARefusedDeleteStillTakesTheRowOffTheTable)
{
	ASSERT_TRUE(m_Brume.Start());
	m_Brume.MakeFiles(2);
	ASSERT_TRUE(List(false));
	m_Brume.Relay().SetHook([](const httplib::Request &req, httplib::Response &res) {
		if (req.method != "DELETE")
			return false;
		res.status = 403;
		res.set_content("{\"result\":15,\"publishedfileid\":" + req.path.substr(req.path.rfind('/') + 1) + "}", "application/json");
		return true;
	});
	m_Browser.setCurrentIndex(m_Browser.Model().index(0, 0));
	m_Browser.DeleteSelectedFile();
	ASSERT_TRUE(PumpUntil([this] { return !m_Browser.IsBusy(); }));
	EXPECT_EQ(m_Browser.Model().rowCount(), 1);
	EXPECT_EQ(m_Brume.CountFiles(), 2);
}

TEST_F(PublishedFileBrowser, DeleteWithNoRowChosenDoesNothing)
{
	ASSERT_TRUE(m_Brume.Start());
	m_Brume.MakeFiles(1);
	ASSERT_TRUE(List(false));
	m_Browser.setCurrentIndex(QModelIndex());
	m_Browser.DeleteSelectedFile();
	EXPECT_FALSE(m_Browser.IsBusy());
	EXPECT_EQ(m_Brume.CountFiles(), 1);
}

TEST_F(PublishedFileBrowser, AddonModesKeepOnlyAddonTagsAndItemModesOnlyTheRest)
{
	ASSERT_TRUE(m_Brume.Start());
	const uint64_t map = m_Brume.MakeFile("map", { "Map" });
	const uint64_t game = m_Brume.MakeFile("game", { "Zeta", "Custom Game", "Alpha" });
	const uint64_t dest = m_Brume.MakeFile("dest", { "Destination" });
	const uint64_t pack = m_Brume.MakeFile("pack", { "Asset Pack" });
	const uint64_t mirel = m_Brume.MakeFile("mirel", { "Mirel Addon" });
	const uint64_t lowerMap = m_Brume.MakeFile("lower", { "map" });
	const uint64_t wearable = m_Brume.MakeFile("wearable", { "Wearable", "Hero" });
	const uint64_t none = m_Brume.MakeFile("none");

	ASSERT_TRUE(List(true));
	EXPECT_EQ(ListedIds(), (std::set<uint64_t>{ map, game, dest, pack, mirel }));
	for (int row = 0; row < m_Browser.Model().rowCount(); ++row)
	{
		const PublishedFileInfo_t *record = m_Browser.Model().Record(row);
		if (record->m_nPublishedFileId == game)
		{
			EXPECT_EQ(record->m_sTagsText, "Alpha, Custom Game, Zeta");
			ASSERT_EQ(record->m_vecTags.size(), 3u);
			EXPECT_EQ(record->m_vecTags[0], "Alpha");
			EXPECT_EQ(record->m_vecTags[2], "Zeta");
		}
	}

	m_Browser.Model().Clear();
	m_Browser.ResetQuery();
	ASSERT_TRUE(List(false));
	EXPECT_EQ(ListedIds(), (std::set<uint64_t>{ lowerMap, wearable, none }));
	EXPECT_TRUE(m_Boxes.m_Texts.isEmpty());
}

TEST_F(PublishedFileBrowser, AServiceThatGoesAwayEndsTheListingWithAMessage)
{
	// Each answer takes a while, so the service can be ended while the details are coming in.
	ASSERT_TRUE(m_Brume.Start({ "--delay-ms", "30" }, false));
	m_Brume.MakeFiles(6);
	ASSERT_TRUE(m_Browser.StartFileQuery(false));
	ASSERT_TRUE(PumpUntil([this] { return m_Browser.Model().rowCount() >= 2 || !m_Browser.IsBusy(); }));
	m_Brume.Service().Kill();
	ASSERT_TRUE(PumpUntil([this] { return !m_Browser.IsBusy(); }));
	EXPECT_GE(m_Browser.Model().rowCount(), 2);
	EXPECT_LT(m_Browser.Model().rowCount(), 6);
	ASSERT_FALSE(m_Boxes.m_Texts.isEmpty());
	EXPECT_TRUE(m_Boxes.m_Texts[0].startsWith(kDetailsFailed)) << m_Boxes.m_Texts[0].toStdString();
	EXPECT_EQ(m_Boxes.m_Texts.last(), QString(kSomeNotShown));
	EXPECT_EQ(m_Browser.PendingCount(), 0);
}

TEST_F(PublishedFileBrowser, SlowAnswersStillListEverything)
{
	ASSERT_TRUE(m_Brume.Start({ "--delay-ms", "150" }, false));
	const std::vector<uint64_t> ids = m_Brume.MakeFiles(3);
	ASSERT_TRUE(m_Browser.StartFileQuery(false));
	ASSERT_NE(m_Browser.ProgressDialog(), nullptr);
	EXPECT_EQ(m_Browser.ProgressDialog()->windowTitle(), "Downloading mintyard info...");
	EXPECT_EQ(m_Browser.ProgressDialog()->labelText(), "Retrieving files from Brume Cloud, please wait...");
	EXPECT_TRUE(m_Browser.TimeoutTimer()->isActive());
	EXPECT_EQ(m_Browser.TimeoutTimer()->interval(), 15000);
	// After the first file the dialog counts one of three.
	ASSERT_TRUE(PumpUntil([this] { return m_Browser.Model().rowCount() >= 1 || !m_Browser.IsBusy(); }));
	ASSERT_NE(m_Browser.ProgressDialog(), nullptr);
	EXPECT_EQ(m_Browser.ProgressDialog()->maximum(), 3);
	EXPECT_EQ(m_Browser.ProgressDialog()->value(), 1);
	EXPECT_TRUE(m_Browser.TimeoutTimer()->isActive());
	ASSERT_TRUE(PumpUntil([this] { return !m_Browser.IsBusy(); }));
	EXPECT_EQ(ListedIds(), std::set<uint64_t>(ids.begin(), ids.end()));
	EXPECT_TRUE(m_Boxes.m_Texts.isEmpty());
}

TEST_F(PublishedFileBrowser, ATimeOutStopsTheChainAtTheNextAnswerAndKeepsTheRows)
{
	ASSERT_TRUE(m_Brume.Start());
	m_Brume.MakeFiles(5);
	ASSERT_TRUE(m_Browser.StartFileQuery(false));
	ASSERT_TRUE(PumpUntil([this] { return m_Browser.Model().rowCount() >= 1 || !m_Browser.IsBusy(); }));
	m_Browser.QueryTimedOut();
	ASSERT_TRUE(PumpUntil([this] { return !m_Browser.IsBusy(); }));
	EXPECT_GE(m_Browser.Model().rowCount(), 1);
	EXPECT_LT(m_Browser.Model().rowCount(), 5);
	EXPECT_EQ(m_Browser.PendingCount(), 0);
	EXPECT_EQ(m_Browser.ProgressDialog(), nullptr);
	EXPECT_FALSE(m_Browser.TimeoutTimer()->isActive());
	EXPECT_TRUE(m_Boxes.m_Texts.isEmpty());
}

TEST_F(PublishedFileBrowser, ACancelledProgressStopsTheChain)
{
	ASSERT_TRUE(m_Brume.Start());
	m_Brume.MakeFiles(5);
	ASSERT_TRUE(m_Browser.StartFileQuery(false));
	ASSERT_TRUE(PumpUntil([this] { return m_Browser.Model().rowCount() >= 1 || !m_Browser.IsBusy(); }));
	ASSERT_NE(m_Browser.ProgressDialog(), nullptr);
	m_Browser.ProgressDialog()->cancel();
	ASSERT_TRUE(PumpUntil([this] { return !m_Browser.IsBusy(); }));
	EXPECT_LT(m_Browser.Model().rowCount(), 5);
	EXPECT_EQ(m_Browser.ProgressDialog(), nullptr);
}

TEST_F(PublishedFileBrowser, ADetailsRequestThatCannotBeMadeEndsTheChainWithTheFileId)
{
	ASSERT_TRUE(m_Brume.Start());
	const std::vector<uint64_t> ids = m_Brume.MakeFiles(3);
	ASSERT_TRUE(m_Browser.StartFileQuery(false));
	// The client's interfaces go before the listing answers, so no details request can be made.
	BrumeAPIContext()->Clear();
	ASSERT_TRUE(PumpUntil([this] { return !m_Browser.IsBusy(); }));
	ASSERT_EQ(m_Boxes.m_Texts.size(), 1);
	EXPECT_EQ(m_Boxes.m_Texts[0], QString("Failed to retrieve published file details!\nFile ID: %1").arg(ids[0]));
	EXPECT_EQ(m_Browser.Model().rowCount(), 0);
	EXPECT_EQ(m_Browser.PendingCount(), 2);
	EXPECT_TRUE(m_Browser.TimeoutTimer()->isActive());
	EXPECT_EQ(DetailRequests(), 0);
}

TEST_F(PublishedFileBrowser, ARefreshDuringAListingRunsOneChainOnly)
{
	ASSERT_TRUE(m_Brume.Start());
	const std::vector<uint64_t> ids = m_Brume.MakeFiles(4);
	ASSERT_TRUE(m_Browser.StartFileQuery(false));
	m_Browser.Model().Clear();
	m_Browser.ResetQuery();
	ASSERT_TRUE(m_Browser.StartFileQuery(false));
	ASSERT_TRUE(PumpUntil([this] { return !m_Browser.IsBusy(); }));
	EXPECT_EQ(m_Browser.Model().rowCount(), 4);
	EXPECT_EQ(ListedIds(), std::set<uint64_t>(ids.begin(), ids.end()));
	EXPECT_EQ(DetailRequests(), 4);
}

TEST_F(PublishedFileBrowser, WithoutTheServiceTheListingSaysSoAndReturnsFalse)
{
	BrumeAPIContext()->Clear();
	EXPECT_FALSE(m_Browser.StartFileQuery(false));
	ASSERT_EQ(m_Boxes.m_Texts.size(), 1);
	EXPECT_EQ(m_Boxes.m_Texts[0],
		"Could not find connection to Brume. Please make sure that Brume is running and that you are logged in. Restart the app to try again.");
	EXPECT_EQ(m_Browser.ProgressDialog(), nullptr);
}

TEST_F(PublishedFileBrowser, AClickBelowTheLastRowClearsTheSelection)
{
	ASSERT_TRUE(m_Brume.Start());
	m_Brume.MakeFiles(2);
	ASSERT_TRUE(List(false));
	m_Browser.resize(600, 400);
	m_Browser.show();
	m_Browser.selectRow(0);
	ASSERT_TRUE(m_Browser.selectionModel()->hasSelection());
	QTest::mouseClick(m_Browser.viewport(), Qt::LeftButton, Qt::NoModifier, QPoint(20, 380));
	EXPECT_FALSE(m_Browser.selectionModel()->hasSelection());
	const QRect firstRow = m_Browser.visualRect(m_Browser.Model().index(0, 0));
	QTest::mouseClick(m_Browser.viewport(), Qt::LeftButton, Qt::NoModifier, firstRow.center());
	EXPECT_TRUE(m_Browser.selectionModel()->hasSelection());
}

TEST(PublishedFileBrowserLifetime, ABrowserGoneMidListingIsNeverCalledBack)
{
	CBrumeTestService brume;
	ASSERT_TRUE(brume.Start({ "--delay-ms", "50" }, false));
	brume.MakeFiles(3);
	CMessageBoxCatcher boxes;
	auto *browser = new CPublishedFileBrowser;
	ASSERT_TRUE(browser->StartFileQuery(false));
	ASSERT_TRUE(PumpUntil([browser] { return browser->Model().rowCount() >= 1 || !browser->IsBusy(); }));
	delete browser;
	// The answer to the details request in flight arrives with nobody waiting for it.
	const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
	PumpUntil([until] { return std::chrono::steady_clock::now() > until; });
	EXPECT_TRUE(boxes.m_Texts.isEmpty());
}

TEST(AccountIdText, EveryTypeHasItsForm)
{
	auto id = [](uint64_t universe, uint64_t type, uint64_t instance, uint64_t account) {
		return (universe << 56) | (type << 52) | (instance << 32) | account;
	};
	EXPECT_STREQ(CPublishedFileBrowser::RenderAccountID(id(1, 0, 0, 7)), "[I:1:7]");
	EXPECT_STREQ(CPublishedFileBrowser::RenderAccountID(id(1, 1, 1, 1234)), "[U:1:1234]");
	EXPECT_STREQ(CPublishedFileBrowser::RenderAccountID(id(1, 1, 5, 1234)), "[U:1:1234:5]");
	EXPECT_STREQ(CPublishedFileBrowser::RenderAccountID(id(2, 2, 3, 9)), "[M:2:9:3]");
	EXPECT_STREQ(CPublishedFileBrowser::RenderAccountID(id(1, 3, 0, 9)), "[G:1:9]");
	EXPECT_STREQ(CPublishedFileBrowser::RenderAccountID(id(4, 4, 77, 9)), "[A:4:9:77]");
	EXPECT_STREQ(CPublishedFileBrowser::RenderAccountID(id(1, 5, 0, 9)), "[P:1:9]");
	EXPECT_STREQ(CPublishedFileBrowser::RenderAccountID(id(1, 6, 0, 9)), "[C:1:9]");
	EXPECT_STREQ(CPublishedFileBrowser::RenderAccountID(id(1, 7, 0, 9)), "[g:1:9]");
	EXPECT_STREQ(CPublishedFileBrowser::RenderAccountID(id(1, 8, 1u << 19, 9)), "[c:1:9]");
	EXPECT_STREQ(CPublishedFileBrowser::RenderAccountID(id(1, 8, (1u << 19) | (1u << 18), 9)), "[c:1:9]");
	EXPECT_STREQ(CPublishedFileBrowser::RenderAccountID(id(1, 8, 1u << 18, 9)), "[L:1:9]");
	EXPECT_STREQ(CPublishedFileBrowser::RenderAccountID(id(1, 8, 0, 9)), "[T:1:9]");
	EXPECT_STREQ(CPublishedFileBrowser::RenderAccountID(id(1, 9, 0, 9)), "[i:1:9]");
	EXPECT_STREQ(CPublishedFileBrowser::RenderAccountID(id(1, 10, 0, 9)), "[a:1:9]");
	EXPECT_STREQ(CPublishedFileBrowser::RenderAccountID(id(1, 15, 0, 9)), "[i:1:9]");
	// The widest text still fits.
	EXPECT_STREQ(CPublishedFileBrowser::RenderAccountID(id(255, 4, 0xFFFFF, 0xFFFFFFFFu)), "[A:255:4294967295:1048575]");
}

TEST(AccountIdText, FourBuffersRotate)
{
	const char *a = CPublishedFileBrowser::RenderAccountID(1);
	const char *b = CPublishedFileBrowser::RenderAccountID(2);
	const char *c = CPublishedFileBrowser::RenderAccountID(3);
	const char *d = CPublishedFileBrowser::RenderAccountID(4);
	EXPECT_STREQ(a, "[I:0:1]");
	EXPECT_STREQ(b, "[I:0:2]");
	EXPECT_STREQ(c, "[I:0:3]");
	EXPECT_STREQ(d, "[I:0:4]");
	EXPECT_EQ(std::set<const char *>({ a, b, c, d }).size(), 4u);
	const char *e = CPublishedFileBrowser::RenderAccountID(5);
	EXPECT_TRUE(e == a || e == b || e == c || e == d);
	EXPECT_STREQ(e, "[I:0:5]");
}
} // namespace
