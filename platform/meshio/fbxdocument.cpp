#include "meshio/fbxdocument.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <type_traits>
#include <zlib.h>

#include "core/fileio.h"
#include "core/strtools.h"
#include "meshio/fbxparsers.h"

bool CFbxDocument::LoadFile(const char *path, CUtlString &error)
{
	CUtlBuffer bytes;
	if (!Plat_ReadFile(path, bytes, &error))
		return false;
	return Parse(path, bytes.View(), error);
}

bool CFbxDocument::LooksLikeFbx(std::string_view bytes)
{
	if (LooksLikeBinaryFbx(bytes))
		return true;
	// ASCII files start with "; FBX" comments or with the header node.
	size_t i = 0;
	if (bytes.size() >= 3 && memcmp(bytes.data(), "\xEF\xBB\xBF", 3) == 0)
		i = 3;
	while (i < bytes.size() && (bytes[i] == ' ' || bytes[i] == '\t' || bytes[i] == '\r' || bytes[i] == '\n'))
		++i;
	const std::string_view rest = bytes.substr(i);
	return rest.starts_with("; FBX") || rest.starts_with("FBXHeaderExtension:");
}

bool CFbxDocument::Parse(const char *fileName, std::string_view bytes, CUtlString &error)
{
	m_FileName = fileName ? fileName : "";
	m_Nodes.clear();
	m_Properties.clear();
	m_nFirstTopLevel = -1;
	m_nVersion = 0;
	m_Bytes.assign(bytes.begin(), bytes.end());
	m_bBinary = LooksLikeBinaryFbx(bytes);
	bool bOk;
	if (m_bBinary)
	{
		CFbxBinaryParser parser(*this, error);
		bOk = parser.Parse();
	}
	else
	{
		CFbxAsciiParser parser(*this, error);
		bOk = parser.Parse();
	}
	if (!bOk)
	{
		m_Nodes.clear();
		m_Properties.clear();
		m_nFirstTopLevel = -1;
	}
	return bOk;
}

CUtlString CFbxDocument::Where(uint64 offset) const
{
	if (m_bBinary)
		return V_Format("%s: offset %llu", m_FileName.c_str(), (unsigned long long)offset);
	int line = 1, column = 1;
	if (offset <= m_Bytes.size())
		V_TextPosition(m_Bytes.data(), m_Bytes.data() + offset, line, column);
	return V_Format("%s: line %d", m_FileName.c_str(), line);
}

const FbxNode_t *CFbxDocument::FindChild(const FbxNode_t *parent, std::string_view name) const
{
	const FbxNode_t *child = parent ? FirstChild(parent) : FirstTopLevel();
	for (; child; child = NextSibling(child))
	{
		if (child->name == name)
			return child;
	}
	return nullptr;
}

const FbxNode_t *CFbxDocument::FindNextNamed(const FbxNode_t *after, std::string_view name) const
{
	for (const FbxNode_t *node = NextSibling(after); node; node = NextSibling(node))
	{
		if (node->name == name)
			return node;
	}
	return nullptr;
}

bool CFbxDocument::PropertyInt(const FbxProperty_t *property, int64 &out)
{
	if (!property || !property->IsNumber())
		return false;
	out = property->nInt;
	return true;
}

bool CFbxDocument::PropertyDouble(const FbxProperty_t *property, double &out)
{
	if (!property || !property->IsNumber())
		return false;
	out = property->flDouble;
	return true;
}

std::string_view CFbxDocument::PropertyString(const FbxProperty_t *property)
{
	if (!property || !property->IsString())
		return {};
	return property->data;
}

template <typename E> bool CFbxDocument::Inflate(const FbxProperty_t &property, std::vector<E> &out, CUtlString &error) const
{
	// The output grows with what the stream really gives, up to the declared size: a small
	// damaged array that claims a large size costs no more memory than it inflates to.
	const size_t rawSize = (size_t)property.nArrayCount * FbxArrayElementSize(property.cType);
	const size_t count = rawSize / sizeof(E);
	out.clear();
	z_stream stream;
	memset(&stream, 0, sizeof(stream));
	if (inflateInit(&stream) != Z_OK)
	{
		error = Where(property.nOffset) + ": cannot start zlib";
		return false;
	}
	stream.next_in = (Bytef *)property.data.data();
	stream.avail_in = (uInt)property.data.size();
	size_t produced = 0; // bytes
	CUtlString reason;
	for (;;)
	{
		if (produced == out.size() * sizeof(E))
		{
			if (out.size() == count)
			{
				// Full: the stream must end here without another byte.
				unsigned char extra;
				stream.next_out = &extra;
				stream.avail_out = 1;
				const int result = inflate(&stream, Z_FINISH);
				if (result == Z_STREAM_END && stream.avail_out == 1)
					break;
				reason = stream.avail_out == 0 ? V_Format("it inflates to more than the %zu bytes declared", rawSize)
											   : V_Format("the compressed data %s", result == Z_BUF_ERROR ? "ends early" : "is damaged");
				break;
			}
			// Real arrays deflate to a small part of their size; start with room for that.
			const size_t first = std::max<size_t>(64 * 1024, property.data.size() * 16) / sizeof(E);
			out.resize(std::min(count, out.empty() ? first : out.size() * 2));
		}
		const size_t room = out.size() * sizeof(E) - produced;
		stream.next_out = (Bytef *)out.data() + produced;
		stream.avail_out = (uInt)room;
		const int result = inflate(&stream, Z_NO_FLUSH);
		produced += room - stream.avail_out;
		if (result == Z_STREAM_END)
		{
			if (produced != rawSize)
				reason = V_Format("it inflates to %zu bytes, %zu were declared", produced, rawSize);
			break;
		}
		if (result == Z_BUF_ERROR && stream.avail_in == 0)
		{
			reason = V_Format("the compressed data ends early (%zu of %zu bytes)", produced, rawSize);
			break;
		}
		if (result != Z_OK && result != Z_BUF_ERROR)
		{
			reason = V_Format("zlib: %s", stream.msg ? stream.msg : "damaged data");
			break;
		}
	}
	inflateEnd(&stream);
	if (reason.empty())
		return true;
	error = Where(property.nOffset) + V_Format(": a compressed array of %u elements is damaged: ", property.nArrayCount) + reason;
	return false;
}

namespace
{
template <typename T> bool ConvertNumber(double value, T &out)
{
	if constexpr (std::is_same_v<T, double>)
	{
		out = value;
		return true;
	}
	else
	{
		if (!(value >= -2147483648.0 && value <= 2147483647.0) || value != std::floor(value))
			return false;
		out = (T)value;
		return true;
	}
}

template <typename T> bool ConvertInteger(int64 value, T &out)
{
	if constexpr (std::is_same_v<T, double>)
	{
		out = (double)value;
		return true;
	}
	else
	{
		if (value < INT32_MIN || value > INT32_MAX)
			return false;
		out = (T)value;
		return true;
	}
}

bool IsArraySpace(char c)
{
	return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v';
}
} // namespace

template <typename T> bool CFbxDocument::ReadArrayT(const FbxProperty_t &property, std::vector<T> &out, CUtlString &error) const
{
	out.clear();
	const char *what = std::is_same_v<T, double> ? "number" : "integer";
	if (property.cType == 'a')
	{
		const char *p = property.data.data();
		const char *end = p + property.data.size();
		// Each value takes at least one character and a separator.
		if ((uint64)property.nArrayCount > property.data.size() / 2 + 1)
		{
			error = Where(property.nOffset) + V_Format(": an array declares %u values, its text cannot hold that many", property.nArrayCount);
			return false;
		}
		out.resize(property.nArrayCount);
		size_t count = 0;
		for (;;)
		{
			while (p < end && IsArraySpace(*p))
				++p;
			if (p >= end)
				break;
			if (count == property.nArrayCount)
			{
				error = Where((uint64)(p - m_Bytes.data())) +
						V_Format(": an array holds more values than the %u it declares", property.nArrayCount);
				return false;
			}
			const char *start = p;
			const char *numberStart = (*p == '+') ? p + 1 : p;
			bool bOk = false;
			if constexpr (std::is_same_v<T, double>)
			{
				const auto result = std::from_chars(numberStart, end, out[count]);
				bOk = result.ec == std::errc() && numberStart < end;
				p = result.ptr;
			}
			else
			{
				int64 integer = 0;
				const auto result = std::from_chars(numberStart, end, integer);
				if (result.ec == std::errc() && (result.ptr == end || *result.ptr == ',' || IsArraySpace(*result.ptr)))
				{
					bOk = ConvertInteger(integer, out[count]);
					p = result.ptr;
				}
				else
				{
					double real = 0.0;
					const auto realResult = std::from_chars(numberStart, end, real);
					bOk = realResult.ec == std::errc() && ConvertNumber(real, out[count]);
					p = realResult.ptr;
				}
			}
			if (!bOk || (p < end && *p != ',' && !IsArraySpace(*p)))
			{
				const char *tokenEnd = start;
				while (tokenEnd < end && *tokenEnd != ',' && !IsArraySpace(*tokenEnd) && tokenEnd - start < 32)
					++tokenEnd;
				error = Where((uint64)(start - m_Bytes.data())) +
						V_Format(": value %zu of an array is not a valid %s: \"%.*s\"", count, what, (int)(tokenEnd - start), start);
				return false;
			}
			++count;
			while (p < end && IsArraySpace(*p))
				++p;
			if (p >= end)
				break;
			if (*p != ',')
			{
				error = Where((uint64)(p - m_Bytes.data())) + ": expected ',' between the values of an array";
				return false;
			}
			++p;
		}
		if (count != property.nArrayCount)
		{
			error = Where(property.nOffset) + V_Format(": an array declares %u values and holds %zu", property.nArrayCount, count);
			return false;
		}
		return true;
	}
	if (!property.IsArray())
	{
		error = Where(property.nOffset) + ": expected an array";
		return false;
	}

	const size_t elementSize = FbxArrayElementSize(property.cType);
	// Stored as wanted: straight into the output.
	if ((std::is_same_v<T, double> && property.cType == 'd') || (std::is_same_v<T, int32> && property.cType == 'i'))
	{
		if (property.nEncoding == 1)
			return Inflate(property, out, error);
		out.resize(property.nArrayCount);
		memcpy(out.data(), property.data.data(), property.data.size());
		return true;
	}
	std::vector<unsigned char> inflated;
	const unsigned char *raw = (const unsigned char *)property.data.data();
	if (property.nEncoding == 1)
	{
		if (!Inflate(property, inflated, error))
			return false;
		raw = inflated.data();
	}
	out.resize(property.nArrayCount);
	for (uint32 i = 0; i < property.nArrayCount; ++i)
	{
		const unsigned char *p = raw + (size_t)i * elementSize;
		bool bOk = true;
		switch (property.cType)
		{
		case 'f':
		{
			float value;
			memcpy(&value, p, 4);
			bOk = ConvertNumber((double)value, out[i]);
			break;
		}
		case 'd':
		{
			double value;
			memcpy(&value, p, 8);
			bOk = ConvertNumber(value, out[i]);
			break;
		}
		case 'l':
		{
			int64 value;
			memcpy(&value, p, 8);
			bOk = ConvertInteger(value, out[i]);
			break;
		}
		case 'i':
		{
			int32 value;
			memcpy(&value, p, 4);
			bOk = ConvertInteger((int64)value, out[i]);
			break;
		}
		default: // 'b' and 'c'
			bOk = ConvertInteger((int64)p[0], out[i]);
			break;
		}
		if (!bOk)
		{
			error = Where(property.nOffset) + V_Format(": element %u of an array of '%c' is not a valid %s", i, property.cType, what);
			return false;
		}
	}
	return true;
}

template <typename T> bool CFbxDocument::ReadNodeT(const FbxNode_t *node, std::vector<T> &out, CUtlString &error) const
{
	out.clear();
	if (node->nPropertyCount == 1 && m_Properties[node->nFirstProperty].IsArray())
	{
		if (!ReadArrayT(m_Properties[node->nFirstProperty], out, error))
		{
			error += V_Format(" (node \"%.*s\")", (int)node->name.size(), node->name.data());
			return false;
		}
		return true;
	}
	out.resize(node->nPropertyCount);
	for (uint32 i = 0; i < node->nPropertyCount; ++i)
	{
		const FbxProperty_t &property = m_Properties[node->nFirstProperty + i];
		bool bOk = false;
		if (property.cType == 'F' || property.cType == 'D')
			bOk = ConvertNumber(property.flDouble, out[i]);
		else if (property.IsNumber())
			bOk = ConvertInteger(property.nInt, out[i]);
		if (!bOk)
		{
			error = Where(property.nOffset) + V_Format(": value %u of node \"%.*s\" is not a valid %s", i, (int)node->name.size(),
												  node->name.data(), std::is_same_v<T, double> ? "number" : "integer");
			return false;
		}
	}
	return true;
}

bool CFbxDocument::ReadDoubles(const FbxNode_t *node, std::vector<double> &out, CUtlString &error) const
{
	return ReadNodeT(node, out, error);
}

bool CFbxDocument::ReadInts(const FbxNode_t *node, std::vector<int32> &out, CUtlString &error) const
{
	return ReadNodeT(node, out, error);
}

bool CFbxDocument::ReadArray(const FbxProperty_t &property, std::vector<double> &out, CUtlString &error) const
{
	return ReadArrayT(property, out, error);
}

bool CFbxDocument::ReadArray(const FbxProperty_t &property, std::vector<int32> &out, CUtlString &error) const
{
	return ReadArrayT(property, out, error);
}
