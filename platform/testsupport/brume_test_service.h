// A real brume_service for the tool's tests: started on a free loopback port, with the client
// initialised against it through a recording relay, files made through its HTTP API, and the
// helpers a widget test needs around it (message boxes closed, frames pumped).
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <httplib.h>

#include <QApplication>
#include <QMessageBox>
#include <QTimer>

#include "brume/brume_api.h"
#include "testsupport/test_support.h"
#include "testsupport/service_process.h"
#include "testsupport/service_relay.h"

// Closes every message box that comes up, recording its title and text, so that a test never waits
// on one.
class CMessageBoxCatcher : public QObject
{
public:
	CMessageBoxCatcher()
	{
		m_Timer.setInterval(5);
		QObject::connect(&m_Timer, &QTimer::timeout, [this] { CloseBoxes(); });
		m_Timer.start();
	}
	QStringList m_Texts;
	QStringList m_Titles;

private:
	void CloseBoxes()
	{
		for (QWidget *widget : QApplication::topLevelWidgets())
		{
			QMessageBox *box = qobject_cast<QMessageBox *>(widget);
			if (box && box->isVisible())
			{
				m_Texts << box->text();
				m_Titles << box->windowTitle();
				box->done(QMessageBox::Ok);
			}
		}
	}
	QTimer m_Timer;
};

// The service, the relay and the client, set up for one test.
class CBrumeTestService
{
public:
	~CBrumeTestService() { Stop(); }

	// False when the service did not come up or the client could not reach it.
	bool Start(const std::vector<std::string> &options = {}, bool bThroughRelay = true)
	{
		if (!m_Service.Start(m_Data.Path("service"), options))
			return false;
		std::string address = m_Service.Address();
		if (bThroughRelay)
		{
			if (!m_Relay.Start(m_Service.Port()))
				return false;
			address = m_Relay.Address();
		}
		setenv("BRUME_SERVICE", address.c_str(), 1);
		setenv("BRUME_DATA_DIR", m_Data.Path("client").c_str(), 1);
		unsetenv("BRUME_ACCOUNT");
		if (!BrumeAPI_Init())
			return false;
		return BrumeAPIContext()->Init();
	}
	void Stop()
	{
		BrumeAPIContext()->Clear();
		BrumeAPI_Shutdown();
		m_Relay.Stop();
		m_Service.Stop();
	}

	// Makes a file of the service's own account (the client's) with a title and tags; its id.
	uint64_t MakeFile(const std::string &title, const std::vector<std::string> &tags = {})
	{
		httplib::Client http("127.0.0.1", m_Service.Port());
		auto r = http.Post("/api/v1/files", "{\"file_type\":0}", "application/json");
		if (!r || r->status != 200)
			return 0;
		const size_t at = r->body.find("\"publishedfileid\":");
		if (at == std::string::npos)
			return 0;
		const uint64_t id = std::stoull(r->body.substr(at + 18));
		std::string meta = "{\"title\":\"" + title + "\",\"tags\":[";
		for (size_t i = 0; i < tags.size(); ++i)
			meta += (i ? ",\"" : "\"") + tags[i] + "\"";
		meta += "]}";
		httplib::MultipartFormDataItems items = { { "meta", meta, "", "application/json" } };
		auto u = http.Post(("/api/v1/files/" + std::to_string(id) + "/update").c_str(), items);
		return (u && u->status == 200) ? id : 0;
	}
	std::vector<uint64_t> MakeFiles(int count, const std::vector<std::string> &tags = {})
	{
		std::vector<uint64_t> ids;
		for (int i = 0; i < count; ++i)
			ids.push_back(MakeFile("File " + std::to_string(i), tags));
		return ids;
	}
	// Sends a multipart update straight to the service.
	httplib::Result Update(uint64_t id, const httplib::MultipartFormDataItems &items)
	{
		httplib::Client http("127.0.0.1", m_Service.Port());
		return http.Post(("/api/v1/files/" + std::to_string(id) + "/update").c_str(), items);
	}
	// A file's record as the service's JSON.
	std::string Record(uint64_t id)
	{
		httplib::Client http("127.0.0.1", m_Service.Port());
		auto r = http.Get(("/api/v1/files/" + std::to_string(id)).c_str());
		return r ? r->body : std::string();
	}
	bool DeleteDirectly(uint64_t id)
	{
		httplib::Client http("127.0.0.1", m_Service.Port());
		auto r = http.Delete(("/api/v1/files/" + std::to_string(id)).c_str());
		return r && r->status == 200;
	}
	// Number of the account's files the service holds.
	int CountFiles()
	{
		httplib::Client http("127.0.0.1", m_Service.Port());
		auto r = http.Get("/api/v1/files?start=0&count=1");
		if (!r)
			return -1;
		const size_t at = r->body.find("\"total\":");
		return at == std::string::npos ? -1 : std::stoi(r->body.substr(at + 8));
	}

	CServiceProcess &Service() { return m_Service; }
	CServiceRelay &Relay() { return m_Relay; }
	CTempDirectory &Data() { return m_Data; }

private:
	CTempDirectory m_Data;
	CServiceProcess m_Service;
	CServiceRelay m_Relay;
};

// Runs the host's frames (call results, then Qt events) until `done` holds; false when it did not
// within a minute, which only keeps a broken chain from hanging the test run.
inline bool PumpUntil(const std::function<bool()> &done)
{
	const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
	while (!done())
	{
		if (std::chrono::steady_clock::now() > deadline)
			return false;
		BrumeAPI_RunCallbacks();
		QCoreApplication::processEvents();
		std::this_thread::sleep_for(std::chrono::microseconds(200));
	}
	return true;
}
