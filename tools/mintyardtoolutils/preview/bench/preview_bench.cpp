// Frame time of the import preview at 1280 x 720 offscreen: the sample hero (Bramble) with every
// slot's default wearable, bone-merged, its idle animation playing, the ground and grid drawn, as
// the preview page shows it; against a bare draw loop of the same triangles (the meshes the
// scene draws, in bind pose) with the scene's own shaders in the same context and framebuffer.
// Each iteration is one frame, waited for with glFinish.
//
//   platform/testsupport/run-with-display.sh build/bench/preview_bench
//
// Quote the medians: BM_PreviewFrame/0 (the page's picture, with the ground and grid) and /1 (the
// models alone) against BM_PreviewBareLoop; the ratios are printed at the end.
#include <benchmark/benchmark.h>

#include <QGuiApplication>
#include <QOpenGLFramebufferObject>
#include <QOpenGLFunctions_3_3_Core>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "filesystem/filesystem.h"
#include "mintyardtoolutils/core/gamedata.h"
#include "mintyardtoolutils/preview/previewmodelset.h"
#include "mintyardtoolutils/preview/previewrender.h"
#include "mintyardtoolutils/preview/previewscene.h"
#include "toolframework/toolframework.h"
#include "toolscene/sceneoffscreen.h"
#include "toolscene/sceneresources.h"
#include "toolscene/sceneshaders.h"
#include "toolscene/toolscene.h"

namespace
{
constexpr int WIDTH = 1280;
constexpr int HEIGHT = 720;
const char *const HERO = "npc_zarn_hero_bramble";
const char *const HEAD = "models/heroes/bramble/bramble_head.zmdl";

struct Bench_t
{
	CToolFrameworkHost m_Host;
	std::unique_ptr<CZarnPreviewModelSet> m_pSet;
	std::unique_ptr<CZarnPreviewRenderer> m_pRenderer;
	bool m_bReady = false;
};
Bench_t *s_pBench = nullptr;
std::map<std::string, double> s_Medians;

bool MakeBench(const std::string &settings, CUtlString &error)
{
	s_pBench = new Bench_t;
	ToolFrameworkConfig_t config;
	config.m_GameDirectory = std::string(MINTYARD_SOURCE_DIR) + "/sample/game/zarn";
	config.m_SettingsFolder = settings;
	if (!s_pBench->m_Host.Init(config, &error))
		return false;
	g_pFullFileSystem = s_pBench->m_Host.FileSystem();
	g_pToolFramework = s_pBench->m_Host.Framework();
	ReloadGameData();
	if (!EnsureGameDataLoaded())
	{
		error = "the sample game data does not load";
		return false;
	}
	CToolSceneResources::Default().SetGameRoot(config.m_GameDirectory.c_str());
	const int nHero = GetHeroTable().FindHeroIndex(HERO);
	const hero_t *pHero = nHero >= 0 ? GetHeroTable().GetHero(nHero) : nullptr;
	if (!pHero)
	{
		error = "the sample has no hero " + CUtlString(HERO);
		return false;
	}
	s_pBench->m_pSet = std::make_unique<CZarnPreviewModelSet>();
	s_pBench->m_pSet->SetPreviewMode(ZARN_PREVIEW_MODE_HERO);
	if (!s_pBench->m_pSet->SetModel(HEAD, nHero, pHero->FindSlot("head")))
	{
		error = "no compiled model at " + CUtlString(HEAD);
		return false;
	}
	s_pBench->m_pSet->SetSequence("idle");
	s_pBench->m_pRenderer = std::make_unique<CZarnPreviewRenderer>();
	if (!s_pBench->m_pRenderer->Init(&error))
		return false;
	s_pBench->m_pRenderer->ShowSet(*s_pBench->m_pSet);
	QImage first;
	ZarnPreviewRenderView_t view;
	view.m_nWidth = WIDTH;
	view.m_nHeight = HEIGHT;
	if (!s_pBench->m_pRenderer->Render(view, first, &error))
		return false;
	s_pBench->m_bReady = true;
	return true;
}

void BM_PreviewFrame(benchmark::State &state)
{
	if (!s_pBench || !s_pBench->m_bReady)
	{
		state.SkipWithError("no preview");
		return;
	}
	CZarnPreviewRenderer &renderer = *s_pBench->m_pRenderer;
	// Argument 0: as the page shows it, with the ground and its grid; 1: the models alone, the
	// triangles of the bare loop.
	const bool bGround = state.range(0) == 0;
	renderer.Scene().SetGroundEnabled(bGround);
	renderer.Scene().SetGridEnabled(bGround);
	CUtlString error;
	for (auto _ : state)
	{
		renderer.Advance(1.0f / 30.0f);
		if (!renderer.RenderFrame(WIDTH, HEIGHT, &error))
		{
			state.SkipWithError(error.c_str());
			return;
		}
	}
	const ToolSceneRenderStats_t &stats = renderer.Offscreen().Renderer().GetStats();
	state.counters["triangles"] = (double)stats.m_nTriangles;
	state.counters["draws"] = stats.m_nDrawCalls;
	state.counters["skinned"] = stats.m_nSkinnedNodes;
	renderer.Scene().SetGroundEnabled(true);
	renderer.Scene().SetGridEnabled(true);
}

GLuint BuildProgram(QOpenGLFunctions_3_3_Core *gl, const char *pszVertex, const char *pszFragment)
{
	const char *sources[2] = { pszVertex, pszFragment };
	const GLenum types[2] = { GL_VERTEX_SHADER, GL_FRAGMENT_SHADER };
	const GLuint program = gl->glCreateProgram();
	for (int s = 0; s < 2; ++s)
	{
		const GLuint shader = gl->glCreateShader(types[s]);
		gl->glShaderSource(shader, 1, &sources[s], nullptr);
		gl->glCompileShader(shader);
		gl->glAttachShader(program, shader);
		gl->glDeleteShader(shader);
	}
	gl->glLinkProgram(program);
	GLint linked = 0;
	gl->glGetProgramiv(program, GL_LINK_STATUS, &linked);
	if (!linked)
	{
		gl->glDeleteProgram(program);
		return 0;
	}
	return program;
}

void ColumnMajor(const SceneMatrix_t &m, float out[16])
{
	for (int c = 0; c < 4; ++c)
	{
		for (int r = 0; r < 4; ++r)
			out[c * 4 + r] = m.m[r][c];
	}
}

// One mesh of the bare loop: its buffers and the world matrix of its node.
struct BareMesh_t
{
	GLuint m_nVAO = 0, m_nVBO = 0, m_nIBO = 0;
	GLsizei m_nIndexCount = 0;
	GLenum m_eIndexType = GL_UNSIGNED_SHORT;
	float m_Model[16];
	float m_Normal[9];
};

// The meshes the scene draws (current LOD and body groups) of every visible model node.
void MakeBareMeshes(QOpenGLFunctions_3_3_Core *gl, std::vector<BareMesh_t> &out)
{
	CToolScene &scene = s_pBench->m_pRenderer->Scene();
	for (int n = 0; n < scene.GetNodeCount(); ++n)
	{
		CToolSceneNode *pBase = scene.GetNode(n);
		if (pBase->GetType() != TOOLSCENE_NODE_MODEL || !pBase->IsVisible())
			continue;
		const CToolSceneModelNode *pNode = static_cast<const CToolSceneModelNode *>(pBase);
		if (!pNode->HasModel())
			continue;
		const CCompiledModel *pModel = pNode->GetCompiledModel();
		for (size_t m = 0; m < pModel->m_Meshes.size(); ++m)
		{
			if (!pNode->IsMeshDrawn((int)m))
				continue;
			const CompiledMesh_t &mesh = pModel->m_Meshes[m];
			BareMesh_t bare;
			const size_t vertices = mesh.VertexCount();
			std::vector<uint8> bytes(vertices * (sizeof(Vector) * 2 + sizeof(CompiledTexCoord_t)));
			memcpy(bytes.data(), mesh.m_Positions.data(), vertices * sizeof(Vector));
			memcpy(bytes.data() + vertices * sizeof(Vector), mesh.m_Normals.data(), vertices * sizeof(Vector));
			if (mesh.m_TexCoords.size() == vertices)
				memcpy(bytes.data() + vertices * sizeof(Vector) * 2, mesh.m_TexCoords.data(), vertices * sizeof(CompiledTexCoord_t));
			gl->glGenVertexArrays(1, &bare.m_nVAO);
			gl->glGenBuffers(1, &bare.m_nVBO);
			gl->glGenBuffers(1, &bare.m_nIBO);
			gl->glBindVertexArray(bare.m_nVAO);
			gl->glBindBuffer(GL_ARRAY_BUFFER, bare.m_nVBO);
			gl->glBufferData(GL_ARRAY_BUFFER, (GLsizeiptr)bytes.size(), bytes.data(), GL_STATIC_DRAW);
			gl->glEnableVertexAttribArray(0);
			gl->glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, 0, nullptr);
			gl->glEnableVertexAttribArray(1);
			gl->glVertexAttribPointer(1, 3, GL_FLOAT, GL_FALSE, 0, (const void *)(vertices * sizeof(Vector)));
			gl->glEnableVertexAttribArray(3);
			gl->glVertexAttribPointer(3, 2, GL_FLOAT, GL_FALSE, 0, (const void *)(vertices * sizeof(Vector) * 2));
			gl->glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, bare.m_nIBO);
			if (mesh.IndexSize() == 2)
				gl->glBufferData(GL_ELEMENT_ARRAY_BUFFER, (GLsizeiptr)(mesh.m_Indices16.size() * 2), mesh.m_Indices16.data(), GL_STATIC_DRAW);
			else
				gl->glBufferData(GL_ELEMENT_ARRAY_BUFFER, (GLsizeiptr)(mesh.m_Indices32.size() * 4), mesh.m_Indices32.data(), GL_STATIC_DRAW);
			bare.m_eIndexType = mesh.IndexSize() == 2 ? GL_UNSIGNED_SHORT : GL_UNSIGNED_INT;
			bare.m_nIndexCount = (GLsizei)mesh.IndexCount();
			gl->glBindVertexArray(0);
			const SceneMatrix_t world = pNode->GetWorldTransform();
			ColumnMajor(world, bare.m_Model);
			for (int c = 0; c < 3; ++c)
			{
				for (int r = 0; r < 3; ++r)
					bare.m_Normal[c * 3 + r] = world.m[r][c];
			}
			out.push_back(bare);
		}
	}
}

void BM_PreviewBareLoop(benchmark::State &state)
{
	if (!s_pBench || !s_pBench->m_bReady)
	{
		state.SkipWithError("no preview");
		return;
	}
	CToolSceneOffscreenRenderer &offscreen = s_pBench->m_pRenderer->Offscreen();
	if (!offscreen.MakeCurrent())
	{
		state.SkipWithError("cannot make the context current");
		return;
	}
	QOpenGLFunctions_3_3_Core *gl = offscreen.Renderer().GL();
	const std::string vertex = SceneShader_ModelVertexSource(true);
	const GLuint program = BuildProgram(gl, vertex.c_str(), g_pszModelFragmentShader);
	if (!program)
	{
		state.SkipWithError("the scene's program does not link here");
		offscreen.DoneCurrent();
		return;
	}
	std::vector<BareMesh_t> meshes;
	MakeBareMeshes(gl, meshes);
	// One plain texture for every mesh, as the scene's first texture unit has one.
	GLuint texture = 0;
	{
		std::vector<uint8> pixels(64 * 64 * 4, 180);
		gl->glGenTextures(1, &texture);
		gl->glActiveTexture(GL_TEXTURE0);
		gl->glBindTexture(GL_TEXTURE_2D, texture);
		gl->glTexImage2D(GL_TEXTURE_2D, 0, GL_SRGB8_ALPHA8, 64, 64, 0, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
		gl->glGenerateMipmap(GL_TEXTURE_2D);
		gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
		gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
	}
	gl->glUseProgram(program);
	auto uniform = [&](const char *pszName) { return gl->glGetUniformLocation(program, pszName); };
	float viewProjection[16];
	CToolSceneCamera &camera = s_pBench->m_pRenderer->Scene().Camera();
	ColumnMajor(camera.GetViewProjectionMatrix((float)WIDTH / (float)HEIGHT), viewProjection);
	gl->glUniformMatrix4fv(uniform("uViewProjection"), 1, GL_FALSE, viewProjection);
	gl->glUniform1i(uniform("uColorTexture"), 0);
	gl->glUniform1i(uniform("uNormalTexture"), 1);
	gl->glUniform1i(uniform("uTranslucencyTexture"), 2);
	gl->glUniform1i(uniform("uBones"), 3);
	gl->glUniform1i(uniform("uFlags"), SHADER_FLAG_COLOR_TEXTURE);
	gl->glUniform1i(uniform("uSkinned"), 0);
	gl->glUniform4f(uniform("uColor"), 1.0f, 1.0f, 1.0f, 1.0f);
	gl->glUniform4f(uniform("uTint"), 1.0f, 1.0f, 1.0f, 0.0f);
	const Vector eye = camera.GetPosition();
	gl->glUniform3f(uniform("uEyePosition"), eye.x, eye.y, eye.z);
	gl->glUniform3f(uniform("uLightDirection"), -0.5f, 0.6f, -0.62f);
	gl->glUniform3f(uniform("uLightColor"), 1.0f, 0.95f, 0.9f);
	gl->glUniform3f(uniform("uAmbientColor"), 0.1f, 0.12f, 0.15f);
	gl->glUniform3f(uniform("uAmbientDirection"), 0.0f, 0.0f, 0.0f);
	gl->glUniform3f(uniform("uSpecularColor"), 0.05f, 0.05f, 0.05f);
	gl->glUniform1f(uniform("uSpecularPower"), 16.0f);
	const GLint modelUniform = uniform("uModel"), normalUniform = uniform("uNormalMatrix");
	offscreen.DoneCurrent();

	double triangles = 0.0;
	for (const BareMesh_t &mesh : meshes)
		triangles += (double)(mesh.m_nIndexCount / 3);
	for (auto _ : state)
	{
		offscreen.MakeCurrent();
		gl->glBindFramebuffer(GL_FRAMEBUFFER, offscreen.Framebuffer()->handle());
		gl->glViewport(0, 0, WIDTH, HEIGHT);
		gl->glClearColor(0.2f, 0.2f, 0.25f, 1.0f);
		gl->glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
		gl->glEnable(GL_DEPTH_TEST);
		gl->glEnable(GL_CULL_FACE);
		gl->glCullFace(GL_BACK);
		gl->glFrontFace(GL_CCW);
		gl->glUseProgram(program);
		gl->glActiveTexture(GL_TEXTURE0);
		gl->glBindTexture(GL_TEXTURE_2D, texture);
		for (const BareMesh_t &mesh : meshes)
		{
			gl->glBindVertexArray(mesh.m_nVAO);
			gl->glUniformMatrix4fv(modelUniform, 1, GL_FALSE, mesh.m_Model);
			gl->glUniformMatrix3fv(normalUniform, 1, GL_FALSE, mesh.m_Normal);
			gl->glDrawElements(GL_TRIANGLES, mesh.m_nIndexCount, mesh.m_eIndexType, nullptr);
		}
		gl->glFinish();
		gl->glDisable(GL_CULL_FACE);
		gl->glBindVertexArray(0);
		offscreen.DoneCurrent();
	}
	offscreen.MakeCurrent();
	for (BareMesh_t &mesh : meshes)
	{
		gl->glDeleteVertexArrays(1, &mesh.m_nVAO);
		gl->glDeleteBuffers(1, &mesh.m_nVBO);
		gl->glDeleteBuffers(1, &mesh.m_nIBO);
	}
	gl->glDeleteTextures(1, &texture);
	gl->glDeleteProgram(program);
	offscreen.DoneCurrent();
	state.counters["triangles"] = triangles;
	state.counters["draws"] = (double)meshes.size();
}

BENCHMARK(BM_PreviewFrame)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_PreviewBareLoop)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0)->Repetitions(5)->ReportAggregatesOnly(true);

// Keeps the medians to print their ratio at the end.
class CMedianReporter : public benchmark::ConsoleReporter
{
public:
	void ReportRuns(const std::vector<Run> &runs) override
	{
		for (const Run &run : runs)
		{
			if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median")
				s_Medians[run.run_name.function_name + (run.run_name.args.empty() ? "" : "/" + run.run_name.args)] = run.GetAdjustedRealTime();
		}
		ConsoleReporter::ReportRuns(runs);
	}
};
} // namespace

int main(int argc, char **argv)
{
	QGuiApplication app(argc, argv);
	char pattern[] = "/tmp/mintyard_preview_bench_XXXXXX";
	const std::string settings = mkdtemp(pattern) ? pattern : "/tmp/mintyard_preview_bench";
	CUtlString error;
	if (!MakeBench(settings, error))
		fprintf(stderr, "preview_bench: %s\n", error.c_str());
	benchmark::Initialize(&argc, argv);
	CMedianReporter reporter;
	benchmark::RunSpecifiedBenchmarks(&reporter);
	const double flBare = s_Medians.count("BM_PreviewBareLoop") ? s_Medians["BM_PreviewBareLoop"] : 0.0;
	for (const char *pszFrame : { "BM_PreviewFrame/0", "BM_PreviewFrame/1" })
	{
		if (s_Medians.count(pszFrame) && flBare > 0.0)
			printf("%s (%s) median %.2f ms, bare loop median %.2f ms, ratio %.2f\n", pszFrame,
				pszFrame[16] == '0' ? "with ground and grid" : "models alone", s_Medians[pszFrame], flBare, s_Medians[pszFrame] / flBare);
	}
	delete s_pBench;
	s_pBench = nullptr;
	g_pFullFileSystem = nullptr;
	g_pToolFramework = nullptr;
	std::error_code ignored;
	std::filesystem::remove_all(settings, ignored);
	return 0;
}
