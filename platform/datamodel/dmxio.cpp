// The header line, the registry of encodings, loading and saving by file name and buffer.
#include "datamodel/dmxio.h"

#include <charconv>
#include <mutex>
#include <vector>

#include "core/fileio.h"
#include "core/strtools.h"
#include "datamodel/dmxserializers.h"

namespace
{
bool IsBlank(char c)
{
	return c == ' ' || c == '\t';
}

// The words of the header line between "<!--" and "-->".
bool NextWord(std::string_view &text, std::string_view &word)
{
	while (!text.empty() && IsBlank(text.front()))
		text.remove_prefix(1);
	size_t length = 0;
	while (length < text.size() && !IsBlank(text[length]))
		++length;
	word = text.substr(0, length);
	text.remove_prefix(length);
	return !word.empty();
}

bool ParseVersion(std::string_view word, int &version)
{
	const auto result = std::from_chars(word.data(), word.data() + word.size(), version);
	return result.ec == std::errc() && result.ptr == word.data() + word.size() && version >= 0;
}

bool IsNameWord(std::string_view word)
{
	if (word.empty())
		return false;
	for (char c : word)
		if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.'))
			return false;
	return true;
}

struct CSerializerRegistry
{
	std::mutex m_Mutex;
	std::vector<IDmxSerializer *> m_Serializers;

	CSerializerRegistry()
	{
		// Registered here rather than by static objects of their own files, so that a static
		// link of the library cannot drop them.
		m_Serializers.push_back(DmxKeyValues2Serializer());
		m_Serializers.push_back(DmxKeyValues2NoIdsSerializer());
		m_Serializers.push_back(DmxBinarySerializer());
	}
};

CSerializerRegistry &Serializers()
{
	static CSerializerRegistry s_Registry;
	return s_Registry;
}
} // namespace

bool DmxReadHeader(std::string_view data, DmxHeader_t &header, size_t *pBodyOffset, CUtlString *pError)
{
	auto fail = [&](const char *what)
	{
		if (pError)
			*pError = what;
		return false;
	};
	size_t start = 0;
	if (data.substr(0, 3) == "\xEF\xBB\xBF")
		start = 3;
	while (start < data.size() && (data[start] == ' ' || data[start] == '\t' || data[start] == '\r' || data[start] == '\n'))
		++start;
	const std::string_view rest = data.substr(start);
	size_t lineLength = 0;
	while (lineLength < rest.size() && lineLength < DMX_MAX_HEADER_LENGTH && rest[lineLength] != '\n' && rest[lineLength] != '\0')
		++lineLength;
	if (lineLength >= DMX_MAX_HEADER_LENGTH)
		return fail("the header line is too long");
	std::string_view line = rest.substr(0, lineLength);
	if (!line.empty() && line.back() == '\r')
		line.remove_suffix(1);
	if (line.substr(0, 4) != "<!--")
		return fail("the file does not start with a DMX header line (\"<!-- dmx encoding ... -->\")");
	line.remove_prefix(4);
	while (!line.empty() && IsBlank(line.back()))
		line.remove_suffix(1);
	if (line.size() < 3 || line.substr(line.size() - 3) != "-->")
		return fail("the header line does not end with \"-->\"");
	line.remove_suffix(3);

	std::string_view word;
	DmxHeader_t result;
	if (!NextWord(line, word) || word != "dmx")
		return fail("the header line does not name \"dmx\"");
	if (!NextWord(line, word) || word != "encoding")
		return fail("the header line has no \"encoding\"");
	if (!NextWord(line, word) || !IsNameWord(word))
		return fail("the header line has no encoding name");
	result.encodingName = word;
	if (!NextWord(line, word) || !ParseVersion(word, result.encodingVersion))
		return fail("the header line has no encoding version");
	if (NextWord(line, word))
	{
		if (word != "format")
			return fail("the header line has something else than \"format\" after the encoding");
		if (!NextWord(line, word) || !IsNameWord(word))
			return fail("the header line has no format name");
		result.formatName = word;
		if (!NextWord(line, word) || !ParseVersion(word, result.formatVersion))
			return fail("the header line has no format version");
		if (NextWord(line, word))
			return fail("the header line has more words than it should");
	}
	else
	{
		// Files of the first generation name no format.
		result.formatName = "dmx";
		result.formatVersion = 1;
	}

	size_t body = start + lineLength;
	if (body < data.size() && data[body] == '\n')
		++body;
	if (body < data.size() && data[body] == '\0')
		++body;
	header = std::move(result);
	if (pBodyOffset)
		*pBodyOffset = body;
	return true;
}

CUtlString DmxHeaderLine(const DmxHeader_t &header)
{
	return V_Format("<!-- dmx encoding %s %d format %s %d -->", header.encodingName.c_str(), header.encodingVersion, header.formatName.c_str(),
		header.formatVersion);
}

void DmxRegisterSerializer(IDmxSerializer *pSerializer)
{
	if (!pSerializer)
		return;
	CSerializerRegistry &registry = Serializers();
	std::lock_guard<std::mutex> lock(registry.m_Mutex);
	for (IDmxSerializer *&pExisting : registry.m_Serializers)
	{
		if (V_StrEqualNoCase(pExisting->GetEncodingName(), pSerializer->GetEncodingName()))
		{
			pExisting = pSerializer;
			return;
		}
	}
	registry.m_Serializers.push_back(pSerializer);
}

IDmxSerializer *DmxFindSerializer(std::string_view encodingName)
{
	CSerializerRegistry &registry = Serializers();
	std::lock_guard<std::mutex> lock(registry.m_Mutex);
	for (IDmxSerializer *pSerializer : registry.m_Serializers)
		if (encodingName == pSerializer->GetEncodingName())
			return pSerializer;
	return nullptr;
}

bool DmxLoadBuffer(const void *data, size_t size, const char *sourceName, CDmxDocument &doc, CUtlString *pError, uint flags)
{
	doc.Clear();
	if (!sourceName)
		sourceName = "<buffer>";
	CUtlString error;
	auto fail = [&](const CUtlString &message)
	{
		doc.Clear();
		if (pError)
			*pError = message;
		return false;
	};
	DmxHeader_t header;
	size_t bodyOffset = 0;
	const std::string_view bytes((const char *)data, size);
	if (!DmxReadHeader(bytes, header, &bodyOffset, &error))
		return fail(V_Format("%s(1): %s", sourceName, error.c_str()));
	IDmxSerializer *pSerializer = DmxFindSerializer(header.encodingName);
	if (!pSerializer)
		return fail(V_Format("%s(1): unknown encoding \"%s\"", sourceName, header.encodingName.c_str()));
	if (header.encodingVersion > pSerializer->GetEncodingVersion())
		return fail(V_Format("%s(1): encoding %s version %d is newer than this reader knows (%d)", sourceName, header.encodingName.c_str(),
			header.encodingVersion, pSerializer->GetEncodingVersion()));
	if (!pSerializer->Unserialize((const char *)data, size, bodyOffset, header, sourceName, doc, &error))
		return fail(error);
	if (!doc.GetRoot())
		return fail(V_Format("%s: the file holds no root element", sourceName));
	doc.SetEncoding(header.encodingName, header.encodingVersion);
	doc.SetFormat(header.formatName, header.formatVersion);
	if (!(flags & DMX_LOAD_NO_FORMAT_UPDATE) && !DmxUpdateFormat(doc, &error))
		return fail(V_Format("%s: %s", sourceName, error.c_str()));
	return true;
}

bool DmxLoadFile(const char *path, CDmxDocument &doc, CUtlString *pError, const char *pathID, uint flags)
{
	doc.Clear();
	if (!path || !*path)
	{
		if (pError)
			*pError = "no file name given";
		return false;
	}
	CUtlBuffer buffer;
	if (!CoreFileSystem()->ReadFile(path, pathID, buffer, pError))
		return false;
	if (!DmxLoadBuffer(buffer.Base(), buffer.Size(), path, doc, pError, flags))
		return false;
	doc.SetFileName(path);
	return true;
}

bool DmxSaveBuffer(CUtlBuffer &out, const CDmElement *pRoot, const char *encodingName, const char *formatName, int formatVersion,
	CUtlString *pError)
{
	auto fail = [&](const CUtlString &message)
	{
		if (pError)
			*pError = message;
		return false;
	};
	if (!pRoot)
		return fail("nothing to save: no root element");
	if (!encodingName)
		return fail("no encoding given");
	IDmxSerializer *pSerializer = DmxFindSerializer(encodingName);
	if (!pSerializer)
		return fail(V_Format("unknown encoding \"%s\"", encodingName));
	if (!formatName || !IsNameWord(formatName))
		return fail(V_Format("\"%s\" cannot be a format name", formatName ? formatName : ""));
	DmxHeader_t header;
	header.encodingName = pSerializer->GetEncodingName();
	header.encodingVersion = pSerializer->GetEncodingVersion();
	header.formatName = formatName;
	header.formatVersion = formatVersion == DMX_CURRENT_FORMAT_VERSION ? DmxCurrentFormatVersion(formatName) : formatVersion;
	if (header.formatVersion < 0)
		return fail(V_Format("%d cannot be a format version", formatVersion));
	if (DmxHeaderLine(header).size() + 2 > DMX_MAX_HEADER_LENGTH)
		return fail(V_Format("the format name \"%.40s...\" makes the header line longer than %d bytes", formatName, (int)DMX_MAX_HEADER_LENGTH));
	return pSerializer->Serialize(out, header, pRoot, pError);
}

bool DmxSaveFile(const char *path, const CDmElement *pRoot, const char *encodingName, const char *formatName, int formatVersion,
	CUtlString *pError)
{
	if (!path || !*path)
	{
		if (pError)
			*pError = "no file name given";
		return false;
	}
	CUtlBuffer buffer;
	CUtlString error;
	if (!DmxSaveBuffer(buffer, pRoot, encodingName, formatName, formatVersion, &error))
	{
		if (pError)
			*pError = V_Format("%s: %s", path, error.c_str());
		return false;
	}
	return Plat_WriteFileAtomic(path, buffer.Base(), buffer.Size(), pError);
}

bool DmxSaveFile(const char *path, const CDmxDocument &doc, const char *encodingName, CUtlString *pError)
{
	const char *formatName = doc.GetFormatName().empty() ? "dmx" : doc.GetFormatName().c_str();
	const int version = doc.GetFormatName().empty() ? DMX_CURRENT_FORMAT_VERSION : doc.GetFormatVersion();
	return DmxSaveFile(path, doc.GetRoot(), encodingName, formatName, version, pError);
}
