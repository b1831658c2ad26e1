#include "store/jet_parser.h"
#include "text/text.h"

namespace tolma::store::jet::ast {
namespace {

// Words that end an expression or a name where an alias might follow.
bool reserved(const std::string& u) {
    static const char* words[] = {
        "SELECT",      "FROM", "WHERE", "GROUP",  "BY",      "HAVING", "ORDER",  "AND",
        "OR",          "NOT",  "LIKE",  "IN",     "BETWEEN", "IS",     "NULL",   "AS",
        "ON",          "JOIN", "INNER", "LEFT",   "RIGHT",   "OUTER",  "UNION",  "DISTINCT",
        "DISTINCTROW", "ALL",  "TOP",   "ASC",    "DESC",    "INTO",   "VALUES", "SET",
        "MOD",         "TRUE", "FALSE", "EXISTS", "PERCENT", "XOR"};
    for (const char* w : words)
        if (u == w) return true;
    return false;
}

class Parser {
  public:
    Parser(std::string_view text, const std::vector<Token>& tokens) : text_(text), t_(tokens) {
        int k = 0;
        valueIndex_.resize(tokens.size(), -1);
        for (size_t i = 0; i < tokens.size(); ++i)
            if (tokens[i].kind == TokenKind::Text || tokens[i].kind == TokenKind::Date)
                valueIndex_[i] = k++;
    }

    Statement statement(bool condition) {
        Statement s;
        if (condition) {
            s.kind = Statement::Kind::Condition;
            s.where = expression();
        } else if (isWord("SELECT")) {
            s.kind = Statement::Kind::Select;
            s.select = select();
        } else if (acceptWord("INSERT")) {
            s.kind = Statement::Kind::Insert;
            expectWord("INTO");
            s.table = name("ein Tabellenname");
            if (acceptPunct("(")) {
                do s.columns.push_back(columnName());
                while (acceptPunct(","));
                expectPunct(")");
            }
            if (acceptWord("VALUES")) {
                expectPunct("(");
                do s.values.push_back(expression());
                while (acceptPunct(","));
                expectPunct(")");
            } else {
                s.select = select();
            }
        } else if (acceptWord("UPDATE")) {
            s.kind = Statement::Kind::Update;
            s.table = name("ein Tabellenname");
            expectWord("SET");
            do {
                s.columns.push_back(columnName());
                expectPunct("=");
                s.values.push_back(expression());
            } while (acceptPunct(","));
            if (acceptWord("WHERE")) s.where = expression();
        } else if (acceptWord("DELETE")) {
            s.kind = Statement::Kind::Delete;
            if (!isWord("FROM")) {
                if (!acceptPunct("*")) {
                    name("ein Tabellenname");
                    expectPunct(".");
                    expectPunct("*");
                }
            }
            expectWord("FROM");
            s.table = name("ein Tabellenname");
            if (acceptWord("WHERE")) s.where = expression();
        } else {
            return s;  // Other: SQLite reads it as it stands
        }
        acceptPunct(";");
        if (peek().kind != TokenKind::End) fail("Zeichen nach dem Ende der Anweisung");
        return s;
    }

  private:
    // ---- tokens --------------------------------------------------------------------------
    const Token& peek(size_t ahead = 0) const { return t_[std::min(i_ + ahead, t_.size() - 1)]; }
    bool isWord(const char* w, size_t ahead = 0) const {
        return peek(ahead).kind == TokenKind::Word && text::upperAscii(peek(ahead).text) == w;
    }
    bool isPunct(const char* p, size_t ahead = 0) const {
        return peek(ahead).kind == TokenKind::Punct && peek(ahead).text == p;
    }
    bool acceptWord(const char* w) { return isWord(w) ? (++i_, true) : false; }
    bool acceptPunct(const char* p) { return isPunct(p) ? (++i_, true) : false; }
    [[noreturn]] void fail(const std::string& what) const {
        const Token& t = peek();
        syntaxError(text_, t.position,
                    t.kind == TokenKind::End ? what + " (Ende des Ausdrucks erreicht)" : what);
    }
    void expectWord(const char* w) {
        if (!acceptWord(w)) fail(std::string("erwartet wird ") + w);
    }
    void expectPunct(const char* p) {
        if (!acceptPunct(p)) fail(std::string("erwartet wird '") + p + "'");
    }
    bool atName() const {
        return peek().kind == TokenKind::Bracketed ||
               (peek().kind == TokenKind::Word && !reserved(text::upperAscii(peek().text)));
    }
    std::string name(const char* what) {
        if (!atName()) fail(std::string("erwartet wird ") + what);
        return t_[i_++].text;
    }
    // A column to be set: the name, without a table in front.
    std::string columnName() {
        std::string n = name("ein Feldname");
        if (acceptPunct(".")) n = name("ein Feldname");
        return n;
    }
    size_t endOfLast() const {
        const Token& t = t_[i_ - 1];
        if (t.kind == TokenKind::Text || t.kind == TokenKind::Date ||
            t.kind == TokenKind::Bracketed) {
            // Literals and names lost their quotes: find where they close in the text.
            const char close = t.kind == TokenKind::Bracketed ? ']' : text_[t.position];
            size_t j = t.position + 1;
            for (; j < text_.size(); ++j) {
                if (text_[j] != close) continue;
                if (t.kind == TokenKind::Text && j + 1 < text_.size() && text_[j + 1] == close) {
                    ++j;
                    continue;
                }
                break;
            }
            return j + 1;
        }
        return t.position + t.text.size();
    }
    ExprPtr make(ExprKind kind, size_t begin) {
        auto e = std::make_shared<Expr>();
        e->kind = kind;
        e->begin = begin;
        return e;
    }
    ExprPtr finish(ExprPtr e) {
        e->end = endOfLast();
        for (const auto& a : e->args) e->depth = std::max(e->depth, a->depth + 1);
        if (e->depth > kMaxNesting) fail(kTooDeep);
        return e;
    }

    // A query nests a few levels; a text of thousands, as "- - - … 1" or "((( … )))", would run
    // the parser and every walk of its tree out of stack.
    static constexpr int kMaxNesting = 200;
    static constexpr const char* kTooDeep = "der Ausdruck ist zu tief verschachtelt";
    int nesting_ = 0;
    struct Nested {
        explicit Nested(Parser& p) : parser(p) {
            if (++parser.nesting_ > kMaxNesting) parser.fail(kTooDeep);
        }
        ~Nested() { --parser.nesting_; }
        Nested(const Nested&) = delete;
        Nested& operator=(const Nested&) = delete;
        Parser& parser;
    };

    // ---- SELECT --------------------------------------------------------------------------
    std::shared_ptr<Select> select() {
        auto s = selectCore();
        while (acceptWord("UNION")) {
            Select::Union u;
            u.all = acceptWord("ALL");
            u.select = selectCore();
            s->unions.push_back(u);
        }
        if (acceptWord("ORDER")) {
            expectWord("BY");
            do {
                OrderItem o{expression()};
                if (acceptWord("DESC"))
                    o.descending = true;
                else
                    acceptWord("ASC");
                s->orderBy.push_back(o);
            } while (acceptPunct(","));
        }
        return s;
    }

    std::shared_ptr<Select> selectCore() {
        auto s = std::make_shared<Select>();
        expectWord("SELECT");
        if (acceptWord("DISTINCT"))
            s->distinct = true;
        else if (!acceptWord("DISTINCTROW"))
            acceptWord("ALL");
        if (acceptWord("TOP")) {
            if (peek().kind != TokenKind::Number ||
                peek().text.find_first_not_of("0123456789") != std::string::npos)
                fail("erwartet wird eine ganze Zahl hinter TOP");
            s->top = t_[i_++].text;
            if (isWord("PERCENT")) fail("TOP ... PERCENT wird nicht unterstützt");
        }
        do s->items.push_back(selectItem());
        while (acceptPunct(","));
        if (acceptWord("FROM")) {
            do s->from.push_back(source());
            while (acceptPunct(","));
        }
        if (acceptWord("WHERE")) s->where = expression();
        if (acceptWord("GROUP")) {
            expectWord("BY");
            do s->groupBy.push_back(expression());
            while (acceptPunct(","));
        }
        if (acceptWord("HAVING")) s->having = expression();
        return s;
    }

    SelectItem selectItem() {
        SelectItem item;
        const size_t begin = peek().position;
        if (acceptPunct("*")) {
            item.written = "*";
            return item;
        }
        if (atName() && isPunct(".", 1) && isPunct("*", 2)) {
            item.qualifier = t_[i_].text;
            i_ += 3;
            item.written = std::string(text_.substr(begin, endOfLast() - begin));
            return item;
        }
        item.expr = expression();
        item.written = std::string(text_.substr(begin, endOfLast() - begin));
        if (acceptWord("AS")) {
            // Behind AS any word is a name, True and False included.
            if (peek().kind != TokenKind::Word && peek().kind != TokenKind::Bracketed)
                fail("erwartet wird ein Name hinter AS");
            item.alias = t_[i_++].text;
        }
        return item;
    }

    SourcePtr source() {
        SourcePtr left = primarySource();
        for (;;) {
            std::string join;
            if (acceptWord("INNER"))
                join = "INNER";
            else if (acceptWord("LEFT"))
                join = "LEFT";
            else if (acceptWord("RIGHT"))
                join = "RIGHT";
            else if (isWord("JOIN"))
                join = "INNER";
            else
                return left;
            if (join != "INNER") acceptWord("OUTER");
            expectWord("JOIN");
            auto j = std::make_shared<TableSource>();
            j->kind = TableSource::Kind::Join;
            j->join = join;
            j->left = left;
            j->right = primarySource();
            expectWord("ON");
            j->on = expression();
            left = j;
        }
    }

    SourcePtr primarySource() {
        if (acceptPunct("(")) {
            if (isWord("SELECT")) {
                auto d = std::make_shared<TableSource>();
                d->kind = TableSource::Kind::Derived;
                d->sub = select();
                expectPunct(")");
                acceptWord("AS");
                d->alias = name("ein Name für die Unterabfrage");
                return d;
            }
            SourcePtr inner = source();
            expectPunct(")");
            return inner;
        }
        auto t = std::make_shared<TableSource>();
        t->name = name("ein Tabellenname");
        if (acceptWord("AS"))
            t->alias = name("ein Name für die Tabelle");
        else if (atName())
            t->alias = t_[i_++].text;
        return t;
    }

    // ---- expressions ---------------------------------------------------------------------
    ExprPtr binary(const std::string& op, ExprPtr a, ExprPtr b) {
        auto e = make(ExprKind::Binary, a->begin);
        e->op = op;
        e->args = {std::move(a), std::move(b)};
        return finish(e);
    }

    ExprPtr expression() {
        Nested nested(*this);
        ExprPtr e = andExpr();
        while (acceptWord("OR")) e = binary("OR", e, andExpr());
        return e;
    }
    ExprPtr andExpr() {
        ExprPtr e = notExpr();
        while (acceptWord("AND")) e = binary("AND", e, notExpr());
        return e;
    }
    ExprPtr notExpr() {
        const size_t begin = peek().position;
        if (acceptWord("NOT")) {
            Nested nested(*this);
            auto e = make(ExprKind::Unary, begin);
            e->op = "NOT";
            e->args = {notExpr()};
            return finish(e);
        }
        return comparison();
    }
    ExprPtr comparison() {
        ExprPtr left = concat();
        static const char* ops[] = {"=", "<>", "<", ">", "<=", ">="};
        for (const char* op : ops)
            if (acceptPunct(op)) return binary(op, left, concat());
        if (acceptWord("IS")) {
            auto e = make(ExprKind::IsNull, left->begin);
            e->negated = acceptWord("NOT");
            expectWord("NULL");
            e->args = {left};
            return finish(e);
        }
        const bool negated = acceptWord("NOT");
        if (negated && !isWord("LIKE") && !isWord("IN") && !isWord("BETWEEN"))
            fail("erwartet wird LIKE, IN oder BETWEEN");
        if (acceptWord("LIKE")) {
            auto e = make(ExprKind::Like, left->begin);
            e->negated = negated;
            e->args = {left, concat()};
            return finish(e);
        }
        if (acceptWord("BETWEEN")) {
            auto e = make(ExprKind::Between, left->begin);
            e->negated = negated;
            e->args.push_back(left);
            e->args.push_back(concat());
            expectWord("AND");
            e->args.push_back(concat());
            return finish(e);
        }
        if (acceptWord("IN")) {
            auto e = make(ExprKind::In, left->begin);
            e->negated = negated;
            e->args.push_back(left);
            expectPunct("(");
            if (isWord("SELECT")) {
                e->sub = select();
            } else {
                do e->args.push_back(expression());
                while (acceptPunct(","));
            }
            expectPunct(")");
            return finish(e);
        }
        return left;
    }
    ExprPtr concat() {
        ExprPtr e = additive();
        while (acceptPunct("&")) e = binary("&", e, additive());
        return e;
    }
    ExprPtr additive() {
        ExprPtr e = modulo();
        for (;;) {
            if (acceptPunct("+"))
                e = binary("+", e, modulo());
            else if (acceptPunct("-"))
                e = binary("-", e, modulo());
            else
                return e;
        }
    }
    ExprPtr modulo() {
        ExprPtr e = integerDivision();
        while (acceptWord("MOD")) e = binary("MOD", e, integerDivision());
        return e;
    }
    ExprPtr integerDivision() {
        ExprPtr e = multiplicative();
        while (acceptPunct("\\")) e = binary("\\", e, multiplicative());
        return e;
    }
    ExprPtr multiplicative() {
        ExprPtr e = unary();
        for (;;) {
            if (acceptPunct("*"))
                e = binary("*", e, unary());
            else if (acceptPunct("/"))
                e = binary("/", e, unary());
            else
                return e;
        }
    }
    ExprPtr unary() {
        const size_t begin = peek().position;
        if (isPunct("-") || isPunct("+")) {
            Nested nested(*this);
            auto e = make(ExprKind::Unary, begin);
            e->op = t_[i_++].text;
            e->args = {unary()};
            return finish(e);
        }
        ExprPtr e = primary();
        while (acceptPunct("^")) e = binary("^", e, primary());
        return e;
    }
    ExprPtr primary() {
        const Token& t = peek();
        const size_t begin = t.position;
        switch (t.kind) {
            case TokenKind::Number: {
                auto e = make(ExprKind::Number, begin);
                e->number = t.text;
                ++i_;
                return finish(e);
            }
            case TokenKind::Text:
            case TokenKind::Date: {
                auto e = make(ExprKind::Value, begin);
                e->value = valueIndex_[i_++];
                return finish(e);
            }
            case TokenKind::Punct:
                if (acceptPunct("(")) {
                    if (isWord("SELECT")) {
                        auto e = make(ExprKind::Subquery, begin);
                        e->sub = select();
                        expectPunct(")");
                        return finish(e);
                    }
                    ExprPtr inner = expression();
                    expectPunct(")");
                    return inner;
                }
                fail("erwartet wird ein Ausdruck");
            case TokenKind::End:
                fail("erwartet wird ein Ausdruck");
            case TokenKind::Word: {
                const std::string u = text::upperAscii(t.text);
                if (u == "NULL") {
                    ++i_;
                    return finish(make(ExprKind::Null, begin));
                }
                if (u == "TRUE" || u == "FALSE") {
                    auto e = make(ExprKind::Number, begin);
                    e->number = u == "TRUE" ? "-1" : "0";
                    ++i_;
                    return finish(e);
                }
                if (u == "EXISTS") {
                    ++i_;
                    auto e = make(ExprKind::Exists, begin);
                    expectPunct("(");
                    e->sub = select();
                    expectPunct(")");
                    return finish(e);
                }
                if (isPunct("(", 1) && (!reserved(u) || u == "LEFT" || u == "RIGHT"))
                    return call(u);
                break;
            }
            case TokenKind::Bracketed:
                break;
        }
        if (!atName()) fail("erwartet wird ein Ausdruck");
        auto e = make(ExprKind::Column, begin);
        e->name = t_[i_++].text;
        if (acceptPunct(".")) {
            // Behind a table's name any word names a field, True and False included.
            if (peek().kind != TokenKind::Word && peek().kind != TokenKind::Bracketed)
                fail("erwartet wird ein Feldname");
            e->qualifier = e->name;
            e->name = t_[i_++].text;
        }
        return finish(e);
    }
    ExprPtr call(const std::string& function) {
        auto e = make(ExprKind::Call, peek().position);
        e->op = function;
        const std::string written = peek().text;
        i_ += 2;  // the name and "("
        if (!acceptPunct(")")) {
            do {
                if (isPunct("*") && (isPunct(")", 1) || isPunct(",", 1))) {
                    e->args.push_back(make(ExprKind::Star, peek().position));
                    ++i_;
                } else {
                    e->args.push_back(expression());
                }
            } while (acceptPunct(","));
            expectPunct(")");
        }
        checkArguments(*e, written);
        return finish(e);
    }

    // The engine's own functions take a fixed number of arguments; a wrong number is the
    // query's fault and is named here, before any store sees the text.
    void checkArguments(const Expr& e, const std::string& written) const {
        struct Arity {
            const char* name;
            size_t least, most;
        };
        static constexpr Arity kArities[] = {
            {"LEN", 1, 1},   {"UCASE", 1, 1}, {"LCASE", 1, 1}, {"TRIM", 1, 1},   {"LTRIM", 1, 1},
            {"RTRIM", 1, 1}, {"LEFT", 2, 2},  {"RIGHT", 2, 2}, {"MID", 2, 3},    {"NZ", 1, 2},
            {"VAL", 1, 1},   {"IIF", 3, 3},   {"INSTR", 2, 3}, {"FORMAT", 1, 2}, {"NOW", 0, 0},
            {"DATE", 0, 0},  {"ABS", 1, 1},   {"INT", 1, 1},   {"FIX", 1, 1},    {"YEAR", 1, 1},
            {"MONTH", 1, 1}, {"DAY", 1, 1},   {"ASC", 1, 1},   {"ROUND", 1, 2},  {"COUNT", 1, 1},
            {"SUM", 1, 1},   {"AVG", 1, 1},   {"MIN", 1, 1},   {"MAX", 1, 1},
        };
        for (const auto& a : kArities) {
            if (e.op != a.name) continue;
            if (e.args.size() < a.least || e.args.size() > a.most)
                syntaxError(text_, e.begin,
                            "falsche Anzahl von Argumenten für die Funktion " + written);
            return;
        }
    }

    std::string_view text_;
    const std::vector<Token>& t_;
    std::vector<int> valueIndex_;
    size_t i_ = 0;
};

}  // namespace

Statement parse(std::string_view text, const std::vector<Token>& tokens, bool condition) {
    return Parser(text, tokens).statement(condition);
}

}  // namespace tolma::store::jet::ast
