// The tool scene: nodes with transforms that a renderer (scenerenderer.h) draws and a ray can
// pick. Node kinds:
// - CToolSceneModelNode: a compiled model with its materials, skin, body groups, LOD and
//   animation playback; it may hang on another model's attachment or follow its bones;
// - CToolSceneFrustumNode: a camera or light frustum drawn as lines;
// - CToolSceneLineSetNode and CToolSceneTriangleTintNode: lines and tinted triangles (topology
//   findings, helpers);
// - CToolSceneNodeScreenLayer: a named layer drawn over the scene by an IProceduralLayerRenderer;
// - CToolSceneBitmapOverlay: a picture given as pixels, letterboxed over the scene.
// The scene also holds the camera, the light (its own or the tool's global light), gizmos and
// the display options (ground, grid, selection).
//
// The scene owns its nodes; node pointers stay valid until RemoveNode. Everything here runs
// on the interface thread. No GL here: a scene can be built, animated and picked without a
// context.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "core/mathtypes.h"
#include "core/utlstring.h"
#include "imaging/image.h"
#include "toolscene/sceneanimation.h"
#include "toolscene/scenecamera.h"
#include "toolscene/scenelight.h"
#include "toolscene/sceneresources.h"

class CToolScene;
class CToolSceneGizmo;
class CToolSceneModelNode;
class CToolSceneRenderer;
class IGizmoListener;
class QOpenGLFunctions_3_3_Core;

enum EToolSceneNodeType
{
	TOOLSCENE_NODE_MODEL = 0,
	TOOLSCENE_NODE_FRUSTUM,
	TOOLSCENE_NODE_LINES,
	TOOLSCENE_NODE_TRIANGLES,
	TOOLSCENE_NODE_SCREEN_LAYER,
	TOOLSCENE_NODE_BITMAP_OVERLAY,
};

class CToolSceneNode
{
public:
	virtual ~CToolSceneNode();
	CToolSceneNode(const CToolSceneNode &) = delete;
	CToolSceneNode &operator=(const CToolSceneNode &) = delete;

	EToolSceneNodeType GetType() const { return m_eType; }
	// The scene that holds the node (null before it is added).
	CToolScene *GetScene() const { return m_pScene; }
	// Distinct for every node made in this process.
	uint64 GetSerial() const { return m_nSerial; }

	void SetName(const char *pszName) { m_Name = pszName ? pszName : ""; }
	const CUtlString &GetName() const { return m_Name; }
	void SetUserData(void *pData) { m_pUserData = pData; }
	void *GetUserData() const { return m_pUserData; }

	// The local transform: position, angles (pitch, yaw, roll in degrees) and scale.
	void SetTransform(const Vector &position, const QAngle &angles, float flScale = 1.0f);
	void SetPosition(const Vector &position) { m_vPosition = position; }
	void SetAngles(const QAngle &angles) { m_Angles = angles; }
	void SetScale(float flScale) { m_vScale = Vector(flScale, flScale, flScale); }
	void SetScale(const Vector &scale) { m_vScale = scale; }
	const Vector &GetPosition() const { return m_vPosition; }
	const QAngle &GetAngles() const { return m_Angles; }
	const Vector &GetScale() const { return m_vScale; }
	SceneMatrix_t GetLocalTransform() const;
	// The node in the world: its local transform, under its parent's attachment when it has one.
	SceneMatrix_t GetWorldTransform() const;

	// Hangs the node on an attachment of a model node (null name or an unknown one: the
	// parent's origin). Null detaches. A node cannot hang on itself or on its own child.
	bool SetParent(CToolSceneModelNode *pParent, const char *pszAttachment = nullptr);
	CToolSceneModelNode *GetParent() const { return m_pParent; }
	int GetParentAttachment() const { return m_nParentAttachment; }

	void SetVisible(bool bVisible) { m_bVisible = bVisible; }
	bool IsVisible() const { return m_bVisible; }
	// Only selectable nodes are found by clicks.
	void SetSelectable(bool bSelectable) { m_bSelectable = bSelectable; }
	bool IsSelectable() const { return m_bSelectable; }
	void SetSelected(bool bSelected) { m_bSelected = bSelected; }
	bool IsSelected() const { return m_bSelected; }

protected:
	explicit CToolSceneNode(EToolSceneNodeType eType);

private:
	friend class CToolScene;
	EToolSceneNodeType m_eType;
	CToolScene *m_pScene = nullptr;
	uint64 m_nSerial;
	CUtlString m_Name;
	void *m_pUserData = nullptr;
	Vector m_vPosition;
	QAngle m_Angles;
	Vector m_vScale = Vector(1.0f, 1.0f, 1.0f);
	CToolSceneModelNode *m_pParent = nullptr;
	int m_nParentAttachment = -1;
	bool m_bVisible = true;
	bool m_bSelectable = false;
	bool m_bSelected = false;
};

// ---------------------------------------------------------------------------------------------

class CToolSceneModelNode : public CToolSceneNode
{
public:
	CToolSceneModelNode();
	~CToolSceneModelNode() override;

	// Loads a compiled model by resource path ("models/x.zmdl" or "models/x.zmdl_c"). A missing
	// or damaged one leaves an empty node and gives false with the loader's message.
	bool SetModel(const char *pszPath, CUtlString *pError = nullptr);
	// A model already loaded (null empties the node).
	void SetModelResource(std::shared_ptr<const CToolSceneModel> pModel);
	bool HasModel() const { return m_pModel != nullptr; }
	const CUtlString &GetModelPath() const { return m_ModelPath; }
	const CCompiledModel *GetCompiledModel() const { return m_pModel ? &m_pModel->GetData() : nullptr; }
	const std::shared_ptr<const CToolSceneModel> &GetModelResource() const { return m_pModel; }

	// Material groups (skins). Group 0 is the default; an unknown name or index gives false.
	int GetMaterialGroupCount() const;
	const char *GetMaterialGroupName(int nGroup) const;
	bool SetMaterialGroup(const char *pszName);
	bool SetMaterialGroupIndex(int nGroup);
	int GetMaterialGroup() const { return m_nMaterialGroup; }
	// The material a draw call of material index `nMaterial` uses under the current group.
	int RemapMaterial(int nMaterial) const;

	// Body groups: one choice per group (0 at first). A mesh that a group's choices list is
	// drawn only when its group's current choice lists it; other meshes are always drawn.
	int GetBodyGroupCount() const;
	bool SetBodyGroupChoice(int nGroup, int nChoice);
	bool SetBodyGroupChoiceByName(const char *pszGroup, const char *pszChoice);
	int GetBodyGroupChoice(int nGroup) const;

	// The LOD drawn (0 at first; past the model's last LOD the last one is drawn).
	void SetLod(int nLod) { m_nLod = nLod < 0 ? 0 : nLod; }
	int GetLod() const { return m_nLod; }
	// The "show LOD1" option of previews: LOD 1 instead of LOD 0.
	void SetShowLod1(bool bShow) { SetLod(bShow ? 1 : 0); }
	// True when a mesh is drawn with the current LOD and body groups.
	bool IsMeshDrawn(int nMesh) const;

	// A colour multiplied into every pixel (alpha mixes it in: 0 none, 1 fully).
	void SetTint(const Vector4D &tint) { m_vTint = tint; }
	const Vector4D &GetTint() const { return m_vTint; }

	// Animation playback.
	CToolSceneAnimator &Animator() { return m_Animator; }
	const CToolSceneAnimator &Animator() const { return m_Animator; }
	bool SetSequence(const char *pszName);
	void SetSequenceIndex(int nSequence);
	// Plays the sequence of an activity ("ACT_ZARN_IDLE"); false when none plays it.
	bool SetActivity(const char *pszActivity);
	void SetPlaying(bool bPlaying) { m_Animator.SetPlaying(bPlaying); }
	void SetPlaybackRate(float flRate) { m_Animator.SetPlaybackRate(flRate); }
	void SetFrame(float flFrame) { m_Animator.SetFrame(flFrame); }
	float GetFrame() const { return m_Animator.GetFrame(); }
	int GetFrameCount() const { return m_Animator.GetFrameCount(); }
	bool SetPoseParameter(const char *pszName, float flValue) { return m_Animator.SetPoseParameterByName(pszName ? pszName : "", flValue); }
	void Advance(float flSeconds) { m_Animator.Advance(flSeconds); }

	// Bones follow the bones of the same name of another model (wearables on a hero): their
	// model-space transforms are the parent's, carried into this node's space. Null stops it.
	void SetBoneMergeParent(CToolSceneModelNode *pParent);
	CToolSceneModelNode *GetBoneMergeParent() const { return m_pBoneMergeParent; }

	// The pose of the current frame: bone-to-model matrices and skinning matrices (bone to
	// model times the inverse bind), recomputed when asked after any change.
	const std::vector<SceneMatrix_t> &GetBoneToModel() const;
	const std::vector<SceneMatrix_t> &GetSkinningMatrices() const;
	// Attachments, by name without case (-1 when unknown), and their world transforms in the
	// current pose.
	int FindAttachment(const char *pszName) const;
	bool GetAttachmentTransform(int nAttachment, SceneMatrix_t &world) const;
	bool GetAttachment(int nAttachment, Vector &position, QAngle &angles) const;

	// The drawn meshes' positions in the current pose, in world space, triangle by triangle
	// (what picking tests). Calls `fn(a, b, c, mesh, triangle)`; stops when it returns false.
	template<typename F>
	void ForEachWorldTriangle(F &&fn) const;
	// Bounds of the model in world space (its compiled bounds under the node's transform).
	bool GetWorldBounds(Vector &mins, Vector &maxs) const;

private:
	void UpdatePose() const;
	void MarkPoseDirty() const { m_bPoseDirty = true; }

	std::shared_ptr<const CToolSceneModel> m_pModel;
	CUtlString m_ModelPath;
	int m_nMaterialGroup = 0;
	std::vector<int> m_BodyGroupChoices;
	int m_nLod = 0;
	Vector4D m_vTint = Vector4D(1.0f, 1.0f, 1.0f, 0.0f);
	CToolSceneAnimator m_Animator;
	CToolSceneModelNode *m_pBoneMergeParent = nullptr;

	// The pose is cached per state of the animator (sequence, frame, parameters) and parent.
	mutable bool m_bPoseDirty = true;
	mutable int m_nPoseSequence = -2;
	mutable float m_flPoseFrame = -1.0f;
	mutable std::vector<float> m_PosePoseParameters;
	mutable uint64 m_nPoseSerial = 0;
	mutable uint64 m_nParentPoseSerial = 0;
	mutable SceneMatrix_t m_PoseParentRelative;
	mutable std::vector<SceneMatrix_t> m_BoneToModel;
	mutable std::vector<SceneMatrix_t> m_Skinning;
	mutable std::vector<Vector> m_SkinnedScratch;
	friend class CToolScene;
};

// ---------------------------------------------------------------------------------------------

class CToolSceneFrustumNode : public CToolSceneNode
{
public:
	CToolSceneFrustumNode();

	// Full horizontal field of view in degrees, near and far planes, aspect (width / height).
	// Two further values give an orthographic frustum of that width and height; -1 leaves
	// them unset (a perspective frustum).
	void SetProjection(float flFOV, float flNear, float flFar, float flAspect, float flOrthoWidth = -1.0f,
		float flOrthoHeight = -1.0f);
	float GetFOV() const { return m_flFOV; }
	float GetNear() const { return m_flNear; }
	float GetFar() const { return m_flFar; }
	float GetAspect() const { return m_flAspect; }
	void SetColor(const Color &color) { m_Color = color; }
	const Color &GetColor() const { return m_Color; }
	// The eight corners in world space: near plane then far plane, each top-left, top-right,
	// bottom-right, bottom-left as seen from the frustum's origin.
	void GetWorldCorners(Vector corners[8]) const;

private:
	float m_flFOV = 30.0f;
	float m_flNear = 10.0f;
	float m_flFar = 200.0f;
	float m_flAspect = 1.0f;
	float m_flOrthoWidth = -1.0f;
	float m_flOrthoHeight = -1.0f;
	Color m_Color = Color(255, 220, 64);
};

// ---------------------------------------------------------------------------------------------

struct ToolSceneLine_t
{
	Vector m_vStart;
	Vector m_vEnd;
	Color m_Color;
};

// Lines in the node's space.
class CToolSceneLineSetNode : public CToolSceneNode
{
public:
	CToolSceneLineSetNode();
	void Clear() { m_Lines.clear(); }
	void AddLine(const Vector &start, const Vector &end, const Color &color);
	const std::vector<ToolSceneLine_t> &GetLines() const { return m_Lines; }
	// Width in pixels.
	void SetLineWidth(float flPixels) { m_flWidth = flPixels > 0.0f ? flPixels : 1.0f; }
	float GetLineWidth() const { return m_flWidth; }
	// Drawn over everything, not hidden by the scene's surfaces.
	void SetDrawOnTop(bool bOnTop) { m_bOnTop = bOnTop; }
	bool IsDrawnOnTop() const { return m_bOnTop; }

private:
	std::vector<ToolSceneLine_t> m_Lines;
	float m_flWidth = 2.0f;
	bool m_bOnTop = false;
};

struct ToolSceneTriangle_t
{
	Vector m_vPoints[3];
	Color m_Color; // alpha blends it over what lies under it
};

// Tinted triangles in the node's space, drawn blended and a little in front of coplanar faces.
class CToolSceneTriangleTintNode : public CToolSceneNode
{
public:
	CToolSceneTriangleTintNode();
	void Clear() { m_Triangles.clear(); }
	void AddTriangle(const Vector &a, const Vector &b, const Vector &c, const Color &color);
	const std::vector<ToolSceneTriangle_t> &GetTriangles() const { return m_Triangles; }
	void SetDrawOnTop(bool bOnTop) { m_bOnTop = bOnTop; }
	bool IsDrawnOnTop() const { return m_bOnTop; }

private:
	std::vector<ToolSceneTriangle_t> m_Triangles;
	bool m_bOnTop = false;
};

// ---------------------------------------------------------------------------------------------
// Screen layers

// The vertex of screen quads: position in pixels of the target (x right, y down; z unused),
// texture coordinate, and a colour multiplied in.
struct VGuiPaintSurfaceLayout
{
	float position[3];
	float texcoord[2];
	uint8 color[4];
};

// What a layer renderer is given while it draws.
struct ToolSceneLayerContext_t
{
	CToolSceneRenderer *m_pRenderer = nullptr; // helpers: DrawScreenQuad, DrawMaterialQuad
	QOpenGLFunctions_3_3_Core *m_pGL = nullptr;
	const CToolScene *m_pScene = nullptr;
	const CToolSceneCamera *m_pCamera = nullptr;
	const char *m_pszLayerName = "";
	int m_nWidth = 0;  // the target, in pixels
	int m_nHeight = 0;
	uint m_nFramebuffer = 0; // bound while the renderer runs
};

class IProceduralLayerRenderer
{
public:
	virtual void RenderLayer(const ToolSceneLayerContext_t &context) = 0;

protected:
	~IProceduralLayerRenderer() = default;
};

// A named layer drawn over the scene by a renderer (not owned). With the clear target taken,
// the layer draws straight into the scene's colour target; otherwise it draws into a target of
// its own, cleared to transparent, which is then blended over the scene.
//
// A layer drawn under the scene (a backdrop) draws straight into the scene's colour target
// right after the clear, before anything in 3D; what the scene draws then covers it.
class CToolSceneNodeScreenLayer : public CToolSceneNode
{
public:
	CToolSceneNodeScreenLayer();
	CToolSceneNodeScreenLayer(const char *pszLayerName, IProceduralLayerRenderer *pRenderer, bool bTakeClearTarget);

	void SetLayer(const char *pszLayerName, IProceduralLayerRenderer *pRenderer, bool bTakeClearTarget);
	const CUtlString &GetLayerName() const { return m_LayerName; }
	IProceduralLayerRenderer *GetLayerRenderer() const { return m_pRenderer; }
	bool TakesClearTarget() const { return m_bTakeClearTarget; }
	void SetDrawnUnderScene(bool bUnder) { m_bUnderScene = bUnder; }
	bool IsDrawnUnderScene() const { return m_bUnderScene; }

private:
	CUtlString m_LayerName;
	IProceduralLayerRenderer *m_pRenderer = nullptr;
	bool m_bTakeClearTarget = true;
	bool m_bUnderScene = false;
};

// A layer renderer that draws one full-screen quad with a material: the colour texture (or
// constant) times the opacity, blended by its alpha.
class CToolSceneMaterialQuadRenderer : public IProceduralLayerRenderer
{
public:
	CToolSceneMaterialQuadRenderer() = default;
	explicit CToolSceneMaterialQuadRenderer(CToolSceneMaterialRef material) : m_Material(std::move(material)) {}
	virtual ~CToolSceneMaterialQuadRenderer() = default;

	void SetMaterial(CToolSceneMaterialRef material) { m_Material = std::move(material); }
	const CToolSceneMaterialRef &GetMaterial() const { return m_Material; }
	void SetOpacity(float flOpacity) { m_flOpacity = flOpacity; }
	float GetOpacity() const { return m_flOpacity; }

	void RenderLayer(const ToolSceneLayerContext_t &context) override;

private:
	CToolSceneMaterialRef m_Material;
	float m_flOpacity = 1.0f;
};

// A picture over the scene: RGBA pixels shown whole in the largest rectangle of the given
// aspect ratio that fits the view, centred, with bars of the bar colour around it.
class CToolSceneBitmapOverlay : public CToolSceneNode
{
public:
	CToolSceneBitmapOverlay();

	void SetAspectRatio(float flAspect);
	float GetAspectRatio() const { return m_flAspect; }
	// False for a size below 1 or pixels of the wrong size (the overlay keeps what it had).
	bool SetPixels(int nWidth, int nHeight, const uint8 *pRGBA, size_t nBytes);
	bool SetImage(const CImageRGBA8 &image);
	// Blank: only the bars' colour.
	void ClearPixels();
	const CImageRGBA8 &GetImage() const { return m_Image; }
	// Changes whenever the pixels do (the renderer uploads again).
	uint64 GetPixelsVersion() const { return m_nVersion; }
	void SetBarColor(const Color &color) { m_BarColor = color; }
	const Color &GetBarColor() const { return m_BarColor; }
	// The picture's rectangle in a view of w x h pixels: left, top, width, height.
	void GetLetterbox(int nWidth, int nHeight, float &x, float &y, float &w, float &h) const;

private:
	float m_flAspect = 16.0f / 9.0f;
	CImageRGBA8 m_Image;
	uint64 m_nVersion = 1;
	Color m_BarColor = Color(0, 0, 0, 255);
};

// ---------------------------------------------------------------------------------------------

// What a ray found.
struct ToolSceneTraceResult_t
{
	CToolSceneNode *m_pNode = nullptr; // null: nothing
	Vector m_vHitPosition;
	Vector m_vHitNormal;
	float m_flDistance = 0.0f;
	int m_nMesh = -1;
	int m_nTriangle = -1;
	Vector m_vRayOrigin;
	Vector m_vRayDirection;
};

class CToolScene
{
public:
	explicit CToolScene(CToolSceneResources *pResources = nullptr);
	~CToolScene();
	CToolScene(const CToolScene &) = delete;
	CToolScene &operator=(const CToolScene &) = delete;

	CToolSceneResources &Resources() const { return *m_pResources; }

	// Nodes. Add takes ownership; Remove deletes the node and clears every reference to it
	// (children hanging on it, bone-merged models, gizmos placed on it).
	template<typename T>
	T *AddNode(std::unique_ptr<T> pNode)
	{
		T *pRaw = pNode.get();
		AddNodeInternal(std::unique_ptr<CToolSceneNode>(pNode.release()));
		return pRaw;
	}
	// A model node, with its model when a path is given (a missing model leaves it empty).
	CToolSceneModelNode *CreateModelNode(const char *pszPath = nullptr);
	CToolSceneFrustumNode *CreateFrustumNode();
	CToolSceneLineSetNode *CreateLineSetNode();
	CToolSceneTriangleTintNode *CreateTriangleTintNode();
	CToolSceneNodeScreenLayer *CreateScreenLayer(const char *pszLayerName, IProceduralLayerRenderer *pRenderer, bool bTakeClearTarget);
	CToolSceneBitmapOverlay *CreateBitmapOverlay(float flAspect);
	void RemoveNode(CToolSceneNode *pNode);
	void RemoveAllNodes();
	int GetNodeCount() const { return (int)m_Nodes.size(); }
	CToolSceneNode *GetNode(int nIndex) const;
	bool ContainsNode(const CToolSceneNode *pNode) const;

	// Gizmos, drawn over the scene and grabbed by the widget's mouse.
	CToolSceneGizmo *CreateGizmo(IGizmoListener *pListener);
	void DestroyGizmo(CToolSceneGizmo *pGizmo);
	int GetGizmoCount() const { return (int)m_Gizmos.size(); }
	CToolSceneGizmo *GetGizmo(int nIndex) const;

	CToolSceneCamera &Camera() { return m_Camera; }
	const CToolSceneCamera &Camera() const { return m_Camera; }

	// The light used for shading: the one set here (not owned; e.g. the global light), or the
	// scene's own default.
	void SetGlobalLight(const CToolSceneGlobalLight *pLight) { m_pGlobalLight = pLight; }
	const CToolSceneGlobalLight *GetGlobalLight() const { return m_pGlobalLight; }
	const CToolSceneGlobalLight &GetLight() const { return m_pGlobalLight ? *m_pGlobalLight : m_DefaultLight; }
	CToolSceneGlobalLight &DefaultLight() { return m_DefaultLight; }

	// Display options.
	void SetGroundEnabled(bool bEnabled) { m_bGround = bEnabled; }
	bool IsGroundEnabled() const { return m_bGround; }
	void SetGridEnabled(bool bEnabled) { m_bGrid = bEnabled; }
	bool IsGridEnabled() const { return m_bGrid; }
	// Clicks select nodes; selected model nodes show their bounds.
	void SetSelectionEnabled(bool bEnabled) { m_bSelection = bEnabled; }
	bool IsSelectionEnabled() const { return m_bSelection; }
	void SetGridSpacing(float flSpacing, int nLines);
	float GetGridSpacing() const { return m_flGridSpacing; }
	int GetGridLines() const { return m_nGridLines; }
	void SetGroundColor(const Color &color) { m_GroundColor = color; }
	const Color &GetGroundColor() const { return m_GroundColor; }
	void SetClearColor(const Color &color) { m_ClearColor = color; }
	const Color &GetClearColor() const { return m_ClearColor; }

	// Moves every playing model node's animation on.
	void Advance(float flSeconds);

	// The nearest visible node that a ray meets (model nodes by their triangles in the current
	// pose). Only selectable nodes unless `bSelectableOnly` is false.
	bool TraceRay(const Vector &origin, const Vector &direction, ToolSceneTraceResult_t &result, bool bSelectableOnly = true) const;
	// The same through a pixel of a w x h view of the scene's camera.
	bool TracePixel(float x, float y, int nWidth, int nHeight, ToolSceneTraceResult_t &result, bool bSelectableOnly = true) const;

	// Selection: clicking with selection enabled selects one node (or adds it with `bAdd`).
	void SelectNode(CToolSceneNode *pNode, bool bAdd = false);
	void ClearSelection();

	// The bounds of all visible model nodes; false when there are none.
	bool GetVisibleBounds(Vector &mins, Vector &maxs) const;

private:
	void AddNodeInternal(std::unique_ptr<CToolSceneNode> pNode);

	CToolSceneResources *m_pResources;
	std::vector<std::unique_ptr<CToolSceneNode>> m_Nodes;
	std::vector<std::unique_ptr<CToolSceneGizmo>> m_Gizmos;
	CToolSceneCamera m_Camera;
	CToolSceneGlobalLight m_DefaultLight;
	const CToolSceneGlobalLight *m_pGlobalLight = nullptr;
	bool m_bGround = false;
	bool m_bGrid = false;
	bool m_bSelection = false;
	float m_flGridSpacing = 16.0f;
	int m_nGridLines = 64;
	Color m_GroundColor = Color(72, 74, 78, 255);
	Color m_ClearColor = Color(48, 52, 58, 255);
};

// ---------------------------------------------------------------------------------------------

template<typename F>
void CToolSceneModelNode::ForEachWorldTriangle(F &&fn) const
{
	if (!m_pModel)
		return;
	const CCompiledModel &model = m_pModel->GetData();
	const SceneMatrix_t world = GetWorldTransform();
	const std::vector<SceneMatrix_t> &skinning = GetSkinningMatrices();
	for (size_t m = 0; m < model.m_Meshes.size(); ++m)
	{
		if (!IsMeshDrawn((int)m))
			continue;
		const CompiledMesh_t &mesh = model.m_Meshes[m];
		std::vector<Vector> &points = m_SkinnedScratch;
		points.resize(mesh.VertexCount());
		for (uint32 v = 0; v < mesh.VertexCount(); ++v)
		{
			Vector p = mesh.m_Positions[v];
			if (mesh.IsSkinned() && !skinning.empty())
			{
				Vector sum;
				for (int k = 0; k < 4; ++k)
				{
					const uint8 weight = mesh.m_BoneWeights[v].m_nWeight[k];
					if (!weight)
						continue;
					const uint32 bone = mesh.m_Bones[mesh.m_BoneIndices[v].m_nIndex[k]];
					if (bone < skinning.size())
						sum += SceneTransformPoint(skinning[bone], p) * ((float)weight / 255.0f);
				}
				p = sum;
			}
			points[v] = SceneTransformPoint(world, p);
		}
		const uint32 triangles = mesh.IndexCount() / 3;
		for (uint32 t = 0; t < triangles; ++t)
		{
			if (!fn(points[mesh.GetIndex(t * 3)], points[mesh.GetIndex(t * 3 + 1)], points[mesh.GetIndex(t * 3 + 2)], (int)m, (int)t))
				return;
		}
	}
}
