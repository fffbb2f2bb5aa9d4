#include "mintyardtoolutils/wizard/gamemessage.h"

#include <algorithm>

#include "core/fileio.h"
#include "core/strtools.h"
#include "core/utlbuffer.h"

namespace
{
// A message names no files: #include and #base in its tree find nothing, and no disk is read.
class CNoFiles final : public IBaseFileSystem
{
public:
	bool ReadFile(const char *path, const char *, CUtlBuffer &, CUtlString *pError) override
	{
		if (pError)
			*pError = V_Format("%s: a game message cannot include files", path ? path : "");
		return false;
	}
	bool WriteFile(const char *, const char *, const CUtlBuffer &, CUtlString *pError) override
	{
		if (pError)
			*pError = "a game message cannot write files";
		return false;
	}
	bool FileExists(const char *, const char *) override { return false; }
};
} // namespace

std::string EncodeMintyardGameMessage(const KeyValues *pTree, bool bFlag)
{
	std::string payload = V_Format("%s %u flag=%d\n", MINTYARD_GAME_MESSAGE_MAGIC, (unsigned)MINTYARD_GAME_MESSAGE_VERSION, bFlag ? 1 : 0);
	if (pTree)
	{
		CUtlBuffer text(CUtlBuffer::TEXT_BUFFER);
		pTree->RecursiveSaveToFile(text, 0);
		payload.append(text.View());
	}
	const uint32 nLength = (uint32)payload.size();
	std::string message;
	message.reserve(4 + payload.size());
	message.push_back((char)((nLength >> 24) & 0xff));
	message.push_back((char)((nLength >> 16) & 0xff));
	message.push_back((char)((nLength >> 8) & 0xff));
	message.push_back((char)(nLength & 0xff));
	message += payload;
	return message;
}

EMintyardGameMessageResult DecodeMintyardGameMessage(std::string_view bytes, size_t &nConsumed, MintyardGameMessage_t &out, CUtlString &error)
{
	nConsumed = 0;
	error.clear();
	if (bytes.size() < 4)
		return MINTYARD_GAME_MESSAGE_INCOMPLETE;
	const uint32 nLength = ((uint32)(uint8)bytes[0] << 24) | ((uint32)(uint8)bytes[1] << 16) | ((uint32)(uint8)bytes[2] << 8) | (uint32)(uint8)bytes[3];
	if (nLength > MINTYARD_GAME_MESSAGE_MAX_PAYLOAD)
	{
		error = V_Format("game message: the payload claims %u bytes, more than the limit of %u (offset 0)", nLength,
			(unsigned)MINTYARD_GAME_MESSAGE_MAX_PAYLOAD);
		return MINTYARD_GAME_MESSAGE_BAD;
	}
	if (bytes.size() - 4 < nLength)
		return MINTYARD_GAME_MESSAGE_INCOMPLETE;
	const std::string_view payload = bytes.substr(4, nLength);

	const size_t nLineEnd = payload.find('\n');
	if (nLineEnd == std::string_view::npos)
	{
		error = "game message: the header line has no end (offset 4)";
		return MINTYARD_GAME_MESSAGE_BAD;
	}
	const std::string_view header = payload.substr(0, nLineEnd);
	const std::string_view magic = MINTYARD_GAME_MESSAGE_MAGIC " ";
	if (header.substr(0, magic.size()) != magic)
	{
		error = "game message: the header does not begin with \"" MINTYARD_GAME_MESSAGE_MAGIC "\" (offset 4)";
		return MINTYARD_GAME_MESSAGE_BAD;
	}
	const std::string_view rest = header.substr(magic.size());
	const std::string expected0 = V_Format("%u flag=0", (unsigned)MINTYARD_GAME_MESSAGE_VERSION);
	const std::string expected1 = V_Format("%u flag=1", (unsigned)MINTYARD_GAME_MESSAGE_VERSION);
	bool bFlag;
	if (rest == expected0)
		bFlag = false;
	else if (rest == expected1)
		bFlag = true;
	else
	{
		error = V_Format("game message: unknown version or flag \"%.*s\" in the header (offset %zu)", (int)std::min<size_t>(rest.size(), 64),
			rest.data(), 4 + magic.size());
		return MINTYARD_GAME_MESSAGE_BAD;
	}

	const std::string_view text = payload.substr(nLineEnd + 1);
	std::unique_ptr<KeyValues> pTree(new KeyValues("tree"));
	CUtlString parseError;
	CNoFiles noFiles;
	if (!pTree->LoadFromBuffer("game message", text.data(), text.size(), &noFiles, nullptr, KV1LoadOptions_t(), &parseError))
	{
		error = V_Format("game message: the tree cannot be read (the text starts at offset %zu): %s", 4 + nLineEnd + 1, parseError.c_str());
		return MINTYARD_GAME_MESSAGE_BAD;
	}
	if (pTree->GetNextKey())
	{
		error = V_Format("game message: the tree has more than one root key (the text starts at offset %zu)", 4 + nLineEnd + 1);
		return MINTYARD_GAME_MESSAGE_BAD;
	}
	out.m_pTree = std::move(pTree);
	out.m_bFlag = bFlag;
	nConsumed = 4 + (size_t)nLength;
	return MINTYARD_GAME_MESSAGE_COMPLETE;
}
