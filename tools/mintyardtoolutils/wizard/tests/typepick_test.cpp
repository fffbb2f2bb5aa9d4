// The type pick: its buttons and their order, the details dialogs of template groups, the hero
// dialog's heroes and slots, the contract-only question, and the custom templates staff write.
#include <gtest/gtest.h>

#include <QPushButton>
#include <QSignalSpy>

#include "core/kv3text.h"
#include "core/kv3transfer.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/core/importsession.h"
#include "mintyardtoolutils/core/templatecatalogue.h"
#include "mintyardtoolutils/wizard/customtemplate.h"
#include "mintyardtoolutils/wizard/typepickwidget.h"
#include "wizardtestgame.h"

Q_DECLARE_METATYPE(const CMintyardTemplate *)

namespace
{
class TypePickTest : public testing::Test
{
protected:
	void SetUp() override
	{
		qRegisterMetaType<const CMintyardTemplate *>("const CMintyardTemplate*");
		ImportMessageList list;
		ASSERT_TRUE(m_Session.GetCatalogue().LoadTemplates(list));
		EXPECT_EQ(0, list.Count()) << list[0].Message();
		m_pPage = std::make_unique<CQMintyardTypePickWidget>(nullptr, &m_Session.GetCatalogue());
	}

	const CMintyardTemplate *PickedBy(QSignalSpy &spy, int nIndex = 0)
	{
		return spy.at(nIndex).at(0).value<const CMintyardTemplate *>();
	}

	CQMintyardTemplateDetailsDialog *GroupDialog(const char *pszGroup)
	{
		for (CQMintyardTemplateDetailsDialog *pDialog : m_pPage->GroupDialogs())
			if (pDialog->GroupKey() == pszGroup)
				return pDialog;
		return nullptr;
	}

	// The entry of a combo whose data is the value.
	static int RowOfData(QComboBox *pCombo, int nData) { return pCombo->findData(nData); }

	CWizardTestGame m_Game;
	CMintyardImportSession m_Session;
	std::unique_ptr<CQMintyardTypePickWidget> m_pPage;
};
} // namespace

TEST_F(TypePickTest, TypeButtonsStandInTheirOrderAndAbilitiesAndCustomWearablesAreLeftToTheHeroDialog)
{
	QStringList titles;
	for (const CUtlString &title : m_pPage->TypeButtonTitles())
		titles << QString::fromUtf8(title.c_str());
	EXPECT_EQ((QStringList{ "#ZARN_Mintyard_SubmissionType_HeroItem", "#ZARN_Mintyard_SubmissionType_Ward", "#ZARN_Mintyard_SubmissionType_Courier",
				  "#ZARN_Mintyard_SubmissionType_Images", "#ZARN_Mintyard_SubmissionType_ContractOnly", "#ZARN_Mintyard_SubmissionType_MusicPack" }),
		titles);
	EXPECT_EQ("Courier", m_pPage->TypeButtons()[2]->text());
	EXPECT_EQ(QString::fromUtf8(g_pszMintyardBigButtonStyle), m_pPage->TypeButtons()[0]->styleSheet());
	EXPECT_EQ(0, MintyardTypeButtonOrder("#ZARN_Mintyard_SubmissionType_HeroItem"));
	EXPECT_EQ(6, MintyardTypeButtonOrder("#zarn_mintyard_submissiontype_heroitem")); // exact bytes
	// One details dialog, for the images; no Load Zip outside a development universe.
	ASSERT_EQ(1, (int)m_pPage->GroupDialogs().size());
	EXPECT_EQ(nullptr, m_pPage->LoadZipButton());
	QSignalSpy loadSession(m_pPage.get(), SIGNAL(LoadSessionClicked()));
	m_pPage->LoadSessionButton()->click();
	EXPECT_EQ(1, loadSession.count());
}

TEST_F(TypePickTest, TheCourierButtonPicksTheCourierTemplate)
{
	QSignalSpy picked(m_pPage.get(), SIGNAL(TemplatePicked(const CMintyardTemplate *)));
	m_pPage->TypeButtons()[2]->click();
	ASSERT_EQ(1, picked.count());
	EXPECT_EQ("courier", PickedBy(picked)->id);
	// A bad index picks nothing.
	m_pPage->StaticTemplatePicked(-1);
	m_pPage->StaticTemplatePicked(1000);
	EXPECT_EQ(1, picked.count());
}

TEST_F(TypePickTest, ContractOnlyAsksFirstAndNoLeavesThePage)
{
	QSignalSpy picked(m_pPage.get(), SIGNAL(TemplatePicked(const CMintyardTemplate *)));
	m_Game.m_Answers = { QMessageBox::No };
	m_pPage->TypeButtons()[4]->click();
	EXPECT_EQ(0, picked.count());
	ASSERT_EQ(1u, m_Game.m_Messages.size());
	EXPECT_EQ("Contract Only", m_Game.m_Messages[0].m_Title);
	m_Game.m_Answers = { QMessageBox::Yes };
	m_pPage->TypeButtons()[4]->click();
	ASSERT_EQ(1, picked.count());
	EXPECT_EQ("contract_only", PickedBy(picked)->id);
}

TEST_F(TypePickTest, TheImagesDialogListsSubgroupsInOrderAndSelectPicksTheTemplate)
{
	CQMintyardTemplateDetailsDialog *pDialog = GroupDialog("#ZARN_Mintyard_SubmissionType_Images");
	ASSERT_NE(nullptr, pDialog);
	EXPECT_EQ("Images", pDialog->windowTitle());
	ASSERT_NE(nullptr, pDialog->SubgroupCombo());
	QStringList names;
	for (const auto *pGroup : pDialog->SubGroups())
		names << QString::fromUtf8(pGroup->m_Name.c_str());
	QStringList sorted = names;
	std::sort(sorted.begin(), sorted.end(), [](const QString &a, const QString &b) { return a.toUtf8() < b.toUtf8(); });
	EXPECT_EQ(sorted, names);
	EXPECT_EQ(-1, pDialog->SubgroupCombo()->itemData(0).toInt());
	EXPECT_TRUE(pDialog->SubgroupCombo()->itemText(0).contains("Images"));
	EXPECT_FALSE(pDialog->SelectButton()->isEnabled());
	EXPECT_FALSE(pDialog->TemplateCombo()->isEnabled()); // the placeholder names no subgroup

	int nLoading = -1;
	for (int i = 0; i < (int)pDialog->SubGroups().size(); ++i)
		if (pDialog->SubGroups()[i]->m_Name == "#ZARN_Mintyard_SubGroup_LoadingScreens")
			nLoading = i;
	ASSERT_GE(nLoading, 0);
	pDialog->SubgroupCombo()->setCurrentIndex(RowOfData(pDialog->SubgroupCombo(), nLoading));
	EXPECT_TRUE(pDialog->TemplateCombo()->isEnabled());
	EXPECT_FALSE(pDialog->SelectButton()->isEnabled());
	pDialog->TemplateCombo()->setCurrentIndex(RowOfData(pDialog->TemplateCombo(), 0));
	EXPECT_TRUE(pDialog->SelectButton()->isEnabled());
	QSignalSpy picked(m_pPage.get(), SIGNAL(TemplatePicked(const CMintyardTemplate *)));
	pDialog->SelectButton()->click();
	ASSERT_EQ(1, picked.count());
	EXPECT_EQ("loading_screen", PickedBy(picked)->id);
}

TEST_F(TypePickTest, TheHeroDialogListsUsableSlotsThenCustomTemplatesAndBuildsTheWearableTemplate)
{
	CQMintyardHeroItemDialog *pDialog = m_pPage->HeroDialog();
	ASSERT_NE(nullptr, pDialog);
	const HeroTable &heroes = GetHeroTable();
	const int nBramble = heroes.FindHeroIndex("npc_zarn_hero_bramble");
	ASSERT_GE(nBramble, 0);
	const int nRow = pDialog->HeroCombo()->findData(nBramble);
	ASSERT_GT(nRow, 0);
	EXPECT_EQ("Bramble", pDialog->HeroCombo()->itemText(nRow));
	pDialog->HeroCombo()->setCurrentIndex(nRow);

	// weapon, head, back and the two persona slots; misc is not imported, taunt and the
	// persona selector have no budget; then the custom wearable and the ability of the hero.
	QStringList slots;
	for (int i = 1; i < pDialog->SlotCombo()->count(); ++i)
		slots << pDialog->SlotCombo()->itemText(i);
	ASSERT_EQ(7, slots.size()) << slots.join(", ").toStdString();
	EXPECT_EQ("Weapon", slots[0]);
	EXPECT_EQ("Head", slots[1]);
	EXPECT_EQ("Thorn Volley", slots[6]);
	const auto items = pDialog->BuildItemList(nBramble);
	EXPECT_EQ(nullptr, items[5].m_pSlot);
	EXPECT_EQ("custom_wearable.bramble.misc", items[5].m_pCustomTemplate->id);

	EXPECT_FALSE(pDialog->SelectButton()->isEnabled());
	pDialog->SlotCombo()->setCurrentIndex(2); // head
	EXPECT_TRUE(pDialog->SelectButton()->isEnabled());
	QSignalSpy picked(m_pPage.get(), SIGNAL(TemplatePicked(const CMintyardTemplate *)));
	pDialog->SelectButton()->click();
	ASSERT_EQ(1, picked.count());
	const CMintyardTemplate *pTemplate = PickedBy(picked);
	EXPECT_EQ("wearable.npc_zarn_hero_bramble.head", pTemplate->id);
	EXPECT_EQ(pTemplate, m_Session.GetCatalogue().GetWearableTemplate(nBramble, items[1].m_nSlotIndex));

	// The custom template is picked as it stands.
	pDialog->SlotCombo()->setCurrentIndex(6);
	pDialog->SelectButton()->click();
	ASSERT_EQ(2, picked.count());
	EXPECT_EQ("custom_wearable.bramble.misc", PickedBy(picked, 1)->id);
	// The hero placeholder lists nothing.
	pDialog->HeroCombo()->setCurrentIndex(0);
	EXPECT_FALSE(pDialog->SlotCombo()->isEnabled());
	EXPECT_EQ("No slots", pDialog->SlotCombo()->itemText(0));
}

TEST(CustomTemplateTest, DefaultsArePrunedByTheirOwnRules)
{
	CKeyValues3Context document;
	KeyValues3 *pRoot = document.Root();
	pRoot->MakeTable();
	SetMemberInt(pRoot, "max_bones", 60);
	SetMemberInt(pRoot, "exact_width", -1);
	SetMemberInt(pRoot, "activity_weight", 1);
	SetMemberString(pRoot, "name", "");
	SetMemberBool(pRoot, "optional", false);
	KeyValues3 *pLods = AddMember(pRoot, "lod_list");
	pLods->MakeArray(1);
	KeyValues3 *pLod = pLods->GetArrayElement(0);
	pLod->MakeTable();
	SetMemberInt(pLod, "max_bones", 0); // the general rule: 0 goes
	SetMemberString(pLod, "max_file_size_kb", "-1"); // only the token takes text
	SetMemberInt(pLod, "max_polygons", 900);
	AddMember(pRoot, "empty_table")->MakeTable();
	PruneTemplateDefaults(pRoot);
	EXPECT_EQ(nullptr, FindMember(pRoot, "max_bones"));
	EXPECT_EQ(nullptr, FindMember(pRoot, "exact_width"));
	EXPECT_NE(nullptr, FindMember(pRoot, "activity_weight"));
	EXPECT_EQ(nullptr, FindMember(pRoot, "name"));
	EXPECT_EQ(nullptr, FindMember(pRoot, "optional"));
	EXPECT_EQ(nullptr, FindMember(pRoot, "empty_table"));
	EXPECT_EQ(nullptr, FindMember(pLod, "max_bones"));
	EXPECT_NE(nullptr, FindMember(pLod, "max_file_size_kb"));
	EXPECT_NE(nullptr, FindMember(pLod, "max_polygons"));

	// The integer token takes -1 as text too; max_bones takes "60".
	EXPECT_TRUE(IsTemplateDefaultValue(KV3MemberName_t(0xC894A492u, "unnamed"), [&] {
		KeyValues3 *p = AddMember(pRoot, "scratch");
		p->SetString("-1");
		return p;
	}()));
	KeyValues3 *pText = AddMember(pRoot, "scratch2");
	pText->SetString("60");
	EXPECT_TRUE(IsTemplateDefaultValue("max_bones", pText));
	pText->SetInt(61);
	EXPECT_FALSE(IsTemplateDefaultValue("max_bones", pText));
}

TEST_F(TypePickTest, AGeneratedCustomTemplateIsWrittenPrunedAndLoadsAsATemplate)
{
	const hero_t *pHero = GetHeroTable().FindHero("npc_zarn_hero_bramble");
	ASSERT_NE(nullptr, pHero);
	const int nHead = pHero->FindSlot("head");
	const CMintyardTemplate *pBuilt = m_Session.GetCatalogue().GetWearableTemplate(pHero, nHead);
	ASSERT_NE(nullptr, pBuilt);
	CustomTemplateResult_t result;
	ASSERT_TRUE(WriteCustomWearableTemplate(*pHero, pHero->slots[nHead], *pBuilt, result)) << result.m_Error;
	EXPECT_EQ(m_Game.Game("scripts/mintyard_import_templates/template_bramble_head.txt"), result.m_Path);
	EXPECT_EQ(result.m_Text, m_Game.ReadFile(result.m_Path));
	EXPECT_NE(std::string::npos, result.m_Summary.find("- Set 'no_import' flag for this slot in npc_heroes.txt (bramble.head)"));

	CKeyValues3Context document;
	CUtlString error;
	ASSERT_TRUE(LoadKV3(document.Root(), &error, result.m_Text, KV3_FORMAT_GENERIC)) << error;
	EXPECT_STREQ("custom_wearable.bramble.head", GetMemberString(document.Root(), "id"));
	EXPECT_STREQ("#ZARN_Mintyard_SubmissionType_CustomWearable", GetMemberString(document.Root(), "template_group"));
	EXPECT_STREQ("#npc_zarn_hero_bramble", GetMemberString(document.Root(), "template_subgroup"));
	EXPECT_STREQ("#LoadoutSlot_Head", GetMemberString(document.Root(), "name"));
	EXPECT_EQ(nullptr, FindMember(document.Root(), "desc")); // empty: pruned
	EXPECT_EQ(std::string::npos, result.m_Text.find("max_submission_size_kb"));

	CMintyardTemplate loaded(result.m_Path.c_str());
	CKV3TransferLoadContext ctx;
	ctx.LoadRecord(document.Root(), loaded);
	ASSERT_TRUE(ctx.IsOk()) << ctx.GetText();
	ASSERT_EQ(1, (int)loaded.models.size());
	ASSERT_EQ(2, (int)loaded.models[0].lod_list.size());
	EXPECT_EQ(pBuilt->models[0].lod_list[1].max_polygons, loaded.models[0].lod_list[1].max_polygons);
	for (int i = 0; i < 2; ++i)
		EXPECT_EQ(pBuilt->models[0].lod_list[i].max_bones, loaded.models[0].lod_list[i].max_bones) << i;
	// A limit of 60 is the default: it is left out of the file and comes back on loading.
	EXPECT_EQ(std::string::npos, result.m_Text.find("max_bones = 60"));
	EXPECT_EQ(pBuilt->mintyard_tags, loaded.mintyard_tags);
}
