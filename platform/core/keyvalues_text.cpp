// The KV1 text reader and writer.
//
// The reader checks the whole text first (encoding, NUL bytes), then reads it in one pass with
// an explicit stack of open blocks, appending each key behind a tail pointer, so that loading is
// linear in the size of the text and the nesting limit is the only bound on the stack. Every
// load builds a separate tree and only hands it to the node once the whole text (with its
// #include and #base files) has been read, so that a failed load changes nothing.
#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "core/fileio.h"
#include "core/keyvalues.h"
#include "core/pathutils.h"
#include "core/strtools.h"

namespace
{
// Depth alone does not bound a load: 16 levels of files that each include the next one twice
// read the last one 65536 times. These caps keep such a load finite and its memory sane.
constexpr uint64 kMaxIncludedBytes = 256ull << 20;

enum
{
	kMaxNesting = 512,		  // blocks inside blocks
	kMaxIncludeDepth = 16,	  // #include / #base files inside each other
	kMaxIncludedFiles = 4096, // files read by one load: a file may include another many times
	kMaxConditionDepth = 32,  // parentheses in one condition
	kMaxNameInMessage = 64,	  // bytes of a key name quoted in an error message
};

bool IsSpace(char c)
{
	return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

bool IsSymbolChar(char c)
{
	return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

// The symbols that are true on this platform.
bool EvaluateSymbol(std::string_view name)
{
	return V_StrEqualNoCase(name, "LINUX") || V_StrEqualNoCase(name, "POSIX");
}

// The folder part of a path with its trailing slash ("a/b/" for "a/b/c.txt"), "" when none.
CUtlString DirectoryOf(const CUtlString &path)
{
	const size_t slash = path.find_last_of("/\\");
	return slash == CUtlString::npos ? CUtlString() : path.substr(0, slash + 1);
}

// A name as it is quoted in a message: cut to a readable length.
CUtlString QuoteName(std::string_view name)
{
	if (name.size() <= kMaxNameInMessage)
		return CUtlString("\"").append(name).append("\"");
	size_t cut = kMaxNameInMessage;
	while (cut > 0 && ((uint8)name[cut] & 0xC0) == 0x80)
		--cut; // keep whole UTF-8 sequences
	return CUtlString("\"").append(name.substr(0, cut)).append("...\"");
}

CUtlString FormatError(const KV1ParseError_t &error)
{
	if (error.line > 0)
		return V_Format("%s(%d,%d): %s", error.file.c_str(), error.line, error.column, error.message.c_str());
	// Errors without a position come from the file system, whose messages name the file.
	if (error.message.compare(0, error.file.size(), error.file) == 0)
		return error.message;
	return V_Format("%s: %s", error.file.c_str(), error.message.c_str());
}
} // namespace

// One file being read. The state shared by the files of one load (options, file system, the
// files open around this one, the first error) is in Load_t.
struct KeyValues::Impl
{
	struct Load_t
	{
		IBaseFileSystem *pFileSystem;
		const char *pPathID;
		KV1LoadOptions_t options;
		std::vector<CUtlString> openFiles; // normalized names, outermost first
		// Included files stay inside this folder: the folder of the outermost file when that was
		// named by an absolute path, otherwise "" (names are then relative to the search path).
		CUtlString rootFolder;
		int filesRead = 0;
		uint64 bytesRead = 0; // by #include and #base
		KV1ParseError_t error;
	};

	struct Frame_t
	{
		KeyValues *node;
		KeyValues *last; // the last subkey appended to node
		const char *open; // its '{', for the message when it is never closed
		bool bDrop;		  // its condition is false: it is read, then deleted
	};

	Load_t &m_Load;
	CUtlString m_File;
	std::string m_Converted; // the text as UTF-8, when it came as UTF-16
	const char *m_pBegin = nullptr;
	const char *m_pEnd = nullptr;
	const char *m_p = nullptr;
	std::vector<Frame_t> m_Stack;

	Impl(Load_t &load, CUtlString file) : m_Load(load), m_File(std::move(file)) {}
	~Impl()
	{
		// Blocks being read when an error stopped the load: the dropped ones are linked nowhere.
		for (const Frame_t &frame : m_Stack)
		{
			if (frame.bDrop)
				DeleteChain(frame.node);
		}
	}

	// Reads the text and appends its top-level keys to holder's subkeys.
	bool Read(const char *text, size_t length, KeyValues &holder);

	// Errors.
	bool FailAtOffset(int line, int column, const char *fmt, ...) FMTFUNCTION(4, 5);
	bool Fail(const char *at, const char *fmt, ...) FMTFUNCTION(3, 4);
	bool PrepareText(const char *text, size_t length);
	bool ConvertUTF16(const uint8 *bytes, size_t length);

	// Tokens.
	void SkipSpace();
	bool ReadToken(CUtlString &out, bool &bQuoted);
	bool ReadCondition(CUtlString &text, bool &bValue);
	bool ParseOr(const char *&q, const char *end, int depth, bool &value);
	bool ParseUnary(const char *&q, const char *end, int depth, bool &value);

	// Structure.
	void Append(KeyValues *node);
	bool ReadDirective(const CUtlString &directive, const char *at, std::vector<std::unique_ptr<KeyValues>> &bases);
	bool ReadIncludedFile(const char *at, const CUtlString &directive, const CUtlString &file, KeyValues &holder);

	// Writing.
	static void WriteQuoted(CUtlBuffer &buffer, std::string_view text);
	static void WriteIndent(CUtlBuffer &buffer, int level);
	static void WriteKeyLine(CUtlBuffer &buffer, const KeyValues *node, int level);
	static void WriteTree(CUtlBuffer &buffer, const KeyValues *root, int level);

	static bool Load(KeyValues *target, const char *resourceName, const char *text, size_t length, IBaseFileSystem *fs,
		const char *pathID, const KV1LoadOptions_t &options, CUtlString *pError, KV1ParseError_t *pDetail);
	static void Adopt(KeyValues *target, KeyValues &holder);
};

bool KeyValues::Impl::FailAtOffset(int line, int column, const char *fmt, ...)
{
	KV1ParseError_t &error = m_Load.error;
	if (!error.message.empty())
		return false; // the first error is the one reported
	error.file = m_File;
	error.line = line;
	error.column = column;
	va_list args;
	va_start(args, fmt);
	error.message = V_FormatV(fmt, args);
	va_end(args);
	return false;
}

bool KeyValues::Impl::Fail(const char *at, const char *fmt, ...)
{
	KV1ParseError_t &error = m_Load.error;
	if (!error.message.empty())
		return false;
	// Lines and columns are counted only here, when something went wrong.
	error.file = m_File;
	V_TextPosition(m_pBegin, at, error.line, error.column);
	va_list args;
	va_start(args, fmt);
	error.message = V_FormatV(fmt, args);
	va_end(args);
	return false;
}

bool KeyValues::Impl::ConvertUTF16(const uint8 *bytes, size_t length)
{
	// The byte order mark (FF FE) is not part of the text.
	const size_t units = (length - 2) / 2;
	auto unitAt = [&](size_t i) { return (uint32)bytes[2 + 2 * i] | ((uint32)bytes[3 + 2 * i] << 8); };
	m_Converted.clear();
	m_Converted.reserve(units + units / 2);
	int line = 1, column = 1;
	for (size_t i = 0; i < units; ++i)
	{
		uint32 codePoint = unitAt(i);
		if (codePoint >= 0xD800 && codePoint <= 0xDBFF)
		{
			const uint32 low = i + 1 < units ? unitAt(i + 1) : 0;
			if (low < 0xDC00 || low > 0xDFFF)
				return FailAtOffset(line, column, "Invalid UTF-16: a high surrogate without its low surrogate");
			codePoint = 0x10000 + ((codePoint - 0xD800) << 10) + (low - 0xDC00);
			++i;
		}
		else if (codePoint >= 0xDC00 && codePoint <= 0xDFFF)
			return FailAtOffset(line, column, "Invalid UTF-16: a low surrogate without its high surrogate");
		if (codePoint < 0x80)
			m_Converted += (char)codePoint;
		else if (codePoint < 0x800)
		{
			m_Converted += (char)(0xC0 | (codePoint >> 6));
			m_Converted += (char)(0x80 | (codePoint & 0x3F));
		}
		else if (codePoint < 0x10000)
		{
			m_Converted += (char)(0xE0 | (codePoint >> 12));
			m_Converted += (char)(0x80 | ((codePoint >> 6) & 0x3F));
			m_Converted += (char)(0x80 | (codePoint & 0x3F));
		}
		else
		{
			m_Converted += (char)(0xF0 | (codePoint >> 18));
			m_Converted += (char)(0x80 | ((codePoint >> 12) & 0x3F));
			m_Converted += (char)(0x80 | ((codePoint >> 6) & 0x3F));
			m_Converted += (char)(0x80 | (codePoint & 0x3F));
		}
		if (codePoint == '\n')
		{
			++line;
			column = 1;
		}
		else
			++column;
	}
	if (length % 2 != 0)
		return FailAtOffset(line, column, "Invalid UTF-16: the text ends in the middle of a character");
	return true;
}

bool KeyValues::Impl::PrepareText(const char *text, size_t length)
{
	const uint8 *bytes = (const uint8 *)text;
	if (length >= 2 && bytes[0] == 0xFF && bytes[1] == 0xFE)
	{
		if (!ConvertUTF16(bytes, length))
			return false;
		text = m_Converted.data();
		length = m_Converted.size();
	}
	else if (length >= 2 && bytes[0] == 0xFE && bytes[1] == 0xFF)
		return FailAtOffset(1, 1, "UTF-16 big-endian text is not supported: save the file as UTF-8");
	else if (length >= 3 && memcmp(text, "\xEF\xBB\xBF", 3) == 0)
	{
		text += 3;
		length -= 3;
	}
	m_pBegin = m_p = text;
	m_pEnd = text + length;

	// Whichever comes first of a NUL byte and a bad UTF-8 sequence is reported.
	const char *nul = static_cast<const char *>(memchr(text, 0, length));
	size_t badOffset = 0;
	const bool bValid = V_IsValidUTF8(text, nul ? (size_t)(nul - text) : length, &badOffset);
	if (!bValid)
		return Fail(text + badOffset, "Invalid UTF-8 (byte 0x%02x): the text must be UTF-8", (uint8)text[badOffset]);
	if (nul)
		return Fail(nul, "Unexpected NUL byte: this is not a text file");
	return true;
}

void KeyValues::Impl::SkipSpace()
{
	while (m_p < m_pEnd)
	{
		if (IsSpace(*m_p))
			++m_p;
		else if (*m_p == '/' && m_p + 1 < m_pEnd && m_p[1] == '/')
		{
			const char *lineEnd = static_cast<const char *>(memchr(m_p, '\n', (size_t)(m_pEnd - m_p)));
			m_p = lineEnd ? lineEnd : m_pEnd;
		}
		else
			break;
	}
}

bool KeyValues::Impl::ReadToken(CUtlString &out, bool &bQuoted)
{
	out.clear();
	bQuoted = *m_p == '"';
	if (!bQuoted)
	{
		const char *start = m_p;
		while (m_p < m_pEnd && !IsSpace(*m_p) && *m_p != '{' && *m_p != '}' && *m_p != '"')
			++m_p;
		out.assign(start, (size_t)(m_p - start));
		return true;
	}

	const char *open = m_p++;
	const bool bEscapes = m_Load.options.escapes == KV1_ESCAPES_PROCESS;
	for (;;)
	{
		// Plain runs are copied in one piece.
		const char *run = m_p;
		while (m_p < m_pEnd && *m_p != '"' && !(bEscapes && *m_p == '\\'))
			++m_p;
		out.append(run, (size_t)(m_p - run));
		if (m_p == m_pEnd)
			return Fail(open, "Unexpected end of file: the string opened here is not closed");
		if (*m_p == '"')
		{
			++m_p;
			return true;
		}
		// A backslash: the four escapes stand for their character; before anything else the
		// backslash is kept, so that Windows paths read unchanged.
		const char next = m_p + 1 < m_pEnd ? m_p[1] : 0;
		switch (next)
		{
		case '"':
			out += '"';
			m_p += 2;
			break;
		case '\\':
			out += '\\';
			m_p += 2;
			break;
		case 'n':
			out += '\n';
			m_p += 2;
			break;
		case 't':
			out += '\t';
			m_p += 2;
			break;
		default:
			out += '\\';
			++m_p;
			break;
		}
	}
}

// condition := or ; or := and { "||" and } ; and := unary { "&&" unary } ;
// unary := { "!" } ( "$" NAME | "(" or ")" )
bool KeyValues::Impl::ParseUnary(const char *&q, const char *end, int depth, bool &value)
{
	bool bNegate = false;
	for (;;)
	{
		while (q < end && IsSpace(*q))
			++q;
		if (q < end && *q == '!')
		{
			bNegate = !bNegate;
			++q;
		}
		else
			break;
	}
	if (q < end && *q == '(')
	{
		if (depth >= kMaxConditionDepth)
			return Fail(q, "Condition nested deeper than %d parentheses", kMaxConditionDepth);
		const char *open = q++;
		if (!ParseOr(q, end, depth + 1, value))
			return false;
		while (q < end && IsSpace(*q))
			++q;
		if (q == end || *q != ')')
			return Fail(q == end ? open : q, q == end ? "The '(' opened here in the condition has no closing ')'"
													  : "Expected ')' or an operator in the condition");
		++q;
	}
	else if (q < end && *q == '$')
	{
		const char *name = ++q;
		while (q < end && IsSymbolChar(*q))
			++q;
		if (q == name)
			return Fail(name - 1, "Expected a symbol name after '$' in the condition");
		value = EvaluateSymbol(std::string_view(name, (size_t)(q - name)));
	}
	else if (q == end)
		return Fail(q, "The condition ends where a symbol ($NAME), '!' or '(' was expected");
	else
		return Fail(q, "Expected a symbol ($NAME), '!' or '(' in the condition");
	if (bNegate)
		value = !value;
	return true;
}

bool KeyValues::Impl::ParseOr(const char *&q, const char *end, int depth, bool &value)
{
	bool anyTrue = false;
	for (;;)
	{
		bool allTrue = true;
		for (;;)
		{
			bool term = false;
			if (!ParseUnary(q, end, depth, term))
				return false;
			allTrue = allTrue && term;
			while (q < end && IsSpace(*q))
				++q;
			if (end - q >= 2 && q[0] == '&' && q[1] == '&')
				q += 2;
			else
				break;
		}
		anyTrue = anyTrue || allTrue;
		if (end - q >= 2 && q[0] == '|' && q[1] == '|')
			q += 2;
		else
			break;
	}
	value = anyTrue;
	return true;
}

bool KeyValues::Impl::ReadCondition(CUtlString &text, bool &bValue)
{
	// A condition stays on its line: a missing ']' is reported where the condition starts
	// instead of swallowing the rest of the file.
	const char *open = m_p;
	const char *close = open + 1;
	while (close < m_pEnd && *close != ']' && *close != '\n')
		++close;
	if (close == m_pEnd || *close != ']')
		return Fail(open, "The condition opened here has no closing ']' on its line");
	const char *q = open + 1;
	if (!ParseOr(q, close, 0, bValue))
		return false;
	while (q < close && IsSpace(*q))
		++q;
	if (q != close)
	{
		if (*q > ' ' && *q < 0x7F)
			return Fail(q, "Unexpected '%c' in the condition: expected '&&', '||' or ']'", *q);
		return Fail(q, "Unexpected character in the condition: expected '&&', '||' or ']'");
	}
	const char *start = open + 1, *end = close;
	while (start < end && IsSpace(*start))
		++start;
	while (end > start && IsSpace(end[-1]))
		--end;
	text.assign(start, (size_t)(end - start));
	m_p = close + 1;
	return true;
}

void KeyValues::Impl::Append(KeyValues *node)
{
	Frame_t &frame = m_Stack.back();
	(frame.last ? frame.last->m_pPeer : frame.node->m_pSub) = node;
	frame.last = node;
}

bool KeyValues::Impl::ReadIncludedFile(const char *at, const CUtlString &directive, const CUtlString &file, KeyValues &holder)
{
	if (file.empty())
		return Fail(at, "%s names no file", directive.c_str());
	if ((int)m_Load.openFiles.size() > kMaxIncludeDepth)
		return Fail(at, "%s \"%s\": files include each other more than %d levels deep", directive.c_str(), file.c_str(), kMaxIncludeDepth);
	if (++m_Load.filesRead > kMaxIncludedFiles)
		return Fail(at, "%s \"%s\": more than %d files included in one load", directive.c_str(), file.c_str(), kMaxIncludedFiles);

	// Beside the including file first, then as given; either way the name stays inside the
	// folder of the outermost file (or the search path). Files written on Windows may separate
	// folders with backslashes.
	const CUtlString &root = m_Load.rootFolder;
	CUtlString folder = DirectoryOf(m_File);
	if (!root.empty() && folder.starts_with(root))
		folder.erase(0, root.size());
	CUtlString path, why;
	CUtlString beside;
	if (!folder.empty() && V_JoinInside(root, folder + file, beside) && m_Load.pFileSystem->FileExists(beside.c_str(), m_Load.pPathID))
		path = beside;
	else if (!V_JoinInside(root, file, path, &why))
		return Fail(at, "%s \"%s\": refused: %s", directive.c_str(), file.c_str(), why.c_str());
	const CUtlString normalized = V_NormalizePath(path);
	for (const CUtlString &open : m_Load.openFiles)
	{
		if (open == normalized)
			return Fail(at, "%s \"%s\" includes a file that is already being read (%s): files include each other in a cycle",
				directive.c_str(), file.c_str(), path.c_str());
	}

	CUtlBuffer buffer(CUtlBuffer::TEXT_BUFFER);
	CUtlString readError;
	if (!m_Load.pFileSystem->ReadFile(path.c_str(), m_Load.pPathID, buffer, &readError))
		return Fail(at, "%s \"%s\": %s", directive.c_str(), file.c_str(),
			readError.empty() ? "the file cannot be read" : readError.c_str());

	m_Load.bytesRead += buffer.Size();
	if (m_Load.bytesRead > kMaxIncludedBytes)
		return Fail(at, "%s \"%s\": the included files of one load exceed %llu MiB", directive.c_str(), file.c_str(),
			(unsigned long long)(kMaxIncludedBytes >> 20));

	m_Load.openFiles.push_back(normalized);
	Impl included(m_Load, path);
	const bool ok = included.Read(buffer.Base(), buffer.Size(), holder);
	m_Load.openFiles.pop_back();
	return ok;
}

bool KeyValues::Impl::ReadDirective(const CUtlString &directive, const char *at, std::vector<std::unique_ptr<KeyValues>> &bases)
{
	SkipSpace();
	if (m_p == m_pEnd || *m_p == '{' || *m_p == '}')
		return Fail(m_p == m_pEnd ? at : m_p, "%s must be followed by a file name", directive.c_str());
	CUtlString file;
	bool bQuoted = false;
	if (!ReadToken(file, bQuoted))
		return false;
	if (V_StrEqualNoCase(directive, "#include"))
	{
		// The included keys go here, as if they were written in this file.
		KeyValues included("");
		if (!ReadIncludedFile(at, directive, file, included))
			return false;
		KeyValues *first = included.m_pSub;
		included.m_pSub = nullptr;
		while (first)
		{
			KeyValues *next = first->m_pPeer;
			first->m_pPeer = nullptr;
			Append(first);
			first = next;
		}
		return true;
	}
	// A base file is merged once this file is complete.
	bases.push_back(std::make_unique<KeyValues>(""));
	return ReadIncludedFile(at, directive, file, *bases.back());
}

bool KeyValues::Impl::Read(const char *text, size_t length, KeyValues &holder)
{
	if (!PrepareText(text, length))
		return false;

	KeyValues *last = holder.m_pSub;
	while (last && last->m_pPeer)
		last = last->m_pPeer;
	m_Stack.push_back({ &holder, last, nullptr, false });
	std::vector<std::unique_ptr<KeyValues>> bases;
	const bool bEvaluate = m_Load.options.conditions == KV1_CONDITIONS_EVALUATE;
	CUtlString name, value, condition;
	bool bQuoted = false;

	for (;;)
	{
		SkipSpace();
		if (m_p == m_pEnd)
		{
			if (m_Stack.size() > 1)
				return Fail(m_Stack.back().open, "Unexpected end of file: the block %s opened here has no closing '}'",
					QuoteName(m_Stack.back().node->m_Name).c_str());
			break;
		}
		const char c = *m_p;
		if (c == '}')
		{
			if (m_Stack.size() == 1)
				return Fail(m_p, "Unexpected '}': no block is open");
			++m_p;
			const Frame_t frame = m_Stack.back();
			m_Stack.pop_back();
			if (frame.bDrop)
				DeleteChain(frame.node);
			continue;
		}
		if (c == '{')
			return Fail(m_p, "Unexpected '{': expected a key name");
		if (c == '[')
			return Fail(m_p, "Unexpected condition: a condition follows a key's value or a block's name");

		const char *keyStart = m_p;
		if (!ReadToken(name, bQuoted))
			return false;
		if (m_Stack.size() == 1 && !bQuoted && (V_StrEqualNoCase(name, "#include") || V_StrEqualNoCase(name, "#base")))
		{
			if (!ReadDirective(name, keyStart, bases))
				return false;
			continue;
		}

		SkipSpace();
		bool bKeep = true;
		condition.clear();
		if (m_p < m_pEnd && *m_p == '[')
		{
			bool bValue = true;
			if (!ReadCondition(condition, bValue))
				return false;
			bKeep = !bEvaluate || bValue;
			SkipSpace();
			if (m_p == m_pEnd || *m_p != '{')
				return Fail(m_p, "Expected '{' after the condition of the block %s", QuoteName(name).c_str());
		}
		if (m_p == m_pEnd)
			return Fail(m_p, "Unexpected end of file: the key %s has no value", QuoteName(name).c_str());
		if (*m_p == '}')
			return Fail(m_p, "Expected a value or '{' after the key %s, found '}'", QuoteName(name).c_str());

		if (*m_p == '{')
		{
			if (m_Stack.size() > kMaxNesting)
				return Fail(m_p, "Blocks nested deeper than %d levels", kMaxNesting);
			KeyValues *node = new KeyValues(nullptr);
			node->m_Name = std::move(name);
			if (!bEvaluate)
				node->m_Condition = condition;
			// A dropped block is still read, so that its errors are found and its '}' matched;
			// it is linked nowhere and deleted when it closes.
			if (bKeep)
				Append(node);
			m_Stack.push_back({ node, nullptr, m_p, !bKeep });
			++m_p;
			continue;
		}

		if (!ReadToken(value, bQuoted))
			return false;
		SkipSpace();
		if (m_p < m_pEnd && *m_p == '[')
		{
			bool bValue = true;
			if (!ReadCondition(condition, bValue))
				return false;
			bKeep = !bEvaluate || bValue;
		}
		if (!bKeep)
			continue;
		KeyValues *node = new KeyValues(nullptr);
		node->m_Name = std::move(name);
		node->m_eType = TYPE_STRING;
		node->m_String = std::move(value);
		if (!bEvaluate)
			node->m_Condition = condition;
		Append(node);
	}

	// Keys of the base files that this file lacks, as MERGE_KV_DELTA adds them.
	for (const std::unique_ptr<KeyValues> &base : bases)
		holder.MergeFrom(base.get(), MERGE_KV_DELTA);
	return true;
}

void KeyValues::Impl::Adopt(KeyValues *target, KeyValues &holder)
{
	KeyValues *first = holder.m_pSub;
	KeyValues *rest = first->m_pPeer;
	holder.m_pSub = nullptr;
	first->m_pPeer = nullptr;

	target->DeleteSubKeys();
	target->ClearValue();
	target->m_Name = std::move(first->m_Name);
	target->m_Condition = std::move(first->m_Condition);
	target->m_eType = first->m_eType;
	target->m_String = std::move(first->m_String);
	target->m_pSub = first->m_pSub;
	first->m_pSub = nullptr;
	delete first;

	// The further top-level keys become peers. A node that sits in another node's subkeys
	// gets them after it in that list, which then owns them.
	if (target->m_bOwnsPeers)
	{
		DeleteChain(target->m_pPeer);
		target->m_pPeer = nullptr;
		target->m_bOwnsPeers = false;
	}
	if (!rest)
		return;
	if (!target->m_pPeer)
	{
		target->m_pPeer = rest;
		target->m_bOwnsPeers = true;
		return;
	}
	KeyValues *last = rest;
	while (last->m_pPeer)
		last = last->m_pPeer;
	last->m_pPeer = target->m_pPeer;
	target->m_pPeer = rest;
}

bool KeyValues::Impl::Load(KeyValues *target, const char *resourceName, const char *text, size_t length, IBaseFileSystem *fs,
	const char *pathID, const KV1LoadOptions_t &options, CUtlString *pError, KV1ParseError_t *pDetail)
{
	Load_t load{ fs ? fs : CoreFileSystem(), pathID, options, {}, {}, 0, 0, {} };
	const CUtlString file = resourceName && *resourceName ? resourceName : "<text>";
	load.openFiles.push_back(V_NormalizePath(file));
	if (V_IsAbsolutePath(file))
		load.rootFolder = DirectoryOf(file);
	KeyValues holder("");
	bool ok;
	{
		Impl reader(load, file);
		ok = reader.Read(text ? text : "", text ? length : 0, holder);
		if (ok && !holder.m_pSub)
			ok = reader.Fail(reader.m_pEnd, "The text holds no key");
	}
	if (!ok)
	{
		if (load.error.message.empty())
			load.error = { file, 0, 0, "the text cannot be read" };
		if (pError)
			*pError = FormatError(load.error);
		if (pDetail)
			*pDetail = load.error;
		return false;
	}
	Adopt(target, holder);
	return true;
}

// ---------------------------------------------------------------------------------------------
// Writing

void KeyValues::Impl::WriteQuoted(CUtlBuffer &buffer, std::string_view text)
{
	buffer.PutChar('"');
	size_t run = 0;
	for (size_t i = 0; i < text.size(); ++i)
	{
		const char c = text[i];
		const char *escape = c == '\\' ? "\\\\" : c == '"' ? "\\\"" : c == '\n' ? "\\n" : c == '\t' ? "\\t" : nullptr;
		if (!escape)
			continue;
		buffer.Put(text.data() + run, i - run);
		buffer.Put(escape, 2);
		run = i + 1;
	}
	buffer.Put(text.data() + run, text.size() - run);
	buffer.PutChar('"');
}

void KeyValues::Impl::WriteIndent(CUtlBuffer &buffer, int level)
{
	static const char tabs[] = "\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t";
	while (level > 0)
	{
		const int count = level < 16 ? level : 16;
		buffer.Put(tabs, (size_t)count);
		level -= count;
	}
}

void KeyValues::Impl::WriteKeyLine(CUtlBuffer &buffer, const KeyValues *node, int level)
{
	WriteIndent(buffer, level);
	WriteQuoted(buffer, node->m_Name);
	if (node->m_eType != TYPE_NONE)
	{
		CUtlString scratch;
		buffer.Put("\t\t", 2);
		WriteQuoted(buffer, node->ValueText(scratch));
	}
	if (!node->m_Condition.empty())
	{
		buffer.PutString(" [");
		buffer.PutString(node->m_Condition);
		buffer.PutChar(']');
	}
	buffer.PutChar('\n');
	if (node->m_eType == TYPE_NONE)
	{
		WriteIndent(buffer, level);
		buffer.Put("{\n", 2);
	}
}

void KeyValues::Impl::WriteTree(CUtlBuffer &buffer, const KeyValues *root, int level)
{
	if (level < 0)
		level = 0;
	WriteKeyLine(buffer, root, level);
	if (root->m_eType != TYPE_NONE)
		return;
	// Each entry is an open block: the next subkey to write and the block's indentation.
	std::vector<std::pair<const KeyValues *, int>> open{ { root->m_pSub, level } };
	while (!open.empty())
	{
		auto &[next, blockLevel] = open.back();
		if (!next)
		{
			WriteIndent(buffer, blockLevel);
			buffer.Put("}\n", 2);
			open.pop_back();
			continue;
		}
		const KeyValues *node = next;
		const int nodeLevel = blockLevel + 1;
		next = node->m_pPeer;
		WriteKeyLine(buffer, node, nodeLevel);
		if (node->m_eType == TYPE_NONE)
			open.emplace_back(node->m_pSub, nodeLevel);
	}
}

// ---------------------------------------------------------------------------------------------
// The public entry points

bool KeyValues::LoadFromBuffer(const char *resourceName, const char *text, size_t length, IBaseFileSystem *fs,
	const char *pathID, const KV1LoadOptions_t &options, CUtlString *pError, KV1ParseError_t *pDetail)
{
	return Impl::Load(this, resourceName, text, length, fs, pathID, options, pError, pDetail);
}

bool KeyValues::LoadFromBuffer(const char *resourceName, const CUtlBuffer &buffer, IBaseFileSystem *fs,
	const char *pathID, const KV1LoadOptions_t &options, CUtlString *pError, KV1ParseError_t *pDetail)
{
	return Impl::Load(this, resourceName, buffer.Base(), buffer.Size(), fs, pathID, options, pError, pDetail);
}

bool KeyValues::LoadFromFile(IBaseFileSystem *fs, const char *path, const char *pathID, const KV1LoadOptions_t &options,
	CUtlString *pError, KV1ParseError_t *pDetail)
{
	if (!fs)
		fs = CoreFileSystem();
	const char *file = path ? path : "";
	CUtlBuffer buffer(CUtlBuffer::TEXT_BUFFER);
	CUtlString readError;
	if (!path || !*path || !fs->ReadFile(path, pathID, buffer, &readError))
	{
		KV1ParseError_t error{ file, 0, 0, readError.empty() ? CUtlString("cannot read the file") : readError };
		if (pError)
			*pError = FormatError(error);
		if (pDetail)
			*pDetail = error;
		return false;
	}
	return Impl::Load(this, path, buffer.Base(), buffer.Size(), fs, pathID, options, pError, pDetail);
}

bool KeyValues::SaveToFile(IBaseFileSystem *fs, const char *path, const char *pathID, CUtlString *pError)
{
	if (!path || !*path)
	{
		if (pError)
			*pError = "KeyValues::SaveToFile: no file name";
		return false;
	}
	CUtlBuffer buffer(CUtlBuffer::TEXT_BUFFER);
	SaveToBuffer(buffer);
	return (fs ? fs : CoreFileSystem())->WriteFile(path, pathID, buffer, pError);
}

void KeyValues::RecursiveSaveToFile(CUtlBuffer &buffer, int indentLevel) const
{
	Impl::WriteTree(buffer, this, indentLevel);
}

void KeyValues::SaveToBuffer(CUtlBuffer &buffer) const
{
	RecursiveSaveToFile(buffer, 0);
	if (!m_bOwnsPeers)
		return;
	for (const KeyValues *peer = m_pPeer; peer; peer = peer->m_pPeer)
		peer->RecursiveSaveToFile(buffer, 0);
}
