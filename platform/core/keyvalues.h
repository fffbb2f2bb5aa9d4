// KeyValues (KV1): the tree document of the game's scripts and of older manifests.
//
// A node has a name and either a value or subkeys. Names compare without case. Duplicate names
// are allowed and keep their order. The text form:
//
//   "root"
//   {
//       "key"    "value"
//       "block"
//       {
//           "inner"  "1"    [$WIN32]
//       }
//   }
//
// Tokens are quoted ("...") or bare (a run of characters up to a blank, a line end, '{', '}' or
// '"'). `//` starts a comment that runs to the end of the line. Values read from text are
// strings; GetInt and GetFloat parse them.
//
// Escapes (KV1_ESCAPES_PROCESS, the default): inside quotes \" \\ \n and \t stand for a quote, a
// backslash, a line end and a tab; a backslash before any other character is kept as it is, so
// "models\heroes\x.mdl" reads unchanged. With KV1_ESCAPES_NONE a backslash is an ordinary
// character and a string ends at the next quote. The writer escapes \ " line ends and tabs, so
// that what it writes reads back the same with escapes processed.
//
// Conditions: a key may carry a condition in brackets after its value, or after its name when it
// opens a block: `"key" "value" [$WIN32]`, `"key" [!$X360 && $LINUX] { ... }`. A condition is
// an expression of symbols ($NAME), `!`, `&&`, `||` and parentheses. On this platform $LINUX and
// $POSIX are true and every other symbol ($WIN32, $WINDOWS, $OSX, $X360, ...) is false. With
// KV1_CONDITIONS_EVALUATE (the default) a key whose condition is false is dropped while loading
// and a true one is kept without its condition. With KV1_CONDITIONS_KEEP every key is kept with
// its condition text (GetCondition), and the writer writes it back, so a file that the tool
// rewrites loses nothing.
//
// Files: `#base "file"` and `#include "file"` stand between top-level keys. The file is looked up
// beside the including file first, then as given, through the same file system and path ID.
// #include inserts the included file's top-level keys at that point, as if written there. #base
// merges the base file's keys under this file's: for a top-level key of the same name the base's
// subkeys are added where this file lacks them (recursively, as MERGE_KV_DELTA); base top-level
// keys that this file lacks are appended. Inclusion is limited to 16 levels and a file that
// includes itself (directly or not) is an error.
//
// Bad input never crashes or hangs the loader: every error gives "NAME(LINE,COL): MESSAGE" and
// false, and the node is left as it was before the load. Text is UTF-8 (a byte order mark is
// skipped; UTF-16LE text with its byte order mark is converted); invalid UTF-8 and NUL bytes are
// errors. Nesting is limited to 512 levels.
#pragma once

#include "core/platform.h"
#include "core/utlbuffer.h"
#include "core/utlstring.h"

class IBaseFileSystem;
class KeyValues3;

enum KV1EscapeBehavior_t
{
	KV1_ESCAPES_PROCESS = 0,
	KV1_ESCAPES_NONE = 1,
};

enum KV1ConditionBehavior_t
{
	KV1_CONDITIONS_EVALUATE = 0,
	KV1_CONDITIONS_KEEP = 1,
};

struct KV1LoadOptions_t
{
	KV1EscapeBehavior_t escapes = KV1_ESCAPES_PROCESS;
	KV1ConditionBehavior_t conditions = KV1_CONDITIONS_EVALUATE;
};

struct KV1ParseError_t
{
	CUtlString file; // the file the error is in (an included file names itself)
	int line = 0;	 // 1-based; 0 when the error has no position (a file that cannot be read)
	int column = 0;	 // 1-based, in characters
	CUtlString message;
};

class KeyValues
{
public:
	enum types_t
	{
		TYPE_NONE = 0, // a block: subkeys, no value
		TYPE_STRING,
		TYPE_INT,
		TYPE_FLOAT,
		TYPE_PTR,
		TYPE_WSTRING, // not produced; kept so the numbering is the usual one
		TYPE_COLOR,	  // not produced
		TYPE_UINT64,
		TYPE_NUMTYPES,
	};

	enum MergeKeyValuesOp_t
	{
		MERGE_KV_ALL,	 // append copies of every subkey of the source, duplicates and all
		MERGE_KV_UPDATE, // source values overwrite existing ones; blocks merge recursively; new keys are appended
		MERGE_KV_DELTA,	 // only keys missing here are added; blocks merge recursively; existing values stay
	};

	explicit KeyValues(const char *name);
	// Deletes the subkeys, and the further top-level keys that a load attached as peers.
	~KeyValues();
	KeyValues(const KeyValues &) = delete;
	KeyValues &operator=(const KeyValues &) = delete;

	const char *GetName() const;
	void SetName(const char *name);

	// The type of this node (null key name) or of the named subkey (TYPE_NONE when absent).
	types_t GetDataType(const char *keyName = nullptr) const;

	// Finds the first subkey of that name. A name holding '/' that matches no subkey exactly
	// is taken as a path ("a/b/c"). With bCreate, missing keys on the way are appended.
	// A null or empty name gives this node.
	KeyValues *FindKey(const char *keyName, bool bCreate = false);
	const KeyValues *FindKey(const char *keyName) const;

	// Readers of this node (null key name) or of the named subkey; the default when it is
	// absent or is a block. GetString of a number gives its text.
	const char *GetString(const char *keyName = nullptr, const char *defaultValue = "");
	int GetInt(const char *keyName = nullptr, int defaultValue = 0);
	uint64 GetUint64(const char *keyName = nullptr, uint64 defaultValue = 0);
	float GetFloat(const char *keyName = nullptr, float defaultValue = 0.0f);
	void *GetPtr(const char *keyName = nullptr, void *defaultValue = nullptr);
	bool GetBool(const char *keyName = nullptr, bool defaultValue = false);
	bool IsEmpty(const char *keyName = nullptr); // no value and no subkeys, or absent

	// Writers of this node (null key name) or of the named subkey, which is created when
	// absent. Setting a value on a block deletes its subkeys.
	void SetString(const char *keyName, const char *value);
	void SetInt(const char *keyName, int value);
	void SetUint64(const char *keyName, uint64 value);
	void SetFloat(const char *keyName, float value);
	void SetPtr(const char *keyName, void *value);
	void SetBool(const char *keyName, bool value) { SetInt(keyName, value ? 1 : 0); }

	// Subkeys. A node is a block or a value: adding a subkey to a value drops the value.
	KeyValues *AddKey(const char *name);   // a new empty subkey appended, even when the name exists
	void AddSubKey(KeyValues *subKey);	   // appends a free key, taking ownership (with the peers a load attached to it)
	KeyValues *CreateNewKey();			   // appends a subkey named by the next free integer ("1", "2", ...)
	void RemoveSubKey(KeyValues *subKey);  // unlinks without deleting; the caller owns it then
	bool FindAndDeleteSubKey(const char *name); // deletes the first subkey of that name
	void Clear();						   // deletes every subkey and the value

	KeyValues *GetFirstSubKey() const;
	KeyValues *GetNextKey() const;
	KeyValues *GetFirstTrueSubKey() const; // subkeys that are blocks
	KeyValues *GetNextTrueSubKey() const;
	KeyValues *GetFirstValue() const; // subkeys that hold values
	KeyValues *GetNextValue() const;

	// The condition text kept with KV1_CONDITIONS_KEEP, without brackets ("" when none).
	const char *GetCondition() const;
	void SetCondition(const char *condition);

	// Loading replaces this node's name and contents with the first top-level key of the text;
	// further top-level keys are attached as peers (GetNextKey of this node; when the node sits
	// among the subkeys of another, they are inserted after it there). A text without any key
	// is an error. Quoted strings may span lines. `fs` and `pathID`
	// serve #base and #include (null fs: CoreFileSystem()). On failure returns false, leaves
	// the node unchanged, and fills pError / pDetail.
	bool LoadFromBuffer(const char *resourceName, const char *text, size_t length, IBaseFileSystem *fs = nullptr,
		const char *pathID = nullptr, const KV1LoadOptions_t &options = KV1LoadOptions_t(), CUtlString *pError = nullptr,
		KV1ParseError_t *pDetail = nullptr);
	bool LoadFromBuffer(const char *resourceName, const CUtlBuffer &buffer, IBaseFileSystem *fs = nullptr,
		const char *pathID = nullptr, const KV1LoadOptions_t &options = KV1LoadOptions_t(), CUtlString *pError = nullptr,
		KV1ParseError_t *pDetail = nullptr);
	bool LoadFromFile(IBaseFileSystem *fs, const char *path, const char *pathID = nullptr,
		const KV1LoadOptions_t &options = KV1LoadOptions_t(), CUtlString *pError = nullptr, KV1ParseError_t *pDetail = nullptr);

	// Writes this key (and the peers a load attached) as text. SaveToFile replaces the file
	// atomically: a failed write leaves the old file as it was.
	bool SaveToFile(IBaseFileSystem *fs, const char *path, const char *pathID = nullptr, CUtlString *pError = nullptr);
	void RecursiveSaveToFile(CUtlBuffer &buffer, int indentLevel) const;
	void SaveToBuffer(CUtlBuffer &buffer) const;

	KeyValues *MakeCopy() const;				// deep copy of this node (without peers)
	void CopySubkeys(KeyValues *dest) const;	// appends deep copies of the subkeys to dest
	// Keys pair up by name (without case) and occurrence: the n-th "Ability" of the source
	// meets the n-th "Ability" here; unpaired source keys are appended as copies.
	void MergeFrom(const KeyValues *source, MergeKeyValuesOp_t op);

private:
	// The text reader and writer (keyvalues_text.cpp).
	struct Impl;
	friend struct Impl;

	void SetStringValue(const char *value);
	void DeleteSubKeys();
	// Deletes a chain of nodes linked by m_pPeer and everything under them, without recursion,
	// so that a deep tree cannot exhaust the stack.
	static void DeleteChain(KeyValues *pFirst);
	// Appends a chain of free nodes to the subkeys; a node that held a value becomes a block.
	void AppendChain(KeyValues *pFirst);
	// The first subkey whose name equals name[0..length) without case.
	KeyValues *FindSubKey(const char *name, size_t length) const;
	// Copies the type, the value and the condition (not the name or the subkeys).
	void CopyValueFrom(const KeyValues &source);
	// Drops the value (the node becomes TYPE_NONE); subkeys stay.
	void ClearValue();
	// The value as text without touching the cache: m_String for strings, `scratch` filled
	// with the text of a number otherwise ("" for blocks).
	const char *ValueText(CUtlString &scratch) const;

	CUtlString m_Name;
	CUtlString m_Condition;
	types_t m_eType = TYPE_NONE;
	CUtlString m_String; // the value of TYPE_STRING, and the text form of numbers once asked for
	union {
		uint64 m_nUint64 = 0;
		int m_nInt;
		float m_flFloat;
		void *m_pPtr;
	};
	bool m_bStringValid = false; // m_String holds the text of a number value
	bool m_bOwnsPeers = false;
	KeyValues *m_pSub = nullptr;  // first subkey
	KeyValues *m_pPeer = nullptr; // next key at the same level
};

// Reads a KV1 file as a KV3 tree: `value` becomes a table with one member per top-level key;
// a block becomes a table and a value a string. Names that repeat at one level become an array
// of their occurrences in order, so nothing is lost. Errors as for KeyValues::LoadFromFile.
bool LoadKV3FromKV1File(KeyValues3 *value, CUtlString *error, const char *path, const char *pathID,
	KV1EscapeBehavior_t escapeBehavior = KV1_ESCAPES_PROCESS);
// The same from text in memory.
bool LoadKV3FromKV1Text(KeyValues3 *value, CUtlString *error, const char *text, size_t length, const char *sourceName,
	KV1EscapeBehavior_t escapeBehavior = KV1_ESCAPES_PROCESS);
