// The KV3 text form of the model document, "modeldoc32":
//
//   <!-- kv3 encoding:text:version{...} format:modeldoc32:version{8ba9eb32-178d-4b95-a5d4-53826fa12ff1} -->
//   {
//       rootNode = { _class = "RootNode" note = "" children = [ ... ] dynamic_attributes = {} }
//       extra_data = {}
//   }
//
// Every node is a table: "_class", "name" (named classes only), "note", "children",
// "dynamic_attributes", then the attributes of its class in the order of the class table.
// Loading takes "note", "children", "dynamic_attributes" and any attribute as optional (the
// default stands for a missing one); everything else that is wrong is an error that names the
// file and line, and loading goes on to the end so that one pass reports every problem.
#include <cmath>
#include <cstdarg>

#include "core/fileio.h"
#include "core/kv3transfer.h"
#include "core/strtools.h"
#include "modeldoc/kv3linelocator.h"
#include "modeldoc/modeldoc.h"

const KV3ID_t KV3_FORMAT_MODELDOC32 = { "modeldoc32",
	{ 0x32, 0xeb, 0xa9, 0x8b, 0x8d, 0x17, 0x95, 0x4b, 0xa5, 0xd4, 0x53, 0x82, 0x6f, 0xa1, 0x2f, 0xf1 } };

namespace
{
// The key under which the load context carries its CModelDocLoader.
enum : uint32 { MODELDOC_LOADER_BINDING = 0x4D444F43 }; // "MDOC"

// Messages of one load stop here; a hostile file could otherwise make the text as long as
// the file is wide.
enum { MODELDOC_MAX_MESSAGES = 50 };

// Plain records for the array attributes, saved through the transfer layer.
struct RemapRecord_t
{
	const ModelDocRemap_t *m_pRemap;
	void Save(CKV3TransferSaveContext &ctx) const
	{
		ctx.Member("from", m_pRemap->m_From);
		ctx.Member("to", m_pRemap->m_To);
	}
	void Load(CKV3TransferLoadContext &) {}
};

struct BlendKeyRecord_t
{
	const ModelDocBlendKey_t *m_pKey;
	void Save(CKV3TransferSaveContext &ctx) const
	{
		ctx.Member("child_name", m_pKey->m_ChildName);
		ctx.Member("value", m_pKey->m_flValue);
	}
	void Load(CKV3TransferLoadContext &) {}
};

struct WeightRecord_t
{
	const ModelDocWeight_t *m_pWeight;
	void Save(CKV3TransferSaveContext &ctx) const
	{
		ctx.Member("bone", m_pWeight->m_Bone);
		ctx.Member("weight", m_pWeight->m_flWeight);
	}
	void Load(CKV3TransferLoadContext &) {}
};

template <typename Record, typename T> void SaveRecordArray(CKV3TransferSaveContext &ctx, const char *name, const CUtlVector<T> &items)
{
	KeyValues3 *out = ctx.PrepareMember(name);
	out->MakeArray((uint32)items.size());
	for (uint32 i = 0; i < (uint32)items.size(); ++i)
		ctx.SaveRecord(out->GetArrayElement(i), Record{ &items[i] });
}

bool IsNumber(const KeyValues3 *value)
{
	const KV3Type_t type = value->GetType();
	return type == KV3_TYPE_INT || type == KV3_TYPE_DOUBLE || (type == KV3_TYPE_UINT && !value->IsPointer());
}

// "a string", "an array", ... for messages.
const char *KindText(const KeyValues3 *value)
{
	switch (value->GetType())
	{
	case KV3_TYPE_NULL:
		return "null";
	case KV3_TYPE_BOOL:
		return "a bool";
	case KV3_TYPE_INT:
	case KV3_TYPE_UINT:
		return value->IsPointer() ? "a pointer" : "an integer";
	case KV3_TYPE_DOUBLE:
		return "a number";
	case KV3_TYPE_STRING:
		return "a string";
	case KV3_TYPE_BINARY_BLOB:
		return "a binary blob";
	case KV3_TYPE_ARRAY:
		return "an array";
	case KV3_TYPE_TABLE:
		return "a table";
	default:
		return "an invalid value";
	}
}

const char *const s_NodeMembers[] = { "_class", "name", "note", "children", "dynamic_attributes" };
} // namespace

// ---------------------------------------------------------------------------------------------
// Saving

void CModelDocNode::Save(CKV3TransferSaveContext &ctx) const
{
	ctx.Member("_class", m_pClass->m_pszName);
	if (m_pClass->IsNamed())
		ctx.Member("name", m_Name);
	ctx.Member("note", m_Note);
	KeyValues3 *children = ctx.PrepareMember("children");
	children->MakeArray((uint32)m_Children.size());
	for (uint32 i = 0; i < (uint32)m_Children.size(); ++i)
		ctx.SaveRecord(children->GetArrayElement(i), *m_Children[i]);
	ctx.Member("dynamic_attributes", m_DynamicAttributes);

	for (int i = 0; i < m_pClass->m_nAttributeCount; ++i)
	{
		const char *name = m_pClass->m_pAttributes[i].m_pszName;
		const ModelDocValue_t &value = m_Values[(size_t)i];
		switch (value.index())
		{
		case MODELDOC_ATTR_BOOL:
			ctx.Member(name, std::get<MODELDOC_ATTR_BOOL>(value));
			break;
		case MODELDOC_ATTR_INT:
			ctx.Member(name, std::get<MODELDOC_ATTR_INT>(value));
			break;
		case MODELDOC_ATTR_FLOAT:
			ctx.Member(name, std::get<MODELDOC_ATTR_FLOAT>(value));
			break;
		case MODELDOC_ATTR_STRING:
			ctx.Member(name, std::get<MODELDOC_ATTR_STRING>(value));
			break;
		case MODELDOC_ATTR_VECTOR3:
			ctx.Member(name, std::get<MODELDOC_ATTR_VECTOR3>(value));
			break;
		case MODELDOC_ATTR_ANGLES:
			ctx.Member(name, std::get<MODELDOC_ATTR_ANGLES>(value));
			break;
		case MODELDOC_ATTR_STRING_ARRAY:
			ctx.Member(name, std::get<MODELDOC_ATTR_STRING_ARRAY>(value));
			break;
		case MODELDOC_ATTR_REMAPS:
			SaveRecordArray<RemapRecord_t>(ctx, name, std::get<MODELDOC_ATTR_REMAPS>(value));
			break;
		case MODELDOC_ATTR_BLEND_KEYS:
			SaveRecordArray<BlendKeyRecord_t>(ctx, name, std::get<MODELDOC_ATTR_BLEND_KEYS>(value));
			break;
		case MODELDOC_ATTR_WEIGHTS:
			SaveRecordArray<WeightRecord_t>(ctx, name, std::get<MODELDOC_ATTR_WEIGHTS>(value));
			break;
		case MODELDOC_ATTR_KV3:
			ctx.Member(name, std::get<MODELDOC_ATTR_KV3>(value));
			break;
		}
	}
}

namespace
{
struct DocumentRecord_t
{
	const CModelDocNode *m_pRoot;
	const CKV3OwnedValue *m_pExtraData;
	void Save(CKV3TransferSaveContext &ctx) const
	{
		ctx.SaveRecord(ctx.PrepareMember("rootNode"), *m_pRoot);
		ctx.Member("extra_data", *m_pExtraData);
	}
	void Load(CKV3TransferLoadContext &) {}
};
} // namespace

bool CModelDoc::SaveToBuffer(CUtlBuffer &out, CUtlString *pError) const
{
	CKeyValues3Context context;
	CUtlString error;
	if (!SaveKV3Object(DocumentRecord_t{ m_pRoot.get(), &m_ExtraData }, context.Root(), &error))
	{
		if (pError)
			*pError = V_Format("Cannot write the model document: %s", error.c_str());
		return false;
	}
	if (!SaveKV3(KV3_ENCODING_TEXT, KV3_FORMAT_MODELDOC32, context.Root(), &error, &out))
	{
		if (pError)
			*pError = V_Format("Cannot write the model document: %s", error.c_str());
		return false;
	}
	return true;
}

bool CModelDoc::SaveToFile(const char *pszPath, CUtlString *pError) const
{
	CUtlBuffer text(CUtlBuffer::TEXT_BUFFER);
	if (!SaveToBuffer(text, pError))
		return false;
	return Plat_WriteFileAtomic(pszPath, text.Base(), text.Size(), pError);
}

// ---------------------------------------------------------------------------------------------
// Loading

class CModelDocLoader
{
public:
	CModelDocLoader(CModelDoc &doc, CKV3TransferLoadContext &ctx, const CKV3LineLocator &locator, const char *pszSource)
		: m_Doc(doc), m_Ctx(ctx), m_Locator(locator), m_Source(pszSource ? pszSource : "<text>")
	{
	}

	void LoadDocument(const KeyValues3 *pRoot);
	void LoadNode(CModelDocNode &node);

	// Reports at the line of a member of a table (the table's own line when member is null).
	void Report(int severity, const KeyValues3 *pTable, const char *member, const char *fmt, ...) FMTFUNCTION(5, 6);

private:
	void LoadAttribute(CModelDocNode &node, int index, const KeyValues3 *pTable, const KeyValues3 *value);
	void LoadChildren(CModelDocNode &node, const KeyValues3 *pTable, const KeyValues3 *pChildren);
	// "AnimFile 'run'" or "LODGroupList" for messages.
	static CUtlString NodeText(const CModelDocNode &node);

	CModelDoc &m_Doc;
	CKV3TransferLoadContext &m_Ctx;
	const CKV3LineLocator &m_Locator;
	CUtlString m_Source;
	int m_nMessages = 0;
	bool m_bErrorReported = false;
};

void CModelDocLoader::Report(int severity, const KeyValues3 *pTable, const char *member, const char *fmt, ...)
{
	CUtlString message;
	if (++m_nMessages <= MODELDOC_MAX_MESSAGES)
	{
		va_list args;
		va_start(args, fmt);
		message = V_FormatV(fmt, args);
		va_end(args);
	}
	else if (m_nMessages == MODELDOC_MAX_MESSAGES + 1 || (severity == ERROR_SEVERITY_ERROR && !m_bErrorReported))
		message = "Too many problems; the rest are not listed"; // an error still fails the load
	else
		return;
	ErrorRecord_t record;
	record.severity = severity;
	record.file = m_Source.c_str();
	record.line = member ? m_Locator.MemberLine(pTable, member) : m_Locator.TableLine(pTable);
	record.message = message.c_str();
	m_Ctx.OnError(record);
	m_bErrorReported = m_bErrorReported || severity == ERROR_SEVERITY_ERROR;
}

CUtlString CModelDocLoader::NodeText(const CModelDocNode &node)
{
	if (node.GetClass().IsNamed() && !node.GetName().empty())
		return V_Format("%s '%s'", node.GetClassName(), node.GetName().c_str());
	return node.GetClassName();
}

void CModelDocLoader::LoadDocument(const KeyValues3 *pRoot)
{
	if (!pRoot->IsTable())
	{
		Report(ERROR_SEVERITY_ERROR, pRoot, nullptr, "The document must be a table with 'rootNode', not %s", KindText(pRoot));
		return;
	}
	const KeyValues3 *pRootNode = FindMember(pRoot, "rootNode");
	if (!pRootNode)
		Report(ERROR_SEVERITY_ERROR, pRoot, nullptr, "The document has no 'rootNode'");
	else if (!pRootNode->IsTable())
		Report(ERROR_SEVERITY_ERROR, pRoot, "rootNode", "'rootNode' must be a table, not %s", KindText(pRootNode));
	else
	{
		const KeyValues3 *pClass = FindMember(pRootNode, "_class");
		if (!pClass || !pClass->IsString() || pClass->GetStringView() != "RootNode")
			Report(ERROR_SEVERITY_ERROR, pRootNode, pClass ? "_class" : nullptr, "The class of 'rootNode' must be \"RootNode\"");
		else
			m_Ctx.LoadRecord(pRootNode, *m_Doc.m_pRoot);
	}

	if (const KeyValues3 *pExtra = FindMember(pRoot, "extra_data"))
	{
		if (pExtra->IsTable())
			m_Ctx.ReadValue(pExtra, m_Doc.m_ExtraData);
		else
			Report(ERROR_SEVERITY_ERROR, pRoot, "extra_data", "'extra_data' must be a table, not %s", KindText(pExtra));
	}
}

void CModelDocLoader::LoadNode(CModelDocNode &node)
{
	const KeyValues3 *pTable = m_Ctx.Current();
	const ModelDocClassDesc_t &nodeClass = node.GetClass();

	// The name, checked against its namespace before anything else refers to it.
	if (nodeClass.IsNamed())
	{
		const KeyValues3 *pName = FindMember(pTable, "name");
		if (pName && !pName->IsString())
			Report(ERROR_SEVERITY_ERROR, pTable, "name", "The name of a %s node must be a string, not %s", nodeClass.m_pszName, KindText(pName));
		else
		{
			CUtlString name = pName ? CUtlString(pName->GetStringView()) : CUtlString();
			if (name.empty() && nodeClass.m_eNaming == MODELDOC_NAME_GENERATED)
				name = m_Doc.GenerateName(nodeClass, node.m_pParent);
			if (name.empty())
				Report(ERROR_SEVERITY_ERROR, pTable, pName ? "name" : nullptr, "A %s node needs a name", nodeClass.m_pszName);
			else if (!m_Doc.IsNameAvailable(nodeClass, name, node.m_pParent))
				Report(ERROR_SEVERITY_ERROR, pTable, pName ? "name" : nullptr, "Cannot add node with duplicate name: %s (Namespace '%s')",
					name.c_str(), nodeClass.m_pszNamespace);
			else
			{
				node.m_Name = name;
				m_Doc.IndexName(&node);
			}
		}
	}

	if (const KeyValues3 *pNote = FindMember(pTable, "note"))
	{
		if (pNote->IsString())
			m_Ctx.ReadValue(pNote, node.m_Note);
		else
			Report(ERROR_SEVERITY_ERROR, pTable, "note", "The note of %s must be a string, not %s", NodeText(node).c_str(), KindText(pNote));
	}

	if (const KeyValues3 *pDynamic = FindMember(pTable, "dynamic_attributes"))
	{
		if (pDynamic->IsTable())
			m_Ctx.ReadValue(pDynamic, node.m_DynamicAttributes);
		else
			Report(ERROR_SEVERITY_ERROR, pTable, "dynamic_attributes", "'dynamic_attributes' of %s must be a table, not %s",
				NodeText(node).c_str(), KindText(pDynamic));
	}

	for (int i = 0; i < nodeClass.m_nAttributeCount; ++i)
	{
		if (const KeyValues3 *value = FindMember(pTable, nodeClass.m_pAttributes[i].m_pszName))
			LoadAttribute(node, i, pTable, value);
	}

	// Members that the class does not know are left out, with a warning.
	pTable->ForEachMember([&](std::string_view name, uint32, const KeyValues3 *) {
		for (const char *known : s_NodeMembers)
		{
			if (V_StrEqualNoCase(name, known) && (name != "name" || nodeClass.IsNamed()))
				return;
		}
		for (int i = 0; i < nodeClass.m_nAttributeCount; ++i)
		{
			if (V_StrEqualNoCase(name, nodeClass.m_pAttributes[i].m_pszName))
				return;
		}
		const CUtlString member(name);
		Report(ERROR_SEVERITY_WARNING, pTable, member.c_str(), "A %s node has no attribute '%s'; it is ignored", nodeClass.m_pszName,
			member.c_str());
	});

	if (const KeyValues3 *pChildren = FindMember(pTable, "children"))
		LoadChildren(node, pTable, pChildren);
}

void CModelDocLoader::LoadChildren(CModelDocNode &node, const KeyValues3 *pTable, const KeyValues3 *pChildren)
{
	if (!pChildren->IsArray())
	{
		Report(ERROR_SEVERITY_ERROR, pTable, "children", "'children' of %s must be an array, not %s", NodeText(node).c_str(),
			KindText(pChildren));
		return;
	}
	const uint32 count = pChildren->GetArrayCount();
	for (uint32 i = 0; i < count; ++i)
	{
		const KeyValues3 *pChild = pChildren->GetArrayElement(i);
		if (!pChild->IsTable())
		{
			Report(ERROR_SEVERITY_ERROR, pTable, "children", "Child %u of %s must be a node table, not %s", i, NodeText(node).c_str(),
				KindText(pChild));
			continue;
		}
		const KeyValues3 *pClass = FindMember(pChild, "_class");
		if (!pClass || !pClass->IsString())
		{
			Report(ERROR_SEVERITY_ERROR, pChild, pClass ? "_class" : nullptr, "A node of %s has no '_class' string",
				NodeText(node).c_str());
			continue;
		}
		const CUtlString className(pClass->GetStringView());
		const ModelDocClassDesc_t *pDesc = ModelDocFindClass(className);
		if (!pDesc)
		{
			Report(ERROR_SEVERITY_ERROR, pChild, "_class", "Unknown node class '%s'", className.c_str());
			continue;
		}
		if (!pDesc->AllowsParent(node.GetClassName()))
		{
			Report(ERROR_SEVERITY_ERROR, pChild, "_class", "A %s node cannot stand under %s", className.c_str(), NodeText(node).c_str());
			continue;
		}
		auto pNode = std::make_unique<CModelDocNode>(&m_Doc, pDesc);
		pNode->m_pParent = &node;
		CModelDocNode &child = *pNode;
		node.m_Children.push_back(std::move(pNode));
		m_Ctx.LoadRecord(pChild, child);
	}
}

void CModelDocLoader::LoadAttribute(CModelDocNode &node, int index, const KeyValues3 *pTable, const KeyValues3 *value)
{
	const ModelDocAttributeDesc_t &desc = node.GetClass().m_pAttributes[index];
	ModelDocValue_t &field = node.m_Values[(size_t)index];
	const char *name = desc.m_pszName;

	auto bad = [&](const char *expected, const KeyValues3 *what) {
		Report(ERROR_SEVERITY_ERROR, pTable, name, "Attribute '%s' of %s must be %s, not %s", name, NodeText(node).c_str(), expected,
			KindText(what));
	};
	// The elements of an array attribute that must be tables of named members.
	auto member = [&](const KeyValues3 *pElement, const char *key, bool bString, const char *expected) -> const KeyValues3 * {
		const KeyValues3 *pMember = FindMember(pElement, key);
		if (!pMember || (bString ? !pMember->IsString() : !IsNumber(pMember)))
		{
			Report(ERROR_SEVERITY_ERROR, pElement, pMember ? key : nullptr, "Each entry of '%s' of %s needs '%s' (%s)", name,
				NodeText(node).c_str(), key, expected);
			return nullptr;
		}
		return pMember;
	};

	switch (desc.m_eType)
	{
	case MODELDOC_ATTR_BOOL:
		if (value->GetType() == KV3_TYPE_BOOL || (value->GetType() == KV3_TYPE_INT && (value->GetInt64() == 0 || value->GetInt64() == 1)))
			m_Ctx.ReadValue(value, std::get<MODELDOC_ATTR_BOOL>(field));
		else
			bad("a bool", value);
		break;
	case MODELDOC_ATTR_INT:
	{
		const bool bIntegral = (value->GetType() == KV3_TYPE_INT && value->GetInt64() >= INT32_MIN && value->GetInt64() <= INT32_MAX) ||
			(value->GetType() == KV3_TYPE_UINT && !value->IsPointer() && value->GetUInt64() <= INT32_MAX) ||
			(value->GetType() == KV3_TYPE_DOUBLE && value->GetDouble() >= INT32_MIN && value->GetDouble() <= INT32_MAX &&
				std::trunc(value->GetDouble()) == value->GetDouble());
		if (bIntegral)
			m_Ctx.ReadValue(value, std::get<MODELDOC_ATTR_INT>(field));
		else if (IsNumber(value))
			Report(ERROR_SEVERITY_ERROR, pTable, name, "Attribute '%s' of %s must be a 32-bit integer", name, NodeText(node).c_str());
		else
			bad("an integer", value);
		break;
	}
	case MODELDOC_ATTR_FLOAT:
		if (IsNumber(value))
			m_Ctx.ReadValue(value, std::get<MODELDOC_ATTR_FLOAT>(field));
		else
			bad("a number", value);
		break;
	case MODELDOC_ATTR_STRING:
		if (value->IsString())
			m_Ctx.ReadValue(value, std::get<MODELDOC_ATTR_STRING>(field));
		else
			bad("a string", value);
		break;
	case MODELDOC_ATTR_VECTOR3:
	case MODELDOC_ATTR_ANGLES:
	{
		bool ok = value->IsArray() && value->GetArrayCount() == 3;
		for (uint32 i = 0; ok && i < 3; ++i)
			ok = IsNumber(value->GetArrayElement(i));
		if (!ok)
			bad("an array of three numbers", value);
		else if (desc.m_eType == MODELDOC_ATTR_VECTOR3)
			m_Ctx.ReadValue(value, std::get<MODELDOC_ATTR_VECTOR3>(field));
		else
			m_Ctx.ReadValue(value, std::get<MODELDOC_ATTR_ANGLES>(field));
		break;
	}
	case MODELDOC_ATTR_STRING_ARRAY:
	{
		bool ok = value->IsArray();
		for (uint32 i = 0; ok && i < value->GetArrayCount(); ++i)
			ok = value->GetArrayElement(i)->IsString();
		if (ok)
			m_Ctx.ReadValue(value, std::get<MODELDOC_ATTR_STRING_ARRAY>(field));
		else
			bad("an array of strings", value);
		break;
	}
	case MODELDOC_ATTR_REMAPS:
	case MODELDOC_ATTR_BLEND_KEYS:
	case MODELDOC_ATTR_WEIGHTS:
	{
		if (!value->IsArray())
		{
			bad("an array of tables", value);
			break;
		}
		for (uint32 i = 0; i < value->GetArrayCount(); ++i)
		{
			const KeyValues3 *pElement = value->GetArrayElement(i);
			if (!pElement->IsTable())
			{
				bad("an array of tables", pElement);
				continue;
			}
			if (desc.m_eType == MODELDOC_ATTR_REMAPS)
			{
				const KeyValues3 *pFrom = member(pElement, "from", true, "a string");
				const KeyValues3 *pTo = member(pElement, "to", true, "a string");
				if (pFrom && pTo)
					std::get<MODELDOC_ATTR_REMAPS>(field).push_back({ CUtlString(pFrom->GetStringView()), CUtlString(pTo->GetStringView()) });
			}
			else if (desc.m_eType == MODELDOC_ATTR_BLEND_KEYS)
			{
				const KeyValues3 *pChildName = member(pElement, "child_name", true, "a string");
				const KeyValues3 *pValue = member(pElement, "value", false, "a number");
				if (pChildName && pValue)
				{
					ModelDocBlendKey_t key;
					key.m_ChildName = pChildName->GetStringView();
					m_Ctx.ReadValue(pValue, key.m_flValue);
					std::get<MODELDOC_ATTR_BLEND_KEYS>(field).push_back(key);
				}
			}
			else
			{
				const KeyValues3 *pBone = member(pElement, "bone", true, "a string");
				const KeyValues3 *pWeight = member(pElement, "weight", false, "a number from 0 to 1");
				if (pBone && pWeight)
				{
					ModelDocWeight_t weight;
					weight.m_Bone = pBone->GetStringView();
					m_Ctx.ReadValue(pWeight, weight.m_flWeight);
					if (!(weight.m_flWeight >= 0.0f && weight.m_flWeight <= 1.0f))
						Report(ERROR_SEVERITY_ERROR, pElement, "weight", "The weight of bone '%s' in %s must be from 0 to 1", weight.m_Bone.c_str(),
							NodeText(node).c_str());
					else
						std::get<MODELDOC_ATTR_WEIGHTS>(field).push_back(weight);
				}
			}
		}
		break;
	}
	case MODELDOC_ATTR_KV3:
	default:
		m_Ctx.ReadValue(value, std::get<MODELDOC_ATTR_KV3>(field));
		break;
	}
}

void CModelDocNode::Load(CKV3TransferLoadContext &ctx)
{
	CModelDocLoader *pLoader = static_cast<CModelDocLoader *>(ctx.GetObjectBinding(MODELDOC_LOADER_BINDING));
	if (!pLoader)
	{
		ctx.ReportError("A model document node can only be loaded with its document");
		return;
	}
	pLoader->LoadNode(*this);
}

bool CModelDoc::LoadFromText(std::string_view text, const char *pszSourceName, CUtlString *pError)
{
	Clear();
	const char *source = pszSourceName ? pszSourceName : "<text>";
	CKeyValues3Context context;
	CUtlString error;
	if (!LoadKV3(context.Root(), &error, text, KV3_FORMAT_MODELDOC32, source))
	{
		if (pError)
			*pError = error;
		return false;
	}

	CKV3LineLocator locator;
	locator.Build(text, context.Root());
	CKV3TransferLoadContext ctx;
	ctx.SetSourceName(source);
	CModelDocLoader loader(*this, ctx, locator, source);
	ctx.SetObjectBinding(MODELDOC_LOADER_BINDING, &loader);
	loader.LoadDocument(context.Root());

	if (!ctx.IsOk())
	{
		if (pError)
			*pError = ctx.GetText();
		Clear();
		return false;
	}
	if (!ctx.GetText().empty())
		Log_Warning(LOG_MODELDOC, "%s\n", ctx.GetText().c_str());
	if (pError)
		pError->clear();
	return true;
}

bool CModelDoc::LoadFromFile(const char *pszPath, const char *pszPathID, CUtlString *pError)
{
	CUtlBuffer buffer;
	CUtlString error;
	if (!pszPath || !CoreFileSystem()->ReadFile(pszPath, pszPathID, buffer, &error))
	{
		Clear();
		if (pError)
			*pError = pszPath ? error : CUtlString("No model document path given");
		return false;
	}
	return LoadFromText(buffer.View(), pszPath, pError);
}
