#include <ostream>

#include "cli/cli.h"
#include "cli/help.h"
#include "cli/session.h"
#include "protection/protocol.h"
#include "protection/retention.h"
#include "store/connection.h"

namespace tolma::cli {

int commandLoeschen(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                    std::ostream& err) {
    std::optional<int> before;
    bool checkOnly = false;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--pruefen") {
            checkOnly = true;
        } else if (args[i] == "--abgemeldet-vor") {
            if (i + 1 >= args.size() || !(before = protection::isoDay(args[i + 1])))
                return badCall(err, "loeschen",
                               "--abgemeldet-vor erwartet einen Tag als JJJJ-MM-TT" +
                                   (i + 1 < args.size() ? ", nicht „" + args[i + 1] + "“." : "."));
            ++i;
        } else {
            return badCall(err, "loeschen", "unbekannte Angabe " + args[i] + ".");
        }
    }
    if (!before) return badCall(err, "loeschen", "--abgemeldet-vor JJJJ-MM-TT fehlt.");
    Session session(options, out);
    if (!session.startWithDataStore(err)) return kExitFailed;
    const auto result = protection::deleteAfterPeriod(
        session.g, *before, checkOnly,
        [&](const protection::DeletionPlan& plan) { out << protection::describePlan(plan); });
    if (result.outcome == protection::DeletionOutcome::Failed)
        err << "Löschen gescheitert: " << session.cause() << "\n";
    session.finish(out, err);
    switch (result.outcome) {
        case protection::DeletionOutcome::Deleted:
        case protection::DeletionOutcome::Nothing:
        case protection::DeletionOutcome::Checked:
            return kExitOk;
        case protection::DeletionOutcome::Refused:
            return kExitCancelled;
        case protection::DeletionOutcome::Failed:
            return kExitFailed;
    }
    return kExitFailed;
}

int commandProtokoll(const Options& options, const std::vector<std::string>& args,
                     std::ostream& out, std::ostream& err) {
    if (!args.empty()) return badCall(err, "protokoll", "unbekannte Angabe " + args[0] + ".");
    Session session(options, out);
    if (!session.startWithDataStore(err)) return kExitFailed;
    out << "Nr\tZeit\tBenutzer\tAktion\tKriterium\tBetroffen\tAnzahl\n";
    for (const auto& e : protection::readProtocol(*session.g.stores.db_daten.connection()))
        out << e.nr << "\t" << e.zeit << "\t" << e.benutzer << "\t" << e.aktion << "\t"
            << e.kriterium << "\t" << e.betroffen << "\t" << e.anzahl << "\n";
    session.finish(out, err);
    return kExitOk;
}

}  // namespace tolma::cli
