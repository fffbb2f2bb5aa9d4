// The input page: widgets bound to elements, validation that refreshes every input on each change,
// hints, sections and their summaries, the texture auto-fill, the G1 conversions, and the mesh
// budget read on the worker thread.
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

#include "imaging/image.h"
#include "imaging/imageload.h"
#include "mintyardtoolutils/core/templatecatalogue.h"
#include "mintyardtoolutils/wizard/g1conversion.h"
#include "mintyardtoolutils/wizard/inputwidgets.h"
#include "mintyardtoolutils/wizard/meshbudget.h"
#include "testsupport/fbx_test_writer.h"
#include "testsupport/test_images.h"
#include "wizardtestgame.h"

namespace
{
// A flat grid of n by n quads (2 n^2 triangles), skinned over `nJoints` joints by column.
std::string GridFbx(int n, int nJoints)
{
	FbxTestScene_t scene;
	for (int j = 0; j < nJoints; ++j)
		scene.joints.push_back("bone_" + std::to_string(j));
	FbxTestMesh_t mesh;
	mesh.name = "grid";
	for (int y = 0; y <= n; ++y)
		for (int x = 0; x <= n; ++x)
		{
			mesh.positions.push_back(Vector((float)x, (float)y, 0.0f));
			if (nJoints > 0)
				mesh.weights.push_back({ { x % nJoints, 1.0 } });
		}
	for (int y = 0; y < n; ++y)
		for (int x = 0; x < n; ++x)
		{
			const int a = y * (n + 1) + x;
			mesh.polygons.push_back({ a, a + 1, a + n + 2, a + n + 1 });
		}
	scene.meshes.push_back(mesh);
	return WriteAsciiFbx(scene);
}

class InputPickerTest : public testing::Test
{
protected:
	void SetUp() override
	{
		ImportMessageList list;
		ASSERT_TRUE(m_Session.GetCatalogue().LoadTemplates(list));
	}
	void TearDown() override { m_pPicker.reset(); }

	CQImportInputPicker *Attach(const char *pszTemplate)
	{
		m_Session.SetTemplate(m_Session.GetCatalogue().FindTemplate(pszTemplate));
		m_pPicker = std::make_unique<CQImportInputPicker>();
		m_pPicker->AttachSession(&m_Session);
		return m_pPicker.get();
	}
	CQMintyardUI_Input *Input(const CMintyardCfgElement *pElement) { return m_pPicker->FindInput(pElement); }

	CWizardTestGame m_Game;
	CMintyardImportSession m_Session;
	std::unique_ptr<CQImportInputPicker> m_pPicker;
};
} // namespace

TEST_F(InputPickerTest, TheCourierPageBindsAnInputToEveryElement)
{
	CQImportInputPicker *pPicker = Attach("courier");
	CMintyardCfg_ZarnModel *pCourier = m_Session.m_Models[0];
	const QList<CQMintyardUI_Input *> inputs = pPicker->Inputs();
	ASSERT_FALSE(inputs.isEmpty());
	EXPECT_EQ(m_Session.GetNameElement(), inputs.first()->Element());
	EXPECT_EQ("Name", inputs.first()->TitleLabel()->text());
	// Levels, the extra mesh, textures of both materials, the animations the author may give,
	// the misc string: each has its input.
	EXPECT_NE(nullptr, Input(pCourier->m_Lods[0]));
	EXPECT_NE(nullptr, Input(pCourier->m_Lods[1]->m_ExtraMeshes[0]));
	for (CMintyardCfg_ZarnMaterial *pMaterial : pCourier->m_Materials)
		for (CMintyardCfgFilename *pTexture : pMaterial->m_pTextures)
			EXPECT_NE(nullptr, Input(pTexture));
	EXPECT_NE(nullptr, Input(pCourier->m_Bundles[0]->m_Anims[0]));
	EXPECT_NE(nullptr, Input(m_Session.m_MiscData[0]));
	EXPECT_EQ(MINTYARD_FILTER_GEOMETRY, static_cast<CQMintyardUI_File *>(Input(pCourier->m_Lods[0]))->Filter());
	EXPECT_EQ("Meshes (*.fbx *.dmx)", MintyardBrowseFilter(MINTYARD_FILTER_GEOMETRY));
	// The extra mesh shares its level's budget: the flag says so.
	bool bCombined = false;
	for (QLabel *pLabel : pPicker->findChildren<QLabel *>())
		bCombined = bCombined || pLabel->text().startsWith("These 2 meshes share a budget of");
	EXPECT_TRUE(bCombined);
	// The model's sections start closed.
	QList<CQMintyardUI_Section *> sections = pPicker->findChildren<CQMintyardUI_Section *>();
	int nCollapsed = 0;
	for (CQMintyardUI_Section *pSection : sections)
		nCollapsed += pSection->ToggleButton() && !pSection->IsExpanded();
	EXPECT_GT(nCollapsed, 3);
}

TEST_F(InputPickerTest, TypingWritesTheElementAndEveryInputRevalidates)
{
	Attach("courier");
	CMintyardCfg_ZarnMesh *pLod0 = m_Session.m_Models[0]->m_Lods[0];
	CQMintyardUI_Input *pInput = Input(pLod0);
	// A level of the model is required: empty, it is an error.
	EXPECT_TRUE(pInput->HasErrors());
	EXPECT_TRUE(pInput->MessageText().endsWith(": no file or text given")) << pInput->MessageText().toStdString();
	QTest::keyClicks(pInput->LineEdit(), "/no/such/mesh.fbx");
	EXPECT_EQ("/no/such/mesh.fbx", pLod0->Value());
	EXPECT_TRUE(pInput->HasErrors());
	EXPECT_TRUE(pInput->MessageText().contains("the file does not exist")) << pInput->MessageText().toStdString();
	EXPECT_EQ(QColor(Qt::red), pInput->MessageLabel()->palette().color(QPalette::WindowText));
	EXPECT_EQ(QColor(Qt::red), pInput->LineEdit()->palette().color(QPalette::Text));

	// A value set elsewhere (a load, another input) reaches every input through the session.
	const std::string mesh = m_Game.WriteArt("courier.fbx", GridFbx(2, 1));
	pLod0->SetValue(mesh.c_str());
	EXPECT_FALSE(pInput->HasErrors()) << pInput->MessageText().toStdString();
	EXPECT_TRUE(pInput->MessageText().isEmpty());
	EXPECT_TRUE(pInput->MessageLabel()->isHidden());
	EXPECT_EQ(QPalette().color(QPalette::Text), pInput->LineEdit()->palette().color(QPalette::Text));
}

TEST_F(InputPickerTest, AnimationsWithADefaultSayWhetherItIsUsedUntilACustomSkeletonIsChecked)
{
	CQImportInputPicker *pPicker = Attach("courier");
	CMintyardCfg_ZarnModel *pCourier = m_Session.m_Models[0];
	CMintyardCfg_ZarnModel::CAnim *pIdle = nullptr;
	for (CMintyardCfg_ZarnModel::CAnim *pAnim : pCourier->m_Anims)
		if (pAnim->GetTemplateId() == "idle")
			pIdle = pAnim;
	ASSERT_NE(nullptr, pIdle);
	CQMintyardUI_Input *pInput = Input(pIdle);
	ASSERT_NE(nullptr, pInput);
	EXPECT_EQ("Empty: the standard animation is used", pInput->MessageLabel()->text());
	const std::string run = m_Game.WriteArt("idle.fbx", GridFbx(1, 1));
	pInput->LineEdit()->setText(QString::fromStdString(run));
	EXPECT_EQ("Your file replaces the standard animation", pInput->MessageLabel()->text());
	pInput->LineEdit()->clear();

	QCheckBox *pCustom = nullptr;
	for (CQMintyardUI_ZarnModel *pModel : pPicker->findChildren<CQMintyardUI_ZarnModel *>())
		if (pModel->CustomSkeletonCheck())
			pCustom = pModel->CustomSkeletonCheck();
	ASSERT_NE(nullptr, pCustom);
	pCustom->setChecked(true);
	EXPECT_TRUE(pCourier->m_bHasCustomSkeleton);
	// Now the element's own rule: the idle animation is missing.
	EXPECT_TRUE(pInput->MessageText().contains("no file or text given")) << pInput->MessageLabel()->text().toStdString();
}

TEST_F(InputPickerTest, ACollapsedSectionShowsMessagesAsTheyWereAtItsLastToggle)
{
	CQImportInputPicker *pPicker = Attach("courier");
	CMintyardCfg_ZarnMesh *pLod1 = m_Session.m_Models[0]->m_Lods[1];
	CQMintyardUI_Input *pInput = Input(pLod1);
	CQMintyardUI_Section *pMeshes = nullptr;
	for (QWidget *p = pInput->parentWidget(); p && !pMeshes; p = p->parentWidget())
		pMeshes = qobject_cast<CQMintyardUI_Section *>(p);
	ASSERT_NE(nullptr, pMeshes);
	ASSERT_FALSE(pMeshes->IsExpanded());
	EXPECT_TRUE(pMeshes->ContentsArea()->isHidden());
	EXPECT_FALSE(pMeshes->SummaryArea()->isHidden());
	int nIndex = -1;
	for (int i = 0; i < pMeshes->RegisteredInputCount(); ++i)
		if (pMeshes->SummaryLabel(i)->text() == pInput->MessageText() && !pInput->MessageText().isEmpty())
			nIndex = i;
	ASSERT_GE(nIndex, 0) << pInput->MessageText().toStdString(); // the missing level, at registration
	EXPECT_FALSE(pMeshes->SummaryLabel(nIndex)->isHidden());

	// A fix while closed is not shown until the next toggle.
	pLod1->SetValue(m_Game.WriteArt("lod1.fbx", GridFbx(1, 1)).c_str());
	EXPECT_FALSE(pMeshes->SummaryLabel(nIndex)->isHidden());
	pMeshes->OnToggle();
	EXPECT_TRUE(pMeshes->IsExpanded());
	EXPECT_EQ("-", pMeshes->ToggleButton()->text());
	EXPECT_TRUE(pMeshes->SummaryArea()->isHidden());
	pMeshes->OnToggle();
	EXPECT_TRUE(pMeshes->SummaryLabel(nIndex)->isHidden());
	(void)pPicker;
}

TEST_F(InputPickerTest, ATextureFillsItsEmptySiblingsThatExistOnDisk)
{
	Attach("courier");
	CMintyardCfg_ZarnMaterial *pMaterial = m_Session.m_Models[0]->m_Materials[0];
	const std::string color = m_Game.WriteArt("tex/hero_color.tga", "not read");
	const std::string normal = m_Game.WriteArt("tex/hero_normal.tga", "not read");
	m_Game.WriteArt("tex/hero_specmask.tga", "not read");
	Input(pMaterial->m_pTextures[7])->LineEdit()->setText("/kept/as/it/is.tga");
	Input(pMaterial->m_pTextures[0])->LineEdit()->setText(QString::fromStdString(color));
	EXPECT_EQ(normal, pMaterial->m_pTextures[2]->Value());
	EXPECT_EQ("/kept/as/it/is.tga", pMaterial->m_pTextures[7]->Value());
	EXPECT_TRUE(pMaterial->m_pTextures[1]->Value().empty()); // no hero_trans.tga

	// "color" comes first in the table: a path with both splits at "color".
	const std::string both = m_Game.WriteArt("transfer/skin_color.tga", "x");
	const std::string trans = m_Game.WriteArt("transfer/skin_trans.tga", "x");
	CMintyardCfg_ZarnMaterial *pOther = m_Session.m_Models[0]->m_Materials[1];
	Input(pOther->m_pTextures[0])->LineEdit()->setText(QString::fromStdString(both));
	EXPECT_EQ(trans, pOther->m_pTextures[1]->Value());
}

TEST(G1ConversionTest, PixelRulesOfColourNormalAndMasks)
{
	CImageRGBA8 source;
	ASSERT_TRUE(source.Init(2, 1));
	const uint8 pixels[8] = { 10, 20, 30, 255, 0, 1, 0, 7 };
	memcpy(source.Pixels(), pixels, 8);
	CImageRGBA8 color, trans;
	MakeG1ColorImages(source, color, trans);
	EXPECT_EQ(10, color.Pixel(0, 0)[0]);
	EXPECT_EQ(30, color.Pixel(0, 0)[2]);
	EXPECT_EQ(255, trans.Pixel(0, 0)[1]);
	EXPECT_EQ(7, trans.Pixel(1, 0)[0]);
	EXPECT_EQ(7, trans.Pixel(1, 0)[2]);

	CImageRGBA8 normal;
	const uint8 normalPixels[8] = { 0, 0, 0, 255, 0, 1, 0, 255 };
	memcpy(source.Pixels(), normalPixels, 8);
	MakeG1NormalImage(source, normal);
	EXPECT_EQ(0, normal.Pixel(0, 0)[1]); // black stays black
	EXPECT_EQ(254, normal.Pixel(1, 0)[1]);

	const uint8 maskPixels[8] = { 1, 2, 3, 4, 5, 6, 7, 8 };
	memcpy(source.Pixels(), maskPixels, 8);
	for (int c = 0; c < 4; ++c)
	{
		CImageRGBA8 grey;
		MakeG1MaskChannel(source, c, grey);
		EXPECT_EQ(1 + c, grey.Pixel(0, 0)[0]);
		EXPECT_EQ(1 + c, grey.Pixel(0, 0)[2]);
		EXPECT_EQ(5 + c, grey.Pixel(1, 0)[1]);
	}
	EXPECT_EQ("a/b_g2_color.tga", G1ColorOutputPath("a/b"));
	EXPECT_EQ("a/b_specexp.tga", G1MaskOutputPath("a/b", 1, 3));
}

TEST_F(InputPickerTest, TheColourConversionWritesTGAsAndAnOpaqueSourceLeavesTransEmpty)
{
	Attach("courier");
	CMintyardCfg_ZarnMaterial *pMaterial = m_Session.m_Models[0]->m_Materials[0];
	CQMintyardUI_Material *pPage = m_pPicker->findChildren<CQMintyardUI_Material *>().first();
	Input(pMaterial->m_pTextures[1])->LineEdit()->setText("/old/trans.tga");
	const std::string source = m_Game.WriteArt("g1/old.png", testimages::MakePng(4, 2, 200, 100, 50));
	m_Game.m_FileAnswers = { QString::fromStdString(source) };
	pPage->OnImportG1Color();
	const std::string colorPath = m_Game.Art("g1/old_g2_color.tga");
	EXPECT_EQ(colorPath, pMaterial->m_pTextures[0]->Value());
	EXPECT_TRUE(pMaterial->m_pTextures[1]->Value().empty());
	EXPECT_FALSE(QFileInfo::exists(QString::fromStdString(m_Game.Art("g1/old_g2_trans.tga"))));
	ASSERT_EQ(1u, m_Game.m_Messages.size());
	EXPECT_EQ("Colour Map Converted", m_Game.m_Messages[0].m_Title);
	CImageRGBA8 written;
	ImageFileInfo_t info;
	ASSERT_TRUE(Image_LoadFile(colorPath.c_str(), written, nullptr, {}, &info));
	EXPECT_EQ(IMAGE_FILE_TGA, info.format);
	EXPECT_EQ(3, info.nChannels);
	EXPECT_EQ(4, written.Width());
	EXPECT_EQ(200, written.Pixel(3, 1)[0]);
	EXPECT_EQ(50, written.Pixel(3, 1)[2]);

	// Again: the outputs exist, and No keeps them.
	m_Game.m_Messages.clear();
	m_Game.m_FileAnswers = { QString::fromStdString(source) };
	m_Game.m_Answers = { QMessageBox::No };
	pPage->OnImportG1Color();
	ASSERT_EQ(1u, m_Game.m_Messages.size());
	EXPECT_EQ("Replace the Converted Maps?", m_Game.m_Messages[0].m_Title);

	// A file that is no image is refused with the decoder's word.
	m_Game.m_Messages.clear();
	m_Game.m_FileAnswers = { QString::fromStdString(m_Game.WriteArt("g1/junk.tga", "junk")) };
	pPage->OnImportG1Normal();
	ASSERT_EQ(1u, m_Game.m_Messages.size());
	EXPECT_EQ("The normal map could not be converted", m_Game.m_Messages[0].m_Title);
	EXPECT_EQ("Internal Error: Unrecognized format", m_Game.m_Messages[0].m_Text);
	EXPECT_TRUE(pMaterial->m_pTextures[2]->Value().empty());
}

TEST_F(InputPickerTest, TheMeshBudgetIsReadOnTheWorkerAndALevelOverItIsRed)
{
	CQImportInputPicker *pPicker = Attach("custom_wearable.bramble.misc");
	CQMintyardUI_ZarnModel *pModel = pPicker->findChildren<CQMintyardUI_ZarnModel *>().first();
	CQMeshBudgetTable *pTable = pModel->BudgetTable();
	ASSERT_NE(nullptr, pTable);
	ASSERT_EQ(2, pTable->LevelCount());
	EXPECT_NE(QThread::currentThread(), pPicker->BudgetService()->WorkerThread());
	EXPECT_TRUE(pPicker->BudgetService()->WorkerThread()->isRunning());
	EXPECT_EQ(400, pTable->Level(1).m_nMaxTriangles);
	EXPECT_EQ(30, pTable->Level(1).m_nMaxBones);
	EXPECT_FALSE(pTable->Level(1).m_bHasFile);

	// 15 x 15 quads: 450 triangles over a budget of 400, skinned to 3 bones.
	const std::string big = m_Game.WriteArt("lantern_world.fbx", GridFbx(15, 3));
	QSignalSpy updated(pTable, SIGNAL(BudgetUpdated()));
	CQMintyardUI_Input *pWorld = Input(m_Session.m_Models[0]->m_Lods[1]);
	pWorld->LineEdit()->setText(QString::fromStdString(big));
	EXPECT_TRUE(pTable->Level(1).m_bPending); // the page did not wait
	ASSERT_TRUE(updated.wait(10000));
	CQMeshBudgetTable::LevelState_t state = pTable->Level(1);
	EXPECT_TRUE(state.m_bKnown);
	EXPECT_EQ(450, state.m_nTriangles);
	EXPECT_EQ(3, state.m_nBones);
	EXPECT_TRUE(state.OverTriangles());
	EXPECT_FALSE(state.OverBones());
	EXPECT_EQ(QColor(Qt::red), pTable->item(1, CQMeshBudgetTable::COLUMN_TRIANGLES)->foreground().color());
	EXPECT_EQ("450 / 400", pTable->item(1, CQMeshBudgetTable::COLUMN_TRIANGLES)->text());
	EXPECT_EQ("3 / 30", pTable->item(1, CQMeshBudgetTable::COLUMN_BONES)->text());
	EXPECT_TRUE(pTable->item(1, 0)->toolTip().contains("over the budget of 400"));

	// A smaller mesh in its place: within budget, no colour.
	const std::string small = m_Game.WriteArt("lantern_small.fbx", GridFbx(10, 2));
	pWorld->LineEdit()->setText(QString::fromStdString(small));
	ASSERT_TRUE(updated.wait(10000));
	state = pTable->Level(1);
	EXPECT_EQ(200, state.m_nTriangles);
	EXPECT_EQ(2, state.m_nBones);
	EXPECT_FALSE(state.OverTriangles());
	EXPECT_FALSE(pTable->item(1, CQMeshBudgetTable::COLUMN_TRIANGLES)->foreground().color().isValid() &&
				 pTable->item(1, CQMeshBudgetTable::COLUMN_TRIANGLES)->data(Qt::ForegroundRole).isValid());

	// A file that is no mesh: the table says it cannot read it, and nothing breaks.
	pWorld->LineEdit()->setText(QString::fromStdString(m_Game.WriteArt("broken.fbx", "Kaydara FBX Binary  \x00 broken")));
	ASSERT_TRUE(updated.wait(10000));
	EXPECT_FALSE(pTable->Level(1).m_Error.isEmpty());
	EXPECT_EQ("? / 400", pTable->item(1, CQMeshBudgetTable::COLUMN_TRIANGLES)->text());
}

TEST_F(InputPickerTest, ALevelWithAnExtraMeshCountsBothFiles)
{
	const MeshBudgetFile_t lod1 = ReadMeshBudgetFile(MINTYARD_SOURCE_DIR "/sample/art/courier/courier_lod1.fbx");
	const MeshBudgetFile_t bag = ReadMeshBudgetFile(MINTYARD_SOURCE_DIR "/sample/art/courier/courier_saddlebag.fbx");
	ASSERT_TRUE(lod1.m_Error.isEmpty()) << lod1.m_Error.toStdString();
	ASSERT_GT(lod1.m_nTriangles, 0);
	ASSERT_GT(bag.m_nTriangles, 0);
	EXPECT_FALSE(lod1.m_Bones.isEmpty());
	EXPECT_TRUE(bag.m_Bones.isEmpty()); // the saddlebag is not skinned

	CQImportInputPicker *pPicker = Attach("courier");
	CQMeshBudgetTable *pTable = pPicker->findChildren<CQMintyardUI_ZarnModel *>().first()->BudgetTable();
	QSignalSpy updated(pTable, SIGNAL(BudgetUpdated()));
	CMintyardCfg_ZarnMesh *pLevel = m_Session.m_Models[0]->m_Lods[1];
	pLevel->SetValue(MINTYARD_SOURCE_DIR "/sample/art/courier/courier_lod1.fbx");
	pLevel->m_ExtraMeshes[0]->SetValue(MINTYARD_SOURCE_DIR "/sample/art/courier/courier_saddlebag.fbx");
	pTable->Refresh();
	while (pTable->Level(1).m_bPending && updated.wait(10000))
	{
	}
	EXPECT_EQ(lod1.m_nTriangles + bag.m_nTriangles, pTable->Level(1).m_nTriangles);
	EXPECT_EQ(lod1.m_Bones.size(), pTable->Level(1).m_nBones);
}

TEST_F(InputPickerTest, AnImageInputPreviewsItsFile)
{
	Attach("emoticons");
	CMintyardCfg_ZarnImageSet::CEmoticon *pEmoticon = m_Session.m_ImageSets[0]->m_Emoticons[0];
	CQMintyardUI_Image *pImage = dynamic_cast<CQMintyardUI_Image *>(Input(pEmoticon->m_pImage));
	ASSERT_NE(nullptr, pImage);
	EXPECT_TRUE(pImage->Preview()->isHidden());
	pImage->LineEdit()->setText(QString::fromStdString(m_Game.WriteArt("e.png", testimages::MakePng(64, 32))));
	EXPECT_FALSE(pImage->Preview()->isHidden());
	EXPECT_EQ(QSize(64, 32), pImage->Preview()->pixmap(Qt::ReturnByValue).size());
	EXPECT_EQ(pEmoticon->m_pImage->Value(), m_Game.Art("e.png"));
	pImage->LineEdit()->setText("/gone.png");
	EXPECT_TRUE(pImage->Preview()->isHidden());
}
