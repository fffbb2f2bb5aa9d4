// The sample game for the portrait tests, made once for a test binary, with the sample sessions
// imported on first use and kept: the portrait records a test changes are given back by
// CPortraitRecordsGuard when the test ends.
#pragma once

#include <map>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "mintyardtoolutils/core/cfgelements.h"
#include "mintyardtoolutils/core/importsession.h"
#include "previewtestgame.h"

class CPortraitTestGame
{
public:
	static CPreviewTestGame &Game()
	{
		if (!s_pGame)
			s_pGame = new CPreviewTestGame;
		return *s_pGame;
	}

	// A sample session imported once (null, with a test failure, when it does not import).
	static CMintyardImportSession *Session(const std::string &name)
	{
		std::unique_ptr<CMintyardImportSession> &pSession = Sessions()[name];
		if (pSession)
			return pSession.get();
		pSession = std::make_unique<CMintyardImportSession>();
		std::string messages;
		if (!Game().ImportSession(*pSession, name, &messages))
		{
			ADD_FAILURE() << name << " does not import:\n" << messages;
			pSession.reset();
			return nullptr;
		}
		return pSession.get();
	}

	// Drops the sessions and the game (at the end of the binary, before Qt goes).
	static void Release()
	{
		Sessions().clear();
		delete s_pGame;
		s_pGame = nullptr;
	}

private:
	static std::map<std::string, std::unique_ptr<CMintyardImportSession>> &Sessions()
	{
		static std::map<std::string, std::unique_ptr<CMintyardImportSession>> s_Sessions;
		return s_Sessions;
	}
	static inline CPreviewTestGame *s_pGame = nullptr;
};

// Keeps the portrait records of a session and puts them back when it goes.
class CPortraitRecordsGuard
{
public:
	explicit CPortraitRecordsGuard(CMintyardImportSession *pSession) : m_pSession(pSession)
	{
		if (m_pSession)
		{
			for (const CMintyardCfg_ZarnModel *pModel : m_pSession->m_Models)
				m_Records.push_back(pModel->m_PortraitRecord);
		}
	}
	~CPortraitRecordsGuard()
	{
		if (!m_pSession)
			return;
		for (size_t i = 0; i < m_Records.size() && i < m_pSession->m_Models.size(); ++i)
			m_pSession->m_Models[i]->m_PortraitRecord = m_Records[i];
	}

private:
	CMintyardImportSession *m_pSession;
	std::vector<CZarnPortraitRecord> m_Records;
};
