// The search of a list as a clerk types into it: "table.[column] LIKE 'text*'" answered from
// an index or from the order of the keyset, so that a keystroke costs about as much on a large
// store as on a small one. Every row found is the one the plain search finds: each candidate is
// checked by the engine's own LIKE.
#include <sqlite3.h>

#include <algorithm>
#include <cctype>
#include <unordered_set>

#include "store/german_text.h"
#include "store/keyset_cursor.h"
#include "text/text.h"

namespace tolma::store {
namespace {

using jet::Token;
using jet::TokenKind;

// Rows tried one by one after the current row before an index is asked: where many rows
// match, one of them is mostly among the first.
constexpr long kNearRows = 64;
// At most this many spellings of the typed text are looked up (two per letter with an umlaut
// or accent).
constexpr size_t kMaxSpellings = 64;

std::vector<Token> significant(std::string_view text) {
    std::vector<Token> out;
    for (auto& t : jet::tokenize(text))
        if (t.kind != TokenKind::Space) out.push_back(std::move(t));
    return out;
}

bool isName(const Token& t) {
    return t.kind == TokenKind::Word || t.kind == TokenKind::Bracketed;
}

std::string nameOf(const Token& t) {
    return t.kind == TokenKind::Bracketed ? t.text.substr(1, t.text.size() - 2) : t.text;
}

bool isWord(const Token& t, std::string_view word) {
    return t.kind == TokenKind::Word && text::lower(t.text) == word;
}

bool isPunct(const Token& t, std::string_view p) {
    return t.kind == TokenKind::Punct && t.text == p;
}

bool sameName(const std::string& a, const std::string& b) {
    return text::lower(a) == text::lower(b);
}

// The beginning of a LIKE pattern up to its first wildcard: every text that matches begins with
// it, case aside.
std::string literalBeginning(const std::string& pattern) {
    return pattern.substr(0, pattern.find_first_of("*?#["));
}

// The spellings of a text that the engine's LIKE takes as equal to it, up to ASCII case (which
// the indexes fold themselves): each Latin-1 letter in both its cases.
std::vector<std::string> spellings(const std::string& text) {
    std::vector<std::string> out{""};
    for (size_t i = 0; i < text.size();) {
        const auto c = static_cast<unsigned char>(text[i]);
        const size_t n = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 1;
        const std::string one = text.substr(i, n);
        i += n;
        std::string other;
        if (c == 0xC3 && one.size() == 2) {
            // U+00C0..U+00DE and U+00E0..U+00FE, apart from × and ÷, are pairs of cases.
            const auto low = static_cast<unsigned char>(one[1]);
            if (low >= 0x80 && low <= 0x9E && low != 0x97) other = {one[0], char(low + 0x20)};
            if (low >= 0xA0 && low <= 0xBE && low != 0xB7) other = {one[0], char(low - 0x20)};
        }
        const size_t before = out.size();
        if (!other.empty()) {
            if (before * 2 > kMaxSpellings) return {};
            for (size_t k = 0; k < before; ++k) out.push_back(out[k] + other);
        }
        for (size_t k = 0; k < before; ++k) out[k] += one;
    }
    return out;
}

// The least text above every text that begins with `bound`, bytewise; empty if there is none.
std::string successor(std::string bound) {
    while (!bound.empty() && static_cast<unsigned char>(bound.back()) == 0xFF) bound.pop_back();
    if (!bound.empty()) bound.back() = static_cast<char>(bound.back() + 1);
    return bound;
}

bool isAscii(const std::string& text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

}  // namespace

// "qualifier.[column] LIKE 'pattern'" and nothing else.
std::optional<KeysetCursor::TypedSearch> KeysetCursor::typedSearch(const std::string& criteria) {
    const auto t = significant(criteria);
    if (t.size() != 5 || !isName(t[0]) || !isPunct(t[1], ".") || !isName(t[2]) ||
        !isWord(t[3], "like") || t[4].kind != TokenKind::String || t[4].text.size() < 2 ||
        t[4].text[0] != '\'')
        return std::nullopt;
    TypedSearch s;
    const std::string q = nameOf(t[0]);
    s.table = -1;
    for (int j = 0; j < stride; ++j)
        if (const std::string& own = tables()[static_cast<size_t>(j)].qualifier;
            sameName(q, own) || sameName("[" + q + "]", own) || sameName("\"" + q + "\"", own))
            s.table = s.table == -1 ? j : -2;  // a qualifier named twice is left to the query
    if (s.table < 0) return std::nullopt;
    s.column = nameOf(t[2]);
    const std::string& table = tables()[static_cast<size_t>(s.table)].name;
    if (conn->isServer() ? !conn->isTextColumn(table, s.column)
                         : sqlite3_table_column_metadata(conn->handle(), nullptr, table.c_str(),
                                                         s.column.c_str(), nullptr, nullptr,
                                                         nullptr, nullptr, nullptr) != SQLITE_OK)
        return std::nullopt;  // an alias of the select list, or no text column at all
    const std::string& quoted = t[4].text;
    for (size_t i = 1; i + 1 < quoted.size(); ++i) {
        s.pattern += quoted[i];
        if (quoted[i] == '\'') ++i;
    }
    s.beginning = literalBeginning(s.pattern);
    return s;
}

KeysetCursor::LeadingTerm KeysetCursor::leadingTerm() const {
    LeadingTerm term;
    const auto t = significant(orderClause());
    size_t i = 0;
    term.parenthesised = !t.empty() && isPunct(t[0], "(");
    if (term.parenthesised) ++i;
    if (i + 2 >= t.size() || !isName(t[i]) || !isPunct(t[i + 1], ".") || !isName(t[i + 2]))
        return term;
    const std::string q = nameOf(t[i]);
    for (int j = 0; j < stride && term.table < 0; ++j)
        if (const std::string& own = tables()[static_cast<size_t>(j)].qualifier;
            sameName(q, own) || sameName("[" + q + "]", own) || sameName("\"" + q + "\"", own))
            term.table = j;
    term.column = nameOf(t[i + 2]);
    i += 3;
    if (term.parenthesised) {
        if (i >= t.size() || !isPunct(t[i], ")")) return term;
        ++i;
    }
    if (i + 1 < t.size() && isWord(t[i], "collate")) {
        if (!sameName(nameOf(t[i + 1]), german::kCollation)) return term;
        term.german = true;
        i += 2;
    } else if (term.parenthesised) {
        return term;
    }
    if (i < t.size() && (isWord(t[i], "asc") || isWord(t[i], "desc"))) {
        term.descending = isWord(t[i], "desc");
        ++i;
    }
    term.whole = i == t.size() || isPunct(t[i], ",");
    return term;
}

// How the keyset is ordered first: by this column, in German order or by its own collation
// (a key column), ascending or not. None if its first term is anything else.
KeysetCursor::Order KeysetCursor::leadingOrder(const TypedSearch& s) {
    const LeadingTerm term = leadingTerm();
    if (!term.whole || term.table != s.table || !sameName(term.column, s.column))
        return Order::None;
    if (!term.german) {
        // A key column is ordered by its own collation; only NOCASE is known here.
        const char* collation = nullptr;
        const std::string& table = tables()[static_cast<size_t>(s.table)].name;
        if (sqlite3_table_column_metadata(conn->handle(), nullptr, table.c_str(), s.column.c_str(),
                                          nullptr, &collation, nullptr, nullptr,
                                          nullptr) != SQLITE_OK ||
            !collation || !sameName(collation, "nocase"))
            return Order::None;
    }
    return term.german ? (term.descending ? Order::GermanDown : Order::GermanUp)
                       : (term.descending ? Order::NoCaseDown : Order::NoCaseUp);
}

// Changes to the store since the keys were read: by this connection, or committed by another.
long long KeysetCursor::storeState() {
    if (conn->isServer()) return conn->totalChanges();
    auto& version = conn->cached("PRAGMA data_version");
    long long v = version.step() ? version.column(0).toInteger() : 0;
    version.reset();
    return v * 1000003 + conn->totalChanges();
}

const KeysetCursor::Positions& KeysetCursor::positionsOf(int table) {
    if (positions.size() != static_cast<size_t>(stride)) positions.assign(stride, {});
    Positions& p = positions[static_cast<size_t>(table)];
    if (p.valid) return p;
    p = Positions{};
    long long lo = 0, hi = -1;
    for (long i = 0; i < origCount; ++i) {
        const long long id = keys[static_cast<size_t>(i) * stride + table];
        if (i == 0 || id < lo) lo = id;
        if (i == 0 || id > hi) hi = id;
    }
    if (origCount > 0 && hi - lo < 4LL * origCount + 1024) {
        // Row ids mostly run without gaps: a plain array from the least of them.
        p.first = lo;
        p.dense.assign(static_cast<size_t>(hi - lo + 1), -1);
        for (long i = origCount - 1; i >= 0; --i)
            p.dense[static_cast<size_t>(keys[static_cast<size_t>(i) * stride + table] - lo)] = i;
    } else {
        p.sparse.reserve(static_cast<size_t>(origCount));
        for (long i = 0; i < origCount; ++i)
            p.sparse.emplace_back(keys[static_cast<size_t>(i) * stride + table], i);
        std::sort(p.sparse.begin(), p.sparse.end());
    }
    p.valid = true;
    return p;
}

long KeysetCursor::Positions::of(long long rowid) const {
    if (!dense.empty()) {
        if (rowid < first || rowid - first >= static_cast<long long>(dense.size())) return -1;
        return dense[static_cast<size_t>(rowid - first)];
    }
    auto it = std::lower_bound(sparse.begin(), sparse.end(), std::make_pair(rowid, -1L));
    return it != sparse.end() && it->first == rowid ? it->second : -1;
}

// The index that answers which rows of the table begin with a text: one on the column itself
// with NOCASE (the key columns), or one on lower() of it.
KeysetCursor::PrefixIndex KeysetCursor::prefixIndex(const TypedSearch& s) {
    const std::string& table = tables()[static_cast<size_t>(s.table)].name;
    auto& indexes = conn->cached(
        "SELECT x.cid, x.name, x.coll, m.sql FROM pragma_index_list(?1) AS l, "
        "pragma_index_xinfo(l.name) AS x, sqlite_master AS m WHERE x.seqno = 0 AND l.partial = 0 "
        "AND m.type = 'index' AND m.name = l.name");
    indexes.bind(1, Variant(table));
    PrefixIndex found = PrefixIndex::None;
    const std::string expression = text::lower("(lower([" + s.column + "]))");
    while (indexes.step()) {
        const long long cid = indexes.column(0).toInteger();
        if (cid >= 0 && sameName(indexes.column(1).toString(), s.column) &&
            sameName(indexes.column(2).toString(), "nocase")) {
            found = PrefixIndex::Column;
            break;
        }
        if (cid >= 0 && sameName(indexes.column(1).toString(), s.column) &&
            sameName(indexes.column(2).toString(), german::kCollation))
            found = PrefixIndex::German;
        std::string sql = text::lower(indexes.column(3).toString());
        sql.erase(std::remove(sql.begin(), sql.end(), ' '), sql.end());
        if (cid == -2 && sql.size() >= expression.size() &&
            sql.compare(sql.size() - expression.size(), expression.size(), expression) == 0)
            found = PrefixIndex::Lower;
    }
    indexes.reset();
    return found;
}

Statement& KeysetCursor::valueStatement(const TypedSearch& s) {
    const std::string& table = tables()[static_cast<size_t>(s.table)].name;
    if (conn->isServer())
        return stmt("SELECT [" + s.column + "], tolma_like([" + s.column + "], ?2) FROM [" + table +
                    "] WHERE rowid = ?1");
    return stmt("SELECT [" + s.column + "], [" + s.column + "] LIKE ?2 FROM [" + table +
                "] WHERE rowid = ?1");
}

// The value of the search's column at position p and whether it matches.
std::pair<Variant, bool> KeysetCursor::valueAt(const TypedSearch& s, long p) {
    auto& st = valueStatement(s);
    st.bind(1, Variant(keys[static_cast<size_t>(p) * stride + s.table]));
    st.bind(2, Variant(s.pattern));
    std::pair<Variant, bool> out;
    if (st.step()) out = {st.column(0), st.column(1).toInteger() != 0};
    st.reset();
    return out;
}

// In a keyset ordered by the column, the rows whose value begins with the typed text stand
// together: found by halving, then walked until the first that matches.
std::optional<std::optional<long>> KeysetCursor::findInOrder(const TypedSearch& s, Order order,
                                                             long after) {
    const bool german = order == Order::GermanUp || order == Order::GermanDown;
    const bool down = order == Order::GermanDown || order == Order::NoCaseDown;
    if (!german && !isAscii(s.beginning)) return std::nullopt;
    const std::u32string wantedPrimary = german ? german::primary(s.beginning) : std::u32string();
    const std::string wanted = german ? std::string() : text::lowerAscii(s.beginning);
    // <0, 0 or >0: the value's beginning against the typed text's, in the keyset's order's terms.
    auto side = [&](const Variant& v) {
        if (v.isNull()) return -1;  // no value sorts below every text
        if (german) {
            const std::u32string p = german::primary(v.toString());
            const int c = p.compare(0, wantedPrimary.size(), wantedPrimary);
            return c < 0 ? -1 : c > 0 ? 1 : 0;
        }
        const std::string text = text::lowerAscii(v.toString());
        const int c = text.compare(0, wanted.size(), wanted);
        return c < 0 ? -1 : c > 0 ? 1 : 0;
    };
    auto before = [&](int sideOf) { return down ? sideOf > 0 : sideOf < 0; };
    // While a long list is still read, where no row of the table begins so, there is nothing
    // to read on for.
    if (filling) {
        bool any = false;
        if (eachByIndex(s, [&](long long) { return !(any = true); }) && !any)
            return std::optional<long>();
    }
    for (;;) {
        long lo = after + 1, hi = origCount;
        while (lo < hi) {
            const long mid = lo + (hi - lo) / 2;
            if (before(side(valueAt(s, mid).first)))
                lo = mid + 1;
            else
                hi = mid;
        }
        for (long p = lo; p < origCount; ++p) {
            if (p - lo >= kNearRows) return findByIndex(s, p - 1);
            const auto [value, matches] = valueAt(s, p);
            if (side(value) != 0) return std::optional<long>();
            if (matches) return std::optional<long>(p);
        }
        // The rows read so far end before the rows that begin so, or among them: the next ones.
        if (!filling) return std::optional<long>();
        takeMore();
    }
}

// The rows of the table whose value begins with the typed text, in any spelling, from the
// index: each row id is handed to `each` until it says to stop. False: no index answers it.
bool KeysetCursor::eachByIndex(const TypedSearch& s, const std::function<bool(long long)>& each) {
    if (s.beginning.empty()) return false;  // the index would give every row
    const PrefixIndex index = prefixIndex(s);
    if (index == PrefixIndex::None) return false;
    const std::string& table = tables()[static_cast<size_t>(s.table)].name;
    if (index == PrefixIndex::German) {
        // Every text that begins so, in any case and with or without its marks, has letters
        // that begin with the typed text's: they stand together from those letters without a
        // mark up to the next letter after the last.
        const std::u32string letters = german::primary(s.beginning);
        if (letters.empty() || letters.back() >= 0x10FFFF) return false;
        std::string from, to;
        for (const char32_t c : letters) text::appendUtf8(from, c);
        for (size_t i = 0; i + 1 < letters.size(); ++i) text::appendUtf8(to, letters[i]);
        text::appendUtf8(to, letters.back() + 1);
        const std::string column = "[" + s.column + "] COLLATE " + german::kCollation;
        auto& range = stmt("SELECT rowid FROM [" + table + "] WHERE " + column + " >= ?1 AND " +
                           column + " < ?2 AND [" + s.column + "] LIKE ?3");
        range.bind(1, Variant(from));
        range.bind(2, Variant(to));
        range.bind(3, Variant(s.pattern));
        while (range.step())
            if (!each(range.column(0).toInteger())) break;
        range.reset();
        return true;
    }
    const auto forms = spellings(s.beginning);
    if (forms.empty()) return false;
    const std::string column = index == PrefixIndex::Lower ? "lower([" + s.column + "])"
                                                           : "[" + s.column + "] COLLATE NOCASE";
    auto& range = stmt("SELECT rowid FROM [" + table + "] WHERE " + column + " >= ?1 AND " +
                       column + " < ?2 AND [" + s.column + "] LIKE ?3");
    auto& lower = stmt("SELECT lower(?1)");
    std::vector<std::pair<std::string, std::string>> bounds;
    for (const auto& form : forms) {
        // The bounds as the index holds its values: lowered as SQLite lowers, or as NOCASE folds.
        std::string from = form;
        if (index == PrefixIndex::Lower) {
            lower.bind(1, Variant(form));
            lower.step();
            from = lower.column(0).toString();
            lower.reset();
        }
        std::string to = successor(text::lowerAscii(from));
        if (to.empty()) return false;
        bounds.emplace_back(std::move(from), std::move(to));
    }
    for (const auto& [from, to] : bounds) {
        range.bind(1, Variant(from));
        range.bind(2, Variant(to));
        range.bind(3, Variant(s.pattern));
        bool more = true;
        while (more && range.step()) more = each(range.column(0).toInteger());
        range.reset();
        if (!more) break;
    }
    return true;
}

// The first of the index's rows in the keyset's order.
std::optional<std::optional<long>> KeysetCursor::findByIndex(const TypedSearch& s, long after) {
    const Positions* where = nullptr;
    long best = -1;
    bool any = false;
    if (!eachByIndex(s, [&](long long rowid) {
            any = true;
            if (!where) where = &positionsOf(s.table);
            const long p = where->of(rowid);
            if (p > after && (best < 0 || p < best)) best = p;
            return true;
        }))
        return std::nullopt;
    // The rows read so far come first in the order: a match among them is the first one.
    if (best < 0 && any && filling) {
        takeMore();
        return findByIndex(s, after);
    }
    return best >= 0 ? std::optional<long>(best) : std::optional<long>();
}

// On a server each question is a round trip: the next rows of the keyset are asked at once,
// then the rows whose folded value begins with the typed text, through the index on it.
std::optional<long> KeysetCursor::findOnServer(const TypedSearch& s, long after) {
    const std::string& table = tables()[static_cast<size_t>(s.table)].name;
    const long near = std::max(after + 1, std::min<long>(origCount, after + 1 + kNearRows));
    std::string ids;
    for (long p = after + 1; p < near; ++p)
        ids += (ids.empty() ? "{" : ",") +
               std::to_string(keys[static_cast<size_t>(p) * stride + s.table]);
    if (!ids.empty()) {
        auto& nearRows = stmt("SELECT rowid FROM [" + table + "] WHERE rowid = ANY(?1) AND " +
                              "tolma_like([" + s.column + "], ?2)");
        nearRows.bind(1, Variant(ids + "}"));
        nearRows.bind(2, Variant(s.pattern));
        std::unordered_set<long long> matching;
        while (nearRows.step()) matching.insert(nearRows.column(0).toInteger());
        nearRows.reset();
        // A row of the table may stand in several places of a join: each place is asked.
        for (long p = after + 1; p < near; ++p)
            if (matching.count(keys[static_cast<size_t>(p) * stride + s.table])) return p;
    }
    // The beginning as a prefix of LIKE, its own % and _ escaped. Asked anew each time, so that
    // the server plans with the prefix and takes the index on the folded column.
    std::string prefix;
    for (const char c : s.beginning) {
        if (c == '%' || c == '_' || c == '\\') prefix += '\\';
        prefix += c;
    }
    // A beginning without letters (a number) is the same folded or not: the column's own index
    // answers it, where the server sorts by bytes.
    const bool letters = std::any_of(s.beginning.begin(), s.beginning.end(), [](char c) {
        return std::isalpha(static_cast<unsigned char>(c)) || static_cast<unsigned char>(c) >= 0x80;
    });
    const std::string column = "[" + s.column + "]";
    // The server takes its index for a LIKE only in the "C" collation; between the beginning
    // and the text just after it, the index answers in any collation that sorts by bytes.
    std::string upTo = s.beginning;
    const bool bounded = !letters && !upTo.empty() && upTo.back() < 0x7f;
    if (bounded) ++upTo.back();
    auto range = conn->prepare("SELECT rowid FROM [" + table + "] WHERE " +
                               (letters ? "tolma_fold(" + column + ") LIKE tolma_fold(?1) || '%'"
                                        : column + " LIKE ?1 || '%'") +
                               (bounded ? " AND " + conn->atLeast(table, s.column, false, "?3") +
                                              " AND " + conn->atMost(table, s.column, false, "?4")
                                        : "") +
                               " AND tolma_like(" + column + ", ?2)");
    range->bind(1, Variant(prefix));
    range->bind(2, Variant(s.pattern));
    if (bounded) {
        range->bind(3, Variant(s.beginning));
        range->bind(4, Variant(upTo));
    }
    const Positions& where = positionsOf(s.table);
    long best = -1;
    bool any = false;
    while (range->step()) {
        any = true;
        const long p = where.of(range->column(0).toInteger());
        if (p >= near && (best < 0 || p < best)) best = p;
    }
    // The rows read so far come first in the order: a match among them is the first one;
    // otherwise it may stand among the rest.
    if (best < 0 && any && filling) {
        takeMore();
        return findOnServer(s, after);
    }
    return best >= 0 ? std::optional<long>(best) : std::nullopt;
}

std::optional<std::optional<long>> KeysetCursor::findTyped(const std::string& criteria,
                                                           long after) {
    const auto s = typedSearch(criteria);
    if (!s) return std::nullopt;
    std::optional<std::optional<long>> found;
    const Order order = conn->isServer() ? Order::None : leadingOrder(*s);
    if (conn->isServer())
        found = findOnServer(*s, after);
    else if (order != Order::None && storeState() == keysState)
        found = findInOrder(*s, order, after);
    if (!found) {
        // Where many rows match, the first is mostly near: tried before the index is read.
        const long near = std::max(after + 1, std::min<long>(origCount, after + 1 + kNearRows));
        for (long p = after + 1; p < near; ++p)
            if (valueAt(*s, p).second) return std::optional<long>(p);
        found = findByIndex(*s, near - 1);
        if (!found) return std::nullopt;
    }
    if (*found || filling) return found;  // while rows are unread, none was added
    // Rows added through this recordset stand at its end, whatever the order says.
    for (long p = std::max(after + 1, origCount); p < count(); ++p)
        if (valueAt(*s, p).second) return std::optional<long>(p);
    return std::optional<long>();
}

}  // namespace tolma::store
