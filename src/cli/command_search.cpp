#include <cstdlib>
#include <ostream>

#include "cli/cli.h"
#include "cli/help.h"
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
        const std::string& a = args[i];
        const bool hasValue = i + 1 < args.size();
        if (a == "--nur") {
            if (!hasValue || (args[i + 1] != "betriebe" && args[i + 1] != "personen"))
                return badCall(err, "search",
                               "--nur erwartet „betriebe“ oder „personen“" +
                                   (hasValue ? ", nicht „" + args[i + 1] + "“." : "."));
            kind = args[++i] == "betriebe" ? search::Kind::Businesses : search::Kind::Persons;
        } else if (a == "--limit") {
            char* end = nullptr;
            const long n = hasValue ? std::strtol(args[i + 1].c_str(), &end, 10) : 0;
            if (!hasValue || *end != '\0' || n <= 0 || n > 100000)
                return badCall(err, "search",
                               "--limit erwartet eine Zahl von 1 bis 100000" +
                                   (hasValue ? ", nicht „" + args[i + 1] + "“." : "."));
            limit = static_cast<int>(n);
            ++i;
        } else if (a.rfind("--", 0) == 0) {
            return badCall(err, "search", "unbekannte Option " + a + ".");
        } else {
            query += (query.empty() ? "" : " ") + a;
        }
    }
    if (query.empty()) return badCall(err, "search", "es fehlt ein Suchbegriff.");
    Session session(options, out);
    if (!session.start(err)) return kExitFailed;
    core::Globals& g = session.g;
    if (!g.stores.db_daten.isSet()) {
        err << "Die Datenbank ist nicht geöffnet: " << session.cause() << "\n";
        return kExitFailed;
    }
    try {
        store::Connection& c = *g.stores.db_daten.connection();
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
