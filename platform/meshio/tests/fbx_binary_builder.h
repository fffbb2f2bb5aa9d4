// Builds binary FBX files node by node for the reader's tests: 32-bit records (version 7400) or
// 64-bit records (7500 and later), arrays plain or deflated.
#pragma once

#include <cstring>
#include <string>
#include <vector>
#include <zlib.h>

#include "core/platform.h"

struct FbxBinaryNode_t
{
	std::string name;
	std::vector<std::string> properties; // each already encoded: type byte and payload
	std::vector<FbxBinaryNode_t> children;

	FbxBinaryNode_t &Add(const std::string &childName)
	{
		children.push_back(FbxBinaryNode_t{ childName, {}, {} });
		return children.back();
	}
};

namespace fbxbinary
{
template <typename T> void Put(std::string &out, T value)
{
	char bytes[sizeof(T)];
	memcpy(bytes, &value, sizeof(T));
	out.append(bytes, sizeof(T));
}

inline std::string Int32(int32 value)
{
	std::string out = "I";
	Put(out, value);
	return out;
}

inline std::string Int64(int64 value)
{
	std::string out = "L";
	Put(out, value);
	return out;
}

inline std::string Double(double value)
{
	std::string out = "D";
	Put(out, value);
	return out;
}

inline std::string String(const std::string &text)
{
	std::string out = "S";
	Put(out, (uint32)text.size());
	return out + text;
}

// "Name\0\1Class", the binary form of "Class::Name".
inline std::string ObjectName(const std::string &name, const std::string &className)
{
	return String(name + std::string("\0\x01", 2) + className);
}

template <typename T> std::string Array(char type, const std::vector<T> &values, bool bCompress)
{
	std::string raw((const char *)values.data(), values.size() * sizeof(T));
	std::string stored = raw;
	if (bCompress)
	{
		uLongf size = compressBound(raw.size());
		stored.resize(size);
		compress((Bytef *)stored.data(), &size, (const Bytef *)raw.data(), raw.size());
		stored.resize(size);
	}
	std::string out(1, type);
	Put(out, (uint32)values.size());
	Put(out, (uint32)(bCompress ? 1 : 0));
	Put(out, (uint32)stored.size());
	return out + stored;
}

inline void Write(std::string &out, const FbxBinaryNode_t &node, bool b64)
{
	const size_t start = out.size();
	const size_t headerSize = b64 ? 25 : 13;
	out.append(headerSize, '\0');
	out += node.name;
	size_t propertyBytes = 0;
	for (const std::string &property : node.properties)
	{
		out += property;
		propertyBytes += property.size();
	}
	if (!node.children.empty() || node.properties.empty())
	{
		for (const FbxBinaryNode_t &child : node.children)
			Write(out, child, b64);
		out.append(headerSize, '\0');
	}
	std::string header;
	if (b64)
	{
		Put(header, (uint64)out.size());
		Put(header, (uint64)node.properties.size());
		Put(header, (uint64)propertyBytes);
	}
	else
	{
		Put(header, (uint32)out.size());
		Put(header, (uint32)node.properties.size());
		Put(header, (uint32)propertyBytes);
	}
	Put(header, (uint8)node.name.size());
	memcpy(&out[start], header.data(), header.size());
}
} // namespace fbxbinary

inline std::string WriteBinaryFbx(const std::vector<FbxBinaryNode_t> &topLevel, uint32 version)
{
	const bool b64 = version >= 7500;
	std::string out("Kaydara FBX Binary  \0\x1a\0", 23);
	fbxbinary::Put(out, version);
	for (const FbxBinaryNode_t &node : topLevel)
		fbxbinary::Write(out, node, b64);
	out.append(b64 ? 25 : 13, '\0');
	out.append(160, '\0'); // stands for the footer, which readers do not need
	return out;
}
