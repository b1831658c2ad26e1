#include <filesystem>
#include <ostream>

#include "cli/cli.h"
#include "cli/help.h"
#include "cli/options.h"
#include "core/error_log.h"
#include "core/program_paths.h"
#include "model/server_schema.h"
#include "protection/protocol.h"
#include "search/search_index.h"
#include "store/connection.h"
#include "store/dao_error.h"
#include "store/server_address.h"
#include "store/store_copy.h"
#include "transfer/element_fingerprint.h"
#include "transfer/journal_tables.h"

namespace tolma::cli {
namespace {

constexpr const char* kTitle = "Datenbankserver";

// The store on the server is no business of the home; its log takes the entry only when the
// home has one already, as with a command refused before the start.
void logFailure(const Options& options, const store::DaoError& e, std::ostream& err) {
    const core::ProgramPaths paths = core::resolvePaths(core::executableDir(), options.home);
    std::error_code ec;
    if (!std::filesystem::is_directory(paths.logDir(), ec)) return;
    core::Globals g;
    g.paths.pfad_log = paths.logDir().string() + "/";
    core::A_Error_Log(g, "tolma-cli server einrichten", e.source(), std::to_string(e.number()),
                      e.description(), "Fehlerortung: ", "0");
    if (g.log.fehler_vorhanden && g.log.logWriteError.empty())
        err << "Fehlerprotokoll: " << core::errorLogPath(g.paths) << "\n";
}

void report(const model::ServerSetUp& done, const std::string& server, std::ostream& out) {
    if (done.changedNothing()) {
        out << "Der Datenspeicher auf " << server
            << " war schon eingerichtet; nichts wurde geändert.\n";
        return;
    }
    out << "Datenspeicher eingerichtet auf " << server << ".\n"
        << "Tabellen angelegt: " << done.tablesCreated << "\n";
    if (done.tablesPresent > 0) out << "Tabellen schon vorhanden: " << done.tablesPresent << "\n";
    if (!done.rolesCreated.empty()) {
        out << "Rollen angelegt:";
        for (const auto& role : done.rolesCreated) out << " " << role;
        out << "\n";
    }
}

// The program's own tables (the record of the runs, the protocol, the search index) are made
// here, by the login that sets up: the clerks' logins may write into tables, not create them.
// Counts what was made into `done`.
void makeOwnTables(const std::string& text, model::ServerSetUp& done) {
    auto c = store::Connection::open(text, store::Connection::Kind::Shared);
    const size_t before = store::tableNames(*c).size();
    c->beginBatch();
    try {
        transfer::journal::createRecordTables(*c);
        done.indexesCreated += transfer::journal::indexRecordTables(*c);
        protection::createProtocol(*c);
        search::prepareIndexTables(*c);
        transfer::createFingerprintTable(*c);
        c->commitBatch();
    } catch (...) {
        c->rollbackBatch();
        throw;
    }
    done.tablesCreated += static_cast<int>(store::tableNames(*c).size() - before);
}

}  // namespace

int commandServer(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                  std::ostream& err) {
    if (args.empty() || args[0] != "einrichten")
        return badCall(err, "server",
                       args.empty() ? "was soll geschehen? (einrichten)"
                                    : "unbekannte Angabe " + args[0] + ".");
    if (args.size() != 2)
        return badCall(err, "server", "einrichten erwartet genau eine Verbindungsangabe.");
    const std::string& text = args[1];
    if (!store::isServerText(text))
        return badCall(err, "server",
                       "„" + text + "“ ist keine Verbindungsangabe eines Datenbankservers.");
    try {
        model::ServerSetUp done = model::setUpServerStore(text);
        makeOwnTables(text, done);
        model::grantServerRights(text);
        report(done, store::describeServer(text), out);
        return kExitOk;
    } catch (const store::DaoError& e) {
        err << kTitle << ": " << e.description() << "\n";
        logFailure(options, e, err);
    }
    return kExitFailed;
}

}  // namespace tolma::cli
