#include <ostream>

#include "cli/cli.h"
#include "cli/help.h"
#include "cli/session.h"
#include "store/connection.h"
#include "transfer/journal.h"

namespace tolma::cli {

int commandImports(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                   std::ostream& err) {
    if (!args.empty()) return badCall(err, "imports", "unbekannte Angabe " + args[0] + ".");
    Session session(options, out);
    if (!session.startWithDataStore(err)) return kExitFailed;
    out << "Lauf\tDatum\tDatei\tBetriebe\tZurückgenommen\tNach Löschfrist gelöscht\n";
    for (const auto& r : transfer::importRuns(*session.g.stores.db_daten.connection()))
        out << r.lauf << "\t" << r.datum << "\t" << r.datei << "\t" << r.betriebe << "\t"
            << (r.zurueckgenommen ? "ja" : "nein") << "\t" << (r.bilderGeloescht ? "ja" : "nein")
            << "\n";
    session.finish(out, err);
    return kExitOk;
}

int commandTakeBack(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                    std::ostream& err) {
    std::optional<long> from;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] != "--lauf") return badCall(err, "undo", "unbekannte Angabe " + args[i] + ".");
        char* end = nullptr;
        const long n = i + 1 < args.size() ? std::strtol(args[i + 1].c_str(), &end, 10) : 0;
        if (i + 1 >= args.size() || *end != '\0' || n <= 0)
            return badCall(err, "undo",
                           "--lauf erwartet die Nummer eines Laufs (1, 2, ...)" +
                               (i + 1 < args.size() ? ", nicht „" + args[i + 1] + "“." : "."));
        from = n;
        ++i;
    }
    Session session(options, out);
    if (!session.startWithDataStore(err)) return kExitFailed;
    const auto result = transfer::askAndTakeBack(session.g, from);
    for (const auto& r : result.runs) out << "Zurückgenommen: " << transfer::describeRun(r) << "\n";
    if (result.outcome == transfer::TakeBackOutcome::Failed)
        err << "Zurücknehmen gescheitert: " << session.cause() << "\n";
    session.finish(out, err);
    switch (result.outcome) {
        case transfer::TakeBackOutcome::Done:
            return kExitOk;
        case transfer::TakeBackOutcome::Refused:
            return kExitCancelled;
        case transfer::TakeBackOutcome::Nothing:
        case transfer::TakeBackOutcome::Failed:
            return kExitFailed;
    }
    return kExitFailed;
}

}  // namespace tolma::cli
