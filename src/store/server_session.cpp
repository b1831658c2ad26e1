#include "store/server_session.h"

#include <libpq-fe.h>
#include <poll.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "store/server_address.h"
#include "text/text.h"

namespace tolma::store {
namespace {

constexpr const char* kConnectSource = "DAO.DBEngine";
constexpr const char* kStatementSource = "DAO.Database";
// How long a connect waits for a server that does not answer, unless the text says.
constexpr int kDefaultConnectSeconds = 15;

using Result = std::unique_ptr<PGresult, decltype(&PQclear)>;

std::string withoutSecrets(std::string text, const std::vector<std::string>& secrets) {
    for (const auto& secret : secrets) {
        if (secret.empty()) continue;
        for (size_t at = text.find(secret); at != std::string::npos; at = text.find(secret, at + 3))
            text.replace(at, secret.size(), "***");
    }
    return text;
}

// libpq's message on one line, without the trailing line end and the hint's tab.
std::string oneLine(const std::string& message) {
    std::string out;
    for (char c : message) {
        if (c == '\n' || c == '\t' || c == '\r') {
            if (!out.empty() && out.back() != ' ') out += ' ';
        } else {
            out += c;
        }
    }
    while (!out.empty() && out.back() == ' ') out.pop_back();
    return out;
}

// A message of the server in verbose form holds "FATAL:  3D000: text": its SQLSTATE and its
// text without the code and the source location. Messages of libpq itself have no SQLSTATE.
struct ServerMessage {
    std::string state, text;
};
ServerMessage splitVerbose(const std::string& message) {
    for (size_t at = message.find(":  "); at != std::string::npos;
         at = message.find(":  ", at + 1)) {
        const size_t code = at + 3;
        if (message.size() < code + 7 || message.compare(code + 5, 2, ": ") != 0) continue;
        bool isCode = true;
        for (size_t i = code; i < code + 5; ++i) {
            const char c = message[i];
            isCode = isCode && ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z'));
        }
        if (!isCode) continue;
        const size_t end = message.find('\n', code + 7);
        return {message.substr(code, 5), message.substr(code + 7, end - code - 7)};
    }
    return {"", oneLine(message)};
}

int connectSeconds(const std::string& text) {
    char* message = nullptr;
    PQconninfoOption* options = PQconninfoParse(text.c_str(), &message);
    if (message) PQfreemem(message);
    int seconds = kDefaultConnectSeconds;
    for (const PQconninfoOption* o = options; o && o->keyword; ++o)
        if (std::string(o->keyword) == "connect_timeout" && o->val && std::atoi(o->val) > 0)
            seconds = std::atoi(o->val);
    PQconninfoFree(options);
    return seconds;
}

// Runs libpq's connect step by step: only so can the messages of a failed start carry their
// SQLSTATE, which tells a missing database from a refused login in any language of the server.
bool pollConnect(PGconn* conn, int seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    PostgresPollingStatusType status = PGRES_POLLING_WRITING;
    while (status != PGRES_POLLING_OK) {
        if (status == PGRES_POLLING_FAILED) return false;
        pollfd fd{PQsocket(conn),
                  static_cast<short>(status == PGRES_POLLING_READING ? POLLIN : POLLOUT), 0};
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || ::poll(&fd, 1, static_cast<int>(left.count())) == 0) return false;
        status = PQconnectPoll(conn);
    }
    return true;
}

// Why a connect failed, told by what libpq knows: a password it lacked, or the SQLSTATE of
// the server's answer; without an answer the server was not reached.
DaoError connectFailure(const std::string& raw, bool wantsPassword, const std::string& server,
                        const std::vector<std::string>& secrets) {
    const ServerMessage m = splitVerbose(raw);
    int number = err::kCannotOpen;
    std::string description;
    if (wantsPassword) {
        number = err::kPasswordMissing;
        description = "Der Datenbankserver " + server + " verlangt ein Kennwort; es fehlt.";
    } else if (m.state == "28P01") {
        number = err::kLoginRefused;
        description = "Das Kennwort für den Datenbankserver " + server + " ist falsch: " + m.text;
    } else if (m.state.rfind("28", 0) == 0) {
        number = err::kLoginRefused;
        description = "Der Datenbankserver " + server + " lehnt die Anmeldung ab: " + m.text;
    } else if (m.state == "3D000") {
        number = err::kFileNotFound;
        description =
            "Die Datenbank gibt es auf dem Datenbankserver nicht: " + server + " (" + m.text + ")";
    } else if (m.state == "42501") {
        number = err::kNoPermission;
        description =
            "Auf dem Datenbankserver " + server + " fehlt das Recht zur Anmeldung: " + m.text;
    } else if (m.state.empty()) {
        number = err::kServerUnreachable;
        description = "Der Datenbankserver ist nicht erreichbar: " + server + " (" + m.text + ")";
    } else {
        description = "Die Verbindung zum Datenbankserver " + server +
                      " ist gescheitert: " + m.text + " (" + m.state + ")";
    }
    return DaoError(kConnectSource, number, withoutSecrets(description, secrets));
}

}  // namespace

std::unique_ptr<ServerSession> ServerSession::connect(const std::string& text,
                                                      const std::string& password) {
    const std::string server = describeServer(text);
    const std::vector<std::string> secrets = {password, passwordIn(text)};
    char* parseMessage = nullptr;
    PQconninfoOption* parsed = PQconninfoParse(text.c_str(), &parseMessage);
    if (!parsed) {
        const std::string why = parseMessage ? oneLine(parseMessage) : "";
        if (parseMessage) PQfreemem(parseMessage);
        throw DaoError(
            kConnectSource, err::kCannotOpen,
            withoutSecrets("Die Verbindungsangabe des Datenbankservers ist ungültig: " + why,
                           secrets));
    }
    PQconninfoFree(parsed);

    // The text first, as libpq expands it; what follows overrides it.
    std::vector<const char*> keys = {"dbname", "client_encoding", "fallback_application_name"};
    std::vector<const char*> values = {text.c_str(), "UTF8", "tolma"};
    if (!password.empty()) {
        keys.push_back("password");
        values.push_back(password.c_str());
    }
    keys.push_back(nullptr);
    values.push_back(nullptr);
    PGconn* conn = PQconnectStartParams(keys.data(), values.data(), 1);
    if (!conn)
        throw DaoError(kConnectSource, err::kCannotOpen, "Kein Speicher für die Verbindung.");
    PQsetErrorVerbosity(conn, PQERRORS_VERBOSE);
    const int seconds = connectSeconds(text);
    const bool connected = PQstatus(conn) != CONNECTION_BAD && pollConnect(conn, seconds);
    if (connected) {
        PQsetErrorVerbosity(conn, PQERRORS_DEFAULT);
        // Notices ("table exists, skipping") are no failures; libpq would print them on stderr.
        PQsetNoticeProcessor(
            conn, [](void*, const char*) {}, nullptr);
        return std::unique_ptr<ServerSession>(new ServerSession(conn, server, secrets));
    }

    std::string raw = PQerrorMessage(conn);
    if (raw.empty() || PQstatus(conn) != CONNECTION_BAD)
        raw = "keine Antwort innerhalb von " + std::to_string(seconds) + " Sekunden";
    const bool wantsPassword = PQconnectionNeedsPassword(conn) == 1;
    PQfinish(conn);
    throw connectFailure(raw, wantsPassword, server, secrets);
}

ServerSession::ServerSession(PGconn* conn, std::string server, std::vector<std::string> secrets)
    : conn_(conn), server_(std::move(server)), secrets_(std::move(secrets)) {}

ServerSession::~ServerSession() {
    if (worker_.joinable()) {
        {
            // What waits behind goes with the connection, as the open transaction does.
            std::lock_guard lock(behindLock_);
            stopping_ = true;
            jobs_.clear();
        }
        behindMoved_.notify_all();
        worker_.join();
    }
    PQfinish(conn_);
}

void ServerSession::fail(const std::string& what) const {
    throw DaoError(kStatementSource, err::kEngineError, withoutSecrets(what, secrets_));
}

namespace {

[[noreturn]] void failWith(PGconn* conn, PGresult* res, const std::string& server,
                           const std::vector<std::string>& secrets) {
    const char* stateField = res ? PQresultErrorField(res, PG_DIAG_SQLSTATE) : nullptr;
    const char* primary = res ? PQresultErrorField(res, PG_DIAG_MESSAGE_PRIMARY) : nullptr;
    const std::string state = stateField ? stateField : "";
    const std::string text = primary ? primary : oneLine(PQerrorMessage(conn));
    PQclear(res);
    int number = err::kEngineError;
    std::string description;
    if (PQstatus(conn) == CONNECTION_BAD) {
        number = err::kServerUnreachable;
        description = "Der Datenbankserver ist nicht erreichbar: " + server +
                      " (die Verbindung ist abgerissen: " + text + ")";
    } else if (state == "42P01") {
        number = err::kTableNotFound;
        description = "Der Datenspeicher auf dem Datenbankserver " + server +
                      " ist nicht eingerichtet (" + text +
                      "); „tolma-cli server einrichten“ richtet ihn ein.";
    } else if (state == "42501") {
        number = err::kNoPermission;
        description = "Auf dem Datenbankserver " + server + " fehlt das Recht dazu: " + text;
    } else if (state == "42601") {
        number = err::kSyntaxError;
        description =
            "Syntaxfehler in der Anweisung an den Datenbankserver " + server + ": " + text;
    } else {
        description = "Fehler auf dem Datenbankserver " + server + ": " + text +
                      (state.empty() ? "" : " (" + state + ")");
    }
    throw DaoError(kStatementSource, number, withoutSecrets(description, secrets));
}

// A statement that reads or writes only the tables it names: a query or a change of rows. Any
// other (a savepoint, a transaction's end, a change of the tables) needs every row written.
bool namesItsTables(const std::string& lowered) {
    const size_t at = lowered.find_first_not_of(" \t\n(");
    for (const char* word : {"select", "insert", "update", "delete"})
        if (at != std::string::npos && lowered.compare(at, std::strlen(word), word) == 0)
            return true;
    return false;
}

// Whether the statement (in lower case) begins a transaction.
bool beginsTransaction(const std::string& lowered) {
    const size_t at = lowered.find_first_not_of(" \t\n");
    return at != std::string::npos && lowered.compare(at, 5, "begin") == 0;
}

// Whether the statement makes a trigger.
bool makesTrigger(const std::string& sql) {
    const size_t at = sql.find_first_not_of(" \t\n");
    if (at == std::string::npos || text::lowerAscii(sql.substr(at, 6)) != "create") return false;
    return text::lowerAscii(sql).find("trigger") != std::string::npos;
}

// Whether the statement names the table (quoted, as rows are gathered under), quoted or bare.
bool namesTable(const std::string& lowered, const std::string& quoted) {
    const std::string bare = quoted.substr(1, quoted.size() - 2);
    auto isNameChar = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '$';
    };
    for (size_t at = lowered.find(bare); at != std::string::npos; at = lowered.find(bare, at + 1)) {
        const size_t end = at + bare.size();
        if ((at == 0 || !isNameChar(lowered[at - 1])) &&
            (end >= lowered.size() || !isNameChar(lowered[end])))
            return true;
    }
    return false;
}

// The table a statement adds or changes rows of, quoted as rows are gathered under; empty for
// one that does neither, "*" where it cannot be told.
std::string writtenTable(const std::string& lowered) {
    const size_t at = lowered.find_first_not_of(" \t\n(");
    if (at == std::string::npos) return {};
    size_t from = std::string::npos;
    for (const char* word : {"insert into ", "update ", "copy "})
        if (lowered.compare(at, std::strlen(word), word) == 0) from = at + std::strlen(word);
    if (from == std::string::npos) {
        // A table made from a query is filled as it is made.
        if (lowered.find(" as ") != std::string::npos) return "*";
        for (const char* word :
             {"select", "delete", "begin", "commit", "rollback", "savepoint", "release", "notify",
              "listen", "set ", "show ", "create ", "drop ", "alter ", "truncate "})
            if (lowered.compare(at, std::strlen(word), word) == 0) return {};
        return "*";
    }
    std::string name;
    for (size_t k = from; k < lowered.size() && lowered[k] != ' ' && lowered[k] != '('; ++k)
        if (lowered[k] != '"') name += lowered[k];
    for (const char* schema : {"main.", "public.", "temp.", "pg_temp."})
        if (name.rfind(schema, 0) == 0) name.erase(0, std::strlen(schema));
    return name.empty() || name.find('.') != std::string::npos ? "*" : quoteIdentifier(name);
}

std::vector<const char*> pointersTo(const std::vector<ServerValue>& params) {
    std::vector<const char*> out;
    for (const auto& p : params) out.push_back(p ? p->c_str() : nullptr);
    return out;
}

}  // namespace

long long ServerSession::execute(const std::string& sql, const std::vector<ServerValue>& params) {
    drainFor(sql);
    const auto values = pointersTo(params);
    PGresult* res = PQexecParams(conn_, sql.c_str(), static_cast<int>(values.size()), nullptr,
                                 values.data(), nullptr, nullptr, 0);
    const auto status = PQresultStatus(res);
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK)
        failWith(conn_, res, server_, secrets_);
    const std::string changed = PQcmdTuples(res);
    PQclear(res);
    return changed.empty() ? 0 : std::atoll(changed.c_str());
}

ServerResult ServerSession::query(const std::string& sql, const std::vector<ServerValue>& params) {
    drainFor(sql);
    const auto values = pointersTo(params);
    Result res(PQexecParams(conn_, sql.c_str(), static_cast<int>(values.size()), nullptr,
                            values.data(), nullptr, nullptr, 0),
               &PQclear);
    return rowsOf(res.release());
}

ServerResult ServerSession::rowsOf(PGresult* answer) const {
    Result res(answer, &PQclear);
    const auto status = PQresultStatus(res.get());
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK)
        failWith(conn_, res.release(), server_, secrets_);
    ServerResult out;
    const int columns = PQnfields(res.get());
    for (int c = 0; c < columns; ++c) out.columns.push_back(PQfname(res.get(), c));
    const int rows = PQntuples(res.get());
    out.rows.reserve(rows);
    for (int r = 0; r < rows; ++r) {
        ServerRow row;
        for (int c = 0; c < columns; ++c)
            row.push_back(PQgetisnull(res.get(), r, c)
                              ? ServerValue()
                              : ServerValue(std::string(PQgetvalue(res.get(), r, c),
                                                        PQgetlength(res.get(), r, c))));
        out.rows.push_back(std::move(row));
    }
    return out;
}

size_t ServerSession::queryBehind(const std::string& sql,
                                  std::function<void(ServerResult&&)> take) {
    drainFor(sql, true);
    return behind(
        [this, sql, take = std::move(take)] { take(rowsOf(PQexec(conn_, sql.c_str()))); });
}

void ServerSession::awaitJob(size_t number) {
    if (number == 0 || !worker_.joinable()) return;
    std::unique_lock lock(behindLock_);
    behindMoved_.wait(lock, [&] { return jobsDone_ >= number; });
}

std::shared_ptr<PGresult> ServerSession::run(const std::string& sql,
                                             const std::vector<const char*>& values,
                                             const std::vector<unsigned>& types) {
    drainFor(sql);
    PGresult* res = PQexecParams(conn_, sql.c_str(), static_cast<int>(values.size()),
                                 types.size() == values.size() ? types.data() : nullptr,
                                 values.data(), nullptr, nullptr, 0);
    const auto status = PQresultStatus(res);
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK)
        failWith(conn_, res, server_, secrets_);
    return std::shared_ptr<PGresult>(res, &PQclear);
}

std::shared_ptr<PGresult> ServerSession::describe(const std::string& sql,
                                                  const std::vector<unsigned>& types) {
    awaitBehind();
    PGresult* prepared =
        PQprepare(conn_, "", sql.c_str(), static_cast<int>(types.size()), types.data());
    if (PQresultStatus(prepared) != PGRES_COMMAND_OK) failWith(conn_, prepared, server_, secrets_);
    PQclear(prepared);
    PGresult* res = PQdescribePrepared(conn_, "");
    if (PQresultStatus(res) != PGRES_COMMAND_OK) failWith(conn_, res, server_, secrets_);
    return std::shared_ptr<PGresult>(res, &PQclear);
}

std::vector<ServerSession::Notice> ServerSession::notices() {
    std::vector<Notice> out;
    if (!idle() || !copies_.empty() || PQisBusy(conn_) || PQstatus(conn_) != CONNECTION_OK)
        return out;
    if (PQconsumeInput(conn_) == 0) return out;  // a broken connection shows in isBroken()
    const int own = PQbackendPID(conn_);
    while (PGnotify* n = PQnotifies(conn_)) {
        if (n->be_pid != own) out.push_back({n->relname, n->extra ? n->extra : ""});
        PQfreemem(n);
    }
    return out;
}

bool ServerSession::isBroken() const {
    // While rows are being written behind, the next statement tells.
    return idle() && PQstatus(conn_) == CONNECTION_BAD;
}

void ServerSession::transaction(const std::function<void()>& work) {
    begin();
    try {
        work();
        commit();
    } catch (...) {
        // A session whose server went away cannot roll back; the server does it then.
        try {
            rollback();
        } catch (const DaoError&) {
        }
        throw;
    }
}

bool ServerSession::inTransaction() {
    // A failure behind stays for the next statement to raise: asked on the way to a rollback,
    // the transaction is open either way.
    awaitBehind(false);
    return PQtransactionStatus(conn_) != PQTRANS_IDLE;
}

const std::string& ServerSession::prepared(const std::string& sql,
                                           const std::vector<unsigned>& types) {
    auto& name = prepared_[sql];
    if (name.empty()) {
        awaitBehind();
        const std::string made = "tolma_s" + std::to_string(prepared_.size());
        PGresult* res = PQprepare(conn_, made.c_str(), sql.c_str(), static_cast<int>(types.size()),
                                  types.data());
        if (PQresultStatus(res) != PGRES_COMMAND_OK) {
            prepared_.erase(sql);
            failWith(conn_, res, server_, secrets_);
        }
        PQclear(res);
        name = made;
        textOf_[made] = sql;
    }
    return name;
}

std::shared_ptr<PGresult> ServerSession::runPrepared(const std::string& name,
                                                     const std::vector<const char*>& values) {
    drainFor(textOf_[name]);
    PGresult* res = PQexecPrepared(conn_, name.c_str(), static_cast<int>(values.size()),
                                   values.data(), nullptr, nullptr, 0);
    const auto status = PQresultStatus(res);
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK)
        failWith(conn_, res, server_, secrets_);
    return std::shared_ptr<PGresult>(res, &PQclear);
}

namespace {

// Values given as pointers, kept for a statement that runs later on the worker thread.
std::vector<ServerValue> keptValues(const std::vector<const char*>& values) {
    std::vector<ServerValue> kept;
    kept.reserve(values.size());
    for (const char* v : values) kept.push_back(v ? ServerValue(v) : ServerValue());
    return kept;
}

}  // namespace

void ServerSession::sendPrepared(const std::string& name, const std::vector<const char*>& values) {
    // Rows gathered before this statement for the tables it names go ahead of it.
    drainFor(textOf_[name], true);
    behind([this, name, kept = keptValues(values)] {
        const auto pointers = pointersTo(kept);
        rowsOf(PQexecPrepared(conn_, name.c_str(), static_cast<int>(pointers.size()),
                              pointers.data(), nullptr, nullptr, 0));
    });
}

void ServerSession::sendText(const std::string& sql, const std::vector<const char*>& values,
                             const std::vector<unsigned>& types) {
    drainFor(sql, true);
    behind([this, sql, types, kept = keptValues(values)] {
        const auto pointers = pointersTo(kept);
        rowsOf(PQexecParams(conn_, sql.c_str(), static_cast<int>(pointers.size()),
                            types.size() == pointers.size() ? types.data() : nullptr,
                            pointers.data(), nullptr, nullptr, 0));
    });
}

void ServerSession::queueCopy(const std::string& table, const std::string& columns,
                              const std::vector<ServerValue>& row) {
    auto it = std::find_if(copies_.begin(), copies_.end(), [&](const CopyRows& c) {
        return c.table == table && c.columns == columns;
    });
    if (it == copies_.end()) {
        it = copies_.emplace(copies_.end());
        it->table = table;
        it->columns = columns;
    }
    const size_t before = it->data.size();
    appendCopyLine(it->data, row);
    copyBytes_ += it->data.size() - before;
    // Written behind once the server is done with the piece before: it stores one while the
    // next is gathered. A piece of some hundred kilobytes at least, or each row costs it more;
    // some megabytes at most, so the memory stays small.
    if ((copyBytes_ >= (256u << 10) && idle()) || copyBytes_ >= (8u << 20)) writeCopies({}, true);
}

void ServerSession::writeCopies(const std::string& sql, bool behind) {
    // Taken first: a failure leaves nothing to be written twice.
    std::vector<CopyRows> copies;
    const std::string lowered = text::lowerAscii(sql);
    const bool onlyNamed = !sql.empty() && namesItsTables(lowered);
    for (auto& c : copies_) {
        if (onlyNamed && !triggers_ && (c.table == spared_ || !namesTable(lowered, c.table)))
            continue;
        copyBytes_ -= c.data.size() - c.droppedBytes;
        copies.push_back(std::move(c));
        c.table.clear();
    }
    std::erase_if(copies_, [](const CopyRows& c) { return c.table.empty(); });
    for (const auto& c : copies) wrote_.insert(c.table);
    if (behind)
        this->behind([this, copies = std::move(copies)] { copyAll(copies); });
    else
        copyAll(copies);
}

void ServerSession::copyAll(const std::vector<CopyRows>& copies) {
    for (const auto& c : copies) {
        if (c.dropped.empty()) {
            copyText(c.table, c.columns, c.data);
        } else if (c.droppedBytes < c.data.size()) {
            copyText(c.table, c.columns, c.kept());
        }
    }
}

size_t ServerSession::behind(std::function<void()> job, bool commits) {
    size_t number = 0;
    {
        std::lock_guard lock(behindLock_);
        jobs_.push_back({std::move(job), commits});
        number = ++jobsSent_;
    }
    if (!worker_.joinable()) worker_ = std::thread([this] { work(); });
    behindMoved_.notify_all();
    return number;
}

void ServerSession::work() {
    std::unique_lock lock(behindLock_);
    for (;;) {
        behindMoved_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
        if (stopping_) return;
        auto job = std::move(jobs_.front());
        jobs_.pop_front();
        working_ = true;
        // After a failure the transaction is lost on the server: what follows is not tried.
        const bool skipped = behindFailed_ != nullptr;
        lock.unlock();
        std::exception_ptr failed;
        if (!skipped) try {
                job.run();
            } catch (...) {
                failed = std::current_exception();
            }
        lock.lock();
        ++jobsDone_;
        if (failed) behindFailed_ = failed;
        if (job.commits && behindFailed_) lostCommits_[jobsDone_] = behindFailed_;
        working_ = false;
        behindMoved_.notify_all();
    }
}

void ServerSession::awaitBehind(bool raise) {
    if (!worker_.joinable()) return;
    std::unique_lock lock(behindLock_);
    behindMoved_.wait(lock, [this] { return jobs_.empty() && !working_; });
    if (!raise) return;
    if (auto failed = std::exchange(behindFailed_, nullptr)) std::rethrow_exception(failed);
}

bool ServerSession::commitEnded(size_t ticket) const {
    std::lock_guard lock(behindLock_);
    return jobsDone_ >= ticket;
}

void ServerSession::awaitCommit(size_t ticket) {
    if (ticket == 0 || !worker_.joinable()) return;
    awaitJob(ticket);
    std::lock_guard lock(behindLock_);
    // A failure after the commit belongs to the next transaction: the next use raises it. The
    // one that stopped the commit is raised here, even where another use raised it before.
    const auto lost = lostCommits_.find(ticket);
    if (lost == lostCommits_.end()) return;
    const std::exception_ptr failure = lost->second;
    lostCommits_.erase(lost);
    if (behindFailed_ == failure) behindFailed_ = nullptr;
    std::rethrow_exception(failure);
}

bool ServerSession::idle() const {
    if (!worker_.joinable()) return true;
    std::lock_guard lock(behindLock_);
    return jobs_.empty() && !working_;
}

namespace {

// The fields of one line of COPY's text form, as escaped there; or the names of a column list.
std::vector<std::string_view> fieldsOf(std::string_view line, char apart = '\t') {
    std::vector<std::string_view> out;
    for (size_t from = 0;;) {
        const size_t tab = line.find(apart, from);
        out.push_back(line.substr(from, tab == std::string_view::npos ? tab : tab - from));
        if (tab == std::string_view::npos) return out;
        from = tab + 1;
    }
}

}  // namespace

std::string ServerSession::CopyRows::kept() const {
    if (dropped.empty()) return data;
    auto gone = dropped;
    std::sort(gone.begin(), gone.end());
    std::string out;
    out.reserve(data.size());
    size_t from = 0;
    for (const auto& [begin, end] : gone) {
        out.append(data, from, begin - from);
        from = end;
    }
    out.append(data, from, std::string::npos);
    return out;
}

std::optional<long long> ServerSession::dropGathered(
    const std::string& table, const std::vector<std::pair<std::string, std::string>>& equal) {
    // For each gathered list of the table: where each named column stands in its rows, and the
    // text as a line holds it. A list without one of the columns cannot be judged.
    std::vector<std::pair<CopyRows*, std::vector<std::pair<size_t, std::string>>>> lists;
    if (equal.empty()) return std::nullopt;
    for (auto& c : copies_) {
        if (c.table != table) continue;
        const std::vector<std::string_view> columns = fieldsOf(c.columns, ',');
        auto& wanted = lists.emplace_back(&c, std::vector<std::pair<size_t, std::string>>{}).second;
        for (const auto& [column, value] : equal) {
            const std::string quoted = quoteIdentifier(column);
            const auto at = std::find_if(columns.begin(), columns.end(), [&](std::string_view l) {
                const size_t name = l.find_first_not_of(' ');
                return name != std::string_view::npos && l.substr(name) == quoted;
            });
            if (at == columns.end()) return std::nullopt;
            std::string escaped;
            appendCopyLine(escaped, {value});
            escaped.pop_back();
            wanted.emplace_back(static_cast<size_t>(at - columns.begin()), std::move(escaped));
        }
    }
    long long dropped = 0;
    for (auto& [c, wanted] : lists) {
        // The lines are learnt by the first column named, once each: a block deletes thousands
        // of times among the thousands of rows it gathered.
        const size_t column = wanted[0].first;
        if (c->indexedColumn != static_cast<int>(column)) {
            c->indexedColumn = static_cast<int>(column);
            c->indexedTo = 0;
            c->lineAt.clear();
        }
        const std::string_view data = c->data;
        for (size_t begin = c->indexedTo; begin < data.size();) {
            const size_t end = data.find('\n', begin);
            if (end == std::string_view::npos) break;  // every line ends with one
            const auto fields = fieldsOf(data.substr(begin, end - begin));
            if (column < fields.size()) c->lineAt.emplace(fields[column], begin);
            begin = c->indexedTo = end + 1;
        }
        const auto [first, last] = c->lineAt.equal_range(wanted[0].second);
        for (auto it = first; it != last;) {
            const size_t begin = it->second, end = data.find('\n', begin);
            const auto fields = fieldsOf(data.substr(begin, end - begin));
            if (!std::all_of(wanted.begin(), wanted.end(), [&](const auto& w) {
                    return w.first < fields.size() && fields[w.first] == w.second;
                })) {
                ++it;
                continue;
            }
            c->dropped.emplace_back(begin, end + 1);
            copyBytes_ -= end + 1 - begin;
            c->droppedBytes += end + 1 - begin;
            ++dropped;
            it = c->lineAt.erase(it);
        }
    }
    return dropped;
}

void ServerSession::drain() {
    drainFor({});
}

bool ServerSession::wroteTo(const std::string& table) const {
    return wrote_.count(table) || wrote_.count("*");
}

void ServerSession::drainFor(const std::string& sql, bool behind) {
    if (!behind) awaitBehind();
    const std::string lowered = text::lowerAscii(sql);
    if (auto table = writtenTable(lowered); !table.empty()) {
        wrote_.insert(std::move(table));
    } else if (!behind && beginsTransaction(lowered) &&
               PQtransactionStatus(conn_) == PQTRANS_IDLE) {
        wrote_.clear();  // none of its rows went anywhere yet
    }
    // From a trigger on, a statement may write rows of tables it does not name.
    if (!triggers_ && makesTrigger(sql)) triggers_ = true;
    if (!copies_.empty()) writeCopies(sql, behind);
}

std::string ServerSession::tableName(unsigned oid) {
    auto& name = names_[{oid, 0}];
    if (name.empty()) {
        const auto r = query("SELECT relname FROM pg_class WHERE oid = $1", {std::to_string(oid)});
        name = r.rows.empty() ? "?" : r.rows[0][0].value_or("?");
    }
    return name;
}

std::string ServerSession::columnName(unsigned oid, int number) {
    auto& name = names_[{oid, number}];
    if (name.empty()) {
        const auto r = query("SELECT attname FROM pg_attribute WHERE attrelid = $1 AND attnum = $2",
                             {std::to_string(oid), std::to_string(number)});
        name = r.rows.empty() ? "?" : r.rows[0][0].value_or("?");
    }
    return name;
}

void ServerSession::begin() {
    if (idle()) {
        execute("BEGIN");
        return;
    }
    // Behind the commit of the transaction before: none of its rows went anywhere yet.
    wrote_.clear();
    behind([this] { rowsOf(PQexec(conn_, "BEGIN")); });
}

void ServerSession::commit() {
    drain();
    sendCommit();
}

size_t ServerSession::commitBehind() {
    drainFor({}, true);
    return behind([this] { sendCommit(); }, true);
}

void ServerSession::sendCommit() {
    Result res(PQexec(conn_, "COMMIT"), &PQclear);
    if (PQresultStatus(res.get()) != PGRES_COMMAND_OK)
        failWith(conn_, res.release(), server_, secrets_);
    // A transaction that met an error ends with ROLLBACK even when asked to commit.
    if (std::string(PQcmdStatus(res.get())) == "ROLLBACK")
        fail("Der Datenbankserver " + server_ +
             " hat die Transaktion nach einem Fehler zurückgenommen.");
}

void ServerSession::rollback() {
    // What was gathered goes with the transaction, unwritten, and so do the triggers it made.
    copies_.clear();
    copyBytes_ = 0;
    triggers_ = false;
    try {
        awaitBehind();
    } catch (const DaoError&) {
        // what failed among the sent statements goes with the transaction
    }
    execute("ROLLBACK");
}

long long ServerSession::copyIn(const std::string& table, const std::vector<std::string>& columns,
                                const std::vector<ServerRow>& rows) {
    drain();
    wrote_.insert(quoteIdentifier(text::lowerAscii(table)));
    std::string list;
    for (const auto& c : columns) list += (list.empty() ? "" : ", ") + quoteIdentifier(c);
    std::string data;
    for (const auto& row : rows) appendCopyLine(data, row);
    return copyText(quoteIdentifier(table), list, data);
}

long long ServerSession::copyText(const std::string& table, const std::string& columns,
                                  const std::string& data) {
    const std::string sql = "COPY " + table + " (" + columns + ") FROM STDIN";
    Result start(PQexec(conn_, sql.c_str()), &PQclear);
    if (PQresultStatus(start.get()) != PGRES_COPY_IN)
        failWith(conn_, start.release(), server_, secrets_);
    const bool sent = PQputCopyData(conn_, data.data(), static_cast<int>(data.size())) == 1;
    PQputCopyEnd(conn_, sent ? nullptr : "abgebrochen");
    PGresult* res = PQgetResult(conn_);
    // The end of COPY leaves one result; anything after it is drained so the next statement runs.
    while (PGresult* more = PQgetResult(conn_)) PQclear(more);
    if (PQresultStatus(res) != PGRES_COMMAND_OK) failWith(conn_, res, server_, secrets_);
    const std::string written = PQcmdTuples(res);
    PQclear(res);
    return written.empty() ? 0 : std::atoll(written.c_str());
}

void checkServerStore(const std::string& text, const std::string& password) {
    auto session = ServerSession::connect(text, password);
    const auto found = session->query("SELECT to_regclass('betrieb') IS NOT NULL");
    if (found.rows.empty() || found.rows[0][0] != "t")
        throw DaoError(
            kConnectSource, err::kTableNotFound,
            "Der Datenspeicher auf dem Datenbankserver " + session->server() +
                " ist nicht eingerichtet; „tolma-cli server einrichten“ richtet ihn ein.");
}

bool needsPassword(const DaoError& e) {
    return e.number() == err::kPasswordMissing;
}

std::string quoteIdentifier(const std::string& name) {
    std::string out = "\"";
    for (char c : name) out += c == '"' ? std::string("\"\"") : std::string(1, c);
    return out + "\"";
}

void appendCopyLine(std::string& out, const ServerRow& row) {
    for (size_t i = 0; i < row.size(); ++i) {
        if (i) out += '\t';
        if (!row[i]) {
            out += "\\N";
            continue;
        }
        // Whole runs between the few characters COPY wants escaped: every value an import
        // writes passes here, and a character at a time was a good part of its own time.
        const std::string& v = *row[i];
        size_t from = 0;
        for (size_t k = 0; k < v.size(); ++k) {
            const char c = v[k];
            const char* escaped = c == '\\'   ? "\\\\"
                                  : c == '\t' ? "\\t"
                                  : c == '\n' ? "\\n"
                                  : c == '\r' ? "\\r"
                                              : nullptr;
            if (!escaped) continue;
            out.append(v, from, k - from);
            out += escaped;
            from = k + 1;
        }
        out.append(v, from, std::string::npos);
    }
    out += '\n';
}

}  // namespace tolma::store
