#include "store/connection.h"

// The pre-update hook is declared only on request; Debian's library is built with it (and with
// the session extension, which needs it).
#define SQLITE_ENABLE_PREUPDATE_HOOK 1
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <mutex>
#include <set>

#include "store/dao_error.h"
#include "store/german_text.h"
#include "store/jet_sql.h"
#include "store/server_address.h"
#include "store/server_session.h"
#include "store/server_statement.h"
#include "store/text_list.h"
#include "text/text.h"

namespace tolma::store {
namespace {

// SQLite counts every allocation under one global lock unless told not to, and nothing here
// reads the count. This must happen before the library's first use, hence at program start.
[[maybe_unused]] const int kNoMemoryStatistics = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);

std::mutex registryMutex;
std::map<std::string, std::weak_ptr<Connection>>& registry() {
    static std::map<std::string, std::weak_ptr<Connection>> r;
    return r;
}

std::string registryKey(const std::filesystem::path& file) {
    std::error_code ec;
    auto p = std::filesystem::weakly_canonical(std::filesystem::absolute(file), ec);
    return (ec ? std::filesystem::absolute(file) : p).string();
}

std::string argText(sqlite3_value* v) {
    const unsigned char* t = sqlite3_value_text(v);
    return t ? std::string(reinterpret_cast<const char*>(t), sqlite3_value_bytes(v))
             : std::string();
}

// Len(x): length in characters, Null for Null.
void lenFunction(sqlite3_context* ctx, int, sqlite3_value** argv) {
    if (sqlite3_value_type(argv[0]) == SQLITE_NULL) {
        sqlite3_result_null(ctx);
        return;
    }
    sqlite3_result_int64(ctx, text::utf8Length(argText(argv[0])));
}

// x LIKE y arrives as like(y, x).
void likeFunction(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (sqlite3_value_type(argv[0]) == SQLITE_NULL || sqlite3_value_type(argv[1]) == SQLITE_NULL ||
        (argc == 3 && sqlite3_value_type(argv[2]) == SQLITE_NULL)) {
        sqlite3_result_null(ctx);
        return;
    }
    sqlite3_result_int(ctx, jet::likeMatch(argText(argv[0]), argText(argv[1])) ? 1 : 0);
}

void resultText(sqlite3_context* ctx, const std::string& s) {
    sqlite3_result_text(ctx, s.c_str(), static_cast<int>(s.size()), SQLITE_TRANSIENT);
}

bool anyNull(int argc, sqlite3_value** argv) {
    for (int i = 0; i < argc; ++i)
        if (sqlite3_value_type(argv[i]) == SQLITE_NULL) return true;
    return false;
}

void ucaseFunction(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
    resultText(ctx, text::upper(argText(argv[0])));
}

void lcaseFunction(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
    resultText(ctx, text::lower(argText(argv[0])));
}

// A value as "&" joins it: Null as empty text, a whole number without decimals.
std::string textOf(sqlite3_value* v) {
    switch (sqlite3_value_type(v)) {
        case SQLITE_NULL:
            return {};
        case SQLITE_INTEGER:
            return std::to_string(sqlite3_value_int64(v));
        case SQLITE_FLOAT: {
            const double d = sqlite3_value_double(v);
            char buf[32];
            std::snprintf(buf, sizeof buf, "%.15g", d);
            return buf;
        }
        default:
            return argText(v);
    }
}

void textFunction(sqlite3_context* ctx, int, sqlite3_value** argv) {
    resultText(ctx, textOf(argv[0]));
}

// "+" of the old engine: two texts are joined, anything else is added; Null gives Null.
void plusFunction(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
    const int a = sqlite3_value_type(argv[0]), b = sqlite3_value_type(argv[1]);
    if (a == SQLITE_TEXT && b == SQLITE_TEXT)
        return resultText(ctx, argText(argv[0]) + argText(argv[1]));
    sqlite3_value* x = argv[0];
    sqlite3_value* y = argv[1];
    if (sqlite3_value_numeric_type(x) == SQLITE_INTEGER &&
        sqlite3_value_numeric_type(y) == SQLITE_INTEGER)
        return sqlite3_result_int64(ctx, sqlite3_value_int64(x) + sqlite3_value_int64(y));
    sqlite3_result_double(ctx, sqlite3_value_double(x) + sqlite3_value_double(y));
}

void powerFunction(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
    const double d = std::pow(sqlite3_value_double(argv[0]), sqlite3_value_double(argv[1]));
    if (std::abs(d) < 9e15 && d == std::floor(d))
        return sqlite3_result_int64(ctx, static_cast<long long>(d));
    sqlite3_result_double(ctx, d);
}

// Characters of a UTF-8 text: the byte offset of each, and the end.
std::vector<size_t> characterStarts(const std::string& s) {
    std::vector<size_t> starts;
    for (size_t i = 0; i < s.size(); ++i)
        if ((static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) starts.push_back(i);
    starts.push_back(s.size());
    return starts;
}

void rightFunction(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
    const std::string s = argText(argv[0]);
    const long long n = sqlite3_value_int64(argv[1]);
    const auto starts = characterStarts(s);
    const long long length = static_cast<long long>(starts.size()) - 1;
    if (n <= 0) return resultText(ctx, "");
    if (n >= length) return resultText(ctx, s);
    resultText(ctx, s.substr(starts[static_cast<size_t>(length - n)]));
}

// Val(): the number at the start of a text, blanks skipped; 0 without one.
void valFunction(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
    std::string digits;
    for (char c : argText(argv[0]))
        if (c != ' ' && c != '\t') digits += c;
    char* end = nullptr;
    const double d = std::strtod(digits.c_str(), &end);
    if (end == digits.c_str() ||
        digits.find_first_of("xXnNiI") < static_cast<size_t>(end - digits.c_str()))
        return sqlite3_result_int(ctx, 0);
    if (d == static_cast<double>(static_cast<long long>(d)))
        return sqlite3_result_int64(ctx, static_cast<long long>(d));
    sqlite3_result_double(ctx, d);
}

// InStr([start,] text, sought): the position of `sought` from `start` on, 1-based, without
// regard to case; 0 when it is not there.
void instrFunction(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (anyNull(argc, argv)) return sqlite3_result_null(ctx);
    const int first = argc == 3 ? 1 : 0;
    const long long start = argc == 3 ? sqlite3_value_int64(argv[0]) : 1;
    const std::string text = text::lower(argText(argv[first])),
                      sought = text::lower(argText(argv[first + 1]));
    const auto starts = characterStarts(text);
    if (start < 1 || start > static_cast<long long>(starts.size()))
        return sqlite3_result_int(ctx, 0);
    const size_t at = text.find(sought, starts[static_cast<size_t>(start - 1)]);
    if (at == std::string::npos) return sqlite3_result_int(ctx, 0);
    sqlite3_result_int64(ctx,
                         std::lower_bound(starts.begin(), starts.end(), at) - starts.begin() + 1);
}

// Format() of a date ("YYYY-MM-DD[ HH:MM:SS]", as the store holds dates) with the old
// engine's date codes: yyyy, yy, mm, dd, hh, nn, ss. Another value stays as it is.
void formatFunction(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
    if (sqlite3_value_type(argv[0]) == SQLITE_NULL) return sqlite3_result_null(ctx);
    const std::string v = textOf(argv[0]);
    if (argc < 2 || v.size() < 10 || v[4] != '-' || v[7] != '-') return resultText(ctx, v);
    const std::string f = argText(argv[1]);
    const std::string year = v.substr(0, 4), month = v.substr(5, 2), day = v.substr(8, 2);
    const std::string hour = v.size() >= 16 ? v.substr(11, 2) : "00",
                      minute = v.size() >= 16 ? v.substr(14, 2) : "00",
                      second = v.size() >= 19 ? v.substr(17, 2) : "00";
    std::string out;
    for (size_t i = 0; i < f.size();) {
        auto at = [&](const char* code) {
            const size_t n = std::strlen(code);
            if (f.size() - i < n) return false;
            for (size_t k = 0; k < n; ++k)
                if (std::tolower(static_cast<unsigned char>(f[i + k])) != code[k]) return false;
            return true;
        };
        if (at("yyyy"))
            out += year, i += 4;
        else if (at("yy"))
            out += year.substr(2), i += 2;
        else if (at("mm"))
            out += month, i += 2;
        else if (at("dd"))
            out += day, i += 2;
        else if (at("hh"))
            out += hour, i += 2;
        else if (at("nn"))
            out += minute, i += 2;
        else if (at("ss"))
            out += second, i += 2;
        else
            out += f[i++];
    }
    resultText(ctx, out);
}

std::string localNow(const char* format) {
    return text::localTime(std::time(nullptr), format);
}
void nowFunction(sqlite3_context* ctx, int, sqlite3_value**) {
    resultText(ctx, localNow("%Y-%m-%d %H:%M:%S"));
}
void dateFunction(sqlite3_context* ctx, int, sqlite3_value**) {
    resultText(ctx, localNow("%Y-%m-%d"));
}

// SQLite's own collations, as it compares: bytes; ASCII letters folded; trailing blanks ignored.
int binaryCompare(std::string_view a, std::string_view b) {
    const int r = std::memcmp(a.data(), b.data(), std::min(a.size(), b.size()));
    return r != 0 ? r : static_cast<int>(a.size()) - static_cast<int>(b.size());
}
int nocaseCompare(std::string_view a, std::string_view b) {
    const int n = static_cast<int>(std::min(a.size(), b.size()));
    const int r = n > 0 ? sqlite3_strnicmp(a.data(), b.data(), n) : 0;
    return r != 0 ? r : static_cast<int>(a.size()) - static_cast<int>(b.size());
}
int rtrimCompare(std::string_view a, std::string_view b) {
    while (!a.empty() && a.back() == ' ') a.remove_suffix(1);
    while (!b.empty() && b.back() == ' ') b.remove_suffix(1);
    return binaryCompare(a, b);
}
int germanCompare(std::string_view a, std::string_view b) {
    return german::compare(a, b);
}

int germanCollation(void*, int n1, const void* a, int n2, const void* b) {
    return german::compare(std::string_view(static_cast<const char*>(a), static_cast<size_t>(n1)),
                           std::string_view(static_cast<const char*>(b), static_cast<size_t>(n2)));
}

}  // namespace

Statement::Statement(std::shared_ptr<Connection> connection, const std::string& sql)
    : owner_(std::move(connection)), connection_(owner_.get()), sql_(sql) {
    prepareOn(sql);
}

Statement::Statement(Connection& connection, const std::string& sql)
    : connection_(&connection), sql_(sql) {
    prepareOn(sql);
}

void Statement::prepareOn(const std::string& sql) {
    if (connection_->server_) {
        remote_ = std::make_unique<ServerStatement>(*connection_->server_, sql);
        return;
    }
    if (sqlite3_prepare_v2(connection_->handle(), sql.c_str(), static_cast<int>(sql.size()), &stmt_,
                           nullptr) != SQLITE_OK) {
        sqlite3_finalize(stmt_);
        stmt_ = nullptr;
        connection_->fail("DAO.Database", sql);
    }
}

Statement::~Statement() {
    if (stmt_) sqlite3_finalize(stmt_);
}

namespace {
// A value as the server reads a parameter: as text, in the type its place in the statement asks.
std::optional<std::string> serverValue(const Variant& value) {
    if (value.isNull()) return std::nullopt;
    if (value.isReal()) {
        char buf[32];
        std::snprintf(buf, sizeof buf, "%.17g", value.toReal());
        return std::string(buf);
    }
    if (const std::string* text = value.textPointer()) return *text;
    return std::to_string(value.toInteger());
}
}  // namespace

void Statement::bind(int index, const Variant& value) {
    if (remote_) return remote_->bind(index, serverValue(value));
    if (value.isNull())
        sqlite3_bind_null(stmt_, index);
    else if (value.isInteger())
        sqlite3_bind_int64(stmt_, index, value.toInteger());
    else if (value.isReal())
        sqlite3_bind_double(stmt_, index, value.toReal());
    else if (const std::string* text = value.textPointer())
        sqlite3_bind_text(stmt_, index, text->data(), static_cast<int>(text->size()),
                          SQLITE_TRANSIENT);
}

void Statement::bindStatic(int index, const Variant& value) {
    if (remote_) return bind(index, value);
    if (const std::string* text = value.textPointer())
        sqlite3_bind_text(stmt_, index, text->data(), static_cast<int>(text->size()),
                          SQLITE_STATIC);
    else
        bind(index, value);
}

void Statement::bindInteger(int index, long long value) {
    if (remote_) return remote_->bind(index, std::to_string(value));
    sqlite3_bind_int64(stmt_, index, value);
}

void Statement::bindTextStatic(int index, std::string_view text) {
    if (remote_) return remote_->bind(index, std::string(text));
    sqlite3_bind_text(stmt_, index, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
}

void Statement::bind(const char* name, const Variant& value) {
    if (remote_) return bind(remote_->parameterIndex(name), value);
    bind(sqlite3_bind_parameter_index(stmt_, name), value);
}

void Statement::bindValues(const std::vector<std::string>& values,
                           const std::vector<bool>& numeric) {
    if (remote_) {
        // The server takes each as the type its place asks for.
        for (size_t i = 0; i < values.size(); ++i)
            remote_->bind(static_cast<int>(i + 1), values[i]);
        return;
    }
    for (size_t i = 0; i < values.size(); ++i) {
        const int index = static_cast<int>(i + 1);
        char* end = nullptr;
        const double d =
            i < numeric.size() && numeric[i] ? std::strtod(values[i].c_str(), &end) : 0;
        // A quoted value read as a number must be one; otherwise it stays text.
        if (end && end != values[i].c_str() && *end == '\0') {
            if (d == static_cast<double>(static_cast<long long>(d)))
                sqlite3_bind_int64(stmt_, index, static_cast<long long>(d));
            else
                sqlite3_bind_double(stmt_, index, d);
        } else {
            sqlite3_bind_text(stmt_, index, values[i].data(), static_cast<int>(values[i].size()),
                              SQLITE_TRANSIENT);
        }
    }
}

bool Statement::step() {
    if (remote_) {
        const bool row = remote_->step();
        if (const long long n = remote_->takeChanges(); n >= 0) {
            connection_->serverChanges_ = n;
            connection_->serverTotalChanges_ += n;
            if (remote_->returnedId()) connection_->serverLastId_ = remote_->returnedId();
        }
        return row;
    }
    int rc = sqlite3_step(stmt_);
    if (rc == SQLITE_ROW) return true;
    if (rc == SQLITE_DONE) return false;
    sqlite3_reset(stmt_);
    connection_->fail("DAO.Recordset", sql_);
}

void Statement::stepWithoutAnswer(long long rowid) {
    send();
    if (!remote_) return;
    connection_->serverChanges_ = 1;
    ++connection_->serverTotalChanges_;
    connection_->serverLastId_ = rowid;
}

void Statement::send() {
    if (remote_)
        remote_->send();
    else
        step();
}

void Statement::sendOnce() {
    if (remote_)
        remote_->send(false);
    else
        step();
}

void Statement::copyInto(const std::string& table, const std::vector<std::string>& columns) {
    if (!remote_) return;
    std::string list;
    for (const auto& c : columns)
        list += (list.empty() ? "" : ", ") + quoteIdentifier(text::lowerAscii(c));
    remote_->copyInto(quoteIdentifier(text::lowerAscii(table)), list);
}

void Statement::keep() {
    if (remote_) remote_->keep();
}

void Statement::readInPages(int rows) {
    if (remote_) remote_->pageBy(rows);
}

void Statement::reset() {
    // Every use binds all its parameters anew, so old bindings need no clearing.
    if (remote_) return remote_->reset();
    sqlite3_reset(stmt_);
}

int Statement::columnCount() const {
    if (remote_) return remote_->columnCount();
    return sqlite3_column_count(stmt_);
}

std::string Statement::columnName(int index) const {
    if (remote_) return remote_->columnName(index);
    return sqlite3_column_name(stmt_, index);
}

ColumnOrigin Statement::columnOrigin(int index) const {
    if (remote_) return remote_->origin(index);
    const char* t = sqlite3_column_table_name(stmt_, index);
    const char* c = sqlite3_column_origin_name(stmt_, index);
    const char* d = sqlite3_column_decltype(stmt_, index);
    return {t ? t : "", c ? c : "", d ? d : ""};
}

Variant Statement::column(int index) const {
    if (remote_) {
        switch (columnType(index)) {
            case ColumnType::Null:
                return {};
            case ColumnType::Integer:
                return Variant(columnInteger(index));
            case ColumnType::Real:
                return Variant(columnReal(index));
            default:
                return Variant(std::string(remote_->text(index)));
        }
    }
    switch (sqlite3_column_type(stmt_, index)) {
        case SQLITE_NULL:
            return {};
        case SQLITE_INTEGER:
            return Variant(static_cast<long long>(sqlite3_column_int64(stmt_, index)));
        case SQLITE_FLOAT:
            return Variant(sqlite3_column_double(stmt_, index));
        default: {
            const auto* t = reinterpret_cast<const char*>(sqlite3_column_text(stmt_, index));
            return Variant(std::string(t, sqlite3_column_bytes(stmt_, index)));
        }
    }
}

ColumnType Statement::columnType(int index) const {
    if (remote_) {
        if (remote_->isNull(index)) return ColumnType::Null;
        switch (remote_->typeOf(index)) {
            case 'i':
            case 'l':
                return ColumnType::Integer;
            case 'r':
                return ColumnType::Real;
            case 'n':
                // The server sums whole numbers into its numeric type: whole they stay.
                return remote_->text(index).find_first_of(".eE") == std::string_view::npos
                           ? ColumnType::Integer
                           : ColumnType::Real;
            case 'b':
                return ColumnType::Blob;
            default:
                return ColumnType::Text;
        }
    }
    switch (sqlite3_column_type(stmt_, index)) {
        case SQLITE_NULL:
            return ColumnType::Null;
        case SQLITE_INTEGER:
            return ColumnType::Integer;
        case SQLITE_FLOAT:
            return ColumnType::Real;
        case SQLITE_BLOB:
            return ColumnType::Blob;
        default:
            return ColumnType::Text;
    }
}

long long Statement::columnInteger(int index) const {
    if (remote_) {
        const std::string_view t = remote_->text(index);
        if (remote_->typeOf(index) == 'l') return t == "t" ? 1 : 0;
        return t.empty() ? 0 : std::atoll(std::string(t).c_str());
    }
    return sqlite3_column_int64(stmt_, index);
}

double Statement::columnReal(int index) const {
    if (remote_) return std::strtod(std::string(remote_->text(index)).c_str(), nullptr);
    return sqlite3_column_double(stmt_, index);
}

std::string_view Statement::columnText(int index) const {
    if (remote_) {
        if (remote_->typeOf(index) == 'l') return remote_->text(index) == "t" ? "1" : "0";
        return remote_->text(index);
    }
    const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(stmt_, index));
    return p ? std::string_view(p, static_cast<size_t>(sqlite3_column_bytes(stmt_, index)))
             : std::string_view();
}

Connection::Connection(std::filesystem::path file, std::string key)
    : file_(std::move(file)), key_(std::move(key)) {}

Connection::~Connection() {
    // What the listeners hold of the open batch goes with it.
    tellWatchersNoexcept([&](ChangeListener& l) { l.closing(*this); });
    cache_.clear();
    if (server_ && batchDepth_ > 0) {
        try {
            server_->commit();
        } catch (const DaoError&) {
            // The server takes back what it could not keep.
        }
    }
    if (db_) {
        if (batchDepth_ > 0) sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr);
        sqlite3_close_v2(db_);
    }
    std::lock_guard lock(registryMutex);
    auto it = registry().find(key_);
    if (it != registry().end() && it->second.expired()) registry().erase(it);
}

bool Connection::isOpen(const std::filesystem::path& file) {
    std::lock_guard lock(registryMutex);
    auto it = registry().find(isServerText(file.string()) ? file.string() : registryKey(file));
    return it != registry().end() && !it->second.expired();
}

namespace {
std::map<std::string, std::string>& serverPasswords() {
    static std::map<std::string, std::string> passwords;
    return passwords;
}

// The password the window was given for a connection text, if any.
std::string keptPassword(const std::string& text) {
    std::lock_guard lock(registryMutex);
    const auto it = serverPasswords().find(text);
    return it != serverPasswords().end() ? it->second : std::string();
}
}  // namespace

void Connection::setServerPassword(const std::string& connectionText, const std::string& password) {
    std::lock_guard lock(registryMutex);
    serverPasswords()[connectionText] = password;
}

// A connection of its own to the server a connection text names, with the password the window
// was given for it, if any.
std::shared_ptr<Connection> Connection::createServer(const std::string& text,
                                                     const std::string& key) {
    std::shared_ptr<Connection> c(new Connection(text, key));
    c->server_ = ServerSession::connect(text, keptPassword(text));
    const auto collation =
        c->server_->query("SELECT datcollate FROM pg_database WHERE datname = current_database()");
    const std::string name = collation.rows.empty() ? "" : collation.rows[0][0].value_or("");
    c->serverSortsBytes_ = name == "C" || name == "POSIX" || name.rfind("C.", 0) == 0;
    return c;
}

std::unique_ptr<ServerSession> Connection::connectAnother() const {
    return ServerSession::connect(file_.string(), keptPassword(file_.string()));
}

std::shared_ptr<Connection> Connection::connectServer(const std::string& text) {
    {
        std::lock_guard lock(registryMutex);
        auto it = registry().find(text);
        // A connection the server dropped (a restart, the network) is left to those who hold
        // it; whoever opens the store now is connected anew.
        if (it != registry().end())
            if (auto existing = it->second.lock(); existing && !existing->server()->isBroken())
                return existing;
    }
    std::shared_ptr<Connection> c = createServer(text, text);
    std::lock_guard lock(registryMutex);
    registry()[text] = c;
    return c;
}

std::shared_ptr<Connection> Connection::open(const std::filesystem::path& file, Kind kind) {
    if (isServerText(file.string())) return connectServer(file.string());
    const std::string key = registryKey(file);
    {
        std::lock_guard lock(registryMutex);
        auto it = registry().find(key);
        if (it != registry().end())
            if (auto existing = it->second.lock()) return existing;
    }
    if (!std::filesystem::is_regular_file(file))
        throwDao("DAO.DBEngine", err::kFileNotFound,
                 "Datei '" + file.string() + "' nicht gefunden.");
    // SQLite would take an empty file for an empty database; as a store it is broken.
    std::error_code sizeError;
    if (std::filesystem::file_size(file, sizeError) == 0 && !sizeError)
        throwDao("DAO.DBEngine", err::kUnrecognizedFormat,
                 "Nicht erkanntes Datenbankformat '" + file.string() + "' (die Datei ist leer).");

    std::shared_ptr<Connection> c = create(file, key, kind);
    std::lock_guard lock(registryMutex);
    registry()[key] = c;
    return c;
}

std::shared_ptr<Connection> Connection::openReader(const std::filesystem::path& file) {
    // Under no key of the registry: no handle shares it, and letting go of it frees nothing.
    if (isServerText(file.string())) return createServer(file.string(), "");
    return create(file, "", Kind::ReadOnly);
}

std::shared_ptr<Connection> Connection::openBeside(const std::filesystem::path& file) {
    if (isServerText(file.string())) return createServer(file.string(), "");
    return create(file, "", Kind::Beside);
}

std::shared_ptr<Connection> Connection::openIndexReader(const std::filesystem::path& file) {
    std::shared_ptr<Connection> c(new Connection(file, ""));
    if (sqlite3_open_v2(":memory:", &c->db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX,
                        nullptr) != SQLITE_OK)
        c->fail("DAO.DBEngine", "");
    c->configure(Kind::Beside);
    if (!c->holdIndexFile(false)) return nullptr;
    return c;
}

std::filesystem::path Connection::indexFileOf(const std::filesystem::path& file) {
    return file.string() + "-suche";
}

bool Connection::holdIndexFile(bool create) {
    if (server_) return false;
    if (holdsIndex_) return true;
    const std::filesystem::path index = indexFileOf(file_);
    std::error_code ec;
    if (!std::filesystem::exists(index, ec)) {
        if (!create) return false;
        // Made apart, in the mode the store has: the attaching connection may not create files.
        sqlite3* made = nullptr;
        int rc = sqlite3_open_v2(index.c_str(), &made,
                                 SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                                 nullptr);
        if (rc == SQLITE_OK)
            rc = sqlite3_exec(made, "PRAGMA journal_mode = WAL", nullptr, nullptr, nullptr);
        const std::string msg = made ? sqlite3_errmsg(made) : "";
        sqlite3_close(made);
        if (rc != SQLITE_OK)
            throwDao("DAO.DBEngine", err::kCannotOpen,
                     "Die Datei '" + index.string() + "' kann nicht angelegt werden. " + msg);
    }
    char* sql = sqlite3_mprintf("ATTACH DATABASE %Q AS %s", index.c_str(), kIndexSchema);
    const int rc = sqlite3_exec(db_, sql, nullptr, nullptr, nullptr);
    sqlite3_free(sql);
    if (rc != SQLITE_OK) fail("DAO.DBEngine", "");
    sqlite3_exec(db_, "PRAGMA suche.synchronous = NORMAL", nullptr, nullptr, nullptr);
    sqlite3_exec(db_, "PRAGMA suche.cache_size = -65536", nullptr, nullptr, nullptr);
    holdsIndex_ = true;
    return true;
}

std::shared_ptr<Connection> Connection::create(const std::filesystem::path& file,
                                               const std::string& key, Kind kind) {
    std::shared_ptr<Connection> c(new Connection(file, key));
    int flags = kind == Kind::ReadOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE;
    if (sqlite3_open_v2(file.c_str(), &c->db_, flags | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK) {
        std::string msg = c->db_ ? sqlite3_errmsg(c->db_) : "";
        throwDao("DAO.DBEngine", err::kCannotOpen,
                 "Die Datei '" + file.string() + "' kann nicht geöffnet werden. " + msg);
    }
    if (kind != Kind::ReadOnly && sqlite3_db_readonly(c->db_, "main") == 1)
        throwDao("DAO.DBEngine", err::kCannotOpen,
                 "Die Datei '" + file.string() +
                     "' kann nicht geöffnet werden: sie ist schreibgeschützt.");
    c->configure(kind);
    return c;
}

void Connection::configure(Kind kind) {
    sqlite3_db_config(db_, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
    sqlite3_db_config(db_, SQLITE_DBCONFIG_DQS_DDL, 0, nullptr);
    sqlite3_extended_result_codes(db_, 0);
    const int f = SQLITE_UTF8 | SQLITE_DETERMINISTIC;
    sqlite3_create_function(db_, "len", 1, f, nullptr, lenFunction, nullptr, nullptr);
    sqlite3_create_function(db_, "like", 2, f, nullptr, likeFunction, nullptr, nullptr);
    sqlite3_create_function(db_, "like", 3, f, nullptr, likeFunction, nullptr, nullptr);
    struct Function {
        const char* name;
        int args;
        void (*call)(sqlite3_context*, int, sqlite3_value**);
        bool deterministic;
    } functions[] = {
        {"ucase", 1, ucaseFunction, true},       {"lcase", 1, lcaseFunction, true},
        {"jet_text", 1, textFunction, true},     {"jet_plus", 2, plusFunction, true},
        {"jet_power", 2, powerFunction, true},   {"jet_right", 2, rightFunction, true},
        {"jet_val", 1, valFunction, true},       {"jet_instr", 2, instrFunction, true},
        {"jet_instr", 3, instrFunction, true},   {"jet_format", 2, formatFunction, true},
        {"jet_format", 1, formatFunction, true}, {"jet_now", 0, nowFunction, false},
        {"jet_date", 0, dateFunction, false},
    };
    for (const auto& fn : functions)
        sqlite3_create_function(db_, fn.name, fn.args, fn.deterministic ? f : SQLITE_UTF8, nullptr,
                                fn.call, nullptr, nullptr);
    // The lists' indexes of names, towns and streets are kept in this order: a tool without it
    // reads the store, but cannot write those tables or check those indexes.
    sqlite3_create_collation(db_, german::kCollation, SQLITE_UTF8, nullptr, germanCollation);

    auto run = [&](const char* sql) {
        char* msg = nullptr;
        int rc = sqlite3_exec(db_, sql, nullptr, nullptr, &msg);
        sqlite3_free(msg);
        return rc;
    };

    // A file that is no database shows itself at the first read.
    if (run("SELECT count(*) FROM sqlite_master") != SQLITE_OK) {
        const int code = sqlite3_errcode(db_);
        if (code == SQLITE_NOTADB || code == SQLITE_CORRUPT || code == SQLITE_ERROR)
            throwDao("DAO.DBEngine", err::kUnrecognizedFormat,
                     "Nicht erkanntes Datenbankformat '" + file_.string() + "'.");
        fail("DAO.DBEngine", "");
    }
    run("PRAGMA cache_size = -65536");
    // Temporary tables and the sorts of large lists and index builds go to a file, not into
    // memory: a million rows would otherwise hold a hundred megabytes.
    run("PRAGMA temp_store = FILE");
    if (kind == Kind::Exclusive) {
        // Taken at once and held until the connection closes: a second process fails right
        // at its own opening.
        sqlite3_busy_timeout(db_, 0);
        run("PRAGMA locking_mode = EXCLUSIVE");
        if (run("BEGIN EXCLUSIVE") != SQLITE_OK)
            throwDao("DAO.DBEngine", err::kFileInUse,
                     "Die Datei '" + file_.string() +
                         "' wird bereits von einem anderen Programm ausschließlich verwendet.");
        run("COMMIT");
    } else if (kind == Kind::Shared) {
        sqlite3_busy_timeout(db_, 2000);
        if (run("PRAGMA journal_mode = WAL") != SQLITE_OK) {
            int code = sqlite3_errcode(db_);
            if (code == SQLITE_BUSY || code == SQLITE_LOCKED)
                throwDao("DAO.DBEngine", err::kFileInUse,
                         "Die Datei '" + file_.string() + "' wird bereits verwendet.");
        }
        run("PRAGMA synchronous = NORMAL");
        run("PRAGMA wal_autocheckpoint = 10000");
    } else if (kind == Kind::Beside) {
        sqlite3_busy_timeout(db_, 2000);
        run("PRAGMA synchronous = NORMAL");
        run("PRAGMA wal_autocheckpoint = 10000");
    }
    kind_ = kind;
}

std::unique_ptr<Statement> Connection::prepare(const std::string& sql) {
    return std::make_unique<Statement>(shared_from_this(), sql);
}

long long Connection::execute(const std::string& sql, const std::vector<Variant>& params) {
    Statement st(shared_from_this(), sql);
    for (size_t i = 0; i < params.size(); ++i) st.bind(static_cast<int>(i + 1), params[i]);
    while (st.step()) {
    }
    return changes();
}

Statement& Connection::cached(const std::string& sql) {
    auto& st = cache_[sql];
    if (!st) {
        st = std::make_unique<Statement>(*this, sql);
        st->keep();
    }
    st->reset();
    return *st;
}

namespace {
// Names in their order, each ended by "|": a catalog's part of its fingerprint.
std::string sortedNames(const std::unordered_set<std::string>& names) {
    std::vector<std::string> sorted(names.begin(), names.end());
    std::sort(sorted.begin(), sorted.end());
    std::string out;
    for (const auto& n : sorted) out += n + "|";
    return out;
}
}  // namespace

const jet::Catalog& Connection::catalog() {
    if (!catalog_ && server_) {
        auto made = std::make_unique<jet::Catalog>();
        made->server = true;
        const auto columns = server_->query(
            "SELECT DISTINCT a.attname FROM pg_index i JOIN pg_class t ON t.oid = i.indrelid "
            "JOIN pg_attribute a ON a.attrelid = t.oid AND a.attnum = ANY(i.indkey) "
            "WHERE t.relnamespace = current_schema()::regnamespace AND a.attname <> 'rowid'");
        for (const auto& row : columns.rows)
            if (row[0]) made->keyColumns.insert(text::lower(*row[0]));
        const auto numbers = server_->query(
            "SELECT column_name FROM information_schema.columns WHERE table_schema = "
            "current_schema() GROUP BY column_name HAVING bool_and(data_type IN ('bigint', "
            "'integer', 'smallint', 'double precision', 'numeric', 'real'))");
        for (const auto& row : numbers.rows)
            if (row[0]) made->numberColumns.insert(text::lower(*row[0]));
        made->fingerprint =
            "server|" + sortedNames(made->keyColumns) + "#" + sortedNames(made->numberColumns);
        made->id = std::hash<std::string>{}(made->fingerprint);
        catalog_ = std::move(made);
    }
    if (!catalog_) {
        auto made = std::make_unique<jet::Catalog>();
        auto indexes = prepare("SELECT name FROM sqlite_master WHERE type = 'index'");
        std::vector<std::string> names;
        while (indexes->step()) names.push_back(indexes->column(0).toString());
        for (const auto& index : names) {
            // A column indexed in the German order is text the lists sort, not a key.
            auto columns = prepare(
                "SELECT name FROM pragma_index_xinfo(?1) WHERE key = 1 AND name IS NOT NULL AND "
                "coll <> ?2 COLLATE NOCASE");
            columns->bind(1, Variant(index));
            columns->bind(2, Variant(std::string(german::kCollation)));
            while (columns->step())
                made->keyColumns.insert(text::lower(columns->column(0).toString()));
        }
        made->fingerprint = sortedNames(made->keyColumns);
        made->id = std::hash<std::string>{}(made->fingerprint);
        catalog_ = std::move(made);
    }
    return *catalog_;
}

long long Connection::totalChanges() const {
    return server_ ? serverTotalChanges_ : sqlite3_total_changes64(db_);
}

long long Connection::changes() const {
    return server_ ? serverChanges_ : sqlite3_changes64(db_);
}

long long Connection::lastInsertId() const {
    return server_ ? serverLastId_ : sqlite3_last_insert_rowid(db_);
}

namespace {

// The row ids of a piece of a sequence's numbers, as the server gave them, onto `ids`.
void takeIds(const ServerResult& piece, std::vector<long long>& ids) {
    for (const auto& row : piece.rows) ids.push_back(std::atoll(row[0].value_or("0").c_str()));
}

}  // namespace

long long Connection::reserveRowId(const std::string& table) {
    auto& ids = reservedIds_[table];
    auto& sequence = sequences_[table];
    if (ids.empty() && sequence.coming) {
        server_->awaitJob(sequence.coming->job);
        ids = std::move(sequence.coming->ids);
        sequence.coming.reset();
    }
    // Where the piece asked for behind did not come (a failure behind), the query here raises.
    if (ids.empty()) {
        // The table's sequence is looked up once: asked of each row, the look-up costs more
        // than the number.
        if (sequence.name.empty()) {
            const auto s = server_->query("SELECT pg_get_serial_sequence($1, 'rowid')",
                                          {jet::quoteName(text::lowerAscii(table))});
            if (!s.rows.empty() && s.rows[0][0]) sequence.name = jet::quote(*s.rows[0][0]);
            if (sequence.name.empty())
                throwDao("DAO.Database", err::kEngineError,
                         "Der Datenbankserver gibt keine Zeilennummern für " + table + ".");
        }
        // A few thousand at first, twice as many each time after: one round trip for many
        // rows, and few of them in an import, each of which waits for the rows written behind.
        sequence.ahead = std::min<long long>(65536, sequence.ahead ? sequence.ahead * 2 : 2048);
        takeIds(server_->query(piece(sequence)), ids);
        if (ids.empty())
            throwDao("DAO.Database", err::kEngineError,
                     "Der Datenbankserver gibt keine Zeilennummern für " + table + ".");
    }
    const long long id = ids.back();
    ids.pop_back();
    // Half of a piece left, the next is asked for behind the work sent ahead: by the time it
    // is needed the numbers are there, and an import does not wait for the server to store
    // what went before. Its numbers are higher than this piece's.
    if (!sequence.coming && static_cast<long long>(ids.size()) == sequence.ahead / 2) {
        sequence.ahead = std::min<long long>(65536, sequence.ahead * 2);
        auto coming = std::make_shared<Sequence::Coming>();
        coming->job = server_->queryBehind(piece(sequence),
                                           [coming](ServerResult&& r) { takeIds(r, coming->ids); });
        sequence.coming = std::move(coming);
    }
    return id;
}

std::string Connection::piece(const Sequence& sequence) {
    return "SELECT nextval(" + sequence.name + "::regclass) FROM generate_series(1, " +
           std::to_string(sequence.ahead) + ") ORDER BY 1 DESC";
}

std::vector<Connection::ColumnInfo> Connection::columnsOf(const std::string& table) {
    std::vector<ColumnInfo> out;
    if (server_) {
        const auto r = server_->query(
            "SELECT column_name, column_default IS NOT NULL FROM information_schema.columns "
            "WHERE table_schema = current_schema() AND table_name = $1 AND column_name <> 'rowid' "
            "ORDER BY ordinal_position",
            {text::lowerAscii(table)});
        for (const auto& row : r.rows) out.push_back({row[0].value_or(""), row[1] == "t"});
        return out;
    }
    auto info = prepare("SELECT name, dflt_value FROM pragma_table_info(?1)");
    info->bind(1, Variant(table));
    while (info->step()) out.push_back({info->column(0).toString(), !info->column(1).isNull()});
    return out;
}

void Connection::watch(ChangeListener& listener, std::vector<std::string> tables) {
    unwatch(listener);
    watchers_.push_back({&listener, std::move(tables)});
    if (watchers_.size() == 1 && db_) sqlite3_preupdate_hook(db_, &Connection::changeHook, this);
}

bool Connection::unwatch(ChangeListener& listener) {
    const auto it = std::find_if(watchers_.begin(), watchers_.end(),
                                 [&](const Watcher& w) { return w.listener == &listener; });
    if (it == watchers_.end()) return false;
    watchers_.erase(it);
    if (watchers_.empty() && db_) sqlite3_preupdate_hook(db_, nullptr, nullptr);
    return true;
}

template <typename Tell>
void Connection::tellWatchers(Tell tell) {
    // A listener may stop watching while it hears; a copy keeps the walk valid.
    std::vector<ChangeListener*> listeners;
    for (const Watcher& w : watchers_) listeners.push_back(w.listener);
    for (ChangeListener* l : listeners) tell(*l);
}

template <typename Tell>
void Connection::tellWatchersNoexcept(Tell tell) noexcept {
    std::vector<ChangeListener*> listeners;
    for (const Watcher& w : watchers_) listeners.push_back(w.listener);
    for (ChangeListener* l : listeners) tell(*l);
}

namespace {

// The columns and texts of a condition that is nothing but equalities of columns with texts,
// ("a" = $1) AND ("b" = $2), as the server's SQL writes it; nothing for any other condition.
std::optional<std::vector<std::pair<std::string, std::string>>> equalities(
    const std::string& sql, const std::vector<std::string>& values,
    const std::vector<bool>& numeric) {
    std::vector<std::pair<std::string, std::string>> out;
    size_t at = 0;
    auto skip = [&](char c) {
        while (at < sql.size() && sql[at] == c) ++at;
    };
    for (;;) {
        skip('(');
        if (at >= sql.size() || sql[at] != '"') return std::nullopt;
        const size_t close = sql.find('"', at + 1);
        if (close == std::string::npos) return std::nullopt;
        std::string column = sql.substr(at + 1, close - at - 1);
        at = close + 1;
        if (sql.compare(at, 3, " = ") != 0 || at + 3 >= sql.size() ||
            (sql[at + 3] != '$' && sql[at + 3] != '?'))
            return std::nullopt;
        at += 4;
        size_t number = 0;
        const size_t digits = at;
        while (at < sql.size() && std::isdigit(static_cast<unsigned char>(sql[at])))
            number = number * 10 + static_cast<size_t>(sql[at++] - '0');
        if (at == digits || number == 0 || number > values.size() ||
            (number <= numeric.size() && numeric[number - 1]))
            return std::nullopt;
        out.emplace_back(std::move(column), values[number - 1]);
        skip(')');
        if (at == sql.size()) return out;
        if (sql.compare(at, 5, " AND ") != 0) return std::nullopt;
        at += 5;
    }
}

}  // namespace

long long Connection::deleteWhere(const std::string& table, const jet::Prepared& where,
                                  bool rowsAreNew, bool counted) {
    // On a server, rows gathered for COPY that the condition names are taken out unwritten
    // (a person met again in the same block is replaced there), and the rest of the table's
    // gathered rows, which the condition cannot meet, wait for their COPY with the others.
    long long dropped = 0;
    bool onlyGathered = false;
    struct Spared {
        ServerSession* session = nullptr;
        ~Spared() {
            if (session) session->spareNone();
        }
    } spared;
    if (server_ && !server_->madeTriggers()) {
        const auto equal = equalities(where.shape->sql, where.values, where.shape->numeric);
        const std::string quoted = quoteIdentifier(text::lowerAscii(table));
        if (const auto n = equal ? server_->dropGathered(quoted, *equal) : std::nullopt) {
            dropped = *n;
            server_->spare(quoted);
            spared.session = server_.get();
            // Rows all written in this transaction, none of the table's sent yet: the server
            // holds none that the condition meets, and no statement need tell it so.
            onlyGathered = rowsAreNew && !server_->wroteTo(quoted);
        }
    }
    struct Loud {
        std::vector<Watcher>& watchers;
        ~Loud() {
            for (Watcher& w : watchers) w.quiet = false;
        }
    } loud{watchers_};
    const ChangeListener::Condition condition{where.shape->sql, where.values, where.shape->numeric,
                                              rowsAreNew};
    for (Watcher& w : watchers_) {
        const auto t = std::find(w.tables.begin(), w.tables.end(), table);
        if (t == w.tables.end()) continue;
        w.quiet =
            w.listener->deletingWhere(*this, static_cast<size_t>(t - w.tables.begin()), condition);
        onlyGathered = onlyGathered && w.quiet;
    }
    if (onlyGathered) return dropped;
    if (server_)
        for (Watcher& w : watchers_) {
            const auto t = std::find(w.tables.begin(), w.tables.end(), table);
            if (t == w.tables.end() || w.quiet) continue;
            // No hook tells the rows one by one: they are looked up first.
            auto ids = prepare("SELECT rowid FROM " + jet::quoteName(table) + " WHERE " +
                               where.shape->sql);
            ids->bindValues(where.values, where.shape->numeric);
            std::vector<long long> rows;
            while (ids->step()) rows.push_back(ids->columnInteger(0));
            for (long long id : rows)
                w.listener->changing(*this, {ChangeListener::Kind::Delete,
                                             static_cast<size_t>(t - w.tables.begin()), id, id});
        }
    auto& st = cached("DELETE FROM main." + jet::quoteName(table) + " WHERE " + where.shape->sql);
    st.bindValues(where.values, where.shape->numeric);
    if (server_ && !counted) {
        st.send();
        return dropped;
    }
    st.step();
    return dropped + changes();
}

void Connection::createIfMissing(const std::string& table, const std::vector<std::string>& create) {
    if (hasTable(table)) return;
    for (const auto& sql : create) execute(sql);
}

bool Connection::hasTable(const std::string& name, const std::string& schema) {
    if (server_)
        return server_
                   ->query("SELECT to_regclass(quote_ident($1)) IS NOT NULL",
                           {text::lowerAscii(name)})
                   .rows.at(0)
                   .at(0) == "t";
    if (schema == kIndexSchema && !holdsIndex_) return false;
    auto& st = cached("SELECT 1 FROM " + jet::quoteName(schema) +
                      ".sqlite_master WHERE type = 'table' AND name = ?1");
    st.bind(1, Variant(name));
    const bool found = st.step();
    st.reset();
    return found;
}

std::string Connection::columnList(const std::string& table, const std::string& prefix) {
    auto& memo = memo_["column list:" + text::lowerAscii(table)];
    if (!memo) {
        auto names = std::make_shared<std::vector<std::string>>();
        for (const auto& c : columnsOf(table)) names->push_back(jet::quoteName(c.name));
        memo = names;
    }
    std::string out;
    for (const auto& n : *std::static_pointer_cast<const std::vector<std::string>>(memo))
        out += (out.empty() ? "" : ", ") + prefix + n;
    return out;
}

namespace {

// Measures tables of a server ("" for all of them) outside a transaction. A smaller sample than
// the server's own upkeep takes: a quarter of the time, and enough for the plans of the lists
// and look-ups, which want the spread of codes.
void measure(ServerSession& s, const std::string& tables) {
    s.transaction([&] {
        s.execute("SET LOCAL default_statistics_target = 25");
        s.execute("ANALYZE " + tables);
    });
}

}  // namespace

void Connection::refreshStatistics() noexcept {
    if (!server_) return;
    try {
        if (server_->inTransaction()) return;
        // The tables were measured after the first block (or before the run), and the server
        // scales what it measured by their size now; what the run changed in their spread is
        // its upkeep's to measure, within a minute.
        const auto upkeep = server_->query(
            "SELECT current_setting('autovacuum') = 'on' AND current_setting('track_counts') = "
            "'on'");
        if (!upkeep.rows.empty() && upkeep.rows[0][0] == "t") return;
        measure(*server_, "");
    } catch (const std::exception&) {
        // planned by guesses until the server's own upkeep comes by
    }
}

void Connection::measureNewTables() noexcept {
    if (!server_) return;
    try {
        if (server_->inTransaction()) return;
        // Never measured: reltuples is -1. Those of other owners are the server's to measure.
        const auto tables = server_->query(
            "SELECT quote_ident(c.relname) FROM pg_class c WHERE c.relkind = 'r' AND "
            "c.relnamespace = current_schema()::regnamespace AND c.reltuples < 0 AND "
            "pg_has_role(c.relowner, 'USAGE')");
        std::string list;
        for (const auto& row : tables.rows)
            list += (list.empty() ? "" : ", ") + row.at(0).value_or("");
        if (!list.empty()) measure(*server_, list);
    } catch (const std::exception&) {
        // planned by guesses until the server's own upkeep comes by
    }
}

std::string Connection::rowIdAmong(const std::string& select, const std::string& rowid) const {
    if (server_) return rowid + " = ANY (ARRAY(" + select + "))";
    return rowid + " IN (" + select + ")";
}

bool Connection::isTextColumn(const std::string& table, const std::string& column) {
    auto& memo = memo_["text columns:" + text::lowerAscii(table)];
    if (!memo) {
        auto names = std::make_shared<std::set<std::string>>();
        if (server_) {
            const auto r = server_->query(
                "SELECT column_name FROM information_schema.columns WHERE table_schema = "
                "current_schema() AND table_name = $1 AND data_type IN ('text', 'character "
                "varying', 'character')",
                {text::lowerAscii(table)});
            for (const auto& row : r.rows) names->insert(text::lowerAscii(row[0].value_or("")));
        } else {
            auto st = prepare("SELECT name, type FROM pragma_table_info(?1)");
            st->bind(1, Variant(table));
            while (st->step()) {
                const std::string type = text::upperAscii(st->column(1).toString());
                if (type.find("CHAR") != std::string::npos ||
                    type.find("TEXT") != std::string::npos ||
                    type.find("CLOB") != std::string::npos)
                    names->insert(text::lowerAscii(st->column(0).toString()));
            }
        }
        memo = names;
    }
    return std::static_pointer_cast<const std::set<std::string>>(memo)->count(
               text::lowerAscii(column)) > 0;
}

namespace {

// Whether the server's indexes sort Null first. Those of a store set up before did not and do
// not until it is set up again; an order is read from an index only where both agree.
bool indexesPutNullFirst(Connection& c) {
    auto& memo = c.memo("indexes:null first");
    if (!memo) {
        auto st = c.prepare(
            "SELECT count(*) FROM pg_indexes WHERE schemaname = current_schema() AND "
            "tablename = 'betrieb' AND indexdef LIKE '%NULLS FIRST%'");
        memo = std::make_shared<bool>(st->step() && st->column(0).toInteger() > 0);
    }
    return *std::static_pointer_cast<const bool>(memo);
}

}  // namespace

std::string Connection::orderTerm(const std::string& table, const std::string& column, bool german,
                                  bool descending) {
    const std::string direction = descending ? " DESC" : "";
    const std::string name = "[" + column + "]";
    if (!server_)
        return name + (german ? std::string(" COLLATE ") + german::kCollation : "") + direction;
    // Null first, as in the embedded store, where the server's indexes sort so: only an order
    // that says as its index does is read from it.
    const std::string nulls = !indexesPutNullFirst(*this) ? ""
                              : descending                ? " NULLS LAST"
                                                          : " NULLS FIRST";
    if (!isTextColumn(table, column)) return name + direction + nulls;
    // Letters first, then marks and case: the embedded store's German order. A key column
    // compares by its bytes.
    if (!german) return name + (serverSortsBytes_ ? "" : " COLLATE \"C\"") + direction + nulls;
    return "tolma_primary(" + name + ") COLLATE \"C\"" + direction + ", tolma_fold(" + name +
           ") COLLATE \"C\"" + direction;
}

std::string Connection::atLeast(const std::string& table, const std::string& column, bool german,
                                const std::string& parameter) {
    return compared(table, column, german, ">=", parameter);
}

std::string Connection::atMost(const std::string& table, const std::string& column, bool german,
                               const std::string& parameter) {
    return compared(table, column, german, "<=", parameter);
}

std::string Connection::compared(const std::string& table, const std::string& column, bool german,
                                 const std::string& op, const std::string& parameter) {
    const std::string name = "[" + column + "]";
    if (!server_)
        return name + (german ? std::string(" COLLATE ") + german::kCollation : "") + " " + op +
               " " + parameter;
    if (!isTextColumn(table, column)) return name + " " + op + " " + parameter;
    if (!german)
        return name + (serverSortsBytes_ ? "" : " COLLATE \"C\"") + " " + op + " " + parameter;
    return "(tolma_primary(" + name + ") COLLATE \"C\", tolma_fold(" + name + ") COLLATE \"C\") " +
           op + " (tolma_primary(" + parameter + ") COLLATE \"C\", tolma_fold(" + parameter +
           ") COLLATE \"C\")";
}

std::string Connection::isOneOf(const std::string& column, const std::string& parameter,
                                bool wholeNumbers) {
    const std::string name = column == "rowid" ? column : "[" + column + "]";
    if (!server_)
        return name + " IN (SELECT " + (wholeNumbers ? "CAST(value AS INTEGER)" : "value") +
               " FROM json_each(" + parameter + "))";
    // An array the server sees when it plans: it looks a short list up by the column's index
    // and hashes a long one. A list it cannot see it compares value by value with every row
    // wherever it takes the table for small, as it does just after an import. (An array type
    // is spelled with ARRAY: brackets would be taken for a name.)
    return name + " = ANY(CAST(" + parameter +
           (wholeNumbers ? " AS bigint ARRAY))" : " AS text ARRAY))");
}

std::string Connection::listValue(const std::vector<std::string>& texts) const {
    if (!server_) return jsonArray(texts);
    std::string array = "{";
    for (const auto& t : texts) {
        if (array.size() > 1) array += ',';
        array += '"';
        for (const char ch : t) {
            if (ch == '"' || ch == '\\') array += '\\';
            array += ch;
        }
        array += '"';
    }
    return array + "}";
}

void Connection::setSecureDelete(bool on) {
    // The server keeps its own files; what it frees it overwrites when it reuses the space.
    if (server_) return;
    execute(on ? "PRAGMA secure_delete = ON" : "PRAGMA secure_delete = OFF");
}

void Connection::changeHook(void* self, sqlite3*, int op, const char* database, const char* table,
                            long long oldRow, long long newRow) {
    if (std::strcmp(database, "main") != 0) return;
    const ChangeListener::Kind kind = op == SQLITE_INSERT   ? ChangeListener::Kind::Insert
                                      : op == SQLITE_DELETE ? ChangeListener::Kind::Delete
                                                            : ChangeListener::Kind::Update;
    static_cast<Connection*>(self)->tellWatchersOfRow(kind, table, oldRow, newRow);
}

void Connection::tellRow(ChangeListener::Kind kind, const std::string& table, long long oldRow,
                         long long newRow) {
    if (server_ && !watchers_.empty()) tellWatchersOfRow(kind, table.c_str(), oldRow, newRow);
}

void Connection::tellWatchersOfRow(ChangeListener::Kind kind, const char* table, long long oldRow,
                                   long long newRow) {
    for (size_t w = 0; w < watchers_.size(); ++w) {
        Watcher& watcher = watchers_[w];
        // Rows come table by table: the table of the last row is tried first.
        const auto& tables = watcher.tables;
        size_t t = watcher.lastTable;
        if (t >= tables.size() || std::strcmp(table, tables[t].c_str()) != 0) {
            t = 0;
            while (t < tables.size() && std::strcmp(table, tables[t].c_str()) != 0) ++t;
            if (t < tables.size()) watcher.lastTable = t;
        }
        if (t < watcher.tables.size() && !(watcher.quiet && kind != ChangeListener::Kind::Insert))
            watcher.listener->changing(*this, {kind, t, oldRow, newRow});
    }
}

TextCompare Connection::columnCompare(const std::string& table, const std::string& column) {
    // The server's texts compare by their bytes, as its plain ORDER BY sorts them.
    if (server_) return binaryCompare;
    const char* collation = nullptr;
    if (sqlite3_table_column_metadata(db_, "main", table.c_str(), column.c_str(), nullptr,
                                      &collation, nullptr, nullptr, nullptr) != SQLITE_OK ||
        !collation)
        return binaryCompare;
    if (sqlite3_stricmp(collation, "NOCASE") == 0) return nocaseCompare;
    if (sqlite3_stricmp(collation, "RTRIM") == 0) return rtrimCompare;
    if (sqlite3_stricmp(collation, german::kCollation) == 0) return germanCompare;
    return binaryCompare;
}

bool Connection::comparesBytes(const std::string& table, const std::string& column) {
    return columnCompare(table, column) == binaryCompare;
}

void Connection::beginBatch() {
    if (batchDepth_ == 0) {
        if (server_)
            server_->begin();
        else
            execute("BEGIN");
    }
    ++batchDepth_;
}

void Connection::commitBatch() {
    if (batchDepth_ == 0) return;
    if (--batchDepth_ > 0) return;
    commitOuterBatch(false);
}

size_t Connection::commitBatchBehind() {
    if (batchDepth_ == 0) return 0;
    if (--batchDepth_ > 0) return 0;
    return commitOuterBatch(server_ != nullptr);
}

size_t Connection::commitOuterBatch(bool behind) {
    try {
        tellWatchers([&](ChangeListener& l) { l.committing(*this); });
        // A server answers the COMMIT of a transaction that met an error with ROLLBACK, and
        // says so only there.
        if (behind) return server_->commitBehind();
        if (server_)
            server_->commit();
        else
            execute("COMMIT");
        return 0;
    } catch (...) {
        failedCommit();
        throw;
    }
}

void Connection::awaitCommit(size_t ticket) {
    if (!server_ || ticket == 0) return;
    try {
        server_->awaitCommit(ticket);
    } catch (...) {
        failedCommit();
        throw;
    }
}

bool Connection::commitEnded(size_t ticket) const {
    return !server_ || ticket == 0 || server_->commitEnded(ticket);
}

void Connection::failedCommit() noexcept {
    tellWatchersNoexcept([&](ChangeListener& l) { l.rolledBack(*this); });
    // A commit that failed (a full disk) may leave its transaction open; the block cannot be
    // kept, and the store must stay usable for what comes after.
    batchDepth_ = 0;
    rollbackOpen();
}

void Connection::rollbackBatch() noexcept {
    batchDepth_ = 0;
    tellWatchersNoexcept([&](ChangeListener& l) { l.rolledBack(*this); });
    rollbackOpen();
}

bool Connection::inTransaction() const {
    return server_ ? server_->inTransaction() : !sqlite3_get_autocommit(db_);
}

void Connection::rollbackOpen() noexcept {
    if (!inTransaction()) return;
    if (!server_) {
        sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
        return;
    }
    try {
        server_->rollback();
    } catch (const DaoError&) {
        // A server that went away has taken the transaction back itself.
    }
}

bool Connection::beginReading() {
    if (!server_ || inTransaction()) return false;
    server_->execute("BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY");
    return true;
}

std::string Connection::shareReading() {
    const auto r = server_->query("SELECT pg_export_snapshot()");
    return r.rows.empty() ? std::string() : r.rows[0][0].value_or("");
}

void Connection::beginReadingIn(const std::string& snapshot) {
    // The name is the server's own (hexadecimal digits and dashes); nothing else is sent.
    if (snapshot.empty() ||
        snapshot.find_first_not_of("0123456789ABCDEFabcdef-") != std::string::npos)
        throwDao("DAO.Database", err::kEngineError,
                 "Ungültiger Name eines Datenstands: '" + snapshot + "'.");
    server_->execute("BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY");
    server_->execute("SET TRANSACTION SNAPSHOT '" + snapshot + "'");
}

void Connection::fail(const std::string& source, const std::string& context) const {
    if (server_)
        throwDao(source, err::kEngineError,
                 "Fehler auf dem Datenbankserver " + describeServer(file_.string()) + " (" +
                     context + ").");
    const int code = sqlite3_errcode(db_);
    const std::string msg = sqlite3_errmsg(db_);
    auto starts = [&](const char* p) { return msg.rfind(p, 0) == 0; };
    if (starts("no such table"))
        throwDao(source, err::kTableNotFound,
                 "Die Eingabetabelle oder Abfrage '" + msg.substr(msg.find(':') + 2) +
                     "' wurde nicht gefunden.");
    if (starts("no such column"))
        throwDao(source, err::kTooFewParameters,
                 "Zu wenige Parameter: unbekannter Name '" + msg.substr(msg.find(':') + 2) + "'.");
    if (code == SQLITE_BUSY || code == SQLITE_LOCKED)
        throwDao(source, err::kFileInUse,
                 "Die Datei '" + file_.string() + "' wird bereits verwendet.");
    if (code == SQLITE_FULL)
        throwDao(source, err::kDiskFull,
                 "Nicht genügend Speicherplatz auf dem Datenträger für die Datei '" +
                     file_.string() + "'.");
    if (code == SQLITE_IOERR)
        throwDao(source, err::kDiskError,
                 "Datenträger- oder Netzwerkfehler beim Zugriff auf die Datei '" + file_.string() +
                     "' (" + msg + ").");
    // SQLite needs to write files beside the store (its journal): a directory without write
    // permission shows as a store it cannot open or write.
    const bool directoryReadOnly = ::access(file_.parent_path().c_str(), W_OK) != 0;
    if (code == SQLITE_READONLY || (code == SQLITE_CANTOPEN && directoryReadOnly)) {
        if (directoryReadOnly)
            throwDao(source, err::kReadOnly,
                     "Aktualisieren nicht möglich: das Verzeichnis '" +
                         file_.parent_path().string() + "' der Datenbank ist schreibgeschützt.");
        throwDao(source, err::kReadOnly,
                 "Aktualisieren nicht möglich. Datenbank oder Objekt ist schreibgeschützt.");
    }
    if (code == SQLITE_CANTOPEN)
        throwDao(source, err::kCannotOpen,
                 "Die Datei '" + file_.string() + "' kann nicht geöffnet werden (" + msg + ").");
    if (code == SQLITE_ERROR)
        throwDao(source, err::kSyntaxError,
                 "Syntaxfehler in Abfrageausdruck '" + context + "' (" + msg + ").");
    throwDao(source, err::kEngineError, "Fehler des Datenbankmoduls: " + msg);
}

}  // namespace tolma::store
