#include "store/jet_sql.h"

#include "store/german_text.h"
#include "store/jet_generator.h"
#include "store/jet_parser.h"
#include "text/text.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <mutex>
#include <unordered_map>

namespace tolma::store::jet {
namespace {

bool isWordStart(unsigned char c) {
    return std::isalpha(c) || c == '_' || c >= 0x80;
}
bool isWordChar(unsigned char c) {
    return std::isalnum(c) || c == '_' || c == '$' || c >= 0x80;
}

bool isPunct(const Token& t, std::string_view p) {
    return t.kind == TokenKind::Punct && t.text == p;
}

bool readsAsNumber(const std::string& s, std::string& number) {
    size_t b = s.find_first_not_of(' ');
    size_t e = s.find_last_not_of(' ');
    if (b == std::string::npos) return false;
    std::string t = s.substr(b, e - b + 1);
    char* end = nullptr;
    std::strtod(t.c_str(), &end);
    if (end == t.c_str() || *end != '\0') return false;
    if (t.find_first_of("xXnN") != std::string::npos) return false;  // hex, nan, inf
    number = t;
    return true;
}

std::u32string decode(std::string_view s) {
    std::u32string r;
    r.reserve(s.size());
    for (size_t i = 0; i < s.size();) r += text::nextCodePoint(s, i);
    return r;
}

// One element of a LIKE pattern at p; returns whether c matches it and moves p past it.
bool matchOne(const std::u32string& pat, size_t& p, char32_t c) {
    char32_t pc = pat[p];
    if (pc == '?') {
        ++p;
        return true;
    }
    if (pc == '#') {
        ++p;
        return c >= '0' && c <= '9';
    }
    if (pc == '[') {
        size_t close = pat.find(']', p + 1);
        if (close == std::u32string::npos) {  // an open bracket stands for itself
            ++p;
            return c == '[';
        }
        size_t i = p + 1;
        bool negate = i < close && pat[i] == '!';
        if (negate) ++i;
        bool hit = false;
        if (i == close) hit = false;  // "[]" matches nothing of length one
        for (; i < close; ++i) {
            if (i + 2 < close && pat[i + 1] == '-') {
                char32_t lo = text::lowerOf(pat[i]), hi = text::lowerOf(pat[i + 2]);
                if (c >= lo && c <= hi) hit = true;
                i += 2;
            } else if (text::lowerOf(pat[i]) == c) {
                hit = true;
            }
        }
        p = close + 1;
        return negate ? !hit : hit;
    }
    ++p;
    return text::lowerOf(pc) == c;
}

}  // namespace

std::vector<Token> tokenize(std::string_view sql) {
    std::vector<Token> out;
    size_t i = 0;
    const size_t n = sql.size();
    while (i < n) {
        unsigned char c = static_cast<unsigned char>(sql[i]);
        size_t start = i;
        TokenKind kind;
        if (std::isspace(c)) {
            while (i < n && std::isspace(static_cast<unsigned char>(sql[i]))) ++i;
            kind = TokenKind::Space;
        } else if (c == '[') {
            while (i < n && sql[i] != ']') ++i;
            if (i < n) ++i;
            kind = TokenKind::Bracketed;
        } else if (c == '\'' || c == '"') {
            ++i;
            while (i < n) {
                if (sql[i] == static_cast<char>(c)) {
                    if (i + 1 < n && sql[i + 1] == static_cast<char>(c)) {
                        i += 2;
                        continue;
                    }
                    ++i;
                    break;
                }
                ++i;
            }
            kind = c == '\'' ? TokenKind::String : TokenKind::DoubleQuoted;
        } else if (std::isdigit(c) || (c == '.' && i + 1 < n &&
                                       std::isdigit(static_cast<unsigned char>(sql[i + 1])))) {
            while (i < n && (std::isalnum(static_cast<unsigned char>(sql[i])) || sql[i] == '.'))
                ++i;
            kind = TokenKind::Number;
        } else if (isWordStart(c)) {
            while (i < n && isWordChar(static_cast<unsigned char>(sql[i]))) ++i;
            kind = TokenKind::Word;
        } else if (c == '?' && i + 1 < n && std::isdigit(static_cast<unsigned char>(sql[i + 1]))) {
            ++i;
            while (i < n && std::isdigit(static_cast<unsigned char>(sql[i]))) ++i;
            kind = TokenKind::Param;
        } else {
            static const char* two[] = {"<>", "<=", ">=", "!=", "||", "=="};
            kind = TokenKind::Punct;
            i += 1;
            for (const char* t : two)
                if (sql.substr(start, 2) == t) i = start + 2;
        }
        out.push_back({kind, std::string(sql.substr(start, i - start))});
    }
    return out;
}

namespace {

// Statements that SQLite reads as they stand: the program's own, never the system's texts.
bool passesAsItStands(std::string_view text) {
    size_t i = 0;
    while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
    size_t j = i;
    while (j < text.size() && isWordChar(static_cast<unsigned char>(text[j]))) ++j;
    static const char* words[] = {"CREATE",  "DROP",      "ALTER",    "PRAGMA",  "BEGIN",
                                  "COMMIT",  "END",       "ROLLBACK", "VACUUM",  "ATTACH",
                                  "DETACH",  "REINDEX",   "ANALYZE",  "EXPLAIN", "WITH",
                                  "REPLACE", "SAVEPOINT", "RELEASE"};
    const std::string u = text::upperAscii(text.substr(i, j - i));
    return std::any_of(std::begin(words), std::end(words), [&](const char* w) { return u == w; });
}

bool isStatement(const std::vector<ast::Token>& tokens) {
    if (tokens.empty() || tokens[0].kind != ast::TokenKind::Word) return false;
    const std::string u = text::upperAscii(tokens[0].text);
    return u == "SELECT" || u == "INSERT" || u == "UPDATE" || u == "DELETE";
}

std::string withoutClosingSemicolon(std::string_view text) {
    std::string s = std::string(text::trimmed(text));
    if (!s.empty() && s.back() == ';') s.pop_back();
    return s;
}

// Bytes with a meaning of their own in a shape's key: where a text, a date and the text's end
// stand, and the escape. Any of them in the text itself is escaped, so that no text (a name or
// a criterion typed with a control character in it) reads as another text's shape.
constexpr char kTextMark = '\x01';
constexpr char kDateMark = '\x02';
constexpr char kEscape = '\x03';
constexpr char kEndMark = '\x1f';

void appendToKey(std::string& key, std::string_view written) {
    for (const char c : written) {
        if (c == kTextMark || c == kDateMark || c == kEscape || c == kEndMark) key += kEscape;
        key += c;
    }
}

// The key of a text's shape: the text with its texts and dates taken out into `values`.
bool splitValues(std::string_view text, std::string& key, std::vector<std::string>& values) {
    key.reserve(text.size() + 16);
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '[') {
            const size_t end = text.find(']', i + 1);
            if (end == std::string_view::npos) return false;
            appendToKey(key, text.substr(i, end - i + 1));
            i = end;
        } else if (c == '\'' || c == '"') {
            std::string value;
            size_t j = i + 1;
            for (;; ++j) {
                if (j >= text.size()) return false;
                if (text[j] == c) {
                    if (j + 1 < text.size() && text[j + 1] == c) {
                        value += c;
                        ++j;
                        continue;
                    }
                    break;
                }
                value += text[j];
            }
            values.push_back(std::move(value));
            key += kTextMark;
            i = j;
        } else if (c == '#') {
            const size_t end = text.find('#', i + 1);
            if (end == std::string_view::npos) return false;
            std::string date = ast::dateValue(std::string(text.substr(i + 1, end - i - 1)));
            if (date.empty()) return false;
            values.push_back(std::move(date));
            key += kDateMark;
            i = end;
        } else {
            appendToKey(key, std::string_view(&text[i], 1));
        }
    }
    return true;
}

// A value written into SQLite's text, for the callers that paste a condition into their own.
std::string literal(const std::string& value, bool numeric) {
    std::string number;
    if (numeric && readsAsNumber(value, number)) return number;
    std::string q = "'";
    for (char c : value) q += c == '\'' ? std::string("''") : std::string(1, c);
    return q + "'";
}

}  // namespace

bool Catalog::isKey(std::string_view column) const {
    return keyColumns.count(text::lower(column)) > 0;
}

bool Catalog::isNumber(std::string_view column) const {
    return !numberColumns.empty() && numberColumns.count(text::lower(column)) > 0;
}

std::string translate(std::string_view jetSql, const Catalog* catalog) {
    if (passesAsItStands(jetSql)) return withoutClosingSemicolon(jetSql);
    const Prepared p = prepare(jetSql, catalog);
    // The parameters are put back as literals, outside names.
    const std::string& sql = p.shape->sql;
    std::string out;
    for (size_t i = 0; i < sql.size(); ++i) {
        const char c = sql[i];
        if (c == '[' || c == '"') {
            const size_t end = sql.find(c == '[' ? ']' : '"', i + 1);
            out.append(sql, i, end - i + 1);
            i = end;
        } else if (c == '?') {
            size_t j = i + 1;
            while (j < sql.size() && std::isdigit(static_cast<unsigned char>(sql[j]))) ++j;
            const size_t k = std::stoul(sql.substr(i + 1, j - i - 1)) - 1;
            out += literal(p.values[k], p.shape->numeric[k]);
            i = j - 1;
        } else {
            out += c;
        }
    }
    return out;
}

Prepared prepare(std::string_view jetSql, const Catalog* catalog) {
    Prepared out;
    if (passesAsItStands(jetSql)) {
        auto shape = std::make_shared<Shape>();
        shape->sql = withoutClosingSemicolon(jetSql);
        out.shape = shape;
        return out;
    }
    // The texts and dates come out first, in one cheap pass: texts that differ only in them
    // share one shape, which is read once. A text that the pass cannot take apart (a literal
    // never closed) goes to the reader, which names the fault.
    std::string key;
    if (!splitValues(jetSql, key, out.values)) {
        ast::lex(jetSql);
        throw std::logic_error("unreachable");
    }
    key += kEndMark;
    if (catalog) key += std::to_string(catalog->id);

    static std::mutex mutex;
    static std::unordered_map<std::string, std::shared_ptr<const Shape>> shapes;
    std::shared_ptr<const Shape> shape;
    {
        std::lock_guard lock(mutex);
        if (auto it = shapes.find(key); it != shapes.end()) shape = it->second;
    }
    if (!shape) {
        const std::vector<ast::Token> tokens = ast::lex(jetSql);
        const ast::Statement statement = ast::parse(jetSql, tokens, !isStatement(tokens));
        Generated g = generate(statement, catalog, static_cast<int>(out.values.size()));
        auto made = std::make_shared<Shape>();
        made->sql = std::move(g.sql);
        made->numeric = std::move(g.numeric);
        made->parts = std::move(g.parts);
        made->numbers = std::move(g.numbers);
        shape = made;
        if (!g.valuesInNames) {
            std::lock_guard lock(mutex);
            if (shapes.size() > 20000)
                shapes.clear();  // texts of many shapes come and go with the clerk's filters
            shapes[key] = shape;
        }
    }
    out.values.insert(out.values.end(), shape->numbers.begin(), shape->numbers.end());
    out.shape = std::move(shape);
    return out;
}

SelectParts parseSelect(std::string_view jetSql, const Catalog* catalog) {
    return prepare(jetSql, catalog).shape->parts;
}

std::string bareTableName(std::string_view source) {
    std::string s = std::string(text::trimmed(source));
    if (s.empty()) return {};
    if (s.front() == '[' && s.back() == ']' && s.find(']') == s.size() - 1)
        return s.substr(1, s.size() - 2);
    for (unsigned char c : s)
        if (!isWordChar(c) && c != '-') return {};
    if (!isWordStart(static_cast<unsigned char>(s.front()))) return {};
    return s;
}

std::string soleQualifier(std::string_view condition) {
    static const char* keywords[] = {"LIKE",    "AND",    "OR",      "NOT",  "IS",    "NULL", "IN",
                                     "BETWEEN", "ESCAPE", "CASE",    "WHEN", "THEN",  "ELSE", "END",
                                     "CAST",    "AS",     "INTEGER", "REAL", "EXISTS"};
    const std::vector<Token> tokens = tokenize(condition);
    std::vector<size_t> sig;
    for (size_t i = 0; i < tokens.size(); ++i)
        if (tokens[i].kind != TokenKind::Space) sig.push_back(i);
    std::string qualifier;
    for (size_t k = 0; k < sig.size(); ++k) {
        const Token& t = tokens[sig[k]];
        if (t.kind != TokenKind::Word && t.kind != TokenKind::Bracketed) continue;
        const bool qualifies = k + 1 < sig.size() && isPunct(tokens[sig[k + 1]], ".");
        const bool qualified = k > 0 && isPunct(tokens[sig[k - 1]], ".");
        if (qualified) continue;  // the column after its qualifier
        if (qualifies) {
            const std::string q =
                t.kind == TokenKind::Bracketed ? t.text.substr(1, t.text.size() - 2) : t.text;
            if (!qualifier.empty() && text::upperAscii(qualifier) != text::upperAscii(q)) return {};
            qualifier = q;
            continue;
        }
        if (t.kind == TokenKind::Word) {
            const auto u = text::upperAscii(t.text);
            if (u == "COLLATE") {  // and the collation's name behind it
                ++k;
                continue;
            }
            const bool keyword = std::any_of(std::begin(keywords), std::end(keywords),
                                             [&](const char* w) { return u == w; });
            const bool function = k + 1 < sig.size() && isPunct(tokens[sig[k + 1]], "(");
            if (keyword || function) continue;
        }
        return {};  // a bare column name: its table is not known here
    }
    return qualifier;
}

std::string quoteName(std::string_view name) {
    std::string q = "\"";
    for (char c : name) q += c == '"' ? std::string("\"\"") : std::string(1, c);
    return q + "\"";
}

std::string quote(std::string_view value) {
    std::string out = "'";
    out.reserve(value.size() + 2);
    for (char c : value) {
        out += c;
        if (c == '\'') out += '\'';
    }
    return out + "'";
}

bool likeMatch(std::string_view pattern, std::string_view text) {
    const std::u32string pat = decode(pattern);
    std::u32string str = decode(text);
    for (auto& c : str) c = text::lowerOf(c);

    // Greedy matching with one backtrack point for the last "*".
    size_t p = 0, s = 0;
    size_t starP = std::u32string::npos, starS = 0;
    while (s < str.size()) {
        if (p < pat.size() && pat[p] == '*') {
            starP = ++p;
            starS = s;
            continue;
        }
        size_t p2 = p;
        if (p < pat.size() && matchOne(pat, p2, str[s])) {
            p = p2;
            ++s;
            continue;
        }
        if (starP == std::u32string::npos) return false;
        p = starP;
        s = ++starS;
    }
    while (p < pat.size() && pat[p] == '*') ++p;
    return p == pat.size();
}

}  // namespace tolma::store::jet
