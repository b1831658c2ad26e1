#include <unistd.h>

#include <ostream>

#include "cli/cli.h"
#include "cli/interrupt.h"
#include "cli/session.h"
#include "core/files.h"
#include "transfer/import_driver.h"

namespace tolma::cli {

int commandImport(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                  std::ostream& err) {
    const bool check = !args.empty() && args[0] == "--check";
    if (args.size() != (check ? 2u : 1u)) {
        err << "Aufruf: tolma-cli [--home VERZEICHNIS] import [--yes|--no|--answers JN...] DATEI\n"
               "       tolma-cli [--home VERZEICHNIS] import --check DATEI\n";
        return kExitUsage;
    }
    Session session(options, out);
    const std::string& file = args.back();
    // Refused before the start: reading a pipe would wait, with the settings store held, for a
    // writer that may never come, and every other command of this home would be refused.
    if (const std::string cause = core::irregularFileCause(file); !cause.empty()) {
        session.refuseBeforeStart(err, check ? "tolma-cli import --check" : "Upd_1_Start",
                                  "Die Datei ''" + file + "'' kann nicht gelesen werden.", cause);
        return kExitFailed;
    }
    if (!session.start(err)) return kExitFailed;
    core::Globals& g = session.g;
    if (check) {
        // Nothing is kept and nothing is asked: the report is all.
        transfer::ImportCheck report;
        const auto outcome = transfer::checkTransferFile(g, args[1], report);
        if (outcome == transfer::ImportOutcome::Failed && report.businesses == 0 &&
            !report.warnings.empty()) {
            err << report.warnings.front() << "\n";
            return kExitFailed;
        }
        out << transfer::checkReportText(args[1], report);
        return outcome == transfer::ImportOutcome::StoreFailed ? kExitFailed : kExitOk;
    }
    transfer::ImportOutcome outcome;
    {
        InterruptAsEscape escape(g, err, options.interactive && ::isatty(2));
        outcome = transfer::Upd_1_Start(g, args[0]);
    }
    if (outcome == transfer::ImportOutcome::Failed) {
        out << "Import: " << g.startView.Label2 << "\n";
        err << "Der Import ist gescheitert: " << session.cause() << "\n";
    } else if (outcome == transfer::ImportOutcome::StoreFailed) {
        err << "Die Daten wurden nicht oder nicht vollständig gespeichert: " << g.storeFault
            << "\n";
    }
    session.finish(out, err);
    switch (outcome) {
        case transfer::ImportOutcome::Finished:
            return kExitOk;
        case transfer::ImportOutcome::Cancelled:
            return kExitCancelled;
        case transfer::ImportOutcome::Failed:
        case transfer::ImportOutcome::StoreFailed:
            return kExitFailed;
    }
    return kExitFailed;
}

}  // namespace tolma::cli
