// The value types of the data model: element ids, attribute types and the C++ type of each.
//
// An attribute holds one value of one of fourteen scalar types, or an array of one of them. The
// C++ types are:
//
//   element     CDmElement *          (a reference into the same document; may be null)
//   int         int32
//   float       float
//   bool        bool
//   string      CUtlString            (UTF-8 text)
//   binary      CUtlBinaryBlock       (bytes)
//   time        DmeTime_t             (ten-thousandths of a second)
//   color       Color                 (four bytes r g b a)
//   vector2     Vector2D
//   vector3     Vector
//   vector4     Vector4D
//   qangle      QAngle                (pitch yaw roll, degrees)
//   quaternion  Quaternion            (x y z w)
//   matrix      VMatrix               (4x4, row by row)
//
// and "<type>_array" holds a std::vector of the scalar's C++ type.
#pragma once

#include <string_view>
#include <vector>

#include "core/mathtypes.h"
#include "core/platform.h"
#include "core/utlstring.h"

class CDmElement;

typedef std::vector<uint8> CUtlBinaryBlock;

// A point or span of time in ten-thousandths of a second. Text forms write it as seconds.
struct DmeTime_t
{
	int32 m_tms = 0;

	constexpr DmeTime_t() = default;
	constexpr explicit DmeTime_t(int32 tms) : m_tms(tms) {}
	static DmeTime_t FromSeconds(double seconds);
	double Seconds() const { return m_tms / 10000.0; }
	bool operator==(const DmeTime_t &other) const = default;
	auto operator<=>(const DmeTime_t &other) const = default;
};

// The 16-byte identity of an element. Text forms write it as
// "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx", the bytes in their stored order.
struct DmElementId_t
{
	uint8 m_Bytes[16] = {};

	// A fresh random identifier (version 4).
	static DmElementId_t Generate();
	bool IsNull() const;
	CUtlString Text() const;
	// Reads the text form (braces around it are allowed); false when malformed.
	static bool Parse(std::string_view text, DmElementId_t &out);
	bool operator==(const DmElementId_t &other) const = default;
};

struct DmElementIdHash_t
{
	size_t operator()(const DmElementId_t &id) const;
};

enum DmAttributeType_t : uint8
{
	AT_UNKNOWN = 0,

	AT_ELEMENT,
	AT_INT,
	AT_FLOAT,
	AT_BOOL,
	AT_STRING,
	AT_BINARY,
	AT_TIME,
	AT_COLOR,
	AT_VECTOR2,
	AT_VECTOR3,
	AT_VECTOR4,
	AT_QANGLE,
	AT_QUATERNION,
	AT_MATRIX,

	AT_ELEMENT_ARRAY,
	AT_INT_ARRAY,
	AT_FLOAT_ARRAY,
	AT_BOOL_ARRAY,
	AT_STRING_ARRAY,
	AT_BINARY_ARRAY,
	AT_TIME_ARRAY,
	AT_COLOR_ARRAY,
	AT_VECTOR2_ARRAY,
	AT_VECTOR3_ARRAY,
	AT_VECTOR4_ARRAY,
	AT_QANGLE_ARRAY,
	AT_QUATERNION_ARRAY,
	AT_MATRIX_ARRAY,

	AT_TYPE_COUNT,
	AT_FIRST_VALUE_TYPE = AT_ELEMENT,
	AT_FIRST_ARRAY_TYPE = AT_ELEMENT_ARRAY,
};

constexpr bool DmIsValidType(int type)
{
	return type > AT_UNKNOWN && type < AT_TYPE_COUNT;
}
constexpr bool DmIsArrayType(DmAttributeType_t type)
{
	return type >= AT_FIRST_ARRAY_TYPE && type < AT_TYPE_COUNT;
}
// The array type of a scalar type and the scalar type of an array type; other input gives
// AT_UNKNOWN.
constexpr DmAttributeType_t DmArrayType(DmAttributeType_t type)
{
	return (type >= AT_FIRST_VALUE_TYPE && type < AT_FIRST_ARRAY_TYPE) ? DmAttributeType_t(type + (AT_FIRST_ARRAY_TYPE - AT_FIRST_VALUE_TYPE)) : AT_UNKNOWN;
}
constexpr DmAttributeType_t DmScalarType(DmAttributeType_t type)
{
	return DmIsArrayType(type) ? DmAttributeType_t(type - (AT_FIRST_ARRAY_TYPE - AT_FIRST_VALUE_TYPE)) : (DmIsValidType(type) ? type : AT_UNKNOWN);
}

// The type's name in the text encodings: "element", "int", ... "matrix", "element_array", ...
// "matrix_array"; "unknown" for anything else.
const char *DmAttributeTypeName(DmAttributeType_t type);
// The type of a name (exact, lower case); AT_UNKNOWN when it names none.
DmAttributeType_t DmAttributeTypeFromName(std::string_view name);

// The attribute type of a C++ scalar type: DmAttributeTypeOf<float>::value == AT_FLOAT.
template <class T> struct DmAttributeTypeOf
{
	static constexpr DmAttributeType_t value = AT_UNKNOWN;
};
#define DM_DECLARE_ATTRIBUTE_TYPE(cppType, attributeType)                                      \
	template <> struct DmAttributeTypeOf<cppType>                                              \
	{                                                                                          \
		static constexpr DmAttributeType_t value = attributeType;                              \
	}
DM_DECLARE_ATTRIBUTE_TYPE(CDmElement *, AT_ELEMENT);
DM_DECLARE_ATTRIBUTE_TYPE(int32, AT_INT);
DM_DECLARE_ATTRIBUTE_TYPE(float, AT_FLOAT);
DM_DECLARE_ATTRIBUTE_TYPE(bool, AT_BOOL);
DM_DECLARE_ATTRIBUTE_TYPE(CUtlString, AT_STRING);
DM_DECLARE_ATTRIBUTE_TYPE(CUtlBinaryBlock, AT_BINARY);
DM_DECLARE_ATTRIBUTE_TYPE(DmeTime_t, AT_TIME);
DM_DECLARE_ATTRIBUTE_TYPE(Color, AT_COLOR);
DM_DECLARE_ATTRIBUTE_TYPE(Vector2D, AT_VECTOR2);
DM_DECLARE_ATTRIBUTE_TYPE(Vector, AT_VECTOR3);
DM_DECLARE_ATTRIBUTE_TYPE(Vector4D, AT_VECTOR4);
DM_DECLARE_ATTRIBUTE_TYPE(QAngle, AT_QANGLE);
DM_DECLARE_ATTRIBUTE_TYPE(Quaternion, AT_QUATERNION);
DM_DECLARE_ATTRIBUTE_TYPE(VMatrix, AT_MATRIX);
#undef DM_DECLARE_ATTRIBUTE_TYPE

template <class T> concept DmScalarValue = DmAttributeTypeOf<T>::value != AT_UNKNOWN;
