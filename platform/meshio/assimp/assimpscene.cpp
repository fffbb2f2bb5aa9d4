#include "meshio/assimp/assimpscene.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <unordered_map>

#include <assimp/cimport.h>
#include <assimp/config.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include "core/fileio.h"
#include "core/strtools.h"
#include "meshio/fbxscene.h"
#include "meshio/meshsource.h"

namespace
{
struct AssimpSceneDeleter_t
{
	void operator()(const aiScene *scene) const { aiReleaseImport(scene); }
};
typedef std::unique_ptr<const aiScene, AssimpSceneDeleter_t> AssimpScenePtr_t;

struct PropertyStoreDeleter_t
{
	void operator()(aiPropertyStore *store) const { aiReleasePropertyStore(store); }
};

AssimpScenePtr_t Import(const char *path, CUtlString &error)
{
	std::unique_ptr<aiPropertyStore, PropertyStoreDeleter_t> store(aiCreatePropertyStore());
	// One node per model with its whole transform, not a chain of pivot helper nodes.
	aiSetImportPropertyInteger(store.get(), AI_CONFIG_IMPORT_FBX_PRESERVE_PIVOTS, 0);
	const aiScene *scene = aiImportFileExWithProperties(path, MeshioAssimpFlags(), nullptr, store.get());
	if (!scene)
		error = V_Format("%s: %s", path, aiGetErrorString());
	return AssimpScenePtr_t(scene);
}

Matrix4_t ToMatrix(const aiMatrix4x4 &m)
{
	Matrix4_t out;
	const ai_real *rows[4] = { &m.a1, &m.b1, &m.c1, &m.d1 };
	for (int r = 0; r < 4; ++r)
	{
		for (int c = 0; c < 4; ++c)
			out.m[r][c] = rows[r][c];
	}
	return out;
}

CUtlString NodeName(const aiString &name)
{
	return CUtlString(name.C_Str(), name.length);
}

// The nodes of the scene in depth-first order, with their parents and global matrices.
struct AssimpNode_t
{
	const aiNode *pNode;
	int nParent;
	Matrix4_t global;
};

void ListNodes(const aiNode *root, std::vector<AssimpNode_t> &out)
{
	std::vector<std::pair<const aiNode *, int>> stack{ { root, -1 } };
	while (!stack.empty())
	{
		const auto [node, parent] = stack.back();
		stack.pop_back();
		AssimpNode_t entry;
		entry.pNode = node;
		entry.nParent = parent;
		const Matrix4_t local = ToMatrix(node->mTransformation);
		entry.global = parent >= 0 ? MatrixMultiply(out[parent].global, local) : local;
		const int index = (int)out.size();
		out.push_back(entry);
		for (unsigned i = node->mNumChildren; i-- > 0;)
			stack.emplace_back(node->mChildren[i], index);
	}
}

// The joint of a node, or of the nearest node above it that is one; -1 when none is.
int JointAtOrAbove(const std::vector<AssimpNode_t> &nodes, const std::vector<int> &jointOfNode, int node)
{
	for (int at = node; at >= 0; at = nodes[at].nParent)
	{
		if (jointOfNode[at] >= 0)
			return jointOfNode[at];
	}
	return -1;
}

// Interpolated keys of one channel at a time in ticks; outside the keys the nearest one holds.
template <typename Key> size_t KeyBefore(const Key *keys, unsigned count, double time)
{
	size_t lo = 0, hi = count;
	while (hi - lo > 1)
	{
		const size_t mid = (lo + hi) / 2;
		if (keys[mid].mTime <= time)
			lo = mid;
		else
			hi = mid;
	}
	return lo;
}

template <typename Key> float KeyFraction(const Key *keys, unsigned count, size_t at, double time)
{
	if (at + 1 >= count)
		return 0.0f;
	const double span = keys[at + 1].mTime - keys[at].mTime;
	if (!(span > 0.0))
		return 0.0f;
	return (float)std::clamp((time - keys[at].mTime) / span, 0.0, 1.0);
}

Vector SampleVector(const aiVectorKey *keys, unsigned count, double time, const Vector &fallback)
{
	if (count == 0)
		return fallback;
	const size_t at = KeyBefore(keys, count, time);
	const float t = KeyFraction(keys, count, at, time);
	const aiVector3D &a = keys[at].mValue;
	const aiVector3D &b = keys[std::min<size_t>(at + 1, count - 1)].mValue;
	return Vector(a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t, a.z + (b.z - a.z) * t);
}

Quaternion SampleRotation(const aiQuatKey *keys, unsigned count, double time, const Quaternion &fallback)
{
	if (count == 0)
		return fallback;
	const size_t at = KeyBefore(keys, count, time);
	const float t = KeyFraction(keys, count, at, time);
	const aiQuaternion &a = keys[at].mValue;
	const aiQuaternion &b = keys[std::min<size_t>(at + 1, count - 1)].mValue;
	return QuaternionSlerp(Quaternion(a.x, a.y, a.z, a.w), Quaternion(b.x, b.y, b.z, b.w), t);
}

CUtlString AnimationName(const aiAnimation *animation, int index)
{
	CUtlString name = NodeName(animation->mName);
	// FBX stacks come as "AnimStack::name".
	const size_t colons = name.find("::");
	if (name.rfind("AnimStack::", 0) == 0 && colons != CUtlString::npos)
		name = name.substr(colons + 2);
	if (name.empty())
		name = V_Format("animation%d", index);
	return name;
}

// Samples every animation of the scene for the scene's joints, found by name.
void SampleAnimations(const aiScene *ai, SourceScene_t &scene)
{
	const int jointCount = (int)scene.joints.size();
	std::unordered_map<std::string, int> jointByName;
	for (int j = 0; j < jointCount; ++j)
		jointByName.emplace(scene.joints[j].name, j);
	for (unsigned a = 0; a < ai->mNumAnimations; ++a)
	{
		const aiAnimation *animation = ai->mAnimations[a];
		SourceAnimation_t out;
		out.name = AnimationName(animation, (int)a);
		// FBX animations count their ticks in frames of the file's rate.
		const double ticksPerSecond = animation->mTicksPerSecond > 0.0 ? animation->mTicksPerSecond : 30.0;
		const double fps = (ticksPerSecond >= 1.0 && ticksPerSecond <= 1000.0) ? ticksPerSecond : 30.0;
		const double ticksPerFrame = ticksPerSecond / fps;
		out.flFps = (float)fps;
		// Keys may start after zero; frames count from the first key.
		double start = HUGE_VAL, end = -HUGE_VAL;
		for (unsigned c = 0; c < animation->mNumChannels; ++c)
		{
			const aiNodeAnim *channel = animation->mChannels[c];
			auto extend = [&](double time) {
				start = std::min(start, time);
				end = std::max(end, time);
			};
			if (channel->mNumPositionKeys)
			{
				extend(channel->mPositionKeys[0].mTime);
				extend(channel->mPositionKeys[channel->mNumPositionKeys - 1].mTime);
			}
			if (channel->mNumRotationKeys)
			{
				extend(channel->mRotationKeys[0].mTime);
				extend(channel->mRotationKeys[channel->mNumRotationKeys - 1].mTime);
			}
			if (channel->mNumScalingKeys)
			{
				extend(channel->mScalingKeys[0].mTime);
				extend(channel->mScalingKeys[channel->mNumScalingKeys - 1].mTime);
			}
		}
		if (!(start <= end))
			start = end = 0.0;
		const double duration = std::max(end - start, animation->mDuration > 0.0 ? std::min(animation->mDuration, 1e7) : 0.0);
		out.nFrameCount = (int)std::floor(duration / ticksPerFrame + 0.5) + 1;
		out.frames.resize((size_t)out.nFrameCount * jointCount);
		// Rest transforms for joints the animation does not move.
		for (int f = 0; f < out.nFrameCount; ++f)
		{
			for (int j = 0; j < jointCount; ++j)
				out.frames[(size_t)f * jointCount + j] = scene.joints[j].bindLocal;
		}
		for (unsigned c = 0; c < animation->mNumChannels; ++c)
		{
			const aiNodeAnim *channel = animation->mChannels[c];
			const auto it = jointByName.find(NodeName(channel->mNodeName));
			if (it == jointByName.end())
				continue;
			const int j = it->second;
			const SourceTransform_t &rest = scene.joints[j].bindLocal;
			for (int f = 0; f < out.nFrameCount; ++f)
			{
				const double time = start + f * ticksPerFrame;
				SourceTransform_t &pose = out.frames[(size_t)f * jointCount + j];
				pose.position = SampleVector(channel->mPositionKeys, channel->mNumPositionKeys, time, rest.position);
				pose.orientation = SampleRotation(channel->mRotationKeys, channel->mNumRotationKeys, time, rest.orientation);
				pose.scale = SampleVector(channel->mScalingKeys, channel->mNumScalingKeys, time, rest.scale);
			}
		}
		scene.animations.push_back(std::move(out));
	}
}

// Nodes that are joints: every bone, every node between a bone and the top bone of its chain,
// every animated node.
std::vector<bool> FindJointNodes(const aiScene *ai, const std::vector<AssimpNode_t> &nodes, const std::vector<CUtlString> &extraNames)
{
	std::unordered_map<std::string, int> byName;
	for (int i = (int)nodes.size() - 1; i >= 0; --i)
		byName[NodeName(nodes[i].pNode->mName)] = i; // the first node of a name wins
	std::vector<bool> joint(nodes.size(), false);
	auto mark = [&](const std::string &name) {
		const auto it = byName.find(name);
		if (it != byName.end())
			joint[it->second] = true;
	};
	for (unsigned m = 0; m < ai->mNumMeshes; ++m)
	{
		for (unsigned b = 0; b < ai->mMeshes[m]->mNumBones; ++b)
			mark(NodeName(ai->mMeshes[m]->mBones[b]->mName));
	}
	for (unsigned a = 0; a < ai->mNumAnimations; ++a)
	{
		for (unsigned c = 0; c < ai->mAnimations[a]->mNumChannels; ++c)
			mark(NodeName(ai->mAnimations[a]->mChannels[c]->mNodeName));
	}
	for (const CUtlString &name : extraNames)
		mark(name);
	// Fill the gaps: a node between two joints is one too.
	for (size_t i = 0; i < nodes.size(); ++i)
	{
		if (!joint[i])
			continue;
		std::vector<int> between;
		for (int at = nodes[i].nParent; at >= 0; at = nodes[at].nParent)
		{
			if (joint[at])
			{
				for (int b : between)
					joint[b] = true;
				break;
			}
			between.push_back(at);
		}
	}
	return joint;
}
// The animations sampled for the scene's joints, and the whole checked.
bool FinishScene(const aiScene *ai, const char *path, SourceScene_t &scene, CUtlString &error)
{
	SampleAnimations(ai, scene);
	if (!scene.Validate(error))
	{
		error = CUtlString(path) + ": " + error;
		return false;
	}
	return true;
}
} // namespace

unsigned int MeshioAssimpFlags()
{
	return aiProcess_Triangulate;
}

bool LoadAssimpScene(const char *path, SourceScene_t &scene, CUtlString &error)
{
	scene = SourceScene_t();
	AssimpScenePtr_t ai = Import(path, error);
	if (!ai)
		return false;
	scene.format = "assimp";
	std::vector<AssimpNode_t> nodes;
	if (ai->mRootNode)
		ListNodes(ai->mRootNode, nodes);
	const std::vector<bool> isJoint = FindJointNodes(ai.get(), nodes, {});
	std::vector<int> jointOfNode(nodes.size(), -1);
	for (size_t i = 0; i < nodes.size(); ++i)
	{
		if (!isJoint[i])
			continue;
		SourceJoint_t joint;
		joint.name = NodeName(nodes[i].pNode->mName);
		joint.nParent = JointAtOrAbove(nodes, jointOfNode, nodes[i].nParent);
		joint.bindLocal = TransformFromMatrix(ToMatrix(nodes[i].pNode->mTransformation));
		MatrixInverse(nodes[i].global, joint.inverseBind);
		jointOfNode[i] = (int)scene.joints.size();
		scene.joints.push_back(joint);
	}
	std::unordered_map<std::string, int> jointByName;
	for (int j = (int)scene.joints.size() - 1; j >= 0; --j)
		jointByName[scene.joints[j].name] = j;

	// A mesh per reference from a node, placed by that node.
	for (size_t n = 0; n < nodes.size(); ++n)
	{
		const aiNode *node = nodes[n].pNode;
		for (unsigned k = 0; k < node->mNumMeshes; ++k)
		{
			if (node->mMeshes[k] >= ai->mNumMeshes)
				continue;
			const aiMesh *am = ai->mMeshes[node->mMeshes[k]];
			CSourceMesh mesh;
			mesh.m_Name = am->mName.length ? NodeName(am->mName) : NodeName(node->mName);
			mesh.m_MeshToModel = nodes[n].global;
			mesh.m_nParentJoint = JointAtOrAbove(nodes, jointOfNode, (int)n);
			mesh.m_Positions.resize(am->mNumVertices);
			for (unsigned v = 0; v < am->mNumVertices; ++v)
				mesh.m_Positions[v] = Vector(am->mVertices[v].x, am->mVertices[v].y, am->mVertices[v].z);
			aiString materialName;
			if (am->mMaterialIndex < ai->mNumMaterials)
				ai->mMaterials[am->mMaterialIndex]->Get(AI_MATKEY_NAME, materialName);
			const int32 material = mesh.FindOrAddMaterial(NodeName(materialName));
			std::vector<int32> corners;
			for (unsigned f = 0; f < am->mNumFaces; ++f)
			{
				const aiFace &face = am->mFaces[f];
				corners.assign(face.mIndices, face.mIndices + face.mNumIndices);
				mesh.AddPolygon(corners, material);
				for (unsigned i = 0; i < face.mNumIndices; ++i)
				{
					const unsigned v = face.mIndices[i];
					if (am->mNormals)
						mesh.m_CornerNormals.push_back(Vector(am->mNormals[v].x, am->mNormals[v].y, am->mNormals[v].z));
					if (am->mTextureCoords[0])
						mesh.m_CornerUVs.push_back(Vector2D(am->mTextureCoords[0][v].x, am->mTextureCoords[0][v].y));
				}
			}
			if (am->mNumBones)
			{
				std::vector<std::vector<SkinWeight_t>> perVertex(am->mNumVertices);
				for (unsigned b = 0; b < am->mNumBones; ++b)
				{
					const aiBone *bone = am->mBones[b];
					const auto it = jointByName.find(NodeName(bone->mName));
					if (it == jointByName.end())
						continue;
					// The offset goes from mesh space to the bone; from model space it is
					// offset * inverse(mesh to model).
					Matrix4_t modelToMesh;
					MatrixInverse(mesh.m_MeshToModel, modelToMesh);
					scene.joints[it->second].inverseBind = MatrixMultiply(ToMatrix(bone->mOffsetMatrix), modelToMesh);
					scene.joints[it->second].bSkinned = true;
					for (unsigned w = 0; w < bone->mNumWeights; ++w)
					{
						if (bone->mWeights[w].mVertexId < am->mNumVertices)
							perVertex[bone->mWeights[w].mVertexId].push_back(SkinWeight_t{ it->second, bone->mWeights[w].mWeight });
					}
				}
				mesh.m_WeightStart.push_back(0);
				for (const std::vector<SkinWeight_t> &weights : perVertex)
				{
					mesh.m_Weights.insert(mesh.m_Weights.end(), weights.begin(), weights.end());
					mesh.m_WeightStart.push_back((int32)mesh.m_Weights.size());
				}
			}
			scene.meshes.push_back(std::move(mesh));
		}
	}
	return FinishScene(ai.get(), path, scene, error);
}

bool LoadFbxSourceScene(const char *path, SourceScene_t &scene, CUtlString &error)
{
	SourceScene_t ours;
	if (!LoadFbxSceneFile(path, ours, error))
		return false;
	AssimpScenePtr_t ai = Import(path, error);
	if (!ai)
		return false;
	std::vector<AssimpNode_t> nodes;
	if (ai->mRootNode)
		ListNodes(ai->mRootNode, nodes);
	std::vector<CUtlString> ourNames;
	for (const SourceJoint_t &joint : ours.joints)
		ourNames.push_back(joint.name);
	const std::vector<bool> isJoint = FindJointNodes(ai.get(), nodes, ourNames);

	// Joints in assimp's hierarchy order; ours that it lacks follow in our order.
	scene = std::move(ours);
	std::vector<SourceJoint_t> joints;
	std::vector<int> jointOfNode(nodes.size(), -1);
	std::unordered_map<std::string, int> newIndex;
	for (size_t i = 0; i < nodes.size(); ++i)
	{
		if (!isJoint[i])
			continue;
		const CUtlString name = NodeName(nodes[i].pNode->mName);
		if (newIndex.count(name))
			continue;
		SourceJoint_t joint;
		const int our = scene.FindJoint(name.c_str());
		if (our >= 0)
			joint = scene.joints[our];
		else
			MatrixInverse(nodes[i].global, joint.inverseBind);
		joint.name = name;
		joint.nParent = JointAtOrAbove(nodes, jointOfNode, nodes[i].nParent);
		joint.bindLocal = TransformFromMatrix(ToMatrix(nodes[i].pNode->mTransformation));
		jointOfNode[i] = (int)joints.size();
		newIndex.emplace(name, (int)joints.size());
		joints.push_back(joint);
	}
	for (const SourceJoint_t &joint : scene.joints)
	{
		if (newIndex.count(joint.name))
			continue;
		SourceJoint_t moved = joint;
		moved.nParent = joint.nParent >= 0 ? newIndex.at(scene.joints[joint.nParent].name) : -1;
		newIndex.emplace(joint.name, (int)joints.size());
		joints.push_back(moved);
	}
	std::vector<int> remap(scene.joints.size());
	for (size_t j = 0; j < scene.joints.size(); ++j)
		remap[j] = newIndex.at(scene.joints[j].name);
	for (CSourceMesh &mesh : scene.meshes)
	{
		for (SkinWeight_t &weight : mesh.m_Weights)
			weight.nJoint = remap[weight.nJoint];
		if (mesh.m_nParentJoint >= 0)
			mesh.m_nParentJoint = remap[mesh.m_nParentJoint];
	}
	scene.joints = std::move(joints);
	// Joints that assimp does not know keep their rest transform in every frame.
	return FinishScene(ai.get(), path, scene, error);
}

bool LoadSourceSceneForCompile(const char *path, SourceScene_t &scene, CUtlString &error)
{
	CUtlBuffer bytes;
	if (!Plat_ReadFile(path, bytes, &error))
		return false;
	const SourceFormat_t format = DetectSourceFormat(bytes.View());
	if (format == SOURCE_FORMAT_FBX_BINARY || format == SOURCE_FORMAT_FBX_ASCII)
		return LoadFbxSourceScene(path, scene, error);
	return LoadSourceScene(path, bytes.View(), scene, error);
}
