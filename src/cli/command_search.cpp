#include <ostream>

#include "cli/cli.h"
#include "cli/session.h"
#include "core/error_log.h"
#include "search/search_index.h"
#include "store/connection.h"

namespace tolma::cli {

int commandSearch(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                  std::ostream& err) {
    search::Kind kind = search::Kind::Both;
    int limit = 50;
    std::string query;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--nur" && i + 1 < args.size() &&
            (args[i + 1] == "betriebe" || args[i + 1] == "personen")) {
            kind = args[++i] == "betriebe" ? search::Kind::Businesses : search::Kind::Persons;
        } else if (args[i] == "--limit" && i + 1 < args.size() &&
                   std::atoi(args[i + 1].c_str()) > 0) {
            limit = std::atoi(args[++i].c_str());
        } else if (args[i].rfind("--", 0) == 0) {
            query.clear();
            break;
        } else {
            query += (query.empty() ? "" : " ") + args[i];
        }
    }
    if (query.empty()) {
        err << "Aufruf: tolma-cli [--home VERZEICHNIS] search [--nur betriebe|personen] [--limit "
               "N] BEGRIFF...\n";
        return kExitUsage;
    }
    Session session(options, out);
    if (!session.start(err)) return kExitFailed;
    core::Globals& g = session.g;
    if (!g.db_daten.isSet()) {
        err << "Die Datenbank ist nicht geöffnet: " << session.cause() << "\n";
        return kExitFailed;
    }
    try {
        store::Connection& c = *g.db_daten.connection();
        if (!search::hasIndex(c)) {
            err << "Der Suchindex wird aufgebaut ...\n";
            search::buildIndex(c);
        }
        out << search::hitsText(search::find(c, query, kind, limit));
    } catch (const std::exception& e) {
        core::logTrapped(g, "Suchen", e);
        err << "Die Suche ist gescheitert: " << session.cause() << "\n";
        return kExitFailed;
    }
    session.finish(out, err);
    return kExitOk;
}

}  // namespace tolma::cli
