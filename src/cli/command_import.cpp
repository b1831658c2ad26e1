#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ostream>

#include "cli/cli.h"
#include "cli/help.h"
#include "cli/interrupt.h"
#include "cli/session.h"
#include "core/files.h"
#include "store/connection.h"
#include "transfer/import_driver.h"

namespace tolma::cli {
namespace {

// The stored states of businesses; -1 without a store.
long businessRows(core::Globals& g) {
    try {
        if (!g.stores.db_daten.isSet()) return -1;
        auto st = g.stores.db_daten.connection()->prepare("SELECT count(*) FROM betrieb");
        return st->step() ? static_cast<long>(st->column(0).toInteger()) : -1;
    } catch (const std::exception&) {
        return -1;
    }
}

// The start window's state, and its label on the terminal a few times a second.
class TerminalScreen final : public transfer::StartViewScreen {
  public:
    TerminalScreen(core::Globals& g, std::ostream& err, bool shown)
        : StartViewScreen(g), err_(err), shown_(shown) {}
    ~TerminalScreen() override {
        if (shown_) err_ << "\r\x1b[K" << std::flush;
    }
    void preparing(const std::string& label) override {
        StartViewScreen::preparing(label);
        show();
    }
    void label(const std::string& text) override {
        StartViewScreen::label(text);
        show();
    }
    void record(int value, const std::string& label) override {
        StartViewScreen::record(value, label);
        show();
    }

  private:
    void show() {
        if (!shown_) return;
        const auto now = std::chrono::steady_clock::now();
        if (now - last_ < std::chrono::milliseconds(200)) return;
        last_ = now;
        err_ << "\r" << g_.forms.startView.Label2 << "\x1b[K" << std::flush;
    }

    std::ostream& err_;
    bool shown_;
    std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
};

}  // namespace

int commandImport(const Options& options, const std::vector<std::string>& args, std::ostream& out,
                  std::ostream& err) {
    const bool check = !args.empty() && args[0] == "--check";
    if (args.size() != (check ? 2u : 1u))
        return badCall(
            err, "import",
            args.size() < (check ? 2u : 1u) ? "es fehlt die Datei." : "nur eine Datei je Aufruf.");
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
            const std::string cause = transfer::noBusinessCause(file);
            err << report.warnings.front() << "\n";
            if (report.warnings.front().find(cause) == std::string::npos) err << cause << "\n";
            return kExitFailed;
        }
        if (outcome != transfer::ImportOutcome::StoreFailed && report.businesses == 0) {
            err << "Die Transfer-Datei enthält keine Gewerbedaten!\n"
                << transfer::noBusinessCause(file) << "\n";
            return kExitFailed;
        }
        out << transfer::checkReportText(args[1], report);
        return outcome == transfer::ImportOutcome::StoreFailed ? kExitFailed : kExitOk;
    }
    const std::string storeBefore = g.settings.db_pfad_aktuell;
    const long before = businessRows(g);
    transfer::ImportOutcome outcome;
    transfer::ImportCounts counts;
    {
        InterruptAsEscape escape(g, err, false);
        TerminalScreen screen(g, err, options.interactive && ::isatty(2));
        outcome = transfer::Upd_1_Start(g, args[0], &counts, &screen);
    }
    // The system's message said the file held no business data; a script learns it here.
    if (outcome == transfer::ImportOutcome::Finished && counts.read == 0) {
        err << "Es wurde kein Betrieb eingelesen: " << transfer::noBusinessCause(file) << "\n";
        session.finish(out, err);
        return kExitFailed;
    }
    if (counts.read > 0) {
        out << "Betriebe eingelesen: " << counts.read;
        // A run that switched the data kind filled the other store: no comparison then.
        const long after = businessRows(g);
        if (g.settings.db_pfad_aktuell == storeBefore && before >= 0 && after >= before)
            out << " (neu: " << after - before
                << ", ersetzt: " << std::max(0L, counts.read - (after - before)) << ")";
        out << "; darunter Abmeldungen: " << counts.removals << "\n";
    }
    if (outcome == transfer::ImportOutcome::Failed) {
        out << "Import: " << g.forms.startView.Label2 << "\n";
        err << "Der Import ist gescheitert: " << session.cause() << "\n";
        // Each block was committed on its own: what came before the failure is kept.
        if (counts.read > 0)
            err << "Die Blöcke vor dem Fehler sind gespeichert; „tolma-cli undo“ nimmt den Lauf "
                   "zurück.\n";
    } else if (outcome == transfer::ImportOutcome::StoreFailed) {
        err << "Die Daten wurden nicht oder nicht vollständig gespeichert: " << g.log.storeFault
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
        case transfer::ImportOutcome::Refused:
            return kExitFailed;
    }
    return kExitFailed;
}

}  // namespace tolma::cli
