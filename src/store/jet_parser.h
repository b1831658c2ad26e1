#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "store/jet_lexer.h"

// The old engine's query language as a small syntax tree: the words of the system's query texts
// and of what a user types into `tolma-cli sql`, read once, so that SQLite's text can be
// generated from what the text means rather than from its tokens.
namespace tolma::store::jet::ast {

enum class ExprKind {
    Value,   // a text or date from the query text, bound as parameter `value`
    Number,  // a number as written
    Null,
    Column,    // [qualifier.]name
    Star,      // * in Count(*)
    Unary,     // op: "-", "+", "NOT"
    Binary,    // op: "AND", "OR", "=", "<>", "<", ">", "<=", ">=", "&", "+", "-", "*", "/", "\",
               // "MOD", "^"
    Like,      // args: value, pattern; negated
    In,        // args: value, list... or sub; negated
    Between,   // args: value, low, high; negated
    IsNull,    // args: value; negated
    Call,      // op: function name in capitals; args
    Subquery,  // sub
    Exists,    // sub
};

struct Select;

struct Expr {
    ExprKind kind;
    std::string op;
    std::string name, qualifier;  // a column's
    std::string number;           // a Number's text
    int value = 0;                // a Value's index among the text's values
    bool negated = false;
    std::vector<std::shared_ptr<Expr>> args;
    std::shared_ptr<Select> sub;
    size_t begin = 0, end = 0;  // where it stands in the text as written
    int depth = 1;              // how far a walk of it descends
};
using ExprPtr = std::shared_ptr<Expr>;

struct SelectItem {
    ExprPtr expr;           // null for * and table.*
    std::string qualifier;  // of table.*
    std::string alias;
    std::string written;  // the item as written, the name of an unnamed expression
};

struct TableSource {
    enum class Kind { Table, Join, Derived } kind = Kind::Table;
    std::string name, alias;                   // Table, Derived (alias)
    std::string join;                          // Join: "INNER", "LEFT", "RIGHT"
    std::shared_ptr<TableSource> left, right;  // Join
    ExprPtr on;                                // Join
    std::shared_ptr<Select> sub;               // Derived
};
using SourcePtr = std::shared_ptr<TableSource>;

struct OrderItem {
    ExprPtr expr;
    bool descending = false;
};

struct Select {
    bool distinct = false;
    std::string top;  // TOP n, as written
    std::vector<SelectItem> items;
    std::vector<SourcePtr> from;
    ExprPtr where, having;
    std::vector<ExprPtr> groupBy;
    std::vector<OrderItem> orderBy;  // of the whole, behind the last UNION
    struct Union {
        bool all = false;
        std::shared_ptr<Select> select;
    };
    std::vector<Union> unions;
};

struct Statement {
    enum class Kind { Select, Insert, Update, Delete, Condition, Other } kind = Kind::Other;
    std::shared_ptr<Select> select;    // Select; Insert ... SELECT
    std::string table;                 // Insert, Update, Delete
    std::vector<std::string> columns;  // Insert, Update
    std::vector<ExprPtr> values;       // Insert VALUES, Update SET
    ExprPtr where;                     // Update, Delete; Condition: the condition
};

// Reads a whole statement, or (when `condition`) a condition such as a find criterion. Other
// statements (CREATE, PRAGMA, ...) come back as Kind::Other for SQLite to read as they are.
// A syntax error raises the engine's error with the text as written and the position.
Statement parse(std::string_view text, const std::vector<Token>& tokens, bool condition);

}  // namespace tolma::store::jet::ast
