#include "mintyardtoolutils/wizard/gamechannel.h"

#include <QDir>
#include <QLocalSocket>

#include "mintyardtoolutils/wizard/gamemessage.h"

QString MintyardGameChannelName(const QString &gameFolder)
{
	QString folder = QDir::fromNativeSeparators(gameFolder);
	while (folder.endsWith('/'))
		folder.chop(1);
	return "mintyard-game-" + folder.section('/', -1);
}

bool SendTreeToGame(const QString &channelName, const KeyValues *pTree, bool bFlag, QString *pError, int nTimeoutMs)
{
	QLocalSocket socket;
	socket.connectToServer(channelName, QIODevice::WriteOnly);
	if (!socket.waitForConnected(nTimeoutMs))
	{
		if (pError)
			*pError = QString("No game is listening on \"%1\" (%2).").arg(channelName, socket.errorString());
		return false;
	}
	const std::string message = EncodeMintyardGameMessage(pTree, bFlag);
	qint64 nWritten = 0;
	while (nWritten < (qint64)message.size())
	{
		const qint64 n = socket.write(message.data() + nWritten, (qint64)message.size() - nWritten);
		if (n < 0)
			break;
		nWritten += n;
	}
	bool bOk = nWritten == (qint64)message.size();
	while (bOk && socket.bytesToWrite() > 0)
	{
		if (!socket.waitForBytesWritten(nTimeoutMs))
			bOk = false;
	}
	if (!bOk && pError)
		*pError = QString("The message to the game on \"%1\" could not be written (%2).").arg(channelName, socket.errorString());
	socket.disconnectFromServer();
	if (socket.state() != QLocalSocket::UnconnectedState)
		socket.waitForDisconnected(nTimeoutMs);
	return bOk;
}
