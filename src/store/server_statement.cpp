#include "store/server_statement.h"

#include <libpq-fe.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdlib>

#include "text/text.h"

namespace tolma::store {
namespace {

bool isWordChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' ||
           static_cast<unsigned char>(c) >= 0x80;
}

// The server's type numbers (pg_type.oid) the program meets.
constexpr unsigned kBool = 16, kInt8 = 20, kInt2 = 21, kInt4 = 23, kOid = 26, kFloat4 = 700,
                   kFloat8 = 701, kNumeric = 1700, kBytea = 17, kVarchar = 1043, kBpchar = 1042,
                   kText = 25;

// The word after position `at`, blanks skipped.
std::string nextWord(std::string_view sql, size_t at) {
    while (at < sql.size() && std::isspace(static_cast<unsigned char>(sql[at]))) ++at;
    size_t end = at;
    while (end < sql.size() && isWordChar(sql[end])) ++end;
    return std::string(sql.substr(at, end - at));
}

// The program's kind of a column of the server's type.
char typeCode(unsigned type) {
    switch (type) {
        case kBool:
            return 'l';
        case kInt2:
        case kInt4:
        case kInt8:
        case kOid:
            return 'i';
        case kFloat4:
        case kFloat8:
            return 'r';
        case kNumeric:
            return 'n';
        case kBytea:
            return 'b';
        default:
            return 't';
    }
}

}  // namespace

ServerSql toServerSql(std::string_view sql) {
    ServerSql out;
    std::string& o = out.text;
    o.reserve(sql.size() + 16);
    std::string lastWord;  // the word before, in lower case; names after AS keep their case
    auto name = [&](const std::string& n) {
        o += quoteIdentifier(lastWord == "as" || lastWord == "collate" ? n : text::lowerAscii(n));
        lastWord.clear();
    };
    auto namedParameter = [&](const std::string& n) {
        auto at = std::find(out.names.begin(), out.names.end(), n);
        if (at == out.names.end()) {
            out.names.resize(static_cast<size_t>(out.parameters));
            out.names.push_back(n);
            ++out.parameters;
            out.used.resize(static_cast<size_t>(out.parameters));
            out.used.back() = true;
            at = out.names.end() - 1;
        }
        o += "$" + std::to_string(at - out.names.begin() + 1);
    };
    for (size_t i = 0; i < sql.size();) {
        const char c = sql[i];
        if (c == '\'') {
            size_t j = i + 1;
            while (j < sql.size() &&
                   !(sql[j] == '\'' && (j + 1 >= sql.size() || sql[j + 1] != '\'')))
                j += sql[j] == '\'' ? 2 : 1;
            o.append(sql.substr(i, j + 1 - i));
            i = j + 1;
            lastWord.clear();
        } else if (c == '[' && !o.empty() && o.back() == ')') {
            // An array's subscript, in a text the server's own generator wrote.
            const size_t close = sql.find(']', i);
            o.append(
                sql.substr(i, close == std::string_view::npos ? sql.size() - i : close + 1 - i));
            i = close == std::string_view::npos ? sql.size() : close + 1;
        } else if (c == '"' || c == '[') {
            const char close = c == '"' ? '"' : ']';
            std::string n;
            size_t j = i + 1;
            for (; j < sql.size(); ++j) {
                if (sql[j] == close) {
                    if (close == '"' && j + 1 < sql.size() && sql[j + 1] == '"') {
                        n += '"';
                        ++j;
                        continue;
                    }
                    break;
                }
                n += sql[j];
            }
            name(n);
            i = j + 1;
        } else if (c == '?' || (c == '$' && i + 1 < sql.size() &&
                                std::isdigit(static_cast<unsigned char>(sql[i + 1])))) {
            size_t j = i + 1;
            while (j < sql.size() && std::isdigit(static_cast<unsigned char>(sql[j]))) ++j;
            const int n = j > i + 1 ? std::atoi(std::string(sql.substr(i + 1, j - i - 1)).c_str())
                                    : out.parameters + 1;
            out.parameters = std::max(out.parameters, n);
            if (out.used.size() < static_cast<size_t>(n)) out.used.resize(static_cast<size_t>(n));
            out.used[static_cast<size_t>(n - 1)] = true;
            o += "$" + std::to_string(n);
            i = j;
            lastWord.clear();
        } else if ((c == '@' || (c == ':' && (i == 0 || sql[i - 1] != ':'))) &&
                   i + 1 < sql.size() &&
                   (std::isalpha(static_cast<unsigned char>(sql[i + 1])) || sql[i + 1] == '_')) {
            size_t j = i + 1;
            while (j < sql.size() && isWordChar(sql[j])) ++j;
            namedParameter(std::string(sql.substr(i, j - i)));
            i = j;
            lastWord.clear();
        } else if (c == '-' && i + 1 < sql.size() && sql[i + 1] == '-') {
            const size_t end = sql.find('\n', i);
            o.append(sql.substr(i, end == std::string_view::npos ? end : end - i));
            i = end == std::string_view::npos ? sql.size() : end;
        } else if (isWordChar(c) && !std::isdigit(static_cast<unsigned char>(c))) {
            size_t j = i;
            while (j < sql.size() && isWordChar(sql[j])) ++j;
            const std::string word(sql.substr(i, j - i));
            const bool qualifies = j < sql.size() && sql[j] == '.';
            const bool standsAlone =
                o.empty() || !(isWordChar(o.back()) || o.back() == '.' || o.back() == '"');
            const std::string lower = text::lowerAscii(word);
            if (qualifies && standsAlone && lower == "main") {
                i = j + 1;  // the server has one schema where the embedded store says main
                continue;
            }
            if (qualifies && standsAlone && lower == "temp") {
                o += "pg_temp";
                lastWord.clear();
                i = j;
                continue;
            }
            if (lower == "collate" && text::lowerAscii(nextWord(sql, j)) == "nocase") {
                // Case is ignored by the program's own compare on the server, not by collation.
                while (!o.empty() && o.back() == ' ') o.pop_back();
                i = j;
                while (i < sql.size() && std::isspace(static_cast<unsigned char>(sql[i]))) ++i;
                while (i < sql.size() && isWordChar(sql[i])) ++i;
                continue;
            }
            // SQLite's CROSS JOIN only fixes the order of the loops; each of ours has its ON.
            if (lower == "cross" && text::lowerAscii(nextWord(sql, j)) == "join") {
                while (j < sql.size() && std::isspace(static_cast<unsigned char>(sql[j]))) ++j;
                i = j;
                continue;
            }
            // The server's transactions need no lock named in advance.
            if (lastWord == "begin" &&
                (lower == "immediate" || lower == "deferred" || lower == "exclusive")) {
                i = j;
                continue;
            }
            // A list as a JSON array: the server's function gives its texts as column "value".
            if (lower == "json_each" && j < sql.size() && sql[j] == '(') {
                const size_t close = sql.find(')', j);
                const ServerSql inner = toServerSql(sql.substr(j + 1, close - j - 1));
                for (size_t p = 0; p < inner.used.size(); ++p)
                    if (inner.used[p]) {
                        out.parameters = std::max(out.parameters, static_cast<int>(p + 1));
                        if (out.used.size() <= p) out.used.resize(p + 1);
                        out.used[p] = true;
                    }
                o += "jsonb_array_elements_text(" + inner.text + "::jsonb)";
                i = close + 1;
                const std::string alias = nextWord(sql, i);
                const std::string a = text::lowerAscii(alias);
                if (!alias.empty() && a != "where" && a != "cross" && a != "join" && a != "as") {
                    while (i < sql.size() && std::isspace(static_cast<unsigned char>(sql[i]))) ++i;
                    o += " " + alias + "(value)";
                    i += alias.size();
                } else {
                    o += " AS json_each(value)";
                }
                lastWord.clear();
                continue;
            }
            if (lower == "integer" && out.creates) {
                o += "bigint";  // the embedded store's whole numbers have 64 bits
                lastWord = lower;
                i = j;
                continue;
            }
            if (o.find_first_not_of(" \t\n") == std::string::npos && lower == "create")
                out.creates = true;
            o += word;
            lastWord = text::lowerAscii(word);
            i = j;
        } else {
            if (c == '*') out.star = true;
            o += c;
            if (!std::isspace(static_cast<unsigned char>(c))) lastWord.clear();
            ++i;
        }
    }
    out.names.resize(static_cast<size_t>(out.parameters));
    out.used.resize(static_cast<size_t>(out.parameters));
    return out;
}

ServerStatement::ServerStatement(ServerSession& session, std::string_view sql)
    : session_(session), sql_(toServerSql(sql)) {
    values_.resize(static_cast<size_t>(sql_.parameters));
}

ServerStatement::~ServerStatement() {
    closeCursor();
}

void ServerStatement::closeCursor() noexcept {
    if (cursor_.empty()) return;
    try {
        if (session_.inTransaction()) session_.execute("CLOSE " + cursor_);
    } catch (const std::exception&) {
        // a transaction that failed has closed its cursors itself
    }
    cursor_.clear();
}

void ServerStatement::fetch() {
    result_ = session_.run("FETCH " + std::to_string(page_) + " FROM " + cursor_, {});
    row_ = -1;
    more_ = PQntuples(result_.get()) == page_;
    shown_.clear();
    hideRowIds();
}

void ServerStatement::bind(int index, std::optional<std::string> value) {
    if (index >= 1 && index <= static_cast<int>(values_.size()))
        values_[static_cast<size_t>(index - 1)] = std::move(value);
}

int ServerStatement::parameterIndex(const std::string& name) const {
    const auto at = std::find(sql_.names.begin(), sql_.names.end(), name);
    return at == sql_.names.end() ? 0 : static_cast<int>(at - sql_.names.begin()) + 1;
}

void ServerStatement::run() {
    std::vector<const char*> pointers;
    pointers.reserve(values_.size());
    for (const auto& v : values_) pointers.push_back(v ? v->c_str() : nullptr);
    if (page_ > 0 && session_.inTransaction()) {
        static std::atomic<long> cursors = 0;  // a list's keys are read on a thread of their own
        cursor_ = "tolma_c" + std::to_string(++cursors);
        session_.run("DECLARE " + cursor_ + " NO SCROLL CURSOR FOR " + sql_.text, pointers,
                     parameterTypes());
        ran_ = true;
        changes_ = -1;
        fetch();
        return;
    }
    // A statement the program keeps is prepared once; a statement of its own runs as it is.
    result_ = keep_ ? session_.runPrepared(session_.prepared(sql_.text, parameterTypes()), pointers)
                    : session_.run(sql_.text, pointers, parameterTypes());
    ran_ = true;
    row_ = -1;
    PGresult* r = result_.get();
    const std::string_view command = PQcmdStatus(r);
    const bool writes = command.rfind("INSERT", 0) == 0 || command.rfind("UPDATE", 0) == 0 ||
                        command.rfind("DELETE", 0) == 0;
    const char* changed = PQcmdTuples(r);
    changes_ = !writes ? -1 : changed && *changed ? std::atoll(changed) : 0;
    if (PQntuples(r) > 0 && PQnfields(r) == 1 && std::string(PQfname(r, 0)) == "rowid" &&
        command.rfind("INSERT", 0) == 0)
        returned_ = std::atoll(PQgetvalue(r, 0, 0));
    shown_.clear();
    hideRowIds();
}

// A value bound to no place of the text still needs a type: the server asks for one.
std::vector<unsigned> ServerStatement::parameterTypes() const {
    std::vector<unsigned> types;
    for (bool used : sql_.used) types.push_back(used ? 0 : kText);
    return types;
}

void ServerStatement::describe() {
    if (result_) return;
    result_ = session_.describe(sql_.text, parameterTypes());
    shown_.clear();
    hideRowIds();
}

// A star takes every column of a table, its row id too, which the embedded store never shows:
// the row id right after the column before it of the same table is left out.
void ServerStatement::hideRowIds() {
    PGresult* r = result_.get();
    const int n = PQnfields(r);
    for (int i = 0; i < n; ++i) {
        const bool hidden = sql_.star && i > 0 && std::string(PQfname(r, i)) == "rowid" &&
                            PQftable(r, i) != InvalidOid && PQftable(r, i - 1) == PQftable(r, i) &&
                            PQftablecol(r, i - 1) + 1 == PQftablecol(r, i);
        if (!hidden) shown_.push_back(i);
    }
    // A walk asks a column's type for every row.
    types_.clear();
    for (const int c : shown_) types_.push_back(typeCode(PQftype(r, c)));
}

void ServerStatement::send(bool planned) {
    if (!copyColumns_.empty()) {
        session_.queueCopy(copyTable_, copyColumns_, values_);
        ran_ = false;
        return;
    }
    std::vector<const char*> pointers;
    pointers.reserve(values_.size());
    for (const auto& v : values_) pointers.push_back(v ? v->c_str() : nullptr);
    if (planned)
        session_.sendPrepared(session_.prepared(sql_.text, parameterTypes()), pointers);
    else
        session_.sendText(sql_.text, pointers, parameterTypes());
    ran_ = false;
}

bool ServerStatement::step() {
    if (!ran_) run();
    ++row_;
    if (row_ >= PQntuples(result_.get()) && !cursor_.empty() && more_) {
        fetch();
        row_ = 0;
    }
    return row_ < PQntuples(result_.get());
}

void ServerStatement::reset() {
    closeCursor();
    ran_ = false;
    row_ = -1;
    result_.reset();
    shown_.clear();
    types_.clear();
}

int ServerStatement::columnCount() {
    if (!result_) describe();
    return static_cast<int>(shown_.size());
}

int ServerStatement::at(int index) const {
    return index >= 0 && index < static_cast<int>(shown_.size())
               ? shown_[static_cast<size_t>(index)]
               : -1;
}

std::string ServerStatement::columnName(int index) {
    if (!result_) describe();
    const int c = at(index);
    return c < 0 ? std::string() : PQfname(result_.get(), c);
}

char ServerStatement::typeOf(int index) const {
    return index >= 0 && index < static_cast<int>(types_.size())
               ? types_[static_cast<size_t>(index)]
               : 't';
}

bool ServerStatement::isNull(int index) const {
    const int c = at(index);
    return c < 0 || row_ < 0 || row_ >= PQntuples(result_.get()) ||
           PQgetisnull(result_.get(), row_, c);
}

std::string_view ServerStatement::text(int index) const {
    if (isNull(index)) return {};
    const int c = at(index);
    return {PQgetvalue(result_.get(), row_, c),
            static_cast<size_t>(PQgetlength(result_.get(), row_, c))};
}

ColumnOrigin ServerStatement::origin(int index) {
    if (!result_) describe();
    const int c = at(index);
    ColumnOrigin o;
    if (c < 0) return o;
    PGresult* r = result_.get();
    const unsigned table = PQftable(r, c);
    if (table != InvalidOid) {
        o.table = session_.tableName(table);
        o.column = session_.columnName(table, PQftablecol(r, c));
    }
    switch (PQftype(r, c)) {
        case kBool:
            o.declaredType = "BOOLEAN";
            break;
        case kInt2:
            o.declaredType = "SMALLINT";
            break;
        case kInt4:
        case kInt8:
            o.declaredType = "INTEGER";
            break;
        case kFloat4:
        case kFloat8:
        case kNumeric:
            o.declaredType = "DOUBLE";
            break;
        case kVarchar:
        case kBpchar:
            o.declaredType = PQfmod(r, c) > 4 ? "VARCHAR(" + std::to_string(PQfmod(r, c) - 4) + ")"
                                              : "VARCHAR(255)";
            break;
        default:
            o.declaredType = table != InvalidOid ? "LONGTEXT" : "";
    }
    return o;
}

}  // namespace tolma::store
