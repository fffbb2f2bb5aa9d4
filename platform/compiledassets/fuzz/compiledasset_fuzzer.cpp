// Feeds arbitrary bytes to the one loader of the compiled formats. Each input is loaded as it
// is, and again with its size and checksum fields made to agree with the bytes, so that the
// checks behind the checksum (section table, counts, offsets, strings, indices) are fuzzed as
// well. A loaded asset must write and load back equal; a refusal must say why.
#include <cstdint>
#include <cstring>
#include <vector>

#include "compiledassets/compiledassets.h"
#include "core/hashes.h"

namespace
{
bool Reserialize(const CompiledAsset_t &asset, CUtlBuffer &out, CUtlString &error)
{
	switch (asset.m_eType)
	{
	case COMPILED_ASSET_MODEL:
		return SerializeCompiledModel(*asset.m_pModel, out, &error);
	case COMPILED_ASSET_TEXTURE:
		return SerializeCompiledTexture(*asset.m_pTexture, out, &error);
	case COMPILED_ASSET_MATERIAL:
		return SerializeCompiledMaterial(*asset.m_pMaterial, out, &error);
	case COMPILED_ASSET_SNAPSHOT:
		return SerializeCompiledSnapshot(*asset.m_pSnapshot, out, &error);
	default:
		return false;
	}
}

// The round trip is compared by the bytes of two writes, since NaN values in a file compare
// unequal to themselves.
void Load(const uint8_t *data, size_t size)
{
	CompiledAsset_t asset;
	CUtlString error;
	if (!LoadCompiledAssetFromMemory(data, size, "fuzz", asset, &error))
	{
		if (error.empty())
			__builtin_trap();
		return;
	}
	CUtlBuffer saved;
	if (!Reserialize(asset, saved, error))
		__builtin_trap(); // what loads is consistent, so it writes
	CompiledAsset_t again;
	if (!LoadCompiledAssetFromMemory(saved.Base(), saved.Size(), "saved", again, &error))
		__builtin_trap();
	CUtlBuffer savedAgain;
	if (!Reserialize(again, savedAgain, error) || savedAgain.Size() != saved.Size() ||
		memcmp(savedAgain.Base(), saved.Base(), saved.Size()) != 0)
		__builtin_trap();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	Load(data, size);
	if (size >= 32)
	{
		std::vector<uint8_t> fixed(data, data + size);
		const uint64_t fileSize = size;
		memcpy(fixed.data() + 8, &fileSize, 8);
		memset(fixed.data() + 24, 0, 4);
		const uint32_t crc = CRC32_ProcessSingleBuffer(fixed.data(), fixed.size());
		memcpy(fixed.data() + 24, &crc, 4);
		Load(fixed.data(), fixed.size());
	}
	return 0;
}
