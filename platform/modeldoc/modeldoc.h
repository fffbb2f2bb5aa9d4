// The model document: the tree of nodes that describes a model to the resource compiler (its
// meshes, levels of detail, body groups, materials, animations, attachments, hitboxes and
// particle snapshots), and its KV3 text form "modeldoc32".
//
// A document has one root node of class "RootNode". Every other node belongs to a class from a
// fixed table (modeldocclasses.cpp, described in README.md): the class says which attributes
// the node has, with their types and defaults, whether the node is named, under which parents
// it may stand, and which list node collects it when it is created without a parent.
//
// Names. A named node's name is unique, without regard to case, within its class's namespace:
//   "mesh"          RenderMeshFile
//   "lodgroup"      LODGroup (a name is generated when none is given: "LOD_0", "LOD_1", ...)
//   "bodygroup"     BodyGroup
//   "materialgroup" MaterialGroup
//   "sequence"      AnimBindPose, AnimFile, 1DBlend (animations, sequences and poses)
//   "weightlist"    WeightList
//   "poseparam"     PoseParam
//   "attachment"    Attachment
//   "hitboxset"     HitboxSet, HitboxSet_Auto
//   "hitbox"        Hitbox, unique among the hitboxes of one set only
// A valid name has 1 to 255 characters from A-Z, a-z, 0-9, '_', '-', '.' and blanks, and
// neither starts nor ends with a blank. A node whose name is invalid or taken is refused, and
// the refusal logs "Cannot add node with duplicate name: %s (Namespace '%s')".
//
// The document reports failures through return values and error texts; it never throws.
#pragma once

#include <memory>
#include <string_view>
#include <unordered_map>
#include <variant>
#include <vector>

#include "core/keyvalues3.h"
#include "core/kv3text.h"
#include "core/logging.h"
#include "core/mathtypes.h"
#include "core/utlbuffer.h"
#include "core/utlstring.h"
#include "core/utlvector.h"

class CKV3TransferLoadContext;
class CKV3TransferSaveContext;
class CModelDoc;

DECLARE_LOGGING_CHANNEL(LOG_MODELDOC);

// ---------------------------------------------------------------------------------------------
// Attribute types and values

enum EModelDocAttributeType
{
	MODELDOC_ATTR_BOOL,
	MODELDOC_ATTR_INT,
	MODELDOC_ATTR_FLOAT,
	MODELDOC_ATTR_STRING,
	MODELDOC_ATTR_VECTOR3,		// [ x, y, z ]
	MODELDOC_ATTR_ANGLES,		// [ pitch, yaw, roll ] in degrees
	MODELDOC_ATTR_STRING_ARRAY, // [ "a", "b" ]
	MODELDOC_ATTR_REMAPS,		// [ { from = "a.zmat", to = "b.zmat" } ]
	MODELDOC_ATTR_BLEND_KEYS,	// [ { child_name = "walk", value = 0.5 } ]
	MODELDOC_ATTR_WEIGHTS,		// [ { bone = "spine", weight = 0.5 } ], weights within 0 to 1
	MODELDOC_ATTR_KV3,			// any KV3 value, kept whole
	MODELDOC_ATTR_TYPE_COUNT,
};

// "bool", "int", "float", "string", "vector3", "angles", "string array", "remaps", "blend keys",
// "weights", "kv3".
const char *ModelDocAttributeTypeName(EModelDocAttributeType type);

struct ModelDocRemap_t
{
	CUtlString m_From;
	CUtlString m_To;
	bool operator==(const ModelDocRemap_t &other) const = default;
};

struct ModelDocBlendKey_t
{
	CUtlString m_ChildName; // the name of the sequence that this key blends
	float m_flValue = 0.0f; // the pose parameter's value at which it is full
	bool operator==(const ModelDocBlendKey_t &other) const = default;
};

struct ModelDocWeight_t
{
	CUtlString m_Bone;
	float m_flWeight = 0.0f;
	bool operator==(const ModelDocWeight_t &other) const = default;
};

typedef std::variant<bool, int32, float, CUtlString, Vector, QAngle, CUtlVector<CUtlString>, CUtlVector<ModelDocRemap_t>,
	CUtlVector<ModelDocBlendKey_t>, CUtlVector<ModelDocWeight_t>, CKV3OwnedValue>
	ModelDocValue_t;

// ---------------------------------------------------------------------------------------------
// Node classes

enum EModelDocNaming
{
	MODELDOC_NAME_NONE,		 // the node has no "name" member
	MODELDOC_NAME_REQUIRED,	 // a valid name, unique in the namespace
	MODELDOC_NAME_GENERATED, // as REQUIRED; a missing name is generated
};

enum EModelDocNamespaceScope
{
	MODELDOC_SCOPE_DOCUMENT, // unique in the whole document
	MODELDOC_SCOPE_PARENT,	 // unique among the children of the same parent
};

struct ModelDocAttributeDesc_t
{
	const char *m_pszName;
	EModelDocAttributeType m_eType;
	// Defaults: m_bDefault, m_nDefault, m_flDefault, m_pszDefault, m_vDefault by type; arrays
	// and KV3 values start empty (a KV3 attribute starts as an empty table).
	bool m_bDefault;
	int32 m_nDefault;
	float m_flDefault;
	const char *m_pszDefault;
	float m_vDefault[3];
};

struct ModelDocClassDesc_t
{
	const char *m_pszName;
	EModelDocNaming m_eNaming;
	const char *m_pszNamespace; // null for unnamed classes
	EModelDocNamespaceScope m_eScope;
	const char *m_pszGeneratedPrefix; // for MODELDOC_NAME_GENERATED: "LOD_" gives "LOD_0", ...
	const char *m_pszListClass;		  // the list node under RootNode that collects it; null when none
	const char *const *m_ppszParents; // classes it may stand under, null-terminated
	const ModelDocAttributeDesc_t *m_pAttributes;
	int m_nAttributeCount;

	const ModelDocAttributeDesc_t *FindAttribute(std::string_view name) const;
	int FindAttributeIndex(std::string_view name) const;
	bool AllowsParent(const char *pszParentClass) const;
	bool IsNamed() const { return m_eNaming != MODELDOC_NAME_NONE; }
};

// The class of that name (exact case), or null.
const ModelDocClassDesc_t *ModelDocFindClass(std::string_view name);
// Every class, in the order of the table.
int ModelDocClassCount();
const ModelDocClassDesc_t *ModelDocClass(int index);
// True when the text may name a node (see the file comment).
bool ModelDocIsValidName(std::string_view name);
// The default value of an attribute.
ModelDocValue_t ModelDocDefaultValue(const ModelDocAttributeDesc_t &desc);

// ---------------------------------------------------------------------------------------------
// Nodes

class CModelDocNode
{
public:
	CModelDocNode(CModelDoc *pDoc, const ModelDocClassDesc_t *pClass);
	CModelDocNode(const CModelDocNode &) = delete;
	CModelDocNode &operator=(const CModelDocNode &) = delete;

	CModelDoc *GetDocument() const { return m_pDoc; }
	const ModelDocClassDesc_t &GetClass() const { return *m_pClass; }
	const char *GetClassName() const { return m_pClass->m_pszName; }
	bool IsClass(const char *pszClass) const;
	const CUtlString &GetName() const { return m_Name; }
	const CUtlString &GetNote() const { return m_Note; }
	void SetNote(std::string_view note) { m_Note = note; }

	CModelDocNode *GetParent() const { return m_pParent; }
	int GetChildCount() const { return (int)m_Children.size(); }
	CModelDocNode *GetChild(int index) const;
	// The first child of the class (and name, when given; names compare without case).
	CModelDocNode *FindChild(const char *pszClass, std::string_view name = {}) const;

	// Free-form attributes that tools keep on a node; always a table.
	const KeyValues3 *GetDynamicAttributes() const { return m_DynamicAttributes.Get(); }
	KeyValues3 *EditDynamicAttributes();

	// Typed attributes. A setter returns false, and logs why, when the class has no attribute
	// of that name or it has another type. A getter gives the value, or the type's zero when
	// the attribute is missing or of another type.
	bool HasAttribute(std::string_view name) const { return m_pClass->FindAttribute(name) != nullptr; }
	bool SetBool(std::string_view name, bool value);
	bool SetInt(std::string_view name, int32 value);
	bool SetFloat(std::string_view name, float value);
	bool SetString(std::string_view name, std::string_view value);
	bool SetVector(std::string_view name, const Vector &value);
	bool SetAngles(std::string_view name, const QAngle &value);
	bool SetStringArray(std::string_view name, const CUtlVector<CUtlString> &values);
	bool AddToStringArray(std::string_view name, std::string_view value);
	bool SetRemaps(std::string_view name, const CUtlVector<ModelDocRemap_t> &remaps);
	bool AddRemap(std::string_view name, std::string_view from, std::string_view to);
	bool SetBlendKeys(std::string_view name, const CUtlVector<ModelDocBlendKey_t> &keys);
	bool AddBlendKey(std::string_view name, std::string_view childName, float value);
	// Weights are clamped to 0 to 1. SetWeight replaces the weight of a bone already listed.
	bool SetWeights(std::string_view name, const CUtlVector<ModelDocWeight_t> &weights);
	bool SetWeight(std::string_view name, std::string_view bone, float weight);
	bool SetKV3(std::string_view name, const KeyValues3 *value);

	bool GetBool(std::string_view name) const;
	int32 GetInt(std::string_view name) const;
	float GetFloat(std::string_view name) const;
	const char *GetString(std::string_view name) const;
	Vector GetVector(std::string_view name) const;
	QAngle GetAngles(std::string_view name) const;
	const CUtlVector<CUtlString> &GetStringArray(std::string_view name) const;
	const CUtlVector<ModelDocRemap_t> &GetRemaps(std::string_view name) const;
	const CUtlVector<ModelDocBlendKey_t> &GetBlendKeys(std::string_view name) const;
	const CUtlVector<ModelDocWeight_t> &GetWeights(std::string_view name) const;
	const KeyValues3 *GetKV3(std::string_view name) const;

	// The value of attribute i of the class (in the order of the class's table).
	const ModelDocValue_t &GetAttributeValue(int index) const { return m_Values[index]; }

	// Deep comparison: class, name, note, dynamic attributes, every attribute and every child.
	bool Equals(const CModelDocNode &other) const;

	// The transfer of the node's members; the class comes from "_class" and is read by the
	// parent (or the document) before the node is made.
	void Save(CKV3TransferSaveContext &ctx) const;
	void Load(CKV3TransferLoadContext &ctx);

private:
	friend class CModelDoc;
	friend class CModelDocLoader;

	template <typename T> T *Edit(std::string_view name, EModelDocAttributeType type);
	template <typename T> const T *Find(std::string_view name, EModelDocAttributeType type) const;
	bool LoadAttribute(CKV3TransferLoadContext &ctx, int index, const KeyValues3 *value);

	CModelDoc *m_pDoc;
	const ModelDocClassDesc_t *m_pClass;
	CModelDocNode *m_pParent = nullptr;
	CUtlString m_Name;
	CUtlString m_Note;
	std::vector<std::unique_ptr<CModelDocNode>> m_Children;
	CKV3OwnedValue m_DynamicAttributes;
	std::vector<ModelDocValue_t> m_Values; // one per attribute of the class
};

// ---------------------------------------------------------------------------------------------
// The document

class CModelDoc
{
public:
	CModelDoc();
	CModelDoc(const CModelDoc &) = delete;
	CModelDoc &operator=(const CModelDoc &) = delete;

	CModelDocNode *GetRootNode() const { return m_pRoot.get(); }
	// Free-form data of the document ("extra_data"); always a table.
	const KeyValues3 *GetExtraData() const { return m_ExtraData.Get(); }
	KeyValues3 *EditExtraData();

	// Creates a node of the class. With no parent the node goes into its class's list node
	// under the root, which is created when missing. A named class takes `name` (or generates
	// one when the class does so and `name` is empty); an unnamed class ignores it. Refused,
	// with null returned and the reason logged (and in *pError): an unknown class, a parent
	// that the class may not stand under, a class that needs a parent, and a name that is
	// invalid or taken in its namespace.
	CModelDocNode *AddNode(const char *pszClass, std::string_view name = {}, CModelDocNode *pParent = nullptr,
		CUtlString *pError = nullptr);
	// The list node of that class under the root, created when missing (null for a class that
	// is no list node).
	CModelDocNode *GetOrCreateListNode(const char *pszListClass);
	CModelDocNode *FindListNode(const char *pszListClass) const;
	// The named node of the namespace with that name (without case), or null. For namespaces
	// scoped to a parent, pScope names the parent to look under.
	CModelDocNode *FindNode(const char *pszNamespace, std::string_view name, const CModelDocNode *pScope = nullptr) const;
	// The first node of the class in document order (null when none).
	CModelDocNode *FindFirstNode(const char *pszClass) const;
	// Every node of the class, in document order.
	void FindNodes(const char *pszClass, CUtlVector<CModelDocNode *> &out) const;
	// Renames a named node under the same rules as AddNode.
	bool RenameNode(CModelDocNode *pNode, std::string_view name, CUtlString *pError = nullptr);
	// Removes a node with its children (not the root).
	bool RemoveNode(CModelDocNode *pNode);
	// Empties the document to a bare root node.
	void Clear();

	// True when the name could be given to a node of the class under that parent: valid and
	// not taken (by another node than pIgnore).
	bool IsNameAvailable(const ModelDocClassDesc_t &nodeClass, std::string_view name, const CModelDocNode *pParent,
		const CModelDocNode *pIgnore = nullptr) const;

	// The document as KV3 text "modeldoc32" with its header line.
	bool SaveToBuffer(CUtlBuffer &out, CUtlString *pError = nullptr) const;
	// Writes the file atomically: a failure leaves the previous file as it was.
	bool SaveToFile(const char *pszPath, CUtlString *pError = nullptr) const;
	// Replaces the document with the one in the text. On failure the document is left empty
	// (a bare root) and pError holds every problem with the source name and line.
	bool LoadFromText(std::string_view text, const char *pszSourceName, CUtlString *pError = nullptr);
	// Reads the file through the core's file system (pathID as there: null takes the path as
	// it stands).
	bool LoadFromFile(const char *pszPath, const char *pszPathID = nullptr, CUtlString *pError = nullptr);

	bool Equals(const CModelDoc &other) const;

private:
	friend class CModelDocNode;
	friend class CModelDocLoader;
	CModelDocNode *AttachNode(std::unique_ptr<CModelDocNode> pNode, CModelDocNode *pParent);
	CUtlString GenerateName(const ModelDocClassDesc_t &nodeClass, const CModelDocNode *pParent) const;
	// The key of a name in the index: the namespace (with the parent for parent-scoped ones)
	// and the name folded to lower case.
	static CUtlString NameKey(const ModelDocClassDesc_t &nodeClass, std::string_view name, const CModelDocNode *pParent);
	void IndexName(CModelDocNode *pNode);
	void UnindexTree(CModelDocNode *pNode);

	std::unique_ptr<CModelDocNode> m_pRoot;
	CKV3OwnedValue m_ExtraData;
	// Every named node by its key, so that checks of names do not walk the tree.
	std::unordered_map<CUtlString, CModelDocNode *> m_NameIndex;
	// Where the search for a free generated name starts, per class and scope.
	mutable std::unordered_map<CUtlString, size_t> m_GeneratedNameHints;
};

// The format of model documents: "modeldoc32".
extern const KV3ID_t KV3_FORMAT_MODELDOC32;
