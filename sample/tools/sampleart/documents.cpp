#include "documents.h"

#include <cstdio>

#include "core/keyvalues.h"
#include "core/keyvalues3.h"
#include "core/kv3text.h"
#include "core/utlbuffer.h"

namespace sampleart
{
namespace
{
// The format of model documents: "modeldoc32", {8ba9eb32-178d-4b95-a5d4-53826fa12ff1}.
const KV3ID_t kFormatModelDoc32 = { "modeldoc32", { 0x32, 0xeb, 0xa9, 0x8b, 0x8d, 0x17, 0x95, 0x4b, 0xa5, 0xd4, 0x53, 0x82, 0x6f, 0xa1, 0x2f, 0xf1 } };

// A node: its class, its name where it has one, and the members every node carries.
KeyValues3 *AddNode(KeyValues3 *children, const char *nodeClass, const char *name = nullptr)
{
	KeyValues3 *node = children->ArrayAppend();
	node->MakeTable();
	node->AddMember("_class")->SetString(nodeClass);
	if (name)
		node->AddMember("name")->SetString(name);
	node->AddMember("note")->SetString("");
	node->AddMember("children")->MakeArray();
	node->AddMember("dynamic_attributes")->MakeTable();
	return node;
}

// A list node under the root, made the first time it is asked for.
KeyValues3 *ListChildren(KeyValues3 *rootChildren, const char *listClass)
{
	for (uint32 i = 0; i < rootChildren->GetArrayCount(); ++i)
	{
		KeyValues3 *node = rootChildren->GetArrayElement(i);
		if (std::string(GetMemberString(node, "_class")) == listClass)
			return node->FindMember("children");
	}
	return AddNode(rootChildren, listClass)->FindMember("children");
}

void SetVector(KeyValues3 *value, const Vec3 &v)
{
	value->MakeArray();
	for (int i = 0; i < 3; ++i)
		value->ArrayAppend()->SetDouble(v[i]);
}

std::string Six(double v)
{
	char text[32];
	snprintf(text, sizeof(text), "%.6f", v);
	return text;
}
} // namespace

std::string ConstantColour(const Vec3 &c, double alpha) { return "[" + Six(c.x) + " " + Six(c.y) + " " + Six(c.z) + " " + Six(alpha) + "]"; }

std::string WriteModelDocument(const ModelDocument_t &doc, std::string &error)
{
	CKeyValues3Context context;
	KeyValues3 *root = context.Root();
	root->MakeTable();
	KeyValues3 *rootNode = root->AddMember("rootNode");
	rootNode->MakeTable();
	rootNode->AddMember("_class")->SetString("RootNode");
	rootNode->AddMember("note")->SetString("");
	KeyValues3 *rootChildren = rootNode->AddMember("children");
	rootChildren->MakeArray();
	rootNode->AddMember("dynamic_attributes")->MakeTable();
	root->AddMember("extra_data")->MakeTable();

	if (!doc.m_DefaultMaterial.empty() || !doc.m_MaterialGroups.empty())
	{
		KeyValues3 *groups = ListChildren(rootChildren, "MaterialGroupList");
		if (!doc.m_DefaultMaterial.empty())
		{
			KeyValues3 *node = AddNode(groups, "DefaultMaterialGroup");
			node->AddMember("remaps")->MakeArray();
			node->AddMember("use_global_default")->SetBool(true);
			node->AddMember("global_default_material")->SetString(doc.m_DefaultMaterial);
		}
		for (const ModelDocMaterialGroup_t &group : doc.m_MaterialGroups)
		{
			KeyValues3 *node = AddNode(groups, "MaterialGroup", group.m_Name.c_str());
			KeyValues3 *remap = node->AddMember("remaps");
			remap->MakeArray();
			KeyValues3 *pair = remap->ArrayAppend();
			pair->MakeTable();
			pair->AddMember("from")->SetString(group.m_From);
			pair->AddMember("to")->SetString(group.m_To);
		}
	}
	KeyValues3 *meshes = ListChildren(rootChildren, "RenderMeshList");
	for (const ModelDocMesh_t &mesh : doc.m_Meshes)
		AddNode(meshes, "RenderMeshFile", mesh.m_Name.c_str())->AddMember("filename")->SetString(mesh.m_File);
	KeyValues3 *lods = ListChildren(rootChildren, "LODGroupList");
	for (const ModelDocLOD_t &lod : doc.m_LODs)
	{
		KeyValues3 *node = AddNode(lods, "LODGroup");
		node->AddMember("switch_threshold")->SetDouble(lod.m_flSwitchThreshold);
		KeyValues3 *names = node->AddMember("meshes");
		names->MakeArray();
		for (const std::string &name : lod.m_Meshes)
			names->ArrayAppend()->SetString(name);
	}
	KeyValues3 *anims = ListChildren(rootChildren, "AnimationList");
	AddNode(anims, "AnimBindPose", "bind_pose");
	for (const ModelDocAnim_t &anim : doc.m_Anims)
	{
		KeyValues3 *node = AddNode(anims, "AnimFile", anim.m_Name.c_str());
		node->AddMember("source_filename")->SetString(anim.m_SourceFile);
		node->AddMember("looping")->SetBool(anim.m_bLooping);
		node->AddMember("delta")->SetBool(false);
		node->AddMember("weight_list_name")->SetString("");
		node->AddMember("activity_name")->SetString(anim.m_Activity);
		node->AddMember("activity_weight")->SetInt32(anim.m_nActivityWeight);
		node->AddMember("start_frame")->SetInt32(-1);
		node->AddMember("end_frame")->SetInt32(-1);
	}
	if (!doc.m_Attachments.empty())
	{
		KeyValues3 *attachments = ListChildren(rootChildren, "AttachmentList");
		for (const ModelDocAttachment_t &attachment : doc.m_Attachments)
		{
			KeyValues3 *node = AddNode(attachments, "Attachment", attachment.m_Name.c_str());
			node->AddMember("parent_bone")->SetString(attachment.m_ParentBone);
			SetVector(node->AddMember("relative_origin"), attachment.m_Origin);
			SetVector(node->AddMember("relative_angles"), attachment.m_Angles);
		}
	}

	CUtlBuffer buffer;
	CUtlString saveError;
	if (!SaveKV3(KV3_ENCODING_TEXT, kFormatModelDoc32, root, &saveError, &buffer))
	{
		error = saveError;
		return "";
	}
	return std::string((const char *)buffer.Base(), buffer.Size());
}

std::string WriteMaterialDocument(const MaterialDocument_t &material, std::string &error)
{
	KeyValues layer("Layer0");
	layer.SetString("Shader", "hero.zfx");
	layer.SetString("TextureColor", material.m_Color.c_str());
	layer.SetString("F_ALPHA_TEST", "0");
	layer.SetString("TextureTranslucency", material.m_bTranslucent ? material.m_Color.c_str() : "");
	if (material.m_bTranslucent)
		layer.SetString("F_TRANSLUCENT", "1");
	layer.SetString("TextureNormal", material.m_Normal.c_str());
	layer.SetString("F_MASKS_1", "1");
	const std::string zero = ConstantColour({ 0, 0, 0 }), one = ConstantColour({ 1, 1, 1 });
	layer.SetString("TextureDetailMask", zero.c_str());
	layer.SetString("TextureDiffuseWarpMask", zero.c_str());
	layer.SetString("TextureMetalnessMask", zero.c_str());
	layer.SetString("TextureSelfIllumMask", zero.c_str());
	layer.SetString("F_MASKS_2", "1");
	layer.SetString("TextureRimMask", one.c_str());
	layer.SetString("TextureSpecularMask", one.c_str());
	layer.SetString("TextureTintByBaseMask", one.c_str());
	layer.SetString("TextureSpecularExponent", one.c_str());
	for (const auto &[key, value] : material.m_Extra)
		layer.SetString(key.c_str(), value.c_str());
	CUtlBuffer buffer;
	layer.SaveToBuffer(buffer);
	if (buffer.Size() == 0)
	{
		error = "the material wrote nothing";
		return "";
	}
	return std::string((const char *)buffer.Base(), buffer.Size());
}

std::string WriteTextureSettings(int maxres, std::string &error)
{
	KeyValues settings("settings");
	settings.SetInt("maxres", maxres);
	CUtlBuffer buffer;
	settings.SaveToBuffer(buffer);
	if (buffer.Size() == 0)
	{
		error = "the settings wrote nothing";
		return "";
	}
	return std::string((const char *)buffer.Base(), buffer.Size());
}
} // namespace sampleart
