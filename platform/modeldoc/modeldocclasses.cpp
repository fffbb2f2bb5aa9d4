// The table of node classes of the model document: names, naming rules, parents, list nodes,
// and every attribute with its type and default. README.md shows the same table.
#include <cstring>

#include "modeldoc/modeldoc.h"
#include "core/strtools.h"

namespace
{
constexpr ModelDocAttributeDesc_t Bool(const char *name, bool value)
{
	return { name, MODELDOC_ATTR_BOOL, value, 0, 0.0f, "", { 0, 0, 0 } };
}
constexpr ModelDocAttributeDesc_t Int(const char *name, int32 value)
{
	return { name, MODELDOC_ATTR_INT, false, value, 0.0f, "", { 0, 0, 0 } };
}
constexpr ModelDocAttributeDesc_t Float(const char *name, float value)
{
	return { name, MODELDOC_ATTR_FLOAT, false, 0, value, "", { 0, 0, 0 } };
}
constexpr ModelDocAttributeDesc_t String(const char *name, const char *value = "")
{
	return { name, MODELDOC_ATTR_STRING, false, 0, 0.0f, value, { 0, 0, 0 } };
}
constexpr ModelDocAttributeDesc_t Vector3(const char *name)
{
	return { name, MODELDOC_ATTR_VECTOR3, false, 0, 0.0f, "", { 0, 0, 0 } };
}
constexpr ModelDocAttributeDesc_t Angles(const char *name)
{
	return { name, MODELDOC_ATTR_ANGLES, false, 0, 0.0f, "", { 0, 0, 0 } };
}
constexpr ModelDocAttributeDesc_t Of(const char *name, EModelDocAttributeType type)
{
	return { name, type, false, 0, 0.0f, "", { 0, 0, 0 } };
}

// Parents
const char *const s_RootParent[] = { "RootNode", nullptr };
const char *const s_RenderMeshParents[] = { "RenderMeshList", nullptr };
const char *const s_LODGroupParents[] = { "LODGroupList", nullptr };
const char *const s_BodyGroupParents[] = { "BodyGroupList", nullptr };
const char *const s_BodyGroupChoiceParents[] = { "BodyGroup", nullptr };
const char *const s_MaterialGroupParents[] = { "MaterialGroupList", nullptr };
const char *const s_AnimationParents[] = { "AnimationList", nullptr };
const char *const s_AnimChildParents[] = { "AnimFile", "1DBlend", nullptr };
const char *const s_WeightListParents[] = { "WeightListList", nullptr };
const char *const s_PoseParamParents[] = { "PoseParamList", nullptr };
const char *const s_AttachmentParents[] = { "AttachmentList", nullptr };
const char *const s_ZSNAPFileParents[] = { "ZSNAPFileList", nullptr };
const char *const s_HitboxSetParents[] = { "HitboxSetList", nullptr };
const char *const s_HitboxParents[] = { "HitboxSet", nullptr };

// Attributes
const ModelDocAttributeDesc_t s_RenderMeshFile[] = {
	String("filename"),
	Float("import_scale", 1.0f),
};
const ModelDocAttributeDesc_t s_LODGroup[] = {
	Float("switch_threshold", 0.0f),
	Of("meshes", MODELDOC_ATTR_STRING_ARRAY),
};
const ModelDocAttributeDesc_t s_BodyGroup[] = {
	Bool("hidden_in_tools", false),
};
const ModelDocAttributeDesc_t s_BodyGroupChoice[] = {
	Of("meshes", MODELDOC_ATTR_STRING_ARRAY),
};
const ModelDocAttributeDesc_t s_DefaultMaterialGroup[] = {
	Of("remaps", MODELDOC_ATTR_REMAPS),
	Bool("use_global_default", false),
	String("global_default_material"),
};
const ModelDocAttributeDesc_t s_MaterialGroup[] = {
	Of("remaps", MODELDOC_ATTR_REMAPS),
};
const ModelDocAttributeDesc_t s_AnimFile[] = {
	String("source_filename"),
	Int("take", 0),
	Bool("looping", false),
	Bool("delta", false),
	Float("fps", -1.0f),
	Int("start_frame", -1),
	Int("end_frame", -1),
	String("weight_list_name"),
	String("activity_name"),
	Int("activity_weight", 1),
};
const ModelDocAttributeDesc_t s_AnimSubtract[] = {
	String("anim_name"),
	Int("frame", 0),
};
const ModelDocAttributeDesc_t s_ExtractMotion[] = {
	Bool("extract_tx", false),
	Bool("extract_ty", false),
	Bool("extract_tz", false),
	Bool("extract_rz", false),
	String("root_bone_name"),
};
const ModelDocAttributeDesc_t s_AnimEvent[] = {
	String("event_class"),
	Int("event_frame", 0),
	Of("event_keys", MODELDOC_ATTR_KV3),
};
const ModelDocAttributeDesc_t s_ActivityModifier[] = {
	String("activity_name"),
	Int("activity_weight", 1),
};
const ModelDocAttributeDesc_t s_AnimAddLayer[] = {
	String("anim_name"),
};
const ModelDocAttributeDesc_t s_WeightList[] = {
	Of("weights", MODELDOC_ATTR_WEIGHTS),
};
const ModelDocAttributeDesc_t s_1DBlend[] = {
	Bool("looping", false),
	Bool("delta", false),
	String("weight_list_name"),
	String("activity_name"),
	Int("activity_weight", 1),
	String("blend_pose_param"),
	Of("blend_keys", MODELDOC_ATTR_BLEND_KEYS),
};
const ModelDocAttributeDesc_t s_PoseParam[] = {
	Float("poseparam_min", 0.0f),
	Float("poseparam_max", 1.0f),
	Bool("poseparam_looping", false),
	Float("poseparam_loop", 0.0f),
};
const ModelDocAttributeDesc_t s_Attachment[] = {
	String("parent_bone"),
	Vector3("relative_origin"),
	Angles("relative_angles"),
	Bool("ignore_rotation", false),
};
const ModelDocAttributeDesc_t s_ZSNAPFile[] = {
	String("filename"),
	String("output_zsnap"),
	String("local_space_bone"),
};
const ModelDocAttributeDesc_t s_Hitbox[] = {
	String("parent_bone"),
	Vector3("hitbox_mins"),
	Vector3("hitbox_maxs"),
};

#define ATTRS(a) a, (int)V_ARRAYSIZE(a)
#define NO_ATTRS nullptr, 0

const ModelDocClassDesc_t s_Classes[] = {
	{ "RootNode", MODELDOC_NAME_NONE, nullptr, MODELDOC_SCOPE_DOCUMENT, nullptr, nullptr, nullptr, NO_ATTRS },

	{ "RenderMeshList", MODELDOC_NAME_NONE, nullptr, MODELDOC_SCOPE_DOCUMENT, nullptr, nullptr, s_RootParent, NO_ATTRS },
	{ "LODGroupList", MODELDOC_NAME_NONE, nullptr, MODELDOC_SCOPE_DOCUMENT, nullptr, nullptr, s_RootParent, NO_ATTRS },
	{ "BodyGroupList", MODELDOC_NAME_NONE, nullptr, MODELDOC_SCOPE_DOCUMENT, nullptr, nullptr, s_RootParent, NO_ATTRS },
	{ "MaterialGroupList", MODELDOC_NAME_NONE, nullptr, MODELDOC_SCOPE_DOCUMENT, nullptr, nullptr, s_RootParent, NO_ATTRS },
	{ "AnimationList", MODELDOC_NAME_NONE, nullptr, MODELDOC_SCOPE_DOCUMENT, nullptr, nullptr, s_RootParent, NO_ATTRS },
	{ "WeightListList", MODELDOC_NAME_NONE, nullptr, MODELDOC_SCOPE_DOCUMENT, nullptr, nullptr, s_RootParent, NO_ATTRS },
	{ "PoseParamList", MODELDOC_NAME_NONE, nullptr, MODELDOC_SCOPE_DOCUMENT, nullptr, nullptr, s_RootParent, NO_ATTRS },
	{ "AttachmentList", MODELDOC_NAME_NONE, nullptr, MODELDOC_SCOPE_DOCUMENT, nullptr, nullptr, s_RootParent, NO_ATTRS },
	{ "ZSNAPFileList", MODELDOC_NAME_NONE, nullptr, MODELDOC_SCOPE_DOCUMENT, nullptr, nullptr, s_RootParent, NO_ATTRS },
	{ "HitboxSetList", MODELDOC_NAME_NONE, nullptr, MODELDOC_SCOPE_DOCUMENT, nullptr, nullptr, s_RootParent, NO_ATTRS },

	{ "RenderMeshFile", MODELDOC_NAME_REQUIRED, "mesh", MODELDOC_SCOPE_DOCUMENT, nullptr, "RenderMeshList", s_RenderMeshParents,
		ATTRS(s_RenderMeshFile) },
	{ "LODGroup", MODELDOC_NAME_GENERATED, "lodgroup", MODELDOC_SCOPE_DOCUMENT, "LOD_", "LODGroupList", s_LODGroupParents,
		ATTRS(s_LODGroup) },
	{ "BodyGroup", MODELDOC_NAME_REQUIRED, "bodygroup", MODELDOC_SCOPE_DOCUMENT, nullptr, "BodyGroupList", s_BodyGroupParents,
		ATTRS(s_BodyGroup) },
	{ "BodyGroupChoice", MODELDOC_NAME_NONE, nullptr, MODELDOC_SCOPE_DOCUMENT, nullptr, nullptr, s_BodyGroupChoiceParents,
		ATTRS(s_BodyGroupChoice) },
	{ "DefaultMaterialGroup", MODELDOC_NAME_NONE, nullptr, MODELDOC_SCOPE_DOCUMENT, nullptr, "MaterialGroupList",
		s_MaterialGroupParents, ATTRS(s_DefaultMaterialGroup) },
	{ "MaterialGroup", MODELDOC_NAME_REQUIRED, "materialgroup", MODELDOC_SCOPE_DOCUMENT, nullptr, "MaterialGroupList",
		s_MaterialGroupParents, ATTRS(s_MaterialGroup) },
	{ "AnimBindPose", MODELDOC_NAME_REQUIRED, "sequence", MODELDOC_SCOPE_DOCUMENT, nullptr, "AnimationList", s_AnimationParents,
		NO_ATTRS },
	{ "AnimFile", MODELDOC_NAME_REQUIRED, "sequence", MODELDOC_SCOPE_DOCUMENT, nullptr, "AnimationList", s_AnimationParents,
		ATTRS(s_AnimFile) },
	{ "AnimSubtract", MODELDOC_NAME_NONE, nullptr, MODELDOC_SCOPE_DOCUMENT, nullptr, nullptr, s_AnimChildParents,
		ATTRS(s_AnimSubtract) },
	{ "ExtractMotion", MODELDOC_NAME_NONE, nullptr, MODELDOC_SCOPE_DOCUMENT, nullptr, nullptr, s_AnimChildParents,
		ATTRS(s_ExtractMotion) },
	{ "AnimEvent", MODELDOC_NAME_NONE, nullptr, MODELDOC_SCOPE_DOCUMENT, nullptr, nullptr, s_AnimChildParents, ATTRS(s_AnimEvent) },
	{ "ActivityModifier", MODELDOC_NAME_NONE, nullptr, MODELDOC_SCOPE_DOCUMENT, nullptr, nullptr, s_AnimChildParents,
		ATTRS(s_ActivityModifier) },
	{ "AnimAddLayer", MODELDOC_NAME_NONE, nullptr, MODELDOC_SCOPE_DOCUMENT, nullptr, nullptr, s_AnimChildParents,
		ATTRS(s_AnimAddLayer) },
	{ "WeightList", MODELDOC_NAME_REQUIRED, "weightlist", MODELDOC_SCOPE_DOCUMENT, nullptr, "WeightListList", s_WeightListParents,
		ATTRS(s_WeightList) },
	{ "1DBlend", MODELDOC_NAME_REQUIRED, "sequence", MODELDOC_SCOPE_DOCUMENT, nullptr, "AnimationList", s_AnimationParents,
		ATTRS(s_1DBlend) },
	{ "PoseParam", MODELDOC_NAME_REQUIRED, "poseparam", MODELDOC_SCOPE_DOCUMENT, nullptr, "PoseParamList", s_PoseParamParents,
		ATTRS(s_PoseParam) },
	{ "Attachment", MODELDOC_NAME_REQUIRED, "attachment", MODELDOC_SCOPE_DOCUMENT, nullptr, "AttachmentList", s_AttachmentParents,
		ATTRS(s_Attachment) },
	{ "ZSNAPFile", MODELDOC_NAME_NONE, nullptr, MODELDOC_SCOPE_DOCUMENT, nullptr, "ZSNAPFileList", s_ZSNAPFileParents,
		ATTRS(s_ZSNAPFile) },
	{ "HitboxSet_Auto", MODELDOC_NAME_REQUIRED, "hitboxset", MODELDOC_SCOPE_DOCUMENT, nullptr, "HitboxSetList", s_HitboxSetParents,
		NO_ATTRS },
	{ "HitboxSet", MODELDOC_NAME_REQUIRED, "hitboxset", MODELDOC_SCOPE_DOCUMENT, nullptr, "HitboxSetList", s_HitboxSetParents,
		NO_ATTRS },
	{ "Hitbox", MODELDOC_NAME_REQUIRED, "hitbox", MODELDOC_SCOPE_PARENT, nullptr, nullptr, s_HitboxParents, ATTRS(s_Hitbox) },
};

#undef ATTRS
#undef NO_ATTRS

const char *const s_TypeNames[MODELDOC_ATTR_TYPE_COUNT] = {
	"bool", "int", "float", "string", "vector3", "angles", "string array", "remaps", "blend keys", "weights", "kv3",
};
} // namespace

const char *ModelDocAttributeTypeName(EModelDocAttributeType type)
{
	return (type >= 0 && type < MODELDOC_ATTR_TYPE_COUNT) ? s_TypeNames[type] : "<unknown>";
}

const ModelDocAttributeDesc_t *ModelDocClassDesc_t::FindAttribute(std::string_view name) const
{
	const int index = FindAttributeIndex(name);
	return index >= 0 ? &m_pAttributes[index] : nullptr;
}

int ModelDocClassDesc_t::FindAttributeIndex(std::string_view name) const
{
	for (int i = 0; i < m_nAttributeCount; ++i)
	{
		if (name == m_pAttributes[i].m_pszName)
			return i;
	}
	return -1;
}

bool ModelDocClassDesc_t::AllowsParent(const char *pszParentClass) const
{
	if (!m_ppszParents || !pszParentClass)
		return false;
	for (const char *const *parent = m_ppszParents; *parent; ++parent)
	{
		if (strcmp(*parent, pszParentClass) == 0)
			return true;
	}
	return false;
}

const ModelDocClassDesc_t *ModelDocFindClass(std::string_view name)
{
	for (const ModelDocClassDesc_t &desc : s_Classes)
	{
		if (name == desc.m_pszName)
			return &desc;
	}
	return nullptr;
}

int ModelDocClassCount()
{
	return (int)V_ARRAYSIZE(s_Classes);
}

const ModelDocClassDesc_t *ModelDocClass(int index)
{
	return (index >= 0 && index < ModelDocClassCount()) ? &s_Classes[index] : nullptr;
}

bool ModelDocIsValidName(std::string_view name)
{
	if (name.empty() || name.size() > 255 || name.front() == ' ' || name.back() == ' ')
		return false;
	for (char c : name)
	{
		const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' ||
			c == '.' || c == ' ';
		if (!ok)
			return false;
	}
	return true;
}

ModelDocValue_t ModelDocDefaultValue(const ModelDocAttributeDesc_t &desc)
{
	switch (desc.m_eType)
	{
	case MODELDOC_ATTR_BOOL:
		return ModelDocValue_t(std::in_place_index<MODELDOC_ATTR_BOOL>, desc.m_bDefault);
	case MODELDOC_ATTR_INT:
		return ModelDocValue_t(std::in_place_index<MODELDOC_ATTR_INT>, desc.m_nDefault);
	case MODELDOC_ATTR_FLOAT:
		return ModelDocValue_t(std::in_place_index<MODELDOC_ATTR_FLOAT>, desc.m_flDefault);
	case MODELDOC_ATTR_STRING:
		return ModelDocValue_t(std::in_place_index<MODELDOC_ATTR_STRING>, desc.m_pszDefault ? desc.m_pszDefault : "");
	case MODELDOC_ATTR_VECTOR3:
		return ModelDocValue_t(std::in_place_index<MODELDOC_ATTR_VECTOR3>, desc.m_vDefault[0], desc.m_vDefault[1], desc.m_vDefault[2]);
	case MODELDOC_ATTR_ANGLES:
		return ModelDocValue_t(std::in_place_index<MODELDOC_ATTR_ANGLES>, desc.m_vDefault[0], desc.m_vDefault[1], desc.m_vDefault[2]);
	case MODELDOC_ATTR_STRING_ARRAY:
		return ModelDocValue_t(std::in_place_index<MODELDOC_ATTR_STRING_ARRAY>);
	case MODELDOC_ATTR_REMAPS:
		return ModelDocValue_t(std::in_place_index<MODELDOC_ATTR_REMAPS>);
	case MODELDOC_ATTR_BLEND_KEYS:
		return ModelDocValue_t(std::in_place_index<MODELDOC_ATTR_BLEND_KEYS>);
	case MODELDOC_ATTR_WEIGHTS:
		return ModelDocValue_t(std::in_place_index<MODELDOC_ATTR_WEIGHTS>);
	case MODELDOC_ATTR_KV3:
	default:
	{
		ModelDocValue_t value(std::in_place_index<MODELDOC_ATTR_KV3>);
		std::get<MODELDOC_ATTR_KV3>(value).Edit()->MakeTable();
		return value;
	}
	}
}
