#include "cli/session.h"

#include <iostream>

#include "core/error_log.h"
#include "core/program_paths.h"
#include "core/start.h"

namespace tolma::cli {

Session::Session(const Options& options, std::ostream& out)
    : options_(options),
      dialogs_(std::make_unique<TerminalDialogs>(out, options.in ? *options.in : std::cin, options.interactive)) {
    dialogs_->setMode(options.answers, options.answerScript);
    g.dialogs = dialogs_.get();
}

Session::~Session() = default;

bool Session::start(std::ostream& err) {
    const core::ProgramPaths paths = core::resolvePaths(core::executableDir(), options_.home);
    g.dataDir = paths.dataDir;
    core::A_Start(g, paths.home);
    if (!g.db_org.isSet()) {
        err << "Die Einstellungsdatenbank konnte nicht geöffnet werden";
        if (g.fehler_vorhanden) err << "; Einzelheiten im Fehlerprotokoll " << core::errorLogPath(g);
        err << ".\n";
        return false;
    }
    return true;
}

void Session::finish(std::ostream& out) {
    if (g.fehler_vorhanden) out << "Fehlerprotokoll: " << core::errorLogPath(g) << "\n";
}

}  // namespace tolma::cli
