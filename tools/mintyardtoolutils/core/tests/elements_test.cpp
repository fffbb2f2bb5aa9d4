#include <gtest/gtest.h>

#include "testsupport/test_support.h"
#include "elements_test_support.h"
#include "mintyardtoolutils/core/importsession.h"
#include "toolframework/convar.h"

using namespace elementstest;

namespace
{
class CCountingListener : public IMintyardImportSessionListener
{
public:
	void OnSessionChanged() override { ++m_nCalls; }
	int m_nCalls = 0;
};

class ElementsTest : public ::testing::Test
{
protected:
	void SetUp() override
	{
		m_pTemplate = MakeCourierTemplate();
		m_Session.SetTemplate(m_pTemplate.get());
	}
	CMintyardCfg_ZarnModel *Courier() { return m_Session.m_Models[0]; }
	CMintyardCfg_ZarnModel *Flying() { return m_Session.m_Models[1]; }
	CMintyardCfgElement *Find(const char *id) { return FindElement(&m_Session, id); }
	CMintyardCfgFilename *File(const char *id) { return dynamic_cast<CMintyardCfgFilename *>(Find(id)); }
	ImportMessageList Validate(const CMintyardCfgElement *p, bool relaxed = false)
	{
		ImportMessageList list;
		p->Validate(list, relaxed);
		return list;
	}
	std::string Real(const char *name, const std::string &bytes = "data")
	{
		const std::string path = m_Dir.Path(name);
		EXPECT_TRUE(WriteFile(path, bytes));
		return path;
	}

	std::unique_ptr<CMintyardTemplate> m_pTemplate;
	CMintyardImportSession m_Session;
	CTempDirectory m_Dir;
};
} // namespace

TEST_F(ElementsTest, TreeFollowsTheTemplate)
{
	ASSERT_EQ(m_Session.m_Models.size(), 2u);
	ASSERT_EQ(m_Session.m_ImageSets.size(), 2u);
	ASSERT_EQ(m_Session.m_SoundSets.size(), 1u);
	ASSERT_EQ(m_Session.m_MiscData.size(), 1u);
	ASSERT_EQ(m_Session.m_ItemDefs.size(), 1u);
	CMintyardCfg_ZarnModel *pModel = Courier();
	ASSERT_EQ(pModel->m_Lods.size(), 2u);
	ASSERT_EQ(pModel->m_Lods[1]->m_ExtraMeshes.size(), 1u);
	// The extra mesh hangs under the model, right after its level.
	CMintyardCfg_ZarnMesh *pExtra = pModel->m_Lods[1]->m_ExtraMeshes[0];
	EXPECT_EQ(pExtra->GetParent(), pModel);
	const auto &children = pModel->GetChildren();
	ASSERT_GE(children.size(), 3u);
	EXPECT_EQ(children[0], pModel->m_Lods[0]);
	EXPECT_EQ(children[1], pModel->m_Lods[1]);
	EXPECT_EQ(children[2], pExtra);
	// Material with its eleven textures in their fixed order.
	ASSERT_EQ(pModel->m_Materials.size(), 1u);
	EXPECT_EQ(pModel->m_Materials[0]->m_pTextures[0]->GetTemplateId(), "color");
	EXPECT_EQ(pModel->m_Materials[0]->m_pTextures[10]->GetTemplateId(), "specexp");
	// Attachment starts from the template's joint, offset and rotation.
	ASSERT_EQ(pModel->m_Attaches.size(), 1u);
	EXPECT_EQ(pModel->m_Attaches[0]->GetValue(), "head");
	EXPECT_FLOAT_EQ(pModel->m_Attaches[0]->m_flOffset[2], 3.0f);
	EXPECT_FLOAT_EQ(pModel->m_Attaches[0]->m_flRotation[1], 90.0f);
	// Bundles own their animations; the emoticon owns its three inputs.
	ASSERT_EQ(pModel->m_Bundles.size(), 1u);
	EXPECT_EQ(pModel->m_Bundles[0]->m_Anims[0]->GetParent(), pModel->m_Bundles[0]);
	CMintyardCfg_ZarnImageSet::CEmoticon *pEmoticon = m_Session.m_ImageSets[1]->m_Emoticons[0];
	EXPECT_EQ(pEmoticon->m_pImage->GetTemplateId(), "image");
	EXPECT_EQ(pEmoticon->m_pKeyword->GetTemplateId(), "keyword");
	EXPECT_EQ(pEmoticon->m_pDefaultFrame->GetTemplateId(), "default_frame");
	EXPECT_EQ(pEmoticon->GetRootSession(), &m_Session);
	// Image sets come first among the session's children, then sounds, strings, items, models.
	EXPECT_EQ(m_Session.GetChildren()[0], m_Session.GetNameElement());
	EXPECT_EQ(m_Session.GetChildren()[1], m_Session.m_ImageSets[0]);
	EXPECT_EQ(m_Session.GetChildren().back(), Flying());
}

TEST_F(ElementsTest, FindElementIgnoresCaseAndTakesTheFirst)
{
	EXPECT_EQ(Find("MESH_WORLD"), Courier()->m_Lods[1]);
	EXPECT_EQ(Find("model_flying"), Flying());
	EXPECT_EQ(Find("run_fast"), Courier()->m_Bundles[0]->m_Anims[0]);
	EXPECT_EQ(Find("nothing_here"), nullptr);
	// "image" is the id of every emoticon's image input; the search stops at the first one.
	EXPECT_EQ(Find("image"), m_Session.m_ImageSets[1]->m_Emoticons[0]->m_pImage);
}

TEST_F(ElementsTest, ChangesReachTheListenersUnlessSuppressed)
{
	CCountingListener a, b;
	m_Session.AddListener(&a);
	m_Session.AddListener(&a);
	m_Session.AddListener(&b);
	File("mesh_world")->SetValue("x.fbx");
	EXPECT_EQ(a.m_nCalls, 2);
	EXPECT_EQ(b.m_nCalls, 1);
	// The same text again still reports.
	File("mesh_world")->SetValue("x.fbx");
	EXPECT_EQ(b.m_nCalls, 2);

	CCountingListener never;
	m_Session.RemoveListener(&never);
	m_Session.RemoveListener(&a); // the first of the two goes
	m_Session.GetNameElement()->SetValue("bob");
	EXPECT_EQ(a.m_nCalls, 5); // 2 + 2 while registered twice, then 1
	EXPECT_EQ(b.m_nCalls, 3);

	// The counter nests: two suppressions need two releases.
	CMintyardCfgElement::SetChangeNotificationsSuppressed(true);
	CMintyardCfgElement::SetChangeNotificationsSuppressed(true);
	File("mesh_world")->SetValue("y.fbx");
	CMintyardCfgElement::SetChangeNotificationsSuppressed(false);
	File("mesh_world")->SetValue("z.fbx");
	EXPECT_EQ(b.m_nCalls, 3);
	CMintyardCfgElement::SetChangeNotificationsSuppressed(false);
	EXPECT_EQ(CMintyardCfgElement::GetSuppressionCount(), 0);
	File("mesh_world")->SetValue("w.fbx");
	EXPECT_EQ(b.m_nCalls, 4);
	m_Session.RemoveListener(&a);
	m_Session.RemoveListener(&b);
}

TEST_F(ElementsTest, SetTemplateRunsSilently)
{
	CCountingListener listener;
	m_Session.AddListener(&listener);
	m_Session.SetTemplate(m_pTemplate.get());
	EXPECT_EQ(listener.m_nCalls, 0);
	EXPECT_EQ(CMintyardCfgElement::GetSuppressionCount(), 0);
	m_Session.RemoveListener(&listener);
}

TEST_F(ElementsTest, OptionalWalkExcusesAnEmptyOptionalModel)
{
	ImportMessageList list;
	ValidateElements(Flying(), list, false);
	EXPECT_EQ(list.Count(), 0) << list[0].Message();
	// One input filled makes the rest of the model required.
	File("mesh_flying")->SetValue(Real("fly.fbx").c_str());
	list.Clear();
	ValidateElements(Flying(), list, false);
	ASSERT_EQ(list.Count(), 1);
	EXPECT_EQ(list[0].Message(), "#ZARN_Mintyard_Err_MissingInput");
	EXPECT_EQ(list[0].Arg(1), "#MeshFlyingFar");
	EXPECT_TRUE(list[0].isError); // meshes are hard required
}

TEST_F(ElementsTest, FileRuleSizeLimitIsInclusive)
{
	m_pTemplate->sound_sets[0].sound_list[0].max_file_size_kb = 2;
	CMintyardCfgFilename *pTrack = File("track1");
	pTrack->SetValue(Real("under.mp3", std::string(2047, 'a')).c_str());
	EXPECT_EQ(Validate(pTrack).Count(), 0);
	pTrack->SetValue(Real("exact.mp3", std::string(2048, 'a')).c_str());
	ImportMessageList list = Validate(pTrack);
	ASSERT_EQ(list.Count(), 1);
	EXPECT_EQ(list[0].Message(), "#ZARN_Mintyard_Err_FileTooBig");
	EXPECT_FALSE(list[0].isError);
	EXPECT_EQ(list[0].Arg(1), "#Track1");
	EXPECT_EQ(list[0].Arg(2), "2");
	EXPECT_EQ(list[0].Arg(3), "2");
	// A missing file is an error and has no size to complain about.
	pTrack->SetValue(m_Dir.Path("gone.mp3").c_str());
	list = Validate(pTrack);
	EXPECT_EQ(Tokens(list), std::vector<std::string>{ "#ZARN_Mintyard_Err_NonexistentFile" });
	EXPECT_TRUE(list[0].isError);
	// An empty sound is a warning only.
	pTrack->SetValue("");
	list = Validate(pTrack);
	ASSERT_EQ(list.Count(), 1);
	EXPECT_FALSE(list[0].isError);
}

TEST_F(ElementsTest, MeshRuleChecksTheExtensionUnlessRelaxed)
{
	CMintyardCfgFilename *pMesh = File("mesh_world");
	pMesh->SetValue(Real("body.obj").c_str());
	EXPECT_EQ(Tokens(Validate(pMesh)), std::vector<std::string>{ "#ZARN_Mintyard_Err_InvalidFileType" });
	EXPECT_EQ(Validate(pMesh, true).Count(), 0);
	pMesh->SetValue(Real("body.FBX").c_str());
	EXPECT_EQ(Validate(pMesh).Count(), 0);
	pMesh->SetValue(Real("body.Dmx").c_str());
	EXPECT_EQ(Validate(pMesh).Count(), 0);
	// A missing mesh with a bad extension draws both errors.
	pMesh->SetValue(m_Dir.Path("missing.obj").c_str());
	EXPECT_EQ(Tokens(Validate(pMesh)), (std::vector<std::string>{ "#ZARN_Mintyard_Err_InvalidFileType", "#ZARN_Mintyard_Err_NonexistentFile" }));
	// A required level left empty is an error, an optional one nothing.
	pMesh->SetValue("");
	ImportMessageList list = Validate(pMesh);
	ASSERT_EQ(list.Count(), 1);
	EXPECT_TRUE(list[0].isError);
	EXPECT_EQ(Validate(File("mesh_portrait")).Count(), 0);
}

TEST_F(ElementsTest, AnimationRule)
{
	auto *pIdle = dynamic_cast<CMintyardCfg_ZarnModel::CAnim *>(Find("idle"));
	auto *pAttack = dynamic_cast<CMintyardCfg_ZarnModel::CAnim *>(Find("attack"));
	ASSERT_TRUE(pIdle && pAttack);
	// The default stands in for an empty input, until the model has its own skeleton.
	EXPECT_EQ(Validate(pIdle).Count(), 0);
	Courier()->m_bHasCustomSkeleton = true;
	ImportMessageList list = Validate(pIdle);
	ASSERT_EQ(list.Count(), 1);
	EXPECT_EQ(list[0].Message(), "#ZARN_Mintyard_Err_MissingInput");
	EXPECT_FALSE(list[0].isError);
	Courier()->m_bHasCustomSkeleton = false;

	pAttack->SetValue(Real("attack.txt").c_str());
	EXPECT_EQ(Tokens(Validate(pAttack)), std::vector<std::string>{ "#ZARN_Mintyard_Err_InvalidFileType" });
	EXPECT_EQ(Validate(pAttack, true).Count(), 0);
	// A missing file is only the nonexistent-file error, whatever its extension.
	pAttack->SetValue(m_Dir.Path("missing.txt").c_str());
	EXPECT_EQ(Tokens(Validate(pAttack)), std::vector<std::string>{ "#ZARN_Mintyard_Err_NonexistentFile" });
}

TEST_F(ElementsTest, DefaultsAndAbsence)
{
	auto *pIdle = dynamic_cast<CMintyardCfg_ZarnModel::CAnim *>(Find("idle"));
	auto *pAttack = dynamic_cast<CMintyardCfg_ZarnModel::CAnim *>(Find("attack"));
	auto *pAttackAlt = dynamic_cast<CMintyardCfg_ZarnModel::CAnim *>(Find("attack_alt"));
	CUtlString out = "old";
	EXPECT_TRUE(GetDefaultFile(pIdle, &out));
	EXPECT_EQ(out, "anims/idle.fbx");
	EXPECT_TRUE(GetDefaultFile(pIdle, nullptr));
	EXPECT_FALSE(GetDefaultFile(pAttack, &out));
	EXPECT_EQ(out, "");

	EXPECT_FALSE(IsAnimAbsent(pIdle)); // the default applies
	EXPECT_TRUE(IsAnimAbsent(pAttack));
	EXPECT_TRUE(IsAnimAbsent(pAttackAlt));
	pAttack->SetValue("attack.fbx");
	EXPECT_FALSE(IsAnimAbsent(pAttackAlt)); // its fallback has an input
	Courier()->m_bHasCustomSkeleton = true;
	EXPECT_TRUE(IsAnimAbsent(pIdle));
	EXPECT_FALSE(GetDefaultFile(pIdle, &out));

	CMintyardCfg_ZarnModel::CAnimBundle *pBundle = Courier()->m_Bundles[0];
	EXPECT_TRUE(IsBundleAbsent(pBundle));
	pBundle->m_Anims[0]->SetValue("run.fbx");
	EXPECT_FALSE(IsBundleAbsent(pBundle));
}

TEST_F(ElementsTest, ImageRule)
{
	CMintyardCfgFilename *pImage = File("image_main");
	pImage->SetValue(Real("screen.png", MakePng(64, 32)).c_str());
	EXPECT_EQ(Validate(pImage).Count(), 0);

	pImage->SetValue(Real("wide.png", MakePng(65, 31)).c_str());
	ImportMessageList list = Validate(pImage);
	ASSERT_EQ(Tokens(list), (std::vector<std::string>{ "#ZARN_Mintyard_Error_ImageExactWidth", "#ZARN_Mintyard_Error_ImageExactHeight" }));
	EXPECT_FALSE(list[0].isError);
	EXPECT_EQ(list[0].Arg(2), "65");
	EXPECT_EQ(list[0].Arg(3), "64");
	EXPECT_EQ(list[1].Arg(2), "31");
	EXPECT_EQ(list[1].Arg(3), "32");

	// The extension test is exact: upper case fails.
	pImage->SetValue(Real("SHOUT.PNG", MakePng(64, 32)).c_str());
	list = Validate(pImage);
	ASSERT_EQ(Tokens(list), std::vector<std::string>{ "#ZARN_Mintyard_Err_BadExtension" });
	EXPECT_EQ(list[0].Arg(2), "PNG");
	EXPECT_EQ(list[0].Arg(3), "png");

	// A file that is no image.
	const std::string fake = Real("fake.png", "GIF? no, plain text");
	pImage->SetValue(fake.c_str());
	list = Validate(pImage);
	ASSERT_EQ(Tokens(list), std::vector<std::string>{ "#ZARN_Mintyard_Err_BadImageFile" });
	EXPECT_EQ(list[0].Arg(2), fake);

	// A bitmap input wants "bmp".
	CMintyardCfgFilename *pCursor = File("cursor_bmp");
	pCursor->SetValue(Real("cursor.bmp", MakeBmp(32, 32)).c_str());
	EXPECT_EQ(Validate(pCursor).Count(), 0);
	pCursor->SetValue(Real("cursor.png", MakePng(32, 32)).c_str());
	list = Validate(pCursor);
	ASSERT_EQ(Tokens(list), std::vector<std::string>{ "#ZARN_Mintyard_Err_BadExtension" });
	EXPECT_EQ(list[0].Arg(3), "bmp");
	// An empty optional image says nothing.
	pCursor->SetValue("");
	EXPECT_EQ(Validate(pCursor).Count(), 0);
}

TEST_F(ElementsTest, EmoticonRule)
{
	CMintyardCfgFilename *pImage = m_Session.m_ImageSets[1]->m_Emoticons[0]->m_pImage;
	pImage->SetValue(Real("strip.png", MakePng(64, 32)).c_str());
	EXPECT_EQ(Validate(pImage).Count(), 0);
	pImage->SetValue(Real("odd.png", MakePng(48, 32)).c_str());
	ImportMessageList list = Validate(pImage);
	ASSERT_EQ(Tokens(list), std::vector<std::string>{ "#ZARN_Mintyard_Error_EmoticonWidth" });
	EXPECT_EQ(list[0].Arg(2), "48");
	EXPECT_EQ(list[0].Arg(3), "32");
	pImage->SetValue(Real("tall.png", MakePng(32, 33)).c_str());
	list = Validate(pImage);
	ASSERT_EQ(Tokens(list), std::vector<std::string>{ "#ZARN_Mintyard_Error_EmoticonHeight" });
	EXPECT_EQ(list[0].Arg(2), "33");
	pImage->SetValue(Real("broken.png", "\x89PNG but nothing more").c_str());
	EXPECT_EQ(Tokens(Validate(pImage)), std::vector<std::string>{ "#ZARN_Mintyard_Err_BadImageFile" });
}

TEST_F(ElementsTest, NameRules)
{
	CMintyardCfgSafeString *pName = m_Session.GetNameElement();
	ImportMessageList list;
	m_Session.ValidateAll(list, false);
	EXPECT_EQ(CountToken(list, "#ZARN_Mintyard_Items_Err_EmptyName"), 1);
	EXPECT_EQ(CountToken(list, "#ZARN_Mintyard_Err_InvalidChars"), 1);

	pName->SetValue("Bob");
	EXPECT_EQ(Tokens(Validate(pName)), std::vector<std::string>{ "#ZARN_Mintyard_Err_InvalidChars" });
	pName->SetValue("bob_2");
	EXPECT_EQ(Validate(pName).Count(), 0);
	pName->SetValue("bob-2");
	EXPECT_EQ(Validate(pName).Count(), 1);

	const std::string fifty(50, 'a');
	EXPECT_TRUE(CheckImportName(fifty.c_str(), list));
	list.Clear();
	EXPECT_FALSE(CheckImportName((fifty + "a").c_str(), list));
	EXPECT_EQ(Tokens(list), std::vector<std::string>{ "#ZARN_Mintyard_Items_Err_LongName" });
	EXPECT_EQ(list[0].ArgCount(), 0);
	list.Clear();
	EXPECT_FALSE(CheckImportName("", list));
	EXPECT_EQ(Tokens(list), std::vector<std::string>{ "#ZARN_Mintyard_Items_Err_EmptyName" });
}

TEST_F(ElementsTest, ValidateAllReplacesOldEntries)
{
	ImportMessageList list;
	list.AddError("stale");
	m_Session.GetNameElement()->SetValue("ok_name");
	m_Session.ValidateAll(list, false);
	EXPECT_EQ(FindToken(list, "stale"), nullptr);
	// The required world mesh is an error; the missing material colour a warning.
	const MintyardImportMessageEntry_t *pMesh = FindToken(list, "#ZARN_Mintyard_Err_MissingInput", "#LOD1");
	ASSERT_NE(pMesh, nullptr);
	EXPECT_TRUE(pMesh->isError);
	EXPECT_GT(list.GetWarningCount(), 0);
}

TEST_F(ElementsTest, SessionQueries)
{
	EXPECT_TRUE(m_Session.HasPortraitPage());
	EXPECT_TRUE(m_Session.HasPreviewImageSets()); // a loading screen set
	EXPECT_EQ(m_Session.GetModelTemplate(-1), nullptr);
	EXPECT_EQ(m_Session.GetModelTemplate(2), nullptr);
	EXPECT_EQ(m_Session.GetModelTemplate(1), &m_pTemplate->models[1]);
	EXPECT_EQ(m_Session.FindModelById("MODEL_FLYING"), Flying());
	EXPECT_EQ(m_Session.FindModelById("nope"), nullptr);
	m_Session.GetNameElement()->SetValue("gull");
	CUtlString name;
	m_Session.GetModelZmdlName(1, name);
	EXPECT_EQ(name, "models/items/courier/gull/gull_flying.zmdl");
	m_Session.GetModelZmdlName(5, name);
	EXPECT_EQ(name, "");

	auto t = MakeCourierTemplate();
	t->item_defs.clear();
	t->image_sets[0].image_set_type = MINTYARD_IMAGE_SET_MARKETING_IMAGE;
	t->image_sets[1].image_set_type = MINTYARD_IMAGE_SET_ABILITY_ICONS;
	CMintyardImportSession other;
	other.SetTemplate(t.get());
	EXPECT_FALSE(other.HasPortraitPage());
	EXPECT_FALSE(other.HasPreviewImageSets());
}

TEST_F(ElementsTest, ClearElementsKeepsSoundsAndStrings)
{
	m_Session.GetNameElement()->SetValue("bob");
	m_Session.SetTemplate(m_pTemplate.get());
	EXPECT_EQ(m_Session.GetNameElement()->GetValue(), "");
	EXPECT_EQ(m_Session.m_Models.size(), 2u);
	EXPECT_EQ(m_Session.m_SoundSets.size(), 2u);
	EXPECT_EQ(m_Session.m_MiscData.size(), 2u);
	EXPECT_EQ(m_Session.GetTemplate(), m_pTemplate.get());
	m_Session.ClearElements();
	EXPECT_TRUE(m_Session.m_Models.empty());
	EXPECT_EQ(m_Session.GetTemplate(), m_pTemplate.get());
}

TEST(ScratchDir, EnvironmentChoosesTheFolder)
{
	const char *pOldScratch = getenv("MINTYARD_SCRATCH_DIR");
	const std::string oldScratch = pOldScratch ? pOldScratch : "";
	const char *pOldTmp = getenv("TMPDIR");
	const std::string oldTmp = pOldTmp ? pOldTmp : "";
	setenv("MINTYARD_SCRATCH_DIR", "/somewhere/else", 1);
	EXPECT_EQ(GetMintyardScratchDir(), "/somewhere/else/");
	unsetenv("MINTYARD_SCRATCH_DIR");
	setenv("TMPDIR", "/var/tmp", 1);
	EXPECT_EQ(GetMintyardScratchDir(), "/var/tmp/mintyard_submissions_g2/");
	unsetenv("TMPDIR");
	EXPECT_EQ(GetMintyardScratchDir(), "/tmp/mintyard_submissions_g2/");
	if (pOldScratch)
		setenv("MINTYARD_SCRATCH_DIR", oldScratch.c_str(), 1);
	if (pOldTmp)
		setenv("TMPDIR", oldTmp.c_str(), 1);
}

// ---------------------------------------------------------------------------------------------
// Expressions

TEST(ExpressionParse, Forms)
{
	CUtlString id, property;
	EXPECT_TRUE(ParseExpression("$(model_wearable:zmdl_name)", id, property));
	EXPECT_EQ(id, "model_wearable");
	EXPECT_EQ(property, "zmdl_name");
	EXPECT_TRUE(ParseExpression("$(x:y:z)", id, property));
	EXPECT_EQ(id, "x");
	EXPECT_EQ(property, "y:z");
	EXPECT_TRUE(ParseExpression("$(:)", id, property));
	EXPECT_EQ(id, "");
	EXPECT_FALSE(ParseExpression("$()", id, property));
	EXPECT_FALSE(ParseExpression("$(model_wearable)", id, property));
	EXPECT_FALSE(ParseExpression("abc", id, property));
	EXPECT_FALSE(ParseExpression("$(a:b", id, property));
	EXPECT_FALSE(ParseExpression(" $(a:b)", id, property));
	EXPECT_FALSE(ParseExpression(nullptr, id, property));
}

TEST_F(ElementsTest, ResolveExpressions)
{
	m_Session.GetNameElement()->SetValue("gull");
	CUtlString out;
	EXPECT_TRUE(ResolveExpression(&m_Session, "abc", out));
	EXPECT_EQ(out, "abc");
	EXPECT_TRUE(ResolveExpression(&m_Session, "$(model_courier)", out));
	EXPECT_EQ(out, "$(model_courier)");
	EXPECT_TRUE(ResolveExpression(&m_Session, "$()", out));
	EXPECT_EQ(out, "$()");
	EXPECT_TRUE(ResolveExpression(&m_Session, "$(MODEL_COURIER:ZMDL_NAME)", out));
	EXPECT_EQ(out, "models/items/courier/gull/gull.zmdl");
	out = "kept";
	EXPECT_FALSE(ResolveExpression(&m_Session, "$(no_such_element:zmdl_name)", out));
	EXPECT_EQ(out, "kept");
	EXPECT_FALSE(ResolveExpression(&m_Session, "$(x:y:z)", out));
	EXPECT_FALSE(ResolveExpression(&m_Session, "$(model_courier:y:z)", out));
	EXPECT_FALSE(ResolveExpression(&m_Session, "$(mesh_world:zmdl_name)", out)); // a mesh has no properties

	// An empty model has an empty "or empty" name.
	EXPECT_TRUE(ResolveExpression(&m_Session, "$(model_flying:zmdl_name_or_empty)", out));
	EXPECT_EQ(out, "");
	File("mesh_flying")->SetValue("f.fbx");
	EXPECT_TRUE(ResolveExpression(&m_Session, "$(model_flying:zmdl_name_or_empty)", out));
	EXPECT_EQ(out, "models/items/courier/gull/gull_flying.zmdl");

	EXPECT_TRUE(ResolveExpression(&m_Session, "$(particle_snapshot:psf_name)", out));
	EXPECT_EQ(out, "particles/models/items/courier/gull/gull_fx.zsnap");
	EXPECT_TRUE(ResolveExpression(&m_Session, "$(image_main:canopy_name)", out));
	EXPECT_EQ(out, "loadingscreens/gull/loadingscreen.ztex");
	EXPECT_TRUE(ResolveExpression(&m_Session, "$(loading_screen:cursor_output_dir)", out));
	EXPECT_EQ(out, "resource/cursor/mintyard/gull");
	// Emoticon ids exist only on an emoticon set.
	EXPECT_FALSE(ResolveExpression(&m_Session, "$(loading_screen:emoticon_min_id)", out));
	m_Session.m_ImageSets[1]->m_nEmoticonMinId = 7;
	m_Session.m_ImageSets[1]->m_nEmoticonMaxId = 9;
	EXPECT_TRUE(ResolveExpression(&m_Session, "$(emoticons:emoticon_min_id)", out));
	EXPECT_EQ(out, "7");
	EXPECT_TRUE(ResolveExpression(&m_Session, "$(emoticons:emoticon_max_id)", out));
	EXPECT_EQ(out, "9");
}

TEST_F(ElementsTest, LevelMeshNamesOnTheNormalRoad)
{
	m_Session.GetNameElement()->SetValue("gull");
	CUtlString out;
	// Nothing filled: both names are empty.
	EXPECT_TRUE(ResolveExpression(&m_Session, "$(model_courier:portrait_lod_mesh)", out));
	EXPECT_EQ(out, "");
	EXPECT_TRUE(ResolveExpression(&m_Session, "$(model_courier:game_lod_mesh)", out));
	EXPECT_EQ(out, "");
	// Level 0 empty, level 1 filled: the game mesh is the first compiled one, without "_lod".
	File("mesh_world")->SetValue("w.fbx");
	EXPECT_TRUE(ResolveExpression(&m_Session, "$(model_courier:game_lod_mesh)", out));
	EXPECT_EQ(out, "gull");
	EXPECT_TRUE(ResolveExpression(&m_Session, "$(model_courier:game_lod_mesh_extra0)", out));
	EXPECT_EQ(out, "gull_extra0");
	File("mesh_portrait")->SetValue("p.fbx");
	EXPECT_TRUE(ResolveExpression(&m_Session, "$(model_courier:game_lod_mesh)", out));
	EXPECT_EQ(out, "gull_lod1");
	EXPECT_TRUE(ResolveExpression(&m_Session, "$(model_courier:portrait_lod_mesh)", out));
	EXPECT_EQ(out, "gull");
	EXPECT_TRUE(ResolveExpression(&m_Session, "$(model_courier:portrait_lod_mesh_extra0)", out));
	EXPECT_EQ(out, "gull_extra0");
	// The flying model has a suffix; with one level it has no game mesh.
	File("mesh_flying")->SetValue("f.fbx");
	EXPECT_TRUE(ResolveExpression(&m_Session, "$(model_flying:portrait_lod_mesh)", out));
	EXPECT_EQ(out, "gull_flying");
	EXPECT_TRUE(ResolveExpression(&m_Session, "$(model_flying:game_lod_mesh)", out));
	EXPECT_EQ(out, "");
}

TEST_F(ElementsTest, LevelMeshNamesOnTheLegacyRoad)
{
	ConVar legacy("zarn_mintyard_legacy_model_import", "");
	m_Session.GetNameElement()->SetValue("gull");
	File("mesh_portrait")->SetValue("p.fbx");
	File("mesh_world")->SetValue("w.fbx");
	CUtlString out;
	EXPECT_TRUE(ResolveExpression(&m_Session, "$(model_courier:game_lod_mesh)", out));
	EXPECT_EQ(out, "gull_lod1");
	legacy.SetValue("1"); // read at every call
	EXPECT_TRUE(ResolveExpression(&m_Session, "$(model_courier:game_lod_mesh)", out));
	EXPECT_EQ(out, "models/items/courier/gull/gull_lod1.zmesh");
	EXPECT_TRUE(ResolveExpression(&m_Session, "$(model_courier:portrait_lod_mesh_extra0)", out));
	EXPECT_EQ(out, "models/items/courier/gull/gull_extra0.zmesh");
	EXPECT_EQ(Courier()->GetMeshName(2, 1), "models/items/courier/gull/gull_lod2_extra1.zmesh");
	legacy.SetValue("");
	EXPECT_EQ(Courier()->GetMeshName(2, 1), "gull_lod2_extra1");
}

TEST(AnimationDefaults, WithoutAModelTheDefaultApplies)
{
	CMintyardTemplate_ZarnModel::CAnim withDefault, withoutDefault;
	withDefault.Init("loose", "#Loose", "", false);
	withDefault.default_anim = "anims/loose.fbx";
	withoutDefault.Init("bare", "#Bare", "", false);
	CMintyardCfg_ZarnModel::CAnim loose(nullptr, &withDefault), bare(nullptr, &withoutDefault);
	EXPECT_FALSE(IsAnimAbsent(&loose));
	CUtlString out;
	EXPECT_TRUE(GetDefaultFile(&loose, &out));
	EXPECT_EQ(out, "anims/loose.fbx");
	EXPECT_TRUE(IsAnimAbsent(&bare));
	EXPECT_EQ(loose.GetRootSession(), nullptr);
	// A fallback without a session to look in changes nothing.
	withoutDefault.fallback_anim_id = "loose";
	EXPECT_TRUE(IsAnimAbsent(&bare));
}

TEST_F(ElementsTest, ListsWithoutElementsLogUnknownIds)
{
	// The flying model has no materials: every material entry of a document is unknown to it.
	CKeyValues3Context document;
	KeyValues3 *pTable = document.Root();
	MakeTable(pTable);
	KeyValues3 *pMaterials = AddMember(pTable, "material_list");
	ArrayResize(pMaterials, 1);
	MakeTable(ArrayElement(pMaterials, 0));
	SetMemberString(ArrayElement(pMaterials, 0), "id", "material_body");
	ImportMessageList list;
	CCaptureLog log;
	EXPECT_TRUE(Flying()->LoadFromKV3(LoadContext(), pTable, list));
	EXPECT_EQ(list.Count(), 0);
	EXPECT_NE(log.m_Text.find("Warning: Loaded element 'material_body' not used by template"), std::string::npos) << log.m_Text;
	EXPECT_EQ(log.m_LastSeverity, LS_WARNING);
}
