// The cloud file request against a real service: a preview downloaded to disk through the file
// system's asynchronous write, refusals, an empty cloud file and a target that cannot be written.
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "testsupport/brume_test_service.h"
#include "core/logging.h"
#include "filesystem/filesystem.h"
#include "mintyardmanager/ugcfilerequest.h"

namespace
{
std::string ReadAll(const std::string &path)
{
	std::ifstream in(path, std::ios::binary);
	std::stringstream text;
	text << in.rdbuf();
	return text.str();
}

uint64_t Field(const std::string &json, const std::string &key)
{
	const size_t at = json.find("\"" + key + "\":");
	return at == std::string::npos ? 0 : std::stoull(json.substr(at + key.size() + 3));
}

class UGCFileRequest : public ::testing::Test
{
protected:
	void SetUp() override { m_pFileSystem = CreateFileSystem(); }
	void TearDown() override { DestroyFileSystem(m_pFileSystem); }

	// Runs frames and polls the request as the publish dialog's timer does, recording each state
	// when it changes, until it is done or failed.
	std::vector<int> Drive(CUGCFileRequest &request)
	{
		std::vector<int> states = { request.GetState() };
		PumpUntil([&] {
			const int state = request.Update();
			if (state != states.back())
				states.push_back(state);
			return state == CUGCFileRequest::STATE_DONE || state == CUGCFileRequest::STATE_FAILED;
		});
		return states;
	}

	CBrumeTestService m_Brume;
	IFileSystem *m_pFileSystem = nullptr;
	CTempDirectory m_Target;
};

TEST_F(UGCFileRequest, APreviewIsDownloadedToDiskThroughStatesOneTwoFour)
{
	ASSERT_TRUE(m_Brume.Start());
	const uint64_t id = m_Brume.MakeFile("with preview");
	std::string png = "\x89PNG\r\n\x1a\n";
	for (int i = 0; i < 5000; ++i)
		png += (char)(i * 7);
	httplib::MultipartFormDataItems items = { { "meta", "{}", "", "application/json" }, { "preview", png, "preview.png", "image/png" } };
	auto r = m_Brume.Update(id, items);
	ASSERT_TRUE(r && r->status == 200);
	const uint64_t handle = Field(m_Brume.Record(id), "hcontent_preview");
	ASSERT_NE(handle, 0u);

	CUGCFileRequest request(m_pFileSystem);
	const std::string directory = m_Target.Path("previews/deep");
	EXPECT_EQ(request.StartDownload(handle, directory.c_str(), "", 0, true), CUGCFileRequest::STATE_DOWNLOADING);

	// The call result moves it to writing; the poll after that to done.
	std::vector<int> states = { request.GetState() };
	ASSERT_TRUE(PumpUntil([&] {
		if (request.GetState() != states.back())
			states.push_back(request.GetState());
		const int state = request.Update();
		if (state != states.back())
			states.push_back(state);
		return state == CUGCFileRequest::STATE_DONE || state == CUGCFileRequest::STATE_FAILED;
	}));
	EXPECT_EQ(states, (std::vector<int>{ 1, 2, 4 })) << request.GetError();
	EXPECT_STREQ(request.GetCloudFilename(), "preview.png");
	char path[520];
	request.GetFullPath(path, sizeof(path));
	EXPECT_EQ(std::string(path), directory + "/preview.png");
	EXPECT_EQ(ReadAll(path), png);
}

TEST_F(UGCFileRequest, TheRequestedNameWinsOverTheCloudName)
{
	ASSERT_TRUE(m_Brume.Start());
	const uint64_t id = m_Brume.MakeFile("named");
	httplib::MultipartFormDataItems items = { { "meta", "{}", "", "application/json" }, { "preview", "abc", "cloud.jpg", "image/jpeg" } };
	ASSERT_TRUE(m_Brume.Update(id, items));
	const uint64_t handle = Field(m_Brume.Record(id), "hcontent_preview");
	CUGCFileRequest request(m_pFileSystem);
	const std::string directory = m_Target.Path("out");
	ASSERT_EQ(request.StartDownload(handle, directory.c_str(), "mine.jpg", 0, true), CUGCFileRequest::STATE_DOWNLOADING);
	EXPECT_EQ(Drive(request).back(), CUGCFileRequest::STATE_DONE) << request.GetError();
	EXPECT_EQ(ReadAll(directory + "/mine.jpg"), "abc");
	EXPECT_FALSE(std::filesystem::exists(directory + "/cloud.jpg"));
}

TEST_F(UGCFileRequest, AHandleWithEveryBitSetIsRefusedAtOnce)
{
	ASSERT_TRUE(m_Brume.Start());
	CCaptureLog log;
	CUGCFileRequest request(m_pFileSystem);
	EXPECT_EQ(request.StartDownload(~0ull, m_Target.Path().c_str(), "x.png", 0, true), CUGCFileRequest::STATE_FAILED);
	EXPECT_STREQ(request.GetError(), "Failed to initiate download of file from cloud\n");
	EXPECT_NE(log.m_Text.find("Failed to initiate download of file from cloud"), std::string::npos);
	EXPECT_EQ(log.m_LastSeverity, LS_WARNING);
	EXPECT_EQ(request.Update(), CUGCFileRequest::STATE_FAILED);
}

TEST_F(UGCFileRequest, AnEmptyCloudFileIsRefusedBySize)
{
	ASSERT_TRUE(m_Brume.Start());
	const uint64_t id = m_Brume.MakeFile("empty");
	httplib::MultipartFormDataItems items = { { "meta", "{}", "", "application/json" }, { "preview", "", "empty.png", "image/png" } };
	auto r = m_Brume.Update(id, items);
	ASSERT_TRUE(r && r->status == 200) << (r ? r->body : "no answer");
	const uint64_t handle = Field(m_Brume.Record(id), "hcontent_preview");
	ASSERT_NE(handle, 0u);
	CUGCFileRequest request(m_pFileSystem);
	ASSERT_EQ(request.StartDownload(handle, m_Target.Path().c_str(), "", 0, true), CUGCFileRequest::STATE_DOWNLOADING);
	EXPECT_EQ(Drive(request), (std::vector<int>{ 1, -1 }));
	EXPECT_STREQ(request.GetError(), "Unable to retrieve cloud file info from Brume\n");
}

TEST_F(UGCFileRequest, AnUnknownHandleFailsTheDownload)
{
	ASSERT_TRUE(m_Brume.Start());
	CUGCFileRequest request(m_pFileSystem);
	ASSERT_EQ(request.StartDownload(123456789, m_Target.Path().c_str(), "x", 0, true), CUGCFileRequest::STATE_DOWNLOADING);
	EXPECT_EQ(Drive(request), (std::vector<int>{ 1, -1 }));
	EXPECT_STREQ(request.GetError(), "Download of file from cloud failed!\n");
}

TEST_F(UGCFileRequest, ATargetThatCannotBeWrittenFailsInTheWrite)
{
	ASSERT_TRUE(m_Brume.Start());
	const uint64_t id = m_Brume.MakeFile("blocked");
	httplib::MultipartFormDataItems items = { { "meta", "{}", "", "application/json" }, { "preview", "data", "p.png", "image/png" } };
	ASSERT_TRUE(m_Brume.Update(id, items));
	const uint64_t handle = Field(m_Brume.Record(id), "hcontent_preview");
	// The target folder is a plain file.
	const std::string blocker = m_Target.Write("blocker", "in the way");
	CUGCFileRequest request(m_pFileSystem);
	ASSERT_EQ(request.StartDownload(handle, blocker.c_str(), "", 0, true), CUGCFileRequest::STATE_DOWNLOADING);
	const std::vector<int> states = Drive(request);
	EXPECT_EQ(states.back(), CUGCFileRequest::STATE_FAILED);
	EXPECT_STREQ(request.GetError(), "Unable to write file to disc!\n");
	EXPECT_EQ(ReadAll(blocker), "in the way");
}

TEST_F(UGCFileRequest, UpdateWhenIdleDoesNothing)
{
	CUGCFileRequest request(m_pFileSystem);
	EXPECT_EQ(request.Update(), CUGCFileRequest::STATE_IDLE);
	EXPECT_EQ(request.GetState(), CUGCFileRequest::STATE_IDLE);
	EXPECT_STREQ(request.GetError(), "");
	char path[16] = "unchanged";
	request.GetFullPath(path, sizeof(path));
	EXPECT_STREQ(path, "");
}

TEST_F(UGCFileRequest, AFreshEnoughLocalFileNeedsNoDownloadUnlessForced)
{
	const std::string local = m_Target.Write("have/it.png", "local");
	CUGCFileRequest request(m_pFileSystem);
	// No service at all: a download would fail, so state 4 proves none was tried.
	BrumeAPIContext()->Clear();
	EXPECT_EQ(request.StartDownload(42, m_Target.Path("have").c_str(), "it.png", 0, false), CUGCFileRequest::STATE_DONE);
	EXPECT_EQ(request.GetHandle(), 42u);
	EXPECT_EQ(request.StartDownload(42, m_Target.Path("have").c_str(), "it.png", 0, true), CUGCFileRequest::STATE_FAILED);
	// A file older than expected is not fresh enough.
	EXPECT_EQ(request.StartDownload(42, m_Target.Path("have").c_str(), "it.png", 0xFFFFFFF0u, false), CUGCFileRequest::STATE_FAILED);
	EXPECT_EQ(ReadAll(local), "local");
}
} // namespace
