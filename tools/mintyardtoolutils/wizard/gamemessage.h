// The message by which the tool hands a running game a tree of item keys to try out (the image
// preview's "preview in game"). The channel itself is a local socket (gamechannel.h); this file
// is the message on the wire, without Qt, so that a game, a test listener and the fuzzer read it
// with the same code.
//
// A message is
//   4 bytes   the payload's length N, unsigned, big-endian (at most MINTYARD_GAME_MESSAGE_MAX_PAYLOAD)
//   N bytes   the payload, UTF-8 text:
//               the line "mintyard_game_message 1 flag=<0|1>\n"
//               then the KeyValues text of the tree (one root key with its subkeys)
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "core/keyvalues.h"
#include "core/platform.h"
#include "core/utlstring.h"

enum : uint32
{
	MINTYARD_GAME_MESSAGE_MAX_PAYLOAD = 16u << 20, // 16 MiB
	MINTYARD_GAME_MESSAGE_VERSION = 1,
};

#define MINTYARD_GAME_MESSAGE_MAGIC "mintyard_game_message"

struct MintyardGameMessage_t
{
	std::unique_ptr<KeyValues> m_pTree; // the root key of the tree
	bool m_bFlag = false;				 // replace what the game holds for these items
};

// The bytes of a message: the length, the header line and the tree's text.
std::string EncodeMintyardGameMessage(const KeyValues *pTree, bool bFlag);

enum EMintyardGameMessageResult
{
	MINTYARD_GAME_MESSAGE_COMPLETE = 0, // one message read; `nConsumed` bytes used
	MINTYARD_GAME_MESSAGE_INCOMPLETE,	// more bytes are needed; nothing consumed
	MINTYARD_GAME_MESSAGE_BAD,			// the bytes are no message; `error` says what and where
};

// Reads the first message of `bytes`.
EMintyardGameMessageResult DecodeMintyardGameMessage(std::string_view bytes, size_t &nConsumed, MintyardGameMessage_t &out, CUtlString &error);
