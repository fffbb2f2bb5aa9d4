// The OpenGL 3.3 core renderer of tool scenes. One renderer belongs to one GL context (a
// widget's or an offscreen one): it uploads models, textures and bone matrices into that
// context on first use and frees them when their assets or nodes are gone. Every call runs
// with the context current.
//
// Order of a frame: clear; layers drawn under the scene; ground; opaque model draw calls, nearest node first (back faces
// culled unless the material is two-sided); grid, frustums, lines and selection bounds;
// triangle tints; translucent draw calls back to front; lines drawn on top; gizmos; then the
// screen layers and bitmap overlays in the order of the scene's nodes.
#pragma once

#include <memory>
#include <unordered_map>
#include <vector>

#include "core/utlstring.h"
#include "toolscene/toolscene.h"

class QOpenGLFunctions_3_3_Core;

struct ToolSceneRenderStats_t
{
	int m_nDrawCalls = 0;		  // model draw calls
	uint64 m_nTriangles = 0;	  // model triangles
	int m_nSkinnedNodes = 0;	  // bone uploads
	int m_nTextureUploads = 0;	  // textures uploaded this frame
	int m_nDecodedTextures = 0;	  // of them, block-compressed ones decoded on the CPU
};

class CToolSceneRenderer
{
public:
	CToolSceneRenderer();
	~CToolSceneRenderer();
	CToolSceneRenderer(const CToolSceneRenderer &) = delete;
	CToolSceneRenderer &operator=(const CToolSceneRenderer &) = delete;

	// Compiles the programs in the current context. False with the GL's message when the
	// context is not 3.3 core or a program does not build.
	bool Init(CUtlString *pError = nullptr);
	// Frees every GL object (the context must be current). Init may be called again afterwards.
	void Shutdown();
	bool IsInitialized() const { return m_pGL != nullptr; }

	// Draws the scene through the camera into the framebuffer (0: the default one) of w x h pixels.
	void Render(const CToolScene &scene, const CToolSceneCamera &camera, int nWidth, int nHeight, uint nFramebuffer);
	const ToolSceneRenderStats_t &GetStats() const { return m_Stats; }

	// Block-compressed textures go up as GL_COMPRESSED_RGB(A)_S3TC when the context has the
	// extension; otherwise (or when forced) they are decoded to RGBA8 on the CPU first.
	bool HasS3TC() const { return m_bS3TC; }
	bool HasS3TCSRGB() const { return m_bS3TCSRGB; }
	void SetForceTextureDecode(bool bForce);

	// Helpers for layer renderers, in the target being drawn (pixels of the current viewport).
	// A quad with a material (null: a plain quad of the vertices' colours), blended by alpha.
	void DrawScreenQuad(const VGuiPaintSurfaceLayout vertices[4], const CToolSceneMaterial *pMaterial);
	// A quad with the material over the whole target, its alpha times `flOpacity`.
	void DrawMaterialQuad(const CToolSceneMaterial *pMaterial, float flOpacity);
	QOpenGLFunctions_3_3_Core *GL() const { return m_pGL; }

private:
	struct Program_t;
	struct GpuMesh_t;
	struct GpuModel_t;
	struct GpuTexture_t;
	struct GpuNode_t;
	struct GpuBitmap_t;
	struct LineVertex_t;
	struct LineBatch_t;
	struct DrawItem_t;

	bool BuildProgram(Program_t &program, const char *pszVertex, const char *pszGeometry, const char *pszFragment, const char *pszName,
		CUtlString *pError);
	GpuModel_t *GetModel(const CToolSceneModel &model);
	uint GetTexture(const CToolSceneTexture *pTexture);
	// The node's skinning matrices for this frame: a uniform buffer, or with `bBufferBones` (a
	// skeleton larger than the uniform block) a texture buffer.
	uint UploadBones(const CToolSceneModelNode &node, bool &bBufferBones);
	void SetLightUniforms(Program_t &program, const CToolScene &scene, const CToolSceneCamera &camera, float flAspect);
	int MaterialFlags(const CToolSceneMaterial *pMaterial, bool bHasTangents);
	void BindMaterial(const CToolSceneMaterial *pMaterial, int nFlags, int nColorUniform);
	void DrawItem(const DrawItem_t &item);
	void CollectLines(const CToolScene &scene, const CToolSceneCamera &camera, int nWidth);
	// The batch of lines of that width and depth testing (made on first use this frame).
	std::vector<LineVertex_t> &LineBatch(float flWidth, bool bDepthTest);
	void DrawLineBatches(bool bDepthTest);
	void DrawGround(const CToolScene &scene);
	void DrawTints(const CToolScene &scene);
	void DrawUnderSceneLayers(const CToolScene &scene, const CToolSceneCamera &camera);
	void DrawScreenNodes(const CToolScene &scene, const CToolSceneCamera &camera);
	// A quad of a texture (0: white) as it stands, times the vertices' colours.
	void DrawRawQuad(const VGuiPaintSurfaceLayout vertices[4], uint nTexture, bool bPremultiplied);
	void DrawBitmapOverlay(const CToolSceneBitmapOverlay &overlay);
	void DrawLayer(const CToolScene &scene, const CToolSceneCamera &camera, const CToolSceneNodeScreenLayer &layer);
	void PurgeUnused();

	QOpenGLFunctions_3_3_Core *m_pGL = nullptr;
	bool m_bS3TC = false;
	bool m_bS3TCSRGB = false;
	bool m_bForceDecode = false;
	std::unique_ptr<Program_t> m_pModelProgram;		  // bones in a uniform block
	std::unique_ptr<Program_t> m_pModelBufferProgram; // bones in a texture buffer
	Program_t *m_pCurrentModelProgram = nullptr;
	std::unique_ptr<Program_t> m_pLineProgram;
	std::unique_ptr<Program_t> m_pColorProgram;
	std::unique_ptr<Program_t> m_pScreenProgram;
	uint m_nDynamicVAO = 0;
	uint m_nDynamicVBO = 0;
	uint m_nScreenVAO = 0;
	uint m_nScreenVBO = 0;
	uint m_nWhiteTexture = 0;
	uint m_nIdentityBones = 0;
	uint m_nLayerFramebuffer = 0;
	uint m_nLayerTexture = 0;
	int m_nLayerWidth = 0;
	int m_nLayerHeight = 0;

	std::unordered_map<uint64, std::unique_ptr<GpuModel_t>> m_Models;
	std::unordered_map<uint64, std::unique_ptr<GpuTexture_t>> m_Textures;
	std::unordered_map<uint64, std::unique_ptr<GpuNode_t>> m_Nodes;
	std::unordered_map<uint64, std::unique_ptr<GpuBitmap_t>> m_Bitmaps;
	uint64 m_nFrame = 0;

	// Per frame.
	int m_nWidth = 0;
	int m_nHeight = 0;
	uint m_nFramebuffer = 0;
	SceneMatrix_t m_ViewProjection;
	std::vector<DrawItem_t> m_Opaque;
	std::vector<DrawItem_t> m_Translucent;
	std::vector<LineBatch_t> m_LineBatches;
	std::vector<float> m_BoneScratch;
	ToolSceneRenderStats_t m_Stats;
};
