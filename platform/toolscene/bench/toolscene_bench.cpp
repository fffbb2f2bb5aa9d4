// Frame time of the tool scene at 1280 x 720 offscreen: ten skinned models of about 5,000
// triangles each, textured, lit and animated, against a bare draw loop of the same triangles
// (the same vertex and index buffers, one flat colour, no skinning, no material) in the same
// context and framebuffer. Each iteration is one frame, waited for with glFinish.
//
//   platform/testsupport/run-with-display.sh build/bench/toolscene_bench
//
// The medians of the repetitions are the figures to quote. BM_ToolSceneFrame/0 uploads the
// BC1 texture as S3TC (the default), /1 decodes it to RGBA8 first. BM_BareDrawLoop/0 is the
// plainest loop (positions, one colour); /1 draws the same triangles with the scene's own
// shaders, unskinned, one texture and the light set once: what the shading itself costs,
// without skinning, animation, the scene's nodes or material binding.
#include <benchmark/benchmark.h>

#include <QGuiApplication>
#include <QOpenGLFramebufferObject>
#include <QOpenGLFunctions_3_3_Core>

#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "barebench.h"
#include "toolscene/sceneoffscreen.h"
#include "toolscene/sceneshaders.h"
#include "../tests/toolscenetestassets.h"

namespace
{
constexpr int WIDTH = 1280;
constexpr int HEIGHT = 720;
constexpr int MODELS = 10;
constexpr int TRIANGLES = 5000;
constexpr int BONES = 24;
constexpr int FRAMES = 30;

// The scene, its game folder and the renderer, made once.
struct BenchScene_t
{
	CTestGameFolder m_Game;
	CToolSceneResources m_Resources;
	std::unique_ptr<CToolScene> m_pScene;
	CToolSceneOffscreenRenderer m_Renderer;
	bool m_bReady = false;
	std::vector<CToolSceneModelNode *> m_Nodes;
};

BenchScene_t *s_pBench = nullptr;

bool MakeBenchScene(CUtlString &error)
{
	s_pBench = new BenchScene_t;
	BenchScene_t &bench = *s_pBench;
	CImageRGBA8 image;
	image.Init(256, 256);
	for (int y = 0; y < 256; ++y)
	{
		for (int x = 0; x < 256; ++x)
		{
			uint8 *p = image.Pixel(x, y);
			const bool bCheck = ((x / 32) + (y / 32)) & 1;
			p[0] = (uint8)(bCheck ? 200 : 60 + x / 4);
			p[1] = (uint8)(bCheck ? 150 : 90);
			p[2] = (uint8)(bCheck ? 60 : 160 + y / 8);
			p[3] = 255;
		}
	}
	if (!bench.m_Game.WriteTexture("materials/bench/tube_color_png.ztex_c", TestTexture_FromImage(image, COMPILED_TEXTURE_BC1, true)) ||
		!bench.m_Game.WriteMaterial("materials/bench/tube.zmat_c", TestMaterial("materials/bench/tube_color_png.ztex_c")) ||
		!bench.m_Game.WriteModel("models/bench/tube.zmdl_c", TestModel_SkinnedTube("materials/bench/tube.zmat_c", TRIANGLES, BONES, FRAMES)))
	{
		error = "cannot write the benchmark's assets";
		return false;
	}
	bench.m_Resources.SetGameRoot(bench.m_Game.Root().c_str());
	bench.m_pScene = std::make_unique<CToolScene>(&bench.m_Resources);
	for (int i = 0; i < MODELS; ++i)
	{
		CToolSceneModelNode *pNode = bench.m_pScene->CreateModelNode("models/bench/tube.zmdl");
		if (!pNode->HasModel())
		{
			error = "cannot load the benchmark's model";
			return false;
		}
		pNode->SetTransform(Vector((float)(i % 5) * 45.0f - 90.0f, 0.0f, (float)(i / 5) * 110.0f), QAngle(0.0f, (float)i * 36.0f, 0.0f));
		pNode->SetSequence("run");
		// Each model at another point of the cycle, so that no two poses are alike.
		pNode->SetFrame((float)i * 2.7f);
		bench.m_Nodes.push_back(pNode);
	}
	Vector mins, maxs;
	bench.m_pScene->GetVisibleBounds(mins, maxs);
	bench.m_pScene->Camera().SetPositionAndTarget(Vector(0.0f, -400.0f, 160.0f), (mins + maxs) * 0.5f);
	bench.m_pScene->Camera().FrameBounds(mins, maxs, (float)WIDTH / (float)HEIGHT);
	bench.m_bReady = bench.m_Renderer.Init(&error);
	return bench.m_bReady;
}

void BM_ToolSceneFrame(benchmark::State &state)
{
	if (!s_pBench || !s_pBench->m_bReady)
	{
		state.SkipWithError("no scene");
		return;
	}
	CUtlString error;
	// Argument 0: block-compressed textures go up as S3TC; 1: decoded to RGBA8 first.
	s_pBench->m_Renderer.MakeCurrent();
	s_pBench->m_Renderer.Renderer().SetForceTextureDecode(state.range(0) != 0);
	s_pBench->m_Renderer.DoneCurrent();
	// The first frame uploads the model and texture.
	s_pBench->m_Renderer.RenderWithoutReadback(*s_pBench->m_pScene, WIDTH, HEIGHT, &error);
	for (auto _ : state)
	{
		s_pBench->m_pScene->Advance(1.0f / 30.0f);
		if (!s_pBench->m_Renderer.RenderWithoutReadback(*s_pBench->m_pScene, WIDTH, HEIGHT, &error))
		{
			state.SkipWithError(error.c_str());
			return;
		}
	}
	const ToolSceneRenderStats_t &stats = s_pBench->m_Renderer.Renderer().GetStats();
	state.counters["triangles"] = (double)stats.m_nTriangles;
	state.counters["skinned"] = stats.m_nSkinnedNodes;
}

// The same triangles through the plainest program: positions only, one colour.
const char *const s_pszBareVertex = R"(#version 330 core
layout(location = 0) in vec3 aPosition;
uniform mat4 uViewProjection;
uniform mat4 uModel;
void main()
{
	gl_Position = uViewProjection * uModel * vec4(aPosition, 1.0);
}
)";
const char *const s_pszBareFragment = R"(#version 330 core
out vec4 oColor;
void main()
{
	oColor = vec4(0.8, 0.6, 0.3, 1.0);
}
)";

struct BareLoop_t
{
	GLuint m_nProgram = 0;
	GLuint m_nVAO = 0;
	GLuint m_nVBO = 0;
	GLuint m_nIBO = 0;
	GLuint m_nTexture = 0;
	GLsizei m_nIndexCount = 0;
	GLenum m_eIndexType = GL_UNSIGNED_SHORT;
};

// `bShaded`: the scene's own model program, unskinned, with the texture bound once and the
// light set once; otherwise the plainest program. Either way: positions (and for the shaded
// loop normals and texture coordinates) of the tube, one draw per model.
bool MakeBareLoop(QOpenGLFunctions_3_3_Core *gl, bool bShaded, BareLoop_t &bare)
{
	const CompiledMesh_t &mesh = s_pBench->m_Nodes[0]->GetCompiledModel()->m_Meshes[0];
	const std::string shadedVertex = SceneShader_ModelVertexSource(true);
	bare.m_nProgram = bShaded ? BareBench_BuildProgram(gl, shadedVertex.c_str(), g_pszModelFragmentShader) : BareBench_BuildProgram(gl, s_pszBareVertex, s_pszBareFragment);
	if (!bare.m_nProgram)
		return false;
	const size_t vertices = mesh.VertexCount();
	std::vector<uint8> bytes(vertices * (sizeof(Vector) * 2 + sizeof(CompiledTexCoord_t)));
	memcpy(bytes.data(), mesh.m_Positions.data(), vertices * sizeof(Vector));
	memcpy(bytes.data() + vertices * sizeof(Vector), mesh.m_Normals.data(), vertices * sizeof(Vector));
	memcpy(bytes.data() + vertices * sizeof(Vector) * 2, mesh.m_TexCoords.data(), vertices * sizeof(CompiledTexCoord_t));
	gl->glGenVertexArrays(1, &bare.m_nVAO);
	gl->glGenBuffers(1, &bare.m_nVBO);
	gl->glGenBuffers(1, &bare.m_nIBO);
	gl->glBindVertexArray(bare.m_nVAO);
	gl->glBindBuffer(GL_ARRAY_BUFFER, bare.m_nVBO);
	gl->glBufferData(GL_ARRAY_BUFFER, (GLsizeiptr)bytes.size(), bytes.data(), GL_STATIC_DRAW);
	gl->glEnableVertexAttribArray(0);
	gl->glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, 0, nullptr);
	if (bShaded)
	{
		gl->glEnableVertexAttribArray(1);
		gl->glVertexAttribPointer(1, 3, GL_FLOAT, GL_FALSE, 0, (const void *)(vertices * sizeof(Vector)));
		gl->glEnableVertexAttribArray(3);
		gl->glVertexAttribPointer(3, 2, GL_FLOAT, GL_FALSE, 0, (const void *)(vertices * sizeof(Vector) * 2));
	}
	gl->glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, bare.m_nIBO);
	if (mesh.IndexSize() == 2)
		gl->glBufferData(GL_ELEMENT_ARRAY_BUFFER, (GLsizeiptr)(mesh.m_Indices16.size() * 2), mesh.m_Indices16.data(), GL_STATIC_DRAW);
	else
		gl->glBufferData(GL_ELEMENT_ARRAY_BUFFER, (GLsizeiptr)(mesh.m_Indices32.size() * 4), mesh.m_Indices32.data(), GL_STATIC_DRAW);
	bare.m_eIndexType = mesh.IndexSize() == 2 ? GL_UNSIGNED_SHORT : GL_UNSIGNED_INT;
	bare.m_nIndexCount = (GLsizei)mesh.IndexCount();
	gl->glBindVertexArray(0);

	gl->glUseProgram(bare.m_nProgram);
	float viewProjection[16];
	BareBench_ColumnMajor(s_pBench->m_pScene->Camera().GetViewProjectionMatrix((float)WIDTH / (float)HEIGHT), viewProjection);
	gl->glUniformMatrix4fv(gl->glGetUniformLocation(bare.m_nProgram, "uViewProjection"), 1, GL_FALSE, viewProjection);
	if (bShaded)
	{
		// The texture as the scene uploads it by default (S3TC, sRGB), and plain light values.
		const CToolSceneMaterial *pMaterial = s_pBench->m_Nodes[0]->GetModelResource()->GetMaterial(0);
		const CCompiledTexture &texture = pMaterial->GetColorTexture()->GetData();
		gl->glGenTextures(1, &bare.m_nTexture);
		gl->glActiveTexture(GL_TEXTURE0);
		gl->glBindTexture(GL_TEXTURE_2D, bare.m_nTexture);
		for (size_t level = 0; level < texture.m_Mips.size(); ++level)
		{
			const CompiledMip_t &mip = texture.m_Mips[level];
			gl->glCompressedTexImage2D(GL_TEXTURE_2D, (GLint)level, 0x8C4C /* sRGB DXT1 */, (GLsizei)mip.m_nWidth, (GLsizei)mip.m_nHeight, 0,
				(GLsizei)mip.m_Data.size(), mip.m_Data.data());
		}
		gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, (GLint)texture.m_Mips.size() - 1);
		gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
		gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
		BareBench_SetShadingUniforms(gl, bare.m_nProgram, s_pBench->m_pScene->Camera().GetPosition());
	}
	return true;
}

void BM_BareDrawLoop(benchmark::State &state)
{
	if (!s_pBench || !s_pBench->m_bReady)
	{
		state.SkipWithError("no scene");
		return;
	}
	CToolSceneOffscreenRenderer &offscreen = s_pBench->m_Renderer;
	CUtlString error;
	// A frame of the scene makes the framebuffer of this size.
	offscreen.RenderWithoutReadback(*s_pBench->m_pScene, WIDTH, HEIGHT, &error);
	if (!offscreen.MakeCurrent())
	{
		state.SkipWithError("cannot make the context current");
		return;
	}
	QOpenGLFunctions_3_3_Core *gl = offscreen.Renderer().GL();
	const bool bShaded = state.range(0) != 0;
	BareLoop_t bare;
	if (!MakeBareLoop(gl, bShaded, bare))
	{
		state.SkipWithError("the bare program does not link");
		offscreen.DoneCurrent();
		return;
	}
	const GLint modelUniform = gl->glGetUniformLocation(bare.m_nProgram, "uModel");
	const GLint normalUniform = gl->glGetUniformLocation(bare.m_nProgram, "uNormalMatrix");
	std::vector<std::vector<float>> matrices;
	for (CToolSceneModelNode *pNode : s_pBench->m_Nodes)
	{
		std::vector<float> columns(16);
		BareBench_ColumnMajor(pNode->GetWorldTransform(), columns.data());
		matrices.push_back(std::move(columns));
	}
	offscreen.DoneCurrent();

	for (auto _ : state)
	{
		offscreen.MakeCurrent();
		gl->glBindFramebuffer(GL_FRAMEBUFFER, offscreen.Framebuffer()->handle());
		gl->glViewport(0, 0, WIDTH, HEIGHT);
		gl->glClearColor(0.2f, 0.2f, 0.25f, 1.0f);
		gl->glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
		gl->glEnable(GL_DEPTH_TEST);
		// The same fixed-function state as the scene's one-sided materials.
		gl->glEnable(GL_CULL_FACE);
		gl->glCullFace(GL_BACK);
		gl->glFrontFace(GL_CCW);
		gl->glUseProgram(bare.m_nProgram);
		gl->glBindVertexArray(bare.m_nVAO);
		if (bShaded)
		{
			gl->glActiveTexture(GL_TEXTURE0);
			gl->glBindTexture(GL_TEXTURE_2D, bare.m_nTexture);
		}
		for (const std::vector<float> &matrix : matrices)
		{
			gl->glUniformMatrix4fv(modelUniform, 1, GL_FALSE, matrix.data());
			if (bShaded)
			{
				// Rotations about z only: the normal matrix is the rotation part.
				const float normal[9] = { matrix[0], matrix[1], matrix[2], matrix[4], matrix[5], matrix[6], matrix[8], matrix[9], matrix[10] };
				gl->glUniformMatrix3fv(normalUniform, 1, GL_FALSE, normal);
			}
			gl->glDrawElements(GL_TRIANGLES, bare.m_nIndexCount, bare.m_eIndexType, nullptr);
		}
		gl->glFinish();
		gl->glDisable(GL_CULL_FACE);
		offscreen.DoneCurrent();
	}
	offscreen.MakeCurrent();
	gl->glBindVertexArray(0);
	gl->glDeleteVertexArrays(1, &bare.m_nVAO);
	gl->glDeleteBuffers(1, &bare.m_nVBO);
	gl->glDeleteBuffers(1, &bare.m_nIBO);
	if (bare.m_nTexture)
		gl->glDeleteTextures(1, &bare.m_nTexture);
	gl->glDeleteProgram(bare.m_nProgram);
	offscreen.DoneCurrent();
	state.counters["triangles"] = (double)(bare.m_nIndexCount / 3) * (double)matrices.size();
}

BENCHMARK(BM_ToolSceneFrame)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_BareDrawLoop)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0)->Repetitions(5)->ReportAggregatesOnly(true);
} // namespace

int main(int argc, char **argv)
{
	QGuiApplication app(argc, argv);
	CUtlString error;
	if (!MakeBenchScene(error))
		fprintf(stderr, "toolscene_bench: %s\n", error.c_str());
	benchmark::Initialize(&argc, argv);
	benchmark::RunSpecifiedBenchmarks();
	delete s_pBench;
	s_pBench = nullptr;
	return 0;
}
