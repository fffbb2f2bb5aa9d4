// The channel from the tool to a running game: a local socket that the game listens on, named
// "mintyard-game-<mod>" after the game folder (for the sample game "mintyard-game-zarn"). The
// tool connects, writes one message (gamemessage.h) and disconnects. A game that receives a
// tree adds its items to its schema and brings its window to the front.
#pragma once

#include <QString>

class KeyValues;

// "mintyard-game-<mod>": the last component of the game folder ("" gives "mintyard-game-").
QString MintyardGameChannelName(const QString &gameFolder);

// Sends the tree and the flag to the game listening on the channel. False when no game listens
// or the message could not be written; `pError` then says so.
bool SendTreeToGame(const QString &channelName, const KeyValues *pTree, bool bFlag, QString *pError, int nTimeoutMs = 1000);
