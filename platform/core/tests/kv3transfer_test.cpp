#include <gtest/gtest.h>

#include <string>

#include "core/kv3text.h"
#include "core/kv3transfer.h"
#include "core/logging.h"
#include "testsupport/test_support.h"

namespace
{
enum EShape
{
	SHAPE_BOX = 0,
	SHAPE_SPHERE = 1,
	SHAPE_CAPSULE = 5,
};
const KV3EnumName_t s_ShapeNames[] = { { "box", SHAPE_BOX }, { "sphere", SHAPE_SPHERE }, { "capsule", SHAPE_CAPSULE } };

// A recursive record, as a level of detail with extra meshes.
struct CMesh
{
	int m_nMaxPolygons = 0;
	int m_nMaxBones = 60;
	CUtlVector<CMesh> m_ExtraMeshes;

	template <class Self, class Context> static void TransferMembers(Self &self, Context &ctx)
	{
		ctx.Member("max_polygons", self.m_nMaxPolygons);
		ctx.Member("max_bones", self.m_nMaxBones, 60);
		ctx.Member("extra_meshes", self.m_ExtraMeshes);
	}
	void Load(CKV3TransferLoadContext &ctx) { TransferMembers(*this, ctx); }
	void Save(CKV3TransferSaveContext &ctx) const { TransferMembers(*this, ctx); }
};

struct CBaseElement
{
	CUtlString m_Id;
	CUtlString m_Name;
	bool m_bOptional = false;

	template <class Self, class Context> static void TransferMembers(Self &self, Context &ctx)
	{
		ctx.Member("id", self.m_Id);
		ctx.Member("name", self.m_Name);
		ctx.Member("optional", self.m_bOptional);
	}
	void Load(CKV3TransferLoadContext &ctx) { TransferMembers(*this, ctx); }
	void Save(CKV3TransferSaveContext &ctx) const { TransferMembers(*this, ctx); }
};

struct CModel : CBaseElement
{
	int m_nMaxFileSizeKB = -1;
	float m_flScale = 0.0f;
	uint64 m_nOwner = 0;
	Vector m_vecOffset;
	EShape m_eShape = SHAPE_BOX;
	CUtlVector<CUtlString> m_Tags;
	CUtlVector<int32> m_FileTypes;
	CUtlVector<CMesh> m_Lods;
	CMesh m_Collision;
	CKV3OwnedValue m_EventKeys;

	template <class Self, class Context> static void TransferMembers(Self &self, Context &ctx)
	{
		ctx.Member("max_file_size_kb", self.m_nMaxFileSizeKB, -1);
		ctx.Member("scale", self.m_flScale);
		ctx.Member("owner", self.m_nOwner);
		ctx.Member("offset", self.m_vecOffset);
		ctx.EnumMember("shape", self.m_eShape, s_ShapeNames);
		ctx.Member("tags", self.m_Tags);
		ctx.Member("file_types", self.m_FileTypes);
		ctx.Member("lod_list", self.m_Lods);
		ctx.Member("collision", self.m_Collision);
		ctx.Member("event_kv3", self.m_EventKeys);
	}
	void Load(CKV3TransferLoadContext &ctx)
	{
		CBaseElement::Load(ctx);
		TransferMembers(*this, ctx);
	}
	void Save(CKV3TransferSaveContext &ctx) const
	{
		CBaseElement::Save(ctx);
		TransferMembers(*this, ctx);
	}
};

// Polymorphic records: a small family of filters.
class IFilter : public IKV3PolymorphicRecord
{
};

class CTextFilter : public IFilter
{
public:
	KV3_DECLARE_POLYMORPHIC_CLASS();
	CUtlString m_Text;
	void Save(CKV3TransferSaveContext &ctx) const override { ctx.Member("m_strText", m_Text); }
	void Load(CKV3TransferLoadContext &ctx) override { ctx.Member("m_strText", m_Text); }
};
KV3_DEFINE_POLYMORPHIC_CLASS(CTextFilter, "test");

class CTypeFilter : public IFilter
{
public:
	KV3_DECLARE_POLYMORPHIC_CLASS();
	CUtlVector<int32> m_Types;
	void Save(CKV3TransferSaveContext &ctx) const override { ctx.Member("m_fileTypes", m_Types); }
	void Load(CKV3TransferLoadContext &ctx) override { ctx.Member("m_fileTypes", m_Types); }
};
KV3_DEFINE_POLYMORPHIC_CLASS(CTypeFilter, "test");

// Registered, but not a filter.
class COtherRecord : public IKV3PolymorphicRecord
{
public:
	KV3_DECLARE_POLYMORPHIC_CLASS();
	void Save(CKV3TransferSaveContext &) const override {}
	void Load(CKV3TransferLoadContext &) override {}
};
KV3_DEFINE_POLYMORPHIC_CLASS(COtherRecord, "test");

// A filter whose class can be saved but never made by a load.
class CSealedFilter : public IFilter
{
public:
	static inline const KV3ClassInfo_t s_Info = { "CSealedFilter", "test", KV3_SAVE_MODE_POLYMORPHIC, false, nullptr };
	const KV3ClassInfo_t *GetKV3ClassInfo() const override { return &s_Info; }
	void Save(CKV3TransferSaveContext &) const override {}
	void Load(CKV3TransferLoadContext &) override {}
};
[[maybe_unused]] const bool s_bSealedRegistered = (KV3RegisterClass(&CSealedFilter::s_Info), true);

// A filter with a class of the given mode, or with none at all.
class CModeFilter : public IFilter
{
public:
	explicit CModeFilter(const KV3ClassInfo_t *pInfo = nullptr) : m_pInfo(pInfo) {}
	const KV3ClassInfo_t *GetKV3ClassInfo() const override { return m_pInfo; }
	void Save(CKV3TransferSaveContext &ctx) const override { ctx.Member("saved", true); }
	void Load(CKV3TransferLoadContext &) override {}
	const KV3ClassInfo_t *m_pInfo;
};

struct COwner
{
	CUtlVector<std::unique_ptr<IFilter>> m_Filters;
	std::unique_ptr<IFilter> m_pMain;

	template <class Self, class Context> static void TransferMembers(Self &self, Context &ctx)
	{
		ctx.Member("filters", self.m_Filters);
		ctx.Member("main", self.m_pMain);
	}
	void Load(CKV3TransferLoadContext &ctx) { TransferMembers(*this, ctx); }
	void Save(CKV3TransferSaveContext &ctx) const { TransferMembers(*this, ctx); }
};

CModel MakeModel()
{
	CModel model;
	model.m_Id = "courier";
	model.m_Name = "#Courier_Name";
	model.m_bOptional = true;
	model.m_nMaxFileSizeKB = 2048;
	model.m_flScale = 1.25f;
	model.m_nOwner = 76561198000000001ull;
	model.m_vecOffset = Vector(1, -2, 3.5f);
	model.m_eShape = SHAPE_CAPSULE;
	model.m_Tags = { "Courier", "Flying" };
	model.m_FileTypes = { 0, 2 };
	model.m_Lods.resize(2);
	model.m_Lods[0].m_nMaxPolygons = 4000;
	model.m_Lods[0].m_ExtraMeshes.resize(1);
	model.m_Lods[0].m_ExtraMeshes[0].m_nMaxPolygons = 300;
	model.m_Lods[1].m_nMaxPolygons = 1500;
	model.m_Lods[1].m_nMaxBones = 20;
	model.m_Collision.m_nMaxPolygons = 64;
	CKeyValues3Context keys;
	SetMemberString(keys.Root(), "sound", "courier.step");
	model.m_EventKeys.Set(keys.Root());
	return model;
}

void ExpectSameModel(const CModel &a, const CModel &b)
{
	EXPECT_EQ(a.m_Id, b.m_Id);
	EXPECT_EQ(a.m_Name, b.m_Name);
	EXPECT_EQ(a.m_bOptional, b.m_bOptional);
	EXPECT_EQ(a.m_nMaxFileSizeKB, b.m_nMaxFileSizeKB);
	EXPECT_EQ(a.m_flScale, b.m_flScale);
	EXPECT_EQ(a.m_nOwner, b.m_nOwner);
	EXPECT_EQ(a.m_vecOffset, b.m_vecOffset);
	EXPECT_EQ(a.m_eShape, b.m_eShape);
	EXPECT_EQ(a.m_Tags, b.m_Tags);
	EXPECT_EQ(a.m_FileTypes, b.m_FileTypes);
	ASSERT_EQ(a.m_Lods.size(), b.m_Lods.size());
	for (size_t i = 0; i < a.m_Lods.size(); ++i)
	{
		EXPECT_EQ(a.m_Lods[i].m_nMaxPolygons, b.m_Lods[i].m_nMaxPolygons);
		EXPECT_EQ(a.m_Lods[i].m_nMaxBones, b.m_Lods[i].m_nMaxBones);
		EXPECT_EQ(a.m_Lods[i].m_ExtraMeshes.size(), b.m_Lods[i].m_ExtraMeshes.size());
	}
	EXPECT_EQ(a.m_Collision.m_nMaxPolygons, b.m_Collision.m_nMaxPolygons);
	EXPECT_TRUE(KV3ValuesEqual(a.m_EventKeys.Get(), b.m_EventKeys.Get()));
}

// Loads a record from KV3 text without the header line.
template <typename R> bool LoadFromText(R &record, const char *text, CUtlString *pContextText = nullptr)
{
	CKeyValues3Context document;
	CUtlString error;
	EXPECT_TRUE(LoadKV3Text_NoHeader(document.Root(), &error, text, KV3_FORMAT_GENERIC)) << error;
	CKV3TransferLoadContext context;
	context.LoadRecord(document.Root(), record);
	if (pContextText)
		*pContextText = context.GetText();
	return context.IsOk();
}

} // namespace

TEST(KV3Transfer, SaveThenLoadGivesAnEqualRecordWithMembersInOrder)
{
	const CModel model = MakeModel();
	CKeyValues3Context document;
	CUtlString text;
	ASSERT_TRUE(SaveKV3Object(model, document.Root(), &text)) << text;
	const char *order[] = { "id", "name", "optional", "max_file_size_kb", "scale", "owner", "offset", "shape", "tags", "file_types", "lod_list", "collision", "event_kv3" };
	ASSERT_EQ(V_ARRAYSIZE(order), document.Root()->GetMemberCount());
	for (uint32 i = 0; i < V_ARRAYSIZE(order); ++i)
		EXPECT_STREQ(order[i], document.Root()->GetMemberName(i));
	EXPECT_STREQ("capsule", GetMemberString(document.Root(), "shape"));
	EXPECT_EQ(KV3_SUBTYPE_INT32, FindMember(document.Root(), "max_file_size_kb")->GetSubType());
	EXPECT_EQ(KV3_SUBTYPE_FLOAT32, FindMember(document.Root(), "scale")->GetSubType());

	// Through text and back.
	CUtlBuffer buffer(CUtlBuffer::TEXT_BUFFER);
	ASSERT_TRUE(SaveKV3(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC, document.Root(), nullptr, &buffer));
	CKeyValues3Context reread;
	ASSERT_TRUE(LoadKV3(&reread, &text, &buffer, KV3_FORMAT_GENERIC)) << text;
	CModel loaded;
	ASSERT_TRUE(LoadKV3ObjectInPlace(loaded, reread.Root(), &text)) << text;
	EXPECT_EQ("", text);
	ExpectSameModel(model, loaded);
}

TEST(KV3Transfer, AbsentMembersTakeTheirDefaults)
{
	CModel model;
	model.m_nMaxFileSizeKB = 7;
	model.m_Tags = { "stale" };
	ASSERT_TRUE(LoadFromText(model, "{ Import_Name = 'x' ID = \"Lookup_Ignores_Case\" lod_list = [ {}, { max_bones = 12 } ] }"));
	EXPECT_EQ("Lookup_Ignores_Case", model.m_Id);
	EXPECT_EQ(-1, model.m_nMaxFileSizeKB); // a default other than zero
	EXPECT_TRUE(model.m_Tags.empty());
	ASSERT_EQ(2u, model.m_Lods.size());
	EXPECT_EQ(60, model.m_Lods[0].m_nMaxBones);
	EXPECT_EQ(12, model.m_Lods[1].m_nMaxBones);
	EXPECT_EQ(Vector(), model.m_vecOffset);
}

TEST(KV3Transfer, NumbersAreReadAcrossKindsWithTheCastRules)
{
	CModel model;
	CUtlString text;
	// A string where a number is meant; 2.0 as an integer is silent.
	ASSERT_TRUE(LoadFromText(model, "{ max_file_size_kb = \"12\" lod_list = [ { max_polygons = 2.0 } ] owner = '18446744073709551615' }", &text));
	EXPECT_EQ(12, model.m_nMaxFileSizeKB);
	EXPECT_EQ(2, model.m_Lods[0].m_nMaxPolygons);
	EXPECT_EQ(UINT64_MAX, model.m_nOwner);
	EXPECT_EQ("", text);

	// 1.5 gives 1 and a warning that does not fail the load.
	EXPECT_TRUE(LoadFromText(model, "{ max_file_size_kb = 1.5 }", &text));
	EXPECT_EQ(1, model.m_nMaxFileSizeKB);
	EXPECT_EQ(": Cast of 1.5 loses value information (returning 1)", text);

	// Narrowing that changes the value keeps the narrowed value.
	EXPECT_TRUE(LoadFromText(model, "{ max_file_size_kb = 4294967297 }", &text));
	EXPECT_EQ(1, model.m_nMaxFileSizeKB);
	EXPECT_NE(std::string::npos, text.find("Cast of 4294967297 loses value information (returning 1)"));
	EXPECT_TRUE(LoadFromText(model, "{ owner = -1 }", &text));
	EXPECT_NE(std::string::npos, text.find("returning 18446744073709551615"));

	// Kinds that are no number.
	EXPECT_TRUE(LoadFromText(model, "{ max_file_size_kb = { a = 1 } scale = [ 1 ] }", &text));
	EXPECT_EQ(0, model.m_nMaxFileSizeKB);
	EXPECT_NE(std::string::npos, text.find("Unsupported KV3 basic type 'table' (9)!"));
	EXPECT_NE(std::string::npos, text.find("Unsupported KV3 basic type 'array' (8)!"));
	EXPECT_TRUE(LoadFromText(model, "{ max_file_size_kb = true }", &text));
	EXPECT_EQ(1, model.m_nMaxFileSizeKB);

	CKeyValues3Context document;
	AddMember(document.Root(), "max_file_size_kb")->SetPointer(&model);
	CKV3TransferLoadContext context;
	context.LoadRecord(document.Root(), model);
	EXPECT_EQ(0, model.m_nMaxFileSizeKB);
	EXPECT_TRUE(context.IsOk());
	EXPECT_EQ(": Pointers cannot be used as numeric values", context.GetText());
}

TEST(KV3Transfer, ListsAndEnumsFromUnexpectedValues)
{
	CModel model;
	CUtlString text;
	// A scalar where a list is meant: an empty list and no message.
	ASSERT_TRUE(LoadFromText(model, "{ tags = 'Courier' lod_list = 3 shape = 'Sphere' }", &text));
	EXPECT_TRUE(model.m_Tags.empty());
	EXPECT_TRUE(model.m_Lods.empty());
	EXPECT_EQ(SHAPE_SPHERE, model.m_eShape); // enum names ignore case
	EXPECT_EQ("", text);
	// An enum string that matches no name gives -1 silently; numbers are read as numbers.
	ASSERT_TRUE(LoadFromText(model, "{ shape = 'cone' }", &text));
	EXPECT_EQ(-1, (int)model.m_eShape);
	EXPECT_EQ("", text);
	ASSERT_TRUE(LoadFromText(model, "{ shape = 5 }", &text));
	EXPECT_EQ(SHAPE_CAPSULE, model.m_eShape);
	// A value without a name is written as its number.
	model.m_eShape = (EShape)42;
	CKeyValues3Context document;
	ASSERT_TRUE(SaveKV3Object(model, document.Root()));
	EXPECT_EQ(42, FindMember(document.Root(), "shape")->GetInt64());
}

TEST(KV3Transfer, RecordsNestAtMost64Deep)
{
	// A chain of meshes, each holding the next as its one extra mesh.
	auto chain = [](int depth) {
		std::string text;
		for (int i = 0; i < depth; ++i)
			text += V_Format("{ max_polygons = %d extra_meshes = [ ", i + 1);
		text += "{ max_polygons = 999 }";
		for (int i = 0; i < depth; ++i)
			text += " ] }";
		return text;
	};
	auto deepest = [](const CMesh &root) {
		const CMesh *mesh = &root;
		int levels = 1;
		while (!mesh->m_ExtraMeshes.empty())
		{
			mesh = &mesh->m_ExtraMeshes[0];
			++levels;
		}
		return std::make_pair(levels, mesh->m_nMaxPolygons);
	};

	CMesh mesh;
	CUtlString text;
	ASSERT_TRUE(LoadFromText(mesh, chain(62).c_str(), &text)) << text; // 63 records
	EXPECT_EQ(std::make_pair(63, 999), deepest(mesh));

	CMesh tooDeep;
	EXPECT_FALSE(LoadFromText(tooDeep, chain(63).c_str(), &text)); // 64 records
	EXPECT_EQ(": Stack depth limit hit (64)", text);
	// The record at depth 64 exists but kept its defaults.
	EXPECT_EQ(std::make_pair(64, 0), deepest(tooDeep));

	// Saving has the same limit.
	CKeyValues3Context document;
	CKV3TransferSaveContext context;
	context.SaveRecord(document.Root(), tooDeep);
	EXPECT_FALSE(context.IsOk());
	EXPECT_NE(std::string::npos, context.GetText().find("Stack depth limit hit (64)"));
}

TEST(KV3Transfer, SavingAMemberTwiceKeepsTheLaterValueAndFails)
{
	struct CTwice
	{
		void Save(CKV3TransferSaveContext &ctx) const
		{
			ctx.Member("id", CUtlString("first"));
			ctx.Member("ID", CUtlString("second"));
		}
		void Load(CKV3TransferLoadContext &) {}
	};
	CKeyValues3Context document;
	CUtlString text;
	CCaptureLog log;
	EXPECT_FALSE(SaveKV3Object(CTwice(), document.Root(), &text));
	EXPECT_EQ(": Double-save to Member 'ID'", text);
	EXPECT_EQ(1u, document.Root()->GetMemberCount());
	EXPECT_STREQ("second", GetMemberString(document.Root(), "id"));
	EXPECT_EQ("KV3 save transfer failed: : Double-save to Member 'ID'", log.m_Text);
}

TEST(KV3Transfer, ErrorTextComposition)
{
	CKV3TransferLoadContext context;
	context.SetSourceName("template_courier.txt");
	ErrorRecord_t record;
	record.severity = ERROR_SEVERITY_WARNING;
	record.message = "first \t\n";
	context.OnError(record);
	EXPECT_TRUE(context.IsOk());
	record.file = "other.txt";
	record.line = 3;
	record.column = 4;
	record.message = "second";
	context.OnError(record);
	record.column = 0;
	record.severity = ERROR_SEVERITY_ERROR;
	record.message = "third\n";
	context.OnError(record);
	EXPECT_FALSE(context.IsOk());
	EXPECT_EQ("template_courier.txt: first\nother.txt(3,4): second\nother.txt(3): third", context.GetText());
	context.ReportError("Failed to allocate an instance of class '%s'", "X");
	EXPECT_EQ("template_courier.txt: Failed to allocate an instance of class 'X'", context.GetText().substr(context.GetText().rfind('\n') + 1));
}

TEST(KV3Transfer, ObjectBindingsHaveFourSlots)
{
	CKV3TransferSaveContext context;
	int objects[5];
	for (uint32 i = 0; i < 4; ++i)
		EXPECT_TRUE(context.SetObjectBinding(100 + i, &objects[i]));
	EXPECT_FALSE(context.SetObjectBinding(104, &objects[4]));
	EXPECT_EQ(&objects[2], context.GetObjectBinding(102));
	EXPECT_EQ(nullptr, context.GetObjectBinding(104));
	EXPECT_EQ(nullptr, context.GetObjectBinding(CKV3TransferContextBase::EMPTY_BINDING_KEY));
}

TEST(KV3Transfer, PolymorphicRecordsCarryTheirClass)
{
	COwner owner;
	auto text = std::make_unique<CTextFilter>();
	text->m_Text = "courier";
	owner.m_Filters.push_back(std::move(text));
	owner.m_Filters.push_back(nullptr);
	auto types = std::make_unique<CTypeFilter>();
	types->m_Types = { 0, 2 };
	owner.m_Filters.push_back(std::move(types));
	owner.m_pMain = std::make_unique<CTextFilter>();

	CKeyValues3Context document;
	CUtlString error;
	ASSERT_TRUE(SaveKV3Object(owner, document.Root(), &error)) << error;
	const KeyValues3 *filters = FindMember(document.Root(), "filters");
	ASSERT_EQ(3u, ArrayLength(filters));
	EXPECT_STREQ("_class", ArrayElement(filters, 0)->GetMemberName(0));
	EXPECT_STREQ("CTextFilter", GetMemberString(ArrayElement(filters, 0), "_class"));
	EXPECT_TRUE(ArrayElement(filters, 1)->IsNull());

	COwner loaded;
	ASSERT_TRUE(LoadKV3ObjectInPlace(loaded, document.Root(), &error)) << error;
	ASSERT_EQ(3u, loaded.m_Filters.size());
	auto *first = dynamic_cast<CTextFilter *>(loaded.m_Filters[0].get());
	ASSERT_NE(nullptr, first);
	EXPECT_EQ("courier", first->m_Text);
	EXPECT_EQ(nullptr, loaded.m_Filters[1]);
	auto *third = dynamic_cast<CTypeFilter *>(loaded.m_Filters[2].get());
	ASSERT_NE(nullptr, third);
	EXPECT_EQ((CUtlVector<int32>{ 0, 2 }), third->m_Types);
	EXPECT_NE(nullptr, dynamic_cast<CTextFilter *>(loaded.m_pMain.get()));
}

TEST(KV3Transfer, PolymorphicFailuresAreReported)
{
	struct Case_t
	{
		const char *text;
		const char *message;
	};
	const Case_t cases[] = {
		{ "{ main = { m_strText = 'x' } }", ": Tried to load a polymorphic pointer with no '_class' key" },
		{ "{ main = { _class = '' } }", ": Tried to load a polymorphic pointer with no '_class' key" },
		{ "{ main = 'CTextFilter' }", ": Tried to load a polymorphic pointer with no '_class' key" },
		{ "{ main = { _class = 'CUnknownFilter' } }", ": Failed to allocate an instance of class 'CUnknownFilter'" },
		{ "{ main = { _class = 'CSealedFilter' } }", ": Failed to allocate an instance of class 'CSealedFilter'" },
		{ "{ main = { _class = 'COtherRecord' } }", ": Failed to allocate an instance of class 'COtherRecord'" },
	};
	for (const Case_t &c : cases)
	{
		COwner owner;
		owner.m_pMain = std::make_unique<CTextFilter>();
		CUtlString text;
		CCaptureLog log; // the value is printed before the missing-class message
		EXPECT_FALSE(LoadFromText(owner, c.text, &text)) << c.text;
		EXPECT_EQ(c.message, text) << c.text;
		EXPECT_EQ(nullptr, owner.m_pMain) << c.text;
	}

	// Saving: a record without a class, and classes of each save mode.
	static const KV3ClassInfo_t s_TableMode = { "CTableMode", "test", KV3_SAVE_MODE_TABLE, true, nullptr };
	static const KV3ClassInfo_t s_NullMode = { "CNullMode", "test", KV3_SAVE_MODE_NULL, true, nullptr };
	static const KV3ClassInfo_t s_BadMode = { "CBadMode", "test", KV3_SAVE_MODE_UNSUPPORTED, true, nullptr };
	COwner owner;
	owner.m_Filters.push_back(std::make_unique<CModeFilter>(&s_TableMode));
	owner.m_Filters.push_back(std::make_unique<CModeFilter>(&s_NullMode));
	CKeyValues3Context document;
	CUtlString text;
	ASSERT_TRUE(SaveKV3Object(owner, document.Root(), &text)) << text;
	const KeyValues3 *filters = FindMember(document.Root(), "filters");
	EXPECT_TRUE(GetMemberBool(ArrayElement(filters, 0), "saved"));
	EXPECT_EQ(nullptr, FindMember(ArrayElement(filters, 0), "_class"));
	EXPECT_TRUE(ArrayElement(filters, 1)->IsNull());

	COwner broken;
	broken.m_Filters.push_back(std::make_unique<CModeFilter>(nullptr));
	broken.m_Filters.push_back(std::make_unique<CModeFilter>(&s_BadMode));
	broken.m_Filters.push_back(std::make_unique<CModeFilter>(&s_TableMode));
	CKeyValues3Context brokenDocument;
	CCaptureLog log;
	EXPECT_FALSE(SaveKV3Object(broken, brokenDocument.Root(), &text));
	EXPECT_EQ(": Failed to determine polymorphic class name\n: Failed to save unsupported class", text);
	// Once the transfer has failed, saved elements turn back into nulls.
	filters = FindMember(brokenDocument.Root(), "filters");
	for (uint32 i = 0; i < 3; ++i)
		EXPECT_TRUE(ArrayElement(filters, i)->IsNull()) << i;
}

TEST(KV3Transfer, ListsCanLiveInAScratchPoolSizedByASave)
{
	CModel model = MakeModel();
	for (int i = 0; i < 50; ++i)
		model.m_Tags.push_back(V_Format("tag%d", i));
	CKeyValues3Context document;
	uint64 storage = 0;
	ASSERT_TRUE(SaveKV3Object(model, document.Root(), nullptr, &storage));
	EXPECT_GE(storage, 52 * sizeof(CUtlString) + 2 * sizeof(CMesh) + sizeof(CMesh) + 2 * sizeof(int32));

	CUtlScratchMemoryPool pool((size_t)storage);
	{
		CModel loaded;
		CUtlString text;
		ASSERT_TRUE(LoadKV3ObjectInPlace(loaded, document.Root(), &text, "pooled", &pool)) << text;
		ExpectSameModel(model, loaded);
		EXPECT_EQ(&pool, loaded.m_Tags.get_allocator().Pool());
		EXPECT_EQ(&pool, loaded.m_Lods[0].m_ExtraMeshes.get_allocator().Pool());
		EXPECT_EQ(1, pool.ChunkCount()); // the counted bytes were enough
		EXPECT_LE(pool.BytesAllocated(), storage);

		// A copy owns its storage and may outlive the pool.
		CUtlVector<CUtlString> copy = loaded.m_Tags;
		EXPECT_TRUE(copy.get_allocator().OwnsStorage());
	}
}

TEST(KV3Transfer, FailedLoadsAreLoggedAsWarnings)
{
	CModel model;
	CKeyValues3Context document;
	AddMember(document.Root(), "lod_list")->MakeArray(1);
	SetMemberString(ArrayElement(FindMember(document.Root(), "lod_list"), 0), "extra_meshes", "x");
	CCaptureLog log;
	CMesh chain;
	CKeyValues3Context deep;
	KeyValues3 *v = deep.Root();
	for (int i = 0; i < 70; ++i)
		v = AddMember(v, "extra_meshes")->ArrayAppend();
	EXPECT_FALSE(LoadKV3ObjectInPlace(chain, deep.Root(), nullptr, "deep.txt"));
	EXPECT_EQ("LoadKV3ObjectInPlace error: deep.txt: Stack depth limit hit (64)\n", log.m_Text);
	EXPECT_EQ(LS_WARNING, log.m_LastSeverity);
	log.m_Text.clear();
	EXPECT_EQ(nullptr, LoadKV3Object<CMesh>(deep.Root(), nullptr, "deep.txt"));
	EXPECT_EQ("LoadKV3Object error: deep.txt: Stack depth limit hit (64)\n", log.m_Text);
	EXPECT_NE(nullptr, LoadKV3Object<CModel>(document.Root()));
}
