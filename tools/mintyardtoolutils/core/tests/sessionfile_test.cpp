#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "core/kv3text.h"
#include "core/kv3transfer.h"
#include "testsupport/test_support.h"
#include "testsupport/tool_host.h"
#include "elements_test_support.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/core/sessionfile.h"
#include "toolframework/toolframework.h"
#include "zip/zip_utils.h"

using namespace elementstest;

namespace
{
std::string ReadAll(const std::string &path)
{
	std::ifstream in(path, std::ios::binary);
	std::stringstream ss;
	ss << in.rdbuf();
	return ss.str();
}

std::vector<std::string> ZipNames(const std::string &path)
{
	std::vector<std::string> names;
	std::unique_ptr<IZip, void (*)(IZip *)> zip(IZip::CreateZip(), &IZip::ReleaseZip);
	if (!zip->ParseFromDisk(path.c_str()))
		return names;
	char name[1024];
	int size = 0;
	for (int id = zip->GetNextFilename(-1, name, sizeof(name), size); id != -1; id = zip->GetNextFilename(id, name, sizeof(name), size))
		names.push_back(name);
	std::sort(names.begin(), names.end());
	return names;
}

// A game folder whose catalogue holds the courier test template, the host's services on it,
// and a scratch folder of the test's own.
class SessionFileTest : public ::testing::Test
{
protected:
	void SetUp() override
	{
		const std::string game = m_Dir.Path("root/game/zarn");
		std::filesystem::create_directories(game + "/scripts/mintyard_import_templates");
		m_pTemplate = MakeCourierTemplate();
		CKeyValues3Context document;
		CUtlString error;
		ASSERT_TRUE(SaveKV3Object(*m_pTemplate, document.Root(), &error)) << error;
		CUtlBuffer buffer(CUtlBuffer::TEXT_BUFFER);
		ASSERT_TRUE(SaveKV3(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC, document.Root(), &error, &buffer)) << error;
		ASSERT_TRUE(WriteFile(game + "/scripts/mintyard_import_templates/template_courier_test.txt", std::string(buffer.View())));
		ASSERT_TRUE(WriteFile(game + "/scripts/mintyard_import_templates/templates.txt",
			"<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n"
			"{ templates = [ \"scripts/mintyard_import_templates/template_courier_test.txt\" ] }\n"));
		ASSERT_TRUE(m_Host.Start(game, m_Dir.Path("settings"), &error)) << error;
		m_Scratch = m_Dir.Path("scratch");
		setenv("MINTYARD_SCRATCH_DIR", m_Scratch.c_str(), 1);
	}
	void TearDown() override
	{
		unsetenv("MINTYARD_SCRATCH_DIR");
	}

	// A session on the catalogue's template.
	std::unique_ptr<CMintyardImportSession> NewSession()
	{
		auto pSession = std::make_unique<CMintyardImportSession>();
		ImportMessageList list;
		EXPECT_TRUE(pSession->GetCatalogue().LoadTemplates(list));
		return pSession;
	}
	std::unique_ptr<CMintyardImportSession> FilledSession()
	{
		auto pSession = NewSession();
		const CMintyardTemplate *pTemplate = pSession->GetCatalogue().FindTemplate("courier_test");
		EXPECT_NE(pTemplate, nullptr);
		pSession->SetTemplate(pTemplate);
		pSession->GetNameElement()->SetValue("gull");
		CMintyardCfg_ZarnModel *pModel = pSession->m_Models[0];
		pModel->m_Lods[1]->SetValue(Art("art/Body.FBX", "fbx mesh").c_str());
		pModel->m_Lods[1]->m_ExtraMeshes[0]->SetValue(Art("art/wings.dmx", "dmx mesh").c_str());
		pModel->m_Materials[0]->m_pTextures[0]->SetValue(Art("art/color.tga", std::string(3000, 'c')).c_str());
		pModel->m_Materials[0]->m_pTextures[2]->SetValue(Art("art/normal.tga", std::string(1500, 'n')).c_str());
		pModel->m_Bundles[0]->m_Anims[0]->SetValue(Art("art/run.fbx", "run").c_str());
		pModel->m_Attaches[0]->SetValue("neck");
		pModel->m_Attaches[0]->m_flOffset[0] = 4.5f;
		pModel->m_bHasCustomSkeleton = true;
		pModel->m_WearableSlots = { "head", "back" };
		pModel->m_WearableModels = { "hat.zmdl", "" };
		pModel->m_PortraitRecord.m_AnimationActivity = "ACT_IDLE";
		pSession->m_ImageSets[0]->m_Images[0]->SetValue(Art("art/screen.png", MakePng(64, 32)).c_str());
		pSession->m_ImageSets[1]->m_Emoticons[0]->m_pImage->SetValue(Art("art/smile.png", MakePng(64, 32)).c_str());
		pSession->m_ImageSets[1]->m_Emoticons[0]->m_pKeyword->SetValue(":smile:");
		pSession->m_SoundSets[0]->m_Sounds[0]->SetValue(Art("art/track1.mp3", std::string(1024, 'm')).c_str());
		pSession->m_MiscData[0]->SetValue("Fast and bright");
		return pSession;
	}
	std::string Art(const char *name, const std::string &bytes)
	{
		const std::string path = m_Dir.Path(name);
		std::filesystem::create_directories(std::filesystem::path(path).parent_path());
		EXPECT_TRUE(WriteFile(path, bytes));
		return path;
	}

	CTempDirectory m_Dir;
	CTestToolHost m_Host;
	std::unique_ptr<CMintyardTemplate> m_pTemplate;
	std::string m_Scratch;
};
} // namespace

TEST_F(SessionFileTest, PlainFileRoundTrip)
{
	auto pSaved = FilledSession();
	const std::string path = m_Dir.Path("gull.session.txt");
	ImportMessageList list;
	ASSERT_TRUE(SaveSessionFile(*pSaved, path.c_str(), list));
	EXPECT_EQ(list.Count(), 0);

	auto pLoaded = NewSession();
	LoadContext ctx;
	ASSERT_TRUE(LoadSessionFile(*pLoaded, ctx, path.c_str(), list)) << (list.Count() ? list[0].Message() : "");
	EXPECT_EQ(list.Count(), 0);
	EXPECT_EQ(pLoaded->GetNameElement()->GetValue(), "gull");
	CMintyardCfg_ZarnModel *a = pSaved->m_Models[0], *b = pLoaded->m_Models[0];
	EXPECT_EQ(b->m_Lods[1]->GetValue(), a->m_Lods[1]->GetValue());
	EXPECT_EQ(b->m_Lods[1]->m_ExtraMeshes[0]->GetValue(), a->m_Lods[1]->m_ExtraMeshes[0]->GetValue());
	EXPECT_EQ(b->m_Lods[0]->GetValue(), "");
	EXPECT_EQ(b->m_Materials[0]->m_pTextures[0]->GetValue(), a->m_Materials[0]->m_pTextures[0]->GetValue());
	EXPECT_EQ(b->m_Materials[0]->m_pTextures[2]->GetValue(), a->m_Materials[0]->m_pTextures[2]->GetValue());
	EXPECT_EQ(b->m_Bundles[0]->m_Anims[0]->GetValue(), a->m_Bundles[0]->m_Anims[0]->GetValue());
	EXPECT_EQ(b->m_Attaches[0]->GetValue(), "neck");
	EXPECT_FLOAT_EQ(b->m_Attaches[0]->m_flOffset[0], 4.5f);
	EXPECT_FLOAT_EQ(b->m_Attaches[0]->m_flOffset[2], 3.0f);
	EXPECT_TRUE(b->m_bHasCustomSkeleton);
	EXPECT_EQ(b->m_WearableSlots, (CUtlVector<CUtlString>{ "head", "back" }));
	EXPECT_EQ(b->m_WearableModels, (CUtlVector<CUtlString>{ "hat.zmdl", "" }));
	EXPECT_EQ(b->m_PortraitRecord.m_AnimationActivity, "ACT_IDLE");
	EXPECT_EQ(pLoaded->m_ImageSets[1]->m_Emoticons[0]->m_pKeyword->GetValue(), ":smile:");
	EXPECT_EQ(pLoaded->m_ImageSets[1]->m_Emoticons[0]->m_pImage->GetValue(), pSaved->m_ImageSets[1]->m_Emoticons[0]->m_pImage->GetValue());
	EXPECT_EQ(pLoaded->m_SoundSets[0]->m_Sounds[0]->GetValue(), pSaved->m_SoundSets[0]->m_Sounds[0]->GetValue());
	EXPECT_EQ(pLoaded->m_MiscData[0]->GetValue(), "Fast and bright");
	EXPECT_EQ(CMintyardCfgElement::GetSuppressionCount(), 0);
}

TEST_F(SessionFileTest, DocumentLayout)
{
	auto pSession = FilledSession();
	SetMintyardSessionAccountId(0x1234567890abcdefull);
	CKeyValues3Context document;
	SaveContext ctx;
	ctx.pContext = &document;
	ImportMessageList list;
	ASSERT_TRUE(BuildSessionDocument(*pSession, ctx, list));
	SetMintyardSessionAccountId(0);
	const KeyValues3 *pRoot = document.Root();
	const char *expected[] = { "template_name", "import_name", "brume_id", "import_version", "model_list", "image_set_list", "sound_set_list", "misc_data_list" };
	ASSERT_EQ(pRoot->GetMemberCount(), 8u);
	for (uint32 i = 0; i < 8; ++i)
		EXPECT_STREQ(pRoot->GetMemberName(i), expected[i]);
	EXPECT_STREQ(GetMemberString(pRoot, "template_name"), "courier_test");
	EXPECT_STREQ(GetMemberString(pRoot, "brume_id"), "0x90abcdef");
	EXPECT_EQ(GetMember(pRoot, "import_version")->GetInt64(), 5);
	// Each model table starts with its id, then the keys in their order.
	const KeyValues3 *pModel = ArrayElement(GetMember(pRoot, "model_list"), 0);
	const char *modelKeys[] = { "id", "lod_list", "animation_list", "attach_list", "material_list", "anim_bundles", "particle_snapshots",
		"has_custom_skeleton", "portrait", "selected_wearables" };
	ASSERT_EQ(pModel->GetMemberCount(), 10u);
	for (uint32 i = 0; i < 10; ++i)
		EXPECT_STREQ(pModel->GetMemberName(i), modelKeys[i]);
	const KeyValues3 *pMaterial = ArrayElement(GetMember(pModel, "material_list"), 0);
	EXPECT_STREQ(pMaterial->GetMemberName(1), "texture_color");
	EXPECT_STREQ(pMaterial->GetMemberName(11), "texture_specexp");
	const KeyValues3 *pAttach = ArrayElement(GetMember(pModel, "attach_list"), 0);
	EXPECT_EQ(ArrayLength(GetMember(pAttach, "attach_offset")), 3u);
	// The flying model's single level list, with an empty extra list.
	const KeyValues3 *pFlying = ArrayElement(GetMember(pRoot, "model_list"), 1);
	const KeyValues3 *pLevel = ArrayElement(GetMember(pFlying, "lod_list"), 0);
	EXPECT_STREQ(GetMemberString(pLevel, "source_filename", "absent"), "");
	EXPECT_TRUE(GetMember(pLevel, "extra_meshes")->IsArray());
	EXPECT_EQ(ArrayLength(GetMember(pLevel, "extra_meshes")), 0u);
	// Plain documents list no files.
	EXPECT_TRUE(ctx.files.empty());
	EXPECT_TRUE(ctx.idStack.empty());
}

TEST_F(SessionFileTest, EmptyListsAreEmptyArrays)
{
	auto pSession = NewSession();
	auto t = MakeCourierTemplate();
	t->sound_sets.clear();
	pSession->SetTemplate(t.get());
	CKeyValues3Context document;
	SaveContext ctx;
	ctx.pContext = &document;
	ImportMessageList list;
	ASSERT_TRUE(BuildSessionDocument(*pSession, ctx, list));
	const KeyValues3 *pSounds = FindMember(document.Root(), "sound_set_list");
	ASSERT_NE(pSounds, nullptr);
	EXPECT_TRUE(pSounds->IsArray());
	EXPECT_EQ(ArrayLength(pSounds), 0u);
}

TEST_F(SessionFileTest, HandWrittenFileLoads)
{
	const std::string path = m_Dir.Write("hand.txt",
		"<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n"
		"{\n"
		"\ttemplate_name = \"COURIER_TEST\"\n"
		"\timport_name = \"hand_made\"\n"
		"\timport_version = 99\n"
		"\timage_set_list = [ { id = \"loading_screen\" image_list = [ { id = \"IMAGE_MAIN\" source_filename = \"/art/screen.png\" } ] },\n"
		"\t\t{ id = \"not_in_template\" } ]\n"
		"\tmisc_data_list = [ { id = \"tagline\" value = \"by hand\" } ]\n"
		"}\n");
	auto pSession = NewSession();
	ImportMessageList list;
	CCaptureLog log;
	ASSERT_TRUE(LoadSessionFile(*pSession, LoadContext(), path.c_str(), list));
	EXPECT_EQ(list.Count(), 0);
	EXPECT_NE(log.m_Text.find("Warning: Loaded element 'not_in_template' not used by template"), std::string::npos) << log.m_Text;
	EXPECT_EQ(pSession->GetNameElement()->GetValue(), "hand_made");
	EXPECT_EQ(pSession->m_ImageSets[0]->m_Images[0]->GetValue(), "/art/screen.png");
	EXPECT_EQ(pSession->m_MiscData[0]->GetValue(), "by hand");
	EXPECT_EQ(pSession->m_Models.size(), 2u);
	EXPECT_EQ(pSession->m_Models[0]->m_Lods[1]->GetValue(), "");
}

TEST_F(SessionFileTest, LoadFailures)
{
	auto pSession = NewSession();
	ImportMessageList list;
	const std::string header =
		"<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n";
	const std::string unknown = m_Dir.Write("unknown.txt", header + "{ template_name = \"wearable.nobody.head\" }\n");
	EXPECT_FALSE(LoadSessionFile(*pSession, LoadContext(), unknown.c_str(), list));
	ASSERT_EQ(list.Count(), 1);
	EXPECT_EQ(list[0].Message(), "#ZARN_Mintyard_Err_SessionLoadBadTemplate");
	EXPECT_EQ(list[0].Arg(1), "wearable.nobody.head");

	list.Clear();
	const std::string broken = m_Dir.Write("broken.txt", header + "{ template_name = \"courier_test\"\n");
	EXPECT_FALSE(LoadSessionFile(*pSession, LoadContext(), broken.c_str(), list));
	ASSERT_EQ(list.Count(), 1);
	EXPECT_EQ(list[0].Message(), "#ZARN_Mintyard_Err_SessionLoadKV3");
	EXPECT_NE(list[0].Arg(1).find("broken.txt"), std::string::npos) << list[0].Arg(1);

	// A model's attachment without its offset fails the load and names the key.
	list.Clear();
	const std::string noOffset = m_Dir.Write("nooffset.txt", header +
		"{ template_name = \"courier_test\" model_list = [ { id = \"model_courier\" attach_list = [ { id = \"attach_head\" attach_joint = \"x\" attach_rotation = [0,0,0] } ] } ] }\n");
	EXPECT_FALSE(LoadSessionFile(*pSession, LoadContext(), noOffset.c_str(), list));
	ASSERT_EQ(list.Count(), 1);
	EXPECT_EQ(list[0].Message(), "#ZARN_Mintyard_Err_Misc");
	EXPECT_EQ(list[0].Arg(1), "attach_offset");
	EXPECT_EQ(CMintyardCfgElement::GetSuppressionCount(), 0);

	// A session that has a template keeps it.
	auto t = MakeCourierTemplate();
	CMintyardImportSession other;
	ImportMessageList loadList;
	ASSERT_TRUE(other.GetCatalogue().LoadTemplates(loadList));
	other.SetTemplate(t.get());
	list.Clear();
	const std::string good = m_Dir.Write("good.txt", header + "{ template_name = \"courier_test\" import_name = \"x\" }\n");
	EXPECT_FALSE(LoadSessionFile(other, LoadContext(), good.c_str(), list));
	ASSERT_EQ(list.Count(), 1);
	EXPECT_EQ(list[0].Message(), "#ZARN_Mintyard_Err_SessionLoadCannotChangeTemplate");
}

TEST_F(SessionFileTest, SaveFailures)
{
	CMintyardImportSession empty;
	ImportMessageList list;
	EXPECT_FALSE(SaveSessionFile(empty, m_Dir.Path("x.txt").c_str(), list));
	EXPECT_EQ(Tokens(list), std::vector<std::string>{ "#ZARN_Mintyard_Err_SessionSaveNoTemplate" });
	EXPECT_FALSE(std::filesystem::exists(m_Dir.Path("x.txt")));

	// A failed write keeps what was there.
	auto pSession = FilledSession();
	const std::string target = m_Dir.Write("keep/session.txt", "the good old session");
	std::filesystem::permissions(m_Dir.Path("keep"), std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
	list.Clear();
	const bool bWritable = access(m_Dir.Path("keep").c_str(), W_OK) == 0; // root writes anyway
	if (!bWritable)
	{
		EXPECT_FALSE(SaveSessionFile(*pSession, target.c_str(), list));
		ASSERT_EQ(list.Count(), 1);
		EXPECT_EQ(list[0].Message(), "#ZARN_Mintyard_Err_FailedToWrite");
		EXPECT_EQ(list[0].Arg(1), target);
		EXPECT_EQ(ReadAll(target), "the good old session");
	}
	std::filesystem::permissions(m_Dir.Path("keep"), std::filesystem::perms::owner_all);
	// A target that cannot be replaced (a folder with files in it) stays as it was.
	list.Clear();
	const std::string blocker = m_Dir.Write("blocked/session.txt/inner.txt", "inner");
	const std::string blockedTarget = m_Dir.Path("blocked/session.txt");
	EXPECT_FALSE(SaveSessionFile(*pSession, blockedTarget.c_str(), list));
	EXPECT_EQ(Tokens(list), std::vector<std::string>{ "#ZARN_Mintyard_Err_FailedToWrite" });
	EXPECT_EQ(ReadAll(blocker), "inner");
	size_t nLeft = 0;
	for (const auto &entry : std::filesystem::directory_iterator(m_Dir.Path("blocked")))
		nLeft += entry.path() != blockedTarget ? 1 : 0;
	EXPECT_EQ(nLeft, 0u) << "a temporary file was left beside the target";
	// A folder that does not exist.
	list.Clear();
	const std::string nowhere = m_Dir.Path("no/such/folder/session.txt");
	EXPECT_FALSE(SaveSessionFile(*pSession, nowhere.c_str(), list));
	EXPECT_EQ(Tokens(list), std::vector<std::string>{ "#ZARN_Mintyard_Err_FailedToWrite" });
}

TEST_F(SessionFileTest, SubmissionZipLayout)
{
	auto pSession = FilledSession();
	ImportMessageList list;
	CUtlString zipPath;
	ASSERT_TRUE(SaveSubmissionZip(*pSession, zipPath, list));
	EXPECT_EQ(list.Count(), 0);
	const std::string prefix = m_Scratch + "/gull/mintyard_submit_gull_";
	EXPECT_EQ(zipPath.compare(0, prefix.size(), prefix), 0) << zipPath;
	EXPECT_EQ(zipPath.substr(zipPath.size() - 4), ".zip");
	// The zip's container keeps names in lower case.
	EXPECT_EQ(ZipNames(zipPath), (std::vector<std::string>{ "emoticons/emoticon_smile.png", "loading_screen/image_main.png",
									 "mintyard_import_manifest.txt", "model_courier/material_body/color.tga", "model_courier/material_body/normal.tga",
									 "model_courier/mesh_world.fbx", "model_courier/mesh_world_extra.dmx", "model_courier/run_bundle/run_fast.fbx",
									 "music/track1.mp3" }));
	// The manifest names the files by their names inside the zip; empty inputs stay empty.
	std::unique_ptr<IZip, void (*)(IZip *)> zip(IZip::CreateZip(), &IZip::ReleaseZip);
	ASSERT_TRUE(zip->ParseFromDisk(zipPath.c_str()));
	CUtlBuffer manifest(CUtlBuffer::TEXT_BUFFER);
	ASSERT_TRUE(zip->ReadFileFromZip("mintyard_import_manifest.txt", true, manifest));
	CKeyValues3Context document;
	CUtlString error;
	ASSERT_TRUE(LoadKV3(document.Root(), &error, manifest.View(), KV3_FORMAT_GENERIC)) << error;
	const KeyValues3 *pModel = ArrayElement(GetMember(document.Root(), "model_list"), 0);
	const KeyValues3 *pWorld = ArrayElement(GetMember(pModel, "lod_list"), 1);
	EXPECT_STREQ(GetMemberString(pWorld, "source_filename"), "model_courier/mesh_world.FBX"); // the source's case
	EXPECT_STREQ(GetMemberString(ArrayElement(GetMember(pWorld, "extra_meshes"), 0), "source_filename"), "model_courier/mesh_world_extra.dmx");
	EXPECT_STREQ(GetMemberString(ArrayElement(GetMember(pModel, "lod_list"), 0), "source_filename", "absent"), "");
	const KeyValues3 *pMaterial = ArrayElement(GetMember(pModel, "material_list"), 0);
	EXPECT_STREQ(GetMemberString(pMaterial, "texture_color"), "model_courier/material_body/color.tga");
	EXPECT_STREQ(GetMemberString(pMaterial, "texture_trans", "absent"), "");
	const KeyValues3 *pEmoticonSet = ArrayElement(GetMember(document.Root(), "image_set_list"), 1);
	const KeyValues3 *pEmoticon = ArrayElement(GetMember(pEmoticonSet, "emoticon_image_list"), 0);
	EXPECT_STREQ(GetMemberString(pEmoticon, "emoticon_image"), "emoticons/emoticon_smile.png");
}

TEST_F(SessionFileTest, SubmissionZipRoundTrip)
{
	auto pSaved = FilledSession();
	ImportMessageList list;
	CUtlString zipPath;
	ASSERT_TRUE(SaveSubmissionZip(*pSaved, zipPath, list));

	auto pLoaded = NewSession();
	CUtlString folder;
	ASSERT_TRUE(LoadSubmissionZip(*pLoaded, zipPath.c_str(), list, &folder)) << (list.Count() ? list[0].Message() : "");
	EXPECT_EQ(list.Count(), 0);
	const std::string base = std::filesystem::path(zipPath).stem().string() + "_unzip_";
	EXPECT_EQ(std::filesystem::path(folder).filename().string().compare(0, base.size(), base), 0) << folder;
	EXPECT_EQ(pLoaded->GetNameElement()->GetValue(), "gull");
	// Every file now lies in the unpacked folder, with the bytes of its source.
	auto Same = [&](const CMintyardCfgFilename *a, const CMintyardCfgFilename *b) {
		EXPECT_EQ(b->GetValue().compare(0, folder.size(), folder), 0) << b->GetValue();
		EXPECT_EQ(ReadAll(b->GetValue()), ReadAll(a->GetValue())) << b->GetValue();
	};
	Same(pSaved->m_Models[0]->m_Lods[1], pLoaded->m_Models[0]->m_Lods[1]);
	Same(pSaved->m_Models[0]->m_Lods[1]->m_ExtraMeshes[0], pLoaded->m_Models[0]->m_Lods[1]->m_ExtraMeshes[0]);
	Same(pSaved->m_Models[0]->m_Materials[0]->m_pTextures[0], pLoaded->m_Models[0]->m_Materials[0]->m_pTextures[0]);
	Same(pSaved->m_Models[0]->m_Bundles[0]->m_Anims[0], pLoaded->m_Models[0]->m_Bundles[0]->m_Anims[0]);
	Same(pSaved->m_ImageSets[1]->m_Emoticons[0]->m_pImage, pLoaded->m_ImageSets[1]->m_Emoticons[0]->m_pImage);
	Same(pSaved->m_SoundSets[0]->m_Sounds[0], pLoaded->m_SoundSets[0]->m_Sounds[0]);
	EXPECT_EQ(pLoaded->m_Models[0]->m_Lods[0]->GetValue(), "");
	EXPECT_EQ(pLoaded->m_MiscData[0]->GetValue(), "Fast and bright");
	// The loaded session validates as the saved one did.
	ImportMessageList before, after;
	pSaved->ValidateAll(before, false);
	pLoaded->ValidateAll(after, false);
	EXPECT_EQ(Tokens(before), Tokens(after));
}

TEST_F(SessionFileTest, SubmissionSizeLimit)
{
	// The files weigh 3000/1024 -> 2, 1500/1024 -> 1, 1024/1024 -> 1 and the small ones 0 KB.
	m_pTemplate->max_submission_size_kb = 4;
	auto pSession = FilledSession();
	auto t = MakeCourierTemplate();
	// Build against a copy whose limit we can change.
	CMintyardImportSession session;
	auto Fill = [&](int limit) {
		t->max_submission_size_kb = limit;
		session.SetTemplate(t.get());
		session.GetNameElement()->SetValue("gull");
		session.m_Models[0]->m_Materials[0]->m_pTextures[0]->SetValue(pSession->m_Models[0]->m_Materials[0]->m_pTextures[0]->GetValue().c_str());
		session.m_Models[0]->m_Materials[0]->m_pTextures[2]->SetValue(pSession->m_Models[0]->m_Materials[0]->m_pTextures[2]->GetValue().c_str());
		session.m_SoundSets[0]->m_Sounds[0]->SetValue(pSession->m_SoundSets[0]->m_Sounds[0]->GetValue().c_str());
		session.m_Models[0]->m_Lods[1]->SetValue(pSession->m_Models[0]->m_Lods[1]->GetValue().c_str());
	};
	ImportMessageList list;
	CUtlString zipPath;
	Fill(4);
	ASSERT_TRUE(SaveSubmissionZip(session, zipPath, list));
	EXPECT_EQ(list.Count(), 0);
	Fill(3);
	ASSERT_TRUE(SaveSubmissionZip(session, zipPath, list));
	ASSERT_EQ(list.Count(), 1);
	EXPECT_EQ(list[0].Message(), "#ZARN_Mintyard_Err_SessionTooBig");
	EXPECT_FALSE(list[0].isError);
	EXPECT_EQ(list[0].Arg(1), "4");
	EXPECT_EQ(list[0].Arg(2), "3");
	EXPECT_TRUE(std::filesystem::exists(zipPath)); // the zip is finished all the same
}

TEST_F(SessionFileTest, ZipWithoutTemplateOrWithBadFile)
{
	CMintyardImportSession empty;
	ImportMessageList list;
	CUtlString zipPath = "old";
	EXPECT_FALSE(SaveSubmissionZip(empty, zipPath, list));
	EXPECT_EQ(zipPath, "");
	EXPECT_EQ(Tokens(list), std::vector<std::string>{ "#ZARN_Mintyard_Err_SessionSaveNoTemplate" });

	auto pSession = FilledSession();
	pSession->m_MiscData[0]->SetValue("x");
	const std::string gone = m_Dir.Path("art/gone.fbx");
	pSession->m_Models[0]->m_Lods[0]->SetValue(gone.c_str());
	list.Clear();
	EXPECT_FALSE(SaveSubmissionZip(*pSession, zipPath, list));
	ASSERT_EQ(list.Count(), 1);
	EXPECT_EQ(list[0].Message(), "#ZARN_Mintyard_Err_AddToZip");
	EXPECT_EQ(list[0].Arg(1), gone);
	// No half-made zip is left behind in the scratch folder.
	std::error_code error;
	for (const auto &entry : std::filesystem::recursive_directory_iterator(m_Scratch, error))
		EXPECT_NE(".zip", entry.path().extension().string()) << entry.path();
}

namespace
{
std::string WriteZip(const std::string &path, const std::vector<std::pair<std::string, std::string>> &entries)
{
	std::unique_ptr<IZip, void (*)(IZip *)> zip(IZip::CreateZip(), &IZip::ReleaseZip);
	for (const auto &entry : entries)
		EXPECT_TRUE(zip->AddBufferToZip(entry.first.c_str(), entry.second.data(), (int64)entry.second.size(), false)) << entry.first;
	CUtlBuffer buffer;
	EXPECT_TRUE(zip->SaveToBuffer(buffer));
	EXPECT_TRUE(WriteFile(path, std::string(buffer.View())));
	return path;
}
} // namespace

TEST_F(SessionFileTest, ZipLoadRefusals)
{
	auto pSession = NewSession();
	ImportMessageList list;
	const std::string manifest = "<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n"
								 "{ template_name = \"courier_test\" import_name = \"x\" }\n";
	// Older generation, also when the new manifest is there too.
	const std::string both = WriteZip(m_Dir.Path("both.zip"), { { "manifest.txt", "old" }, { "mintyard_import_manifest.txt", manifest } });
	EXPECT_FALSE(LoadSubmissionZip(*pSession, both.c_str(), list));
	ASSERT_EQ(list.Count(), 1);
	EXPECT_NE(list[0].Message().find("older-generation"), std::string::npos);
	EXPECT_TRUE(list[0].isError);

	list.Clear();
	const std::string none = WriteZip(m_Dir.Path("none.zip"), { { "readme.txt", "hello" } });
	EXPECT_FALSE(LoadSubmissionZip(*pSession, none.c_str(), list));
	EXPECT_EQ(Tokens(list), std::vector<std::string>{ "#ZARN_Mintyard_Err_ZipWithoutManifest" });

	list.Clear();
	const std::string text = m_Dir.Write("text.zip", "not a zip at all");
	EXPECT_FALSE(LoadSubmissionZip(*pSession, text.c_str(), list));
	EXPECT_EQ(Tokens(list), std::vector<std::string>{ "#ZARN_Mintyard_Err_ZipCannotCreate" });

	list.Clear();
	EXPECT_FALSE(LoadSubmissionZip(*pSession, m_Dir.Path("missing.zip").c_str(), list));
	EXPECT_EQ(Tokens(list), std::vector<std::string>{ "#ZARN_Mintyard_Err_ZipCannotCreate" });
	EXPECT_EQ(CMintyardCfgElement::GetSuppressionCount(), 0);
}

TEST_F(SessionFileTest, ZipEntriesThatLeaveTheFolderAreRefused)
{
	auto pSession = NewSession();
	const std::string manifest = "<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n"
								 "{ template_name = \"courier_test\" import_name = \"x\" }\n";
	const std::string victim = m_Dir.Path("victim.txt");
	for (const std::string &bad : { std::string("../../victim.txt"), std::string("model/../../../victim.txt"), victim })
	{
		const std::string zipPath = WriteZip(m_Dir.Path("evil.zip"), { { "a_first.txt", "harmless" }, { "mintyard_import_manifest.txt", manifest }, { bad, "owned" } });
		ImportMessageList list;
		CUtlString folder;
		EXPECT_FALSE(LoadSubmissionZip(*pSession, zipPath.c_str(), list, &folder)) << bad;
		ASSERT_EQ(list.Count(), 2) << bad;
		EXPECT_EQ(list[0].Message(), "#ZARN_Mintyard_Err_ZipCannotCreate");
		std::string lowered = bad; // the zip container keeps names in lower case
		std::transform(lowered.begin(), lowered.end(), lowered.begin(), ::tolower);
		EXPECT_NE(list[1].Message().find(lowered), std::string::npos) << list[1].Message();
		EXPECT_FALSE(std::filesystem::exists(victim));
		// Nothing at all was unpacked, not even the harmless entry before it.
		EXPECT_FALSE(std::filesystem::exists(std::string(folder) + "/a_first.txt"));
	}
}

TEST_F(SessionFileTest, EmptyElementsAddNothing)
{
	auto pSession = NewSession();
	pSession->SetTemplate(pSession->GetCatalogue().FindTemplate("courier_test"));
	pSession->GetNameElement()->SetValue("bare");
	ImportMessageList list;
	CUtlString zipPath;
	ASSERT_TRUE(SaveSubmissionZip(*pSession, zipPath, list));
	EXPECT_EQ(ZipNames(zipPath), std::vector<std::string>{ "mintyard_import_manifest.txt" });
}

TEST_F(SessionFileTest, HostileDocumentsNeverCrash)
{
	const std::string header =
		"<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n";
	const char *bodies[] = {
		"[ 1, 2, 3 ]",
		"\"just a string\"",
		"{ template_name = 5 }",
		"{ template_name = \"courier_test\" model_list = \"not a list\" image_set_list = 7 }",
		"{ template_name = \"courier_test\" model_list = [ 1, null, \"x\", [ ], { }, { id = 3 } ] }",
		"{ template_name = \"courier_test\" model_list = [ { id = \"model_courier\" lod_list = { id = \"lod\" } animation_list = [ { id = \"idle\" source_filename = [ 1, 2 ] } ] } ] }",
		"{ template_name = \"courier_test\" model_list = [ { id = \"model_courier\" lod_list = [ { id = \"mesh_world\" extra_meshes = [ { id = \"mesh_world_extra\" extra_meshes = [ { id = \"deeper\" } ] } ] } ] } ] }",
		"{ template_name = \"courier_test\" model_list = [ { id = \"model_courier\" attach_list = [ { id = \"attach_head\" attach_offset = \"1 2 3\" attach_rotation = { } } ] selected_wearables = [ null, 4, { slot = 1 } ] portrait = 12 } ] }",
		"{ template_name = \"courier_test\" image_set_list = [ { id = \"emoticons\" emoticon_image_list = [ { id = \"emoticon_smile\" emoticon_image = { } emoticon_keyword = 5 } ] } ] }",
	};
	int n = 0;
	for (const char *body : bodies)
	{
		const std::string path = m_Dir.Write("hostile" + std::to_string(n++) + ".txt", header + body + "\n");
		auto pSession = NewSession();
		ImportMessageList list;
		CCaptureLog log;
		LoadSessionFile(*pSession, LoadContext(), path.c_str(), list);
		EXPECT_EQ(CMintyardCfgElement::GetSuppressionCount(), 0) << body;
		// Whatever loaded still validates and saves.
		ImportMessageList check;
		pSession->ValidateAll(check, false);
		if (pSession->GetTemplate())
		{
			EXPECT_TRUE(SaveSessionFile(*pSession, m_Dir.Path("resaved.txt").c_str(), check)) << body;
		}
	}
}

TEST_F(SessionFileTest, ZipThatCannotBeOpened)
{
	// The scratch folder lies below a plain file, so the zip's folder cannot be made.
	m_Dir.Write("plainfile", "x");
	setenv("MINTYARD_SCRATCH_DIR", m_Dir.Path("plainfile/scratch").c_str(), 1);
	auto pSession = FilledSession();
	ImportMessageList list;
	CUtlString zipPath = "old";
	EXPECT_FALSE(SaveSubmissionZip(*pSession, zipPath, list));
	EXPECT_EQ(zipPath, "");
	EXPECT_EQ(Tokens(list), std::vector<std::string>{ "#ZARN_Mintyard_Err_ZipCannotOpen" });
}
