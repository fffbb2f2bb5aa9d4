// Elements, their attributes, and the document that owns them.
//
// A CDmxDocument owns every element of one file (or of one document being built); deleting or
// clearing it frees them all at once, whatever references they hold among themselves. An
// element has an id, a type name and attributes in the order they were added; the first is
// always "name", a string. Element attributes refer to elements of the same document, so a
// document can hold any graph: shared and cyclic references are fine.
//
// Typed access never fails hard: reading an attribute that is missing or of another type gives
// the type's default value (or an empty array), writing one of another type returns false and
// changes nothing.
//
//	CDmxDocument doc;
//	CDmElement *pRoot = doc.CreateElement("DmElement", "root");
//	doc.SetRoot(pRoot);
//	CDmElement *pData = doc.CreateElement("DmeVertexData", "bind");
//	pRoot->SetValue("data", pData);
//	pData->SetArray("position$0", std::vector<Vector>{ { 0, 0, 0 }, { 1, 0, 0 } });
//	pData->GetArrayForEdit<int32>("position$0Indices", true)->push_back(1);
//	float f = pData->GetValue<float>("missing"); // 0
#pragma once

#include <memory>
#include <string_view>
#include <unordered_map>
#include <variant>
#include <vector>

#include "datamodel/dmattributetypes.h"

class CDmxDocument;

class CDmAttribute
{
public:
	// The value types in the order of DmAttributeType_t; index 0 (monostate) is AT_UNKNOWN.
	typedef std::variant<std::monostate, CDmElement *, int32, float, bool, CUtlString, CUtlBinaryBlock, DmeTime_t, Color, Vector2D, Vector,
		Vector4D, QAngle, Quaternion, VMatrix, std::vector<CDmElement *>, std::vector<int32>, std::vector<float>, std::vector<bool>,
		std::vector<CUtlString>, std::vector<CUtlBinaryBlock>, std::vector<DmeTime_t>, std::vector<Color>, std::vector<Vector2D>,
		std::vector<Vector>, std::vector<Vector4D>, std::vector<QAngle>, std::vector<Quaternion>, std::vector<VMatrix>>
		Value_t;

	CDmAttribute(CDmElement *pOwner, std::string_view name, DmAttributeType_t type);

	const CUtlString &GetName() const { return m_Name; }
	DmAttributeType_t GetType() const { return (DmAttributeType_t)m_Value.index(); }
	const char *GetTypeName() const { return DmAttributeTypeName(GetType()); }
	bool IsArray() const { return DmIsArrayType(GetType()); }
	CDmElement *GetOwner() const { return m_pOwner; }

	// Scalars: a pointer to the value, or null when the attribute is of another type.
	template <DmScalarValue T> const T *GetPtr() const { return std::get_if<T>(&m_Value); }
	// The value, or T's default when the attribute is of another type.
	template <DmScalarValue T> const T &GetValue() const
	{
		const T *p = GetPtr<T>();
		return p ? *p : DefaultValue<T>();
	}
	// False (and no change) when the attribute is of another type, or when an element of another
	// document is given.
	template <DmScalarValue T> bool SetValue(const T &value)
	{
		T *p = std::get_if<T>(&m_Value);
		if (!p)
			return false;
		if constexpr (std::is_same_v<T, CDmElement *>)
		{
			if (!CanRefer(value))
				return false;
		}
		*p = value;
		return true;
	}

	// Arrays of T: the array, or null (GetArrayPtr) / an empty array (GetArray) when the
	// attribute is of another type.
	template <DmScalarValue T> const std::vector<T> *GetArrayPtr() const { return std::get_if<std::vector<T>>(&m_Value); }
	template <DmScalarValue T> const std::vector<T> &GetArray() const
	{
		const std::vector<T> *p = GetArrayPtr<T>();
		return p ? *p : DefaultValue<std::vector<T>>();
	}
	// Editable array. For element arrays, only elements of the owner's document may be stored;
	// the writers treat any other pointer as an error.
	template <DmScalarValue T> std::vector<T> *GetArrayForEdit() { return std::get_if<std::vector<T>>(&m_Value); }
	template <DmScalarValue T> bool SetArray(std::vector<T> values)
	{
		std::vector<T> *p = GetArrayForEdit<T>();
		if (!p)
			return false;
		if constexpr (std::is_same_v<T, CDmElement *>)
		{
			for (CDmElement *pElement : values)
				if (!CanRefer(pElement))
					return false;
		}
		*p = std::move(values);
		return true;
	}
	// Number of entries of an array attribute; 0 for scalars.
	size_t ArrayCount() const;

	// Whole value, for generic code (serialisers, copies).
	const Value_t &GetVariant() const { return m_Value; }
	// Replaces the value and with it the type. False (and no change) when it would change the type
	// of "name", or store an element of another document.
	bool SetVariant(Value_t value);

	// The default value of each type: what readers of a missing or mistyped attribute get.
	template <class T> static const T &DefaultValue()
	{
		static const T s_Default{};
		return s_Default;
	}

private:
	friend class CDmElement;
	bool CanRefer(const CDmElement *pElement) const;

	CDmElement *m_pOwner;
	CUtlString m_Name;
	Value_t m_Value;
};

class CDmElement
{
public:
	const DmElementId_t &GetId() const { return m_Id; }
	const CUtlString &GetTypeName() const { return m_TypeName; }
	void SetTypeName(std::string_view typeName) { m_TypeName = typeName; }
	const CUtlString &GetName() const;
	void SetName(std::string_view name);
	CDmxDocument *GetDocument() const { return m_pDocument; }

	// Attributes in order; index 0 is "name".
	int AttributeCount() const { return (int)m_Attributes.size(); }
	CDmAttribute *GetAttribute(int index) const;
	// By name, case-sensitive; null when absent.
	CDmAttribute *FindAttribute(std::string_view name) const;
	bool HasAttribute(std::string_view name) const { return FindAttribute(name) != nullptr; }
	// Adds an attribute with the type's default value at the end. An attribute of that name and
	// type already there is returned as it is; one of another type gives null.
	CDmAttribute *AddAttribute(std::string_view name, DmAttributeType_t type);
	// "name" cannot be removed. Removing frees the attribute: pointers to it end.
	bool RemoveAttribute(std::string_view name);
	// Keeps the position and value. False when `newName` is taken, or for "name".
	bool RenameAttribute(std::string_view oldName, std::string_view newName);

	// Typed access by name. Missing or mistyped attributes read as the type's default.
	template <DmScalarValue T> const T &GetValue(std::string_view name) const
	{
		const CDmAttribute *p = FindAttribute(name);
		return p ? p->GetValue<T>() : CDmAttribute::DefaultValue<T>();
	}
	template <DmScalarValue T> T GetValue(std::string_view name, const T &defaultValue) const
	{
		const CDmAttribute *p = FindAttribute(name);
		const T *pValue = p ? p->GetPtr<T>() : nullptr;
		return pValue ? *pValue : defaultValue;
	}
	int32 GetInt(std::string_view name, int32 defaultValue = 0) const { return GetValue<int32>(name, defaultValue); }
	float GetFloat(std::string_view name, float defaultValue = 0.0f) const { return GetValue<float>(name, defaultValue); }
	bool GetBool(std::string_view name, bool defaultValue = false) const { return GetValue<bool>(name, defaultValue); }
	const char *GetString(std::string_view name) const { return GetValue<CUtlString>(name).c_str(); }
	CDmElement *GetElement(std::string_view name) const { return GetValue<CDmElement *>(name); }

	// Sets a value, adding the attribute when missing. False (and no change) when an attribute
	// of that name has another type, or for an element of another document.
	template <DmScalarValue T> bool SetValue(std::string_view name, const T &value)
	{
		CDmAttribute *p = AddAttribute(name, DmAttributeTypeOf<T>::value);
		return p && p->SetValue(value);
	}
	bool SetValue(std::string_view name, const char *value) { return SetValue(name, CUtlString(value ? value : "")); }
	bool SetValue(std::string_view name, std::string_view value) { return SetValue(name, CUtlString(value)); }
	bool SetValue(std::string_view name, std::nullptr_t) { return SetValue(name, (CDmElement *)nullptr); }

	template <DmScalarValue T> const std::vector<T> &GetArray(std::string_view name) const
	{
		const CDmAttribute *p = FindAttribute(name);
		return p ? p->GetArray<T>() : CDmAttribute::DefaultValue<std::vector<T>>();
	}
	// The array for editing; with bCreate a missing attribute is added empty. Null when missing
	// (without bCreate) or of another type.
	template <DmScalarValue T> std::vector<T> *GetArrayForEdit(std::string_view name, bool bCreate = false)
	{
		CDmAttribute *p = bCreate ? AddAttribute(name, DmArrayType(DmAttributeTypeOf<T>::value)) : FindAttribute(name);
		return p ? p->GetArrayForEdit<T>() : nullptr;
	}
	template <DmScalarValue T> bool SetArray(std::string_view name, std::vector<T> values)
	{
		CDmAttribute *p = AddAttribute(name, DmArrayType(DmAttributeTypeOf<T>::value));
		return p && p->SetArray(std::move(values));
	}

private:
	friend class CDmxDocument;
	friend class CDmxElementBuilder; // the readers, which append without looking names up
	CDmElement(CDmxDocument *pDocument, std::string_view typeName, const DmElementId_t &id);
	// Adds an attribute at the end without looking for one of that name.
	CDmAttribute *AppendAttribute(std::string_view name, DmAttributeType_t type);

	CDmxDocument *m_pDocument;
	DmElementId_t m_Id;
	CUtlString m_TypeName;
	std::vector<std::unique_ptr<CDmAttribute>> m_Attributes;
};

// Owner of the elements of one file. Not copyable; elements live until the document is cleared
// or deleted.
class CDmxDocument
{
public:
	CDmxDocument();
	~CDmxDocument();
	CDmxDocument(const CDmxDocument &) = delete;
	CDmxDocument &operator=(const CDmxDocument &) = delete;

	// A new element with a fresh id, or with the given one; null when that id is already used.
	CDmElement *CreateElement(std::string_view typeName, std::string_view name = {}, const DmElementId_t *pId = nullptr);
	CDmElement *FindElement(const DmElementId_t &id) const;
	// Gives an element another id; false when the id is taken by another element.
	bool SetElementId(CDmElement *pElement, const DmElementId_t &id);

	int ElementCount() const { return (int)m_Elements.size(); }
	CDmElement *GetElement(int index) const;

	CDmElement *GetRoot() const { return m_pRoot; }
	// False for an element of another document.
	bool SetRoot(CDmElement *pRoot);

	// What the file said of itself when it was loaded (after format updates), or what was set.
	const CUtlString &GetFormatName() const { return m_FormatName; }
	int GetFormatVersion() const { return m_nFormatVersion; }
	void SetFormat(std::string_view formatName, int version);
	const CUtlString &GetEncodingName() const { return m_EncodingName; }
	int GetEncodingVersion() const { return m_nEncodingVersion; }
	void SetEncoding(std::string_view encodingName, int version);
	// The file the document was loaded from or last saved to; empty for one built in memory.
	const CUtlString &GetFileName() const { return m_FileName; }
	void SetFileName(std::string_view fileName) { m_FileName = fileName; }

	// Frees every element; format, encoding and file name are reset.
	void Clear();

	// The elements reachable from `pStart` through element attributes, each once, `pStart` first,
	// in depth-first order of first reference (the order the writers use).
	static std::vector<CDmElement *> CollectReachable(CDmElement *pStart);

private:
	std::vector<std::unique_ptr<CDmElement>> m_Elements;
	std::unordered_map<DmElementId_t, CDmElement *, DmElementIdHash_t> m_ElementsById;
	CDmElement *m_pRoot = nullptr;
	CUtlString m_FormatName;
	int m_nFormatVersion = 0;
	CUtlString m_EncodingName;
	int m_nEncodingVersion = 0;
	CUtlString m_FileName;
};
