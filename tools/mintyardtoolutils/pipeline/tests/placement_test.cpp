// File placement of the import run: where sources land, what happens to their extensions, DMX
// meshes prepared and saved binary while everything else is copied byte for byte, and the failures
// that end one step.
#include <gtest/gtest.h>

#include <QImage>

#include "datamodel/dmelement.h"
#include "datamodel/dmxio.h"
#include "importtestgame.h"
#include "testsupport/test_images.h"
#include "testsupport/test_meshes.h"

namespace
{
std::unique_ptr<CMintyardTemplate> EmptyTemplate()
{
	auto t = std::make_unique<CMintyardTemplate>();
	t->Init("placement", "#Placement", "", false);
	t->directory = "placement";
	return t;
}

// A small DMX mesh in the previous generation's names, as an old exporter writes it.
std::string OldDmxMesh(const char *pszEncoding)
{
	CDmxDocument doc;
	CDmElement *root = doc.CreateElement("DmElement", "root");
	CDmElement *model = doc.CreateElement("DmeModel", "model");
	root->SetValue("model", model);
	CDmElement *dag = doc.CreateElement("DmeDag", "quad");
	CDmElement *mesh = doc.CreateElement("DmeMesh", "quad");
	dag->SetValue("shape", mesh);
	model->SetArray<CDmElement *>("children", { dag });
	CDmElement *data = doc.CreateElement("DmeVertexData", "bind");
	mesh->SetValue("bindState", data);
	data->SetArray<CUtlString>("vertexFormat", { "positions" });
	data->SetArray<Vector>("positions", { Vector(0, 0, 0), Vector(1, 0, 0), Vector(1, 1, 0), Vector(0, 1, 0) });
	data->SetArray<int>("positionsIndices", { 0, 1, 2, 3 });
	CDmElement *faces = doc.CreateElement("DmeFaceSet", "faces");
	CDmElement *material = doc.CreateElement("DmeMaterial", "material");
	material->SetValue("mtlName", CUtlString("hat_skin"));
	faces->SetValue("material", material);
	faces->SetArray<int>("faces", { 0, 1, 2, 3, -1 });
	mesh->SetArray<CDmElement *>("faceSets", { faces });
	doc.SetRoot(root);
	CUtlBuffer out;
	CUtlString error;
	EXPECT_TRUE(DmxSaveBuffer(out, root, pszEncoding, "model", 1, &error)) << error;
	return std::string(out.View());
}
} // namespace

TEST(Placement, ExtensionsAreLowerCasedAndNeededAndSourcesMustExist)
{
	CImportTestGame game;
	CMintyardImportSession &session = game.NewSession(EmptyTemplate());
	const std::string source = game.WriteArt("Hat.FBX", WriteAsciiFbx({ { testmeshes::Cube() }, {} }));
	ImportMessageList list;
	list.SetLog(&game.m_Log);
	ASSERT_TRUE(CopyToContent(MINTYARD_COPY_MESH, &session, source.c_str(), "models/items/Hat/Hat.FBX", list));
	EXPECT_EQ(game.ReadFile(game.Content("models/items/Hat/Hat.fbx")), game.ReadFile(source)); // an FBX goes byte for byte
	EXPECT_EQ(list.Count(), 0);

	// No extension: refused before any folder is made.
	EXPECT_FALSE(CopyToContent(MINTYARD_COPY_VERBATIM, &session, source.c_str(), "models/noext/Hat", list));
	ASSERT_NE(list.Find("#ZARN_Mintyard_Err_BadPath"), nullptr);
	EXPECT_EQ(list.Find("#ZARN_Mintyard_Err_BadPath")->Arg(1), game.Content("models/noext/Hat"));
	EXPECT_FALSE(std::filesystem::exists(game.Content("models/noext")));
	EXPECT_FALSE(CopyToContent(MINTYARD_COPY_VERBATIM, &session, source.c_str(), "models/dots/.fbx", list));
	EXPECT_EQ(list.CountMessage("#ZARN_Mintyard_Err_BadPath"), 2);

	// A missing source names itself.
	EXPECT_FALSE(CopyToContent(MINTYARD_COPY_VERBATIM, &session, game.Art("nowhere.fbx").c_str(), "models/x.fbx", list));
	EXPECT_NE(list.Find("#ZARN_Mintyard_Err_FileDoesNotExist", game.Art("nowhere.fbx").c_str()), nullptr);
	EXPECT_NE(game.m_Log.m_Text.find("Copying from '" + source + "' to 'models/items/Hat/Hat.FBX'\n"), std::string::npos);
}

TEST(Placement, DmxMeshesArePreparedAndSavedBinaryAnimationsCopied)
{
	CImportTestGame game;
	CMintyardImportSession &session = game.NewSession(EmptyTemplate());
	const std::string text = OldDmxMesh("keyvalues2");
	const std::string source = game.WriteArt("Quad.DMX", text);
	ImportMessageList list;
	ASSERT_TRUE(CopyToContent(MINTYARD_COPY_MESH, &session, source.c_str(), "models/quad.DMX", list));
	const std::string placed = game.ReadFile(game.Content("models/quad.dmx"));
	EXPECT_NE(placed.find("encoding binary"), std::string::npos);
	CDmxDocument doc;
	CUtlString error;
	ASSERT_TRUE(DmxLoadFile(game.Content("models/quad.dmx").c_str(), doc, &error)) << error;
	const CDmElement *data = doc.GetRoot()->GetValue<CDmElement *>("model")->GetArray<CDmElement *>("children")[0]
								 ->GetValue<CDmElement *>("shape")
								 ->GetValue<CDmElement *>("bindState");
	EXPECT_TRUE(data->HasAttribute("position$0"));
	EXPECT_FALSE(data->HasAttribute("positions"));
	const CDmElement *material = doc.GetRoot()->GetValue<CDmElement *>("model")->GetArray<CDmElement *>("children")[0]
									 ->GetValue<CDmElement *>("shape")
									 ->GetArray<CDmElement *>("faceSets")[0]
									 ->GetValue<CDmElement *>("material");
	EXPECT_EQ(material->GetValue<CUtlString>("mtlName"), "materials/hat_skin.zmat");

	// The same file as an animation source stays as it was.
	ASSERT_TRUE(CopyToContent(MINTYARD_COPY_ANIMATION, &session, source.c_str(), "models/quad_idle.dmx", list));
	EXPECT_EQ(game.ReadFile(game.Content("models/quad_idle.dmx")), text);

	// Noise named .dmx cannot be read: the mesh step fails and names the source.
	const std::string noise = game.WriteArt("noise.dmx", std::string(500, '\x17'));
	EXPECT_FALSE(CopyToContent(MINTYARD_COPY_MESH, &session, noise.c_str(), "models/noise.dmx", list));
	EXPECT_NE(list.Find("#ZARN_Mintyard_Err_NonexistentFile", noise.c_str()), nullptr);
	EXPECT_FALSE(std::filesystem::exists(game.Content("models/noise.dmx")));
}

TEST(Placement, GameFilesBuffersAndRescaledImages)
{
	CImportTestGame game;
	CMintyardImportSession &session = game.NewSession(EmptyTemplate());
	const std::string bmp = game.WriteArt("pointer.bmp", testimages::MakeBmp(32, 32));
	ImportMessageList list;
	list.SetLog(&game.m_Log);
	ASSERT_TRUE(CopyToGame(&session, bmp.c_str(), "resource/cursor/mintyard/Set/pointer.BMP", list));
	EXPECT_TRUE(std::filesystem::exists(game.Game("resource/cursor/mintyard/Set/pointer.BMP"))); // the game keeps the name as given
	ASSERT_TRUE(CopyExistingGameFile(&session, game.Game("resource/cursor/cursor.res").c_str(), "resource/cursor/mintyard/Set/cursor.res", list));
	EXPECT_EQ(game.ReadFile(game.Game("resource/cursor/mintyard/Set/cursor.res")), game.ReadFile(game.Game("resource/cursor/cursor.res")));
	EXPECT_NE(game.m_Log.m_Text.find("Copying existing game file"), std::string::npos);

	const std::string text = "written";
	ASSERT_TRUE(WriteBufferToContent(&session, text.data(), text.size(), "notes/a.txt", list));
	EXPECT_EQ(game.ReadFile(game.Content("notes/a.txt")), text);
	EXPECT_FALSE(WriteBufferToContent(&session, text.data(), text.size(), "notes/noext", list));
	EXPECT_EQ(list.CountMessage("#ZARN_Mintyard_Err_BadPath"), 1);

	// Rescaling in place: PNG through Qt, BMP through SDL.
	const std::string png = game.WriteArt("big.png", testimages::MakePng(64, 40));
	ASSERT_TRUE(ResizeImageFile(png.c_str(), 16, 16));
	QImage back(QString::fromStdString(png));
	EXPECT_EQ(back.size(), QSize(16, 16));
	ASSERT_TRUE(ResizeImageFile(bmp.c_str(), 24, 8));
	QImage bmpBack(QString::fromStdString(bmp));
	EXPECT_EQ(bmpBack.size(), QSize(24, 8));
	EXPECT_TRUE(ResizeImageFile(bmp.c_str(), 24, 8)); // already that size
	EXPECT_FALSE(ResizeImageFile(game.Art("missing.png").c_str(), 8, 8));
}

TEST(Placement, ARunWithoutRootsOrWithValidationErrorsWritesNothing)
{
	CImportTestGame game;
	CMintyardImportSession &session = game.NewSession(EmptyTemplate());
	session.SetSearchPaths("", game.Content("").c_str());
	ImportMessageList list = game.Run();
	ASSERT_EQ(list.Count(), 1);
	EXPECT_EQ(list[0].Message(), "Internal Error: Invalid game or content search path.");

	// An import name that breaks the name rule stops the run before the first file.
	session.SetSearchPaths(game.Game("").c_str(), game.Content("").c_str());
	session.GetNameElement()->SetValue("");
	list = game.Run();
	EXPECT_GT(list.GetErrorCount(), 0);
	EXPECT_TRUE(std::filesystem::is_empty(game.Content("")));

	// A valid session with nothing to import runs to the end and writes nothing.
	session.GetNameElement()->SetValue("nothing");
	list = game.Run();
	EXPECT_EQ(list.Count(), 0);
	EXPECT_TRUE(std::filesystem::is_empty(game.Content("")));
}
