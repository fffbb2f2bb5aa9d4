#include "compiledassets/compiledformat.h"

#include <cstdarg>

#include "core/hashes.h"
#include "core/strtools.h"

namespace CompiledFormat
{
CUtlString FourCCText(uint32 id)
{
	CUtlString text;
	for (int i = 0; i < 4; ++i)
	{
		const char c = (char)((id >> (8 * i)) & 0xFF);
		if (c >= 0x20 && c < 0x7F)
			text += c;
		else
			V_AppendFormat(text, "\\x%02x", (uint8)c);
	}
	return text;
}

uint64 AppendAligned(std::vector<uint8> &blob, const void *pData, size_t size)
{
	const uint64 offset = Align(blob.size());
	blob.resize((size_t)offset + size);
	if (size)
		memcpy(blob.data() + offset, pData, size);
	return offset;
}

// ---------------------------------------------------------------------------------------------
// CCompiledFileWriter

StringRef_t CCompiledFileWriter::AddString(std::string_view text)
{
	StringRef_t ref = { (uint32)m_Strings.size(), (uint32)text.size() };
	m_Strings.insert(m_Strings.end(), text.begin(), text.end());
	return ref;
}

void CCompiledFileWriter::AddSection(uint32 id, uint32 elementSize, const void *pData, size_t count)
{
	Section_t section;
	section.id = id;
	section.elementSize = elementSize;
	section.count = count;
	const size_t bytes = (size_t)elementSize * count;
	section.data.resize(bytes);
	if (bytes)
		memcpy(section.data.data(), pData, bytes);
	m_Sections.push_back(std::move(section));
}

bool CCompiledFileWriter::Finish(CUtlBuffer &out, CUtlString *pError)
{
	// The string section goes first, so that strings are near the header.
	Section_t strings;
	strings.id = FourCC("STRS");
	strings.elementSize = 1;
	strings.count = m_Strings.size();
	strings.data = std::move(m_Strings);
	m_Sections.insert(m_Sections.begin(), std::move(strings));

	uint64 offset = Align(sizeof(FileHeader_t) + sizeof(SectionEntry_t) * m_Sections.size());
	std::vector<SectionEntry_t> table;
	for (const Section_t &section : m_Sections)
	{
		if (section.count > UINT32_MAX)
		{
			if (pError)
				*pError = V_Format("Section %s has %zu records; at most %u fit the format", FourCCText(section.id).c_str(), section.count,
					UINT32_MAX);
			return false;
		}
		table.push_back({ section.id, section.elementSize, (uint32)section.count, 0, offset });
		offset = Align(offset + section.data.size());
	}

	FileHeader_t header = {};
	header.magic = m_nMagic;
	header.version = m_nVersion;
	header.fileSize = offset;
	header.sectionCount = (uint32)m_Sections.size();

	out.Clear();
	out.EnsureCapacity((size_t)offset);
	out.SetSize((size_t)offset);
	uint8 *pBase = reinterpret_cast<uint8 *>(out.Base());
	memset(pBase, 0, (size_t)offset);
	memcpy(pBase, &header, sizeof(header));
	memcpy(pBase + sizeof(header), table.data(), sizeof(SectionEntry_t) * table.size());
	for (size_t i = 0; i < m_Sections.size(); ++i)
	{
		if (!m_Sections[i].data.empty())
			memcpy(pBase + table[i].offset, m_Sections[i].data.data(), m_Sections[i].data.size());
	}
	// The checksum covers the whole file with its own field zero (as it is now).
	header.crc = CRC32_ProcessSingleBuffer(pBase, (size_t)offset);
	memcpy(pBase + HEADER_CRC_OFFSET, &header.crc, sizeof(header.crc));
	out.SeekPut((size_t)offset);
	m_Sections.clear();
	return true;
}

// ---------------------------------------------------------------------------------------------
// CCompiledFileReader

bool CCompiledFileReader::Fail(const char *fmt, ...)
{
	if (m_pError)
	{
		va_list args;
		va_start(args, fmt);
		*m_pError = m_Name + ": " + V_FormatV(fmt, args);
		va_end(args);
	}
	return false;
}

bool CCompiledFileReader::Open(const void *pData, size_t size, const char *pszName, uint32 magic, uint32 version, const char *pszKind,
	const SectionSpec_t *pSpecs, int nSpecs, CUtlString *pError)
{
	m_pData = static_cast<const uint8 *>(pData);
	m_nSize = size;
	m_Name = pszName ? pszName : "<memory>";
	m_pError = pError;
	m_Sections.clear();
	m_nStringBytesRead = 0;

	if (!pData || size < sizeof(FileHeader_t))
		return Fail("not a compiled %s: the file has %zu bytes, less than a header", pszKind, size);
	FileHeader_t header;
	memcpy(&header, m_pData, sizeof(header));
	if (header.magic != magic)
		return Fail("not a compiled %s: bad magic \"%s\" (expected \"%s\")", pszKind, FourCCText(header.magic).c_str(), FourCCText(magic).c_str());
	if (header.version != version)
		return Fail("compiled %s version %u is not supported (this build reads version %u)", pszKind, header.version, version);
	if (header.fileSize != size)
	{
		if (header.fileSize > size)
			return Fail("truncated: the header says %llu bytes, the file has %zu", (unsigned long long)header.fileSize, size);
		return Fail("the file has %zu bytes, the header says %llu", size, (unsigned long long)header.fileSize);
	}
	CRC32_t crc;
	CRC32_Init(&crc);
	static const uint8 s_Zero[4] = {};
	CRC32_ProcessBuffer(&crc, m_pData, HEADER_CRC_OFFSET);
	CRC32_ProcessBuffer(&crc, s_Zero, sizeof(s_Zero));
	CRC32_ProcessBuffer(&crc, m_pData + HEADER_CRC_OFFSET + 4, size - HEADER_CRC_OFFSET - 4);
	CRC32_Final(&crc);
	if (crc != header.crc)
		return Fail("checksum mismatch (stored %08x, computed %08x): the file is damaged", header.crc, crc);
	if (header.flags != 0 || header.reserved != 0)
		return Fail("unknown header flags %08x", header.flags | header.reserved);

	const uint64 tableEnd = sizeof(FileHeader_t) + (uint64)header.sectionCount * sizeof(SectionEntry_t);
	if (tableEnd > size)
		return Fail("the section table (%u sections) runs past the end of the file", header.sectionCount);
	m_Sections.resize(header.sectionCount);
	if (header.sectionCount)
		memcpy(m_Sections.data(), m_pData + sizeof(FileHeader_t), (size_t)header.sectionCount * sizeof(SectionEntry_t));

	for (uint32 i = 0; i < header.sectionCount; ++i)
	{
		const SectionEntry_t &entry = m_Sections[i];
		const SectionSpec_t *pSpec = nullptr;
		for (int s = 0; s < nSpecs; ++s)
		{
			if (pSpecs[s].id == entry.id)
				pSpec = &pSpecs[s];
		}
		const CUtlString id = FourCCText(entry.id);
		if (!pSpec)
			return Fail("unknown section \"%s\"", id.c_str());
		for (uint32 j = 0; j < i; ++j)
		{
			if (m_Sections[j].id == entry.id)
				return Fail("section \"%s\" appears twice", id.c_str());
		}
		if (entry.elementSize != pSpec->elementSize)
			return Fail("section \"%s\" has records of %u bytes, expected %u", id.c_str(), entry.elementSize, pSpec->elementSize);
		if (entry.reserved != 0)
			return Fail("section \"%s\" has unknown flags %08x", id.c_str(), entry.reserved);
		if (entry.offset % ALIGNMENT != 0 || entry.offset < tableEnd)
			return Fail("section \"%s\" starts at a bad offset %llu", id.c_str(), (unsigned long long)entry.offset);
		const uint64 bytes = (uint64)entry.elementSize * entry.count;
		if (entry.offset > size || bytes > size - entry.offset)
			return Fail("section \"%s\" (%u records at offset %llu) runs past the end of the file (%zu bytes)", id.c_str(), entry.count,
				(unsigned long long)entry.offset, size);
	}
	for (int s = 0; s < nSpecs; ++s)
	{
		if (!Find(pSpecs[s].id))
			return Fail("section \"%s\" is missing", FourCCText(pSpecs[s].id).c_str());
	}
	m_pStrings = Bytes(FourCC("STRS"), m_nStringsSize);
	return true;
}

const SectionEntry_t *CCompiledFileReader::Find(uint32 id) const
{
	for (const SectionEntry_t &entry : m_Sections)
	{
		if (entry.id == id)
			return &entry;
	}
	return nullptr;
}

uint32 CCompiledFileReader::Count(uint32 id) const
{
	const SectionEntry_t *pEntry = Find(id);
	return pEntry ? pEntry->count : 0;
}

const uint8 *CCompiledFileReader::Bytes(uint32 id, uint64 &size) const
{
	const SectionEntry_t *pEntry = Find(id);
	size = pEntry ? (uint64)pEntry->count * pEntry->elementSize : 0;
	return pEntry ? m_pData + pEntry->offset : nullptr;
}

bool CCompiledFileReader::ReadString(const StringRef_t &ref, CUtlString &out)
{
	if ((uint64)ref.offset + ref.length > m_nStringsSize)
		return Fail("a string (%u bytes at %u) lies outside the string section (%llu bytes)", ref.length, ref.offset,
			(unsigned long long)m_nStringsSize);
	m_nStringBytesRead += ref.length;
	if (m_nStringBytesRead > m_nStringsSize)
		return Fail("the records name more string bytes than the string section holds (%llu)", (unsigned long long)m_nStringsSize);
	out.assign(reinterpret_cast<const char *>(m_pStrings) + ref.offset, ref.length);
	return true;
}
} // namespace CompiledFormat
