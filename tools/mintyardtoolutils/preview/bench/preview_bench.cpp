// Frame time of the import preview at 1280 x 720 offscreen: the sample hero (Bramble) with every
// slot's default wearable, bone-merged, its idle animation playing, the ground and grid drawn, as
// the preview page shows it; against a bare draw loop of the same triangles (the meshes the
// scene draws, in bind pose) with the scene's own shaders in the same context and framebuffer.
// The bare loop draws each mesh's ranges with their materials' textures and shader flags, as the
// scene would, but unskinned, without the scene's nodes, sorting or per-frame state. Each
// iteration is one frame, waited for with glFinish.
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
#include "testsupport/tool_host.h"
#include "toolframework/toolframework.h"
#include "toolscene/bench/barebench.h"
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
	CTestToolHost m_Host;
	std::unique_ptr<CZarnPreviewModelSet> m_pSet;
	std::unique_ptr<CZarnPreviewRenderer> m_pRenderer;
	bool m_bReady = false;
};
Bench_t *s_pBench = nullptr;
std::map<std::string, double> s_Medians;

bool MakeBench(const std::string &settings, CUtlString &error)
{
	s_pBench = new Bench_t;
	const std::string game = std::string(MINTYARD_SOURCE_DIR) + "/sample/game/zarn";
	if (!s_pBench->m_Host.Start(game, settings, &error))
		return false;
	ReloadGameData();
	if (!EnsureGameDataLoaded())
	{
		error = "the sample game data does not load";
		return false;
	}
	CToolSceneResources::Default().SetGameRoot(game.c_str());
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

// One draw of the bare loop: a range of a mesh with its material's textures and shader flags.
struct BareDraw_t
{
	GLsizei m_nIndexCount = 0;
	size_t m_nIndexOffset = 0; // bytes
	int m_nFlags = 0;
	GLuint m_Textures[3] = { 0, 0, 0 }; // colour, normal, translucency
	Vector4D m_vColor = Vector4D(1.0f, 1.0f, 1.0f, 1.0f);
};

// One mesh of the bare loop: its buffers, the world matrix of its node and its draws.
struct BareMesh_t
{
	GLuint m_nVAO = 0, m_nVBO = 0, m_nIBO = 0;
	GLenum m_eIndexType = GL_UNSIGNED_SHORT;
	float m_Model[16];
	float m_Normal[9];
	std::vector<BareDraw_t> m_Draws;
};

// The textures of the bare loop, uploaded once each as the scene uploads them by default:
// block-compressed ones as S3TC, sRGB ones decoded by the GL, YCoCg ones left to the shader.
class CBareTextures
{
public:
	explicit CBareTextures(QOpenGLFunctions_3_3_Core *gl) : m_pGL(gl) {}
	GLuint Get(const CToolSceneTexture *pTexture)
	{
		if (!pTexture)
			return 0;
		if (auto it = m_Textures.find(pTexture); it != m_Textures.end())
			return it->second;
		const CCompiledTexture &data = pTexture->GetData();
		const bool bSRGB = pTexture->IsSRGB() && !pTexture->IsYCoCg();
		GLuint texture = 0;
		m_pGL->glGenTextures(1, &texture);
		m_pGL->glActiveTexture(GL_TEXTURE0);
		m_pGL->glBindTexture(GL_TEXTURE_2D, texture);
		for (size_t level = 0; level < data.m_Mips.size(); ++level)
		{
			const CompiledMip_t &mip = data.m_Mips[level];
			if (data.m_eFormat == COMPILED_TEXTURE_RGBA8)
				m_pGL->glTexImage2D(GL_TEXTURE_2D, (GLint)level, bSRGB ? GL_SRGB8_ALPHA8 : GL_RGBA8, (GLsizei)mip.m_nWidth, (GLsizei)mip.m_nHeight, 0, GL_RGBA,
					GL_UNSIGNED_BYTE, mip.m_Data.data());
			else
			{
				const GLenum format = data.m_eFormat == COMPILED_TEXTURE_BC1 ? (bSRGB ? 0x8C4C : 0x83F1) : (bSRGB ? 0x8C4F : 0x83F3);
				m_pGL->glCompressedTexImage2D(GL_TEXTURE_2D, (GLint)level, format, (GLsizei)mip.m_nWidth, (GLsizei)mip.m_nHeight, 0,
					(GLsizei)mip.m_Data.size(), mip.m_Data.data());
			}
		}
		m_pGL->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, data.m_Mips.empty() ? 0 : (GLint)data.m_Mips.size() - 1);
		m_pGL->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
		m_pGL->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
		m_Textures[pTexture] = texture;
		return texture;
	}
	GLuint White()
	{
		if (!m_nWhite)
		{
			const uint8 white[4] = { 255, 255, 255, 255 };
			m_pGL->glGenTextures(1, &m_nWhite);
			m_pGL->glBindTexture(GL_TEXTURE_2D, m_nWhite);
			m_pGL->glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, 1, 1, 0, GL_RGBA, GL_UNSIGNED_BYTE, white);
			m_pGL->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
			m_pGL->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
		}
		return m_nWhite;
	}
	void Free()
	{
		for (auto &entry : m_Textures)
			m_pGL->glDeleteTextures(1, &entry.second);
		m_Textures.clear();
		if (m_nWhite)
			m_pGL->glDeleteTextures(1, &m_nWhite);
		m_nWhite = 0;
	}

private:
	QOpenGLFunctions_3_3_Core *m_pGL;
	std::map<const CToolSceneTexture *, GLuint> m_Textures;
	GLuint m_nWhite = 0;
};

// The meshes the scene draws (current LOD and body groups) of every visible model node, in bind
// pose, each draw with its material's textures and the flags the scene gives them.
void MakeBareMeshes(QOpenGLFunctions_3_3_Core *gl, CBareTextures &textures, std::vector<BareMesh_t> &out)
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
			const bool bTangents = mesh.m_Tangents.size() == vertices;
			const size_t tangentOffset = vertices * sizeof(Vector) * 2;
			const size_t texCoordOffset = tangentOffset + (bTangents ? vertices * sizeof(CompiledTangent_t) : 0);
			std::vector<uint8> bytes(texCoordOffset + vertices * sizeof(CompiledTexCoord_t));
			memcpy(bytes.data(), mesh.m_Positions.data(), vertices * sizeof(Vector));
			memcpy(bytes.data() + vertices * sizeof(Vector), mesh.m_Normals.data(), vertices * sizeof(Vector));
			if (bTangents)
				memcpy(bytes.data() + tangentOffset, mesh.m_Tangents.data(), vertices * sizeof(CompiledTangent_t));
			if (mesh.m_TexCoords.size() == vertices)
				memcpy(bytes.data() + texCoordOffset, mesh.m_TexCoords.data(), vertices * sizeof(CompiledTexCoord_t));
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
			if (bTangents)
			{
				gl->glEnableVertexAttribArray(2);
				gl->glVertexAttribPointer(2, 4, GL_FLOAT, GL_FALSE, 0, (const void *)tangentOffset);
			}
			gl->glEnableVertexAttribArray(3);
			gl->glVertexAttribPointer(3, 2, GL_FLOAT, GL_FALSE, 0, (const void *)texCoordOffset);
			gl->glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, bare.m_nIBO);
			if (mesh.IndexSize() == 2)
				gl->glBufferData(GL_ELEMENT_ARRAY_BUFFER, (GLsizeiptr)(mesh.m_Indices16.size() * 2), mesh.m_Indices16.data(), GL_STATIC_DRAW);
			else
				gl->glBufferData(GL_ELEMENT_ARRAY_BUFFER, (GLsizeiptr)(mesh.m_Indices32.size() * 4), mesh.m_Indices32.data(), GL_STATIC_DRAW);
			bare.m_eIndexType = mesh.IndexSize() == 2 ? GL_UNSIGNED_SHORT : GL_UNSIGNED_INT;
			gl->glBindVertexArray(0);
			for (const CompiledDrawCall_t &call : mesh.m_DrawCalls)
			{
				BareDraw_t draw;
				draw.m_nIndexCount = (GLsizei)call.m_nIndexCount;
				draw.m_nIndexOffset = (size_t)call.m_nFirstIndex * mesh.IndexSize();
				const CToolSceneMaterial *pMaterial = pNode->GetModelResource()->GetMaterial((int)call.m_nMaterial);
				if (pMaterial)
				{
					if (const CToolSceneTexture *pColor = pMaterial->GetColorTexture())
					{
						draw.m_nFlags |= SHADER_FLAG_COLOR_TEXTURE;
						if (pColor->IsYCoCg())
							draw.m_nFlags |= SHADER_FLAG_YCOCG | (pColor->IsSRGB() ? SHADER_FLAG_DECODE_SRGB : 0);
						draw.m_Textures[0] = textures.Get(pColor);
					}
					else
						draw.m_vColor = pMaterial->GetColorConstant();
					if (bTangents && pMaterial->GetNormalTexture())
					{
						draw.m_nFlags |= SHADER_FLAG_NORMAL_MAP;
						draw.m_Textures[1] = textures.Get(pMaterial->GetNormalTexture());
					}
					if (pMaterial->GetTranslucencyTexture())
					{
						draw.m_nFlags |= SHADER_FLAG_TRANSLUCENCY;
						draw.m_Textures[2] = textures.Get(pMaterial->GetTranslucencyTexture());
					}
					if (pMaterial->IsAlphaTested())
						draw.m_nFlags |= SHADER_FLAG_ALPHA_TEST;
				}
				for (GLuint &texture : draw.m_Textures)
				{
					if (!texture)
						texture = textures.White();
				}
				bare.m_Draws.push_back(draw);
			}
			const SceneMatrix_t world = pNode->GetWorldTransform();
			BareBench_ColumnMajor(world, bare.m_Model);
			for (int c = 0; c < 3; ++c)
			{
				for (int r = 0; r < 3; ++r)
					bare.m_Normal[c * 3 + r] = world.m[r][c];
			}
			out.push_back(std::move(bare));
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
	const GLuint program = BareBench_BuildProgram(gl, vertex.c_str(), g_pszModelFragmentShader);
	if (!program)
	{
		state.SkipWithError("the scene's program does not link here");
		offscreen.DoneCurrent();
		return;
	}
	CBareTextures textures(gl);
	std::vector<BareMesh_t> meshes;
	MakeBareMeshes(gl, textures, meshes);
	gl->glUseProgram(program);
	auto uniform = [&](const char *pszName) { return gl->glGetUniformLocation(program, pszName); };
	float viewProjection[16];
	CToolSceneCamera &camera = s_pBench->m_pRenderer->Scene().Camera();
	BareBench_ColumnMajor(camera.GetViewProjectionMatrix((float)WIDTH / (float)HEIGHT), viewProjection);
	gl->glUniformMatrix4fv(uniform("uViewProjection"), 1, GL_FALSE, viewProjection);
	BareBench_SetShadingUniforms(gl, program, camera.GetPosition());
	const GLint modelUniform = uniform("uModel"), normalUniform = uniform("uNormalMatrix");
	const GLint flagsUniform = uniform("uFlags"), colorUniform = uniform("uColor");
	offscreen.DoneCurrent();

	double triangles = 0.0, draws = 0.0;
	for (const BareMesh_t &mesh : meshes)
	{
		for (const BareDraw_t &draw : mesh.m_Draws)
		{
			triangles += (double)(draw.m_nIndexCount / 3);
			draws += 1.0;
		}
	}
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
		for (const BareMesh_t &mesh : meshes)
		{
			gl->glBindVertexArray(mesh.m_nVAO);
			gl->glUniformMatrix4fv(modelUniform, 1, GL_FALSE, mesh.m_Model);
			gl->glUniformMatrix3fv(normalUniform, 1, GL_FALSE, mesh.m_Normal);
			for (const BareDraw_t &draw : mesh.m_Draws)
			{
				for (int unit = 0; unit < 3; ++unit)
				{
					gl->glActiveTexture(GL_TEXTURE0 + unit);
					gl->glBindTexture(GL_TEXTURE_2D, draw.m_Textures[unit]);
				}
				gl->glUniform1i(flagsUniform, draw.m_nFlags);
				gl->glUniform4f(colorUniform, draw.m_vColor.x, draw.m_vColor.y, draw.m_vColor.z, draw.m_vColor.w);
				gl->glDrawElements(GL_TRIANGLES, draw.m_nIndexCount, mesh.m_eIndexType, (const void *)draw.m_nIndexOffset);
			}
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
	textures.Free();
	gl->glDeleteProgram(program);
	offscreen.DoneCurrent();
	state.counters["triangles"] = triangles;
	state.counters["draws"] = draws;
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
