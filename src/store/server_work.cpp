#include "store/server_work.h"

#include <chrono>
#include <ctime>
#include <optional>
#include <string_view>

#include "store/connection.h"
#include "store/dao_error.h"
#include "store/server_session.h"

namespace tolma::store {
namespace {

// The lock's number among the advisory locks of the database: "tolma" in ASCII. The server
// shows it in pg_locks split in two halves.
constexpr long long kLockKey = 0x746F6C6D61LL;
constexpr const char* kLockHalves = "l.classid = 116 AND l.objid = 1869376865 AND l.objsubid = 1";
constexpr const char* kChannel = "tolma_aenderung";
constexpr std::string_view kNamePrefix = "tolma/";

const char* codeOf(StoreWork work) {
    switch (work) {
        case StoreWork::Import:
            return "I";
        case StoreWork::TakeBack:
            return "Z";
        case StoreWork::Emptying:
            return "L";
        case StoreWork::Deletion:
            return "F";
    }
    return "I";
}

std::optional<StoreWork> workOf(const std::string& code) {
    for (StoreWork w :
         {StoreWork::Import, StoreWork::TakeBack, StoreWork::Emptying, StoreWork::Deletion})
        if (code == codeOf(w)) return w;
    return std::nullopt;
}

// "10:42 Uhr" today, "dem 26.11.2026, 10:42 Uhr" on another day.
std::string sincePhrase(long long since) {
    const std::time_t then = static_cast<std::time_t>(since);
    const std::time_t now = std::time(nullptr);
    std::tm t{}, n{};
    localtime_r(&then, &t);
    localtime_r(&now, &n);
    char buffer[40];
    if (t.tm_year == n.tm_year && t.tm_yday == n.tm_yday)
        std::strftime(buffer, sizeof buffer, "%H:%M Uhr", &t);
    else
        std::strftime(buffer, sizeof buffer, "dem %d.%m.%Y, %H:%M Uhr", &t);
    return buffer;
}

std::string doing(StoreWork work, const std::string& since) {
    switch (work) {
        case StoreWork::Import:
            return "liest seit " + since + " Daten ein";
        case StoreWork::TakeBack:
            return "nimmt seit " + since + " einen Import zurück";
        case StoreWork::Emptying:
            return "leert seit " + since + " die Datenbank";
        case StoreWork::Deletion:
            return "löscht seit " + since + " Betriebe nach Ablauf der Aufbewahrungsfrist";
    }
    return {};
}

constexpr const char* kTryLater = " Bitte versuchen Sie es später erneut.";

}  // namespace

std::string workSessionName(StoreWork work, long long since) {
    return std::string(kNamePrefix) + codeOf(work) + "/" + std::to_string(since);
}

std::string busyMessage(const std::string& sessionName, const std::string& user) {
    const std::string who = "Ein anderer Arbeitsplatz (" + user + ")";
    const size_t slash = sessionName.find('/', kNamePrefix.size());
    if (sessionName.starts_with(kNamePrefix) && slash != std::string::npos) {
        const auto work =
            workOf(sessionName.substr(kNamePrefix.size(), slash - kNamePrefix.size()));
        char* end = nullptr;
        const long long since = std::strtoll(sessionName.c_str() + slash + 1, &end, 10);
        if (work && end && *end == '\0')
            return who + " " + doing(*work, sincePhrase(since)) + "." + kTryLater;
    }
    return who + " ändert gerade den Datenbestand." + kTryLater;
}

WorkLock::WorkLock(std::unique_ptr<ServerSession> session) : session_(std::move(session)) {}

WorkLock::~WorkLock() = default;  // closing the session frees the lock

std::unique_ptr<WorkLock> WorkLock::take(Connection& c, StoreWork work) {
    if (!c.isServer()) return nullptr;
    auto session = c.connectAnother();
    const long long now = std::chrono::duration_cast<std::chrono::seconds>(
                              std::chrono::system_clock::now().time_since_epoch())
                              .count();
    session->execute("SELECT set_config('application_name', $1, false)",
                     {workSessionName(work, now)});
    // A holder that lets go between the failed try and the question who it is: once more.
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (session->query("SELECT pg_try_advisory_lock(" + std::to_string(kLockKey) + ")")
                .rows.at(0)
                .at(0) == "t")
            return std::unique_ptr<WorkLock>(new WorkLock(std::move(session)));
        const auto holder = session->query(
            std::string("SELECT a.usename, a.application_name FROM pg_locks l JOIN "
                        "pg_stat_activity a ON a.pid = l.pid WHERE l.locktype = 'advisory' AND "
                        "l.granted AND l.database = (SELECT oid FROM pg_database WHERE datname = "
                        "current_database()) AND ") +
            kLockHalves);
        if (!holder.rows.empty())
            throw DaoError(
                "DAO.Database", err::kDatabaseInUse,
                busyMessage(holder.rows[0][1].value_or(""), holder.rows[0][0].value_or("?")));
    }
    throw DaoError(
        "DAO.Database", err::kDatabaseInUse,
        std::string("Ein anderer Arbeitsplatz ändert gerade den Datenbestand.") + kTryLater);
}

std::string writeRefusal(Connection& c) {
    ServerSession* s = c.server();
    if (!s) return {};
    const auto row = s->query(
                          "SELECT pg_is_in_recovery(), current_setting('transaction_read_only'), "
                          "current_user, has_table_privilege(to_regclass('betrieb'), "
                          "'INSERT, UPDATE, DELETE')")
                         .rows.at(0);
    if (row.at(0) == "t" || row.at(1) == "on")
        return "Der Datenbankserver " + s->server() +
               " nimmt keine Änderungen an (ein Bereitschaftsserver oder ein Server nur zum "
               "Lesen). Geändert werden kann der Datenbestand nur auf dem Server, der Änderungen "
               "annimmt (in der Verbindungsangabe: target_session_attrs=read-write).";
    if (row.at(3) == "f")
        return "Die Anmeldung „" + row.at(2).value_or("") +
               "“ darf den Datenbestand auf dem Datenbankserver nur lesen. Einlesen, "
               "Zurücknehmen, Leeren und Löschen sind Anmeldungen mit der Rolle tolma_import "
               "vorbehalten.";
    return {};
}

void emptyServerStore(Connection& c) {
    ServerSession& s = *c.server();
    const auto tables = s.query(
        "SELECT quote_ident(tablename) FROM pg_tables WHERE schemaname = current_schema() "
        "ORDER BY tablename");
    if (tables.rows.empty()) return;
    std::string list;
    for (const auto& row : tables.rows) list += (list.empty() ? "" : ", ") + row.at(0).value_or("");
    s.transaction([&] {
        // RESTART IDENTITY would need the sequences' owner; the import role may set them.
        s.execute("TRUNCATE " + list);
        const auto sequences = s.query(
            "SELECT pg_get_serial_sequence(quote_ident(c.relname), 'rowid') FROM pg_class c JOIN "
            "pg_attribute a ON a.attrelid = c.oid WHERE c.relkind = 'r' AND a.attname = 'rowid' "
            "AND c.relnamespace = current_schema()::regnamespace AND a.attidentity <> ''");
        for (const auto& row : sequences.rows)
            if (row.at(0)) s.query("SELECT setval($1::regclass, 1, false)", {row[0]});
    });
}

std::vector<std::string> rewriteServerTables(Connection& c) {
    ServerSession& s = *c.server();
    std::vector<std::string> left;
    const auto tables = s.query(
        "SELECT quote_ident(tablename), tableowner = current_user OR pg_has_role(tableowner, "
        "'USAGE') FROM pg_tables WHERE schemaname = current_schema() ORDER BY tablename");
    for (const auto& row : tables.rows) {
        const std::string table = row.at(0).value_or("");
        if (row.at(1) == "t")
            s.execute("VACUUM (FULL, ANALYZE) " + table);
        else
            left.push_back(table);
    }
    return left;
}

void announceChange(Connection& c, StoreWork work) noexcept {
    if (!c.isServer()) return;
    try {
        c.server()->execute(std::string("SELECT pg_notify('") + kChannel + "', $1)",
                            {std::string(codeOf(work))});
    } catch (const std::exception&) {
        // The others learn it at their next reconnect or action; the change stands.
    }
}

void listenForChanges(Connection& c) {
    if (c.isServer()) c.server()->execute(std::string("LISTEN ") + kChannel);
}

std::vector<StoreWork> changesHeard(Connection& c) {
    std::vector<StoreWork> heard;
    if (!c.isServer() || c.inBatch()) return heard;
    for (const auto& n : c.server()->notices())
        if (n.channel == kChannel) heard.push_back(workOf(n.payload).value_or(StoreWork::Import));
    return heard;
}

}  // namespace tolma::store
