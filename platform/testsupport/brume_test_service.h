// A real brume_service for the tool's tests: started on a free loopback port, with the client
// initialised against it, files made through its HTTP API, and a pass-through in front of it that
// records every request and can fail chosen ones.
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

// Sits between the client and the service. Every request is recorded ("GET /api/v1/files?..."),
// then either handed to the hook, which may answer it, or forwarded.
class CServiceRelay
{
public:
	// Returns true when it has answered the request itself.
	typedef std::function<bool(const httplib::Request &, httplib::Response &)> Hook_t;

	~CServiceRelay() { Stop(); }

	bool Start(int servicePort)
	{
		m_nServicePort = servicePort;
		auto handler = [this](const httplib::Request &req, httplib::Response &res) { Handle(req, res); };
		m_Server.Get(".*", handler);
		m_Server.Post(".*", handler);
		m_Server.Delete(".*", handler);
		m_nPort = m_Server.bind_to_any_port("127.0.0.1");
		if (m_nPort <= 0)
			return false;
		m_Thread = std::thread([this] { m_Server.listen_after_bind(); });
		return true;
	}
	void Stop()
	{
		if (m_Thread.joinable())
		{
			m_Server.stop();
			m_Thread.join();
		}
	}
	std::string Address() const { return "127.0.0.1:" + std::to_string(m_nPort); }
	void SetHook(Hook_t hook)
	{
		std::lock_guard<std::mutex> lock(m_Mutex);
		m_Hook = std::move(hook);
	}
	std::vector<std::string> Requests()
	{
		std::lock_guard<std::mutex> lock(m_Mutex);
		return m_Requests;
	}

private:
	void Handle(const httplib::Request &req, httplib::Response &res)
	{
		Hook_t hook;
		{
			std::lock_guard<std::mutex> lock(m_Mutex);
			m_Requests.push_back(req.method + " " + req.target);
			hook = m_Hook;
		}
		if (hook && hook(req, res))
			return;
		httplib::Client http("127.0.0.1", m_nServicePort);
		httplib::Headers headers;
		for (const auto &[key, value] : req.headers)
			if (key.rfind("X-Brume-", 0) == 0)
				headers.emplace(key, value);
		const std::string type = req.get_header_value("Content-Type");
		httplib::Result r = req.method == "GET"	   ? http.Get(req.target.c_str(), headers)
							: req.method == "POST" ? http.Post(req.target.c_str(), headers, req.body, type.c_str())
												   : http.Delete(req.target.c_str(), headers);
		if (!r)
		{
			res.status = 502;
			return;
		}
		res.status = r->status;
		for (const auto &[key, value] : r->headers)
			if (key.rfind("X-Brume-", 0) == 0)
				res.set_header(key.c_str(), value);
		res.set_content(r->body, r->get_header_value("Content-Type").c_str());
	}

	httplib::Server m_Server;
	std::thread m_Thread;
	std::mutex m_Mutex;
	Hook_t m_Hook;
	std::vector<std::string> m_Requests;
	int m_nPort = 0;
	int m_nServicePort = 0;
};

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
