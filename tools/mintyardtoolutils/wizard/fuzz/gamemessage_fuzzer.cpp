// Feeds arbitrary bytes to the reader of the messages a game takes from the tool. A message read
// must say how many bytes it used (never more than it was given), hold a tree, and write back to
// the same message; bytes that are no message must say why, and use nothing.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "mintyardtoolutils/wizard/gamemessage.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
	const std::string_view bytes((const char *)pData, nSize);
	size_t nConsumed = 0;
	MintyardGameMessage_t message;
	CUtlString error;
	const EMintyardGameMessageResult eResult = DecodeMintyardGameMessage(bytes, nConsumed, message, error);
	if (eResult != MINTYARD_GAME_MESSAGE_COMPLETE)
	{
		if (nConsumed != 0 || (eResult == MINTYARD_GAME_MESSAGE_BAD && error.empty()))
			abort();
		return 0;
	}
	if (nConsumed < 4 || nConsumed > nSize || !message.m_pTree)
		abort();
	// What was read writes back to a message that reads to the same bytes again.
	const std::string again = EncodeMintyardGameMessage(message.m_pTree.get(), message.m_bFlag);
	size_t nAgain = 0;
	MintyardGameMessage_t second;
	if (DecodeMintyardGameMessage(again, nAgain, second, error) != MINTYARD_GAME_MESSAGE_COMPLETE || nAgain != again.size() ||
		second.m_bFlag != message.m_bFlag || EncodeMintyardGameMessage(second.m_pTree.get(), second.m_bFlag) != again)
		abort();
	return 0;
}
