// A game tree of the wizard tests' own: <root>/game/zarn with the sample game's scripts and
// resources, <root>/game/core with the tool's images and English texts, <root>/content/zarn, a
// folder for art and a scratch folder for zips. The framework's services are started on it, and
// the wizard's message boxes and file dialogs are answered by the test.
#pragma once

#include <cstdlib>
#include <deque>
#include <filesystem>
#include <functional>
#include <string>

#include <QApplication>
#include <QEvent>
#include <QStringList>

#include "core/fileio.h"
#include "filesystem/filesystem.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/wizard/wizardutils.h"
#include "testsupport/test_support.h"
#include "testsupport/tool_host.h"

class CWizardTestGame
{
public:
	struct Message_t
	{
		QMessageBox::Icon m_eIcon;
		QString m_Title;
		QString m_Text;
	};

	CWizardTestGame()
	{
		const std::filesystem::path sample = std::filesystem::path(MINTYARD_SOURCE_DIR) / "sample";
		std::error_code error;
		std::filesystem::create_directories(Game(""), error);
		for (const char *folder : { "scripts", "resource" })
			std::filesystem::copy(sample / "game/zarn" / folder, Game(folder), std::filesystem::copy_options::recursive, error);
		std::filesystem::copy(sample / "game/core", m_Temp.Path("game/core"), std::filesystem::copy_options::recursive, error);
		std::filesystem::create_directories(Content(""), error);
		std::filesystem::create_directories(m_Temp.Path("scratch"), error);
		setenv("MINTYARD_SCRATCH_DIR", m_Temp.Path("scratch").c_str(), 1);

		CUtlString message;
		m_bReady = m_Host.Start(Game(""), m_Temp.Path("settings"), &message);
		EXPECT_TRUE(m_bReady) << message;
		ReloadGameData();

		MintyardWizardMessageHook() = [this](QMessageBox::Icon icon, const QString &title, const QString &text, int, int) {
			m_Messages.push_back(Message_t{ icon, title, text });
			if (m_Answers.empty())
				return (int)QMessageBox::Ok;
			const int nAnswer = m_Answers.front();
			m_Answers.pop_front();
			return nAnswer;
		};
		MintyardWizardFileDialogHook() = [this](EMintyardFileDialogKind kind, const QString &caption, const QString &, const QString &filter) {
			m_FileDialogs << QString("%1|%2|%3").arg(kind).arg(caption, filter);
			if (m_FileAnswers.empty())
				return QString();
			const QString answer = m_FileAnswers.front();
			m_FileAnswers.pop_front();
			return answer;
		};
	}

	~CWizardTestGame()
	{
		// Windows that deleted themselves on close go now, while the services they use live.
		QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
		MintyardWizardMessageHook() = nullptr;
		MintyardWizardFileDialogHook() = nullptr;
		unsetenv("MINTYARD_SCRATCH_DIR");
	}
	CWizardTestGame(const CWizardTestGame &) = delete;
	CWizardTestGame &operator=(const CWizardTestGame &) = delete;

	std::string Root(const std::string &relative) const { return m_Temp.Path(relative); }
	std::string Game(const std::string &relative) const { return m_Temp.Path("game/zarn/" + relative); }
	std::string Content(const std::string &relative) const { return m_Temp.Path("content/zarn/" + relative); }
	std::string Art(const std::string &relative) const { return m_Temp.Path("art/" + relative); }
	std::string Scratch() const { return m_Temp.Path("scratch"); }
	std::string WriteArt(const std::string &relative, const std::string &bytes) const { return m_Temp.Write("art/" + relative, bytes); }
	std::string Write(const std::string &relative, const std::string &bytes) const { return m_Temp.Write(relative, bytes); }
	std::string ReadFile(const std::string &path) const
	{
		CUtlBuffer data;
		return Plat_ReadFile(path.c_str(), data) ? std::string(data.View()) : std::string("<missing>");
	}
	// A copy of one of the sample game's art files, under art/.
	std::string CopySampleArt(const std::string &relative) const
	{
		const std::filesystem::path source = std::filesystem::path(MINTYARD_SOURCE_DIR) / "sample/art" / relative;
		const std::string target = Art(relative);
		std::error_code error;
		std::filesystem::create_directories(std::filesystem::path(target).parent_path(), error);
		std::filesystem::copy_file(source, target, std::filesystem::copy_options::overwrite_existing, error);
		return target;
	}

	// Message boxes seen, and the answers to give in order (Ok when none is queued).
	std::deque<Message_t> m_Messages;
	std::deque<int> m_Answers;
	// File dialogs seen ("kind|caption|filter"), and the paths to give in order (a cancel when none).
	QStringList m_FileDialogs;
	std::deque<QString> m_FileAnswers;
	bool m_bReady = false;

	QStringList MessageTitles() const
	{
		QStringList titles;
		for (const Message_t &message : m_Messages)
			titles << message.m_Title;
		return titles;
	}

private:
	CTempDirectory m_Temp;
	CTestToolHost m_Host;
};
