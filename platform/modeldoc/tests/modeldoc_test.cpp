#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "core/fileio.h"
#include "core/kv3text.h"
#include "modeldoc/modeldoc.h"
#include "testsupport/test_support.h"

namespace
{
const char *const kHeader = "<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} "
							"format:modeldoc32:version{8ba9eb32-178d-4b95-a5d4-53826fa12ff1} -->";

// Gives every attribute of the node a value other than its default, derived from `seed`.
void FillAttributes(CModelDocNode *pNode, int seed)
{
	const ModelDocClassDesc_t &desc = pNode->GetClass();
	for (int i = 0; i < desc.m_nAttributeCount; ++i)
	{
		const char *name = desc.m_pAttributes[i].m_pszName;
		const float f = 0.25f * (float)(seed + i) + 0.125f;
		switch (desc.m_pAttributes[i].m_eType)
		{
		case MODELDOC_ATTR_BOOL:
			ASSERT_TRUE(pNode->SetBool(name, !desc.m_pAttributes[i].m_bDefault));
			break;
		case MODELDOC_ATTR_INT:
			ASSERT_TRUE(pNode->SetInt(name, 1000 + seed * 10 + i));
			break;
		case MODELDOC_ATTR_FLOAT:
			ASSERT_TRUE(pNode->SetFloat(name, f));
			break;
		case MODELDOC_ATTR_STRING:
			ASSERT_TRUE(pNode->SetString(name, "value \"quoted\" " + std::to_string(seed) + "_" + name));
			break;
		case MODELDOC_ATTR_VECTOR3:
			ASSERT_TRUE(pNode->SetVector(name, Vector(f, -f, 1.0f / 3.0f)));
			break;
		case MODELDOC_ATTR_ANGLES:
			ASSERT_TRUE(pNode->SetAngles(name, QAngle(90.0f, -f, 0.1f)));
			break;
		case MODELDOC_ATTR_STRING_ARRAY:
			ASSERT_TRUE(pNode->AddToStringArray(name, "first"));
			ASSERT_TRUE(pNode->AddToStringArray(name, "second_" + std::to_string(seed)));
			break;
		case MODELDOC_ATTR_REMAPS:
			ASSERT_TRUE(pNode->AddRemap(name, "materials/a.zmat", "materials/b.zmat"));
			ASSERT_TRUE(pNode->AddRemap(name, "materials/c.zmat", "materials/d.zmat"));
			break;
		case MODELDOC_ATTR_BLEND_KEYS:
			ASSERT_TRUE(pNode->AddBlendKey(name, "left", -1.0f));
			ASSERT_TRUE(pNode->AddBlendKey(name, "right", 0.7f));
			break;
		case MODELDOC_ATTR_WEIGHTS:
			ASSERT_TRUE(pNode->SetWeight(name, "spine", 0.5f));
			ASSERT_TRUE(pNode->SetWeight(name, "head", 1.0f / 3.0f));
			break;
		case MODELDOC_ATTR_KV3:
		{
			CKeyValues3Context context;
			KeyValues3 *root = context.Root();
			root->MakeTable();
			SetMemberString(root, "effect", "glow");
			SetMemberInt(root, "count", seed);
			ASSERT_TRUE(pNode->SetKV3(name, root));
			break;
		}
		default:
			FAIL() << "unhandled attribute type";
		}
	}
	pNode->SetNote("note of " + std::string(pNode->GetClassName()));
	SetMemberString(pNode->EditDynamicAttributes(), "tool_state", "open");
}

// A document with at least one node of every class, every attribute away from its default.
void BuildFullDocument(CModelDoc &doc)
{
	int seed = 0;
	auto add = [&](const char *className, const char *name, CModelDocNode *pParent = nullptr) {
		CModelDocNode *pNode = doc.AddNode(className, name ? name : "", pParent);
		EXPECT_NE(pNode, nullptr) << className;
		if (pNode)
			FillAttributes(pNode, ++seed);
		return pNode;
	};
	add("RenderMeshFile", "body");
	add("RenderMeshFile", "body_lod1");
	add("LODGroup", nullptr);
	add("LODGroup", nullptr);
	CModelDocNode *pBodyGroup = add("BodyGroup", "head");
	add("BodyGroupChoice", nullptr, pBodyGroup);
	add("BodyGroupChoice", nullptr, pBodyGroup);
	add("DefaultMaterialGroup", nullptr);
	add("MaterialGroup", "gold");
	add("AnimBindPose", "bind_pose");
	CModelDocNode *pRun = add("AnimFile", "run");
	add("AnimSubtract", nullptr, pRun);
	add("ExtractMotion", nullptr, pRun);
	add("AnimEvent", nullptr, pRun);
	add("ActivityModifier", nullptr, pRun);
	add("AnimAddLayer", nullptr, pRun);
	add("WeightList", "weightlist_run");
	CModelDocNode *pBlend = add("1DBlend", "turns");
	add("AnimSubtract", nullptr, pBlend);
	add("PoseParam", "turn");
	add("Attachment", "attach_hand");
	add("ZSNAPFile", nullptr);
	add("HitboxSet_Auto", "auto");
	CModelDocNode *pSet = add("HitboxSet", "default");
	add("Hitbox", "chest", pSet);
	add("Hitbox", "head", pSet);
	SetMemberString(doc.EditExtraData(), "author", "test");
}
} // namespace

TEST(ModelDoc, FormatIdentifierMatchesTheHeaderText)
{
	EXPECT_EQ(KV3_FORMAT_MODELDOC32.GuidText(), "8ba9eb32-178d-4b95-a5d4-53826fa12ff1");
	EXPECT_EQ(KV3HeaderLine(KV3_ENCODING_TEXT, KV3_FORMAT_MODELDOC32), kHeader);
}

TEST(ModelDoc, EveryNodeClassSavesLoadsAndComparesEqual)
{
	CModelDoc doc;
	BuildFullDocument(doc);

	// Every class of the table is in the document.
	for (int i = 0; i < ModelDocClassCount(); ++i)
		EXPECT_NE(doc.FindFirstNode(ModelDocClass(i)->m_pszName), nullptr) << ModelDocClass(i)->m_pszName;

	CTempDirectory temp;
	const std::string path = temp.Path("model.zmdl");
	CUtlString error;
	ASSERT_TRUE(doc.SaveToFile(path.c_str(), &error)) << error;

	CUtlBuffer text;
	ASSERT_TRUE(Plat_ReadFile(path.c_str(), text));
	const std::string written(text.View());
	EXPECT_EQ(written.substr(0, written.find('\n')), kHeader);
	EXPECT_NE(written.find("rootNode"), std::string::npos);
	EXPECT_NE(written.find("extra_data"), std::string::npos);
	// A node's members come in their fixed order.
	const size_t cls = written.find("_class = \"AnimFile\"");
	ASSERT_NE(cls, std::string::npos);
	const size_t name = written.find("name = \"run\"", cls);
	const size_t note = written.find("note = ", cls);
	const size_t children = written.find("children =", cls);
	const size_t dynamic = written.find("dynamic_attributes =", cls);
	const size_t source = written.find("source_filename = ", cls);
	EXPECT_TRUE(cls < name && name < note && note < children && children < dynamic && dynamic < source)
		<< cls << " " << name << " " << note << " " << children << " " << dynamic << " " << source;

	CModelDoc loaded;
	ASSERT_TRUE(loaded.LoadFromFile(path.c_str(), nullptr, &error)) << error;
	EXPECT_TRUE(loaded.Equals(doc));
	EXPECT_TRUE(doc.Equals(loaded));

	// The comparison sees a change of any kind.
	loaded.FindNode("sequence", "run")->SetInt("end_frame", 7);
	EXPECT_FALSE(loaded.Equals(doc));
	ASSERT_TRUE(loaded.LoadFromFile(path.c_str(), nullptr, &error)) << error;
	loaded.FindNode("hitbox", "head", loaded.FindNode("hitboxset", "default"))->SetVector("hitbox_maxs", Vector(1, 2, 3));
	EXPECT_FALSE(loaded.Equals(doc));
	ASSERT_TRUE(loaded.LoadFromFile(path.c_str(), nullptr, &error)) << error;
	SetMemberInt(loaded.FindFirstNode("AnimEvent")->EditDynamicAttributes(), "x", 1);
	EXPECT_FALSE(loaded.Equals(doc));

	// Saving what was loaded gives the same text.
	ASSERT_TRUE(loaded.LoadFromFile(path.c_str(), nullptr, &error)) << error;
	CUtlBuffer again(CUtlBuffer::TEXT_BUFFER);
	ASSERT_TRUE(loaded.SaveToBuffer(again, &error)) << error;
	EXPECT_EQ(std::string(again.View()), written);
}

TEST(ModelDoc, ValuesComeBackExactly)
{
	CModelDoc doc;
	CModelDocNode *pAttach = doc.AddNode("Attachment", "attach_hitloc");
	ASSERT_NE(pAttach, nullptr);
	pAttach->SetString("parent_bone", "spine_2");
	pAttach->SetVector("relative_origin", Vector(0.1f, -2.5f, 1e-7f));
	pAttach->SetAngles("relative_angles", QAngle(0.0f, 90.0f, -45.5f));
	CModelDocNode *pWeights = doc.AddNode("WeightList", "weightlist_attack");
	pWeights->SetWeight("weights", "spine", 2.0f); // clamped
	pWeights->SetWeight("weights", "arm", -1.0f);
	pWeights->SetWeight("weights", "hand", 0.3f);
	pWeights->SetWeight("weights", "hand", 0.6f); // replaces

	CUtlBuffer text(CUtlBuffer::TEXT_BUFFER);
	ASSERT_TRUE(doc.SaveToBuffer(text));
	CModelDoc loaded;
	CUtlString error;
	ASSERT_TRUE(loaded.LoadFromText(text.View(), "memory", &error)) << error;
	const CModelDocNode *pLoaded = loaded.FindNode("attachment", "ATTACH_HITLOC");
	ASSERT_NE(pLoaded, nullptr);
	EXPECT_STREQ(pLoaded->GetString("parent_bone"), "spine_2");
	EXPECT_EQ(pLoaded->GetVector("relative_origin"), Vector(0.1f, -2.5f, 1e-7f));
	EXPECT_EQ(pLoaded->GetAngles("relative_angles"), QAngle(0.0f, 90.0f, -45.5f));
	const CUtlVector<ModelDocWeight_t> &weights = loaded.FindNode("weightlist", "weightlist_attack")->GetWeights("weights");
	ASSERT_EQ(weights.size(), 3u);
	EXPECT_EQ(weights[0].m_Bone, "spine");
	EXPECT_EQ(weights[0].m_flWeight, 1.0f);
	EXPECT_EQ(weights[1].m_flWeight, 0.0f);
	EXPECT_EQ(weights[2].m_Bone, "hand");
	EXPECT_EQ(weights[2].m_flWeight, 0.6f);
}

TEST(ModelDoc, DuplicateOrInvalidNamesAreRefusedWithTheMessage)
{
	CModelDoc doc;
	ASSERT_NE(doc.AddNode("AnimFile", "run"), nullptr);
	{
		CCaptureLog log;
		CUtlString error;
		EXPECT_EQ(doc.AddNode("1DBlend", "Run", nullptr, &error), nullptr); // animations and blends share a namespace
		EXPECT_EQ(error, "Cannot add node with duplicate name: Run (Namespace 'sequence')");
		EXPECT_NE(log.m_Text.find("Cannot add node with duplicate name: Run (Namespace 'sequence')"), std::string::npos) << log.m_Text;
	}
	{
		CCaptureLog log;
		EXPECT_EQ(doc.AddNode("AnimBindPose", "run"), nullptr);
		EXPECT_EQ(doc.AddNode("RenderMeshFile", "bad/name"), nullptr);
		EXPECT_EQ(doc.AddNode("RenderMeshFile", ""), nullptr);
		EXPECT_EQ(doc.AddNode("RenderMeshFile", " padded"), nullptr);
		EXPECT_NE(log.m_Text.find("Cannot add node with duplicate name: bad/name (Namespace 'mesh')"), std::string::npos) << log.m_Text;
		EXPECT_NE(log.m_Text.find("Cannot add node with duplicate name:  (Namespace 'mesh')"), std::string::npos) << log.m_Text;
	}
	// Other namespaces may use the name.
	EXPECT_NE(doc.AddNode("Attachment", "run"), nullptr);
	EXPECT_NE(doc.AddNode("RenderMeshFile", "run"), nullptr);
	EXPECT_NE(doc.AddNode("PoseParam", "run"), nullptr);
	EXPECT_NE(doc.AddNode("WeightList", "run"), nullptr);

	// Hitboxes are unique within their set only.
	CModelDocNode *pSetA = doc.AddNode("HitboxSet", "a");
	CModelDocNode *pSetB = doc.AddNode("HitboxSet", "b");
	EXPECT_EQ(doc.AddNode("HitboxSet_Auto", "A"), nullptr);
	EXPECT_NE(doc.AddNode("Hitbox", "head", pSetA), nullptr);
	EXPECT_NE(doc.AddNode("Hitbox", "head", pSetB), nullptr);
	{
		CCaptureLog log;
		EXPECT_EQ(doc.AddNode("Hitbox", "HEAD", pSetA), nullptr);
		EXPECT_NE(log.m_Text.find("Cannot add node with duplicate name: HEAD (Namespace 'hitbox')"), std::string::npos);
	}

	// A removed or renamed node frees its name.
	CModelDocNode *pRun = doc.FindNode("sequence", "run");
	ASSERT_NE(pRun, nullptr);
	ASSERT_TRUE(doc.RenameNode(pRun, "run_fast"));
	EXPECT_EQ(doc.FindNode("sequence", "run"), nullptr);
	EXPECT_EQ(doc.FindNode("sequence", "run_fast"), pRun);
	EXPECT_NE(doc.AddNode("AnimFile", "run"), nullptr);
	{
		CCaptureLog log;
		EXPECT_FALSE(doc.RenameNode(pRun, "run"));
	}
	ASSERT_TRUE(doc.RemoveNode(pSetA));
	EXPECT_EQ(doc.FindNode("hitboxset", "a"), nullptr);
	EXPECT_NE(doc.AddNode("HitboxSet", "a"), nullptr);
}

TEST(ModelDoc, ListNodesAreCreatedWhenMissing)
{
	CModelDoc doc;
	EXPECT_EQ(doc.GetRootNode()->GetChildCount(), 0);
	EXPECT_EQ(doc.FindListNode("RenderMeshList"), nullptr);

	CModelDocNode *pMesh = doc.AddNode("RenderMeshFile", "body");
	ASSERT_NE(pMesh, nullptr);
	CModelDocNode *pList = doc.FindListNode("RenderMeshList");
	ASSERT_NE(pList, nullptr);
	EXPECT_EQ(pMesh->GetParent(), pList);
	EXPECT_EQ(pList->GetParent(), doc.GetRootNode());
	EXPECT_EQ(doc.AddNode("RenderMeshFile", "arms")->GetParent(), pList);
	EXPECT_EQ(doc.GetRootNode()->GetChildCount(), 1);

	// Each class goes into its own list.
	const struct
	{
		const char *nodeClass;
		const char *listClass;
	} cases[] = { { "LODGroup", "LODGroupList" }, { "BodyGroup", "BodyGroupList" }, { "DefaultMaterialGroup", "MaterialGroupList" },
		{ "MaterialGroup", "MaterialGroupList" }, { "AnimBindPose", "AnimationList" }, { "AnimFile", "AnimationList" },
		{ "1DBlend", "AnimationList" }, { "WeightList", "WeightListList" }, { "PoseParam", "PoseParamList" },
		{ "Attachment", "AttachmentList" }, { "ZSNAPFile", "ZSNAPFileList" }, { "HitboxSet_Auto", "HitboxSetList" },
		{ "HitboxSet", "HitboxSetList" } };
	int n = 0;
	for (const auto &entry : cases)
	{
		CModelDocNode *pNode = doc.AddNode(entry.nodeClass, "node_" + std::to_string(n++));
		ASSERT_NE(pNode, nullptr) << entry.nodeClass;
		ASSERT_NE(pNode->GetParent(), nullptr);
		EXPECT_STREQ(pNode->GetParent()->GetClassName(), entry.listClass);
		EXPECT_EQ(pNode->GetParent()->GetParent(), doc.GetRootNode());
	}
	EXPECT_EQ(doc.GetRootNode()->GetChildCount(), 10);

	// Classes that live under another node need that parent, and only that one.
	CCaptureLog log;
	CUtlString error;
	EXPECT_EQ(doc.AddNode("BodyGroupChoice", "", nullptr, &error), nullptr);
	EXPECT_EQ(error, "A BodyGroupChoice node needs a parent node (BodyGroup)");
	EXPECT_EQ(doc.AddNode("Hitbox", "x", doc.FindNode("sequence", "node_5"), &error), nullptr);
	EXPECT_EQ(error, "A Hitbox node cannot stand under a AnimFile node");
	EXPECT_EQ(doc.AddNode("NoSuchClass", "x", nullptr, &error), nullptr);
	EXPECT_EQ(error, "Unknown model document node class 'NoSuchClass'");
	EXPECT_EQ(doc.AddNode("RootNode", "", nullptr, &error), nullptr);
	// A refused name creates no list node.
	EXPECT_EQ(doc.AddNode("RenderMeshFile", "bad\"name"), nullptr);
	CModelDoc empty;
	EXPECT_EQ(empty.AddNode("Attachment", ""), nullptr);
	EXPECT_EQ(empty.GetRootNode()->GetChildCount(), 0);
}

TEST(ModelDoc, UnnamedLODGroupsGetGeneratedNames)
{
	CModelDoc doc;
	CModelDocNode *pFirst = doc.AddNode("LODGroup");
	CModelDocNode *pSecond = doc.AddNode("LODGroup");
	ASSERT_NE(pFirst, nullptr);
	ASSERT_NE(pSecond, nullptr);
	EXPECT_EQ(pFirst->GetName(), "LOD_0");
	EXPECT_EQ(pSecond->GetName(), "LOD_1");
	ASSERT_TRUE(doc.RemoveNode(pFirst));
	EXPECT_EQ(doc.AddNode("LODGroup")->GetName(), "LOD_0");
	EXPECT_EQ(doc.AddNode("LODGroup", "custom")->GetName(), "custom");
	// An unnamed class keeps no name even when one is given.
	EXPECT_EQ(doc.AddNode("ZSNAPFile", "ignored")->GetName(), "");
}

TEST(ModelDoc, TypedAccessorsRefuseWrongNamesAndTypes)
{
	CModelDoc doc;
	CModelDocNode *pAnim = doc.AddNode("AnimFile", "idle");
	CCaptureLog log;
	EXPECT_FALSE(pAnim->SetInt("looping", 1));
	EXPECT_FALSE(pAnim->SetBool("no_such_attribute", true));
	EXPECT_NE(log.m_Text.find("Attribute 'looping' of a AnimFile node is of type bool, not int"), std::string::npos) << log.m_Text;
	EXPECT_NE(log.m_Text.find("A AnimFile node has no attribute 'no_such_attribute'"), std::string::npos) << log.m_Text;
	EXPECT_EQ(pAnim->GetInt("looping"), 0);
	EXPECT_STREQ(pAnim->GetString("no_such_attribute"), "");
	// Defaults of the class table.
	EXPECT_EQ(pAnim->GetInt("start_frame"), -1);
	EXPECT_EQ(pAnim->GetInt("activity_weight"), 1);
	EXPECT_FLOAT_EQ(doc.AddNode("RenderMeshFile", "m")->GetFloat("import_scale"), 1.0f);
	EXPECT_FLOAT_EQ(doc.AddNode("PoseParam", "p")->GetFloat("poseparam_max"), 1.0f);
	EXPECT_TRUE(doc.AddNode("AnimEvent", "", pAnim)->GetKV3("event_keys")->IsTable());
}

TEST(ModelDoc, HandWrittenDocumentLoadsWithDefaults)
{
	const std::string text = std::string(kHeader) + R"(
// Written by hand: most nodes leave out note, children and dynamic_attributes.
{
	rootNode =
	{
		_class = "RootNode"
		children =
		[
			{
				_class = "RenderMeshList"
				children =
				[
					{ _class = "RenderMeshFile" name = "body" filename = "models/heroes/body.fbx" },
					{ _class = "RenderMeshFile" name = 'body_lod1' filename = "models/heroes/body_lod1.dmx" }
				]
			},
			{
				_class = "LODGroupList"
				children = [ { _class = "LODGroup" switch_threshold = 1 meshes = [ "body_lod1" ] } ]
			},
			{
				_class = "AnimationList"
				children =
				[
					{
						_class = "AnimFile"
						name = "idle"
						source_filename = "models/heroes/idle.fbx"
						looping = true
						activity_name = "ACT_ZARN_IDLE"
						/* a block
						   comment */
						children = [ { _class = "ExtractMotion" extract_tx = true root_bone_name = "root" } ]
					},
				]
			},
			{
				_class = "AttachmentList"
				children = [ { _class = "Attachment" name = "attach_hand" parent_bone = "hand_R" relative_origin = [ 1, 2.5, -3 ] } ]
			},
		]
	}
}
)";
	CModelDoc doc;
	CUtlString error;
	ASSERT_TRUE(doc.LoadFromText(text, "hand.zmdl", &error)) << error;

	const CModelDocNode *pBody = doc.FindNode("mesh", "body");
	ASSERT_NE(pBody, nullptr);
	EXPECT_STREQ(pBody->GetString("filename"), "models/heroes/body.fbx");
	EXPECT_EQ(pBody->GetNote(), "");
	EXPECT_EQ(pBody->GetChildCount(), 0);
	EXPECT_TRUE(pBody->GetDynamicAttributes()->IsTable());
	EXPECT_FLOAT_EQ(pBody->GetFloat("import_scale"), 1.0f);
	EXPECT_NE(doc.FindNode("mesh", "body_lod1"), nullptr);

	const CModelDocNode *pLod = doc.FindFirstNode("LODGroup");
	ASSERT_NE(pLod, nullptr);
	EXPECT_EQ(pLod->GetName(), "LOD_0");
	EXPECT_FLOAT_EQ(pLod->GetFloat("switch_threshold"), 1.0f);
	ASSERT_EQ(pLod->GetStringArray("meshes").size(), 1u);

	const CModelDocNode *pIdle = doc.FindNode("sequence", "idle");
	ASSERT_NE(pIdle, nullptr);
	EXPECT_TRUE(pIdle->GetBool("looping"));
	EXPECT_FALSE(pIdle->GetBool("delta"));
	EXPECT_EQ(pIdle->GetInt("end_frame"), -1);
	EXPECT_STREQ(pIdle->GetString("activity_name"), "ACT_ZARN_IDLE");
	const CModelDocNode *pMotion = pIdle->FindChild("ExtractMotion");
	ASSERT_NE(pMotion, nullptr);
	EXPECT_TRUE(pMotion->GetBool("extract_tx"));
	EXPECT_STREQ(pMotion->GetString("root_bone_name"), "root");

	const CModelDocNode *pAttach = doc.FindNode("attachment", "attach_hand");
	ASSERT_NE(pAttach, nullptr);
	EXPECT_EQ(pAttach->GetVector("relative_origin"), Vector(1.0f, 2.5f, -3.0f));
	EXPECT_EQ(pAttach->GetAngles("relative_angles"), QAngle());
	EXPECT_TRUE(doc.GetExtraData()->IsTable());

	// New nodes join the lists that the file made.
	CModelDoc &editable = doc;
	EXPECT_EQ(editable.AddNode("RenderMeshFile", "arms")->GetParent(), doc.FindListNode("RenderMeshList"));
	EXPECT_EQ(editable.AddNode("RenderMeshFile", "BODY"), nullptr);
}

namespace
{
// Loads the body under the header; expects failure and returns the error.
std::string LoadError(const std::string &body)
{
	CModelDoc doc;
	CUtlString error;
	EXPECT_FALSE(doc.LoadFromText(std::string(kHeader) + "\n" + body, "bad.zmdl", &error)) << body;
	EXPECT_EQ(doc.GetRootNode()->GetChildCount(), 0);
	return error;
}
} // namespace

TEST(ModelDoc, BadDocumentsNameFileAndLine)
{
	// Line 1 is the header; the body starts on line 2.
	EXPECT_NE(LoadError("{\n rootNode = {\n _class = \"RootNode\"\n children = [\n { _class = \"Mystery\" }\n ]\n }\n}\n")
				  .find("bad.zmdl(6): Unknown node class 'Mystery'"),
		std::string::npos);
	const std::string wrongType = LoadError("{ rootNode = { _class = \"RootNode\" children = [ { _class = \"AnimationList\"\n"
											"children = [ { _class = \"AnimFile\" name = \"idle\"\n"
											"looping = \"yes\"\n"
											"end_frame = 1.5 } ] } ] } }");
	EXPECT_NE(wrongType.find("bad.zmdl(4): Attribute 'looping' of AnimFile 'idle' must be a bool, not a string"), std::string::npos)
		<< wrongType;
	EXPECT_NE(wrongType.find("bad.zmdl(5): Attribute 'end_frame' of AnimFile 'idle' must be a 32-bit integer"), std::string::npos)
		<< wrongType;
	EXPECT_NE(LoadError("{ rootNode = { _class = \"RootNode\" children = [ { _class = \"AttachmentList\" children = [\n"
						"{ _class = \"Attachment\" name = \"a\" relative_origin = [ 1, 2 ] } ] } ] } }")
				  .find("bad.zmdl(3): Attribute 'relative_origin' of Attachment 'a' must be an array of three numbers, not an array"),
		std::string::npos);
	EXPECT_NE(LoadError("{ rootNode = { _class = \"RootNode\" children = [ { _class = \"AttachmentList\" children = [\n"
						"{ _class = \"Attachment\" name = \"a\" },\n"
						"{ _class = \"Attachment\" name = \"A\" } ] } ] } }")
				  .find("bad.zmdl(4): Cannot add node with duplicate name: A (Namespace 'attachment')"),
		std::string::npos);
	EXPECT_NE(LoadError("{ rootNode = { _class = \"RootNode\" children = [\n { _class = \"Hitbox\" name = \"x\" } ] } }")
				  .find("bad.zmdl(3): A Hitbox node cannot stand under RootNode"),
		std::string::npos);
	EXPECT_NE(LoadError("{ rootNode = { _class = \"RootNode\" children = [ { _class = \"WeightListList\" children = [\n"
						"{ _class = \"WeightList\" name = \"w\" weights = [\n{ bone = \"b\" weight = 1.5 } ] } ] } ] } }")
				  .find("bad.zmdl(4): The weight of bone 'b' in WeightList 'w' must be from 0 to 1"),
		std::string::npos);
	EXPECT_NE(LoadError("{ rootNode = { _class = \"RootNode\" children = [ { _class = \"RenderMeshList\" children = [\n"
						"{ _class = \"RenderMeshFile\" filename = \"x.fbx\" } ] } ] } }")
				  .find("bad.zmdl(3): A RenderMeshFile node needs a name"),
		std::string::npos);
	EXPECT_NE(LoadError("{ rootNode = { _class = \"RootNode\" children = \"none\" } }").find("'children' of RootNode must be an array"),
		std::string::npos);
	EXPECT_NE(LoadError("{ rootNode = { _class = \"Root\" } }").find("bad.zmdl(2): The class of 'rootNode' must be \"RootNode\""),
		std::string::npos);
	EXPECT_NE(LoadError("{ something = {} }").find("bad.zmdl(2): The document has no 'rootNode'"), std::string::npos);
	EXPECT_NE(LoadError("[ 1, 2 ]").find("The document must be a table"), std::string::npos);
	// Every problem of one pass is listed.
	const std::string several = LoadError("{ rootNode = { _class = \"RootNode\" children = [\n{ _class = \"A\" },\n{ _class = \"B\" } ] } }");
	EXPECT_NE(several.find("bad.zmdl(3): Unknown node class 'A'"), std::string::npos) << several;
	EXPECT_NE(several.find("bad.zmdl(4): Unknown node class 'B'"), std::string::npos) << several;

	// Text errors come from the parser with their position; another format is refused.
	CModelDoc doc;
	CUtlString error;
	EXPECT_FALSE(doc.LoadFromText(std::string(kHeader) + "\n{ rootNode = { _class = \"RootNode\" ", "cut.zmdl", &error));
	EXPECT_NE(error.find("cut.zmdl(2"), std::string::npos) << error;
	EXPECT_FALSE(doc.LoadFromText("<!-- kv3 encoding:text:version{e21c7f3c-8a33-41c5-9977-a76d3a32aa0d} "
								  "format:generic:version{7412167c-06e9-4698-aff2-e63eb59037e7} -->\n{ rootNode = { _class = \"RootNode\" } }",
		"generic.zmdl", &error));
	EXPECT_NE(error.find("modeldoc32"), std::string::npos) << error;
	EXPECT_FALSE(doc.LoadFromFile("/nonexistent/x.zmdl", nullptr, &error));
	EXPECT_NE(error.find("/nonexistent/x.zmdl"), std::string::npos) << error;
}

TEST(ModelDoc, UnknownAttributesWarnAndLoad)
{
	CModelDoc doc;
	CUtlString error;
	CCaptureLog log;
	ASSERT_TRUE(doc.LoadFromText(std::string(kHeader) + "\n{ rootNode = { _class = \"RootNode\" children = [ { _class = \"PoseParamList\"\n"
														 "children = [ { _class = \"PoseParam\" name = \"turn\"\n"
														 "poseparam_colour = 3 } ] } ] } }",
		"warn.zmdl", &error))
		<< error;
	EXPECT_NE(log.m_Text.find("warn.zmdl(4): A PoseParam node has no attribute 'poseparam_colour'; it is ignored"), std::string::npos)
		<< log.m_Text;
	EXPECT_NE(doc.FindNode("poseparam", "turn"), nullptr);
}

TEST(ModelDoc, SaveIsAtomicAndReportsFailure)
{
	CTempDirectory temp;
	const std::string path = temp.Write("keep.zmdl", "previous contents");
	CModelDoc doc;
	doc.AddNode("RenderMeshFile", "body");
	CUtlString error;
	EXPECT_FALSE(doc.SaveToFile(temp.Path("missing/dir/x.zmdl").c_str(), &error));
	EXPECT_NE(error.find("missing/dir/x.zmdl"), std::string::npos) << error;
	ASSERT_TRUE(doc.SaveToFile(path.c_str(), &error)) << error;
	CModelDoc loaded;
	ASSERT_TRUE(loaded.LoadFromFile(path.c_str(), nullptr, &error)) << error;
	EXPECT_TRUE(loaded.Equals(doc));
	// No temporary file is left beside it.
	int files = 0;
	for (const auto &entry : std::filesystem::directory_iterator(temp.Path()))
		files += entry.is_regular_file();
	EXPECT_EQ(files, 1);
}

TEST(ModelDoc, ManyProblemsAreCappedAndStillFail)
{
	// Sixty ignored attributes (warnings) and then an unknown class (an error).
	std::string nodes = "{ _class = \"PoseParam\" name = \"turn\"\n";
	for (int i = 0; i < 60; ++i)
		nodes += "unknown_" + std::to_string(i) + " = 1\n";
	nodes += "}, { _class = \"Mystery\" }";
	CModelDoc doc;
	CUtlString error;
	CCaptureLog log;
	EXPECT_FALSE(doc.LoadFromText(std::string(kHeader) + "\n{ rootNode = { _class = \"RootNode\" children = [ { _class = \"PoseParamList\" "
														 "children = [ " + nodes + " ] } ] } }",
		"many.zmdl", &error));
	EXPECT_NE(error.find("Too many problems; the rest are not listed"), std::string::npos) << error;
	EXPECT_EQ(error.find("Unknown node class 'Mystery'"), std::string::npos); // beyond the cap
	EXPECT_LT(std::count(error.begin(), error.end(), '\n'), 60);
}

TEST(ModelDoc, ManyUnnamedNodesLoadInLinearTime)
{
	// Each generated name is found with one try, so this takes milliseconds, not minutes.
	std::string text = std::string(kHeader) + "\n{ rootNode = { _class = \"RootNode\" children = [ { _class = \"LODGroupList\" children = [\n";
	const int count = 20000;
	for (int i = 0; i < count; ++i)
		text += "{ _class = \"LODGroup\" },\n";
	text += "] } ] } }";
	CModelDoc doc;
	CUtlString error;
	ASSERT_TRUE(doc.LoadFromText(text, "lods.zmdl", &error)) << error;
	CUtlVector<CModelDocNode *> lods;
	doc.FindNodes("LODGroup", lods);
	ASSERT_EQ(lods.size(), (size_t)count);
	EXPECT_EQ(lods.back()->GetName(), "LOD_" + std::to_string(count - 1));
	EXPECT_EQ(doc.AddNode("LODGroup")->GetName(), "LOD_" + std::to_string(count));
}
