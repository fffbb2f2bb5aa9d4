#include "toolscene/toolscene.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>

#include "core/strtools.h"
#include "toolscene/scenegizmo.h"

namespace
{
std::atomic<uint64> s_nNextNodeSerial { 1 };

SceneMatrix_t MatrixFrom3x4(const CompiledMatrix3x4_t &in)
{
	SceneMatrix_t out;
	for (int r = 0; r < 3; ++r)
	{
		for (int c = 0; c < 4; ++c)
			out.m[r][c] = in.m[r][c];
	}
	return out;
}
} // namespace

// ---------------------------------------------------------------------------------------------
// CToolSceneNode

CToolSceneNode::CToolSceneNode(EToolSceneNodeType eType) : m_eType(eType), m_nSerial(s_nNextNodeSerial.fetch_add(1))
{
}

CToolSceneNode::~CToolSceneNode() = default;

void CToolSceneNode::SetTransform(const Vector &position, const QAngle &angles, float flScale)
{
	m_vPosition = position;
	m_Angles = angles;
	m_vScale = Vector(flScale, flScale, flScale);
}

SceneMatrix_t CToolSceneNode::GetLocalTransform() const
{
	return SceneMatrixFromPositionAnglesScale(m_vPosition, m_Angles, m_vScale);
}

SceneMatrix_t CToolSceneNode::GetWorldTransform() const
{
	const SceneMatrix_t local = GetLocalTransform();
	if (!m_pParent)
		return local;
	SceneMatrix_t parent;
	if (m_nParentAttachment < 0 || !m_pParent->GetAttachmentTransform(m_nParentAttachment, parent))
		parent = m_pParent->GetWorldTransform();
	return parent * local;
}

bool CToolSceneNode::SetParent(CToolSceneModelNode *pParent, const char *pszAttachment)
{
	for (const CToolSceneNode *pAncestor = pParent; pAncestor; pAncestor = pAncestor->m_pParent)
	{
		if (pAncestor == this)
			return false;
	}
	m_pParent = pParent;
	m_nParentAttachment = (pParent && pszAttachment) ? pParent->FindAttachment(pszAttachment) : -1;
	return true;
}

// ---------------------------------------------------------------------------------------------
// CToolSceneModelNode

CToolSceneModelNode::CToolSceneModelNode() : CToolSceneNode(TOOLSCENE_NODE_MODEL)
{
	SetSelectable(true);
}

CToolSceneModelNode::~CToolSceneModelNode() = default;

bool CToolSceneModelNode::SetModel(const char *pszPath, CUtlString *pError)
{
	CToolSceneResources &resources = GetScene() ? GetScene()->Resources() : CToolSceneResources::Default();
	std::shared_ptr<const CToolSceneModel> pModel = resources.LoadModel(pszPath, pError);
	SetModelResource(pModel);
	m_ModelPath = pszPath ? pszPath : "";
	return pModel != nullptr;
}

void CToolSceneModelNode::SetModelResource(std::shared_ptr<const CToolSceneModel> pModel)
{
	m_pModel = std::move(pModel);
	m_ModelPath = m_pModel ? m_pModel->GetPath() : CUtlString();
	m_nMaterialGroup = 0;
	m_BodyGroupChoices.assign(m_pModel ? m_pModel->GetData().m_BodyGroups.size() : 0, 0);
	m_Animator.SetModel(m_pModel ? &m_pModel->GetData() : nullptr);
	m_BoneToModel.clear();
	m_Skinning.clear();
	MarkPoseDirty();
}

int CToolSceneModelNode::GetMaterialGroupCount() const
{
	return m_pModel ? (int)m_pModel->GetData().m_MaterialGroups.size() : 0;
}

const char *CToolSceneModelNode::GetMaterialGroupName(int nGroup) const
{
	if (nGroup < 0 || nGroup >= GetMaterialGroupCount())
		return nullptr;
	return m_pModel->GetData().m_MaterialGroups[(size_t)nGroup].m_Name.c_str();
}

bool CToolSceneModelNode::SetMaterialGroup(const char *pszName)
{
	for (int g = 0; g < GetMaterialGroupCount(); ++g)
	{
		if (pszName && V_StrEqualNoCase(m_pModel->GetData().m_MaterialGroups[(size_t)g].m_Name, pszName))
			return SetMaterialGroupIndex(g);
	}
	return false;
}

bool CToolSceneModelNode::SetMaterialGroupIndex(int nGroup)
{
	if (nGroup < 0 || nGroup >= std::max(GetMaterialGroupCount(), 1))
		return false;
	m_nMaterialGroup = nGroup;
	return true;
}

int CToolSceneModelNode::RemapMaterial(int nMaterial) const
{
	if (!m_pModel || m_nMaterialGroup < 0 || m_nMaterialGroup >= GetMaterialGroupCount())
		return nMaterial;
	for (const CompiledMaterialRemap_t &remap : m_pModel->GetData().m_MaterialGroups[(size_t)m_nMaterialGroup].m_Remaps)
	{
		if ((int)remap.m_nFrom == nMaterial)
			return (int)remap.m_nTo;
	}
	return nMaterial;
}

int CToolSceneModelNode::GetBodyGroupCount() const
{
	return (int)m_BodyGroupChoices.size();
}

bool CToolSceneModelNode::SetBodyGroupChoice(int nGroup, int nChoice)
{
	if (nGroup < 0 || nGroup >= GetBodyGroupCount())
		return false;
	const CompiledBodyGroup_t &group = m_pModel->GetData().m_BodyGroups[(size_t)nGroup];
	if (nChoice < 0 || (size_t)nChoice >= group.m_Choices.size())
		return false;
	m_BodyGroupChoices[(size_t)nGroup] = nChoice;
	return true;
}

bool CToolSceneModelNode::SetBodyGroupChoiceByName(const char *pszGroup, const char *pszChoice)
{
	if (!pszGroup || !pszChoice)
		return false;
	for (int g = 0; g < GetBodyGroupCount(); ++g)
	{
		const CompiledBodyGroup_t &group = m_pModel->GetData().m_BodyGroups[(size_t)g];
		if (!V_StrEqualNoCase(group.m_Name, pszGroup))
			continue;
		for (size_t c = 0; c < group.m_Choices.size(); ++c)
		{
			if (V_StrEqualNoCase(group.m_Choices[c].m_Name, pszChoice))
				return SetBodyGroupChoice(g, (int)c);
		}
	}
	return false;
}

int CToolSceneModelNode::GetBodyGroupChoice(int nGroup) const
{
	if (nGroup < 0 || nGroup >= GetBodyGroupCount())
		return -1;
	return m_BodyGroupChoices[(size_t)nGroup];
}

bool CToolSceneModelNode::IsMeshDrawn(int nMesh) const
{
	if (!m_pModel || nMesh < 0 || nMesh >= m_pModel->GetData().GetMeshCount())
		return false;
	const CCompiledModel &model = m_pModel->GetData();
	const int lodCount = model.GetLodCount();
	if (lodCount > 0)
	{
		const int lod = std::min(m_nLod, lodCount - 1);
		if (!(model.m_Meshes[(size_t)nMesh].m_nLodMask & (1u << lod)))
			return false;
	}
	for (size_t g = 0; g < model.m_BodyGroups.size(); ++g)
	{
		bool bListed = false, bChosen = false;
		const std::vector<CompiledBodyGroupChoice_t> &choices = model.m_BodyGroups[g].m_Choices;
		for (size_t c = 0; c < choices.size(); ++c)
		{
			if (std::find(choices[c].m_Meshes.begin(), choices[c].m_Meshes.end(), (uint32)nMesh) == choices[c].m_Meshes.end())
				continue;
			bListed = true;
			if ((int)c == m_BodyGroupChoices[g])
				bChosen = true;
		}
		if (bListed && !bChosen)
			return false;
	}
	return true;
}

bool CToolSceneModelNode::SetSequence(const char *pszName)
{
	return pszName && m_Animator.SetSequenceByName(pszName);
}

void CToolSceneModelNode::SetSequenceIndex(int nSequence)
{
	m_Animator.SetSequence(nSequence);
}

bool CToolSceneModelNode::SetActivity(const char *pszActivity)
{
	if (!m_pModel || !pszActivity)
		return false;
	const int sequence = ToolScene_FindSequenceForActivity(m_pModel->GetData(), pszActivity);
	if (sequence < 0)
		return false;
	m_Animator.SetSequence(sequence);
	return true;
}

void CToolSceneModelNode::SetBoneMergeParent(CToolSceneModelNode *pParent)
{
	// A chain of merges back to this node would never settle.
	for (const CToolSceneModelNode *p = pParent; p; p = p->m_pBoneMergeParent)
	{
		if (p == this)
			return;
	}
	m_pBoneMergeParent = pParent;
	MarkPoseDirty();
}

void CToolSceneModelNode::UpdatePose() const
{
	if (!m_pModel)
	{
		m_BoneToModel.clear();
		m_Skinning.clear();
		return;
	}
	const CCompiledModel &model = m_pModel->GetData();
	std::vector<float> parameters((size_t)m_Animator.GetPoseParameterCount());
	for (size_t i = 0; i < parameters.size(); ++i)
		parameters[i] = m_Animator.GetPoseParameter((int)i);
	const bool bMerged = m_pBoneMergeParent && m_pBoneMergeParent->HasModel();
	if (!m_bPoseDirty && !bMerged && m_nPoseSequence == m_Animator.GetSequence() && m_flPoseFrame == m_Animator.GetFrame() &&
		m_PosePoseParameters == parameters && m_BoneToModel.size() == model.m_Bones.size())
		return;
	m_bPoseDirty = false;
	m_nPoseSequence = m_Animator.GetSequence();
	m_flPoseFrame = m_Animator.GetFrame();
	m_PosePoseParameters = parameters;
	++m_nPoseSerial;

	ScenePose_t pose;
	m_Animator.Evaluate(pose);
	if (!bMerged)
		ScenePose_ToModelSpace(model, pose, m_BoneToModel);
	else
	{
		const CCompiledModel &parentModel = m_pBoneMergeParent->m_pModel->GetData();
		const std::vector<SceneMatrix_t> &parentBones = m_pBoneMergeParent->GetBoneToModel();
		// Parent model space into this node's model space.
		const SceneMatrix_t relative = SceneAffineInverse(GetWorldTransform()) * m_pBoneMergeParent->GetWorldTransform();
		m_BoneToModel.resize(model.m_Bones.size());
		for (size_t b = 0; b < model.m_Bones.size(); ++b)
		{
			const int match = parentModel.FindBone(model.m_Bones[b].m_Name);
			if (match >= 0 && (size_t)match < parentBones.size())
			{
				m_BoneToModel[b] = relative * parentBones[(size_t)match];
				continue;
			}
			const SceneMatrix_t local = SceneMatrixFromTransform(pose[b].m_vPosition, pose[b].m_qRotation, pose[b].m_vScale);
			const int parent = model.m_Bones[b].m_nParent;
			m_BoneToModel[b] = (parent >= 0 && (size_t)parent < b) ? m_BoneToModel[(size_t)parent] * local : local;
		}
	}
	m_Skinning.resize(m_BoneToModel.size());
	for (size_t b = 0; b < m_BoneToModel.size(); ++b)
		m_Skinning[b] = m_BoneToModel[b] * MatrixFrom3x4(model.m_Bones[b].m_InverseBind);
}

const std::vector<SceneMatrix_t> &CToolSceneModelNode::GetBoneToModel() const
{
	UpdatePose();
	return m_BoneToModel;
}

const std::vector<SceneMatrix_t> &CToolSceneModelNode::GetSkinningMatrices() const
{
	UpdatePose();
	return m_Skinning;
}

int CToolSceneModelNode::FindAttachment(const char *pszName) const
{
	if (!m_pModel || !pszName)
		return -1;
	return m_pModel->GetData().FindAttachment(pszName);
}

bool CToolSceneModelNode::GetAttachmentTransform(int nAttachment, SceneMatrix_t &world) const
{
	if (!m_pModel || nAttachment < 0 || (size_t)nAttachment >= m_pModel->GetData().m_Attachments.size())
		return false;
	const CompiledAttachment_t &attachment = m_pModel->GetData().m_Attachments[(size_t)nAttachment];
	SceneMatrix_t model = SceneMatrixFromAngles(attachment.m_Angles, attachment.m_vOrigin);
	const std::vector<SceneMatrix_t> &bones = GetBoneToModel();
	if (attachment.m_nParentBone >= 0 && (size_t)attachment.m_nParentBone < bones.size())
	{
		SceneMatrix_t bone = bones[(size_t)attachment.m_nParentBone];
		if (attachment.m_bIgnoreRotation)
		{
			const Vector translation = bone.GetTranslation();
			bone = SceneMatrix_t();
			bone.SetTranslation(translation);
		}
		model = bone * model;
	}
	world = GetWorldTransform() * model;
	return true;
}

bool CToolSceneModelNode::GetAttachment(int nAttachment, Vector &position, QAngle &angles) const
{
	SceneMatrix_t world;
	if (!GetAttachmentTransform(nAttachment, world))
		return false;
	position = world.GetTranslation();
	angles = SceneMatrixToAngles(world);
	return true;
}

bool CToolSceneModelNode::GetWorldBounds(Vector &mins, Vector &maxs) const
{
	if (!m_pModel)
		return false;
	const CompiledBounds_t &bounds = m_pModel->GetData().m_Bounds;
	const SceneMatrix_t world = GetWorldTransform();
	mins = Vector(3.0e38f, 3.0e38f, 3.0e38f);
	maxs = Vector(-3.0e38f, -3.0e38f, -3.0e38f);
	for (int corner = 0; corner < 8; ++corner)
	{
		const Vector local((corner & 1) ? bounds.m_vMaxs.x : bounds.m_vMins.x, (corner & 2) ? bounds.m_vMaxs.y : bounds.m_vMins.y,
			(corner & 4) ? bounds.m_vMaxs.z : bounds.m_vMins.z);
		const Vector p = SceneTransformPoint(world, local);
		for (int axis = 0; axis < 3; ++axis)
		{
			mins[axis] = std::min(mins[axis], p[axis]);
			maxs[axis] = std::max(maxs[axis], p[axis]);
		}
	}
	return true;
}

// ---------------------------------------------------------------------------------------------
// Frustums, lines, triangles

CToolSceneFrustumNode::CToolSceneFrustumNode() : CToolSceneNode(TOOLSCENE_NODE_FRUSTUM)
{
}

void CToolSceneFrustumNode::SetProjection(float flFOV, float flNear, float flFar, float flAspect, float flOrthoWidth,
	float flOrthoHeight)
{
	auto finite = [](float value, float fallback) { return std::isfinite(value) ? value : fallback; };
	m_flFOV = std::clamp(finite(flFOV, 30.0f), 0.1f, 179.0f);
	m_flNear = std::max(finite(flNear, 1.0f), 0.0f);
	m_flFar = std::max(finite(flFar, m_flNear + 1.0f), m_flNear);
	m_flAspect = finite(flAspect, 1.0f) > 0.0f ? flAspect : 1.0f;
	m_flOrthoWidth = finite(flOrthoWidth, -1.0f);
	m_flOrthoHeight = finite(flOrthoHeight, -1.0f);
}

void CToolSceneFrustumNode::GetWorldCorners(Vector corners[8]) const
{
	const SceneMatrix_t world = GetWorldTransform();
	const bool bOrtho = m_flOrthoWidth > 0.0f && m_flOrthoHeight > 0.0f;
	const float tanX = std::tan(SceneRadians(m_flFOV) * 0.5f);
	const float tanY = tanX / m_flAspect;
	const float distances[2] = { m_flNear, m_flFar };
	for (int plane = 0; plane < 2; ++plane)
	{
		const float d = distances[plane];
		const float halfWidth = bOrtho ? m_flOrthoWidth * 0.5f : d * tanX;
		const float halfHeight = bOrtho ? m_flOrthoHeight * 0.5f : d * tanY;
		// Local frame: x forward, y left, z up.
		const Vector local[4] = { Vector(d, halfWidth, halfHeight), Vector(d, -halfWidth, halfHeight), Vector(d, -halfWidth, -halfHeight),
			Vector(d, halfWidth, -halfHeight) };
		for (int i = 0; i < 4; ++i)
			corners[plane * 4 + i] = SceneTransformPoint(world, local[i]);
	}
}

CToolSceneLineSetNode::CToolSceneLineSetNode() : CToolSceneNode(TOOLSCENE_NODE_LINES)
{
}

void CToolSceneLineSetNode::AddLine(const Vector &start, const Vector &end, const Color &color)
{
	m_Lines.push_back({ start, end, color });
}

CToolSceneTriangleTintNode::CToolSceneTriangleTintNode() : CToolSceneNode(TOOLSCENE_NODE_TRIANGLES)
{
}

void CToolSceneTriangleTintNode::AddTriangle(const Vector &a, const Vector &b, const Vector &c, const Color &color)
{
	ToolSceneTriangle_t triangle;
	triangle.m_vPoints[0] = a;
	triangle.m_vPoints[1] = b;
	triangle.m_vPoints[2] = c;
	triangle.m_Color = color;
	m_Triangles.push_back(triangle);
}

// ---------------------------------------------------------------------------------------------
// Screen layers and the bitmap overlay

CToolSceneNodeScreenLayer::CToolSceneNodeScreenLayer() : CToolSceneNode(TOOLSCENE_NODE_SCREEN_LAYER)
{
}

CToolSceneNodeScreenLayer::CToolSceneNodeScreenLayer(const char *pszLayerName, IProceduralLayerRenderer *pRenderer, bool bTakeClearTarget)
	: CToolSceneNode(TOOLSCENE_NODE_SCREEN_LAYER)
{
	SetLayer(pszLayerName, pRenderer, bTakeClearTarget);
}

void CToolSceneNodeScreenLayer::SetLayer(const char *pszLayerName, IProceduralLayerRenderer *pRenderer, bool bTakeClearTarget)
{
	m_LayerName = pszLayerName ? pszLayerName : "";
	m_pRenderer = pRenderer;
	m_bTakeClearTarget = bTakeClearTarget;
}

CToolSceneBitmapOverlay::CToolSceneBitmapOverlay() : CToolSceneNode(TOOLSCENE_NODE_BITMAP_OVERLAY)
{
}

void CToolSceneBitmapOverlay::SetAspectRatio(float flAspect)
{
	if (std::isfinite(flAspect) && flAspect > 0.0f)
		m_flAspect = flAspect;
}

bool CToolSceneBitmapOverlay::SetPixels(int nWidth, int nHeight, const uint8 *pRGBA, size_t nBytes)
{
	if (nWidth < 1 || nHeight < 1 || nWidth > 16384 || nHeight > 16384 || !pRGBA || nBytes != (size_t)nWidth * (size_t)nHeight * 4)
		return false;
	std::vector<uint8> pixels(pRGBA, pRGBA + nBytes);
	if (!m_Image.Assign(nWidth, nHeight, std::move(pixels)))
		return false;
	++m_nVersion;
	return true;
}

bool CToolSceneBitmapOverlay::SetImage(const CImageRGBA8 &image)
{
	if (image.IsEmpty())
		return false;
	return SetPixels(image.Width(), image.Height(), image.Pixels(), image.SizeInBytes());
}

void CToolSceneBitmapOverlay::ClearPixels()
{
	m_Image.Clear();
	++m_nVersion;
}

void CToolSceneBitmapOverlay::GetLetterbox(int nWidth, int nHeight, float &x, float &y, float &w, float &h) const
{
	const float viewWidth = (float)std::max(nWidth, 1), viewHeight = (float)std::max(nHeight, 1);
	if (viewWidth / viewHeight > m_flAspect)
	{
		h = viewHeight;
		w = viewHeight * m_flAspect;
	}
	else
	{
		w = viewWidth;
		h = viewWidth / m_flAspect;
	}
	x = (viewWidth - w) * 0.5f;
	y = (viewHeight - h) * 0.5f;
}

// ---------------------------------------------------------------------------------------------
// CToolScene

CToolScene::CToolScene(CToolSceneResources *pResources) : m_pResources(pResources ? pResources : &CToolSceneResources::Default())
{
}

CToolScene::~CToolScene()
{
	RemoveAllNodes();
}

void CToolScene::AddNodeInternal(std::unique_ptr<CToolSceneNode> pNode)
{
	if (!pNode || pNode->m_pScene)
		return;
	pNode->m_pScene = this;
	m_Nodes.push_back(std::move(pNode));
}

CToolSceneModelNode *CToolScene::CreateModelNode(const char *pszPath)
{
	CToolSceneModelNode *pNode = AddNode(std::make_unique<CToolSceneModelNode>());
	if (pszPath && *pszPath)
		pNode->SetModel(pszPath);
	return pNode;
}

CToolSceneFrustumNode *CToolScene::CreateFrustumNode()
{
	return AddNode(std::make_unique<CToolSceneFrustumNode>());
}

CToolSceneLineSetNode *CToolScene::CreateLineSetNode()
{
	return AddNode(std::make_unique<CToolSceneLineSetNode>());
}

CToolSceneTriangleTintNode *CToolScene::CreateTriangleTintNode()
{
	return AddNode(std::make_unique<CToolSceneTriangleTintNode>());
}

CToolSceneNodeScreenLayer *CToolScene::CreateScreenLayer(const char *pszLayerName, IProceduralLayerRenderer *pRenderer, bool bTakeClearTarget)
{
	return AddNode(std::make_unique<CToolSceneNodeScreenLayer>(pszLayerName, pRenderer, bTakeClearTarget));
}

CToolSceneBitmapOverlay *CToolScene::CreateBitmapOverlay(float flAspect)
{
	CToolSceneBitmapOverlay *pOverlay = AddNode(std::make_unique<CToolSceneBitmapOverlay>());
	pOverlay->SetAspectRatio(flAspect);
	return pOverlay;
}

void CToolScene::RemoveNode(CToolSceneNode *pNode)
{
	auto it = std::find_if(m_Nodes.begin(), m_Nodes.end(), [pNode](const std::unique_ptr<CToolSceneNode> &p) { return p.get() == pNode; });
	if (it == m_Nodes.end())
		return;
	for (const std::unique_ptr<CToolSceneNode> &pOther : m_Nodes)
	{
		if (pOther->m_pParent == pNode)
		{
			pOther->m_pParent = nullptr;
			pOther->m_nParentAttachment = -1;
		}
		if (pOther->GetType() == TOOLSCENE_NODE_MODEL)
		{
			CToolSceneModelNode *pModel = static_cast<CToolSceneModelNode *>(pOther.get());
			if (pModel->m_pBoneMergeParent == pNode)
				pModel->SetBoneMergeParent(nullptr);
		}
	}
	for (const std::unique_ptr<CToolSceneGizmo> &pGizmo : m_Gizmos)
		pGizmo->OnNodeRemoved(pNode);
	std::unique_ptr<CToolSceneNode> pOwned = std::move(*it);
	m_Nodes.erase(it);
}

void CToolScene::RemoveAllNodes()
{
	for (const std::unique_ptr<CToolSceneGizmo> &pGizmo : m_Gizmos)
	{
		for (const std::unique_ptr<CToolSceneNode> &pNode : m_Nodes)
			pGizmo->OnNodeRemoved(pNode.get());
	}
	for (const std::unique_ptr<CToolSceneNode> &pNode : m_Nodes)
	{
		pNode->m_pParent = nullptr;
		if (pNode->GetType() == TOOLSCENE_NODE_MODEL)
			static_cast<CToolSceneModelNode *>(pNode.get())->m_pBoneMergeParent = nullptr;
	}
	m_Nodes.clear();
}

CToolSceneNode *CToolScene::GetNode(int nIndex) const
{
	if (nIndex < 0 || (size_t)nIndex >= m_Nodes.size())
		return nullptr;
	return m_Nodes[(size_t)nIndex].get();
}

bool CToolScene::ContainsNode(const CToolSceneNode *pNode) const
{
	// By address only: the pointer may name a node already removed.
	return std::any_of(m_Nodes.begin(), m_Nodes.end(), [pNode](const std::unique_ptr<CToolSceneNode> &p) { return p.get() == pNode; });
}

CToolSceneGizmo *CToolScene::CreateGizmo(IGizmoListener *pListener)
{
	m_Gizmos.push_back(std::make_unique<CToolSceneGizmo>(pListener));
	return m_Gizmos.back().get();
}

void CToolScene::DestroyGizmo(CToolSceneGizmo *pGizmo)
{
	m_Gizmos.erase(std::remove_if(m_Gizmos.begin(), m_Gizmos.end(),
					   [pGizmo](const std::unique_ptr<CToolSceneGizmo> &p) { return p.get() == pGizmo; }),
		m_Gizmos.end());
}

CToolSceneGizmo *CToolScene::GetGizmo(int nIndex) const
{
	if (nIndex < 0 || (size_t)nIndex >= m_Gizmos.size())
		return nullptr;
	return m_Gizmos[(size_t)nIndex].get();
}

void CToolScene::SetGridSpacing(float flSpacing, int nLines)
{
	if (std::isfinite(flSpacing) && flSpacing > 0.0f)
		m_flGridSpacing = flSpacing;
	m_nGridLines = std::clamp(nLines, 1, 1000);
}

void CToolScene::Advance(float flSeconds)
{
	for (const std::unique_ptr<CToolSceneNode> &pNode : m_Nodes)
	{
		if (pNode->GetType() == TOOLSCENE_NODE_MODEL)
			static_cast<CToolSceneModelNode *>(pNode.get())->Advance(flSeconds);
	}
}

bool CToolScene::TraceRay(const Vector &origin, const Vector &direction, ToolSceneTraceResult_t &result, bool bSelectableOnly) const
{
	result = ToolSceneTraceResult_t();
	result.m_vRayOrigin = origin;
	result.m_vRayDirection = SceneNormalize(direction);
	const Vector dir = result.m_vRayDirection;
	float best = 3.0e38f;
	for (const std::unique_ptr<CToolSceneNode> &pNode : m_Nodes)
	{
		if (!pNode->IsVisible() || (bSelectableOnly && !pNode->IsSelectable()) || pNode->GetType() != TOOLSCENE_NODE_MODEL)
			continue;
		const CToolSceneModelNode *pModel = static_cast<const CToolSceneModelNode *>(pNode.get());
		pModel->ForEachWorldTriangle([&](const Vector &a, const Vector &b, const Vector &c, int mesh, int triangle) {
			float distance;
			if (SceneRayTriangle(origin, dir, a, b, c, distance) && distance < best)
			{
				best = distance;
				result.m_pNode = pNode.get();
				result.m_flDistance = distance;
				result.m_vHitPosition = origin + dir * distance;
				Vector normal = SceneNormalize(SceneCross(b - a, c - a));
				if (SceneDot(normal, dir) > 0.0f)
					normal = -normal;
				result.m_vHitNormal = normal;
				result.m_nMesh = mesh;
				result.m_nTriangle = triangle;
			}
			return true;
		});
	}
	return result.m_pNode != nullptr;
}

bool CToolScene::TracePixel(float x, float y, int nWidth, int nHeight, ToolSceneTraceResult_t &result, bool bSelectableOnly) const
{
	Vector origin, direction;
	m_Camera.BuildRay(x, y, nWidth, nHeight, origin, direction);
	return TraceRay(origin, direction, result, bSelectableOnly);
}

void CToolScene::SelectNode(CToolSceneNode *pNode, bool bAdd)
{
	if (!bAdd)
		ClearSelection();
	if (pNode && ContainsNode(pNode))
		pNode->SetSelected(true);
}

void CToolScene::ClearSelection()
{
	for (const std::unique_ptr<CToolSceneNode> &pNode : m_Nodes)
		pNode->SetSelected(false);
}

bool CToolScene::GetVisibleBounds(Vector &mins, Vector &maxs) const
{
	bool bAny = false;
	for (const std::unique_ptr<CToolSceneNode> &pNode : m_Nodes)
	{
		if (!pNode->IsVisible() || pNode->GetType() != TOOLSCENE_NODE_MODEL)
			continue;
		Vector nodeMins, nodeMaxs;
		if (!static_cast<const CToolSceneModelNode *>(pNode.get())->GetWorldBounds(nodeMins, nodeMaxs))
			continue;
		if (!bAny)
		{
			mins = nodeMins;
			maxs = nodeMaxs;
			bAny = true;
			continue;
		}
		for (int axis = 0; axis < 3; ++axis)
		{
			mins[axis] = std::min(mins[axis], nodeMins[axis]);
			maxs[axis] = std::max(maxs[axis], nodeMaxs[axis]);
		}
	}
	return bAny;
}
