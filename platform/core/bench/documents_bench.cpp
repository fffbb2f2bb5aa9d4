// Parse and write speed of KV3 text, against RapidJSON's DOM parser on the same document in
// JSON form, the peak memory of a KV3 parse, and the load and save speed of KV1 text.
//
//   build/bench/documents_bench --benchmark_counters_tabular=true
//
// The document is generated (about 10 MB of KV3 text): an array of item tables with short and
// long strings, integers, doubles, bools, vectors and arrays of numbers, nested tables and
// arrays of small tables. Memory is counted by replacing the global allocation functions, so
// "peak_x" is the peak of everything a parse allocates (arena, name table, parser stacks)
// divided by the size of the text; the text itself is not counted.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <random>
#include <string>

#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include "core/bench/allocationcounter.h"
#include "core/keyvalues.h"
#include "core/keyvalues3.h"
#include "core/kv3text.h"
#include "core/strtools.h"

// ---------------------------------------------------------------------------------------------
// The document

namespace
{
const size_t kTargetBytes = 10u << 20;

std::string RandomText(std::mt19937 &rng, int minLength, int maxLength)
{
	static const char *words[] = { "courier", "ward", "wearable", "zarn", "model", "texture", "the", "of", "a", "shoulder",
		"armor", "glow", "left", "right", "particle", "bundle", "frame", "portrait", "light", "shadow" };
	std::string text;
	const int length = std::uniform_int_distribution<int>(minLength, maxLength)(rng);
	while ((int)text.size() < length)
	{
		if (!text.empty())
			text += ' ';
		text += words[rng() % V_ARRAYSIZE(words)];
	}
	return text;
}

double RandomNumber(std::mt19937 &rng)
{
	// Numbers as tools write them: a few significant digits.
	const int digits = std::uniform_int_distribution<int>(2, 6)(rng);
	const double scale = std::pow(10.0, digits);
	return std::round(std::uniform_real_distribution<double>(-100.0, 100.0)(rng) * scale) / scale;
}

void FillItem(std::mt19937 &rng, KeyValues3 *item, int index)
{
	SetMemberString(item, "id", V_Format("item_%d", index));
	SetMemberString(item, "name", RandomText(rng, 10, 60));
	if (index % 3 == 0)
		SetMemberString(item, "description", RandomText(rng, 150, 400));
	SetMemberInt(item, "index", index);
	AddMember(item, "weight")->SetDouble(RandomNumber(rng));
	SetMemberBool(item, "enabled", (rng() & 1) != 0);
	float position[3] = { (float)RandomNumber(rng), (float)RandomNumber(rng), (float)RandomNumber(rng) };
	SetFloats(AddMember(item, "position"), 3, position);
	KeyValues3 *samples = AddMember(item, "samples");
	const int sampleCount = std::uniform_int_distribution<int>(8, 48)(rng);
	for (int i = 0; i < sampleCount; ++i)
		samples->ArrayAppend()->SetDouble(RandomNumber(rng));
	KeyValues3 *tags = AddMember(item, "tags");
	for (int i = 0; i < 3; ++i)
		tags->ArrayAppend()->SetString(RandomText(rng, 3, 12));
	KeyValues3 *child = AddMember(item, "child");
	SetMemberString(child, "material", V_Format("materials/items/item_%d.zmat", index));
	SetMemberInt(child, "lod", index % 4);
	KeyValues3 *parts = AddMember(child, "parts");
	for (int i = 0; i < 3; ++i)
	{
		KeyValues3 *part = parts->ArrayAppend();
		SetMemberString(part, "bone", RandomText(rng, 4, 10));
		AddMember(part, "scale")->SetDouble(RandomNumber(rng));
	}
}

struct Document_t
{
	CUtlBuffer kv3Text{ CUtlBuffer::TEXT_BUFFER };
	std::string json;
	size_t items = 0;
};

void WriteJSON(rapidjson::PrettyWriter<rapidjson::StringBuffer> &writer, const KeyValues3 *value)
{
	switch (value->GetType())
	{
	case KV3_TYPE_NULL:
		writer.Null();
		break;
	case KV3_TYPE_BOOL:
		writer.Bool(value->GetBoolValue());
		break;
	case KV3_TYPE_INT:
		writer.Int64(value->GetInt64());
		break;
	case KV3_TYPE_UINT:
		writer.Uint64(value->GetUInt64());
		break;
	case KV3_TYPE_DOUBLE:
		writer.Double(value->GetDouble());
		break;
	case KV3_TYPE_STRING:
		writer.String(value->GetString(), value->GetStringLength());
		break;
	case KV3_TYPE_ARRAY:
		writer.StartArray();
		value->ForEachArrayElement([&](const KeyValues3 *element) { WriteJSON(writer, element); });
		writer.EndArray();
		break;
	case KV3_TYPE_TABLE:
		writer.StartObject();
		value->ForEachMember([&](std::string_view name, uint32, const KeyValues3 *member) {
			writer.Key(name.data(), (rapidjson::SizeType)name.size());
			WriteJSON(writer, member);
		});
		writer.EndObject();
		break;
	default:
		writer.Null();
		break;
	}
}

const Document_t &GetDocument()
{
	static Document_t *s_pDocument = [] {
		Document_t *doc = new Document_t;
		std::mt19937 rng(12345);
		CKeyValues3Context context;
		SetMemberString(context.Root(), "format_note", "generated benchmark document");
		KeyValues3 *items = AddMember(context.Root(), "items");
		// Grow until the text reaches the target size.
		for (;;)
		{
			for (int i = 0; i < 500; ++i)
				FillItem(rng, items->ArrayAppend(), (int)doc->items++);
			doc->kv3Text.Clear();
			SaveKV3(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC, context.Root(), nullptr, &doc->kv3Text);
			if (doc->kv3Text.Size() >= kTargetBytes)
				break;
		}
		rapidjson::StringBuffer json;
		rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(json);
		writer.SetIndent('\t', 1);
		WriteJSON(writer, context.Root());
		doc->json.assign(json.GetString(), json.GetSize());
		return doc;
	}();
	return *s_pDocument;
}

void BM_KV3Parse(benchmark::State &state)
{
	const Document_t &doc = GetDocument();
	int64_t peak = 0;
	size_t reserved = 0;
	for (auto _ : state)
	{
		const int64_t base = AllocationCounter_Current();
		AllocationCounter_ResetPeak();
		CKeyValues3Context context;
		CUtlString error;
		if (!LoadKV3(&context, &error, &doc.kv3Text, KV3_FORMAT_GENERIC))
			state.SkipWithError(error.c_str());
		benchmark::DoNotOptimize(context.Root());
		peak = AllocationCounter_Peak() - base;
		reserved = context.BytesReserved();
	}
	state.SetBytesProcessed((int64_t)(state.iterations() * doc.kv3Text.Size()));
	state.counters["doc_MB"] = (double)doc.kv3Text.Size() / (1 << 20);
	state.counters["peak_x"] = (double)peak / (double)doc.kv3Text.Size();
	state.counters["arena_x"] = (double)reserved / (double)doc.kv3Text.Size();
	state.counters["items"] = (double)doc.items;
}
BENCHMARK(BM_KV3Parse)->Unit(benchmark::kMillisecond);

template <unsigned Flags> void BM_RapidJSONParse(benchmark::State &state)
{
	const Document_t &doc = GetDocument();
	size_t capacity = 0;
	for (auto _ : state)
	{
		rapidjson::Document json;
		json.Parse<Flags>(doc.json.c_str(), doc.json.size());
		if (json.HasParseError())
			state.SkipWithError("RapidJSON parse error");
		benchmark::DoNotOptimize(&json);
		capacity = json.GetAllocator().Capacity();
	}
	state.SetBytesProcessed((int64_t)(state.iterations() * doc.json.size()));
	state.counters["doc_MB"] = (double)doc.json.size() / (1 << 20);
	state.counters["arena_x"] = (double)capacity / (double)doc.json.size();
}
// RapidJSON's default, and with exact number parsing as the KV3 parser does.
BENCHMARK(BM_RapidJSONParse<rapidjson::kParseDefaultFlags>)->Name("BM_RapidJSONParse")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RapidJSONParse<rapidjson::kParseFullPrecisionFlag>)->Name("BM_RapidJSONParse_FullPrecision")->Unit(benchmark::kMillisecond);

void BM_KV3Write(benchmark::State &state)
{
	const Document_t &doc = GetDocument();
	CKeyValues3Context context;
	CUtlString error;
	LoadKV3(&context, &error, &doc.kv3Text, KV3_FORMAT_GENERIC);
	for (auto _ : state)
	{
		CUtlBuffer out(CUtlBuffer::TEXT_BUFFER);
		SaveKV3(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC, context.Root(), &error, &out);
		benchmark::DoNotOptimize(out.Base());
	}
	state.SetBytesProcessed((int64_t)(state.iterations() * doc.kv3Text.Size()));
}
BENCHMARK(BM_KV3Write)->Unit(benchmark::kMillisecond);

// KV1: the same items as a game script writes them ("items" { "N" { "key" "value" ... } }).
const CUtlBuffer &GetKV1Text()
{
	static CUtlBuffer *s_pText = [] {
		const Document_t &doc = GetDocument();
		CKeyValues3Context context;
		CUtlString error;
		LoadKV3(&context, &error, &doc.kv3Text, KV3_FORMAT_GENERIC);
		KeyValues root("items_game");
		KeyValues *items = root.FindKey("items", true);
		FindMember(context.Root(), "items")->ForEachArrayElement([&](const KeyValues3 *item) {
			KeyValues *block = items->CreateNewKey();
			item->ForEachMember([&](std::string_view name, uint32, const KeyValues3 *member) {
				CUtlString text;
				ReadString(member, text);
				block->SetString(CUtlString(name).c_str(), member->IsTable() ? "<table>" : text.c_str());
			});
		});
		CUtlBuffer *text = new CUtlBuffer(CUtlBuffer::TEXT_BUFFER);
		root.SaveToBuffer(*text);
		return text;
	}();
	return *s_pText;
}

void BM_KV1Load(benchmark::State &state)
{
	const CUtlBuffer &text = GetKV1Text();
	for (auto _ : state)
	{
		KeyValues root("items_game");
		CUtlString error;
		if (!root.LoadFromBuffer("items_game.txt", text, nullptr, nullptr, KV1LoadOptions_t(), &error))
			state.SkipWithError(error.c_str());
		benchmark::DoNotOptimize(root.GetFirstSubKey());
	}
	state.SetBytesProcessed((int64_t)(state.iterations() * text.Size()));
	state.counters["doc_MB"] = (double)text.Size() / (1 << 20);
}
BENCHMARK(BM_KV1Load)->Unit(benchmark::kMillisecond);

void BM_KV1Save(benchmark::State &state)
{
	const CUtlBuffer &text = GetKV1Text();
	KeyValues root("items_game");
	root.LoadFromBuffer("items_game.txt", text);
	for (auto _ : state)
	{
		CUtlBuffer out(CUtlBuffer::TEXT_BUFFER);
		root.SaveToBuffer(out);
		benchmark::DoNotOptimize(out.Base());
	}
	state.SetBytesProcessed((int64_t)(state.iterations() * text.Size()));
}
BENCHMARK(BM_KV1Save)->Unit(benchmark::kMillisecond);
} // namespace

BENCHMARK_MAIN();
