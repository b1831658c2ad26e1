#include "store/jet_sql.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <mutex>
#include <unordered_map>

namespace tolma::store::jet {
namespace {

bool isWordStart(unsigned char c) { return std::isalpha(c) || c == '_' || c >= 0x80; }
bool isWordChar(unsigned char c) { return std::isalnum(c) || c == '_' || c == '$' || c >= 0x80; }

std::string upper(std::string_view s) {
    std::string r(s);
    for (auto& c : r) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return r;
}

bool isKeyword(const Token& t, std::string_view word) {
    return t.kind == TokenKind::Word && upper(t.text) == word;
}

bool isPunct(const Token& t, std::string_view p) {
    return t.kind == TokenKind::Punct && t.text == p;
}

bool isComparison(const Token& t) {
    static const char* ops[] = {"=", "<>", "<", ">", "<=", ">=", "!="};
    if (t.kind != TokenKind::Punct) return false;
    return std::any_of(std::begin(ops), std::end(ops), [&](const char* o) { return t.text == o; });
}

// Functions whose result is a number: Jet converts a quoted number compared with them.
bool isNumericFunction(const Token& t) {
    static const char* names[] = {"LEN", "VAL", "COUNT", "SUM", "AVG", "ABS", "INT", "FIX",
                                  "YEAR", "MONTH", "DAY", "INSTR", "ASC", "LENGTH"};
    if (t.kind != TokenKind::Word) return false;
    const auto u = upper(t.text);
    return std::any_of(std::begin(names), std::end(names), [&](const char* n) { return u == n; });
}

// The content of a single-quoted literal, quotes removed and doubled quotes undone.
std::string literalContent(const std::string& quoted) {
    std::string r;
    for (size_t i = 1; i + 1 < quoted.size(); ++i) {
        r += quoted[i];
        if (quoted[i] == quoted.front() && i + 2 < quoted.size() && quoted[i + 1] == quoted.front())
            ++i;
    }
    return r;
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

std::string join(const std::vector<Token>& tokens, size_t from, size_t to) {
    std::string r;
    for (size_t i = from; i < to && i < tokens.size(); ++i) r += tokens[i].text;
    return r;
}

std::string trimmed(const std::string& s) {
    size_t b = s.find_first_not_of(" \t\r\n");
    if (b == std::string::npos) return {};
    size_t e = s.find_last_not_of(" \t\r\n");
    return s.substr(b, e - b + 1);
}

// Folds one code point as the old engine's text comparison does for German text.
char32_t foldCodePoint(char32_t c) {
    if (c >= 'A' && c <= 'Z') return c + 32;
    if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return c + 32;
    return c;
}

std::u32string decode(std::string_view s) {
    std::u32string r;
    r.reserve(s.size());
    for (size_t i = 0; i < s.size();) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        char32_t cp = c;
        size_t n = 1;
        if (c >= 0xF0) {
            n = 4;
            cp = c & 0x07;
        } else if (c >= 0xE0) {
            n = 3;
            cp = c & 0x0F;
        } else if (c >= 0xC0) {
            n = 2;
            cp = c & 0x1F;
        }
        if (n > 1) {
            if (i + n > s.size()) {
                n = 1;
                cp = c;
            } else {
                for (size_t k = 1; k < n; ++k)
                    cp = (cp << 6) | (static_cast<unsigned char>(s[i + k]) & 0x3F);
            }
        }
        r.push_back(cp);
        i += n;
    }
    return r;
}

void encode(char32_t cp, std::string& out) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
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
                char32_t lo = foldCodePoint(pat[i]), hi = foldCodePoint(pat[i + 2]);
                if (c >= lo && c <= hi) hit = true;
                i += 2;
            } else if (foldCodePoint(pat[i]) == c) {
                hit = true;
            }
        }
        p = close + 1;
        return negate ? !hit : hit;
    }
    ++p;
    return foldCodePoint(pc) == c;
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
        } else if (std::isdigit(c) || (c == '.' && i + 1 < n && std::isdigit(static_cast<unsigned char>(sql[i + 1])))) {
            while (i < n && (std::isalnum(static_cast<unsigned char>(sql[i])) || sql[i] == '.')) ++i;
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
std::string translateTokens(std::vector<Token> tokens, std::vector<bool>* numericParams);
}

std::string translate(std::string_view jetSql) { return translateTokens(tokenize(jetSql), nullptr); }

namespace {
std::string translateTokens(std::vector<Token> tokens, std::vector<bool>* numericParams) {

    // Indexes of the tokens that are not blanks, for looking at neighbours.
    std::vector<size_t> sig;
    for (size_t i = 0; i < tokens.size(); ++i)
        if (tokens[i].kind != TokenKind::Space) sig.push_back(i);

    auto matchingOpen = [&](size_t k) -> long {  // k: index into sig of a ")"
        int depth = 0;
        for (long j = static_cast<long>(k); j >= 0; --j) {
            const Token& t = tokens[sig[j]];
            if (isPunct(t, ")")) ++depth;
            if (isPunct(t, "(") && --depth == 0) return j;
        }
        return -1;
    };

    for (size_t k = 0; k < sig.size(); ++k) {
        Token& t = tokens[sig[k]];
        const Token* prev = k > 0 ? &tokens[sig[k - 1]] : nullptr;
        if (t.kind == TokenKind::Word) {
            const auto u = upper(t.text);
            if (u == "DISTINCTROW") {
                t.text.clear();
            } else if ((u == "TRUE" || u == "FALSE") && !(prev && isPunct(*prev, "."))) {
                t = {TokenKind::Number, u == "TRUE" ? "-1" : "0"};
            }
        } else if (t.kind == TokenKind::DoubleQuoted) {
            std::string content = literalContent(t.text);
            std::string lit = "'";
            for (char ch : content) {
                lit += ch;
                if (ch == '\'') lit += '\'';
            }
            t = {TokenKind::String, lit + "'"};
        } else if (isPunct(t, "&")) {
            t.text = "||";
        }
    }

    // A quoted number compared with a numeric function: the old engine converts the text.
    auto comparedWithNumber = [&](size_t k) {
        if (k >= 2 && isComparison(tokens[sig[k - 1]]) && isPunct(tokens[sig[k - 2]], ")")) {
            long open = matchingOpen(k - 2);
            if (open > 0 && isNumericFunction(tokens[sig[open - 1]])) return true;
        }
        return k + 3 < sig.size() && isComparison(tokens[sig[k + 1]]) && isNumericFunction(tokens[sig[k + 2]]) &&
               isPunct(tokens[sig[k + 3]], "(");
    };
    for (size_t k = 0; k < sig.size(); ++k) {
        Token& t = tokens[sig[k]];
        if (t.kind == TokenKind::Param) {
            if (numericParams && comparedWithNumber(k)) {
                const size_t index = std::stoul(t.text.substr(1));
                if (numericParams->size() < index) numericParams->resize(index);
                (*numericParams)[index - 1] = true;
            }
            continue;
        }
        if (t.kind != TokenKind::String) continue;
        std::string number;
        if (readsAsNumber(literalContent(t.text), number) && comparedWithNumber(k)) t = {TokenKind::Number, number};
    }

    // A closing ";" ends the statement; nothing behind it is part of it.
    for (size_t k = 0; k < sig.size(); ++k) {
        if (isPunct(tokens[sig[k]], ";")) {
            tokens.resize(sig[k]);
            break;
        }
    }
    return join(tokens, 0, tokens.size());
}
}  // namespace

Prepared prepare(std::string_view jetSql) {
    // The values come out first, in one pass: a value never changes what the text means.
    Prepared out;
    std::string raw;
    raw.reserve(jetSql.size());
    for (size_t i = 0; i < jetSql.size(); ++i) {
        const char c = jetSql[i];
        if (c == '[' || c == '"') {
            const size_t end = jetSql.find(c == '[' ? ']' : '"', i + 1);
            const size_t stop = end == std::string_view::npos ? jetSql.size() : end + 1;
            raw.append(jetSql.substr(i, stop - i));
            i = stop - 1;
        } else if (c == '\'') {
            std::string value;
            size_t j = i + 1;
            for (; j < jetSql.size(); ++j) {
                if (jetSql[j] == '\'') {
                    if (j + 1 < jetSql.size() && jetSql[j + 1] == '\'') {
                        value += '\'';
                        ++j;
                        continue;
                    }
                    break;
                }
                value += jetSql[j];
            }
            out.values.push_back(std::move(value));
            raw += "?" + std::to_string(out.values.size());
            i = j;
        } else {
            raw += c;
        }
    }

    static std::mutex mutex;
    static std::unordered_map<std::string, std::shared_ptr<const Shape>> shapes;
    std::lock_guard lock(mutex);
    auto& shape = shapes[raw];
    if (!shape) {
        auto made = std::make_shared<Shape>();
        made->sql = translateTokens(tokenize(raw), &made->numeric);
        made->numeric.resize(out.values.size());
        made->parts = parseSelect(made->sql);
        shape = made;
        if (shapes.size() > 20000) {  // texts of many shapes come and go with the clerk's filters
            auto keep = shape;
            shapes.clear();
            shapes[raw] = keep;
            out.shape = keep;
            return out;
        }
    }
    out.shape = shape;
    return out;
}

SelectParts parseSelect(std::string_view translatedSql) {
    SelectParts parts;
    const std::vector<Token> tokens = tokenize(translatedSql);
    std::vector<size_t> sig;
    for (size_t i = 0; i < tokens.size(); ++i)
        if (tokens[i].kind != TokenKind::Space) sig.push_back(i);
    if (sig.empty() || !isKeyword(tokens[sig[0]], "SELECT")) return parts;
    parts.isSelect = true;

    // Top-level clause boundaries, as token indexes.
    size_t listStart = sig[0] + 1;
    size_t fromKw = tokens.size(), whereKw = tokens.size(), orderKw = tokens.size(),
           endFrom = tokens.size(), endWhere = tokens.size();
    int depth = 0;
    for (size_t k = 1; k < sig.size(); ++k) {
        const Token& t = tokens[sig[k]];
        if (isPunct(t, "(")) ++depth;
        if (isPunct(t, ")")) --depth;
        if (depth != 0 || t.kind != TokenKind::Word) continue;
        const auto u = upper(t.text);
        if (k == 1 && (u == "DISTINCT" || u == "ALL")) {
            parts.distinct = u == "DISTINCT";
            listStart = sig[k] + 1;
        } else if (u == "FROM" && fromKw == tokens.size()) {
            fromKw = sig[k];
        } else if (u == "WHERE" && fromKw != tokens.size() && whereKw == tokens.size()) {
            whereKw = sig[k];
            endFrom = std::min(endFrom, sig[k]);
        } else if ((u == "GROUP" || u == "HAVING" || u == "UNION" || u == "INTERSECT" ||
                    u == "EXCEPT") && fromKw != tokens.size()) {
            parts.aggregate = true;
            endFrom = std::min(endFrom, sig[k]);
            endWhere = std::min(endWhere, sig[k]);
        } else if (u == "ORDER" && k + 1 < sig.size() && isKeyword(tokens[sig[k + 1]], "BY") &&
                   fromKw != tokens.size()) {
            orderKw = sig[k];
            endFrom = std::min(endFrom, sig[k]);
            endWhere = std::min(endWhere, sig[k]);
        } else if (u == "LIMIT" && fromKw != tokens.size()) {
            parts.aggregate = true;  // not a plain keyset query either
        }
    }
    if (fromKw == tokens.size()) {
        parts.derivedTable = true;  // SELECT without FROM: nothing to key on
        parts.selectList = trimmed(join(tokens, listStart, tokens.size()));
        return parts;
    }
    parts.selectList = trimmed(join(tokens, listStart, fromKw));
    parts.from = trimmed(join(tokens, fromKw + 1, endFrom));
    if (whereKw != tokens.size()) parts.where = trimmed(join(tokens, whereKw + 1, endWhere));
    if (orderKw != tokens.size()) {
        size_t byIdx = orderKw + 1;
        while (byIdx < tokens.size() && !isKeyword(tokens[byIdx], "BY")) ++byIdx;
        parts.orderBy = trimmed(join(tokens, byIdx + 1, tokens.size()));
    }

    // Aggregate functions in the select list make the rows no rows of a table.
    static const char* aggregates[] = {"COUNT", "SUM", "AVG", "MIN", "MAX", "FIRST", "LAST",
                                       "STDEV", "VAR", "GROUP_CONCAT", "TOTAL"};
    for (size_t k = 0; k + 1 < sig.size() && sig[k] < fromKw; ++k) {
        const Token& t = tokens[sig[k]];
        if (t.kind != TokenKind::Word || !isPunct(tokens[sig[k + 1]], "(")) continue;
        const auto u = upper(t.text);
        for (const char* a : aggregates)
            if (u == a) parts.aggregate = true;
    }

    // Base tables of the FROM clause.
    static const char* joinWords[] = {"INNER", "LEFT", "RIGHT", "FULL", "OUTER", "JOIN", "ON",
                                      "CROSS", "NATURAL", "USING", "AS"};
    auto isJoinWord = [&](const Token& t) {
        if (t.kind != TokenKind::Word) return false;
        const auto u = upper(t.text);
        return std::any_of(std::begin(joinWords), std::end(joinWords),
                           [&](const char* w) { return u == w; });
    };
    bool expectTable = true;
    for (size_t k = 0; k < sig.size(); ++k) {
        size_t i = sig[k];
        if (i <= fromKw || i >= endFrom) continue;
        const Token& t = tokens[i];
        if (t.kind == TokenKind::Word) {
            const auto u = upper(t.text);
            if (u == "LEFT" || u == "RIGHT" || u == "FULL" || u == "OUTER") parts.outerJoin = true;
            if (u == "SELECT") parts.derivedTable = true;
        }
        if (isPunct(t, ",") || isKeyword(t, "JOIN")) {
            expectTable = true;
            continue;
        }
        if (isPunct(t, "(")) continue;  // parenthesised joins keep the expectation
        if (!expectTable) continue;
        if (t.kind == TokenKind::Word || t.kind == TokenKind::Bracketed) {
            if (isJoinWord(t)) continue;
            TableRef ref;
            ref.name = t.kind == TokenKind::Bracketed ? t.text.substr(1, t.text.size() - 2) : t.text;
            ref.qualifier = t.text;
            // An alias follows the name, with or without AS.
            size_t next = k + 1;
            if (next < sig.size() && sig[next] < endFrom && isKeyword(tokens[sig[next]], "AS")) ++next;
            if (next < sig.size() && sig[next] < endFrom) {
                const Token& a = tokens[sig[next]];
                if ((a.kind == TokenKind::Word && !isJoinWord(a)) || a.kind == TokenKind::Bracketed)
                    ref.qualifier = a.text;
            }
            parts.tables.push_back(ref);
            expectTable = false;
        } else {
            expectTable = false;
        }
    }
    return parts;
}

std::string bareTableName(std::string_view source) {
    std::string s = trimmed(std::string(source));
    if (s.empty()) return {};
    if (s.front() == '[' && s.back() == ']' && s.find(']') == s.size() - 1)
        return s.substr(1, s.size() - 2);
    for (unsigned char c : s)
        if (!isWordChar(c) && c != '-') return {};
    if (!isWordStart(static_cast<unsigned char>(s.front()))) return {};
    return s;
}

std::string soleQualifier(std::string_view condition) {
    static const char* keywords[] = {"LIKE", "AND", "OR", "NOT", "IS", "NULL", "IN", "BETWEEN", "ESCAPE"};
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
            const std::string q = t.kind == TokenKind::Bracketed ? t.text.substr(1, t.text.size() - 2) : t.text;
            if (!qualifier.empty() && upper(qualifier) != upper(q)) return {};
            qualifier = q;
            continue;
        }
        if (t.kind == TokenKind::Word) {
            const auto u = upper(t.text);
            const bool keyword = std::any_of(std::begin(keywords), std::end(keywords), [&](const char* w) { return u == w; });
            const bool function = k + 1 < sig.size() && isPunct(tokens[sig[k + 1]], "(");
            if (keyword || function) continue;
        }
        return {};  // a bare column name: its table is not known here
    }
    return qualifier;
}

std::string escapeValue(std::string_view value) {
    std::string out;
    out.reserve(value.size());
    for (char c : value) {
        out += c;
        if (c == '\'') out += '\'';
    }
    return out;
}

bool likeMatch(std::string_view pattern, std::string_view text) {
    const std::u32string pat = decode(pattern);
    std::u32string str = decode(text);
    for (auto& c : str) c = foldCodePoint(c);

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

long long utf8Length(std::string_view text) {
    long long n = 0;
    for (unsigned char c : text)
        if ((c & 0xC0) != 0x80) ++n;
    return n;
}

std::string foldCase(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char32_t c : decode(text)) encode(foldCodePoint(c), out);
    return out;
}

}  // namespace tolma::store::jet
