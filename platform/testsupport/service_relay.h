// A pass-through in front of a real content service: records every request and lets a test
// answer chosen ones itself (to fail them, or to hand the client what no real service would).
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <httplib.h>

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
