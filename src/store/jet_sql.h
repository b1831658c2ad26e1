#pragma once

#include <string>
#include <string_view>
#include <vector>

// The old engine's query language on SQLite: the system keeps its query texts exactly as they
// were written for the old engine, and this translation is the one place that knows the
// differences.
namespace tolma::store::jet {

enum class TokenKind { Space, Word, Bracketed, String, DoubleQuoted, Number, Punct };

struct Token {
    TokenKind kind;
    std::string text;
};

std::vector<Token> tokenize(std::string_view sql);

// Rewrites a statement or a condition for SQLite: DISTINCTROW dropped, True/False as -1/0,
// double-quoted texts as string literals, "&" as "||", a quoted number compared with a
// numeric function such as Len() read as a number, and a trailing ";" removed.
std::string translate(std::string_view jetSql);

// A translated text with its string literals taken out as parameters ?1, ?2, ..., so that
// texts that differ only in their values share one prepared statement.
struct Parameterized {
    std::string sql;
    std::vector<std::string> values;
};
Parameterized parameterize(std::string_view translatedSql);
// translate() and parameterize() in one; a plain criterion such as "[a] = 'x' AND [b] = 'y'"
// takes a fast path, as the import runs many thousands of them.
Parameterized translateAndParameterize(std::string_view jetSql);

// A base table named in a FROM clause, with the name by which its row id is reached.
struct TableRef {
    std::string name;       // as written, brackets removed
    std::string qualifier;  // alias, or the name as written
};

// The parts of a plain SELECT, taken from a translated text at the top nesting level.
struct SelectParts {
    bool isSelect = false;
    bool distinct = false;
    bool aggregate = false;  // GROUP BY, HAVING, an aggregate function or a set operation
    bool outerJoin = false;
    bool derivedTable = false;  // a sub-select in FROM
    std::string selectList;
    std::string from;
    std::string where;
    std::string orderBy;
    std::vector<TableRef> tables;

    // Rows of such a query can be told by the row ids of its base tables.
    bool keyable() const { return isSelect && !distinct && !aggregate && !outerJoin && !derivedTable && !tables.empty(); }
};

SelectParts parseSelect(std::string_view translatedSql);

// A source that is a bare table name (optionally bracketed); empty if the source is a query.
std::string bareTableName(std::string_view source);

// The old engine's LIKE: "*", "?", "#" and [lists], without regard to case, umlauts included.
bool likeMatch(std::string_view pattern, std::string_view text);

// Length in characters of a UTF-8 text.
long long utf8Length(std::string_view text);

// Case folding of the old engine's comparisons for one UTF-8 text (ASCII and Latin-1 letters).
std::string foldCase(std::string_view text);

}  // namespace tolma::store::jet
