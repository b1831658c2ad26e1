#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

// The old engine's query language on SQLite: the system keeps its query texts exactly as they
// were written for the old engine, and this translation is the one place that knows the
// differences.
namespace tolma::store::jet {

enum class TokenKind { Space, Word, Bracketed, String, DoubleQuoted, Number, Punct, Param };

struct Token {
    TokenKind kind;
    std::string text;
};

// SQLite's tokens of a generated text, for looking at its names.
std::vector<Token> tokenize(std::string_view sql);

// What the translation needs to know of a store: its key columns, those its indexes hold. Keys
// are digits, so comparing them by the column's own collation answers exactly as the German
// comparison would, and keeps look-ups and lists on their indexes.
struct Catalog {
    std::unordered_set<std::string> keyColumns;  // folded names
    // On a server: the names of columns that hold numbers in every table that has them, which
    // are compared and sorted as numbers, not as German text.
    std::unordered_set<std::string> numberColumns;
    std::string fingerprint;  // tells catalogs apart among the cached shapes
    std::size_t id = 0;       // the fingerprint's hash, for the shapes' keys
    // The store is on a PostgreSQL server: texts are generated in its SQL (the fingerprint says
    // so too, so that the two kinds never share a shape).
    bool server = false;
    bool isKey(std::string_view column) const;
    bool isNumber(std::string_view column) const;
};

// SQLite's text for a statement or a condition of the old engine's language, generated from its
// syntax tree, with the values written into it as SQLite literals. Statements other than
// SELECT, INSERT, UPDATE and DELETE pass as they are. A syntax error raises error 3075 with the
// text as written and the position.
std::string translate(std::string_view jetSql, const Catalog* catalog = nullptr);

// The one table qualifier that every column name of a condition carries ("betrieb" in
// "betrieb.[b-eintr-name] LIKE 'M*'"); empty when a name is bare or two tables are named.
std::string soleQualifier(std::string_view condition);

// A base table named in a FROM clause, with the name by which its row id is reached.
struct TableRef {
    std::string name;       // as written, brackets removed
    std::string qualifier;  // alias, or the name as written
    std::string source;     // as it stands in the translated FROM, its alias included
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
    std::vector<std::string> joinConditions;  // the translated ON of each join

    // Rows of such a query can be told by the row ids of its base tables.
    bool keyable() const {
        return isSelect && !distinct && !aggregate && !outerJoin && !derivedTable &&
               !tables.empty();
    }
};

// The parts of a SELECT written in the old engine's language.
SelectParts parseSelect(std::string_view jetSql, const Catalog* catalog = nullptr);

// A query text with its values taken out: texts that differ only in their values share one
// shape, which is translated and parsed once and prepared once per connection.
struct Shape {
    std::string sql;                   // generated, with the values as ?1, ?2, ...
    std::vector<bool> numeric;         // per value: bound as a number
    SelectParts parts;                 // when the text is a SELECT
    std::vector<std::string> numbers;  // the text's numbers, bound behind its texts and dates
};
struct Prepared {
    std::shared_ptr<const Shape> shape;
    std::vector<std::string> values;  // texts and dates, then numbers
};
Prepared prepare(std::string_view jetSql, const Catalog* catalog = nullptr);

// A source that is a bare table name (optionally bracketed); empty if the source is a query.
std::string bareTableName(std::string_view source);

// The one way a value goes into a query text: as a quoted literal with its apostrophes
// doubled, so that no value can break or change the text it stands in. Where the engine runs
// the text, the literal becomes a bound parameter again.
std::string quote(std::string_view value);
// The one way a table or column name goes into a SQLite text of the program's own: in double
// quotes, with its double quotes doubled.
std::string quoteName(std::string_view name);

// The old engine's LIKE: "*", "?", "#" and [lists], without regard to case, umlauts included.
bool likeMatch(std::string_view pattern, std::string_view text);

}  // namespace tolma::store::jet
