// The file filters: their query texts, their KV3 form, their local tests, and the queries they
// make run against the real content service; the published-file record's KV3 form.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

#include <httplib.h>
#include <rapidjson/document.h>

#include "testsupport/service_process.h"
#include "core/kv3text.h"
#include "core/utlbuffer.h"
#include "testsupport/test_support.h"
#include "mintyardmanager/filefilters.h"
#include "mintyardmanager/publishedfilerecord.h"

namespace
{
CUtlString OnlyQuery(const IMintyardFileListerFilter &filter)
{
	CMintyardFileQueryRequest request;
	filter.AddToRequest(request);
	EXPECT_EQ(request.Params().size(), 1u);
	const char *pszQuery = request.GetParam("solr_filter_queries[0]");
	return pszQuery ? pszQuery : "<none>";
}

template <class T> std::unique_ptr<T> RoundTrip(const T &filter)
{
	CKeyValues3Context context;
	KeyValues3 *root = context.Root();
	CUtlString error;
	EXPECT_TRUE(filter.SaveToKV3(root, &error)) << error;
	EXPECT_STREQ(GetMemberString(root, "_class"), T::s_KV3ClassInfo.m_pszName);
	auto loaded = std::make_unique<T>();
	EXPECT_TRUE(loaded->LoadFromKV3(root, &error)) << error;
	return loaded;
}

std::shared_ptr<PublishedFileInfo_t> Record(uint64 id, std::vector<const char *> tags = {})
{
	auto record = std::make_shared<PublishedFileInfo_t>();
	record->m_nPublishedFileId = id;
	for (const char *tag : tags)
		record->m_vecTags.push_back(tag);
	return record;
}

class CKnownIds : public IMintyardFileListerFilterOwner
{
public:
	std::set<uint64> m_Ids;
	bool IsKnownFileId(uint64 id) const override { return m_Ids.count(id) != 0; }
};
} // namespace

TEST(FileFilters, QueryTexts)
{
	CTagsMintyardFileFilter tags;
	tags.m_tags.push_back("Map");
	EXPECT_EQ(OnlyQuery(tags), "tags:(\"Map\" OR \"map\")");
	tags.m_tags.push_back("Asset Pack");
	EXPECT_EQ(OnlyQuery(tags), "tags:(\"Map\" OR \"map\" OR \"Asset Pack\" OR \"asset pack\")");

	CKeyValueTagMintyardFileFilter kv;
	kv.m_strKey = "status";
	kv.m_values.push_back("A");
	kv.m_values.push_back("b");
	kv.m_bIncludeMissing = true;
	EXPECT_EQ(OnlyQuery(kv), "kvtags:(\"status:a\" OR \"status:b\") OR (*:* NOT kvtags:(status*))");
	kv.m_bIncludeMissing = false;
	EXPECT_EQ(OnlyQuery(kv), "kvtags:(\"status:a\" OR \"status:b\")");

	CReviewStatusMintyardFileFilter review;
	CReviewStatusMintyardFileFilter::SetReviewStatusKey("review");
	review.m_values.push_back("Approved");
	EXPECT_EQ(OnlyQuery(review), "kvtags:(\"review:approved\")");

	CFileTypeMintyardFileFilter types;
	types.m_fileTypes.push_back(0);
	types.m_fileTypes.push_back(16);
	EXPECT_EQ(OnlyQuery(types), "filetype:(0 OR 16)");

	CZarnAssetTypeMintyardFileFilter assets;
	assets.m_assetTypes.push_back(ZARN_MINTYARD_ASSET_TYPE_BUNDLE);
	EXPECT_EQ(OnlyQuery(assets), "(filetype:2)");
	assets.m_assetTypes.push_back(ZARN_MINTYARD_ASSET_TYPE_COURIER);
	EXPECT_EQ(OnlyQuery(assets), "(filetype:2) OR (filetype:(0 OR 1) AND (tags:(\"Bundle\" OR \"Courier\")))");
	assets.m_assetTypes.erase(assets.m_assetTypes.begin());
	assets.m_assetTypes.push_back(ZARN_MINTYARD_ASSET_TYPE_WARD);
	EXPECT_EQ(OnlyQuery(assets), "(filetype:(0 OR 1) AND (tags:(\"Courier\" OR \"Ward\")))");

	// Several filters number their texts in turn; the title goes under its own name, even empty.
	CMintyardFileQueryRequest request;
	CTitleMintyardFileFilter title;
	title.AddToRequest(request);
	tags.AddToRequest(request);
	types.AddToRequest(request);
	ASSERT_NE(request.GetParam("search_text"), nullptr);
	EXPECT_STREQ(request.GetParam("search_text"), "");
	EXPECT_STREQ(request.GetParam("solr_filter_queries[1]"), "filetype:(0 OR 16)");

	// Filters with no values, and those that never query, add nothing.
	CMintyardFileQueryRequest empty;
	CTagsMintyardFileFilter().AddToRequest(empty);
	CKeyValueTagMintyardFileFilter().AddToRequest(empty);
	CZarnAssetTypeMintyardFileFilter().AddToRequest(empty);
	CUpdatedAfterMintyardFileFilter().AddToRequest(empty);
	CZarnChildAssetTypeMintyardFileFilter child;
	child.m_assetTypes.push_back(ZARN_MINTYARD_ASSET_TYPE_WARD);
	child.AddToRequest(empty);
	EXPECT_TRUE(empty.Params().empty());
}

TEST(FileFilters, SaveAndLoadThroughKV3)
{
	CTagsMintyardFileFilter tags;
	tags.m_tags.push_back("Map");
	tags.m_tags.push_back("Custom Game");
	EXPECT_EQ(RoundTrip(tags)->m_tags, tags.m_tags);

	CKeyValueTagMintyardFileFilter kv;
	kv.m_values.push_back("x");
	kv.m_bIncludeMissing = true;
	auto kvLoaded = RoundTrip(kv);
	EXPECT_EQ(kvLoaded->m_values, kv.m_values);
	EXPECT_TRUE(kvLoaded->m_bIncludeMissing);

	CZarnAssetTypeMintyardFileFilter assets;
	assets.m_assetTypes.push_back(ZARN_MINTYARD_ASSET_TYPE_MUSIC);
	assets.m_assetTypes.push_back(ZARN_MINTYARD_ASSET_TYPE_BUNDLE);
	EXPECT_EQ(RoundTrip(assets)->m_assetTypes, assets.m_assetTypes);

	CUpdatedBeforeMintyardFileFilter before;
	before.m_nSecondsSinceEpoch = 1700000000;
	EXPECT_EQ(RoundTrip(before)->m_nSecondsSinceEpoch, 1700000000u);

	CZarnCollectionMintyardFileFilter collection;
	collection.m_bSingleHero = true;
	auto collectionLoaded = RoundTrip(collection);
	EXPECT_TRUE(collectionLoaded->m_bSingleHero);
	EXPECT_FALSE(collectionLoaded->m_bSameCreator);

	// A list, written by hand: each table names its class; enums by name.
	const char *text = "<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} "
					   "format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n"
					   "[\n"
					   "  { _class = \"CTitleMintyardFileFilter\" m_strText = \"gull\" },\n"
					   "  { _class = \"CFileTypeMintyardFileFilter\" m_fileTypes = [ 0, 1 ] },\n"
					   "  { _class = \"CZarnAssetTypeMintyardFileFilter\" m_assetTypes = [ \"ZARN_MINTYARD_ASSET_TYPE_WARD\" ] },\n"
					   "]\n";
	CKeyValues3Context context;
	CUtlString error;
	ASSERT_TRUE(LoadKV3(context.Root(), &error, text, KV3_FORMAT_GENERIC, "filters.kv3")) << error;
	CUtlVector<std::unique_ptr<IMintyardFileListerFilter>> filters;
	ASSERT_TRUE(LoadFileFiltersFromKV3(filters, context.Root(), &error)) << error;
	ASSERT_EQ(filters.size(), 3u);
	EXPECT_EQ(static_cast<CTitleMintyardFileFilter *>(filters[0].get())->m_strText, "gull");
	EXPECT_EQ(OnlyQuery(*filters[1]), "filetype:(0 OR 1)");
	EXPECT_EQ(OnlyQuery(*filters[2]), "(filetype:(0 OR 1) AND (tags:(\"Ward\")))");
	EXPECT_STREQ(filters[2]->GetSchemaClass()->m_pszName, "CZarnAssetTypeMintyardFileFilter");

	// And back: the same list writes and reads to the same queries.
	CKeyValues3Context again;
	ASSERT_TRUE(SaveFileFiltersToKV3(filters, again.Root(), &error)) << error;
	CUtlVector<std::unique_ptr<IMintyardFileListerFilter>> reloaded;
	ASSERT_TRUE(LoadFileFiltersFromKV3(reloaded, again.Root(), &error)) << error;
	ASSERT_EQ(reloaded.size(), 3u);
	EXPECT_EQ(OnlyQuery(*reloaded[2]), OnlyQuery(*filters[2]));

	// A class nobody knows, and a table of another filter class, are refused with a message.
	const char *unknown = "<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} "
						  "format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n"
						  "[ { _class = \"CNoSuchFilter\" } ]\n";
	CKeyValues3Context bad;
	ASSERT_TRUE(LoadKV3(bad.Root(), &error, unknown, KV3_FORMAT_GENERIC, "bad.kv3"));
	CUtlVector<std::unique_ptr<IMintyardFileListerFilter>> none;
	EXPECT_FALSE(LoadFileFiltersFromKV3(none, bad.Root(), &error));
	EXPECT_NE(error.find("CNoSuchFilter"), CUtlString::npos) << error;
	EXPECT_TRUE(none.empty());
	CTagsMintyardFileFilter wrongClass;
	EXPECT_FALSE(wrongClass.LoadFromKV3(again.Root()->GetArrayElement(0), &error));
	EXPECT_NE(error.find("CTitleMintyardFileFilter"), CUtlString::npos) << error;
}

TEST(FileFilters, LocalTests)
{
	CKeyValueTagMintyardFileFilter kv;
	kv.m_strKey = "Status";
	auto record = Record(1);
	EXPECT_TRUE(kv.PassesFile(*record)); // no values
	kv.m_values.push_back("approved");
	EXPECT_FALSE(kv.PassesFile(*record));
	kv.m_bIncludeMissing = true;
	EXPECT_TRUE(kv.PassesFile(*record));
	record->m_vecKeyValueTags.emplace_back("status", "APPROVED");
	EXPECT_TRUE(kv.PassesFile(*record));
	record->m_vecKeyValueTags[0].second = "rejected";
	EXPECT_FALSE(kv.PassesFile(*record)); // found with another value: missing does not apply

	CKnownIds known;
	COnlyUnimportedMintyardFileFilter unimported;
	unimported.SetOwner(&known);
	auto parent = Record(10), child = Record(11);
	parent->m_vecChildren.push_back(child);
	EXPECT_TRUE(unimported.PassesFile(*parent));
	known.m_Ids.insert(11);
	EXPECT_FALSE(unimported.PassesFile(*parent));
	known.m_Ids.clear();
	child->m_bAccepted = true;
	EXPECT_FALSE(unimported.PassesFile(*parent));
	EXPECT_TRUE(unimported.PassesFile(*Record(12)));

	CZarnChildAssetTypeMintyardFileFilter childTypes;
	auto bundle = Record(20);
	bundle->m_vecChildren.push_back(Record(21, { "Wearable" }));
	bundle->m_vecChildren.push_back(Record(22, { "Music" }));
	EXPECT_TRUE(childTypes.PassesFile(*bundle));
	childTypes.m_assetTypes.push_back(ZARN_MINTYARD_ASSET_TYPE_COURIER);
	EXPECT_FALSE(childTypes.PassesFile(*bundle));
	childTypes.m_assetTypes.push_back(ZARN_MINTYARD_ASSET_TYPE_MUSIC);
	EXPECT_TRUE(childTypes.PassesFile(*bundle));

	CZarnCollectionMintyardFileFilter collection;
	bundle->m_ulCreator = 5;
	bundle->m_vecChildren[0]->m_ulCreator = 5;
	bundle->m_vecChildren[1]->m_ulCreator = 6;
	EXPECT_TRUE(collection.PassesFile(*bundle));
	collection.m_bSameCreator = true;
	EXPECT_FALSE(collection.PassesFile(*bundle));
	bundle->m_vecChildren[1]->m_ulCreator = 5;
	EXPECT_TRUE(collection.PassesFile(*bundle));
	EXPECT_TRUE(collection.PassesCollection(*bundle));
	collection.m_bSingleHero = true;
	EXPECT_FALSE(collection.PassesCollection(*bundle));
	bundle->m_vecImportTargets.push_back("bramble");
	EXPECT_TRUE(collection.PassesCollection(*bundle));
	bundle->m_vecImportTargets.push_back("cinder");
	EXPECT_FALSE(collection.PassesCollection(*bundle));
}

TEST(PublishedFileRecord, RecordAndListingRoundTrip)
{
	auto record = Record(77, { "Courier", "Wearable" });
	record->m_sGuid = "guid-1";
	record->m_sTitle = "Swift \"Gull\"";
	record->m_sDescription = "line one\nline two";
	record->m_eFileType = 1;
	record->m_rtimeCreated = 100;
	record->m_rtimeUpdated = 200;
	record->m_hFile = 0x1234567890ull;
	record->m_bAccepted = true;
	record->m_ulCreator = 76561197960265729ull;
	record->m_flScore = 0.5f;
	record->m_nVotesUp = 3;
	record->m_ImportRequest.m_sItemName = "swift_gull";
	record->m_ImportResult.m_vecWarnings.push_back("a warning");
	record->m_ImportResult.m_nEconItemDefinitionIndex = 30001;
	auto child = Record(78, { "Ward" });
	child->m_sGuid = "guid-2";
	record->m_vecChildren.push_back(child);

	CKeyValues3Context context;
	CUtlString error;
	ASSERT_TRUE(SavePublishedFileToKV3(*record, context.Root(), &error)) << error;
	// Members in their order.
	CUtlVector<CUtlString> names;
	context.Root()->ForEachMember([&](std::string_view name, uint32, const KeyValues3 *) { names.push_back(CUtlString(name)); });
	ASSERT_GE(names.size(), 4u);
	EXPECT_EQ(names[0], "guid");
	EXPECT_EQ(names[1], "publishedfileid");
	EXPECT_EQ(names.back(), "import_result");

	PublishedFileInfo_t loaded;
	ASSERT_TRUE(LoadPublishedFileFromKV3(loaded, context.Root(), &error)) << error;
	EXPECT_EQ(loaded.m_sTitle, record->m_sTitle);
	EXPECT_EQ(loaded.m_sDescription, record->m_sDescription);
	EXPECT_EQ(loaded.m_hFile, record->m_hFile);
	EXPECT_EQ(loaded.m_ulCreator, record->m_ulCreator);
	EXPECT_EQ(loaded.m_vecTags, record->m_vecTags);
	EXPECT_TRUE(loaded.m_bAccepted);
	EXPECT_EQ(loaded.m_nVotesUp, 3u);
	EXPECT_FLOAT_EQ(loaded.m_flScore, 0.5f);
	EXPECT_EQ(loaded.m_ImportRequest.m_sItemName, "swift_gull");
	EXPECT_EQ(loaded.m_ImportResult.m_vecWarnings, record->m_ImportResult.m_vecWarnings);
	EXPECT_EQ(loaded.m_ImportResult.m_nEconItemDefinitionIndex, 30001u);
	ASSERT_EQ(loaded.m_vecChildren.size(), 1u);
	EXPECT_EQ(loaded.m_vecChildren[0]->m_sGuid, "guid-2");

	// No tags and no children: the members are left out.
	PublishedFileInfo_t bare;
	CKeyValues3Context bareContext;
	ASSERT_TRUE(SavePublishedFileToKV3(bare, bareContext.Root(), &error));
	EXPECT_EQ(FindMember(bareContext.Root(), "tags"), nullptr);
	EXPECT_EQ(FindMember(bareContext.Root(), "children"), nullptr);

	// A listing whose child is also a top-level entry holds it once, and links it on loading.
	CUtlVector<std::shared_ptr<PublishedFileInfo_t>> files = { record, child };
	CKeyValues3Context listing;
	ASSERT_TRUE(SavePublishedFileListToKV3(files, listing.Root(), &error)) << error;
	EXPECT_EQ(ArrayLength(GetMember(listing.Root(), "flattenedFiles")), 2u);
	EXPECT_EQ(ArrayLength(GetMember(listing.Root(), "files")), 2u);
	CUtlBuffer text;
	ASSERT_TRUE(SaveKV3(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC, listing.Root(), &error, &text)) << error;
	CKeyValues3Context reread;
	ASSERT_TRUE(LoadKV3(reread.Root(), &error, std::string_view(text.Base(), text.TellPut()), KV3_FORMAT_GENERIC, "listing.kv3")) << error;
	CUtlVector<std::shared_ptr<PublishedFileInfo_t>> back;
	ASSERT_TRUE(LoadPublishedFileListFromKV3(back, reread.Root(), &error)) << error;
	ASSERT_EQ(back.size(), 2u);
	EXPECT_EQ(back[0]->m_sTitle, record->m_sTitle);
	ASSERT_EQ(back[0]->m_vecChildren.size(), 1u);
	EXPECT_EQ(back[0]->m_vecChildren[0], back[1]);

	// A listing naming a file it does not hold says so.
	CKeyValues3Context broken;
	ASSERT_TRUE(LoadKV3(broken.Root(), &error,
		"<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n"
		"{ flattenedFiles = [ ] files = [ 5 ] }",
		KV3_FORMAT_GENERIC, "broken.kv3"));
	EXPECT_FALSE(LoadPublishedFileListFromKV3(back, broken.Root(), &error));
	EXPECT_NE(error.find("5"), CUtlString::npos);
	EXPECT_TRUE(back.empty());
}

// Each filter's query, sent to the real service, finds exactly the files it must.
TEST(FileFilters, QueriesRunAgainstTheService)
{
	CTempDirectory data;
	CServiceProcess service;
	ASSERT_TRUE(service.Start(data.Path()));
	httplib::Client http("127.0.0.1", service.Port());

	struct File_t
	{
		const char *name;
		int fileType;
		const char *tags;	 // JSON array
		const char *kvtags; // JSON array
	};
	const File_t kFiles[] = {
		{ "map", 0, R"(["Map"])", "[]" },
		{ "lowermap", 0, R"(["map"])", "[]" },
		{ "courier", 1, R"(["Courier"])", R"([{"key":"status","value":"a"}])" },
		{ "ward", 0, R"(["Ward"])", R"([{"key":"status","value":"c"}])" },
		{ "bundle", 2, "[]", "[]" },
		{ "stray courier", 16, R"(["Courier"])", R"([{"key":"status","value":"b"}])" },
	};
	std::map<uint64, std::string> names;
	for (const File_t &file : kFiles)
	{
		auto created = http.Post("/api/v1/files", "{\"file_type\":" + std::to_string(file.fileType) + "}", "application/json");
		ASSERT_TRUE(created && created->status == 200);
		rapidjson::Document doc;
		doc.Parse(created->body.c_str());
		const uint64 id = doc["publishedfileid"].GetUint64();
		names[id] = file.name;
		const std::string meta = std::string("{\"title\":\"") + file.name + "\",\"visibility\":0,\"tags\":" + file.tags +
			",\"kvtags\":" + file.kvtags + "}";
		httplib::MultipartFormDataItems items = { { "meta", meta, "", "application/json" } };
		auto updated = http.Post(("/api/v1/files/" + std::to_string(id) + "/update").c_str(), items);
		ASSERT_TRUE(updated && updated->status == 200) << (updated ? updated->body : "no answer");
	}

	auto Query = [&](const IMintyardFileListerFilter &filter) {
		CMintyardFileQueryRequest request;
		filter.AddToRequest(request);
		httplib::Params params;
		for (const auto &param : request.Params())
			params.emplace(param.first, param.second);
		auto answer = http.Get("/api/v1/files/query", params, httplib::Headers());
		std::set<std::string> found;
		EXPECT_TRUE(answer && answer->status == 200) << (answer ? answer->body : "no answer");
		if (!answer || answer->status != 200)
			return found;
		rapidjson::Document doc;
		doc.Parse(answer->body.c_str());
		for (const auto &id : doc["ids"].GetArray())
			found.insert(names[id.GetUint64()]);
		return found;
	};
	using Names = std::set<std::string>;

	CTagsMintyardFileFilter tags;
	tags.m_tags.push_back("Map");
	EXPECT_EQ(Query(tags), (Names{ "map", "lowermap" }));

	CFileTypeMintyardFileFilter types;
	types.m_fileTypes.push_back(2);
	types.m_fileTypes.push_back(16);
	EXPECT_EQ(Query(types), (Names{ "bundle", "stray courier" }));

	CKeyValueTagMintyardFileFilter kv;
	kv.m_strKey = "status";
	kv.m_values.push_back("A");
	kv.m_values.push_back("b");
	EXPECT_EQ(Query(kv), (Names{ "courier", "stray courier" }));
	kv.m_bIncludeMissing = true;
	EXPECT_EQ(Query(kv), (Names{ "courier", "stray courier", "map", "lowermap", "bundle" }));

	CZarnAssetTypeMintyardFileFilter assets;
	assets.m_assetTypes.push_back(ZARN_MINTYARD_ASSET_TYPE_BUNDLE);
	EXPECT_EQ(Query(assets), (Names{ "bundle" }));
	assets.m_assetTypes.push_back(ZARN_MINTYARD_ASSET_TYPE_COURIER);
	assets.m_assetTypes.push_back(ZARN_MINTYARD_ASSET_TYPE_WARD);
	EXPECT_EQ(Query(assets), (Names{ "bundle", "courier", "ward" })); // not the courier of type 16

	CTitleMintyardFileFilter title;
	title.m_strText = "COURIER";
	EXPECT_EQ(Query(title), (Names{ "courier", "stray courier" }));
	title.m_strText = "";
	EXPECT_EQ(Query(title).size(), 6u);

	// A malformed query is refused with the place, and the service goes on answering.
	auto bad = http.Get("/api/v1/files/query?solr_filter_queries%5B0%5D=tags%3A%28%22Map%22");
	ASSERT_TRUE(bad);
	EXPECT_EQ(bad->status, 400);
	EXPECT_NE(bad->body.find("expected ')'"), std::string::npos) << bad->body;
	EXPECT_EQ(Query(tags).size(), 2u);
}
