#include "store/jet_generator.h"

#include <algorithm>
#include <cctype>
#include <functional>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "store/german_text.h"
#include "text/text.h"

namespace tolma::store::jet {
namespace {

using ast::Expr;
using ast::ExprKind;

enum class Type { Unknown, Number, Text, Null };

struct Out {
    std::string sql;
    Type type = Type::Unknown;
    bool key = false;    // a plain reference to a key column: compared by its own collation
    bool truth = false;  // a condition: the server's truth value, a number in the embedded store
};

std::string bracket(const std::string& name) {
    return "[" + name + "]";
}

// How a table is named before ".rowid": bare where SQLite reads it so, as the recordsets and
// their finds compare the qualifiers of a query with those of a condition.
std::string qualifier(const std::string& name) {
    const bool plain =
        !name.empty() && (std::isalpha(static_cast<unsigned char>(name[0])) || name[0] == '_') &&
        std::all_of(name.begin(), name.end(),
                    [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; });
    return plain ? name : bracket(name);
}

// A name for SQLite that may hold any character: an expression's text as its column name.
std::string quotedName(const std::string& name) {
    std::string q = "\"";
    for (char c : name) q += c == '"' ? std::string("\"\"") : std::string(1, c);
    return q + "\"";
}

bool isOneOf(const std::string& u, std::initializer_list<const char*> words) {
    for (const char* w : words)
        if (u == w) return true;
    return false;
}

bool isAggregate(const std::string& f) {
    return isOneOf(f, {"COUNT", "SUM", "AVG", "MIN", "MAX", "FIRST", "LAST", "STDEV", "VAR"});
}

class Generator {
  public:
    Generator(const Catalog* catalog, int values)
        : catalog_(catalog),
          server_(catalog && catalog->server),
          values_(values),
          numeric_(static_cast<size_t>(values)) {}

    Generated statement(const ast::Statement& s) {
        Generated g;
        switch (s.kind) {
            case ast::Statement::Kind::Select:
                g.sql = select(*s.select, &g.parts);
                break;
            case ast::Statement::Kind::Condition:
                g.sql = condition(expr(*s.where));
                break;
            case ast::Statement::Kind::Insert: {
                g.sql = "INSERT INTO " + ident(s.table);
                if (!s.columns.empty()) {
                    g.sql += " (";
                    for (size_t i = 0; i < s.columns.size(); ++i)
                        g.sql += (i ? ", " : "") + ident(s.columns[i]);
                    g.sql += ")";
                }
                if (s.select) {
                    g.sql += " " + select(*s.select, nullptr);
                } else {
                    g.sql += " VALUES (";
                    for (size_t i = 0; i < s.values.size(); ++i)
                        g.sql += (i ? ", " : "") + expr(*s.values[i]).sql;
                    g.sql += ")";
                }
                break;
            }
            case ast::Statement::Kind::Update:
                g.sql = "UPDATE " + ident(s.table) + " SET ";
                for (size_t i = 0; i < s.columns.size(); ++i)
                    g.sql += (i ? ", " : "") + ident(s.columns[i]) + " = " + expr(*s.values[i]).sql;
                if (s.where) g.sql += " WHERE " + condition(expr(*s.where));
                break;
            case ast::Statement::Kind::Delete:
                g.sql = "DELETE FROM " + ident(s.table);
                if (s.where) g.sql += " WHERE " + condition(expr(*s.where));
                break;
            case ast::Statement::Kind::Other:
                break;
        }
        g.numeric = numeric_;
        g.numbers = numbers_;
        g.valuesInNames = valuesInNames_;
        return g;
    }

  private:
    // ---- names ---------------------------------------------------------------------------
    // A name of a table, column or alias. The server's names are folded to lower case, as its
    // tables were made, but for aliases the statement gives itself, which keep their spelling.
    std::string ident(const std::string& name) const {
        if (!server_) return bracket(name);
        std::string lower = text::lowerAscii(name);
        if (auto it = aliases_.find(lower); it != aliases_.end()) lower = it->second;
        std::string q = "\"";
        for (char c : lower) q += c == '"' ? std::string("\"\"") : std::string(1, c);
        return q + "\"";
    }
    std::string tableQualifier(const std::string& name) const {
        return server_ ? ident(name) : qualifier(name);
    }
    std::string param(int n) const { return (server_ ? "$" : "?") + std::to_string(n); }

    // ---- values --------------------------------------------------------------------------
    std::string number(const std::string& written) {
        // The server takes a number as written, so that a grouping and its select list read
        // the same; the shape of a text keeps its numbers, so nothing else is lost.
        if (server_) return written.starts_with("-") ? "(" + written + ")" : written;
        numbers_.push_back(written);
        numeric_.push_back(true);
        return param(values_ + static_cast<int>(numbers_.size()));
    }
    // The old engine reads a quoted number compared with a number as a number.
    void readAsNumber(const Expr& e) {
        if (e.kind == ExprKind::Value) numeric_[static_cast<size_t>(e.value)] = true;
    }
    bool isKeyColumn(const Expr& e) const {
        return e.kind == ExprKind::Column && catalog_ && catalog_->isKey(e.name);
    }
    // Text is compared as the old engine compared it, except where a key column takes part.
    std::string german(const Out& o) const {
        if (server_) return "tolma_fold(" + o.sql + ")";
        return "(" + o.sql + ") COLLATE " + german::kCollation;
    }
    // The server weighs the letters first, then the marks, as the embedded store's collation.
    static std::string serverOrder(const std::string& sql) {
        return "ROW(tolma_primary(" + sql + ") COLLATE \"C\", tolma_fold(" + sql +
               ") COLLATE \"C\")";
    }

    // A condition of the server from a number, which the old engine takes as true unless 0.
    std::string condition(const Out& o) const {
        return server_ && !o.truth && o.type == Type::Number ? "(" + o.sql + " <> 0)" : o.sql;
    }
    // A quoted value beside a number that is no column: one that reads as a number is that
    // number; any other text stands above every number, as in the embedded store.
    static std::string numberOrAbove(const std::string& value) {
        return "(CASE WHEN " + value +
               " ~ '^ *[-+]?([0-9]+[.]?[0-9]*|[.][0-9]+)([eE][-+]?[0-9]+)? *$' THEN CAST(" + value +
               " AS double precision) ELSE 'Infinity' END)";
    }

    // ---- expressions ---------------------------------------------------------------------
    // Within a grouping by text on the server, the text itself is the first of its group's.
    Out expr(const Expr& e) {
        Out o = exprOf(e);
        if (wrapGroups_ && aggregateDepth_ == 0 && foldedGroups_.count(o.sql))
            o.sql = "min(" + o.sql + ")";
        return o;
    }

    Out exprOf(const Expr& e) {
        switch (e.kind) {
            case ExprKind::Value:
                return {param(e.value + 1), Type::Text};
            case ExprKind::Number:
                return {number(e.number), Type::Number};
            case ExprKind::Null:
                return {"NULL", Type::Null};
            case ExprKind::Column:
                return {(e.qualifier.empty() ? "" : ident(e.qualifier) + ".") + ident(e.name),
                        server_ && catalog_->isNumber(e.name) ? Type::Number : Type::Unknown,
                        isKeyColumn(e)};
            case ExprKind::Star:
                return {"*", Type::Unknown};
            case ExprKind::Unary: {
                Out a = expr(*e.args[0]);
                if (e.op == "NOT") {
                    if (server_ && !a.truth && a.type == Type::Number)
                        return {"(" + a.sql + " = 0)", Type::Number, false, true};
                    return {"(NOT " + a.sql + ")", Type::Number, false, true};
                }
                // A plus keeps its operand as it is: it only keeps SQLite off an index.
                // The server takes no plus before a text and plans by itself.
                if (e.op == "+") return {server_ ? a.sql : "+" + a.sql, a.type};
                return {"(-" + a.sql + ")", Type::Number};
            }
            case ExprKind::Binary:
                return binary(e);
            case ExprKind::Like: {
                const Out a = expr(*e.args[0]), p = expr(*e.args[1]);
                if (server_)
                    return {std::string("(") + (e.negated ? "NOT " : "") + "tolma_like(" + a.sql +
                                ", " + p.sql + "))",
                            Type::Number, false, true};
                return {"(" + a.sql + (e.negated ? " NOT LIKE " : " LIKE ") + p.sql + ")",
                        Type::Number, false, true};
            }
            case ExprKind::In: {
                const Out a = expr(*e.args[0]);
                std::string list;
                bool numeric = a.type == Type::Number;
                std::vector<std::string> items;
                if (e.sub) {
                    list = select(*e.sub, nullptr);
                } else {
                    for (size_t i = 1; i < e.args.size(); ++i) {
                        if (a.type == Type::Number) readAsNumber(*e.args[i]);
                        const Out item = expr(*e.args[i]);
                        numeric = numeric || item.type == Type::Number;
                        items.push_back(item.sql);
                        list += (i > 1 ? ", " : "") + item.sql;
                    }
                }
                if (server_ && !numeric && !a.key) {
                    // Both sides folded: the server has no collation that compares so.
                    if (e.sub) {
                        list = "SELECT tolma_fold(CAST(s.c AS text)) FROM (" + list + ") AS s(c)";
                    } else {
                        list.clear();
                        for (const auto& item : items)
                            list += (list.empty() ? "" : ", ") + german({item, Type::Text});
                    }
                }
                const std::string left = numeric || a.key ? a.sql : german(a);
                return {"(" + left + (e.negated ? " NOT IN (" : " IN (") + list + "))",
                        Type::Number, false, true};
            }
            case ExprKind::Between: {
                const Out a = expr(*e.args[0]);
                if (a.type == Type::Number) {
                    readAsNumber(*e.args[1]);
                    readAsNumber(*e.args[2]);
                }
                const Out lo = expr(*e.args[1]), hi = expr(*e.args[2]);
                const bool numeric =
                    a.type == Type::Number || lo.type == Type::Number || hi.type == Type::Number;
                if (server_ && !numeric && !a.key)
                    return {"(" + serverOrder(a.sql) + (e.negated ? " NOT BETWEEN " : " BETWEEN ") +
                                serverOrder(lo.sql) + " AND " + serverOrder(hi.sql) + ")",
                            Type::Number, false, true};
                const std::string left = numeric || a.key ? a.sql : german(a);
                return {"(" + left + (e.negated ? " NOT BETWEEN " : " BETWEEN ") + lo.sql +
                            " AND " + hi.sql + ")",
                        Type::Number, false, true};
            }
            case ExprKind::IsNull:
                return {"(" + expr(*e.args[0]).sql + (e.negated ? " IS NOT NULL)" : " IS NULL)"),
                        Type::Number, false, true};
            case ExprKind::Call:
                return call(e);
            case ExprKind::Subquery:
                return {"(" + select(*e.sub, nullptr) + ")", Type::Unknown};
            case ExprKind::Exists:
                return {"(EXISTS (" + select(*e.sub, nullptr) + "))", Type::Number, false, true};
        }
        return {};
    }

    Out binary(const Expr& e) {
        const Expr &l = *e.args[0], &r = *e.args[1];
        const std::string& op = e.op;
        if (isOneOf(op, {"=", "<>", "<", ">", "<=", ">="})) {
            // The side of a number decides how the other side's quoted value is read.
            Out a = expr(l), b = expr(r);
            if (a.type == Type::Number) readAsNumber(r);
            if (b.type == Type::Number) readAsNumber(l);
            if (server_) {
                if (a.type == Type::Number && l.kind != ExprKind::Column &&
                    r.kind == ExprKind::Value)
                    b.sql = numberOrAbove(b.sql);
                if (b.type == Type::Number && r.kind != ExprKind::Column &&
                    l.kind == ExprKind::Value)
                    a.sql = numberOrAbove(a.sql);
            }
            const bool plain = a.type == Type::Number || b.type == Type::Number || a.key || b.key;
            if (server_ && !plain) {
                if (op == "=" || op == "<>")
                    return {"(" + german(a) + " " + op + " " + german(b) + ")", Type::Number, false,
                            true};
                return {"(" + serverOrder(a.sql) + " " + op + " " + serverOrder(b.sql) + ")",
                        Type::Number, false, true};
            }
            return {"(" + a.sql + " " + op + " " + (plain ? b.sql : german(b)) + ")", Type::Number,
                    false, true};
        }
        Out a = expr(l), b = expr(r);
        if (server_ && !isOneOf(op, {"AND", "OR", "&"})) {
            // A bound number has no type of its own on the server: arithmetic reads it as one.
            if (l.kind == ExprKind::Number) a.sql = "CAST(" + a.sql + " AS double precision)";
            if (r.kind == ExprKind::Number) b.sql = "CAST(" + b.sql + " AS double precision)";
        }
        if (op == "AND" || op == "OR")
            return {"(" + condition(a) + " " + op + " " + condition(b) + ")", Type::Number, false,
                    true};
        // "&" joins texts; Null reads as empty text.
        if (op == "&") {
            if (server_)
                return {"(coalesce(CAST(" + a.sql + " AS text), '') || coalesce(CAST(" + b.sql +
                            " AS text), ''))",
                        Type::Text};
            return {"(jet_text(" + a.sql + ") || jet_text(" + b.sql + "))", Type::Text};
        }
        if (op == "+") {
            // With a number on either side the sum is a number: a text on the other side is read as
            // one.
            if (server_ && (a.type == Type::Number) != (b.type == Type::Number)) {
                // The server adds no text to a number: the text is read as one first.
                const Out& t = a.type == Type::Number ? b : a;
                const Out& n = a.type == Type::Number ? a : b;
                return {"(CAST(" + t.sql + " AS numeric) + " + n.sql + ")", Type::Number};
            }
            if (a.type == Type::Number || b.type == Type::Number)
                return {"(" + a.sql + " + " + b.sql + ")", Type::Number};
            if (a.type == Type::Text && b.type == Type::Text)
                return {"(" + a.sql + " || " + b.sql + ")", Type::Text};
            // Two texts on the server are joined; Null on either side gives Null, as "+" does.
            if (server_)
                return {"(CAST(" + a.sql + " AS text) || CAST(" + b.sql + " AS text))", Type::Text};
            return {"jet_plus(" + a.sql + ", " + b.sql + ")",
                    Type::Unknown};  // decided by the values
        }
        const char* real = server_ ? " AS double precision) / " : " AS REAL) / ";
        const char* integer = server_ ? " AS bigint)" : " AS INTEGER)";
        if (op == "/") return {"(CAST(" + a.sql + real + b.sql + ")", Type::Number};
        if (op == "\\")
            return {"(CAST(" + a.sql + integer + " / CAST(" + b.sql + integer + ")", Type::Number};
        if (op == "MOD") {
            if (server_)
                return {"(CAST(" + a.sql + integer + " % CAST(" + b.sql + integer + ")",
                        Type::Number};
            return {"(" + a.sql + " % " + b.sql + ")", Type::Number};
        }
        if (op == "^")
            return {std::string(server_ ? "power(" : "jet_power(") + a.sql + ", " + b.sql + ")",
                    Type::Number};
        return {"(" + a.sql + " " + op + " " + b.sql + ")", Type::Number};  // - and *
    }

    Out call(const Expr& e) {
        std::vector<Out> a;
        const bool aggregate = isAggregate(e.op);
        aggregateDepth_ += aggregate;
        for (const auto& arg : e.args) a.push_back(expr(*arg));
        aggregateDepth_ -= aggregate;
        std::function<std::string(size_t)> args = [&](size_t from) {
            std::string s;
            for (size_t i = from; i < a.size(); ++i) s += (i > from ? ", " : "") + a[i].sql;
            return s;
        };
        const std::string& f = e.op;
        auto fn = [&](const char* name, Type type) {
            return Out{std::string(name) + "(" + args(0) + ")", type};
        };
        if (server_) {
            if (const auto out = serverCall(f, a, args); !out.sql.empty()) return out;
        }
        if (f == "LEN") return fn("len", Type::Number);
        if (f == "UCASE") return fn("ucase", Type::Text);
        if (f == "LCASE") return fn("lcase", Type::Text);
        if (f == "TRIM" || f == "LTRIM" || f == "RTRIM")
            return fn(f == "TRIM" ? "trim" : f == "LTRIM" ? "ltrim" : "rtrim", Type::Text);
        if (f == "LEFT" && a.size() == 2)
            return {"substr(" + a[0].sql + ", 1, " + a[1].sql + ")", Type::Text};
        if (f == "RIGHT") return fn("jet_right", Type::Text);
        if (f == "MID") return fn("substr", Type::Text);
        if (f == "NZ")
            return {
                "coalesce(" + a[0].sql + ", " + (a.size() > 1 ? a[1].sql : std::string("''")) + ")",
                a.size() > 1 ? a[1].type : Type::Text};
        if (f == "VAL") return fn("jet_val", Type::Number);
        if (f == "IIF" && a.size() == 3)
            return {"(CASE WHEN " + condition(a[0]) + " THEN " + a[1].sql + " ELSE " + a[2].sql +
                        " END)",
                    a[1].type == a[2].type ? a[1].type : Type::Unknown};
        if (f == "INSTR") return fn("jet_instr", Type::Number);
        if (f == "FORMAT") return fn("jet_format", Type::Text);
        if (f == "NOW") return fn("jet_now", Type::Text);
        if (f == "DATE") return fn("jet_date", Type::Text);
        if (isOneOf(f, {"COUNT", "SUM", "AVG", "ABS", "INT", "FIX", "YEAR", "MONTH", "DAY", "ASC",
                        "ROUND"}))
            return {e.op + "(" + args(0) + ")", Type::Number};
        if ((f == "MIN" || f == "MAX") && a.size() == 1)
            return {e.op + "(" + (a[0].type == Type::Number || a[0].key ? a[0].sql : german(a[0])) +
                        ")",
                    a[0].type};
        return {e.op + "(" + args(0) + ")", Type::Unknown};  // SQLite's own, or its error
    }

    // The engine's functions in the server's SQL; empty for those both spell alike.
    Out serverCall(const std::string& f, const std::vector<Out>& a,
                   const std::function<std::string(size_t)>& args) const {
        auto fn = [&](const char* name, Type type) {
            return Out{std::string(name) + "(" + args(0) + ")", type};
        };
        if (f == "LEN") return fn("char_length", Type::Number);
        if (f == "UCASE") return fn("tolma_upper", Type::Text);
        if (f == "LCASE") return fn("tolma_fold", Type::Text);
        if (f == "RIGHT") return fn("right", Type::Text);
        if (f == "VAL") return fn("tolma_val", Type::Number);
        if (f == "INSTR" && (a.size() == 2 || a.size() == 3))
            return {"tolma_instr(" + (a.size() == 3 ? a[0].sql : std::string("1")) + ", " +
                        a[a.size() - 2].sql + ", " + a.back().sql + ")",
                    Type::Number};
        if (f == "FORMAT" && a.size() == 1) return {"CAST(" + a[0].sql + " AS text)", Type::Text};
        if (f == "FORMAT" && a.size() == 2)
            return {"tolma_format(CAST(" + a[0].sql + " AS text), " + a[1].sql + ")", Type::Text};
        if ((f == "MIN" || f == "MAX") && a.size() == 1 && a[0].type != Type::Number && !a[0].key) {
            // The first in German order, which no collation of the server gives.
            const char* dir = f == "MIN" ? "" : " DESC";
            return {"(array_agg(" + a[0].sql + " ORDER BY tolma_primary(" + a[0].sql +
                        ") COLLATE \"C\"" + dir + ", tolma_fold(" + a[0].sql + ") COLLATE \"C\"" +
                        dir + "))[1]",
                    a[0].type};
        }
        if (f == "NOW") return {"to_char(localtimestamp, 'YYYY-MM-DD HH24:MI:SS')", Type::Text};
        if (f == "DATE") return {"to_char(current_date, 'YYYY-MM-DD')", Type::Text};
        if (f == "INT") return fn("floor", Type::Number);
        if (f == "FIX") return fn("trunc", Type::Number);
        if (f == "ASC") return fn("ascii", Type::Number);
        return {};
    }

    // ---- SELECT --------------------------------------------------------------------------
    std::string source(const ast::TableSource& s, SelectParts* parts, bool nested) {
        using Kind = ast::TableSource::Kind;
        if (s.kind == Kind::Table) {
            std::string text = ident(s.name) + (s.alias.empty() ? "" : " AS " + ident(s.alias));
            if (parts)
                parts->tables.push_back(
                    {s.name, tableQualifier(s.alias.empty() ? s.name : s.alias), text});
            return text;
        }
        if (s.kind == Kind::Derived) {
            if (parts) parts->derivedTable = true;
            return "(" + select(*s.sub, nullptr) + ") AS " + ident(s.alias);
        }
        if (parts && s.join != "INNER") parts->outerJoin = true;
        const std::string left = source(*s.left, parts, false);
        const std::string right = source(*s.right, parts, true);
        const std::string on = condition(expr(*s.on));
        if (parts) parts->joinConditions.push_back(on);
        const std::string text = left + " " + s.join + " JOIN " + right + " ON " + on;
        return nested ? "(" + text + ")" : text;
    }

    // An ORDER BY or GROUP BY term: text in German order, a key column by its index.
    // Behind a UNION a term must name a column of the result as it stands.
    std::string term(const Expr& e, bool compound = false, bool descending = false) {
        const char* dir = descending ? " DESC" : "";
        if (e.kind == ExprKind::Number)  // a column's position, as written
            return e.number + (server_ ? "" : std::string(" COLLATE ") + german::kCollation) + dir;
        Out o = expr(e);
        if (server_ && e.kind == ExprKind::Column && e.qualifier.empty())
            // The server lets an ORDER BY name a column of the result only bare, not inside
            // the functions that order German text: the aliased expression stands in.
            if (auto it = aliasExprs_.find(text::lowerAscii(e.name)); it != aliasExprs_.end())
                o = it->second;
        // The embedded store sorts Null before every value; the server, unless told, after.
        const std::string nulls =
            server_ && ordering_ ? (descending ? " NULLS LAST" : " NULLS FIRST") : "";
        if (o.type == Type::Number || o.key) return o.sql + dir + nulls;
        if (server_ && nulls.size())
            return compound ? o.sql + dir + nulls
                            : "tolma_primary(" + o.sql + ") COLLATE \"C\"" + dir + nulls +
                                  ", tolma_fold(" + o.sql + ") COLLATE \"C\"" + dir;
        if (server_)
            // The letters first, then the marks; a grouping keeps the text as it stands, which
            // its select list names.
            return compound || !ordering_ ? o.sql + dir
                                          : "tolma_primary(" + o.sql + ") COLLATE \"C\"" + dir +
                                                ", tolma_fold(" + o.sql + ") COLLATE \"C\"" + dir;
        return (compound ? o.sql + " COLLATE " + german::kCollation : german(o)) + dir;
    }

    static bool aggregateCall(const Expr& e) {
        if (e.kind == ExprKind::Call && isAggregate(e.op)) return true;
        for (const auto& a : e.args)
            if (aggregateCall(*a)) return true;
        return false;
    }

    // The server groups a text by its folded form, as the embedded store's collation compares:
    // the grouping's terms, with the texts among them kept in foldedGroups_.
    std::string serverGroups(const std::vector<const Expr*>& terms) {
        std::string out;
        for (const Expr* t : terms) {
            std::string one;
            if (t->kind == ExprKind::Number) {
                one = t->number;
            } else {
                const Out o = expr(*t);
                const bool text = o.type != Type::Number && o.type != Type::Null && !o.key;
                if (text) foldedGroups_.insert(o.sql);
                one = text ? "tolma_fold(" + o.sql + ")" : o.sql;
            }
            out += (out.empty() ? "" : ", ") + one;
        }
        return out;
    }

    std::string select(const ast::Select& s, SelectParts* parts) {
        // A nested query has groups of its own.
        const auto outerGroups = std::exchange(foldedGroups_, {});
        const bool outerWrap = std::exchange(wrapGroups_, false);
        const int outerDepth = std::exchange(aggregateDepth_, 0);
        std::string sql = selectOf(s, parts);
        foldedGroups_ = outerGroups;
        wrapGroups_ = outerWrap;
        aggregateDepth_ = outerDepth;
        return sql;
    }

    std::string selectOf(const ast::Select& s, SelectParts* parts) {
        SelectParts local;
        SelectParts& p = parts ? *parts : local;
        p.isSelect = true;
        p.distinct = s.distinct;
        p.aggregate = !s.groupBy.empty() || s.having || !s.top.empty();

        if (server_)
            for (const auto& item : s.items)
                // An alias that only respells its column keeps the column's name.
                if (!item.alias.empty() &&
                    !(item.expr && item.expr->kind == ExprKind::Column &&
                      text::lowerAscii(item.expr->name) == text::lowerAscii(item.alias)))
                    aliases_[text::lowerAscii(item.alias)] = item.alias;
        std::string items;
        // DISTINCT over plain items becomes a grouping, so that the German comparison decides
        // which rows are the same; a * leaves it to SQLite.
        bool groupForDistinct = s.distinct && s.groupBy.empty();
        for (const auto& item : s.items) {
            if (!item.expr || aggregateCall(*item.expr)) groupForDistinct = false;
            if (item.expr && aggregateCall(*item.expr)) p.aggregate = true;
        }
        std::string distinctGroups, groups;
        if (server_) {
            std::vector<const Expr*> terms;
            if (groupForDistinct)
                for (const auto& item : s.items) terms.push_back(item.expr.get());
            for (const auto& g : s.groupBy) terms.push_back(g.get());
            groups = serverGroups(terms);
            wrapGroups_ = true;
        }
        for (size_t i = 0; i < s.items.size(); ++i) {
            const auto& item = s.items[i];
            std::string text;
            if (!item.expr) {
                text = item.qualifier.empty() ? "*" : ident(item.qualifier) + ".*";
            } else {
                const Out o = expr(*item.expr);
                text = o.sql;
                if (server_ && !item.alias.empty()) aliasExprs_[text::lowerAscii(item.alias)] = o;
                if (!item.alias.empty())
                    text += " AS " + ident(item.alias);
                else if (item.expr->kind == ExprKind::Column && o.sql.starts_with("min("))
                    text += " AS " + ident(item.expr->name);  // the column's own name, grouped
                else if (item.expr->kind != ExprKind::Column) {
                    text += " AS " + quotedName(item.written);
                    if (item.written.find_first_of("'\"#") != std::string::npos)
                        valuesInNames_ = true;
                }
                if (groupForDistinct && !server_)
                    distinctGroups += (distinctGroups.empty() ? "" : ", ") +
                                      (o.type == Type::Number || o.key ? o.sql : german(o));
            }
            items += (i ? ", " : "") + text;
        }
        wrapGroups_ = false;
        p.selectList = items;
        std::string sql = "SELECT ";
        if (s.distinct && !groupForDistinct) sql += "DISTINCT ";
        sql += items;
        if (s.from.empty()) {
            p.derivedTable = true;  // nothing to key on
        } else {
            std::string from;
            for (size_t i = 0; i < s.from.size(); ++i)
                from += (i ? ", " : "") + source(*s.from[i], &p, false);
            p.from = from;
            sql += " FROM " + from;
        }
        if (s.where) {
            p.where = condition(expr(*s.where));
            sql += " WHERE " + p.where;
        }
        if (groupForDistinct) p.aggregate = true;
        if (server_ && !groups.empty()) {
            sql += " GROUP BY " + groups;
        } else if (!s.groupBy.empty()) {
            sql += " GROUP BY ";
            for (size_t i = 0; i < s.groupBy.size(); ++i)
                sql += (i ? ", " : "") + term(*s.groupBy[i]);
        } else if (groupForDistinct) {
            sql += " GROUP BY " + distinctGroups;
        }
        wrapGroups_ = server_ && s.unions.empty();
        if (s.having) sql += " HAVING " + condition(expr(*s.having));
        wrapGroups_ = false;
        for (const auto& u : s.unions) {
            p.aggregate = true;  // rows of several queries are no rows of one table
            sql += (u.all ? " UNION ALL " : " UNION ") + select(*u.select, nullptr);
        }
        if (!s.orderBy.empty()) {
            std::string order;
            ordering_ = true;
            wrapGroups_ = server_ && s.unions.empty();
            for (size_t i = 0; i < s.orderBy.size(); ++i)
                order += (i ? ", " : "") +
                         term(*s.orderBy[i].expr, !s.unions.empty(), s.orderBy[i].descending);
            ordering_ = false;
            wrapGroups_ = false;
            p.orderBy = order;
            sql += " ORDER BY " + order;
        }
        if (!s.top.empty()) sql += " LIMIT " + s.top;
        return sql;
    }

    const Catalog* catalog_;
    bool server_;
    bool ordering_ = false;
    std::unordered_set<std::string> foldedGroups_;  // the server's texts grouped by folded form
    bool wrapGroups_ = false;                       // in a select list, HAVING or ORDER BY
    int aggregateDepth_ = 0;                        // within an aggregate's arguments
    std::unordered_map<std::string, std::string> aliases_;  // folded name, as written
    std::unordered_map<std::string, Out> aliasExprs_;       // folded name, its expression
    int values_;
    std::vector<bool> numeric_;
    std::vector<std::string> numbers_;
    bool valuesInNames_ = false;
};

}  // namespace

Generated generate(const ast::Statement& statement, const Catalog* catalog, int values) {
    return Generator(catalog, values).statement(statement);
}

}  // namespace tolma::store::jet
