// CZip: a small zip container for stored (uncompressed) files.
//
// Files are held uncompressed, in memory or in a disk cache file, keyed by their lower-cased
// name and kept sorted by the comparison chosen at construction. Saving writes a PKZIP archive of
// stored entries in that order. Data may be aligned: each local header carries an extra field
// of padding so that the data behind it starts on a multiple of the alignment. A 32-byte archive
// comment "XZP<format> <alignment>" tells our own reader how the archive was laid out:
//
//   '1'  compatible: central records carry the padding bytes too, and the last one carries the
//        padding up to the end record as its comment; plain zip tools read it
//   '2'  central records carry the extra length but not its bytes
//   '3'  compact: as '2', and only the first entry's data is written
//
// Archives are limited to what plain 32-bit zip records hold: entries below 2 GiB, offsets below
// 4 GiB and at most 65535 entries. No compression is ever written or read; reading stops at the
// first entry that is compressed.
//
// Readers take hostile input: lengths are checked against the archive before anything is read
// or allocated, and a damaged archive gives a warning that names the archive and the fault.
#pragma once

#include <cstdio>
#include <map>
#include <memory>
#include <vector>

#include "core/platform.h"
#include "core/utlbuffer.h"
#include "core/utlstring.h"

class IZip
{
public:
	// Frees all items, closes and removes the disk cache and makes a new one when caching is on.
	virtual void Reset() = 0;
	// Reads the file whole and adds it under relativeName; false (and nothing added) when the
	// file cannot be read.
	virtual bool AddFileToZip(const char *relativeName, const char *fullPath) = 0;
	virtual bool FileExistsInZip(const char *name) = 0;
	// Reads the item's bytes from an open archive (a file descriptor) at the item's offset.
	virtual bool ReadFileFromZip(int hZipFile, const char *name, bool bTextMode, CUtlBuffer &buffer) = 0;
	// Reads the item's bytes from where the zip holds them.
	virtual bool ReadFileFromZip(const char *name, bool bTextMode, CUtlBuffer &buffer) = 0;
	virtual void RemoveFileFromZip(const char *name) = 0;
	// Walks the items in order: -1 starts; returns the next id, -1 at the end.
	virtual int GetNextFilename(int id, char *pBuffer, int bufferSize, int &fileSize) = 0;
	virtual void PrintDirectory() = 0;
	// The exact size that saving would write now.
	virtual int64 EstimateSize() = 0;
	// Adds (or replaces) an item with a copy of the bytes. False when the name or size cannot be
	// held by a zip or the disk cache cannot be written.
	virtual bool AddBufferToZip(const char *name, const void *data, int64 size, bool bTextMode) = 0;
	virtual bool SaveToBuffer(CUtlBuffer &buffer) = 0;
	virtual bool SaveToDisk(int hFile) = 0;
	virtual bool SaveToDisk(FILE *fp) = 0;
	// Reset, then read an archive in memory (item bytes are copied).
	virtual bool ParseFromBuffer(const void *buffer, int64 bufferSize) = 0;
	// Reset, then read the directory of an archive on disk; the item bytes stay in the archive.
	virtual bool ParseFromDisk(const char *path) = 0;
	virtual void ForceAlignment(bool bAligned, bool bCompatibleFormat, unsigned int alignmentSize) = 0;
	virtual unsigned int GetAlignment() = 0;
	virtual void SetBigEndian(bool bigEndian) = 0;
	virtual void ActivateByteSwapping(bool bActivate) = 0;
	// Stores 0, then the method of the first central record whose method is not 0. False when
	// there is no end record or no entry.
	virtual bool GetFirstCompressionMethod(const void *data, int64 size, int &method) = 0;
	virtual ~IZip() = default;

	// Zip objects are made and released here. pDiskCacheWritePath turns on the disk cache: an
	// empty text puts the cache file in the temporary folder, a folder puts it there.
	static IZip *CreateZip(const char *pDiskCacheWritePath = nullptr, bool bSortCaseSensitive = false);
	static void ReleaseZip(IZip *pZip);
};

// Where an archive is written. Put returns false when the bytes could not all be written.
class IZipStream
{
public:
	virtual bool Put(const void *data, size_t size) = 0;
	virtual int64 Tell() = 0;

protected:
	~IZipStream() = default;
};

class CBufferStream final : public IZipStream
{
public:
	explicit CBufferStream(CUtlBuffer &buffer) : m_Buffer(buffer) {}
	bool Put(const void *data, size_t size) override;
	int64 Tell() override;

private:
	CUtlBuffer &m_Buffer;
};

// Writes to a file descriptor (buffered here) or to a C file.
class CFileStream final : public IZipStream
{
public:
	explicit CFileStream(int hFile);
	explicit CFileStream(FILE *fp);
	~CFileStream();
	bool Put(const void *data, size_t size) override;
	int64 Tell() override;
	bool Flush();

private:
	int m_hFile = -1;
	FILE *m_pFile = nullptr;
	int64 m_nPosition = 0;
	bool m_bFailed = false;
	std::vector<char> m_Pending;
};

typedef int (*ZipNameCompare_t)(const char *a, const char *b);

class CZip final : public IZip
{
public:
	// pDiskCacheWritePath: null for no disk cache, "" for a cache in the temporary folder, or the
	// folder of the cache. compare orders the items (null: byte order).
	explicit CZip(const char *pDiskCacheWritePath = nullptr, ZipNameCompare_t compare = nullptr);
	~CZip() override;
	CZip(const CZip &) = delete;
	CZip &operator=(const CZip &) = delete;

	void Reset() override;
	bool AddFileToZip(const char *relativeName, const char *fullPath) override;
	bool FileExistsInZip(const char *name) override;
	bool ReadFileFromZip(int hZipFile, const char *name, bool bTextMode, CUtlBuffer &buffer) override;
	bool ReadFileFromZip(const char *name, bool bTextMode, CUtlBuffer &buffer) override;
	void RemoveFileFromZip(const char *name) override;
	int GetNextFilename(int id, char *pBuffer, int bufferSize, int &fileSize) override;
	void PrintDirectory() override;
	int64 EstimateSize() override;
	bool AddBufferToZip(const char *name, const void *data, int64 size, bool bTextMode) override;
	bool SaveToBuffer(CUtlBuffer &buffer) override;
	bool SaveToDisk(int hFile) override;
	bool SaveToDisk(FILE *fp) override;
	bool ParseFromBuffer(const void *buffer, int64 bufferSize) override;
	bool ParseFromDisk(const char *path) override;
	void ForceAlignment(bool bAligned, bool bCompatibleFormat, unsigned int alignmentSize) override;
	unsigned int GetAlignment() override;
	void SetBigEndian(bool bigEndian) override;
	void ActivateByteSwapping(bool bActivate) override;
	bool GetFirstCompressionMethod(const void *data, int64 size, int &method) override;

	// Layout settings as they stand (after ForceAlignment or after reading an archive comment).
	unsigned int GetAlignmentSetting() const { return m_nAlignment; }
	bool IsCompatibleFormat() const { return m_bCompatibleFormat; }
	bool IsCompactFormat() const { return m_bCompactFormat; }
	int GetItemCount() const { return (int)m_Items.size(); }
	// The disk cache file, empty when caching is off.
	const CUtlString &GetDiskCacheName() const { return m_DiskCacheName; }
	bool SaveToStream(IZipStream &stream);

	enum DataLocation_t
	{
		ZIP_DATA_MEMORY,  // m_pData
		ZIP_DATA_CACHE,	  // the disk cache at m_nDiskOffset
		ZIP_DATA_ARCHIVE, // the archive read by ParseFromDisk, at m_nDiskOffset
		ZIP_DATA_NONE,	  // a compact archive's entry whose bytes were never written
	};

	struct CZipEntry
	{
		CUtlString m_Name;
		int32 m_nCompressedSize = 0;
		std::unique_ptr<uint8[]> m_pData;
		int64 m_nDiskOffset = 0;
		uint32 m_nCRC = 0;
		int64 m_nHeaderOffset = 0;
		uint16 m_nPadding = 0; // extra field length of the last write
		DataLocation_t m_Location = ZIP_DATA_MEMORY;
		int m_nId = -1;
	};

private:
	struct NameLess
	{
		ZipNameCompare_t compare;
		bool operator()(const CUtlString &a, const CUtlString &b) const { return compare(a.c_str(), b.c_str()) < 0; }
	};
	typedef std::map<CUtlString, std::unique_ptr<CZipEntry>, NameLess> ItemMap_t;

	struct ArchiveSource_t; // bounds-checked reading of an archive in memory or on disk
	struct ArchiveLayout_t; // what the end record and comment say
	enum FindEndResult_t
	{
		END_FOUND,
		END_MISSING,
		END_ERROR,
	};

	static CUtlString LowerName(const char *name, size_t maxLength);
	CZipEntry *Find(const CUtlString &name);
	void OpenDiskCache();
	void CloseDiskCache();
	bool LoadEntryData(const CZipEntry &entry, std::vector<uint8> &out, CUtlString *pError);
	unsigned int PaddingFor(int64 headerPosition, size_t nameLength) const;
	bool WriteArchive(IZipStream &stream, bool bMeasureOnly, int64 *pSize);
	FindEndResult_t FindEndRecord(ArchiveSource_t &source, ArchiveLayout_t &layout);
	bool ParseArchive(ArchiveSource_t &source, bool bCopyData);
	void EncodeRecord(const uint32 *values, const uint8 *fieldSizes, int fieldCount, uint8 *out) const;
	void DecodeRecord(const uint8 *in, const uint8 *fieldSizes, int fieldCount, uint32 *values) const;

	ItemMap_t m_Items;
	std::vector<CZipEntry *> m_ItemsById; // ids handed out by GetNextFilename; null when removed
	ZipNameCompare_t m_pCompare;

	unsigned int m_nAlignment = 0;
	bool m_bForceAlignment = false;
	bool m_bCompatibleFormat = true;
	bool m_bCompactFormat = false;
	bool m_bSwapBytes = false; // records in the byte order opposite to this machine's

	bool m_bDiskCacheEnabled = false;
	CUtlString m_DiskCacheFolder;
	CUtlString m_DiskCacheName;
	int m_hDiskCache = -1;
	int64 m_nDiskCacheSize = 0;

	CUtlString m_ArchivePath; // archive read by ParseFromDisk
};

// True when an entry name is a relative path that stays inside the folder it is unpacked to
// (the rule of V_IsSafeRelativePath in core/pathutils.h).
bool Zip_IsSafeEntryName(const char *name);
// Writes every item to pFolder (created when missing), keeping relative paths and creating
// folders on the way. An item whose name would land outside the folder is refused and nothing
// of it is written. False with *pError on the first failure.
bool Zip_ExtractAll(IZip *pZip, const char *pFolder, CUtlString *pError);
