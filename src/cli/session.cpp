#include "cli/session.h"

#include <filesystem>
#include <iostream>

#include "browse/data_controls.h"
#include "core/error_log.h"
#include "core/files.h"
#include "core/program_paths.h"
#include "core/start.h"
#include "model/default_stores.h"

namespace tolma::cli {

Session::Session(const Options& options, std::ostream& out)
    : options_(options),
      dialogs_(std::make_unique<TerminalDialogs>(out, options.in ? *options.in : std::cin,
                                                 options.interactive)) {
    dialogs_->setMode(options.answers, options.answerScript);
    browse::attachDataControls(g);
    g.dialogs = dialogs_.get();
}

Session::~Session() = default;

bool Session::startWithDataStore(std::ostream& err) {
    if (!start(err)) return false;
    if (g.stores.db_daten.isSet()) return true;
    err << "Die Datenbank ist nicht geöffnet: " << cause() << "\n";
    return false;
}

bool Session::start(std::ostream& err) {
    const core::ProgramPaths paths = core::resolvePaths(core::executableDir(), options_.home);
    g.paths.dataDir = paths.dataDir;
    core::A_Start(g, paths.home);
    if (!g.stores.db_org.isSet()) {
        // With the stores in place it was the settings store that could not be opened.
        bool storesInPlace = !g.paths.pfad_db.empty();
        for (const char* name :
             {model::kSettingsStoreFile, model::kBusinessStoreFile, model::kNotificationStoreFile})
            storesInPlace =
                storesInPlace && core::findIgnoringCase(g.paths.pfad_db, name).has_value();
        err << (storesInPlace ? "Die Einstellungsdatenbank konnte nicht geöffnet werden: "
                              : "Das Programm konnte nicht gestartet werden: ")
            << cause() << "\n";
        tellAboutLog(err);
        return false;
    }
    return true;
}

void Session::refuseBeforeStart(std::ostream& err, const std::string& procedure,
                                const std::string& message, const std::string& cause) {
    err << message << "\n" << cause << "\n";
    const core::ProgramPaths paths = core::resolvePaths(core::executableDir(), options_.home);
    std::error_code ec;
    if (!std::filesystem::is_directory(paths.logDir(), ec)) return;
    g.paths.pfad_log = paths.logDir().string() + "/";
    core::A_Error_Log(g, procedure, "TOLMA_4x_Access", "75", message + " " + cause,
                      "Fehlerortung: ", "0");
    tellAboutLog(err);
}

std::string Session::cause() const {
    if (!g.log.lastLoggedError.empty()) return g.log.lastLoggedError;
    return g.forms.startView.Label2;
}

void Session::tellAboutLog(std::ostream& out) const {
    if (!g.log.fehler_vorhanden) return;
    if (g.log.logWriteError.empty())
        out << "Fehlerprotokoll: " << core::errorLogPath(g.paths) << "\n";
    else
        out << "Das Fehlerprotokoll " << core::errorLogPath(g.paths)
            << " konnte nicht geschrieben werden (" << g.log.logWriteError
            << "); der letzte Fehler: " << g.log.lastLoggedError << "\n";
}

void Session::finish(std::ostream& out, std::ostream& err) {
    if (g.log.logWriteError.empty())
        tellAboutLog(out);
    else
        tellAboutLog(err);
}

}  // namespace tolma::cli
