#include <filesystem>
#include <ostream>

#include "cli/cli.h"
#include "cli/help.h"
#include "cli/session.h"
#include "core/error_log.h"
#include "model/default_stores.h"
#include "model/schema.h"
#include "store/connection.h"
#include "store/dao_error.h"
#include "store/server_address.h"
#include "store/server_session.h"
#include "store/store_copy.h"

namespace tolma::cli {
namespace {

// The target as the messages name it: a server without a password, a file by its path.
std::string nameOf(const std::string& target) {
    return store::isServerText(target) ? store::describeServer(target) : target;
}

// Opens the target, making an empty store first where a file is named that does not exist.
std::shared_ptr<store::Connection> openTarget(const std::string& target) {
    if (store::isServerText(target)) {
        store::checkServerStore(target);
        return store::Connection::open(target, store::Connection::Kind::Shared);
    }
    std::error_code ec;
    if (!std::filesystem::exists(target, ec)) model::writeEmptyStore(target, model::dataTables());
    return store::Connection::open(target, store::Connection::Kind::Exclusive);
}

int copyStore(Session& session, const std::string& target, std::ostream& out, std::ostream& err) {
    core::Globals& g = session.g;
    store::Connection& from = *g.stores.db_daten.connection();
    std::error_code ec;
    if (from.file().string() == target ||
        (!store::isServerText(target) && std::filesystem::equivalent(from.file(), target, ec))) {
        err << "Quelle und Ziel sind dieselbe Datenbank; es wurde nichts kopiert.\n";
        return kExitUsage;
    }
    const bool created = !store::isServerText(target) && !std::filesystem::exists(target);
    try {
        auto to = openTarget(target);
        std::vector<std::string> tables, left;
        for (const auto& t : store::tableNames(from))
            (to->hasTable(t) ? tables : left).push_back(t);
        if (const long long rows = store::rowsIn(*to, tables); rows > 0) {
            err << "Das Ziel " << nameOf(target) << " enthält bereits Daten (" << rows
                << " Zeilen); es wurde nichts kopiert.\n";
            return kExitFailed;
        }
        const auto copied = store::copyTables(from, *to, tables);
        long long total = 0;
        out << "Kopiert nach " << nameOf(target) << ":\n";
        for (const auto& t : copied) {
            out << "  " << t.table << "\t" << t.rows << "\n";
            total += t.rows;
        }
        out << "Zeilen insgesamt: " << total
            << " (je Tabelle in Quelle und Ziel gezählt: gleich)\n";
        if (!left.empty()) {
            out << "Nicht kopiert, weil das Ziel sie nicht hat:";
            for (const auto& t : left) out << " " << t;
            out << "\nDer Suchindex wird im Ziel bei der ersten Suche neu aufgebaut.\n";
        }
        return kExitOk;
    } catch (const std::exception& e) {
        if (created) std::filesystem::remove(target, ec);  // no half-made store stays behind
        const auto info = core::describeError(e);
        err << "Die Datenbank konnte nicht nach " << nameOf(target)
            << " kopiert werden: " << info.text << "\nEs wurde nichts kopiert.\n";
        core::A_Error_Log(g, "tolma-cli kopieren", info.source, std::to_string(info.number),
                          info.text, "Ziel: ", nameOf(target));
        return kExitFailed;
    }
}

}  // namespace

int commandKopieren(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                    std::ostream& err) {
    if (args.size() != 2 || args[0] != "--nach")
        return badCall(err, "kopieren",
                       "erwartet wird --nach ZIEL (Datei oder Verbindungsangabe).");
    if (store::isServerText(args[1]) && !store::passwordIn(args[1]).empty())
        return badCall(err, "kopieren", "die Verbindungsangabe darf kein Kennwort enthalten.");
    Session session(options, out);
    if (!session.startWithDataStore(err)) return kExitFailed;
    const int code = copyStore(session, args[1], out, err);
    session.finish(out, err);
    return code;
}

}  // namespace tolma::cli
