#include "datamodel/dmelement.h"

#include <cmath>
#include <cstring>
#include <mutex>
#include <random>

#include "core/hashes.h"
#include "core/strtools.h"

// ---------------------------------------------------------------------------------------------
// Value types

DmeTime_t DmeTime_t::FromSeconds(double seconds)
{
	const double tms = std::round(seconds * 10000.0);
	if (!(tms >= -2147483648.0))
		return DmeTime_t(INT32_MIN);
	if (tms > 2147483647.0)
		return DmeTime_t(INT32_MAX);
	return DmeTime_t((int32)tms);
}

DmElementId_t DmElementId_t::Generate()
{
	static std::mutex s_Mutex;
	static std::mt19937_64 s_Random = []
	{
		std::random_device device;
		std::seed_seq seed { device(), device(), device(), device(), device(), device(), device(), device() };
		return std::mt19937_64(seed);
	}();

	DmElementId_t id;
	{
		std::lock_guard<std::mutex> lock(s_Mutex);
		const uint64 a = s_Random();
		const uint64 b = s_Random();
		memcpy(id.m_Bytes, &a, 8);
		memcpy(id.m_Bytes + 8, &b, 8);
	}
	id.m_Bytes[6] = (uint8)((id.m_Bytes[6] & 0x0F) | 0x40); // version 4
	id.m_Bytes[8] = (uint8)((id.m_Bytes[8] & 0x3F) | 0x80); // variant 1
	return id;
}

bool DmElementId_t::IsNull() const
{
	for (uint8 b : m_Bytes)
		if (b)
			return false;
	return true;
}

CUtlString DmElementId_t::Text() const
{
	static const char s_Hex[] = "0123456789abcdef";
	char text[37];
	char *p = text;
	for (int i = 0; i < 16; ++i)
	{
		if (i == 4 || i == 6 || i == 8 || i == 10)
			*p++ = '-';
		*p++ = s_Hex[m_Bytes[i] >> 4];
		*p++ = s_Hex[m_Bytes[i] & 15];
	}
	return CUtlString(text, 36);
}

bool DmElementId_t::Parse(std::string_view text, DmElementId_t &out)
{
	if (text.size() == 38 && text.front() == '{' && text.back() == '}')
		text = text.substr(1, 36);
	if (text.size() != 36)
		return false;
	DmElementId_t id;
	size_t position = 0;
	for (int i = 0; i < 16; ++i)
	{
		if (i == 4 || i == 6 || i == 8 || i == 10)
		{
			if (text[position] != '-')
				return false;
			++position;
		}
		int value = 0;
		for (int k = 0; k < 2; ++k)
		{
			const int digit = V_HexDigitValue(text[position++]);
			if (digit < 0)
				return false;
			value = value * 16 + digit;
		}
		id.m_Bytes[i] = (uint8)value;
	}
	out = id;
	return true;
}

size_t DmElementIdHash_t::operator()(const DmElementId_t &id) const
{
	uint64 a, b;
	memcpy(&a, id.m_Bytes, 8);
	memcpy(&b, id.m_Bytes + 8, 8);
	return (size_t)(a ^ (b * 0x9E3779B97F4A7C15ull));
}

namespace
{
const char *const s_TypeNames[AT_TYPE_COUNT] = {
	"unknown",
	"element",
	"int",
	"float",
	"bool",
	"string",
	"binary",
	"time",
	"color",
	"vector2",
	"vector3",
	"vector4",
	"qangle",
	"quaternion",
	"matrix",
	"element_array",
	"int_array",
	"float_array",
	"bool_array",
	"string_array",
	"binary_array",
	"time_array",
	"color_array",
	"vector2_array",
	"vector3_array",
	"vector4_array",
	"qangle_array",
	"quaternion_array",
	"matrix_array",
};
} // namespace

const char *DmAttributeTypeName(DmAttributeType_t type)
{
	return DmIsValidType(type) ? s_TypeNames[type] : s_TypeNames[AT_UNKNOWN];
}

DmAttributeType_t DmAttributeTypeFromName(std::string_view name)
{
	for (int type = AT_FIRST_VALUE_TYPE; type < AT_TYPE_COUNT; ++type)
		if (name == s_TypeNames[type])
			return (DmAttributeType_t)type;
	return AT_UNKNOWN;
}

// ---------------------------------------------------------------------------------------------
// CDmAttribute

namespace
{
// A value of the given type, default-constructed.
template <size_t I = 0> CDmAttribute::Value_t MakeDefaultValue(size_t index)
{
	if constexpr (I < std::variant_size_v<CDmAttribute::Value_t>)
	{
		if (index == I)
			return CDmAttribute::Value_t(std::in_place_index<I>);
		return MakeDefaultValue<I + 1>(index);
	}
	else
		return CDmAttribute::Value_t();
}

static_assert(std::variant_size_v<CDmAttribute::Value_t> == AT_TYPE_COUNT);
static_assert(std::is_same_v<std::variant_alternative_t<AT_MATRIX, CDmAttribute::Value_t>, VMatrix>);
static_assert(std::is_same_v<std::variant_alternative_t<AT_ELEMENT_ARRAY, CDmAttribute::Value_t>, std::vector<CDmElement *>>);
static_assert(std::is_same_v<std::variant_alternative_t<AT_MATRIX_ARRAY, CDmAttribute::Value_t>, std::vector<VMatrix>>);

const char s_NameAttribute[] = "name";
} // namespace

CDmAttribute::CDmAttribute(CDmElement *pOwner, std::string_view name, DmAttributeType_t type)
	: m_pOwner(pOwner), m_Name(name), m_Value(MakeDefaultValue(DmIsValidType(type) ? type : AT_UNKNOWN))
{
}

size_t CDmAttribute::ArrayCount() const
{
	return std::visit(
		[](const auto &value) -> size_t
		{
			using T = std::decay_t<decltype(value)>;
			if constexpr (requires { value.size(); } && !std::is_same_v<T, CUtlString> && !std::is_same_v<T, CUtlBinaryBlock>)
				return value.size();
			else
				return 0;
		},
		m_Value);
}

bool CDmAttribute::CanRefer(const CDmElement *pElement) const
{
	return !pElement || (m_pOwner && pElement->GetDocument() == m_pOwner->GetDocument());
}

bool CDmAttribute::SetVariant(Value_t value)
{
	if (value.index() == AT_UNKNOWN)
		return false;
	if (m_Name == s_NameAttribute && value.index() != AT_STRING)
		return false;
	if (const auto *pElement = std::get_if<CDmElement *>(&value))
	{
		if (!CanRefer(*pElement))
			return false;
	}
	else if (const auto *pArray = std::get_if<std::vector<CDmElement *>>(&value))
	{
		for (const CDmElement *pElement : *pArray)
			if (!CanRefer(pElement))
				return false;
	}
	m_Value = std::move(value);
	return true;
}

// ---------------------------------------------------------------------------------------------
// CDmElement

CDmElement::CDmElement(CDmxDocument *pDocument, std::string_view typeName, const DmElementId_t &id)
	: m_pDocument(pDocument), m_Id(id), m_TypeName(typeName)
{
	m_Attributes.push_back(std::make_unique<CDmAttribute>(this, s_NameAttribute, AT_STRING));
}

const CUtlString &CDmElement::GetName() const
{
	return m_Attributes[0]->GetValue<CUtlString>();
}

void CDmElement::SetName(std::string_view name)
{
	m_Attributes[0]->SetValue(CUtlString(name));
}

CDmAttribute *CDmElement::GetAttribute(int index) const
{
	if (index < 0 || index >= (int)m_Attributes.size())
		return nullptr;
	return m_Attributes[index].get();
}

CDmAttribute *CDmElement::FindAttribute(std::string_view name) const
{
	for (const auto &pAttribute : m_Attributes)
		if (pAttribute->m_Name == name)
			return pAttribute.get();
	return nullptr;
}

CDmAttribute *CDmElement::AddAttribute(std::string_view name, DmAttributeType_t type)
{
	if (!DmIsValidType(type))
		return nullptr;
	if (CDmAttribute *pExisting = FindAttribute(name))
		return pExisting->GetType() == type ? pExisting : nullptr;
	m_Attributes.push_back(std::make_unique<CDmAttribute>(this, name, type));
	return m_Attributes.back().get();
}

CDmAttribute *CDmElement::AppendAttribute(std::string_view name, DmAttributeType_t type)
{
	m_Attributes.push_back(std::make_unique<CDmAttribute>(this, name, type));
	return m_Attributes.back().get();
}

bool CDmElement::RemoveAttribute(std::string_view name)
{
	if (name == s_NameAttribute)
		return false;
	for (size_t i = 1; i < m_Attributes.size(); ++i)
	{
		if (m_Attributes[i]->m_Name == name)
		{
			m_Attributes.erase(m_Attributes.begin() + (ptrdiff_t)i);
			return true;
		}
	}
	return false;
}

bool CDmElement::RenameAttribute(std::string_view oldName, std::string_view newName)
{
	if (oldName == s_NameAttribute || newName == s_NameAttribute)
		return false;
	CDmAttribute *pAttribute = FindAttribute(oldName);
	if (!pAttribute)
		return false;
	if (oldName == newName)
		return true;
	if (FindAttribute(newName))
		return false;
	pAttribute->m_Name = newName;
	return true;
}

// ---------------------------------------------------------------------------------------------
// CDmxDocument

CDmxDocument::CDmxDocument() = default;

CDmxDocument::~CDmxDocument() = default;

CDmElement *CDmxDocument::CreateElement(std::string_view typeName, std::string_view name, const DmElementId_t *pId)
{
	DmElementId_t id;
	if (pId)
	{
		id = *pId;
		if (m_ElementsById.count(id))
			return nullptr;
	}
	else
	{
		do
			id = DmElementId_t::Generate();
		while (m_ElementsById.count(id));
	}
	m_Elements.push_back(std::unique_ptr<CDmElement>(new CDmElement(this, typeName, id)));
	CDmElement *pElement = m_Elements.back().get();
	m_ElementsById.emplace(id, pElement);
	if (!name.empty())
		pElement->SetName(name);
	return pElement;
}

CDmElement *CDmxDocument::FindElement(const DmElementId_t &id) const
{
	const auto found = m_ElementsById.find(id);
	return found == m_ElementsById.end() ? nullptr : found->second;
}

bool CDmxDocument::SetElementId(CDmElement *pElement, const DmElementId_t &id)
{
	if (!pElement || pElement->m_pDocument != this)
		return false;
	if (pElement->m_Id == id)
		return true;
	if (m_ElementsById.count(id))
		return false;
	m_ElementsById.erase(pElement->m_Id);
	pElement->m_Id = id;
	m_ElementsById.emplace(id, pElement);
	return true;
}

CDmElement *CDmxDocument::GetElement(int index) const
{
	if (index < 0 || index >= (int)m_Elements.size())
		return nullptr;
	return m_Elements[index].get();
}

bool CDmxDocument::SetRoot(CDmElement *pRoot)
{
	if (pRoot && pRoot->m_pDocument != this)
		return false;
	m_pRoot = pRoot;
	return true;
}

void CDmxDocument::SetFormat(std::string_view formatName, int version)
{
	m_FormatName = formatName;
	m_nFormatVersion = version;
}

void CDmxDocument::SetEncoding(std::string_view encodingName, int version)
{
	m_EncodingName = encodingName;
	m_nEncodingVersion = version;
}

void CDmxDocument::Clear()
{
	m_pRoot = nullptr;
	m_ElementsById.clear();
	m_Elements.clear();
	m_FormatName.clear();
	m_nFormatVersion = 0;
	m_EncodingName.clear();
	m_nEncodingVersion = 0;
	m_FileName.clear();
}

std::vector<CDmElement *> CDmxDocument::CollectReachable(CDmElement *pStart)
{
	std::vector<CDmElement *> order;
	if (!pStart)
		return order;
	// Iterative depth-first walk: each stack entry is an element and the next attribute (and
	// array entry) to look at, so that the order is that of a recursive walk without its depth.
	struct Frame_t
	{
		CDmElement *pElement;
		int nAttribute;
		size_t nEntry;
	};
	std::unordered_map<const CDmElement *, bool> seen;
	std::vector<Frame_t> stack;
	seen.emplace(pStart, true);
	order.push_back(pStart);
	stack.push_back({ pStart, 0, 0 });
	while (!stack.empty())
	{
		Frame_t &frame = stack.back();
		CDmAttribute *pAttribute = frame.pElement->GetAttribute(frame.nAttribute);
		if (!pAttribute)
		{
			stack.pop_back();
			continue;
		}
		CDmElement *pNext = nullptr;
		if (pAttribute->GetType() == AT_ELEMENT)
		{
			pNext = pAttribute->GetValue<CDmElement *>();
			++frame.nAttribute;
		}
		else if (pAttribute->GetType() == AT_ELEMENT_ARRAY)
		{
			const std::vector<CDmElement *> &array = pAttribute->GetArray<CDmElement *>();
			if (frame.nEntry < array.size())
				pNext = array[frame.nEntry++];
			else
			{
				++frame.nAttribute;
				frame.nEntry = 0;
			}
		}
		else
			++frame.nAttribute;
		if (pNext && seen.emplace(pNext, true).second)
		{
			order.push_back(pNext);
			stack.push_back({ pNext, 0, 0 });
		}
	}
	return order;
}
