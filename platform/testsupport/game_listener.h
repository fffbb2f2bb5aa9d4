// A stand-in for a running game in the tests of the game channel: it listens on a local channel on
// a thread of its own and keeps the bytes of the first connection. Needs Qt5::Network.
#pragma once

#include <string>

#include <QLocalServer>
#include <QLocalSocket>
#include <QSemaphore>
#include <QString>
#include <QThread>

class CTestGameListener : public QThread
{
public:
	explicit CTestGameListener(const QString &name) : m_Name(name) {}

	// Starts and returns once the channel listens.
	bool Listen()
	{
		start();
		m_Ready.acquire();
		return m_bListening;
	}

	std::string m_Bytes;

protected:
	void run() override
	{
		QLocalServer::removeServer(m_Name);
		QLocalServer server;
		m_bListening = server.listen(m_Name);
		m_Ready.release();
		if (!m_bListening || !server.waitForNewConnection(10000))
			return;
		QLocalSocket *pSocket = server.nextPendingConnection();
		while (pSocket->state() == QLocalSocket::ConnectedState || pSocket->bytesAvailable() > 0)
		{
			if (pSocket->bytesAvailable() == 0 && !pSocket->waitForReadyRead(5000))
				break;
			m_Bytes += pSocket->readAll().toStdString();
		}
		m_Bytes += pSocket->readAll().toStdString();
	}

private:
	QString m_Name;
	QSemaphore m_Ready;
	bool m_bListening = false;
};
