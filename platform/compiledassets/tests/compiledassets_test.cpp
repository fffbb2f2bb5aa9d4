#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "compiledassets/compiledassets.h"
#include "compiledassets/compiledformat.h"
#include "compiledtestmodels.h"
#include "core/fileio.h"
#include "core/hashes.h"
#include "core/strtools.h"
#include "testsupport/test_support.h"

using namespace CompiledFormat;

namespace
{
std::vector<uint8> Serialize(const CCompiledModel &model)
{
	CUtlBuffer buffer;
	CUtlString error;
	EXPECT_TRUE(SerializeCompiledModel(model, buffer, &error)) << error;
	return std::vector<uint8>(buffer.Base(), buffer.Base() + buffer.Size());
}

// Recomputes the checksum after a deliberate change, so that the loader's other checks are
// the ones that must catch it.
void FixChecksum(std::vector<uint8> &file)
{
	ASSERT_GE(file.size(), sizeof(FileHeader_t));
	memset(file.data() + HEADER_CRC_OFFSET, 0, 4);
	const uint32 crc = CRC32_ProcessSingleBuffer(file.data(), file.size());
	memcpy(file.data() + HEADER_CRC_OFFSET, &crc, 4);
}

const SectionEntry_t *FindSection(const std::vector<uint8> &file, const char (&id)[5])
{
	FileHeader_t header;
	memcpy(&header, file.data(), sizeof(header));
	for (uint32 i = 0; i < header.sectionCount; ++i)
	{
		const SectionEntry_t *entry = reinterpret_cast<const SectionEntry_t *>(file.data() + sizeof(FileHeader_t)) + i;
		if (entry->id == FourCC(id))
			return entry;
	}
	return nullptr;
}

template <typename T> T *RecordAt(std::vector<uint8> &file, const char (&id)[5], uint32 index)
{
	const SectionEntry_t *entry = FindSection(file, id);
	EXPECT_NE(entry, nullptr) << id;
	EXPECT_LT(index, entry ? entry->count : 0u) << id;
	return reinterpret_cast<T *>(file.data() + entry->offset + (size_t)index * sizeof(T));
}

std::string LoadModelError(const std::vector<uint8> &file)
{
	CCompiledModel model;
	CUtlString error;
	EXPECT_FALSE(LoadCompiledModelFromMemory(file.data(), file.size(), "hero.zmdl_c", model, &error));
	EXPECT_EQ(model.GetMeshCount(), 0);
	return error;
}
} // namespace

// ---------------------------------------------------------------------------------------------
// Round trips

TEST(CompiledModel, EveryFeatureWritesLoadsAndComparesEqual)
{
	const CCompiledModel model = MakeFullTestModel();
	CUtlString error;
	ASSERT_TRUE(model.Check(&error)) << error;
	// The model really has every feature filled.
	EXPECT_EQ(model.GetMeshCount(), 3);
	EXPECT_FALSE(model.m_Meshes[0].m_Tangents.empty());
	EXPECT_TRUE(model.m_Meshes[1].m_Tangents.empty());
	EXPECT_EQ(model.m_Meshes[0].IndexSize(), 2u);
	EXPECT_EQ(model.m_Meshes[1].IndexSize(), 4u);
	EXPECT_TRUE(model.m_Meshes[0].IsSkinned());
	EXPECT_FALSE(model.m_Meshes[1].IsSkinned());
	EXPECT_FALSE(model.m_Sequences[1].m_Scales.empty());
	EXPECT_EQ(model.m_Sequences[4].m_nBoneCount, 0u);

	CTempDirectory temp;
	const std::string path = temp.Path("hero.zmdl_c");
	ASSERT_TRUE(WriteCompiledModel(path.c_str(), model, &error)) << error;
	CCompiledModel loaded;
	ASSERT_TRUE(LoadCompiledModel(path.c_str(), loaded, &error)) << error;
	EXPECT_TRUE(loaded == model);

	// Field by field on a few, so that a broken comparison cannot hide a broken loader.
	EXPECT_EQ(loaded.m_Meshes[0].m_Positions, model.m_Meshes[0].m_Positions);
	EXPECT_EQ(loaded.m_Meshes[0].m_BoneWeights, model.m_Meshes[0].m_BoneWeights);
	EXPECT_EQ(loaded.m_Meshes[1].m_Indices32, model.m_Meshes[1].m_Indices32);
	EXPECT_EQ(loaded.m_Bones[3].m_InverseBind, model.m_Bones[3].m_InverseBind);
	EXPECT_EQ(loaded.m_MaterialGroups[1].m_Remaps, model.m_MaterialGroups[1].m_Remaps);
	EXPECT_EQ(loaded.m_BodyGroups[0].m_Choices[1].m_Meshes.size(), 0u);
	EXPECT_EQ(loaded.m_Attachments[0].m_Angles, QAngle(0.0f, 90.0f, -12.5f));
	EXPECT_TRUE(loaded.m_Attachments[1].m_bIgnoreRotation);
	EXPECT_TRUE(loaded.m_HitboxSets[0].m_bGenerated);
	EXPECT_EQ(loaded.m_HitboxSets[1].m_Hitboxes[1].m_nBone, -1);
	EXPECT_TRUE(loaded.m_PoseParameters[1].m_bLooping);
	EXPECT_EQ(loaded.m_WeightLists[0].m_Weights, model.m_WeightLists[0].m_Weights);
	EXPECT_EQ(loaded.m_Sequences[1].m_Events[0].m_Keys, "{ sound = \"Hero.Idle\" }");
	EXPECT_EQ(loaded.m_Sequences[1].m_Scales, model.m_Sequences[1].m_Scales);
	EXPECT_EQ(loaded.m_Sequences[2].m_Modifiers, model.m_Sequences[2].m_Modifiers);
	EXPECT_EQ(loaded.m_Sequences[2].m_nMotionFlags, (uint32)(COMPILED_MOTION_TX | COMPILED_MOTION_RZ));
	EXPECT_EQ(loaded.m_Sequences[3].m_nWeightList, 0);
	EXPECT_TRUE(loaded.m_Sequences[3].m_bDelta);
	EXPECT_EQ(loaded.m_Sequences[4].m_BlendKeys, model.m_Sequences[4].m_BlendKeys);
	EXPECT_EQ(loaded.m_Sequences[2].m_Rotations, model.m_Sequences[2].m_Rotations);
	EXPECT_EQ(loaded.m_Bounds, model.m_Bounds);

	// The comparison sees a change.
	loaded.m_Sequences[2].m_Rotations[5].w += 0.5f;
	EXPECT_FALSE(loaded == model);

	// Through the one entry point, by magic.
	CompiledAsset_t asset;
	ASSERT_TRUE(LoadCompiledAsset(path.c_str(), asset, &error)) << error;
	EXPECT_EQ(asset.m_eType, COMPILED_ASSET_MODEL);
	ASSERT_TRUE(asset.m_pModel);
	EXPECT_TRUE(*asset.m_pModel == model);
}

TEST(CompiledModel, LargeMeshUsesThirtyTwoBitIndices)
{
	CCompiledModel model = MakeSkinnedGridModel(140000, 8, 2);
	ASSERT_GT(model.m_Meshes[0].VertexCount(), 65536u);
	EXPECT_EQ(model.m_Meshes[0].IndexSize(), 4u);
	const std::vector<uint8> file = Serialize(model);
	CCompiledModel loaded;
	CUtlString error;
	ASSERT_TRUE(LoadCompiledModelFromMemory(file.data(), file.size(), "large", loaded, &error)) << error;
	EXPECT_TRUE(loaded == model);
	EXPECT_EQ(loaded.GetMeshPrimitiveCount(0), model.m_Meshes[0].IndexCount() / 3);
}

TEST(CompiledTexture, EveryFormatWritesLoadsAndComparesEqual)
{
	CTempDirectory temp;
	const struct
	{
		ECompiledTextureFormat format;
		uint32 width, height, flags;
	} cases[] = { { COMPILED_TEXTURE_RGBA8, 16, 8, COMPILED_TEXTURE_FLAG_SRGB }, { COMPILED_TEXTURE_BC1, 64, 64, COMPILED_TEXTURE_FLAG_SRGB },
		{ COMPILED_TEXTURE_BC3, 37, 5, COMPILED_TEXTURE_FLAG_SRGB | COMPILED_TEXTURE_FLAG_YCOCG }, { COMPILED_TEXTURE_BC3, 1, 1, 0 } };
	for (const auto &c : cases)
	{
		const CCompiledTexture texture = MakeTestTexture(c.format, c.width, c.height, c.flags);
		const std::string path = temp.Path("t.ztex_c");
		CUtlString error;
		ASSERT_TRUE(WriteCompiledTexture(path.c_str(), texture, &error)) << error;
		CCompiledTexture loaded;
		ASSERT_TRUE(LoadCompiledTexture(path.c_str(), loaded, &error)) << error;
		EXPECT_TRUE(loaded == texture) << CCompiledTexture::FormatName(c.format);
		EXPECT_EQ(loaded.m_Mips.size(), texture.m_Mips.size());
		CompiledAsset_t asset;
		ASSERT_TRUE(LoadCompiledAsset(path.c_str(), asset, &error)) << error;
		EXPECT_EQ(asset.m_eType, COMPILED_ASSET_TEXTURE);
		EXPECT_TRUE(*asset.m_pTexture == texture);
	}
	EXPECT_EQ(CCompiledTexture::MipByteSize(COMPILED_TEXTURE_BC1, 4, 4), 8u);
	EXPECT_EQ(CCompiledTexture::MipByteSize(COMPILED_TEXTURE_BC1, 5, 5), 32u);
	EXPECT_EQ(CCompiledTexture::MipByteSize(COMPILED_TEXTURE_BC3, 1, 1), 16u);
	EXPECT_EQ(CCompiledTexture::MipByteSize(COMPILED_TEXTURE_RGBA8, 3, 2), 24u);
}

TEST(CompiledMaterial, WritesLoadsAndComparesEqual)
{
	const CCompiledMaterial material = MakeTestMaterial();
	CTempDirectory temp;
	const std::string path = temp.Path("m.zmat_c");
	CUtlString error;
	ASSERT_TRUE(WriteCompiledMaterial(path.c_str(), material, &error)) << error;
	CCompiledMaterial loaded;
	ASSERT_TRUE(LoadCompiledMaterial(path.c_str(), loaded, &error)) << error;
	EXPECT_TRUE(loaded == material);
	EXPECT_STREQ(loaded.FindTexture("texturecolor"), "materials/models/items/hero/body_color_tga.ztex_c");
	EXPECT_EQ(loaded.FindTexture("TextureMissing"), nullptr);
	ASSERT_NE(loaded.FindConstant("F_SPECULAR"), nullptr);
	EXPECT_EQ(loaded.FindConstant("F_SPECULAR")->m_nValues[3], -7);
	EXPECT_EQ(loaded.FindConstant("g_vColorTint")->m_flValues[2], 0.25f);
	CompiledAsset_t asset;
	ASSERT_TRUE(LoadCompiledAsset(path.c_str(), asset, &error)) << error;
	EXPECT_EQ(asset.m_eType, COMPILED_ASSET_MATERIAL);
	EXPECT_TRUE(*asset.m_pMaterial == material);
}

TEST(CompiledSnapshot, WritesLoadsAndComparesEqual)
{
	const CCompiledSnapshot snapshot = MakeTestSnapshot(50);
	CTempDirectory temp;
	const std::string path = temp.Path("s.zsnap");
	CUtlString error;
	ASSERT_TRUE(WriteCompiledSnapshot(path.c_str(), snapshot, &error)) << error;
	CCompiledSnapshot loaded;
	ASSERT_TRUE(LoadCompiledSnapshot(path.c_str(), loaded, &error)) << error;
	EXPECT_TRUE(loaded == snapshot);
	EXPECT_EQ(loaded.m_LocalSpaceBone, "spine_2");
	CompiledAsset_t asset;
	ASSERT_TRUE(LoadCompiledAsset(path.c_str(), asset, &error)) << error;
	EXPECT_EQ(asset.m_eType, COMPILED_ASSET_SNAPSHOT);
	EXPECT_TRUE(*asset.m_pSnapshot == snapshot);
	// Empty is fine too.
	CCompiledSnapshot empty;
	ASSERT_TRUE(WriteCompiledSnapshot(path.c_str(), empty, &error)) << error;
	ASSERT_TRUE(LoadCompiledSnapshot(path.c_str(), loaded, &error)) << error;
	EXPECT_TRUE(loaded == empty);
}

// ---------------------------------------------------------------------------------------------
// Accessors of the validation

TEST(CompiledModel, AccessorsGiveMeshesLodsBonesAndPrimitives)
{
	const CCompiledModel model = MakeFullTestModel();
	ASSERT_EQ(model.GetMeshCount(), 3);
	EXPECT_EQ(model.GetMeshLodMask(0), 1u);
	EXPECT_EQ(model.GetMeshLodMask(1), 2u);
	EXPECT_EQ(model.GetMeshLodMask(2), 3u);
	EXPECT_EQ(model.GetLodCount(), 2);

	ASSERT_EQ(model.GetMeshBoneCount(0), 4);
	EXPECT_STREQ(model.GetMeshBoneName(0, 0), "root");
	EXPECT_STREQ(model.GetMeshBoneName(0, 3), "bone_3");
	ASSERT_EQ(model.GetMeshBoneCount(2), 1);
	EXPECT_STREQ(model.GetMeshBoneName(2, 0), "bone_2");
	EXPECT_EQ(model.GetMeshBoneCount(1), 0);
	EXPECT_STREQ(model.GetMeshBoneName(1, 0), "");

	// A 6x4 grid is 48 triangles, split over two draw calls.
	ASSERT_EQ(model.GetMeshDrawCalls(0).size(), 2u);
	EXPECT_EQ(model.GetMeshDrawCalls(0)[0].m_nPrimitiveCount + model.GetMeshDrawCalls(0)[1].m_nPrimitiveCount, 48u);
	EXPECT_EQ(model.GetMeshPrimitiveCount(0), 48u);
	EXPECT_EQ(model.GetMeshPrimitiveCount(1), 8u);
	EXPECT_EQ(model.GetMeshPrimitiveCount(2), 2u);

	EXPECT_EQ(model.FindBone("bone_2"), 2);
	EXPECT_EQ(model.FindBone("BONE_2"), -1); // bone names keep their case
	EXPECT_EQ(model.FindBone("nope"), -1);
	EXPECT_EQ(model.FindSequence("RUN"), 2);
	EXPECT_EQ(model.FindAttachment("attach_hitloc"), 0);
	EXPECT_EQ(model.FindPoseParameter("aim_yaw"), 1);
	EXPECT_EQ(model.FindSequence("fly"), -1);
}

// ---------------------------------------------------------------------------------------------
// Refusals

TEST(CompiledModel, WriterRefusesAnInconsistentModel)
{
	CUtlBuffer out;
	CUtlString error;
	{
		CCompiledModel model = MakeFullTestModel();
		model.m_Meshes[0].m_Indices16[7] = 9999;
		EXPECT_FALSE(SerializeCompiledModel(model, out, &error));
		EXPECT_EQ(error, "Cannot write a compiled model: mesh 0 ('hero_body'): index 9999 is past the vertex count 35");
	}
	{
		CCompiledModel model = MakeFullTestModel();
		model.m_Meshes[1].m_Normals.pop_back();
		EXPECT_FALSE(SerializeCompiledModel(model, out, &error));
		EXPECT_NE(error.find("mesh 1 ('hero_body_lod1'): 9 positions but 8 normals"), std::string::npos) << error;
	}
	{
		CCompiledModel model = MakeFullTestModel();
		model.m_Meshes[0].m_DrawCalls[1].m_nPrimitiveCount += 1;
		EXPECT_FALSE(SerializeCompiledModel(model, out, &error));
		EXPECT_NE(error.find("draw call 1 has"), std::string::npos) << error;
	}
	{
		CCompiledModel model = MakeFullTestModel();
		model.m_Bones[1].m_nParent = 2;
		EXPECT_FALSE(SerializeCompiledModel(model, out, &error));
		EXPECT_NE(error.find("a parent must come before its children"), std::string::npos) << error;
	}
	{
		CCompiledModel model = MakeFullTestModel();
		model.m_Meshes[0].m_BoneIndices[3].m_nIndex[2] = 4;
		EXPECT_FALSE(SerializeCompiledModel(model, out, &error));
		EXPECT_NE(error.find("a vertex names bone 4 of the mesh's 4"), std::string::npos) << error;
	}
	{
		CCompiledModel model = MakeFullTestModel();
		model.m_Sequences[1].m_Rotations.pop_back();
		EXPECT_FALSE(SerializeCompiledModel(model, out, &error));
		EXPECT_NE(error.find("12 frames of 4 bones need 48 transforms"), std::string::npos) << error;
	}
	{
		CCompiledModel model = MakeFullTestModel();
		model.m_Meshes[2].m_nLodMask = 0x4;
		EXPECT_FALSE(SerializeCompiledModel(model, out, &error));
		EXPECT_NE(error.find("LOD mask"), std::string::npos) << error;
	}
	CCompiledTexture texture = MakeTestTexture(COMPILED_TEXTURE_BC1, 8, 8, 0);
	texture.m_Mips[1].m_Data.pop_back();
	EXPECT_FALSE(SerializeCompiledTexture(texture, out, &error));
	EXPECT_NE(error.find("mip 1 has 7 bytes; 4x4 BC1 takes 8"), std::string::npos) << error;
	CCompiledSnapshot snapshot = MakeTestSnapshot(3);
	snapshot.m_Normals.pop_back();
	EXPECT_FALSE(SerializeCompiledSnapshot(snapshot, out, &error));
}

TEST(CompiledModel, AnotherVersionIsRefused)
{
	std::vector<uint8> file = Serialize(MakeFullTestModel());
	FileHeader_t *header = reinterpret_cast<FileHeader_t *>(file.data());
	header->version = MODEL_VERSION + 1;
	FixChecksum(file);
	EXPECT_EQ(LoadModelError(file), "hero.zmdl_c: compiled model version 2 is not supported (this build reads version 1)");
	header->version = 0;
	FixChecksum(file);
	EXPECT_NE(LoadModelError(file).find("version 0 is not supported"), std::string::npos);

	CUtlBuffer buffer;
	ASSERT_TRUE(SerializeCompiledTexture(MakeTestTexture(COMPILED_TEXTURE_BC1, 4, 4, 0), buffer));
	std::vector<uint8> texture(buffer.Base(), buffer.Base() + buffer.Size());
	reinterpret_cast<FileHeader_t *>(texture.data())->version = 7;
	FixChecksum(texture);
	CCompiledTexture loaded;
	CUtlString error;
	EXPECT_FALSE(LoadCompiledTextureFromMemory(texture.data(), texture.size(), "x.ztex_c", loaded, &error));
	EXPECT_EQ(error, "x.ztex_c: compiled texture version 7 is not supported (this build reads version 1)");
}

TEST(CompiledModel, TruncatedFilesAreRefused)
{
	const std::vector<uint8> file = Serialize(MakeFullTestModel());
	for (int i = 0; i < 16; ++i)
	{
		const size_t size = file.size() * (size_t)i / 16;
		const std::vector<uint8> part(file.begin(), file.begin() + (ptrdiff_t)size);
		const std::string error = LoadModelError(part);
		if (size < sizeof(FileHeader_t))
			EXPECT_NE(error.find("less than a header"), std::string::npos) << error;
		else
			EXPECT_NE(error.find(V_Format("truncated: the header says %zu bytes, the file has %zu", file.size(), size)), std::string::npos) << error;
	}
	// One byte short, and one too many.
	EXPECT_NE(LoadModelError(std::vector<uint8>(file.begin(), file.end() - 1)).find("truncated"), std::string::npos);
	std::vector<uint8> longer = file;
	longer.push_back(0);
	EXPECT_NE(LoadModelError(longer).find("the header says"), std::string::npos);
}

TEST(CompiledModel, DamagedHeaderOrBodyIsRefused)
{
	const std::vector<uint8> file = Serialize(MakeFullTestModel());
	// Every byte of the header, flipped.
	for (size_t i = 0; i < sizeof(FileHeader_t); ++i)
	{
		std::vector<uint8> damaged = file;
		damaged[i] ^= 0x5A;
		const std::string error = LoadModelError(damaged);
		EXPECT_EQ(error.rfind("hero.zmdl_c: ", 0), 0u) << error;
		if (i < 4)
			EXPECT_NE(error.find("bad magic"), std::string::npos) << error;
		else if (i < 8)
			EXPECT_NE(error.find("is not supported"), std::string::npos) << error;
		else if (i < 16)
			EXPECT_NE(error.find("bytes"), std::string::npos) << error;
		else
			EXPECT_NE(error.find("checksum mismatch"), std::string::npos) << error;
	}
	// A byte anywhere in the body.
	for (size_t i = sizeof(FileHeader_t); i < file.size(); i += file.size() / 37)
	{
		std::vector<uint8> damaged = file;
		damaged[i] ^= 0x01;
		EXPECT_NE(LoadModelError(damaged).find("checksum mismatch"), std::string::npos) << i;
	}
	// Not a model at all.
	CompiledAsset_t asset;
	CUtlString error;
	const char text[] = "hello, this is not a compiled asset";
	EXPECT_FALSE(LoadCompiledAssetFromMemory(text, sizeof(text), "x.txt", asset, &error));
	EXPECT_EQ(error, "x.txt: not a compiled asset: unknown magic \"hell\"");
	EXPECT_FALSE(LoadCompiledAssetFromMemory(text, 2, "x.txt", asset, &error));
	EXPECT_FALSE(LoadCompiledAsset("/nonexistent/file.zmdl_c", asset, &error));
	EXPECT_NE(error.find("/nonexistent/file.zmdl_c"), std::string::npos) << error;
	// A texture is no model.
	CUtlBuffer buffer;
	ASSERT_TRUE(SerializeCompiledTexture(MakeTestTexture(COMPILED_TEXTURE_BC1, 4, 4, 0), buffer));
	const std::string wrongKind = LoadModelError(std::vector<uint8>(buffer.Base(), buffer.Base() + buffer.Size()));
	EXPECT_NE(wrongKind.find("not a compiled model: bad magic \"ZTEX\" (expected \"ZMDL\")"), std::string::npos) << wrongKind;
}

TEST(CompiledModel, CountsAndOffsetsOutOfRangeAreRefused)
{
	const std::vector<uint8> original = Serialize(MakeFullTestModel());
	auto damage = [&](auto change) {
		std::vector<uint8> file = original;
		change(file);
		FixChecksum(file);
		return LoadModelError(file);
	};

	// A vertex count past the end of the vertex data.
	std::string error = damage([](std::vector<uint8> &f) { RecordAt<MeshRecord_t>(f, "MESH", 0)->vertexCount = 0x7FFFFFFF; });
	EXPECT_NE(error.find("mesh 0: 25769803764 bytes at offset 0 run past the end of \"VERT\""), std::string::npos) << error;
	error = damage([](std::vector<uint8> &f) { RecordAt<MeshRecord_t>(f, "MESH", 2)->indexCount += 3; });
	EXPECT_NE(error.find("mesh 2:"), std::string::npos) << error;
	// A count of records past the end of the file.
	error = damage([](std::vector<uint8> &f) {
		SectionEntry_t *entry = const_cast<SectionEntry_t *>(FindSection(f, "BONE"));
		entry->count = 1000000;
	});
	EXPECT_NE(error.find("section \"BONE\" (1000000 records at offset"), std::string::npos) << error;
	EXPECT_NE(error.find("runs past the end of the file"), std::string::npos) << error;
	// A section table larger than the file.
	error = damage([](std::vector<uint8> &f) { reinterpret_cast<FileHeader_t *>(f.data())->sectionCount = 0x10000000; });
	EXPECT_NE(error.find("the section table (268435456 sections) runs past the end of the file"), std::string::npos) << error;
	// A range of another section that does not follow the previous one, or runs past it.
	error = damage([](std::vector<uint8> &f) { RecordAt<MeshRecord_t>(f, "MESH", 1)->firstDrawCall = 0; });
	EXPECT_NE(error.find("mesh 1: its \"DRAW\" records start at 0, expected 2"), std::string::npos) << error;
	error = damage([](std::vector<uint8> &f) { RecordAt<SequenceRecord_t>(f, "SEQN", 4)->blendKeyCount = 4; });
	EXPECT_NE(error.find("sequence 4: 4 \"BKEY\" records from 0 run past the 3 there are"), std::string::npos) << error;
	error = damage([](std::vector<uint8> &f) { RecordAt<BodyGroupRecord_t>(f, "BGRP", 1)->choiceCount = 0; });
	EXPECT_NE(error.find("\"BCHO\" holds 3 records; 2 are used"), std::string::npos) << error;
	// An offset that disagrees with the layout.
	error = damage([](std::vector<uint8> &f) { RecordAt<SequenceRecord_t>(f, "SEQN", 2)->animationOffset += 16; });
	EXPECT_NE(error.find("sequence 2: data at offset"), std::string::npos) << error;
	error = damage([](std::vector<uint8> &f) { const_cast<SectionEntry_t *>(FindSection(f, "MESH"))->offset += 8; });
	EXPECT_NE(error.find("section \"MESH\" starts at a bad offset"), std::string::npos) << error;
	// Strings outside the string section, and strings read more than once.
	error = damage([](std::vector<uint8> &f) { RecordAt<BoneRecord_t>(f, "BONE", 1)->name.offset = 0xFFFFFF00; });
	EXPECT_NE(error.find("lies outside the string section"), std::string::npos) << error;
	error = damage([](std::vector<uint8> &f) {
		const StringRef_t big = RecordAt<MeshRecord_t>(f, "MESH", 0)->name;
		for (uint32 i = 0; i < 4; ++i)
			RecordAt<BoneRecord_t>(f, "BONE", i)->name = { 0, (uint32)FindSection(f, "STRS")->count };
		(void)big;
	});
	EXPECT_NE(error.find("more string bytes than the string section holds"), std::string::npos) << error;
	// Indices and references that point outside what the model holds.
	error = damage([](std::vector<uint8> &f) {
		const SectionEntry_t *indices = FindSection(f, "INDX");
		uint16 *first = reinterpret_cast<uint16 *>(f.data() + indices->offset + RecordAt<MeshRecord_t>(f, "MESH", 0)->indexOffset);
		first[4] = 4000;
	});
	EXPECT_NE(error.find("hero.zmdl_c: mesh 0 ('hero_body'): index 4000 is past the vertex count 35"), std::string::npos) << error;
	error = damage([](std::vector<uint8> &f) { RecordAt<DrawCallRecord_t>(f, "DRAW", 0)->material = 3; });
	EXPECT_NE(error.find("draw call 0 uses material 3; the model has 3"), std::string::npos) << error;
	error = damage([](std::vector<uint8> &f) { *RecordAt<uint32>(f, "BMSH", 0) = 77; });
	EXPECT_NE(error.find("body group 0 ('body') names mesh 77"), std::string::npos) << error;
	error = damage([](std::vector<uint8> &f) { RecordAt<SequenceRecord_t>(f, "SEQN", 1)->boneCount = 3; });
	EXPECT_NE(error.find("sequence 1 animates 3 bones; the skeleton has 4"), std::string::npos) << error;
	error = damage([](std::vector<uint8> &f) { RecordAt<SequenceRecord_t>(f, "SEQN", 1)->frameCount = 0xFFFFFFFF; });
	EXPECT_NE(error.find("run past the end of \"ANIM\""), std::string::npos) << error;
	error = damage([](std::vector<uint8> &f) { RecordAt<MeshRecord_t>(f, "MESH", 0)->indexSize = 3; });
	EXPECT_NE(error.find("mesh 0 has indices of 3 bytes"), std::string::npos) << error;
	error = damage([](std::vector<uint8> &f) { const_cast<SectionEntry_t *>(FindSection(f, "HBOX"))->elementSize = 36; });
	EXPECT_NE(error.find("section \"HBOX\" has records of 36 bytes, expected 40"), std::string::npos) << error;
	error = damage([](std::vector<uint8> &f) { const_cast<SectionEntry_t *>(FindSection(f, "HBOX"))->id = FourCC("XBOX"); });
	EXPECT_NE(error.find("unknown section \"XBOX\""), std::string::npos) << error;
	error = damage([](std::vector<uint8> &f) { const_cast<SectionEntry_t *>(FindSection(f, "HBOX"))->id = FourCC("HSET"); });
	EXPECT_NE(error.find("section \"HSET\" appears twice"), std::string::npos) << error;
}

TEST(CompiledTexture, DamagedTexturesAreRefused)
{
	CUtlBuffer buffer;
	ASSERT_TRUE(SerializeCompiledTexture(MakeTestTexture(COMPILED_TEXTURE_BC3, 32, 16, COMPILED_TEXTURE_FLAG_SRGB), buffer));
	const std::vector<uint8> original(buffer.Base(), buffer.Base() + buffer.Size());
	auto load = [](const std::vector<uint8> &file) {
		CCompiledTexture texture;
		CUtlString error;
		EXPECT_FALSE(LoadCompiledTextureFromMemory(file.data(), file.size(), "t.ztex_c", texture, &error));
		EXPECT_TRUE(texture.m_Mips.empty());
		return std::string(error);
	};
	for (int i = 0; i < 16; ++i)
		load(std::vector<uint8>(original.begin(), original.begin() + (ptrdiff_t)(original.size() * (size_t)i / 16)));
	auto damage = [&](auto change) {
		std::vector<uint8> file = original;
		change(file);
		FixChecksum(file);
		return load(file);
	};
	std::string error = damage([](std::vector<uint8> &f) { RecordAt<TextureInfo_t>(f, "TEXI", 0)->width = 100000; });
	EXPECT_NE(error.find("texture size 100000x16 is outside 1 to 16384"), std::string::npos) << error;
	error = damage([](std::vector<uint8> &f) { RecordAt<TextureInfo_t>(f, "TEXI", 0)->format = 9; });
	EXPECT_NE(error.find("unknown texture format 9"), std::string::npos) << error;
	error = damage([](std::vector<uint8> &f) { RecordAt<MipRecord_t>(f, "MIPS", 1)->size = 1u << 30; });
	EXPECT_NE(error.find("mip 1 of 16x8 has 1073741824 bytes"), std::string::npos) << error;
	error = damage([](std::vector<uint8> &f) {
		RecordAt<MipRecord_t>(f, "MIPS", 0)->width = 16384;
		RecordAt<MipRecord_t>(f, "MIPS", 0)->height = 16384;
		RecordAt<MipRecord_t>(f, "MIPS", 0)->size = 16384ull * 16384;
	});
	EXPECT_NE(error.find("run past the end of \"DATA\""), std::string::npos) << error;
	error = damage([](std::vector<uint8> &f) { RecordAt<TextureInfo_t>(f, "TEXI", 0)->mipCount = 2; });
	EXPECT_NE(error.find("the texture has 2 mips but \"MIPS\" holds 6"), std::string::npos) << error;
	error = damage([](std::vector<uint8> &f) { RecordAt<TextureInfo_t>(f, "TEXI", 0)->width = 64; });
	EXPECT_NE(error.find("mip 0 is 32x16; it should be 64x16"), std::string::npos) << error;
	error = damage([](std::vector<uint8> &f) { RecordAt<TextureInfo_t>(f, "TEXI", 0)->flags = 0x80; });
	EXPECT_NE(error.find("unknown texture flags 00000080"), std::string::npos) << error;
}

TEST(CompiledMaterial, DamagedMaterialsAndSnapshotsAreRefused)
{
	CUtlBuffer buffer;
	ASSERT_TRUE(SerializeCompiledMaterial(MakeTestMaterial(), buffer));
	std::vector<uint8> material(buffer.Base(), buffer.Base() + buffer.Size());
	CCompiledMaterial loadedMaterial;
	CUtlString error;
	RecordAt<ConstantRecord_t>(material, "CNST", 1)->type = 5;
	FixChecksum(material);
	EXPECT_FALSE(LoadCompiledMaterialFromMemory(material.data(), material.size(), "m.zmat_c", loadedMaterial, &error));
	EXPECT_EQ(error, "m.zmat_c: constant 'F_SPECULAR' has unknown type 5");
	for (int i = 0; i < 16; ++i)
		EXPECT_FALSE(LoadCompiledMaterialFromMemory(material.data(), material.size() * (size_t)i / 16, "m", loadedMaterial, &error));

	ASSERT_TRUE(SerializeCompiledSnapshot(MakeTestSnapshot(10), buffer));
	std::vector<uint8> snapshot(buffer.Base(), buffer.Base() + buffer.Size());
	RecordAt<SnapshotInfo_t>(snapshot, "SNPI", 0)->vertexCount = 11;
	FixChecksum(snapshot);
	CCompiledSnapshot loadedSnapshot;
	EXPECT_FALSE(LoadCompiledSnapshotFromMemory(snapshot.data(), snapshot.size(), "s.zsnap", loadedSnapshot, &error));
	EXPECT_EQ(error, "s.zsnap: the snapshot has 11 points but 10 positions and 10 normals");
	for (int i = 0; i < 16; ++i)
		EXPECT_FALSE(LoadCompiledSnapshotFromMemory(snapshot.data(), snapshot.size() * (size_t)i / 16, "s", loadedSnapshot, &error));
}

TEST(CompiledModel, WriteIsAtomic)
{
	CTempDirectory temp;
	const std::string path = temp.Write("hero.zmdl_c", "previous");
	CCompiledModel model = MakeFullTestModel();
	model.m_Meshes[0].m_Normals.clear(); // refused before anything is written
	CUtlString error;
	EXPECT_FALSE(WriteCompiledModel(path.c_str(), model, &error));
	CUtlBuffer contents;
	ASSERT_TRUE(Plat_ReadFile(path.c_str(), contents));
	EXPECT_EQ(std::string(contents.View()), "previous");
	EXPECT_FALSE(WriteCompiledModel(temp.Path("no/such/dir/x.zmdl_c").c_str(), MakeFullTestModel(), &error));
	EXPECT_NE(error.find("no/such/dir/x.zmdl_c"), std::string::npos) << error;
	ASSERT_TRUE(WriteCompiledModel(path.c_str(), MakeFullTestModel(), &error)) << error;
	int files = 0;
	for (const auto &entry : std::filesystem::directory_iterator(temp.Path()))
		files += entry.is_regular_file();
	EXPECT_EQ(files, 1);
}
