// Model documents through the command: what goes in comes out (meshes and triangles per LOD,
// bones, sequences and frames, attachments, remaps, body groups), against the test's own
// sources and against assimp's view of FBX files made by other tools.
#include <algorithm>
#include <cmath>
#include <map>

#include <assimp/cimport.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include "compiledassets/compiledassets.h"
#include "imaging/imagewrite.h"
#include "meshio/assimp/assimpscene.h"
#include "meshio/meshsource.h"
#include "resourcecompiler/modelbuild.h"
#include "resourcecompiler/tests/compiler_test_support.h"
#include "imagefiles.h"
#include "testimages.h"

namespace
{
std::string MeshNode(const std::string &name, const std::string &file)
{
	return "\t\t\t\t\t{ _class = \"RenderMeshFile\" name = \"" + name + "\" filename = \"" + file + "\" },\n";
}

std::string DefaultMaterial(const std::string &material)
{
	return ListNode("MaterialGroupList",
		"\t\t\t\t\t{ _class = \"DefaultMaterialGroup\" use_global_default = true global_default_material = \"" + material + "\" },");
}

// Writes the creature's sources, materials and its whole document.
struct CreatureFiles_t
{
	FbxWriterScene_t fbx;
	SourceScene_t dmx;
	std::string document;
};

CreatureFiles_t WriteCreature(const CContentTree &tree, const std::string &attachmentBone = "head")
{
	CreatureFiles_t files;
	files.fbx = MakeCreatureFbx();
	files.fbx.animations.push_back(MakeCreatureAnimation(files.fbx, "run", 12, 20.0));
	tree.Write("models/creature.fbx", WriteFbxScene(files.fbx));
	// An animation file with the skeleton alone.
	FbxWriterScene_t idle;
	idle.joints = files.fbx.joints;
	idle.animations.push_back(MakeCreatureAnimation(idle, "idle", 8, 5.0));
	tree.Write("models/creature_idle.fbx", WriteFbxScene(idle));
	files.dmx = MakeCreatureDmxScene(5);
	CUtlString error;
	EXPECT_TRUE(WriteDmxScene(files.dmx, tree.NewContent("models/creature_lod1.dmx"), error)) << error;
	EXPECT_TRUE(WriteDmxScene(files.dmx, tree.NewContent("particles/creature_points.dmx"), error)) << error;

	CImageRGBA8 color;
	color.Init(64, 64);
	for (int y = 0; y < 64; ++y)
	{
		for (int x = 0; x < 64; ++x)
		{
			uint8 *p = color.Pixel(x, y);
			p[0] = (uint8)(x * 4);
			p[1] = (uint8)(y * 4);
			p[2] = 90;
			p[3] = 255;
		}
	}
	EXPECT_TRUE(Image_WritePNGFile(tree.NewContent("materials/creature_color.png").c_str(), color));
	tree.Write("materials/creature.zmat", MaterialDocument("materials/creature_color.png"));
	tree.Write("materials/creature_gold.zmat", MaterialDocument("[1.000000 0.800000 0.100000 1.000000]"));

	std::string lists;
	lists += ListNode("RenderMeshList", MeshNode("creature", "models/creature.fbx") + MeshNode("creature_lod1", "models/creature_lod1.dmx"));
	lists += ListNode("LODGroupList", "\t\t\t\t\t{ _class = \"LODGroup\" switch_threshold = 0.0 meshes = [ \"creature\" ] },\n"
									  "\t\t\t\t\t{ _class = \"LODGroup\" switch_threshold = 1.0 meshes = [ \"creature_lod1\" ] },");
	lists += ListNode("BodyGroupList", "\t\t\t\t\t{ _class = \"BodyGroup\" name = \"body\" children = [\n"
									   "\t\t\t\t\t\t{ _class = \"BodyGroupChoice\" meshes = [ \"creature\" ] },\n"
									   "\t\t\t\t\t\t{ _class = \"BodyGroupChoice\" meshes = [ ] } ] },");
	lists += ListNode("MaterialGroupList",
		"\t\t\t\t\t{ _class = \"DefaultMaterialGroup\" remaps = [ ] use_global_default = true global_default_material = \"materials/creature.zmat\" },\n"
		"\t\t\t\t\t{ _class = \"MaterialGroup\" name = \"gold\" remaps = [ { from = \"materials/creature.zmat\" to = \"materials/creature_gold.zmat\" } ] },");
	lists += ListNode("AnimationList",
		"\t\t\t\t\t{ _class = \"AnimBindPose\" name = \"bind_pose\" },\n"
		"\t\t\t\t\t{ _class = \"AnimFile\" name = \"run\" source_filename = \"models/creature.fbx\" looping = true activity_name = \"ACT_RUN\"\n"
		"\t\t\t\t\t\tactivity_weight = 1 children = [\n"
		"\t\t\t\t\t\t\t{ _class = \"ExtractMotion\" extract_tx = true root_bone_name = \"root\" },\n"
		"\t\t\t\t\t\t\t{ _class = \"ActivityModifier\" activity_name = \"haste\" activity_weight = 2 },\n"
		"\t\t\t\t\t\t\t{ _class = \"AnimEvent\" event_class = \"footstep\" event_frame = 3 event_keys = { foot = \"left\" } } ] },\n"
		"\t\t\t\t\t{ _class = \"AnimFile\" name = \"idle\" source_filename = \"models/creature_idle.fbx\" looping = true },\n"
		"\t\t\t\t\t{ _class = \"AnimFile\" name = \"run_delta\" source_filename = \"models/creature.fbx\" delta = true\n"
		"\t\t\t\t\t\tweight_list_name = \"weightlist_run_delta\" children = [ { _class = \"AnimSubtract\" anim_name = \"run_delta\" frame = 0 } ] },\n"
		"\t\t\t\t\t{ _class = \"AnimFile\" name = \"wave\" source_filename = \"models/creature_lod1.dmx\" },\n"
		"\t\t\t\t\t{ _class = \"1DBlend\" name = \"turn_blend\" blend_pose_param = \"turn\"\n"
		"\t\t\t\t\t\tblend_keys = [ { child_name = \"idle\" value = -1.0 }, { child_name = \"run\" value = 1.0 } ] },\n"
		"\t\t\t\t\t{ _class = \"AnimFile\" name = \"run_layered\" source_filename = \"models/creature.fbx\" looping = true\n"
		"\t\t\t\t\t\tchildren = [ { _class = \"AnimAddLayer\" anim_name = \"turn_blend\" } ] },");
	lists += ListNode("WeightListList", "\t\t\t\t\t{ _class = \"WeightList\" name = \"weightlist_run_delta\" weights = [ { bone = \"spine\" weight = 1.0 } ] },");
	lists += ListNode("PoseParamList", "\t\t\t\t\t{ _class = \"PoseParam\" name = \"turn\" poseparam_min = -1.0 poseparam_max = 1.0 },");
	lists += ListNode("AttachmentList", "\t\t\t\t\t{ _class = \"Attachment\" name = \"hat\" parent_bone = \"" + attachmentBone +
											"\" relative_origin = [ 0.0, 3.0, 0.0 ] relative_angles = [ 0.0, 90.0, 0.0 ] },");
	lists += ListNode("HitboxSetList", "\t\t\t\t\t{ _class = \"HitboxSet_Auto\" name = \"default\" },\n"
									   "\t\t\t\t\t{ _class = \"HitboxSet\" name = \"custom\" children = [\n"
									   "\t\t\t\t\t\t{ _class = \"Hitbox\" name = \"torso\" parent_bone = \"spine\" hitbox_mins = [ -1.0, -1.0, -1.0 ]\n"
									   "\t\t\t\t\t\t\thitbox_maxs = [ 1.0, 2.0, 1.0 ] } ] },");
	lists += ListNode("ZSNAPFileList", "\t\t\t\t\t{ _class = \"ZSNAPFile\" filename = \"particles/creature_points.dmx\"\n"
									   "\t\t\t\t\t\toutput_zsnap = \"particles/creature_points.zsnap\" local_space_bone = \"spine\" },");
	files.document = ModelDocument(lists);
	tree.Write("models/creature.zmdl", files.document);
	return files;
}

long long SourceFanTriangles(const SourceScene_t &scene)
{
	long long count = 0;
	for (const CSourceMesh &mesh : scene.meshes)
		count += mesh.TriangleCount();
	return count;
}

// The bones' model-space matrices for one frame of a sequence (or the bind pose with null).
std::vector<Matrix4_t> BoneGlobals(const CCompiledModel &model, const CompiledSequence_t *pSequence, uint32 frame)
{
	std::vector<Matrix4_t> globals(model.m_Bones.size());
	for (size_t b = 0; b < model.m_Bones.size(); ++b)
	{
		SourceTransform_t local;
		if (pSequence && pSequence->m_nBoneCount)
		{
			const size_t at = (size_t)frame * pSequence->m_nBoneCount + b;
			local.position = pSequence->m_Translations[at];
			const CompiledQuaternion_t &q = pSequence->m_Rotations[at];
			local.orientation = Quaternion(q.x, q.y, q.z, q.w);
			if (!pSequence->m_Scales.empty())
				local.scale = pSequence->m_Scales[at];
		}
		else
		{
			const CompiledBone_t &bone = model.m_Bones[b];
			local.position = bone.m_vPosition;
			local.orientation = Quaternion(bone.m_qRotation.x, bone.m_qRotation.y, bone.m_qRotation.z, bone.m_qRotation.w);
			local.scale = bone.m_vScale;
		}
		const Matrix4_t matrix = MatrixFromTransform(local);
		const int32 parent = model.m_Bones[b].m_nParent;
		globals[b] = parent >= 0 ? MatrixMultiply(globals[(size_t)parent], matrix) : matrix;
	}
	return globals;
}

Matrix4_t InverseBind(const CompiledBone_t &bone)
{
	Matrix4_t m;
	for (int r = 0; r < 3; ++r)
	{
		for (int c = 0; c < 4; ++c)
			m.m[r][c] = bone.m_InverseBind.m[r][c];
	}
	return m;
}

// Every skinned vertex of every mesh posed by the bone matrices.
std::vector<Vector> SkinnedPositions(const CCompiledModel &model, const std::vector<Matrix4_t> &globals)
{
	std::vector<Vector> out;
	for (const CompiledMesh_t &mesh : model.m_Meshes)
	{
		for (size_t v = 0; v < mesh.m_Positions.size(); ++v)
		{
			if (!mesh.IsSkinned())
			{
				out.push_back(mesh.m_Positions[v]);
				continue;
			}
			double sum[3] = { 0, 0, 0 };
			for (int i = 0; i < 4; ++i)
			{
				const double w = mesh.m_BoneWeights[v].m_nWeight[i] / 255.0;
				if (w == 0.0)
					continue;
				const uint32 bone = mesh.m_Bones[mesh.m_BoneIndices[v].m_nIndex[i]];
				const Vector p = MatrixTransformPoint(MatrixMultiply(globals[bone], InverseBind(model.m_Bones[bone])), mesh.m_Positions[v]);
				sum[0] += w * p.x;
				sum[1] += w * p.y;
				sum[2] += w * p.z;
			}
			out.push_back(Vector((float)sum[0], (float)sum[1], (float)sum[2]));
		}
	}
	return out;
}

double Distance(const Vector &a, const Vector &b)
{
	return std::sqrt(((double)a.x - b.x) * (a.x - b.x) + ((double)a.y - b.y) * (a.y - b.y) + ((double)a.z - b.z) * (a.z - b.z));
}

double Extent(const std::vector<Vector> &points)
{
	Vector lo = points.empty() ? Vector() : points[0], hi = lo;
	for (const Vector &p : points)
	{
		for (int k = 0; k < 3; ++k)
		{
			lo[k] = std::min(lo[k], p[k]);
			hi[k] = std::max(hi[k], p[k]);
		}
	}
	return std::max(1e-6, Distance(lo, hi));
}

// The largest distance from a point of `a` to the nearest point of `b`.
double FarthestNearest(const std::vector<Vector> &a, const std::vector<Vector> &b)
{
	double worst = 0.0;
	for (const Vector &p : a)
	{
		double best = HUGE_VAL;
		for (const Vector &q : b)
			best = std::min(best, Distance(p, q));
		worst = std::max(worst, best);
	}
	return worst;
}

// assimp's own view: its nodes posed at a time (in ticks) of an animation, and the skinned
// vertices of its meshes at that pose.
struct AssimpPose_t
{
	std::map<std::string, Matrix4_t> nodeGlobal;
	std::vector<Vector> vertices;
};

Matrix4_t FromAssimp(const aiMatrix4x4 &m)
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

// A channel's value at a time: keys are linear between them, and hold before the first and after
// the last.
template <typename Key> void KeyPair(const Key *keys, unsigned count, double time, size_t &at, float &t)
{
	at = 0;
	while (at + 1 < count && keys[at + 1].mTime <= time)
		++at;
	t = 0.0f;
	if (at + 1 < count && keys[at + 1].mTime > keys[at].mTime && time > keys[at].mTime)
		t = (float)std::min(1.0, (time - keys[at].mTime) / (keys[at + 1].mTime - keys[at].mTime));
}

Vector VectorAt(const aiVectorKey *keys, unsigned count, double time)
{
	size_t at;
	float t;
	KeyPair(keys, count, time, at, t);
	const aiVector3D a = keys[at].mValue, b = keys[std::min<size_t>(at + 1, count - 1)].mValue;
	return Vector(a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t, a.z + (b.z - a.z) * t);
}

Quaternion RotationAt(const aiQuatKey *keys, unsigned count, double time)
{
	size_t at;
	float t;
	KeyPair(keys, count, time, at, t);
	const aiQuaternion a = keys[at].mValue, b = keys[std::min<size_t>(at + 1, count - 1)].mValue;
	return QuaternionSlerp(Quaternion(a.x, a.y, a.z, a.w), Quaternion(b.x, b.y, b.z, b.w), t);
}

AssimpPose_t PoseOfAssimp(const aiScene *scene, const aiAnimation *animation, double time)
{
	AssimpPose_t pose;
	std::vector<std::pair<const aiNode *, Matrix4_t>> stack{ { scene->mRootNode, Matrix4_t() } };
	while (!stack.empty())
	{
		const auto [node, parent] = stack.back();
		stack.pop_back();
		Matrix4_t local = FromAssimp(node->mTransformation);
		for (unsigned c = 0; animation && c < animation->mNumChannels; ++c)
		{
			const aiNodeAnim *channel = animation->mChannels[c];
			if (channel->mNodeName != node->mName)
				continue;
			SourceTransform_t transform = TransformFromMatrix(local);
			if (channel->mNumPositionKeys)
				transform.position = VectorAt(channel->mPositionKeys, channel->mNumPositionKeys, time);
			if (channel->mNumRotationKeys)
				transform.orientation = RotationAt(channel->mRotationKeys, channel->mNumRotationKeys, time);
			if (channel->mNumScalingKeys)
				transform.scale = VectorAt(channel->mScalingKeys, channel->mNumScalingKeys, time);
			local = MatrixFromTransform(transform);
		}
		const Matrix4_t global = MatrixMultiply(parent, local);
		pose.nodeGlobal[std::string(node->mName.C_Str())] = global;
		for (unsigned i = 0; i < node->mNumChildren; ++i)
			stack.emplace_back(node->mChildren[i], global);
	}
	// Skinned vertices: sum of weight * node global * offset * vertex over the four heaviest bones
	// of a vertex (all that a compiled vertex holds), the weights made to add up to one; unskinned
	// ones placed by their node.
	std::vector<std::pair<const aiNode *, Matrix4_t>> nodes{ { scene->mRootNode, Matrix4_t() } };
	while (!nodes.empty())
	{
		const aiNode *node = nodes.back().first;
		nodes.pop_back();
		for (unsigned k = 0; k < node->mNumMeshes; ++k)
		{
			const aiMesh *mesh = scene->mMeshes[node->mMeshes[k]];
			std::vector<std::vector<std::pair<float, unsigned>>> influences(mesh->mNumVertices);
			std::vector<Matrix4_t> skins(mesh->mNumBones);
			for (unsigned b = 0; b < mesh->mNumBones; ++b)
			{
				const aiBone *bone = mesh->mBones[b];
				skins[b] = MatrixMultiply(pose.nodeGlobal[std::string(bone->mName.C_Str())], FromAssimp(bone->mOffsetMatrix));
				for (unsigned w = 0; w < bone->mNumWeights; ++w)
				{
					if (bone->mWeights[w].mVertexId < mesh->mNumVertices && bone->mWeights[w].mWeight > 0.0f)
						influences[bone->mWeights[w].mVertexId].emplace_back(bone->mWeights[w].mWeight, b);
				}
			}
			const Matrix4_t &placed = pose.nodeGlobal[std::string(node->mName.C_Str())];
			for (unsigned v = 0; v < mesh->mNumVertices; ++v)
			{
				const Vector p(mesh->mVertices[v].x, mesh->mVertices[v].y, mesh->mVertices[v].z);
				std::vector<std::pair<float, unsigned>> &list = influences[v];
				if (list.empty())
				{
					pose.vertices.push_back(MatrixTransformPoint(placed, p));
					continue;
				}
				std::stable_sort(list.begin(), list.end(), [](const auto &a, const auto &b) { return a.first > b.first; });
				list.resize(std::min<size_t>(list.size(), 4));
				double total = 0.0, sum[3] = { 0, 0, 0 };
				for (const auto &[weight, bone] : list)
				{
					const Vector moved = MatrixTransformPoint(skins[bone], p);
					sum[0] += weight * moved.x;
					sum[1] += weight * moved.y;
					sum[2] += weight * moved.z;
					total += weight;
				}
				pose.vertices.push_back(Vector((float)(sum[0] / total), (float)(sum[1] / total), (float)(sum[2] / total)));
			}
		}
		for (unsigned i = 0; i < node->mNumChildren; ++i)
			nodes.emplace_back(node->mChildren[i], Matrix4_t());
	}
	return pose;
}

long long AssimpTriangles(const aiScene *scene)
{
	long long count = 0;
	for (unsigned m = 0; m < scene->mNumMeshes; ++m)
	{
		for (unsigned f = 0; f < scene->mMeshes[m]->mNumFaces; ++f)
			count += scene->mMeshes[m]->mFaces[f].mNumIndices == 3 ? 1 : 0;
	}
	return count;
}
} // namespace

TEST(CompileModel, AHandWrittenDocumentComesOutAsItWentIn)
{
	CContentTree tree;
	const CreatureFiles_t files = WriteCreature(tree);
	const CommandResult_t result = RunCompiler(tree.Content("models/creature.zmdl"));
	ASSERT_EQ(result.exitCode, 0) << result.output;
	EXPECT_EQ(result.output.find("warning:"), std::string::npos) << result.output;

	rapidjson::Document info;
	ASSERT_TRUE(CompiledInfo(tree.Game("models/creature.zmdl_c"), info));
	ASSERT_TRUE(info["meshes"].IsArray());
	ASSERT_EQ(info["meshes"].Size(), 2u);

	// LOD 0: the FBX, every polygon fanned into its draw call.
	const rapidjson::Value *body = FindNamed(info["meshes"], "creature");
	ASSERT_TRUE(body);
	EXPECT_EQ((*body)["lod_mask"].GetUint(), 1u);
	const long long fbxTriangles = FanTriangles(files.fbx.meshes[0]);
	EXPECT_EQ((*body)["triangles"].GetInt64(), fbxTriangles);
	ASSERT_EQ((*body)["draw_calls"].Size(), 1u);
	EXPECT_STREQ((*body)["draw_calls"][0]["material"].GetString(), "materials/creature.zmat_c");
	EXPECT_EQ((*body)["draw_calls"][0]["triangles"].GetInt64(), fbxTriangles);
	// The arm weights nothing, so the mesh does not use it.
	EXPECT_EQ(Strings((*body)["bones"]), (std::vector<std::string>{ "root", "spine", "head" }));
	EXPECT_GT((*body)["vertices"].GetInt(), 0);

	// LOD 1: the DMX.
	const rapidjson::Value *lod1 = FindNamed(info["meshes"], "creature_lod1");
	ASSERT_TRUE(lod1);
	EXPECT_EQ((*lod1)["lod_mask"].GetUint(), 2u);
	EXPECT_EQ((*lod1)["triangles"].GetInt64(), SourceFanTriangles(files.dmx));
	EXPECT_EQ(Strings((*lod1)["bones"]), (std::vector<std::string>{ "root", "spine", "head" }));
	ASSERT_EQ(info["lods"].Size(), 2u);
	EXPECT_EQ(info["lods"][1].GetDouble(), 1.0);

	// The skeleton: the union of the sources' joints, parents by name.
	ASSERT_EQ(info["skeleton"].Size(), 4u);
	const char *expected[4][2] = { { "root", "" }, { "spine", "root" }, { "head", "spine" }, { "arm", "spine" } };
	for (int b = 0; b < 4; ++b)
	{
		EXPECT_STREQ(info["skeleton"][b]["name"].GetString(), expected[b][0]);
		EXPECT_STREQ(info["skeleton"][b]["parent"].GetString(), expected[b][1]);
	}

	// Sequences: frames as the sources have them.
	const rapidjson::Value &sequences = info["sequences"];
	ASSERT_EQ(sequences.Size(), 7u);
	for (const char *name : { "bind_pose", "run", "idle", "run_delta", "wave", "turn_blend", "run_layered" })
		ASSERT_TRUE(FindNamed(sequences, name)) << name;
	auto sequence = [&](const char *name) -> const rapidjson::Value & { return *FindNamed(sequences, name); };
	EXPECT_EQ(sequence("bind_pose")["frames"].GetInt(), 1);
	const rapidjson::Value &run = sequence("run");
	EXPECT_EQ(run["frames"].GetInt(), 12);
	EXPECT_DOUBLE_EQ(run["fps"].GetDouble(), 30.0);
	EXPECT_TRUE(run["looping"].GetBool());
	EXPECT_FALSE(run["delta"].GetBool());
	EXPECT_STREQ(run["activities"][0]["name"].GetString(), "ACT_RUN");
	EXPECT_STREQ(run["modifiers"][0]["name"].GetString(), "haste");
	EXPECT_EQ(run["modifiers"][0]["weight"].GetInt(), 2);
	EXPECT_STREQ(run["motion"]["flags"].GetString(), "tx");
	EXPECT_STREQ(run["motion"]["bone"].GetString(), "root");
	EXPECT_STREQ(run["events"][0]["class"].GetString(), "footstep");
	EXPECT_EQ(run["events"][0]["frame"].GetInt(), 3);
	EXPECT_NE(std::string(run["events"][0]["keys"].GetString()).find("left"), std::string::npos);
	EXPECT_EQ(sequence("idle")["frames"].GetInt(), 8);
	const rapidjson::Value &delta = sequence("run_delta");
	EXPECT_TRUE(delta["delta"].GetBool());
	EXPECT_EQ(delta["frames"].GetInt(), 12);
	EXPECT_STREQ(delta["weight_list"].GetString(), "weightlist_run_delta");
	EXPECT_EQ(sequence("wave")["frames"].GetInt(), 5);
	const rapidjson::Value &blend = sequence("turn_blend");
	EXPECT_STREQ(blend["blend"]["pose_parameter"].GetString(), "turn");
	ASSERT_EQ(blend["blend"]["keys"].Size(), 2u);
	EXPECT_STREQ(blend["blend"]["keys"][0]["sequence"].GetString(), "idle");
	EXPECT_EQ(blend["blend"]["keys"][0]["value"].GetDouble(), -1.0);
	EXPECT_EQ(Strings(sequence("run_layered")["add_layers"]), std::vector<std::string>{ "turn_blend" });

	// The frame counts are the source animations' own.
	SourceScene_t assimpView;
	CUtlString error;
	ASSERT_TRUE(LoadAssimpScene(tree.Content("models/creature.fbx").c_str(), assimpView, error)) << error;
	ASSERT_EQ(assimpView.animations.size(), 1u);
	EXPECT_EQ(assimpView.animations[0].nFrameCount, run["frames"].GetInt());

	// Attachments, skins, body groups, hitboxes, materials.
	ASSERT_EQ(info["attachments"].Size(), 1u);
	EXPECT_STREQ(info["attachments"][0]["name"].GetString(), "hat");
	EXPECT_STREQ(info["attachments"][0]["bone"].GetString(), "head");
	EXPECT_EQ(info["attachments"][0]["origin"][1].GetDouble(), 3.0);
	EXPECT_EQ(Strings(info["materials"]), (std::vector<std::string>{ "materials/creature.zmat_c", "materials/creature_gold.zmat_c" }));
	ASSERT_EQ(info["material_groups"].Size(), 2u);
	EXPECT_STREQ(info["material_groups"][1]["name"].GetString(), "gold");
	EXPECT_STREQ(info["material_groups"][1]["remaps"][0]["from"].GetString(), "materials/creature.zmat_c");
	EXPECT_STREQ(info["material_groups"][1]["remaps"][0]["to"].GetString(), "materials/creature_gold.zmat_c");
	ASSERT_EQ(info["body_groups"].Size(), 1u);
	EXPECT_STREQ(info["body_groups"][0]["name"].GetString(), "body");
	ASSERT_EQ(info["body_groups"][0]["choices"].Size(), 2u);
	EXPECT_EQ(Strings(info["body_groups"][0]["choices"][0]["meshes"]), std::vector<std::string>{ "creature" });
	EXPECT_EQ(info["body_groups"][0]["choices"][1]["meshes"].Size(), 0u);
	const rapidjson::Value *automatic = FindNamed(info["hitbox_sets"], "default");
	ASSERT_TRUE(automatic);
	EXPECT_TRUE((*automatic)["generated"].GetBool());
	std::vector<std::string> boxes;
	for (const rapidjson::Value &box : (*automatic)["hitboxes"].GetArray())
		boxes.push_back(box["bone"].GetString());
	EXPECT_EQ(boxes, (std::vector<std::string>{ "root", "spine", "head" }));
	const rapidjson::Value *custom = FindNamed(info["hitbox_sets"], "custom");
	ASSERT_TRUE(custom);
	EXPECT_STREQ((*custom)["hitboxes"][0]["bone"].GetString(), "spine");

	// What the model references was compiled beside it.
	for (const char *compiled : { "materials/creature.zmat_c", "materials/creature_gold.zmat_c", "materials/creature_color_png.ztex_c",
			 "particles/creature_points.zsnap" })
		EXPECT_TRUE(Plat_FileExists(tree.Game(compiled).c_str())) << compiled;
	rapidjson::Document snapshot;
	ASSERT_TRUE(CompiledInfo(tree.Game("particles/creature_points.zsnap"), snapshot));
	EXPECT_EQ(snapshot["points"].GetInt64(), (int64_t)files.dmx.PositionCount());
	EXPECT_STREQ(snapshot["local_space_bone"].GetString(), "spine");
}

TEST(CompileModel, TheBindPoseLeavesSkinnedMeshesWhereTheyAreAndFramesMoveThem)
{
	CContentTree tree;
	WriteCreature(tree);
	ASSERT_EQ(RunCompiler(tree.Content("models/creature.zmdl")).exitCode, 0);
	CCompiledModel model;
	CUtlString error;
	ASSERT_TRUE(LoadCompiledModel(tree.Game("models/creature.zmdl_c").c_str(), model, &error)) << error;

	std::vector<Vector> rest;
	for (const CompiledMesh_t &mesh : model.m_Meshes)
		rest.insert(rest.end(), mesh.m_Positions.begin(), mesh.m_Positions.end());
	const std::vector<Vector> bind = SkinnedPositions(model, BoneGlobals(model, nullptr, 0));
	ASSERT_EQ(bind.size(), rest.size());
	for (size_t v = 0; v < rest.size(); ++v)
		ASSERT_LT(Distance(bind[v], rest[v]), 1e-3) << v;
	const int bindPose = model.FindSequence("bind_pose");
	ASSERT_GE(bindPose, 0);
	const std::vector<Vector> bindFrame = SkinnedPositions(model, BoneGlobals(model, &model.m_Sequences[(size_t)bindPose], 0));
	for (size_t v = 0; v < rest.size(); ++v)
		ASSERT_LT(Distance(bindFrame[v], rest[v]), 1e-3) << v;

	// The source is Y-up: the model stands along +Z.
	EXPECT_GT(model.m_Bounds.m_vMaxs.z - model.m_Bounds.m_vMins.z, 20.0f);
	EXPECT_LT(model.m_Bounds.m_vMaxs.y - model.m_Bounds.m_vMins.y, 7.0f);

	// "run" moves the root along +X two units a frame, and the motion extraction keeps it at frame
	// 0's place; "run_layered" (the same frames, no extraction) lets it walk.
	const CompiledSequence_t &run = model.m_Sequences[(size_t)model.FindSequence("run")];
	const CompiledSequence_t &walk = model.m_Sequences[(size_t)model.FindSequence("run_layered")];
	ASSERT_EQ(run.m_nFrameCount, 12u);
	const int root = model.FindBone("root");
	for (uint32 f = 0; f < run.m_nFrameCount; ++f)
	{
		EXPECT_NEAR(run.m_Translations[(size_t)f * run.m_nBoneCount + (size_t)root].x, 0.0f, 1e-4f) << f;
		EXPECT_NEAR(walk.m_Translations[(size_t)f * walk.m_nBoneCount + (size_t)root].x, 2.0f * f, 1e-3f) << f;
	}
	// The delta of frame 0 against itself is no motion at all.
	const CompiledSequence_t &delta = model.m_Sequences[(size_t)model.FindSequence("run_delta")];
	for (uint32 b = 0; b < delta.m_nBoneCount; ++b)
	{
		EXPECT_NEAR(delta.m_Translations[b].x, 0.0f, 1e-5f);
		EXPECT_NEAR(std::fabs(delta.m_Rotations[b].w), 1.0f, 1e-5f);
	}
	EXPECT_NEAR(delta.m_Translations[(size_t)5 * delta.m_nBoneCount + (size_t)root].x, 10.0f, 1e-3f);
}

TEST(CompileModel, TrianglesAndAnimationsAgreeWithAssimpOnOtherToolsFiles)
{
	const std::string folder = "/usr/share/assimp/models/FBX/";
	for (const char *name : { "huesitos.fbx", "animation_with_skeleton.fbx", "spider.fbx", "cubes_with_mirroring_and_pivot.fbx", "global_settings.fbx" })
	{
		SCOPED_TRACE(name);
		if (!Plat_FileExists((folder + name).c_str()))
			GTEST_SKIP() << "the assimp test models are not installed (package assimp-testmodels)";
		CContentTree tree;
		CUtlBuffer bytes;
		ASSERT_TRUE(Plat_ReadFile((folder + name).c_str(), bytes));
		tree.Write(std::string("models/") + name, std::string(bytes.View()));
		tree.Write("materials/default.zmat", MaterialDocument());
		SourceScene_t ours;
		CUtlString error;
		ASSERT_TRUE(LoadSourceSceneForCompile(tree.Content(std::string("models/") + name).c_str(), ours, error)) << error;
		std::string animations;
		for (size_t a = 0; a < ours.animations.size(); ++a)
			animations += "\t\t\t\t\t{ _class = \"AnimFile\" name = \"take" + std::to_string(a) + "\" source_filename = \"models/" + name +
						  "\" take = " + std::to_string(a) + " },\n";
		std::string lists = ListNode("RenderMeshList", MeshNode("model", std::string("models/") + name)) + DefaultMaterial("materials/default.zmat");
		if (!animations.empty())
			lists += ListNode("AnimationList", animations);
		tree.Write("models/model.zmdl", ModelDocument(lists));
		const CommandResult_t result = RunCompiler(tree.Content("models/model.zmdl"));
		ASSERT_EQ(result.exitCode, 0) << result.output;

		// assimp's own count of the same file's triangles.
		const aiScene *scene = aiImportFile((folder + name).c_str(), aiProcess_Triangulate);
		ASSERT_TRUE(scene) << aiGetErrorString();
		rapidjson::Document info;
		ASSERT_TRUE(CompiledInfo(tree.Game("models/model.zmdl_c"), info));
		long long drawn = 0;
		for (const rapidjson::Value &draw : info["meshes"][0]["draw_calls"].GetArray())
			drawn += draw["triangles"].GetInt64();
		EXPECT_EQ(drawn, AssimpTriangles(scene));
		EXPECT_EQ(info["meshes"][0]["triangles"].GetInt64(), drawn);

		CCompiledModel model;
		ASSERT_TRUE(LoadCompiledModel(tree.Game("models/model.zmdl_c").c_str(), model, &error)) << error;
		std::vector<Vector> rest;
		for (const CompiledMesh_t &mesh : model.m_Meshes)
			rest.insert(rest.end(), mesh.m_Positions.begin(), mesh.m_Positions.end());
		const double size = Extent(rest);
		// Bind pose: every skinned vertex stays where it is.
		const std::vector<Vector> bind = SkinnedPositions(model, BoneGlobals(model, nullptr, 0));
		for (size_t v = 0; v < rest.size(); ++v)
			ASSERT_LT(Distance(bind[v], rest[v]), 1e-3 * size) << v;

		// Each sequence has the animation's frames; at its first, middle and last frame the
		// skinned vertices are where assimp's own skinning puts them (turned to Z-up).
		ASSERT_EQ(model.m_Sequences.size(), (size_t)scene->mNumAnimations);
		const Matrix4_t up = MatrixUpAxisToZ(ours.upAxis);
		for (unsigned a = 0; a < scene->mNumAnimations; ++a)
		{
			const CompiledSequence_t &sequence = model.m_Sequences[a];
			EXPECT_EQ(sequence.m_nFrameCount, (uint32)ours.animations[a].nFrameCount);
			const aiAnimation *animation = scene->mAnimations[a];
			double start = HUGE_VAL;
			for (unsigned c = 0; c < animation->mNumChannels; ++c)
			{
				const aiNodeAnim *channel = animation->mChannels[c];
				if (channel->mNumPositionKeys)
					start = std::min(start, channel->mPositionKeys[0].mTime);
				if (channel->mNumRotationKeys)
					start = std::min(start, channel->mRotationKeys[0].mTime);
			}
			const double ticksPerFrame = animation->mTicksPerSecond > 0.0 ? animation->mTicksPerSecond / sequence.m_flFps : 1.0;
			for (uint32 f : { 0u, sequence.m_nFrameCount / 2, sequence.m_nFrameCount - 1 })
			{
				AssimpPose_t pose = PoseOfAssimp(scene, animation, start + f * ticksPerFrame);
				for (Vector &p : pose.vertices)
					p = MatrixTransformPoint(up, p);
				const std::vector<Vector> posed = SkinnedPositions(model, BoneGlobals(model, &sequence, f));
				EXPECT_LT(FarthestNearest(posed, pose.vertices), 2e-3 * size) << "animation " << a << ", frame " << f;
				EXPECT_LT(FarthestNearest(pose.vertices, posed), 2e-3 * size) << "animation " << a << ", frame " << f;
			}
		}
		aiReleaseImport(scene);
	}
}

TEST(CompileModel, CornersShareAVertexUnlessTheirNormalsOrTextureCoordinatesDiffer)
{
	for (const bool bSmooth : { true, false })
	{
		CContentTree tree;
		FbxWriterScene_t scene;
		FbxWriterMesh_t cube;
		cube.name = "cube";
		cube.bSmoothNormals = bSmooth;
		cube.positions = { { -1, -1, -1 }, { 1, -1, -1 }, { 1, 1, -1 }, { -1, 1, -1 }, { -1, -1, 1 }, { 1, -1, 1 }, { 1, 1, 1 }, { -1, 1, 1 } };
		cube.polygons = { { 0, 3, 2, 1 }, { 4, 5, 6, 7 }, { 0, 1, 5, 4 }, { 1, 2, 6, 5 }, { 2, 3, 7, 6 }, { 3, 0, 4, 7 } };
		scene.meshes.push_back(cube);
		tree.Write("models/cube.fbx", WriteFbxScene(scene));
		tree.Write("materials/default.zmat", MaterialDocument());
		tree.Write("models/cube.zmdl",
			ModelDocument(ListNode("RenderMeshList", MeshNode("cube", "models/cube.fbx")) + DefaultMaterial("materials/default.zmat")));
		const CommandResult_t result = RunCompiler(tree.Content("models/cube.zmdl"));
		ASSERT_EQ(result.exitCode, 0) << result.output;
		rapidjson::Document info;
		ASSERT_TRUE(CompiledInfo(tree.Game("models/cube.zmdl_c"), info));
		EXPECT_EQ(info["meshes"][0]["triangles"].GetInt(), 12);
		// Smooth: one normal per corner of the cube; flat: each face's corners apart.
		EXPECT_EQ(info["meshes"][0]["vertices"].GetInt(), bSmooth ? 8 : 24) << (bSmooth ? "smooth" : "flat");
		EXPECT_TRUE(info["meshes"][0]["bones"].Empty());
	}
}

TEST(CompileModel, TrianglesAreOrderedForTheCacheAndVerticesByFirstUse)
{
	CContentTree tree;
	CreatureShape_t shape;
	shape.segments = 24;
	shape.rings = 30;
	shape.bSmoothNormals = true;
	shape.bUVs = false;
	const FbxWriterScene_t scene = MakeCreatureFbx(shape);
	tree.Write("models/tall.fbx", WriteFbxScene(scene));
	tree.Write("materials/default.zmat", MaterialDocument());
	tree.Write("models/tall.zmdl", ModelDocument(ListNode("RenderMeshList", MeshNode("tall", "models/tall.fbx")) + DefaultMaterial("materials/default.zmat")));
	ASSERT_EQ(RunCompiler(tree.Content("models/tall.zmdl")).exitCode, 0);
	CCompiledModel model;
	CUtlString error;
	ASSERT_TRUE(LoadCompiledModel(tree.Game("models/tall.zmdl_c").c_str(), model, &error)) << error;
	const CompiledMesh_t &mesh = model.m_Meshes[0];
	EXPECT_EQ((long long)mesh.PrimitiveCount(), FanTriangles(scene.meshes[0]));
	// Smooth normals, no UVs: a vertex per control point.
	EXPECT_EQ(mesh.VertexCount(), (uint32)scene.meshes[0].positions.size());
	// Fetch order: each new vertex is the next unused one.
	uint32 next = 0;
	for (uint32 i = 0; i < mesh.IndexCount(); ++i)
	{
		const uint32 index = mesh.GetIndex(i);
		ASSERT_LE(index, next) << "index " << i;
		next += index == next ? 1 : 0;
	}
	EXPECT_EQ(next, mesh.VertexCount());
	// Cache order: fewer vertex shader runs per triangle than the source order of the triangles.
	std::vector<unsigned int> indices(mesh.IndexCount());
	for (uint32 i = 0; i < mesh.IndexCount(); ++i)
		indices[i] = mesh.GetIndex(i);
	std::vector<unsigned int> plain;
	for (const std::vector<int> &polygon : scene.meshes[0].polygons)
	{
		for (size_t c = 1; c + 1 < polygon.size(); ++c)
			plain.insert(plain.end(), { (unsigned)polygon[0], (unsigned)polygon[c], (unsigned)polygon[c + 1] });
	}
	auto missesPerTriangle = [](const std::vector<unsigned int> &list) {
		// A FIFO cache of 16 vertices.
		std::vector<unsigned int> cache;
		size_t misses = 0;
		for (unsigned int index : list)
		{
			if (std::find(cache.begin(), cache.end(), index) != cache.end())
				continue;
			++misses;
			cache.push_back(index);
			if (cache.size() > 16)
				cache.erase(cache.begin());
		}
		return (double)misses / (double)(list.size() / 3);
	};
	EXPECT_LT(missesPerTriangle(indices), missesPerTriangle(plain));
}

TEST(CompileModel, WithoutADefaultMaterialEachSourceMaterialIsAPathAndADrawCall)
{
	CContentTree tree;
	const FbxWriterScene_t scene = MakeCreatureFbx();
	tree.Write("models/creature.fbx", WriteFbxScene(scene));
	tree.Write("materials/creature_body.zmat", MaterialDocument());
	tree.Write("materials/creature_cap.zmat", MaterialDocument("[0.500000 0.500000 0.500000 1.000000]"));
	tree.Write("models/creature.zmdl", ModelDocument(ListNode("RenderMeshList", MeshNode("creature", "models/creature.fbx"))));
	const CommandResult_t result = RunCompiler(tree.Content("models/creature.zmdl"));
	ASSERT_EQ(result.exitCode, 0) << result.output;
	rapidjson::Document info;
	ASSERT_TRUE(CompiledInfo(tree.Game("models/creature.zmdl_c"), info));
	EXPECT_EQ(Strings(info["materials"]), (std::vector<std::string>{ "materials/creature_body.zmat_c", "materials/creature_cap.zmat_c" }));
	long long perMaterial[2] = {};
	for (size_t p = 0; p < scene.meshes[0].polygons.size(); ++p)
		perMaterial[scene.meshes[0].polygonMaterial[p]] += (long long)scene.meshes[0].polygons[p].size() - 2;
	const rapidjson::Value &draws = info["meshes"][0]["draw_calls"];
	ASSERT_EQ(draws.Size(), 2u);
	EXPECT_STREQ(draws[0]["material"].GetString(), "materials/creature_body.zmat_c");
	EXPECT_EQ(draws[0]["triangles"].GetInt64(), perMaterial[0]);
	EXPECT_STREQ(draws[1]["material"].GetString(), "materials/creature_cap.zmat_c");
	EXPECT_EQ(draws[1]["triangles"].GetInt64(), perMaterial[1]);
	EXPECT_TRUE(Plat_FileExists(tree.Game("materials/creature_cap.zmat_c").c_str()));
}

TEST(CompileModel, AnAttachmentOnABoneTheSkeletonLacksFailsAndKeepsThePreviousModel)
{
	CContentTree tree;
	WriteCreature(tree);
	ASSERT_EQ(RunCompiler(tree.Content("models/creature.zmdl")).exitCode, 0);
	const std::string before = tree.ReadGame("models/creature.zmdl_c");
	ASSERT_FALSE(before.empty());

	const CreatureFiles_t files = WriteCreature(tree, "neck");
	const CommandResult_t result = RunCompiler(tree.Content("models/creature.zmdl"));
	EXPECT_EQ(result.exitCode, 1) << result.output;
	// The error names the document, the attachment's line and the bone.
	const size_t line = std::count(files.document.begin(), files.document.begin() + (std::ptrdiff_t)files.document.find("name = \"hat\""), '\n') + 1;
	EXPECT_NE(result.output.find("error: models/creature.zmdl(" + std::to_string(line) + "): the attachment \"hat\" names the parent bone \"neck\""),
		std::string::npos)
		<< result.output;
	EXPECT_EQ(tree.ReadGame("models/creature.zmdl_c"), before);
}

TEST(CompileModel, BadReferencesAreErrorsThatNameThem)
{
	struct Case_t
	{
		const char *what;
		std::string lists;
		const char *message;
	};
	const std::string mesh = ListNode("RenderMeshList", MeshNode("creature", "models/creature.fbx")) + DefaultMaterial("materials/default.zmat");
	const std::vector<Case_t> cases = {
		{ "missing mesh source", ListNode("RenderMeshList", MeshNode("creature", "models/nothing.fbx")) + DefaultMaterial("materials/default.zmat"),
			"the source file models/nothing.fbx does not exist" },
		{ "mesh outside the content", ListNode("RenderMeshList", MeshNode("creature", "../../elsewhere.fbx")), "is refused" },
		{ "unknown LOD mesh", mesh + ListNode("LODGroupList", "\t\t\t\t\t{ _class = \"LODGroup\" meshes = [ \"creature\", \"ghost\" ] },"),
			"names the mesh \"ghost\"" },
		{ "missing material", ListNode("RenderMeshList", MeshNode("creature", "models/creature.fbx")) + DefaultMaterial("materials/none.zmat"),
			"the material materials/none.zmat does not exist" },
		{ "unknown weight list",
			mesh + ListNode("AnimationList", "\t\t\t\t\t{ _class = \"AnimFile\" name = \"a\" source_filename = \"models/creature.fbx\" "
											 "weight_list_name = \"nope\" },"),
			"the weight list \"nope\"" },
		{ "unknown pose parameter", mesh + ListNode("AnimationList", "\t\t\t\t\t{ _class = \"1DBlend\" name = \"b\" blend_pose_param = \"yaw\" },"),
			"the pose parameter \"yaw\"" },
		{ "frames outside the animation",
			mesh + ListNode("AnimationList", "\t\t\t\t\t{ _class = \"AnimFile\" name = \"a\" source_filename = \"models/creature.fbx\" "
											 "start_frame = 2 end_frame = 40 },"),
			"lie outside the animation" },
		{ "unknown subtraction",
			mesh + ListNode("AnimationList", "\t\t\t\t\t{ _class = \"AnimFile\" name = \"a\" source_filename = \"models/creature.fbx\" "
											 "children = [ { _class = \"AnimSubtract\" anim_name = \"zzz\" } ] },"),
			"subtracts the animation \"zzz\"" },
		{ "a document that does not parse", "\t\t\t{ _class = \"NoSuchClass\" },\n", "NoSuchClass" },
	};
	for (const Case_t &test : cases)
	{
		SCOPED_TRACE(test.what);
		CContentTree tree;
		FbxWriterScene_t scene = MakeCreatureFbx();
		scene.animations.push_back(MakeCreatureAnimation(scene, "run", 12, 20.0));
		tree.Write("models/creature.fbx", WriteFbxScene(scene));
		tree.Write("materials/default.zmat", MaterialDocument());
		tree.Write("models/creature.zmdl", ModelDocument(test.lists));
		const CommandResult_t result = RunCompiler(tree.Content("models/creature.zmdl"));
		EXPECT_EQ(result.exitCode, 1) << result.output;
		EXPECT_NE(result.output.find("error: models/creature.zmdl"), std::string::npos) << result.output;
		EXPECT_NE(result.output.find(test.message), std::string::npos) << result.output;
		EXPECT_FALSE(Plat_FileExists(tree.Game("models/creature.zmdl_c").c_str()));
	}
}

TEST(CompileModel, ASnapshotSourceGivenDirectlyBecomesItsOwnZsnap)
{
	CContentTree tree;
	const FbxWriterScene_t scene = MakeCreatureFbx();
	tree.Write("particles/models/points.fbx", WriteFbxScene(scene));
	const CommandResult_t result = RunCompiler(tree.Content("particles/models/points.fbx"));
	ASSERT_EQ(result.exitCode, 0) << result.output;
	rapidjson::Document info;
	ASSERT_TRUE(CompiledInfo(tree.Game("particles/models/points.zsnap"), info));
	EXPECT_STREQ(info["type"].GetString(), "particle snapshot");
	EXPECT_EQ(info["points"].GetInt64(), (int64_t)scene.meshes[0].positions.size());
	CCompiledSnapshot snapshot;
	ASSERT_TRUE(LoadCompiledSnapshot(tree.Game("particles/models/points.zsnap").c_str(), snapshot));
	// The source is Y-up; its tip (the last control point) is the highest point along Z.
	EXPECT_NEAR(snapshot.m_Positions.back().z, scene.meshes[0].positions.back().y, 1e-4f);
	for (const Vector &normal : snapshot.m_Normals)
		EXPECT_NEAR(std::sqrt(normal.x * normal.x + normal.y * normal.y + normal.z * normal.z), 1.0f, 1e-4f);
}

TEST(CompileModel, SequencesTakeTheirFrameRangeRateScaleAndWeights)
{
	CContentTree tree;
	FbxWriterScene_t scene = MakeCreatureFbx();
	scene.animations.push_back(MakeCreatureAnimation(scene, "run", 12, 20.0));
	tree.Write("models/creature.fbx", WriteFbxScene(scene));
	tree.Write("materials/default.zmat", MaterialDocument());
	const std::string lists =
		ListNode("RenderMeshList", "\t\t\t\t\t{ _class = \"RenderMeshFile\" name = \"creature\" filename = \"models/creature.fbx\" import_scale = 2.0 },") +
		DefaultMaterial("materials/default.zmat") +
		ListNode("AnimationList", "\t\t\t\t\t{ _class = \"AnimFile\" name = \"half_rate\" source_filename = \"models/creature.fbx\" fps = 15.0 },\n"
								  "\t\t\t\t\t{ _class = \"AnimFile\" name = \"middle\" source_filename = \"models/creature.fbx\" start_frame = 2 end_frame = 5 },") +
		ListNode("WeightListList", "\t\t\t\t\t{ _class = \"WeightList\" name = \"upper\" weights = [ { bone = \"spine\" weight = 0.5 }, "
								   "{ bone = \"arm\" weight = 1.0 } ] },");
	tree.Write("models/creature.zmdl", ModelDocument(lists));
	const CommandResult_t result = RunCompiler(tree.Content("models/creature.zmdl"));
	ASSERT_EQ(result.exitCode, 0) << result.output;
	CCompiledModel model;
	CUtlString error;
	ASSERT_TRUE(LoadCompiledModel(tree.Game("models/creature.zmdl_c").c_str(), model, &error)) << error;
	const int root = model.FindBone("root");

	// 15 frames a second of an animation of 12 frames at 30: the frames at 0, 2, 4, ... 10, and
	// 11 (the end, half a frame on) rounds to seven. The root walks 2 units a source frame, and the
	// scale of 2 doubles that.
	const CompiledSequence_t &half = model.m_Sequences[(size_t)model.FindSequence("half_rate")];
	EXPECT_EQ(half.m_nFrameCount, 7u);
	EXPECT_FLOAT_EQ(half.m_flFps, 15.0f);
	for (uint32 f = 0; f + 1 < half.m_nFrameCount; ++f)
		EXPECT_NEAR(half.m_Translations[(size_t)f * half.m_nBoneCount + (size_t)root].x, 2.0f * 2.0f * (2.0f * f), 1e-3f) << f;
	const CompiledSequence_t &middle = model.m_Sequences[(size_t)model.FindSequence("middle")];
	EXPECT_EQ(middle.m_nFrameCount, 4u);
	for (uint32 f = 0; f < middle.m_nFrameCount; ++f)
		EXPECT_NEAR(middle.m_Translations[(size_t)f * middle.m_nBoneCount + (size_t)root].x, 2.0f * 2.0f * (2.0f + f), 1e-3f) << f;
	// The spine stands 10 units above the root, 20 with the scale (along the root's own Y: the
	// turn to Z-up is the root's).
	EXPECT_NEAR(model.m_Bones[(size_t)model.FindBone("spine")].m_vPosition.y, 20.0f, 1e-4f);
	EXPECT_GT(model.m_Bounds.m_vMaxs.z, 2.0f * 25.0f);

	// A bone not listed takes its parent's weight: the head the spine's, the root none.
	ASSERT_EQ(model.m_WeightLists.size(), 1u);
	const std::vector<float> &weights = model.m_WeightLists[0].m_Weights;
	EXPECT_EQ(weights[(size_t)root], 0.0f);
	EXPECT_EQ(weights[(size_t)model.FindBone("spine")], 0.5f);
	EXPECT_EQ(weights[(size_t)model.FindBone("head")], 0.5f);
	EXPECT_EQ(weights[(size_t)model.FindBone("arm")], 1.0f);
}

TEST(CompileModel, DamagedMeshSourcesFailWithTheirNameAndKeepThePreviousModel)
{
	CContentTree tree;
	WriteCreature(tree);
	ASSERT_EQ(RunCompiler(tree.Content("models/creature.zmdl")).exitCode, 0);
	const std::string before = tree.ReadGame("models/creature.zmdl_c");
	const std::string fbx = WriteFbxScene(MakeCreatureFbx());
	std::string noise(3000, '\0');
	uint32 state = 12345;
	for (char &c : noise)
	{
		state = state * 1664525u + 1013904223u;
		c = (char)(state >> 24);
	}
	const std::pair<const char *, std::string> cases[] = {
		{ "truncated", fbx.substr(0, fbx.size() / 2) },
		{ "noise", noise },
		{ "binary header with nothing after it", std::string("Kaydara FBX Binary  \0\x1a\0", 23) },
	};
	for (const auto &[what, bytes] : cases)
	{
		SCOPED_TRACE(what);
		tree.Write("models/creature.fbx", bytes);
		const CommandResult_t result = RunCompiler(tree.Content("models/creature.zmdl"));
		EXPECT_EQ(result.exitCode, 1) << result.output;
		EXPECT_NE(result.output.find("cannot read the source models/creature.fbx"), std::string::npos) << result.output;
		EXPECT_EQ(tree.ReadGame("models/creature.zmdl_c"), before);
	}
}

TEST(CompileModel, TheTexturesOfItsMaterialsCompileOnlyWhenOutOfDate)
{
	namespace fs = std::filesystem;
	CContentTree tree;
	tree.Write("models/creature.fbx", WriteFbxScene(MakeCreatureFbx()));
	tree.WriteBytes("materials/skin_color.png", MakePNG(MakePhotoLikeImage(64, 64, 1), TEST_PNG_RGB8));
	tree.WriteBytes("materials/skin_normal.png", MakePNG(MakePhotoLikeImage(64, 64, 2), TEST_PNG_RGB8));
	tree.Write("materials/skin.zmat", MaterialDocument("materials/skin_color.png", "\t\"TextureNormal\"\t\"materials/skin_normal.png\"\n"));
	tree.Write("models/creature.zmdl",
		ModelDocument(ListNode("RenderMeshList", MeshNode("creature", "models/creature.fbx")) + DefaultMaterial("materials/skin.zmat")));
	const std::string material = tree.Content("materials/skin.zmat"), model = tree.Content("models/creature.zmdl");
	const std::string colorOut = tree.Game("materials/skin_color_png.ztex_c"), normalOut = tree.Game("materials/skin_normal_png.ztex_c");
	// A source written after the compile of its texture: dated a second later, so that coarse
	// clocks see it.
	auto later = [&](const std::string &relative, const std::string &compiled) {
		fs::last_write_time(tree.Content(relative), fs::last_write_time(compiled) + std::chrono::seconds(1));
	};
	auto width = [&](const std::string &compiled) {
		rapidjson::Document info;
		EXPECT_TRUE(CompiledInfo(compiled, info));
		return info.IsObject() && info.HasMember("width") ? info["width"].GetInt() : -1;
	};

	// The material named, as the import does before the model: its textures compile.
	CommandResult_t result = RunCompiler(material);
	ASSERT_EQ(result.exitCode, 0) << result.output;
	EXPECT_NE(result.output.find("Compiling texture materials/skin_color.png"), std::string::npos) << result.output;
	// The model after it leaves them as they are.
	const fs::file_time_type colorTime = fs::last_write_time(colorOut);
	result = RunCompiler(model);
	ASSERT_EQ(result.exitCode, 0) << result.output;
	EXPECT_EQ(result.output.find("Compiling texture"), std::string::npos) << result.output;
	EXPECT_NE(result.output.find("materials/skin_color.png: up to date (materials/skin_color_png.ztex_c)"), std::string::npos) << result.output;
	EXPECT_EQ(fs::last_write_time(colorOut), colorTime);

	// A new picture is compiled again by the model, and the other texture is not.
	tree.WriteBytes("materials/skin_color.png", MakePNG(MakePhotoLikeImage(32, 32, 3), TEST_PNG_RGB8));
	later("materials/skin_color.png", colorOut);
	result = RunCompiler(model);
	ASSERT_EQ(result.exitCode, 0) << result.output;
	EXPECT_NE(result.output.find("Compiling texture materials/skin_color.png"), std::string::npos) << result.output;
	EXPECT_EQ(result.output.find("Compiling texture materials/skin_normal.png"), std::string::npos) << result.output;
	EXPECT_EQ(width(colorOut), 32);

	// So is a texture whose settings file is newer than its compiled file.
	tree.Write("materials/skin_normal.txt", "\"settings\"\n{\n\t\"maxres\"\t\"16\"\n}\n");
	later("materials/skin_normal.txt", normalOut);
	result = RunCompiler(model);
	ASSERT_EQ(result.exitCode, 0) << result.output;
	EXPECT_NE(result.output.find("Compiling texture materials/skin_normal.png"), std::string::npos) << result.output;
	EXPECT_EQ(width(normalOut), 16);

	// A compiled texture that went away is made again.
	fs::remove(colorOut);
	ASSERT_EQ(RunCompiler(model).exitCode, 0);
	EXPECT_EQ(width(colorOut), 32);

	// Naming the material compiles its textures whatever their age.
	result = RunCompiler(material);
	ASSERT_EQ(result.exitCode, 0) << result.output;
	EXPECT_NE(result.output.find("Compiling texture materials/skin_color.png"), std::string::npos) << result.output;
	EXPECT_NE(result.output.find("Compiling texture materials/skin_normal.png"), std::string::npos) << result.output;
}
