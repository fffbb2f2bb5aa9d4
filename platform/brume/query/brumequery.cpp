#include "brume/query/brumequery.h"

#include <cctype>
#include <cstdlib>

#include "core/strtools.h"

struct CBrumeQuery::Node_t
{
	enum Kind_t
	{
		ALL,		// *:*
		NOT,		// children[0]
		AND,		// every child
		OR,			// any child
		FILETYPE,	// text: the number
		TAGS,		// text: the tag, or its prefix when bPrefix
		KVTAGS,		// text: "key:value", or its prefix
	};
	Kind_t kind = ALL;
	std::string text;
	bool bPrefix = false;
	uint32 nNumber = 0;
	std::vector<std::unique_ptr<Node_t>> children;
};

namespace
{
using Node_t = CBrumeQuery::Node_t;

enum TokenKind_t
{
	TOK_END,
	TOK_OPEN,
	TOK_CLOSE,
	TOK_AND,
	TOK_OR,
	TOK_NOT,
	TOK_ALL,   // *:*
	TOK_FIELD, // name followed by ':'
	TOK_TERM,
};

struct Token_t
{
	TokenKind_t kind = TOK_END;
	std::string text;
	bool bPrefix = false;
	size_t position = 0; // byte offset from 1
};

// Any byte but blanks, parentheses and quotes belongs to a word (a NUL byte too, so that every
// step of the tokenizer moves on).
bool IsWordByte(char c)
{
	return !std::isspace((unsigned char)c) && c != '(' && c != ')' && c != '"';
}

// Splits the query into tokens; false with the message on a bad quote.
bool Tokenize(const std::string &text, std::vector<Token_t> &tokens, std::string &error)
{
	size_t i = 0;
	while (true)
	{
		while (i < text.size() && std::isspace((unsigned char)text[i]))
			++i;
		Token_t token;
		token.position = i + 1;
		if (i >= text.size())
		{
			tokens.push_back(token);
			return true;
		}
		const char c = text[i];
		if (c == '(' || c == ')')
		{
			token.kind = c == '(' ? TOK_OPEN : TOK_CLOSE;
			++i;
		}
		else if (c == '"')
		{
			token.kind = TOK_TERM;
			++i;
			bool bClosed = false;
			while (i < text.size())
			{
				if (text[i] == '\\' && i + 1 < text.size())
				{
					token.text += text[i + 1];
					i += 2;
					continue;
				}
				if (text[i] == '"')
				{
					bClosed = true;
					++i;
					break;
				}
				token.text += text[i++];
			}
			if (!bClosed)
			{
				error = V_Format("at %zu: the quoted term has no closing '\"'", token.position);
				return false;
			}
			if (i < text.size() && text[i] == '*')
			{
				token.bPrefix = true;
				++i;
			}
		}
		else
		{
			size_t end = i;
			while (end < text.size() && IsWordByte(text[end]))
			{
				// A field name ends at its colon: "tags:(" or "kvtags:status*".
				if (text[end] == ':' && end > i && text.compare(i, 3, "*:*") != 0)
					break;
				++end;
			}
			std::string word = text.substr(i, end - i);
			if (word == "*:*")
				token.kind = TOK_ALL;
			else if (end < text.size() && text[end] == ':')
			{
				token.kind = TOK_FIELD;
				token.text = word;
				++end;
			}
			else if (word == "AND")
				token.kind = TOK_AND;
			else if (word == "OR")
				token.kind = TOK_OR;
			else if (word == "NOT")
				token.kind = TOK_NOT;
			else
			{
				token.kind = TOK_TERM;
				if (word.size() > 1 && word.back() == '*')
				{
					token.bPrefix = true;
					word.pop_back();
				}
				token.text = word;
			}
			i = end;
		}
		tokens.push_back(std::move(token));
	}
}

class CParser
{
public:
	CParser(const std::vector<Token_t> &tokens, std::string &error) : m_Tokens(tokens), m_Error(error) {}

	std::unique_ptr<Node_t> ParseQuery()
	{
		std::unique_ptr<Node_t> node = ParseOr(nullptr);
		if (node && Peek().kind != TOK_END)
			return Fail(Peek().kind == TOK_CLOSE ? "')' without '('" : "unexpected text");
		return node;
	}

private:
	const Token_t &Peek() const { return m_Tokens[m_nNext]; }
	const Token_t &Take() { return m_Tokens[m_nNext < m_Tokens.size() - 1 ? m_nNext++ : m_nNext]; }

	std::unique_ptr<Node_t> Fail(const char *what)
	{
		if (m_Error.empty())
			m_Error = V_Format("at %zu: %s", Peek().position, what);
		return nullptr;
	}

	// The field the terms belong to; null at the top level.
	std::unique_ptr<Node_t> ParseOr(const Token_t *field)
	{
		std::unique_ptr<Node_t> first = ParseAnd(field);
		if (!first || Peek().kind != TOK_OR)
			return first;
		auto node = std::make_unique<Node_t>();
		node->kind = Node_t::OR;
		node->children.push_back(std::move(first));
		while (Peek().kind == TOK_OR)
		{
			Take();
			std::unique_ptr<Node_t> next = ParseAnd(field);
			if (!next)
				return nullptr;
			node->children.push_back(std::move(next));
		}
		return node;
	}

	static bool StartsOperand(TokenKind_t kind)
	{
		return kind == TOK_OPEN || kind == TOK_ALL || kind == TOK_FIELD || kind == TOK_TERM || kind == TOK_NOT;
	}

	std::unique_ptr<Node_t> ParseAnd(const Token_t *field)
	{
		std::unique_ptr<Node_t> first = ParseUnary(field);
		if (!first)
			return nullptr;
		std::unique_ptr<Node_t> node;
		while (true)
		{
			const TokenKind_t kind = Peek().kind;
			bool bNegate = false;
			if (kind == TOK_AND)
				Take();
			else if (kind == TOK_NOT)
			{
				Take();
				bNegate = true;
			}
			else if (!StartsOperand(kind))
				break;
			std::unique_ptr<Node_t> next = ParseUnary(field);
			if (!next)
				return nullptr;
			if (bNegate)
				next = Negate(std::move(next));
			if (!node)
			{
				node = std::make_unique<Node_t>();
				node->kind = Node_t::AND;
				node->children.push_back(std::move(first));
			}
			node->children.push_back(std::move(next));
		}
		return node ? std::move(node) : std::move(first);
	}

	static std::unique_ptr<Node_t> Negate(std::unique_ptr<Node_t> inner)
	{
		auto node = std::make_unique<Node_t>();
		node->kind = Node_t::NOT;
		node->children.push_back(std::move(inner));
		return node;
	}

	std::unique_ptr<Node_t> ParseUnary(const Token_t *field)
	{
		if (++m_nDepth > BRUME_QUERY_MAX_DEPTH)
			return Fail("the query is nested too deeply");
		std::unique_ptr<Node_t> node = ParseUnaryInner(field);
		--m_nDepth;
		return node;
	}

	std::unique_ptr<Node_t> ParseUnaryInner(const Token_t *field)
	{
		const Token_t &token = Peek();
		switch (token.kind)
		{
		case TOK_NOT:
		{
			Take();
			std::unique_ptr<Node_t> inner = ParseUnary(field);
			return inner ? Negate(std::move(inner)) : nullptr;
		}
		case TOK_OPEN:
		{
			Take();
			std::unique_ptr<Node_t> inner = ParseOr(field);
			if (!inner)
				return nullptr;
			if (Peek().kind != TOK_CLOSE)
				return Fail("expected ')'");
			Take();
			return inner;
		}
		case TOK_ALL:
		{
			if (field)
				return Fail("'*:*' inside a field's values");
			Take();
			return std::make_unique<Node_t>();
		}
		case TOK_FIELD:
		{
			if (field)
				return Fail("a field inside a field's values");
			const Token_t &name = Take();
			if (name.text != "filetype" && name.text != "tags" && name.text != "kvtags")
			{
				m_Error = V_Format("at %zu: unknown field '%s'", name.position, name.text.c_str());
				return nullptr;
			}
			if (Peek().kind == TOK_OPEN)
				return ParseUnary(&name);
			if (Peek().kind != TOK_TERM)
				return Fail("expected a value after the field");
			return MakeTerm(name, Take());
		}
		case TOK_TERM:
			if (!field)
				return Fail("a term without a field");
			return MakeTerm(*field, Take());
		case TOK_END:
			return Fail("the query ends too early");
		default:
			return Fail(token.kind == TOK_CLOSE ? "unexpected ')'" : "unexpected operator");
		}
	}

	std::unique_ptr<Node_t> MakeTerm(const Token_t &field, const Token_t &term)
	{
		auto node = std::make_unique<Node_t>();
		node->text = term.text;
		node->bPrefix = term.bPrefix;
		if (field.text == "filetype")
		{
			node->kind = Node_t::FILETYPE;
			char *end = nullptr;
			const unsigned long value = term.text.empty() ? 0 : strtoul(term.text.c_str(), &end, 10);
			if (term.text.empty() || term.bPrefix || *end || value > 0xFFFFFFFFul || !std::isdigit((unsigned char)term.text[0]))
			{
				m_Error = V_Format("at %zu: a file type must be a number, not '%s'", term.position, term.text.c_str());
				return nullptr;
			}
			node->nNumber = (uint32)value;
		}
		else
			node->kind = field.text == "tags" ? Node_t::TAGS : Node_t::KVTAGS;
		return node;
	}

	const std::vector<Token_t> &m_Tokens;
	std::string &m_Error;
	size_t m_nNext = 0;
	int m_nDepth = 0;
};

bool TextMatches(const Node_t &node, const std::string &value)
{
	if (node.bPrefix)
		return value.compare(0, node.text.size(), node.text) == 0;
	return value == node.text;
}

bool Evaluate(const Node_t &node, const BrumeQueryRecord_t &record)
{
	switch (node.kind)
	{
	case Node_t::ALL:
		return true;
	case Node_t::NOT:
		return !Evaluate(*node.children[0], record);
	case Node_t::AND:
		for (const auto &child : node.children)
		{
			if (!Evaluate(*child, record))
				return false;
		}
		return true;
	case Node_t::OR:
		for (const auto &child : node.children)
		{
			if (Evaluate(*child, record))
				return true;
		}
		return false;
	case Node_t::FILETYPE:
		return record.m_nFileType == node.nNumber;
	case Node_t::TAGS:
		for (const std::string &tag : record.m_Tags)
		{
			if (TextMatches(node, tag))
				return true;
		}
		return false;
	case Node_t::KVTAGS:
		for (const auto &pair : record.m_KeyValueTags)
		{
			if (TextMatches(node, pair.first + ":" + pair.second))
				return true;
		}
		return false;
	}
	return false;
}

std::string Lower(const std::string &text)
{
	std::string out = text;
	for (char &c : out)
		c = (char)std::tolower((unsigned char)c);
	return out;
}
} // namespace

CBrumeQuery::CBrumeQuery() = default;
CBrumeQuery::~CBrumeQuery() = default;
CBrumeQuery::CBrumeQuery(CBrumeQuery &&) noexcept = default;
CBrumeQuery &CBrumeQuery::operator=(CBrumeQuery &&) noexcept = default;

bool CBrumeQuery::Parse(const std::string &text, std::string &error)
{
	m_pRoot.reset();
	error.clear();
	if (text.size() > BRUME_QUERY_MAX_LENGTH)
	{
		error = V_Format("the query is %zu bytes long; at most %d are taken", text.size(), (int)BRUME_QUERY_MAX_LENGTH);
		return false;
	}
	std::vector<Token_t> tokens;
	if (!Tokenize(text, tokens, error))
		return false;
	CParser parser(tokens, error);
	std::unique_ptr<Node_t> root = parser.ParseQuery();
	if (!root)
	{
		if (error.empty())
			error = "the query could not be read";
		return false;
	}
	m_pRoot = std::move(root);
	return true;
}

bool CBrumeQuery::Matches(const BrumeQueryRecord_t &record) const
{
	return m_pRoot && Evaluate(*m_pRoot, record);
}

void CBrumeSearch::SetSearchText(const std::string &text)
{
	m_SearchWords.clear();
	std::string word;
	for (size_t i = 0; i <= text.size(); ++i)
	{
		if (i == text.size() || std::isspace((unsigned char)text[i]))
		{
			if (!word.empty())
				m_SearchWords.push_back(Lower(word));
			word.clear();
		}
		else
			word += text[i];
	}
}

bool CBrumeSearch::AddFilterQuery(const std::string &text, std::string &error)
{
	CBrumeQuery query;
	if (!query.Parse(text, error))
		return false;
	m_Filters.push_back(std::move(query));
	return true;
}

bool CBrumeSearch::Matches(const BrumeQueryRecord_t &record) const
{
	if (!m_SearchWords.empty())
	{
		const std::string title = Lower(record.m_sTitle), description = Lower(record.m_sDescription);
		for (const std::string &word : m_SearchWords)
		{
			if (title.find(word) == std::string::npos && description.find(word) == std::string::npos)
				return false;
		}
	}
	for (const CBrumeQuery &filter : m_Filters)
	{
		if (!filter.Matches(record))
			return false;
	}
	return true;
}
