// Nodes and the document's editing: creation under the class rules, namespaces, typed
// attributes, comparison.
#include "modeldoc/modeldoc.h"

#include <algorithm>
#include <cmath>

#include "core/strtools.h"

DEFINE_LOGGING_CHANNEL(LOG_MODELDOC, "ModelDoc");

static_assert(std::is_same_v<std::variant_alternative_t<MODELDOC_ATTR_BOOL, ModelDocValue_t>, bool>);
static_assert(std::is_same_v<std::variant_alternative_t<MODELDOC_ATTR_STRING, ModelDocValue_t>, CUtlString>);
static_assert(std::is_same_v<std::variant_alternative_t<MODELDOC_ATTR_WEIGHTS, ModelDocValue_t>, CUtlVector<ModelDocWeight_t>>);
static_assert(std::is_same_v<std::variant_alternative_t<MODELDOC_ATTR_KV3, ModelDocValue_t>, CKV3OwnedValue>);
static_assert(std::variant_size_v<ModelDocValue_t> == MODELDOC_ATTR_TYPE_COUNT);

namespace
{
float ClampWeight(float weight)
{
	if (std::isnan(weight))
		return 0.0f;
	return std::clamp(weight, 0.0f, 1.0f);
}

bool ValuesEqual(const ModelDocValue_t &a, const ModelDocValue_t &b)
{
	if (a.index() != b.index())
		return false;
	if (a.index() == MODELDOC_ATTR_KV3)
		return KV3ValuesEqual(std::get<MODELDOC_ATTR_KV3>(a).Get(), std::get<MODELDOC_ATTR_KV3>(b).Get());
	return std::visit(
		[&b](const auto &value) -> bool {
			using T = std::decay_t<decltype(value)>;
			if constexpr (std::is_same_v<T, CKV3OwnedValue>)
				return false; // handled above
			else
				return value == std::get<T>(b);
		},
		a);
}

void Refuse(CUtlString *pError, const CUtlString &message)
{
	Log_Warning(LOG_MODELDOC, "%s\n", message.c_str());
	if (pError)
		*pError = message;
}
} // namespace

// ---------------------------------------------------------------------------------------------
// CModelDocNode

CModelDocNode::CModelDocNode(CModelDoc *pDoc, const ModelDocClassDesc_t *pClass) : m_pDoc(pDoc), m_pClass(pClass)
{
	m_DynamicAttributes.Edit()->MakeTable();
	m_Values.reserve((size_t)pClass->m_nAttributeCount);
	for (int i = 0; i < pClass->m_nAttributeCount; ++i)
		m_Values.push_back(ModelDocDefaultValue(pClass->m_pAttributes[i]));
}

bool CModelDocNode::IsClass(const char *pszClass) const
{
	return pszClass && strcmp(m_pClass->m_pszName, pszClass) == 0;
}

CModelDocNode *CModelDocNode::GetChild(int index) const
{
	return (index >= 0 && index < GetChildCount()) ? m_Children[(size_t)index].get() : nullptr;
}

CModelDocNode *CModelDocNode::FindChild(const char *pszClass, std::string_view name) const
{
	for (const auto &child : m_Children)
	{
		if (child->IsClass(pszClass) && (name.empty() || V_StrEqualNoCase(child->m_Name, name)))
			return child.get();
	}
	return nullptr;
}

KeyValues3 *CModelDocNode::EditDynamicAttributes()
{
	KeyValues3 *value = m_DynamicAttributes.Edit();
	if (!value->IsTable())
		value->MakeTable();
	return value;
}

template <typename T> T *CModelDocNode::Edit(std::string_view name, EModelDocAttributeType type)
{
	const int index = m_pClass->FindAttributeIndex(name);
	if (index < 0)
	{
		Log_Warning(LOG_MODELDOC, "A %s node has no attribute '%.*s'\n", m_pClass->m_pszName, (int)name.size(), name.data());
		return nullptr;
	}
	const ModelDocAttributeDesc_t &desc = m_pClass->m_pAttributes[index];
	if (desc.m_eType != type)
	{
		Log_Warning(LOG_MODELDOC, "Attribute '%s' of a %s node is of type %s, not %s\n", desc.m_pszName, m_pClass->m_pszName,
			ModelDocAttributeTypeName(desc.m_eType), ModelDocAttributeTypeName(type));
		return nullptr;
	}
	return &std::get<T>(m_Values[(size_t)index]);
}

template <typename T> const T *CModelDocNode::Find(std::string_view name, EModelDocAttributeType type) const
{
	const int index = m_pClass->FindAttributeIndex(name);
	if (index < 0 || m_pClass->m_pAttributes[index].m_eType != type)
		return nullptr;
	return &std::get<T>(m_Values[(size_t)index]);
}

bool CModelDocNode::SetBool(std::string_view name, bool value)
{
	bool *field = Edit<bool>(name, MODELDOC_ATTR_BOOL);
	return field && (*field = value, true);
}

bool CModelDocNode::SetInt(std::string_view name, int32 value)
{
	int32 *field = Edit<int32>(name, MODELDOC_ATTR_INT);
	return field && (*field = value, true);
}

bool CModelDocNode::SetFloat(std::string_view name, float value)
{
	float *field = Edit<float>(name, MODELDOC_ATTR_FLOAT);
	return field && (*field = value, true);
}

bool CModelDocNode::SetString(std::string_view name, std::string_view value)
{
	CUtlString *field = Edit<CUtlString>(name, MODELDOC_ATTR_STRING);
	return field && (*field = value, true);
}

bool CModelDocNode::SetVector(std::string_view name, const Vector &value)
{
	Vector *field = Edit<Vector>(name, MODELDOC_ATTR_VECTOR3);
	return field && (*field = value, true);
}

bool CModelDocNode::SetAngles(std::string_view name, const QAngle &value)
{
	QAngle *field = Edit<QAngle>(name, MODELDOC_ATTR_ANGLES);
	return field && (*field = value, true);
}

bool CModelDocNode::SetStringArray(std::string_view name, const CUtlVector<CUtlString> &values)
{
	auto *field = Edit<CUtlVector<CUtlString>>(name, MODELDOC_ATTR_STRING_ARRAY);
	return field && (*field = values, true);
}

bool CModelDocNode::AddToStringArray(std::string_view name, std::string_view value)
{
	auto *field = Edit<CUtlVector<CUtlString>>(name, MODELDOC_ATTR_STRING_ARRAY);
	return field && (field->emplace_back(value), true);
}

bool CModelDocNode::SetRemaps(std::string_view name, const CUtlVector<ModelDocRemap_t> &remaps)
{
	auto *field = Edit<CUtlVector<ModelDocRemap_t>>(name, MODELDOC_ATTR_REMAPS);
	return field && (*field = remaps, true);
}

bool CModelDocNode::AddRemap(std::string_view name, std::string_view from, std::string_view to)
{
	auto *field = Edit<CUtlVector<ModelDocRemap_t>>(name, MODELDOC_ATTR_REMAPS);
	return field && (field->push_back({ CUtlString(from), CUtlString(to) }), true);
}

bool CModelDocNode::SetBlendKeys(std::string_view name, const CUtlVector<ModelDocBlendKey_t> &keys)
{
	auto *field = Edit<CUtlVector<ModelDocBlendKey_t>>(name, MODELDOC_ATTR_BLEND_KEYS);
	return field && (*field = keys, true);
}

bool CModelDocNode::AddBlendKey(std::string_view name, std::string_view childName, float value)
{
	auto *field = Edit<CUtlVector<ModelDocBlendKey_t>>(name, MODELDOC_ATTR_BLEND_KEYS);
	return field && (field->push_back({ CUtlString(childName), value }), true);
}

bool CModelDocNode::SetWeights(std::string_view name, const CUtlVector<ModelDocWeight_t> &weights)
{
	auto *field = Edit<CUtlVector<ModelDocWeight_t>>(name, MODELDOC_ATTR_WEIGHTS);
	if (!field)
		return false;
	*field = weights;
	for (ModelDocWeight_t &weight : *field)
		weight.m_flWeight = ClampWeight(weight.m_flWeight);
	return true;
}

bool CModelDocNode::SetWeight(std::string_view name, std::string_view bone, float weight)
{
	auto *field = Edit<CUtlVector<ModelDocWeight_t>>(name, MODELDOC_ATTR_WEIGHTS);
	if (!field)
		return false;
	for (ModelDocWeight_t &entry : *field)
	{
		if (entry.m_Bone == bone)
		{
			entry.m_flWeight = ClampWeight(weight);
			return true;
		}
	}
	field->push_back({ CUtlString(bone), ClampWeight(weight) });
	return true;
}

bool CModelDocNode::SetKV3(std::string_view name, const KeyValues3 *value)
{
	CKV3OwnedValue *field = Edit<CKV3OwnedValue>(name, MODELDOC_ATTR_KV3);
	if (!field)
		return false;
	field->Set(value ? value : KV3Null());
	return true;
}

bool CModelDocNode::GetBool(std::string_view name) const
{
	const bool *field = Find<bool>(name, MODELDOC_ATTR_BOOL);
	return field && *field;
}

int32 CModelDocNode::GetInt(std::string_view name) const
{
	const int32 *field = Find<int32>(name, MODELDOC_ATTR_INT);
	return field ? *field : 0;
}

float CModelDocNode::GetFloat(std::string_view name) const
{
	const float *field = Find<float>(name, MODELDOC_ATTR_FLOAT);
	return field ? *field : 0.0f;
}

const char *CModelDocNode::GetString(std::string_view name) const
{
	const CUtlString *field = Find<CUtlString>(name, MODELDOC_ATTR_STRING);
	return field ? field->c_str() : "";
}

Vector CModelDocNode::GetVector(std::string_view name) const
{
	const Vector *field = Find<Vector>(name, MODELDOC_ATTR_VECTOR3);
	return field ? *field : Vector();
}

QAngle CModelDocNode::GetAngles(std::string_view name) const
{
	const QAngle *field = Find<QAngle>(name, MODELDOC_ATTR_ANGLES);
	return field ? *field : QAngle();
}

const CUtlVector<CUtlString> &CModelDocNode::GetStringArray(std::string_view name) const
{
	static const CUtlVector<CUtlString> s_Empty;
	const auto *field = Find<CUtlVector<CUtlString>>(name, MODELDOC_ATTR_STRING_ARRAY);
	return field ? *field : s_Empty;
}

const CUtlVector<ModelDocRemap_t> &CModelDocNode::GetRemaps(std::string_view name) const
{
	static const CUtlVector<ModelDocRemap_t> s_Empty;
	const auto *field = Find<CUtlVector<ModelDocRemap_t>>(name, MODELDOC_ATTR_REMAPS);
	return field ? *field : s_Empty;
}

const CUtlVector<ModelDocBlendKey_t> &CModelDocNode::GetBlendKeys(std::string_view name) const
{
	static const CUtlVector<ModelDocBlendKey_t> s_Empty;
	const auto *field = Find<CUtlVector<ModelDocBlendKey_t>>(name, MODELDOC_ATTR_BLEND_KEYS);
	return field ? *field : s_Empty;
}

const CUtlVector<ModelDocWeight_t> &CModelDocNode::GetWeights(std::string_view name) const
{
	static const CUtlVector<ModelDocWeight_t> s_Empty;
	const auto *field = Find<CUtlVector<ModelDocWeight_t>>(name, MODELDOC_ATTR_WEIGHTS);
	return field ? *field : s_Empty;
}

const KeyValues3 *CModelDocNode::GetKV3(std::string_view name) const
{
	const CKV3OwnedValue *field = Find<CKV3OwnedValue>(name, MODELDOC_ATTR_KV3);
	return field ? field->Get() : KV3Null();
}

bool CModelDocNode::Equals(const CModelDocNode &other) const
{
	if (m_pClass != other.m_pClass || m_Name != other.m_Name || m_Note != other.m_Note ||
		!KV3ValuesEqual(m_DynamicAttributes.Get(), other.m_DynamicAttributes.Get()) || m_Values.size() != other.m_Values.size() ||
		m_Children.size() != other.m_Children.size())
		return false;
	for (size_t i = 0; i < m_Values.size(); ++i)
	{
		if (!ValuesEqual(m_Values[i], other.m_Values[i]))
			return false;
	}
	for (size_t i = 0; i < m_Children.size(); ++i)
	{
		if (!m_Children[i]->Equals(*other.m_Children[i]))
			return false;
	}
	return true;
}

// ---------------------------------------------------------------------------------------------
// CModelDoc

CModelDoc::CModelDoc()
{
	Clear();
}

void CModelDoc::Clear()
{
	m_pRoot = std::make_unique<CModelDocNode>(this, ModelDocFindClass("RootNode"));
	m_ExtraData.Clear();
	m_ExtraData.Edit()->MakeTable();
	m_NameIndex.clear();
	m_GeneratedNameHints.clear();
}

KeyValues3 *CModelDoc::EditExtraData()
{
	KeyValues3 *value = m_ExtraData.Edit();
	if (!value->IsTable())
		value->MakeTable();
	return value;
}

CUtlString CModelDoc::NameKey(const ModelDocClassDesc_t &nodeClass, std::string_view name, const CModelDocNode *pParent)
{
	CUtlString key = nodeClass.m_pszNamespace ? nodeClass.m_pszNamespace : "";
	if (nodeClass.m_eScope == MODELDOC_SCOPE_PARENT)
		V_AppendFormat(key, "@%p", (const void *)pParent);
	key += ':';
	for (char c : name)
		key += V_tolower(c);
	return key;
}

bool CModelDoc::IsNameAvailable(const ModelDocClassDesc_t &nodeClass, std::string_view name, const CModelDocNode *pParent,
	const CModelDocNode *pIgnore) const
{
	if (!nodeClass.IsNamed() || !ModelDocIsValidName(name))
		return false;
	auto it = m_NameIndex.find(NameKey(nodeClass, name, pParent));
	return it == m_NameIndex.end() || it->second == pIgnore;
}

void CModelDoc::IndexName(CModelDocNode *pNode)
{
	if (pNode->m_pClass->IsNamed())
		m_NameIndex[NameKey(*pNode->m_pClass, pNode->m_Name, pNode->m_pParent)] = pNode;
}

void CModelDoc::UnindexTree(CModelDocNode *pNode)
{
	if (pNode->m_pClass->IsNamed())
	{
		auto it = m_NameIndex.find(NameKey(*pNode->m_pClass, pNode->m_Name, pNode->m_pParent));
		if (it != m_NameIndex.end() && it->second == pNode)
			m_NameIndex.erase(it);
	}
	for (const auto &child : pNode->m_Children)
		UnindexTree(child.get());
}

CUtlString CModelDoc::GenerateName(const ModelDocClassDesc_t &nodeClass, const CModelDocNode *pParent) const
{
	const char *prefix = nodeClass.m_pszGeneratedPrefix ? nodeClass.m_pszGeneratedPrefix : nodeClass.m_pszName;
	// Numbers below the hint were taken when it was set; removing or renaming a node resets
	// the hints. Every taken name is one entry of the index, so this ends within (index size
	// + 1) tries, and a document of many unnamed nodes costs one try each.
	size_t &hint = m_GeneratedNameHints[NameKey(nodeClass, prefix, pParent)];
	for (size_t n = hint;; ++n)
	{
		CUtlString name = V_Format("%s%zu", prefix, n);
		if (IsNameAvailable(nodeClass, name, pParent))
		{
			hint = n + 1;
			return name;
		}
	}
}

CModelDocNode *CModelDoc::FindListNode(const char *pszListClass) const
{
	return m_pRoot->FindChild(pszListClass);
}

CModelDocNode *CModelDoc::GetOrCreateListNode(const char *pszListClass)
{
	const ModelDocClassDesc_t *desc = ModelDocFindClass(pszListClass ? pszListClass : "");
	if (!desc || !desc->AllowsParent("RootNode"))
		return nullptr;
	if (CModelDocNode *pList = FindListNode(pszListClass))
		return pList;
	return AttachNode(std::make_unique<CModelDocNode>(this, desc), m_pRoot.get());
}

CModelDocNode *CModelDoc::AttachNode(std::unique_ptr<CModelDocNode> pNode, CModelDocNode *pParent)
{
	pNode->m_pParent = pParent;
	CModelDocNode *pResult = pNode.get();
	pParent->m_Children.push_back(std::move(pNode));
	IndexName(pResult);
	return pResult;
}

CModelDocNode *CModelDoc::AddNode(const char *pszClass, std::string_view name, CModelDocNode *pParent, CUtlString *pError)
{
	const ModelDocClassDesc_t *desc = ModelDocFindClass(pszClass ? pszClass : "");
	if (!desc)
	{
		Refuse(pError, V_Format("Unknown model document node class '%s'", pszClass ? pszClass : ""));
		return nullptr;
	}
	if (!desc->m_ppszParents)
	{
		Refuse(pError, V_Format("A document has exactly one %s", desc->m_pszName));
		return nullptr;
	}
	if (pParent && pParent->m_pDoc != this)
	{
		Refuse(pError, V_Format("Cannot add a %s node under a node of another document", desc->m_pszName));
		return nullptr;
	}
	// Without a parent: the class's list node (made below, once the name is known to be good),
	// or the root for the list nodes themselves.
	const bool bUseListNode = !pParent && desc->m_pszListClass;
	if (!pParent && !bUseListNode)
	{
		if (!desc->AllowsParent("RootNode"))
		{
			CUtlString parents;
			for (const char *const *parent = desc->m_ppszParents; *parent; ++parent)
				V_AppendFormat(parents, "%s%s", parents.empty() ? "" : " or ", *parent);
			Refuse(pError, V_Format("A %s node needs a parent node (%s)", desc->m_pszName, parents.c_str()));
			return nullptr;
		}
		pParent = m_pRoot.get();
	}
	const char *parentClass = bUseListNode ? desc->m_pszListClass : pParent->GetClassName();
	if (!desc->AllowsParent(parentClass))
	{
		Refuse(pError, V_Format("A %s node cannot stand under a %s node", desc->m_pszName, parentClass));
		return nullptr;
	}

	CUtlString nodeName;
	if (desc->IsNamed())
	{
		const CModelDocNode *pScope = bUseListNode ? FindListNode(desc->m_pszListClass) : pParent;
		nodeName = (name.empty() && desc->m_eNaming == MODELDOC_NAME_GENERATED) ? GenerateName(*desc, pScope) : CUtlString(name);
		if (!IsNameAvailable(*desc, nodeName, pScope))
		{
			Refuse(pError, V_Format("Cannot add node with duplicate name: %s (Namespace '%s')", nodeName.c_str(), desc->m_pszNamespace));
			return nullptr;
		}
	}
	if (bUseListNode)
		pParent = GetOrCreateListNode(desc->m_pszListClass);

	auto pNode = std::make_unique<CModelDocNode>(this, desc);
	pNode->m_Name = nodeName;
	return AttachNode(std::move(pNode), pParent);
}

CModelDocNode *CModelDoc::FindNode(const char *pszNamespace, std::string_view name, const CModelDocNode *pScope) const
{
	if (!pszNamespace)
		return nullptr;
	for (int i = 0; i < ModelDocClassCount(); ++i)
	{
		const ModelDocClassDesc_t *desc = ModelDocClass(i);
		if (!desc->m_pszNamespace || strcmp(desc->m_pszNamespace, pszNamespace) != 0)
			continue;
		auto it = m_NameIndex.find(NameKey(*desc, name, pScope));
		return it != m_NameIndex.end() ? it->second : nullptr;
	}
	return nullptr;
}

namespace
{
template <typename Fn> bool WalkNodes(CModelDocNode *pNode, Fn &&fn)
{
	if (!fn(pNode))
		return false;
	for (int i = 0; i < pNode->GetChildCount(); ++i)
	{
		if (!WalkNodes(pNode->GetChild(i), fn))
			return false;
	}
	return true;
}
} // namespace

CModelDocNode *CModelDoc::FindFirstNode(const char *pszClass) const
{
	CModelDocNode *pFound = nullptr;
	WalkNodes(m_pRoot.get(), [&](CModelDocNode *pNode) {
		if (!pNode->IsClass(pszClass))
			return true;
		pFound = pNode;
		return false;
	});
	return pFound;
}

void CModelDoc::FindNodes(const char *pszClass, CUtlVector<CModelDocNode *> &out) const
{
	out.clear();
	WalkNodes(m_pRoot.get(), [&](CModelDocNode *pNode) {
		if (pNode->IsClass(pszClass))
			out.push_back(pNode);
		return true;
	});
}

bool CModelDoc::RenameNode(CModelDocNode *pNode, std::string_view name, CUtlString *pError)
{
	if (!pNode || pNode->m_pDoc != this || !pNode->m_pClass->IsNamed())
	{
		Refuse(pError, "Cannot rename a node that has no name");
		return false;
	}
	const CUtlString newName(name);
	if (!IsNameAvailable(*pNode->m_pClass, newName, pNode->m_pParent, pNode))
	{
		Refuse(pError, V_Format("Cannot add node with duplicate name: %s (Namespace '%s')", newName.c_str(), pNode->m_pClass->m_pszNamespace));
		return false;
	}
	auto it = m_NameIndex.find(NameKey(*pNode->m_pClass, pNode->m_Name, pNode->m_pParent));
	if (it != m_NameIndex.end() && it->second == pNode)
		m_NameIndex.erase(it);
	pNode->m_Name = newName;
	IndexName(pNode);
	m_GeneratedNameHints.clear();
	return true;
}

bool CModelDoc::RemoveNode(CModelDocNode *pNode)
{
	if (!pNode || pNode->m_pDoc != this || !pNode->m_pParent)
		return false;
	auto &siblings = pNode->m_pParent->m_Children;
	auto it = std::find_if(siblings.begin(), siblings.end(), [pNode](const auto &child) { return child.get() == pNode; });
	if (it == siblings.end())
		return false;
	UnindexTree(pNode);
	siblings.erase(it);
	m_GeneratedNameHints.clear();
	return true;
}

bool CModelDoc::Equals(const CModelDoc &other) const
{
	return m_pRoot->Equals(*other.m_pRoot) && KV3ValuesEqual(m_ExtraData.Get(), other.m_ExtraData.Get());
}
