// Drawing: compiled models, textures and materials written by the compiledassets writers, drawn
// offscreen on the virtual display's OpenGL and read back pixel by pixel.
#include <gtest/gtest.h>

#include <QImage>

#include <cmath>
#include <cstdlib>
#include <memory>

#include "testsupport/test_support.h"
#include "toolscene/scenegizmo.h"
#include "toolscene/sceneoffscreen.h"
#include "toolscenetestassets.h"

namespace
{
constexpr int WIDTH = 160;
constexpr int HEIGHT = 120;
const Color CLEAR = Color(20, 30, 40);

struct Rgb_t
{
	int r, g, b;
};

Rgb_t PixelAt(const QImage &image, int x, int y)
{
	const QRgb pixel = image.pixel(x, y);
	return { qRed(pixel), qGreen(pixel), qBlue(pixel) };
}

::testing::AssertionResult ColorNear(const Rgb_t &actual, int r, int g, int b, int tolerance)
{
	if (std::abs(actual.r - r) <= tolerance && std::abs(actual.g - g) <= tolerance && std::abs(actual.b - b) <= tolerance)
		return ::testing::AssertionSuccess();
	return ::testing::AssertionFailure() << "pixel (" << actual.r << ", " << actual.g << ", " << actual.b << ") is not (" << r << ", " << g
										 << ", " << b << ") within " << tolerance;
}

::testing::AssertionResult IsClear(const Rgb_t &actual)
{
	return ColorNear(actual, CLEAR.r, CLEAR.g, CLEAR.b, 0);
}

int CountDifferentPixels(const QImage &a, const QImage &b)
{
	int count = 0;
	for (int y = 0; y < a.height(); ++y)
	{
		for (int x = 0; x < a.width(); ++x)
		{
			if (a.pixel(x, y) != b.pixel(x, y))
				++count;
		}
	}
	return count;
}

float SRGBToLinear(float c)
{
	return c <= 0.04045f ? c / 12.92f : std::pow((c + 0.055f) / 1.055f, 2.4f);
}

float LinearToSRGB(float c)
{
	return c <= 0.0031308f ? c * 12.92f : 1.055f * std::pow(c, 1.0f / 2.4f) - 0.055f;
}

class ToolSceneRender : public testing::Test
{
protected:
	static void SetUpTestSuite()
	{
		s_pRenderer = new CToolSceneOffscreenRenderer;
		CUtlString error;
		s_bReady = s_pRenderer->Init(&error);
		EXPECT_TRUE(s_bReady) << error;
	}
	static void TearDownTestSuite()
	{
		delete s_pRenderer;
		s_pRenderer = nullptr;
	}

	void SetUp() override
	{
		ASSERT_TRUE(s_bReady);
		ASSERT_FALSE(m_Game.Root().empty());
		m_Resources.SetGameRoot(m_Game.Root().c_str());
		m_pScene = std::make_unique<CToolScene>(&m_Resources);
		m_pScene->SetClearColor(CLEAR);
		m_pScene->DefaultLight().SetUnlit();
		// Looking down -x at the origin from 200 units away.
		m_pScene->Camera().SetPositionAndTarget(Vector(200, 0, 0), Vector(0, 0, 0));
		m_pScene->Camera().SetFOV(60.0f);
		s_pRenderer->Renderer().SetForceTextureDecode(false);
	}

	QImage Draw(int w = WIDTH, int h = HEIGHT)
	{
		QImage image;
		CUtlString error;
		EXPECT_TRUE(s_pRenderer->Render(*m_pScene, w, h, image, &error)) << error;
		return image;
	}

	// The pixel a world point is drawn at.
	void Project(const Vector &point, int &x, int &y, int w = WIDTH, int h = HEIGHT)
	{
		float fx = 0.0f, fy = 0.0f;
		EXPECT_TRUE(m_pScene->Camera().ProjectToScreen(point, w, h, fx, fy));
		x = (int)std::floor(fx);
		y = (int)std::floor(fy);
	}

	void WriteSolidMaterial(const char *pszName, uint8 r, uint8 g, uint8 b)
	{
		const std::string texture = std::string("materials/") + pszName + "_png.ztex_c";
		const std::string material = std::string("materials/") + pszName + ".zmat_c";
		ASSERT_TRUE(m_Game.WriteTexture(texture.c_str(), TestTexture_Solid(r, g, b, 255, COMPILED_TEXTURE_BC1)));
		ASSERT_TRUE(m_Game.WriteMaterial(material.c_str(), TestMaterial(texture.c_str())));
	}

	static CToolSceneOffscreenRenderer *s_pRenderer;
	static bool s_bReady;
	CTestGameFolder m_Game;
	CToolSceneResources m_Resources;
	std::unique_ptr<CToolScene> m_pScene;
};

CToolSceneOffscreenRenderer *ToolSceneRender::s_pRenderer = nullptr;
bool ToolSceneRender::s_bReady = false;
} // namespace

TEST_F(ToolSceneRender, TexturedQuadShowsItsTextureWhereItStands)
{
	EXPECT_TRUE(s_pRenderer->Renderer().HasS3TC()) << "Mesa gives GL_EXT_texture_compression_s3tc";
	struct Case_t
	{
		const char *m_pszName;
		ECompiledTextureFormat m_eFormat;
		bool m_bSRGB;
		bool m_bYCoCg;
		uint8 m_Color[4];
	};
	const Case_t cases[] = {
		{ "bc1", COMPILED_TEXTURE_BC1, true, false, { 200, 40, 30, 255 } },
		{ "bc3", COMPILED_TEXTURE_BC3, true, false, { 40, 180, 90, 255 } },
		{ "rgba", COMPILED_TEXTURE_RGBA8, true, false, { 90, 60, 210, 255 } },
		{ "ycocg", COMPILED_TEXTURE_BC3, true, true, { 180, 120, 60, 255 } },
		{ "data", COMPILED_TEXTURE_BC1, false, false, { 128, 128, 255, 255 } },
	};
	for (bool bDecode : { false, true })
	{
		for (const Case_t &test : cases)
		{
			SCOPED_TRACE(std::string(test.m_pszName) + (bDecode ? " decoded on the CPU" : " uploaded compressed"));
			const CCompiledTexture texture = TestTexture_Solid(test.m_Color[0], test.m_Color[1], test.m_Color[2], test.m_Color[3], test.m_eFormat,
				16, test.m_bSRGB, test.m_bYCoCg);
			const std::string texturePath = std::string("materials/") + test.m_pszName + "_png.ztex_c";
			const std::string materialPath = std::string("materials/") + test.m_pszName + ".zmat_c";
			const std::string modelPath = std::string("models/") + test.m_pszName + ".zmdl_c";
			ASSERT_TRUE(m_Game.WriteTexture(texturePath.c_str(), texture));
			ASSERT_TRUE(m_Game.WriteMaterial(materialPath.c_str(), TestMaterial(texturePath.c_str())));
			ASSERT_TRUE(m_Game.WriteModel(modelPath.c_str(), TestModel_Quad(materialPath.c_str(), 100.0f)));
			uint8 expected[4];
			ASSERT_TRUE(TestTexture_DecodedPixel(texture, 5, 5, expected));
			// A texture of data (not sRGB) is taken as linear values and shown encoded.
			if (!test.m_bSRGB)
			{
				for (int c = 0; c < 3; ++c)
					expected[c] = (uint8)std::lround(LinearToSRGB(expected[c] / 255.0f) * 255.0f);
			}

			s_pRenderer->Renderer().SetForceTextureDecode(bDecode);
			m_pScene->RemoveAllNodes();
			CToolSceneModelNode *pNode = m_pScene->CreateModelNode(modelPath.c_str());
			ASSERT_TRUE(pNode->HasModel());
			const QImage image = Draw();
			const ToolSceneRenderStats_t &stats = s_pRenderer->Renderer().GetStats();
			EXPECT_EQ(stats.m_nDrawCalls, 1);
			EXPECT_EQ(stats.m_nTriangles, 2u);
			if (test.m_eFormat != COMPILED_TEXTURE_RGBA8)
			{
				EXPECT_EQ(stats.m_nDecodedTextures, bDecode ? 1 : 0);
			}

			// The quad (100 units at 200) covers the middle; its corners project inside the view.
			EXPECT_TRUE(ColorNear(PixelAt(image, WIDTH / 2, HEIGHT / 2), expected[0], expected[1], expected[2], 2));
			// Seen from +x, world -y is on the left of the picture.
			int left, top, right, bottom;
			Project(Vector(0, -50, 50), left, top);
			Project(Vector(0, 50, -50), right, bottom);
			EXPECT_TRUE(ColorNear(PixelAt(image, left + 2, top + 2), expected[0], expected[1], expected[2], 2));
			EXPECT_TRUE(ColorNear(PixelAt(image, right - 2, bottom - 2), expected[0], expected[1], expected[2], 2));
			EXPECT_TRUE(IsClear(PixelAt(image, left - 2, top + 10)));
			EXPECT_TRUE(IsClear(PixelAt(image, right + 2, bottom - 10)));
			EXPECT_TRUE(IsClear(PixelAt(image, WIDTH / 2, top - 2)));
			EXPECT_TRUE(IsClear(PixelAt(image, 0, 0)));
		}
	}
}

TEST_F(ToolSceneRender, TextureCoordinatesPutTheImagesTopRowAtTheTop)
{
	// Top half yellow, bottom half blue, left and right alike.
	CImageRGBA8 image;
	ASSERT_TRUE(image.Init(32, 32));
	for (int y = 0; y < 32; ++y)
	{
		for (int x = 0; x < 32; ++x)
		{
			uint8 *p = image.Pixel(x, y);
			p[0] = y < 16 ? 230 : 30;
			p[1] = y < 16 ? 210 : 60;
			p[2] = y < 16 ? 20 : 220;
			p[3] = 255;
		}
	}
	ASSERT_TRUE(m_Game.WriteTexture("materials/halves_png.ztex_c", TestTexture_FromImage(image, COMPILED_TEXTURE_RGBA8, true)));
	ASSERT_TRUE(m_Game.WriteMaterial("materials/halves.zmat_c", TestMaterial("materials/halves_png.ztex_c")));
	ASSERT_TRUE(m_Game.WriteModel("models/halves.zmdl_c", TestModel_Quad("materials/halves.zmat_c")));
	m_pScene->CreateModelNode("models/halves.zmdl");
	const QImage picture = Draw();
	int x, y;
	Project(Vector(0, 0, 30), x, y);
	EXPECT_TRUE(ColorNear(PixelAt(picture, x, y), 230, 210, 20, 2));
	Project(Vector(0, 0, -30), x, y);
	EXPECT_TRUE(ColorNear(PixelAt(picture, x, y), 30, 60, 220, 2));
}

TEST_F(ToolSceneRender, MaterialsConstantsAlphaTestAndSkins)
{
	// A colour given as a constant in brackets.
	const float constant[4] = { 0.2f, 0.6f, 0.9f, 0.0f };
	ASSERT_TRUE(m_Game.WriteMaterial("materials/constant.zmat_c", TestMaterial(nullptr, nullptr, constant)));
	ASSERT_TRUE(m_Game.WriteModel("models/constant.zmdl_c", TestModel_Quad("materials/constant.zmat_c")));
	CToolSceneModelNode *pNode = m_pScene->CreateModelNode("models/constant.zmdl");
	QImage image = Draw();
	EXPECT_TRUE(ColorNear(PixelAt(image, WIDTH / 2, HEIGHT / 2), 51, 153, 230, 1));

	// Alpha test from the translucency texture: its left half black, its right half white.
	CImageRGBA8 mask;
	ASSERT_TRUE(mask.Init(32, 32));
	for (int y = 0; y < 32; ++y)
	{
		for (int x = 0; x < 32; ++x)
		{
			uint8 *p = mask.Pixel(x, y);
			p[0] = p[1] = p[2] = x < 16 ? 0 : 255;
			p[3] = 255;
		}
	}
	ASSERT_TRUE(m_Game.WriteTexture("materials/green_png.ztex_c", TestTexture_Solid(30, 200, 60, 255, COMPILED_TEXTURE_BC1)));
	ASSERT_TRUE(m_Game.WriteTexture("materials/mask_png.ztex_c", TestTexture_FromImage(mask, COMPILED_TEXTURE_BC1, false)));
	ASSERT_TRUE(m_Game.WriteMaterial("materials/masked.zmat_c", TestMaterial("materials/green_png.ztex_c", "materials/mask_png.ztex_c")));
	ASSERT_TRUE(m_Game.WriteModel("models/masked.zmdl_c", TestModel_Quad("materials/masked.zmat_c")));
	m_pScene->RemoveNode(pNode);
	m_pScene->CreateModelNode("models/masked.zmdl");
	image = Draw();
	int x, y;
	// The texture's left (u = 0) is the quad's -y side, on the left as this camera sees it.
	Project(Vector(0, -30, 0), x, y);
	EXPECT_TRUE(IsClear(PixelAt(image, x, y)));
	Project(Vector(0, 30, 0), x, y);
	EXPECT_TRUE(ColorNear(PixelAt(image, x, y), 30, 200, 60, 8));

	// Skins: a second material group swaps red for blue.
	m_pScene->RemoveAllNodes();
	WriteSolidMaterial("red", 220, 30, 30);
	WriteSolidMaterial("blue", 30, 40, 220);
	CCompiledModel model = TestModel_Quad("materials/red.zmat_c");
	model.m_Materials.push_back("materials/blue.zmat_c");
	model.m_MaterialGroups.push_back({ "blue_skin", { { 0, 1 } } });
	ASSERT_TRUE(m_Game.WriteModel("models/skinned_quad.zmdl_c", model));
	CToolSceneModelNode *pSkinned = m_pScene->CreateModelNode("models/skinned_quad.zmdl");
	const Rgb_t red = PixelAt(Draw(), WIDTH / 2, HEIGHT / 2);
	EXPECT_GT(red.r, 200);
	EXPECT_LT(red.b, 50);
	ASSERT_TRUE(pSkinned->SetMaterialGroup("blue_skin"));
	const Rgb_t blue = PixelAt(Draw(), WIDTH / 2, HEIGHT / 2);
	EXPECT_LT(blue.r, 50);
	EXPECT_GT(blue.b, 200);

	// A material that is missing draws grey rather than nothing.
	CCaptureLog log;
	ASSERT_TRUE(m_Game.WriteModel("models/orphan.zmdl_c", TestModel_Quad("materials/missing.zmat_c")));
	m_pScene->RemoveAllNodes();
	m_pScene->CreateModelNode("models/orphan.zmdl");
	EXPECT_TRUE(ColorNear(PixelAt(Draw(), WIDTH / 2, HEIGHT / 2), 128, 128, 128, 2));
}

TEST_F(ToolSceneRender, TheGlobalLightShadesLambertAndAmbient)
{
	WriteSolidMaterial("grey", 200, 200, 200);
	ASSERT_TRUE(m_Game.WriteModel("models/grey.zmdl_c", TestModel_Quad("materials/grey.zmat_c")));
	m_pScene->CreateModelNode("models/grey.zmdl");
	uint8 albedo[4];
	ASSERT_TRUE(TestTexture_DecodedPixel(TestTexture_Solid(200, 200, 200, 255, COMPILED_TEXTURE_BC1), 0, 0, albedo));
	const float linearAlbedo = SRGBToLinear(albedo[0] / 255.0f);

	// A light shining straight at the quad's face (travelling along -x), white, no ambient.
	CToolSceneGlobalLight light;
	light.m_Angles = QAngle(0.0f, 180.0f, 0.0f);
	light.m_vColor = Vector(1, 1, 1);
	light.m_flScale = 1.0f;
	light.m_vAmbientColor = Vector();
	light.m_vSpecularColor = Vector();
	m_pScene->SetGlobalLight(&light);
	EXPECT_TRUE(ColorNear(PixelAt(Draw(), WIDTH / 2, HEIGHT / 2), albedo[0], albedo[1], albedo[2], 2));

	// At 60 degrees: half the light.
	light.m_Angles = QAngle(0.0f, 120.0f, 0.0f);
	const int half = (int)std::lround(LinearToSRGB(linearAlbedo * 0.5f) * 255.0f);
	EXPECT_TRUE(ColorNear(PixelAt(Draw(), WIDTH / 2, HEIGHT / 2), half, half, half, 2));

	// From behind the quad's face: the face is lit from the side it is seen from, so a light
	// behind it leaves the seen side to the ambient term alone.
	light.m_Angles = QAngle(0.0f, 0.0f, 0.0f);
	light.m_vAmbientColor = Vector(0.5f, 0.5f, 0.5f);
	light.m_flAmbientScale = 1.0f;
	const int ambient = (int)std::lround(LinearToSRGB(linearAlbedo * SRGBToLinear(0.5f)) * 255.0f);
	EXPECT_TRUE(ColorNear(PixelAt(Draw(), WIDTH / 2, HEIGHT / 2), ambient, ambient, ambient, 2));
	m_pScene->SetGlobalLight(nullptr);
}

TEST_F(ToolSceneRender, SkinnedModelFollowsItsAnimation)
{
	WriteSolidMaterial("strip", 240, 200, 40);
	ASSERT_TRUE(m_Game.WriteModel("models/strip.zmdl_c", TestModel_SkinnedStrip("materials/strip.zmat_c")));
	m_pScene->Camera().SetPositionAndTarget(Vector(300, 0, 50), Vector(0, 0, 50));
	CToolSceneModelNode *pNode = m_pScene->CreateModelNode("models/strip.zmdl");
	ASSERT_TRUE(pNode->SetSequence("bend"));
	int upX, upY, sideX, sideY, mirrorX, mirrorY;
	Project(Vector(0, 0, 90), upX, upY);
	Project(Vector(0, -40, 52), sideX, sideY);
	Project(Vector(0, 40, 52), mirrorX, mirrorY);

	pNode->SetFrame(0.0f);
	const QImage frame0 = Draw();
	EXPECT_FALSE(IsClear(PixelAt(frame0, upX, upY)));
	EXPECT_TRUE(IsClear(PixelAt(frame0, sideX, sideY)));
	EXPECT_EQ(s_pRenderer->Renderer().GetStats().m_nSkinnedNodes, 1);
	pNode->SetFrame(1.0f);
	const QImage frame1 = Draw();
	EXPECT_TRUE(IsClear(PixelAt(frame1, upX, upY)));
	EXPECT_FALSE(IsClear(PixelAt(frame1, sideX, sideY)));
	EXPECT_GT(CountDifferentPixels(frame0, frame1), 200);
	// The same frame twice is the same picture.
	EXPECT_EQ(CountDifferentPixels(frame1, Draw()), 0);
	pNode->SetFrame(0.0f);
	EXPECT_EQ(CountDifferentPixels(frame0, Draw()), 0);

	// A delta played alone, a layer added on the bind pose and the blend at its end all give
	// the picture of the bent frame.
	for (const char *pszSequence : { "lean_delta", "bind_layered", "lean_blend" })
	{
		SCOPED_TRACE(pszSequence);
		ASSERT_TRUE(pNode->SetSequence(pszSequence));
		pNode->SetPoseParameter("lean", 1.0f);
		const QImage image = Draw();
		EXPECT_LE(CountDifferentPixels(image, frame1), 8) << "at most a few pixels of rounding along edges";
		EXPECT_TRUE(IsClear(PixelAt(image, upX, upY)));
		EXPECT_FALSE(IsClear(PixelAt(image, sideX, sideY)));
	}
	// A skeleton too large for the uniform block goes through a texture buffer: same picture.
	ASSERT_TRUE(m_Game.WriteModel("models/strip_large.zmdl_c", TestModel_SkinnedStrip("materials/strip.zmat_c", 300)));
	CToolSceneModelNode *pLarge = m_pScene->CreateModelNode("models/strip_large.zmdl");
	ASSERT_EQ(pLarge->GetCompiledModel()->m_Bones.size(), 302u);
	pNode->SetVisible(false);
	ASSERT_TRUE(pLarge->SetSequence("bend"));
	pLarge->SetFrame(1.0f);
	EXPECT_LE(CountDifferentPixels(Draw(), frame1), 8);
	pLarge->SetFrame(0.0f);
	EXPECT_LE(CountDifferentPixels(Draw(), frame0), 8);
	m_pScene->RemoveNode(pLarge);
	pNode->SetVisible(true);

	// The blend the other way bends the strip to the other side.
	pNode->SetPoseParameter("lean", -1.0f);
	const QImage mirrored = Draw();
	EXPECT_TRUE(IsClear(PixelAt(mirrored, sideX, sideY)));
	EXPECT_FALSE(IsClear(PixelAt(mirrored, mirrorX, mirrorY)));
	pNode->SetPoseParameter("lean", 0.0f);
	EXPECT_LE(CountDifferentPixels(Draw(), frame0), 8);
}

TEST_F(ToolSceneRender, PickingFindsWhatIsDrawnUnderAPixel)
{
	WriteSolidMaterial("strip", 240, 200, 40);
	ASSERT_TRUE(m_Game.WriteModel("models/strip.zmdl_c", TestModel_SkinnedStrip("materials/strip.zmat_c")));
	m_pScene->Camera().SetPositionAndTarget(Vector(250, 60, 80), Vector(0, 0, 50));
	CToolSceneModelNode *pNode = m_pScene->CreateModelNode("models/strip.zmdl");
	pNode->SetSequence("bend");
	pNode->SetFrame(1.0f);
	const QImage image = Draw();
	int agree = 0, covered = 0;
	for (int y = 1; y < HEIGHT - 1; y += 3)
	{
		for (int x = 1; x < WIDTH - 1; x += 3)
		{
			// Only pixels whose neighbours agree: edges may fall either way.
			bool bAllClear = true, bNoneClear = true;
			for (int dy = -1; dy <= 1; ++dy)
			{
				for (int dx = -1; dx <= 1; ++dx)
				{
					const bool bClear = IsClear(PixelAt(image, x + dx, y + dy));
					bAllClear = bAllClear && bClear;
					bNoneClear = bNoneClear && !bClear;
				}
			}
			if (!bAllClear && !bNoneClear)
				continue;
			ToolSceneTraceResult_t result;
			const bool bHit = m_pScene->TracePixel((float)x + 0.5f, (float)y + 0.5f, WIDTH, HEIGHT, result);
			EXPECT_EQ(bHit, bNoneClear) << "pixel " << x << ", " << y;
			EXPECT_EQ(result.m_pNode, bHit ? pNode : nullptr);
			++agree;
			covered += bNoneClear ? 1 : 0;
		}
	}
	EXPECT_GT(covered, 20);
	EXPECT_GT(agree - covered, 200);
}

TEST_F(ToolSceneRender, GridGroundFrustumsLinesAndTints)
{
	// From above, the grid's x axis is a red line through the middle.
	m_pScene->Camera().SetPositionAndTarget(Vector(0.01f, 0, 400), Vector(0, 0, 0));
	m_pScene->SetGridEnabled(true);
	m_pScene->SetGridSpacing(16.0f, 64);
	QImage image = Draw();
	int x, y;
	Project(Vector(100, 0, 0), x, y);
	// A line one pixel wide: one of the pixels around the point is on it.
	int reddish = 0;
	for (int dy = -1; dy <= 1; ++dy)
	{
		for (int dx = -1; dx <= 1; ++dx)
		{
			const Rgb_t pixel = PixelAt(image, x + dx, y + dy);
			reddish += (pixel.r > 150 && pixel.g < 100) ? 1 : 0;
		}
	}
	EXPECT_GE(reddish, 1);
	Project(Vector(8, 8, 0), x, y);
	EXPECT_TRUE(IsClear(PixelAt(image, x, y))) << "between the lines";
	m_pScene->SetGroundEnabled(true);
	image = Draw();
	const Color &ground = m_pScene->GetGroundColor();
	EXPECT_TRUE(ColorNear(PixelAt(image, x, y), ground.r, ground.g, ground.b, 0));
	m_pScene->SetGroundEnabled(false);
	m_pScene->SetGridEnabled(false);

	// A frustum seen from the side: the midpoints of its edges are drawn in its colour.
	m_pScene->Camera().SetPositionAndTarget(Vector(50, -300, 0), Vector(50, 0, 0));
	CToolSceneFrustumNode *pFrustum = m_pScene->CreateFrustumNode();
	pFrustum->SetTransform(Vector(0, 0, 0), QAngle(0, 0, 0));
	pFrustum->SetProjection(40.0f, 10.0f, 100.0f, 1.0f, -1.0f, -1.0f);
	pFrustum->SetColor(Color(255, 0, 255));
	image = Draw();
	Vector corners[8];
	pFrustum->GetWorldCorners(corners);
	Project((corners[4] + corners[5]) * 0.5f, x, y);
	EXPECT_TRUE(ColorNear(PixelAt(image, x, y), 255, 0, 255, 0)) << "the far plane's top edge";
	Project(corners[6] * 0.5f, x, y);
	EXPECT_TRUE(ColorNear(PixelAt(image, x, y), 255, 0, 255, 0)) << "the edge from the apex to a far corner";
	Project(Vector(50, 0, corners[6].z), x, y);
	EXPECT_TRUE(IsClear(PixelAt(image, x, y))) << "below the frustum";
	m_pScene->RemoveNode(pFrustum);

	// Lines on top, a tinted triangle, both in the node's space.
	CToolSceneLineSetNode *pLines = m_pScene->CreateLineSetNode();
	pLines->AddLine(Vector(0, 0, -40), Vector(100, 0, -40), Color(255, 0, 0));
	pLines->SetLineWidth(3.0f);
	CToolSceneTriangleTintNode *pTint = m_pScene->CreateTriangleTintNode();
	pTint->AddTriangle(Vector(0, 0, 0), Vector(100, 0, 0), Vector(0, 0, 40), Color(0, 255, 0, 128));
	image = Draw();
	Project(Vector(50, 0, -40), x, y);
	EXPECT_TRUE(ColorNear(PixelAt(image, x, y), 255, 0, 0, 0));
	Project(Vector(20, 0, 10), x, y);
	// Half green over the clear colour.
	EXPECT_TRUE(ColorNear(PixelAt(image, x, y), CLEAR.r / 2, (CLEAR.g + 255) / 2, CLEAR.b / 2, 2));
	pTint->SetVisible(false);
	EXPECT_TRUE(IsClear(PixelAt(Draw(), x, y)));
}

TEST_F(ToolSceneRender, GizmosAreDrawnOverTheScene)
{
	WriteSolidMaterial("grey", 128, 128, 128);
	ASSERT_TRUE(m_Game.WriteModel("models/grey.zmdl_c", TestModel_Quad("materials/grey.zmat_c", 600.0f)));
	m_pScene->CreateModelNode("models/grey.zmdl");
	m_pScene->Camera().SetPositionAndTarget(Vector(300, 0, 0), Vector(0, 0, 0));
	CToolSceneGizmo *pGizmo = m_pScene->CreateGizmo(nullptr);
	pGizmo->SetPlacement(Vector(-50, 0, 0), QAngle());
	const QImage hidden = Draw();
	pGizmo->Show();
	const QImage shown = Draw();
	// The z handle runs up from the centre, behind the quad but drawn over it.
	const float length = m_pScene->Camera().WorldUnitsPerPixel(Vector(-50, 0, 0), WIDTH) * pGizmo->GetSizePixels();
	int x, y;
	Project(Vector(-50, 0, length * 0.6f), x, y);
	const Rgb_t handle = PixelAt(shown, x, y);
	EXPECT_GT(handle.b, 200);
	EXPECT_LT(handle.r, 100);
	EXPECT_TRUE(ColorNear(PixelAt(hidden, x, y), 128, 128, 128, 2));
}

namespace
{
class CCountingLayer : public IProceduralLayerRenderer
{
public:
	void RenderLayer(const ToolSceneLayerContext_t &context) override
	{
		++m_nCalls;
		m_Name = context.m_pszLayerName;
		m_nWidth = context.m_nWidth;
		m_nHeight = context.m_nHeight;
		EXPECT_NE(context.m_pRenderer, nullptr);
		EXPECT_NE(context.m_pGL, nullptr);
	}
	int m_nCalls = 0;
	std::string m_Name;
	int m_nWidth = 0, m_nHeight = 0;
};
} // namespace

TEST_F(ToolSceneRender, OverlayLayersAndBitmapsCoverTheScene)
{
	WriteSolidMaterial("red", 220, 30, 30);
	WriteSolidMaterial("green", 30, 200, 60);
	ASSERT_TRUE(m_Game.WriteModel("models/red.zmdl_c", TestModel_Quad("materials/red.zmat_c", 150.0f)));
	m_pScene->CreateModelNode("models/red.zmdl");
	const QImage scene = Draw();
	uint8 green[4];
	ASSERT_TRUE(TestTexture_DecodedPixel(TestTexture_Solid(30, 200, 60, 255, COMPILED_TEXTURE_BC1), 0, 0, green));

	// A layer with a material quad that takes the clear target covers everything.
	CToolSceneMaterialQuadRenderer quad(m_Resources.LoadMaterial("materials/green.zmat"));
	CToolSceneNodeScreenLayer *pLayer = m_pScene->CreateScreenLayer("ToolScene Portrait Overlay", &quad, true);
	QImage image = Draw();
	for (const QPoint point : { QPoint(0, 0), QPoint(WIDTH / 2, HEIGHT / 2), QPoint(WIDTH - 1, HEIGHT - 1) })
		EXPECT_TRUE(ColorNear(PixelAt(image, point.x(), point.y()), green[0], green[1], green[2], 2));

	// Half opacity in a target of its own: blended over the scene.
	m_pScene->RemoveNode(pLayer);
	quad.SetOpacity(0.5f);
	m_pScene->CreateScreenLayer("half", &quad, false);
	image = Draw();
	const Rgb_t under = PixelAt(scene, WIDTH / 2, HEIGHT / 2);
	EXPECT_TRUE(ColorNear(PixelAt(image, WIDTH / 2, HEIGHT / 2), (under.r + green[0]) / 2, (under.g + green[1]) / 2, (under.b + green[2]) / 2, 2));
	EXPECT_TRUE(ColorNear(PixelAt(image, 0, 0), (CLEAR.r + green[0]) / 2, (CLEAR.g + green[1]) / 2, (CLEAR.b + green[2]) / 2, 2));
	m_pScene->RemoveAllNodes();

	// A layer drawn under the scene is a backdrop: the model covers it where it stands, and it
	// takes the place of the clear colour around the model.
	quad.SetOpacity(1.0f);
	CToolSceneNodeScreenLayer *pBackdrop = m_pScene->CreateScreenLayer("backdrop", &quad, true);
	pBackdrop->SetDrawnUnderScene(true);
	m_pScene->CreateModelNode("models/red.zmdl");
	image = Draw();
	EXPECT_TRUE(ColorNear(PixelAt(image, WIDTH / 2, HEIGHT / 2), under.r, under.g, under.b, 0)) << "the model over the backdrop";
	EXPECT_TRUE(ColorNear(PixelAt(image, 0, 0), green[0], green[1], green[2], 2)) << "the backdrop where the clear colour was";
	EXPECT_EQ(qAlpha(image.pixel(0, 0)), 255);
	m_pScene->RemoveAllNodes();

	// A procedural renderer is called with its layer's name and the target's size.
	CCountingLayer counting;
	m_pScene->CreateScreenLayer("counted", &counting, true);
	Draw(90, 70);
	EXPECT_EQ(counting.m_nCalls, 1);
	EXPECT_EQ(counting.m_Name, "counted");
	EXPECT_EQ(counting.m_nWidth, 90);
	EXPECT_EQ(counting.m_nHeight, 70);
	m_pScene->RemoveAllNodes();

	// A 16:9 bitmap in a square view: bars above and below, the picture between, left half
	// red and right half blue.
	m_pScene->CreateModelNode("models/red.zmdl");
	CToolSceneBitmapOverlay *pOverlay = m_pScene->CreateBitmapOverlay(1.7777778f);
	CImageRGBA8 picture;
	ASSERT_TRUE(picture.Init(32, 18));
	for (int y = 0; y < 18; ++y)
	{
		for (int x = 0; x < 32; ++x)
		{
			uint8 *p = picture.Pixel(x, y);
			p[0] = x < 16 ? 255 : 0;
			p[1] = 0;
			p[2] = x < 16 ? 0 : 255;
			p[3] = 255;
		}
	}
	ASSERT_TRUE(pOverlay->SetImage(picture));
	const int size = 180;
	image = Draw(size, size);
	float bx, by, bw, bh;
	pOverlay->GetLetterbox(size, size, bx, by, bw, bh);
	EXPECT_NEAR(bh, size / 1.7777778f, 0.01f);
	EXPECT_TRUE(ColorNear(PixelAt(image, size / 2, (int)by - 3), 0, 0, 0, 0)) << "the bar above";
	EXPECT_TRUE(ColorNear(PixelAt(image, size / 2, (int)(by + bh) + 3), 0, 0, 0, 0)) << "the bar below";
	EXPECT_TRUE(ColorNear(PixelAt(image, size / 4, size / 2), 255, 0, 0, 0));
	EXPECT_TRUE(ColorNear(PixelAt(image, size * 3 / 4, size / 2), 0, 0, 255, 0));
	EXPECT_TRUE(ColorNear(PixelAt(image, 2, (int)by + 2), 255, 0, 0, 0)) << "the picture reaches the left edge";
	// Blank: only the bars' colour over the whole view.
	pOverlay->ClearPixels();
	EXPECT_TRUE(ColorNear(PixelAt(Draw(size, size), size / 2, size / 2), 0, 0, 0, 0));
}

TEST_F(ToolSceneRender, SizesAndRefusals)
{
	WriteSolidMaterial("grey", 128, 128, 128);
	ASSERT_TRUE(m_Game.WriteModel("models/grey.zmdl_c", TestModel_Quad("materials/grey.zmat_c", 150.0f)));
	m_pScene->CreateModelNode("models/grey.zmdl");
	for (const QSize size : { QSize(1, 1), QSize(7, 333), QSize(1280, 720) })
	{
		const QImage image = Draw(size.width(), size.height());
		EXPECT_EQ(image.size(), size);
		EXPECT_TRUE(ColorNear(PixelAt(image, size.width() / 2, size.height() / 2), 128, 128, 128, 2));
	}
	QImage image;
	CUtlString error;
	EXPECT_FALSE(s_pRenderer->Render(*m_pScene, 0, 10, image, &error));
	EXPECT_NE(error.find("0 x 10"), CUtlString::npos) << error;
	EXPECT_FALSE(s_pRenderer->Render(*m_pScene, 100000, 10, image, &error));

	CImageRGBA8 rgba;
	ASSERT_TRUE(s_pRenderer->Render(*m_pScene, 40, 30, rgba, &error)) << error;
	EXPECT_EQ(rgba.Width(), 40);
	EXPECT_NEAR(rgba.Pixel(20, 15)[0], 128, 2);
	EXPECT_EQ(rgba.Pixel(0, 0)[0], CLEAR.r);
	EXPECT_EQ(rgba.Pixel(0, 0)[3], 255);
}

TEST_F(ToolSceneRender, NormalMapsAndTranslucentMaterials)
{
	// A normal map that turns the surface towards its tangent (+y here) takes it out of a light
	// that shines straight at the flat face.
	CToolSceneGlobalLight light;
	light.m_Angles = QAngle(0.0f, 180.0f, 0.0f);
	light.m_vColor = Vector(1, 1, 1);
	light.m_vAmbientColor = Vector();
	light.m_vSpecularColor = Vector();
	m_pScene->SetGlobalLight(&light);
	ASSERT_TRUE(m_Game.WriteTexture("materials/white_png.ztex_c", TestTexture_Solid(230, 230, 230, 255, COMPILED_TEXTURE_BC1)));
	ASSERT_TRUE(m_Game.WriteTexture("materials/flat_normal_png.ztex_c", TestTexture_Solid(128, 128, 255, 255, COMPILED_TEXTURE_BC1, 16, false)));
	ASSERT_TRUE(m_Game.WriteTexture("materials/tilted_normal_png.ztex_c", TestTexture_Solid(255, 128, 128, 255, COMPILED_TEXTURE_BC1, 16, false)));
	for (const char *pszNormal : { "flat", "tilted" })
	{
		CCompiledMaterial material = TestMaterial("materials/white_png.ztex_c");
		material.m_Textures.push_back({ "TextureNormal", std::string("materials/") + pszNormal + "_normal_png.ztex_c" });
		ASSERT_TRUE(m_Game.WriteMaterial((std::string("materials/") + pszNormal + ".zmat_c").c_str(), material));
		ASSERT_TRUE(m_Game.WriteModel((std::string("models/") + pszNormal + ".zmdl_c").c_str(),
			TestModel_Quad((std::string("materials/") + pszNormal + ".zmat_c").c_str())));
	}
	CToolSceneModelNode *pNode = m_pScene->CreateModelNode("models/flat.zmdl");
	const Rgb_t flat = PixelAt(Draw(), WIDTH / 2, HEIGHT / 2);
	EXPECT_GT(flat.r, 200);
	pNode->SetModel("models/tilted.zmdl");
	const Rgb_t tilted = PixelAt(Draw(), WIDTH / 2, HEIGHT / 2);
	EXPECT_LT(tilted.r, 60) << "lit edge-on";
	m_pScene->SetGlobalLight(nullptr);
	m_pScene->RemoveAllNodes();

	// A translucent material blends by its colour's alpha, over what is behind it.
	CCompiledMaterial glass = TestMaterial("materials/glass_png.ztex_c");
	glass.m_nFlags |= COMPILED_MATERIAL_FLAG_TRANSLUCENT;
	const CCompiledTexture glassTexture = TestTexture_Solid(20, 40, 240, 128, COMPILED_TEXTURE_BC3);
	ASSERT_TRUE(m_Game.WriteTexture("materials/glass_png.ztex_c", glassTexture));
	ASSERT_TRUE(m_Game.WriteMaterial("materials/glass.zmat_c", glass));
	ASSERT_TRUE(m_Game.WriteModel("models/glass.zmdl_c", TestModel_Quad("materials/glass.zmat_c")));
	m_pScene->CreateModelNode("models/glass.zmdl");
	uint8 texel[4];
	ASSERT_TRUE(TestTexture_DecodedPixel(glassTexture, 0, 0, texel));
	const float alpha = texel[3] / 255.0f;
	const Rgb_t blended = PixelAt(Draw(), WIDTH / 2, HEIGHT / 2);
	EXPECT_TRUE(ColorNear(blended, (int)std::lround(texel[0] * alpha + CLEAR.r * (1.0f - alpha)),
		(int)std::lround(texel[1] * alpha + CLEAR.g * (1.0f - alpha)), (int)std::lround(texel[2] * alpha + CLEAR.b * (1.0f - alpha)), 2));
}
