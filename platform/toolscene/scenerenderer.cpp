#include "toolscene/scenerenderer.h"

#include <QOpenGLContext>
#include <QOpenGLFunctions_3_3_Core>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "core/strtools.h"
#include "imaging/blockcompress.h"
#include "toolscene/scenegizmo.h"
#include "toolscene/sceneshaders.h"

namespace
{
// The S3TC formats (EXT_texture_compression_s3tc, EXT_texture_sRGB).
constexpr GLenum FORMAT_RGB_DXT1 = 0x83F0;
constexpr GLenum FORMAT_RGBA_DXT5 = 0x83F3;
constexpr GLenum FORMAT_SRGB_DXT1 = 0x8C4C;
constexpr GLenum FORMAT_SRGB_ALPHA_DXT5 = 0x8C4F;

// Unused GPU copies are freed after this many frames without a draw.
constexpr uint64 PURGE_AFTER_FRAMES = 120;

constexpr int UNIT_COLOR = 0;
constexpr int UNIT_NORMAL = 1;
constexpr int UNIT_TRANSLUCENCY = 2;
constexpr int UNIT_BONES = 3;
constexpr GLuint BONE_BLOCK_BINDING = 0;

constexpr float GIZMO_LINE_WIDTH = 3.0f;
constexpr float GRID_LINE_WIDTH = 1.0f;
constexpr float FRUSTUM_LINE_WIDTH = 1.5f;
constexpr float SELECTION_LINE_WIDTH = 1.5f;

float SRGBToLinear(float c)
{
	c = std::clamp(c, 0.0f, 1.0f);
	return c <= 0.04045f ? c / 12.92f : std::pow((c + 0.055f) / 1.055f, 2.4f);
}

Vector SRGBToLinear(const Vector &c)
{
	return Vector(SRGBToLinear(c.x), SRGBToLinear(c.y), SRGBToLinear(c.z));
}

// Column-major floats of a matrix for glUniformMatrix4fv with transpose GL_FALSE.
void ToColumnMajor(const SceneMatrix_t &m, float out[16])
{
	for (int c = 0; c < 4; ++c)
	{
		for (int r = 0; r < 4; ++r)
			out[c * 4 + r] = m.m[r][c];
	}
}

// The inverse transpose of the upper 3x3 (normals under non-uniform scale), column-major.
void NormalMatrix(const SceneMatrix_t &m, float out[9])
{
	const float a = m.m[0][0], b = m.m[0][1], c = m.m[0][2];
	const float d = m.m[1][0], e = m.m[1][1], f = m.m[1][2];
	const float g = m.m[2][0], h = m.m[2][1], i = m.m[2][2];
	const float cofactor[3][3] = { { e * i - f * h, f * g - d * i, d * h - e * g }, { c * h - b * i, a * i - c * g, b * g - a * h },
		{ b * f - c * e, c * d - a * f, a * e - b * d } };
	const float determinant = a * cofactor[0][0] + b * cofactor[0][1] + c * cofactor[0][2];
	const float scale = std::fabs(determinant) > 1e-20f ? 1.0f / determinant : 1.0f;
	// The inverse transpose is the cofactor matrix over the determinant.
	for (int col = 0; col < 3; ++col)
	{
		for (int row = 0; row < 3; ++row)
			out[col * 3 + row] = cofactor[row][col] * scale;
	}
}
} // namespace

struct CToolSceneRenderer::Program_t
{
	GLuint m_nProgram = 0;
	std::unordered_map<std::string, GLint> m_Uniforms;
};

struct CToolSceneRenderer::GpuMesh_t
{
	GLuint m_nVAO = 0;
	GLuint m_nVBO = 0;
	GLuint m_nIBO = 0;
	GLenum m_eIndexType = GL_UNSIGNED_SHORT;
	uint32 m_nIndexSize = 2;
	bool m_bSkinned = false;
	bool m_bTangents = false;
};

// Each GPU copy frees its own objects (0 names are ignored by the GL).
struct CToolSceneRenderer::GpuModel_t
{
	std::vector<GpuMesh_t> m_Meshes;
	uint64 m_nLastFrame = 0;
	void Free(QOpenGLFunctions_3_3_Core *gl)
	{
		for (GpuMesh_t &mesh : m_Meshes)
		{
			gl->glDeleteVertexArrays(1, &mesh.m_nVAO);
			gl->glDeleteBuffers(1, &mesh.m_nVBO);
			gl->glDeleteBuffers(1, &mesh.m_nIBO);
		}
	}
};

struct CToolSceneRenderer::GpuTexture_t
{
	GLuint m_nTexture = 0;
	uint64 m_nLastFrame = 0;
	void Free(QOpenGLFunctions_3_3_Core *gl) { gl->glDeleteTextures(1, &m_nTexture); }
};

struct CToolSceneRenderer::GpuNode_t
{
	GLuint m_nBuffer = 0;  // the bone rows: a uniform buffer, or the storage of the texture
	GLuint m_nTexture = 0; // the texture buffer over it (large skeletons only)
	size_t m_nCapacity = 0;
	uint64 m_nLastFrame = 0;
	void Free(QOpenGLFunctions_3_3_Core *gl)
	{
		gl->glDeleteTextures(1, &m_nTexture);
		gl->glDeleteBuffers(1, &m_nBuffer);
	}
};

struct CToolSceneRenderer::GpuBitmap_t
{
	GLuint m_nTexture = 0;
	uint64 m_nVersion = 0;
	uint64 m_nLastFrame = 0;
	void Free(QOpenGLFunctions_3_3_Core *gl) { gl->glDeleteTextures(1, &m_nTexture); }
};

namespace
{
// Frees and forgets the GPU copies that `bDrop` picks.
template<typename Map, typename Predicate>
void FreeWhere(QOpenGLFunctions_3_3_Core *gl, Map &map, Predicate bDrop)
{
	for (auto it = map.begin(); it != map.end();)
	{
		if (!bDrop(*it->second))
		{
			++it;
			continue;
		}
		it->second->Free(gl);
		it = map.erase(it);
	}
}
} // namespace

struct CToolSceneRenderer::LineVertex_t
{
	float m_Position[3];
	uint8 m_Color[4];
};

struct CToolSceneRenderer::LineBatch_t
{
	float m_flWidth = 1.0f;
	bool m_bDepthTest = true;
	std::vector<LineVertex_t> m_Vertices;
};

struct CToolSceneRenderer::DrawItem_t
{
	const GpuMesh_t *m_pMesh = nullptr;
	const CToolSceneMaterial *m_pMaterial = nullptr;
	GLuint m_nBones = 0;		 // uniform buffer, or texture buffer with m_bBufferBones
	bool m_bBufferBones = false; // a skeleton too large for the uniform block
	float m_Model[16];
	float m_Normal[9];
	uint32 m_nFirstIndex = 0;
	uint32 m_nIndexCount = 0;
	Vector4D m_vTint;
	float m_flDepth = 0.0f;
};

CToolSceneRenderer::CToolSceneRenderer() = default;

CToolSceneRenderer::~CToolSceneRenderer()
{
	// The owner shuts the renderer down with its context current; nothing GL can be done here.
}

static GLint Uniform(QOpenGLFunctions_3_3_Core *gl, std::unordered_map<std::string, GLint> &cache, GLuint program, const char *pszName)
{
	auto it = cache.find(pszName);
	if (it != cache.end())
		return it->second;
	const GLint location = gl->glGetUniformLocation(program, pszName);
	cache.emplace(pszName, location);
	return location;
}

#define UNIFORM(program, name) Uniform(m_pGL, (program).m_Uniforms, (program).m_nProgram, name)

bool CToolSceneRenderer::BuildProgram(Program_t &program, const char *pszVertex, const char *pszGeometry, const char *pszFragment,
	const char *pszName, CUtlString *pError)
{
	QOpenGLFunctions_3_3_Core *gl = m_pGL;
	GLuint shaders[3] = {};
	const char *sources[3] = { pszVertex, pszGeometry, pszFragment };
	const GLenum types[3] = { GL_VERTEX_SHADER, GL_GEOMETRY_SHADER, GL_FRAGMENT_SHADER };
	const char *typeNames[3] = { "vertex", "geometry", "fragment" };
	bool bOk = true;
	program.m_nProgram = gl->glCreateProgram();
	for (int s = 0; s < 3 && bOk; ++s)
	{
		if (!sources[s])
			continue;
		shaders[s] = gl->glCreateShader(types[s]);
		gl->glShaderSource(shaders[s], 1, &sources[s], nullptr);
		gl->glCompileShader(shaders[s]);
		GLint status = 0;
		gl->glGetShaderiv(shaders[s], GL_COMPILE_STATUS, &status);
		if (!status)
		{
			char log[2048] = {};
			gl->glGetShaderInfoLog(shaders[s], (GLsizei)sizeof(log) - 1, nullptr, log);
			if (pError)
				*pError = V_Format("the %s shader of the %s program does not compile: %s", typeNames[s], pszName, log);
			bOk = false;
			break;
		}
		gl->glAttachShader(program.m_nProgram, shaders[s]);
	}
	if (bOk)
	{
		gl->glLinkProgram(program.m_nProgram);
		GLint status = 0;
		gl->glGetProgramiv(program.m_nProgram, GL_LINK_STATUS, &status);
		if (!status)
		{
			char log[2048] = {};
			gl->glGetProgramInfoLog(program.m_nProgram, (GLsizei)sizeof(log) - 1, nullptr, log);
			if (pError)
				*pError = V_Format("the %s program does not link: %s", pszName, log);
			bOk = false;
		}
	}
	for (GLuint shader : shaders)
	{
		if (shader)
			gl->glDeleteShader(shader);
	}
	if (!bOk)
	{
		gl->glDeleteProgram(program.m_nProgram);
		program.m_nProgram = 0;
	}
	return bOk;
}

bool CToolSceneRenderer::Init(CUtlString *pError)
{
	if (m_pGL)
		return true;
	QOpenGLContext *pContext = QOpenGLContext::currentContext();
	if (!pContext)
	{
		if (pError)
			*pError = "no OpenGL context is current";
		return false;
	}
	const QSurfaceFormat format = pContext->format();
	if (format.majorVersion() * 10 + format.minorVersion() < 33)
	{
		if (pError)
			*pError = V_Format("OpenGL 3.3 is needed; the context gives %d.%d", format.majorVersion(), format.minorVersion());
		return false;
	}
	QOpenGLFunctions_3_3_Core *gl = pContext->versionFunctions<QOpenGLFunctions_3_3_Core>();
	if (!gl || !gl->initializeOpenGLFunctions())
	{
		if (pError)
			*pError = "the context has no OpenGL 3.3 core functions";
		return false;
	}
	m_pGL = gl;
	m_bS3TC = pContext->hasExtension("GL_EXT_texture_compression_s3tc");
	m_bS3TCSRGB = m_bS3TC && (pContext->hasExtension("GL_EXT_texture_sRGB") || pContext->hasExtension("GL_EXT_texture_compression_s3tc_srgb"));

	m_pModelProgram = std::make_unique<Program_t>();
	m_pModelBufferProgram = std::make_unique<Program_t>();
	m_pLineProgram = std::make_unique<Program_t>();
	m_pColorProgram = std::make_unique<Program_t>();
	m_pScreenProgram = std::make_unique<Program_t>();
	const std::string modelVertex = SceneShader_ModelVertexSource(false);
	const std::string modelBufferVertex = SceneShader_ModelVertexSource(true);
	if (!BuildProgram(*m_pModelProgram, modelVertex.c_str(), nullptr, g_pszModelFragmentShader, "model", pError) ||
		!BuildProgram(*m_pModelBufferProgram, modelBufferVertex.c_str(), nullptr, g_pszModelFragmentShader, "large skeleton model", pError) ||
		!BuildProgram(*m_pLineProgram, g_pszColorVertexShader, g_pszLineGeometryShader, g_pszLineFragmentShader, "line", pError) ||
		!BuildProgram(*m_pColorProgram, g_pszColorVertexShader, nullptr, g_pszColorFragmentShader, "colour", pError) ||
		!BuildProgram(*m_pScreenProgram, g_pszScreenVertexShader, nullptr, g_pszScreenFragmentShader, "screen", pError))
	{
		Shutdown();
		return false;
	}

	// Coloured vertices of lines and triangles: position and colour bytes.
	gl->glGenVertexArrays(1, &m_nDynamicVAO);
	gl->glGenBuffers(1, &m_nDynamicVBO);
	gl->glBindVertexArray(m_nDynamicVAO);
	gl->glBindBuffer(GL_ARRAY_BUFFER, m_nDynamicVBO);
	gl->glEnableVertexAttribArray(0);
	gl->glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, sizeof(LineVertex_t), (const void *)offsetof(LineVertex_t, m_Position));
	gl->glEnableVertexAttribArray(1);
	gl->glVertexAttribPointer(1, 4, GL_UNSIGNED_BYTE, GL_TRUE, sizeof(LineVertex_t), (const void *)offsetof(LineVertex_t, m_Color));

	gl->glGenVertexArrays(1, &m_nScreenVAO);
	gl->glGenBuffers(1, &m_nScreenVBO);
	gl->glBindVertexArray(m_nScreenVAO);
	gl->glBindBuffer(GL_ARRAY_BUFFER, m_nScreenVBO);
	gl->glEnableVertexAttribArray(0);
	gl->glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, sizeof(VGuiPaintSurfaceLayout), (const void *)offsetof(VGuiPaintSurfaceLayout, position));
	gl->glEnableVertexAttribArray(1);
	gl->glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, sizeof(VGuiPaintSurfaceLayout), (const void *)offsetof(VGuiPaintSurfaceLayout, texcoord));
	gl->glEnableVertexAttribArray(2);
	gl->glVertexAttribPointer(2, 4, GL_UNSIGNED_BYTE, GL_TRUE, sizeof(VGuiPaintSurfaceLayout), (const void *)offsetof(VGuiPaintSurfaceLayout, color));
	gl->glBindVertexArray(0);

	const uint8 white[4] = { 255, 255, 255, 255 };
	gl->glGenTextures(1, &m_nWhiteTexture);
	gl->glBindTexture(GL_TEXTURE_2D, m_nWhiteTexture);
	gl->glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, 1, 1, 0, GL_RGBA, GL_UNSIGNED_BYTE, white);
	gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
	gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
	gl->glBindTexture(GL_TEXTURE_2D, 0);

	// The samplers' units and the bone block's binding never change.
	for (Program_t *pProgram : { m_pModelProgram.get(), m_pModelBufferProgram.get() })
	{
		gl->glUseProgram(pProgram->m_nProgram);
		gl->glUniform1i(UNIFORM(*pProgram, "uColorTexture"), UNIT_COLOR);
		gl->glUniform1i(UNIFORM(*pProgram, "uNormalTexture"), UNIT_NORMAL);
		gl->glUniform1i(UNIFORM(*pProgram, "uTranslucencyTexture"), UNIT_TRANSLUCENCY);
		gl->glUniform1i(UNIFORM(*pProgram, "uBones"), UNIT_BONES);
		const GLuint block = gl->glGetUniformBlockIndex(pProgram->m_nProgram, "SceneBones");
		if (block != GL_INVALID_INDEX)
			gl->glUniformBlockBinding(pProgram->m_nProgram, block, BONE_BLOCK_BINDING);
	}
	// Unskinned draws still have a block behind the binding.
	gl->glGenBuffers(1, &m_nIdentityBones);
	gl->glBindBuffer(GL_UNIFORM_BUFFER, m_nIdentityBones);
	gl->glBufferData(GL_UNIFORM_BUFFER, SCENE_UNIFORM_BONES * 48, nullptr, GL_STATIC_DRAW);
	gl->glBindBuffer(GL_UNIFORM_BUFFER, 0);
	gl->glUseProgram(m_pScreenProgram->m_nProgram);
	gl->glUniform1i(UNIFORM(*m_pScreenProgram, "uColorTexture"), UNIT_COLOR);
	gl->glUniform1i(UNIFORM(*m_pScreenProgram, "uTranslucencyTexture"), UNIT_TRANSLUCENCY);
	gl->glUseProgram(0);
	return true;
}

void CToolSceneRenderer::Shutdown()
{
	QOpenGLFunctions_3_3_Core *gl = m_pGL;
	if (!gl)
		return;
	auto all = [](const auto &) { return true; };
	FreeWhere(gl, m_Models, all);
	FreeWhere(gl, m_Textures, all);
	FreeWhere(gl, m_Nodes, all);
	FreeWhere(gl, m_Bitmaps, all);
	for (std::unique_ptr<Program_t> *pProgram : { &m_pModelProgram, &m_pModelBufferProgram, &m_pLineProgram, &m_pColorProgram, &m_pScreenProgram })
	{
		if (*pProgram && (*pProgram)->m_nProgram)
			gl->glDeleteProgram((*pProgram)->m_nProgram);
		pProgram->reset();
	}
	const GLuint arrays[2] = { m_nDynamicVAO, m_nScreenVAO };
	const GLuint buffers[2] = { m_nDynamicVBO, m_nScreenVBO };
	gl->glDeleteVertexArrays(2, arrays);
	gl->glDeleteBuffers(2, buffers);
	gl->glDeleteTextures(1, &m_nWhiteTexture);
	gl->glDeleteBuffers(1, &m_nIdentityBones);
	m_nIdentityBones = 0;
	if (m_nLayerFramebuffer)
		gl->glDeleteFramebuffers(1, &m_nLayerFramebuffer);
	if (m_nLayerTexture)
		gl->glDeleteTextures(1, &m_nLayerTexture);
	m_nDynamicVAO = m_nScreenVAO = m_nDynamicVBO = m_nScreenVBO = m_nWhiteTexture = 0;
	m_nLayerFramebuffer = m_nLayerTexture = 0;
	m_nLayerWidth = m_nLayerHeight = 0;
	m_pGL = nullptr;
}

void CToolSceneRenderer::SetForceTextureDecode(bool bForce)
{
	if (bForce == m_bForceDecode)
		return;
	m_bForceDecode = bForce;
	// Textures already up keep their old form otherwise.
	if (m_pGL)
		FreeWhere(m_pGL, m_Textures, [](const GpuTexture_t &) { return true; });
	m_Textures.clear();
}

CToolSceneRenderer::GpuModel_t *CToolSceneRenderer::GetModel(const CToolSceneModel &model)
{
	auto it = m_Models.find(model.GetSerial());
	if (it != m_Models.end())
	{
		it->second->m_nLastFrame = m_nFrame;
		return it->second.get();
	}
	QOpenGLFunctions_3_3_Core *gl = m_pGL;
	auto pGpu = std::make_unique<GpuModel_t>();
	pGpu->m_nLastFrame = m_nFrame;
	const CCompiledModel &data = model.GetData();
	for (const CompiledMesh_t &mesh : data.m_Meshes)
	{
		GpuMesh_t gpu;
		const size_t vertices = mesh.VertexCount();
		gpu.m_bSkinned = mesh.IsSkinned() && mesh.m_BoneIndices.size() == vertices && mesh.m_BoneWeights.size() == vertices;
		gpu.m_bTangents = mesh.m_Tangents.size() == vertices && vertices > 0;
		// One buffer of the streams one after another.
		const size_t positionBytes = vertices * sizeof(Vector);
		const size_t normalBytes = mesh.m_Normals.size() == vertices ? positionBytes : 0;
		const size_t tangentBytes = gpu.m_bTangents ? vertices * sizeof(CompiledTangent_t) : 0;
		const size_t texCoordBytes = mesh.m_TexCoords.size() == vertices ? vertices * sizeof(CompiledTexCoord_t) : 0;
		const size_t boneBytes = gpu.m_bSkinned ? vertices * sizeof(uint16) * 4 : 0;
		const size_t weightBytes = gpu.m_bSkinned ? vertices * 4 : 0;
		std::vector<uint8> bytes(positionBytes + normalBytes + tangentBytes + texCoordBytes + boneBytes + weightBytes);
		size_t offset = 0;
		auto append = [&](const void *pData, size_t size) {
			if (size)
				memcpy(bytes.data() + offset, pData, size);
			const size_t start = offset;
			offset += size;
			return start;
		};
		const size_t positionOffset = append(mesh.m_Positions.data(), positionBytes);
		const size_t normalOffset = append(mesh.m_Normals.data(), normalBytes);
		const size_t tangentOffset = append(mesh.m_Tangents.data(), tangentBytes);
		const size_t texCoordOffset = append(mesh.m_TexCoords.data(), texCoordBytes);
		size_t boneOffset = 0, weightOffset = 0;
		if (gpu.m_bSkinned)
		{
			// The mesh's bone list names skeleton bones; the shader indexes the skeleton.
			std::vector<uint16> bones(vertices * 4);
			for (size_t v = 0; v < vertices; ++v)
			{
				for (int k = 0; k < 4; ++k)
				{
					const uint8 local = mesh.m_BoneIndices[v].m_nIndex[k];
					const uint32 skeleton = local < mesh.m_Bones.size() ? mesh.m_Bones[local] : 0;
					bones[v * 4 + (size_t)k] = (uint16)std::min<uint32>(skeleton, 65535);
				}
			}
			boneOffset = append(bones.data(), boneBytes);
			weightOffset = append(mesh.m_BoneWeights.data(), weightBytes);
		}

		gl->glGenVertexArrays(1, &gpu.m_nVAO);
		gl->glGenBuffers(1, &gpu.m_nVBO);
		gl->glGenBuffers(1, &gpu.m_nIBO);
		gl->glBindVertexArray(gpu.m_nVAO);
		gl->glBindBuffer(GL_ARRAY_BUFFER, gpu.m_nVBO);
		gl->glBufferData(GL_ARRAY_BUFFER, (GLsizeiptr)bytes.size(), bytes.data(), GL_STATIC_DRAW);
		gl->glEnableVertexAttribArray(0);
		gl->glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, 0, (const void *)positionOffset);
		// The loader guarantees normals and texture coordinates for every vertex.
		if (normalBytes)
		{
			gl->glEnableVertexAttribArray(1);
			gl->glVertexAttribPointer(1, 3, GL_FLOAT, GL_FALSE, 0, (const void *)normalOffset);
		}
		if (tangentBytes)
		{
			gl->glEnableVertexAttribArray(2);
			gl->glVertexAttribPointer(2, 4, GL_FLOAT, GL_FALSE, 0, (const void *)tangentOffset);
		}
		if (texCoordBytes)
		{
			gl->glEnableVertexAttribArray(3);
			gl->glVertexAttribPointer(3, 2, GL_FLOAT, GL_FALSE, 0, (const void *)texCoordOffset);
		}
		if (gpu.m_bSkinned)
		{
			gl->glEnableVertexAttribArray(4);
			gl->glVertexAttribIPointer(4, 4, GL_UNSIGNED_SHORT, 0, (const void *)boneOffset);
			gl->glEnableVertexAttribArray(5);
			gl->glVertexAttribPointer(5, 4, GL_UNSIGNED_BYTE, GL_TRUE, 0, (const void *)weightOffset);
		}
		gl->glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, gpu.m_nIBO);
		gpu.m_nIndexSize = mesh.IndexSize();
		gpu.m_eIndexType = gpu.m_nIndexSize == 2 ? GL_UNSIGNED_SHORT : GL_UNSIGNED_INT;
		if (gpu.m_nIndexSize == 2)
			gl->glBufferData(GL_ELEMENT_ARRAY_BUFFER, (GLsizeiptr)(mesh.m_Indices16.size() * 2), mesh.m_Indices16.data(), GL_STATIC_DRAW);
		else
			gl->glBufferData(GL_ELEMENT_ARRAY_BUFFER, (GLsizeiptr)(mesh.m_Indices32.size() * 4), mesh.m_Indices32.data(), GL_STATIC_DRAW);
		gl->glBindVertexArray(0);
		pGpu->m_Meshes.push_back(gpu);
	}
	GpuModel_t *pRaw = pGpu.get();
	m_Models.emplace(model.GetSerial(), std::move(pGpu));
	return pRaw;
}

GLuint CToolSceneRenderer::GetTexture(const CToolSceneTexture *pTexture)
{
	if (!pTexture)
		return 0;
	auto it = m_Textures.find(pTexture->GetSerial());
	if (it != m_Textures.end())
	{
		it->second->m_nLastFrame = m_nFrame;
		return it->second->m_nTexture;
	}
	QOpenGLFunctions_3_3_Core *gl = m_pGL;
	const CCompiledTexture &data = pTexture->GetData();
	// YCoCg texels are not colours until the shader decodes them.
	const bool bSRGB = pTexture->IsSRGB() && !pTexture->IsYCoCg();
	const bool bBlock = data.m_eFormat == COMPILED_TEXTURE_BC1 || data.m_eFormat == COMPILED_TEXTURE_BC3;
	const bool bCompressed = bBlock && m_bS3TC && !m_bForceDecode && (!bSRGB || m_bS3TCSRGB);

	auto pGpu = std::make_unique<GpuTexture_t>();
	pGpu->m_nLastFrame = m_nFrame;
	gl->glGenTextures(1, &pGpu->m_nTexture);
	gl->glBindTexture(GL_TEXTURE_2D, pGpu->m_nTexture);
	gl->glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
	int uploaded = 0;
	for (size_t level = 0; level < data.m_Mips.size(); ++level)
	{
		const CompiledMip_t &mip = data.m_Mips[level];
		if (bCompressed)
		{
			GLenum internalFormat;
			if (data.m_eFormat == COMPILED_TEXTURE_BC1)
				internalFormat = bSRGB ? FORMAT_SRGB_DXT1 : FORMAT_RGB_DXT1;
			else
				internalFormat = bSRGB ? FORMAT_SRGB_ALPHA_DXT5 : FORMAT_RGBA_DXT5;
			gl->glCompressedTexImage2D(GL_TEXTURE_2D, (GLint)level, internalFormat, (GLsizei)mip.m_nWidth, (GLsizei)mip.m_nHeight, 0,
				(GLsizei)mip.m_Data.size(), mip.m_Data.data());
		}
		else
		{
			const GLenum internalFormat = bSRGB ? GL_SRGB8_ALPHA8 : GL_RGBA8;
			CImageRGBA8 decoded;
			const uint8 *pPixels = mip.m_Data.data();
			if (bBlock)
			{
				const TextureFormat_t format = data.m_eFormat == COMPILED_TEXTURE_BC1 ? TEXTURE_FORMAT_BC1 : TEXTURE_FORMAT_BC3;
				CUtlString error;
				if (!Texture_DecodeImage(format, mip.m_Data.data(), mip.m_Data.size(), (int)mip.m_nWidth, (int)mip.m_nHeight, decoded, &error))
				{
					Log_Warning(LOG_TOOLSCENE, "Cannot decode mip %zu of '%s': %s\n", level, pTexture->GetPath().c_str(), error.c_str());
					break;
				}
				// BC1 here carries no alpha: the three-colour mode's black is opaque, as the GL reads it.
				if (format == TEXTURE_FORMAT_BC1)
				{
					for (size_t i = 0; i < decoded.PixelCount(); ++i)
						decoded.Pixels()[i * 4 + 3] = 255;
				}
				pPixels = decoded.Pixels();
			}
			gl->glTexImage2D(GL_TEXTURE_2D, (GLint)level, (GLint)internalFormat, (GLsizei)mip.m_nWidth, (GLsizei)mip.m_nHeight, 0, GL_RGBA,
				GL_UNSIGNED_BYTE, pPixels);
		}
		++uploaded;
	}
	gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_BASE_LEVEL, 0);
	gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, std::max(uploaded - 1, 0));
	gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, uploaded > 1 ? GL_LINEAR_MIPMAP_LINEAR : GL_LINEAR);
	gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
	gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_REPEAT);
	gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_REPEAT);
	gl->glBindTexture(GL_TEXTURE_2D, 0);
	++m_Stats.m_nTextureUploads;
	if (bBlock && !bCompressed)
		++m_Stats.m_nDecodedTextures;
	if (uploaded == 0)
	{
		gl->glDeleteTextures(1, &pGpu->m_nTexture);
		pGpu->m_nTexture = 0;
	}
	const GLuint name = pGpu->m_nTexture;
	m_Textures.emplace(pTexture->GetSerial(), std::move(pGpu));
	return name;
}

GLuint CToolSceneRenderer::UploadBones(const CToolSceneModelNode &node, bool &bBufferBones)
{
	const std::vector<SceneMatrix_t> &skinning = node.GetSkinningMatrices();
	bBufferBones = skinning.size() > SCENE_UNIFORM_BONES;
	if (skinning.empty())
		return 0;
	QOpenGLFunctions_3_3_Core *gl = m_pGL;
	std::unique_ptr<GpuNode_t> &pGpu = m_Nodes[node.GetSerial()];
	if (!pGpu)
	{
		pGpu = std::make_unique<GpuNode_t>();
		gl->glGenBuffers(1, &pGpu->m_nBuffer);
	}
	if (bBufferBones && !pGpu->m_nTexture)
	{
		gl->glBindBuffer(GL_TEXTURE_BUFFER, pGpu->m_nBuffer);
		gl->glBufferData(GL_TEXTURE_BUFFER, 48, nullptr, GL_DYNAMIC_DRAW);
		pGpu->m_nCapacity = 48;
		gl->glGenTextures(1, &pGpu->m_nTexture);
		gl->glBindTexture(GL_TEXTURE_BUFFER, pGpu->m_nTexture);
		gl->glTexBuffer(GL_TEXTURE_BUFFER, GL_RGBA32F, pGpu->m_nBuffer);
		gl->glBindTexture(GL_TEXTURE_BUFFER, 0);
	}
	pGpu->m_nLastFrame = m_nFrame;
	m_BoneScratch.resize(skinning.size() * 12);
	for (size_t b = 0; b < skinning.size(); ++b)
	{
		for (int r = 0; r < 3; ++r)
		{
			for (int c = 0; c < 4; ++c)
				m_BoneScratch[b * 12 + (size_t)r * 4 + (size_t)c] = skinning[b].m[r][c];
		}
	}
	const GLenum target = bBufferBones ? GL_TEXTURE_BUFFER : GL_UNIFORM_BUFFER;
	gl->glBindBuffer(target, pGpu->m_nBuffer);
	// The storage is made once (the uniform block is read whole, so it gets its full size) and
	// written in place each frame: the previous frame has been drawn by then, and a new
	// allocation a frame costs a software GL more than the copy.
	const size_t bytes = m_BoneScratch.size() * sizeof(float);
	const size_t size = bBufferBones ? bytes : (size_t)SCENE_UNIFORM_BONES * 48;
	if (pGpu->m_nCapacity < size)
	{
		gl->glBufferData(target, (GLsizeiptr)size, nullptr, GL_DYNAMIC_DRAW);
		pGpu->m_nCapacity = size;
	}
	gl->glBufferSubData(target, 0, (GLsizeiptr)bytes, m_BoneScratch.data());
	gl->glBindBuffer(target, 0);
	++m_Stats.m_nSkinnedNodes;
	return bBufferBones ? pGpu->m_nTexture : pGpu->m_nBuffer;
}

void CToolSceneRenderer::SetLightUniforms(Program_t &program, const CToolScene &scene, const CToolSceneCamera &camera, float flAspect)
{
	QOpenGLFunctions_3_3_Core *gl = m_pGL;
	gl->glUseProgram(program.m_nProgram);
	const CToolSceneGlobalLight &light = scene.GetLight();
	float viewProjection[16];
	ToColumnMajor(camera.GetViewProjectionMatrix(flAspect), viewProjection);
	gl->glUniformMatrix4fv(UNIFORM(program, "uViewProjection"), 1, GL_FALSE, viewProjection);
	const Vector eye = camera.GetPosition();
	gl->glUniform3f(UNIFORM(program, "uEyePosition"), eye.x, eye.y, eye.z);
	const Vector direction = SceneAnglesForward(light.m_Angles);
	gl->glUniform3f(UNIFORM(program, "uLightDirection"), direction.x, direction.y, direction.z);
	const Vector lightColor = SRGBToLinear(light.m_vColor) * std::max(light.m_flScale, 0.0f);
	gl->glUniform3f(UNIFORM(program, "uLightColor"), lightColor.x, lightColor.y, lightColor.z);
	const Vector ambient = SRGBToLinear(light.m_vAmbientColor) * std::max(light.m_flAmbientScale, 0.0f);
	gl->glUniform3f(UNIFORM(program, "uAmbientColor"), ambient.x, ambient.y, ambient.z);
	const Vector ambientDirection = SceneNormalize(light.m_vAmbientDirection);
	gl->glUniform3f(UNIFORM(program, "uAmbientDirection"), ambientDirection.x, ambientDirection.y, ambientDirection.z);
	const Vector specular = SRGBToLinear(light.m_vSpecularColor) * std::max(light.m_flScale, 0.0f);
	gl->glUniform3f(UNIFORM(program, "uSpecularColor"), specular.x, specular.y, specular.z);
	gl->glUniform1f(UNIFORM(program, "uSpecularPower"), std::clamp(light.m_flSpecularPower, 1.0f, 256.0f));
}

int CToolSceneRenderer::MaterialFlags(const CToolSceneMaterial *pMaterial, bool bHasTangents)
{
	if (!pMaterial)
		return 0;
	int flags = 0;
	if (const CToolSceneTexture *pColor = pMaterial->GetColorTexture(); pColor && GetTexture(pColor))
	{
		flags |= SHADER_FLAG_COLOR_TEXTURE;
		if (pColor->IsYCoCg())
		{
			flags |= SHADER_FLAG_YCOCG;
			if (pColor->IsSRGB())
				flags |= SHADER_FLAG_DECODE_SRGB;
		}
	}
	if (bHasTangents && pMaterial->GetNormalTexture() && GetTexture(pMaterial->GetNormalTexture()))
		flags |= SHADER_FLAG_NORMAL_MAP;
	// A translucency mask that is the colour texture itself means that texture's alpha, which
	// the colour sample carries already (its red channel would be the colour's).
	const CToolSceneTexture *pTranslucency = pMaterial->GetTranslucencyTexture();
	if (pTranslucency && pTranslucency != pMaterial->GetColorTexture() && GetTexture(pTranslucency))
		flags |= SHADER_FLAG_TRANSLUCENCY;
	if (pMaterial->IsAlphaTested())
		flags |= SHADER_FLAG_ALPHA_TEST;
	return flags;
}

void CToolSceneRenderer::BindMaterial(const CToolSceneMaterial *pMaterial, int nFlags, int nColorUniform)
{
	QOpenGLFunctions_3_3_Core *gl = m_pGL;
	gl->glActiveTexture(GL_TEXTURE0 + UNIT_COLOR);
	gl->glBindTexture(GL_TEXTURE_2D, (nFlags & SHADER_FLAG_COLOR_TEXTURE) ? GetTexture(pMaterial->GetColorTexture()) : m_nWhiteTexture);
	gl->glActiveTexture(GL_TEXTURE0 + UNIT_NORMAL);
	gl->glBindTexture(GL_TEXTURE_2D, (nFlags & SHADER_FLAG_NORMAL_MAP) ? GetTexture(pMaterial->GetNormalTexture()) : m_nWhiteTexture);
	gl->glActiveTexture(GL_TEXTURE0 + UNIT_TRANSLUCENCY);
	gl->glBindTexture(GL_TEXTURE_2D, (nFlags & SHADER_FLAG_TRANSLUCENCY) ? GetTexture(pMaterial->GetTranslucencyTexture()) : m_nWhiteTexture);
	// A material with a colour texture takes its colour from it; the constant stands alone.
	Vector4D color(0.5f, 0.5f, 0.5f, 1.0f);
	if (pMaterial && pMaterial->IsLoaded())
		color = (nFlags & SHADER_FLAG_COLOR_TEXTURE) ? Vector4D(1.0f, 1.0f, 1.0f, 1.0f) : pMaterial->GetColorConstant();
	const Vector linear = SRGBToLinear(Vector(color.x, color.y, color.z));
	gl->glUniform4f(nColorUniform, linear.x, linear.y, linear.z, color.w);
}

void CToolSceneRenderer::DrawItem(const DrawItem_t &item)
{
	QOpenGLFunctions_3_3_Core *gl = m_pGL;
	Program_t &program = item.m_bBufferBones ? *m_pModelBufferProgram : *m_pModelProgram;
	if (m_pCurrentModelProgram != &program)
	{
		gl->glUseProgram(program.m_nProgram);
		m_pCurrentModelProgram = &program;
	}
	const int flags = MaterialFlags(item.m_pMaterial, item.m_pMesh->m_bTangents);
	BindMaterial(item.m_pMaterial, flags, UNIFORM(program, "uColor"));
	gl->glUniform1i(UNIFORM(program, "uFlags"), flags);
	gl->glUniform4f(UNIFORM(program, "uTint"), item.m_vTint.x, item.m_vTint.y, item.m_vTint.z, item.m_vTint.w);
	gl->glUniformMatrix4fv(UNIFORM(program, "uModel"), 1, GL_FALSE, item.m_Model);
	gl->glUniformMatrix3fv(UNIFORM(program, "uNormalMatrix"), 1, GL_FALSE, item.m_Normal);
	// Faces wound clockwise on screen are backs (counter-clockwise is the front, as the compiled
	// meshes keep their sources' winding); a two-sided material shows both.
	if (item.m_pMaterial && item.m_pMaterial->IsTwoSided())
		gl->glDisable(GL_CULL_FACE);
	else
		gl->glEnable(GL_CULL_FACE);
	const bool bSkinned = item.m_pMesh->m_bSkinned && item.m_nBones;
	gl->glUniform1i(UNIFORM(program, "uSkinned"), bSkinned ? 1 : 0);
	if (item.m_bBufferBones)
	{
		gl->glActiveTexture(GL_TEXTURE0 + UNIT_BONES);
		gl->glBindTexture(GL_TEXTURE_BUFFER, bSkinned ? item.m_nBones : 0);
	}
	else
		gl->glBindBufferBase(GL_UNIFORM_BUFFER, BONE_BLOCK_BINDING, bSkinned ? item.m_nBones : m_nIdentityBones);
	gl->glBindVertexArray(item.m_pMesh->m_nVAO);
	gl->glDrawElements(GL_TRIANGLES, (GLsizei)item.m_nIndexCount, item.m_pMesh->m_eIndexType,
		(const void *)((size_t)item.m_nFirstIndex * item.m_pMesh->m_nIndexSize));
	++m_Stats.m_nDrawCalls;
	m_Stats.m_nTriangles += item.m_nIndexCount / 3;
}

std::vector<CToolSceneRenderer::LineVertex_t> &CToolSceneRenderer::LineBatch(float flWidth, bool bDepthTest)
{
	for (LineBatch_t &batch : m_LineBatches)
	{
		if (batch.m_flWidth == flWidth && batch.m_bDepthTest == bDepthTest)
			return batch.m_Vertices;
	}
	m_LineBatches.push_back(LineBatch_t());
	m_LineBatches.back().m_flWidth = flWidth;
	m_LineBatches.back().m_bDepthTest = bDepthTest;
	return m_LineBatches.back().m_Vertices;
}

void CToolSceneRenderer::CollectLines(const CToolScene &scene, const CToolSceneCamera &camera, int nWidth)
{
	for (LineBatch_t &batch : m_LineBatches)
		batch.m_Vertices.clear();
	auto push = [](std::vector<LineVertex_t> &out, const Vector &a, const Vector &b, const Color &color) {
		LineVertex_t va = { { a.x, a.y, a.z }, { color.r, color.g, color.b, color.a } };
		LineVertex_t vb = { { b.x, b.y, b.z }, { color.r, color.g, color.b, color.a } };
		out.push_back(va);
		out.push_back(vb);
	};

	if (scene.IsGridEnabled())
	{
		std::vector<LineVertex_t> &grid = LineBatch(GRID_LINE_WIDTH, true);
		const int lines = scene.GetGridLines();
		const float spacing = scene.GetGridSpacing();
		const float extent = spacing * (float)(lines / 2);
		for (int i = -lines / 2; i <= lines / 2; ++i)
		{
			const float offset = spacing * (float)i;
			Color color = (i % 8 == 0) ? Color(128, 132, 140) : Color(92, 96, 104);
			push(grid, Vector(-extent, offset, 0.0f), Vector(extent, offset, 0.0f), i == 0 ? Color(170, 70, 70) : color);
			push(grid, Vector(offset, -extent, 0.0f), Vector(offset, extent, 0.0f), i == 0 ? Color(70, 150, 70) : color);
		}
	}

	for (int n = 0; n < scene.GetNodeCount(); ++n)
	{
		const CToolSceneNode *pNode = scene.GetNode(n);
		if (!pNode->IsVisible())
			continue;
		if (pNode->GetType() == TOOLSCENE_NODE_FRUSTUM)
		{
			const CToolSceneFrustumNode *pFrustum = static_cast<const CToolSceneFrustumNode *>(pNode);
			Vector corners[8];
			pFrustum->GetWorldCorners(corners);
			const Vector apex = pFrustum->GetWorldTransform().GetTranslation();
			std::vector<LineVertex_t> &out = LineBatch(FRUSTUM_LINE_WIDTH, true);
			for (int i = 0; i < 4; ++i)
			{
				push(out, corners[i], corners[(i + 1) % 4], pFrustum->GetColor());
				push(out, corners[4 + i], corners[4 + (i + 1) % 4], pFrustum->GetColor());
				push(out, corners[i], corners[4 + i], pFrustum->GetColor());
				push(out, apex, corners[i], pFrustum->GetColor());
			}
		}
		else if (pNode->GetType() == TOOLSCENE_NODE_LINES)
		{
			const CToolSceneLineSetNode *pLines = static_cast<const CToolSceneLineSetNode *>(pNode);
			const SceneMatrix_t world = pLines->GetWorldTransform();
			std::vector<LineVertex_t> &out = LineBatch(pLines->GetLineWidth(), !pLines->IsDrawnOnTop());
			for (const ToolSceneLine_t &line : pLines->GetLines())
				push(out, SceneTransformPoint(world, line.m_vStart), SceneTransformPoint(world, line.m_vEnd), line.m_Color);
		}
		else if (pNode->GetType() == TOOLSCENE_NODE_MODEL && scene.IsSelectionEnabled() && pNode->IsSelected())
		{
			Vector mins, maxs;
			if (!static_cast<const CToolSceneModelNode *>(pNode)->GetWorldBounds(mins, maxs))
				continue;
			std::vector<LineVertex_t> &out = LineBatch(SELECTION_LINE_WIDTH, true);
			const Color orange(255, 160, 32);
			Vector corners[8];
			for (int c = 0; c < 8; ++c)
				corners[c] = Vector((c & 1) ? maxs.x : mins.x, (c & 2) ? maxs.y : mins.y, (c & 4) ? maxs.z : mins.z);
			const int edges[12][2] = { { 0, 1 }, { 2, 3 }, { 4, 5 }, { 6, 7 }, { 0, 2 }, { 1, 3 }, { 4, 6 }, { 5, 7 }, { 0, 4 }, { 1, 5 },
				{ 2, 6 }, { 3, 7 } };
			for (const auto &edge : edges)
				push(out, corners[edge[0]], corners[edge[1]], orange);
		}
	}

	std::vector<ToolSceneGizmoLine_t> gizmoLines;
	for (int g = 0; g < scene.GetGizmoCount(); ++g)
		scene.GetGizmo(g)->BuildLines(camera, nWidth, gizmoLines);
	if (!gizmoLines.empty())
	{
		std::vector<LineVertex_t> &out = LineBatch(GIZMO_LINE_WIDTH, false);
		for (const ToolSceneGizmoLine_t &line : gizmoLines)
			push(out, line.m_vStart, line.m_vEnd, line.m_Color);
	}
}

void CToolSceneRenderer::DrawLineBatches(bool bDepthTest)
{
	QOpenGLFunctions_3_3_Core *gl = m_pGL;
	Program_t &program = *m_pLineProgram;
	bool bBound = false;
	for (const LineBatch_t &batch : m_LineBatches)
	{
		if (batch.m_bDepthTest != bDepthTest || batch.m_Vertices.empty())
			continue;
		if (!bBound)
		{
			gl->glUseProgram(program.m_nProgram);
			float viewProjection[16];
			ToColumnMajor(m_ViewProjection, viewProjection);
			gl->glUniformMatrix4fv(UNIFORM(program, "uViewProjection"), 1, GL_FALSE, viewProjection);
			gl->glUniform2f(UNIFORM(program, "uViewport"), (float)m_nWidth, (float)m_nHeight);
			gl->glBindVertexArray(m_nDynamicVAO);
			gl->glBindBuffer(GL_ARRAY_BUFFER, m_nDynamicVBO);
			bBound = true;
		}
		gl->glUniform1f(UNIFORM(program, "uWidth"), batch.m_flWidth);
		gl->glBufferData(GL_ARRAY_BUFFER, (GLsizeiptr)(batch.m_Vertices.size() * sizeof(LineVertex_t)), batch.m_Vertices.data(),
			GL_STREAM_DRAW);
		gl->glDrawArrays(GL_LINES, 0, (GLsizei)batch.m_Vertices.size());
	}
}

void CToolSceneRenderer::DrawGround(const CToolScene &scene)
{
	QOpenGLFunctions_3_3_Core *gl = m_pGL;
	const float extent = scene.GetGridSpacing() * (float)(scene.GetGridLines() / 2);
	const Color &c = scene.GetGroundColor();
	const Vector corners[4] = { Vector(-extent, -extent, 0.0f), Vector(extent, -extent, 0.0f), Vector(extent, extent, 0.0f),
		Vector(-extent, extent, 0.0f) };
	const int order[6] = { 0, 1, 2, 0, 2, 3 };
	LineVertex_t vertices[6];
	for (int i = 0; i < 6; ++i)
		vertices[i] = { { corners[order[i]].x, corners[order[i]].y, corners[order[i]].z }, { c.r, c.g, c.b, c.a } };
	Program_t &program = *m_pColorProgram;
	gl->glUseProgram(program.m_nProgram);
	float viewProjection[16];
	ToColumnMajor(m_ViewProjection, viewProjection);
	gl->glUniformMatrix4fv(UNIFORM(program, "uViewProjection"), 1, GL_FALSE, viewProjection);
	gl->glBindVertexArray(m_nDynamicVAO);
	gl->glBindBuffer(GL_ARRAY_BUFFER, m_nDynamicVBO);
	gl->glBufferData(GL_ARRAY_BUFFER, sizeof(vertices), vertices, GL_STREAM_DRAW);
	// Pushed back a little so that the grid on the same plane stays in front.
	gl->glEnable(GL_POLYGON_OFFSET_FILL);
	gl->glPolygonOffset(1.0f, 1.0f);
	gl->glDrawArrays(GL_TRIANGLES, 0, 6);
	gl->glDisable(GL_POLYGON_OFFSET_FILL);
}

void CToolSceneRenderer::DrawTints(const CToolScene &scene)
{
	QOpenGLFunctions_3_3_Core *gl = m_pGL;
	std::vector<LineVertex_t> depthTested, onTop;
	for (int n = 0; n < scene.GetNodeCount(); ++n)
	{
		const CToolSceneNode *pNode = scene.GetNode(n);
		if (!pNode->IsVisible() || pNode->GetType() != TOOLSCENE_NODE_TRIANGLES)
			continue;
		const CToolSceneTriangleTintNode *pTint = static_cast<const CToolSceneTriangleTintNode *>(pNode);
		const SceneMatrix_t world = pTint->GetWorldTransform();
		std::vector<LineVertex_t> &out = pTint->IsDrawnOnTop() ? onTop : depthTested;
		for (const ToolSceneTriangle_t &triangle : pTint->GetTriangles())
		{
			for (const Vector &point : triangle.m_vPoints)
			{
				const Vector p = SceneTransformPoint(world, point);
				out.push_back({ { p.x, p.y, p.z }, { triangle.m_Color.r, triangle.m_Color.g, triangle.m_Color.b, triangle.m_Color.a } });
			}
		}
	}
	if (depthTested.empty() && onTop.empty())
		return;
	Program_t &program = *m_pColorProgram;
	gl->glUseProgram(program.m_nProgram);
	float viewProjection[16];
	ToColumnMajor(m_ViewProjection, viewProjection);
	gl->glUniformMatrix4fv(UNIFORM(program, "uViewProjection"), 1, GL_FALSE, viewProjection);
	gl->glBindVertexArray(m_nDynamicVAO);
	gl->glBindBuffer(GL_ARRAY_BUFFER, m_nDynamicVBO);
	gl->glEnable(GL_BLEND);
	gl->glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ZERO, GL_ONE);
	gl->glDepthMask(GL_FALSE);
	if (!depthTested.empty())
	{
		// Pulled forward so that faces of a model under them do not hide them.
		gl->glEnable(GL_POLYGON_OFFSET_FILL);
		gl->glPolygonOffset(-1.0f, -4.0f);
		gl->glDepthFunc(GL_LEQUAL);
		gl->glBufferData(GL_ARRAY_BUFFER, (GLsizeiptr)(depthTested.size() * sizeof(LineVertex_t)), depthTested.data(), GL_STREAM_DRAW);
		gl->glDrawArrays(GL_TRIANGLES, 0, (GLsizei)depthTested.size());
		gl->glDisable(GL_POLYGON_OFFSET_FILL);
		gl->glDepthFunc(GL_LESS);
	}
	if (!onTop.empty())
	{
		gl->glDisable(GL_DEPTH_TEST);
		gl->glBufferData(GL_ARRAY_BUFFER, (GLsizeiptr)(onTop.size() * sizeof(LineVertex_t)), onTop.data(), GL_STREAM_DRAW);
		gl->glDrawArrays(GL_TRIANGLES, 0, (GLsizei)onTop.size());
		gl->glEnable(GL_DEPTH_TEST);
	}
	gl->glDepthMask(GL_TRUE);
	gl->glDisable(GL_BLEND);
}

void CToolSceneRenderer::DrawRawQuad(const VGuiPaintSurfaceLayout vertices[4], GLuint nTexture, bool bPremultiplied)
{
	QOpenGLFunctions_3_3_Core *gl = m_pGL;
	Program_t &program = *m_pScreenProgram;
	gl->glUseProgram(program.m_nProgram);
	gl->glUniform2f(UNIFORM(program, "uViewport"), (float)std::max(m_nWidth, 1), (float)std::max(m_nHeight, 1));
	gl->glUniform1i(UNIFORM(program, "uFlags"), SHADER_FLAG_RAW);
	gl->glActiveTexture(GL_TEXTURE0 + UNIT_COLOR);
	gl->glBindTexture(GL_TEXTURE_2D, nTexture ? nTexture : m_nWhiteTexture);
	gl->glDisable(GL_DEPTH_TEST);
	gl->glEnable(GL_BLEND);
	if (bPremultiplied)
		gl->glBlendFunc(GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
	else
		gl->glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
	gl->glBindVertexArray(m_nScreenVAO);
	gl->glBindBuffer(GL_ARRAY_BUFFER, m_nScreenVBO);
	gl->glBufferData(GL_ARRAY_BUFFER, sizeof(VGuiPaintSurfaceLayout) * 4, vertices, GL_STREAM_DRAW);
	gl->glDrawArrays(GL_TRIANGLE_FAN, 0, 4);
	gl->glDisable(GL_BLEND);
}

void CToolSceneRenderer::DrawScreenQuad(const VGuiPaintSurfaceLayout vertices[4], const CToolSceneMaterial *pMaterial)
{
	QOpenGLFunctions_3_3_Core *gl = m_pGL;
	if (!gl)
		return;
	Program_t &program = *m_pScreenProgram;
	gl->glUseProgram(program.m_nProgram);
	gl->glUniform2f(UNIFORM(program, "uViewport"), (float)std::max(m_nWidth, 1), (float)std::max(m_nHeight, 1));
	if (!pMaterial)
	{
		DrawRawQuad(vertices, 0, false);
		return;
	}
	const int flags = MaterialFlags(pMaterial, false);
	BindMaterial(pMaterial, flags, UNIFORM(program, "uColor"));
	gl->glUniform1i(UNIFORM(program, "uFlags"), flags);
	gl->glDisable(GL_DEPTH_TEST);
	gl->glEnable(GL_BLEND);
	gl->glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
	gl->glBindVertexArray(m_nScreenVAO);
	gl->glBindBuffer(GL_ARRAY_BUFFER, m_nScreenVBO);
	gl->glBufferData(GL_ARRAY_BUFFER, sizeof(VGuiPaintSurfaceLayout) * 4, vertices, GL_STREAM_DRAW);
	gl->glDrawArrays(GL_TRIANGLE_FAN, 0, 4);
	gl->glDisable(GL_BLEND);
}

void CToolSceneRenderer::DrawMaterialQuad(const CToolSceneMaterial *pMaterial, float flOpacity)
{
	const uint8 alpha = (uint8)std::lround(std::clamp(flOpacity, 0.0f, 1.0f) * 255.0f);
	const float w = (float)m_nWidth, h = (float)m_nHeight;
	const VGuiPaintSurfaceLayout vertices[4] = {
		{ { 0.0f, 0.0f, 0.0f }, { 0.0f, 0.0f }, { 255, 255, 255, alpha } },
		{ { w, 0.0f, 0.0f }, { 1.0f, 0.0f }, { 255, 255, 255, alpha } },
		{ { w, h, 0.0f }, { 1.0f, 1.0f }, { 255, 255, 255, alpha } },
		{ { 0.0f, h, 0.0f }, { 0.0f, 1.0f }, { 255, 255, 255, alpha } },
	};
	DrawScreenQuad(vertices, pMaterial);
}

void CToolSceneMaterialQuadRenderer::RenderLayer(const ToolSceneLayerContext_t &context)
{
	if (context.m_pRenderer && m_Material)
		context.m_pRenderer->DrawMaterialQuad(m_Material.Get(), m_flOpacity);
}

void CToolSceneRenderer::DrawBitmapOverlay(const CToolSceneBitmapOverlay &overlay)
{
	QOpenGLFunctions_3_3_Core *gl = m_pGL;
	std::unique_ptr<GpuBitmap_t> &pGpu = m_Bitmaps[overlay.GetSerial()];
	if (!pGpu)
		pGpu = std::make_unique<GpuBitmap_t>();
	pGpu->m_nLastFrame = m_nFrame;
	const CImageRGBA8 &image = overlay.GetImage();
	if (pGpu->m_nVersion != overlay.GetPixelsVersion())
	{
		pGpu->m_nVersion = overlay.GetPixelsVersion();
		if (!image.IsEmpty())
		{
			if (!pGpu->m_nTexture)
				gl->glGenTextures(1, &pGpu->m_nTexture);
			gl->glBindTexture(GL_TEXTURE_2D, pGpu->m_nTexture);
			gl->glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
			gl->glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, image.Width(), image.Height(), 0, GL_RGBA, GL_UNSIGNED_BYTE, image.Pixels());
			gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
			gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
			gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
			gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
		}
	}
	const Color &bar = overlay.GetBarColor();
	const float w = (float)m_nWidth, h = (float)m_nHeight;
	const VGuiPaintSurfaceLayout bars[4] = {
		{ { 0.0f, 0.0f, 0.0f }, { 0.0f, 0.0f }, { bar.r, bar.g, bar.b, bar.a } },
		{ { w, 0.0f, 0.0f }, { 1.0f, 0.0f }, { bar.r, bar.g, bar.b, bar.a } },
		{ { w, h, 0.0f }, { 1.0f, 1.0f }, { bar.r, bar.g, bar.b, bar.a } },
		{ { 0.0f, h, 0.0f }, { 0.0f, 1.0f }, { bar.r, bar.g, bar.b, bar.a } },
	};
	DrawRawQuad(bars, 0, false);
	if (image.IsEmpty() || !pGpu->m_nTexture)
		return;
	float x, y, bw, bh;
	overlay.GetLetterbox(m_nWidth, m_nHeight, x, y, bw, bh);
	const VGuiPaintSurfaceLayout picture[4] = {
		{ { x, y, 0.0f }, { 0.0f, 0.0f }, { 255, 255, 255, 255 } },
		{ { x + bw, y, 0.0f }, { 1.0f, 0.0f }, { 255, 255, 255, 255 } },
		{ { x + bw, y + bh, 0.0f }, { 1.0f, 1.0f }, { 255, 255, 255, 255 } },
		{ { x, y + bh, 0.0f }, { 0.0f, 1.0f }, { 255, 255, 255, 255 } },
	};
	DrawRawQuad(picture, pGpu->m_nTexture, false);
}

void CToolSceneRenderer::DrawLayer(const CToolScene &scene, const CToolSceneCamera &camera, const CToolSceneNodeScreenLayer &layer)
{
	IProceduralLayerRenderer *pLayerRenderer = layer.GetLayerRenderer();
	if (!pLayerRenderer)
		return;
	QOpenGLFunctions_3_3_Core *gl = m_pGL;
	ToolSceneLayerContext_t context;
	context.m_pRenderer = this;
	context.m_pGL = gl;
	context.m_pScene = &scene;
	context.m_pCamera = &camera;
	context.m_pszLayerName = layer.GetLayerName().c_str();
	context.m_nWidth = m_nWidth;
	context.m_nHeight = m_nHeight;
	if (layer.TakesClearTarget())
	{
		context.m_nFramebuffer = m_nFramebuffer;
		pLayerRenderer->RenderLayer(context);
		gl->glBindFramebuffer(GL_FRAMEBUFFER, m_nFramebuffer);
		gl->glViewport(0, 0, m_nWidth, m_nHeight);
		return;
	}

	// A target of the layer's own, cleared to transparent, then blended over the scene.
	if (!m_nLayerFramebuffer || m_nLayerWidth != m_nWidth || m_nLayerHeight != m_nHeight)
	{
		if (!m_nLayerFramebuffer)
			gl->glGenFramebuffers(1, &m_nLayerFramebuffer);
		if (!m_nLayerTexture)
			gl->glGenTextures(1, &m_nLayerTexture);
		gl->glBindTexture(GL_TEXTURE_2D, m_nLayerTexture);
		gl->glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, m_nWidth, m_nHeight, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
		gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
		gl->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
		gl->glBindFramebuffer(GL_FRAMEBUFFER, m_nLayerFramebuffer);
		gl->glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, m_nLayerTexture, 0);
		m_nLayerWidth = m_nWidth;
		m_nLayerHeight = m_nHeight;
	}
	gl->glBindFramebuffer(GL_FRAMEBUFFER, m_nLayerFramebuffer);
	gl->glViewport(0, 0, m_nWidth, m_nHeight);
	gl->glClearColor(0.0f, 0.0f, 0.0f, 0.0f);
	gl->glClear(GL_COLOR_BUFFER_BIT);
	context.m_nFramebuffer = m_nLayerFramebuffer;
	pLayerRenderer->RenderLayer(context);

	gl->glBindFramebuffer(GL_FRAMEBUFFER, m_nFramebuffer);
	gl->glViewport(0, 0, m_nWidth, m_nHeight);
	const float w = (float)m_nWidth, h = (float)m_nHeight;
	// The layer's texture has its first row at the bottom.
	const VGuiPaintSurfaceLayout quad[4] = {
		{ { 0.0f, 0.0f, 0.0f }, { 0.0f, 1.0f }, { 255, 255, 255, 255 } },
		{ { w, 0.0f, 0.0f }, { 1.0f, 1.0f }, { 255, 255, 255, 255 } },
		{ { w, h, 0.0f }, { 1.0f, 0.0f }, { 255, 255, 255, 255 } },
		{ { 0.0f, h, 0.0f }, { 0.0f, 0.0f }, { 255, 255, 255, 255 } },
	};
	// The layer holds colour already multiplied by its alpha.
	DrawRawQuad(quad, m_nLayerTexture, true);
}

void CToolSceneRenderer::DrawUnderSceneLayers(const CToolScene &scene, const CToolSceneCamera &camera)
{
	QOpenGLFunctions_3_3_Core *gl = m_pGL;
	bool bDrawn = false;
	for (int n = 0; n < scene.GetNodeCount(); ++n)
	{
		const CToolSceneNode *pNode = scene.GetNode(n);
		if (!pNode->IsVisible() || pNode->GetType() != TOOLSCENE_NODE_SCREEN_LAYER)
			continue;
		const CToolSceneNodeScreenLayer *pLayer = static_cast<const CToolSceneNodeScreenLayer *>(pNode);
		IProceduralLayerRenderer *pLayerRenderer = pLayer->GetLayerRenderer();
		if (!pLayer->IsDrawnUnderScene() || !pLayerRenderer)
			continue;
		ToolSceneLayerContext_t context;
		context.m_pRenderer = this;
		context.m_pGL = gl;
		context.m_pScene = &scene;
		context.m_pCamera = &camera;
		context.m_pszLayerName = pLayer->GetLayerName().c_str();
		context.m_nWidth = m_nWidth;
		context.m_nHeight = m_nHeight;
		context.m_nFramebuffer = m_nFramebuffer;
		gl->glDisable(GL_DEPTH_TEST);
		gl->glDepthMask(GL_FALSE);
		pLayerRenderer->RenderLayer(context);
		gl->glBindFramebuffer(GL_FRAMEBUFFER, m_nFramebuffer);
		gl->glViewport(0, 0, m_nWidth, m_nHeight);
		bDrawn = true;
	}
	if (!bDrawn)
		return;
	// Back to the state the 3D part of the frame starts from.
	gl->glDepthMask(GL_TRUE);
	gl->glDisable(GL_BLEND);
	gl->glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_FALSE);
}

void CToolSceneRenderer::DrawScreenNodes(const CToolScene &scene, const CToolSceneCamera &camera)
{
	for (int n = 0; n < scene.GetNodeCount(); ++n)
	{
		const CToolSceneNode *pNode = scene.GetNode(n);
		if (!pNode->IsVisible())
			continue;
		if (pNode->GetType() == TOOLSCENE_NODE_SCREEN_LAYER)
		{
			const CToolSceneNodeScreenLayer *pLayer = static_cast<const CToolSceneNodeScreenLayer *>(pNode);
			if (!pLayer->IsDrawnUnderScene())
				DrawLayer(scene, camera, *pLayer);
		}
		else if (pNode->GetType() == TOOLSCENE_NODE_BITMAP_OVERLAY)
			DrawBitmapOverlay(*static_cast<const CToolSceneBitmapOverlay *>(pNode));
	}
}

void CToolSceneRenderer::PurgeUnused()
{
	QOpenGLFunctions_3_3_Core *gl = m_pGL;
	auto stale = [this](const auto &gpu) { return m_nFrame > gpu.m_nLastFrame + PURGE_AFTER_FRAMES; };
	FreeWhere(gl, m_Models, stale);
	FreeWhere(gl, m_Textures, stale);
	FreeWhere(gl, m_Nodes, stale);
	FreeWhere(gl, m_Bitmaps, stale);
}

void CToolSceneRenderer::Render(const CToolScene &scene, const CToolSceneCamera &camera, int nWidth, int nHeight, uint nFramebuffer)
{
	QOpenGLFunctions_3_3_Core *gl = m_pGL;
	if (!gl || nWidth <= 0 || nHeight <= 0)
		return;
	++m_nFrame;
	m_Stats = ToolSceneRenderStats_t();
	m_nWidth = nWidth;
	m_nHeight = nHeight;
	m_nFramebuffer = nFramebuffer;
	const float aspect = (float)nWidth / (float)nHeight;
	m_ViewProjection = camera.GetViewProjectionMatrix(aspect);

	gl->glBindFramebuffer(GL_FRAMEBUFFER, nFramebuffer);
	gl->glViewport(0, 0, nWidth, nHeight);
	gl->glDisable(GL_CULL_FACE);
	gl->glDisable(GL_BLEND);
	gl->glDisable(GL_SCISSOR_TEST);
	gl->glDisable(GL_STENCIL_TEST);
	gl->glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
	gl->glDepthMask(GL_TRUE);
	const Color &clear = scene.GetClearColor();
	gl->glClearColor(clear.r / 255.0f, clear.g / 255.0f, clear.b / 255.0f, 1.0f);
	gl->glClearDepth(1.0);
	gl->glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
	// The scene leaves the target's alpha at 1: what is drawn in 3D is opaque in the picture.
	gl->glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_FALSE);
	DrawUnderSceneLayers(scene, camera);
	gl->glEnable(GL_DEPTH_TEST);
	gl->glDepthFunc(GL_LESS);

	if (scene.IsGroundEnabled())
		DrawGround(scene);

	// Opaque draw calls nearest first (hidden pixels then fail the depth test before they are
	// shaded), translucent ones farthest first after everything opaque.
	SetLightUniforms(*m_pModelBufferProgram, scene, camera, aspect);
	SetLightUniforms(*m_pModelProgram, scene, camera, aspect);
	m_pCurrentModelProgram = m_pModelProgram.get();
	gl->glCullFace(GL_BACK);
	gl->glFrontFace(GL_CCW);
	m_Opaque.clear();
	m_Translucent.clear();
	const Vector eye = camera.GetPosition();
	for (int n = 0; n < scene.GetNodeCount(); ++n)
	{
		const CToolSceneNode *pNode = scene.GetNode(n);
		if (!pNode->IsVisible() || pNode->GetType() != TOOLSCENE_NODE_MODEL)
			continue;
		const CToolSceneModelNode *pModelNode = static_cast<const CToolSceneModelNode *>(pNode);
		const std::shared_ptr<const CToolSceneModel> &pModel = pModelNode->GetModelResource();
		if (!pModel)
			continue;
		const CCompiledModel &data = pModel->GetData();
		GpuModel_t *pGpu = GetModel(*pModel);
		bool bBufferBones = false;
		const GLuint bones = data.m_Bones.empty() ? 0 : UploadBones(*pModelNode, bBufferBones);
		const SceneMatrix_t world = pModelNode->GetWorldTransform();
		DrawItem_t item;
		ToColumnMajor(world, item.m_Model);
		NormalMatrix(world, item.m_Normal);
		item.m_nBones = bones;
		item.m_bBufferBones = bBufferBones;
		item.m_vTint = pModelNode->GetTint();
		item.m_flDepth = SceneLength(world.GetTranslation() - eye);
		for (size_t m = 0; m < data.m_Meshes.size(); ++m)
		{
			if (!pModelNode->IsMeshDrawn((int)m))
				continue;
			item.m_pMesh = &pGpu->m_Meshes[m];
			for (const CompiledDrawCall_t &call : data.m_Meshes[m].m_DrawCalls)
			{
				item.m_pMaterial = pModel->GetMaterial(pModelNode->RemapMaterial((int)call.m_nMaterial));
				item.m_nFirstIndex = call.m_nFirstIndex;
				item.m_nIndexCount = call.m_nIndexCount;
				if (item.m_pMaterial && (item.m_pMaterial->IsTranslucent() || item.m_pMaterial->IsAdditive()))
					m_Translucent.push_back(item);
				else
					m_Opaque.push_back(item);
			}
		}
	}
	std::stable_sort(m_Opaque.begin(), m_Opaque.end(), [](const DrawItem_t &a, const DrawItem_t &b) { return a.m_flDepth < b.m_flDepth; });
	for (const DrawItem_t &item : m_Opaque)
		DrawItem(item);
	gl->glDisable(GL_CULL_FACE);

	CollectLines(scene, camera, nWidth);
	gl->glDepthMask(GL_FALSE);
	DrawLineBatches(true);
	gl->glDepthMask(GL_TRUE);
	DrawTints(scene);

	if (!m_Translucent.empty())
	{
		std::stable_sort(m_Translucent.begin(), m_Translucent.end(),
			[](const DrawItem_t &a, const DrawItem_t &b) { return a.m_flDepth > b.m_flDepth; });
		gl->glUseProgram(m_pModelProgram->m_nProgram);
		m_pCurrentModelProgram = m_pModelProgram.get();
		gl->glEnable(GL_BLEND);
		gl->glDepthMask(GL_FALSE);
		for (const DrawItem_t &item : m_Translucent)
		{
			if (item.m_pMaterial->IsAdditive())
				gl->glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE, GL_ZERO, GL_ONE);
			else
				gl->glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ZERO, GL_ONE);
			DrawItem(item);
		}
		gl->glDepthMask(GL_TRUE);
		gl->glDisable(GL_BLEND);
		gl->glDisable(GL_CULL_FACE);
	}

	gl->glDisable(GL_DEPTH_TEST);
	DrawLineBatches(false);
	// Layers draw alpha too (their own targets need it); their blending keeps the scene's at 1.
	gl->glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
	DrawScreenNodes(scene, camera);

	gl->glBindVertexArray(0);
	gl->glUseProgram(0);
	gl->glActiveTexture(GL_TEXTURE0);
	gl->glEnable(GL_DEPTH_TEST);
	PurgeUnused();
}
